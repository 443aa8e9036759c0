/*
 * Streamed reads: the document printed a batch of routes at a time is the
 * one printing the whole tree gives, wherever batch boundaries fall, and
 * the trees alive during a streamed read stay those of one batch. Edits
 * walked a part at a time store what the whole edit stores.
 */
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/tree.h"
#include "input_checks.h"
#include "json_splice.h"
#include "ocni_map_engine.h"
#include "walker_fixture.h"
#include "yang_context.h"

using ocni::tool::Outcome;
namespace yang = ocni::yang;

namespace {

/* Native document of routes 10.<i/250>.<i%250>.0/24 in `vrf`, every next hop with a tag. */
std::string many_routes(const std::string &vrf, int n)
{
    std::string entries;
    for (int i = 0; i < n; ++i)
        entries += std::string(i ? "," : "") + R"({"prefix":"10.)" + std::to_string(i / 250) + "." +
                   std::to_string(i % 250) + R"(.0","prefix-length":24,"vrf-route":{"vrf-next-hop-table":{)" +
                   R"("vrf-next-hop-next-hop-address":[{"next-hop-address":"192.0.2.1","tag":5}]}}})";
    return R"({"Velmar-ORN-QZ-ip-static-cfg:router-static":{"vrfs":{"vrf":[{"vrf-name":")" + vrf +
           R"(","address-family":{"vrfipv4":{"vrf-unicast":{"vrf-prefixes":{"vrf-prefix":[)" + entries +
           "]}}}}}]}}}";
}

/* OpenConfig document of one static route with one next hop. */
std::string oc_route(const std::string &ni, const std::string &prefix, const std::string &hop,
                     const std::string &config = "")
{
    return R"({"openconfig-network-instance:network-instances":{"network-instance":[{"name":")" + ni +
           R"(","protocols":{"protocol":[{"identifier":"openconfig-policy-types:STATIC","name":"DEFAULT",
           "static-routes":{"static":[{"prefix":")" + prefix + R"(","config":{"prefix":")" + prefix + "\"" + config +
           R"(},"next-hops":{"next-hop":[{"index":"1","config":{"index":"1","next-hop":")" + hop +
           R"("}}]}}]}}]}}]}})";
}

class ReadStream : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/dev/shm/ocni-stream-test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        ASSERT_FALSE(ctx_.open(yang::default_yang_dir()));
        reopen(1024);
        for (const char *v : {"a-vrf", "red", "zz"})
            ASSERT_EQ(engine_->vrf_add(v).status, Outcome::kOk);
    }
    void TearDown() override
    {
        engine_.reset();
        EXPECT_EQ(std::system(("rm -rf '" + dir_ + "'").c_str()), 0);
    }
    void reopen(size_t batch, const std::string &dir = "", size_t edit_part = 1024)
    {
        engine_.reset();
        ocni::tool::EngineOptions opt;
        opt.store_dir = dir.empty() ? dir_ : dir;
        opt.plugin_path = ocni::test::plugin_library_path();
        opt.read_batch = batch;
        opt.edit_part = edit_part;
        Outcome why;
        engine_ = ocni::tool::make_engine(ctx_, opt, why);
        ASSERT_NE(engine_, nullptr) << why.message;
    }
    void apply(const std::string &text, yang::Model model = yang::Model::kOpenConfig)
    {
        yang::Tree tree;
        ASSERT_FALSE(yang::read_edit(ctx_, text, yang::Format::kJson, model, tree)) << text;
        std::string changes;
        Outcome o = model == yang::Model::kNative ? engine_->native_edit(tree, false, changes)
                                                  : engine_->edit(tree, false, changes);
        ASSERT_EQ(o.status, Outcome::kOk) << o.message;
    }

    /* A streamed read printed as ocni-map prints it. */
    struct Printer : ocni::tool::ReadSink {
        char *buf = nullptr;
        size_t len = 0;
        FILE *f = open_memstream(&buf, &len);
        yang::JsonSplice splice{f};
        std::string text;
        ~Printer() override { free(buf); }
        Outcome batch(yang::Tree t) override
        {
            if (yang::print_json(t, text) || !splice.add(text))
                return Outcome::fail(Outcome::kInternal, "cannot print");
            return Outcome::ok();
        }
        std::string done()
        {
            EXPECT_TRUE(splice.finish());
            fclose(f);
            f = nullptr;
            return std::string(buf, len);
        }
    };
    /* Native read when `filter` is null. */
    std::string streamed(const ocni::tool::ReadFilter *filter)
    {
        Printer p;
        Outcome o = filter ? engine_->get(*filter, p) : engine_->native_get(p);
        EXPECT_EQ(o.status, Outcome::kOk) << o.message;
        return p.done();
    }
    std::string whole(const ocni::tool::ReadFilter *filter)
    {
        yang::Tree t;
        std::string out;
        Outcome o = filter ? engine_->get(*filter, t) : engine_->native_get(t);
        EXPECT_EQ(o.status, Outcome::kOk) << o.message;
        EXPECT_FALSE(yang::print_json(t, out));
        return out;
    }

    std::string dir_;
    yang::Context ctx_;
    std::unique_ptr<ocni::tool::Engine> engine_;
};

TEST_F(ReadStream, BatchesPrintTheDocumentTheWholeTreePrints)
{
    const struct {
        const char *what;
        bool native;
        ocni::tool::ReadFilter filter;
    } rows[] = {
        {"native", true, {}}, {"get", false, {}}, {"get --state", false, {true, "", ""}},
        {"get --vrf red", false, {false, "red", ""}}, {"get --state --vrf default", false, {true, "default", ""}},
        {"get --prefix", false, {true, "", "10.1.0.0/16"}},
    };
    /* The whole tree's document, then the streamed one, for batches of 1024, 1 and 3 routes. */
    auto same = [&](const ocni::tool::ReadFilter *f, const char *what) {
        reopen(1024);
        const std::string expected = whole(f);
        for (size_t batch : {1024, 1, 3}) {
            reopen(batch);
            EXPECT_EQ(streamed(f), expected) << what << ", " << batch << " routes a batch";
        }
    };
    same(&rows[1].filter, "empty store");
    apply(oc_route("default", "10.1.0.0/16", "192.0.2.1", R"(,"set-tag":100,"description":"east")"));
    apply(oc_route("default", "2001:db8::/48", "openconfig-local-routing:DROP", R"(,"description":"hole")"));
    for (const char *ni : {"a-vrf", "red", "zz"}) {
        apply(oc_route(ni, "10.1.0.0/16", "192.0.2.9", R"(,"set-tag":7)"));
        apply(oc_route(ni, "2001:db8:1::/64", "2001:db8::1"));
    }
    apply(many_routes("red", 5), yang::Model::kNative);
    for (const auto &r : rows)
        same(r.native ? nullptr : &r.filter, r.what);
}

TEST_F(ReadStream, LiveTreesHoldOneBatchWhateverTheNumberOfRoutes)
{
    /* The most tree nodes alive while reading `routes` routes two at a time, above what was alive before. */
    auto peak = [&](int routes, bool state, bool native) {
        reopen(1024);
        apply(many_routes("red", routes), yang::Model::kNative);
        reopen(2);
        ocni::tool::ReadFilter f;
        f.state = state;
        const size_t before = ocni::host::tree_nodes_live();
        ocni::host::tree_nodes_peak_reset();
        streamed(native ? nullptr : &f);
        return ocni::host::tree_nodes_peak() - before;
    };
    for (int kind = 0; kind < 3; ++kind) { /* native, get, get --state */
        const size_t small = peak(20, kind == 2, kind == 0), large = peak(600, kind == 2, kind == 0);
        EXPECT_GT(small, 0u);
        EXPECT_EQ(large, small) << kind;
    }
}

}  // namespace

/* An edit walked a part of its routes at a time stores what the whole input stores, wherever parts end. */
TEST_F(ReadStream, EditsInPartsStoreWhatOneWholeEditStores)
{
    std::string statics;
    for (int i = 0; i < 7; ++i) {
        std::string p = "10.9." + std::to_string(i) + ".0/24";
        statics += std::string(i ? "," : "") + R"({"prefix":")" + p + R"(","config":{"prefix":")" + p +
                   (i == 3 ? R"(","set-tag":77)" : "\"") + R"(},"next-hops":{"next-hop":[{"index":"1","config":)" +
                   R"({"index":"1","next-hop":"192.0.2.)" + std::to_string(i + 1) + R"("}}]}})";
    }
    auto ni = [&](const std::string &name, const std::string &extra) {
        return R"({"name":")" + name + "\"" + extra + R"(,"protocols":{"protocol":[{"identifier":)" +
               R"("openconfig-policy-types:STATIC","name":"DEFAULT","static-routes":{"static":[)" + statics + "]}}]}}";
    };
    const std::string doc = R"({"openconfig-network-instance:network-instances":{"network-instance":[)" +
                            ni("default", "") + "," + ni("red", "") + "," + ni("new", R"(,"config":{"name":"new"})") +
                            "]}}";
    std::string first;
    for (size_t part : {size_t(1), size_t(3), size_t(1024)}) {
        std::string dir = dir_ + "/p" + std::to_string(part);
        ASSERT_EQ(std::system(("mkdir -p '" + dir + "'").c_str()), 0);
        reopen(1024, dir, part);
        ASSERT_EQ(engine_->vrf_add("red").status, Outcome::kOk);
        apply(oc_route("red", "10.9.5.0/24", "192.0.2.99", R"(,"set-tag":5)"));
        yang::Tree tree;
        ASSERT_FALSE(yang::read_edit(ctx_, doc, yang::Format::kJson, yang::Model::kOpenConfig, tree));
        std::string changes;
        Outcome o = engine_->edit(tree, false, changes);
        ASSERT_EQ(o.status, Outcome::kOk) << part << ": " << o.message;
        const ocni::tool::EditReport &r = engine_->last_report();
        EXPECT_EQ(r.routes_created, 20u) << part;
        const std::string got = changes + std::to_string(r.routes_changed) + "/" + std::to_string(r.nh_created) + "\n" + whole(nullptr);
        if (first.empty())
            first = got;
        EXPECT_EQ(got, first) << "parts of " << part;
        /* A refusal in the last part stores nothing of the parts before it. */
        const std::string stored = whole(nullptr);
        std::string late = doc;
        late.replace(late.rfind("192.0.2.7"), 9, "openconfig-local-routing:LOCAL_LINK");
        for (size_t at; (at = late.find("10.9.")) != std::string::npos;)
            late.replace(at, 5, "10.8.");
        ASSERT_FALSE(yang::read_edit(ctx_, late, yang::Format::kJson, yang::Model::kOpenConfig, tree));
        EXPECT_EQ(engine_->edit(tree, false, changes).status, Outcome::kRefused) << part;
        EXPECT_EQ(whole(nullptr), stored) << part;
    }
}
