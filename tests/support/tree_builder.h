/*
 * Input trees for tests, from lines of "path = value (op)" (the dump
 * format of host/tree.h, so an output dump can be fed back as an input;
 * "(delete)" and the like set the edit operation of the line's last node,
 * blank lines and "#" comments are skipped). Bracketed keys create
 * key leaves (flag 0x01); a key leaf named by the list registry and given
 * as a path of its own is flagged too. A keyless token naming a known
 * list makes (or reuses) an entry without keys.
 */
#ifndef OCNI_TEST_TREE_BUILDER_H
#define OCNI_TEST_TREE_BUILDER_H

#include <memory>
#include <string>

#include "host/tree.h"

namespace ocni::test {

/* Owning pointer for host trees. */
struct TreeDeleter {
    void operator()(zidl_yfw_datatree *t) const { ocni::host::tree_free(t); }
};
using TreePtr = std::unique_ptr<zidl_yfw_datatree, TreeDeleter>;

/* A tree from a literal of "path = value (op)" lines. */
TreePtr build_tree(const std::string &text, const char *ns = nullptr);

} // namespace ocni::test

#endif
