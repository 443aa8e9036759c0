/*
 * The plug-in's reads of the configuration store, through the host: VRF
 * existence, the next-hop index lookup, the route-wide tag and description
 * fan-out and the stored tag. The store is seeded with the host's own
 * next-hop writer, so the lookups are also held to the store layout.
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

host::NativeNextHop nh(const std::string &prefix, int len, const std::string &ifc, const std::string &addr,
                       const std::string &index, int tag = 0, const std::string &vrf = "default")
{
    host::NativeNextHop n;
    n.vrf = vrf;
    n.prefix = prefix, n.prefix_length = len, n.interface = ifc, n.address = addr, n.index = index, n.tag = tag;
    return n;
}

/* Empty store, an edit request of the default VRF, a route record. */
class StoreFixture : public HostFixture {
protected:
    void SetUp() override
    {
        host::store_reset();
        fresh(YFW_REQ_EDIT, "default");
    }
    void fresh(uint32_t kind, const char *vrf)
    {
        h.reset(kind);
        h.set_vrf(vrf);
        h.logging(true, true);
        rec = static_cast<ocni_route_common_data *>(wos_named_calloc_(sizeof(ocni_route_common_data), 1, OCNI_TAG_MAP));
        ASSERT_NE(rec, nullptr);
        h.rc->common_data_ptr = rec;
    }
    /* Sets the route of the record (the text must outlive the call). */
    void route(const char *prefix, bool ipv4 = true) { rec->prefix = const_cast<char *>(prefix), rec->is_ipv4 = ipv4; }
    static void seed(const host::NativeNextHop &n) { ASSERT_EQ(host::store_write_next_hop(n), 0u) << n.index; }
    /* A route directory that exists with no next hop in it. */
    static void seed_empty_route(const std::string &prefix, int len)
    {
        ASSERT_EQ(host::store_engine()->put(std::string(host::STATIC_ROOT) +
                                                host::route_next_hop_dir("default", true, prefix, len), ""),
                  0u);
    }
    bool log_has(const std::string &text) const
    {
        const Lines l = h.log_lines();
        return std::find(l.begin(), l.end(), text) != l.end();
    }
    std::string trc(const std::string &msg) const { return "TRC: YFW: ctx=" + h.ctx_text() + "," + msg; }

    /* The stored next hop the record holds, as text. */
    std::string loaded() const
    {
        const ocni_route_common_data &r = *rec;
        char b[1024];
        snprintf(b, sizeof b, "found=%u if=%u:%s addr=%u:%s third=%u:%s bfd=%u/%u/%u metric=%u tag=%u:%s perm=%u label=%u "
                 "tunnel=%u obj=%s desc=%s load=%u",
                 r.index_found, r.native_has_interface, r.native_interface, r.native_has_address, r.native_address,
                 r.native_has_third_key, r.native_third_key, r.bfd_fast_detect, r.minimum_interval, r.detect_multiplier,
                 r.route_metric, r.tag, r.set_tag, r.permanent, r.vrf_label, r.tunnel_id, r.object_name, r.description,
                 r.load_metric);
        return b;
    }

    ocni_route_common_data *rec = nullptr;
};

/* ------------------------------------------------------------------ */
/* VRF existence                                                       */
/* ------------------------------------------------------------------ */

TEST_F(StoreFixture, VrfExistsForDefaultTheRequestItselfOrTheStore)
{
    host::store_add_vrf("blue");
    host::store_add_empty_vrf("green");
    TreePtr in = build_tree("/network-instances/network-instance[name=red]/config/name = red\n"
                            "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC]"
                            "[name=DEFAULT]/config/name = DEFAULT\n",
                            OCNI_NS_OC_NI);
    h.enter(host::tree_find(in.get(), "/network-instances/network-instance[name=red]/protocols/protocol"
                                      "[identifier=STATIC][name=DEFAULT]"));
    struct Row {
        const char *vrf;
        uint8_t start, want;
        bool store; /* the store is asked (connections bound) */
    } rows[] = {
        {"default", 0, 1, false}, {nullptr, 0, 1, false}, {"red", 0, 1, false}, /* created by this request */
        {"Default", 1, 0, true},  {"blue", 0, 1, true},   {"absent", 1, 0, true},
        {"green", 0, 0, true},    {"green", 1, 1, true}, /* listed with a count of 0: the caller's value stands */
    };
    ocni_ipstatic_init_done = 0;
    for (const Row &r : rows) {
        SCOPED_TRACE(r.vrf ? r.vrf : "(none)");
        const size_t binds = host::store_bind_count();
        h.set_vrf(r.vrf);
        uint8_t flag = r.start;
        EXPECT_EQ(ocni_yfw_ipstatic_vrf_exists(h.ctx, &flag), 0u);
        EXPECT_EQ(flag, r.want);
        if (!r.store) {
            EXPECT_EQ(host::store_bind_count(), binds);
            EXPECT_EQ(ocni_ipstatic_init_done, 0u);
        }
    }
    /* the failed request lookup is traced with the text of success */
    EXPECT_TRUE(log_has(trc(cerr_strerror(0))));
}

TEST_F(StoreFixture, VrfExistsReturnsAFailedBindAndBindsAgainOnceOnTheNextCall)
{
    ocni_ipstatic_init_done = 0;
    host::store_add_vrf("blue");
    h.set_vrf("blue");
    host::store_fail_binds(SYSDB_RC_FAILED, 1);
    uint8_t flag = 7;
    EXPECT_EQ(ocni_yfw_ipstatic_vrf_exists(h.ctx, &flag), SYSDB_RC_FAILED);
    EXPECT_EQ(flag, 7);
    EXPECT_EQ(ocni_ipstatic_init_done, 0u);
    const size_t binds = host::store_bind_count();
    for (int i = 0; i < 2; i++) {
        flag = 0;
        EXPECT_EQ(ocni_yfw_ipstatic_vrf_exists(h.ctx, &flag), 0u);
        EXPECT_EQ(flag, 1);
        EXPECT_EQ(host::store_bind_count(), binds + 2); /* both connections, once */
        EXPECT_EQ(ocni_ipstatic_init_done, 1u);
    }
}

/* ------------------------------------------------------------------ */
/* Next-hop index lookup                                               */
/* ------------------------------------------------------------------ */

class IndexLookup : public StoreFixture {
protected:
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
};

TEST_F(IndexLookup, OrdinaryIndexLoadsTheStoredEntryOfItsRoute)
{
    host::NativeNextHop a = nh("10.0.0.0", 24, "GigabitEthernet0/0/0/0", "10.0.0.1", "1", 44);
    a.bfd_fast_detect = 1, a.minimum_interval = 150, a.detect_multiplier = 3, a.metric = 5, a.permanent = 1;
    a.vrf_label = 16, a.tunnel_id = 4, a.object_name = "obj", a.description = "stored", a.load_metric = 2;
    a.third = "x3";
    seed(a);
    seed(nh("10.0.0.0", 24, "", "10.0.0.2", "two"));
    seed(nh("10.0.0.0", 25, "", "10.0.0.3", "1")); /* another route, same index */
    route("10.0.0.0/24");
    snprintf(rec->description_in, sizeof rec->description_in, "from-request"); /* the stored one wins */

    EXPECT_EQ(lookup("1"), 0u);
    EXPECT_EQ(loaded(), "found=1 if=1:GigabitEthernet0/0/0/0 addr=1:10.0.0.1 third=1:x3 bfd=1/150/3 metric=5 tag=44:44 "
                        "perm=1 label=16 tunnel=4 obj=obj desc=stored load=2");
    EXPECT_EQ(h.log_lines().front(), trc("Start"));
    EXPECT_EQ(h.log_lines().back(), trc("End"));
    EXPECT_TRUE(h.out_lines().empty());

    clear();
    EXPECT_EQ(lookup("two"), 0u);
    EXPECT_EQ(loaded(), "found=1 if=0: addr=1:10.0.0.2 third=0: bfd=0/0/0 metric=0 tag=44:44 perm=0 label=" + /* route's tag */
                            std::to_string(OCNI_VRF_LABEL_UNSET) + " tunnel=0 obj= desc= load=0");
}

TEST_F(IndexLookup, RequestValuesOverrideStoredOnesAndDeletedOnesAreLeftAlone)
{
    host::NativeNextHop a = nh("10.0.0.0", 24, "Gi0", "", "1", 44);
    a.metric = 5;
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

    clear();
    rec->metric_deleted = 1, rec->route_metric = 77;
    rec->tag_given = 1, rec->tag = 88;
    rec->description_given = 1;
    snprintf(rec->description, sizeof rec->description, "mine");
    EXPECT_EQ(lookup("1"), 0u);
    EXPECT_EQ(rec->route_metric, 77u);
    EXPECT_EQ(rec->tag, 88u);
    EXPECT_STREQ(rec->description, "mine");
    EXPECT_STREQ(rec->set_tag, "");
}

TEST_F(IndexLookup, MissingIndexOrRouteIsNotFound)
{
    seed(nh("10.0.0.0", 24, "Gi0", "", "1"));
    seed(nh("10.0.0.0", 24, "Gi1", "", "2", 31));
    seed(nh("10.1.0.0", 16, "Gi2", "", "d"));
    seed_empty_route("10.8.0.0", 24);

    route("10.0.0.0/24");
    EXPECT_EQ(lookup("nine"), SYSDB_RC_NOT_FOUND);
    EXPECT_EQ(rec->index_found + rec->native_has_interface, 0u);
    EXPECT_STREQ(rec->set_tag, "31"); /* the stored tag is collected on the way */

    clear("10.9.0.0/24");
    EXPECT_EQ(lookup("1"), SYSDB_RC_NOT_FOUND);
    EXPECT_TRUE(log_has(trc("sysdb_find_data failed for prefix 10.9.0.0 :(Not found)\n")));
    clear("10.8.0.0/24");
    EXPECT_EQ(lookup("1"), 0u);
    EXPECT_EQ(rec->index_found, 0u);

    clear("10.1.0.0/16");
    h.set_vrf("DEFAULT"); /* the default VRF in any case */
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
    const struct {
        const char *tree, *msg;
    } bad[] = {{"/next-hops/next-hop/config/next-hop = 10.0.0.1", "Index not provided by the user!"},
               {"/next-hops/next-hop", "Failed to get subtrees!"}};
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
    seed(nh("10.0.0.0", 24, "", "10.0.0.1", ""));
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

/* ------------------------------------------------------------------ */
/* Route-wide tag and description, stored tag                          */
/* ------------------------------------------------------------------ */

TEST_F(StoreFixture, RouteWideTagAndDescriptionGoToEveryStoredNextHopOfAnEdit)
{
    seed(nh("10.0.0.0", 24, "GigabitEthernet0/0/0/0", "", "1"));
    seed(nh("10.0.0.0", 24, "", "10.0.0.1", "2"));
    seed(nh("10.0.0.0", 24, "GigabitEthernet0/0/0/1", "10.0.0.9", "3"));
    host::NativeNextHop odd = nh("10.0.0.0", 24, "", "", "4"); /* neither: gets nothing */
    odd.third = "x";
    seed(odd);
    seed(nh("10.0.0.0", 25, "GigabitEthernet0/0/0/7", "", "5")); /* another route */
    seed_empty_route("10.6.0.0", 24);
    const std::string tbl = "/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table/";
    const std::string def = "/router-static/default-vrf" + tbl;
    const auto all = [&](const std::string &leaf) {
        return Lines{def + "vrf-next-hop-interface-name-next-hop-address[interface-name=GigabitEthernet0/0/0/1]"
                           "[next-hop-address=10.0.0.9]/" + leaf,
                     def + "vrf-next-hop-interface-name[interface-name=GigabitEthernet0/0/0/0]/" + leaf,
                     def + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]/" + leaf};
    };
    struct Row {
        const char *what;
        uint32_t kind;
        const char *prefix;
        bool tag; /* set-tag, or else description */
        Lines want;
        cerrno rc = 0;
    } rows[] = {
        {"tag", YFW_REQ_EDIT, "10.0.0.0/24", true, all("tag = 55 (none)")},
        {"description, converted", YFW_REQ_EDIT, "10.0.0.0/24", false, all("description = \"core link\" (none)")},
        {"read", YFW_REQ_READ, "10.0.0.0/24", true, {}},
        {"state read", YFW_REQ_READ_STATE, "10.0.0.0/24", true, {}},
        {"route stored empty", YFW_REQ_EDIT, "10.6.0.0/24", true, {}},
        {"route not stored", YFW_REQ_EDIT, "10.5.0.0/24", true, {}, SYSDB_RC_NOT_FOUND},
        {"prefix unreadable", YFW_REQ_EDIT, "10.0.0.0.1/24", true, {}, OCNI_RC_ALL_ONES},
        {"no prefix", YFW_REQ_EDIT, nullptr, true, {}, YFW_RC_NO_COMMON_DATA},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        fresh(r.kind, "default");
        route(r.prefix);
        rec->tag_mode = r.tag;
        snprintf(rec->set_tag, sizeof rec->set_tag, "%s", r.tag ? "55" : "");
        snprintf(rec->description_in, sizeof rec->description_in, "%s", r.tag ? "" : "\"core link\"");
        const std::string path = std::string("/static[prefix=10.0.0.0/24]/config/") + (r.tag ? "set-tag" : "description");
        TreePtr t = build_tree(path + " = " + (r.tag ? "55" : "&quot;core link&quot;"), OCNI_NS_OC_LR);
        zidl_yfw_datatree *in = host::tree_find(t.get(), path.c_str());
        EXPECT_EQ(ocni_do_prefix_lookup_on_sysdb_and_set_tag(h.ctx, in, h.out), r.rc);
        Lines got = h.out_lines(), want = r.want;
        std::sort(got.begin(), got.end());
        std::sort(want.begin(), want.end());
        EXPECT_EQ(got, want);
        if (r.rc == 0u) {
            EXPECT_EQ(rec->tag_given, r.tag ? 1u : 0u);
            EXPECT_EQ(rec->description_given, r.tag ? 0u : 1u);
        }
        if (!want.empty() || r.kind != YFW_REQ_EDIT) {
            EXPECT_EQ(bool(in->flags & YFW_DT_F_OP), r.kind == YFW_REQ_EDIT); /* the request leaf is marked */
        }
        if (r.rc == SYSDB_RC_NOT_FOUND) {
            EXPECT_TRUE(log_has(trc("sysdb_find_data failed for prefix 10.5.0.0 :(Not found)\n")));
        }
    }
}

TEST_F(StoreFixture, StoredTagIsReadFromTheFirstNextHopWithoutThirdKeyAndZeroLeavesItAlone)
{
    host::NativeNextHop a = nh("10.0.0.0", 24, "Gi0", "", "1", 11); /* sorts first, has a third part */
    a.third = "t";
    seed(a);
    seed(nh("10.0.0.0", 24, "Gi1", "", "2", 22));
    seed(nh("10.0.0.0", 24, "Gi2", "", "3", 33));
    seed(nh("10.1.0.0", 24, "Gi0", "", "1"));
    route("10.0.0.0/24");
    EXPECT_EQ(ocni_do_sysdb_lookup_and_get_tag(h.ctx), 0u);
    EXPECT_STREQ(rec->set_tag, "22");
    EXPECT_TRUE(h.out_lines().empty());

    route("10.1.0.0/24");
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
