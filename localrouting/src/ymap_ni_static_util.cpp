/*
 * Keyed list utilities over framework data trees, and value namespaces.
 *
 * The framework keeps the entries of a list as sibling nodes of the same
 * name, each with its key leaves as children. These routines find the
 * entry with given key values (a null value matches anything), create it
 * with its key, config and state key leaves when it is missing, and read
 * key values of ancestor entries of the request.
 */
#define OCNI_SRC_FILE "localrouting/src/ymap_ni_static_util"
#include "ymap_ni_static_util.h"

#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

namespace {

const char *const k_protocol_state_enabled =
    "/network-instances/network-instance/protocols/protocol/state/enabled";
const char *const k_protocol_state_default_metric =
    "/network-instances/network-instance/protocols/protocol/state/default-metric";

bool has_children(const zidl_yfw_datatree *node)
{
    return (node->flags & YFW_DT_F_CHILDREN) != 0;
}

bool same_text(const char *a, const char *b)
{
    return a != NULL && b != NULL && strcmp(a, b) == 0;
}

bool same_name(const char *a, const char *b)
{
    return a != NULL && b != NULL && yfw_map_do_these_match(a, b) != 0;
}

/*
 * Formats into a tagged block of exactly the needed size; NULL when the
 * allocation is refused. Freed with wos_named_free.
 */
char *alloc_path(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
char *alloc_path(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    int len = vsnprintf(NULL, 0, fmt, ap);
    va_end(ap);
    if (len < 0)
        return NULL;
    char *buf = static_cast<char *>(wos_named_calloc_(static_cast<size_t>(len) + 1, 1,
                                                      OCNI_TAG_SEARCH));
    if (buf == NULL)
        return NULL;
    va_start(ap, fmt);
    vsnprintf(buf, static_cast<size_t>(len) + 1, fmt, ap);
    va_end(ap);
    return buf;
}

/*
 * Adds one key leaf "<entry path>[/<container>]/<key>" with its value;
 * the protocol identifier is an identity of the policy-types module.
 */
cerrno add_key_leaf(yfw_map_ctx *ctx, zidl_yfw_datatree *root, const char *entry_path,
                    const char *container, const char *key_name, const char *key_value,
                    const char *ns, uint32_t add_flag)
{
    char *path = container != NULL ? alloc_path("%s/%s/%s", entry_path, container, key_name)
                                   : alloc_path("%s/%s", entry_path, key_name);
    if (path == NULL)
        return YFW_RC_NO_MEMORY;
    zidl_yfw_datatree *leaf = NULL;
    cerrno rc = yfw_map_datatree_add_path_flagged(ctx, root, path, ns, key_value, NULL, &leaf, 0,
                                                  add_flag);
    if (strcmp(key_name, "identifier") == 0)
        oc_ni_set_data_namespace(leaf, OCNI_NS_OC_PT);
    wos_named_free(path);
    return rc;
}

/* Every one of the keys has a name. */
bool all_named(int8_t nkeys, const char **key_names)
{
    for (int k = 0; k < nkeys; k++)
        if (key_names[k] == NULL)
            return false;
    return true;
}

} // namespace

extern "C" {

const char *ocni_path_key(const char *value, char *buf, size_t len)
{
    if (value == NULL)
        value = "";
    /* A stored name may hold anything; the host's path reader ends a bare key at "]". */
    const bool bare = strchr(value, ']') == NULL && value[0] != '\'' && value[0] != '"';
    if (bare)
        snprintf(buf, len, "%s", value);
    else if (strchr(value, '\'') == NULL)
        snprintf(buf, len, "'%s'", value);
    else
        snprintf(buf, len, "\"%s\"", value);
    return buf;
}

void oc_ni_set_data_namespace(zidl_yfw_datatree *node, const char *ns)
{
    if (node == NULL)
        return;
    if (node->data_ns != NULL && ns != NULL && strcmp(node->data_ns, ns) == 0)
        return;
    node->data_ns = yfw_strdup(ns, OCNI_TAG_NS);
    node->flags2 |= YFW_DT_F2_DATA_NS;
}

cerrno ni_static_yfw_map_find_child(zidl_yfw_datatree *node, zidl_yfw_datatree **child,
                                    const char *name, const char *ns)
{
    if (node == NULL || child == NULL || name == NULL)
        return YFW_RC_NO_MEMORY;
    if (!has_children(node))
        return YFW_RC_MAP_FAILED;
    if (node->children == NULL && node->n_children != 0)
        return YFW_RC_NO_MEMORY;
    if (node->n_children == 0)
        return YFW_RC_MAP_FAILED;
    for (uint32_t i = 0; i < node->n_children; i++) {
        zidl_yfw_datatree *c = &node->children[i];
        if (c->name == NULL)
            return YFW_RC_MAP_FAILED;
        if (same_name(c->name, name) && (ns == NULL || same_text(c->ns, ns))) {
            *child = c;
            return YFW_RC_OK;
        }
    }
    return YFW_RC_MAP_FAILED;
}

cerrno ni_static_yfw_map_datatree_get_subtree_multi_keys(zidl_yfw_datatree *entry,
                                                         zidl_yfw_datatree **match, int8_t nkeys,
                                                         const char **key_names,
                                                         const char **key_values, const char *ns)
{
    if (entry == NULL || match == NULL || (nkeys > 0 && (key_names == NULL || key_values == NULL)))
        return YFW_RC_NO_MEMORY;
    if (!has_children(entry))
        return YFW_RC_MAP_FAILED;
    if (entry->children == NULL && entry->n_children != 0)
        return YFW_RC_NO_MEMORY;
    if (entry->n_children == 0 || (nkeys > 0 && entry->n_children < (uint32_t)nkeys))
        return YFW_RC_MAP_FAILED;

    int matched = 0;
    for (uint32_t i = 0; i < entry->n_children; i++) {
        zidl_yfw_datatree *c = &entry->children[i];
        if (c->name == NULL)
            return YFW_RC_MAP_FAILED;
        for (int k = 0; k < nkeys; k++) {
            if (!same_name(c->name, key_names[k]))
                continue;
            if (key_values[k] == NULL) {
                /* A wildcard key still has to live in the wanted module. */
                if (ns != NULL && !same_text(c->ns, ns))
                    return YFW_RC_MAP_FAILED;
                matched++;
            } else if ((c->flags & YFW_DT_F_VALUE) && same_text(c->value, key_values[k])) {
                matched++;
            }
            break; /* a child counts at most once */
        }
        if (nkeys > 0 && matched == nkeys) {
            *match = c;
            return YFW_RC_OK;
        }
    }
    return YFW_RC_MAP_FAILED;
}

cerrno ni_static_yfw_map_iterate_list_multi_keys(yfw_map_ctx *ctx, zidl_yfw_datatree **parent,
                                                 int8_t nkeys, const char **key_names,
                                                 const char **key_values, const char *list_path,
                                                 const char *ns)
{
    OCNI_CB_ID_DECL();
    if (ctx == NULL || parent == NULL || *parent == NULL || list_path == NULL)
        return YFW_RC_NO_MEMORY;

    char *copy = strdup(list_path);
    if (copy == NULL)
        return YFW_RC_NO_MEMORY;
    char *list_name = NULL;
    if (yfw_map_get_last_token_from_path(copy, &list_name) != YFW_RC_OK || list_name == NULL) {
        free(copy);
        return YFW_RC_NO_MEMORY;
    }

    zidl_yfw_datatree *p = *parent;
    cerrno rc = YFW_RC_MAP_FAILED;
    if (!has_children(p)) {
        rc = YFW_RC_MAP_FAILED;
    } else if (p->children == NULL && p->n_children != 0) {
        OCNI_ERR(ocni_id, ctx, "Failed to get subtrees!");
        ocni_set_user_msg(ctx, "Failed to get subtrees");
        OCNI_TRC_END(ocni_id, ctx);
        rc = YFW_RC_INVALID_REQUEST;
    } else {
        for (uint32_t i = 0; i < p->n_children; i++) {
            zidl_yfw_datatree *c = &p->children[i];
            if (c->name == NULL)
                break;
            zidl_yfw_datatree *key = NULL;
            if (ni_static_yfw_map_datatree_get_subtree_multi_keys(c, &key, nkeys, key_names,
                                                                  key_values, ns) == YFW_RC_OK &&
                (c->flags & YFW_DT_F_LIST) && same_name(c->name, list_name)) {
                *parent = c;
                rc = YFW_RC_OK;
                break;
            }
        }
    }
    free(copy);
    return rc;
}

cerrno ni_static_yfw_map_search_list_multi_keys(yfw_map_ctx *ctx, zidl_yfw_datatree *root,
                                                zidl_yfw_datatree **result, const char *list_path,
                                                int8_t nkeys, const char **key_values,
                                                const char **key_names, const char *ns)
{
    if (nkeys > OCNI_MAX_KEYS || ctx == NULL || root == NULL || result == NULL ||
        list_path == NULL)
        return YFW_RC_NO_MEMORY;
    char *copy = yfw_strdup(list_path, OCNI_TAG_MAP_US);
    if (copy == NULL)
        return YFW_RC_NO_MEMORY;

    zidl_yfw_datatree *cur = root;
    char *save = NULL;
    char *tok = strtok_r(copy, "/", &save);
    while (tok != NULL) {
        char *next = strtok_r(NULL, "/", &save);
        zidl_yfw_datatree *child = NULL;
        if (ni_static_yfw_map_find_child(cur, &child, tok, ns) != YFW_RC_OK)
            break; /* missing token */
        if (next != NULL) {
            cur = child;
            tok = next;
            continue;
        }
        /* The list itself: pick the entry among the parent's children. */
        zidl_yfw_datatree *entry = cur;
        cerrno rc = ni_static_yfw_map_iterate_list_multi_keys(ctx, &entry, nkeys, key_names,
                                                              key_values, list_path, NULL);
        wos_named_free(copy);
        if (rc != YFW_RC_OK)
            return YFW_RC_MAP_FAILED;
        *result = entry;
        return YFW_RC_OK;
    }
    yfw_oc_error_path(ctx);
    wos_named_free(copy);
    return YFW_RC_MAP_FAILED;
}

cerrno ni_static_yfw_map_search_subtree_list_multi_keys(yfw_map_ctx *ctx, zidl_yfw_datatree *root,
                                                        zidl_yfw_datatree **result,
                                                        const char *list_path, int8_t nkeys,
                                                        const char **key_values,
                                                        const char **key_names, const char *ns)
{
    if (nkeys > OCNI_MAX_KEYS)
        return YFW_RC_NO_MEMORY;
    cerrno rc = ni_static_yfw_map_search_list_multi_keys(ctx, root, result, list_path, nkeys,
                                                         key_values, key_names, ns);
    if (rc == YFW_RC_OK && ns != NULL && !same_text((*result)->ns, ns))
        return YFW_RC_NO_MEMORY;
    return rc;
}

cerrno ni_static_yfw_map_search_or_add_subtree_list_multi_keys(
    yfw_map_ctx *ctx, zidl_yfw_datatree *root, zidl_yfw_datatree **result, const char *parent_path,
    const char *list_path, int8_t nkeys, const char **key_values, const char **key_names,
    const char *ns)
{
    if (nkeys > OCNI_MAX_KEYS || ctx == NULL || result == NULL || list_path == NULL ||
        (nkeys > 0 && (key_values == NULL || key_names == NULL || !all_named(nkeys, key_names))))
        return YFW_RC_NO_MEMORY;
    const uint32_t add_flag = parent_path != NULL ? 32u : 0u;

    if (ni_static_yfw_map_search_list_multi_keys(ctx, root, result, list_path, nkeys, key_values,
                                                 key_names, ns) == YFW_RC_OK) {
        if (ns != NULL && !same_text((*result)->ns, ns))
            return YFW_RC_NO_MEMORY;
        return YFW_RC_OK;
    }

    char *full = parent_path != NULL ? alloc_path("%s/%s", parent_path, list_path)
                                     : alloc_path("%s", list_path);
    if (full == NULL)
        return YFW_RC_NO_MEMORY;
    if (parent_path != NULL)
        (void)yfw_map_copy_trim_path_list_ctx(ctx, parent_path);

    cerrno rc = yfw_map_datatree_add_path_flagged(ctx, root, full, ns, NULL, NULL, result, 1,
                                                  add_flag);
    for (int k = 0; k < nkeys; k++)
        rc = add_key_leaf(ctx, root, full, NULL, key_names[k], key_values[k], ns, add_flag);
    for (int k = 0; k < nkeys; k++)
        rc = add_key_leaf(ctx, root, full, "config", key_names[k], key_values[k], ns, add_flag);
    if (ocni_is_read_state(ctx)) {
        for (int k = 0; k < nkeys; k++)
            rc = add_key_leaf(ctx, root, full, "state", key_names[k], key_values[k], ns,
                              add_flag);
    }
    wos_named_free(full);

    /* The STATIC protocol reports itself enabled with the default metric. */
    if (nkeys >= 2 && ocni_is_read_state(ctx) && same_text(key_values[0], "STATIC") &&
        same_text(key_values[1], "DEFAULT")) {
        rc = yfw_map_datatree_add_path_flagged(ctx, root, k_protocol_state_enabled, ns, "true",
                                               NULL, NULL, 0, add_flag);
        rc = yfw_map_datatree_add_path_flagged(ctx, root, k_protocol_state_default_metric, ns,
                                               "1", NULL, NULL, 0, add_flag);
    }
    if (parent_path != NULL)
        yfw_map_free_trim_path_list_ctx(ctx);
    return rc;
}

cerrno ni_static_yfw_map_search_or_add_subtree_list(yfw_map_ctx *ctx, zidl_yfw_datatree *root,
                                                    zidl_yfw_datatree **result,
                                                    const char *parent_path, const char *list_path,
                                                    const char *key_value, const char *key_name,
                                                    const char *ns)
{
    const char *values[1] = {key_value};
    const char *names[1] = {key_name};
    return ni_static_yfw_map_search_or_add_subtree_list_multi_keys(ctx, root, result, parent_path,
                                                                   list_path, 1, values, names,
                                                                   ns);
}

cerrno ni_static_yfw_map_search_subtree_list(yfw_map_ctx *ctx, zidl_yfw_datatree *root,
                                             zidl_yfw_datatree **result, const char *list_path,
                                             const char *key_value, const char *key_name,
                                             const char *ns)
{
    const char *values[1] = {key_value};
    const char *names[1] = {key_name};
    return ni_static_yfw_map_search_subtree_list_multi_keys(ctx, root, result, list_path, 1,
                                                            values, names, ns);
}

zidl_yfw_datatree *ni_static_yfw_map_get_ancestor_node_datatree(yfw_map_ctx *ctx, uint32_t level)
{
    if (ctx == NULL || ctx->req_ctx == NULL)
        return NULL;
    const yfw_req_ctx *rc = ctx->req_ctx;
    if (rc->depth < level)
        return NULL;
    uint32_t at = rc->depth - level;
    if (at >= YFW_MAX_ANCESTORS)
        return NULL;
    return rc->ancestors[at].node;
}

cerrno ni_static_yfw_map_datatree_get_key_data(zidl_yfw_datatree *entry, const char *key_name,
                                               char **value)
{
    if (entry == NULL || key_name == NULL || value == NULL)
        return YFW_RC_NO_MEMORY;
    if (entry->n_children == 0 || entry->children == NULL)
        return YFW_RC_MAP_FAILED;
    for (uint32_t i = 0; i < entry->n_children; i++) {
        zidl_yfw_datatree *c = &entry->children[i];
        if (c->name == NULL)
            break;
        if ((c->flags & YFW_DT_F_LIST) && same_name(c->name, key_name)) {
            *value = c->value;
            return YFW_RC_OK;
        }
    }
    return YFW_RC_MAP_FAILED;
}

cerrno ni_static_yfw_map_get_ancestor_node_info(yfw_map_ctx *ctx, uint32_t level,
                                                const char *list_path, void *fw_arg,
                                                const char *key_name, char **value)
{
    if (list_path == NULL || key_name == NULL || value == NULL)
        return YFW_RC_NO_MEMORY;
    zidl_yfw_datatree *node = ni_static_yfw_map_get_ancestor_node_datatree(ctx, level);
    if (node == NULL)
        return YFW_RC_MAP_FAILED;
    char *path = alloc_path("%s/%s", list_path, key_name);
    if (path == NULL)
        return YFW_RC_NO_MEMORY;
    zidl_yfw_datatree *entry = NULL;
    cerrno rc = yfw_map_get_list(ctx, node, path, fw_arg, &entry);
    if (rc == YFW_RC_OK)
        rc = entry != NULL ? ni_static_yfw_map_datatree_get_key_data(entry, key_name, value)
                           : YFW_RC_MAP_FAILED;
    wos_named_free(path);
    return rc;
}

zidl_yfw_datatree *ni_static_yfw_map_get_ctx_current_list_ptr(yfw_map_ctx *ctx)
{
    if (ctx == NULL || ctx->req_ctx == NULL)
        return NULL;
    return ctx->req_ctx->current_list;
}

void ni_static_yfw_map_update_ctx_current_list_ptr(yfw_map_ctx *ctx, zidl_yfw_datatree *entry)
{
    if (ctx == NULL || ctx->req_ctx == NULL)
        return;
    ctx->req_ctx->current_list = entry;
}

cerrno ni_static_yfw_map_set_trim_path_list_ctx(yfw_map_ctx *ctx, const char *path, void *fw_arg)
{
    (void)fw_arg;
    if (ctx == NULL || ctx->req_ctx == NULL || path == NULL)
        return YFW_RC_NO_MEMORY;
    if (ctx->req_ctx->trim_path != NULL)
        yfw_map_free_trim_path_list_ctx(ctx);
    size_t len = strlen(path) + 1;
    char *copy = static_cast<char *>(wos_named_calloc_(len, 1, OCNI_TAG_TRIM));
    if (copy == NULL)
        return YFW_RC_NO_MEMORY;
    memcpy(copy, path, len);
    ctx->req_ctx->trim_path = copy;
    return YFW_RC_OK;
}

} // extern "C"
