/*
 * Route records, their keys, the format marker, and the projection of a
 * route into the configuration-store layout the plug-in reads.
 */
#include "host/route_store.h"

#include <arpa/inet.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "host/store.h"
#include "host/store_layout.h"

namespace ocni::host {

const char *const NH_LEAF_NAMES[NH_LEAF_COUNT] = {
    "index",     "metric",           "tag",       "description", "bfd-fast-detect", "detect-multiplier",
    "minimum-interval", "permanent", "vrf-lable", "tunnel-id",   "load-metric",     "object-name"};

namespace {

const char *const NH_LISTS[] = {"vrf-next-hop-interface-name", "vrf-next-hop-interface-name-next-hop-address",
                                "vrf-next-hop-next-hop-address"};

constexpr char FORMAT_MAGIC[] = "OCNI";
/* Keys of the previous format: records under this root, no marker. */
const std::string OLD_NATIVE_ROOT = "/host/native/route/";


void put_varint(std::string &b, uint64_t v)
{
    while (v >= 0x80) {
        b += static_cast<char>((v & 0x7f) | 0x80);
        v >>= 7;
    }
    b += static_cast<char>(v);
}

void put_text(std::string &b, const std::string &s)
{
    put_varint(b, s.size());
    b += s;
}

/* Bounds-checked reader of a record. */
struct Reader {
    const unsigned char *p, *end;
    bool ok = true;

    uint64_t varint()
    {
        uint64_t v = 0;
        for (int shift = 0; ok && shift < 64; shift += 7) {
            if (p == end)
                break;
            unsigned char c = *p++;
            v |= uint64_t(c & 0x7f) << shift;
            if (!(c & 0x80))
                return v;
        }
        ok = false;
        return 0;
    }
    uint8_t byte()
    {
        if (p == end) {
            ok = false;
            return 0;
        }
        return *p++;
    }
    std::string text()
    {
        uint64_t n = varint();
        if (!ok || uint64_t(end - p) < n) {
            ok = false;
            return std::string();
        }
        std::string s(reinterpret_cast<const char *>(p), size_t(n));
        p += n;
        return s;
    }
};

/* Address bytes of a prefix text of the family; false when it is not one. */
bool address_bytes(const std::string &text, bool ipv4, std::string &out)
{
    unsigned char buf[16];
    if (inet_pton(ipv4 ? AF_INET : AF_INET6, text.c_str(), buf) != 1)
        return false;
    out.assign(reinterpret_cast<const char *>(buf), ipv4 ? 4 : 16);
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

/* Previous format: "/host/native/route/VRF\x1f4\x1fPREFIX\x1fLEN", next hops with u32 lengths. */
bool old_decode(const std::string &key, const std::string &b, RouteKey &k, Route &r)
{
    std::vector<std::string> parts;
    size_t pos = OLD_NATIVE_ROOT.size();
    for (;;) {
        size_t sep = key.find('\x1f', pos);
        parts.push_back(key.substr(pos, sep == std::string::npos ? std::string::npos : sep - pos));
        if (sep == std::string::npos)
            break;
        pos = sep + 1;
    }
    if (parts.size() != 4 || (parts[1] != "4" && parts[1] != "6"))
        return false;
    k = RouteKey{parts[0], parts[1] == "4", parts[2], parts[3]};
    auto get_str = [&](size_t &at, std::string &s) {
        uint32_t n;
        if (at + sizeof n > b.size())
            return false;
        memcpy(&n, b.data() + at, sizeof n);
        at += sizeof n;
        if (at + n > b.size())
            return false;
        s.assign(b, at, n);
        at += n;
        return true;
    };
    size_t at = 0;
    while (at < b.size()) {
        int t = b[at++] - '0';
        if (t < 0 || t > 2)
            return false;
        NhKey nk;
        nk.table = static_cast<NhTable>(t);
        std::string count;
        if (!get_str(at, nk.interface) || !get_str(at, nk.address) || !get_str(at, count))
            return false;
        NhLeaves leaves;
        for (unsigned long i = 0, n = strtoul(count.c_str(), nullptr, 10); i < n; ++i) {
            std::string name, value;
            if (!get_str(at, name) || !get_str(at, value))
                return false;
            leaves.emplace(std::move(name), std::move(value));
        }
        r.next_hops.emplace(std::move(nk), std::move(leaves));
    }
    return true;
}

std::string marker()
{
    std::string m = FORMAT_MAGIC;
    m += static_cast<char>(STORE_FORMAT & 0xff);
    m += static_cast<char>(STORE_FORMAT >> 8);
    return m;
}

} // namespace

uint32_t crc32c(const unsigned char *p, size_t n)
{
    static const auto table = [] {
        std::vector<uint32_t> t(256);
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0x82F63B78u ^ (c >> 1) : c >> 1;
            t[i] = c;
        }
        return t;
    }();
    uint32_t c = 0xffffffffu;
    while (n-- > 0)
        c = table[(c ^ *p++) & 0xff] ^ (c >> 8);
    return c ^ 0xffffffffu;
}

const char *nh_table_list(NhTable t) { return NH_LISTS[static_cast<int>(t)]; }

bool is_default_vrf(const std::string &vrf) { return strcasecmp(vrf.c_str(), "default") == 0; }

bool RouteKey::operator<(const RouteKey &o) const { return route_record_key(*this) < route_record_key(o); }
bool NhKey::operator<(const NhKey &o) const
{
    if (table != o.table)
        return table < o.table;
    if (interface != o.interface)
        return interface < o.interface;
    return address < o.address;
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

std::string route_vrf_start(const std::string &vrf) { return ROUTE_ROOT + vrf + std::string(1, '\0'); }

std::string route_family_start(const std::string &vrf, bool ipv4) { return route_vrf_start(vrf) + (ipv4 ? '4' : '6'); }

std::string route_address_start(const std::string &vrf, bool ipv4, const std::string &address)
{
    std::string bytes;
    if (!address_bytes(address, ipv4, bytes))
        return std::string();
    return route_family_start(vrf, ipv4) + bytes;
}

std::string route_record_key(const RouteKey &k)
{
    if (k.length.empty() || k.length.size() > 3 || k.length.find_first_not_of("0123456789") != std::string::npos)
        return std::string();
    int len = atoi(k.length.c_str());
    if (len > (k.ipv4 ? 32 : 128))
        return std::string();
    std::string start = route_address_start(k.vrf, k.ipv4, k.prefix);
    if (start.empty())
        return std::string();
    return start + static_cast<char>(len);
}

std::string encode_route(const RouteKey &k, const Route &r)
{
    std::string body;
    put_text(body, k.prefix);
    put_text(body, k.length);
    put_varint(body, r.next_hops.size());
    for (const auto &nh : r.next_hops) {
        body += static_cast<char>(nh.first.table);
        put_text(body, nh.first.interface);
        put_text(body, nh.first.address);
        std::string leaves;
        size_t n = 0;
        for (int id = 0; id < NH_LEAF_COUNT; ++id) {
            auto it = nh.second.find(NH_LEAF_NAMES[id]);
            if (it == nh.second.end())
                continue;
            leaves += static_cast<char>(id);
            put_text(leaves, it->second);
            ++n;
        }
        put_varint(body, n);
        body += leaves;
    }
    std::string out(1, static_cast<char>(STORE_FORMAT));
    uint32_t crc = crc32c(reinterpret_cast<const unsigned char *>(body.data()), body.size());
    for (int i = 0; i < 4; ++i)
        out += static_cast<char>((crc >> (8 * i)) & 0xff);
    return out + body;
}

bool decode_route(const std::string &key, const std::string &value, RouteKey &k, Route &r, std::string &why)
{
    const size_t root = sizeof ROUTE_ROOT - 1;
    size_t nul = key.find('\0', root);
    if (key.compare(0, root, ROUTE_ROOT) != 0 || nul == std::string::npos || nul + 2 >= key.size()) {
        why = "a route key of the wrong shape";
        return false;
    }
    k = RouteKey();
    k.vrf = key.substr(root, nul - root);
    k.ipv4 = key[nul + 1] == '4';
    /* A record that is not sound names its route by the key (its address bytes and length byte). */
    auto damaged = [&](const char *reason) {
        why = reason;
        char text[INET6_ADDRSTRLEN];
        if (key.size() == nul + (k.ipv4 ? 7 : 19) &&
            inet_ntop(k.ipv4 ? AF_INET : AF_INET6, key.data() + nul + 2, text, sizeof text) != nullptr) {
            k.prefix = text;
            k.length = std::to_string(static_cast<uint8_t>(key.back()));
        }
        return false;
    };
    if (value.size() < 5 || static_cast<uint8_t>(value[0]) != STORE_FORMAT)
        return damaged("a record of an unknown version");
    const auto *p = reinterpret_cast<const unsigned char *>(value.data());
    uint32_t crc = uint32_t(p[1]) | uint32_t(p[2]) << 8 | uint32_t(p[3]) << 16 | uint32_t(p[4]) << 24;
    if (crc != crc32c(p + 5, value.size() - 5))
        return damaged("a record failing its checksum");
    Reader rd{p + 5, p + value.size()};
    RouteKey stored = k;
    stored.prefix = rd.text();
    stored.length = rd.text();
    r = Route();
    uint64_t n = rd.varint();
    for (uint64_t i = 0; rd.ok && i < n; ++i) {
        NhKey nk;
        uint8_t t = rd.byte();
        if (t > 2)
            rd.ok = false;
        nk.table = static_cast<NhTable>(t);
        nk.interface = rd.text();
        nk.address = rd.text();
        NhLeaves leaves;
        uint64_t nl = rd.varint();
        for (uint64_t j = 0; rd.ok && j < nl; ++j) {
            uint8_t id = rd.byte();
            if (id >= NH_LEAF_COUNT) {
                rd.ok = false;
                break;
            }
            leaves[NH_LEAF_NAMES[id]] = rd.text();
        }
        if (rd.ok)
            r.next_hops.emplace(std::move(nk), std::move(leaves));
    }
    if (!rd.ok || rd.p != rd.end)
        return damaged("a record of the wrong length");
    if (route_record_key(stored) != key)
        return damaged("a record that does not match its key");
    k = stored; /* the texts as the native tree held them */
    return true;
}

cerrno write_route(Txn &t, const std::string &key, const RouteKey &k, const Route *r)
{
    try {
        cerrno rc = r != nullptr ? t.put(key, encode_route(k, *r)) : t.del(key);
        if (rc != YFW_RC_OK && rc != SYSDB_RC_NOT_FOUND)
            return rc;
        /* The route's directory in the plug-in's layout, rewritten whole. */
        const std::string dir = route_next_hop_dir(k.vrf, k.ipv4, k.prefix, atoi(k.length.c_str()));
        if (dir.empty())
            return SYSDB_RC_INVALID_ARG;
        const std::string full = STATIC_ROOT + dir;
        std::vector<std::string> old;
        rc = t.scan(full, prefix_end(full), [&](const std::string &key2, const std::string &) {
            old.push_back(key2);
            return true;
        });
        if (rc != YFW_RC_OK)
            return rc;
        for (const std::string &o : old)
            if ((rc = t.del(o)) != YFW_RC_OK)
                return rc;
        if (r == nullptr)
            return YFW_RC_OK;
        for (const auto &nh : r->next_hops)
            if ((rc = store_write_next_hop(t, projection(k, nh.first, nh.second))) != YFW_RC_OK)
                return rc;
        return YFW_RC_OK;
    } catch (...) {
        return SYSDB_RC_FAILED;
    }
}

bool store_check_format(StoreEngine &e, std::string &why)
{
    std::unique_ptr<Txn> t = e.begin_read();
    if (!t) {
        why = "the store cannot be read";
        return false;
    }
    std::string m;
    cerrno rc = t->get(META_FORMAT_KEY, m);
    if (rc == YFW_RC_OK) {
        if (m.size() != 6 || m.compare(0, 4, FORMAT_MAGIC) != 0) {
            why = "the store holds a format marker of another program";
            return false;
        }
        unsigned v = static_cast<uint8_t>(m[4]) | unsigned(static_cast<uint8_t>(m[5])) << 8;
        if (v > STORE_FORMAT) {
            why = "the store is of format " + std::to_string(v) + ", newer than this program's " +
                  std::to_string(STORE_FORMAT);
            return false;
        }
        if (v < STORE_FORMAT) {
            why = "the store is of format " + std::to_string(v) + ": run `ocni-map store upgrade` first";
            return false;
        }
        return true;
    }
    if (rc != SYSDB_RC_NOT_FOUND) {
        why = "the store cannot be read";
        return false;
    }
    bool any = false, old = false;
    t->scan("", "", [&](const std::string &key, const std::string &) {
        any = true;
        old = key.compare(0, 6, "/host/") == 0 || key.compare(0, 5, "/cfg/") == 0;
        return false;
    });
    if (old) {
        why = "the store is in the previous format: run `ocni-map store upgrade` to convert it";
        return false;
    }
    if (any) {
        why = "the store holds data of another program";
        return false;
    }
    t->abort();
    /* A new store: mark it (a store that cannot be written stays as it is). */
    std::unique_ptr<Txn> w = e.begin_write();
    if (!w)
        return true;
    std::string again;
    if (w->get(META_FORMAT_KEY, again) == SYSDB_RC_NOT_FOUND) {
        bool empty = true;
        w->scan("", "", [&](const std::string &, const std::string &) { return empty = false; });
        if (!empty) {
            w->abort();
            return store_check_format(e, why); /* written meanwhile by another process */
        }
        if (w->put(META_FORMAT_KEY, marker()) != YFW_RC_OK || w->commit() != YFW_RC_OK) {
            why = "cannot write the store's format marker";
            return false;
        }
    }
    return true;
}

bool store_upgrade(StoreEngine &e, size_t &routes, std::string &why)
{
    routes = 0;
    std::unique_ptr<Txn> w = e.begin_write();
    if (!w) {
        why = "the store cannot be written";
        return false;
    }
    std::string m;
    if (w->get(META_FORMAT_KEY, m) == YFW_RC_OK) {
        why = "the store is not in the previous format";
        return false;
    }
    std::vector<std::pair<RouteKey, Route>> all;
    std::vector<std::string> old_keys;
    bool bad = false;
    cerrno rc = w->scan(OLD_NATIVE_ROOT, prefix_end(OLD_NATIVE_ROOT), [&](const std::string &key, const std::string &v) {
        RouteKey k;
        Route r;
        if (!old_decode(key, v, k, r)) {
            why = "damaged record " + key.substr(OLD_NATIVE_ROOT.size());
            bad = true;
            return false;
        }
        old_keys.push_back(key);
        all.emplace_back(std::move(k), std::move(r));
        return true;
    });
    if (rc != YFW_RC_OK || bad) {
        if (why.empty())
            why = "the store cannot be read";
        return false;
    }
    /* The plug-in's layout is rebuilt from the records: drop what the old length keys left. */
    rc = w->scan(STATIC_ROOT, prefix_end(STATIC_ROOT), [&](const std::string &key, const std::string &) {
        old_keys.push_back(key);
        return true;
    });
    for (const std::string &k : old_keys)
        if (rc == YFW_RC_OK)
            rc = w->del(k);
    for (const auto &kr : all) {
        std::string key = route_record_key(kr.first);
        if (rc == YFW_RC_OK && key.empty()) {
            why = "a route that is not a prefix of its family: " + kr.first.prefix + "/" + kr.first.length;
            return false;
        }
        if (rc == YFW_RC_OK)
            rc = write_route(*w, key, kr.first, &kr.second);
    }
    if (rc == YFW_RC_OK)
        rc = w->put(META_FORMAT_KEY, marker());
    if (rc == YFW_RC_OK)
        rc = w->commit();
    if (rc != YFW_RC_OK) {
        why = "the store could not be rewritten";
        return false;
    }
    routes = all.size();
    return true;
}

} // namespace ocni::host
