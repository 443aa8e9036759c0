/*
 * Checks of an OpenConfig edit that the model cannot express, made on the
 * parsed libyang tree before anything is mapped:
 * - list keys equal the config leaves that repeat them;
 * - names and indexes fit an instance path and the native model;
 * - each next hop's address family is its route's;
 * - no two next hops of one route in the edit become the same native next hop;
 * - a set-tag in colon form (the hex-string branch of the tag type, "12:34")
 *   becomes the number it spells (0x1234 = 4660); one of more than four
 *   octets, or an empty one, is refused.
 */
#ifndef OCNI_INPUT_CHECKS_H
#define OCNI_INPUT_CHECKS_H

#include <functional>
#include <string>
#include <vector>

#include "yang_context.h"
#include "yang_data.h"

namespace ocni::yang {

/* Input errors name the value and the instance path of the leaf the user wrote. */
Error check_openconfig_input(Tree &tree);

/*
 * An edit document as the command line takes it: refused when it holds a
 * NUL byte, parsed as a fragment of `model`, and for OpenConfig checked as
 * above (canonical prefixes and addresses included). Messages name input
 * lines `line_offset` further on (a chunk of a larger input).
 */
Error read_edit(const Context &ctx, const std::string &text, Format fmt, Model model, Tree &out,
                size_t line_offset = 0);

/* The network instance and static-route prefix a delete path names ("" when it names none). */
void delete_scope(const PathTarget &target, std::string &vrf, std::string &prefix);

/* Whether the node a delete path names is in `config` (a read of the configuration). */
bool delete_target_present(const Tree &config, const PathTarget &target);

/*
 * A hint for a common mistake behind a parse error's message ("" when none):
 * an identity without its module prefix ("DROP"), a prefix written with a
 * netmask or without its length.
 */
std::string input_hint(const Context &ctx, const std::string &message);

/*
 * A next hop the store does not hold needs its next-hop leaf or an
 * interface: without either the edit names nothing to route to, and the
 * mapping would store nothing for it or refuse whichever leaf the entry
 * carries. `stored(vrf, prefix, index)` says whether the store holds it;
 * entries being deleted (`deleted`) need nothing.
 */
using NextHopStored = std::function<bool(const std::string &vrf, const std::string &prefix, const std::string &index)>;
Error check_new_next_hops(const Tree &tree, const std::vector<PathTarget> &deleted, const NextHopStored &stored);

/* "12:34" -> 4660; false when `text` is not one to four colon-separated octets. */
bool colon_tag_value(const std::string &text, uint32_t &value);

}  // namespace ocni::yang

#endif
