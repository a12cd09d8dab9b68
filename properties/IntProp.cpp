// IntProp: a property holding one signed 32-bit integer. Every store is first
// offered to the subscribers of "OnWillStore", any of whom may refuse it, and
// then announced by "OnStore". Saved by the base record (the flags word and
// the 4-byte value).
#include "errors/Raise.hpp"
#include "properties/PropertySupport.hpp"

namespace {

#pragma pack(push, 1)
struct IntPropData {
    int32_t value; // the stored value
};
#pragma pack(pop)

kvClass IntPropClass = nullptr;
char intText[16]; // the text form of the last value asked for, shared by all IntProps

// What an "OnWillStore" subscriber answers to refuse a value and have the
// refusal reported; any other non-zero answer refuses it silently.
constexpr kvResult reportedVeto = 300;

KV_METHOD_TABLE(intPropMethods,                   //
                kova::method("asInt", 0),         //
                kova::method("asString", 0),      //
                kova::method("fetchAsString", 0), //
                kova::method("fetchData", 0),     //
                kova::method("objInit", 1),       //
                kova::method("storeData", 1),     //
                kova::method("storeFromString", 1));
KV_EMPTY_METHOD_TABLE(intPropClassMethods);

IntPropData* dataOf(void* instData) {
    return static_cast<IntPropData*>(instData);
}

} // namespace

KV_METHOD(IntProp, asInt) {
    (void)instData, (void)args;
    return kvSendMeth(errSlot, self, "fetchData");
}

KV_METHOD(IntProp, asString) {
    (void)instData, (void)args;
    return kova::props::fetchedNumberText(errSlot, self, intText);
}

KV_METHOD(IntProp, fetchAsString) {
    (void)instData, (void)args;
    return kova::props::fetchedNumberText(errSlot, self, intText);
}

// Fires "OnFetch" first, so that a subscriber may refresh the value.
KV_METHOD(IntProp, fetchData) {
    kvSendParentMethNA(errSlot, IntPropClass, self, "fetchData", args);
    return dataOf(instData)->value;
}

// (value, owner, name, id, flags): the value goes through "storeData", so a
// subclass's own store rule applies from creation on.
KV_METHOD(IntProp, objInit) {
    (void)instData;
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, IntPropClass, self, "objInit", &rest);
    kvSendMeth(errSlot, self, "storeData", kova::props::intArg(args, 0));
    return 0;
}

// (value): kept only when no "OnWillStore" subscriber refuses it; a refusal
// answered with 300 is reported as error 3496. Answers 0 either way.
KV_METHOD(IntProp, storeData) {
    const int32_t value = kova::props::intArg(args, 0);
    const kvResult answer = kvFireNotificationTerm(errSlot, self, "OnWillStore", value);
    if (answer == reportedVeto)
        return kova::raiseError(errSlot, self, IntPropClass, 3496, kova::props::nameOf(self),
                                value);
    if (answer != 0) return 0;
    dataOf(instData)->value = value;
    kvSendParentMeth(errSlot, IntPropClass, self, "storeData", value);
    return 0;
}

KV_METHOD(IntProp, storeFromString) {
    (void)instData;
    return kova::props::storeNumberText(errSlot, self, args);
}

KV_REGISTER(IntProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    IntPropClass = kvAddClass("IntProp", "Property", sizeof(IntPropData), 0, intPropMethods.get(),
                              intPropClassMethods.get());
    return IntPropClass;
}
