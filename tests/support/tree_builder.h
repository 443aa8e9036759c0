/*
 * Input trees for tests.
 *
 *   TreeBuilder b(NS_OC);                      // namespace of every node
 *   b.add("/network-instances/network-instance[name=red]/config/name", "red");
 *   b.lines(R"(
 *     /network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/next-hop = 10.0.0.1
 *     /network-instances/network-instance[name=red]/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=10.0.0.0/24] (delete)
 *   )");
 *   zidl_yfw_datatree *nh = b.node(".../next-hop[index=1]");
 *
 * The literal uses the dump format of host_fixture.h ("path = value (op)"),
 * so an output dump can be fed back as an input. Bracketed keys create
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

class TreeBuilder {
public:
    explicit TreeBuilder(const char *ns = nullptr);
    ~TreeBuilder();
    TreeBuilder(const TreeBuilder &) = delete;
    TreeBuilder &operator=(const TreeBuilder &) = delete;

    /* Adds one path; `op` >= 0 sets that edit operation (and 0x10) on the last node. */
    TreeBuilder &add(const std::string &path, const char *value = nullptr, int op = -1,
                     const char *ns = nullptr);
    /* Adds every "path = value (op)" line; blank lines and "#" comments are skipped. */
    TreeBuilder &lines(const std::string &text);

    zidl_yfw_datatree *root() const { return root_; }
    /* Node at an instance path, or NULL (address valid until the next addition). */
    zidl_yfw_datatree *node(const std::string &path) const;
    /* Hands the tree over; the caller frees it with ocni::host::tree_free. */
    zidl_yfw_datatree *release();

private:
    zidl_yfw_datatree *root_;
    std::string ns_;
};

/* Owning pointer for host trees. */
struct TreeDeleter {
    void operator()(zidl_yfw_datatree *t) const { ocni::host::tree_free(t); }
};
using TreePtr = std::unique_ptr<zidl_yfw_datatree, TreeDeleter>;

/* A tree from a literal of "path = value (op)" lines. */
TreePtr build_tree(const std::string &text, const char *ns = nullptr);

/* Parses "(delete)" style names; -1 when unknown. */
int op_from_name(const std::string &name);

} // namespace ocni::test

#endif
