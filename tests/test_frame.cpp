/*
 * The callback frame every callback runs: context assertion, start and end
 * lines on both channels, the bad-arguments path, the lightweight trace's
 * sequence numbers and line cut, and the read-path rule on the request
 * descriptor's selection markers.
 */
#define OCNI_SRC_FILE "tests/test_frame"
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "host/context.h"
#include "host_fixture.h"
#include "tree_builder.h"
#include "ymap_ocni_openconfig_local_routing_man.h"
#include "ymap_ocni_velmar_orn_qz_ip_static_cfg_man.h"

using namespace ocni::test;

namespace {

struct Member {
    const char *name;
    LeafCb cb;
};

#define OCNI_TEST_MEMBER_ROW(n) {#n, n},
const Member FWD_MEMBERS[] = {OCNI_FWD_STATE_MEMBERS(OCNI_TEST_MEMBER_ROW)};

const char STATE_LEAF[] =
    "/network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC][name=DEFAULT]"
    "/static-routes/static[prefix=10.0.0.0/24]/state/prefix";

/* "#<seq>: <KIND>: <fn>:<line> ctx=<ctx>,<msg>" split into its parts. */
struct LtLine {
    unsigned long seq = 0;
    std::string kind, fn, ctx, msg;
    int line = 0;
};

bool parse_lt(const std::string &s, LtLine &out)
{
    /* Parsed by hand: std::regex trips false warnings of this compiler. */
    if (s.size() < 2 || s[0] != '#')
        return false;
    size_t pos = 1, colon = s.find(": ", pos);
    if (colon == std::string::npos || colon == pos ||
        s.find_first_not_of("0123456789", pos) != colon)
        return false;
    out.seq = std::stoul(s.substr(pos, colon - pos));
    pos = colon + 2;
    colon = s.find(": ", pos);
    if (colon == std::string::npos)
        return false;
    out.kind = s.substr(pos, colon - pos);
    if (out.kind != "TRC" && out.kind != "ERR")
        return false;
    pos = colon + 2;
    const size_t sp = s.find(" ctx=", pos);
    const size_t fn_end = s.rfind(':', sp);
    if (sp == std::string::npos || fn_end == std::string::npos || fn_end < pos)
        return false;
    out.fn = s.substr(pos, fn_end - pos);
    const std::string line = s.substr(fn_end + 1, sp - fn_end - 1);
    if (line.empty() || line.find_first_not_of("0123456789") != std::string::npos)
        return false;
    out.line = std::stoi(line);
    const size_t comma = s.find(',', sp);
    if (comma == std::string::npos)
        return false;
    out.ctx = s.substr(sp + 5, comma - sp - 5);
    out.msg = s.substr(comma + 1);
    return true;
}

class FrameTest : public HostFixture {
protected:
    void SetUp() override { input_ = build_tree(std::string(STATE_LEAF) + " = 10.0.0.0/24"); }
    zidl_yfw_datatree *leaf() const { return ocni::host::tree_find(input_.get(), STATE_LEAF); }

    TreePtr input_;
};

TEST_F(FrameTest, ForwardStateCallbacksTraceStartAndEndOnBothChannels)
{
    const uint32_t kinds[] = {YFW_REQ_READ, YFW_REQ_READ_STATE, YFW_REQ_EDIT};
    for (const Member &m : FWD_MEMBERS) {
        for (uint32_t kind : kinds) {
            SCOPED_TRACE(std::string(m.name) + " kind " + std::to_string(kind));
            h.reset(kind);
            h.logging(true, true);
            h.ltrace(true);
            ASSERT_EQ(h.call(m.cb, leaf()), 0u);

            const std::string p = h.ctx_text();
            EXPECT_EQ(h.log_lines(), (Lines{"TRC: YFW: ctx=" + p + ",Start", "TRC: YFW: ctx=" + p + ",End"}));
            EXPECT_TRUE(h.err_lines().empty());

            const Lines lt = h.ltrace_lines();
            ASSERT_EQ(lt.size(), 2u);
            LtLine start, end;
            ASSERT_TRUE(parse_lt(lt[0], start)) << lt[0];
            ASSERT_TRUE(parse_lt(lt[1], end)) << lt[1];
            EXPECT_EQ(start.kind, "TRC");
            EXPECT_EQ(start.msg, "Start");
            EXPECT_EQ(end.msg, "End");
            EXPECT_EQ(start.fn, m.name);
            EXPECT_EQ(end.fn, m.name);
            EXPECT_EQ(start.ctx, p);
            EXPECT_EQ(end.seq, start.seq + 1) << "one shared sequence counter";
            EXPECT_LT(start.line, end.line) << "each line names its own source line";

            /* A state leaf adds nothing to the forward tree. */
            EXPECT_TRUE(h.out_lines().empty());
            EXPECT_TRUE(h.error_paths().empty());
        }
    }
}

TEST_F(FrameTest, DeleteOfAStateLeafIsAcceptedAndAddsNothing)
{
    input_ = build_tree(std::string(STATE_LEAF) + " = 10.0.0.0/24 (delete)");
    for (const Member &m : FWD_MEMBERS) {
        h.reset(YFW_REQ_EDIT);
        EXPECT_EQ(h.call(m.cb, leaf()), 0u) << m.name;
        EXPECT_TRUE(h.out_lines().empty()) << m.name;
    }
}

TEST_F(FrameTest, NothingIsWrittenWhenLoggingAndLightweightTraceAreOff)
{
    h.reset(YFW_REQ_READ_STATE);
    h.logging(false, false);
    h.ltrace(false);
    EXPECT_EQ(h.call(FWD_MEMBERS[0].cb, leaf()), 0u);
    EXPECT_TRUE(h.log_lines().empty());
    EXPECT_TRUE(h.ltrace_lines().empty());
}

TEST_F(FrameTest, EachLogLevelIsWrittenOnlyWhenSwitchedOn)
{
    /* Error level only: a good call writes nothing, a bad one its error line. */
    h.reset(YFW_REQ_READ);
    h.logging(true, false);
    EXPECT_EQ(h.call(FWD_MEMBERS[0].cb, leaf()), 0u);
    EXPECT_TRUE(h.log_lines().empty());
    EXPECT_EQ(FWD_MEMBERS[0].cb(h.ctx, leaf(), nullptr), YFW_RC_MAP_FAILED);
    EXPECT_EQ(h.log_lines(), (Lines{"ERR: YFW: ctx=" + h.ctx_text() + ",Invalid arguments passed!"}));

    /* Trace level only: the error line is left out. */
    h.reset(YFW_REQ_READ);
    h.logging(false, true);
    EXPECT_EQ(FWD_MEMBERS[0].cb(h.ctx, nullptr, h.out), YFW_RC_MAP_FAILED);
    EXPECT_EQ(h.log_lines(), (Lines{"TRC: YFW: ctx=" + h.ctx_text() + ",Start"}));
}

TEST_F(FrameTest, MissingArgumentIsRefusedWithErrorPathAndNoEndLine)
{
    struct Case {
        const char *what;
        bool in, out;
    } cases[] = {{"no input", false, true}, {"no output", true, false}, {"neither", false, false}};

    for (const Member &m : FWD_MEMBERS) {
        for (const Case &c : cases) {
            SCOPED_TRACE(std::string(m.name) + ": " + c.what);
            h.reset(YFW_REQ_READ_STATE);
            h.logging(true, true);
            h.ltrace(true);
            h.enter(leaf());
            cerrno rc = m.cb(h.ctx, c.in ? leaf() : nullptr, c.out ? h.out : nullptr);
            EXPECT_EQ(rc, YFW_RC_MAP_FAILED);

            const std::string p = h.ctx_text();
            EXPECT_EQ(h.err_lines(), (Lines{"ERR: YFW: ctx=" + p + ",Invalid arguments passed!"}));
            EXPECT_EQ(h.log_lines(), (Lines{"TRC: YFW: ctx=" + p + ",Start",
                                            "ERR: YFW: ctx=" + p + ",Invalid arguments passed!"}));
            const Lines lt = h.ltrace_lines();
            ASSERT_EQ(lt.size(), 2u);
            LtLine err;
            ASSERT_TRUE(parse_lt(lt[1], err)) << lt[1];
            EXPECT_EQ(err.kind, "ERR");
            EXPECT_EQ(err.fn, m.name);
            EXPECT_EQ(err.msg, "Invalid arguments passed!");
            EXPECT_EQ(h.error_paths().size(), 1u) << "the error location is recorded once";
        }
    }
}

using FrameDeathTest = FrameTest;

TEST_F(FrameDeathTest, NullContextFailsTheAssertionNamingFileAndSignature)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    zidl_yfw_datatree *in = leaf();
    zidl_yfw_datatree *out = h.out;
    EXPECT_DEATH(ymap_ocni_lr_ipv6_staticroutes_static_state_settag_fwd(nullptr, in, out),
                 "localrouting/src/ymap_ocni_openconfig_local_routing_man:[0-9]+: "
                 "[a-z_ ]*ymap_ocni_lr_ipv6_staticroutes_static_state_settag_fwd\\(yfw_map_ctx ?\\*, "
                 "const zidl_yfw_datatree ?\\*, zidl_yfw_datatree ?\\*\\): "
                 "Assertion .NULL != ctx. failed");
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
    const std::string msg(400, 'x');
    EXPECT_EQ(long_message_callback(h.ctx, msg.c_str()), 0u);

    const Lines lt = h.ltrace_lines();
    ASSERT_EQ(lt.size(), 3u);
    EXPECT_EQ(lt[1].size(), 249u);
    LtLine cut;
    ASSERT_TRUE(parse_lt(lt[1], cut));
    EXPECT_EQ(cut.msg, std::string(cut.msg.size(), 'x'));
    ASSERT_TRUE(parse_lt(lt[2], cut));
    EXPECT_EQ(cut.msg, "End");
}

TEST_F(FrameTest, SequenceNumbersRunOnAcrossCallbacksAndRequests)
{
    h.reset(YFW_REQ_READ);
    h.ltrace(true);
    ASSERT_EQ(h.call(FWD_MEMBERS[0].cb, leaf()), 0u);
    Lines first = h.ltrace_lines();
    h.reset(YFW_REQ_READ);
    h.ltrace(true);
    ASSERT_EQ(h.call(FWD_MEMBERS[1].cb, leaf()), 0u);
    Lines second = h.ltrace_lines();
    ASSERT_EQ(first.size(), 2u);
    ASSERT_EQ(second.size(), 2u);
    LtLine a, b;
    ASSERT_TRUE(parse_lt(first[1], a));
    ASSERT_TRUE(parse_lt(second[0], b));
    EXPECT_EQ(b.seq, a.seq + 1);
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
};

const MarkerGroup MARKER_GROUPS[] = {
    {"0x7f0 bit 15", 0x7f0, 2, 0x8000}, {"0x570", 0x570, 1, 0x07},   {"0x548", 0x548, 1, 0x03},
    {"0x541 0x1ff", 0x541, 2, 0x01ff},  {"0x541 0x600", 0x541, 2, 0x0600},
    {"0x541 0x3800", 0x541, 2, 0x3800}, {"0x4dc", 0x4dc, 1, 0x0f},   {"0x528", 0x528, 1, 0x07},
    {"0x508", 0x508, 1, 0x03},          {"0x520", 0x520, 1, 0x03},   {"0x56c", 0x56c, 1, 0x0f},
};

/* Bits at the same places that are not markers. */
const MarkerGroup NOT_MARKERS[] = {
    {"0x7f0 bits 0..14", 0x7f0, 2, 0x7fff}, {"0x570 bits 3..7", 0x570, 1, 0xf8},
    {"0x548 bits 2..7", 0x548, 1, 0xfc},    {"0x541 bits 14..15", 0x541, 2, 0xc000},
    {"0x4dc bits 4..7", 0x4dc, 1, 0xf0},    {"0x56c bits 4..7", 0x56c, 1, 0xf0},
};

void write_bits(yfw_request *req, const MarkerGroup &g, uint16_t bits)
{
    uint8_t *base = reinterpret_cast<uint8_t *>(req) + g.offset;
    if (g.width == 1) {
        base[0] = static_cast<uint8_t>(bits);
    } else {
        std::memcpy(base, &bits, sizeof bits);
    }
}

void write_mode(yfw_request *req, uint32_t mode)
{
    std::memcpy(reinterpret_cast<uint8_t *>(req) + YFW_REQ_OFF_MODE, &mode, sizeof mode);
}

class ReadPathRuleTest : public HostFixture {
protected:
    /* Maps the prefix key of a default-VRF IPv4 entry; true when config/prefix came out. */
    bool config_prefix_added()
    {
        TreePtr in = build_tree(
            "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
            "vrf-prefix[prefix=192.0.2.0][prefix-length=24]",
            OCNI_NS_NATIVE);
        zidl_yfw_datatree *key = ocni::host::tree_find(
            in.get(),
            "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
            "vrf-prefix[prefix=192.0.2.0][prefix-length=24]/prefix");
        EXPECT_NE(key, nullptr);
        if (key == nullptr)
            return false;
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
            const uint32_t modes[] = {YFW_REQ_MODE_SELECTED, 0, 1, 3, 0x00000102};
            for (uint32_t mode : modes) {
                SCOPED_TRACE(std::string(g.name) + " bit " + std::to_string(bit) + " mode " +
                             std::to_string(mode));
                h.reset(YFW_REQ_READ);
                write_bits(h.req, g, b);
                write_mode(h.req, mode);
                EXPECT_EQ(config_prefix_added(), mode != YFW_REQ_MODE_SELECTED);
            }
        }
    }
}

TEST_F(ReadPathRuleTest, BitsBesideTheMarkerGroupsDoNotCount)
{
    for (const MarkerGroup &g : NOT_MARKERS) {
        SCOPED_TRACE(g.name);
        h.reset(YFW_REQ_READ);
        write_bits(h.req, g, g.mask);
        write_mode(h.req, YFW_REQ_MODE_SELECTED);
        EXPECT_TRUE(config_prefix_added());
    }
}

TEST_F(ReadPathRuleTest, HostMarkerHelpersAgreeWithTheDescriptorOffsets)
{
    for (ocni::host::Marker m : ocni::host::ALL_MARKERS) {
        h.reset(YFW_REQ_READ);
        ocni::host::request_set_marker_bits(h.req, m, true);
        ocni::host::request_set_mode(h.req, YFW_REQ_MODE_SELECTED);
        EXPECT_FALSE(config_prefix_added()) << static_cast<int>(m);
    }
}

} // namespace
