/*
 * Edit-direction callbacks (OpenConfig static routes to native
 * configuration) and the forward state callbacks.
 */
#define OCNI_SRC_FILE "localrouting/src/ymap_ocni_openconfig_local_routing_man"
#include "ymap_ocni_openconfig_local_routing_man.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"

namespace {

/*
 * Forward state leaves add nothing to the forward tree: the operational
 * request paths come from the prefix, next-hops and index callbacks. They
 * only check their arguments; an edit of a state leaf is looked at and
 * otherwise ignored.
 */
cerrno fwd_state_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                      zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    if (!ocni_is_read(ctx))
        (void)yfw_map_is_request_delete(in);
    OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
}

} // namespace

extern "C" {

#define OCNI_DEFINE_FWD_STATE(name)                                                         \
    cerrno name(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out)      \
    {                                                                                       \
        OCNI_CB_ID_DECL();                                                                  \
        return fwd_state_leaf(ocni_id, ctx, in, out);                                       \
    }
OCNI_FWD_STATE_MEMBERS(OCNI_DEFINE_FWD_STATE)

} // extern "C"
