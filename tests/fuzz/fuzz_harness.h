/*
 * What every fuzz target shares: the tool's own engine on an in-memory
 * store, and the two properties checked after every input:
 * - a request that fails leaves every store key and value as it was;
 * - after a request that succeeds, native, get and get --state succeed.
 * A broken property aborts with the input's outcome on stderr.
 */
#ifndef OCNI_FUZZ_HARNESS_H
#define OCNI_FUZZ_HARNESS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "ocni_map_engine.h"
#include "yang_context.h"

namespace ocni::fuzz {

/* The schema context, loaded once per process. */
const yang::Context &context();

/*
 * Runs one request against the engine (recreated on a fresh store now and
 * then, so the store stays small) and checks both properties.
 */
void run_request(const std::function<tool::Outcome(tool::Engine &)> &request);

}  // namespace ocni::fuzz

#endif
