/*
 * Where the native static-route configuration lives in the store, and the
 * one routine that writes a native next hop there (see host/README.md,
 * "Store layout"). The plug-in's lookups read exactly these paths.
 */
#ifndef OCNI_HOST_STORE_LAYOUT_H
#define OCNI_HOST_STORE_LAYOUT_H

#include <string>
#include <vector>

#include "yfw_types.h"

namespace ocni::host {

constexpr char STATIC_ROOT[] = "/cfg/gl/static/router/";
constexpr char RSI_ROOT[] = "/cfg/gl/rsi/";
/* Route component below the prefix length; it matches the lookups' ".*,.*". */
constexpr char ROUTE_COMPONENT[] = "0,0";
/* An empty part of a next-hop key. */
constexpr char EMPTY_KEY_PART[] = "________";
/* vrf_label meaning "not set". */
constexpr int VRF_LABEL_UNSET = 0x100001;

/* One native next hop of one route, with the attributes its tuple holds. */
struct NativeNextHop {
    std::string vrf = "default"; /* "default" (any case) or a VRF name */
    bool ipv4 = true;
    std::string prefix;          /* address text of the route, "10.0.0.0" */
    int prefix_length = 0;
    std::string interface;       /* "GigabitEthernet0/0/0/0", "" for none */
    std::string address;         /* next-hop address text, "" for none */
    std::string third;           /* third and fourth key parts, "" for none */
    std::string fourth;
    /* tuple fields, in tuple order */
    int bfd_fast_detect = 0;
    int minimum_interval = 0;
    int detect_multiplier = 0;
    int metric = 0;
    int tag = 0;
    int permanent = 0;
    int vrf_label = VRF_LABEL_UNSET;
    int tunnel_id = 0;
    std::string object_name;
    std::string description;
    int load_metric = 0;
    std::string index;           /* OpenConfig index it was created under */
};

/* "0x%x" of the length: 24 -> "0x18", 26 -> "0x1a", 8 -> "0x8". */
std::string prefix_length_key(int length);
/* Hexadecimal store text of an address of the family; "" when it is not one. */
std::string hex_address(const std::string &text, bool ipv4);
/* "ord_d/default" or "ord_v/NAME". */
std::string vrf_component(const std::string &vrf);
/*
 * Route directory, relative to STATIC_ROOT:
 * "<vrf>/address/ipv4/unicast/ord_c/default/route/<hex>/<len key>/0,0/nexthop/".
 * "" when the prefix is not an address of the family.
 */
std::string route_next_hop_dir(const std::string &vrf, bool ipv4, const std::string &prefix, int length);
/*
 * "interface,address,third,fourth" with "/" as "_" and "________" for empty
 * parts; "" on a bad address or a part that would not survive the key (a
 * comma anywhere, a "/" in the third or fourth part).
 */
std::string next_hop_key(const NativeNextHop &nh);
/* Packed tuple "%d%d%d%d%d%d%d%d%s%s%d%s" of the next hop. */
std::string next_hop_tuple(const NativeNextHop &nh);

class Txn;

/*
 * Writers and readers in a transaction the caller holds; the forms
 * without one run in a transaction of their own on the engine in use
 * (set-up and tools).
 */
/* Writes (or rewrites) one next hop; SYSDB_RC_INVALID_ARG on a bad prefix or address. */
cerrno store_write_next_hop(Txn &t, const NativeNextHop &nh);
cerrno store_write_next_hop(const NativeNextHop &nh);

/* VRF store: "vrf/NAME/" under RSI_ROOT, holding the item "name". */
cerrno store_add_vrf(Txn &t, const std::string &name);
cerrno store_add_vrf(const std::string &name);
cerrno store_remove_vrf(Txn &t, const std::string &name);
bool store_has_vrf(Txn &t, const std::string &name);
/* Names of the VRFs of the VRF store, in store order. */
cerrno store_list_vrfs(Txn &t, std::vector<std::string> &out);

} // namespace ocni::host

#endif
