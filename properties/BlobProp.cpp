// BlobProp: a property holding a block of bytes of its own (a heap copy) and
// its size. Its saved record after the flags word is the 32-bit size and the
// bytes, never the block's address, so a saved blob can be read back and a
// hostile stream cannot plant a pointer in it.
#include "properties/BlobProp.hpp"
#include "errors/Raise.hpp"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

#pragma pack(push, 1)
struct BlobPropData {
    kvBlob blob; // the owned block (null when empty) and its size
};
#pragma pack(pop)

kvClass BlobPropClass = nullptr;

KV_METHOD_TABLE(blobPropMethods,                   //
                kova::method("fetchData", 0),      //
                kova::method("getSize", 0),        //
                kova::method("objInit", 0),        //
                kova::method("objTerm", 0),        //
                kova::method("readFromStream", 1), //
                kova::method("storeData", 1),      //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(blobPropClassMethods);

BlobPropData* dataOf(void* instData) {
    return static_cast<BlobPropData*>(instData);
}

// Frees the held block and takes `data` (owned from now on) in its place.
void replaceBlock(BlobPropData* held, void* data, uint32_t size) {
    kova::platform::release(held->blob.data);
    held->blob.data = data;
    held->blob.size = data ? size : 0;
}

// A heap copy of the offered pair's bytes in `*copy`, null for an empty
// offer (no pair, no data or no bytes). False, with 3429 raised, when the
// memory cannot be had.
bool copyBlock(kvObject* errSlot, kvObject self, const kvBlob* offered, void** copy) {
    *copy = nullptr;
    if (!offered || !offered->data || offered->size == 0) return true;
    *copy = kova::platform::allocate(offered->size);
    if (!*copy) {
        kova::raiseError(errSlot, self, BlobPropClass, 3429);
        return false;
    }
    std::memcpy(*copy, offered->data, offered->size);
    return true;
}

} // namespace

// After "OnFetch", a pointer to the property's own (data, size) pair.
KV_METHOD(BlobProp, fetchData) {
    kvSendParentMethNA(errSlot, BlobPropClass, self, "fetchData", args);
    return reinterpret_cast<kvResult>(&dataOf(instData)->blob);
}

KV_METHOD(BlobProp, getSize) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->blob.size;
}

KV_METHOD(BlobProp, objInit) {
    (void)instData;
    return kvSendParentMethNA(errSlot, BlobPropClass, self, "objInit", args);
}

KV_METHOD(BlobProp, objTerm) {
    replaceBlock(dataOf(instData), nullptr, 0);
    return kvSendParentMethNA(errSlot, BlobPropClass, self, "objTerm", args);
}

// (stream): the flags word, the size and the bytes; the block is replaced
// only by a complete record, without notifications. Otherwise -1, with 3432
// or 3429 raised, and the property as it was.
KV_METHOD(BlobProp, readFromStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    uint16_t flags = 0;
    kova::props::CountedRun run;
    if (!kova::props::readFlags(errSlot, self, BlobPropClass, stream, &flags) ||
        !kova::props::readCounted(errSlot, self, BlobPropClass, stream, &run))
        return -1;
    kova::props::adoptFlags(self, flags);
    if (run.length == 0) {
        kova::platform::release(run.bytes);
        run.bytes = nullptr;
    }
    replaceBlock(dataOf(instData), run.bytes, run.length);
    return 0;
}

// (pointer to a kvBlob): keeps a copy of its bytes, or nothing when it offers
// none, and announces the store with a pointer to the property's own pair.
// Answers the new block (null when empty). Without memory for the copy the
// old block is kept, 3429 is raised and 0 answered.
KV_METHOD(BlobProp, storeData) {
    void* copy = nullptr;
    const auto* offered = kova::props::pointerArg<const kvBlob>(args, 0);
    if (!copyBlock(errSlot, self, offered, &copy)) return 0;
    BlobPropData* held = dataOf(instData);
    replaceBlock(held, copy, offered ? offered->size : 0);
    kvSendParentMeth(errSlot, BlobPropClass, self, "storeData", &held->blob);
    return reinterpret_cast<kvResult>(copy);
}

KV_METHOD(BlobProp, writeToStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const kvBlob& blob = dataOf(instData)->blob;
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeCounted(errSlot, stream, blob.data, blob.size);
    return 0;
}

KV_REGISTER(BlobProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    BlobPropClass = kvAddClass("BlobProp", "Property", sizeof(BlobPropData), 0,
                               blobPropMethods.get(), blobPropClassMethods.get());
    return BlobPropClass;
}
