// Sends by name: where a method is found, which instance data it gets, what
// happens when nobody defines it, and how the per-class cache behaves.
#include "tests/KernelFixture.hpp"

#include <cstring>
#include <string>

namespace kova::test {
namespace {

class DispatchTest : public KernelTest {};

TEST_F(DispatchTest, OverridingMethodIsFoundInTheClassAndParentSendReachesTheAncestor) {
    kvObject error = nullptr;
    kvObject square = kvNewObject(&error, "Square", 4, 3);
    ASSERT_NE(square, nullptr);
    EXPECT_EQ(kvSendMeth(&error, square, "area"), 9);
    // Square's getSides asks Shape's version, which reads Shape's own slice.
    EXPECT_EQ(kvSendMeth(&error, square, "getSides"), 40);
    EXPECT_EQ(kvSendParentMeth(&error, kvFindClass("Polygon"), square, "getSides"), 4);
    // objInit ran once per class of the chain, root first, sharing the arguments.
    EXPECT_EQ(kvSendMeth(&error, square, "getInitCalls"), 1);
    EXPECT_EQ(error, nullptr);
    kvDelObject(&error, square);
}

TEST_F(DispatchTest, ClassAddingNoMethodsAnswersItsAncestors) {
    kvObject error = nullptr;
    kvObject polygon = kvNewObject(&error, "Polygon", 5);
    EXPECT_EQ(kvSendMeth(&error, polygon, "getSides"), 5);
    EXPECT_STREQ(reinterpret_cast<const char*>(kvSendMeth(&error, polygon, "describe")), "Polygon");
    kvClass found = nullptr;
    EXPECT_NE(kvFindMethod(&found, kvFindClass("Polygon"), "setSides", 0), nullptr);
    EXPECT_EQ(found, kvFindClass("Shape"));
    kvDelObject(&error, polygon);
}

TEST_F(DispatchTest, InstanceDataSlicesFollowTheChain) {
    const kvClass object = kvFindClass("Object");
    const kvClass shape = kvRegisterClass("Shape");
    const kvClass square = kvRegisterClass("Square");
    ASSERT_TRUE(object && shape && square);
    EXPECT_EQ(object->dataOffset, 0);
    EXPECT_EQ(object->instanceSize, 2);
    EXPECT_EQ(shape->dataOffset, 2);
    EXPECT_EQ(kvFindClass("Polygon")->dataOffset, shape->dataOffset + shape->instanceSize);
    EXPECT_EQ(square->dataOffset, kvFindClass("Polygon")->dataOffset);
    EXPECT_EQ(square->parent, kvFindClass("Polygon"));
}

TEST_F(DispatchTest, UnknownMethodLeavesError3427AndAnswersZero) {
    kvObject error = nullptr;
    kvObject shape = kvNewObject(&error, "Shape", 3);
    EXPECT_EQ(kvSendMeth(&error, shape, "frobnicate", 1, 2), 0);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(errorCode(error), 3427);
    EXPECT_EQ(errorMessage(error), "An unimplemented method frobnicate was sent to class Shape");
    EXPECT_EQ(kvSendMeth(nullptr, error, "getHelpFileContextID"), 4002);
    clearErrors(error);
    kvDelObject(&error, shape);
}

TEST_F(DispatchTest, NullReceiverIsShownAndAnswersZero) {
    kvObject error = nullptr;
    EXPECT_EQ(kvSendMeth(&error, nullptr, "area"), 0);
    ASSERT_EQ(shownMessages().size(), 1u);
    EXPECT_EQ(shownMessages()[0].text,
              "An attempt was made to send method area to a null object reference.");
    EXPECT_EQ(shownMessages()[0].caption, "KOVA Kernel Error");
    EXPECT_EQ(shownMessages()[0].style & KV_MB_SYSTEMMODAL, KV_MB_SYSTEMMODAL);
    EXPECT_EQ(error, nullptr);
}

TEST_F(DispatchTest, RootHasNoParentToSendTo) {
    kvObject error = nullptr;
    kvObject shape = kvNewObject(&error, "Shape", 3);
    EXPECT_EQ(kvSendParentMeth(&error, kvFindClass("Object"), shape, "objInit"), -1);
    EXPECT_EQ(kvSendParentMeth(&error, nullptr, shape, "objInit"), -1);
    EXPECT_EQ(kvSendClParentMeth(&error, kvFindClass("Object"), "classInit"), 0);
    EXPECT_EQ(error, nullptr);
    kvDelObject(&error, shape);
}

TEST_F(DispatchTest, ClassMethodsRunWithTheirReceiverAndParentClassMethodsWithTheParent) {
    kvObject error = nullptr;
    const kvClass square = kvRegisterClass("Square");
    EXPECT_EQ(kvSendClMeth(&error, kvFindClass("Shape"), "unitSides"), 1);
    EXPECT_EQ(kvSendClMeth(&error, square, "unitSides"), 2);
    EXPECT_EQ(kvSendClParentMeth(&error, kvFindClass("Polygon"), "unitSides"), 1);
    EXPECT_EQ(kvSendClMeth(&error, nullptr, "unitSides"), 0);
    EXPECT_EQ(error, nullptr);
}

TEST_F(DispatchTest, MissingClassMethodEndsIn3427InsteadOfRecursing) {
    kvObject error = nullptr;
    EXPECT_EQ(kvSendClMeth(&error, kvRegisterClass("Square"), "noSuchClassMethod", 7), 0);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(errorCode(error), 3427);
    EXPECT_EQ(errorMessage(error),
              "An unimplemented method noSuchClassMethod was sent to class Square");
    clearErrors(error);
}

TEST_F(DispatchTest, NamesAreComparedOnTheirFirst32Bytes) {
    kvObject error = nullptr;
    kvObject wide = kvNewObject(&error, "Wide");
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(kvSendMeth(&error, wide, "m042"), 42);
    // A name equal to a method in its first 32 bytes is that method.
    char name[40] = "m007";
    std::memcpy(name + 32, "junk", 5);
    EXPECT_EQ(kvSendMeth(&error, wide, name), 7);
    EXPECT_EQ(error, nullptr);
    kvDelObject(&error, wide);
}

TEST_F(DispatchTest, AddingAClassTwiceKeepsTheFirst) {
    const kvClass shape = kvRegisterClass("Shape");
    kvMethodTable empty{0, nullptr};
    EXPECT_EQ(kvAddClass("Shape", "Object", 99, 0, &empty, &empty), shape);
    EXPECT_NE(shape->instanceSize, 99);
    EXPECT_EQ(kvFindMethod(nullptr, shape, "area", 0)->argCount, 0);
}

// Bucket of a method name in a class's cache: the kernel's documented function.
unsigned bucketOf(const char* name) {
    uint16_t h = 0;
    for (const char* p = name; *p; ++p)
        h = static_cast<uint16_t>(static_cast<signed char>(*p) + 2 * h);
    return h % 64u;
}

TEST_F(DispatchTest, CacheStopsGrowingOccupiedBucketsAt200Entries) {
    const kvClass wide = kvRegisterClass("Wide");
    ASSERT_NE(wide, nullptr);
    bool used[64] = {};
    char name[16];
    int index = 0;
    for (; wide->cacheCount < 200; ++index) {
        std::snprintf(name, sizeof name, "m%03d", index);
        ASSERT_NE(kvFindMethod(nullptr, wide, name, 0), nullptr);
        used[bucketOf(name)] = true;
    }
    // Every further name lands in an occupied bucket: its oldest entry is reused.
    for (; index < 260; ++index) {
        std::snprintf(name, sizeof name, "m%03d", index);
        ASSERT_TRUE(used[bucketOf(name)]) << name;
        kvClass found = nullptr;
        ASSERT_NE(kvFindMethod(&found, wide, name, 0), nullptr);
        EXPECT_EQ(found, wide);
        EXPECT_EQ(wide->cacheCount, 200u);
    }
    // An inherited name whose bucket is still empty gets an entry of its own.
    for (const char* inherited : {"isA", "print", "objInit", "respondsTo", "getFreeMem"}) {
        if (used[bucketOf(inherited)]) continue;
        ASSERT_NE(kvFindMethod(nullptr, wide, inherited, 0), nullptr);
        EXPECT_EQ(wide->cacheCount, 201u);
        break;
    }
    // Recycled or not, every name is still found with its own procedure.
    kvObject error = nullptr;
    kvObject object = kvNewObject(&error, "Wide");
    for (int i = 0; i < 260; i += 37) {
        std::snprintf(name, sizeof name, "m%03d", i);
        EXPECT_EQ(kvSendMeth(&error, object, name), i);
    }
    kvDelObject(&error, object);
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
}

TEST_F(DispatchTest, ClassNamesBeyond19CharactersAreRefused) {
    kvMethodTable empty{0, nullptr};
    EXPECT_EQ(kvAddClass("ABCDEFGHIJKLMNOPQRST", nullptr, 0, 0, &empty, &empty), nullptr);
    EXPECT_EQ(kvAddClass(nullptr, nullptr, 0, 0, &empty, &empty), kvFindClass("Object"));
    EXPECT_EQ(kvFindClass("ABCDEFGHIJKLMNOPQRST"), nullptr);
}

} // namespace
} // namespace kova::test
