/*
 * State direction: operational answers under "/ocni/vrfipv4" and
 * "/ocni/vrfipv6" mapped back into OpenConfig state, walked through the
 * host the way the framework walks an answer (parents before children,
 * key leaves first, one call per bound node), for both families.
 */
#include <dlfcn.h>

#include <algorithm>
#include <string>

#include "host/registration.h"
#include "host_fixture.h"
#include "tree_builder.h"
#include "ymap_ocni_velmar_orn_qz_ocni_local_routing_oper_man.h"

using namespace ocni::test;
using ocni::host::BindingIndex;
using ocni::host::CallbackKind;
using ocni::host::DumpOptions;
using ocni::host::Model;

namespace {

struct FamilyCase {
    const char *name;
    ocni::host::Family family;
    const char *af;         /* operational branch */
    const char *oper_pfx;   /* operational prefix key */
    const char *oc_pfx;     /* the same prefix in OpenConfig */
    const char *other_oper; /* a second prefix */
    const char *other_oc;
};

void PrintTo(const FamilyCase &f, std::ostream *os)
{
    *os << f.name;
}

const FamilyCase FAMILIES[] = {
    {"ipv4", ocni::host::Family::IPv4, "vrfipv4", "10.1.0.0_16", "10.1.0.0/16", "10.2.0.0_16",
     "10.2.0.0/16"},
    {"ipv6", ocni::host::Family::IPv6, "vrfipv6", "fd00:1::_64", "fd00:1::/64", "fd00:2::_64",
     "fd00:2::/64"},
};

const char OC_NH_LIST[] =
    "/network-instances/network-instance/protocols/protocol/static-routes/static/next-hops/next-hop";
const char OC_STATIC_LIST[] = "/network-instances/network-instance/protocols/protocol/static-routes/static";

std::string subst(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::string repeat(const std::string &s, int n)
{
    std::string r;
    while (n-- > 0)
        r += s;
    return r;
}

class StateReverse : public ::testing::TestWithParam<FamilyCase> {
protected:
    void SetUp() override
    {
        h.reset(YFW_REQ_READ_STATE);
        h.logging(true, true);
    }

    /* Answer literal with $AF, $P (prefix key) and $Q (second prefix key) filled in. */
    std::string answer(const std::string &text) const
    {
        const FamilyCase &f = GetParam();
        return subst(subst(subst(text, "$AF", f.af), "$P", f.oper_pfx), "$Q", f.other_oper);
    }
    /* Expected OpenConfig lines with $P and $Q as OpenConfig prefixes. */
    Lines expect(Lines lines) const
    {
        const FamilyCase &f = GetParam();
        for (std::string &l : lines)
            l = subst(subst(l, "$P", f.oc_pfx), "$Q", f.other_oc);
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    /* Exported member of this family: "ymap_ocni_lr_<family>_<suffix>". */
    template <typename Fn> Fn member(const std::string &suffix) const
    {
        std::string name = std::string("ymap_ocni_lr_") + GetParam().name + "_" + suffix;
        void *sym = dlsym(RTLD_DEFAULT, name.c_str());
        EXPECT_NE(sym, nullptr) << name;
        return reinterpret_cast<Fn>(sym);
    }

    /* Calls every operational binding of this family over the answer, as the framework does. */
    void walk(zidl_yfw_datatree *node)
    {
        if (node != nullptr && ocni::host::node_parent(node) != nullptr) {
            const auto *bindings = index.find(ocni::host::node_schema_path(node));
            for (size_t i = 0; bindings != nullptr && i < bindings->size(); ++i) {
                const ocni::host::Binding *b = (*bindings)[i];
                if (b->family != GetParam().family && b->family != ocni::host::Family::Any)
                    continue;
                void *sym = dlsym(RTLD_DEFAULT, b->callback.c_str());
                ASSERT_NE(sym, nullptr) << b->callback;
                cerrno rc = b->kind == CallbackKind::Container
                                ? h.call(reinterpret_cast<ContainerCb>(sym), node, node->n_children != 0)
                                : h.call(reinterpret_cast<LeafCb>(sym), node);
                EXPECT_EQ(rc, 0u) << b->callback;
                called.push_back(b->callback);
            }
        }
        for (uint32_t i = 0; i < node->n_children && node->children[i].name != nullptr; ++i)
            walk(&node->children[i]);
    }

    size_t count(const Lines &lines, const std::string &needle) const
    {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const std::string &l) { return l.find(needle) != std::string::npos; });
    }

    HostHarness h;
    BindingIndex index{Model::Operational};
    std::vector<std::string> called;
};

const std::string NI = "/ocni/$AF/network-instances/network-instance[name=red]/protocols/protocol/static-routes";
const std::string RT = NI + "/static-route[prefix=$P]";
const std::string NH = RT + "/next-hops/next-hop[index=eth0_1]";
const std::string OC = "/network-instances/network-instance[name=red]/protocols/"
                       "protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=$P]";
const std::string OC_NH = OC + "/next-hops/next-hop[index=eth0/1]";

TEST_P(StateReverse, FullAnswerBecomesOpenConfigState)
{
    TreePtr in = build_tree(answer(RT + "/static-routes-state/prefix = $P\n" +
                                   RT + "/static-routes-state/set-tag = 7\n" +
                                   RT + "/static-routes-state/description = to core\n" +
                                   NH + "/state/index = eth0_1\n" +
                                   NH + "/state/next-hop = 192.0.2.1\n" +
                                   NH + "/state/metric = 5\n" +
                                   NH + "/interface-ref/state/interface = eth0_1_5\n" +
                                   NH + "/interface-ref/state/subinterface = 12\n" +
                                   NH + "/enable-bfd/state/enabled = true\n"));
    zidl_yfw_datatree *nh_key = ocni::host::tree_find(in.get(), answer(NH + "/index").c_str());
    ASSERT_NE(nh_key, nullptr);
    walk(in.get());

    EXPECT_EQ(h.out_lines(), expect({
                                 OC + "/state/prefix = $P",
                                 OC + "/state/set-tag = 7",
                                 OC + "/state/description = to core",
                                 OC_NH + "/state/index = eth0/1",
                                 OC_NH + "/state/next-hop = 192.0.2.1",
                                 OC_NH + "/state/metric = 5",
                                 OC_NH + "/interface-ref/state/interface = eth0/1/5",
                                 OC_NH + "/interface-ref/state/subinterface = 12",
                                 OC_NH + "/enable-bfd/state/enabled = true",
                             }));
    /* 2 containers, 2 entries, 2 keys, 9 leaves */
    EXPECT_EQ(called.size(), 15u) << ::testing::PrintToString(called);
    EXPECT_TRUE(h.err_lines().empty());
    /* The next-hop key is converted where it lies; the leaves keep their text. */
    EXPECT_STREQ(nh_key->value, "eth0/1");
}

/* Each next-hop's leaves, the identity one included, land in its own entry of its own route. */
TEST_P(StateReverse, SeveralRoutesAndNextHopsLandInTheirOwnEntries)
{
    const std::string rt_blue = subst(NI, "red", "blue") + "/static-route[prefix=$Q]";
    AllocWatch w;
    {
        TreePtr in = build_tree(answer(RT + "/next-hops/next-hop[index=1]/state/next-hop = DROP\n" +
                                       RT + "/next-hops/next-hop[index=1]/state/metric = 1\n" +
                                       RT + "/next-hops/next-hop[index=2]/state/next-hop = 192.0.2.2\n" +
                                       RT + "/next-hops/next-hop[index=2]/state/metric = 2\n" +
                                       RT + "/static-routes-state/set-tag = 5\n" +
                                       rt_blue + "/next-hops/next-hop[index=1]/state/next-hop = LOCAL_LINK\n" +
                                       rt_blue + "/static-routes-state/set-tag = 6\n"));
        walk(in.get());
        const std::string oc_blue = subst(subst(OC, "red", "blue"), "$P", "$Q");
        EXPECT_EQ(h.out_lines(), expect({
                                     OC + "/next-hops/next-hop[index=1]/state/next-hop = DROP",
                                     OC + "/next-hops/next-hop[index=1]/state/metric = 1",
                                     OC + "/next-hops/next-hop[index=2]/state/next-hop = 192.0.2.2",
                                     OC + "/next-hops/next-hop[index=2]/state/metric = 2",
                                     OC + "/state/set-tag = 5",
                                     oc_blue + "/next-hops/next-hop[index=1]/state/next-hop = LOCAL_LINK",
                                     oc_blue + "/state/set-tag = 6",
                                 }));
        EXPECT_TRUE(h.err_lines().empty());
    }
    h.reset(YFW_REQ_READ_STATE);
    EXPECT_EQ(w.grown(), 0); /* value namespaces and trim paths go with the request */
}

TEST_P(StateReverse, MissingNetworkInstanceNameMeansDefault)
{
    TreePtr in = build_tree(answer(
        "/ocni/$AF/network-instances/network-instance/protocols/protocol/static-routes/static-route[prefix=$P]"
        "/static-routes-state/set-tag = 9\n"));
    walk(in.get());
    EXPECT_EQ(h.out_lines(), expect({"/network-instances/network-instance[name=default]/protocols/"
                                     "protocol[identifier=STATIC][name=DEFAULT]/static-routes/"
                                     "static[prefix=$P]/state/set-tag = 9"}));
}

TEST_P(StateReverse, StatePrefixKeysItsEntryByItsOwnValue)
{
    TreePtr in = build_tree(answer(RT + "/static-routes-state/prefix = $Q\n"));
    zidl_yfw_datatree *leaf = ocni::host::tree_find(in.get(), answer(RT + "/static-routes-state/prefix").c_str());
    ASSERT_NE(leaf, nullptr);
    EXPECT_EQ(h.call(member<LeafCb>("staticroutes_static_state_prefix_rev"), leaf), 0u);
    EXPECT_EQ(h.out_lines(), expect({subst(OC, "$P", "$Q") + "/state/prefix = $Q"}));
}

/* Values that write nothing, and values that write an empty leaf. */
TEST_P(StateReverse, EmptyValues)
{
    TreePtr in = build_tree(answer(RT + "/static-routes-state/set-tag = \n" +
                                   RT + "/static-routes-state/description = \n" +
                                   NH + "/interface-ref/state/interface = \n" +
                                   NH + "/interface-ref/state/subinterface = \n" +
                                   NH + "/enable-bfd/state/enabled = \n"));
    walk(in.get());
    Lines out = h.out_lines();
    EXPECT_EQ(count(out, "/state/set-tag"), 1u);
    EXPECT_EQ(count(out, "/state/description"), 1u);
    EXPECT_EQ(count(out, "/interface-ref/"), 0u);
    EXPECT_EQ(count(out, "/enable-bfd/"), 0u);
    zidl_yfw_datatree *tag = h.out_node(expect({OC + "/state/set-tag"})[0]);
    ASSERT_NE(tag, nullptr);
    EXPECT_STREQ(tag->value != nullptr ? tag->value : "", "");
}

struct NextHopValue {
    const char *value;
    bool identity; /* written by schema path in the local-routing value namespace */
};

TEST_P(StateReverse, IdentityNextHopsAreLocalRoutingValuesAndKeepTheListContext)
{
    for (const NextHopValue &c : {NextHopValue{"DROP", true}, NextHopValue{"LOCAL_LINK", true},
                                  NextHopValue{"drop", false}, NextHopValue{"192.0.2.9", false}}) {
        SCOPED_TRACE(c.value);
        h.reset(YFW_REQ_READ_STATE);
        TreePtr in = build_tree(answer(NH + "/state/next-hop = " + c.value + "\n"));
        zidl_yfw_datatree *leaf = ocni::host::tree_find(in.get(), answer(NH + "/state/next-hop").c_str());
        ASSERT_NE(leaf, nullptr);
        zidl_yfw_datatree marker{};
        h.rc->current_list = &marker;

        EXPECT_EQ(h.call(member<LeafCb>("staticroutes_static_nexthops_nexthop_state_nexthop_rev"), leaf), 0u);

        zidl_yfw_datatree *written = h.out_node(expect({OC_NH + "/state/next-hop"})[0]);
        ASSERT_NE(written, nullptr);
        EXPECT_STREQ(written->value, c.value);
        if (c.identity) {
            ASSERT_NE(written->data_ns, nullptr);
            EXPECT_STREQ(written->data_ns, OCNI_NS_OC_LR);
            EXPECT_EQ(h.rc->current_list, &marker);
            EXPECT_EQ(h.rc->trim_path, nullptr);
        } else {
            EXPECT_EQ(written->data_ns, nullptr);
            EXPECT_EQ(h.rc->current_list, h.out_node(expect({OC_NH})[0]));
            ASSERT_NE(h.rc->trim_path, nullptr);
            EXPECT_STREQ(h.rc->trim_path, OC_NH_LIST);
        }
    }
}

/* Which node each member leaves as the framework's current list entry. */
TEST_P(StateReverse, ListContextPointsAtTheEntryWorkedOn)
{
    TreePtr in = build_tree(answer(RT + "/static-routes-state/description = d\n" +
                                   NH + "/state/metric = 3\n" +
                                   NH + "/interface-ref/state/interface = \n"));
    auto leaf = [&](const std::string &p) { return ocni::host::tree_find(in.get(), answer(p).c_str()); };

    ASSERT_EQ(h.call(member<LeafCb>("staticroutes_static_nexthops_nexthop_state_metric_rev"),
                     leaf(NH + "/state/metric")), 0u);
    EXPECT_EQ(h.rc->current_list, h.out_node(expect({OC_NH})[0]));
    EXPECT_STREQ(h.rc->trim_path, OC_NH_LIST);

    /* Static leaves leave the node the addition gave back, not the entry. */
    ASSERT_EQ(h.call(member<LeafCb>("staticroutes_static_state_description_rev"),
                     leaf(RT + "/static-routes-state/description")), 0u);
    zidl_yfw_datatree *desc = h.out_node(expect({OC + "/state/description"})[0]);
    ASSERT_NE(desc, nullptr);
    EXPECT_EQ(h.rc->current_list, desc);
    EXPECT_STREQ(h.rc->trim_path, OC_STATIC_LIST);

    /* Members that write no leaf leave it alone. */
    ASSERT_EQ(h.call(member<LeafCb>("nexthops_nexthop_interfaceref_state_interface_rev"),
                     leaf(NH + "/interface-ref/state/interface")), 0u);
    ASSERT_EQ(h.call(member<LeafCb>("staticroutes_static_nexthops_nexthop_index_rev"), leaf(NH + "/index")), 0u);
    EXPECT_EQ(h.rc->current_list, desc);
    EXPECT_STREQ(h.rc->trim_path, OC_STATIC_LIST);
}

TEST_P(StateReverse, MappingTheSameLeafTwiceChangesNothing)
{
    TreePtr in = build_tree(answer(NH + "/state/metric = 4\n" + RT + "/static-routes-state/set-tag = 2\n"));
    zidl_yfw_datatree *metric = ocni::host::tree_find(in.get(), answer(NH + "/state/metric").c_str());
    zidl_yfw_datatree *tag = ocni::host::tree_find(in.get(), answer(RT + "/static-routes-state/set-tag").c_str());
    auto metric_cb = member<LeafCb>("staticroutes_static_nexthops_nexthop_state_metric_rev");
    auto tag_cb = member<LeafCb>("staticroutes_static_state_settag_rev");

    ASSERT_EQ(h.call(metric_cb, metric), 0u);
    ASSERT_EQ(h.call(tag_cb, tag), 0u);
    const Lines first = h.out_lines();
    EXPECT_EQ(count(h.trc_lines(), "default vrf already exists"), 1u); /* static entry, second time */

    h.clear_traces();
    EXPECT_EQ(h.call(metric_cb, metric), 0u);
    /* static entry, next-hop entry and leaf are all there already */
    EXPECT_EQ(count(h.trc_lines(), "default vrf already exists"), 3u);
    h.clear_traces();
    h.ltrace(true);
    EXPECT_EQ(h.call(tag_cb, tag), 0u);
    const std::string c = "TRC: YFW: ctx=" + h.ctx_text() + ",";
    EXPECT_EQ(h.log_lines(), (Lines{c + "Start", c + "default vrf already exists",
                                    c + "default vrf already exists", c + "End"}));
    /* the lightweight trace names the exported member, and the helper that found the entry */
    const std::string self = std::string("ymap_ocni_lr_") + GetParam().name + "_staticroutes_static_state_settag_rev:";
    Lines lt = h.ltrace_lines();
    ASSERT_EQ(lt.size(), 4u);
    EXPECT_NE(lt[0].find(self), std::string::npos) << lt[0];
    EXPECT_NE(lt[1].find("ymap_ocni_get_prefix_list:"), std::string::npos) << lt[1];
    EXPECT_NE(lt[3].find(self), std::string::npos) << lt[3];
    EXPECT_EQ(h.out_lines(), first);
    EXPECT_EQ(first, expect({OC_NH + "/state/metric = 4", OC + "/state/set-tag = 2"}));
}

/* The members of one family read the keys of their own branch only. */
TEST_P(StateReverse, KeysComeFromTheMembersOwnBranch)
{
    const bool v4 = GetParam().family == ocni::host::Family::IPv4;
    TreePtr in = build_tree(subst(answer(RT + "/static-routes-state/set-tag = 1\n"), GetParam().af,
                                  v4 ? "vrfipv6" : "vrfipv4"));
    zidl_yfw_datatree *tag = ocni::host::tree_find(
        in.get(), subst(answer(RT + "/static-routes-state/set-tag"), GetParam().af, v4 ? "vrfipv6" : "vrfipv4").c_str());
    ASSERT_NE(tag, nullptr);
    EXPECT_EQ(h.call(member<LeafCb>("staticroutes_static_state_settag_rev"), tag), 0u);
    /* no network instance, no prefix found in this family's branch */
    EXPECT_EQ(h.out_lines(), (Lines{"/network-instances/network-instance[name=default]/protocols/"
                                    "protocol[identifier=STATIC][name=DEFAULT]/static-routes/static[prefix=]"
                                    "/state/set-tag = 1"}));
}

/* Converted copies live in fixed buffers: over-long values are cut, never overrun. */
TEST_P(StateReverse, OverlongValuesAreCut)
{
    const std::string rt = NI + "/static-route[prefix=" + repeat("1_", 100) + "]";
    const std::string nh = rt + "/next-hops/next-hop[index=" + repeat("a_", 150) + "]";
    TreePtr in = build_tree(answer(nh + "/state/index = " + repeat("a_", 150) + "\n" + nh +
                                   "/interface-ref/state/interface = " + repeat("e_", 60) + "\n"));
    walk(in.get());

    Lines out = h.out_lines();
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(count(out, "/state/index = " + repeat("a/", 150).substr(0, 255)), 1u);
    EXPECT_EQ(count(out, "/interface-ref/state/interface = " + repeat("e/", 60).substr(0, 99)), 1u);
    EXPECT_EQ(count(out, "/static[prefix=" + repeat("1/", 100).substr(0, 127) + "]/"), 2u);
}

TEST_P(StateReverse, ContainersAreAddedOnlyWithoutSubtrees)
{
    TreePtr in = build_tree(answer(NI + "\n" + RT + "/next-hops\n"));
    const struct {
        const char *suffix;
        std::string node;
        const char *oc_last;
    } rows[] = {
        {"staticroutes_rev", NI, "static-routes"},
        {"staticroutes_static_nexthops_rev", RT + "/next-hops", "next-hops"},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.suffix);
        zidl_yfw_datatree *node = ocni::host::tree_find(in.get(), answer(r.node).c_str());
        ASSERT_NE(node, nullptr);
        auto cb = member<ContainerCb>(r.suffix);

        h.reset(YFW_REQ_READ_STATE);
        h.logging(true, true);
        EXPECT_EQ(h.call(cb, node, 1u), 0u);
        EXPECT_TRUE(h.out_lines().empty());
        EXPECT_EQ(count(h.trc_lines(), ",No mapping done for this node"), 1u);

        h.clear_traces();
        EXPECT_EQ(h.call(cb, node, 0u), 0u);
        EXPECT_EQ(count(h.trc_lines(), ",No subtrees"), 1u);
        Lines out = h.out_lines();
        ASSERT_EQ(out.size(), 1u);
        const std::string tail = std::string("/") + r.oc_last;
        EXPECT_EQ(out[0].compare(out[0].size() - std::min(out[0].size(), tail.size()), std::string::npos, tail), 0)
            << out[0];
    }
}

/* Missing arguments: error line, error path, no End, YFW_RC_MAP_FAILED, nothing added. */
TEST_P(StateReverse, MissingArgumentsAreRefused)
{
    TreePtr in = build_tree(answer(NH + "/state/metric = 1\n"));
    zidl_yfw_datatree *leaf = ocni::host::tree_find(in.get(), answer(NH + "/state/metric").c_str());
    const struct {
        const char *suffix;
        bool null_in; /* else null out */
    } rows[] = {
        {"staticroutes_static_nexthops_nexthop_state_metric_rev", true},
        {"staticroutes_static_nexthops_nexthop_state_metric_rev", false},
        {"staticroutes_static_state_settag_rev", true},
        {"staticroutes_static_prefix_rev", true},
        {"staticroutes_static_rev", false},
        /* these convert the value before anything else: without it they refuse too */
        {"nexthops_nexthop_interfaceref_state_interface_rev", true},
        {"staticroutes_static_nexthops_nexthop_index_rev", true},
        {"staticroutes_static_nexthops_nexthop_state_index_rev", false},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(std::string(r.suffix) + (r.null_in ? " without in" : " without out"));
        h.reset(YFW_REQ_READ_STATE);
        h.logging(true, true);
        h.enter(leaf);
        auto cb = member<LeafCb>(r.suffix);
        EXPECT_EQ(cb(h.ctx, r.null_in ? nullptr : leaf, r.null_in ? h.out : nullptr), YFW_RC_MAP_FAILED);
        EXPECT_EQ(h.err_lines(), (Lines{"ERR: YFW: ctx=" + h.ctx_text() + ",Invalid arguments passed!"}));
        EXPECT_EQ(h.trc_lines(), (Lines{"TRC: YFW: ctx=" + h.ctx_text() + ",Start"}));
        EXPECT_EQ(h.error_paths().size(), 1u);
        EXPECT_TRUE(h.out_lines().empty());
    }
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, StateReverse, ::testing::ValuesIn(FAMILIES),
                         [](const ::testing::TestParamInfo<FamilyCase> &i) { return std::string(i.param.name); });

} // namespace
