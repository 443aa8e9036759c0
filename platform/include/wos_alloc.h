/*
 * Tagged allocation of the OS abstraction layer. Every block carries a tag
 * naming its owner so that live blocks can be counted per tag.
 */
#ifndef WOS_ALLOC_H
#define WOS_ALLOC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Zeroed block of `size` * `count` bytes, tagged; NULL when refused. */
void *wos_named_calloc_(size_t size, size_t count, const char *tag);
/* Frees a block from wos_named_calloc_, yfw_strdup or the C allocator. NULL is ignored. */
void wos_named_free(void *p);

#ifdef __cplusplus
}
#endif

#endif /* WOS_ALLOC_H */
