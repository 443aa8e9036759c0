#include "yang_data.h"

#include "host/tree.h"

#include <arpa/inet.h>
#include <libyang/libyang.h>

#include <cctype>
#include <cstring>
#include <functional>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ocni::yang {

void TreeFree::operator()(lyd_node *n) const
{
    lyd_free_all(n);
}

namespace {

const char *model_module(Model model)
{
    return model == Model::kNative ? kNativeModule : kNetworkInstanceModule;
}

bool blank(const std::string &text)
{
    for (char c : text)
        if (!isspace(static_cast<unsigned char>(c)))
            return false;
    return true;
}

LYD_FORMAT pick_format(const std::string &text, Format fmt)
{
    if (fmt == Format::kJson)
        return LYD_JSON;
    if (fmt == Format::kXml)
        return LYD_XML;
    for (char c : text) {
        if (isspace(static_cast<unsigned char>(c)))
            continue;
        return c == '<' ? LYD_XML : LYD_JSON;
    }
    return LYD_JSON;
}

std::string node_path(const lyd_node *n)
{
    char *p = lyd_path(n, LYD_PATH_STD, nullptr, 0);
    std::string s = p != nullptr ? p : "?";
    free(p);
    return s;
}

/* The stored value behind unions (and leafrefs, which store their target's type). */
const lyd_value *effective_value(const lyd_node_term *t)
{
    const lyd_value *v = &t->value;
    while (v->realtype != nullptr && v->realtype->basetype == LY_TYPE_UNION && v->subvalue != nullptr)
        v = &v->subvalue->value;
    return v;
}

}  // namespace

Error parse_fragment(const Context &ctx, const std::string &text, Format fmt, Model model, Tree &out,
                     size_t line_offset)
{
    out.reset();
    if (blank(text))
        return Error{};
    lyd_node *tree = nullptr;
    ly_err_clean(ctx.raw(), nullptr);
    LY_ERR rc = lyd_parse_data_mem(ctx.raw(), text.c_str(), pick_format(text, fmt),
                                   LYD_PARSE_ONLY | LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, 0, &tree);
    if (rc != LY_SUCCESS) {
        lyd_free_all(tree);
        return Error::input(ctx.take_errors("the document does not parse", line_offset));
    }
    out.reset(tree);
    for (const lyd_node *top = tree; top != nullptr; top = top->next) {
        const char *mod = top->schema != nullptr ? top->schema->module->name : "?";
        if (strcmp(mod, model_module(model)) != 0)
            return Error::input(std::string("unexpected top-level node ") + mod + ":" + LYD_NAME(top) +
                                ", expected " + model_module(model) + " data");
    }
    return Error{};
}

Error print_json(const Tree &tree, std::string &out)
{
    out.clear();
    if (!tree) {
        out = "{}\n";
        return Error{};
    }
    /*
     * Printed through a callback into a string that grows geometrically:
     * libyang's own memory output reallocates to the exact size on every
     * write, which is quadratic where realloc cannot grow in place.
     */
    auto append = [](void *arg, const void *buf, size_t count) -> ssize_t {
        static_cast<std::string *>(arg)->append(static_cast<const char *>(buf), count);
        return static_cast<ssize_t>(count);
    };
    out.reserve(4096);
    if (lyd_print_clb(append, &out, tree.get(), LYD_JSON, LYD_PRINT_WITHSIBLINGS) != LY_SUCCESS) {
        out.clear();
        return Error::internal("cannot print the data tree as JSON");
    }
    return Error{};
}

Error print_json(const Tree &tree, FILE *out)
{
    if (!tree) {
        if (fputs("{}\n", out) < 0)
            return Error::internal("cannot write the JSON document");
        return Error{};
    }
    if (lyd_print_file(out, tree.get(), LYD_JSON, LYD_PRINT_WITHSIBLINGS) != LY_SUCCESS)
        return Error::internal("cannot print the data tree as JSON");
    return Error{};
}

bool canonical_prefix(const std::string &prefix, std::string &canonical)
{
    size_t slash = prefix.find('/');
    if (slash == std::string::npos || slash == 0 || slash + 1 >= prefix.size() || slash + 4 < prefix.size())
        return false;
    std::string addr = prefix.substr(0, slash);
    int len = 0;
    for (size_t i = slash + 1; i < prefix.size(); ++i) {
        if (!isdigit(static_cast<unsigned char>(prefix[i])))
            return false;
        len = len * 10 + (prefix[i] - '0');
    }
    int family = addr.find(':') != std::string::npos ? AF_INET6 : AF_INET;
    int bits = family == AF_INET6 ? 128 : 32;
    if (len > bits)
        return false;
    unsigned char bytes[16] = {0};
    if (inet_pton(family, addr.c_str(), bytes) != 1)
        return false;
    bool host_bits = false;
    for (int i = 0; i < bits / 8; ++i) {
        int keep = len - i * 8;
        const unsigned char was = bytes[i];
        if (keep <= 0)
            bytes[i] = 0;
        else if (keep < 8)
            bytes[i] &= static_cast<unsigned char>(0xff << (8 - keep));
        host_bits = host_bits || bytes[i] != was;
    }
    /* An IPv4 address inet_pton takes is in the one dotted-quad form it prints: no need to print it. */
    if (family == AF_INET && !host_bits) {
        canonical = addr + "/" + std::to_string(len);
        return true;
    }
    char text[INET6_ADDRSTRLEN];
    if (inet_ntop(family, bytes, text, sizeof(text)) == nullptr)
        return false;
    canonical = std::string(text) + "/" + std::to_string(len);
    return true;
}

bool canonical_address(const std::string &address, std::string &canonical)
{
    const int family = address.find(':') != std::string::npos ? AF_INET6 : AF_INET;
    unsigned char bytes[16];
    char text[INET6_ADDRSTRLEN];
    if (inet_pton(family, address.c_str(), bytes) != 1)
        return false;
    if (family == AF_INET) { /* the dotted-quad form inet_pton takes is the only one it prints */
        canonical = address;
        return true;
    }
    if (inet_ntop(family, bytes, text, sizeof text) == nullptr)
        return false;
    canonical = text;
    return true;
}

/* Bad input, refused before the mapping runs: the mapping would take another spelling as another route. */
Error check_canonical_prefixes(const Tree &tree)
{
    for (const lyd_node *top = tree.get(); top != nullptr; top = top->next) {
        const lyd_node *elem;
        LYD_TREE_DFS_BEGIN(top, elem) {
            const bool term = elem->schema != nullptr && (elem->schema->nodetype & LYD_NODE_TERM) &&
                              strcmp(elem->schema->module->ns, kNetworkInstanceNs) == 0;
            /* A next-hop address spelt otherwise would become a second native next hop. */
            if (term && strcmp(elem->schema->name, "next-hop") == 0) {
                const char *value = lyd_get_value(elem);
                std::string canonical;
                if (value != nullptr && canonical_address(value, canonical) && canonical != value)
                    return Error::input(std::string("next-hop address \"") + value +
                                        "\" is not in canonical form, write \"" + canonical + "\" (at " +
                                        node_path(elem) + ")");
            }
            if (term && strcmp(elem->schema->name, "prefix") == 0) {
                const char *value = lyd_get_value(elem);
                std::string canonical;
                if (value != nullptr && canonical_prefix(value, canonical) && canonical != value)
                    return Error::input(std::string("prefix \"") + value + "\" is not in canonical form, write \"" +
                                        canonical + "\" (at " + node_path(elem) + ")");
                if (value != nullptr && canonical.empty())
                    return Error::input(std::string("prefix \"") + value + "\" is not a valid prefix (at " +
                                        node_path(elem) + ")");
            }
            LYD_TREE_DFS_END(top, elem);
        }
    }
    return Error{};
}

Error complete_network_instance_names(Tree &tree)
{
    for (lyd_node *top = tree.get(); top != nullptr; top = top->next) {
        if (top->schema == nullptr || strcmp(top->schema->name, "network-instances") != 0 ||
            strcmp(top->schema->module->ns, kNetworkInstanceNs) != 0)
            continue;
        for (lyd_node *ni = lyd_child(top); ni != nullptr; ni = ni->next) {
            lyd_node *key = lyd_child(ni);
            if (key == nullptr || strcmp(LYD_NAME(key), "name") != 0)
                continue;
            lyd_node *config = nullptr, *name = nullptr;
            for (lyd_node *c = lyd_child(ni); c != nullptr; c = c->next)
                if (strcmp(LYD_NAME(c), "config") == 0)
                    config = c;
            if (config == nullptr && lyd_new_inner(ni, nullptr, "config", 0, &config) != LY_SUCCESS)
                return Error::internal("cannot add config to " + node_path(ni));
            for (lyd_node *c = lyd_child(config); c != nullptr; c = c->next)
                if (strcmp(LYD_NAME(c), "name") == 0)
                    name = c;
            if (name == nullptr && lyd_new_term(config, nullptr, "name", lyd_get_value(key), 0, nullptr) != LY_SUCCESS)
                return Error::internal("cannot add config/name to " + node_path(ni));
        }
    }
    return Error{};
}

/* ------------------------------------------------------------------ */
/* libyang -> framework tree                                           */
/* ------------------------------------------------------------------ */

namespace {

/* The marked nodes of one conversion. */
struct Marks {
    const PathTarget *targets = nullptr;
    size_t count = 0;
};

/* Static routes a conversion leaves out (those of other parts), when set. */
using Skip = std::function<bool(const lyd_node *)>;

bool is_static_entry(const lyd_node *n)
{
    return n->schema != nullptr && n->schema->nodetype == LYS_LIST && strcmp(n->schema->name, "static") == 0;
}

Error copy_node(const lyd_node *node, DatatreeSink &sink, zidl_yfw_datatree *parent, uint32_t op,
                const Marks &deleted, const Skip &skip = nullptr, zidl_yfw_datatree **made = nullptr)
{
    if (skip && is_static_entry(node) && skip(node))
        return Error{};
    const lysc_node *schema = node->schema;
    if (schema == nullptr)
        return Error::internal("opaque node " + node_path(node) + " in a parsed tree");
    DatatreeSink::Kind kind = schema->nodetype == LYS_LIST     ? DatatreeSink::Kind::kEntry
                              : lysc_is_key(schema)              ? DatatreeSink::Kind::kKey
                              : (schema->nodetype & LYD_NODE_TERM) ? DatatreeSink::Kind::kLeaf
                                                                 : DatatreeSink::Kind::kContainer;

    std::string value;
    const char *data_ns = nullptr;
    bool has_value = false;
    if (schema->nodetype & LYD_NODE_TERM) {
        const lyd_value *v = effective_value(reinterpret_cast<const lyd_node_term *>(node));
        if (v->realtype != nullptr && v->realtype->basetype == LY_TYPE_IDENT && v->ident != nullptr) {
            value = v->ident->name;
            data_ns = v->ident->module->ns;
        } else {
            const char *canon = lyd_get_value(node);
            value = canon != nullptr ? canon : "";
        }
        has_value = true;
    }
    uint32_t my_op = op;
    for (size_t i = 0; i < deleted.count; ++i)
        if (deleted.targets[i].node == node)
            my_op = YFW_DT_OP_DELETE;
    zidl_yfw_datatree *self = sink.add(parent, schema->name, kind, has_value ? value.c_str() : nullptr,
                                       schema->module->ns, data_ns, my_op);
    if (self == nullptr)
        return Error::internal("out of memory while copying " + node_path(node));
    if (made != nullptr) {
        /*
         * An ancestor of another part's routes: the entry and its keys; a
         * network instance also its config/name, by which the mapping knows
         * that the edit creates it.
         */
        *made = self;
        const bool instance = strcmp(schema->name, "network-instance") == 0;
        for (const lyd_node *child = schema->nodetype == LYS_LIST ? lyd_child(node) : nullptr; child != nullptr;
             child = child->next) {
            if (child->schema == nullptr)
                continue;
            /* Keys come first; only a network instance is looked at further (a few children). */
            if (!instance && !lysc_is_key(child->schema))
                break;
            if (lysc_is_key(child->schema)) {
                if (Error e = copy_node(child, sink, self, op, Marks{}))
                    return e;
            } else if (strcmp(child->schema->name, "config") == 0) {
                for (const lyd_node *leaf = lyd_child(child); leaf != nullptr; leaf = leaf->next) {
                    if (leaf->schema == nullptr || strcmp(leaf->schema->name, "name") != 0)
                        continue;
                    zidl_yfw_datatree *cfg = sink.add(self, "config", DatatreeSink::Kind::kContainer, nullptr,
                                                      child->schema->module->ns, nullptr, op);
                    if (cfg == nullptr)
                        return Error::internal("out of memory while copying " + node_path(child));
                    if (Error e = copy_node(leaf, sink, cfg, op, Marks{}))
                        return e;
                }
            }
        }
        return Error{};
    }
    for (const lyd_node *child = lyd_child(node); child != nullptr; child = child->next) {
        Error e = copy_node(child, sink, self, op, deleted, skip);
        if (e)
            return e;
    }
    for (size_t i = 0; i < deleted.count; ++i) {
        const PathTarget &t = deleted.targets[i];
        if (t.parent != node || t.leaf == nullptr)
            continue;
        if (sink.add(self, t.leaf->name, DatatreeSink::Kind::kLeaf, nullptr, t.leaf->module->ns, nullptr,
                     YFW_DT_OP_DELETE) == nullptr)
            return Error::internal("out of memory while copying " + node_path(node));
    }
    return Error{};
}

}  // namespace

Error to_datatree(const Tree &tree, DatatreeSink &sink, zidl_yfw_datatree *root, uint32_t op,
                  const PathTarget *deleted)
{
    return to_datatree(tree, sink, root, op, deleted, deleted != nullptr ? 1 : 0);
}

Error to_datatree(const Tree &tree, DatatreeSink &sink, zidl_yfw_datatree *root, uint32_t op,
                  const PathTarget *deleted, size_t deleted_count)
{
    const Marks marks{deleted, deleted_count};
    for (const lyd_node *top = tree.get(); top != nullptr; top = top->next) {
        Error e = copy_node(top, sink, root, op, marks);
        if (e)
            return e;
    }
    return Error{};
}

PartedTree::PartedTree(const Tree &tree, size_t statics, const PathTarget *deleted, size_t deleted_count)
    : tree_(tree), size_(statics == 0 ? 1 : statics), deleted_(deleted), deleted_count_(deleted_count)
{
    for (const lyd_node *top = tree.get(); top != nullptr; top = top->next) {
        const lyd_node *n;
        LYD_TREE_DFS_BEGIN(top, n) {
            if (is_static_entry(n)) {
                statics_.push_back(n);
                LYD_TREE_DFS_continue = 1;
            }
            LYD_TREE_DFS_END(top, n);
        }
    }
    parts_ = statics_.size() <= size_ ? 1 : (statics_.size() + size_ - 1) / size_;
}

Error PartedTree::part(size_t k, DatatreeSink &sink, zidl_yfw_datatree *root) const
{
    const Marks marks{deleted_, deleted_count_};
    if (k == 0) {
        if (parts_ == 1)
            return to_datatree(tree_, sink, root, YFW_DT_OP_NONE, deleted_, deleted_count_);
        std::unordered_map<const lyd_node *, bool> first;
        for (size_t i = 0; i < size_; ++i)
            first[statics_[i]] = true;
        const Skip skip = [&](const lyd_node *n) { return first.count(n) == 0; };
        for (const lyd_node *top = tree_.get(); top != nullptr; top = top->next)
            if (Error e = copy_node(top, sink, root, YFW_DT_OP_NONE, marks, skip))
                return e;
        return Error{};
    }
    std::unordered_map<const lyd_node *, zidl_yfw_datatree *> made;
    for (size_t i = k * size_; i < statics_.size() && i < (k + 1) * size_; ++i) {
        std::vector<const lyd_node *> chain;
        for (const lyd_node *a = lyd_parent(statics_[i]); a != nullptr; a = lyd_parent(a))
            chain.push_back(a);
        zidl_yfw_datatree *at = root;
        for (auto a = chain.rbegin(); a != chain.rend(); ++a) {
            auto m = made.find(*a);
            if (m == made.end()) {
                zidl_yfw_datatree *self = nullptr;
                if (Error e = copy_node(*a, sink, at, YFW_DT_OP_NONE, Marks{}, nullptr, &self))
                    return e;
                m = made.emplace(*a, self).first;
            }
            at = m->second;
        }
        if (Error e = copy_node(statics_[i], sink, at, YFW_DT_OP_NONE, marks))
            return e;
    }
    return Error{};
}

zidl_yfw_datatree *HostTreeSink::add(zidl_yfw_datatree *parent, const char *name, Kind kind, const char *value,
                                     const char *ns, const char *data_ns, uint32_t op)
{
    using host::NodeKind;
    NodeKind hk = kind == Kind::kEntry ? NodeKind::Entry : kind == Kind::kContainer ? NodeKind::Container : NodeKind::Leaf;
    zidl_yfw_datatree *n = host::node_add_child(parent, name, hk, value, ns);
    if (n == nullptr)
        return nullptr;
    if (kind == Kind::kKey)
        host::node_mark_key(n);
    if (data_ns != nullptr && !host::node_set_data_ns(n, data_ns))
        return nullptr;
    if (op != YFW_DT_OP_NONE)
        host::node_set_op(n, op);
    return n;
}

/* ------------------------------------------------------------------ */
/* framework tree -> libyang                                           */
/* ------------------------------------------------------------------ */

namespace {

/* Where a node of the framework tree is, rendered only for messages. */
struct Where {
    const Where *up;
    const char *name;
    std::string text() const { return (up != nullptr ? up->text() : std::string()) + "/" + name; }
};

class Builder {
public:
    explicit Builder(const Context &ctx) : ctx_(ctx) {}

    Error children(const zidl_yfw_datatree *host, const lysc_node *schema, lyd_node *parent, lyd_node **top,
                   const Where *where)
    {
        if (host->children == nullptr)
            return Error{};
        for (uint32_t i = 0; i < host->n_children && host->children[i].name != nullptr; ++i) {
            Error e = node(&host->children[i], schema, parent, top, where);
            if (e)
                return e;
        }
        return Error{};
    }

private:
    const Context &ctx_;
    /* Modules by namespace text: a handful, looked up for every node. */
    std::unordered_map<std::string, const lys_module *> modules_;
    std::vector<std::pair<const char *, const lys_module *>> module_ptrs_;
    /*
     * List entries made so far, by parent and schema node, then key values,
     * so that a framework tree that repeats an entry under one parent gives
     * one libyang entry (libyang's own search by keys would build a
     * throw-away entry per lookup). Containers and leaves are few per
     * parent and found among the parent's children.
     */
    std::unordered_map<std::string, lyd_node *> entries_; /* key: parent, schema node, key values */

    static std::string entry_id(const lyd_node *parent, const lysc_node *schema, const std::string &keys)
    {
        std::string id(reinterpret_cast<const char *>(&parent), sizeof parent);
        id.append(reinterpret_cast<const char *>(&schema), sizeof schema);
        id += keys;
        return id;
    }

    static bool deleted(const zidl_yfw_datatree *n)
    {
        return n->op == YFW_DT_OP_DELETE || n->op == YFW_DT_OP_REMOVE;
    }

    const lys_module *module_of(const char *ns)
    {
        /* Framework trees repeat the same namespace pointers: try those first. */
        for (const auto &seen : module_ptrs_)
            if (seen.first == ns)
                return seen.second;
        const lys_module *m = module_by_text(ns);
        if (module_ptrs_.size() < 16)
            module_ptrs_.emplace_back(ns, m);
        return m;
    }

    const lys_module *module_by_text(const char *ns)
    {
        auto it = modules_.find(ns);
        if (it != modules_.end())
            return it->second;
        const lys_module *m = ly_ctx_get_module_implemented_ns(ctx_.raw(), ns);
        modules_.emplace(ns, m);
        return m;
    }

    static std::string entry_key(const std::string *keys, int nkeys)
    {
        std::string k;
        for (int i = 0; i < nkeys; ++i) {
            k += keys[i];
            k += '\0';
        }
        return k;
    }

    /* The existing container or leaf `schema` under parent (or among the top-level nodes). */
    static lyd_node *existing(lyd_node *parent, lyd_node *top, const lysc_node *schema)
    {
        lyd_node *found = nullptr;
        lyd_node *siblings = parent != nullptr ? lyd_child(parent) : top;
        if (siblings != nullptr && lyd_find_sibling_val(siblings, schema, nullptr, 0, &found) == LY_SUCCESS)
            return found;
        return nullptr;
    }

    /* A value as lyd_new_* expects it: identities carry their module's name. */
    Error json_value(const zidl_yfw_datatree *n, const Where *where, std::string &out)
    {
        out = n->value != nullptr ? n->value : "";
        if (n->data_ns != nullptr && n->data_ns[0] != '\0' && out.find(':') == std::string::npos) {
            const lys_module *m = module_of(n->data_ns);
            if (m == nullptr)
                return Error::internal("unknown value namespace " + std::string(n->data_ns) + " at " + where->text());
            out = std::string(m->name) + ":" + out;
        }
        return Error{};
    }

    static const zidl_yfw_datatree *find_child(const zidl_yfw_datatree *host, const char *name)
    {
        if (host->children == nullptr)
            return nullptr;
        for (uint32_t i = 0; i < host->n_children && host->children[i].name != nullptr; ++i)
            if (strcmp(host->children[i].name, name) == 0 && !deleted(&host->children[i]))
                return &host->children[i];
        return nullptr;
    }

    Error fail(const std::string &what, const Where *where)
    {
        return Error::internal(what + " at " + where->text() + ": " + ctx_.take_errors("rejected by the schema"));
    }

    /* Adds a new top-level node to the top-level siblings. */
    Error link(lyd_node **top, lyd_node *n, const Where *where)
    {
        if (*top == nullptr) {
            *top = n;
            return Error{};
        }
        if (lyd_insert_sibling(*top, n, top) != LY_SUCCESS) {
            lyd_free_tree(n);
            return fail("cannot insert node", where);
        }
        return Error{};
    }

    Error node(const zidl_yfw_datatree *h, const lysc_node *parent_schema, lyd_node *parent, lyd_node **top,
               const Where *parent_where)
    {
        if (deleted(h))
            return Error{};
        Where here{parent_where, h->name};
        const Where *where = &here;
        const lys_module *mod = nullptr;
        if (h->ns != nullptr && h->ns[0] != '\0')
            mod = module_of(h->ns);
        else if (parent_schema != nullptr)
            mod = parent_schema->module;
        if (mod == nullptr)
            return Error::internal("node without a known module namespace at " + where->text());
        const lysc_node *schema = lys_find_child(parent_schema, mod, h->name, 0, 0, 0);
        if (schema == nullptr)
            return Error::internal("node unknown to the schema at " + where->text());

        if (schema->nodetype & LYD_NODE_TERM) {
            if (lysc_is_key(schema) || h->value == nullptr)
                return Error{}; /* keys come with their entry; a leaf without value carries nothing */
            std::string value;
            Error e = json_value(h, where, value);
            if (e)
                return e;
            if (lyd_node *old = existing(parent, *top, schema)) {
                /* The same leaf written twice: the value written last stands. */
                LY_ERR rc = lyd_change_term(old, value.c_str());
                if (rc != LY_SUCCESS && rc != LY_EEXIST && rc != LY_ENOT)
                    return fail("invalid value \"" + value + "\"", where);
                return Error{};
            }
            lyd_node *n = nullptr;
            if (lyd_new_term(parent, mod, h->name, value.c_str(), 0, &n) != LY_SUCCESS)
                return fail("invalid value \"" + value + "\"", where);
            return parent != nullptr ? Error{} : link(top, n, where);
        }

        std::string keys[2];
        int nkeys = 0;
        if (schema->nodetype == LYS_LIST) {
            for (const lysc_node *k = lysc_node_child(schema); k != nullptr && lysc_is_key(k); k = k->next) {
                if (nkeys == 2)
                    return Error::internal("list with more than two keys at " + where->text());
                const zidl_yfw_datatree *kh = find_child(h, k->name);
                if (kh == nullptr || kh->value == nullptr)
                    return Error::internal(std::string("list entry without its key ") + k->name + " at " +
                                           where->text());
                Error e = json_value(kh, where, keys[nkeys]);
                if (e)
                    return e;
                ++nkeys;
            }
        }
        lyd_node *self = nullptr;
        const bool list = schema->nodetype == LYS_LIST;
        std::string key;
        if (list) {
            key = entry_id(parent, schema, entry_key(keys, nkeys));
            auto it = entries_.find(key);
            if (it != entries_.end())
                self = it->second;
        } else {
            self = existing(parent, *top, schema);
        }
        if (self == nullptr) {
            LY_ERR rc;
            if (schema->nodetype == LYS_LIST)
                rc = nkeys == 1 ? lyd_new_list(parent, mod, h->name, 0, &self, keys[0].c_str())
                                : lyd_new_list(parent, mod, h->name, 0, &self, keys[0].c_str(), keys[1].c_str());
            else
                rc = lyd_new_inner(parent, mod, h->name, 0, &self);
            if (rc != LY_SUCCESS)
                return fail(schema->nodetype == LYS_LIST ? "invalid list entry" : "cannot create container", where);
            if (parent == nullptr) {
                Error e = link(top, self, where);
                if (e)
                    return e;
            }
            if (list)
                entries_.emplace(std::move(key), self);
        }
        return children(h, schema, self, top, where);
    }
};

}  // namespace

Error from_datatree(const Context &ctx, const zidl_yfw_datatree *root, Tree &out)
{
    out.reset();
    if (root == nullptr)
        return Error{};
    lyd_node *top = nullptr;
    ly_err_clean(ctx.raw(), nullptr);
    Builder b(ctx);
    Error e = b.children(root, nullptr, nullptr, &top, nullptr);
    if (top != nullptr) {
        /* lyd_insert_sibling may leave `top` on any sibling; keep the first. */
        top = lyd_first_sibling(top);
    }
    out.reset(top);
    if (e)
        out.reset();
    return e;
}

void leaf_values(const Tree &tree, LeafList &out, const char *under)
{
    auto below = [under](const lyd_node *n) {
        if (under == nullptr)
            return true;
        for (const lyd_node *p = lyd_parent(n); p != nullptr; p = lyd_parent(p))
            if (p->schema != nullptr && p->schema->nodetype == LYS_LIST && strcmp(p->schema->name, under) == 0)
                return true;
        return false;
    };
    const lyd_node *top = tree.get();
    while (top != nullptr && top->prev != top && top->prev->next != nullptr)
        top = top->prev;
    for (const lyd_node *t = top; t != nullptr; t = t->next) {
        const lyd_node *n;
        LYD_TREE_DFS_BEGIN(t, n) {
            if (n->schema != nullptr && (n->schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) && !lysc_is_key(n->schema) &&
                below(n))
                out.emplace_back(node_path(n), lyd_get_value(n));
            LYD_TREE_DFS_END(t, n);
        }
    }
}

std::string leaf_diff(const LeafList &before, const LeafList &after)
{
    std::map<std::string, const std::string *> was, is;
    for (const auto &l : before)
        was[l.first] = &l.second;
    for (const auto &l : after)
        is[l.first] = &l.second;
    std::string out;
    for (const auto &l : before)
        if (is.count(l.first) == 0)
            out += "- " + l.first + ": " + l.second + "\n";
    for (const auto &l : after) {
        auto w = was.find(l.first);
        if (w == was.end())
            out += "+ " + l.first + ": " + l.second + "\n";
        else if (*w->second != l.second)
            out += "~ " + l.first + ": " + *w->second + " -> " + l.second + "\n";
    }
    return out;
}

}  // namespace ocni::yang
