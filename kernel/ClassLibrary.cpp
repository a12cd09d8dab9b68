// Loading class libraries on demand. The class location table names the
// library of a class; a class it does not name is looked for in the default
// list, which holds only the kernel's own library. Each class keeps one
// reference on its library for as long as the class exists.
#include "kernel/Kernel.hpp"
#include "kova/classloc.h"
#include "platform/Platform.hpp"

#include <cstdio>

namespace {

constexpr const char* defaultLibraries[] = {"KOVA32.DLL"};

// Loads `library` and finds `procName` in it; keeps the library loaded only
// when the procedure is there.
kvModule loadWithProcedure(const char* library, const char* procName, kvProc* proc) {
    kvModule module = kova::platform::loadLibrary(library, nullptr);
    if (!module) return nullptr;
    *proc = kova::platform::findProcedure(module, procName);
    if (*proc) return module;
    kova::platform::freeLibrary(module);
    return nullptr;
}

} // namespace

extern "C" {

// Answers the library holding the class (loaded once more for the caller) and
// its "register<Class>" procedure, or null after showing why in a message box.
KV_API kvModule kvLoadClassLibrary(const char* className, kvProc* registerProcOut) {
    using kova::kernel::showKernelMessage;
    if (!className) className = "Object";
    char procName[KV_CLASS_NAME_SIZE + 16];
    std::snprintf(procName, sizeof procName, "register%.19s", className);

    char library[512];
    kvProc proc = nullptr;
    kvModule module = nullptr;
    const char* lastTried = library;
    if (kvTableFind_CLASSLOCATION2(className, library, sizeof library - 1)) {
        long systemError = 0;
        module = kova::platform::loadLibrary(library, &systemError);
        if (!module) {
            showKernelMessage(kova::kernel::kernelErrorCaption,
                              "Failure to load DLL %s, Error returned by LoadLibrary: %ld.\n",
                              library, systemError);
            return nullptr;
        }
        proc = kova::platform::findProcedure(module, procName);
        if (!proc) {
            kova::platform::freeLibrary(module);
            module = nullptr;
        }
    } else {
        for (const char* candidate : defaultLibraries) {
            lastTried = candidate;
            module = loadWithProcedure(candidate, procName, &proc);
            if (module) break;
        }
    }
    if (!module) {
        showKernelMessage(kova::kernel::kernelErrorCaption,
                          "Failure to find procedure %s in DLL %s.", procName, lastTried);
        proc = nullptr;
    }
    if (registerProcOut) *registerProcOut = proc;
    return module;
}

// The class of that name, registered first from its class library when the
// class table does not hold it yet.
KV_API kvClass kvRegisterClass(const char* name) {
    if (kvClass known = kvFindClass(name)) return known;
    kvProc registerProc = nullptr;
    kvModule module = kvLoadClassLibrary(name, &registerProc);
    if (!module) return nullptr;
    reinterpret_cast<kvClass (*)(void)>(registerProc)();
    kova::platform::freeLibrary(module);
    return kvFindClass(name);
}

} // extern "C"
