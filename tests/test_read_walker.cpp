/*
 * Whole reads through the host's walker: a native configuration applied as
 * the router's own command line would, then read as OpenConfig by the
 * plug-in loaded from its shared library.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include "host/native_apply.h"
#include "host/plugin_loader.h"
#include "host/store.h"
#include "host/store_layout.h"
#include "host/tree.h"
#include "host/walker.h"
#include "tree_builder.h"
#include "ocni_common.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

using Lines = std::vector<std::string>;

const std::string NI = "/network-instances/network-instance";
const std::string PROTO = "/protocols/protocol[identifier=STATIC][name=DEFAULT]";

std::string plugin_path()
{
    const char *bin = std::getenv("OCNI_BINARY_DIR");
    return std::string(bin != nullptr ? bin : ".") + "/localrouting/libocni_localrouting.so";
}

class WalkerRead : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string err;
        plugin_ = Plugin::load(plugin_path(), err);
        ASSERT_NE(plugin_, nullptr) << err;
        walker_ = std::make_unique<Walker>(*plugin_, config_);
        std::vector<std::string> changes;
        ASSERT_TRUE(config_.add_vrf("red", changes)); /* native edits name VRFs the router knows */
    }

    /* Applies native configuration lines as the router's command line would. */
    void configure(const std::string &text)
    {
        TreePtr in = build_tree(text, OCNI_NS_NATIVE);
        EditOutcome r = walker_->native_edit(in.get());
        ASSERT_TRUE(r.result.ok()) << r.result.message;
    }

    Lines read(bool state, const std::string &vrf = "")
    {
        ReadRequest req;
        req.state = state;
        req.vrf = vrf;
        zidl_yfw_datatree *out = nullptr;
        WalkResult r = walker_->read(req, &out);
        EXPECT_TRUE(r.ok()) << r.message << " " << r.callback << " " << r.path;
        Lines l = out != nullptr ? tree_lines(out) : Lines{};
        tree_free(out);
        return l;
    }

    void TearDown() override { store_reset(); }

    std::unique_ptr<Plugin> plugin_;
    NativeConfig config_;
    std::unique_ptr<Walker> walker_;
};

TEST_F(WalkerRead, MixedTablesFamiliesAndVrfsReadBackAsOpenConfig)
{
    const std::string d4 =
        "/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
        "vrf-prefix[prefix=192.0.2.0][prefix-length=24]/vrf-route/vrf-next-hop-table/";
    const std::string r6 =
        "/router-static/vrfs/vrf[vrf-name=red]/address-family/vrfipv6/vrf-unicast/vrf-prefixes/"
        "vrf-prefix[prefix=2001:db8::][prefix-length=64]/vrf-route/vrf-next-hop-table/";
    configure(d4 + "vrf-next-hop-next-hop-address[next-hop-address=192.0.2.9]/tag = 10\n" + d4 +
              "vrf-next-hop-interface-name-next-hop-address[interface-name=Gi0/0/0/1.5][next-hop-address=192.0.2.1]"
              "/metric = 4\n" +
              d4 + "vrf-next-hop-interface-name[interface-name=Null0]/index = blackhole\n" + r6 +
              "vrf-next-hop-interface-name[interface-name=Loopback1]/bfd-fast-detect = true\n");

    const std::string s4 = NI + "[name=default]" + PROTO + "/static-routes/static[prefix=192.0.2.0/24]";
    const std::string s6 = NI + "[name=red]" + PROTO + "/static-routes/static[prefix=2001:db8::/64]";
    const std::string a = s4 + "/next-hops/next-hop[index=##192.0.2.9##]";
    const std::string ia = s4 + "/next-hops/next-hop[index=##Gi0/0/0/1.5##192.0.2.1##]";
    const std::string dr = s4 + "/next-hops/next-hop[index=blackhole]";
    const std::string lo = s6 + "/next-hops/next-hop[index=##Loopback1##]";
    const std::string pd = NI + "[name=default]" + PROTO;
    const std::string pr = NI + "[name=red]" + PROTO;
    Lines want = {
        NI + "[name=default]/config/name = default",
        pd + "/config/identifier = STATIC",
        pd + "/config/name = DEFAULT",
        s4 + "/config/prefix = 192.0.2.0/24",
        s4 + "/config/set-tag = 10",
        a + "/config/index = ##192.0.2.9##",
        a + "/config/next-hop = 192.0.2.9",
        ia + "/config/index = ##Gi0/0/0/1.5##192.0.2.1##",
        ia + "/config/metric = 4",
        ia + "/config/next-hop = 192.0.2.1",
        ia + "/interface-ref/config/interface = Gi0/0/0/1",
        ia + "/interface-ref/config/subinterface = 5",
        /* The Null0 next hop's own index replaced "##DROP##". */
        dr + "/config/index = blackhole",
        dr + "/config/next-hop = DROP",
        /* A named VRF gets no network-instance config/name from the read. */
        pr + "/config/identifier = STATIC",
        pr + "/config/name = DEFAULT",
        s6 + "/config/prefix = 2001:db8::/64",
        lo + "/config/index = ##Loopback1##",
        lo + "/config/next-hop = LOCAL_LINK",
        lo + "/enable-bfd/config/enabled = true",
        lo + "/interface-ref/config/interface = Loopback1",
        lo + "/interface-ref/config/subinterface = 0",
    };
    std::sort(want.begin(), want.end());
    EXPECT_EQ(read(false), want);
}

TEST_F(WalkerRead, StateReadAddsProtocolStateAndBfdState)
{
    configure("/router-static/default-vrf/address-family/vrfipv4/vrf-unicast/vrf-prefixes/"
              "vrf-prefix[prefix=198.51.100.0][prefix-length=25]/vrf-route/vrf-next-hop-table/"
              "vrf-next-hop-next-hop-address[next-hop-address=198.51.100.1]/bfd-fast-detect = true\n");
    const Lines lines = read(true);
    const std::string p = NI + "[name=default]" + PROTO;
    const std::string n = p + "/static-routes/static[prefix=198.51.100.0/25]/next-hops/next-hop[index=##198.51.100.1##]";
    for (const std::string &want : {p + "/state/identifier = STATIC", p + "/state/name = DEFAULT",
                                    p + "/state/enabled = true", p + "/state/default-metric = 1",
                                    n + "/enable-bfd/config/enabled = true", n + "/enable-bfd/state/enabled = true"}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), want), lines.end()) << want;
    }
}

TEST_F(WalkerRead, RoutesEditedThroughOpenConfigReadBackUnderTheirIndex)
{
    /* The plug-in asks the VRF store whether the network instance exists. */
    ASSERT_EQ(store_add_vrf("red"), 0u);
    const std::string s = NI + "[name=red]" + PROTO + "/static-routes/static[prefix=172.16.0.0/12]";
    const std::string n = s + "/next-hops/next-hop[index=10]";
    const std::string d = s + "/next-hops/next-hop[index=discard]";
    TreePtr in = build_tree(s + "/config/prefix = 172.16.0.0/12\n" + n + "/config/index = 10\n" + n +
                                "/config/next-hop = 198.51.100.1\n" + n + "/config/metric = 5\n" + n +
                                "/interface-ref/config/interface = GigabitEthernet0/0/0/2\n" + d +
                                "/config/index = discard\n" + d + "/config/next-hop = DROP\n",
                            OCNI_NS_OC_NI);
    EditOutcome r = walker_->edit(in.get());
    ASSERT_TRUE(r.result.ok()) << r.result.message << " " << r.result.callback << " " << r.result.path;

    const Lines lines = read(false, "red");
    for (const std::string &want : {s + "/config/prefix = 172.16.0.0/12", n + "/config/index = 10",
                                    n + "/config/next-hop = 198.51.100.1", n + "/config/metric = 5",
                                    n + "/interface-ref/config/interface = GigabitEthernet0/0/0/2",
                                    n + "/interface-ref/config/subinterface = 0", d + "/config/index = discard",
                                    d + "/config/next-hop = DROP"}) {
        EXPECT_NE(std::find(lines.begin(), lines.end(), want), lines.end()) << want;
    }
    /* No next hop is left under a generated index. */
    for (const std::string &l : lines)
        EXPECT_EQ(l.find("[index=##"), std::string::npos) << l;
}

} // namespace
