// OneInstance: creating an object of any subclass answers the one live object
// of that class, counting references; each deletion drops one reference and
// the last one destroys the object. The live objects are kept in one
// instance table, a StrTable of unique class names whose keys are the
// objects; it exists while at least one such object lives.
#include "errors/Raise.hpp"
#include "kernel/Kernel.hpp"

#include <cstdint>

namespace {

#pragma pack(push, 1)
struct OneInstanceData {
    uint16_t refCount; // creations not yet matched by a deletion
};
#pragma pack(pop)

kvClass OneInstanceClass = nullptr;
kvObject instanceTable = nullptr; // class name -> its one object; null while none lives

constexpr kvArg uniqueStrings = 102; // the StrTable mode that refuses repeated strings

KV_METHOD_TABLE(oneInstanceMethods,              //
                kova::method("addReference", 0), //
                kova::method("getRefCount", 0),  //
                kova::method("removeReference", 0));
KV_METHOD_TABLE(oneInstanceClassMethods,         //
                kova::method("classTerm", 0),    //
                kova::method("objectCreate", 0), //
                kova::method("objectDestroy", 1));

OneInstanceData* countOf(void* instData) {
    return static_cast<OneInstanceData*>(instData);
}

// The live object of class `cls`, or null when there is none.
kvObject liveObjectOf(kvObject* errSlot, kvClass cls) {
    const kvResult index = kvSendMeth(errSlot, instanceTable, "findString", kvClassName(cls));
    if (index < 0) return nullptr;
    return reinterpret_cast<kvObject>(kvSendMeth(errSlot, instanceTable, "getKey", index));
}

// Creates a new object of `cls` the way OneInstance's parent creates objects
// and enters it in the instance table. Null when either fails; an object that
// could not be entered is deleted again, since a second creation could not
// find it.
kvObject createAndEnter(kvObject* errSlot, kvClass cls, const kvArgs* args) {
    const kvMethodRecord* create =
        kvFindMethod(nullptr, OneInstanceClass->parent, "objectCreate", 1);
    if (!create) return nullptr;
    const auto obj =
        reinterpret_cast<kvObject>(reinterpret_cast<kvClassProc>(create->proc)(errSlot, cls, args));
    if (!obj) return nullptr;
    if (kvSendMeth(errSlot, instanceTable, "addKey", kvClassName(cls), obj) >= 0) return obj;
    // One reference, so that the deletion below is the last one.
    kvSendMeth(errSlot, obj, "addReference");
    kvDelObject(errSlot, obj);
    return nullptr;
}

// Deletes the instance table once it holds no object, so that it lives
// exactly as long as some single-instance object does.
void dropTableIfEmpty(kvObject* errSlot) {
    if (!instanceTable || kvSendMeth(errSlot, instanceTable, "getCount") != 0) return;
    kvDelObject(errSlot, instanceTable);
    instanceTable = nullptr;
}

// Removes `obj` from the instance table (when it is the object entered there).
void forget(kvObject* errSlot, kvObject obj) {
    if (!instanceTable) return;
    if (liveObjectOf(errSlot, obj->cls) == obj)
        kvSendMeth(errSlot, instanceTable, "delString", kvClassName(obj->cls));
    dropTableIfEmpty(errSlot);
}

} // namespace

KV_METHOD(OneInstance, addReference) {
    (void)errSlot, (void)self, (void)args;
    ++countOf(instData)->refCount;
    return 0;
}

KV_METHOD(OneInstance, getRefCount) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<int16_t>(countOf(instData)->refCount);
}

// Never below 0: a stray extra removal must not make the object immortal.
KV_METHOD(OneInstance, removeReference) {
    (void)errSlot, (void)self, (void)args;
    OneInstanceData* data = countOf(instData);
    if (data->refCount) --data->refCount;
    return 0;
}

// The kernel is closing its classes: the table's class may already be gone,
// so the table is forgotten, not deleted.
KV_CLASS_METHOD(OneInstance, classTerm) {
    (void)errSlot, (void)self, (void)args;
    instanceTable = nullptr;
    return 0;
}

// Received by the subclass being created: answers its one object with one
// more reference, creating it on first demand. Null with error 3428 when the
// instance table cannot be made, or with the creation's own errors.
KV_CLASS_METHOD(OneInstance, objectCreate) {
    if (!instanceTable) instanceTable = kvNewObject(errSlot, "StrTable", uniqueStrings);
    if (!instanceTable) {
        kova::kernel::storeError(errSlot, kvMakeError(3428));
        return 0;
    }
    kvObject obj = liveObjectOf(errSlot, self);
    if (!obj) obj = createAndEnter(errSlot, self, args);
    if (!obj) {
        dropTableIfEmpty(errSlot);
        return 0;
    }
    kvSendMeth(errSlot, obj, "addReference");
    return reinterpret_cast<kvResult>(obj);
}

// (object): reached at the end of every deletion's "objTerm" chain. Drops one
// reference; only the last one frees the object.
KV_CLASS_METHOD(OneInstance, objectDestroy) {
    (void)self;
    const auto obj = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    if (!obj) return 0;
    kvSendMeth(errSlot, obj, "removeReference");
    if (kvSendMeth(errSlot, obj, "getRefCount") != 0) return 0;
    forget(errSlot, obj);
    return kvSendClParentMethNA(errSlot, OneInstanceClass, "objectDestroy", args);
}

KV_REGISTER(OneInstance) {
    if (!kvRegisterClass("Object")) return nullptr;
    OneInstanceClass = kvAddClass("OneInstance", "Object", sizeof(OneInstanceData), 0,
                                  oneInstanceMethods.get(), oneInstanceClassMethods.get());
    return OneInstanceClass;
}
