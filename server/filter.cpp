/*
 * Filters of the read operations. A subtree filter is turned into XPath
 * expressions, one per selected branch, with its content-match nodes as
 * predicates; both kinds are evaluated by libyang on the engine's result.
 */
#include "filter.h"

#include <cctype>
#include <cstring>
#include <set>

#include <libyang/libyang.h>

namespace ocni::server {

namespace {

bool valid_vrf_name(const std::string &name)
{
    return !name.empty() && name.size() <= 32 && name.find('/') == std::string::npos;
}

/* A key the engine can seek: a valid VRF name, a prefix in canonical form. */
bool seekable_prefix(const std::string &p)
{
    std::string canonical;
    return yang::canonical_prefix(p, canonical) && canonical == p;
}

bool ncname(const std::string &s)
{
    if (s.empty() || !(isalpha(static_cast<unsigned char>(s[0])) || s[0] == '_'))
        return false;
    for (char c : s)
        if (!(isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.'))
            return false;
    return true;
}

bool quote(const std::string &v, std::string &out)
{
    char q = v.find('\'') == std::string::npos ? '\'' : '"';
    if (q == '"' && v.find('"') != std::string::npos)
        return false;
    out = q + v + q;
    return true;
}

std::string trimmed(const char *v)
{
    std::string s = v != nullptr ? v : "";
    size_t b = s.find_first_not_of(" \t\r\n"), e = s.find_last_not_of(" \t\r\n");
    return b == std::string::npos ? "" : s.substr(b, e - b + 1);
}

const char *text_of(const lyd_node *n)
{
    if (n->schema == nullptr)
        return reinterpret_cast<const lyd_node_opaq *>(n)->value;
    if (n->schema->nodetype & LYD_NODE_TERM)
        return lyd_get_value(n);
    return nullptr;
}

/* The module of a filter node: its schema's, or the one its XML namespace names. */
const lys_module *module_of(const ly_ctx *ctx, const lyd_node *n)
{
    if (n->schema != nullptr)
        return n->schema->module;
    const lyd_node_opaq *o = reinterpret_cast<const lyd_node_opaq *>(n);
    if (o->format == LY_VALUE_XML && o->name.module_ns != nullptr)
        return ly_ctx_get_module_implemented_ns(ctx, o->name.module_ns);
    if (o->name.module_name != nullptr)
        return ly_ctx_get_module_implemented(ctx, o->name.module_name);
    return nullptr;
}

class SubtreeWalk {
public:
    SubtreeWalk(const ly_ctx *ctx, Filter &out) : ctx_(ctx), out_(out) {}

    RpcError node(const lyd_node *f, const std::string &above, const lys_module *parent_mod, std::string vrf,
                  std::string prefix)
    {
        const lys_module *mod = module_of(ctx_, f);
        if (mod == nullptr)
            return RpcError{}; /* a namespace nobody serves selects nothing */
        std::string path = above + "/" + (mod != parent_mod ? std::string(mod->name) + ":" : "") + LYD_NAME(f);
        bool deeper = false;
        for (const lyd_node *c = lyd_child(f); c != nullptr; c = c->next) {
            std::string v = trimmed(text_of(c));
            if (lyd_child(c) != nullptr || v.empty()) {
                deeper = true;
                continue;
            }
            /* A content-match node: identities match with or without their prefix. */
            std::string name = LYD_NAME(c), quoted;
            if (!quote(v, quoted))
                return RpcError::make(RpcError::kInvalidValue, "a filter value holds both quote characters");
            size_t colon = v.find(':');
            std::string local = colon == std::string::npos ? v : v.substr(colon + 1);
            std::string before = colon == std::string::npos ? "" : v.substr(0, colon);
            if (ncname(local) && (before.empty() || ncname(before)))
                path += "[" + name + "=" + quoted + " or substring-after(" + name + ",':')='" + local + "']";
            else
                path += "[" + name + "=" + quoted + "]";
            if (strcmp(LYD_NAME(f), "network-instance") == 0 && name == "name")
                vrf = valid_vrf_name(v) ? v : "";
            if (strcmp(LYD_NAME(f), "static") == 0 && name == "prefix")
                prefix = seekable_prefix(v) ? v : "";
        }
        if (!deeper) {
            out_.xpaths.push_back(path);
            reads_.push_back({vrf, prefix});
            return RpcError{};
        }
        for (const lyd_node *c = lyd_child(f); c != nullptr; c = c->next) {
            if (lyd_child(c) == nullptr && !trimmed(text_of(c)).empty())
                continue;
            RpcError e = node(c, path, mod, vrf, prefix);
            if (e)
                return e;
        }
        return RpcError{};
    }

    /* One engine read per VRF or route when every branch names one, else one read of all. */
    void finish()
    {
        std::set<std::pair<std::string, std::string>> reads;
        for (const auto &r : reads_) {
            if (r.first.empty())
                return;
            reads.insert(r);
        }
        for (const auto &r : reads) {
            if (!r.second.empty() && reads.count({r.first, ""}) != 0)
                continue;
            tool::ReadFilter f;
            f.vrf = r.first;
            f.prefix = r.second;
            out_.reads.push_back(f);
        }
    }

private:
    const ly_ctx *ctx_;
    Filter &out_;
    std::vector<std::pair<std::string, std::string>> reads_;
};

/* The single quoted value of `key` in a predicate `step[key='value']`, when the expression has exactly one. */
std::string single_predicate(const std::string &xpath, const std::string &step, const std::string &key)
{
    std::string start = step + "[" + key + "=";
    size_t at = xpath.find(start);
    if (at == std::string::npos || xpath.find(start, at + 1) != std::string::npos)
        return "";
    size_t v = at + start.size();
    if (v >= xpath.size() || (xpath[v] != '\'' && xpath[v] != '"'))
        return "";
    size_t end = xpath.find(xpath[v], v + 1);
    if (end == std::string::npos || end + 1 >= xpath.size() || xpath[end + 1] != ']')
        return "";
    return xpath.substr(v + 1, end - v - 1);
}

}  // namespace

RpcError subtree_filter(const yang::Context &ctx, const lyd_node *content, Filter &out)
{
    out = Filter{};
    out.everything = false;
    SubtreeWalk walk(ctx.raw(), out);
    out.routes = false;
    for (const lyd_node *top = content; top != nullptr; top = top->next) {
        const lys_module *mod = module_of(ctx.raw(), top);
        out.routes = out.routes || (mod != nullptr && strcmp(mod->name, yang::kNetworkInstanceModule) == 0);
        RpcError e = walk.node(top, "", nullptr, "", "");
        if (e)
            return e;
    }
    walk.finish();
    return RpcError{};
}

RpcError xpath_filter(const std::string &select, Filter &out)
{
    out = Filter{};
    out.everything = false;
    out.xpaths.push_back(select);
    /* A single branch that names one VRF (and route) is read by seeking. */
    if (select.find('|') != std::string::npos || select.find(" or ") != std::string::npos)
        return RpcError{};
    std::string vrf = single_predicate(select, "network-instance", "name");
    if (!valid_vrf_name(vrf))
        return RpcError{};
    tool::ReadFilter f;
    f.vrf = vrf;
    std::string prefix = single_predicate(select, "static", "prefix");
    if (seekable_prefix(prefix))
        f.prefix = prefix;
    out.reads.push_back(f);
    return RpcError{};
}

RpcError apply_filter(const Filter &f, yang::Tree &data)
{
    if (f.everything)
        return RpcError{};
    lyd_node *result = nullptr;
    for (const std::string &xp : f.xpaths) {
        if (!data)
            break;
        ly_set *set = nullptr;
        if (lyd_find_xpath(data.get(), xp.c_str(), &set) != LY_SUCCESS) {
            lyd_free_all(result);
            std::string why = "invalid XPath filter " + xp;
            const ly_err_item *e = ly_err_first(LYD_CTX(data.get()));
            if (e != nullptr && e->msg != nullptr)
                why += ": " + std::string(e->msg);
            ly_err_clean(const_cast<ly_ctx *>(LYD_CTX(data.get())), nullptr);
            return RpcError::make(RpcError::kInvalidValue, why);
        }
        for (uint32_t i = 0; i < set->count; ++i) {
            lyd_node *dup = nullptr;
            if (lyd_dup_single(set->dnodes[i], nullptr, LYD_DUP_RECURSIVE | LYD_DUP_WITH_PARENTS, &dup) !=
                LY_SUCCESS)
                continue;
            while (lyd_parent(dup) != nullptr)
                dup = lyd_parent(dup);
            lyd_merge_siblings(&result, dup, LYD_MERGE_DESTRUCT);
        }
        ly_set_free(set, nullptr);
    }
    data.reset(result);
    return RpcError{};
}

}  // namespace ocni::server
