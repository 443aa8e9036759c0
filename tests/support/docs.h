/*
 * JSON input documents as users write them, built from small parts, e.g.
 * oc_doc("red", oc_route("10.1.0.0/16", oc_hop("1", "192.0.2.1"))).
 * `config` and `rest` arguments are JSON members with a leading comma.
 */
#ifndef OCNI_TEST_DOCS_H
#define OCNI_TEST_DOCS_H

#include <string>

namespace ocni::test {

/* One OpenConfig next hop; `next_hop` "" leaves the leaf out. */
std::string oc_hop(const std::string &index, const std::string &next_hop, const std::string &config = "",
                   const std::string &rest = "");
/* The interface-ref member of a next hop (for oc_hop's `rest`). */
std::string oc_iface(const std::string &interface);
/* One static route; `hops` are next-hop entries joined by commas. */
std::string oc_route(const std::string &prefix, const std::string &hops = "", const std::string &config = "");
/* A network-instance entry holding static `routes` (joined entries). */
std::string oc_instance(const std::string &ni, const std::string &routes, const std::string &ni_extra = "");
/* A document of network-instance `entries` (joined). */
std::string oc_instances(const std::string &entries);
/* A document of static `routes` in network instance `ni`. */
std::string oc_doc(const std::string &ni, const std::string &routes, const std::string &ni_extra = "");
/* `n` routes 10.<i/256>.<i%256>.0/24, each with next hop "1" to `hop` ("" : no next hops). */
std::string oc_routes(int n, const std::string &hop = "192.0.2.1");

extern const char *const NH_ADDR;  /* the native next-hop tables */
extern const char *const NH_IFACE;
/* One native vrf-prefix entry with `entries` (joined JSON) in next-hop table `table`. */
std::string native_prefix(const std::string &prefix, int length, const std::string &table, const std::string &entries);
/* A native document of `prefixes` (joined vrf-prefix entries) of family 4 or 6 in `vrf` ("default" or a name). */
std::string native_doc(const std::string &vrf, int family, const std::string &prefixes);
/* `n` native IPv4 routes 10.<i/256>.<i%256>.0/24, each to 192.0.2.1 with the given extra members. */
std::string native_routes(int n, const std::string &members = "");

} // namespace ocni::test

#endif
