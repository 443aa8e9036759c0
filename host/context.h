/*
 * Requests and mapping contexts as the host creates them for a callback,
 * and the request state the framework operations read: the request's
 * VRF, the stack of input list entries being mapped, the current input
 * node and the error paths recorded for it.
 *
 * Lifetime: request_new -> req_ctx_new -> map_ctx_new; free in reverse.
 * req_ctx_free frees user_error_msg, trim_path and the route record hung
 * on common_data_ptr (all tagged allocations).
 */
#ifndef OCNI_HOST_CONTEXT_H
#define OCNI_HOST_CONTEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "yfw_types.h"

namespace ocni::host {

class LogSink;

/* ---- request descriptor ---- */

yfw_request *request_new(uint32_t op_type);
void request_free(yfw_request *req);

/* Selection-marker groups of the read-path rule. */
enum class Marker : uint8_t {
    W7F0_BIT15, /* bit 15 of the 16-bit word at 0x7f0 */
    B570,       /* bits 0..2 of the byte at 0x570 */
    B548,       /* bits 0..1 at 0x548 */
    W541_1FF,   /* bits 0..8 of the 16-bit word at 0x541 */
    W541_600,   /* bits 9..10 */
    W541_3800,  /* bits 11..13 */
    B4DC,       /* bits 0..3 at 0x4dc */
    B528,       /* bits 0..2 at 0x528 */
    B508,       /* bits 0..1 at 0x508 */
    B520,       /* bits 0..1 at 0x520 */
    B56C,       /* bits 0..3 at 0x56c */
};
constexpr Marker ALL_MARKERS[] = {Marker::W7F0_BIT15, Marker::B570, Marker::B548, Marker::W541_1FF,
                                  Marker::W541_600,   Marker::W541_3800, Marker::B4DC, Marker::B528,
                                  Marker::B508,       Marker::B520, Marker::B56C};

/* Sets (`on`) or clears the lowest bit of a marker group. */
void request_set_marker(yfw_request *req, Marker m, bool on = true);
/* Sets or clears every bit of a marker group (all 35 bits with all groups). */
void request_set_marker_bits(yfw_request *req, Marker m, bool on);
/* The 32-bit mode word at 0x550. */
void request_set_mode(yfw_request *req, uint32_t mode);
/* Non-zero marker bits, all groups. */
bool request_any_marker(const yfw_request *req);

/* ---- request context ---- */

yfw_req_ctx *req_ctx_new(yfw_request *req);
void req_ctx_free(yfw_req_ctx *rc);

/* VRF (network instance) the request is about; NULL clears it. */
void req_set_vrf(yfw_req_ctx *rc, const char *vrf);

/*
 * Ancestors table: push the request node at the next level with its schema
 * path (the host keeps a copy of the path); pop the deepest.
 */
bool req_push_ancestor(yfw_req_ctx *rc, const char *schema_path, zidl_yfw_datatree *node);
void req_pop_ancestor(yfw_req_ctx *rc);

/*
 * Stack of input list entries being mapped. Output list entries created,
 * found by an xpath operation, stitched or set as current_list while an
 * entry is on top belong to it and to nothing outside it (see the
 * placement rule in host/README.md).
 */
void req_push_input_entry(yfw_req_ctx *rc, const zidl_yfw_datatree *entry);
void req_pop_input_entry(yfw_req_ctx *rc);
size_t req_input_depth(const yfw_req_ctx *rc);

/* The input node being mapped (its path is what yfw_oc_error_path records). */
void req_set_current_input(yfw_req_ctx *rc, const zidl_yfw_datatree *node);

/*
 * Everything the framework sets before calling the callback of `node`:
 * the current input node, the ancestors table (its strict ancestors, top
 * level first) and the input list stack (the entries among its ancestors
 * and itself). Input entries left behind are popped, with the output
 * entries that were current for them.
 */
void req_enter_input(yfw_req_ctx *rc, const zidl_yfw_datatree *node);

/* Error paths recorded by yfw_oc_error_path, oldest first. */
const std::vector<std::string> &req_error_paths(const yfw_req_ctx *rc);
void req_clear_error_paths(yfw_req_ctx *rc);

/* ---- mapping context ---- */

/* Bits of debug_state read by yfw_debug_should_log: bit n switches level n. */
constexpr uint32_t DEBUG_ERR = 1u << 0;
constexpr uint32_t DEBUG_TRC = 1u << 3;

/*
 * New mapping context with its own sinks for the error log, the trace log
 * and the lightweight trace (all off until switched on).
 */
yfw_map_ctx *map_ctx_new(yfw_req_ctx *rc);
void map_ctx_free(yfw_map_ctx *ctx);
LogSink *map_ctx_err_sink(const yfw_map_ctx *ctx);
LogSink *map_ctx_trc_sink(const yfw_map_ctx *ctx);
LogSink *map_ctx_ltrace_sink(const yfw_map_ctx *ctx);

/* ---- list key registry ---- */

/* Key leaf names of a list, by list name: the lists of the three models. */
std::vector<std::string> list_keys_of(const std::string &list);
bool list_is_known(std::string_view list);
bool list_is_key(std::string_view list, std::string_view leaf);

} // namespace ocni::host

#endif
