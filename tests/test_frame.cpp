/*
 * The frame every callback runs: context assertion, start and end lines,
 * argument refusals, the lightweight trace, and the read-path rule.
 */
#define OCNI_SRC_FILE "tests/test_frame"
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <regex>
#include <set>
#include <string>

#include "host/context.h"
#include "host/registration.h"
#include "host_fixture.h"
#include "tree_builder.h"
#include "ymap_ocni_openconfig_local_routing_man.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"
#include "ymap_ocni_velmar_orn_qz_ip_static_cfg_man.h"

using namespace ocni::test;

namespace {

#define OCNI_TEST_MEMBER_ROW(n) {#n, n},
const struct Member {
    const char *name;
    LeafCb cb;
} FWD_MEMBERS[] = {OCNI_FWD_STATE_MEMBERS(OCNI_TEST_MEMBER_ROW)};

const char STATE_LEAF[] =
    "/network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC][name=DEFAULT]"
    "/static-routes/static[prefix=10.0.0.0/24]/state/prefix";

/* "#<seq>: <KIND>: <fn>:<line> ctx=<ctx>,<msg>" split into its parts. */
struct LtLine {
    unsigned long seq = 0;
    int line = 0;
    std::string kind, fn, ctx, msg;
};

LtLine parse_lt(const std::string &s)
{
    static const std::regex re("#([0-9]+): ([A-Z]+): ([^:]*):([0-9]+) ctx=([^,]*),(.*)");
    std::smatch m;
    if (!std::regex_match(s, m, re))
        return LtLine{};
    return LtLine{std::stoul(m[1]), std::stoi(m[4]), m[2], m[3], m[5], m[6]};
}

/* The bound callbacks, and the set-tag leaf's second half, which the plug-in calls itself. */
std::vector<ocni::host::Binding> framed_callbacks()
{
    std::vector<ocni::host::Binding> all = ocni::host::registration_table();
    for (const ocni::host::Binding &b : ocni::host::registration_table())
        if (b.callback == "ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_settag") {
            all.push_back(b);
            all.back().callback = "ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_settag_v2";
            break;
        }
    return all;
}

class FrameTest : public HostFixture {
protected:
    void SetUp() override { set_input(""); }
    void set_input(const char *op) { input_ = build_tree(std::string(STATE_LEAF) + " = 10.0.0.0/24" + op); }
    zidl_yfw_datatree *leaf() const { return ocni::host::tree_find(input_.get(), STATE_LEAF); }

    TreePtr input_;
};

/* Every request kind, and a delete: Start and End on both channels, one shared sequence, nothing mapped. */
TEST_F(FrameTest, ForwardStateCallbacksTraceStartAndEndAndAddNothing)
{
    const std::pair<uint32_t, const char *> kinds[] = {
        {YFW_REQ_READ, ""}, {YFW_REQ_READ_STATE, ""}, {YFW_REQ_EDIT, ""}, {YFW_REQ_EDIT, " (delete)"}};
    unsigned long last_seq = 0;
    for (const Member &m : FWD_MEMBERS) {
        for (const auto &k : kinds) {
            SCOPED_TRACE(std::string(m.name) + " kind " + std::to_string(k.first) + k.second);
            set_input(k.second);
            h.reset(k.first);
            h.logging(true, true);
            h.ltrace(true);
            ASSERT_EQ(h.call(m.cb, leaf()), 0u);

            const std::string p = h.ctx_text();
            EXPECT_EQ(h.log_lines(), (Lines{"TRC: YFW: ctx=" + p + ",Start", "TRC: YFW: ctx=" + p + ",End"}));
            const Lines lt = h.ltrace_lines();
            ASSERT_EQ(lt.size(), 2u);
            const LtLine start = parse_lt(lt[0]), end = parse_lt(lt[1]);
            EXPECT_EQ(start.kind + start.fn + start.ctx + start.msg, "TRC" + std::string(m.name) + p + "Start") << lt[0];
            EXPECT_EQ(end.kind + end.fn + end.ctx + end.msg, "TRC" + std::string(m.name) + p + "End") << lt[1];
            EXPECT_EQ(end.seq, start.seq + 1);
            EXPECT_TRUE(last_seq == 0 || start.seq == last_seq + 1) << "the counter runs on across requests";
            last_seq = end.seq;
            EXPECT_LT(start.line, end.line) << "each line names its own source line";

            EXPECT_TRUE(h.out_lines().empty());
            EXPECT_TRUE(h.error_paths().empty());
        }
    }
}

TEST_F(FrameTest, EachChannelWritesOnlyWhenSwitchedOn)
{
    struct Row {
        bool err, trc, lt, bad;
        Lines log; /* "%p" of the context written as "@" */
        size_t lt_lines;
    } rows[] = {
        {false, false, false, false, {}, 0},
        {false, false, false, true, {}, 0},
        {true, false, false, false, {}, 0},
        {true, false, false, true, {"ERR: YFW: ctx=@,Invalid arguments passed!"}, 0},
        {false, true, false, true, {"TRC: YFW: ctx=@,Start"}, 0},
        {false, false, true, true, {}, 2},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(testing::Message() << r.err << r.trc << r.lt << " bad " << r.bad);
        h.reset(YFW_REQ_READ);
        h.logging(r.err, r.trc);
        h.ltrace(r.lt);
        h.enter(leaf());
        EXPECT_EQ(FWD_MEMBERS[0].cb(h.ctx, leaf(), r.bad ? nullptr : h.out), r.bad ? YFW_RC_MAP_FAILED : 0u);
        Lines want = r.log;
        for (std::string &l : want)
            l.replace(l.find('@'), 1, h.ctx_text());
        EXPECT_EQ(h.log_lines(), want);
        EXPECT_EQ(h.ltrace_lines().size(), r.lt_lines);
    }
}

/* Every callback the framework calls refuses a missing input or output the same way. */
TEST_F(FrameTest, MissingArgumentIsRefusedWithErrorPathAndNoEndLine)
{
    using ocni::host::CallbackKind;
    /* The static key leaf needs only the output: an entry without key stands for all routes. */
    const std::string needs_only_out = "ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_static_prefix";
    /* The native prefix list entries rebuild the entry from the VRF and check nothing. */
    const std::set<std::string> unchecked = {
        "ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvle_routerstatic_vrfprefixes_vrfprefix",
        "ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlg_routerstatic_vrfprefixes_vrfprefix"};
    size_t checked = 0;
    for (const ocni::host::Binding &b : framed_callbacks()) {
        if (b.kind == CallbackKind::Condition || unchecked.count(b.callback) != 0)
            continue;
        void *fn = dlsym(RTLD_DEFAULT, b.callback.c_str());
        ASSERT_NE(fn, nullptr) << b.callback;
        for (bool in : {false, true}) {
            if (b.callback == needs_only_out && !in)
                continue;
            SCOPED_TRACE(b.callback + (in ? ": no output" : ": no input"));
            h.reset(b.model == ocni::host::Model::OpenConfigState ? YFW_REQ_READ_STATE : YFW_REQ_READ);
            h.logging(true, true);
            h.ltrace(true);
            h.enter(leaf());
            const zidl_yfw_datatree *i = in ? leaf() : nullptr;
            cerrno rc = b.kind == CallbackKind::Container
                            ? reinterpret_cast<ContainerCb>(fn)(h.ctx, i, 0, in ? nullptr : h.out)
                            : reinterpret_cast<LeafCb>(fn)(h.ctx, i, in ? nullptr : h.out);
            EXPECT_EQ(rc, YFW_RC_MAP_FAILED);
            const std::string p = h.ctx_text();
            EXPECT_EQ(h.log_lines(), (Lines{"TRC: YFW: ctx=" + p + ",Start",
                                            "ERR: YFW: ctx=" + p + ",Invalid arguments passed!"}));
            const Lines lt = h.ltrace_lines();
            ASSERT_EQ(lt.size(), 2u);
            const LtLine err = parse_lt(lt[1]);
            EXPECT_EQ(err.kind + err.fn + err.msg, "ERR" + b.callback + "Invalid arguments passed!");
            EXPECT_EQ(h.error_paths().size(), 1u) << "the error location is recorded once";
            EXPECT_TRUE(h.out_lines().empty());
            ++checked;
        }
    }
    EXPECT_GT(checked, 100u);
}

/* A callback that needs the route record and meets a request without one says so and maps nothing. */
TEST_F(FrameTest, MissingRouteRecordIsLoggedAndMapsNothing)
{
    std::set<std::string> reporting;
    for (const ocni::host::Binding &b : framed_callbacks()) {
        if (b.kind == ocni::host::CallbackKind::Condition)
            continue;
        SCOPED_TRACE(b.callback);
        h.reset(b.model == ocni::host::Model::OpenConfigState ? YFW_REQ_READ_STATE : YFW_REQ_READ);
        h.logging(true, true);
        h.enter(leaf());
        wos_named_free(h.rc->common_data_ptr); /* a request without a route record */
        h.rc->common_data_ptr = nullptr;
        void *fn = dlsym(RTLD_DEFAULT, b.callback.c_str());
        cerrno rc = b.kind == ocni::host::CallbackKind::Container
                        ? reinterpret_cast<ContainerCb>(fn)(h.ctx, leaf(), 0, h.out)
                        : reinterpret_cast<LeafCb>(fn)(h.ctx, leaf(), h.out);
        const std::string p = h.ctx_text(), err = "ERR: YFW: ctx=" + p + "," + b.callback +
                                                    " : ctx->req_ctx->common_data_ptr is NULL";
        const Lines lines = h.log_lines();
        if (std::find(lines.begin(), lines.end(), err) == lines.end())
            continue;
        reporting.insert(b.callback);
        /* A native next hop's address completes an index the record holds: without it, a failure. */
        EXPECT_EQ(rc, b.model == ocni::host::Model::Native ? YFW_RC_MAP_FAILED : YFW_RC_OK);
        EXPECT_EQ(lines, (Lines{"TRC: YFW: ctx=" + p + ",Start", err, "TRC: YFW: ctx=" + p + ",End"}));
        EXPECT_TRUE(h.out_lines().empty());
    }
    EXPECT_EQ(reporting.size(), 15u); /* every callback that reads the record before anything else */
}

using FrameDeathTest = FrameTest;

TEST_F(FrameDeathTest, NullContextFailsTheAssertionNamingFileAndSignature)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    zidl_yfw_datatree *in = leaf(), *out = h.out;
    const std::string oc = "openconfig_local_routing_man", cfg = "velmar_orn_qz_ip_static_cfg_man", o = "zidl_yfw_datatree", c = "const char";
    const struct { std::function<void()> call; std::string file, fn, last; } rows[] = {
        {[&] { ymap_ocni_lr_ipv6_staticroutes_static_state_settag_fwd(nullptr, in, out); }, oc, "ymap_ocni_lr_ipv6_staticroutes_static_state_settag_fwd", o},
        {[&] { ocni_do_index_lookup_on_sysdb(nullptr, in, out); }, oc + "_util", "ocni_do_index_lookup_on_sysdb", o},
        {[&] { ymap_oc_ni_add_vrf_metadata(nullptr, in, "red"); }, cfg, "ymap_oc_ni_add_vrf_metadata", c},
        {[&] { ymap_oc_ni_add_protocol_static_metadata(nullptr, in, "red"); }, cfg, "ymap_oc_ni_add_protocol_static_metadata", c}};
    for (const auto &r : rows)
        EXPECT_DEATH(r.call(), "localrouting/src/ymap_ocni_" + r.file + ":[0-9]+: [a-z_ ]*" + r.fn +
                                   "\\(yfw_map_ctx ?\\*, const zidl_yfw_datatree ?\\*, " + r.last + " ?\\*\\): Assertion .NULL != ctx. failed");
}

/* A frame user of this file, to see the macros cut an over-long line. */
cerrno long_message_callback(yfw_map_ctx *ctx, const char *msg)
{
    OCNI_CB_ID_DECL();
    OCNI_CB_BEGIN(ocni_id, ctx, msg != nullptr);
    OCNI_TRC(ocni_id, ctx, "%s", msg);
    OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);
}

TEST_F(FrameTest, LightweightLineOver249CharactersIsCutAndTheCallbackGoesOn)
{
    h.reset(YFW_REQ_EDIT);
    h.ltrace(true);
    EXPECT_EQ(long_message_callback(h.ctx, std::string(400, 'x').c_str()), 0u);
    const Lines lt = h.ltrace_lines();
    ASSERT_EQ(lt.size(), 3u);
    EXPECT_EQ(lt[1].size(), 249u);
    const std::string msg = parse_lt(lt[1]).msg;
    EXPECT_EQ(msg, std::string(msg.size(), 'x'));
    EXPECT_EQ(parse_lt(lt[2]).msg, "End");
}

/*
 * Read-path rule. Every selection-marker bit of the request descriptor,
 * written here at its own byte offset, withholds configuration with the
 * mode word 2 and no other; bits beside the groups count for nothing.
 */
struct MarkerGroup {
    const char *name;
    size_t offset;
    unsigned width; /* bytes: 1 or 2 */
    uint16_t mask;
    bool marker;
} const MARKER_GROUPS[] = {
    {"0x7f0 bit 15", 0x7f0, 2, 0x8000, true},    {"0x570", 0x570, 1, 0x07, true},
    {"0x548", 0x548, 1, 0x03, true},             {"0x541 0x1ff", 0x541, 2, 0x01ff, true},
    {"0x541 0x600", 0x541, 2, 0x0600, true},     {"0x541 0x3800", 0x541, 2, 0x3800, true},
    {"0x4dc", 0x4dc, 1, 0x0f, true},             {"0x528", 0x528, 1, 0x07, true},
    {"0x508", 0x508, 1, 0x03, true},             {"0x520", 0x520, 1, 0x03, true},
    {"0x56c", 0x56c, 1, 0x0f, true},             {"0x7f0 bits 0..14", 0x7f0, 2, 0x7fff, false},
    {"0x570 bits 3..7", 0x570, 1, 0xf8, false},  {"0x548 bits 2..7", 0x548, 1, 0xfc, false},
    {"0x541 bits 14..15", 0x541, 2, 0xc000, false}, {"0x4dc bits 4..7", 0x4dc, 1, 0xf0, false},
    {"0x56c bits 4..7", 0x56c, 1, 0xf0, false},
};

class ReadPathRuleTest : public HostFixture {
protected:
    void write_bits(const MarkerGroup &g, uint16_t bits)
    {
        uint8_t *base = reinterpret_cast<uint8_t *>(h.req) + g.offset;
        if (g.width == 1)
            base[0] = static_cast<uint8_t>(bits);
        else
            std::memcpy(base, &bits, sizeof bits);
    }
    void write_mode(uint32_t mode)
    {
        std::memcpy(reinterpret_cast<uint8_t *>(h.req) + YFW_REQ_OFF_MODE, &mode, sizeof mode);
    }
    /* Maps the prefix key of a default-VRF IPv4 entry; true when config/prefix came out. */
    bool config_prefix_added()
    {
        const std::string entry = "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
                                  "vrf-prefix[prefix=192.0.2.0][prefix-length=24]";
        TreePtr in = build_tree(entry, OCNI_NS_NATIVE);
        zidl_yfw_datatree *key = ocni::host::tree_find(in.get(), (entry + "/prefix").c_str());
        EXPECT_EQ(h.call(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefix, key), 0u);
        for (const std::string &l : h.out_lines())
            if (l.find("/static[prefix=192.0.2.0/24]/config/prefix = 192.0.2.0/24") != std::string::npos)
                return true;
        return false;
    }
};

TEST_F(ReadPathRuleTest, EveryMarkerBitWithholdsConfigurationOnlyWithModeTwo)
{
    h.reset(YFW_REQ_READ);
    EXPECT_TRUE(config_prefix_added()) << "no marker set";
    for (const MarkerGroup &g : MARKER_GROUPS) {
        for (unsigned bit = 0; bit < 16; ++bit) {
            const uint16_t b = static_cast<uint16_t>(1u << bit);
            if ((g.mask & b) == 0)
                continue;
            for (uint32_t mode : {uint32_t(YFW_REQ_MODE_SELECTED), 0u, 1u, 3u, 0x00000102u}) {
                SCOPED_TRACE(std::string(g.name) + " bit " + std::to_string(bit) + " mode " + std::to_string(mode));
                h.reset(YFW_REQ_READ);
                write_bits(g, b);
                write_mode(mode);
                EXPECT_EQ(config_prefix_added(), !g.marker || mode != YFW_REQ_MODE_SELECTED);
            }
        }
    }
}

/* The host's marker helpers set and clear the same bits the plug-in reads. */
TEST_F(ReadPathRuleTest, HostMarkerHelpersSetAndClearWhatThePluginReads)
{
    for (ocni::host::Marker m : ocni::host::ALL_MARKERS) {
        SCOPED_TRACE(static_cast<int>(m));
        h.reset(YFW_REQ_READ);
        ocni::host::request_set_mode(h.req, YFW_REQ_MODE_SELECTED);
        ocni::host::request_set_marker_bits(h.req, m, true);
        EXPECT_TRUE(ocni::host::request_any_marker(h.req));
        EXPECT_FALSE(config_prefix_added());
        ocni::host::request_set_marker_bits(h.req, m, false);
        EXPECT_FALSE(ocni::host::request_any_marker(h.req));
        h.reset_output();
        EXPECT_TRUE(config_prefix_added());
        ocni::host::request_set_marker(h.req, m);
        EXPECT_TRUE(ocni::host::request_any_marker(h.req));
    }
}

} // namespace

/* Metadata added a second time to one output tree traces, leaf by leaf, that it is there. */
TEST_F(FrameTest, MetadataAddedTwiceTracesEachLeafThatExists)
{
    h.reset(YFW_REQ_READ_STATE);
    ASSERT_EQ(ymap_oc_ni_add_vrf_metadata(h.ctx, h.out, "default"), 0u);
    ASSERT_EQ(ymap_oc_ni_add_protocol_static_metadata(h.ctx, h.out, "default"), 0u);
    h.logging(false, true);
    ASSERT_EQ(ymap_oc_ni_add_vrf_metadata(h.ctx, h.out, "default"), 0u);
    ASSERT_EQ(ymap_oc_ni_add_protocol_static_metadata(h.ctx, h.out, "default"), 0u);
    std::string said;
    for (const std::string &l : h.log_lines()) /* the error channel is off */
        if (l.find("already exists") != std::string::npos)
            said += l.substr(l.find(',') + 1) + "|";
    EXPECT_EQ(said, "default vrf already exists|config/name for default vrf already exists|config/type already exists|"
                    "state/name already exists|state/type already exists|default vrf already exists|"
                    "config/identifier already exists|config/name already exists|state/identifier already exists|"
                    "state/name already exists|state/enabled already exists|state/default-metric already exists|");
}
