/*
 * State-direction callbacks: operational answers to OpenConfig state.
 *
 * The framework walks the operational answer parents first and calls one
 * reverse callback per node. Containers and list entries add (almost)
 * nothing; every leaf makes sure the OpenConfig static entry (and, for
 * next-hop leaves, the next-hop entry) exists, keyed by the operational
 * keys of the current entry, hangs its state leaf there and points the
 * framework's list context at the entry it worked on.
 */
#define OCNI_SRC_FILE "localrouting/src/ymap_ocni_velmar_orn_qz_ocni_local_routing_oper_man"
#include "ymap_ocni_velmar_orn_qz_ocni_local_routing_oper_man.h"
#include "ymap_ni_static_util.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"

#include <string.h>

#include <safe_str_lib.h>

namespace {

/* ------------------------------------------------------------------ */
/* Families                                                            */
/* ------------------------------------------------------------------ */

/* The operational lists whose keys a member of one family reads. */
struct oper_family {
    const char *ni_list;     /* key "name" */
    const char *static_list; /* key "prefix", "/" written as "_" */
    const char *nh_list;     /* key "index", "/" written as "_" */
};

#define OCNI_OPER_LISTS(af)                                                                   \
    {                                                                                         \
        "/ocni/" af "/network-instances/network-instance",                                   \
        "/ocni/" af "/network-instances/network-instance/protocols/protocol/static-routes/static-route", \
        "/ocni/" af "/network-instances/network-instance/protocols/protocol/static-routes/static-route/next-hops/next-hop" \
    }

const oper_family FAMILY_V4 = OCNI_OPER_LISTS("vrfipv4");
const oper_family FAMILY_V6 = OCNI_OPER_LISTS("vrfipv6");

/* OpenConfig list paths handed to the list context. */
const char OC_STATIC_LIST[] =
    "/network-instances/network-instance/protocols/protocol/static-routes/static";
const char OC_NEXT_HOP_LIST[] =
    "/network-instances/network-instance/protocols/protocol/static-routes/static/next-hops/next-hop";
/* Where identity next-hops (DROP, LOCAL_LINK) are written. */
const char OC_NEXT_HOP_STATE_LEAF[] =
    "/network-instances/network-instance/protocols/protocol/static-routes/static/next-hops/next-hop"
    "/state/next-hop";

/* Traced whenever an entry or leaf is found already made, whatever it is. */
#define EXISTS_TRACE "default vrf already exists"

/* Size of the converted copies of an operational value. */
const size_t INDEX_BUF_LEN = 256;
/* Interface names are kept whole as the read keeps them (99 characters in the native model). */
const size_t IFNAME_BUF_LEN = OCNI_IFNAME_LEN;
const size_t PREFIX_BUF_LEN = 128;
/* The read cuts indexes to this many characters, and subinterfaces to this many. */
const size_t INDEX_MAX = 128;
const size_t SUBIF_MAX = 9;

/* ------------------------------------------------------------------ */
/* Leaf members                                                        */
/* ------------------------------------------------------------------ */

/* Operational keys a member reads. */
enum : uint8_t { KEY_NI = 1, KEY_PREFIX = 2, KEY_INDEX = 4 };

enum class oc_entry : uint8_t { STATIC, NEXT_HOP };

/* Which text keys the OpenConfig entry. */
enum class entry_key : uint8_t {
    OWN_VALUE, /* the value of the operational leaf itself */
    OPER_KEY   /* the operational key of the current entry */
};

enum class leaf_value : uint8_t {
    NONE,         /* no leaf: only the entries are made */
    AS_IS,        /* the operational value unchanged */
    INDEX,        /* the index that keys the next-hop entry */
    INTERFACE,    /* the configured interface the value names, else the value converted */
    SUBINTERFACE, /* the value cut as the read cuts it; only a number */
    ENTRY_KEY     /* the converted prefix that keys the static entry */
};

enum class leaf_when : uint8_t {
    ALWAYS,
    PRESENT,      /* a value, possibly empty */
    NOT_EMPTY,
    NOT_IDENTITY  /* neither DROP nor LOCAL_LINK: those are identities */
};

struct leaf_member {
    uint8_t keys;       /* KEY_* read from the operational entry */
    bool needs_in;      /* `in` is checked together with `out` */
    size_t conv_len;    /* non-zero: the value is converted into a buffer this big */
    oc_entry entry;
    entry_key key_from;
    const char *leaf;   /* relative to the entry; NULL with leaf_value::NONE */
    leaf_value value;
    leaf_when when;
};

enum leaf_row {
    REV_STATIC_KEY,
    REV_NH_KEY,
    REV_NH_INDEX,
    REV_NH_NEXTHOP,
    REV_NH_METRIC,
    REV_NH_INTERFACE,
    REV_NH_SUBINTERFACE,
    REV_NH_ENABLE_BFD,
    REV_ST_PREFIX,
    REV_ST_SETTAG,
    REV_ST_DESCRIPTION,
    REV_ROWS
};

const uint8_t KEYS_NH = KEY_NI | KEY_PREFIX | KEY_INDEX;

/*
 * One row per leaf_row, in that order. The static-route key and the
 * next-hop key write no leaf: they only make the entries.
 */
const leaf_member LEAF_MEMBERS[] = {
    /* REV_STATIC_KEY */
    {KEY_NI, true, 0, oc_entry::STATIC, entry_key::OWN_VALUE,
     NULL, leaf_value::NONE, leaf_when::ALWAYS},
    /* REV_NH_KEY */
    {KEYS_NH, false, INDEX_BUF_LEN, oc_entry::NEXT_HOP, entry_key::OWN_VALUE,
     NULL, leaf_value::NONE, leaf_when::ALWAYS},
    /* REV_NH_INDEX */
    {KEYS_NH, false, INDEX_BUF_LEN, oc_entry::NEXT_HOP, entry_key::OWN_VALUE,
     "/state/index", leaf_value::INDEX, leaf_when::ALWAYS},
    /* REV_NH_NEXTHOP */
    {KEYS_NH, true, 0, oc_entry::NEXT_HOP, entry_key::OPER_KEY,
     "/state/next-hop", leaf_value::AS_IS, leaf_when::NOT_IDENTITY},
    /* REV_NH_METRIC */
    {KEYS_NH, true, 0, oc_entry::NEXT_HOP, entry_key::OPER_KEY,
     "/state/metric", leaf_value::AS_IS, leaf_when::ALWAYS},
    /* REV_NH_INTERFACE */
    {KEYS_NH, false, IFNAME_BUF_LEN, oc_entry::NEXT_HOP, entry_key::OPER_KEY,
     "/interface-ref/state/interface", leaf_value::INTERFACE, leaf_when::NOT_EMPTY},
    /* REV_NH_SUBINTERFACE */
    {KEYS_NH, true, 0, oc_entry::NEXT_HOP, entry_key::OPER_KEY,
     "/interface-ref/state/subinterface", leaf_value::SUBINTERFACE, leaf_when::NOT_EMPTY},
    /* REV_NH_ENABLE_BFD */
    {KEYS_NH, true, 0, oc_entry::NEXT_HOP, entry_key::OPER_KEY,
     "/enable-bfd/state/enabled", leaf_value::AS_IS, leaf_when::NOT_EMPTY},
    /* REV_ST_PREFIX */
    {KEY_NI, true, 0, oc_entry::STATIC, entry_key::OWN_VALUE,
     "/state/prefix", leaf_value::ENTRY_KEY, leaf_when::ALWAYS},
    /* REV_ST_SETTAG */
    {KEY_NI | KEY_PREFIX, true, 0, oc_entry::STATIC, entry_key::OPER_KEY,
     "/state/set-tag", leaf_value::AS_IS, leaf_when::PRESENT},
    /* REV_ST_DESCRIPTION */
    {KEY_NI | KEY_PREFIX, true, 0, oc_entry::STATIC, entry_key::OPER_KEY,
     "/state/description", leaf_value::AS_IS, leaf_when::PRESENT},
};

static_assert(sizeof LEAF_MEMBERS / sizeof LEAF_MEMBERS[0] == REV_ROWS, "one row per member");

/* ------------------------------------------------------------------ */
/* Shared steps                                                        */
/* ------------------------------------------------------------------ */

/* Operational keys of the current entry. The texts belong to the answer tree. */
struct oper_keys {
    char *vrf;
    char *prefix;
    char *index;
};

/*
 * Reads the keys `which` of the current operational entry. The network
 * instance is "default" whenever the answer names none.
 */
void read_oper_keys(yfw_map_ctx *ctx, const oper_family &fam, uint8_t which, oper_keys &keys)
{
    static char default_vrf[] = "default";

    keys.vrf = default_vrf;
    keys.prefix = NULL;
    keys.index = NULL;
    if (ctx == NULL) /* left to the context assertion that follows */
        return;
    if (which & KEY_NI) {
        (void)yfw_map_get_node_info(ctx, fam.ni_list, "name", &keys.vrf);
        if (keys.vrf == NULL)
            keys.vrf = default_vrf;
    }
    if (which & KEY_PREFIX)
        (void)yfw_map_get_node_info(ctx, fam.static_list, "prefix", &keys.prefix);
    if (which & KEY_INDEX)
        (void)yfw_map_get_node_info(ctx, fam.nh_list, "index", &keys.index);
}

/* Makes sure the static entry of the operational prefix `prefix` exists. */
zidl_yfw_datatree *ensure_static(yfw_map_ctx *ctx, const char *vrf, const char *prefix,
                                 zidl_yfw_datatree *out, char (&converted)[PREFIX_BUF_LEN])
{
    zidl_yfw_datatree *entry = NULL;

    memset(converted, 0, sizeof converted);
    if (prefix != NULL)
        formatting_prefix(prefix, converted);
    (void)ymap_ocni_get_prefix_list(ctx, NULL, vrf, converted, &entry, out);
    return entry;
}

/* Makes sure the next-hop entry of `index` exists below the static entry. */
zidl_yfw_datatree *ensure_next_hop(yfw_map_ctx *ctx, const char *index,
                                   zidl_yfw_datatree *static_entry)
{
    zidl_yfw_datatree *entry = NULL;

    (void)ymap_ocni_get_index_list(ctx, NULL, NULL, index != NULL ? index : "", &entry,
                                   static_entry);
    return entry;
}

/* The child `name` of `node`, or NULL. */
const zidl_yfw_datatree *child(const zidl_yfw_datatree *node, const char *name)
{
    if (node == NULL || node->children == NULL)
        return NULL;
    for (uint32_t i = 0; i < node->n_children && node->children[i].name != NULL; ++i)
        if (strcmp(node->children[i].name, name) == 0)
            return &node->children[i];
    return NULL;
}

const char *child_value(const zidl_yfw_datatree *node, const char *name)
{
    const zidl_yfw_datatree *c = child(node, name);
    return c != NULL ? c->value : NULL;
}

/*
 * Whether the operational text `oper` (already converted, "_" read as "/")
 * names the configured text `conf`: equal once "_" and "/" are taken as
 * one, `oper` cut to `max` characters as the read cuts.
 */
bool names_configured(const char *conf, const char *oper, size_t max)
{
    size_t i = 0;
    for (; conf[i] != '\0' && oper[i] != '\0'; ++i) {
        const char a = conf[i] == '_' ? '/' : conf[i];
        const char b = oper[i] == '_' ? '/' : oper[i];
        if (a != b)
            return false;
    }
    return conf[i] == '\0' && (oper[i] == '\0' || i == max);
}

/*
 * The configured next hop of `static_entry` that the operational index
 * names; NULL when none does. State lands on the entry its configuration
 * reads back under: the operational key writes every "/" as "_", so an
 * index or interface that holds "_" of its own is matched, not converted.
 */
const zidl_yfw_datatree *configured_next_hop(const zidl_yfw_datatree *static_entry,
                                             const char *index)
{
    const zidl_yfw_datatree *list = child(static_entry, "next-hops");
    if (list == NULL || list->children == NULL || index == NULL)
        return NULL;
    for (uint32_t i = 0; i < list->n_children && list->children[i].name != NULL; ++i) {
        const zidl_yfw_datatree *nh = &list->children[i];
        const char *conf = child_value(nh, "index");
        if (strcmp(nh->name, "next-hop") == 0 && conf != NULL &&
            names_configured(conf, index, INDEX_MAX))
            return nh;
    }
    return NULL;
}

/* A subinterface as the read gives it: cut to its first 9 characters, and only a number. */
bool subinterface_text(const char *value, char (&buf)[SUBIF_MAX + 1])
{
    snprintf(buf, sizeof buf, "%s", value);
    for (const char *c = value; *c != '\0'; ++c)
        if (*c < '0' || *c > '9')
            return false;
    return buf[0] != '\0';
}

/* Points the framework's list context at `entry` of the list `list_path`. */
void set_list_context(yfw_map_ctx *ctx, zidl_yfw_datatree *entry, const char *list_path)
{
    ni_static_yfw_map_update_ctx_current_list_ptr(ctx, entry);
    yfw_map_free_trim_path_list_ctx(ctx);
    (void)yfw_map_copy_trim_path_list_ctx(ctx, list_path);
}

bool is_identity_next_hop(const char *value)
{
    return value != NULL && (strcmp(value, "DROP") == 0 || strcmp(value, "LOCAL_LINK") == 0);
}

bool should_write(leaf_when when, const char *value)
{
    switch (when) {
    case leaf_when::ALWAYS:
        return true;
    case leaf_when::PRESENT:
        return value != NULL;
    case leaf_when::NOT_EMPTY:
        return value != NULL && value[0] != '\0';
    case leaf_when::NOT_IDENTITY:
        return !is_identity_next_hop(value);
    }
    return false;
}

/*
 * DROP and LOCAL_LINK are identities of the local-routing module: they go
 * in by schema path, with their value namespace, and leave the list
 * context alone.
 */
void write_identity_next_hop(yfw_map_ctx *ctx, zidl_yfw_datatree *out, const char *value)
{
    zidl_yfw_datatree *created = NULL;

    (void)yfw_map_datatree_add_path_flagged(ctx, out, OC_NEXT_HOP_STATE_LEAF, OCNI_NS_OC_NI,
                                            value, NULL, &created, 0, 0);
    if (created != NULL)
        oc_ni_set_data_namespace(created, OCNI_NS_OC_LR);
}

/* Copies `value` into the zeroed buffer `buf` and turns every "_" into "/". */
void convert_copy(const char *value, char *buf, size_t len)
{
    memset(buf, 0, len);
    if (value != NULL && value[0] != '\0')
        strncpy_s(buf, len, value, len - 1);
    ocni_get_external_ifname(buf);
}

/* One operational leaf, for the member `id` of the family `fam`. */
cerrno rev_leaf(const ocni_cb_id &id, const oper_family &fam, const leaf_member &m,
                yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out)
{
    char converted[INDEX_BUF_LEN];
    char prefix[PREFIX_BUF_LEN];
    const char *in_value = in != NULL ? in->value : NULL;
    oper_keys keys;

    /* The value is converted first, in a copy: the answer keeps its text. */
    if (m.conv_len != 0)
        convert_copy(in_value, converted, m.conv_len);

    read_oper_keys(ctx, fam, m.keys, keys);
    /* The next-hop key is converted where it lies, for the later leaves of the entry too. */
    if (m.entry == oc_entry::NEXT_HOP && m.key_from == entry_key::OPER_KEY)
        ocni_get_external_ifname(keys.index);

    /* A member that converts the value cannot do without it either. */
    const bool in_required = m.needs_in || m.conv_len != 0;
    OCNI_CB_BEGIN(id, ctx, out != NULL && (in != NULL || !in_required));

    const char *static_key = m.entry == oc_entry::STATIC && m.key_from == entry_key::OWN_VALUE
                                 ? in_value
                                 : keys.prefix;
    zidl_yfw_datatree *entry = ensure_static(ctx, keys.vrf, static_key, out, prefix);
    const char *index = m.key_from == entry_key::OWN_VALUE ? converted : keys.index;
    const zidl_yfw_datatree *configured = NULL;
    if (m.entry == oc_entry::NEXT_HOP && entry != NULL) {
        /* A route read with its configuration: its state goes to the configured next hops only. */
        if (child(entry, "config") != NULL) {
            configured = configured_next_hop(entry, index);
            if (configured == NULL) {
                OCNI_TRC(id, ctx, "no configured next hop %s: state left out", index);
                OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
            }
            index = child_value(configured, "index");
        }
        entry = ensure_next_hop(ctx, index, entry);
    }

    if (m.value == leaf_value::NONE)
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);

    if (m.when == leaf_when::NOT_IDENTITY && is_identity_next_hop(in_value)) {
        write_identity_next_hop(ctx, out, in_value);
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
    }

    /* Without its entry the leaf has nowhere to go. */
    if (entry == NULL || !should_write(m.when, in_value))
        OCNI_CB_RETURN(id, ctx, YFW_RC_OK);

    const char *value = in_value;
    char subif[SUBIF_MAX + 1];
    switch (m.value) {
    case leaf_value::INDEX:
        value = index;
        break;
    case leaf_value::INTERFACE: {
        const char *conf = child_value(child(child(configured, "interface-ref"), "config"),
                                       "interface");
        value = conf != NULL && names_configured(conf, converted, IFNAME_BUF_LEN - 1) ? conf
                                                                                        : converted;
        break;
    }
    case leaf_value::SUBINTERFACE:
        if (!subinterface_text(in_value, subif)) {
            OCNI_ERR(id, ctx, "subinterface %s is not a number: left out", in_value);
            OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
        }
        value = subif;
        break;
    case leaf_value::ENTRY_KEY:
        value = prefix;
        break;
    default:
        break;
    }

    yfw_map_xpath_op rec;
    cerrno rc;
    if (value != NULL && value[0] == '\0') {
        /*
         * An empty value is a value: the record cannot carry one, so the leaf
         * goes in by schema path under the entries just made current.
         */
        char path[OCNI_REQ_PATH_LEN];
        snprintf(path, sizeof path, "%s%s",
                 m.entry == oc_entry::NEXT_HOP ? OC_NEXT_HOP_LIST : OC_STATIC_LIST, m.leaf);
        memset(&rec, 0, sizeof rec);
        rec.root = entry;
        rc = yfw_map_datatree_add_path_flagged(ctx, out, path, OCNI_NS_OC_NI, "", NULL,
                                               &rec.result, 0, 0);
    } else {
        rc = ocni_xpath_run(ctx, &rec, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_LEAF, entry,
                            OCNI_NS_OC_NI, value, "%s", m.leaf);
    }
    if (rc == YFW_RC_NODE_EXISTS)
        OCNI_TRC(id, ctx, EXISTS_TRACE);

    /* Next-hop leaves leave the next-hop entry current; static leaves the node made. */
    if (m.entry == oc_entry::NEXT_HOP)
        set_list_context(ctx, rec.root, OC_NEXT_HOP_LIST);
    else
        set_list_context(ctx, rec.result, OC_STATIC_LIST);

    OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
}

/* Operational containers: mapped by their subtrees, or added empty. */
cerrno rev_container(const ocni_cb_id &id, const char *oc_path, yfw_map_ctx *ctx,
                     const zidl_yfw_datatree *in, unsigned int subtrees,
                     zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    if (subtrees != 0) {
        OCNI_TRC(id, ctx, "No mapping done for this node");
    } else {
        OCNI_TRC(id, ctx, "No subtrees");
        (void)yfw_map_datatree_add_path_flagged(ctx, out, oc_path, OCNI_NS_OC_NI, NULL, NULL,
                                                NULL, 0, 0);
    }
    OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
}

/* Operational list entries: their keys and leaves make the OpenConfig entries. */
cerrno rev_entry(const ocni_cb_id &id, yfw_map_ctx *ctx, const zidl_yfw_datatree *in,
                 zidl_yfw_datatree *out)
{
    OCNI_CB_BEGIN(id, ctx, in != NULL && out != NULL);
    OCNI_CB_RETURN(id, ctx, YFW_RC_OK);
}

/* Find-or-create of the OpenConfig list entry at `path` below `root`. */
cerrno add_entry(const ocni_cb_id &id, yfw_map_ctx *ctx, zidl_yfw_datatree *root,
                 zidl_yfw_datatree **entry, const char *path)
{
    yfw_map_xpath_op rec;
    cerrno rc;

    if (entry == NULL)
        return YFW_RC_MAP_FAILED;
    *entry = NULL;
    if (ctx == NULL || root == NULL)
        return YFW_RC_MAP_FAILED;

    rc = ocni_xpath_run(ctx, &rec, YFW_XPATH_OP_ADD, YFW_XPATH_NODE_CONTAINER, root,
                        OCNI_NS_OC_NI, NULL, "%s", path);
    if (rc == YFW_RC_NODE_EXISTS)
        OCNI_TRC(id, ctx, EXISTS_TRACE);
    *entry = rec.result;
    return rc;
}

} // namespace

extern "C" {

cerrno ymap_ocni_get_prefix_list(yfw_map_ctx *ctx, const char *ns, const char *vrf,
                                 const char *prefix, zidl_yfw_datatree **entry,
                                 zidl_yfw_datatree *root)
{
    OCNI_CB_ID_DECL();
    char path[OCNI_REQ_PATH_LEN];

    char vrf_key[OCNI_KEY_TEXT_LEN];
    char prefix_key[OCNI_KEY_TEXT_LEN];

    (void)ns;
    snprintf(path, sizeof path,
             "/network-instances/network-instance[name=%s]/protocols/"
             "protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=%s]/",
             ocni_path_key(vrf, vrf_key, sizeof vrf_key),
             ocni_path_key(prefix, prefix_key, sizeof prefix_key));
    return add_entry(ocni_id, ctx, root, entry, path);
}

cerrno ymap_ocni_get_index_list(yfw_map_ctx *ctx, const char *ns, const char *prefix_path,
                                const char *index, zidl_yfw_datatree **entry,
                                zidl_yfw_datatree *root)
{
    OCNI_CB_ID_DECL();
    char path[OCNI_REQ_PATH_LEN];

    char key[OCNI_KEY_TEXT_LEN];

    (void)ns;
    (void)prefix_path;
    snprintf(path, sizeof path, "/next-hops/next-hop[index=%s]/",
             ocni_path_key(index, key, sizeof key));
    return add_entry(ocni_id, ctx, root, entry, path);
}

#define OCNI_DEFINE_REV_CONTAINER_(v4, v6, path)                                           \
    cerrno v4(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int subtrees,         \
              zidl_yfw_datatree *out)                                                       \
    {                                                                                       \
        OCNI_CB_ID_DECL();                                                                  \
        return rev_container(ocni_id, path, ctx, in, subtrees, out);                        \
    }                                                                                       \
    cerrno v6(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, unsigned int subtrees,         \
              zidl_yfw_datatree *out)                                                       \
    {                                                                                       \
        OCNI_CB_ID_DECL();                                                                  \
        return rev_container(ocni_id, path, ctx, in, subtrees, out);                        \
    }
OCNI_REV_CONTAINER_MEMBERS(OCNI_DEFINE_REV_CONTAINER_)

#define OCNI_DEFINE_REV_ENTRY_(v4, v6)                                                      \
    cerrno v4(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out)        \
    {                                                                                       \
        OCNI_CB_ID_DECL();                                                                  \
        return rev_entry(ocni_id, ctx, in, out);                                            \
    }                                                                                       \
    cerrno v6(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out)        \
    {                                                                                       \
        OCNI_CB_ID_DECL();                                                                  \
        return rev_entry(ocni_id, ctx, in, out);                                            \
    }
OCNI_REV_ENTRY_MEMBERS(OCNI_DEFINE_REV_ENTRY_)

#define OCNI_DEFINE_REV_LEAF_(v4, v6, row)                                                  \
    cerrno v4(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out)        \
    {                                                                                       \
        OCNI_CB_ID_DECL();                                                                  \
        return rev_leaf(ocni_id, FAMILY_V4, LEAF_MEMBERS[row], ctx, in, out);               \
    }                                                                                       \
    cerrno v6(yfw_map_ctx *ctx, const zidl_yfw_datatree *in, zidl_yfw_datatree *out)        \
    {                                                                                       \
        OCNI_CB_ID_DECL();                                                                  \
        return rev_leaf(ocni_id, FAMILY_V6, LEAF_MEMBERS[row], ctx, in, out);               \
    }
OCNI_REV_LEAF_MEMBERS(OCNI_DEFINE_REV_LEAF_)

} // extern "C"
