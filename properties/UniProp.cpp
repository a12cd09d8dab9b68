// UniProp: a property holding one value of several types, tagged: a string
// of its own (type 1), an integer (2), a current index (3) or a float (4);
// type 0 is empty. Its stores fire no notifications. Any store first lets go
// of a string held before, so changing the type never leaks it.
//
// Its saved record after the flags word is the 32-bit type and then, by type:
// a 32-bit length and the characters (1), a 32-bit integer (2, 3), the
// float's 4 bytes (4), nothing (0).
#include "errors/Raise.hpp"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <cmath>
#include <cstring>

namespace {

enum UniType : int32_t { emptyType = 0, stringType = 1, intType = 2, indexType = 3, floatType = 4 };

#pragma pack(push, 1)
struct UniPropData {
    kvArg value;  // string pointer, integer, index or the float's bits, as `type` says
    int32_t type; // a UniType
};
#pragma pack(pop)

kvClass UniPropClass = nullptr;

KV_METHOD_TABLE(uniPropMethods,                    //
                kova::method("exchangeData", 1),   //
                kova::method("fetchData", 0),      //
                kova::method("objInit", 0),        //
                kova::method("objTerm", 0),        //
                kova::method("readFromStream", 1), //
                kova::method("setCurIndex", 1),    //
                kova::method("storeDataType", 2),  //
                kova::method("storeFloat", 1),     //
                kova::method("storeInt", 1),       //
                kova::method("storeString", 1),    //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(uniPropClassMethods);

UniPropData* dataOf(void* instData) {
    return static_cast<UniPropData*>(instData);
}

char* heldString(const UniPropData* data) {
    return data->type == stringType ? reinterpret_cast<char*>(data->value) : nullptr;
}

float heldFloat(const UniPropData* data) {
    const auto bits = static_cast<uint32_t>(data->value);
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

kvArg floatBits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return static_cast<kvArg>(bits);
}

// Replaces the value and its type, freeing a string held before. A string
// value passed in is owned by the property from now on.
void replaceValue(UniPropData* data, kvArg value, int32_t type) {
    kova::platform::release(heldString(data));
    data->value = value;
    data->type = type;
}

// A float as an integer, truncated toward zero; NaN gives 0 and values beyond
// 32 bits the nearest end, instead of an undefined conversion.
int32_t truncated(float value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483648.0f) return INT32_MAX;
    if (value <= -2147483648.0f) return INT32_MIN;
    return static_cast<int32_t>(value);
}

// The record's value for `type`, read after the type word; false when the
// record is cut short, lacks memory (both raised) or names an unknown type
// (3443 raised).
bool readValue(kvObject* errSlot, kvObject self, kvObject stream, int32_t type, kvArg* value) {
    using namespace kova::props;
    int32_t number = 0;
    switch (type) {
    case emptyType:
        *value = 0;
        return true;
    case stringType: {
        CountedRun run;
        if (!readCounted(errSlot, self, UniPropClass, stream, &run)) return false;
        *value = reinterpret_cast<kvArg>(run.bytes);
        return true;
    }
    case intType:
    case indexType:
    case floatType:
        if (!readInt32(errSlot, self, UniPropClass, stream, &number)) return false;
        *value = type == floatType ? static_cast<kvArg>(static_cast<uint32_t>(number)) : number;
        return true;
    default:
        kova::raiseError(errSlot, self, UniPropClass, 3443);
        return false;
    }
}

} // namespace

// (target): hands the value to `target` under this property's name, as
// "storeProperty" (string, integer, or a pointer to the float) or as
// "setCurIndex" (index). An empty property or a null target sends nothing.
KV_METHOD(UniProp, exchangeData) {
    const auto target = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const UniPropData* data = dataOf(instData);
    if (!target) return 0;
    const char* name = kova::props::nameOf(self);
    float real = heldFloat(data); // lives through the send; the target copies it
    switch (data->type) {
    case stringType:
    case intType:
        kvSendMeth(errSlot, target, "storeProperty", name, data->value);
        break;
    case indexType:
        kvSendMeth(errSlot, target, "setCurIndex", name, data->value);
        break;
    case floatType:
        kvSendMeth(errSlot, target, "storeProperty", name, &real);
        break;
    default:
        break;
    }
    return 0;
}

// After "OnFetch", the value: the string pointer, the integer or index, or
// the float truncated toward zero; 0 when empty.
KV_METHOD(UniProp, fetchData) {
    kvSendParentMethNA(errSlot, UniPropClass, self, "fetchData", args);
    const UniPropData* data = dataOf(instData);
    switch (data->type) {
    case stringType:
    case intType:
    case indexType:
        return data->value;
    case floatType:
        return truncated(heldFloat(data));
    default:
        return 0;
    }
}

KV_METHOD(UniProp, objInit) {
    (void)instData;
    return kvSendParentMethNA(errSlot, UniPropClass, self, "objInit", args);
}

KV_METHOD(UniProp, objTerm) {
    replaceValue(dataOf(instData), 0, emptyType);
    return kvSendParentMethNA(errSlot, UniPropClass, self, "objTerm", args);
}

// (stream): the flags word, the type and its value; adopted only from a
// complete record, otherwise -1 and the property as it was.
KV_METHOD(UniProp, readFromStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    uint16_t flags = 0;
    int32_t type = 0;
    kvArg value = 0;
    if (!kova::props::readFlags(errSlot, self, UniPropClass, stream, &flags) ||
        !kova::props::readInt32(errSlot, self, UniPropClass, stream, &type) ||
        !readValue(errSlot, self, stream, type, &value))
        return -1;
    kova::props::adoptFlags(self, flags);
    replaceValue(dataOf(instData), value, type);
    return 0;
}

KV_METHOD(UniProp, setCurIndex) {
    (void)errSlot, (void)self;
    replaceValue(dataOf(instData), kova::props::intArg(args, 0), indexType);
    return 0;
}

// (value, type): a string, integer or float pointer stored by its type's
// method; other types are ignored.
KV_METHOD(UniProp, storeDataType) {
    (void)instData;
    const kvArg value = kvArgAt(args, 0);
    switch (kova::props::intArg(args, 1)) {
    case stringType:
        return kvSendMeth(errSlot, self, "storeString", value);
    case intType:
        return kvSendMeth(errSlot, self, "storeInt", value);
    case floatType:
        return kvSendMeth(errSlot, self, "storeFloat", value);
    default:
        return 0;
    }
}

// (pointer to a float): a null pointer stores nothing.
KV_METHOD(UniProp, storeFloat) {
    (void)errSlot, (void)self;
    const auto* source = kova::props::pointerArg<const float>(args, 0);
    if (!source) return 0;
    float value;
    std::memcpy(&value, source, sizeof value);
    replaceValue(dataOf(instData), floatBits(value), floatType);
    return 0;
}

KV_METHOD(UniProp, storeInt) {
    (void)errSlot, (void)self;
    replaceValue(dataOf(instData), kova::props::intArg(args, 0), intType);
    return 0;
}

// (text): keeps a heap copy (null stays null) as a string value. Without
// memory for the copy the old value is kept and 3429 raised.
KV_METHOD(UniProp, storeString) {
    char* copy = nullptr;
    if (!kova::props::copyText(errSlot, self, UniPropClass, kova::props::textArg(args, 0), &copy))
        return 0;
    replaceValue(dataOf(instData), reinterpret_cast<kvArg>(copy), stringType);
    return 0;
}

KV_METHOD(UniProp, writeToStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const UniPropData* data = dataOf(instData);
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeInt32(errSlot, stream, data->type);
    switch (data->type) {
    case stringType: {
        const char* text = heldString(data);
        kova::props::writeCounted(errSlot, stream, text, text ? std::strlen(text) : 0);
        break;
    }
    case intType:
    case indexType:
    case floatType:
        kova::props::writeInt32(errSlot, stream, static_cast<int32_t>(data->value));
        break;
    default:
        break;
    }
    return 0;
}

KV_REGISTER(UniProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    UniPropClass = kvAddClass("UniProp", "Property", sizeof(UniPropData), 0, uniPropMethods.get(),
                              uniPropClassMethods.get());
    return UniPropClass;
}
