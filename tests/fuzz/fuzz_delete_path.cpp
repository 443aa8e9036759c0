/* Delete paths, taken as `ocni-map delete PATH` takes them. */
#include "fuzz_harness.h"
#include "yang_data.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string path(reinterpret_cast<const char *>(data), size);
    if (path.find('\0') != std::string::npos)
        return 0; /* a command-line word holds no NUL */
    ocni::yang::Tree tree;
    ocni::yang::PathTarget target;
    if (ocni::yang::parse_instance_path(ocni::fuzz::context(), path, ocni::yang::Model::kOpenConfig, tree, target))
        return 0;
    std::string changes;
    ocni::fuzz::run_request([&](ocni::tool::Engine &e) { return e.remove(tree, target, false, changes); });
    return 0;
}
