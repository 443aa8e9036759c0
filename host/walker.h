/*
 * The walker: what the framework does around the plug-in's callbacks.
 *
 * - edit: walks an OpenConfig input tree in schema order and calls the
 *   edit-direction callbacks; the native output tree is then applied to
 *   the native configuration in one transaction, or not at all.
 * - read: builds the native tree from the configuration (narrowed, with a
 *   filter, to the native paths the edit-direction callbacks ask for in
 *   read mode) and calls the read-direction callbacks.
 * - state read: the read, then the operational request (edit-direction
 *   callbacks in read mode with state), the operational answer built from
 *   the installed routes, and the reverse callbacks, all into one tree.
 *
 * The decisions behind each step are written down in host/WALKER.md.
 */
#ifndef OCNI_HOST_WALKER_H
#define OCNI_HOST_WALKER_H

#include <cstdint>
#include <functional>
#include <set>
#include <memory>
#include <string>
#include <vector>

#include "native_apply.h"
#include "plugin_loader.h"
#include "registration.h"
#include "yfw_types.h"

namespace ocni::host {

class LogSink;

/* Outcome of one request. */
struct WalkResult {
    cerrno rc = 0;
    std::string message;  /* the request's user message (client message) */
    std::string callback; /* callback that failed */
    std::string path;     /* error path recorded, else the input node being mapped */
    bool bad_input = false; /* refused by the native gate: the user's input, not the mapping */
    bool ok() const { return rc == 0; }
};

struct WalkerOptions {
    /* Switches both log levels and the lightweight trace on; lines go to `trace_sink`. */
    bool trace = false;
    /* Receives every log and trace line of every request (merged in order), when set. */
    void (*trace_line)(const char *line, void *arg) = nullptr;
    void *trace_arg = nullptr;
    /* Called with the number of static routes walked so far, after each batch of an edit. */
    std::function<void(size_t)> progress;
    /*
     * Called when an edit has been applied and is about to be committed or
     * dropped, with the configuration still in its write session (to read
     * what the edit did before it ends).
     */
    std::function<void(NativeConfig &)> before_end;
};

/* What an edit did. */
struct EditOutcome {
    WalkResult result;
    /* The native changes, one line each ("merge <path> = value", "delete <path>"). */
    std::vector<std::string> changes;
    /* VRFs the edit created (network instances carrying their own config/name). */
    std::vector<std::string> vrfs_created;
    /* Routes and native next hops created, changed and deleted. */
    ChangeCounts counts;
};

/* Routes a filtered read selects: a family of a VRF, whole or one prefix of it. */
struct Selector {
    std::string vrf;
    bool ipv4 = true;
    bool whole = true;
    std::string prefix;
    int length = 0;
};

/* Read filters; empty strings select everything. */
struct ReadRequest {
    bool state = false;
    std::string vrf;
    std::string prefix;
};

class Walker {
public:
    Walker(const Plugin &plugin, NativeConfig &config, WalkerOptions opt = {});
    ~Walker();
    Walker(const Walker &) = delete;
    Walker &operator=(const Walker &) = delete;
    /* The options, which a front end may change between requests (progress, before_end). */
    WalkerOptions &options() { return opt_; }

    /*
     * Maps an OpenConfig edit (children of `input`: "network-instances").
     * Nodes carrying YFW_DT_OP_DELETE or YFW_DT_OP_REMOVE are deletes. The
     * input tree may be extended (deletes of whole subtrees are expanded
     * into the entries they remove). With `dry_run` nothing is stored.
     */
    EditOutcome edit(zidl_yfw_datatree *input, bool dry_run = false);
    /*
     * The same edit given a part at a time: `next_part` sets `part` to the
     * input tree of each part in turn (owned by the caller, valid until the
     * next call) and to null after the last; false when it cannot make the
     * part (`why` says why: the edit then fails whole). The parts are
     * walked in order in one store transaction, all or nothing, as one
     * input holding them all would be; only one part need exist at a time.
     */
    using PartSource = std::function<bool(zidl_yfw_datatree *&part, std::string &why)>;
    EditOutcome edit_parts(const PartSource &next_part, bool dry_run = false);

    /*
     * Applies a native fragment (children of `input`: "router-static") as
     * the router's own command line would. A client's fragment passes the
     * native gate first; a `trusted` one is the router's own writing (what a
     * store may hold from before the gate) and is applied as it is.
     */
    EditOutcome native_edit(const zidl_yfw_datatree *input, bool dry_run = false, bool trusted = false);

    /*
     * The OpenConfig configuration (and state) in a new host tree whose
     * children are "network-instances"; `*out` is null on failure. Free
     * with tree_free.
     */
    WalkResult read(const ReadRequest &req, zidl_yfw_datatree **out);

    /*
     * The same read a batch of at most `batch` routes at a time, all in one
     * store session: each batch's tree goes to `sink` (which may keep
     * nothing of it) before the next is read, so memory holds one batch
     * whatever the number of routes. Routes of one instance may span
     * batches. With `native_only` the batches are native trees. A sink
     * returning false stops the read (result YFW_RC_MAP_FAILED).
     */
    using TreeSink = std::function<bool(const zidl_yfw_datatree *batch)>;
    WalkResult read_batches(const ReadRequest &req, size_t batch, const TreeSink &sink, bool native_only = false);

    /* The native configuration as a new host tree ("router-static"). */
    zidl_yfw_datatree *native_tree();

    /* The native output tree of the last edit (owned by the walker; null before any). */
    const zidl_yfw_datatree *last_native_output() const { return last_output_; }

    struct Run; /* one request's contexts and walk state (walker.cpp) */

private:
    WalkResult walk_tree(Run &run, const zidl_yfw_datatree *input_root, Model model);
    WalkResult select(const ReadRequest &req, std::set<RouteKey> &sel);
    WalkResult select(const ReadRequest &req, std::vector<Selector> &sels);
    WalkResult map_native(const ReadRequest &req, zidl_yfw_datatree *native, zidl_yfw_datatree **out);

    const Plugin &plugin_;
    NativeConfig &config_;
    WalkerOptions opt_;
    BindingIndex oc_edit_, oc_state_, native_, oper_;
    std::vector<void *> syms_; /* the plug-in's callback of each binding, in table order */
    zidl_yfw_datatree *last_output_ = nullptr;
};

/* Name of a result code for messages ("0xaaf2f400"). */
std::string rc_text(cerrno rc);

} // namespace ocni::host

#endif
