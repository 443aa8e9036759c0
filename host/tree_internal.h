/*
 * Records behind host tree nodes. Private to the host library.
 */
#ifndef OCNI_HOST_TREE_INTERNAL_H
#define OCNI_HOST_TREE_INTERNAL_H

#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/tree.h"

namespace ocni::host::detail {

struct Tree;

/* Framework-private record of one node, reached through node->fw. Its address never moves. */
struct NodeRec {
    Tree *tree = nullptr;
    NodeRec *parent = nullptr;
    zidl_yfw_datatree *node = nullptr; /* current address */
    uint32_t index = 0;                /* position in the parent's child array */
    uint32_t capacity = 0;             /* slots of this node's own child array */
    NodeKind kind = NodeKind::Container;
    std::string key; /* lookup key among siblings: name, or name + key values for entries */
    /* Built once a node has many children: key -> children with that key, oldest first. */
    std::unique_ptr<std::unordered_map<std::string, std::vector<NodeRec *>>> child_index;
    /* Host allocations behind name, value, ns and data_ns (a plug-in may replace the pointers). */
    char *own[4] = {nullptr, nullptr, nullptr, nullptr};
};

struct Tree {
    uint64_t serial = 0;
    zidl_yfw_datatree *root = nullptr;
    std::deque<NodeRec> recs;
};

/* Record of a host node; NULL for NULL, foreign or stale pointers. */
NodeRec *rec_of(const zidl_yfw_datatree *node);
/* Record behind a handle, NULL once the tree is gone. */
NodeRec *rec_of(NodeRef ref);
NodeRef ref_of(NodeRec *rec);
bool tree_alive(uint64_t serial);

/* Sibling-lookup keys. */
std::string entry_key(const std::string &name,
                      std::vector<std::pair<std::string, std::string>> keys);
std::string entry_key_of(const NodeRec *entry);

/* Appends a child; NULL when memory is refused. */
NodeRec *add_child(NodeRec *parent, const char *name, NodeKind kind, const char *value,
                   const char *ns);
/* Children of `parent` whose lookup key is `key`, oldest first. */
void find_children(const NodeRec *parent, const std::string &key, std::vector<NodeRec *> &out);
NodeRec *find_child(const NodeRec *parent, const std::string &key);
/* Oldest list entry named `name` under `parent`, whatever its keys. */
NodeRec *find_first_entry(const NodeRec *parent, const std::string &name);
/* A container or leaf named `name`, else the oldest entry of that name. */
NodeRec *find_named(const NodeRec *parent, const std::string &name);
/* Recomputes an entry's key after its key leaves changed. */
void rekey(NodeRec *entry);
bool set_value(NodeRec *rec, const char *value);
bool set_ns(NodeRec *rec, const char *ns);
bool set_data_ns(NodeRec *rec, const char *data_ns);
void mark_key(NodeRec *leaf);

std::string schema_path(const NodeRec *rec);
std::string instance_path(const NodeRec *rec);

} // namespace ocni::host::detail

#endif
