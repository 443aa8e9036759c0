/*
 * The gate in front of the native configuration: what a native tree (the
 * mapped output of an OpenConfig edit, or a native document) must satisfy
 * before any of it is applied. Besides the native module's types and
 * ranges it holds the rules the read direction relies on, so that after
 * any accepted edit the configuration still reads back: names and indexes
 * that fit an instance path, interface names the read direction can split
 * and look up, canonical prefixes and addresses of the route's family,
 * and VRFs the router knows. Over-long values are refused, never cut.
 */
#ifndef OCNI_HOST_NATIVE_GATE_H
#define OCNI_HOST_NATIVE_GATE_H

#include <functional>
#include <string>
#include <string_view>

#include "yfw_types.h"

namespace ocni::host {

/* Text shown in a sentence: printable characters as they are, others as \xNN. */
std::string shown(std::string_view s);

/* Longest VRF name, interface name and index the configuration can carry and read back. */
constexpr size_t GATE_VRF_NAME_MAX = 32;
constexpr size_t GATE_INTERFACE_MAX = 63;
constexpr size_t GATE_INDEX_MAX = 128;

/*
 * Why a name cannot be stored, as the end of a sentence that starts with
 * the name ("contains '['"); "" when it can.
 */
std::string vrf_name_fault(std::string_view name);
std::string interface_name_fault(std::string_view name);
std::string index_fault(std::string_view index);

/* The first value of a native tree that fails the gate, and where it is. */
struct GateFault {
    std::string leaf;    /* native leaf name ("tag", "interface-name", ...) */
    std::string value;
    std::string problem; /* "is not a number from 0 to 4294967295" */
    std::string native_path;
    /* The route it belongs to, as far as known. */
    std::string vrf;
    bool ipv4 = true;
    std::string prefix, length, index;

    /* "tag \"12:34\" is not a number from 0 to 4294967295" */
    std::string sentence() const;
    /* The same fault as the OpenConfig leaf that maps to it, with its instance path. */
    std::string openconfig_sentence() const;
};

class NativeConfig;

/* What the gate compares a tree with. */
struct GateContext {
    /* Whether the router knows a named VRF. */
    std::function<bool(const std::string &)> vrf_known;
    /*
     * With the configuration of an OpenConfig edit: an index given to a
     * stored next hop that carries another index is refused (one native
     * next hop cannot be two OpenConfig next hops), unless the tree deletes
     * that next hop before it.
     */
    const NativeConfig *config = nullptr;
};

/*
 * Checks the children of `root` ("router-static"). Nodes carrying (or
 * inheriting) a delete or remove are not checked below their keys:
 * removing what is not there changes nothing. False with `fault` set on
 * the first value that fails.
 */
bool gate_native_tree(const zidl_yfw_datatree *root, const GateContext &gc, GateFault &fault);

} // namespace ocni::host

#endif
