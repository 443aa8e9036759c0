/*
 * Records behind host tree nodes. Private to the host library.
 */
#ifndef OCNI_HOST_TREE_INTERNAL_H
#define OCNI_HOST_TREE_INTERNAL_H

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/tree.h"

namespace ocni::host::detail {

struct Tree;
struct ChildIndex;

/* Framework-private record of one node, reached through node->fw. Its address never moves. */
struct NodeRec {
    Tree *tree = nullptr;
    NodeRec *parent = nullptr;
    zidl_yfw_datatree *node = nullptr; /* current address */
    uint32_t index = 0;                /* position in the parent's child array */
    uint32_t capacity = 0;             /* slots of this node's own child array */
    NodeKind kind = NodeKind::Container;
    /*
     * Lookup key among siblings: the (interned) name for containers and
     * leaves, name + key values for entries (kept in the tree's arena).
     */
    uint32_t key_len = 0;
    const char *key = nullptr;
    /* Siblings sharing this key, oldest first; the head's `prev_same` is the tail. */
    NodeRec *next_same = nullptr;
    NodeRec *prev_same = nullptr;
    /* Built once a node has many children. */
    std::unique_ptr<ChildIndex> child_index;
    /*
     * What the host put behind name, value, ns and data_ns (interned names
     * and namespaces, arena copies of values). A plug-in may replace the
     * pointers; replacements are its own tagged allocations.
     */
    char *own[4] = {nullptr, nullptr, nullptr, nullptr};

    std::string_view key_view() const { return std::string_view(key, key_len); }
};

/* Sibling index of one parent. */
struct ChildIndex {
    /* key -> oldest child with that key (head of its `next_same` chain). */
    std::unordered_map<std::string_view, NodeRec *> by_key;
    /* (interned) list name -> oldest entry of that list, whatever its keys. */
    std::vector<std::pair<const char *, NodeRec *>> first_entry;
};

/*
 * Bump allocator for the strings and child arrays of one tree: freed with
 * the tree, so that building and freeing hundreds of thousands of nodes
 * costs a few large allocations instead of one per string or array.
 * Outgrown child arrays go to the tree's spare lists and serve the next
 * parent that needs an array of their size.
 */
class Arena {
public:
    Arena() = default;
    Arena(const Arena &) = delete;
    Arena &operator=(const Arena &) = delete;
    ~Arena();
    /* Copy of `s` (n bytes, NUL added); NULL when memory is refused. */
    char *copy(const char *s, size_t n);
    /* `n` zeroed bytes aligned for any node record; NULL when memory is refused. */
    void *zalloc(size_t n);

private:
    void *raw(size_t n, size_t align);

    struct Chunk {
        Chunk *next;
        size_t size;
        size_t used;
    };
    Chunk *head_ = nullptr;
    size_t next_size_ = 1024;
};

struct Tree {
    uint64_t serial = 0;
    zidl_yfw_datatree *root = nullptr;
    Arena arena;
    /* Node records, in blocks that never move. */
    std::vector<std::unique_ptr<NodeRec[]>> blocks;
    size_t block_used = 0;
    size_t block_size = 0;
    size_t recs = 0; /* records handed out, for the process-wide count */
    /* Outgrown child arrays, by capacity (a power of two): reused before the arena grows. */
    zidl_yfw_datatree *spare_arrays[32] = {};

    NodeRec *new_rec();
};

/* The process-wide copy of a name or namespace: equal texts, equal pointers. Never freed. */
const char *intern(std::string_view s);

/* Record of a host node; NULL for NULL, foreign or stale pointers. */
NodeRec *rec_of(const zidl_yfw_datatree *node);
/* Record behind a handle, NULL once the tree is gone. */
NodeRec *rec_of(NodeRef ref);
NodeRef ref_of(NodeRec *rec);
bool tree_alive(uint64_t serial);

/* A key of a path step: name and value. */
using KeyView = std::pair<std::string_view, std::string_view>;

/* One step of an instance path, as views into it; its keys are keys[first_key, first_key + n_keys). */
struct StepView {
    std::string_view name;
    size_t first_key = 0;
    size_t n_keys = 0;
};

/*
 * Splits an instance path into steps without copying it (the rules of
 * parse_instance_path). Returns false with `*err` set when malformed.
 */
bool parse_path_views(std::string_view path, std::vector<StepView> &steps, std::vector<KeyView> &keys,
                      const char **err = nullptr);

/* Sibling-lookup keys. */
std::string entry_key(std::string_view name, const std::vector<std::pair<std::string, std::string>> &keys);
std::string entry_key(std::string_view name, const KeyView *keys, size_t n);
std::string entry_key_of(const NodeRec *entry);

/* Appends a child; NULL when memory is refused. */
NodeRec *add_child(NodeRec *parent, const char *name, NodeKind kind, const char *value,
                   const char *ns);
NodeRec *add_child(NodeRec *parent, std::string_view name, NodeKind kind, const char *value,
                   const char *ns);
/* The same; an entry gets `key` (its lookup key once its key leaves are added) from the start. */
NodeRec *add_child(NodeRec *parent, std::string_view name, NodeKind kind, const char *value,
                   const char *ns, const std::string *key);
NodeRec *find_child(const NodeRec *parent, std::string_view key);
/* Oldest list entry named `name` under `parent`, whatever its keys. */
NodeRec *find_first_entry(const NodeRec *parent, std::string_view name);
/* A container or leaf named `name`, else the oldest entry of that name. */
NodeRec *find_named(const NodeRec *parent, std::string_view name);
/* Recomputes an entry's key after its key leaves changed. */
void rekey(NodeRec *entry);
/* Changes whenever some entry's key changed, in any tree. */
uint64_t rekey_epoch();
bool set_value(NodeRec *rec, const char *value);
bool set_ns(NodeRec *rec, const char *ns);
bool set_data_ns(NodeRec *rec, const char *data_ns);
void mark_key(NodeRec *leaf);

std::string schema_path(const NodeRec *rec);
/* Whether the schema path of `rec` is `path`, without building it. */
bool schema_path_is(const NodeRec *rec, std::string_view path);
std::string instance_path(const NodeRec *rec);

} // namespace ocni::host::detail

#endif
