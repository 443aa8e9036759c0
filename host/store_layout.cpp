/*
 * Native static-route layout of the store: the next-hop writer and the VRF
 * store.
 */
#include "host/store_layout.h"

#include <cstdio>
#include <strings.h>

#include "host/store.h"
#include "qz_addr.h"
#include "sysdb.h"

namespace ocni::host {
namespace {

std::string slash_to_underscore(std::string s)
{
    for (char &c : s)
        if (c == '/')
            c = '_';
    return s;
}

std::string part(const std::string &s)
{
    return s.empty() ? std::string(EMPTY_KEY_PART) : s;
}

} // namespace

std::string prefix_length_key(int length)
{
    char buf[16];
    snprintf(buf, sizeof buf, "0x%x", unsigned(length > 0 ? length : 0));
    return buf;
}

std::string hex_address(const std::string &text, bool ipv4)
{
    ip_addr_t a;
    if (qz_inet_pton(ipv4 ? QZ_AF_INET : QZ_AF_INET6, text.c_str(), &a) != 1)
        return std::string();
    char hex[QZ_HEX_ADDR_LEN];
    if (ip_addr2hex_string(&a, hex, sizeof hex) != 0)
        return std::string();
    return hex;
}

std::string vrf_component(const std::string &vrf)
{
    if (vrf.empty() || strcasecmp(vrf.c_str(), "default") == 0)
        return "ord_d/default";
    return "ord_v/" + vrf;
}

std::string route_next_hop_dir(const std::string &vrf, bool ipv4, const std::string &prefix, int length)
{
    std::string hex = hex_address(prefix, ipv4);
    if (hex.empty())
        return std::string();
    return vrf_component(vrf) + (ipv4 ? "/address/ipv4" : "/address/ipv6") + "/unicast/ord_c/default/route/" +
           hex + "/" + prefix_length_key(length) + "/" + ROUTE_COMPONENT + "/nexthop/";
}

std::string next_hop_key(const NativeNextHop &nh)
{
    /* A comma would split a part; a "/" in the third or fourth part would split the path. */
    for (const std::string *p : {&nh.interface, &nh.third, &nh.fourth})
        if (p->find(',') != std::string::npos)
            return std::string();
    if (nh.third.find('/') != std::string::npos || nh.fourth.find('/') != std::string::npos)
        return std::string();
    std::string addr;
    if (!nh.address.empty()) {
        addr = hex_address(nh.address, nh.ipv4);
        if (addr.empty())
            return std::string();
    }
    return part(slash_to_underscore(nh.interface)) + "," + part(addr) + "," + part(nh.third) + "," +
           part(nh.fourth);
}

std::string next_hop_tuple(const NativeNextHop &nh)
{
    TupleWriter w;
    w.d(nh.bfd_fast_detect)
        .d(nh.minimum_interval)
        .d(nh.detect_multiplier)
        .d(nh.metric)
        .d(nh.tag)
        .d(nh.permanent)
        .d(nh.vrf_label)
        .d(nh.tunnel_id)
        .s(nh.object_name)
        .s(nh.description)
        .d(nh.load_metric)
        .s(nh.index);
    return w.bytes();
}

namespace {

/* Runs `f` in a write transaction of its own on the engine in use, committed when it succeeds. */
template <class F> cerrno own_write(F f)
{
    try {
        std::unique_ptr<Txn> t = store_engine()->begin_write();
        if (!t)
            return SYSDB_RC_FAILED;
        cerrno rc = f(*t);
        if (rc != YFW_RC_OK)
            return rc;
        return t->commit();
    } catch (...) {
        return SYSDB_RC_FAILED;
    }
}

std::string vrf_dir(const std::string &name) { return std::string(RSI_ROOT) + "vrf/" + name + "/"; }

} // namespace

cerrno store_write_next_hop(Txn &t, const NativeNextHop &nh)
{
    std::string dir = route_next_hop_dir(nh.vrf, nh.ipv4, nh.prefix, nh.prefix_length);
    std::string key = next_hop_key(nh);
    if (dir.empty() || key.empty())
        return SYSDB_RC_INVALID_ARG;
    return t.put(STATIC_ROOT + dir + key, next_hop_tuple(nh));
}

cerrno store_write_next_hop(const NativeNextHop &nh)
{
    return own_write([&](Txn &t) { return store_write_next_hop(t, nh); });
}

cerrno store_add_vrf(Txn &t, const std::string &name)
{
    if (name.empty() || name.find('/') != std::string::npos)
        return SYSDB_RC_INVALID_ARG;
    return t.put(vrf_dir(name) + "name", TupleWriter().s(name).bytes());
}

cerrno store_add_vrf(const std::string &name)
{
    return own_write([&](Txn &t) { return store_add_vrf(t, name); });
}

cerrno store_remove_vrf(Txn &t, const std::string &name)
{
    if (name.empty() || name.find('/') != std::string::npos)
        return SYSDB_RC_INVALID_ARG;
    std::vector<std::string> keys;
    const std::string dir = vrf_dir(name);
    cerrno rc = t.scan(dir, prefix_end(dir), [&](const std::string &k, const std::string &) {
        keys.push_back(k);
        return true;
    });
    if (rc != YFW_RC_OK)
        return rc;
    if (keys.empty())
        return SYSDB_RC_NOT_FOUND;
    for (const auto &k : keys)
        if (cerrno d = t.del(k); d != YFW_RC_OK)
            return d;
    return YFW_RC_OK;
}

bool store_has_vrf(Txn &t, const std::string &name)
{
    if (name.empty() || name.find('/') != std::string::npos)
        return false;
    bool any = false;
    const std::string dir = vrf_dir(name);
    t.scan(dir, prefix_end(dir), [&](const std::string &, const std::string &) {
        any = true;
        return false;
    });
    return any;
}

cerrno store_list_vrfs(Txn &t, std::vector<std::string> &out)
{
    out.clear();
    const std::string root = std::string(RSI_ROOT) + "vrf/";
    return t.scan(root, prefix_end(root), [&](const std::string &key, const std::string &) {
        size_t end = key.find('/', root.size());
        if (end != std::string::npos && end > root.size()) {
            std::string name = key.substr(root.size(), end - root.size());
            if (out.empty() || out.back() != name)
                out.push_back(std::move(name));
        }
        return true;
    });
}

} // namespace ocni::host
