// INI files through kova/registry.h, with the Windows profile functions'
// semantics: on Windows the system's own functions answer the same cases.
#include "kova/registry.h"
#include "tests/KernelFixture.hpp"

#include <fstream>
#include <string>

namespace kova::test {
namespace {

class ProfileTest : public FileTest {
  protected:
    std::string get(const char* section, const char* key, const char* fallback = "<default>") {
        char buffer[64];
        kvProfileGetString(section, key, fallback, buffer, sizeof buffer, path.c_str());
        return buffer;
    }
    // Full paths: a bare name means the Windows directory there.
    void use(std::string_view text) { path = std::filesystem::absolute(writeFile(text)).string(); }
    std::string path;
};

TEST_F(ProfileTest, SectionsAndKeysAreFoundWithoutRegardToCaseAndTheFirstWins) {
    use("; a comment\r\n"
        "[Protocols]\r\n"
        "  Total = 2 \r\n"
        "Protocol0=\"Display\"\r\n"
        "Protocol1='File'\r\n"
        "no equals sign here\r\n"
        "total=9\r\n"
        "[protocols]\r\n"
        "Protocol2=Hidden\r\n"
        "[Other]\r\n"
        "empty=\r\n");
    EXPECT_EQ(get("PROTOCOLS", "total"), "2");
    EXPECT_EQ(get("Protocols", "Protocol0"), "Display") << "one pair of quotes is removed";
    EXPECT_EQ(get("Protocols", "Protocol1"), "File");
    EXPECT_EQ(get("Protocols", "Protocol2"), "<default>") << "the second section is not read";
    EXPECT_EQ(get("Protocols", "no equals sign here"), "<default>");
    EXPECT_EQ(get("Other", "empty"), "");
    EXPECT_EQ(get("Other", "missing", "fallback   "), "fallback") << "trailing blanks go";
    EXPECT_EQ(get("Missing", "total", nullptr), "");
    EXPECT_EQ(get("Protocols", "; a comment"), "<default>");

    char small[4];
    EXPECT_EQ(kvProfileGetString("Protocols", "Protocol0", "", small, sizeof small, path.c_str()),
              3u);
    EXPECT_STREQ(small, "Dis");
}

TEST_F(ProfileTest, NumbersAreReadAsTheSystemReadsThem) {
    use("[N]\na=42\nb= -7\nc=0x1F\nd=12abc\ne=abc\nf=\ng=4294967297\nh=+0b101\ni=0o17\nj=\"8\"\n"
        "k=99999999999999999999999999999999999\n");
    const char* file = path.c_str();
    EXPECT_EQ(kvProfileGetInt("N", "a", 5, file), 42u);
    EXPECT_EQ(kvProfileGetInt("N", "b", 5, file), static_cast<unsigned>(-7));
    EXPECT_EQ(kvProfileGetInt("N", "c", 5, file), 31u);
    EXPECT_EQ(kvProfileGetInt("N", "d", 5, file), 12u);
    EXPECT_EQ(kvProfileGetInt("N", "e", 5, file), 0u);
    EXPECT_EQ(kvProfileGetInt("N", "f", 5, file), 5u) << "an empty value reads as the default";
    EXPECT_EQ(kvProfileGetInt("N", "g", 5, file), 1u) << "32 bits, wrapping";
    EXPECT_EQ(kvProfileGetInt("N", "h", 5, file), 5u);
    EXPECT_EQ(kvProfileGetInt("N", "i", 5, file), 15u);
    EXPECT_EQ(kvProfileGetInt("N", "j", 5, file), 8u);
    EXPECT_EQ(kvProfileGetInt("N", "missing", -3, file), static_cast<unsigned>(-3));
}

// The file's own bytes are this system's on POSIX; Windows writes through its
// profile functions, which may drop blank lines, so there only the values are
// compared.
#ifndef _WIN32
#define EXPECT_FILE(expected) EXPECT_EQ(readFile(path), expected)
#else
#define EXPECT_FILE(expected) ((void)0)
#endif

TEST_F(ProfileTest, WritingChangesOneLineAndKeepsTheRest) {
    use("; settings\r\n[A]\r\nKey = old ; not a comment\r\nother=1\r\n\r\n[B]\r\nx=1\r\n");
    ASSERT_EQ(kvProfileWriteString("a", "KEY", "new", path.c_str()), 1);
    EXPECT_FILE("; settings\r\n[A]\r\nKey=new\r\nother=1\r\n\r\n[B]\r\nx=1\r\n");
    EXPECT_EQ(get("A", "Key"), "new");
    EXPECT_EQ(get("B", "x"), "1");
    ASSERT_EQ(kvProfileWriteString("A", "added", "2", path.c_str()), 1);
    EXPECT_FILE("; settings\r\n[A]\r\nKey=new\r\nother=1\r\nadded=2\r\n\r\n[B]\r\nx=1\r\n");
    EXPECT_EQ(get("A", "added"), "2");
    ASSERT_EQ(kvProfileWriteString("A", "other", nullptr, path.c_str()), 1);
    ASSERT_EQ(kvProfileWriteString("B", nullptr, nullptr, path.c_str()), 1);
    EXPECT_FILE("; settings\r\n[A]\r\nKey=new\r\nadded=2\r\n\r\n");
    EXPECT_EQ(get("A", "other"), "<default>");
    EXPECT_EQ(get("B", "x"), "<default>");
    ASSERT_EQ(kvProfileWriteString("C", "k", "v", path.c_str()), 1);
    EXPECT_EQ(get("C", "k"), "v");
    EXPECT_EQ(get("A", "Key"), "new");
}

#ifndef _WIN32
TEST_F(ProfileTest, AFailedAllocationLeavesTheFileAsItWas) {
    const std::string text = "[A]\nfirst=1\n; keep me\n[B]\nsecond=2\n";
    use(text);
    failEachAllocation(
        [&] {
            return kvProfileWriteString("B", "third", "a value beyond short strings",
                                        path.c_str()) == 1;
        },
        [&] { EXPECT_EQ(readFile(path), text); });
    EXPECT_EQ(get("B", "third"), "a value beyond short strings");
}
#endif

TEST_F(ProfileTest, AMissingFileIsMadeAndReadsAsEmpty) {
    path = std::filesystem::absolute(tempPath()).string();
    EXPECT_EQ(get("S", "k"), "<default>");
    EXPECT_EQ(kvProfileGetInt("S", "k", 7, path.c_str()), 7u);
    ASSERT_EQ(kvProfileWriteString("S", "k", "v", path.c_str()), 1);
    EXPECT_EQ(get("S", "k"), "v");
    EXPECT_EQ(get("s", "K"), "v");
}

TEST_F(ProfileTest, NullArgumentsAnswerTheDefault) {
    use("[S]\nk=v\n");
    char buffer[8] = "x";
    EXPECT_EQ(kvProfileGetString("S", "k", "d", buffer, sizeof buffer, nullptr), 1u);
    EXPECT_STREQ(buffer, "d");
    EXPECT_EQ(kvProfileGetString("S", "k", "d", nullptr, 8, path.c_str()), 0u);
    EXPECT_EQ(kvProfileGetInt("S", nullptr, 4, path.c_str()), 4u);
    EXPECT_EQ(kvProfileWriteString(nullptr, "k", "v", path.c_str()), 0);
    EXPECT_EQ(kvProfileWriteString("S", "k", "v", nullptr), 0);
}

#ifndef _WIN32
TEST_F(ProfileTest, BinaryAndOverlongFilesNeitherCrashNorAreRewritten) {
    std::string binary = "[S]\nk=v\n";
    for (int i = 0; i < 4096; ++i)
        binary += static_cast<char>(i * 37);
    use(binary);
    EXPECT_EQ(get("S", "k"), "v");
    ASSERT_EQ(kvProfileWriteString("S", "k", "w", path.c_str()), 1);
    EXPECT_EQ(readFile(path).substr(8), binary.substr(8)) << "the rest is kept byte for byte";

    use(std::string("[S]\nk=v\n") + std::string(16u << 20, 'x'));
    EXPECT_EQ(get("S", "k"), "<default>") << "a file beyond 16 MiB is not read";
    EXPECT_EQ(kvProfileWriteString("S", "k", "w", path.c_str()), 0) << "nor rewritten";
}

TEST_F(ProfileTest, ABareNameIsLookedForInTheProfileFolderWithoutRegardToCase) {
    const auto folder = settingsFolder() / "profiles";
    std::filesystem::create_directories(folder);
    kvSetProfileFolder(folder.string().c_str());
    std::ofstream(folder / "kova.ini") << "[S]\nk=lower\n";
    char buffer[16];
    kvProfileGetString("S", "k", "", buffer, sizeof buffer, "KOVA.INI");
    EXPECT_STREQ(buffer, "lower");
    ASSERT_EQ(kvProfileWriteString("S", "k", "new", "NEW.INI"), 1);
    EXPECT_TRUE(std::filesystem::exists(folder / "NEW.INI"));
    kvSetProfileFolder(settingsFolder().string().c_str());
    std::filesystem::remove_all(folder);
}
#endif

} // namespace
} // namespace kova::test
