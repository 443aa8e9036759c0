/*
 * Reads end to end: the configuration an edit stored, read back through the
 * plug-in whole, filtered by instance and prefix, and with state (the
 * operational request, the installed routes' answer and the reverse
 * callbacks).
 */
#include <gtest/gtest.h>

#include <algorithm>

#include "walker_fixture.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

using Lines = std::vector<std::string>;

const std::string SR = oc_static_routes("default");
const std::string SR_RED = oc_static_routes("red");

bool has(const Lines &l, const std::string &s) { return std::find(l.begin(), l.end(), s) != l.end(); }
bool any_with(const Lines &l, const std::string &part)
{
    return std::any_of(l.begin(), l.end(), [&](const std::string &s) { return s.find(part) != std::string::npos; });
}

class E2eRead : public WalkerFixture {
protected:
    void SetUp() override
    {
        WalkerFixture::SetUp();
        EditOutcome r = edit("/network-instances/network-instance[name=red]/config/name = red\n" +
                             SR + "/static[prefix=10.0.0.0/24]/config/set-tag = 7\n" +
                             SR + "/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=a/1]/config/next-hop = 10.0.0.1\n" +
                             SR + "/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=a/1]/config/metric = 3\n" +
                             SR + "/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=b]/interface-ref/config/interface = Gi0/0/0/2\n" +
                             SR + "/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=b]/interface-ref/config/subinterface = 4\n" +
                             SR + "/static[prefix=2001:db8::/64]/next-hops/next-hop[index=1]/config/next-hop = DROP\n" +
                             SR_RED + "/static[prefix=10.9.0.0/16]/next-hops/next-hop[index=1]/config/next-hop = 10.9.0.1\n");
        ASSERT_TRUE(r.result.ok()) << rc_text(r.result.rc) << " " << r.result.message << " " << r.result.path;
    }
};

TEST_F(E2eRead, EveryRouteReadsBackUnderItsInstanceWithItsOwnIndexes)
{
    const Lines l = read();
    const std::string r = SR + "/static[prefix=10.0.0.0/24]";
    EXPECT_TRUE(has(l, r + "/config/set-tag = 7"));
    EXPECT_TRUE(has(l, r + "/next-hops/next-hop[index=a/1]/config/metric = 3"));
    EXPECT_TRUE(has(l, r + "/next-hops/next-hop[index=a/1]/config/next-hop = 10.0.0.1"));
    EXPECT_TRUE(has(l, r + "/next-hops/next-hop[index=b]/interface-ref/config/interface = Gi0/0/0/2"));
    EXPECT_TRUE(has(l, r + "/next-hops/next-hop[index=b]/interface-ref/config/subinterface = 4"));
    EXPECT_TRUE(has(l, SR + "/static[prefix=2001:db8::/64]/next-hops/next-hop[index=1]/config/next-hop = DROP"));
    EXPECT_TRUE(has(l, SR_RED + "/static[prefix=10.9.0.0/16]/next-hops/next-hop[index=1]/config/next-hop = 10.9.0.1"));
    EXPECT_FALSE(any_with(l, "/state/")) << "no state without asking";
}

TEST_F(E2eRead, FiltersNarrowTheReadToAnInstanceAndAPrefix)
{
    const Lines red = read(false, "red");
    EXPECT_TRUE(any_with(red, "static[prefix=10.9.0.0/16]"));
    EXPECT_FALSE(any_with(red, "network-instance[name=default]"));

    const Lines one = read(false, "default", "2001:db8::/64");
    EXPECT_TRUE(any_with(one, "static[prefix=2001:db8::/64]"));
    EXPECT_FALSE(any_with(one, "static[prefix=10.0.0.0/24]"));

    /* A prefix without an instance is looked for in every instance. */
    const Lines anywhere = read(false, "", "10.9.0.0/16");
    EXPECT_TRUE(any_with(anywhere, "network-instance[name=red]"));
    EXPECT_FALSE(any_with(anywhere, "static[prefix=10.0.0.0/24]"));

    EXPECT_TRUE(read(false, "blue").empty());
    EXPECT_FALSE(any_with(read(false, "default", "10.1.0.0/16"), "static["));
}

TEST_F(E2eRead, StateComesFromTheInstalledRoutes)
{
    const Lines l = read(true);
    const std::string r = SR + "/static[prefix=10.0.0.0/24]";
    const std::string a = r + "/next-hops/next-hop[index=a/1]";
    const std::string b = r + "/next-hops/next-hop[index=b]";
    for (const std::string &want : {
             r + "/state/prefix = 10.0.0.0/24",
             r + "/state/set-tag = 7",
             a + "/state/index = a/1",
             a + "/state/next-hop = 10.0.0.1",
             a + "/state/metric = 3",
             b + "/state/next-hop = LOCAL_LINK",
             b + "/interface-ref/state/interface = Gi0/0/0/2",
             b + "/interface-ref/state/subinterface = 4",
             SR + "/static[prefix=2001:db8::/64]/next-hops/next-hop[index=1]/state/next-hop = DROP",
             SR_RED + "/static[prefix=10.9.0.0/16]/next-hops/next-hop[index=1]/state/next-hop = 10.9.0.1",
             /* configuration comes along */
             a + "/config/metric = 3",
         })
        EXPECT_TRUE(has(l, want)) << want;
    /* State and configuration share one entry per route and next hop. */
    EXPECT_EQ(std::count_if(l.begin(), l.end(),
                            [&](const std::string &s) { return s.rfind(a + "/state/index", 0) == 0; }),
              1);
}

TEST_F(E2eRead, EmptyStoreReadsEmpty)
{
    TearDown();
    WalkerFixture::SetUp();
    EXPECT_TRUE(read().empty());
    EXPECT_TRUE(read(true).empty());
}

/* State reads go a batch of routes at a time: routes on both sides of a batch boundary get their state. */
TEST_F(WalkerFixture, StateOfManyRoutesSpansRequestBatches)
{
    const int N = 2100;
    std::string text;
    for (int i = 0; i < N; ++i)
        text += "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10." +
                std::to_string(i / 256) + "." + std::to_string(i % 256) +
                ".0][prefix-length=24]/vrf-route/vrf-next-hop-table/vrf-next-hop-next-hop-address[next-hop-address=192.0.2." +
                std::to_string(1 + i % 250) + "]/metric = " + std::to_string(1 + i % 9) + "\n";
    native_edit(text);
    const Lines l = read(true);
    size_t prefixes = 0, metrics = 0;
    for (const std::string &s : l) {
        prefixes += s.find("/state/prefix = ") != std::string::npos;
        metrics += s.find("/state/metric = ") != std::string::npos;
    }
    EXPECT_EQ(prefixes, static_cast<size_t>(N));
    EXPECT_EQ(metrics, static_cast<size_t>(N));
}

} // namespace
