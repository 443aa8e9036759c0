/* Instance paths as a gNMI client writes them, checked against the schema. */
#include <libyang/libyang.h>

#include <cstring>
#include <vector>

#include "yang_data.h"

namespace ocni::yang {

namespace {

struct Step {
    std::string name;
    std::vector<std::pair<std::string, std::string>> keys;
};

/* Splits "/a/b[k=v]/c[k='x/y']" into steps; '/' inside brackets or quotes is data. */
Error split_path(const std::string &path, std::vector<Step> &steps)
{
    if (path.empty() || path[0] != '/')
        return Error::input("path \"" + path + "\" must start with /");
    size_t i = 1;
    while (i <= path.size()) {
        Step step;
        size_t start = i;
        while (i < path.size() && path[i] != '/' && path[i] != '[')
            ++i;
        step.name = path.substr(start, i - start);
        if (step.name.empty())
            return Error::input("empty step in path \"" + path + "\"");
        size_t colon = step.name.find(':');
        if (colon != std::string::npos)
            step.name = step.name.substr(colon + 1);
        while (i < path.size() && path[i] == '[') {
            size_t eq = path.find('=', i);
            if (eq == std::string::npos)
                return Error::input("predicate without '=' in path \"" + path + "\"");
            std::string key = path.substr(i + 1, eq - i - 1);
            while (!key.empty() && key.back() == ' ')
                key.pop_back();
            size_t v = eq + 1;
            std::string value;
            if (v < path.size() && (path[v] == '\'' || path[v] == '"')) {
                size_t close = path.find(path[v], v + 1);
                if (close == std::string::npos || close + 1 >= path.size() || path[close + 1] != ']')
                    return Error::input("unterminated quoted key in path \"" + path + "\"");
                value = path.substr(v + 1, close - v - 1);
                i = close + 2;
            } else {
                size_t close = path.find(']', v);
                if (close == std::string::npos)
                    return Error::input("unterminated predicate in path \"" + path + "\"");
                value = path.substr(v, close - v);
                i = close + 1;
            }
            step.keys.emplace_back(key, value);
        }
        steps.push_back(std::move(step));
        if (i == path.size())
            break;
        if (path[i] != '/')
            return Error::input("unexpected character '" + std::string(1, path[i]) + "' in path \"" + path + "\"");
        ++i;
    }
    return Error{};
}

bool is_identity_type(const lysc_node *key)
{
    const lysc_type *t = reinterpret_cast<const lysc_node_leaf *>(key)->type;
    if (t->basetype == LY_TYPE_LEAFREF)
        t = reinterpret_cast<const lysc_type_leafref *>(t)->realtype;
    return t != nullptr && t->basetype == LY_TYPE_IDENT;
}

/* "STATIC" -> "openconfig-policy-types:STATIC": the module that defines the identity. */
std::string qualify_identity(const Context &ctx, const std::string &value)
{
    if (value.find(':') != std::string::npos)
        return value;
    uint32_t idx = 0;
    const lys_module *m;
    while ((m = ly_ctx_get_module_iter(ctx.raw(), &idx)) != nullptr) {
        if (!m->implemented)
            continue;
        LY_ARRAY_COUNT_TYPE u;
        LY_ARRAY_FOR(m->identities, u)
        {
            if (value == m->identities[u].name)
                return std::string(m->name) + ":" + value;
        }
    }
    return value;
}

}  // namespace

Error parse_instance_path(const Context &ctx, const std::string &path, Model model, Tree &out, PathTarget &target)
{
    out.reset();
    target = PathTarget{};
    std::vector<Step> steps;
    Error e = split_path(path, steps);
    if (e)
        return e;

    const lys_module *mod =
        ly_ctx_get_module_implemented(ctx.raw(), model == Model::kNative ? kNativeModule : kNetworkInstanceModule);
    if (mod == nullptr)
        return Error::internal("the schema context lacks the path's module");

    ly_err_clean(ctx.raw(), nullptr);
    lyd_node *top = nullptr, *parent = nullptr;
    const lysc_node *parent_schema = nullptr;
    std::string where;
    for (size_t s = 0; s < steps.size(); ++s) {
        const Step &step = steps[s];
        where += "/" + step.name;
        const lysc_node *schema = lys_find_child(parent_schema, mod, step.name.c_str(), 0, 0, 0);
        if (schema == nullptr) {
            lyd_free_all(top);
            return Error::input("unknown node \"" + step.name + "\" in path (at " + where + ")");
        }
        bool last = s + 1 == steps.size();
        if (schema->nodetype & LYD_NODE_TERM) {
            if (!last || !step.keys.empty()) {
                lyd_free_all(top);
                return Error::input("leaf \"" + step.name + "\" must end the path (at " + where + ")");
            }
            if (parent == nullptr) {
                lyd_free_all(top);
                return Error::input("path names no entry (at " + where + ")");
            }
            if (lysc_is_key(schema))
                target.node = parent; /* deleting a key deletes its entry */
            else {
                target.parent = parent;
                target.leaf = schema;
            }
            break;
        }
        lyd_node *self = nullptr;
        LY_ERR rc;
        if (schema->nodetype == LYS_LIST) {
            std::vector<std::string> values;
            for (const lysc_node *k = lysc_node_child(schema); k != nullptr && lysc_is_key(k); k = k->next) {
                const std::string *given = nullptr;
                for (const auto &kv : step.keys)
                    if (kv.first == k->name)
                        given = &kv.second;
                if (given == nullptr) {
                    lyd_free_all(top);
                    return Error::input("list \"" + step.name + "\" needs its key \"" + k->name + "\" (at " +
                                        where + ")");
                }
                values.push_back(is_identity_type(k) ? qualify_identity(ctx, *given) : *given);
            }
            if (values.size() != step.keys.size() || values.empty() || values.size() > 2) {
                lyd_free_all(top);
                return Error::input("list \"" + step.name + "\" has keys other than its own (at " + where + ")");
            }
            rc = values.size() == 1
                     ? lyd_new_list(parent, mod, step.name.c_str(), 0, &self, values[0].c_str())
                     : lyd_new_list(parent, mod, step.name.c_str(), 0, &self, values[0].c_str(), values[1].c_str());
        } else {
            if (!step.keys.empty()) {
                lyd_free_all(top);
                return Error::input("\"" + step.name + "\" is not a list (at " + where + ")");
            }
            rc = lyd_new_inner(parent, mod, step.name.c_str(), 0, &self);
        }
        if (rc != LY_SUCCESS) {
            lyd_free_all(top);
            return Error::input(ctx.take_errors("invalid key value") + " (at " + where + ")");
        }
        if (top == nullptr)
            top = self;
        parent = self;
        parent_schema = schema;
        if (last)
            target.node = self;
    }
    out.reset(top);
    return check_canonical_prefixes(out);
}

}  // namespace ocni::yang
