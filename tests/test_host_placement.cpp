/*
 * Path placement (yfw_map_datatree_add_path_flagged) and the request state
 * it reads: input list entries, current lists, suppression, key leaves.
 */
#include <cstring>

#include "host_fixture.h"
#include "tree_builder.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

const char NS[] = "urn:test:ni";
const char ST[] = "/network-instances/network-instance/protocols/protocol/static-routes/static";
const char NH[] = "/network-instances/network-instance/protocols/protocol/static-routes/static/next-hops/next-hop";

class PlacementTest : public HostFixture {
protected:
    cerrno add(const std::string &path, const char *value = nullptr, uint32_t flag = 0,
               const zidl_yfw_datatree *src = nullptr, zidl_yfw_datatree **created = nullptr)
    {
        return yfw_map_datatree_add_path_flagged(h.ctx, h.out, path.c_str(), NS, value, src, created, flag, 0);
    }

    void stitch(const char *vrf)
    {
        yfw_map_xpath_op rec;
        memset(&rec, 0, sizeof rec);
        rec.op = YFW_XPATH_OP_ADD;
        rec.node_type = YFW_XPATH_NODE_LIST;
        rec.root = h.out;
        snprintf(rec.path, sizeof rec.path,
                 "/network-instances/network-instance[name=%s]/protocols/protocol[identifier=STATIC][name=DEFAULT]/", vrf);
        strcpy(rec.schema_path, "/network-instances/network-instance/protocols/protocol");
        ASSERT_EQ(yfw_map_stitch_list_to_list(h.ctx, &rec), YFW_RC_OK);
    }
};

TEST_F(PlacementTest, EmptyTokensAreSkipped)
{
    ASSERT_EQ(add("/router-static//default-vrf/", nullptr), YFW_RC_OK);
    ASSERT_EQ(add("//router-static/default-vrf//address-family/vrfipv4/", nullptr), YFW_RC_OK);
    EXPECT_EQ(h.out_lines(), (Lines{"/router-static/default-vrf/address-family/vrfipv4"}));
    EXPECT_EQ(add("///", nullptr), YFW_RC_MAP_FAILED);
    EXPECT_EQ(add("/a[k=v]/b", "x"), YFW_RC_MAP_FAILED);
}

TEST_F(PlacementTest, ValueNamespaceAndSourceOperationGoOnTheLastNode)
{
    TreePtr in = build_tree("/x = 1 (delete)");
    zidl_yfw_datatree *created = nullptr;
    ASSERT_EQ(add("/router-static/default-vrf/address-family/vrfipv4/vrf-unicast", nullptr, 0,
                  tree_find(in.get(), "/x"), &created),
              YFW_RC_OK);
    ASSERT_NE(created, nullptr);
    EXPECT_STREQ(created->name, "vrf-unicast");
    EXPECT_EQ(created->op, YFW_DT_OP_DELETE);
    EXPECT_EQ(created->flags & YFW_DT_F_OP, YFW_DT_F_OP);
    EXPECT_STREQ(created->ns, NS);
    zidl_yfw_datatree *parent = node_parent(created);
    EXPECT_EQ(parent->flags & YFW_DT_F_OP, 0); /* only the last node takes the operation */
    EXPECT_EQ(h.out_lines(), (Lines{"/router-static/default-vrf/address-family/vrfipv4/vrf-unicast (delete)"}));
}

TEST_F(PlacementTest, LeafAddedTwiceUpdatesItsValue)
{
    zidl_yfw_datatree *a = nullptr, *b = nullptr;
    ASSERT_EQ(add("/c/leaf", "1", 0, nullptr, &a), YFW_RC_OK);
    ASSERT_EQ(add("/c/leaf", "2", 0, nullptr, &b), YFW_RC_OK);
    EXPECT_EQ(a, b);
    EXPECT_EQ(h.out_lines(), (Lines{"/c/leaf = 2"}));
    EXPECT_EQ(b->flags & YFW_DT_F_VALUE, YFW_DT_F_VALUE);
}

TEST_F(PlacementTest, FlagOneAlwaysCreatesANewEntryOrContainer)
{
    ASSERT_EQ(add("/router-static/vrfs/vrf", nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add("/router-static/vrfs/vrf/vrf-name", "red"), YFW_RC_OK);
    ASSERT_EQ(add("/router-static/vrfs/vrf", nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add("/router-static/vrfs/vrf/vrf-name", "blue"), YFW_RC_OK);
    ASSERT_EQ(add("/box", nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add("/box", nullptr, 1), YFW_RC_OK);
    EXPECT_EQ(h.out_lines(), (Lines{"/box", "/box", "/router-static/vrfs/vrf[vrf-name=blue]",
                                    "/router-static/vrfs/vrf[vrf-name=red]"}));
    /* Key leaves set after their entry are flagged and the entry is found by its keys. */
    zidl_yfw_datatree *red = h.out_node("/router-static/vrfs/vrf[vrf-name=red]");
    ASSERT_NE(red, nullptr);
    EXPECT_EQ(red->flags & YFW_DT_F_LIST, YFW_DT_F_LIST);
    EXPECT_EQ(red->children[0].flags & YFW_DT_F_LIST, YFW_DT_F_LIST);
    EXPECT_NE(h.out_node("/router-static/vrfs/vrf[vrf-name=blue]"), nullptr);
}

TEST_F(PlacementTest, ListNamesBelowConfigOrStateAreLeaves)
{
    TreePtr in = build_tree("/x (delete)");
    ASSERT_EQ(add(NH, nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add(std::string(NH) + "/index", "1"), YFW_RC_OK);
    zidl_yfw_datatree *leaf = nullptr;
    ASSERT_EQ(add(std::string(NH) + "/config/next-hop", nullptr, 0, tree_find(in.get(), "/x"), &leaf), YFW_RC_OK);
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(leaf->flags & YFW_DT_F_LIST, 0);
    ASSERT_EQ(add(std::string(NH) + "/state/next-hop", "DROP", 0, nullptr, &leaf), YFW_RC_OK);
    EXPECT_EQ(leaf->flags & YFW_DT_F_LIST, 0);
    const std::string e = "/network-instances/network-instance/protocols/protocol/static-routes/static/next-hops/next-hop[index=1]";
    EXPECT_EQ(h.out_lines(), (Lines{e + "/config/next-hop (delete)", e + "/state/next-hop = DROP"}));
}

TEST_F(PlacementTest, KeyChangeReindexesTheEntry)
{
    ASSERT_EQ(add("/router-static/vrfs/vrf", nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add("/router-static/vrfs/vrf/vrf-name", "red"), YFW_RC_OK);
    ASSERT_EQ(add("/router-static/vrfs/vrf/vrf-name", "green"), YFW_RC_OK);
    EXPECT_EQ(h.out_node("/router-static/vrfs/vrf[vrf-name=red]"), nullptr);
    EXPECT_NE(h.out_node("/router-static/vrfs/vrf[vrf-name=green]"), nullptr);
}

TEST_F(PlacementTest, SuppressedAdditionsAreDropped)
{
    h.rc->suppress_flag = 1;
    zidl_yfw_datatree *created = reinterpret_cast<zidl_yfw_datatree *>(0x1);
    EXPECT_EQ(add("/router-static/default-vrf", nullptr, 0, nullptr, &created), YFW_RC_OK);
    EXPECT_EQ(created, nullptr);
    EXPECT_EQ(tree_size(h.out), 1u);
    h.rc->suppress_flag = 0;
    EXPECT_EQ(add("/router-static/default-vrf", nullptr, 0, nullptr, &created), YFW_RC_OK);
    EXPECT_NE(created, nullptr);
}

TEST_F(PlacementTest, BadArgumentsAreRefused)
{
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(nullptr, h.out, "/a", NS, nullptr, nullptr, nullptr, 0, 0),
              YFW_RC_MAP_FAILED);
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, nullptr, "/a", NS, nullptr, nullptr, nullptr, 0, 0),
              YFW_RC_MAP_FAILED);
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, h.out, nullptr, NS, nullptr, nullptr, nullptr, 0, 0),
              YFW_RC_MAP_FAILED);
    /* A context without its request, and node info asked without a list path or a key. */
    auto *rq = h.ctx->req_ctx;
    h.ctx->req_ctx = nullptr;
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, h.out, "/a", NS, nullptr, nullptr, nullptr, 0, 0),
              YFW_RC_MAP_FAILED);
    h.ctx->req_ctx = rq;
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, h.out, "/a/b[k=v]x", NS, nullptr, nullptr, nullptr, 0, 0),
              YFW_RC_MAP_FAILED);
    char *v = nullptr;
    EXPECT_EQ(yfw_map_get_node_info(h.ctx, nullptr, "name", &v), YFW_RC_MAP_FAILED);
    EXPECT_EQ(yfw_map_get_node_info(h.ctx, "/network-instances/network-instance", nullptr, &v), YFW_RC_MAP_FAILED);
    zidl_yfw_datatree foreign;
    memset(&foreign, 0, sizeof foreign);
    EXPECT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, &foreign, "/a", NS, nullptr, nullptr, nullptr, 0, 0),
              YFW_RC_MAP_FAILED);
    EXPECT_EQ(tree_size(h.out), 1u);
}

/* Two next hops of one route: each one's leaves land in the entry its own list callback made. */
TEST_F(PlacementTest, NextHopLeavesLandInTheirOwnEntry)
{
    TreePtr in = build_tree(R"(
        /router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.0.0.0][prefix-length=24]/vrf-route/vrf-next-hop-table/vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]/tag = 7
        /router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.0.0.0][prefix-length=24]/vrf-route/vrf-next-hop-table/vrf-next-hop-next-hop-address[next-hop-address=10.0.0.2]/tag = 8
    )");
    const std::string pfx = "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
                            "vrf-prefix[prefix=10.0.0.0][prefix-length=24]";
    const std::string tbl = pfx + "/vrf-route/vrf-next-hop-table/vrf-next-hop-next-hop-address";

    h.enter(tree_find(in.get(), pfx.c_str()));
    stitch("default");
    h.enter(tree_find(in.get(), (pfx + "/prefix").c_str()));
    ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add(std::string(ST) + "/prefix", "10.0.0.0/24"), YFW_RC_OK);

    for (const char *a : {"10.0.0.1", "10.0.0.2"}) {
        std::string entry = tbl + "[next-hop-address=" + a + "]";
        h.enter(tree_find(in.get(), entry.c_str()));
        ASSERT_EQ(add(NH, nullptr, 1), YFW_RC_OK);
        h.enter(tree_find(in.get(), (entry + "/next-hop-address").c_str()));
        ASSERT_EQ(add(std::string(NH) + "/index", (std::string("##") + a + "##").c_str()), YFW_RC_OK);
        ASSERT_EQ(add(std::string(NH) + "/config/next-hop", a), YFW_RC_OK);
        h.enter(tree_find(in.get(), (entry + "/tag").c_str()));
        ASSERT_EQ(add(std::string(ST) + "/config/set-tag", a[7] == '1' ? "7" : "8"), YFW_RC_OK);
    }
    const std::string oc = "/network-instances/network-instance[name=default]/protocols/"
                           "protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=10.0.0.0/24]";
    EXPECT_EQ(h.out_lines(), (Lines{oc + "/config/set-tag = 8",
                                    oc + "/next-hops/next-hop[index=##10.0.0.1##]/config/next-hop = 10.0.0.1",
                                    oc + "/next-hops/next-hop[index=##10.0.0.2##]/config/next-hop = 10.0.0.2"}));
}

/* Routes of two VRFs: each static entry lands under the network instance its prefix list stitched. */
TEST_F(PlacementTest, RouteLandsUnderTheNetworkInstanceItsPrefixListFound)
{
    TreePtr in = build_tree(R"(
        /router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.1.0.0][prefix-length=16]/prefix-length = 16
        /router-static/vrfs/vrf[vrf-name=blue]/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.2.0.0][prefix-length=16]/prefix-length = 16
    )");
    const char *order[][2] = {{"red", "10.1.0.0"}, {"blue", "10.2.0.0"}};
    for (auto &o : order) {
        std::string pfx = std::string("/router-static/vrfs/vrf[vrf-name=") + o[0] +
                          "]/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=" + o[1] +
                          "][prefix-length=16]";
        h.enter(tree_find(in.get(), pfx.c_str()));
        stitch(o[0]);
        h.enter(tree_find(in.get(), (pfx + "/prefix").c_str()));
        ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
        ASSERT_EQ(add(std::string(ST) + "/prefix", (std::string(o[1]) + "/16").c_str()), YFW_RC_OK);
        ASSERT_EQ(add(std::string(ST) + "/config/prefix", (std::string(o[1]) + "/16").c_str()), YFW_RC_OK);
    }
    const std::string p = "/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes/static";
    EXPECT_EQ(h.out_lines(),
              (Lines{"/network-instances/network-instance[name=blue]" + p + "[prefix=10.2.0.0/16]/config/prefix = 10.2.0.0/16",
                     "/network-instances/network-instance[name=red]" + p + "[prefix=10.1.0.0/16]/config/prefix = 10.1.0.0/16"}));
}

TEST_F(PlacementTest, CurrentListSetByThePluginIsUsed)
{
    ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add(std::string(ST) + "/prefix", "10.0.0.0/8"), YFW_RC_OK);
    ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add(std::string(ST) + "/prefix", "11.0.0.0/8"), YFW_RC_OK);
    const std::string base = "/network-instances/network-instance/protocols/protocol/static-routes";
    zidl_yfw_datatree *first = h.out_node(base + "/static[prefix=10.0.0.0/8]");
    ASSERT_NE(first, nullptr);
    h.rc->current_list = first;
    ASSERT_EQ(add(std::string(ST) + "/config/prefix", "10.0.0.0/8"), YFW_RC_OK);
    EXPECT_NE(h.out_node(base + "/static[prefix=10.0.0.0/8]/config/prefix"), nullptr);
    EXPECT_EQ(h.out_node(base + "/static[prefix=11.0.0.0/8]/config/prefix"), nullptr);
}

/*
 * Consecutive placements sharing a leading path resume where the previous
 * one stopped; each way the current entry can change in between must be
 * seen: an xpath walk through another entry, the plug-in's current_list,
 * a new entry, and another output tree.
 */
TEST_F(PlacementTest, PlacementsFollowEveryChangeOfTheCurrentEntry)
{
    const std::string base = "/network-instances/network-instance/protocols/protocol/static-routes";
    const std::string leaf = std::string(ST) + "/config/metric";
    auto entry = [&](const char *prefix) { return h.out_node(base + "/static[prefix=" + prefix + "]"); };
    auto metric = [&](const char *prefix) {
        zidl_yfw_datatree *m = h.out_node(base + "/static[prefix=" + prefix + "]/config/metric");
        return m != nullptr && m->value != nullptr ? std::string(m->value) : std::string("-");
    };
    auto find = [&](const char *prefix) {
        yfw_map_xpath_op rec;
        memset(&rec, 0, sizeof rec);
        rec.op = YFW_XPATH_OP_FIND;
        rec.node_type = YFW_XPATH_NODE_LIST;
        rec.root = h.out;
        snprintf(rec.path, sizeof rec.path, "%s/static[prefix=%s]", base.c_str(), prefix);
        return yfw_map_tree_xpath_operations(h.ctx, &rec);
    };
    for (const char *p : {"10.0.0.0/8", "11.0.0.0/8"}) {
        ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
        ASSERT_EQ(add(std::string(ST) + "/prefix", p), YFW_RC_OK);
    }
    ASSERT_EQ(add(leaf, "1"), YFW_RC_OK); /* the newest entry is current */
    EXPECT_EQ(metric("11.0.0.0/8"), "1");

    ASSERT_EQ(find("10.0.0.0/8"), YFW_RC_OK);
    ASSERT_EQ(add(leaf, "2"), YFW_RC_OK);
    EXPECT_EQ(metric("10.0.0.0/8"), "2");

    h.rc->current_list = entry("11.0.0.0/8");
    ASSERT_EQ(add(leaf, "3"), YFW_RC_OK);
    EXPECT_EQ(metric("11.0.0.0/8"), "3");
    EXPECT_EQ(metric("10.0.0.0/8"), "2");

    ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add(std::string(ST) + "/prefix", "12.0.0.0/8"), YFW_RC_OK);
    ASSERT_EQ(add(leaf, "4"), YFW_RC_OK);
    EXPECT_EQ(metric("12.0.0.0/8"), "4");
    EXPECT_EQ(metric("11.0.0.0/8"), "3");

    TreePtr other(tree_new());
    ASSERT_EQ(yfw_map_datatree_add_path_flagged(h.ctx, other.get(), leaf.c_str(), NS, "5", nullptr, nullptr, 0, 0),
              YFW_RC_OK);
    EXPECT_EQ(tree_lines(other.get()), (Lines{base + "/static/config/metric = 5"}));
    EXPECT_EQ(metric("12.0.0.0/8"), "4");
}

TEST_F(PlacementTest, CurrentListFollowsItsEntryWhenTheArrayMoves)
{
    ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
    ASSERT_EQ(add(std::string(ST) + "/prefix", "10.0.0.0/8"), YFW_RC_OK);
    zidl_yfw_datatree *first = h.out_node(
        "/network-instances/network-instance/protocols/protocol/static-routes/static[prefix=10.0.0.0/8]");
    NodeRef ref = node_ref(first);
    h.rc->current_list = first;
    for (int i = 0; i < 40; ++i) /* siblings: the child array moves */
        ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
    EXPECT_EQ(h.rc->current_list, node_get(ref));
    EXPECT_STREQ(h.rc->current_list->children[0].value, "10.0.0.0/8");
}

TEST_F(PlacementTest, NodeInfoAndErrorPathFollowTheInputEntry)
{
    TreePtr in = build_tree(R"(
        /ocni/vrfipv4/network-instances/network-instance[name=red]/protocols/protocol/static-routes/static-route[prefix=10.0.0.0_24]/next-hops/next-hop[index=5]/metric = 3
    )");
    const std::string nh = "/ocni/vrfipv4/network-instances/network-instance[name=red]/protocols/protocol/"
                           "static-routes/static-route[prefix=10.0.0.0_24]/next-hops/next-hop[index=5]";
    h.enter(tree_find(in.get(), (nh + "/metric").c_str()));
    char *v = nullptr;
    EXPECT_EQ(yfw_map_get_node_info(h.ctx, "/ocni/vrfipv4/network-instances/network-instance", "name", &v), YFW_RC_OK);
    EXPECT_STREQ(v, "red");
    EXPECT_EQ(yfw_map_get_node_info(h.ctx,
                                    "/ocni/vrfipv4/network-instances/network-instance/protocols/protocol/"
                                    "static-routes/static-route/next-hops/next-hop/",
                                    "index", &v),
              YFW_RC_OK);
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
TEST_F(PlacementTest, KeyedEntriesAreAddedAndFoundWithoutScanningSiblings)
{
    const int n = 20000;
    char prefix[32];
    uint64_t before = tree_sibling_visits();
    for (int i = 0; i < n; ++i) {
        snprintf(prefix, sizeof prefix, "10.%d.%d.0/24", i / 256, i % 256);
        ASSERT_EQ(add(ST, nullptr, 1), YFW_RC_OK);
        ASSERT_EQ(add(std::string(ST) + "/prefix", prefix), YFW_RC_OK);
        ASSERT_EQ(add(std::string(ST) + "/config/prefix", prefix), YFW_RC_OK);
    }
    zidl_yfw_datatree *routes = h.out_node("/network-instances/network-instance/protocols/protocol/static-routes");
    ASSERT_NE(routes, nullptr);
    EXPECT_EQ(routes->n_children, uint32_t(n));
    for (int i = 0; i < n; ++i) {
        snprintf(prefix, sizeof prefix, "10.%d.%d.0/24", i / 256, i % 256);
        zidl_yfw_datatree *e = node_find_entry(routes, "static", {{"prefix", prefix}});
        ASSERT_NE(e, nullptr) << prefix;
        ASSERT_STREQ(e->children[0].value, prefix);
    }
    EXPECT_LT(tree_sibling_visits() - before, uint64_t(40) * n);
}

} // namespace
