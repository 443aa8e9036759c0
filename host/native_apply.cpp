#include "native_apply.h"

#include <strings.h>

#include <cstring>

#include "store.h"
#include "store_layout.h"
#include "tree.h"

namespace ocni::host {

namespace {

constexpr const char *NS_NATIVE = "urn:velmar:yang:ip-static-cfg";
const char *const NH_LISTS[] = {"vrf-next-hop-interface-name", "vrf-next-hop-interface-name-next-hop-address",
                                "vrf-next-hop-next-hop-address"};
/* Leaves of a next-hop entry, in schema order (keys excluded). */
const char *const NH_LEAVES[] = {"index",     "metric",    "tag",         "description", "bfd-fast-detect",
                                 "detect-multiplier", "minimum-interval", "permanent", "vrf-lable",
                                 "tunnel-id", "load-metric", "object-name"};

bool is_delete(uint32_t op) { return op == YFW_DT_OP_DELETE || op == YFW_DT_OP_REMOVE; }

/* The operation a node carries, or the one it inherits. */
uint32_t effective_op(const zidl_yfw_datatree *n, uint32_t inherited)
{
    if (is_delete(n->op) || n->op == YFW_DT_OP_MERGE || n->op == YFW_DT_OP_CREATE || n->op == YFW_DT_OP_REPLACE)
        return n->op;
    return inherited;
}

bool nh_leaf_known(const char *name)
{
    for (const char *l : NH_LEAVES)
        if (strcmp(l, name) == 0)
            return true;
    return false;
}

int table_of(const char *list)
{
    for (int i = 0; i < 3; ++i)
        if (strcmp(NH_LISTS[i], list) == 0)
            return i;
    return -1;
}

const char *child_value(const zidl_yfw_datatree *n, const char *name)
{
    if (!(n->flags & YFW_DT_F_CHILDREN) || n->children == nullptr)
        return nullptr;
    for (uint32_t i = 0; i < n->n_children; ++i) {
        const zidl_yfw_datatree &c = n->children[i];
        if (c.name == nullptr)
            break;
        if (strcmp(c.name, name) == 0)
            return c.value;
    }
    return nullptr;
}

template <typename F> void for_children(const zidl_yfw_datatree *n, F f)
{
    if (!(n->flags & YFW_DT_F_CHILDREN) || n->children == nullptr)
        return;
    for (uint32_t i = 0; i < n->n_children; ++i) {
        const zidl_yfw_datatree *c = &n->children[i];
        if (c->name == nullptr)
            break;
        f(c);
    }
}

} // namespace

const char *nh_table_list(NhTable t) { return NH_LISTS[static_cast<int>(t)]; }

bool is_default_vrf(const std::string &vrf) { return strcasecmp(vrf.c_str(), "default") == 0; }

bool RouteKey::operator<(const RouteKey &o) const
{
    if (vrf != o.vrf)
        return vrf < o.vrf;
    if (ipv4 != o.ipv4)
        return ipv4 > o.ipv4; /* IPv4 first */
    if (prefix != o.prefix)
        return prefix < o.prefix;
    return length < o.length;
}
bool RouteKey::operator==(const RouteKey &o) const
{
    return vrf == o.vrf && ipv4 == o.ipv4 && prefix == o.prefix && length == o.length;
}
bool NhKey::operator<(const NhKey &o) const
{
    if (table != o.table)
        return table < o.table;
    if (interface != o.interface)
        return interface < o.interface;
    return address < o.address;
}
bool NhKey::operator==(const NhKey &o) const
{
    return table == o.table && interface == o.interface && address == o.address;
}

std::string nh_openconfig_index(const NhKey &k, const NhLeaves &leaves)
{
    auto it = leaves.find("index");
    if (it != leaves.end() && !it->second.empty())
        return it->second;
    switch (k.table) {
    case NhTable::Interface:
        return k.interface == "Null0" ? std::string("##DROP##") : "##" + k.interface + "##";
    case NhTable::InterfaceAddress:
        return "##" + k.interface + "##" + k.address + "##";
    case NhTable::Address:
        return "##" + k.address + "##";
    }
    return std::string();
}

NativeConfig::NativeConfig(StoreBackend *backend) : backend_(backend) {}

bool NativeConfig::open(std::string &err)
{
    routes_.clear();
    vrfs_.clear();
    undo_.clear();
    vrfs_added_.clear();
    vrfs_removed_.clear();
    if (backend_ == nullptr)
        return true;
    return backend_->load(routes_, vrfs_, err);
}

bool NativeConfig::vrf_known(const std::string &vrf) const
{
    return is_default_vrf(vrf) || vrfs_.count(vrf) != 0;
}

std::vector<std::string> NativeConfig::vrfs_with_routes() const
{
    std::vector<std::string> out;
    for (auto it = routes_.begin(); it != routes_.end();) {
        out.push_back(it->first.vrf);
        /* Skip to the first route of the next VRF. */
        RouteKey next{it->first.vrf + '\0', true, "", ""};
        it = routes_.lower_bound(next);
    }
    return out;
}

const Route *NativeConfig::find_route(const RouteKey &k) const
{
    auto it = routes_.find(k);
    return it == routes_.end() ? nullptr : &it->second;
}

std::string NativeConfig::route_path(const RouteKey &k)
{
    std::string p = is_default_vrf(k.vrf) ? "/router-static/default-vrf"
                                          : "/router-static/vrfs/vrf[vrf-name=" + k.vrf + "]";
    p += std::string("/address-family/") + (k.ipv4 ? "vrfipv4" : "vrfipv6");
    p += "/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=" + k.prefix + "][prefix-length=" + k.length + "]";
    return p;
}

std::string NativeConfig::nh_path(const RouteKey &k, const NhKey &n)
{
    std::string p = route_path(k) + "/vrf-route/vrf-next-hop-table/" + nh_table_list(n.table);
    if (n.table != NhTable::Address)
        p += "[interface-name=" + n.interface + "]";
    if (n.table != NhTable::Interface)
        p += "[next-hop-address=" + n.address + "]";
    return p;
}

Route &NativeConfig::touch(const RouteKey &k, bool create)
{
    auto it = routes_.find(k);
    if (undo_.find(k) == undo_.end())
        undo_.emplace(k, it == routes_.end() ? std::nullopt : std::optional<Route>(it->second));
    if (it == routes_.end() && create)
        it = routes_.emplace(k, Route{}).first;
    return it->second;
}

void NativeConfig::remove_route(const RouteKey &k, std::vector<std::string> &changes)
{
    auto it = routes_.find(k);
    if (it == routes_.end())
        return;
    touch(k, false);
    routes_.erase(k);
    changes.push_back("delete " + route_path(k));
}

void NativeConfig::remove_routes_if(const std::string *vrf, const bool *ipv4, std::vector<std::string> &changes)
{
    std::vector<RouteKey> victims;
    auto it = vrf ? routes_.lower_bound(RouteKey{*vrf, true, "", ""}) : routes_.begin();
    for (; it != routes_.end(); ++it) {
        if (vrf && it->first.vrf != *vrf)
            break;
        if (ipv4 && it->first.ipv4 != *ipv4)
            continue;
        victims.push_back(it->first);
    }
    for (const RouteKey &k : victims)
        remove_route(k, changes);
}

/* Applies one native tree; keeps the first error. */
class NativeApplier {
public:
    NativeApplier(NativeConfig &c, std::vector<std::string> &changes) : c_(c), changes_(changes) {}
    std::string err;

    void root(const zidl_yfw_datatree *root)
    {
        for_children(root, [&](const zidl_yfw_datatree *n) {
            if (strcmp(n->name, "router-static") == 0)
                router_static(n, effective_op(n, YFW_DT_OP_MERGE));
            else
                fail("unknown native node /" + std::string(n->name));
        });
    }

private:
    NativeConfig &c_;
    std::vector<std::string> &changes_;

    void fail(const std::string &e)
    {
        if (err.empty())
            err = e;
    }

    void router_static(const zidl_yfw_datatree *n, uint32_t op)
    {
        if (is_delete(op)) {
            c_.remove_routes_if(nullptr, nullptr, changes_);
            return;
        }
        for_children(n, [&](const zidl_yfw_datatree *ch) {
            uint32_t cop = effective_op(ch, op);
            if (strcmp(ch->name, "default-vrf") == 0) {
                vrf_body(ch, "default", cop);
            } else if (strcmp(ch->name, "vrfs") == 0) {
                if (is_delete(cop)) {
                    delete_named_vrfs(nullptr);
                    return;
                }
                for_children(ch, [&](const zidl_yfw_datatree *v) {
                    if (strcmp(v->name, "vrf") != 0)
                        return fail("unknown native node " + std::string(v->name) + " under vrfs");
                    const char *name = child_value(v, "vrf-name");
                    uint32_t vop = effective_op(v, cop);
                    if (name == nullptr || *name == '\0') {
                        if (is_delete(vop))
                            delete_named_vrfs(nullptr);
                        else
                            fail("native vrf entry without vrf-name");
                        return;
                    }
                    vrf_body(v, name, vop);
                });
            } else {
                fail("unknown native node " + std::string(ch->name) + " under router-static");
            }
        });
    }

    void delete_named_vrfs(const std::string *only)
    {
        std::vector<std::string> vrfs;
        for (const std::string &v : c_.vrfs_with_routes())
            if (!is_default_vrf(v) && (only == nullptr || *only == v))
                vrfs.push_back(v);
        for (const std::string &v : vrfs)
            c_.remove_routes_if(&v, nullptr, changes_);
    }

    /* A VRF's subtree: default-vrf, or a vrfs/vrf entry. */
    void vrf_body(const zidl_yfw_datatree *n, const std::string &vrf_in, uint32_t op)
    {
        const std::string vrf = is_default_vrf(vrf_in) ? std::string("default") : vrf_in;
        if (is_delete(op)) {
            c_.remove_routes_if(&vrf, nullptr, changes_);
            return;
        }
        for_children(n, [&](const zidl_yfw_datatree *ch) {
            if (strcmp(ch->name, "vrf-name") == 0)
                return;
            if (strcmp(ch->name, "address-family") != 0)
                return fail("unknown native node " + std::string(ch->name) + " in a vrf");
            uint32_t aop = effective_op(ch, op);
            if (is_delete(aop)) {
                c_.remove_routes_if(&vrf, nullptr, changes_);
                return;
            }
            for_children(ch, [&](const zidl_yfw_datatree *af) {
                bool v4 = strcmp(af->name, "vrfipv4") == 0;
                if (!v4 && strcmp(af->name, "vrfipv6") != 0)
                    return fail("unknown address family " + std::string(af->name));
                family(af, vrf, v4, effective_op(af, aop));
            });
        });
    }

    void family(const zidl_yfw_datatree *af, const std::string &vrf, bool v4, uint32_t op)
    {
        /* vrfipvX / vrf-unicast / vrf-prefixes / vrf-prefix */
        if (is_delete(op)) {
            c_.remove_routes_if(&vrf, &v4, changes_);
            return;
        }
        for_children(af, [&](const zidl_yfw_datatree *u) {
            if (strcmp(u->name, "vrf-unicast") != 0)
                return fail("unknown native node " + std::string(u->name));
            uint32_t uop = effective_op(u, op);
            if (is_delete(uop))
                return c_.remove_routes_if(&vrf, &v4, changes_);
            for_children(u, [&](const zidl_yfw_datatree *ps) {
                if (strcmp(ps->name, "vrf-prefixes") != 0)
                    return fail("unknown native node " + std::string(ps->name));
                uint32_t pop = effective_op(ps, uop);
                if (is_delete(pop))
                    return c_.remove_routes_if(&vrf, &v4, changes_);
                for_children(ps, [&](const zidl_yfw_datatree *e) {
                    if (strcmp(e->name, "vrf-prefix") != 0)
                        return fail("unknown native node " + std::string(e->name));
                    prefix_entry(e, vrf, v4, effective_op(e, pop));
                });
            });
        });
    }

    void prefix_entry(const zidl_yfw_datatree *e, const std::string &vrf, bool v4, uint32_t op)
    {
        const char *pfx = child_value(e, "prefix");
        const char *len = child_value(e, "prefix-length");
        bool has_pfx = pfx != nullptr && *pfx != '\0';
        bool has_len = len != nullptr && *len != '\0';
        if (!has_pfx && !has_len) {
            /* An entry without keys names the whole list. */
            if (is_delete(op))
                c_.remove_routes_if(&vrf, &v4, changes_);
            else if (has_content(e))
                fail("native vrf-prefix entry without prefix");
            return;
        }
        if (!has_pfx || !has_len)
            return fail("native vrf-prefix entry needs both prefix and prefix-length");
        RouteKey k{vrf, v4, pfx, len};
        if (is_delete(op)) {
            c_.remove_route(k, changes_);
            return;
        }
        bool existed = c_.routes_.count(k) != 0;
        Route &r = c_.touch(k, true);
        if (!existed)
            changes_.push_back("create " + NativeConfig::route_path(k));
        for_children(e, [&](const zidl_yfw_datatree *ch) {
            if (strcmp(ch->name, "prefix") == 0 || strcmp(ch->name, "prefix-length") == 0)
                return;
            if (strcmp(ch->name, "vrf-route") != 0)
                return fail("unknown native node " + std::string(ch->name) + " in vrf-prefix");
            uint32_t rop = effective_op(ch, op);
            if (is_delete(rop))
                return remove_all_nhs(k, r);
            for_children(ch, [&](const zidl_yfw_datatree *t) {
                if (strcmp(t->name, "vrf-next-hop-table") != 0)
                    return fail("unknown native node " + std::string(t->name) + " in vrf-route");
                uint32_t top = effective_op(t, rop);
                if (is_delete(top))
                    return remove_all_nhs(k, r);
                for_children(t, [&](const zidl_yfw_datatree *nh) { nh_entry(nh, k, r, effective_op(nh, top)); });
            });
        });
    }

    static bool has_content(const zidl_yfw_datatree *e)
    {
        bool any = false;
        for_children(e, [&](const zidl_yfw_datatree *c) {
            if (strcmp(c->name, "prefix") != 0 && strcmp(c->name, "prefix-length") != 0)
                any = true;
        });
        return any;
    }

    void remove_all_nhs(const RouteKey &k, Route &r)
    {
        for (const auto &nh : r.next_hops)
            changes_.push_back("delete " + NativeConfig::nh_path(k, nh.first));
        r.next_hops.clear();
    }

    void nh_entry(const zidl_yfw_datatree *e, const RouteKey &rk, Route &r, uint32_t op)
    {
        int t = table_of(e->name);
        if (t < 0)
            return fail("unknown native next-hop table " + std::string(e->name));
        NhKey k;
        k.table = static_cast<NhTable>(t);
        const char *ifn = child_value(e, "interface-name");
        const char *addr = child_value(e, "next-hop-address");
        bool need_if = k.table != NhTable::Address, need_addr = k.table != NhTable::Interface;
        bool has_if = ifn != nullptr && *ifn != '\0', has_addr = addr != nullptr && *addr != '\0';
        if ((need_if && !has_if) || (need_addr && !has_addr)) {
            /* An entry without its keys names the whole table. */
            if (is_delete(op) && !has_if && !has_addr) {
                std::vector<NhKey> victims;
                for (const auto &nh : r.next_hops)
                    if (nh.first.table == k.table)
                        victims.push_back(nh.first);
                for (const NhKey &v : victims) {
                    r.next_hops.erase(v);
                    changes_.push_back("delete " + NativeConfig::nh_path(rk, v));
                }
                return;
            }
            return fail(std::string("native ") + e->name + " entry without its keys");
        }
        if (need_if)
            k.interface = ifn;
        if (need_addr)
            k.address = addr;
        const std::string path = NativeConfig::nh_path(rk, k);
        auto it = r.next_hops.find(k);
        if (is_delete(op)) {
            if (it != r.next_hops.end()) {
                r.next_hops.erase(it);
                changes_.push_back("delete " + path);
            }
            return;
        }
        if (it == r.next_hops.end()) {
            it = r.next_hops.emplace(k, NhLeaves{}).first;
            changes_.push_back("create " + path);
        }
        NhLeaves &leaves = it->second;
        for_children(e, [&](const zidl_yfw_datatree *l) {
            if (strcmp(l->name, "interface-name") == 0 || strcmp(l->name, "next-hop-address") == 0)
                return;
            if (!nh_leaf_known(l->name))
                return fail("unknown native leaf " + std::string(l->name) + " in " + e->name);
            uint32_t lop = effective_op(l, op);
            auto lit = leaves.find(l->name);
            if (is_delete(lop)) {
                if (lit != leaves.end()) {
                    leaves.erase(lit);
                    changes_.push_back("delete " + path + "/" + l->name);
                }
                return;
            }
            if (l->value == nullptr)
                return; /* a leaf named without a value asks for nothing */
            if (lit == leaves.end() || lit->second != l->value) {
                leaves[l->name] = l->value;
                changes_.push_back("merge " + path + "/" + l->name + " = " + l->value);
            }
        });
    }
};

bool NativeConfig::apply(const zidl_yfw_datatree *root, std::vector<std::string> &changes, std::string &err)
{
    size_t first = changes.size();
    NativeApplier a(*this, changes);
    a.root(root);
    if (!a.err.empty()) {
        err = a.err;
        rollback();
        changes.resize(first);
        return false;
    }
    return true;
}

bool NativeConfig::add_vrf(const std::string &vrf, std::vector<std::string> &changes)
{
    if (vrf.empty() || is_default_vrf(vrf) || vrfs_.count(vrf))
        return false;
    vrfs_.insert(vrf);
    if (!vrfs_removed_.erase(vrf))
        vrfs_added_.insert(vrf);
    changes.push_back("create vrf " + vrf);
    return true;
}

bool NativeConfig::remove_vrf(const std::string &vrf, std::vector<std::string> &changes, std::string &err)
{
    if (!vrfs_.count(vrf)) {
        err = "VRF " + vrf + " is not configured";
        return false;
    }
    if (routes_.lower_bound(RouteKey{vrf, true, "", ""}) != routes_.end() &&
        routes_.lower_bound(RouteKey{vrf, true, "", ""})->first.vrf == vrf) {
        err = "VRF " + vrf + " still holds static routes";
        return false;
    }
    vrfs_.erase(vrf);
    if (!vrfs_added_.erase(vrf))
        vrfs_removed_.insert(vrf);
    changes.push_back("delete vrf " + vrf);
    return true;
}

bool NativeConfig::commit(std::string &err)
{
    if (backend_ != nullptr && (!undo_.empty() || !vrfs_added_.empty() || !vrfs_removed_.empty())) {
        std::vector<std::pair<const RouteKey *, const Route *>> now;
        now.reserve(undo_.size());
        for (const auto &u : undo_) {
            auto it = routes_.find(u.first);
            /* A route left without next hops stays: the native prefix entry exists on its own. */
            now.emplace_back(&u.first, it == routes_.end() ? nullptr : &it->second);
        }
        if (!backend_->commit(now, routes_, vrfs_added_, vrfs_removed_, err)) {
            rollback();
            return false;
        }
    }
    undo_.clear();
    vrfs_added_.clear();
    vrfs_removed_.clear();
    return true;
}

void NativeConfig::rollback()
{
    for (auto &u : undo_) {
        if (u.second)
            routes_[u.first] = std::move(*u.second);
        else
            routes_.erase(u.first);
    }
    undo_.clear();
    for (const std::string &v : vrfs_added_)
        vrfs_.erase(v);
    for (const std::string &v : vrfs_removed_)
        vrfs_.insert(v);
    vrfs_added_.clear();
    vrfs_removed_.clear();
}

zidl_yfw_datatree *NativeConfig::to_tree(const std::set<RouteKey> *only) const
{
    zidl_yfw_datatree *root = tree_new();
    if (root == nullptr || routes_.empty() || (only != nullptr && only->empty()))
        return root;
    NodeRef rs = node_ref(node_add_child(root, "router-static", NodeKind::Container, nullptr, NS_NATIVE));
    NodeRef vrfs;                       /* /router-static/vrfs, made on first use */
    NodeRef vrf_node, af_node, prefixes; /* current VRF body, family and vrf-prefixes */
    std::string cur_vrf;
    int cur_af = -1;
    auto add = [](NodeRef parent, const char *name, NodeKind kind, const char *value = nullptr) {
        return node_ref(node_add_child(node_get(parent), name, kind, value, NS_NATIVE));
    };
    for (const auto &rt : routes_) {
        const RouteKey &k = rt.first;
        if (only != nullptr && only->count(k) == 0)
            continue;
        if (!vrf_node || k.vrf != cur_vrf) {
            cur_vrf = k.vrf;
            cur_af = -1;
            if (is_default_vrf(k.vrf)) {
                vrf_node = add(rs, "default-vrf", NodeKind::Container);
            } else {
                if (!vrfs)
                    vrfs = add(rs, "vrfs", NodeKind::Container);
                vrf_node = node_ref(node_add_entry(node_get(vrfs), "vrf", {{"vrf-name", k.vrf}}, NS_NATIVE));
            }
            af_node = add(vrf_node, "address-family", NodeKind::Container);
        }
        if (cur_af != (k.ipv4 ? 4 : 6)) {
            cur_af = k.ipv4 ? 4 : 6;
            NodeRef fam = add(af_node, k.ipv4 ? "vrfipv4" : "vrfipv6", NodeKind::Container);
            NodeRef uni = add(fam, "vrf-unicast", NodeKind::Container);
            prefixes = add(uni, "vrf-prefixes", NodeKind::Container);
        }
        NodeRef e = node_ref(
            node_add_entry(node_get(prefixes), "vrf-prefix", {{"prefix", k.prefix}, {"prefix-length", k.length}},
                           NS_NATIVE));
        if (rt.second.next_hops.empty())
            continue;
        NodeRef route = add(e, "vrf-route", NodeKind::Container);
        NodeRef table = add(route, "vrf-next-hop-table", NodeKind::Container);
        for (const auto &nh : rt.second.next_hops) {
            std::vector<std::pair<std::string, std::string>> keys;
            if (nh.first.table != NhTable::Address)
                keys.emplace_back("interface-name", nh.first.interface);
            if (nh.first.table != NhTable::Interface)
                keys.emplace_back("next-hop-address", nh.first.address);
            zidl_yfw_datatree *ne = node_add_entry(node_get(table), nh_table_list(nh.first.table), keys, NS_NATIVE);
            NodeRef ner = node_ref(ne);
            for (const char *leaf : NH_LEAVES) {
                auto it = nh.second.find(leaf);
                if (it != nh.second.end())
                    node_add_child(node_get(ner), leaf, NodeKind::Leaf, it->second.c_str(), NS_NATIVE);
            }
        }
    }
    return root;
}

/* ---------------------------------------------------------------- */
/* The backend over the host's store engine                          */
/* ---------------------------------------------------------------- */

namespace {

const std::string NATIVE_ROOT = "/host/native/route/";
constexpr char SEP = '\x1f';

std::string native_key(const RouteKey &k)
{
    return NATIVE_ROOT + k.vrf + SEP + (k.ipv4 ? '4' : '6') + SEP + k.prefix + SEP + k.length;
}

bool parse_native_key(const std::string &key, RouteKey &k)
{
    std::vector<std::string> parts;
    size_t pos = NATIVE_ROOT.size();
    for (;;) {
        size_t sep = key.find(SEP, pos);
        parts.push_back(key.substr(pos, sep == std::string::npos ? std::string::npos : sep - pos));
        if (sep == std::string::npos)
            break;
        pos = sep + 1;
    }
    if (parts.size() != 4 || (parts[1] != "4" && parts[1] != "6"))
        return false;
    k = RouteKey{parts[0], parts[1] == "4", parts[2], parts[3]};
    return true;
}

void put_str(std::string &b, const std::string &s)
{
    uint32_t n = static_cast<uint32_t>(s.size());
    b.append(reinterpret_cast<const char *>(&n), sizeof n);
    b += s;
}

bool get_str(const std::string &b, size_t &pos, std::string &s)
{
    uint32_t n;
    if (pos + sizeof n > b.size())
        return false;
    memcpy(&n, b.data() + pos, sizeof n);
    pos += sizeof n;
    if (pos + n > b.size())
        return false;
    s.assign(b, pos, n);
    pos += n;
    return true;
}

/* A route's next hops: per next hop its table, keys and leaves. */
std::string encode_route(const Route &r)
{
    std::string b;
    for (const auto &nh : r.next_hops) {
        b += static_cast<char>('0' + static_cast<int>(nh.first.table));
        put_str(b, nh.first.interface);
        put_str(b, nh.first.address);
        put_str(b, std::to_string(nh.second.size()));
        for (const auto &l : nh.second) {
            put_str(b, l.first);
            put_str(b, l.second);
        }
    }
    return b;
}

bool decode_route(const std::string &b, Route &r)
{
    size_t pos = 0;
    while (pos < b.size()) {
        int t = b[pos++] - '0';
        if (t < 0 || t > 2)
            return false;
        NhKey k;
        k.table = static_cast<NhTable>(t);
        std::string count;
        if (!get_str(b, pos, k.interface) || !get_str(b, pos, k.address) || !get_str(b, pos, count))
            return false;
        NhLeaves leaves;
        for (unsigned long i = 0, n = strtoul(count.c_str(), nullptr, 10); i < n; ++i) {
            std::string name, value;
            if (!get_str(b, pos, name) || !get_str(b, pos, value))
                return false;
            leaves.emplace(std::move(name), std::move(value));
        }
        r.next_hops.emplace(std::move(k), std::move(leaves));
    }
    return true;
}

int int_leaf(const NhLeaves &l, const char *name, int dflt)
{
    auto it = l.find(name);
    if (it == l.end())
        return dflt;
    if (it->second == "true")
        return 1;
    if (it->second == "false")
        return 0;
    return static_cast<int>(strtol(it->second.c_str(), nullptr, 10));
}

std::string str_leaf(const NhLeaves &l, const char *name)
{
    auto it = l.find(name);
    return it == l.end() ? std::string() : it->second;
}

NativeNextHop projection(const RouteKey &k, const NhKey &n, const NhLeaves &l)
{
    NativeNextHop nh;
    nh.vrf = k.vrf;
    nh.ipv4 = k.ipv4;
    nh.prefix = k.prefix;
    nh.prefix_length = atoi(k.length.c_str());
    nh.interface = n.interface;
    nh.address = n.address;
    nh.bfd_fast_detect = int_leaf(l, "bfd-fast-detect", 0);
    nh.minimum_interval = int_leaf(l, "minimum-interval", 0);
    nh.detect_multiplier = int_leaf(l, "detect-multiplier", 0);
    nh.metric = int_leaf(l, "metric", 0);
    nh.tag = int_leaf(l, "tag", 0);
    nh.permanent = int_leaf(l, "permanent", 0);
    nh.vrf_label = int_leaf(l, "vrf-lable", VRF_LABEL_UNSET);
    nh.tunnel_id = int_leaf(l, "tunnel-id", 0);
    nh.object_name = str_leaf(l, "object-name");
    nh.description = str_leaf(l, "description");
    nh.load_metric = int_leaf(l, "load-metric", 0);
    nh.index = str_leaf(l, "index");
    return nh;
}

/* Lengths sharing one store key ("0x20" stands for 26 and for 32), by key. */
const std::map<std::string, std::vector<int>> &length_groups()
{
    static const std::map<std::string, std::vector<int>> groups = [] {
        std::map<std::string, std::vector<int>> g;
        for (int len = 0; len <= 128; ++len)
            g[prefix_length_key(len)].push_back(len);
        return g;
    }();
    return groups;
}

class EngineBackend : public StoreBackend {
public:
    bool load(std::map<RouteKey, Route> &routes, std::set<std::string> &vrfs, std::string &err) override
    {
        std::shared_ptr<StoreEngine> e = store_engine();
        bool bad = false;
        cerrno rc = e->scan(NATIVE_ROOT, prefix_end(NATIVE_ROOT), [&](const std::string &key, const std::string &v) {
            RouteKey k;
            Route r;
            if (!parse_native_key(key, k) || !decode_route(v, r)) {
                err = "damaged native record " + key.substr(NATIVE_ROOT.size());
                bad = true;
                return false;
            }
            routes.emplace_hint(routes.end(), std::move(k), std::move(r));
            return true;
        });
        const std::string vrf_root = std::string(RSI_ROOT) + "vrf/";
        if (rc == YFW_RC_OK && !bad)
            rc = e->scan(vrf_root, prefix_end(vrf_root), [&](const std::string &key, const std::string &) {
                size_t end = key.find('/', vrf_root.size());
                if (end != std::string::npos && end > vrf_root.size())
                    vrfs.insert(key.substr(vrf_root.size(), end - vrf_root.size()));
                return true;
            });
        if (rc != YFW_RC_OK && err.empty())
            err = "cannot read the store";
        return rc == YFW_RC_OK && !bad;
    }

    bool commit(const std::vector<std::pair<const RouteKey *, const Route *>> &changed,
                const std::map<RouteKey, Route> &all,
                const std::set<std::string> &vrfs_added, const std::set<std::string> &vrfs_removed,
                std::string &err) override
    {
        std::shared_ptr<StoreEngine> e = store_engine();
        if (e->begin() != YFW_RC_OK) {
            err = "cannot begin a store transaction";
            return false;
        }
        if (!write(*e, changed, all, vrfs_added, vrfs_removed, err)) {
            e->abort();
            return false;
        }
        if (e->commit() != YFW_RC_OK) {
            err = "store commit failed";
            return false;
        }
        return true;
    }

private:
    static bool write(StoreEngine &e, const std::vector<std::pair<const RouteKey *, const Route *>> &changed,
                      const std::map<RouteKey, Route> &all, const std::set<std::string> &vrfs_added,
                      const std::set<std::string> &vrfs_removed, std::string &err)
    {
        /* Store directories to rewrite whole, with the routes that share each. */
        std::map<std::string, const RouteKey *> dirs;
        for (const auto &c : changed) {
            const RouteKey &k = *c.first;
            cerrno rc = c.second != nullptr ? e.put(native_key(k), encode_route(*c.second)) : e.del(native_key(k));
            if (rc != YFW_RC_OK && rc != SYSDB_RC_NOT_FOUND) {
                err = "cannot write " + NativeConfig::route_path(k);
                return false;
            }
            std::string dir = route_next_hop_dir(k.vrf, k.ipv4, k.prefix, atoi(k.length.c_str()));
            if (dir.empty()) {
                err = "not a prefix of its family: " + NativeConfig::route_path(k);
                return false;
            }
            dirs.emplace(std::move(dir), &k);
        }
        for (const auto &d : dirs) {
            const std::string full = STATIC_ROOT + d.first;
            std::vector<std::string> old;
            e.scan(full, prefix_end(full), [&](const std::string &key, const std::string &) {
                old.push_back(key);
                return true;
            });
            for (const std::string &key : old)
                e.del(key);
            const RouteKey &k = *d.second;
            auto g = length_groups().find(prefix_length_key(atoi(k.length.c_str())));
            for (int len : g->second) {
                auto it = all.find(RouteKey{k.vrf, k.ipv4, k.prefix, std::to_string(len)});
                if (it == all.end())
                    continue;
                for (const auto &nh : it->second.next_hops) {
                    if (store_write_next_hop(projection(it->first, nh.first, nh.second)) != YFW_RC_OK) {
                        err = "cannot write " + NativeConfig::nh_path(it->first, nh.first);
                        return false;
                    }
                }
            }
        }
        for (const std::string &v : vrfs_added)
            if (store_add_vrf(v) != YFW_RC_OK) {
                err = "cannot add VRF " + v;
                return false;
            }
        for (const std::string &v : vrfs_removed)
            if (cerrno rc = store_remove_vrf(v); rc != YFW_RC_OK && rc != SYSDB_RC_NOT_FOUND) {
                err = "cannot remove VRF " + v;
                return false;
            }
        return true;
    }
};

} // namespace

std::unique_ptr<StoreBackend> make_engine_backend() { return std::make_unique<EngineBackend>(); }

} // namespace ocni::host
