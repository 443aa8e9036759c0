/*
 * The walker's framework duties, seen from small fake callbacks registered
 * under the plug-in's names: walk order, the subtrees argument, request
 * state around each call (VRF, ancestors, input list stack, suppression),
 * refusals that abort the whole edit, and deletes below a deleted entry.
 */
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/context.h"
#include "host/native_apply.h"
#include "host/plugin_loader.h"
#include "host/registration.h"
#include "host/walker.h"
#include "tree_builder.h"
#include "walker_fixture.h"
#include "yfw_map.h"
#include "yfw_str.h"
#include "ocni_common.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

struct Call {
    std::string cb;
    std::string node;  /* name, "=value" for leaves */
    unsigned subtrees; /* containers only */
    int depth;         /* ancestors table depth */
    std::string vrf;
    size_t entries;    /* input list entries on the stack */
    uint32_t suppress;
};

std::vector<std::string> g_names;
std::vector<Call> g_calls;
std::string g_fail_on;
cerrno g_fail_rc = YFW_RC_INVALID_REQUEST;

void record(int i, yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned subtrees)
{
    const char *vrf = ymap_oc_ni_get_vrf_name(ctx);
    std::string node = in->name;
    if (in->value)
        node += std::string("=") + in->value;
    g_calls.push_back(Call{g_names[i], node, subtrees, ctx->req_ctx->depth, vrf ? vrf : "",
                           req_input_depth(ctx->req_ctx), ctx->req_ctx->suppress_flag});
}

cerrno outcome(int i, yfw_map_ctx *ctx)
{
    if (g_names[i] != g_fail_on)
        return 0;
    if (g_fail_rc == YFW_RC_INVALID_REQUEST)
        ctx->req_ctx->user_error_msg = yfw_strdup("refused by the fake", OCNI_TAG_MAP);
    return g_fail_rc;
}

template <int I> cerrno leaf_fn(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *)
{
    record(I, ctx, in, 0);
    return outcome(I, ctx);
}
template <int I> cerrno cont_fn(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int subtrees, zidl_yfw_datatree *)
{
    record(I, ctx, in, subtrees);
    return outcome(I, ctx);
}

template <int... I> std::vector<std::pair<void *, void *>> fn_table(std::integer_sequence<int, I...>)
{
    return {{reinterpret_cast<void *>(&leaf_fn<I>), reinterpret_cast<void *>(&cont_fn<I>)}...};
}

class WalkerOrder : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_calls.clear();
        g_fail_on.clear();
        g_fail_rc = YFW_RC_INVALID_REQUEST;
        g_names = registration_callback_names();
        static const auto fns = fn_table(std::make_integer_sequence<int, 256>());
        ASSERT_LE(g_names.size(), fns.size());
        std::map<std::string, CallbackKind> kinds;
        for (const Binding &b : registration_table())
            kinds.emplace(b.callback, b.kind);
        std::string err;
        plugin_ = Plugin::from_lookup(
            [&](const std::string &n) -> void * {
                for (size_t i = 0; i < g_names.size(); ++i)
                    if (g_names[i] == n)
                        return kinds[n] == CallbackKind::Container ? fns[i].second : fns[i].first;
                return nullptr;
            },
            err);
        ASSERT_NE(plugin_, nullptr) << err;
        walker_ = std::make_unique<Walker>(*plugin_, config_);
    }

    /* Callback names called, without the common "ymap_ox_ocni_openconfiglocalrouting_" part. */
    std::vector<std::string> called() const
    {
        std::vector<std::string> v;
        const std::string p = "ymap_ox_ocni_openconfiglocalrouting_";
        for (const Call &c : g_calls)
            v.push_back(c.cb.rfind(p, 0) == 0 ? c.cb.substr(p.size()) : c.cb);
        return v;
    }
    const Call *find(const std::string &suffix) const
    {
        for (const Call &c : g_calls)
            if (c.cb.size() >= suffix.size() && c.cb.compare(c.cb.size() - suffix.size(), suffix.size(), suffix) == 0)
                return &c;
        return nullptr;
    }

    NativeConfig config_;
    std::unique_ptr<Plugin> plugin_;
    std::unique_ptr<Walker> walker_;
};

const std::string ST = oc_static_routes("red") + "/static[prefix=10.0.0.0/24]";

TEST_F(WalkerOrder, ParentsFirstKeysFirstAndRouteLeavesBeforeNextHops)
{
    /* Document order deliberately upside down. */
    TreePtr in = build_tree(ST + "/next-hops/next-hop[index=1]/interface-ref/config/interface = Lo0\n" + ST +
                                "/next-hops/next-hop[index=1]/config/next-hop = 10.0.0.1\n" + ST +
                                "/config/set-tag = 5\n" + ST + "/config/prefix = 10.0.0.0/24\n",
                            OCNI_NS_OC_NI);
    EditOutcome r = walker_->edit(in.get());
    ASSERT_TRUE(r.result.ok()) << r.result.message;
    std::vector<std::string> want = {
        "man_cont_lvla_localroutes_staticroutes",
        "man_list_lvla_localroutes_staticroutes_static",
        "man_leaf_lvla_localroutes_static_prefix",
        "man_leaf_lvla_localroutes_config_settag",
        "man_leaf_lvla_localroutes_config_prefix",
        "cont_lvla_localroutes_static_nexthops",
        "man_list_lvla_localroutes_nexthops_nexthop",
        "leaf_lvla_localroutes_nexthop_index",
        "man_leaf_lvla_localroutes_config_nexthop",
        "man_leaf_lvla_localroutes_config_interface",
    };
    EXPECT_EQ(called(), want);

    const Call *sr = find("_staticroutes");
    ASSERT_NE(sr, nullptr);
    EXPECT_EQ(sr->subtrees, 1u) << "static-routes has a static entry to map";
    EXPECT_EQ(sr->vrf, "red");
    EXPECT_EQ(sr->entries, 2u) << "network-instance and protocol entries on the input stack";
    const Call *pfx = find("_static_prefix");
    ASSERT_NE(pfx, nullptr);
    EXPECT_EQ(pfx->node, "prefix=10.0.0.0/24");
    /* network-instances, network-instance, protocols, protocol, static-routes, static */
    EXPECT_EQ(pfx->depth, 6);
    EXPECT_EQ(pfx->entries, 3u);
    const Call *nhi = find("_nexthop_index");
    ASSERT_NE(nhi, nullptr);
    EXPECT_EQ(nhi->entries, 4u) << "and the static and next-hop entries";
}

TEST_F(WalkerOrder, ARefusalAbortsTheEditWithItsMessageAndCallbackAndStoresNothing)
{
    TreePtr in = build_tree(ST + "/config/set-tag = 5\n" + ST + "/next-hops/next-hop[index=1]/config/next-hop = 1.1.1.1\n",
                            OCNI_NS_OC_NI);
    g_fail_on = "ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_settag";
    EditOutcome r = walker_->edit(in.get());
    EXPECT_EQ(r.result.rc, YFW_RC_INVALID_REQUEST);
    EXPECT_EQ(r.result.message, "refused by the fake");
    EXPECT_EQ(r.result.callback, g_fail_on);
    EXPECT_NE(r.result.path.find("/config/set-tag"), std::string::npos) << r.result.path;
    EXPECT_EQ(find("_nexthops_nexthop"), nullptr) << "nothing is mapped after a refusal";
    EXPECT_TRUE(r.changes.empty());
}

TEST_F(WalkerOrder, NotApplicableSkipsTheSubtreeWithoutFailing)
{
    TreePtr in = build_tree(ST + "/config/set-tag = 5\n", OCNI_NS_OC_NI);
    g_fail_on = "ymap_ox_ocni_openconfiglocalrouting_man_cont_lvla_localroutes_staticroutes";
    g_fail_rc = YFW_RC_NOT_APPLICABLE;
    EditOutcome r = walker_->edit(in.get());
    EXPECT_TRUE(r.result.ok());
    EXPECT_EQ(called().size(), 1u);
}

TEST_F(WalkerOrder, BelowADeletedEntryOnlyItsKeysAreMapped)
{
    TreePtr in = build_tree(ST + " (delete)\n" + ST + "/config/set-tag = 5\n", OCNI_NS_OC_NI);
    EditOutcome r = walker_->edit(in.get());
    ASSERT_TRUE(r.result.ok());
    EXPECT_EQ(called(), (std::vector<std::string>{"man_cont_lvla_localroutes_staticroutes",
                                                  "man_list_lvla_localroutes_staticroutes_static",
                                                  "man_leaf_lvla_localroutes_static_prefix"}));
}

TEST_F(WalkerOrder, DeleteOfANamedInstanceIsOnePrefixlessStaticDeleteUnderSuppression)
{
    std::vector<std::string> changes;
    std::string err;
    config_.add_vrf("red", changes);
    TreePtr native = build_tree("/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv4/vrf-unicast/"
                                "vrf-prefixes/vrf-prefix[prefix=10.0.0.0][prefix-length=24]\n",
                                OCNI_NS_NATIVE);
    ASSERT_TRUE(walker_->native_edit(native.get(), false, true).result.ok());
    TreePtr in = build_tree("/network-instances/network-instance[name=red] (delete)\n", OCNI_NS_OC_NI);
    EditOutcome r = walker_->edit(in.get());
    ASSERT_TRUE(r.result.ok());
    const Call *st = find("_staticroutes_static");
    ASSERT_NE(st, nullptr);
    EXPECT_EQ(st->suppress, 1u);
    EXPECT_EQ(st->vrf, "red");
    EXPECT_EQ(find("_static_prefix"), nullptr) << "no prefix: every route of the instance";
    const Call *sr = find("_staticroutes");
    EXPECT_EQ(sr->suppress, 0u);
}

TEST_F(WalkerOrder, FilteredReadAsksTheEditCallbacksInReadMode)
{
    ReadRequest rq;
    rq.vrf = "red";
    rq.prefix = "10.0.0.0/24";
    zidl_yfw_datatree *out = nullptr;
    WalkResult r = walker_->read(rq, &out);
    tree_free(out);
    ASSERT_TRUE(r.ok());
    EXPECT_EQ(called(), (std::vector<std::string>{"man_cont_lvla_localroutes_staticroutes",
                                                  "man_list_lvla_localroutes_staticroutes_static",
                                                  "man_leaf_lvla_localroutes_static_prefix"}));
    EXPECT_EQ(g_calls[0].vrf, "red");
}

} // namespace
