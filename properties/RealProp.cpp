// RealProp: a property holding a 32-bit float. Floats travel by pointer: a
// store copies the float its argument points at, a fetch answers a pointer to
// a copy inside the property. Saved by the base record (both floats).
#include "properties/PropertySupport.hpp"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

#pragma pack(push, 1)
struct RealPropData {
    float value;     // the stored value
    float fetchCopy; // what the last fetch answered a pointer to
};
#pragma pack(pop)

kvClass RealPropClass = nullptr;
char realText[32]; // the text form of the last value asked for, shared by all RealProps

KV_METHOD_TABLE(realPropMethods,                  //
                kova::method("fetchAsString", 0), //
                kova::method("fetchData", 0),     //
                kova::method("objInit", 0),       //
                kova::method("storeData", 1),     //
                kova::method("storeFromString", 1));
KV_EMPTY_METHOD_TABLE(realPropClassMethods);

RealPropData* dataOf(void* instData) {
    return static_cast<RealPropData*>(instData);
}

// The fetch copy's address. It is handed out as a float pointer; the slice
// lies 4-aligned behind Object's and Property's data.
float* fetchCopyOf(void* instData) {
    return reinterpret_cast<float*>(static_cast<char*>(instData) +
                                    offsetof(RealPropData, fetchCopy));
}

// A parsed double as the nearest float; values beyond the float range become
// infinities rather than undefined conversions.
float toFloat(double value) {
    constexpr double largest = std::numeric_limits<float>::max();
    if (value > largest) return std::numeric_limits<float>::infinity();
    if (value < -largest) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

} // namespace

KV_METHOD(RealProp, fetchAsString) {
    (void)instData, (void)args;
    const auto* fetched = reinterpret_cast<const float*>(kvSendMeth(errSlot, self, "fetchData"));
    float value = 0;
    if (fetched) std::memcpy(&value, fetched, sizeof value);
    std::snprintf(realText, sizeof realText, "%g", static_cast<double>(value));
    return reinterpret_cast<kvResult>(realText);
}

// After "OnFetch", copies the value into the fetch copy and answers a pointer
// to it; the copy stays valid until the next fetch or the property's end.
KV_METHOD(RealProp, fetchData) {
    kvSendParentMethNA(errSlot, RealPropClass, self, "fetchData", args);
    RealPropData* data = dataOf(instData);
    data->fetchCopy = data->value;
    return reinterpret_cast<kvResult>(fetchCopyOf(instData));
}

KV_METHOD(RealProp, objInit) {
    (void)instData;
    return kvSendParentMethNA(errSlot, RealPropClass, self, "objInit", args);
}

// (pointer to a float): copies the float and announces the store with the
// caller's pointer. A null pointer stores nothing.
KV_METHOD(RealProp, storeData) {
    const auto* source = kova::props::pointerArg<const float>(args, 0);
    if (!source) return 0;
    float value;
    std::memcpy(&value, source, sizeof value);
    dataOf(instData)->value = value;
    kvSendParentMethNA(errSlot, RealPropClass, self, "storeData", args);
    return 0;
}

// (text): read as atof reads it and stored directly, without notifications.
// A null text stores nothing.
KV_METHOD(RealProp, storeFromString) {
    (void)errSlot, (void)self;
    const char* text = kova::props::textArg(args, 0);
    if (!text) return 0;
    dataOf(instData)->value = toFloat(std::strtod(text, nullptr));
    return 0;
}

KV_REGISTER(RealProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    RealPropClass = kvAddClass("RealProp", "Property", sizeof(RealPropData), 0,
                               realPropMethods.get(), realPropClassMethods.get());
    return RealPropClass;
}
