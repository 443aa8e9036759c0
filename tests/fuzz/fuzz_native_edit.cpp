/* Native documents, taken as `ocni-map native edit` takes them. */
#include "fuzz_harness.h"
#include "input_checks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    ocni::yang::Tree tree;
    if (ocni::yang::read_edit(ocni::fuzz::context(), text, ocni::yang::Format::kAuto, ocni::yang::Model::kNative,
                              tree))
        return 0;
    std::string changes;
    ocni::fuzz::run_request([&](ocni::tool::Engine &e) { return e.native_edit(tree, false, changes); });
    return 0;
}
