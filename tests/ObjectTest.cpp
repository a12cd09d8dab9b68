// Objects and the root class: creation and deletion, zero-filled data, the
// answers of Object's methods, and the out-of-memory paths of creation.
#include "tests/KernelFixture.hpp"

namespace kova::test {
namespace {

class ObjectTest : public KernelTest {};

TEST_F(ObjectTest, ObjectOfAClassWithoutDataHasNoDataBlock) {
    kvObject wide = make("Wide");
    ASSERT_NE(wide, nullptr);
    // Object's own 2 bytes are always there.
    EXPECT_NE(wide->data, nullptr);
    EXPECT_EQ(wide->cls, kvFindClass("Wide"));

    kvObject bare = kvAllocObject();
    ASSERT_NE(bare, nullptr);
    EXPECT_EQ(bare->data, nullptr);
    EXPECT_EQ(bare->flags, 0);
    EXPECT_EQ(kvFreeObject(bare), 0);
}

// Each class's slice starts where its parent's ends; Object owns the first 2
// bytes, and a class adding no data shares its offset with its child.
TEST_F(ObjectTest, DataSlicesFollowTheChainAndStartZero) {
    kvObject square = make("Square");
    ASSERT_NE(square, nullptr);
    const kvClass cls = square->cls;
    const kvClass shape = kvFindClass("Shape"), polygon = kvFindClass("Polygon");
    EXPECT_EQ(kvFindClass("Object")->instanceSize, 2);
    EXPECT_EQ(shape->dataOffset, 2);
    EXPECT_EQ(polygon->dataOffset, shape->dataOffset + shape->instanceSize);
    EXPECT_EQ(cls->dataOffset, polygon->dataOffset);
    EXPECT_EQ(square->ownDataOffset, cls->dataOffset);
    const auto* bytes = static_cast<const unsigned char*>(square->data);
    const size_t initCounter = kvFindClass("Shape")->dataOffset + 4u;
    for (size_t i = 0; i < size_t(cls->dataOffset) + cls->instanceSize; ++i) {
        if (i >= initCounter && i < initCounter + 4) continue; // Shape counts its objInit calls
        EXPECT_EQ(bytes[i], 0) << "byte " << i;
    }
}

TEST_F(ObjectTest, IsAAnswersMinusOneForTheChainAndRespondsToOne) {
    kvObject square = kvNewObject(&error, "Square", 4, 2);
    for (const char* name : {"Square", "Polygon", "Shape", "Object"})
        EXPECT_EQ(kvSendMeth(&error, square, "isA", name), -1) << name;
    EXPECT_EQ(kvSendMeth(&error, square, "isA", "Listener"), 0);
    EXPECT_EQ(kvSendMeth(&error, square, "isA", static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(kvSendMeth(&error, square, "respondsTo", "setSides"), 1);
    EXPECT_EQ(kvSendMeth(&error, square, "respondsTo", "fly"), 0);
    const auto* record = reinterpret_cast<const kvMethodRecord*>(
        kvSendMeth(&error, square, "getMethodPointer", "area"));
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->name, "area");
    EXPECT_EQ(record, kvFindMethod(nullptr, kvFindClass("Square"), "area", 0));
    EXPECT_EQ(kvSendMeth(&error, square, "print"), 0);
    EXPECT_GT(kvSendMeth(&error, square, "getFreeMem"), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(kvDelObject(&error, square), -1); // the root's answer travels back up
}

TEST_F(ObjectTest, UnknownClassAndNullObjectAreHarmless) {
    EXPECT_EQ(kvNewObject(&error, "NoSuchClass"), nullptr);
    EXPECT_EQ(error, nullptr);
    EXPECT_FALSE(shownMessages().empty()); // the loader said why
    EXPECT_EQ(kvDelObject(&error, nullptr), 0);
}

// Creation allocates the header, then the data block, then (on failure) the
// error that reports it.
TEST_F(ObjectTest, CreationWithoutMemoryAnswersNullAndSaysWhyWhereItCan) {
    kvRegisterClass("Square");
    kvRegisterClass("KOVAErr");
    kvDebugFailAllocAfter(0);
    EXPECT_EQ(kvNewObject(&error, "Square", 1, 1), nullptr);
    kvDebugFailAllocAfter(-1);
    EXPECT_EQ(error, nullptr);

    kvDebugFailAllocOnce(1);
    EXPECT_EQ(kvNewObject(&error, "Square", 1, 1), nullptr);
    EXPECT_EQ(errorMessage(error), "Allocation of object instance data failed");
    EXPECT_EQ(takeError(), 3426);

    kvDebugFailAllocAfter(1);
    EXPECT_EQ(kvNewObject(&error, "Square", 1, 1), nullptr);
    kvDebugFailAllocAfter(-1);
    EXPECT_EQ(error, nullptr);
    ASSERT_FALSE(shownMessages().empty());
    EXPECT_EQ(shownMessages().back().text, "Unable to allocate memory for error.");
    EXPECT_EQ(shownMessages().back().caption, "KOVA Error");
}

TEST_F(ObjectTest, UtilSetStringReplacesKeepsOrClears) {
    char* slot = nullptr;
    EXPECT_STREQ(utilSetString(&slot, "first"), "first");
    char* first = slot;
    kvDebugFailAllocAfter(0);
    EXPECT_EQ(utilSetString(&slot, "second"), nullptr);
    kvDebugFailAllocAfter(-1);
    EXPECT_EQ(slot, first);
    EXPECT_STREQ(utilSetString(&slot, "second"), "second");
    EXPECT_EQ(utilSetString(&slot, nullptr), nullptr);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(utilSetString(nullptr, "x"), nullptr);
    void* block = hRealloc(nullptr, 0, 16);
    ASSERT_NE(block, nullptr);
    block = hRealloc(block, 123, 64);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(hRealloc(block, 0, 0), nullptr); // size 0 frees
}

} // namespace
} // namespace kova::test
