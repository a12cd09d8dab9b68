// SidebandData: the property that carries the descriptive tags of a page
// image besides its pixels, a table of tagged values in the TIFF style
// (identifier, type, item count, flags, items) kept in memory only. Each
// record is one block laid out as kvSidebandTag describes. The item getters
// answer the byte at the item's index, sign-extended, whatever the type's
// width: a long is never assembled from its bytes. Callers rely on this.
#include "errors/Raise.hpp"
#include "imaging/TiffFormat.hpp"
#include "kova/sideband.h"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

#pragma pack(push, 1)
struct SidebandDataData {
    kvSidebandTag** table; // owned array of count owned records, or null
    int32_t count;         // number of records
    int32_t curIndex;      // selected record, -1 for none
};
#pragma pack(pop)

kvClass SidebandDataClass = nullptr;

KV_METHOD_TABLE(sidebandDataMethods,                   //
                kova::method("addTag", 5),             //
                kova::method("copyDataFrom", 1),       //
                kova::method("deleteTag", 1),          //
                kova::method("findTag", 1),            //
                kova::method("getByte", 1),            //
                kova::method("getCount", 0),           //
                kova::method("getCurIndex", 0),        //
                kova::method("getLong", 1),            //
                kova::method("getRational", 1),        //
                kova::method("getShort", 1),           //
                kova::method("getString", 1),          //
                kova::method("getTagCount", 0),        //
                kova::method("getTagData", 2),         //
                kova::method("getTagFlags", 0),        //
                kova::method("getTagID", 0),           //
                kova::method("getTagTablePointer", 0), //
                kova::method("getTagType", 0),         //
                kova::method("objInit", 0),            //
                kova::method("objTerm", 0),            //
                kova::method("resetContents", 0),      //
                kova::method("setCurIndex", 1));
KV_EMPTY_METHOD_TABLE(sidebandDataClassMethods);

SidebandDataData* dataOf(void* instData) {
    return static_cast<SidebandDataData*>(instData);
}

// The selected record, or null. Callers ask for the selected record's
// fields after a successful findTag or setCurIndex; a selection that a
// deletion left past the end reads as none rather than outside the table.
kvSidebandTag* selected(const SidebandDataData* sideband) {
    if (!sideband->table || sideband->curIndex < 0 || sideband->curIndex >= sideband->count)
        return nullptr;
    return sideband->table[sideband->curIndex];
}

// Bytes of a record's items.
uint64_t itemBytes(uint32_t type, uint32_t count) {
    return uint64_t(count) * kova::tiff::itemSize(type);
}

// Tells "OnRangeCheck" subscribers of the refused `index` (their errors are
// dropped), raises 3441 with it and the property's name; answers -1.
kvResult refuseIndex(kvObject* errSlot, kvObject self, int32_t index, bool ownErrorSlot) {
    kvObject listenerErrors = nullptr;
    kvFireNotification(ownErrorSlot ? &listenerErrors : errSlot, self, "OnRangeCheck", index);
    kova::props::discardErrorsAbove(&listenerErrors, nullptr);
    kova::raiseError(errSlot, self, SidebandDataClass, 3441, index, kova::props::nameOf(self));
    return -1;
}

// (item index): the item getters' common rule: the selected record must be
// of `type`, else 3444; the index must lie within its items, else
// "OnRangeCheck" and 3441. Answers the byte at that position sign-extended.
kvResult byteAt(kvObject* errSlot, kvObject self, void* instData, const kvArgs* args,
                int32_t type) {
    kvSidebandTag* tag = selected(dataOf(instData));
    if (!tag || tag->type != type) {
        kova::raiseError(errSlot, self, SidebandDataClass, 3444);
        return -1;
    }
    const auto index = static_cast<int32_t>(kvArgAt(args, 0));
    if (index < 0 || index >= tag->count) return refuseIndex(errSlot, self, index, true);
    return static_cast<int8_t>(kvSidebandTagData(tag)[index]);
}

} // namespace

// (identifier, type, item count, flags, items): stores a copy of the items
// under the identifier, replacing the record of an identifier already there
// (at its index) or appending one; null items are stored as zeros. Fires
// "OnTableChange" and answers the record's index, or -1 with 3429.
KV_METHOD(SidebandData, addTag) {
    SidebandDataData* sideband = dataOf(instData);
    const auto id = static_cast<int32_t>(kvArgAt(args, 0));
    const auto type = static_cast<int32_t>(kvArgAt(args, 1));
    const auto count = static_cast<int32_t>(kvArgAt(args, 2));
    const auto flags = static_cast<int32_t>(kvArgAt(args, 3));
    const auto* items = reinterpret_cast<const unsigned char*>(kvArgAt(args, 4));
    const uint64_t bytes = itemBytes(uint32_t(type), uint32_t(count));
    const uint64_t size = sizeof(kvSidebandTag) + bytes + 1;
    auto* tag = size <= SIZE_MAX && bytes <= INT32_MAX
                    ? static_cast<kvSidebandTag*>(kova::platform::allocate(size_t(size)))
                    : nullptr;
    if (!tag) {
        kova::raiseError(errSlot, self, SidebandDataClass, 3429);
        return -1;
    }
    *tag = kvSidebandTag{id, type, count, flags};
    unsigned char* data = kvSidebandTagData(tag);
    if (items)
        std::memcpy(data, items, size_t(bytes));
    else
        std::memset(data, 0, size_t(bytes));
    data[bytes] = 0;

    const auto index = static_cast<int32_t>(kvSendMeth(errSlot, self, "findTag", id));
    if (index >= 0) {
        kova::platform::release(sideband->table[index]);
    } else {
        auto* table = static_cast<kvSidebandTag**>(kova::platform::reallocate(
            sideband->table, (size_t(sideband->count) + 1) * sizeof(kvSidebandTag*)));
        if (!table) {
            kova::platform::release(tag);
            kova::raiseError(errSlot, self, SidebandDataClass, 3429);
            return -1;
        }
        sideband->table = table;
        sideband->curIndex = sideband->count++;
    }
    sideband->table[sideband->curIndex] = tag;
    kvFireNotification(errSlot, self, "OnTableChange");
    return sideband->curIndex;
}

// (other SidebandData): this table becomes a copy of the other's. Answers 1,
// or 0 for a null other.
KV_METHOD(SidebandData, copyDataFrom) {
    (void)instData;
    const auto other = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    if (!other) return 0;
    kvSendMeth(errSlot, self, "resetContents");
    auto** table =
        reinterpret_cast<kvSidebandTag**>(kvSendMeth(errSlot, other, "getTagTablePointer"));
    const auto count = static_cast<int32_t>(kvSendMeth(errSlot, other, "getCount"));
    if (!table || count < 1) return 1;
    for (int32_t i = 0; i < count; ++i) {
        kvSidebandTag* tag = table[i];
        kvSendMeth(errSlot, self, "addTag", tag->id, tag->type, tag->count, tag->flags,
                   kvSidebandTagData(tag));
    }
    return 1;
}

// (identifier): removes the identifier's record and answers its former
// index, or -1. The selection stays at that index; removing the only record
// frees the table and ends the selection. Fires "OnTableChange".
KV_METHOD(SidebandData, deleteTag) {
    SidebandDataData* sideband = dataOf(instData);
    if (!sideband->table || sideband->count == 0) return -1;
    const auto index = static_cast<int32_t>(kvSendMeth(errSlot, self, "findTag", kvArgAt(args, 0)));
    if (index < 0) return -1;
    kvSidebandTag* removed = sideband->table[index];
    if (sideband->count > 1) {
        auto** table = static_cast<kvSidebandTag**>(
            kova::platform::allocate((size_t(sideband->count) - 1) * sizeof(kvSidebandTag*)));
        if (!table) {
            kova::raiseError(errSlot, self, SidebandDataClass, 3429);
            return -1;
        }
        std::copy(sideband->table, sideband->table + index, table);
        std::copy(sideband->table + index + 1, sideband->table + sideband->count, table + index);
        kova::platform::release(sideband->table);
        sideband->table = table;
        --sideband->count;
    } else {
        kova::platform::release(sideband->table);
        sideband->table = nullptr;
        sideband->count = 0;
        sideband->curIndex = -1;
    }
    kova::platform::release(removed);
    kvFireNotification(errSlot, self, "OnTableChange");
    return index;
}

// (identifier): selects the first record of the identifier and answers its
// index, or -1 (leaving the selection alone only when there is no table).
KV_METHOD(SidebandData, findTag) {
    (void)errSlot, (void)self;
    SidebandDataData* sideband = dataOf(instData);
    if (!sideband->table) return -1;
    const auto id = static_cast<int32_t>(kvArgAt(args, 0));
    sideband->curIndex = -1;
    for (int32_t i = 0; i < sideband->count; ++i) {
        if (sideband->table[i]->id == id) {
            sideband->curIndex = i;
            break;
        }
    }
    return sideband->curIndex;
}

KV_METHOD(SidebandData, getByte) {
    return byteAt(errSlot, self, instData, args, 1);
}

KV_METHOD(SidebandData, getCount) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->count;
}

KV_METHOD(SidebandData, getCurIndex) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->curIndex;
}

KV_METHOD(SidebandData, getLong) {
    return byteAt(errSlot, self, instData, args, 4);
}

KV_METHOD(SidebandData, getRational) {
    return byteAt(errSlot, self, instData, args, 5);
}

KV_METHOD(SidebandData, getShort) {
    return byteAt(errSlot, self, instData, args, 3);
}

KV_METHOD(SidebandData, getString) {
    return byteAt(errSlot, self, instData, args, 2);
}

KV_METHOD(SidebandData, getTagCount) {
    (void)errSlot, (void)self, (void)args;
    const kvSidebandTag* tag = selected(dataOf(instData));
    return tag ? tag->count : 0;
}

// (maximum item count, buffer): copies at most that many items of the
// selected record; answers 0, or -1 with 3442 when the table is empty.
KV_METHOD(SidebandData, getTagData) {
    SidebandDataData* sideband = dataOf(instData);
    if (!sideband->table) {
        kova::raiseError(errSlot, self, SidebandDataClass, 3442);
        return -1;
    }
    kvSidebandTag* tag = selected(sideband);
    auto* buffer = reinterpret_cast<unsigned char*>(kvArgAt(args, 1));
    const auto most = static_cast<int32_t>(kvArgAt(args, 0));
    if (!tag || !buffer || most <= 0) return 0;
    const uint32_t items = std::min(uint32_t(most), uint32_t(tag->count));
    std::memcpy(buffer, kvSidebandTagData(tag), size_t(itemBytes(uint32_t(tag->type), items)));
    return 0;
}

KV_METHOD(SidebandData, getTagFlags) {
    (void)errSlot, (void)self, (void)args;
    const kvSidebandTag* tag = selected(dataOf(instData));
    return tag ? tag->flags : 0;
}

KV_METHOD(SidebandData, getTagID) {
    (void)errSlot, (void)self, (void)args;
    const kvSidebandTag* tag = selected(dataOf(instData));
    return tag ? tag->id : 0;
}

KV_METHOD(SidebandData, getTagTablePointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->table);
}

KV_METHOD(SidebandData, getTagType) {
    (void)errSlot, (void)self, (void)args;
    const kvSidebandTag* tag = selected(dataOf(instData));
    return tag ? tag->type : 0;
}

// (owner, name, id, flags): the property's own; the table starts empty.
KV_METHOD(SidebandData, objInit) {
    kvSendParentMethNA(errSlot, SidebandDataClass, self, "objInit", args);
    *dataOf(instData) = SidebandDataData{nullptr, 0, -1};
    return 0;
}

KV_METHOD(SidebandData, objTerm) {
    (void)instData;
    kvSendMeth(errSlot, self, "resetContents");
    return kvSendParentMethNA(errSlot, SidebandDataClass, self, "objTerm", args);
}

// Frees every record and the table; answers 1 when there was no table.
KV_METHOD(SidebandData, resetContents) {
    (void)errSlot, (void)self, (void)args;
    SidebandDataData* sideband = dataOf(instData);
    const bool hadTable = sideband->table != nullptr;
    for (int32_t i = 0; hadTable && i < sideband->count; ++i)
        kova::platform::release(sideband->table[i]);
    kova::platform::release(sideband->table);
    *sideband = SidebandDataData{nullptr, 0, -1};
    return hadTable ? 0 : 1;
}

// (index): selects a record and answers the index; an index outside the
// table fires "OnRangeCheck" with it, raises 3441 and answers -1.
KV_METHOD(SidebandData, setCurIndex) {
    SidebandDataData* sideband = dataOf(instData);
    const auto index = static_cast<int32_t>(kvArgAt(args, 0));
    if (index >= 0 && index < sideband->count) {
        sideband->curIndex = index;
        return index;
    }
    return refuseIndex(errSlot, self, index, false);
}

KV_REGISTER(SidebandData) {
    if (!kvRegisterClass("Property")) return nullptr;
    SidebandDataClass = kvAddClass("SidebandData", "Property", sizeof(SidebandDataData), 0,
                                   sidebandDataMethods.get(), sidebandDataClassMethods.get());
    return SidebandDataClass;
}
