#include "tree_builder.h"

#include <stdexcept>

#include "host/context.h"

namespace ocni::test {

using namespace ocni::host;

namespace {

std::string trim(const std::string &s)
{
    size_t b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos)
        return std::string();
    size_t e = s.find_last_not_of(" \t\r");
    return s.substr(b, e - b + 1);
}

/* The edit operation a "(delete)" style name gives; -1 when unknown. */
int op_from_name(const std::string &name)
{
    static const char *names[] = {"none", "merge", "create", "delete", "remove", "replace"};
    for (int i = 0; i < 6; ++i)
        if (name == names[i])
            return i;
    return -1;
}

/* Adds one path below `root`; `op` >= 0 sets that edit operation on the last node. */
void add(zidl_yfw_datatree *root, const std::string &path, const char *value, int op, const char *nsp)
{
    std::vector<PathStep> steps;
    std::string err;
    if (!parse_instance_path(path.c_str(), steps, &err) || steps.empty())
        throw std::invalid_argument("bad tree path '" + path + "': " + err);
    NodeRef cur = node_ref(root);
    for (size_t i = 0; i < steps.size(); ++i) {
        const PathStep &s = steps[i];
        const bool last = i + 1 == steps.size();
        zidl_yfw_datatree *parent = node_get(cur);
        zidl_yfw_datatree *next = nullptr;
        if (!s.keys.empty()) {
            next = node_add_entry(parent, s.name.c_str(), s.keys, nsp);
        } else {
            next = node_child(parent, s.name.c_str());
            if (next == nullptr) {
                NodeKind kind = last && value != nullptr ? NodeKind::Leaf
                                : list_is_known(s.name) ? NodeKind::Entry
                                                        : NodeKind::Container;
                next = node_add_child(parent, s.name.c_str(), kind, nullptr, nsp);
                if (next != nullptr && kind == NodeKind::Leaf && (parent->flags & YFW_DT_F_LIST) &&
                    parent->value == nullptr && list_is_key(parent->name, s.name))
                    node_mark_key(next);
            }
        }
        if (next == nullptr)
            throw std::runtime_error("cannot add '" + path + "'");
        cur = node_ref(next);
    }
    zidl_yfw_datatree *end = node_get(cur);
    if (value != nullptr)
        node_set_value(end, value);
    if (op >= 0)
        node_set_op(end, uint32_t(op));
}

} // namespace

TreePtr build_tree(const std::string &text, const char *ns)
{
    TreePtr root(tree_new());
    if (!root)
        throw std::bad_alloc();
    const char *nsp = ns != nullptr && *ns != '\0' ? ns : nullptr;
    size_t pos = 0;
    while (pos <= text.size()) {
        size_t nl = text.find('\n', pos);
        std::string line = trim(text.substr(pos, nl == std::string::npos ? std::string::npos : nl - pos));
        pos = nl == std::string::npos ? text.size() + 1 : nl + 1;
        if (line.empty() || line[0] == '#')
            continue;
        int op = -1;
        if (line.back() == ')') {
            size_t open = line.rfind(" (");
            if (open != std::string::npos) {
                int o = op_from_name(line.substr(open + 2, line.size() - open - 3));
                if (o >= 0) {
                    op = o;
                    line = trim(line.substr(0, open));
                }
            }
        }
        size_t eq = line.find(" = ");
        if (eq == std::string::npos && line.size() >= 2 && line.compare(line.size() - 2, 2, " =") == 0)
            eq = line.size() - 2;
        if (eq != std::string::npos) {
            std::string value = eq + 3 <= line.size() ? line.substr(eq + 3) : std::string();
            add(root.get(), trim(line.substr(0, eq)), value.c_str(), op, nsp);
        } else {
            add(root.get(), line, nullptr, op, nsp);
        }
    }
    return root;
}

} // namespace ocni::test
