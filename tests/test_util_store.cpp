/*
 * The plug-in's next-hop index lookup in the configuration store, through
 * the host. The store is seeded with the host's own next-hop writer, so the
 * lookup is also held to the store layout.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "host/store.h"
#include "host/store_layout.h"
#include "host_fixture.h"
#include "tree_builder.h"
#include "ymap_ocni_openconfig_local_routing_man.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"

using namespace ocni::test;
namespace host = ocni::host;

namespace {

host::NativeNextHop nh(const std::string &prefix, int len, const std::string &ifc, const std::string &addr,
                       const std::string &index, int tag = 0, const std::string &vrf = "default")
{
    host::NativeNextHop n;
    n.vrf = vrf;
    n.prefix = prefix, n.prefix_length = len, n.interface = ifc, n.address = addr, n.index = index, n.tag = tag;
    return n;
}

/* Empty store, an edit request of the default VRF, a route record. */
class IndexLookup : public HostFixture {
protected:
    void SetUp() override
    {
        host::store_reset();
        h.reset(YFW_REQ_EDIT);
        h.set_vrf("default");
        h.logging(true, true);
        rec = static_cast<ocni_route_common_data *>(wos_named_calloc_(sizeof(ocni_route_common_data), 1, OCNI_TAG_MAP));
        ASSERT_NE(rec, nullptr);
        h.rc->common_data_ptr = rec;
    }
    /* Sets the route of the record (the text must outlive the call). */
    void route(const char *prefix, bool ipv4 = true) { rec->prefix = const_cast<char *>(prefix), rec->is_ipv4 = ipv4; }
    static void seed(const host::NativeNextHop &n) { ASSERT_EQ(host::store_write_next_hop(n), 0u) << n.index; }
    bool log_has(const std::string &text) const
    {
        const Lines l = h.log_lines();
        return std::find(l.begin(), l.end(), text) != l.end();
    }
    std::string trc(const std::string &msg) const { return "TRC: YFW: ctx=" + h.ctx_text() + "," + msg; }

    /* Looks up the OpenConfig next-hop entry of this index, entered as the framework does. */
    cerrno lookup(const std::string &index)
    {
        tree = build_tree("/next-hops/next-hop[index=" + index + "]/config/index = " + index + "\n", OCNI_NS_OC_NI);
        const zidl_yfw_datatree *e = host::tree_find(tree.get(), ("/next-hops/next-hop[index=" + index + "]").c_str());
        h.enter(e);
        return ocni_do_index_lookup_on_sysdb(h.ctx, e, h.out);
    }
    void clear(const char *prefix = "10.0.0.0/24", bool ipv4 = true)
    {
        memset(rec, 0, sizeof *rec);
        route(prefix, ipv4);
    }
    TreePtr tree;
    ocni_route_common_data *rec = nullptr;
};

TEST_F(IndexLookup, RefusalsBeforeTheStore)
{
    route("10.0.0.0/24");
    h.set_vrf(nullptr);
    EXPECT_EQ(lookup("1"), YFW_RC_INVALID_REQUEST);
    EXPECT_EQ(h.user_msg(), "network-instance/name not provided by the user!");
    EXPECT_TRUE(log_has(trc("network-instance/name not provided by the user!")));

    h.set_vrf("default");
    const struct {
        const char *tree, *msg;
    } bad[] = {{"/next-hops/next-hop/config/next-hop = 10.0.0.1", "Index not provided by the user!"},
               {"/next-hops/next-hop[index=]/config/next-hop = 10.0.0.1", "Index not provided by the user!"},
               {"/next-hops/next-hop", "Failed to get subtrees!"}, {"/none", "Failed to get subtrees!"} /* no input */};
    for (const auto &b : bad) {
        TreePtr t = build_tree(b.tree, OCNI_NS_OC_NI);
        EXPECT_EQ(ocni_do_index_lookup_on_sysdb(h.ctx, host::tree_find(t.get(), "/next-hops/next-hop"), h.out),
                  YFW_RC_INVALID_REQUEST);
        EXPECT_EQ(h.user_msg(), b.msg);
    }
    const std::string input_error = "ERR: YFW: ctx=" + h.ctx_text() + ",input index error";
    EXPECT_EQ(lookup(std::string(129, 'x')), YFW_RC_INVALID_REQUEST);
    EXPECT_TRUE(log_has(input_error));
    h.clear_traces();
    EXPECT_EQ(lookup(std::string(128, 'x')), SYSDB_RC_NOT_FOUND); /* 128 characters go on to the store */
    EXPECT_FALSE(log_has(input_error));

    /* Prefix texts: an address text is cut at 45 characters, as address buffers cut; no address never matches. */
    host::NativeNextHop v6 = nh("2001:db8::ffff:ffff", 128, "", "2001:db8::1", "7");
    v6.ipv4 = false;
    seed(v6);
    route("2001:0db8:0000:0000:0000:0000:255.255.255.2559/128", false);
    EXPECT_EQ(lookup("7"), YFW_RC_OK);
    route("300.0.0.0/24");
    EXPECT_EQ(lookup("1"), OCNI_RC_ALL_ONES);
    route("10.0.0.0/24", false); /* an IPv4 text on an IPv6 route */
    EXPECT_EQ(lookup("1"), OCNI_RC_ALL_ONES);
    rec->prefix = nullptr;
    EXPECT_EQ(lookup("1"), YFW_RC_NO_COMMON_DATA);
    h.rc->common_data_ptr = nullptr;
    EXPECT_EQ(lookup("1"), YFW_RC_NO_COMMON_DATA);
    h.rc->common_data_ptr = rec;
    EXPECT_TRUE(h.out_lines().empty());
}

/*
 * Generated indexes ("##interface##address##"): a stored command-line entry
 * is loaded; a new one is accepted when it names what the request gives.
 */
TEST_F(IndexLookup, GeneratedIndexLoadsCliEntriesOrJudgesTheRequest)
{
    host::NativeNextHop cli = nh("10.0.0.0", 24, "GigabitEthernet0/0/0/0", "", "");
    cli.metric = 8;
    seed(cli);
    const host::NativeNextHop old = nh("10.0.0.0", 24, "", "10.0.0.1", ""); /* an older writer's: the tuple stops after bfd */
    ASSERT_EQ(host::store_engine()->put(host::STATIC_ROOT + host::route_next_hop_dir("default", true, "10.0.0.0", 24) +
                                            host::next_hop_key(old), host::next_hop_tuple(old).substr(0, 5)), 0u);
    seed(nh("10.0.0.0", 24, "Null0", "", ""));
    seed(nh("10.0.0.0", 24, "GigabitEthernet0/0/0/1", "10.0.0.9", ""));
    char ifc[] = "GigabitEthernet0/0/0/5", addr[] = "10.0.0.5", sub[8];
    enum { LOADED, ACCEPTED, REJECTED, FAILED };
    struct Row {
        const char *index, *given; /* given: "i" interface, "a" address, digits: subinterface */
        int outcome;
        const char *ifc = "", *addr = "";
        uint32_t metric = 0;
        const char *route = "10.0.0.0/24";
    } rows[] = {
        {"##GigabitEthernet0/0/0/0##", "", LOADED, "GigabitEthernet0/0/0/0", "", 8},
        {"##GigabitEthernet0_0_0_0##", "", LOADED, "GigabitEthernet0/0/0/0", "", 8},
        {"##10.0.0.1##", "", LOADED, "", "10.0.0.1"},
        {"##DROP##", "", LOADED, "Null0"},
        {"##GigabitEthernet0/0/0/1##10.0.0.9##", "", LOADED, "GigabitEthernet0/0/0/1", "10.0.0.9"},
        {"##GigabitEthernet0/0/0/5##", "i", ACCEPTED},
        {"##GigabitEthernet0/0/0/5##", "i0", ACCEPTED},
        {"##GigabitEthernet0/0/0/5.7##", "i7", ACCEPTED},
        {"##10.0.0.5##", "a", ACCEPTED},
        {"##GigabitEthernet0/0/0/5##10.0.0.5##", "ia", ACCEPTED},
        {"##GigabitEthernet0/0/0/5##", "i", ACCEPTED, "", "", 0, "10.7.0.0/24"}, /* route not stored */
        {"##GigabitEthernet0/0/0/6##", "i", REJECTED},
        {"##10.0.0.6##", "a", REJECTED},
        {"##GigabitEthernet0/0/0/5##", "ia", REJECTED}, /* both given, one token */
        {"##10.0.0.5##", "", REJECTED},
        {"##GigabitEthernet0/0/0/6##", "i", REJECTED, "", "", 0, "10.7.0.0/24"},
        {"##GigabitEthernet0/0/0/5##not-an-address##", "ia", FAILED},
        {"##GigabitEthernet0/0/0/5##2001:db8::1##", "ia", FAILED}, /* wrong family */
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(std::string(r.index) + " given " + r.given + " route " + r.route);
        clear(r.route);
        const std::string given = r.given;
        if (given.find('i') != std::string::npos)
            rec->interface = ifc, rec->has_interface = 1;
        if (given.find('a') != std::string::npos)
            rec->next_hop = addr, rec->has_next_hop = 1;
        snprintf(sub, sizeof sub, "%s", given.c_str() + strspn(given.c_str(), "ia"));
        rec->subinterface = sub[0] != '\0' ? sub : nullptr;
        h.clear_traces();
        host::req_clear_error_paths(h.rc);
        const bool stored = strcmp(r.route, "10.0.0.0/24") == 0;
        const cerrno want = r.outcome == LOADED ? 0u : r.outcome == ACCEPTED ? SYSDB_RC_NOT_FOUND : YFW_RC_MAP_FAILED;
        EXPECT_EQ(lookup(r.index), want);
        EXPECT_EQ(rec->index_found, r.outcome <= ACCEPTED ? 1u : 0u);
        EXPECT_EQ(h.error_paths().size(), r.outcome <= ACCEPTED ? 0u : 1u);
        EXPECT_STREQ(rec->native_interface, r.ifc);
        EXPECT_STREQ(rec->native_address, r.addr);
        EXPECT_EQ(rec->native_has_interface, r.ifc[0] != '\0' ? 1u : 0u);
        EXPECT_EQ(rec->native_has_address, r.addr[0] != '\0' ? 1u : 0u);
        EXPECT_EQ(rec->route_metric, r.metric);
        for (uint32_t absent : {rec->minimum_interval, rec->detect_multiplier, rec->load_metric, rec->tag})
            EXPECT_EQ(absent, 0u); /* stored as 0, or not in the tuple */
        EXPECT_EQ(rec->vrf_label, r.outcome == LOADED ? OCNI_VRF_LABEL_UNSET : 0u);
        EXPECT_EQ(log_has(trc("Modification/Delete received for CLI entry")), r.outcome == LOADED);
        const std::string head = std::string("Create of index ") + r.index;
        if (r.outcome == ACCEPTED) {
            EXPECT_TRUE(log_has(trc(head + (stored ? " accepted, as it contains ## at start & end& valid nexthop data"
                                                   : " accepted, as it contains ## at start & end & valid nexthop data"))));
        }
        EXPECT_EQ(log_has(trc(head + (stored ? " rejected, as it contains ## at start & end& invalid nexthop data"
                                             : " rejected, as it contains ## at start & end"))),
                  r.outcome == REJECTED);
    }
}

/* A stored next hop on an output nothing can be added to: a read or a delete reports the failed addition, a follow-up its refusal. */
TEST_F(IndexLookup, StoredNextHopOnAnOutputThatTakesNothing)
{
    seed(nh("10.0.0.0", 24, "", "10.0.0.1", "1"));
    const struct { uint32_t kind; std::string lines; cerrno rc; const char *msg; } rows[] = {
        {YFW_REQ_READ, "/config/index = 1", YFW_RC_MAP_FAILED, ""}, {YFW_REQ_EDIT, " (delete)", YFW_RC_MAP_FAILED, ""},
        {YFW_REQ_EDIT, "/config/next-hop = 10.0.0.1", YFW_RC_INVALID_REQUEST, "description configuration is failed"}};
    for (const auto &r : rows) {
        h.reset(r.kind), h.set_vrf("default");
        h.rc->common_data_ptr = rec = static_cast<ocni_route_common_data *>(wos_named_calloc_(sizeof *rec, 1, OCNI_TAG_MAP));
        route("10.0.0.0/24"), snprintf(rec->description_in, sizeof rec->description_in, "d");
        tree = build_tree("/next-hops/next-hop[index=1]" + r.lines + "\n", OCNI_NS_OC_NI);
        const zidl_yfw_datatree *e = host::tree_find(tree.get(), "/next-hops/next-hop[index=1]");
        zidl_yfw_datatree foreign = {};
        h.enter(e);
        EXPECT_EQ(ymap_ox_ocni_openconfiglocalrouting_man_list_lvla_localroutes_nexthops_nexthop(h.ctx, e, &foreign), r.rc) << r.lines;
        EXPECT_EQ(h.user_msg(), r.msg);
    }
}

} // namespace
