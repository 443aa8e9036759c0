/*
 * Framework operations on data trees and request state that mapping
 * callbacks may use. Implemented by the hosting framework.
 */
#ifndef YFW_MAP_H
#define YFW_MAP_H

#include "yfw_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Records the node currently being mapped as the request's error location. */
void yfw_oc_error_path(yfw_map_ctx *ctx);

/*
 * Adds (YFW_XPATH_OP_ADD) or finds (YFW_XPATH_OP_FIND) `op->path` below
 * `op->root`. Paths are instance paths with keys in brackets
 * ("/a/b[k=v][k2=v2]/c"); an add creates the key leaves of every list entry
 * it creates. Sets `op->result`. Returns 0, YFW_RC_NODE_EXISTS (add of an
 * existing node; `result` holds it) or another failure (`result` NULL).
 */
cerrno yfw_map_tree_xpath_operations(yfw_map_ctx *ctx, yfw_map_xpath_op *op);

/*
 * Makes the list entry at `op->path` (below `op->root`) the current entry
 * of the list named by `op->schema_path`, creating it when missing, so that
 * later path additions of that list land in it.
 */
cerrno yfw_map_stitch_list_to_list(yfw_map_ctx *ctx, yfw_map_xpath_op *op);

/*
 * Creates every missing node of the absolute schema path `path` in the
 * tree `out` and sets value and namespace on the last one. `src`, when
 * given, lends its edit operation to the created node. `flag` 1 makes the
 * last token a new list entry or container; `add_flag` is 0 or 32 (paths
 * built under a trim-path context). `created` receives the last node.
 */
cerrno yfw_map_datatree_add_path_flagged(yfw_map_ctx *ctx, zidl_yfw_datatree *out,
                                         const char *path, const char *ns,
                                         const char *value,
                                         const zidl_yfw_datatree *src,
                                         zidl_yfw_datatree **created,
                                         uint32_t flag, uint32_t add_flag);

/* Non-zero when the node's edit operation is delete. */
int yfw_map_is_request_delete(const zidl_yfw_datatree *node);

/*
 * Sets `*value` to the key `key` of the entry of the ancestor list
 * `list_path` in the current request (NULL when absent). The text belongs
 * to the request tree.
 */
cerrno yfw_map_get_node_info(yfw_map_ctx *ctx, const char *list_path,
                             const char *key, char **value);

/* Non-zero when two names or schema paths name the same node. */
int yfw_map_do_these_match(const char *a, const char *b);

/*
 * Finds, at or below `node`, the list entry that `path` ("<list path>/<key
 * name>") describes; `arg` is the framework's list argument, passed through.
 */
cerrno yfw_map_get_list(yfw_map_ctx *ctx, zidl_yfw_datatree *node, const char *path,
                        void *arg, zidl_yfw_datatree **entry);

/* Sets `*token` to the last "/"-separated token of `path` (pointing into it). */
cerrno yfw_map_get_last_token_from_path(char *path, char **token);

/* Trim-path list context: copy a path into the request, and release it. */
cerrno yfw_map_copy_trim_path_list_ctx(yfw_map_ctx *ctx, const char *path);
void yfw_map_free_trim_path_list_ctx(yfw_map_ctx *ctx);

/* Name of the network instance (VRF) of the current request, or NULL. */
const char *ymap_oc_ni_get_vrf_name(yfw_map_ctx *ctx);

#ifdef __cplusplus
}
#endif

#endif /* YFW_MAP_H */
