/*
 * The native gate: one walk over a native tree, checking every value that
 * would be stored against the native module and the read direction's needs.
 */
#include "host/native_gate.h"

#include <arpa/inet.h>

#include "host/native_apply.h"

#include <cstring>
#include <set>
#include <vector>

namespace ocni::host {

namespace {

/* The object name the mapping carries in full. */
constexpr size_t OBJECT_NAME_MAX = 32;

const char *const UINT32_LEAVES[] = {"metric",        "tag",      "detect-multiplier", "minimum-interval",
                                     "vrf-lable",     "tunnel-id", "load-metric"};
const char *const BOOLEAN_LEAVES[] = {"bfd-fast-detect", "permanent"};

bool is_delete(uint32_t op) { return op == YFW_DT_OP_DELETE || op == YFW_DT_OP_REMOVE; }

template <typename F> void for_children(const zidl_yfw_datatree *n, F f)
{
    if (!(n->flags & YFW_DT_F_CHILDREN))
        return;
    for (uint32_t i = 0; i < n->n_children && n->children[i].name != nullptr; ++i)
        if (!f(&n->children[i]))
            return;
}

const char *child_value(const zidl_yfw_datatree *n, const char *name)
{
    const char *v = nullptr;
    for_children(n, [&](const zidl_yfw_datatree *c) {
        if (strcmp(c->name, name) == 0)
            v = c->value;
        return v == nullptr;
    });
    return v;
}

bool in(const char *name, const char *const *list, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        if (strcmp(list[i], name) == 0)
            return true;
    return false;
}

} // namespace

std::string shown(std::string_view s)
{
    std::string out;
    for (unsigned char c : s) {
        if (c < 0x20 || c == 0x7f) {
            char b[8];
            snprintf(b, sizeof b, "\\x%02x", c);
            out += b;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

namespace {

/* Characters no name may hold: control characters and those that end or quote an instance-path key. */
std::string common_name_fault(std::string_view s, size_t max, const char *also)
{
    if (s.empty())
        return "is empty";
    if (s.size() > max)
        return "is longer than " + std::to_string(max) + " characters";
    for (unsigned char c : s) {
        if (c < 0x20 || c == 0x7f)
            return "contains a control character";
        if (c == '[' || c == ']' || c == '\'' || c == '"' || (also != nullptr && strchr(also, c) != nullptr))
            return std::string("contains '") + static_cast<char>(c) + "'";
    }
    return "";
}

bool decimal_u32(std::string_view s, uint64_t max, uint64_t *out = nullptr)
{
    if (s.empty() || s.size() > 10 || (s.size() > 1 && s[0] == '0'))
        return false;
    uint64_t v = 0;
    for (char c : s) {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + uint64_t(c - '0');
    }
    if (out != nullptr)
        *out = v;
    return v <= max;
}

/* "" when `text` is the canonical address of the family, else why not. */
std::string address_fault(const std::string &text, bool ipv4, unsigned char *bytes = nullptr)
{
    unsigned char buf[16];
    unsigned char *b = bytes != nullptr ? bytes : buf;
    int af = ipv4 ? AF_INET : AF_INET6;
    if (inet_pton(af, text.c_str(), b) != 1) {
        unsigned char other[16];
        if (inet_pton(ipv4 ? AF_INET6 : AF_INET, text.c_str(), other) == 1)
            return std::string("is an ") + (ipv4 ? "IPv6" : "IPv4") + " address in an " + (ipv4 ? "IPv4" : "IPv6") +
                   " route";
        return std::string("is not an ") + (ipv4 ? "IPv4" : "IPv6") + " address";
    }
    if (ipv4) /* inet_pton takes IPv4 in its one dotted-quad form only (no leading zeros): canonical */
        return "";
    char canon[INET6_ADDRSTRLEN];
    if (inet_ntop(af, b, canon, sizeof canon) == nullptr || text != canon)
        return std::string("is not in canonical form, write \"") + canon + "\"";
    return "";
}

class Gate {
public:
    Gate(const GateContext &gc, GateFault &f) : gc_(gc), f_(f) {}

    bool root(const zidl_yfw_datatree *root)
    {
        for_children(root, [&](const zidl_yfw_datatree *n) {
            walk(n);
            return ok_;
        });
        return ok_;
    }

private:
    const GateContext &gc_;
    GateFault &f_;
    bool ok_ = true;
    /* The nodes from the tree's top down to the one being checked (paths are built only for a fault). */
    std::vector<const zidl_yfw_datatree *> stack_;
    /* Next hops the tree deletes before this point: their index is free again. */
    std::set<std::string> deleted_;

    bool fail(const zidl_yfw_datatree *leaf, std::string problem)
    {
        if (!ok_)
            return false;
        ok_ = false;
        f_.leaf = leaf->name;
        f_.value = leaf->value != nullptr ? leaf->value : "";
        f_.problem = std::move(problem);
        for (const zidl_yfw_datatree *n : stack_)
            f_.native_path += "/" + step(n);
        f_.native_path += "/" + std::string(leaf->name);
        return false;
    }

    static std::string step(const zidl_yfw_datatree *n)
    {
        std::string s = n->name;
        if (!(n->flags & YFW_DT_F_LIST))
            return s;
        for_children(n, [&](const zidl_yfw_datatree *c) {
            if ((c->flags & YFW_DT_F_LIST) && c->value != nullptr)
                s += "[" + std::string(c->name) + "=" + c->value + "]";
            return true;
        });
        return s;
    }

    void walk(const zidl_yfw_datatree *n)
    {
        stack_.push_back(n);
        check(n);
        stack_.pop_back();
    }

    /* Nothing below a delete is walked, so a node is deleted exactly when its own operation says so. */
    void check(const zidl_yfw_datatree *n)
    {
        const char *name = n->name;
        const bool deleting = is_delete(n->op);
        if (strcmp(name, "vrf") == 0 || strcmp(name, "default-vrf") == 0) {
            const char *v = child_value(n, "vrf-name");
            f_.vrf = strcmp(name, "default-vrf") == 0 ? "default" : v != nullptr ? v : "";
            if (v != nullptr && !deleting && !vrf(n))
                return;
        } else if (strcmp(name, "vrfipv4") == 0 || strcmp(name, "vrfipv6") == 0) {
            f_.ipv4 = name[6] == '4';
        } else if (strcmp(name, "vrf-prefix") == 0) {
            f_.prefix = f_.length = f_.index = "";
            if (!deleting && !prefix(n))
                return;
        } else if (strncmp(name, "vrf-next-hop-", 13) == 0 && (n->flags & YFW_DT_F_LIST)) {
            const char *idx = child_value(n, "index");
            f_.index = idx != nullptr ? idx : "";
            if (deleting)
                deleted_.insert(next_hop_id(n));
            else if (!next_hop(n))
                return;
        }
        if (deleting)
            return;
        for_children(n, [&](const zidl_yfw_datatree *c) {
            if (c->flags & YFW_DT_F_CHILDREN)
                walk(c);
            return ok_;
        });
    }

    /*
     * Whether the subtree creates or sets anything: a non-key leaf or a bare
     * node that is not deleted. The ancestors of deletes write nothing.
     */
    static bool writes(const zidl_yfw_datatree *n)
    {
        if (is_delete(n->op))
            return false;
        if (!(n->flags & YFW_DT_F_CHILDREN))
            return n->value == nullptr || !(n->flags & YFW_DT_F_LIST);
        bool any = false, bare = true;
        for_children(n, [&](const zidl_yfw_datatree *c) {
            if ((c->flags & YFW_DT_F_CHILDREN) || !(c->flags & YFW_DT_F_LIST))
                bare = false;
            any = writes(c);
            return !any;
        });
        return any || bare;
    }

    /* Routes in a VRF the router does not know can be deleted, never created or changed. */
    bool vrf(const zidl_yfw_datatree *n)
    {
        const zidl_yfw_datatree *leaf = nullptr;
        for_children(n, [&](const zidl_yfw_datatree *c) {
            if (strcmp(c->name, "vrf-name") == 0)
                leaf = c;
            return leaf == nullptr;
        });
        std::string why = vrf_name_fault(f_.vrf);
        if (!why.empty())
            return fail(leaf, why);
        if (gc_.vrf_known && writes(n) && !gc_.vrf_known(f_.vrf))
            return fail(leaf, "is not a VRF the router knows");
        return true;
    }

    bool prefix(const zidl_yfw_datatree *n)
    {
        const zidl_yfw_datatree *p = nullptr, *l = nullptr;
        for_children(n, [&](const zidl_yfw_datatree *c) {
            if (strcmp(c->name, "prefix") == 0)
                p = c;
            else if (strcmp(c->name, "prefix-length") == 0)
                l = c;
            return true;
        });
        if (p == nullptr || l == nullptr || p->value == nullptr || l->value == nullptr)
            return true; /* an entry without its keys names the whole list */
        f_.prefix = p->value;
        f_.length = l->value;
        const uint64_t max = f_.ipv4 ? 32 : 128;
        uint64_t len = 0;
        if (!decimal_u32(l->value, max, &len))
            return fail(l, "is not a prefix length from 0 to " + std::to_string(max));
        unsigned char b[16];
        std::string why = address_fault(p->value, f_.ipv4, b);
        if (!why.empty())
            return fail(p, why);
        for (uint64_t bit = len; bit < max; ++bit)
            if (b[bit / 8] & (0x80 >> (bit % 8)))
                return fail(p, "has bits set beyond its prefix length " + std::to_string(len));
        return true;
    }

    bool next_hop(const zidl_yfw_datatree *n)
    {
        const zidl_yfw_datatree *index = nullptr;
        for_children(n, [&](const zidl_yfw_datatree *c) {
            if (c->value == nullptr || (c->flags & YFW_DT_F_CHILDREN) || is_delete(c->op))
                return true;
            if (strcmp(c->name, "index") == 0)
                index = c;
            leaf(c);
            return ok_;
        });
        if (ok_ && index != nullptr && gc_.config != nullptr)
            index_free(n, index);
        return ok_;
    }

    static NhKey nh_key(const zidl_yfw_datatree *n)
    {
        const char *const tables[] = {"vrf-next-hop-interface-name", "vrf-next-hop-interface-name-next-hop-address",
                                      "vrf-next-hop-next-hop-address"};
        NhKey k;
        for (int t = 0; t < 3; ++t)
            if (strcmp(n->name, tables[t]) == 0)
                k.table = static_cast<NhTable>(t);
        const char *ifn = child_value(n, "interface-name"), *addr = child_value(n, "next-hop-address");
        k.interface = k.table != NhTable::Address && ifn != nullptr ? ifn : "";
        k.address = k.table != NhTable::Interface && addr != nullptr ? addr : "";
        return k;
    }

    /* The next hop `n` names, within the route being checked. */
    std::string next_hop_id(const zidl_yfw_datatree *n) const
    {
        NhKey k = nh_key(n);
        return f_.vrf + '\n' + (f_.ipv4 ? "4\n" : "6\n") + f_.prefix + '/' + f_.length + '\n' +
               std::to_string(static_cast<int>(k.table)) + '\n' + k.interface + '\n' + k.address;
    }

    /* The stored next hop this entry names keeps its own index, if it has one and the tree keeps it. */
    void index_free(const zidl_yfw_datatree *n, const zidl_yfw_datatree *index)
    {
        if (!deleted_.empty() && deleted_.count(next_hop_id(n)) != 0)
            return;
        NhKey k = nh_key(n);
        Route r;
        if (!gc_.config->find_route(RouteKey{f_.vrf, f_.ipv4, f_.prefix, f_.length}, r))
            return;
        auto nh = r.next_hops.find(k);
        if (nh == r.next_hops.end())
            return;
        auto stored = nh->second.find("index");
        if (stored != nh->second.end() && !stored->second.empty() && stored->second != index->value)
            fail(index,
                 "names the next hop stored as index \"" + stored->second + "\" (same address and interface); delete "
                 "that one first or give this one its own address or interface");
    }

    void leaf(const zidl_yfw_datatree *c)
    {
        const std::string v = c->value;
        const char *name = c->name;
        std::string why;
        if (strcmp(name, "interface-name") == 0)
            why = interface_name_fault(v);
        else if (strcmp(name, "next-hop-address") == 0)
            why = address_fault(v, f_.ipv4);
        else if (strcmp(name, "index") == 0)
            why = index_fault(v);
        else if (in(name, UINT32_LEAVES, sizeof UINT32_LEAVES / sizeof *UINT32_LEAVES))
            why = decimal_u32(v, 0xffffffffu) ? "" : "is not a number from 0 to 4294967295";
        else if (in(name, BOOLEAN_LEAVES, sizeof BOOLEAN_LEAVES / sizeof *BOOLEAN_LEAVES))
            why = v == "true" || v == "false" ? "" : "is not true or false";
        else if (strcmp(name, "object-name") == 0)
            why = common_name_fault(v, OBJECT_NAME_MAX, nullptr);
        if (!why.empty())
            fail(c, why);
    }
};

} // namespace

std::string vrf_name_fault(std::string_view name) { return common_name_fault(name, GATE_VRF_NAME_MAX, "/"); }

std::string interface_name_fault(std::string_view name)
{
    /* '_' stands for '/' in the store keys and ',' separates their parts. */
    std::string why = common_name_fault(name, GATE_INTERFACE_MAX, " ,_");
    if (!why.empty())
        return why;
    size_t dot = name.find('.');
    if (dot == std::string_view::npos)
        return "";
    if (dot == 0)
        return "has no interface before its '.'";
    uint64_t sub = 0;
    if (!decimal_u32(name.substr(dot + 1), 0xffffffffu, &sub) || sub == 0)
        return "has a subinterface that is not a number from 1 to 4294967295";
    return "";
}

std::string index_fault(std::string_view index) { return common_name_fault(index, GATE_INDEX_MAX, nullptr); }

std::string GateFault::sentence() const { return leaf + " \"" + shown(value) + "\" " + problem; }

std::string GateFault::openconfig_sentence() const
{
    struct Map {
        const char *native, *oc, *below; /* below: "" route, "nh" next hop, "ni" instance */
    } const map[] = {
        {"vrf-name", "network instance name", "ni"},
        {"prefix", "prefix", ""},
        {"prefix-length", "prefix length", ""},
        {"tag", "set-tag", ""},
        {"description", "description", ""},
        {"interface-name", "interface", "nh"},
        {"next-hop-address", "next-hop", "nh"},
        {"index", "index", "nh"},
        {"metric", "metric", "nh"},
    };
    const char *oc = leaf.c_str(), *below = "nh";
    for (const Map &m : map)
        if (leaf == m.native) {
            oc = m.oc;
            below = m.below;
        }
    std::string at = "/network-instances/network-instance[name=" + (vrf.empty() ? std::string("default") : vrf) + "]";
    if (strcmp(below, "ni") == 0) {
        at += "/config/name";
    } else {
        at += "/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=" + prefix + "/" +
              length + "]";
        if (strcmp(below, "nh") == 0 && !index.empty())
            at += "/next-hops/next-hop[index=" + index + "]";
        if (leaf == "interface-name")
            at += "/interface-ref/config/interface";
        else if (leaf == "prefix" || leaf == "prefix-length")
            at += "/config/prefix";
        else
            at += "/config/" + std::string(oc);
    }
    return std::string(oc) + " \"" + shown(value) + "\" " + problem + " (at " + shown(at) + ")";
}

bool gate_native_tree(const zidl_yfw_datatree *root, const GateContext &gc, GateFault &fault)
{
    fault = GateFault{};
    if (root == nullptr)
        return true;
    return Gate(gc, fault).root(root);
}

} // namespace ocni::host
