// CollectProp: a property that holds named properties in a Collection. It is
// how a component keeps its properties: it finds them by name without regard
// to case, keeps their names unique (it vetoes a member's rename to a name
// another member holds) and saves them to a stream in the KVST frame:
//
//   "KVST" as a 32-bit little-endian 0x4B565354, then for each persistent
//   member: class-name length (1 byte) and class name, name length (1 byte)
//   and name, a 16-bit id field, the member's own record; then the end
//   marker, written like a class name: 11, "KvStreamEnd".
//
// Look-ups by name go through a name index (NameIndex.hpp) kept beside the
// Collection, so that adding a member and finding one by name cost the same
// whatever the number of members; without memory for the index the members
// are walked in order, with the same answers.
#include "errors/Raise.hpp"
#include "properties/NameIndex.hpp"
#include "properties/PrivateSlot.hpp"
#include "properties/PropertySupport.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

using kova::props::isBlank;
using kova::props::objectArg;
using kova::props::textArg;

kvClass CollectPropClass = nullptr;

#pragma pack(push, 1)
struct CollectPropData {
    kvObject collection;  // the Collection of members, made at the first addition; null before
    int32_t ownsContents; // 1: the members are deleted with the collection
};
#pragma pack(pop)

constexpr uint32_t streamMagic = 0x4B565354; // "KVST" read as a big-endian number
constexpr char endMarker[] = "KvStreamEnd";
constexpr const char* renameEvent = "OnWillChangeName";
constexpr kvResult renameVeto = 200;
constexpr size_t classNameBufferSize = 128; // the length byte is signed: at most 127
constexpr size_t nameBufferSize = 256;
constexpr size_t longestSavedName = 255;
constexpr int nestingLimit = 64; // collections saved inside collections
// A frame is written with one entry per persistent member, and a collection
// holds at most 32767 members: a frame read with more entries than that is
// not one that was saved, and reading stops there (3443).
constexpr int mostEntries = 32767;

KV_METHOD_TABLE(collectPropMethods,                  //
                kova::method("OnWillChangeName", 4), //
                kova::method("addProperty", 1),      //
                kova::method("delProperty", 1),      //
                kova::method("fetchData", 0),        //
                kova::method("fetchProperty", 1),    //
                kova::method("getCurrent", 0),       //
                kova::method("getCurrentIndex", 0),  //
                kova::method("getPropByName", 1),    //
                kova::method("getPropCollect", 0),   //
                kova::method("getPropCount", 0),     //
                kova::method("getProperty", 1),      //
                kova::method("insertProperty", 2),   //
                kova::method("objInit", 1),          //
                kova::method("objTerm", 0),          //
                kova::method("readFromStream", 1),   //
                kova::method("setCurrent", 1),       //
                kova::method("setCurrentByName", 1), //
                kova::method("storeData", 1),        //
                kova::method("storeProperty", 2),    //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(collectPropClassMethods);

CollectPropData* dataOf(void* instData) {
    return static_cast<CollectPropData*>(instData);
}

const char* nameOf(kvObject* errSlot, kvObject member) {
    return reinterpret_cast<const char*>(kvSendMeth(errSlot, member, "getName"));
}

kvObject memberAt(kvObject* errSlot, kvObject collection, kvResult index) {
    return reinterpret_cast<kvObject>(kvSendMeth(errSlot, collection, "getObject", index));
}

// The member of that name, found through getPropByName (so that an override
// takes part) without leaving the "not found" error behind.
kvObject lookUp(kvObject self, const char* name) {
    kova::PrivateSlot quiet;
    return reinterpret_cast<kvObject>(kvSendMeth(quiet.get(), self, "getPropByName", name));
}

// Runs `change` on the member's own notification lists: a forwarder's flag
// is lifted meanwhile, so that the subscription is made or removed on the
// member itself and not on the object it forwards to.
template <typename Change> kvResult onMemberItself(kvObject member, Change change) {
    const bool forwarder = member->flags & KV_OBJ_FORWARDER;
    member->flags = static_cast<uint16_t>(member->flags & ~KV_OBJ_FORWARDER);
    const kvResult result = change();
    if (forwarder) member->flags = static_cast<uint16_t>(member->flags | KV_OBJ_FORWARDER);
    return result;
}

// Asks the member to tell this collection before it changes its name.
// Answers false (with the kernel's error) when the subscription failed.
bool subscribe(kvObject* errSlot, kvObject self, kvObject member) {
    return onMemberItself(member, [&] {
               return kvAddNotification(errSlot, member, renameEvent, self, renameEvent, 0);
           }) >= 0;
}

void unsubscribe(kvObject self, kvObject member) {
    onMemberItself(member, [&] {
        return kvDeleteNotification(nullptr, member, renameEvent, self, renameEvent);
    });
}

// Makes the Collection at the first addition. Answers false, with 3429 when
// nothing else was reported, when it cannot be had.
bool ensureCollection(kvObject* errSlot, kvObject self, CollectPropData* data) {
    if (data->collection) return true;
    kova::PrivateSlot own;
    kvObject* slot = errSlot ? errSlot : own.get();
    const kvObject before = *slot;
    data->collection = kvNewObject(slot, "Collection", data->ownsContents);
    if (data->collection) return true;
    if (*slot == before) kova::raiseError(slot, self, CollectPropClass, 3429);
    return false;
}

// Deletes the Collection, members with it when it owns them, and its index.
// The index goes last: a member's "OnTerm" subscriber may still look up
// names while the Collection is being deleted.
void deleteCollection(kvObject* errSlot, kvObject self, CollectPropData* data) {
    kvDelObject(errSlot, data->collection);
    data->collection = nullptr;
    kova::props::NameIndex::drop(self);
}

enum class Admission { Placed, BadName, Duplicate, Failed };

// The steps that addProperty and insertProperty share: the member must have
// a name that no member holds; the collection is made if there is none; this
// collection subscribes to the member's renames; then `place` puts the member
// into the collection (answering false on failure) at `position` (-1 for the
// end), and the name index learns of it. A failure undoes what was
// done, so the collection is left as it was. The subscription is made before
// the placing because taking it back cannot fail, while taking a placed
// member out of a collection can.
template <typename Place>
Admission admit(kvObject* errSlot, kvObject self, CollectPropData* data, kvObject property,
                int32_t position, Place place) {
    if (property == self) {
        kova::raiseError(errSlot, self, CollectPropClass, 3443);
        return Admission::Failed;
    }
    const char* name = nameOf(errSlot, property);
    if (isBlank(name)) {
        kova::raiseError(errSlot, self, CollectPropClass, 3484);
        return Admission::BadName;
    }
    const bool made = !data->collection;
    if (!ensureCollection(errSlot, self, data)) return Admission::Failed;
    auto undoMaking = [&] {
        if (made) deleteCollection(nullptr, self, data);
    };
    if (!made && lookUp(self, name)) {
        kova::raiseError(errSlot, self, CollectPropClass, 3465, name);
        return Admission::Duplicate;
    }
    if (!subscribe(errSlot, self, property)) {
        undoMaking();
        return Admission::Failed;
    }
    if (!place(data->collection)) {
        unsubscribe(self, property);
        undoMaking();
        return Admission::Failed;
    }
    if (auto* index = kova::props::NameIndex::existing(self)) index->placed(property, position);
    return Admission::Placed;
}

// ---- the saved form ----

int writeDepth = 0; // collections being written, one inside another
int readDepth = 0;  // collections being read, one inside another

// Counts one level of nesting for as long as it lives.
class NestingLevel {
  public:
    explicit NestingLevel(int& depth) : depth(depth) { ++depth; }
    NestingLevel(const NestingLevel&) = delete;
    NestingLevel& operator=(const NestingLevel&) = delete;
    ~NestingLevel() { --depth; }

  private:
    int& depth;
};

void writeBytes(kvObject* errSlot, kvObject stream, const void* bytes, size_t count) {
    if (count) kvSendMeth(errSlot, stream, "Write", bytes, count);
}

// A length byte and that many characters, without terminator.
void writeLabel(kvObject* errSlot, kvObject stream, const char* text, size_t length) {
    const auto lengthByte = static_cast<uint8_t>(length);
    writeBytes(errSlot, stream, &lengthByte, 1);
    writeBytes(errSlot, stream, text, length);
}

// One member's entry: class name, name, id field, then its own record.
void writeMember(kvObject* errSlot, kvObject stream, kvObject member) {
    const char* className = kvClassName(member->cls);
    writeLabel(errSlot, stream, className, std::strlen(className));
    // A name longer than its length byte can tell is cut to 255 characters,
    // so that the stream stays readable.
    const char* name = nameOf(errSlot, member);
    writeLabel(errSlot, stream, name ? name : "",
               name ? std::min(std::strlen(name), longestSavedName) : 0);
    // The id field is filled from "getID", which no property answers (theirs
    // is "getId"): the kernel reports 3427 and answers 0, so every saved
    // collection carries 0 there. Saved data in use has it that way, and
    // readers take nothing from the field, so it is written as it always was.
    const kvResult id = kvSendMeth(errSlot, member, "getID");
    kvSendMeth(errSlot, stream, "WriteInt16", static_cast<int16_t>(id));
    kvSendMeth(errSlot, member, "writeToStream", stream);
}

// Reads the collection frame from outside data, trusting none of it: every
// length is checked against its buffer before a byte is read, a stream that
// ends early stops the reading with 3432, and one that goes on past what one
// read of saved data may take (kova::props::largestSavedRead, nested frames
// and members' records included) stops it with 3443.
class FrameReader {
  public:
    FrameReader(kvObject* errSlot, kvObject self, kvObject stream)
        : errSlot(errSlot), self(self), stream(stream) {}

    // True when exactly `count` bytes were read. Past the bound, false and
    // 3443 (raised once).
    bool tryRead(void* buffer, size_t count) {
        if (count == 0) return true;
        if (!kova::props::takeFromSavedRead(count)) {
            if (!overrun) kova::raiseError(errSlot, self, CollectPropClass, 3443);
            overrun = true;
            return false;
        }
        return kvSendMeth(errSlot, stream, "Read", buffer, count) == static_cast<kvResult>(count);
    }

    // Exactly `count` bytes, or false with 3432 (3443 past the bound).
    bool read(void* buffer, size_t count) {
        if (tryRead(buffer, count)) return true;
        if (!overrun) kova::raiseError(errSlot, self, CollectPropClass, 3432);
        return false;
    }

    // A class name: its length byte is signed, so 128 or more is refused
    // with 3443.
    bool readClassName(char (&buffer)[classNameBufferSize]) {
        uint8_t length = 0;
        if (!read(&length, 1)) return false;
        if (length >= classNameBufferSize) {
            kova::raiseError(errSlot, self, CollectPropClass, 3443);
            return false;
        }
        return readText(buffer, length);
    }

    // A name; `atEnd` is set, without an error, when the stream ends before
    // its length byte.
    bool readName(char (&buffer)[nameBufferSize], bool& atEnd) {
        uint8_t length = 0;
        atEnd = !tryRead(&length, 1);
        return !atEnd && readText(buffer, length);
    }

    bool readInt16(int16_t& value) {
        uint8_t bytes[2];
        if (!read(bytes, sizeof bytes)) return false;
        value = static_cast<int16_t>(bytes[0] | bytes[1] << 8);
        return true;
    }

  private:
    bool readText(char* buffer, size_t length) {
        if (!read(buffer, length)) return false;
        buffer[length] = '\0';
        return true;
    }

    kvObject* errSlot;
    kvObject self;
    kvObject stream;
    bool overrun = false; // the bound on the read was reached
};

bool isPropertyClass(kvClass cls) {
    for (; cls; cls = cls->parent)
        if (std::strcmp(cls->name, "Property") == 0) return true;
    return false;
}

// Makes the member that a record names and adds it. Only a property class
// already in the class table is made: a saved record must not load class
// libraries or make objects of other kinds. Answers null (3443 for a class
// that is refused) when it cannot be made or added.
kvObject makeMember(kvObject* errSlot, kvObject self, const char* className, const char* name,
                    int16_t id) {
    if (!isPropertyClass(kvFindClass(className))) {
        kova::raiseError(errSlot, self, CollectPropClass, 3443);
        return nullptr;
    }
    const kvResult owner = kvSendMeth(errSlot, self, "getOwner");
    const kvObject member = kvNewObject(errSlot, className, 0, owner, name, id, 0);
    if (!member) return nullptr;
    if (kvSendMeth(errSlot, self, "addProperty", member) != 0) {
        kvDelObject(nullptr, member);
        return nullptr;
    }
    return member;
}

// The rest of one entry, after its class name: the name and id, then the
// member (found by name, or made) reads its own record. False when reading
// must stop. A stream that ends right after an end marker has simply ended:
// that is how every saved collection ends.
bool restoreMember(kvObject* errSlot, kvObject self, kvObject stream, FrameReader& reader,
                   const char* className) {
    char name[nameBufferSize];
    int16_t id = 0;
    bool atEnd = false;
    if (!reader.readName(name, atEnd) || !reader.readInt16(id)) return false;
    kvObject member = isBlank(name) ? nullptr : lookUp(self, name);
    if (!member) member = makeMember(errSlot, self, className, name, id);
    if (!member) return false;
    kvSendMeth(errSlot, member, "readFromStream", stream);
    return true;
}

} // namespace

// (owns contents, owner, name, id, flags): no collection until the first
// addition; the flag is kept as 0 or 1.
KV_METHOD(CollectProp, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, CollectPropClass, self, "objInit", &rest);
    CollectPropData* data = dataOf(instData);
    data->collection = nullptr;
    data->ownsContents = kvArgAt(args, 0) ? 1 : 0;
    return 0;
}

// Stops listening to the members' renames (members that outlive a collection
// that does not own them must not call it back), then deletes the Collection,
// which deletes the members when it owns them.
KV_METHOD(CollectProp, objTerm) {
    CollectPropData* data = dataOf(instData);
    if (data->collection) {
        kova::PrivateSlot quiet;
        const kvResult count = kvSendMeth(quiet.get(), data->collection, "getCount");
        for (kvResult i = 0; i < count; ++i)
            if (kvObject member = memberAt(quiet.get(), data->collection, i))
                unsubscribe(self, member);
        deleteCollection(errSlot, self, data);
    }
    return kvSendParentMethNA(errSlot, CollectPropClass, self, "objTerm", args);
}

// (property): appends a member. Answers 0 when added or when the property is
// null; -1 with 3484 (no name), 3465 (a member has that name, in any case),
// 3443 (the collection itself) or the error of a failed allocation.
KV_METHOD(CollectProp, addProperty) {
    const kvObject property = objectArg(args, 0);
    if (!property) return 0;
    const Admission admission =
        admit(errSlot, self, dataOf(instData), property, -1,
              [&](kvObject c) { return kvSendMeth(errSlot, c, "addObject", property) != 0; });
    return admission == Admission::Placed ? 0 : -1;
}

// (property, index): places a member at the index. Answers 1 when placed; 0
// with 3443 (null property), 3465 (name held), 3441 (bad index) or an
// allocation's error; -1 with 3484 (no name).
KV_METHOD(CollectProp, insertProperty) {
    const kvObject property = objectArg(args, 0);
    const kvArg index = kvArgAt(args, 1);
    if (!property) return kova::raiseError(errSlot, self, CollectPropClass, 3443);
    const Admission admission = admit(
        errSlot, self, dataOf(instData), property, static_cast<int32_t>(index),
        [&](kvObject c) { return kvSendMeth(errSlot, c, "insertObject", property, index) != 0; });
    if (admission == Admission::Placed) return 1;
    return admission == Admission::BadName ? -1 : 0;
}

// (property): takes a member out without deleting it, and stops listening to
// its renames. Answers 1, or 0 (with 3456 when it is not a member).
KV_METHOD(CollectProp, delProperty) {
    const CollectPropData* data = dataOf(instData);
    const kvObject property = objectArg(args, 0);
    if (!property || !data->collection) return 0;
    if (!kvSendMeth(errSlot, data->collection, "deleteObject", property)) return 0;
    unsubscribe(self, property);
    if (auto* index = kova::props::NameIndex::existing(self)) index->removed(property);
    return 1;
}

// (name): moves the cursor to the first member of that name (any case) and
// answers its index; -1 with 3497 (no name), 3442 (no collection) or 3454
// (no such member).
KV_METHOD(CollectProp, setCurrentByName) {
    const CollectPropData* data = dataOf(instData);
    const char* name = textArg(args, 0);
    if (isBlank(name)) {
        kova::raiseError(errSlot, self, CollectPropClass, 3497);
        return -1;
    }
    if (!data->collection) {
        kova::raiseError(errSlot, self, CollectPropClass, 3442);
        return -1;
    }
    using kova::props::NameIndex;
    NameIndex* index = NameIndex::prepared(self, data->collection);
    const NameIndex::Match match =
        index ? index->find(name) : NameIndex::Match{NameIndex::Outcome::Unsure, nullptr, -1};
    if (match.outcome == NameIndex::Outcome::Found)
        return kvSendMeth(errSlot, data->collection, "setIndex", match.position);
    if (match.outcome == NameIndex::Outcome::Unsure) {
        const kvResult count = kvSendMeth(errSlot, data->collection, "getCount");
        for (kvResult i = 0; i < count; ++i) {
            const kvObject member = memberAt(errSlot, data->collection, i);
            if (!member) continue;
            const char* memberName = nameOf(errSlot, member);
            if (memberName && kova::props::namesMatch(memberName, name))
                return kvSendMeth(errSlot, data->collection, "setIndex", i);
        }
    }
    kova::raiseError(errSlot, self, CollectPropClass, 3454, name, kvClassName(self->cls));
    return -1;
}

// (name): the member of that name, any case, or 0 with 3497, 3442 or 3454.
// The cursor is where it was afterwards: a look-up made during a walk over
// the members (a rename's veto check, say) does not disturb the walk.
KV_METHOD(CollectProp, getPropByName) {
    const CollectPropData* data = dataOf(instData);
    const char* name = textArg(args, 0);
    if (isBlank(name)) return kova::raiseError(errSlot, self, CollectPropClass, 3497);
    if (!data->collection) return kova::raiseError(errSlot, self, CollectPropClass, 3442);
    const kvObject collection = data->collection;
    const kvResult remembered = kvSendMeth(errSlot, collection, "getIndex");
    if (kvSendMeth(errSlot, self, "setCurrentByName", name) < 0) return 0;
    const kvResult found = kvSendMeth(errSlot, collection, "getCurrent");
    if (remembered >= 0) {
        kova::PrivateSlot quiet;
        kvSendMeth(quiet.get(), collection, "setIndex", remembered);
    }
    return found;
}

// (name, value): stores the value into the member of that name; answers 0.
KV_METHOD(CollectProp, storeProperty) {
    (void)instData;
    const auto member =
        reinterpret_cast<kvObject>(kvSendMeth(errSlot, self, "getPropByName", kvArgAt(args, 0)));
    if (member) kvSendMeth(errSlot, member, "storeData", kvArgAt(args, 1));
    return 0;
}

// (name): the value of the member of that name, or 0.
KV_METHOD(CollectProp, fetchProperty) {
    (void)instData;
    const auto member =
        reinterpret_cast<kvObject>(kvSendMeth(errSlot, self, "getPropByName", kvArgAt(args, 0)));
    return member ? kvSendMeth(errSlot, member, "fetchData") : 0;
}

// (value): stores into the member under the cursor; its answer, or 0 (3442
// without a collection or cursor).
KV_METHOD(CollectProp, storeData) {
    const CollectPropData* data = dataOf(instData);
    if (!data->collection) return kova::raiseError(errSlot, self, CollectPropClass, 3442);
    const auto current =
        reinterpret_cast<kvObject>(kvSendMeth(errSlot, data->collection, "getCurrent"));
    return current ? kvSendMeth(errSlot, current, "storeData", kvArgAt(args, 0)) : 0;
}

// The value of the member under the cursor, or 0 (3442 without a collection
// or cursor).
KV_METHOD(CollectProp, fetchData) {
    (void)args;
    const CollectPropData* data = dataOf(instData);
    if (!data->collection) return kova::raiseError(errSlot, self, CollectPropClass, 3442);
    const auto current =
        reinterpret_cast<kvObject>(kvSendMeth(errSlot, data->collection, "getCurrent"));
    return current ? kvSendMeth(errSlot, current, "fetchData") : 0;
}

// The cursor and the members by index, as the Collection answers them; 0
// while there is no collection.
KV_METHOD(CollectProp, getCurrent) {
    (void)self, (void)args;
    const kvObject collection = dataOf(instData)->collection;
    return collection ? kvSendMeth(errSlot, collection, "getCurrent") : 0;
}

KV_METHOD(CollectProp, setCurrent) {
    (void)self;
    const kvObject collection = dataOf(instData)->collection;
    return collection ? kvSendMeth(errSlot, collection, "setIndex", kvArgAt(args, 0)) : 0;
}

KV_METHOD(CollectProp, getProperty) {
    (void)self;
    const kvObject collection = dataOf(instData)->collection;
    return collection ? kvSendMeth(errSlot, collection, "getObject", kvArgAt(args, 0)) : 0;
}

KV_METHOD(CollectProp, getCurrentIndex) {
    (void)self, (void)args;
    const kvObject collection = dataOf(instData)->collection;
    return collection ? kvSendMeth(errSlot, collection, "getIndex") : 0;
}

KV_METHOD(CollectProp, getPropCount) {
    (void)self, (void)args;
    const kvObject collection = dataOf(instData)->collection;
    return collection ? kvSendMeth(errSlot, collection, "getCount") : 0;
}

KV_METHOD(CollectProp, getPropCollect) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->collection);
}

// A member is about to be renamed (notifier, event, current name, new name):
// answers 200, which vetoes the rename, with 3465 when a member holds the new
// name in any case. The renamed member counts too: changing only the case of
// a name (Width to WIDTH) is vetoed, as a member of that name exists.
KV_METHOD(CollectProp, OnWillChangeName) {
    const char* newName = textArg(args, 3);
    if (isBlank(newName) || !dataOf(instData)->collection) return 0;
    if (!lookUp(self, newName)) {
        if (auto* index = kova::props::NameIndex::existing(self))
            index->renaming(objectArg(args, 0));
        return 0;
    }
    kova::raiseError(errSlot, self, CollectPropClass, 3465, newName);
    return renameVeto;
}

// (stream): saves the collection and its persistent members in the KVST
// frame; a collection that is not persistent writes nothing. Errors of the
// stream and of the members are left in the slot and saving carries on.
// Answers 0.
KV_METHOD(CollectProp, writeToStream) {
    const CollectPropData* data = dataOf(instData);
    const kvObject stream = objectArg(args, 0);
    if (!kvSendMeth(errSlot, self, "isPersistant")) return 0;
    if (!stream || writeDepth >= nestingLimit)
        return kova::raiseError(errSlot, self, CollectPropClass, 3443);
    const NestingLevel level(writeDepth);
    kvSendMeth(errSlot, stream, "WriteInt32", static_cast<int32_t>(streamMagic));
    kova::PrivateSlot quiet;
    const kvResult count =
        data->collection ? kvSendMeth(quiet.get(), data->collection, "getCount") : 0;
    for (kvResult i = 0; i < count; ++i) {
        const kvObject member = memberAt(quiet.get(), data->collection, i);
        if (member && kvSendMeth(errSlot, member, "isPersistant"))
            writeMember(errSlot, stream, member);
    }
    writeLabel(errSlot, stream, endMarker, sizeof endMarker - 1);
    return 0;
}

// (stream): reads the KVST frame. A stream that does not begin with the
// magic (one shorter than the magic included) is left after those bytes and
// nothing else happens. Entries are read while their class name is the end
// marker and reading stops at the first one that is not; as the writer ends
// every frame with the marker, a saved collection restores no members. This
// rule is the one saved data has always been read by and is kept as it
// stands. An entry that is read names a member by its name; the member reads
// its own record. Reading stops with 3432 when the stream ends early, 3443
// for a class-name length of 128 or more, a class that is not a property
// class already known, more than 32767 entries, or more bytes than one read
// of saved data may take. Answers 0.
KV_METHOD(CollectProp, readFromStream) {
    (void)instData;
    const kvObject stream = objectArg(args, 0);
    if (!stream || readDepth >= nestingLimit)
        return kova::raiseError(errSlot, self, CollectPropClass, 3443);
    const NestingLevel level(readDepth);
    const kova::props::SavedReadScope scope;
    FrameReader reader(errSlot, self, stream);
    uint8_t magic[4];
    if (!reader.tryRead(magic, sizeof magic)) return 0;
    const uint32_t value =
        magic[0] | magic[1] << 8 | magic[2] << 16 | static_cast<uint32_t>(magic[3]) << 24;
    if (value != streamMagic) return 0;
    char className[classNameBufferSize];
    for (int entries = 0; reader.readClassName(className); ++entries) {
        if (std::strcmp(className, endMarker) != 0) return 0;
        if (entries == mostEntries) return kova::raiseError(errSlot, self, CollectPropClass, 3443);
        if (!restoreMember(errSlot, self, stream, reader, className)) return 0;
    }
    return 0;
}

KV_REGISTER(CollectProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    CollectPropClass = kvAddClass("CollectProp", "Property", sizeof(CollectPropData), 0,
                                  collectPropMethods.get(), collectPropClassMethods.get());
    return CollectPropClass;
}
