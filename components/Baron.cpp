// Baron: the base class of both halves of a component, the technology module
// (TM) and the personality module (PM). It owns the component's named
// properties in a CollectProp and, once the component offers a service, a
// ServColl through which it is listed in the property link registry. When it
// ends it fires "OnTerm" on itself, which breaks every link bound to it.
#include "errors/Raise.hpp"
#include "kova/version.h"
#include "platform/Platform.hpp"
#include "properties/PrivateSlot.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>
#include <string>

namespace {

using kova::props::textArg;

#pragma pack(push, 1)
struct BaronData {
    kvObject properties; // the component's properties (a CollectProp that owns them)
    kvObject services;   // its ServColl, made by the first addService; null before
};
#pragma pack(pop)

kvClass BaronClass = nullptr;

// A class flag: an instance of the class has been made, so its first-use
// version check has run.
constexpr uint16_t firstInstanceMade = 0x0001;
constexpr char onFirstUseSetting[] = "VersionChecking\\OnFirstUse";
constexpr char onStartUpSetting[] = "VersionChecking\\OnStartUp";
constexpr char verbositySetting[] = "VersionReporting\\VerbosityLevel";

KV_METHOD_TABLE(baronMethods,                                    //
                kova::method("OnDisplayNameChanged", 0),         //
                kova::method("OnLinked", 1),                     //
                kova::method("OnUnlinked", 1),                   //
                kova::method("addProperty", 1),                  //
                kova::method("addService", 4),                   //
                kova::method("changeFQN", 2),                    //
                kova::method("checkVersionAPI", 2),              //
                kova::method("delProperty", 1),                  //
                kova::method("fetchProperty", 1),                //
                kova::method("findPropertyByName", 1),           //
                kova::method("getKovaVersion", 4),               //
                kova::method("getModuleInstance", 0),            //
                kova::method("getName", 0),                      //
                kova::method("getProperties", 0),                //
                kova::method("objInit", 0),                      //
                kova::method("objTerm", 0),                      //
                kova::method("persist", 1),                      //
                kova::method("registerProperties", 1),           //
                kova::method("setSinkFQNOnSourceProperties", 1), //
                kova::method("storeProperty", 2),                //
                kova::method("unpersist", 1),                    //
                kova::method("unregisterProperties", 1));
KV_EMPTY_METHOD_TABLE(baronClassMethods);

BaronData* baronOf(void* instData) {
    return static_cast<BaronData*>(instData);
}

int32_t numericSetting(const char* name) {
    int32_t value = 0;
    return kvGetRegistrySetting(name, &value, 1) ? value : 0;
}

bool isPersonality(kvObject obj) {
    for (kvClass c = obj->cls; c; c = c->parent)
        if (std::strcmp(c->name, "PM") == 0) return true;
    return false;
}

kvModule moduleOf(kvObject* errSlot, kvObject component) {
    return reinterpret_cast<kvModule>(kvSendMeth(errSlot, component, "getModuleInstance"));
}

// The first instance of a component class runs the version check the
// settings ask for: on first use, or else as at start-up. On the first-use
// path the setting's name goes where the mode belongs, as it always has, so
// that check's mode is the low half of the name's address.
void checkOnFirstInstance(kvObject* errSlot, kvObject self) {
    if (const int32_t onFirstUse = numericSetting(onFirstUseSetting))
        kvSendMeth(errSlot, self, "checkVersionAPI", onFirstUseSetting, onFirstUse);
    else if (const int32_t onStartUp = numericSetting(onStartUpSetting))
        kvSendMeth(errSlot, self, "checkVersionAPI", static_cast<const char*>(nullptr), onStartUp);
}

// Sends the message with the same arguments to the collection, if there is one.
kvResult passTo(kvObject* errSlot, kvObject collection, const char* message, const kvArgs* args) {
    return collection ? kvSendMethNA(errSlot, collection, message, args) : 0;
}

} // namespace

KV_METHOD(Baron, OnDisplayNameChanged) {
    (void)self;
    passTo(errSlot, baronOf(instData)->services, "OnDisplayNameChanged", args);
    return 0;
}

// For subclasses: a Link among the properties has linked.
KV_METHOD(Baron, OnLinked) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

KV_METHOD(Baron, OnUnlinked) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

KV_METHOD(Baron, addProperty) {
    (void)self;
    return passTo(errSlot, baronOf(instData)->properties, "addProperty", args);
}

// (service name, provider object, provider FQN, linked object): offers a
// service in the registry through the component's ServColl. Answers 0.
KV_METHOD(Baron, addService) {
    BaronData* baron = baronOf(instData);
    if (!baron->services) baron->services = kvNewObject(errSlot, "ServColl");
    passTo(errSlot, baron->services, "addService", args);
    (void)self;
    return 0;
}

// (old FQN, new FQN): the services move to the new provider FQN.
KV_METHOD(Baron, changeFQN) {
    (void)self;
    passTo(errSlot, baronOf(instData)->services, "changeProviderFQN", args);
    return 0;
}

// (mode, setting value): checks the expected-version list of the component's
// technology library (for a personality, its technology's module, else its
// own). Nothing for a zero value; -99 without a module. The level is always
// the "VersionReporting\VerbosityLevel" setting; the location named in the
// log is the file of the class's library.
KV_METHOD(Baron, checkVersionAPI) {
    (void)instData;
    if (!kvArgAt(args, 1)) return 0;
    kvModule module = nullptr;
    if (isPersonality(self)) {
        if (const auto technology = reinterpret_cast<kvObject>(kvSendMeth(errSlot, self, "getTM")))
            module = moduleOf(errSlot, technology);
    }
    if (!module) module = moduleOf(errSlot, self);
    if (!module) return KV_VERSION_NOT_COMPARED;
    const std::string location = kova::platform::moduleFileName(self->cls->library);
    return kvCheckVersionAPI(module, location.c_str(), static_cast<int16_t>(kvArgAt(args, 0)),
                             numericSetting(verbositySetting));
}

KV_METHOD(Baron, delProperty) {
    (void)self;
    return passTo(errSlot, baronOf(instData)->properties, "delProperty", args);
}

// (name): the value of the property of that name, or 0 when there is none.
KV_METHOD(Baron, fetchProperty) {
    const kvObject properties = baronOf(instData)->properties;
    if (!properties) return 0;
    kova::PrivateSlot absent;
    const auto property = reinterpret_cast<kvObject>(
        kvSendMeth(absent.get(), properties, "getPropByName", kvArgAt(args, 0)));
    (void)self;
    return property ? kvSendMeth(errSlot, property, "fetchData") : 0;
}

// (name): the property of that name; null with 3497 for no name, 3442
// without properties, or the collection's error when none has it.
KV_METHOD(Baron, findPropertyByName) {
    const char* name = textArg(args, 0);
    if (!name || !*name) return kova::raiseError(errSlot, self, BaronClass, 3497);
    const kvObject properties = baronOf(instData)->properties;
    if (!properties) return kova::raiseError(errSlot, self, BaronClass, 3442);
    return kvSendMeth(errSlot, properties, "getPropByName", name);
}

// (four pointers to 16-bit numbers): the kernel's file version, most
// significant part first; 1 when known, else 0; 3443 for a null pointer.
KV_METHOD(Baron, getKovaVersion) {
    (void)instData;
    uint16_t* parts[4];
    for (size_t i = 0; i < 4; ++i) {
        parts[i] = reinterpret_cast<uint16_t*>(kvArgAt(args, i));
        if (!parts[i]) return kova::raiseError(errSlot, self, BaronClass, 3443);
    }
    uint16_t version[4] = {};
    if (!kvGetInstanceVersion(kvGetKOVAInstance(), version)) return 0;
    for (size_t i = 0; i < 4; ++i)
        *parts[i] = version[i];
    return 1;
}

// Subclasses answer the library that holds their class.
KV_METHOD(Baron, getModuleInstance) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

KV_METHOD(Baron, getName) {
    (void)errSlot, (void)instData, (void)args;
    return reinterpret_cast<kvResult>(kvClassName(self->cls));
}

KV_METHOD(Baron, getProperties) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(baronOf(instData)->properties);
}

KV_METHOD(Baron, objInit) {
    kvSendParentMethNA(errSlot, BaronClass, self, "objInit", args);
    BaronData* baron = baronOf(instData);
    baron->services = nullptr;
    baron->properties = kvNewObject(errSlot, "CollectProp", 1, self, 0, 0, 0);
    if (!(self->cls->flags & firstInstanceMade)) {
        checkOnFirstInstance(errSlot, self);
        self->cls->flags |= firstInstanceMade;
    }
    return 0;
}

// The services leave the registry first; "OnTerm" then reaches every Link
// bound to the component while its properties still exist.
KV_METHOD(Baron, objTerm) {
    BaronData* baron = baronOf(instData);
    if (const kvObject services = baron->services) {
        baron->services = nullptr;
        kvDelObject(errSlot, services);
    }
    kvFireNotification(errSlot, self, "OnTerm");
    if (const kvObject properties = baron->properties) {
        baron->properties = nullptr;
        kvDelObject(errSlot, properties);
    }
    return kvSendParentMethNA(errSlot, BaronClass, self, "objTerm", args);
}

// (stream): the properties' saved form.
KV_METHOD(Baron, persist) {
    (void)self;
    passTo(errSlot, baronOf(instData)->properties, "writeToStream", args);
    return 0;
}

// For subclasses: offer the component's services under its FQN.
KV_METHOD(Baron, registerProperties) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

// (sink FQN): handed to every property whose class is exactly
// SourceProperty (not a subclass of it).
KV_METHOD(Baron, setSinkFQNOnSourceProperties) {
    (void)self;
    const kvObject properties = baronOf(instData)->properties;
    if (!properties) return 0;
    const kvResult count = kvSendMeth(errSlot, properties, "getPropCount");
    for (kvResult i = 0; i < count; ++i) {
        const auto property =
            reinterpret_cast<kvObject>(kvSendMeth(errSlot, properties, "getProperty", i));
        if (property && std::strcmp(kvClassName(property->cls), "SourceProperty") == 0)
            kvSendMeth(errSlot, property, "setSinkFQN", kvArgAt(args, 0));
    }
    return 0;
}

// (name, value): stored into the property of that name. Answers 0.
KV_METHOD(Baron, storeProperty) {
    const kvObject properties = baronOf(instData)->properties;
    if (!properties) return kova::raiseError(errSlot, self, BaronClass, 3442);
    kvSendMethNA(errSlot, properties, "storeProperty", args);
    return 0;
}

KV_METHOD(Baron, unpersist) {
    (void)self;
    passTo(errSlot, baronOf(instData)->properties, "readFromStream", args);
    return 0;
}

KV_METHOD(Baron, unregisterProperties) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

KV_REGISTER(Baron) {
    if (!kvRegisterClass("Object")) return nullptr;
    BaronClass = kvAddClass("Baron", "Object", sizeof(BaronData), 0, baronMethods.get(),
                            baronClassMethods.get());
    return BaronClass;
}
