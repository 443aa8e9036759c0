/*
 * The command line's engine on the host walker: libyang trees in and out
 * through the YANG seam, framework trees through the walker, the native
 * configuration persisted in the store directory.
 */
#include <cstdio>
#include <cstring>
#include <future>
#include <system_error>
#include <set>
#include <iostream>

#include <libyang/libyang.h>

#include "host/iface_table.h"
#include "host/native_apply.h"
#include "host/route_store.h"
#include "host/plugin_loader.h"
#include "host/tree.h"
#include "host/walker.h"
#include "input_checks.h"
#include "ocni_map_engine.h"
#include "host/store.h"
#include "host/store_lmdb.h"

namespace ocni::tool {

namespace {

namespace h = ocni::host;

/* A framework tree freed with its owner. */
struct HostTree {
    zidl_yfw_datatree *root = nullptr;
    explicit HostTree(zidl_yfw_datatree *r = h::tree_new()) : root(r) {}
    ~HostTree() { h::tree_free(root); }
    HostTree(const HostTree &) = delete;
    HostTree &operator=(const HostTree &) = delete;
};

void trace_to_stderr(const char *line, void *)
{
    fprintf(stderr, "%s\n", line);
}

std::string join(const std::vector<std::string> &lines)
{
    std::string out;
    for (const std::string &l : lines)
        out += l + "\n";
    return out;
}

/*
 * A failed request: refusals by the native gate are the user's input (exit
 * 2), the mapping's refusals (with the client message) exit 1, the
 * store's failures and anything unexpected exit 3. The message is the
 * sentence and, for an edit, the OpenConfig path; the callback, its result
 * code and a native path are details for --trace.
 */
Outcome failure(const h::WalkResult &r)
{
    if (r.bad_input)
        return Outcome::fail(Outcome::kBadInput, r.message);
    bool refused = false;
    switch (r.rc) {
    case YFW_RC_INVALID_REQUEST:
    case YFW_RC_MAP_FAILED:
    case YFW_RC_NOT_APPLICABLE:
    case YFW_RC_NODE_EXISTS:
    case YFW_RC_NO_COMMON_DATA:
        refused = true;
        break;
    default:
        break;
    }
    std::string detail = (r.callback.empty() ? "result " : r.callback + " returned ") + h::rc_text(r.rc);
    const bool openconfig_path = r.path.rfind("/network-instances", 0) == 0;
    if (!r.path.empty() && !openconfig_path)
        detail += " at " + r.path;
    std::string sentence = !r.message.empty() ? r.message
                           : refused          ? "the mapping refused the request"
                                              : "internal error";
    if (openconfig_path)
        sentence += " (at " + r.path + ")";
    Outcome o = Outcome::fail(refused ? Outcome::kRefused : Outcome::kInternal, sentence);
    o.detail = detail;
    return o;
}

class WalkerEngine : public Engine {
public:
    WalkerEngine(const yang::Context &ctx, std::shared_ptr<h::StoreEngine> store)
        : ctx_(ctx), config_(std::move(store))
    {
    }
    /* The store opened for this engine closes with it (the process-wide client lets it go). */
    ~WalkerEngine() override { h::store_use_engine(nullptr); }

    Outcome start(const EngineOptions &opt)
    {
        std::string err;
        h::imc_every_name_present(true);
        if (!config_.open(err))
            return Outcome::fail(Outcome::kInternal, "store " + opt.store_dir + ": " + err);
        plugin_ = h::Plugin::load(opt.plugin_path, err);
        if (!plugin_)
            return Outcome::fail(Outcome::kInternal, err);
        h::WalkerOptions wo;
        wo.trace = opt.trace;
        wo.progress = opt.progress;
        config_.keep_change_lines(opt.change_lines);
        diff_ = opt.diff;
        if (opt.diff)
            wo.before_end = [this](h::NativeConfig &c) { report_.diff = diff_of_changed(c); };
        read_batch_ = opt.read_batch;
        edit_part_ = opt.edit_part;
        if (opt.trace)
            wo.trace_line = trace_to_stderr;
        walker_ = std::make_unique<h::Walker>(*plugin_, config_, wo);
        return Outcome::ok();
    }

    Outcome edit(const yang::Tree &openconfig, bool dry_run, std::string &changes) override
    {
        return edit(openconfig, nullptr, dry_run, changes);
    }

    Outcome edit(const yang::Tree &first, const NextDocument &next, bool dry_run, std::string &changes) override
    {
        register_interfaces(first);
        if (Outcome o = new_next_hops_named(first, {}); o.status != Outcome::kOk)
            return o;
        Outcome failed = Outcome::ok();
        h::EditOutcome eo = run_edit(first, nullptr, 0, next ? &next : nullptr, failed, dry_run);
        return failed.status != Outcome::kOk ? failed : edit_outcome(eo, changes);
    }

    Outcome apply(const yang::Tree &tree, const std::vector<yang::PathTarget> &deleted, bool dry_run,
                  std::string &changes) override
    {
        register_interfaces(tree);
        if (Outcome o = new_next_hops_named(tree, deleted); o.status != Outcome::kOk)
            return o;
        Outcome failed = Outcome::ok();
        return edit_outcome(run_edit(tree, deleted.data(), deleted.size(), nullptr, failed, dry_run), changes);
    }

    Outcome remove(const yang::Tree &path_tree, const yang::PathTarget &target, bool dry_run,
                   std::string &changes) override
    {
        /*
         * Within one route, what the path names is looked up first, in the
         * delete's own transaction: the mapping would otherwise refuse an
         * absent next hop, or leave its route behind as an empty entry.
         */
        return in_one_transaction([&]() {
            ReadFilter scope;
            yang::delete_scope(target, scope.vrf, scope.prefix);
            if (!scope.prefix.empty()) {
                yang::Tree config;
                Outcome o = get(scope, config);
                if (o.status != Outcome::kOk)
                    return o;
                if (!yang::delete_target_present(config, target)) {
                    report_ = EditReport{};
                    changes.clear();
                    return Outcome::ok();
                }
            }
            return apply(path_tree, {target}, dry_run, changes);
        });
    }

    Outcome get(const ReadFilter &filter, yang::Tree &out) override
    {
        h::ReadRequest req;
        req.state = filter.state;
        req.vrf = filter.vrf;
        req.prefix = filter.prefix;
        zidl_yfw_datatree *raw = nullptr;
        h::WalkResult r = walker_->read(req, &raw);
        HostTree result(raw);
        if (!r.ok())
            return failure(r);
        Outcome o = back(result.root, out);
        if (o.status != Outcome::kOk)
            return o;
        yang::Error e = yang::complete_network_instance_names(out);
        return e ? Outcome::fail(Outcome::kInternal, e.message) : Outcome::ok();
    }

    Outcome native_get(yang::Tree &out) override
    {
        HostTree result(walker_->native_tree());
        if (result.root == nullptr)
            return Outcome::fail(Outcome::kInternal, config_.read_error().empty()
                                                         ? "cannot build the native configuration tree"
                                                         : "store: " + config_.read_error());
        return back(result.root, out);
    }

    Outcome get(const ReadFilter &filter, ReadSink &sink) override { return stream(filter, sink, false); }

    Outcome native_get(ReadSink &sink) override { return stream(ReadFilter{}, sink, true); }

    Outcome native_edit(const yang::Tree &native, bool dry_run, std::string &changes) override
    {
        register_interfaces(native);
        HostTree in;
        Outcome o = convert(native, in.root);
        if (o.status != Outcome::kOk)
            return o;
        report_ = EditReport{};
        config_.track_changed(diff_ ? &changed_ : nullptr); /* a diff's routes only */
        changed_.clear();
        return edit_outcome(keep(walker_->native_edit(in.root, dry_run)), changes);
    }

    Outcome vrf_add(const std::string &name) override
    {
        bool created = false;
        return vrf_add(name, created);
    }

    Outcome vrf_add(const std::string &name, bool &created) override
    {
        created = false;
        std::vector<std::string> changes;
        std::string err;
        if (!config_.begin(true, err))
            return Outcome::fail(Outcome::kInternal, "store: " + err);
        if (config_.vrf_known(name)) {
            config_.rollback();
            return Outcome::ok(); /* adding a known VRF changes nothing */
        }
        Outcome o = vrf_change(config_.add_vrf(name, changes), "cannot add VRF " + name);
        created = o.status == Outcome::kOk;
        return o;
    }

    using Engine::vrf_delete;
    Outcome vrf_delete(const std::string &name, bool with_routes) override
    {
        size_t routes = 0;
        return vrf_delete(name, with_routes, routes);
    }

    Outcome vrf_delete(const std::string &name, bool with_routes, size_t &routes_deleted) override
    {
        routes_deleted = 0;
        std::string err;
        if (!config_.begin(true, err))
            return Outcome::fail(Outcome::kInternal, "store: " + err);
        bool removed = config_.remove_vrf(name, err, with_routes);
        size_t routes = removed ? config_.counts().routes_deleted : 0;
        Outcome o = vrf_change(removed, err.empty() ? "cannot delete VRF " + name : err);
        if (o.status == Outcome::kOk)
            routes_deleted = routes;
        return o;
    }

    const EditReport &last_report() const override { return report_; }

    Outcome in_one_transaction(const std::function<Outcome()> &fn) override
    {
        std::string err;
        bool began = false;
        if (!config_.begin(true, err, &began))
            return Outcome::fail(Outcome::kInternal, "store: " + err);
        Outcome o = fn();
        if (began && config_.in_session())
            config_.rollback();
        return o;
    }

    bool vrf_held(const std::string &name) override
    {
        if (config_.vrf_known(name))
            return true;
        for (const std::string &v : config_.vrfs_with_routes())
            if (v == name)
                return true;
        return false;
    }

    Outcome vrf_list(std::vector<std::string> &names) override
    {
        names = config_.vrfs();
        return Outcome::ok();
    }

private:
    const yang::Context &ctx_;
    h::NativeConfig config_;
    std::unique_ptr<h::Plugin> plugin_;
    std::unique_ptr<h::Walker> walker_;
    size_t read_batch_ = 1024;
    size_t edit_part_ = 1024;
    bool diff_ = false;
    EditReport report_;
    std::vector<h::RouteKey> changed_;

    /*
     * A next hop the store does not hold needs its next-hop leaf or an
     * interface: without either the edit names nothing to route to, and
     * the mapping would store nothing for it or refuse whichever leaf the
     * entry carries. Said here as the input's fault. Entries being deleted
     * need nothing.
     */
    Outcome new_next_hops_named(const yang::Tree &tree, const std::vector<yang::PathTarget> &deleted)
    {
        yang::Error e = yang::check_new_next_hops(tree, deleted, [this](const std::string &vrf, const std::string &prefix,
                                                                        const std::string &index) {
            return next_hop_stored(vrf, prefix, index);
        });
        return e ? Outcome::fail(Outcome::kBadInput, e.message) : Outcome::ok();
    }

    bool next_hop_stored(const std::string &vrf, const std::string &prefix, const std::string &index)
    {
        size_t slash = prefix.find('/');
        if (slash == std::string::npos)
            return true; /* the walker says what is wrong with it */
        h::RouteKey k;
        k.vrf = vrf.empty() ? "default" : vrf;
        k.ipv4 = prefix.find(':') == std::string::npos;
        k.prefix = prefix.substr(0, slash);
        k.length = prefix.substr(slash + 1);
        h::Route r;
        if (!config_.find_route(k, r))
            return false;
        for (const auto &nh : r.next_hops)
            if (h::nh_openconfig_index(nh.first, nh.second) == index)
                return true;
        return false;
    }

    /*
     * An OpenConfig edit, its report kept. The framework tree of the input
     * is made a part (of edit_part_ routes) at a time: only libyang's tree
     * of the input, or of the document `next` gave last, is whole. A
     * document `next` cannot give, or one that fails the checks made before
     * a walk, ends the edit with `failed` set.
     */
    h::EditOutcome run_edit(const yang::Tree &first, const yang::PathTarget *deleted, size_t deleted_count,
                            const NextDocument *next, Outcome &failed, bool dry_run)
    {
        report_ = EditReport{};
        config_.track_changed(diff_ ? &changed_ : nullptr); /* a diff's routes only */
        changed_.clear();
        yang::Tree later;
        auto parts = std::make_unique<yang::PartedTree>(first, edit_part_, deleted, deleted_count);
        size_t k = 0;
        std::unique_ptr<HostTree> current;
        return keep(walker_->edit_parts([&](zidl_yfw_datatree *&part, std::string &why) {
            current.reset();
            part = nullptr;
            while (k == parts->count()) {
                if (next == nullptr)
                    return true;
                parts.reset();
                yang::Error e = (*next)(later);
                if (!e && !later)
                    return true;
                failed = e ? Outcome::fail(e.kind == yang::Error::kInput ? Outcome::kBadInput : Outcome::kInternal,
                                           e.message)
                           : Outcome::ok();
                if (failed.status == Outcome::kOk) {
                    register_interfaces(later);
                    failed = new_next_hops_named(later, {});
                }
                if (failed.status != Outcome::kOk) {
                    why = failed.message;
                    return false;
                }
                parts = std::make_unique<yang::PartedTree>(later, edit_part_);
                k = 0;
            }
            current = std::make_unique<HostTree>();
            yang::HostTreeSink sink;
            yang::Error e = current->root == nullptr ? yang::Error::internal("out of memory")
                                                     : parts->part(k++, sink, current->root);
            if (e) {
                why = e.message;
                return false;
            }
            part = current->root;
            return true;
        }, dry_run));
    }

    h::EditOutcome keep(h::EditOutcome eo)
    {
        changed_.clear();
        changed_.shrink_to_fit();
        if (!eo.result.ok())
            return eo;
        const h::ChangeCounts &c = eo.counts;
        report_.routes_created = c.routes_created, report_.routes_changed = c.routes_changed;
        report_.routes_deleted = c.routes_deleted, report_.nh_created = c.nh_created;
        report_.nh_changed = c.nh_changed, report_.nh_deleted = c.nh_deleted;
        report_.vrfs_created = eo.vrfs_created;
        return eo;
    }

    /* The OpenConfig leaves of one route as the configuration's current view holds them. */
    void route_leaves(const h::RouteKey &k, std::vector<std::pair<std::string, std::string>> &out)
    {
        h::ReadRequest req;
        req.vrf = k.vrf;
        req.prefix = k.prefix + "/" + k.length;
        zidl_yfw_datatree *raw = nullptr;
        h::WalkResult r = walker_->read(req, &raw);
        HostTree result(raw);
        yang::Tree tree;
        if (!r.ok() || back(result.root, tree).status != Outcome::kOk)
            return;
        yang::leaf_values(tree, out, "static");
    }

    /* Runs inside the edit's session, before its commit or rollback. */
    std::string diff_of_changed(h::NativeConfig &c)
    {
        std::vector<std::pair<std::string, std::string>> before, after;
        for (const h::RouteKey &k : changed_)
            route_leaves(k, before);
        std::string err;
        if (!c.view_written(true, err))
            return "";
        for (const h::RouteKey &k : changed_)
            route_leaves(k, after);
        c.view_written(false, err);
        return yang::leaf_diff(before, after);
    }

    Outcome stream(const ReadFilter &filter, ReadSink &sink, bool native_only)
    {
        h::ReadRequest req;
        req.state = filter.state;
        req.vrf = filter.vrf;
        req.prefix = filter.prefix;
        Outcome sunk = Outcome::ok();
        h::WalkResult r = walker_->read_batches(req, read_batch_, [&](const zidl_yfw_datatree *batch) {
            yang::Tree tree;
            sunk = back(batch, tree);
            if (sunk.status == Outcome::kOk && !native_only) {
                yang::Error e = yang::complete_network_instance_names(tree);
                if (e)
                    sunk = Outcome::fail(Outcome::kInternal, e.message);
            }
            if (sunk.status == Outcome::kOk && tree)
                sunk = sink.batch(std::move(tree));
            return sunk.status == Outcome::kOk;
        }, native_only);
        if (sunk.status != Outcome::kOk)
            return sunk;
        return r.ok() ? Outcome::ok() : failure(r);
    }

    /*
     * The router this host plays has every interface a request or the
     * stored configuration names (see start()).
     */
    void register_interfaces(const yang::Tree &) {}

    static Outcome convert(const yang::Tree &tree, zidl_yfw_datatree *root,
                           const yang::PathTarget *deleted = nullptr, size_t deleted_count = 0)
    {
        if (root == nullptr)
            return Outcome::fail(Outcome::kInternal, "out of memory");
        yang::HostTreeSink sink;
        yang::Error e = yang::to_datatree(tree, sink, root, YFW_DT_OP_NONE, deleted, deleted_count);
        return e ? Outcome::fail(Outcome::kInternal, e.message) : Outcome::ok();
    }

    Outcome back(const zidl_yfw_datatree *root, yang::Tree &out)
    {
        yang::Error e = yang::from_datatree(ctx_, root, out);
        return e ? Outcome::fail(Outcome::kInternal, e.message) : Outcome::ok();
    }

    static Outcome edit_outcome(const h::EditOutcome &eo, std::string &changes)
    {
        if (!eo.result.ok())
            return failure(eo.result);
        changes = join(eo.changes);
        return Outcome::ok();
    }

    Outcome vrf_change(bool changed, const std::string &why_not)
    {
        if (!changed) {
            config_.rollback();
            return Outcome::fail(Outcome::kRefused, why_not);
        }
        std::string err;
        if (!config_.commit(err)) {
            config_.rollback();
            return Outcome::fail(Outcome::kInternal, err);
        }
        return Outcome::ok();
    }
};

}  // namespace

namespace {

/* Static routes in an OpenConfig document. */
size_t statics_in(const yang::Tree &tree)
{
    size_t n = 0;
    for (const lyd_node *top = tree.get(); top != nullptr; top = top->next) {
        const lyd_node *node;
        LYD_TREE_DFS_BEGIN(top, node) {
            if (node->schema != nullptr && strcmp(node->schema->name, "static") == 0 &&
                node->schema->nodetype == LYS_LIST) {
                ++n;
                LYD_TREE_DFS_continue = 1;
            }
            LYD_TREE_DFS_END(top, node);
        }
    }
    return n;
}

}  // namespace

yang::Error EditInput::parse(const std::string &doc, yang::Format format, size_t line_offset, yang::Tree &out) const
{
    yang::Error e = yang::read_edit(*ctx_, doc, format, yang::Model::kOpenConfig, out, line_offset);
    if (e && name_ != "-")
        e.message = name_ + ": " + e.message;
    return e;
}

yang::Error EditInput::read(const yang::Context &ctx, const std::string &name, const std::string &text,
                            yang::Format format, size_t chunk_routes)
{
    ctx_ = &ctx;
    name_ = name;
    chunked_ = format != yang::Format::kXml && chunks_.scan(text, chunk_routes);
    if (!chunked_) {
        yang::Error e = parse(text, format, 0, first_);
        routes_ = e ? 0 : statics_in(first_);
        return e;
    }
    std::string doc;
    size_t offset = 0;
    chunks_.chunk(0, doc, offset);
    routes_ = chunks_.routes();
    return parse(doc, format, offset, first_);
}

Outcome EditInput::edit(Engine &engine, bool dry_run, std::string &changes)
{
    if (!chunked_)
        return engine.edit(first_, dry_run, changes);
    /*
     * The next chunk is cut and parsed on a second thread while the engine
     * walks this one (libyang parses data of one context on several threads;
     * its errors are kept per thread, and parse() reads them on the thread
     * that parsed). The engine still takes the chunks in order, and an error
     * still ends the edit at its own chunk. The parsing thread allocates from
     * its own heap arena, away from the store transaction's pages.
     */
    struct Parsed {
        yang::Tree tree;
        yang::Error error;
    };
    auto parse_chunk = [this](size_t k) {
        Parsed p;
        std::string doc;
        size_t offset = 0;
        chunks_.chunk(k, doc, offset);
        p.error = parse(doc, yang::Format::kJson, offset, p.tree);
        return p;
    };
    size_t next = 1;
    std::future<Parsed> ahead;
    auto start = [&] {
        if (next >= chunks_.count())
            return;
        try {
            ahead = std::async(std::launch::async, parse_chunk, next);
        } catch (const std::system_error &) { /* no thread to be had: parsed when its turn comes */
            ahead = std::async(std::launch::deferred, parse_chunk, next);
        }
        ++next;
    };
    start();
    return engine.edit(first_, [&](yang::Tree &out) {
        out.reset();
        if (!ahead.valid())
            return yang::Error{};
        Parsed p = ahead.get();
        if (!p.error)
            start();
        out = std::move(p.tree);
        return p.error;
    }, dry_run, changes);
}

Outcome upgrade_store(const std::string &dir, size_t &routes)
{
    std::string err;
    std::shared_ptr<h::StoreEngine> store = h::open_lmdb_engine(dir, err);
    if (!store || !h::store_upgrade(*store, routes, err))
        return Outcome::fail(Outcome::kInternal, "store " + dir + ": " + err);
    return Outcome::ok();
}

std::unique_ptr<Engine> make_engine(const yang::Context &ctx, const EngineOptions &options, Outcome &why)
{
    std::string err;
    std::shared_ptr<h::StoreEngine> store = h::open_lmdb_engine(options.store_dir, err);
    if (!store) {
        why = Outcome::fail(Outcome::kInternal, "store " + options.store_dir + ": " + err);
        return nullptr;
    }
    return make_engine(ctx, std::move(store), options, why);
}

std::unique_ptr<Engine> make_engine(const yang::Context &ctx, std::shared_ptr<host::StoreEngine> store,
                                    const EngineOptions &options, Outcome &why)
{
    std::string err;
    if (!h::store_check_format(*store, err)) {
        why = Outcome::fail(Outcome::kInternal, "store " + options.store_dir + ": " + err);
        return nullptr;
    }
    /* The plug-in's store client and the native records share this engine. */
    h::store_use_engine(store);
    auto engine = std::make_unique<WalkerEngine>(ctx, store);
    why = engine->start(options);
    if (why.status != Outcome::kOk)
        return nullptr;
    return engine;
}

}  // namespace ocni::tool
