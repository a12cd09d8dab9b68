// BitField: a property holding up to 32 option bits in two forms at once:
// the raw bits, numbered by their place in the option list a user sees, and
// the translated value, in which each raw bit stands for a mask of another
// encoding. A caller-owned translation table of 32 masks maps raw bit i to
// its mask (0xFFFFFFFF: raw bit i does not exist); a caller-owned list of
// strings, ended by the first empty string, names the bits. Neither table
// is copied or freed here. Before a translation table is given, every method
// but "InitBitField", "fetchData", "fetchXlatedData" and "fetchString" does
// nothing. Stores and fetches fire no notifications.
//
// The second and fourth setup values are pointer-sized, since callers pass
// pointers there (BFLexCls passes its constant names and its class name).
//
// Bit numbers outside 0 to 31 have an empty mask and no table entry: they
// set, clear and test nothing, and name no string.
//
// Saved record: the flags word, the translated value and the raw bits, both
// 32-bit. The base record would save the addresses of the caller's tables,
// which a reader must not take back.
#include "errors/Raise.hpp"
#include "platform/Platform.hpp"
#include "properties/BitFieldDialog.hpp"
#include "properties/PropertySupport.hpp"

#include <cstddef>

namespace {

#pragma pack(push, 1)
struct BitFieldData {
    uint32_t translated;      // OR of the masks of every set raw bit with a table entry
    uint32_t raw;             // bit i set: option i chosen
    const char* const* names; // the caller's strings, one per raw bit, ended by ""; may be null
    uint32_t secondValue;     // kept from InitBitField, read by no method here
    const uint32_t* table;    // the caller's 32 translated masks, or null
    uint32_t fourthValue;     // kept from InitBitField, read by no method here
    const char* caption;      // the bit dialog's caption
    kvObject* dialogErrSlot;  // where the bit dialog reports
    kvObject dialogObject;    // the field the bit dialog sets
};
#pragma pack(pop)

kvClass BitFieldClass = nullptr;

constexpr uint32_t noBit = 0xFFFFFFFFu;
constexpr int bitCount = 32;

KV_METHOD_TABLE(bitFieldMethods,                         //
                kova::method("InitBitField", 4),         //
                kova::method("clearBit", 1),             //
                kova::method("clearByXlatedBit", 1),     //
                kova::method("createBitFieldWindow", 1), //
                kova::method("fetchData", 0),            //
                kova::method("fetchString", 1),          //
                kova::method("fetchXlatedData", 0),      //
                kova::method("readFromStream", 1),       //
                kova::method("setBit", 1),               //
                kova::method("setByXlatedBit", 1),       //
                kova::method("storeData", 1),            //
                kova::method("testBit", 1),              //
                kova::method("testByXlatedBit", 1),      //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(bitFieldClassMethods);

BitFieldData* dataOf(void* instData) {
    return static_cast<BitFieldData*>(instData);
}

bool isBitNumber(kvArg i) {
    return i >= 0 && i < bitCount;
}

// The mask of bit i: 1 doubled i times, empty from 32 on.
uint32_t maskOf(kvArg i) {
    return isBitNumber(i) ? uint32_t{1} << i : 0;
}

// Table entry i, or noBit for a bit number without one.
uint32_t entryOf(const BitFieldData* field, kvArg i) {
    const uint32_t* table = field->table;
    return table && isBitNumber(i) ? table[i] : noBit;
}

void recompute(BitFieldData* field) {
    uint32_t translated = 0;
    for (int i = 0; i < bitCount; ++i)
        if ((field->raw & maskOf(i)) && entryOf(field, i) != noBit) translated |= entryOf(field, i);
    field->translated = translated;
}

// String i of the caller's list (the empty string that ends the list
// included), or null when the list ends before it or there is no list.
const char* nameOf(const BitFieldData* field, kvArg i) {
    const char* const* names = field->names;
    if (!names || !isBitNumber(i)) return nullptr;
    for (kvArg k = 0; k < i; ++k)
        if (!names[k] || !names[k][0]) return nullptr;
    return names[i];
}

// Sets or clears every raw bit whose entry holds translated bit j, then
// recomputes. Answers 0 for j outside 0 to 31, 1 otherwise.
kvResult changeByTranslatedBit(BitFieldData* field, kvArg j, bool set) {
    if (!isBitNumber(j)) return 0;
    if (!field->table) return 1;
    for (int i = 0; i < bitCount; ++i) {
        const uint32_t entry = entryOf(field, i);
        if (entry == noBit || !(entry & maskOf(j))) continue;
        field->raw = set ? field->raw | maskOf(i) : field->raw & ~maskOf(i);
    }
    recompute(field);
    return 1;
}

// The dialog's opening: raw bits 0 to 15 with a table entry, in order, each
// take the next box, labelled with the bit's string and checked when the bit
// is set. The offer ends where the string list ends, as the dialog's OK
// reads it: a string past the list's end is not the caller's.
void openDialog(kvBitFieldDialog* dialog, kvObject self, BitFieldData* field) {
    for (int i = 0; i < KV_BITDLG_BOXES; ++i) {
        const char* name = nameOf(field, i);
        if (!name || !name[0]) break;
        if (entryOf(field, i) == noBit) continue;
        const int box = dialog->boxes++;
        dialog->bitOfBox[box] = i;
        dialog->labelOfBox[box] = name;
        dialog->checked[box] = kvSendMeth(dialog->errSlot, self, "testBit", i) != 0;
    }
}

} // namespace

// (strings, second value, translation table, fourth value): keeps the four
// and clears both forms of the bits. Answers 0.
KV_METHOD(BitField, InitBitField) {
    (void)errSlot, (void)self;
    BitFieldData* field = dataOf(instData);
    field->names = kova::props::pointerArg<const char* const>(args, 0);
    field->secondValue = kvArgAt(args, 1);
    field->table = kova::props::pointerArg<const uint32_t>(args, 2);
    field->fourthValue = kvArgAt(args, 3);
    field->raw = 0;
    field->translated = 0;
    return 0;
}

// (i): clears raw bit i and recomputes the translated value.
KV_METHOD(BitField, clearBit) {
    (void)errSlot, (void)self;
    BitFieldData* field = dataOf(instData);
    if (!field->table) return 0;
    field->raw &= ~maskOf(kvArgAt(args, 0));
    recompute(field);
    return 0;
}

KV_METHOD(BitField, clearByXlatedBit) {
    (void)errSlot, (void)self;
    return changeByTranslatedBit(dataOf(instData), kvArgAt(args, 0), false);
}

// (caption): runs the bit dialog, owned by the active window; answers 1, or
// 0 when the dialog could not be shown.
KV_METHOD(BitField, createBitFieldWindow) {
    BitFieldData* field = dataOf(instData);
    field->caption = kova::props::textArg(args, 0);
    field->dialogErrSlot = errSlot;
    field->dialogObject = self;
    kvBitFieldDialog dialog{};
    dialog.field = self;
    dialog.errSlot = errSlot;
    dialog.caption = field->caption;
    dialog.bitValues = instData;
    static_assert(offsetof(BitFieldData, translated) == 0 && offsetof(BitFieldData, raw) == 4,
                  "OK clears the first two fields");
    openDialog(&dialog, self, field);
    return kova::platform::runBitFieldDialog(&dialog) ? 1 : 0;
}

// The raw bits.
KV_METHOD(BitField, fetchData) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->raw;
}

// (i): string i; null without strings, for a bit without a table entry, or
// past the end of the list.
KV_METHOD(BitField, fetchString) {
    (void)errSlot, (void)self;
    const BitFieldData* field = dataOf(instData);
    const kvArg i = kvArgAt(args, 0);
    if (!field->names) return 0;
    if (field->table && entryOf(field, i) == noBit) return 0;
    return reinterpret_cast<kvResult>(nameOf(field, i));
}

KV_METHOD(BitField, fetchXlatedData) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->translated;
}

// (stream): the flags word and both values, taken only from a complete
// record (otherwise 3432 and -1, the field as it was).
KV_METHOD(BitField, readFromStream) {
    const auto stream = kova::props::pointerArg<kvObjectHeader>(args, 0);
    uint16_t flags = 0;
    int32_t translated = 0;
    int32_t raw = 0;
    if (!kova::props::readFlags(errSlot, self, BitFieldClass, stream, &flags) ||
        !kova::props::readInt32(errSlot, self, BitFieldClass, stream, &translated) ||
        !kova::props::readInt32(errSlot, self, BitFieldClass, stream, &raw))
        return -1;
    kova::props::adoptFlags(self, flags);
    BitFieldData* field = dataOf(instData);
    field->translated = static_cast<uint32_t>(translated);
    field->raw = static_cast<uint32_t>(raw);
    return 0;
}

// (i): sets raw bit i and ORs its entry into the translated value.
KV_METHOD(BitField, setBit) {
    (void)errSlot, (void)self;
    BitFieldData* field = dataOf(instData);
    const kvArg i = kvArgAt(args, 0);
    if (!field->table || !isBitNumber(i)) return 0;
    field->raw |= maskOf(i);
    if (entryOf(field, i) != noBit) field->translated |= entryOf(field, i);
    return 0;
}

KV_METHOD(BitField, setByXlatedBit) {
    (void)errSlot, (void)self;
    return changeByTranslatedBit(dataOf(instData), kvArgAt(args, 0), true);
}

// (raw bits): replaces them and recomputes the translated value.
KV_METHOD(BitField, storeData) {
    (void)errSlot, (void)self;
    BitFieldData* field = dataOf(instData);
    if (!field->table) return 0;
    field->raw = static_cast<uint32_t>(kvArgAt(args, 0));
    recompute(field);
    return 0;
}

KV_METHOD(BitField, testBit) {
    (void)errSlot, (void)self;
    const BitFieldData* field = dataOf(instData);
    return field->table && (field->raw & maskOf(kvArgAt(args, 0))) ? 1 : 0;
}

// (j): 1 when a set raw bit with a table entry has translated bit j in it.
KV_METHOD(BitField, testByXlatedBit) {
    (void)errSlot, (void)self;
    const BitFieldData* field = dataOf(instData);
    const kvArg j = kvArgAt(args, 0);
    if (!isBitNumber(j) || !field->table) return 0;
    for (int i = 0; i < bitCount; ++i) {
        const uint32_t entry = entryOf(field, i);
        if ((field->raw & maskOf(i)) && entry != noBit && (entry & maskOf(j))) return 1;
    }
    return 0;
}

KV_METHOD(BitField, writeToStream) {
    const auto stream = kova::props::pointerArg<kvObjectHeader>(args, 0);
    const BitFieldData* field = dataOf(instData);
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeInt32(errSlot, stream, static_cast<int32_t>(field->translated));
    kova::props::writeInt32(errSlot, stream, static_cast<int32_t>(field->raw));
    return 0;
}

KV_REGISTER(BitField) {
    if (!kvRegisterClass("Property")) return nullptr;
    BitFieldClass = kvAddClass("BitField", "Property", sizeof(BitFieldData), 0,
                               bitFieldMethods.get(), bitFieldClassMethods.get());
    return BitFieldClass;
}
