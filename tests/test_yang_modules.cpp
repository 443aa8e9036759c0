/*
 * The project's YANG modules: they load, they carry every schema node the
 * plug-in names, their OpenConfig side agrees with the published modules,
 * and every example validates as a fragment against both.
 */
#include <dirent.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "yang_context.h"
#include "yang_data.h"

namespace y = ocni::yang;

namespace {

std::string source_dir()
{
    const char *s = getenv("OCNI_SOURCE_DIR");
    return s != nullptr ? s : ".";
}

std::string published_dir()
{
    return source_dir() + "/../shared/openconfig";
}

bool have_published()
{
    std::ifstream f(published_dir() + "/release/models/network-instance/openconfig-network-instance.yang");
    return f.good();
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> split(const std::string &path)
{
    std::vector<std::string> out;
    std::stringstream s(path);
    std::string step;
    while (std::getline(s, step, '/'))
        if (!step.empty())
            out.push_back(step);
    return out;
}

/* Resolves a module-less schema path ("/router-static/vrfs/vrf") in one module. */
const lysc_node *resolve(const y::Context &ctx, const char *module, const std::string &path)
{
    const lys_module *mod = ly_ctx_get_module_implemented(ctx.raw(), module);
    if (mod == nullptr)
        return nullptr;
    const lysc_node *node = nullptr;
    for (const std::string &step : split(path)) {
        node = lys_find_child(node, mod, step.c_str(), 0, 0, 0);
        if (node == nullptr)
            return nullptr;
    }
    return node;
}

std::string keys_of(const lysc_node *list)
{
    std::string out;
    for (const lysc_node *k = lysc_node_child(list); k != nullptr && lysc_is_key(k); k = k->next)
        out += (out.empty() ? "" : " ") + std::string(k->name);
    return out;
}

LY_DATA_TYPE base_type(const lysc_node *leaf)
{
    const lysc_type *t = reinterpret_cast<const lysc_node_leaf *>(leaf)->type;
    if (t->basetype == LY_TYPE_LEAFREF)
        t = reinterpret_cast<const lysc_type_leafref *>(t)->realtype;
    return t->basetype;
}

class ProjectModules : public ::testing::Test {
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
        ctx_ = nullptr;
    }
    static y::Context *ctx_;
};
y::Context *ProjectModules::ctx_ = nullptr;

TEST_F(ProjectModules, ModulesCarryTheNamespacesAndIdentitiesThePluginUses)
{
    struct Row {
        const char *module;
        const char *ns;
    } rows[] = {
        {y::kNativeModule, "urn:velmar:yang:ip-static-cfg"},
        {y::kOperModule, "urn:velmar:yang:private-ocni-local-routing-oper"},
        {y::kNetworkInstanceModule, "http://openconfig.net/yang/network-instance"},
        {y::kLocalRoutingModule, "http://openconfig.net/yang/local-routing"},
        {y::kPolicyTypesModule, "http://openconfig.net/yang/policy-types"},
    };
    for (const Row &r : rows) {
        const lys_module *m = ly_ctx_get_module_implemented(ctx_->raw(), r.module);
        ASSERT_NE(m, nullptr) << r.module;
        EXPECT_STREQ(m->ns, r.ns) << r.module;
        EXPECT_EQ(ly_ctx_get_module_implemented_ns(ctx_->raw(), r.ns), m);
    }
    /* Identities the edits name live in their published modules. */
    struct Identity {
        const char *module, *name;
    } identities[] = {{y::kPolicyTypesModule, "STATIC"}, {y::kLocalRoutingModule, "DROP"},
                      {y::kLocalRoutingModule, "LOCAL_LINK"}};
    for (const Identity &r : identities) {
        const lys_module *m = ly_ctx_get_module_implemented(ctx_->raw(), r.module);
        ASSERT_NE(m, nullptr);
        bool found = false;
        LY_ARRAY_COUNT_TYPE u;
        LY_ARRAY_FOR(m->identities, u)
        {
            found = found || strcmp(m->identities[u].name, r.name) == 0;
        }
        EXPECT_TRUE(found) << r.module << ":" << r.name;
    }
}

TEST_F(ProjectModules, NativeTreeHasEveryTableAndAttributeInBothFamiliesAndVrfKinds)
{
    struct Table {
        const char *name;
        const char *keys;
    } tables[] = {
        {"vrf-next-hop-interface-name", "interface-name"},
        {"vrf-next-hop-interface-name-next-hop-address", "interface-name next-hop-address"},
        {"vrf-next-hop-next-hop-address", "next-hop-address"},
    };
    const char *attributes[] = {"index",      "metric",    "tag",       "description", "bfd-fast-detect",
                                "detect-multiplier", "minimum-interval", "permanent", "vrf-lable",
                                "tunnel-id",  "load-metric", "object-name"};
    for (const char *root : {"/router-static/default-vrf", "/router-static/vrfs/vrf"}) {
        for (const char *af : {"vrfipv4", "vrfipv6"}) {
            std::string prefix = std::string(root) + "/address-family/" + af + "/vrf-unicast/vrf-prefixes/vrf-prefix";
            const lysc_node *p = resolve(*ctx_, y::kNativeModule, prefix);
            ASSERT_NE(p, nullptr) << prefix;
            EXPECT_EQ(keys_of(p), "prefix prefix-length") << prefix;
            for (const Table &t : tables) {
                std::string table = prefix + "/vrf-route/vrf-next-hop-table/" + t.name;
                const lysc_node *l = resolve(*ctx_, y::kNativeModule, table);
                ASSERT_NE(l, nullptr) << table;
                EXPECT_EQ(l->nodetype, LYS_LIST) << table;
                EXPECT_EQ(keys_of(l), t.keys) << table;
                for (const char *a : attributes)
                    EXPECT_NE(resolve(*ctx_, y::kNativeModule, table + "/" + a), nullptr) << table << "/" << a;
            }
        }
    }
    const lysc_node *vrf = resolve(*ctx_, y::kNativeModule, "/router-static/vrfs/vrf");
    ASSERT_NE(vrf, nullptr);
    EXPECT_EQ(keys_of(vrf), "vrf-name");
}

TEST_F(ProjectModules, OperationalTreeHasEveryLeafTheStateRequestNames)
{
    const std::string route = "network-instances/network-instance/protocols/protocol/static-routes/static-route/";
    const std::string hop = route + "next-hops/next-hop/";
    const std::string leaves[] = {
        "network-instances/network-instance/name", route + "prefix",  route + "static-routes-state/prefix",
        route + "static-routes-state/set-tag",     route + "static-routes-state/description", hop + "index",
        hop + "state/index",                       hop + "state/next-hop", hop + "state/metric",
        hop + "interface-ref/state/interface",     hop + "interface-ref/state/subinterface",
        hop + "enable-bfd/state/enabled",
    };
    for (const char *af : {"vrfipv4", "vrfipv6"}) {
        const std::string base = std::string("/ocni/") + af + "/";
        for (const std::string &leaf : leaves) {
            const lysc_node *n = resolve(*ctx_, y::kOperModule, base + leaf);
            ASSERT_NE(n, nullptr) << base + leaf;
            EXPECT_TRUE(n->nodetype & LYS_LEAF) << base + leaf;
        }
        EXPECT_EQ(keys_of(resolve(*ctx_, y::kOperModule, base + "network-instances/network-instance")), "name");
        EXPECT_EQ(keys_of(resolve(*ctx_, y::kOperModule, base + route)), "prefix");
        EXPECT_EQ(keys_of(resolve(*ctx_, y::kOperModule, base + hop)), "index");
    }
}

/* Every node of the project's OpenConfig subset, as "path kind type" lines. */
void collect(const lysc_node *node, const std::string &parent, std::vector<std::pair<std::string, const lysc_node *>> &out)
{
    for (; node != nullptr; node = node->next) {
        std::string path = parent + "/" + node->name;
        out.emplace_back(path, node);
        collect(lysc_node_child(node), path, out);
    }
}

TEST_F(ProjectModules, OpenConfigSubsetAgreesWithThePublishedModules)
{
    if (!have_published())
        GTEST_SKIP() << "published modules not found at " << published_dir();
    y::Context published;
    y::Error e = published.open(source_dir() + "/yang", published_dir());
    ASSERT_FALSE(e) << e.message;

    const lys_module *ours = ly_ctx_get_module_implemented(ctx_->raw(), y::kNetworkInstanceModule);
    ASSERT_NE(ours, nullptr);
    std::vector<std::pair<std::string, const lysc_node *>> nodes;
    collect(ours->compiled->data, "", nodes);
    ASSERT_GT(nodes.size(), 50u);
    for (const auto &[path, node] : nodes) {
        const lysc_node *theirs = resolve(published, y::kNetworkInstanceModule, path);
        ASSERT_NE(theirs, nullptr) << path << " is not in the published module";
        EXPECT_EQ(node->nodetype, theirs->nodetype) << path;
        EXPECT_EQ(node->flags & LYS_CONFIG_MASK, theirs->flags & LYS_CONFIG_MASK) << path;
        if (node->nodetype == LYS_LIST) {
            EXPECT_EQ(keys_of(node), keys_of(theirs)) << path;
        }
        if (node->nodetype & LYS_LEAF) {
            EXPECT_EQ(base_type(node), base_type(theirs)) << path;
        }
    }
}

std::vector<std::string> example_files()
{
    std::vector<std::string> out;
    std::string dir = source_dir() + "/examples";
    DIR *d = opendir(dir.c_str());
    if (d == nullptr)
        return out;
    while (dirent *e = readdir(d)) {
        std::string n = e->d_name;
        if (n.size() > 5 && (n.substr(n.size() - 5) == ".json" || n.substr(n.size() - 4) == ".xml"))
            out.push_back(n);
    }
    closedir(d);
    std::sort(out.begin(), out.end());
    return out;
}

struct SchemaSet {
    const char *label;
    bool published;
};

class ExampleValidation : public ::testing::TestWithParam<SchemaSet> {};

TEST_P(ExampleValidation, EveryExampleIsAValidFragmentAndEveryInvalidOneIsRefused)
{
    if (GetParam().published && !have_published())
        GTEST_SKIP() << "published modules not found";
    y::Context ctx;
    y::Error e = ctx.open(source_dir() + "/yang", GetParam().published ? published_dir() : "");
    ASSERT_FALSE(e) << e.message;

    std::vector<std::string> files = example_files();
    ASSERT_GE(files.size(), 8u);
    int valid = 0, invalid = 0;
    for (const std::string &name : files) {
        std::string text = read_file(source_dir() + "/examples/" + name);
        y::Model model = name.rfind("native", 0) == 0 ? y::Model::kNative : y::Model::kOpenConfig;
        y::Tree tree;
        y::Error pe = y::parse_fragment(ctx, text, y::Format::kAuto, model, tree);
        if (!pe && model == y::Model::kOpenConfig)
            pe = y::check_canonical_prefixes(tree);
        if (name.rfind("invalid", 0) == 0) {
            ++invalid;
            ASSERT_TRUE(pe) << name << " was accepted";
            EXPECT_EQ(pe.kind, y::Error::kInput) << name;
            EXPECT_NE(pe.message.find("network-instance[name='default']"), std::string::npos)
                << name << ": " << pe.message;
        } else {
            ++valid;
            EXPECT_FALSE(pe) << name << ": " << pe.message;
            EXPECT_TRUE(tree != nullptr) << name;
        }
    }
    EXPECT_GE(valid, 7);
    EXPECT_GE(invalid, 2);
}

INSTANTIATE_TEST_SUITE_P(BothSchemaSets, ExampleValidation,
                         ::testing::Values(SchemaSet{"project", false}, SchemaSet{"published", true}),
                         [](const auto &info) { return std::string(info.param.label); });

}  // namespace
