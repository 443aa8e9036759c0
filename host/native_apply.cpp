#include "native_apply.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "store.h"
#include "store_layout.h"
#include "tree.h"

namespace ocni::host {

namespace {

constexpr const char *NS_NATIVE = "urn:velmar:yang:ip-static-cfg";
const char *const NH_LISTS[] = {"vrf-next-hop-interface-name", "vrf-next-hop-interface-name-next-hop-address",
                                "vrf-next-hop-next-hop-address"};

/*
 * A delete ends the walk at its node (each level returns at one), so a node
 * is deleted exactly when its own operation says so: nothing is inherited.
 */
bool is_delete(uint32_t op) { return op == YFW_DT_OP_DELETE || op == YFW_DT_OP_REMOVE; }

/* ": <the system's words>" of a transaction's last failure, "" when it has none. */
std::string with_cause(const Txn &t)
{
    const std::string c = t.cause();
    return c.empty() ? c : ": " + c;
}

bool nh_leaf_known(const char *name)
{
    for (const char *l : NH_LEAF_NAMES)
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
    if (!(n->flags & YFW_DT_F_CHILDREN))
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
    if (!(n->flags & YFW_DT_F_CHILDREN))
        return;
    for (uint32_t i = 0; i < n->n_children; ++i) {
        const zidl_yfw_datatree *c = &n->children[i];
        if (c->name == nullptr)
            break;
        f(c);
    }
}

} // namespace

NativeConfig::NativeConfig(std::shared_ptr<StoreEngine> engine) : engine_(std::move(engine)) {}

NativeConfig::~NativeConfig() { end(); }

bool NativeConfig::open(std::string &err)
{
    std::shared_ptr<StoreEngine> e = engine_ ? engine_ : store_engine();
    if (!e || !e->begin_read()) {
        err = "the store cannot be read";
        return false;
    }
    return true;
}

bool NativeConfig::begin(bool write, std::string &err, bool *began)
{
    if (began != nullptr)
        *began = false;
    if (in_session()) {
        if (write && !writing()) {
            err = "a read session cannot write";
            return false;
        }
        return true;
    }
    session_engine_ = engine_ ? engine_ : store_engine();
    /* The writer's place first: the snapshot taken next is then the write transaction's base. */
    if (write) {
        write_ = session_engine_->begin_write();
        if (!write_) {
            err = "the store cannot be written";
            session_engine_.reset();
            return false;
        }
    }
    read_ = session_engine_->begin_read();
    if (!read_) {
        write_.reset();
        session_engine_.reset();
        err = "the store cannot be read";
        return false;
    }
    scope_ = std::make_unique<TxnScope>(read_.get());
    read_err_.clear();
    counts_ = ChangeCounts{};
    view_written_ = false;
    if (began != nullptr)
        *began = true;
    return true;
}

void NativeConfig::end()
{
    pending_.clear();
    changed_ = nullptr;
    view_written_ = false;
    scope_.reset();
    read_.reset();
    write_.reset();
    session_engine_.reset();
}

namespace {

/* Runs `f` on the session's snapshot, or on a snapshot of its own outside a session. */
template <class F> bool with_snapshot(Txn *read, const std::shared_ptr<StoreEngine> &engine, F f)
{
    if (read != nullptr)
        return f(*read);
    std::shared_ptr<StoreEngine> e = engine ? engine : store_engine();
    std::unique_ptr<Txn> t = e->begin_read();
    return t && f(*t);
}

/* The VRF a route key names. */
std::string vrf_of_key(const std::string &key)
{
    const size_t root = sizeof ROUTE_ROOT - 1;
    size_t nul = key.find('\0', root);
    return key.substr(root, nul == std::string::npos ? std::string::npos : nul - root);
}

std::vector<std::string> vrfs_with_routes_in(Txn &t)
{
    std::vector<std::string> out;
    std::string from = ROUTE_ROOT;
    const std::string end = prefix_end(ROUTE_ROOT);
    for (;;) {
        std::string vrf;
        bool found = false;
        t.scan(from, end, [&](const std::string &key, const std::string &) {
            vrf = vrf_of_key(key);
            found = true;
            return false;
        });
        if (!found)
            return out;
        out.push_back(vrf);
        /* The next VRF starts past every key of this one. */
        from = ROUTE_ROOT + vrf + std::string(1, '\x01');
    }
}

/* How every command names a route record that does not decode. */
std::string damaged_record(const RouteKey &k, const std::string &why)
{
    return "damaged route record " + (k.vrf.empty() ? std::string("?") : k.vrf) + " " + k.prefix + "/" + k.length +
           ": " + why;
}

} // namespace

bool NativeConfig::scan_routes(Txn &t, const std::string &lo, const std::string &hi, const RouteVisitor &fn,
                               std::string &err) const
{
    bool bad = false;
    cerrno rc = t.scan(lo, hi, [&](const std::string &key, const std::string &value) {
        RouteKey k;
        Route r;
        std::string why;
        if (!decode_route(key, value, k, r, why)) {
            err = damaged_record(k, why);
            bad = true;
            return false;
        }
        return fn(k, r);
    });
    if (rc != YFW_RC_OK) /* a damaged record stops the scan, which then succeeds */
        err = "the store cannot be read";
    if (!err.empty() && read_err_.empty())
        read_err_ = err;
    return rc == YFW_RC_OK && !bad;
}

bool NativeConfig::vrf_known(const std::string &vrf) const
{
    if (is_default_vrf(vrf))
        return true;
    bool known = false;
    with_snapshot(snapshot(), engine_, [&](Txn &t) { return known = store_has_vrf(t, vrf); });
    return known;
}

std::vector<std::string> NativeConfig::vrfs() const
{
    std::vector<std::string> out;
    with_snapshot(snapshot(), engine_, [&](Txn &t) { return store_list_vrfs(t, out) == YFW_RC_OK; });
    return out;
}

std::vector<std::string> NativeConfig::vrfs_with_routes() const
{
    std::vector<std::string> out;
    with_snapshot(snapshot(), engine_, [&](Txn &t) {
        out = vrfs_with_routes_in(t);
        return true;
    });
    return out;
}

bool NativeConfig::find_route(const RouteKey &k, Route &out) const
{
    const std::string key = route_record_key(k);
    if (key.empty())
        return false;
    bool found = false;
    with_snapshot(snapshot(), engine_, [&](Txn &t) {
        std::string v, why;
        RouteKey stored;
        if (t.get(key, v) != YFW_RC_OK)
            return false;
        if (!decode_route(key, v, stored, out, why)) {
            if (read_err_.empty())
                read_err_ = damaged_record(k, why);
            return false;
        }
        return found = true;
    });
    return found;
}

bool NativeConfig::for_each_route(const std::string *vrf, const bool *ipv4, const RouteVisitor &fn,
                                  std::string &err) const
{
    std::string lo = vrf == nullptr ? std::string(ROUTE_ROOT)
                     : ipv4 == nullptr ? route_vrf_start(*vrf)
                                       : route_family_start(*vrf, *ipv4);
    if (vrf == nullptr && ipv4 != nullptr) {
        /* One family of every VRF. */
        bool ok = true;
        for (const std::string &v : vrfs_with_routes())
            if (ok)
                ok = for_each_route(&v, ipv4, fn, err);
        return ok;
    }
    const std::string hi = prefix_end(lo);
    bool ok = false;
    with_snapshot(snapshot(), engine_, [&](Txn &t) { return ok = scan_routes(t, lo, hi, fn, err); });
    if (!ok && err.empty())
        err = "the store cannot be read";
    return ok;
}

bool NativeConfig::for_each_same_prefix(const std::string &vrf, bool ipv4, const std::string &address, int length,
                                        const RouteVisitor &fn, std::string &err) const
{
    std::string lo_key = route_address_start(vrf, ipv4, address);
    const size_t bytes = ipv4 ? 4 : 16;
    if (lo_key.empty() || length < 0 || size_t(length) > bytes * 8)
        return true;
    /* Network and last address of the prefix, as key bytes. */
    const size_t at = lo_key.size() - bytes;
    std::string hi_key = lo_key;
    for (size_t i = 0; i < bytes; ++i) {
        int keep = std::min(8, std::max(0, length - int(i) * 8));
        unsigned char mask = static_cast<unsigned char>(keep == 0 ? 0 : 0xff << (8 - keep));
        lo_key[at + i] = static_cast<char>(static_cast<unsigned char>(lo_key[at + i]) & mask);
        hi_key[at + i] = static_cast<char>(static_cast<unsigned char>(hi_key[at + i]) | static_cast<unsigned char>(~mask));
    }
    const std::string network = lo_key.substr(at);
    auto same = [&](const RouteKey &k, const Route &r) {
        const std::string key = route_record_key(k);
        if (key.empty() || static_cast<unsigned char>(key.back()) != length)
            return true;
        for (size_t i = 0; i < bytes; ++i) {
            int keep = std::min(8, std::max(0, length - int(i) * 8));
            unsigned char mask = static_cast<unsigned char>(keep == 0 ? 0 : 0xff << (8 - keep));
            if ((static_cast<unsigned char>(key[at + i]) & mask) != static_cast<unsigned char>(network[i]))
                return true;
        }
        return fn(k, r);
    };
    bool ok = false;
    with_snapshot(snapshot(), engine_,
                  [&](Txn &t) { return ok = scan_routes(t, lo_key, prefix_end(hi_key), same, err); });
    return ok;
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

Route *NativeConfig::touch(const RouteKey &k, bool create, std::string &err)
{
    const std::string key = route_record_key(k);
    if (key.empty()) {
        err = "not a prefix of its family: " + route_path(k);
        return nullptr;
    }
    auto it = pending_.find(key);
    if (it == pending_.end()) {
        Pending p{k, std::nullopt, std::nullopt};
        std::string v;
        cerrno rc = write_->get(key, v);
        if (rc == YFW_RC_OK) {
            Route r;
            std::string why;
            if (!decode_route(key, v, p.key, r, why)) {
                err = damaged_record(k, why);
                store_fault_ = true;
                return nullptr;
            }
            p.before = r;
            p.route = std::move(r);
        } else if (rc != SYSDB_RC_NOT_FOUND) {
            err = "the store cannot be read";
            store_fault_ = true;
            return nullptr;
        }
        it = pending_.emplace(key, std::move(p)).first;
    }
    if (!it->second.route && create) {
        it->second.key = k;
        it->second.route = Route{};
    }
    return it->second.route ? &*it->second.route : nullptr;
}

void NativeConfig::remove_route(const RouteKey &k, std::vector<std::string> &changes)
{
    std::string err;
    if (touch(k, false, err) == nullptr) {
        if (!err.empty() && apply_err_.empty())
            apply_err_ = err;
        return;
    }
    pending_[route_record_key(k)].route.reset();
    if (lines_)
        changes.push_back("delete " + route_path(k));
}

void NativeConfig::remove_routes_if(const std::string *vrf, const bool *ipv4, std::vector<std::string> &changes)
{
    std::string err;
    if (!flush(err)) {
        if (apply_err_.empty())
            apply_err_ = err;
        return;
    }
    std::vector<std::string> vrfs;
    if (vrf != nullptr)
        vrfs.push_back(*vrf);
    else
        vrfs = vrfs_with_routes_in(*write_);
    for (const std::string &v : vrfs) {
        std::string lo = ipv4 != nullptr ? route_family_start(v, *ipv4) : route_vrf_start(v);
        std::vector<RouteKey> victims;
        if (!scan_routes(*write_, lo, prefix_end(lo), [&](const RouteKey &k, const Route &) {
                victims.push_back(k);
                return true;
            }, err)) {
            if (apply_err_.empty())
                apply_err_ = err;
            return;
        }
        for (const RouteKey &k : victims)
            remove_route(k, changes);
    }
}

void count_change(const std::optional<Route> &before, const std::optional<Route> &after, ChangeCounts &c)
{
    static const std::map<NhKey, NhLeaves> none;
    const auto &was = before ? before->next_hops : none;
    const auto &is = after ? after->next_hops : none;
    auto w = was.begin();
    auto i = is.begin();
    bool differ = false;
    while (w != was.end() || i != is.end()) {
        if (i == is.end() || (w != was.end() && w->first < i->first)) {
            ++c.nh_deleted, ++w, differ = true;
        } else if (w == was.end() || i->first < w->first) {
            ++c.nh_created, ++i, differ = true;
        } else {
            if (w->second != i->second)
                ++c.nh_changed, differ = true;
            ++w, ++i;
        }
    }
    if (before && !after)
        ++c.routes_deleted;
    else if (!before && after)
        ++c.routes_created;
    else if (before && after && differ)
        ++c.routes_changed;
}

const ChangeCounts &NativeConfig::counts()
{
    std::string err;
    if (writing() && !flush(err) && apply_err_.empty())
        apply_err_ = err;
    return counts_;
}

bool NativeConfig::view_written(bool on, std::string &err)
{
    if (on && (!writing() || !flush(err)))
        return err.empty() ? (err = "no edit to show", false) : false;
    view_written_ = on;
    scope_.reset();
    scope_ = std::make_unique<TxnScope>(snapshot());
    return true;
}

bool NativeConfig::flush(std::string &err)
{
    for (const auto &p : pending_) {
        ChangeCounts c;
        count_change(p.second.before, p.second.route, c);
        if (changed_ != nullptr && !c.empty())
            changed_->push_back(p.second.key);
        counts_.routes_created += c.routes_created, counts_.routes_changed += c.routes_changed;
        counts_.routes_deleted += c.routes_deleted, counts_.nh_created += c.nh_created;
        counts_.nh_changed += c.nh_changed, counts_.nh_deleted += c.nh_deleted;
        cerrno rc = write_route(*write_, p.first, p.second.key, p.second.route ? &*p.second.route : nullptr);
        if (rc != YFW_RC_OK) {
            err = "cannot write " + route_path(p.second.key) + with_cause(*write_);
            return false;
        }
    }
    pending_.clear();
    return true;
}

/* Applies one native tree; keeps the first error. */
class NativeApplier {
public:
    NativeApplier(NativeConfig &c, std::vector<std::string> &changes) : c_(c), changes_(changes) {}
    std::string err;

    /* A store failure met by the configuration counts as this apply's error. */
    bool store_failed()
    {
        if (!c_.apply_err_.empty() && err.empty())
            err = c_.apply_err_;
        return !err.empty();
    }

    void root(const zidl_yfw_datatree *root)
    {
        for_children(root, [&](const zidl_yfw_datatree *n) {
            if (strcmp(n->name, "router-static") == 0)
                router_static(n, n->op);
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
            uint32_t cop = ch->op;
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
                    uint32_t vop = v->op;
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
        std::string ferr;
        if (!c_.flush(ferr))
            return fail(ferr);
        for (const std::string &v : vrfs_with_routes_in(*c_.write_))
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
            uint32_t aop = ch->op;
            if (is_delete(aop)) {
                c_.remove_routes_if(&vrf, nullptr, changes_);
                return;
            }
            for_children(ch, [&](const zidl_yfw_datatree *af) {
                bool v4 = strcmp(af->name, "vrfipv4") == 0;
                if (!v4 && strcmp(af->name, "vrfipv6") != 0)
                    return fail("unknown address family " + std::string(af->name));
                family(af, vrf, v4, af->op);
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
            uint32_t uop = u->op;
            if (is_delete(uop))
                return c_.remove_routes_if(&vrf, &v4, changes_);
            for_children(u, [&](const zidl_yfw_datatree *ps) {
                if (strcmp(ps->name, "vrf-prefixes") != 0)
                    return fail("unknown native node " + std::string(ps->name));
                uint32_t pop = ps->op;
                if (is_delete(pop))
                    return c_.remove_routes_if(&vrf, &v4, changes_);
                for_children(ps, [&](const zidl_yfw_datatree *e) {
                    if (strcmp(e->name, "vrf-prefix") != 0)
                        return fail("unknown native node " + std::string(e->name));
                    prefix_entry(e, vrf, v4, e->op);
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
        std::string terr;
        bool existed = c_.touch(k, false, terr) != nullptr;
        Route *rp = terr.empty() ? c_.touch(k, true, terr) : nullptr;
        if (rp == nullptr)
            return fail(terr);
        Route &r = *rp;
        if (!existed)
            if (c_.lines_)
                changes_.push_back("create " + NativeConfig::route_path(k));
        for_children(e, [&](const zidl_yfw_datatree *ch) {
            if (strcmp(ch->name, "prefix") == 0 || strcmp(ch->name, "prefix-length") == 0)
                return;
            if (strcmp(ch->name, "vrf-route") != 0)
                return fail("unknown native node " + std::string(ch->name) + " in vrf-prefix");
            uint32_t rop = ch->op;
            if (is_delete(rop))
                return remove_all_nhs(k, r);
            for_children(ch, [&](const zidl_yfw_datatree *t) {
                if (strcmp(t->name, "vrf-next-hop-table") != 0)
                    return fail("unknown native node " + std::string(t->name) + " in vrf-route");
                uint32_t top = t->op;
                if (is_delete(top))
                    return remove_all_nhs(k, r);
                for_children(t, [&](const zidl_yfw_datatree *nh) { nh_entry(nh, k, r, nh->op); });
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
            if (c_.lines_)
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
                    if (c_.lines_)
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
                if (c_.lines_)
                    changes_.push_back("delete " + path);
            }
            return;
        }
        if (it == r.next_hops.end()) {
            it = r.next_hops.emplace(k, NhLeaves{}).first;
            if (c_.lines_)
                changes_.push_back("create " + path);
        }
        NhLeaves &leaves = it->second;
        for_children(e, [&](const zidl_yfw_datatree *l) {
            if (strcmp(l->name, "interface-name") == 0 || strcmp(l->name, "next-hop-address") == 0)
                return;
            if (!nh_leaf_known(l->name))
                return fail("unknown native leaf " + std::string(l->name) + " in " + e->name);
            uint32_t lop = l->op;
            auto lit = leaves.find(l->name);
            if (is_delete(lop)) {
                if (lit != leaves.end()) {
                    leaves.erase(lit);
                    if (c_.lines_)
                        changes_.push_back("delete " + path + "/" + l->name);
                }
                return;
            }
            if (l->value == nullptr)
                return; /* a leaf named without a value asks for nothing */
            if (lit == leaves.end() || lit->second != l->value) {
                leaves[l->name] = l->value;
                if (c_.lines_)
                    changes_.push_back("merge " + path + "/" + l->name + " = " + l->value);
            }
        });
    }
};

bool NativeConfig::apply(const zidl_yfw_datatree *root, std::vector<std::string> &changes, std::string &err)
{
    if (!begin(true, err))
        return false;
    apply_err_.clear();
    store_fault_ = false;
    size_t first = changes.size();
    NativeApplier a(*this, changes);
    a.root(root);
    a.store_failed();
    if (a.err.empty() && !flush(a.err) && a.err.empty())
        a.err = "cannot write the store";
    if (!a.err.empty()) {
        err = a.err;
        pending_.clear();
        changes.resize(first);
        return false;
    }
    return true;
}

bool NativeConfig::add_vrf(const std::string &vrf, std::vector<std::string> &changes)
{
    std::string err;
    if (vrf.empty() || is_default_vrf(vrf) || !begin(true, err) || store_has_vrf(*write_, vrf))
        return false;
    if (store_add_vrf(*write_, vrf) != YFW_RC_OK)
        return false;
    changes.push_back("create vrf " + vrf);
    return true;
}

bool NativeConfig::remove_vrf(const std::string &vrf, std::string &err, bool with_routes)
{
    if (!begin(true, err))
        return false;
    if (is_default_vrf(vrf) || !store_has_vrf(*write_, vrf)) {
        err = "VRF " + vrf + " is not configured";
        return false;
    }
    size_t routes = 0;
    if (!flush(err))
        return false;
    const std::string lo = route_vrf_start(vrf);
    cerrno rc = write_->scan(lo, prefix_end(lo), [&](const std::string &, const std::string &) {
        ++routes;
        return true;
    });
    if (rc != YFW_RC_OK) {
        err = "the store cannot be read";
        return false;
    }
    if (routes > 0 && !with_routes) {
        err = "VRF " + vrf + " still holds " + std::to_string(routes) + " static route" + (routes == 1 ? "" : "s") +
              ": delete them first, or delete the VRF --with-routes";
        return false;
    }
    if (routes > 0) {
        apply_err_.clear();
        std::vector<std::string> unused; /* a VRF delete reports its count of routes, not each one */
        remove_routes_if(&vrf, nullptr, unused);
        if (!apply_err_.empty() || !flush(err)) {
            if (err.empty())
                err = apply_err_;
            return false;
        }
    }
    if (store_remove_vrf(*write_, vrf) != YFW_RC_OK) {
        err = "cannot remove VRF " + vrf;
        return false;
    }
    return true;
}

bool NativeConfig::commit(std::string &err)
{
    if (!writing()) {
        end();
        return true;
    }
    bool ok = flush(err);
    if (ok && write_->commit() != YFW_RC_OK) {
        err = "commit failed" + with_cause(*write_);
        ok = false;
    }
    end();
    return ok;
}

void NativeConfig::rollback() { end(); }

namespace {

/* Native routes into a host tree, in the order they come. */
struct NativeTreeBuilder {
    zidl_yfw_datatree *root = tree_new();
    NodeRef rs;                          /* /router-static, made on first use */
    NodeRef vrfs;                        /* /router-static/vrfs, made on first use */
    NodeRef vrf_node, af_node, prefixes; /* current VRF body, family and vrf-prefixes */
    std::string cur_vrf;
    int cur_af = -1;
    static NodeRef add(NodeRef parent, const char *name, NodeKind kind, const char *value = nullptr)
    {
        return node_ref(node_add_child(node_get(parent), name, kind, value, NS_NATIVE));
    }
    bool emit(const RouteKey &k, const Route &r)
    {
        if (!rs)
            rs = node_ref(node_add_child(root, "router-static", NodeKind::Container, nullptr, NS_NATIVE));
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
        NodeRef e = node_ref(node_add_entry(node_get(prefixes), "vrf-prefix",
                                            {{"prefix", k.prefix}, {"prefix-length", k.length}}, NS_NATIVE));
        if (r.next_hops.empty())
            return true;
        NodeRef route = add(e, "vrf-route", NodeKind::Container);
        NodeRef table = add(route, "vrf-next-hop-table", NodeKind::Container);
        for (const auto &nh : r.next_hops) {
            std::vector<std::pair<std::string, std::string>> keys;
            if (nh.first.table != NhTable::Address)
                keys.emplace_back("interface-name", nh.first.interface);
            if (nh.first.table != NhTable::Interface)
                keys.emplace_back("next-hop-address", nh.first.address);
            zidl_yfw_datatree *ne = node_add_entry(node_get(table), nh_table_list(nh.first.table), keys, NS_NATIVE);
            NodeRef ner = node_ref(ne);
            for (const char *leaf : NH_LEAF_NAMES) {
                auto it = nh.second.find(leaf);
                if (it != nh.second.end())
                    node_add_child(node_get(ner), leaf, NodeKind::Leaf, it->second.c_str(), NS_NATIVE);
            }
        }
        return true;
    }
};

} // namespace

zidl_yfw_datatree *NativeConfig::tree_of(const RouteList &routes)
{
    NativeTreeBuilder tb;
    if (tb.root != nullptr)
        for (const auto &r : routes)
            tb.emit(r.first, r.second);
    return tb.root;
}

zidl_yfw_datatree *NativeConfig::to_tree(const std::set<RouteKey> *only) const
{
    NativeTreeBuilder tb;
    zidl_yfw_datatree *root = tb.root;
    if (root == nullptr || (only != nullptr && only->empty()))
        return root;
    auto emit = [&](const RouteKey &k, const Route &r) { return tb.emit(k, r); };
    std::string err;
    if (only == nullptr) {
        if (!for_each_route(nullptr, nullptr, emit, err)) {
            tree_free(root);
            return nullptr;
        }
        return root;
    }
    for (const RouteKey &k : *only) {
        Route r;
        if (find_route(k, r))
            emit(k, r);
    }
    if (!read_err_.empty()) {
        tree_free(root);
        return nullptr;
    }
    return root;
}

} // namespace ocni::host
