/*
 * Frame routines shared by every callback, and the helpers of the mapping.
 */
#define OCNI_SRC_FILE "localrouting/src/ymap_ocni_openconfig_local_routing_man_util"
#include "ymap_ocni_openconfig_local_routing_man_util.h"

#include <stdarg.h>
#include <string.h>
#include <strings.h>

#include <safe_str_lib.h>

namespace {

uint8_t req_byte(const yfw_request *req, size_t off)
{
    return reinterpret_cast<const uint8_t *>(req)[off];
}

uint16_t req_u16(const yfw_request *req, size_t off)
{
    uint16_t v;
    memcpy(&v, reinterpret_cast<const uint8_t *>(req) + off, sizeof v);
    return v;
}

uint32_t req_u32(const yfw_request *req, size_t off)
{
    uint32_t v;
    memcpy(&v, reinterpret_cast<const uint8_t *>(req) + off, sizeof v);
    return v;
}

/* Any of the 35 selection markers of the descriptor set. */
bool any_selection_marker(const yfw_request *req)
{
    const uint16_t w541 = req_u16(req, YFW_REQ_OFF_SEL_541);
    return (req_u16(req, YFW_REQ_OFF_SEL_7F0) & 0x8000u) != 0 ||
           (req_byte(req, YFW_REQ_OFF_SEL_570) & 0x07u) != 0 ||
           (req_byte(req, YFW_REQ_OFF_SEL_548) & 0x03u) != 0 ||
           (w541 & 0x01ffu) != 0 || (w541 & 0x0600u) != 0 || (w541 & 0x3800u) != 0 ||
           (req_byte(req, YFW_REQ_OFF_SEL_4DC) & 0x0fu) != 0 ||
           (req_byte(req, YFW_REQ_OFF_SEL_528) & 0x07u) != 0 ||
           (req_byte(req, YFW_REQ_OFF_SEL_508) & 0x03u) != 0 ||
           (req_byte(req, YFW_REQ_OFF_SEL_520) & 0x03u) != 0 ||
           (req_byte(req, YFW_REQ_OFF_SEL_56C) & 0x0fu) != 0;
}

} // namespace

extern "C" {

int ocni_read_wants_config(const yfw_map_ctx *ctx)
{
    const yfw_request *req = ctx->req_ctx->request;
    if (!any_selection_marker(req))
        return 1;
    return req_u32(req, YFW_REQ_OFF_MODE) != YFW_REQ_MODE_SELECTED;
}

void ocni_set_user_msg_tag(yfw_map_ctx *ctx, const char *msg, const char *tag)
{
    yfw_req_ctx *rc = ctx->req_ctx;
    char *copy = yfw_strdup(msg, tag);
    if (copy == NULL)
        return;
    /* A later refusal replaces an earlier message of the same request. */
    if (rc->user_error_msg != NULL)
        wos_named_free(rc->user_error_msg);
    rc->user_error_msg = copy;
}

void ocni_set_user_msg(yfw_map_ctx *ctx, const char *msg)
{
    ocni_set_user_msg_tag(ctx, msg, OCNI_TAG_MAP);
}

cerrno ocni_xpath_run(yfw_map_ctx *ctx, yfw_map_xpath_op *rec, uint32_t op,
                      uint32_t node_type, zidl_yfw_datatree *root, const char *ns,
                      const char *value, const char *path_fmt, ...)
{
    char path[OCNI_REQ_PATH_LEN];
    va_list ap;

    memset(rec, 0, sizeof *rec);
    rec->op = op;
    if (ns != NULL)
        strncpy_s(rec->ns, sizeof rec->ns, ns, sizeof rec->ns - 1);
    rec->root = root;
    rec->node_type = node_type;
    if (node_type == YFW_XPATH_NODE_LEAF && value != NULL && value[0] != '\0')
        strncpy_s(rec->value, sizeof rec->value, value, sizeof rec->value - 1);

    va_start(ap, path_fmt);
    vsnprintf(path, sizeof path, path_fmt, ap);
    va_end(ap);
    strncpy_s(rec->path, sizeof rec->path, path, sizeof rec->path - 1);

    return yfw_map_tree_xpath_operations(ctx, rec);
}

int ocni_is_default_vrf(const char *vrf)
{
    return vrf != NULL && strcasecmp(vrf, "default") == 0;
}

} // extern "C"
