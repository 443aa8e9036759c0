/*
 * The YANG seam: our modules against the published ones, documents and
 * instance paths accepted or refused, canonical prefixes, host trees.
 */
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "cli_fixture.h"
#include "host/tree.h"
#include "yang_context.h"
#include "yang_data.h"

namespace y = ocni::yang;
namespace h = ocni::host;

namespace {

std::string source_dir() { return ocni::test::env("OCNI_SOURCE_DIR", "."); }
const std::string kPublished = source_dir() + "/../shared/openconfig";
bool have_published()
{
    return std::ifstream(kPublished + "/release/models/network-instance/openconfig-network-instance.yang").good();
}

/* Resolves a module-less schema path ("/router-static/vrfs/vrf") in one module. */
const lysc_node *resolve(const y::Context &ctx, const char *module, const std::string &path)
{
    const lys_module *mod = ly_ctx_get_module_implemented(ctx.raw(), module);
    const lysc_node *node = nullptr;
    std::stringstream s(path);
    std::string step;
    while (mod != nullptr && std::getline(s, step, '/'))
        if (!step.empty() && (node = lys_find_child(node, mod, step.c_str(), 0, 0, 0)) == nullptr)
            return nullptr;
    return mod != nullptr ? node : nullptr;
}

std::string keys_of(const lysc_node *list)
{
    std::string out;
    for (const lysc_node *k = list ? lysc_node_child(list) : nullptr; k != nullptr && lysc_is_key(k); k = k->next)
        out += (out.empty() ? "" : " ") + std::string(k->name);
    return out;
}

/* A fragment with one static route in network instance `vrf`; `route` is the body of the static entry. */
std::string oc_doc(const std::string &route, const std::string &vrf = "default")
{
    return "{\"openconfig-network-instance:network-instances\":{\"network-instance\":[{\"name\":\"" + vrf +
           "\",\n\"protocols\":{\"protocol\":[{\"identifier\":\"openconfig-policy-types:STATIC\",\"name\":\"DEFAULT\",\n"
           "\"static-routes\":{\"static\":[{" + route + "}]}}]}}]}}";
}
/* A route with next hop 1 whose config is `config`. */
std::string nh_doc(const std::string &config, const std::string &prefix = "10.1.0.0/16")
{
    return oc_doc("\"prefix\":\"" + prefix + "\",\"next-hops\":{\"next-hop\":[{\"index\":\"1\",\"config\":{" + config + "}}]}");
}

const std::string kProto =
    "/network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC][name=DEFAULT]";
const std::string kStatic = kProto + "/static-routes/static[prefix=10.0.0.0/24]";
const std::string kNh = kStatic + "/next-hops/next-hop[index=1]";

struct HostTree {
    zidl_yfw_datatree *root = h::tree_new();
    ~HostTree() { h::tree_free(root); }
};

class Yang : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ctx_ = new y::Context;
        y::Error e = ctx_->open(source_dir() + "/yang");
        ASSERT_FALSE(e) << e.message;
    }
    static void TearDownTestSuite() { delete ctx_; }
    static y::Context *ctx_;

    /* An edit document as the tools read it: parsed, and for OpenConfig its prefixes canonical. */
    static y::Error parse(const y::Context &ctx, const std::string &text, y::Tree &tree, bool native = false)
    {
        y::Error e = y::parse_fragment(ctx, text, y::Format::kAuto, native ? y::Model::kNative : y::Model::kOpenConfig, tree);
        return !e && !native ? y::check_canonical_prefixes(tree) : e;
    }
    static std::string json(const y::Tree &tree)
    {
        std::string out;
        y::Error e = y::print_json(tree, out);
        EXPECT_FALSE(e) << e.message;
        return out;
    }
};
y::Context *Yang::ctx_ = nullptr;

/* Every node of the project's OpenConfig subset, with its path. */
void collect(const lysc_node *node, const std::string &parent, std::vector<std::pair<std::string, const lysc_node *>> &out)
{
    for (; node != nullptr; node = node->next) {
        const std::string path = parent + "/" + node->name;
        out.emplace_back(path, node);
        collect(lysc_node_child(node), path, out);
    }
}

LY_DATA_TYPE base_type(const lysc_node *leaf)
{
    const lysc_type *t = reinterpret_cast<const lysc_node_leaf *>(leaf)->type;
    return t->basetype == LY_TYPE_LEAFREF ? reinterpret_cast<const lysc_type_leafref *>(t)->realtype->basetype : t->basetype;
}

/* The OpenConfig subset agrees with the published modules, and every example validates against those too. */
TEST_F(Yang, OpenConfigSubsetAgreesWithThePublishedModulesAndTheExamplesValidateAgainstThem)
{
    if (!have_published())
        GTEST_SKIP() << "published modules not found at " << kPublished;
    y::Context published;
    y::Error e = published.open(source_dir() + "/yang", kPublished);
    ASSERT_FALSE(e) << e.message;
    std::vector<std::pair<std::string, const lysc_node *>> nodes;
    collect(ly_ctx_get_module_implemented(ctx_->raw(), y::kNetworkInstanceModule)->compiled->data, "", nodes);
    ASSERT_GT(nodes.size(), 50u);
    for (const auto &[path, node] : nodes) {
        const lysc_node *theirs = resolve(published, y::kNetworkInstanceModule, path);
        ASSERT_NE(theirs, nullptr) << path << " is not in the published module";
        EXPECT_EQ(node->nodetype, theirs->nodetype) << path;
        EXPECT_EQ(node->flags & LYS_CONFIG_MASK, theirs->flags & LYS_CONFIG_MASK) << path;
        EXPECT_EQ(node->nodetype == LYS_LIST ? keys_of(node) : "", node->nodetype == LYS_LIST ? keys_of(theirs) : "") << path;
        EXPECT_EQ(node->nodetype & LYS_LEAF ? base_type(node) : 0, node->nodetype & LYS_LEAF ? base_type(theirs) : 0) << path;
    }
    int valid = 0, invalid = 0;
    for (const auto &f : std::filesystem::directory_iterator(source_dir() + "/examples")) {
        const std::string name = f.path().filename(), ext = f.path().extension();
        if (ext != ".json" && ext != ".xml")
            continue;
        y::Tree tree;
        y::Error pe = parse(published, ocni::test::read_file(f.path()), tree, name.rfind("native", 0) == 0);
        const bool bad = name.rfind("invalid", 0) == 0;
        (bad ? invalid : valid)++;
        EXPECT_EQ(bool(pe), bad) << name << ": " << pe.message;
        EXPECT_NE(bad ? pe.message.find("network-instance[name='default']") : 0, std::string::npos) << name << ": " << pe.message;
    }
    EXPECT_GE(valid, 7);
    EXPECT_GE(invalid, 2);
}

TEST(CanonicalPrefix, ClearsHostBitsNormalisesIpv6AndRefusesWhatIsNoPrefix)
{
    const std::pair<const char *, const char *> rows[] = { /* second nullptr: not a prefix */
        {"10.1.1.1/24", "10.1.1.0/24"},     {"192.0.2.255/31", "192.0.2.254/31"}, {"192.0.2.255/32", "192.0.2.255/32"},
        {"255.255.255.255/0", "0.0.0.0/0"}, {"2001:DB8::/32", "2001:db8::/32"},  {"2001:db8::1/64", "2001:db8::/64"},
        {"2001:0db8:0000:0000:0000:0000:0000:0001/128", "2001:db8::1/128"},     {"fe80::1:2:3:5/127", "fe80::1:2:3:4/127"},
        {"::/0", "::/0"},             {"10.0.0.0/33", nullptr}, {"2001:db8::/129", nullptr}, {"10.0.0.0", nullptr},
        {"10.0.0.0/", nullptr},       {"/8", nullptr},          {"10.0.0/8", nullptr},       {"10.0.0.0/8x", nullptr},
        {"2001:db8:::/32", nullptr},  {"10.0.0.0/0008", nullptr}, {"10.255.255.255/17", "10.255.128.0/17"},
        {"10.1.2.3/9", "10.0.0.0/9"}, {"2001:db8:ffff::/33", "2001:db8:8000::/33"}};
    for (const auto &[in, out] : rows) {
        std::string got;
        EXPECT_EQ(y::canonical_prefix(in, got), out != nullptr) << in << " gave " << got;
        EXPECT_EQ(got, out != nullptr ? out : got) << in;
    }
}

/* Documents: accepted (mentions in the printed tree, "{}" when empty) or refused, the message naming what is wrong. */
TEST_F(Yang, DocumentsAreAcceptedOrRefusedNamingLinePathAndCanonicalForm)
{
    const std::string native = "{\"Velmar-ORN-QZ-ip-static-cfg:router-static\":{}}";
    struct Row { const char *what; std::string text; bool ok; std::vector<std::string> mentions; bool native = false; } rows[] = {
        {"keys need not repeat under config", nh_doc("\"metric\":5"), true, {"\"metric\": 5"}},
        {"empty text", "  \n", true, {"{}\n"}},
        {"empty object", "{}", true, {"{}\n"}},
        {"canonical prefix", oc_doc("\"prefix\":\"0.0.0.0/0\""), true, {"0.0.0.0/0"}},
        {"canonical address", nh_doc("\"next-hop\":\"2001:db8::1\"", "2001:db8::/32"), true, {"2001:db8::1"}},
        {"native in the native model", native, true, {}, true},
        {"malformed JSON", "{\"openconfig-network-instance:network-instances\": {\n\"network-instance\": [\n", false, {"line 3"}},
        {"unknown leaf", oc_doc("\"prefix\":\"10.1.0.0/16\",\"config\":{\"colour\":\"blue\"}"), false, {"colour", "static[prefix='10.1.0.0/16']/config"}},
        {"wrong type", nh_doc("\"metric\":\"ten\""), false, {"ten", "next-hop[index='1']/config/metric", "line 3"}},
        {"metric out of range", nh_doc("\"metric\":4294967296"), false, {"4294967296", "metric"}},
        {"unknown identity", nh_doc("\"next-hop\":\"openconfig-local-routing:BLACKHOLE\""), false, {"BLACKHOLE", "next-hop[index='1']/config/next-hop"}},
        {"identity of the wrong module", nh_doc("\"next-hop\":\"openconfig-policy-types:STATIC\""), false, {"STATIC", "config/next-hop"}},
        {"malformed prefix", oc_doc("\"prefix\":\"10.1.0.0/40\""), false, {"10.1.0.0/40"}},
        {"state in an edit", oc_doc("\"prefix\":\"10.1.0.0/16\",\"state\":{\"prefix\":\"10.1.0.0/16\"}"), false, {"state"}},
        {"list without its key", oc_doc("\"config\":{\"prefix\":\"10.1.0.0/16\"}"), false, {"prefix"}},
        {"malformed XML", "<network-instances xmlns=\"http://openconfig.net/yang/network-instance\">\n<network-instance>\n</network-instances>", false, {"line"}},
        {"unknown module", "{\"openconfig-bgp:bgp\":{}}", false, {"openconfig-bgp"}},
        {"native in the OpenConfig model", native, false, {"router-static"}},
        {"OpenConfig in the native model", oc_doc("\"prefix\":\"10.1.0.0/16\""), false, {"network-instances"}, true},
        {"host bits in the key", oc_doc("\"prefix\":\"10.1.1.1/24\""), false, {"\"10.1.1.0/24\"", "]/prefix"}},
        {"upper case in config/prefix", oc_doc("\"prefix\":\"10.9.9.0/24\",\"config\":{\"prefix\":\"2001:DB8::/32\"}"), false, {"\"2001:db8::/32\"", "/config/prefix"}},
        {"long zero run in the key", oc_doc("\"prefix\":\"2001:db8:0::/32\""), false, {"\"2001:db8::/32\""}},
        {"upper case address", nh_doc("\"next-hop\":\"2001:DB8::1\"", "2001:db8::/32"), false, {"\"2001:db8::1\"", "/config/next-hop"}},
        {"leading zeros in an address", nh_doc("\"next-hop\":\"2001:0db8::1\"", "2001:db8::/32"), false, {"\"2001:db8::1\""}},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        y::Tree tree;
        y::Error e = parse(*ctx_, r.text, tree, r.native);
        ASSERT_EQ(bool(e), !r.ok) << e.message;
        EXPECT_EQ(e.kind, r.ok ? e.kind : y::Error::kInput);
        const std::string text = r.ok ? json(tree) : e.message;
        for (const std::string &m : r.mentions)
            EXPECT_NE(text.find(m), std::string::npos) << "\"" << m << "\" not in: " << text;
    }
}

/* Instance paths: a good one names its target and, as a host tree, marks exactly that node deleted; a bad one says why. */
TEST_F(Yang, InstancePathsNameAndDeleteTheirTargetOrSayWhyNot)
{
    /* target: schema name of the target, or the text of the error; leaf: a leaf the tree does not carry */
    struct Row { std::string path; const char *target; bool ok, leaf; } rows[] = {
        {kNh + "/config/metric", "metric", true, true}, {kNh, "next-hop", true, false},
        {kProto + "/static-routes/static[prefix='2001:db8::/32']", "static", true, false},
        {kStatic + "/prefix", "static", true, false},
        {kProto + "/static-routes", "static-routes", true, false},
        {"/network-instances/network-instance[name=\"red\"]/protocols/protocol[name=DEFAULT][identifier=openconfig-policy-types:STATIC]/static-routes", "static-routes", true, false},
        {"/openconfig-network-instance:network-instances", "network-instances", true, false},
        {kStatic + "/next-hops/next-hop[index='Gi0/0/0/1]x']/interface-ref/config/subinterface", "subinterface", true, true},
        {"network-instances", "must start with /", false, false},
        {"/network-instances/network-instance", "needs its key \"name\"", false, false},
        {kProto + "/static-routes/static[prefix=10.0.0.1/24]", "\"10.0.0.0/24\"", false, false},
        {kNh + "/config/colour", "colour", false, false},
        {kProto + "/static-routes/static[prefix=banana]", "banana", false, false},
        {kStatic + "/config/metric", "metric", false, false},
        {"/network-instances/network-instance[name=default]/protocols/protocol[identifier=BGPX][name=DEFAULT]", "BGPX", false, false},
        {"/network-instances/network-instance[name=default][vrf=x]", "keys other than its own", false, false},
        {"/network-instances[name=default]", "not a list", false, false},
        {kStatic + "/config/prefix/extra", "must end the path", false, false},
        {"/network-instances/network-instance[name='default]", "unterminated", false, false},
        {"/network-instances//network-instance[name=a]", "empty step", false, false},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.path);
        y::Tree tree;
        y::PathTarget t;
        y::Error e = y::parse_instance_path(*ctx_, r.path, y::Model::kOpenConfig, tree, t);
        ASSERT_EQ(bool(e), !r.ok) << e.message;
        if (!r.ok) {
            EXPECT_EQ(e.kind, y::Error::kInput);
            EXPECT_NE(e.message.find(r.target), std::string::npos) << e.message;
            continue;
        }
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
        EXPECT_EQ(deletes, std::vector<std::string>{(r.target == std::string("static") ? kStatic : r.path) + " (delete)"});
    }
}

TEST_F(Yang, RoundTripThroughTheHostTreePrintsTheSameDocument)
{
    for (const std::string &route : {
             std::string("\"prefix\":\"10.1.0.0/16\",\"config\":{\"prefix\":\"10.1.0.0/16\",\"set-tag\":100,\"description\":\"x\"},"
                         "\"next-hops\":{\"next-hop\":[{\"index\":\"1\",\"config\":{\"index\":\"1\",\"next-hop\":\"192.0.2.1\",\"metric\":10}},"
                         "{\"index\":\"2\",\"config\":{\"next-hop\":\"openconfig-local-routing:LOCAL_LINK\"},"
                         "\"interface-ref\":{\"config\":{\"interface\":\"Gi0/0/0/1\",\"subinterface\":5}},"
                         "\"enable-bfd\":{\"config\":{\"enabled\":true}}}]}"),
             std::string("\"prefix\":\"2001:db8::/32\"")}) {
        y::Tree in, out;
        ASSERT_FALSE(parse(*ctx_, oc_doc(route, "red"), in));
        HostTree ht;
        y::HostTreeSink sink;
        ASSERT_FALSE(y::to_datatree(in, sink, ht.root));
        y::Error e = y::from_datatree(*ctx_, ht.root, out);
        ASSERT_FALSE(e) << e.message;
        EXPECT_EQ(json(in), json(out));
    }
}

TEST_F(Yang, HostTreeWithRepeatsMergesEntriesAndKeepsTheLastLeafValue)
{
    HostTree ht;
    const char *ni = y::kNetworkInstanceNs;
    h::NodeRef nis = h::node_ref(h::node_add_child(ht.root, "network-instances", h::NodeKind::Container, nullptr, ni));
    for (const char *tag : {"10", "20"}) { /* each next hop writes its own copy of the parents, as read callbacks do */
        zidl_yfw_datatree *inst = h::node_add_entry(h::node_get(nis), "network-instance", {{"name", "default"}}, ni);
        zidl_yfw_datatree *protos = h::node_add_child(inst, "protocols", h::NodeKind::Container, nullptr, ni);
        zidl_yfw_datatree *proto = h::node_add_entry(protos, "protocol", {{"identifier", "STATIC"}, {"name", "DEFAULT"}}, ni);
        h::node_set_data_ns(h::node_child(proto, "identifier"), y::kPolicyTypesNs);
        zidl_yfw_datatree *routes = h::node_add_child(proto, "static-routes", h::NodeKind::Container, nullptr, ni);
        zidl_yfw_datatree *st = h::node_add_entry(routes, "static", {{"prefix", "10.1.0.0/16"}}, ni);
        h::node_add_child(h::node_add_child(st, "config", h::NodeKind::Container, nullptr, ni), "set-tag", h::NodeKind::Leaf, tag, ni);
    }
    h::node_set_op(h::node_add_entry(h::node_get(nis), "network-instance", {{"name", "gone"}}, ni), YFW_DT_OP_DELETE);
    y::Tree out;
    y::Error e = y::from_datatree(*ctx_, ht.root, out);
    ASSERT_FALSE(e) << e.message;
    const std::string text = json(out);
    EXPECT_EQ(text.find("gone"), std::string::npos) << "a deleted node never shows:\n" << text;
    EXPECT_NE(text.find("\"identifier\": \"openconfig-policy-types:STATIC\""), std::string::npos) << text;
    EXPECT_NE(text.find("\"set-tag\": 20"), std::string::npos) << text;
    EXPECT_EQ(text.find("\"set-tag\": 10"), std::string::npos) << text;
    const size_t first = text.find("\"name\": \"default\"");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(text.find("\"name\": \"default\"", first + 1), std::string::npos) << "one network instance:\n" << text;
}

TEST_F(Yang, HostTreeTheSchemaRefusesIsAnInternalErrorNamingThePath)
{
    using Build = void (*)(zidl_yfw_datatree *);
    const std::tuple<const char *, Build, const char *> rows[] = {
        {"unknown leaf", [](zidl_yfw_datatree *r) {
             const char *ns = y::kNetworkInstanceNs;
             zidl_yfw_datatree *nis = h::node_add_child(r, "network-instances", h::NodeKind::Container, nullptr, ns);
             h::node_add_child(h::node_add_entry(nis, "network-instance", {{"name", "x"}}, ns), "colour", h::NodeKind::Leaf, "blue", ns);
         }, "/network-instances/network-instance/colour"},
        {"entry without its key", [](zidl_yfw_datatree *r) {
             zidl_yfw_datatree *rs = h::node_add_child(r, "router-static", h::NodeKind::Container, nullptr, y::kNativeNs);
             h::node_add_child(h::node_add_child(rs, "vrfs", h::NodeKind::Container, nullptr, y::kNativeNs), "vrf",
                               h::NodeKind::Entry, nullptr, y::kNativeNs);
         }, "without its key vrf-name"},
        {"unknown namespace", [](zidl_yfw_datatree *r) {
             h::node_add_child(r, "router-static", h::NodeKind::Container, nullptr, "urn:nowhere");
         }, "/router-static"}};
    for (const auto &[what, build, mentions] : rows) {
        SCOPED_TRACE(what);
        HostTree ht;
        build(ht.root);
        y::Tree out;
        y::Error e = y::from_datatree(*ctx_, ht.root, out);
        ASSERT_TRUE(e);
        EXPECT_EQ(e.kind, y::Error::kInternal);
        EXPECT_NE(e.message.find(mentions), std::string::npos) << e.message;
        EXPECT_TRUE(out == nullptr);
    }
}

} // namespace
