#include "host_fixture.h"

#include <cstdio>

#include "host/iface_table.h"
#include "host/store.h"

namespace ocni::test {

using namespace ocni::host;

HostHarness::HostHarness(uint32_t op_type)
{
    /* Callbacks called one by one run outside any request: each lookup reads the committed store. */
    store_scope_each_lookup(true);
    reset(op_type);
}

HostHarness::~HostHarness()
{
    release();
    store_scope_each_lookup(false);
}

void HostHarness::release()
{
    tree_free(out);
    map_ctx_free(ctx);
    req_ctx_free(rc);
    request_free(req);
    out = nullptr;
    ctx = nullptr;
    rc = nullptr;
    req = nullptr;
}

void HostHarness::reset(uint32_t op_type)
{
    release();
    req = request_new(op_type);
    rc = req_ctx_new(req);
    ctx = map_ctx_new(rc);
    out = tree_new();
    if (req == nullptr || rc == nullptr || ctx == nullptr || out == nullptr)
        throw std::bad_alloc();
}

void HostHarness::reset_output()
{
    rc->current_list = nullptr;
    tree_free(out);
    out = tree_new();
    if (out == nullptr)
        throw std::bad_alloc();
}

void HostHarness::logging(bool err, bool trc)
{
    ctx->debug_state = (err ? DEBUG_ERR : 0u) | (trc ? DEBUG_TRC : 0u);
}

cerrno HostHarness::call(LeafCb cb, const zidl_yfw_datatree *in)
{
    enter(in);
    return cb(ctx, in, out);
}

cerrno HostHarness::call(ContainerCb cb, const zidl_yfw_datatree *in, unsigned int subtrees)
{
    enter(in);
    return cb(ctx, in, subtrees, out);
}

Lines HostHarness::log_lines() const
{
    return merged_texts({map_ctx_err_sink(ctx), map_ctx_trc_sink(ctx)});
}

Lines HostHarness::ltrace_lines() const
{
    return map_ctx_ltrace_sink(ctx)->texts();
}

void HostHarness::clear_traces()
{
    map_ctx_err_sink(ctx)->clear();
    map_ctx_trc_sink(ctx)->clear();
    map_ctx_ltrace_sink(ctx)->clear();
}

AllocWatch::AllocWatch(std::vector<std::string> tags) : tags_(std::move(tags))
{
    for (const auto &t : tags_)
        base_.push_back(alloc_live(t));
}

long AllocWatch::grown() const
{
    long d = 0;
    for (size_t i = 0; i < tags_.size(); ++i)
        d += long(alloc_live(tags_[i])) - long(base_[i]);
    return d;
}

std::string HostHarness::ctx_text() const
{
    char buf[32];
    snprintf(buf, sizeof buf, "%p", static_cast<const void *>(ctx));
    return buf;
}

} // namespace ocni::test
