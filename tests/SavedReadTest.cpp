// The bound on a read of saved data: records and frames read from a stream
// that never ends (the test library's Endless stream) stop with an error
// after a bounded number of bytes, and take no more memory than the bytes
// that really arrived.
#include "tests/PropertyFixture.hpp"

namespace kova::test {
namespace {

constexpr uint32_t largestSavedRead = 64u << 20; // bytes one read may take

Bytes label(const std::string& text) {
    return Bytes{static_cast<uint8_t>(text.size())} + bytes(text);
}

class SavedReadTest : public PropertyTest {
  protected:
    // A stream delivering `pattern`, then its bytes from `repeatFrom` on,
    // for ever. The pattern must outlive the stream.
    kvObject endless(const Bytes& pattern, size_t repeatFrom = 0) {
        return make("Endless", pattern.data(), pattern.size(), repeatFrom);
    }
    static kvResult delivered(kvObject stream) {
        return kvSendMeth(nullptr, stream, "getDelivered");
    }
};

TEST_F(SavedReadTest, ARecordClaimingTwoGigabytesFromAnEndlessStreamIsRefusedUnread) {
    // The indirect properties point into this test's own variables, so the
    // properties are deleted before the test ends.
    char array[8] = "kept";
    char* cell = nullptr;
    struct Case {
        kvObject property;
        Bytes header; // what comes before the claimed run
    };
    const Case cases[] = {
        {kvNewObject(&error, "StrProp", "kept", nullptr, "Text", 1, 0), le16(1)},
        {kvNewObject(&error, "BlobProp", nullptr, "Blob", 1, 0), le16(1)},
        {kvNewObject(&error, "IndStrProp", &cell, nullptr, "Cell", 1, 0), le16(1)},
        {kvNewObject(&error, "IndCArrayProp", array, 8, nullptr, "Array", 1, 0), le16(1)},
        {kvNewObject(&error, "UniProp", nullptr, "Any", 1, 0), le16(1) + le32(1)}, // a string
    };
    for (const Case& c : cases) {
        const Bytes pattern = c.header + le32(0x7FFFFFFF) + bytes("abcd");
        kvObject stream = endless(pattern, c.header.size() + 4);
        EXPECT_EQ(kvSendMeth(&error, c.property, "readFromStream", stream), -1);
        EXPECT_EQ(takeError(), 3443) << c.property->cls->name;
        EXPECT_EQ(delivered(stream), static_cast<kvResult>(c.header.size() + 4));
        EXPECT_EQ(kvSendMeth(nullptr, c.property, "isPersistant"), 0) << "the record was taken";
    }
    EXPECT_STREQ(array, "kept");
    EXPECT_EQ(cell, nullptr);
    for (const Case& c : cases)
        kvDelObject(&error, c.property);
}

TEST_F(SavedReadTest, AFrameOfEndlessEntriesStopsAfterTheMostMembersACollectionHolds) {
    kvObject props = make("CollectProp", 0, nullptr, "Props", 1, 0);
    kvObject width = property("IntProp", "Width", 0, 5);
    kvSendMeth(&error, props, "addProperty", width);
    const Bytes entry = label("KvStreamEnd") + label("Width") + le16(0) + le16(1) + le32(99);
    const Bytes pattern = bytes("TSVK") + entry;
    kvObject stream = endless(pattern, 4);

    EXPECT_EQ(kvSendMeth(&error, props, "readFromStream", stream), 0);
    EXPECT_EQ(takeError(), 3443);
    // 32767 entries and the class name of one more.
    EXPECT_EQ(delivered(stream), static_cast<kvResult>(4 + 32767 * entry.size() + 12));
    EXPECT_EQ(kvSendMeth(nullptr, width, "fetchData"), 99);
}

TEST_F(SavedReadTest, MembersRecordsCountTowardTheBoundOfTheWholeFrame) {
    kvObject props = make("CollectProp", 0, nullptr, "Props", 1, 0);
    kvObject title = property("StrProp", "Title", 0, "");
    kvSendMeth(&error, props, "addProperty", title);
    constexpr uint32_t runLength = 1u << 20;
    const Bytes entry = label("KvStreamEnd") + label("Title") + le16(0) + le16(0) +
                        le32(runLength) + Bytes(runLength, 'x');
    const Bytes pattern = bytes("TSVK") + entry;
    kvObject stream = endless(pattern, 4);

    kvSendMeth(&error, props, "readFromStream", stream);
    EXPECT_EQ(takeError(), 3443);
    EXPECT_LE(delivered(stream), static_cast<kvResult>(largestSavedRead));
    EXPECT_GT(delivered(stream), static_cast<kvResult>(largestSavedRead - 2 * entry.size()));
    EXPECT_EQ(text(kvSendMeth(nullptr, title, "fetchData")), std::string(runLength, 'x'));

    // The bound is per read: the next one starts afresh.
    kvObject next = streamWith(le16(0) + le32(3) + bytes("abc"));
    EXPECT_EQ(kvSendMeth(&error, title, "readFromStream", next), 0);
    EXPECT_EQ(text(kvSendMeth(nullptr, title, "fetchData")), "abc");
}

} // namespace
} // namespace kova::test
