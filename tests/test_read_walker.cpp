/*
 * Whole reads through the host's walker: a native configuration applied as
 * the router's own command line would, then read as OpenConfig by the
 * plug-in loaded from its shared library.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "walker_fixture.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

using Lines = std::vector<std::string>;

const std::string NI = "/network-instances/network-instance";
const std::string PROTO = "/protocols/protocol[identifier=STATIC][name=DEFAULT]";

using WalkerRead = WalkerFixture;

TEST_F(WalkerRead, MixedTablesFamiliesAndVrfsReadBackAsOpenConfig)
{
    const std::string d4 =
        "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
        "vrf-prefix[prefix=192.0.2.0][prefix-length=24]/vrf-route/vrf-next-hop-table/";
    const std::string r6 =
        "/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv6/vrf-unicast/vrf-prefixes/"
        "vrf-prefix[prefix=2001:db8::][prefix-length=64]/vrf-route/vrf-next-hop-table/";
    native_edit(d4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/tag = 10\n" + d4 +
              "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/0/0/1.5][next-hop-address=192.0.2.1]"
              "/metric = 4\n" +
              d4 + "vrf-next-hop-interface-name[interface-name=Null0]/index = blackhole\n" + r6 +
              "vrf-next-hop-interface-name[interface-name=Loopback1]/bfd-fast-detect = true\n");

    const std::string s4 = NI + "[name=default]" + PROTO + "/static-routes/static[prefix=192.0.2.0/24]";
    const std::string s6 = NI + "[name=red]" + PROTO + "/static-routes/static[prefix=2001:db8::/64]";
    const std::string a = s4 + "/next-hops/next-hop[index=##192.0.2.9##]";
    const std::string ia = s4 + "/next-hops/next-hop[index=##Gi0/0/0/1.5##192.0.2.1##]";
    const std::string dr = s4 + "/next-hops/next-hop[index=blackhole]";
    const std::string lo = s6 + "/next-hops/next-hop[index=##Loopback1##]";
    const std::string pd = NI + "[name=default]" + PROTO;
    const std::string pr = NI + "[name=red]" + PROTO;
    Lines want = {
        NI + "[name=default]/config/name = default",
        NI + "[name=default]/config/type = DEFAULT_INSTANCE",
        pd + "/config/identifier = STATIC",
        pd + "/config/name = DEFAULT",
        s4 + "/config/prefix = 192.0.2.0/24",
        s4 + "/config/set-tag = 10",
        a + "/config/index = ##192.0.2.9##",
        a + "/config/next-hop = 192.0.2.9",
        ia + "/config/index = ##Gi0/0/0/1.5##192.0.2.1##",
        ia + "/config/metric = 4",
        ia + "/config/next-hop = 192.0.2.1",
        ia + "/interface-ref/config/interface = Gi0/0/0/1",
        ia + "/interface-ref/config/subinterface = 5",
        /* The Null0 next hop's own index replaced "##DROP##". */
        dr + "/config/index = blackhole",
        dr + "/config/next-hop = DROP",
        NI + "[name=red]/config/name = red",
        NI + "[name=red]/config/type = L3VRF",
        pr + "/config/identifier = STATIC",
        pr + "/config/name = DEFAULT",
        s6 + "/config/prefix = 2001:db8::/64",
        lo + "/config/index = ##Loopback1##",
        lo + "/config/next-hop = LOCAL_LINK",
        lo + "/enable-bfd/config/enabled = true",
        lo + "/interface-ref/config/interface = Loopback1",
        lo + "/interface-ref/config/subinterface = 0",
    };
    std::sort(want.begin(), want.end());
    EXPECT_EQ(read(false), want);
}

TEST_F(WalkerRead, StateReadAddsProtocolStateAndBfdState)
{
    native_edit("/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
              "vrf-prefix[prefix=198.51.100.0][prefix-length=25]/vrf-route/vrf-next-hop-table/"
              "vrf-next-hop-next-hop-address[next-hop-address=198.51.100.1]/bfd-fast-detect = true\n");
    const Lines lines = read(true);
    const std::string p = NI + "[name=default]" + PROTO;
    const std::string n = p + "/static-routes/static[prefix=198.51.100.0/25]/next-hops/next-hop[index=##198.51.100.1##]";
    for (const std::string &want : {p + "/state/identifier = STATIC", p + "/state/name = DEFAULT",
                                    p + "/state/enabled = true", p + "/state/default-metric = 1",
                                    n + "/enable-bfd/config/enabled = true", n + "/enable-bfd/state/enabled = true"}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), want), lines.end()) << want;
    }
}

} // namespace
