/*
 * Bounded string operations of the framework. They never write past
 * `destsz` bytes and always terminate the destination; a source that does
 * not fit is cut. They return 0, or non-zero when the text was cut or an
 * argument was NULL. `caller` names the calling function for diagnostics.
 */
#ifndef YFW_STR_H
#define YFW_STR_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Duplicate `s` as a tagged allocation (free with wos_named_free). */
char *yfw_strdup(const char *s, const char *tag);

/* Copy at most `count` characters of `src`. */
int yfw_strncpy_s(const char *caller, char *dest, size_t destsz, const char *src, size_t count);
/* Copy all of `src`. */
int yfw_strcpy_s(const char *caller, char *dest, size_t destsz, const char *src);
/* Append `src` to the text in `dest`. */
int yfw_strcat_s(const char *caller, char *dest, size_t destsz, const char *src);

#ifdef __cplusplus
}
#endif

#endif /* YFW_STR_H */
