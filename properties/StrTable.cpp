// StrTable: an ordered table of rows, each an owned string with a key, used
// as a small dictionary from strings to keys and back. The mode decides which
// strings a row may hold: 100 any, 101 no empty string in "setString", 102
// unique strings (and no empty string in "setString"). The array grows and
// shrinks by exactly one row per change and every search is linear from row
// 0, taking the first match; tables hold tens of rows.
#include "errors/Raise.hpp"
#include "kova/kernel.h"
#include "platform/Platform.hpp"

#include <cstdint>
#include <cstring>

namespace {

// One row. The key is a whole slot, because the table's users keep objects
// and heap strings in it; the table never reads or frees it.
struct StrRow {
    char* string; // heap copy owned by the table, never null
    kvArg key;    // opaque to the table
};

#pragma pack(push, 1)
struct StrTableData {
    StrRow* rows;  // `count` rows, null while the table is empty
    int16_t count; // number of rows
    int16_t mode;  // anyStrings, noEmptyStrings or uniqueStrings; 0 after an invalid mode
};
#pragma pack(pop)

enum Mode : int16_t { anyStrings = 100, noEmptyStrings = 101, uniqueStrings = 102 };

kvClass StrTableClass = nullptr;

KV_METHOD_TABLE(strTableMethods,                   //
                kova::method("addKey", 2),         //
                kova::method("addString", 1),      //
                kova::method("appendString", 2),   //
                kova::method("delKey", 1),         //
                kova::method("delString", 1),      //
                kova::method("findKey", 1),        //
                kova::method("findString", 1),     //
                kova::method("getCount", 0),       //
                kova::method("getKey", 1),         //
                kova::method("getKeyIndex", 1),    //
                kova::method("getKeyString", 1),   //
                kova::method("getMode", 0),        //
                kova::method("getString", 1),      //
                kova::method("objInit", 1),        //
                kova::method("objTerm", 0),        //
                kova::method("resetContents", 0),  //
                kova::method("setKey", 2),         //
                kova::method("setKeyByString", 2), //
                kova::method("setMode", 1),        //
                kova::method("setString", 2));
KV_EMPTY_METHOD_TABLE(strTableClassMethods);

StrTableData* tableOf(void* instData) {
    return static_cast<StrTableData*>(instData);
}

const char* argString(const kvArgs* args, size_t index) {
    return reinterpret_cast<const char*>(kvArgAt(args, index));
}

// Indexes travel as slots but are 16-bit numbers: only the low 16 bits count.
int16_t argIndex(const kvArgs* args, size_t index) {
    return static_cast<int16_t>(kvArgAt(args, index));
}

bool isValidMode(kvArg mode) {
    return mode == anyStrings || mode == noEmptyStrings || mode == uniqueStrings;
}

bool refusesEmptyStrings(const StrTableData* table) {
    return table->mode == noEmptyStrings || table->mode == uniqueStrings;
}

bool isValidIndex(const StrTableData* table, int16_t index) {
    return index >= 0 && index < table->count;
}

// Index of the first row holding exactly `string`, or -1 (also for a null
// string or an empty table).
int16_t findRow(const StrTableData* table, const char* string) {
    if (!table->rows || !string) return -1;
    for (int16_t i = 0; i < table->count; ++i)
        if (std::strcmp(table->rows[i].string, string) == 0) return i;
    return -1;
}

int16_t findKeyRow(const StrTableData* table, kvArg key) {
    for (int16_t i = 0; i < table->count; ++i)
        if (table->rows[i].key == key) return i;
    return -1;
}

// Raises error `number` against the table and answers `result`, the failing
// method's answer.
template <typename... A>
kvResult fail(kvResult result, kvObject* errSlot, kvObject self, int32_t number, A... values) {
    kova::raiseError(errSlot, self, StrTableClass, number, values...);
    return result;
}

kvResult failIndex(kvResult result, kvObject* errSlot, kvObject self, int32_t index) {
    return fail(result, errSlot, self, 3441, index, static_cast<const char*>(nullptr));
}

// Appends a row holding a copy of `string`. False when memory ran out; the
// table is then as it was.
bool appendRow(StrTableData* table, const char* string, kvArg key) {
    char* copy = kova::platform::duplicate(string);
    if (!copy) return false;
    const size_t size = (static_cast<size_t>(table->count) + 1) * sizeof(StrRow);
    auto* grown = static_cast<StrRow*>(kova::platform::reallocate(table->rows, size));
    if (!grown) {
        kova::platform::release(copy);
        return false;
    }
    table->rows = grown;
    table->rows[table->count++] = StrRow{copy, key};
    return true;
}

// Removes row `index`, freeing its string. The smaller array is had before
// anything changes, so a false answer (no memory) leaves the table whole.
bool removeRow(StrTableData* table, int16_t index) {
    if (table->count == 1) {
        kova::platform::release(table->rows[0].string);
        kova::platform::release(table->rows);
        table->rows = nullptr;
        table->count = 0;
        return true;
    }
    const size_t kept = static_cast<size_t>(table->count) - 1;
    auto* smaller = static_cast<StrRow*>(kova::platform::allocate(kept * sizeof(StrRow)));
    if (!smaller) return false;
    const auto before = static_cast<size_t>(index);
    std::memcpy(smaller, table->rows, before * sizeof(StrRow));
    std::memcpy(smaller + before, table->rows + before + 1, (kept - before) * sizeof(StrRow));
    kova::platform::release(table->rows[index].string);
    kova::platform::release(table->rows);
    table->rows = smaller;
    --table->count;
    return true;
}

// Replaces the string of row `index` with `string`, which must already be a
// heap block the table may own.
void replaceString(StrTableData* table, int16_t index, char* string) {
    kova::platform::release(table->rows[index].string);
    table->rows[index].string = string;
}

// `row` followed by `added`, as a new heap string, or null.
char* joined(const char* row, const char* added) {
    const size_t rowLength = std::strlen(row);
    const size_t addedLength = std::strlen(added);
    auto* text = static_cast<char*>(kova::platform::allocate(rowLength + addedLength + 1));
    if (!text) return nullptr;
    std::memcpy(text, row, rowLength);
    std::memcpy(text + rowLength, added, addedLength + 1);
    return text;
}

} // namespace

// (string, key): appends a row; answers its index, or -1 with 3448 for a
// null string, 3439 for a repeated string in mode 102, 3429 when no memory
// could be had (or the table holds the most rows a 16-bit count allows).
KV_METHOD(StrTable, addKey) {
    StrTableData* table = tableOf(instData);
    const char* string = argString(args, 0);
    if (!string) return fail(-1, errSlot, self, 3448);
    if (table->mode == uniqueStrings && findRow(table, string) >= 0)
        return fail(-1, errSlot, self, 3439);
    if (table->count == INT16_MAX || !appendRow(table, string, kvArgAt(args, 1)))
        return fail(-1, errSlot, self, 3429);
    return table->count - 1;
}

KV_METHOD(StrTable, addString) {
    (void)instData;
    return kvSendMeth(errSlot, self, "addKey", argString(args, 0), 0);
}

// (index, string): appends `string` to row `index`'s string; answers the
// index, or -1 with an error (3441, 3442, 3448, 3429, or 3439 when in mode
// 102 the joined string is already in the table).
KV_METHOD(StrTable, appendString) {
    StrTableData* table = tableOf(instData);
    const int16_t index = argIndex(args, 0);
    const char* added = argString(args, 1);
    if (!isValidIndex(table, index)) return failIndex(-1, errSlot, self, index);
    if (!table->rows) return fail(-1, errSlot, self, 3442);
    if (!added) return fail(-1, errSlot, self, 3448);
    if (!*added) return index;
    char* text = joined(table->rows[index].string, added);
    if (!text) return fail(-1, errSlot, self, 3429);
    if (table->mode == uniqueStrings && findRow(table, text) >= 0) {
        kova::platform::release(text);
        return fail(-1, errSlot, self, 3439);
    }
    replaceString(table, index, text);
    return index;
}

// (string): removes the first row holding it. Answers 1 when removed or when
// there is nothing to remove, 0 with 3448 for a null string or 3429 when the
// smaller array could not be had (the row then stays).
KV_METHOD(StrTable, delKey) {
    StrTableData* table = tableOf(instData);
    const char* string = argString(args, 0);
    if (!table->rows) return 1;
    if (!string) return fail(0, errSlot, self, 3448);
    const int16_t index = findRow(table, string);
    if (index < 0) return 1;
    if (!removeRow(table, index)) return fail(0, errSlot, self, 3429);
    return 1;
}

KV_METHOD(StrTable, delString) {
    (void)instData;
    return kvSendMeth(errSlot, self, "delKey", argString(args, 0));
}

// (string): the key of the first row holding it, or 0, which also answers a
// string that is absent (without an error).
KV_METHOD(StrTable, findKey) {
    const StrTableData* table = tableOf(instData);
    const char* string = argString(args, 0);
    if (!table->rows) return fail(0, errSlot, self, 3442);
    if (!string) return fail(0, errSlot, self, 3448);
    const int16_t index = findRow(table, string);
    return index >= 0 ? table->rows[index].key : 0;
}

KV_METHOD(StrTable, findString) {
    (void)errSlot, (void)self;
    return findRow(tableOf(instData), argString(args, 0));
}

KV_METHOD(StrTable, getCount) {
    (void)errSlot, (void)self, (void)args;
    return tableOf(instData)->count;
}

KV_METHOD(StrTable, getKey) {
    const StrTableData* table = tableOf(instData);
    const int16_t index = argIndex(args, 0);
    if (!isValidIndex(table, index)) return failIndex(0, errSlot, self, index);
    return table->rows[index].key;
}

// (key): the index of the first row with that key; -1 with 3442 on an empty
// table, or with 3441 naming the count when no row has it.
KV_METHOD(StrTable, getKeyIndex) {
    const StrTableData* table = tableOf(instData);
    if (!table->rows) return fail(-1, errSlot, self, 3442);
    const int16_t index = findKeyRow(table, kvArgAt(args, 0));
    if (index < 0) return failIndex(-1, errSlot, self, table->count);
    return index;
}

// (key): the string of the first row with that key; null with 3442 on an
// empty table, or with 3440 when no row has it.
KV_METHOD(StrTable, getKeyString) {
    const StrTableData* table = tableOf(instData);
    if (!table->rows) return fail(0, errSlot, self, 3442);
    const int16_t index = findKeyRow(table, kvArgAt(args, 0));
    if (index < 0) return fail(0, errSlot, self, 3440);
    return reinterpret_cast<kvResult>(table->rows[index].string);
}

KV_METHOD(StrTable, getMode) {
    (void)errSlot, (void)self, (void)args;
    return tableOf(instData)->mode;
}

// (index): the row's string, the table's own copy; null with 3441.
KV_METHOD(StrTable, getString) {
    const StrTableData* table = tableOf(instData);
    const int16_t index = argIndex(args, 0);
    if (!isValidIndex(table, index)) return failIndex(0, errSlot, self, index);
    return reinterpret_cast<kvResult>(table->rows[index].string);
}

// (mode, then Object's creation arguments): an invalid mode raises 3491 and
// leaves mode 0, which behaves as mode 100.
KV_METHOD(StrTable, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, StrTableClass, self, "objInit", &rest);
    StrTableData* table = tableOf(instData);
    *table = StrTableData{nullptr, 0, 0};
    const kvArg mode = kvArgAt(args, 0);
    if (!isValidMode(mode)) return fail(0, errSlot, self, 3491, static_cast<int32_t>(mode));
    table->mode = static_cast<int16_t>(mode);
    return 0;
}

KV_METHOD(StrTable, objTerm) {
    (void)instData;
    kvSendMeth(errSlot, self, "resetContents");
    return kvSendParentMethNA(errSlot, StrTableClass, self, "objTerm", args);
}

// Frees every row's string (never a key) and empties the table; answers 1.
KV_METHOD(StrTable, resetContents) {
    (void)errSlot, (void)self, (void)args;
    StrTableData* table = tableOf(instData);
    if (!table->rows) return 1;
    for (int16_t i = 0; i < table->count; ++i)
        kova::platform::release(table->rows[i].string);
    kova::platform::release(table->rows);
    table->rows = nullptr;
    table->count = 0;
    return 1;
}

KV_METHOD(StrTable, setKey) {
    StrTableData* table = tableOf(instData);
    const int16_t index = argIndex(args, 0);
    if (!isValidIndex(table, index)) return failIndex(-1, errSlot, self, index);
    table->rows[index].key = kvArgAt(args, 1);
    return index;
}

// (string, key): sets the key of the first row holding the string; -1
// without an error when no row does.
KV_METHOD(StrTable, setKeyByString) {
    (void)errSlot, (void)self;
    StrTableData* table = tableOf(instData);
    const int16_t index = findRow(table, argString(args, 0));
    if (index < 0) return -1;
    table->rows[index].key = kvArgAt(args, 1);
    return index;
}

KV_METHOD(StrTable, setMode) {
    const kvArg mode = kvArgAt(args, 0);
    if (!isValidMode(mode)) return fail(0, errSlot, self, 3491, static_cast<int32_t>(mode));
    tableOf(instData)->mode = static_cast<int16_t>(mode);
    return 1;
}

// (index, string): replaces row `index`'s string with a copy; answers the
// index, or -1 with an error (3441, 3442, 3448 also for an empty string in
// modes 101 and 102, 3439 for a string another row holds in mode 102, 3429).
// Setting a row to the string it already holds in mode 102 changes nothing.
KV_METHOD(StrTable, setString) {
    StrTableData* table = tableOf(instData);
    const int16_t index = argIndex(args, 0);
    const char* string = argString(args, 1);
    if (!isValidIndex(table, index)) return failIndex(-1, errSlot, self, index);
    if (!table->rows) return fail(-1, errSlot, self, 3442);
    if (!string || (!*string && refusesEmptyStrings(table))) return fail(-1, errSlot, self, 3448);
    if (table->mode == uniqueStrings) {
        const int16_t holder = findRow(table, string);
        if (holder == index) return index;
        if (holder >= 0) return fail(-1, errSlot, self, 3439);
    }
    char* copy = kova::platform::duplicate(string);
    if (!copy) return fail(-1, errSlot, self, 3429);
    replaceString(table, index, copy);
    return index;
}

KV_REGISTER(StrTable) {
    if (!kvRegisterClass("Object")) return nullptr;
    StrTableClass = kvAddClass("StrTable", "Object", sizeof(StrTableData), 0, strTableMethods.get(),
                               strTableClassMethods.get());
    return StrTableClass;
}
