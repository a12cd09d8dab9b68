// A class library for the component model's tests ("TESTLNK.DLL"):
//   Probe (Object) stands for a sink, a provider, a linked object or an
//                  owner: it counts what the registry and links send it,
//                  answers "getOwner", "getDisplayName" and "isA" as set up,
//                  and runs an action of the test's on each message it counts
#include "kova/kernel.h"

#include <cstring>

namespace {

kvClass ProbeClass;

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

KV_REGISTER(Probe) {
    if (!kvRegisterClass("Object")) return nullptr;
    ProbeClass =
        kvAddClass("Probe", "Object", sizeof(ProbeData), 0, probeMethods.get(), noMethods.get());
    return ProbeClass;
}
