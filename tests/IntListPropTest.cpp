// The integer list property: the selected element through the scalar
// protocol, the list operations and their notifications, bad indexes,
// allocation failure and the saved record.
#include "tests/PropertyFixture.hpp"

#include <vector>

namespace kova::test {
namespace {

class IntListPropTest : public PropertyTest {
  protected:
    kvObject listOf(const std::vector<int32_t>& values) {
        kvObject list = property("IntListProp", "Marks", 0);
        for (int32_t value : values)
            kvSendMeth(&error, list, "addValue", value);
        return list;
    }
    std::vector<int32_t> valuesOf(kvObject list) {
        std::vector<int32_t> values;
        const kvResult count = kvSendMeth(&error, list, "getCount");
        for (kvResult i = 0; i < count; ++i)
            values.push_back(static_cast<int32_t>(kvSendMeth(&error, list, "getValue", i)));
        return values;
    }
};

TEST_F(IntListPropTest, TheSelectedElementIsWhatStoreAndFetchSee) {
    kvObject list = property("IntListProp", "Marks", 0);
    kvObject checks = listen(list, "OnRangeCheck");
    EXPECT_ERROR(kvSendMeth(&error, list, "fetchData"), 0, 3442);
    EXPECT_ERROR(kvSendMeth(&error, list, "storeData", 1), -1, 3442);
    EXPECT_EQ(kvSendMeth(&error, list, "addValue", 7), 0);
    EXPECT_EQ(kvSendMeth(&error, list, "getCurIndex"), -1);
    EXPECT_EQ(kvSendMeth(&error, list, "fetchData"), 0);
    EXPECT_NE(errorMessage(error).find("Property Marks is set to invalid index -1."),
              std::string::npos)
        << errorMessage(error);
    EXPECT_EQ(takeError(), 3516);
    EXPECT_EQ(argOf(checks, 2), -1);
    EXPECT_ERROR(kvSendMeth(&error, list, "storeData", 1), -1, 3516);
    EXPECT_EQ(calls(checks), 2);

    EXPECT_EQ(kvSendMeth(&error, list, "setCurIndex", 0), 0);
    kvObject stored = listen(list, "OnStore");
    kvObject fetched = listen(list, "OnFetch");
    kvObject changed = listen(list, "OnTableChange");
    EXPECT_EQ(kvSendMeth(&error, list, "fetchData"), 7);
    EXPECT_EQ(kvSendMeth(&error, list, "storeFromString", "-5"), 0);
    EXPECT_EQ(text(kvSendMeth(&error, list, "fetchAsString")), "-5");
    EXPECT_EQ(argOf(stored, 2), -5);
    EXPECT_EQ(calls(changed), 1);
    EXPECT_EQ(calls(fetched), 2);
}

TEST_F(IntListPropTest, EveryIndexedMethodRefusesMinusOneTheCountAndBeyond) {
    kvObject list = listOf({10, 20, 30});
    kvObject checks = listen(list, "OnRangeCheck");
    for (kvArg bad : {kvArg{-1}, kvArg{3}, kvArg{4}}) {
        EXPECT_ERROR(kvSendMeth(&error, list, "setCurIndex", bad), -1, 3517);
        EXPECT_ERROR(kvSendMeth(&error, list, "getValue", bad), 0, 3441);
        EXPECT_ERROR(kvSendMeth(&error, list, "setValue", bad, 1), -1, 3441);
        EXPECT_ERROR(kvSendMeth(&error, list, "moveValueTo", bad), 0, 3441);
        EXPECT_EQ(argOf(checks, 2), bad);
    }
    EXPECT_EQ(calls(checks), 12);
    // addValueAt accepts the count (it appends) and refuses one more.
    EXPECT_ERROR(kvSendMeth(&error, list, "addValueAt", 4, 1), 0, 3441);
    EXPECT_ERROR(kvSendMeth(&error, list, "addValueAt", -1, 1), 0, 3441);
    EXPECT_EQ(kvSendMeth(&error, list, "addValueAt", 3, 40), 1);
    EXPECT_EQ(kvSendMeth(&error, list, "addValueAt", 0, 5), 1);
    EXPECT_EQ(valuesOf(list), (std::vector<int32_t>{5, 10, 20, 30, 40}));
    EXPECT_EQ(kvSendMeth(&error, list, "getCurIndex"), -1);
}

TEST_F(IntListPropTest, DeletingKeepsTheSelectionsNumberEvenPastTheEnd) {
    kvObject list = listOf({1, 2, 3});
    kvObject changed = listen(list, "OnTableChange");
    kvSendMeth(&error, list, "setCurIndex", 2);
    EXPECT_EQ(kvSendMeth(&error, list, "delValue", 9), -1);
    EXPECT_EQ(kvSendMeth(&error, list, "delValue", 3), 0);
    EXPECT_EQ(kvSendMeth(&error, list, "getCurIndex"), 2);
    EXPECT_ERROR(kvSendMeth(&error, list, "fetchData"), 0, 3516);
    // With the selection past the end there is nothing to move.
    EXPECT_ERROR(kvSendMeth(&error, list, "moveValueTo", 0), 0, 3516);
    EXPECT_EQ(kvSendMeth(&error, list, "findValue", 2), 1);
    EXPECT_EQ(kvSendMeth(&error, list, "delValue", 1), 0);
    EXPECT_EQ(kvSendMeth(&error, list, "delValue", 2), 0);
    EXPECT_EQ(kvSendMeth(&error, list, "getCount"), 0);
    EXPECT_EQ(kvSendMeth(&error, list, "getCurIndex"), -1);
    EXPECT_EQ(calls(changed), 3);
    EXPECT_ERROR(kvSendMeth(&error, list, "delValue", 2), -1, 3442);
    EXPECT_ERROR(kvSendMeth(&error, list, "findValue", 2), -1, 3442);
}

TEST_F(IntListPropTest, MovingShiftsTheElementsBetweenWithoutAnnouncingIt) {
    kvObject list = listOf({1, 2, 3, 4});
    kvObject changed = listen(list, "OnTableChange");
    kvSendMeth(&error, list, "setCurIndex", 3);
    EXPECT_EQ(kvSendMeth(&error, list, "moveValueTo", 1), 1);
    EXPECT_EQ(valuesOf(list), (std::vector<int32_t>{1, 4, 2, 3}));
    EXPECT_EQ(kvSendMeth(&error, list, "fetchData"), 3); // the selection keeps its number
    kvSendMeth(&error, list, "setCurIndex", 0);
    EXPECT_EQ(kvSendMeth(&error, list, "moveValueTo", 2), 1);
    EXPECT_EQ(valuesOf(list), (std::vector<int32_t>{4, 2, 1, 3}));
    EXPECT_EQ(kvSendMeth(&error, list, "moveValueTo", 0), 1); // moves the 4 back
    EXPECT_EQ(valuesOf(list), (std::vector<int32_t>{4, 2, 1, 3}));
    EXPECT_EQ(calls(changed), 0);
}

TEST_F(IntListPropTest, ASubscribersErrorsStayWithTheListButStoreAndFetchReportToTheCaller) {
    kvObject list = listOf({1});
    // Deleting the list during its own firing is refused with an error
    // left in the slot the subscriber was given.
    kvObject meddler = listener(0, 2, list);
    kvAddNotification(&error, list, "OnTableChange", meddler, "onEvent", 0);
    kvAddNotification(&error, list, "OnRangeCheck", meddler, "onEvent", 0);
    EXPECT_EQ(kvSendMeth(&error, list, "addValue", 2), 0);
    EXPECT_ERROR(kvSendMeth(&error, list, "getValue", 5), 0, 3441);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(calls(meddler), 2);

    kvAddNotification(&error, list, "OnFetch", meddler, "onEvent", 0);
    kvSendMeth(&error, list, "setCurIndex", 0);
    EXPECT_ERROR(kvSendMeth(&error, list, "fetchData"), 1, 3470);
}

TEST_F(IntListPropTest, AFailedAllocationLeavesTheListAsItWas) {
    kvObject list = listOf({1, 2, 3});
    kvSendMeth(&error, list, "setCurIndex", 1);
    const std::vector<int32_t> before = valuesOf(list);
    const auto unchanged = [&] {
        EXPECT_EQ(takeError(), 3429);
        EXPECT_EQ(valuesOf(list), before);
        EXPECT_EQ(kvSendMeth(&error, list, "getCurIndex"), 1);
    };
    // Each method is sent once before, so that no allocation of the method
    // cache (whose failure is harmless) is among the ones made to fail.
    EXPECT_GE(
        failEachAllocation([&] { return kvSendMeth(&error, list, "addValue", 4) == 0; }, unchanged),
        1);
    kvSendMeth(&error, list, "delValue", 4);
    EXPECT_ERROR(kvSendMeth(&error, list, "addValueAt", -1, 9), 0, 3441);
    EXPECT_GE(failEachAllocation([&] { return kvSendMeth(&error, list, "addValueAt", 0, 9) == 1; },
                                 unchanged),
              1);
    kvSendMeth(&error, list, "delValue", 9);
    EXPECT_GE(
        failEachAllocation([&] { return kvSendMeth(&error, list, "delValue", 2) == 0; }, unchanged),
        1);
}

TEST_F(IntListPropTest, ItsRecordHoldsTheValuesNotTheirAddress) {
    kvObject list = listOf({-1, 0x01020304});
    kvSendMeth(&error, list, "setCurIndex", 1);
    const Bytes saved = record(0, le16(2) + le16(1) + le32(0xFFFFFFFF) + le32(0x01020304));
    EXPECT_EQ(recordOf(list), saved);

    kvObject copy = property("IntListProp", "Copy", 0);
    kvObject changed = listen(copy, "OnTableChange");
    EXPECT_EQ(readInto(copy, saved), 0);
    EXPECT_EQ(valuesOf(copy), (std::vector<int32_t>{-1, 0x01020304}));
    EXPECT_EQ(kvSendMeth(&error, copy, "fetchData"), 0x01020304);
    EXPECT_EQ(calls(changed), 0);

    // A record that is cut, claims more than it holds, or selects outside
    // its list changes nothing.
    EXPECT_ERROR(readInto(copy, record(0, le16(3) + le16(0) + le32(5))), -1, 3432);
    EXPECT_ERROR(readInto(copy, record(0, le16(0x7FFF) + le16(0))), -1, 3432);
    EXPECT_ERROR(readInto(copy, record(0, le16(1) + le16(1) + le32(5))), -1, 3443);
    EXPECT_ERROR(readInto(copy, record(0, le16(0xFFFF) + le16(0))), -1, 3443);
    EXPECT_EQ(valuesOf(copy), (std::vector<int32_t>{-1, 0x01020304}));
}

} // namespace
} // namespace kova::test
