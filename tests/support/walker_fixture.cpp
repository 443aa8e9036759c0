#include "walker_fixture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "host/store.h"
#include "host/tree.h"
#include "ocni_common.h"
#include "qz_addr.h"
#include "sysdb.h"
#include "tree_builder.h"

using namespace ocni::host;

namespace ocni::test {

std::string plugin_library_path()
{
    const char *bin = std::getenv("OCNI_BINARY_DIR");
    return std::string(bin != nullptr ? bin : ".") + "/localrouting/libocni_localrouting.so";
}

std::string oc_static_routes(const std::string &vrf)
{
    return "/network-instances/network-instance[name=" + vrf +
           "]/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes";
}

void WalkerFixture::SetUp()
{
    store_reset();
    store_scope_each_lookup(false);
    std::string err;
    plugin = Plugin::load(plugin_library_path(), err);
    ASSERT_NE(plugin, nullptr) << err;
    reopen();
}

void WalkerFixture::TearDown()
{
    walker.reset();
    config.reset();
    store_reset();
}

void WalkerFixture::reopen()
{
    walker.reset();
    config.reset();
    config = std::make_unique<NativeConfig>();
    std::string err;
    ASSERT_TRUE(config->open(err)) << err;
    walker = std::make_unique<Walker>(*plugin, *config);
}

EditOutcome WalkerFixture::edit(const std::string &lines, bool dry_run)
{
    return walker->edit(build_tree(lines, OCNI_NS_OC_NI).get(), dry_run);
}

void WalkerFixture::native_edit(const std::string &lines)
{
    EditOutcome r = walker->native_edit(build_tree(lines, OCNI_NS_NATIVE).get(), false, true);
    ASSERT_TRUE(r.result.ok()) << r.result.message;
}

std::vector<std::string> WalkerFixture::native() const
{
    return tree_lines(TreePtr(config->to_tree()).get());
}

std::vector<std::string> WalkerFixture::read(bool state, const std::string &vrf, const std::string &prefix)
{
    ReadRequest req{state, vrf, prefix};
    zidl_yfw_datatree *out = nullptr;
    WalkResult r = walker->read(req, &out);
    EXPECT_TRUE(r.ok()) << rc_text(r.rc) << " " << r.message << " " << r.callback << " " << r.path;
    TreePtr t(out);
    return t ? tree_lines(t.get()) : std::vector<std::string>{};
}

namespace {

std::string unpart(const std::string &s) { return s == EMPTY_KEY_PART ? std::string() : s; }

std::vector<std::string> split_on(const std::string &s, char sep)
{
    std::vector<std::string> out;
    size_t b = 0;
    for (;;) {
        size_t e = s.find(sep, b);
        out.push_back(s.substr(b, e == std::string::npos ? std::string::npos : e - b));
        if (e == std::string::npos)
            return out;
        b = e + 1;
    }
}

std::string address_text(const std::string &hex)
{
    ip_addr_t a;
    if (hex_string2ip_addr(hex.c_str(), &a) != 0)
        return std::string();
    return ip_addr_string(&a);
}

/* Parses one stored next hop back from its full path and tuple; false when it is not one. */
bool parse_next_hop(const std::string &path, const std::string &tuple, NativeNextHop &nh)
{
    std::string rel = path.substr(sizeof STATIC_ROOT - 1);
    std::vector<std::string> c = split_on(rel, '/');
    /* ord_x NAME address ipvN unicast ord_c default route HEX LEN ROUTE nexthop KEY */
    if (c.size() != 13 || c[2] != "address" || c[7] != "route" || c[11] != "nexthop")
        return false;
    nh = NativeNextHop();
    nh.vrf = c[1];
    nh.ipv4 = c[3] == "ipv4";
    nh.prefix = address_text(c[8]);
    unsigned len = 0;
    if (sscanf(c[9].c_str(), "0x%x", &len) != 1 || len > 128)
        return false;
    nh.prefix_length = int(len);
    std::vector<std::string> k = split_on(c[12], ',');
    if (k.size() != 4)
        return false;
    nh.interface = unpart(k[0]);
    std::replace(nh.interface.begin(), nh.interface.end(), '_', '/');
    nh.address = unpart(k[1]).empty() ? std::string() : address_text(k[1]);
    nh.third = unpart(k[2]);
    nh.fourth = unpart(k[3]);
    char obj[64] = "", desc[64] = "", index[256] = "";
    cerrno rc = tuple_unpack(tuple.data(), uint32_t(tuple.size()), "%d%d%d%d%d%d%d%d%s%s%d%s",
                             &nh.bfd_fast_detect, &nh.minimum_interval, &nh.detect_multiplier, &nh.metric,
                             &nh.tag, &nh.permanent, &nh.vrf_label, &nh.tunnel_id, obj, sizeof obj, desc,
                             sizeof desc, &nh.load_metric, index, sizeof index);
    nh.object_name = obj;
    nh.description = desc;
    nh.index = index;
    return rc == YFW_RC_OK;
}

} // namespace

cerrno store_all_next_hops(std::vector<NativeNextHop> &out)
{
    try {
        std::unique_ptr<Txn> t = store_engine()->begin_read();
        if (!t)
            return SYSDB_RC_FAILED;
        out.clear();
        return t->scan(STATIC_ROOT, prefix_end(STATIC_ROOT), [&](const std::string &key, const std::string &value) {
            NativeNextHop nh;
            if (!key.empty() && key.back() != '/' && parse_next_hop(key, value, nh))
                out.push_back(std::move(nh));
            return true;
        });
    } catch (...) {
        return SYSDB_RC_FAILED;
    }
}

} // namespace ocni::test
