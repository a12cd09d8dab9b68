// SidebandData: a table of typed tags in memory, its selection, its copies,
// and the byte-at-position item getters.
#include "kova/sideband.h"
#include "tests/PropertyFixture.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace kova::test {
namespace {

class SidebandDataTest : public PropertyTest {
  protected:
    void SetUp() override {
        PropertyTest::SetUp();
        sideband = property("SidebandData", "Sideband", 0);
    }
    kvResult send(const char* method) { return kvSendMeth(&error, sideband, method); }
    template <typename... A> kvResult send(const char* method, A... args) {
        return kvSendMeth(&error, sideband, method, args...);
    }
    kvObject sideband = nullptr;
};

TEST_F(SidebandDataTest, AddingAnExistingIdentifierReplacesItsRecordInPlace) {
    kvObject changes = listen(sideband, "OnTableChange");
    const uint16_t width[1] = {2550};
    const uint32_t strips[3] = {8, 16, 24};
    EXPECT_EQ(send("addTag", 256, 3, 1, 0x10, width), 0);
    EXPECT_EQ(send("addTag", 273, 4, 3, 0x20, strips), 1);
    EXPECT_EQ(send("getCount"), 2);
    EXPECT_EQ(send("getCurIndex"), 1);

    const char text[] = "page one";
    EXPECT_EQ(send("addTag", 256, 2, 9, 0x30, text), 0);
    EXPECT_EQ(send("getCount"), 2);
    EXPECT_EQ(send("getCurIndex"), 0);
    EXPECT_EQ(send("getTagID"), 256);
    EXPECT_EQ(send("getTagType"), 2);
    EXPECT_EQ(send("getTagCount"), 9);
    EXPECT_EQ(send("getTagFlags"), 0x30);
    EXPECT_EQ(calls(changes), 3);

    auto** table = reinterpret_cast<kvSidebandTag**>(send("getTagTablePointer"));
    ASSERT_NE(table, nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(kvSidebandTagData(table[0])), "page one");
    EXPECT_EQ(table[1]->id, 273);
    EXPECT_EQ(std::memcmp(kvSidebandTagData(table[1]), strips, 12), 0);
    EXPECT_EQ(kvSidebandTagData(table[1])[12], 0) << "the spare byte after the items";
}

TEST_F(SidebandDataTest, FindingAndSelecting) {
    EXPECT_EQ(send("findTag", 1), -1);
    EXPECT_EQ(send("getCurIndex"), -1);
    send("addTag", 5, 1, 0, 0, nullptr);
    send("addTag", 6, 1, 0, 0, nullptr);
    EXPECT_EQ(send("findTag", 5), 0);
    EXPECT_EQ(send("findTag", 7), -1);
    EXPECT_EQ(send("getCurIndex"), -1);
    EXPECT_EQ(send("setCurIndex", 1), 1);
    EXPECT_EQ(send("getTagID"), 6);

    kvObject rangeCheck = listen(sideband, "OnRangeCheck");
    EXPECT_EQ(send("setCurIndex", 2), -1);
    kvObject raised = error;
    EXPECT_NE(errorMessage(raised).find("index 2 "), std::string::npos);
    EXPECT_NE(errorMessage(raised).find("Sideband"), std::string::npos);
    EXPECT_EQ(takeError(), 3441);
    EXPECT_EQ(calls(rangeCheck), 1);
    EXPECT_EQ(argOf(rangeCheck, 2), 2);
}

// Every getter answers the byte at the item's index, sign-extended.
TEST_F(SidebandDataTest, ItemGettersAnswerTheByteAtTheItemsIndex) {
    const uint32_t longs[2] = {384, 7};
    send("addTag", 273, 4, 2, 0, longs);
    EXPECT_EQ(send("getLong", 0), -128);
    EXPECT_EQ(send("getLong", 1), 1);

    const uint8_t bytes[3] = {0x7f, 0x80, 0xff};
    send("addTag", 1, 1, 3, 0, bytes);
    EXPECT_EQ(send("getByte", 0), 127);
    EXPECT_EQ(send("getByte", 1), -128);
    EXPECT_EQ(send("getByte", 2), -1);
    EXPECT_ERROR(send("getShort", 0), -1, 3444);

    send("addTag", 2, 2, 3, 0, "ok");
    EXPECT_EQ(send("getString", 1), 'k');
    const uint16_t shorts[1] = {0x1234};
    send("addTag", 3, 3, 1, 0, shorts);
    EXPECT_EQ(send("getShort", 0), 0x34);
    const uint32_t rational[2] = {300, 1};
    send("addTag", 5, 5, 1, 0, rational);
    EXPECT_EQ(send("getRational", 0), 44);

    kvObject rangeCheck = listen(sideband, "OnRangeCheck");
    EXPECT_ERROR(send("getRational", 1), -1, 3441);
    EXPECT_ERROR(send("getRational", -1), -1, 3441);
    EXPECT_EQ(calls(rangeCheck), 2);

    send("findTag", 99);
    EXPECT_ERROR(send("getByte", 0), -1, 3444);
}

TEST_F(SidebandDataTest, GetTagDataCopiesAtMostTheItemsAsked) {
    EXPECT_ERROR(send("getTagData", 1, nullptr), -1, 3442);
    const uint16_t shorts[4] = {1, 2, 3, 4};
    send("addTag", 258, 3, 4, 0, shorts);
    uint16_t out[4] = {9, 9, 9, 9};
    EXPECT_EQ(send("getTagData", 3, out), 0);
    EXPECT_EQ(out[2], 3);
    EXPECT_EQ(out[3], 9);
    EXPECT_EQ(send("getTagData", 10, out), 0);
    EXPECT_EQ(out[3], 4);
}

TEST_F(SidebandDataTest, DeletingRecords) {
    kvObject changes = listen(sideband, "OnTableChange");
    EXPECT_EQ(send("deleteTag", 1), -1);
    send("addTag", 1, 1, 0, 0, nullptr);
    send("addTag", 2, 1, 0, 0, nullptr);
    send("addTag", 3, 1, 0, 0, nullptr);
    EXPECT_EQ(send("deleteTag", 2), 1);
    EXPECT_EQ(send("getCount"), 2);
    EXPECT_EQ(send("getCurIndex"), 1) << "the selection stays at the index";
    EXPECT_EQ(send("getTagID"), 3);
    EXPECT_EQ(send("deleteTag", 3), 1);
    EXPECT_EQ(send("getTagID"), 0) << "a selection past the end reads as none";
    EXPECT_EQ(send("deleteTag", 1), 0);
    EXPECT_EQ(send("getCount"), 0);
    EXPECT_EQ(send("getCurIndex"), -1);
    EXPECT_EQ(send("getTagTablePointer"), 0);
    EXPECT_ERROR(send("getTagData", 1, nullptr), -1, 3442);
    EXPECT_EQ(calls(changes), 6);
    EXPECT_EQ(send("resetContents"), 1);
}

TEST_F(SidebandDataTest, CopyingAnotherTable) {
    kvObject other = property("SidebandData", "Other", 0);
    EXPECT_EQ(send("copyDataFrom", nullptr), 0);
    send("addTag", 9, 1, 0, 0, nullptr);
    EXPECT_EQ(send("copyDataFrom", other), 1);
    EXPECT_EQ(send("getCount"), 0) << "an empty table copies as empty";

    const uint32_t longs[2] = {1, 2};
    kvSendMeth(&error, other, "addTag", 10, 4, 2, 0x5, longs);
    kvSendMeth(&error, other, "addTag", 11, 2, 3, 0x6, "ab");
    EXPECT_EQ(send("copyDataFrom", other), 1);
    EXPECT_EQ(send("getCount"), 2);
    EXPECT_EQ(send("setCurIndex", 1), 1);
    EXPECT_EQ(send("getTagID"), 11);
    EXPECT_EQ(send("getTagFlags"), 0x6);
    char text[3] = {};
    send("getTagData", 3, text);
    EXPECT_STREQ(text, "ab");
    EXPECT_EQ(send("resetContents"), 0);
}

TEST_F(SidebandDataTest, OutOfMemoryChangesNothing) {
    send("addTag", 1, 1, 0, 0, nullptr);
    int step = 0;
    failEachAllocation(
        [&] {
            const kvResult index = send("addTag", 2 + step++ % 2, 4, 1000, 0, nullptr);
            if (index < 0) {
                EXPECT_EQ(takeError(), 3429);
            }
            return index >= 0;
        },
        [&] { EXPECT_EQ(send("getCount"), 1); });
    EXPECT_ERROR(send("addTag", 4, 4, 0x7fffffff, 0, nullptr), -1, 3429);
}

} // namespace
} // namespace kova::test
