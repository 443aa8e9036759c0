/* Configuration store client (filled in below the engine interface). */
#include <cstdarg>
#include "sysdb.h"

extern "C" {
cerrno _sysdb_bind(sysdb_connid_t *, const char *, uint32_t) { return SYSDB_RC_FAILED; }
cerrno sysdb_datalist(sysdb_connid_t, const char *, const char *, uint32_t *, sysdb_datalist_t **, uint32_t) { return SYSDB_RC_FAILED; }
cerrno sysdb_find_data(sysdb_connid_t, const char *, const char *, uint32_t, uint32_t *, sysdb_datalist_t **) { return SYSDB_RC_FAILED; }
cerrno sysdb_datalist_next(sysdb_datalist_t *, const char **, const void **, uint32_t *) { return SYSDB_RC_NOT_FOUND; }
void sysdb_datalist_free(sysdb_datalist_t *) {}
cerrno tuple_unpack(const void *, uint32_t, const char *, ...) { return SYSDB_RC_FAILED; }
cerrno tuple_pack(void **, uint32_t *, const char *, ...) { return SYSDB_RC_FAILED; }
}
