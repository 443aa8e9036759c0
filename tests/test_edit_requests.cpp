/*
 * Edit-direction callbacks called one by one through the host harness:
 * what they request in a read or state read, their argument checks, and
 * the native rows the condition callbacks select.
 */
#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "host_fixture.h"
#include "tree_builder.h"
#include "walker_fixture.h"

#include "ymap_ocni_openconfig_local_routing_man.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

/* State reads */


class StateRead : public HostFixture {
protected:
    /* Maps the static entry (and its route record) as the framework does in a state read. */
    void open_static(const std::string &prefix, const std::string &leaf_lines = "")
    {
        h.reset(YFW_REQ_READ_STATE);
        h.set_vrf("default");
        const std::string st = oc_static("default", prefix);
        in_ = build_tree(st + "/config/prefix = " + prefix + "\n" + leaf_lines, OCNI_NS_OC_NI);
        const zidl_yfw_datatree *entry = tree_find(in_.get(), st.c_str());
        ASSERT_NE(entry, nullptr);
        ASSERT_EQ(h.call(ymap_ox_ocni_openconfiglocalrouting_man_list_lvla_localroutes_staticroutes_static, entry),
                  0u);
        h.reset_output();
    }
    const zidl_yfw_datatree *node(const std::string &path)
    {
        const zidl_yfw_datatree *n = tree_find(in_.get(), path.c_str());
        EXPECT_NE(n, nullptr) << path;
        return n;
    }
    TreePtr in_;
};

/* Names below a node in the order they were added: "name(child child)". */
std::string shape(const zidl_yfw_datatree *n)
{
    std::string s = n->name;
    for (uint32_t i = 0; i < n->n_children; i++)
        s += (i == 0 ? "(" : " ") + shape(&n->children[i]) + (i + 1 == n->n_children ? ")" : "");
    return s;
}

/*
 * Each call asks for a new operational next-hop entry of the route's family
 * (list flag 1) with its leaves inside it: a second call never adds leaves
 * to the first call's entry.
 */
TEST_F(StateRead, NextHopIndexRequestsANewOperationalNextHopOfItsFamily)
{
    const std::string entry = "next-hop(index state(index next-hop metric) interface-ref(state(interface subinterface)))";
    for (const char *prefix : {"10.1.0.0/16", "2001:db8::/64"}) {
        const std::string nh = oc_static("default", prefix) + "/next-hops/next-hop[index=1]";
        open_static(prefix, nh + "/config/index = 1");
        for (int call = 0; call < 2; call++)
            EXPECT_EQ(h.call(ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_nexthop_index, node(nh + "/index")),
                      0u);
        const bool v4 = std::string(prefix).find(':') == std::string::npos;
        EXPECT_EQ(h.out_node(v4 ? "/ocni/vrfipv6" : "/ocni/vrfipv4"), nullptr) << prefix;
        const zidl_yfw_datatree *nhs = h.out_node(std::string(v4 ? "/ocni/vrfipv4" : "/ocni/vrfipv6") +
            "/network-instances/network-instance/protocols/protocol/static-routes/static-route/next-hops");
        ASSERT_NE(nhs, nullptr) << prefix;
        EXPECT_EQ(shape(nhs), "next-hops(" + entry + " " + entry + ")") << prefix;
    }
}

/* Condition callbacks */

/* The six rows of an index or metric table: IPv4 then IPv6; interface, combined, address list. */
std::vector<xpath_list_type_t> six_rows(const char *leaf)
{
    std::vector<xpath_list_type_t> t(7);
    const char *lists[] = {"vrf-next-hop-interface-name", "vrf-next-hop-interface-name-next-hop-address",
                           "vrf-next-hop-next-hop-address"};
    for (int i = 0; i < 6; i++) {
        snprintf(t[i].path, sizeof t[i].path,
                 "/router-static/vrfs/vrf/address-family/%s/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/"
                 "vrf-next-hop-table/%s/%s",
                 i < 3 ? "vrfipv4" : "vrfipv6", lists[i % 3], leaf);
        snprintf(t[i].ns, sizeof t[i].ns, "%s", OCNI_NS_NATIVE);
    }
    snprintf(t[6].path, sizeof t[6].path, "NULL");
    return t;
}

std::vector<int> selected(const std::vector<xpath_list_type_t> &t)
{
    std::vector<int> s;
    for (size_t i = 0; i < t.size(); i++)
        if (t[i].selected)
            s.push_back((int)i);
    return s;
}

/* What the record says about the next hop being mapped. */
struct NhFacts {
    bool v4 = true;
    const char *next_hop = nullptr; /* an address or "DROP" */
    const char *interface = nullptr;
    const char *stored_addr = nullptr;
    const char *stored_if = nullptr;
    bool touched = false;
};

class Conditions : public HostFixture {
protected:
    ocni_route_common_data *record(uint32_t kind, const NhFacts &f)
    {
        h.reset(kind);
        h.set_vrf("red");
        auto *rec = static_cast<ocni_route_common_data *>(calloc(1, sizeof(ocni_route_common_data)));
        h.rc->common_data_ptr = rec;
        rec->is_ipv4 = f.v4;
        rec->prefix = const_cast<char *>(f.v4 ? "10.1.0.0/16" : "2001:db8::/64");
        rec->index = const_cast<char *>("1");
        rec->has_next_hop = f.next_hop != nullptr;
        rec->is_drop = f.next_hop != nullptr && strcmp(f.next_hop, "DROP") == 0;
        rec->next_hop = const_cast<char *>(f.next_hop);
        rec->has_interface = f.interface != nullptr;
        rec->interface = const_cast<char *>(f.interface);
        if (f.stored_addr != nullptr) {
            rec->native_has_address = 1;
            snprintf(rec->native_address, sizeof rec->native_address, "%s", f.stored_addr);
        }
        if (f.stored_if != nullptr) {
            rec->native_has_interface = 1;
            snprintf(rec->native_interface, sizeof rec->native_interface, "%s", f.stored_if);
        }
        rec->next_hop_touched = f.touched;
        return rec;
    }
};

TEST_F(Conditions, IndexAndMetricRowsFollowTheRequestOrTheStoredEntry)
{
    struct Case {
        const char *name;
        uint32_t kind;
        NhFacts f;
        uint32_t vrf_path_flag;
        bool index;
        std::vector<int> rows;
        int nrows = 6;              /* rows of the framework's table */
        const char *leaf = "index"; /* the condition of this leaf */
        bool prefix = true;
    } cases[] = {
        {"EditAddressAndInterface", YFW_REQ_EDIT, {true, "10.0.0.2", "Gi1"}, 0, true, {1}},
        {"EditAddress", YFW_REQ_EDIT, {true, "10.0.0.2", nullptr}, 0, true, {2}},
        {"EditDrop", YFW_REQ_EDIT, {true, "DROP", nullptr}, 0, true, {0}},
        {"EditInterfaceV6", YFW_REQ_EDIT, {false, nullptr, "Gi1"}, 0, true, {3}},
        {"EditNothingGiven", YFW_REQ_EDIT, {true}, 0, true, {}},
        {"EditWrittenByTheList", YFW_REQ_EDIT, {true, "10.0.0.2", nullptr, nullptr, nullptr, true}, 0, true, {}},
        {"ReadStoredBoth", YFW_REQ_READ, {true, nullptr, nullptr, "10.0.0.1", "Gi0"}, 0, true, {1}},
        {"ReadWholeVrfV4", YFW_REQ_READ, {true}, 1, false, {0, 1, 2}},
        {"ReadWholeVrfV6", YFW_REQ_READ_STATE, {false}, 1, false, {3, 4, 5}},
        {"ReadStoredAddressV6", YFW_REQ_READ, {false, nullptr, nullptr, "2001:db8::1", nullptr}, 0, true, {5}},
        {"ReadWholeVrfV6InATableOfThreeRows", YFW_REQ_READ_STATE, {false}, 1, false, {}, 3},
        {"ReadWholeVrfV6InATableOfSevenRows", YFW_REQ_READ_STATE, {false}, 1, false, {3, 4, 5}, 7},
        {"ReadV6WithoutPrefixEveryRow", YFW_REQ_READ, {false}, 0, false, {0, 1, 2, 3, 4, 5, 6}, 7, "index", false},
        {"MetricReadWholeVrfV4", YFW_REQ_READ, {true}, 1, false, {0, 1, 2}, 6, "metric"},
    };
    for (const Case &c : cases) {
        ocni_route_common_data *rec = record(c.kind, c.f);
        if (!c.index)
            rec->index = nullptr;
        if (!c.prefix)
            rec->prefix = nullptr;
        h.rc->vrf_path_flag = c.vrf_path_flag;
        std::vector<xpath_list_type_t> t = six_rows(c.leaf);
        const auto cond = strcmp(c.leaf, "index") == 0 ? ocni_index_cond_manual_callback : ocni_metric_cond_manual_callback;
        EXPECT_EQ(cond(h.ctx, c.nrows, t.data()), 0u) << c.name;
        EXPECT_EQ(selected(t), c.rows) << c.name;
    }
}

} // namespace
