/*
 * The store on disk as ocni-map meets it: other programs' stores, older
 * formats, damage, no write access, no room, other processes at once.
 */
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "cli_fixture.h"
#include "docs.h"
#include "host/route_store.h"
#include "host/store.h"
#include "sysdb.h"

using namespace ocni::test;

namespace {

/* The store on disk */

/* A store that is not one of ours, or damaged, is refused before anything reads or writes it. */
TEST_F(Cli, ForeignDamagedAndTruncatedStoresAreRefusedUnchanged)
{
    namespace h = ocni::host;
    auto ours = [&] {
        ASSERT_EQ(run("vrf add red").status, 0);
        ASSERT_EQ(run("edit " + example("03-ipv4-red-address-and-interface.json")).status, 0);
    };
    struct Row {
        const char *name;
        std::function<void()> make;
        const char *mentions;
    } rows[] = {
        {"zero length", [&] { ours(); ASSERT_EQ(truncate((store_ + "/data.mdb").c_str(), 0), 0); }, "/data.mdb is empty: the store was truncated or never written"},
        {"truncated", [&] { ours(); ASSERT_EQ(run("vrf add blue").status, 0); /* the newest meta page is the first */
                            ASSERT_EQ(truncate((store_ + "/data.mdb").c_str(), 3 * 4096), 0); },
         "/data.mdb is truncated: 12288 bytes where its meta page counts 32768\n"},
        {"not a store", [&] { ASSERT_EQ(mkdir(store_.c_str(), 0755), 0); std::ofstream(store_ + "/data.mdb") << std::string(9000, 'x'); }, "/data.mdb is not a store: no valid meta page"},
        {"another program's", [&] { put_raw({{"/etc/thing", "1"}}); }, ": the store holds data of another program\n"},
        {"another program's marker", [&] { put_raw({{h::META_FORMAT_KEY, std::string("OCNX\x02\x00", 6)}}); }, ": the store holds a format marker of another program\n"},
        {"newer format", [&] { put_raw({{h::META_FORMAT_KEY, std::string("OCNI\x09\x00", 6)}}); }, ": the store is of format 9, newer than this program's 2\n"},
        {"older format", [&] { put_raw({{h::META_FORMAT_KEY, std::string("OCNI\x01\x00", 6)}}); }, ": the store is of format 1: run `ocni-map store upgrade` first\n"},
        {"previous format", [&] { put_raw({{"/cfg/gl/rsi/vrf/red/name", "x"}}); }, ": the store is in the previous format: run `ocni-map store upgrade` to convert it\n"},
        {"lock file a directory", [&] { ours(); ASSERT_EQ(unlink((store_ + "/lock.mdb").c_str()), 0);
                                        ASSERT_EQ(mkdir((store_ + "/lock.mdb").c_str(), 0755), 0); }, ": Is a directory\n"},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        r.make();
        const std::string bytes = read_file(store_ + "/data.mdb");
        for (const std::string &cmd : {std::string("native"), std::string("get"), std::string("vrf list"), std::string("vrf add blue"),
                                       "edit --dry-run " + example("01-ipv4-default-next-hop-address.json")}) {
            Outcome o = run(cmd);
            EXPECT_EQ(o.status, 3) << cmd << ": " << o.err;
            EXPECT_NE(o.err.find(r.mentions), std::string::npos) << cmd << ": " << o.err;
            EXPECT_EQ(o.err.find("store " + store_), o.err.rfind("store " + store_)) << "said twice: " << o.err;
            EXPECT_TRUE(o.out.empty()) << cmd;
        }
        EXPECT_EQ(read_file(store_ + "/data.mdb"), bytes);
        ASSERT_EQ(std::system(("rm -rf " + quote(store_)).c_str()), 0);
    }
}

/*
 * Every native next-hop leaf is stored and printed back, kept when an OpenConfig set-tag rewrites the
 * next hop, and packed into the tuple the plug-in's lookups read.
 */
TEST_F(Cli, EveryNativeLeafComesBackAsWrittenAndOutlivesASetTag)
{
    const std::string head = R"("index":"7","metric":20,"tag":)", tail = R"(,"description":"d","bfd-fast-detect":true,)"
        R"("detect-multiplier":3,"minimum-interval":150,"permanent":true,"vrf-lable":17,"tunnel-id":9,"load-metric":2,"object-name":"obj")";
    const std::string doc = native_doc("default", 4, native_prefix("10.0.0.0", 8, NH_ADDR, R"({"next-hop-address":"192.0.2.1",)" + head + "4294967295" + tail + "}"));
    ASSERT_EQ(run("native edit -", doc).status, 0);
    for (const char *tag : {"4294967295", "5"}) {
        if (tag[0] == '5') {
            ASSERT_EQ(run("edit -", oc_doc("default", oc_route("10.0.0.0/8", "", ",\"set-tag\":5"))).status, 0);
        }
        std::string out = run("native").out;
        out.erase(std::remove_if(out.begin(), out.end(), [](char c) { return c == ' ' || c == '\n'; }), out.end());
        EXPECT_NE(out.find(head + tag + tail), std::string::npos) << out;
    }
    const std::string tuple = dump_raw().at(0).second; /* the one next hop's key, first in the plug-in's layout */
    int f[9] = {};
    char obj[8] = "", desc[8] = "", index[8] = "";
    ASSERT_EQ(tuple_unpack(tuple.data(), uint32_t(tuple.size()), "%d%d%d%d%d%d%d%d%s%s%d%s", &f[0], &f[1], &f[2], &f[3], &f[4],
                           &f[5], &f[6], &f[7], obj, sizeof obj, desc, sizeof desc, &f[8], index, sizeof index), 0u);
    EXPECT_EQ(std::vector<int>(f, f + 9), (std::vector<int>{1, 150, 3, 20, 5, 1, 17, 9, 2}));
    EXPECT_EQ(std::string(obj) + desc + index, "objd7");
}

/* A damaged route record fails the reads that meet it, naming the route; other reads work. */
TEST_F(Cli, DamagedRecordIsNamedAndAvoidedByFilters)
{
    ASSERT_EQ(run("vrf add red").status, 0);
    ASSERT_EQ(run("edit " + example("01-ipv4-default-next-hop-address.json")).status, 0);
    ASSERT_EQ(run("edit " + example("03-ipv4-red-address-and-interface.json")).status, 0);
    auto all = dump_raw(); /* red's route record is the first key from red's start */
    auto rec = std::lower_bound(all.begin(), all.end(), std::make_pair(ocni::host::route_vrf_start("red"), std::string()));
    ASSERT_NE(rec, all.end());
    rec->second.back() ^= 0x20;
    put_raw({*rec});
    /* An edit meeting the record is a store fault too (exit 3), not the mapping's refusal. */
    const std::string red = native_doc("red", 4, native_prefix("172.16.0.0", 12, NH_ADDR, R"({"next-hop-address":"192.0.2.7"})"));
    for (const std::string &cmd : {std::string("get"), std::string("native"), "edit " + example("03-ipv4-red-address-and-interface.json"),
                                   std::string("native edit -")}) {
        Outcome o = run(cmd, cmd == "native edit -" ? red : "");
        EXPECT_EQ(o.status, 3) << cmd;
        EXPECT_NE(o.err.find("error: store: damaged route record red 172.16.0.0/12: a record failing its checksum\n"), std::string::npos) << cmd << ": " << o.err;
    }
    Outcome other = run("get --vrf default");
    EXPECT_EQ(other.status, 0) << other.err;
    EXPECT_NE(other.out.find("192.0.2.1"), std::string::npos) << other.out;
}

/* A route record of the previous format: text key, next hops of a table digit and u32-length fields. */
std::pair<std::string, std::string> old_route(const std::string &vrf, const std::string &prefix, const std::string &len,
                                              const std::vector<std::string> &fields, const char *family = "4", char table = '2')
{
    std::string rec(1, table);
    for (const std::string &f : fields) {
        uint32_t n = uint32_t(f.size());
        rec += std::string(reinterpret_cast<const char *>(&n), 4) + f;
    }
    return {"/host/native/route/" + vrf + "\x1f" + family + "\x1f" + prefix + "\x1f" + len, rec};
}

/*
 * An upgraded store holds exactly what a native edit of the same routes writes into a new store (the
 * old layout's keys gone); a store the upgrade cannot read whole is refused and left as it was.
 */
TEST_F(Cli, PreviousFormatIsUpgradedIntoTheStoreAnEditWrites)
{
    const std::string dmg = ": damaged record default\x1f", not_prefix = ": a route that is not a prefix of its family: ";
    const struct {
        const char *name;
        std::vector<std::pair<std::string, std::string>> old;
        std::string says, doc = ""; /* doc: a native edit of the same routes */
    } rows[] = {
        {"IPv4 route, old layout key", {old_route("default", "10.26.0.0", "26", {"", "192.0.2.1", "2", "metric", "5", "description", "d"}),
                                        {"/cfg/gl/static/router/ord_d/default/address/ipv4/unicast/ord_c/default/route/0a1a0000/0x20/0,0/"
                                         "nexthop/________,c0000201,________,________", "old"}}, "upgraded 1 routes\n",
         native_doc("default", 4, native_prefix("10.26.0.0", 26, NH_ADDR, R"({"next-hop-address":"192.0.2.1","metric":5,"description":"d"})"))},
        {"IPv6 route", {old_route("default", "2001:db8::", "32", {"", "2001:db8::1", "0"}, "6")}, "upgraded 1 routes\n",
         native_doc("default", 6, native_prefix("2001:db8::", 32, NH_ADDR, R"({"next-hop-address":"2001:db8::1"})"))},
        {"no routes", {}, "upgraded 0 routes\n"},
        {"next hop of table 3", {old_route("default", "10.26.0.0", "26", {"", "192.0.2.1", "0"}), old_route("default", "10.27.0.0", "16", {"", "192.0.2.1", "0"}, "4", '3')}, dmg + "4\x1f" "10.27.0.0\x1f" "16\n"},
        {"field past the end", {old_route("default", "10.27.0.0", "16", {"", "192.0.2.1", "1", "metric"})}, dmg + "4\x1f" "10.27.0.0\x1f" "16\n"},
        {"family 5", {old_route("default", "10.27.0.0", "16", {"", "192.0.2.1", "0"}, "5")}, dmg + "5\x1f" "10.27.0.0\x1f" "16\n"},
        {"no prefix", {old_route("default", "ten", "16", {"", "192.0.2.1", "0"})}, not_prefix + "ten/16\n"},
        {"IPv4 length 33", {old_route("default", "10.0.0.0", "33", {"", "192.0.2.1", "0"})}, not_prefix + "10.0.0.0/33\n"},
        {"length of four digits", {old_route("default", "10.0.0.0", "0016", {"", "192.0.2.1", "0"})}, not_prefix + "10.0.0.0/0016\n"},
        {"current format", {{ocni::host::META_FORMAT_KEY, std::string("OCNI\x02\x00", 6)}}, ": the store is not in the previous format\n"},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        put_raw(r.old);
        const auto before = dump_raw();
        Outcome up = run("store upgrade");
        const bool refused = r.says[0] == ':';
        EXPECT_EQ(up.status, refused ? 3 : 0);
        EXPECT_EQ(refused ? up.err : up.out, (refused ? "ocni-map: error: store " + store_ : "") + r.says);
        const auto after = dump_raw();
        ASSERT_EQ(std::system(("rm -rf " + quote(store_)).c_str()), 0);
        ASSERT_TRUE(refused || run(r.doc.empty() ? "vrf list" : "native edit -", r.doc).status == 0);
        EXPECT_EQ(after, refused ? before : dump_raw());
        ASSERT_EQ(std::system(("rm -rf " + quote(store_)).c_str()), 0);
    }
}

/* Routes an older store holds that the gate would refuse today: they read, filter and delete. */
TEST_F(Cli, RoutesOfAnOlderStoreReadFilterAndDelete)
{
    /* An older store's route: VRF, prefix text and length as the router wrote them, one next hop. */
    auto seed_older = [&](const std::string &vrf, const std::string &prefix, const std::string &len) {
        ASSERT_EQ(std::system(("rm -rf " + quote(store_)).c_str()), 0);
        put_raw({old_route(vrf, prefix, len, {"", "192.0.2.5", "0"}), old_route("default", "10.6.0.0", "16", {"", "192.0.2.6", "0"})});
        ASSERT_EQ(run("store upgrade").status, 0);
    };
    const std::string routes = "/network-instances/network-instance[name=green]/protocols/"
                               "protocol[identifier=STATIC][name=DEFAULT]/static-routes";
    /* A VRF the router's list lacks: OpenConfig deletes (of its instance, routes, a route) still remove its routes. */
    for (const std::string &target : {routes.substr(0, routes.find("/protocols")), routes, routes + "/static[prefix=10.5.0.0/16]"}) {
        SCOPED_TRACE(target);
        seed_older("green", "10.5.0.0", "16");
        ASSERT_NE(run("native").out.find("192.0.2.5"), std::string::npos);
        Outcome d = run("delete " + quote(target));
        EXPECT_EQ(d.status, 0) << d.err;
        const std::string after = run("native").out;
        EXPECT_EQ(after.find("192.0.2.5"), std::string::npos);
        EXPECT_NE(after.find("192.0.2.6"), std::string::npos) << "the default VRF's route stays";
    }
    /* A VRF name and a prefix with host bits the gate refuses: filters find them by meaning. */
    seed_older("x/y", "15.26.1.1", "4"); /* host bits from the first byte on */
    for (const char *filter : {"--vrf x/y", "--prefix 0.0.0.0/4", "--vrf x/y --prefix 15.26.1.1/4"}) {
        Outcome o = run(std::string("get ") + filter);
        EXPECT_EQ(o.status, 0) << filter << ": " << o.err;
        EXPECT_NE(o.out.find("192.0.2.5"), std::string::npos) << filter << ":\n" << o.out;
    }
}

TEST_F(Cli, StoreTheUserCannotWriteStillReads)
{
    umask(022); /* the stores made here are readable by all, as the user's mask allows */
    ASSERT_EQ(run("vrf add red").status, 0);
    ASSERT_EQ(run("edit " + example("03-ipv4-red-address-and-interface.json")).status, 0);
    const std::string native = run("native").out;
    ASSERT_EQ(std::system(("chmod a+rx " + quote(dir_)).c_str()), 0);
    /* As an unprivileged user: the store's files belong to another. */
    runner_ = "setpriv --reuid=nobody --regid=nogroup --clear-groups ";
    for (const auto &[cmd, out] : {std::pair<std::string, std::string>{"native", native}, {"get", ""}, {"vrf list", "red\n"}}) {
        Outcome o = run(cmd);
        EXPECT_EQ(o.status, 0) << cmd << ": " << o.err;
        EXPECT_TRUE(out.empty() || o.out == out) << cmd << ": " << o.out;
    }
    Outcome w = run("vrf add blue");
    EXPECT_EQ(w.status, 3) << w.err;
    EXPECT_NE(w.err.find("error: store: the store cannot be written"), std::string::npos) << w.err;
    store_ = dir_ + "/empty"; /* a store never written, which this user cannot mark: it reads as empty */
    put_raw({});
    EXPECT_EQ(run("get").out, "{}\n");
    runner_.clear();
}

/* A store that cannot grow: the edit fails with the system's words for it and stores nothing. */
TEST_F(Cli, StoreWriteFailureNamesItsCause)
{
    const std::string big = oc_doc("default", oc_routes(3000));
    ASSERT_EQ(run("vrf list").status, 0);
    runner_ = "trap '' XFSZ; ulimit -f 200; "; /* the data file may not grow past 200 blocks */
    Outcome o = run("edit -", big);
    runner_.clear();
    EXPECT_EQ(o.status, 3);
    EXPECT_NE(o.err.find("error: store: commit failed: Input/output error (the store file may not grow past this "
                         "process's file size limit of 102400 bytes)"), std::string::npos) << o.err;
    EXPECT_EQ(run("get").out, "{}\n");
}

/* Concurrent processes */

TEST_F(Cli, VrfDeleteRacingAnEditLeavesNoRouteInADeletedVrf)
{
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        ASSERT_EQ(run("vrf add red").status, 0);
        start("edit -", oc_doc("red", oc_route("10.1." + std::to_string(round) + ".0/24", oc_hop("1", "192.0.2.1"))));
        start("vrf delete red");
        std::vector<int> st = wait_all();
        const bool vrf_left = run("vrf list").out.find("red\n") != std::string::npos;
        const bool routes_left = run("native").out.find("\"vrf-name\": \"red\"") != std::string::npos;
        /* Either the edit came first (the delete is refused) or the delete did (the edit is refused). */
        EXPECT_TRUE(vrf_left || !routes_left) << "edit " << st[0] << ", delete " << st[1];
        EXPECT_EQ(st[0] == 0, routes_left) << "edit " << st[0];
        EXPECT_EQ(st[1] == 0, !vrf_left) << "delete " << st[1];
        if (vrf_left) {
            ASSERT_EQ(run("vrf delete red --with-routes").status, 0);
        }
    }
}

TEST_F(Cli, ReadDuringALargeCommitSeesBeforeOrAfter)
{
    auto doc = [](int metric) { return native_doc("default", 4, native_routes(3000, ",\"metric\":" + std::to_string(metric))); };
    ASSERT_EQ(run("native edit -", doc(1)).status, 0);
    std::ofstream(dir_ + "/two.json") << doc(2);
    const int READS = 4;
    start("native edit " + quote(dir_ + "/two.json"));
    std::vector<Outcome> reads;
    for (int i = 0; i < READS; ++i)
        reads.push_back(run("native"));
    for (int st : wait_all())
        EXPECT_EQ(st, 0);
    for (const Outcome &r : reads) {
        ASSERT_EQ(r.status, 0) << r.err;
        size_t ones = 0, twos = 0;
        for (size_t at = 0; (at = r.out.find("\"metric\": ", at)) != std::string::npos; ++at)
            (r.out.compare(at + 10, 2, "1\n") == 0 ? ones : twos)++;
        EXPECT_EQ(ones + twos, 3000u);
        EXPECT_TRUE(ones == 0 || twos == 0) << ones << " before, " << twos << " after";
    }
}

} // namespace
