/*
 * The configuration store: the engines' transaction contract, restarts and
 * kills, the store client the plug-in's lookups use, tuples, the layout.
 */
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "host/native_apply.h"
#include "host/route_store.h"
#include "host/store.h"
#include "host/store_layout.h"
#include "host/store_lmdb.h"
#include "ocni_common.h"
#include "sysdb.h"
#include "tree_builder.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

using KV = std::map<std::string, std::string>;

KV dump(StoreEngine &e, const std::string &lo = "", const std::string &hi = "")
{
    KV m;
    EXPECT_EQ(e.scan(lo, hi, [&](const std::string &k, const std::string &v) { return m[k] = v, true; }), 0u);
    return m;
}

/* A fresh directory for a persistent store, removed at the end. */
class StoreDir : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/ocni-lmdb-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        top_ = tmpl;
        dir_ = top_ + "/store"; /* a directory that does not exist yet */
    }
    void TearDown() override
    {
        store_reset();
        ASSERT_EQ(system(("rm -rf '" + top_ + "'").c_str()), 0);
    }
    std::shared_ptr<StoreEngine> open()
    {
        std::string err;
        auto e = open_lmdb_engine(dir_, err);
        EXPECT_NE(e, nullptr) << err;
        return e;
    }
    std::string top_, dir_;
};

/* Both engines keep one contract: ordered bounded scans, snapshot reads, one writer, all or nothing. */
TEST_F(StoreDir, EnginesShareOneTransactionContract)
{
    const std::pair<const char *, std::shared_ptr<StoreEngine>> engines[] = {{"memory", make_memory_engine()},
                                                                            {"lmdb", open()}};
    for (const auto &[name, e] : engines) {
        SCOPED_TRACE(name);
        for (const char *k : {"/p/b", "/p/a", "/q", "/p/c", "/p"})
            ASSERT_EQ(e->put(k, std::string("v") + k), 0u);
        std::string v;
        EXPECT_EQ(e->get("/p/a", v), 0u);
        EXPECT_EQ(v, "v/p/a");
        EXPECT_EQ(e->get("/p/x" + std::string(600, 'x'), v), SYSDB_RC_NOT_FOUND); /* longer than a key can be */
        EXPECT_EQ(e->del("/p/x"), SYSDB_RC_NOT_FOUND);
        std::vector<std::string> seen;
        auto w = e->begin_write();
        w->scan("/p/", prefix_end("/p/"), [&](const std::string &k, const std::string &) {
            seen.push_back(k);
            w->put("/r" + k, "written while scanning");
            w->del(k);
            return true;
        });
        ASSERT_EQ(w->commit(), 0u);
        EXPECT_EQ(seen, (std::vector<std::string>{"/p/a", "/p/b", "/p/c"}));
        EXPECT_EQ(dump(*e).size(), 5u);
        EXPECT_EQ(e->get("/r/p/c", v), 0u);
        seen.clear();
        e->scan("", "", [&](const std::string &k, const std::string &) { return seen.push_back(k), seen.size() < 2; });
        EXPECT_EQ(seen, (std::vector<std::string>{"/p", "/q"})); /* the visitor stops early */
        w = e->begin_write(); /* a scan over many keys sees every key once */
        for (int i = 0; i < 1000; ++i)
            ASSERT_EQ(w->put("/m/" + std::to_string(100000 + i), "x"), 0u);
        ASSERT_EQ(w->commit(), 0u);
        EXPECT_EQ(dump(*e, "/m/", prefix_end("/m/")).size(), 1000u);

        ASSERT_EQ(e->put("/k/keep", "1"), 0u);
        auto snap = e->begin_read();
        w = e->begin_write();
        ASSERT_TRUE(snap && w);
        EXPECT_EQ(snap->put("/k/x", "1"), SYSDB_RC_FAILED) << "a read transaction does not write";
        w->put("/k/new", "2");
        w->del("/k/keep");
        EXPECT_EQ(w->get("/k/new", v), 0u) << "the write transaction sees its own writes";
        w->abort();
        EXPECT_EQ(dump(*e, "/k/", "/k0"), (KV{{"/k/keep", "1"}}));
        w = e->begin_write();
        w->put("/k/new", "2");
        w->del("/k/keep");
        EXPECT_EQ(snap->get("/k/new", v), SYSDB_RC_NOT_FOUND) << "nor does a snapshot see pending writes";
        ASSERT_EQ(w->commit(), 0u);
        EXPECT_EQ(w->commit(), SYSDB_RC_FAILED);
        EXPECT_EQ(w->get("/k/new", v), SYSDB_RC_FAILED) << "nor reads, once ended";
        EXPECT_EQ(w->scan("", "", [](const std::string &, const std::string &) { return true; }), SYSDB_RC_FAILED);
        EXPECT_EQ(snap->get("/k/keep", v), 0u) << "a snapshot keeps what it began with";
        EXPECT_EQ(snap->get("/k/new", v), SYSDB_RC_NOT_FOUND);
        EXPECT_EQ(dump(*e, "/k/", "/k0"), (KV{{"/k/new", "2"}}));

        w = e->begin_write(); /* a second writer waits for the first to end */
        std::atomic<bool> second{false};
        std::thread t([&] {
            auto w2 = e->begin_write();
            second = true;
            w2->put("/k/second", "3");
            w2->commit();
        });
        usleep(100000);
        EXPECT_FALSE(second.load());
        w->put("/k/first", "4");
        ASSERT_EQ(w->commit(), 0u);
        t.join();
        EXPECT_TRUE(second.load());
        EXPECT_EQ(dump(*e, "/k/", "/k0").size(), 3u);
    }
    EXPECT_EQ(prefix_end(std::string("\xff\xff", 2)), "");
    std::string err;
    EXPECT_EQ(open_lmdb_engine("/proc/version/store", err), nullptr);
    EXPECT_EQ(err, "cannot create /proc/version/store: Not a directory");
}

/*
 * A process killed while committing an edit leaves the store as before or
 * after it, never between: a child rewrites every route's metric in one
 * edit, over and over, and is killed at a random moment; every route must
 * then carry one and the same generation, in both layouts.
 */
TEST_F(StoreDir, KilledDuringAnEditLeavesEveryRouteOfOneGeneration)
{
    const int ROUTES = 1500;
    auto commit_generation = [&](int gen) {
        std::string t, err;
        for (int i = 0; i < ROUTES; ++i)
            t += "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10." +
                 std::to_string(i / 256) + "." + std::to_string(i % 256) +
                 ".0][prefix-length=24]/vrf-route/vrf-next-hop-table/vrf-next-hop-next-hop-address[next-hop-address=192.0.2.1]/metric = " +
                 std::to_string(gen) + "\n";
        store_use_engine(open_lmdb_engine(dir_, err));
        NativeConfig c;
        std::vector<std::string> changes;
        TreePtr in = build_tree(t, OCNI_NS_NATIVE);
        return c.open(err) && c.apply(in.get(), changes, err) && c.commit(err);
    };
    /* Kill times span a few generations' worth of work, however fast this machine is. */
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_TRUE(commit_generation(1));
    const long one = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0).count();
    store_reset();
    srand(static_cast<unsigned>(time(nullptr)));
    int later = 0;
    for (int round = 0; round < 5; ++round) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0)
            for (int gen = 2;; ++gen)
                if (!commit_generation(gen))
                    _exit(2);
        usleep(static_cast<useconds_t>(one / 2 + rand() % (3 * one + 1)));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "child ended on its own: " << status;

        store_use_engine(open());
        NativeConfig c;
        std::string err;
        size_t routes = 0, items = 0;
        std::set<std::string> metrics;
        ASSERT_TRUE(c.for_each_route(nullptr, nullptr, [&](const RouteKey &, const Route &r) {
            ++routes;
            for (const auto &nh : r.next_hops)
                metrics.insert(nh.second.at("metric"));
            return true;
        }, err)) << err;
        ASSERT_EQ(routes, static_cast<size_t>(ROUTES));
        ASSERT_EQ(metrics.size(), 1u) << "round " << round;
        later += *metrics.begin() != "1";
        store_engine()->scan("/cfg/gl/static/router/", prefix_end("/cfg/gl/static/router/"),
                             [&](const std::string &, const std::string &) { return ++items, true; });
        EXPECT_EQ(items, static_cast<size_t>(ROUTES)) << "the layout the plug-in reads agrees";
        store_reset();
    }
    EXPECT_GT(later, 0) << "no edit ever completed before the kill";
}

/* Counts the keys an engine's transactions hand out, to prove lookups stay within their range. */
class CountingEngine : public StoreEngine {
public:
    explicit CountingEngine(std::shared_ptr<StoreEngine> inner) : inner_(std::move(inner)) {}
    std::unique_ptr<Txn> begin_read() override { return std::make_unique<Counting>(inner_->begin_read(), visited); }
    std::unique_ptr<Txn> begin_write() override { return std::make_unique<Counting>(inner_->begin_write(), visited); }
    size_t visited = 0;

private:
    struct Counting : Txn {
        Counting(std::unique_ptr<Txn> t, size_t &n) : t_(std::move(t)), n_(n) {}
        bool writable() const override { return t_->writable(); }
        cerrno get(const std::string &k, std::string &v) override { return t_->get(k, v); }
        cerrno put(const std::string &k, const std::string &v) override { return t_->put(k, v); }
        cerrno del(const std::string &k) override { return t_->del(k); }
        cerrno scan(const std::string &lo, const std::string &hi, const Visitor &fn) override
        {
            return t_->scan(lo, hi, [&](const std::string &k, const std::string &v) { return ++n_, fn(k, v); });
        }
        cerrno commit() override { return t_->commit(); }
        void abort() override { t_->abort(); }
        std::unique_ptr<Txn> t_;
        size_t &n_;
    };
    std::shared_ptr<StoreEngine> inner_;
};

struct Listed {
    std::string path, tuple;
};

/* Every item of a listing, which is then freed. */
std::vector<Listed> drain(sysdb_datalist_t *list)
{
    std::vector<Listed> out;
    const char *p;
    const void *t;
    uint32_t len;
    while (list != nullptr && sysdb_datalist_next(list, &p, &t, &len) == YFW_RC_OK)
        out.push_back({p, std::string(static_cast<const char *>(t), len)});
    EXPECT_TRUE(list == nullptr || sysdb_datalist_next(list, &p, &t, &len) == SYSDB_RC_NOT_FOUND);
    sysdb_datalist_free(list);
    return out;
}

/* The items of a lookup, and the count it announced. */
cerrno find(sysdb_connid_t conn, const std::string &path, std::vector<Listed> &out, uint32_t *count = nullptr,
            const char *item = "")
{
    uint32_t n = 0xFFFFFFFF;
    sysdb_datalist_t *list = nullptr;
    cerrno rc = sysdb_find_data(conn, path.c_str(), item, SYSDB_FIND_LIST, &n, &list);
    if (count != nullptr)
        *count = n;
    EXPECT_TRUE(rc == 0 || list == nullptr);
    EXPECT_TRUE(rc != SYSDB_RC_NOT_FOUND || n == 0) << "a lookup that finds nothing counts none";
    out = drain(list);
    return rc;
}

class StoreClient : public ::testing::Test {
protected:
    void SetUp() override
    {
        store_reset();
        store_scope_each_lookup(true); /* lookups made here, outside a request, read the committed store */
        ASSERT_EQ(_sysdb_bind(&conn, STATIC_ROOT, SYSDB_BIND_MODE_RW), YFW_RC_OK);
    }
    void TearDown() override
    {
        store_scope_each_lookup(false);
        store_reset();
    }
    sysdb_connid_t conn = nullptr;
    std::vector<Listed> items;
    uint32_t count = 0;
};

/* The lookup path the plug-in builds for a route's next hops (the prefix length as true hex). */
const std::string V4 = "ord_d/default/address/ipv4/unicast/ord_c/default/route/0a010000/0x18/.*,.*/nexthop/";
const std::string V4_DIR = "/cfg/gl/static/router/ord_d/default/address/ipv4/unicast/ord_c/default/route/0a010000/0x18/0,0/nexthop/";

TEST_F(StoreClient, PatternComponentsMatchWholeComponents)
{
    auto engine = store_engine();
    const std::string base = V4_DIR.substr(0, V4_DIR.size() - strlen("0,0/nexthop/"));
    engine->put(base + "0,0/nexthop/a,________,________,________", "x");
    engine->put(base + "1,2/nexthop/b,________,________,________", "y");
    engine->put(base + "12/nexthop/c,________,________,________", "z"); /* no comma: no match */
    ASSERT_EQ(find(conn, V4, items), YFW_RC_OK);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].tuple + items[1].tuple, "xy");
    ASSERT_EQ(find(conn, V4, items, &count, "b,________,________,________"), YFW_RC_OK); /* `item` narrows */
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(items.size(), 1u);
    EXPECT_EQ(find(conn, "ord_d/(/x", items), SYSDB_RC_NOT_FOUND);
    /* A VRF name is data: "r.d" and ".*" are not "red", and a name of 30 '+' compiles no pattern. */
    const std::string red = "ord_v/red/address/ipv4/unicast/ord_c/default/route/0a010000/0x18/";
    engine->put("/cfg/gl/static/router/" + red + "0,0/nexthop/a,________,________,________", "r");
    ASSERT_EQ(find(conn, red + ".*,.*/nexthop/", items), YFW_RC_OK);
    for (const std::string &vrf : {std::string("r.d"), std::string("r.*"), std::string(".*"), "ab" + std::string(30, '+') + "c"})
        EXPECT_EQ(find(conn, "ord_v/" + vrf + red.substr(9) + ".*,.*/nexthop/", items), SYSDB_RC_NOT_FOUND) << vrf;
}

TEST_F(StoreClient, OnePrefixLookupVisitsOnlyItsRoute)
{
    auto counting = std::make_shared<CountingEngine>(make_memory_engine());
    store_use_engine(counting);
    char prefix[32];
    auto w = counting->begin_write();
    for (int i = 0; i < 2000; ++i) {
        NativeNextHop nh;
        snprintf(prefix, sizeof prefix, "10.1.%d.0", i % 256); /* lengths 20 to 27 of each */
        nh.prefix = prefix;
        nh.prefix_length = 20 + i / 256;
        nh.address = "192.0.2.1";
        ASSERT_EQ(store_write_next_hop(*w, nh), YFW_RC_OK);
    }
    ASSERT_EQ(w->commit(), YFW_RC_OK);
    counting->visited = 0;
    ASSERT_EQ(find(conn, "ord_d/default/address/ipv4/unicast/ord_c/default/route/0a010300/0x18/.*,.*/nexthop/", items, &count),
              YFW_RC_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_LE(counting->visited, 1u);
}

TEST_F(StoreClient, BindRefusalsAndBadArgumentsChangeNothing)
{
    size_t before = store_bind_count();
    store_fail_binds(SYSDB_RC_FAILED, 1);
    sysdb_connid_t c = nullptr;
    EXPECT_EQ(_sysdb_bind(&c, STATIC_ROOT, SYSDB_BIND_MODE_RW), SYSDB_RC_FAILED);
    EXPECT_EQ(_sysdb_bind(&c, STATIC_ROOT, SYSDB_BIND_MODE_RW), YFW_RC_OK);
    EXPECT_EQ(store_bind_count(), before + 2);
    EXPECT_EQ(_sysdb_bind(&c, "relative/", SYSDB_BIND_MODE_RW), SYSDB_RC_INVALID_ARG);
    EXPECT_EQ(_sysdb_bind(nullptr, STATIC_ROOT, SYSDB_BIND_MODE_RW), SYSDB_RC_INVALID_ARG);
    sysdb_datalist_t *list = nullptr;
    for (cerrno rc : {sysdb_find_data(nullptr, "x", "", SYSDB_FIND_LIST, &count, &list), sysdb_find_data(conn, nullptr, "", SYSDB_FIND_LIST, &count, &list),
                      sysdb_datalist(nullptr, "x", "", &count, &list, 0), sysdb_datalist(conn, nullptr, "", &count, &list, 0), sysdb_datalist_next(nullptr, nullptr, nullptr, nullptr)})
        EXPECT_EQ(rc, SYSDB_RC_INVALID_ARG) << "a missing argument is refused";
    list = reinterpret_cast<sysdb_datalist_t *>(&count); /* a refusal hands back no list, whatever the pointer held */
    EXPECT_EQ(sysdb_datalist(conn, nullptr, "", &count, &list, 0), SYSDB_RC_INVALID_ARG);
    EXPECT_EQ(list, nullptr);
    sysdb_datalist_free(nullptr);
    struct Row {
        const char *why, *prefix, *address, *interface, *third;
    } rows[] = {{"length in the address", "10.0.0.0/24", "", "", ""},
                {"next hop of another family", "10.0.0.0", "2001:db8::1", "", ""},
                {"a comma would split the key", "10.0.0.0", "", "Gi0/0,1", ""},
                {"a slash in a key part", "10.0.0.0", "", "Gi0/0", "a/b"}};
    for (const Row &r : rows) {
        NativeNextHop bad;
        bad.prefix = r.prefix;
        bad.address = r.address;
        bad.interface = r.interface;
        bad.third = r.third;
        EXPECT_EQ(store_write_next_hop(bad), SYSDB_RC_INVALID_ARG) << r.why;
    }
    for (const char *vrf : {"", "a/b"}) { /* a VRF name that is no one key component */
        EXPECT_EQ(store_add_vrf(vrf), SYSDB_RC_INVALID_ARG) << vrf;
        auto w = store_engine()->begin_write();
        EXPECT_EQ(store_remove_vrf(*w, vrf), SYSDB_RC_INVALID_ARG) << vrf;
    }
    EXPECT_EQ(dump(*store_engine()), KV{}) << "a refused write stores nothing";
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
        auto listed = [&](const char *pattern, const char *path = "vrf/") { sysdb_datalist_t *l = nullptr; cerrno rc = sysdb_datalist(rsi, path, pattern, &count, &l, 0);
            std::string s = std::to_string(rc ? rc : count); for (const Listed &i : drain(l)) s += " " + i.path; return s; };
        EXPECT_EQ(listed(""), "1 /cfg/gl/rsi/vrf/red/") << "red, and not blue";
        EXPECT_EQ(listed("", "vrf/blue/"), std::to_string(SYSDB_RC_NOT_FOUND)) << "blue is not in the snapshot";
        EXPECT_EQ(listed("b.*|x"), "0") << "a listing's pattern is an expression over the names";
        EXPECT_EQ(listed("("), std::to_string(SYSDB_RC_INVALID_ARG));
    }
    EXPECT_EQ(TxnScope::current(), nullptr);
    store_reset();
}

/* A route record that fails any check is refused with what is wrong with it. */
TEST(RouteRecords, EveryDamageIsNamed)
{
    const RouteKey k{"red", true, "10.1.0.0", "16"};
    const std::string key = route_record_key(k), rec = encode_route(k, Route{{{NhKey{NhTable::Address, "", "192.0.2.1"}, {{"metric", "5"}}}}});
    auto seal = [&](const std::string &b) { /* the body under a valid checksum */
        uint32_t crc = crc32c(reinterpret_cast<const unsigned char *>(b.data()), b.size());
        return rec.substr(0, 1) + std::string(reinterpret_cast<const char *>(&crc), 4) + b;
    };
    auto sealed = [&](size_t at, char c, int grow) { /* the body with byte `at` set and grown */
        std::string b = rec.substr(5);
        b[at] = c;
        b.resize(b.size() + grow, 'x');
        return seal(b);
    };
    const std::string root = ROUTE_ROOT, named = "red 10.1.0.0/16", shape = "a route key of the wrong shape", length = "a record of the wrong length";
    const struct { std::string key, value, why, named; } rows[] = {
        {key, sealed(0, 8, 0), "", named}, {root + "red", rec, shape, " /"},
        {root + std::string("red\0" "4", 5), rec, shape, " /"}, {key, rec.substr(0, 4), "a record of an unknown version", named},
        {key, "\3" + rec.substr(1), "a record of an unknown version", named}, {key, rec.substr(0, rec.size() - 1) + "6", "a record failing its checksum", named},
        {key, seal(""), length, named}, {key, sealed(0, 8, 1), length, named}, {key, sealed(0, 0x7f, 0), length, named}, /* a text past the end */
        {key, sealed(13, 3, 0), length, named}, {key, sealed(26, 12, 0), length, named}, /* table 3, leaf id 12 (the first next hop's) */
        {route_record_key(RouteKey{"red", true, "10.2.0.0", "16"}), rec, "a record that does not match its key", "red 10.2.0.0/16"},
        {route_record_key(RouteKey{"red", false, "2001:db8::", "32"}), rec, "a record that does not match its key", "red 2001:db8::/32"},
        {root + std::string("red\0" "4x", 6), rec, "a record that does not match its key", "red /"}}; /* too short to name */
    EXPECT_EQ(crc32c(reinterpret_cast<const unsigned char *>("123456789"), 9), 0xE3069283u); /* CRC-32C's check value */
    for (const auto &row : rows) {
        RouteKey dk;
        Route dr;
        std::string why;
        EXPECT_EQ(decode_route(row.key, row.value, dk, dr, why), row.why.empty()) << row.why;
        EXPECT_EQ(why, row.why);
        EXPECT_EQ(dk.vrf + " " + dk.prefix + "/" + dk.length, row.named) << row.why;
        EXPECT_TRUE(!row.why.empty() || encode_route(dk, dr) == rec) << "the route comes back whole";
    }
}

TEST(Tuple, PackUnpackRoundTripAndShortTuples)
{
    void *t = nullptr;
    uint32_t len = 0;
    ASSERT_EQ(tuple_pack(&t, &len, "%d%s%d", -7, "hello world", 42), YFW_RC_OK);
    int a = 0, b = 0, c = 555;
    char s[6], extra[8] = "keep";
    ASSERT_EQ(tuple_unpack(t, len, "%d%s%d", &a, s, sizeof s, &b), YFW_RC_OK);
    EXPECT_EQ(a, -7);
    EXPECT_STREQ(s, "hello"); /* cut at size - 1 */
    EXPECT_EQ(b, 42);
    /* Fields past the end of a shorter tuple are left untouched. */
    ASSERT_EQ(tuple_unpack(t, len, "%d%s%d%d%s", &a, s, sizeof s, &b, &c, extra, sizeof extra), YFW_RC_OK);
    EXPECT_EQ(c, 555);
    EXPECT_STREQ(extra, "keep");
    /* Type mismatch, bad formats, truncated tuples and missing arguments are refused. */
    for (cerrno rc : {tuple_unpack(t, len, "%s", s, sizeof s), tuple_unpack(t, len, "%x", &a), tuple_unpack(t, 7, "%d%s", &a, s, sizeof s),
                      tuple_pack(nullptr, &len, "%d", 1), tuple_pack(&t, nullptr, "%d", 1), tuple_pack(&t, &len, nullptr),
                      tuple_unpack(nullptr, 5, "%d", &a), tuple_unpack(t, len, nullptr)})
        EXPECT_EQ(rc, SYSDB_RC_INVALID_ARG);
    free(t);
    EXPECT_EQ(tuple_pack(&t, &len, "%q"), SYSDB_RC_INVALID_ARG);
    EXPECT_EQ(t, nullptr);
    ASSERT_EQ(tuple_pack(&t, &len, ""), YFW_RC_OK);
    EXPECT_EQ(len, 0u);
    free(t);
}

} // namespace
