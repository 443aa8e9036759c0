/*
 * Framework-private request state behind yfw_req_ctx.fw. Private to the
 * host library.
 */
#ifndef OCNI_HOST_CONTEXT_INTERNAL_H
#define OCNI_HOST_CONTEXT_INTERNAL_H

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/context.h"
#include "host/tree_internal.h"

namespace ocni::host::detail {

/*
 * Output list entries that are current while one input list entry (or the
 * request as a whole, scope 0) is being mapped: (parent record, list name)
 * -> entry.
 */
struct Scope {
    NodeRef input;
    /* keyed by the entries' interned names */
    std::map<std::pair<const NodeRec *, std::string_view>, NodeRef> current;
};

/*
 * The nodes the last placement resolved for the intermediate tokens of its
 * path, so that the next placement sharing a leading part of that path
 * (a callback adds several leaves under one entry) resumes there. Valid
 * while the same output tree is used and no current list entry changed.
 */
struct PlaceMemo {
    uint64_t tree_serial = 0;
    uint64_t gen = 0;
    const NodeRec *start = nullptr;
    std::string path;                                  /* the path last placed */
    std::vector<std::pair<uint32_t, uint32_t>> tokens; /* its tokens: offset, length */
    std::vector<NodeRec *> nodes;                      /* node of each intermediate token */
};

/*
 * The last xpath lookup of a list entry or container: plug-ins look the
 * same entry up again for every leaf they add below it. Valid while the
 * tree and every entry key are unchanged (steps are found by their keys or
 * as the oldest node of their name, which later additions never change).
 */
struct XpathHit {
    const NodeRec *root = nullptr;
    uint64_t tree_serial = 0;
    uint64_t rekeys = 0;
    uint64_t gen = 0;                 /* current entries as the lookup left them */
    std::string path;
    NodeRec *result = nullptr;
    std::vector<NodeRec *> entries; /* list entries on the way, made current by the lookup */
    uint64_t used = 0;
};

struct ReqState {
    /* Bumped whenever the current entry of some output list may have changed. */
    uint64_t current_gen = 1;
    PlaceMemo memo;
    XpathHit xhit[2]; /* lookups from two roots alternate (an entry, then a list below it) */
    uint64_t xhit_clock = 0;
    std::string vrf;
    bool has_vrf = false;
    std::vector<Scope> scopes{Scope{}};
    NodeRef current_input;
    std::vector<std::string> error_paths;
    std::string ancestor_paths[YFW_MAX_ANCESTORS];
    /* current_list as last seen by the host, and its record */
    const zidl_yfw_datatree *seen_current_list = nullptr;
    NodeRef seen_current_ref;
};

ReqState *state_of(const yfw_req_ctx *rc);
ReqState *state_of(const yfw_map_ctx *ctx);

/* Makes `entry` the current entry of its list in the innermost scope. */
void note_current(ReqState *st, NodeRec *entry);
/* The current entry of list `name` under `parent`, innermost scope first; NULL when none. */
NodeRec *current_entry(const ReqState *st, const NodeRec *parent, std::string_view name);
/* Takes note of a current_list the plug-in set since the last framework call. */
void sync_current_list(yfw_req_ctx *rc);
/* Points current_list at the current address of its entry after additions. */
void refresh_current_list(yfw_req_ctx *rc);

} // namespace ocni::host::detail

#endif
