// IndInt16Prop: an indirect property exposing a signed 16-bit integer that
// its creator owns. Stores keep the low 16 bits of the value; fetches answer
// the field sign-extended. Without an address, stores do nothing and fetches
// answer 0.
//
// Its saved record after the flags word is the field's 16-bit value, never
// the address; reading it writes the field without notifications.
#include "properties/PropertySupport.hpp"

namespace {

#pragma pack(push, 1)
struct IndInt16PropData {
    void* target; // the creator's 16-bit integer, not owned; may be null
};
#pragma pack(pop)

kvClass IndInt16PropClass = nullptr;
char indInt16Text[16]; // the text form of the last value asked for, shared by the class

KV_METHOD_TABLE(indInt16PropMethods,               //
                kova::method("asInt", 0),          //
                kova::method("asString", 0),       //
                kova::method("fetchData", 0),      //
                kova::method("getPointer", 0),     //
                kova::method("objInit", 1),        //
                kova::method("readFromStream", 1), //
                kova::method("setPointer", 1),     //
                kova::method("storeData", 1),      //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(indInt16PropClassMethods);

int16_t currentValue(const void* instData) {
    const void* cell = kova::props::indirectTarget(instData);
    return cell ? kova::props::loadFrom<int16_t>(cell) : int16_t{0};
}

} // namespace

KV_METHOD(IndInt16Prop, asInt) {
    (void)instData, (void)args;
    return kvSendMeth(errSlot, self, "fetchData");
}

KV_METHOD(IndInt16Prop, asString) {
    (void)instData, (void)args;
    const auto value = static_cast<int32_t>(kvSendMeth(errSlot, self, "fetchData"));
    return reinterpret_cast<kvResult>(kova::props::formatLong(indInt16Text, value));
}

KV_METHOD(IndInt16Prop, fetchData) {
    kvSendParentMethNA(errSlot, IndInt16PropClass, self, "fetchData", args);
    return currentValue(instData);
}

KV_METHOD(IndInt16Prop, getPointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(kova::props::indirectTarget(instData));
}

// (pointer, owner, name, id, flags)
KV_METHOD(IndInt16Prop, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, IndInt16PropClass, self, "objInit", &rest);
    kova::props::setIndirectTarget(instData, kova::props::pointerArg<void>(args, 0));
    return 0;
}

// (stream): adopted only from a complete record, otherwise -1 (3432 raised).
KV_METHOD(IndInt16Prop, readFromStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    uint16_t flags = 0;
    int16_t value = 0;
    if (!kova::props::readFlags(errSlot, self, IndInt16PropClass, stream, &flags) ||
        !kova::props::readInt16(errSlot, self, IndInt16PropClass, stream, &value))
        return -1;
    kova::props::adoptFlags(self, flags);
    if (void* cell = kova::props::indirectTarget(instData)) kova::props::storeTo(cell, value);
    return 0;
}

KV_METHOD(IndInt16Prop, setPointer) {
    (void)errSlot, (void)self;
    kova::props::setIndirectTarget(instData, kova::props::pointerArg<void>(args, 0));
    return 0;
}

// (value): its low 16 bits are written to the creator's field and announced
// with "OnStore".
KV_METHOD(IndInt16Prop, storeData) {
    void* cell = kova::props::indirectTarget(instData);
    if (!cell) return 0;
    const auto value = static_cast<int16_t>(kvArgAt(args, 0));
    kova::props::storeTo(cell, value);
    kvSendParentMeth(errSlot, IndInt16PropClass, self, "storeData", value);
    return 0;
}

KV_METHOD(IndInt16Prop, writeToStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeInt16(errSlot, stream, currentValue(instData));
    return 0;
}

KV_REGISTER(IndInt16Prop) {
    if (!kvRegisterClass("Property")) return nullptr;
    IndInt16PropClass = kvAddClass("IndInt16Prop", "Property", sizeof(IndInt16PropData), 0,
                                   indInt16PropMethods.get(), indInt16PropClassMethods.get());
    return IndInt16PropClass;
}
