/*
 * The host's data trees and the framework operations on them: node
 * handles and child arrays, keyed lookups, xpath operations and
 * stitching, and path placement (yfw_map_datatree_add_path_flagged) with
 * the request state it reads: input list entries, current lists,
 * suppression, key leaves.
 */
#include <cstring>

#include "host_fixture.h"
#include "tree_builder.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

const char NS[] = "urn:test:ni";
const std::string ST = "/network-instances/network-instance/protocols/protocol/static-routes/static";
const std::string NH = ST + "/next-hops/next-hop";
const std::string ROUTES = "/network-instances/network-instance/protocols/protocol/static-routes";
const std::string PROTO = "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]";

TEST(Trees, InstancePathsParseToStepsOrSayWhatIsWrong)
{
    const struct {
        const char *path, *why; /* why: "" when the path parses */
    } rows[] = {
        {"/a[k='x]y'][n=2]/b", ""},
        {"/a[k=1]x", "text after ']'"},
        {"/a['k'=1]", ""},
        {"/a[k='1'x]", "text after a quoted key value"},
        {"/a[k='1", "unterminated quoted key value"},
        {"/a[k=1", "unterminated '['"},
        {"/a[k]", "key without '='"},
        {"/[k=1]", "key without a node name"},
    };
    for (const auto &r : rows) {
        std::vector<PathStep> steps;
        std::string why;
        EXPECT_EQ(parse_instance_path(r.path, steps, &why), *r.why == '\0') << r.path;
        EXPECT_EQ(why, r.why) << r.path;
    }
    std::vector<PathStep> steps;
    ASSERT_TRUE(parse_instance_path("/a[k='x]y'][n=2]/b", steps));
    ASSERT_EQ(steps.size(), 2u);
    EXPECT_EQ(steps[0].keys, (std::vector<std::pair<std::string, std::string>>{{"k", "x]y"}, {"n", "2"}}));
    EXPECT_EQ(steps[1].name, "b");
}

TEST(Trees, KeylessStepsFindTheOldestEntryWithoutScanning)
{
    TreePtr t = build_tree("/routes");
    zidl_yfw_datatree *routes = tree_find(t.get(), "/routes");
    for (int i = 0; i < 1000; ++i) /* siblings a scan would have to pass */
        node_add_entry(routes, "other", {{"id", std::to_string(i)}});
    for (int i = 0; i < 3; ++i)
        node_add_entry(routes, "static", {{"prefix", std::to_string(i)}});
    node_add_child(routes, "box", NodeKind::Leaf, "b");
    uint64_t before = tree_sibling_visits();
    for (int i = 0; i < 1000; ++i) {
        zidl_yfw_datatree *first = tree_find(t.get(), "/routes/static/prefix");
        ASSERT_NE(first, nullptr);
        ASSERT_STREQ(first->value, "0");
        ASSERT_NE(tree_find(t.get(), "/routes/box"), nullptr);
    }
    EXPECT_LT(tree_sibling_visits() - before, 10u * 1000);
    EXPECT_EQ(tree_find(t.get(), "/routes/nothing"), nullptr);
}

/* A leaf's value is rewritten in place at any length; a data namespace a plug-in replaced is freed with the tree. */
TEST(Trees, LeafValuesSurviveRewritesAndReplacedNamespacesAreFreed)
{
    TreePtr root(tree_new());
    zidl_yfw_datatree *leaf = node_add_child(root.get(), "leaf", NodeKind::Leaf, "medium-value");
    for (const char *v : {"short", "a-much-longer-value-than-before", "", "x", "medium-value"}) {
        ASSERT_TRUE(node_set_value(leaf, v));
        EXPECT_STREQ(leaf->value, v);
    }
    ASSERT_TRUE(node_set_value(leaf, nullptr));
    EXPECT_EQ(leaf->value, nullptr);
    EXPECT_EQ(leaf->flags & YFW_DT_F_VALUE, 0);
    ASSERT_TRUE(node_set_data_ns(leaf, "urn:host"));
    size_t base = alloc_live("TEST NS");
    leaf->data_ns = yfw_strdup("urn:plugin", "TEST NS");
    root.reset();
    EXPECT_EQ(alloc_live("TEST NS"), base);
}

/* Siblings sharing keys are found oldest first, also after re-keying, with and without a sibling index. */
TEST(Trees, EntriesSharingKeysAreFoundOldestFirstAcrossRekeys)
{
    for (int fillers : {0, 20}) {
        SCOPED_TRACE(fillers);
        TreePtr t = build_tree("/routes");
        zidl_yfw_datatree *routes = tree_find(t.get(), "/routes");
        for (int i = 0; i < fillers; ++i)
            node_add_entry(routes, "other", {{"id", std::to_string(i)}});
        std::vector<NodeRef> e; /* three entries, each first added with keys of its own */
        for (const char *k : {"a", "b", "c"})
            e.push_back(node_ref(node_add_entry(routes, "static", {{"prefix", k}})));
        auto rekey = [&](int i, const char *k) { ASSERT_TRUE(node_set_value(node_child(node_get(e[i]), "prefix"), k)); };
        auto found = [&](const char *k) { return node_find_entry(routes, "static", {{"prefix", k}}); };
        for (int i : {2, 0, 1}) /* re-keyed out of sibling order */
            rekey(i, "1");
        EXPECT_EQ(found("1"), node_get(e[0]));
        rekey(0, "9");
        EXPECT_EQ(found("1"), node_get(e[1]));
        EXPECT_EQ(found("9"), node_get(e[0]));
        rekey(1, "9");
        EXPECT_EQ(found("1"), node_get(e[2]));
        EXPECT_EQ(found("9"), node_get(e[0]));
        rekey(0, "1");
        EXPECT_EQ(found("1"), node_get(e[0]));
        EXPECT_EQ(found("9"), node_get(e[1]));
        EXPECT_EQ(node_child(routes, "static"), node_get(e[0])); /* oldest of the list, whatever its keys */
    }
}

/* Arrays one parent outgrew are handed to others: each parent keeps its own children, cleanly ended. */
TEST(Trees, OutgrownChildArraysServeOtherParentsIntact)
{
    TreePtr t = build_tree("/a\n/b\n/c");
    const std::vector<NodeRef> parents = {node_ref(tree_find(t.get(), "/a")), node_ref(tree_find(t.get(), "/b")),
                                          node_ref(tree_find(t.get(), "/c"))};
    const uint32_t counts[] = {12, 3, 7};
    for (uint32_t round = 0; round < 12; ++round) /* a passes 2, 4 and 8 slots while b and c pick up its arrays */
        for (size_t p = 0; p < parents.size(); ++p) {
            if (round >= counts[p])
                continue;
            const std::string value = std::to_string(p) + "." + std::to_string(round);
            ASSERT_NE(node_add_child(node_get(parents[p]), "n", NodeKind::Leaf, value.c_str()), nullptr);
            const zidl_yfw_datatree *n = node_get(parents[p]);
            ASSERT_EQ(n->children[n->n_children].name, nullptr) << "after " << value;
        }
    for (size_t p = 0; p < parents.size(); ++p) {
        const zidl_yfw_datatree *n = node_get(parents[p]);
        ASSERT_EQ(n->n_children, counts[p]);
        for (uint32_t i = 0; i < counts[p]; ++i)
            EXPECT_EQ(std::string(n->children[i].value), std::to_string(p) + "." + std::to_string(i));
        EXPECT_EQ(n->children[counts[p]].name, nullptr); /* the spare slot is zeroed */
        EXPECT_EQ(n->children[counts[p]].fw, nullptr);
    }
}

/* Nodes the host did not build are searched child by child; a path parse starts from no steps. */
TEST(Trees, HandMadeNodesAndReusedStepLists)
{
    char a[] = "a", b[] = "b";
    zidl_yfw_datatree kids[2] = {};
    kids[0].name = a;
    kids[1].name = b;
    zidl_yfw_datatree parent = {};
    parent.children = kids;
    parent.n_children = 2;
    EXPECT_EQ(node_child(&parent, "b"), &kids[1]);
    EXPECT_EQ(node_child(&parent, "c"), nullptr);
    std::vector<PathStep> steps;
    ASSERT_TRUE(parse_instance_path("/x/y[k=1]", steps));
    ASSERT_TRUE(parse_instance_path("/z", steps));
    ASSERT_EQ(steps.size(), 1u);
    EXPECT_EQ(steps[0].name, "z");
}

class TreeOps : public HostFixture {
protected:
    cerrno add(const std::string &path, const char *value = nullptr, uint32_t flag = 0,
               const zidl_yfw_datatree *src = nullptr, zidl_yfw_datatree **created = nullptr)
    {
        return yfw_map_datatree_add_path_flagged(h.ctx, h.out, path.c_str(), NS, value, src, created, flag, 0);
    }
    yfw_map_xpath_op rec(uint32_t op, uint32_t type, zidl_yfw_datatree *root, const std::string &path,
                         const char *value = nullptr)
    {
        yfw_map_xpath_op r;
        memset(&r, 0, sizeof r);
        r.op = op;
        r.node_type = type;
        r.root = root;
        strncpy(r.ns, NS, sizeof r.ns - 1);
        strncpy(r.path, path.c_str(), sizeof r.path - 1);
        if (value != nullptr)
            strncpy(r.value, value, sizeof r.value - 1);
        return r;
    }
    /* Runs one xpath operation; the record (with its result) stays in last. */
    cerrno xpath(uint32_t op, uint32_t type, zidl_yfw_datatree *root, const std::string &path, const char *value = nullptr)
    {
        last = rec(op, type, root, path, value);
        return yfw_map_tree_xpath_operations(h.ctx, &last);
    }
    yfw_map_xpath_op last;
};

TEST_F(TreeOps, XpathFindLooksUpWithoutCreating)
{
    TreePtr in = build_tree(R"(
        /network-instances/network-instance[name=red]/config/name = red
        /network-instances/network-instance[name=blue]/config/name = blue
    )");
    zidl_yfw_datatree *nis = tree_find(in.get(), "/network-instances");
    size_t before = tree_size(in.get());
    struct Row {
        const char *path, *value;
        bool found;
    } rows[] = {
        {"/network-instance[name=red]/config/name", "red", true},
        {"/network-instance[name=blue]/config/name", "blue", true},
        {"/network-instance[name=blue]/config/name", "red", false}, /* value must match */
        {"/network-instance[name=blue]/config/name", "", true},     /* no value: any */
        {"/network-instance[name=green]/config/name", "green", false},
        {"/network-instance[name=red]/config/description", nullptr, false},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.path) + " " + (row.value ? row.value : "-"));
        EXPECT_EQ(xpath(YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LEAF, nis, row.path, row.value) == YFW_RC_OK, row.found);
        EXPECT_EQ(last.result != nullptr, row.found);
    }
    EXPECT_EQ(tree_size(in.get()), before);
    /* Keys in brackets may hold slashes and quotes; dumps quote a key holding "]" so that it reads back. */
    ASSERT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out,
                    "/static-routes/static[prefix=10.1.0.0/16]/next-hops/next-hop[index='a]b']"), YFW_RC_OK);
    EXPECT_EQ(h.out_lines(), (Lines{"/static-routes/static[prefix=10.1.0.0/16]/next-hops/next-hop[index='a]b']"}));
    EXPECT_EQ(xpath(YFW_XPATH_OP_FIND, YFW_XPATH_NODE_CONTAINER, h.out, "/static-routes/static[prefix=\"10.1.0.0/16\"]"),
              YFW_RC_OK);
}

TEST_F(TreeOps, MalformedRequestsAreRefusedAndChangeNothing)
{
    for (const char *p : {"/a/b[k=v", "/a/[k=v]", "/a/b[kv]", "/a/b[k=v]x", "/a/b[k='v]"}) {
        EXPECT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out, p), YFW_RC_MAP_FAILED) << p;
        EXPECT_EQ(last.result, nullptr) << p;
        EXPECT_EQ(add(p), YFW_RC_MAP_FAILED) << p;
    }
    EXPECT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, nullptr, "/a"), YFW_RC_MAP_FAILED);
    yfw_map_xpath_op bad = rec(7, YFW_XPATH_NODE_CONTAINER, h.out, "/a");
    bad.result = h.out; /* a stale result is cleared */
    EXPECT_EQ(yfw_map_tree_xpath_operations(h.ctx, &bad), YFW_RC_MAP_FAILED);
    EXPECT_EQ(bad.result, nullptr);
    EXPECT_EQ(yfw_map_tree_xpath_operations(h.ctx, nullptr), YFW_RC_MAP_FAILED);
    /* Stitching a path that does not end in the list. */
    bad = rec(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, "/network-instances/network-instance[name=red]/");
    strcpy(bad.schema_path, "/network-instances/network-instance/protocols/protocol");
    bad.result = h.out;
    EXPECT_EQ(yfw_map_stitch_list_to_list(h.ctx, &bad), YFW_RC_MAP_FAILED);
    EXPECT_EQ(bad.result, nullptr);
    /* Placement: no context, tree or path, a context without its request, a tree the host did not make. */
    EXPECT_EQ(add("///"), YFW_RC_MAP_FAILED);
    EXPECT_EQ(add("/a[k=v]/b", "x"), YFW_RC_MAP_FAILED);
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(nullptr, h.out, "/a", NS, nullptr, nullptr, nullptr, 0, 0), YFW_RC_MAP_FAILED);
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, nullptr, "/a", NS, nullptr, nullptr, nullptr, 0, 0), YFW_RC_MAP_FAILED);
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, h.out, nullptr, NS, nullptr, nullptr, nullptr, 0, 0), YFW_RC_MAP_FAILED);
    auto *rq = h.ctx->req_ctx;
    h.ctx->req_ctx = nullptr;
    EXPECT_EQ(add("/a"), YFW_RC_MAP_FAILED);
    h.ctx->req_ctx = rq;
    zidl_yfw_datatree foreign = {};
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, &foreign, "/a", NS, nullptr, nullptr, nullptr, 0, 0), YFW_RC_MAP_FAILED);
    char *v = nullptr;
    EXPECT_EQ(yfw_map_get_node_info(h.ctx, nullptr, "name", &v), YFW_RC_MAP_FAILED);
    EXPECT_EQ(yfw_map_get_node_info(h.ctx, "/network-instances/network-instance", nullptr, &v), YFW_RC_MAP_FAILED);
    EXPECT_EQ(tree_size(h.out), 1u);
}

TEST_F(TreeOps, UnterminatedXpathRecordFieldsAreReadWithinTheirSize)
{
    yfw_map_xpath_op r;
    memset(&r, 'x', sizeof r);
    r.root = h.out;
    r.op = YFW_XPATH_OP_ADD;
    r.node_type = YFW_XPATH_NODE_LEAF;
    memcpy(r.path, "/a/", 3); /* path is "/a/xxxx..." without a terminator */
    ASSERT_EQ(yfw_map_tree_xpath_operations(h.ctx, &r), YFW_RC_OK);
    ASSERT_NE(r.result, nullptr);
    EXPECT_EQ(strlen(r.result->name), YFW_XPATH_PATH_LEN - 3);
    EXPECT_EQ(strlen(r.result->value), size_t(YFW_XPATH_VALUE_LEN));
}

/*
 * Lookups and placements resume where the previous one stopped; each way
 * the current entry can change in between must be seen: an xpath lookup
 * (also one repeating the same path), the plug-in's current_list, a new
 * entry, a changed key, another tree, and the entry's array moving.
 */
TEST_F(TreeOps, LookupsAndPlacementsFollowEveryChangeOfTheCurrentEntry)
{
    auto entry = [&](const char *p) { return PROTO + "/static-routes/static[prefix=" + p + "]"; };
    auto metric = [&](const char *p) {
        zidl_yfw_datatree *m = h.out_node(entry(p) + "/config/metric");
        return m != nullptr && m->value != nullptr ? std::string(m->value) : std::string("-");
    };
    auto place = [&](const char *v) { return add(ST + "/config/metric", v); };
    const std::string a = entry("10.0.0.0/8"), b = entry("11.0.0.0/8");
    ASSERT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, a + "/"), YFW_RC_OK);
    ASSERT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, b + "/"), YFW_RC_OK);
    ASSERT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, a + "/"), YFW_RC_NODE_EXISTS);
    NodeRef ref = node_ref(last.result);
    ASSERT_EQ(place("1"), YFW_RC_OK); /* lands in the entry looked up last */
    EXPECT_EQ(metric("10.0.0.0/8"), "1");
    ASSERT_EQ(xpath(YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LIST, h.out, b + "/"), YFW_RC_OK);
    ASSERT_EQ(place("2"), YFW_RC_OK);
    EXPECT_EQ(metric("11.0.0.0/8"), "2");
    ASSERT_EQ(xpath(YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LIST, h.out, a + "/"), YFW_RC_OK);
    ASSERT_EQ(place("3"), YFW_RC_OK);
    EXPECT_EQ(metric("10.0.0.0/8"), "3");
    h.rc->current_list = h.out_node(b); /* the plug-in's choice is used ... */
    ASSERT_EQ(place("4"), YFW_RC_OK);
    EXPECT_EQ(metric("11.0.0.0/8"), "4");
    ASSERT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, a + "/"), YFW_RC_NODE_EXISTS); /* ... until a lookup */
    ASSERT_EQ(place("5"), YFW_RC_OK);
    EXPECT_EQ(metric("10.0.0.0/8"), "5");
    EXPECT_EQ(metric("11.0.0.0/8"), "4");
    ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK); /* a new entry becomes current */
    ASSERT_EQ(add(ST + "/prefix", "12.0.0.0/8"), YFW_RC_OK);
    ASSERT_EQ(place("6"), YFW_RC_OK);
    EXPECT_EQ(metric("12.0.0.0/8"), "6");
    EXPECT_EQ(metric("10.0.0.0/8"), "5");
    /* Entry a now carries another key: its old path finds nothing, its new one finds it. */
    ASSERT_TRUE(node_set_value(node_child(node_get(ref), "prefix"), "13.0.0.0/8"));
    EXPECT_EQ(xpath(YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LIST, h.out, a + "/"), YFW_RC_MAP_FAILED);
    xpath(YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LIST, h.out, entry("13.0.0.0/8") + "/");
    EXPECT_EQ(last.result, node_get(ref));
    TreePtr other(tree_new()), third(tree_new());
    ASSERT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, other.get(), (ST + "/config/metric").c_str(), NS, "7", nullptr,
                                                nullptr, 0, 0), YFW_RC_OK);
    EXPECT_EQ(tree_lines(other.get()), (Lines{ROUTES + "/static/config/metric = 7"}));
    EXPECT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, third.get(), b + "/"), YFW_RC_OK); /* made there, not found here */
    EXPECT_EQ(node_root(last.result), third.get());
    EXPECT_EQ(metric("12.0.0.0/8"), "6");
    /* The current entry is followed when its array moves. */
    h.rc->current_list = node_get(ref);
    for (int i = 0; i < 40; ++i)
        ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
    EXPECT_EQ(h.rc->current_list, node_get(ref));
}

TEST_F(TreeOps, NodeInfoAndErrorPathFollowTheInputEntry)
{
    const std::string nh = "/ocni/vrfipv4/network-instances/network-instance[name=red]/protocols/protocol/"
                           "static-routes/static-route[prefix=10.0.0.0_24]/next-hops/next-hop[index=5]";
    TreePtr in = build_tree(nh + "/metric = 3");
    h.enter(tree_find(in.get(), (nh + "/metric").c_str()));
    char *v = nullptr;
    EXPECT_EQ(yfw_map_get_node_info(h.ctx, "/ocni/vrfipv4/network-instances/network-instance", "name", &v), YFW_RC_OK);
    EXPECT_STREQ(v, "red");
    EXPECT_EQ(yfw_map_get_node_info(h.ctx, "/ocni/vrfipv4/network-instances/network-instance/protocols/protocol/"
                                           "static-routes/static-route/next-hops/next-hop/", "index", &v), YFW_RC_OK);
    EXPECT_STREQ(v, "5");
    EXPECT_EQ(yfw_map_get_node_info(h.ctx, "/ocni/vrfipv6/network-instances/network-instance", "name", &v),
              YFW_RC_MAP_FAILED);
    EXPECT_EQ(v, nullptr);
    yfw_oc_error_path(h.ctx);
    EXPECT_EQ(h.error_paths(), (Lines{nh + "/metric"}));
    EXPECT_EQ(h.rc->depth, 10); /* ocni .. next-hop */
    EXPECT_STREQ(h.rc->ancestors[0].path, "/ocni");
    EXPECT_EQ(req_input_depth(h.rc), 4u); /* network-instance, protocol, static-route, next-hop */
}

/* Sibling visits per operation stay bounded: quadratic scans would need n*n/2. */
TEST_F(TreeOps, KeyedEntriesAreAddedAndFoundWithoutScanningSiblings)
{
    const int n = 5000;
    char prefix[32];
    uint64_t before = tree_sibling_visits();
    for (int i = 0; i < n; ++i) {
        snprintf(prefix, sizeof prefix, "10.%d.%d.0/24", i / 256, i % 256);
        ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
        ASSERT_EQ(add(ST + "/prefix", prefix), YFW_RC_OK);
        ASSERT_EQ(add(ST + "/config/prefix", prefix), YFW_RC_OK);
    }
    zidl_yfw_datatree *routes = h.out_node(ROUTES);
    ASSERT_EQ(routes->n_children, uint32_t(n));
    for (int i = 0; i < n; ++i) {
        snprintf(prefix, sizeof prefix, "10.%d.%d.0/24", i / 256, i % 256);
        zidl_yfw_datatree *e = node_find_entry(routes, "static", {{"prefix", prefix}});
        ASSERT_NE(e, nullptr) << prefix;
        ASSERT_STREQ(e->children[0].value, prefix);
    }
    EXPECT_LT(tree_sibling_visits() - before, uint64_t(40) * n);
}

} // namespace
