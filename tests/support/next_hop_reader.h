/*
 * Reads the native next hops back from the store the way the plug-in's
 * lookups see them, so tests can check what an edit wrote.
 */
#ifndef OCNI_TEST_NEXT_HOP_READER_H
#define OCNI_TEST_NEXT_HOP_READER_H

#include <vector>

#include "host/store_layout.h"

namespace ocni::test {

/* Every stored next hop of every VRF and family, in store order, from the committed store. */
cerrno store_all_next_hops(std::vector<host::NativeNextHop> &out);

} // namespace ocni::test

#endif
