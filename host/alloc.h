/*
 * Tagged allocation bookkeeping: live blocks per tag, so tests can prove
 * that nothing leaks, and refusals on demand, so tests can exercise the
 * out-of-memory paths.
 */
#ifndef OCNI_HOST_ALLOC_H
#define OCNI_HOST_ALLOC_H

#include <cstddef>
#include <string>

namespace ocni::host {

/* Live blocks allocated with `tag` (wos_named_calloc_, yfw_strdup). */
size_t alloc_live(const std::string &tag);
/* Tag of a live block, "" when the block is not a tagged one. */
std::string alloc_tag_of(const void *p);
/*
 * Refuse the `nth` next tagged allocation (1 = the very next one) whose
 * tag is `tag` ("" = any tag). 0 switches refusal off.
 */
void alloc_fail_nth(const std::string &tag, unsigned nth);
/* Whether the host's own allocation under `tag` is refused by the above (trees: "host tree"). */
bool alloc_refused(const char *tag);

} // namespace ocni::host

#endif
