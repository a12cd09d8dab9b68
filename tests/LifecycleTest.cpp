// Starting and stopping the kernel, loading class libraries on demand,
// parameter lists and the hierarchy dump.
#include "tests/KernelFixture.hpp"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace kova::test {
namespace {

TEST(Lifecycle, UseCountKeepsTheCoreUpUntilTheLastTerminate) {
    EXPECT_EQ(kvFindClass("Object"), nullptr);
    kvInitialize();
    kvInitialize();
    EXPECT_NE(kvFindClass("BaseError"), nullptr);
    EXPECT_EQ(kvFindClass("BaseError")->parent, kvFindClass("Object"));
    EXPECT_GT(kvTableGetCount_CLASSLOCATION(), 0u);
    kvTerminate();
    EXPECT_NE(kvFindClass("Object"), nullptr);
    kvTerminate();
    EXPECT_EQ(kvFindClass("Object"), nullptr);
    EXPECT_EQ(kvGetClassCount(), 0u);
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 0u);
    EXPECT_EQ(kvTerminate(), 0); // beyond the count: nothing
}

TEST(Lifecycle, CoreInitializeAnswersBaseErrorAndObjectComesFirst) {
    const kvClass baseError = kvCoreInitialize();
    ASSERT_NE(baseError, nullptr);
    EXPECT_STREQ(kvClassName(baseError), "BaseError");
    EXPECT_STREQ(kvClassName(kvGetClassAt(0)), "Object");
    kvCoreTerminate();
    EXPECT_EQ(kvGetClassCount(), 0u);
}

TEST(Lifecycle, ParameterListsEndAtMinusOneAndAfter32Pairs) {
    int32_t list[] = {7, 70, 0x10008, 80, -1, 0};
    EXPECT_EQ(kvGetParam(list, 7, 5), 70);
    EXPECT_EQ(kvGetParam(list, 8, 5), 80); // only the low half of the id word counts
    EXPECT_EQ(kvGetParam(list, 9, 5), 5);
    EXPECT_EQ(kvGetParam(nullptr, 7, 5), 5);
    int32_t ended[] = {-1, 0, 7, 70};
    EXPECT_EQ(kvGetParam(ended, 7, 5), 5);
    EXPECT_EQ(kvSetParam(list, 7, 71), 70);
    EXPECT_EQ(kvSetParam(list, 7, 72), 71);
    EXPECT_EQ(kvSetParam(list, 9, 1), -1);
    EXPECT_EQ(kvSetParam(nullptr, 7, 1), -1);
    int32_t long33[2 * 33 + 2];
    for (int i = 0; i < 33; ++i) {
        long33[2 * i] = i + 100;
        long33[2 * i + 1] = i;
    }
    long33[66] = -1;
    EXPECT_EQ(kvGetParam(long33, 131, -9), 31);
    EXPECT_EQ(kvGetParam(long33, 132, -9), -9);
}

TEST(Lifecycle, DebugBreakIsNeverRequested) {
    EXPECT_EQ(kvDebugShouldMethodBreak(nullptr, "objInit", "Object"), 0);
}

class ClassLibraryTest : public KernelTest {};

TEST_F(ClassLibraryTest, ClassesLoadFromTheirLibraryWithTheirParentsFirst) {
    const kvClass square = kvRegisterClass("Square");
    ASSERT_NE(square, nullptr);
    EXPECT_NE(kvFindClass("Polygon"), nullptr);
    EXPECT_NE(kvFindClass("Shape"), nullptr);
    EXPECT_NE(square->library, nullptr);
    // The class location table ignores case; the class table does not.
    EXPECT_STREQ(kvTableFind_CLASSLOCATION("square"), "TESTSHP.DLL");
    EXPECT_EQ(kvFindClass("square"), nullptr);
}

TEST_F(ClassLibraryTest, KernelClassesNeedNoTableEntry) {
    kvProc proc = nullptr;
    kvModule module = kvLoadClassLibrary("KOVAErr", &proc);
    ASSERT_NE(module, nullptr);
    EXPECT_NE(proc, nullptr);
    EXPECT_EQ(module, kvGetKOVAInstance());
    EXPECT_TRUE(shownMessages().empty());
    // Release the reference the loader gave us.
    kvTableInsertEntry_CLASSLOCATION("Spare", "KOVA32.DLL");
    EXPECT_NE(kvRegisterClass("KOVAErr"), nullptr);
}

TEST_F(ClassLibraryTest, ModulesAndTheProgramNameTheirFiles) {
    char path[1024];
    const uint32_t kernelLength = kvGetModuleFileName(kvGetKOVAInstance(), path, sizeof path);
    ASSERT_GT(kernelLength, 0u);
    const std::filesystem::path kernel(path);
    EXPECT_TRUE(kernel.is_absolute()) << path;
    EXPECT_TRUE(std::filesystem::exists(kernel)) << path;
    const uint32_t programLength = kvGetModuleFileName(nullptr, path, sizeof path);
    ASSERT_GT(programLength, 0u);
    EXPECT_TRUE(std::filesystem::exists(path)) << path;
    EXPECT_EQ(std::filesystem::path(path).parent_path(), kernel.parent_path())
        << "the tests run beside the kernel";
    // A buffer too small holds the start of the name and learns its length.
    char small[5] = "xxxx";
    EXPECT_EQ(kvGetModuleFileName(nullptr, small, sizeof small), programLength);
    EXPECT_EQ(std::string(small), std::string(path, 4));
    EXPECT_EQ(kvGetModuleFileName(nullptr, nullptr, 10), 0u);
    EXPECT_EQ(kvGetModuleFileName(nullptr, small, 0), programLength);
}

TEST_F(ClassLibraryTest, MissingLibraryIsShownAndGivesNull) {
    kvTableInsertEntry_CLASSLOCATION("Ghost", "NOSUCH.DLL");
    EXPECT_EQ(kvRegisterClass("Ghost"), nullptr);
    ASSERT_EQ(shownMessages().size(), 1u);
    EXPECT_EQ(shownMessages()[0].caption, "KOVA Kernel Error");
    EXPECT_EQ(shownMessages()[0].text.rfind("Failure to load DLL NOSUCH.DLL, Error returned by "
                                            "LoadLibrary: ",
                                            0),
              0u);
}

TEST_F(ClassLibraryTest, MissingRegistrationProcedureIsShownAndGivesNull) {
    kvTableInsertEntry_CLASSLOCATION("Phantom", "TESTSHP.DLL");
    kvProc proc = reinterpret_cast<kvProc>(&KernelTest::SetUpTestSuite);
    EXPECT_EQ(kvLoadClassLibrary("Phantom", &proc), nullptr);
    EXPECT_EQ(proc, nullptr);
    ASSERT_EQ(shownMessages().size(), 1u);
    EXPECT_EQ(shownMessages()[0].text, "Failure to find procedure registerPhantom in DLL "
                                       "TESTSHP.DLL.");
    EXPECT_EQ(kvRegisterClass("NotAnywhere"), nullptr);
    EXPECT_EQ(shownMessages().back().text, "Failure to find procedure registerNotAnywhere in DLL "
                                           "KOVA32.DLL.");
}

TEST_F(ClassLibraryTest, HierarchyDumpIndentsChildrenThreeBlanksPerLevel) {
    kvRegisterClass("KOVAErr");
    kvRegisterClass("Square");
    kvRegisterClass("Listener");
    kvPrintHierarchy(0);
    std::ifstream dump("classdump.txt");
    std::stringstream text;
    text << dump.rdbuf();
    const std::string written = text.str();
    EXPECT_EQ(written, "Object   BaseError      KOVAErr   Shape      Polygon         Square"
                       "   Listener");
}

} // namespace
} // namespace kova::test
