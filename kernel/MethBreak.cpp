// MethBreak: the breakpoint switch of one method as a property. Its value is
// the method record's breakpoint flag (flags bit 1, value 2), which it only
// reads; storing asks the debugging aids to set or clear the breakpoint.
// A method record read from a stream is kept only when it is a record of a
// class of the running class table.
#include "kova/kernel.h"

namespace {

#pragma pack(push, 1)
struct MethBreakData {
    kvMethodRecord* method; // the method whose switch this is, or null
};
#pragma pack(pop)

kvClass MethBreakClass = nullptr;

KV_METHOD_TABLE(methBreakMethods,                  //
                kova::method("fetchData", 0),      //
                kova::method("getMethod", 0),      //
                kova::method("objInit", 0),        //
                kova::method("readFromStream", 1), //
                kova::method("setMethod", 1),      //
                kova::method("storeData", 1));
KV_EMPTY_METHOD_TABLE(methBreakClassMethods);

MethBreakData* dataOf(void* instData) {
    return static_cast<MethBreakData*>(instData);
}

bool isRecordOf(const kvMethodTable* table, const kvMethodRecord* method) {
    if (!table) return false;
    for (uint16_t i = 0; i < table->count; ++i)
        if (&table->records[i] == method) return true;
    return false;
}

bool isRecordOfTheTable(const kvMethodRecord* method) {
    for (size_t i = 0; i < kvGetClassCount(); ++i) {
        const kvClass cls = kvGetClassAt(i);
        if (isRecordOf(cls->methodTable, method) || isRecordOf(cls->classMethodTable, method))
            return true;
    }
    return false;
}

} // namespace

// After "OnFetch": the method's breakpoint flag (2 or 0); 0 without a method.
KV_METHOD(MethBreak, fetchData) {
    kvSendParentMethNA(errSlot, MethBreakClass, self, "fetchData", args);
    const kvMethodRecord* method = dataOf(instData)->method;
    return method ? method->flags & KV_METHOD_BREAK : 0;
}

KV_METHOD(MethBreak, getMethod) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->method);
}

KV_METHOD(MethBreak, objInit) {
    (void)instData;
    return kvSendParentMethNA(errSlot, MethBreakClass, self, "objInit", args);
}

// (stream): the base record; a method record that is not one of the running
// class table is dropped rather than followed.
KV_METHOD(MethBreak, readFromStream) {
    const kvResult result =
        kvSendParentMethNA(errSlot, MethBreakClass, self, "readFromStream", args);
    MethBreakData* data = dataOf(instData);
    if (!isRecordOfTheTable(data->method)) data->method = nullptr;
    return result;
}

KV_METHOD(MethBreak, setMethod) {
    (void)errSlot, (void)self;
    dataOf(instData)->method = reinterpret_cast<kvMethodRecord*>(kvArgAt(args, 0));
    return 0;
}

// (on or off): with a method, asks the debugging aids to set (non-zero) or
// clear (zero) its breakpoint; then "OnStore" with the value. Answers 0.
KV_METHOD(MethBreak, storeData) {
    const kvMethodRecord* method = dataOf(instData)->method;
    if (method) {
        char name[KV_METHOD_NAME_SIZE + 1] = {};
        for (size_t i = 0; i < KV_METHOD_NAME_SIZE && method->name[i]; ++i)
            name[i] = method->name[i];
        if (kvArgAt(args, 0))
            kvMethodSetBreak(nullptr, name);
        else
            kvMethodClearBreak(nullptr, name);
    }
    kvSendParentMethNA(errSlot, MethBreakClass, self, "storeData", args);
    return 0;
}

KV_REGISTER(MethBreak) {
    if (!kvRegisterClass("Property")) return nullptr;
    MethBreakClass = kvAddClass("MethBreak", "Property", sizeof(MethBreakData), 0,
                                methBreakMethods.get(), methBreakClassMethods.get());
    return MethBreakClass;
}
