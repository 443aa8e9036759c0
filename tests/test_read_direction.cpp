/*
 * Native static-route configuration read back as OpenConfig: native input
 * trees are walked as the framework walks them (parents first, key leaves
 * in key order, every list entry pushed on the input stack) through the
 * host's native bindings, and the OpenConfig output is compared line by
 * line.
 */
#include <dlfcn.h>

#include <algorithm>

#include <string>

#include "host/context.h"
#include "host/registration.h"
#include "host_fixture.h"
#include "tree_builder.h"
#include "ymap_ocni_velmar_orn_qz_ip_static_cfg_man.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

const std::string NI = "/network-instances/network-instance";
const std::string PROTO = "/protocols/protocol[identifier=STATIC][name=DEFAULT]";
const std::string DEF_V4 =
    "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix";
const std::string DEF_V6 =
    "/router-static/default-vrf/address-family/vrfipv6/vrf-unicast/vrf-prefixes/vrf-prefix";
const std::string NAMED_V4 =
    "/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix";
const std::string NAMED_V6 =
    "/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv6/vrf-unicast/vrf-prefixes/vrf-prefix";
const std::string TBL = "/vrf-route/vrf-next-hop-table/";

/* OpenConfig paths below the network instance `vrf`. */
std::string proto(const std::string &vrf)
{
    return NI + "[name=" + vrf + "]" + PROTO;
}
std::string st(const std::string &vrf, const std::string &prefix)
{
    return proto(vrf) + "/static-routes/static[prefix=" + prefix + "]";
}
std::string nh(const std::string &vrf, const std::string &prefix, const std::string &index)
{
    return st(vrf, prefix) + "/next-hops/next-hop[index=" + index + "]";
}

/* Lines of the network instance and protocol parents, configuration wanted. */
/* Every instance says its name and type; the protocol its keys (and state). */
Lines parents(const std::string &vrf, bool state)
{
    const std::string type = vrf == "default" ? "DEFAULT_INSTANCE" : "L3VRF";
    Lines l = {NI + "[name=" + vrf + "]/config/name = " + vrf, NI + "[name=" + vrf + "]/config/type = " + type,
               proto(vrf) + "/config/identifier = STATIC", proto(vrf) + "/config/name = DEFAULT"};
    if (state) {
        l.push_back(NI + "[name=" + vrf + "]/state/name = " + vrf);
        l.push_back(NI + "[name=" + vrf + "]/state/type = " + type);
        l.push_back(proto(vrf) + "/state/default-metric = 1");
        l.push_back(proto(vrf) + "/state/enabled = true");
        l.push_back(proto(vrf) + "/state/identifier = STATIC");
        l.push_back(proto(vrf) + "/state/name = DEFAULT");
    }
    return l;
}

Lines sorted(Lines l)
{
    std::sort(l.begin(), l.end());
    return l;
}

Lines concat(std::initializer_list<Lines> parts)
{
    Lines all;
    for (const Lines &p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return sorted(all);
}

/* One callback run by the walk. */
struct Call {
    std::string callback;
    std::string node;
    cerrno rc;
};

class ReadFixture : public HostFixture {
protected:
    ReadFixture() : index_(Model::Native) {}

    /* New request of `op_type`; configuration withheld by a marker and mode 2. */
    void request(uint32_t op_type, bool withhold_config = false)
    {
        h.reset(op_type);
        calls_.clear();
        if (withhold_config) {
            request_set_marker(h.req, Marker::B4DC);
            request_set_mode(h.req, YFW_REQ_MODE_SELECTED);
        }
    }

    /* Walks every node of `in` as the framework does, calling its native bindings. */
    void walk(const zidl_yfw_datatree *in)
    {
        for (uint32_t i = 0; i < in->n_children && in->children[i].name != nullptr; ++i)
            visit(&in->children[i]);
    }

    void walk_text(const std::string &text)
    {
        input_ = build_tree(text, OCNI_NS_NATIVE);
        walk(input_.get());
    }

    /* Callbacks that did not return 0. */
    std::vector<Call> failures() const
    {
        std::vector<Call> f;
        for (const Call &c : calls_)
            if (c.rc != 0)
                f.push_back(c);
        return f;
    }

    size_t calls_of(const std::string &suffix) const
    {
        size_t n = 0;
        for (const Call &c : calls_)
            if (c.callback.size() >= suffix.size() &&
                c.callback.compare(c.callback.size() - suffix.size(), suffix.size(), suffix) == 0)
                ++n;
        return n;
    }

    Lines out() const { return h.out_lines(); }
    zidl_yfw_datatree *in_node(const std::string &path) const
    {
        return tree_find(input_.get(), path.c_str());
    }

    TreePtr input_;
    std::vector<Call> calls_;

private:
    void visit(const zidl_yfw_datatree *n)
    {
        const bool entry = (n->flags & YFW_DT_F_LIST) && n->value == nullptr;
        const auto *bindings = index_.find(node_schema_path(n));
        if (bindings != nullptr) {
            for (const Binding *b : *bindings)
                run(*b, n);
        }
        if (!(n->flags & YFW_DT_F_CHILDREN))
            return;
        /* An entry's key leaves first, in key order, then the rest. */
        for (int pass = entry ? 0 : 1; pass < 2; ++pass) {
            for (uint32_t i = 0; i < n->n_children && n->children[i].name != nullptr; ++i) {
                const zidl_yfw_datatree *c = &n->children[i];
                const bool key = (c->flags & YFW_DT_F_LIST) && c->value != nullptr;
                if (entry && (pass == 0) != key)
                    continue;
                visit(c);
            }
        }
    }

    void run(const Binding &b, const zidl_yfw_datatree *n)
    {
        void *fn = dlsym(RTLD_DEFAULT, b.callback.c_str());
        ASSERT_NE(fn, nullptr) << b.callback;
        cerrno rc;
        if (b.kind == CallbackKind::Container)
            rc = h.call(reinterpret_cast<ContainerCb>(fn), n, n->n_children != 0 ? 1u : 0u);
        else
            rc = h.call(reinterpret_cast<LeafCb>(fn), n);
        calls_.push_back({b.callback, node_instance_path(n), rc});
    }

    BindingIndex index_;
};

/* ------------------------------------------------------------------ */
/* Prefixes, network instances and protocol                            */
/* ------------------------------------------------------------------ */

struct PrefixCase {
    const char *name;
    std::string entry;      /* native prefix entry */
    const char *vrf;        /* OpenConfig network instance */
    const char *prefix;     /* OpenConfig static key */
    uint32_t op_type;
    bool withhold;
    Lines expected;
};

class PrefixRead : public ReadFixture, public ::testing::WithParamInterface<int> {};

std::vector<PrefixCase> prefix_cases()
{
    const std::string v4 = "[prefix=192.0.2.0][prefix-length=24]";
    const std::string v6 = "[prefix=2001:DB8:0::][prefix-length=48]";
    const std::string s4 = "192.0.2.0/24";
    const std::string s6 = "2001:DB8:0::/48";
    return {
        {"DefaultV4Config", DEF_V4 + v4, "default", "192.0.2.0/24", YFW_REQ_READ, false,
         concat({parents("default", false), {st("default", s4) + "/config/prefix = " + s4}})},
        {"DefaultV4State", DEF_V4 + v4, "default", "192.0.2.0/24", YFW_REQ_READ_STATE, false,
         concat({parents("default", true), {st("default", s4) + "/config/prefix = " + s4}})},
        {"NamedV4Config", NAMED_V4 + v4, "red", "192.0.2.0/24", YFW_REQ_READ, false,
         concat({parents("red", false), {st("red", s4) + "/config/prefix = " + s4}})},
        /* The IPv6 address keeps its native text, case and zeros included. */
        {"DefaultV6Config", DEF_V6 + v6, "default", "2001:DB8:0::/48", YFW_REQ_READ, false,
         concat({parents("default", false), {st("default", s6) + "/config/prefix = " + s6}})},
        {"NamedV6State", NAMED_V6 + v6, "red", "2001:DB8:0::/48", YFW_REQ_READ_STATE, false,
         concat({parents("red", true), {st("red", s6) + "/config/prefix = " + s6}})},
        /* Configuration withheld: only entries and state; the IPv4 prefix of a
         * named VRF alone still makes its static entry. */
        {"NamedV4Withheld", NAMED_V4 + v4, "red", "192.0.2.0/24", YFW_REQ_READ_STATE, true,
         concat({{NI + "[name=red]/state/name = red", NI + "[name=red]/state/type = L3VRF",
                  proto("red") + "/state/default-metric = 1", proto("red") + "/state/enabled = true",
                  proto("red") + "/state/identifier = STATIC", proto("red") + "/state/name = DEFAULT",
                  st("red", s4)}})},
        {"NamedV6Withheld", NAMED_V6 + v6, "red", nullptr, YFW_REQ_READ, true, Lines{proto("red")}},
        {"DefaultV4Withheld", DEF_V4 + v4, "default", nullptr, YFW_REQ_READ, true,
         Lines{proto("default")}},
        {"DefaultV6Withheld", DEF_V6 + v6, "default", nullptr, YFW_REQ_READ_STATE, true,
         concat({{NI + "[name=default]/state/name = default",
                  NI + "[name=default]/state/type = DEFAULT_INSTANCE",
                  proto("default") + "/state/default-metric = 1",
                  proto("default") + "/state/enabled = true",
                  proto("default") + "/state/identifier = STATIC",
                  proto("default") + "/state/name = DEFAULT"}})},
    };
}

TEST_P(PrefixRead, BuildsParentsAndStaticEntry)
{
    const PrefixCase c = prefix_cases()[GetParam()];
    request(c.op_type, c.withhold);
    walk_text(c.entry + "/prefix-length");
    EXPECT_TRUE(failures().empty()) << failures()[0].callback;
    EXPECT_EQ(out(), c.expected);
    EXPECT_TRUE(h.error_paths().empty());
}

INSTANTIATE_TEST_SUITE_P(Cases, PrefixRead, ::testing::Range(0, static_cast<int>(prefix_cases().size())),
                         [](const ::testing::TestParamInfo<int> &i) {
                             return std::string(prefix_cases()[i.param].name);
                         });

TEST_F(ReadFixture, TwoRoutesShareOneNetworkInstanceAndProtocol)
{
    request(YFW_REQ_READ);
    h.logging(true, true);
    walk_text(DEF_V4 + "[prefix=192.0.2.0][prefix-length=24]\n" + DEF_V4 +
              "[prefix=198.51.100.0][prefix-length=25]\n");
    EXPECT_TRUE(failures().empty());
    EXPECT_EQ(out(), concat({parents("default", false),
                             {st("default", "192.0.2.0/24") + "/config/prefix = 192.0.2.0/24",
                              st("default", "198.51.100.0/25") + "/config/prefix = 198.51.100.0/25"}}));
    /* The stitch of each prefix entry makes the network instance first, so
     * all four metadata calls meet it; the second route meets the rest. */
    const Lines trc = h.trc_lines();
    const std::string exists = "TRC: YFW: ctx=" + h.ctx_text() + ",default vrf already exists";
    EXPECT_EQ(std::count(trc.begin(), trc.end(), exists), 4);
    EXPECT_EQ(std::count(trc.begin(), trc.end(),
                         "TRC: YFW: ctx=" + h.ctx_text() + ",config/identifier already exists"),
              1);
    EXPECT_EQ(std::count(trc.begin(), trc.end(),
                         "TRC: YFW: ctx=" + h.ctx_text() + ",config/name for default vrf already exists"),
              1);
}

TEST_F(ReadFixture, IdentifierLeavesCarryThePolicyTypesValueNamespace)
{
    request(YFW_REQ_READ_STATE);
    walk_text(NAMED_V4 + "[prefix=192.0.2.0][prefix-length=24]");
    const std::string p = proto("red");
    for (const char *leaf : {"/identifier", "/config/identifier", "/state/identifier"}) {
        const zidl_yfw_datatree *n = h.out_node(p + leaf);
        ASSERT_NE(n, nullptr) << leaf;
        ASSERT_NE(n->data_ns, nullptr) << leaf;
        EXPECT_STREQ(n->data_ns, OCNI_NS_OC_PT) << leaf;
        EXPECT_TRUE(n->flags2 & YFW_DT_F2_DATA_NS) << leaf;
    }
    for (const char *leaf : {"/name", "/config/name", "/state/name", "/state/enabled", "/state/default-metric"}) {
        const zidl_yfw_datatree *n = h.out_node(p + leaf);
        ASSERT_NE(n, nullptr) << leaf;
        EXPECT_EQ(n->data_ns, nullptr) << leaf;
        EXPECT_STREQ(n->ns, OCNI_NS_OC_NI) << leaf;
    }
}

TEST_F(ReadFixture, MetadataWithConfigurationWithheldBuildsOnlyEntries)
{
    request(YFW_REQ_READ, true);
    EXPECT_EQ(ymap_oc_ni_add_vrf_metadata(h.ctx, h.out, "default"), 0u);
    EXPECT_EQ(ymap_oc_ni_add_protocol_static_metadata(h.ctx, h.out, "default"), 0u);
    EXPECT_EQ(out(), (Lines{proto("default")}));
    /* A marker with any other mode word does not withhold configuration. */
    request(YFW_REQ_READ);
    request_set_marker(h.req, Marker::W541_3800);
    request_set_mode(h.req, 1);
    EXPECT_EQ(ymap_oc_ni_add_protocol_static_metadata(h.ctx, h.out, "blue"), 0u);
    EXPECT_EQ(out(), sorted({proto("blue") + "/config/identifier = STATIC", proto("blue") + "/config/name = DEFAULT"}));
}

TEST_F(ReadFixture, RouterStaticContainerMapsNothing)
{
    for (unsigned subtrees : {0u, 1u}) {
        request(YFW_REQ_READ);
        h.logging(true, true);
        TreePtr in = build_tree("/router-static/default-vrf", OCNI_NS_NATIVE);
        const zidl_yfw_datatree *rs = tree_find(in.get(), "/router-static");
        EXPECT_EQ(h.call(ymap_xo_ocni_velmarornqzipstaticcfg_man_cont_lvla_routerstatic, rs, subtrees), 0u);
        EXPECT_TRUE(out().empty());
        const std::string c = "TRC: YFW: ctx=" + h.ctx_text() + ",";
        EXPECT_EQ(h.log_lines(),
                  (Lines{c + "Start", c + (subtrees ? "No mapping done for this node" : "No subtrees"),
                         c + "End"}));
    }
}

/* ------------------------------------------------------------------ */
/* Next-hop tables                                                     */
/* ------------------------------------------------------------------ */

struct NextHopCase {
    const char *name;
    std::string entry;   /* prefix entry */
    std::string table;   /* table entry below it, with keys, and leaves */
    uint32_t op_type;
    bool withhold;
    std::string index;   /* OpenConfig key of the next hop; "" for none */
    Lines leaves;        /* "<leaf> = <value>" below the next hop ("^" marks the static entry) */
};

std::string v4_entry(const std::string &root)
{
    return root + "[prefix=192.0.2.0][prefix-length=24]";
}
std::string v6_entry(const std::string &root)
{
    return root + "[prefix=2001:db8::][prefix-length=64]";
}

/* Leaves of a next hop read with configuration: its index, next hop and interface. */
Lines config_leaves(const std::string &index, const std::string &next_hop, const char *ifname = nullptr,
                    const char *subif = nullptr)
{
    Lines l = {"config/index = " + index, "config/next-hop = " + next_hop};
    if (ifname != nullptr) {
        l.push_back(std::string("interface-ref/config/interface = ") + ifname);
        l.push_back(std::string("interface-ref/config/subinterface = ") + subif);
    }
    return l;
}

Lines plus(Lines a, const Lines &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::vector<NextHopCase> next_hop_cases()
{
    const std::string e4 = v4_entry(DEF_V4) + TBL;
    const std::string e6 = v6_entry(DEF_V6) + TBL;
    const std::string gi = "##GigabitEthernet0/0/0/1.100##";
    const std::string gia = "##GigabitEthernet0/0/0/1.5##192.0.2.1##";
    const std::string a9 = "##192.0.2.9##";
    return {
        {"InterfaceWithSubinterfaceV4", e4, "vrf-next-hop-interface-name[interface-name=GigabitEthernet0/0/0/1.100]",
         YFW_REQ_READ, false, gi, config_leaves(gi, "LOCAL_LINK", "GigabitEthernet0/0/0/1", "100")},
        {"InterfaceWithoutSubinterfaceV6Named", v6_entry(NAMED_V6) + TBL,
         "vrf-next-hop-interface-name[interface-name=Loopback7]", YFW_REQ_READ, false, "##Loopback7##",
         config_leaves("##Loopback7##", "LOCAL_LINK", "Loopback7", "0")},
        {"InterfaceDotAtEndIsSubinterfaceZero", e4, "vrf-next-hop-interface-name[interface-name=Lag5.]",
         YFW_REQ_READ, false, "##Lag5.##",
         config_leaves("##Lag5.##", "LOCAL_LINK", "Lag5", "0")},
        {"Null0IsDrop", e4, "vrf-next-hop-interface-name[interface-name=Null0]", YFW_REQ_READ, false, "##DROP##",
         config_leaves("##DROP##", "DROP")},
        {"Null0IsDropV6", e6, "vrf-next-hop-interface-name[interface-name=Null0]", YFW_REQ_READ, false, "##DROP##",
         config_leaves("##DROP##", "DROP")},
        {"OtherCaseOfNull0IsAnInterface", e4, "vrf-next-hop-interface-name[interface-name=NULL0]", YFW_REQ_READ,
         false, "##NULL0##", config_leaves("##NULL0##", "LOCAL_LINK", "NULL0", "0")},
        /* A state read with configuration withheld: the IPv4 interface table
         * still makes the entry and its index, the IPv6 one makes nothing. */
        {"InterfaceV4StateWithheld", v4_entry(NAMED_V4) + TBL,
         "vrf-next-hop-interface-name[interface-name=GigabitEthernet0/0/0/1.100]", YFW_REQ_READ_STATE, true, gi,
         {"config/index = " + gi}},
        {"InterfaceV6StateWithheld", e6, "vrf-next-hop-interface-name[interface-name=GigabitEthernet0/0/0/1.100]",
         YFW_REQ_READ_STATE, true, "", {}},
        {"InterfaceAndAddressV4", e4,
         "vrf-next-hop-interface-name-next-hop-address[interface-name=GigabitEthernet0/0/0/1.5]"
         "[next-hop-address=192.0.2.1]",
         YFW_REQ_READ, false, gia, config_leaves(gia, "192.0.2.1", "GigabitEthernet0/0/0/1", "5")},
        {"InterfaceAndAddressV6", e6,
         "vrf-next-hop-interface-name-next-hop-address[interface-name=Lag1][next-hop-address=2001:DB8::0:1]",
         YFW_REQ_READ, false, "##Lag1##2001:DB8::0:1##",
         config_leaves("##Lag1##2001:DB8::0:1##", "2001:DB8::0:1", "Lag1", "0")},
        {"AddressV4", e4, "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]", YFW_REQ_READ, false, a9,
         config_leaves(a9, "192.0.2.9")},
        {"AddressV6KeepsNativeText", e6, "vrf-next-hop-next-hop-address[next-hop-address=2001:0DB8::9]",
         YFW_REQ_READ, false, "##2001:0DB8::9##", config_leaves("##2001:0DB8::9##", "2001:0DB8::9")},
        {"AddressWithheldAddsNothing", e4, "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]",
         YFW_REQ_READ_STATE, true, "", {}},
        /* A native index replaces the generated one as the key. */
        {"NativeIndexReplacesGenerated", e4, "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/index = 7",
         YFW_REQ_READ, false, "7", config_leaves("7", "192.0.2.9")},
        {"NativeIndexOnInterfaceAndAddress", e4,
         "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/1][next-hop-address=10.0.0.1]"
         "/index = uplink",
         YFW_REQ_READ, false, "uplink", config_leaves("uplink", "10.0.0.1", "Gi0/1", "0")},
        {"MetricAndBfdConfigRead", e4,
         "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/metric = 5\n" + e4 +
             "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/bfd-fast-detect = false",
         YFW_REQ_READ, false, a9,
         plus(config_leaves(a9, "192.0.2.9"), {"config/metric = 5", "enable-bfd/config/enabled = false"})},
        {"MetricAndBfdStateRead", e4,
         "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/metric = 5\n" + e4 +
             "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/bfd-fast-detect = true",
         YFW_REQ_READ_STATE, false, a9,
         plus(config_leaves(a9, "192.0.2.9"),
              {"config/metric = 5", "enable-bfd/config/enabled = true", "enable-bfd/state/enabled = true"})},
        {"TagAndDescriptionGoToTheRoute", e4,
         "vrf-next-hop-interface-name[interface-name=Null0]/tag = 0x2a\n" + e4 +
             "vrf-next-hop-interface-name[interface-name=Null0]/description = \"core\"",
         YFW_REQ_READ, false, "##DROP##",
         plus(config_leaves("##DROP##", "DROP"), {"^config/description = \"core\"", "^config/set-tag = 0x2a"})},
    };
}

class NextHopRead : public ReadFixture, public ::testing::WithParamInterface<int> {};

TEST_P(NextHopRead, BuildsTheOpenConfigNextHop)
{
    const NextHopCase c = next_hop_cases()[GetParam()];
    request(c.op_type, c.withhold);
    walk_text(c.entry + c.table);
    EXPECT_TRUE(failures().empty()) << failures()[0].callback;
    /* Keep the lines below the static entries only; the parents are tested above. */
    Lines got;
    for (const std::string &l : out())
        if (l.find("/static-routes/static[") != std::string::npos &&
            l.find("/config/prefix = ") == std::string::npos)
            got.push_back(l);
    const bool named = c.entry.find("/vrfs/vrf[") != std::string::npos;
    const bool v4 = c.entry.find("vrfipv4") != std::string::npos;
    const std::string s = st(named ? "red" : "default", v4 ? "192.0.2.0/24" : "2001:db8::/64");
    Lines want;
    for (const std::string &l : c.leaves)
        want.push_back(l[0] == '^' ? s + "/" + l.substr(1) : s + "/next-hops/next-hop[index=" + c.index + "]/" + l);
    EXPECT_EQ(got, sorted(want));
}

INSTANTIATE_TEST_SUITE_P(Cases, NextHopRead, ::testing::Range(0, static_cast<int>(next_hop_cases().size())),
                         [](const ::testing::TestParamInfo<int> &i) {
                             return std::string(next_hop_cases()[i.param].name);
                         });

TEST_F(ReadFixture, IdentityNextHopsCarryTheLocalRoutingValueNamespace)
{
    request(YFW_REQ_READ);
    const std::string e = v4_entry(DEF_V4) + TBL;
    walk_text(e + "vrf-next-hop-interface-name[interface-name=Null0]\n" + e +
              "vrf-next-hop-interface-name[interface-name=Gi0/2]\n" + e +
              "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]");
    const std::string s = "192.0.2.0/24";
    for (const char *idx : {"##DROP##", "##Gi0/2##"}) {
        const zidl_yfw_datatree *n = h.out_node(nh("default", s, idx) + "/config/next-hop");
        ASSERT_NE(n, nullptr) << idx;
        ASSERT_NE(n->data_ns, nullptr) << idx;
        EXPECT_STREQ(n->data_ns, OCNI_NS_OC_LR);
    }
    const zidl_yfw_datatree *addr = h.out_node(nh("default", s, "##192.0.2.9##") + "/config/next-hop");
    ASSERT_NE(addr, nullptr);
    EXPECT_EQ(addr->data_ns, nullptr);
}

TEST_F(ReadFixture, TwoNextHopsWithDifferentTagsLeaveTheLastTag)
{
    request(YFW_REQ_READ);
    const std::string e = v4_entry(DEF_V4) + TBL;
    walk_text(e + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/tag = 10\n" + e +
              "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/1][next-hop-address=192.0.2.1]"
              "/tag = 20\n");
    EXPECT_TRUE(failures().empty());
    const zidl_yfw_datatree *tag = h.out_node(st("default", "192.0.2.0/24") + "/config/set-tag");
    ASSERT_NE(tag, nullptr);
    EXPECT_STREQ(tag->value, "20");
    /* Both next hops are there, each under its own index. */
    EXPECT_NE(h.out_node(nh("default", "192.0.2.0/24", "##192.0.2.9##")), nullptr);
    EXPECT_NE(h.out_node(nh("default", "192.0.2.0/24", "##Gi0/1##192.0.2.1##")), nullptr);
}

TEST_F(ReadFixture, EachInterfaceAndAddressEntryStartsAFreshRouteRecord)
{
    request(YFW_REQ_READ);
    h.logging(true, true);
    const std::string e = v4_entry(DEF_V4) + TBL + "vrf-next-hop-interface-name-next-hop-address";
    walk_text(e + "[interface-name=Gi0/1][next-hop-address=192.0.2.1]\n" + e +
              "[interface-name=Gi0/2.7][next-hop-address=192.0.2.2]\n");
    EXPECT_TRUE(failures().empty());
    const std::string s = "192.0.2.0/24";
    EXPECT_NE(h.out_node(nh("default", s, "##Gi0/1##192.0.2.1##")), nullptr);
    EXPECT_NE(h.out_node(nh("default", s, "##Gi0/2.7##192.0.2.2##")), nullptr);
    /* The interface key's short index never survives as a key of its own. */
    for (const std::string &l : out())
        EXPECT_EQ(l.find("[index=##Gi0/1]"), std::string::npos) << l;
    const ocni_route_common_data *rec = static_cast<const ocni_route_common_data *>(h.rc->common_data_ptr);
    ASSERT_NE(rec, nullptr);
    EXPECT_STREQ(rec->auto_index, "##Gi0/2.7");
    const std::string freed = "TRC: YFW: ctx=" + h.ctx_text() +
                              ",ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_"
                              "vrfnexthopinterfacenamenexthopaddress_interfacename : "
                              "ctx->req_ctx->common_data_ptr is freed before memory re-allocation. ";
    const Lines trc = h.trc_lines();
    EXPECT_EQ(std::count(trc.begin(), trc.end(), freed), 1);
}

TEST_F(ReadFixture, InterfaceSplitCutsTheInputOnlyWhereIntended)
{
    struct Row {
        LeafCb cb;
        const char *table;
        bool input_cut;
    } rows[] = {
        {ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacename_interfacename,
         "vrf-next-hop-interface-name", false},
        {ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacename_interfacename,
         "vrf-next-hop-interface-name", true},
        {ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_interfacename,
         "vrf-next-hop-interface-name-next-hop-address", true},
        {ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_interfacename,
         "vrf-next-hop-interface-name-next-hop-address", true},
    };
    for (const Row &r : rows) {
        request(YFW_REQ_READ);
        TreeBuilder b(OCNI_NS_NATIVE);
        const std::string path = v4_entry(DEF_V4) + TBL + r.table + "/interface-name";
        b.add(path, "Gi0/0/0/3.42");
        zidl_yfw_datatree *leaf = b.node(path);
        ASSERT_NE(leaf, nullptr);
        EXPECT_EQ(h.call(r.cb, leaf), 0u) << r.table;
        EXPECT_STREQ(leaf->value, r.input_cut ? "Gi0/0/0/3" : "Gi0/0/0/3.42") << r.table;
    }
}

/* ------------------------------------------------------------------ */
/* Result codes and traces                                             */
/* ------------------------------------------------------------------ */

TEST_F(ReadFixture, LightweightTraceNamesTheExportedTwin)
{
    request(YFW_REQ_READ);
    h.ltrace(true);
    TreeBuilder b(OCNI_NS_NATIVE);
    const std::string path = v6_entry(NAMED_V6) + "/prefix";
    b.add(path, "2001:db8::");
    EXPECT_EQ(h.call(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefix_namedvrf,
                     b.node(path)),
              0u);
    const Lines lt = h.ltrace_lines();
    ASSERT_EQ(lt.size(), 2u);
    const std::string name = "ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefix_namedvrf";
    EXPECT_NE(lt[0].find(": TRC: " + name + ":"), std::string::npos) << lt[0];
    EXPECT_NE(lt[0].find("ctx=" + h.ctx_text() + ",Start"), std::string::npos) << lt[0];
    EXPECT_NE(lt[1].find(",End"), std::string::npos) << lt[1];
}

TEST_F(ReadFixture, OverlongInterfaceNamesAreCutNeverOverrun)
{
    const std::string longname = "GigabitEthernet" + std::string(200, '9') + ".12345678901";
    for (const char *table : {"vrf-next-hop-interface-name", "vrf-next-hop-interface-name-next-hop-address"}) {
        request(YFW_REQ_READ);
        const std::string e = v4_entry(DEF_V4) + TBL + table + "[interface-name=" + longname + "]";
        walk_text(std::string(table) == "vrf-next-hop-interface-name" ? e : e.substr(0, e.size() - 1) +
                                                                              "][next-hop-address=192.0.2.1]");
        EXPECT_TRUE(failures().empty()) << table;
        size_t indexes = 0;
        for (const std::string &l : out()) {
            const std::string marker = "/config/index = ";
            size_t at = l.find(marker);
            if (at == std::string::npos)
                continue;
            ++indexes;
            const std::string index = l.substr(at + marker.size());
            EXPECT_EQ(index.size(), 128u) << table;
            EXPECT_EQ(index.rfind("##GigabitEthernet999", 0), 0u) << table;
        }
        EXPECT_EQ(indexes, 1u) << table;
        /* The subinterface keeps at most nine characters. */
        for (const std::string &l : out()) {
            if (l.find("/interface-ref/config/subinterface = ") != std::string::npos) {
                EXPECT_NE(l.find("= 123456789"), std::string::npos) << l;
            }
        }
    }
}

TEST_F(ReadFixture, NullArgumentsFailWithAnErrorPathAndNoEndTrace)
{
    const LeafCb leaves[] = {
        ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefix,
        ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefixlength_namedvrf,
        ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlt_routerstatic_vrfnexthoptable_vrfnexthopnexthopaddress,
        ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacename_interfacename,
        ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_nexthopaddress,
        ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopnexthopaddress_tag,
        ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_bfd,
    };
    TreePtr in = build_tree("/router-static/default-vrf", OCNI_NS_NATIVE);
    const zidl_yfw_datatree *node = tree_find(in.get(), "/router-static/default-vrf");
    for (LeafCb cb : leaves) {
        for (int which = 0; which < 2; ++which) {
            request(YFW_REQ_READ);
            h.logging(true, true);
            h.ltrace(true);
            h.enter(node);
            cerrno rc = which == 0 ? cb(h.ctx, nullptr, h.out) : cb(h.ctx, node, nullptr);
            EXPECT_EQ(rc, YFW_RC_MAP_FAILED);
            const std::string c = "ctx=" + h.ctx_text() + ",";
            EXPECT_EQ(h.log_lines(), (Lines{"TRC: YFW: " + c + "Start", "ERR: YFW: " + c + "Invalid arguments passed!"}));
            EXPECT_EQ(h.error_paths().size(), 1u);
            EXPECT_TRUE(out().empty());
        }
    }
    request(YFW_REQ_READ);
    EXPECT_EQ(ymap_xo_ocni_velmarornqzipstaticcfg_man_cont_lvla_routerstatic(h.ctx, nullptr, 0, h.out),
              YFW_RC_MAP_FAILED);
}

TEST_F(ReadFixture, AddressKeyWithoutRouteRecordFailsWithoutErrorPath)
{
    request(YFW_REQ_READ);
    h.logging(true, true);
    TreeBuilder b(OCNI_NS_NATIVE);
    const std::string path =
        v4_entry(DEF_V4) + TBL + "vrf-next-hop-interface-name-next-hop-address/next-hop-address";
    b.add(path, "192.0.2.1");
    const char *name =
        "ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_nexthopaddress";
    EXPECT_EQ(h.call(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_nexthopaddress,
                     b.node(path)),
              YFW_RC_MAP_FAILED);
    EXPECT_EQ(h.err_lines(), (Lines{"ERR: YFW: ctx=" + h.ctx_text() + "," + name +
                                    " : ctx->req_ctx->common_data_ptr is NULL"}));
    EXPECT_TRUE(h.error_paths().empty());
    EXPECT_TRUE(out().empty());
}

/*
 * Key leaves without a value add nothing (the combined table's address key
 * after its interface key made the route record); the interface key
 * returns before its End trace.
 */
TEST_F(ReadFixture, KeysWithoutValueAddNothing)
{
    const std::string combined = "vrf-next-hop-interface-name-next-hop-address";
    const struct {
        std::string leaf;
        LeafCb cb;
        bool end_trace;
    } rows[] = {
        {"vrf-next-hop-interface-name/interface-name",
         ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacename_interfacename, false},
        {"vrf-next-hop-next-hop-address/next-hop-address",
         ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopnexthopaddress_nexthopaddress, true},
        {combined + "/next-hop-address",
         ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_nexthopaddress,
         true},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.leaf);
        request(YFW_REQ_READ);
        TreeBuilder b(OCNI_NS_NATIVE);
        const std::string ifname = v4_entry(DEF_V4) + TBL + combined + "/interface-name";
        b.add(ifname, "Gi0/0/0/1");
        ASSERT_EQ(h.call(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_interfacename,
                         b.node(ifname)),
                  0u);
        const Lines before = out();
        h.logging(true, true);
        const std::string path = v4_entry(DEF_V4) + TBL + r.leaf;
        b.add(path);
        EXPECT_EQ(h.call(r.cb, b.node(path)), 0u);
        Lines want = {"TRC: YFW: ctx=" + h.ctx_text() + ",Start"};
        if (r.end_trace)
            want.push_back("TRC: YFW: ctx=" + h.ctx_text() + ",End");
        EXPECT_EQ(h.log_lines(), want);
        EXPECT_EQ(out(), before);
    }
}

TEST_F(ReadFixture, DeletedNativeEntryCarriesTheDeleteToOpenConfig)
{
    for (bool del : {true, false}) {
        request(YFW_REQ_EDIT);
        TreeBuilder b(OCNI_NS_NATIVE);
        const std::string path = v4_entry(DEF_V4) + TBL + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]";
        b.add(path, nullptr, del ? static_cast<int>(YFW_DT_OP_DELETE) : -1);
        EXPECT_EQ(h.call(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvln_routerstatic_vrfnexthoptable_vrfnexthopnexthopaddress,
                         b.node(path)),
                  0u);
        if (del)
            EXPECT_EQ(out(), (Lines{"/network-instances/network-instance/protocols/protocol/static-routes/"
                                    "static/next-hops/next-hop (delete)"}));
        else
            EXPECT_TRUE(out().empty());
    }
}

TEST_F(ReadFixture, IndexMetricAndBfdFollowTheReadPathRule)
{
    struct Row {
        LeafCb cb;
        const char *value;
        uint32_t op_type;
        bool withhold;
        Lines expected; /* below "next-hop" */
    } rows[] = {
        {ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_index, "7", YFW_REQ_READ, true, {"[index=7]/index = 7"}},
        {ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_index, "7", YFW_REQ_READ, false,
         {"[index=7]/config/index = 7", "[index=7]/index = 7"}},
        {ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_metric, "5", YFW_REQ_READ_STATE, true, {}},
        {ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_metric, "5", YFW_REQ_READ, false,
         {"/config/metric = 5"}},
        {ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_bfd, "true", YFW_REQ_READ_STATE, true,
         {"/enable-bfd/state/enabled = true"}},
        {ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_bfd, "false", YFW_REQ_READ, false,
         {"/enable-bfd/config/enabled = false"}},
        {ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_bfd, "true", YFW_REQ_READ, true, {}},
    };
    const std::string base = "/network-instances/network-instance/protocols/protocol/static-routes/static/"
                             "next-hops/next-hop";
    for (const Row &r : rows) {
        request(r.op_type, r.withhold);
        TreeBuilder b(OCNI_NS_NATIVE);
        const std::string path = v4_entry(DEF_V4) + TBL + "vrf-next-hop-next-hop-address/leaf";
        b.add(path, r.value);
        EXPECT_EQ(h.call(r.cb, b.node(path)), 0u);
        Lines want;
        for (const std::string &l : r.expected)
            want.push_back(base + l);
        /* The index leaf is the key: show it whatever the dump shows for keys. */
        EXPECT_EQ(h.out_lines(DumpOptions{true, false}), want) << r.value << " " << r.op_type;
    }
}

} // namespace

/* ------------------------------------------------------------------ */
/* Round trip: generated indexes are recognised by the edit direction   */
/* ------------------------------------------------------------------ */

#include "host/store.h"
#include "host/store_layout.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"

namespace {

struct RoundTripCase {
    const char *name;
    NativeNextHop stored;  /* the next hop as the router's own command line stored it */
    std::string native;    /* the same next hop in the native tree */
    /* what an OpenConfig request naming that next hop carries */
    const char *interface;
    const char *subinterface;
    const char *next_hop;
};

NativeNextHop stored_next_hop(bool ipv4, const char *prefix, int len, const char *ifname, const char *addr)
{
    NativeNextHop n;
    n.ipv4 = ipv4;
    n.prefix = prefix;
    n.prefix_length = len;
    n.interface = ifname;
    n.address = addr;
    n.tag = 42;
    n.metric = 3;
    return n;
}

std::vector<RoundTripCase> round_trip_cases()
{
    const std::string e4 = v4_entry(DEF_V4) + TBL;
    const std::string e6 = v6_entry(DEF_V6) + TBL;
    return {
        {"InterfaceWithSubinterface", stored_next_hop(true, "192.0.2.0", 24, "GigabitEthernet0/0/0/1.100", ""),
         e4 + "vrf-next-hop-interface-name[interface-name=GigabitEthernet0/0/0/1.100]", "GigabitEthernet0/0/0/1",
         "100", nullptr},
        {"Drop", stored_next_hop(true, "192.0.2.0", 24, "Null0", ""),
         e4 + "vrf-next-hop-interface-name[interface-name=Null0]", nullptr, nullptr, "DROP"},
        {"InterfaceAndAddress", stored_next_hop(true, "192.0.2.0", 24, "GigabitEthernet0/0/0/2", "192.0.2.1"),
         e4 + "vrf-next-hop-interface-name-next-hop-address[interface-name=GigabitEthernet0/0/0/2]"
              "[next-hop-address=192.0.2.1]",
         "GigabitEthernet0/0/0/2", nullptr, "192.0.2.1"},
        {"Address", stored_next_hop(true, "192.0.2.0", 24, "", "192.0.2.9"),
         e4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]", nullptr, nullptr, "192.0.2.9"},
        {"AddressV6", stored_next_hop(false, "2001:db8::", 64, "", "2001:db8::9"),
         e6 + "vrf-next-hop-next-hop-address[next-hop-address=2001:db8::9]", nullptr, nullptr, "2001:db8::9"},
    };
}

class RoundTrip : public ReadFixture, public ::testing::WithParamInterface<int> {
protected:
    void TearDown() override { store_reset(); }

    /* The index the read direction gives the only next hop of the output. */
    std::string generated_index()
    {
        const std::string marker = "/config/index = ";
        std::string index;
        for (const std::string &l : out()) {
            size_t at = l.find(marker);
            if (at != std::string::npos && l.find("/next-hops/next-hop[") != std::string::npos) {
                EXPECT_TRUE(index.empty()) << "more than one next hop";
                index = l.substr(at + marker.size());
            }
        }
        return index;
    }

    /* The edit direction's index lookup for `index`, with the request's next-hop data. */
    cerrno lookup(const RoundTripCase &c, const std::string &index, const char *prefix_text)
    {
        request(YFW_REQ_EDIT);
        h.set_vrf("default");
        auto *rec = static_cast<ocni_route_common_data *>(calloc(1, sizeof(ocni_route_common_data)));
        h.rc->common_data_ptr = rec;
        prefix_ = prefix_text;
        rec->is_ipv4 = c.stored.ipv4 ? 1u : 0u;
        rec->prefix = prefix_.data();
        rec->interface = const_cast<char *>(c.interface);
        rec->subinterface = const_cast<char *>(c.subinterface);
        rec->next_hop = const_cast<char *>(c.next_hop);
        rec->has_interface = c.interface != nullptr;
        rec->has_next_hop = c.next_hop != nullptr;
        rec->vrf_label = OCNI_VRF_LABEL_UNSET;
        oc_input_ = build_tree("/network-instances/network-instance[name=default]" + PROTO +
                                   "/static-routes/static[prefix=" + prefix_ + "]/next-hops/next-hop[index=" +
                                   index + "]/config/index = " + index,
                               OCNI_NS_OC_NI);
        const zidl_yfw_datatree *entry =
            tree_find(oc_input_.get(), (st("default", prefix_) + "/next-hops/next-hop[index=" + index + "]").c_str());
        EXPECT_NE(entry, nullptr);
        h.enter(entry);
        return ocni_do_index_lookup_on_sysdb(h.ctx, entry, h.out);
    }

    std::string prefix_;
    TreePtr oc_input_;
};

TEST_P(RoundTrip, GeneratedIndexFindsTheStoredNextHop)
{
    const RoundTripCase c = round_trip_cases()[GetParam()];
    const std::string prefix = c.stored.prefix + "/" + std::to_string(c.stored.prefix_length);
    store_reset();
    ASSERT_EQ(store_write_next_hop(c.stored), 0u);

    request(YFW_REQ_READ);
    walk_text(c.native);
    ASSERT_TRUE(failures().empty());
    const std::string index = generated_index();
    ASSERT_FALSE(index.empty());

    EXPECT_EQ(lookup(c, index, prefix.c_str()), 0u) << index << " " << h.user_msg();
    const ocni_route_common_data *rec = ocni_rec(h.ctx);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(rec->index_found, 1u) << index;
    EXPECT_EQ(rec->tag, 42u);
    EXPECT_EQ(rec->route_metric, 3u);
    EXPECT_STREQ(rec->native_interface, c.stored.interface.c_str());
    EXPECT_STREQ(rec->native_address, c.stored.address.c_str());
    EXPECT_TRUE(h.error_paths().empty());
}

TEST_P(RoundTrip, GeneratedIndexOfANewNextHopIsAccepted)
{
    const RoundTripCase c = round_trip_cases()[GetParam()];
    const std::string prefix = c.stored.prefix + "/" + std::to_string(c.stored.prefix_length);
    store_reset();
    /* The route exists with another next hop only. */
    NativeNextHop other = c.stored;
    other.interface = "Loopback9";
    other.address = "";
    ASSERT_EQ(store_write_next_hop(other), 0u);

    request(YFW_REQ_READ);
    walk_text(c.native);
    const std::string index = generated_index();
    ASSERT_FALSE(index.empty());
    EXPECT_EQ(lookup(c, index, prefix.c_str()), SYSDB_RC_NOT_FOUND) << index;
    ASSERT_NE(ocni_rec(h.ctx), nullptr);
    EXPECT_EQ(ocni_rec(h.ctx)->index_found, 1u) << index;
    EXPECT_TRUE(h.error_paths().empty());
}

INSTANTIATE_TEST_SUITE_P(Tables, RoundTrip, ::testing::Range(0, static_cast<int>(round_trip_cases().size())),
                         [](const ::testing::TestParamInfo<int> &i) {
                             return std::string(round_trip_cases()[i.param].name);
                         });

} // namespace
