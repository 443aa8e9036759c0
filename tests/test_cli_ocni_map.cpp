/*
 * The ocni-map command line, run as a user runs it: exit status, messages
 * and what the store holds afterwards.
 */
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <libyang/libyang.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "yang_context.h"

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

/*
 * Checks a printed document against the published modules as a fragment
 * (schema and types, state allowed); "" when it fits, else libyang's words.
 */
std::string published_check(const std::string &json)
{
    std::string published = env("OCNI_SOURCE_DIR", ".") + "/../shared/openconfig";
    ocni::yang::Context ctx;
    ocni::yang::Error e = ctx.open(env("OCNI_SOURCE_DIR", ".") + "/yang", published);
    if (e)
        return "cannot load the published modules: " + e.message;
    lyd_node *tree = nullptr;
    LY_ERR rc = lyd_parse_data_mem(ctx.raw(), json.c_str(), LYD_JSON, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &tree);
    lyd_free_all(tree);
    return rc == LY_SUCCESS ? "" : ctx.take_errors("does not parse");
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
        std::string cmd = "cd " + quote(dir_) + " && " + quote(binary_) +
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
        {"edit --help", "usage: ocni-map edit FILE|- [--dry-run]"},
        {"delete --help", "usage: ocni-map delete PATH"},
        {"get --help", "usage: ocni-map get [--state] [--vrf NAME] [--prefix PREFIX]"},
        {"native --help", "usage: ocni-map native"},
        {"native edit --help", "ocni-map native edit FILE|-"},
        {"vrf --help", "usage: ocni-map vrf add NAME"},
        {"vrf list --help", "ocni-map vrf list"},
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
        {"get --prefix 10.1.1.1/24", "\"10.1.1.0/24\""},
        {"get --prefix tomato", "invalid prefix \"tomato\""},
    };
    for (const Row &r : rows) {
        Outcome res = run(r.args);
        EXPECT_EQ(res.status, 2) << r.args;
        EXPECT_NE((res.out + res.err).find(r.mentions), std::string::npos)
            << r.args << ":\n" << res.out << res.err;
        EXPECT_FALSE(exists(store_)) << r.args;
    }
}

TEST_F(Cli, GetPrefixNamesTheCanonicalForm)
{
    Outcome r = run("get --prefix 2001:DB8::/32");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("\"2001:db8::/32\""), std::string::npos) << r.err;
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

TEST_F(Cli, EmptyStoreGetsAnEmptyDocument)
{
    Outcome r = run("get");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "{}\n");
    Outcome n = run("native");
    EXPECT_EQ(n.status, 0) << n.err;
    EXPECT_EQ(n.out, "{}\n");
}

TEST_F(Cli, ExamplesApplyAndRefusalsLeaveTheNativeConfigurationUnchanged)
{
    Outcome first = run("edit " + example("01-ipv4-default-next-hop-address.json"));
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
    Outcome dry = run("edit --dry-run " + example("07-metric-change.json"));
    EXPECT_EQ(dry.status, 0) << dry.err;
    EXPECT_NE(dry.out.find("50"), std::string::npos) << dry.out;

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
    if (exists(env("OCNI_SOURCE_DIR", ".") + "/../shared/openconfig/release")) {
        EXPECT_EQ(published_check(get.out), "") << get.out;
        EXPECT_EQ(published_check(state.out), "") << state.out;
    }

    std::string first_store = store_;
    store_ = dir_ + "/store2";
    Outcome replay = run("edit -", get.out);
    ASSERT_EQ(replay.status, 0) << replay.err;
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

}  // namespace

namespace {

TEST_F(Cli, InstalledCommandFindsItsPluginAndModulesWithoutEnvironment)
{
    std::string build = env("OCNI_BINARY_DIR", ".");
    std::string prefix = dir_ + "/prefix";
    std::string install = "cmake --install " + quote(build) + " --prefix " + quote(prefix) + " >/dev/null 2>&1";
    ASSERT_EQ(std::system(install.c_str()), 0);
    binary_ = prefix + "/bin/ocni-map";
    ASSERT_TRUE(exists(binary_));
    EXPECT_TRUE(exists(prefix + "/share/ocni/yang/Velmar-ORN-QZ-ip-static-cfg.yang"));

    /* bad input is judged by the installed modules */
    Outcome bad = run("edit " + example("invalid-leaf.json"));
    EXPECT_EQ(bad.status, 2) << bad.err;
    EXPECT_NE(bad.err.find("config/metric"), std::string::npos) << bad.err;

    Outcome r = run("edit " + example("04-ipv6-default-drop.json"));
    EXPECT_EQ(r.status, 0) << r.err;
    Outcome get = run("get");
    EXPECT_EQ(get.status, 0) << get.err;
    EXPECT_NE(get.out.find("\"2001:db8:dead::/48\""), std::string::npos) << get.out;
}

}  // namespace
