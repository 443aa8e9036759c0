/*
 * Platform services of the reference host: addresses, bounded strings,
 * traces, and the small framework operations with their argument checks.
 */
#include <cstring>
#include <functional>

#include "host/iface_table.h"
#include "host/native_gate.h"
#include "host_fixture.h"
#include "tree_builder.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

TEST(Addresses, GetaddrinfoNeverResolvesNames)
{
    const std::pair<const char *, int> rows[] = { /* family 0: must fail */
        {"10.0.0.1", AF_INET}, {"2001:db8::1", AF_INET6}, {"10.0.0.0/24", 0}, {"localhost", 0}, {"example.invalid", 0}};
    for (const auto &[node, family] : rows) {
        struct addrinfo hints = {};
        struct addrinfo *res = nullptr;
        int rc = getaddrinfo_qz(node, nullptr, &hints, &res);
        EXPECT_EQ(rc == 0, family != 0) << node;
        EXPECT_EQ(res != nullptr ? res->ai_family : 0, family) << node;
        freeaddrinfo_qz(res);
    }
    freeaddrinfo_qz(nullptr);
    const ip_addr_t none = {}; /* no family: no text */
    EXPECT_STREQ(ip_addr_string(&none), "");
}

TEST(BoundedStrings, CutNeverOverflow)
{
    char buf[8];
    memset(buf, 'z', sizeof buf);
    EXPECT_EQ(yfw_strcpy_s("t", buf, 5, "abcdefgh"), 1);
    EXPECT_STREQ(buf, "abcd");
    EXPECT_EQ(buf[5], 'z');
    EXPECT_EQ(yfw_strcpy_s("t", buf, sizeof buf, "abc"), 0);
    EXPECT_EQ(yfw_strcat_s("t", buf, sizeof buf, "defg"), 0);
    EXPECT_STREQ(buf, "abcdefg");
    EXPECT_EQ(yfw_strcat_s("t", buf, sizeof buf, "h"), 1);
    EXPECT_STREQ(buf, "abcdefg");
    EXPECT_EQ(yfw_strncpy_s("t", buf, sizeof buf, "123456", 3), 0);
    EXPECT_STREQ(buf, "123");
    EXPECT_EQ(yfw_strncpy_s("t", buf, sizeof buf, nullptr, 3), 1);
    EXPECT_STREQ(buf, "");
    for (int rc : {yfw_strcpy_s("t", nullptr, 4, "a"), yfw_strcpy_s("t", buf, 0, "a"), yfw_strcat_s("t", nullptr, 4, "a"), yfw_strcat_s("t", buf, 0, "a")})
        EXPECT_EQ(rc, 1) << "a missing or empty destination is refused";
    char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(yfw_strcat_s("t", unterminated, sizeof unterminated, "e"), 1);
    EXPECT_EQ(unterminated[3], '\0');
}

TEST(Trace, LevelsSlotsCutAndResultTexts)
{
    uint32_t state = DEBUG_TRC;
    EXPECT_EQ(yfw_debug_should_log(&state, YFW_LOG_LEVEL_TRC), 1);
    EXPECT_EQ(yfw_debug_should_log(&state, YFW_LOG_LEVEL_ERR), 0);

    LogSink sink;
    uint32_t slot = 0xFFFFFFFFu;
    _wos_dt_log_filter_adv(&sink, 0, 0, 0, 0, 0, &slot, "TRC: YFW: ctx=%p,%s", static_cast<void *>(nullptr), "x");
    _wos_dt_log_filter_adv(&sink, 0, 0, 0, 0, 0, &slot, "%s", std::string(3000, 'y').c_str());
    ASSERT_EQ(sink.size(), 2u);
    EXPECT_EQ(sink.texts()[0], "TRC: YFW: ctx=(nil),x");
    EXPECT_EQ(sink.texts()[1].size(), LOG_LINE_MAX - 1);
    EXPECT_EQ(slot, 2u);

    LogSink lt;
    _lstrace(&lt, YFW_LSTRACE_FLAGS, "#1: TRC: f:1 ctx=0x1,Start");
    ASSERT_EQ(lt.lines().size(), 1u);
    EXPECT_EQ(lt.lines()[0].flags, YFW_LSTRACE_FLAGS);
    LogSink capped(1);
    capped.add("one");
    capped.add("two");
    EXPECT_EQ(capped.texts(), (Lines{"one"}));
    EXPECT_EQ(capped.dropped(), 1u);

    const std::pair<cerrno, std::string> texts[] = {{0, "Success"}, {YFW_RC_MAP_FAILED, "Mapping failed"}, {YFW_RC_INVALID_REQUEST, "Invalid request"},
        {YFW_RC_NODE_EXISTS, "Node already exists"}, {YFW_RC_NO_MEMORY, "Out of memory"}, {YFW_RC_NOT_APPLICABLE, "Not applicable"}, {YFW_RC_NO_COMMON_DATA, "No common data"},
        {SYSDB_RC_NOT_FOUND, "Not found"}, {SYSDB_RC_INVALID_ARG, "Invalid argument"}, {SYSDB_RC_FAILED, "Store failure"}, {0x8081c200u, "Initialisation failed"}, {0x12345678u, "Unknown error"}};
    for (const auto &t : texts) EXPECT_EQ(cerr_strerror(t.first), t.second);
}

class FrameworkOps : public HostFixture {};

TEST_F(FrameworkOps, RequestStateTrimPathDeleteErrorPathAndCleanup)
{
    TreePtr in = build_tree("/a = 1 (delete)\n/l[k=1]/b = 2 (remove)");
    EXPECT_TRUE(yfw_map_is_request_delete(tree_find(in.get(), "/a")));
    EXPECT_FALSE(yfw_map_is_request_delete(tree_find(in.get(), "/l[k=1]/b")));
    /* The error path names the current input node, "" before there is one; its entry is on the input stack. */
    yfw_oc_error_path(h.ctx);
    h.enter(tree_find(in.get(), "/l[k=1]/b"));
    EXPECT_EQ(req_input_depth(h.rc), 1u);
    yfw_oc_error_path(h.ctx);
    EXPECT_EQ(h.error_paths(), (Lines{"", "/l[k=1]/b"}));
    /* The framework frees what the plug-in left on the request, and the texts it set on output nodes. */
    AllocWatch watch;
    h.rc->user_error_msg = yfw_strdup("refused", "YFW MAP");
    h.rc->common_data_ptr = wos_named_calloc_(1, 592, "YFW MAP");
    for (const char *trim : {"/a", "/b"}) /* a copy replaces the one before */
        ASSERT_EQ(yfw_map_copy_trim_path_list_ctx(h.ctx, trim), YFW_RC_OK);
    EXPECT_STREQ(h.rc->trim_path, "/b");
    for (char **text : {&h.out->name, &h.out->value, &h.out->ns, &h.out->data_ns})
        *text = yfw_strdup("x", "YFW MAP");
    EXPECT_EQ(watch.grown(), 7);
    h.reset();
    EXPECT_EQ(watch.grown(), 0);
}

/* Each pointer argument missing in turn, and a context without its request: the exact refusal, nothing touched. */
TEST_F(FrameworkOps, ExportedCallsRefuseMissingArgumentsOneByOne)
{
    const std::string NI = "/network-instances/network-instance", K = NI + "/name";
    TreePtr in = build_tree(NI + "[name=red]/config/name = red");
    zidl_yfw_datatree *ni = tree_find(in.get(), (NI + "[name=red]").c_str()), foreign = {}, *e = nullptr;
    h.enter(tree_find(in.get(), (NI + "[name=red]/config/name").c_str()));
    h.set_vrf("red");
    yfw_map_ctx bare = *h.ctx, foreign_ctx = {}; /* the same context, its request gone; one the host did not make */
    bare.req_ctx = nullptr;
    char *v = nullptr, tok[] = "/a/b", hex[64];
    ip_addr_t a = {};
    imc_if_req_t q = {};
    imc_if_resp_t r = {};
    LogSink sink;
    auto add = [&](yfw_map_ctx *c, zidl_yfw_datatree *o, const char *path) { return yfw_map_datatree_add_path_flagged(c,
        o, path, "urn:t", nullptr, nullptr, nullptr, 0, 0); };
    auto info = [&](yfw_map_ctx *c, const char *l, const char *k, char **out) { return yfw_map_get_node_info(c, l, k, out); };
    const long F = YFW_RC_MAP_FAILED;
    const std::pair<std::function<long()>, long> rows[] = { /* each function's last row: all arguments there */
        {[&] { return add(nullptr, h.out, "/a"); }, F}, {[&] { return add(&bare, h.out, "/a"); }, F},
        {[&] { return add(h.ctx, nullptr, "/a"); }, F},
        {[&] { return add(h.ctx, h.out, nullptr); }, F}, {[&] { return add(h.ctx, &foreign, "/a"); }, F},
        {[&] { return long(tree_size(h.out)); }, 1},
        {[&] { return info(nullptr, NI.c_str(), "name", &v); }, F},
        {[&] { return info(&bare, NI.c_str(), "name", &v); }, F}, {[&] { return info(h.ctx, nullptr, "name", &v); }, F},
        {[&] { return info(h.ctx, NI.c_str(), nullptr, &v); }, F},
        {[&] { return info(h.ctx, NI.c_str(), "name", nullptr); }, F},
        {[&] { return info(h.ctx, NI.c_str(), "name", &v); }, YFW_RC_OK},
        {[&] { return yfw_map_get_list(h.ctx, nullptr, K.c_str(), nullptr, &e); }, F},
        {[&] { return yfw_map_get_list(h.ctx, ni, nullptr, nullptr, &e); }, F},
        {[&] { return yfw_map_get_list(h.ctx, ni, K.c_str(), nullptr, nullptr); }, F},
        {[&] { return yfw_map_get_list(h.ctx, ni, K.c_str(), nullptr, &e); }, YFW_RC_OK},
        {[&] { return yfw_map_get_last_token_from_path(nullptr, &v); }, F},
        {[&] { return yfw_map_get_last_token_from_path(tok, nullptr); }, F},
        {[&] { return yfw_map_get_last_token_from_path(tok, &v); }, YFW_RC_OK},
        {[&] { return yfw_map_copy_trim_path_list_ctx(nullptr, "/a"); }, F},
        {[&] { return yfw_map_copy_trim_path_list_ctx(&bare, "/a"); }, F},
        {[&] { return yfw_map_copy_trim_path_list_ctx(h.ctx, nullptr); }, F},
        {[&] { yfw_map_free_trim_path_list_ctx(nullptr); yfw_map_free_trim_path_list_ctx(&bare); yfw_oc_error_path(nullptr); yfw_oc_error_path(&bare); return long(h.error_paths().size()); }, 0},
        {[&] { return yfw_map_tree_xpath_operations(h.ctx, nullptr); }, F},
        {[&] { return yfw_map_stitch_list_to_list(h.ctx, nullptr); }, F},
        {[&] { return yfw_map_do_these_match(nullptr, "a") + yfw_map_do_these_match("a", nullptr) + yfw_map_is_request_delete(nullptr); }, 0},
        {[&] { return yfw_map_do_these_match("a", "a"); }, 1},
        {[&] { return long(map_ctx_err_sink(nullptr) != nullptr) + (map_ctx_err_sink(&foreign_ctx) != nullptr)
            + (map_ctx_trc_sink(&foreign_ctx) != nullptr) + (map_ctx_ltrace_sink(&foreign_ctx) != nullptr); }, 0},
        {[&] { return long(ymap_oc_ni_get_vrf_name(nullptr) == nullptr) + (ymap_oc_ni_get_vrf_name(&bare) == nullptr)
            + (ymap_oc_ni_get_vrf_name(h.ctx) == nullptr); }, 2},
        {[&] { return qz_inet_pton(QZ_AF_INET, nullptr, &a) + qz_inet_pton(QZ_AF_INET, "10.0.0.1", nullptr); }, 0},
        {[&] { return qz_inet_pton(QZ_AF_INET, "10.0.0.1", &a); }, 1},
        {[&] { return ip_addr2hex_string(nullptr, hex, 9) + ip_addr2hex_string(&a, nullptr, 9) + ip_addr2hex_string(&a, hex, 8); }, -3},
        {[&] { return ip_addr2hex_string(&a, hex, 9); }, 0},
        {[&] { return hex_string2ip_addr(nullptr, &a) + hex_string2ip_addr(hex, nullptr); }, -2},
        {[&] { return hex_string2ip_addr(hex, &a) + strlen(ip_addr_string(nullptr)); }, 0},
        {[&] { return getaddrinfo_qz("10.0.0.1", nullptr, nullptr, nullptr); }, EAI_FAIL},
        {[&] { return yfw_debug_should_log(nullptr, 0) + yfw_debug_should_log(&h.ctx->debug_state, -1) + yfw_debug_should_log(&h.ctx->debug_state, 32); }, 0},
        {[&] { return imc_interface_find(nullptr, 0, nullptr, nullptr, nullptr); }, F},
        {[&] { return imc_interface_find(yfw_ocifmgr_im_conn, 1, nullptr, nullptr, &r); }, F},
        {[&] { return imc_interface_find(yfw_ocifmgr_im_conn, 1, &q, nullptr, nullptr); }, F},
        {[&] { return imc_interface_find(yfw_ocifmgr_im_conn, 0, nullptr, nullptr, nullptr); }, YFW_RC_OK},
        {[&] { _lstrace(nullptr, 0, "x"); _lstrace(&sink, 0, nullptr); _wos_dt_log_filter_adv(&sink, 0, 0, 0, 0, 0,
            nullptr, nullptr); return long(sink.size()) + (yfw_strdup(nullptr, "t") != nullptr); }, 0},
    };
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(rows[i].first(), rows[i].second) << "row " << i;
    EXPECT_STREQ(v, "b");
    EXPECT_EQ(e, ni);
}

/* Keys of the entries being mapped: input stack, then the ancestors table (innermost first), then the current node's parents. */
TEST_F(FrameworkOps, NodeInfoReadsTheKeyOfTheEnclosingEntryOfThatList)
{
    const std::string NI = "/network-instances/network-instance", PR = NI + "/protocols/protocol", ST = PR + "/static-routes/static";
    TreePtr in = build_tree(NI + "[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=1.0.0.0/8]/config/prefix = 1.0.0.0/8");
    const struct { bool ancestors; std::string list; const char *key, *value; } rows[] = { /* else: the current input node's parents */
        {true, NI, "name", "red"}, {true, PR + "/", "name", "DEFAULT"}, {true, PR, "identifier", "STATIC"}, {true, ST, "prefix", nullptr},
        {true, NI, "description", nullptr}, {true, NI + "/config", "name", nullptr}, {false, ST, "prefix", "1.0.0.0/8"},
        {false, NI, "name", "red"}, {false, ST + "/config", "prefix", nullptr}};
    for (const auto &r : rows) {
        h.reset();
        for (const std::string &a : {NI, PR})
            ASSERT_TRUE(!r.ancestors || req_push_ancestor(h.rc, a.c_str(), tree_find(in.get(), a.c_str())));
        req_set_current_input(h.rc, r.ancestors ? nullptr : tree_find(in.get(), (ST + "/config/prefix").c_str()));
        char *v = nullptr;
        EXPECT_EQ(yfw_map_get_node_info(h.ctx, r.list.c_str(), r.key, &v), r.value ? YFW_RC_OK : YFW_RC_MAP_FAILED) << r.list;
        EXPECT_STREQ(v, r.value) << r.list << " " << r.key;
    }
}

} // namespace

/* The gate on values a typed parse would have stopped: a mapping's output gets the same checks. */
TEST(NativeGate, LeavesOutsideTheirTypesAreRefusedNamingThem)
{
    const std::string nh = "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
                           "vrf-prefix[prefix=10.0.0.0][prefix-length=8]/vrf-route/vrf-next-hop-table/"
                           "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.1]/";
    const struct { const char *leaf, *value, *fault; } rows[] = {
        {"metric", "x", "metric \"x\" is not a number from 0 to 4294967295"}, {"load-metric", "4294967296", "is not a number"},
        {"permanent", "yes", "permanent \"yes\" is not true or false"}, {"bfd-fast-detect", "1", "is not true or false"},
        {"object-name", "o]", "contains ']'"}, {"metric", "4294967295", ""}, {"permanent", "false", ""}};
    for (const auto &r : rows) {
        TreePtr t = build_tree(nh + r.leaf + " = " + r.value);
        GateFault f;
        const bool ok = gate_native_tree(tree_find(t.get(), "/router-static"), GateContext{[](const std::string &) { return true; }}, f);
        EXPECT_EQ(ok, r.fault[0] == '\0') << r.leaf;
        EXPECT_NE(f.sentence().find(r.fault), std::string::npos) << f.sentence();
    }
}
