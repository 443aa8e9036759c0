/*
 * Shared by every source of the static-route mapping plug-in: result codes,
 * model namespaces, the per-request route record, and the callback
 * skeleton (context assertion, start/end traces, argument check) that every
 * exported callback runs.
 */
#ifndef OCNI_COMMON_H
#define OCNI_COMMON_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <sys/cdefs.h>

#include "yfw_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The C library's assertion report; declared here so that the context
 * assertion stays in place in builds with NDEBUG. */
extern void __assert_fail(const char *assertion, const char *file, unsigned int line,
                          const char *function) __THROW __attribute__((__noreturn__));

/* Marks a function as part of the library's exported interface. */
#define OCNI_EXPORT __attribute__((visibility("default")))

/* ------------------------------------------------------------------ */
/* Result codes of the plug-in itself                                  */
/* ------------------------------------------------------------------ */

#define OCNI_RC_INIT_FAILED 0x8081c200u
#define OCNI_RC_ALL_ONES    0xffffffffu /* failed address conversion in the store lookups */

/* ------------------------------------------------------------------ */
/* Model namespaces                                                    */
/* ------------------------------------------------------------------ */

#define OCNI_NS_OC_NI       "http://openconfig.net/yang/network-instance"
#define OCNI_NS_OC_LR       "http://openconfig.net/yang/local-routing"
#define OCNI_NS_OC_PT       "http://openconfig.net/yang/policy-types"
#define OCNI_NS_NATIVE      "urn:velmar:yang:ip-static-cfg"
#define OCNI_NS_OPER        "urn:velmar:yang:private-ocni-local-routing-oper"

/* ------------------------------------------------------------------ */
/* Buffer sizes                                                        */
/* ------------------------------------------------------------------ */

#define OCNI_PATH_LEN     250   /* native paths and trace lines */
#define OCNI_REQ_PATH_LEN 1000  /* request (instance) paths */
#define OCNI_VALUE_LEN    300
#define OCNI_ADDR_LEN     46
#define OCNI_IFNAME_LEN   100
#define OCNI_TRACE_LEN    250

/* Allocation tags. */
#define OCNI_TAG_MAP        "YFW MAP"
#define OCNI_TAG_MAP_US     "YFW_MAP"
#define OCNI_TAG_SEARCH     "YFW MAP search list"
#define OCNI_TAG_TRIM       "YFW MAP trim list ctx"
#define OCNI_TAG_NS         "YFW OCNI LOCALROUTING NS"

/* The empty part of a native next-hop store key. */
#define OCNI_EMPTY_KEY_PART "________"
/* vrf_label value meaning "not set". */
#define OCNI_VRF_LABEL_UNSET 0x100001u

/* ------------------------------------------------------------------ */
/* Per-request route record                                            */
/* ------------------------------------------------------------------ */

/*
 * What the callbacks of one route learn and pass on to each other within
 * a request. Hung on req_ctx->common_data_ptr; one at a time. The six
 * request-value pointers point into the request's input tree.
 */
typedef struct ocni_route_common_data {
    uint32_t is_ipv4;
    uint32_t has_interface;
    uint32_t has_next_hop;
    uint32_t is_drop;
    uint32_t is_local_link;
    uint32_t next_hops_deleted;
    uint32_t next_hop_touched;
    uint32_t metric_touched;
    uint32_t index_found;
    uint32_t metric_deleted;
    uint32_t tag_given;
    uint32_t same_entry;
    uint32_t same_key;
    uint32_t next_hop_deleted;
    uint32_t interface_deleted;
    uint32_t subinterface_deleted;
    uint32_t metric_flag;
    char *prefix;
    char set_tag[24];
    char *index;
    char *next_hop;
    char *metric;
    char *interface;
    char *subinterface;
    char auto_index[132];
    uint32_t native_has_address;
    uint32_t native_has_interface;
    uint32_t native_has_third_key;
    char native_address[46];
    char native_interface[64];
    char native_third_key[50];
    /* native route attributes, written back as native leaves */
    uint32_t bfd_fast_detect;
    uint32_t permanent;
    uint32_t detect_multiplier;
    uint32_t minimum_interval;
    uint32_t route_metric;
    uint32_t load_metric;
    uint32_t tag;
    uint32_t vrf_label;
    uint32_t tunnel_id;
    char object_name[33];
    char description[31];
    char description_in[32];
    uint32_t tag_mode;
    uint32_t description_given;
} ocni_route_common_data;

#ifdef __cplusplus
#define OCNI_STATIC_ASSERT static_assert
#else
#define OCNI_STATIC_ASSERT _Static_assert
#endif
OCNI_STATIC_ASSERT(sizeof(ocni_route_common_data) == 592, "route record size");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, prefix) == 72, "prefix");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, set_tag) == 80, "set_tag");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, auto_index) == 144, "auto_index");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, native_has_address) == 276, "native fields");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, native_address) == 288, "native_address");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, native_interface) == 334, "native_interface");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, native_third_key) == 398, "native_third_key");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, bfd_fast_detect) == 448, "attributes");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, object_name) == 484, "object_name");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, description) == 517, "description");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, description_in) == 548, "description_in");
OCNI_STATIC_ASSERT(offsetof(ocni_route_common_data, tag_mode) == 580, "tag_mode");

/* The route record of the request, or NULL. */
static inline ocni_route_common_data *ocni_rec(const yfw_map_ctx *ctx)
{
    return (ocni_route_common_data *)ctx->req_ctx->common_data_ptr;
}

/* ------------------------------------------------------------------ */
/* Request kind and read-path rule                                     */
/* ------------------------------------------------------------------ */

static inline uint32_t ocni_op_type(const yfw_map_ctx *ctx)
{
    return ctx->req_ctx->request->op_type;
}

/* Request kinds 0 and 10 read; every other kind edits. */
static inline int ocni_is_read(const yfw_map_ctx *ctx)
{
    uint32_t k = ocni_op_type(ctx);
    return k == YFW_REQ_READ || k == YFW_REQ_READ_STATE;
}

static inline int ocni_is_read_state(const yfw_map_ctx *ctx)
{
    return ocni_op_type(ctx) == YFW_REQ_READ_STATE;
}

/*
 * Whether a read wants configuration nodes: yes when no selection marker
 * of the request descriptor is set, or when the mode word is not 2.
 */
int ocni_read_wants_config(const yfw_map_ctx *ctx);

/* ------------------------------------------------------------------ */
/* Callback skeleton and tracing                                       */
/* ------------------------------------------------------------------ */

/*
 * Identity of the exported callback a piece of code runs for: its name
 * (for trace lines), full signature and source file (for the context
 * assertion). Shared implementations of twin callbacks receive the id of
 * the exported member so that traces name the member.
 */
typedef struct ocni_cb_id {
    const char *fn;
    const char *sig;
    const char *file;
} ocni_cb_id;

/* Every source defines OCNI_SRC_FILE before including this header. */
#ifndef OCNI_SRC_FILE
#define OCNI_SRC_FILE "localrouting/src/ocni"
#endif

/* Declares `ocni_id` for the enclosing exported function. */
#define OCNI_CB_ID_DECL() \
    const ocni_cb_id ocni_id = { __func__, __PRETTY_FUNCTION__, OCNI_SRC_FILE }

/*
 * Log statements. Each has its own filter slot in static data. The log
 * line is "TRC: YFW: ctx=%p,<msg>" (level 3) or "ERR: YFW: ctx=%p,<msg>"
 * (level 0); the lightweight line "#%u: TRC: %s:%d ctx=%p,<msg>" carries
 * the sequence number, the callback's name and the source line, and is
 * cut to fit its 250-byte stack buffer. Nothing is formatted unless the
 * level or the lightweight trace is on; nothing is allocated.
 */
#define OCNI_LOG_(id, ctx, lvl, tag, fmt, ...)                                            \
    do {                                                                                   \
        static uint32_t ocni_log_slot_ = 0xFFFFFFFFu;                                      \
        const yfw_map_ctx *ocni_lc_ = (ctx);                                               \
        if (yfw_debug_should_log(&ocni_lc_->debug_state, (lvl)))                           \
            _wos_dt_log_filter_adv((lvl) == YFW_LOG_LEVEL_ERR ? ocni_lc_->err_log          \
                                                              : ocni_lc_->trc_log,         \
                                   0, 0, 0, 0, 0, &ocni_log_slot_,                         \
                                   tag ": YFW: ctx=%p," fmt, (const void *)ocni_lc_,       \
                                   ##__VA_ARGS__);                                         \
        if (ocni_lc_->ltrace_on) {                                                         \
            char ocni_lb_[OCNI_TRACE_LEN];                                                 \
            snprintf(ocni_lb_, sizeof ocni_lb_, "#%u: " tag ": %s:%d ctx=%p," fmt,         \
                     ret_nc_yfw_trace_index_incr(), (id).fn, __LINE__,                     \
                     (const void *)ocni_lc_, ##__VA_ARGS__);                               \
            _lstrace(ocni_lc_->ltrace_buf, YFW_LSTRACE_FLAGS, ocni_lb_);                   \
        }                                                                                  \
    } while (0)

#define OCNI_TRC(id, ctx, fmt, ...) OCNI_LOG_(id, ctx, YFW_LOG_LEVEL_TRC, "TRC", fmt, ##__VA_ARGS__)
#define OCNI_ERR(id, ctx, fmt, ...) OCNI_LOG_(id, ctx, YFW_LOG_LEVEL_ERR, "ERR", fmt, ##__VA_ARGS__)

#define OCNI_TRC_START(id, ctx) OCNI_TRC(id, ctx, "Start")
#define OCNI_TRC_END(id, ctx)   OCNI_TRC(id, ctx, "End")

/* Fails the assertion "NULL != ctx" naming the callback's file and signature. */
#define OCNI_ASSERT_CTX(id, ctx)                                                  \
    do {                                                                          \
        if ((ctx) == NULL)                                                        \
            __assert_fail("NULL != ctx", (id).file, __LINE__, (id).sig);          \
    } while (0)

/*
 * The bad-arguments path: error line, error path recorded, no end trace,
 * YFW_RC_MAP_FAILED.
 */
#define OCNI_RETURN_BAD_ARGS(id, ctx)                                  \
    do {                                                               \
        OCNI_ERR(id, ctx, "Invalid arguments passed!");                \
        yfw_oc_error_path(ctx);                                        \
        return YFW_RC_MAP_FAILED;                                      \
    } while (0)

/*
 * Start of every callback: assert the context, trace Start, and take the
 * bad-arguments path unless `args_ok` holds.
 */
#define OCNI_CB_BEGIN(id, ctx, args_ok)             \
    do {                                            \
        OCNI_ASSERT_CTX(id, ctx);                   \
        OCNI_TRC_START(id, ctx);                    \
        if (!(args_ok))                             \
            OCNI_RETURN_BAD_ARGS(id, ctx);          \
    } while (0)

/* End of every callback: trace End and return the result. */
#define OCNI_CB_RETURN(id, ctx, rc)                 \
    do {                                            \
        cerrno ocni_rc_ = (rc);                     \
        OCNI_TRC_END(id, ctx);                      \
        return ocni_rc_;                            \
    } while (0)

/* Refusal the client reads: store the message (tag "YFW MAP"). */
void ocni_set_user_msg(yfw_map_ctx *ctx, const char *msg);
/* Same with an explicit allocation tag. */
void ocni_set_user_msg_tag(yfw_map_ctx *ctx, const char *msg, const char *tag);

/* ------------------------------------------------------------------ */
/* xpath-operation record                                              */
/* ------------------------------------------------------------------ */

/*
 * Zeroes `rec`, fills op, ns, root, node_type and (for a leaf) value,
 * formats the instance path into a separate 1000-byte buffer and copies
 * it in, then calls yfw_map_tree_xpath_operations. `value` may be NULL.
 */
cerrno ocni_xpath_run(yfw_map_ctx *ctx, yfw_map_xpath_op *rec, uint32_t op,
                      uint32_t node_type, zidl_yfw_datatree *root, const char *ns,
                      const char *value, const char *path_fmt, ...)
    __attribute__((format(printf, 8, 9)));

/* Name of the network instance of the request, or NULL. */
static inline const char *ocni_vrf_name(yfw_map_ctx *ctx)
{
    return ymap_oc_ni_get_vrf_name(ctx);
}

/* Case-insensitive "default". */
int ocni_is_default_vrf(const char *vrf);

#ifdef __cplusplus
}
#endif

#endif /* OCNI_COMMON_H */
