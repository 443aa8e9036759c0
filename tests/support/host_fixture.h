/*
 * Host harness for tests: one request with its contexts, an output tree and
 * the trace lines of both channels. h.call() does what the framework does
 * before a callback: current input node, ancestors, input list stack.
 */
#ifndef OCNI_TEST_HOST_FIXTURE_H
#define OCNI_TEST_HOST_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/alloc.h"
#include "host/context.h"
#include "host/trace.h"
#include "host/tree.h"
#include "yfw_platform.h"

namespace ocni::test {

using Lines = std::vector<std::string>;

using LeafCb = cerrno (*)(yfw_map_ctx *, const zidl_yfw_datatree *, zidl_yfw_datatree *);
using ContainerCb = cerrno (*)(yfw_map_ctx *, const zidl_yfw_datatree *, unsigned int, zidl_yfw_datatree *);

class HostHarness {
public:
    explicit HostHarness(uint32_t op_type = YFW_REQ_EDIT);
    ~HostHarness();
    HostHarness(const HostHarness &) = delete;
    HostHarness &operator=(const HostHarness &) = delete;

    /* Starts over: new request of `op_type`, contexts, empty output, no traces. */
    void reset(uint32_t op_type = YFW_REQ_EDIT);
    /* Replaces the output tree with an empty one (request state kept). */
    void reset_output();

    void set_vrf(const char *vrf) { ocni::host::req_set_vrf(rc, vrf); }
    void logging(bool err, bool trc);
    void ltrace(bool on) { ctx->ltrace_on = on ? 1u : 0u; }

    /* Calls a callback on `in` as the framework would (see above). */
    cerrno call(LeafCb cb, const zidl_yfw_datatree *in);
    cerrno call(ContainerCb cb, const zidl_yfw_datatree *in, unsigned int subtrees);
    /* Only the framework steps of call(): current input, ancestors, input list stack. */
    void enter(const zidl_yfw_datatree *in) { ocni::host::req_enter_input(rc, in); }

    /* Trace lines: both logs in order, lightweight trace. */
    Lines log_lines() const;
    Lines ltrace_lines() const;
    void clear_traces();
    /* "%p" of the context, as trace lines print it. */
    std::string ctx_text() const;

    Lines out_lines(const ocni::host::DumpOptions &opt = {}) const { return ocni::host::tree_lines(out, opt); }
    zidl_yfw_datatree *out_node(const std::string &path) const { return ocni::host::tree_find(out, path.c_str()); }
    std::string user_msg() const { return rc->user_error_msg != nullptr ? rc->user_error_msg : ""; }
    const Lines &error_paths() const { return ocni::host::req_error_paths(rc); }

    yfw_request *req = nullptr;
    yfw_req_ctx *rc = nullptr;
    yfw_map_ctx *ctx = nullptr;
    zidl_yfw_datatree *out = nullptr;

private:
    void release();
};

/*
 * Live tagged blocks of some tags, counted from its construction:
 *   AllocWatch w;  ...run...;  h.reset();  EXPECT_EQ(w.grown(), 0);
 */
class AllocWatch {
public:
    explicit AllocWatch(std::vector<std::string> tags = {"YFW MAP", "YFW_MAP", "YFW MAP search list",
                                                         "YFW MAP trim list ctx", "YFW OCNI LOCALROUTING NS"});
    /* Live blocks now minus live blocks then, over all tags (negative when fewer). */
    long grown() const;

private:
    std::vector<std::string> tags_;
    std::vector<size_t> base_;
};

/* gtest fixture around one harness. */
class HostFixture : public ::testing::Test {
protected:
    HostHarness h;
};

} // namespace ocni::test

#endif
