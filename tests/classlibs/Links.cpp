// A class library for the component model's tests ("TESTLNK.DLL"):
//   Probe (Object) stands for a sink, a provider, a linked object or an
//                  owner: it counts what the registry and links send it,
//                  answers "getOwner", "getDisplayName" and "isA" as set up,
//                  and runs an action of the test's on each message it counts
//   TestTM (TM)    a technology with an integer property "Width" (default
//                  100) and a source property "Input" of the service
//                  "ImageData"; it offers "ImageData" itself
//   SubSource (SourceProperty) a subclass that adds nothing
#include "kova/kernel.h"

#include <cstring>

namespace {

kvClass ProbeClass, TestTMClass;

// What a test runs when a probe receives a counted message.
using ProbeAction = void (*)(kvObject* errSlot, kvObject probe, const char* message, void* context);

#pragma pack(push, 1)
struct ProbeData {
    int32_t calls;           // counted messages received
    int32_t sequence;        // the library-wide count when the last one arrived
    char lastMessage[32];    // name of the last counted message
    char lastText[96];       // its text argument, if any
    kvArg lastArg;           // its first slot
    kvObject owner;          // answer of "getOwner"
    const char* displayName; // answer of "getDisplayName"
    const char* className;   // a class "isA" answers 1 for
    ProbeAction action;      // run on each counted message, or null
    void* context;           // handed to the action
};
#pragma pack(pop)

int32_t deliveries = 0; // counted messages of every probe, in order

KV_METHOD_TABLE(probeMethods,                             //
                kova::method("OnLinked", 1),              //
                kova::method("OnUnlinked", 1),            //
                kova::method("getCalls", 0),              //
                kova::method("getDisplayName", 0),        //
                kova::method("getLastArg", 0),            //
                kova::method("getLastMessage", 0),        //
                kova::method("getLastText", 0),           //
                kova::method("getOwner", 0),              //
                kova::method("getSequence", 0),           //
                kova::method("isA", 1),                   //
                kova::method("onEvent", 0),               //
                kova::method("ping", 1),                  //
                kova::method("requiredLinkAvailable", 1), //
                kova::method("setAction", 2),             //
                kova::method("setUp", 3),                 //
                kova::method("storeData", 1));
KV_METHOD_TABLE(testTMMethods,                         //
                kova::method("getModuleInstance", 0),  //
                kova::method("objInit", 1),            //
                kova::method("registerProperties", 1), //
                kova::method("setPropertyDefaults", 0));
KV_EMPTY_METHOD_TABLE(noMethods);

ProbeData* probeOf(void* instData) {
    return static_cast<ProbeData*>(instData);
}

// Counts a message and remembers it; `textAt` is the slot holding its text
// argument, or -1.
kvResult count(kvObject* errSlot, kvObject self, void* instData, const char* message,
               const kvArgs* args, int textAt) {
    ProbeData* probe = probeOf(instData);
    ++probe->calls;
    probe->sequence = ++deliveries;
    std::strncpy(probe->lastMessage, message, sizeof probe->lastMessage - 1);
    probe->lastArg = kvArgAt(args, 0);
    probe->lastText[0] = '\0';
    const auto* text = textAt < 0 ? nullptr : reinterpret_cast<const char*>(kvArgAt(args, textAt));
    if (text) std::strncpy(probe->lastText, text, sizeof probe->lastText - 1);
    if (probe->action) probe->action(errSlot, self, message, probe->context);
    return 0;
}

} // namespace

KV_METHOD(Probe, OnLinked) {
    return count(errSlot, self, instData, "OnLinked", args, -1);
}

KV_METHOD(Probe, OnUnlinked) {
    return count(errSlot, self, instData, "OnUnlinked", args, -1);
}

KV_METHOD(Probe, getCalls) {
    (void)errSlot, (void)self, (void)args;
    return probeOf(instData)->calls;
}

KV_METHOD(Probe, getDisplayName) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(probeOf(instData)->displayName);
}

KV_METHOD(Probe, getLastArg) {
    (void)errSlot, (void)self, (void)args;
    return probeOf(instData)->lastArg;
}

KV_METHOD(Probe, getLastMessage) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(probeOf(instData)->lastMessage);
}

KV_METHOD(Probe, getLastText) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(probeOf(instData)->lastText);
}

KV_METHOD(Probe, getOwner) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(probeOf(instData)->owner);
}

KV_METHOD(Probe, getSequence) {
    (void)errSlot, (void)self, (void)args;
    return probeOf(instData)->sequence;
}

// (class name): 1 for the class set up, otherwise Object's answer.
KV_METHOD(Probe, isA) {
    const auto* name = reinterpret_cast<const char*>(kvArgAt(args, 0));
    const char* own = probeOf(instData)->className;
    if (name && own && std::strcmp(name, own) == 0) return 1;
    return kvSendParentMethNA(errSlot, ProbeClass, self, "isA", args);
}

// A notification: (notifier, event name, kind, text).
KV_METHOD(Probe, onEvent) {
    const kvArgs rest = kvArgsAfter(args, 2);
    return count(errSlot, self, instData, "onEvent", &rest, 1);
}

// (value): answers value + 1, so a forwarded send can be told from a lost one.
KV_METHOD(Probe, ping) {
    (void)errSlot, (void)self, (void)instData;
    return kvArgAt(args, 0) + 1;
}

KV_METHOD(Probe, requiredLinkAvailable) {
    return count(errSlot, self, instData, "requiredLinkAvailable", args, 0);
}

// (action, context)
KV_METHOD(Probe, setAction) {
    (void)errSlot, (void)self;
    probeOf(instData)->action = reinterpret_cast<ProbeAction>(kvArgAt(args, 0));
    probeOf(instData)->context = reinterpret_cast<void*>(kvArgAt(args, 1));
    return 0;
}

// (owner, display name, class name)
KV_METHOD(Probe, setUp) {
    (void)errSlot, (void)self;
    ProbeData* probe = probeOf(instData);
    probe->owner = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    probe->displayName = reinterpret_cast<const char*>(kvArgAt(args, 1));
    probe->className = reinterpret_cast<const char*>(kvArgAt(args, 2));
    return 0;
}

KV_METHOD(Probe, storeData) {
    return count(errSlot, self, instData, "storeData", args, 0);
}

// The library holding the class, for version checks.
KV_METHOD(TestTM, getModuleInstance) {
    (void)errSlot, (void)instData, (void)args;
    return reinterpret_cast<kvResult>(self->cls->library);
}

// (personality, ...): TM's objInit, then the properties.
KV_METHOD(TestTM, objInit) {
    (void)instData;
    kvSendParentMethNA(errSlot, TestTMClass, self, "objInit", args);
    kvObject width = kvNewObject(errSlot, "IntProp", 0, self, "Width", 1, 0);
    kvSendMeth(errSlot, self, "addProperty", width);
    kvObject input =
        kvNewObject(errSlot, "SourceProperty", "InputLink", "ImageData", self, "Input", 2, 0);
    kvSendMeth(errSlot, self, "addProperty", input);
    return 0;
}

// (FQN): TM's services, and "ImageData" with itself as the linked object.
KV_METHOD(TestTM, registerProperties) {
    (void)instData;
    kvSendParentMethNA(errSlot, TestTMClass, self, "registerProperties", args);
    kvSendMeth(errSlot, self, "addService", "ImageData", self, kvArgAt(args, 0), self);
    return 0;
}

KV_METHOD(TestTM, setPropertyDefaults) {
    (void)instData, (void)args;
    kvSendMeth(errSlot, self, "storeProperty", "Width", 100);
    return 1;
}

KV_REGISTER(TestTM) {
    if (!kvRegisterClass("TM")) return nullptr;
    TestTMClass = kvAddClass("TestTM", "TM", 0, 0, testTMMethods.get(), noMethods.get());
    return TestTMClass;
}

KV_REGISTER(SubSource) {
    if (!kvRegisterClass("SourceProperty")) return nullptr;
    return kvAddClass("SubSource", "SourceProperty", 0, 0, noMethods.get(), noMethods.get());
}

KV_REGISTER(Probe) {
    if (!kvRegisterClass("Object")) return nullptr;
    ProbeClass =
        kvAddClass("Probe", "Object", sizeof(ProbeData), 0, probeMethods.get(), noMethods.get());
    return ProbeClass;
}
