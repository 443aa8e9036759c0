#include "walker_fixture.h"

#include <cstdlib>

#include "host/store.h"
#include "host/tree.h"
#include "ocni_common.h"
#include "tree_builder.h"

using namespace ocni::host;

namespace ocni::test {

std::string plugin_library_path()
{
    const char *bin = std::getenv("OCNI_BINARY_DIR");
    return std::string(bin != nullptr ? bin : ".") + "/localrouting/libocni_localrouting.so";
}

std::string oc_static_routes(const std::string &vrf)
{
    return "/network-instances/network-instance[name=" + vrf +
           "]/protocols/protocol[identifier=STATIC][name=DEFAULT]/static-routes";
}

std::string oc_static(const std::string &vrf, const std::string &prefix)
{
    return oc_static_routes(vrf) + "/static[prefix=" + prefix + "]";
}

void WalkerFixture::SetUp()
{
    store_reset();
    store_scope_each_lookup(false);
    std::string err;
    plugin = Plugin::load(plugin_library_path(), err);
    ASSERT_NE(plugin, nullptr) << err;
    reopen();
}

void WalkerFixture::TearDown()
{
    walker.reset();
    config.reset();
    store_reset();
}

void WalkerFixture::reopen()
{
    walker.reset();
    config.reset();
    config = std::make_unique<NativeConfig>();
    std::string err;
    ASSERT_TRUE(config->open(err)) << err;
    walker = std::make_unique<Walker>(*plugin, *config);
}

EditOutcome WalkerFixture::edit(const std::string &lines, bool dry_run)
{
    return walker->edit(build_tree(lines, OCNI_NS_OC_NI).get(), dry_run);
}

void WalkerFixture::native_edit(const std::string &lines)
{
    EditOutcome r = walker->native_edit(build_tree(lines, OCNI_NS_NATIVE).get(), false, true);
    ASSERT_TRUE(r.result.ok()) << r.result.message;
}

std::vector<std::string> WalkerFixture::native() const
{
    return tree_lines(TreePtr(config->to_tree()).get());
}

std::vector<std::string> WalkerFixture::read(bool state, const std::string &vrf, const std::string &prefix)
{
    ReadRequest req{state, vrf, prefix};
    zidl_yfw_datatree *out = nullptr;
    WalkResult r = walker->read(req, &out);
    EXPECT_TRUE(r.ok()) << rc_text(r.rc) << " " << r.message << " " << r.callback << " " << r.path;
    TreePtr t(out);
    return t ? tree_lines(t.get()) : std::vector<std::string>{};
}

std::vector<std::string> stored_keys_and_values()
{
    std::vector<std::string> all;
    std::unique_ptr<Txn> t = store_engine()->begin_read();
    EXPECT_TRUE(t && t->scan("", "", [&](const std::string &k, const std::string &v) {
        return all.push_back(k + " = " + v), true;
    }) == 0);
    return all;
}

} // namespace ocni::test
