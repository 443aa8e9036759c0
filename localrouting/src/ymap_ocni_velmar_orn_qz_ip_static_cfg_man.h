/* Read-direction callbacks: native static-route configuration to OpenConfig. */
#ifndef YMAP_OCNI_VELMAR_ORN_QZ_IP_STATIC_CFG_MAN_H
#define YMAP_OCNI_VELMAR_ORN_QZ_IP_STATIC_CFG_MAN_H

#include "ocni_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Parents of every OpenConfig static route: the network-instance entry
 * (with config/name) and the STATIC/DEFAULT protocol entry with its
 * configuration and state leaves. Both always return 0; existing nodes
 * are reused.
 */
OCNI_EXPORT cerrno ymap_oc_ni_add_vrf_metadata(yfw_map_ctx *ctx, const zidl_yfw_datatree *root,
                                               const char *vrf_name);
OCNI_EXPORT cerrno ymap_oc_ni_add_protocol_static_metadata(yfw_map_ctx *ctx,
                                                           const zidl_yfw_datatree *root,
                                                           const char *vrf_name);

/* The native root container "/router-static". */
OCNI_EXPORT cerrno ymap_xo_ocni_velmarornqzipstaticcfg_man_cont_lvla_routerstatic(
    yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int has_subtrees,
    zidl_yfw_datatree *out);

/* Every list and leaf callback of the read direction: (ctx, in, out). */
#define OCNI_XO_NODE_MEMBERS(X)                                                                   \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvle_routerstatic_vrfprefixes_vrfprefix)       \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlg_routerstatic_vrfprefixes_vrfprefix)       \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefix_namedvrf)   \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefix_namedvrf)   \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefix)            \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefix)            \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefixlength_namedvrf) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefixlength_namedvrf) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefixlength)      \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefixlength)      \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvln_routerstatic_vrfnexthoptable_vrfnexthopinterfacename) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvln_routerstatic_vrfnexthoptable_vrfnexthopinterfacenamenexthopaddress) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvln_routerstatic_vrfnexthoptable_vrfnexthopnexthopaddress) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlt_routerstatic_vrfnexthoptable_vrfnexthopinterfacename) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlt_routerstatic_vrfnexthoptable_vrfnexthopinterfacenamenexthopaddress) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlt_routerstatic_vrfnexthoptable_vrfnexthopnexthopaddress) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacename_interfacename) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacename_interfacename) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_interfacename) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_interfacename) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_nexthopaddress) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_nexthopaddress) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopnexthopaddress_nexthopaddress) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopnexthopaddress_nexthopaddress) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacename_tag) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_tag) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopnexthopaddress_tag) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacename_tag) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_tag) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopnexthopaddress_tag) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacename_description) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_description) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopnexthopaddress_description) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacename_description) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_description) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopnexthopaddress_description) \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_index)                                \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_metric)                               \
    X(ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_bfd)

#define OCNI_XO_DECLARE_NODE_CB(name) \
    OCNI_EXPORT cerrno name(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out);
OCNI_XO_NODE_MEMBERS(OCNI_XO_DECLARE_NODE_CB)
#undef OCNI_XO_DECLARE_NODE_CB

#ifdef __cplusplus
}
#endif

#endif
