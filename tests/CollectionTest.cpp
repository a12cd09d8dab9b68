// Collections of object handles: the cursor and its limits, traversals that
// survive changes made by the objects they visit, ownership, ordering by
// priority, and allocation failures that must leave a collection as it was.
#include "tests/KernelFixture.hpp"

#include <vector>

namespace kova::test {
namespace {

class CollectionTest : public KernelTest {
  protected:
    kvObject collection() { return make("Collection", 0); }
    kvObject shape(int32_t sides) { return make("Shape", sides); }

    static kvResult send(kvObject obj, const char* method) {
        return kvSendMeth(nullptr, obj, method);
    }
    static std::vector<kvObject> contents(kvObject c) {
        std::vector<kvObject> objects;
        for (kvResult i = 0; i < send(c, "getCount"); ++i)
            objects.push_back(reinterpret_cast<kvObject>(kvSendMeth(nullptr, c, "getObject", i)));
        return objects;
    }
};

TEST_F(CollectionTest, AnEmptyCollectionAnswersWithoutACursor) {
    kvObject c = collection();
    EXPECT_EQ(send(c, "getCount"), 0);
    EXPECT_EQ(send(c, "getIndex"), -1);
    EXPECT_EQ(send(c, "isEmpty"), 1);
    EXPECT_EQ(send(c, "ownsContents"), 0);

    EXPECT_ERROR(kvSendMeth(&error, c, "getObject", 0), 0, 3442);
    EXPECT_ERROR(kvSendMeth(&error, c, "getFirst"), 0, 3442);
    EXPECT_ERROR(kvSendMeth(&error, c, "setIndex", 0), -1, 3466);
    EXPECT_ERROR(kvSendMeth(&error, c, "reset"), -1, 0);
    EXPECT_ERROR(kvSendMeth(&error, c, "getNext"), 0, 3466);

    // Walks over nothing are not failures.
    EXPECT_EQ(kvSendMeth(&error, c, "methToAll", "getSides"), 1);
    EXPECT_EQ(kvSendMeth(&error, c, "methToAllQuery", "getSides"), 0);
    EXPECT_ERROR(kvSendMeth(&error, c, "iterate", c, "getCount"), 1, 0);
}

TEST_F(CollectionTest, IndexesOutsideTheCollectionAreRefusedAndTheCursorStays) {
    kvObject c = collection();
    kvObject a = shape(1), b = shape(2), d = shape(3);
    for (kvObject s : {a, b, d})
        EXPECT_EQ(kvSendMeth(&error, c, "addObject", s), 1);
    EXPECT_EQ(send(c, "getIndex"), 0);
    EXPECT_EQ(kvSendMeth(&error, c, "setIndex", 1), 1);

    for (kvArg bad : {kvArg{-1}, kvArg{3}, kvArg{4}, kvArg{65536}}) {
        EXPECT_ERROR(kvSendMeth(&error, c, "setIndex", bad), -1, 3441);
        EXPECT_ERROR(kvSendMeth(&error, c, "getObject", bad), 0, 3441);
    }
    EXPECT_EQ(send(c, "getIndex"), 1);

    kvSendMeth(&error, c, "setIndex", 7);
    EXPECT_EQ(errorMessage(error), "The specified index 7 is an invalid index. This error was "
                                   "encountered in an object whose name is: (null).");
    clearErrors(error);

    // Insertion accepts 0..count; the cursor keeps its number.
    kvObject e = shape(4);
    EXPECT_ERROR(kvSendMeth(&error, c, "insertObject", e, 4), 0, 3441);
    EXPECT_ERROR(kvSendMeth(&error, c, "insertObject", e, -1), 0, 3441);
    EXPECT_ERROR(kvSendMeth(&error, c, "insertObject", nullptr, 0), 0, 3443);
    EXPECT_EQ(kvSendMeth(&error, c, "insertObject", e, 3), 1);
    EXPECT_EQ(kvSendMeth(&error, c, "insertObject", e, 0), 1);
    EXPECT_EQ(contents(c), (std::vector<kvObject>{e, a, b, d, e}));
    EXPECT_EQ(send(c, "getIndex"), 1);
}

TEST_F(CollectionTest, DeletingObjectsKeepsTheCursorInsideTheCollection) {
    kvObject c = collection();
    kvObject a = shape(1), b = shape(2), d = shape(3);
    for (kvObject s : {a, b, d, a})
        kvSendMeth(&error, c, "addObject", s);
    kvSendMeth(&error, c, "setIndex", 3);

    // The first slot holding the handle goes; the cursor, past the end now,
    // moves to the new last object.
    EXPECT_EQ(kvSendMeth(&error, c, "deleteObject", a), 1);
    EXPECT_EQ(contents(c), (std::vector<kvObject>{b, d, a}));
    EXPECT_EQ(send(c, "getIndex"), 2);

    EXPECT_ERROR(kvSendMeth(&error, c, "deleteObject", shape(9)), 0, 3456);

    EXPECT_EQ(kvSendMeth(&error, c, "deleteObject", b), 1);
    EXPECT_EQ(send(c, "getIndex"), 1);
    EXPECT_EQ(kvSendMeth(&error, c, "deleteObject", a), 1);
    EXPECT_EQ(kvSendMeth(&error, c, "deleteObject", d), 1);
    EXPECT_EQ(send(c, "getIndex"), -1);
    EXPECT_EQ(send(c, "isEmpty"), 1);
    EXPECT_ERROR(kvSendMeth(&error, c, "getObject", 0), 0, 3442);

    // The removed objects live on.
    EXPECT_EQ(send(b, "getSides"), 2);
}

TEST_F(CollectionTest, GetNextEndsATraversalThroughTheErrorSlot) {
    kvObject c = collection();
    kvObject a = shape(1), b = shape(2);
    kvSendMeth(&error, c, "addObject", a);
    kvSendMeth(&error, c, "addObject", b);

    // An error already waiting in the slot does not end the traversal.
    kvSendMeth(&error, c, "deleteObject", c);
    ASSERT_EQ(errorCode(error), 3456);
    EXPECT_EQ(kvSendMeth(&error, c, "reset"), 0);
    EXPECT_EQ(kvSendMeth(&error, c, "getCurrent"), reinterpret_cast<kvResult>(a));
    EXPECT_EQ(kvSendMeth(&error, c, "getNext"), reinterpret_cast<kvResult>(b));
    EXPECT_EQ(errorCode(error), 3456);
    EXPECT_ERROR(kvSendMeth(&error, c, "getNext"), 0, 3441);
    EXPECT_EQ(send(c, "getIndex"), 1);

    // Without a slot the end is still seen.
    EXPECT_EQ(kvSendMeth(nullptr, c, "getNext"), 0);
}

TEST_F(CollectionTest, NullMembersAreHeldAndEndWalks) {
    kvObject c = collection();
    kvObject first = listener(), last = listener(7);
    EXPECT_EQ(kvSendMeth(&error, c, "addObject", first), 1);
    EXPECT_EQ(kvSendMeth(&error, c, "addObject", nullptr), 1);
    EXPECT_EQ(kvSendMeth(&error, c, "addObject", last), 1);
    EXPECT_ERROR(kvSendMeth(&error, c, "getObject", 1), 0, 0);

    // A walk goes on while the object it stands on is non-null.
    EXPECT_EQ(kvSendMeth(&error, c, "methToAll", "onEvent", c), 1);
    EXPECT_EQ(kvSendMeth(&error, c, "methToAllQuery", "onEvent"), 0);
    kvObject receiver = listener();
    EXPECT_EQ(kvSendMeth(&error, c, "iterate", receiver, "onEvent"), 1);
    EXPECT_EQ(calls(first), 2);
    EXPECT_EQ(calls(last), 0);
    EXPECT_EQ(calls(receiver), 1);
    EXPECT_EQ(takeError(), 0);

    EXPECT_EQ(kvSendMeth(&error, c, "deleteObject", nullptr), 1);
    EXPECT_EQ(contents(c), (std::vector<kvObject>{first, last}));
}

TEST_F(CollectionTest, WalksSendToEveryObjectAndQueriesStopAtTheFirstAnswer) {
    kvObject c = collection();
    std::vector<kvObject> listeners;
    for (kvArg answer : {0, 0, 7, 0}) {
        listeners.push_back(listener(answer));
        kvSendMeth(&error, c, "addObject", listeners.back());
    }
    // The walk's trailing arguments reach each object unchanged.
    EXPECT_EQ(kvSendMeth(&error, c, "methToAll", "onEvent", 11, 22), 1);
    for (kvObject l : listeners) {
        EXPECT_EQ(calls(l), 1);
        EXPECT_EQ(argOf(l, 1), 22);
    }
    EXPECT_EQ(kvSendMeth(&error, c, "methToAllQuery", "onEvent"),
              reinterpret_cast<kvResult>(listeners[2]));
    EXPECT_EQ(calls(listeners[2]), 2);
    EXPECT_EQ(calls(listeners[3]), 1);

    // iterate: the receiver gets each object first, then the arguments.
    kvObject receiver = listener();
    EXPECT_EQ(kvSendMeth(&error, c, "iterate", receiver, "onEvent", 5), 1);
    EXPECT_EQ(calls(receiver), 4);
    EXPECT_EQ(argOf(receiver, 0), reinterpret_cast<kvArg>(listeners[3]));
    EXPECT_EQ(argOf(receiver, 1), 5);
    EXPECT_ERROR(kvSendMeth(&error, c, "iterate", nullptr, "onEvent"), 0, 3443);

    // A long argument list is copied whole.
    EXPECT_EQ(kvSendMeth(&error, c, "iterate", receiver, "onEvent", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10,
                         11, 12, 13, 14, 15, 16, 17, 18),
              1);
    EXPECT_EQ(argOf(receiver, 2), 2);
}

TEST_F(CollectionTest, AWalkVisitsEveryObjectOnceWhileVisitsRemoveOrDeleteTheirReceivers) {
    // Each object removes itself from the collection as it is visited.
    kvObject c = collection();
    std::vector<kvObject> shapes{shape(1), shape(2), shape(3), shape(4)};
    for (kvObject s : shapes)
        kvSendMeth(&error, c, "addObject", s);
    EXPECT_EQ(kvSendMeth(&error, c, "iterate", c, "deleteObject"), 1);
    EXPECT_EQ(send(c, "getCount"), 0);
    EXPECT_EQ(takeError(), 0);

    // Each object deletes itself ("objTerm" ends an object); the collection
    // keeps the stale handles, but the walk never touches an object after its
    // visit. A skipped object would leak, one visited twice would be used
    // after it was freed: the sanitizers see either.
    kvObject d = collection();
    for (int sides = 0; sides < 4; ++sides)
        kvSendMeth(&error, d, "addObject", kvNewObject(&error, "Shape", sides));
    EXPECT_ERROR(kvSendMeth(&error, d, "methToAll", "objTerm"), 1, 0);
}

TEST_F(CollectionTest, ACollectionDeletesItsObjectsOnlyWhenItOwnsThem) {
    kvObject keeper = kvNewObject(&error, "Collection", 0);
    kvObject survivor = shape(6);
    kvSendMeth(&error, keeper, "addObject", survivor);
    kvDelObject(&error, keeper);
    EXPECT_EQ(send(survivor, "getSides"), 6);

    // The owner deletes all of them, null members and repeated handles
    // notwithstanding (the sanitizers see a leak or a double deletion).
    kvObject owner = kvNewObject(&error, "Collection", 1);
    EXPECT_EQ(send(owner, "ownsContents"), 1);
    kvSendMeth(&error, owner, "addObject", kvNewObject(&error, "Shape", 1));
    kvSendMeth(&error, owner, "addObject", nullptr);
    kvSendMeth(&error, owner, "addObject", kvNewObject(&error, "Shape", 2));
    kvDelObject(&error, owner);
    EXPECT_EQ(takeError(), 0);

    // Also while memory runs out.
    owner = kvNewObject(&error, "Collection", 1);
    for (int sides = 0; sides < 3; ++sides)
        kvSendMeth(&error, owner, "addObject", kvNewObject(&error, "Shape", sides));
    kvDebugFailAllocAfter(0);
    kvDelObject(nullptr, owner);
}

TEST_F(CollectionTest, ACollectionHoldsAtMost32767Objects) {
    kvObject c = collection();
    kvObject s = shape(1);
    for (int i = 0; i < INT16_MAX; ++i)
        ASSERT_EQ(kvSendMeth(nullptr, c, "addObject", s), 1) << i;
    EXPECT_EQ(send(c, "getCount"), INT16_MAX);

    EXPECT_ERROR(kvSendMeth(&error, c, "addObject", s), 0, 3429);
    EXPECT_ERROR(kvSendMeth(&error, c, "insertObject", s, 0), 0, 3429);
    EXPECT_EQ(send(c, "getCount"), INT16_MAX);

    EXPECT_EQ(kvSendMeth(&error, c, "setIndex", INT16_MAX - 1), INT16_MAX - 1);
    EXPECT_ERROR(kvSendMeth(&error, c, "setIndex", INT16_MAX), -1, 3441);
    EXPECT_EQ(kvSendMeth(&error, c, "deleteObject", s), 1);
    EXPECT_EQ(send(c, "getIndex"), INT16_MAX - 2);
    EXPECT_EQ(kvSendMeth(&error, c, "insertObject", s, INT16_MAX - 1), 1);
    EXPECT_EQ(send(c, "getCount"), INT16_MAX);
}

TEST_F(CollectionTest, AFailedAllocationLeavesTheCollectionAsItWas) {
    kvObject c = collection();
    kvObject a = shape(1), b = shape(2), d = shape(3);
    kvSendMeth(&error, c, "addObject", a);
    kvSendMeth(&error, c, "addObject", b);
    kvSendMeth(&error, c, "setIndex", 1);
    const std::vector<kvObject> before{a, b};
    // Each method's first send fills the kernel's method cache, which
    // allocates: send them once before memory runs out.
    kvSendMeth(&error, c, "insertObject", nullptr, 0);
    kvSendMeth(&error, c, "deleteObject", d);
    clearErrors(error);

    kvDebugFailAllocOnce(0);
    EXPECT_ERROR(kvSendMeth(&error, c, "addObject", d), 0, 3429);
    kvDebugFailAllocOnce(0);
    EXPECT_ERROR(kvSendMeth(&error, c, "insertObject", d, 0), 0, 3429);
    kvDebugFailAllocOnce(0);
    EXPECT_ERROR(kvSendMeth(&error, c, "deleteObject", a), 0, 3429);
    EXPECT_EQ(contents(c), before);
    EXPECT_EQ(send(c, "getIndex"), 1);

    // The last object leaves without an allocation.
    kvSendMeth(&error, c, "deleteObject", a);
    kvDebugFailAllocAfter(0);
    EXPECT_EQ(kvSendMeth(nullptr, c, "deleteObject", b), 1);
    kvDebugFailAllocAfter(-1);
    EXPECT_EQ(send(c, "getIndex"), -1);
}

class PriQueueTest : public CollectionTest {};

TEST_F(PriQueueTest, HigherPrioritiesComeFirstAndEqualOnesKeepTheirOrder) {
    kvObject q = make("PriQueue", "getSides", 0);
    kvObject five = shape(5), nine = shape(9), alsoFive = shape(5), low = shape(-3);
    EXPECT_EQ(kvSendMeth(&error, q, "addObject", five), 1);
    EXPECT_EQ(kvSendMeth(&error, q, "addObject", nine), 0); // placed at 0
    EXPECT_EQ(send(q, "getIndex"), 0);
    EXPECT_EQ(kvSendMeth(&error, q, "addObject", alsoFive), 1); // appended
    EXPECT_EQ(kvSendMeth(&error, q, "insertObject", low), 1);
    kvObject seven = shape(7);
    EXPECT_EQ(kvSendMeth(&error, q, "insertObject", seven), 1); // placed at 1
    EXPECT_EQ(send(q, "getIndex"), 1);
    EXPECT_EQ(contents(q), (std::vector<kvObject>{nine, seven, five, alsoFive, low}));
    EXPECT_EQ(takeError(), 0);

    kvObject eight = shape(8);
    kvDebugFailAllocOnce(0);
    EXPECT_ERROR(kvSendMeth(&error, q, "addObject", eight), 0, 3429);
    EXPECT_EQ(contents(q), (std::vector<kvObject>{nine, seven, five, alsoFive, low}));
    EXPECT_EQ(send(q, "getIndex"), 1);
}

TEST_F(PriQueueTest, ObjectsWithoutThePriorityMethodAreRefused) {
    kvObject q = make("PriQueue", nullptr, 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(send(q, "getPriMethod")), "getPriority");
    EXPECT_ERROR(kvSendMeth(&error, q, "addObject", shape(1)), 0, 3446);
    EXPECT_ERROR(kvSendMeth(&error, q, "insertObject", nullptr), 0, 3446);
    EXPECT_EQ(send(q, "getCount"), 0);
    EXPECT_TRUE(shownMessages().empty());

    const char* longName = "aPriorityMethodNameOfFortyCharactersLong";
    kvObject cut = make("PriQueue", longName, 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(send(cut, "getPriMethod"))),
              std::string(longName, 31));
}

} // namespace
} // namespace kova::test
