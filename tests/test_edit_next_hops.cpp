/*
 * OpenConfig static-route edits mapped to native next hops, walked as the
 * framework walks them over a seeded store; checked on the native
 * configuration, the output tree with its operations, message and result.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "host/native_apply.h"
#include "host/plugin_loader.h"
#include "host/store.h"
#include "host/store_layout.h"
#include "host/tree.h"
#include "host/walker.h"
#include "tree_builder.h"
#include "walker_fixture.h"

#include "ocni_common.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

using Lines = std::vector<std::string>;

/* Paths */

bool is_v4(const std::string &prefix)
{
    return prefix.find(':') == std::string::npos;
}

std::string oc_nh(const std::string &vrf, const std::string &prefix, const std::string &index)
{
    return oc_static(vrf, prefix) + "/next-hops/next-hop[index=" + index + "]";
}

/* Native next-hop table of a route, ending in "/". */
std::string table(const std::string &vrf, const std::string &prefix)
{
    const size_t slash = prefix.find('/');
    const std::string root = vrf == "default" ? "/router-static/default-vrf"
                                              : "/router-static/vrfs/vrf[vrf-name=" + vrf + "]";
    return root + "/address-family/" + (is_v4(prefix) ? "vrfipv4" : "vrfipv6") +
           "/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=" + prefix.substr(0, slash) +
           "][prefix-length=" + prefix.substr(slash + 1) + "]/vrf-route/vrf-next-hop-table/";
}

std::string if_entry(const std::string &ifname)
{
    return "vrf-next-hop-interface-name[interface-name=" + ifname + "]";
}

std::string both_entry(const std::string &ifname, const std::string &addr)
{
    return "vrf-next-hop-interface-name-next-hop-address[interface-name=" + ifname +
           "][next-hop-address=" + addr + "]";
}

std::string addr_entry(const std::string &addr)
{
    return "vrf-next-hop-next-hop-address[next-hop-address=" + addr + "]";
}

/* Prefixes every line with `base`. */
Lines under(const std::string &base, const Lines &tails)
{
    Lines l;
    for (const std::string &t : tails)
        l.push_back(base + t);
    std::sort(l.begin(), l.end());
    return l;
}

std::string join(const Lines &lines)
{
    std::string s;
    for (const std::string &l : lines)
        s += l + "\n";
    return s;
}

/* Fixture */

class EditWalk : public WalkerFixture {
protected:
    void SetUp() override
    {
        WalkerFixture::SetUp();
        ASSERT_EQ(store_add_vrf("red"), YFW_RC_OK);
    }
    EditOutcome edit(const Lines &lines) { return WalkerFixture::edit(join(lines)); }
    void seed(const Lines &lines) { native_edit(join(lines)); }

    /* The native configuration's next-hop lines. */
    Lines next_hops()
    {
        Lines l;
        for (const std::string &s : native())
            if (s.find("/vrf-next-hop-table/") != std::string::npos)
                l.push_back(s);
        return l;
    }

    /* Key leaves the last edit ties to it below a next-hop entry that is not tied to it itself. */
    Lines untied_entries()
    {
        const Lines out = tree_lines(walker->last_native_output());
        Lines l;
        for (const std::string &s : out) {
            const size_t end = s.find("]/", s.find("/vrf-next-hop-table/"));
            const std::string entry = s.substr(0, end + 1) + " (";
            if (end != std::string::npos && s.back() == ')' && (s.find("]/next-hop-address = ") == end || s.find("]/interface-name = ") == end) &&
                std::none_of(out.begin(), out.end(), [&](const std::string &o) { return o.compare(0, entry.size(), entry) == 0; }))
                l.push_back(s);
        }
        return l;
    }
};

/* Changes of a stored next hop */

const std::string P4 = "10.1.0.0/16";
const std::string IX = "10##"; /* an ordinary index that only ends the way a generated one ("##...##") does */

struct ChangeCase {
    const char *name;
    std::string vrf;
    Lines stored;   /* the stored entry's lines below the table (index IX) */
    Lines leaves;   /* the edit, below next-hop[index=IX] */
    Lines expected; /* the table afterwards */
    bool removes;   /* the old entry is removed in the output */
};

std::vector<ChangeCase> change_cases()
{
    const Lines kept = {"/tag = 9", "/description = core", "/bfd-fast-detect = true", "/detect-multiplier = 3",
                        "/minimum-interval = 50", "/permanent = true", "/vrf-lable = 7", "/tunnel-id = 4",
                        "/load-metric = 2", "/object-name = obj1"};
    /* The entry's lines: the attributes kept, its index and a metric. */
    auto plus_index = [&](const std::string &entry, const std::string &metric = "5") {
        Lines l = {entry + "/index = " + IX, entry + "/metric = " + metric};
        for (const std::string &k : kept)
            l.push_back(entry + k);
        return l;
    };
    return {
        {"InterfaceAddedToAddress", "default", plus_index(addr_entry("10.0.0.1")),
         {"/interface-ref/config/interface = GigabitEthernet0/0/0/1"},
         plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")), true},
        {"InterfaceChangedKeepsAddress", "red", plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")),
         {"/interface-ref/config/interface = GigabitEthernet0/0/0/2"},
         plus_index(both_entry("GigabitEthernet0/0/0/2", "10.0.0.1")), true},
        {"AddressChangedKeepsInterface", "default", plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")),
         {"/config/next-hop = 10.0.0.2"},
         plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.2")), true},
        {"AddressChangedAlone", "red", plus_index(addr_entry("10.0.0.1")),
         {"/config/next-hop = 10.0.0.2"},
         plus_index(addr_entry("10.0.0.2")), true},
        {"InterfaceChangedAlone", "default", plus_index(if_entry("GigabitEthernet0/0/0/1")),
         {"/interface-ref/config/interface = GigabitEthernet0/0/0/3"},
         plus_index(if_entry("GigabitEthernet0/0/0/3")), true},
        {"DropBecomesAddressWithTheRequestMetric", "default", plus_index(if_entry("Null0")),
         {"/config/next-hop = 10.0.0.9", "/config/metric = 30"},
         plus_index(addr_entry("10.0.0.9"), "30"), true},
        {"AddressBecomesDrop", "red", plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")),
         {"/config/next-hop = DROP"},
         plus_index(if_entry("Null0")), true},
        {"SameNextHopChangesNothing", "default", plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")),
         {"/config/next-hop = 10.0.0.1", "/interface-ref/config/interface = GigabitEthernet0/0/0/1"},
         plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")), false},
        {"SameAddressChangesNothing", "default", plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")),
         {"/config/next-hop = 10.0.0.1"},
         plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")), false},
        {"SameInterfaceWithAMetric", "red", plus_index(if_entry("GigabitEthernet0/0/0/1")),
         {"/interface-ref/config/interface = GigabitEthernet0/0/0/1", "/config/metric = 30"},
         plus_index(if_entry("GigabitEthernet0/0/0/1"), "30"), false},
        {"SameAddressWithAMetric", "red", plus_index(addr_entry("10.0.0.1")),
         {"/config/next-hop = 10.0.0.1", "/config/metric = 30"}, plus_index(addr_entry("10.0.0.1"), "30"), false},
        {"AddressAndInterfaceChanged", "red", plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")),
         {"/config/next-hop = 10.0.0.2", "/interface-ref/config/interface = GigabitEthernet0/0/0/2"},
         plus_index(both_entry("GigabitEthernet0/0/0/2", "10.0.0.2")), true},
        {"InterfaceDeleteOnAnAddressWithAMetric", "default", plus_index(addr_entry("10.0.0.1")), {"/config/metric = 30",
         "/interface-ref/config/interface (delete)"}, plus_index(addr_entry("10.0.0.1"), "30"), false},
        {"MetricAloneRewritesTheMetric", "default", plus_index(addr_entry("10.0.0.1")),
         {"/config/metric = 30"},
         plus_index(addr_entry("10.0.0.1"), "30"), false},
        {"SubinterfaceDeleteDropsTheSuffix", "default", plus_index(if_entry("Bundle1.5")),
         {"/interface-ref/config/subinterface (delete)"},
         plus_index(if_entry("Bundle1")), true},
        {"InterfaceDeleteLeavesTheAddress", "red", plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")),
         {"/interface-ref/config/interface (delete)"},
         plus_index(addr_entry("10.0.0.1")), true},
        {"NextHopDeleteLeavesTheInterface", "default", plus_index(both_entry("GigabitEthernet0/0/0/1", "10.0.0.1")),
         {"/config/next-hop (delete)"},
         plus_index(if_entry("GigabitEthernet0/0/0/1")), true},
        {"DropReplacedByAnInterface", "red", plus_index(if_entry("Null0")),
         {"/config/next-hop (delete)", "/interface-ref/config/interface = GigabitEthernet0/0/0/1"},
         plus_index(if_entry("GigabitEthernet0/0/0/1")), true},
    };
}

TEST_F(EditWalk, StoredNextHopChangeRewritesTheEntryWithItsAttributes)
{
    for (const ChangeCase &c : change_cases()) {
        SCOPED_TRACE(c.name);
        TearDown(), SetUp();
        seed(under(table(c.vrf, P4), c.stored));
        ASSERT_EQ(next_hops(), under(table(c.vrf, P4), c.stored));

        Lines in = {oc_static(c.vrf, P4) + "/config/prefix = " + P4};
        for (const std::string &l : c.leaves)
            in.push_back(oc_nh(c.vrf, P4, IX) + l);
        EditOutcome o = edit(in);
        ASSERT_EQ(o.result.rc, 0u) << o.result.message << " at " << o.result.path;
        EXPECT_EQ(o.result.message, "");
        EXPECT_EQ(next_hops(), under(table(c.vrf, P4), c.expected));
        const std::string out = join(tree_lines(walker->last_native_output()));
        EXPECT_EQ(out.find(" (remove)\n") != std::string::npos, c.removes) << out;
        EXPECT_EQ(untied_entries(), Lines{});
    }
}

/* Refusals */

struct RefusalCase {
    const char *name;
    std::string vrf;
    std::string prefix;
    Lines leaves; /* below oc_static(vrf, prefix); "NH" stands for next-hop[index=1] */
    cerrno rc;
    std::string message;
};

std::vector<RefusalCase> refusal_cases()
{
    return {
        {"DropWithInterface", "default", P4,
         {"NH/config/next-hop = DROP", "NH/interface-ref/config/interface = GigabitEthernet0/0/0/1"},
         YFW_RC_INVALID_REQUEST, "Interface configuration is not allowed when next-hop is drop"},
        {"LocalLinkWithoutInterface", "red", "2001:db8::/64", {"NH/config/next-hop = LOCAL_LINK"},
         YFW_RC_INVALID_REQUEST, "Interface configuration is must when next-hop is local-link"},
        {"DotInInterfaceName", "default", P4, {"NH/interface-ref/config/interface = GigabitEthernet0/0/0/1.5"},
         YFW_RC_INVALID_REQUEST, "Invalid request"},
        {"InterfaceDeleteWithoutInterface", "default", P4,
         {"NH/interface-ref/config/interface (delete)"}, YFW_RC_INVALID_REQUEST,
         "Delete  received for the entry that has no interface config"},
        {"NextHopDeleteWithoutAddress", "default", P4, {"NH[index=2]/config/next-hop (delete)"},
         YFW_RC_INVALID_REQUEST, "Delete  received for the entry that has no nexthop config"},
        {"LeafDeleteOfUnknownIndex", "default", P4, {"NH[index=9]/config/metric (delete)"},
         SYSDB_RC_NOT_FOUND, ""},
        {"StoredAddressChangedToTheOtherFamily", "default", P4, {"NH/config/next-hop = 2001:db8::1"}, YFW_RC_INVALID_REQUEST,
         "next-hop \"2001:db8::1\" is an IPv6 address in an IPv4 route (at " + oc_nh("default", P4, "1") + "/config/next-hop)"},
        {"MetricOfUnknownIndexAlone", "default", P4, {"NH[index=9]/config/metric = 5"},
         YFW_RC_INVALID_REQUEST, "Invalid request"},
        {"IndexOf129Characters", "default", P4, {"NH[index=" + std::string(129, 'i') + "]/config/next-hop = 10.0.0.5"},
         YFW_RC_INVALID_REQUEST, "Index is out of allowed range of 128 characters"},
        {"GeneratedIndexNotMatchingTheNextHop", "default", P4,
         {"NH[index=##10.0.0.7##]/config/next-hop = 10.0.0.8"}, YFW_RC_MAP_FAILED, ""},
        {"NetworkInstanceNotConfigured", "blue", P4, {"NH/config/next-hop = 10.0.0.5"},
         YFW_RC_INVALID_REQUEST,
         "Static route configuration is not allowed as network-instance blue is not configured yet"},
        {"PrefixWithoutNetmask", "default", "10.1.0.0", {"NH/config/next-hop = 10.0.0.5"},
         YFW_RC_INVALID_REQUEST, "Invalid 'prefix' - netmask is missing"},
        {"InterfaceOnAStoredDrop", "default", P4,
         {"NH[index=3]/interface-ref/config/interface = GigabitEthernet0/0/0/1", "NH[index=3]/config/metric = 5"},
         YFW_RC_INVALID_REQUEST, "Interface configuration is not allowed when next-hop is drop"},
        {"MetricTheStoreCannotHold", "default", P4,
         {"NH[index=4]/config/next-hop = 10.0.0.4", "NH[index=4]/config/metric = 4294967295"},
         YFW_RC_INVALID_REQUEST, "Metric 4294967295 is not supported - the largest metric allowed is 4294967294"},
    };
}

TEST_F(EditWalk, RefusalReportsAndLeavesTheStoreAlone)
{
    for (const RefusalCase &c : refusal_cases()) {
        SCOPED_TRACE(c.name);
        TearDown(), SetUp();
        const std::string t = table("default", P4);
        seed({t + addr_entry("10.0.0.1") + "/index = 1", t + addr_entry("10.0.0.1") + "/metric = 5",
              t + if_entry("GigabitEthernet0/0/0/4") + "/index = 2", t + if_entry("Null0") + "/index = 3"});
        const Lines before = next_hops();
        const std::vector<std::string> store_before = stored_keys_and_values();

        Lines in;
        for (std::string l : c.leaves) {
            if (l.compare(0, 3, "NH/") == 0)
                l = "/next-hops/next-hop[index=1]" + l.substr(2);
            else if (l.compare(0, 3, "NH[") == 0)
                l = "/next-hops/next-hop" + l.substr(2);
            in.push_back(oc_static(c.vrf, c.prefix) + l);
        }
        EditOutcome o = edit(in);
        EXPECT_EQ(o.result.rc, c.rc) << rc_text(o.result.rc) << " " << o.result.message;
        if (!c.message.empty()) {
            EXPECT_EQ(o.result.message, c.message);
        }
        EXPECT_EQ(next_hops(), before);
        EXPECT_EQ(stored_keys_and_values(), store_before); /* every key and byte, the lookups' projection too */
    }
}

/* Route-wide set-tag and description */

class RouteWide : public EditWalk {
protected:
    void seed_three()
    {
        seed({t + addr_entry("10.0.0.1") + "/index = 1", t + if_entry("GigabitEthernet0/0/0/1") + "/index = 2",
              t + both_entry("GigabitEthernet0/0/0/2", "10.0.0.2") + "/index = 3"});
    }
    Lines three_with(const std::string &leaf)
    {
        Lines l = {t + addr_entry("10.0.0.1") + "/index = 1", t + if_entry("GigabitEthernet0/0/0/1") + "/index = 2",
                   t + both_entry("GigabitEthernet0/0/0/2", "10.0.0.2") + "/index = 3"};
        if (!leaf.empty()) {
            l.push_back(t + addr_entry("10.0.0.1") + leaf);
            l.push_back(t + if_entry("GigabitEthernet0/0/0/1") + leaf);
            l.push_back(t + both_entry("GigabitEthernet0/0/0/2", "10.0.0.2") + leaf);
        }
        std::sort(l.begin(), l.end());
        return l;
    }
    const std::string t = table("red", P4);
    const std::string st = oc_static("red", P4);
};

TEST_F(RouteWide, DescriptionReachesEveryStoredNextHopAndGoesAgain)
{
    seed_three();
    EditOutcome o = edit({st + "/config/description = to-core"});
    ASSERT_EQ(o.result.rc, 0u) << o.result.message;
    EXPECT_EQ(next_hops(), three_with("/description = to-core"));
    o = edit({st + "/config/description (delete)"});
    ASSERT_EQ(o.result.rc, 0u) << o.result.message;
    EXPECT_EQ(next_hops(), three_with(""));
}

struct DescriptionCase {
    const char *name;
    std::string value;
    std::string stored;  /* native description; "" when refused */
    std::string message; /* client message when refused */
};

const char INVALID_CHAR[] =
    "Supplied description value contains an invalid character - '(', ')' or ' '(not properly "
    "enclosed in quotes) or '\"'";

std::vector<DescriptionCase> description_cases()
{
    return {
        {"Plain", "to-core", "to-core", ""},
        {"QuotedKeepsItsQuotes", "\"to core\"", "\"to core\"", ""},
        {"EntityQuotesBecomeQuotes", "&quot;to core&quot;", "\"to core\"", ""},
        {"EscapedParentheses", "link\\(a\\)", "link(a)", ""},
        {"TrailingBackslashIsCut", "core\\", "core", ""},
        {"ThirtyCharacters", std::string(30, 'x'), std::string(30, 'x'), ""},
        {"Blank", "to core", "", INVALID_CHAR},
        {"Parenthesis", "link(a)", "", INVALID_CHAR},
        {"LoneQuote", "\"", "", INVALID_CHAR},
        {"InnerQuote", "a\"b", "",
         "Supplied description is not allowed to have '\"' unless it is enclosing the value (Enclosing "
         "quotes should not be escaped)"},
        {"SoleBackslash", "\\", "", "Supplied description value only contains a sole '\\'"},
        {"ThirtyOneCharacters", std::string(31, 'x'), "",
         "The length of the supplied description is greater than the maximum length allowed"},
        {"LongEntityFormIsMeasuredConverted", "&quot;" + std::string(28, 'y') + "&quot;",
         "\"" + std::string(28, 'y') + "\"", ""},
    };
}

/* The stored and the new next hop of the route take the converted description; a refusal changes nothing. */
TEST_F(RouteWide, DescriptionIsCheckedConvertedAndStored)
{
    for (const DescriptionCase &c : description_cases()) {
        SCOPED_TRACE(c.name);
        TearDown(), SetUp();
        const std::string e = t + addr_entry("10.0.0.1");
        const std::string added = t + addr_entry("10.0.0.5");
        seed({e + "/index = 1", e + "/description = old"});
        EditOutcome o = edit({st + "/config/description = " + c.value, oc_nh("red", P4, "5") + "/config/next-hop = 10.0.0.5"});
        if (c.message.empty()) {
            ASSERT_EQ(o.result.rc, 0u) << o.result.message;
            const Lines now = next_hops();
            for (const std::string &entry : {e, added})
                EXPECT_NE(std::find(now.begin(), now.end(), entry + "/description = " + c.stored), now.end())
                    << join(now);
        } else {
            EXPECT_EQ(o.result.rc, YFW_RC_INVALID_REQUEST);
            EXPECT_EQ(o.result.message, c.message);
            EXPECT_EQ(next_hops(), (Lines{e + "/description = old", e + "/index = 1"}));
        }
    }
}

} // namespace
