/*
 * The configuration store client, its in-memory engine, packed tuples and
 * the native next-hop layout the plug-in's lookups read.
 */
#include <cstring>
#include <map>

#include <gtest/gtest.h>

#include "host/store.h"
#include "host/store_layout.h"
#include <strings.h>

#include "qz_addr.h"
#include "sysdb.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"

using namespace ocni::host;

namespace {

/* Counts the keys an engine's transactions hand out, to prove lookups stay within their range. */
class CountingEngine : public StoreEngine {
public:
    explicit CountingEngine(std::shared_ptr<StoreEngine> inner) : inner_(std::move(inner)) {}
    std::unique_ptr<Txn> begin_read() override { return wrap(inner_->begin_read()); }
    std::unique_ptr<Txn> begin_write() override { return wrap(inner_->begin_write()); }
    size_t visited = 0;

private:
    class Counting : public Txn {
    public:
        Counting(std::unique_ptr<Txn> t, size_t &n) : t_(std::move(t)), n_(n) {}
        bool writable() const override { return t_->writable(); }
        cerrno get(const std::string &k, std::string &v) override { return t_->get(k, v); }
        cerrno put(const std::string &k, const std::string &v) override { return t_->put(k, v); }
        cerrno del(const std::string &k) override { return t_->del(k); }
        cerrno scan(const std::string &lo, const std::string &hi, const Visitor &fn) override
        {
            return t_->scan(lo, hi, [&](const std::string &k, const std::string &v) {
                ++n_;
                return fn(k, v);
            });
        }
        cerrno commit() override { return t_->commit(); }
        void abort() override { t_->abort(); }

    private:
        std::unique_ptr<Txn> t_;
        size_t &n_;
    };
    std::unique_ptr<Txn> wrap(std::unique_ptr<Txn> t)
    {
        return t ? std::make_unique<Counting>(std::move(t), visited) : nullptr;
    }
    std::shared_ptr<StoreEngine> inner_;
};

/* The lookup path the plug-in builds for a route's next hops, with its own length arithmetic. */
std::string lookup_path(const char *vrf, bool ipv4, const char *prefix, int len)
{
    ip_addr_t a;
    EXPECT_EQ(qz_inet_pton(ipv4 ? QZ_AF_INET : QZ_AF_INET6, prefix, &a), 1);
    char hex[QZ_HEX_ADDR_LEN];
    EXPECT_EQ(ip_addr2hex_string(&a, hex, sizeof hex), 0);
    char lenkey[8];
    snprintf(lenkey, sizeof lenkey, "0x%x", unsigned(len));
    char path[250];
    snprintf(path, sizeof path, "%s%s", strcasecmp(vrf, "default") == 0 ? "ord_d/default" : "ord_v/", strcasecmp(vrf, "default") == 0 ? "" : vrf);
    char tail[250];
    snprintf(tail, sizeof tail,
             ipv4 ? "/address/ipv4/unicast/ord_c/default/route/%s/%s/.*,.*/nexthop/"
                  : "/address/ipv6/unicast/ord_c/default/route/%s/%s/.*,.*/nexthop/",
             hex, lenkey);
    return std::string(path) + tail;
}

struct Listed {
    std::string path;
    std::string tuple;
};

std::vector<Listed> drain(sysdb_datalist_t *list)
{
    std::vector<Listed> out;
    const char *p;
    const void *t;
    uint32_t n;
    while (sysdb_datalist_next(list, &p, &t, &n) == YFW_RC_OK)
        out.push_back({p, std::string(static_cast<const char *>(t), n)});
    EXPECT_EQ(sysdb_datalist_next(list, &p, &t, &n), SYSDB_RC_NOT_FOUND);
    sysdb_datalist_free(list);
    return out;
}

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        store_reset();
        store_scope_each_lookup(true); /* lookups made here, outside a request, read the committed store */
        ASSERT_EQ(_sysdb_bind(&conn, STATIC_ROOT, SYSDB_BIND_MODE_RW), YFW_RC_OK);
        ASSERT_EQ(_sysdb_bind(&rsi, RSI_ROOT, SYSDB_BIND_MODE_RW), YFW_RC_OK);
    }
    void TearDown() override
    {
        store_scope_each_lookup(false);
        store_reset();
    }

    sysdb_connid_t conn = nullptr;
    sysdb_connid_t rsi = nullptr;
};

TEST(PrefixLengthKey, TrueHexadecimalValueWithoutLeadingZeros)
{
    const std::pair<int, const char *> rows[] = {{24, "0x18"}, {32, "0x20"}, {26, "0x1a"}, {64, "0x40"},
                                                 {8, "0x8"},   {0, "0x0"},   {128, "0x80"}, {127, "0x7f"}};
    for (const auto &r : rows)
        EXPECT_EQ(prefix_length_key(r.first), r.second) << r.first;
}

TEST_F(StoreTest, NextHopWrittenByTheHostRoundTripsThroughThePluginsLookup)
{
    NativeNextHop nh;
    nh.prefix = "10.1.0.0";
    nh.prefix_length = 24;
    nh.interface = "GigabitEthernet0/0/0/1";
    nh.address = "10.1.0.254";
    nh.bfd_fast_detect = 1;
    nh.minimum_interval = 150;
    nh.detect_multiplier = 3;
    nh.metric = 20;
    nh.tag = 77;
    nh.permanent = 1;
    nh.vrf_label = 0;
    nh.tunnel_id = 9;
    nh.object_name = "track-1";
    nh.description = "uplink";
    nh.load_metric = 5;
    nh.index = "my-index";
    ASSERT_EQ(store_write_next_hop(nh), YFW_RC_OK);

    uint32_t count = 0;
    sysdb_datalist_t *list = nullptr;
    std::string path = lookup_path("default", true, "10.1.0.0", 24);
    ASSERT_EQ(sysdb_find_data(conn, path.c_str(), "", SYSDB_FIND_LIST, &count, &list), YFW_RC_OK);
    ASSERT_EQ(count, 1u);
    auto items = drain(list);
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].path, "/cfg/gl/static/router/ord_d/default/address/ipv4/unicast/ord_c/default/route/"
                             "0a010000/0x18/0,0/nexthop/GigabitEthernet0_0_0_1,0a0100fe,________,________");

    int f[9];
    memset(f, 0xff, sizeof f);
    char obj[33], desc[31], index[129];
    ASSERT_EQ(tuple_unpack(items[0].tuple.data(), uint32_t(items[0].tuple.size()), "%d%d%d%d%d%d%d%d%s%s%d%s",
                           &f[0], &f[1], &f[2], &f[3], &f[4], &f[5], &f[6], &f[7], obj, sizeof obj, desc,
                           sizeof desc, &f[8], index, sizeof index),
              YFW_RC_OK);
    EXPECT_EQ(std::vector<int>(f, f + 9), (std::vector<int>{1, 150, 3, 20, 77, 1, 0, 9, 5}));
    EXPECT_STREQ(obj, "track-1");
    EXPECT_STREQ(desc, "uplink");
    EXPECT_STREQ(index, "my-index");

    /* The exact key, as the generated-index lookup appends it. */
    std::string exact = path + "GigabitEthernet0_0_0_1,0a0100fe,________,________";
    ASSERT_EQ(sysdb_find_data(conn, exact.c_str(), "", SYSDB_FIND_LIST, &count, &list), YFW_RC_OK);
    EXPECT_EQ(drain(list).size(), 1u);
    std::string absent = path + "________,0a0100fe,________,________";
    EXPECT_EQ(sysdb_find_data(conn, absent.c_str(), "", SYSDB_FIND_LIST, &count, &list), SYSDB_RC_NOT_FOUND);
    EXPECT_EQ(list, nullptr);

    std::vector<NativeNextHop> back;
    ASSERT_EQ(store_read_next_hops("default", true, "10.1.0.0", 24, back), YFW_RC_OK);
    ASSERT_EQ(back.size(), 1u);
    EXPECT_EQ(back[0].interface, nh.interface);
    EXPECT_EQ(back[0].address, nh.address);
    EXPECT_EQ(back[0].prefix_length, 24);
    EXPECT_EQ(back[0].index, nh.index);
    EXPECT_EQ(back[0].description, nh.description);
}

TEST_F(StoreTest, NamedVrfIpv6NextHopsListSortedWithEmptyParts)
{
    const char *addrs[] = {"2001:db8::2", "2001:db8::1"};
    for (const char *a : addrs) {
        NativeNextHop nh;
        nh.vrf = "red";
        nh.ipv4 = false;
        nh.prefix = "2001:db8::";
        nh.prefix_length = 64;
        nh.address = a;
        ASSERT_EQ(store_write_next_hop(nh), YFW_RC_OK);
    }
    NativeNextHop drop;
    drop.vrf = "red";
    drop.ipv4 = false;
    drop.prefix = "2001:db8::";
    drop.prefix_length = 64;
    drop.interface = "Null0";
    ASSERT_EQ(store_write_next_hop(drop), YFW_RC_OK);

    uint32_t count = 0;
    sysdb_datalist_t *list = nullptr;
    std::string path = lookup_path("red", false, "2001:db8::", 64);
    ASSERT_EQ(sysdb_find_data(conn, path.c_str(), "", SYSDB_FIND_LIST, &count, &list), YFW_RC_OK);
    EXPECT_EQ(count, 3u);
    auto items = drain(list);
    ASSERT_EQ(items.size(), 3u);
    const std::string dir = "/cfg/gl/static/router/ord_v/red/address/ipv6/unicast/ord_c/default/route/"
                            "20010db8000000000000000000000000/0x40/0,0/nexthop/";
    EXPECT_EQ(items[0].path, dir + "Null0,________,________,________");
    EXPECT_EQ(items[1].path, dir + "________,20010db8000000000000000000000001,________,________");
    EXPECT_EQ(items[2].path, dir + "________,20010db8000000000000000000000002,________,________");
}

TEST_F(StoreTest, PatternComponentMatchesWholeComponentsOnly)
{
    auto engine = store_engine();
    const std::string base = std::string(STATIC_ROOT) + "ord_d/default/address/ipv4/unicast/ord_c/default/route/0a000000/0x18/";
    engine->put(base + "0,0/nexthop/a,________,________,________", "x");
    engine->put(base + "1,2/nexthop/b,________,________,________", "y");
    engine->put(base + "12/nexthop/c,________,________,________", "z"); /* no comma: no match */
    uint32_t count = 0;
    sysdb_datalist_t *list = nullptr;
    ASSERT_EQ(sysdb_find_data(conn, "ord_d/default/address/ipv4/unicast/ord_c/default/route/0a000000/0x18/.*,.*/nexthop/",
                              "", SYSDB_FIND_LIST, &count, &list),
              YFW_RC_OK);
    auto items = drain(list);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].tuple, "x");
    EXPECT_EQ(items[1].tuple, "y");
    /* `item` narrows to one last component. */
    ASSERT_EQ(sysdb_find_data(conn, "ord_d/default/address/ipv4/unicast/ord_c/default/route/0a000000/0x18/.*,.*/nexthop/",
                              "b,________,________,________", SYSDB_FIND_LIST, &count, &list),
              YFW_RC_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(drain(list).size(), 1u);
    EXPECT_EQ(sysdb_find_data(conn, "ord_d/(/x", "", SYSDB_FIND_LIST, &count, &list), SYSDB_RC_NOT_FOUND);
}

TEST_F(StoreTest, MissingPrefixIsNotFoundAndAnEmptyNextHopListCountsZero)
{
    uint32_t count = 99;
    sysdb_datalist_t *list = nullptr;
    std::string path = lookup_path("default", true, "192.0.2.0", 24);
    EXPECT_EQ(sysdb_find_data(conn, path.c_str(), "", SYSDB_FIND_LIST, &count, &list), SYSDB_RC_NOT_FOUND);
    EXPECT_EQ(list, nullptr);
    store_engine()->put(std::string(STATIC_ROOT) + route_next_hop_dir("default", true, "192.0.2.0", 24), "");
    ASSERT_EQ(sysdb_find_data(conn, path.c_str(), "", SYSDB_FIND_LIST, &count, &list), YFW_RC_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(drain(list).empty());
}

TEST_F(StoreTest, VrfListingTellsPresentEmptyAndAbsent)
{
    ASSERT_EQ(store_add_vrf("red"), YFW_RC_OK);
    ASSERT_EQ(store_add_empty_vrf("hollow"), YFW_RC_OK);
    struct Row {
        const char *path;
        cerrno rc;
        uint32_t count;
    } rows[] = {{"vrf/red/", YFW_RC_OK, 1}, {"vrf/hollow/", YFW_RC_OK, 0}, {"vrf/blue/", SYSDB_RC_NOT_FOUND, 0xFFFFFFFF}};
    for (const Row &r : rows) {
        uint32_t count = 0xFFFFFFFF;
        sysdb_datalist_t *list = nullptr;
        EXPECT_EQ(sysdb_datalist(rsi, r.path, "", &count, &list, 0), r.rc) << r.path;
        EXPECT_EQ(count, r.count) << r.path;
        if (list != nullptr)
            sysdb_datalist_free(list);
    }
    uint32_t count = 0;
    sysdb_datalist_t *list = nullptr;
    ASSERT_EQ(sysdb_datalist(rsi, "vrf/", "", &count, &list, 0), YFW_RC_OK);
    auto items = drain(list);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].path, "/cfg/gl/rsi/vrf/hollow/");
    EXPECT_EQ(items[1].path, "/cfg/gl/rsi/vrf/red/");
    ASSERT_EQ(sysdb_datalist(rsi, "vrf/", "r.*", &count, &list, 0), YFW_RC_OK);
    EXPECT_EQ(drain(list).size(), 1u);

    ASSERT_EQ(store_remove_vrf("red"), YFW_RC_OK);
    EXPECT_FALSE(store_has_vrf("red"));
    EXPECT_EQ(store_remove_vrf("red"), SYSDB_RC_NOT_FOUND);
}

TEST_F(StoreTest, OnePrefixLookupVisitsOnlyItsRoute)
{
    auto counting = std::make_shared<CountingEngine>(make_memory_engine());
    store_use_engine(counting);
    const int routes = 100000;
    char prefix[32];
    auto w = counting->begin_write();
    for (int i = 0; i < routes; ++i) {
        NativeNextHop nh;
        snprintf(prefix, sizeof prefix, "10.%d.%d.0", (i / 256) % 256, i % 256);
        nh.prefix = prefix;
        nh.prefix_length = 24 + i / 65536;
        nh.address = "192.0.2.1";
        ASSERT_EQ(store_write_next_hop(*w, nh), YFW_RC_OK);
    }
    ASSERT_EQ(w->commit(), YFW_RC_OK);
    counting->visited = 0;
    uint32_t count = 0;
    sysdb_datalist_t *list = nullptr;
    std::string path = lookup_path("default", true, "10.3.7.0", 24);
    ASSERT_EQ(sysdb_find_data(conn, path.c_str(), "", SYSDB_FIND_LIST, &count, &list), YFW_RC_OK);
    EXPECT_EQ(count, 1u);
    sysdb_datalist_free(list);
    EXPECT_LE(counting->visited, 1u);
}

TEST_F(StoreTest, BindRefusalsAndBadArguments)
{
    size_t before = store_bind_count();
    store_fail_binds(SYSDB_RC_FAILED, 1);
    sysdb_connid_t c = nullptr;
    EXPECT_EQ(_sysdb_bind(&c, STATIC_ROOT, SYSDB_BIND_MODE_RW), SYSDB_RC_FAILED);
    EXPECT_EQ(_sysdb_bind(&c, STATIC_ROOT, SYSDB_BIND_MODE_RW), YFW_RC_OK);
    EXPECT_EQ(store_bind_count(), before + 2);
    EXPECT_EQ(_sysdb_bind(&c, "relative/", SYSDB_BIND_MODE_RW), SYSDB_RC_INVALID_ARG);
    EXPECT_EQ(_sysdb_bind(nullptr, STATIC_ROOT, SYSDB_BIND_MODE_RW), SYSDB_RC_INVALID_ARG);
    uint32_t count = 0;
    sysdb_datalist_t *list = nullptr;
    EXPECT_EQ(sysdb_find_data(nullptr, "x", "", SYSDB_FIND_LIST, &count, &list), SYSDB_RC_INVALID_ARG);
    EXPECT_EQ(sysdb_datalist(conn, nullptr, "", &count, &list, 0), SYSDB_RC_INVALID_ARG);
    EXPECT_EQ(sysdb_datalist_next(nullptr, nullptr, nullptr, nullptr), SYSDB_RC_INVALID_ARG);
    sysdb_datalist_free(nullptr);
    NativeNextHop bad;
    bad.prefix = "10.0.0.0/24"; /* the length does not belong in the address */
    EXPECT_EQ(store_write_next_hop(bad), SYSDB_RC_INVALID_ARG);
    bad.prefix = "10.0.0.0";
    bad.address = "2001:db8::1"; /* not of the route's family */
    EXPECT_EQ(store_write_next_hop(bad), SYSDB_RC_INVALID_ARG);
    bad.address.clear();
    bad.interface = "Gi0/0,1"; /* would split the key */
    EXPECT_EQ(store_write_next_hop(bad), SYSDB_RC_INVALID_ARG);
    bad.interface = "Gi0/0";
    bad.third = "a/b";
    EXPECT_EQ(store_write_next_hop(bad), SYSDB_RC_INVALID_ARG);
    std::vector<NativeNextHop> all;
    ASSERT_EQ(store_all_next_hops(all), YFW_RC_OK);
    EXPECT_TRUE(all.empty());
}

TEST_F(StoreTest, DeleteRemovesOneNextHop)
{
    NativeNextHop a, b;
    a.prefix = b.prefix = "10.0.0.0";
    a.prefix_length = b.prefix_length = 8;
    a.address = "10.0.0.1";
    b.interface = "Loopback0";
    ASSERT_EQ(store_write_next_hop(a), YFW_RC_OK);
    ASSERT_EQ(store_write_next_hop(b), YFW_RC_OK);
    ASSERT_EQ(store_delete_next_hop(a), YFW_RC_OK);
    EXPECT_EQ(store_delete_next_hop(a), SYSDB_RC_NOT_FOUND);
    std::vector<NativeNextHop> left;
    ASSERT_EQ(store_read_next_hops("DEFAULT", true, "10.0.0.0", 8, left), YFW_RC_OK);
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left[0].interface, "Loopback0");
}

TEST(MemoryEngine, ScanIsOrderedBoundedAndMayWrite)
{
    auto e = make_memory_engine();
    for (const char *k : {"/p/b", "/p/a", "/q", "/p/c", "/p"})
        e->put(k, k);
    std::vector<std::string> seen;
    auto w = e->begin_write();
    w->scan("/p/", prefix_end("/p/"), [&](const std::string &k, const std::string &) {
        seen.push_back(k);
        w->put("/r" + k, "written while scanning");
        w->del(k);
        return true;
    });
    ASSERT_EQ(w->commit(), YFW_RC_OK);
    EXPECT_EQ(seen, (std::vector<std::string>{"/p/a", "/p/b", "/p/c"}));
    std::string v;
    EXPECT_EQ(e->get("/r/p/c", v), YFW_RC_OK);
    EXPECT_EQ(e->get("/p/c", v), SYSDB_RC_NOT_FOUND);
    seen.clear();
    e->scan("", "", [&](const std::string &k, const std::string &) {
        seen.push_back(k);
        return seen.size() < 2; /* stops early */
    });
    EXPECT_EQ(seen, (std::vector<std::string>{"/p", "/q"}));
    EXPECT_EQ(prefix_end("/p/"), "/p0");
    EXPECT_EQ(prefix_end(std::string("\xff\xff", 2)), "");
}

TEST(StoreScope, LookupsReadTheScopesSnapshotAndFailOutsideAny)
{
    store_reset();
    store_scope_each_lookup(false);
    ASSERT_EQ(store_add_vrf("red"), YFW_RC_OK);
    sysdb_connid_t rsi = nullptr;
    ASSERT_EQ(_sysdb_bind(&rsi, RSI_ROOT, SYSDB_BIND_MODE_RW), YFW_RC_OK);
    uint32_t count = 0;
    EXPECT_EQ(sysdb_find_data(rsi, "vrf/red/", "", 0, &count, nullptr), SYSDB_RC_FAILED);
    auto snap = store_engine()->begin_read();
    {
        TxnScope scope(snap.get());
        ASSERT_EQ(store_add_vrf("blue"), YFW_RC_OK); /* committed after the snapshot */
        EXPECT_EQ(sysdb_find_data(rsi, "vrf/red/", "", 0, &count, nullptr), YFW_RC_OK);
        EXPECT_EQ(sysdb_find_data(rsi, "vrf/blue/", "", 0, &count, nullptr), SYSDB_RC_NOT_FOUND);
    }
    EXPECT_EQ(TxnScope::current(), nullptr);
    store_reset();
}

TEST(Tuple, PackUnpackRoundTripAndShortTuples)
{
    void *t = nullptr;
    uint32_t len = 0;
    ASSERT_EQ(tuple_pack(&t, &len, "%d%s%d", -7, "hello world", 42), YFW_RC_OK);
    int a = 0, b = 0;
    char s[6];
    ASSERT_EQ(tuple_unpack(t, len, "%d%s%d", &a, s, sizeof s, &b), YFW_RC_OK);
    EXPECT_EQ(a, -7);
    EXPECT_STREQ(s, "hello"); /* cut at size - 1 */
    EXPECT_EQ(b, 42);
    /* Fields past the end of a shorter tuple are left untouched. */
    int c = 555;
    char extra[8] = "keep";
    ASSERT_EQ(tuple_unpack(t, len, "%d%s%d%d%s", &a, s, sizeof s, &b, &c, extra, sizeof extra), YFW_RC_OK);
    EXPECT_EQ(c, 555);
    EXPECT_STREQ(extra, "keep");
    /* Type mismatch, bad formats and truncated tuples are refused. */
    EXPECT_EQ(tuple_unpack(t, len, "%s", s, sizeof s), SYSDB_RC_INVALID_ARG);
    EXPECT_EQ(tuple_unpack(t, len, "%x", &a), SYSDB_RC_INVALID_ARG);
    EXPECT_EQ(tuple_unpack(t, 7, "%d%s", &a, s, sizeof s), SYSDB_RC_INVALID_ARG);
    free(t);
    EXPECT_EQ(tuple_pack(&t, &len, "%q"), SYSDB_RC_INVALID_ARG);
    EXPECT_EQ(t, nullptr);
    ASSERT_EQ(tuple_pack(&t, &len, ""), YFW_RC_OK);
    EXPECT_EQ(len, 0u);
    free(t);
}

} // namespace
