/*
 * Debug log, lightweight trace, result-code texts and the system log.
 */
#include "host/trace.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "yfw_trace.h"

namespace ocni::host {
namespace {

std::atomic<uint64_t> g_line_seq{0};
std::atomic<uint32_t> g_trace_index{0};

LogSink &syslog_sink()
{
    static LogSink *s = new LogSink(100000);
    return *s;
}

} // namespace

void LogSink::add(const char *text, uint64_t flags)
{
    uint64_t seq = ++g_line_seq;
    std::lock_guard<std::mutex> lk(mu_);
    if (lines_.size() >= limit_) {
        ++dropped_;
        return;
    }
    lines_.push_back(LogLine{text != nullptr ? text : "", seq, flags});
}

std::vector<std::string> LogSink::texts() const
{
    std::lock_guard<std::mutex> lk(mu_);
    std::vector<std::string> out;
    out.reserve(lines_.size());
    for (const auto &l : lines_)
        out.push_back(l.text);
    return out;
}

std::vector<LogLine> LogSink::lines() const
{
    std::lock_guard<std::mutex> lk(mu_);
    return lines_;
}

size_t LogSink::size() const
{
    std::lock_guard<std::mutex> lk(mu_);
    return lines_.size();
}

size_t LogSink::dropped() const
{
    std::lock_guard<std::mutex> lk(mu_);
    return dropped_;
}

void LogSink::clear()
{
    std::lock_guard<std::mutex> lk(mu_);
    lines_.clear();
    dropped_ = 0;
}

std::vector<std::string> merged_texts(const std::vector<const LogSink *> &sinks)
{
    std::vector<LogLine> all;
    for (const LogSink *s : sinks) {
        if (s == nullptr)
            continue;
        auto l = s->lines();
        all.insert(all.end(), l.begin(), l.end());
    }
    std::sort(all.begin(), all.end(), [](const LogLine &a, const LogLine &b) { return a.seq < b.seq; });
    std::vector<std::string> out;
    out.reserve(all.size());
    for (auto &l : all)
        out.push_back(std::move(l.text));
    return out;
}

std::vector<std::string> syslog_lines()
{
    return syslog_sink().texts();
}

void syslog_clear()
{
    syslog_sink().clear();
}

} // namespace ocni::host

using namespace ocni::host;

extern "C" {

int yfw_debug_should_log(const uint32_t *debug_state, int level)
{
    if (debug_state == nullptr || level < 0 || level > 31)
        return 0;
    return (*debug_state >> level) & 1u;
}

void _wos_dt_log_filter_adv(void *log, int a1, int a2, int a3, int a4, int a5,
                            uint32_t *filter_slot, const char *fmt, ...)
{
    (void)a1;
    (void)a2;
    (void)a3;
    (void)a4;
    (void)a5;
    /* The slot counts the lines its statement wrote (0xFFFFFFFF: never). */
    if (filter_slot != nullptr)
        *filter_slot = *filter_slot == 0xFFFFFFFFu ? 1u : (*filter_slot == 0xFFFFFFFEu ? *filter_slot : *filter_slot + 1u);
    if (log == nullptr || fmt == nullptr)
        return;
    char line[LOG_LINE_MAX];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    try {
        static_cast<LogSink *>(log)->add(line);
    } catch (...) {
    }
}

uint32_t ret_nc_yfw_trace_index_incr(void)
{
    return ++g_trace_index;
}

void _lstrace(void *buf, uint64_t flags, const char *text)
{
    if (buf == nullptr || text == nullptr)
        return;
    try {
        static_cast<LogSink *>(buf)->add(text, flags);
    } catch (...) {
    }
}

const char *cerr_strerror(cerrno rc)
{
    switch (rc) {
    case YFW_RC_OK: return "Success";
    case YFW_RC_MAP_FAILED: return "Mapping failed";
    case YFW_RC_INVALID_REQUEST: return "Invalid request";
    case YFW_RC_NODE_EXISTS: return "Node already exists";
    case YFW_RC_NO_MEMORY: return "Out of memory";
    case YFW_RC_NOT_APPLICABLE: return "Not applicable";
    case YFW_RC_NO_COMMON_DATA: return "No common data";
    case SYSDB_RC_NOT_FOUND: return "Not found";
    case SYSDB_RC_INVALID_ARG: return "Invalid argument";
    case SYSDB_RC_FAILED: return "Store failure";
    case 0x8081c200u: return "Initialisation failed";
    default: return "Unknown error";
    }
}

void qz_syslog(int level, const char *fmt, ...)
{
    if (fmt == nullptr)
        return;
    char text[LOG_LINE_MAX];
    int n = snprintf(text, sizeof text, "%d:", level);
    if (n < 0 || size_t(n) >= sizeof text)
        return;
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text + n, sizeof text - size_t(n), fmt, ap);
    va_end(ap);
    try {
        syslog_sink().add(text);
    } catch (...) {
    }
}

} // extern "C"
