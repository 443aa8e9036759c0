/*
 * The ocni-map command line, run as a user runs it: exit status, messages
 * and what the store holds afterwards.
 */
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/route_store.h"
#include "host/store.h"
#include "host/store_lmdb.h"
#include "docs.h"

using namespace ocni::test;

namespace {

std::string env(const char *name, const char *fallback)
{
    const char *v = getenv(name);
    return v != nullptr ? v : fallback;
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

bool exists(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::string quote(const std::string &s)
{
    std::string out = "'";
    for (char c : s)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

struct Outcome {
    int status = -1;
    std::string out, err;
};

/* Each test gets a scratch directory as working directory; the store lives in it. */
class Cli : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/ocni-cli-test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        store_ = dir_ + "/store";
        binary_ = env("OCNI_BINARY_DIR", ".") + "/tools/ocni-map";
        examples_ = env("OCNI_SOURCE_DIR", ".") + "/examples";
        ASSERT_TRUE(exists(binary_)) << binary_;
    }
    void TearDown() override
    {
        std::string cmd = "rm -rf " + quote(dir_);
        EXPECT_EQ(std::system(cmd.c_str()), 0);
    }

    /* Runs ocni-map with `args` (already shell-quoted where needed) and optional standard input. */
    Outcome run(const std::string &args, const std::string &input = "", bool with_store = true)
    {
        std::string in = dir_ + "/stdin", out = dir_ + "/stdout", err = dir_ + "/stderr";
        std::ofstream(in) << input;
        std::string cmd = "cd " + quote(dir_) + " && " + runner_ + quote(binary_) +
                          (with_store ? " --store " + quote(store_) : std::string()) + " " + args + " <" +
                          quote(in) + " >" + quote(out) + " 2>" + quote(err);
        int raw = std::system(cmd.c_str());
        Outcome r;
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
        r.out = read_file(out);
        r.err = read_file(err);
        return r;
    }

    std::string example(const char *name) const { return quote(examples_ + "/" + name); }

    /* Starts ocni-map in the background; wait_all() collects the exit statuses in start order. */
    void start(const std::string &args, const std::string &input = "")
    {
        std::string in = dir_ + "/stdin" + std::to_string(jobs_.size());
        std::ofstream(in) << input;
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            std::string cmd = quote(binary_) + " --store " + quote(store_) + " " + args + " <" + quote(in) +
                              " >/dev/null 2>&1";
            execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
        jobs_.push_back(pid);
    }
    std::vector<int> wait_all()
    {
        std::vector<int> out;
        for (pid_t pid : jobs_) {
            int raw = 0;
            waitpid(pid, &raw, 0);
            out.push_back(WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw));
        }
        jobs_.clear();
        return out;
    }

    /* Writes raw keys into the store file, bypassing every check (old formats, other programs). */
    void put_raw(const std::vector<std::pair<std::string, std::string>> &keys)
    {
        std::string err;
        auto e = ocni::host::open_lmdb_engine(store_, err);
        ASSERT_NE(e, nullptr) << err;
        for (const auto &kv : keys)
            ASSERT_EQ(e->put(kv.first, kv.second), 0u) << kv.first;
    }

    std::vector<pid_t> jobs_;
    std::string runner_; /* what runs the command ("" or a privilege change) */

    std::string dir_, store_, binary_, examples_;
};

TEST_F(Cli, EveryCommandHasHelp)
{
    struct Row {
        const char *args;
        const char *usage;
    } rows[] = {
        {"--help", "usage: ocni-map [--store DIR]"},
        {"help", "usage: ocni-map [--store DIR]"},
        {"edit --help", "usage: ocni-map edit FILE|- [--dry-run"},
        {"delete --help", "usage: ocni-map delete PATH"},
        {"get --help", "usage: ocni-map get [--state] [--vrf NAME] [--prefix PREFIX]"},
        {"native --help", "usage: ocni-map native"},
        {"native edit --help", "ocni-map native edit FILE|-"},
        {"vrf --help", "usage: ocni-map vrf add NAME"},
        {"vrf list --help", "ocni-map vrf list"},
        {"store --help", "usage: ocni-map store upgrade"},
    };
    for (const Row &r : rows) {
        Outcome res = run(r.args);
        EXPECT_EQ(res.status, 0) << r.args << ": " << res.err;
        EXPECT_NE(res.out.find(r.usage), std::string::npos) << r.args << ":\n" << res.out;
        EXPECT_FALSE(exists(store_)) << "help must not create the store";
    }
}

TEST_F(Cli, UsageErrorsExitTwo)
{
    struct Row {
        const char *args;
        const char *mentions;
    } rows[] = {
        {"", "usage: ocni-map"},
        {"frobnicate", "unknown command frobnicate"},
        {"get --colour", "unknown option --colour"},
        {"edit", "usage: ocni-map edit"},
        {"edit a.json b.json", "usage: ocni-map edit"},
        {"delete", "usage: ocni-map delete"},
        {"native edit", "usage: ocni-map native"},
        {"vrf", "usage: ocni-map vrf"},
        {"vrf rename red", "unknown vrf command rename"},
        {"vrf add", "usage: ocni-map vrf"},
        {"vrf add this-name-is-far-too-long-for-a-vrf-of-the-router", "is longer than 32 characters"},
        {"vrf add -x", "a name that starts with '-' goes after --"},
        {"vrf add \"$(printf 'a\\tb')\"", "VRF name \"a\\x09b\" contains a control character"},
        {"vrf delete 'a]b'", "contains ']'"},
        {"get --vrf", "--vrf needs a name"},
        {"get --prefix tomato", "invalid prefix \"tomato\""},
        {"get --format yaml", "--format needs json or xml"},
    };
    for (const Row &r : rows) {
        Outcome res = run(r.args);
        EXPECT_EQ(res.status, 2) << r.args;
        EXPECT_NE((res.out + res.err).find(r.mentions), std::string::npos)
            << r.args << ":\n" << res.out << res.err;
        EXPECT_FALSE(exists(store_)) << r.args;
    }
}

TEST_F(Cli, InputThatDoesNotParseExitsTwoNamingLineOrPathAndStoresNothing)
{
    const std::string proto = "/network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC][name=DEFAULT]";
    struct Row {
        std::string args;
        std::string input;
        std::vector<std::string> mentions;
    } rows[] = {
        {"edit -", "{\"openconfig-network-instance:network-instances\": {\n  \"network-instance\": [\n", {"line 3"}},
        {"edit " + example("invalid-leaf.json"), "", {"invalid-leaf.json", "line 20", "config/metric"}},
        {"edit " + example("invalid-prefix.json"), "", {"\"10.1.1.0/24\"", "static[prefix='10.1.1.1/24']"}},
        {"edit no-such-file.json", "", {"cannot read no-such-file.json"}},
        {"edit .", "", {"is a directory"}},
        {"edit -", std::string("{}\0{\"x\":1}", 9), {"NUL byte at offset 2"}},
        {"native edit " + example("01-ipv4-default-next-hop-address.json"), "", {"expected Velmar-ORN-QZ-ip-static-cfg"}},
        {"native edit -", "{\"Velmar-ORN-QZ-ip-static-cfg:router-static\":{\"vrfs\":{\"vrf\":[{\"vrf-name\":\"\"}]}}}", {"vrf-name"}},
        {"delete " + quote(proto + "/static-routes/static[prefix=10.0.0.1/24]"), "", {"\"10.0.0.0/24\""}},
        {"delete " + quote(proto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/weight"), "", {"weight"}},
        {"delete " + quote("/network-instances/network-instance"), "", {"needs its key \"name\""}},
    };
    for (const Row &r : rows) {
        Outcome res = run(r.args, r.input);
        EXPECT_EQ(res.status, 2) << r.args << ": " << res.err;
        for (const std::string &m : r.mentions)
            EXPECT_NE(res.err.find(m), std::string::npos) << r.args << ": \"" << m << "\" not in:\n" << res.err;
        EXPECT_TRUE(res.out.empty()) << r.args << ": " << res.out;
        EXPECT_FALSE(exists(store_)) << r.args << " touched the store";
    }
}

TEST_F(Cli, YangDirThatIsMissingIsAnInternalError)
{
    Outcome r = run("--yang-dir " + quote(dir_ + "/nothing-here") + " edit " + example("04-ipv6-default-drop.json"));
    EXPECT_EQ(r.status, 3);
    EXPECT_NE(r.err.find("nothing-here"), std::string::npos) << r.err;
}

TEST_F(Cli, PublishedModulesCheckInputTheSameWay)
{
    std::string published = env("OCNI_SOURCE_DIR", ".") + "/../shared/openconfig";
    if (!exists(published + "/release"))
        GTEST_SKIP() << "published modules not found";
    Outcome bad = run("--yang-dir " + quote(published) + " edit " + example("invalid-leaf.json"));
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("config/metric"), std::string::npos) << bad.err;
    Outcome good = run("--yang-dir " + quote(published) + " edit --dry-run " + example("03-ipv4-red-address-and-interface.json"));
    EXPECT_EQ(good.status, 0) << good.err;
}

/* ------------------------------------------------------------------ */
/* With the walker                                                     */
/* ------------------------------------------------------------------ */

TEST_F(Cli, ExamplesApplyAndRefusalsLeaveTheNativeConfigurationUnchanged)
{
    Outcome first = run("--verbose edit " + example("01-ipv4-default-next-hop-address.json"));
    ASSERT_EQ(first.status, 0) << first.err;
    EXPECT_NE(first.out.find("vrf-next-hop-next-hop-address"), std::string::npos) << first.out;
    for (const char *name : {"02-ipv4-default-local-link.json", "03-ipv4-red-address-and-interface.json",
                             "04-ipv6-default-drop.json", "05-ipv6-red-address.json", "06-ipv4-default-route.xml"}) {
        Outcome r = run(std::string("edit ") + example(name));
        EXPECT_EQ(r.status, 0) << name << ": " << r.err;
    }
    Outcome before = run("native");
    ASSERT_EQ(before.status, 0) << before.err;
    EXPECT_NE(before.out.find("\"Velmar-ORN-QZ-ip-static-cfg:router-static\""), std::string::npos);
    EXPECT_NE(before.out.find("\"vrf-name\": \"red\""), std::string::npos) << before.out;

    Outcome refused = run("edit " + example("refused-description.json"));
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("Supplied description value contains an invalid character"), std::string::npos)
        << refused.err;
    EXPECT_NE(refused.err.find("(at /network-instances/network-instance[name=default]/"), std::string::npos)
        << refused.err;
    /* Callback names and result codes only for those who ask. */
    EXPECT_EQ(refused.err.find("0x"), std::string::npos) << refused.err;
    Outcome verbose = run("--verbose edit " + example("refused-description.json"));
    EXPECT_NE(verbose.err.find("_config_description returned 0xaaf2f400"), std::string::npos) << verbose.err;
    for (const char *name : {"invalid-prefix.json", "invalid-leaf.json"})
        EXPECT_EQ(run(std::string("edit ") + example(name)).status, 2) << name;
    Outcome dry = run("edit --dry-run --diff " + example("07-metric-change.json"));
    EXPECT_EQ(dry.status, 0) << dry.err;
    EXPECT_NE(dry.out.find("/config/metric: 10 -> 50\n"), std::string::npos) << dry.out;

    Outcome after = run("native");
    EXPECT_EQ(after.out, before.out);
}

TEST_F(Cli, GetFedBackIntoAnEmptyStoreGivesTheSameNativeConfiguration)
{
    Outcome seed = run("native edit " + example("native-router-cli.json"));
    ASSERT_EQ(seed.status, 0) << seed.err;
    for (const char *name : {"01-ipv4-default-next-hop-address.json", "03-ipv4-red-address-and-interface.json",
                             "05-ipv6-red-address.json"})
        ASSERT_EQ(run(std::string("edit ") + example(name)).status, 0) << name;
    Outcome native = run("native");
    Outcome get = run("get");
    ASSERT_EQ(get.status, 0) << get.err;
    EXPECT_NE(get.out.find("##GigabitEthernet0/0/0/3##192.0.2.9##"), std::string::npos) << get.out;
    EXPECT_NE(get.out.find("##DROP##"), std::string::npos) << get.out;

    Outcome state = run("get --state");
    ASSERT_EQ(state.status, 0) << state.err;
    EXPECT_NE(state.out.find("\"state\""), std::string::npos) << state.out;

    std::string first_store = store_;
    store_ = dir_ + "/store2";
    Outcome replay = run("edit -", get.out);
    ASSERT_EQ(replay.status, 0) << replay.err;
    EXPECT_EQ(run("native").out, native.out);
    /* The XML form carries the same configuration. */
    store_ = first_store;
    Outcome xml = run("get --format xml");
    ASSERT_EQ(xml.status, 0) << xml.err;
    EXPECT_EQ(xml.out.rfind("<network-instances xmlns=", 0), 0u) << xml.out;
    store_ = dir_ + "/store3";
    Outcome replay_xml = run("edit -", xml.out);
    ASSERT_EQ(replay_xml.status, 0) << replay_xml.err;
    EXPECT_EQ(run("native").out, native.out);
    store_ = first_store;
}

TEST_F(Cli, DeleteRemovesOneNextHopAndNothingElse)
{
    Outcome r = run("edit " + example("02-ipv4-default-local-link.json"));
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(run("edit " + example("01-ipv4-default-next-hop-address.json")).status, 0);
    Outcome del = run("delete " + quote(read_file(examples_ + "/delete-next-hop.path").substr(
                                  0, read_file(examples_ + "/delete-next-hop.path").find('\n'))));
    EXPECT_EQ(del.status, 0) << del.err;
    Outcome native = run("native");
    EXPECT_EQ(native.out.find("GigabitEthernet0/0/0/1"), std::string::npos) << native.out;
    EXPECT_NE(native.out.find("192.0.2.1"), std::string::npos) << native.out;

    /* Deleting what is not there: success, nothing changed, and said so. */
    const std::string route = "/network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC]"
                              "[name=DEFAULT]/static-routes/static[prefix=10.1.0.0/16]";
    const std::string routes = route.substr(0, route.find("/static["));
    for (const std::string &absent : {route + "/next-hops/next-hop[index=9]", routes + "/static[prefix=10.9.0.0/16]",
                                      route + "/next-hops/next-hop[index=1]/interface-ref/config/interface",
                                      std::string("/network-instances/network-instance[name=blue]")}) {
        Outcome r = run("delete " + quote(absent));
        EXPECT_EQ(r.status, 0) << absent << ": " << r.err;
        EXPECT_NE(r.err.find("nothing to delete at " + absent), std::string::npos) << r.err;
    }
    EXPECT_EQ(run("native").out, native.out);
}

/* The last command of each scenario exits as the mapping decides; the query shows what the store holds. */
TEST_F(Cli, EditScenariosEndAsTheMappingDecides)
{
    struct Step {
        std::string args, input;
    };
    const struct {
        const char *name;
        std::vector<Step> setup; /* each exits 0 */
        Step last;
        int status;
        std::string err, query;
        std::vector<std::string> has, lacks;
    } rows[] = {
        {"interface on a stored DROP",
         {{"edit -", oc_doc("default", oc_route("10.0.0.0/24", oc_hop("1", "openconfig-local-routing:DROP")))}},
         {"edit -", oc_doc("default", oc_route("10.0.0.0/24", oc_hop("1", "", ",\"metric\":5",
                                                                    oc_iface("GigabitEthernet0/0/0/1"))))},
         1, "Interface configuration is not allowed when next-hop is drop", "native", {"Null0"},
         {"GigabitEthernet0/0/0/1", "\"metric\""}},
        {"set-tag on /26 beside /32",
         {{"edit -", oc_doc("default", oc_route("10.0.0.0/32", oc_hop("1", "192.0.2.32")))},
          {"edit -", oc_doc("default", oc_route("10.0.0.0/26", oc_hop("1", "192.0.2.200")))}},
         {"edit -", oc_doc("default", oc_route("10.0.0.0/26", "", ",\"set-tag\":7"))}, 0, "", "get --prefix 10.0.0.0/26",
         {"\"set-tag\": 7", "192.0.2.200"}, {"192.0.2.32"}},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        std::string cmd = "rm -rf " + quote(store_);
        ASSERT_EQ(std::system(cmd.c_str()), 0);
        for (const Step &s : r.setup)
            ASSERT_EQ(run(s.args, s.input).status, 0) << s.args;
        Outcome last = run(r.last.args, r.last.input);
        EXPECT_EQ(last.status, r.status) << last.err;
        EXPECT_NE(last.err.find(r.err), std::string::npos) << last.err;
        Outcome q = run(r.query);
        ASSERT_EQ(q.status, 0) << q.err;
        for (const std::string &t : r.has)
            EXPECT_NE(q.out.find(t), std::string::npos) << t << " not in:\n" << q.out;
        for (const std::string &t : r.lacks)
            EXPECT_EQ(q.out.find(t), std::string::npos) << t << " in:\n" << q.out;
    }
}

TEST_F(Cli, VrfsAreAddedListedAndDeleted)
{
    Outcome add = run("vrf add blue");
    EXPECT_EQ(add.status, 0) << add.err;
    EXPECT_NE(run("vrf list").out.find("blue\n"), std::string::npos);
    EXPECT_EQ(run("vrf delete blue").status, 0);
    EXPECT_EQ(run("vrf list").out.find("blue\n"), std::string::npos);
    EXPECT_EQ(run("vrf add -- -x").status, 0);
    EXPECT_NE(run("vrf list").out.find("-x\n"), std::string::npos);
}

TEST_F(Cli, VrfHoldingRoutesIsDeletedOnlyWithItsRoutes)
{
    ASSERT_EQ(run("vrf add red").status, 0);
    ASSERT_EQ(run("edit " + example("03-ipv4-red-address-and-interface.json")).status, 0);
    ASSERT_EQ(run("edit " + example("05-ipv6-red-address.json")).status, 0);
    const std::string before = run("native").out;
    Outcome refused = run("vrf delete red");
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("still holds 2 static routes"), std::string::npos) << refused.err;
    EXPECT_EQ(run("native").out, before);
    Outcome with = run("vrf delete red --with-routes");
    EXPECT_EQ(with.status, 0) << with.err;
    EXPECT_EQ(run("native").out.find("red"), std::string::npos);
    EXPECT_EQ(run("vrf list").out.find("red\n"), std::string::npos);
}

/* ------------------------------------------------------------------ */
/* The store on disk                                                   */
/* ------------------------------------------------------------------ */

/* A store that is not one of ours, or damaged, is refused before anything reads or writes it. */
TEST_F(Cli, ForeignDamagedAndTruncatedStoresAreRefusedUnchanged)
{
    namespace h = ocni::host;
    auto ours = [&] {
        ASSERT_EQ(run("vrf add red").status, 0);
        ASSERT_EQ(run("edit " + example("03-ipv4-red-address-and-interface.json")).status, 0);
    };
    auto resize = [&](long size) {
        ASSERT_EQ(truncate((store_ + "/data.mdb").c_str(), size), 0);
    };
    struct Row {
        const char *name;
        std::function<void()> make;
        const char *mentions;
    } rows[] = {
        {"zero length", [&] { ours(); resize(0); }, "is empty"},
        {"truncated", [&] { ours(); resize(3 * 4096); }, "is truncated"},
        {"not a store", [&] { ASSERT_EQ(mkdir(store_.c_str(), 0755), 0); std::ofstream(store_ + "/data.mdb") << std::string(9000, 'x'); }, "no valid meta page"},
        {"another program's", [&] { put_raw({{"/etc/thing", "1"}}); }, "another program"},
        {"newer format", [&] { put_raw({{h::META_FORMAT_KEY, std::string("OCNI\x09\x00", 6)}}); }, "newer"},
        {"previous format", [&] { put_raw({{"/cfg/gl/rsi/vrf/red/name", "x"}}); }, "ocni-map store upgrade"},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        r.make();
        const std::string bytes = read_file(store_ + "/data.mdb");
        for (const char *cmd : {"native", "get", "vrf list", "vrf add blue", "edit " "--dry-run x"}) {
            Outcome o = run(std::string(cmd) == "edit --dry-run x" ? "edit " + example("01-ipv4-default-next-hop-address.json")
                                                                    : std::string(cmd));
            EXPECT_EQ(o.status, 3) << cmd << ": " << o.err;
            EXPECT_NE(o.err.find(r.mentions), std::string::npos) << cmd << ": " << o.err;
            EXPECT_TRUE(o.out.empty()) << cmd;
        }
        EXPECT_EQ(read_file(store_ + "/data.mdb"), bytes);
        ASSERT_EQ(std::system(("rm -rf " + quote(store_)).c_str()), 0);
    }
}

/* A damaged route record fails the reads that meet it, naming the route; other reads work. */
TEST_F(Cli, DamagedRecordIsNamedAndAvoidedByFilters)
{
    ASSERT_EQ(run("vrf add red").status, 0);
    ASSERT_EQ(run("edit " + example("01-ipv4-default-next-hop-address.json")).status, 0);
    ASSERT_EQ(run("edit " + example("03-ipv4-red-address-and-interface.json")).status, 0);
    {
        std::string err;
        auto e = ocni::host::open_lmdb_engine(store_, err);
        ASSERT_NE(e, nullptr) << err;
        auto w = e->begin_write();
        std::string key, value;
        const std::string red = ocni::host::route_vrf_start("red");
        w->scan(red, ocni::host::prefix_end(red), [&](const std::string &k, const std::string &v) {
            key = k;
            value = v;
            return false;
        });
        ASSERT_FALSE(key.empty());
        value.back() ^= 0x20;
        ASSERT_EQ(w->put(key, value), 0u);
        ASSERT_EQ(w->commit(), 0u);
    }
    for (const char *cmd : {"get", "native"}) {
        Outcome o = run(cmd);
        EXPECT_EQ(o.status, 3) << cmd;
        EXPECT_NE(o.err.find("damaged route record red"), std::string::npos) << cmd << ": " << o.err;
    }
    Outcome other = run("get --vrf default");
    EXPECT_EQ(other.status, 0) << other.err;
    EXPECT_NE(other.out.find("192.0.2.1"), std::string::npos) << other.out;
}

/* A route record of the previous format: text key, next hops of u32-length fields. */
std::pair<std::string, std::string> old_route(const std::string &vrf, const std::string &prefix, const std::string &len,
                                              const std::vector<std::string> &fields)
{
    std::string rec = "2";
    for (const std::string &f : fields) {
        uint32_t n = uint32_t(f.size());
        rec += std::string(reinterpret_cast<const char *>(&n), 4) + f;
    }
    return {"/host/native/route/" + vrf + "\x1f" "4\x1f" + prefix + "\x1f" + len, rec};
}

TEST_F(Cli, PreviousFormatIsUpgradedInPlace)
{
    put_raw({old_route("default", "10.26.0.0", "26", {"", "192.0.2.1", "1", "metric", "5"}),
             {"/cfg/gl/static/router/ord_d/default/address/ipv4/unicast/ord_c/default/route/0a1a0000/0x20/0,0/nexthop/"
              "________,c0000201,________,________", "old"}});
    EXPECT_EQ(run("native").status, 3);
    Outcome up = run("store upgrade");
    EXPECT_EQ(up.status, 0) << up.err;
    EXPECT_EQ(up.out, "upgraded 1 routes\n");
    Outcome n = run("native");
    EXPECT_EQ(n.status, 0) << n.err;
    EXPECT_NE(n.out.find("\"prefix-length\": 26"), std::string::npos) << n.out;
    EXPECT_NE(n.out.find("\"metric\": 5"), std::string::npos) << n.out;
    EXPECT_EQ(run("store upgrade").status, 3) << "a store of the current format is left alone";
}

/* Routes an older store holds that the gate would refuse today: they read, filter and delete. */
TEST_F(Cli, RoutesOfAnOlderStoreReadFilterAndDelete)
{
    /* An older store's route: VRF, prefix text and length as the router wrote them, one next hop. */
    auto seed_older = [&](const std::string &vrf, const std::string &prefix, const std::string &len) {
        ASSERT_EQ(std::system(("rm -rf " + quote(store_)).c_str()), 0);
        put_raw({old_route(vrf, prefix, len, {"", "192.0.2.5", "0"})});
        ASSERT_EQ(run("store upgrade").status, 0);
    };
    const std::string routes = "/network-instances/network-instance[name=green]/protocols/"
                               "protocol[identifier=STATIC][name=DEFAULT]/static-routes";
    /* A VRF the router's list lacks: OpenConfig deletes still remove its routes. */
    for (const std::string &target : {routes, routes + "/static[prefix=10.5.0.0/16]"}) {
        SCOPED_TRACE(target);
        seed_older("green", "10.5.0.0", "16");
        ASSERT_NE(run("native").out.find("192.0.2.5"), std::string::npos);
        Outcome d = run("delete " + quote(target));
        EXPECT_EQ(d.status, 0) << d.err;
        EXPECT_EQ(run("native").out.find("192.0.2.5"), std::string::npos);
    }
    /* A VRF name and a prefix with host bits the gate refuses: filters find them by meaning. */
    seed_older("x/y", "10.26.1.1", "24");
    for (const char *filter : {"--vrf x/y", "--prefix 10.26.1.0/24", "--vrf x/y --prefix 10.26.1.1/24"}) {
        Outcome o = run(std::string("get ") + filter);
        EXPECT_EQ(o.status, 0) << filter << ": " << o.err;
        EXPECT_NE(o.out.find("192.0.2.5"), std::string::npos) << filter << ":\n" << o.out;
    }
}

TEST_F(Cli, StoreTheUserCannotWriteStillReads)
{
    ASSERT_EQ(run("vrf add red").status, 0);
    ASSERT_EQ(run("edit " + example("03-ipv4-red-address-and-interface.json")).status, 0);
    const std::string native = run("native").out;
    ASSERT_EQ(std::system(("chmod -R a+rX " + quote(dir_)).c_str()), 0);
    /* As an unprivileged user: the store's files belong to another. */
    runner_ = "setpriv --reuid=nobody --regid=nogroup --clear-groups ";
    for (const char *cmd : {"native", "get", "vrf list"}) {
        Outcome o = run(cmd);
        EXPECT_EQ(o.status, 0) << cmd << ": " << o.err;
        if (std::string(cmd) == "native") {
            EXPECT_EQ(o.out, native);
        } else if (std::string(cmd) == "vrf list") {
            EXPECT_EQ(o.out, "red\n");
        }
    }
    Outcome w = run("vrf add blue");
    EXPECT_EQ(w.status, 3) << w.err;
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
    EXPECT_NE(o.err.find("store commit failed: "), std::string::npos) << o.err;
    EXPECT_EQ(run("get").out, "{}\n");
}

/* ------------------------------------------------------------------ */
/* Concurrent processes                                                */
/* ------------------------------------------------------------------ */

TEST_F(Cli, ConcurrentWritersLoseNothing)
{
    ASSERT_EQ(run("vrf list").status, 0);
    const int WRITERS = 8;
    for (int i = 1; i <= WRITERS; ++i)
        start("edit -", oc_doc("default", oc_route("10.0.0.0/24", oc_hop(std::to_string(i), "192.0.2." + std::to_string(i)))));
    for (int st : wait_all())
        EXPECT_EQ(st, 0);
    Outcome n = run("native");
    for (int i = 1; i <= WRITERS; ++i)
        EXPECT_NE(n.out.find("\"192.0.2." + std::to_string(i) + "\""), std::string::npos) << i << "\n" << n.out;
}

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

/* ------------------------------------------------------------------ */
/* Filters                                                             */
/* ------------------------------------------------------------------ */

/* A filter selects by meaning: any text of a prefix finds the route stored under its canonical form. */
TEST_F(Cli, FiltersSelectStoredRoutesByMeaning)
{
    ASSERT_EQ(run("vrf add red").status, 0);
    const std::string addr = R"({"next-hop-address":"192.0.2.)";
    for (const std::string &native :
         {native_doc("red", 4, native_prefix("10.26.1.0", 24, NH_ADDR, addr + R"(1"})") + "," +
                                   native_prefix("10.27.1.0", 24, NH_ADDR, addr + R"(7"})")),
          native_doc("red", 6, native_prefix("2001:db8:26::", 48, NH_IFACE, R"({"interface-name":"Null0"})"))}) {
        Outcome seed = run("native edit -", native);
        ASSERT_EQ(seed.status, 0) << seed.err;
    }
    struct Row {
        std::string filter;
        std::vector<const char *> finds; /* none: an empty document */
    } rows[] = {
        {"--vrf red --prefix 10.26.1.1/24", {"192.0.2.1"}},
        {"--vrf red --prefix 10.26.1.0/24", {"192.0.2.1"}},
        {"--prefix 10.26.1.0/24", {"192.0.2.1"}},
        {"--prefix 10.27.1.0/24", {"192.0.2.7"}},
        {"--prefix 10.26.1.0/25", {}},
        {"--prefix 2001:DB8:26::/48", {"DROP"}},
        {"--prefix 2001:db8:26:0::1/48", {"DROP"}},
        {"--vrf red", {"192.0.2.1", "192.0.2.7", "DROP"}},
    };
    for (const Row &r : rows) {
        Outcome o = run("get " + r.filter);
        EXPECT_EQ(o.status, 0) << r.filter << ": " << o.err;
        if (r.finds.empty()) {
            EXPECT_EQ(o.out, "{}\n") << r.filter;
        }
        size_t hops = 0;
        for (size_t at = 0; (at = o.out.find("\"next-hop\": \"", at)) != std::string::npos; ++at)
            ++hops;
        EXPECT_EQ(hops, r.finds.size()) << r.filter << ":\n" << o.out;
        for (const char *f : r.finds)
            EXPECT_NE(o.out.find(f), std::string::npos) << r.filter << ":\n" << o.out;
    }
    EXPECT_EQ(run("get --vrf a/b").status, 2) << "a name the store does not hold is still checked";
}

}  // namespace

/*
 * What an operator sees: one summary line per edit (native lines only with
 * --verbose, the OpenConfig diff with --diff), the vrf commands saying what
 * they did, hints on the common input mistakes. Nothing on stderr when it
 * is not a terminal and all goes well.
 */
TEST_F(Cli, OperatorOutputSaysWhatChangedAndHintsAtMistakes)
{
    const std::string route = "/network-instances/network-instance[name=default]/protocols/"
                              "protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=10.1.0.0/16]";
    const std::string metric_path =
        "/openconfig-network-instance:network-instances/network-instance[name='default']/protocols/"
        "protocol[identifier='openconfig-policy-types:STATIC'][name='DEFAULT']/static-routes/"
        "static[prefix='10.1.0.0/16']/next-hops/next-hop[index='1']/config/metric";
    auto with = [](const std::string &prefix, const std::string &hop) {
        return oc_doc("default", oc_route(prefix, oc_hop("1", hop)));
    };
    const std::string none = "0 next hops created, 0 changed, 0 deleted";
    struct Row {
        std::string args, input;
        int status;
        std::string out;  /* exact, or with `contains` a part of it */
        std::string err;  /* a part of stderr ("" : stderr empty) */
        bool contains;
    } rows[] = {
        {"get", "", 0, "{}\n", "", false},
        {"native", "", 0, "{}\n", "", false},
        {"vrf add red", "", 0, "VRF red created\n", "", false},
        {"vrf add red", "", 0, "VRF red exists already: nothing changed\n", "", false},
        {"edit " + example("01-ipv4-default-next-hop-address.json"), "", 0,
         "1 route created, 0 changed, 0 deleted; 1 next hop created, 0 changed, 0 deleted\n", "", false},
        {"edit --dry-run --diff " + example("07-metric-change.json"), "", 0,
         "~ " + metric_path + ": 10 -> 50\n0 routes created, 1 changed, 0 deleted; 0 next hops created, 1 changed, "
         "0 deleted (dry run: nothing stored)\n", "", false},
        {"--verbose edit " + example("03-ipv4-red-address-and-interface.json"), "", 0,
         "create /router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
         "vrf-prefix[prefix=172.16.0.0][prefix-length=12]\n", "", true},
        {"native edit --dry-run " + example("native-router-cli.json"), "", 0,
         "1 route created, 0 changed, 0 deleted; 2 next hops created, 0 changed, 0 deleted (dry run: nothing stored)\n",
         "", false},
        {"delete --dry-run --diff " + quote(route), "", 0, "- " + metric_path + ": 10\n", "", true},
        {"delete " + quote(route), "", 0, "0 routes created, 0 changed, 1 deleted; 0 next hops created, 0 changed, "
         "1 deleted\n", "", false},
        {"delete " + quote(route), "", 0, "0 routes created, 0 changed, 0 deleted; " + none + "\n",
         "nothing to delete at", false},
        {"vrf delete red --with-routes", "", 0, "VRF red deleted with its 1 static route\n", "", false},
        {"vrf delete red", "", 1, "", "red", false},
        {"get --vrf blue", "", 0, "{}\n", "VRF blue does not exist", false},
        {"edit -", with("10.9.0.0/16", "DROP"), 2, "", "(an identity needs its module prefix: "
         "\"openconfig-local-routing:DROP\")", false},
        {"edit -", with("10.9.0.0/255.255.0.0", "192.0.2.1"), 2, "",
         "(write a prefix as address/length: \"10.9.0.0/16\")", false},
        {"edit -", with("2001:db8::", "2001:db8::1"), 2, "", "(a prefix is address/length, as in \"2001:db8::/64\")",
         false},
        {"edit -", with("10.9.0.0/16", "192.0.2.1"), 0, "1 route created, 0 changed, 0 deleted; 1 next hop created, "
         "0 changed, 0 deleted\n", "", false},
    };
    for (const Row &r : rows) {
        Outcome res = run(r.args, r.input);
        EXPECT_EQ(res.status, r.status) << r.args << ": " << res.err;
        if (r.contains)
            EXPECT_NE(res.out.find(r.out), std::string::npos) << r.args << ":\n" << res.out;
        else
            EXPECT_EQ(res.out, r.out) << r.args;
        if (r.err.empty())
            EXPECT_EQ(res.err, "") << r.args;
        else
            EXPECT_NE(res.err.find(r.err), std::string::npos) << r.args << ":\n" << res.err;
    }
}

/* On a terminal a long edit shows its progress on stderr, and clears it before its summary. */
TEST_F(Cli, LongEditShowsProgressOnATerminalOnly)
{
    const std::string doc = oc_doc("default", oc_routes(3000, ""));
    std::ofstream(dir_ + "/big.json") << doc;
    const std::string edit = quote(binary_) + " --store " + quote(store_) + " edit " + quote(dir_ + "/big.json");
    std::string cmd = "script -qec " + quote(edit) + " /dev/null >" + quote(dir_ + "/tty");
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    std::string tty = read_file(dir_ + "/tty");
    EXPECT_NE(tty.find("ocni-map: 1024 of 3000 routes, "), std::string::npos) << tty;
    EXPECT_NE(tty.find("\r\033[K3000 routes created"), std::string::npos) << tty;
    Outcome quiet = run("edit " + quote(dir_ + "/big.json"));
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.err, "");
}
