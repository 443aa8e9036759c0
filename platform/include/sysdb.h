/*
 * Client of the router's configuration database.
 *
 * A connection is bound to a subtree ("/cfg/gl/static/router/"); lookup
 * paths are relative to it and "/"-separated. A component of a lookup path
 * may be a POSIX extended regular expression matched against the whole
 * component (".*,.*"). Listings come back sorted by path, each item with
 * its full path (bind root included) and its packed tuple.
 */
#ifndef SYSDB_H
#define SYSDB_H

#include <stdint.h>
#include "yfw_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct sysdb_conn *sysdb_connid_t;
typedef struct sysdb_datalist sysdb_datalist_t;

#define SYSDB_BIND_MODE_RW 4u
#define SYSDB_FIND_LIST    4u  /* sysdb_find_data: return every match as a list */

/* Binds `*conn` to the subtree `root`; 0 on success. */
cerrno _sysdb_bind(sysdb_connid_t *conn, const char *root, uint32_t mode);

/*
 * Lists the entries directly below `path` whose names match `pattern`
 * ("" matches all). Sets `*count` and `*list`; SYSDB_RC_NOT_FOUND when the
 * path is not in the store.
 */
cerrno sysdb_datalist(sysdb_connid_t conn, const char *path, const char *pattern,
                      uint32_t *count, sysdb_datalist_t **list, uint32_t flags);

/*
 * Finds the items whose path matches `path` (components may be patterns;
 * a path ending in "/" names the children of the matched node) and, with
 * SYSDB_FIND_LIST, returns them as a list. `item` narrows the match to a
 * final component equal to it when not empty. SYSDB_RC_NOT_FOUND when the
 * path matches no node at all; a matched node with no items gives count 0.
 */
cerrno sysdb_find_data(sysdb_connid_t conn, const char *path, const char *item,
                       uint32_t flags, uint32_t *count, sysdb_datalist_t **list);

/*
 * Next item of a list: full path and packed tuple, valid until the list is
 * freed. SYSDB_RC_NOT_FOUND after the last item.
 */
cerrno sysdb_datalist_next(sysdb_datalist_t *list, const char **path,
                           const void **tuple, uint32_t *tuple_len);

void sysdb_datalist_free(sysdb_datalist_t *list);

/*
 * Packed tuples. Formats are sequences of "%d" (int) and "%s" (text).
 * tuple_unpack takes an `int *` for "%d" and a pair (`char *`, `size_t`
 * size) for "%s", copying at most size-1 bytes and terminating; fields past
 * the end of the tuple are left untouched.
 * tuple_pack takes `int` and `const char *` and returns a malloc'd buffer.
 */
cerrno tuple_unpack(const void *tuple, uint32_t len, const char *fmt, ...);
cerrno tuple_pack(void **tuple, uint32_t *len, const char *fmt, ...);

#ifdef __cplusplus
}
#endif

#endif /* SYSDB_H */
