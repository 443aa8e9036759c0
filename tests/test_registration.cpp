/*
 * Registration tables and plug-in loading: one binding per node and
 * family, every mapping callback of the plug-in bound, the binding index
 * the walker descends, and a plug-in lacking a symbol refused naming it.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <tuple>

#include "host/plugin_loader.h"
#include "host/registration.h"
#include "walker_fixture.h"

using namespace ocni::host;

namespace {

TEST(Registration, EveryNodeIsServedOncePerFamily)
{
    std::set<std::tuple<int, std::string, int, int>> seen;
    for (const Binding &b : registration_table())
        EXPECT_TRUE(seen.insert({int(b.model), b.schema_path, int(b.family), int(b.kind == CallbackKind::Condition)}).second)
            << "second binding for " << b.schema_path << ": " << b.callback;
}

/* Every mapping callback the plug-in exports is bound, except those the plug-in calls itself. */
TEST(Registration, EveryExportedMappingCallbackIsBound)
{
    const char *src = std::getenv("OCNI_SOURCE_DIR");
    std::ifstream f(std::string(src ? src : ".") + "/../shared/exports/functions.txt");
    if (!f)
        GTEST_SKIP() << "exports list not available";
    const std::set<std::string> called_by_the_plugin = {
        "ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_settag_v2",
        "ymap_oc_ni_add_vrf_metadata", "ymap_oc_ni_add_protocol_static_metadata", "ymap_ocni_get_prefix_list",
        "ymap_ocni_get_index_list"};
    std::set<std::string> bound;
    for (const std::string &n : registration_callback_names())
        bound.insert(n);
    std::set<std::string> exported;
    for (std::string line; std::getline(f, line);) {
        if ((line.rfind("ymap_", 0) == 0 || line.find("_cond_manual_callback") != std::string::npos) &&
            !called_by_the_plugin.count(line))
            exported.insert(line);
    }
    ASSERT_FALSE(exported.empty());
    EXPECT_EQ(bound, exported);
}

TEST(PluginLoader, LoadsTheBuiltPluginAndRefusesOneLackingASymbolNamingIt)
{
    std::string err;
    auto built = Plugin::load(ocni::test::plugin_library_path(), err);
    ASSERT_NE(built, nullptr) << err;
    EXPECT_EQ(built->size(), registration_callback_names().size());
    for (const std::string &n : registration_callback_names())
        EXPECT_NE(built->symbol(n), nullptr) << n;

    const std::string missing = "ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_metric";
    static int dummy;
    auto p = Plugin::from_lookup([&](const std::string &n) -> void * { return n == missing ? nullptr : &dummy; },
                                 err);
    EXPECT_EQ(p, nullptr);
    EXPECT_NE(err.find(missing), std::string::npos) << err;

    err.clear();
    EXPECT_EQ(Plugin::load("/nonexistent/libnothing.so", err), nullptr);
    EXPECT_NE(err.find("/nonexistent/libnothing.so"), std::string::npos) << err;
}

TEST(BindingIndex, PrunesSubtreesWithoutBindingsAndNamesEachSchemaNodeOnce)
{
    BindingIndex oc(Model::OpenConfigEdit);
    const std::string nh = "/network-instances/network-instance/protocols/protocol/static-routes/static/next-hops/next-hop";
    EXPECT_TRUE(oc.has_bindings_below("/network-instances"));
    EXPECT_TRUE(oc.has_bindings_below("/network-instances/network-instance/protocols/protocol/static-routes"));
    EXPECT_FALSE(oc.has_bindings_below("/network-instances/network-instance/config"));
    EXPECT_FALSE(oc.has_bindings_below("/router-static"));
    const auto *idx = oc.find(nh + "/index");
    ASSERT_NE(idx, nullptr);
    ASSERT_EQ(idx->size(), 2u); /* the key leaf callback and its condition table */
    EXPECT_EQ((*idx)[0]->kind, CallbackKind::Leaf);
    EXPECT_EQ((*idx)[1]->kind, CallbackKind::Condition);
    /* The same bindings down the node tree, one node per path segment, found by names not interned. */
    const BindingIndex::Node *n = oc.root();
    for (size_t pos = 1, next; pos < nh.size() + 1; pos = next + 1) {
        next = std::min(nh.find('/', pos), nh.size());
        const std::string seg = nh.substr(pos, next - pos);
        ASSERT_NE(n, nullptr) << seg;
        EXPECT_EQ(n->child("state-x"), nullptr) << seg;
        n = n->child(seg.c_str());
    }
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(n->name, "next-hop");
    ASSERT_NE(n->child("index"), nullptr);
    EXPECT_EQ(n->child("index")->bindings, *idx);
    EXPECT_EQ(oc.root()->children.size(), 1u);
}

} // namespace
