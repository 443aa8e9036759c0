/*
 * Registration of the mapping plug-in: which exported callback serves
 * which schema node of the three models, and how the walker calls it.
 *
 * All bindings live in one table (registration.cpp). A schema path is the
 * path of the node without keys ("/router-static/vrfs/vrf/..."). A node
 * may carry several bindings: the next-hop index leaf has its callback and
 * a condition callback, an OpenConfig state leaf has an IPv4 and an IPv6
 * forward member.
 */
#ifndef OCNI_HOST_REGISTRATION_H
#define OCNI_HOST_REGISTRATION_H

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace ocni::host {

/* How the walker calls a callback. */
enum class CallbackKind : uint8_t {
    Container, /* (ctx, in, subtrees, out) */
    List,      /* (ctx, in, out), once per list entry */
    Leaf,      /* (ctx, in, out) */
    Condition, /* (ctx, int rows, xpath_list_type_t *): called by the plug-in's own callbacks */
};

/* Which tree a binding belongs to. */
enum class Model : uint8_t {
    OpenConfigEdit,  /* OpenConfig configuration: edits, and requests in read mode */
    OpenConfigState, /* OpenConfig state leaves of a state request (forward members) */
    Native,          /* native configuration read back into OpenConfig */
    Operational,     /* operational answer mapped back into OpenConfig state */
};

/* Address family a binding is restricted to; Any for bindings of both. */
enum class Family : uint8_t { Any, IPv4, IPv6 };

struct Binding {
    Model model;
    std::string schema_path;
    std::string callback;
    CallbackKind kind;
    Family family;
};

/* Every binding, in table order. */
const std::vector<Binding> &registration_table();

/* Callback names of the table without repetition, in table order. */
std::vector<std::string> registration_callback_names();

/*
 * Bindings of one model indexed by schema path, for the walker. Lookups
 * are constant-time; the value lists a node's bindings in table order.
 */
class BindingIndex {
public:
    /*
     * A schema node with at least one binding at or below it. The walker
     * descends these alongside the data tree, so that finding a node's
     * bindings costs a few name comparisons, not a path lookup.
     */
    struct Node {
        std::string name;
        const char *iname = nullptr; /* the name as host trees intern it */
        std::vector<const Binding *> bindings;
        std::vector<std::unique_ptr<Node>> children; /* a handful each */
        /* The child named `name`, NULL when nothing below it is bound. */
        const Node *child(const char *name) const;
    };

    explicit BindingIndex(Model model);
    const std::vector<const Binding *> *find(const std::string &schema_path) const;
    /* The root of the schema ("/"), parent of the top-level nodes. */
    const Node *root() const { return &root_; }

private:
    std::unordered_map<std::string, std::vector<const Binding *>> by_path_;
    Node root_;
};

} // namespace ocni::host

#endif
