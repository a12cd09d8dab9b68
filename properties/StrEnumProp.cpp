// StrEnumProp: the enumerated string property. Its value is one entry chosen
// from an ordered list; each entry is a display string (a heap copy owned by
// the property) and a cookie, a pointer-sized value of the creator's. It
// answers the enumeration protocol that user interfaces program against
// (README, "Enumerated properties"), as SourceProperty and the browsers do:
// the position one past the last entry (the count) stands for "no entry".
//
// Saved record: the flags word, the 16-bit count, the 16-bit current index,
// then per entry the cookie as a 32-bit integer and the string as a 32-bit
// length and its characters. A cookie that is a pointer means nothing once
// read back; enumerations meant to be saved use numbers as cookies.
#include "errors/Raise.hpp"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

struct Entry {
    char* text;   // heap string owned by the property, never null
    kvArg cookie; // the creator's value for the entry
};

#pragma pack(push, 1)
struct StrEnumPropData {
    Entry* entries;  // heap array of `count` entries; null when empty
    int16_t count;   // number of entries
    int16_t current; // the chosen entry, -1 for none
};
#pragma pack(pop)

kvClass StrEnumPropClass = nullptr;

constexpr int32_t capacity = INT16_MAX;

KV_METHOD_TABLE(strEnumPropMethods,                      //
                kova::method("addEntry", 2),             //
                kova::method("asInt", 0),                //
                kova::method("asString", 0),             //
                kova::method("fetchAsString", 0),        //
                kova::method("fetchData", 0),            //
                kova::method("getCount", 0),             //
                kova::method("getCurIndex", 0),          //
                kova::method("getCurrentEnumString", 0), //
                kova::method("getIndexedCookie", 1),     //
                kova::method("getIndexedEnumString", 1), //
                kova::method("getIndexedString", 1),     //
                kova::method("objInit", 0),              //
                kova::method("objTerm", 0),              //
                kova::method("readFromStream", 1),       //
                kova::method("resetContents", 0),        //
                kova::method("setCurIndex", 1),          //
                kova::method("storeData", 1),            //
                kova::method("storeFromString", 1),      //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(strEnumPropClassMethods);

StrEnumPropData* dataOf(void* instData) {
    return static_cast<StrEnumPropData*>(instData);
}

// The array pointer of packed data is read through a copy.
Entry* entriesOf(const StrEnumPropData* list) {
    return list->entries;
}

void freeEntries(Entry* entries, int16_t count) {
    for (int16_t i = 0; i < count; ++i)
        kova::platform::release(entries[i].text);
    kova::platform::release(entries);
}

void replaceEntries(StrEnumPropData* list, Entry* entries, int16_t count, int16_t current) {
    freeEntries(entriesOf(list), list->count);
    list->entries = entries;
    list->count = count;
    list->current = current;
}

// Fires `event` with the property's own error slot, as the list properties
// do: what a subscriber raises never reaches the caller.
template <typename... A> void fireQuietly(kvObject self, const char* event, A... values) {
    kvObject own = nullptr;
    kvFireNotification(&own, self, event, values...);
    kova::props::discardErrorsAbove(&own, nullptr);
}

// The entry at `index`, or null for the "no entry" position (the count).
// Any other index raises 3441 and also gives null.
const Entry* entryAt(kvObject* errSlot, kvObject self, const StrEnumPropData* list, kvArg index) {
    if (index >= 0 && index < list->count) return &entriesOf(list)[index];
    if (index != list->count)
        kova::raiseError(errSlot, self, StrEnumPropClass, 3441, index, kova::props::nameOf(self));
    return nullptr;
}

const Entry* currentEntry(const StrEnumPropData* list) {
    return list->current >= 0 && list->current < list->count ? &entriesOf(list)[list->current]
                                                             : nullptr;
}

// Makes `index` (a valid one) current: "OnStore" with its cookie to the
// caller's slot, then "OnIndexChange" with the index.
void choose(kvObject* errSlot, kvObject self, StrEnumPropData* list, int16_t index) {
    list->current = index;
    kvSendParentMeth(errSlot, StrEnumPropClass, self, "storeData", entriesOf(list)[index].cookie);
    fireQuietly(self, "OnIndexChange", kvArg{index});
}

// Chooses the first entry that `matches` and answers 0; answers -1 with 3518
// raised on an empty enumeration, and 1 (nothing raised) when no entry
// matches, for the caller to report.
template <typename Match>
kvResult chooseFirst(kvObject* errSlot, kvObject self, StrEnumPropData* list, Match matches) {
    if (list->count <= 0) {
        kova::raiseError(errSlot, self, StrEnumPropClass, 3518, kova::props::nameOf(self));
        return -1;
    }
    for (int16_t i = 0; i < list->count; ++i) {
        if (matches(entriesOf(list)[i])) {
            choose(errSlot, self, list, i);
            return 0;
        }
    }
    return 1;
}

kvResult currentText(kvObject* errSlot, kvObject self, void* instData, const kvArgs* args) {
    kvSendParentMethNA(errSlot, StrEnumPropClass, self, "fetchData", args);
    const Entry* entry = currentEntry(dataOf(instData));
    return reinterpret_cast<kvResult>(entry ? entry->text : nullptr);
}

} // namespace

// (string, cookie): appends an entry and fires "OnTableChange"; answers its
// index. A null string raises 3448, a full list or a lack of memory 3429;
// both answer -1 and leave the list as it was.
KV_METHOD(StrEnumProp, addEntry) {
    StrEnumPropData* list = dataOf(instData);
    const char* text = kova::props::textArg(args, 0);
    if (!text) {
        kova::raiseError(errSlot, self, StrEnumPropClass, 3448);
        return -1;
    }
    const auto count = static_cast<size_t>(list->count);
    char* copy = list->count < capacity ? kova::platform::duplicate(text) : nullptr;
    auto* grown =
        copy ? static_cast<Entry*>(kova::platform::allocate((count + 1) * sizeof(Entry))) : nullptr;
    if (!grown) {
        kova::platform::release(copy);
        kova::raiseError(errSlot, self, StrEnumPropClass, 3429);
        return -1;
    }
    if (count) std::memcpy(grown, entriesOf(list), count * sizeof(Entry));
    grown[count] = Entry{copy, kvArgAt(args, 1)};
    kova::platform::release(entriesOf(list));
    list->entries = grown;
    list->count = static_cast<int16_t>(count + 1);
    fireQuietly(self, "OnTableChange");
    return static_cast<kvResult>(count);
}

// The chosen entry's cookie, as "fetchData" answers it.
KV_METHOD(StrEnumProp, asInt) {
    (void)instData, (void)args;
    return static_cast<int32_t>(kvSendMeth(errSlot, self, "fetchData"));
}

KV_METHOD(StrEnumProp, asString) {
    return currentText(errSlot, self, instData, args);
}

// The chosen entry's string after "OnFetch"; null when none is chosen.
KV_METHOD(StrEnumProp, fetchAsString) {
    return currentText(errSlot, self, instData, args);
}

// The chosen entry's cookie after "OnFetch"; 0 when none is chosen.
KV_METHOD(StrEnumProp, fetchData) {
    kvSendParentMethNA(errSlot, StrEnumPropClass, self, "fetchData", args);
    const Entry* entry = currentEntry(dataOf(instData));
    return entry ? entry->cookie : 0;
}

KV_METHOD(StrEnumProp, getCount) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->count;
}

// The chosen index, or the count when no entry is chosen.
KV_METHOD(StrEnumProp, getCurIndex) {
    (void)errSlot, (void)self, (void)args;
    const StrEnumPropData* list = dataOf(instData);
    return currentEntry(list) ? list->current : list->count;
}

// The chosen entry's string; null when none is chosen. Fires nothing.
KV_METHOD(StrEnumProp, getCurrentEnumString) {
    (void)errSlot, (void)self, (void)args;
    const Entry* entry = currentEntry(dataOf(instData));
    return reinterpret_cast<kvResult>(entry ? entry->text : nullptr);
}

// (index): the entry's cookie; 0 for the count, 0 with 3441 outside.
KV_METHOD(StrEnumProp, getIndexedCookie) {
    const Entry* entry = entryAt(errSlot, self, dataOf(instData), kvArgAt(args, 0));
    return entry ? entry->cookie : 0;
}

// (index): the entry's string; null for the count, null with 3441 outside.
KV_METHOD(StrEnumProp, getIndexedEnumString) {
    const Entry* entry = entryAt(errSlot, self, dataOf(instData), kvArgAt(args, 0));
    return reinterpret_cast<kvResult>(entry ? entry->text : nullptr);
}

KV_METHOD(StrEnumProp, getIndexedString) {
    const Entry* entry = entryAt(errSlot, self, dataOf(instData), kvArgAt(args, 0));
    return reinterpret_cast<kvResult>(entry ? entry->text : nullptr);
}

// (owner, name, id, flags): empty, nothing chosen.
KV_METHOD(StrEnumProp, objInit) {
    const kvResult result = kvSendParentMethNA(errSlot, StrEnumPropClass, self, "objInit", args);
    StrEnumPropData* list = dataOf(instData);
    list->entries = nullptr;
    list->count = 0;
    list->current = -1;
    return result;
}

KV_METHOD(StrEnumProp, objTerm) {
    replaceEntries(dataOf(instData), nullptr, 0, -1);
    return kvSendParentMethNA(errSlot, StrEnumPropClass, self, "objTerm", args);
}

// (stream): the record writeToStream writes. The entries are replaced only
// by a complete record whose index is -1 or inside the list; the array grows
// only as entries arrive, so a count the stream does not back costs nothing.
// A cut record (3432), a bad count or index (3443) or a lack of memory (3429)
// leaves the property as it was and answers -1. Fires nothing.
KV_METHOD(StrEnumProp, readFromStream) {
    const auto stream = kova::props::pointerArg<kvObjectHeader>(args, 0);
    uint16_t flags = 0;
    int16_t count = 0;
    int16_t current = 0;
    if (!kova::props::readFlags(errSlot, self, StrEnumPropClass, stream, &flags) ||
        !kova::props::readInt16(errSlot, self, StrEnumPropClass, stream, &count) ||
        !kova::props::readInt16(errSlot, self, StrEnumPropClass, stream, &current))
        return -1;
    if (count < 0 || current < -1 || current >= count) {
        kova::raiseError(errSlot, self, StrEnumPropClass, 3443);
        return -1;
    }
    Entry* entries = nullptr;
    int16_t read = 0;
    size_t room = 0;
    for (; read < count; ++read) {
        int32_t cookie = 0;
        kova::props::CountedRun run;
        if (!kova::props::readInt32(errSlot, self, StrEnumPropClass, stream, &cookie) ||
            !kova::props::readCounted(errSlot, self, StrEnumPropClass, stream, &run))
            break;
        if (room == static_cast<size_t>(read)) {
            room = room ? room * 2 : 4;
            auto* grown =
                static_cast<Entry*>(kova::platform::reallocate(entries, room * sizeof(Entry)));
            if (!grown) {
                kova::platform::release(run.bytes);
                kova::raiseError(errSlot, self, StrEnumPropClass, 3429);
                break;
            }
            entries = grown;
        }
        entries[read] = Entry{run.bytes, cookie};
    }
    if (read < count) {
        freeEntries(entries, read);
        return -1;
    }
    kova::props::adoptFlags(self, flags);
    replaceEntries(dataOf(instData), entries, count, current);
    return 0;
}

// Removes every entry; fires "OnTableChange" and, when an entry was chosen,
// "OnIndexChange" with the new index (0, the count).
KV_METHOD(StrEnumProp, resetContents) {
    (void)errSlot, (void)args;
    StrEnumPropData* list = dataOf(instData);
    const bool hadChoice = currentEntry(list) != nullptr;
    replaceEntries(list, nullptr, 0, -1);
    fireQuietly(self, "OnTableChange");
    if (hadChoice) fireQuietly(self, "OnIndexChange", kvArg{0});
    return 0;
}

// (index): chooses the entry and answers 0. The count changes nothing and
// answers 0; any other index raises 3517 and answers -1.
KV_METHOD(StrEnumProp, setCurIndex) {
    StrEnumPropData* list = dataOf(instData);
    const kvArg index = kvArgAt(args, 0);
    if (index == list->count) return 0;
    if (index < 0 || index > list->count) {
        kova::raiseError(errSlot, self, StrEnumPropClass, 3517, index, kova::props::nameOf(self));
        return -1;
    }
    choose(errSlot, self, list, static_cast<int16_t>(index));
    return 0;
}

// (cookie): chooses the first entry with that cookie; answers 0. An empty
// enumeration raises 3518, an unknown cookie 3485; both answer -1.
KV_METHOD(StrEnumProp, storeData) {
    const kvArg cookie = kvArgAt(args, 0);
    const kvResult answer =
        chooseFirst(errSlot, self, dataOf(instData),
                    [cookie](const Entry& entry) { return entry.cookie == cookie; });
    if (answer <= 0) return answer;
    kova::raiseError(errSlot, self, StrEnumPropClass, 3485, cookie, kova::props::nameOf(self));
    return -1;
}

// (text): chooses the first entry whose string equals the text; answers 0.
// An empty enumeration raises 3518, a text that names no entry (null
// included) 3464; both answer -1.
KV_METHOD(StrEnumProp, storeFromString) {
    const char* text = kova::props::textArg(args, 0);
    const kvResult answer =
        chooseFirst(errSlot, self, dataOf(instData), [text](const Entry& entry) {
            return text && std::strcmp(entry.text, text) == 0;
        });
    if (answer <= 0) return answer;
    kova::raiseError(errSlot, self, StrEnumPropClass, 3464, kova::props::nameOf(self),
                     kvClassName(self->cls));
    return -1;
}

KV_METHOD(StrEnumProp, writeToStream) {
    const auto stream = kova::props::pointerArg<kvObjectHeader>(args, 0);
    const StrEnumPropData* list = dataOf(instData);
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeInt16(errSlot, stream, list->count);
    kova::props::writeInt16(errSlot, stream, list->current);
    const Entry* entries = entriesOf(list);
    for (int16_t i = 0; i < list->count; ++i) {
        kova::props::writeInt32(errSlot, stream, static_cast<int32_t>(entries[i].cookie));
        kova::props::writeCounted(errSlot, stream, entries[i].text, std::strlen(entries[i].text));
    }
    return 0;
}

KV_REGISTER(StrEnumProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    StrEnumPropClass = kvAddClass("StrEnumProp", "Property", sizeof(StrEnumPropData), 0,
                                  strEnumPropMethods.get(), strEnumPropClassMethods.get());
    return StrEnumPropClass;
}
