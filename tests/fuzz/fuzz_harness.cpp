#include "fuzz_harness.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unordered_set>

#include "host/store.h"

namespace ocni::fuzz {

namespace {

/* Inputs served by one in-memory store before it starts again from the seed. */
constexpr unsigned kStoreLife = 2000;

/* The routes every fresh store starts with, so edits meet existing next hops and VRFs. */
const char kSeed[] = R"({"openconfig-network-instance:network-instances":{"network-instance":[
{"name":"default","protocols":{"protocol":[{"identifier":"openconfig-policy-types:STATIC","name":"DEFAULT",
"static-routes":{"static":[{"prefix":"10.1.0.0/16","config":{"prefix":"10.1.0.0/16","set-tag":7},
"next-hops":{"next-hop":[{"index":"1","config":{"index":"1","next-hop":"192.0.2.1","metric":3}},
{"index":"2","config":{"index":"2","next-hop":"openconfig-local-routing:DROP"}}]}}]}}]}},
{"name":"red","protocols":{"protocol":[{"identifier":"openconfig-policy-types:STATIC","name":"DEFAULT",
"static-routes":{"static":[{"prefix":"2001:db8::/32","config":{"prefix":"2001:db8::/32"},
"next-hops":{"next-hop":[{"index":"a","config":{"index":"a","next-hop":"2001:db8::1"},
"interface-ref":{"config":{"interface":"GigabitEthernet0/0/0/1"}}}]}}]}}]}}]}})";

struct State {
    std::unique_ptr<tool::Engine> engine;
    unsigned served = 0;
    std::string snapshot; /* every store key and value, after the last request */
    /* Store contents whose reads were seen to succeed: the reads depend on nothing else. */
    std::unordered_set<std::string> readable;
};

[[noreturn]] void broken(const char *what, const tool::Outcome &o)
{
    fprintf(stderr, "fuzz property broken: %s (status %d: %s)\n", what, o.status, o.message.c_str());
    abort();
}

std::string store_contents()
{
    std::string all;
    ocni::host::store_engine()->scan("", "\xff\xff", [&](const std::string &k, const std::string &v) {
        all += k;
        all += '\0';
        all += v;
        all += '\0';
        return true;
    });
    return all;
}

void fresh_store(State &s)
{
    s.engine.reset();
    tool::EngineOptions opt;
    opt.store_dir = "(memory)";
    opt.plugin_path = OCNI_FUZZ_PLUGIN_PATH;
    tool::Outcome why;
    s.engine = tool::make_engine(context(), ocni::host::make_memory_engine(), opt, why);
    if (!s.engine)
        broken("cannot open a fresh store", why);
    for (const char *vrf : {"red", "r.d"})
        if (s.engine->vrf_add(vrf).status != tool::Outcome::kOk)
            broken("cannot add the seed VRFs", tool::Outcome{});
    yang::Tree seed;
    if (yang::parse_fragment(context(), kSeed, yang::Format::kJson, yang::Model::kOpenConfig, seed))
        broken("the seed edit does not parse", tool::Outcome{});
    std::string changes;
    tool::Outcome o = s.engine->edit(seed, false, changes);
    if (o.status != tool::Outcome::kOk)
        broken("the seed edit fails", o);
    s.snapshot = store_contents();
    s.served = 0;
    s.readable.clear();
}

State *g_state = nullptr;

void remove_store()
{
    g_state->engine.reset();
}

State &state()
{
    if (g_state == nullptr) {
        /*
         * Each engine loads and unloads the plug-in; held open here, its
         * coverage counters stay mapped for the fuzzer between engines.
         */
        if (dlopen(OCNI_FUZZ_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE) == nullptr)
            abort();
        g_state = new State;
        fresh_store(*g_state);
        atexit(remove_store);
    }
    return *g_state;
}

} // namespace

const yang::Context &context()
{
    static yang::Context *ctx = [] {
        auto *c = new yang::Context;
        if (c->open(yang::default_yang_dir()))
            abort();
        return c;
    }();
    return *ctx;
}

void run_request(const std::function<tool::Outcome(tool::Engine &)> &request)
{
    State &s = state();
    if (++s.served > kStoreLife)
        fresh_store(s);
    tool::Outcome o = request(*s.engine);
    std::string now = store_contents();
    if (o.status != tool::Outcome::kOk) {
        if (now != s.snapshot)
            broken("a failed request changed the store", o);
        return;
    }
    s.snapshot = std::move(now);
    if (!s.readable.insert(s.snapshot).second)
        return;
    yang::Tree native, config, state_tree;
    tool::Outcome r = s.engine->native_get(native);
    if (r.status != tool::Outcome::kOk)
        broken("native fails after an accepted request", r);
    tool::ReadFilter all;
    if ((r = s.engine->get(all, config)).status != tool::Outcome::kOk)
        broken("get fails after an accepted request", r);
    all.state = true;
    if ((r = s.engine->get(all, state_tree)).status != tool::Outcome::kOk)
        broken("get --state fails after an accepted request", r);
    std::string text;
    if (yang::print_json(native, text) || yang::print_json(config, text) || yang::print_json(state_tree, text))
        broken("an accepted configuration does not print", tool::Outcome{});
}

}  // namespace ocni::fuzz
