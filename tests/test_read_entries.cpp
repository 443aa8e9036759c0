/*
 * Stored native entries of every kind read back as OpenConfig configuration
 * and state; odd entries the router accepted read too, or are left out with
 * a warning, and no other route changes. A generated index edits its next hop.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "host/trace.h"
#include "walker_fixture.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

using Lines = std::vector<std::string>;

const std::string NAT = "/router-static/default-vrf/address-family/";
const std::string V4 = NAT + "vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.1.0.0][prefix-length=16]"
                             "/vrf-route/vrf-next-hop-table/";
const std::string V6 = NAT + "vrfipv6/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=2001:db8::][prefix-length=64]"
                             "/vrf-route/vrf-next-hop-table/";
const std::string ST = oc_static_routes("default") + "/static[prefix=10.1.0.0/16]";
const std::string ST6 = oc_static_routes("default") + "/static[prefix=2001:db8::/64]";

/* Index keys as dumped paths write them. */
std::string nh(const std::string &index, const std::string &st = ST)
{
    return st + "/next-hops/next-hop[index=" + index + "]";
}

/* Lines of a configured next hop: its index, next hop and interface. */
Lines cfg(const std::string &index, const std::string &next_hop, const char *ifname = nullptr, const char *subif = nullptr,
          const std::string &st = ST)
{
    Lines l = {nh(index, st) + "/config/index = " + index, nh(index, st) + "/config/next-hop = " + next_hop};
    if (ifname != nullptr)
        l.insert(l.end(), {nh(index, st) + "/interface-ref/config/interface = " + ifname,
                           nh(index, st) + "/interface-ref/config/subinterface = " + subif});
    return l;
}
Lines operator+(Lines a, const Lines &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/* A route next to every odd one: it must read the same whatever the store holds beside it. */
const std::string PLAIN_SEED =
    NAT + "vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.9.0.0][prefix-length=16]/vrf-route/"
          "vrf-next-hop-table/vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/metric = 3\n";
const std::string PLAIN = oc_static_routes("default") + "/static[prefix=10.9.0.0/16]/next-hops/next-hop[index=##192.0.2.9##]";

const std::string IF99 = "Gi" + std::string(92, 'x') + "0/0/1"; /* 99 characters: the read keeps it whole */
const std::string ADDR38 = "2001:db8:aaaa:bbbb:cccc:dddd:eeee:ffff";
/* "##<interface>.7##<address>##" cut to the 128 characters an index holds. */
const std::string LONG_INDEX = ("##" + IF99 + ".7##" + ADDR38 + "##").substr(0, 128);

struct EntryCase {
    const char *name;
    std::string seed;            /* native configuration lines */
    Lines want, want_state;      /* in get and get --state (and in get --state with "config" as "state"); in get --state only */
    Lines absent, warnings;      /* text in neither; each in one warning of each read */
};

void PrintTo(const EntryCase &c, std::ostream *os) { *os << c.name; }

const std::string NID = "/network-instances/network-instance[name=default]";
const std::string VRD = "/router-static/vrfs/vrf[vrf-name='r]d']/address-family/" + V4.substr(NAT.size());
const std::string PR = NID + "/protocols/protocol[identifier=STATIC][name=DEFAULT]";

const EntryCase CASES[] = {
    {"InstanceProtocolAndPrefix", V4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.1]/metric = 1\n",
     {NID + "/config/name = default", NID + "/config/type = DEFAULT_INSTANCE", PR + "/config/identifier = STATIC",
      PR + "/config/name = DEFAULT", ST + "/config/prefix = 10.1.0.0/16"},
     {PR + "/state/default-metric = 1", PR + "/state/enabled = true"}, {}, {}},
    /* only Null0 is DROP; a dot at the end is subinterface 0 */
    {"InterfaceNames", V4 + "vrf-next-hop-interface-name[interface-name=Gi0/0/0/1.100]/metric = 1\n" + V4 + "vrf-next-hop-interface-name[interface-name=Null0]/metric = 1\n" +
         V4 + "vrf-next-hop-interface-name[interface-name=NULL0]/metric = 1\n" + V6 + "vrf-next-hop-interface-name[interface-name=Null0]/metric = 1\n" +
         V6 + "vrf-next-hop-interface-name[interface-name=Lag5.]/metric = 1\n",
     cfg("##Gi0/0/0/1.100##", "LOCAL_LINK", "Gi0/0/0/1", "100") + cfg("##DROP##", "DROP") + cfg("##NULL0##", "LOCAL_LINK", "NULL0", "0") +
         cfg("##DROP##", "DROP", nullptr, nullptr, ST6) + cfg("##Lag5.##", "LOCAL_LINK", "Lag5", "0", ST6), {}, {"[index=##Null0", "[index=##NULL0##]/config/next-hop = DROP"}, {}},
    {"InterfaceAndAddress", V4 + "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/0/0/1.5][next-hop-address=192.0.2.1]/metric = 1\n" +
         V6 + "vrf-next-hop-interface-name-next-hop-address[interface-name=Lag1][next-hop-address=2001:db8::1]/metric = 1\n",
     cfg("##Gi0/0/0/1.5##192.0.2.1##", "192.0.2.1", "Gi0/0/0/1", "5") + cfg("##Lag1##2001:db8::1##", "2001:db8::1", "Lag1", "0", ST6), {}, {}, {}},
    {"Address", V4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/metric = 5\n" + V4 +
         "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/bfd-fast-detect = true\n" + V6 + "vrf-next-hop-next-hop-address[next-hop-address=2001:db8::9]/metric = 1\n",
     cfg("##192.0.2.9##", "192.0.2.9") + cfg("##2001:db8::9##", "2001:db8::9", nullptr, nullptr, ST6) +
         Lines{nh("##192.0.2.9##") + "/config/metric = 5", nh("##192.0.2.9##") + "/enable-bfd/config/enabled = true"}, {}, {}, {}},
    /* a native index replaces the generated one as the key */
    {"NativeIndex", V4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/index = 7\n" + V4 +
         "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/1][next-hop-address=10.0.0.1]/index = uplink\n",
     cfg("7", "192.0.2.9") + cfg("uplink", "10.0.0.1", "Gi0/1", "0"), {}, {"10.1.0.0/16]/next-hops/next-hop[index=##"}, {}},
    {"TagAndDescriptionGoToTheRoute", V4 + "vrf-next-hop-interface-name[interface-name=Null0]/tag = 42\n" + V4 +
         "vrf-next-hop-interface-name[interface-name=Null0]/description = core\n",
     {ST + "/config/set-tag = 42", ST + "/config/description = core"}, {}, {}, {}},
    {"SubinterfaceOfMoreThanNineDigitsIsCutInStateAsInConfig",
     V4 + "vrf-next-hop-interface-name[interface-name=Gi0/0/0/1.123456789012]/metric = 1\n",
     {nh("##Gi0/0/0/1.123456789012##") + "/interface-ref/config/subinterface = 123456789"}, {}, {}, {}},
    /* The route's other next hop, mapped after the odd one, keeps all its leaves. */
    {"NextHopWithANonNumericSubinterfaceIsLeftOutWithAWarning",
     V4 + "vrf-next-hop-interface-name[interface-name=Gi0/0/0/3.abc]/index = odd\n" +
         V4 + "vrf-next-hop-interface-name[interface-name=Gi0/0/0/3.abc]/tag = 9\n" +
         V4 + "vrf-next-hop-interface-name[interface-name=Gi0/0/0/4.5]/metric = 6\n" +
         V6 + "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/0/0/2.1.2]"
              "[next-hop-address=2001:db8::2]/metric = 1\n",
     {nh("##Gi0/0/0/4.5##") + "/config/metric = 6", ST6 + "/config/prefix = 2001:db8::/64"}, {},
     {"Gi0/0/0/3", "Gi0/0/0/2", "index=odd", "config/set-tag"},
     {"Gi0/0/0/3.abc of 10.1.0.0/16 in network instance default left out: subinterface \"abc\"",
      "Gi0/0/0/2.1.2 of 2001:db8::/64 in network instance default left out: subinterface \"1.2\""}},
    {"IndexCutInConfigIsTheIndexOfStateAndInterfaceIsWhole",
     V6 + "vrf-next-hop-interface-name-next-hop-address[interface-name=" + IF99 + ".7][next-hop-address=" +
         ADDR38 + "]/metric = 2\n",
     {nh(LONG_INDEX, ST6) + "/config/index = " + LONG_INDEX, nh(LONG_INDEX, ST6) + "/interface-ref/config/interface = " + IF99}, {}, {}, {}},
    {"UnderscoresInNamesKeepStateOnTheConfiguredEntry",
     V4 + "vrf-next-hop-interface-name[interface-name=tunnel_te1.2]/index = my_idx\n",
     {nh("my_idx") + "/interface-ref/config/interface = tunnel_te1"},
     {nh("my_idx") + "/state/index = my_idx", nh("my_idx") + "/state/next-hop = LOCAL_LINK"}, {"my/idx", "tunnel/te1", "##tunnel"}, {}},
    {"EmptyDescriptionIsAnEmptyLeafInStateToo",
     V4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.5]/description = \n",
     {ST + "/config/description = "}, {}, {}, {}},
    {"VrfNameWithABracketReads",
     VRD + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.3]/metric = 2\n" +
         VRD + "vrf-next-hop-interface-name[interface-name=Gi0/0/0/3.abc]/metric = 1\n",
     {"/network-instances/network-instance[name='r]d']/config/name = r]d",
      "/network-instances/network-instance[name='r]d']/config/type = L3VRF",
      nh("##192.0.2.3##", oc_static_routes("'r]d'") + "/static[prefix=10.1.0.0/16]") + "/config/metric = 2"},
     {}, {}, {"Gi0/0/0/3.abc of 10.1.0.0/16 in network instance r]d left out"}},
    {"TwoNextHopsWithOneIndexStayTwo",
     V4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.5]/index = dup\n" + V4 +
         "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.6]/index = dup\n",
     {nh("dup") + "/config/next-hop = 192.0.2.5", nh("##192.0.2.6##") + "/config/next-hop = 192.0.2.6"},
     {}, {}, {"next hop ##192.0.2.6## of 10.1.0.0/16 in network instance default: index \"dup\" is taken"}},
    {"IndexesWithBracketsOrAFirstLetterApartGetTheirState",
     V4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.7]/index = a]b\n" + V4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.8]/index = [v]\n" +
         V4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.6]/index = b]b\n" + V4
             + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.4]/index = \"q\n" +
         V4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.2]/index = 'w\n",
     {nh("'a]b'") + "/config/next-hop = 192.0.2.7", nh("'b]b'") + "/config/next-hop = 192.0.2.6", nh("'[v]'") + "/config/index = [v]",
      nh("'\"q'") + "/config/next-hop = 192.0.2.4", nh("\"'w\"") + "/config/next-hop = 192.0.2.2"},
     {}, {}, {}},
};

class StoredEntries : public WalkerFixture, public ::testing::WithParamInterface<EntryCase> {};

TEST_P(StoredEntries, ReadSucceedsAndEveryOtherRouteIsUnchanged)
{
    const EntryCase &c = GetParam();
    native_edit(PLAIN_SEED + c.seed);
    for (bool state : {false, true}) {
        SCOPED_TRACE(state ? "get --state" : "get");
        syslog_clear();
        const Lines lines = read(state);
        Lines want = c.want;
        want.push_back(PLAIN + "/config/metric = 3");
        if (state) {
            for (const std::string &w : c.want)
                if (w.find("/config/") != std::string::npos)
                    want.push_back(w.substr(0, w.find("/config/")) + "/state/" + w.substr(w.find("/config/") + 8));
            want.insert(want.end(), c.want_state.begin(), c.want_state.end());
            want.push_back(PLAIN + "/state/metric = 3");
        }
        for (const std::string &w : want)
            EXPECT_NE(std::find(lines.begin(), lines.end(), w), lines.end()) << w << "\n" << ::testing::PrintToString(lines);
        for (const std::string &a : c.absent)
            for (const std::string &l : lines)
                EXPECT_EQ(l.find(a), std::string::npos) << l;
        /* State never makes a next hop of its own: its entry always carries configuration. */
        for (const std::string &l : lines) {
            const size_t at = l.find("/next-hops/next-hop[");
            if (at == std::string::npos || l.find("/state/") == std::string::npos)
                continue;
            const std::string entry = l.substr(0, l.find("]/", at) + 2) + "config/index = ";
            EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string &e) { return e.compare(0, entry.size(), entry) == 0; }))
                << "state only: " << l;
        }

        Lines warned;
        for (const std::string &l : syslog_lines())
            if (l.compare(0, 2, "4:") == 0)
                warned.push_back(l);
        EXPECT_EQ(warned.size(), c.warnings.size()) << ::testing::PrintToString(warned);
        for (const std::string &w : c.warnings)
            EXPECT_TRUE(std::any_of(warned.begin(), warned.end(), [&](const std::string &l) { return l.find(w) != std::string::npos; })) << w;

        /* Filters read the same store: each succeeds, and the plain route is where they select it. */
        const struct {
            const char *vrf, *prefix;
            bool plain;
        } filters[] = {{"default", "", true}, {"", "10.9.0.0/16", true}, {"", "10.1.0.0/16", false}, {"default", "2001:db8::/64", false}};
        for (const auto &f : filters) {
            SCOPED_TRACE(std::string(f.vrf) + " " + f.prefix);
            const Lines sel = read(state, f.vrf, f.prefix);
            EXPECT_EQ(std::find(sel.begin(), sel.end(), PLAIN + "/config/metric = 3") != sel.end(), f.plain);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Store, StoredEntries, ::testing::ValuesIn(CASES),
                         [](const ::testing::TestParamInfo<EntryCase> &i) { return std::string(i.param.name); });

} // namespace
