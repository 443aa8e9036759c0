/*
 * xpath operations on instance paths with bracketed keys, and stitching an
 * output list to an entry.
 */
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "host/context_internal.h"
#include "yfw_map.h"

namespace ocni::host::detail {
namespace {

/* A fixed-size field that may lack its terminator. */
std::string_view field(const char *f, size_t size)
{
    return std::string_view(f, strnlen(f, size));
}

/* Parsed paths of the calling thread, reused so that a lookup allocates nothing. */
struct ParsedPath {
    std::vector<StepView> steps;
    std::vector<KeyView> keys;
};

ParsedPath &scratch(int which)
{
    thread_local ParsedPath p[2];
    return p[which];
}

enum class Walk { Find, Add };

/*
 * Resolves `path` below `root`, creating what is missing when adding.
 * Every list entry on the way becomes the current entry of its list.
 * Sets `*created` when the last node was made now.
 */
cerrno walk(ReqState *st, NodeRec *root, const ParsedPath &path, Walk mode, uint32_t node_type,
            std::string_view value, std::string_view ns, NodeRec **result, bool *created)
{
    *result = nullptr;
    *created = false;
    const char *nsp = ns.empty() ? nullptr : intern(ns);
    NodeRec *cur = root;
    const auto &steps = path.steps;
    for (size_t i = 0; i < steps.size(); ++i) {
        const StepView &s = steps[i];
        const KeyView *keys = path.keys.data() + s.first_key;
        const bool last = i + 1 == steps.size();
        const bool leaf = last && node_type == YFW_XPATH_NODE_LEAF && s.n_keys == 0;
        NodeRec *next = nullptr;
        std::string key;
        if (s.n_keys != 0) {
            key = entry_key(s.name, keys, s.n_keys);
            next = find_child(cur, key);
        } else {
            next = leaf ? find_child(cur, s.name) : find_named(cur, s.name);
        }
        bool made = false;
        if (next == nullptr) {
            if (mode == Walk::Find)
                return YFW_RC_MAP_FAILED;
            NodeKind kind = leaf ? NodeKind::Leaf
                                 : (s.n_keys != 0 || list_is_known(s.name)) ? NodeKind::Entry
                                                                             : NodeKind::Container;
            const std::string v = leaf ? std::string(value) : std::string();
            next = add_child(cur, s.name, kind, !v.empty() ? v.c_str() : nullptr, nsp, s.n_keys != 0 ? &key : nullptr);
            if (next == nullptr)
                return YFW_RC_NO_MEMORY;
            for (size_t k = 0; k < s.n_keys; ++k) {
                const std::string kv(keys[k].second);
                NodeRec *kr = add_child(next, keys[k].first, NodeKind::Leaf, kv.c_str(), nsp);
                if (kr == nullptr)
                    return YFW_RC_NO_MEMORY;
                kr->node->flags |= YFW_DT_F_LIST;
            }
            made = true;
        } else if (leaf && !value.empty()) {
            const char *have = next->node->value;
            bool same = have != nullptr && value == have;
            if (mode == Walk::Find && !same)
                return YFW_RC_MAP_FAILED;
            /* An add of an existing leaf with another value updates it. */
            if (mode == Walk::Add && !same && !set_value(next, std::string(value).c_str()))
                return YFW_RC_NO_MEMORY;
        }
        if (next->kind == NodeKind::Entry)
            note_current(st, next);
        cur = next;
        if (last)
            *created = made;
    }
    *result = cur;
    return YFW_RC_OK;
}

/* The remembered result of the same lookup, when still valid; its entries made current again. */
NodeRec *repeat(ReqState *st, const NodeRec *root, std::string_view text)
{
    for (XpathHit &h : st->xhit) {
        if (h.result == nullptr || h.root != root || h.tree_serial != root->tree->serial ||
            h.rekeys != rekey_epoch() || text != h.path)
            continue;
        if (h.gen != st->current_gen) {
            for (NodeRec *e : h.entries)
                note_current(st, e);
            h.gen = st->current_gen;
        }
        h.used = ++st->xhit_clock;
        return h.result;
    }
    return nullptr;
}

void remember(ReqState *st, NodeRec *root, std::string_view text, NodeRec *result)
{
    XpathHit *slot = &st->xhit[0];
    for (XpathHit &h : st->xhit) {
        if (h.root == root) {
            slot = &h;
            break;
        }
        if (h.used < slot->used)
            slot = &h;
    }
    XpathHit &h = *slot;
    h.used = ++st->xhit_clock;
    h.root = root;
    h.tree_serial = root->tree->serial;
    h.rekeys = rekey_epoch();
    h.gen = st->current_gen;
    h.path.assign(text);
    h.result = result;
    h.entries.clear(); /* innermost first: each is the current entry of a list of its own, so order does not matter */
    for (NodeRec *r = result; r != nullptr && r != root; r = r->parent)
        if (r->kind == NodeKind::Entry)
            h.entries.push_back(r);
}

} // namespace
} // namespace ocni::host::detail

using namespace ocni::host;
using namespace ocni::host::detail;

extern "C" {

cerrno yfw_map_tree_xpath_operations(yfw_map_ctx *ctx, yfw_map_xpath_op *op)
{
    if (op == nullptr)
        return YFW_RC_MAP_FAILED;
    op->result = nullptr;
    if (op->op != YFW_XPATH_OP_ADD && op->op != YFW_XPATH_OP_FIND)
        return YFW_RC_MAP_FAILED;
    NodeRec *root = rec_of(op->root);
    if (root == nullptr)
        return YFW_RC_MAP_FAILED;
    try {
        ReqState *st = state_of(ctx);
        if (ctx != nullptr)
            sync_current_list(ctx->req_ctx);
        const std::string_view text = field(op->path, sizeof op->path);
        /* Leaves are looked up afresh: their values are compared or written. */
        const bool cacheable = st != nullptr && op->node_type != YFW_XPATH_NODE_LEAF;
        if (cacheable) {
            if (NodeRec *again = repeat(st, root, text)) {
                op->result = again->node;
                if (ctx != nullptr)
                    refresh_current_list(ctx->req_ctx);
                return op->op == YFW_XPATH_OP_ADD ? YFW_RC_NODE_EXISTS : YFW_RC_OK;
            }
        }
        ParsedPath &steps = scratch(0);
        if (!parse_path_views(text, steps.steps, steps.keys))
            return YFW_RC_MAP_FAILED;
        NodeRec *res = nullptr;
        bool created = false;
        cerrno rc = walk(st, root, steps, op->op == YFW_XPATH_OP_ADD ? Walk::Add : Walk::Find,
                         op->node_type, field(op->value, sizeof op->value), field(op->ns, sizeof op->ns),
                         &res, &created);
        if (ctx != nullptr)
            refresh_current_list(ctx->req_ctx);
        if (rc != YFW_RC_OK)
            return rc;
        if (cacheable)
            remember(st, root, text, res);
        op->result = res->node;
        if (op->op == YFW_XPATH_OP_ADD && !created)
            return YFW_RC_NODE_EXISTS;
        return YFW_RC_OK;
    } catch (...) {
        return YFW_RC_NO_MEMORY;
    }
}

cerrno yfw_map_stitch_list_to_list(yfw_map_ctx *ctx, yfw_map_xpath_op *op)
{
    if (op == nullptr)
        return YFW_RC_MAP_FAILED;
    op->result = nullptr;
    NodeRec *root = rec_of(op->root);
    if (root == nullptr)
        return YFW_RC_MAP_FAILED;
    try {
        ParsedPath &steps = scratch(0);
        ParsedPath &list = scratch(1);
        if (!parse_path_views(field(op->path, sizeof op->path), steps.steps, steps.keys) || steps.steps.empty() ||
            !parse_path_views(field(op->schema_path, sizeof op->schema_path), list.steps, list.keys) ||
            list.steps.empty())
            return YFW_RC_MAP_FAILED;
        /* The path must end in an entry of the list being stitched. */
        if (steps.steps.back().name != list.steps.back().name || steps.steps.back().n_keys == 0)
            return YFW_RC_MAP_FAILED;
        ReqState *st = state_of(ctx);
        if (ctx != nullptr)
            sync_current_list(ctx->req_ctx);
        NodeRec *res = nullptr;
        bool created = false;
        cerrno rc = walk(st, root, steps, Walk::Add, YFW_XPATH_NODE_CONTAINER, std::string_view(),
                         field(op->ns, sizeof op->ns), &res, &created);
        if (ctx != nullptr)
            refresh_current_list(ctx->req_ctx);
        if (rc != YFW_RC_OK)
            return rc;
        op->result = res->node;
        return YFW_RC_OK;
    } catch (...) {
        return YFW_RC_NO_MEMORY;
    }
}

} // extern "C"
