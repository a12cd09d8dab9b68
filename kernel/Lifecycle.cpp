// Starting and stopping the kernel core (use-counted), parameter lists, the
// debugging aids and the kernel's message boxes.
#include "kernel/Kernel.hpp"
#include "kova/classloc.h"
#include "kova/match.h"
#include "kova/plr.h"
#include "kova/version.h"
#include "platform/Platform.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

extern "C" kvClass registerBaseError(void);

namespace {

int32_t useCount = 0;         // kvInitialize calls not yet matched by kvTerminate
int hierarchyDepth = 0;       // indentation of the class being dumped
constexpr int maxParams = 32; // pairs a parameter list is searched through
constexpr int16_t endOfParams = -1;

int16_t paramId(const int32_t* pair) {
    return static_cast<int16_t>(pair[0] & 0xFFFF);
}

// The value slot paired with `id` among the first 32 pairs, or null.
const int32_t* findParam(const int32_t* list, int16_t id) {
    if (!list) return nullptr;
    for (int i = 0; i < maxParams; ++i) {
        const int32_t* pair = list + 2 * i;
        if (paramId(pair) == endOfParams) return nullptr;
        if (paramId(pair) == id) return pair + 1;
    }
    return nullptr;
}

void appendToDump(const char* name, int depth) {
    FILE* dump = std::fopen(kova::platform::hierarchyDumpPath().c_str(), "a");
    if (!dump) return;
    std::fprintf(dump, "%*s%s", depth * 3, "", name);
    std::fclose(dump);
}

} // namespace

namespace kova::kernel {

void showKernelMessage(const char* caption, const char* format, ...) {
    char text[1024];
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    platform::messageBox(text, caption, KV_MB_OK | KV_MB_SYSTEMMODAL);
}

} // namespace kova::kernel

extern "C" {

// Brings the core up: the class location table, the protocol table from
// "KOVA.INI", the version-control settings, the property link registry, then
// the error classes (which register Object first). Answers the BaseError
// class.
KV_API kvClass kvCoreInitialize(void) {
    KovaClassLocationInit4();
    MatchInit("KOVA.INI");
    kvVersionControlInit();
    PLRInit();
    return registerBaseError();
}

// Takes the core down: every live error, the property link registry, every
// class (newest first, releasing their libraries), version control, the class
// location table.
KV_API void kvCoreTerminate(void) {
    if (kvClass errors = kvFindClass("BaseError")) {
        kvObject error = nullptr;
        kvSendClMeth(&error, errors, "GarbageCollect", 1);
    }
    PLRTerm();
    kvCloseClasses();
    kvVersionControlTerm();
    KovaClassLocationTerm4();
}

KV_API kvResult kvInitialize(void) {
    if (++useCount == 1) kvCoreInitialize();
    return 0;
}

KV_API kvResult kvTerminate(void) {
    if (useCount <= 0) return 0;
    if (--useCount == 0) kvCoreTerminate();
    return 0;
}

KV_API kvModule kvGetKOVAInstance(void) {
    return kova::platform::kernelModule();
}

KV_API uint32_t kvGetModuleFileName(kvModule module, char* buffer, uint32_t size) {
    if (!buffer) return 0;
    const std::string path =
        module ? kova::platform::moduleFileName(module) : kova::platform::programFileName();
    if (size > 0) {
        const size_t copied = std::min<size_t>(path.size(), size - 1);
        std::memcpy(buffer, path.data(), copied);
        buffer[copied] = '\0';
    }
    return static_cast<uint32_t>(path.size());
}

KV_API int32_t kvGetParam(const int32_t* list, int16_t id, int32_t defaultValue) {
    const int32_t* value = findParam(list, id);
    return value ? *value : defaultValue;
}

KV_API int32_t kvSetParam(int32_t* list, int16_t id, int32_t value) {
    auto* slot = const_cast<int32_t*>(findParam(list, id));
    if (!slot) return -1;
    const int32_t old = *slot;
    *slot = value;
    return old;
}

// Method procedures ask this on entry; breakpoints are set by debuggers on
// the procedures themselves, so the kernel never asks for a stop.
KV_API int kvDebugShouldMethodBreak(kvObject, const char*, const char*) {
    return 0;
}
KV_API void kvClassSetBreak(kvClass) {}
KV_API void kvClassClearBreak(kvClass) {}
KV_API void kvObjectSetBreak(kvObject) {}
KV_API void kvObjectClearBreak(kvObject) {}
KV_API void kvMethodSetBreak(kvClass, const char*) {}
KV_API void kvMethodClearBreak(kvClass, const char*) {}

// Appends the subtree of class `index` to the dump file, each name indented
// three blanks per level; index 0 starts a fresh file.
KV_API void kvPrintHierarchy(size_t index) {
    const kvClass cls = kvGetClassAt(index);
    if (index == 0) {
        std::remove(kova::platform::hierarchyDumpPath().c_str());
        hierarchyDepth = 0;
    }
    if (!cls) return;
    appendToDump(cls->name, hierarchyDepth);
    for (size_t i = index + 1; i < kvGetClassCount(); ++i) {
        const kvClass child = kvGetClassAt(i);
        if (!child->parent || std::strcmp(child->parent->name, cls->name) != 0) continue;
        ++hierarchyDepth;
        kvPrintHierarchy(i);
        --hierarchyDepth;
    }
}

} // extern "C"
