/*
 * Sinks behind the framework's debug logs, lightweight trace and system
 * log, readable by tests. A log handle (err_log, trc_log, ltrace_buf) is
 * a LogSink.
 */
#ifndef OCNI_HOST_TRACE_H
#define OCNI_HOST_TRACE_H

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace ocni::host {

struct LogLine {
    std::string text;
    uint64_t seq = 0;   /* process-wide order across all sinks */
    uint64_t flags = 0; /* _lstrace flags word; 0 for log lines */
};

class LogSink {
public:
    /* At most this many lines are kept; later ones are counted as dropped. */
    explicit LogSink(size_t limit = 1000000) : limit_(limit) {}
    void add(const char *text, uint64_t flags = 0);
    std::vector<std::string> texts() const;
    std::vector<LogLine> lines() const;
    size_t size() const;
    size_t dropped() const;
    void clear();

private:
    mutable std::mutex mu_;
    std::vector<LogLine> lines_;
    size_t limit_;
    size_t dropped_ = 0;
};

/* Longest log line kept; longer lines are cut. */
constexpr size_t LOG_LINE_MAX = 1024;

/* Lines of several sinks merged in the order they were written. */
std::vector<std::string> merged_texts(const std::vector<const LogSink *> &sinks);

/* System log lines as "<level>:<text>". */
std::vector<std::string> syslog_lines();
void syslog_clear();

} // namespace ocni::host

#endif
