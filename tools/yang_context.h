/*
 * The libyang seam of the host: one place that loads the schema context and
 * turns libyang's error records into the host's messages.
 *
 * The context holds the project's own native modules and either the
 * project's OpenConfig modules or a full set of published OpenConfig
 * modules (--yang-dir).
 */
#ifndef OCNI_YANG_CONTEXT_H
#define OCNI_YANG_CONTEXT_H

#include <string>

struct ly_ctx;

namespace ocni::yang {

/* Module names and namespaces of the three models the host serves. */
extern const char *const kNetworkInstanceModule;   /* openconfig-network-instance */
extern const char *const kNetworkInstanceNs;
extern const char *const kLocalRoutingModule;
extern const char *const kLocalRoutingNs;
extern const char *const kPolicyTypesModule;
extern const char *const kPolicyTypesNs;
extern const char *const kNativeModule;            /* Velmar-ORN-QZ-ip-static-cfg */
extern const char *const kNativeNs;
extern const char *const kOperModule;              /* Velmar-ORN-QZ-PRIVATE-ocni-local-routing-oper */
extern const char *const kOperNs;

/* What went wrong, and whose fault it is. */
struct Error {
    enum Kind {
        kNone = 0,
        kInput,     /* the document or path does not parse or validate */
        kInternal,  /* schema loading, or data the host itself produced */
    };
    Kind kind = kNone;
    std::string message;

    explicit operator bool() const { return kind != kNone; }
    static Error input(std::string m) { return Error{kInput, std::move(m)}; }
    static Error internal(std::string m) { return Error{kInternal, std::move(m)}; }
};

class Context {
public:
    Context() = default;
    ~Context();
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;

    /*
     * Loads the native and operational modules from project_dir and the
     * OpenConfig modules from openconfig_dir (searched recursively), or
     * from project_dir when openconfig_dir is empty.
     */
    Error open(const std::string &project_dir, const std::string &openconfig_dir = "");

    ly_ctx *raw() const { return ctx_; }

    /*
     * The errors libyang recorded since the last call, as one message:
     * each error's text with the data path and input line it names.
     * Clears the record. Falls back to `fallback` when nothing was recorded.
     * `line_offset` is added to the line numbers (a chunk of a larger input).
     */
    std::string take_errors(const char *fallback, size_t line_offset = 0) const;

private:
    ly_ctx *ctx_ = nullptr;
};

/*
 * Where the project's YANG modules are: beside an installed binary
 * (<prefix>/share/ocni/yang), else the source tree the binary was built from.
 */
std::string default_yang_dir();

/* Directory of the running executable (from /proc/self/exe), "" if unknown. */
std::string executable_dir();

/* Where the plug-in is: beside an installed binary, else the build tree. */
std::string plugin_path();

}  // namespace ocni::yang

#endif
