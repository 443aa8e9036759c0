/*
 * What one <edit-config> does to the running configuration: the NETCONF
 * operations (merge, replace, create, delete, remove, none) turned into
 * removals and one merge the engine knows how to apply.
 *
 * StoreEdit is the one class that knows how a change reaches the store.
 */
#ifndef OCNI_SERVER_EDIT_OPS_H
#define OCNI_SERVER_EDIT_OPS_H

#include <string>
#include <utility>
#include <vector>

#include "ocni_map_engine.h"
#include "yang_context.h"
#include "yang_data.h"

namespace ocni::server {

/* An <rpc-error> as the server answers it. */
struct RpcError {
    enum Tag {
        kNone,
        kInvalidValue,
        kUnknownElement,
        kMissingElement,
        kBadElement,
        kDataExists,
        kDataMissing,
        kOperationFailed,
        kLockDenied,
        kInUse,
    };
    Tag tag = kNone;
    std::string message;
    std::string path;     /* error-path, "" when none */
    std::string element;  /* bad-element for the element tags */
    uint32_t session = 0; /* lock holder for kLockDenied */

    explicit operator bool() const { return tag != kNone; }
    static RpcError make(Tag t, std::string msg, std::string p = "")
    {
        RpcError e;
        e.tag = t;
        e.message = std::move(msg);
        e.path = std::move(p);
        return e;
    }
};

/* The engine's refusals and failures as rpc-errors. */
RpcError from_outcome(const tool::Outcome &o);

/*
 * Parses the content of <config>: strict against the schema, with the
 * ietf-netconf operation attributes; libyang's complaint becomes the
 * matching tag and error-path.
 */
RpcError parse_config(const yang::Context &ctx, const std::string &xml, yang::Tree &out);

/*
 * Whether a tree libyang parsed leniently (the content of an anyxml) is
 * typed configuration throughout: no opaque node, nothing config false,
 * no default added. Such a tree is what parse_config would make of its text.
 */
bool typed_config(const lyd_node *first);

/* The checks parse_config makes after parsing: the module edited here, canonical prefixes. */
RpcError check_config(const yang::Tree &config);

enum class Op { kMerge, kReplace, kNone };

/*
 * Changes to the running configuration, applied as one edit: the removals
 * and the merge become one OpenConfig tree in which the removed nodes are
 * deletes, placed before what is merged at the same place (a next hop
 * moved to a new index is removed, then written anew). The engine runs it
 * as one store write transaction on the calling thread: all of it is
 * stored or none, and a dry run answers exactly as the real one would.
 */
class StoreEdit {
public:
    explicit StoreEdit(tool::Engine &engine) : engine_(engine) {}

    /* The configuration of one route (prefix set), one VRF (vrf set) or all. */
    tool::Outcome read(const tool::ReadFilter &scope, yang::Tree &out) { return engine_.get(scope, out); }
    /* Removes the target of a path tree; false when out of memory. */
    bool remove(yang::Tree path_tree, yang::PathTarget target);
    /* Merges a tree; call after the removals. False when out of memory. */
    bool merge(yang::Tree tree);
    /* Runs the edit without storing anything. */
    tool::Outcome test() { return run(true); }
    /* Stores the whole edit, or nothing of it. */
    tool::Outcome commit() { return run(false); }

private:
    /* A removed node, by instance path: nodes move while the trees are combined. */
    struct Removal {
        std::string path;
        const lysc_node *leaf = nullptr; /* a leaf below the node at `path` */
    };
    tool::Engine &engine_;
    yang::Tree tree_;
    std::vector<Removal> removals_;

    bool add(yang::Tree tree);
    tool::Outcome run(bool dry_run);
};

/*
 * Applies one parsed <config> with the request's default operation:
 * create of what exists is data-exists, delete of what is absent
 * data-missing, remove of what is absent nothing; replace removes the
 * stored routes, next hops and route leaves the new content leaves out,
 * before the merge. With test_only nothing is stored.
 */
RpcError edit_config(const yang::Context &ctx, tool::Engine &engine, const yang::Tree &config, Op default_op,
                     bool test_only);

}  // namespace ocni::server

#endif
