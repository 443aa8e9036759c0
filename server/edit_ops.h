/*
 * What one <edit-config> does to the running configuration: the NETCONF
 * operations (merge, replace, create, delete, remove, none) turned into
 * removals and one merge the engine knows how to apply.
 *
 * The engine applies a merge, or one removal, as one store commit. An
 * edit-config that needs several of them goes through StoreEdit, the one
 * class that knows how a change reaches the store (see there for what is
 * atomic today).
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

enum class Op { kMerge, kReplace, kNone };

/*
 * Changes to the running configuration, applied as one edit. Today each
 * step is its own engine commit: steps run under the caller's engine
 * lock, and when one fails the routes the edit touched are put back from
 * the copy read before the first step. Another process writing the same
 * store between two steps is not kept out, and a crash between two steps
 * leaves the steps done so far. The store's write transaction, once the
 * engine offers one, replaces all of this: begin, steps, commit or abort.
 */
class StoreEdit {
public:
    explicit StoreEdit(tool::Engine &engine) : engine_(engine) {}

    /* The configuration of one route (prefix set), one VRF (vrf set) or all. */
    tool::Outcome read(const tool::ReadFilter &scope, yang::Tree &out) { return engine_.get(scope, out); }
    /* Routes whose configuration is kept to be put back if the edit fails. */
    void protect(const std::vector<tool::ReadFilter> &scopes) { scopes_ = scopes; }
    void remove(yang::Tree path_tree, yang::PathTarget target);
    void merge(yang::Tree tree);
    size_t steps() const { return removals_.size() + (merge_ ? 1 : 0); }
    /* Runs every step without storing anything (each against the stored configuration). */
    tool::Outcome test();
    /* Runs the steps; on a failure puts the protected routes back as they were. */
    tool::Outcome commit();

private:
    tool::Engine &engine_;
    std::vector<std::pair<yang::Tree, yang::PathTarget>> removals_;
    yang::Tree merge_;
    std::vector<tool::ReadFilter> scopes_;

    tool::Outcome run(bool dry_run);
    tool::Outcome restore(std::vector<yang::Tree> &before);
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
