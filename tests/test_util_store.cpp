/*
 * The plug-in's reads of the configuration store, through the host: VRF
 * existence, the next-hop index lookup and the route-wide tag and
 * description fan-out. The store is seeded with the host's own next-hop
 * writer, so these tests also hold the lookups to the store layout.
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
#include "ymap_ocni_openconfig_local_routing_man_util.h"

using namespace ocni::test;
namespace host = ocni::host;

namespace {

/* Base fixture: empty store, an edit request, a route record. */
class StoreFixture : public HostFixture {
protected:
    void SetUp() override
    {
        host::store_reset();
        h.reset(YFW_REQ_EDIT);
        h.set_vrf("default");
        h.logging(true, true);
        rec = new_record();
    }

    ocni_route_common_data *new_record()
    {
        auto *r = static_cast<ocni_route_common_data *>(
            wos_named_calloc_(sizeof(ocni_route_common_data), 1, OCNI_TAG_MAP));
        EXPECT_NE(r, nullptr);
        h.rc->common_data_ptr = r;
        return r;
    }

    /* Sets the route of the record (the text must outlive the call). */
    void route(const char *prefix, bool ipv4 = true)
    {
        rec->prefix = const_cast<char *>(prefix);
        rec->is_ipv4 = ipv4 ? 1 : 0;
    }

    static host::NativeNextHop nh(const std::string &prefix, int len, const std::string &ifc,
                                  const std::string &addr, const std::string &index)
    {
        host::NativeNextHop n;
        n.prefix = prefix;
        n.prefix_length = len;
        n.interface = ifc;
        n.address = addr;
        n.index = index;
        return n;
    }

    static void seed(const host::NativeNextHop &n)
    {
        ASSERT_EQ(host::store_write_next_hop(n), 0u) << n.prefix << " " << n.index;
    }

    /* A route directory that exists with no next hop in it. */
    static void seed_empty_route(const std::string &vrf, bool ipv4, const std::string &prefix, int len)
    {
        std::string dir = std::string(host::STATIC_ROOT) + host::route_next_hop_dir(vrf, ipv4, prefix, len);
        ASSERT_EQ(host::store_engine()->put(dir, ""), 0u);
    }

    bool log_has(const std::string &text) const
    {
        for (const std::string &l : h.log_lines())
            if (l == text)
                return true;
        return false;
    }
    std::string trc(const std::string &msg) const { return "TRC: YFW: ctx=" + h.ctx_text() + "," + msg; }
    std::string err(const std::string &msg) const { return "ERR: YFW: ctx=" + h.ctx_text() + "," + msg; }

    ocni_route_common_data *rec = nullptr;
};

/* ------------------------------------------------------------------ */
/* VRF existence                                                       */
/* ------------------------------------------------------------------ */

class VrfExists : public StoreFixture {
protected:
    uint8_t ask(uint8_t start)
    {
        uint8_t flag = start;
        EXPECT_EQ(ocni_yfw_ipstatic_vrf_exists(h.ctx, &flag), 0u);
        return flag;
    }
};

TEST_F(VrfExists, DefaultOrNoVrfExistsWithoutTouchingTheStore)
{
    for (const char *vrf : {"default", static_cast<const char *>(nullptr)}) {
        ocni_ipstatic_init_done = 0;
        size_t binds = host::store_bind_count();
        h.set_vrf(vrf);
        EXPECT_EQ(ask(0), 1);
        EXPECT_EQ(host::store_bind_count(), binds);
        EXPECT_EQ(ocni_ipstatic_init_done, 0u);
    }
    /* the comparison is exact here: "Default" is looked up like any VRF */
    h.set_vrf("Default");
    EXPECT_EQ(ask(1), 0);
}

TEST_F(VrfExists, CreatedInTheSameRequest)
{
    TreePtr in = build_tree(
        "/network-instances/network-instance[name=red]/config/name = red\n"
        "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/config/name = DEFAULT\n",
        OCNI_NS_OC_NI);
    h.enter(host::tree_find(in.get(),
                            "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]"));
    h.set_vrf("red");
    ocni_ipstatic_init_done = 0;
    size_t binds = host::store_bind_count();
    EXPECT_EQ(ask(0), 1);
    EXPECT_EQ(host::store_bind_count(), binds); /* decided by the request alone */

    /* another VRF of the same request is not "created" by red's leaf */
    h.set_vrf("blue");
    EXPECT_EQ(ask(1), 0);
}

TEST_F(VrfExists, StoreDecidesOtherwise)
{
    host::store_add_vrf("blue");
    host::store_add_empty_vrf("green");
    h.set_vrf("blue");
    EXPECT_EQ(ask(0), 1);
    h.set_vrf("absent");
    EXPECT_EQ(ask(1), 0);
    /* listed with a count of 0: the caller's value stands either way */
    h.set_vrf("green");
    EXPECT_EQ(ask(0), 0);
    EXPECT_EQ(ask(1), 1);
    /* the failed request lookup is traced with the text of success */
    EXPECT_TRUE(log_has(trc(cerr_strerror(0))));
}

TEST_F(VrfExists, FailedBindIsReturnedAndRetried)
{
    ocni_ipstatic_init_done = 0;
    host::store_add_vrf("blue");
    h.set_vrf("blue");
    host::store_fail_binds(SYSDB_RC_FAILED, 1);
    uint8_t flag = 7;
    EXPECT_EQ(ocni_yfw_ipstatic_vrf_exists(h.ctx, &flag), SYSDB_RC_FAILED);
    EXPECT_EQ(flag, 7);
    EXPECT_EQ(ocni_ipstatic_init_done, 0u);

    size_t binds = host::store_bind_count();
    EXPECT_EQ(ask(0), 1);
    EXPECT_EQ(host::store_bind_count(), binds + 2); /* both connections bound again */
    EXPECT_EQ(ocni_ipstatic_init_done, 1u);
    EXPECT_EQ(ask(0), 1);
    EXPECT_EQ(host::store_bind_count(), binds + 2); /* and only once */
}

/* ------------------------------------------------------------------ */
/* Next-hop index lookup                                               */
/* ------------------------------------------------------------------ */

class IndexLookup : public StoreFixture {
protected:
    /* The OpenConfig next-hop entry of a request with this index. */
    const zidl_yfw_datatree *entry(const std::string &index)
    {
        tree = build_tree("/next-hops/next-hop[index=" + index + "]/config/index = " + index + "\n",
                          OCNI_NS_OC_NI);
        const zidl_yfw_datatree *e = host::tree_find(tree.get(), ("/next-hops/next-hop[index=" + index + "]").c_str());
        EXPECT_NE(e, nullptr);
        h.enter(e); /* as the framework does before mapping the entry */
        return e;
    }
    cerrno lookup(const std::string &index) { return ocni_do_index_lookup_on_sysdb(h.ctx, entry(index), h.out); }

    TreePtr tree;
};

TEST_F(IndexLookup, OrdinaryIndexLoadsTheStoredEntry)
{
    host::NativeNextHop a = nh("10.0.0.0", 24, "GigabitEthernet0/0/0/0", "10.0.0.1", "1");
    a.bfd_fast_detect = 1;
    a.minimum_interval = 150;
    a.detect_multiplier = 3;
    a.metric = 5;
    a.tag = 44;
    a.permanent = 1;
    a.vrf_label = 16;
    a.tunnel_id = 4;
    a.object_name = "obj";
    a.description = "stored";
    a.load_metric = 2;
    a.third = "x3";
    seed(a);
    seed(nh("10.0.0.0", 24, "", "10.0.0.2", "2"));
    seed(nh("10.0.0.0", 25, "", "10.0.0.3", "1")); /* another route, same index */
    route("10.0.0.0/24");

    EXPECT_EQ(lookup("1"), 0u);
    EXPECT_EQ(rec->index_found, 1u);
    EXPECT_EQ(rec->native_has_interface, 1u);
    EXPECT_STREQ(rec->native_interface, "GigabitEthernet0/0/0/0");
    EXPECT_EQ(rec->native_has_address, 1u);
    EXPECT_STREQ(rec->native_address, "10.0.0.1");
    EXPECT_EQ(rec->native_has_third_key, 1u);
    EXPECT_STREQ(rec->native_third_key, "x3");
    EXPECT_EQ(rec->bfd_fast_detect, 1u);
    EXPECT_EQ(rec->minimum_interval, 150u);
    EXPECT_EQ(rec->detect_multiplier, 3u);
    EXPECT_EQ(rec->route_metric, 5u);
    EXPECT_EQ(rec->tag, 44u);
    EXPECT_STREQ(rec->set_tag, "44");
    EXPECT_EQ(rec->permanent, 1u);
    EXPECT_EQ(rec->vrf_label, 16u);
    EXPECT_EQ(rec->tunnel_id, 4u);
    EXPECT_STREQ(rec->object_name, "obj");
    EXPECT_STREQ(rec->description, "stored");
    EXPECT_EQ(rec->load_metric, 2u);
    EXPECT_EQ(h.log_lines().front(), trc("Start"));
    EXPECT_EQ(h.log_lines().back(), trc("End"));
    EXPECT_TRUE(h.out_lines().empty());
}

TEST_F(IndexLookup, AddressOnlyEntryKeepsInterfaceEmpty)
{
    seed(nh("10.0.0.0", 24, "", "10.0.0.2", "two"));
    route("10.0.0.0/24");
    EXPECT_EQ(lookup("two"), 0u);
    EXPECT_EQ(rec->native_has_interface, 0u);
    EXPECT_STREQ(rec->native_interface, "");
    EXPECT_EQ(rec->native_has_address, 1u);
    EXPECT_STREQ(rec->native_address, "10.0.0.2");
    EXPECT_EQ(rec->native_has_third_key, 0u);
    EXPECT_EQ(rec->vrf_label, OCNI_VRF_LABEL_UNSET);
}

TEST_F(IndexLookup, RequestValuesOverrideStoredOnes)
{
    host::NativeNextHop a = nh("10.0.0.0", 24, "Gi0", "", "1");
    a.metric = 5;
    a.tag = 44;
    a.description = "";
    a.minimum_interval = -1; /* not set in the store: the record keeps its own */
    seed(a);
    route("10.0.0.0/24");

    char metric[] = "9";
    rec->metric = metric;
    snprintf(rec->set_tag, sizeof rec->set_tag, "12");
    snprintf(rec->description_in, sizeof rec->description_in, "from-request");
    rec->minimum_interval = 300;
    EXPECT_EQ(lookup("1"), 0u);
    EXPECT_EQ(rec->route_metric, 9u);
    EXPECT_EQ(rec->tag, 12u);
    EXPECT_STREQ(rec->description, "from-request");
    EXPECT_EQ(rec->minimum_interval, 300u);

    /* deleted metric, tag and description given by the request: left alone */
    memset(rec, 0, sizeof *rec);
    route("10.0.0.0/24");
    rec->metric_deleted = 1;
    rec->route_metric = 77;
    rec->tag_given = 1;
    rec->tag = 88;
    rec->description_given = 1;
    snprintf(rec->description, sizeof rec->description, "mine");
    EXPECT_EQ(lookup("1"), 0u);
    EXPECT_EQ(rec->route_metric, 77u);
    EXPECT_EQ(rec->tag, 88u);
    EXPECT_STREQ(rec->description, "mine");
    EXPECT_STREQ(rec->set_tag, "");
}

TEST_F(IndexLookup, StoredDescriptionReplacesTheRequestOne)
{
    host::NativeNextHop a = nh("10.0.0.0", 24, "Gi0", "", "1");
    a.description = "stored";
    seed(a);
    route("10.0.0.0/24");
    snprintf(rec->description_in, sizeof rec->description_in, "from-request");
    EXPECT_EQ(lookup("1"), 0u);
    EXPECT_STREQ(rec->description, "stored");
}

TEST_F(IndexLookup, UnknownIndexIsNotFoundButCollectsTheStoredTag)
{
    host::NativeNextHop a = nh("10.0.0.0", 24, "Gi0", "", "1");
    a.tag = 0;
    seed(a);
    host::NativeNextHop b = nh("10.0.0.0", 24, "Gi1", "", "2");
    b.tag = 31;
    seed(b);
    route("10.0.0.0/24");
    EXPECT_EQ(lookup("nine"), SYSDB_RC_NOT_FOUND);
    EXPECT_EQ(rec->index_found, 0u);
    EXPECT_EQ(rec->native_has_interface, 0u);
    EXPECT_STREQ(rec->set_tag, "31");
}

TEST_F(IndexLookup, RouteNotStoredOrStoredEmpty)
{
    route("10.9.0.0/24");
    EXPECT_EQ(lookup("1"), SYSDB_RC_NOT_FOUND);
    EXPECT_TRUE(log_has(trc("sysdb_find_data failed for prefix 10.9.0.0 :(Not found)\n")));
    EXPECT_EQ(rec->index_found, 0u);

    seed_empty_route("default", true, "10.8.0.0", 24);
    route("10.8.0.0/24");
    EXPECT_EQ(lookup("1"), 0u);
    EXPECT_EQ(rec->index_found, 0u);
}

TEST_F(IndexLookup, VrfAndFamilyChooseTheStorePath)
{
    host::NativeNextHop a = nh("2001:db8::", 64, "", "2001:db8::1", "v6");
    a.vrf = "red";
    a.ipv4 = false;
    seed(a);
    route("2001:db8::/64", false);
    h.set_vrf("red");
    EXPECT_EQ(lookup("v6"), 0u);
    EXPECT_STREQ(rec->native_address, "2001:db8::1");

    memset(rec, 0, sizeof *rec);
    route("2001:db8::/64", false);
    h.set_vrf("default");
    EXPECT_EQ(lookup("v6"), SYSDB_RC_NOT_FOUND);

    host::NativeNextHop d = nh("10.1.0.0", 16, "Gi2", "", "d");
    seed(d);
    memset(rec, 0, sizeof *rec);
    route("10.1.0.0/16");
    h.set_vrf("DEFAULT");
    EXPECT_EQ(lookup("d"), 0u);
    EXPECT_STREQ(rec->native_interface, "Gi2");
}

TEST_F(IndexLookup, RefusalsBeforeTheStore)
{
    route("10.0.0.0/24");
    h.set_vrf(nullptr);
    EXPECT_EQ(lookup("1"), YFW_RC_INVALID_REQUEST);
    EXPECT_EQ(h.user_msg(), "network-instance/name not provided by the user!");
    EXPECT_TRUE(log_has(trc("network-instance/name not provided by the user!")));

    h.set_vrf("default");
    TreePtr t = build_tree("/next-hops/next-hop/config/next-hop = 10.0.0.1\n", OCNI_NS_OC_NI);
    EXPECT_EQ(ocni_do_index_lookup_on_sysdb(h.ctx, host::tree_find(t.get(), "/next-hops/next-hop"), h.out),
              YFW_RC_INVALID_REQUEST);
    EXPECT_EQ(h.user_msg(), "Index not provided by the user!");

    TreePtr bare = build_tree("/next-hops/next-hop\n", OCNI_NS_OC_NI);
    EXPECT_EQ(ocni_do_index_lookup_on_sysdb(h.ctx, host::tree_find(bare.get(), "/next-hops/next-hop"), h.out),
              YFW_RC_INVALID_REQUEST);
    EXPECT_EQ(h.user_msg(), "Failed to get subtrees!");

    EXPECT_EQ(lookup(std::string(129, 'x')), YFW_RC_INVALID_REQUEST);
    EXPECT_EQ(h.user_msg(), "Index is out of allowed range of 128 characters");
    EXPECT_TRUE(log_has(err("input index error")));

    /* 128 characters go on to the store */
    h.clear_traces();
    EXPECT_EQ(lookup(std::string(128, 'x')), SYSDB_RC_NOT_FOUND);
    EXPECT_FALSE(log_has(err("input index error")));

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

/* Generated indexes, against a route that has next hops stored. */
class GeneratedIndex : public IndexLookup {
protected:
    void SetUp() override
    {
        IndexLookup::SetUp();
        host::NativeNextHop cli = nh("10.0.0.0", 24, "GigabitEthernet0/0/0/0", "", "");
        cli.metric = 8;
        seed(cli);
        seed(nh("10.0.0.0", 24, "", "10.0.0.1", ""));
        seed(nh("10.0.0.0", 24, "Null0", "", ""));
        seed(nh("10.0.0.0", 24, "GigabitEthernet0/0/0/1", "10.0.0.9", ""));
        route("10.0.0.0/24");
    }
    char ifc[64] = "GigabitEthernet0/0/0/5";
    char addr[64] = "10.0.0.5";
    char sub[8] = "";
    void with_interface() { rec->interface = ifc, rec->has_interface = 1; }
    void with_next_hop() { rec->next_hop = addr, rec->has_next_hop = 1; }
};

TEST_F(GeneratedIndex, StoredCliEntriesAreLoaded)
{
    struct Row {
        const char *index;
        const char *ifc, *addr;
        uint32_t metric; /* from the stored tuple */
    };
    const Row rows[] = {
        {"##GigabitEthernet0/0/0/0##", "GigabitEthernet0/0/0/0", "", 8},
        {"##GigabitEthernet0_0_0_0##", "GigabitEthernet0/0/0/0", "", 8},
        {"##10.0.0.1##", "", "10.0.0.1", 0},
        {"##DROP##", "Null0", "", 0},
        {"##GigabitEthernet0/0/0/1##10.0.0.9##", "GigabitEthernet0/0/0/1", "10.0.0.9", 0},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.index);
        memset(rec, 0, sizeof *rec);
        route("10.0.0.0/24");
        h.clear_traces();
        EXPECT_EQ(lookup(r.index), 0u);
        EXPECT_TRUE(log_has(trc("Modification/Delete received for CLI entry")));
        EXPECT_EQ(rec->index_found, 1u);
        EXPECT_STREQ(rec->native_interface, r.ifc);
        EXPECT_STREQ(rec->native_address, r.addr);
        EXPECT_EQ(rec->native_has_interface, r.ifc[0] != '\0' ? 1u : 0u);
        EXPECT_EQ(rec->native_has_address, r.addr[0] != '\0' ? 1u : 0u);
        EXPECT_EQ(rec->route_metric, r.metric);
        EXPECT_EQ(rec->vrf_label, OCNI_VRF_LABEL_UNSET);
    }
}

TEST_F(GeneratedIndex, NewEntryAcceptedWhenItAgreesWithTheRequest)
{
    struct Row {
        const char *index;
        bool ifc, nh;
        const char *sub;
    };
    const Row rows[] = {
        {"##GigabitEthernet0/0/0/5##", true, false, ""},
        {"##GigabitEthernet0/0/0/5##", true, false, "0"},
        {"##GigabitEthernet0/0/0/5.7##", true, false, "7"},
        {"##10.0.0.5##", false, true, ""},
        {"##GigabitEthernet0/0/0/5##10.0.0.5##", true, true, ""},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.index);
        memset(rec, 0, sizeof *rec);
        route("10.0.0.0/24");
        if (r.ifc)
            with_interface();
        if (r.nh)
            with_next_hop();
        snprintf(sub, sizeof sub, "%s", r.sub);
        rec->subinterface = sub[0] != '\0' ? sub : nullptr;
        h.clear_traces();
        EXPECT_EQ(lookup(r.index), SYSDB_RC_NOT_FOUND);
        EXPECT_EQ(rec->index_found, 1u);
        EXPECT_EQ(rec->native_has_interface, 0u);
        EXPECT_TRUE(log_has(trc(std::string("Create of index ") + r.index +
                                " accepted, as it contains ## at start & end& valid nexthop data")));
        EXPECT_TRUE(h.error_paths().empty());
    }
}

TEST_F(GeneratedIndex, DisagreeingOrMalformedIndexFailsTheMapping)
{
    struct Row {
        const char *index;
        bool ifc, nh;
        bool traced; /* the "invalid nexthop data" trace is written */
    };
    const Row rows[] = {
        {"##GigabitEthernet0/0/0/6##", true, false, true},  /* another interface */
        {"##10.0.0.6##", false, true, true},                /* another address */
        {"##GigabitEthernet0/0/0/5##", true, true, true},   /* both given, one token */
        {"##10.0.0.5##", false, false, true},               /* nothing given */
        {"##GigabitEthernet0/0/0/5##not-an-address##", true, true, false},
        {"##GigabitEthernet0/0/0/5##2001:db8::1##", true, true, false}, /* wrong family */
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.index);
        memset(rec, 0, sizeof *rec);
        route("10.0.0.0/24");
        if (r.ifc)
            with_interface();
        if (r.nh)
            with_next_hop();
        h.clear_traces();
        host::req_clear_error_paths(h.rc);
        EXPECT_EQ(lookup(r.index), YFW_RC_MAP_FAILED);
        EXPECT_EQ(rec->index_found, 0u);
        EXPECT_EQ(h.error_paths().size(), 1u);
        EXPECT_EQ(log_has(trc(std::string("Create of index ") + r.index +
                              " rejected, as it contains ## at start & end& invalid nexthop data")),
                  r.traced);
    }
}

TEST_F(GeneratedIndex, RouteNotStoredStillJudgesTheIndex)
{
    route("10.7.0.0/24");
    with_interface();
    EXPECT_EQ(lookup("##GigabitEthernet0/0/0/5##"), SYSDB_RC_NOT_FOUND); /* the find's own code */
    EXPECT_EQ(rec->index_found, 1u);
    EXPECT_TRUE(log_has(trc("Create of index ##GigabitEthernet0/0/0/5## accepted, as it contains ## "
                            "at start & end & valid nexthop data")));

    rec->index_found = 0;
    EXPECT_EQ(lookup("##GigabitEthernet0/0/0/6##"), YFW_RC_MAP_FAILED);
    EXPECT_EQ(rec->index_found, 0u);
    EXPECT_TRUE(log_has(trc("Create of index ##GigabitEthernet0/0/0/6## rejected, as it contains ## at start & end")));
    EXPECT_EQ(h.error_paths().size(), 1u);
}

/* ------------------------------------------------------------------ */
/* Route-wide tag and description                                      */
/* ------------------------------------------------------------------ */

const std::string k_tbl = "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
                          "vrf-prefix/vrf-route/vrf-next-hop-table/";

class FanOut : public StoreFixture {
protected:
    void SetUp() override
    {
        StoreFixture::SetUp();
        seed(nh("10.0.0.0", 24, "GigabitEthernet0/0/0/0", "", "1"));
        seed(nh("10.0.0.0", 24, "", "10.0.0.1", "2"));
        seed(nh("10.0.0.0", 24, "GigabitEthernet0/0/0/1", "10.0.0.9", "3"));
        host::NativeNextHop odd = nh("10.0.0.0", 24, "", "", "4"); /* neither: gets nothing */
        odd.third = "x";
        seed(odd);
        seed(nh("10.0.0.0", 25, "GigabitEthernet0/0/0/7", "", "5")); /* another route */
        route("10.0.0.0/24");
    }
    /* The request's route-wide leaf. */
    zidl_yfw_datatree *leaf(const char *name, const char *value, int op = -1)
    {
        TreeBuilder b(OCNI_NS_OC_LR);
        b.add(std::string("/static[prefix=10.0.0.0/24]/config/") + name, value, op);
        tree.reset(b.release());
        return host::tree_find(tree.get(), (std::string("/static[prefix=10.0.0.0/24]/config/") + name).c_str());
    }
    Lines expected(const std::string &leaf_line) const
    {
        return Lines{
            k_tbl + "vrf-next-hop-interface-name-next-hop-address[interface-name=GigabitEthernet0/0/0/1]"
                    "[next-hop-address=10.0.0.9]/" + leaf_line,
            k_tbl + "vrf-next-hop-interface-name[interface-name=GigabitEthernet0/0/0/0]/" + leaf_line,
            k_tbl + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]/" + leaf_line,
        };
    }
    TreePtr tree;
};

TEST_F(FanOut, TagGoesToEveryStoredNextHop)
{
    rec->tag_mode = 1;
    snprintf(rec->set_tag, sizeof rec->set_tag, "55");
    zidl_yfw_datatree *in = leaf("set-tag", "55");
    EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, in, h.out), 0u);
    Lines got = h.out_lines();
    std::sort(got.begin(), got.end());
    Lines want = expected("tag = 55 (none)");
    std::sort(want.begin(), want.end());
    EXPECT_EQ(got, want);
    EXPECT_EQ(rec->tag_given, 1u);
    EXPECT_EQ(rec->description_given, 0u);
    EXPECT_TRUE(in->flags & YFW_DT_F_OP);
}

TEST_F(FanOut, DeletedTagIsDeletedFromEveryStoredNextHop)
{
    rec->tag_mode = 1;
    snprintf(rec->set_tag, sizeof rec->set_tag, "55");
    zidl_yfw_datatree *in = leaf("set-tag", "55", YFW_DT_OP_DELETE);
    EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, in, h.out), 0u);
    Lines got = h.out_lines();
    std::sort(got.begin(), got.end());
    Lines want = expected("tag = 55 (delete)");
    std::sort(want.begin(), want.end());
    EXPECT_EQ(got, want);
    EXPECT_EQ(in->op, YFW_DT_OP_DELETE);
}

TEST_F(FanOut, DescriptionTakesTheConvertedForm)
{
    rec->tag_mode = 0;
    snprintf(rec->description_in, sizeof rec->description_in, "\"core link\"");
    zidl_yfw_datatree *in = leaf("description", "&quot;core link&quot;");
    EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, in, h.out), 0u);
    Lines got = h.out_lines();
    std::sort(got.begin(), got.end());
    Lines want = expected("description = \"core link\" (none)");
    std::sort(want.begin(), want.end());
    EXPECT_EQ(got, want);
    EXPECT_EQ(rec->description_given, 1u);
    EXPECT_EQ(rec->tag_given, 0u);
}

TEST_F(FanOut, NamedVrfUsesTheVrfBase)
{
    host::NativeNextHop r = nh("10.0.0.0", 24, "Gi0", "", "1");
    r.vrf = "red";
    seed(r);
    h.set_vrf("red");
    rec->tag_mode = 1;
    snprintf(rec->set_tag, sizeof rec->set_tag, "3");
    EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, leaf("set-tag", "3"), h.out), 0u);
    EXPECT_EQ(h.out_lines(), (Lines{"/router-static/vrfs/vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
                                    "vrf-prefix/vrf-route/vrf-next-hop-table/"
                                    "vrf-next-hop-interface-name[interface-name=Gi0]/tag = 3 (none)"}));
}

TEST_F(FanOut, ReadKindsAddNothing)
{
    for (uint32_t kind : {YFW_REQ_READ, YFW_REQ_READ_STATE}) {
        SCOPED_TRACE(kind);
        h.reset(kind);
        h.set_vrf("default");
        rec = new_record();
        route("10.0.0.0/24");
        rec->tag_mode = 1;
        snprintf(rec->set_tag, sizeof rec->set_tag, "55");
        zidl_yfw_datatree *in = leaf("set-tag", "55");
        EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, in, h.out), 0u);
        EXPECT_TRUE(h.out_lines().empty());
        EXPECT_EQ(rec->tag_given, 1u);
        EXPECT_FALSE(in->flags & YFW_DT_F_OP);
    }
}

TEST_F(FanOut, NothingStoredOrNoRoute)
{
    rec->tag_mode = 1;
    route("10.5.0.0/24");
    EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, leaf("set-tag", "1"), h.out),
              SYSDB_RC_NOT_FOUND);
    EXPECT_TRUE(log_has(trc("sysdb_find_data failed for prefix 10.5.0.0 :(Not found)\n")));

    seed_empty_route("default", true, "10.6.0.0", 24);
    route("10.6.0.0/24");
    EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, leaf("set-tag", "1"), h.out), 0u);
    EXPECT_TRUE(h.out_lines().empty());

    route("10.0.0.0.1/24");
    EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, leaf("set-tag", "1"), h.out), OCNI_RC_ALL_ONES);
    rec->prefix = nullptr;
    EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, leaf("set-tag", "1"), h.out),
              YFW_RC_NO_COMMON_DATA);
}

/* ------------------------------------------------------------------ */
/* Stored tag read back                                                */
/* ------------------------------------------------------------------ */

TEST_F(StoreFixture, StoredTagIsReadFromFirstNextHopWithoutThirdKey)
{
    host::NativeNextHop a = nh("10.0.0.0", 24, "Gi0", "", "1"); /* sorts first, has a third part */
    a.third = "t";
    a.tag = 11;
    seed(a);
    host::NativeNextHop b = nh("10.0.0.0", 24, "Gi1", "", "2");
    b.tag = 22;
    seed(b);
    host::NativeNextHop c = nh("10.0.0.0", 24, "Gi2", "", "3");
    c.tag = 33;
    seed(c);
    route("10.0.0.0/24");
    EXPECT_EQ(ocni_do_sysdb_lookup_and_get_tag(h.ctx), 0u);
    EXPECT_STREQ(rec->set_tag, "22");
    EXPECT_TRUE(h.out_lines().empty());
}

TEST_F(StoreFixture, StoredTagZeroLeavesSetTagAlone)
{
    seed(nh("10.0.0.0", 24, "Gi0", "", "1"));
    route("10.0.0.0/24");
    snprintf(rec->set_tag, sizeof rec->set_tag, "keep");
    EXPECT_EQ(ocni_do_sysdb_lookup_and_get_tag(h.ctx), 0u);
    EXPECT_STREQ(rec->set_tag, "keep");

    route("10.3.0.0/24");
    EXPECT_EQ(ocni_do_sysdb_lookup_and_get_tag(h.ctx), SYSDB_RC_NOT_FOUND);
    rec->prefix = nullptr;
    EXPECT_EQ(ocni_do_sysdb_lookup_and_get_tag(h.ctx), YFW_RC_NO_COMMON_DATA);
    h.rc->common_data_ptr = nullptr;
    EXPECT_EQ(ocni_do_sysdb_lookup_and_get_tag(h.ctx), YFW_RC_NO_COMMON_DATA);
    h.rc->common_data_ptr = rec;
}

} // namespace
