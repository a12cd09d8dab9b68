// Feeds arbitrary bytes to the POSIX registry store's reader. Besides the
// sanitizers' checks it traps when a store that reads is not written back to
// a text that reads as the same tree.
#include "fuzz/FuzzChecks.hpp"
#include "platform/posix/RegistryStore.hpp"

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

namespace {

using kova::fuzz::require;
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        kova::platform::RegistryKey root;
        std::string problem;
        if (!kova::platform::parseRegistryStore(text, root, problem)) {
            require(!problem.empty());
            return 0;
        }
        const auto written = kova::platform::writeRegistryStore(root);
        kova::platform::RegistryKey again;
        require(kova::platform::parseRegistryStore(written, again, problem));
        require(kova::platform::writeRegistryStore(again) == written);
    } catch (const std::bad_alloc&) {
    }
    return 0;
}
