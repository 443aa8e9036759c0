/*
 * What the command line lets into the store, applied through its engine: a
 * refusal leaves the store as it was, an accepted edit still reads back.
 */
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "docs.h"
#include "engine_fixture.h"

using ocni::tool::Outcome;
using namespace ocni::test;
namespace yang = ocni::yang;

namespace {

const std::string SEED_ROUTE = oc_route("10.1.0.0/16", oc_hop("1", "192.0.2.1"));
const std::string DROP = "openconfig-local-routing:DROP";

/* A native document of one route: `vrf` "default" or a name, family 4 or 6, one entry of `table`. */
std::string native(const std::string &vrf, int family, const std::string &prefix, int length, const char *table,
                   const std::string &entry)
{
    return native_doc(vrf, family, native_prefix(prefix, length, table, entry));
}

class Gate : public EngineFixture {
protected:
    void SetUp() override
    {
        EngineFixture::SetUp();
        for (const char *v : {"red", "r.d"})
            ASSERT_EQ(engine_->vrf_add(v).status, Outcome::kOk);
        ASSERT_EQ(apply(oc_doc("red", SEED_ROUTE)).status, Outcome::kOk);
    }

    struct Row {
        const char *what;
        std::string doc;
        yang::Model model;
        int status;
        std::string says; /* part of the message; of the native configuration when accepted */
    };

    /* Each row's outcome; a refusal leaves the store as it was, an accepted edit still reads back. */
    void check(const std::vector<Row> &rows)
    {
        for (const Row &r : rows) {
            std::string before = native_text();
            Outcome o = apply(r.doc, r.model);
            EXPECT_EQ(o.status, r.status) << r.what << ": " << o.message;
            if (o.status == Outcome::kOk) {
                EXPECT_EQ(reads(), "") << r.what;
                EXPECT_NE(native_text().find(r.says), std::string::npos) << r.what << ":\n" << native_text();
            } else {
                EXPECT_NE(o.message.find(r.says), std::string::npos) << r.what << ": " << o.message;
                EXPECT_EQ(native_text(), before) << r.what;
            }
        }
    }
};

const yang::Model OC = yang::Model::kOpenConfig, NATIVE = yang::Model::kNative;

TEST_F(Gate, NamesFromUserDataAreMatchedLiterally)
{
    check({
        /* r.d is not a pattern that finds red's next hop */
        {"set-tag in r.d", oc_doc("r.d", R"({"prefix":"10.1.0.0/16","config":{"set-tag":5}})"), OC, 0,
         R"("vrf-name": "red")"},
        {"a name of repeated '+' is compared, not compiled", oc_doc("ab++++++++++++++++++++++++++++c", SEED_ROUTE), OC, 1,
         "ab+"},
    });
    std::string n = native_text();
    EXPECT_EQ(n.find("192.0.2.1"), n.rfind("192.0.2.1")) << n; /* red's next hop, and no copy in r.d */
}

TEST_F(Gate, NativeDocumentsHoldOnlyWhatReadsBack)
{
    const std::string nh = R"({"next-hop-address":"192.0.2.1"})";
    check({
        {"IPv4 length 33", native("default", 4, "10.0.0.0", 33, NH_ADDR, nh), NATIVE, 2, "prefix-length \"33\" is not a prefix length from 0 to 32"},
        {"subinterface not a number", native("default", 4, "10.0.0.0", 8, NH_IFACE, R"({"interface-name":"Gi0/0/0/3.abc"})"),
         NATIVE, 2, "has a subinterface that is not a number from 1 to 4294967295"},
        {"no interface before the dot", native("default", 4, "10.0.0.0", 8, NH_IFACE, R"({"interface-name":".*"})"), NATIVE,
         2, "has no interface before its '.'"},
        {"underscore reads back as a slash", native("default", 4, "10.0.0.0", 8, NH_IFACE, R"({"interface-name":"Gi_1"})"),
         NATIVE, 2, "contains '_'"},
        {"interface of 64", native("default", 4, "10.0.0.0", 8, NH_IFACE, R"({"interface-name":")" + std::string(64, 'G') + "\"}"),
         NATIVE, 2, "is longer than 63 characters"},
        {"VRF the router does not know", native("blue", 4, "10.0.0.0", 8, NH_ADDR, R"({"next-hop-address":"192.0.2.1","metric":1})"), NATIVE, 2,
         "vrf-name \"blue\" is not a VRF the router knows"},
        {"host bits", native("default", 4, "10.9.1.1", 16, NH_ADDR, nh), NATIVE, 2, "prefix \"10.9.1.1\" has bits set beyond its prefix length 16"},
        {"no address", native("default", 4, "999.1.1.1", 8, NH_ADDR, nh), NATIVE, 2, "is not an IPv4 address"},
        {"IPv6 next hop in an IPv4 route", native("default", 4, "10.0.0.0", 8, NH_ADDR, R"({"next-hop-address":"2001:db8::1"})"),
         NATIVE, 2, "is an IPv6 address in an IPv4 route"},
        {"address spelt otherwise", native("red", 6, "2001:db8::", 32, NH_ADDR, R"({"next-hop-address":"2001:DB8::1"})"),
         NATIVE, 2, "is not in canonical form, write \"2001:db8::1\""},
        {"index closing a key", native("default", 4, "10.0.0.0", 8, NH_IFACE, R"({"interface-name":"Null0","index":"a]b"})"),
         NATIVE, 2, "index \"a]b\" contains ']'"},
        {"empty object name", native("default", 4, "10.0.0.0", 8, NH_ADDR, R"({"next-hop-address":"192.0.2.1","object-name":""})"), NATIVE, 2, "object-name \"\" is empty"},
        {"object name of 33", native("default", 4, "10.0.0.0", 8, NH_ADDR, R"({"next-hop-address":"192.0.2.1","object-name":")" +
         std::string(33, 'o') + "\"}"), NATIVE, 2, "is longer than 32 characters"},
        {"subinterface and 63 characters", native("red", 4, "10.0.0.0", 8, NH_IFACE,
                                                  R"({"interface-name":")" + std::string(58, 'G') + "0.77\"}"),
         NATIVE, 0, std::string(58, 'G') + "0.77"},
    });
}

TEST_F(Gate, OpenConfigEditsAreCheckedBeyondTheModel)
{
    check({
        {"key differs from config/prefix",
         oc_doc("default", R"({"prefix":"10.20.0.0/16","config":{"prefix":"10.21.0.0/16"}})"), OC, 2,
         "config/prefix \"10.21.0.0/16\" differs from the list key \"10.20.0.0/16\""},
        {"key differs from config/index",
         oc_doc("default", oc_route("10.20.0.0/16", R"({"index":"1","config":{"index":"2","next-hop":"192.0.2.1"}})")), OC,
         2, "config/index \"2\" differs"},
        {"key differs from config/name", oc_doc("red", SEED_ROUTE, R"(,"config":{"name":"blue"})"), OC, 2,
         "config/name \"blue\" differs"},
        {"two next hops, one address",
         oc_doc("default", oc_route("10.20.0.0/16", oc_hop("1", "192.0.2.1") + "," + oc_hop("2", "192.0.2.1"))), OC, 2,
         "next hops 1 and 2 of route 10.20.0.0/16 are the same next hop"},
        {"two drops", oc_doc("default", oc_route("10.20.0.0/16", oc_hop("a", DROP) + "," +
                                                             oc_hop("b", DROP))),
         OC, 2, "next hops a and b"},
        {"a new index on a stored next hop", oc_doc("red", oc_route("10.1.0.0/16", oc_hop("2", "192.0.2.1"))), OC, 2,
         "index \"2\" names the next hop stored as index \"1\" (same address and interface); delete that one first or give this one its own address or interface"},
        {"an interface next hop", oc_doc("default", oc_route("10.72.0.0/16", oc_hop("i", "", "", oc_iface("Gi0/0/0/1")))), OC, 0, R"("index": "i")"},
        {"a new index on a stored interface", oc_doc("default", oc_route("10.72.0.0/16", oc_hop("j", "", "", oc_iface("Gi0/0/0/1")))), OC, 2,
         "index \"j\" names the next hop stored as index \"i\""},
        {"IPv6 next hop, IPv4 route", oc_doc("default", oc_route("10.20.0.0/16", oc_hop("1", "2001:db8::1"))), OC, 2,
         "next hop 2001:db8::1 is IPv6, route 10.20.0.0/16 is IPv4"},
        {"IPv4 next hop, IPv6 route", oc_doc("red", oc_route("2001:db8::/32", oc_hop("1", "192.0.2.1"))), OC, 2,
         "next hop 192.0.2.1 is IPv4, route 2001:db8::/32 is IPv6"},
        {"VRF name of 33", oc_doc(std::string(33, 'v'), SEED_ROUTE, R"(,"config":{"name":")" + std::string(33, 'v') + "\"}"),
         OC, 2, "network instance name \"" + std::string(33, 'v') + "\" is longer than 32 characters"},
        {"VRF name closing a key", oc_doc("a]b", SEED_ROUTE), OC, 2, "contains ']'"},
        {"index closing a key", oc_doc("default", oc_route("10.20.0.0/16", oc_hop("a]b", DROP))), OC,
         2, "index \"a]b\" contains ']'"},
        {"interface over 63",
         oc_doc("default", oc_route("10.20.0.0/16", oc_hop("1", "192.0.2.1", "", oc_iface(std::string(100, 'G'))))),
         OC, 2, "is longer than 63 characters"},
        {"empty set-tag", oc_doc("default", oc_route("10.20.0.0/16", oc_hop("1", "192.0.2.1"), R"(,"set-tag":"")")), OC, 2,
         "set-tag \"\" is empty"},
        {"set-tag of five octets", oc_doc("default", oc_route("10.20.0.0/16", oc_hop("1", "192.0.2.1"), R"(,"set-tag":"12:34:56:78:9a")")),
         OC, 2, "does not fit the 32-bit route tag"},
        {"set-tag colon form is its number", oc_doc("default", oc_route("10.20.0.0/16", oc_hop("1", "192.0.2.1"), R"(,"set-tag":"12:34")")),
         OC, 0, R"("tag": 4660)"},
        {"new next hop with a metric and nothing to route to",
         oc_doc("default", oc_route("10.40.0.0/16", oc_hop("1", "", R"(,"metric":5)"))), OC, 2,
         "next hop \"1\" of route 10.40.0.0/16 is new and names neither a next-hop nor an interface"},
        {"new next hop of an index alone", oc_doc("red", oc_route("10.1.0.0/16", oc_hop("7", ""))),
         OC, 2, "next hop \"7\" of route 10.1.0.0/16 is new"},
        {"stored next hop changes without restating its next-hop",
         oc_doc("red", oc_route("10.1.0.0/16", oc_hop("1", "", R"(,"metric":9)"))), OC, 0,
         R"("metric": 9)"},
        {"an index with a blank is a name like any other",
         oc_doc("default", oc_route("10.70.0.0/16", oc_hop("uplink 2", "192.0.2.7"))), OC, 0, R"("index": "uplink 2")"},
        {"a one-digit set-tag reaches the new next hop",
         oc_doc("default", oc_route("10.71.0.0/16", oc_hop("1", "192.0.2.8"), R"(,"set-tag":7)")), OC, 0, R"("tag": 7)"},
        {"set-tag of four octets", oc_doc("default", oc_route("10.30.0.0/16", oc_hop("1", "192.0.2.1"), R"(,"set-tag":"ab:CD:ef:01")")),
         OC, 0, R"("tag": 2882400001)"},
    });
}

/* Mapped output the gate refuses names the OpenConfig leaf, when no input check stood in the way. */
class GateAfterMapping : public ocni::test::WalkerFixture {};

TEST_F(GateAfterMapping, RefusalNamesTheOpenConfigLeaf)
{
    const std::string s = ocni::test::oc_static_routes("default") + "/static[prefix=10.2.0.0/16]";
    struct Row {
        std::string lines;
        std::string says;
    } rows[] = {
        {ocni::test::oc_static_routes("default") + "/static[prefix=10.2.0.0/33]/next-hops/next-hop[index=1]/config/"
                                                   "next-hop = 192.0.2.1",
         "prefix length \"33\" is not a prefix length from 0 to 32 (at /network-instances/network-instance[name=default]/"
         "protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=10.2.0.0/33]/config/prefix)"},
        {s + "/next-hops/next-hop[index=7]/config/next-hop = 192.0.2.1\n" + s +
             "/next-hops/next-hop[index=7]/interface-ref/config/interface = Gi_0",
         "interface \"Gi_0\" contains '_' (at /network-instances/network-instance[name=default]/protocols/"
         "protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=10.2.0.0/16]/next-hops/"
         "next-hop[index=7]/interface-ref/config/interface)"},
    };
    for (const Row &r : rows) {
        auto before = native();
        ocni::host::EditOutcome o = edit(r.lines);
        EXPECT_TRUE(o.result.bad_input) << r.lines;
        EXPECT_EQ(o.result.message, r.says);
        EXPECT_EQ(native(), before);
    }
}

} // namespace

/* Deleting what is not there, through the engine: the same answer for a route, a next hop and a leaf. */
TEST_F(Gate, DeletesOfWhatIsAbsentChangeNothingAlike)
{
    const std::string s = "/network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC]"
                          "[name=DEFAULT]/static-routes/static";
    for (const std::string &path : {s + "[prefix=10.9.0.0/16]", s + "[prefix=10.1.0.0/16]/next-hops/next-hop[index=9]",
                                    s + "[prefix=10.8.0.0/16]/next-hops/next-hop[index=1]",
                                    s + "[prefix=10.1.0.0/16]/next-hops/next-hop[index=1]/config/metric",
                                    s + "[prefix=10.1.0.0/16]/config/set-tag"}) {
        yang::Tree tree;
        yang::PathTarget target;
        ASSERT_FALSE(yang::parse_instance_path(ctx_, path, yang::Model::kOpenConfig, tree, target)) << path;
        std::string before = native_text(), changes;
        Outcome o = engine_->remove(tree, target, false, changes);
        EXPECT_EQ(o.status, Outcome::kOk) << path << ": " << o.message << " [" << o.detail << "]";
        EXPECT_EQ(changes, "") << path;
        EXPECT_EQ(native_text(), before) << path;
    }
}

/*
 * What is read inside one transaction is what its edit starts from: another
 * writer (an ocni-map process) waits until the transaction ends, and then
 * applies its own edit on top.
 */
TEST_F(Gate, ReadsAndTheEditOfOneTransactionSeeNoOtherWriter)
{
    const char *bin = std::getenv("OCNI_BINARY_DIR");
    ASSERT_NE(bin, nullptr);
    const std::string doc = dir_ + "/other.json";
    std::ofstream(doc) << oc_doc("default", oc_route("10.50.0.0/16", oc_hop("1", "192.0.2.5")));
    pid_t other = -1;
    Outcome o = engine_->in_one_transaction([&]() {
        yang::Tree before;
        ocni::tool::ReadFilter f;
        EXPECT_EQ(engine_->get(f, before).status, Outcome::kOk);
        other = fork();
        if (other == 0) {
            std::string cmd = std::string(bin) + "/tools/ocni-map --store '" + dir_ + "' edit '" + doc + "' >/dev/null";
            _exit(std::system(cmd.c_str()) == 0 ? 0 : 1);
        }
        usleep(300 * 1000);
        EXPECT_EQ(waitpid(other, nullptr, WNOHANG), 0) << "the other writer did not wait";
        EXPECT_EQ(native_text().find("10.50.0.0"), std::string::npos);
        return apply(oc_doc("default", oc_route("10.60.0.0/16", oc_hop("1", "192.0.2.6"))));
    });
    EXPECT_EQ(o.status, Outcome::kOk) << o.message;
    int status = -1;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::string now = native_text();
    EXPECT_NE(now.find("10.50.0.0"), std::string::npos);
    EXPECT_NE(now.find("10.60.0.0"), std::string::npos);
}

/*
 * In a network instance the router does not know, an edit that deletes one
 * leaf and sets another is refused by the mapping, naming the instance.
 */
TEST_F(Gate, UnknownInstanceRefusesAnEditThatAlsoSets)
{
    const std::string cfg = "/network-instances/network-instance[name=ghost]/protocols/protocol[identifier=STATIC]"
                            "[name=DEFAULT]/static-routes/static[prefix=10.1.0.0/16]/next-hops/next-hop[index=1]/config";
    yang::Tree tree;
    yang::PathTarget target;
    ASSERT_FALSE(yang::parse_instance_path(ctx_, cfg + "/metric", yang::Model::kOpenConfig, tree, target));
    ASSERT_NE(target.parent, nullptr);
    ASSERT_EQ(lyd_new_path(const_cast<lyd_node *>(target.parent), nullptr, "next-hop", "192.0.2.1", 0, nullptr),
              LY_SUCCESS);
    std::string before = native_text(), changes;
    Outcome o = engine_->apply(tree, {target}, false, changes);
    EXPECT_EQ(o.status, Outcome::kRefused) << o.message;
    EXPECT_NE(o.message.find("network-instance ghost is not configured yet"), std::string::npos) << o.message;
    EXPECT_EQ(native_text(), before);
}
