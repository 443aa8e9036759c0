/*
 * The ocni-map command line, run as a user runs it: exit status, messages
 * and what the store holds afterwards. (The store on disk: test_cli_store.)
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "cli_fixture.h"
#include "docs.h"

using namespace ocni::test;

namespace {

TEST_F(Cli, EveryCommandHasHelp)
{
    struct Row { const char *args; const char *usage; } rows[] = {
        {"--help", "usage: ocni-map [--store DIR]"}, {"help", "usage: ocni-map [--store DIR]"},
        {"edit --help", "usage: ocni-map edit FILE|- [--dry-run"},
        {"delete --help", "usage: ocni-map delete PATH"},
        {"get --help", "usage: ocni-map get [--state] [--vrf NAME] [--prefix PREFIX]"},
        {"native --help", "usage: ocni-map native"}, {"native edit --help", "ocni-map native edit FILE|-"},
        {"vrf --help", "usage: ocni-map vrf add NAME"},
        {"vrf list --help", "ocni-map vrf list"}, {"store --help", "usage: ocni-map store upgrade"},
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
    struct Row { const char *args; const char *mentions; } rows[] = {
        {"", "usage: ocni-map"}, {"frobnicate", "unknown command frobnicate"},
        {"get --colour", "unknown option --colour"}, {"edit", "usage: ocni-map edit"},
        {"edit a.json b.json", "usage: ocni-map edit"}, {"delete", "usage: ocni-map delete"},
        {"native edit", "usage: ocni-map native"},
        {"vrf", "usage: ocni-map vrf"}, {"vrf rename red", "unknown vrf command rename"},
        {"vrf add", "usage: ocni-map vrf"},
        {"vrf add this-name-is-far-too-long-for-a-vrf-of-the-router", "is longer than 32 characters"},
        {"vrf add -x", "a name that starts with '-' goes after --"},
        {"vrf add \"$(printf 'a\\tb')\"", "VRF name \"a\\x09b\" contains a control character"},
        {"vrf add \"$(printf 'a\\nb')\"", "VRF name \"a\\x0ab\" contains a control character"},
        {"vrf add 'a]b'", "contains ']'"},
        {"vrf delete 'a]b'", "contains ']'"}, {"get --vrf", "--vrf needs a name"},
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
    struct Row { std::string args; std::string input; std::vector<std::string> mentions; } rows[] = {
        {"edit " + example("invalid-leaf.json"), "", {"invalid-leaf.json", "line 20", "config/metric"}},
        {"edit no-such-file.json", "", {"cannot read no-such-file.json"}}, {"edit .", "", {"is a directory"}},
        {"edit -", std::string("{}\0{\"x\":1}", 9), {"NUL byte at offset 2"}},
        {"native edit " + example("01-ipv4-default-next-hop-address.json"), "", {"expected Velmar-ORN-QZ-ip-static-cfg"}},
        {"native edit -", "{\"Velmar-ORN-QZ-ip-static-cfg:router-static\":{\"vrfs\":{\"vrf\":[{\"vrf-name\":\"\"}]}}}", {"vrf-name"}},
        {"delete " + quote(proto + "/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/weight"), "", {"weight"}},
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

/* A missing module directory is an internal error naming it. (Published modules: test_yang_seam, test_read_published.) */
TEST_F(Cli, MissingYangDirIsAnInternalErrorNamingIt)
{
    Outcome r = run("--yang-dir " + quote(dir_ + "/nothing-here") + " edit " + example("04-ipv6-default-drop.json"));
    EXPECT_EQ(r.status, 3);
    EXPECT_NE(r.err.find("nothing-here"), std::string::npos) << r.err;
}

/* With the walker */

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
    const std::string native = run("native").out, first_store = store_;
    for (const char *format : {"json", "xml"}) { /* either form carries the whole configuration */
        store_ = first_store;
        Outcome get = run(std::string("get --format ") + format);
        ASSERT_EQ(get.status, 0) << get.err;
        EXPECT_EQ(get.out[0], format[0] == 'j' ? '{' : '<') << get.out;
        EXPECT_NE(get.out.find("##GigabitEthernet0/0/0/3##192.0.2.9##"), std::string::npos) << get.out;
        EXPECT_NE(get.out.find("##DROP##"), std::string::npos) << get.out;
        store_ = dir_ + "/replay-" + format;
        Outcome replay = run("edit -", get.out);
        ASSERT_EQ(replay.status, 0) << replay.err;
        EXPECT_EQ(run("native").out, native) << format;
    }
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

/* Filters */

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
    struct Row { std::string filter; std::vector<const char *> finds; /* none: an empty document */ } rows[] = {
        {"--vrf red --prefix 10.26.1.1/24", {"192.0.2.1"}}, {"--vrf red --prefix 10.26.1.0/24", {"192.0.2.1"}},
        {"--prefix 10.26.1.0/24", {"192.0.2.1"}},
        {"--prefix 10.27.1.0/24", {"192.0.2.7"}}, {"--prefix 10.26.1.0/25", {}},
        {"--prefix 2001:DB8:26::/48", {"DROP"}},
        {"--prefix 2001:db8:26:0::1/48", {"DROP"}}, {"--vrf red", {"192.0.2.1", "192.0.2.7", "DROP"}},
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
    /* out: exact, or with `contains` a part of it; err: a part of stderr ("": stderr empty) */
    struct Row { std::string args, input; int status; std::string out, err; bool contains; } rows[] = {
        {"get", "", 0, "{}\n", "", false}, {"native", "", 0, "{}\n", "", false},
        {"vrf add red", "", 0, "VRF red created\n", "", false},
        {"vrf add red", "", 0, "VRF red exists already: nothing changed\n", "", false},
        {"vrf add -- -x", "", 0, "VRF -x created\n", "", false},
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
        {"vrf delete red", "", 1, "", "refused: VRF red still holds 1 static route: delete them first, or delete the VRF --with-routes\n", false},
        {"vrf delete red --with-routes", "", 0, "VRF red deleted with its 1 static route\n", "", false},
        {"native", "", 0, "{}\n", "", false},
        {"vrf delete red", "", 1, "", "refused: VRF red is not configured\n", false},
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

/*
 * An edit of more routes than one chunk is read a chunk at a time (what the
 * chunks store: ReadStream.EditsInPartsAndChunks...): an error in a late
 * chunk names the input's line and stores nothing.
 */
TEST_F(Cli, LargeEditReadInChunksNamesTheLineOfALateError)
{
    auto routes = [](int from, int n, const std::string &metric) { /* one route a line */
        std::string s;
        for (int i = from; i < from + n; ++i)
            s += "\n" + std::string(i > from ? "," : "") +
                 oc_route("10." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0/24",
                          oc_hop("1", "192.0.2.1", i % 3 ? "" : ",\"metric\":" + metric));
        return s;
    };
    const std::string red = ",\"config\":{\"name\":\"red\"}";
    auto big = [&](const std::string &metric) { /* chunks: red 512, 512 and 76, default 300 */
        return oc_instances(oc_instance("red", routes(0, 1100, metric), red) + "," +
                            oc_instance("default", routes(1100, 300, metric)));
    };
    Outcome whole = run("edit -", big("7"));
    ASSERT_EQ(whole.status, 0) << whole.err;
    EXPECT_EQ(whole.out, "1400 routes created, 0 changed, 0 deleted; 1400 next hops created, 0 changed, 0 deleted; "
                         "VRF red created\n");
    const std::string native = run("native").out;
    /* Route 1200, in the last chunk, has a metric that is not a number. */
    std::string bad = big("8");
    const std::string at = "\"prefix\":\"10.4.176.0/24\"";
    const size_t route = bad.find(at);
    bad.replace(bad.find("\"metric\":8", route), 10, "\"metric\":\"x\"");
    Outcome refused = run("edit -", bad);
    EXPECT_EQ(refused.status, 2);
    EXPECT_NE(refused.err.find("line " + std::to_string(1 + std::count(bad.begin(), bad.begin() + route, '\n'))),
              std::string::npos) << refused.err;
    EXPECT_EQ(run("native").out, native);
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
    cmd = "script -qec " + quote(quote(binary_) + " --store " + quote(store_) + " get >/dev/null") + " /dev/null >" + quote(dir_ + "/tty");
    ASSERT_EQ(std::system(cmd.c_str()), 0); /* a read counts the routes it has printed */
    EXPECT_NE(read_file(dir_ + "/tty").find("ocni-map: 1024 routes, "), std::string::npos) << read_file(dir_ + "/tty");
    Outcome quiet = run("edit " + quote(dir_ + "/big.json"));
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.err, "");
}
