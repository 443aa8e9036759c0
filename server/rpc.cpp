/*
 * RPC callbacks: get-config, get, edit-config, validate, lock, unlock,
 * kill-session (close-session and get-schema are libnetconf2's own).
 */
#include "rpc.h"

#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>

#include <libyang/libyang.h>
#include <nc_server.h>

#include "edit_ops.h"
#include "filter.h"

namespace ocni::server {

namespace {

struct Server {
    const yang::Context *ctx = nullptr;
    tool::Engine *engine = nullptr;
    /* The engine serves one request at a time; a writer waits at most this long. */
    std::timed_mutex engine_mu;
    std::mutex sessions_mu;
    std::map<uint32_t, nc_session *> sessions;
    uint32_t lock_holder = 0; /* session holding the running datastore's lock, 0 for none */
};

Server g;

const std::chrono::seconds kEngineWait(60);

nc_server_reply *error_reply(const RpcError &e)
{
    const ly_ctx *ctx = g.ctx->raw();
    const char *elem = e.element.empty() ? "config" : e.element.c_str();
    lyd_node *err;
    switch (e.tag) {
    case RpcError::kInvalidValue:
        err = nc_err(ctx, NC_ERR_INVALID_VALUE, NC_ERR_TYPE_APP);
        break;
    case RpcError::kUnknownElement:
        err = nc_err(ctx, NC_ERR_UNKNOWN_ELEM, NC_ERR_TYPE_APP, elem);
        break;
    case RpcError::kMissingElement:
        err = nc_err(ctx, NC_ERR_MISSING_ELEM, NC_ERR_TYPE_APP, elem);
        break;
    case RpcError::kBadElement:
        err = nc_err(ctx, NC_ERR_BAD_ELEM, NC_ERR_TYPE_APP, elem);
        break;
    case RpcError::kDataExists:
        err = nc_err(ctx, NC_ERR_DATA_EXISTS);
        break;
    case RpcError::kDataMissing:
        err = nc_err(ctx, NC_ERR_DATA_MISSING);
        break;
    case RpcError::kLockDenied:
        err = nc_err(ctx, NC_ERR_LOCK_DENIED, e.session);
        break;
    case RpcError::kInUse:
        err = nc_err(ctx, NC_ERR_IN_USE, NC_ERR_TYPE_APP);
        break;
    default:
        err = nc_err(ctx, NC_ERR_OP_FAILED, NC_ERR_TYPE_APP);
        break;
    }
    if (!e.message.empty())
        nc_err_set_msg(err, e.message.c_str(), "en");
    if (!e.path.empty())
        nc_err_set_path(err, e.path.c_str());
    return nc_server_reply_err(err);
}

std::string leaf(const lyd_node *rpc, const char *name)
{
    lyd_node *n = nullptr;
    if (lyd_find_path(rpc, name, 0, &n) != LY_SUCCESS || n == nullptr)
        return "";
    return lyd_get_value(n);
}

/* An anyxml parameter of the request; NULL when absent. */
lyd_node_any *any_param(const lyd_node *rpc, const char *name)
{
    lyd_node *n = nullptr;
    if (lyd_find_path(rpc, name, 0, &n) != LY_SUCCESS || n == nullptr)
        return nullptr;
    return reinterpret_cast<lyd_node_any *>(n);
}

/*
 * The content of an anyxml parameter as XML text. Printed into a string
 * that grows geometrically: libyang's own memory printer reallocates on
 * every write, which is quadratic for a large edit.
 */
bool any_text(const lyd_node_any *any, std::string &out)
{
    out.clear();
    switch (any->value_type) {
    case LYD_ANYDATA_DATATREE: {
        auto append = [](void *arg, const void *buf, size_t count) -> ssize_t {
            static_cast<std::string *>(arg)->append(static_cast<const char *>(buf), count);
            return static_cast<ssize_t>(count);
        };
        out.reserve(1 << 16);
        return any->value.tree == nullptr ||
               lyd_print_clb(append, &out, any->value.tree, LYD_XML, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK) ==
                   LY_SUCCESS;
    }
    case LYD_ANYDATA_STRING:
    case LYD_ANYDATA_XML:
        out = any->value.str != nullptr ? any->value.str : "";
        return true;
    default: {
        char *text = nullptr;
        if (lyd_any_value_str(&any->node, &text) != LY_SUCCESS)
            return false;
        out = text != nullptr ? text : "";
        free(text);
        return true;
    }
    }
}

/*
 * The configuration an anyxml parameter carries. libnetconf2 has parsed
 * it against the schema already; when that made typed configuration of
 * every node, the tree is taken from the request as it is (the request is
 * freed after this call), sparing a print and a second parse of what may
 * be a million routes. Otherwise its text is parsed strictly, which names
 * what is wrong.
 */
RpcError config_param(lyd_node_any *any, yang::Tree &out)
{
    if (any->value_type == LYD_ANYDATA_DATATREE && typed_config(any->value.tree)) {
        out.reset(any->value.tree);
        any->value.tree = nullptr;
        return check_config(out);
    }
    std::string xml;
    if (!any_text(any, xml))
        return RpcError::make(RpcError::kOperationFailed, "the configuration cannot be read");
    return parse_config(*g.ctx, xml, out);
}

RpcError read_filter(const lyd_node *rpc, Filter &f, yang::Tree &holder)
{
    f = Filter{};
    lyd_node *fn = nullptr;
    if (lyd_find_path(rpc, "filter", 0, &fn) != LY_SUCCESS || fn == nullptr)
        return RpcError{};
    const lyd_meta *type = lyd_find_meta(fn->meta, nullptr, "ietf-netconf:type");
    if (type != nullptr && strcmp(lyd_get_meta_value(type), "xpath") == 0) {
        const lyd_meta *select = lyd_find_meta(fn->meta, nullptr, "ietf-netconf:select");
        if (select == nullptr)
            return RpcError::make(RpcError::kMissingElement, "an XPath filter needs a select attribute");
        return xpath_filter(lyd_get_meta_value(select), f);
    }
    const lyd_node_any *any = reinterpret_cast<const lyd_node_any *>(fn);
    if (any->value_type == LYD_ANYDATA_DATATREE)
        return subtree_filter(*g.ctx, any->value.tree, f);
    std::string xml;
    any_text(any, xml);
    lyd_node *tree = nullptr;
    if (!xml.empty() && lyd_parse_data_mem(g.ctx->raw(), xml.c_str(), LYD_XML, LYD_PARSE_OPAQ | LYD_PARSE_ONLY, 0,
                                           &tree) != LY_SUCCESS) {
        lyd_free_all(tree);
        ly_err_clean(g.ctx->raw(), nullptr);
        return RpcError::make(RpcError::kInvalidValue, "the subtree filter does not parse");
    }
    holder.reset(tree);
    return subtree_filter(*g.ctx, tree, f);
}

/* Set by RPCs that moved routes; after_rpc() trims the heap then. */
std::atomic<bool> g_heavy{false};

nc_server_reply *data_reply(const lyd_node *rpc, yang::Tree data)
{
    lyd_node *out = nullptr;
    if (lyd_dup_single(rpc, nullptr, 0, &out) != LY_SUCCESS ||
        lyd_new_any(out, nullptr, "data", data.get(), 1, LYD_ANYDATA_DATATREE, 1, nullptr) != LY_SUCCESS) {
        lyd_free_all(out);
        return error_reply(RpcError::make(RpcError::kOperationFailed, "cannot build the reply"));
    }
    data.release();
    return nc_server_reply_data(out, NC_WD_EXPLICIT, NC_PARAMTYPE_FREE);
}

nc_server_reply *read(const lyd_node *rpc, bool state)
{
    Filter f;
    yang::Tree holder;
    RpcError e = read_filter(rpc, f, holder);
    if (e)
        return error_reply(e);
    yang::Tree data;
    if (state) {
        /* The modules of the server (YANG 1.1 modules are announced here, not in the hello). */
        lyd_node *lib = nullptr;
        if (ly_ctx_get_yanglib_data(g.ctx->raw(), &lib, "%u", ly_ctx_get_change_count(g.ctx->raw())) == LY_SUCCESS)
            data.reset(lib);
    }
    if (f.routes && (f.everything || !f.xpaths.empty())) {
        std::vector<tool::ReadFilter> reads = f.reads.empty() ? std::vector<tool::ReadFilter>(1) : f.reads;
        std::unique_lock<std::timed_mutex> lock(g.engine_mu, kEngineWait);
        if (!lock)
            return error_reply(RpcError::make(RpcError::kInUse, "the configuration is busy, try again"));
        g_heavy = true;
        for (tool::ReadFilter &r : reads) {
            r.state = state;
            yang::Tree part;
            tool::Outcome o = g.engine->get(r, part);
            if (o.status != tool::Outcome::kOk)
                return error_reply(from_outcome(o));
            lyd_node *first = data.release();
            lyd_merge_siblings(&first, part.release(), LYD_MERGE_DESTRUCT);
            data.reset(first);
        }
    }
    e = apply_filter(f, data);
    if (e)
        return error_reply(e);
    return data_reply(rpc, std::move(data));
}

nc_server_reply *rpc_get_config(lyd_node *rpc, nc_session *)
{
    return read(rpc, false);
}

nc_server_reply *rpc_get(lyd_node *rpc, nc_session *)
{
    return read(rpc, true);
}

/* The session holding the lock when it is not `me`, else 0. */
uint32_t locked_by_other(uint32_t me)
{
    std::lock_guard<std::mutex> guard(g.sessions_mu);
    return g.lock_holder != 0 && g.lock_holder != me ? g.lock_holder : 0;
}

RpcError lock_denied(uint32_t holder)
{
    RpcError e = RpcError::make(RpcError::kLockDenied,
                                "the running configuration is locked by session " + std::to_string(holder));
    e.session = holder;
    return e;
}

RpcError apply(lyd_node_any *param, Op op, bool test_only)
{
    g_heavy = true;
    yang::Tree config;
    RpcError e = config_param(param, config);
    if (e)
        return e;
    std::unique_lock<std::timed_mutex> lock(g.engine_mu, kEngineWait);
    if (!lock)
        return RpcError::make(RpcError::kInUse, "the configuration is busy, try again");
    return edit_config(*g.ctx, *g.engine, config, op, test_only);
}

nc_server_reply *rpc_edit_config(lyd_node *rpc, nc_session *session)
{
    uint32_t holder = locked_by_other(nc_session_get_id(session));
    if (holder != 0)
        return error_reply(lock_denied(holder));
    std::string dop = leaf(rpc, "default-operation");
    Op op = dop == "replace" ? Op::kReplace : dop == "none" ? Op::kNone : Op::kMerge;
    bool test_only = leaf(rpc, "test-option") == "test-only";
    if (leaf(rpc, "error-option") == "continue-on-error") {
        RpcError e = RpcError::make(RpcError::kOperationFailed,
                                    "continue-on-error is not supported: an edit applies whole or not at all");
        return error_reply(e);
    }
    lyd_node_any *config = any_param(rpc, "config");
    if (config == nullptr)
        return error_reply(RpcError::make(RpcError::kMissingElement, "edit-config needs a config element"));
    RpcError e = apply(config, op, test_only);
    return e ? error_reply(e) : nc_server_reply_ok();
}

nc_server_reply *rpc_validate(lyd_node *rpc, nc_session *)
{
    lyd_node_any *config = any_param(rpc, "source/config");
    if (config == nullptr)
        return nc_server_reply_ok(); /* the running configuration is valid as stored */
    RpcError e = apply(config, Op::kMerge, true);
    return e ? error_reply(e) : nc_server_reply_ok();
}

nc_server_reply *rpc_lock(lyd_node *, nc_session *session)
{
    uint32_t me = nc_session_get_id(session);
    std::lock_guard<std::mutex> guard(g.sessions_mu);
    if (g.lock_holder != 0)
        return error_reply(lock_denied(g.lock_holder));
    g.lock_holder = me;
    return nc_server_reply_ok();
}

nc_server_reply *rpc_unlock(lyd_node *, nc_session *session)
{
    uint32_t me = nc_session_get_id(session);
    std::lock_guard<std::mutex> guard(g.sessions_mu);
    if (g.lock_holder == 0)
        return error_reply(RpcError::make(RpcError::kOperationFailed, "the running configuration is not locked"));
    if (g.lock_holder != me)
        return error_reply(lock_denied(g.lock_holder));
    g.lock_holder = 0;
    return nc_server_reply_ok();
}

nc_server_reply *rpc_kill_session(lyd_node *rpc, nc_session *session)
{
    uint32_t me = nc_session_get_id(session);
    std::string id = leaf(rpc, "session-id");
    uint32_t target = static_cast<uint32_t>(strtoul(id.c_str(), nullptr, 10));
    if (target == me)
        return error_reply(RpcError::make(RpcError::kInvalidValue, "a session cannot kill itself, close it"));
    std::lock_guard<std::mutex> guard(g.sessions_mu);
    auto it = g.sessions.find(target);
    if (it == g.sessions.end())
        return error_reply(RpcError::make(RpcError::kInvalidValue, "no session " + id));
    nc_session_set_term_reason(it->second, NC_SESSION_TERM_KILLED);
    nc_session_set_killed_by(it->second, me);
    nc_session_set_status(it->second, NC_STATUS_INVALID);
    if (g.lock_holder == target)
        g.lock_holder = 0;
    return nc_server_reply_ok();
}

/* The text of a module the server serves (YANG or YIN). */
nc_server_reply *rpc_get_schema(lyd_node *rpc, nc_session *)
{
    std::string id = leaf(rpc, "identifier"), version = leaf(rpc, "version"), format = leaf(rpc, "format");
    const lys_module *mod = version.empty() ? ly_ctx_get_module_implemented(g.ctx->raw(), id.c_str())
                                            : ly_ctx_get_module(g.ctx->raw(), id.c_str(), version.c_str());
    if (mod == nullptr) {
        std::string which = id + (version.empty() ? "" : "@" + version);
        return error_reply(RpcError::make(RpcError::kInvalidValue, "no module " + which));
    }
    bool yin = format.find("yin") != std::string::npos;
    if (!format.empty() && !yin && format.find("yang") == std::string::npos)
        return error_reply(RpcError::make(RpcError::kInvalidValue, "schemas are served as yang or yin"));
    char *text = nullptr;
    if (lys_print_mem(&text, mod, yin ? LYS_OUT_YIN : LYS_OUT_YANG, 0) != LY_SUCCESS) {
        free(text);
        return error_reply(RpcError::make(RpcError::kOperationFailed, "cannot print module " + id));
    }
    lyd_node *out = nullptr;
    if (lyd_dup_single(rpc, nullptr, 0, &out) != LY_SUCCESS ||
        lyd_new_any(out, nullptr, "data", text, 1, LYD_ANYDATA_STRING, 1, nullptr) != LY_SUCCESS) {
        free(text);
        lyd_free_all(out);
        return error_reply(RpcError::make(RpcError::kOperationFailed, "cannot build the reply"));
    }
    return nc_server_reply_data(out, NC_WD_EXPLICIT, NC_PARAMTYPE_FREE);
}

}  // namespace

void after_rpc()
{
    if (g_heavy.exchange(false))
        malloc_trim(0);
}

bool install_rpcs(const yang::Context &ctx, tool::Engine &engine)
{
    g.ctx = &ctx;
    g.engine = &engine;
    static const struct {
        const char *path;
        nc_rpc_clb clb;
    } kRpcs[] = {
        {"/ietf-netconf:get-config", rpc_get_config}, {"/ietf-netconf:get", rpc_get},
        {"/ietf-netconf:edit-config", rpc_edit_config}, {"/ietf-netconf:validate", rpc_validate},
        {"/ietf-netconf:lock", rpc_lock}, {"/ietf-netconf:unlock", rpc_unlock},
        {"/ietf-netconf:kill-session", rpc_kill_session},
        {"/ietf-netconf-monitoring:get-schema", rpc_get_schema},
    };
    for (const auto &r : kRpcs) {
        const lysc_node *node = lys_find_path(ctx.raw(), nullptr, r.path, 0);
        if (node == nullptr)
            return false;
        const_cast<lysc_node *>(node)->priv = reinterpret_cast<void *>(r.clb);
    }
    return true;
}

void session_started(nc_session *s)
{
    std::lock_guard<std::mutex> guard(g.sessions_mu);
    g.sessions[nc_session_get_id(s)] = s;
}

void session_ended(nc_session *s)
{
    std::lock_guard<std::mutex> guard(g.sessions_mu);
    uint32_t id = nc_session_get_id(s);
    g.sessions.erase(id);
    if (g.lock_holder == id)
        g.lock_holder = 0;
}

size_t session_count()
{
    std::lock_guard<std::mutex> guard(g.sessions_mu);
    return g.sessions.size();
}

}  // namespace ocni::server
