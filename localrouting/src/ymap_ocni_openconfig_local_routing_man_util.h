/*
 * Shared routines of the mapping: read-path rule, user messages, the
 * xpath-record routine, store initialisation and VRF existence, name and
 * value helpers, native path naming, store lookups and next-hop checks.
 */
#ifndef YMAP_OCNI_OPENCONFIG_LOCAL_ROUTING_MAN_UTIL_H
#define YMAP_OCNI_OPENCONFIG_LOCAL_ROUTING_MAN_UTIL_H

#include "ocni_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- store initialisation and VRF existence ---- */

/* Store connections and the flag telling they are bound (set by callers). */
OCNI_EXPORT extern sysdb_connid_t ocni_ip_static_sysdb_connid;
OCNI_EXPORT extern sysdb_connid_t ocni_ip_static_rsi_sysdb_connid;
OCNI_EXPORT extern uint32_t ocni_ipstatic_init_done;

/* Binds both store connections. */
OCNI_EXPORT cerrno ocni_yfw_ipstatic_init(void);
/* Sets *exists to 1 when the request's VRF exists, 0 when it does not. */
OCNI_EXPORT cerrno ocni_yfw_ipstatic_vrf_exists(yfw_map_ctx *ctx, uint8_t *exists);

/* ---- name and value helpers ---- */

OCNI_EXPORT void ocni_get_external_ifname(char *name);
OCNI_EXPORT void ocni_get_external_ifname_reverse(char *name);
/* dst holds 65 bytes. */
OCNI_EXPORT void ocni_lr_convert_to_internal_ifname(char *dst, const char *src);
/* dst holds 128 bytes. */
OCNI_EXPORT void formatting_prefix(const char *src, char *dst);
OCNI_EXPORT const char *ocni_get_ip_string(const char *hex);
/* "ipv4", "ipv6" or "NULL". */
OCNI_EXPORT const char *ocni_ymap_localrouting_check_ipv4_ipv6(const char *addr);
OCNI_EXPORT void ocni_lr_init_prefix_type(ocni_route_common_data *rec);
OCNI_EXPORT int ocni_lr_validate_ifname(const char *name);
OCNI_EXPORT int ocni_check_quoted_description(const char *text);
OCNI_EXPORT uint32_t ocni_get_length(const char *path);
OCNI_EXPORT uint32_t ocni_dec_to_hex(int32_t value);

/* ---- native path naming (buffers of OCNI_PATH_LEN bytes) ---- */

OCNI_EXPORT void ocni_get_mapping_path_name_prefix(yfw_map_ctx *ctx, uint32_t is_ipv4, char *buf);
OCNI_EXPORT void ocni_get_mapping_path_name_nexthop(yfw_map_ctx *ctx, uint32_t is_ipv4, char *buf);
OCNI_EXPORT void ocni_fill_path_for_null_prefix(yfw_map_ctx *ctx, char *buf_v4, char *buf_v6);
OCNI_EXPORT cerrno ocni_get_mapping_path_name(yfw_map_ctx *ctx, uint32_t is_ipv4,
                                              uint32_t has_next_hop, uint32_t has_interface,
                                              uint32_t is_drop, char *buf);
OCNI_EXPORT cerrno set_vrf_path_ni_static(yfw_map_ctx *ctx, zidl_yfw_datatree *out);
OCNI_EXPORT cerrno ocni_set_metadata_path(const char *entry_path, yfw_map_ctx *ctx,
                                          zidl_yfw_datatree *out);

/* ---- store lookups ---- */

OCNI_EXPORT cerrno ocni_do_index_lookup_on_sysdb(yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                                                 zidl_yfw_datatree *out);
OCNI_EXPORT int ocni_is_auto_index_valid(yfw_map_ctx *ctx, const char *first, const char *second);
OCNI_EXPORT cerrno ocni_do_prefix_lookup_on_sysdb_and_set_tag(yfw_map_ctx *ctx,
                                                              const zidl_yfw_datatree *in,
                                                              zidl_yfw_datatree *out);
OCNI_EXPORT cerrno ocni_do_sysdb_lookup_and_get_tag(yfw_map_ctx *ctx);

/* ---- next-hop consistency checks (route record must exist) ---- */

OCNI_EXPORT int ocni_check_next_hop_interface_config(yfw_map_ctx *ctx, const zidl_yfw_datatree *nh);
OCNI_EXPORT int ocni_check_next_hop_ip_and_set_drop_config(yfw_map_ctx *ctx, const zidl_yfw_datatree *nh);
OCNI_EXPORT int ocni_check_nexthops_operation_delete(yfw_map_ctx *ctx, const zidl_yfw_datatree *st);

#ifdef __cplusplus
}
#endif

#endif
