/*
 * Name and value helpers, the per-next-hop reset of the route record,
 * native path naming and the next-hop checks, driven through the host.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "host/iface_table.h"
#include "host/store.h"
#include "host/store_layout.h"
#include "host_fixture.h"
#include "tree_builder.h"
#include "walker_fixture.h"
#include "ymap_ocni_openconfig_local_routing_man.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"
#include "ymap_ocni_velmar_orn_qz_ip_static_cfg_man.h"

using namespace ocni::test;
namespace host = ocni::host;

namespace {

ocni_route_common_data *new_record(HostHarness &h)
{
    auto *rec = static_cast<ocni_route_common_data *>(wos_named_calloc_(sizeof(ocni_route_common_data), 1, OCNI_TAG_MAP));
    h.rc->common_data_ptr = rec;
    return rec;
}

/* Names, numbers and texts */

TEST(UtilTexts, NumbersAddressesDescriptionsAndLengths)
{
    const std::pair<int32_t, uint32_t> hex[] = {{1, 1},   {16, 10}, {0, 0},     {-5, 0},   {0x12, 12}, {0x1A, 20},
                                                {24, 18}, {64, 40}, {128, 80}, {0x7fffffff, 70000000u + 15u * 1111111u}};
    for (const auto &r : hex)
        EXPECT_EQ(ocni_dec_to_hex(r.first), r.second) << r.first; /* hexadecimal digits read as decimal */

    const std::pair<const char *, const char *> family[] = {
        {"10.0.0.1", "ipv4"}, {"2001:db8::1", "ipv6"}, {"::", "ipv6"}, {"10.0.0.0/24", "NULL"},
        {"abc", "NULL"},      {"", "NULL"},            {"localhost", "NULL"} /* never a name lookup */};
    for (const auto &r : family)
        EXPECT_STREQ(ocni_ymap_localrouting_check_ipv4_ipv6(r.first), r.second) << r.first;

    EXPECT_STREQ(ocni_get_ip_string("0a000001"), "10.0.0.1");
    EXPECT_STREQ(ocni_get_ip_string("c0a80a00"), "192.168.10.0");
    EXPECT_STREQ(ocni_get_ip_string("20010db8000000000000000000000001"), "2001:db8::1");

    const std::pair<const char *, int> quoted[] = {
        {"\"abc\"", 1},          {"\"\"", 1},           {"\"a b (c)\"", 1}, {"\"a\"b\"", -1}, {"abc", -1},
        {"\"abc", -1},           {"&quot;abc&quot;", 1}, {"&quot;a\"b&quot;", -1}, {"&quot;abc", -1},
        {"a", 0},                {"\"", 0},             {"", 0},            {nullptr, 0}};
    for (const auto &r : quoted)
        EXPECT_EQ(ocni_check_quoted_description(r.first), r.second) << (r.first ? r.first : "(null)");

    const std::pair<const char *, uint32_t> length[] = {{"a/bc", 2}, {"a/b/", 2}, {"/a/b/c", 5}, {"/a", 1}, {"abc", 0},
                                                        {"/", 0},    {"a/", 0},   {"", 0},       {nullptr, 0}};
    for (const auto &r : length)
        EXPECT_EQ(ocni_get_length(r.first), r.second) << (r.first ? r.first : "(null)"); /* part before the last segment */

    /* Interface names: "_" and "/" swapped either way; the store form is cut to 64 characters; null is ignored. */
    const struct { void (*conv)(char *); const char *in, *out; } swap[] = {
        {ocni_get_external_ifname, "Gi0_0/1", "Gi0/0/1"}, {ocni_get_external_ifname_reverse, "Gi0/0_1/", "Gi0_0_1_"}};
    for (const auto &r : swap) {
        std::string text = r.in;
        r.conv(nullptr), r.conv(&text[0]);
        EXPECT_EQ(text, r.out);
    }
    const std::string a64(64, 'a'), s63 = "/" + a64.substr(1);
    const std::pair<std::string, std::string> internal[] = {{"Gi0/0/0/1", "Gi0_0_0_1"}, {"", "keep"}, {"/", "_"}, {s63, "_" + a64.substr(1)},
                                                            {a64 + "b", a64}, {s63 + "//", "_" + a64.substr(1)}, {a64 + a64, a64}};
    for (const auto &r : internal) {
        char dst[65] = "keep";
        ocni_lr_convert_to_internal_ifname(dst, r.first.c_str());
        ocni_lr_convert_to_internal_ifname(nullptr, r.first.c_str()), ocni_lr_convert_to_internal_ifname(dst, nullptr);
        EXPECT_EQ(std::string(dst), r.second) << r.first.size() << " characters";
    }
}

TEST_F(HostFixture, VrfExistsWhenDefaultCreatedInTheRequestOrListedInTheStore)
{
    host::store_reset();
    ASSERT_EQ(host::store_add_vrf("blue"), 0u);
    TreePtr t = build_tree("/network-instances/network-instance[name=green]/config/name = green", OCNI_NS_OC_NI);
    const struct { const char *vrf; uint8_t before, after; bool readable = true; /* a failed read leaves no count */ } rows[] = {
        {nullptr, 0, 1}, {"default", 0, 1}, {"green", 0, 1}, {"blue", 0, 1}, {"red", 1, 0}, {"Default", 1, 0}, {"blue", 1, 0, false}};
    ASSERT_TRUE(host::req_push_ancestor(h.rc, "/network-instances", host::tree_find(t.get(), "/network-instances")));
    for (const auto &r : rows) {
        h.set_vrf(r.vrf);
        host::store_scope_each_lookup(r.readable);
        uint8_t flag = r.before;
        EXPECT_EQ(ocni_yfw_ipstatic_vrf_exists(h.ctx, &flag), 0u);
        EXPECT_EQ(flag, r.after) << (r.vrf ? r.vrf : "no VRF");
    }
    host::store_reset();
}

TEST(UtilNames, OnlyAKnownInterfaceIsValidAndFailuresGoToTheSystemLog)
{
    const std::string longest(IMC_IFNAME_LEN - 1, 'L');
    host::imc_clear();
    host::syslog_clear();
    host::imc_add_interface("GigabitEthernet0/0/0/1", 7);
    host::imc_add_interface(longest, 8);
    EXPECT_EQ(ocni_lr_validate_ifname("GigabitEthernet0/0/0/1"), 1);
    EXPECT_EQ(ocni_lr_validate_ifname(longest.c_str()), 1);
    EXPECT_TRUE(host::syslog_lines().empty());
    EXPECT_EQ(ocni_lr_validate_ifname("GigabitEthernet0/0/0/9"), 0);
    host::imc_fail_calls(YFW_RC_MAP_FAILED);
    EXPECT_EQ(ocni_lr_validate_ifname("GigabitEthernet0/0/0/1"), 0);
    host::imc_fail_calls(0);
    host::imc_every_name_present(true); /* any name asked for exists, but no name is no interface */
    EXPECT_EQ(ocni_lr_validate_ifname(""), 0);
    EXPECT_EQ(ocni_lr_validate_ifname(nullptr), 0);
    host::imc_every_name_present(false);
    host::imc_clear();
    EXPECT_EQ(host::syslog_lines(), (Lines{"3:\nIM_FIND failed for interface GigabitEthernet0/0/0/9",
                                           "3:\nIM_FIND failed for interface GigabitEthernet0/0/0/1",
                                           "3:\nIM_FIND failed for interface ", "3:\nIM_FIND failed for interface "}));
}

/* Native paths */

const std::string k_def = "/router-static/default-vrf/address-family/";
const std::string k_vrf = "/router-static/vrfs/vrf/address-family/";
const std::string k_tbl = "/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table";
const std::string k_if = k_tbl + "/vrf-next-hop-interface-name";
const std::string k_ifaddr = k_tbl + "/vrf-next-hop-interface-name-next-hop-address";
const std::string k_addr = k_tbl + "/vrf-next-hop-next-hop-address";

class UtilPaths : public HostFixture {
protected:
    void SetUp() override { h.reset(YFW_REQ_EDIT); }
    char buf[OCNI_PATH_LEN];
};

TEST_F(UtilPaths, NextHopTableFitsWhatTheNextHopHolds)
{
    struct Row {
        uint32_t nh, ifc, drop;
        std::string table; /* empty: refused */
    } rows[] = {{1, 1, 0, k_ifaddr}, {1, 1, 1, k_ifaddr}, {1, 0, 0, k_addr}, {1, 0, 1, k_if},
                {0, 1, 0, k_if},     {0, 1, 1, k_if},     {0, 0, 0, ""},     {0, 0, 1, ""}};
    for (const Row &r : rows) {
        for (uint32_t v4 = 0; v4 <= 1; v4++) {
            SCOPED_TRACE(testing::Message() << "nh=" << r.nh << " if=" << r.ifc << " drop=" << r.drop << " v4=" << v4);
            h.reset(YFW_REQ_EDIT);
            h.set_vrf(v4 ? "red" : "Default");
            h.logging(true, true);
            buf[0] = '\0';
            const cerrno rc = ocni_get_mapping_path_name(h.ctx, v4, r.nh, r.ifc, r.drop, buf);
            const std::string base = (v4 ? k_vrf : k_def) + (v4 ? "vrfipv4" : "vrfipv6");
            EXPECT_EQ(base + r.table, buf);
            EXPECT_EQ(rc, r.table.empty() ? YFW_RC_INVALID_REQUEST : 0u);
            EXPECT_EQ(h.user_msg(), r.table.empty() ? "Invalid request to get path" : "");
            EXPECT_EQ(h.log_lines(), r.table.empty() ? (Lines{"ERR: YFW: ctx=" + h.ctx_text() + ",Invalid request to get path",
                                                              "TRC: YFW: ctx=" + h.ctx_text() + ",End"})
                                                     : Lines{});
        }
    }
}

/* Route attributes */

TEST_F(HostFixture, RouteAttributesBecomeTheLeavesOfTheEntry)
{
    const std::string e = "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix/"
                          "vrf-route/vrf-next-hop-table/vrf-next-hop-interface-name";
    struct Row {
        const char *what;
        void (*set)(ocni_route_common_data &);
        Lines want;
    } rows[] = {
        {"nothing set", [](ocni_route_common_data &) {}, {}},
        {"label zero", [](ocni_route_common_data &r) { r.vrf_label = 0; }, {e + "/vrf-lable = 0"}},
        {"label above the unset value",
         [](ocni_route_common_data &r) { r.vrf_label = OCNI_VRF_LABEL_UNSET + 1; }, {e + "/vrf-lable = 1048578"}},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        h.reset(YFW_REQ_EDIT);
        h.set_vrf("default");
        ocni_route_common_data *rec = new_record(h);
        rec->vrf_label = OCNI_VRF_LABEL_UNSET;
        r.set(*rec);
        EXPECT_EQ(ocni_set_metadata_path(e.c_str(), h.ctx, h.out), 0u);
        EXPECT_EQ(h.out_lines(), r.want);
        for (const std::string &l : r.want)
            EXPECT_STREQ(h.out_node(l.substr(0, l.find(" = ")))->ns, OCNI_NS_NATIVE) << l;
    }
    EXPECT_EQ(ocni_set_metadata_path(nullptr, h.ctx, h.out), YFW_RC_NO_COMMON_DATA); /* a record, but no entry */
}
/* Next-hop checks */

/* What the checks wrote into the record, as words (a flag other than 0 or 1 shows its value). */
std::string facts(const ocni_route_common_data &r)
{
    std::string f;
    const auto word = [&](bool on, const std::string &w) { f += on ? (f.empty() ? "" : " ") + w : ""; };
    const auto flag = [&](uint32_t v, const std::string &w) { word(v != 0, v == 1 ? w : w + "=" + std::to_string(v)); };
    flag(r.has_interface, "if");
    word(r.interface != nullptr, "if=" + std::string(r.interface ? r.interface : ""));
    word(r.subinterface != nullptr, "sub=" + std::string(r.subinterface ? r.subinterface : ""));
    flag(r.interface_deleted, "if-del");
    flag(r.subinterface_deleted, "sub-del");
    flag(r.has_next_hop, "nh");
    word(r.next_hop != nullptr, "nh=" + std::string(r.next_hop ? r.next_hop : ""));
    flag(r.is_drop, "drop");
    flag(r.is_local_link, "local");
    flag(r.next_hop_deleted, "nh-del");
    word(r.metric != nullptr, "metric=" + std::string(r.metric ? r.metric : ""));
    flag(r.metric_deleted, "metric-del");
    word(r.index != nullptr, "index=" + std::string(r.index ? r.index : ""));
    return f;
}

/*
 * The interface check and the address check over one next-hop entry: the
 * result, and what they leave in the record (which may hold an earlier
 * next hop's flags, given as `before`).
 */
TEST_F(HostFixture, NextHopChecksRecordWhatTheEntryHolds)
{
    const std::string nh = "/next-hops/next-hop[index=1]";
    const std::string ifr = nh + "/interface-ref/config/";
    using Check = int (*)(yfw_map_ctx *, const zidl_yfw_datatree *);
    const Check interface = ocni_check_next_hop_interface_config;
    const Check address = ocni_check_next_hop_ip_and_set_drop_config;
    struct Row {
        const char *what;
        Check check;
        std::string lines;
        int result;
        const char *facts;
        const char *before = "";
    } rows[] = {
        {"interface and subinterface", interface, ifr + "interface = Gi0/0/0/1\n" + ifr + "subinterface = 5", 1,
         "if if=Gi0/0/0/1 sub=5"},
        {"no interface", interface, nh + "/config/next-hop = 10.0.0.1", 0, ""},
        {"interface-ref deleted after an interface", interface, nh + "/interface-ref (delete)", 0, "if-del", "if"},
        {"its config deleted", interface, nh + "/interface-ref/config (delete)", 0, "if-del"},
        {"interface leaf deleted", interface, ifr + "interface (delete)", 0, "if-del"},
        {"subinterface deleted, interface kept", interface, ifr + "interface = Gi0\n" + ifr + "subinterface = 2 (delete)",
         1, "if if=Gi0 sub-del"},
        {"subinterface after an interface", interface, ifr + "subinterface = 1", 1, "if sub=1", "if"},
        {"other leaves", interface, ifr + "other = x\n" + nh + "/interface-ref/state/interface = Gi9", 0, ""},
        {"address and metric", address, nh + "/config/next-hop = 10.0.0.1\n" + nh + "/config/metric = 7", 1,
         "nh nh=10.0.0.1 metric=7 index=1"},
        {"DROP", address, nh + "/config/next-hop = DROP", 1, "nh nh=DROP drop index=1"},
        {"LOCAL_LINK", address, nh + "/config/next-hop = LOCAL_LINK", 0, "nh nh=LOCAL_LINK local index=1"},
        {"address and metric deleted", address,
         nh + "/config/next-hop = 10.0.0.1 (delete)\n" + nh + "/config/metric = 1 (delete)", 0,
         "nh-del metric-del index=1"},
        {"address deleted after a DROP", address, nh + "/config/next-hop (delete)", 0, "nh-del index=1", "nh drop local"},
        {"interface only", address, ifr + "interface = Gi0", 0, "index=1"},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        h.reset(YFW_REQ_EDIT);
        ocni_route_common_data *rec = new_record(h);
        const std::string before = r.before;
        rec->has_interface = before.find("if") != std::string::npos;
        rec->has_next_hop = before.find("nh") != std::string::npos;
        rec->is_drop = before.find("drop") != std::string::npos;
        rec->is_local_link = before.find("local") != std::string::npos;
        TreePtr t = build_tree(r.lines, OCNI_NS_OC_NI);
        zidl_yfw_datatree *entry = host::tree_find(t.get(), nh.c_str());
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(r.check(h.ctx, entry), r.result);
        EXPECT_EQ(facts(*rec), r.facts);
    }
}

TEST_F(HostFixture, NextHopsContainerCountsAsRemovedByDeleteOrRemove)
{
    const std::pair<const char *, int> rows[] = {{"/next-hops (delete)", 1}, {"/next-hops (remove)", 1},
                                                 {"/next-hops (merge)", 0},  {"/next-hops", 0},
                                                 {"/config/prefix = 10.0.0.0/24", 0}};
    for (const auto &r : rows) {
        TreePtr t = build_tree(std::string("/static[prefix=10.0.0.0/24]") + r.first, OCNI_NS_OC_NI);
        EXPECT_EQ(ocni_check_nexthops_operation_delete(h.ctx, host::tree_find(t.get(), "/static[prefix=10.0.0.0/24]")),
                  r.second)
            << r.first;
    }
}

/* Leaf callbacks on a prepared route record */

/* Native next-hop leaf of a named VRF (the VRF entry keyless, as requests add it): list "if", "ifaddr" or "addr". */
std::string red_leaf(bool v4, const std::string &list, const std::string &leaf)
{
    const std::string l = list == "if" ? "vrf-next-hop-interface-name"
                          : list == "ifaddr" ? "vrf-next-hop-interface-name-next-hop-address"
                                             : "vrf-next-hop-next-hop-address";
    return "/router-static/vrfs/vrf/address-family/" + std::string(v4 ? "vrfipv4" : "vrfipv6") +
           "/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table/" + l + leaf;
}

const std::string OPER_NH = "/network-instances/network-instance/protocols/protocol/static-routes/static-route/next-hops";

/*
 * Record facts, space separated: v6, noprefix, idx (index 1), vp (VRF-path
 * flag 1), if (interface Loopback0), sub=S, nh=A (a next hop; "DROP" too),
 * sif=I / saddr=A (the stored entry), ll (LOCAL_LINK), del (the input is a
 * delete), sup (suppression on), nocfg (a read that withholds configuration), norec, bgp / static (the input lies in a protocol entry of that identifier).
 */
class LeafCallbacks : public HostFixture {
protected:
    void prepare(uint32_t kind, const std::string &facts)
    {
        h.reset(kind);
        h.set_vrf(facts.find("novrf") == std::string::npos ? "red" : nullptr);
        std::istringstream in(facts);
        bool norec = false, v6 = false, noprefix = false;
        std::vector<std::string> words;
        for (std::string w; in >> w;) {
            words.push_back(w);
            norec = norec || w == "norec";
            v6 = v6 || w == "v6";
            noprefix = noprefix || w == "noprefix";
        }
        if (norec)
            return;
        rec = new_record(h);
        rec->is_ipv4 = v6 ? 0 : 1;
        rec->prefix = noprefix ? nullptr : const_cast<char *>(v6 ? "2001:db8::/64" : "10.0.0.0/24");
        for (const std::string &w : words) {
            const size_t eq = w.find('=');
            const std::string k = w.substr(0, eq), v = eq == std::string::npos ? "" : w.substr(eq + 1);
            keep.push_back(v);
            char *text = const_cast<char *>(keep.back().c_str());
            if (k == "idx")
                rec->index = const_cast<char *>("1");
            else if (k == "vp" || k == "sup")
                (k == "vp" ? h.rc->vrf_path_flag : h.rc->suppress_flag) = 1;
            else if (k == "ll")
                rec->is_local_link = 1;
            else if (k == "nocfg")
                host::request_set_mode(h.req, YFW_REQ_MODE_SELECTED), host::request_set_marker(h.req, host::Marker::B548);
            else if (k == "if")
                rec->has_interface = 1, rec->interface = const_cast<char *>("Loopback0");
            else if (k == "sub")
                rec->subinterface = text;
            else if (k == "nh")
                rec->has_next_hop = 1, rec->next_hop = text, rec->is_drop = v == "DROP";
            else if (k == "sif")
                rec->native_has_interface = 1, snprintf(rec->native_interface, sizeof rec->native_interface, "%s", text);
            else if (k == "saddr")
                rec->native_has_address = 1, snprintf(rec->native_address, sizeof rec->native_address, "%s", text);
        }
    }
    ocni_route_common_data *rec = nullptr;
    std::list<std::string> keep;
};

TEST_F(LeafCallbacks, WriteOrRequestTheNativeLeavesTheRecordCallsFor)
{
    using namespace std::string_literals;
    const LeafCb nexthop = ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_nexthop;
    const LeafCb interface = ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_interface;
    const LeafCb subinterface = ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_subinterface;
    const LeafCb settag = ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_settag;
    const LeafCb tag = ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_settag_v2;
    const LeafCb description = ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_description;
    const LeafCb prefix_key = ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_static_prefix;
    const LeafCb config_prefix = ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_prefix;
    const LeafCb index = ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_nexthop_index;
    const ContainerCb nexthops = ymap_ox_ocni_openconfiglocalrouting_cont_lvla_localroutes_static_nexthops;
    const std::string VP = "/vrf-unicast/vrf-prefixes/vrf-prefix";
    const LeafCb list = ymap_ox_ocni_openconfiglocalrouting_man_list_lvla_localroutes_staticroutes_static;
    const ContainerCb statics = nullptr, routes = ymap_ox_ocni_openconfiglocalrouting_man_cont_lvla_localroutes_staticroutes;
    const std::string oper_sr = "/ocni/vrfipv6/network-instances/network-instance[name=red]/protocols/protocol/"
                                "static-routes/static-route[prefix=2001:db8::/64]/static-routes-state/";
    struct Row {
        const char *what;
        LeafCb leaf;
        ContainerCb cont;
        uint32_t kind;
        const char *facts;
        const char *value;
        Lines want;
        cerrno rc = 0;
        const char *msg = "";
        int calls = 1;
    };
    const Row rows[] = {
        {"interface, whole VRF", interface, statics, YFW_REQ_READ, "vp", "Loopback0",
         {red_leaf(true, "if", "/interface-name"), red_leaf(true, "ifaddr", "/interface-name")}},
        {"interface, whole VRF without prefix", interface, statics, YFW_REQ_READ, "v6 noprefix vp", "Loopback0",
         {red_leaf(true, "if", "/interface-name"), red_leaf(true, "ifaddr", "/interface-name"),
          red_leaf(true, "addr", "/next-hop-address"), red_leaf(false, "if", "/interface-name"),
          red_leaf(false, "ifaddr", "/interface-name"), red_leaf(false, "addr", "/next-hop-address")}},
        {"interface, stored with an address", interface, statics, YFW_REQ_READ, "idx sif=Loopback0.5 saddr=10.0.0.1",
         "Loopback0", {red_leaf(true, "ifaddr", "[interface-name=Loopback0.5]")}},
        {"subinterface, any read: both families, the last with the value", subinterface, statics, YFW_REQ_READ,
         "if idx", "5",
         {red_leaf(true, "if", "/interface-name"), red_leaf(true, "ifaddr", "/interface-name"),
          red_leaf(false, "if", "/interface-name"), red_leaf(false, "ifaddr", "[interface-name=5]")}},
        {"subinterface read without a network instance: nothing asked", subinterface, statics, YFW_REQ_READ, "if novrf", "5", {}},
        {"interface set with neither interface nor next hop", interface, statics, YFW_REQ_EDIT, "", "Gi0", {}, YFW_RC_INVALID_REQUEST,
         "Invalid request to get path"},
        {"tag set with neither interface nor next hop", tag, statics, YFW_REQ_EDIT, "", "5", {}, YFW_RC_INVALID_REQUEST,
         "Invalid request to get path"},
        {"interface set with a dot in its name", interface, statics, YFW_REQ_EDIT, "if", "Gi0.5", {}, YFW_RC_INVALID_REQUEST, "Invalid request"},
        {"subinterface without interface", subinterface, statics, YFW_REQ_EDIT, "", "5", {}, YFW_RC_INVALID_REQUEST,
         "Invalid request"},
        {"next hop, whole VRF", nexthop, statics, YFW_REQ_READ, "vp", "10.0.0.1",
         {red_leaf(true, "if", "/interface-name"), red_leaf(true, "ifaddr", "/next-hop-address"),
          red_leaf(true, "addr", "/next-hop-address")}},
        {"next hop, IPv6 without prefix", nexthop, statics, YFW_REQ_READ, "v6 noprefix vp", "10.0.0.1", {}},
        {"next hop address set", nexthop, statics, YFW_REQ_EDIT, "nh=10.0.0.1", "10.0.0.1",
         {red_leaf(true, "addr", "[next-hop-address=10.0.0.1]/next-hop-address = 10.0.0.1 (none)")}},
        {"next hop DROP set", nexthop, statics, YFW_REQ_EDIT, "nh=DROP", "DROP",
         {red_leaf(true, "if", "[interface-name=Null0]/interface-name = Null0 (none)")}},
        {"next hop set twice without a usable next hop", nexthop, statics, YFW_REQ_EDIT, "", "x", {}, 0,
         "Invalid request", 2},
        {"next hop deleted without a usable next hop", nexthop, statics, YFW_REQ_EDIT, "del", "x", {},
         YFW_RC_INVALID_REQUEST, "Invalid request"},
        {"set-tag, whole VRF", settag, statics, YFW_REQ_READ, "vp", "5",
         {red_leaf(true, "if", "/interface-name"), red_leaf(true, "if", "/tag"),
          red_leaf(true, "ifaddr", "/interface-name"), red_leaf(true, "ifaddr", "/next-hop-address"),
          red_leaf(true, "ifaddr", "/tag"), red_leaf(true, "addr", "/next-hop-address"), red_leaf(true, "addr", "/tag")}},
        {"set-tag of an IPv6 route, read: IPv6 tables only", settag, statics, YFW_REQ_READ, "v6", "5",
         {red_leaf(false, "if", "/interface-name"), red_leaf(false, "if", "/tag"), red_leaf(false, "ifaddr", "/interface-name"),
          red_leaf(false, "ifaddr", "/next-hop-address"), red_leaf(false, "ifaddr", "/tag"),
          red_leaf(false, "addr", "/next-hop-address"), red_leaf(false, "addr", "/tag")}},
        {"description, whole VRF", description, statics, YFW_REQ_READ, "vp", "x",
         {red_leaf(true, "if", "/interface-name"), red_leaf(true, "if", "/description"),
          red_leaf(true, "ifaddr", "/interface-name"), red_leaf(true, "ifaddr", "/next-hop-address"),
          red_leaf(true, "ifaddr", "/description"), red_leaf(true, "addr", "/next-hop-address"),
          red_leaf(true, "addr", "/description")}},
        {"index of the stored address, none given", index, statics, YFW_REQ_READ, "saddr=10.0.0.1", "1",
         {red_leaf(true, "addr", "/index = 1")}},
        {"index of the stored address, read withholding configuration: nothing asked", index, statics, YFW_REQ_READ, "saddr=10.0.0.1 nocfg", "1", {}},
        {"static key, state read withholding configuration: operational leaves only", prefix_key, statics,
         YFW_REQ_READ_STATE, "v6 nocfg", "2001:db8::/64", {oper_sr + "description", oper_sr + "prefix", oper_sr + "set-tag"}},
        {"next hop, whole VRF but one index: the stored entry's key", nexthop, statics, YFW_REQ_READ,
         "vp idx saddr=10.0.0.1", "10.0.0.1", {red_leaf(true, "addr", "[next-hop-address=10.0.0.1]")}},
        {"next hop, stored interface", nexthop, statics, YFW_REQ_READ, "idx sif=Gi0", "x", {red_leaf(true, "if", "[interface-name=Gi0]")}},
        {"next hop, stored interface and address", nexthop, statics, YFW_REQ_READ, "idx sif=Gi0 saddr=10.0.0.1", "x",
         {red_leaf(true, "ifaddr", "[next-hop-address=10.0.0.1]")}},
        {"next hop LOCAL_LINK set: nothing to write or report", nexthop, statics, YFW_REQ_EDIT, "ll if", "LOCAL_LINK", {}},
        {"static key without value", prefix_key, statics, YFW_REQ_EDIT, "", nullptr, {}},
        {"static key, whole VRF without prefix: both prefix lists", prefix_key, statics, YFW_REQ_READ, "v6 noprefix vp", nullptr,
         {"/router-static/vrfs/vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes",
          "/router-static/vrfs/vrf/address-family/vrfipv6/vrf-unicast/vrf-prefixes"}},
        {"config prefix, read: the native prefix and length", config_prefix, statics, YFW_REQ_READ, "", "10.0.0.0/24",
         {"/router-static/vrfs/vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.0.0.0][prefix-length=24]"}},
        {"static-routes delete without subtrees: its entries carry it", nullptr, routes, YFW_REQ_EDIT, "del", nullptr, {}},
        {"all routes of an instance deleted, suppressed: its native VRF all the same", list, statics, YFW_REQ_EDIT,
            "del sup", nullptr, {"/router-static/vrfs/vrf[vrf-name=red] (delete)"}},
        {"all routes of an instance set: its native VRF and both prefix lists", list, statics, YFW_REQ_EDIT, "", nullptr,
         {"/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv4" + VP + " (none)",
             "/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv6" + VP + " (none)"}},
        {"all routes deleted without a network instance: nothing", list, statics, YFW_REQ_EDIT, "del sup novrf", nullptr, {}},
        {"static-routes, read", nullptr, routes, YFW_REQ_READ, "", nullptr, {"/router-static (none)"}},
        {"static-routes, read withholding configuration", nullptr, routes, YFW_REQ_READ, "nocfg", nullptr, {}},
        {"next-hops state withholding configuration", nullptr, nexthops, YFW_REQ_READ_STATE, "noprefix nocfg", nullptr,
            {"/ocni/vrfipv4" + OPER_NH, "/ocni/vrfipv6" + OPER_NH}},
        {"static-routes of the STATIC protocol, read", nullptr, routes, YFW_REQ_READ, "static", nullptr, {"/router-static (none)"}},
        {"static-routes of another protocol, read", nullptr, routes, YFW_REQ_READ, "bgp", nullptr, {}, YFW_RC_NOT_APPLICABLE},
        {"static-routes of another protocol, deleted", nullptr, routes, YFW_REQ_EDIT, "bgp del", nullptr, {}, YFW_RC_NOT_APPLICABLE},
        {"index without a route record", index, statics, YFW_REQ_READ, "norec", "1", {}},
        {"next-hops state of both families, asked twice", nullptr, nexthops, YFW_REQ_READ_STATE, "noprefix", nullptr,
         {"/ocni/vrfipv4" + OPER_NH, "/ocni/vrfipv6" + OPER_NH,
          "/router-static/vrfs/vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table"},
         0, "", 2},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        AllocWatch watch; /* nothing the callbacks allocate outlives the request */
        prepare(r.kind, r.facts);
        const std::string facts = r.facts;
        const std::string proto = facts.find("bgp") != std::string::npos ? "BGP" : facts.find("static") != std::string::npos ? "STATIC" : "";
        const std::string at = proto.empty() ? "/leaf" : "/network-instances/network-instance[name=red]/protocols/protocol[identifier="
                                                        + proto + "][name=x]/leaf";
        TreePtr in = build_tree(at + (r.value ? " = "s + r.value : ""s) + (facts.find("del") != std::string::npos ? " (delete)" : ""),
                                OCNI_NS_OC_NI);
        const zidl_yfw_datatree *n = host::tree_find(in.get(), at.c_str());
        for (int i = 0; i < r.calls; i++)
            EXPECT_EQ(r.leaf ? h.call(r.leaf, n) : h.call(r.cont, n, 0), r.rc);
        Lines want = r.want;
        std::sort(want.begin(), want.end());
        EXPECT_EQ(h.out_lines(), want);
        EXPECT_EQ(h.user_msg(), r.msg);
        EXPECT_EQ(h.rc->vrf_path_flag * 2 + h.rc->suppress_flag, (facts.find("vp") != std::string::npos) * 2u + (facts.find("sup") != std::string::npos));
        prepare(r.kind, r.facts); /* an output nothing can be added to: the last addition's failure is the result */
        zidl_yfw_datatree foreign = {};
        h.enter(n);
        EXPECT_EQ(r.leaf ? r.leaf(h.ctx, n, &foreign) : r.cont(h.ctx, n, 0, &foreign), want.empty() ? r.rc : YFW_RC_MAP_FAILED);
        h.reset();
        EXPECT_EQ(watch.grown(), 0);
    }
}

/* Next-hop edits against a stored next hop */

/* One stored next hop of 10.0.0.0/8 (a one-digit length on purpose), then the edit. */
using NextHopEdits = WalkerFixture;

TEST_F(NextHopEdits, StoredNextHopChangesOnlyWhatTheEditChanges)
{
    const std::string rt = oc_static_routes("default") + "/static[prefix=10.0.0.0/8]", nh = rt + "/next-hops/next-hop[index=1]";
    const std::string st = "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
                           "vrf-prefix[prefix=10.0.0.0][prefix-length=8]";
    const std::string tbl = st + "/vrf-route/vrf-next-hop-table/";
    const std::string addr1 = tbl + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]";
    const std::string addr2 = tbl + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.2]";
    const std::string lo5 = tbl + "vrf-next-hop-interface-name[interface-name=Loopback0.5]";
    const std::string lo = tbl + "vrf-next-hop-interface-name[interface-name=Loopback0]";
    const std::string null0 = tbl + "vrf-next-hop-interface-name[interface-name=Null0]";
    const std::string lo_a1 =
        tbl + "vrf-next-hop-interface-name-next-hop-address[interface-name=Loopback0][next-hop-address=10.0.0.1]";
    const std::string nh2 = nh.substr(0, nh.size() - 2) + "2]";
    const std::string ifc = nh + "/interface-ref/config/interface = Loopback0\n";
    const std::string sub = nh + "/interface-ref/config/subinterface = 5\n";
    struct Row {
        const char *what;
        std::string seed, edit;
        Lines changes, native;
        cerrno rc = 0;
        const char *msg = "";
    };
    const Row rows[] = {
        {"the stored interface again, on a next hop with an address", ifc + nh + "/config/next-hop = 10.0.0.1\n", ifc, {},
         {lo_a1 + "/index = 1"}},
        /* each is written whole by its list entry: the metric is the number, the second has no interface */
        {"new interface, then new address, metrics as 007", "",
         ifc + nh + "/config/metric = 007\n" + nh2 + "/config/next-hop = 10.0.0.2\n" + nh2 + "/config/metric = 007\n",
         {"create " + st, "create " + lo, "merge " + lo + "/index = 1", "merge " + lo + "/metric = 7", "create " + addr2,
          "merge " + addr2 + "/index = 2", "merge " + addr2 + "/metric = 7"},
         {lo + "/index = 1", lo + "/metric = 7", addr2 + "/index = 2", addr2 + "/metric = 7"}},
        {"the same interface and subinterface with a metric", ifc + sub, ifc + sub + nh + "/config/metric = 9\n",
         {"merge " + lo5 + "/metric = 9"}, {lo5 + "/index = 1", lo5 + "/metric = 9"}},
        {"interface delete naming the stored address", nh + "/config/next-hop = 10.0.0.1\n",
         nh + "/interface-ref (delete)\n" + nh + "/config/next-hop = 10.0.0.1\n", {}, {addr1 + "/index = 1"},
         YFW_RC_INVALID_REQUEST, "Delete  received for the entry that has no interface config"},
        {"interface delete naming another address", nh + "/config/next-hop = 10.0.0.1\n",
         nh + "/interface-ref (delete)\n" + nh + "/config/next-hop = 10.0.0.2\n",
         {"delete " + addr1, "create " + addr2, "merge " + addr2 + "/index = 1"}, {addr2 + "/index = 1"}},
        {"address delete of a DROP next hop", nh + "/config/next-hop = DROP\n", nh + "/config/next-hop (delete)\n",
         {"delete " + null0}, {st}},
        {"metric delete of an interface next hop", ifc + nh + "/config/metric = 5\n", nh + "/config/metric (delete)\n",
         {"delete " + lo + "/metric"}, {lo + "/index = 1"}},
        {"new address of a next hop with a one-letter description",
         nh + "/config/next-hop = 10.0.0.1\n" + oc_static_routes("default") + "/static[prefix=10.0.0.0/8]/config/description = x\n",
         nh + "/config/next-hop = 10.0.0.2\n",
         {"delete " + addr1, "create " + addr2, "merge " + addr2 + "/index = 1", "merge " + addr2 + "/description = x"},
         {addr2 + "/description = x", addr2 + "/index = 1"}},
        {"next-hops container delete", ifc + sub, oc_static_routes("default") + "/static[prefix=10.0.0.0/8]/next-hops (delete)\n",
         {"delete " + lo5}, {st}},
        {"set-tag 0 with a new next hop", nh + "/config/next-hop = 10.0.0.1\n", rt + "/config/set-tag = 0\n" + nh2 + "/config/next-hop = 10.0.0.2\n",
         {"merge " + addr1 + "/tag = 0", "create " + addr2, "merge " + addr2 + "/index = 2", "merge " + addr2 + "/tag = 0"},
         {addr1 + "/index = 1", addr1 + "/tag = 0", addr2 + "/index = 2", addr2 + "/tag = 0"}},
        {"new next hop of a tagged route", nh + "/config/next-hop = 10.0.0.1\n" + rt + "/config/set-tag = 9\n", nh2 + "/config/next-hop = 10.0.0.2\n",
         {"create " + addr2, "merge " + addr2 + "/index = 2", "merge " + addr2 + "/tag = 9"},
         {addr1 + "/index = 1", addr1 + "/tag = 9", addr2 + "/index = 2", addr2 + "/tag = 9"}},
        {"hexadecimal set-tag", nh + "/config/next-hop = 10.0.0.1\n",
         oc_static_routes("default") + "/static[prefix=10.0.0.0/8]/config/set-tag = 0x10\n",
         {"merge " + addr1 + "/tag = 16"}, {addr1 + "/index = 1", addr1 + "/tag = 16"}},
        {"description opening with an escaped parenthesis", nh + "/config/next-hop = 10.0.0.1\n",
         oc_static_routes("default") + "/static[prefix=10.0.0.0/8]/config/description = \\(x\n",
         /* stored next hops get the converted text, as new ones do */
         {"merge " + addr1 + "/description = (x"}, {addr1 + "/description = (x", addr1 + "/index = 1"}},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        TearDown();
        SetUp();
        ASSERT_TRUE(edit(r.seed).result.ok());
        const host::EditOutcome o = edit(r.edit);
        EXPECT_EQ(o.result.rc, r.rc) << o.result.message;
        EXPECT_EQ(o.result.message, r.msg);
        EXPECT_EQ(o.changes, r.changes);
        EXPECT_EQ(native(), r.native);
    }
}


} // namespace
