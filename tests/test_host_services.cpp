/*
 * Platform services of the reference host: address conversions, tagged
 * allocation, bounded strings, debug log and lightweight trace, system
 * log, interface manager, request descriptor, and the small framework
 * operations (names, last token, trim path, list lookup).
 */
#include <arpa/inet.h>
#include <cstring>
#include <random>

#include "host/iface_table.h"
#include "host/route_store.h"
#include "host/store.h"
#include "host/store_layout.h"
#include "host_fixture.h"
#include "tree_builder.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

TEST(Addresses, TextHexAndBackOrRefused)
{
    struct Row {
        int af;
        const char *text;
        const char *hex; /* nullptr: the text is refused */
    } rows[] = {
        {QZ_AF_INET, "10.1.0.254", "0a0100fe"},
        {QZ_AF_INET, "0.0.0.0", "00000000"},
        {QZ_AF_INET, "255.255.255.255", "ffffffff"},
        {QZ_AF_INET6, "2001:db8::1", "20010db8000000000000000000000001"},
        {QZ_AF_INET6, "::", "00000000000000000000000000000000"},
        {QZ_AF_INET6, "fe80::a:B:c", "fe800000000000000000000a000b000c"},
        {QZ_AF_INET, "10.0.0.0/24", nullptr},
        {QZ_AF_INET, "2001:db8::1", nullptr},
        {QZ_AF_INET6, "10.0.0.1", nullptr},
        {QZ_AF_INET, "localhost", nullptr},
    };
    for (const Row &r : rows) {
        ip_addr_t a;
        ASSERT_EQ(qz_inet_pton(r.af, r.text, &a), r.hex != nullptr ? 1 : 0) << r.text;
        if (r.hex == nullptr)
            continue;
        char hex[QZ_HEX_ADDR_LEN];
        ASSERT_EQ(ip_addr2hex_string(&a, hex, sizeof hex), 0);
        EXPECT_STREQ(hex, r.hex);
        ip_addr_t back;
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

TEST(Addresses, CanonicalTextAgainstInetNtop)
{
    std::mt19937 rng(1234);
    for (int i = 0; i < 500; ++i) {
        bool v4 = i % 2 == 0;
        ip_addr_t a;
        memset(&a, 0, sizeof a);
        a.af = v4 ? QZ_AF_INET : QZ_AF_INET6;
        for (int b = 0; b < (v4 ? 4 : 16); ++b)
            a.addr[b] = uint8_t(rng() % 4 == 0 ? 0 : rng()); /* zero runs exercise "::" */
        char want[INET6_ADDRSTRLEN];
        ASSERT_NE(inet_ntop(v4 ? AF_INET : AF_INET6, a.addr, want, sizeof want), nullptr);
        EXPECT_STREQ(ip_addr_string(&a), want);
    }
}

TEST(Addresses, GetaddrinfoNeverResolvesNames)
{
    struct Row {
        const char *node;
        int family; /* 0: must fail */
    } rows[] = {{"10.0.0.1", AF_INET}, {"2001:db8::1", AF_INET6}, {"10.0.0.0/24", 0}, {"localhost", 0},
                {"example.invalid", 0}};
    for (const Row &r : rows) {
        struct addrinfo hints;
        memset(&hints, 0, sizeof hints);
        struct addrinfo *res = nullptr;
        int rc = getaddrinfo_qz(r.node, nullptr, &hints, &res);
        if (r.family == 0) {
            EXPECT_NE(rc, 0) << r.node;
            EXPECT_EQ(res, nullptr);
        } else {
            ASSERT_EQ(rc, 0) << r.node;
            EXPECT_EQ(res->ai_family, r.family);
        }
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
    ASSERT_NE(a, nullptr);
    ASSERT_NE(s, nullptr);
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

TEST(Allocation, RefusalOnDemand)
{
    alloc_fail_nth("TEST refuse", 2);
    void *first = wos_named_calloc_(1, 1, "TEST refuse");
    void *other = wos_named_calloc_(1, 1, "TEST other tag");
    void *second = wos_named_calloc_(1, 1, "TEST refuse");
    void *third = wos_named_calloc_(1, 1, "TEST refuse");
    EXPECT_NE(first, nullptr);
    EXPECT_NE(other, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_NE(third, nullptr);
    wos_named_free(first);
    wos_named_free(other);
    wos_named_free(third);
    EXPECT_EQ(alloc_live("TEST refuse"), 0u);
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

TEST(Trace, LevelsSlotsSequenceAndCut)
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
    uint32_t b = ret_nc_yfw_trace_index_incr();
    EXPECT_EQ(b, a + 1);
    EXPECT_EQ(trace_index_peek(), b);
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
}

TEST(Trace, ResultTextsAndSystemLog)
{
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
    imc_if_req_t req[2];
    memset(req, 0, sizeof req);
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

TEST_F(FrameworkOps, NamesMatchExactlyAndNullNeverMatches)
{
    EXPECT_TRUE(yfw_map_do_these_match("/network-instances", "/network-instances"));
    EXPECT_FALSE(yfw_map_do_these_match("/network-instances", "/network-instances/"));
    EXPECT_FALSE(yfw_map_do_these_match("Config", "config"));
    EXPECT_FALSE(yfw_map_do_these_match(nullptr, "a"));
    EXPECT_FALSE(yfw_map_do_these_match(nullptr, nullptr));
}

TEST_F(FrameworkOps, LastTokenOfAPath)
{
    struct Row {
        const char *path;
        const char *token;
    } rows[] = {{"/a/b/c", "c"}, {"c", "c"}, {"/a/b/", "b"}, {"/", ""}, {"", ""}};
    for (const Row &r : rows) {
        char buf[32];
        strcpy(buf, r.path);
        char *tok = nullptr;
        ASSERT_EQ(yfw_map_get_last_token_from_path(buf, &tok), YFW_RC_OK) << r.path;
        EXPECT_STREQ(tok, r.token) << r.path;
    }
    char *tok = nullptr;
    EXPECT_EQ(yfw_map_get_last_token_from_path(nullptr, &tok), YFW_RC_MAP_FAILED);
}

TEST_F(FrameworkOps, TrimPathCopiesAreTaggedAndReplaced)
{
    size_t base = alloc_live("YFW MAP trim list ctx");
    ASSERT_EQ(yfw_map_copy_trim_path_list_ctx(h.ctx, "/a"), YFW_RC_OK);
    ASSERT_EQ(yfw_map_copy_trim_path_list_ctx(h.ctx, "/b"), YFW_RC_OK);
    EXPECT_STREQ(h.rc->trim_path, "/b");
    EXPECT_EQ(alloc_live("YFW MAP trim list ctx"), base + 1);
    yfw_map_free_trim_path_list_ctx(h.ctx);
    EXPECT_EQ(h.rc->trim_path, nullptr);
    EXPECT_EQ(alloc_live("YFW MAP trim list ctx"), base);
    EXPECT_EQ(yfw_map_copy_trim_path_list_ctx(h.ctx, nullptr), YFW_RC_MAP_FAILED);
}

TEST_F(FrameworkOps, RequestStateVrfDeleteAndCleanup)
{
    EXPECT_EQ(ymap_oc_ni_get_vrf_name(h.ctx), nullptr);
    h.set_vrf("red");
    EXPECT_STREQ(ymap_oc_ni_get_vrf_name(h.ctx), "red");
    h.set_vrf(nullptr);
    EXPECT_EQ(ymap_oc_ni_get_vrf_name(h.ctx), nullptr);

    TreePtr in = build_tree("/a = 1 (delete)\n/b = 2 (remove)\n/c = 3");
    EXPECT_TRUE(yfw_map_is_request_delete(tree_find(in.get(), "/a")));
    EXPECT_FALSE(yfw_map_is_request_delete(tree_find(in.get(), "/b")));
    EXPECT_FALSE(yfw_map_is_request_delete(tree_find(in.get(), "/c")));
    EXPECT_FALSE(yfw_map_is_request_delete(nullptr));

    /* The framework frees what the plug-in left on the request. */
    AllocWatch watch;
    h.rc->user_error_msg = yfw_strdup("refused", "YFW MAP");
    h.rc->common_data_ptr = wos_named_calloc_(1, 592, "YFW MAP");
    h.rc->trim_path = yfw_strdup("/a", "YFW MAP trim list ctx");
    EXPECT_EQ(h.user_msg(), "refused");
    EXPECT_EQ(watch.grown(), 3);
    h.reset();
    EXPECT_EQ(watch.grown(), 0);
}

TEST_F(FrameworkOps, ErrorPathNamesTheCurrentInputNode)
{
    TreePtr in = build_tree("/network-instances/network-instance[name=red]/config/name = red");
    yfw_oc_error_path(h.ctx);
    h.enter(tree_find(in.get(), "/network-instances/network-instance[name=red]/config/name"));
    yfw_oc_error_path(h.ctx);
    EXPECT_EQ(h.error_paths(), (Lines{"", "/network-instances/network-instance[name=red]/config/name"}));
    yfw_oc_error_path(nullptr);
}

TEST_F(FrameworkOps, GetListFindsTheEntryAtOrBelowANode)
{
    TreePtr in = build_tree(R"(
        /router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.0.0.0][prefix-length=8]/prefix-length = 8
    )");
    const std::string list = "/router-static/vrfs/vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix";
    zidl_yfw_datatree *vrf = tree_find(in.get(), "/router-static/vrfs/vrf[vrf-name=red]");
    zidl_yfw_datatree *leaf = tree_find(in.get(),
        "/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix[prefix=10.0.0.0][prefix-length=8]/prefix-length");
    zidl_yfw_datatree *entry = nullptr;
    ASSERT_EQ(yfw_map_get_list(h.ctx, vrf, (list + "/prefix").c_str(), nullptr, &entry), YFW_RC_OK);
    EXPECT_STREQ(entry->name, "vrf-prefix");
    ASSERT_EQ(yfw_map_get_list(h.ctx, leaf, (list + "/prefix").c_str(), nullptr, &entry), YFW_RC_OK);
    EXPECT_STREQ(entry->name, "vrf-prefix");
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

TEST(Trees, HandlesOutliveSiblingAdditionsAndDieWithTheTree)
{
    zidl_yfw_datatree *root = tree_new();
    zidl_yfw_datatree *first = node_add_child(root, "a", NodeKind::Leaf, "1");
    NodeRef ref = node_ref(first);
    for (int i = 0; i < 100; ++i)
        node_add_child(root, "b", NodeKind::Leaf, "2");
    ASSERT_NE(node_get(ref), nullptr);
    EXPECT_STREQ(node_get(ref)->value, "1");
    EXPECT_EQ(node_parent(node_get(ref)), root);
    EXPECT_EQ(root->children[root->n_children].name, nullptr); /* a NULL name ends every array */
    tree_free(root);
    EXPECT_EQ(node_get(ref), nullptr);
}

TEST(Trees, KeylessStepsFindTheOldestEntryWithoutScanning)
{
    TreePtr t = build_tree("/routes");
    zidl_yfw_datatree *routes = tree_find(t.get(), "/routes");
    for (int i = 0; i < 1000; ++i) /* siblings a scan would have to pass */
        node_add_entry(routes, "other", {{"id", std::to_string(i)}});
    for (int i = 0; i < 3; ++i)
        node_add_entry(routes, "static", {{"prefix", std::to_string(i)}});
    node_add_child(routes, "box", NodeKind::Leaf, "b");
    uint64_t before = tree_sibling_visits();
    for (int i = 0; i < 1000; ++i) {
        zidl_yfw_datatree *first = tree_find(t.get(), "/routes/static/prefix");
        ASSERT_NE(first, nullptr);
        ASSERT_STREQ(first->value, "0");
        ASSERT_NE(tree_find(t.get(), "/routes/box"), nullptr);
    }
    EXPECT_LT(tree_sibling_visits() - before, 10u * 1000);
    EXPECT_EQ(tree_find(t.get(), "/routes/nothing"), nullptr);
}

TEST(Trees, NamesGivenThroughAReusedBufferKeepTheirOwnText)
{
    /* A caller formats every name into the same buffer, as the plug-in does with its paths. */
    zidl_yfw_datatree *root = tree_new();
    char name[32], ns[32];
    const char *texts[] = {"alpha", "omega", "alpha", "gamma", "gammas"};
    for (const char *t : texts) {
        snprintf(name, sizeof name, "%s", t);
        snprintf(ns, sizeof ns, "urn:%s", t);
        ASSERT_NE(node_add_child(root, name, NodeKind::Leaf, t, ns), nullptr);
    }
    ASSERT_EQ(root->n_children, 5u);
    for (uint32_t i = 0; i < 5; ++i) {
        EXPECT_STREQ(root->children[i].name, texts[i]);
        EXPECT_STREQ(root->children[i].ns, (std::string("urn:") + texts[i]).c_str());
        EXPECT_STREQ(root->children[i].value, texts[i]);
    }
    tree_free(root);
}

TEST(Trees, LeafValuesSurviveRewritesOfAnyLength)
{
    TreePtr t = build_tree("/c/leaf = medium-value");
    zidl_yfw_datatree *leaf = tree_find(t.get(), "/c/leaf");
    for (const char *v : {"short", "a-much-longer-value-than-before", "", "x", "medium-value"}) {
        ASSERT_TRUE(node_set_value(leaf, v));
        EXPECT_STREQ(leaf->value, v);
    }
    ASSERT_TRUE(node_set_value(leaf, nullptr));
    EXPECT_EQ(leaf->value, nullptr);
    EXPECT_EQ(leaf->flags & YFW_DT_F_VALUE, 0);
}

/* Siblings sharing keys are found oldest first, also after re-keying, with and without a sibling index. */
TEST(Trees, EntriesSharingKeysAreFoundOldestFirstAcrossRekeys)
{
    for (int fillers : {0, 20}) {
        SCOPED_TRACE(fillers);
        TreePtr t = build_tree("/routes");
        zidl_yfw_datatree *routes = tree_find(t.get(), "/routes");
        for (int i = 0; i < fillers; ++i)
            node_add_entry(routes, "other", {{"id", std::to_string(i)}});
        /* Three entries with prefix 1, each first added with keys of its own. */
        std::vector<NodeRef> e;
        for (const char *k : {"a", "b", "c"})
            e.push_back(node_ref(node_add_entry(routes, "static", {{"prefix", k}})));
        auto key_leaf = [&](int i) { return node_child(node_get(e[i]), "prefix"); };
        for (int i : {2, 0, 1}) /* re-keyed out of sibling order */
            ASSERT_TRUE(node_set_value(key_leaf(i), "1"));
        auto found = [&] { return node_find_entry(routes, "static", {{"prefix", "1"}}); };
        EXPECT_EQ(found(), node_get(e[0]));
        ASSERT_TRUE(node_set_value(key_leaf(0), "9"));
        EXPECT_EQ(found(), node_get(e[1]));
        EXPECT_EQ(node_find_entry(routes, "static", {{"prefix", "9"}}), node_get(e[0]));
        ASSERT_TRUE(node_set_value(key_leaf(1), "9"));
        EXPECT_EQ(found(), node_get(e[2]));
        EXPECT_EQ(node_find_entry(routes, "static", {{"prefix", "9"}}), node_get(e[0]));
        ASSERT_TRUE(node_set_value(key_leaf(0), "1"));
        EXPECT_EQ(found(), node_get(e[0]));
        EXPECT_EQ(node_find_entry(routes, "static", {{"prefix", "9"}}), node_get(e[1]));
        EXPECT_EQ(node_child(routes, "static"), node_get(e[0])); /* oldest of the list, whatever its keys */
    }
}

/* Arrays one parent outgrew are handed to others: each parent keeps its own children, cleanly ended. */
TEST(Trees, OutgrownChildArraysServeOtherParentsIntact)
{
    TreePtr t = build_tree("/a\n/b\n/c");
    const std::vector<NodeRef> parents = {node_ref(tree_find(t.get(), "/a")), node_ref(tree_find(t.get(), "/b")),
                                          node_ref(tree_find(t.get(), "/c"))};
    const uint32_t counts[] = {12, 3, 7};
    /* Interleaved growth: a passes 2, 4 and 8 slots while b and c pick up the arrays it leaves. */
    for (uint32_t round = 0; round < 12; ++round) {
        for (size_t p = 0; p < parents.size(); ++p) {
            if (round >= counts[p])
                continue;
            const std::string value = std::to_string(p) + "." + std::to_string(round);
            ASSERT_NE(node_add_child(node_get(parents[p]), "n", NodeKind::Leaf, value.c_str()), nullptr);
            const zidl_yfw_datatree *n = node_get(parents[p]);
            ASSERT_EQ(n->children[n->n_children].name, nullptr) << "after " << value; /* always ended */
        }
    }
    for (size_t p = 0; p < parents.size(); ++p) {
        const zidl_yfw_datatree *n = node_get(parents[p]);
        ASSERT_EQ(n->n_children, counts[p]);
        for (uint32_t i = 0; i < counts[p]; ++i)
            EXPECT_EQ(std::string(n->children[i].value), std::to_string(p) + "." + std::to_string(i));
        EXPECT_EQ(n->children[counts[p]].name, nullptr); /* the spare slot is zeroed */
        EXPECT_EQ(n->children[counts[p]].fw, nullptr);
    }
}

TEST(Trees, DataNamespaceReplacedByAPluginIsFreedWithTheTree)
{
    zidl_yfw_datatree *root = tree_new();
    zidl_yfw_datatree *leaf = node_add_child(root, "identifier", NodeKind::Leaf, "STATIC");
    ASSERT_TRUE(node_set_data_ns(leaf, "urn:host"));
    size_t base = alloc_live("TEST NS");
    leaf->data_ns = yfw_strdup("urn:plugin", "TEST NS"); /* as a plug-in replaces it */
    tree_free(root);
    EXPECT_EQ(alloc_live("TEST NS"), base);
}


/* Every part of a stored next hop's key comes back as it was written. */
TEST(StoreLayout, NextHopKeyPartsRoundTrip)
{
    store_reset();
    NativeNextHop n;
    n.prefix = "10.0.0.0";
    n.prefix_length = 8;
    n.interface = "Gi0/0/0/1";
    n.address = "10.0.0.1";
    n.third = "x";
    n.index = "1";
    ASSERT_EQ(store_write_next_hop(n), 0u);
    std::vector<NativeNextHop> all;
    ASSERT_EQ(store_all_next_hops(all), 0u);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].interface + "," + all[0].address + "," + all[0].third + "," + all[0].fourth + "," + all[0].index,
              "Gi0/0/0/1,10.0.0.1,x,,1");
    store_reset();
}


/* Nodes the host did not build are searched child by child; a path parse starts from no steps. */
TEST(Trees, HandMadeNodesAndReusedStepLists)
{
    char a[] = "a", b[] = "b";
    zidl_yfw_datatree kids[2] = {};
    kids[0].name = a;
    kids[1].name = b;
    zidl_yfw_datatree parent = {};
    parent.children = kids;
    parent.n_children = 2;
    EXPECT_EQ(node_child(&parent, "b"), &kids[1]);
    EXPECT_EQ(node_child(&parent, "c"), nullptr);

    std::vector<PathStep> steps;
    ASSERT_TRUE(parse_instance_path("/x/y[k=1]", steps));
    ASSERT_TRUE(parse_instance_path("/z", steps));
    ASSERT_EQ(steps.size(), 1u);
    EXPECT_EQ(steps[0].name, "z");
}

} // namespace

/* The records' check value is the standard CRC-32C: a store written here reads anywhere. */
TEST(StoreLayout, RecordCheckValueIsCrc32c)
{
    const std::string nine = "123456789";
    EXPECT_EQ(ocni::host::crc32c(reinterpret_cast<const unsigned char *>(nine.data()), nine.size()), 0xE3069283u);
    EXPECT_EQ(ocni::host::crc32c(nullptr, 0), 0u);
}
