// Collection: BaseCollection's primitives over one heap array of object
// handles that grows and shrinks by exactly one slot per change. Counts and
// indexes are 16-bit, so a collection holds at most 32767 objects. Every
// failing call leaves the collection as it was.
#include "errors/Raise.hpp"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

using kova::props::objectArg;

kvClass CollectionClass = nullptr;

#pragma pack(push, 1)
struct CollectionData {
    kvObject* items;       // `count` handles in order; null when the collection is empty
    int16_t index;         // the cursor: index of the current object, -1 when there is none
    int16_t count;         // objects held
    uint16_t ownsContents; // 1: the objects are deleted with the collection
};
#pragma pack(pop)

constexpr kvResult capacity = INT16_MAX;

// The collection whose objTerm is running (the innermost one, when ending a
// collection ends others it holds). Its removals cannot fail: its array is
// freed moments later, and ending an object must not stop half-way.
kvObject collectionBeingEnded = nullptr;

KV_METHOD_TABLE(collectionMethods,               //
                kova::method("addObject", 1),    //
                kova::method("deleteObject", 1), //
                kova::method("getCount", 0),     //
                kova::method("getIndex", 0),     //
                kova::method("getObject", 1),    //
                kova::method("insertObject", 2), //
                kova::method("isEmpty", 0),      //
                kova::method("objInit", 1),      //
                kova::method("objTerm", 0),      //
                kova::method("ownsContents", 0), //
                kova::method("print", 0),        //
                kova::method("setIndex", 1));
KV_EMPTY_METHOD_TABLE(collectionClassMethods);

CollectionData* dataOf(void* instData) {
    return static_cast<CollectionData*>(instData);
}

// Resizes the array to hold `slots` handles. On failure the array is as it
// was and the answer is false.
bool resize(CollectionData* c, size_t slots) {
    const size_t bytes = slots * sizeof(kvObject);
    void* block =
        c->items ? kova::platform::reallocate(c->items, bytes) : kova::platform::allocate(bytes);
    if (!block) return false;
    c->items = static_cast<kvObject*>(block);
    return true;
}

// Makes room for one more handle: 3429 when the collection is full or the
// memory cannot be had.
bool grow(kvObject* errSlot, kvObject self, CollectionData* c) {
    if (c->count < capacity && resize(c, static_cast<size_t>(c->count) + 1)) return true;
    kova::raiseError(errSlot, self, CollectionClass, 3429);
    return false;
}

// Error 3441 for an index outside the collection; the message names no object.
kvResult invalidIndex(kvObject* errSlot, kvObject self, kvArg index) {
    return kova::raiseError(errSlot, self, CollectionClass, 3441, index,
                            static_cast<const char*>(nullptr));
}

// The first slot holding `object`, or -1.
kvResult find(const CollectionData* c, kvObject object) {
    for (kvResult i = 0; i < c->count; ++i)
        if (c->items[i] == object) return i;
    return -1;
}

// Removes slot `at` and shrinks the array to fit. When the smaller array
// cannot be had, the move is undone and the answer is false, unless
// `mayKeepLargerArray`, when the larger array simply stays.
bool removeAt(CollectionData* c, kvResult at, bool mayKeepLargerArray) {
    const size_t left = static_cast<size_t>(c->count) - 1;
    const kvObject removed = c->items[at];
    const size_t after = left - static_cast<size_t>(at);
    std::memmove(c->items + at, c->items + at + 1, after * sizeof(kvObject));
    if (left == 0) {
        kova::platform::release(c->items);
        c->items = nullptr;
    } else if (!resize(c, left) && !mayKeepLargerArray) {
        std::memmove(c->items + at + 1, c->items + at, after * sizeof(kvObject));
        c->items[at] = removed;
        return false;
    }
    c->count = static_cast<int16_t>(left);
    return true;
}

} // namespace

// (owns contents, ...): an empty collection without cursor; the flag is kept
// as 0 or 1.
KV_METHOD(Collection, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, CollectionClass, self, "objInit", &rest);
    CollectionData* c = dataOf(instData);
    c->items = nullptr;
    c->index = -1;
    c->count = 0;
    c->ownsContents = kvArgAt(args, 0) ? 1 : 0;
    return 0;
}

// A collection that does not own its objects lets go of them here, so that
// BaseCollection's objTerm, which deletes what is left, deletes nothing. An
// owning one lets that objTerm take its objects out one by one and delete
// them; meanwhile its removals always succeed.
KV_METHOD(Collection, objTerm) {
    CollectionData* c = dataOf(instData);
    if (!c->ownsContents) {
        kova::platform::release(c->items);
        c->items = nullptr;
        c->index = -1;
        c->count = 0;
    }
    const kvObject outer = collectionBeingEnded;
    collectionBeingEnded = self;
    const kvResult result = kvSendParentMethNA(errSlot, CollectionClass, self, "objTerm", args);
    collectionBeingEnded = outer; // `self` is gone now; only the handle is compared
    return result;
}

// (object): appends; a null object is accepted. Answers 1, or 0 with 3429.
KV_METHOD(Collection, addObject) {
    CollectionData* c = dataOf(instData);
    if (!grow(errSlot, self, c)) return 0;
    c->items[c->count++] = objectArg(args, 0);
    if (c->index < 0) c->index = 0;
    return 1;
}

// (object, index): places a non-null object at index 0..count, moving the
// ones from there up. The cursor keeps its number. Answers 1, or 0 with 3443
// (null object), 3441 (bad index) or 3429.
KV_METHOD(Collection, insertObject) {
    CollectionData* c = dataOf(instData);
    const kvObject object = objectArg(args, 0);
    const kvArg at = kvArgAt(args, 1);
    if (!object) return kova::raiseError(errSlot, self, CollectionClass, 3443);
    if (at < 0 || at > c->count) return invalidIndex(errSlot, self, at);
    if (!grow(errSlot, self, c)) return 0;
    std::memmove(c->items + at + 1, c->items + at,
                 static_cast<size_t>(c->count - at) * sizeof(kvObject));
    c->items[at] = object;
    ++c->count;
    if (c->index < 0) c->index = 0;
    return 1;
}

// (object): removes the first slot holding the object, which is not deleted.
// The cursor keeps its number while that is still inside the collection,
// else moves to the last object; -1 once the collection is empty. Answers 1,
// or 0 with 3456 (not held) or 3429 (the smaller array could not be had).
KV_METHOD(Collection, deleteObject) {
    CollectionData* c = dataOf(instData);
    const kvResult at = find(c, objectArg(args, 0));
    if (at < 0) return kova::raiseError(errSlot, self, CollectionClass, 3456);
    if (!removeAt(c, at, self == collectionBeingEnded))
        return kova::raiseError(errSlot, self, CollectionClass, 3429);
    if (c->index >= c->count) c->index = static_cast<int16_t>(c->count - 1);
    return 1;
}

// (index): moves the cursor; answers the index, or -1 with 3466 (empty) or
// 3441 (outside 0..count-1), the cursor unmoved.
KV_METHOD(Collection, setIndex) {
    CollectionData* c = dataOf(instData);
    const kvArg index = kvArgAt(args, 0);
    if (c->count <= 0) {
        kova::raiseError(errSlot, self, CollectionClass, 3466);
        return -1;
    }
    if (index < 0 || index >= c->count) {
        invalidIndex(errSlot, self, index);
        return -1;
    }
    c->index = static_cast<int16_t>(index);
    return index;
}

// (index): the object there, or 0 with 3442 (empty) or 3441 (bad index).
KV_METHOD(Collection, getObject) {
    const CollectionData* c = dataOf(instData);
    const kvArg index = kvArgAt(args, 0);
    if (!c->items) return kova::raiseError(errSlot, self, CollectionClass, 3442);
    if (index < 0 || index >= c->count) return invalidIndex(errSlot, self, index);
    return reinterpret_cast<kvResult>(c->items[index]);
}

KV_METHOD(Collection, getIndex) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->index;
}

KV_METHOD(Collection, getCount) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->count;
}

KV_METHOD(Collection, ownsContents) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->ownsContents;
}

KV_METHOD(Collection, isEmpty) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->count <= 0 ? 1 : 0;
}

// Writes the class name and then each object's own print, one per line, to
// the standard output.
KV_METHOD(Collection, print) {
    (void)args;
    const CollectionData* c = dataOf(instData);
    std::printf("(%s):\n", kvClassName(self->cls));
    for (kvResult i = 0; i < c->count; ++i) {
        std::fputc('\t', stdout);
        if (c->items[i]) kvSendMeth(errSlot, c->items[i], "print");
        std::fputc('\n', stdout);
    }
    return 0;
}

KV_REGISTER(Collection) {
    if (!kvRegisterClass("BaseCollection")) return nullptr;
    CollectionClass = kvAddClass("Collection", "BaseCollection", sizeof(CollectionData), 0,
                                 collectionMethods.get(), collectionClassMethods.get());
    return CollectionClass;
}
