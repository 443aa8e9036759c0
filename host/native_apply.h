/*
 * The native static-route configuration the host keeps for the router,
 * and the application of a native tree (the output of an edit, or a
 * native document) to it.
 *
 * The configuration is the store: NativeConfig holds no copy of it. A
 * request begins a store session: an edit takes the write transaction
 * first, then a read snapshot (which, with the writer's lock held, is
 * exactly the write transaction's base); a read takes a snapshot only.
 * The snapshot is the thread's current transaction for the plug-in's
 * lookups and answers the read accessors below, so callbacks never see
 * the edit's own pending writes. apply() works route by route in the
 * write transaction (record and plug-in layout together, see
 * host/route_store.h); commit() makes the whole edit durable at once and
 * rollback() drops it.
 */
#ifndef OCNI_HOST_NATIVE_APPLY_H
#define OCNI_HOST_NATIVE_APPLY_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "route_store.h"
#include "store.h"
#include "yfw_types.h"

namespace ocni::host {

/* What an edit changed: routes and native next hops created, changed and deleted. */
struct ChangeCounts {
    size_t routes_created = 0, routes_changed = 0, routes_deleted = 0;
    size_t nh_created = 0, nh_changed = 0, nh_deleted = 0;
    bool empty() const
    {
        return routes_created + routes_changed + routes_deleted + nh_created + nh_changed + nh_deleted == 0;
    }
};

/* Adds to `c` the difference between a route as it was and as it is (nullopt: absent). */
void count_change(const std::optional<Route> &before, const std::optional<Route> &after,
                  ChangeCounts &c);

class NativeConfig {
public:
    /* Over `engine`, or over the engine in use at each session when null. */
    explicit NativeConfig(std::shared_ptr<StoreEngine> engine = nullptr);
    ~NativeConfig();
    NativeConfig(const NativeConfig &) = delete;
    NativeConfig &operator=(const NativeConfig &) = delete;

    /* Checks that the store can be read; false with `err` when it cannot. */
    bool open(std::string &err);

    /*
     * Starts a session (write: an edit); false with `err` when the store
     * cannot give the transactions. A session already open is kept (and
     * `began` is false), so nested callers share it.
     */
    bool begin(bool write, std::string &err, bool *began = nullptr);
    bool in_session() const { return read_ != nullptr; }
    bool writing() const { return write_ != nullptr; }
    /* Ends the session; what is not committed is dropped. */
    void end();

    /* Read accessors: the session's snapshot (the committed store before the edit). */
    bool vrf_known(const std::string &vrf) const;
    std::vector<std::string> vrfs() const;
    /* VRFs holding at least one route ("default" included when it does), in store order. */
    std::vector<std::string> vrfs_with_routes() const;
    bool find_route(const RouteKey &k, Route &out) const;
    /*
     * Visits the routes (of one VRF, of one family) in store order until
     * `fn` returns false; false with `err` on a record that cannot be read.
     */
    using RouteVisitor = std::function<bool(const RouteKey &, const Route &)>;
    bool for_each_route(const std::string *vrf, const bool *ipv4, const RouteVisitor &fn, std::string &err) const;
    /*
     * Routes of a VRF and family that mean the prefix `address`/`length`:
     * the same length, and the same address once both are masked to it
     * (a stored "10.26.1.1/24" is the prefix 10.26.1.0/24). Seeks to the
     * prefix's address range.
     */
    bool for_each_same_prefix(const std::string &vrf, bool ipv4, const std::string &address, int length,
                              const RouteVisitor &fn, std::string &err) const;
    /* The first damaged record met by a read accessor ("" when none). */
    const std::string &read_error() const { return read_err_; }
    /* Whether the last apply failed on the store (a damaged record, a failed read), not on the tree. */
    bool store_fault() const { return store_fault_; }

    /*
     * Applies a native tree (children of `root`: "router-static") as one
     * edit: list entries merge by key, nodes carrying a delete or remove
     * operation (their own or inherited) remove what they name, leaves
     * merge into their entry. Appends one line per change to `changes`.
     * Returns false with `err` on a tree that does not fit the native
     * model; the edit must then be rolled back. Needs a write session.
     */
    bool apply(const zidl_yfw_datatree *root, std::vector<std::string> &changes, std::string &err);
    /*
     * VRF registry. add_vrf is false when the VRF is known already;
     * remove_vrf refuses a VRF holding routes (naming how many) unless
     * `with_routes`, which removes them in the same transaction.
     */
    bool add_vrf(const std::string &vrf, std::vector<std::string> &changes);
    bool remove_vrf(const std::string &vrf, std::string &err, bool with_routes = false);

    /*
     * What the session has written so far, counted route by route against
     * the routes as they were before each write (pending writes are flushed
     * into the write transaction first). Starts at zero with each session.
     */
    const ChangeCounts &counts();
    /* Whether apply() and the removals write change lines (off: only the counts are kept). */
    void keep_change_lines(bool on) { lines_ = on; }
    /* With a list, each route the session changes is added to it once it is written (a diff's routes). */
    void track_changed(std::vector<RouteKey> *routes) { changed_ = routes; }
    /*
     * With `on`, the read accessors and the plug-in's lookups read the
     * write transaction, pending writes included (to show an edit's result
     * before it is committed or dropped); off, the snapshot again.
     */
    bool view_written(bool on, std::string &err);

    /* Commits the write session (and ends it). */
    bool commit(std::string &err);
    /* Drops the session's changes (and ends it). */
    void rollback();

    /* The native configuration as a host tree; with `only`, just those routes. */
    zidl_yfw_datatree *to_tree(const std::set<RouteKey> *only = nullptr) const;
    /* The native tree of just these routes, in their order. */
    using RouteList = std::vector<std::pair<RouteKey, Route>>;
    static zidl_yfw_datatree *tree_of(const RouteList &routes);
    /* Native path of a route or a next hop, for change lines. */
    static std::string route_path(const RouteKey &k);
    static std::string nh_path(const RouteKey &k, const NhKey &n);

private:
    struct Pending {
        RouteKey key;
        std::optional<Route> route; /* nullopt: removed */
        std::optional<Route> before; /* as the write transaction held it */
    };
    /* A route of the write transaction, loaded for change; null when absent and not created. */
    Route *touch(const RouteKey &k, bool create, std::string &err);
    void remove_route(const RouteKey &k, std::vector<std::string> &changes);
    void remove_routes_if(const std::string *vrf, const bool *ipv4, std::vector<std::string> &changes);
    bool flush(std::string &err);
    bool scan_routes(Txn &t, const std::string &lo, const std::string &hi, const RouteVisitor &fn,
                     std::string &err) const;

    std::shared_ptr<StoreEngine> engine_;
    std::shared_ptr<StoreEngine> session_engine_;
    std::unique_ptr<Txn> write_, read_;
    std::unique_ptr<TxnScope> scope_;
    /* Routes changed since the last flush, by store key. */
    std::map<std::string, Pending> pending_;
    std::string apply_err_;
    bool store_fault_ = false;
    ChangeCounts counts_;
    std::vector<RouteKey> *changed_ = nullptr;
    bool view_written_ = false;
    bool lines_ = true;
    Txn *snapshot() const { return view_written_ ? write_.get() : read_.get(); }
    mutable std::string read_err_;

    friend class NativeApplier;
};

} // namespace ocni::host

#endif
