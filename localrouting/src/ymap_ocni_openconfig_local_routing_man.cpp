/*
 * Edit-direction callbacks (OpenConfig static routes to native
 * configuration) and the forward state callbacks.
 *
 * The framework calls one callback per OpenConfig node, parents first. The
 * static list allocates the route record; later callbacks of the same
 * route fill it and read it to pick the native VRF, family and next-hop
 * table. In a read (kinds 0 and 10) the same callbacks only name the
 * native (and, for kind 10, operational) paths the framework must read.
 */
#define OCNI_SRC_FILE "localrouting/src/ymap_ocni_openconfig_local_routing_man"
#include "ymap_ocni_openconfig_local_routing_man.h"
#include "ymap_ni_static_util.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"

#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <initializer_list>

#include <safe_str_lib.h>

namespace {

/* Bounded formatting: text that does not fit is cut, never an error. */
__attribute__((format(printf, 3, 4))) void cut_printf(char *buf, size_t size, const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, size, fmt, ap);
    va_end(ap);
}

/* ------------------------------------------------------------------ */
/* Paths                                                               */
/* ------------------------------------------------------------------ */

#define NHT_LIT "/vrf-unicast/vrf-prefixes/vrf-prefix/vrf-route/vrf-next-hop-table"
#define ROOT_DEFAULT "/router-static/default-vrf"
#define ROOT_NAMED "/router-static/vrfs/vrf"
#define OPER_STATIC(af) \
    "/ocni/" af "/network-instances/network-instance/protocols/protocol/static-routes/static-route"

const char STATIC_LIST_PATH[] =
    "/network-instances/network-instance/protocols/protocol/static-routes/static";
const char PROTOCOL_LIST_PATH[] = "/network-instances/network-instance/protocols/protocol";

/* The three native next-hop lists. */
enum nh_list { NHL_IF = 0, NHL_IF_ADDR = 1, NHL_ADDR = 2, NHL_NONE = 3 };
const char *const NHL_NAME[] = {
    "/vrf-next-hop-interface-name",
    "/vrf-next-hop-interface-name-next-hop-address",
    "/vrf-next-hop-next-hop-address",
};

const char NULL0[] = "Null0";
const char DROP_WITH_INTERFACE[] = "Interface configuration is not allowed when next-hop is drop";

const char *vrf_root(const char *vrf)
{
    return ocni_is_default_vrf(vrf) ? ROOT_DEFAULT : ROOT_NAMED;
}

const char *af_name(bool v4)
{
    return v4 ? "vrfipv4" : "vrfipv6";
}

/* Adds one node to the output tree; an empty path (no VRF known) adds nothing. */
cerrno add(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *path, const char *ns,
           const char *value, const zidl_yfw_datatree *src, uint32_t flag, uint32_t add_flags = 0)
{
    if (path == NULL || path[0] == '\0')
        return YFW_RC_OK;
    return yfw_map_datatree_add_path_flagged(ctx, out, path, ns, value, src, NULL, flag,
                                             add_flags);
}

/* Native next-hop leaf of a VRF root and family: <root>/address-family/<af>/...<list>/<leaf>. */
void native_nh_leaf(char *buf, const char *vrf, bool v4, nh_list l, const char *leaf)
{
    cut_printf(buf, OCNI_PATH_LEN, "%s/address-family/%s" NHT_LIT "%s/%s", vrf_root(vrf),
             af_name(v4), NHL_NAME[l], leaf);
}

struct nh_leaf {
    nh_list list;
    const char *leaf;
};

/*
 * Requests (no values) a run of next-hop leaves for one family; the last
 * one may carry a value.
 */
cerrno request_nh_leaves(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *vrf, bool v4,
                         const nh_leaf *leaves, size_t n, cerrno rc,
                         const char *last_value = NULL)
{
    char path[OCNI_PATH_LEN];
    for (size_t i = 0; i < n; i++) {
        native_nh_leaf(path, vrf, v4, leaves[i].list, leaves[i].leaf);
        rc = add(ctx, out, path, OCNI_NS_NATIVE, i + 1 == n ? last_value : NULL, NULL, 0);
    }
    return rc;
}

bool same_text(const char *a, const char *b)
{
    return a != NULL && b != NULL && strcmp(a, b) == 0;
}

/* Two address texts naming the same address (stored text is canonical, the request's need not be). */
bool same_address(const char *a, const char *b)
{
    if (a == NULL || b == NULL)
        return false;
    ip_addr_t x, y;
    for (int af : {QZ_AF_INET, QZ_AF_INET6}) {
        if (qz_inet_pton(af, a, &x) == 1 && qz_inet_pton(af, b, &y) == 1)
            return memcmp(x.addr, y.addr, sizeof x.addr) == 0;
    }
    return strcmp(a, b) == 0;
}

bool is_null0(const char *ifname)
{
    return ifname != NULL && strcmp(ifname, NULL0) == 0;
}

/* Callbacks that need the route record and find none log it and return 0. */
#define REC_OR_RETURN(id, ctx, rec)                                                    \
    do {                                                                               \
        if ((rec) == NULL) {                                                           \
            OCNI_ERR(id, ctx, "%s : ctx->req_ctx->common_data_ptr is NULL", (id).fn);  \
            OCNI_CB_RETURN(id, ctx, YFW_RC_OK);                                        \
        }                                                                              \
    } while (0)

/* Clears the suppression flag for a few additions and restores it afterwards. */
class unsuppressed {
public:
    explicit unsuppressed(yfw_map_ctx *ctx) : rc_(ctx->req_ctx), was_(rc_->suppress_flag)
    {
        rc_->suppress_flag = 0;
    }
    ~unsuppressed()
    {
        if (was_)
            rc_->suppress_flag = was_;
    }
    unsuppressed(const unsuppressed &) = delete;
    unsuppressed &operator=(const unsuppressed &) = delete;

private:
    yfw_req_ctx *rc_;
    uint32_t was_;
};

/* ------------------------------------------------------------------ */
/* Condition tables                                                    */
/* ------------------------------------------------------------------ */

/* Every row writes the incoming node's own value. */
const char *xpl_in_value(const zidl_yfw_datatree *in)
{
    return in != NULL ? in->value : NULL;
}

#define XPL_ROW(p) { p, OCNI_NS_NATIVE, xpl_in_value, 0, 0, "NULL" }
#define XPL_END { "NULL", "NULL", xpl_in_value, 0, 0, "None" }
#define XPL_FAMILY(root, af, leaf)                                                     \
    XPL_ROW(root "/address-family/" af NHT_LIT "/vrf-next-hop-interface-name/" leaf), \
    XPL_ROW(root "/address-family/" af NHT_LIT                                         \
                 "/vrf-next-hop-interface-name-next-hop-address/" leaf),               \
    XPL_ROW(root "/address-family/" af NHT_LIT "/vrf-next-hop-next-hop-address/" leaf)
#define XPL_SIX(root, leaf) \
    { XPL_FAMILY(root, "vrfipv4", leaf), XPL_FAMILY(root, "vrfipv6", leaf), XPL_END }

const xpath_list_type_t NHT_NAMED[] = {
    XPL_ROW(ROOT_NAMED "/address-family/vrfipv4" NHT_LIT),
    XPL_ROW(ROOT_NAMED "/address-family/vrfipv6" NHT_LIT),
    XPL_END,
};
const xpath_list_type_t NHT_DEFAULT[] = {
    XPL_ROW(ROOT_DEFAULT "/address-family/vrfipv4" NHT_LIT),
    XPL_ROW(ROOT_DEFAULT "/address-family/vrfipv6" NHT_LIT),
    XPL_END,
};
const xpath_list_type_t INDEX_DEFAULT[] = XPL_SIX(ROOT_DEFAULT, "index");
const xpath_list_type_t INDEX_NAMED[] = XPL_SIX(ROOT_NAMED, "index");
const xpath_list_type_t METRIC_DEFAULT[] = XPL_SIX(ROOT_DEFAULT, "metric");
const xpath_list_type_t METRIC_NAMED[] = XPL_SIX(ROOT_NAMED, "metric");

const int NHT_ROWS = 2;
const int SIX_ROWS = 6;

/* A private, markable copy of a default-VRF and a named-VRF table pair. */
template <size_t N> struct table_pair {
    xpath_list_type_t def[N];
    xpath_list_type_t named[N];

    table_pair(const xpath_list_type_t (&d)[N], const xpath_list_type_t (&n)[N])
    {
        memcpy(def, d, sizeof def);
        memcpy(named, n, sizeof named);
    }
    /* The copy the condition callback marks for this VRF. */
    xpath_list_type_t *for_vrf(const char *vrf)
    {
        return ocni_is_default_vrf(vrf) ? def : named;
    }
};

/*
 * Adds the selected rows, default-VRF row i before named-VRF row i, with
 * the getter's value, not tied to `in`.
 */
template <size_t N>
cerrno add_selected(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const table_pair<N> &t, int nrows,
                    const zidl_yfw_datatree *in, bool named_ok, cerrno rc)
{
    for (int i = 0; i < nrows && i < (int)N - 1; i++) {
        const xpath_list_type_t *rows[2] = {&t.def[i], named_ok ? &t.named[i] : NULL};
        for (const xpath_list_type_t *r : rows) {
            if (r != NULL && r->selected)
                rc = add(ctx, out, r->path, r->ns, r->get_value(in), NULL, 0, r->add_flags);
        }
    }
    return rc;
}

void mark_row(xpath_list_type_t *t, int nrows, int row)
{
    if (row >= 0 && row < nrows)
        t[row].selected = 1;
}

void mark_rows(xpath_list_type_t *t, int nrows, int from, int to)
{
    for (int i = from; i <= to; i++)
        mark_row(t, nrows, i);
}

/* Row (within a family) of the entry stored for the index: interface only, both, address only. */
int stored_row(const ocni_route_common_data *rec)
{
    if (rec->native_has_interface && !rec->native_has_address)
        return 0;
    if (rec->native_has_interface && rec->native_has_address)
        return 1;
    if (rec->native_has_address)
        return 2;
    return -1;
}

void mark_stored(xpath_list_type_t *t, int nrows, const ocni_route_common_data *rec, int base)
{
    int r = stored_row(rec);
    if (r >= 0)
        mark_row(t, nrows, base + r);
}

/* Marks the first row of the record's family whose path holds `needle`. */
void mark_needle(xpath_list_type_t *t, int nrows, const ocni_route_common_data *rec,
                 const char *list, const char *leaf)
{
    char needle[OCNI_PATH_LEN];
    cut_printf(needle, sizeof needle, "%s/%s", list + 1, leaf); /* list names start with "/" */
    const char *fam = rec->is_ipv4 ? "/vrfipv4/" : "/vrfipv6/";
    for (int i = 0; i < nrows; i++) {
        if (strstr(t[i].path, fam) != NULL && strstr(t[i].path, needle) != NULL) {
            t[i].selected = 1;
            return;
        }
    }
}

/* Read-kind marking shared by the index and metric conditions. */
void mark_for_read(yfw_map_ctx *ctx, xpath_list_type_t *t, int nrows,
                   const ocni_route_common_data *rec)
{
    const bool vrf_path = ctx->req_ctx->vrf_path_flag == 1;
    if (rec->is_ipv4) {
        if (vrf_path && rec->index == NULL)
            mark_rows(t, nrows, 0, 2);
        else
            mark_stored(t, nrows, rec, 0);
    } else if (rec->prefix == NULL) {
        mark_rows(t, nrows, 0, nrows - 1);
    } else if (vrf_path && rec->index == NULL) {
        mark_rows(t, nrows, 3, 5);
    } else {
        mark_stored(t, nrows, rec, 3);
    }
}

/* ------------------------------------------------------------------ */
/* Forward state callbacks                                              */
/* ------------------------------------------------------------------ */

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

/* ------------------------------------------------------------------ */
/* Static-routes container and static list                             */
/* ------------------------------------------------------------------ */

/* What a request subtree asks for. */
enum class intent { KEYS_ONLY, DELETES, CREATES };

/*
 * CREATES when some node below `n` creates or sets something, DELETES when
 * it only deletes (key leaves name what is deleted and count for neither).
 */
intent subtree_intent(const zidl_yfw_datatree *n)
{
    if (n->op == YFW_DT_OP_DELETE || n->op == YFW_DT_OP_REMOVE)
        return intent::DELETES;
    if (!(n->flags & YFW_DT_F_CHILDREN) || n->children == NULL || n->n_children == 0) {
        const bool key = (n->flags & YFW_DT_F_LIST) && n->value != NULL;
        return key ? intent::KEYS_ONLY : intent::CREATES;
    }
    bool deletes = false;
    for (uint32_t i = 0; i < n->n_children && n->children[i].name != NULL; i++) {
        const intent c = subtree_intent(&n->children[i]);
        if (c == intent::CREATES)
            return c;
        deletes = deletes || c == intent::DELETES;
    }
    /* An entry given by its keys alone is created. */
    return deletes ? intent::DELETES : intent::CREATES;
}

cerrno static_routes_container(const ocni_cb_id &id, yfw_map_ctx *ctx,
                               const zidl_yfw_datatree *in, unsigned int subtrees,
                               zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);

    const char *vrf = ocni_vrf_name(ctx);
    char *identifier = NULL;
    char *prefix = NULL;
    (void)yfw_map_get_node_info(ctx, PROTOCOL_LIST_PATH, "identifier", &identifier);
    (void)yfw_map_get_node_info(ctx, STATIC_LIST_PATH, "prefix", &prefix);

    const bool read = ocni_is_read(ctx);
    const bool del = yfw_map_is_request_delete(in) != 0;
    const bool not_static = identifier != NULL && strcasecmp(identifier, "STATIC") != 0;
    cerrno rc = YFW_RC_OK;

    /*
     * Only a request that creates or sets something needs the instance to
     * exist: deletes pass, so that routes stored in an instance the VRF list
     * does not hold can still be removed. The framework turns a delete of this
     * container into deletes of its entries, so the container itself need not
     * carry the delete.
     */
    if (!read && !del && subtree_intent(in) != intent::DELETES) {
        uint8_t exists = 0;
        rc = ocni_yfw_ipstatic_vrf_exists(ctx, &exists);
        if (rc != YFW_RC_OK)
            OCNI_CB_RETURN(id, ctx, rc);
        if (!exists) {
            char msg[OCNI_PATH_LEN];
            cut_printf(msg, sizeof msg,
                     "Static route configuration is not allowed as network-instance %s is not "
                     "configured yet",
                     vrf != NULL ? vrf : "");
            ocni_set_user_msg_tag(ctx, msg, OCNI_TAG_MAP_US);
            OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
        }
    }

    if (subtrees != 0) {
        OCNI_TRC(id, ctx, "Mapping done for this node");
        OCNI_CB_RETURN(id, ctx, add(ctx, out, "/router-static", OCNI_NS_NATIVE, NULL, in, 0));
    }

    OCNI_TRC(id, ctx, "No subtrees");
    if (!read) {
        if (!del)
            OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
        if (not_static) {
            OCNI_TRC(id, ctx, "Returing from here, as key is not STATIC");
            OCNI_CB_RETURN(id, ctx, YFW_RC_NOT_APPLICABLE);
        }
        if (vrf == NULL) {
            unsuppressed guard(ctx);
            rc = add(ctx, out, "/router-static", OCNI_NS_NATIVE, NULL, in, 0);
        }
        OCNI_CB_RETURN(id, ctx, rc);
    }

    if (not_static) {
        OCNI_TRC(id, ctx, "Returing from here, as key is not STATIC");
        OCNI_CB_RETURN(id, ctx, YFW_RC_NOT_APPLICABLE);
    }
    if (ocni_read_wants_config(ctx))
        rc = add(ctx, out, "/router-static", OCNI_NS_NATIVE, NULL, in, 0);
    OCNI_CB_RETURN(id, ctx, rc);
}

/* Frees a tagged copy when it goes out of scope. */
class tagged_copy {
public:
    tagged_copy(const char *text, const char *tag)
        : p_(text != NULL ? yfw_strdup(text, tag) : NULL)
    {
    }
    ~tagged_copy() { wos_named_free(p_); }
    tagged_copy(const tagged_copy &) = delete;
    tagged_copy &operator=(const tagged_copy &) = delete;
    char *get() const { return p_; }

private:
    char *p_;
};

/* Splits "address/length" in place; *len is NULL without a "/". */
void split_prefix(char *text, char **addr, char **len)
{
    *addr = NULL;
    *len = NULL;
    if (text == NULL)
        return;
    char *save = NULL;
    *addr = strtok_r(text, "/", &save);
    if (*addr != NULL)
        *len = strtok_r(NULL, "/", &save);
}

cerrno static_list(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                   zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);

    const char *vrf = ocni_vrf_name(ctx);
    yfw_req_ctx *rq = ctx->req_ctx;

    char *prefix = NULL;
    if (in->n_children != 0) {
        if (in->children == NULL)
            OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
        for (uint32_t i = 0; i < in->n_children; i++) {
            const zidl_yfw_datatree *c = &in->children[i];
            if (c->name == NULL)
                OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
            if (yfw_map_do_these_match(c->name, "prefix")) {
                prefix = c->value;
                break;
            }
        }
    }
    tagged_copy copy(prefix, "prefixinput");
    char *addr = NULL;
    char *len = NULL;
    split_prefix(copy.get(), &addr, &len);

    if (rq->common_data_ptr != NULL) {
        wos_named_free(rq->common_data_ptr);
        rq->common_data_ptr = NULL;
    }
    ocni_route_common_data *rec =
        static_cast<ocni_route_common_data *>(calloc(1, sizeof(ocni_route_common_data)));
    rq->common_data_ptr = rec;
    if (rec == NULL) {
        OCNI_ERR(id, ctx, "ctx->req_ctx->common_data_ptr is NULL");
        ocni_set_user_msg(ctx, "ctx->req_ctx->common_data_ptr is NULL");
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    }

    if (ocni_check_nexthops_operation_delete(ctx, in) == 1)
        rec->next_hops_deleted = 1;
    rec->prefix = prefix;
    const char *family = addr != NULL ? ocni_ymap_localrouting_check_ipv4_ipv6(addr) : "NULL";
    rec->is_ipv4 = strcmp(family, "ipv4") == 0 ? 1 : 0;

    char path[OCNI_PATH_LEN] = "";
    ocni_get_mapping_path_name_prefix(ctx, rec->is_ipv4, path);

    const bool named = vrf != NULL && !ocni_is_default_vrf(vrf);
    cerrno rc = YFW_RC_OK;

    if (yfw_map_is_request_delete(in)) {
        if (prefix == NULL && rq->suppress_flag) {
            if (named) {
                unsuppressed guard(ctx);
                rc = add(ctx, out, ROOT_NAMED, OCNI_NS_NATIVE, NULL, in, 1);
                rc = add(ctx, out, ROOT_NAMED "/vrf-name", OCNI_NS_NATIVE, vrf, NULL, 0);
            } else if (vrf != NULL) {
                rc = add(ctx, out,
                         ROOT_DEFAULT "/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix",
                         OCNI_NS_NATIVE, NULL, in, 1);
                rc = add(ctx, out,
                         ROOT_DEFAULT "/address-family/vrfipv6/vrf-unicast/vrf-prefixes/vrf-prefix",
                         OCNI_NS_NATIVE, NULL, in, 1);
            }
            OCNI_CB_RETURN(id, ctx, rc);
        }
        if (named)
            rc = set_vrf_path_ni_static(ctx, out);
        rc = add(ctx, out, path, OCNI_NS_NATIVE, NULL, in, 1);
        OCNI_CB_RETURN(id, ctx, rc);
    }

    rc = set_vrf_path_ni_static(ctx, out);
    if (addr != NULL) {
        rc = add(ctx, out, path, OCNI_NS_NATIVE, NULL, in, 1);
    } else {
        char v4[OCNI_PATH_LEN] = "";
        char v6[OCNI_PATH_LEN] = "";
        ocni_fill_path_for_null_prefix(ctx, v4, v6);
        rc = add(ctx, out, v4, OCNI_NS_NATIVE, NULL, in, 1);
        rc = add(ctx, out, v6, OCNI_NS_NATIVE, NULL, in, 1);
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

/* ------------------------------------------------------------------ */
/* Prefix leaves                                                       */
/* ------------------------------------------------------------------ */

/* Operational paths of a static route for one family; the route's prefix when known. */
cerrno request_oper_static(yfw_map_ctx *ctx, zidl_yfw_datatree *out, bool v4, const char *vrf,
                           const char *prefix, cerrno rc)
{
    const char *base = v4 ? OPER_STATIC("vrfipv4") : OPER_STATIC("vrfipv6");
    const char *ni = v4 ? "/ocni/vrfipv4/network-instances/network-instance"
                        : "/ocni/vrfipv6/network-instances/network-instance";
    char path[OCNI_PATH_LEN];

    rc = add(ctx, out, ni, OCNI_NS_OPER, NULL, NULL, 1);
    cut_printf(path, sizeof path, "%s/name", ni);
    rc = add(ctx, out, path, OCNI_NS_OPER, vrf, NULL, 0);
    rc = add(ctx, out, base, OCNI_NS_OPER, NULL, NULL, 1);
    static const char *const leaves[] = {
        "/prefix",
        "/static-routes-state/prefix",
        "/static-routes-state/set-tag",
        "/static-routes-state/description",
    };
    for (const char *leaf : leaves) {
        cut_printf(path, sizeof path, "%s%s", base, leaf);
        rc = add(ctx, out, path, OCNI_NS_OPER, leaf == leaves[0] ? prefix : NULL, NULL, 0);
    }
    return rc;
}

/* Native prefix and prefix-length of a family under the VRF root, not tied to `in`. */
cerrno request_native_prefix(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *vrf, bool v4,
                             const char *addr, const char *len)
{
    char path[OCNI_PATH_LEN];
    cut_printf(path, sizeof path, "%s/address-family/%s/vrf-unicast/vrf-prefixes/vrf-prefix/prefix",
             vrf_root(vrf), af_name(v4));
    add(ctx, out, path, OCNI_NS_NATIVE, addr, NULL, 0);
    cut_printf(path, sizeof path,
             "%s/address-family/%s/vrf-unicast/vrf-prefixes/vrf-prefix/prefix-length",
             vrf_root(vrf), af_name(v4));
    return add(ctx, out, path, OCNI_NS_NATIVE, len, NULL, 0);
}

/* Edit kinds: base + "/prefix" and base + "/prefix-length", tied to `in`. */
cerrno write_native_prefix(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *base,
                           const zidl_yfw_datatree *in, const char *addr, const char *len)
{
    char path[OCNI_PATH_LEN];
    cut_printf(path, sizeof path, "%s/prefix", base);
    add(ctx, out, path, OCNI_NS_NATIVE, addr, in, 0);
    cut_printf(path, sizeof path, "%s/prefix-length", base);
    return add(ctx, out, path, OCNI_NS_NATIVE, len, in, 0);
}

cerrno static_prefix_key(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                         zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, out != NULL);
    const char *vrf = ocni_vrf_name(ctx);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);

    const char *value = in != NULL ? in->value : NULL;
    tagged_copy copy(value, "input");
    char *addr = NULL;
    char *len = NULL;
    if (value != NULL) {
        rec->prefix = in->value;
        split_prefix(copy.get(), &addr, &len);
        if (len == NULL) {
            OCNI_ERR(id, ctx, "prefix-length is missing in the request");
            ocni_set_user_msg(ctx, "Invalid 'prefix' - netmask is missing");
            OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
        }
    }

    char base[OCNI_PATH_LEN] = "";
    ocni_get_mapping_path_name_prefix(ctx, rec->is_ipv4, base);

    if (!ocni_is_read(ctx)) {
        if (value == NULL)
            OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
        OCNI_CB_RETURN(id, ctx, write_native_prefix(ctx, out, base, in, addr, len));
    }

    cerrno rc = YFW_RC_OK;
    const bool state = ocni_is_read_state(ctx);
    const bool config = ocni_read_wants_config(ctx) && vrf != NULL;
    if (rec->is_ipv4 || rec->prefix != NULL) {
        const bool v4 = rec->is_ipv4 != 0;
        if (config)
            rc = request_native_prefix(ctx, out, vrf, v4, addr, len);
        if (state)
            rc = request_oper_static(ctx, out, v4, vrf, rec->prefix, rc);
    } else if (ctx->req_ctx->vrf_path_flag == 1) {
        if (config) {
            char path[OCNI_PATH_LEN];
            for (bool v4 : {true, false}) {
                cut_printf(path, sizeof path, "%s/address-family/%s/vrf-unicast/vrf-prefixes",
                         vrf_root(vrf), af_name(v4));
                rc = add(ctx, out, path, OCNI_NS_NATIVE, NULL, NULL, 1);
            }
        }
        if (state) {
            rc = request_oper_static(ctx, out, true, vrf, NULL, rc);
            rc = request_oper_static(ctx, out, false, vrf, NULL, rc);
        }
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

cerrno config_prefix(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                     zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    const char *vrf = ocni_vrf_name(ctx);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);

    /* The request's own text is split: its "/" becomes the terminator. */
    char *addr = NULL;
    char *len = NULL;
    split_prefix(in->value, &addr, &len);

    char base[OCNI_PATH_LEN] = "";
    ocni_get_mapping_path_name_prefix(ctx, rec->is_ipv4, base);

    if (!ocni_is_read(ctx)) {
        if (in->value == NULL)
            OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
        OCNI_CB_RETURN(id, ctx, write_native_prefix(ctx, out, base, in, addr, len));
    }
    if (vrf == NULL)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    OCNI_CB_RETURN(id, ctx, request_native_prefix(ctx, out, vrf, rec->is_ipv4 != 0, addr, len));
}

/* ------------------------------------------------------------------ */
/* Next-hops container                                                 */
/* ------------------------------------------------------------------ */

cerrno nexthops_container(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                          zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);

    const char *vrf = ocni_vrf_name(ctx);
    table_pair<3> t(NHT_DEFAULT, NHT_NAMED);
    if (vrf != NULL)
        ocni_nexthops_cond_manual_callback(ctx, NHT_ROWS, t.for_vrf(vrf));

    cerrno rc = YFW_RC_OK;
    const bool read = ocni_is_read(ctx);
    if (!read || ocni_read_wants_config(ctx)) {
        const bool named_ok = !yfw_map_is_request_delete(in) || rec->prefix != NULL;
        rc = add_selected(ctx, out, t, NHT_ROWS, in, named_ok, rc);
    }
    if (ocni_is_read_state(ctx)) {
        static const char V4[] = OPER_STATIC("vrfipv4") "/next-hops";
        static const char V6[] = OPER_STATIC("vrfipv6") "/next-hops";
        if (rec->prefix == NULL) {
            rc = add(ctx, out, V4, OCNI_NS_OPER, in->value, NULL, 0);
            rc = add(ctx, out, V6, OCNI_NS_OPER, in->value, NULL, 0);
        } else {
            rc = add(ctx, out, rec->is_ipv4 ? V4 : V6, OCNI_NS_OPER, in->value, NULL, 0);
        }
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

/* Condition callbacks share their frame: context, record and table checks. */
#define COND_BEGIN(id, ctx, table, rec)                                  \
    OCNI_CB_BEGIN(id, ctx, (table) != NULL);                             \
    ocni_route_common_data *rec = ocni_rec(ctx);                         \
    REC_OR_RETURN(id, ctx, rec)

/* ------------------------------------------------------------------ */
/* Next-hop list                                                       */
/* ------------------------------------------------------------------ */

/* One next-hop entry being mapped: where its native lists live and what it carries. */
struct nh_job {
    yfw_map_ctx *ctx;
    const zidl_yfw_datatree *in;
    zidl_yfw_datatree *out;
    ocni_route_common_data *rec;
    const ocni_cb_id *id; /* the exported callback, for traces */
    char table[OCNI_PATH_LEN]; /* ends in vrf-next-hop-table */
    char ifname[OCNI_IFNAME_LEN]; /* native interface name of the request, or "" */
};

void nh_entry_path(const nh_job &j, nh_list l, char *buf)
{
    cut_printf(buf, OCNI_PATH_LEN, "%s%s", j.table, NHL_NAME[l]);
}

void nh_leaf_path(const nh_job &j, nh_list l, const char *leaf, char *buf)
{
    cut_printf(buf, OCNI_PATH_LEN, "%s%s/%s", j.table, NHL_NAME[l], leaf);
}

nh_list list_of(const char *addr, const char *ifname)
{
    if (addr != NULL && ifname != NULL)
        return NHL_IF_ADDR;
    if (addr != NULL)
        return NHL_ADDR;
    if (ifname != NULL)
        return NHL_IF;
    return NHL_NONE;
}

/* The list node of an entry and its key leaves, all tied to `in`. */
cerrno add_entry_keys(const nh_job &j, nh_list l, const char *addr, const char *ifname)
{
    char path[OCNI_PATH_LEN];
    nh_entry_path(j, l, path);
    cerrno rc = add(j.ctx, j.out, path, OCNI_NS_NATIVE, NULL, j.in, 1);
    if (l == NHL_IF_ADDR || l == NHL_ADDR) {
        nh_leaf_path(j, l, "next-hop-address", path);
        rc = add(j.ctx, j.out, path, OCNI_NS_NATIVE, addr, j.in, 0);
    }
    if (l == NHL_IF_ADDR || l == NHL_IF) {
        nh_leaf_path(j, l, "interface-name", path);
        rc = add(j.ctx, j.out, path, OCNI_NS_NATIVE, ifname, j.in, 0);
    }
    return rc;
}

/* "##...##": an index the read direction made up from the entry's keys. */
bool is_generated_index(const char *index)
{
    const size_t n = index != NULL ? strlen(index) : 0;
    return n >= 4 && strncmp(index, "##", 2) == 0 && strcmp(index + n - 2, "##") == 0;
}

/*
 * Writes a whole entry: list node, keys, the OpenConfig index (unless the
 * index was found or generated) and the route attributes of the record.
 * A route-wide tag or description given earlier in this request has been
 * fanned out to the stored entries only, so it is carried over here.
 */
cerrno write_entry(const nh_job &j, nh_list l, const char *addr, const char *ifname)
{
    ocni_route_common_data *rec = j.rec;
    char path[OCNI_PATH_LEN];
    cerrno rc = add_entry_keys(j, l, addr, ifname);
    /*
     * A generated index names the entry by its keys and is never stored; an
     * ordinary index found in the store moves with the entry it names (kept on
     * a rewrite on purpose: dropping it would break a client's read-then-edit
     * round trip).
     */
    if (!rec->index_found || !is_generated_index(rec->index)) {
        nh_leaf_path(j, l, "index", path);
        rc = add(j.ctx, j.out, path, OCNI_NS_NATIVE, rec->index, j.in, 0);
    }
    if (rec->tag_given && rec->set_tag[0] != '\0')
        rec->tag = (uint32_t)strtoul(rec->set_tag, NULL, 10);
    if (rec->description_given && rec->description_in[0] != '\0')
        cut_printf(rec->description, sizeof rec->description, "%s", rec->description_in);
    nh_entry_path(j, l, path);
    if (ocni_set_metadata_path(path, j.ctx, j.out) != YFW_RC_OK) {
        ocni_set_user_msg(j.ctx, "Invalid request");
        return YFW_RC_INVALID_REQUEST;
    }
    /*
     * The attribute writer takes a tag of 0 for "none"; a route-wide set-tag 0
     * given now reaches the stored next hops through the fan-out, so this one
     * carries it too.
     */
    if (rec->tag_given && rec->set_tag[0] != '\0' && rec->tag == 0) {
        nh_leaf_path(j, l, "tag", path);
        rc = add(j.ctx, j.out, path, OCNI_NS_NATIVE, "0", NULL, 0);
    }
    return rc;
}

/* Adds the old entry with `in` marked, for the duration, by the deleting operation `op`. */
cerrno remove_entry(const nh_job &j, nh_list l, const char *addr, const char *ifname, uint32_t op)
{
    zidl_yfw_datatree *node = const_cast<zidl_yfw_datatree *>(j.in);
    const uint32_t old = node->op;
    node->op = op;
    node->flags |= YFW_DT_F_OP;
    cerrno rc = add_entry_keys(j, l, addr, ifname);
    node->op = old;
    return rc;
}

const char *stored_addr(const ocni_route_common_data *rec)
{
    return rec->native_has_address ? rec->native_address : NULL;
}

const char *stored_if(const ocni_route_common_data *rec)
{
    return rec->native_has_interface ? rec->native_interface : NULL;
}

/* Removes the entry stored for the index, in the list its keys select; nothing stored: 0. */
cerrno remove_stored(const nh_job &j, uint32_t op)
{
    const char *a = stored_addr(j.rec);
    const char *i = stored_if(j.rec);
    nh_list l = list_of(a, i);
    if (l == NHL_NONE)
        return YFW_RC_OK;
    return remove_entry(j, l, a, i, op);
}

/* Native name of the request's interface: interface[.subinterface]; refuses a "." in it. */
cerrno native_ifname(yfw_map_ctx *ctx, const ocni_route_common_data *rec, char *buf)
{
    buf[0] = '\0';
    if (rec->interface_deleted || !rec->has_interface || rec->interface == NULL)
        return YFW_RC_OK;
    cut_printf(buf, OCNI_IFNAME_LEN, "%s", rec->interface);
    if (strchr(buf, '.') != NULL) {
        ocni_set_user_msg(ctx, "Invalid request");
        return YFW_RC_INVALID_REQUEST;
    }
    if (!rec->subinterface_deleted && rec->subinterface != NULL &&
        strcmp(rec->subinterface, "0") != 0) {
        size_t n = strlen(buf);
        cut_printf(buf + n, OCNI_IFNAME_LEN - n, ".%s", rec->subinterface);
    }
    return YFW_RC_OK;
}

/* Address and interface the request gives (the interface may be rebuilt from the store). */
struct nh_given {
    const char *addr;  /* next-hop address; NULL for none or DROP */
    const char *ifname; /* native interface name, NULL for none */
    bool nh;           /* a next hop (address or DROP) */
    bool drop;
};

/* New entry (index not stored): the list the request's values select. */
cerrno create_entry(const nh_job &j, const nh_given &g)
{
    ocni_route_common_data *rec = j.rec;
    /* Nothing stored: no label, and the request's own metric. */
    rec->vrf_label = OCNI_VRF_LABEL_UNSET;
    if (rec->metric != NULL && !rec->metric_deleted)
        rec->route_metric = (uint32_t)strtoul(rec->metric, NULL, 10);
    if (g.nh && g.ifname != NULL)
        return write_entry(j, NHL_IF_ADDR, g.addr, g.ifname);
    if (g.nh)
        return g.drop ? write_entry(j, NHL_IF, NULL, NULL0) : write_entry(j, NHL_ADDR, g.addr, NULL);
    if (g.ifname != NULL)
        return write_entry(j, NHL_IF, NULL, g.ifname);
    return YFW_RC_OK;
}

/* The entry stored for the index was rewritten under new keys. */
cerrno rewritten(const nh_job &j, cerrno rc)
{
    if (rc != YFW_RC_OK)
        return rc;
    j.rec->next_hop_touched = 1;
    j.rec->metric_touched = 1;
    return YFW_RC_OK;
}

cerrno unchanged(const nh_job &j)
{
    j.rec->next_hop_touched = 1;
    j.rec->same_entry = 1;
    return YFW_RC_OK;
}

/*
 * A leaf delete on a stored entry: the entry the remaining values describe
 * replaces the stored one, unless they describe it already.
 */
cerrno retarget(const nh_job &j, const nh_given &g)
{
    ocni_route_common_data *rec = j.rec;
    const char *s_addr = stored_addr(rec);
    const char *s_if = stored_if(rec);

    const char *t_addr = g.nh ? g.addr : (rec->next_hop_deleted ? NULL : s_addr);
    const char *t_if = NULL;
    if (g.drop)
        t_if = NULL0;
    else if (g.ifname != NULL)
        t_if = g.ifname;
    else if (rec->interface_deleted)
        t_if = NULL;
    else if (s_if != NULL && !is_null0(s_if))
        t_if = s_if; /* a stored DROP goes with its deleted next hop */

    const nh_list target = list_of(t_addr, t_if);
    const nh_list stored = list_of(s_addr, s_if);
    if (target == stored && (t_addr == NULL || same_address(t_addr, s_addr)) &&
        (t_if == NULL || same_text(t_if, s_if)))
        return unchanged(j);

    cerrno rc = remove_stored(j, YFW_DT_OP_REMOVE);
    if (target != NHL_NONE)
        rc = write_entry(j, target, t_addr, t_if);
    return rewritten(j, target != NHL_NONE ? rc : YFW_RC_OK);
}

enum class step { DONE, FOLLOW_UP };

/*
 * An index found in the store: values the request leaves out come from the
 * stored entry; a change of address or interface is a remove and a write.
 * *rc receives the result; FOLLOW_UP asks for the tag and description steps.
 */
step modify_existing(nh_job &j, nh_given &g, cerrno *rc)
{
    ocni_route_common_data *rec = j.rec;
    const char *s_addr = stored_addr(rec);
    const char *s_if = stored_if(rec);
    const bool s_if_real = s_if != NULL && !is_null0(s_if);
    const bool metric = rec->metric != NULL;
    *rc = YFW_RC_OK;

    if (rec->subinterface_deleted && !rec->interface_deleted && g.ifname == NULL) {
        bool back = false;
        if (s_if != NULL) {
            cut_printf(j.ifname, sizeof j.ifname, "%s", s_if);
            char *dot = strchr(j.ifname, '.');
            if (dot != NULL) {
                *dot = '\0';
                back = dot[1] != '\0' && strcmp(dot + 1, "0") != 0;
            }
        }
        if (back) {
            g.ifname = j.ifname;
            rec->has_interface = 1;
        } else if (!g.nh) {
            if (!metric) {
                if (s_if != NULL)
                    OCNI_TRC(*j.id, j.ctx,
                             "Subinterface delete received for the entry not having subinterface");
                else
                    OCNI_TRC(*j.id, j.ctx,
                             "Subinterface delete received for the entry not having interface");
                return step::DONE;
            }
            rec->next_hop_touched = 1;
            return step::DONE;
        }
    }

    if (rec->interface_deleted && rec->next_hop_deleted) {
        (void)remove_stored(j, YFW_DT_OP_DELETE);
        rec->metric_flag = 1;
        rec->next_hop_touched = 1;
        return step::DONE;
    }

    if (rec->interface_deleted) {
        if (!s_if_real && !metric &&
            (!g.nh || (g.addr != NULL && same_address(g.addr, s_addr)) || g.drop)) {
            OCNI_ERR(*j.id, j.ctx, "Delete received for the entry that has no interface config");
            ocni_set_user_msg(j.ctx, "Delete  received for the entry that has no interface config");
            *rc = YFW_RC_INVALID_REQUEST;
            return step::DONE;
        }
        *rc = retarget(j, g);
        return step::DONE;
    }

    if (rec->next_hop_deleted) {
        if (s_addr == NULL && !is_null0(s_if) && !metric &&
            !(g.ifname != NULL && !same_text(g.ifname, s_if))) {
            OCNI_ERR(*j.id, j.ctx, "Delete received for the entry that has no nexthop config");
            ocni_set_user_msg(j.ctx, "Delete  received for the entry that has no nexthop config");
            *rc = YFW_RC_INVALID_REQUEST;
            return step::DONE;
        }
        *rc = retarget(j, g);
        return step::DONE;
    }

    if (g.ifname != NULL && !g.nh) {
        /* A stored DROP stays one: an interface would make the discard route forward. */
        if (is_null0(s_if) && s_addr == NULL) {
            ocni_set_user_msg(j.ctx, DROP_WITH_INTERFACE);
            *rc = YFW_RC_INVALID_REQUEST;
            return step::DONE;
        }
        if (same_text(s_if, g.ifname)) {
            if (s_addr != NULL) {
                *rc = unchanged(j);
                return step::DONE;
            }
            rec->same_key = 1;
            char path[OCNI_PATH_LEN];
            nh_entry_path(j, NHL_IF, path);
            *rc = add(j.ctx, j.out, path, OCNI_NS_NATIVE, NULL, j.in, 1);
            return step::FOLLOW_UP;
        }
        (void)remove_stored(j, YFW_DT_OP_REMOVE);
        *rc = rewritten(j, s_addr != NULL ? write_entry(j, NHL_IF_ADDR, s_addr, g.ifname)
                                          : write_entry(j, NHL_IF, NULL, g.ifname));
        return step::DONE;
    }

    if (g.nh && g.ifname == NULL) {
        if (!g.drop && same_address(s_addr, g.addr)) {
            if (s_if != NULL) {
                *rc = unchanged(j);
                return step::DONE;
            }
            char path[OCNI_PATH_LEN];
            nh_entry_path(j, NHL_ADDR, path);
            *rc = add(j.ctx, j.out, path, OCNI_NS_NATIVE, NULL, j.in, 1);
            return step::FOLLOW_UP;
        }
        if (g.drop && is_null0(s_if)) {
            *rc = unchanged(j);
            return step::DONE;
        }
        (void)remove_stored(j, YFW_DT_OP_REMOVE);
        if (g.drop)
            *rc = rewritten(j, write_entry(j, NHL_IF, NULL, NULL0));
        else if (s_if_real)
            *rc = rewritten(j, write_entry(j, NHL_IF_ADDR, g.addr, s_if));
        else
            *rc = rewritten(j, write_entry(j, NHL_ADDR, g.addr, NULL));
        return step::DONE;
    }

    if (g.nh && g.ifname != NULL) {
        if (!(same_address(s_addr, g.addr) && same_text(s_if, g.ifname)))
            (void)remove_stored(j, YFW_DT_OP_REMOVE);
        *rc = rewritten(j, write_entry(j, NHL_IF_ADDR, g.addr, g.ifname));
        return step::DONE;
    }

    /* Neither address nor interface changes: the leaf callbacks handle the rest. */
    return step::FOLLOW_UP;
}

/* The description of every native next-hop list of both families, for a read. */
cerrno request_all_nh_leaf(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *vrf,
                           const char *leaf, cerrno rc)
{
    const nh_leaf leaves[] = {{NHL_IF, leaf}, {NHL_IF_ADDR, leaf}, {NHL_ADDR, leaf}};
    rc = request_nh_leaves(ctx, out, vrf, true, leaves, 3, rc);
    return request_nh_leaves(ctx, out, vrf, false, leaves, 3, rc);
}

/* Tag and description of a written entry, when the route has them and the store does not. */
cerrno nh_follow_ups(const nh_job &j, const char *vrf, cerrno rc)
{
    ocni_route_common_data *rec = j.rec;
    const bool any = rec->has_next_hop || rec->has_interface;

    if (rec->set_tag[0] != '\0' && !rec->tag_given && !rec->metric_flag && any) {
        rc = ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_settag_v2(
            j.ctx, j.in, j.out);
        if (rc != YFW_RC_OK) {
            ocni_set_user_msg(j.ctx, "set-tag configuration is failed");
            return YFW_RC_INVALID_REQUEST;
        }
    }
    if (rec->description_in[0] != '\0' && !rec->description_given && !rec->metric_flag && any) {
        if (ocni_is_read(j.ctx)) {
            if (vrf != NULL)
                rc = request_all_nh_leaf(j.ctx, j.out, vrf, "description", rc);
            return rc;
        }
        char path[OCNI_PATH_LEN] = "";
        cerrno prc = ocni_get_mapping_path_name(j.ctx, rec->is_ipv4, rec->has_next_hop,
                                                rec->has_interface, rec->is_drop, path);
        if (prc == YFW_RC_OK) {
            size_t n = strlen(path);
            cut_printf(path + n, sizeof path - n, "/description");
            rc = add(j.ctx, j.out, path, OCNI_NS_NATIVE,
                     yfw_map_is_request_delete(j.in) ? NULL : rec->description_in, j.in, 0);
        }
        if (prc != YFW_RC_OK || rc != YFW_RC_OK) {
            OCNI_ERR(*j.id, j.ctx, "set-tag configuration is failed");
            ocni_set_user_msg(j.ctx, "description configuration is failed");
            return YFW_RC_INVALID_REQUEST;
        }
    }
    return rc;
}

const char METRIC_OUT_OF_RANGE[] =
    "Metric 4294967295 is not supported - the largest metric allowed is 4294967294";

/*
 * The store keeps "no metric" as all ones: a metric of 4294967295 would read
 * back as unset and be lost when its next hop moves, so it is refused.
 */
bool metric_out_of_range(const ocni_route_common_data *rec)
{
    return rec->metric != NULL && !rec->metric_deleted &&
           strtoull(rec->metric, NULL, 10) >= 0xFFFFFFFFull;
}

bool any_leaf_deleted(const ocni_route_common_data *rec)
{
    return rec->metric_deleted || rec->next_hop_deleted || rec->subinterface_deleted ||
           rec->interface_deleted;
}

/* The request deletes the whole next-hop entry. */
cerrno nh_delete_entry(const nh_job &j)
{
    yfw_req_ctx *rq = j.ctx->req_ctx;
    if (rq->suppress_flag && rq->vrf_path_flag == 1)
        return YFW_RC_OK; /* the whole route or VRF goes */
    cerrno rc = ocni_do_index_lookup_on_sysdb(j.ctx, j.in, j.out);
    if (rc != YFW_RC_OK)
        return rc;
    {
        unsuppressed guard(j.ctx);
        rc = remove_stored(j, YFW_DT_OP_REMOVE);
    }
    j.rec->next_hop_touched = 1;
    j.rec->metric_flag = 1;
    return rc;
}

cerrno nh_create_or_modify(nh_job &j, nh_given &g, const char *vrf)
{
    cerrno rc = ocni_do_index_lookup_on_sysdb(j.ctx, j.in, j.out);
    if (rc != YFW_RC_OK && rc != SYSDB_RC_NOT_FOUND) {
        OCNI_ERR(*j.id, j.ctx, "Index lookup failed");
        return rc;
    }
    if (rc == SYSDB_RC_NOT_FOUND) {
        if (any_leaf_deleted(j.rec)) {
            OCNI_ERR(*j.id, j.ctx, "Delete operation received for unknown index");
            return SYSDB_RC_NOT_FOUND;
        }
        rc = create_entry(j, g);
        if (rc != YFW_RC_OK)
            return rc;
        rc = nh_follow_ups(j, vrf, rc);
        /* Written whole, metric and index included: the leaf callbacks add nothing more. */
        if (g.nh || g.ifname != NULL) {
            j.rec->next_hop_touched = 1;
            j.rec->metric_flag = 1;
        }
        return rc;
    }
    if (modify_existing(j, g, &rc) == step::DONE)
        return rc;
    return nh_follow_ups(j, vrf, rc);
}

cerrno nh_read(nh_job &j, const nh_given &g, const char *vrf)
{
    if (j.ctx->req_ctx->vrf_path_flag == 1)
        return YFW_RC_OK;
    cerrno rc = ocni_do_index_lookup_on_sysdb(j.ctx, j.in, j.out);
    if (rc != YFW_RC_OK && j.rec->index_found)
        return YFW_RC_OK; /* a generated index for an entry not stored yet */
    if (rc == YFW_RC_OK) {
        const char *a = stored_addr(j.rec);
        const char *i = stored_if(j.rec);
        nh_list l = list_of(a, i);
        return l == NHL_NONE ? YFW_RC_OK : add_entry_keys(j, l, a, i);
    }
    nh_list l = NHL_NONE;
    if (g.nh && g.ifname != NULL)
        l = NHL_IF_ADDR;
    else if (g.nh)
        l = g.drop ? NHL_IF : NHL_ADDR;
    else if (g.ifname != NULL)
        l = NHL_IF;
    rc = YFW_RC_OK;
    if (l != NHL_NONE) {
        char path[OCNI_PATH_LEN];
        nh_entry_path(j, l, path);
        rc = add(j.ctx, j.out, path, OCNI_NS_NATIVE, NULL, j.in, 1);
    }
    return nh_follow_ups(j, vrf, rc);
}

cerrno nexthop_list(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                    zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);
    const char *vrf = ocni_vrf_name(ctx);

    ocni_lr_init_prefix_type(rec);
    rec->same_entry = 0;
    rec->same_key = 0;
    (void)ocni_check_next_hop_interface_config(ctx, in);
    /* LOCAL_LINK is no address: such a next hop is written by its interface. */
    rec->has_next_hop = ocni_check_next_hop_ip_and_set_drop_config(ctx, in) == 1 ? 1 : 0;

    if (rec->is_drop && rec->has_interface) {
        ocni_set_user_msg(ctx, DROP_WITH_INTERFACE);
        OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
    }
    if (rec->is_local_link && !rec->has_interface) {
        ocni_set_user_msg(ctx, "Interface configuration is must when next-hop is local-link");
        OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
    }
    const bool entry_deleted = yfw_map_is_request_delete(in) || in->op == YFW_DT_OP_REMOVE;
    if (!ocni_is_read(ctx) && !entry_deleted && metric_out_of_range(rec)) {
        ocni_set_user_msg(ctx, METRIC_OUT_OF_RANGE);
        OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
    }

    nh_job j = {ctx, in, out, rec, &id, "", ""};
    if (native_ifname(ctx, rec, j.ifname) != YFW_RC_OK)
        OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
    ocni_get_mapping_path_name_nexthop(ctx, rec->is_ipv4, j.table);

    nh_given g;
    g.nh = rec->has_next_hop != 0;
    g.drop = g.nh && rec->is_drop;
    g.addr = g.nh && !g.drop ? rec->next_hop : NULL;
    g.ifname = j.ifname[0] != '\0' ? j.ifname : NULL;

    cerrno rc;
    if (ocni_is_read(ctx))
        rc = nh_read(j, g, vrf);
    else if (entry_deleted)
        rc = nh_delete_entry(j);
    else
        rc = nh_create_or_modify(j, g, vrf);
    OCNI_CB_RETURN(id, ctx, rc);
}

/* ------------------------------------------------------------------ */
/* Index leaves                                                        */
/* ------------------------------------------------------------------ */

/* Operational next-hop paths of one family, for a state read. */
cerrno request_oper_next_hop(yfw_map_ctx *ctx, zidl_yfw_datatree *out, bool v4, cerrno rc)
{
    static const char *const leaves[] = {
        "/next-hops/next-hop",
        "/next-hops/next-hop/index",
        "/next-hops/next-hop/state/index",
        "/next-hops/next-hop/state/next-hop",
        "/next-hops/next-hop/state/metric",
        "/next-hops/next-hop/interface-ref/state/interface",
        "/next-hops/next-hop/interface-ref/state/subinterface",
    };
    char path[OCNI_PATH_LEN];
    for (const char *leaf : leaves) {
        cut_printf(path, sizeof path, "%s%s", v4 ? OPER_STATIC("vrfipv4") : OPER_STATIC("vrfipv6"),
                 leaf);
        rc = add(ctx, out, path, OCNI_NS_OPER, NULL, NULL, leaf == leaves[0] ? 1 : 0);
    }
    return rc;
}

cerrno index_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                  zidl_yfw_datatree *out, bool key_leaf)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);
    const char *vrf = ocni_vrf_name(ctx);
    table_pair<7> t(INDEX_DEFAULT, INDEX_NAMED);
    cerrno rc = YFW_RC_OK;

    if (key_leaf && ocni_is_read_state(ctx)) {
        if (rec->prefix == NULL || rec->is_ipv4)
            rc = request_oper_next_hop(ctx, out, true, rc);
        if (rec->prefix == NULL || !rec->is_ipv4)
            rc = request_oper_next_hop(ctx, out, false, rc);
    }
    if (rec->index_found) {
        if (key_leaf)
            OCNI_TRC(id, ctx, "Need not map index, as it is auto index");
        OCNI_CB_RETURN(id, ctx, key_leaf ? rc : YFW_RC_OK);
    }
    if (vrf != NULL)
        ocni_index_cond_manual_callback(ctx, SIX_ROWS, t.for_vrf(vrf));
    if (key_leaf && ocni_is_read(ctx) && !ocni_read_wants_config(ctx))
        OCNI_CB_RETURN(id, ctx, rc);
    OCNI_CB_RETURN(id, ctx, add_selected(ctx, out, t, SIX_ROWS, in, true, rc));
}

/* ------------------------------------------------------------------ */
/* Next-hop address, interface and subinterface leaves                 */
/* ------------------------------------------------------------------ */

cerrno nexthop_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                    zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);
    if (rec->next_hop_touched)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    const char *vrf = ocni_vrf_name(ctx);
    char table[OCNI_PATH_LEN] = "";
    char path[OCNI_PATH_LEN];

    if (!ocni_is_read(ctx)) {
        const bool del = yfw_map_is_request_delete(in) != 0;
        if (rec->has_next_hop != 1) {
            if (rec->is_local_link)
                OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
            ocni_set_user_msg(ctx, "Invalid request");
            /* Setting a next hop that is not usable is only reported, not refused. */
            OCNI_CB_RETURN(id, ctx, del ? YFW_RC_INVALID_REQUEST : YFW_RC_OK);
        }
        ocni_get_mapping_path_name_nexthop(ctx, rec->is_ipv4, table);
        const char *value = in->value;
        if (rec->has_interface) {
            cut_printf(path, sizeof path, "%s%s/next-hop-address", table, NHL_NAME[NHL_IF_ADDR]);
        } else if (!rec->is_drop) {
            cut_printf(path, sizeof path, "%s%s/next-hop-address", table, NHL_NAME[NHL_ADDR]);
        } else {
            cut_printf(path, sizeof path, "%s%s/interface-name", table, NHL_NAME[NHL_IF]);
            value = NULL0;
        }
        OCNI_CB_RETURN(id, ctx, add(ctx, out, path, OCNI_NS_NATIVE, value, in, 0));
    }

    if ((!rec->is_ipv4 && rec->prefix == NULL) || vrf == NULL)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    const bool v4 = rec->is_ipv4 != 0;
    cerrno rc = YFW_RC_OK;
    if (ctx->req_ctx->vrf_path_flag == 1 && rec->index == NULL) {
        const nh_leaf leaves[] = {{NHL_IF_ADDR, "next-hop-address"},
                                  {NHL_ADDR, "next-hop-address"},
                                  {NHL_IF, "interface-name"}};
        rc = request_nh_leaves(ctx, out, vrf, v4, leaves, 3, rc);
    } else {
        switch (stored_row(rec)) {
        case 0:
            native_nh_leaf(path, vrf, v4, NHL_IF, "interface-name");
            rc = add(ctx, out, path, OCNI_NS_NATIVE, rec->native_interface, NULL, 0);
            break;
        case 1:
            native_nh_leaf(path, vrf, v4, NHL_IF_ADDR, "next-hop-address");
            rc = add(ctx, out, path, OCNI_NS_NATIVE, rec->native_address, NULL, 0);
            break;
        case 2:
            native_nh_leaf(path, vrf, v4, NHL_ADDR, "next-hop-address");
            rc = add(ctx, out, path, OCNI_NS_NATIVE, rec->native_address, NULL, 0);
            break;
        default:
            break;
        }
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

cerrno interface_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                      zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);
    if (rec->next_hop_touched)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    const char *vrf = ocni_vrf_name(ctx);

    if (!ocni_is_read(ctx)) {
        char path[OCNI_PATH_LEN] = "";
        cerrno rc = ocni_get_mapping_path_name(ctx, rec->is_ipv4, rec->has_next_hop,
                                               rec->has_interface, rec->is_drop, path);
        if (rc != YFW_RC_OK)
            OCNI_CB_RETURN(id, ctx, rc);
        size_t n = strlen(path);
        cut_printf(path + n, sizeof path - n, "/interface-name");

        char name[OCNI_IFNAME_LEN];
        cut_printf(name, sizeof name, "%s", in->value != NULL ? in->value : "");
        if (strchr(name, '.') != NULL) {
            ocni_set_user_msg(ctx, "Invalid request");
            OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
        }
        if (rec->subinterface != NULL && strcmp(rec->subinterface, "0") != 0) {
            n = strlen(name);
            cut_printf(name + n, sizeof name - n, ".%s", rec->subinterface);
        }
        OCNI_CB_RETURN(id, ctx, add(ctx, out, path, OCNI_NS_NATIVE, name, in, 0));
    }

    if (vrf == NULL)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    cerrno rc = YFW_RC_OK;
    char path[OCNI_PATH_LEN];
    const bool v4 = rec->is_ipv4 != 0;
    if (ctx->req_ctx->vrf_path_flag == 1 && rec->index == NULL) {
        const nh_leaf leaves[] = {{NHL_IF, "interface-name"}, {NHL_IF_ADDR, "interface-name"}};
        if (!v4 && rec->prefix == NULL) {
            const nh_leaf all[] = {{NHL_ADDR, "next-hop-address"},
                                   {NHL_IF, "interface-name"},
                                   {NHL_IF_ADDR, "interface-name"}};
            rc = request_nh_leaves(ctx, out, vrf, true, all, 3, rc);
            rc = request_nh_leaves(ctx, out, vrf, false, all, 3, rc);
        } else {
            rc = request_nh_leaves(ctx, out, vrf, v4, leaves, 2, rc);
        }
    } else if (rec->native_has_interface) {
        native_nh_leaf(path, vrf, v4, rec->native_has_address ? NHL_IF_ADDR : NHL_IF,
                       "interface-name");
        rc = add(ctx, out, path, OCNI_NS_NATIVE, rec->native_interface, NULL, 0);
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

cerrno subinterface_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                         zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);
    if (rec->next_hop_touched)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    if (!rec->has_interface) {
        ocni_set_user_msg(ctx, "Invalid request");
        OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
    }
    /* Natively the subinterface is only the suffix of the interface name. */
    if (!ocni_is_read(ctx))
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    const char *vrf = ocni_vrf_name(ctx);
    if (vrf == NULL)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    const nh_leaf leaves[] = {{NHL_IF, "interface-name"}, {NHL_IF_ADDR, "interface-name"}};
    cerrno rc = request_nh_leaves(ctx, out, vrf, true, leaves, 2, YFW_RC_OK);
    OCNI_CB_RETURN(id, ctx, request_nh_leaves(ctx, out, vrf, false, leaves, 2, rc, in->value));
}

/* ------------------------------------------------------------------ */
/* Metric, set-tag and the per-entry tag                               */
/* ------------------------------------------------------------------ */

/* Key leaves of the stored entry, so that the framework addresses it. */
cerrno add_stored_keys(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const ocni_route_common_data *rec,
                       const zidl_yfw_datatree *src, cerrno rc)
{
    char table[OCNI_PATH_LEN] = "";
    char path[OCNI_PATH_LEN];
    ocni_get_mapping_path_name_nexthop(ctx, rec->is_ipv4, table);
    const nh_list l = list_of(stored_addr(rec), stored_if(rec));
    if (l == NHL_IF_ADDR || l == NHL_ADDR) {
        cut_printf(path, sizeof path, "%s%s/next-hop-address", table, NHL_NAME[l]);
        rc = add(ctx, out, path, OCNI_NS_NATIVE, rec->native_address, src, 0);
    }
    if (l == NHL_IF_ADDR || l == NHL_IF) {
        cut_printf(path, sizeof path, "%s%s/interface-name", table, NHL_NAME[l]);
        rc = add(ctx, out, path, OCNI_NS_NATIVE, rec->native_interface, src, 0);
    }
    return rc;
}

cerrno metric_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                   zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);
    table_pair<7> t(METRIC_DEFAULT, METRIC_NAMED);
    if (rec->metric_flag || rec->metric_touched)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);

    const char *vrf = ocni_vrf_name(ctx);
    cerrno rc = YFW_RC_OK;
    if (vrf != NULL)
        rc = ocni_metric_cond_manual_callback(ctx, SIX_ROWS, t.for_vrf(vrf));

    if (ocni_is_read(ctx))
        OCNI_CB_RETURN(id, ctx, add_selected(ctx, out, t, SIX_ROWS, in, true, rc));

    if (!yfw_map_is_request_delete(in)) {
        rc = add_stored_keys(ctx, out, rec, NULL, rc);
        OCNI_CB_RETURN(id, ctx, add_selected(ctx, out, t, SIX_ROWS, in, true, rc));
    }
    if ((rec->has_interface || rec->has_next_hop) && !rec->same_entry && !rec->same_key)
        OCNI_CB_RETURN(id, ctx, rc);
    rc = add_stored_keys(ctx, out, rec, in, rc);
    for (int i = 0; i < SIX_ROWS; i++) {
        for (const xpath_list_type_t *r : {&t.def[i], &t.named[i]}) {
            if (r->selected)
                rc = add(ctx, out, r->path, r->ns, r->get_value(in), in, 0, r->add_flags);
        }
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

/* Tag text in decimal: "0x.." and texts with a hexadecimal letter are read as hexadecimal. */
void normalise_tag(char *tag, size_t size)
{
    const char *digits = NULL;
    if ((tag[0] == '0') && (tag[1] == 'x' || tag[1] == 'X'))
        digits = tag + 2;
    else if (strpbrk(tag, "abcdefABCDEF") != NULL)
        digits = tag;
    if (digits == NULL)
        return;
    unsigned long v = strtoul(digits, NULL, 16);
    cut_printf(tag, size, "%u", (unsigned)v);
}

const nh_leaf TAG_READ[] = {
    {NHL_IF, "interface-name"},      {NHL_IF, "tag"},     {NHL_IF_ADDR, "interface-name"},
    {NHL_IF_ADDR, "next-hop-address"}, {NHL_IF_ADDR, "tag"}, {NHL_ADDR, "next-hop-address"},
    {NHL_ADDR, "tag"},
};
const nh_leaf DESCRIPTION_READ[] = {
    {NHL_IF, "interface-name"},        {NHL_IF, "description"},
    {NHL_IF_ADDR, "interface-name"},   {NHL_IF_ADDR, "next-hop-address"},
    {NHL_IF_ADDR, "description"},      {NHL_ADDR, "next-hop-address"},
    {NHL_ADDR, "description"},
};

/* Fans the route-wide tag or description out to the stored next hops of the prefix. */
cerrno fan_out(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
               zidl_yfw_datatree *out)
{
    cerrno rc = ocni_do_prefix_lookup_on_sysdb_and_set_tag(ctx, in, out);
    if (rc == YFW_RC_OK || rc == SYSDB_RC_NOT_FOUND)
        return YFW_RC_OK;
    OCNI_ERR(id, ctx, "Global set-tag configuration is failed");
    return YFW_RC_NO_MEMORY;
}

/*
 * Last steps of the route-wide set-tag and description leaves, once the
 * value is kept in the route record: fan it out to the stored next hops on
 * an edit, or request the stored next hops' leaves on a read.
 */
cerrno route_wide_finish(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                         zidl_yfw_datatree *out, const ocni_route_common_data *rec,
                         const nh_leaf (&reads)[7])
{
    if (yfw_map_is_request_delete(in) && ctx->req_ctx->suppress_flag)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    if (!ocni_is_read(ctx))
        OCNI_CB_RETURN(id, ctx, fan_out(id, ctx, in, out));

    const char *vrf = ocni_vrf_name(ctx);
    if (vrf == NULL)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    cerrno rc = YFW_RC_OK;
    if (rec->is_ipv4 || rec->prefix == NULL)
        rc = request_nh_leaves(ctx, out, vrf, true, reads, 7, rc);
    if (!rec->is_ipv4)
        rc = request_nh_leaves(ctx, out, vrf, false, reads, 7, rc);
    OCNI_CB_RETURN(id, ctx, rc);
}

cerrno settag_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                   zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);

    if (in->value != NULL) {
        cut_printf(rec->set_tag, sizeof rec->set_tag, "%.20s", in->value);
        normalise_tag(rec->set_tag, sizeof rec->set_tag);
    }
    rec->tag_mode = 1;
    return route_wide_finish(id, ctx, in, out, rec, TAG_READ);
}

cerrno settag_v2_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                      zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);

    if (!ocni_is_read(ctx)) {
        char path[OCNI_PATH_LEN] = "";
        cerrno rc = ocni_get_mapping_path_name(ctx, rec->is_ipv4, rec->has_next_hop,
                                               rec->has_interface, rec->is_drop, path);
        if (rc != YFW_RC_OK)
            OCNI_CB_RETURN(id, ctx, rc);
        size_t n = strlen(path);
        cut_printf(path + n, sizeof path - n, "/tag");
        OCNI_CB_RETURN(id, ctx, add(ctx, out, path, OCNI_NS_NATIVE,
                                    yfw_map_is_request_delete(in) ? NULL : rec->set_tag, in, 0));
    }
    const char *vrf = ocni_vrf_name(ctx);
    if (vrf == NULL)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    OCNI_CB_RETURN(id, ctx, request_all_nh_leaf(ctx, out, vrf, "tag", YFW_RC_OK));
}

/* ------------------------------------------------------------------ */
/* Description                                                         */
/* ------------------------------------------------------------------ */

const char DESC_INVALID_CHAR[] =
    "Supplied description value contains an invalid character - '(', ')' or ' '(not properly "
    "enclosed in quotes) or '\"'";
const char DESC_INNER_QUOTE[] =
    "Supplied description is not allowed to have '\"' unless it is enclosing the value "
    "(Enclosing quotes should not be escaped)";
const char DESC_SOLE_BACKSLASH[] = "Supplied description value only contains a sole '\\'";
const char DESC_TOO_LONG[] =
    "The length of the supplied description is greater than the maximum length allowed";

/* The native description holds at most this many characters. */
const size_t DESC_MAX = 30;

/* The user message refusing `text`, or NULL when its characters are acceptable. */
const char *description_refusal(const char *text)
{
    const int quoted = ocni_check_quoted_description(text);
    for (size_t i = 0; text[i] != '\0'; i++) {
        const char c = text[i];
        const bool paren = c == '(' || c == ')';
        if (!paren && c != ' ' && c != '"')
            continue;
        if (paren && i > 0 && text[i - 1] == '\\')
            continue;
        if (paren)
            return DESC_INVALID_CHAR;
        if (quoted == 1)
            continue;
        if (c == '"' && quoted == -1)
            return DESC_INNER_QUOTE;
        return DESC_INVALID_CHAR;
    }
    return NULL;
}

/*
 * Native form of a description: the entity quote at either end becomes a
 * double quote, a backslash escapes the next character (a trailing one is
 * dropped). Writes what fits into `buf` (always terminated) and returns the
 * length of the whole converted text.
 */
size_t convert_description(const char *text, char *buf, size_t bufsz)
{
    static const char ENTITY[] = "&quot;";
    const size_t elen = sizeof ENTITY - 1;
    const size_t len = strlen(text);
    size_t o = 0;
    memset(buf, 0, bufsz);
    for (size_t i = 0; i < len;) {
        char c;
        if ((i == 0 || (len >= elen && i == len - elen)) && strncmp(text + i, ENTITY, elen) == 0) {
            c = '"';
            i += elen;
        } else if (text[i] == '\\') {
            if (text[i + 1] == '\0')
                break;
            c = text[i + 1];
            i += 2;
        } else {
            c = text[i++];
        }
        if (o + 1 < bufsz)
            buf[o] = c;
        o++;
    }
    return o;
}

cerrno description_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                        zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    ocni_route_common_data *rec = ocni_rec(ctx);
    REC_OR_RETURN(id, ctx, rec);
    rec->tag_mode = 0;

    if (in->value != NULL) {
        const char *why = description_refusal(in->value);
        if (why != NULL) {
            ocni_set_user_msg(ctx, why);
            OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
        }
        if (strcmp(in->value, "\\") == 0) {
            ocni_set_user_msg(ctx, DESC_SOLE_BACKSLASH);
            OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
        }
        char native[DESC_MAX + 1];
        if (convert_description(in->value, native, sizeof native) > DESC_MAX) {
            OCNI_ERR(id, ctx,
                     "Length of the supplied decription is greater than the maximum allowed "
                     "length");
            ocni_set_user_msg(ctx, DESC_TOO_LONG);
            OCNI_CB_RETURN(id, ctx, YFW_RC_INVALID_REQUEST);
        }
        cut_printf(rec->description_in, DESC_MAX + 1, "%s", native);
    }

    return route_wide_finish(id, ctx, in, out, rec, DESCRIPTION_READ);
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

/* ------------------------------------------------------------------ */
/* Condition callbacks                                                 */
/* ------------------------------------------------------------------ */

cerrno ocni_nexthops_cond_manual_callback(yfw_map_ctx *ctx, int nrows, xpath_list_type_t *table)
{
    OCNI_CB_ID_DECL();
    COND_BEGIN(ocni_id, ctx, table, rec);
    const char *fam = rec->is_ipv4 == 1 ? "/vrfipv4/" : "/vrfipv6/";
    for (int i = 0; i < nrows; i++) {
        if (strstr(table[i].path, fam) != NULL)
            table[i].selected = 1;
    }
    OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);
}

cerrno ocni_index_cond_manual_callback(yfw_map_ctx *ctx, int nrows, xpath_list_type_t *table)
{
    OCNI_CB_ID_DECL();
    COND_BEGIN(ocni_id, ctx, table, rec);
    if (rec->next_hop_touched == 1)
        OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);
    if (ocni_is_read(ctx)) {
        mark_for_read(ctx, table, nrows, rec);
    } else if (rec->has_next_hop && rec->has_interface) {
        mark_needle(table, nrows, rec, NHL_NAME[NHL_IF_ADDR], "index");
    } else if (rec->has_next_hop) {
        mark_needle(table, nrows, rec, NHL_NAME[rec->is_drop ? NHL_IF : NHL_ADDR], "index");
    } else if (rec->has_interface) {
        mark_needle(table, nrows, rec, NHL_NAME[NHL_IF], "index");
    }
    OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);
}

cerrno ocni_metric_cond_manual_callback(yfw_map_ctx *ctx, int nrows, xpath_list_type_t *table)
{
    OCNI_CB_ID_DECL();
    COND_BEGIN(ocni_id, ctx, table, rec);
    if (ocni_is_read(ctx)) {
        mark_for_read(ctx, table, nrows, rec);
        OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);
    }
    const char *s_if = stored_if(rec);
    nh_list l = NHL_NONE;
    if (!rec->has_next_hop && !rec->has_interface) {
        l = list_of(stored_addr(rec), s_if);
        if (l == NHL_NONE) {
            ocni_set_user_msg(ctx, "Invalid request");
            OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_INVALID_REQUEST);
        }
    } else if (!rec->has_next_hop) {
        l = rec->native_has_address ? NHL_IF_ADDR : NHL_IF;
    } else if (rec->has_interface) {
        l = NHL_IF_ADDR;
    } else if (rec->is_drop) {
        l = NHL_IF;
    } else if (s_if != NULL) {
        l = is_null0(s_if) ? NHL_ADDR : NHL_IF_ADDR;
    } else {
        l = NHL_ADDR;
    }
    mark_needle(table, nrows, rec, NHL_NAME[l], "metric");
    OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);
}

/* ------------------------------------------------------------------ */
/* Edit-direction callbacks                                            */
/* ------------------------------------------------------------------ */

cerrno ymap_ox_ocni_openconfiglocalrouting_man_cont_lvla_localroutes_staticroutes(
    yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int subtrees, zidl_yfw_datatree *out)
{
    OCNI_CB_ID_DECL();
    return static_routes_container(ocni_id, ctx, in, subtrees, out);
}

cerrno ymap_ox_ocni_openconfiglocalrouting_cont_lvla_localroutes_static_nexthops(
    yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int subtrees, zidl_yfw_datatree *out)
{
    OCNI_CB_ID_DECL();
    (void)subtrees;
    return nexthops_container(ocni_id, ctx, in, out);
}

#define OCNI_DEFINE_EDIT_LEAF(name, impl, ...)                                              \
    cerrno name(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out)      \
    {                                                                                       \
        OCNI_CB_ID_DECL();                                                                  \
        return impl(ocni_id, ctx, in, out, ##__VA_ARGS__);                                  \
    }

OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_man_list_lvla_localroutes_staticroutes_static,
                      static_list)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_static_prefix,
                      static_prefix_key)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_prefix,
                      config_prefix)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_man_list_lvla_localroutes_nexthops_nexthop,
                      nexthop_list)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_nexthop_index,
                      index_leaf, true)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_index,
                      index_leaf, false)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_nexthop,
                      nexthop_leaf)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_interface,
                      interface_leaf)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_subinterface,
                      subinterface_leaf)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_metric,
                      metric_leaf)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_settag,
                      settag_leaf)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_leaf_lvla_localroutes_config_settag_v2,
                      settag_v2_leaf)
OCNI_DEFINE_EDIT_LEAF(ymap_ox_ocni_openconfiglocalrouting_man_leaf_lvla_localroutes_config_description,
                      description_leaf)

} // extern "C"
