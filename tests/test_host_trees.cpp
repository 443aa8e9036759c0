/*
 * The host's data trees: node handles, keyed lookups, xpath operations and
 * path placement with the request state it reads.
 */
#include <cstring>
#include <tuple>

#include "host_fixture.h"
#include "tree_builder.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

const char NS[] = "urn:test:ni";
const std::string ST = "/network-instances/network-instance/protocols/protocol/static-routes/static";
const std::string ROUTES = "/network-instances/network-instance/protocols/protocol/static-routes";

TEST(Trees, InstancePathsParseToStepsOrSayWhatIsWrong)
{
    const struct { const char *path, *why; /* why: "" when the path parses */ } rows[] = {
        {"/a[k='x]y'][n=2]/b", ""}, {"/a[k=1]x", "text after ']'"}, {"/a['k'=1]", ""},
        {"/a[k='1'x]", "text after a quoted key value"},
        {"/a[k='1", "unterminated quoted key value"}, {"/a[k=1", "unterminated '['"}, {"/a[k]", "key without '='"},
        {"/[k=1]", "key without a node name"},
    };
    for (const auto &r : rows) {
        std::vector<PathStep> steps;
        std::string why;
        EXPECT_EQ(parse_instance_path(r.path, steps, &why), *r.why == '\0') << r.path;
        EXPECT_EQ(why, r.why) << r.path;
    }
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
    EXPECT_STREQ(tree_find(build_tree("/r/a[k=1]\n/r/b[k=2]").get(), "/r/b/k")->value, "2") << "few siblings: no index";
    EXPECT_STREQ(tree_find(build_tree("/r/a[a=1][b=2][c=3][d=4][e=5]/x = 1\n/r/a[a=2][b=2][c=3][d=4][e=5]/x = 2").get(),
        "/r/a[e=5][d=4][c=3][b=2][a=2]/x")->value, "2");
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
        yfw_map_xpath_op r = {};
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
    struct Row { const char *path, *value; bool found; } rows[] = {
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
    EXPECT_EQ(tree_size(in.get()), 10u) << "a find adds nothing"; /* root, container, two entries of four nodes */
    /* Keys in brackets may hold slashes and quotes; dumps quote a key holding "]" so that it reads back. */
    ASSERT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out,
                    "/static-routes/static[prefix=10.1.0.0/16]/next-hops/next-hop[index='a]b']"), YFW_RC_OK);
    EXPECT_EQ(h.out_lines(), (Lines{"/static-routes/static[prefix=10.1.0.0/16]/next-hops/next-hop[index='a]b']"}));
    EXPECT_EQ(xpath(YFW_XPATH_OP_FIND, YFW_XPATH_NODE_CONTAINER, h.out, "/static-routes/static[prefix=\"10.1.0.0/16\"]"),
              YFW_RC_OK);
    /* An entry whose key leaf is rewritten answers to its new keys only, also to a lookup made before. */
    h.reset_output();
    const std::string L = "/l[a=1][b=2][c=3][d=4]";
    const struct { uint32_t type; std::string path; const char *value; cerrno rc; } rekeyed[] = {{YFW_XPATH_NODE_CONTAINER, L + "[k=1]/x", nullptr, YFW_RC_OK},
        {YFW_XPATH_NODE_LEAF, L + "[k=1]/k", "2", YFW_RC_NODE_EXISTS},
        {YFW_XPATH_NODE_CONTAINER, L + "[k=1]/x", nullptr, YFW_RC_OK},
        {YFW_XPATH_NODE_CONTAINER, L + "[k=2]/x", nullptr, YFW_RC_NODE_EXISTS},
        /* and a repeated lookup makes current again only the entries on its own path: /s/static/z goes below static[prefix=2] */
        {YFW_XPATH_NODE_CONTAINER, "/s/static[prefix=1]/x", nullptr, YFW_RC_OK},
        {YFW_XPATH_NODE_CONTAINER, "/s/next-hop[index=1]/x", nullptr, YFW_RC_OK},
        {YFW_XPATH_NODE_LEAF, "/s/static[prefix=2]/v", "1", YFW_RC_OK}, {YFW_XPATH_NODE_CONTAINER, "/s/next-hop[index=1]/x", nullptr, YFW_RC_NODE_EXISTS}};
    for (const auto &r : rekeyed)
        EXPECT_EQ(xpath(YFW_XPATH_OP_ADD, r.type, h.out, r.path, r.value), r.rc) << r.path;
    EXPECT_EQ(add("/s/static/z", "2"), YFW_RC_OK);
    EXPECT_EQ(h.out_lines(), (Lines{L + "[k=1]/x", L + "[k=2]/x", "/s/next-hop[index=1]/x", "/s/static[prefix=1]/x",
        "/s/static[prefix=2]/v = 1", "/s/static[prefix=2]/z = 2"}));
    /* A current list the plug-in still holds into a freed tree is not followed. */
    zidl_yfw_datatree *stale = h.rc->current_list = h.out_node("/s/static[prefix=2]");
    ASSERT_EQ(xpath(YFW_XPATH_OP_FIND, YFW_XPATH_NODE_CONTAINER, h.out, "/s"), YFW_RC_OK);
    h.reset_output();
    h.rc->current_list = stale;
    EXPECT_EQ(add("/a", "1"), YFW_RC_OK);
    EXPECT_EQ(h.rc->current_list, stale);
}

TEST_F(TreeOps, MalformedRequestsAreRefusedAndChangeNothing)
{
    for (const char *p : {"/a/b[k=v", "/a/[k=v]", "/a/b[kv]", "/a/b[k=v]x", "/a/b[k='v]"}) {
        EXPECT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out, p), YFW_RC_MAP_FAILED) << p;
        EXPECT_EQ(last.result, nullptr) << p;
        EXPECT_EQ(add(p), YFW_RC_MAP_FAILED) << p;
        EXPECT_EQ(yfw_map_stitch_list_to_list(h.ctx, &last), YFW_RC_MAP_FAILED) << p;
    }
    EXPECT_EQ(xpath(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, nullptr, "/a"), YFW_RC_MAP_FAILED);
    yfw_map_xpath_op bad = rec(7, YFW_XPATH_NODE_CONTAINER, h.out, "/a");
    bad.result = h.out; /* a stale result is cleared */
    EXPECT_EQ(yfw_map_tree_xpath_operations(h.ctx, &bad), YFW_RC_MAP_FAILED);
    EXPECT_EQ(bad.result, nullptr);
    /* Stitching a path that does not end in the list. */
    bad = rec(YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, "/network-instances/network-instance[name=red]/");
    strcpy(bad.schema_path, "/network-instances/network-instance/protocols/protocol");
    bad.result = h.out;
    EXPECT_EQ(yfw_map_stitch_list_to_list(h.ctx, &bad), YFW_RC_MAP_FAILED);
    EXPECT_EQ(bad.result, nullptr);
    EXPECT_EQ(add("///"), YFW_RC_MAP_FAILED);
    EXPECT_EQ(add("/a[k=v]/b", "x"), YFW_RC_MAP_FAILED);
    /* Flags outside the contract: a new entry with a value, flag 2, an add flag other than 0 or 32. */
    for (const auto &[value, flag, add_flag] : {std::tuple<const char *, uint32_t, uint32_t>{"x", 1, 0}, {nullptr, 2, 0}, {nullptr, 0, 1}, {"x", 0, 33}})
        EXPECT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, h.out, "/a/b", NS, value, nullptr, nullptr, flag, add_flag),
            YFW_RC_MAP_FAILED) << flag << " " << add_flag;
    EXPECT_EQ(tree_size(h.out), 1u);
}

TEST_F(TreeOps, PlacementResumesBelowTheSameLeadingTokensOnly)
{
    for (const char *p : {"/ab/c/x", "/ab/cd/y", "/ab/c/z", "/ab/x/c"})
        ASSERT_EQ(add(p, "1"), YFW_RC_OK) << p;
    EXPECT_EQ(h.out_lines(), (Lines{"/ab/c/x = 1", "/ab/c/z = 1", "/ab/cd/y = 1", "/ab/x/c = 1"}));
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
        if (i == 0) /* the plug-in's current list is followed as the child array moves */
            h.rc->current_list = h.out_node(ROUTES)->children;
        ASSERT_EQ(add(ST + "/prefix", prefix), YFW_RC_OK);
        ASSERT_EQ(add(ST + "/config/prefix", prefix), YFW_RC_OK);
    }
    zidl_yfw_datatree *routes = h.out_node(ROUTES);
    ASSERT_EQ(routes->n_children, uint32_t(n));
    EXPECT_EQ(h.rc->current_list, routes->children);
    for (int i = 0; i < n; ++i) {
        snprintf(prefix, sizeof prefix, "10.%d.%d.0/24", i / 256, i % 256);
        zidl_yfw_datatree *e = node_find_entry(routes, "static", {{"prefix", prefix}});
        ASSERT_NE(e, nullptr) << prefix;
        ASSERT_STREQ(e->children[0].value, prefix);
    }
    EXPECT_LT(tree_sibling_visits() - before, uint64_t(40) * n);
    /* A rewritten key leaf moves its entry in the index; a cleared leaf holds no value. */
    zidl_yfw_datatree *e = node_find_entry(routes, "static", {{"prefix", "10.0.0.0/24"}});
    ASSERT_TRUE(node_set_value(node_child(e, "prefix"), "10.99.0.0/24"));
    EXPECT_EQ(node_find_entry(routes, "static", {{"prefix", "10.0.0.0/24"}}), nullptr);
    EXPECT_EQ(node_find_entry(routes, "static", {{"prefix", "10.99.0.0/24"}}), e);
    ASSERT_TRUE(node_set_value(node_child(node_child(e, "config"), "prefix"), nullptr));
    EXPECT_EQ(tree_lines(e).back(), "/config/prefix");
}

} // namespace
