/*
 * What ocni-map get prints for every kind of next hop, validated as whole
 * documents against the published OpenConfig modules, as a client would.
 */
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <libyang/libyang.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>

#include "cli_fixture.h"

using ocni::test::env;
using ocni::test::quote;
using ocni::test::read_file;

namespace {

std::string published_dir() { return env("OCNI_SOURCE_DIR", ".") + "/../shared/openconfig"; }

/* The longest interface the gate takes, with its subinterface. */
const std::string LONG_IF = "Gi" + std::string(54, 'x') + "0/0/1";

/* One family's single prefix entry with its next-hop tables. */
std::string af(const char *family, const std::string &prefix, int length, const std::string &tables)
{
    return std::string("\"") + family + R"(": {"vrf-unicast": {"vrf-prefixes": {"vrf-prefix": [{"prefix": ")" + prefix +
           R"(", "prefix-length": )" + std::to_string(length) + R"(, "vrf-route": {"vrf-next-hop-table": {)" + tables + "}}}]}}}";
}
const std::string IF = "\"vrf-next-hop-interface-name\": ", IFA = "\"vrf-next-hop-interface-name-next-hop-address\": ",
                  A = "\"vrf-next-hop-next-hop-address\": ";

/* Every next-hop kind, both families, default and named instances. */
const std::string SEED =
    R"({"Velmar-ORN-QZ-ip-static-cfg:router-static": {"default-vrf": {"address-family": {)" +
    af("vrfipv4", "10.1.0.0", 16,
       IF + R"([{"interface-name": "Gi0/0/0/1.100", "metric": 2, "bfd-fast-detect": true}, {"interface-name": "Null0", "index": "discard"},
                {"interface-name": "tunnel-te1.2", "index": "my_idx"}], )" +
           IFA + R"([{"interface-name": "Gi0/0/0/2", "next-hop-address": "192.0.2.2", "tag": 10, "description": "core"}], )" +
           A + R"([{"next-hop-address": "192.0.2.5", "index": "dup"}, {"next-hop-address": "192.0.2.7", "index": "core-7"}])") + ", " +
    af("vrfipv6", "2001:db8::", 64,
       IF + R"([{"interface-name": "Gi0/0/0/4"}, {"interface-name": "Null0"}], )" + IFA + R"([{"interface-name": ")" + LONG_IF +
           R"(.7", "next-hop-address": "2001:db8:aaaa:bbbb:cccc:dddd:eeee:ffff"}], )" + A +
           R"([{"next-hop-address": "2001:db8::1", "description": ""}])") +
    R"(}}, "vrfs": {"vrf": [{"vrf-name": "red", "address-family": {)" +
    af("vrfipv4", "10.2.0.0", 16,
       IF + R"([{"interface-name": "Gi0/0/0/5.1"}], )" + A + R"([{"next-hop-address": "192.0.2.9", "index": "x=y", "metric": 4}])") + ", " +
    af("vrfipv6", "2001:db8:1::", 48,
       IF + R"([{"interface-name": "Null0"}], )" + IFA + R"([{"interface-name": "Gi0/0/0/6.2", "next-hop-address": "2001:db8::6", "tag": 7}])") +
    "}}]}}}";

/* The published modules a validating client loads, in their own context (not the tool's). */
class Published {
public:
    Published()
    {
        ly_log_options(LY_LOSTORE);
        if (ly_ctx_new(published_dir().c_str(), LY_CTX_REF_IMPLEMENTED, &ctx_) != LY_SUCCESS)
            return;
        for (const char *m : {"openconfig-network-instance", "openconfig-local-routing", "openconfig-policy-types",
                              "openconfig-network-instance-types", "openconfig-interfaces", "iana-if-type"})
            if (ly_ctx_load_module(ctx_, m, nullptr, nullptr) == nullptr)
                missing_ += std::string(" ") + m;
    }
    ~Published() { ly_ctx_destroy(ctx_); }
    /* "" when every module loaded, else what is missing */
    std::string missing() const { return ctx_ == nullptr ? "the context" : missing_; }

    /*
     * "" when `json`, with an interfaces tree holding every interface and
     * subinterface it refers to, validates as a whole document; else
     * libyang's words.
     */
    std::string validate(const std::string &json, bool state)
    {
        lyd_node *tree = nullptr;
        const uint32_t parse = LYD_PARSE_ONLY | LYD_PARSE_STRICT | (state ? 0 : LYD_PARSE_NO_STATE);
        if (lyd_parse_data_mem(ctx_, json.c_str(), LYD_JSON, parse, 0, &tree) != LY_SUCCESS)
            return errors();
        std::string why = add_interfaces(&tree, state);
        if (why.empty() &&
            lyd_validate_all(&tree, ctx_, LYD_VALIDATE_PRESENT | (state ? 0 : LYD_VALIDATE_NO_STATE), nullptr) !=
                LY_SUCCESS)
            why = errors();
        lyd_free_all(tree);
        return why;
    }

private:
    std::string errors()
    {
        std::string out;
        for (const ly_err_item *e = ly_err_first(ctx_); e != nullptr; e = e->next)
            if (e->level == LY_LLERR)
                out += std::string(e->msg ? e->msg : "?") + " (" + (e->path ? e->path : "") + "); ";
        ly_err_clean(ctx_, nullptr);
        return out.empty() ? "failed" : out;
    }

    std::string add_interfaces(lyd_node **tree, bool state)
    {
        ly_set *refs = nullptr;
        if (lyd_find_xpath(*tree, "//next-hop/interface-ref/*/interface", &refs) != LY_SUCCESS)
            return errors();
        std::set<std::pair<std::string, std::string>> seen;
        for (uint32_t i = 0; i < refs->count; ++i) {
            const lyd_node *leaf = refs->dnodes[i];
            std::string sub = "0";
            for (const lyd_node *s = lyd_first_sibling(leaf); s != nullptr; s = s->next)
                if (strcmp(LYD_NAME(s), "subinterface") == 0)
                    sub = lyd_get_value(s);
            seen.insert({lyd_get_value(leaf), sub});
        }
        ly_set_free(refs, nullptr);
        for (const auto &is : seen) {
            const std::string i = "/openconfig-interfaces:interfaces/interface[name=" + quote(is.first) + "]";
            const std::string s = i + "/subinterfaces/subinterface[index='" + is.second + "']";
            const std::string eth = "iana-if-type:ethernetCsmacd";
            std::vector<std::pair<std::string, std::string>> leaves = {
                {i + "/config/name", is.first}, {i + "/config/type", eth}, {s + "/config/index", is.second}};
            if (state)
                leaves.insert(leaves.end(), {{i + "/state/type", eth}, {i + "/state/admin-status", "UP"},
                                             {i + "/state/oper-status", "UP"}, {s + "/state/admin-status", "UP"},
                                             {s + "/state/oper-status", "UP"}});
            for (const auto &l : leaves)
                if (lyd_new_path(*tree, ctx_, l.first.c_str(), l.second.c_str(), LYD_NEW_PATH_UPDATE, nullptr) !=
                    LY_SUCCESS)
                    return errors();
        }
        return "";
    }

    ly_ctx *ctx_ = nullptr;
    std::string missing_;
};

TEST(PublishedModules, GetAndStateOfEveryNextHopKindValidateAsWholeDocuments)
{
    Published published;
    ASSERT_EQ(published.missing(), "") << "published modules not loaded from " << published_dir();

    char tmpl[] = "/tmp/ocni-published.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl;
    const std::string cli = quote(env("OCNI_BINARY_DIR", ".") + "/tools/ocni-map") + " --store " + quote(dir + "/store") +
                            " --yang-dir " + quote(published_dir()) + " ";
    auto run = [&](const std::string &args, std::string &out, std::string &err) {
        const std::string cmd = cli + args + " >" + quote(dir + "/out") + " 2>" + quote(dir + "/err");
        int raw = std::system(cmd.c_str());
        out = read_file(dir + "/out");
        err = read_file(dir + "/err");
        return WIFEXITED(raw) ? WEXITSTATUS(raw) : 128;
    };
    std::ofstream(dir + "/seed.json") << SEED;
    std::string out, err;
    ASSERT_EQ(run("vrf add red", out, err) + run("native edit " + quote(dir + "/seed.json"), out, err), 0) << err;

    for (bool state : {false, true}) {
        SCOPED_TRACE(state ? "get --state" : "get");
        ASSERT_EQ(run(state ? "get --state" : "get", out, err), 0) << err;
        EXPECT_EQ(err, "");
        for (const char *there : {"\"discard\"", "\"my_idx\"", "\"core-7\"", "\"x=y\"", "\"dup\"",
                                  "\"openconfig-network-instance-types:L3VRF\"", "2001:db8:aaaa:bbbb"})
            EXPECT_NE(out.find(there), std::string::npos) << there;
        EXPECT_EQ(published.validate(out, state), "") << out;
    }
    EXPECT_EQ(std::system(("rm -rf " + quote(dir)).c_str()), 0);
}

} // namespace
