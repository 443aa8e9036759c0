/*
 * Keyed list utilities: entries found or created by their keys, ancestors,
 * key data, trim path and current list; missing arguments and broken trees.
 */
#include <functional>
#include <string>
#include <utility>

#include "host/alloc.h"
#include "host/context.h"
#include "host_fixture.h"
#include "tree_builder.h"
#include "ymap_ni_static_util.h"
#include "ymap_ocni_openconfig_local_routing_man.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"

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
}

/* Runs f with one field of a node cleared (a broken tree), then puts the field back. */
template <class T> cerrno broken(T &field, const std::function<cerrno()> &f)
{
    const T kept = std::exchange(field, T{});
    const cerrno rc = f();
    field = kept;
    return rc;
}

TEST_F(ListUtil, MissingArgumentsAndBrokenTreesGiveTheirCodes)
{
    RawEntry e;
    zidl_yfw_datatree *T = tree_.get(), *r = nullptr;
    node_set_ns(proto("STATIC", "extra"), OTHER_NS);                 /* an entry of another module */
    node_set_ns(tree_find(proto("BGP", "core"), "/name"), OTHER_NS); /* a key leaf of another module */
    zidl_yfw_datatree *protos = tree_find(T, (std::string(NI_LIST) + "[name=red]/protocols").c_str());
    TreePtr nh = build_tree("/nh[index=1]/interface-ref/config/interface = Gi0\n/nh[index=1]/interface-ref/config/subinterface = 1\n"
                            "/nh[index=1]/config/next-hop = 10.0.0.1\n/nh[index=1]/config/metric = 1\n/st/next-hops (delete)", OCNI_NS_OC_NI);
    zidl_yfw_datatree *n = tree_find(nh.get(), "/nh[index=1]"), *cfg = tree_find(n, "/interface-ref/config"), *st = tree_find(nh.get(), "/st");
    h.rc->common_data_ptr = wos_named_calloc_(sizeof(ocni_route_common_data), 1, OCNI_TAG_MAP);
    char *v = nullptr;
    const char *NS = OCNI_NS_OC_NI, *k1[] = {"name"}, *any[] = {nullptr}, *k2[] = {"identifier", "name"}, *v2[] = {"STATIC", "DEFAULT"}, *k11[11] = {};
    const cerrno OK = YFW_RC_OK, NOMEM = YFW_RC_NO_MEMORY, FAIL = YFW_RC_MAP_FAILED;
    int miss = -1; /* N(p, i): the pointer argument p, null while argument i is the one left out */
    const auto N = [&](auto p, int i) { return i == miss ? decltype(p){} : p; };
    zidl_yfw_datatree *q = nullptr; /* the parent given to the sibling walk, the entry found when it returns */
    const auto siblings = [&](int8_t nk, const char **ks, const char **vs, const char *ns) { return ni_static_yfw_map_iterate_list_multi_keys(N(h.ctx, 0), N(&(q = N(protos, 2)), 1), nk, ks, vs, N(PROTO_LIST, 3), ns); };
    const auto nh_if = [&](const zidl_yfw_datatree *x) { return cerrno(ocni_check_next_hop_interface_config(h.ctx, x)); };
    const auto nh_ip = [&](const zidl_yfw_datatree *x) { return cerrno(ocni_check_next_hop_ip_and_set_drop_config(h.ctx, x)); };
    const auto nh_del = [&](const zidl_yfw_datatree *x) { return cerrno(ocni_check_nexthops_operation_delete(h.ctx, x)); };
    const struct {
        const char *what;
        std::function<cerrno()> call;
        cerrno want;                              /* every argument given */
        int pointers = 0; cerrno missing = NOMEM; /* pointer arguments left out in turn, each giving `missing` */
    } rows[] = {
        {"child", [&] { return ni_static_yfw_map_find_child(N(&e.entry, 0), N(&r, 1), N("config", 2), nullptr); }, OK, 3},
        {"keys", [&] { return ni_static_yfw_map_datatree_get_subtree_multi_keys(N(&e.entry, 0), N(&r, 1), 2, N(k2, 2), N(v2, 3), nullptr); }, OK, 4},
        {"siblings", [&] { return siblings(2, k2, v2, nullptr); }, OK, 4},
        {"search", [&] { return ni_static_yfw_map_search_list_multi_keys(N(h.ctx, 0), N(T, 1), N(&r, 2), N(PROTO_LIST, 3), 2, v2, k2, NS); }, OK, 4},
        {"module search", [&] { return ni_static_yfw_map_search_subtree_list_multi_keys(N(h.ctx, 0), N(T, 1), N(&r, 2), N(PROTO_LIST, 3), 2, v2, k2, NS); }, OK, 4},
        {"find or add", [&] { return ni_static_yfw_map_search_or_add_subtree_list_multi_keys(N(h.ctx, 0), T, N(&r, 1), nullptr, N(PROTO_LIST, 2), 2, N(v2, 3), N(k2, 4), NS); }, OK, 5},
        {"one-key search", [&] { return ni_static_yfw_map_search_subtree_list(N(h.ctx, 0), N(T, 1), N(&r, 2), N(PROTO_LIST, 3), "DEFAULT", "name", NS); }, OK, 4},
        {"one-key find or add", [&] { return ni_static_yfw_map_search_or_add_subtree_list(N(h.ctx, 0), T, N(&r, 1), nullptr, N(PROTO_LIST, 2), "DEFAULT", "name", NS); }, OK, 3},
        {"key data", [&] { return ni_static_yfw_map_datatree_get_key_data(N(&e.entry, 0), N("name", 1), N(&v, 2)); }, OK, 3},
        {"ancestor key", [&] { return ni_static_yfw_map_get_ancestor_node_info(h.ctx, 1, N(NI_LIST, 0), nullptr, N("name", 1), N(&v, 2)); }, FAIL, 3},
        {"trim path", [&] { return ni_static_yfw_map_set_trim_path_list_ctx(N(h.ctx, 0), N("/a", 1), nullptr); }, OK, 2},
        {"ancestor", [&] { return cerrno(ni_static_yfw_map_get_ancestor_node_datatree(N(h.ctx, 0), 0) != nullptr); }, 0, 1, 0},
        {"interface check", [&] { return nh_if(N(n, 0)); }, 1, 1, 0},
        {"address check", [&] { return nh_ip(N(n, 0)); }, 1, 1, 0},
        {"removal check", [&] { return nh_del(N(st, 0)); }, 1, 1, 0},
        {"child: no children bit", [&] { return broken(e.entry.flags, [&] { return ni_static_yfw_map_find_child(&e.entry, &r, "config", nullptr); }); }, FAIL},
        {"child: children missing", [&] { return broken(e.entry.children, [&] { return ni_static_yfw_map_find_child(&e.entry, &r, "config", nullptr); }); }, NOMEM},
        {"child: unnamed child", [&] { return broken(e.kids[1].name, [&] { return ni_static_yfw_map_find_child(&e.entry, &r, "config", nullptr); }); }, FAIL},
        {"keys: no children bit", [&] { return broken(e.entry.flags, [&] { return ni_static_yfw_map_datatree_get_subtree_multi_keys(&e.entry, &r, 2, k2, v2, nullptr); }); }, FAIL},
        {"keys: none", [&] { return ni_static_yfw_map_datatree_get_subtree_multi_keys(&e.entry, &r, 0, k2, v2, nullptr); }, FAIL},
        {"keys: children missing", [&] { return broken(e.entry.children, [&] { return ni_static_yfw_map_datatree_get_subtree_multi_keys(&e.entry, &r, 2, k2, v2, nullptr); }); }, NOMEM},
        {"keys: unnamed child", [&] { return broken(e.kids[1].name, [&] { return ni_static_yfw_map_datatree_get_subtree_multi_keys(&e.entry, &r, 2, k2, v2, nullptr); }); }, FAIL},
        {"keys: any value, key in the module", [&] { return ni_static_yfw_map_datatree_get_subtree_multi_keys(&e.entry, &r, 1, k1, any, NS); }, OK},
        {"keys: any value, key of another module", [&] { return ni_static_yfw_map_datatree_get_subtree_multi_keys(&e.entry, &r, 1, k1, any, OTHER_NS); }, FAIL},
        {"siblings: any value, key in the module", [&] { return siblings(1, k1, any, NS); }, OK},
        {"siblings: children missing", [&] { return broken(protos->children, [&] { return siblings(2, k2, v2, nullptr); }); }, YFW_RC_INVALID_REQUEST},
        {"static-routes: children missing", [&] { return broken(protos->children, [&] { return h.call(ymap_ox_ocni_openconfiglocalrouting_man_cont_lvla_localroutes_staticroutes, protos, 0); }); }, OK},
        {"siblings: unnamed sibling", [&] { return broken(protos->children[0].name, [&] { return siblings(2, k2, v2, nullptr); }); }, FAIL},
        {"find or add: unnamed key", [&] { return ni_static_yfw_map_search_or_add_subtree_list(h.ctx, T, &r, nullptr, PROTO_LIST, "x", nullptr, NS); }, NOMEM},
        {"search: eleven keys", [&] { return ni_static_yfw_map_search_list_multi_keys(h.ctx, T, &r, PROTO_LIST, 11, k11, k11, NS); }, NOMEM},
        {"module search: eleven keys", [&] { return ni_static_yfw_map_search_subtree_list_multi_keys(h.ctx, T, &r, PROTO_LIST, 11, k11, k11, NS); }, NOMEM},
        {"find or add: eleven keys", [&] { return ni_static_yfw_map_search_or_add_subtree_list_multi_keys(h.ctx, T, &r, nullptr, PROTO_LIST, 11, k11, k11, NS); }, NOMEM},
        {"find or add: its path refused by the allocator", [&] {
             alloc_fail_nth(OCNI_TAG_SEARCH, 1); /* spent by that one allocation */
             return ni_static_yfw_map_search_or_add_subtree_list_multi_keys(h.ctx, h.out, &r, nullptr, PROTO_LIST, 2, v2, k2, NS); }, NOMEM},
        {"one-key search: not found", [&] { return ni_static_yfw_map_search_subtree_list(h.ctx, T, &r, PROTO_LIST, "blue", "name", NS); }, FAIL},
        {"one-key search: key leaf of another module", [&] { return ni_static_yfw_map_search_subtree_list(h.ctx, T, &r, PROTO_LIST, "core", "name", NS); }, OK},
        {"one-key search: entry of another module", [&] { return ni_static_yfw_map_search_subtree_list(h.ctx, T, &r, PROTO_LIST, "extra", "name", NS); }, NOMEM},
        {"one-key find or add: entry of another module", [&] { return ni_static_yfw_map_search_or_add_subtree_list(h.ctx, T, &r, nullptr, PROTO_LIST, "extra", "name", NS); }, NOMEM},
        {"one-key find or add: added", [&] { return ni_static_yfw_map_search_or_add_subtree_list(h.ctx, h.out, &r, nullptr, NI_LIST, "blue", "name", NS); }, OK},
        {"key data: no children", [&] { return broken(e.entry.n_children, [&] { return ni_static_yfw_map_datatree_get_key_data(&e.entry, "name", &v); }); }, FAIL},
        {"key data: unnamed child", [&] { return broken(e.kids[0].name, [&] { return ni_static_yfw_map_datatree_get_key_data(&e.entry, "name", &v); }); }, FAIL},
        {"interface check: children missing", [&] { return broken(n->children, [&] { return nh_if(n); }); }, 0},
        {"interface check: unnamed child", [&] { return broken(n->children[0].name, [&] { return nh_if(n); }); }, 0},
        {"interface check: unnamed config", [&] { return broken(cfg->name, [&] { return nh_if(n); }); }, 0},
        {"interface check: unnamed leaf after the interface", [&] { return broken(cfg->children[1].name, [&] { return nh_if(n); }); }, 0},
        {"interface check: config children missing", [&] { return broken(cfg->children, [&] { return nh_if(n); }); }, 0},
        {"address check: children missing", [&] { return broken(n->children, [&] { return nh_ip(n); }); }, 0},
        {"address check: no children bit", [&] { return broken(n->flags, [&] { return nh_ip(n); }); }, 0},
        {"address check: unnamed leaf after the next hop", [&] { return broken(tree_find(n, "/config")->children[1].name, [&] { return nh_ip(n); }); }, 0},
        {"removal check: children missing", [&] { return broken(st->children, [&] { return nh_del(st); }); }, 0},
        {"removal check: unnamed child", [&] { return broken(st->children[0].name, [&] { return nh_del(st); }); }, 0},
    };
    for (const auto &row : rows)
        for (miss = -1; miss < row.pointers; miss++)
            EXPECT_EQ(row.call(), miss < 0 ? row.want : row.missing) << row.what << ", argument " << miss << " left out";
    EXPECT_EQ(h.user_msg(), "Failed to get subtrees");
    EXPECT_EQ(h.out_lines(), Lines{"/network-instances/network-instance[name=blue]/config/name = blue"});
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
    /* The entry is the node at that level, one of its parents, or below it (first entry of each name). */
    const struct { uint32_t level; const char *list, *key, *value; } rows[] = {
        {2, NI_LIST, "name", "red"}, {1, PROTO_LIST, "identifier", "STATIC"}, {1, NI_LIST, "name", "red"},
        {2, PROTO_LIST, "name", "core"}, {4, PROTO_LIST, "identifier", nullptr}};
    for (const auto &r : rows) {
        char *value = nullptr;
        EXPECT_EQ(ni_static_yfw_map_get_ancestor_node_info(h.ctx, r.level, r.list, nullptr, r.key, &value),
                  r.value ? YFW_RC_OK : YFW_RC_MAP_FAILED) << r.level << r.list;
        EXPECT_STREQ(value, r.value) << r.level << r.list;
    }
    EXPECT_EQ(alloc_live(OCNI_TAG_SEARCH), 0u);
}

TEST_F(ListUtil, TrimPathAndCurrentList)
{
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
