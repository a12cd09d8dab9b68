// Forw: an object that stands in for another. Every method that neither Forw
// nor its ancestors define goes on to the target, which answers it with its
// own instance data; methods of Object ("isA", "respondsTo", ...) are answered
// by the forwarder itself. The object flag KV_OBJ_FORWARDER makes
// notification operations on a forwarder act on its target.
#include "errors/Raise.hpp"
#include "kernel/Forwarding.hpp"

namespace {

#pragma pack(push, 1)
struct ForwData {
    kvObject target; // where unknown methods go; null until set
};
#pragma pack(pop)

kvClass ForwClass = nullptr;

// Forwards in progress, nested. Each hop of a ring of forwarders adds one, so
// a bound on it ends a ring; real chains are a few hops deep. The same bound
// ends kvResolveForwards.
constexpr int maxForwardDepth = 256;
int forwardDepth = 0;

KV_METHOD_TABLE(forwMethods,                       //
                kova::method("MethodNotFound", 2), //
                kova::method("getForward", 0),     //
                kova::method("objInit", 1),        //
                kova::method("setForward", 1));
KV_EMPTY_METHOD_TABLE(forwClassMethods);

ForwData* forwOf(void* instData) {
    return static_cast<ForwData*>(instData);
}

} // namespace

namespace kova::kernel {

kvResult forwardMessage(kvObject* errSlot, kvObject self, kvClass forwarderClass, kvObject target,
                        const char* name, const kvArgs* args) {
    if (target == self || forwardDepth >= maxForwardDepth)
        return raiseError(errSlot, self, forwarderClass, 3427, name, kvClassName(self->cls));
    ++forwardDepth;
    const kvResult answer = kvSendMethNA(errSlot, target, name, args);
    --forwardDepth;
    return answer;
}

} // namespace kova::kernel

// (method name, the sender's argument list): the target answers. Without a
// target this is a send to a null object: the kernel's message box, answer 0.
KV_METHOD(Forw, MethodNotFound) {
    const kvObject target = forwOf(instData)->target;
    return kova::kernel::forwardMessage(errSlot, self, ForwClass, target,
                                        reinterpret_cast<const char*>(kvArgAt(args, 0)),
                                        reinterpret_cast<const kvArgs*>(kvArgAt(args, 1)));
}

KV_METHOD(Forw, getForward) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(forwOf(instData)->target);
}

// (target, then Object's creation arguments). The target is set by a send so
// that a subclass's "setForward" takes part.
KV_METHOD(Forw, objInit) {
    (void)instData;
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, ForwClass, self, "objInit", &rest);
    self->flags |= KV_OBJ_FORWARDER;
    kvSendMeth(errSlot, self, "setForward", kvArgAt(args, 0));
    return 0;
}

KV_METHOD(Forw, setForward) {
    (void)errSlot, (void)self;
    forwOf(instData)->target = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    return 1;
}

KV_REGISTER(Forw) {
    if (!kvRegisterClass("Object")) return nullptr;
    ForwClass = kvAddClass("Forw", "Object", sizeof(ForwData), 0, forwMethods.get(),
                           forwClassMethods.get());
    return ForwClass;
}
