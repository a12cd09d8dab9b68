// IntListProp: a property whose value is an ordered list of signed 32-bit
// integers with a selection. "fetchData" and "storeData" act on the selected
// element, so a client that knows only the scalar protocol reads and writes
// it; the list operations change the list itself and announce it with
// "OnTableChange". "OnTableChange" and "OnRangeCheck" are fired with an error
// slot of the property's own, so nothing a subscriber raises reaches the
// caller; "OnStore" and "OnFetch" report to the caller's slot.
//
// Saved record: the flags word, the 16-bit count, the 16-bit current index,
// then the values as 32-bit integers. The base record would save the array's
// address, which means nothing when read back and would be freed as if it
// were ours, so the class writes its values instead.
#include "errors/Raise.hpp"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

#pragma pack(push, 1)
struct IntListPropData {
    int32_t* values; // heap array of `count` values owned by the property; null when empty
    int16_t count;   // number of values
    int16_t current; // the selected element, -1 for none
};
#pragma pack(pop)

kvClass IntListPropClass = nullptr;
char listText[16]; // the text form of the last selected value asked for

// Counts are 16-bit.
constexpr int32_t capacity = INT16_MAX;

KV_METHOD_TABLE(intListPropMethods,                //
                kova::method("addValue", 1),       //
                kova::method("addValueAt", 2),     //
                kova::method("clearSelection", 0), //
                kova::method("delValue", 1),       //
                kova::method("fetchAsString", 0),  //
                kova::method("fetchData", 0),      //
                kova::method("findValue", 1),      //
                kova::method("getCount", 0),       //
                kova::method("getCurIndex", 0),    //
                kova::method("getValue", 1),       //
                kova::method("moveValueTo", 1),    //
                kova::method("objInit", 0),        //
                kova::method("objTerm", 0),        //
                kova::method("readFromStream", 1), //
                kova::method("resetContents", 0),  //
                kova::method("setCurIndex", 1),    //
                kova::method("setValue", 2),       //
                kova::method("storeData", 1),      //
                kova::method("storeFromString", 1), kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(intListPropClassMethods);

IntListPropData* dataOf(void* instData) {
    return static_cast<IntListPropData*>(instData);
}

// The list's fields are read and written through copies: packed fields must
// not be bound to references, and the array pointer need not be aligned.
int32_t* valuesOf(const IntListPropData* list) {
    return list->values;
}

bool isValid(const IntListPropData* list, kvArg index) {
    return index >= 0 && index < list->count;
}

// Fires `event` with the property's own error slot; whatever a subscriber
// leaves there is deleted at once.
template <typename... A> void fireQuietly(kvObject self, const char* event, A... values) {
    kvObject own = nullptr;
    kvFireNotification(&own, self, event, values...);
    kova::props::discardErrorsAbove(&own, nullptr);
}

void announceTableChange(kvObject self) {
    fireQuietly(self, "OnTableChange");
}

// Fires "OnRangeCheck" with the index, then raises 3441 naming the index and
// the property. Answers `result`.
kvResult invalidIndex(kvObject* errSlot, kvObject self, kvArg index, kvResult result) {
    fireQuietly(self, "OnRangeCheck", index);
    kova::raiseError(errSlot, self, IntListPropClass, 3441, index, kova::props::nameOf(self));
    return result;
}

kvResult emptyList(kvObject* errSlot, kvObject self, kvResult result) {
    kova::raiseError(errSlot, self, IntListPropClass, 3442);
    return result;
}

kvResult outOfMemory(kvObject* errSlot, kvObject self, kvResult result) {
    kova::raiseError(errSlot, self, IntListPropClass, 3429);
    return result;
}

// A new array of `count` + 1 values: the old values with `value` placed at
// `at` and the ones from there on moved up. Null when the memory cannot be
// had (or the list is full), the list untouched.
int32_t* grownWith(const IntListPropData* list, int16_t at, int32_t value) {
    if (list->count >= capacity) return nullptr;
    const auto count = static_cast<size_t>(list->count);
    auto* grown = static_cast<int32_t*>(kova::platform::allocate((count + 1) * sizeof(int32_t)));
    if (!grown) return nullptr;
    const int32_t* old = valuesOf(list);
    if (at > 0) std::memcpy(grown, old, static_cast<size_t>(at) * sizeof(int32_t));
    grown[at] = value;
    if (count > static_cast<size_t>(at))
        std::memcpy(grown + at + 1, old + at, (count - static_cast<size_t>(at)) * sizeof(int32_t));
    return grown;
}

void replaceValues(IntListPropData* list, int32_t* values, int16_t count) {
    kova::platform::release(valuesOf(list));
    list->values = values;
    list->count = count;
}

void clearList(IntListPropData* list) {
    replaceValues(list, nullptr, 0);
    list->current = -1;
}

} // namespace

// (value): appends; the selection stays. Answers 0, or -1 with 3429.
KV_METHOD(IntListProp, addValue) {
    IntListPropData* list = dataOf(instData);
    int32_t* grown = grownWith(list, list->count, kova::props::intArg(args, 0));
    if (!grown) return outOfMemory(errSlot, self, -1);
    replaceValues(list, grown, static_cast<int16_t>(list->count + 1));
    announceTableChange(self);
    return 0;
}

// (index, value): any index from 0 to count is accepted, count appending.
// Answers 1, or 0 with 3441 or 3429 and the list unchanged.
KV_METHOD(IntListProp, addValueAt) {
    IntListPropData* list = dataOf(instData);
    const kvArg at = kvArgAt(args, 0);
    if (at < 0 || at > list->count) return invalidIndex(errSlot, self, at, 0);
    int32_t* grown = grownWith(list, static_cast<int16_t>(at), kova::props::intArg(args, 1));
    if (!grown) return outOfMemory(errSlot, self, 0);
    replaceValues(list, grown, static_cast<int16_t>(list->count + 1));
    announceTableChange(self);
    return 1;
}

KV_METHOD(IntListProp, clearSelection) {
    (void)errSlot, (void)self, (void)args;
    dataOf(instData)->current = -1;
    return 0;
}

// (value): removes the first element equal to it; the selection keeps its
// number, which may now lie past the end. Answers 0; -1 when no element is
// equal (no error), with 3442 on an empty list or with 3429.
KV_METHOD(IntListProp, delValue) {
    IntListPropData* list = dataOf(instData);
    if (list->count <= 0) return emptyList(errSlot, self, -1);
    const kvResult at = kvSendMeth(errSlot, self, "findValue", kova::props::intArg(args, 0));
    if (!isValid(list, at)) return -1;
    if (list->count == 1) {
        replaceValues(list, nullptr, 0);
        list->current = -1;
    } else {
        const auto left = static_cast<size_t>(list->count - 1);
        auto* smaller = static_cast<int32_t*>(kova::platform::allocate(left * sizeof(int32_t)));
        if (!smaller) return outOfMemory(errSlot, self, -1);
        const int32_t* old = valuesOf(list);
        std::memcpy(smaller, old, static_cast<size_t>(at) * sizeof(int32_t));
        std::memcpy(smaller + at, old + at + 1, (left - static_cast<size_t>(at)) * sizeof(int32_t));
        replaceValues(list, smaller, static_cast<int16_t>(left));
    }
    announceTableChange(self);
    return 0;
}

KV_METHOD(IntListProp, fetchAsString) {
    (void)instData, (void)args;
    return kova::props::fetchedNumberText(errSlot, self, listText);
}

// The selected element after "OnFetch"; 0 with 3442 (empty) or, after
// "OnRangeCheck", 3516 (no valid selection).
KV_METHOD(IntListProp, fetchData) {
    const IntListPropData* list = dataOf(instData);
    if (list->count <= 0) return emptyList(errSlot, self, 0);
    if (!isValid(list, list->current)) {
        fireQuietly(self, "OnRangeCheck", kvArg{list->current});
        return kova::raiseError(errSlot, self, IntListPropClass, 3516, kova::props::nameOf(self),
                                kvArg{list->current});
    }
    kvSendParentMethNA(errSlot, IntListPropClass, self, "fetchData", args);
    return valuesOf(list)[list->current];
}

// (value): the index of the first equal element, -1 when none; 3442 on an
// empty list.
KV_METHOD(IntListProp, findValue) {
    const IntListPropData* list = dataOf(instData);
    if (list->count <= 0) return emptyList(errSlot, self, -1);
    const int32_t value = kova::props::intArg(args, 0);
    const int32_t* values = valuesOf(list);
    for (int16_t i = 0; i < list->count; ++i)
        if (values[i] == value) return i;
    return -1;
}

KV_METHOD(IntListProp, getCount) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->count;
}

KV_METHOD(IntListProp, getCurIndex) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->current;
}

// (index): the element, or 0 with 3442 or 3441.
KV_METHOD(IntListProp, getValue) {
    const IntListPropData* list = dataOf(instData);
    const kvArg at = kvArgAt(args, 0);
    if (list->count <= 0) return emptyList(errSlot, self, 0);
    if (!isValid(list, at)) return invalidIndex(errSlot, self, at, 0);
    return valuesOf(list)[at];
}

// (index): moves the selected element to the index, shifting the elements
// between; the selection keeps its number. Fires no "OnTableChange".
// Answers 1, or 0 with 3441 for an invalid index. Without a valid
// selection there is no element to move: 3516, as for a fetch.
KV_METHOD(IntListProp, moveValueTo) {
    IntListPropData* list = dataOf(instData);
    const kvArg to = kvArgAt(args, 0);
    if (!isValid(list, to)) return invalidIndex(errSlot, self, to, 0);
    const int16_t from = list->current;
    // The element to move must exist: the selection may point past the end
    // after a deletion, and reading there would leave the array.
    if (!isValid(list, from))
        return kova::raiseError(errSlot, self, IntListPropClass, 3516, kova::props::nameOf(self),
                                kvArg{from});
    int32_t* values = valuesOf(list);
    const int32_t moved = values[from];
    if (from > to)
        std::memmove(values + to + 1, values + to,
                     static_cast<size_t>(from - to) * sizeof(int32_t));
    else if (from < to)
        std::memmove(values + from, values + from + 1,
                     static_cast<size_t>(to - from) * sizeof(int32_t));
    values[to] = moved;
    return 1;
}

KV_METHOD(IntListProp, objInit) {
    const kvResult result = kvSendParentMethNA(errSlot, IntListPropClass, self, "objInit", args);
    IntListPropData* list = dataOf(instData);
    list->values = nullptr;
    list->count = 0;
    list->current = -1;
    return result;
}

KV_METHOD(IntListProp, objTerm) {
    kvSendMeth(errSlot, self, "resetContents");
    (void)instData;
    return kvSendParentMethNA(errSlot, IntListPropClass, self, "objTerm", args);
}

// (stream): the record writeToStream writes. The list is replaced only by a
// complete record whose index is -1 or inside the list; values are read one
// at a time, so a count the stream does not back costs nothing. A cut record
// (3432), a bad count or index (3443) or a lack of memory (3429) leaves the
// property as it was and answers -1. Fires nothing.
KV_METHOD(IntListProp, readFromStream) {
    const auto stream = kova::props::pointerArg<kvObjectHeader>(args, 0);
    uint16_t flags = 0;
    int16_t count = 0;
    int16_t current = 0;
    if (!kova::props::readFlags(errSlot, self, IntListPropClass, stream, &flags) ||
        !kova::props::readInt16(errSlot, self, IntListPropClass, stream, &count) ||
        !kova::props::readInt16(errSlot, self, IntListPropClass, stream, &current))
        return -1;
    if (count < 0 || current < -1 || current >= count) {
        kova::raiseError(errSlot, self, IntListPropClass, 3443);
        return -1;
    }
    int32_t* values = nullptr;
    for (int16_t i = 0; i < count; ++i) {
        int32_t value = 0;
        if (!kova::props::readInt32(errSlot, self, IntListPropClass, stream, &value)) {
            kova::platform::release(values);
            return -1;
        }
        auto* grown = static_cast<int32_t*>(
            kova::platform::reallocate(values, static_cast<size_t>(i + 1) * sizeof(int32_t)));
        if (!grown) {
            kova::platform::release(values);
            return outOfMemory(errSlot, self, -1);
        }
        values = grown;
        values[i] = value;
    }
    kova::props::adoptFlags(self, flags);
    IntListPropData* list = dataOf(instData);
    replaceValues(list, values, count);
    list->current = current;
    return 0;
}

// Empties the list and clears the selection; fires nothing.
KV_METHOD(IntListProp, resetContents) {
    (void)errSlot, (void)self, (void)args;
    clearList(dataOf(instData));
    return 0;
}

// (index): selects a valid index and answers 0; otherwise fires
// "OnRangeCheck", raises 3517 and answers -1, the selection unchanged.
KV_METHOD(IntListProp, setCurIndex) {
    IntListPropData* list = dataOf(instData);
    const kvArg at = kvArgAt(args, 0);
    if (!isValid(list, at)) {
        fireQuietly(self, "OnRangeCheck", at);
        kova::raiseError(errSlot, self, IntListPropClass, 3517, at, kova::props::nameOf(self));
        return -1;
    }
    list->current = static_cast<int16_t>(at);
    return 0;
}

// (index, value): answers 0, or -1 with 3442 or 3441.
KV_METHOD(IntListProp, setValue) {
    IntListPropData* list = dataOf(instData);
    const kvArg at = kvArgAt(args, 0);
    if (list->count <= 0) return emptyList(errSlot, self, -1);
    if (!isValid(list, at)) return invalidIndex(errSlot, self, at, -1);
    valuesOf(list)[at] = kova::props::intArg(args, 1);
    announceTableChange(self);
    return 0;
}

// (value): replaces the selected element, fires "OnTableChange" and then
// "OnStore". Answers 0, or -1 with 3442 or, after "OnRangeCheck", 3516.
KV_METHOD(IntListProp, storeData) {
    IntListPropData* list = dataOf(instData);
    const int32_t value = kova::props::intArg(args, 0);
    if (list->count <= 0) return emptyList(errSlot, self, -1);
    if (!isValid(list, list->current)) {
        fireQuietly(self, "OnRangeCheck", kvArg{list->current});
        kova::raiseError(errSlot, self, IntListPropClass, 3516, kova::props::nameOf(self),
                         kvArg{list->current});
        return -1;
    }
    valuesOf(list)[list->current] = value;
    announceTableChange(self);
    kvSendParentMeth(errSlot, IntListPropClass, self, "storeData", value);
    return 0;
}

// (text): the text read as atol reads it, stored with "storeData"; a null
// text stores nothing.
KV_METHOD(IntListProp, storeFromString) {
    (void)instData;
    return kova::props::storeNumberText(errSlot, self, args);
}

KV_METHOD(IntListProp, writeToStream) {
    const auto stream = kova::props::pointerArg<kvObjectHeader>(args, 0);
    const IntListPropData* list = dataOf(instData);
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeInt16(errSlot, stream, list->count);
    kova::props::writeInt16(errSlot, stream, list->current);
    const int32_t* values = valuesOf(list);
    for (int16_t i = 0; i < list->count; ++i)
        kova::props::writeInt32(errSlot, stream, values[i]);
    return 0;
}

KV_REGISTER(IntListProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    IntListPropClass = kvAddClass("IntListProp", "Property", sizeof(IntListPropData), 0,
                                  intListPropMethods.get(), intListPropClassMethods.get());
    return IntListPropClass;
}
