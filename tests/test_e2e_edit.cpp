/*
 * Edits end to end: OpenConfig input walked through the plug-in loaded
 * from its library, the native result applied to the store, and what the
 * store then holds (read back natively and through the plug-in).
 */
#include <gtest/gtest.h>

#include <algorithm>

#include "host/tree.h"
#include "tree_builder.h"
#include "walker_fixture.h"
#include "ocni_common.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

using Lines = std::vector<std::string>;

const std::string SR = oc_static_routes("default");
const std::string SR_RED = oc_static_routes("red");
const std::string D4 = "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/";
const std::string RED4 = "/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv4/vrf-unicast/vrf-prefixes/";

std::string route(const std::string &sr, const std::string &prefix) { return sr + "/static[prefix=" + prefix + "]"; }
std::string nh(const std::string &sr, const std::string &prefix, const std::string &index)
{
    return route(sr, prefix) + "/next-hops/next-hop[index=" + index + "]";
}
std::string native_route(const std::string &base, const std::string &addr, const std::string &len)
{
    return base + "vrf-prefix[prefix=" + addr + "][prefix-length=" + len + "]";
}
std::string native_table(const std::string &base, const std::string &addr, const std::string &len)
{
    return native_route(base, addr, len) + "/vrf-route/vrf-next-hop-table/";
}

bool has(const Lines &l, const std::string &s) { return std::find(l.begin(), l.end(), s) != l.end(); }

size_t count_prefix(const Lines &l, const std::string &p)
{
    return std::count_if(l.begin(), l.end(), [&](const std::string &s) { return s.rfind(p, 0) == 0; });
}

using E2eEdit = WalkerFixture;

TEST_F(E2eEdit, NewNextHopsLandInTheTableTheirDataChooses)
{
    EditOutcome r = edit(nh(SR, "10.0.0.0/24", "1") + "/config/next-hop = 10.0.0.1\n" +
                         nh(SR, "10.0.0.0/24", "2") + "/config/next-hop = 10.0.0.2\n" +
                         nh(SR, "10.0.0.0/24", "2") + "/interface-ref/config/interface = GigabitEthernet0/0/0/1\n" +
                         nh(SR, "10.0.0.0/24", "3") + "/interface-ref/config/interface = Loopback0\n" +
                         nh(SR, "10.0.0.0/24", "3") + "/interface-ref/config/subinterface = 5\n" +
                         nh(SR, "10.0.0.0/24", "4") + "/config/next-hop = DROP\n" +
                         nh(SR, "10.0.0.0/24", "1") + "/config/metric = 7\n");
    ASSERT_TRUE(r.result.ok()) << rc_text(r.result.rc) << " " << r.result.message << " " << r.result.path;
    const std::string t = native_table(D4, "10.0.0.0", "24");
    Lines want = {
        t + "vrf-next-hop-interface-name-next-hop-address[interface-name=GigabitEthernet0/0/0/1][next-hop-address=10.0.0.2]/index = 2",
        t + "vrf-next-hop-interface-name[interface-name=Loopback0.5]/index = 3",
        t + "vrf-next-hop-interface-name[interface-name=Null0]/index = 4",
        t + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]/index = 1",
        t + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]/metric = 7",
    };
    std::sort(want.begin(), want.end());
    EXPECT_EQ(native(), want);
    EXPECT_FALSE(r.changes.empty());
}

TEST_F(E2eEdit, RefusedEditStoresNothingAndReportsTheClientMessage)
{
    ASSERT_TRUE(edit(nh(SR, "10.0.0.0/24", "1") + "/config/next-hop = 10.0.0.1\n").result.ok());
    const Lines before = native();
    /* The second route is fine, the third refused: the whole edit goes. */
    EditOutcome r = edit(nh(SR, "10.9.0.0/16", "1") + "/config/next-hop = 10.9.0.1\n" +
                         nh(SR, "10.8.0.0/16", "1") + "/config/next-hop = DROP\n" +
                         nh(SR, "10.8.0.0/16", "1") + "/interface-ref/config/interface = Loopback0\n");
    EXPECT_EQ(r.result.rc, YFW_RC_INVALID_REQUEST);
    EXPECT_EQ(r.result.message, "Interface configuration is not allowed when next-hop is drop");
    EXPECT_NE(r.result.path.find("static[prefix=10.8.0.0/16]"), std::string::npos) << r.result.path;
    EXPECT_EQ(r.result.callback, "ymap_ox_ocni_openconfiglocalrouting_man_list_lvla_localroutes_nexthops_nexthop");
    EXPECT_TRUE(r.changes.empty());
    EXPECT_EQ(native(), before);
    reopen();
    EXPECT_EQ(native(), before);
}

TEST_F(E2eEdit, NamedInstanceMustExistOrBeCreatedByTheSameEdit)
{
    EditOutcome refused = edit(nh(SR_RED, "10.0.0.0/24", "1") + "/config/next-hop = 10.0.0.1\n");
    EXPECT_EQ(refused.result.rc, YFW_RC_INVALID_REQUEST);
    EXPECT_EQ(refused.result.message,
              "Static route configuration is not allowed as network-instance red is not configured yet");
    EXPECT_TRUE(native().empty());

    EditOutcome ok = edit("/network-instances/network-instance[name=red]/config/name = red\n" +
                          nh(SR_RED, "10.0.0.0/24", "1") + "/config/next-hop = 10.0.0.1\n");
    ASSERT_TRUE(ok.result.ok()) << ok.result.message;
    EXPECT_EQ(ok.vrfs_created, Lines{"red"});
    EXPECT_TRUE(config->vrf_known("red"));
    EXPECT_EQ(native(), (Lines{native_table(RED4, "10.0.0.0", "24") +
                               "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]/index = 1"}));
    /* Known now: a later edit without config/name is accepted, also after a restart. */
    reopen();
    EXPECT_TRUE(edit(nh(SR_RED, "10.0.1.0/24", "1") + "/config/next-hop = 10.0.1.1\n").result.ok());
}

/* The route-wide set-tag and description reach every next hop natively. */
TEST_F(E2eEdit, RouteWideTagAndDescriptionReachEveryNextHop)
{
    const std::string t = native_table(D4, "10.0.0.0", "24");
    const std::string a1 = t + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]";
    const std::string a2 = t + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.2]";
    const std::string a3 = t + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.3]";

    /* Given in the same edit as new next hops: each new one carries them. */
    ASSERT_TRUE(edit(route(SR, "10.0.0.0/24") + "/config/set-tag = 0x1f\n" + route(SR, "10.0.0.0/24") +
                     "/config/description = to-core\n" + nh(SR, "10.0.0.0/24", "1") +
                     "/config/next-hop = 10.0.0.1\n" + nh(SR, "10.0.0.0/24", "2") + "/config/next-hop = 10.0.0.2\n")
                    .result.ok());
    Lines n = native();
    for (const std::string &e : {a1, a2}) {
        EXPECT_TRUE(has(n, e + "/tag = 31")) << e;
        EXPECT_TRUE(has(n, e + "/description = to-core")) << e;
    }

    /* Given alone: every stored next hop gets it. */
    ASSERT_TRUE(edit(nh(SR, "10.0.0.0/24", "3") + "/config/next-hop = 10.0.0.3\n").result.ok());
    ASSERT_TRUE(edit(route(SR, "10.0.0.0/24") + "/config/set-tag = 40\n").result.ok());
    n = native();
    for (const std::string &e : {a1, a2, a3})
        EXPECT_TRUE(has(n, e + "/tag = 40")) << e;

    /* A set-tag with a new next hop: the stored ones and the new one all carry it. */
    ASSERT_TRUE(edit(route(SR, "10.0.0.0/24") + "/config/set-tag = 50\n" + nh(SR, "10.0.0.0/24", "4") +
                     "/config/next-hop = 10.0.0.4\n")
                    .result.ok());
    n = native();
    EXPECT_EQ(count_prefix(n, t), 4u * 2 + 2 /* index and tag each, descriptions of 1 and 2 */);
    for (const std::string &e : {a1, a2, a3, t + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.4]"})
        EXPECT_TRUE(has(n, e + "/tag = 50")) << e;
}

TEST_F(E2eEdit, DryRunReportsChangesAndStoresNothing)
{
    EditOutcome r = edit(nh(SR, "10.0.0.0/24", "1") + "/config/next-hop = 10.0.0.1\n", true);
    ASSERT_TRUE(r.result.ok());
    EXPECT_FALSE(r.changes.empty());
    EXPECT_TRUE(native().empty());
    reopen();
    EXPECT_TRUE(native().empty());
}

TEST_F(E2eEdit, ChangingTheAddressOfAnIndexReplacesItsNativeEntry)
{
    ASSERT_TRUE(edit(nh(SR, "10.0.0.0/24", "a") + "/config/next-hop = 10.0.0.1\n" + nh(SR, "10.0.0.0/24", "a") +
                     "/config/metric = 3\n")
                    .result.ok());
    EditOutcome r = edit(nh(SR, "10.0.0.0/24", "a") + "/interface-ref/config/interface = Loopback7\n");
    ASSERT_TRUE(r.result.ok()) << r.result.message;
    const std::string t = native_table(D4, "10.0.0.0", "24");
    const std::string e = t + "vrf-next-hop-interface-name-next-hop-address[interface-name=Loopback7][next-hop-address=10.0.0.1]";
    EXPECT_EQ(native(), (Lines{e + "/index = a", e + "/metric = 3"}));
}

/* Round trip: what get prints, edited into an empty store, gives the same native configuration. */
TEST_F(E2eEdit, ReadBackFedAsAnEditReproducesTheNativeConfiguration)
{
    /* Next hops made outside OpenConfig read back under generated ##...## indexes. */
    native_edit(native_table(D4, "192.0.2.0", "24") + "vrf-next-hop-interface-name[interface-name=Null0]/tag = 9\n" +
                native_table(D4, "192.0.2.0", "24") +
                "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/0/0/1.5][next-hop-address=192.0.2.1]/tag = 9\n" +
                native_table(D4, "192.0.2.0", "24") +
                "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/0/0/1.5][next-hop-address=192.0.2.1]/metric = 4\n");
    ASSERT_TRUE(edit(nh(SR, "198.51.100.0/25", "x") + "/config/next-hop = 198.51.100.1\n" +
                     route(SR, "198.51.100.0/25") + "/config/description = core\n")
                    .result.ok());
    const Lines before = native();
    const Lines oc = read();
    ASSERT_FALSE(oc.empty());

    /* A fresh store, then the read as an edit. */
    TearDown();
    SetUp();
    std::string text;
    for (const std::string &l : oc)
        text += l + "\n";
    EditOutcome r = edit(text);
    ASSERT_TRUE(r.result.ok()) << rc_text(r.result.rc) << " " << r.result.message << " " << r.result.path;
    EXPECT_EQ(native(), before);
}

/* Deletes of whole subtrees: each native entry removed once, nothing else touched. */
class E2eDelete : public WalkerFixture {
protected:
    void SetUp() override
    {
        WalkerFixture::SetUp();
        ASSERT_TRUE(edit("/network-instances/network-instance[name=red]/config/name = red\n" +
                         nh(SR, "10.0.0.0/24", "1") + "/config/next-hop = 10.0.0.1\n" +
                         nh(SR, "10.0.0.0/24", "2") + "/config/next-hop = 10.0.0.2\n" +
                         nh(SR, "10.0.0.0/24", "3") + "/interface-ref/config/interface = Loopback3\n" +
                         nh(SR, "2001:db8::/64", "1") + "/config/next-hop = 2001:db8::1\n" +
                         nh(SR_RED, "10.0.0.0/24", "1") + "/config/next-hop = 10.0.0.9\n" +
                         nh(SR_RED, "10.7.0.0/16", "1") + "/config/next-hop = DROP\n")
                        .result.ok());
        all_ = native();
    }
    /* Native lines that the delete should have removed: those under any of `gone`. */
    Lines expected_after(const std::vector<std::string> &gone) const
    {
        Lines l;
        for (const std::string &s : all_) {
            bool drop = false;
            for (const std::string &g : gone)
                drop = drop || s.rfind(g, 0) == 0;
            if (!drop)
                l.push_back(s);
        }
        return l;
    }
    Lines all_;
};

struct DeleteCase {
    const char *name;
    std::string input;             /* the delete as an input line */
    std::vector<std::string> gone; /* native path prefixes it removes */
    size_t native_deletes;         /* "delete" change lines expected */
    std::string left = "";         /* a line the delete leaves behind */
};

TEST_F(E2eDelete, EachDeleteRemovesExactlyWhatItNames)
{
    const std::string t4 = native_table(D4, "10.0.0.0", "24");
    const std::vector<DeleteCase> cases = {
        {"one next hop", nh(SR, "10.0.0.0/24", "2") + " (delete)",
         {t4 + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.2]"}, 1},
        {"an interface next hop", nh(SR, "10.0.0.0/24", "3") + " (remove)",
         {t4 + "vrf-next-hop-interface-name[interface-name=Loopback3]"}, 1},
        {"all next hops of a route", route(SR, "10.0.0.0/24") + "/next-hops (delete)", {t4}, 3,
         /* the prefix entry itself stays */
         native_route(D4, "10.0.0.0", "24")},
        {"a route", route(SR, "10.0.0.0/24") + " (delete)", {native_route(D4, "10.0.0.0", "24")}, 1},
        {"all static routes of the default instance", SR + " (delete)", {"/router-static/default-vrf/"}, 2},
        {"all static routes of a named instance", "/network-instances/network-instance[name=red] (delete)",
         {"/router-static/vrfs/"}, 2},
        {"all static routes", "/network-instances (delete)", {"/router-static/"}, 4},
    };
    for (const DeleteCase &c : cases) {
        SCOPED_TRACE(c.name);
        TearDown();
        SetUp();
        EditOutcome r = edit(c.input);
        ASSERT_TRUE(r.result.ok()) << rc_text(r.result.rc) << " " << r.result.message << " " << r.result.path;
        Lines want = expected_after(c.gone);
        if (!c.left.empty())
            want.insert(std::lower_bound(want.begin(), want.end(), c.left), c.left);
        EXPECT_EQ(native(), want);
        size_t deletes = std::count_if(r.changes.begin(), r.changes.end(),
                                       [](const std::string &s) { return s.rfind("delete ", 0) == 0; });
        EXPECT_EQ(deletes, c.native_deletes);
        /* Nothing is removed twice: a change line names each path once. */
        Lines sorted = r.changes;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
    }
}

TEST_F(E2eDelete, DeletingAStoredLeafTouchesOnlyThatLeaf)
{
    ASSERT_TRUE(edit(nh(SR, "10.0.0.0/24", "1") + "/config/metric = 5\n").result.ok());
    const std::string e = native_table(D4, "10.0.0.0", "24") + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]";
    ASSERT_TRUE(has(native(), e + "/metric = 5"));
    EditOutcome r = edit(nh(SR, "10.0.0.0/24", "1") + "/config/metric (delete)");
    ASSERT_TRUE(r.result.ok()) << r.result.message;
    EXPECT_EQ(native(), all_);
}

TEST_F(E2eDelete, DeleteOfAnUnknownIndexChangesNothing)
{
    EditOutcome r = edit(nh(SR, "10.0.0.0/24", "nope") + "/config/metric (delete)");
    EXPECT_FALSE(r.result.ok());
    EXPECT_EQ(native(), all_);
}

/* Large edits are applied in batches into the write transaction; a refusal after the first batches still stores nothing. */
TEST_F(E2eEdit, RefusalLateInALargeEditStoresNothing)
{
    const int N = 2500;
    std::string text;
    for (int i = 0; i < N; ++i)
        text += nh(SR, "10." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0/24", "1") +
                "/config/next-hop = 192.0.2.1\n";
    text += nh(SR, "10.200.0.0/16", "1") + "/config/next-hop = DROP\n" + nh(SR, "10.200.0.0/16", "1") +
            "/interface-ref/config/interface = Loopback0\n";
    EditOutcome r = edit(text);
    EXPECT_EQ(r.result.rc, YFW_RC_INVALID_REQUEST);
    EXPECT_TRUE(r.changes.empty());
    EXPECT_TRUE(native().empty());
    reopen();
    EXPECT_TRUE(native().empty());

    /* Without the refused route, every route arrives. */
    text.resize(text.find(nh(SR, "10.200.0.0/16", "1")));
    r = edit(text);
    ASSERT_TRUE(r.result.ok()) << r.result.message;
    reopen();
    size_t routes = 0;
    std::string err;
    EXPECT_TRUE(config->for_each_route(nullptr, nullptr, [&](const RouteKey &, const Route &) { return ++routes; }, err));
    EXPECT_EQ(routes, static_cast<size_t>(N));
}

} // namespace
