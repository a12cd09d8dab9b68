// The string table: its three modes, lookups both ways, index checks, removal
// and what a failed allocation leaves behind.
#include "tests/KernelFixture.hpp"

#include <functional>
#include <string>
#include <vector>

namespace kova::test {
namespace {

class StrTableTest : public KernelTest {
  protected:
    static std::vector<std::string> rows(kvObject table) {
        std::vector<std::string> strings;
        for (kvResult i = 0; i < count(table); ++i)
            strings.emplace_back(string(table, i));
        return strings;
    }
    static kvResult count(kvObject table) { return kvSendMeth(nullptr, table, "getCount"); }
    static const char* string(kvObject table, kvArg index) {
        return reinterpret_cast<const char*>(kvSendMeth(nullptr, table, "getString", index));
    }
};

using Rows = std::vector<std::string>;

TEST_F(StrTableTest, UniqueModeRefusesAStringAnotherRowHolds) {
    kvObject table = make("StrTable", 102);
    EXPECT_EQ(kvSendMeth(&error, table, "addKey", "a", 1), 0);
    EXPECT_ERROR(kvSendMeth(&error, table, "addKey", "a", 2), -1, 3439);
    EXPECT_EQ(kvSendMeth(&error, table, "addString", "ab"), 1);
    EXPECT_EQ(kvSendMeth(&error, table, "addKey", "", 3), 2) << "adding checks no emptiness";

    EXPECT_EQ(kvSendMeth(&error, table, "setString", 0, "a"), 0) << "its own string: no change";
    EXPECT_ERROR(kvSendMeth(&error, table, "setString", 1, "a"), -1, 3439);
    EXPECT_ERROR(kvSendMeth(&error, table, "appendString", 0, "b"), -1, 3439);
    EXPECT_ERROR(kvSendMeth(&error, table, "setString", 2, ""), -1, 3448);
    EXPECT_EQ(rows(table), (Rows{"a", "ab", ""}));
    EXPECT_EQ(kvSendMeth(&error, table, "findKey", "a"), 1);
    EXPECT_EQ(kvSendMeth(&error, table, "appendString", 1, "c"), 1);
    EXPECT_EQ(rows(table), (Rows{"a", "abc", ""}));
}

TEST_F(StrTableTest, OnlySetStringRefusesEmptyStringsAndOnlyInModes101And102) {
    for (kvArg mode : {100, 101}) {
        kvObject table = make("StrTable", mode);
        EXPECT_EQ(kvSendMeth(&error, table, "getMode"), mode);
        EXPECT_EQ(kvSendMeth(&error, table, "addString", ""), 0);
        EXPECT_EQ(kvSendMeth(&error, table, "addString", "x"), 1);
        EXPECT_EQ(kvSendMeth(&error, table, "addString", "x"), 2) << "repeats are allowed";
        EXPECT_EQ(kvSendMeth(&error, table, "setString", 1, ""), mode == 100 ? 1 : -1);
        EXPECT_EQ(takeError(), mode == 100 ? 0 : 3448);
        EXPECT_EQ(kvSendMeth(&error, table, "appendString", 0, ""), 0);
        EXPECT_STREQ(string(table, 0), "");
        EXPECT_EQ(kvSendMeth(&error, table, "appendString", 0, "b"), 0);
        EXPECT_EQ(kvSendMeth(&error, table, "appendString", 0, "c"), 0);
        EXPECT_STREQ(string(table, 0), "bc");
    }
}

TEST_F(StrTableTest, AnInvalidModeLeavesModeZeroThatAcceptsAnything) {
    kvObject table = make("StrTable", 7);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(errorMessage(error), "Cannot set mode 7. It's invalid.");
    EXPECT_EQ(takeError(), 3491);
    EXPECT_EQ(kvSendMeth(&error, table, "getMode"), 0);
    EXPECT_EQ(kvSendMeth(&error, table, "addString", "same"), 0);
    EXPECT_EQ(kvSendMeth(&error, table, "addString", "same"), 1);
    EXPECT_EQ(kvSendMeth(&error, table, "setString", 0, ""), 0);
    EXPECT_EQ(error, nullptr);

    EXPECT_ERROR(kvSendMeth(&error, table, "setMode", 103), 0, 3491);
    EXPECT_EQ(kvSendMeth(&error, table, "getMode"), 0);
    EXPECT_EQ(kvSendMeth(&error, table, "setMode", 102), 1);
    EXPECT_ERROR(kvSendMeth(&error, table, "addString", "same"), -1, 3439);
}

TEST_F(StrTableTest, IndexesAreCheckedAsSigned16BitNumbersBeforeEmptiness) {
    kvObject table = make("StrTable", 100);
    EXPECT_ERROR(kvSendMeth(&error, table, "getString", 0), 0, 3441);
    EXPECT_ERROR(kvSendMeth(&error, table, "setString", 0, "x"), -1, 3441);

    kvSendMeth(&error, table, "addKey", "zero", 10);
    kvSendMeth(&error, table, "addKey", "one", 11);
    for (kvArg bad : {-1, 2, 3, 40000}) {
        EXPECT_ERROR(kvSendMeth(&error, table, "getKey", bad), 0, 3441);
        EXPECT_EQ(kvSendMeth(&error, table, "setKey", bad, 5), -1) << bad;
        EXPECT_EQ(kvSendMeth(&error, table, "appendString", bad, "x"), -1) << bad;
        EXPECT_EQ(kvSendMeth(&error, table, "setString", bad, "x"), -1) << bad;
        clearErrors(error);
    }
    EXPECT_EQ(kvSendMeth(&error, table, "getKey", 0x10001), 11) << "only the low 16 bits count";
    EXPECT_EQ(kvSendMeth(&error, table, "setKey", 1, 12), 1);
    EXPECT_EQ(kvSendMeth(&error, table, "getKey", 1), 12);
    EXPECT_EQ(rows(table), (Rows{"zero", "one"}));
}

TEST_F(StrTableTest, KeysAndStringsAreFoundBothWaysFirstMatchFirst) {
    kvObject table = make("StrTable", 100);
    kvObject other = make("StrTable", 100); // a key may be an object
    EXPECT_EQ(kvSendMeth(&error, table, "addKey", "twin", other), 0);
    EXPECT_EQ(kvSendMeth(&error, table, "addKey", "twin", 2), 1);
    char text[] = "zero";
    EXPECT_EQ(kvSendMeth(&error, table, "addKey", text, 0), 2);
    text[0] = 'h';
    EXPECT_STREQ(string(table, 2), "zero") << "the table keeps its own copy";
    EXPECT_EQ(string(table, 2), string(table, 2)) << "and hands out that copy";
    EXPECT_EQ(kvSendMeth(&error, table, "findString", "twin"), 0);
    EXPECT_EQ(kvSendMeth(&error, table, "findKey", "twin"), reinterpret_cast<kvResult>(other));
    EXPECT_EQ(kvSendMeth(&error, table, "getKeyIndex", 2), 1);
    EXPECT_STREQ(reinterpret_cast<const char*>(kvSendMeth(&error, table, "getKeyString", 0)),
                 "zero");
    EXPECT_EQ(kvSendMeth(&error, table, "setKeyByString", "twin", 7), 0);
    EXPECT_EQ(kvSendMeth(&error, table, "getKeyIndex", 7), 0);
    EXPECT_EQ(error, nullptr);

    // Absent strings answer quietly; absent keys raise.
    EXPECT_EQ(kvSendMeth(&error, table, "findString", "none"), -1);
    EXPECT_EQ(kvSendMeth(&error, table, "findString", static_cast<const char*>(nullptr)), -1);
    EXPECT_EQ(kvSendMeth(&error, table, "findKey", "none"), 0);
    EXPECT_EQ(kvSendMeth(&error, table, "setKeyByString", "none", 1), -1);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(kvSendMeth(&error, table, "getKeyIndex", 99), -1);
    EXPECT_EQ(errorMessage(error), "The specified index 3 is an invalid index. This error was "
                                   "encountered in an object whose name is: (null).");
    clearErrors(error);
    EXPECT_ERROR(kvSendMeth(&error, table, "getKeyString", 99), 0, 3440);
    EXPECT_ERROR(kvSendMeth(&error, table, "findKey", static_cast<const char*>(nullptr)), 0, 3448);
}

TEST_F(StrTableTest, RemovingRowsKeepsTheOthersInOrderUntilEmpty) {
    kvObject table = make("StrTable", 100);
    for (const char* s : {"a", "b", "c", "b"})
        kvSendMeth(&error, table, "addKey", s, s[0]);
    EXPECT_EQ(kvSendMeth(&error, table, "delKey", "b"), 1);
    EXPECT_EQ(rows(table), (Rows{"a", "c", "b"}));
    EXPECT_EQ(kvSendMeth(&error, table, "getKey", 1), 'c') << "keys move with their rows";
    EXPECT_EQ(kvSendMeth(&error, table, "delString", "zz"), 1);
    EXPECT_EQ(error, nullptr) << "an absent string is not an error";
    EXPECT_ERROR(kvSendMeth(&error, table, "delKey", static_cast<const char*>(nullptr)), 0, 3448);

    for (const char* s : {"a", "b", "c"})
        EXPECT_EQ(kvSendMeth(&error, table, "delString", s), 1);
    EXPECT_EQ(count(table), 0);
    // The last removal leaves the empty table, which refuses key lookups.
    EXPECT_ERROR(kvSendMeth(&error, table, "findKey", "a"), 0, 3442);
    EXPECT_ERROR(kvSendMeth(&error, table, "getKeyString", 0), 0, 3442);
    EXPECT_ERROR(kvSendMeth(&error, table, "getKeyIndex", 0), -1, 3442);
    EXPECT_EQ(kvSendMeth(&error, table, "delKey", static_cast<const char*>(nullptr)), 1)
        << "nothing to delete";
    EXPECT_EQ(kvSendMeth(&error, table, "addString", "again"), 0);

    kvSendMeth(&error, table, "addString", "more");
    EXPECT_EQ(kvSendMeth(&error, table, "resetContents"), 1);
    EXPECT_EQ(count(table), 0);
}

// Each allocation a change makes is failed in turn: the change answers its
// failure with 3429 and the table is as it was, until the change succeeds.
TEST_F(StrTableTest, FailedAllocationsLeaveTheTableAsItWas) {
    kvObject table = make("StrTable", 100);
    for (const char* s : {"a", "b", "c"})
        kvSendMeth(&error, table, "addKey", s, 1);
    // Every method already ran once, so lookups allocate nothing more.
    kvSendMeth(&error, table, "delKey", "c");
    kvSendMeth(&error, table, "setString", 0, "a");
    kvSendMeth(&error, table, "appendString", 0, "");
    ASSERT_EQ(rows(table), (Rows{"a", "b"}));
    ASSERT_EQ(error, nullptr);

    struct Change {
        std::function<kvResult()> run;
        kvResult failure; // the answer of a failed change
        Rows after;
    };
    const Change changes[] = {
        {[&] { return kvSendMeth(&error, table, "addKey", "new", 2); }, -1, Rows{"a", "b", "new"}},
        {[&] { return kvSendMeth(&error, table, "setString", 0, "set"); }, -1,
         Rows{"set", "b", "new"}},
        {[&] { return kvSendMeth(&error, table, "appendString", 1, "+"); }, -1,
         Rows{"set", "b+", "new"}},
        {[&] { return kvSendMeth(&error, table, "delKey", "set"); }, 0, Rows{"b+", "new"}},
    };
    for (const Change& change : changes) {
        const Rows before = rows(table);
        const int failures = failEachAllocation([&] { return change.run() != change.failure; },
                                                [&] {
                                                    EXPECT_EQ(takeError(), 3429);
                                                    EXPECT_EQ(rows(table), before);
                                                });
        EXPECT_GT(failures, 0);
        EXPECT_EQ(rows(table), change.after);
        EXPECT_EQ(error, nullptr);
    }
}

} // namespace
} // namespace kova::test
