// What the platform layer gives alike on POSIX and on Windows: the kernel's
// resources, compiled-in tables on one and resource-compiler output on the
// other, hold exactly what their sources say; class libraries are found by
// their table names in any case.
#include "errors/KernelMessageList.hpp"
#include "kernel/BuiltInClassLocations.hpp"
#include "tests/KernelFixture.hpp"

#include <cstring>
#include <string>
#include <vector>

namespace kova::test {
namespace {

using kova::errors::KernelMessage;
using kova::errors::kernelMessages;
using kova::kernel::builtInRows;

class KernelResourcesTest : public KernelTest {};

TEST_F(KernelResourcesTest, BuiltInClassLocationsAreTheRowsOfTheirSource) {
    ASSERT_EQ(KovaClassLocationInit4(), 1);
    ASSERT_EQ(kvTableGetCount_CLASSLOCATION(), std::size(builtInRows));
    for (size_t i = 0; i < std::size(builtInRows); ++i) {
        const auto& row = builtInRows[i];
        ASSERT_STREQ(kvTableGetKey_CLASSLOCATION(i), row.className) << "row " << i;
        EXPECT_STREQ(kvTableFind_CLASSLOCATION(row.className), row.libraryName) << row.className;
    }
}

// A message without arguments reads as its text; one with arguments at least
// up to its first conversion.
TEST_F(KernelResourcesTest, EveryKernelMessageCarriesItsTextAndHelpContext) {
    for (const KernelMessage& entry : kernelMessages) {
        const std::string source = entry.text;
        const size_t blank = source.rfind(' ');
        ASSERT_NE(blank, std::string::npos) << entry.number;
        const std::string text = source.substr(0, blank);
        const auto helpContext = static_cast<uint16_t>(std::stoi(source.substr(blank + 1)));

        kvObject error = kvMakeError(entry.number);
        ASSERT_NE(error, nullptr) << entry.number;
        EXPECT_EQ(static_cast<uint16_t>(kvSendMeth(nullptr, error, "getHelpFileContextID")),
                  helpContext)
            << entry.number;
        const std::string message = errorMessage(error);
        const size_t conversion = text.find('%');
        if (conversion == std::string::npos)
            EXPECT_EQ(message, text) << entry.number;
        else
            EXPECT_EQ(message.substr(0, conversion), text.substr(0, conversion)) << entry.number;
        clearErrors(error);
    }
}

TEST_F(KernelResourcesTest, NumbersOutsideTheTableHaveNoText) {
    for (int32_t number : {3425, 3486, 3526}) {
        kvObject error = kvMakeError(number);
        EXPECT_EQ(errorMessage(error), "Message for error not found in registry.") << number;
        clearErrors(error);
    }
}

class LibraryNameTest : public KernelTest {};

// Windows matches file names without regard to case; the POSIX mapping of
// NAME.DLL to libname.so does the same, so a table behaves alike on both.
TEST_F(LibraryNameTest, TableNamesFindTheirLibraryInAnyCase) {
    kvProc registerProc = nullptr;
    const kvModule library = kvLoadClassLibrary("Square", &registerProc); // "TESTSHP.DLL"
    ASSERT_NE(library, nullptr);
    for (const char* name : {"testshp.dll", "TestShp.Dll"}) {
        ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("Square", name), 1);
        registerProc = nullptr;
        EXPECT_EQ(kvLoadClassLibrary("Square", &registerProc), library) << name;
        EXPECT_NE(registerProc, nullptr) << name;
    }
    EXPECT_TRUE(shownMessages().empty()) << shownMessages()[0].text;
}

} // namespace
} // namespace kova::test
