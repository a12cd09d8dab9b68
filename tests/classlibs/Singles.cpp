// A small class library for the tests of single-instance classes and
// forwarders, "TESTSGL.DLL":
//   Solo (OneInstance)  remembers its first creation argument and counts its
//                       "objInit" and "objTerm" runs
//   Duet (OneInstance)  adds nothing
//   Echo (Object)       a forwarding target with a value of its own
#include "kova/kernel.h"

namespace {

kvClass SoloClass, EchoClass;
int32_t soloTermCalls = 0; // "objTerm" runs of every Solo, also of freed ones

#pragma pack(push, 1)
struct SoloData {
    int32_t initArg;   // first creation argument
    int32_t initCalls; // "objInit" runs on this object
};
struct EchoData {
    int32_t value;
};
#pragma pack(pop)

KV_METHOD_TABLE(soloMethods,                     //
                kova::method("getInitArg", 0),   //
                kova::method("getInitCalls", 0), //
                kova::method("objInit", 1),      //
                kova::method("objTerm", 0));
KV_METHOD_TABLE(soloClassMethods, //
                kova::method("termCalls", 0));
KV_METHOD_TABLE(echoMethods,                  //
                kova::method("argCount", 0),  //
                kova::method("fetchData", 0), //
                kova::method("getSelf", 0),   //
                kova::method("objInit", 1),   //
                kova::method("storeData", 1), //
                kova::method("sum", 2));
KV_EMPTY_METHOD_TABLE(noMethods);

EchoData* echoOf(void* instData) {
    return static_cast<EchoData*>(instData);
}

} // namespace

KV_METHOD(Solo, getInitArg) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<SoloData*>(instData)->initArg;
}

KV_METHOD(Solo, getInitCalls) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<SoloData*>(instData)->initCalls;
}

KV_METHOD(Solo, objInit) {
    kvSendParentMethNA(errSlot, SoloClass, self, "objInit", args);
    auto* solo = static_cast<SoloData*>(instData);
    solo->initArg = static_cast<int32_t>(kvArgAt(args, 0));
    ++solo->initCalls;
    return 0;
}

// Harmless for an object that stays alive: it only counts.
KV_METHOD(Solo, objTerm) {
    (void)instData;
    ++soloTermCalls;
    return kvSendParentMethNA(errSlot, SoloClass, self, "objTerm", args);
}

KV_CLASS_METHOD(Solo, termCalls) {
    (void)errSlot, (void)self, (void)args;
    return soloTermCalls;
}

KV_METHOD(Echo, argCount) {
    (void)errSlot, (void)self, (void)instData;
    return args ? static_cast<kvResult>(args->count) : 0;
}

KV_METHOD(Echo, fetchData) {
    (void)errSlot, (void)self, (void)args;
    return echoOf(instData)->value;
}

KV_METHOD(Echo, getSelf) {
    (void)errSlot, (void)instData, (void)args;
    return reinterpret_cast<kvResult>(self);
}

KV_METHOD(Echo, objInit) {
    kvSendParentMethNA(errSlot, EchoClass, self, "objInit", args);
    echoOf(instData)->value = static_cast<int32_t>(kvArgAt(args, 0));
    return 0;
}

// Answers 1 so that a test can tell the target's answer from a forwarder's.
KV_METHOD(Echo, storeData) {
    (void)errSlot, (void)self;
    echoOf(instData)->value = static_cast<int32_t>(kvArgAt(args, 0));
    return 1;
}

KV_METHOD(Echo, sum) {
    (void)errSlot, (void)self;
    return echoOf(instData)->value + kvArgAt(args, 0) + kvArgAt(args, 1);
}

KV_REGISTER(Solo) {
    if (!kvRegisterClass("OneInstance")) return nullptr;
    SoloClass = kvAddClass("Solo", "OneInstance", sizeof(SoloData), 0, soloMethods.get(),
                           soloClassMethods.get());
    return SoloClass;
}

KV_REGISTER(Duet) {
    if (!kvRegisterClass("OneInstance")) return nullptr;
    return kvAddClass("Duet", "OneInstance", 0, 0, noMethods.get(), noMethods.get());
}

KV_REGISTER(Echo) {
    if (!kvRegisterClass("Object")) return nullptr;
    EchoClass =
        kvAddClass("Echo", "Object", sizeof(EchoData), 0, echoMethods.get(), noMethods.get());
    return EchoClass;
}
