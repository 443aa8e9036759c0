/*
 * The walker's duties seen from fake callbacks under the plug-in's names:
 * walk order and request state per call; native trees refused whole.
 */
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "host/native_apply.h"
#include "host/plugin_loader.h"
#include "host/registration.h"
#include "host/walker.h"
#include "host_fixture.h"
#include "ocni_common.h"
#include "tree_builder.h"
#include "walker_fixture.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

const std::string PFX = "ymap_ox_ocni_openconfiglocalrouting_";
std::vector<std::string> g_names;
/* Each call: callback name without the common prefix, node ("name=value" for leaves), subtrees, ancestors depth, VRF, input entries. */
std::vector<std::string> g_calls;

cerrno fake(int i, yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned subtrees)
{
    const char *vrf = ymap_oc_ni_get_vrf_name(ctx);
    const std::string &cb = g_names[i];
    g_calls.push_back((cb.rfind(PFX, 0) == 0 ? cb.substr(PFX.size()) : cb) + " " + in->name + (in->value ? std::string("=") + in->value : "") +
                      " " + std::to_string(subtrees) + " " + std::to_string(ctx->req_ctx->depth) + " " + (vrf ? vrf : "") + " " +
                      std::to_string(req_input_depth(ctx->req_ctx)));
    return 0;
}
template <int I> cerrno leaf_fn(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *) { return fake(I, ctx, in, 0); }
template <int I> cerrno cont_fn(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int subtrees, zidl_yfw_datatree *)
{
    return fake(I, ctx, in, subtrees);
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
        g_names = registration_callback_names();
        static const auto fns = fn_table(std::make_integer_sequence<int, 256>());
        ASSERT_LE(g_names.size(), fns.size());
        std::map<std::string, CallbackKind> kinds;
        for (const Binding &b : registration_table())
            kinds.emplace(b.callback, b.kind);
        std::string err;
        plugin_ = Plugin::from_lookup([&](const std::string &n) -> void * {
            for (size_t i = 0; i < g_names.size(); ++i)
                if (g_names[i] == n)
                    return kinds[n] == CallbackKind::Container ? fns[i].second : fns[i].first;
            return nullptr;
        }, err);
        ASSERT_NE(plugin_, nullptr) << err;
        walker_ = std::make_unique<Walker>(*plugin_, config_);
    }
    EditOutcome edit(const std::string &lines) { return walker_->edit(build_tree(lines, OCNI_NS_OC_NI).get()); }

    NativeConfig config_;
    std::unique_ptr<Plugin> plugin_;
    std::unique_ptr<Walker> walker_;
};

const std::string ST = oc_static_routes("red") + "/static[prefix=10.0.0.0/24]";

TEST_F(WalkerOrder, ParentsFirstKeysFirstAndRouteLeavesBeforeNextHops)
{
    /* Document order deliberately upside down. */
    ASSERT_TRUE(edit(ST + "/next-hops/next-hop[index=1]/interface-ref/config/interface = Lo0\n" + ST +
                     "/next-hops/next-hop[index=1]/config/next-hop = 10.0.0.1\n" + ST + "/config/set-tag = 5\n" + ST +
                     "/config/prefix = 10.0.0.0/24\n").result.ok());
    EXPECT_EQ(g_calls, (std::vector<std::string>{
        "man_cont_lvla_localroutes_staticroutes static-routes 1 4 red 2", "man_list_lvla_localroutes_staticroutes_static static 0 5 red 3",
        "man_leaf_lvla_localroutes_static_prefix prefix=10.0.0.0/24 0 6 red 3", "man_leaf_lvla_localroutes_config_settag set-tag=5 0 7 red 3",
        "man_leaf_lvla_localroutes_config_prefix prefix=10.0.0.0/24 0 7 red 3", "cont_lvla_localroutes_static_nexthops next-hops 1 6 red 3",
        "man_list_lvla_localroutes_nexthops_nexthop next-hop 0 7 red 4", "leaf_lvla_localroutes_nexthop_index index=1 0 8 red 4",
        "man_leaf_lvla_localroutes_config_nexthop next-hop=10.0.0.1 0 9 red 4", "man_leaf_lvla_localroutes_config_interface interface=Lo0 0 10 red 4"}));
}

/* Native reads: the instance named to the callbacks is the one they map, also when the store lists a VRF before default-vrf. */
TEST_F(WalkerOrder, NativeReadsNameTheInstanceOfTheVrfBeingMapped)
{
    const std::string a = "/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.0.0.0][prefix-length=24]/vrf-route/"
                          "vrf-next-hop-table/vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]/metric = 1\n";
    ASSERT_TRUE(walker_->native_edit(build_tree("/router-static/vrfs/vrf[vrf-name=blue]" + a
        + "/router-static/default-vrf" + a, OCNI_NS_NATIVE).get(), false, true).result.ok());
    zidl_yfw_datatree *out = nullptr;
    ASSERT_TRUE(walker_->read(ReadRequest{}, &out).ok());
    tree_free(out);
    Lines vrfs; /* the instance each callback was given, in call order */
    for (const std::string &c : g_calls)
        vrfs.push_back(std::regex_replace(c, std::regex("^.* (\\S*) \\d+$"), "$1"));
    EXPECT_EQ(vrfs, (Lines{"", "blue", "blue", "blue", "blue", "blue", "blue", "default", "default", "default", "default", "default", "default"}));
}

/* A native tree the apply cannot place is refused naming what is wrong, and changes nothing. */
TEST_F(WalkerFixture, NativeTreesOutsideTheModelAreRefusedWhole)
{
    const std::string d = "/router-static/default-vrf", a = d + "/address-family/vrfipv4/vrf-unicast/vrf-prefixes",
                      p = a + "/vrf-prefix[prefix=10.0.0.0][prefix-length=24]", t = p + "/vrf-route/vrf-next-hop-table";
    native_edit(t + "/vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]/metric = 1");
    const Lines before = native();
    /* The gate (an untrusted native edit) refuses the same trees, some earlier and in its own words. */
    const struct { std::string lines, why, gated = ""; } rows[] = {
        {"/other = 1", "unknown native node /other"}, {"/router-static/x = 1", "unknown native node x under router-static"},
        {"/router-static/vrfs/y = 1", "unknown native node y under vrfs"},
        {"/router-static/vrfs/vrf/address-family", "native vrf entry without vrf-name"},
        {d + "/z = 1", "unknown native node z in a vrf"},
        {d + "/address-family/vrfipv5", "unknown address family vrfipv5"}, {d + "/address-family/vrfipv4/u", "unknown native node u"},
        {d + "/address-family/vrfipv6/vrf-unicast/v", "unknown native node v"}, {a + "/e", "unknown native node e"},
        {a + "/vrf-prefix/vrf-route", "native vrf-prefix entry without prefix"}, {t + "/q[k=1]", "unknown native next-hop table q"},
        {a + "/vrf-prefix[prefix=10.0.0.0]/vrf-route", "native vrf-prefix entry needs both prefix and prefix-length"},
        {a + "/vrf-prefix[prefix=2001:db8::][prefix-length=8]/vrf-route", "not a prefix of its family: " + a + "/vrf-prefix[prefix=2001:db8::][prefix-length=8]",
         "prefix \"2001:db8::\" is an IPv6 address in an IPv4 route (at " + a + "/vrf-prefix[prefix=2001:db8::][prefix-length=8]/prefix)"},
        {p + "/w", "unknown native node w in vrf-prefix"}, {p + "/vrf-route/r", "unknown native node r in vrf-route"},
        {t + "/vrf-next-hop-interface-name[interface-name=Gi0/0,1]/metric = 1", "cannot write " + p, /* a comma splits the key */
         "interface-name \"Gi0/0,1\" contains ',' (at " + t + "/vrf-next-hop-interface-name[interface-name=Gi0/0,1]/interface-name)"},
        {t + "/vrf-next-hop-next-hop-address/metric = 1", "native vrf-next-hop-next-hop-address entry without its keys"},
        {t + "/vrf-next-hop-interface-name[interface-name=Lo0]/colour = 1", "unknown native leaf colour in vrf-next-hop-interface-name"},
        {oc_static_routes("default") + "/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config (delete)",
         "deleting the config container of a next hop is not supported: delete the next hop, or its leaves one by one"},
    };
    for (const auto &row : rows) {
        for (bool trusted : {true, false}) {
            const std::string &lines = row.lines;
            EditOutcome r = lines[1] == 'n' ? edit(lines) : walker->native_edit(build_tree(lines, OCNI_NS_NATIVE).get(), false, trusted);
            EXPECT_EQ(r.result.rc, YFW_RC_INVALID_REQUEST) << lines;
            EXPECT_EQ(r.result.message, trusted || row.gated.empty() ? row.why : row.gated) << lines;
        }
    }
    EXPECT_EQ(native(), before);
}

TEST_F(WalkerFixture, SubtreeDeletesRemoveWhatTheyNameAndNothingElse)
{
    const std::string d = oc_static_routes("default") + "/static[prefix=10.0.0.0/24]", nh = d + "/next-hops/next-hop";
    ASSERT_TRUE(edit("/network-instances/network-instance[name=red]/config/name = red\n" + d + "/config/set-tag = 5\n" + d + "/config/description = d\n" + nh +
                     "[index=1]/config/next-hop = 10.0.0.1\n" + nh + "[index=1]/interface-ref/config/interface = Lo0\n" + nh + "[index=2]/config/next-hop = 10.0.0.2\n" +
                     oc_static_routes("red") + "/static[prefix=10.1.0.0/24]/next-hops/next-hop[index=1]/config/next-hop = 10.1.0.1").result.ok());
    const struct { std::string del; const char *from, *to; } rows[] = { /* in turn: the stored lines before, rewritten ("" drops one) */
        {d + "/config", "^.*/(tag|description) = .*$", ""}, {nh + "[index=1]/interface-ref", "interface-name-next-hop-address\\[interface-name=Lo0\\]", "next-hop-address"},
        {d + "/next-hops", "^(.*default-vrf/.*\\])/vrf-route/.*$", "$1"}, /* the prefix entry stays */
        {"/network-instances/network-instance[name=default]", "^.*default-vrf.*$", ""}, {"/network-instances", "^.*$", ""}};
    for (const auto &r : rows) {
        Lines want;
        for (const std::string &l : native())
            if (std::string w = std::regex_replace(l, std::regex(r.from), r.to); !w.empty() && (want.empty() || want.back() != w))
                want.push_back(w);
        EXPECT_TRUE(edit(r.del + " (delete)").result.ok()) << r.del;
        EXPECT_EQ(native(), want) << r.del;
    }
}

/* Each tree a request makes refused in turn: the request fails out of memory changing nothing, until it has all it needs. */
TEST_F(WalkerFixture, RequestsWhoseTreesCannotBeMadeFailOutOfMemoryChangingNothing)
{
    const std::string st = oc_static_routes("default") + "/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/next-hop = 10.0.0.";
    ASSERT_TRUE(edit(st + "1").result.ok());
    std::string many; /* more routes than the edit applies at once */
    for (int i = 0; i < 1025; ++i)
        many += oc_static_routes("default") + "/static[prefix=" + std::to_string(10 + i / 256) + "."
            + std::to_string(i % 256) + ".0.0/16]/config/set-tag = 1\n";
    TreePtr in = build_tree(st + "2", OCNI_NS_OC_NI), big = build_tree(many, OCNI_NS_OC_NI);
    Lines got;
    auto sink = [&](const zidl_yfw_datatree *t) { got = tree_lines(t); return true; };
    auto read_lines = [&](const ReadRequest &rq) {
        zidl_yfw_datatree *out = nullptr;
        WalkResult r = walker->read(rq, &out);
        got = tree_lines(TreePtr(out).get());
        return r;
    };
    const std::function<WalkResult()> requests[] = {[&] { return read_lines(ReadRequest{}); }, [&] { return read_lines(ReadRequest{true, "", ""}); },
        [&] { return read_lines(ReadRequest{true, "default", "10.0.0.0/24"}); }, [&] { return walker->read_batches(ReadRequest{}, 1, sink); },
        [&] { return walker->read_batches(ReadRequest{}, 1, sink, true); },
        [&] { WalkResult r = walker->edit(in.get()).result; alloc_fail_nth("", 0); got = native(); return r; }, /* the store read unrefused */
        [&] { WalkResult r = walker->edit(big.get()).result; alloc_fail_nth("", 0); got = native(); return r; }};
    for (size_t i = 0; i < std::size(requests); ++i) {
        const Lines stored = native();
        unsigned nth = 1;
        for (WalkResult r; alloc_fail_nth("host tree", nth), r = requests[i](), alloc_fail_nth("", 0), !r.ok(); ++nth) {
            ASSERT_LT(nth, 20u) << i;
            EXPECT_EQ(r.rc, YFW_RC_NO_MEMORY) << i << " " << nth;
            EXPECT_EQ(r.message, "out of memory") << i << " " << nth;
            EXPECT_EQ(native(), stored) << i << " " << nth;
        }
        EXPECT_GT(nth, 1u) << i;
        const Lines whole = got;
        ASSERT_TRUE(requests[i]().ok());
        EXPECT_EQ(got, whole) << i << ": a request that succeeds has made all its trees";
    }
}

TEST_F(WalkerFixture, TracedRequestsHandTheirLinesToTheFrontEndInTheOrderWritten)
{
    Lines traced;
    walker->options() = WalkerOptions{true, [](const char *l, void *arg) { static_cast<Lines *>(arg)->push_back(l); }, &traced, {}, {}};
    ASSERT_TRUE(edit(oc_static_routes("default") + "/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/next-hop = 10.0.0.1").result.ok());
    ASSERT_GE(traced.size(), 2u); /* log and lightweight trace lines, merged in the order written */
    EXPECT_EQ(traced[0].substr(0, 14) + traced[0].substr(traced[0].rfind(',')) + traced[1].substr(0, 1), "TRC: YFW: ctx=,Start#");
}

} // namespace
