// The enumerated string property: entries of a string and a cookie, the
// enumeration protocol that user interfaces use (the count standing for "no
// entry"), its notifications, bad indexes and the saved record.
#include "tests/PropertyFixture.hpp"

namespace kova::test {
namespace {

class StrEnumPropTest : public PropertyTest {
  protected:
    kvObject formats() {
        kvObject e = property("StrEnumProp", "Format", 0);
        kvSendMeth(&error, e, "addEntry", "TIFF", 4);
        kvSendMeth(&error, e, "addEntry", "BMP", 7);
        kvSendMeth(&error, e, "addEntry", "PCX", 9);
        return e;
    }
};

TEST_F(StrEnumPropTest, ANewEnumerationIsEmptyAndChoosesNothing) {
    kvObject e = property("StrEnumProp", "Format", 1);
    EXPECT_EQ(kvSendMeth(&error, e, "isPersistant"), 1);
    EXPECT_EQ(kvSendMeth(&error, e, "getCount"), 0);
    EXPECT_EQ(kvSendMeth(&error, e, "getCurIndex"), 0);
    EXPECT_EQ(kvSendMeth(&error, e, "getCurrentEnumString"), 0);
    EXPECT_EQ(kvSendMeth(&error, e, "fetchData"), 0);
    EXPECT_EQ(kvSendMeth(&error, e, "setCurIndex", 0), 0);
    EXPECT_ERROR(kvSendMeth(&error, e, "storeData", 4), -1, 3518);
    EXPECT_ERROR(kvSendMeth(&error, e, "storeFromString", "TIFF"), -1, 3518);
}

TEST_F(StrEnumPropTest, ChoosingAnEntryAnnouncesItsCookieAndIndex) {
    kvObject e = formats();
    kvObject stored = listen(e, "OnStore");
    kvObject moved = listen(e, "OnIndexChange");
    EXPECT_EQ(kvSendMeth(&error, e, "getCurIndex"), 3);
    EXPECT_EQ(kvSendMeth(&error, e, "setCurIndex", 1), 0);
    EXPECT_EQ(argOf(stored, 2), 7);
    EXPECT_EQ(argOf(moved, 2), 1);
    EXPECT_EQ(kvSendMeth(&error, e, "fetchData"), 7);
    EXPECT_EQ(text(kvSendMeth(&error, e, "getCurrentEnumString")), "BMP");
    EXPECT_EQ(text(kvSendMeth(&error, e, "fetchAsString")), "BMP");

    EXPECT_EQ(kvSendMeth(&error, e, "storeData", 9), 0);
    EXPECT_EQ(kvSendMeth(&error, e, "getCurIndex"), 2);
    EXPECT_EQ(kvSendMeth(&error, e, "storeFromString", "TIFF"), 0);
    EXPECT_EQ(kvSendMeth(&error, e, "asInt"), 4);
    EXPECT_EQ(calls(moved), 3);

    EXPECT_ERROR(kvSendMeth(&error, e, "storeData", 5), -1, 3485);
    EXPECT_ERROR(kvSendMeth(&error, e, "storeFromString", "tiff"), -1, 3464);
    EXPECT_ERROR(kvSendMeth(&error, e, "storeFromString", nullptr), -1, 3464);
    EXPECT_EQ(text(kvSendMeth(&error, e, "getCurrentEnumString")), "TIFF");
    EXPECT_EQ(calls(moved), 3);
}

TEST_F(StrEnumPropTest, TheCountIsTheNoEntryPositionAndOtherBadIndexesAreRefused) {
    kvObject e = formats();
    kvSendMeth(&error, e, "setCurIndex", 2);
    EXPECT_EQ(kvSendMeth(&error, e, "setCurIndex", 3), 0); // changes nothing
    EXPECT_EQ(kvSendMeth(&error, e, "getCurIndex"), 2);
    for (const char* read : {"getIndexedString", "getIndexedEnumString", "getIndexedCookie"}) {
        EXPECT_EQ(kvSendMeth(&error, e, read, 3), 0) << read;
        for (kvArg bad : {kvArg{-1}, kvArg{4}})
            EXPECT_ERROR(kvSendMeth(&error, e, read, bad), 0, 3441);
    }
    for (kvArg bad : {kvArg{-1}, kvArg{4}}) {
        EXPECT_EQ(kvSendMeth(&error, e, "setCurIndex", bad), -1);
        EXPECT_NE(errorMessage(error).find("Cannot set current index to " + std::to_string(bad) +
                                           " on property Format."),
                  std::string::npos)
            << errorMessage(error);
        EXPECT_EQ(takeError(), 3517);
    }
    EXPECT_EQ(text(kvSendMeth(&error, e, "getIndexedString", 0)), "TIFF");
    EXPECT_EQ(text(kvSendMeth(&error, e, "getIndexedEnumString", 1)), "BMP");
    EXPECT_EQ(kvSendMeth(&error, e, "getIndexedCookie", 2), 9);
}

TEST_F(StrEnumPropTest, ChangingTheTableIsAnnouncedAndASubscribersErrorStaysWithIt) {
    kvObject e = formats();
    kvSendMeth(&error, e, "setCurIndex", 0);
    kvObject table = listen(e, "OnTableChange");
    kvObject meddler = listener(0, 2, e);
    kvAddNotification(&error, e, "OnIndexChange", meddler, "onEvent", 0);
    EXPECT_EQ(kvSendMeth(&error, e, "addEntry", "JPEG", 2), 3);
    EXPECT_ERROR(kvSendMeth(&error, e, "addEntry", nullptr, 2), -1, 3448);
    EXPECT_EQ(kvSendMeth(&error, e, "resetContents"), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(calls(table), 2);
    EXPECT_EQ(calls(meddler), 1);
    EXPECT_EQ(argOf(meddler, 2), 0);
    EXPECT_EQ(kvSendMeth(&error, e, "getCount"), 0);
    EXPECT_EQ(kvSendMeth(&error, e, "getCurIndex"), 0);
}

TEST_F(StrEnumPropTest, AFailedAllocationLeavesTheEntriesAsTheyWere) {
    kvObject e = formats();
    EXPECT_EQ(failEachAllocation([&] { return kvSendMeth(&error, e, "addEntry", "GIF", 1) == 3; },
                                 [&] {
                                     EXPECT_EQ(takeError(), 3429);
                                     EXPECT_EQ(kvSendMeth(&error, e, "getCount"), 3);
                                 }),
              2);
}

TEST_F(StrEnumPropTest, ItsRecordHoldsTheEntriesAndTheChoice) {
    kvObject e = formats();
    kvSendMeth(&error, e, "setCurIndex", 1);
    const Bytes saved = record(0, le16(3) + le16(1) + le32(4) + le32(4) + bytes("TIFF") + le32(7) +
                                      le32(3) + bytes("BMP") + le32(9) + le32(3) + bytes("PCX"));
    EXPECT_EQ(recordOf(e), saved);

    kvObject copy = property("StrEnumProp", "Copy", 0);
    EXPECT_EQ(readInto(copy, saved), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "getCount"), 3);
    EXPECT_EQ(text(kvSendMeth(&error, copy, "getCurrentEnumString")), "BMP");
    EXPECT_EQ(kvSendMeth(&error, copy, "getIndexedCookie", 2), 9);

    EXPECT_ERROR(readInto(copy, record(0, le16(2) + le16(0) + le32(1) + le32(1) + bytes("A"))), -1,
                 3432);
    EXPECT_ERROR(readInto(copy, record(0, le16(1) + le16(1) + le32(1) + le32(0))), -1, 3443);
    EXPECT_ERROR(readInto(copy, record(0, le16(0) + le16(0xFFFE))), -1, 3443);
    EXPECT_EQ(kvSendMeth(&error, copy, "getCount"), 3);
    EXPECT_EQ(readInto(copy, record(0, le16(0) + le16(0xFFFF))), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "getCount"), 0);
}

} // namespace
} // namespace kova::test
