// StrProp: a property holding a string of its own (a heap copy) or none.
// Its saved record after the flags word is a 32-bit length and the characters
// without terminator; no string is saved as length 0, so it reads back as the
// empty string.
#include "errors/Raise.hpp"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

#pragma pack(push, 1)
struct StrPropData {
    char* value; // heap string owned by the property, or null
};
#pragma pack(pop)

kvClass StrPropClass = nullptr;

KV_METHOD_TABLE(strPropMethods,                     //
                kova::method("asInt", 0),           //
                kova::method("asString", 0),        //
                kova::method("fetchAsString", 0),   //
                kova::method("fetchData", 0),       //
                kova::method("objInit", 1),         //
                kova::method("objTerm", 0),         //
                kova::method("readFromStream", 1),  //
                kova::method("storeData", 1),       //
                kova::method("storeFromString", 1), //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(strPropClassMethods);

StrPropData* dataOf(void* instData) {
    return static_cast<StrPropData*>(instData);
}

// Replaces the held string by `text`, which the property now owns.
void replaceValue(StrPropData* data, char* text) {
    kova::platform::release(data->value);
    data->value = text;
}

// (text): keeps a heap copy (null stays null) and announces it with
// "OnStore"; answers the copy. Without memory for the copy the old string is
// kept, 3429 is raised and nothing is announced.
kvResult storeText(kvObject* errSlot, kvObject self, void* instData, const kvArgs* args) {
    char* copy = nullptr;
    if (!kova::props::copyText(errSlot, self, StrPropClass, kova::props::textArg(args, 0), &copy))
        return 0;
    replaceValue(dataOf(instData), copy);
    kvSendParentMeth(errSlot, StrPropClass, self, "storeData", copy);
    return reinterpret_cast<kvResult>(copy);
}

kvResult fetchText(kvObject* errSlot, kvObject self, void* instData, const kvArgs* args) {
    kvSendParentMethNA(errSlot, StrPropClass, self, "fetchData", args);
    return reinterpret_cast<kvResult>(dataOf(instData)->value);
}

} // namespace

// The fetched string read as a decimal number; 0 for none or no digits.
KV_METHOD(StrProp, asInt) {
    (void)instData, (void)args;
    const auto* text = reinterpret_cast<const char*>(kvSendMeth(errSlot, self, "fetchData"));
    return kova::props::parseLong(text);
}

KV_METHOD(StrProp, asString) {
    return fetchText(errSlot, self, instData, args);
}

KV_METHOD(StrProp, fetchAsString) {
    return fetchText(errSlot, self, instData, args);
}

KV_METHOD(StrProp, fetchData) {
    return fetchText(errSlot, self, instData, args);
}

// (initial string, owner, name, id, flags)
KV_METHOD(StrProp, objInit) {
    (void)instData;
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, StrPropClass, self, "objInit", &rest);
    kvSendMeth(errSlot, self, "storeData", kova::props::textArg(args, 0));
    return 0;
}

KV_METHOD(StrProp, objTerm) {
    replaceValue(dataOf(instData), nullptr);
    return kvSendParentMethNA(errSlot, StrPropClass, self, "objTerm", args);
}

// (stream): the flags word, the length and the characters. The string is
// replaced only by a complete record and fires no notification; a truncated
// record (3432) or a lack of memory (3429) leaves the property as it was and
// answers -1.
KV_METHOD(StrProp, readFromStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    uint16_t flags = 0;
    kova::props::CountedRun run;
    if (!kova::props::readFlags(errSlot, self, StrPropClass, stream, &flags) ||
        !kova::props::readCounted(errSlot, self, StrPropClass, stream, &run))
        return -1;
    kova::props::adoptFlags(self, flags);
    replaceValue(dataOf(instData), run.bytes);
    return 0;
}

KV_METHOD(StrProp, storeData) {
    return storeText(errSlot, self, instData, args);
}

KV_METHOD(StrProp, storeFromString) {
    return storeText(errSlot, self, instData, args);
}

KV_METHOD(StrProp, writeToStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const char* value = dataOf(instData)->value;
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeCounted(errSlot, stream, value, value ? std::strlen(value) : 0);
    return 0;
}

KV_REGISTER(StrProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    StrPropClass = kvAddClass("StrProp", "Property", sizeof(StrPropData), 0, strPropMethods.get(),
                              strPropClassMethods.get());
    return StrPropClass;
}
