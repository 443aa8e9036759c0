/*
 * The native static routes as the store keeps them: one record per route
 * under ROUTE_ROOT, keyed so that byte order is (VRF, family, numeric
 * address, length), the record codec, and the format marker that tells a
 * store of this layout from any other (see host/README.md, "Store layout").
 */
#ifndef OCNI_HOST_ROUTE_STORE_H
#define OCNI_HOST_ROUTE_STORE_H

#include <cstdint>
#include <map>
#include <string>

#include "yfw_types.h"

namespace ocni::host {

class Txn;
class StoreEngine;

/* The three native next-hop tables, in schema order. */
enum class NhTable : uint8_t { Interface = 0, InterfaceAddress = 1, Address = 2 };
const char *nh_table_list(NhTable t); /* "vrf-next-hop-interface-name", ... */

/* Leaves of a native next-hop entry other than its keys, in schema order. */
constexpr int NH_LEAF_COUNT = 12;
extern const char *const NH_LEAF_NAMES[NH_LEAF_COUNT];

/* "default" names the default VRF (the plug-in compares it without case). */
bool is_default_vrf(const std::string &vrf);

struct RouteKey {
    std::string vrf; /* "default" for /router-static/default-vrf */
    bool ipv4 = true;
    std::string prefix; /* address text as the native tree holds it */
    std::string length;
    bool operator<(const RouteKey &o) const; /* store order; keys that are no route all compare equal */
};

struct NhKey {
    NhTable table = NhTable::Address;
    std::string interface; /* empty in the interface table */
    std::string address;   /* empty in the interface table */
    bool operator<(const NhKey &o) const;
};

/* Leaves of a next hop other than its keys ("index", "metric", "tag", ...). */
using NhLeaves = std::map<std::string, std::string>;

struct Route {
    std::map<NhKey, NhLeaves> next_hops;
};

/* The OpenConfig index a stored next hop reads back with: its own, or the generated one. */
std::string nh_openconfig_index(const NhKey &k, const NhLeaves &leaves);

/* CRC-32C (Castagnoli, reflected, as iSCSI uses it) of `n` bytes: the records' check value. */
uint32_t crc32c(const unsigned char *p, size_t n);

/* Format of the records and keys below; a store of another format is refused. */
constexpr uint16_t STORE_FORMAT = 2;
constexpr char META_FORMAT_KEY[] = "/host/meta/format";
constexpr char ROUTE_ROOT[] = "/host/route/";

/*
 * Store key of a route: ROUTE_ROOT, the VRF name, a 0 byte, '4' or '6',
 * the address's 4 or 16 bytes, the length's byte. Two texts of one
 * address give one key. "" when the prefix is not an address of its
 * family or the length is out of range.
 */
std::string route_record_key(const RouteKey &k);
/* First key of a VRF's routes, and of one family of them. */
std::string route_vrf_start(const std::string &vrf);
std::string route_family_start(const std::string &vrf, bool ipv4);
/* Key of the first route of a prefix (any length), from address bytes; "" on a bad address. */
std::string route_address_start(const std::string &vrf, bool ipv4, const std::string &address);

/*
 * Record of a route: u8 format, u32 CRC-32C of what follows, the prefix
 * and length texts, a varint count of next hops, per next hop u8 table,
 * interface, address, a varint count of leaves and per leaf its u8 id
 * (NH_LEAF_NAMES) and text; every text a varint length and its bytes.
 */
std::string encode_route(const RouteKey &k, const Route &r);
/* Decodes a record read under `key`; false with `why` when it fails any check. */
bool decode_route(const std::string &key, const std::string &value, RouteKey &k, Route &r, std::string &why);

/*
 * Writes a route's record under `key` (null: removes it) and rewrites its
 * directory in the plug-in's layout (host/store_layout.h) to match.
 */
cerrno write_route(Txn &t, const std::string &key, const RouteKey &k, const Route *r);

/*
 * Checks the store's format marker; an empty store that can be written
 * gets one. False with `why` (a sentence) for a store of the previous
 * format, a newer one, or anything else.
 */
bool store_check_format(StoreEngine &e, std::string &why);

/*
 * Rewrites a store of the previous format (text keys, no marker) in this
 * one, in one transaction; `routes` receives the number of routes moved.
 */
bool store_upgrade(StoreEngine &e, size_t &routes, std::string &why);

} // namespace ocni::host

#endif
