/*
 * What the command line needs from the host: the walker that runs the
 * plug-in's callbacks over a request and applies the result to the store.
 * The command line deals in libyang trees (parsed and printed by the YANG
 * seam); the engine converts them to and from framework trees.
 */
#ifndef OCNI_MAP_ENGINE_H
#define OCNI_MAP_ENGINE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "json_chunks.h"
#include "yang_data.h"

namespace ocni::host {
class StoreEngine;
}

namespace ocni::tool {

/* Exit status of the command line, and what each failure means. */
struct Outcome {
    enum Status {
        kOk = 0,
        kRefused = 1,   /* the mapping refused the request: message is the client message */
        kBadInput = 2,  /* input that does not parse or validate */
        kInternal = 3,  /* store or internal error */
    };
    Status status = kOk;
    std::string message;
    std::string detail;  /* callback, result code, native path: shown with --trace */

    static Outcome ok() { return Outcome{}; }
    static Outcome fail(Status s, std::string m) { return Outcome{s, std::move(m), {}}; }
};

struct EngineOptions {
    std::string store_dir;    /* LMDB store directory */
    std::string plugin_path;  /* libocni_localrouting.so */
    bool trace = false;       /* trace lines to stderr */
    size_t read_batch = 1024; /* routes a streamed read maps and hands on at a time */
    size_t edit_part = 256;  /* static routes of an edit's input converted and walked at a time */
    /* Routes walked so far, after each batch of an edit or a streamed read. */
    std::function<void(size_t)> progress;
    /* Edits return their native change lines (off: only the counts of EditReport, and less memory). */
    bool change_lines = true;
    /* Edits also compute an OpenConfig diff of the routes they change (EditReport::diff). */
    bool diff = false;
};

/* What the last edit changed. */
struct EditReport {
    size_t routes_created = 0, routes_changed = 0, routes_deleted = 0;
    size_t nh_created = 0, nh_changed = 0, nh_deleted = 0;
    std::vector<std::string> vrfs_created;
    /*
     * With EngineOptions::diff: the OpenConfig leaves of the changed routes
     * that the edit adds ("+ PATH: VALUE"), changes ("~ PATH: OLD -> NEW")
     * and removes ("- PATH: VALUE"), one line each.
     */
    std::string diff;
    bool changed_nothing() const
    {
        return routes_created + routes_changed + routes_deleted + nh_created + nh_changed + nh_deleted == 0 &&
               vrfs_created.empty();
    }
};

/* Receives a streamed read a batch of routes at a time (a tree of its own each). */
struct ReadSink {
    virtual ~ReadSink() = default;
    virtual Outcome batch(yang::Tree fragment) = 0;
};

/* Read filters of `get`; empty strings select everything. */
struct ReadFilter {
    bool state = false;
    std::string vrf;
    std::string prefix;
};

class Engine {
public:
    virtual ~Engine() = default;

    /* Merges an OpenConfig fragment; `changes` receives the native changes as text. */
    virtual Outcome edit(const yang::Tree &openconfig, bool dry_run, std::string &changes) = 0;
    /*
     * One edit of several OpenConfig documents, in one transaction: `first`,
     * then each tree `next` gives, until it gives an empty one (a large input
     * read a chunk at a time; each tree is freed before the next is asked
     * for). An error of `next` fails the whole edit with that error.
     */
    using NextDocument = std::function<yang::Error(yang::Tree &next)>;
    virtual Outcome edit(const yang::Tree &first, const NextDocument &next, bool dry_run, std::string &changes) = 0;
    /*
     * One edit of an OpenConfig tree in which the `deleted` targets (nodes
     * of `tree`, or leaves below them) are deletes and every other node a
     * merge: one store transaction, all or nothing. Deletes placed before
     * merges at the same place run first.
     */
    virtual Outcome apply(const yang::Tree &tree, const std::vector<yang::PathTarget> &deleted, bool dry_run,
                          std::string &changes) = 0;
    /*
     * Deletes the node an OpenConfig instance path names; deleting what the
     * store does not hold changes nothing and succeeds (last_report() says
     * nothing changed), for routes, next hops and leaves alike.
     */
    virtual Outcome remove(const yang::Tree &path_tree, const yang::PathTarget &target, bool dry_run,
                           std::string &changes)
    {
        return apply(path_tree, {target}, dry_run, changes);
    }
    /* The OpenConfig configuration (and state) as a libyang tree; empty store: empty tree. */
    virtual Outcome get(const ReadFilter &filter, yang::Tree &out) = 0;
    /* The native configuration. */
    virtual Outcome native_get(yang::Tree &out) = 0;
    /*
     * The same reads streamed: one store snapshot, a batch of routes
     * mapped, converted and handed to `sink` at a time; nothing when the
     * store holds no route.
     */
    virtual Outcome get(const ReadFilter &filter, ReadSink &sink) = 0;
    virtual Outcome native_get(ReadSink &sink) = 0;
    /* Applies a native fragment directly, as the router's own command line would. */
    virtual Outcome native_edit(const yang::Tree &native, bool dry_run, std::string &changes) = 0;
    virtual Outcome vrf_add(const std::string &name) = 0;
    /* The same, telling whether the VRF was created (false: it was known already). */
    virtual Outcome vrf_add(const std::string &name, bool &created)
    {
        created = false;
        return vrf_add(name);
    }
    /* vrf_delete, telling how many routes went with the VRF. */
    virtual Outcome vrf_delete(const std::string &name, bool with_routes, size_t &routes_deleted)
    {
        routes_deleted = 0;
        return vrf_delete(name, with_routes);
    }
    /*
     * Runs `fn` inside one store write transaction: the reads it makes
     * through this engine see exactly the store its edit then starts from
     * (no other writer comes between), and its edit commits that same
     * transaction. What `fn` leaves uncommitted is dropped.
     */
    virtual Outcome in_one_transaction(const std::function<Outcome()> &fn) { return fn(); }
    /* What the last edit, native edit or delete changed. */
    virtual const EditReport &last_report() const
    {
        static const EditReport none;
        return none;
    }
    /* Refused while the VRF holds routes, unless `with_routes` deletes them in the same transaction. */
    virtual Outcome vrf_delete(const std::string &name, bool with_routes) = 0;
    Outcome vrf_delete(const std::string &name) { return vrf_delete(name, false); }
    virtual Outcome vrf_list(std::vector<std::string> &names) = 0;
    /* Whether the store holds the VRF, as a registered VRF or as routes. */
    virtual bool vrf_held(const std::string &name) { (void)name; return false; }
};

/*
 * An OpenConfig edit as a front end reads it from text. A JSON input of
 * more static routes than `chunk_routes` is parsed and walked a chunk of
 * routes at a time (yang::JsonChunks), so that no tree of the whole input
 * is ever built; any other input is one document. read() parses the first
 * document (the whole input, or chunk 0: every node but the later chunks'
 * routes), before a store is opened; edit() walks it and the rest in one
 * transaction. Messages start with `name` unless it is "-". `text` is
 * read in place: it must outlive edit().
 */
class EditInput {
public:
    static constexpr size_t kChunkRoutes = 512;

    yang::Error read(const yang::Context &ctx, const std::string &name, const std::string &text, yang::Format format,
                     size_t chunk_routes = kChunkRoutes);
    /* Static routes of the whole input. */
    size_t routes() const { return routes_; }
    Outcome edit(Engine &engine, bool dry_run, std::string &changes);

private:
    yang::Error parse(const std::string &doc, yang::Format format, size_t line_offset, yang::Tree &out) const;
    const yang::Context *ctx_ = nullptr;
    std::string name_;
    yang::JsonChunks chunks_;
    bool chunked_ = false;
    yang::Tree first_;
    size_t routes_ = 0;
};

/*
 * Rewrites a store directory of the previous format in the current one;
 * `routes` receives the number of routes moved.
 */
Outcome upgrade_store(const std::string &dir, size_t &routes);

/*
 * Opens the store and loads the plug-in; null with `why` set when that
 * fails (a store of another format or a damaged one: kInternal, a sentence).
 */
std::unique_ptr<Engine> make_engine(const yang::Context &ctx, const EngineOptions &options, Outcome &why);
/* The same over a store engine of the caller's (an in-memory one for tests and fuzzing). */
std::unique_ptr<Engine> make_engine(const yang::Context &ctx, std::shared_ptr<host::StoreEngine> store,
                                    const EngineOptions &options, Outcome &why);

}  // namespace ocni::tool

#endif
