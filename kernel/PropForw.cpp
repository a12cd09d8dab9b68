// PropForw: a property that stands in for another object, as a link stands in
// for the property it is linked to. Methods that no class of its chain
// defines go on to the target; "fetchData" and "storeData", which Property
// defines, are sent on explicitly. Without a target nothing can be delivered
// and the missing link is reported.
#include "errors/Raise.hpp"
#include "kernel/Forwarding.hpp"

namespace {

#pragma pack(push, 1)
struct PropForwData {
    kvObject target; // where unknown methods go; null while unlinked
};
#pragma pack(pop)

kvClass PropForwClass = nullptr;

KV_METHOD_TABLE(propForwMethods,                   //
                kova::method("MethodNotFound", 2), //
                kova::method("fetchData", 0),      //
                kova::method("getForward", 0),     //
                kova::method("objInit", 1),        //
                kova::method("readFromStream", 1), //
                kova::method("setForward", 1),     //
                kova::method("storeData", 1));
KV_EMPTY_METHOD_TABLE(propForwClassMethods);

PropForwData* forwOf(void* instData) {
    return static_cast<PropForwData*>(instData);
}

} // namespace

// (method name, the sender's argument list): the target answers; without a
// target, error 3451 and the answer 0.
KV_METHOD(PropForw, MethodNotFound) {
    const kvObject target = forwOf(instData)->target;
    if (!target) return kova::raiseError(errSlot, self, PropForwClass, 3451);
    return kova::kernel::forwardMessage(errSlot, self, PropForwClass, target,
                                        reinterpret_cast<const char*>(kvArgAt(args, 0)),
                                        reinterpret_cast<const kvArgs*>(kvArgAt(args, 1)));
}

// Sent through "MethodNotFound" on the object itself, so that a subclass
// that links on demand gets the chance to link first.
KV_METHOD(PropForw, fetchData) {
    (void)instData;
    return kvSendMeth(errSlot, self, "MethodNotFound", "fetchData", args);
}

KV_METHOD(PropForw, getForward) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(forwOf(instData)->target);
}

// (target, then Property's creation arguments: owner, name, id, flags).
KV_METHOD(PropForw, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, PropForwClass, self, "objInit", &rest);
    self->flags |= KV_OBJ_FORWARDER;
    forwOf(instData)->target = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    return 0;
}

// (stream): Property's record, except that the target survives it. A saved
// record holds the target's address from another time; taking it would
// forward to whatever lies there now.
KV_METHOD(PropForw, readFromStream) {
    PropForwData* forw = forwOf(instData);
    const kvObject target = forw->target;
    const kvResult answer =
        kvSendParentMethNA(errSlot, PropForwClass, self, "readFromStream", args);
    forw->target = target;
    return answer;
}

KV_METHOD(PropForw, setForward) {
    (void)errSlot, (void)self;
    forwOf(instData)->target = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    return 0;
}

// (value): the target stores it.
KV_METHOD(PropForw, storeData) {
    (void)instData;
    return kvSendMeth(errSlot, self, "MethodNotFound", "storeData", args);
}

KV_REGISTER(PropForw) {
    if (!kvRegisterClass("Property")) return nullptr;
    PropForwClass = kvAddClass("PropForw", "Property", sizeof(PropForwData), 0,
                               propForwMethods.get(), propForwClassMethods.get());
    return PropForwClass;
}
