// Property: the base class of every named value a component exposes. It
// holds the owner, an owned copy of the name and a 16-bit id; it turns every
// store, fetch, rename and deletion into a notification so that others can
// watch or veto; and it writes the base saved record (the header flags word,
// then the raw data of the object's own class) that subclasses build on.
#include "errors/Raise.hpp"
#include "kova/kernel.h"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

using kova::props::objectArg;

#pragma pack(push, 1)
struct PropertyData {
    kvObject owner; // the object holding this property; not owned
    char* name;     // heap copy owned by the property, null until set
    uint16_t id;    // identifier chosen by the owner
};
#pragma pack(pop)

kvClass PropertyClass = nullptr;

// Answer of an "OnWillChangeName" subscriber that refuses the new name.
constexpr kvResult renameVetoed = 200;
// Header flags that only the kernel sets; creators and saved records never
// change them.
constexpr uint16_t kernelFlags =
    KV_OBJ_HAS_EVENTS | KV_OBJ_SILENT | KV_OBJ_NEEDS_CLEANING | KV_OBJ_FORWARDER;

KV_METHOD_TABLE(propertyMethods,                   //
                kova::method("asInt", 0),          //
                kova::method("asString", 0),       //
                kova::method("fetchData", 0),      //
                kova::method("getId", 0),          //
                kova::method("getName", 0),        //
                kova::method("getOwner", 0),       //
                kova::method("isPersistant", 0),   //
                kova::method("objInit", 4),        //
                kova::method("objTerm", 0),        //
                kova::method("readFromStream", 1), //
                kova::method("setId", 1),          //
                kova::method("setName", 1),        //
                kova::method("setOwner", 1),       //
                kova::method("storeData", 1),      //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(propertyClassMethods);

PropertyData* dataOf(void* instData) {
    return static_cast<PropertyData*>(instData);
}

// Replaces the stored name through utilSetString (same answer). The name
// field of packed instance data need not be aligned, so the string goes
// through an aligned slot of our own.
char* replaceName(PropertyData* property, const char* text) {
    char* slot = property->name;
    char* answer = utilSetString(&slot, text);
    property->name = slot;
    return answer;
}

// The slice of the data block that belongs to the object's most derived
// class: what the base saved record holds.
unsigned char* ownSlice(kvObject self) {
    return static_cast<unsigned char*>(self->data) + self->ownDataOffset;
}

uint16_t ownSliceSize(kvObject self) {
    return self->cls->instanceSize;
}

// Copies a slice read from a stream into the object. A Property's own slice
// holds its owner and the address of its name, which mean nothing when read
// back (and would be freed as if they were ours), so for a plain Property only
// the id is taken from the record; a subclass's slice is taken whole.
void takeSlice(kvObject self, const unsigned char* record) {
    if (self->cls != PropertyClass) {
        std::memcpy(ownSlice(self), record, ownSliceSize(self));
        return;
    }
    std::memcpy(ownSlice(self) + offsetof(PropertyData, id), record + offsetof(PropertyData, id),
                sizeof(PropertyData::id));
}

// Reads the record's flags word into the header. The kernel's own bits stay
// as they are: a saved record must not switch notification handling on or
// off, nor make the object a forwarder.
void readFlags(kvObject* errSlot, kvObject self, kvObject stream) {
    uint16_t flags = self->flags;
    kvSendMeth(errSlot, stream, "ReadInt16", &flags);
    self->flags = static_cast<uint16_t>((self->flags & kernelFlags) | (flags & ~kernelFlags));
}

} // namespace

// Pure: every value class answers its value as an integer.
KV_METHOD(Property, asInt) {
    (void)instData, (void)args;
    return kova::raiseError(errSlot, self, PropertyClass, 3430);
}

// Pure: every value class answers its value as text.
KV_METHOD(Property, asString) {
    (void)instData, (void)args;
    return kova::raiseError(errSlot, self, PropertyClass, 3430);
}

// Announces a fetch, so a subscriber can refresh the value before a subclass
// answers it.
KV_METHOD(Property, fetchData) {
    (void)instData, (void)args;
    kvFireNotification(errSlot, self, "OnFetch");
    return 0;
}

KV_METHOD(Property, getId) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->id;
}

// The name stays owned by the property; null when it never got one.
KV_METHOD(Property, getName) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->name);
}

KV_METHOD(Property, getOwner) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->owner);
}

KV_METHOD(Property, isPersistant) {
    (void)errSlot, (void)instData, (void)args;
    return self->flags & KV_OBJ_PERSISTENT;
}

// (owner, name, id, flags, then the parent's arguments). The fields are set
// by sends to the object itself so that a subclass's overrides take part;
// the flags are added to the header, less the kernel's own bits.
KV_METHOD(Property, objInit) {
    const kvArgs rest = kvArgsAfter(args, 4);
    kvSendParentMethNA(errSlot, PropertyClass, self, "objInit", &rest);
    std::memset(instData, 0, sizeof(PropertyData));
    kvSendMeth(errSlot, self, "setOwner", kvArgAt(args, 0));
    kvSendMeth(errSlot, self, "setName", kvArgAt(args, 1));
    kvSendMeth(errSlot, self, "setId", kvArgAt(args, 2));
    self->flags |= static_cast<uint16_t>(kvArgAt(args, 3)) & ~kernelFlags;
    return 0;
}

// "OnTerm" goes out while the name still exists, so subscribers can ask for it.
KV_METHOD(Property, objTerm) {
    kvFireNotification(errSlot, self, "OnTerm");
    replaceName(dataOf(instData), nullptr);
    return kvSendParentMethNA(errSlot, PropertyClass, self, "objTerm", args);
}

// (stream): reads the base record into the object: the flags word, then the
// own class's slice, which is taken only when it arrives whole. A null
// stream reads nothing; no memory for the slice raises 3429; a record that
// the read of saved data under way may no longer take, 3443.
KV_METHOD(Property, readFromStream) {
    (void)instData;
    const kvObject stream = objectArg(args, 0);
    if (!stream) return 0;
    const uint16_t size = ownSliceSize(self);
    const kova::props::SavedReadScope scope;
    if (!kova::props::takeFromSavedRead(sizeof(uint16_t) + size))
        return kova::raiseError(errSlot, self, PropertyClass, 3443);
    readFlags(errSlot, self, stream);
    if (size == 0) return 0;
    auto* record = static_cast<unsigned char*>(kova::platform::allocate(size));
    if (!record) return kova::raiseError(errSlot, self, PropertyClass, 3429);
    if (kvSendMeth(errSlot, stream, "Read", record, int32_t{size}) == size) takeSlice(self, record);
    kova::platform::release(record);
    return 0;
}

// (id): keeps the low 16 bits.
KV_METHOD(Property, setId) {
    (void)errSlot, (void)self;
    dataOf(instData)->id = static_cast<uint16_t>(kvArgAt(args, 0));
    return 0;
}

// (new name): asks the subscribers of "OnWillChangeName" first (an answer of
// 200 keeps the old name), ignores a null or empty name, and otherwise keeps a
// copy. When the copy cannot be made the old name stays and 3429 is raised.
KV_METHOD(Property, setName) {
    PropertyData* property = dataOf(instData);
    const auto* newName = reinterpret_cast<const char*>(kvArgAt(args, 0));
    if (kvFireNotificationTerm(errSlot, self, "OnWillChangeName", property->name, newName) ==
        renameVetoed)
        return 0;
    if (!newName || !*newName) return 0;
    if (!replaceName(property, newName)) kova::raiseError(errSlot, self, PropertyClass, 3429);
    return 0;
}

KV_METHOD(Property, setOwner) {
    (void)errSlot, (void)self;
    dataOf(instData)->owner = objectArg(args, 0);
    return 0;
}

// (value): the base class keeps nothing; it announces the value that a
// subclass has just stored.
KV_METHOD(Property, storeData) {
    (void)instData;
    kvFireNotification(errSlot, self, "OnStore", kvArgAt(args, 0));
    return 0;
}

// (stream): writes the base record: the header flags word, then the raw
// slice of the object's own class. A null stream writes nothing.
KV_METHOD(Property, writeToStream) {
    (void)instData;
    const kvObject stream = objectArg(args, 0);
    if (!stream) return 0;
    kvSendMeth(errSlot, stream, "WriteInt16", self->flags);
    const uint16_t size = ownSliceSize(self);
    if (size) kvSendMeth(errSlot, stream, "Write", ownSlice(self), int32_t{size});
    return 0;
}

KV_REGISTER(Property) {
    if (!kvRegisterClass("Object")) return nullptr;
    PropertyClass = kvAddClass("Property", "Object", sizeof(PropertyData), 0, propertyMethods.get(),
                               propertyClassMethods.get());
    return PropertyClass;
}
