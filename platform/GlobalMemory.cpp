// The movable memory handles of the public interface (kova/dib.h): thin
// wrappers over the platform's own, so hosts on every system make and read
// DIB handles as the image classes do.
#include "kova/dib.h"
#include "platform/Platform.hpp"

namespace platform = kova::platform;

extern "C" KV_API kvMemHandle kvGlobalAlloc(size_t size) {
    return platform::globalAlloc(size);
}

extern "C" KV_API kvMemHandle kvGlobalReAlloc(kvMemHandle handle, size_t size) {
    return platform::globalReAlloc(handle, size);
}

extern "C" KV_API void* kvGlobalLock(kvMemHandle handle) {
    return platform::globalLock(handle);
}

extern "C" KV_API void kvGlobalUnlock(kvMemHandle handle) {
    platform::globalUnlock(handle);
}

extern "C" KV_API void kvGlobalFree(kvMemHandle handle) {
    platform::globalFree(handle);
}

extern "C" KV_API size_t kvGlobalSize(kvMemHandle handle) {
    return platform::globalSize(handle);
}
