#include "ocni_map_engine.h"

namespace ocni::tool {

/*
 * The walker and the native store live in host/ and are joined here once
 * their interfaces are in place; until then every store command reports
 * an internal error rather than pretending to work.
 */
std::unique_ptr<Engine> make_engine(const yang::Context &, const EngineOptions &, Outcome &why)
{
    why = Outcome::fail(Outcome::kInternal, "the host walker is not part of this build yet");
    return nullptr;
}

}  // namespace ocni::tool
