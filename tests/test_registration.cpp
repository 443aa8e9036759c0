/*
 * Registration tables and plug-in loading: one binding per node and
 * family, every mapping callback of the plug-in bound, the binding index
 * the walker descends, and a plug-in lacking a symbol refused naming it.
 */
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <tuple>

#include "host/plugin_loader.h"
#include "host/registration.h"
#include "walker_fixture.h"

using namespace ocni::host;

namespace {

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

/* Every binding names a node of its model as the project's modules define it. */
TEST(Registration, EveryBindingNamesANodeOfItsModel)
{
    const char *src = std::getenv("OCNI_SOURCE_DIR");
    ly_ctx *ctx = nullptr;
    ASSERT_EQ(ly_ctx_new((std::string(src ? src : ".") + "/yang").c_str(), 0, &ctx), LY_SUCCESS);
    const std::map<Model, const char *> modules = {
        {Model::OpenConfigEdit, "openconfig-network-instance"}, {Model::OpenConfigState, "openconfig-network-instance"},
        {Model::Native, "Velmar-ORN-QZ-ip-static-cfg"}, {Model::Operational, "Velmar-ORN-QZ-PRIVATE-ocni-local-routing-oper"}};
    for (const auto &m : modules)
        ASSERT_NE(ly_ctx_load_module(ctx, m.second, nullptr, nullptr), nullptr) << m.second;
    for (const Binding &b : registration_table()) {
        const std::string path = "/" + std::string(modules.at(b.model)) + ":" + b.schema_path.substr(1);
        EXPECT_NE(lys_find_path(ctx, nullptr, path.c_str(), 0), nullptr) << path;
    }
    ly_ctx_destroy(ctx);
}

TEST(PluginLoader, LoadsTheBuiltPluginAndRefusesOneLackingASymbolNamingIt)
{
    std::string err;
    auto built = Plugin::load(ocni::test::plugin_library_path(), err);
    ASSERT_NE(built, nullptr) << err;
    EXPECT_EQ(built->size(), registration_callback_names().size());

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

} // namespace
