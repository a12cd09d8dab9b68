// The exported face of the system registry and the INI profile functions
// (kova/registry.h): argument checks, then the platform's own.
#include "kova/registry.h"
#include "platform/Platform.hpp"

#include <cstring>

namespace {

size_t copyCut(const std::string& text, char* buffer, size_t size) {
    if (!buffer || size == 0) return 0;
    const size_t length = text.size() < size - 1 ? text.size() : size - 1;
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return length;
}

} // namespace

extern "C" {

KV_API int kvRegistryCreateKey(const char* path) {
    return kova::platform::registryCreateKey(path);
}

KV_API int kvRegistrySetValue(const char* path, const char* value) {
    return kova::platform::registrySetValue(path, value);
}

KV_API int kvRegistryGetValue(const char* path, char* buffer, size_t size) {
    return kova::platform::registryGetValue(path, buffer, size);
}

KV_API int kvRegistryEnumKey(const char* path, unsigned index, char* buffer, size_t size) {
    return kova::platform::registryEnumKey(path, index, buffer, size);
}

KV_API int kvRegistryKeyExists(const char* path) {
    return kova::platform::registryKeyExists(path);
}

KV_API int kvRegistryDeleteKey(const char* path) {
    return kova::platform::registryDeleteKey(path);
}

KV_API size_t kvProfileGetString(const char* section, const char* key, const char* fallback,
                                 char* buffer, size_t size, const char* file) {
    return kova::platform::profileGetString(section, key, fallback, buffer, size, file);
}

KV_API unsigned kvProfileGetInt(const char* section, const char* key, int fallback,
                                const char* file) {
    return kova::platform::profileGetInt(section, key, fallback, file);
}

KV_API int kvProfileWriteString(const char* section, const char* key, const char* value,
                                const char* file) {
    return kova::platform::profileWriteString(section, key, value, file);
}

KV_API size_t kvRegistryLocation(char* buffer, size_t size) {
    return copyCut(kova::platform::registryLocation(), buffer, size);
}

KV_API size_t kvProfilePath(const char* file, char* buffer, size_t size) {
    return copyCut(kova::platform::profilePath(file), buffer, size);
}

} // extern "C"
