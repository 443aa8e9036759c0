#include "docs.h"

namespace ocni::test {

namespace {
std::string q(const std::string &s)
{
    return "\"" + s + "\"";
}
std::string slash24(int i)
{
    return "10." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0";
}
} // namespace

const char *const NH_ADDR = "vrf-next-hop-next-hop-address";
const char *const NH_IFACE = "vrf-next-hop-interface-name";

std::string oc_hop(const std::string &index, const std::string &next_hop, const std::string &config,
                   const std::string &rest)
{
    return "{\"index\":" + q(index) + ",\"config\":{\"index\":" + q(index) +
           (next_hop.empty() ? "" : ",\"next-hop\":" + q(next_hop)) + config + "}" + rest + "}";
}

std::string oc_iface(const std::string &interface)
{
    return ",\"interface-ref\":{\"config\":{\"interface\":" + q(interface) + "}}";
}

std::string oc_route(const std::string &prefix, const std::string &hops, const std::string &config)
{
    return "{\"prefix\":" + q(prefix) + ",\"config\":{\"prefix\":" + q(prefix) + config + "}" +
           (hops.empty() ? "" : ",\"next-hops\":{\"next-hop\":[" + hops + "]}") + "}";
}

std::string oc_instance(const std::string &ni, const std::string &routes, const std::string &ni_extra)
{
    return "{\"name\":" + q(ni) + ni_extra +
           ",\"protocols\":{\"protocol\":[{\"identifier\":\"openconfig-policy-types:STATIC\",\"name\":\"DEFAULT\","
           "\"static-routes\":{\"static\":[" + routes + "]}}]}}";
}

std::string oc_instances(const std::string &entries)
{
    return "{\"openconfig-network-instance:network-instances\":{\"network-instance\":[" + entries + "]}}";
}

std::string oc_doc(const std::string &ni, const std::string &routes, const std::string &ni_extra)
{
    return oc_instances(oc_instance(ni, routes, ni_extra));
}

std::string oc_routes(int n, const std::string &hop)
{
    std::string s;
    for (int i = 0; i < n; ++i)
        s += std::string(i ? "," : "") + oc_route(slash24(i) + "/24", hop.empty() ? "" : oc_hop("1", hop));
    return s;
}

std::string native_prefix(const std::string &prefix, int length, const std::string &table, const std::string &entries)
{
    return "{\"prefix\":" + q(prefix) + ",\"prefix-length\":" + std::to_string(length) +
           ",\"vrf-route\":{\"vrf-next-hop-table\":{" + q(table) + ":[" + entries + "]}}}";
}

std::string native_doc(const std::string &vrf, int family, const std::string &prefixes)
{
    const std::string body = "\"address-family\":{\"vrfipv" + std::to_string(family) +
                             "\":{\"vrf-unicast\":{\"vrf-prefixes\":{\"vrf-prefix\":[" + prefixes + "]}}}}";
    const std::string where = vrf == "default" ? "\"default-vrf\":{" + body + "}"
                                               : "\"vrfs\":{\"vrf\":[{\"vrf-name\":" + q(vrf) + "," + body + "}]}";
    return "{\"Velmar-ORN-QZ-ip-static-cfg:router-static\":{" + where + "}}";
}

std::string native_routes(int n, const std::string &members)
{
    std::string s;
    for (int i = 0; i < n; ++i)
        s += std::string(i ? "," : "") +
             native_prefix(slash24(i), 24, NH_ADDR, "{\"next-hop-address\":\"192.0.2.1\"" + members + "}");
    return s;
}

} // namespace ocni::test
