// BaseCollection: the protocol of every ordered collection of object handles
// with a cursor, and the traversals built on it. The storage primitives
// (addObject, getObject, setIndex, ...) are pure here; a subclass such as
// Collection supplies them. Every traversal reaches them by send, so a
// subclass's overrides take part.
#include "errors/Raise.hpp"
#include "platform/Platform.hpp"
#include "properties/PrivateSlot.hpp"

namespace {

kvClass BaseCollectionClass = nullptr;

KV_METHOD_TABLE(baseCollectionMethods,             //
                kova::method("addObject", 1),      //
                kova::method("deleteObject", 1),   //
                kova::method("getCount", 0),       //
                kova::method("getCurrent", 0),     //
                kova::method("getFirst", 0),       //
                kova::method("getIndex", 0),       //
                kova::method("getNext", 0),        //
                kova::method("getObject", 1),      //
                kova::method("insertObject", 1),   //
                kova::method("isEmpty", 0),        //
                kova::method("iterate", 2),        //
                kova::method("methToAll", 1),      //
                kova::method("methToAllQuery", 1), //
                kova::method("objTerm", 0),        //
                kova::method("ownsContents", 0),   //
                kova::method("reset", 0),          //
                kova::method("setIndex", 1));
KV_EMPTY_METHOD_TABLE(baseCollectionClassMethods);

const char* argString(const kvArgs* args, size_t index) {
    return reinterpret_cast<const char*>(kvArgAt(args, index));
}

// A primitive that the subclass did not supply: error 3431, answer 0.
kvResult pure(kvObject* errSlot, kvObject self, const char* method) {
    return kova::raiseError(errSlot, self, BaseCollectionClass, 3431, kvClassName(self->cls),
                            method);
}

kvObject objectAt(kvObject self, kvResult index) {
    kova::PrivateSlot quiet;
    return reinterpret_cast<kvObject>(kvSendMeth(quiet.get(), self, "getObject", index));
}

kvResult countOf(kvObject self) {
    kova::PrivateSlot quiet;
    return kvSendMeth(quiet.get(), self, "getCount");
}

// Where `wanted` lies now that a visit may have added or removed objects:
// looked for where it was expected, then one place lower (the visit removed
// its own receiver), then anywhere. -1 when the visit removed it as well.
kvResult locate(kvObject self, kvObject wanted, kvResult expected) {
    const kvResult count = countOf(self);
    auto holds = [&](kvResult index) {
        return index >= 0 && index < count && objectAt(self, index) == wanted;
    };
    if (holds(expected)) return expected;
    if (holds(expected - 1)) return expected - 1;
    for (kvResult index = 0; index < count; ++index)
        if (objectAt(self, index) == wanted) return index;
    return -1;
}

// Visits the objects in index order until `visit` answers true, and answers
// the object at which it stopped, or null. The cursor stands on the next
// object while a visit runs, as getNext leaves it. A null member ends the
// walk, as the end of the collection does: the walk goes on only while the
// object it stands on is non-null. The walk keeps its own position and
// finds the next object again after each visit, so a visit may remove its
// receiver (or add objects) without an object being skipped or seen twice;
// when a visit removes the next object too, the walk goes on with whatever
// now lies at that object's place. The walk's own end, and the errors of an
// empty collection, are not news for the caller and are not reported.
template <typename Visit> kvObject walk(kvObject self, Visit visit) {
    kova::PrivateSlot quiet;
    kvSendMeth(quiet.get(), self, "reset");
    kvResult position = kvSendMeth(quiet.get(), self, "getIndex");
    kvObject current = objectAt(self, position);
    for (;;) {
        quiet.clear();
        const kvResult nextPosition = position + 1;
        kvSendMeth(quiet.get(), self, "setIndex", nextPosition);
        const bool hasNext = !quiet.holdsError();
        const kvObject next = hasNext ? objectAt(self, nextPosition) : nullptr;
        if (!current) return nullptr;
        if (visit(current)) return current;
        if (!hasNext) return nullptr;
        position = locate(self, next, nextPosition);
        if (position < 0) {
            position = nextPosition;
            if (position >= countOf(self)) return nullptr;
        }
        kvSendMeth(quiet.get(), self, "setIndex", position);
        current = objectAt(self, position);
    }
}

// The slots of a send made to a receiver for each object: the object, then
// the caller's trailing arguments. Short lists live on the stack.
class LeadingSlotList {
  public:
    explicit LeadingSlotList(const kvArgs& rest) {
        const size_t count = rest.count + 1;
        slots = count <= std::size(local)
                    ? local
                    : static_cast<kvArg*>(kova::platform::allocate(count * sizeof(kvArg)));
        if (!slots) return;
        for (size_t i = 0; i < rest.count; ++i)
            slots[i + 1] = rest.slot[i];
        list = {slots, count};
    }
    LeadingSlotList(const LeadingSlotList&) = delete;
    LeadingSlotList& operator=(const LeadingSlotList&) = delete;
    ~LeadingSlotList() {
        if (slots != local) kova::platform::release(slots);
    }

    bool valid() const { return slots != nullptr; }
    const kvArgs* with(kvObject first) {
        slots[0] = reinterpret_cast<kvArg>(first);
        return &list;
    }

  private:
    kvArg local[16];
    kvArg* slots = nullptr;
    kvArgs list{nullptr, 0};
};

// Deletes every object the collection still holds: each is taken out of the
// collection first and deleted after. Should a subclass refuse to let go of
// one, the rest are deleted where they lie and the walk stops, so that no
// object is deleted twice and the loop ends.
void deleteContents(kvObject* errSlot, kvObject self) {
    kova::PrivateSlot quiet;
    kvSendMeth(quiet.get(), self, "reset");
    kvResult count = countOf(self);
    while (count > 0) {
        const kvObject first = objectAt(self, 0);
        quiet.clear();
        if (!kvSendMeth(quiet.get(), self, "deleteObject", first)) {
            for (kvResult index = 0; index < count; ++index)
                kvDelObject(errSlot, objectAt(self, index));
            return;
        }
        kvDelObject(errSlot, first);
        const kvResult left = countOf(self);
        if (left >= count) return; // a collection that does not shrink would loop for ever
        count = left;
    }
}

} // namespace

KV_METHOD(BaseCollection, addObject) {
    (void)instData, (void)args;
    return pure(errSlot, self, "addObject");
}

KV_METHOD(BaseCollection, deleteObject) {
    (void)instData, (void)args;
    return pure(errSlot, self, "deleteObject");
}

KV_METHOD(BaseCollection, getCount) {
    (void)instData, (void)args;
    return pure(errSlot, self, "getCount");
}

KV_METHOD(BaseCollection, getIndex) {
    (void)instData, (void)args;
    return pure(errSlot, self, "getIndex");
}

KV_METHOD(BaseCollection, getObject) {
    (void)instData, (void)args;
    return pure(errSlot, self, "getObject");
}

KV_METHOD(BaseCollection, insertObject) {
    (void)instData, (void)args;
    return pure(errSlot, self, "insertObject");
}

KV_METHOD(BaseCollection, isEmpty) {
    (void)instData, (void)args;
    return pure(errSlot, self, "isEmpty");
}

KV_METHOD(BaseCollection, ownsContents) {
    (void)instData, (void)args;
    return pure(errSlot, self, "ownsContents");
}

KV_METHOD(BaseCollection, setIndex) {
    (void)instData, (void)args;
    return pure(errSlot, self, "setIndex");
}

// The object under the cursor, or 0 (with the collection's error) when there
// is none.
KV_METHOD(BaseCollection, getCurrent) {
    (void)instData, (void)args;
    return kvSendMeth(errSlot, self, "getObject", kvSendMeth(errSlot, self, "getIndex"));
}

KV_METHOD(BaseCollection, getFirst) {
    (void)instData, (void)args;
    return kvSendMeth(errSlot, self, "getObject", 0);
}

// Moves the cursor on by one and answers the object there. Past the last
// object the cursor stays, the collection's error (3441) is left in the slot
// and the answer is 0: that error is how a traversal learns it has ended. An
// error already in the slot before the call does not end the traversal.
KV_METHOD(BaseCollection, getNext) {
    (void)instData, (void)args;
    kova::PrivateSlot own;
    kvObject* slot = errSlot ? errSlot : own.get();
    const kvObject before = *slot;
    const kvResult index = kvSendMeth(slot, self, "getIndex");
    kvSendMeth(slot, self, "setIndex", index + 1);
    if (*slot != before) return 0;
    return kvSendMeth(slot, self, "getCurrent");
}

// Puts the cursor on the first object, if there is one; answers the index.
KV_METHOD(BaseCollection, reset) {
    (void)instData, (void)args;
    if (!kvSendMeth(errSlot, self, "isEmpty")) kvSendMeth(errSlot, self, "setIndex", 0);
    return kvSendMeth(errSlot, self, "getIndex");
}

// (method name, arguments...): sends the method with the arguments to every
// object. The errors of those sends reach the caller. Answers 1.
KV_METHOD(BaseCollection, methToAll) {
    (void)instData;
    const char* method = argString(args, 0);
    if (!method) return kova::raiseError(errSlot, self, BaseCollectionClass, 3443);
    const kvArgs rest = kvArgsAfter(args, 1);
    walk(self, [&](kvObject object) {
        kvSendMethNA(errSlot, object, method, &rest);
        return false;
    });
    return 1;
}

// (method name, arguments...): like methToAll, but stops at the first object
// that answers non-zero and answers that object; 0 when none does.
KV_METHOD(BaseCollection, methToAllQuery) {
    (void)instData;
    const char* method = argString(args, 0);
    if (!method) return kova::raiseError(errSlot, self, BaseCollectionClass, 3443);
    const kvArgs rest = kvArgsAfter(args, 1);
    const kvObject found = walk(
        self, [&](kvObject object) { return kvSendMethNA(errSlot, object, method, &rest) != 0; });
    return reinterpret_cast<kvResult>(found);
}

// (receiver, method name, arguments...): for every object sends the method to
// the receiver with the object first, then the arguments. Answers 1; 0 with
// error 3443 for a null receiver or method name, 3429 when a long argument
// list cannot be copied.
KV_METHOD(BaseCollection, iterate) {
    (void)instData;
    const auto receiver = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const char* method = argString(args, 1);
    if (!receiver || !method) return kova::raiseError(errSlot, self, BaseCollectionClass, 3443);
    const kvArgs rest = kvArgsAfter(args, 2);
    LeadingSlotList slots(rest);
    if (!slots.valid()) return kova::raiseError(errSlot, self, BaseCollectionClass, 3429);
    walk(self, [&](kvObject object) {
        kvSendMethNA(errSlot, receiver, method, slots.with(object));
        return false;
    });
    return 1;
}

// Deletes the objects the collection still holds, then ends the object. A
// collection that does not own its objects has let go of them before this
// runs (Collection's objTerm), so only owned objects are deleted here.
KV_METHOD(BaseCollection, objTerm) {
    (void)instData;
    deleteContents(errSlot, self);
    return kvSendParentMethNA(errSlot, BaseCollectionClass, self, "objTerm", args);
}

KV_REGISTER(BaseCollection) {
    if (!kvRegisterClass("Object")) return nullptr;
    BaseCollectionClass = kvAddClass("BaseCollection", "Object", 0, 0, baseCollectionMethods.get(),
                                     baseCollectionClassMethods.get());
    return BaseCollectionClass;
}
