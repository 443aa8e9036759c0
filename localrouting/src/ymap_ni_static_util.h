/*
 * Keyed list utilities over framework data trees, and value namespaces.
 */
#ifndef YMAP_NI_STATIC_UTIL_H
#define YMAP_NI_STATIC_UTIL_H

#include "ocni_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Gives `node` the value namespace `ns` (a tagged copy) unless it has it
 * already. An earlier, different namespace string is not released.
 */
OCNI_EXPORT void oc_ni_set_data_namespace(zidl_yfw_datatree *node, const char *ns);

#define OCNI_MAX_KEYS 10

OCNI_EXPORT cerrno ni_static_yfw_map_find_child(zidl_yfw_datatree *node, zidl_yfw_datatree **child,
                                                const char *name, const char *ns);
OCNI_EXPORT cerrno ni_static_yfw_map_datatree_get_subtree_multi_keys(
    zidl_yfw_datatree *entry, zidl_yfw_datatree **match, int8_t nkeys, const char **key_names,
    const char **key_values, const char *ns);
OCNI_EXPORT cerrno ni_static_yfw_map_iterate_list_multi_keys(
    yfw_map_ctx *ctx, zidl_yfw_datatree **parent, int8_t nkeys, const char **key_names,
    const char **key_values, const char *list_path, const char *ns);
OCNI_EXPORT cerrno ni_static_yfw_map_search_list_multi_keys(
    yfw_map_ctx *ctx, zidl_yfw_datatree *root, zidl_yfw_datatree **result, const char *list_path,
    int8_t nkeys, const char **key_values, const char **key_names, const char *ns);
OCNI_EXPORT cerrno ni_static_yfw_map_search_subtree_list_multi_keys(
    yfw_map_ctx *ctx, zidl_yfw_datatree *root, zidl_yfw_datatree **result, const char *list_path,
    int8_t nkeys, const char **key_values, const char **key_names, const char *ns);
OCNI_EXPORT cerrno ni_static_yfw_map_search_or_add_subtree_list_multi_keys(
    yfw_map_ctx *ctx, zidl_yfw_datatree *root, zidl_yfw_datatree **result, const char *parent_path,
    const char *list_path, int8_t nkeys, const char **key_values, const char **key_names,
    const char *ns);
OCNI_EXPORT cerrno ni_static_yfw_map_search_or_add_subtree_list(
    yfw_map_ctx *ctx, zidl_yfw_datatree *root, zidl_yfw_datatree **result, const char *parent_path,
    const char *list_path, const char *key_value, const char *key_name, const char *ns);
OCNI_EXPORT cerrno ni_static_yfw_map_search_subtree_list(
    yfw_map_ctx *ctx, zidl_yfw_datatree *root, zidl_yfw_datatree **result, const char *list_path,
    const char *key_value, const char *key_name, const char *ns);
OCNI_EXPORT zidl_yfw_datatree *ni_static_yfw_map_get_ancestor_node_datatree(yfw_map_ctx *ctx,
                                                                            uint32_t level);
OCNI_EXPORT cerrno ni_static_yfw_map_datatree_get_key_data(zidl_yfw_datatree *entry,
                                                           const char *key_name, char **value);
OCNI_EXPORT cerrno ni_static_yfw_map_get_ancestor_node_info(yfw_map_ctx *ctx, uint32_t level,
                                                            const char *list_path, void *fw_arg,
                                                            const char *key_name, char **value);
OCNI_EXPORT zidl_yfw_datatree *ni_static_yfw_map_get_ctx_current_list_ptr(yfw_map_ctx *ctx);
OCNI_EXPORT void ni_static_yfw_map_update_ctx_current_list_ptr(yfw_map_ctx *ctx,
                                                               zidl_yfw_datatree *entry);
OCNI_EXPORT cerrno ni_static_yfw_map_set_trim_path_list_ctx(yfw_map_ctx *ctx, const char *path,
                                                            void *fw_arg);

/*
 * The text of `value` as a key of an instance path step ("[name=TEXT]"):
 * the value itself, or, when it holds a "]" or starts with a quote, the
 * value in single quotes (double quotes when it holds a single quote).
 * Cut to `len`; returns `buf`. Not exported.
 */
const char *ocni_path_key(const char *value, char *buf, size_t len);

/* Key texts hold a value of up to 300 bytes and its quotes. */
#define OCNI_KEY_TEXT_LEN 304

#ifdef __cplusplus
}
#endif

#endif
