// Sends by name: where a method is found, which instance data it gets, what
// happens when nobody defines it, and how the per-class cache behaves.
#include "kova/resources.h"
#include "tests/KernelFixture.hpp"

#include <cstring>
#include <string>

namespace kova::test {
namespace {

class DispatchTest : public KernelTest {};

// A method name of the full 32 bytes with no terminator, followed by bytes
// that a reader going past the 32 would take as part of it.
struct UnterminatedName {
    char name[32];
    char after[8];
    UnterminatedName() {
        std::memset(name, 'q', sizeof name);
        std::memcpy(after, "TAIL", 5);
    }
};

TEST_F(DispatchTest, OverridingMethodIsFoundInTheClassAndParentSendReachesTheAncestor) {
    kvObject square = make("Square", 4, 3);
    ASSERT_NE(square, nullptr);
    EXPECT_EQ(kvSendMeth(&error, square, "area"), 9);
    // Square's getSides asks Shape's version, which reads Shape's own slice.
    EXPECT_EQ(kvSendMeth(&error, square, "getSides"), 40);
    EXPECT_EQ(kvSendParentMeth(&error, kvFindClass("Polygon"), square, "getSides"), 4);
    // objInit ran once per class of the chain, root first, sharing the arguments.
    EXPECT_EQ(kvSendMeth(&error, square, "getInitCalls"), 1);
}

TEST_F(DispatchTest, ClassAddingNoMethodsAnswersItsAncestors) {
    kvObject polygon = make("Polygon", 5);
    EXPECT_EQ(kvSendMeth(&error, polygon, "getSides"), 5);
    EXPECT_STREQ(reinterpret_cast<const char*>(kvSendMeth(&error, polygon, "describe")), "Polygon");
    kvClass found = nullptr;
    EXPECT_NE(kvFindMethod(&found, kvFindClass("Polygon"), "setSides", 0), nullptr);
    EXPECT_EQ(found, kvFindClass("Shape"));
}

TEST_F(DispatchTest, UnknownMethodLeavesError3427AndAnswersZero) {
    EXPECT_EQ(kvSendMeth(&error, make("Shape", 3), "frobnicate", 1, 2), 0);
    EXPECT_EQ(errorMessage(error), "An unimplemented method frobnicate was sent to class Shape");
    EXPECT_EQ(kvSendMeth(nullptr, error, "getHelpFileContextID"), 4002);
    EXPECT_EQ(takeError(), 3427);
    // A class method ends the same way instead of recursing up the chain.
    EXPECT_EQ(kvSendClMeth(&error, kvRegisterClass("Square"), "noSuchClassMethod", 7), 0);
    EXPECT_EQ(errorMessage(error),
              "An unimplemented method noSuchClassMethod was sent to class Square");
    EXPECT_EQ(takeError(), 3427);
}

TEST_F(DispatchTest, NullReceiverIsShownAndAnswersZero) {
    EXPECT_EQ(kvSendMeth(&error, nullptr, "area"), 0);
    ASSERT_EQ(shownMessages().size(), 1u);
    EXPECT_EQ(shownMessages()[0].text,
              "An attempt was made to send method area to a null object reference.");
    EXPECT_EQ(shownMessages()[0].caption, "KOVA Kernel Error");
    EXPECT_EQ(shownMessages()[0].style & KV_MB_SYSTEMMODAL, KV_MB_SYSTEMMODAL);
}

TEST_F(DispatchTest, ClassMethodsRunWithTheirReceiverAndTheRootHasNoParentToSendTo) {
    kvObject shape = make("Shape", 3);
    EXPECT_EQ(kvSendParentMeth(&error, kvFindClass("Object"), shape, "objInit"), -1);
    EXPECT_EQ(kvSendParentMeth(&error, nullptr, shape, "objInit"), -1);
    EXPECT_EQ(kvSendClParentMeth(&error, kvFindClass("Object"), "classInit"), 0);
    const kvClass square = kvRegisterClass("Square");
    EXPECT_EQ(kvSendClMeth(&error, kvFindClass("Shape"), "unitSides"), 1);
    EXPECT_EQ(kvSendClMeth(&error, square, "unitSides"), 2);
    EXPECT_EQ(kvSendClParentMeth(&error, kvFindClass("Polygon"), "unitSides"), 1);
    EXPECT_EQ(kvSendClMeth(&error, nullptr, "unitSides"), 0);
}

TEST_F(DispatchTest, NamesAreComparedOnTheirFirst32Bytes) {
    kvObject wide = make("Wide");
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(kvSendMeth(&error, wide, "m042"), 42);
    // A name equal to a method in its first 32 bytes is that method.
    char name[40] = "m007";
    std::memcpy(name + 32, "junk", 5);
    EXPECT_EQ(kvSendMeth(&error, wide, name), 7);
}

// A name of 32 bytes needs no terminator; every report of it shows those 32
// bytes and reads no further.
TEST_F(DispatchTest, AnUnterminatedNameOf32BytesIsReportedAsTheKernelReadsIt) {
    const UnterminatedName unterminated;
    const std::string shown(32, 'q');

    EXPECT_EQ(kvSendMeth(&error, make("Shape", 3), unterminated.name), 0);
    EXPECT_EQ(errorMessage(error), "An unimplemented method " + shown + " was sent to class Shape");
    EXPECT_EQ(takeError(), 3427);
    EXPECT_EQ(kvSendClMeth(&error, kvRegisterClass("Shape"), unterminated.name), 0);
    EXPECT_EQ(errorMessage(error), "An unimplemented method " + shown + " was sent to class Shape");
    EXPECT_EQ(takeError(), 3427);
    // The forwarder ends before its target (the fixture ends objects in the
    // order they were made, and a target is made first).
    const kvObject forwarder = kvNewObject(&error, "Forw", make("Shape", 3));
    EXPECT_EQ(kvSendMeth(&error, forwarder, unterminated.name), 0);
    EXPECT_EQ(errorMessage(error), "An unimplemented method " + shown + " was sent to class Shape");
    EXPECT_EQ(takeError(), 3427);
    kvDelObject(&error, forwarder);
    kvSendMeth(&error, nullptr, unterminated.name);
    ASSERT_EQ(shownMessages().size(), 1u);
    EXPECT_EQ(shownMessages()[0].text,
              "An attempt was made to send method " + shown + " to a null object reference.");
}

// A name no class of the chain defines is remembered, so that a forwarder's
// messages skip the tables; every send of it must still be reported, and
// the memory must never hide a method whose name shares its bucket or its
// first bytes ("areaE" falls in the bucket of "area").
TEST_F(DispatchTest, AMissedNameIsReportedAtEverySendAndHidesNoMethod) {
    kvObject square = make("Square", 4, 3);
    const UnterminatedName unterminated;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(kvSendMeth(&error, square, "areaE", 5), 0);
        EXPECT_EQ(errorMessage(error), "An unimplemented method areaE was sent to class Square");
        EXPECT_EQ(takeError(), 3427);
        EXPECT_EQ(kvSendMeth(&error, square, "area"), 9);
        EXPECT_EQ(kvSendMeth(&error, square, "are"), 0);
        EXPECT_EQ(takeError(), 3427);
        EXPECT_EQ(kvSendMeth(&error, square, unterminated.name), 0);
        EXPECT_EQ(errorMessage(error),
                  "An unimplemented method " + std::string(32, 'q') + " was sent to class Square");
        EXPECT_EQ(takeError(), 3427);
        EXPECT_EQ(kvSendMeth(&error, square, ""), 0);
        EXPECT_EQ(takeError(), 3427);
    }
    EXPECT_EQ(kvFindMethod(nullptr, kvFindClass("Square"), "areaE", 0), nullptr);
    EXPECT_NE(kvFindMethod(nullptr, kvFindClass("Square"), "area", 0), nullptr);

    // Through a forwarder the same name goes on to the target every time.
    const kvObject forwarder = kvNewObject(&error, "Forw", square);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(kvSendMeth(&error, forwarder, "area"), 9);
        EXPECT_EQ(kvSendMeth(&error, forwarder, "areaE"), 0);
        EXPECT_EQ(errorMessage(error), "An unimplemented method areaE was sent to class Square");
        EXPECT_EQ(takeError(), 3427);
    }
    kvDelObject(&error, forwarder);
}

TEST_F(DispatchTest, AddingAClassTwiceKeepsTheFirstAndNamesOf20CharactersAreRefused) {
    const kvClass shape = kvRegisterClass("Shape");
    kvMethodTable empty{0, nullptr};
    EXPECT_EQ(kvAddClass("Shape", "Object", 99, 0, &empty, &empty), shape);
    EXPECT_NE(shape->instanceSize, 99);
    EXPECT_EQ(kvFindMethod(nullptr, shape, "area", 0)->argCount, 0);

    EXPECT_EQ(kvAddClass("ABCDEFGHIJKLMNOPQRST", nullptr, 0, 0, &empty, &empty), nullptr);
    EXPECT_EQ(kvFindClass("ABCDEFGHIJKLMNOPQRST"), nullptr);
    EXPECT_EQ(kvAddClass(nullptr, nullptr, 0, 0, &empty, &empty), kvFindClass("Object"));
}

// The cache stops growing at 200 entries, but for a name whose bucket is
// still empty; beyond that entries are reused, and every name must still
// reach its own procedure.
TEST_F(DispatchTest, AFullMethodCacheReusesEntriesAndStillFindsEveryMethod) {
    kvObject wide = make("Wide");
    char name[16];
    for (int round = 0; round < 2; ++round)
        for (int i = 0; i < 260; ++i) {
            std::snprintf(name, sizeof name, "m%03d", i);
            ASSERT_EQ(kvSendMeth(&error, wide, name), i);
        }
    EXPECT_EQ(kvSendMeth(&error, wide, "isA", "Object"), -1); // inherited, through the full cache
    EXPECT_GE(wide->cls->cacheCount, 200u);
    EXPECT_LE(wide->cls->cacheCount, 201u);
}

TEST_F(DispatchTest, ClassWhoseLibraryLacksAProcedureIsNotAdded) {
    EXPECT_EQ(kvRegisterClass("Broken"), nullptr);
    EXPECT_EQ(kvFindClass("Broken"), nullptr);
    ASSERT_FALSE(shownMessages().empty());
    const MessageBox& shown = shownMessages().back();
    EXPECT_EQ(shown.caption, "KOVA Kernel Error");
    EXPECT_EQ(shown.text.rfind("Could not find implementation for method missingProcedure for "
                               "class Broken in class library ",
                               0),
              0u)
        << shown.text;
    // The library named is the class's own, which has no resources of its own.
#ifdef _WIN32
    const std::string library = "TESTSHP.DLL.\n";
#else
    const std::string library = "/libtestshp.so.\n";
#endif
    ASSERT_GE(shown.text.size(), library.size());
    EXPECT_EQ(shown.text.substr(shown.text.size() - library.size()), library) << shown.text;
}

// The names the kernel looks up in a class library, and the library's own
// references to them, resolve inside that library, never in the kernel it
// depends on, which exports the same kinds of names.
TEST_F(DispatchTest, AClassLibrarysOwnNamesResolveInsideIt) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ErrTexts", "ERRTEXTS.DLL"), 1);
    kvObject texts = make("ErrTexts");
    ASSERT_NE(texts, nullptr);
    const auto* first =
        reinterpret_cast<const char*>(kvSendMeth(&error, texts, "ownResourceName", 0));
    ASSERT_FALSE(KV_RESOURCE_IS_ID(first)) << "the kernel's table, whose first name is a number";
    EXPECT_STREQ(first, "ERRTEXTS");

    // The library does not define "registerForw"; the kernel does.
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("Forw", "ERRTEXTS.DLL"), 1);
    kvProc registerProc = nullptr;
    EXPECT_EQ(kvLoadClassLibrary("Forw", &registerProc), nullptr);
    EXPECT_EQ(registerProc, nullptr);
    ASSERT_FALSE(shownMessages().empty());
    EXPECT_EQ(shownMessages().back().text, "Failure to find procedure registerForw in DLL "
                                           "ERRTEXTS.DLL.");
    kvTableRemoveEntry_CLASSLOCATION("Forw");
}

} // namespace
} // namespace kova::test
