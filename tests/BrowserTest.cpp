// The class and method browsers and the break switch: the class table and a
// class's own methods as enumerations, the inclusive upper bound of
// "setIndex" and the reads kept inside the tables there, and the break flag
// read from the method record.
#include "tests/PropertyFixture.hpp"

#include <string>

namespace kova::test {
namespace {

class BrowserTest : public PropertyTest {
  protected:
    kvObject browser(const char* className, const char* name) {
        return property(className, name, 0);
    }
    kvArg position(kvClass cls) {
        for (size_t i = 0; i < kvGetClassCount(); ++i)
            if (kvGetClassAt(i) == cls) return static_cast<kvArg>(i);
        return -1;
    }
};

TEST_F(BrowserTest, TheClassBrowserEnumeratesTheClassTable) {
    kvObject classes = browser("ClassBrowser", "ClassBrowser");
    const auto count = static_cast<kvArg>(kvGetClassCount());
    EXPECT_EQ(kvSendMeth(&error, classes, "getCount"), count);
    const kvClass intProp = kvRegisterClass("IntProp");
    const kvArg at = position(intProp);
    kvObject moved = listen(classes, "OnIndexChange");
    EXPECT_EQ(kvSendMeth(&error, classes, "storeData", intProp), 0);
    EXPECT_EQ(argOf(moved, 2), at);
    EXPECT_EQ(kvSendMeth(&error, classes, "getIndex"), at);
    EXPECT_EQ(kvSendMeth(&error, classes, "getCurIndex"), at);
    EXPECT_EQ(kvSendMeth(&error, classes, "fetchData"), reinterpret_cast<kvResult>(intProp));
    EXPECT_EQ(kvSendMeth(&error, classes, "getCurrent"), reinterpret_cast<kvResult>(intProp));
    EXPECT_EQ(text(kvSendMeth(&error, classes, "getCurrentString")), "IntProp");
    EXPECT_EQ(text(kvSendMeth(&error, classes, "getCurrentEnumString")), "IntProp");
    EXPECT_EQ(text(kvSendMeth(&error, classes, "getIndexedString", 0)), "Object");
    EXPECT_EQ(kvSendMeth(&error, classes, "getIndexedCookie", 0),
              reinterpret_cast<kvResult>(kvFindClass("Object")));
    // A handle that is no class, and "setCurrent" with an index (which it
    // passes to "storeData" as if it were a handle), change nothing.
    EXPECT_EQ(kvSendMeth(&error, classes, "storeData", classes), 0);
    EXPECT_EQ(kvSendMeth(&error, classes, "setCurrent", 0), 0);
    EXPECT_EQ(kvSendMeth(&error, classes, "getIndex"), at);
    EXPECT_EQ(kvSendMeth(&error, classes, "setCurrentEnumString", "Object"), 0);
    EXPECT_EQ(calls(moved), 1);
}

TEST_F(BrowserTest, SetIndexAcceptsTheCountAndReadsThereFindNothing) {
    kvObject classes = browser("ClassBrowser", "ClassBrowser");
    kvObject moved = listen(classes, "OnIndexChange");
    // The table grows as classes are first used (Listener above, the error
    // class at the first error), so the count is taken once both are in.
    kvRegisterClass("KOVAErr");
    const auto count = static_cast<kvArg>(kvGetClassCount());
    EXPECT_EQ(kvSendMeth(&error, classes, "setIndex", 2), 0);
    for (kvArg outside : {kvArg{-1}, count + 1}) {
        EXPECT_EQ(kvSendMeth(&error, classes, "setIndex", outside), 0);
        EXPECT_EQ(argOf(moved, 2), 2); // the old index, announced all the same
    }
    EXPECT_EQ(kvSendMeth(&error, classes, "setIndex", count), 0);
    EXPECT_EQ(kvSendMeth(&error, classes, "getIndex"), count);
    EXPECT_EQ(calls(moved), 4);
    EXPECT_EQ(kvSendMeth(&error, classes, "fetchData"), 0);
    EXPECT_EQ(kvSendMeth(&error, classes, "getCurrentString"), 0);
    for (const char* read : {"getIndexedString", "getIndexedEnumString", "getIndexedCookie"}) {
        EXPECT_EQ(kvSendMeth(&error, classes, read, count), 0) << read;
        for (kvArg bad : {kvArg{-1}, count + 1}) {
            EXPECT_EQ(kvSendMeth(&error, classes, read, bad), 0) << read;
            EXPECT_NE(errorMessage(error).find("index " + std::to_string(bad) +
                                               " is an invalid index. This error was "
                                               "encountered in an object whose name is: "
                                               "ClassBrowser."),
                      std::string::npos)
                << errorMessage(error);
            EXPECT_EQ(takeError(), 3441);
        }
    }
}

TEST_F(BrowserTest, TheMethodBrowserEnumeratesOneClassesOwnMethods) {
    kvObject methods = browser("MethodBrowser", "MethodBrowser");
    EXPECT_EQ(kvSendMeth(&error, methods, "getCount"), 0);
    EXPECT_EQ(kvSendMeth(&error, methods, "getIndexedString", 0), 0);
    EXPECT_EQ(kvSendMeth(&error, methods, "getMethod"), 0);

    const kvClass intProp = kvRegisterClass("IntProp");
    kvSendMeth(&error, methods, "setClass", intProp);
    EXPECT_EQ(kvSendMeth(&error, methods, "getClass"), reinterpret_cast<kvResult>(intProp));
    const kvArg count = intProp->methodTable->count;
    EXPECT_EQ(kvSendMeth(&error, methods, "getCount"), count); // not Property's nor Object's
    kvObject moved = listen(methods, "OnIndexChange");
    EXPECT_EQ(kvSendMeth(&error, methods, "storeData", 4), 0);
    EXPECT_EQ(argOf(moved, 2), 4);
    EXPECT_EQ(text(kvSendMeth(&error, methods, "getCurrentString")), "objInit");
    const auto* record =
        reinterpret_cast<const kvMethodRecord*>(kvSendMeth(&error, methods, "getMethod"));
    EXPECT_EQ(record, &intProp->methodTable->records[4]);
    EXPECT_EQ(kvSendMeth(&error, methods, "fetchData"), 0); // asks its index, answers 0
    EXPECT_EQ(kvSendMeth(&error, methods, "getCurrent"), 0);
    EXPECT_EQ(kvSendMeth(&error, methods, "getIndexedCookie", 99), 99);
    EXPECT_EQ(text(kvSendMeth(&error, methods, "getIndexedEnumString", 0)), "asInt");
    EXPECT_EQ(kvSendMeth(&error, methods, "resetContents"), 0);

    EXPECT_EQ(kvSendMeth(&error, methods, "setCurrent", count), 0);
    EXPECT_EQ(kvSendMeth(&error, methods, "getIndex"), count);
    EXPECT_EQ(kvSendMeth(&error, methods, "getMethod"), 0);
    EXPECT_EQ(kvSendMeth(&error, methods, "getCurrentEnumString"), 0);
    EXPECT_EQ(kvSendMeth(&error, methods, "setIndex", count + 1), 0);
    EXPECT_EQ(kvSendMeth(&error, methods, "getIndex"), count);
    EXPECT_ERROR(kvSendMeth(&error, methods, "getIndexedString", count + 1), 0, 3441);
    EXPECT_ERROR(kvSendMeth(&error, methods, "getIndexedString", -1), 0, 3441);
}

TEST_F(BrowserTest, TheBreakSwitchReadsTheRecordsFlagAndAnnouncesStores) {
    kvObject breakSwitch = browser("MethBreak", "MethodBreak");
    kvObject fetched = listen(breakSwitch, "OnFetch");
    kvObject stored = listen(breakSwitch, "OnStore");
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "fetchData"), 0);
    kvMethodRecord record = kova::method("watched", 0, KV_METHOD_BREAK | KV_METHOD_NO_INSTDATA);
    kvSendMeth(&error, breakSwitch, "setMethod", &record);
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "getMethod"), reinterpret_cast<kvResult>(&record));
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "fetchData"), 2);
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "storeData", 0), 0);
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "fetchData"), 2); // the aids have no effect
    EXPECT_EQ(calls(fetched), 3);
    EXPECT_EQ(calls(stored), 1);
}

TEST_F(BrowserTest, HandlesReadFromAStreamAreKeptOnlyWhenTheyAreLive) {
    const kvClass intProp = kvRegisterClass("IntProp");
    kvObject methods = browser("MethodBrowser", "MethodBrowser");
    kvSendMeth(&error, methods, "setClass", intProp);
    kvSendMeth(&error, methods, "setIndex", 2);
    kvObject copy = browser("MethodBrowser", "Copy");
    EXPECT_EQ(readInto(copy, recordOf(methods)), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "getClass"), reinterpret_cast<kvResult>(intProp));
    EXPECT_EQ(kvSendMeth(&error, copy, "getIndex"), 2);
    Bytes forged = recordOf(methods);
    for (size_t i = 2; i < 2 + sizeof(kvClass); ++i)
        forged[i] ^= 0x5A;
    EXPECT_EQ(readInto(copy, forged), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "getClass"), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "getCount"), 0);

    kvObject breakSwitch = browser("MethBreak", "MethodBreak");
    kvSendMeth(&error, breakSwitch, "setMethod", &intProp->methodTable->records[1]);
    kvObject other = browser("MethBreak", "Other");
    EXPECT_EQ(readInto(other, recordOf(breakSwitch)), 0);
    EXPECT_EQ(kvSendMeth(&error, other, "getMethod"),
              reinterpret_cast<kvResult>(&intProp->methodTable->records[1]));
    kvMethodRecord loose = kova::method("loose", 0);
    kvSendMeth(&error, breakSwitch, "setMethod", &loose);
    EXPECT_EQ(readInto(other, recordOf(breakSwitch)), 0);
    EXPECT_EQ(kvSendMeth(&error, other, "getMethod"), 0);
}

TEST_F(BrowserTest, TheBrowserKeepsItsThreePropertiesInStep) {
    kvObject browserTM = make("Browser", make("ProgressSink"));
    ASSERT_NE(browserTM, nullptr);
    const auto find = [&](const char* name) {
        return reinterpret_cast<kvObject>(
            kvSendMeth(&error, browserTM, "findPropertyByName", name));
    };
    kvObject classes = find("ClassBrowser");
    kvObject methods = find("MethodBrowser");
    kvObject breakSwitch = find("MethodBreak");
    ASSERT_TRUE(classes && methods && breakSwitch);
    // At first: the first class (Object), its first method.
    const kvClass object = kvFindClass("Object");
    EXPECT_EQ(kvSendMeth(&error, methods, "getClass"), reinterpret_cast<kvResult>(object));
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "getMethod"),
              reinterpret_cast<kvResult>(&object->methodTable->records[0]));

    const kvClass intProp = kvRegisterClass("IntProp");
    kvSendMeth(&error, methods, "setIndex", 3);
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "getMethod"),
              reinterpret_cast<kvResult>(&object->methodTable->records[3]));
    kvSendMeth(&error, classes, "storeData", intProp);
    EXPECT_EQ(kvSendMeth(&error, methods, "getClass"), reinterpret_cast<kvResult>(intProp));
    EXPECT_EQ(kvSendMeth(&error, methods, "getIndex"), 0);
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "getMethod"),
              reinterpret_cast<kvResult>(&intProp->methodTable->records[0]));
    // The method browser at its count: no method, so no switch.
    kvSendMeth(&error, methods, "setIndex", kvSendMeth(&error, methods, "getCount"));
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "getMethod"), 0);
    EXPECT_EQ(kvSendMeth(&error, breakSwitch, "fetchData"), 0);
}

} // namespace
} // namespace kova::test
