/*
 * State-direction callbacks: the operational answer under "/ocni/vrfipv4"
 * and "/ocni/vrfipv6" becomes the OpenConfig state of the static routes.
 * Every callback exists once per address family; the two members of a
 * pair share one implementation.
 */
#ifndef YMAP_OCNI_VELMAR_ORN_QZ_OCNI_LOCAL_ROUTING_OPER_MAN_H
#define YMAP_OCNI_VELMAR_ORN_QZ_OCNI_LOCAL_ROUTING_OPER_MAN_H

#include "ocni_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Operational containers: X(ipv4 member, ipv6 member, OpenConfig container
 * added when the operational container has no subtrees).
 */
#define OCNI_REV_CONTAINER_MEMBERS(X)                                                   \
    X(ymap_ocni_lr_ipv4_staticroutes_rev, ymap_ocni_lr_ipv6_staticroutes_rev,             \
      "/network-instances/network-instance/protocols/protocol/static-routes")             \
    X(ymap_ocni_lr_ipv4_staticroutes_static_nexthops_rev,                                 \
      ymap_ocni_lr_ipv6_staticroutes_static_nexthops_rev,                                 \
      "/network-instances/network-instance/protocols/protocol/static-routes/static/next-hops")

/* Operational list entries: X(ipv4 member, ipv6 member). */
#define OCNI_REV_ENTRY_MEMBERS(X)                                                       \
    X(ymap_ocni_lr_ipv4_staticroutes_static_rev, ymap_ocni_lr_ipv6_staticroutes_static_rev) \
    X(ymap_ocni_lr_ipv4_staticroutes_static_nexthops_nexthop_rev,                         \
      ymap_ocni_lr_ipv6_staticroutes_static_nexthops_nexthop_rev)

/*
 * Operational leaves: X(ipv4 member, ipv6 member, row of the leaf table in
 * the implementation). The static-route key is one of them.
 */
#define OCNI_REV_LEAF_MEMBERS(X)                                                        \
    X(ymap_ocni_lr_ipv4_staticroutes_static_prefix_rev,                                   \
      ymap_ocni_lr_ipv6_staticroutes_static_prefix_rev, REV_STATIC_KEY)                   \
    X(ymap_ocni_lr_ipv4_staticroutes_static_nexthops_nexthop_index_rev,                   \
      ymap_ocni_lr_ipv6_staticroutes_static_nexthops_nexthop_index_rev, REV_NH_KEY)       \
    X(ymap_ocni_lr_ipv4_staticroutes_static_nexthops_nexthop_state_index_rev,             \
      ymap_ocni_lr_ipv6_staticroutes_static_nexthops_nexthop_state_index_rev, REV_NH_INDEX) \
    X(ymap_ocni_lr_ipv4_staticroutes_static_nexthops_nexthop_state_nexthop_rev,           \
      ymap_ocni_lr_ipv6_staticroutes_static_nexthops_nexthop_state_nexthop_rev,           \
      REV_NH_NEXTHOP)                                                                     \
    X(ymap_ocni_lr_ipv4_staticroutes_static_nexthops_nexthop_state_metric_rev,            \
      ymap_ocni_lr_ipv6_staticroutes_static_nexthops_nexthop_state_metric_rev,            \
      REV_NH_METRIC)                                                                      \
    X(ymap_ocni_lr_ipv4_nexthops_nexthop_interfaceref_state_interface_rev,                \
      ymap_ocni_lr_ipv6_nexthops_nexthop_interfaceref_state_interface_rev,                \
      REV_NH_INTERFACE)                                                                   \
    X(ymap_ocni_lr_ipv4_nexthops_nexthop_interfaceref_state_subinterface_rev,             \
      ymap_ocni_lr_ipv6_nexthops_nexthop_interfaceref_state_subinterface_rev,             \
      REV_NH_SUBINTERFACE)                                                                \
    X(ymap_ocni_lr_ipv4_staticroutes_static_state_enable_bfd_rev,                         \
      ymap_ocni_lr_ipv6_staticroutes_static_state_enable_bfd_rev, REV_NH_ENABLE_BFD)      \
    X(ymap_ocni_lr_ipv4_staticroutes_static_state_prefix_rev,                             \
      ymap_ocni_lr_ipv6_staticroutes_static_state_prefix_rev, REV_ST_PREFIX)              \
    X(ymap_ocni_lr_ipv4_staticroutes_static_state_settag_rev,                             \
      ymap_ocni_lr_ipv6_staticroutes_static_state_settag_rev, REV_ST_SETTAG)              \
    X(ymap_ocni_lr_ipv4_staticroutes_static_state_description_rev,                        \
      ymap_ocni_lr_ipv6_staticroutes_static_state_description_rev, REV_ST_DESCRIPTION)

#define OCNI_DECLARE_REV_CONTAINER_(v4, v6, path)                                        \
    OCNI_EXPORT cerrno v4(yfw_map_ctx *ctx, const zidl_yfw_datatree *in,                 \
                          unsigned int subtrees, zidl_yfw_datatree *out);                \
    OCNI_EXPORT cerrno v6(yfw_map_ctx *ctx, const zidl_yfw_datatree *in,                 \
                          unsigned int subtrees, zidl_yfw_datatree *out);
#define OCNI_DECLARE_REV_ENTRY_(v4, v6)                                                  \
    OCNI_EXPORT cerrno v4(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out); \
    OCNI_EXPORT cerrno v6(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out);
#define OCNI_DECLARE_REV_LEAF_(v4, v6, row) OCNI_DECLARE_REV_ENTRY_(v4, v6)

OCNI_REV_CONTAINER_MEMBERS(OCNI_DECLARE_REV_CONTAINER_)
OCNI_REV_ENTRY_MEMBERS(OCNI_DECLARE_REV_ENTRY_)
OCNI_REV_LEAF_MEMBERS(OCNI_DECLARE_REV_LEAF_)

/*
 * Finds or creates, below `root`, the OpenConfig static entry of `prefix`
 * in network instance `vrf` (protocol STATIC/DEFAULT) and gives it back in
 * `*entry` (NULL when the framework made none). `ns` is not used: the
 * entry is always made in the OpenConfig network-instance module. Returns
 * the framework's answer; YFW_RC_NODE_EXISTS means the entry was there.
 */
OCNI_EXPORT cerrno ymap_ocni_get_prefix_list(yfw_map_ctx *ctx, const char *ns, const char *vrf,
                                             const char *prefix, zidl_yfw_datatree **entry,
                                             zidl_yfw_datatree *root);

/*
 * Finds or creates the next-hop entry of `index` below the static entry
 * `root` and gives it back in `*entry`. `ns` and `prefix_path` are not used.
 */
OCNI_EXPORT cerrno ymap_ocni_get_index_list(yfw_map_ctx *ctx, const char *ns,
                                            const char *prefix_path, const char *index,
                                            zidl_yfw_datatree **entry, zidl_yfw_datatree *root);

#ifdef __cplusplus
}
#endif

#endif
