// Resources on Windows: the module's own resource section, compiled by the
// resource compiler from the same sources as the POSIX tables. String and
// resource names match without regard to case, as on POSIX.
#include "platform/Platform.hpp"

#include <windows.h>

namespace kova::platform {

std::span<const std::byte> findResource(kvModule module, const char* name, const char* type) {
    if (!module || !name || !type) return {};
    const auto instance = static_cast<HMODULE>(module);
    HRSRC info = ::FindResourceA(instance, name, type);
    if (!info) return {};
    // A loaded resource lives as long as its module; there is nothing to free.
    HGLOBAL loaded = ::LoadResource(instance, info);
    const void* bytes = loaded ? ::LockResource(loaded) : nullptr;
    if (!bytes) return {};
    return {static_cast<const std::byte*>(bytes), ::SizeofResource(instance, info)};
}

int loadString(kvModule module, unsigned id, char* buffer, size_t size) {
    if (!buffer || size == 0) return 0;
    buffer[0] = '\0';
    // LoadStringA takes a null module for the program's own, and a size of 1
    // leaves no room for any character.
    if (!module || size < 2) return 0;
    const int capacity = size > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(size);
    const int length = ::LoadStringA(static_cast<HMODULE>(module), id, buffer, capacity);
    if (length <= 0) {
        buffer[0] = '\0';
        return 0;
    }
    return length;
}

} // namespace kova::platform
