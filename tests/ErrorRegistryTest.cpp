// The error registry: registering error message files, error table resources
// and libraries, looking texts and help up, reference counting, hostile lines,
// running out of memory, and the status texts.
#include "kova/errreg.h"
#include "tests/KernelFixture.hpp"

#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace kova::test {
namespace {

class ErrorRegistryTest : public FileTest {
  protected:
    // Registers `content` as the file of `module`; the handle, or 0 on failure.
    uint16_t registerText(const char* module, const std::string& content,
                          const char* helpFile = "TEST.HLP") {
        uint16_t handle = 0;
        EXPECT_EQ(ErrRegisterFile(module, writeFile(content).c_str(), helpFile, &handle),
                  ERR_REG_OK);
        return handle;
    }

    // The text of `number`, or "<status N>" when there is none.
    static std::string message(uint16_t handle, int16_t number) {
        char buffer[256];
        const int status = ErrGetMsg(handle, number, buffer, sizeof buffer);
        return status == ERR_REG_OK ? buffer : "<status " + std::to_string(status) + ">";
    }

    static uint16_t helpContext(uint16_t handle, int16_t number) {
        uint16_t context = 0;
        char file[256];
        EXPECT_EQ(ErrGetHelpInfo(handle, number, &context, file, sizeof file), ERR_REG_OK);
        return context;
    }

    static std::string statusText(int code) {
        char buffer[128];
        EXPECT_EQ(ErrGetRegErrorString(code, buffer, sizeof buffer), ERR_REG_OK);
        return buffer;
    }
};

TEST_F(ErrorRegistryTest, FileLinesGiveTextsAndHelpContexts) {
    const uint16_t handle = registerText("Scanner", "3427 \"An unimplemented method %s\" 4002\n"
                                                    "  -5\t\"Negative, with tabs\"\t17  \r\n"
                                                    "\n"
                                                    "12 \"\" 0\n"
                                                    "5 \"first\" 1\n5 \"second\" 2\n"
                                                    "7 \"last line without a line feed\" 65535");
    ASSERT_NE(handle, 0);
    EXPECT_EQ(message(handle, 3427), "An unimplemented method %s");
    EXPECT_EQ(helpContext(handle, 3427), 4002);
    EXPECT_EQ(message(handle, -5), "Negative, with tabs");
    EXPECT_EQ(helpContext(handle, -5), 17);
    EXPECT_EQ(message(handle, 12), "");
    EXPECT_EQ(helpContext(handle, 7), 65535);
    EXPECT_EQ(message(handle, 5), "first"); // the first line of a number wins
    EXPECT_EQ(helpContext(handle, 5), 1);
    EXPECT_EQ(message(handle, 3428), "<status 15>");
    EXPECT_EQ(ErrUnRegisterFile(handle), ERR_REG_OK);
    EXPECT_EQ(message(handle, 3427), "<status 6>");
}

TEST_F(ErrorRegistryTest, RepeatedRegistrationCountsTwiceAndKeepsTheFirstHandle) {
    const uint16_t handle = registerText("Twice", "1 \"one\" 1\n");
    uint16_t second = 0xBEEF;
    // A repeat is recognised by the module name alone: its file is never opened.
    EXPECT_EQ(ErrRegisterFile("Twice", "no such file", nullptr, &second), ERR_REG_OK);
    EXPECT_EQ(second, 0xBEEF);

    // The count is 3, so the texts survive two unregistrations.
    EXPECT_EQ(ErrUnRegisterFile(handle), ERR_REG_OK);
    EXPECT_EQ(ErrUnRegisterRes(handle), ERR_REG_OK);
    EXPECT_EQ(message(handle, 1), "one");
    EXPECT_EQ(ErrUnRegisterDLL(handle), ERR_REG_OK);
    EXPECT_EQ(ErrUnRegisterFile(handle), ERR_REG_RECORD_NOT_FOUND);
}

TEST_F(ErrorRegistryTest, FileOfMalformedLinesRegistersWithoutMessages) {
    const uint16_t handle = registerText("Garbled", "no number \"text\" 1\n"
                                                    "12 no quotes 3\n"
                                                    "13 \"unclosed 4\n"
                                                    "14 \"no help context\"\n");
    ASSERT_NE(handle, 0);
    for (int16_t number : {0, 12, 13, 14})
        EXPECT_EQ(message(handle, number), "<status 15>");
    EXPECT_EQ(ErrUnRegisterFile(handle), ERR_REG_OK);
}

// A line of exactly `length` characters: number, text, blanks, help context.
std::string paddedLine(int number, size_t length) {
    std::string line = std::to_string(number) + " \"padded\"";
    return line + std::string(length - line.size() - 1, ' ') + "9";
}

TEST_F(ErrorRegistryTest, HostileLinesAreSkippedWholeAndTheirNeighboursKept) {
    // Cut at 510 or 511 characters, the tail of this line would read as line 61.
    const std::string tooLong = std::string(509, 'y') + "  61 \"tail\" 2";
    const std::string file = "1 \"before\" 1\n" + paddedLine(50, 510) + "\r\n" +
                             paddedLine(51, 511) + "\n" + tooLong + "\n" +
                             std::string("2 \"nul\0byte\" 1\n", 15) +
                             "3 \"bell\a\" 1\n"
                             "32768 \"too big\" 1\n"
                             "-32769 \"too small\" 1\n"
                             "-32768 \"smallest\" 1\n"
                             "4 \"help too big\" 65536\n"
                             "5 \"trailing\" 1 x\n"
                             "6 \"" +
                             std::string(300, 'z') +
                             "\" 1\n"
                             "9 \"after\" 9\n";
    const uint16_t handle = registerText("Hostile", file);
    EXPECT_EQ(message(handle, 1), "before");
    EXPECT_EQ(message(handle, 50), "padded");
    for (int16_t number : {51, 61, 2, 3, 4, 5, 32767})
        EXPECT_EQ(message(handle, number), "<status 15>") << number;
    EXPECT_EQ(message(handle, -32768), "smallest");
    EXPECT_EQ(message(handle, 6), std::string(255, 'z'));
    EXPECT_EQ(message(handle, 9), "after");
    EXPECT_EQ(ErrUnRegisterFile(handle), ERR_REG_OK);
}

#ifndef _WIN32
// An input that never ends, an endless line or endless well-formed lines, is
// read only as far as an error message file can reach, then refused.
TEST_F(ErrorRegistryTest, InputThatNeverEndsIsRefusedAsInvalid) {
    uint16_t handle = 0;
    EXPECT_EQ(ErrRegisterFile("Zeros", "/dev/zero", nullptr, &handle), ERR_REG_INVALID_LINE);
    std::FILE* lines = ::popen("yes '1 \"Endless\" 2'", "r");
    ASSERT_NE(lines, nullptr);
    const std::string path = "/dev/fd/" + std::to_string(::fileno(lines));
    EXPECT_EQ(ErrRegisterFile("Lines", path.c_str(), nullptr, &handle), ERR_REG_INVALID_LINE);
    ::pclose(lines);
    EXPECT_EQ(handle, 0);
}
#endif

TEST_F(ErrorRegistryTest, UnregisteringMovesTheLastRecordIntoTheGap) {
    const uint16_t a = registerText("A", "1 \"a\" 1\n");
    const uint16_t b = registerText("B", "1 \"b\" 2\n");
    const uint16_t c = registerText("C", "1 \"c\" 3\n");
    EXPECT_TRUE(a < b && b < c);
    EXPECT_EQ(ErrUnRegisterFile(a), ERR_REG_OK);
    EXPECT_EQ(message(a, 1), "<status 8>");
    EXPECT_EQ(message(b, 1), "b");
    EXPECT_EQ(message(c, 1), "c");
    EXPECT_EQ(helpContext(c, 1), 3);
    const uint16_t d = registerText("A", "1 \"a again\" 4\n");
    EXPECT_GT(d, c); // handles are never reused while the counter runs
    EXPECT_EQ(ErrUnRegisterFile(c), ERR_REG_OK);
    EXPECT_EQ(message(b, 1), "b");
    EXPECT_EQ(message(d, 1), "a again");
    EXPECT_EQ(ErrUnRegisterFile(b), ERR_REG_OK);
    EXPECT_EQ(ErrUnRegisterFile(d), ERR_REG_OK);
}

TEST_F(ErrorRegistryTest, RunningOutOfMemoryLeavesTheRegistryAsItWas) {
    const uint16_t resident = registerText("Resident", "1 \"resident\" 1\n");
    std::string lines;
    for (int number = 0; number < 40; ++number) // enough to grow the message block
        lines += std::to_string(number) + " \"text " + std::to_string(number) + "\" 1\n";
    const std::string path = writeFile(lines);

    int failures = 0;
    for (long allowed = 0;; ++allowed) {
        uint16_t handle = 0;
        kvDebugFailAllocAfter(allowed);
        const int status = ErrRegisterFile("Hungry", path.c_str(), nullptr, &handle);
        kvDebugFailAllocAfter(-1);
        EXPECT_EQ(message(resident, 1), "resident");
        if (status == ERR_REG_OK) {
            EXPECT_EQ(message(handle, 39), "text 39");
            // Counted once: a failed attempt left no record behind.
            EXPECT_EQ(ErrUnRegisterFile(handle), ERR_REG_OK);
            EXPECT_EQ(message(handle, 39), "<status 8>");
            break;
        }
        ASSERT_EQ(status, ERR_REG_MEMORY);
        EXPECT_EQ(handle, 0);
        ++failures;
    }
    EXPECT_GE(failures, 3);
    EXPECT_EQ(ErrUnRegisterFile(resident), ERR_REG_OK);
}

TEST_F(ErrorRegistryTest, ArgumentsAndHandlesAreChecked) {
    uint16_t handle = 0;
    char buffer[16];
    EXPECT_EQ(ErrRegisterFile("M", "no such file", nullptr, &handle), ERR_REG_CANT_OPEN_FILE);
    EXPECT_EQ(ErrRegisterFile("M", std::filesystem::temp_directory_path().string().c_str(), nullptr,
                              &handle),
              ERR_REG_CANT_OPEN_FILE);
    EXPECT_EQ(ErrRegisterFile(nullptr, "f", nullptr, &handle), ERR_REG_NULL_POINTER);
    EXPECT_EQ(ErrRegisterFile("M", nullptr, nullptr, &handle), ERR_REG_NULL_POINTER);
    EXPECT_EQ(ErrRegisterFile("M", "f", nullptr, nullptr), ERR_REG_NULL_POINTER);
    EXPECT_EQ(ErrRegisterRes("M", nullptr, "N", "T", nullptr, &handle), ERR_REG_NULL_INSTANCE);
    EXPECT_EQ(ErrRegisterDLL("M", "L", nullptr, nullptr, &handle), ERR_REG_NULL_POINTER);
    EXPECT_EQ(ErrGetMsg(1, 1, nullptr, 16), ERR_REG_NULL_POINTER);
    EXPECT_EQ(ErrGetMsg(1, 1, buffer, sizeof buffer), ERR_REG_NO_RECORDS);
    EXPECT_EQ(ErrGetMsg(0, 1, buffer, sizeof buffer), ERR_REG_INVALID_HANDLE);
    EXPECT_EQ(ErrUnRegisterFile(0), ERR_REG_INVALID_HANDLE);
    EXPECT_EQ(ErrUnRegisterFile(1234), ERR_REG_RECORD_NOT_FOUND);
    EXPECT_EQ(handle, 0);
}

TEST_F(ErrorRegistryTest, HelpInfoCopiesTheHelpFileWithinItsBufferAndShowHelpOpensIt) {
    const std::string helpFile(300, 'h'); // stored as its first 255 characters
    const uint16_t handle = registerText("Helpful", "1 \"one\" 42\n", helpFile.c_str());
    char buffer[400];
    uint16_t context = 0;

    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(ErrGetHelpInfo(handle, 1, &context, buffer, 6), ERR_REG_OK);
    EXPECT_EQ(context, 42);
    EXPECT_STREQ(buffer, "hhhhh");
    EXPECT_EQ(buffer[6], '#');

    for (size_t size : {size_t{0}, size_t{256}, sizeof buffer}) {
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(ErrGetHelpInfo(handle, 1, nullptr, buffer, size), ERR_REG_OK);
        EXPECT_EQ(std::string(buffer), helpFile.substr(0, 255)) << size;
        EXPECT_EQ(buffer[256], '#') << size;
    }

    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(ErrGetHelpInfo(handle, 2, &context, buffer, sizeof buffer), ERR_REG_NO_MESSAGE);
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(ErrGetHelpInfo(handle, 1, &context, nullptr, 0), ERR_REG_NULL_POINTER);

    // Showing help opens the help file at the context; a viewer's failure is reported.
    const kvHelpHook previous = kvSetHelpHook(recordHelpRequest);
    EXPECT_EQ(ErrShowHelp(handle, 1), ERR_REG_OK);
    EXPECT_EQ(helpRequest().file, helpFile.substr(0, 255));
    EXPECT_EQ(helpRequest().command, 1u);
    EXPECT_EQ(helpRequest().data, 42u);
    helpRequest().answer = 0;
    EXPECT_EQ(ErrShowHelp(handle, 1), ERR_REG_HELP_FAILED);
    helpRequest().answer = 1;
    EXPECT_EQ(ErrShowHelp(handle, 2), ERR_REG_NO_MESSAGE);
    kvSetHelpHook(previous);
    EXPECT_EQ(ErrUnRegisterFile(handle), ERR_REG_OK);
}

TEST_F(ErrorRegistryTest, StatusTextsAreVerbatimAndBounded) {
    EXPECT_EQ(statusText(0), "No error");
    EXPECT_EQ(statusText(4), "Module has not been previously registered or has been unregsitered.");
    EXPECT_EQ(statusText(6), "Error Registry has no regitration records yet.");
    EXPECT_EQ(statusText(17), "Invalid Error Registry Handle.");
    for (int code : {18, 19, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(statusText(code), "Unknown error in Error Registry.") << code;

    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(ErrGetRegErrorString(9, buffer, 5), ERR_REG_OK);
    EXPECT_STREQ(buffer, "Regi");
    EXPECT_EQ(buffer[5], '#');
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(ErrGetRegErrorString(9, buffer, 0), ERR_REG_OK);
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(ErrGetRegErrorString(9, nullptr, 100), ERR_REG_NULL_POINTER);
}

// ---- resources and libraries, from the test library ERRTEXTS.DLL ----

class ErrorRegistryModuleTest : public ErrorRegistryTest {
  protected:
    // The test library's module, loaded as the class library of "ErrTexts".
    static kvModule errTextsModule() {
        EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION("ErrTexts", "ERRTEXTS.DLL"), 1);
        kvProc registerProc = nullptr;
        kvModule module = kvLoadClassLibrary("ErrTexts", &registerProc);
        kvTableRemoveEntry_CLASSLOCATION("ErrTexts");
        return module;
    }
};

TEST_F(ErrorRegistryModuleTest, ResourceTablesRegisterByNameOrNumber) {
    kvModule module = errTextsModule();
    ASSERT_NE(module, nullptr);
    uint16_t named = 0;
    uint16_t numbered = 0;
    ASSERT_EQ(ErrRegisterRes("Named", module, "ERRTEXTS", "ERRTABLE", "E.HLP", &named), ERR_REG_OK);
    ASSERT_EQ(ErrRegisterRes("Numbered", module, reinterpret_cast<const char*>(7),
                             reinterpret_cast<const char*>(10), "E.HLP", &numbered),
              ERR_REG_OK);
    for (uint16_t handle : {named, numbered}) {
        EXPECT_EQ(message(handle, 100), "Disk full");
        EXPECT_EQ(helpContext(handle, 100), 7001);
        EXPECT_EQ(message(handle, 101), "Paper jam in tray %d");
        EXPECT_EQ(message(handle, 102), "Last line, no line feed");
        EXPECT_EQ(ErrUnRegisterRes(handle), ERR_REG_OK);
    }
    uint16_t handle = 0;
    EXPECT_EQ(ErrRegisterRes("Absent", module, "NOPE", "ERRTABLE", nullptr, &handle),
              ERR_REG_CANT_FIND_RESOURCE);
}

TEST_F(ErrorRegistryModuleTest, LibrariesHandOverTheirLines) {
    uint16_t handle = 0;
    ASSERT_EQ(ErrRegisterDLL("Lib", "ERRTEXTS.DLL", "errTextsLines", "L.HLP", &handle), ERR_REG_OK);
    EXPECT_EQ(message(handle, 200), "Scanner offline");
    EXPECT_EQ(helpContext(handle, 201), 8002);
    EXPECT_EQ(ErrUnRegisterDLL(handle), ERR_REG_OK);

    EXPECT_EQ(ErrRegisterDLL("Lib", "NOSUCH.DLL", "errTextsLines", nullptr, &handle),
              ERR_REG_CANT_LOCATE_FILE);
    EXPECT_EQ(ErrRegisterDLL("Lib", "ERRTEXTS.DLL", "noSuchProc", nullptr, &handle),
              ERR_REG_CANT_FIND_RESOURCE);
    EXPECT_EQ(ErrRegisterDLL("Lib", "ERRTEXTS.DLL", "errTextsNoLines", nullptr, &handle),
              ERR_REG_CANT_LOAD_RESOURCE);
}

} // namespace
} // namespace kova::test
