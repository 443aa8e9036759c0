/*
 * NETCONF edit operations against the engine: read the stored
 * configuration of the routes an operation names, check create and
 * delete against it, turn replace into removals of what the new content
 * leaves out, and apply removals before the merge.
 */
#include "edit_ops.h"

#include <cstring>
#include <set>

#include <libyang/libyang.h>

namespace ocni::server {

namespace {

using tool::Outcome;
using tool::ReadFilter;

enum class NodeOp { kInherit, kMerge, kReplace, kCreate, kDelete, kRemove, kNone };

NodeOp explicit_op(const lyd_node *n, const lys_module *nc)
{
    if (nc == nullptr)
        return NodeOp::kInherit;
    const lyd_meta *m = lyd_find_meta(n->meta, nc, "operation");
    if (m == nullptr)
        return NodeOp::kInherit;
    const char *v = lyd_get_meta_value(m);
    static const struct {
        const char *name;
        NodeOp op;
    } kOps[] = {{"merge", NodeOp::kMerge},   {"replace", NodeOp::kReplace}, {"create", NodeOp::kCreate},
                {"delete", NodeOp::kDelete}, {"remove", NodeOp::kRemove},   {"none", NodeOp::kNone}};
    for (const auto &o : kOps)
        if (strcmp(v, o.name) == 0)
            return o.op;
    return NodeOp::kInherit;
}

bool is_list(const lyd_node *n, const char *name)
{
    return n->schema != nullptr && n->schema->nodetype == LYS_LIST && strcmp(n->schema->name, name) == 0;
}

bool is_key(const lyd_node *n)
{
    return n->schema != nullptr && (n->schema->flags & LYS_KEY);
}

std::string key_value(const lyd_node *entry, const char *key)
{
    for (const lyd_node *c = lyd_child(entry); c != nullptr && is_key(c); c = c->next)
        if (strcmp(c->schema->name, key) == 0)
            return lyd_get_value(c);
    return "";
}

/* config/prefix under static[prefix]: the copy of a list key that every config container repeats. */
bool is_key_mirror(const lyd_node *n)
{
    const lyd_node *config = lyd_parent(n);
    if (config == nullptr || strcmp(LYD_NAME(config), "config") != 0 || lyd_parent(config) == nullptr)
        return false;
    const lysc_node *list = lyd_parent(config)->schema;
    if (list == nullptr || list->nodetype != LYS_LIST)
        return false;
    for (const lysc_node *k = lysc_node_child(list); k != nullptr && (k->flags & LYS_KEY); k = k->next)
        if (strcmp(k->name, LYD_NAME(n)) == 0)
            return true;
    return false;
}

/* A list entry or container that carries nothing but its keys (and their config copies). */
bool only_keys(const lyd_node *n)
{
    for (const lyd_node *c = lyd_child(n); c != nullptr; c = c->next) {
        if (is_key(c) || is_key_mirror(c))
            continue;
        if (c->schema != nullptr && c->schema->nodetype == LYS_CONTAINER && only_keys(c))
            continue;
        return false;
    }
    return true;
}

bool inside_route(const lyd_node *n)
{
    for (const lyd_node *p = lyd_parent(n); p != nullptr; p = lyd_parent(p))
        if (is_list(p, "static"))
            return true;
    return false;
}

/* The stored configuration a request covers: one route, one VRF or everything. */
ReadFilter scope_of(const lyd_node *n)
{
    ReadFilter f;
    for (const lyd_node *p = n; p != nullptr; p = lyd_parent(p)) {
        if (is_list(p, "static"))
            f.prefix = key_value(p, "prefix");
        else if (is_list(p, "network-instance"))
            f.vrf = key_value(p, "name");
    }
    if (f.vrf.empty())
        f.prefix.clear();
    return f;
}

/* Scopes by (vrf, prefix); "" for all VRFs, or all routes of a VRF. */
using Scopes = std::set<std::pair<std::string, std::string>>;

void add_scope(Scopes &scopes, const ReadFilter &s)
{
    scopes.emplace(s.vrf, s.prefix);
}

/* Drops scopes inside a wider one (a route inside its VRF, anything inside all) as read filters. */
std::vector<ReadFilter> widest(const Scopes &scopes)
{
    std::vector<ReadFilter> out;
    if (scopes.count({"", ""}) != 0)
        return {ReadFilter{}};
    for (const auto &s : scopes) {
        if (!s.second.empty() && scopes.count({s.first, ""}) != 0)
            continue;
        ReadFilter f;
        f.vrf = s.first;
        f.prefix = s.second;
        out.push_back(f);
    }
    return out;
}

lyd_node *top_of(lyd_node *n)
{
    while (lyd_parent(n) != nullptr)
        n = lyd_parent(n);
    return n;
}

/* The sibling that stands where `target` stands: same list keys, or the same leaf whatever its value. */
lyd_node *find_sibling(const lyd_node *siblings, const lyd_node *target)
{
    lyd_node *m = nullptr;
    if (siblings == nullptr)
        return nullptr;
    if (target->schema != nullptr && target->schema->nodetype != LYS_LIST)
        lyd_find_sibling_val(siblings, target->schema, nullptr, 0, &m);
    else
        lyd_find_sibling_first(siblings, target, &m);
    return m;
}

/* The node of `stored` (first top-level sibling) at the place `n` names, or null. */
const lyd_node *find_stored(const lyd_node *stored, const lyd_node *n)
{
    if (stored == nullptr)
        return nullptr;
    const lyd_node *chain[64];
    size_t depth = 0;
    for (const lyd_node *p = n; p != nullptr && depth < 64; p = lyd_parent(p))
        chain[depth++] = p;
    const lyd_node *siblings = stored;
    const lyd_node *match = nullptr;
    while (depth > 0) {
        lyd_node *m = find_sibling(siblings, chain[--depth]);
        if (m == nullptr)
            return nullptr;
        match = m;
        siblings = lyd_child(m);
    }
    return match;
}

class Planner {
public:
    Planner(const yang::Context &ctx, StoreEdit &edit)
        : nc_(ly_ctx_get_module_implemented(ctx.raw(), "ietf-netconf")), edit_(edit)
    {
    }

    /* The scopes whose stored configuration the operations need. */
    std::vector<ReadFilter> collect(const lyd_node *first, Op default_op)
    {
        Scopes need;
        if (default_op == Op::kReplace)
            add_scope(need, ReadFilter{});
        for (const lyd_node *top = first; top != nullptr; top = top->next) {
            const lyd_node *n;
            LYD_TREE_DFS_BEGIN(top, n) {
                NodeOp op = explicit_op(n, nc_);
                if (op != NodeOp::kInherit && op != NodeOp::kMerge && op != NodeOp::kNone)
                    add_scope(need, scope_of(n));
                LYD_TREE_DFS_END(top, n);
            }
        }
        return widest(need);
    }

    RpcError read(const std::vector<ReadFilter> &scopes)
    {
        for (const ReadFilter &s : scopes) {
            yang::Tree part;
            Outcome o = edit_.read(s, part);
            if (o.status != Outcome::kOk)
                return from_outcome(o);
            if (!part)
                continue;
            lyd_node *first = stored_.release();
            lyd_node *add = part.release();
            if (lyd_merge_siblings(&first, add, LYD_MERGE_DESTRUCT) != LY_SUCCESS) {
                stored_.reset(first);
                return RpcError::make(RpcError::kOperationFailed, "cannot combine the stored configuration");
            }
            stored_.reset(first);
        }
        return RpcError{};
    }

    /* Checks create and delete, and plans the removals of every operation. */
    RpcError plan(const lyd_node *first, Op default_op)
    {
        if (default_op == Op::kReplace) {
            for (const lyd_node *s = stored_.get(); s != nullptr; s = s->next) {
                replace(find_sibling(first, s), s);
            }
        }
        NodeOp inherited = default_op == Op::kReplace ? NodeOp::kReplace
                           : default_op == Op::kNone  ? NodeOp::kNone
                                                      : NodeOp::kMerge;
        for (const lyd_node *top = first; top != nullptr; top = top->next) {
            RpcError e = visit(top, inherited);
            if (e)
                return e;
        }
        return RpcError{};
    }

    /* The merge: the request without what is deleted, and under none without what carries no change. */
    yang::Tree merge_tree(const lyd_node *first, Op default_op)
    {
        lyd_node *dup = nullptr;
        if (first == nullptr || lyd_dup_siblings(first, nullptr, LYD_DUP_RECURSIVE, &dup) != LY_SUCCESS)
            return yang::Tree{};
        NodeOp inherited = default_op == Op::kNone ? NodeOp::kNone : NodeOp::kMerge;
        lyd_node *kept = nullptr;
        for (lyd_node *top = dup, *next; top != nullptr; top = next) {
            next = top->next;
            if (prune(top, inherited)) {
                lyd_free_tree(top);
            } else if (kept == nullptr) {
                kept = top;
            }
        }
        return yang::Tree(kept);
    }

    /* False when a removal could not be planned (out of memory). */
    bool ok() const { return ok_; }

private:
    const lys_module *nc_;
    StoreEdit &edit_;
    yang::Tree stored_;
    std::set<std::string> unchanged_; /* request leaves left out of the merge */
    bool ok_ = true;

    void remove(const lyd_node *stored)
    {
        lyd_node *dup = nullptr;
        yang::PathTarget target;
        const bool leaf = stored->schema->nodetype & LYS_LEAF;
        if (lyd_dup_single(leaf ? lyd_parent(stored) : stored, nullptr, LYD_DUP_WITH_PARENTS, &dup) !=
            LY_SUCCESS) {
            ok_ = false;
            return;
        }
        if (leaf) {
            target.parent = dup;
            target.leaf = stored->schema;
        } else {
            target.node = dup;
        }
        if (!edit_.remove(yang::Tree(top_of(dup)), target))
            ok_ = false;
    }

    /*
     * The plug-in maps a leaf removed from a route or next hop only when the
     * same edit does not also name that entry's address or interface: the
     * values of the entry (around `n`) that the edit repeats unchanged are
     * left out of the merge.
     */
    void keep_unchanged_out(const lyd_node *n)
    {
        while (n != nullptr && !(n->schema->nodetype & LYS_LIST))
            n = lyd_parent(n);
        if (n == nullptr)
            return;
        for (const lyd_node *c = lyd_child(n); c != nullptr; c = c->next)
            mark_unchanged(c);
    }

    void mark_unchanged(const lyd_node *n)
    {
        if (n->schema->nodetype & LYS_LIST || is_key(n) || is_key_mirror(n) ||
            explicit_op(n, nc_) != NodeOp::kInherit)
            return;
        if (!(n->schema->nodetype & LYD_NODE_TERM)) {
            for (const lyd_node *c = lyd_child(n); c != nullptr; c = c->next)
                mark_unchanged(c);
            return;
        }
        const lyd_node *stored = find_stored(stored_.get(), n);
        if (stored == nullptr || strcmp(lyd_get_value(stored), lyd_get_value(n)) != 0)
            return;
        char *path = lyd_path(n, LYD_PATH_STD, nullptr, 0);
        if (path != nullptr)
            unchanged_.insert(path);
        free(path);
    }

    bool unchanged(const lyd_node *n) const
    {
        if (unchanged_.empty())
            return false;
        char *path = lyd_path(n, LYD_PATH_STD, nullptr, 0);
        bool found = path != nullptr && unchanged_.count(path) != 0;
        free(path);
        return found;
    }

    /* A delete or remove operation on `n`, which stands where `stored` is. */
    void removal(const lyd_node *stored, const lyd_node *n)
    {
        remove(stored);
        if (stored->schema->nodetype & LYS_LEAF)
            keep_unchanged_out(n);
    }

    /* Removes what `stored` holds and `now` (the new content, or null) leaves out. */
    void replace(const lyd_node *now, const lyd_node *stored)
    {
        for (const lyd_node *s = lyd_child(stored); s != nullptr; s = s->next) {
            if (is_key(s) || is_key_mirror(s))
                continue;
            lyd_node *m = now != nullptr ? find_sibling(lyd_child(now), s) : nullptr;
            if (m != nullptr && explicit_op(m, nc_) != NodeOp::kInherit)
                continue; /* its own operation decides */
            if (s->schema->nodetype & LYS_LEAF) {
                if (m == nullptr && inside_route(s)) {
                    remove(s);
                    keep_unchanged_out(now);
                }
            } else if (m == nullptr && (is_list(s, "static") || is_list(s, "next-hop") ||
                                        strcmp(LYD_NAME(s), "static-routes") == 0)) {
                remove(s); /* a whole static-routes container goes in one step */
            } else {
                replace(m, s);
            }
        }
    }

    RpcError visit(const lyd_node *n, NodeOp inherited)
    {
        NodeOp own = explicit_op(n, nc_);
        if (own != NodeOp::kInherit) {
            const lyd_node *stored = find_stored(stored_.get(), n);
            char *path = lyd_path(n, LYD_PATH_STD, nullptr, 0);
            std::string where = path != nullptr ? path : "";
            free(path);
            switch (own) {
            case NodeOp::kCreate:
                if (stored != nullptr)
                    return RpcError::make(RpcError::kDataExists, "the data already exists", where);
                break;
            case NodeOp::kDelete:
                if (stored == nullptr)
                    return RpcError::make(RpcError::kDataMissing, "the data to delete does not exist", where);
                removal(stored, n);
                return RpcError{};
            case NodeOp::kRemove:
                if (stored != nullptr)
                    removal(stored, n);
                return RpcError{};
            case NodeOp::kReplace:
                if (stored != nullptr)
                    replace(n, stored);
                break;
            default:
                break;
            }
        }
        NodeOp op = own != NodeOp::kInherit ? own : inherited;
        for (const lyd_node *c = lyd_child(n); c != nullptr; c = c->next) {
            RpcError e = visit(c, op);
            if (e)
                return e;
        }
        return RpcError{};
    }

    /* True when `n` carries nothing to merge; prunes its children. */
    bool prune(lyd_node *n, NodeOp inherited)
    {
        NodeOp own = explicit_op(n, nc_);
        NodeOp op = own != NodeOp::kInherit ? own : inherited;
        if (op == NodeOp::kDelete || op == NodeOp::kRemove)
            return true;
        bool dropped = false;
        for (lyd_node *c = lyd_child(n), *next; c != nullptr; c = next) {
            next = c->next;
            if (prune(c, op)) {
                lyd_free_tree(c);
                dropped = true;
            }
        }
        if (n->schema->nodetype & LYS_LEAF)
            return (op == NodeOp::kNone && !is_key(n)) || unchanged(n);
        return own == NodeOp::kInherit && (dropped || op == NodeOp::kNone) && only_keys(n);
    }
};

}  // namespace

RpcError from_outcome(const Outcome &o)
{
    switch (o.status) {
    case Outcome::kOk:
        return RpcError{};
    case Outcome::kBadInput:
        return RpcError::make(RpcError::kInvalidValue, o.message);
    default:
        return RpcError::make(RpcError::kOperationFailed, o.message);
    }
}

RpcError parse_config(const yang::Context &ctx, const std::string &xml, yang::Tree &out)
{
    out.reset();
    if (xml.find_first_not_of(" \t\r\n") == std::string::npos)
        return RpcError{};
    lyd_node *tree = nullptr;
    ly_err_clean(ctx.raw(), nullptr);
    LY_ERR rc = lyd_parse_data_mem(ctx.raw(), xml.c_str(), LYD_XML,
                                   LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0, &tree);
    if (rc != LY_SUCCESS) {
        lyd_free_all(tree);
        RpcError e = RpcError::make(RpcError::kInvalidValue, "the configuration does not parse");
        for (const ly_err_item *i = ly_err_first(ctx.raw()); i != nullptr; i = i->next) {
            if (i->level != LY_LLERR || i->msg == nullptr)
                continue;
            std::string msg = i->msg;
            e.message = msg;
            e.path = i->path != nullptr ? i->path : "";
            size_t q = msg.find('"'), q2 = q == std::string::npos ? q : msg.find('"', q + 1);
            if (q2 != std::string::npos)
                e.element = msg.substr(q + 1, q2 - q - 1);
            if (msg.find("not found") != std::string::npos || msg.find("Unknown") != std::string::npos)
                e.tag = RpcError::kUnknownElement;
            else if (msg.find("issing") != std::string::npos)
                e.tag = RpcError::kMissingElement;
            else if (msg.find("Invalid") != std::string::npos || i->vecode == LYVE_DATA)
                e.tag = RpcError::kInvalidValue;
            else
                e.tag = RpcError::kBadElement;
            break;
        }
        ly_err_clean(ctx.raw(), nullptr);
        return e;
    }
    out.reset(tree);
    return check_config(out);
}

bool typed_config(const lyd_node *first)
{
    for (const lyd_node *top = first; top != nullptr; top = top->next) {
        const lyd_node *n;
        LYD_TREE_DFS_BEGIN(top, n) {
            if (n->schema == nullptr || (n->schema->flags & LYS_CONFIG_R) || (n->flags & LYD_DEFAULT))
                return false;
            LYD_TREE_DFS_END(top, n);
        }
    }
    return true;
}

RpcError check_config(const yang::Tree &config)
{
    for (const lyd_node *top = config.get(); top != nullptr; top = top->next) {
        if (top->schema == nullptr || strcmp(top->schema->module->name, yang::kNetworkInstanceModule) != 0) {
            RpcError e = RpcError::make(RpcError::kUnknownElement,
                                        std::string("only ") + yang::kNetworkInstanceModule +
                                            " configuration can be edited here");
            e.element = LYD_NAME(top);
            e.path = std::string("/") + (top->schema != nullptr ? top->schema->module->name : "?") + ":" +
                     LYD_NAME(top);
            return e;
        }
    }
    yang::Error ce = yang::check_canonical_prefixes(config);
    if (ce)
        return RpcError::make(RpcError::kInvalidValue, ce.message);
    return RpcError{};
}

bool StoreEdit::add(yang::Tree tree)
{
    if (!tree)
        return true;
    lyd_node *first = tree_.release();
    LY_ERR rc = lyd_merge_siblings(&first, tree.release(), LYD_MERGE_DESTRUCT);
    tree_.reset(first);
    return rc == LY_SUCCESS;
}

bool StoreEdit::remove(yang::Tree path_tree, yang::PathTarget target)
{
    const lyd_node *at = target.node != nullptr ? target.node : target.parent;
    char *path = at != nullptr ? lyd_path(at, LYD_PATH_STD, nullptr, 0) : nullptr;
    if (path == nullptr)
        return false;
    Removal r;
    r.path = path;
    r.leaf = target.node != nullptr ? nullptr : target.leaf;
    free(path);
    removals_.push_back(std::move(r));
    return add(std::move(path_tree));
}

bool StoreEdit::merge(yang::Tree tree)
{
    return add(std::move(tree));
}

Outcome StoreEdit::run(bool dry_run)
{
    if (!tree_)
        return Outcome::ok();
    std::vector<yang::PathTarget> targets;
    targets.reserve(removals_.size());
    for (const Removal &r : removals_) {
        lyd_node *at = nullptr;
        if (lyd_find_path(tree_.get(), r.path.c_str(), 0, &at) != LY_SUCCESS || at == nullptr)
            return Outcome::fail(Outcome::kInternal, "cannot place the removal of " + r.path);
        yang::PathTarget t;
        if (r.leaf != nullptr) {
            t.parent = at;
            t.leaf = r.leaf;
        } else {
            t.node = at;
        }
        targets.push_back(t);
    }
    std::string changes;
    return engine_.apply(tree_, targets, dry_run, changes);
}

namespace {

/* Whether any node of the tree carries an ietf-netconf operation attribute. */
bool has_operation(const lyd_node *first)
{
    for (const lyd_node *top = first; top != nullptr; top = top->next) {
        const lyd_node *n;
        LYD_TREE_DFS_BEGIN(top, n) {
            for (const lyd_meta *m = n->meta; m != nullptr; m = m->next)
                if (strcmp(m->name, "operation") == 0)
                    return true;
            LYD_TREE_DFS_END(top, n);
        }
    }
    return false;
}

}  // namespace

RpcError edit_config(const yang::Context &ctx, tool::Engine &engine, const yang::Tree &config, Op default_op,
                     bool test_only)
{
    /* A plain merge (no operation anywhere) needs no plan: the document is the edit. */
    if (default_op == Op::kMerge && !has_operation(config.get())) {
        std::string changes;
        return from_outcome(engine.apply(config, {}, test_only, changes));
    }
    /* Planned from the store as the edit's own transaction sees it, then made in it. */
    RpcError e;
    tool::Outcome o = engine.in_one_transaction([&]() {
        StoreEdit edit(engine);
        Planner planner(ctx, edit);
        e = planner.read(planner.collect(config.get(), default_op));
        if (!e)
            e = planner.plan(config.get(), default_op);
        if (e)
            return Outcome::ok();
        if (!planner.ok() || !edit.merge(planner.merge_tree(config.get(), default_op))) {
            e = RpcError::make(RpcError::kOperationFailed, "out of memory while planning the edit");
            return Outcome::ok();
        }
        return test_only ? edit.test() : edit.commit();
    });
    return e ? e : from_outcome(o);
}

}  // namespace ocni::server
