/*
 * The YANG seam's data side: fragment parsing and its errors, canonical
 * prefixes, instance paths, and conversion to and from framework trees.
 */
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <random>
#include <string>
#include <vector>

#include "host/tree.h"
#include "yang_context.h"
#include "yang_data.h"

namespace y = ocni::yang;
namespace h = ocni::host;

namespace {

std::string source_dir()
{
    const char *s = getenv("OCNI_SOURCE_DIR");
    return s != nullptr ? s : ".";
}

/* A fragment with one static route in network instance `vrf`; `route` is the body of the static entry. */
std::string oc_doc(const std::string &route, const std::string &vrf = "default")
{
    return "{\"openconfig-network-instance:network-instances\":{\"network-instance\":[{\"name\":\"" + vrf +
           "\",\n\"protocols\":{\"protocol\":[{\"identifier\":\"openconfig-policy-types:STATIC\",\"name\":\"DEFAULT\",\n"
           "\"static-routes\":{\"static\":[{" +
           route + "}]}}]}}]}}";
}

class YangData : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ctx_ = new y::Context;
        y::Error e = ctx_->open(source_dir() + "/yang");
        ASSERT_FALSE(e) << e.message;
    }
    static void TearDownTestSuite()
    {
        delete ctx_;
    }
    static y::Context *ctx_;

    static y::Error parse(const std::string &text, y::Tree &tree, y::Model model = y::Model::kOpenConfig)
    {
        y::Error e = y::parse_fragment(*ctx_, text, y::Format::kAuto, model, tree);
        if (!e && model == y::Model::kOpenConfig)
            e = y::check_canonical_prefixes(tree);
        return e;
    }

    static std::string json(const y::Tree &tree)
    {
        std::string out;
        y::Error e = y::print_json(tree, out);
        EXPECT_FALSE(e) << e.message;
        return out;
    }
};
y::Context *YangData::ctx_ = nullptr;

/* ------------------------------------------------------------------ */
/* Canonical prefixes                                                  */
/* ------------------------------------------------------------------ */

TEST(CanonicalPrefix, ClearsHostBitsAndNormalisesIpv6Text)
{
    struct Row {
        const char *in;
        const char *out; /* nullptr: not a prefix */
    } rows[] = {
        {"10.1.1.1/24", "10.1.1.0/24"},
        {"10.1.1.0/24", "10.1.1.0/24"},
        {"12.1.58.4/8", "12.0.0.0/8"},
        {"192.0.2.255/31", "192.0.2.254/31"},
        {"192.0.2.255/32", "192.0.2.255/32"},
        {"255.255.255.255/0", "0.0.0.0/0"},
        {"2001:DB8::/32", "2001:db8::/32"},
        {"2001:db8:0::/32", "2001:db8::/32"},
        {"2001:0db8:0000:0000:0000:0000:0000:0001/128", "2001:db8::1/128"},
        {"2001:db8::1/64", "2001:db8::/64"},
        {"fe80::1:2:3:4/127", "fe80::1:2:3:4/127"},
        {"fe80::1:2:3:5/127", "fe80::1:2:3:4/127"},
        {"::/0", "::/0"},
        {"10.0.0.0/33", nullptr},
        {"2001:db8::/129", nullptr},
        {"10.0.0.0", nullptr},
        {"10.0.0.0/", nullptr},
        {"/8", nullptr},
        {"10.0.0/8", nullptr},
        {"10.0.0.0/8x", nullptr},
        {"2001:db8:::/32", nullptr},
        {"10.0.0.0/0008", nullptr},
    };
    for (const Row &r : rows) {
        std::string got;
        bool ok = y::canonical_prefix(r.in, got);
        if (r.out == nullptr) {
            EXPECT_FALSE(ok) << r.in << " gave " << got;
        } else {
            EXPECT_TRUE(ok) << r.in;
            EXPECT_EQ(got, r.out) << r.in;
        }
    }
}

TEST(CanonicalPrefix, Ipv4AgreesWithAMaskOracle)
{
    std::mt19937 rng(7);
    for (int i = 0; i < 2000; ++i) {
        uint32_t addr = rng();
        int len = static_cast<int>(rng() % 33);
        uint32_t mask = len == 0 ? 0 : ~0u << (32 - len);
        char in[INET_ADDRSTRLEN], want[INET_ADDRSTRLEN];
        uint32_t a = htonl(addr), m = htonl(addr & mask);
        inet_ntop(AF_INET, &a, in, sizeof(in));
        inet_ntop(AF_INET, &m, want, sizeof(want));
        std::string got, again;
        ASSERT_TRUE(y::canonical_prefix(std::string(in) + "/" + std::to_string(len), got)) << in << "/" << len;
        EXPECT_EQ(got, std::string(want) + "/" + std::to_string(len));
        ASSERT_TRUE(y::canonical_prefix(got, again));
        EXPECT_EQ(again, got) << "canonical form must map to itself";
    }
}

/* ------------------------------------------------------------------ */
/* Parsing fragments                                                   */
/* ------------------------------------------------------------------ */

TEST_F(YangData, FragmentNeedNotRepeatKeysUnderConfigNorTheProtocolIdentifier)
{
    y::Tree tree;
    y::Error e = parse(oc_doc("\"prefix\":\"10.1.0.0/16\",\"next-hops\":{\"next-hop\":[{\"index\":\"1\","
                              "\"config\":{\"metric\":5}}]}"),
                       tree);
    ASSERT_FALSE(e) << e.message;
    ASSERT_TRUE(tree != nullptr);
    EXPECT_NE(json(tree).find("\"metric\": 5"), std::string::npos);
}

TEST_F(YangData, EmptyDocumentGivesAnEmptyTreeAndPrintsAnEmptyObject)
{
    for (const char *text : {"", "  \n", "{}"}) {
        y::Tree tree;
        y::Error e = parse(text, tree);
        EXPECT_FALSE(e) << "[" << text << "] " << e.message;
        EXPECT_TRUE(tree == nullptr);
        EXPECT_EQ(json(tree), "{}\n");
    }
}

TEST_F(YangData, BadDocumentsAreInputErrorsNamingLineOrPath)
{
    struct Row {
        const char *what;
        std::string text;
        std::vector<std::string> mentions;
    } rows[] = {
        {"malformed JSON", "{\"openconfig-network-instance:network-instances\": {\n\"network-instance\": [\n", {"line 3"}},
        {"unknown leaf", oc_doc("\"prefix\":\"10.1.0.0/16\",\"config\":{\"colour\":\"blue\"}"),
         {"colour", "static[prefix='10.1.0.0/16']/config"}},
        {"wrong type", oc_doc("\"prefix\":\"10.1.0.0/16\",\"next-hops\":{\"next-hop\":[{\"index\":\"1\",\"config\":{\"metric\":\"ten\"}}]}"),
         {"ten", "next-hop[index='1']/config/metric", "line 3"}},
        {"metric out of range", oc_doc("\"prefix\":\"10.1.0.0/16\",\"next-hops\":{\"next-hop\":[{\"index\":\"1\",\"config\":{\"metric\":4294967296}}]}"),
         {"4294967296", "metric"}},
        {"unknown identity", oc_doc("\"prefix\":\"10.1.0.0/16\",\"next-hops\":{\"next-hop\":[{\"index\":\"1\",\"config\":{\"next-hop\":\"openconfig-local-routing:BLACKHOLE\"}}]}"),
         {"BLACKHOLE", "next-hop[index='1']/config/next-hop"}},
        {"identity of the wrong module", oc_doc("\"prefix\":\"10.1.0.0/16\",\"next-hops\":{\"next-hop\":[{\"index\":\"1\",\"config\":{\"next-hop\":\"openconfig-policy-types:STATIC\"}}]}"),
         {"STATIC", "config/next-hop"}},
        {"malformed prefix", oc_doc("\"prefix\":\"10.1.0.0/40\""), {"10.1.0.0/40"}},
        {"state in an edit", oc_doc("\"prefix\":\"10.1.0.0/16\",\"state\":{\"prefix\":\"10.1.0.0/16\"}"), {"state"}},
        {"list without its key", oc_doc("\"config\":{\"prefix\":\"10.1.0.0/16\"}"), {"prefix"}},
        {"malformed XML", "<network-instances xmlns=\"http://openconfig.net/yang/network-instance\">\n<network-instance>\n</network-instances>", {"line"}},
        {"unknown module", "{\"openconfig-bgp:bgp\":{}}", {"openconfig-bgp"}},
    };
    for (const Row &r : rows) {
        y::Tree tree;
        y::Error e = parse(r.text, tree);
        ASSERT_TRUE(e) << r.what << " was accepted";
        EXPECT_EQ(e.kind, y::Error::kInput) << r.what;
        for (const std::string &m : r.mentions)
            EXPECT_NE(e.message.find(m), std::string::npos) << r.what << ": \"" << m << "\" not in: " << e.message;
    }
}

TEST_F(YangData, DocumentOfTheOtherModelIsRefused)
{
    y::Tree tree;
    std::string native = "{\"Velmar-ORN-QZ-ip-static-cfg:router-static\":{}}";
    y::Error e = parse(native, tree, y::Model::kOpenConfig);
    ASSERT_TRUE(e);
    EXPECT_NE(e.message.find("router-static"), std::string::npos) << e.message;
    EXPECT_FALSE(parse(native, tree, y::Model::kNative)) << "the native model takes it";
    e = parse(oc_doc("\"prefix\":\"10.1.0.0/16\""), tree, y::Model::kNative);
    ASSERT_TRUE(e);
    EXPECT_NE(e.message.find("network-instances"), std::string::npos) << e.message;
}

TEST_F(YangData, NonCanonicalPrefixIsRefusedNamingTheCanonicalForm)
{
    struct Row {
        const char *prefix;
        const char *canonical; /* nullptr: accepted */
    } rows[] = {
        {"10.1.1.1/24", "10.1.1.0/24"}, {"2001:DB8::/32", "2001:db8::/32"}, {"2001:db8:0::/32", "2001:db8::/32"},
        {"10.1.1.0/24", nullptr},       {"2001:db8::/32", nullptr},        {"0.0.0.0/0", nullptr},
    };
    for (const Row &r : rows) {
        /* in the key and in config/prefix alike */
        for (bool in_config : {false, true}) {
            std::string route = in_config ? std::string("\"prefix\":\"10.9.9.0/24\",\"config\":{\"prefix\":\"") + r.prefix + "\"}"
                                          : std::string("\"prefix\":\"") + r.prefix + "\"";
            y::Tree tree;
            y::Error e = parse(oc_doc(route), tree);
            if (r.canonical == nullptr) {
                EXPECT_FALSE(e) << r.prefix << ": " << e.message;
                continue;
            }
            ASSERT_TRUE(e) << r.prefix << " accepted";
            EXPECT_EQ(e.kind, y::Error::kInput);
            EXPECT_NE(e.message.find(std::string("\"") + r.canonical + "\""), std::string::npos) << e.message;
            EXPECT_NE(e.message.find(in_config ? "/config/prefix" : "]/prefix"), std::string::npos) << e.message;
        }
    }
}

TEST_F(YangData, NonCanonicalNextHopAddressIsRefusedNamingTheCanonicalForm)
{
    struct Row {
        const char *hop;
        const char *canonical; /* nullptr: accepted */
    } rows[] = {
        {"2001:DB8::1", "2001:db8::1"},
        {"2001:db8:0:0::1", "2001:db8::1"},
        {"2001:0db8::1", "2001:db8::1"},
        {"2001:db8::1", nullptr},
        {"192.0.2.1", nullptr},
        {"openconfig-local-routing:DROP", nullptr},
    };
    for (const Row &r : rows) {
        std::string route = std::string("\"prefix\":\"2001:db8::/32\",\"next-hops\":{\"next-hop\":[{\"index\":\"1\","
                                        "\"config\":{\"index\":\"1\",\"next-hop\":\"") +
                            r.hop + "\"}}]}";
        y::Tree tree;
        y::Error e = parse(oc_doc(route), tree);
        if (r.canonical == nullptr) {
            EXPECT_FALSE(e) << r.hop << ": " << e.message;
            continue;
        }
        ASSERT_TRUE(e) << r.hop << " accepted";
        EXPECT_EQ(e.kind, y::Error::kInput);
        EXPECT_NE(e.message.find(std::string("\"") + r.canonical + "\""), std::string::npos) << e.message;
        EXPECT_NE(e.message.find("/config/next-hop"), std::string::npos) << e.message;
    }
}

TEST_F(YangData, XmlAndJsonOfTheSameEditGiveTheSameTree)
{
    std::string xml =
        "<network-instances xmlns=\"http://openconfig.net/yang/network-instance\"><network-instance><name>red</name>"
        "<protocols><protocol><identifier xmlns:pt=\"http://openconfig.net/yang/policy-types\">pt:STATIC</identifier>"
        "<name>DEFAULT</name><static-routes><static><prefix>2001:db8::/32</prefix><next-hops><next-hop>"
        "<index>a</index><config><next-hop xmlns:lr=\"http://openconfig.net/yang/local-routing\">lr:DROP</next-hop>"
        "</config></next-hop></next-hops></static></static-routes></protocol></protocols></network-instance>"
        "</network-instances>";
    std::string js = oc_doc("\"prefix\":\"2001:db8::/32\",\"next-hops\":{\"next-hop\":[{\"index\":\"a\","
                            "\"config\":{\"next-hop\":\"openconfig-local-routing:DROP\"}}]}",
                            "red");
    y::Tree a, b;
    ASSERT_FALSE(parse(xml, a));
    ASSERT_FALSE(parse(js, b));
    EXPECT_EQ(json(a), json(b));
}

/* ------------------------------------------------------------------ */
/* Instance paths                                                      */
/* ------------------------------------------------------------------ */

const std::string kProto = "/network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC][name=DEFAULT]";

TEST_F(YangData, InstancePathsNameTheirTarget)
{
    struct Row {
        std::string path;
        const char *target;     /* schema name of the node deleted */
        bool leaf;              /* target is a leaf the tree does not carry */
    } rows[] = {
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/metric", "metric", true},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]", "next-hop", false},
        {kProto + "/static-routes/static[prefix='2001:db8::/32']", "static", false},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/prefix", "static", false},
        {kProto + "/static-routes", "static-routes", false},
        {"/network-instances/network-instance[name=\"red\"]/protocols/protocol[name=DEFAULT][identifier=openconfig-policy-types:STATIC]/static-routes",
         "static-routes", false},
        {"/openconfig-network-instance:network-instances", "network-instances", false},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index='Gi0/0/0/1]x']/interface-ref/config/subinterface",
         "subinterface", true},
    };
    for (const Row &r : rows) {
        y::Tree tree;
        y::PathTarget t;
        y::Error e = y::parse_instance_path(*ctx_, r.path, y::Model::kOpenConfig, tree, t);
        ASSERT_FALSE(e) << r.path << ": " << e.message;
        if (r.leaf) {
            ASSERT_NE(t.leaf, nullptr) << r.path;
            EXPECT_STREQ(t.leaf->name, r.target);
            EXPECT_EQ(t.node, nullptr);
        } else {
            ASSERT_NE(t.node, nullptr) << r.path;
            EXPECT_STREQ(LYD_NAME(t.node), r.target);
            EXPECT_EQ(t.leaf, nullptr);
        }
    }
}

TEST_F(YangData, BadInstancePathsAreInputErrors)
{
    struct Row {
        std::string path;
        const char *mentions;
    } rows[] = {
        {"network-instances", "must start with /"},
        {"/network-instances/network-instance", "needs its key \"name\""},
        {kProto + "/static-routes/static[prefix=10.0.0.1/24]", "\"10.0.0.0/24\""},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/colour", "colour"},
        {kProto + "/static-routes/static[prefix=banana]", "banana"},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/config/metric", "metric"},
        {"/network-instances/network-instance[name=default]/protocols/protocol[identifier=BGPX][name=DEFAULT]", "BGPX"},
        {"/network-instances/network-instance[name=default][vrf=x]", "keys other than its own"},
        {"/network-instances[name=default]", "not a list"},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/config/prefix/extra", "must end the path"},
        {"/network-instances/network-instance[name='default]", "unterminated"},
        {"/network-instances//network-instance[name=a]", "empty step"},
    };
    for (const Row &r : rows) {
        y::Tree tree;
        y::PathTarget t;
        y::Error e = y::parse_instance_path(*ctx_, r.path, y::Model::kOpenConfig, tree, t);
        ASSERT_TRUE(e) << r.path << " accepted";
        EXPECT_EQ(e.kind, y::Error::kInput) << r.path;
        EXPECT_NE(e.message.find(r.mentions), std::string::npos) << r.path << ": " << e.message;
    }
}

/* ------------------------------------------------------------------ */
/* Framework trees                                                     */
/* ------------------------------------------------------------------ */

struct HostTree {
    zidl_yfw_datatree *root = h::tree_new();
    ~HostTree() { h::tree_free(root); }
};

TEST_F(YangData, HostTreeCarriesIdentitiesAsBareNamesWithTheirModuleNamespace)
{
    y::Tree tree;
    ASSERT_FALSE(parse(oc_doc("\"prefix\":\"10.1.0.0/16\",\"config\":{\"set-tag\":\"0x1f\"},\"next-hops\":{\"next-hop\":["
                              "{\"index\":\"d\",\"config\":{\"next-hop\":\"openconfig-local-routing:DROP\"}},"
                              "{\"index\":\"a\",\"config\":{\"next-hop\":\"192.0.2.1\",\"metric\":7}}]}"),
                       tree));
    HostTree ht;
    y::HostTreeSink sink;
    y::Error e = y::to_datatree(tree, sink, ht.root);
    ASSERT_FALSE(e) << e.message;

    h::DumpOptions opt;
    opt.key_leaves = true;
    opt.ns = true;
    std::string dump = h::tree_dump(ht.root, opt);
    const std::string proto = "/network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC][name=DEFAULT]";
    const std::string st = proto + "/static-routes/static[prefix=10.1.0.0/16]";
    for (const std::string &line : {
             proto + "/identifier = STATIC {http://openconfig.net/yang/network-instance} {http://openconfig.net/yang/policy-types}",
             st + "/next-hops/next-hop[index=d]/config/next-hop = DROP {http://openconfig.net/yang/network-instance} {http://openconfig.net/yang/local-routing}",
             st + "/next-hops/next-hop[index=a]/config/next-hop = 192.0.2.1 {http://openconfig.net/yang/network-instance}",
             st + "/next-hops/next-hop[index=a]/config/metric = 7 {http://openconfig.net/yang/network-instance}",
             st + "/config/set-tag = 0x1f {http://openconfig.net/yang/network-instance}",
         }) {
        EXPECT_NE(dump.find(line + "\n"), std::string::npos) << "missing: " << line << "\nin:\n" << dump;
    }
    zidl_yfw_datatree *nh = h::tree_find(ht.root, (st + "/next-hops/next-hop[index=a]").c_str());
    ASSERT_NE(nh, nullptr);
    EXPECT_TRUE(nh->flags & YFW_DT_F_LIST);
    zidl_yfw_datatree *key = h::node_child(nh, "index");
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->flags & (YFW_DT_F_LIST | YFW_DT_F_VALUE), YFW_DT_F_LIST | YFW_DT_F_VALUE);
    zidl_yfw_datatree *metric = h::tree_find(ht.root, (st + "/next-hops/next-hop[index=a]/config/metric").c_str());
    ASSERT_NE(metric, nullptr);
    EXPECT_FALSE(metric->flags & YFW_DT_F_LIST);
}

TEST_F(YangData, DeletePathMarksOnlyItsTarget)
{
    struct Row {
        std::string path;
        std::string deleted_line;
    } rows[] = {
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/metric",
         kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/metric (delete)"},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]",
         kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1] (delete)"},
        {kProto + "/static-routes", kProto + "/static-routes (delete)"},
    };
    for (const Row &r : rows) {
        y::Tree tree;
        y::PathTarget t;
        ASSERT_FALSE(y::parse_instance_path(*ctx_, r.path, y::Model::kOpenConfig, tree, t));
        HostTree ht;
        y::HostTreeSink sink;
        ASSERT_FALSE(y::to_datatree(tree, sink, ht.root, YFW_DT_OP_NONE, &t));
        std::vector<std::string> lines = h::tree_lines(ht.root);
        int deletes = 0;
        for (const std::string &l : lines)
            if (l.find("(delete)") != std::string::npos) {
                ++deletes;
                EXPECT_EQ(l, r.deleted_line);
            }
        EXPECT_EQ(deletes, 1) << r.path << "\n" << h::tree_dump(ht.root);
    }
}

TEST_F(YangData, RoundTripThroughTheHostTreePrintsTheSameDocument)
{
    for (const std::string &route : {
             std::string("\"prefix\":\"10.1.0.0/16\",\"config\":{\"prefix\":\"10.1.0.0/16\",\"set-tag\":100,\"description\":\"x\"},"
                         "\"next-hops\":{\"next-hop\":[{\"index\":\"1\",\"config\":{\"index\":\"1\",\"next-hop\":\"192.0.2.1\",\"metric\":10}},"
                         "{\"index\":\"2\",\"config\":{\"next-hop\":\"openconfig-local-routing:LOCAL_LINK\"},"
                         "\"interface-ref\":{\"config\":{\"interface\":\"Gi0/0/0/1\",\"subinterface\":5}},"
                         "\"enable-bfd\":{\"config\":{\"enabled\":true}}}]}"),
             std::string("\"prefix\":\"2001:db8::/32\""),
         }) {
        y::Tree in;
        ASSERT_FALSE(parse(oc_doc(route, "red"), in));
        HostTree ht;
        y::HostTreeSink sink;
        ASSERT_FALSE(y::to_datatree(in, sink, ht.root));
        y::Tree out;
        y::Error e = y::from_datatree(*ctx_, ht.root, out);
        ASSERT_FALSE(e) << e.message;
        EXPECT_EQ(json(in), json(out));
    }
}

TEST_F(YangData, HostTreeWithRepeatsMergesEntriesAndKeepsTheLastLeafValue)
{
    HostTree ht;
    const char *ni = y::kNetworkInstanceNs;
    zidl_yfw_datatree *nis = h::node_add_child(ht.root, "network-instances", h::NodeKind::Container, nullptr, ni);
    h::NodeRef nis_ref = h::node_ref(nis);
    for (const char *tag : {"10", "20"}) {
        /* each route's next hop writes its own copy of the parents, as read callbacks do */
        zidl_yfw_datatree *inst = h::node_add_entry(h::node_get(nis_ref), "network-instance", {{"name", "default"}}, ni);
        zidl_yfw_datatree *protos = h::node_add_child(inst, "protocols", h::NodeKind::Container, nullptr, ni);
        zidl_yfw_datatree *proto =
            h::node_add_entry(protos, "protocol", {{"identifier", "STATIC"}, {"name", "DEFAULT"}}, ni);
        h::node_set_data_ns(h::node_child(proto, "identifier"), y::kPolicyTypesNs);
        zidl_yfw_datatree *routes = h::node_add_child(proto, "static-routes", h::NodeKind::Container, nullptr, ni);
        zidl_yfw_datatree *st = h::node_add_entry(routes, "static", {{"prefix", "10.1.0.0/16"}}, ni);
        zidl_yfw_datatree *cfg = h::node_add_child(st, "config", h::NodeKind::Container, nullptr, ni);
        h::node_add_child(cfg, "set-tag", h::NodeKind::Leaf, tag, ni);
    }
    /* a deleted node never shows */
    zidl_yfw_datatree *gone = h::node_add_entry(h::node_get(nis_ref), "network-instance", {{"name", "gone"}}, ni);
    h::node_set_op(gone, YFW_DT_OP_DELETE);

    y::Tree out;
    y::Error e = y::from_datatree(*ctx_, ht.root, out);
    ASSERT_FALSE(e) << e.message;
    std::string text = json(out);
    EXPECT_EQ(text.find("gone"), std::string::npos) << text;
    EXPECT_NE(text.find("\"identifier\": \"openconfig-policy-types:STATIC\""), std::string::npos) << text;
    EXPECT_NE(text.find("\"set-tag\": 20"), std::string::npos) << text;
    EXPECT_EQ(text.find("\"set-tag\": 10"), std::string::npos) << text;
    size_t first = text.find("\"name\": \"default\"");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(text.find("\"name\": \"default\"", first + 1), std::string::npos) << "one network instance:\n" << text;
}

TEST_F(YangData, HostTreeTheSchemaRefusesIsAnInternalErrorNamingThePath)
{
    {
        HostTree ht;
        zidl_yfw_datatree *nis =
            h::node_add_child(ht.root, "network-instances", h::NodeKind::Container, nullptr, y::kNetworkInstanceNs);
        zidl_yfw_datatree *inst = h::node_add_entry(nis, "network-instance", {{"name", "x"}}, y::kNetworkInstanceNs);
        h::node_add_child(inst, "colour", h::NodeKind::Leaf, "blue", y::kNetworkInstanceNs);
        y::Tree out;
        y::Error e = y::from_datatree(*ctx_, ht.root, out);
        ASSERT_TRUE(e);
        EXPECT_EQ(e.kind, y::Error::kInternal);
        EXPECT_NE(e.message.find("/network-instances/network-instance/colour"), std::string::npos) << e.message;
        EXPECT_TRUE(out == nullptr);
    }
    {
        HostTree ht;
        zidl_yfw_datatree *rs =
            h::node_add_child(ht.root, "router-static", h::NodeKind::Container, nullptr, y::kNativeNs);
        zidl_yfw_datatree *vrfs = h::node_add_child(rs, "vrfs", h::NodeKind::Container, nullptr, y::kNativeNs);
        h::node_add_child(vrfs, "vrf", h::NodeKind::Entry, nullptr, y::kNativeNs);
        y::Tree out;
        y::Error e = y::from_datatree(*ctx_, ht.root, out);
        ASSERT_TRUE(e);
        EXPECT_NE(e.message.find("without its key vrf-name"), std::string::npos) << e.message;
    }
    {
        HostTree ht;
        h::node_add_child(ht.root, "router-static", h::NodeKind::Container, nullptr, "urn:nowhere");
        y::Tree out;
        y::Error e = y::from_datatree(*ctx_, ht.root, out);
        ASSERT_TRUE(e);
        EXPECT_NE(e.message.find("/router-static"), std::string::npos) << e.message;
    }
}

}  // namespace

namespace {

TEST_F(YangData, ReadNetworkInstancesGetTheirConfigNameOnce)
{
    y::Tree tree;
    std::string doc = "{\"openconfig-network-instance:network-instances\":{\"network-instance\":["
                      "{\"name\":\"red\"},{\"name\":\"default\",\"config\":{\"name\":\"default\"}},"
                      "{\"name\":\"blue\",\"protocols\":{}}]}}";
    ASSERT_FALSE(parse(doc, tree));
    ASSERT_FALSE(y::complete_network_instance_names(tree));
    std::string text = json(tree);
    for (const char *name : {"red", "default", "blue"}) {
        std::string want = std::string("\"config\": {\n          \"name\": \"") + name + "\"";
        size_t at = text.find(want);
        EXPECT_NE(at, std::string::npos) << name << " in\n" << text;
        EXPECT_EQ(text.find(want, at + 1), std::string::npos) << name << " twice in\n" << text;
    }
    y::Tree empty;
    EXPECT_FALSE(y::complete_network_instance_names(empty));
    EXPECT_TRUE(empty == nullptr);
}

}  // namespace
