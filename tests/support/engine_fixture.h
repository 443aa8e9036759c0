/*
 * The engine ocni-map and the NETCONF server share, on a scratch store:
 * documents applied as the command line applies them, and the reads after.
 */
#ifndef OCNI_TEST_ENGINE_FIXTURE_H
#define OCNI_TEST_ENGINE_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "input_checks.h"
#include "ocni_map_engine.h"
#include "walker_fixture.h"
#include "yang_context.h"

namespace ocni::test {

class EngineFixture : public ::testing::Test {
protected:
    using Outcome = ocni::tool::Outcome;

    void SetUp() override
    {
        char tmpl[] = "/dev/shm/ocni-engine-test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        ASSERT_FALSE(ctx_.open(yang::default_yang_dir()));
        reopen();
    }
    void TearDown() override
    {
        engine_.reset();
        EXPECT_EQ(std::system(("rm -rf '" + dir_ + "'").c_str()), 0);
    }
    /* A new engine on the store, with options changed by `tweak`. */
    void reopen(const std::function<void(ocni::tool::EngineOptions &)> &tweak = {})
    {
        engine_.reset();
        ocni::tool::EngineOptions opt;
        opt.store_dir = dir_;
        opt.plugin_path = plugin_library_path();
        if (tweak)
            tweak(opt);
        Outcome why;
        engine_ = ocni::tool::make_engine(ctx_, opt, why);
        ASSERT_NE(engine_, nullptr) << why.message;
    }
    /* A document as `ocni-map edit` (or `native edit`) takes it. */
    Outcome apply(const std::string &text, yang::Model model = yang::Model::kOpenConfig)
    {
        yang::Tree tree;
        if (yang::Error e = yang::read_edit(ctx_, text, yang::Format::kJson, model, tree))
            return Outcome::fail(e.kind == yang::Error::kInput ? Outcome::kBadInput : Outcome::kInternal, e.message);
        std::string changes;
        return model == yang::Model::kNative ? engine_->native_edit(tree, false, changes)
                                             : engine_->edit(tree, false, changes);
    }
    /* The native configuration as printed; "" when it cannot be read. */
    std::string native_text()
    {
        yang::Tree t;
        std::string out;
        if (engine_->native_get(t).status != Outcome::kOk || yang::print_json(t, out))
            return "";
        return out;
    }
    /* "" when native, get and get --state all succeed, else the first failure. */
    std::string reads()
    {
        if (native_text().empty())
            return "native fails";
        for (bool state : {false, true}) {
            ocni::tool::ReadFilter f;
            f.state = state;
            yang::Tree t;
            Outcome o = engine_->get(f, t);
            if (o.status != Outcome::kOk)
                return std::string(state ? "get --state" : "get") + " fails: " + o.message;
        }
        return "";
    }

    std::string dir_;
    yang::Context ctx_;
    std::unique_ptr<ocni::tool::Engine> engine_;
};

} // namespace ocni::test

#endif
