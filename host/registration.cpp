#include "registration.h"

#include "host/tree_internal.h"

#include <unordered_set>

namespace ocni::host {

namespace {

/* The static-routes subtree of the OpenConfig network-instance model. */
const std::string OC_SR = "/network-instances/network-instance/protocols/protocol/static-routes";
const std::string OC_ST = OC_SR + "/static";
const std::string OC_NH = OC_ST + "/next-hops/next-hop";

/* Family twins: the operational branch, the native family container and the name tags. */
struct FamilyParams {
    Family family;
    const char *af;         /* "vrfipv4" */
    const char *lr;         /* "ipv4" in ymap_ocni_lr_ipv4_... */
    const char *prefix_lvl; /* prefix list and leaves: lvle / lvlg */
    const char *table_lvl;  /* next-hop table entries: lvln / lvlt */
    const char *leaf_lvl;   /* next-hop table leaves: lvlan / lvlbf */
};
const FamilyParams FAMILIES[] = {
    {Family::IPv4, "vrfipv4", "ipv4", "lvle", "lvln", "lvlan"},
    {Family::IPv6, "vrfipv6", "ipv6", "lvlg", "lvlt", "lvlbf"},
};

/* Native VRF roots: the default VRF container and the named VRF list. */
struct VrfRoot {
    const char *root;
    const char *prefix_suffix; /* name suffix of the prefix leaf callbacks */
};
const VrfRoot VRF_ROOTS[] = {
    {"/router-static/default-vrf", ""},
    {"/router-static/vrfs/vrf", "_namedvrf"},
};

/* Native next-hop tables: list name, name part in callback names, key leaves in order. */
struct NhTable {
    const char *list;
    const char *tag;
    std::vector<const char *> keys;
};
const NhTable NH_TABLES[] = {
    {"vrf-next-hop-interface-name", "vrfnexthopinterfacename", {"interface-name"}},
    {"vrf-next-hop-interface-name-next-hop-address", "vrfnexthopinterfacenamenexthopaddress",
     {"interface-name", "next-hop-address"}},
    {"vrf-next-hop-next-hop-address", "vrfnexthopnexthopaddress", {"next-hop-address"}},
};

std::string key_tag(const char *key)
{
    std::string s;
    for (const char *p = key; *p; ++p)
        if (*p != '-')
            s += *p;
    return s;
}

void add(std::vector<Binding> &t, Model m, std::string path, std::string cb, CallbackKind k,
         Family f = Family::Any)
{
    t.push_back(Binding{m, std::move(path), std::move(cb), k, f});
}

void add_openconfig_edit(std::vector<Binding> &t)
{
    const Model M = Model::OpenConfigEdit;
    const std::string ox = "ymap_ox_ocni_openconfiglocalrouting_";
    add(t, M, OC_SR, ox + "man_cont_lvla_localroutes_staticroutes", CallbackKind::Container);
    add(t, M, OC_ST, ox + "man_list_lvla_localroutes_staticroutes_static", CallbackKind::List);
    add(t, M, OC_ST + "/prefix", ox + "man_leaf_lvla_localroutes_static_prefix", CallbackKind::Leaf);
    add(t, M, OC_ST + "/config/prefix", ox + "man_leaf_lvla_localroutes_config_prefix", CallbackKind::Leaf);
    add(t, M, OC_ST + "/config/set-tag", ox + "man_leaf_lvla_localroutes_config_settag", CallbackKind::Leaf);
    add(t, M, OC_ST + "/config/description", ox + "man_leaf_lvla_localroutes_config_description",
        CallbackKind::Leaf);
    add(t, M, OC_ST + "/next-hops", ox + "cont_lvla_localroutes_static_nexthops", CallbackKind::Container);
    add(t, M, OC_ST + "/next-hops", "ocni_nexthops_cond_manual_callback", CallbackKind::Condition);
    add(t, M, OC_NH, ox + "man_list_lvla_localroutes_nexthops_nexthop", CallbackKind::List);
    add(t, M, OC_NH + "/index", ox + "leaf_lvla_localroutes_nexthop_index", CallbackKind::Leaf);
    add(t, M, OC_NH + "/index", "ocni_index_cond_manual_callback", CallbackKind::Condition);
    add(t, M, OC_NH + "/config/index", ox + "leaf_lvla_localroutes_config_index", CallbackKind::Leaf);
    add(t, M, OC_NH + "/config/index", "ocni_index_cond_manual_callback", CallbackKind::Condition);
    add(t, M, OC_NH + "/config/next-hop", ox + "man_leaf_lvla_localroutes_config_nexthop", CallbackKind::Leaf);
    add(t, M, OC_NH + "/config/metric", ox + "leaf_lvla_localroutes_config_metric", CallbackKind::Leaf);
    add(t, M, OC_NH + "/config/metric", "ocni_metric_cond_manual_callback", CallbackKind::Condition);
    add(t, M, OC_NH + "/interface-ref/config/interface", ox + "man_leaf_lvla_localroutes_config_interface",
        CallbackKind::Leaf);
    add(t, M, OC_NH + "/interface-ref/config/subinterface", ox + "man_leaf_lvla_localroutes_config_subinterface",
        CallbackKind::Leaf);
}

void add_openconfig_state(std::vector<Binding> &t)
{
    struct Leaf {
        std::string path;
        const char *member;
    };
    const Leaf leaves[] = {
        {OC_ST + "/state/prefix", "staticroutes_static_state_prefix_fwd"},
        {OC_ST + "/state/set-tag", "staticroutes_static_state_settag_fwd"},
        {OC_NH + "/state/index", "staticroutes_static_nexthops_nexthop_state_index_fwd"},
        {OC_NH + "/state/next-hop", "staticroutes_static_nexthops_nexthop_state_nexthop_fwd"},
        {OC_NH + "/state/metric", "staticroutes_static_nexthops_nexthop_state_metric_fwd"},
        {OC_NH + "/interface-ref/state/interface", "nexthops_nexthop_interfaceref_state_interface_fwd"},
        {OC_NH + "/interface-ref/state/subinterface", "nexthops_nexthop_interfaceref_state_subinterface_fwd"},
    };
    for (const FamilyParams &f : FAMILIES)
        for (const Leaf &l : leaves)
            add(t, Model::OpenConfigState, l.path, std::string("ymap_ocni_lr_") + f.lr + "_" + l.member,
                CallbackKind::Leaf, f.family);
}

void add_native(std::vector<Binding> &t)
{
    const Model M = Model::Native;
    const std::string xo = "ymap_xo_ocni_velmarornqzipstaticcfg_";
    add(t, M, "/router-static", xo + "man_cont_lvla_routerstatic", CallbackKind::Container);
    for (const VrfRoot &v : VRF_ROOTS) {
        for (const FamilyParams &f : FAMILIES) {
            const std::string pfx = std::string(v.root) + "/address-family/" + f.af +
                                    "/vrf-unicast/vrf-prefixes/vrf-prefix";
            add(t, M, pfx, xo + "man_list_" + f.prefix_lvl + "_routerstatic_vrfprefixes_vrfprefix",
                CallbackKind::List, f.family);
            add(t, M, pfx + "/prefix",
                xo + "man_leaf_" + f.prefix_lvl + "_routerstatic_vrfprefix_prefix" + v.prefix_suffix,
                CallbackKind::Leaf, f.family);
            add(t, M, pfx + "/prefix-length",
                xo + "man_leaf_" + f.prefix_lvl + "_routerstatic_vrfprefix_prefixlength" + v.prefix_suffix,
                CallbackKind::Leaf, f.family);
            for (const NhTable &nt : NH_TABLES) {
                const std::string tbl = pfx + "/vrf-route/vrf-next-hop-table/" + nt.list;
                add(t, M, tbl, xo + "man_list_" + f.table_lvl + "_routerstatic_vrfnexthoptable_" + nt.tag,
                    CallbackKind::List, f.family);
                const std::string leaf = xo + "man_leaf_" + f.leaf_lvl + "_routerstatic_" + nt.tag + "_";
                for (const char *k : nt.keys)
                    add(t, M, tbl + "/" + k, leaf + key_tag(k), CallbackKind::Leaf, f.family);
                add(t, M, tbl + "/tag", leaf + "tag", CallbackKind::Leaf, f.family);
                add(t, M, tbl + "/description", leaf + "description", CallbackKind::Leaf, f.family);
                add(t, M, tbl + "/index", xo + "leaf_routerstatic_index", CallbackKind::Leaf, f.family);
                add(t, M, tbl + "/metric", xo + "leaf_routerstatic_metric", CallbackKind::Leaf, f.family);
                add(t, M, tbl + "/bfd-fast-detect", xo + "leaf_routerstatic_bfd", CallbackKind::Leaf, f.family);
            }
        }
    }
}

void add_operational(std::vector<Binding> &t)
{
    const Model M = Model::Operational;
    for (const FamilyParams &f : FAMILIES) {
        const std::string sr = std::string("/ocni/") + f.af +
                               "/network-instances/network-instance/protocols/protocol/static-routes";
        const std::string rt = sr + "/static-route";
        const std::string nh = rt + "/next-hops/next-hop";
        const std::string lr = std::string("ymap_ocni_lr_") + f.lr + "_";
        add(t, M, sr, lr + "staticroutes_rev", CallbackKind::Container, f.family);
        add(t, M, rt, lr + "staticroutes_static_rev", CallbackKind::List, f.family);
        add(t, M, rt + "/prefix", lr + "staticroutes_static_prefix_rev", CallbackKind::Leaf, f.family);
        add(t, M, rt + "/static-routes-state/prefix", lr + "staticroutes_static_state_prefix_rev",
            CallbackKind::Leaf, f.family);
        add(t, M, rt + "/static-routes-state/set-tag", lr + "staticroutes_static_state_settag_rev",
            CallbackKind::Leaf, f.family);
        add(t, M, rt + "/static-routes-state/description", lr + "staticroutes_static_state_description_rev",
            CallbackKind::Leaf, f.family);
        add(t, M, rt + "/next-hops", lr + "staticroutes_static_nexthops_rev", CallbackKind::Container, f.family);
        add(t, M, nh, lr + "staticroutes_static_nexthops_nexthop_rev", CallbackKind::List, f.family);
        add(t, M, nh + "/index", lr + "staticroutes_static_nexthops_nexthop_index_rev", CallbackKind::Leaf,
            f.family);
        add(t, M, nh + "/state/index", lr + "staticroutes_static_nexthops_nexthop_state_index_rev",
            CallbackKind::Leaf, f.family);
        add(t, M, nh + "/state/next-hop", lr + "staticroutes_static_nexthops_nexthop_state_nexthop_rev",
            CallbackKind::Leaf, f.family);
        add(t, M, nh + "/state/metric", lr + "staticroutes_static_nexthops_nexthop_state_metric_rev",
            CallbackKind::Leaf, f.family);
        add(t, M, nh + "/interface-ref/state/interface", lr + "nexthops_nexthop_interfaceref_state_interface_rev",
            CallbackKind::Leaf, f.family);
        add(t, M, nh + "/interface-ref/state/subinterface",
            lr + "nexthops_nexthop_interfaceref_state_subinterface_rev", CallbackKind::Leaf, f.family);
        /* The answer carries the next hop's BFD state here. */
        add(t, M, nh + "/enable-bfd/state/enabled", lr + "staticroutes_static_state_enable_bfd_rev",
            CallbackKind::Leaf, f.family);
    }
}

std::vector<Binding> build_table()
{
    std::vector<Binding> t;
    add_openconfig_edit(t);
    add_openconfig_state(t);
    add_native(t);
    add_operational(t);
    return t;
}

} // namespace

const std::vector<Binding> &registration_table()
{
    static const std::vector<Binding> table = build_table();
    return table;
}

std::vector<std::string> registration_callback_names()
{
    std::vector<std::string> names;
    std::unordered_set<std::string> seen;
    for (const Binding &b : registration_table())
        if (seen.insert(b.callback).second)
            names.push_back(b.callback);
    return names;
}

BindingIndex::BindingIndex(Model model)
{
    for (const Binding &b : registration_table()) {
        if (b.model != model)
            continue;
        by_path_[b.schema_path].push_back(&b);
        Node *at = &root_;
        size_t pos = 0;
        while (pos < b.schema_path.size()) {
            size_t next = b.schema_path.find('/', pos + 1);
            if (next == std::string::npos)
                next = b.schema_path.size();
            std::string name = b.schema_path.substr(pos + 1, next - pos - 1);
            pos = next;
            if (name.empty())
                continue;
            Node *c = const_cast<Node *>(at->child(name.c_str()));
            if (c == nullptr) {
                at->children.push_back(std::make_unique<Node>());
                c = at->children.back().get();
                c->name = name;
                c->iname = detail::intern(name);
            }
            at = c;
        }
        at->bindings.push_back(&b);
    }
}

const std::vector<const Binding *> *BindingIndex::find(const std::string &schema_path) const
{
    auto it = by_path_.find(schema_path);
    return it == by_path_.end() ? nullptr : &it->second;
}

const BindingIndex::Node *BindingIndex::Node::child(const char *n) const
{
    /* Names of host tree nodes are interned: the same pointer, most of the time. */
    for (const auto &c : children)
        if (c->iname == n)
            return c.get();
    for (const auto &c : children)
        if (c->name == n)
            return c.get();
    return nullptr;
}

} // namespace ocni::host
