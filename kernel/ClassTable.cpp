// The class table: every class of the process, in the order it was added.
// A class is added once, keeps its class library loaded for its whole life,
// and all classes end together, newest first.
#include "kernel/Kernel.hpp"
#include "kova/classloc.h"
#include "platform/Platform.hpp"

#include <cstdio>
#include <cstring>

namespace {

kvClass* classTable = nullptr; // heap array of handles, one slot per class
size_t classCount = 0;

// Looks up the procedure of every record of `table` in `library`, storing each
// in its record; the name of a procedure is the class name, the method name
// and `suffix`. Answers the first record whose procedure is missing, or null.
kvMethodRecord* bindProcedures(kvMethodTable* table, const char* className, kvModule library,
                               const char* suffix) {
    if (!table) return nullptr;
    for (uint16_t i = 0; i < table->count; ++i) {
        kvMethodRecord& record = table->records[i];
        char procName[KV_CLASS_NAME_SIZE + KV_METHOD_NAME_SIZE + 4];
        std::snprintf(procName, sizeof procName, "%s%.32s%s", className, record.name, suffix);
        record.proc = kova::platform::findProcedure(library, procName);
        if (!record.proc) return &record;
    }
    return nullptr;
}

// Appends a class to the table, growing it by exactly one slot.
bool appendClass(kvClass cls) {
    auto* grown = static_cast<kvClass*>(
        kova::platform::reallocate(classTable, (classCount + 1) * sizeof(kvClass)));
    if (!grown) return false;
    classTable = grown;
    classTable[classCount++] = cls;
    return true;
}

// Sends "classInit" to a new class; what it reports is not the caller's.
void initialiseClass(kvClass cls) {
    kvObject error = nullptr;
    kvSendClMeth(&error, cls, "classInit");
    kova::kernel::discardErrors(error);
}

} // namespace

extern "C" {

KV_API kvClass kvFindClass(const char* name) {
    if (!name) name = "Object";
    for (size_t i = 0; i < classCount; ++i)
        if (std::strcmp(classTable[i]->name, name) == 0) return classTable[i];
    return nullptr;
}

KV_API size_t kvGetClassCount(void) {
    return classCount;
}

KV_API kvClass kvGetClassAt(size_t index) {
    return index < classCount ? classTable[index] : nullptr;
}

// Adds a class and answers its handle, or the existing class of that name.
// The class's procedures come from its own class library, which stays loaded
// until the classes are closed; any failure leaves no trace in the table.
KV_API kvClass kvAddClass(const char* name, const char* parentName, uint16_t instanceSize, kvArg,
                          kvMethodTable* methodTable, kvMethodTable* classMethodTable) {
    using kova::kernel::showKernelMessage;
    if (kvClass existing = kvFindClass(name)) return existing;
    if (!name || std::strlen(name) >= KV_CLASS_NAME_SIZE) {
        showKernelMessage(kova::kernel::kernelErrorCaption,
                          "The class name %s is not between 1 and 19 characters long.\n",
                          name ? name : "(null)");
        return nullptr;
    }
    const kvClass parent = kvFindClass(parentName);
    const unsigned dataOffset = parent ? parent->dataOffset + parent->instanceSize : 0u;
    if (dataOffset + instanceSize > 0xFFFFu) {
        showKernelMessage(kova::kernel::kernelErrorCaption,
                          "The instance data of class %s exceeds 65535 bytes.\n", name);
        return nullptr;
    }

    auto* cls = static_cast<kvClass>(kova::platform::allocateZeroed(sizeof(kvClassRecord)));
    if (!cls) return nullptr;
    std::strncpy(cls->name, name, KV_CLASS_NAME_SIZE - 1);

    cls->library = kvLoadClassLibrary(name, nullptr);
    if (!cls->library) {
        showKernelMessage(kova::kernel::criticalErrorCaption,
                          "kvAddClass failed to find the DLL for class: %s\n"
                          "Error reported by system: %ld\n",
                          name, 0L);
        kova::platform::release(cls);
        return nullptr;
    }
    if (const kvMethodRecord* missing = bindProcedures(methodTable, name, cls->library, "_")) {
        const std::string libraryName = kova::platform::moduleFileName(cls->library);
        kova::platform::freeLibrary(cls->library);
        showKernelMessage(kova::kernel::kernelErrorCaption,
                          "Could not find implementation for method %.32s for class %s in class "
                          "library %s.\n",
                          missing->name, name, libraryName.c_str());
        kova::platform::release(cls);
        return nullptr;
    }
    if (bindProcedures(classMethodTable, name, cls->library, "C_")) {
        kova::platform::freeLibrary(cls->library);
        kova::platform::release(cls);
        return nullptr;
    }

    cls->instanceSize = instanceSize;
    cls->methodTable = methodTable;
    cls->classMethodTable = classMethodTable;
    cls->parent = parent;
    cls->dataOffset = static_cast<uint16_t>(dataOffset);
    if (!appendClass(cls)) {
        kova::platform::freeLibrary(cls->library);
        kova::platform::release(cls);
        return nullptr;
    }
    kova::kernel::forgetMissedNames();
    if (!kova::kernel::createMethodCache(cls))
        showKernelMessage(kova::kernel::errorCaption, "Could not allocate class method cache.");
    initialiseClass(cls);
    return cls;
}

// Ends every class, newest first, so each "classTerm" runs while the class's
// ancestors still exist; then empties the table.
KV_API void kvCloseClasses(void) {
    while (classCount > 0) {
        const kvClass cls = classTable[classCount - 1];
        kvObject error = nullptr;
        kvSendClMeth(&error, cls, "classTerm");
        kova::kernel::discardErrors(error);
        --classCount;
        kova::kernel::freeMethodCache(cls);
        kova::platform::freeLibrary(cls->library);
        kova::platform::release(cls);
    }
    kova::platform::release(classTable);
    classTable = nullptr;
    kova::kernel::forgetSendSites();
    kova::kernel::forgetMissedNames();
}

} // extern "C"
