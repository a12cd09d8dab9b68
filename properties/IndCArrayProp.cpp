// IndCArrayProp: an indirect property exposing a fixed character array that
// its creator owns. A store copies the text into the array as the standard
// bounded copy does: at most `size` characters, the rest of the array filled
// with zero bytes, and no terminator when the text fills the array. Readers
// of the array must therefore bound it by its size, as "asInt" does.
//
// Its saved record after the flags word is a 32-bit length and the array's
// characters up to its first zero byte (or all of them); reading it copies
// them back with the same bounded copy, without notifications.
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

#pragma pack(push, 1)
struct IndCArrayPropData {
    void* target; // the creator's character array, not owned; may be null
    int32_t size; // the array's length in bytes
};
#pragma pack(pop)

kvClass IndCArrayPropClass = nullptr;

KV_METHOD_TABLE(indCArrayPropMethods,              //
                kova::method("asInt", 0),          //
                kova::method("asString", 0),       //
                kova::method("fetchData", 0),      //
                kova::method("getPointer", 0),     //
                kova::method("getSize", 0),        //
                kova::method("objInit", 2),        //
                kova::method("objTerm", 0),        //
                kova::method("readFromStream", 1), //
                kova::method("setPointer", 1),     //
                kova::method("setSize", 1),        //
                kova::method("storeData", 1),      //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(indCArrayPropClassMethods);

IndCArrayPropData* dataOf(void* instData) {
    return static_cast<IndCArrayPropData*>(instData);
}

// The array's usable length: a negative size counts as none.
size_t capacityOf(const IndCArrayPropData* data) {
    return data->target ? static_cast<size_t>(std::max(data->size, 0)) : 0;
}

// The array's text: up to its first zero byte, never past its end.
std::string_view arrayText(const IndCArrayPropData* data) {
    const auto* array = static_cast<const char*>(data->target);
    if (!array) return {};
    return std::string_view(array, strnlen(array, capacityOf(data)));
}

// The bounded copy. The text may lie inside the array itself (a fetched
// value stored back), hence the move.
void copyIntoArray(IndCArrayPropData* data, std::string_view text) {
    auto* array = static_cast<char*>(data->target);
    const size_t capacity = capacityOf(data);
    const size_t count = std::min(text.size(), capacity);
    std::memmove(array, text.data(), count);
    std::memset(array + count, 0, capacity - count);
}

kvResult fetchArray(kvObject* errSlot, kvObject self, void* instData, const kvArgs* args) {
    kvSendParentMethNA(errSlot, IndCArrayPropClass, self, "fetchData", args);
    return reinterpret_cast<kvResult>(dataOf(instData)->target);
}

} // namespace

// The array's text read as a decimal number, never past the array's end.
KV_METHOD(IndCArrayProp, asInt) {
    kvSendParentMethNA(errSlot, IndCArrayPropClass, self, "fetchData", args);
    return kova::props::parseLong(arrayText(dataOf(instData)));
}

KV_METHOD(IndCArrayProp, asString) {
    return fetchArray(errSlot, self, instData, args);
}

KV_METHOD(IndCArrayProp, fetchData) {
    return fetchArray(errSlot, self, instData, args);
}

KV_METHOD(IndCArrayProp, getPointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->target);
}

KV_METHOD(IndCArrayProp, getSize) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->size;
}

// (pointer to the array, its size, owner, name, id, flags)
KV_METHOD(IndCArrayProp, objInit) {
    const kvArgs rest = kvArgsAfter(args, 2);
    kvSendParentMethNA(errSlot, IndCArrayPropClass, self, "objInit", &rest);
    *dataOf(instData) =
        IndCArrayPropData{kova::props::pointerArg<void>(args, 0), kova::props::intArg(args, 1)};
    return 0;
}

// Forgets the array; it was never the property's to free.
KV_METHOD(IndCArrayProp, objTerm) {
    *dataOf(instData) = IndCArrayPropData{nullptr, 0};
    return kvSendParentMethNA(errSlot, IndCArrayPropClass, self, "objTerm", args);
}

// (stream): the array is written only from a complete record; otherwise -1
// (3432 or 3429 raised) and everything as it was. A saved text longer than
// the array is cut to the array's size.
KV_METHOD(IndCArrayProp, readFromStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    uint16_t flags = 0;
    kova::props::CountedRun run;
    if (!kova::props::readFlags(errSlot, self, IndCArrayPropClass, stream, &flags) ||
        !kova::props::readCounted(errSlot, self, IndCArrayPropClass, stream, &run))
        return -1;
    kova::props::adoptFlags(self, flags);
    IndCArrayPropData* data = dataOf(instData);
    if (data->target) copyIntoArray(data, std::string_view(run.bytes, run.length));
    kova::platform::release(run.bytes);
    return 0;
}

KV_METHOD(IndCArrayProp, setPointer) {
    (void)errSlot, (void)self;
    dataOf(instData)->target = kova::props::pointerArg<void>(args, 0);
    return 0;
}

KV_METHOD(IndCArrayProp, setSize) {
    (void)errSlot, (void)self;
    dataOf(instData)->size = kova::props::intArg(args, 0);
    return 0;
}

// (text): the bounded copy into the array, announced with "OnStore"; answers
// the array. Nothing is copied or announced without an array or a text.
KV_METHOD(IndCArrayProp, storeData) {
    IndCArrayPropData* data = dataOf(instData);
    const char* text = kova::props::textArg(args, 0);
    if (!data->target || !text) return reinterpret_cast<kvResult>(data->target);
    copyIntoArray(data, std::string_view(text, strnlen(text, capacityOf(data))));
    kvSendParentMeth(errSlot, IndCArrayPropClass, self, "storeData", data->target);
    return reinterpret_cast<kvResult>(data->target);
}

KV_METHOD(IndCArrayProp, writeToStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const std::string_view text = arrayText(dataOf(instData));
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeCounted(errSlot, stream, text.data(), text.size());
    return 0;
}

KV_REGISTER(IndCArrayProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    IndCArrayPropClass = kvAddClass("IndCArrayProp", "Property", sizeof(IndCArrayPropData), 0,
                                    indCArrayPropMethods.get(), indCArrayPropClassMethods.get());
    return IndCArrayPropClass;
}
