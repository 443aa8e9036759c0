/*
 * Store initialisation when the store's client library is missing: every
 * store user fails with 0x8081c200 and tries again on its next call. The
 * plug-in twin built for this checks a file that no build creates; the
 * test creates it to make the library "appear".
 */
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/store.h"
#include "host/store_layout.h"
#include "host_fixture.h"
#include "tree_builder.h"
#include "ymap_ocni_openconfig_local_routing_man_util.h"

using namespace ocni::test;
namespace host = ocni::host;

namespace {

class InitRetry : public HostFixture {
protected:
    void SetUp() override
    {
        const char *bin = getenv("OCNI_BINARY_DIR");
        ASSERT_NE(bin, nullptr) << "OCNI_BINARY_DIR not set (run through ctest)";
        marker = std::string(bin) + "/localrouting/nostore/libsysdb.so";
        mkdir((std::string(bin) + "/localrouting/nostore").c_str(), 0755);
        std::remove(marker.c_str());
        ASSERT_NE(access(marker.c_str(), F_OK), 0);
        dl = dlopen((std::string(bin) + "/localrouting/libocni_localrouting_nostore.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(dl, nullptr) << dlerror();
    }
    void TearDown() override
    {
        std::remove(marker.c_str());
        if (dl != nullptr)
            dlclose(dl);
    }
    template <typename T> T sym(const char *name)
    {
        void *p = dlsym(dl, name);
        EXPECT_NE(p, nullptr) << name;
        return reinterpret_cast<T>(p);
    }
    std::string marker;
    void *dl = nullptr;
};

TEST_F(InitRetry, EveryStoreUserFailsUntilTheLibraryAppears)
{
    using LookupFn = cerrno (*)(yfw_map_ctx *, const zidl_yfw_datatree *, zidl_yfw_datatree *);
    const auto init = sym<cerrno (*)()>("ocni_yfw_ipstatic_init");
    const auto vrf_exists = sym<cerrno (*)(yfw_map_ctx *, uint8_t *)>("ocni_yfw_ipstatic_vrf_exists");
    const auto index_lookup = sym<LookupFn>("ocni_do_index_lookup_on_sysdb");
    const auto fan_out = sym<LookupFn>("ocni_do_prefix_lookup_on_sysdb_and_set_tag");
    const auto get_tag = sym<cerrno (*)(yfw_map_ctx *)>("ocni_do_sysdb_lookup_and_get_tag");
    const auto init_done = sym<uint32_t *>("ocni_ipstatic_init_done");
    ASSERT_NE(init_done, &ocni_ipstatic_init_done) << "twin shares the main library's state";

    host::store_reset();
    host::NativeNextHop n;
    n.prefix = "10.0.0.0", n.prefix_length = 24, n.interface = "Gi0", n.tag = 1, n.index = "1";
    ASSERT_EQ(host::store_write_next_hop(n), 0u);
    host::store_add_vrf("blue");
    h.logging(true, true);
    auto *rec = static_cast<ocni_route_common_data *>(wos_named_calloc_(sizeof(ocni_route_common_data), 1, OCNI_TAG_MAP));
    h.rc->common_data_ptr = rec;
    char prefix[] = "10.0.0.0/24";
    rec->prefix = prefix, rec->is_ipv4 = 1, rec->tag_mode = 1;
    TreePtr in = build_tree("/next-hops/next-hop[index=1]/config/index = 1\n", OCNI_NS_OC_NI);
    const zidl_yfw_datatree *entry = host::tree_find(in.get(), "/next-hops/next-hop[index=1]");

    const size_t binds = host::store_bind_count();
    for (int round = 0; round < 2; round++) {
        SCOPED_TRACE(round);
        EXPECT_EQ(init(), OCNI_RC_INIT_FAILED);
        uint8_t flag = 5;
        h.set_vrf("blue");
        EXPECT_EQ(vrf_exists(h.ctx, &flag), OCNI_RC_INIT_FAILED);
        EXPECT_EQ(flag, 5);
        h.set_vrf("default");
        h.clear_traces();
        EXPECT_EQ(index_lookup(h.ctx, entry, h.out), OCNI_RC_INIT_FAILED);
        EXPECT_EQ(h.log_lines().back(), "TRC: YFW: ctx=" + h.ctx_text() + ", ocni_yfw_ipstatic_init failed :(" +
                                            cerr_strerror(OCNI_RC_INIT_FAILED) + ")\n");
        EXPECT_EQ(fan_out(h.ctx, entry, h.out), OCNI_RC_INIT_FAILED);
        EXPECT_EQ(get_tag(h.ctx), OCNI_RC_INIT_FAILED);
        EXPECT_EQ(*init_done, 0u);
    }
    EXPECT_EQ(host::store_bind_count(), binds); /* nothing was bound */
    EXPECT_EQ(rec->index_found, 0u);
    EXPECT_STREQ(rec->set_tag, "");
    EXPECT_TRUE(h.out_lines().empty());

    FILE *f = std::fopen(marker.c_str(), "w");
    ASSERT_NE(f, nullptr) << marker;
    std::fclose(f);
    uint8_t flag = 0;
    h.set_vrf("blue");
    EXPECT_EQ(vrf_exists(h.ctx, &flag), 0u);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(*init_done, 1u);
    EXPECT_EQ(host::store_bind_count(), binds + 2);

    /* once seen, the library is not looked for again */
    std::remove(marker.c_str());
    EXPECT_EQ(init(), 0u);
    h.set_vrf("default");
    EXPECT_EQ(index_lookup(h.ctx, entry, h.out), 0u);
    EXPECT_EQ(rec->index_found, 1u);
    EXPECT_STREQ(rec->native_interface, "Gi0");
    EXPECT_EQ(get_tag(h.ctx), 0u);
    EXPECT_STREQ(rec->set_tag, "1"); /* a stored tag of 1 is a tag too */
    host::NativeNextHop keyed = n; /* a route whose only next hop has a third key part: no tag, and no failure */
    keyed.prefix = "10.0.1.0", keyed.third = "k";
    ASSERT_EQ(host::store_write_next_hop(keyed), 0u);
    char keyed_route[] = "10.0.1.0/24";
    rec->prefix = keyed_route, rec->set_tag[0] = '\0';
    EXPECT_EQ(get_tag(h.ctx), 0u);
    EXPECT_STREQ(rec->set_tag, "");
    char no_address[] = "300.0.0.0/24";
    rec->prefix = no_address;
    EXPECT_EQ(get_tag(h.ctx), OCNI_RC_ALL_ONES);
}

} // namespace
