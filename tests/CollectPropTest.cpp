// Property collections: unique names without regard to case, kept through
// renames; look-ups that leave the cursor alone; the saved KVST frame, byte
// for byte; reading saved and hostile frames; lifetimes and allocation
// failures that leave a collection as it was.
#include "tests/PropertyFixture.hpp"

namespace kova::test {
namespace {

Bytes label(const std::string& text) {
    return Bytes{static_cast<uint8_t>(text.size())} + bytes(text);
}

const Bytes magic{0x54, 0x53, 0x56, 0x4B};
const Bytes endMarker = label("KvStreamEnd");

class CollectPropTest : public PropertyTest {
  protected:
    // A collection that does not own its members.
    kvObject collection(uint16_t flags = 0) {
        kvObject made = make("CollectProp", 0, nullptr, "Props", 1, flags);
        EXPECT_NE(made, nullptr);
        return made;
    }
    kvObject intProp(const char* name, int32_t value = 0, uint16_t flags = 0) {
        return make("IntProp", value, nullptr, name, 3, flags);
    }
    // The codes of the errors in the slot, newest first.
    std::vector<int32_t> errorCodes() const {
        std::vector<int32_t> codes;
        for (kvObject e = error; e;
             e = reinterpret_cast<kvObject>(kvSendMeth(nullptr, e, "getNextESObj")))
            codes.push_back(errorCode(e));
        return codes;
    }
    kvResult add(kvObject props, kvObject property) {
        return kvSendMeth(&error, props, "addProperty", property);
    }
    kvObject byName(kvObject props, const char* name) {
        return reinterpret_cast<kvObject>(kvSendMeth(&error, props, "getPropByName", name));
    }
    static kvResult count(kvObject props) { return kvSendMeth(nullptr, props, "getPropCount"); }
    static kvResult cursor(kvObject props) { return kvSendMeth(nullptr, props, "getCurrentIndex"); }
};

TEST_F(CollectPropTest, NamesAreUniqueWithoutRegardToCase) {
    kvObject props = collection();
    kvObject width = intProp("Width"), shouting = intProp("WIDTH");
    EXPECT_EQ(add(props, width), 0);
    EXPECT_EQ(add(props, shouting), -1);
    EXPECT_EQ(errorMessage(error),
              "Property with name 'WIDTH' already exists under this property collection");
    clearErrors(error);
    EXPECT_EQ(count(props), 1);
    EXPECT_EQ(byName(props, "wIdTh"), width);
    // The refused property is not listened to: its renames are its own affair.
    EXPECT_EQ(shouting->events, nullptr);

    EXPECT_ERROR(add(props, nullptr), 0, 0);
    EXPECT_ERROR(add(props, intProp(nullptr)), -1, 3484);
    EXPECT_ERROR(add(props, props), -1, 3443);
    EXPECT_EQ(count(props), 1);
}

TEST_F(CollectPropTest, ARenameToANameAnotherMemberHoldsIsVetoed) {
    kvObject props = collection();
    kvObject alpha = intProp("Alpha"), beta = intProp("Beta");
    add(props, alpha);
    add(props, beta);

    kvSendMeth(&error, beta, "setName", "ALPHA");
    EXPECT_EQ(nameOf(beta), "Beta");
    EXPECT_EQ(takeError(), 3465);

    // The renamed member holds the name itself: a change of case alone is
    // vetoed too. A free name is taken.
    kvSendMeth(&error, alpha, "setName", "alpha");
    EXPECT_EQ(nameOf(alpha), "Alpha");
    EXPECT_EQ(errorMessage(error),
              "Property with name 'alpha' already exists under this property collection");
    EXPECT_EQ(takeError(), 3465);
    kvSendMeth(&error, beta, "setName", "Gamma");
    EXPECT_EQ(nameOf(beta), "Gamma");
    EXPECT_EQ(takeError(), 0);

    // Once taken out, a property is neither deleted nor held to the names.
    EXPECT_EQ(kvSendMeth(&error, props, "delProperty", beta), 1);
    EXPECT_EQ(count(props), 1);
    kvSendMeth(&error, beta, "setName", "Alpha");
    EXPECT_EQ(nameOf(beta), "Alpha");
    EXPECT_ERROR(kvSendMeth(&error, props, "delProperty", beta), 0, 3456);
}

TEST_F(CollectPropTest, LookUpsLeaveTheCursorWhereItWas) {
    kvObject props = collection();
    kvObject a = intProp("a"), b = intProp("b"), c = intProp("c");
    for (kvObject p : {a, b, c})
        add(props, p);
    kvSendMeth(&error, props, "setCurrent", 2);

    EXPECT_EQ(byName(props, "A"), a);
    EXPECT_EQ(cursor(props), 2);
    EXPECT_EQ(byName(props, "nope"), nullptr);
    EXPECT_EQ(errorMessage(error), "Could Not Find Property nope in object of class CollectProp");
    clearErrors(error);
    EXPECT_EQ(cursor(props), 2);

    // setCurrentByName is the look-up that does move the cursor.
    EXPECT_EQ(kvSendMeth(&error, props, "setCurrentByName", "B"), 1);
    EXPECT_EQ(cursor(props), 1);
    EXPECT_EQ(kvSendMeth(&error, props, "getCurrent"), reinterpret_cast<kvResult>(b));
    EXPECT_ERROR(kvSendMeth(&error, props, "setCurrentByName", ""), -1, 3497);
    EXPECT_ERROR(byName(props, nullptr), nullptr, 3497);
    EXPECT_EQ(cursor(props), 1);
}

TEST_F(CollectPropTest, ALookUpByNameAsksNoMoreMembersForTheirNamesAsTheCollectionGrows) {
    kvObject props = collection();
    constexpr int members = 2000;
    std::vector<kvObject> counted;
    for (int i = 0; i < members; ++i) {
        const std::string name = "Member" + std::to_string(i);
        counted.push_back(make("CountedName", 0, nullptr, name.c_str(), 1, 0));
        ASSERT_EQ(add(props, counted.back()), 0);
    }
    auto nameCalls = [&] {
        kvResult total = 0;
        for (kvObject member : counted)
            total += kvSendMeth(nullptr, member, "getNameCalls");
        return total;
    };
    // Adding asked each member about as often as a constant number of times.
    EXPECT_LT(nameCalls(), 10 * members);

    const kvResult before = nameCalls();
    EXPECT_EQ(byName(props, "MEMBER1999"), counted[1999]);
    EXPECT_EQ(byName(props, "member0"), counted[0]);
    EXPECT_EQ(byName(props, "Member2000"), nullptr);
    EXPECT_EQ(takeError(), 3454);
    EXPECT_LE(nameCalls() - before, 4);
}

TEST_F(CollectPropTest, LookUpsFollowInsertionsRemovalsAndRenames) {
    kvObject props = collection();
    kvObject a = intProp("a"), b = intProp("b"), c = intProp("c"), d = intProp("d");
    for (kvObject p : {a, b, c})
        add(props, p);
    auto indexOf = [&](const char* name) {
        return kvSendMeth(&error, props, "setCurrentByName", name);
    };
    EXPECT_EQ(indexOf("C"), 2);

    EXPECT_EQ(kvSendMeth(&error, props, "insertProperty", d, 0), 1);
    EXPECT_EQ(indexOf("d"), 0);
    EXPECT_EQ(indexOf("c"), 3);
    EXPECT_EQ(kvSendMeth(&error, props, "delProperty", b), 1);
    EXPECT_EQ(indexOf("c"), 2);
    EXPECT_EQ(indexOf("B"), -1);
    EXPECT_EQ(takeError(), 3454);

    // A rename is seen under the new name, and the old one is free.
    kvSendMeth(&error, a, "setName", "Alpha");
    EXPECT_EQ(indexOf("alpha"), 1);
    EXPECT_EQ(indexOf("a"), -1);
    EXPECT_EQ(takeError(), 3454);
    EXPECT_EQ(add(props, intProp("A")), 0);
    EXPECT_EQ(indexOf("a"), 3);

    // A rename that a later subscriber vetoes leaves the old name in force.
    listen(c, "OnWillChangeName", 200);
    kvSendMeth(&error, c, "setName", "Gamma");
    EXPECT_EQ(nameOf(c), "c");
    EXPECT_EQ(indexOf("c"), 2);
    EXPECT_EQ(indexOf("gamma"), -1);
    EXPECT_EQ(takeError(), 3454);
}

TEST_F(CollectPropTest, MembersPlacedBehindTheCollectionsBackAreFoundAndTheFirstMatchWins) {
    kvObject props = collection();
    kvObject first = intProp("Width"), second = intProp("Height");
    add(props, first);
    add(props, second);
    EXPECT_EQ(byName(props, "height"), second);
    const auto members = reinterpret_cast<kvObject>(kvSendMeth(&error, props, "getPropCollect"));

    // Straight into the Collection, a second "Height" before the first.
    kvObject early = intProp("HEIGHT");
    EXPECT_EQ(kvSendMeth(&error, members, "insertObject", early, 0), 1);
    EXPECT_EQ(byName(props, "Height"), early);
    kvObject late = intProp("Depth");
    EXPECT_EQ(kvSendMeth(&error, members, "addObject", late), 1);
    EXPECT_EQ(byName(props, "depth"), late);

    // Once the earlier one is gone, the later one of the name is found.
    EXPECT_EQ(kvSendMeth(&error, members, "deleteObject", early), 1);
    EXPECT_EQ(byName(props, "Height"), second);
    EXPECT_EQ(kvSendMeth(&error, members, "deleteObject", first), 1);
    EXPECT_EQ(kvSendMeth(&error, members, "insertObject", first, 2), 1);
    EXPECT_EQ(kvSendMeth(&error, props, "setCurrentByName", "width"), 2);
    EXPECT_EQ(kvSendMeth(&error, props, "setCurrentByName", "depth"), 1);
    EXPECT_EQ(takeError(), 0);
}

TEST_F(CollectPropTest, ACollectionWithoutMembersYetAnswersQuietlyOrWith3442) {
    kvObject props = collection();
    for (const char* quiet : {"getPropCollect", "getPropCount", "getCurrent", "getCurrentIndex"})
        EXPECT_EQ(kvSendMeth(&error, props, quiet), 0) << quiet;
    EXPECT_ERROR(kvSendMeth(&error, props, "delProperty", intProp("x")), 0, 0);

    EXPECT_ERROR(kvSendMeth(&error, props, "setCurrentByName", "x"), -1, 3442);
    EXPECT_ERROR(kvSendMeth(&error, props, "storeData", 1), 0, 3442);
}

TEST_F(CollectPropTest, ValuesAreStoredAndFetchedByNameOrAtTheCursor) {
    kvObject props = collection();
    kvObject width = intProp("Width"), height = intProp("Height");
    add(props, width);
    add(props, height);

    EXPECT_EQ(kvSendMeth(&error, props, "storeProperty", "width", 42), 0);
    EXPECT_EQ(kvSendMeth(&error, width, "fetchData"), 42);
    EXPECT_EQ(kvSendMeth(&error, props, "fetchProperty", "WIDTH"), 42);
    EXPECT_ERROR(kvSendMeth(&error, props, "storeProperty", "Depth", 1), 0, 3454);
    EXPECT_ERROR(kvSendMeth(&error, props, "fetchProperty", "Depth"), 0, 3454);

    kvSendMeth(&error, props, "setCurrentByName", "height");
    kvSendMeth(&error, props, "storeData", 7);
    EXPECT_EQ(kvSendMeth(&error, height, "fetchData"), 7);
    EXPECT_ERROR(kvSendMeth(&error, props, "fetchData"), 7, 0);
}

TEST_F(CollectPropTest, InsertedMembersTakeTheirPlaceAndRefusalsLeaveNoTrace) {
    kvObject props = collection();
    kvObject a = intProp("a"), b = intProp("b"), c = intProp("c");
    EXPECT_EQ(kvSendMeth(&error, props, "insertProperty", b, 0), 1);
    EXPECT_EQ(kvSendMeth(&error, props, "insertProperty", a, 0), 1);
    EXPECT_EQ(kvSendMeth(&error, props, "getProperty", 0), reinterpret_cast<kvResult>(a));

    EXPECT_ERROR(kvSendMeth(&error, props, "insertProperty", c, 5), 0, 3441);
    EXPECT_EQ(c->events, nullptr);
    EXPECT_ERROR(kvSendMeth(&error, props, "insertProperty", nullptr, 0), 0, 3443);
    EXPECT_ERROR(kvSendMeth(&error, props, "insertProperty", intProp("B"), 0), 0, 3465);
    EXPECT_ERROR(kvSendMeth(&error, props, "insertProperty", intProp(""), 0), -1, 3484);
    EXPECT_EQ(count(props), 2);

    // A bad index on the very first insertion leaves no collection behind.
    kvObject fresh = collection();
    EXPECT_ERROR(kvSendMeth(&error, fresh, "insertProperty", c, 1), 0, 3441);
    EXPECT_EQ(kvSendMeth(&error, fresh, "getPropCollect"), 0);
}

TEST_F(CollectPropTest, AMemberRenamedDuringAWalkIsVisitedOnce) {
    kvObject props = collection();
    kvObject a = intProp("a"), b = intProp("b"), c = intProp("c");
    for (kvObject p : {a, b, c})
        add(props, p);
    kvSendMeth(&error, props, "setCurrent", 1);
    const auto members = reinterpret_cast<kvObject>(kvSendMeth(&error, props, "getPropCollect"));

    // The first rename goes through; the next two are vetoed, once each.
    EXPECT_EQ(kvSendMeth(&error, members, "methToAll", "setName", "Same"), 1);
    EXPECT_EQ(nameOf(a), "Same");
    EXPECT_EQ(nameOf(b), "b");
    EXPECT_EQ(nameOf(c), "c");
    EXPECT_EQ(errorCodes(), (std::vector<int32_t>{3465, 3465}));
    clearErrors(error);
}

TEST_F(CollectPropTest, MembersOutliveACollectionThatDoesNotOwnThem) {
    kvObject props = kvNewObject(&error, "CollectProp", 0, nullptr, "Props", 1, 0);
    kvObject a = intProp("a"), b = intProp("b");
    add(props, a);
    add(props, b);
    kvDelObject(&error, props);
    // No collection is asked any more: the rename is not vetoed.
    kvSendMeth(&error, b, "setName", "a");
    EXPECT_EQ(nameOf(b), "a");
    EXPECT_EQ(takeError(), 0);

    // An owning collection deletes its members (the leak checker sees it).
    kvObject owner = kvNewObject(&error, "CollectProp", 1, nullptr, "Owner", 1, 0);
    add(owner, kvNewObject(&error, "IntProp", 1, nullptr, "x", 1, 0));
    add(owner, kvNewObject(&error, "StrProp", "text", nullptr, "y", 2, 0));
    kvDelObject(&error, owner);
}

TEST_F(CollectPropTest, DeletingACollectionNestedThirtyThousandDeepEndsEveryLevel) {
    // Each collection owns the next; the innermost one is watched.
    kvObject outer = kvNewObject(&error, "CollectProp", 1, nullptr, "Level0", 0, 0);
    kvObject level = outer;
    for (int depth = 1; depth < 30000; ++depth) {
        const std::string name = "Level" + std::to_string(depth);
        kvObject inner = kvNewObject(&error, "CollectProp", 1, nullptr, name.c_str(), 0, 0);
        ASSERT_EQ(add(level, inner), 0);
        level = inner;
    }
    kvObject watcher = listen(level, "OnTerm");
    kvDelObject(&error, outer);
    // Every level has ended (the leak checker sees any that did not) by the
    // time the outermost deletion returns.
    EXPECT_EQ(calls(watcher), 1);
    EXPECT_EQ(takeError(), 0);
}

TEST_F(CollectPropTest, AForwardingMemberIsListenedToItself) {
    kvObject props = collection();
    kvObject a = intProp("a"), b = intProp("b");
    add(props, a);
    b->flags |= KV_OBJ_FORWARDER;
    EXPECT_EQ(add(props, b), 0);
    EXPECT_TRUE(b->flags & KV_OBJ_FORWARDER);
    b->flags &= static_cast<uint16_t>(~KV_OBJ_FORWARDER);
    kvSendMeth(&error, b, "setName", "A");
    EXPECT_EQ(nameOf(b), "b");
    EXPECT_EQ(takeError(), 3465);
    EXPECT_EQ(kvSendMeth(&error, props, "delProperty", b), 1);
    EXPECT_EQ(b->events, nullptr);
}

TEST_F(CollectPropTest, AFailedAllocationLeavesTheCollectionAsItWas) {
    kvObject props = collection();
    kvObject first = intProp("first"), second = intProp("second"), third = intProp("third");
    failEachAllocation([&] { return add(props, first) == 0; },
                       [&] {
                           EXPECT_EQ(kvSendMeth(nullptr, props, "getPropCollect"), 0);
                           EXPECT_EQ(first->events, nullptr);
                           clearErrors(error);
                       });
    failEachAllocation([&] { return add(props, second) == 0; },
                       [&] {
                           EXPECT_EQ(count(props), 1);
                           EXPECT_EQ(second->events, nullptr);
                           clearErrors(error);
                       });
    failEachAllocation([&] { return kvSendMeth(&error, props, "insertProperty", third, 0) == 1; },
                       [&] {
                           EXPECT_EQ(count(props), 2);
                           EXPECT_EQ(third->events, nullptr);
                           clearErrors(error);
                       });
    failEachAllocation([&] { return kvSendMeth(&error, props, "delProperty", first) == 1; },
                       [&] {
                           EXPECT_EQ(count(props), 3);
                           kvSendMeth(&error, first, "setName", "SECOND");
                           EXPECT_EQ(nameOf(first), "first") << "still listened to";
                           clearErrors(error);
                       });
    EXPECT_EQ(count(props), 2);
    EXPECT_EQ(first->events, nullptr);
}

TEST_F(CollectPropTest, AnEmptyPersistentCollectionIsSavedAs16Bytes) {
    EXPECT_EQ(recordOf(collection(KV_OBJ_PERSISTENT)), magic + endMarker);

    // Emptied again, it saves the same way.
    kvObject emptied = collection(KV_OBJ_PERSISTENT);
    kvObject gone = intProp("gone", 1, KV_OBJ_PERSISTENT);
    add(emptied, gone);
    kvSendMeth(&error, emptied, "delProperty", gone);
    EXPECT_EQ(recordOf(emptied), magic + endMarker);

    // A collection that is not persistent writes nothing at all.
    kvObject transient = collection();
    add(transient, intProp("kept", 1, KV_OBJ_PERSISTENT));
    EXPECT_EQ(recordOf(transient), Bytes{});
}

TEST_F(CollectPropTest, PersistentMembersAreSavedByteForByteWithAZeroIdField) {
    kvObject props = collection(KV_OBJ_PERSISTENT);
    add(props, intProp("Width", 5, KV_OBJ_PERSISTENT));
    add(props, intProp("Scratch", 9, 0));
    add(props, make("StrProp", "abc", nullptr, "Title", 4, KV_OBJ_PERSISTENT));
    add(props, make("BoolProp", nullptr, "On", 5, KV_OBJ_PERSISTENT | 0x8));

    // A member's flags word shows the persistent bit and the kernel's "has
    // notifications" bit: the collection listens to every member.
    const uint16_t memberFlags = KV_OBJ_PERSISTENT | KV_OBJ_HAS_EVENTS;
    const Bytes expected = magic + label("IntProp") + label("Width") + le16(0) + le16(memberFlags) +
                           le32(5) + label("StrProp") + label("Title") + le16(0) +
                           le16(memberFlags) + le32(3) + bytes("abc") + label("BoolProp") +
                           label("On") + le16(0) + le16(memberFlags | 0x8) + bytes("1") + endMarker;
    EXPECT_EQ(recordOf(props), expected);
    // The id field comes from "getID", which no property answers.
    EXPECT_EQ(errorCodes(), (std::vector<int32_t>{3427, 3427, 3427}));
    EXPECT_EQ(errorMessage(error), "An unimplemented method getID was sent to class BoolProp");
    clearErrors(error);
}

TEST_F(CollectPropTest, ANameLongerThanItsLengthByteIsSavedCut) {
    kvObject props = collection(KV_OBJ_PERSISTENT);
    const std::string longName(300, 'n');
    add(props, intProp(longName.c_str(), 1, KV_OBJ_PERSISTENT));
    const Bytes frame = recordOf(props);
    const Bytes expectedStart = magic + label("IntProp") + label(std::string(255, 'n'));
    ASSERT_GT(frame.size(), expectedStart.size());
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + static_cast<long>(expectedStart.size())),
              expectedStart);
    clearErrors(error); // the id field's 3427
}

TEST_F(CollectPropTest, ReadingASavedCollectionRestoresNoMembers) {
    kvObject source = collection(KV_OBJ_PERSISTENT);
    add(source, intProp("Width", 5, KV_OBJ_PERSISTENT));
    kvObject frame = streamWith(recordOf(source));
    clearErrors(error);

    // Reading stops at the first entry whose class name is not the marker.
    kvObject target = collection();
    EXPECT_EQ(kvSendMeth(&error, target, "readFromStream", frame), 0);
    EXPECT_EQ(count(target), 0);
    EXPECT_EQ(kvSendMeth(nullptr, frame, "getPos"), 4 + 1 + 7);
    EXPECT_EQ(takeError(), 0);

    // An empty frame reads to its end without complaint.
    kvObject empty = streamWith(magic + endMarker);
    EXPECT_ERROR(kvSendMeth(&error, target, "readFromStream", empty), 0, 0);

    // Without the magic, four bytes are read and nothing else happens.
    kvObject other = streamWith(bytes("KVSTxxxx"));
    kvSendMeth(&error, target, "readFromStream", other);
    EXPECT_EQ(kvSendMeth(nullptr, other, "getPos"), 4);
    kvSendMeth(&error, target, "readFromStream", streamWith(bytes("KV")));
    kvSendMeth(&error, target, "readFromStream", streamWith());
}

TEST_F(CollectPropTest, AnEntryLabelledWithTheMarkerIsReadByTheMemberOfItsName) {
    kvObject props = collection();
    kvObject width = intProp("Width", 5);
    add(props, width);
    const Bytes entry = endMarker + label("WIDTH") + le16(0) + le16(KV_OBJ_PERSISTENT) + le32(99);
    kvObject frame = streamWith(magic + entry + entry + endMarker);
    EXPECT_EQ(kvSendMeth(&error, props, "readFromStream", frame), 0);
    EXPECT_EQ(kvSendMeth(nullptr, width, "fetchData"), 99);
    EXPECT_EQ(takeError(), 0);

    // A name no member has would need an object of class "KvStreamEnd".
    kvSendMeth(&error, props, "readFromStream",
               streamWith(magic + endMarker + label("Depth") + le16(0) + le16(1) + le32(1)));
    EXPECT_EQ(takeError(), 3443);
    EXPECT_EQ(count(props), 1);
}

TEST_F(CollectPropTest, HostileFramesEndWithAClearError) {
    kvObject props = collection();
    add(props, intProp("Width", 5));
    struct Case {
        const char* what;
        Bytes frame;
        int32_t code;
    };
    const Case cases[] = {
        {"class name cut short", magic + Bytes{11} + bytes("KvStream"), 3432},
        {"no class name", magic, 3432},
        {"name cut short", magic + endMarker + Bytes{9} + bytes("Wid"), 3432},
        {"id cut short", magic + endMarker + label("Width") + Bytes{0}, 3432},
        {"class-name length of 128", magic + Bytes{128} + Bytes(128, 'A'), 3443},
        {"class-name length of 255", magic + Bytes{255} + Bytes(255, 'A'), 3443},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(kvSendMeth(&error, props, "readFromStream", streamWith(c.frame)), 0) << c.what;
        EXPECT_EQ(takeError(), c.code) << c.what;
    }
    EXPECT_ERROR(kvSendMeth(&error, props, "readFromStream", nullptr), 0, 3443);
    EXPECT_EQ(count(props), 1);
    EXPECT_EQ(kvSendMeth(nullptr, byName(props, "Width"), "fetchData"), 5);
}

} // namespace
} // namespace kova::test
