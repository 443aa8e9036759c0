/*
 * Scale: N static routes (N = 10 000 and 100 000) edited, read and read
 * with state through ocni-map's engine, each compared with libyang's own
 * parse of the same document (schema and types; parse and validate as a
 * second yardstick); and one-route commands on a store of N routes
 * (N up to 1 000 000) against the same on an empty store.
 *
 *   ocni_bench --benchmark_counters_tabular=true
 *
 * Every figure is one whole command as a user runs it: edit parses the
 * document, maps it and commits it to a fresh LMDB store; get and
 * get --state read the store, map it and print RFC 7951 JSON. The counter
 * max_rss_MiB is the process's peak resident memory so far.
 */
#include <benchmark/benchmark.h>
#include <libyang/libyang.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "host/route_store.h"
#include "host/store.h"
#include "host/store_lmdb.h"
#include "json_splice.h"
#include "ocni_map_engine.h"
#include "yang_context.h"
#include "yang_data.h"

namespace {

using namespace ocni;

/*
 * A document of `n` routes in the default instance: prefixes 10.a.b.0/24,
 * one next hop each, every fourth with a metric and every tenth with an
 * interface as well.
 */
std::string routes_document(int n)
{
    std::string d;
    d.reserve(static_cast<size_t>(n) * 260);
    d += "{\"openconfig-network-instance:network-instances\":{\"network-instance\":[{\"name\":\"default\","
         "\"config\":{\"name\":\"default\"},"
         "\"protocols\":{\"protocol\":[{\"identifier\":\"openconfig-policy-types:STATIC\",\"name\":\"DEFAULT\","
         "\"config\":{\"identifier\":\"openconfig-policy-types:STATIC\",\"name\":\"DEFAULT\"},"
         "\"static-routes\":{\"static\":[";
    char buf[512];
    for (int i = 0; i < n; ++i) {
        int a = (i >> 8) & 0xff, b = i & 0xff, c = (i >> 16) & 0xff;
        char prefix[32], hop[32];
        snprintf(prefix, sizeof prefix, "%d.%d.%d.0/24", 10 + c, a, b);
        snprintf(hop, sizeof hop, "192.%d.%d.1", 168 + c, a);
        std::string extra;
        if (i % 4 == 0)
            extra += ",\"metric\":" + std::to_string(1 + i % 200);
        snprintf(buf, sizeof buf,
                 "%s{\"prefix\":\"%s\",\"config\":{\"prefix\":\"%s\"},\"next-hops\":{\"next-hop\":[{\"index\":\"1\","
                 "\"config\":{\"index\":\"1\",\"next-hop\":\"%s\"%s}%s}]}}",
                 i ? "," : "", prefix, prefix, hop, extra.c_str(),
                 i % 10 == 0 ? ",\"interface-ref\":{\"config\":{\"interface\":\"GigabitEthernet0/0/0/1\"}}" : "");
        d += buf;
    }
    d += "]}}]}}]}}";
    return d;
}

double max_rss_mib()
{
    struct rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return static_cast<double>(ru.ru_maxrss) / 1024.0;
}

/* Anonymous resident memory now (the store's mapped file pages excluded). */
double anon_mib()
{
    FILE *f = fopen("/proc/self/status", "r");
    char line[256];
    double kib = 0;
    while (f != nullptr && fgets(line, sizeof line, f) != nullptr)
        if (sscanf(line, "RssAnon: %lf", &kib) == 1)
            break;
    if (f != nullptr)
        fclose(f);
    return kib / 1024.0;
}

const yang::Context &context()
{
    static yang::Context *ctx = [] {
        auto *c = new yang::Context;
        yang::Error e = c->open(OCNI_BENCH_YANG_DIR);
        if (e) {
            fprintf(stderr, "YANG modules: %s\n", e.message.c_str());
            exit(1);
        }
        return c;
    }();
    return *ctx;
}

const std::string &document(int n)
{
    static std::string docs[3];
    std::string &d = docs[n >= 1000000 ? 2 : n >= 100000 ? 1 : 0];
    if (d.empty())
        d = routes_document(n);
    return d;
}

std::string fresh_store_dir()
{
    char tmpl[] = "/tmp/ocni-bench-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) {
        perror("mkdtemp");
        exit(1);
    }
    return tmpl;
}

void remove_dir(const std::string &dir)
{
    std::string cmd = "rm -rf '" + dir + "'";
    if (system(cmd.c_str()) != 0)
        fprintf(stderr, "could not remove %s\n", dir.c_str());
}

std::unique_ptr<tool::Engine> open_engine(const std::string &dir, std::function<void(size_t)> progress = nullptr)
{
    tool::EngineOptions o;
    o.progress = std::move(progress);
    o.store_dir = dir;
    o.plugin_path = OCNI_BENCH_PLUGIN;
    o.change_lines = false; /* as ocni-map edit without --verbose */
    tool::Outcome why;
    auto e = tool::make_engine(context(), o, why);
    if (!e) {
        fprintf(stderr, "engine: %s\n", why.message.c_str());
        exit(1);
    }
    return e;
}

/* Parses and edits the document into the engine's store; exits on failure. */
/* As `ocni-map edit` does: the input checks, and a large document a chunk at a time. */
void edit_document(tool::Engine &e, const std::string &doc)
{
    tool::EditInput input;
    yang::Error err = input.read(context(), "-", doc, yang::Format::kJson);
    if (err) {
        fprintf(stderr, "parse: %s\n", err.message.c_str());
        exit(1);
    }
    std::string changes;
    tool::Outcome o = input.edit(e, false, changes);
    if (o.status != tool::Outcome::kOk) {
        fprintf(stderr, "edit: %s\n", o.message.c_str());
        exit(1);
    }
}

/* libyang's parse of the same document with the given parse and validation options. */
void libyang_parse(benchmark::State &state, uint32_t parse_options, uint32_t validate_options)
{
    const std::string &doc = document(static_cast<int>(state.range(0)));
    double peak_anon = 0;
    for (auto _ : state) {
        lyd_node *tree = nullptr;
        LY_ERR rc = lyd_parse_data_mem(context().raw(), doc.c_str(), LYD_JSON, parse_options, validate_options, &tree);
        if (rc != LY_SUCCESS) {
            state.SkipWithError(context().take_errors("libyang refused the document").c_str());
            break;
        }
        peak_anon = std::max(peak_anon, anon_mib()); /* the parsed tree at its largest */
        lyd_free_all(tree);
    }
    state.counters["routes"] = static_cast<double>(state.range(0));
    state.counters["max_rss_MiB"] = max_rss_mib();
    state.counters["peak_anon_MiB"] = peak_anon;
}

/* With the checks the tool makes (schema and types): the yardstick. */
void BM_LibyangParse(benchmark::State &state) { libyang_parse(state, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0); }

/* Parse and validation (informative). */
void BM_LibyangParseValidate(benchmark::State &state)
{
    libyang_parse(state, LYD_PARSE_STRICT | LYD_PARSE_NO_STATE, LYD_VALIDATE_PRESENT);
}

void BM_Edit(benchmark::State &state)
{
    const std::string &doc = document(static_cast<int>(state.range(0)));
    double peak_anon = 0; /* anonymous memory sampled after each batch of the edit and at its end */
    for (auto _ : state) {
        state.PauseTiming();
        std::string dir = fresh_store_dir();
        ocni::host::store_reset();
        auto engine = open_engine(dir, [&](size_t) { peak_anon = std::max(peak_anon, anon_mib()); });
        state.ResumeTiming();
        edit_document(*engine, doc);
        state.PauseTiming();
        engine.reset();
        ocni::host::store_reset();
        remove_dir(dir);
        state.ResumeTiming();
    }
    state.counters["routes"] = static_cast<double>(state.range(0));
    state.counters["max_rss_MiB"] = max_rss_mib();
    state.counters["peak_anon_MiB"] = peak_anon;
}

void get_bench(benchmark::State &state, bool with_state)
{
    std::string dir = fresh_store_dir();
    ocni::host::store_reset();
    /* The store is filled by a child process, so that this process's peak memory is the read's own. */
    pid_t pid = fork();
    if (pid == 0) {
        /* The document too: this process never holds it. */
        auto loader = open_engine(dir);
        edit_document(*loader, document(static_cast<int>(state.range(0))));
        _exit(0);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        state.SkipWithError("filling the store failed");
        return;
    }
    size_t printed = 0;
    double peak_anon = 0; /* anonymous memory sampled after each batch */
    for (auto _ : state) {
        /* A command opens the store afresh, reads, maps and prints. */
        auto engine = open_engine(dir);
        tool::ReadFilter f;
        f.state = with_state;
        /* Printed as the command prints: streamed a batch at a time, here into a byte counter. */
        printed = 0;
        cookie_io_functions_t io{};
        io.write = [](void *c, const char *, size_t n) -> ssize_t {
            *static_cast<size_t *>(c) += n;
            return static_cast<ssize_t>(n);
        };
        FILE *sink = fopencookie(&printed, "w", io);
        if (sink == nullptr) {
            state.SkipWithError("printing failed");
            break;
        }
        struct Printer : tool::ReadSink {
            yang::JsonSplice splice;
            std::string text;
            double peak_anon = 0;
            explicit Printer(FILE *f) : splice(f) {}
            tool::Outcome batch(yang::Tree t) override
            {
                if (yang::print_json(t, text) || !splice.add(text))
                    return tool::Outcome::fail(tool::Outcome::kInternal, "printing failed");
                peak_anon = std::max(peak_anon, anon_mib());
                return tool::Outcome::ok();
            }
        } printer(sink);
        tool::Outcome o = engine->get(f, printer);
        if (o.status != tool::Outcome::kOk || !printer.splice.finish()) {
            state.SkipWithError(o.status != tool::Outcome::kOk ? o.message.c_str() : "printing failed");
            fclose(sink);
            break;
        }
        peak_anon = std::max(peak_anon, printer.peak_anon);
        fclose(sink);
    }
    ocni::host::store_reset();
    remove_dir(dir);
    state.counters["routes"] = static_cast<double>(state.range(0));
    state.counters["json_MiB"] = static_cast<double>(printed) / (1024.0 * 1024.0);
    state.counters["peak_anon_MiB"] = peak_anon;
    state.counters["max_rss_MiB"] = max_rss_mib();
}

void BM_Get(benchmark::State &state) { get_bench(state, false); }

/*
 * A store of `n` routes like the document's (with `n` 0: an empty one),
 * written straight as records by a child process, so that filling a
 * million routes costs seconds and this process's memory stays its own.
 */
bool fill_store(const std::string &dir, int n)
{
    pid_t pid = fork();
    if (pid == 0) {
        std::string err;
        auto e = ocni::host::open_lmdb_engine(dir, err);
        if (!e || !ocni::host::store_check_format(*e, err))
            _exit(1);
        auto w = e->begin_write();
        for (int i = 0; w && i < n; ++i) {
            char prefix[32], hop[32];
            snprintf(prefix, sizeof prefix, "%d.%d.%d.0", 10 + ((i >> 16) & 0xff), (i >> 8) & 0xff, i & 0xff);
            snprintf(hop, sizeof hop, "192.%d.%d.1", 168 + ((i >> 16) & 0xff), (i >> 8) & 0xff);
            ocni::host::RouteKey k{"default", true, prefix, "24"};
            ocni::host::Route r;
            r.next_hops[{ocni::host::NhTable::Address, "", hop}]["index"] = "1";
            if (ocni::host::write_route(*w, ocni::host::route_record_key(k), k, &r) != 0)
                _exit(1);
        }
        _exit(w && w->commit() == 0 ? 0 : 1);
    }
    int status = 0;
    return pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/*
 * One-route commands on a store of N routes: an edit changing one route's
 * metric, and a get of one prefix; each opens the engine afresh, as a
 * command does. anon_MiB: anonymous memory right after the command.
 */
void one_route_bench(benchmark::State &state, bool edit)
{
    const int n = static_cast<int>(state.range(0));
    std::string dir = fresh_store_dir();
    ocni::host::store_reset();
    if (!fill_store(dir, n)) {
        state.SkipWithError("filling the store failed");
        return;
    }
    const std::string one =
        "{\"openconfig-network-instance:network-instances\":{\"network-instance\":[{\"name\":\"default\","
        "\"protocols\":{\"protocol\":[{\"identifier\":\"openconfig-policy-types:STATIC\",\"name\":\"DEFAULT\","
        "\"static-routes\":{\"static\":[{\"prefix\":\"10.0.7.0/24\",\"config\":{\"prefix\":\"10.0.7.0/24\"},"
        "\"next-hops\":{\"next-hop\":[{\"index\":\"1\",\"config\":{\"index\":\"1\",\"next-hop\":\"192.168.0.1\","
        "\"metric\":METRIC}}]}}]}}]}}]}}";
    double anon = 0;
    int round = 0;
    for (auto _ : state) {
        auto engine = open_engine(dir);
        if (edit) {
            std::string doc = one;
            doc.replace(doc.find("METRIC"), 6, std::to_string(1 + round++ % 2));
            edit_document(*engine, doc);
        } else {
            tool::ReadFilter f;
            f.prefix = "10.0.7.0/24";
            yang::Tree out;
            tool::Outcome o = engine->get(f, out);
            if (o.status != tool::Outcome::kOk || (n > 0 && !out)) {
                state.SkipWithError(o.message.c_str());
                break;
            }
        }
        anon = std::max(anon, anon_mib());
    }
    ocni::host::store_reset();
    remove_dir(dir);
    state.counters["routes"] = static_cast<double>(n);
    state.counters["anon_MiB"] = anon;
    state.counters["max_rss_MiB"] = max_rss_mib();
}

void BM_EditOneRoute(benchmark::State &state) { one_route_bench(state, true); }
void BM_GetOnePrefix(benchmark::State &state) { one_route_bench(state, false); }
void BM_GetState(benchmark::State &state) { get_bench(state, true); }

/*
 * With --benchmark_repetitions, a "_min" row joins mean, median and
 * spread: on a shared machine the fastest repetition is the one least
 * disturbed by others.
 */
double fastest(const std::vector<double> &v) { return v.empty() ? 0.0 : *std::min_element(v.begin(), v.end()); }

BENCHMARK(BM_LibyangParse)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime()
    ->ComputeStatistics("min", fastest);
BENCHMARK(BM_LibyangParseValidate)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime()
    ->ComputeStatistics("min", fastest);
BENCHMARK(BM_Edit)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2)
    ->ComputeStatistics("min", fastest);
BENCHMARK(BM_Get)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2)
    ->ComputeStatistics("min", fastest);
BENCHMARK(BM_EditOneRoute)->Arg(0)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)
    ->UseRealTime()->Iterations(5)->ComputeStatistics("min", fastest);
BENCHMARK(BM_GetOnePrefix)->Arg(0)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)
    ->UseRealTime()->Iterations(5)->ComputeStatistics("min", fastest);
BENCHMARK(BM_GetState)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2)
    ->ComputeStatistics("min", fastest);

} // namespace

BENCHMARK_MAIN();
