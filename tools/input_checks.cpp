#include "input_checks.h"

#include <arpa/inet.h>
#include <libyang/libyang.h>

#include <cctype>
#include <cstring>
#include <map>
#include <string>

#include "host/native_gate.h"

namespace ocni::yang {

namespace {

namespace h = ocni::host;

std::string path_of(const lyd_node *n)
{
    char *p = lyd_path(n, LYD_PATH_STD, nullptr, 0);
    std::string s = p != nullptr ? p : "?";
    free(p);
    return s;
}

lyd_node *child(const lyd_node *n, const char *name)
{
    for (lyd_node *c = n != nullptr ? lyd_child(n) : nullptr; c != nullptr; c = c->next)
        if (c->schema != nullptr && strcmp(c->schema->name, name) == 0)
            return c;
    return nullptr;
}

const char *value_of(const lyd_node *n, const char *name)
{
    const lyd_node *c = child(n, name);
    return c != nullptr ? lyd_get_value(c) : nullptr;
}

/* Identity values read "module:NAME" (an IPv6 address has only hex digits before its first ':'); the bare name. */
std::string bare(const char *v)
{
    if (v == nullptr)
        return "";
    const char *colon = strchr(v, ':');
    if (colon == nullptr)
        return v;
    for (const char *p = v; p < colon; ++p)
        if (!isxdigit(static_cast<unsigned char>(*p)) && *p != '.')
            return colon + 1;
    return v;
}

Error fault(const char *what, const std::string &value, const std::string &why, const lyd_node *at)
{
    return Error::input(std::string(what) + " \"" + value + "\" " + why + " (at " + path_of(at) + ")");
}

/* Each config leaf named in `keys` equals the entry's key of the same name. */
Error keys_match(const lyd_node *entry, std::initializer_list<const char *> keys)
{
    const lyd_node *config = child(entry, "config");
    for (const char *k : keys) {
        const lyd_node *repeated = child(config, k);
        const char *key = value_of(entry, k);
        if (repeated == nullptr || key == nullptr)
            continue;
        /* Identities compare by name: a key may omit the module its config leaf names. */
        if (bare(key) != bare(lyd_get_value(repeated)))
            return Error::input(std::string("config/") + k + " \"" + lyd_get_value(repeated) +
                                "\" differs from the list key \"" + key + "\" (at " + path_of(repeated) + ")");
    }
    return Error{};
}

bool is_ipv4(const std::string &text) { return text.find(':') == std::string::npos; }

Error set_tag(lyd_node *config)
{
    lyd_node *tag = child(config, "set-tag");
    if (tag == nullptr)
        return Error{};
    std::string v = lyd_get_value(tag);
    if (v.find(':') == std::string::npos && !v.empty())
        return Error{};
    uint32_t number = 0;
    if (!colon_tag_value(v, number))
        return fault("set-tag", v, v.empty() ? "is empty" : "does not fit the 32-bit route tag", tag);
    if (lyd_change_term(tag, std::to_string(number).c_str()) != LY_SUCCESS)
        return Error::internal("cannot rewrite set-tag at " + path_of(tag));
    return Error{};
}

Error next_hops(const lyd_node *route, const std::string &prefix)
{
    std::map<std::string, std::string> seen; /* native key -> index */
    for (const lyd_node *nh = lyd_child(child(route, "next-hops")); nh != nullptr; nh = nh->next) {
        if (nh->schema == nullptr || strcmp(nh->schema->name, "next-hop") != 0)
            continue;
        if (Error e = keys_match(nh, {"index"}))
            return e;
        const std::string index = value_of(nh, "index") ? value_of(nh, "index") : "";
        std::string why = h::index_fault(index);
        if (!why.empty())
            return fault("index", index, why, nh);
        const lyd_node *config = child(nh, "config");
        const lyd_node *hop = child(config, "next-hop");
        const lyd_node *ifc = child(child(nh, "interface-ref"), "config");
        const lyd_node *ifl = child(ifc, "interface");
        std::string address = hop != nullptr ? bare(lyd_get_value(hop)) : "";
        const char *sub = value_of(ifc, "subinterface");
        std::string ifname;
        if (ifl != nullptr) {
            /* The native name: interface[.subinterface]. */
            ifname = std::string(lyd_get_value(ifl)) +
                     (sub != nullptr && strcmp(sub, "0") != 0 ? "." + std::string(sub) : "");
            why = h::interface_name_fault(ifname);
            if (!why.empty())
                return fault("interface", ifname, why, ifl);
        }
        std::string key;
        if (address == "DROP") {
            key = "Null0|";
        } else if (address == "LOCAL_LINK" || address.empty()) {
            key = ifname.empty() ? "" : ifname + "|";
        } else {
            if (is_ipv4(address) != is_ipv4(prefix))
                return Error::input("next hop " + address + " is " + (is_ipv4(address) ? "IPv4" : "IPv6") +
                                    ", route " + prefix + " is " + (is_ipv4(prefix) ? "IPv4" : "IPv6") + " (at " +
                                    path_of(hop) + ")");
            key = ifname + "|" + address;
        }
        if (key.empty())
            continue;
        auto [it, fresh] = seen.emplace(key, index);
        if (!fresh)
            return Error::input("next hops " + it->second + " and " + index + " of route " + prefix +
                                " are the same next hop; give each its own address or interface (at " +
                                path_of(nh) + ")");
    }
    return Error{};
}

} // namespace

void delete_scope(const PathTarget &target, std::string &vrf, std::string &prefix)
{
    vrf.clear();
    prefix.clear();
    for (const lyd_node *n = target.node != nullptr ? target.node : target.parent; n != nullptr;
         n = lyd_parent(n)) {
        if (n->schema == nullptr)
            continue;
        if (strcmp(n->schema->name, "static") == 0 && value_of(n, "prefix") != nullptr)
            prefix = value_of(n, "prefix");
        else if (strcmp(n->schema->name, "network-instance") == 0 && value_of(n, "name") != nullptr)
            vrf = value_of(n, "name");
    }
}

bool delete_target_present(const Tree &config, const PathTarget &target)
{
    const lyd_node *at = target.node != nullptr ? target.node : target.parent;
    if (config == nullptr || at == nullptr)
        return false;
    std::string path = path_of(at);
    if (target.node == nullptr && target.leaf != nullptr)
        path += "/" + std::string(target.leaf->name);
    lyd_node *found = nullptr;
    return lyd_find_path(config.get(), path.c_str(), 0, &found) == LY_SUCCESS && found != nullptr;
}

bool colon_tag_value(const std::string &text, uint32_t &value)
{
    if (text.empty() || text.size() > 11 || text.size() % 3 != 2)
        return false;
    uint32_t v = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (i % 3 == 2) {
            if (c != ':')
                return false;
            continue;
        }
        int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (d < 0)
            return false;
        v = v << 4 | uint32_t(d);
    }
    value = v;
    return true;
}

namespace {

/* The text between `open` and the next '"' after it in `m`, or "". */
std::string quoted_after(const std::string &m, const std::string &open)
{
    size_t at = m.find(open);
    if (at == std::string::npos)
        return "";
    at += open.size();
    size_t end = m.find('"', at);
    return end == std::string::npos ? "" : m.substr(at, end - at);
}

/* "module:NAME" of the first identity called `name` in the loaded modules, or "". */
std::string prefixed_identity(const Context &ctx, const std::string &name)
{
    uint32_t i = 0;
    const lys_module *mod;
    while ((mod = ly_ctx_get_module_iter(ctx.raw(), &i)) != nullptr) {
        const lysc_ident *id;
        LY_ARRAY_FOR(mod->identities, struct lysc_ident, id) {
            if (name == id->name)
                return std::string(mod->name) + ":" + name;
        }
    }
    return "";
}

/* Prefix length a dotted netmask spells (255.255.0.0 -> 16), or -1 when it is not one. */
int mask_length(const std::string &mask)
{
    in_addr a;
    if (inet_pton(AF_INET, mask.c_str(), &a) != 1)
        return -1;
    uint32_t m = ntohl(a.s_addr);
    int len = 0;
    while (len < 32 && (m & (0x80000000u >> len)) != 0)
        ++len;
    return (len == 32 || (m << len) == 0) ? len : -1;
}

}  // namespace

std::string input_hint(const Context &ctx, const std::string &message)
{
    std::string v = quoted_after(message, "Invalid union value \"");
    if (v.empty())
        v = quoted_after(message, "Invalid identityref \"");
    if (v.empty() || v.find('\n') != std::string::npos)
        return "";
    if (v.find(':') == std::string::npos) {
        std::string full = prefixed_identity(ctx, v);
        if (!full.empty())
            return " (an identity needs its module prefix: \"" + full + "\")";
    }
    size_t slash = v.find('/');
    std::string addr = v.substr(0, slash);
    std::string canonical;
    if (!canonical_address(addr, canonical))
        return "";
    const bool v4 = addr.find(':') == std::string::npos;
    if (slash == std::string::npos)
        return " (a prefix is address/length, as in \"" + addr + (v4 ? "/24" : "/64") + "\")";
    int len = v4 ? mask_length(v.substr(slash + 1)) : -1;
    if (len >= 0)
        return " (write a prefix as address/length: \"" + addr + "/" + std::to_string(len) + "\")";
    return "";
}

Error check_new_next_hops(const Tree &tree, const std::vector<PathTarget> &deleted, const NextHopStored &stored)
{
    auto deleting = [&](const lyd_node *n) {
        for (const PathTarget &t : deleted)
            for (const lyd_node *p = n; p != nullptr; p = lyd_parent(p))
                if (t.node == p && t.leaf == nullptr)
                    return true;
        return false;
    };
    for (const lyd_node *top = tree.get(); top != nullptr; top = top->next) {
        const lyd_node *nh = nullptr;
        LYD_TREE_DFS_BEGIN(top, nh) {
            if (nh->schema != nullptr && nh->schema->nodetype == LYS_LIST && strcmp(nh->schema->name, "next-hop") == 0 &&
                !deleting(nh)) {
                const lyd_node *cfg = child(nh, "config");
                if (cfg != nullptr && child(cfg, "next-hop") == nullptr &&
                    child(child(child(nh, "interface-ref"), "config"), "interface") == nullptr) {
                    const lyd_node *st = lyd_parent(lyd_parent(nh));
                    const lyd_node *inst = st;
                    while (inst != nullptr && strcmp(inst->schema->name, "network-instance") != 0)
                        inst = lyd_parent(inst);
                    const char *index = value_of(nh, "index"), *prefix = value_of(st, "prefix");
                    const char *vrf = inst != nullptr ? value_of(inst, "name") : nullptr;
                    const std::string idx = index ? index : "", pfx = prefix ? prefix : "";
                    if (!stored(vrf ? vrf : "default", pfx, idx))
                        return Error::input("next hop \"" + idx + "\" of route " + pfx +
                                            " is new and names neither a next-hop nor an interface: add config/next-hop (at " +
                                            path_of(cfg) + ")");
                }
            }
            LYD_TREE_DFS_END(top, nh);
        }
    }
    return Error{};
}

Error read_edit(const Context &ctx, const std::string &text, Format fmt, Model model, Tree &out, size_t line_offset)
{
    size_t nul = text.find('\0');
    if (nul != std::string::npos)
        return Error::input("the document holds a NUL byte at offset " + std::to_string(nul));
    Error e = parse_fragment(ctx, text, fmt, model, out, line_offset);
    if (e && e.kind == Error::kInput)
        e.message += input_hint(ctx, e.message);
    if (!e && model == Model::kOpenConfig)
        e = check_canonical_prefixes(out);
    if (!e && model == Model::kOpenConfig)
        e = check_openconfig_input(out);
    return e;
}

Error check_openconfig_input(Tree &tree)
{
    for (lyd_node *top = tree.get(); top != nullptr; top = top->next) {
        if (top->schema == nullptr || strcmp(top->schema->name, "network-instances") != 0)
            continue;
        for (lyd_node *ni = lyd_child(top); ni != nullptr; ni = ni->next) {
            const char *name = value_of(ni, "name");
            if (name != nullptr) {
                std::string why = h::vrf_name_fault(name);
                if (!why.empty())
                    return fault("network instance name", name, why, ni);
            }
            if (Error e = keys_match(ni, {"name"}))
                return e;
            for (lyd_node *p = lyd_child(child(ni, "protocols")); p != nullptr; p = p->next) {
                if (Error e = keys_match(p, {"identifier", "name"}))
                    return e;
                for (lyd_node *r = lyd_child(child(p, "static-routes")); r != nullptr; r = r->next) {
                    if (r->schema == nullptr || strcmp(r->schema->name, "static") != 0)
                        continue;
                    if (Error e = keys_match(r, {"prefix"}))
                        return e;
                    if (Error e = set_tag(child(r, "config")))
                        return e;
                    const char *prefix = value_of(r, "prefix");
                    if (Error e = next_hops(r, prefix != nullptr ? prefix : ""))
                        return e;
                }
            }
        }
    }
    return Error{};
}

}  // namespace ocni::yang
