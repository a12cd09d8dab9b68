// IndInt32Prop: an indirect property exposing a signed 32-bit integer that
// its creator owns (a field of the creator's own data). It keeps only the
// field's address; stores write the field and fetches read it. Without an
// address, stores do nothing and fetches answer 0.
//
// Its saved record after the flags word is the field's 32-bit value, never
// the address; reading it writes the field without notifications.
#include "properties/PropertySupport.hpp"

namespace {

#pragma pack(push, 1)
struct IndInt32PropData {
    void* target; // the creator's 32-bit integer, not owned; may be null
};
#pragma pack(pop)

kvClass IndInt32PropClass = nullptr;
char indInt32Text[16]; // the text form of the last value asked for, shared by the class

KV_METHOD_TABLE(indInt32PropMethods,                //
                kova::method("asInt", 0),           //
                kova::method("asString", 0),        //
                kova::method("fetchAsString", 0),   //
                kova::method("fetchData", 0),       //
                kova::method("getPointer", 0),      //
                kova::method("objInit", 1),         //
                kova::method("readFromStream", 1),  //
                kova::method("setPointer", 1),      //
                kova::method("storeData", 1),       //
                kova::method("storeFromString", 1), //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(indInt32PropClassMethods);

int32_t currentValue(const void* instData) {
    const void* cell = kova::props::indirectTarget(instData);
    return cell ? kova::props::loadFrom<int32_t>(cell) : 0;
}

const char* fetchedText(kvObject* errSlot, kvObject self) {
    const auto value = static_cast<int32_t>(kvSendMeth(errSlot, self, "fetchData"));
    return kova::props::formatLong(indInt32Text, value);
}

} // namespace

KV_METHOD(IndInt32Prop, asInt) {
    (void)instData, (void)args;
    return kvSendMeth(errSlot, self, "fetchData");
}

KV_METHOD(IndInt32Prop, asString) {
    (void)instData, (void)args;
    return reinterpret_cast<kvResult>(fetchedText(errSlot, self));
}

KV_METHOD(IndInt32Prop, fetchAsString) {
    (void)instData, (void)args;
    return reinterpret_cast<kvResult>(fetchedText(errSlot, self));
}

KV_METHOD(IndInt32Prop, fetchData) {
    kvSendParentMethNA(errSlot, IndInt32PropClass, self, "fetchData", args);
    return currentValue(instData);
}

KV_METHOD(IndInt32Prop, getPointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(kova::props::indirectTarget(instData));
}

// (pointer, owner, name, id, flags)
KV_METHOD(IndInt32Prop, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, IndInt32PropClass, self, "objInit", &rest);
    kova::props::setIndirectTarget(instData, kova::props::pointerArg<void>(args, 0));
    return 0;
}

// (stream): adopted only from a complete record, otherwise -1 (3432 raised).
KV_METHOD(IndInt32Prop, readFromStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    uint16_t flags = 0;
    int32_t value = 0;
    if (!kova::props::readFlags(errSlot, self, IndInt32PropClass, stream, &flags) ||
        !kova::props::readInt32(errSlot, self, IndInt32PropClass, stream, &value))
        return -1;
    kova::props::adoptFlags(self, flags);
    if (void* cell = kova::props::indirectTarget(instData)) kova::props::storeTo(cell, value);
    return 0;
}

KV_METHOD(IndInt32Prop, setPointer) {
    (void)errSlot, (void)self;
    kova::props::setIndirectTarget(instData, kova::props::pointerArg<void>(args, 0));
    return 0;
}

// (value): written to the creator's field and announced with "OnStore".
KV_METHOD(IndInt32Prop, storeData) {
    void* cell = kova::props::indirectTarget(instData);
    if (!cell) return 0;
    const int32_t value = kova::props::intArg(args, 0);
    kova::props::storeTo(cell, value);
    kvSendParentMeth(errSlot, IndInt32PropClass, self, "storeData", value);
    return 0;
}

// (text): read as atol reads it; a null text stores nothing.
KV_METHOD(IndInt32Prop, storeFromString) {
    (void)instData;
    const char* text = kova::props::textArg(args, 0);
    if (!text) return 0;
    return kvSendMeth(errSlot, self, "storeData", kova::props::parseLong(text));
}

KV_METHOD(IndInt32Prop, writeToStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeInt32(errSlot, stream, currentValue(instData));
    return 0;
}

KV_REGISTER(IndInt32Prop) {
    if (!kvRegisterClass("Property")) return nullptr;
    IndInt32PropClass = kvAddClass("IndInt32Prop", "Property", sizeof(IndInt32PropData), 0,
                                   indInt32PropMethods.get(), indInt32PropClassMethods.get());
    return IndInt32PropClass;
}
