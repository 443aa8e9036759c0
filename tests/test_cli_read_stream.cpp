/*
 * Streamed reads print what the whole tree prints and hold one batch of
 * trees; edits walked in parts store what the whole edit stores.
 */
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "docs.h"
#include "engine_fixture.h"
#include "host/tree.h"
#include "json_splice.h"

using namespace ocni::test;
using ocni::tool::Outcome;
namespace yang = ocni::yang;

namespace {

/* Native document of `n` routes in `vrf`, every next hop with a tag. */
std::string many_routes(const std::string &vrf, int n)
{
    return native_doc(vrf, 4, native_routes(n, ",\"tag\":5"));
}

/* OpenConfig document of one static route with one next hop. */
std::string one_route(const std::string &ni, const std::string &prefix, const std::string &hop,
                      const std::string &config = "")
{
    return oc_doc(ni, oc_route(prefix, oc_hop("1", hop), config));
}

class ReadStream : public EngineFixture {
protected:
    void SetUp() override
    {
        EngineFixture::SetUp();
        for (const char *v : {"a-vrf", "red", "zz"})
            ASSERT_EQ(engine_->vrf_add(v).status, Outcome::kOk);
    }
    void reopen(size_t batch, const std::string &dir = "", size_t edit_part = 1024)
    {
        EngineFixture::reopen([&](ocni::tool::EngineOptions &opt) {
            if (!dir.empty())
                opt.store_dir = dir;
            opt.read_batch = batch;
            opt.edit_part = edit_part;
        });
    }
    void apply(const std::string &text, yang::Model model = yang::Model::kOpenConfig)
    {
        Outcome o = EngineFixture::apply(text, model);
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
};

TEST_F(ReadStream, BatchesPrintTheDocumentTheWholeTreePrints)
{
    const struct { const char *what; bool native; ocni::tool::ReadFilter filter; } rows[] = {
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
    apply(one_route("default", "10.1.0.0/16", "192.0.2.1", R"(,"set-tag":100,"description":"east")"));
    apply(one_route("default", "2001:db8::/48", "openconfig-local-routing:DROP", R"(,"description":"hole")"));
    for (const char *ni : {"a-vrf", "red", "zz"}) {
        apply(one_route(ni, "10.1.0.0/16", "192.0.2.9", R"(,"set-tag":7)"));
        apply(one_route(ni, "2001:db8:1::/64", "2001:db8::1"));
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

/*
 * An edit walked a part of its routes at a time, and a large input read a
 * chunk of routes at a time, store what the whole input stores and report
 * the same changes, wherever parts and chunks end.
 */
TEST_F(ReadStream, EditsInPartsAndChunksStoreWhatOneWholeEditStores)
{
    std::string statics;
    for (int i = 0; i < 7; ++i)
        statics += std::string(i ? "," : "") + oc_route("10.9." + std::to_string(i) + ".0/24",
                                                        oc_hop("1", "192.0.2." + std::to_string(i + 1)),
                                                        i == 3 ? ",\"set-tag\":77" : "");
    const std::string doc = oc_instances(oc_instance("default", statics) + "," + oc_instance("red", statics) + "," +
                                         oc_instance("new", statics, ",\"config\":{\"name\":\"new\"}"));
    auto edit = [&](const std::string &text, size_t chunk, std::string &changes) {
        ocni::tool::EditInput input;
        yang::Error e = input.read(ctx_, "-", text, yang::Format::kJson, chunk);
        return e ? Outcome::fail(Outcome::kBadInput, e.message) : input.edit(*engine_, false, changes);
    };
    std::string first;
    const std::pair<size_t, size_t> runs[] = {{1, 0}, {3, 0}, {1024, 0}, {1024, 2}, {3, 5}, {1, 1}};
    for (const auto &run : runs) {
        SCOPED_TRACE("parts of " + std::to_string(run.first) + ", chunks of " + std::to_string(run.second));
        std::string dir = dir_ + "/p" + std::to_string(run.first) + "c" + std::to_string(run.second);
        ASSERT_EQ(std::system(("mkdir -p '" + dir + "'").c_str()), 0);
        reopen(1024, dir, run.first);
        ASSERT_EQ(engine_->vrf_add("red").status, Outcome::kOk);
        apply(one_route("red", "10.9.5.0/24", "192.0.2.99", R"(,"set-tag":5)"));
        std::string changes;
        Outcome o = edit(doc, run.second, changes);
        ASSERT_EQ(o.status, Outcome::kOk) << o.message;
        const ocni::tool::EditReport &r = engine_->last_report();
        EXPECT_EQ(r.routes_created, 20u);
        const std::string got = changes + std::to_string(r.routes_changed) + "/" + std::to_string(r.nh_created) + "/" +
                                std::to_string(r.vrfs_created.size()) + "\n" + whole(nullptr);
        if (first.empty())
            first = got;
        EXPECT_EQ(got, first);
        /* A refusal in the last part or chunk stores nothing of those before it. */
        const std::string stored = whole(nullptr);
        std::string late = doc;
        late.replace(late.rfind("192.0.2.7"), 9, "openconfig-local-routing:LOCAL_LINK");
        for (size_t at; (at = late.find("10.9.")) != std::string::npos;)
            late.replace(at, 5, "10.8.");
        EXPECT_EQ(edit(late, run.second, changes).status, Outcome::kRefused);
        EXPECT_EQ(whole(nullptr), stored);
        /* So does one in the first, while later chunks are being parsed. */
        late.replace(late.find("192.0.2.1"), 9, "openconfig-local-routing:LOCAL_LINK");
        EXPECT_EQ(edit(late, run.second, changes).status, Outcome::kRefused);
        EXPECT_EQ(whole(nullptr), stored);
    }
}
