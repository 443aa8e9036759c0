/*
 * Debug log and lightweight trace of the framework.
 */
#ifndef YFW_TRACE_H
#define YFW_TRACE_H

#include <stdint.h>
#include "yfw_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define YFW_LOG_LEVEL_ERR 0
#define YFW_LOG_LEVEL_TRC 3

/* Flags word given to _lstrace for every mapping line. */
#define YFW_LSTRACE_FLAGS 0x10101000000ULL

/* Non-zero when lines of `level` are to be logged. */
int yfw_debug_should_log(const uint32_t *debug_state, int level);

/*
 * Writes one formatted line to a log. `filter_slot` is the caller's own
 * per-statement slot (initialised to 0xFFFFFFFF), where the log keeps its
 * rate and filter state; the five integer arguments are always 0.
 */
void _wos_dt_log_filter_adv(void *log, int a1, int a2, int a3, int a4, int a5,
                            uint32_t *filter_slot, const char *fmt, ...)
    __attribute__((format(printf, 8, 9)));

/* Next sequence number of the lightweight trace (process-wide). */
uint32_t ret_nc_yfw_trace_index_incr(void);

/* Appends one line of text to a lightweight trace buffer. */
void _lstrace(void *buf, uint64_t flags, const char *text);

/* Text of a result code. */
const char *cerr_strerror(cerrno rc);

/* System log. */
void qz_syslog(int level, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif

#endif /* YFW_TRACE_H */
