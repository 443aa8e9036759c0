/*
 * Path placement: yfw_map_datatree_add_path_flagged. The rule is written
 * down in host/README.md ("Path placement").
 */
#include <algorithm>
#include <cstring>
#include <string_view>

#include "host/context_internal.h"
#include "yfw_map.h"

using namespace ocni::host;
using namespace ocni::host::detail;

namespace {

/* Tokens of a schema path, as views into it; a doubled or trailing "/" gives no token. */
void split_schema_path(const char *path, std::vector<std::string_view> &toks)
{
    toks.clear();
    const char *start = path;
    for (;;) {
        const char *slash = strchrnul(start, '/');
        if (slash > start)
            toks.emplace_back(start, size_t(slash - start));
        if (*slash == '\0')
            break;
        start = slash + 1;
    }
}

bool is_key_of_parent(const NodeRec *leaf)
{
    const NodeRec *p = leaf->parent;
    return p != nullptr && p->kind == NodeKind::Entry && p->node->name != nullptr &&
           list_is_key(p->node->name, leaf->node->name);
}

/* Interned names the placement rule tests for. */
struct Names {
    const char *config = intern("config");
    const char *state = intern("state");
};

const Names &names()
{
    static const Names n;
    return n;
}

cerrno place(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *path, const char *ns,
             const char *value, const zidl_yfw_datatree *src, zidl_yfw_datatree **created,
             uint32_t flag)
{
    ReqState *st = state_of(ctx);
    NodeRec *cur = rec_of(out);
    if (cur == nullptr)
        return YFW_RC_MAP_FAILED;
    /* Reused: placement never nests. Initial-exec: the library is linked, not loaded late, so no lookup call. */
    static thread_local __attribute__((tls_model("initial-exec"))) std::vector<std::string_view> toks;
    if (strchr(path, '[') != nullptr) /* schema paths carry no keys */
        return YFW_RC_MAP_FAILED;
    split_schema_path(path, toks);
    if (toks.empty())
        return YFW_RC_MAP_FAILED;

    sync_current_list(ctx->req_ctx);

    /* Resume below the intermediate nodes the previous placement resolved, when still valid. */
    const NodeRec *start = cur;
    size_t from = 0;
    PlaceMemo *memo = st != nullptr ? &st->memo : nullptr;
    if (memo != nullptr) {
        if (memo->start == start && memo->tree_serial == start->tree->serial && memo->gen == st->current_gen) {
            const size_t limit = std::min(toks.size() - 1, memo->nodes.size());
            while (from < limit &&
                   toks[from] == std::string_view(memo->path).substr(memo->tokens[from].first, memo->tokens[from].second))
                ++from;
            if (from > 0)
                cur = memo->nodes[from - 1];
        }
        memo->start = start;
        memo->tree_serial = start->tree->serial;
        memo->path.assign(path);
        memo->tokens.clear();
        for (const auto &t : toks)
            memo->tokens.emplace_back(uint32_t(t.data() - path), uint32_t(t.size()));
        memo->nodes.resize(from);
    }

    const Names &nm = names();
    bool made = false;
    for (size_t i = from; i < toks.size(); ++i) {
        const std::string_view name = toks[i];
        const bool last = i + 1 == toks.size();
        /*
         * A last token with a value is a leaf, whatever the list registry
         * says, and so is anything directly below "config" or "state"
         * (config/next-hop is a leaf, next-hops/next-hop a list).
         */
        const bool under_leaf_container = cur->own[0] == nm.config || cur->own[0] == nm.state;
        const bool as_list = !(last && value != nullptr) && !under_leaf_container && list_is_known(name);
        NodeRec *next = nullptr;
        made = false;
        if (last && flag == 1) {
            next = add_child(cur, name, as_list ? NodeKind::Entry : NodeKind::Container, nullptr, ns);
            made = true;
        } else if (as_list) {
            next = current_entry(st, cur, name);
            if (next == nullptr) {
                next = add_child(cur, name, NodeKind::Entry, nullptr, ns);
                made = true;
            }
        } else {
            next = find_child(cur, name);
            if (next == nullptr) {
                NodeKind kind = last && value != nullptr ? NodeKind::Leaf : NodeKind::Container;
                next = add_child(cur, name, kind, nullptr, ns);
                made = true;
            }
        }
        if (next == nullptr) {
            if (memo != nullptr)
                memo->start = nullptr;
            return YFW_RC_NO_MEMORY;
        }
        if (made && next->kind == NodeKind::Entry)
            note_current(st, next);
        cur = next;
        if (memo != nullptr && !last)
            memo->nodes.push_back(cur);
    }
    /* The nodes just resolved hold whatever current entries this placement made. */
    if (memo != nullptr)
        memo->gen = st->current_gen;
    if (ns != nullptr && ns[0] != '\0' && !set_ns(cur, ns))
        return YFW_RC_NO_MEMORY;
    if (value != nullptr && !set_value(cur, value))
        return YFW_RC_NO_MEMORY;
    if (cur->kind == NodeKind::Leaf && !(cur->node->flags & YFW_DT_F_LIST) && is_key_of_parent(cur))
        mark_key(cur);
    if (src != nullptr)
        node_set_op(cur->node, src->op);
    if (created != nullptr)
        *created = cur->node;
    return YFW_RC_OK;
}

} // namespace

extern "C" {

cerrno yfw_map_datatree_add_path_flagged(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *path,
                                         const char *ns, const char *value,
                                         const zidl_yfw_datatree *src, zidl_yfw_datatree **created,
                                         uint32_t flag, uint32_t add_flag)
{
    if (created != nullptr)
        *created = nullptr;
    if (ctx == nullptr || ctx->req_ctx == nullptr || out == nullptr || path == nullptr)
        return YFW_RC_MAP_FAILED;
    /*
     * Flag 1 makes a list entry or container, which holds no value; the add flag is 0 or 32
     * (paths under a trim-path context are absolute all the same, so it changes nothing else).
     * A caller breaking this would build a tree other than the one it means: refused.
     */
    if (flag > 1 || (flag == 1 && value != nullptr) || (add_flag != 0 && add_flag != 32))
        return YFW_RC_MAP_FAILED;
    if (ctx->req_ctx->suppress_flag != 0) /* additions made while suppressed are dropped */
        return YFW_RC_OK;
    try {
        cerrno rc = place(ctx, out, path, ns, value, src, created, flag);
        refresh_current_list(ctx->req_ctx);
        return rc;
    } catch (...) {
        return YFW_RC_NO_MEMORY;
    }
}

} // extern "C"
