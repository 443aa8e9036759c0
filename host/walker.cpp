#include "walker.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <unordered_map>

#include "context.h"
#include "native_gate.h"
#include "trace.h"
#include "tree.h"

namespace ocni::host {

namespace {

constexpr const char *NS_OC_NI = "http://openconfig.net/yang/network-instance";
constexpr const char *NS_OC_PT = "http://openconfig.net/yang/policy-types";
constexpr const char *NS_OPER = "urn:velmar:yang:private-ocni-local-routing-oper";

const std::string OC_NI = "/network-instances/network-instance";
const std::string OC_SR = OC_NI + "/protocols/protocol/static-routes";
const std::string OC_ST = OC_SR + "/static";

/* Routes per operational request of a state read. */
constexpr size_t STATE_BATCH = 1024;
/* Routes of an edit whose native output is applied together. */
constexpr size_t EDIT_BATCH = 1024;

bool is_delete(uint32_t op) { return op == YFW_DT_OP_DELETE || op == YFW_DT_OP_REMOVE; }

template <typename F> void for_children(const zidl_yfw_datatree *n, F f)
{
    if (n == nullptr || !(n->flags & YFW_DT_F_CHILDREN) || n->children == nullptr)
        return;
    for (uint32_t i = 0; i < n->n_children; ++i) {
        const zidl_yfw_datatree *c = &n->children[i];
        if (c->name == nullptr)
            break;
        f(c);
    }
}

const char *child_value(const zidl_yfw_datatree *n, const char *name)
{
    const char *v = nullptr;
    bool found = false;
    for_children(n, [&](const zidl_yfw_datatree *c) {
        if (!found && strcmp(c->name, name) == 0) {
            v = c->value;
            found = true;
        }
    });
    return v;
}

/* Splits "10.0.0.0/24" into a route key of `vrf`; false when it is not address/length. */
bool route_key_of(const std::string &vrf, const char *prefix, RouteKey &k)
{
    if (prefix == nullptr)
        return false;
    const char *slash = strchr(prefix, '/');
    if (slash == nullptr || slash == prefix || slash[1] == '\0')
        return false;
    k.vrf = is_default_vrf(vrf) ? std::string("default") : vrf;
    k.prefix.assign(prefix, slash);
    k.length = slash + 1;
    k.ipv4 = k.prefix.find(':') == std::string::npos;
    return true;
}

std::string underscored(std::string s)
{
    std::replace(s.begin(), s.end(), '/', '_');
    return s;
}

/* One request's store session; ended with the request when it began it. */
class Session {
public:
    Session(NativeConfig &c, bool write, WalkResult &r) : c_(c)
    {
        std::string err;
        if (!c_.begin(write, err, &began_)) {
            r.rc = SYSDB_RC_FAILED;
            r.message = "store: " + err;
        }
    }
    ~Session()
    {
        if (began_)
            c_.end();
    }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

private:
    NativeConfig &c_;
    bool began_ = false;
};

} // namespace

std::string rc_text(cerrno rc)
{
    char b[16];
    snprintf(b, sizeof b, "0x%08x", rc);
    return b;
}

/* State of one request: its contexts, the tree it builds and the walk position. */
struct Walker::Run {
    yfw_request *req = nullptr;
    yfw_req_ctx *rc = nullptr;
    yfw_map_ctx *ctx = nullptr;
    zidl_yfw_datatree *out = nullptr;
    const BindingIndex *idx = nullptr;
    const BindingIndex *state_idx = nullptr; /* forward state members, state reads only */
    Model model = Model::OpenConfigEdit;
    Family family = Family::Any; /* family of the static entry being walked */
    WalkResult fail;
    std::unordered_map<std::string, std::vector<std::string>> keys; /* list keys by list name */
    /* The same, by name pointer (host trees intern their names): name checked on a hit. */
    struct KeysSeen {
        std::string name;
        const std::vector<std::string> *keys;
    };
    std::unordered_map<const char *, KeysSeen> keys_by_ptr;
    /* Resolved callbacks, by position of their binding in the registration table. */
    const std::vector<void *> *syms = nullptr;
    /* Walk-order scratch per depth: child ranks. */
    std::vector<std::vector<uint8_t>> ranks;
    /* Edits: called after each static entry; false aborts the walk (fail set). */
    std::function<bool()> after_static;

    Run(uint32_t op_type, const WalkerOptions &opt)
    {
        req = request_new(op_type);
        rc = req ? req_ctx_new(req) : nullptr;
        ctx = rc ? map_ctx_new(rc) : nullptr;
        if (ctx != nullptr && opt.trace) {
            ctx->debug_state = DEBUG_ERR | DEBUG_TRC;
            ctx->ltrace_on = 1;
        }
    }
    ~Run()
    {
        map_ctx_free(ctx);
        req_ctx_free(rc);
        request_free(req);
    }
    bool ok() const { return ctx != nullptr; }

    const std::vector<std::string> &keys_of(const char *list)
    {
        auto seen = keys_by_ptr.find(list);
        if (seen != keys_by_ptr.end() && seen->second.name == list)
            return *seen->second.keys;
        auto it = keys.find(list);
        if (it == keys.end())
            it = keys.emplace(list, list_keys_of(list)).first;
        keys_by_ptr[list] = KeysSeen{list, &it->second};
        return it->second;
    }
    bool is_entry(const zidl_yfw_datatree *n)
    {
        return n->value == nullptr && (n->flags & YFW_DT_F_LIST) && !keys_of(n->name).empty();
    }
};

Walker::Walker(const Plugin &plugin, NativeConfig &config, WalkerOptions opt)
    : plugin_(plugin), config_(config), opt_(opt), oc_edit_(Model::OpenConfigEdit),
      oc_state_(Model::OpenConfigState), native_(Model::Native), oper_(Model::Operational)
{
    for (const Binding &b : registration_table())
        syms_.push_back(plugin_.symbol(b.callback));
}

Walker::~Walker() { tree_free(last_output_); }

namespace {

/* Forwards the lines of a finished request to the trace receiver. */
void flush_trace(const WalkerOptions &opt, yfw_map_ctx *ctx)
{
    if (opt.trace_line == nullptr || ctx == nullptr)
        return;
    for (const std::string &l :
         merged_texts({map_ctx_err_sink(ctx), map_ctx_trc_sink(ctx), map_ctx_ltrace_sink(ctx)}))
        opt.trace_line(l.c_str(), opt.trace_arg);
}

/* The recursive part of a walk, kept apart from the Walker's public interface. */
class Visitor {
public:
    using SNode = BindingIndex::Node;
    Visitor(Walker::Run &r, const Plugin &p) : r_(r), p_(p) {}

    /* `s` and `ss`: schema nodes of `n` in the run's index and state index (either may be NULL). */
    bool children(const zidl_yfw_datatree *n, std::string &path, bool only_keys, const SNode *s, const SNode *ss,
                  size_t depth);
    bool node(const zidl_yfw_datatree *n, std::string &path, const SNode *ps, const SNode *pss, size_t depth);

private:
    Walker::Run &r_;
    const Plugin &p_;

    static const SNode *below(const SNode *s, const char *name) { return s != nullptr ? s->child(name) : nullptr; }
    static unsigned subtrees_of(const zidl_yfw_datatree *n, const SNode *s, const SNode *ss)
    {
        unsigned count = 0;
        for_children(n, [&](const zidl_yfw_datatree *c) {
            if (below(s, c->name) != nullptr || below(ss, c->name) != nullptr)
                ++count;
        });
        return count;
    }
    int call(const Binding &b, const zidl_yfw_datatree *n, const SNode *s, const SNode *ss);
};

/* 0 done, 1 subtree not for this plug-in, -1 failure (recorded in the run). */
int Visitor::call(const Binding &b, const zidl_yfw_datatree *n, const SNode *s, const SNode *ss)
{
    if (b.kind == CallbackKind::Condition)
        return 0; /* the plug-in's own callbacks consult their condition tables */
    if (b.family != Family::Any && r_.family != Family::Any && b.family != r_.family)
        return 0;
    void *sym = r_.syms != nullptr ? (*r_.syms)[size_t(&b - registration_table().data())] : p_.symbol(b.callback);
    if (sym == nullptr)
        return 0;
    cerrno rc;
    if (b.kind == CallbackKind::Container)
        rc = reinterpret_cast<ContainerFn>(sym)(r_.ctx, n, subtrees_of(n, s, ss), r_.out);
    else
        rc = reinterpret_cast<LeafFn>(sym)(r_.ctx, n, r_.out);
    if (rc == 0)
        return 0;
    if (rc == YFW_RC_NOT_APPLICABLE)
        return 1;
    r_.fail.rc = rc;
    r_.fail.callback = b.callback;
    if (r_.rc->user_error_msg != nullptr)
        r_.fail.message = r_.rc->user_error_msg;
    const std::vector<std::string> &ep = req_error_paths(r_.rc);
    r_.fail.path = !ep.empty() && !ep.back().empty() ? ep.back() : node_instance_path(n);
    return -1;
}

bool Visitor::node(const zidl_yfw_datatree *n, std::string &path, const SNode *ps, const SNode *pss, size_t depth)
{
    const SNode *s = below(ps, n->name);
    const SNode *ss = below(pss, n->name);
    if (s == nullptr && ss == nullptr)
        return true;
    const size_t len = path.size();
    path += '/';
    path += n->name;
    struct Restore {
        std::string &p;
        size_t l;
        ~Restore() { p.resize(l); }
    } restore{path, len};

    const bool entry = r_.is_entry(n);
    const Family saved_family = r_.family;
    if (entry && r_.model == Model::OpenConfigEdit && strcmp(n->name, "network-instance") == 0)
        req_set_vrf(r_.rc, child_value(n, "name"));
    if (entry && r_.model == Model::Native && strcmp(n->name, "vrf") == 0)
        req_set_vrf(r_.rc, child_value(n, "vrf-name"));
    if (r_.model == Model::Native && strcmp(n->name, "default-vrf") == 0)
        req_set_vrf(r_.rc, "default");
    if (entry && strcmp(n->name, "static") == 0) {
        const char *pfx = child_value(n, "prefix");
        r_.family = pfx == nullptr ? Family::Any : strchr(pfx, ':') ? Family::IPv6 : Family::IPv4;
    }
    if (entry)
        req_push_input_entry(r_.rc, n);
    req_set_current_input(r_.rc, n);

    /* A static entry deleted without its prefix stands for every static route of its instance. */
    const bool whole_instance = entry && is_delete(n->op) && r_.model == Model::OpenConfigEdit &&
                                strcmp(n->name, "static") == 0 && child_value(n, "prefix") == nullptr;
    int res = 0;
    for (const SNode *at : {s, ss}) {
        if (at == nullptr)
            continue;
        for (const Binding *b : at->bindings) {
            const uint32_t saved_suppress = r_.rc->suppress_flag;
            if (whole_instance)
                r_.rc->suppress_flag = 1;
            res = call(*b, n, s, ss);
            if (whole_instance)
                r_.rc->suppress_flag = saved_suppress;
            if (res != 0)
                break;
        }
        if (res != 0)
            break;
    }
    bool ok = res >= 0;
    if (res == 0 && (n->flags & YFW_DT_F_CHILDREN)) {
        req_push_ancestor(r_.rc, path.c_str(), const_cast<zidl_yfw_datatree *>(n));
        /* Below a deleted entry only its keys are mapped: the entry's removal covers the rest. */
        ok = children(n, path, entry && is_delete(n->op), s, ss, depth + 1);
        req_pop_ancestor(r_.rc);
    }
    if (entry)
        req_pop_input_entry(r_.rc);
    r_.family = saved_family;
    if (ok && entry && r_.after_static && strcmp(n->name, "static") == 0)
        ok = r_.after_static();
    return ok;
}

/*
 * Children in walk order: the key leaves of an entry in key order, then
 * the other leaves, then "config" containers, then the other containers
 * and lists, each group in document order.
 */
bool Visitor::children(const zidl_yfw_datatree *n, std::string &path, bool only_keys, const SNode *s,
                       const SNode *ss, size_t depth)
{
    constexpr uint8_t SKIP = 0xff;
    const std::vector<std::string> *keys = r_.is_entry(n) ? &r_.keys_of(n->name) : nullptr;
    if (r_.ranks.size() <= depth)
        r_.ranks.resize(depth + 1);
    std::vector<uint8_t> &rank = r_.ranks[depth];
    rank.assign(n->n_children, SKIP);
    bool any_key = false;
    for (uint32_t i = 0; i < n->n_children; ++i) {
        const zidl_yfw_datatree *c = &n->children[i];
        if (c->name == nullptr)
            break;
        if (below(s, c->name) == nullptr && below(ss, c->name) == nullptr)
            continue; /* nothing bound at or below it */
        bool leaf = !(c->flags & YFW_DT_F_CHILDREN) && (c->value != nullptr || !r_.is_entry(c));
        bool key = false;
        if (keys && leaf)
            key = std::find(keys->begin(), keys->end(), c->name) != keys->end();
        if (only_keys && !key)
            continue;
        any_key = any_key || key;
        rank[i] = key ? 0 : leaf ? 1 : strcmp(c->name, "config") == 0 ? 2 : 3;
    }
    /* Key leaves in key order (a key given twice: document order). */
    if (any_key) {
        for (const std::string &k : *keys)
            for (uint32_t i = 0; i < n->n_children; ++i)
                if (r_.ranks[depth][i] == 0 && k == n->children[i].name && !node(&n->children[i], path, s, ss, depth))
                    return false;
    }
    for (uint8_t r = 1; r <= 3; ++r)
        for (uint32_t i = 0; i < n->n_children; ++i)
            if (r_.ranks[depth][i] == r && !node(&n->children[i], path, s, ss, depth))
                return false;
    return true;
}

} // namespace

WalkResult Walker::walk_tree(Run &run, const zidl_yfw_datatree *input_root, Model model)
{
    run.model = model;
    run.idx = model == Model::OpenConfigEdit ? &oc_edit_ : model == Model::Native ? &native_ : &oper_;
    run.fail = WalkResult{};
    run.syms = &syms_;
    Visitor v(run, plugin_);
    std::string path;
    path.reserve(256);
    v.children(input_root, path, false, run.idx->root(), run.state_idx ? run.state_idx->root() : nullptr, 0);
    return run.fail;
}

/* ---------------------------------------------------------------- */
/* Edits                                                              */
/* ---------------------------------------------------------------- */

namespace {

/* Finds or adds the child `name` of `parent` (a container). */
zidl_yfw_datatree *ensure_container(zidl_yfw_datatree *parent, const char *name, const char *ns)
{
    zidl_yfw_datatree *c = node_child(parent, name);
    return c != nullptr ? c : node_add_child(parent, name, NodeKind::Container, nullptr, ns);
}

/*
 * Rewrites deletes of whole subtrees into the entries they remove, so that
 * each native entry is removed by the callback that owns it:
 * - all static routes of an instance (the instance, its protocols, the
 *   STATIC protocol, static-routes): a static entry without prefix,
 *   deleted, which the static list maps to the removal of the instance's
 *   prefix lists;
 * - all instances: the same for every VRF holding routes;
 * - a route's next-hops container: every stored next hop, deleted by index;
 * - a route's config container: its set-tag and description;
 * - a next hop's interface-ref: its interface leaf.
 * Returns an error text for a delete the mapping cannot express.
 */
class DeleteExpander {
public:
    explicit DeleteExpander(const NativeConfig &c) : c_(c) {}
    std::string err;

    void root(zidl_yfw_datatree *root)
    {
        zidl_yfw_datatree *nis = node_child(root, "network-instances");
        if (nis == nullptr)
            return;
        if (is_delete(nis->op)) {
            node_set_op(nis, YFW_DT_OP_NONE);
            NodeRef nisr = node_ref(nis);
            for (const std::string &vrf : c_.vrfs_with_routes()) {
                zidl_yfw_datatree *ni =
                    node_add_entry(node_get(nisr), "network-instance", {{"name", vrf}}, NS_OC_NI);
                if (ni != nullptr)
                    delete_instance_routes(ni);
            }
            return;
        }
        for (size_t i = 0; i < nis->n_children && err.empty(); ++i) {
            zidl_yfw_datatree *ni = &node_get(node_ref(nis))->children[i];
            if (ni->name == nullptr || strcmp(ni->name, "network-instance") != 0)
                continue;
            instance(ni);
        }
    }

private:
    const NativeConfig &c_;

    void instance(zidl_yfw_datatree *ni)
    {
        const char *name = child_value(ni, "name");
        if (is_delete(ni->op)) {
            node_set_op(ni, YFW_DT_OP_NONE);
            if (name && has_routes(name))
                delete_instance_routes(ni);
            return;
        }
        zidl_yfw_datatree *ps = node_child(ni, "protocols");
        if (ps == nullptr)
            return;
        if (is_delete(ps->op)) {
            node_set_op(ps, YFW_DT_OP_NONE);
            if (name && has_routes(name))
                delete_instance_routes(ni);
            return;
        }
        NodeRef psr = node_ref(ps);
        for (size_t i = 0; i < node_get(psr)->n_children && err.empty(); ++i) {
            zidl_yfw_datatree *p = &node_get(psr)->children[i];
            if (p->name == nullptr || strcmp(p->name, "protocol") != 0)
                continue;
            const char *id = child_value(p, "identifier");
            if (id == nullptr || strcasecmp(id, "STATIC") != 0)
                continue;
            NodeRef pr = node_ref(p);
            zidl_yfw_datatree *sr = node_child(p, "static-routes");
            if (is_delete(node_get(pr)->op) || (sr != nullptr && is_delete(sr->op))) {
                node_set_op(node_get(pr), YFW_DT_OP_NONE);
                if (sr != nullptr)
                    node_set_op(sr, YFW_DT_OP_NONE);
                if (name && has_routes(name))
                    delete_instance_routes(node_get(node_ref(ni)));
                continue;
            }
            if (sr != nullptr)
                statics(sr, name ? name : "");
        }
    }

    bool has_routes(const std::string &vrf) const
    {
        for (const std::string &v : c_.vrfs_with_routes())
            if (v == vrf || (is_default_vrf(v) && is_default_vrf(vrf)))
                return true;
        return false;
    }

    /* network-instance/protocols/protocol[STATIC][DEFAULT]/static-routes/static (deleted, no prefix). */
    void delete_instance_routes(zidl_yfw_datatree *ni)
    {
        NodeRef nir = node_ref(ni);
        zidl_yfw_datatree *ps = ensure_container(node_get(nir), "protocols", NS_OC_NI);
        /* The instance's own protocol entry when the edit holds it, else a new one. */
        zidl_yfw_datatree *p = node_add_entry(ps, "protocol", {{"identifier", "STATIC"}, {"name", "DEFAULT"}}, NS_OC_NI);
        if (p == nullptr)
            return;
        if (zidl_yfw_datatree *id = node_child(p, "identifier"))
            node_set_data_ns(id, NS_OC_PT);
        zidl_yfw_datatree *sr = ensure_container(p, "static-routes", NS_OC_NI);
        const char *vrf = child_value(node_get(nir), "name");
        if (vrf != nullptr && is_default_vrf(vrf)) {
            /*
             * The static list maps a prefix-less delete of the default
             * instance to removals it adds while the suppression flag is
             * still set, so they would be dropped: delete route by route.
             */
            NodeRef srr = node_ref(sr);
            const std::string dflt = "default";
            std::string rerr;
            if (!c_.for_each_route(&dflt, nullptr, [&](const RouteKey &k, const Route &) {
                    zidl_yfw_datatree *st = node_add_entry(node_get(srr), "static", {{"prefix", k.prefix + "/" + k.length}},
                                                           NS_OC_NI);
                    if (st != nullptr)
                        node_set_op(st, YFW_DT_OP_DELETE);
                    return true;
                }, rerr))
                err = rerr;
            return;
        }
        zidl_yfw_datatree *st = node_add_child(sr, "static", NodeKind::Entry, nullptr, NS_OC_NI);
        if (st != nullptr)
            node_set_op(st, YFW_DT_OP_DELETE);
    }

    void statics(zidl_yfw_datatree *sr, const std::string &vrf)
    {
        NodeRef srr = node_ref(sr);
        for (size_t i = 0; i < node_get(srr)->n_children && err.empty(); ++i) {
            zidl_yfw_datatree *st = &node_get(srr)->children[i];
            if (st->name == nullptr || strcmp(st->name, "static") != 0 || is_delete(st->op))
                continue;
            NodeRef str = node_ref(st);
            const char *prefix = child_value(st, "prefix");
            if (zidl_yfw_datatree *cfg = node_child(st, "config"); cfg != nullptr && is_delete(cfg->op)) {
                node_set_op(cfg, YFW_DT_OP_NONE);
                NodeRef cr = node_ref(cfg);
                for (const char *leaf : {"set-tag", "description"}) {
                    zidl_yfw_datatree *l = node_child(node_get(cr), leaf);
                    if (l == nullptr)
                        l = node_add_child(node_get(cr), leaf, NodeKind::Leaf, nullptr, NS_OC_NI);
                    if (l != nullptr)
                        node_set_op(l, YFW_DT_OP_DELETE);
                }
            }
            zidl_yfw_datatree *nhs = node_child(node_get(str), "next-hops");
            if (nhs == nullptr)
                continue;
            if (is_delete(nhs->op)) {
                node_set_op(nhs, YFW_DT_OP_NONE);
                RouteKey k;
                Route r;
                if (!route_key_of(vrf, prefix, k) || !c_.find_route(k, r))
                    continue;
                NodeRef nhsr = node_ref(nhs);
                for (const auto &nh : r.next_hops) {
                    zidl_yfw_datatree *e = node_add_entry(node_get(nhsr), "next-hop",
                                                          {{"index", nh_openconfig_index(nh.first, nh.second)}},
                                                          NS_OC_NI);
                    if (e != nullptr)
                        node_set_op(e, YFW_DT_OP_DELETE);
                }
                continue;
            }
            next_hops(nhs);
        }
    }

    void next_hops(zidl_yfw_datatree *nhs)
    {
        NodeRef nhsr = node_ref(nhs);
        for (size_t i = 0; i < node_get(nhsr)->n_children && err.empty(); ++i) {
            zidl_yfw_datatree *nh = &node_get(nhsr)->children[i];
            if (nh->name == nullptr || strcmp(nh->name, "next-hop") != 0 || is_delete(nh->op))
                continue;
            NodeRef nhr = node_ref(nh);
            if (zidl_yfw_datatree *cfg = node_child(nh, "config"); cfg != nullptr && is_delete(cfg->op)) {
                err = "deleting the config container of a next hop is not supported: delete the next hop, "
                      "or its leaves one by one";
                return;
            }
            zidl_yfw_datatree *ir = node_child(node_get(nhr), "interface-ref");
            if (ir == nullptr)
                continue;
            zidl_yfw_datatree *ic = node_child(ir, "config");
            if (is_delete(ir->op) || (ic != nullptr && is_delete(ic->op))) {
                node_set_op(ir, YFW_DT_OP_NONE);
                NodeRef irr = node_ref(ir);
                if (ic != nullptr)
                    node_set_op(ic, YFW_DT_OP_NONE);
                ic = ensure_container(node_get(irr), "config", NS_OC_NI);
                zidl_yfw_datatree *l = node_child(ic, "interface");
                if (l == nullptr)
                    l = node_add_child(ic, "interface", NodeKind::Leaf, nullptr, NS_OC_NI);
                if (l != nullptr)
                    node_set_op(l, YFW_DT_OP_DELETE);
            }
        }
    }
};

/* Network instances of an edit that carry their own config/name: the VRFs it creates. */
std::vector<std::string> vrfs_named(const zidl_yfw_datatree *root)
{
    std::vector<std::string> out;
    for_children(node_child(root, "network-instances"), [&](const zidl_yfw_datatree *ni) {
        if (strcmp(ni->name, "network-instance") != 0 || is_delete(ni->op))
            return;
        const zidl_yfw_datatree *cfg = node_child(ni, "config");
        const char *name = cfg ? child_value(cfg, "name") : nullptr;
        if (name != nullptr && *name != '\0' && !is_default_vrf(name))
            out.push_back(name);
    });
    return out;
}

/* The native gate over a native tree; a refusal is the user's input, named as they wrote it. */
bool gate_passes(const zidl_yfw_datatree *tree, const GateContext &gc, bool openconfig, WalkResult &r)
{
    GateFault f;
    if (gate_native_tree(tree, gc, f))
        return true;
    r = WalkResult{};
    r.rc = YFW_RC_INVALID_REQUEST;
    r.message = openconfig ? f.openconfig_sentence() : f.sentence() + " (at " + f.native_path + ")";
    r.bad_input = true;
    return false;
}

} // namespace

EditOutcome Walker::edit(zidl_yfw_datatree *input, bool dry_run)
{
    bool given = false;
    return edit_parts([&](zidl_yfw_datatree *&part, std::string &) {
        part = given ? nullptr : input;
        given = true;
        return true;
    }, dry_run);
}

EditOutcome Walker::edit_parts(const PartSource &next_part, bool dry_run)
{
    EditOutcome o;
    tree_free(last_output_);
    last_output_ = nullptr;
    Session session(config_, true, o.result);
    if (!o.result.ok())
        return o;
    /*
     * The native output is applied to the configuration a batch of routes
     * at a time (the store sees it only at the commit below), so the output
     * tree stays small whatever the size of the edit; the input comes a
     * part at a time for the same reason.
     */
    std::string err;
    size_t statics = 0;
    bool misfit = false;
    std::vector<std::string> created;
    GateContext known;
    known.vrf_known = [&](const std::string &v) {
        return config_.vrf_known(v) || std::find(created.begin(), created.end(), v) != created.end();
    };
    known.config = &config_;
    WalkResult refused;
    for (;;) {
        zidl_yfw_datatree *input = nullptr;
        std::string why;
        if (!next_part(input, why)) {
            config_.rollback();
            o.result.rc = YFW_RC_NO_MEMORY;
            o.result.message = why;
            return o;
        }
        if (input == nullptr)
            break;
        {
            DeleteExpander ex(config_);
            ex.root(input);
            if (!ex.err.empty()) {
                config_.rollback();
                o.result.rc = YFW_RC_INVALID_REQUEST;
                o.result.message = ex.err;
                return o;
            }
        }
        for (const std::string &v : vrfs_named(input))
            if (std::find(created.begin(), created.end(), v) == created.end())
                created.push_back(v);
        Run run(YFW_REQ_EDIT, opt_);
        run.out = tree_new();
        if (!run.ok() || run.out == nullptr) {
            tree_free(run.out);
            config_.rollback();
            o.result.rc = YFW_RC_NO_MEMORY;
            o.result.message = "out of memory";
            return o;
        }
        run.after_static = [&]() {
            if (++statics % EDIT_BATCH != 0)
                return true;
            if (!gate_passes(run.out, known, true, refused)) {
                run.fail.rc = refused.rc;
                return false;
            }
            if (!config_.apply(run.out, o.changes, err)) {
                misfit = true;
                run.fail.rc = YFW_RC_MAP_FAILED;
                return false;
            }
            tree_free(run.out);
            run.out = tree_new();
            /* Nothing may point into the output tree just freed. */
            run.rc->current_list = nullptr;
            if (run.out == nullptr) {
                run.fail.rc = YFW_RC_NO_MEMORY;
                run.fail.message = "out of memory";
                return false;
            }
            if (opt_.progress)
                opt_.progress(statics);
            return true;
        };
        o.result = walk_tree(run, input, Model::OpenConfigEdit);
        if (misfit)
            o.result.rc = YFW_RC_MAP_FAILED;
        flush_trace(opt_, run.ctx);
        tree_free(last_output_);
        last_output_ = run.out;
        if (o.result.ok())
            gate_passes(run.out, known, true, refused);
        if (refused.bad_input)
            o.result = refused;
        else if (o.result.ok() && !config_.apply(run.out, o.changes, err))
            misfit = true;
        if (misfit && config_.store_fault()) {
            o.result.rc = SYSDB_RC_FAILED;
            o.result.message = "store: " + err;
        } else if (misfit) {
            o.result.rc = YFW_RC_MAP_FAILED;
            o.result.message = "the native result does not fit the native model: " + err;
        }
        if (!o.result.ok()) {
            config_.rollback();
            o.changes.clear();
            return o;
        }
    }
    for (const std::string &v : created)
        if (config_.add_vrf(v, o.changes))
            o.vrfs_created.push_back(v);
    o.counts = config_.counts();
    if (opt_.progress)
        opt_.progress(statics);
    if (opt_.before_end)
        opt_.before_end(config_);
    if (dry_run) {
        config_.rollback();
        return o;
    }
    if (!config_.commit(err)) {
        o.result.rc = SYSDB_RC_FAILED;
        o.result.message = "store: " + err;
    }
    return o;
}

EditOutcome Walker::native_edit(const zidl_yfw_datatree *input, bool dry_run, bool trusted)
{
    EditOutcome o;
    Session session(config_, true, o.result);
    if (!o.result.ok())
        return o;
    std::string err;
    GateContext known;
    known.vrf_known = [&](const std::string &v) { return config_.vrf_known(v); };
    if (!trusted && !gate_passes(input, known, false, o.result))
        return o;
    if (!config_.apply(input, o.changes, err)) {
        config_.rollback();
        o.result.rc = config_.store_fault() ? SYSDB_RC_FAILED : YFW_RC_INVALID_REQUEST;
        o.result.message = config_.store_fault() ? "store: " + err : err;
        return o;
    }
    o.counts = config_.counts();
    if (opt_.before_end)
        opt_.before_end(config_);
    if (dry_run) {
        config_.rollback();
        return o;
    }
    if (!config_.commit(err)) {
        o.result.rc = SYSDB_RC_FAILED;
        o.result.message = "store: " + err;
    }
    return o;
}

zidl_yfw_datatree *Walker::native_tree()
{
    WalkResult r;
    Session session(config_, false, r);
    return r.ok() ? config_.to_tree() : nullptr;
}

/* ---------------------------------------------------------------- */
/* Reads                                                              */
/* ---------------------------------------------------------------- */

namespace {

/*
 * The routes a read request selects: the native request tree the
 * edit-direction callbacks built in read mode names VRF bodies, families
 * and prefix entries; an entry without keys (or a family without
 * entries) stands for all prefixes below it.
 */
/* The selectors of the native request a filtered read's walk produced. */
void selectors_of(const zidl_yfw_datatree *req, std::vector<Selector> &out)
{
    auto family = [&](const zidl_yfw_datatree *af, const std::string &vrf, bool v4) {
        bool all = true;
        const zidl_yfw_datatree *ps = node_child(node_child(af, "vrf-unicast"), "vrf-prefixes");
        for_children(ps, [&](const zidl_yfw_datatree *e) {
            const char *p = child_value(e, "prefix");
            const char *l = child_value(e, "prefix-length");
            if (p && l && *p && *l) {
                all = false;
                out.push_back(Selector{vrf, v4, false, p, atoi(l)});
            }
        });
        if (all)
            out.push_back(Selector{vrf, v4, true, {}, 0});
    };
    auto body = [&](const zidl_yfw_datatree *b, const std::string &vrf) {
        const zidl_yfw_datatree *af = node_child(b, "address-family");
        const zidl_yfw_datatree *v4 = node_child(af, "vrfipv4");
        const zidl_yfw_datatree *v6 = node_child(af, "vrfipv6");
        if (v4)
            family(v4, vrf, true);
        if (v6)
            family(v6, vrf, false);
    };
    const zidl_yfw_datatree *rs = node_child(req, "router-static");
    if (const zidl_yfw_datatree *d = node_child(rs, "default-vrf"))
        body(d, "default");
    for_children(node_child(rs, "vrfs"), [&](const zidl_yfw_datatree *v) {
        const char *name = child_value(v, "vrf-name");
        if (name != nullptr)
            body(v, name);
    });
}

/* Visits the stored routes a selector selects, in store order; a prefix is compared by meaning. */
bool visit_selected(const NativeConfig &c, const Selector &s, const NativeConfig::RouteVisitor &fn, std::string &err)
{
    if (s.whole)
        return c.for_each_route(&s.vrf, &s.ipv4, fn, err);
    return c.for_each_same_prefix(s.vrf, s.ipv4, s.prefix, s.length, fn, err);
}

/* OpenConfig request for one instance (and prefix): what a filtered read asks for. */
zidl_yfw_datatree *filter_request(const std::string &vrf, const std::string &prefix)
{
    zidl_yfw_datatree *root = tree_new();
    if (root == nullptr)
        return nullptr;
    zidl_yfw_datatree *nis = node_add_child(root, "network-instances", NodeKind::Container, nullptr, NS_OC_NI);
    zidl_yfw_datatree *ni = node_add_entry(nis, "network-instance", {{"name", vrf}}, NS_OC_NI);
    zidl_yfw_datatree *ps = node_add_child(ni, "protocols", NodeKind::Container, nullptr, NS_OC_NI);
    zidl_yfw_datatree *p = node_add_entry(ps, "protocol", {{"identifier", "STATIC"}, {"name", "DEFAULT"}}, NS_OC_NI);
    if (zidl_yfw_datatree *id = node_child(p, "identifier"))
        node_set_data_ns(id, NS_OC_PT);
    zidl_yfw_datatree *sr = node_add_child(p, "static-routes", NodeKind::Container, nullptr, NS_OC_NI);
    if (prefix.empty())
        node_add_child(sr, "static", NodeKind::Entry, nullptr, NS_OC_NI);
    else
        node_add_entry(sr, "static", {{"prefix", prefix}}, NS_OC_NI);
    return root;
}

/* A static entry of the configuration just read, with its instance. */
struct StaticOfRead {
    std::string vrf;
    NodeRef entry;
};

/* Every static entry of the STATIC protocol of every instance, in tree order. */
std::vector<StaticOfRead> statics_of(const zidl_yfw_datatree *config)
{
    std::vector<StaticOfRead> out;
    for_children(node_child(config, "network-instances"), [&](const zidl_yfw_datatree *ni) {
        const char *name = child_value(ni, "name");
        for_children(node_child(ni, "protocols"), [&](const zidl_yfw_datatree *p) {
            const char *id = child_value(p, "identifier");
            if (name == nullptr || id == nullptr || strcasecmp(id, "STATIC") != 0)
                return;
            for_children(node_child(p, "static-routes"), [&](const zidl_yfw_datatree *st) {
                if (strcmp(st->name, "static") == 0 && child_value(st, "prefix") != nullptr)
                    out.push_back(StaticOfRead{name, node_ref(st)});
            });
        });
    });
    return out;
}

/*
 * The state request for statics [from, to): the static entries and their
 * next hops, by their keys only.
 */
zidl_yfw_datatree *state_request(const std::vector<StaticOfRead> &statics, size_t from, size_t to)
{
    zidl_yfw_datatree *root = tree_new();
    if (root == nullptr)
        return nullptr;
    NodeRef rnis = node_ref(node_add_child(root, "network-instances", NodeKind::Container, nullptr, NS_OC_NI));
    NodeRef rsr;
    std::string cur_vrf;
    for (size_t i = from; i < to; ++i) {
        const zidl_yfw_datatree *st = node_get(statics[i].entry);
        if (st == nullptr)
            continue;
        if (!rsr || statics[i].vrf != cur_vrf) {
            cur_vrf = statics[i].vrf;
            zidl_yfw_datatree *ni = node_add_entry(node_get(rnis), "network-instance", {{"name", cur_vrf}}, NS_OC_NI);
            NodeRef rni = node_ref(ni);
            NodeRef rps = node_ref(node_add_child(node_get(rni), "protocols", NodeKind::Container, nullptr, NS_OC_NI));
            zidl_yfw_datatree *rp = node_add_entry(node_get(rps), "protocol",
                                                   {{"identifier", "STATIC"}, {"name", "DEFAULT"}}, NS_OC_NI);
            if (zidl_yfw_datatree *id = node_child(rp, "identifier"))
                node_set_data_ns(id, NS_OC_PT);
            NodeRef rpr = node_ref(rp);
            rsr = node_ref(ensure_container(node_get(rpr), "static-routes", NS_OC_NI));
        }
        NodeRef rst =
            node_ref(node_add_entry(node_get(rsr), "static", {{"prefix", child_value(st, "prefix")}}, NS_OC_NI));
        const zidl_yfw_datatree *nhs = node_child(node_get(statics[i].entry), "next-hops");
        if (nhs == nullptr)
            continue;
        NodeRef rnhs = node_ref(node_add_child(node_get(rst), "next-hops", NodeKind::Container, nullptr, NS_OC_NI));
        for_children(nhs, [&](const zidl_yfw_datatree *nh) {
            const char *index = child_value(nh, "index");
            if (index != nullptr)
                node_add_entry(node_get(rnhs), "next-hop", {{"index", index}}, NS_OC_NI);
        });
    }
    return root;
}

/* Adds a leaf under `parent` when `value` is set. */
void leaf(NodeRef parent, const char *name, const std::string *value)
{
    if (value != nullptr)
        node_add_child(node_get(parent), name, NodeKind::Leaf, value->c_str(), NS_OPER);
}

/*
 * The router's operational answer to an operational request: every route
 * the request names (every route of the instance and family when it names
 * no prefix) with its state, from the installed (= configured) routes.
 */
zidl_yfw_datatree *operational_answer(const NativeConfig &c, const zidl_yfw_datatree *request)
{
    /* (family, vrf) -> prefixes asked for; an empty set asks for all. */
    std::map<std::pair<bool, std::string>, std::set<std::string>> asked;
    std::set<std::pair<bool, std::string>> all;
    const zidl_yfw_datatree *ocni = node_child(request, "ocni");
    for (bool v4 : {true, false}) {
        const zidl_yfw_datatree *af = node_child(ocni, v4 ? "vrfipv4" : "vrfipv6");
        for_children(node_child(af, "network-instances"), [&](const zidl_yfw_datatree *ni) {
            const char *name = child_value(ni, "name");
            std::string vrf = name ? (is_default_vrf(name) ? "default" : name) : "default";
            auto &set = asked[{v4, vrf}];
            const zidl_yfw_datatree *sr = node_child(node_child(node_child(ni, "protocols"), "protocol"),
                                                     "static-routes");
            bool any = false;
            for_children(sr, [&](const zidl_yfw_datatree *rt) {
                if (strcmp(rt->name, "static-route") != 0)
                    return;
                any = true;
                const char *p = child_value(rt, "prefix");
                if (p == nullptr || *p == '\0')
                    all.insert({v4, vrf});
                else
                    set.insert(p);
            });
            if (!any)
                all.insert({v4, vrf});
        });
    }
    zidl_yfw_datatree *root = tree_new();
    if (root == nullptr)
        return nullptr;
    NodeRef top = node_ref(node_add_child(root, "ocni", NodeKind::Container, nullptr, NS_OPER));
    NodeRef fam[2];
    for (const auto &a : asked) {
        const bool v4 = a.first.first;
        const std::string &vrf = a.first.second;
        std::vector<std::pair<RouteKey, Route>> routes;
        std::string err;
        if (all.count(a.first)) {
            c.for_each_route(&vrf, &v4, [&](const RouteKey &k, const Route &r) {
                routes.emplace_back(k, r);
                return true;
            }, err);
        } else {
            for (const std::string &p : a.second) {
                RouteKey k;
                Route r;
                if (!route_key_of(vrf, p.c_str(), k) || k.ipv4 != v4)
                    continue;
                if (c.find_route(k, r))
                    routes.emplace_back(std::move(k), std::move(r));
            }
        }
        if (routes.empty())
            continue;
        NodeRef &f = fam[v4 ? 0 : 1];
        if (!f) {
            NodeRef af = node_ref(node_add_child(node_get(top), v4 ? "vrfipv4" : "vrfipv6", NodeKind::Container,
                                                 nullptr, NS_OPER));
            f = node_ref(node_add_child(node_get(af), "network-instances", NodeKind::Container, nullptr, NS_OPER));
        }
        NodeRef ni = node_ref(node_add_entry(node_get(f), "network-instance", {{"name", vrf}}, NS_OPER));
        NodeRef ps = node_ref(node_add_child(node_get(ni), "protocols", NodeKind::Container, nullptr, NS_OPER));
        NodeRef p = node_ref(node_add_child(node_get(ps), "protocol", NodeKind::Container, nullptr, NS_OPER));
        NodeRef sr = node_ref(node_add_child(node_get(p), "static-routes", NodeKind::Container, nullptr, NS_OPER));
        for (const auto &rt : routes) {
            const std::string key = underscored(rt.first.prefix + "/" + rt.first.length);
            NodeRef e = node_ref(node_add_entry(node_get(sr), "static-route", {{"prefix", key}}, NS_OPER));
            /* Route-wide values come from the next hops; the last one that carries them stands. */
            const std::string *tag = nullptr, *desc = nullptr;
            for (const auto &nh : rt.second.next_hops) {
                auto t = nh.second.find("tag");
                if (t != nh.second.end())
                    tag = &t->second;
                auto d = nh.second.find("description");
                if (d != nh.second.end())
                    desc = &d->second;
            }
            NodeRef srs = node_ref(
                node_add_child(node_get(e), "static-routes-state", NodeKind::Container, nullptr, NS_OPER));
            leaf(srs, "prefix", &key);
            leaf(srs, "set-tag", tag);
            leaf(srs, "description", desc);
            if (rt.second.next_hops.empty())
                continue;
            NodeRef nhs = node_ref(node_add_child(node_get(e), "next-hops", NodeKind::Container, nullptr, NS_OPER));
            std::set<std::string> used; /* an index two next hops carry names the first; the second its own */
            for (const auto &nh : rt.second.next_hops) {
                const NhKey &k = nh.first;
                std::string oc_index = nh_openconfig_index(k, nh.second);
                if (!used.insert(oc_index).second)
                    oc_index = nh_openconfig_index(k, NhLeaves{});
                const std::string index = underscored(oc_index);
                NodeRef n = node_ref(node_add_entry(node_get(nhs), "next-hop", {{"index", index}}, NS_OPER));
                NodeRef st = node_ref(node_add_child(node_get(n), "state", NodeKind::Container, nullptr, NS_OPER));
                leaf(st, "index", &index);
                std::string hop = k.table == NhTable::Interface ? (k.interface == "Null0" ? "DROP" : "LOCAL_LINK")
                                                                  : k.address;
                leaf(st, "next-hop", &hop);
                auto m = nh.second.find("metric");
                leaf(st, "metric", m != nh.second.end() ? &m->second : nullptr);
                if (k.table != NhTable::Address && k.interface != "Null0") {
                    size_t dot = k.interface.find('.');
                    std::string ifname = underscored(k.interface.substr(0, dot));
                    std::string sub = dot == std::string::npos || dot + 1 == k.interface.size()
                                          ? std::string("0")
                                          : k.interface.substr(dot + 1);
                    NodeRef ir = node_ref(
                        node_add_child(node_get(n), "interface-ref", NodeKind::Container, nullptr, NS_OPER));
                    NodeRef irs =
                        node_ref(node_add_child(node_get(ir), "state", NodeKind::Container, nullptr, NS_OPER));
                    leaf(irs, "interface", &ifname);
                    leaf(irs, "subinterface", &sub);
                }
                auto b = nh.second.find("bfd-fast-detect");
                if (b != nh.second.end()) {
                    NodeRef eb = node_ref(
                        node_add_child(node_get(n), "enable-bfd", NodeKind::Container, nullptr, NS_OPER));
                    NodeRef ebs =
                        node_ref(node_add_child(node_get(eb), "state", NodeKind::Container, nullptr, NS_OPER));
                    leaf(ebs, "enabled", &b->second);
                }
            }
        }
    }
    return root;
}

} // namespace

/*
 * The routes a filtered read selects: the edit-direction callbacks in read
 * mode name the native paths the filter asks for.
 */
WalkResult Walker::select(const ReadRequest &req, std::vector<Selector> &sels)
{
    WalkResult res;
    std::vector<std::string> vrfs;
    if (!req.vrf.empty())
        vrfs.push_back(req.vrf);
    else
        vrfs = config_.vrfs_with_routes();
    for (const std::string &vrf : vrfs) {
        zidl_yfw_datatree *rq = filter_request(vrf, req.prefix);
        Run run(YFW_REQ_READ, opt_);
        run.out = tree_new();
        if (rq == nullptr || !run.ok() || run.out == nullptr) {
            tree_free(rq);
            tree_free(run.out);
            res.rc = YFW_RC_NO_MEMORY;
            res.message = "out of memory";
            return res;
        }
        res = walk_tree(run, rq, Model::OpenConfigEdit);
        flush_trace(opt_, run.ctx);
        if (res.ok())
            selectors_of(run.out, sels);
        tree_free(rq);
        tree_free(run.out);
        if (!res.ok())
            return res;
    }
    return res;
}

WalkResult Walker::select(const ReadRequest &req, std::set<RouteKey> &sel)
{
    std::vector<Selector> sels;
    WalkResult res = select(req, sels);
    std::string err;
    for (const Selector &s : sels) {
        if (!res.ok())
            break;
        visit_selected(config_, s, [&](const RouteKey &k, const Route &) {
            sel.insert(k);
            return true;
        }, err);
        if (!err.empty()) {
            res.rc = SYSDB_RC_FAILED;
            res.message = err;
        }
    }
    return res;
}

WalkResult Walker::read(const ReadRequest &req, zidl_yfw_datatree **out)
{
    *out = nullptr;
    WalkResult res;
    Session session(config_, false, res);
    if (!res.ok())
        return res;
    zidl_yfw_datatree *native = nullptr;
    if (req.vrf.empty() && req.prefix.empty()) {
        native = config_.to_tree();
    } else {
        std::set<RouteKey> sel;
        res = select(req, sel);
        if (!res.ok())
            return res;
        native = config_.to_tree(&sel);
    }
    return map_native(req, native, out);
}

namespace {

/* Routes gathered for one batch, handed on when full (and at the end). */
struct Batcher {
    size_t size;
    std::function<bool(const NativeConfig::RouteList &)> flush;
    NativeConfig::RouteList routes;
    bool add(const RouteKey &k, const Route &r)
    {
        routes.emplace_back(k, r);
        if (routes.size() < size)
            return true;
        bool go_on = flush(routes);
        routes.clear();
        return go_on;
    }
    bool finish() { return routes.empty() || flush(routes); }
};

} // namespace

WalkResult Walker::read_batches(const ReadRequest &req, size_t batch, const TreeSink &sink, bool native_only)
{
    WalkResult res;
    Session session(config_, false, res);
    if (!res.ok())
        return res;
    bool sink_stopped = false;
    size_t done_routes = 0;
    Batcher b{batch == 0 ? 1 : batch, [&](const NativeConfig::RouteList &routes) {
                  done_routes += routes.size();
                  if (opt_.progress)
                      opt_.progress(done_routes);
                  zidl_yfw_datatree *native = config_.tree_of(routes);
                  zidl_yfw_datatree *result = nullptr;
                  if (native_only) {
                      if (native == nullptr) {
                          res.rc = YFW_RC_NO_MEMORY;
                          res.message = "out of memory";
                          return false;
                      }
                      result = native;
                  } else {
                      res = map_native(req, native, &result);
                      if (!res.ok())
                          return false;
                  }
                  bool go_on = sink(result);
                  tree_free(result);
                  sink_stopped = !go_on;
                  return go_on;
              }, {}};
    /*
     * Batches follow the whole tree's order: its default VRF container sits
     * where the store's first route of that VRF put it, before or after all
     * the named VRFs (a native document prints it first).
     */
    std::string err;
    bool done = true;
    if (native_only || (req.vrf.empty() && req.prefix.empty())) {
        std::vector<std::string> vrfs = config_.vrfs_with_routes();
        auto def = std::find_if(vrfs.begin(), vrfs.end(), [](const std::string &v) { return is_default_vrf(v); });
        if (def != vrfs.end() && (native_only || def == vrfs.begin()))
            std::rotate(vrfs.begin(), def, def + 1);
        else if (def != vrfs.end())
            std::rotate(def, def + 1, vrfs.end());
        for (const std::string &vrf : vrfs) {
            done = config_.for_each_route(&vrf, nullptr, [&](const RouteKey &k, const Route &r) { return b.add(k, r); },
                                          err);
            if (!done)
                break;
        }
    } else {
        /*
         * Selected routes stream from the store by seek, in store order: the
         * VRFs in order of their names, the default one first when its name
         * comes first among the VRFs with a selected route, else last.
         */
        std::vector<Selector> sels;
        res = select(req, sels);
        if (!res.ok())
            return res;
        std::stable_sort(sels.begin(), sels.end(), [](const Selector &a, const Selector &x) {
            return a.vrf != x.vrf ? a.vrf < x.vrf : a.ipv4 && !x.ipv4;
        });
        auto any = [&](const Selector &s) {
            bool found = false;
            visit_selected(config_, s, [&](const RouteKey &, const Route &) { return !(found = true); }, err);
            return found;
        };
        const Selector *first = nullptr;
        for (const Selector &s : sels)
            if (any(s)) {
                first = &s;
                break;
            }
        const bool default_first = first != nullptr && is_default_vrf(first->vrf);
        for (bool default_pass : {default_first, !default_first}) {
            for (const Selector &s : sels) {
                if (is_default_vrf(s.vrf) != default_pass)
                    continue;
                done = visit_selected(config_, s, [&](const RouteKey &k, const Route &r) { return b.add(k, r); }, err);
                if (!done)
                    break;
            }
            if (!done)
                break;
        }
        if (err.empty() && !config_.read_error().empty())
            err = config_.read_error();
    }
    if (done)
        done = b.finish();
    if (res.ok() && !sink_stopped && (!done || !err.empty())) {
        res.rc = SYSDB_RC_FAILED;
        res.message = "store: " + (err.empty() ? config_.read_error() : err);
    }
    if (res.ok() && sink_stopped)
        res.rc = YFW_RC_MAP_FAILED;
    return res;
}

/* The read-direction (and, for state, operational) callbacks over `native`, which is freed. */
WalkResult Walker::map_native(const ReadRequest &req, zidl_yfw_datatree *native, zidl_yfw_datatree **out)
{
    *out = nullptr;
    const uint32_t op_type = req.state ? YFW_REQ_READ_STATE : YFW_REQ_READ;
    WalkResult res;
    if (native == nullptr) {
        res.rc = config_.read_error().empty() ? YFW_RC_NO_MEMORY : SYSDB_RC_FAILED;
        res.message = config_.read_error().empty() ? "out of memory" : "store: " + config_.read_error();
        return res;
    }

    /* 2. The read-direction callbacks over the native tree. */
    zidl_yfw_datatree *result = tree_new();
    {
        Run run(op_type, opt_);
        run.out = result;
        if (!run.ok() || result == nullptr) {
            tree_free(native);
            tree_free(result);
            res.rc = YFW_RC_NO_MEMORY;
            res.message = "out of memory";
            return res;
        }
        res = walk_tree(run, native, Model::Native);
        flush_trace(opt_, run.ctx);
    }
    tree_free(native);
    if (!res.ok() || !req.state) {
        if (!res.ok()) {
            tree_free(result);
            return res;
        }
        *out = result;
        return res;
    }

    /*
     * 3. State: the operational request, the router's answer, the reverse
     * callbacks; a batch of routes at a time, so that the intermediate
     * trees stay small whatever the number of routes.
     */
    const std::vector<StaticOfRead> statics = statics_of(result);
    for (size_t from = 0; from < statics.size() && res.ok(); from += STATE_BATCH) {
        const size_t to = std::min(statics.size(), from + STATE_BATCH);
        zidl_yfw_datatree *srq = state_request(statics, from, to);
        zidl_yfw_datatree *oper_req = tree_new();
        zidl_yfw_datatree *answer = nullptr;
        {
            Run run(YFW_REQ_READ_STATE, opt_);
            run.out = oper_req;
            run.state_idx = &oc_state_;
            /* The configuration came with the read before: this request selects state only. */
            if (run.req != nullptr) {
                request_set_marker(run.req, Marker::W7F0_BIT15);
                request_set_mode(run.req, YFW_REQ_MODE_SELECTED);
            }
            if (srq != nullptr && oper_req != nullptr && run.ok()) {
                res = walk_tree(run, srq, Model::OpenConfigEdit);
                flush_trace(opt_, run.ctx);
            } else {
                res.rc = YFW_RC_NO_MEMORY;
            }
        }
        tree_free(srq);
        if (res.ok())
            answer = operational_answer(config_, oper_req);
        tree_free(oper_req);
        if (res.ok() && answer != nullptr) {
            Run run(YFW_REQ_READ_STATE, opt_);
            run.out = result;
            if (run.ok()) {
                res = walk_tree(run, answer, Model::Operational);
                flush_trace(opt_, run.ctx);
            } else {
                res.rc = YFW_RC_NO_MEMORY;
            }
        } else if (res.ok()) {
            res.rc = YFW_RC_NO_MEMORY;
        }
        tree_free(answer);
    }
    if (!res.ok()) {
        if (res.message.empty() && res.rc == YFW_RC_NO_MEMORY)
            res.message = "out of memory";
        tree_free(result);
        return res;
    }
    *out = result;
    return res;
}

} // namespace ocni::host
