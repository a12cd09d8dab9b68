// Single-instance classes: every creation of a OneInstance subclass answers
// the class's one object with one more reference; deletions count down and
// the last one frees it.
#include "tests/KernelFixture.hpp"

namespace kova::test {
namespace {

class OneInstanceTest : public KernelTest {
  protected:
    static kvResult refs(kvObject obj) { return kvSendMeth(nullptr, obj, "getRefCount"); }
    static kvResult initArg(kvObject obj) { return kvSendMeth(nullptr, obj, "getInitArg"); }
    static kvResult soloTermCalls() {
        return kvSendClMeth(nullptr, kvFindClass("Solo"), "termCalls");
    }
};

TEST_F(OneInstanceTest, CreationsShareOneObjectUntilTheLastDeletion) {
    kvObject first = kvNewObject(&error, "Solo", 7);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(refs(first), 1);
    kvObject second = kvNewObject(&error, "Solo", 9);
    EXPECT_EQ(second, first);
    EXPECT_EQ(refs(first), 2);
    EXPECT_EQ(initArg(first), 7) << "a second creation does not initialise again";
    EXPECT_EQ(kvSendMeth(&error, first, "getInitCalls"), 1);

    const kvResult termsBefore = soloTermCalls();
    kvDelObject(&error, second);
    EXPECT_EQ(soloTermCalls(), termsBefore + 1) << "each deletion runs the objTerm chain";
    EXPECT_EQ(refs(first), 1);
    EXPECT_EQ(initArg(first), 7) << "the surviving object keeps its data";
    kvDelObject(&error, first);
    EXPECT_EQ(soloTermCalls(), termsBefore + 2);

    kvObject fresh = kvNewObject(&error, "Solo", 11);
    EXPECT_EQ(initArg(fresh), 11) << "the freed object left the instance table";
    EXPECT_EQ(refs(fresh), 1);
    kvDelObject(&error, fresh);
}

TEST_F(OneInstanceTest, EachSubclassHasAnObjectOfItsOwn) {
    kvObject solo = kvNewObject(&error, "Solo", 1);
    kvObject duet = kvNewObject(&error, "Duet");
    ASSERT_NE(duet, nullptr);
    EXPECT_NE(duet, solo);
    EXPECT_EQ(kvNewObject(&error, "Duet"), duet);
    EXPECT_EQ(refs(duet), 2);
    EXPECT_EQ(refs(solo), 1);

    kvDelObject(&error, solo);
    EXPECT_EQ(kvNewObject(&error, "Duet"), duet) << "Duet's entry outlives Solo's";
    EXPECT_EQ(refs(duet), 3);
    for (int i = 0; i < 3; ++i)
        kvDelObject(&error, duet);
}

TEST_F(OneInstanceTest, ExtraRemovedReferencesStopAtZero) {
    kvObject solo = kvNewObject(&error, "Solo", 1);
    kvSendMeth(&error, solo, "removeReference");
    kvSendMeth(&error, solo, "removeReference");
    EXPECT_EQ(refs(solo), 0);
    kvSendMeth(&error, solo, "addReference");
    EXPECT_EQ(refs(solo), 1);
    kvDelObject(&error, solo); // frees it: the sanitizer checks nothing is left
}

// Each allocation of a first creation is failed in turn. A failed creation
// answers null and leaves nothing behind (the leak checker sees to the
// rest); the next one succeeds as if nothing had happened.
TEST_F(OneInstanceTest, FailedCreationLeavesNoHalfMadeObject) {
    // One full round first, so that method caches allocate nothing below.
    kvDelObject(&error, kvNewObject(&error, "Solo", 1));
    ASSERT_EQ(error, nullptr);
    const kvResult termsBefore = soloTermCalls();
    kvObject solo = nullptr;
    const int failures =
        failEachAllocation([&] { return (solo = kvNewObject(&error, "Solo", 5)) != nullptr; },
                           [&] { clearErrors(error); });
    EXPECT_GE(failures, 6) << "table, its data, object, its data, row copy, row array";
    EXPECT_EQ(soloTermCalls(), termsBefore + 2) << "an object that could not be entered is "
                                                   "deleted again";
    EXPECT_EQ(refs(solo), 1);
    EXPECT_EQ(kvNewObject(&error, "Solo", 6), solo);
    kvDelObject(&error, solo);
    kvDelObject(&error, solo);
}

} // namespace
} // namespace kova::test
