/*
 * Loading the mapping plug-in: dlopen the shared library and resolve the
 * callback of every binding of the registration table. A plug-in that
 * lacks one of them is refused at start-up, naming the missing symbol.
 */
#ifndef OCNI_HOST_PLUGIN_LOADER_H
#define OCNI_HOST_PLUGIN_LOADER_H

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include "registration.h"
#include "yfw_types.h"

namespace ocni::host {

using LeafFn = cerrno (*)(yfw_map_ctx *, const zidl_yfw_datatree *, zidl_yfw_datatree *);
using ContainerFn = cerrno (*)(yfw_map_ctx *, const zidl_yfw_datatree *, unsigned int, zidl_yfw_datatree *);
using ConditionFn = cerrno (*)(yfw_map_ctx *, int, void *);

/* The resolved callbacks of one plug-in, by name. */
class Plugin {
public:
    ~Plugin();
    Plugin(const Plugin &) = delete;
    Plugin &operator=(const Plugin &) = delete;

    /*
     * dlopen `path` and resolve every callback of the table. On failure
     * returns null and sets `err` ("plug-in <path>: missing symbol <name>").
     */
    static std::unique_ptr<Plugin> load(const std::string &path, std::string &err);

    /*
     * Resolves every callback through `lookup` (tests register small fake
     * callbacks this way); names `lookup` does not know are refused as
     * missing unless `allow_missing` is set, in which case their nodes are
     * walked without a call.
     */
    static std::unique_ptr<Plugin> from_lookup(const std::function<void *(const std::string &)> &lookup,
                                               std::string &err, bool allow_missing = false);

    /* Address of a resolved callback, null when unknown. */
    void *symbol(const std::string &name) const;
    const std::string &path() const { return path_; }
    size_t size() const { return syms_.size(); }

private:
    Plugin() = default;
    void *handle_ = nullptr;
    std::string path_;
    std::unordered_map<std::string, void *> syms_;
};

} // namespace ocni::host

#endif
