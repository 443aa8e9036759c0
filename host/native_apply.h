/*
 * The native static-route configuration the host keeps for the router,
 * and the application of a native tree (the output of an edit, or a
 * native document) to it.
 *
 * NativeConfig holds the configuration in memory, sorted (VRF, family,
 * prefix, next hop), and persists it through a StoreBackend: every change
 * of one edit goes to the backend in a single transaction, both as native
 * records and in the configuration-store layout the plug-in's lookups read.
 * A failed edit or a failed commit leaves memory and store as they were.
 */
#ifndef OCNI_HOST_NATIVE_APPLY_H
#define OCNI_HOST_NATIVE_APPLY_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "yfw_types.h"

namespace ocni::host {

/* The three native next-hop tables, in schema order. */
enum class NhTable : uint8_t { Interface = 0, InterfaceAddress = 1, Address = 2 };
const char *nh_table_list(NhTable t); /* "vrf-next-hop-interface-name", ... */

/* "default" names the default VRF (the plug-in compares it without case). */
bool is_default_vrf(const std::string &vrf);

struct RouteKey {
    std::string vrf; /* "default" for /router-static/default-vrf */
    bool ipv4 = true;
    std::string prefix; /* address text as the native tree holds it */
    std::string length;
    bool operator<(const RouteKey &o) const;
    bool operator==(const RouteKey &o) const;
};

struct NhKey {
    NhTable table = NhTable::Address;
    std::string interface; /* empty in the address table */
    std::string address;   /* empty in the interface table */
    bool operator<(const NhKey &o) const;
    bool operator==(const NhKey &o) const;
};

/* Leaves of a next hop other than its keys ("index", "metric", "tag", ...). */
using NhLeaves = std::map<std::string, std::string>;

struct Route {
    std::map<NhKey, NhLeaves> next_hops;
};

/* The OpenConfig index a stored next hop reads back with: its own, or the generated one. */
std::string nh_openconfig_index(const NhKey &k, const NhLeaves &leaves);

/*
 * Where the configuration persists. Implementations write one transaction
 * per commit; a commit that fails leaves the store as before.
 */
class StoreBackend {
public:
    virtual ~StoreBackend() = default;
    /* Every route and VRF kept; false with `err` when the store cannot be read. */
    virtual bool load(std::map<RouteKey, Route> &routes, std::set<std::string> &vrfs, std::string &err) = 0;
    /*
     * One transaction: for each route changed (in key order), its new
     * content (null: removed); VRFs added and removed. `all` is the whole configuration
     * after the change.
     */
    virtual bool commit(const std::vector<std::pair<const RouteKey *, const Route *>> &changed,
                        const std::map<RouteKey, Route> &all, const std::set<std::string> &vrfs_added,
                        const std::set<std::string> &vrfs_removed, std::string &err) = 0;
};

/*
 * The backend over the host's store engine in use (store_engine()): native
 * records under "/host/native/", next hops in the configuration-store
 * layout the plug-in reads, VRFs in the VRF store.
 */
std::unique_ptr<StoreBackend> make_engine_backend();

class NativeConfig {
public:
    /* Without a backend the configuration lives in memory only. */
    explicit NativeConfig(StoreBackend *backend = nullptr);

    /* Reads the backend; false with `err` when it cannot. */
    bool open(std::string &err);

    const std::map<RouteKey, Route> &routes() const { return routes_; }
    const std::set<std::string> &vrfs() const { return vrfs_; }
    bool vrf_known(const std::string &vrf) const;
    /* VRFs holding at least one route ("default" included when it does). */
    std::vector<std::string> vrfs_with_routes() const;
    const Route *find_route(const RouteKey &k) const;

    /*
     * Applies a native tree (children of `root`: "router-static") as one
     * edit: list entries merge by key, nodes carrying a delete or remove
     * operation (their own or inherited) remove what they name, leaves
     * merge into their entry. Appends one line per change to `changes`.
     * Returns false with `err` on a tree that does not fit the native
     * model; the configuration is then unchanged.
     */
    bool apply(const zidl_yfw_datatree *root, std::vector<std::string> &changes, std::string &err);
    /* VRF registry. add_vrf is false when the VRF is known already; remove_vrf refuses a VRF holding routes. */
    bool add_vrf(const std::string &vrf, std::vector<std::string> &changes);
    bool remove_vrf(const std::string &vrf, std::vector<std::string> &changes, std::string &err);

    /* Writes what changed since the last commit or rollback in one transaction. */
    bool commit(std::string &err);
    /* Forgets what changed since the last commit. */
    void rollback();

    /* The native configuration as a host tree; with `only`, just those routes. */
    zidl_yfw_datatree *to_tree(const std::set<RouteKey> *only = nullptr) const;
    /* Native path of a route or a next hop, for change lines. */
    static std::string route_path(const RouteKey &k);
    static std::string nh_path(const RouteKey &k, const NhKey &n);

private:
    Route &touch(const RouteKey &k, bool create);
    void remove_route(const RouteKey &k, std::vector<std::string> &changes);
    void remove_routes_if(const std::string *vrf, const bool *ipv4, std::vector<std::string> &changes);

    StoreBackend *backend_;
    std::map<RouteKey, Route> routes_;
    std::set<std::string> vrfs_;
    /* Undo log of the transaction being built: previous content of every route touched. */
    std::map<RouteKey, std::optional<Route>> undo_;
    std::set<std::string> vrfs_added_, vrfs_removed_;

    friend class NativeApplier;
};

} // namespace ocni::host

#endif
