/* OpenConfig edit documents (JSON or XML), taken as `ocni-map edit` takes them. */
#include "fuzz_harness.h"
#include "input_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    ocni::yang::Tree tree;
    if (ocni::yang::read_edit(ocni::fuzz::context(), text, ocni::yang::Format::kAuto, ocni::yang::Model::kOpenConfig,
                              tree))
        return 0;
    std::string changes;
    ocni::fuzz::run_request([&](ocni::tool::Engine &e) { return e.edit(tree, false, changes); });
    return 0;
}
