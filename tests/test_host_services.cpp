/*
 * Platform services of the reference host: address conversions, tagged
 * allocation, bounded strings, debug log and lightweight trace, system
 * log, interface manager, and the small framework operations (names, last
 * token, trim path, request state, error path, list lookup).
 */
#include <cstring>

#include "host/iface_table.h"
#include "host_fixture.h"
#include "tree_builder.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

TEST(Addresses, TextHexAndBackOrRefused)
{
    struct Row {
        int af;
        const char *text, *hex; /* hex nullptr: the text is refused */
    } rows[] = {
        {QZ_AF_INET, "10.1.0.254", "0a0100fe"},  {QZ_AF_INET, "0.0.0.0", "00000000"},
        {QZ_AF_INET, "255.255.255.255", "ffffffff"},
        {QZ_AF_INET6, "2001:db8::1", "20010db8000000000000000000000001"},
        {QZ_AF_INET6, "::", "00000000000000000000000000000000"},
        {QZ_AF_INET6, "fe80::a:B:c", "fe800000000000000000000a000b000c"},
        {QZ_AF_INET, "10.0.0.0/24", nullptr},    {QZ_AF_INET, "2001:db8::1", nullptr},
        {QZ_AF_INET6, "10.0.0.1", nullptr},      {QZ_AF_INET, "localhost", nullptr},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.text);
        ip_addr_t a, back;
        ASSERT_EQ(qz_inet_pton(r.af, r.text, &a), r.hex != nullptr ? 1 : 0);
        if (r.hex == nullptr)
            continue;
        char hex[QZ_HEX_ADDR_LEN];
        ASSERT_EQ(ip_addr2hex_string(&a, hex, sizeof hex), 0);
        EXPECT_STREQ(hex, r.hex);
        ASSERT_EQ(hex_string2ip_addr(hex, &back), 0);
        EXPECT_EQ(back.af, uint32_t(r.af));
        EXPECT_EQ(memcmp(back.addr, a.addr, sizeof a.addr), 0);
    }
    ip_addr_t a;
    EXPECT_EQ(qz_inet_pton(7, "10.0.0.1", &a), -1);
    ASSERT_EQ(qz_inet_pton(QZ_AF_INET6, "2001:db8::1", &a), 1);
    char small[32];
    EXPECT_NE(ip_addr2hex_string(&a, small, sizeof small), 0); /* 32 digits need 33 bytes */
    EXPECT_NE(hex_string2ip_addr("0a01", &a), 0);
    EXPECT_NE(hex_string2ip_addr("0a0100fg", &a), 0);

}

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
}

TEST(Allocation, LiveCountsPerTag)
{
    const std::string tag = "TEST live counts";
    size_t base = alloc_live(tag);
    void *a = wos_named_calloc_(4, 8, tag.c_str());
    char *s = yfw_strdup("text", tag.c_str());
    ASSERT_TRUE(a != nullptr && s != nullptr);
    EXPECT_EQ(static_cast<unsigned char *>(a)[31], 0);
    EXPECT_EQ(alloc_live(tag), base + 2);
    EXPECT_EQ(alloc_tag_of(s), tag);
    wos_named_free(a);
    wos_named_free(s);
    EXPECT_EQ(alloc_live(tag), base);
    wos_named_free(nullptr);
    wos_named_free(malloc(10)); /* plain blocks are accepted */
    EXPECT_EQ(yfw_strdup(nullptr, tag.c_str()), nullptr);
    EXPECT_EQ(wos_named_calloc_(SIZE_MAX / 2, 4, tag.c_str()), nullptr);
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
    EXPECT_EQ(yfw_strcpy_s("t", nullptr, 4, "a"), 1);
    EXPECT_EQ(yfw_strcpy_s("t", buf, 0, "a"), 1);
    char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(yfw_strcat_s("t", unterminated, sizeof unterminated, "e"), 1);
    EXPECT_EQ(unterminated[3], '\0');
}

TEST(Trace, LevelsSlotsSequenceCutResultTextsAndSystemLog)
{
    uint32_t state = DEBUG_TRC;
    EXPECT_EQ(yfw_debug_should_log(&state, YFW_LOG_LEVEL_TRC), 1);
    EXPECT_EQ(yfw_debug_should_log(&state, YFW_LOG_LEVEL_ERR), 0);
    EXPECT_EQ(yfw_debug_should_log(nullptr, YFW_LOG_LEVEL_ERR), 0);
    EXPECT_EQ(yfw_debug_should_log(&state, 40), 0);

    LogSink sink;
    uint32_t slot = 0xFFFFFFFFu;
    _wos_dt_log_filter_adv(&sink, 0, 0, 0, 0, 0, &slot, "TRC: YFW: ctx=%p,%s", static_cast<void *>(nullptr), "x");
    _wos_dt_log_filter_adv(&sink, 0, 0, 0, 0, 0, &slot, "%s", std::string(3000, 'y').c_str());
    ASSERT_EQ(sink.size(), 2u);
    EXPECT_EQ(sink.texts()[0], "TRC: YFW: ctx=(nil),x");
    EXPECT_EQ(sink.texts()[1].size(), LOG_LINE_MAX - 1);
    EXPECT_EQ(slot, 2u);

    uint32_t a = ret_nc_yfw_trace_index_incr();
    EXPECT_EQ(ret_nc_yfw_trace_index_incr(), a + 1);
    EXPECT_EQ(trace_index_peek(), a + 1);
    LogSink lt;
    _lstrace(&lt, YFW_LSTRACE_FLAGS, "#1: TRC: f:1 ctx=0x1,Start");
    _lstrace(nullptr, YFW_LSTRACE_FLAGS, "dropped");
    ASSERT_EQ(lt.lines().size(), 1u);
    EXPECT_EQ(lt.lines()[0].flags, YFW_LSTRACE_FLAGS);
    EXPECT_EQ(merged_texts({&sink, &lt}).back(), "#1: TRC: f:1 ctx=0x1,Start");
    LogSink capped(1);
    capped.add("one");
    capped.add("two");
    EXPECT_EQ(capped.texts(), (Lines{"one"}));
    EXPECT_EQ(capped.dropped(), 1u);

    EXPECT_STREQ(cerr_strerror(0), "Success");
    EXPECT_STREQ(cerr_strerror(SYSDB_RC_NOT_FOUND), "Not found");
    EXPECT_STREQ(cerr_strerror(0x12345678u), "Unknown error");
    syslog_clear();
    qz_syslog(3, "\nIM_FIND failed for interface %s", "Gi0/0/0/9");
    EXPECT_EQ(syslog_lines(), (Lines{"3:\nIM_FIND failed for interface Gi0/0/0/9"}));
    syslog_clear();
}

TEST(InterfaceManager, FindsWhatTheTableHolds)
{
    imc_clear();
    imc_add_interface("GigabitEthernet0/0/0/1", 7);
    imc_if_req_t req[2] = {};
    strcpy(req[0].name, "GigabitEthernet0/0/0/1");
    strcpy(req[1].name, "GigabitEthernet0/0/0/2");
    imc_if_resp_t resp[2];
    ASSERT_EQ(imc_interface_find(yfw_ocifmgr_im_conn, 2, req, nullptr, resp), YFW_RC_OK);
    EXPECT_EQ(resp[0].status, 0);
    EXPECT_EQ(resp[0].ifindex, 7u);
    EXPECT_NE(resp[1].status, 0);
    imc_fail_calls(YFW_RC_MAP_FAILED);
    EXPECT_EQ(imc_interface_find(yfw_ocifmgr_im_conn, 1, req, nullptr, resp), YFW_RC_MAP_FAILED);
    EXPECT_EQ(imc_interface_find(nullptr, 1, req, nullptr, resp), YFW_RC_MAP_FAILED);
    EXPECT_EQ(imc_call_count(), 2u);
    imc_clear();
}

class FrameworkOps : public HostFixture {};

TEST_F(FrameworkOps, NamesMatchExactlyAndLastTokenOfAPath)
{
    EXPECT_TRUE(yfw_map_do_these_match("/network-instances", "/network-instances"));
    EXPECT_FALSE(yfw_map_do_these_match("/network-instances", "/network-instances/"));
    EXPECT_FALSE(yfw_map_do_these_match("Config", "config"));
    EXPECT_FALSE(yfw_map_do_these_match(nullptr, "a"));
    EXPECT_FALSE(yfw_map_do_these_match(nullptr, nullptr));
    const std::pair<const char *, const char *> rows[] = {{"/a/b/c", "c"}, {"c", "c"}, {"/a/b/", "b"}, {"/", ""}, {"", ""}};
    for (const auto &[path, token] : rows) {
        char buf[32];
        strcpy(buf, path);
        char *tok = nullptr;
        ASSERT_EQ(yfw_map_get_last_token_from_path(buf, &tok), YFW_RC_OK) << path;
        EXPECT_STREQ(tok, token) << path;
    }
    char *tok = nullptr;
    EXPECT_EQ(yfw_map_get_last_token_from_path(nullptr, &tok), YFW_RC_MAP_FAILED);
}

TEST_F(FrameworkOps, RequestStateTrimPathDeleteErrorPathAndCleanup)
{
    const char *tag = "YFW MAP trim list ctx";
    size_t base = alloc_live(tag);
    ASSERT_EQ(yfw_map_copy_trim_path_list_ctx(h.ctx, "/a"), YFW_RC_OK);
    ASSERT_EQ(yfw_map_copy_trim_path_list_ctx(h.ctx, "/b"), YFW_RC_OK);
    EXPECT_STREQ(h.rc->trim_path, "/b");
    EXPECT_EQ(alloc_live(tag), base + 1);
    yfw_map_free_trim_path_list_ctx(h.ctx);
    EXPECT_EQ(h.rc->trim_path, nullptr);
    EXPECT_EQ(alloc_live(tag), base);
    EXPECT_EQ(yfw_map_copy_trim_path_list_ctx(h.ctx, nullptr), YFW_RC_MAP_FAILED);

    TreePtr in = build_tree("/a = 1 (delete)\n/b = 2 (remove)");
    EXPECT_TRUE(yfw_map_is_request_delete(tree_find(in.get(), "/a")));
    EXPECT_FALSE(yfw_map_is_request_delete(tree_find(in.get(), "/b")));
    EXPECT_FALSE(yfw_map_is_request_delete(nullptr));
    /* The error path names the current input node, "" before there is one. */
    yfw_oc_error_path(h.ctx);
    h.enter(tree_find(in.get(), "/b"));
    yfw_oc_error_path(h.ctx);
    yfw_oc_error_path(nullptr);
    EXPECT_EQ(h.error_paths(), (Lines{"", "/b"}));
    /* The framework frees what the plug-in left on the request. */
    AllocWatch watch;
    h.rc->user_error_msg = yfw_strdup("refused", "YFW MAP");
    h.rc->common_data_ptr = wos_named_calloc_(1, 592, "YFW MAP");
    h.rc->trim_path = yfw_strdup("/a", tag);
    EXPECT_EQ(h.user_msg(), "refused");
    EXPECT_EQ(watch.grown(), 3);
    h.reset();
    EXPECT_EQ(watch.grown(), 0);
}

TEST_F(FrameworkOps, GetListFindsTheEntryAtOrBelowANode)
{
    const std::string pfx = "/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
                            "vrf-prefix[prefix=10.0.0.0][prefix-length=8]";
    TreePtr in = build_tree(pfx + "/prefix-length = 8");
    const std::string list = "/router-static/vrfs/vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix/prefix";
    zidl_yfw_datatree *vrf = tree_find(in.get(), "/router-static/vrfs/vrf[vrf-name=red]");
    zidl_yfw_datatree *leaf = tree_find(in.get(), (pfx + "/prefix-length").c_str());
    zidl_yfw_datatree *entry = nullptr;
    for (zidl_yfw_datatree *from : {vrf, leaf}) {
        ASSERT_EQ(yfw_map_get_list(h.ctx, from, list.c_str(), nullptr, &entry), YFW_RC_OK);
        EXPECT_EQ(entry, tree_find(in.get(), pfx.c_str()));
    }
    ASSERT_EQ(yfw_map_get_list(h.ctx, leaf, "/router-static/vrfs/vrf/vrf-name", nullptr, &entry), YFW_RC_OK);
    EXPECT_EQ(entry, vrf);
    EXPECT_EQ(yfw_map_get_list(h.ctx, vrf, "/other/list/key", nullptr, &entry), YFW_RC_MAP_FAILED);
    EXPECT_EQ(entry, nullptr);
    /* A top-level list: two steps, the list and its key. */
    TreePtr top = build_tree("/widget[id=1]/colour = red");
    list_keys_register("widget", {"id"});
    ASSERT_EQ(yfw_map_get_list(h.ctx, tree_find(top.get(), "/widget[id=1]/colour"), "/widget/id", nullptr, &entry),
              YFW_RC_OK);
    EXPECT_EQ(entry, tree_find(top.get(), "/widget[id=1]"));
    EXPECT_EQ(yfw_map_get_list(h.ctx, vrf, "/id", nullptr, &entry), YFW_RC_MAP_FAILED);
}

} // namespace
