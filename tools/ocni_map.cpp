/*
 * ocni-map: runs the static-route mapping plug-in for real. Edits and
 * reads OpenConfig static routes, reads and edits the native
 * configuration, and manages the VRFs of a store directory.
 *
 * Exit status: 0 success, 1 the mapping refused the request (client
 * message on stderr), 2 input that does not parse or validate, 3 store
 * or internal error.
 */
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <libyang/libyang.h>

#include "host/route_store.h"
#include "host/trace.h"
#include "host/native_gate.h"
#include "json_splice.h"
#include "input_checks.h"
#include "ocni_map_engine.h"
#include "yang_context.h"
#include "yang_data.h"

using ocni::tool::Outcome;
namespace yang = ocni::yang;

namespace {

const char *const kUsage =
    "usage: ocni-map [--store DIR] [--trace] [--verbose] [--yang-dir DIR] COMMAND [ARGS]\n"
    "\n"
    "Edits and reads static routes through the OpenConfig network-instance model;\n"
    "the routes are kept in the router's native model in a store directory.\n"
    "\n"
    "commands:\n"
    "  edit FILE|- [--dry-run [--diff]]\n"
    "                                merge an OpenConfig document (JSON or XML)\n"
    "  delete PATH [--dry-run [--diff]]\n"
    "                                delete the node at an OpenConfig instance path\n"
    "  get [--state] [--vrf NAME] [--prefix PREFIX] [--format json|xml]\n"
    "                                print the OpenConfig configuration (and state)\n"
    "  native                        print the native configuration\n"
    "  native edit FILE|- [--dry-run [--diff]]\n"
    "                                apply a native document directly\n"
    "  vrf add|delete NAME           add or delete a VRF of the store\n"
    "  vrf list                      list the VRFs of the store\n"
    "  store upgrade                 convert a store of the previous format\n"
    "\n"
    "options:\n"
    "  --store DIR      store directory (default ./ocni-store)\n"
    "  --trace          write the mapping's trace lines to stderr (implies --verbose)\n"
    "  --verbose        print the native changes of an edit, and add to error messages\n"
    "                   the callback, result code and native path\n"
    "  --               end of options: the words after it are names (\"vrf add -- -x\")\n"
    "  --yang-dir DIR   load the OpenConfig modules from DIR (a full published set)\n"
    "  --help           this text; COMMAND --help describes one command\n"
    "\n"
    "exit status: 0 success, 1 edit refused by the mapping, 2 input that does not\n"
    "parse or validate, 3 store or internal error\n";

const char *const kEditHelp =
    "usage: ocni-map edit FILE|- [--dry-run [--diff]]\n"
    "\n"
    "Merges an OpenConfig network-instance document (RFC 7951 JSON, or XML) into\n"
    "the configuration and prints a line counting the routes and next hops it\n"
    "creates, changes and deletes (--verbose: and each native change). The document is a\n"
    "fragment: it is checked against the schema, but a route need not restate its\n"
    "network instance. A network instance that carries config/name creates that\n"
    "VRF. Prefixes and next-hop addresses must be in canonical form (10.1.0.0/16,\n"
    "2001:db8::/32, 2001:db8::1).\n"
    "  -             read the document from standard input\n"
    "  --dry-run     count the changes and store nothing\n"
    "  --diff        with --dry-run: the OpenConfig leaves the edit would add (+),\n"
    "                change (~) and remove (-)\n";

const char *const kDeleteHelp =
    "usage: ocni-map delete PATH [--dry-run [--diff]]\n"
    "\n"
    "Deletes the node at an OpenConfig instance path, as a gNMI delete would, e.g.\n"
    "  /network-instances/network-instance[name=default]/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=10.0.0.0/24]/next-hops/next-hop[index=1]/config/metric\n"
    "Key values may be quoted with ' or \".\n"
    "  --dry-run     count the changes and store nothing (--diff: show them)\n";

const char *const kGetHelp =
    "usage: ocni-map get [--state] [--vrf NAME] [--prefix PREFIX] [--format json|xml]\n"
    "\n"
    "Prints the OpenConfig configuration as RFC 7951 JSON (or XML) under\n"
    "openconfig-network-instance:network-instances.\n"
    "  --format xml     print XML, as a NETCONF <data> element holds it\n"
    "  --state          include the state of the installed routes\n"
    "  --vrf NAME       only the network instance NAME (default for the default VRF)\n"
    "  --prefix PREFIX  only the static route PREFIX\n";

const char *const kNativeHelp =
    "usage: ocni-map native\n"
    "       ocni-map native edit FILE|- [--dry-run [--diff]]\n"
    "\n"
    "native prints the native configuration as RFC 7951 JSON under\n"
    "Velmar-ORN-QZ-ip-static-cfg:router-static. native edit applies a native\n"
    "document directly, as the router's own command line would: next hops need no\n"
    "index and read back with generated ##...## indexes.\n"
    "  --dry-run     count the changes and store nothing (--diff: show them)\n";

const char *const kVrfHelp =
    "usage: ocni-map vrf add NAME\n"
    "       ocni-map vrf delete NAME [--with-routes]\n"
    "       ocni-map vrf list\n"
    "\n"
    "Manages the VRFs the store knows; routes of a network instance need its VRF.\n"
    "A VRF holding static routes is deleted only with --with-routes, which deletes\n"
    "its routes in the same transaction.\n";

const char *const kStoreHelp =
    "usage: ocni-map store upgrade\n"
    "\n"
    "Rewrites a store directory of the previous format in the current one, in one\n"
    "transaction; the native configuration reads the same before and after.\n";

struct Args {
    std::string store = "./ocni-store";
    std::string yang_dir;
    bool trace = false;
    bool verbose = false;
    bool help = false;
    bool dry_run = false;
    bool state = false;
    bool with_routes = false;
    bool diff = false;
    std::string vrf;
    std::string prefix;
    bool xml = false;
    std::vector<std::string> words;  /* command and its operands */
};

using ocni::host::shown;

int usage_error(const std::string &what)
{
    std::cerr << "ocni-map: " << what << "\n(ocni-map --help lists the commands)\n";
    return Outcome::kBadInput;
}

/* Error messages carry the mapping's details (callback, result code, native path). */
bool g_details = false;

/* Parses all options wherever they stand, up to "--"; returns -1 to go on, else an exit status. */
int parse_args(int argc, char **argv, Args &a)
{
    bool options = true;
    for (int i = 1; i < argc; ++i) {
        std::string s = argv[i];
        if (!options) {
            a.words.push_back(s);
            continue;
        }
        auto value = [&](std::string &into) -> bool {
            if (i + 1 >= argc)
                return false;
            into = argv[++i];
            return true;
        };
        if (s == "--help" || s == "-h")
            a.help = true;
        else if (s == "--")
            options = false;
        else if (s == "--trace")
            a.trace = a.verbose = true;
        else if (s == "--verbose")
            a.verbose = true;
        else if (s == "--dry-run")
            a.dry_run = true;
        else if (s == "--state")
            a.state = true;
        else if (s == "--with-routes")
            a.with_routes = true;
        else if (s == "--diff")
            a.diff = true;
        else if (s == "--store") {
            if (!value(a.store))
                return usage_error("--store needs a directory");
        } else if (s == "--yang-dir") {
            if (!value(a.yang_dir))
                return usage_error("--yang-dir needs a directory");
        } else if (s == "--vrf") {
            if (!value(a.vrf))
                return usage_error("--vrf needs a name");
        } else if (s == "--format") {
            std::string f;
            if (!value(f) || (f != "json" && f != "xml"))
                return usage_error("--format needs json or xml");
            a.xml = f == "xml";
        } else if (s == "--prefix") {
            if (!value(a.prefix))
                return usage_error("--prefix needs a prefix");
        } else if (s.size() > 1 && s[0] == '-' && s != "-")
            return usage_error("unknown option " + shown(s) + " (a name that starts with '-' goes after --)");
        else
            a.words.push_back(s);
    }
    return -1;
}

/* "store D: store D: why" says its subject once. */
std::string once(std::string m)
{
    size_t colon = m.find(": ");
    if (colon != std::string::npos) {
        std::string head = m.substr(0, colon + 2);
        while (m.compare(colon + 2, head.size(), head) == 0)
            m.erase(colon + 2, head.size());
    }
    return m;
}

int report(const Outcome &o)
{
    if (o.status != Outcome::kOk) {
        const char *kind = o.status == Outcome::kRefused    ? "refused"
                           : o.status == Outcome::kBadInput ? "invalid input"
                                                            : "error";
        std::cerr << "ocni-map: " << kind << ": " << once(o.message);
        if (g_details && !o.detail.empty())
            std::cerr << " [" << o.detail << "]";
        std::cerr << "\n";
    }
    return o.status;
}

int report(const yang::Error &e)
{
    return report(Outcome::fail(e.kind == yang::Error::kInput ? Outcome::kBadInput : Outcome::kInternal, e.message));
}

/* Reads FILE, or standard input for "-", straight into `text` (a large input is held once). */
bool read_input(const std::string &name, std::string &text, std::string &why)
{
    FILE *in = stdin;
    if (name != "-") {
        struct stat st {};
        if (stat(name.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            why = name + " is a directory";
            return false;
        }
        in = fopen(name.c_str(), "rb");
        if (in == nullptr) {
            why = "cannot read " + name + ": " + strerror(errno);
            return false;
        }
        if (st.st_size > 0)
            text.reserve(static_cast<size_t>(st.st_size));
    }
    char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, in)) > 0)
        text.append(buf, n);
    const bool failed = ferror(in) != 0;
    if (in != stdin)
        fclose(in);
    if (failed)
        why = "cannot read " + (name == "-" ? std::string("standard input") : name);
    return !failed;
}

yang::Format format_of(const std::string &name)
{
    auto ends = [&](const char *suffix) {
        size_t n = strlen(suffix);
        return name.size() >= n && name.compare(name.size() - n, n, suffix) == 0;
    };
    if (ends(".xml"))
        return yang::Format::kXml;
    if (ends(".json"))
        return yang::Format::kJson;
    return yang::Format::kAuto;
}


/* A VRF name from the command line: "" when it can be stored, else the message. */
std::string vrf_name_problem(const std::string &name)
{
    std::string why = ocni::host::vrf_name_fault(name);
    return why.empty() ? why : "VRF name \"" + shown(name) + "\" " + why;
}

/* "1 route", "3 routes". */
std::string count_of(size_t n, const char *noun)
{
    return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

/* The one line an edit prints: what it created, changed and deleted. */
std::string summary_line(const ocni::tool::EditReport &r, bool dry_run)
{
    std::string s = count_of(r.routes_created, "route") + " created, " + std::to_string(r.routes_changed) +
                    " changed, " + std::to_string(r.routes_deleted) + " deleted; " +
                    count_of(r.nh_created, "next hop") + " created, " + std::to_string(r.nh_changed) +
                    " changed, " + std::to_string(r.nh_deleted) + " deleted";
    for (const std::string &v : r.vrfs_created)
        s += "; VRF " + shown(v) + " created";
    if (dry_run)
        s += " (dry run: nothing stored)";
    return s + "\n";
}

/*
 * Progress of a long command on a terminal: routes done (of how many),
 * and the rate, rewritten in place at most four times a second.
 */
class Progress {
public:
    explicit Progress(bool on) : on_(on), start_(std::chrono::steady_clock::now()) {}
    ~Progress() { finish(); }
    void total(size_t n) { total_ = n; }
    /* A read printing to the same terminal shows no progress between its lines. */
    void off() { on_ = false; }
    void operator()(size_t done)
    {
        if (!on_)
            return;
        auto now = std::chrono::steady_clock::now();
        if (shown_ && now - last_ < std::chrono::milliseconds(250))
            return;
        last_ = now;
        double secs = std::chrono::duration<double>(now - start_).count();
        std::string line = "\rocni-map: " + std::to_string(done) + (total_ ? " of " + std::to_string(total_) : "") +
                           " routes";
        if (secs > 0)
            line += ", " + std::to_string(static_cast<long>(done / secs)) + "/s";
        std::cerr << line << "\033[K" << std::flush;
        shown_ = true;
    }
    void finish()
    {
        if (shown_)
            std::cerr << "\r\033[K" << std::flush;
        shown_ = false;
    }

private:
    bool on_;
    size_t total_ = 0;
    bool shown_ = false;
    std::chrono::steady_clock::time_point start_, last_;
};


class Command {
public:
    explicit Command(const Args &a) : args_(a) {}

    int run()
    {
        const std::vector<std::string> &w = args_.words;
        if (w.empty()) {
            std::cout << kUsage;
            return args_.help ? Outcome::kOk : Outcome::kBadInput;
        }
        const std::string &cmd = w[0];
        if (cmd == "help")
            return print(kUsage);
        if (cmd == "edit")
            return args_.help ? print(kEditHelp) : edit();
        if (cmd == "delete")
            return args_.help ? print(kDeleteHelp) : remove();
        if (cmd == "get")
            return args_.help ? print(kGetHelp) : get();
        if (cmd == "native")
            return args_.help ? print(kNativeHelp) : native();
        if (cmd == "vrf")
            return args_.help ? print(kVrfHelp) : vrf();
        if (cmd == "store")
            return args_.help ? print(kStoreHelp) : store();
        return usage_error("unknown command " + cmd);
    }

private:
    const Args &args_;
    yang::Context ctx_;
    std::unique_ptr<ocni::tool::Engine> engine_;
    Progress progress_{isatty(STDERR_FILENO) == 1 && !args_.trace};

    static int print(const char *text)
    {
        std::cout << text;
        return Outcome::kOk;
    }

    int operands(size_t want, const char *help)
    {
        if (args_.words.size() != want) {
            std::cerr << help;
            return Outcome::kBadInput;
        }
        return -1;
    }

    int open_context()
    {
        yang::Error e = ctx_.open(yang::default_yang_dir(), args_.yang_dir);
        return e ? report(e) : -1;
    }

    int open_engine()
    {
        ocni::tool::EngineOptions opt;
        opt.store_dir = args_.store;
        opt.plugin_path = yang::plugin_path();
        opt.trace = args_.trace;
        opt.diff = args_.diff;
        opt.change_lines = args_.verbose;
        opt.progress = [this](size_t done) { progress_(done); };
        Outcome why;
        engine_ = ocni::tool::make_engine(ctx_, opt, why);
        return engine_ ? -1 : report(why);
    }

    int load_document(const std::string &name, yang::Model model, yang::Tree &tree)
    {
        std::string text, why;
        if (!read_input(name, text, why))
            return report(Outcome::fail(Outcome::kBadInput, why));
        yang::Error e = yang::read_edit(ctx_, text, format_of(name), model, tree);
        if (e) {
            if (name != "-")
                e.message = name + ": " + e.message;
            return report(e);
        }
        return -1;
    }

    /* An edit's output: the native changes with --verbose, the diff with --diff, then the summary. */
    int finish_edit(const Outcome &o, const std::string &changes)
    {
        progress_.finish();
        if (o.status == Outcome::kOk) {
            const ocni::tool::EditReport &r = engine_->last_report();
            if (args_.verbose)
                std::cout << changes;
            if (args_.diff)
                std::cout << r.diff;
            std::cout << summary_line(r, args_.dry_run);
        }
        return report(o);
    }

    static int finish(const Outcome &o, const std::string &output)
    {
        if (o.status == Outcome::kOk)
            std::cout << output;
        return report(o);
    }

    static yang::Error print_xml(const yang::Tree &tree)
    {
        if (tree && lyd_print_file(stdout, tree.get(), LYD_XML, LYD_PRINT_WITHSIBLINGS) != LY_SUCCESS)
            return yang::Error::internal("cannot print the data tree as XML");
        return yang::Error{};
    }

    int print_tree(const Outcome &o, const yang::Tree &tree)
    {
        if (o.status != Outcome::kOk)
            return report(o);
        /* Streamed to stdout: a large document is never held twice in memory. */
        std::cout.flush();
        yang::Error e = args_.xml ? print_xml(tree) : yang::print_json(tree, stdout);
        fflush(stdout);
        if (e)
            return report(e);
        return Outcome::kOk;
    }

    /* Prints a read as it streams from the store: one JSON document, a batch of routes at a time. */
    struct JsonOut : ocni::tool::ReadSink {
        yang::JsonSplice splice{stdout};
        std::string text;
        Outcome batch(yang::Tree fragment) override
        {
            yang::Error e = yang::print_json(fragment, text);
            if (!e && !splice.add(text))
                e = yang::Error::internal("cannot write the JSON document");
            return e ? Outcome::fail(Outcome::kInternal, e.message) : Outcome::ok();
        }
    };

    int print_stream(const Outcome &o, JsonOut &out)
    {
        progress_.finish();
        std::cout.flush();
        if (o.status != Outcome::kOk) {
            /* What was printed stays a document; the exit status tells it is not all. */
            if (out.splice.started())
                out.splice.finish();
            return report(o);
        }
        if (!out.splice.finish())
            return report(yang::Error::internal("cannot write the JSON document"));
        return Outcome::kOk;
    }

    int edit()
    {
        int rc;
        if ((rc = operands(2, kEditHelp)) >= 0 || (rc = open_context()) >= 0)
            return rc;
        const std::string &name = args_.words[1];
        std::string text, why;
        if (!read_input(name, text, why))
            return report(Outcome::fail(Outcome::kBadInput, why));
        ocni::tool::EditInput input;
        if (yang::Error e = input.read(ctx_, name, text, format_of(name)))
            return report(e);
        if ((rc = open_engine()) >= 0)
            return rc;
        progress_.total(input.routes());
        std::string changes;
        return finish_edit(input.edit(*engine_, args_.dry_run, changes), changes);
    }

    int remove()
    {
        int rc;
        if ((rc = operands(2, kDeleteHelp)) >= 0 || (rc = open_context()) >= 0)
            return rc;
        yang::Tree tree;
        yang::PathTarget target;
        yang::Error e = yang::parse_instance_path(ctx_, args_.words[1], yang::Model::kOpenConfig, tree, target);
        if (e)
            return report(e);
        if ((rc = open_engine()) >= 0)
            return rc;
        /* Deleting what is not there changes nothing, whatever the node, and says so. */
        const std::string nothing = "ocni-map: nothing to delete at " + shown(args_.words[1]) + "\n";
        std::string changes;
        Outcome o = engine_->remove(tree, target, args_.dry_run, changes);
        if (o.status == Outcome::kOk && engine_->last_report().changed_nothing())
            std::cerr << nothing;
        return finish_edit(o, changes);
    }

    /*
     * Stored entries a read leaves out (the model cannot express them) are
     * reported by the mapping as warnings on the system log: the client
     * sees each one on stderr, and the read still succeeds.
     */
    static void print_read_warnings()
    {
        for (const std::string &l : ocni::host::syslog_lines())
            if (l.compare(0, 2, "4:") == 0)
                std::cerr << "ocni-map: warning: " << l.substr(2) << "\n";
    }

    int get()
    {
        int rc;
        if ((rc = operands(1, kGetHelp)) >= 0)
            return rc;
        ocni::tool::ReadFilter filter;
        filter.state = args_.state;
        filter.vrf = args_.vrf;
        filter.prefix = args_.prefix;
        /* A prefix selects by meaning: any text of it reads as its canonical form. */
        if (!args_.prefix.empty() && !yang::canonical_prefix(args_.prefix, filter.prefix))
            return report(Outcome::fail(Outcome::kBadInput, "invalid prefix \"" + args_.prefix + "\""));
        if ((rc = open_context()) >= 0 || (rc = open_engine()) >= 0)
            return rc;
        /* Any VRF the store holds is a filter, whatever its name. */
        if (!args_.vrf.empty() && !vrf_name_problem(args_.vrf).empty() && !engine_->vrf_held(args_.vrf))
            return report(Outcome::fail(Outcome::kBadInput, vrf_name_problem(args_.vrf)));
        /* An unknown VRF is an empty result, said so. */
        if (!args_.vrf.empty() && !ocni::host::is_default_vrf(args_.vrf) && !engine_->vrf_held(args_.vrf))
            std::cerr << "ocni-map: VRF " << shown(args_.vrf) << " does not exist\n";
        ocni::host::syslog_clear();
        if (isatty(STDOUT_FILENO) == 1)
            progress_.off();
        if (!args_.xml) {
            JsonOut out;
            std::cout.flush();
            Outcome o = engine_->get(filter, out);
            print_read_warnings();
            return print_stream(o, out);
        }
        yang::Tree tree;
        Outcome o = engine_->get(filter, tree);
        print_read_warnings();
        return print_tree(o, tree);
    }

    int native()
    {
        int rc;
        const std::vector<std::string> &w = args_.words;
        if (w.size() >= 2 && w[1] == "edit") {
            yang::Tree tree;
            if ((rc = operands(3, kNativeHelp)) >= 0 || (rc = open_context()) >= 0 ||
                (rc = load_document(w[2], yang::Model::kNative, tree)) >= 0 || (rc = open_engine()) >= 0)
                return rc;
            std::string changes;
            Outcome o = engine_->native_edit(tree, args_.dry_run, changes);
            return finish_edit(o, changes);
        }
        if ((rc = operands(1, kNativeHelp)) >= 0 || (rc = open_context()) >= 0 || (rc = open_engine()) >= 0)
            return rc;
        if (args_.xml) {
            yang::Tree tree;
            Outcome o = engine_->native_get(tree);
            return print_tree(o, tree);
        }
        JsonOut out;
        std::cout.flush();
        if (isatty(STDOUT_FILENO) == 1)
            progress_.off();
        return print_stream(engine_->native_get(out), out);
    }

    int vrf()
    {
        int rc;
        const std::vector<std::string> &w = args_.words;
        if (w.size() < 2) {
            std::cerr << kVrfHelp;
            return Outcome::kBadInput;
        }
        if (w[1] == "list") {
            if ((rc = operands(2, kVrfHelp)) >= 0 || (rc = open_context()) >= 0 || (rc = open_engine()) >= 0)
                return rc;
            std::vector<std::string> names;
            Outcome o = engine_->vrf_list(names);
            std::string out;
            for (const std::string &n : names)
                out += n + "\n";
            return finish(o, out);
        }
        if (w[1] != "add" && w[1] != "delete")
            return usage_error("unknown vrf command " + w[1]);
        if ((rc = operands(3, kVrfHelp)) >= 0)
            return rc;
        if (!vrf_name_problem(w[2]).empty())
            return report(Outcome::fail(Outcome::kBadInput, vrf_name_problem(w[2])));
        if ((rc = open_context()) >= 0 || (rc = open_engine()) >= 0)
            return rc;
        if (w[1] == "add") {
            bool created = false;
            Outcome o = engine_->vrf_add(w[2], created);
            return finish(o, "VRF " + shown(w[2]) + (created ? " created\n" : " exists already: nothing changed\n"));
        }
        size_t routes = 0;
        Outcome o = engine_->vrf_delete(w[2], args_.with_routes, routes);
        return finish(o, "VRF " + shown(w[2]) + " deleted" +
                             (routes ? " with its " + count_of(routes, "static route") : std::string()) + "\n");
    }

    int store()
    {
        int rc;
        const std::vector<std::string> &w = args_.words;
        if (w.size() < 2 || w[1] != "upgrade" || (rc = operands(2, kStoreHelp)) >= 0) {
            std::cerr << kStoreHelp;
            return Outcome::kBadInput;
        }
        size_t routes = 0;
        Outcome o = ocni::tool::upgrade_store(args_.store, routes);
        return finish(o, o.status == Outcome::kOk ? "upgraded " + std::to_string(routes) + " routes\n" : "");
    }
};

}  // namespace

int main(int argc, char **argv)
{
    Args args;
    int rc = parse_args(argc, argv, args);
    if (rc >= 0)
        return rc;
    g_details = args.verbose;
    try {
        return Command(args).run();
    } catch (const std::exception &e) {
        std::cerr << "ocni-map: error: " << e.what() << "\n";
        return Outcome::kInternal;
    }
}
