/*
 * xpath operations and stitching of the reference host.
 */
#include <cstring>

#include "host_fixture.h"
#include "tree_builder.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

const char NS[] = "urn:test:ni";

struct XpathRun {
    yfw_map_xpath_op rec;
    cerrno rc;
};

XpathRun xpath(yfw_map_ctx *ctx, uint32_t op, uint32_t type, zidl_yfw_datatree *root, const char *path,
               const char *value = nullptr)
{
    XpathRun r;
    memset(&r.rec, 0, sizeof r.rec);
    r.rec.op = op;
    r.rec.node_type = type;
    r.rec.root = root;
    strncpy(r.rec.ns, NS, sizeof r.rec.ns - 1);
    strncpy(r.rec.path, path, sizeof r.rec.path - 1);
    if (value != nullptr)
        strncpy(r.rec.value, value, sizeof r.rec.value - 1);
    r.rc = yfw_map_tree_xpath_operations(ctx, &r.rec);
    return r;
}

class XpathTest : public HostFixture {};

TEST_F(XpathTest, AddCreatesEntriesWithKeyLeavesAndNamespace)
{
    auto r = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out,
                   "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/");
    ASSERT_EQ(r.rc, YFW_RC_OK);
    ASSERT_NE(r.rec.result, nullptr);
    EXPECT_STREQ(r.rec.result->name, "protocol");
    EXPECT_EQ(r.rec.result->flags & YFW_DT_F_LIST, YFW_DT_F_LIST);
    EXPECT_STREQ(r.rec.result->ns, NS);
    ASSERT_EQ(r.rec.result->n_children, 2u);
    for (uint32_t i = 0; i < 2; ++i) {
        const zidl_yfw_datatree &k = r.rec.result->children[i];
        EXPECT_EQ(k.flags & (YFW_DT_F_LIST | YFW_DT_F_VALUE), YFW_DT_F_LIST | YFW_DT_F_VALUE) << k.name;
        EXPECT_STREQ(k.ns, NS);
    }
    EXPECT_STREQ(r.rec.result->children[0].name, "identifier");
    EXPECT_STREQ(r.rec.result->children[0].value, "STATIC");
    EXPECT_STREQ(r.rec.result->children[1].value, "DEFAULT");
    EXPECT_EQ(h.out_lines(DumpOptions{true, false}),
              (Lines{"/network-instances/network-instance[name=red]/name = red",
                     "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/identifier = STATIC",
                     "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/name = DEFAULT"}));
}

TEST_F(XpathTest, AddOfExistingNodeReturnsNodeExistsWithTheNode)
{
    auto first = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out, "/network-instances/network-instance[name=default]/");
    ASSERT_EQ(first.rc, YFW_RC_OK);
    auto again = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out, "/network-instances/network-instance[name=default]");
    EXPECT_EQ(again.rc, YFW_RC_NODE_EXISTS);
    EXPECT_EQ(again.rec.result, first.rec.result);
    EXPECT_EQ(tree_size(h.out), 4u); /* root, container, entry, key */
}

TEST_F(XpathTest, LeafAddSetsValueAndRepeatedAddUpdatesIt)
{
    auto ni = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out, "/network-instances/network-instance[name=red]/");
    NodeRef n = node_ref(ni.rec.result);
    auto leaf = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LEAF, node_get(n), "/config/name", "red");
    ASSERT_EQ(leaf.rc, YFW_RC_OK);
    EXPECT_STREQ(leaf.rec.result->value, "red");
    EXPECT_EQ(leaf.rec.result->flags & YFW_DT_F_VALUE, YFW_DT_F_VALUE);
    auto same = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LEAF, node_get(n), "/config/name", "red");
    EXPECT_EQ(same.rc, YFW_RC_NODE_EXISTS);
    EXPECT_EQ(same.rec.result, leaf.rec.result);
    auto other = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LEAF, node_get(n), "/config/name", "blue");
    EXPECT_EQ(other.rc, YFW_RC_NODE_EXISTS);
    EXPECT_STREQ(other.rec.result->value, "blue");
    EXPECT_EQ(h.out_lines(), (Lines{"/network-instances/network-instance[name=red]/config/name = blue"}));
}

TEST_F(XpathTest, FindLooksUpWithoutCreating)
{
    TreePtr in = build_tree(R"(
        /network-instances/network-instance[name=red]/config/name = red
        /network-instances/network-instance[name=blue]/config/name = blue
    )");
    zidl_yfw_datatree *nis = tree_find(in.get(), "/network-instances");
    ASSERT_NE(nis, nullptr);
    size_t before = tree_size(in.get());

    struct Row {
        const char *path;
        const char *value;
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
        auto r = xpath(h.ctx, YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LEAF, nis, row.path, row.value);
        if (row.found) {
            EXPECT_EQ(r.rc, YFW_RC_OK) << row.path;
            EXPECT_NE(r.rec.result, nullptr) << row.path;
        } else {
            EXPECT_NE(r.rc, YFW_RC_OK) << row.path << " " << row.value;
            EXPECT_EQ(r.rec.result, nullptr) << row.path;
        }
    }
    EXPECT_EQ(tree_size(in.get()), before);
}

TEST_F(XpathTest, KeysInBracketsMayHoldSlashesAndQuotes)
{
    auto a = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out,
                   "/static-routes/static[prefix=10.1.0.0/16]/next-hops/next-hop[index='a]b']");
    ASSERT_EQ(a.rc, YFW_RC_OK);
    /* Dumped paths quote a key that holds "]", so that they read back. */
    EXPECT_EQ(h.out_lines(), (Lines{"/static-routes/static[prefix=10.1.0.0/16]/next-hops/next-hop[index='a]b']"}));
    auto f = xpath(h.ctx, YFW_XPATH_OP_FIND, YFW_XPATH_NODE_CONTAINER, h.out, "/static-routes/static[prefix=\"10.1.0.0/16\"]");
    EXPECT_EQ(f.rc, YFW_RC_OK);
}

TEST_F(XpathTest, MalformedPathsAreRefusedAndChangeNothing)
{
    const char *bad[] = {"/a/b[k=v", "/a/[k=v]", "/a/b[kv]", "/a/b[k=v]x", "/a/b[k='v]"};
    for (const char *p : bad) {
        auto r = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, h.out, p);
        EXPECT_EQ(r.rc, YFW_RC_MAP_FAILED) << p;
        EXPECT_EQ(r.rec.result, nullptr) << p;
    }
    EXPECT_EQ(tree_size(h.out), 1u);
    auto noroot = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, nullptr, "/a");
    EXPECT_EQ(noroot.rc, YFW_RC_MAP_FAILED);
    auto badop = xpath(h.ctx, 7, YFW_XPATH_NODE_CONTAINER, h.out, "/a");
    EXPECT_EQ(badop.rc, YFW_RC_MAP_FAILED);
    EXPECT_EQ(yfw_map_tree_xpath_operations(h.ctx, nullptr), YFW_RC_MAP_FAILED);
    EXPECT_EQ(tree_size(h.out), 1u);
}

TEST_F(XpathTest, UnterminatedRecordFieldsAreReadWithinTheirSize)
{
    yfw_map_xpath_op rec;
    memset(&rec, 'x', sizeof rec);
    rec.root = h.out;
    rec.op = YFW_XPATH_OP_ADD;
    rec.node_type = YFW_XPATH_NODE_LEAF;
    memcpy(rec.path, "/a/", 3); /* path is "/a/xxxx..." without a terminator */
    cerrno rc = yfw_map_tree_xpath_operations(h.ctx, &rec);
    ASSERT_EQ(rc, YFW_RC_OK);
    ASSERT_NE(rec.result, nullptr);
    EXPECT_EQ(strlen(rec.result->name), YFW_XPATH_PATH_LEN - 3);
    EXPECT_EQ(strlen(rec.result->value), size_t(YFW_XPATH_VALUE_LEN));
}

TEST_F(XpathTest, StitchMakesTheEntryCurrentForItsList)
{
    yfw_map_xpath_op rec;
    memset(&rec, 0, sizeof rec);
    rec.op = YFW_XPATH_OP_ADD;
    rec.node_type = YFW_XPATH_NODE_LIST;
    rec.root = h.out;
    strcpy(rec.path, "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/");
    strcpy(rec.schema_path, "/network-instances/network-instance/protocols/protocol");
    ASSERT_EQ(yfw_map_stitch_list_to_list(h.ctx, &rec), YFW_RC_OK);
    EXPECT_STREQ(rec.result->name, "protocol");
    /* Stitching an existing entry again succeeds too. */
    ASSERT_EQ(yfw_map_stitch_list_to_list(h.ctx, &rec), YFW_RC_OK);

    cerrno rc = yfw_map_datatree_add_path_flagged(
        h.ctx, h.out, "/network-instances/network-instance/protocols/protocol/static-routes/static", NS, nullptr,
        nullptr, nullptr, 1, 0);
    ASSERT_EQ(rc, YFW_RC_OK);
    rc = yfw_map_datatree_add_path_flagged(
        h.ctx, h.out, "/network-instances/network-instance/protocols/protocol/static-routes/static/prefix", NS,
        "192.0.2.0/24", nullptr, nullptr, 0, 0);
    ASSERT_EQ(rc, YFW_RC_OK);
    EXPECT_EQ(h.out_lines(),
              (Lines{"/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=192.0.2.0/24]"}));
}

/*
 * A lookup repeated with the same path answers as a fresh one would: after
 * the entry's key changed, after another entry became current, from
 * another root, and in another tree.
 */
TEST_F(XpathTest, RepeatedLookupsFollowKeyAndCurrentEntryChanges)
{
    const std::string base = "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]"
                             "/static-routes";
    const std::string a = base + "/static[prefix=10.0.0.0/8]/";
    const std::string b = base + "/static[prefix=11.0.0.0/8]/";
    const char *leaf = "/network-instances/network-instance/protocols/protocol/static-routes/static/config/metric";
    auto place = [&](const char *v) {
        return yfw_map_datatree_add_path_flagged(h.ctx, h.out, leaf, NS, v, nullptr, nullptr, 0, 0);
    };
    auto metric = [&](const std::string &entry) {
        zidl_yfw_datatree *n = tree_find(h.out, (entry + "config/metric").c_str());
        return n != nullptr && n->value != nullptr ? std::string(n->value) : std::string("-");
    };

    ASSERT_EQ(xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, a.c_str()).rc, YFW_RC_OK);
    ASSERT_EQ(xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, b.c_str()).rc, YFW_RC_OK);
    auto again = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, a.c_str());
    ASSERT_EQ(again.rc, YFW_RC_NODE_EXISTS);
    ASSERT_EQ(place("1"), YFW_RC_OK); /* lands in the entry looked up last */
    EXPECT_EQ(metric(a), "1");

    ASSERT_EQ(xpath(h.ctx, YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LIST, h.out, b.c_str()).rc, YFW_RC_OK);
    ASSERT_EQ(place("2"), YFW_RC_OK);
    EXPECT_EQ(metric(b), "2");
    EXPECT_EQ(xpath(h.ctx, YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LIST, h.out, a.c_str()).rc, YFW_RC_OK);
    ASSERT_EQ(place("3"), YFW_RC_OK);
    EXPECT_EQ(metric(a), "3");

    /* The plug-in makes b current; looking a up again makes a current again. */
    h.rc->current_list = tree_find(h.out, b.c_str());
    ASSERT_EQ(xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, h.out, a.c_str()).rc, YFW_RC_NODE_EXISTS);
    ASSERT_EQ(place("4"), YFW_RC_OK);
    EXPECT_EQ(metric(a), "4");
    EXPECT_EQ(metric(b), "2");

    /* Entry a now carries another key: its old path finds nothing. */
    ASSERT_TRUE(node_set_value(node_child(again.rec.result, "prefix"), "12.0.0.0/8"));
    EXPECT_EQ(xpath(h.ctx, YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LIST, h.out, a.c_str()).rc, YFW_RC_MAP_FAILED);
    EXPECT_EQ(xpath(h.ctx, YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LIST, h.out,
                    (base + "/static[prefix=12.0.0.0/8]/").c_str()).rec.result,
              node_get(node_ref(again.rec.result)));

    TreePtr other(tree_new());
    auto fresh = xpath(h.ctx, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LIST, other.get(), b.c_str());
    EXPECT_EQ(fresh.rc, YFW_RC_OK); /* made in the other tree, not found in the first */
    EXPECT_EQ(node_root(fresh.rec.result), other.get());
}

TEST_F(XpathTest, StitchRefusesAPathThatDoesNotEndInTheList)
{
    yfw_map_xpath_op rec;
    memset(&rec, 0, sizeof rec);
    rec.root = h.out;
    strcpy(rec.path, "/network-instances/network-instance[name=red]/");
    strcpy(rec.schema_path, "/network-instances/network-instance/protocols/protocol");
    EXPECT_EQ(yfw_map_stitch_list_to_list(h.ctx, &rec), YFW_RC_MAP_FAILED);
    EXPECT_EQ(rec.result, nullptr);
    EXPECT_EQ(tree_size(h.out), 1u);
}

} // namespace
