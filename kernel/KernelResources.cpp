// The kernel library's resources: its message table (string resources by error
// number), the built-in class location table (user-data resource 104) and its
// file version.
// On POSIX they are compiled into this table, which the platform layer finds
// by the exported name "kvModuleResources".
#include "kova/classloc.h"
#include "kova/resources.h"

namespace {

// Entries of the built-in class location table, 34 bytes each, sorted by name
// without regard to case.
constexpr kvClassLocation builtInClassLocations[] = {
#define KV_CLASSLOC(className, libraryName) {className, libraryName},
#include "kernel/ClassLocations.def"
#undef KV_CLASSLOC
};
static_assert(sizeof(kvClassLocation) == KV_CLASSLOC_ENTRY_SIZE);

constexpr size_t textLength(const char* text) {
    size_t length = 0;
    while (text[length])
        ++length;
    return length;
}

} // namespace

KV_MODULE_RESOURCES = {
    KV_VERSION_RESOURCE(KOVA_VERSION_MAJOR, KOVA_VERSION_MINOR, KOVA_VERSION_PATCH, 0),
    {KV_RT_RCDATA, KV_RESOURCE_ID(KV_CLASSLOC_RESOURCE_ID), builtInClassLocations,
     sizeof builtInClassLocations},
#define KV_MESSAGE(number, text) {KV_RT_STRING, KV_RESOURCE_ID(number), text, textLength(text)},
#include "errors/KernelMessages.def"
#undef KV_MESSAGE
    {nullptr, nullptr, nullptr, 0},
};
