/*
 * Read-direction callbacks: native static-route configuration to OpenConfig.
 *
 * The framework walks the native tree under "/router-static" and calls one
 * callback per node, parents first and key leaves in key order. Prefix
 * entries build the network instance, the STATIC protocol and the static
 * entry; next-hop entries become OpenConfig next hops keyed by an index
 * generated from the native keys ("##<interface>##", "##<interface>##
 * <address>##", "##<address>##", "##DROP##"), which the edit direction
 * recognises again.
 */
#define OCNI_SRC_FILE "localrouting/src/ymap_ocni_velmar_orn_qz_ip_static_cfg_man"
#include "ymap_ocni_velmar_orn_qz_ip_static_cfg_man.h"
#include "ymap_ni_static_util.h"

#include <stdlib.h>
#include <string.h>

namespace {

#define OCNI_OC_ST "/network-instances/network-instance/protocols/protocol/static-routes/static"
#define OCNI_OC_NH OCNI_OC_ST "/next-hops/next-hop"

const char *const k_vrf_list = "/router-static/vrfs/vrf";
/* Value namespace of the network-instance type identities. */
const char *const k_ns_ni_types = "http://openconfig.net/yang/network-instance-types";
const char *const k_null_interface = "Null0";

/* Generated indexes are built in a buffer of this size; longer ones are cut. */
constexpr size_t k_index_len = 129;
/*
 * Interface part of a split interface name, and its subinterface. Every
 * table keeps the whole interface part (the native model allows 99
 * characters), so one interface reads back under one name.
 */
constexpr size_t k_ifpart_len = OCNI_IFNAME_LEN;
constexpr size_t k_subif_len = 10;

/* Syslog level of the warnings about stored entries a read leaves out. */
constexpr int k_warning = 4;
/*
 * Suppression value that silences the rest of a native next hop the read
 * leaves out; told apart from the framework's own 1 so that only it is
 * cleared again, by the next entry.
 */
constexpr uint32_t k_left_out = 2;
/* The same for a whole native prefix entry, cleared only by the next prefix entry. */
constexpr uint32_t k_route_left_out = 3;
/* OpenConfig static key "<address>/<length>". */
constexpr size_t k_prefix_key_len = 100;

/* Adds an OpenConfig network-instance node under `out`. */
cerrno add_oc(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *path, const char *value,
              uint32_t flag = 0, zidl_yfw_datatree **created = NULL)
{
    return yfw_map_datatree_add_path_flagged(ctx, out, path, OCNI_NS_OC_NI, value, NULL, created,
                                             flag, 0);
}

/*
 * Interface split: "GigabitEthernet0/0/0/1.100" is interface
 * "GigabitEthernet0/0/0/1", subinterface "100" (at most 9 characters);
 * without a "." or with nothing after it the subinterface is "0".
 * Returns the position of the first "." in `name`, or NULL.
 */
char *split_subinterface(char *name, char subif[k_subif_len])
{
    char *dot = strchr(name, '.');
    if (dot != NULL && dot[1] != '\0')
        snprintf(subif, k_subif_len, "%s", dot + 1);
    else
        snprintf(subif, k_subif_len, "0");
    return dot;
}

/*
 * OpenConfig numbers subinterfaces: a suffix after the first "." that is
 * anything but digits (as a whole, before the cut) cannot be said there.
 */
bool subinterface_expressible(const char *dot)
{
    if (dot == NULL)
        return true;
    for (const char *c = dot + 1; *c != '\0'; ++c)
        if (*c < '0' || *c > '9')
            return false;
    return true;
}

/* "<prefix>/<length> in <instance>" of the native prefix entry being read, for warnings. */
void describe_route(yfw_map_ctx *ctx, char *buf, size_t len)
{
    char *vrf = NULL;
    char *prefix = NULL;
    char *length = NULL;
    (void)yfw_map_get_node_info(ctx, k_vrf_list, "vrf-name", &vrf);
    static const char *const families[] = {"vrfipv4", "vrfipv6"};
    for (const char *af : families) {
        char entry[OCNI_PATH_LEN];
        snprintf(entry, sizeof entry,
                 "/router-static/%s/address-family/%s/vrf-unicast/vrf-prefixes/vrf-prefix",
                 vrf != NULL ? "vrfs/vrf" : "default-vrf", af);
        if (yfw_map_get_node_info(ctx, entry, "prefix", &prefix) == YFW_RC_OK) {
            (void)yfw_map_get_node_info(ctx, entry, "prefix-length", &length);
            break;
        }
    }
    snprintf(buf, len, "%s/%s in network instance %s", prefix != NULL ? prefix : "?",
             length != NULL ? length : "?", vrf != NULL ? vrf : "default");
}

/*
 * A stored next hop through `interface` that OpenConfig cannot express
 * (its subinterface is no number): the read leaves it out, says so on the
 * system log, and silences the rest of its native entry. One odd entry
 * never fails the whole read.
 */
void leave_out_next_hop(const ocni_cb_id &id, yfw_map_ctx *ctx, const char *interface,
                        const char *subif)
{
    char route[OCNI_PATH_LEN];
    describe_route(ctx, route, sizeof route);
    qz_syslog(k_warning,
              "next hop through %s of %s left out: subinterface \"%s\" is not a number",
              interface, route, subif);
    OCNI_ERR(id, ctx, "next hop through %s left out: subinterface is not a number", interface);
    if (ctx->req_ctx->suppress_flag == 0)
        ctx->req_ctx->suppress_flag = k_left_out;
}

/* A new native next-hop entry (or, with `route`, prefix entry) starts unsilenced. */
void end_left_out(yfw_map_ctx *ctx, bool route = false)
{
    if (ctx == NULL || ctx->req_ctx == NULL)
        return;
    uint32_t &flag = ctx->req_ctx->suppress_flag;
    if (flag == k_left_out || (route && flag == k_route_left_out))
        flag = 0;
}

/* ---------------------------------------------------------------- */
/* Network instance and protocol parents                             */
/* ---------------------------------------------------------------- */

/* Network-instance entry of `vrf`; NULL when the framework refused it. */
zidl_yfw_datatree *add_network_instance(const ocni_cb_id &id, yfw_map_ctx *ctx,
                                        const zidl_yfw_datatree *root, const char *vrf)
{
    yfw_map_xpath_op rec;
    char key[OCNI_KEY_TEXT_LEN];
    cerrno rc = ocni_xpath_run(ctx, &rec, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER,
                               const_cast<zidl_yfw_datatree *>(root), OCNI_NS_OC_NI, NULL,
                               "/network-instances/network-instance[name=%s]/",
                               ocni_path_key(vrf != NULL ? vrf : "default", key, sizeof key));
    if (rc == YFW_RC_NODE_EXISTS)
        OCNI_TRC(id, ctx, "default vrf already exists");
    return rec.result;
}

/*
 * Adds a leaf below `parent`, tracing `exists_msg` when it is already
 * there; an identity value gets the value namespace `value_ns`.
 */
void add_meta_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, zidl_yfw_datatree *parent,
                   const char *path, const char *value, const char *exists_msg,
                   const char *value_ns = NULL)
{
    yfw_map_xpath_op rec;
    cerrno rc = ocni_xpath_run(ctx, &rec, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LEAF, parent,
                               OCNI_NS_OC_NI, value, "%s", path);
    if (rc == YFW_RC_NODE_EXISTS)
        OCNI_TRC(id, ctx, "%s", exists_msg);
    if (value_ns != NULL && rec.result != NULL)
        oc_ni_set_data_namespace(rec.result, value_ns);
}

/*
 * Adds an identifier leaf holding the STATIC identity, then finds it again
 * to mark its value as a policy-types identity (whether it was created now
 * or earlier).
 */
void add_identifier_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, zidl_yfw_datatree *parent,
                         const char *path, const char *exists_msg, const char *missing_msg)
{
    add_meta_leaf(id, ctx, parent, path, "STATIC", exists_msg);
    yfw_map_xpath_op rec;
    if (ocni_xpath_run(ctx, &rec, YFW_XPATH_OP_FIND, YFW_XPATH_NODE_LEAF, parent, OCNI_NS_OC_NI,
                       "STATIC", "%s", path) != YFW_RC_OK) {
        OCNI_TRC(id, ctx, "%s", missing_msg);
        return;
    }
    oc_ni_set_data_namespace(rec.result, OCNI_NS_OC_PT);
}

/* ---------------------------------------------------------------- */
/* Prefix level                                                      */
/* ---------------------------------------------------------------- */

/* What tells the four prefix leaves apart. */
struct prefix_leaf_params {
    const char *prefix_entry;  /* native vrf-prefix list holding the prefix-length key */
    bool read_prefix_key;      /* key starts from the entry's prefix key */
    bool entry_always;         /* static entry and its key whatever the read-path rule */
};

const prefix_leaf_params k_prefix_v4_named = {
    "/router-static/vrfs/vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix", true,
    true};
const prefix_leaf_params k_prefix_v6_named = {
    "/router-static/vrfs/vrf/address-family/vrfipv6/vrf-unicast/vrf-prefixes/vrf-prefix", false,
    false};
const prefix_leaf_params k_prefix_v4_default = {
    "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/vrf-prefix", false,
    false};
const prefix_leaf_params k_prefix_v6_default = {
    "/router-static/default-vrf/address-family/vrfipv6/vrf-unicast/vrf-prefixes/vrf-prefix", false,
    false};

/*
 * A native prefix entry: makes its static list current under the STATIC
 * protocol of its network instance and makes sure the parents exist.
 */
cerrno prefix_list_entry(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                         zidl_yfw_datatree *out)
{
    (void)in;
    end_left_out(ctx, true);
    char *vrf = NULL;
    (void)yfw_map_get_node_info(ctx, k_vrf_list, "vrf-name", &vrf);

    yfw_map_xpath_op rec;
    memset(&rec, 0, sizeof rec);
    rec.op = YFW_XPATH_OP_ADD;
    rec.node_type = YFW_XPATH_NODE_LIST;
    rec.root = out;
    snprintf(rec.ns, sizeof rec.ns, "%s", OCNI_NS_OC_NI);
    char path[OCNI_REQ_PATH_LEN];
    char key[OCNI_KEY_TEXT_LEN];
    snprintf(path, sizeof path,
             "/network-instances/network-instance[name=%s]/protocols/"
             "protocol[identifier=STATIC][name=DEFAULT]/",
             ocni_path_key(vrf != NULL ? vrf : "default", key, sizeof key));
    snprintf(rec.path, sizeof rec.path, "%s", path);
    snprintf(rec.schema_path, sizeof rec.schema_path, "%s",
             "/network-instances/network-instance/protocols/protocol");
    cerrno rc = yfw_map_stitch_list_to_list(ctx, &rec);
    if (rc != YFW_RC_OK && ocni_is_read(ctx)) {
        /* A name no instance path can hold: this route is left out, the read goes on. */
        char route[OCNI_PATH_LEN];
        describe_route(ctx, route, sizeof route);
        qz_syslog(k_warning, "route %s left out: the instance name cannot be read back", route);
        ctx->req_ctx->suppress_flag = k_route_left_out;
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    }

    /*
     * Kept: a named instance gets its metadata (config/name, config/type)
     * as the default one does, because the published key leafref and the
     * mandatory type need them; a document without them does not validate.
     */
    const char *name = vrf != NULL ? vrf : "default";
    (void)ymap_oc_ni_add_vrf_metadata(ctx, out, name);
    (void)ymap_oc_ni_add_protocol_static_metadata(ctx, out, name);
    OCNI_CB_RETURN(id, ctx, rc);
}

/* A native prefix leaf: the static entry keyed "<address>/<length>". */
cerrno prefix_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                   zidl_yfw_datatree *out, const prefix_leaf_params &p)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);

    char *prefix = NULL;
    char *length = NULL;
    if (p.read_prefix_key)
        (void)yfw_map_get_node_info(ctx, p.prefix_entry, "prefix", &prefix);
    (void)yfw_map_get_node_info(ctx, p.prefix_entry, "prefix-length", &length);

    /* The address as the native tree holds it, then "/" and the length. */
    const char *address = in->value != NULL ? in->value : (prefix != NULL ? prefix : "");
    char key[k_prefix_key_len];
    snprintf(key, sizeof key, "%s/%s", address, length != NULL ? length : "");

    const bool config = ocni_read_wants_config(ctx) != 0;
    cerrno rc = YFW_RC_OK;
    if (p.entry_always || config) {
        rc = add_oc(ctx, out, OCNI_OC_ST, NULL, 1);
        rc = add_oc(ctx, out, OCNI_OC_ST "/prefix", key);
        if (config)
            rc = add_oc(ctx, out, OCNI_OC_ST "/config/prefix", key);
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

/* The length reaches OpenConfig through the prefix leaf's key. */
cerrno prefix_length_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                          zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
}

/* ---------------------------------------------------------------- */
/* Next-hop tables                                                   */
/* ---------------------------------------------------------------- */

/* A native next-hop entry: only a delete is carried over to OpenConfig. */
cerrno next_hop_entry(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                      zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    end_left_out(ctx);
    cerrno rc = YFW_RC_OK;
    if (yfw_map_is_request_delete(in))
        rc = yfw_map_datatree_add_path_flagged(ctx, out, OCNI_OC_NH, OCNI_NS_OC_NI, NULL, in, NULL,
                                               1, 0);
    OCNI_CB_RETURN(id, ctx, rc);
}

/* The deliberate differences between the two interface-table key leaves. */
struct interface_key_params {
    bool cut_input;         /* the interface split is made in the input node itself */
    bool state_adds_entry;  /* a state read creates the entry and index without config */
};

const interface_key_params k_interface_key_v4 = {false, true};
const interface_key_params k_interface_key_v6 = {true, false};

/*
 * Interface table: a next hop through an interface ("LOCAL_LINK"), or the
 * discard route ("DROP") for "Null0".
 */
cerrno interface_table_key(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                           zidl_yfw_datatree *out, const interface_key_params &p)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    char *v = in->value;
    if (v == NULL)
        return YFW_RC_OK;

    const bool is_null = strcmp(v, k_null_interface) == 0;
    char index[k_index_len];
    if (is_null)
        snprintf(index, sizeof index, "##DROP##");
    else
        snprintf(index, sizeof index, "##%s##", v);

    char subif[k_subif_len];
    char *dot = split_subinterface(v, subif);
    if (!is_null && !subinterface_expressible(dot)) {
        leave_out_next_hop(id, ctx, v, dot + 1);
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    }
    if (p.cut_input && dot != NULL)
        *dot = '\0';
    char ifpart[k_ifpart_len];
    snprintf(ifpart, sizeof ifpart, "%s", v);
    char *ifdot = strchr(ifpart, '.');
    if (ifdot != NULL)
        *ifdot = '\0';

    const bool config = ocni_read_wants_config(ctx) != 0;
    cerrno rc = YFW_RC_OK;
    if (config || (p.state_adds_entry && ocni_is_read_state(ctx))) {
        rc = add_oc(ctx, out, OCNI_OC_NH, NULL, 1);
        rc = add_oc(ctx, out, OCNI_OC_NH "/index", index);
        rc = add_oc(ctx, out, OCNI_OC_NH "/config/index", index);
    }
    if (config) {
        zidl_yfw_datatree *nh = NULL;
        rc = add_oc(ctx, out, OCNI_OC_NH "/config/next-hop", is_null ? "DROP" : "LOCAL_LINK", 0,
                    &nh);
        oc_ni_set_data_namespace(nh, OCNI_NS_OC_LR);
        if (!is_null) {
            rc = add_oc(ctx, out, OCNI_OC_NH "/interface-ref/config/interface", ifpart);
            rc = add_oc(ctx, out, OCNI_OC_NH "/interface-ref/config/subinterface", subif);
        }
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

/*
 * Interface-and-address table, first key: starts a new route record that
 * hands "##<interface>" to the address key of the same entry.
 */
cerrno interface_address_table_interface(const ocni_cb_id &id, yfw_map_ctx *ctx,
                                         const zidl_yfw_datatree *in, zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    char *v = in->value;
    if (v == NULL)
        return YFW_RC_OK;

    yfw_req_ctx *req = ctx->req_ctx;
    if (req->common_data_ptr != NULL) {
        free(req->common_data_ptr);
        req->common_data_ptr = NULL;
        OCNI_TRC(id, ctx,
                 "%s : ctx->req_ctx->common_data_ptr is freed before memory re-allocation. ",
                 id.fn);
    }
    req->common_data_ptr = calloc(1, sizeof(ocni_route_common_data));
    ocni_route_common_data *rec = ocni_rec(ctx);
    if (rec == NULL) {
        OCNI_ERR(id, ctx, "%s : ctx->req_ctx->common_data_ptr is NULL", id.fn);
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    }
    snprintf(rec->auto_index, k_index_len, "##%s", v);

    char subif[k_subif_len];
    char *dot = split_subinterface(v, subif);
    if (!subinterface_expressible(dot)) {
        leave_out_next_hop(id, ctx, v, dot + 1);
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    }
    if (dot != NULL)
        *dot = '\0';

    cerrno rc = YFW_RC_OK;
    if (ocni_read_wants_config(ctx)) {
        rc = add_oc(ctx, out, OCNI_OC_NH, NULL, 1);
        rc = add_oc(ctx, out, OCNI_OC_NH "/index", rec->auto_index);
        rc = add_oc(ctx, out, OCNI_OC_NH "/config/index", rec->auto_index);
        rc = add_oc(ctx, out, OCNI_OC_NH "/interface-ref/config/interface", v);
        rc = add_oc(ctx, out, OCNI_OC_NH "/interface-ref/config/subinterface", subif);
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

/*
 * Interface-and-address table, second key: completes the index that the
 * interface key started and gives the next hop its address.
 */
cerrno interface_address_table_address(const ocni_cb_id &id, yfw_map_ctx *ctx,
                                       const zidl_yfw_datatree *in, zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    const ocni_route_common_data *rec = ocni_rec(ctx);
    if (rec == NULL) {
        OCNI_ERR(id, ctx, "%s : ctx->req_ctx->common_data_ptr is NULL", id.fn);
        OCNI_CB_RETURN(id, ctx, YFW_RC_MAP_FAILED);
    }
    if (in->value == NULL)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);

    char index[k_index_len];
    snprintf(index, sizeof index, "%s##%s##", rec->auto_index, in->value);
    cerrno rc = YFW_RC_OK;
    if (ocni_read_wants_config(ctx)) {
        rc = add_oc(ctx, out, OCNI_OC_NH "/index", index);
        rc = add_oc(ctx, out, OCNI_OC_NH "/config/index", index);
        rc = add_oc(ctx, out, OCNI_OC_NH "/config/next-hop", in->value);
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

/* Address table: a next hop by address alone. */
cerrno address_table_address(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                             zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    if (in->value == NULL)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);

    char index[k_index_len];
    snprintf(index, sizeof index, "##%s##", in->value);
    cerrno rc = YFW_RC_OK;
    if (ocni_read_wants_config(ctx)) {
        rc = add_oc(ctx, out, OCNI_OC_NH, NULL, 1);
        rc = add_oc(ctx, out, OCNI_OC_NH "/index", index);
        rc = add_oc(ctx, out, OCNI_OC_NH "/config/index", index);
        rc = add_oc(ctx, out, OCNI_OC_NH "/config/next-hop", in->value);
    }
    OCNI_CB_RETURN(id, ctx, rc);
}

/*
 * A per-next-hop native leaf that OpenConfig holds once per route (tag,
 * description): the value mapped last stands.
 */
cerrno route_level_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                        zidl_yfw_datatree *out, const char *oc_path)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    cerrno rc = YFW_RC_OK;
    if (ocni_read_wants_config(ctx))
        rc = add_oc(ctx, out, oc_path, in->value);
    OCNI_CB_RETURN(id, ctx, rc);
}

const char *const k_set_tag = OCNI_OC_ST "/config/set-tag";
const char *const k_description = OCNI_OC_ST "/config/description";

/* ---------------------------------------------------------------- */
/* Index, metric and BFD of any next-hop table                       */
/* ---------------------------------------------------------------- */

/* The value of the child `name` of `node`, or NULL. */
const char *child_value(const zidl_yfw_datatree *node, const char *name)
{
    if (node == NULL || node->children == NULL)
        return NULL;
    for (uint32_t i = 0; i < node->n_children && node->children[i].name != NULL; ++i)
        if (strcmp(node->children[i].name, name) == 0)
            return node->children[i].value;
    return NULL;
}

/*
 * Whether another next hop of the route being read already holds `index`.
 * The native model cannot stop two entries of a route from carrying one
 * index; OpenConfig keys next hops by it, so the second keeps its
 * generated index and the read says so (never merges the two).
 */
bool index_taken(const ocni_cb_id &id, yfw_map_ctx *ctx, zidl_yfw_datatree *out,
                 const char *index)
{
    zidl_yfw_datatree *self = NULL;
    zidl_yfw_datatree *list = NULL;
    (void)add_oc(ctx, out, OCNI_OC_NH, NULL, 0, &self);
    (void)add_oc(ctx, out, OCNI_OC_ST "/next-hops", NULL, 0, &list);
    if (self == NULL || list == NULL || list->children == NULL)
        return false;
    for (uint32_t i = 0; i < list->n_children && list->children[i].name != NULL; ++i) {
        const zidl_yfw_datatree *nh = &list->children[i];
        if (nh == self || strcmp(nh->name, "next-hop") != 0)
            continue;
        const char *other = child_value(nh, "index");
        if (other == NULL || strcmp(other, index) != 0)
            continue;
        const char *own = child_value(self, "index");
        char route[OCNI_PATH_LEN];
        describe_route(ctx, route, sizeof route);
        qz_syslog(k_warning,
                  "next hop %s of %s: index \"%s\" is taken by another next hop of the route; "
                  "read back under its generated index",
                  own != NULL ? own : "?", route, index);
        OCNI_ERR(id, ctx, "index %s taken by another next hop", index);
        return true;
    }
    return false;
}

/* A native index replaces the generated one as the next hop's key. */
cerrno index_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                  zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    if (ocni_is_read(ctx) && ctx->req_ctx->suppress_flag == 0 && in->value != NULL &&
        index_taken(id, ctx, out, in->value))
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    cerrno rc = add_oc(ctx, out, OCNI_OC_NH "/index", in->value);
    if (ocni_read_wants_config(ctx))
        rc = add_oc(ctx, out, OCNI_OC_NH "/config/index", in->value);
    OCNI_CB_RETURN(id, ctx, rc);
}

cerrno metric_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                   zidl_yfw_datatree *out)
{
    return route_level_leaf(id, ctx, in, out, OCNI_OC_NH "/config/metric");
}

cerrno bfd_leaf(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    cerrno rc = YFW_RC_OK;
    if (ocni_read_wants_config(ctx))
        rc = add_oc(ctx, out, OCNI_OC_NH "/enable-bfd/config/enabled", in->value);
    if (ocni_is_read_state(ctx))
        rc = add_oc(ctx, out, OCNI_OC_NH "/enable-bfd/state/enabled", in->value);
    OCNI_CB_RETURN(id, ctx, rc);
}

} // namespace

extern "C" {

cerrno ymap_oc_ni_add_vrf_metadata(yfw_map_ctx *ctx, const zidl_yfw_datatree *root,
                                   const char *vrf_name)
{
    OCNI_CB_ID_DECL();
    OCNI_ASSERT_CTX(ocni_id, ctx);
    OCNI_TRC_START(ocni_id, ctx);
    zidl_yfw_datatree *ni = add_network_instance(ocni_id, ctx, root, vrf_name);
    /* The published model makes the type mandatory: every read says which kind it is. */
    const char *type = ocni_is_default_vrf(vrf_name) ? "DEFAULT_INSTANCE" : "L3VRF";
    if (ni != NULL && ocni_read_wants_config(ctx)) {
        add_meta_leaf(ocni_id, ctx, ni, "/config/name", vrf_name,
                      "config/name for default vrf already exists");
        add_meta_leaf(ocni_id, ctx, ni, "/config/type", type, "config/type already exists",
                      k_ns_ni_types);
    }
    if (ni != NULL && ocni_is_read_state(ctx)) {
        add_meta_leaf(ocni_id, ctx, ni, "/state/name", vrf_name, "state/name already exists");
        add_meta_leaf(ocni_id, ctx, ni, "/state/type", type, "state/type already exists",
                      k_ns_ni_types);
    }
    OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);
}

cerrno ymap_oc_ni_add_protocol_static_metadata(yfw_map_ctx *ctx, const zidl_yfw_datatree *root,
                                               const char *vrf_name)
{
    OCNI_CB_ID_DECL();
    OCNI_ASSERT_CTX(ocni_id, ctx);
    OCNI_TRC_START(ocni_id, ctx);
    zidl_yfw_datatree *ni = add_network_instance(ocni_id, ctx, root, vrf_name);
    zidl_yfw_datatree *proto = NULL;
    if (ni != NULL) {
        yfw_map_xpath_op rec;
        (void)ocni_xpath_run(ctx, &rec, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, ni,
                             OCNI_NS_OC_NI, NULL, "%s",
                             "/protocols/protocol[identifier=STATIC][name=DEFAULT]/");
        proto = rec.result;
    }
    if (proto == NULL)
        OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);

    /* The first key leaf, identifier, holds the STATIC identity. */
    if ((proto->flags & YFW_DT_F_CHILDREN) && proto->n_children > 0 && proto->children != NULL)
        oc_ni_set_data_namespace(&proto->children[0], OCNI_NS_OC_PT);

    if (ocni_read_wants_config(ctx)) {
        add_identifier_leaf(ocni_id, ctx, proto, "/config/identifier",
                            "config/identifier already exists", "config/identifier not found");
        add_meta_leaf(ocni_id, ctx, proto, "/config/name", "DEFAULT", "config/name already exists");
    }
    if (ocni_is_read_state(ctx)) {
        add_identifier_leaf(ocni_id, ctx, proto, "/state/identifier",
                            "state/identifier already exists", "state/identifier not found");
        add_meta_leaf(ocni_id, ctx, proto, "/state/name", "DEFAULT", "state/name already exists");
        add_meta_leaf(ocni_id, ctx, proto, "/state/enabled", "true",
                      "state/enabled already exists");
        add_meta_leaf(ocni_id, ctx, proto, "/state/default-metric", "1",
                      "state/default-metric already exists");
    }
    OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);
}

cerrno ymap_xo_ocni_velmarornqzipstaticcfg_man_cont_lvla_routerstatic(
    yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int has_subtrees,
    zidl_yfw_datatree *out)
{
    OCNI_CB_ID_DECL();
    OCNI_CB_BEGIN(ocni_id, ctx, in != NULL && out != NULL);
    /* The OpenConfig parents are made by the prefix entries below. */
    if (has_subtrees)
        OCNI_TRC(ocni_id, ctx, "No mapping done for this node");
    else
        OCNI_TRC(ocni_id, ctx, "No subtrees");
    OCNI_CB_RETURN(ocni_id, ctx, YFW_RC_OK);
}

/* One exported member: a thin wrapper naming itself to the shared body. */
#define OCNI_XO_MEMBER(name, call)                                                          \
    cerrno name(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out)      \
    {                                                                                       \
        OCNI_CB_ID_DECL();                                                                  \
        return call;                                                                        \
    }
#define OCNI_XO_ARGS ocni_id, ctx, in, out

OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvle_routerstatic_vrfprefixes_vrfprefix,
               prefix_list_entry(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlg_routerstatic_vrfprefixes_vrfprefix,
               prefix_list_entry(OCNI_XO_ARGS))

OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefix_namedvrf,
               prefix_leaf(OCNI_XO_ARGS, k_prefix_v4_named))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefix_namedvrf,
               prefix_leaf(OCNI_XO_ARGS, k_prefix_v6_named))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefix,
               prefix_leaf(OCNI_XO_ARGS, k_prefix_v4_default))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefix,
               prefix_leaf(OCNI_XO_ARGS, k_prefix_v6_default))

OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefixlength_namedvrf,
               prefix_length_leaf(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefixlength_namedvrf,
               prefix_length_leaf(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvle_routerstatic_vrfprefix_prefixlength,
               prefix_length_leaf(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlg_routerstatic_vrfprefix_prefixlength,
               prefix_length_leaf(OCNI_XO_ARGS))

OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvln_routerstatic_vrfnexthoptable_vrfnexthopinterfacename,
               next_hop_entry(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvln_routerstatic_vrfnexthoptable_vrfnexthopinterfacenamenexthopaddress,
               next_hop_entry(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvln_routerstatic_vrfnexthoptable_vrfnexthopnexthopaddress,
               next_hop_entry(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlt_routerstatic_vrfnexthoptable_vrfnexthopinterfacename,
               next_hop_entry(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlt_routerstatic_vrfnexthoptable_vrfnexthopinterfacenamenexthopaddress,
               next_hop_entry(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_list_lvlt_routerstatic_vrfnexthoptable_vrfnexthopnexthopaddress,
               next_hop_entry(OCNI_XO_ARGS))

OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacename_interfacename,
               interface_table_key(OCNI_XO_ARGS, k_interface_key_v4))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacename_interfacename,
               interface_table_key(OCNI_XO_ARGS, k_interface_key_v6))

OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_interfacename,
               interface_address_table_interface(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_interfacename,
               interface_address_table_interface(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_nexthopaddress,
               interface_address_table_address(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_nexthopaddress,
               interface_address_table_address(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopnexthopaddress_nexthopaddress,
               address_table_address(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopnexthopaddress_nexthopaddress,
               address_table_address(OCNI_XO_ARGS))

OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacename_tag,
               route_level_leaf(OCNI_XO_ARGS, k_set_tag))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_tag,
               route_level_leaf(OCNI_XO_ARGS, k_set_tag))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopnexthopaddress_tag,
               route_level_leaf(OCNI_XO_ARGS, k_set_tag))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacename_tag,
               route_level_leaf(OCNI_XO_ARGS, k_set_tag))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_tag,
               route_level_leaf(OCNI_XO_ARGS, k_set_tag))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopnexthopaddress_tag,
               route_level_leaf(OCNI_XO_ARGS, k_set_tag))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacename_description,
               route_level_leaf(OCNI_XO_ARGS, k_description))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopinterfacenamenexthopaddress_description,
               route_level_leaf(OCNI_XO_ARGS, k_description))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlan_routerstatic_vrfnexthopnexthopaddress_description,
               route_level_leaf(OCNI_XO_ARGS, k_description))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacename_description,
               route_level_leaf(OCNI_XO_ARGS, k_description))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopinterfacenamenexthopaddress_description,
               route_level_leaf(OCNI_XO_ARGS, k_description))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_man_leaf_lvlbf_routerstatic_vrfnexthopnexthopaddress_description,
               route_level_leaf(OCNI_XO_ARGS, k_description))

OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_index, index_leaf(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_metric, metric_leaf(OCNI_XO_ARGS))
OCNI_XO_MEMBER(ymap_xo_ocni_velmarornqzipstaticcfg_leaf_routerstatic_bfd, bfd_leaf(OCNI_XO_ARGS))

} // extern "C"
