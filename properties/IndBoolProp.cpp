// IndBoolProp: an indirect property exposing bits of a 32-bit word that its
// creator owns: true when any bit of the mask is set. Storing true sets the
// mask's bits, storing false clears them; other bits of the word are left
// alone. Without an address, stores do nothing and fetches answer false.
//
// Its saved record after the flags word is one character, "1" or "0", as a
// BoolProp's; reading it sets or clears the bits without notifications.
#include "properties/PropertySupport.hpp"

namespace {

#pragma pack(push, 1)
struct IndBoolPropData {
    void* target;  // the creator's 32-bit word, not owned; may be null
    uint32_t mask; // the bits of the word that hold the value
};
#pragma pack(pop)

kvClass IndBoolPropClass = nullptr;
char indBoolText[8]; // the text form of the last value asked for, shared by the class

KV_METHOD_TABLE(indBoolPropMethods,                 //
                kova::method("fetchAsString", 0),   //
                kova::method("fetchData", 0),       //
                kova::method("getMask", 0),         //
                kova::method("getPointer", 0),      //
                kova::method("objInit", 2),         //
                kova::method("readFromStream", 1),  //
                kova::method("setMask", 1),         //
                kova::method("setPointer", 1),      //
                kova::method("storeData", 1),       //
                kova::method("storeFromString", 1), //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(indBoolPropClassMethods);

IndBoolPropData* dataOf(void* instData) {
    return static_cast<IndBoolPropData*>(instData);
}

bool holdsTrue(const IndBoolPropData* data) {
    return data->target && (kova::props::loadFrom<uint32_t>(data->target) & data->mask) != 0;
}

// Sets or clears the mask's bits; false when there is no word to change.
bool setValue(IndBoolPropData* data, bool value) {
    if (!data->target) return false;
    const auto word = kova::props::loadFrom<uint32_t>(data->target);
    kova::props::storeTo(data->target, value ? word | data->mask : word & ~data->mask);
    return true;
}

} // namespace

KV_METHOD(IndBoolProp, fetchAsString) {
    (void)instData, (void)args;
    return kova::props::fetchedTruthText(errSlot, self, indBoolText);
}

// -1 for true, 0 for false, after "OnFetch".
KV_METHOD(IndBoolProp, fetchData) {
    kvSendParentMethNA(errSlot, IndBoolPropClass, self, "fetchData", args);
    return holdsTrue(dataOf(instData)) ? -1 : 0;
}

KV_METHOD(IndBoolProp, getMask) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<kvResult>(dataOf(instData)->mask);
}

KV_METHOD(IndBoolProp, getPointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(kova::props::indirectTarget(instData));
}

// (pointer, mask, owner, name, id, flags)
KV_METHOD(IndBoolProp, objInit) {
    const kvArgs rest = kvArgsAfter(args, 2);
    kvSendParentMethNA(errSlot, IndBoolPropClass, self, "objInit", &rest);
    *dataOf(instData) = IndBoolPropData{kova::props::pointerArg<void>(args, 0),
                                        static_cast<uint32_t>(kvArgAt(args, 1))};
    return 0;
}

// (stream): adopted only from a complete, well-formed record, otherwise -1
// (3432 or 3443 raised).
KV_METHOD(IndBoolProp, readFromStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    uint16_t flags = 0;
    const int value = kova::props::readTruthRecord(errSlot, self, IndBoolPropClass, stream, &flags);
    if (value < 0) return -1;
    kova::props::adoptFlags(self, flags);
    setValue(dataOf(instData), value != 0);
    return 0;
}

KV_METHOD(IndBoolProp, setMask) {
    (void)errSlot, (void)self;
    dataOf(instData)->mask = static_cast<uint32_t>(kvArgAt(args, 0));
    return 0;
}

KV_METHOD(IndBoolProp, setPointer) {
    (void)errSlot, (void)self;
    kova::props::setIndirectTarget(instData, kova::props::pointerArg<void>(args, 0));
    return 0;
}

// (value): any non-zero value is true; announced with "OnStore".
KV_METHOD(IndBoolProp, storeData) {
    if (!setValue(dataOf(instData), kvArgAt(args, 0) != 0)) return 0;
    kvSendParentMethNA(errSlot, IndBoolPropClass, self, "storeData", args);
    return 0;
}

KV_METHOD(IndBoolProp, storeFromString) {
    (void)instData;
    return kova::props::storeTruthText(errSlot, self, IndBoolPropClass, args);
}

KV_METHOD(IndBoolProp, writeToStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeTruth(errSlot, stream, holdsTrue(dataOf(instData)));
    return 0;
}

KV_REGISTER(IndBoolProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    IndBoolPropClass = kvAddClass("IndBoolProp", "Property", sizeof(IndBoolPropData), 0,
                                  indBoolPropMethods.get(), indBoolPropClassMethods.get());
    return IndBoolPropClass;
}
