/*
 * Framework data trees.
 *
 * A tree is a root node plus nodes whose children lie in one contiguous
 * array per parent (zidl_yfw_datatree.children), as plug-ins read them.
 *
 * Address stability: the address of a node is only stable until a sibling
 * is added to the same parent, because the child array may move. Hold a
 * NodeRef (below) across additions, never a raw node pointer. Every node
 * carries a framework-private record in `fw` with its parent link, its
 * position and its current address; host code only ever holds records.
 *
 * Keyed list entries are found through a per-parent index (list name plus
 * key values), so lookups stay constant-time with hundreds of thousands of
 * entries under one parent.
 */
#ifndef OCNI_HOST_TREE_H
#define OCNI_HOST_TREE_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "yfw_types.h"

namespace ocni::host {

/* Stable handle of a node: valid across sibling additions, dead once its tree is freed. */
struct NodeRef {
    void *rec = nullptr;
    uint64_t tree = 0;
    explicit operator bool() const { return rec != nullptr; }
    bool operator==(const NodeRef &o) const { return rec == o.rec && tree == o.tree; }
};

/* New empty tree; returns its root node (name "/"). NULL when memory is refused. */
zidl_yfw_datatree *tree_new();
/* Frees a whole tree given its root. NULL is ignored. */
void tree_free(zidl_yfw_datatree *root);

/* Handle of a node of a host tree (empty for a foreign or NULL node). */
NodeRef node_ref(const zidl_yfw_datatree *node);
/* Current address of the node, or NULL when its tree is gone. */
zidl_yfw_datatree *node_get(NodeRef ref);
/* Parent of a node, NULL for a root or a foreign node. */
zidl_yfw_datatree *node_parent(const zidl_yfw_datatree *node);

/* Kinds of child a host adds. */
enum class NodeKind : uint8_t { Container, Entry, Leaf };

/*
 * Appends a child. Entries get flag 0x01; a value sets 0x02. The returned
 * address is valid until the next sibling addition under `parent`.
 */
zidl_yfw_datatree *node_add_child(zidl_yfw_datatree *parent, const char *name, NodeKind kind,
                                  const char *value = nullptr, const char *ns = nullptr);
/*
 * Adds a keyed list entry with its key leaves (flags 0x01|0x02), or
 * returns the existing entry with those keys (`*existed` set).
 */
zidl_yfw_datatree *node_add_entry(zidl_yfw_datatree *parent, const char *name,
                                  const std::vector<std::pair<std::string, std::string>> &keys,
                                  const char *ns = nullptr, bool *existed = nullptr);
/* Sets (or clears, with NULL) a node's value; re-indexes an entry whose key leaf changes. */
bool node_set_value(zidl_yfw_datatree *node, const char *value);
bool node_set_ns(zidl_yfw_datatree *node, const char *ns);
/* Sets the value namespace and flags2 0x10. */
bool node_set_data_ns(zidl_yfw_datatree *node, const char *data_ns);
/* Sets the edit operation and the operation-present bit 0x10. */
void node_set_op(zidl_yfw_datatree *node, uint32_t op);
/* Marks a leaf as a key leaf (0x01) and re-indexes its entry. */
void node_mark_key(zidl_yfw_datatree *leaf);

/* Child named `name`: a container or leaf, else the oldest list entry of that name. */
zidl_yfw_datatree *node_child(const zidl_yfw_datatree *parent, const char *name);
/* The entry of list `name` under `parent` with exactly these key values. */
zidl_yfw_datatree *node_find_entry(const zidl_yfw_datatree *parent, const char *name,
                                   const std::vector<std::pair<std::string, std::string>> &keys);

/* Instance path ("/a/b[k=v]/c") and schema path ("/a/b/c") of a node, root excluded. */
std::string node_instance_path(const zidl_yfw_datatree *node);
std::string node_schema_path(const zidl_yfw_datatree *node);

/*
 * Finds a node by instance path relative to `root` ("/a/b[k=v]/c", keys in
 * brackets, empty tokens skipped). NULL when absent or malformed.
 */
zidl_yfw_datatree *tree_find(const zidl_yfw_datatree *root, const char *path);

/* Text of an edit operation ("delete"). */
const char *op_name(uint32_t op);

struct DumpOptions {
    bool key_leaves = false; /* also list key leaves (they always show in brackets) */
    bool ns = false;         /* append " {ns}" and " {data_ns}" */
};

/*
 * The tree as sorted lines "path = value (op)": one line per node with a
 * value or an operation, and per node with nothing shown below it (an
 * empty container, an entry holding only its keys). List entries show
 * their keys in brackets, in key-leaf order; key leaves get no line of
 * their own unless asked for or carrying an operation.
 */
std::vector<std::string> tree_lines(const zidl_yfw_datatree *root, const DumpOptions &opt = {});
/* Number of nodes below and including `root`. */
size_t tree_size(const zidl_yfw_datatree *root);
/* Nodes of all live trees, and the most there were since the last reset (for tests). */
size_t tree_nodes_live();
size_t tree_nodes_peak();
void tree_nodes_peak_reset();

/*
 * Sibling visits made by lookups and array moves since the process began:
 * proof for tests that additions and lookups stay linear overall.
 */
uint64_t tree_sibling_visits();

/* One step of an instance path: a name and its bracketed keys. */
struct PathStep {
    std::string name;
    std::vector<std::pair<std::string, std::string>> keys;
};
/*
 * Splits an instance path into steps. "/" inside brackets does not split;
 * key values may be quoted with ' or ". Empty tokens are skipped. Returns
 * false with `err` set on a malformed path.
 */
bool parse_instance_path(const char *path, std::vector<PathStep> &steps, std::string *err = nullptr);

} // namespace ocni::host

#endif
