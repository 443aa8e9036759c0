/*
 * Edit-direction callbacks (OpenConfig static routes to native
 * configuration) and the forward state callbacks.
 */
#ifndef YMAP_OCNI_OPENCONFIG_LOCAL_ROUTING_MAN_H
#define YMAP_OCNI_OPENCONFIG_LOCAL_ROUTING_MAN_H

#include "ocni_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Forward state callbacks: one per OpenConfig state leaf and family. */
#define OCNI_FWD_STATE_MEMBERS(X)                                           \
    X(ymap_ocni_lr_ipv4_staticroutes_static_state_prefix_fwd)               \
    X(ymap_ocni_lr_ipv4_staticroutes_static_state_settag_fwd)               \
    X(ymap_ocni_lr_ipv4_staticroutes_static_nexthops_nexthop_state_index_fwd)   \
    X(ymap_ocni_lr_ipv4_staticroutes_static_nexthops_nexthop_state_nexthop_fwd) \
    X(ymap_ocni_lr_ipv4_staticroutes_static_nexthops_nexthop_state_metric_fwd)  \
    X(ymap_ocni_lr_ipv4_nexthops_nexthop_interfaceref_state_interface_fwd)      \
    X(ymap_ocni_lr_ipv4_nexthops_nexthop_interfaceref_state_subinterface_fwd)   \
    X(ymap_ocni_lr_ipv6_staticroutes_static_state_prefix_fwd)               \
    X(ymap_ocni_lr_ipv6_staticroutes_static_state_settag_fwd)               \
    X(ymap_ocni_lr_ipv6_staticroutes_static_nexthops_nexthop_state_index_fwd)   \
    X(ymap_ocni_lr_ipv6_staticroutes_static_nexthops_nexthop_state_nexthop_fwd) \
    X(ymap_ocni_lr_ipv6_staticroutes_static_nexthops_nexthop_state_metric_fwd)  \
    X(ymap_ocni_lr_ipv6_nexthops_nexthop_interfaceref_state_interface_fwd)      \
    X(ymap_ocni_lr_ipv6_nexthops_nexthop_interfaceref_state_subinterface_fwd)

#define OCNI_DECLARE_LEAF_CB(name) \
    OCNI_EXPORT cerrno name(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out);
OCNI_FWD_STATE_MEMBERS(OCNI_DECLARE_LEAF_CB)

#ifdef __cplusplus
}
#endif

#endif
