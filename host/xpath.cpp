/*
 * xpath operations on instance paths with bracketed keys, and stitching an
 * output list to an entry.
 */
#include <cstring>

#include "host/context_internal.h"
#include "yfw_map.h"

namespace ocni::host::detail {
namespace {

/* A NUL-terminated copy of a fixed-size field that may lack its terminator. */
std::string field(const char *f, size_t size)
{
    return std::string(f, strnlen(f, size));
}

enum class Walk { Find, Add };

/*
 * Resolves `steps` below `root`, creating what is missing when adding.
 * Every list entry on the way becomes the current entry of its list.
 * Sets `*created` when the last node was made now.
 */
cerrno walk(ReqState *st, NodeRec *root, const std::vector<PathStep> &steps, Walk mode,
            uint32_t node_type, const std::string &value, const std::string &ns, NodeRec **result,
            bool *created)
{
    *result = nullptr;
    *created = false;
    const char *nsp = ns.empty() ? nullptr : ns.c_str();
    NodeRec *cur = root;
    for (size_t i = 0; i < steps.size(); ++i) {
        const PathStep &s = steps[i];
        const bool last = i + 1 == steps.size();
        const bool leaf = last && node_type == YFW_XPATH_NODE_LEAF && s.keys.empty();
        NodeRec *next = nullptr;
        if (!s.keys.empty()) {
            next = find_child(cur, entry_key(s.name, s.keys));
        } else {
            next = leaf ? find_child(cur, s.name) : find_named(cur, s.name);
        }
        bool made = false;
        if (next == nullptr) {
            if (mode == Walk::Find)
                return YFW_RC_MAP_FAILED;
            NodeKind kind = leaf ? NodeKind::Leaf
                                 : (!s.keys.empty() || list_is_known(s.name)) ? NodeKind::Entry
                                                                               : NodeKind::Container;
            next = add_child(cur, s.name.c_str(), kind, leaf && !value.empty() ? value.c_str() : nullptr, nsp);
            if (next == nullptr)
                return YFW_RC_NO_MEMORY;
            for (const auto &kv : s.keys) {
                NodeRec *k = add_child(next, kv.first.c_str(), NodeKind::Leaf, kv.second.c_str(), nsp);
                if (k == nullptr)
                    return YFW_RC_NO_MEMORY;
                k->node->flags |= YFW_DT_F_LIST;
            }
            if (!s.keys.empty())
                rekey(next);
            made = true;
        } else if (leaf && !value.empty()) {
            const char *have = next->node->value;
            bool same = have != nullptr && value == have;
            if (mode == Walk::Find && !same)
                return YFW_RC_MAP_FAILED;
            /* An add of an existing leaf with another value updates it. */
            if (mode == Walk::Add && !same && !set_value(next, value.c_str()))
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
        std::vector<PathStep> steps;
        if (!parse_instance_path(field(op->path, sizeof op->path).c_str(), steps))
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
        std::vector<PathStep> steps, list;
        if (!parse_instance_path(field(op->path, sizeof op->path).c_str(), steps) || steps.empty() ||
            !parse_instance_path(field(op->schema_path, sizeof op->schema_path).c_str(), list) || list.empty())
            return YFW_RC_MAP_FAILED;
        /* The path must end in an entry of the list being stitched. */
        if (steps.back().name != list.back().name || steps.back().keys.empty())
            return YFW_RC_MAP_FAILED;
        ReqState *st = state_of(ctx);
        if (ctx != nullptr)
            sync_current_list(ctx->req_ctx);
        NodeRec *res = nullptr;
        bool created = false;
        cerrno rc = walk(st, root, steps, Walk::Add, YFW_XPATH_NODE_CONTAINER, std::string(),
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
