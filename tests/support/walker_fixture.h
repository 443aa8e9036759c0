/*
 * End-to-end fixture: the plug-in loaded from its shared library, the
 * walker, and the native configuration in a fresh in-memory store engine.
 * Edits are given as "path = value (op)" lines (tree_builder.h).
 */
#ifndef OCNI_TEST_WALKER_FIXTURE_H
#define OCNI_TEST_WALKER_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/native_apply.h"
#include "host/plugin_loader.h"
#include "host/walker.h"

namespace ocni::test {

/* Path of the built plug-in (OCNI_BINARY_DIR/localrouting/libocni_localrouting.so). */
std::string plugin_library_path();

/* "/network-instances/network-instance[name=VRF]/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes" */
std::string oc_static_routes(const std::string &vrf);
/* Its static entry of a prefix ("10.1.0.0/16"). */
std::string oc_static(const std::string &vrf, const std::string &prefix);

/* Every key of the committed store with its value, raw, in store order. */
std::vector<std::string> stored_keys_and_values();

class WalkerFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /* Maps an OpenConfig edit given as "path = value (op)" lines. */
    ocni::host::EditOutcome edit(const std::string &lines, bool dry_run = false);
    /* Stores native "path = value" lines as the router itself writes them (not gated); asserts success. */
    void native_edit(const std::string &lines);
    /* The native configuration as sorted dump lines. */
    std::vector<std::string> native() const;
    /* The OpenConfig read as sorted dump lines; asserts success. */
    std::vector<std::string> read(bool state = false, const std::string &vrf = "", const std::string &prefix = "");
    /* Reopens the configuration from the store (what a new process would see). */
    void reopen();

    std::unique_ptr<ocni::host::Plugin> plugin;
    std::unique_ptr<ocni::host::NativeConfig> config;
    std::unique_ptr<ocni::host::Walker> walker;
};

} // namespace ocni::test

#endif
