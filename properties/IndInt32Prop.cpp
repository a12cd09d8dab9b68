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

using Field = kova::props::IndirectInteger<int32_t>;

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

} // namespace

KV_METHOD(IndInt32Prop, asInt) {
    (void)instData, (void)args;
    return kvSendMeth(errSlot, self, "fetchData");
}

KV_METHOD(IndInt32Prop, asString) {
    (void)instData, (void)args;
    return kova::props::fetchedNumberText(errSlot, self, indInt32Text);
}

KV_METHOD(IndInt32Prop, fetchAsString) {
    (void)instData, (void)args;
    return kova::props::fetchedNumberText(errSlot, self, indInt32Text);
}

KV_METHOD(IndInt32Prop, fetchData) {
    return Field::fetchData(errSlot, IndInt32PropClass, self, instData, args);
}

KV_METHOD(IndInt32Prop, getPointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(kova::props::indirectTarget(instData));
}

KV_METHOD(IndInt32Prop, objInit) {
    return Field::objInit(errSlot, IndInt32PropClass, self, instData, args);
}

KV_METHOD(IndInt32Prop, readFromStream) {
    return Field::readFromStream(errSlot, IndInt32PropClass, self, instData, args);
}

KV_METHOD(IndInt32Prop, setPointer) {
    (void)errSlot, (void)self;
    kova::props::setIndirectTarget(instData, kova::props::pointerArg<void>(args, 0));
    return 0;
}

KV_METHOD(IndInt32Prop, storeData) {
    return Field::storeData(errSlot, IndInt32PropClass, self, instData, args);
}

KV_METHOD(IndInt32Prop, storeFromString) {
    (void)instData;
    return kova::props::storeNumberText(errSlot, self, args);
}

KV_METHOD(IndInt32Prop, writeToStream) {
    return Field::writeToStream(errSlot, self, instData, args);
}

KV_REGISTER(IndInt32Prop) {
    if (!kvRegisterClass("Property")) return nullptr;
    IndInt32PropClass = kvAddClass("IndInt32Prop", "Property", sizeof(IndInt32PropData), 0,
                                   indInt32PropMethods.get(), indInt32PropClassMethods.get());
    return IndInt32PropClass;
}
