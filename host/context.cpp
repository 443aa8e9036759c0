/*
 * Requests, request and mapping contexts, and the framework operations
 * that read request state: error path, delete test, ancestor keys, name
 * match, list lookup, last token, trim path and the request's VRF.
 */
#include "host/context_internal.h"

#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "host/trace.h"
#include "wos_alloc.h"
#include "yfw_map.h"
#include "yfw_str.h"

namespace ocni::host {
namespace detail {

ReqState *state_of(const yfw_req_ctx *rc)
{
    return rc != nullptr ? static_cast<ReqState *>(rc->fw) : nullptr;
}

ReqState *state_of(const yfw_map_ctx *ctx)
{
    return ctx != nullptr ? state_of(ctx->req_ctx) : nullptr;
}

void note_current(ReqState *st, NodeRec *entry)
{
    if (st == nullptr || entry == nullptr || entry->parent == nullptr || entry->kind != NodeKind::Entry)
        return;
    NodeRef &cur = st->scopes.back().current[{entry->parent, std::string_view(entry->own[0])}];
    NodeRef now = ref_of(entry);
    if (!(cur == now)) {
        cur = now;
        ++st->current_gen;
    }
}

NodeRec *current_entry(const ReqState *st, const NodeRec *parent, std::string_view name)
{
    if (st == nullptr)
        return nullptr;
    for (auto s = st->scopes.rbegin(); s != st->scopes.rend(); ++s) {
        auto it = s->current.find({parent, name});
        if (it == s->current.end())
            continue;
        NodeRec *r = rec_of(it->second);
        if (r != nullptr && r->parent == parent)
            return r;
    }
    return nullptr;
}

void sync_current_list(yfw_req_ctx *rc)
{
    ReqState *st = state_of(rc);
    if (st == nullptr || rc->current_list == st->seen_current_list)
        return;
    st->seen_current_list = rc->current_list;
    NodeRec *r = rec_of(rc->current_list);
    st->seen_current_ref = ref_of(r);
    note_current(st, r);
}

void refresh_current_list(yfw_req_ctx *rc)
{
    ReqState *st = state_of(rc);
    if (st == nullptr || rc->current_list != st->seen_current_list || !st->seen_current_ref)
        return;
    zidl_yfw_datatree *n = node_get(st->seen_current_ref);
    if (n != nullptr && n != rc->current_list) {
        rc->current_list = n;
        st->seen_current_list = n;
    }
}

namespace {

struct CtxState {
    LogSink err;
    LogSink trc;
    LogSink ltrace;
};

struct MarkerPlace {
    size_t off;
    bool wide;
    uint16_t mask;
};

MarkerPlace place_of(Marker m)
{
    switch (m) {
    case Marker::W7F0_BIT15: return {YFW_REQ_OFF_SEL_7F0, true, 0x8000};
    case Marker::B570: return {YFW_REQ_OFF_SEL_570, false, 0x07};
    case Marker::B548: return {YFW_REQ_OFF_SEL_548, false, 0x03};
    case Marker::W541_1FF: return {YFW_REQ_OFF_SEL_541, true, 0x01ff};
    case Marker::W541_600: return {YFW_REQ_OFF_SEL_541, true, 0x0600};
    case Marker::W541_3800: return {YFW_REQ_OFF_SEL_541, true, 0x3800};
    case Marker::B4DC: return {YFW_REQ_OFF_SEL_4DC, false, 0x0f};
    case Marker::B528: return {YFW_REQ_OFF_SEL_528, false, 0x07};
    case Marker::B508: return {YFW_REQ_OFF_SEL_508, false, 0x03};
    case Marker::B520: return {YFW_REQ_OFF_SEL_520, false, 0x03};
    case Marker::B56C: return {YFW_REQ_OFF_SEL_56C, false, 0x0f};
    }
    return {0, false, 0};
}

uint16_t read_place(const yfw_request *req, const MarkerPlace &p)
{
    const auto *b = reinterpret_cast<const uint8_t *>(req);
    if (!p.wide)
        return b[p.off];
    uint16_t v;
    memcpy(&v, b + p.off, sizeof v);
    return v;
}

void write_place(yfw_request *req, const MarkerPlace &p, uint16_t v)
{
    auto *b = reinterpret_cast<uint8_t *>(req);
    if (!p.wide)
        b[p.off] = uint8_t(v);
    else
        memcpy(b + p.off, &v, sizeof v);
}

/* List name -> key leaf names, read without a lock. */
struct KeySnapshot {
    std::map<std::string, std::vector<std::string>, std::less<>> lists;
    /*
     * The list names again, by length: asked for every token of every
     * placed path, and a length holds at most a few names.
     */
    static constexpr size_t MAX_LEN = 64;
    std::vector<std::pair<std::string_view, const std::vector<std::string> *>> by_len[MAX_LEN];
    std::vector<std::pair<std::string_view, const std::vector<std::string> *>> longer;

    void reindex()
    {
        for (auto &v : by_len)
            v.clear();
        longer.clear();
        for (const auto &l : lists)
            (l.first.size() < MAX_LEN ? by_len[l.first.size()] : longer).emplace_back(l.first, &l.second);
    }

    const std::vector<std::string> *find(std::string_view name) const
    {
        for (const auto &e : name.size() < MAX_LEN ? by_len[name.size()] : longer)
            if (e.first == name)
                return e.second;
        return nullptr;
    }
};

void fill_defaults(std::map<std::string, std::vector<std::string>, std::less<>> &lists)
{
    lists = {
        /* OpenConfig network instances and the operational model */
        {"network-instance", {"name"}},
        {"protocol", {"identifier", "name"}},
        {"static", {"prefix"}},
        {"next-hop", {"index"}},
        {"static-route", {"prefix"}},
        /* native static-route configuration */
        {"vrf", {"vrf-name"}},
        {"vrf-prefix", {"prefix", "prefix-length"}},
        {"vrf-next-hop-interface-name", {"interface-name"}},
        {"vrf-next-hop-interface-name-next-hop-address", {"interface-name", "next-hop-address"}},
        {"vrf-next-hop-next-hop-address", {"next-hop-address"}},
    };
}

/* Built once, on first use, and never changed after. */
const KeySnapshot &key_snapshot()
{
    static const KeySnapshot *k = [] {
        auto *r = new KeySnapshot; /* outlives every static user */
        fill_defaults(r->lists);
        r->reindex();
        return r;
    }();
    return *k;
}

/* `s` without its trailing "/" (a lone "/" stays). */
std::string_view strip_trailing_slash(std::string_view s)
{
    while (s.size() > 1 && s.back() == '/')
        s.remove_suffix(1);
    return s;
}

/* The key leaf `key` of an entry: a flagged key leaf first, any leaf of that name else. */
const zidl_yfw_datatree *key_leaf(const zidl_yfw_datatree *entry, const char *key)
{
    const zidl_yfw_datatree *any = nullptr;
    for (uint32_t i = 0; i < entry->n_children; ++i) {
        const zidl_yfw_datatree &c = entry->children[i];
        if (c.name == nullptr)
            break;
        if (strcmp(c.name, key) != 0)
            continue;
        if (c.flags & YFW_DT_F_LIST)
            return &c;
        if (any == nullptr)
            any = &c;
    }
    return any;
}

/* The input entry of list `list_path` being mapped: input stack, ancestors, then the current node's parents. */
const zidl_yfw_datatree *ancestor_entry(const yfw_req_ctx *rc, std::string_view list_path)
{
    const ReqState *st = state_of(rc);
    if (st != nullptr) {
        for (auto s = st->scopes.rbegin(); s != st->scopes.rend(); ++s) {
            NodeRec *r = rec_of(s->input);
            if (r != nullptr && schema_path_is(r, list_path))
                return r->node;
        }
    }
    for (int i = int(rc->depth) - 1; i >= 0; --i) {
        if (i >= YFW_MAX_ANCESTORS)
            continue;
        const yfw_ancestor &a = rc->ancestors[i];
        if (a.path != nullptr && a.node != nullptr && strip_trailing_slash(a.path) == list_path)
            return a.node;
    }
    if (st != nullptr) {
        for (NodeRec *r = rec_of(st->current_input); r != nullptr; r = r->parent) {
            if (r->kind == NodeKind::Entry && schema_path_is(r, list_path))
                return r->node;
        }
    }
    return nullptr;
}

} // namespace
} // namespace detail

using namespace detail;

yfw_request *request_new(uint32_t op_type)
{
    auto *req = static_cast<yfw_request *>(calloc(1, sizeof(yfw_request)));
    if (req != nullptr)
        req->op_type = op_type;
    return req;
}

void request_free(yfw_request *req)
{
    free(req);
}

void request_set_marker(yfw_request *req, Marker m, bool on)
{
    if (req == nullptr)
        return;
    MarkerPlace p = place_of(m);
    uint16_t low = uint16_t(p.mask & (~p.mask + 1));
    uint16_t v = read_place(req, p);
    write_place(req, p, on ? uint16_t(v | low) : uint16_t(v & ~low));
}

void request_set_marker_bits(yfw_request *req, Marker m, bool on)
{
    if (req == nullptr)
        return;
    MarkerPlace p = place_of(m);
    uint16_t v = read_place(req, p);
    write_place(req, p, on ? uint16_t(v | p.mask) : uint16_t(v & ~p.mask));
}

void request_set_mode(yfw_request *req, uint32_t mode)
{
    if (req != nullptr)
        memcpy(reinterpret_cast<uint8_t *>(req) + YFW_REQ_OFF_MODE, &mode, sizeof mode);
}

bool request_any_marker(const yfw_request *req)
{
    if (req == nullptr)
        return false;
    for (Marker m : ALL_MARKERS) {
        MarkerPlace p = place_of(m);
        if (read_place(req, p) & p.mask)
            return true;
    }
    return false;
}

yfw_req_ctx *req_ctx_new(yfw_request *req)
{
    auto *rc = static_cast<yfw_req_ctx *>(calloc(1, sizeof(yfw_req_ctx)));
    if (rc == nullptr)
        return nullptr;
    try {
        rc->fw = new ReqState;
    } catch (...) {
        free(rc);
        return nullptr;
    }
    rc->request = req;
    return rc;
}

void req_ctx_free(yfw_req_ctx *rc)
{
    if (rc == nullptr)
        return;
    wos_named_free(rc->user_error_msg);
    wos_named_free(rc->trim_path);
    wos_named_free(rc->common_data_ptr);
    delete state_of(rc);
    free(rc);
}

void req_set_vrf(yfw_req_ctx *rc, const char *vrf)
{
    ReqState *st = state_of(rc);
    if (st == nullptr)
        return;
    st->has_vrf = vrf != nullptr;
    st->vrf = vrf != nullptr ? vrf : "";
}

bool req_push_ancestor(yfw_req_ctx *rc, const char *schema_path, zidl_yfw_datatree *node)
{
    ReqState *st = state_of(rc);
    if (st == nullptr || rc->depth >= YFW_MAX_ANCESTORS)
        return false;
    std::string &slot = st->ancestor_paths[rc->depth];
    slot = schema_path != nullptr ? schema_path : "";
    rc->ancestors[rc->depth].path = slot.c_str();
    rc->ancestors[rc->depth].node = node;
    ++rc->depth;
    return true;
}

void req_pop_ancestor(yfw_req_ctx *rc)
{
    if (rc == nullptr || rc->depth == 0)
        return;
    --rc->depth;
    rc->ancestors[rc->depth].path = nullptr;
    rc->ancestors[rc->depth].node = nullptr;
}

void req_push_input_entry(yfw_req_ctx *rc, const zidl_yfw_datatree *entry)
{
    ReqState *st = state_of(rc);
    if (st == nullptr)
        return;
    Scope s;
    s.input = node_ref(entry);
    st->scopes.push_back(std::move(s));
    ++st->current_gen;
}

void req_pop_input_entry(yfw_req_ctx *rc)
{
    ReqState *st = state_of(rc);
    if (st != nullptr && st->scopes.size() > 1) {
        st->scopes.pop_back();
        ++st->current_gen;
    }
}

size_t req_input_depth(const yfw_req_ctx *rc)
{
    const ReqState *st = state_of(rc);
    return st != nullptr ? st->scopes.size() - 1 : 0;
}

void req_set_current_input(yfw_req_ctx *rc, const zidl_yfw_datatree *node)
{
    if (ReqState *st = state_of(rc); st != nullptr)
        st->current_input = node_ref(node);
}

void req_enter_input(yfw_req_ctx *rc, const zidl_yfw_datatree *node)
{
    ReqState *st = state_of(rc);
    if (st == nullptr)
        return;
    std::vector<NodeRec *> chain; /* top level first, `node` last */
    for (NodeRec *r = rec_of(node); r != nullptr && r->parent != nullptr; r = r->parent)
        chain.insert(chain.begin(), r);
    while (rc->depth > 0)
        req_pop_ancestor(rc);
    for (size_t i = 0; i + 1 < chain.size() && i < YFW_MAX_ANCESTORS; ++i)
        req_push_ancestor(rc, schema_path(chain[i]).c_str(), chain[i]->node);

    std::vector<NodeRef> entries;
    for (NodeRec *r : chain)
        if (r->kind == NodeKind::Entry)
            entries.push_back(ref_of(r));
    size_t keep = 0;
    while (keep < entries.size() && keep + 1 < st->scopes.size() && st->scopes[keep + 1].input == entries[keep])
        ++keep;
    if (st->scopes.size() != keep + 1 || keep < entries.size())
        ++st->current_gen;
    st->scopes.resize(keep + 1);
    for (size_t i = keep; i < entries.size(); ++i) {
        Scope s;
        s.input = entries[i];
        st->scopes.push_back(std::move(s));
    }
    st->current_input = node_ref(node);
}

const std::vector<std::string> &req_error_paths(const yfw_req_ctx *rc)
{
    static const std::vector<std::string> none;
    const ReqState *st = state_of(rc);
    return st != nullptr ? st->error_paths : none;
}

void req_clear_error_paths(yfw_req_ctx *rc)
{
    if (ReqState *st = state_of(rc); st != nullptr)
        st->error_paths.clear();
}

yfw_map_ctx *map_ctx_new(yfw_req_ctx *rc)
{
    auto *ctx = static_cast<yfw_map_ctx *>(calloc(1, sizeof(yfw_map_ctx)));
    if (ctx == nullptr)
        return nullptr;
    CtxState *cs = nullptr;
    try {
        cs = new CtxState;
    } catch (...) {
        free(ctx);
        return nullptr;
    }
    ctx->req_ctx = rc;
    ctx->fw = cs;
    ctx->err_log = &cs->err;
    ctx->trc_log = &cs->trc;
    ctx->ltrace_buf = &cs->ltrace;
    return ctx;
}

void map_ctx_free(yfw_map_ctx *ctx)
{
    if (ctx == nullptr)
        return;
    delete static_cast<CtxState *>(ctx->fw);
    free(ctx);
}

LogSink *map_ctx_err_sink(const yfw_map_ctx *ctx)
{
    return ctx != nullptr && ctx->fw != nullptr ? &static_cast<CtxState *>(ctx->fw)->err : nullptr;
}

LogSink *map_ctx_trc_sink(const yfw_map_ctx *ctx)
{
    return ctx != nullptr && ctx->fw != nullptr ? &static_cast<CtxState *>(ctx->fw)->trc : nullptr;
}

LogSink *map_ctx_ltrace_sink(const yfw_map_ctx *ctx)
{
    return ctx != nullptr && ctx->fw != nullptr ? &static_cast<CtxState *>(ctx->fw)->ltrace : nullptr;
}

std::vector<std::string> list_keys_of(const std::string &list)
{
    const KeySnapshot &r = key_snapshot();
    auto it = r.lists.find(list);
    return it == r.lists.end() ? std::vector<std::string>{} : it->second;
}

bool list_is_known(std::string_view list)
{
    return key_snapshot().find(list) != nullptr;
}

bool list_is_key(std::string_view list, std::string_view leaf)
{
    const std::vector<std::string> *keys = key_snapshot().find(list);
    if (keys == nullptr)
        return false;
    for (const auto &k : *keys)
        if (k == leaf)
            return true;
    return false;
}

} // namespace ocni::host

using namespace ocni::host;
using namespace ocni::host::detail;

extern "C" {

void yfw_oc_error_path(yfw_map_ctx *ctx)
{
    ReqState *st = state_of(ctx);
    if (st == nullptr)
        return;
    try {
        NodeRec *r = rec_of(st->current_input);
        if (r == nullptr && st->scopes.size() > 1)
            r = rec_of(st->scopes.back().input);
        st->error_paths.push_back(r != nullptr ? instance_path(r) : std::string());
    } catch (...) {
    }
}

int yfw_map_is_request_delete(const zidl_yfw_datatree *node)
{
    return node != nullptr && node->op == YFW_DT_OP_DELETE;
}

cerrno yfw_map_get_node_info(yfw_map_ctx *ctx, const char *list_path, const char *key, char **value)
{
    if (value != nullptr)
        *value = nullptr;
    if (ctx == nullptr || ctx->req_ctx == nullptr || list_path == nullptr || key == nullptr || value == nullptr)
        return YFW_RC_MAP_FAILED;
    try {
        const zidl_yfw_datatree *entry = ancestor_entry(ctx->req_ctx, strip_trailing_slash(list_path));
        if (entry == nullptr)
            return YFW_RC_MAP_FAILED;
        const zidl_yfw_datatree *leaf = key_leaf(entry, key);
        if (leaf == nullptr || leaf->value == nullptr)
            return YFW_RC_MAP_FAILED;
        *value = leaf->value;
        return YFW_RC_OK;
    } catch (...) {
        return YFW_RC_NO_MEMORY;
    }
}

int yfw_map_do_these_match(const char *a, const char *b)
{
    return a != nullptr && b != nullptr && strcmp(a, b) == 0;
}

cerrno yfw_map_get_list(yfw_map_ctx *ctx, zidl_yfw_datatree *node, const char *path, void *arg,
                        zidl_yfw_datatree **entry)
{
    (void)ctx;
    (void)arg;
    if (entry != nullptr)
        *entry = nullptr;
    if (node == nullptr || path == nullptr || entry == nullptr)
        return YFW_RC_MAP_FAILED;
    try {
        std::vector<std::string> toks;
        std::string cur;
        for (const char *p = path;; ++p) {
            if (*p == '/' || *p == '\0') {
                if (!cur.empty())
                    toks.push_back(cur);
                cur.clear();
                if (*p == '\0')
                    break;
            } else {
                cur += *p;
            }
        }
        if (toks.size() < 2)
            return YFW_RC_MAP_FAILED;
        toks.pop_back(); /* the key leaf name */
        std::string list_path;
        for (const auto &t : toks)
            list_path += "/" + t;
        const std::string &list = toks.back();

        NodeRec *r = rec_of(node);
        if (r == nullptr) {
            if (node->name != nullptr && list == node->name && (node->flags & YFW_DT_F_LIST)) {
                *entry = node;
                return YFW_RC_OK;
            }
            return YFW_RC_MAP_FAILED;
        }
        /* The node itself or one of its parents. */
        for (NodeRec *u = r; u != nullptr; u = u->parent) {
            if (u->kind == NodeKind::Entry && u->node->name != nullptr && list == u->node->name &&
                schema_path_is(u, list_path)) {
                *entry = u->node;
                return YFW_RC_OK;
            }
        }
        /* Below it: follow the remaining tokens, first child of each name. */
        std::string here = schema_path(r);
        if (list_path.compare(0, here.size(), here) != 0)
            return YFW_RC_MAP_FAILED;
        size_t skip = 0;
        for (const char *p = here.c_str(); *p != '\0'; ++p)
            skip += *p == '/';
        zidl_yfw_datatree *n = node;
        for (size_t i = skip; i < toks.size() && n != nullptr; ++i)
            n = node_child(n, toks[i].c_str());
        if (n == nullptr || !(n->flags & YFW_DT_F_LIST))
            return YFW_RC_MAP_FAILED;
        *entry = n;
        return YFW_RC_OK;
    } catch (...) {
        return YFW_RC_NO_MEMORY;
    }
}

cerrno yfw_map_get_last_token_from_path(char *path, char **token)
{
    if (token != nullptr)
        *token = nullptr;
    if (path == nullptr || token == nullptr)
        return YFW_RC_MAP_FAILED;
    size_t n = strlen(path);
    while (n > 1 && path[n - 1] == '/') /* a trailing "/" is cut off the path */
        path[--n] = '\0';
    char *slash = strrchr(path, '/');
    *token = slash != nullptr ? slash + 1 : path;
    return YFW_RC_OK;
}

cerrno yfw_map_copy_trim_path_list_ctx(yfw_map_ctx *ctx, const char *path)
{
    if (ctx == nullptr || ctx->req_ctx == nullptr || path == nullptr)
        return YFW_RC_MAP_FAILED;
    yfw_req_ctx *rc = ctx->req_ctx;
    char *copy = yfw_strdup(path, "YFW MAP trim list ctx");
    if (copy == nullptr)
        return YFW_RC_NO_MEMORY;
    wos_named_free(rc->trim_path);
    rc->trim_path = copy;
    return YFW_RC_OK;
}

void yfw_map_free_trim_path_list_ctx(yfw_map_ctx *ctx)
{
    if (ctx == nullptr || ctx->req_ctx == nullptr)
        return;
    wos_named_free(ctx->req_ctx->trim_path);
    ctx->req_ctx->trim_path = nullptr;
}

const char *ymap_oc_ni_get_vrf_name(yfw_map_ctx *ctx)
{
    const ReqState *st = state_of(ctx);
    return st != nullptr && st->has_vrf ? st->vrf.c_str() : nullptr;
}

} // extern "C"
