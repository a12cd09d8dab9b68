// The root class Object: every class inherits its methods, and its class
// methods create and destroy the objects of every class. Its "error" and
// "errorSystem" methods belong to error reporting and live with the error
// classes.
#include "errors/Raise.hpp"
#include "kernel/Kernel.hpp"
#include "platform/Platform.hpp"

#include <cstdio>
#include <cstring>

namespace {

kvClass ObjectClass = nullptr;

KV_METHOD_TABLE(objectMethods,                       //
                kova::method("MethodNotFound", 2),   //
                kova::method("error", 2),            //
                kova::method("errorSystem", 1),      //
                kova::method("getFreeMem", 0),       //
                kova::method("getMethodPointer", 1), //
                kova::method("isA", 1),              //
                kova::method("objInit", 0),          //
                kova::method("objTerm", 0),          //
                kova::method("print", 0),            //
                kova::method("respondsTo", 1));

KV_METHOD_TABLE(objectClassMethods,                     //
                kova::method("ClassMethodNotFound", 2), //
                kova::method("classInit", 0),           //
                kova::method("classTerm", 0),           //
                kova::method("objectCreate", 0),        //
                kova::method("objectDestroy", 1));

const char* argString(const kvArgs* args, size_t index) {
    return reinterpret_cast<const char*>(kvArgAt(args, index));
}

} // namespace

// The name of a method nobody defines, reported as error 3427 against the
// receiver's class.
KV_METHOD(Object, MethodNotFound) {
    (void)instData;
    return kova::raiseError(errSlot, self, ObjectClass, 3427, argString(args, 0),
                            kvClassName(self->cls));
}

KV_METHOD(Object, getFreeMem) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return static_cast<kvResult>(kova::platform::availablePhysicalMemory());
}

KV_METHOD(Object, getMethodPointer) {
    (void)errSlot, (void)instData;
    return reinterpret_cast<kvResult>(kvFindMethod(nullptr, self->cls, argString(args, 0), 0));
}

// -1 (not 1) when the receiver's class or an ancestor has exactly that name.
KV_METHOD(Object, isA) {
    (void)errSlot, (void)instData;
    const char* name = argString(args, 0);
    if (!name) return 0;
    for (kvClass c = self->cls; c; c = c->parent)
        if (std::strcmp(c->name, name) == 0) return -1;
    return 0;
}

KV_METHOD(Object, objInit) {
    (void)instData;
    kvSendParentMethNA(errSlot, ObjectClass, self, "objInit", args);
    return 0;
}

// Reached last in every object's "objTerm" chain: the class destroys the
// object, and the root's answer (-1) travels back up the chain.
KV_METHOD(Object, objTerm) {
    (void)instData;
    kvSendClMeth(errSlot, self->cls, "objectDestroy", self);
    return kvSendParentMethNA(errSlot, ObjectClass, self, "objTerm", args);
}

KV_METHOD(Object, print) {
    (void)errSlot, (void)instData, (void)args;
    char line[KV_CLASS_NAME_SIZE + 2];
    std::snprintf(line, sizeof line, "%s\n", kvClassName(self->cls));
    return 0;
}

KV_METHOD(Object, respondsTo) {
    (void)errSlot, (void)instData;
    return kvFindMethod(nullptr, self->cls, argString(args, 0), 0) ? 1 : 0;
}

// A class method nobody defines: handed to the class's "error" class method
// when its chain has one; otherwise reported here as error 3427, which ends
// the chain instead of re-entering this method.
KV_CLASS_METHOD(Object, ClassMethodNotFound) {
    const char* missing = argString(args, 0);
    const auto* senderArgs = reinterpret_cast<const kvArgs*>(kvArgAt(args, 1));
    if (kvFindMethod(nullptr, self, "error", 1))
        return kvSendClMeth(errSlot, self, "error", 3427, senderArgs);
    kova::kernel::storeError(errSlot, kvMakeError(3427, missing, kvClassName(self)));
    return 0;
}

KV_CLASS_METHOD(Object, classInit) {
    (void)errSlot, (void)self, (void)args;
    return 0;
}

KV_CLASS_METHOD(Object, classTerm) {
    (void)errSlot, (void)self, (void)args;
    return 0;
}

// Creates an object of the receiving class: a zero-filled header and data
// block, then "objInit" with the creation arguments.
KV_CLASS_METHOD(Object, objectCreate) {
    kvObject obj = kvAllocObject();
    if (!obj) return 0;
    obj->cls = self;
    obj->ownDataOffset = self->dataOffset;
    const size_t total = static_cast<uint16_t>(self->dataOffset + self->instanceSize);
    if (total) {
        obj->data = kova::platform::allocateZeroed(total);
        if (!obj->data) {
            kova::raiseError(errSlot, obj, ObjectClass, 3426);
            kvFreeObject(obj);
            return 0;
        }
    }
    kvSendMethNA(errSlot, obj, "objInit", args);
    return reinterpret_cast<kvResult>(obj);
}

KV_CLASS_METHOD(Object, objectDestroy) {
    (void)errSlot, (void)self;
    auto obj = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    if (!obj) return 0;
    kova::platform::release(obj->data);
    kvFreeObject(obj);
    return 0;
}

KV_REGISTER(Object) {
    ObjectClass =
        kvAddClass("Object", nullptr, 2, 0, objectMethods.get(), objectClassMethods.get());
    return ObjectClass;
}
