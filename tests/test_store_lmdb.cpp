/*
 * The store engines' contract (both engines: snapshots, one writer,
 * all-or-nothing commits), the persistent engine's ordered keys and
 * persistence, and all-or-nothing commits under a process killed at any
 * moment.
 */
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <chrono>
#include <atomic>
#include <map>
#include <thread>
#include <set>
#include <string>

#include "host/native_apply.h"
#include "host/store.h"
#include "host/store_lmdb.h"
#include "host/tree.h"
#include "tree_builder.h"
#include "ocni_common.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

class StoreLmdb : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/ocni-lmdb-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        dir_ += "/store"; /* a directory that does not exist yet */
    }
    void TearDown() override
    {
        store_reset();
        std::string cmd = "rm -rf '" + dir_.substr(0, dir_.rfind('/')) + "'";
        ASSERT_EQ(system(cmd.c_str()), 0);
    }
    std::shared_ptr<StoreEngine> open()
    {
        std::string err;
        auto e = open_lmdb_engine(dir_, err);
        EXPECT_NE(e, nullptr) << err;
        return e;
    }
    std::map<std::string, std::string> dump(StoreEngine &e, const std::string &lo = "", const std::string &hi = "")
    {
        std::map<std::string, std::string> m;
        EXPECT_EQ(e.scan(lo, hi, [&](const std::string &k, const std::string &v) {
            m[k] = v;
            return true;
        }), 0u);
        return m;
    }
    std::string dir_;
};

TEST_F(StoreLmdb, KeysComeBackInByteOrderWithinTheirRange)
{
    auto e = open();
    ASSERT_NE(e, nullptr);
    for (const char *k : {"/b/2", "/a/1", "/b/1", "/b/", "/c"})
        ASSERT_EQ(e->put(k, std::string("v") + k), 0u);
    std::map<std::string, std::string> want = {{"/b/", "v/b/"}, {"/b/1", "v/b/1"}, {"/b/2", "v/b/2"}};
    EXPECT_EQ(dump(*e, "/b/", prefix_end("/b/")), want);
    std::string v;
    EXPECT_EQ(e->get("/a/1", v), 0u);
    EXPECT_EQ(v, "v/a/1");
    EXPECT_EQ(e->get("/a/2", v), SYSDB_RC_NOT_FOUND);
    EXPECT_EQ(e->del("/a/2"), SYSDB_RC_NOT_FOUND);
    EXPECT_EQ(e->del("/a/1"), 0u);
    EXPECT_EQ(dump(*e).size(), 4u);
    /* A visitor may stop early, and a scan over more than one chunk sees every key once. */
    auto w = e->begin_write();
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(w->put("/m/" + std::to_string(100000 + i), "x"), 0u);
    ASSERT_EQ(w->commit(), 0u);
    int seen = 0;
    e->scan("/m/", prefix_end("/m/"), [&](const std::string &, const std::string &) { return ++seen < 10; });
    EXPECT_EQ(seen, 10);
    EXPECT_EQ(dump(*e, "/m/", prefix_end("/m/")).size(), 1000u);
}

/* Both engines keep one contract: snapshot reads, one writer, all or nothing. */
TEST_F(StoreLmdb, EnginesShareOneTransactionContract)
{
    const std::pair<const char *, std::shared_ptr<StoreEngine>> engines[] = {{"memory", make_memory_engine()},
                                                                            {"lmdb", open()}};
    for (const auto &[name, e] : engines) {
        SCOPED_TRACE(name);
        ASSERT_EQ(e->put("/k/keep", "1"), 0u);
        auto snap = e->begin_read();
        auto w = e->begin_write();
        ASSERT_TRUE(snap && w);
        EXPECT_EQ(snap->put("/k/x", "1"), SYSDB_RC_FAILED) << "a read transaction does not write";
        w->put("/k/new", "2");
        w->del("/k/keep");
        std::string v;
        EXPECT_EQ(w->get("/k/new", v), 0u) << "the write transaction sees its own writes";
        w->abort();
        EXPECT_EQ(dump(*e), (std::map<std::string, std::string>{{"/k/keep", "1"}}));

        w = e->begin_write();
        w->put("/k/new", "2");
        w->del("/k/keep");
        EXPECT_EQ(snap->get("/k/new", v), SYSDB_RC_NOT_FOUND) << "nor does a snapshot see pending writes";
        ASSERT_EQ(w->commit(), 0u);
        EXPECT_EQ(w->commit(), SYSDB_RC_FAILED);
        EXPECT_EQ(snap->get("/k/keep", v), 0u) << "a snapshot keeps what it began with";
        EXPECT_EQ(snap->get("/k/new", v), SYSDB_RC_NOT_FOUND);
        EXPECT_EQ(dump(*e), (std::map<std::string, std::string>{{"/k/new", "2"}}));

        /* A second writer waits for the first to end. */
        w = e->begin_write();
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
        EXPECT_EQ(dump(*e).size(), 3u);
    }
}

TEST_F(StoreLmdb, ContentSurvivesReopening)
{
    {
        auto e = open();
        auto w = e->begin_write();
        for (int i = 0; i < 5000; ++i)
            w->put("/r/" + std::to_string(i), std::string(100, 'x'));
        ASSERT_EQ(w->commit(), 0u);
    }
    auto e = open();
    EXPECT_EQ(dump(*e).size(), 5000u);
}

TEST_F(StoreLmdb, UnusableDirectoryIsAClearError)
{
    std::string err;
    EXPECT_EQ(open_lmdb_engine("/proc/version/store", err), nullptr);
    EXPECT_FALSE(err.empty());
}

/* The native configuration through the engine: what one process commits, the next one reads. */
TEST_F(StoreLmdb, NativeConfigurationSurvivesARestart)
{
    const std::string e =
        "/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv6/vrf-unicast/vrf-prefixes/"
        "vrf-prefix[prefix=2001:db8::][prefix-length=64]/vrf-route/vrf-next-hop-table/"
        "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/0/0/1.5][next-hop-address=2001:db8::1]";
    std::vector<std::string> before;
    {
        store_use_engine(open());
        NativeConfig c;
        std::string err;
        ASSERT_TRUE(c.open(err)) << err;
        std::vector<std::string> changes;
        ASSERT_TRUE(c.add_vrf("red", changes));
        TreePtr in = build_tree(e + "/metric = 4\n" + e + "/description = \"a b\"\n" + e + "/index = ##x##\n",
                                OCNI_NS_NATIVE);
        ASSERT_TRUE(c.apply(in.get(), changes, err)) << err;
        ASSERT_TRUE(c.commit(err)) << err;
        TreePtr t(c.to_tree());
        before = tree_lines(t.get());
        store_reset();
    }
    store_use_engine(open());
    NativeConfig c;
    std::string err;
    ASSERT_TRUE(c.open(err)) << err;
    TreePtr t(c.to_tree());
    EXPECT_EQ(tree_lines(t.get()), before);
    EXPECT_TRUE(c.vrf_known("red"));
    /* And in the layout the plug-in's lookups read. */
    std::map<std::string, std::string> m = dump(*store_engine(), "/cfg/gl/static/router/", prefix_end("/cfg/gl/static/router/"));
    ASSERT_EQ(m.size(), 1u);
    EXPECT_NE(m.begin()->first.find("ord_v/red/address/ipv6/"), std::string::npos) << m.begin()->first;
}

/*
 * A process killed while committing leaves the store as before or after
 * the commit: the child rewrites every key in one transaction, over and
 * over, and is killed at a random moment; the parent then finds all keys
 * with one and the same generation.
 */
TEST_F(StoreLmdb, KilledWhileCommittingLeavesBeforeOrAfterNeverBetween)
{
    const int KEYS = 3000;
    {
        auto e = open();
        auto w = e->begin_write();
        for (int k = 0; k < KEYS; ++k)
            w->put("/gen/" + std::to_string(k), "0");
        ASSERT_EQ(w->commit(), 0u);
    }
    srand(static_cast<unsigned>(time(nullptr)));
    int generations_seen = 0;
    for (int round = 0; round < 8; ++round) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            std::string err;
            auto e = open_lmdb_engine(dir_, err);
            if (!e)
                _exit(2);
            for (int gen = 1;; ++gen) {
                auto w = e->begin_write();
                for (int k = 0; k < KEYS; ++k)
                    w->put("/gen/" + std::to_string(k), std::to_string(gen));
                w->commit();
            }
        }
        usleep(20000 + rand() % 200000);
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "child ended on its own: " << status;

        auto e = open();
        ASSERT_NE(e, nullptr);
        std::map<std::string, std::string> m = dump(*e, "/gen/", prefix_end("/gen/"));
        ASSERT_EQ(m.size(), static_cast<size_t>(KEYS));
        const std::string gen = m.begin()->second;
        for (const auto &kv : m)
            ASSERT_EQ(kv.second, gen) << "key " << kv.first << " in round " << round;
        generations_seen += gen != "0";
    }
    EXPECT_GT(generations_seen, 0) << "no commit ever completed before the kill";
}

/* The same for whole edits of the native configuration: every route carries one generation. */
TEST_F(StoreLmdb, KilledDuringAnEditLeavesEveryRouteOfOneGeneration)
{
    const int ROUTES = 1500;
    auto edit_text = [&](int gen) {
        std::string t;
        for (int i = 0; i < ROUTES; ++i)
            t += "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10." +
                 std::to_string(i / 256) + "." + std::to_string(i % 256) +
                 ".0][prefix-length=24]/vrf-route/vrf-next-hop-table/vrf-next-hop-next-hop-address[next-hop-address=192.0.2.1]/metric = " +
                 std::to_string(gen) + "\n";
        return t;
    };
    auto commit_generation = [&](int gen) {
        std::string err;
        store_use_engine(open_lmdb_engine(dir_, err));
        NativeConfig c;
        std::vector<std::string> changes;
        TreePtr in = build_tree(edit_text(gen), OCNI_NS_NATIVE);
        return c.open(err) && c.apply(in.get(), changes, err) && c.commit(err);
    };
    /* Kill times span a few generations' worth of work, however fast this machine is. */
    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_TRUE(commit_generation(1));
    const long one = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0).count();
    store_reset();
    int later = 0;
    for (int round = 0; round < 5; ++round) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            for (int gen = 2;; ++gen)
                if (!commit_generation(gen))
                    _exit(2);
        }
        usleep(static_cast<useconds_t>(one / 2 + rand() % (3 * one + 1)));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "child ended on its own: " << status;

        store_use_engine(open());
        NativeConfig c;
        std::string err;
        size_t routes = 0;
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
        /* The layout the plug-in reads agrees with the native records. */
        size_t items = 0;
        store_engine()->scan("/cfg/gl/static/router/", prefix_end("/cfg/gl/static/router/"),
                             [&](const std::string &, const std::string &) { return ++items, true; });
        EXPECT_EQ(items, static_cast<size_t>(ROUTES));
        store_reset();
    }
    EXPECT_GT(later, 0) << "no edit ever completed before the kill";
}

} // namespace
