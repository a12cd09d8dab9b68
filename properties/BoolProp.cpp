// BoolProp: a property holding a truth value in bit 0x0008 of its header
// flags, so it adds no instance data. Its saved record after the flags word is
// one character, "1" or "0".
#include "properties/PropertySupport.hpp"

namespace {

kvClass BoolPropClass = nullptr;
char boolText[8]; // the text form of the last value asked for, shared by all BoolProps

constexpr uint16_t valueBit = 0x0008;

KV_METHOD_TABLE(boolPropMethods,                    //
                kova::method("fetchAsString", 0),   //
                kova::method("fetchData", 0),       //
                kova::method("objInit", 0),         //
                kova::method("readFromStream", 1),  //
                kova::method("storeData", 1),       //
                kova::method("storeFromString", 1), //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(boolPropClassMethods);

bool holdsTrue(kvObject self) {
    return (self->flags & valueBit) != 0;
}

void setValue(kvObject self, bool value) {
    self->flags = static_cast<uint16_t>(value ? self->flags | valueBit : self->flags & ~valueBit);
}

} // namespace

KV_METHOD(BoolProp, fetchAsString) {
    (void)instData, (void)args;
    return kova::props::fetchedTruthText(errSlot, self, boolText);
}

// -1 for true, 0 for false, after "OnFetch".
KV_METHOD(BoolProp, fetchData) {
    (void)instData;
    kvSendParentMethNA(errSlot, BoolPropClass, self, "fetchData", args);
    return holdsTrue(self) ? -1 : 0;
}

// (owner, name, id, flags): a creator may start the property true by passing
// the value bit among the flags.
KV_METHOD(BoolProp, objInit) {
    (void)instData;
    return kvSendParentMethNA(errSlot, BoolPropClass, self, "objInit", args);
}

// (stream): the flags word and the value character; the value is adopted
// only from a complete, well-formed record, otherwise -1 and the property is
// left as it was.
KV_METHOD(BoolProp, readFromStream) {
    (void)instData;
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    uint16_t flags = 0;
    const int value = kova::props::readTruthRecord(errSlot, self, BoolPropClass, stream, &flags);
    if (value < 0) return -1;
    kova::props::adoptFlags(self, flags);
    setValue(self, value != 0);
    return 0;
}

// (value): any non-zero value is true.
KV_METHOD(BoolProp, storeData) {
    (void)instData;
    setValue(self, kvArgAt(args, 0) != 0);
    kvSendParentMethNA(errSlot, BoolPropClass, self, "storeData", args);
    return 0;
}

KV_METHOD(BoolProp, storeFromString) {
    (void)instData;
    return kova::props::storeTruthText(errSlot, self, BoolPropClass, args);
}

KV_METHOD(BoolProp, writeToStream) {
    (void)instData;
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeTruth(errSlot, stream, holdsTrue(self));
    return 0;
}

KV_REGISTER(BoolProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    BoolPropClass =
        kvAddClass("BoolProp", "Property", 0, 0, boolPropMethods.get(), boolPropClassMethods.get());
    return BoolPropClass;
}
