/*
 * Edit-direction callbacks (OpenConfig static routes to native
 * configuration), their condition tables, and the forward state callbacks.
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

/* Edit-direction leaf and list callbacks (context, input node, output tree). */
#define OCNI_EDIT_LEAF_MEMBERS(X)                                                   \
    X(ymap_ox_ocni_openconfiglocalrouting_man_list_lvla_localroutes_staticroutes_static) \
    X(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_static_prefix)  \
    X(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_prefix)  \
    X(ymap_ox_ocni_openconfiglocalrouting_man_list_lvla_localroutes_nexthops_nexthop) \
    X(ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_nexthop_index)      \
    X(ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_index)       \
    X(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_nexthop) \
    X(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_interface) \
    X(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_subinterface) \
    X(ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_metric)      \
    X(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_settag)  \
    X(ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_settag_v2)   \
    X(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_description)

#define OCNI_DECLARE_LEAF_CB(name) \
    OCNI_EXPORT cerrno name(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out);
OCNI_FWD_STATE_MEMBERS(OCNI_DECLARE_LEAF_CB)
OCNI_EDIT_LEAF_MEMBERS(OCNI_DECLARE_LEAF_CB)

/* Top-level containers: `subtrees` is non-zero when child subtrees are mapped on their own. */
OCNI_EXPORT cerrno ymap_ox_ocni_openconfiglocalrouting_man_cont_lvla_localroutes_staticroutes(
    yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int subtrees, zidl_yfw_datatree *out);
OCNI_EXPORT cerrno ymap_ox_ocni_openconfiglocalrouting_cont_lvla_localroutes_static_nexthops(
    yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int subtrees, zidl_yfw_datatree *out);

/* ------------------------------------------------------------------ */
/* Condition tables                                                    */
/* ------------------------------------------------------------------ */

#define OCNI_XPL_PATH_LEN 250
#define OCNI_XPL_NS_LEN   102
#define OCNI_XPL_NOTE_LEN 256

/* Yields the value written for a row, given the incoming node. */
typedef const char *(*ocni_xpl_value_fn)(const zidl_yfw_datatree *in);

/*
 * One candidate native path. The static tables are read-only; a condition
 * callback marks `selected` on a per-call copy. A table ends with a row
 * whose path and namespace are "NULL".
 */
typedef struct xpath_list_type_t {
    char path[OCNI_XPL_PATH_LEN];
    char ns[OCNI_XPL_NS_LEN];
    ocni_xpl_value_fn get_value;
    uint32_t selected;
    uint32_t add_flags; /* last argument of yfw_map_datatree_add_path_flagged */
    char note[OCNI_XPL_NOTE_LEN];
} xpath_list_type_t;

/* Mark, among the first `nrows` rows of `table`, those that apply. */
OCNI_EXPORT cerrno ocni_nexthops_cond_manual_callback(yfw_map_ctx *ctx, int nrows,
                                                      xpath_list_type_t *table);
OCNI_EXPORT cerrno ocni_index_cond_manual_callback(yfw_map_ctx *ctx, int nrows,
                                                   xpath_list_type_t *table);
OCNI_EXPORT cerrno ocni_metric_cond_manual_callback(yfw_map_ctx *ctx, int nrows,
                                                    xpath_list_type_t *table);

#ifdef __cplusplus
}
#endif

#endif
