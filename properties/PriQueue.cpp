// PriQueue: a Collection kept in order of a priority that each object reports
// through a method of its own ("getPriority" unless the queue is told
// another). Higher priorities come first; equal ones keep their order of
// arrival. Every insertion, by addObject or insertObject, is ordered.
#include "errors/Raise.hpp"

#include <cstdint>
#include <cstring>

namespace {

kvClass PriQueueClass = nullptr;

constexpr size_t methodNameSize = 32;

#pragma pack(push, 1)
struct PriQueueData {
    char priorityMethod[methodNameSize]; // method each object answers its priority to
};
#pragma pack(pop)

KV_METHOD_TABLE(priQueueMethods,                 //
                kova::method("addObject", 1),    //
                kova::method("getPriMethod", 0), //
                kova::method("insertObject", 1), //
                kova::method("objInit", 1));
KV_EMPTY_METHOD_TABLE(priQueueClassMethods);

PriQueueData* dataOf(void* instData) {
    return static_cast<PriQueueData*>(instData);
}

// The object's priority: the low 16 bits of its answer, signed.
int16_t priorityOf(kvObject* errSlot, kvObject object, const char* method) {
    return static_cast<int16_t>(kvSendMeth(errSlot, object, method));
}

// The first position whose object has a strictly lower priority than
// `priority`, or -1 when there is none (the object belongs at the end).
kvResult positionFor(kvObject* errSlot, kvObject self, const char* method, int16_t priority) {
    const kvResult count = kvSendMeth(errSlot, self, "getCount");
    for (kvResult i = 0; i < count; ++i) {
        const auto member = reinterpret_cast<kvObject>(kvSendMeth(errSlot, self, "getObject", i));
        if (member && priorityOf(errSlot, member, method) < priority) return i;
    }
    return -1;
}

} // namespace

// (priority method name, owns contents, ...): at most 31 characters of the
// name are kept; a null name means "getPriority".
KV_METHOD(PriQueue, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, PriQueueClass, self, "objInit", &rest);
    const auto* name = reinterpret_cast<const char*>(kvArgAt(args, 0));
    char* field = dataOf(instData)->priorityMethod;
    std::memset(field, 0, methodNameSize);
    std::strncpy(field, name ? name : "getPriority", methodNameSize - 1);
    return 0;
}

KV_METHOD(PriQueue, getPriMethod) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->priorityMethod);
}

// (object): places the object before the first one of strictly lower
// priority and moves the cursor onto it, answering that position; with no
// such object appends it (Collection's answer, 1). An object that does not
// answer the priority method, a null one included, is refused with 3446 and
// the answer 0. The cursor moves only once the insertion has succeeded.
KV_METHOD(PriQueue, addObject) {
    const char* method = dataOf(instData)->priorityMethod;
    const auto object = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    if (!object || !kvSendMeth(errSlot, object, "respondsTo", method))
        return kova::raiseError(errSlot, self, PriQueueClass, 3446);
    const int16_t priority = priorityOf(errSlot, object, method);
    const kvResult at = positionFor(errSlot, self, method, priority);
    if (at < 0) return kvSendParentMeth(errSlot, PriQueueClass, self, "addObject", object);
    // Collection's own insertObject: ours would come back here.
    if (!kvSendParentMeth(errSlot, PriQueueClass, self, "insertObject", object, at)) return 0;
    kvSendMeth(errSlot, self, "setIndex", at);
    return at;
}

// (object): an insertion is an ordered addition.
KV_METHOD(PriQueue, insertObject) {
    (void)instData;
    return kvSendMeth(errSlot, self, "addObject", kvArgAt(args, 0));
}

KV_REGISTER(PriQueue) {
    if (!kvRegisterClass("Collection")) return nullptr;
    PriQueueClass = kvAddClass("PriQueue", "Collection", sizeof(PriQueueData), 0,
                               priQueueMethods.get(), priQueueClassMethods.get());
    return PriQueueClass;
}
