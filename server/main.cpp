/*
 * ocni-netconfd: a NETCONF server (SSH) for the static routes of a store
 * directory. One process keeps the store open and serves every session
 * through the same engine as ocni-map.
 */
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <libyang/libyang.h>
#include <nc_server.h>

#include "auth.h"
#include "ocni_map_engine.h"
#include "rpc.h"
#include "yang_context.h"

namespace yang = ocni::yang;
namespace srv = ocni::server;
using ocni::tool::Outcome;

namespace {

const char *const kUsage =
    "usage: ocni-netconfd --users FILE [--store DIR] [--listen ADDR:PORT] [--authorized-keys FILE]\n"
    "                     [--host-key FILE] [--yang-dir DIR] [--max-sessions N] [--trace]\n"
    "\n"
    "Serves the static routes of a store directory over NETCONF (SSH subsystem netconf).\n"
    "  --store DIR             store directory (default ./ocni-store)\n"
    "  --listen ADDR:PORT      address to listen on (default 127.0.0.1:830; [::1]:830 for IPv6)\n"
    "  --users FILE            name:hash lines, SHA-512 crypt hashes (openssl passwd -6)\n"
    "  --authorized-keys FILE  name key-type key lines for public-key login\n"
    "  --host-key FILE         SSH host key (default: generated once as DIR/ssh_host_ecdsa_key)\n"
    "  --yang-dir DIR          load the OpenConfig modules from DIR (a full published set)\n"
    "  --max-sessions N        sessions served at once (default 64)\n"
    "  --trace                 write the mapping's trace lines to stderr\n";

struct Args {
    std::string store = "./ocni-store";
    std::string address = "127.0.0.1";
    uint16_t port = 830;
    std::string users, keys, host_key, yang_dir;
    unsigned max_sessions = 64;
    bool trace = false;
};

int fail(const std::string &why)
{
    std::cerr << "ocni-netconfd: " << why << "\n";
    return 1;
}

bool parse_listen(const std::string &s, Args &a)
{
    size_t colon = s.rfind(':');
    if (colon == std::string::npos || colon + 1 >= s.size())
        return false;
    std::string host = s.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    char *end = nullptr;
    unsigned long port = strtoul(s.c_str() + colon + 1, &end, 10);
    if (*end != '\0' || port == 0 || port > 65535 || host.empty())
        return false;
    a.address = host;
    a.port = static_cast<uint16_t>(port);
    return true;
}

/* -1 to go on, else the exit status. */
int parse_args(int argc, char **argv, Args &a)
{
    for (int i = 1; i < argc; ++i) {
        std::string s = argv[i];
        auto value = [&](std::string &into) {
            if (i + 1 >= argc)
                return false;
            into = argv[++i];
            return true;
        };
        std::string v;
        if (s == "--help" || s == "-h") {
            std::cout << kUsage;
            return 0;
        } else if (s == "--trace") {
            a.trace = true;
        } else if (s == "--store" ? !value(a.store)
                   : s == "--users" ? !value(a.users)
                   : s == "--authorized-keys" ? !value(a.keys)
                   : s == "--host-key" ? !value(a.host_key)
                   : s == "--yang-dir" ? !value(a.yang_dir)
                   : false) {
            return fail(s + " needs a value"), 2;
        } else if (s == "--listen") {
            if (!value(v) || !parse_listen(v, a))
                return fail("--listen needs ADDR:PORT"), 2;
        } else if (s == "--max-sessions") {
            if (!value(v) || (a.max_sessions = static_cast<unsigned>(strtoul(v.c_str(), nullptr, 10))) == 0)
                return fail("--max-sessions needs a positive number"), 2;
        } else if (s != "--store" && s != "--users" && s != "--authorized-keys" && s != "--host-key" &&
                   s != "--yang-dir") {
            return fail("unknown option " + s + "\n" + kUsage), 2;
        }
    }
    if (a.users.empty() && a.keys.empty())
        return fail("--users or --authorized-keys is needed: nobody could log in"), 2;
    return -1;
}


/* The modules NETCONF itself needs, with the capabilities the server offers. */
bool load_netconf_modules(const yang::Context &ctx, std::string &why)
{
    ly_ctx *c = ctx.raw();
    ly_ctx_set_searchdir(c, OCNI_IETF_YANG_DIR);
    const char *features[] = {"writable-running", "validate", "xpath", "rollback-on-error", nullptr};
    if (ly_ctx_load_module(c, "ietf-netconf", "2011-06-01", features) == nullptr ||
        ly_ctx_load_module(c, "ietf-netconf-with-defaults", nullptr, nullptr) == nullptr ||
        ly_ctx_load_module(c, "ietf-netconf-monitoring", nullptr, nullptr) == nullptr) {
        why = "cannot load the NETCONF modules from " OCNI_IETF_YANG_DIR ": " + ctx.take_errors("not found");
        return false;
    }
    return true;
}

/* Generates an ECDSA host key readable by the owner only, once. */
bool ensure_host_key(const std::string &path, std::string &why)
{
    struct stat st;
    if (stat(path.c_str(), &st) == 0)
        return true;
    ssh_key key = nullptr;
    if (ssh_pki_generate(SSH_KEYTYPE_ECDSA_P256, 256, &key) != SSH_OK) {
        why = "cannot generate a host key";
        return false;
    }
    mode_t old = umask(077);
    int rc = ssh_pki_export_privkey_file(key, nullptr, nullptr, nullptr, path.c_str());
    umask(old);
    ssh_key_free(key);
    if (rc != SSH_OK || chmod(path.c_str(), 0600) != 0) {
        why = "cannot write the host key " + path;
        return false;
    }
    return true;
}

srv::Users g_users;
srv::AuthorizedKeys g_keys;
std::string g_host_key;
std::atomic<bool> g_stop{false};

int check_password(const nc_session *session, const char *password, void *)
{
    const char *user = nc_session_get_username(session);
    return g_users.check(user != nullptr ? user : "", password != nullptr ? password : "") ? 0 : 1;
}

int host_key(const char *, void *, char **path, char **, NC_SSH_KEY_TYPE *)
{
    *path = strdup(g_host_key.c_str());
    return *path == nullptr;
}

void on_signal(int)
{
    g_stop = true;
}

void print_log(NC_VERB_LEVEL level, const char *msg)
{
    if (level == NC_VERB_ERROR)
        fprintf(stderr, "ocni-netconfd: %s\n", msg);
}

int check_key(const nc_session *session, ssh_key key, void *)
{
    const char *user = nc_session_get_username(session);
    return g_keys.accepts(user != nullptr ? user : "", key) ? 0 : 1;
}

/* Serves the RPCs of every session; a session that ends leaves the registry (and its lock). */
void worker(nc_pollsession *ps)
{
    while (!g_stop) {
        nc_session *s = nullptr;
        int r = nc_ps_poll(ps, 200, &s);
        if (r & NC_PSPOLL_NOSESSIONS) {
            usleep(50 * 1000);
            continue;
        }
        if (r & NC_PSPOLL_RPC)
            srv::after_rpc();
        if ((r & (NC_PSPOLL_SESSION_TERM | NC_PSPOLL_SESSION_ERROR)) && s != nullptr) {
            nc_ps_del_session(ps, s);
            srv::session_ended(s);
            nc_session_free(s, nullptr);
        }
    }
    nc_thread_destroy();
}

}  // namespace

int main(int argc, char **argv)
{
    Args a;
    int rc = parse_args(argc, argv, a);
    if (rc >= 0)
        return rc;

    yang::Context ctx;
    yang::Error ye = ctx.open(yang::default_yang_dir(), a.yang_dir);
    if (ye)
        return fail(ye.message);
    std::string why;
    if (!load_netconf_modules(ctx, why))
        return fail(why);
    if (!a.users.empty() && !g_users.load(a.users, why))
        return fail(why);
    if (!a.keys.empty() && !g_keys.load(a.keys, why))
        return fail(why);

    ocni::tool::EngineOptions opt;
    opt.store_dir = a.store;
    opt.plugin_path = yang::plugin_path();
    opt.trace = a.trace;
    opt.change_lines = false; /* replies never carry the native change lines */
    Outcome o;
    std::unique_ptr<ocni::tool::Engine> engine = ocni::tool::make_engine(ctx, opt, o);
    if (!engine)
        return fail(o.message);
    g_host_key = a.host_key.empty() ? a.store + "/ssh_host_ecdsa_key" : a.host_key;
    if (!ensure_host_key(g_host_key, why))
        return fail(why);

    struct sigaction sa;
    memset(&sa, 0, sizeof(sa));
    sa.sa_handler = on_signal;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    nc_set_print_clb(print_log);
    nc_verbosity(NC_VERB_ERROR);
    if (nc_server_init(ctx.raw()) != 0)
        return fail("cannot start the NETCONF server");
    nc_server_set_capab_withdefaults(NC_WD_EXPLICIT, NC_WD_EXPLICIT);
    if (!srv::install_rpcs(ctx, *engine))
        return fail("the NETCONF operations are missing from the schema");
    nc_server_ssh_set_passwd_auth_clb(check_password, nullptr, nullptr);
    nc_server_ssh_set_hostkey_clb(host_key, nullptr, nullptr);
    nc_server_ssh_set_pubkey_auth_clb(check_key, nullptr, nullptr);
    const char *endpt = "ssh";
    int methods = (a.users.empty() ? 0 : NC_SSH_AUTH_PASSWORD) | (g_keys.size() == 0 ? 0 : NC_SSH_AUTH_PUBLICKEY);
    if (nc_server_add_endpt(endpt, NC_TI_LIBSSH) != 0 || nc_server_ssh_endpt_add_hostkey(endpt, "host", -1) != 0 ||
        nc_server_ssh_endpt_set_auth_methods(endpt, methods) != 0 ||
        nc_server_endpt_set_address(endpt, a.address.c_str()) != 0 ||
        nc_server_endpt_set_port(endpt, a.port) != 0) {
        nc_server_destroy();
        return fail("cannot listen on " + a.address + ":" + std::to_string(a.port));
    }

    nc_pollsession *ps = nc_ps_new();
    std::vector<std::thread> workers;
    for (int i = 0; i < 4; ++i)
        workers.emplace_back(worker, ps);
    std::cerr << "ocni-netconfd: listening on " << a.address << ":" << a.port << "\n";

    while (!g_stop) {
        nc_session *s = nullptr;
        NC_MSG_TYPE m = nc_accept(200, &s);
        if (m != NC_MSG_HELLO || s == nullptr)
            continue;
        if (srv::session_count() >= a.max_sessions) {
            nc_session_free(s, nullptr);
            continue;
        }
        srv::session_started(s);
        nc_ps_add_session(ps, s);
    }

    for (std::thread &t : workers)
        t.join();
    /* Every session ends; an edit in progress finished before its worker stopped. */
    while (nc_ps_session_count(ps) > 0) {
        nc_session *s = nc_ps_get_session(ps, 0);
        nc_ps_del_session(ps, s);
        srv::session_ended(s);
        nc_session_free(s, nullptr);
    }
    nc_ps_free(ps);
    nc_server_destroy();
    engine.reset();
    std::cerr << "ocni-netconfd: stopped\n";
    return 0;
}
