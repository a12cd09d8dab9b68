// Feeds arbitrary bytes, as the block of a DIB handle, to RawImage's
// "setDIB", then exports the image again with "getDIB" and reads that back.
// Besides the sanitizers' checks it traps when setDIB breaks its promises:
// a refused DIB leaves the image as it was and the handle with its caller,
// an accepted one gives geometry the block could hold, errors are the
// kernel's own numbers, no kernel failure box is shown, and an exported DIB
// is taken back whole with the same pixels.
#include "fuzz/FuzzChecks.hpp"
#include "kova/dib.h"
#include "kova/host.h"
#include "kova/kernel.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using kova::fuzz::messageBoxes;
using kova::fuzz::require;
using kova::fuzz::requireKernelErrors;
using kova::fuzz::startKernelOnce;

kvResult get(kvObject image, const char* method) {
    return kvSendMeth(nullptr, image, method);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startKernelOnce();
    kvObject error = nullptr;
    kvObject image = kvNewObject(&error, "RawImage", 2, 2, 1, 1, nullptr, "Fuzz", 0, 0);
    require(image && !error);
    kvSendMeth(&error, image, "setImageWidth", 16);

    kvMemHandle handle = kvGlobalAlloc(size);
    if (size) std::memcpy(kvGlobalLock(handle), data, size);
    kvGlobalUnlock(handle);
    if (kvSendMeth(&error, image, "setDIB", handle)) {
        // The rows came from the block, so they cannot be more than it held.
        const kvResult bytes = get(image, "getImageByteSize");
        require(bytes > 0 && size_t(bytes) <= size);
        require(get(image, "getImageWidth") > 0 && get(image, "getImageHeight") > 0);
        requireKernelErrors(error);

        const auto exported = reinterpret_cast<kvMemHandle>(kvSendMeth(&error, image, "getDIB"));
        require(exported && !error);
        const std::vector<uint8_t> before(
            reinterpret_cast<const uint8_t*>(get(image, "getImageDataPointer")),
            reinterpret_cast<const uint8_t*>(get(image, "getImageDataPointer")) + bytes);
        kvObject copy = kvNewObject(&error, "RawImage", 1, 1, 1, 1, nullptr, "Copy", 0, 0);
        require(kvSendMeth(&error, copy, "setDIB", exported) == 1);
        // 16-bit rows go out under a 24-bit header, so only the other depths
        // come back as they were; a 24-bit image keeps the DIB's byte order.
        if (get(image, "getBitsPerPixel") != 16) {
            require(get(copy, "getImageByteSize") == bytes);
            const auto* after = reinterpret_cast<const uint8_t*>(get(copy, "getImageDataPointer"));
            require(std::memcmp(after, before.data(), before.size()) == 0);
        }
        kvDelObject(&error, copy);
    } else {
        require(get(image, "getImageWidth") == 16 && get(image, "getBytesPerLine") == 2);
        kvGlobalFree(handle);
    }
    requireKernelErrors(error);
    kvDelObject(&error, image);
    requireKernelErrors(error);
    require(messageBoxes == 0);
    return 0;
}
