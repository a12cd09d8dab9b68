// Resources on POSIX: each module exports its compiled-in table under the name
// "kvModuleResources". A table found through a module's handle is used only
// when it is that module's own, not one of the libraries it depends on.
#include "kova/resources.h"
#include "platform/Platform.hpp"

#include <cstring>
#include <dlfcn.h>
#include <strings.h>

namespace kova::platform {
void* ownSymbol(kvModule module, const char* name); // Library.cpp
}

namespace {

// The last module asked for and its table: every error made looks its message
// up in the kernel's table, and finding a table costs three loader calls.
kvModule rememberedModule = nullptr;
const kvResource* rememberedTable = nullptr;

const kvResource* lookUpResourceTable(kvModule module) {
    return static_cast<const kvResource*>(kova::platform::ownSymbol(module, "kvModuleResources"));
}

const kvResource* resourceTableOf(kvModule module) {
    if (!module) return nullptr;
    if (module != rememberedModule) {
        rememberedTable = lookUpResourceTable(module);
        rememberedModule = module;
    }
    return rememberedTable;
}

// Resource names and types compare as numbers when either is a number, else
// as strings without regard to case.
bool sameResourceName(const char* a, const char* b) {
    if (KV_RESOURCE_IS_ID(a) || KV_RESOURCE_IS_ID(b)) return a == b;
    return ::strcasecmp(a, b) == 0;
}

const kvResource* find(kvModule module, const char* name, const char* type) {
    const kvResource* table = resourceTableOf(module);
    if (!table || !name || !type) return nullptr;
    for (const kvResource* entry = table; entry->data; ++entry)
        if (sameResourceName(entry->type, type) && sameResourceName(entry->name, name))
            return entry;
    return nullptr;
}

} // namespace

namespace kova::platform {

// A released module's handle may come back for another library.
void forgetResourceTable(kvModule module) {
    if (module == rememberedModule) rememberedModule = nullptr;
}

std::span<const std::byte> findResource(kvModule module, const char* name, const char* type) {
    const kvResource* entry = find(module, name, type);
    if (!entry) return {};
    return {static_cast<const std::byte*>(entry->data), entry->size};
}

int loadString(kvModule module, unsigned id, char* buffer, size_t size) {
    if (!buffer || size == 0) return 0;
    buffer[0] = '\0';
    const kvResource* entry = find(module, KV_RESOURCE_ID(id), KV_RT_STRING);
    if (!entry) return 0;
    const size_t length = entry->size < size - 1 ? entry->size : size - 1;
    std::memcpy(buffer, entry->data, length);
    buffer[length] = '\0';
    return static_cast<int>(length);
}

} // namespace kova::platform
