/*
 * Keyed list utilities: finding list entries by up to ten keys, creating
 * them with their key leaves, ancestors of the request, key data, the trim
 * path and the current-list pointer.
 */
#include <string>

#include "host/alloc.h"
#include "host/context.h"
#include "host_fixture.h"
#include "tree_builder.h"
#include "ymap_ni_static_util.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

const char *const PROTO_LIST = "/network-instances/network-instance/protocols/protocol";
const char *const NI_LIST = "/network-instances/network-instance";
const char *const OTHER_NS = "urn:test:other";

class ListUtil : public HostFixture {
protected:
    /* Network instance "red" with three protocol entries. */
    void SetUp() override
    {
        tree_ = build_tree(R"(
            /network-instances/network-instance[name=red]/protocols/protocol[identifier=BGP][name=core]/config/name = core
            /network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/config/name = DEFAULT
            /network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=extra]
        )",
                           OCNI_NS_OC_NI);
    }
    zidl_yfw_datatree *proto(const char *id, const char *name) const
    {
        return tree_find(tree_.get(), (std::string(NI_LIST) + "[name=red]/protocols/protocol[identifier=" + id +
                                       "][name=" + name + "]").c_str());
    }
    /* A tree whose list /a/item holds k=1 in OCNI_NS_OC_NI's module and k=2 in `other_ns`, or the reverse. */

    TreePtr tree_;
    zidl_yfw_datatree *found = nullptr;
};

TEST_F(ListUtil, SearchFindsTheEntryWhoseKeysAllMatch)
{
    struct Row {
        const char *id, *name;
        const char *want_id, *want_name; /* null: no entry */
    } rows[] = {
        {"STATIC", "DEFAULT", "STATIC", "DEFAULT"}, {"STATIC", "extra", "STATIC", "extra"}, {"BGP", "core", "BGP", "core"},
        /* A null key value matches any value of that key. */
        {"BGP", nullptr, "BGP", "core"}, {nullptr, "extra", "STATIC", "extra"}, {nullptr, nullptr, "BGP", "core"},
        {"OSPF", "DEFAULT", nullptr, nullptr}, {"STATIC", "core", nullptr, nullptr}, {"static", "DEFAULT", nullptr, nullptr},
    };
    const char *names[] = {"identifier", "name"};
    for (const Row &r : rows) {
        SCOPED_TRACE(std::string(r.id ? r.id : "*") + "/" + (r.name ? r.name : "*"));
        const char *values[] = {r.id, r.name};
        found = nullptr;
        EXPECT_EQ(ni_static_yfw_map_search_subtree_list_multi_keys(h.ctx, tree_.get(), &found, PROTO_LIST, 2, values,
                                                                   names, OCNI_NS_OC_NI),
                  r.want_id ? YFW_RC_OK : YFW_RC_MAP_FAILED);
        EXPECT_EQ(found, r.want_id ? proto(r.want_id, r.want_name) : nullptr);
    }
    /* Only a path missing from the tree records an error path; the working copy is freed. */
    const char *blue[] = {"blue"}, *name[] = {"name"};
    EXPECT_EQ(ni_static_yfw_map_search_list_multi_keys(h.ctx, tree_.get(), &found, NI_LIST, 1, blue, name, nullptr),
              YFW_RC_MAP_FAILED);
    EXPECT_TRUE(h.error_paths().empty());
    EXPECT_EQ(ni_static_yfw_map_search_list_multi_keys(h.ctx, tree_.get(), &found, "/network-instances/vlans/vlan", 1,
                                                       blue, name, nullptr),
              YFW_RC_MAP_FAILED);
    EXPECT_EQ(h.error_paths().size(), 1u);
    EXPECT_EQ(alloc_live(OCNI_TAG_MAP_US), 0u);
}

/* A hand-made entry with key leaves, for shapes the host never builds. */
struct RawEntry {
    zidl_yfw_datatree kids[3] = {};
    zidl_yfw_datatree entry = {};
    RawEntry()
    {
        static char n_id[] = "identifier", n_name[] = "name", n_cfg[] = "config";
        static char v_id[] = "STATIC", v_name[] = "DEFAULT", n_proto[] = "protocol";
        static char ns[] = OCNI_NS_OC_NI;
        kids[0] = {n_id, v_id, 0, 0, nullptr, ns, nullptr, YFW_DT_F_LIST | YFW_DT_F_VALUE, 0, 0, 0, nullptr};
        kids[1] = {n_name, v_name, 0, 0, nullptr, ns, nullptr, YFW_DT_F_LIST | YFW_DT_F_VALUE, 0, 0, 0, nullptr};
        kids[2] = {n_cfg, nullptr, 0, 0, nullptr, ns, nullptr, 0, 0, 0, 0, nullptr};
        entry = {n_proto, nullptr, 0, 3, kids, ns, nullptr, YFW_DT_F_LIST | YFW_DT_F_CHILDREN, 0, 0, 0, nullptr};
    }
};

TEST(ListUtilMatch, ChildByNameAndKeyData)
{
    RawEntry e;
    zidl_yfw_datatree *child = nullptr;
    EXPECT_EQ(ni_static_yfw_map_find_child(&e.entry, &child, "config", nullptr), YFW_RC_OK);
    EXPECT_EQ(child, &e.kids[2]);
    EXPECT_EQ(ni_static_yfw_map_find_child(&e.entry, &child, "config", OTHER_NS), YFW_RC_MAP_FAILED);
    EXPECT_EQ(ni_static_yfw_map_find_child(&e.entry, &child, "state", nullptr), YFW_RC_MAP_FAILED);
    char *value = nullptr;
    EXPECT_EQ(ni_static_yfw_map_datatree_get_key_data(&e.entry, "name", &value), YFW_RC_OK);
    EXPECT_STREQ(value, "DEFAULT");
    EXPECT_EQ(ni_static_yfw_map_datatree_get_key_data(&e.entry, "config", &value), YFW_RC_MAP_FAILED); /* keys only */

    e.entry.flags = YFW_DT_F_LIST;
    EXPECT_EQ(ni_static_yfw_map_find_child(&e.entry, &child, "config", nullptr), YFW_RC_MAP_FAILED);
    e.entry.flags |= YFW_DT_F_CHILDREN;
    e.entry.children = nullptr;
    EXPECT_EQ(ni_static_yfw_map_find_child(&e.entry, &child, "config", nullptr), YFW_RC_NO_MEMORY);
    EXPECT_EQ(ni_static_yfw_map_datatree_get_key_data(&e.entry, "name", &value), YFW_RC_MAP_FAILED);
    e.entry.children = e.kids;
    e.entry.n_children = 0;
    EXPECT_EQ(ni_static_yfw_map_datatree_get_key_data(&e.entry, "name", &value), YFW_RC_MAP_FAILED);
}

TEST_F(ListUtil, FindOrCreateAddsKeysConfigAndStateOnce)
{
    const std::string P = "/network-instances/network-instance/protocols/protocol[identifier=STATIC][name=DEFAULT]";
    const Lines config = {P + "/config/identifier = STATIC", P + "/config/name = DEFAULT"};
    Lines state = config;
    for (const char *l : {"/state/default-metric = 1", "/state/enabled = true", "/state/identifier = STATIC",
                          "/state/name = DEFAULT"})
        state.push_back(P + l);
    const struct {
        uint32_t op_type;
        const char *parent; /* parent path or null */
        Lines expected;
    } cases[] = {{YFW_REQ_READ, nullptr, config}, {YFW_REQ_READ_STATE, nullptr, state}, {YFW_REQ_READ_STATE, NI_LIST, state}};
    const char *values[] = {"STATIC", "DEFAULT"}, *names[] = {"identifier", "name"};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.parent ? c.parent : "no parent");
        h.reset(c.op_type);
        const char *list = c.parent != nullptr ? "protocols/protocol" : PROTO_LIST;
        zidl_yfw_datatree *first = nullptr, *second = nullptr;
        EXPECT_EQ(ni_static_yfw_map_search_or_add_subtree_list_multi_keys(h.ctx, h.out, &first, c.parent, list, 2,
                                                                          values, names, OCNI_NS_OC_NI),
                  YFW_RC_OK);
        ASSERT_NE(first, nullptr);
        const NodeRef ref = node_ref(first);
        /* The list path is searched below the root given: with a parent path, the parent's node. */
        zidl_yfw_datatree *root = c.parent != nullptr ? h.out_node(c.parent) : h.out;
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(ni_static_yfw_map_search_or_add_subtree_list_multi_keys(h.ctx, root, &second, c.parent, list, 2,
                                                                          values, names, OCNI_NS_OC_NI),
                  YFW_RC_OK);
        EXPECT_EQ(second, node_get(ref));
        EXPECT_EQ(h.out_lines(), c.expected);
        /* Every identifier leaf holds a policy-types identity. */
        for (const char *leaf : {"/identifier", "/config/identifier"}) {
            ASSERT_NE(h.out_node(P + leaf), nullptr) << leaf;
            EXPECT_STREQ(h.out_node(P + leaf)->data_ns, OCNI_NS_OC_PT) << leaf;
        }
        EXPECT_EQ(h.out_node(P + "/name")->data_ns, nullptr);
        /* Working paths are freed; the trim path of a parent path is released. */
        EXPECT_EQ(alloc_live(OCNI_TAG_SEARCH) + alloc_live(OCNI_TAG_MAP_US), 0u);
        EXPECT_EQ(h.rc->trim_path, nullptr);
    }
}

TEST_F(ListUtil, AncestorsByLevel)
{
    zidl_yfw_datatree *ni = tree_find(tree_.get(), "/network-instances/network-instance[name=red]");
    zidl_yfw_datatree *p = proto("STATIC", "DEFAULT");
    ASSERT_TRUE(req_push_ancestor(h.rc, "/network-instances", tree_find(tree_.get(), "/network-instances")));
    ASSERT_TRUE(req_push_ancestor(h.rc, NI_LIST, ni));
    ASSERT_TRUE(req_push_ancestor(h.rc, PROTO_LIST, p));
    EXPECT_EQ(ni_static_yfw_map_get_ancestor_node_datatree(h.ctx, 1), p);
    EXPECT_EQ(ni_static_yfw_map_get_ancestor_node_datatree(h.ctx, 2), ni);
    EXPECT_EQ(ni_static_yfw_map_get_ancestor_node_datatree(h.ctx, 4), nullptr);
    char *value = nullptr;
    EXPECT_EQ(ni_static_yfw_map_get_ancestor_node_info(h.ctx, 2, NI_LIST, nullptr, "name", &value), YFW_RC_OK);
    EXPECT_STREQ(value, "red");
    /* From a deeper level the entry is found among the node's parents. */
    EXPECT_EQ(ni_static_yfw_map_get_ancestor_node_info(h.ctx, 1, PROTO_LIST, nullptr, "identifier", &value), YFW_RC_OK);
    EXPECT_STREQ(value, "STATIC");
    EXPECT_EQ(ni_static_yfw_map_get_ancestor_node_info(h.ctx, 4, PROTO_LIST, nullptr, "identifier", &value),
              YFW_RC_MAP_FAILED);
    EXPECT_EQ(alloc_live(OCNI_TAG_SEARCH), 0u);
}

TEST_F(ListUtil, TrimPathAndCurrentList)
{
    EXPECT_EQ(ni_static_yfw_map_set_trim_path_list_ctx(nullptr, "/a", nullptr), YFW_RC_NO_MEMORY);
    EXPECT_EQ(ni_static_yfw_map_set_trim_path_list_ctx(h.ctx, "/network-instances", nullptr), YFW_RC_OK);
    EXPECT_STREQ(h.rc->trim_path, "/network-instances");
    EXPECT_EQ(ni_static_yfw_map_set_trim_path_list_ctx(h.ctx, "/router-static", nullptr), YFW_RC_OK);
    EXPECT_STREQ(h.rc->trim_path, "/router-static");
    EXPECT_EQ(alloc_live(OCNI_TAG_TRIM), 1u); /* the first copy was released */
    alloc_fail_nth(OCNI_TAG_TRIM, 1);
    EXPECT_EQ(ni_static_yfw_map_set_trim_path_list_ctx(h.ctx, "/x", nullptr), YFW_RC_NO_MEMORY);
    alloc_fail_nth("", 0);
    EXPECT_EQ(h.rc->trim_path, nullptr);

    zidl_yfw_datatree *p = proto("BGP", "core");
    ni_static_yfw_map_update_ctx_current_list_ptr(h.ctx, p);
    EXPECT_EQ(ni_static_yfw_map_get_ctx_current_list_ptr(h.ctx), p);
    EXPECT_EQ(h.rc->current_list, p);
    EXPECT_EQ(ni_static_yfw_map_get_ctx_current_list_ptr(nullptr), nullptr);
    /* A context without its request has no current list, and keeps none. */
    auto *req = h.ctx->req_ctx;
    h.ctx->req_ctx = nullptr;
    EXPECT_EQ(ni_static_yfw_map_get_ctx_current_list_ptr(h.ctx), nullptr);
    ni_static_yfw_map_update_ctx_current_list_ptr(h.ctx, p);
    h.ctx->req_ctx = req;
}

TEST(ListUtilNamespace, DataNamespaceIsSetOnceAndCopied)
{
    RawEntry e;
    zidl_yfw_datatree &leaf = e.kids[0];
    oc_ni_set_data_namespace(nullptr, OCNI_NS_OC_PT); /* ignored */
    oc_ni_set_data_namespace(&leaf, OCNI_NS_OC_PT);
    ASSERT_NE(leaf.data_ns, nullptr);
    EXPECT_STREQ(leaf.data_ns, OCNI_NS_OC_PT);
    EXPECT_TRUE(leaf.flags2 & YFW_DT_F2_DATA_NS);
    EXPECT_EQ(alloc_tag_of(leaf.data_ns), OCNI_TAG_NS);
    char *first = leaf.data_ns;
    oc_ni_set_data_namespace(&leaf, OCNI_NS_OC_PT);
    EXPECT_EQ(leaf.data_ns, first); /* unchanged: no second copy */
    wos_named_free(first);
}

} // namespace
