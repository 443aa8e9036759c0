/*
 * The read direction, callback by callback: operational answers mapped into
 * OpenConfig state, the native leaves a read asks for, argument checks.
 */
#include <dlfcn.h>

#include <algorithm>
#include <string>

#include "host/registration.h"
#include "host_fixture.h"
#include "ocni_common.h"
#include "tree_builder.h"

using namespace ocni::host;
using namespace ocni::test;

namespace {

const std::string NI = "/network-instances/network-instance";
const std::string PROTO = "/protocols/protocol[identifier=STATIC][name=DEFAULT]";
const std::string VP = "/vrf-unicast/vrf-prefixes/vrf-prefix";
const std::string TBL = "/vrf-route/vrf-next-hop-table/";

std::string proto(const std::string &vrf) { return NI + "[name=" + vrf + "]" + PROTO; }
std::string st(const std::string &vrf, const std::string &prefix)
{
    return proto(vrf) + "/static-routes/static[prefix=" + prefix + "]";
}

std::string subst(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}
Lines sorted(Lines l)
{
    std::sort(l.begin(), l.end());
    return l;
}

template <typename Fn> Fn callback(const std::string &name)
{
    void *fn = dlsym(RTLD_DEFAULT, name.c_str());
    EXPECT_NE(fn, nullptr) << name;
    return reinterpret_cast<Fn>(fn);
}

class ReadRequest : public HostFixture {
protected:
    /* New request with a route record for 10.1.0.0/16 in the default VRF, as the route's callbacks leave it. */
    ocni_route_common_data *record(uint32_t op_type, const char *index)
    {
        h.reset(op_type);
        h.set_vrf("default");
        auto *rec = static_cast<ocni_route_common_data *>(calloc(1, sizeof(ocni_route_common_data)));
        h.rc->common_data_ptr = rec;
        rec->is_ipv4 = 1;
        rec->prefix = const_cast<char *>("10.1.0.0/16");
        rec->index = const_cast<char *>(index);
        rec->vrf_label = OCNI_VRF_LABEL_UNSET;
        return rec;
    }
};

/* --- What an OpenConfig read of a next hop asks the native side for --- */

/*
 * A next hop the store lacks: a read asks for its entry, and for a route description of every next-hop table; an edit
 * writes the description with the entry. On an output nothing can be added to, the failure is reported.
 */
TEST_F(ReadRequest, NewNextHopIsAskedForWithTheRouteDescription)
{
    const struct {
        uint32_t op;
        const char *description, *tag, *metric;
        cerrno rc; /* not 0: on an output that takes nothing */
        const char *msg;
    } cases[] = {{YFW_REQ_READ, "d", "", nullptr, 0, ""}, {YFW_REQ_EDIT, "d", "", nullptr, 0, ""}, {YFW_REQ_READ, "", "", nullptr, 0, ""},
                 {YFW_REQ_EDIT, "d", "", "7", YFW_RC_INVALID_REQUEST, "Invalid request"}, /* the route attributes */
                 {YFW_REQ_READ, "", "5", nullptr, YFW_RC_INVALID_REQUEST, "set-tag configuration is failed"}};
    for (const auto &c : cases) {
        ocni_route_common_data *rec = record(c.op, "x");
        snprintf(rec->description_in, sizeof rec->description_in, "%s", c.description);
        snprintf(rec->set_tag, sizeof rec->set_tag, "%s", c.tag);
        const std::string at = st("default", "10.1.0.0/16") + "/next-hops/next-hop[index=x]";
        TreePtr oc = build_tree(at + "/config/next-hop = 10.0.0.1\n" + (c.metric ? at + "/config/metric = " + c.metric : ""), OCNI_NS_OC_NI);
        zidl_yfw_datatree foreign = {};
        h.enter(tree_find(oc.get(), at.c_str()));
        EXPECT_EQ(callback<LeafCb>("ymap_ox_ocni_openconfiglocalrouting_man_list_lvla_localroutes_nexthops_nexthop")(
                      h.ctx, tree_find(oc.get(), at.c_str()), c.rc ? &foreign : h.out),
                  c.rc);
        EXPECT_EQ(h.user_msg(), c.msg);
        const std::string t = "/router-static/default-vrf/address-family/vrfipv4" + VP + TBL, t6 = subst(t, "ipv4", "ipv6");
        const Lines want = c.rc ? Lines{}
            : c.op == YFW_REQ_EDIT ? Lines{t + "vrf-next-hop-next-hop-address[next-hop-address=10.0.0.1]/description = d (none)"}
            : c.description[0] == '\0' ? Lines{t + "vrf-next-hop-next-hop-address (none)"}
            : Lines{t + "vrf-next-hop-interface-name-next-hop-address/description", t + "vrf-next-hop-interface-name/description",
                    t + "vrf-next-hop-next-hop-address/description", t6 + "vrf-next-hop-interface-name-next-hop-address/description",
                    t6 + "vrf-next-hop-interface-name/description", t6 + "vrf-next-hop-next-hop-address/description"};
        Lines got;
        for (const std::string &l : h.out_lines())
            if (l.find("/description") != std::string::npos || c.description[0] == '\0')
                got.push_back(l);
        EXPECT_EQ(got, want);
    }
}

/* --- Operational answers read as OpenConfig state, for both families --- */

struct FamilyCase {
    const char *name;
    Family family;
    const char *af, *oper_pfx, *oc_pfx;
};

const FamilyCase FAMILIES[] = {
    {"ipv4", Family::IPv4, "vrfipv4", "10.1.0.0_16", "10.1.0.0/16"},
    {"ipv6", Family::IPv6, "vrfipv6", "fd00:1::_64", "fd00:1::/64"},
};

const std::string ONI = "/ocni/$AF/network-instances/network-instance[name=red]/protocols/protocol/static-routes";
const std::string RT = ONI + "/static-route[prefix=$P]";
const std::string NH = RT + "/next-hops/next-hop[index=eth0_1]";
const std::string OC = NI + "[name=red]" + PROTO + "/static-routes/static[prefix=$P]";
const std::string OC_NH = OC + "/next-hops/next-hop[index=eth0/1]";

/* Operational answers walked as the framework walks them: parents first, every binding of the family called. */
class StateRead : public HostFixture, public ::testing::WithParamInterface<FamilyCase> {
protected:
    void SetUp() override { h.reset(YFW_REQ_READ_STATE), h.logging(true, true); }
    /* The operational answer of this family ($AF, $P the prefix key) walked. */
    void walk(const std::string &text)
    {
        input = build_tree(subst(subst(text, "$AF", GetParam().af), "$P", GetParam().oper_pfx));
        visit(input.get());
    }
    /* OpenConfig lines of this family ($P the prefix), sorted. */
    Lines expect(Lines lines) const
    {
        for (std::string &l : lines)
            l = subst(l, "$P", GetParam().oc_pfx);
        return sorted(lines);
    }
    void visit(const zidl_yfw_datatree *n)
    {
        const auto *bindings = node_parent(n) != nullptr ? index_.find(node_schema_path(n)) : nullptr;
        for (size_t i = 0; bindings != nullptr && i < bindings->size(); ++i) {
            const Binding *b = (*bindings)[i];
            if (b->family != GetParam().family && b->family != Family::Any)
                continue;
            cerrno rc = b->kind == CallbackKind::Container
                            ? h.call(callback<ContainerCb>(b->callback), n, n->n_children != 0 ? 1u : 0u)
                            : h.call(callback<LeafCb>(b->callback), n);
            failed += rc != 0 ? b->callback + " " : "";
        }
        for (uint32_t i = 0; i < n->n_children && n->children[i].name != nullptr; ++i)
            visit(&n->children[i]);
    }

    TreePtr input;
    std::string failed; /* callbacks of the walk that did not return 0 */
    BindingIndex index_{Model::Operational};
};

/* Empty set-tag and description write an empty leaf; empty interface and bfd write nothing; no metric, no value. */
TEST_P(StateRead, EmptyValues)
{
    walk(RT + "/static-routes-state/set-tag = \n" + RT + "/static-routes-state/description = \n" + NH + "/interface-ref/state/interface = \n" +
         NH + "/interface-ref/state/subinterface = \n" + NH + "/enable-bfd/state/enabled = \n" + NH + "/state/metric\n" +
         RT + "/next-hops/next-hop[index=eth0_2]/interface-ref/state/subinterface = 5x\n"); /* not a number: left out */
    EXPECT_EQ(h.out_lines(), expect({OC + "/state/description = ", OC + "/state/set-tag = ", OC_NH + "/state/metric",
                                     OC + "/next-hops/next-hop[index=eth0/2]"}));
    EXPECT_EQ(failed, "");
}

INSTANTIATE_TEST_SUITE_P(BothFamilies, StateRead, ::testing::ValuesIn(FAMILIES),
                         [](const ::testing::TestParamInfo<FamilyCase> &i) { return std::string(i.param.name); });

} // namespace
