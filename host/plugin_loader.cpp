#include "plugin_loader.h"

#include <dlfcn.h>

namespace ocni::host {

Plugin::~Plugin()
{
    if (handle_)
        dlclose(handle_);
}

std::unique_ptr<Plugin> Plugin::from_lookup(const std::function<void *(const std::string &)> &lookup,
                                            std::string &err, bool allow_missing)
{
    std::unique_ptr<Plugin> p(new Plugin());
    for (const std::string &name : registration_callback_names()) {
        void *sym = lookup(name);
        if (!sym) {
            if (allow_missing)
                continue;
            err = "missing symbol " + name;
            return nullptr;
        }
        p->syms_.emplace(name, sym);
    }
    return p;
}

std::unique_ptr<Plugin> Plugin::load(const std::string &path, std::string &err)
{
    /* RTLD_LOCAL: the plug-in's symbols must not satisfy later loads; RTLD_NOW: fail at start-up. */
    void *h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!h) {
        const char *why = dlerror();
        err = "plug-in " + path + ": cannot load: " + (why ? why : "unknown error");
        return nullptr;
    }
    std::string missing;
    std::unique_ptr<Plugin> p = from_lookup(
        [h](const std::string &name) {
            dlerror();
            return dlsym(h, name.c_str());
        },
        missing);
    if (!p) {
        dlclose(h);
        err = "plug-in " + path + ": " + missing;
        return nullptr;
    }
    p->handle_ = h;
    p->path_ = path;
    return p;
}

void *Plugin::symbol(const std::string &name) const
{
    auto it = syms_.find(name);
    return it == syms_.end() ? nullptr : it->second;
}

} // namespace ocni::host
