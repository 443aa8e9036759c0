/*
 * The YANG seam's data side: what fragments and instance paths are accepted
 * and how refusals read, canonical prefixes, and the conversion to and from
 * framework trees.
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

/* A route with next hop 1 whose config is `config`. */
std::string nh_doc(const std::string &config, const std::string &prefix = "10.1.0.0/16")
{
    return oc_doc("\"prefix\":\"" + prefix + "\",\"next-hops\":{\"next-hop\":[{\"index\":\"1\",\"config\":{" + config +
                  "}}]}");
}

const std::string kProto =
    "/network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC][name=DEFAULT]";
const std::string kNh = kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]";

struct HostTree {
    zidl_yfw_datatree *root = h::tree_new();
    ~HostTree() { h::tree_free(root); }
};

class YangData : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ctx_ = new y::Context;
        y::Error e = ctx_->open(source_dir() + "/yang");
        ASSERT_FALSE(e) << e.message;
    }
    static void TearDownTestSuite() { delete ctx_; }
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

TEST(CanonicalPrefix, ClearsHostBitsNormalisesIpv6AndRefusesWhatIsNoPrefix)
{
    struct Row {
        const char *in;
        const char *out; /* nullptr: not a prefix */
    } rows[] = {
        {"10.1.1.1/24", "10.1.1.0/24"},        {"192.0.2.255/31", "192.0.2.254/31"},
        {"192.0.2.255/32", "192.0.2.255/32"},  {"255.255.255.255/0", "0.0.0.0/0"},
        {"2001:DB8::/32", "2001:db8::/32"},    {"2001:0db8:0000:0000:0000:0000:0000:0001/128", "2001:db8::1/128"},
        {"2001:db8::1/64", "2001:db8::/64"},   {"fe80::1:2:3:5/127", "fe80::1:2:3:4/127"},
        {"::/0", "::/0"},                      {"10.0.0.0/33", nullptr},
        {"2001:db8::/129", nullptr},           {"10.0.0.0", nullptr},
        {"10.0.0.0/", nullptr},                {"/8", nullptr},
        {"10.0.0/8", nullptr},                 {"10.0.0.0/8x", nullptr},
        {"2001:db8:::/32", nullptr},           {"10.0.0.0/0008", nullptr},
    };
    for (const Row &r : rows) {
        std::string got;
        const bool ok = y::canonical_prefix(r.in, got);
        EXPECT_EQ(ok, r.out != nullptr) << r.in << " gave " << got;
        if (ok && r.out != nullptr) {
            EXPECT_EQ(got, r.out) << r.in;
        }
    }
    /* IPv4 against a mask oracle; the canonical form maps to itself. */
    std::mt19937 rng(7);
    for (int i = 0; i < 2000; ++i) {
        const uint32_t addr = rng();
        const int len = static_cast<int>(rng() % 33);
        const uint32_t mask = len == 0 ? 0 : ~0u << (32 - len);
        char in[INET_ADDRSTRLEN], want[INET_ADDRSTRLEN];
        const uint32_t a = htonl(addr), m = htonl(addr & mask);
        inet_ntop(AF_INET, &a, in, sizeof(in));
        inet_ntop(AF_INET, &m, want, sizeof(want));
        std::string got, again;
        ASSERT_TRUE(y::canonical_prefix(std::string(in) + "/" + std::to_string(len), got)) << in << "/" << len;
        EXPECT_EQ(got, std::string(want) + "/" + std::to_string(len));
        ASSERT_TRUE(y::canonical_prefix(got, again));
        EXPECT_EQ(again, got);
    }
}

/* Documents: accepted (mentions empty, or text the printed tree holds) or refused naming what is wrong. */
TEST_F(YangData, DocumentsAreAcceptedOrRefusedNamingLinePathAndCanonicalForm)
{
    const std::string native = "{\"Velmar-ORN-QZ-ip-static-cfg:router-static\":{}}";
    struct Row {
        const char *what;
        std::string text;
        bool ok;
        std::vector<std::string> mentions; /* in the message, or in the printed tree when accepted */
        y::Model model;
    } rows[] = {
        {"keys need not repeat under config", nh_doc("\"metric\":5"), true, {"\"metric\": 5"}, y::Model::kOpenConfig},
        {"empty text", "  \n", true, {}, y::Model::kOpenConfig},
        {"empty object", "{}", true, {}, y::Model::kOpenConfig},
        {"canonical prefix", oc_doc("\"prefix\":\"0.0.0.0/0\""), true, {}, y::Model::kOpenConfig},
        {"canonical address", nh_doc("\"next-hop\":\"2001:db8::1\"", "2001:db8::/32"), true, {}, y::Model::kOpenConfig},
        {"native in the native model", native, true, {}, y::Model::kNative},
        {"malformed JSON", "{\"openconfig-network-instance:network-instances\": {\n\"network-instance\": [\n", false,
         {"line 3"}, y::Model::kOpenConfig},
        {"unknown leaf", oc_doc("\"prefix\":\"10.1.0.0/16\",\"config\":{\"colour\":\"blue\"}"), false,
         {"colour", "static[prefix='10.1.0.0/16']/config"}, y::Model::kOpenConfig},
        {"wrong type", nh_doc("\"metric\":\"ten\""), false, {"ten", "next-hop[index='1']/config/metric", "line 3"},
         y::Model::kOpenConfig},
        {"metric out of range", nh_doc("\"metric\":4294967296"), false, {"4294967296", "metric"}, y::Model::kOpenConfig},
        {"unknown identity", nh_doc("\"next-hop\":\"openconfig-local-routing:BLACKHOLE\""), false,
         {"BLACKHOLE", "next-hop[index='1']/config/next-hop"}, y::Model::kOpenConfig},
        {"identity of the wrong module", nh_doc("\"next-hop\":\"openconfig-policy-types:STATIC\""), false,
         {"STATIC", "config/next-hop"}, y::Model::kOpenConfig},
        {"malformed prefix", oc_doc("\"prefix\":\"10.1.0.0/40\""), false, {"10.1.0.0/40"}, y::Model::kOpenConfig},
        {"state in an edit", oc_doc("\"prefix\":\"10.1.0.0/16\",\"state\":{\"prefix\":\"10.1.0.0/16\"}"), false,
         {"state"}, y::Model::kOpenConfig},
        {"list without its key", oc_doc("\"config\":{\"prefix\":\"10.1.0.0/16\"}"), false, {"prefix"},
         y::Model::kOpenConfig},
        {"malformed XML",
         "<network-instances xmlns=\"http://openconfig.net/yang/network-instance\">\n<network-instance>\n"
         "</network-instances>",
         false, {"line"}, y::Model::kOpenConfig},
        {"unknown module", "{\"openconfig-bgp:bgp\":{}}", false, {"openconfig-bgp"}, y::Model::kOpenConfig},
        {"native in the OpenConfig model", native, false, {"router-static"}, y::Model::kOpenConfig},
        {"OpenConfig in the native model", oc_doc("\"prefix\":\"10.1.0.0/16\""), false, {"network-instances"},
         y::Model::kNative},
        {"host bits in the key", oc_doc("\"prefix\":\"10.1.1.1/24\""), false, {"\"10.1.1.0/24\"", "]/prefix"},
         y::Model::kOpenConfig},
        {"upper case in config/prefix",
         oc_doc("\"prefix\":\"10.9.9.0/24\",\"config\":{\"prefix\":\"2001:DB8::/32\"}"), false,
         {"\"2001:db8::/32\"", "/config/prefix"}, y::Model::kOpenConfig},
        {"long zero run in the key", oc_doc("\"prefix\":\"2001:db8:0::/32\""), false, {"\"2001:db8::/32\""},
         y::Model::kOpenConfig},
        {"upper case address", nh_doc("\"next-hop\":\"2001:DB8::1\"", "2001:db8::/32"), false,
         {"\"2001:db8::1\"", "/config/next-hop"}, y::Model::kOpenConfig},
        {"leading zeros in an address", nh_doc("\"next-hop\":\"2001:0db8::1\"", "2001:db8::/32"), false,
         {"\"2001:db8::1\""}, y::Model::kOpenConfig},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        y::Tree tree;
        y::Error e = parse(r.text, tree, r.model);
        if (r.ok) {
            ASSERT_FALSE(e) << e.message;
            const std::string text = json(tree);
            if (std::string(r.what).rfind("empty", 0) == 0) {
                EXPECT_EQ(text, "{}\n");
            }
            for (const std::string &m : r.mentions)
                EXPECT_NE(text.find(m), std::string::npos) << text;
            continue;
        }
        ASSERT_TRUE(e) << "accepted";
        EXPECT_EQ(e.kind, y::Error::kInput);
        for (const std::string &m : r.mentions)
            EXPECT_NE(e.message.find(m), std::string::npos) << "\"" << m << "\" not in: " << e.message;
    }
}

/*
 * Instance paths: a good one names its target and, as a host tree, marks
 * exactly that node deleted; a bad one is an input error saying why.
 */
TEST_F(YangData, InstancePathsNameAndDeleteTheirTargetOrSayWhyNot)
{
    struct Row {
        std::string path;
        const char *target; /* schema name of the target, or the text of the error */
        bool ok, leaf;      /* leaf: a leaf the tree does not carry */
    } rows[] = {
        {kNh + "/config/metric", "metric", true, true},
        {kNh, "next-hop", true, false},
        {kProto + "/static-routes/static[prefix='2001:db8::/32']", "static", true, false},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/prefix", "static", true, false},
        {kProto + "/static-routes", "static-routes", true, false},
        {"/network-instances/network-instance[name=\"red\"]/protocols/protocol[name=DEFAULT]"
         "[identifier=openconfig-policy-types:STATIC]/static-routes",
         "static-routes", true, false},
        {"/openconfig-network-instance:network-instances", "network-instances", true, false},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index='Gi0/0/0/1]x']"
                  "/interface-ref/config/subinterface",
         "subinterface", true, true},
        {"network-instances", "must start with /", false, false},
        {"/network-instances/network-instance", "needs its key \"name\"", false, false},
        {kProto + "/static-routes/static[prefix=10.0.0.1/24]", "\"10.0.0.0/24\"", false, false},
        {kNh + "/config/colour", "colour", false, false},
        {kProto + "/static-routes/static[prefix=banana]", "banana", false, false},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/config/metric", "metric", false, false},
        {"/network-instances/network-instance[name=default]/protocols/protocol[identifier=BGPX][name=DEFAULT]", "BGPX",
         false, false},
        {"/network-instances/network-instance[name=default][vrf=x]", "keys other than its own", false, false},
        {"/network-instances[name=default]", "not a list", false, false},
        {kProto + "/static-routes/static[prefix=10.0.0.0/24]/config/prefix/extra", "must end the path", false, false},
        {"/network-instances/network-instance[name='default]", "unterminated", false, false},
        {"/network-instances//network-instance[name=a]", "empty step", false, false},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.path);
        y::Tree tree;
        y::PathTarget t;
        y::Error e = y::parse_instance_path(*ctx_, r.path, y::Model::kOpenConfig, tree, t);
        if (!r.ok) {
            ASSERT_TRUE(e) << "accepted";
            EXPECT_EQ(e.kind, y::Error::kInput);
            EXPECT_NE(e.message.find(r.target), std::string::npos) << e.message;
            continue;
        }
        ASSERT_FALSE(e) << e.message;
        EXPECT_STREQ(r.leaf ? t.leaf->name : LYD_NAME(t.node), r.target);
        EXPECT_EQ(r.leaf, t.node == nullptr);
        EXPECT_EQ(r.leaf, t.leaf != nullptr);
        if (r.path.find("'") != std::string::npos || r.path.find("openconfig-") != std::string::npos)
            continue;
        HostTree ht;
        y::HostTreeSink sink;
        ASSERT_FALSE(y::to_datatree(tree, sink, ht.root, YFW_DT_OP_NONE, &t));
        std::vector<std::string> deletes;
        for (const std::string &l : h::tree_lines(ht.root))
            if (l.find("(delete)") != std::string::npos)
                deletes.push_back(l);
        const std::string target = r.target == std::string("static") ? kProto + "/static-routes/static[prefix=10.0.0.0/24]"
                                                                    : r.path;
        EXPECT_EQ(deletes, std::vector<std::string>{target + " (delete)"}) << h::tree_dump(ht.root);
    }
}

TEST_F(YangData, HostTreeCarriesKeysAndIdentitiesAsBareNamesWithTheirModuleNamespace)
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
    const std::string dump = h::tree_dump(ht.root, opt);
    const std::string st = kProto + "/static-routes/static[prefix=10.1.0.0/16]";
    const std::string ni = " {http://openconfig.net/yang/network-instance}";
    for (const std::string &line : {
             kProto + "/identifier = STATIC" + ni + " {http://openconfig.net/yang/policy-types}",
             st + "/next-hops/next-hop[index=d]/config/next-hop = DROP" + ni + " {http://openconfig.net/yang/local-routing}",
             st + "/next-hops/next-hop[index=a]/config/next-hop = 192.0.2.1" + ni,
             st + "/next-hops/next-hop[index=a]/config/metric = 7" + ni,
             st + "/config/set-tag = 0x1f" + ni,
         })
        EXPECT_NE(dump.find(line + "\n"), std::string::npos) << "missing: " << line << "\nin:\n" << dump;
    zidl_yfw_datatree *nh = h::tree_find(ht.root, (st + "/next-hops/next-hop[index=a]").c_str());
    ASSERT_NE(nh, nullptr);
    EXPECT_TRUE(nh->flags & YFW_DT_F_LIST);
    EXPECT_EQ(h::node_child(nh, "index")->flags & (YFW_DT_F_LIST | YFW_DT_F_VALUE), YFW_DT_F_LIST | YFW_DT_F_VALUE);
    EXPECT_FALSE(h::tree_find(ht.root, (st + "/next-hops/next-hop[index=a]/config/metric").c_str())->flags &
                 YFW_DT_F_LIST);
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
    const std::string text = json(out);
    EXPECT_EQ(text.find("gone"), std::string::npos) << text;
    EXPECT_NE(text.find("\"identifier\": \"openconfig-policy-types:STATIC\""), std::string::npos) << text;
    EXPECT_NE(text.find("\"set-tag\": 20"), std::string::npos) << text;
    EXPECT_EQ(text.find("\"set-tag\": 10"), std::string::npos) << text;
    const size_t first = text.find("\"name\": \"default\"");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(text.find("\"name\": \"default\"", first + 1), std::string::npos) << "one network instance:\n" << text;
}

TEST_F(YangData, HostTreeTheSchemaRefusesIsAnInternalErrorNamingThePath)
{
    struct Row {
        const char *what;
        void (*build)(zidl_yfw_datatree *root);
        const char *mentions;
    } rows[] = {
        {"unknown leaf",
         [](zidl_yfw_datatree *root) {
             zidl_yfw_datatree *nis =
                 h::node_add_child(root, "network-instances", h::NodeKind::Container, nullptr, y::kNetworkInstanceNs);
             zidl_yfw_datatree *inst = h::node_add_entry(nis, "network-instance", {{"name", "x"}}, y::kNetworkInstanceNs);
             h::node_add_child(inst, "colour", h::NodeKind::Leaf, "blue", y::kNetworkInstanceNs);
         },
         "/network-instances/network-instance/colour"},
        {"entry without its key",
         [](zidl_yfw_datatree *root) {
             zidl_yfw_datatree *rs = h::node_add_child(root, "router-static", h::NodeKind::Container, nullptr, y::kNativeNs);
             zidl_yfw_datatree *vrfs = h::node_add_child(rs, "vrfs", h::NodeKind::Container, nullptr, y::kNativeNs);
             h::node_add_child(vrfs, "vrf", h::NodeKind::Entry, nullptr, y::kNativeNs);
         },
         "without its key vrf-name"},
        {"unknown namespace",
         [](zidl_yfw_datatree *root) {
             h::node_add_child(root, "router-static", h::NodeKind::Container, nullptr, "urn:nowhere");
         },
         "/router-static"},
    };
    for (const Row &r : rows) {
        HostTree ht;
        r.build(ht.root);
        y::Tree out;
        y::Error e = y::from_datatree(*ctx_, ht.root, out);
        ASSERT_TRUE(e) << r.what;
        EXPECT_EQ(e.kind, y::Error::kInternal) << r.what;
        EXPECT_NE(e.message.find(r.mentions), std::string::npos) << r.what << ": " << e.message;
        EXPECT_TRUE(out == nullptr) << r.what;
    }
}

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

} // namespace
