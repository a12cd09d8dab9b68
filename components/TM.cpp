// TM: the technology module, the half of a component that does the work. It
// keeps its personality module (PM) and sends it everything that concerns
// the host (FQN, display name, events); it offers itself in the registry as
// the provider, and the linked object, of the service "WidgetConnection"
// under its component's FQN. Concrete technologies are its subclasses.
#include "kova/component.h"
#include "kova/kernel.h"

namespace {

#pragma pack(push, 1)
struct TMData {
    kvObject personality; // the PM that made it, or null
    int16_t runMode;      // 1 by default; other values belong to the technologies
};
#pragma pack(pop)

kvClass TMClass = nullptr;

KV_METHOD_TABLE(tmMethods,                              //
                kova::method("fetchFQN", 0),            //
                kova::method("fetchProperty", 1),       //
                kova::method("fireEvent", 1),           //
                kova::method("getDisplayName", 0),      //
                kova::method("getPM", 0),               //
                kova::method("getRunMode", 0),          //
                kova::method("objInit", 1),             //
                kova::method("objTerm", 0),             //
                kova::method("registerProperties", 1),  //
                kova::method("setPropertyDefaults", 0), //
                kova::method("setRunMode", 1),          //
                kova::method("storeProperty", 2));
KV_EMPTY_METHOD_TABLE(tmClassMethods);

TMData* tmOf(void* instData) {
    return static_cast<TMData*>(instData);
}

// The personality's answer to the message with the same arguments; 0 for a
// technology without one.
kvResult askPersonality(kvObject* errSlot, void* instData, const char* message,
                        const kvArgs* args) {
    const kvObject personality = tmOf(instData)->personality;
    return personality ? kvSendMethNA(errSlot, personality, message, args) : 0;
}

} // namespace

KV_METHOD(TM, fetchFQN) {
    (void)self;
    return askPersonality(errSlot, instData, "fetchFQN", args);
}

KV_METHOD(TM, fetchProperty) {
    (void)instData;
    return kvSendParentMethNA(errSlot, TMClass, self, "fetchProperty", args);
}

// (event number, further arguments): the host hears it through the PM.
KV_METHOD(TM, fireEvent) {
    (void)self;
    return askPersonality(errSlot, instData, "fireEvent", args);
}

KV_METHOD(TM, getDisplayName) {
    (void)self;
    return askPersonality(errSlot, instData, "getDisplayName", args);
}

KV_METHOD(TM, getPM) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(tmOf(instData)->personality);
}

KV_METHOD(TM, getRunMode) {
    (void)errSlot, (void)self, (void)args;
    return tmOf(instData)->runMode;
}

// (personality, then Baron's arguments)
KV_METHOD(TM, objInit) {
    TMData* tm = tmOf(instData);
    tm->personality = nullptr;
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, TMClass, self, "objInit", &rest);
    if (const auto personality = reinterpret_cast<kvObject>(kvArgAt(args, 0)))
        tm->personality = personality;
    tm->runMode = 1;
    return 0;
}

KV_METHOD(TM, objTerm) {
    (void)instData;
    return kvSendParentMethNA(errSlot, TMClass, self, "objTerm", args);
}

// (FQN): the technology itself is the provider, and the linked object, of
// "WidgetConnection" under the component's FQN.
KV_METHOD(TM, registerProperties) {
    (void)instData;
    kvSendParentMethNA(errSlot, TMClass, self, "registerProperties", args);
    kvSendMeth(errSlot, self, "addService", KV_WIDGET_CONNECTION, self, kvArgAt(args, 0), self);
    return 0;
}

// For subclasses: give the properties their first values.
KV_METHOD(TM, setPropertyDefaults) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 1;
}

KV_METHOD(TM, setRunMode) {
    (void)errSlot, (void)self;
    tmOf(instData)->runMode = static_cast<int16_t>(kvArgAt(args, 0));
    return 1;
}

KV_METHOD(TM, storeProperty) {
    (void)instData;
    return kvSendParentMethNA(errSlot, TMClass, self, "storeProperty", args);
}

KV_REGISTER(TM) {
    if (!kvRegisterClass("Baron")) return nullptr;
    TMClass = kvAddClass("TM", "Baron", sizeof(TMData), 0, tmMethods.get(), tmClassMethods.get());
    return TMClass;
}
