/*
 * Frame routines shared by every callback, and the helpers of the mapping.
 */
#define OCNI_SRC_FILE "localrouting/src/ymap_ocni_openconfig_local_routing_man_util"
#include "ymap_ocni_openconfig_local_routing_man_util.h"
#include "ymap_ni_static_util.h"

#include <math.h>
#include <regex.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <safe_str_lib.h>

#ifndef OCNI_SYSDB_LIB_PATH
/* Installed location of the store client library on the router. */
#define OCNI_SYSDB_LIB_PATH "/pkg/lib/libsysdb.so"
#endif

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
    va_list ap;

    memset(rec, 0, sizeof *rec);
    rec->op = op;
    if (ns != NULL)
        strncpy_s(rec->ns, sizeof rec->ns, ns, sizeof rec->ns - 1);
    rec->root = root;
    rec->node_type = node_type;
    if (node_type == YFW_XPATH_NODE_LEAF && value != NULL && value[0] != '\0')
        strncpy_s(rec->value, sizeof rec->value, value, sizeof rec->value - 1);

    /* Formatted straight into the record's path field, which bounds it. */
    va_start(ap, path_fmt);
    vsnprintf(rec->path, sizeof rec->path, path_fmt, ap);
    va_end(ap);

    return yfw_map_tree_xpath_operations(ctx, rec);
}

int ocni_is_default_vrf(const char *vrf)
{
    return vrf != NULL && strcasecmp(vrf, "default") == 0;
}

} // extern "C"

/* ====================================================================== */
/* Store initialisation and VRF existence                                 */
/* ====================================================================== */

extern "C" {

sysdb_connid_t ocni_ip_static_sysdb_connid;
sysdb_connid_t ocni_ip_static_rsi_sysdb_connid;
uint32_t ocni_ipstatic_init_done;

} // extern "C"

namespace {

/* Set once the store client library has been seen on this system. */
uint8_t sysdb_lib_present;

const char k_static_root[] = "/cfg/gl/static/router/";
const char k_rsi_root[] = "/cfg/gl/rsi/";

cerrno check_sysdb_lib(void)
{
    if (sysdb_lib_present == 0) {
        if (access(OCNI_SYSDB_LIB_PATH, R_OK) != 0)
            return OCNI_RC_INIT_FAILED;
        sysdb_lib_present = 1;
    }
    return YFW_RC_OK;
}

/*
 * What every store user does first: bind the connections unless done.
 * The flag is set here, by the caller side, never by the init routine.
 */
cerrno ensure_store(void)
{
    if (ocni_ipstatic_init_done != 0)
        return YFW_RC_OK;
    cerrno rc = ocni_yfw_ipstatic_init();
    if (rc != YFW_RC_OK)
        return rc;
    ocni_ipstatic_init_done = 1;
    return YFW_RC_OK;
}

} // namespace

extern "C" {

cerrno ocni_yfw_ipstatic_init(void)
{
    cerrno rc = check_sysdb_lib();
    if (rc != YFW_RC_OK)
        return rc;
    rc = _sysdb_bind(&ocni_ip_static_sysdb_connid, k_static_root, SYSDB_BIND_MODE_RW);
    if (rc != YFW_RC_OK)
        return rc;
    return _sysdb_bind(&ocni_ip_static_rsi_sysdb_connid, k_rsi_root, SYSDB_BIND_MODE_RW);
}

cerrno ocni_yfw_ipstatic_vrf_exists(yfw_map_ctx *ctx, uint8_t *exists)
{
    OCNI_CB_ID_DECL();
    const char *vrf = ocni_vrf_name(ctx);
    if (vrf == NULL || strcmp(vrf, "default") == 0) {
        *exists = 1;
        return YFW_RC_OK;
    }

    /* Created earlier in this same request? */
    char path[OCNI_REQ_PATH_LEN];
    snprintf(path, sizeof path, "/network-instance[name=%s]/config/name", vrf);
    zidl_yfw_datatree *root = NULL;
    const yfw_req_ctx *rc_ctx = ctx->req_ctx;
    for (int i = 0; i < YFW_MAX_ANCESTORS; i++) {
        const char *apath = rc_ctx->ancestors[i].path;
        if (apath != NULL && yfw_map_do_these_match(apath, "/network-instances")) {
            root = rc_ctx->ancestors[i].node;
            break;
        }
    }
    yfw_map_xpath_op rec;
    cerrno rc = ocni_xpath_run(ctx, &rec, YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LEAF, root,
                               OCNI_NS_OC_NI, vrf, "%s", path);
    if (rc != YFW_RC_OK)
        OCNI_TRC(ocni_id, ctx, "%s", cerr_strerror(YFW_RC_OK)); /* text of 0, kept so */
    if (rec.result != NULL) {
        *exists = 1;
        return YFW_RC_OK;
    }

    /* Otherwise the VRF store decides. */
    char vrf_path[256];
    snprintf(vrf_path, sizeof vrf_path, "vrf/%s/", vrf);
    rc = ensure_store();
    if (rc != YFW_RC_OK)
        return rc;
    uint32_t count = 0xFFFFFFFFu;
    sysdb_datalist_t *list = NULL;
    rc = sysdb_datalist(ocni_ip_static_rsi_sysdb_connid, vrf_path, "", &count, &list, 0);
    if (list != NULL)
        sysdb_datalist_free(list);
    if (rc == SYSDB_RC_NOT_FOUND || count == 0xFFFFFFFFu)
        *exists = 0;
    else if (count != 0)
        *exists = 1;
    /* listed with a count of 0: the caller's value stands */
    return YFW_RC_OK;
}

} // extern "C"

/* ====================================================================== */
/* Name and value helpers                                                 */
/* ====================================================================== */

namespace {

void replace_char(char *s, char from, char to)
{
    for (; *s != '\0'; s++)
        if (*s == from)
            *s = to;
}

} // namespace

extern "C" {

void ocni_get_external_ifname(char *name)
{
    if (name != NULL)
        replace_char(name, '_', '/');
}

void ocni_get_external_ifname_reverse(char *name)
{
    if (name != NULL)
        replace_char(name, '/', '_');
}

void ocni_lr_convert_to_internal_ifname(char *dst, const char *src)
{
    if (dst == NULL || src == NULL)
        return;
    if (src[0] != '\0')
        strncpy_s(dst, 65, src, 64);
    dst[64] = '\0';
    replace_char(dst, '/', '_');
}

void formatting_prefix(const char *src, char *dst)
{
    if (src == NULL || dst == NULL)
        return;
    strncpy_s(dst, 128, src, 127);
    replace_char(dst, '_', '/');
}

const char *ocni_get_ip_string(const char *hex)
{
    ip_addr_t addr;
    memset(&addr, 0, sizeof addr);
    (void)hex_string2ip_addr(hex, &addr);
    return ip_addr_string(&addr);
}

const char *ocni_ymap_localrouting_check_ipv4_ipv6(const char *addr)
{
    struct addrinfo hints;
    struct addrinfo *res = NULL;
    const char *family = "NULL";

    memset(&hints, 0, sizeof hints);
    if (getaddrinfo_qz(addr, NULL, &hints, &res) == 0 && res != NULL) {
        if (res->ai_family == QZ_AF_INET)
            family = "ipv4";
        else if (res->ai_family == QZ_AF_INET6)
            family = "ipv6";
    }
    if (res != NULL)
        freeaddrinfo_qz(res);
    return family;
}

void ocni_lr_init_prefix_type(ocni_route_common_data *rec)
{
    if (rec == NULL)
        return;
    /* Per-next-hop facts. The static entry's own facts (family, prefix, tag,
     * description, whole next-hops delete) and the request values that the
     * next hop's leaves set again are kept. */
    rec->has_interface = 0;
    rec->has_next_hop = 0;
    rec->is_drop = 0;
    rec->is_local_link = 0;
    rec->next_hop_touched = 0;
    rec->index_found = 0;
    rec->metric_deleted = 0;
    rec->next_hop_deleted = 0;
    rec->interface_deleted = 0;
    rec->subinterface_deleted = 0;
    rec->metric_flag = 0;
    rec->metric = NULL;
    rec->subinterface = NULL;
    memset(rec->auto_index, 0, 129);
    /* the stored next hop: native_has_address .. native_third_key */
    memset(&rec->native_has_address, 0,
           offsetof(ocni_route_common_data, bfd_fast_detect) -
               offsetof(ocni_route_common_data, native_has_address));
    /* the route attributes: bfd_fast_detect .. description */
    memset(&rec->bfd_fast_detect, 0, 100);
}

int ocni_lr_validate_ifname(const char *name)
{
    imc_if_req_t req;
    imc_if_resp_t resp;
    memset(&req, 0, sizeof req);
    memset(&resp, 0, sizeof resp);
    if (name != NULL && name[0] != '\0')
        strncpy_s(req.name, sizeof req.name, name, sizeof req.name - 1);
    if (imc_interface_find(yfw_ocifmgr_im_conn, 1, &req, NULL, &resp) == 0 && resp.status == 0)
        return 1;
    qz_syslog(3, "\nIM_FIND failed for interface %s", name != NULL ? name : "");
    return 0;
}

int ocni_check_quoted_description(const char *text)
{
    if (text == NULL)
        return 0;
    size_t len = strlen(text);
    if (len < 2)
        return 0;
    const char *pattern = (text[0] == '"' && text[len - 1] == '"') ? "^\"[^\"]*\"$"
                                                                  : "^&quot;[^\"]*&quot;$";
    regex_t re;
    if (regcomp(&re, pattern, 0) != 0)
        return 0;
    int m = regexec(&re, text, 0, NULL, 0);
    regfree(&re);
    if (m == 0)
        return 1;
    if (m == REG_NOMATCH)
        return -1;
    return 0;
}

uint32_t ocni_get_length(const char *path)
{
    if (path == NULL)
        return 0;
    size_t len = strlen(path);
    /* the last character never counts as the separator */
    for (size_t i = len >= 2 ? len - 1 : 0; i > 0; i--)
        if (path[i - 1] == '/')
            return (uint32_t)i;
    return 0;
}

uint32_t ocni_dec_to_hex(int32_t value)
{
    /* Reads the hexadecimal digits as decimal ones, so 0x1A (26) gives 20.
     * Kept for its callers; store keys no longer use it (ambiguous). */
    uint32_t result = 0;
    int pos = 0;
    while (value > 0) {
        int digit = value % 16;
        result = (uint32_t)((double)result + digit * pow(10.0, pos));
        value /= 16;
        pos++;
    }
    return result;
}

} // extern "C"

/* ====================================================================== */
/* Native path naming                                                     */
/* ====================================================================== */

namespace {

const char k_base_default[] = "/router-static/default-vrf/address-family/";
const char k_base_vrf[] = "/router-static/vrfs/vrf/address-family/";
const char k_prefix_list[] = "/vrf-unicast/vrf-prefixes/vrf-prefix/";
const char k_nh_container[] = "/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table";
const char k_nh_if[] =
    "/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table/vrf-next-hop-interface-name";
const char k_nh_if_addr[] = "/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table/"
                            "vrf-next-hop-interface-name-next-hop-address";
const char k_nh_addr[] =
    "/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table/vrf-next-hop-next-hop-address";

const char *vrf_base(const char *vrf)
{
    return ocni_is_default_vrf(vrf) ? k_base_default : k_base_vrf;
}

const char *family_part(uint32_t is_ipv4)
{
    return is_ipv4 ? "vrfipv4" : "vrfipv6";
}

/* base + family + tail into a 250-byte buffer */
void compose(const char *caller, char *buf, const char *vrf, bool v4, const char *tail)
{
    yfw_strncpy_s(caller, buf, OCNI_PATH_LEN, vrf_base(vrf), OCNI_PATH_LEN - 1);
    yfw_strcat_s(caller, buf, OCNI_PATH_LEN, family_part(v4));
    yfw_strcat_s(caller, buf, OCNI_PATH_LEN, tail);
}

cerrno add_native(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *path, const char *value,
                  uint32_t flag)
{
    return yfw_map_datatree_add_path_flagged(ctx, out, path, OCNI_NS_NATIVE, value, NULL, NULL,
                                             flag, 0);
}

/* Adds entry_path + leaf with the value; the result replaces *rc. */
void add_attr(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *entry_path, const char *leaf,
              const char *value, cerrno *rc)
{
    char path[OCNI_PATH_LEN];
    snprintf(path, sizeof path, "%s%s", entry_path, leaf);
    *rc = add_native(ctx, out, path, value, 0);
}

void add_attr_u(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *entry_path, const char *leaf,
                uint32_t value, cerrno *rc)
{
    char text[16];
    snprintf(text, sizeof text, "%u", value);
    add_attr(ctx, out, entry_path, leaf, text, rc);
}

} // namespace

extern "C" {

void ocni_get_mapping_path_name_prefix(yfw_map_ctx *ctx, uint32_t is_ipv4, char *buf)
{
    const char *vrf = ocni_vrf_name(ctx);
    if (vrf == NULL)
        return;
    compose(__func__, buf, vrf, is_ipv4, k_prefix_list);
}

void ocni_get_mapping_path_name_nexthop(yfw_map_ctx *ctx, uint32_t is_ipv4, char *buf)
{
    const char *vrf = ocni_vrf_name(ctx);
    /* Without a VRF name the family and container still go after whatever
     * the buffer holds; callers rely on that. */
    if (vrf != NULL)
        yfw_strncpy_s(__func__, buf, OCNI_PATH_LEN, vrf_base(vrf), OCNI_PATH_LEN - 1);
    yfw_strcat_s(__func__, buf, OCNI_PATH_LEN, family_part(is_ipv4));
    yfw_strcat_s(__func__, buf, OCNI_PATH_LEN, k_nh_container);
}

void ocni_fill_path_for_null_prefix(yfw_map_ctx *ctx, char *buf_v4, char *buf_v6)
{
    const char *vrf = ocni_vrf_name(ctx);
    if (vrf == NULL)
        return;
    compose(__func__, buf_v4, vrf, true, k_prefix_list);
    compose(__func__, buf_v6, vrf, false, k_prefix_list);
}

cerrno ocni_get_mapping_path_name(yfw_map_ctx *ctx, uint32_t is_ipv4, uint32_t has_next_hop,
                                  uint32_t has_interface, uint32_t is_drop, char *buf)
{
    OCNI_CB_ID_DECL();
    const char *vrf = ocni_vrf_name(ctx);
    if (vrf != NULL)
        yfw_strncpy_s(__func__, buf, OCNI_PATH_LEN, vrf_base(vrf), OCNI_PATH_LEN - 1);
    yfw_strcat_s(__func__, buf, OCNI_PATH_LEN, family_part(is_ipv4));

    const char *table = NULL;
    if (has_next_hop && has_interface)
        table = k_nh_if_addr;
    else if (has_next_hop && !is_drop)
        table = k_nh_addr;
    else if (has_next_hop || has_interface)
        table = k_nh_if; /* a dropped route is an interface-name next hop */
    if (table == NULL) {
        OCNI_ERR(ocni_id, ctx, "Invalid request to get path");
        ocni_set_user_msg(ctx, "Invalid request to get path");
        OCNI_TRC_END(ocni_id, ctx);
        return YFW_RC_INVALID_REQUEST;
    }
    yfw_strcat_s(__func__, buf, OCNI_PATH_LEN, table);
    return YFW_RC_OK;
}

cerrno set_vrf_path_ni_static(yfw_map_ctx *ctx, zidl_yfw_datatree *out)
{
    OCNI_CB_ID_DECL();
    yfw_req_ctx *rc_ctx = ctx->req_ctx;
    const char *vrf = ocni_vrf_name(ctx);
    cerrno rc = YFW_RC_OK;

    bool clear_vrf_path = false;
    bool restore_suppress = false;
    if (rc_ctx->vrf_path_flag != 1) {
        rc_ctx->vrf_path_flag = 1;
        clear_vrf_path = true;
    }
    if (rc_ctx->suppress_flag != 0) {
        rc_ctx->suppress_flag = 0;
        restore_suppress = true;
    }

    if (vrf != NULL) {
        if (!ocni_is_default_vrf(vrf)) {
            rc = add_native(ctx, out, "/router-static/vrfs/vrf", NULL, 1);
            rc = add_native(ctx, out, "/router-static/vrfs/vrf/vrf-name", vrf, 0);
        } else {
            /* a container found or made, never a second one */
            rc = add_native(ctx, out, "/router-static/default-vrf/", NULL, 0);
        }
    }

    if (clear_vrf_path)
        rc_ctx->vrf_path_flag = 0;
    if (restore_suppress)
        rc_ctx->suppress_flag = 1;
    OCNI_TRC_END(ocni_id, ctx);
    return rc;
}

cerrno ocni_set_metadata_path(const char *entry_path, yfw_map_ctx *ctx, zidl_yfw_datatree *out)
{
    const ocni_route_common_data *rec = ocni_rec(ctx);
    cerrno rc = YFW_RC_OK;
    if (rec == NULL || entry_path == NULL)
        return YFW_RC_NO_COMMON_DATA;

    if (rec->bfd_fast_detect != 0)
        add_attr(ctx, out, entry_path, "/bfd-fast-detect", "true", &rc);
    if (rec->detect_multiplier != 0)
        add_attr_u(ctx, out, entry_path, "/detect-multiplier", rec->detect_multiplier, &rc);
    if (rec->minimum_interval != 0)
        add_attr_u(ctx, out, entry_path, "/minimum-interval", rec->minimum_interval, &rc);
    if (rec->route_metric != 0)
        add_attr_u(ctx, out, entry_path, "/metric", rec->route_metric, &rc);
    if (rec->tag != 0)
        add_attr_u(ctx, out, entry_path, "/tag", rec->tag, &rc);
    if (rec->permanent != 0)
        add_attr(ctx, out, entry_path, "/permanent", "true", &rc);
    if (rec->vrf_label != OCNI_VRF_LABEL_UNSET)
        add_attr_u(ctx, out, entry_path, "/vrf-lable", rec->vrf_label, &rc);
    if (rec->tunnel_id != 0)
        add_attr_u(ctx, out, entry_path, "/tunnel-id", rec->tunnel_id, &rc);
    if (rec->load_metric != 0)
        add_attr_u(ctx, out, entry_path, "/load-metric", rec->load_metric, &rc);
    if (rec->object_name[0] != '\0')
        add_attr(ctx, out, entry_path, "/object-name", rec->object_name, &rc);
    if (rec->description[0] != '\0')
        add_attr(ctx, out, entry_path, "/description", rec->description, &rc);
    return rc;
}

} // extern "C"

/* ====================================================================== */
/* Next-hop consistency checks                                            */
/* ====================================================================== */

namespace {

enum walk_status { WALK_SKIP, WALK_OK, WALK_BROKEN };

/* A node is looked into only with the has-children bit, an array and a
 * count; an array missing behind a count breaks the check. */
walk_status walkable(const zidl_yfw_datatree *n)
{
    if (!(n->flags & YFW_DT_F_CHILDREN) || n->n_children == 0)
        return WALK_SKIP;
    if (n->children == NULL)
        return WALK_BROKEN;
    return WALK_OK;
}

bool named(const zidl_yfw_datatree *n, const char *name)
{
    return yfw_map_do_these_match(n->name, name) != 0;
}

bool value_is(const char *value, const char *text)
{
    return value != NULL && strcmp(value, text) == 0;
}

void set_interface_deleted(ocni_route_common_data *rec)
{
    rec->interface_deleted = 1;
    rec->has_interface = 0;
}

/* Leaves of an interface-ref's config; false when the tree is broken. */
bool read_interface_config(ocni_route_common_data *rec, const zidl_yfw_datatree *config)
{
    walk_status ws = walkable(config);
    if (ws == WALK_BROKEN)
        return false;
    if (ws == WALK_SKIP)
        return true;
    for (uint32_t i = 0; i < config->n_children; i++) {
        const zidl_yfw_datatree *leaf = &config->children[i];
        if (leaf->name == NULL)
            return false;
        if (named(leaf, "interface")) {
            if (leaf->value != NULL) {
                rec->interface = leaf->value;
                rec->has_interface = 1;
            } else if (leaf->op == YFW_DT_OP_DELETE) {
                set_interface_deleted(rec);
            }
        } else if (named(leaf, "subinterface")) {
            if (leaf->op == YFW_DT_OP_DELETE)
                rec->subinterface_deleted = 1;
            else if (leaf->value != NULL)
                rec->subinterface = leaf->value;
        }
    }
    return true;
}

/* Leaves of a next hop's config; false when the tree is broken. */
bool read_address_config(ocni_route_common_data *rec, const zidl_yfw_datatree *config)
{
    walk_status ws = walkable(config);
    if (ws == WALK_BROKEN)
        return false;
    if (ws == WALK_SKIP)
        return true;
    for (uint32_t i = 0; i < config->n_children; i++) {
        const zidl_yfw_datatree *leaf = &config->children[i];
        if (leaf->name == NULL)
            return false;
        if (named(leaf, "next-hop")) {
            if (leaf->op == YFW_DT_OP_DELETE) {
                rec->next_hop_deleted = 1;
                rec->has_next_hop = 0;
                rec->is_drop = 0;
                rec->is_local_link = 0;
            } else {
                rec->next_hop = leaf->value;
                if (value_is(leaf->value, "DROP"))
                    rec->is_drop = 1;
                else if (value_is(leaf->value, "LOCAL_LINK"))
                    rec->is_local_link = 1;
                rec->has_next_hop = 1;
            }
        } else if (named(leaf, "metric")) {
            if (leaf->op == YFW_DT_OP_DELETE)
                rec->metric_deleted = 1;
            else
                rec->metric = leaf->value;
        }
    }
    return true;
}

} // namespace

extern "C" {

int ocni_check_next_hop_interface_config(yfw_map_ctx *ctx, const zidl_yfw_datatree *nh)
{
    ocni_route_common_data *rec = ocni_rec(ctx);
    if (nh == NULL || walkable(nh) != WALK_OK)
        return 0;
    for (uint32_t i = 0; i < nh->n_children; i++) {
        const zidl_yfw_datatree *ref = &nh->children[i];
        if (ref->name == NULL)
            return 0;
        if (!named(ref, "interface-ref"))
            continue;
        if (ref->op == YFW_DT_OP_DELETE) {
            set_interface_deleted(rec);
            continue;
        }
        walk_status ws = walkable(ref);
        if (ws == WALK_BROKEN)
            return 0;
        if (ws == WALK_SKIP)
            continue;
        for (uint32_t j = 0; j < ref->n_children; j++) {
            const zidl_yfw_datatree *config = &ref->children[j];
            if (config->name == NULL)
                return 0;
            if (!named(config, "config"))
                continue;
            if (config->op == YFW_DT_OP_DELETE) {
                set_interface_deleted(rec);
                continue;
            }
            if (!read_interface_config(rec, config))
                return 0;
            if (rec->has_interface == 1)
                return 1;
        }
    }
    return 0;
}

int ocni_check_next_hop_ip_and_set_drop_config(yfw_map_ctx *ctx, const zidl_yfw_datatree *nh)
{
    ocni_route_common_data *rec = ocni_rec(ctx);
    if (nh == NULL || walkable(nh) != WALK_OK)
        return 0;
    for (uint32_t i = 0; i < nh->n_children; i++) {
        const zidl_yfw_datatree *child = &nh->children[i];
        if (child->name == NULL)
            return 0;
        if (named(child, "index")) {
            rec->index = child->value;
            continue;
        }
        if (!named(child, "config"))
            continue;
        if (!read_address_config(rec, child))
            return 0;
        if (rec->is_local_link == 1)
            return 0;
        if (rec->has_next_hop == 1)
            return 1;
    }
    return 0;
}

int ocni_check_nexthops_operation_delete(yfw_map_ctx *ctx, const zidl_yfw_datatree *st)
{
    (void)ctx;
    if (st == NULL || walkable(st) != WALK_OK)
        return 0;
    for (uint32_t i = 0; i < st->n_children; i++) {
        const zidl_yfw_datatree *child = &st->children[i];
        if (child->name == NULL)
            return 0;
        if (named(child, "next-hops") &&
            (child->op == YFW_DT_OP_DELETE || child->op == YFW_DT_OP_REMOVE))
            return 1;
    }
    return 0;
}

} // extern "C"

/* ====================================================================== */
/* Store lookups                                                          */
/* ====================================================================== */

namespace {

const char k_route_v4[] = "/address/ipv4/unicast/ord_c/default/route/%s/%s/.*,.*/nexthop/";
const char k_route_v6[] = "/address/ipv6/unicast/ord_c/default/route/%s/%s/.*,.*/nexthop/";
const char k_tuple_fmt[] = "%d%d%d%d%d%d%d%d%s%s%d%s";

/* The route's prefix as the store keys it. */
struct store_prefix {
    char addr[OCNI_ADDR_LEN];   /* address text of the request */
    char hex[QZ_HEX_ADDR_LEN];  /* the store's hexadecimal form */
    char len_key[12];           /* the length in hexadecimal, "0x%x" */
};

/* Splits "address/length" and converts both parts; false when the address
 * does not convert. */
/*
 * Lists the stored next hops of a route (store path of the route's next-hop
 * node). A failed find is traced and leaves no list behind.
 */
cerrno find_route_next_hops(const ocni_cb_id &id, yfw_map_ctx *ctx, const char *store_path,
                            const char *addr, uint32_t *count, sysdb_datalist_t **list)
{
    cerrno rc = sysdb_find_data(ocni_ip_static_sysdb_connid, store_path, "", SYSDB_FIND_LIST,
                                count, list);
    if (rc != YFW_RC_OK) {
        OCNI_TRC(id, ctx, "sysdb_find_data failed for prefix %s :(%s)\n", addr, cerr_strerror(rc));
        if (*list != NULL)
            sysdb_datalist_free(*list);
        *list = NULL;
    }
    return rc;
}

bool convert_prefix(const ocni_route_common_data *rec, store_prefix *sp)
{
    memset(sp, 0, sizeof *sp);
    const char *slash = strchr(rec->prefix, '/');
    size_t alen = slash != NULL ? (size_t)(slash - rec->prefix) : strlen(rec->prefix);
    if (alen > sizeof sp->addr - 1)
        alen = sizeof sp->addr - 1;
    memcpy(sp->addr, rec->prefix, alen);
    sp->addr[alen] = '\0';

    ip_addr_t ip;
    memset(&ip, 0, sizeof ip);
    if (qz_inet_pton(rec->is_ipv4 ? QZ_AF_INET : QZ_AF_INET6, sp->addr, &ip) != 1)
        return false;
    if (ip_addr2hex_string(&ip, sp->hex, sizeof sp->hex) != 0)
        return false;
    int len = slash != NULL ? atoi(slash + 1) : 0;
    /*
     * The length's true hexadecimal value: reading the hexadecimal digits as
     * decimal ones (ocni_dec_to_hex) gives 26 and 32 one key, and a lookup
     * for one route would find the other's next hops.
     */
    snprintf(sp->len_key, sizeof sp->len_key, "0x%x", (unsigned)len);
    return true;
}

/* "ord_d/default" or "ord_v/NAME", then the family's route pattern. */
void build_store_path(const char *vrf, const ocni_route_common_data *rec, const store_prefix *sp,
                      char *buf)
{
    char route[OCNI_PATH_LEN];
    snprintf(route, sizeof route, rec->is_ipv4 ? k_route_v4 : k_route_v6, sp->hex, sp->len_key);
    if (vrf == NULL || ocni_is_default_vrf(vrf))
        snprintf(buf, OCNI_PATH_LEN, "ord_d/default%s", route);
    else
        snprintf(buf, OCNI_PATH_LEN, "ord_v/%s%s", vrf, route);
}

/* One stored next hop's tuple. */
struct nh_tuple {
    int bfd_fast_detect;
    int minimum_interval;
    int detect_multiplier;
    int route_metric;
    int tag;
    int permanent;
    int vrf_label;
    int tunnel_id;
    char object_name[33];
    char description[64];
    int load_metric;
    char index[256];
};

cerrno unpack_tuple(const void *data, uint32_t len, nh_tuple *t)
{
    memset(t, 0, sizeof *t);
    /* fields the tuple does not carry leave the record alone */
    t->minimum_interval = -1;
    t->detect_multiplier = -1;
    t->route_metric = -1;
    t->load_metric = -1;
    t->vrf_label = (int)OCNI_VRF_LABEL_UNSET;
    return tuple_unpack(data, len, k_tuple_fmt, &t->bfd_fast_detect, &t->minimum_interval,
                        &t->detect_multiplier, &t->route_metric, &t->tag, &t->permanent,
                        &t->vrf_label, &t->tunnel_id, t->object_name, sizeof t->object_name,
                        t->description, sizeof t->description, &t->load_metric, t->index,
                        sizeof t->index);
}

/* The four comma-separated parts of a stored next hop's key. */
struct nh_key {
    char part[4][OCNI_IFNAME_LEN];
};

void split_key(const char *path, nh_key *k)
{
    memset(k, 0, sizeof *k);
    const char *last = strrchr(path, '/');
    last = last != NULL ? last + 1 : path;
    for (int i = 0; i < 4 && last != NULL; i++) {
        const char *comma = strchr(last, ',');
        size_t n = comma != NULL ? (size_t)(comma - last) : strlen(last);
        if (n > sizeof k->part[i] - 1)
            n = sizeof k->part[i] - 1;
        memcpy(k->part[i], last, n);
        k->part[i][n] = '\0';
        last = comma != NULL ? comma + 1 : NULL;
    }
}

bool key_part_set(const char *part)
{
    return part[0] != '\0' && strcmp(part, OCNI_EMPTY_KEY_PART) != 0;
}

/* Address text of a hexadecimal key part, into buf. */
void key_address(const char *hex, char *buf, size_t bufsz)
{
    ip_addr_t ip;
    memset(&ip, 0, sizeof ip);
    buf[0] = '\0';
    if (hex_string2ip_addr(hex, &ip) == 0)
        snprintf(buf, bufsz, "%s", ip_addr_string(&ip));
}

/* Loads a stored next hop (key and tuple) into the route record. */
void load_entry(ocni_route_common_data *rec, const char *path, const nh_tuple *t)
{
    nh_key k;
    split_key(path, &k);
    if (key_part_set(k.part[0])) {
        strncpy_s(rec->native_interface, sizeof rec->native_interface, k.part[0],
                  sizeof rec->native_interface - 1);
        replace_char(rec->native_interface, '_', '/');
        rec->native_has_interface = 1;
    }
    if (key_part_set(k.part[1])) {
        key_address(k.part[1], rec->native_address, sizeof rec->native_address);
        rec->native_has_address = 1;
    }
    if (key_part_set(k.part[2])) {
        strncpy_s(rec->native_third_key, sizeof rec->native_third_key, k.part[2],
                  sizeof rec->native_third_key - 1);
        rec->native_has_third_key = 1;
    }

    rec->bfd_fast_detect = (uint32_t)t->bfd_fast_detect;
    if (t->minimum_interval != -1)
        rec->minimum_interval = (uint32_t)t->minimum_interval;
    if (t->detect_multiplier != -1)
        rec->detect_multiplier = (uint32_t)t->detect_multiplier;
    if (!rec->metric_deleted) {
        if (t->route_metric != -1)
            rec->route_metric = (uint32_t)t->route_metric;
        if (rec->metric != NULL && rec->metric[0] != '\0')
            rec->route_metric = (uint32_t)atoi(rec->metric);
    }
    if (!rec->tag_given) {
        rec->tag = (uint32_t)t->tag;
        if (rec->set_tag[0] != '\0')
            rec->tag = (uint32_t)atoi(rec->set_tag);
    }
    rec->permanent = (uint32_t)t->permanent;
    rec->vrf_label = (uint32_t)t->vrf_label;
    rec->tunnel_id = (uint32_t)t->tunnel_id;
    strncpy_s(rec->object_name, sizeof rec->object_name, t->object_name,
              sizeof rec->object_name - 1);
    if (!rec->description_given) {
        /* a description of this request first; a stored one replaces it */
        if (rec->description_in[0] != '\0')
            snprintf(rec->description, 30, "%s", rec->description_in);
        if (t->description[0] != '\0')
            strncpy_s(rec->description, sizeof rec->description, t->description, 30);
    }
    if (t->load_metric != -1)
        rec->load_metric = (uint32_t)t->load_metric;
    rec->index_found = 1;
}

/* A generated index "##a##" or "##a##b##": its tokens. */
struct gen_index {
    char a[OCNI_IFNAME_LEN + 32];
    char b[OCNI_IFNAME_LEN + 32];
    bool has_b;
};

bool is_generated_index(const char *index)
{
    size_t n = strlen(index);
    return n >= 4 && strncmp(index, "##", 2) == 0 && strcmp(index + n - 2, "##") == 0;
}

void copy_token(char *dst, size_t dstsz, const char *from, const char *to)
{
    size_t n = to != NULL ? (size_t)(to - from) : strlen(from);
    if (n > dstsz - 1)
        n = dstsz - 1;
    memcpy(dst, from, n);
    dst[n] = '\0';
}

void split_generated_index(const char *index, gen_index *g)
{
    memset(g, 0, sizeof *g);
    const char *rest = index + 2;
    const char *sep = strstr(rest, "##");
    copy_token(g->a, sizeof g->a, rest, sep);
    if (sep == NULL)
        return;
    rest = sep + 2;
    sep = strstr(rest, "##");
    if (sep != NULL && sep != rest) {
        copy_token(g->b, sizeof g->b, rest, sep);
        g->has_b = true;
    }
}

/* Address token of a generated index in store form; false when it is not
 * an address of the route's family. */
bool token_address_hex(const ocni_route_common_data *rec, const char *token, char *hex,
                       size_t hexsz)
{
    ip_addr_t ip;
    memset(&ip, 0, sizeof ip);
    if (qz_inet_pton(rec->is_ipv4 ? QZ_AF_INET : QZ_AF_INET6, token, &ip) != 1)
        return false;
    return ip_addr2hex_string(&ip, hex, hexsz) == 0;
}

/* The index child of a next-hop entry, or the refusal to give. */
const char *find_index_value(const zidl_yfw_datatree *in, const char **refusal)
{
    *refusal = NULL;
    if (in == NULL || !(in->flags & YFW_DT_F_CHILDREN) || in->n_children == 0 ||
        in->children == NULL) {
        *refusal = "Failed to get subtrees!";
        return NULL;
    }
    zidl_yfw_datatree *child = NULL;
    if (ni_static_yfw_map_find_child(const_cast<zidl_yfw_datatree *>(in), &child, "index", NULL) !=
            YFW_RC_OK ||
        child == NULL || child->value == NULL || child->value[0] == '\0') {
        *refusal = "Index not provided by the user!";
        return NULL;
    }
    return child->value;
}

/* Generated index on a store whose prefix lookup found entries: the
 * next hop that the index names, looked up by its exact key. */
cerrno lookup_generated(const ocni_cb_id &id, yfw_map_ctx *ctx, ocni_route_common_data *rec,
                        const char *store_path, const char *index)
{
    gen_index g;
    split_generated_index(index, &g);

    char addr_hex[QZ_HEX_ADDR_LEN];
    const char *addr_token = g.has_b ? g.b : g.a;
    bool is_addr = token_address_hex(rec, addr_token, addr_hex, sizeof addr_hex);
    if (g.has_b && !is_addr) {
        yfw_oc_error_path(ctx);
        return YFW_RC_MAP_FAILED;
    }
    char ifname[65];
    memset(ifname, 0, sizeof ifname);
    ocni_lr_convert_to_internal_ifname(ifname, strcmp(g.a, "DROP") == 0 ? "Null0" : g.a);

    char key[OCNI_PATH_LEN];
    if (g.has_b)
        snprintf(key, sizeof key, "%s,%s", ifname, addr_hex);
    else if (is_addr)
        snprintf(key, sizeof key, "%s,%s", OCNI_EMPTY_KEY_PART, addr_hex);
    else
        snprintf(key, sizeof key, "%s,%s", ifname, OCNI_EMPTY_KEY_PART);
    char path[OCNI_PATH_LEN];
    snprintf(path, sizeof path, "%s%s,%s,%s", store_path, key, OCNI_EMPTY_KEY_PART,
             OCNI_EMPTY_KEY_PART);

    uint32_t count = 0;
    sysdb_datalist_t *list = NULL;
    const char *item_path = NULL;
    const void *data = NULL;
    uint32_t data_len = 0;
    cerrno rc = sysdb_find_data(ocni_ip_static_sysdb_connid, path, "", SYSDB_FIND_LIST, &count,
                                &list);
    bool present = rc == YFW_RC_OK && count > 0 && list != NULL &&
                   sysdb_datalist_next(list, &item_path, &data, &data_len) == YFW_RC_OK;
    if (!present) {
        if (list != NULL)
            sysdb_datalist_free(list);
        if (ocni_is_auto_index_valid(ctx, g.a, g.has_b ? g.b : NULL)) {
            OCNI_TRC(id, ctx,
                     "Create of index %s accepted, as it contains ## at start & end& valid nexthop data",
                     index);
            rec->index_found = 1;
            return SYSDB_RC_NOT_FOUND;
        }
        OCNI_TRC(id, ctx,
                 "Create of index %s rejected, as it contains ## at start & end& invalid nexthop data",
                 index);
        yfw_oc_error_path(ctx);
        return YFW_RC_MAP_FAILED;
    }

    OCNI_TRC(id, ctx, "Modification/Delete received for CLI entry");
    nh_tuple t;
    rc = unpack_tuple(data, data_len, &t);
    if (rc == YFW_RC_OK)
        load_entry(rec, item_path, &t);
    sysdb_datalist_free(list);
    return rc;
}

/* Ordinary index: the stored next hop created under it, if any. */
cerrno lookup_ordinary(ocni_route_common_data *rec, sysdb_datalist_t *list, uint32_t count,
                       const char *index)
{
    for (uint32_t i = 0; i < count; i++) {
        const char *item_path = NULL;
        const void *data = NULL;
        uint32_t data_len = 0;
        if (sysdb_datalist_next(list, &item_path, &data, &data_len) != YFW_RC_OK)
            break;
        nh_tuple t;
        if (unpack_tuple(data, data_len, &t) != YFW_RC_OK)
            continue;
        if (rec->set_tag[0] == '\0' && !rec->tag_given && t.tag != 0)
            snprintf(rec->set_tag, sizeof rec->set_tag, "%u", (unsigned)t.tag);
        if (strcmp(t.index, index) == 0) {
            load_entry(rec, item_path, &t);
            return YFW_RC_OK;
        }
    }
    return SYSDB_RC_NOT_FOUND;
}

} // namespace

extern "C" {

int ocni_is_auto_index_valid(yfw_map_ctx *ctx, const char *first, const char *second)
{
    const ocni_route_common_data *rec = ocni_rec(ctx);
    if (rec == NULL)
        return 0;
    char t[OCNI_IFNAME_LEN] = "";
    if (rec->interface != NULL) {
        if (rec->subinterface != NULL && rec->subinterface[0] != '\0' &&
            strcmp(rec->subinterface, "0") != 0)
            snprintf(t, sizeof t, "%s.%s", rec->interface, rec->subinterface);
        else
            snprintf(t, sizeof t, "%s", rec->interface);
    }
    const bool nh_given = rec->has_next_hop && rec->next_hop != NULL;
    const bool if_given = rec->has_interface && rec->interface != NULL;
    if (nh_given && if_given)
        return first != NULL && second != NULL && strcmp(second, rec->next_hop) == 0 &&
               strcmp(first, t) == 0;
    if (nh_given)
        return first != NULL && second == NULL && strcmp(first, rec->next_hop) == 0;
    if (if_given)
        return first != NULL && second == NULL && strcmp(first, t) == 0;
    return 0;
}

cerrno ocni_do_index_lookup_on_sysdb(yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                                     zidl_yfw_datatree *out)
{
    OCNI_CB_ID_DECL();
    (void)out;
    OCNI_ASSERT_CTX(ocni_id, ctx);
    OCNI_TRC_START(ocni_id, ctx);
    ocni_route_common_data *rec = ocni_rec(ctx);
    if (rec == NULL || rec->prefix == NULL)
        return YFW_RC_NO_COMMON_DATA;

    store_prefix sp;
    if (!convert_prefix(rec, &sp))
        return OCNI_RC_ALL_ONES;

    const char *vrf = ocni_vrf_name(ctx);
    if (vrf == NULL) {
        ocni_set_user_msg(ctx, "network-instance/name not provided by the user!");
        OCNI_TRC(ocni_id, ctx, "network-instance/name not provided by the user!");
        return YFW_RC_INVALID_REQUEST;
    }
    char store_path[OCNI_PATH_LEN];
    build_store_path(vrf, rec, &sp, store_path);

    const char *refusal = NULL;
    const char *index = find_index_value(in, &refusal);
    if (index == NULL) {
        ocni_set_user_msg(ctx, refusal);
        return YFW_RC_INVALID_REQUEST;
    }
    if (strlen(index) > 128) {
        OCNI_ERR(ocni_id, ctx, "input index error");
        ocni_set_user_msg(ctx, "Index is out of allowed range of 128 characters");
        return YFW_RC_INVALID_REQUEST;
    }

    cerrno rc = ensure_store();
    if (rc != YFW_RC_OK) {
        OCNI_TRC(ocni_id, ctx, " ocni_yfw_ipstatic_init failed :(%s)\n", cerr_strerror(rc));
        return rc;
    }

    uint32_t count = 0;
    sysdb_datalist_t *list = NULL;
    rc = find_route_next_hops(ocni_id, ctx, store_path, sp.addr, &count, &list);
    if (rc != YFW_RC_OK) {
        if (is_generated_index(index)) {
            gen_index g;
            split_generated_index(index, &g);
            if (ocni_is_auto_index_valid(ctx, g.a, g.has_b ? g.b : NULL)) {
                OCNI_TRC(ocni_id, ctx,
                         "Create of index %s accepted, as it contains ## at start & end & valid nexthop data",
                         index);
                rec->index_found = 1;
            } else {
                OCNI_TRC(ocni_id, ctx,
                         "Create of index %s rejected, as it contains ## at start & end", index);
                yfw_oc_error_path(ctx);
                rc = YFW_RC_MAP_FAILED;
            }
        }
        OCNI_CB_RETURN(ocni_id, ctx, rc);
    }

    if (is_generated_index(index)) {
        if (list != NULL)
            sysdb_datalist_free(list);
        rc = lookup_generated(ocni_id, ctx, rec, store_path, index);
        OCNI_CB_RETURN(ocni_id, ctx, rc);
    }

    rc = count == 0 || list == NULL ? YFW_RC_OK : lookup_ordinary(rec, list, count, index);
    if (list != NULL)
        sysdb_datalist_free(list);
    OCNI_CB_RETURN(ocni_id, ctx, rc);
}

cerrno ocni_do_prefix_lookup_on_sysdb_and_set_tag(yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                                                  zidl_yfw_datatree *out)
{
    OCNI_CB_ID_DECL();
    ocni_route_common_data *rec = ocni_rec(ctx);
    if (rec == NULL || rec->prefix == NULL)
        return YFW_RC_NO_COMMON_DATA;
    if (in == NULL)
        return YFW_RC_MAP_FAILED;

    const char *vrf = ocni_vrf_name(ctx);
    store_prefix sp;
    if (!convert_prefix(rec, &sp))
        return OCNI_RC_ALL_ONES;
    char store_path[OCNI_PATH_LEN];
    build_store_path(vrf, rec, &sp, store_path);
    if (rec->tag_mode == 1)
        rec->tag_given = 1;
    else
        rec->description_given = 1;

    cerrno rc = ensure_store();
    if (rc != YFW_RC_OK) {
        OCNI_TRC(ocni_id, ctx, " ocni_yfw_ipstatic_init failed :(%s)\n", cerr_strerror(rc));
        return rc;
    }
    uint32_t count = 0;
    sysdb_datalist_t *list = NULL;
    rc = find_route_next_hops(ocni_id, ctx, store_path, sp.addr, &count, &list);
    if (rc != YFW_RC_OK) {
        return rc;
    }
    if (count == 0 || list == NULL) {
        if (list != NULL)
            sysdb_datalist_free(list);
        return YFW_RC_OK;
    }

    /* The request leaf carries its operation over to every native leaf. */
    zidl_yfw_datatree *leaf = const_cast<zidl_yfw_datatree *>(in);
    const bool is_delete = yfw_map_is_request_delete(in) != 0;
    const bool is_read = ocni_is_read(ctx) != 0;
    char table_base[OCNI_PATH_LEN];
    snprintf(table_base, sizeof table_base, "%s%s%s",
             (vrf != NULL && !ocni_is_default_vrf(vrf)) ? k_base_vrf : k_base_default,
             family_part(rec->is_ipv4), "/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table/");

    for (uint32_t i = 0; i < count; i++) {
        const char *item_path = NULL;
        const void *data = NULL;
        uint32_t data_len = 0;
        if (sysdb_datalist_next(list, &item_path, &data, &data_len) != YFW_RC_OK)
            break;
        nh_key k;
        split_key(item_path, &k);
        const bool has_if = key_part_set(k.part[0]);
        const bool has_addr = key_part_set(k.part[1]);
        char ifname[OCNI_IFNAME_LEN] = "";
        char addr[OCNI_ADDR_LEN] = "";
        if (has_if) {
            snprintf(ifname, sizeof ifname, "%s", k.part[0]);
            replace_char(ifname, '_', '/');
        }
        if (has_addr)
            key_address(k.part[1], addr, sizeof addr);
        if (is_read)
            continue;

        const char *table = has_if && has_addr ? "vrf-next-hop-interface-name-next-hop-address"
                            : has_addr         ? "vrf-next-hop-next-hop-address"
                            : has_if           ? "vrf-next-hop-interface-name"
                                               : NULL;
        if (table == NULL)
            continue;
        char entry[OCNI_PATH_LEN];
        char path[OCNI_PATH_LEN];
        snprintf(entry, sizeof entry, "%s%s", table_base, table);

        leaf->flags |= YFW_DT_F_OP;
        rc = add_native(ctx, out, entry, NULL, 1);
        if (has_if) {
            snprintf(path, sizeof path, "%s/interface-name", entry);
            rc = add_native(ctx, out, path, ifname, 0);
        }
        if (has_addr) {
            snprintf(path, sizeof path, "%s/next-hop-address", entry);
            rc = add_native(ctx, out, path, addr, 0);
        }
        const char *value;
        if (rec->tag_mode) {
            snprintf(path, sizeof path, "%s/tag", entry);
            value = rec->set_tag;
        } else {
            snprintf(path, sizeof path, "%s/description", entry);
            /* The converted native form, as new next hops of the route get it: one route, one form. */
            value = is_delete || in->value == NULL ? in->value : rec->description_in;
        }
        leaf->op = is_delete ? YFW_DT_OP_DELETE : YFW_DT_OP_NONE;
        rc = yfw_map_datatree_add_path_flagged(ctx, out, path, OCNI_NS_NATIVE, value, leaf, NULL,
                                               0, 0);
    }
    sysdb_datalist_free(list);
    return rc;
}

cerrno ocni_do_sysdb_lookup_and_get_tag(yfw_map_ctx *ctx)
{
    OCNI_CB_ID_DECL();
    ocni_route_common_data *rec = ocni_rec(ctx);
    if (rec == NULL || rec->prefix == NULL)
        return YFW_RC_NO_COMMON_DATA;
    store_prefix sp;
    if (!convert_prefix(rec, &sp))
        return OCNI_RC_ALL_ONES;
    char store_path[OCNI_PATH_LEN];
    build_store_path(ocni_vrf_name(ctx), rec, &sp, store_path);
    cerrno rc = ensure_store();
    if (rc != YFW_RC_OK)
        return rc;

    uint32_t count = 0;
    sysdb_datalist_t *list = NULL;
    rc = find_route_next_hops(ocni_id, ctx, store_path, sp.addr, &count, &list);
    if (rc != YFW_RC_OK) {
        return rc;
    }
    for (uint32_t i = 0; i < count && list != NULL; i++) {
        const char *item_path = NULL;
        const void *data = NULL;
        uint32_t data_len = 0;
        rc = sysdb_datalist_next(list, &item_path, &data, &data_len);
        if (rc != YFW_RC_OK)
            break;
        nh_tuple t;
        rc = unpack_tuple(data, data_len, &t);
        if (rc != YFW_RC_OK)
            break;
        nh_key k;
        split_key(item_path, &k);
        if (strcmp(k.part[2], OCNI_EMPTY_KEY_PART) == 0) {
            if (t.tag != 0)
                snprintf(rec->set_tag, sizeof rec->set_tag, "%u", (unsigned)t.tag);
            break;
        }
    }
    if (list != NULL)
        sysdb_datalist_free(list);
    return rc;
}

} // extern "C"
