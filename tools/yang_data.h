/*
 * Data documents through libyang: parse an edit fragment, print a tree as
 * RFC 7951 JSON, refuse non-canonical prefixes, and convert between
 * libyang trees and the framework's zidl_yfw_datatree.
 */
#ifndef OCNI_YANG_DATA_H
#define OCNI_YANG_DATA_H

#include <memory>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "yang_context.h"
#include "yfw_types.h"

struct lyd_node;
struct lysc_node;

namespace ocni::yang {

struct TreeFree {
    void operator()(lyd_node *n) const;
};
/* A whole libyang data tree (all top-level siblings), freed together. */
using Tree = std::unique_ptr<lyd_node, TreeFree>;

enum class Format { kAuto, kJson, kXml };

/* Which model a document must belong to. */
enum class Model { kOpenConfig, kNative };

/*
 * Parses a configuration fragment: unknown nodes, state nodes, wrong
 * types, unknown identities and malformed text are refused with the line
 * or path; references to nodes the fragment does not carry (list keys
 * repeated under config/, when conditions on parents) are not checked.
 * Every top-level node must belong to `model`. kAuto picks XML when the
 * first non-blank character is '<'. An empty document gives an empty tree.
 */
Error parse_fragment(const Context &ctx, const std::string &text, Format fmt, Model model, Tree &out,
                     size_t line_offset = 0);

/* Prints every top-level sibling as RFC 7951 JSON; "{}\n" for an empty tree. */
Error print_json(const Tree &tree, std::string &out);
/* The same, written to `out` as it is printed (no copy of the document in memory). */
Error print_json(const Tree &tree, FILE *out);

/*
 * The canonical text of an IP prefix: host bits cleared, IPv6 in lower
 * case and compressed. False when `prefix` is not address/length.
 */
bool canonical_prefix(const std::string &prefix, std::string &canonical);

/* The canonical text of an IPv4 or IPv6 address; false when `address` is none. */
bool canonical_address(const std::string &address, std::string &canonical);

/*
 * Refuses any static-route prefix or next-hop address of an OpenConfig
 * tree that is not in canonical form, naming the canonical form and the
 * path. Identities (DROP, LOCAL_LINK) are not addresses and pass.
 */
Error check_canonical_prefixes(const Tree &tree);

/*
 * Gives every network instance of an OpenConfig tree its config/name when
 * it has none: a network instance that is read back exists, and a read fed
 * back as an edit must recreate it.
 */
Error complete_network_instance_names(Tree &tree);

/*
 * Receives the nodes of a converted tree, parents before children. The
 * host's tree API implements it; add() returns the new node, or null
 * when out of memory. `parent` is stable while its own children are
 * added (siblings of `parent` are only added after its subtree is done).
 */
class DatatreeSink {
public:
    enum class Kind { kContainer, kEntry, kKey, kLeaf };
    virtual ~DatatreeSink() = default;
    virtual zidl_yfw_datatree *add(zidl_yfw_datatree *parent, const char *name, Kind kind, const char *value,
                                   const char *ns, const char *data_ns, uint32_t op) = 0;
};

/* The sink that builds a host tree (host/tree.h). */
class HostTreeSink : public DatatreeSink {
public:
    zidl_yfw_datatree *add(zidl_yfw_datatree *parent, const char *name, Kind kind, const char *value,
                           const char *ns, const char *data_ns, uint32_t op) override;
};

/*
 * The node an instance path names: a data node of the path's tree (list
 * entry or container), or a leaf `leaf` below `parent` that the tree does
 * not carry.
 */
struct PathTarget {
    const lyd_node *node = nullptr;
    const lyd_node *parent = nullptr;
    const lysc_node *leaf = nullptr;
};

/*
 * Parses an instance path such as
 * /network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC][name=DEFAULT]/...
 * into a tree holding the path's entries with their keys. Key values may
 * be bare or quoted; identities may omit their module. Unknown nodes,
 * missing keys and bad key values are input errors naming the step.
 */
Error parse_instance_path(const Context &ctx, const std::string &path, Model model, Tree &out,
                          PathTarget &target);

/*
 * Copies a libyang tree under `root`: names, canonical values, module
 * namespaces, list flags on entries and keys. An identity value becomes
 * its bare name with the identity's module namespace as data_ns. Every
 * node gets `op`; with `deleted`, the target node (or a value-less leaf
 * added for a leaf target) gets YFW_DT_OP_DELETE instead.
 */
Error to_datatree(const Tree &tree, DatatreeSink &sink, zidl_yfw_datatree *root, uint32_t op = YFW_DT_OP_NONE,
                  const PathTarget *deleted = nullptr);
/* The same with several targets, each marked as above: an edit that removes and merges at once. */
Error to_datatree(const Tree &tree, DatatreeSink &sink, zidl_yfw_datatree *root, uint32_t op,
                  const PathTarget *deleted, size_t deleted_count);

/*
 * Builds a libyang tree from the children of `root` (a framework tree
 * whose top-level children are module roots such as "network-instances").
 * Every node and value is checked against the schema; a node the schema
 * does not know is an internal error naming its path. Nodes carrying a
 * delete or remove operation are left out.
 */
/*
 * A large edit converted a part at a time, so that only one part of the
 * framework tree exists at once. Part 0 is the whole tree but for the
 * static routes past the first `statics`; each next part holds the next
 * `statics` static routes under their ancestors (list entries with their
 * keys only). One part when the tree holds no more than `statics` routes.
 */
class PartedTree {
public:
    PartedTree(const Tree &tree, size_t statics, const PathTarget *deleted = nullptr, size_t deleted_count = 0);
    size_t count() const { return parts_; }
    Error part(size_t k, DatatreeSink &sink, zidl_yfw_datatree *root) const;

private:
    const Tree &tree_;
    size_t size_;
    const PathTarget *deleted_;
    size_t deleted_count_;
    std::vector<const lyd_node *> statics_; /* every static route, in document order */
    size_t parts_;
};

Error from_datatree(const Context &ctx, const zidl_yfw_datatree *root, Tree &out);

/*
 * Leaves of a tree other than list keys, as (instance path, value), in
 * document order, appended to `out`; with `under`, only those below an
 * entry of the list of that name.
 */
using LeafList = std::vector<std::pair<std::string, std::string>>;
void leaf_values(const Tree &tree, LeafList &out, const char *under = nullptr);
/*
 * What `after` adds ("+ PATH: VALUE"), changes ("~ PATH: OLD -> NEW") and
 * removes ("- PATH: VALUE") against `before`, a line each: removals first,
 * then additions and changes in the order of `after`.
 */
std::string leaf_diff(const LeafList &before, const LeafList &after);

}  // namespace ocni::yang

#endif
