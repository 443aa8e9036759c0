#include "yang_context.h"

#include <libyang/libyang.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

namespace ocni::yang {

const char *const kNetworkInstanceModule = "openconfig-network-instance";
const char *const kNetworkInstanceNs = "http://openconfig.net/yang/network-instance";
const char *const kLocalRoutingModule = "openconfig-local-routing";
const char *const kLocalRoutingNs = "http://openconfig.net/yang/local-routing";
const char *const kPolicyTypesModule = "openconfig-policy-types";
const char *const kPolicyTypesNs = "http://openconfig.net/yang/policy-types";
const char *const kNetworkInstanceTypesModule = "openconfig-network-instance-types";
const char *const kNativeModule = "Velmar-ORN-QZ-ip-static-cfg";
const char *const kNativeNs = "urn:velmar:yang:ip-static-cfg";
const char *const kOperModule = "Velmar-ORN-QZ-PRIVATE-ocni-local-routing-oper";
const char *const kOperNs = "urn:velmar:yang:private-ocni-local-routing-oper";

namespace {

bool is_dir(const std::string &p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

/*
 * libyang writes the location as 'Data location "/a/b", line number 6.',
 * 'Schema location "/a".' or 'Line number 2.'; keep the path and the line.
 */
std::string describe_location(const char *where, size_t line_offset)
{
    if (where == nullptr || *where == '\0')
        return "";
    std::string w(where), path, line;
    size_t q = w.find("location \"");
    if (q != std::string::npos) {
        size_t start = q + strlen("location \"");
        size_t end = w.find('"', start);
        if (end != std::string::npos)
            path = w.substr(start, end - start);
    }
    size_t l = w.find("ine number ");
    if (l != std::string::npos) {
        size_t start = l + strlen("ine number ");
        size_t end = start;
        while (end < w.size() && w[end] >= '0' && w[end] <= '9')
            ++end;
        line = w.substr(start, end - start);
    }
    std::string out;
    if (!line.empty())
        out = "line " + std::to_string(strtoull(line.c_str(), nullptr, 10) + line_offset);
    if (!path.empty())
        out += (out.empty() ? "at " : ", at ") + path;
    return out;
}

}  // namespace

Context::~Context()
{
    if (ctx_ != nullptr)
        ly_ctx_destroy(ctx_);
}

std::string Context::take_errors(const char *fallback, size_t line_offset) const
{
    std::string out;
    for (const ly_err_item *e = ly_err_first(ctx_); e != nullptr; e = e->next) {
        if (e->level != LY_LLERR || e->msg == nullptr)
            continue;
        std::string one = e->msg;
        std::string loc = describe_location(e->path, line_offset);
        if (!loc.empty())
            one += " (" + loc + ")";
        /* libyang sometimes records the same failure twice on the way out. */
        if (out.find(one) != std::string::npos)
            continue;
        out += out.empty() ? one : "; " + one;
    }
    ly_err_clean(ctx_, nullptr);
    return out.empty() ? std::string(fallback) : out;
}

Error Context::open(const std::string &project_dir, const std::string &openconfig_dir)
{
    /* Errors are kept for take_errors(), never printed by libyang itself. */
    ly_log_options(LY_LOSTORE);

    if (!is_dir(project_dir))
        return Error::internal("YANG module directory " + project_dir + " not found");
    if (!openconfig_dir.empty() && !is_dir(openconfig_dir))
        return Error::internal("YANG module directory " + openconfig_dir + " not found");

    const std::string &search = openconfig_dir.empty() ? project_dir : openconfig_dir;
    /*
     * Modules that only import identities must still be implemented for
     * those identities to be valid values (the published network-instance
     * module has identity defaults in modules it merely imports).
     */
    LY_ERR rc = ly_ctx_new(search.c_str(), LY_CTX_REF_IMPLEMENTED | LY_CTX_DISABLE_SEARCHDIR_CWD, &ctx_);
    if (rc != LY_SUCCESS || ctx_ == nullptr) {
        ctx_ = nullptr;
        return Error::internal("cannot create the YANG context in " + search);
    }

    /* Identities STATIC, DROP and LOCAL_LINK, and the instance types, live in the first three. */
    for (const char *name :
         {kPolicyTypesModule, kLocalRoutingModule, kNetworkInstanceTypesModule, kNetworkInstanceModule}) {
        if (ly_ctx_load_module(ctx_, name, nullptr, nullptr) == nullptr)
            return Error::internal(std::string("cannot load YANG module ") + name + " from " + search +
                                   ": " + take_errors("not found"));
    }
    /* The native modules are always the project's own. */
    for (const char *name : {kNativeModule, kOperModule}) {
        std::string file = project_dir + "/" + name + ".yang";
        if (lys_parse_path(ctx_, file.c_str(), LYS_IN_YANG, nullptr) != LY_SUCCESS)
            return Error::internal("cannot load YANG module " + file + ": " + take_errors("parse failed"));
    }
    ly_err_clean(ctx_, nullptr);
    return Error{};
}

std::string executable_dir()
{
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0)
        return "";
    buf[n] = '\0';
    char *slash = strrchr(buf, '/');
    if (slash == nullptr)
        return "";
    *slash = '\0';
    return buf;
}

std::string default_yang_dir()
{
    std::string exe = executable_dir();
    if (!exe.empty()) {
        std::string installed = exe + "/../" OCNI_INSTALL_DATADIR "/ocni/yang";
        if (is_dir(installed))
            return installed;
    }
    return OCNI_SOURCE_YANG_DIR;
}

std::string plugin_path()
{
    std::string exe = executable_dir();
    if (!exe.empty()) {
        std::string installed = exe + "/../" OCNI_INSTALL_LIBDIR "/libocni_localrouting.so";
        struct stat st;
        if (stat(installed.c_str(), &st) == 0)
            return installed;
    }
    return OCNI_BUILD_PLUGIN_PATH;
}

}  // namespace ocni::yang
