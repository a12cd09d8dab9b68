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

using Field = kova::props::IndirectInteger<int16_t>;

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

} // namespace

KV_METHOD(IndInt16Prop, asInt) {
    (void)instData, (void)args;
    return kvSendMeth(errSlot, self, "fetchData");
}

KV_METHOD(IndInt16Prop, asString) {
    (void)instData, (void)args;
    return kova::props::fetchedNumberText(errSlot, self, indInt16Text);
}

KV_METHOD(IndInt16Prop, fetchData) {
    return Field::fetchData(errSlot, IndInt16PropClass, self, instData, args);
}

KV_METHOD(IndInt16Prop, getPointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(kova::props::indirectTarget(instData));
}

KV_METHOD(IndInt16Prop, objInit) {
    return Field::objInit(errSlot, IndInt16PropClass, self, instData, args);
}

KV_METHOD(IndInt16Prop, readFromStream) {
    return Field::readFromStream(errSlot, IndInt16PropClass, self, instData, args);
}

KV_METHOD(IndInt16Prop, setPointer) {
    (void)errSlot, (void)self;
    kova::props::setIndirectTarget(instData, kova::props::pointerArg<void>(args, 0));
    return 0;
}

KV_METHOD(IndInt16Prop, storeData) {
    return Field::storeData(errSlot, IndInt16PropClass, self, instData, args);
}

KV_METHOD(IndInt16Prop, writeToStream) {
    return Field::writeToStream(errSlot, self, instData, args);
}

KV_REGISTER(IndInt16Prop) {
    if (!kvRegisterClass("Property")) return nullptr;
    IndInt16PropClass = kvAddClass("IndInt16Prop", "Property", sizeof(IndInt16PropData), 0,
                                   indInt16PropMethods.get(), indInt16PropClassMethods.get());
    return IndInt16PropClass;
}
