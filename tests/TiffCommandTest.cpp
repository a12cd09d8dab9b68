// kova tiff: what a person sees of a file, where TiffTag reads a value
// otherwise, where a damaged file goes wrong, and edits made through it.
// Runs the kova command beside the tests; skipped where it cannot be run.
#include "tests/TiffFixture.hpp"

#include <gtest/gtest.h>

namespace kova::test {
namespace {

using Values = std::vector<uint32_t>;

class TiffCommandTest : public TiffTest {
  protected:
    void SetUp() override {
        TiffTest::SetUp();
        if (run("./kova --help >/dev/null").status != 0)
            GTEST_SKIP() << "the kova command cannot be run from the test folder here";
    }
    static Output kova(const std::string& arguments) { return run("./kova tiff " + arguments); }
    static int exitCode(const Output& output) { return output.status >> 8; }
};

TEST_F(TiffCommandTest, ShowsValuesAsTheFileHoldsThemWithTiffTagsReadingBeside) {
    TiffFile file(true);
    file.directory().entry(256, 3, {2550}).entry(282, 5, {300, 1}).entry(65000, 4, {1, 2, 3});
    const std::string path = writeFile(file.bytes());
    const Output shown = kova(path);
    EXPECT_EQ(exitCode(shown), 0) << shown.text;
    EXPECT_NE(shown.text.find("big-endian (MM), magic 42, first directory at offset 8 (0x8)"),
              std::string::npos)
        << shown.text;
    EXPECT_NE(shown.text.find("Directory 0 at offset 8 (0x8): 3 entries"), std::string::npos);
    EXPECT_NE(shown.text.find("ImageWidth (256) SHORT (3) 1 <2550>\n      [TiffTag hands a "
                              "caller <0>: items in a big-endian value field are converted twice]"),
              std::string::npos)
        << shown.text;
    EXPECT_NE(shown.text.find("<300/1>\n      [TiffTag hands a caller <1/300>: numerator and "
                              "denominator exchanged]"),
              std::string::npos)
        << shown.text;
    EXPECT_NE(shown.text.find("65000 (0xfde8) LONG (4) 3 at 58 (0x3a) <1 2 3>\n"),
              std::string::npos)
        << shown.text;
}

TEST_F(TiffCommandTest, ADamagedFileIsShownUpToWhereItGoesWrong) {
    TiffFile file;
    file.directory().entry(256, 3, {1});
    TiffBytes bytes = file.bytes();
    bytes[22] = 8; // the next link leads back to the directory itself
    const Output shown = kova(writeFile(bytes));
    EXPECT_EQ(exitCode(shown), 1) << shown.text;
    EXPECT_NE(shown.text.find("!! the link leads back to a directory already shown, at 8 (0x8): "
                              "at byte 22 (0x16)"),
              std::string::npos)
        << shown.text;
    EXPECT_NE(shown.text.find("TiffTag refuses the file: error 3434"), std::string::npos);
    EXPECT_EQ(exitCode(kova(writeFile({'I', 'I', 42}))), 1);
    EXPECT_EQ(exitCode(kova("")), 2);
}

TEST_F(TiffCommandTest, EditsGoThroughTiffTag) {
    TiffFile file;
    file.directory().entry(256, 3, {1}).entry(257, 3, {2});
    file.directory().entry(256, 3, {3});
    const std::string path = writeFile(file.bytes());
    EXPECT_EQ(exitCode(kova("set " + path + " PageNumber short 1 2")), 0);
    EXPECT_EQ(exitCode(kova("set " + path + " --ifd 1 Software ascii two words")), 0);
    EXPECT_EQ(exitCode(kova("delete " + path + " ImageLength")), 0);
    EXPECT_EQ(exitCode(kova("add-ifd " + path)), 0);
    EXPECT_EQ(exitCode(kova("set " + path + " ImageWidth long 5")), 1) << "the entry is a SHORT";
    EXPECT_EQ(exitCode(kova("set " + path + " --ifd 9 ImageWidth short 5")), 1);
    EXPECT_EQ(exitCode(kova("set " + path + " ImageWidth float 5")), 2);
    EXPECT_EQ(exitCode(kova("delete " + path + " Artist")), 1);

    ASSERT_EQ(open(path), 1);
    EXPECT_EQ(send("getIFDCount"), 3);
    send("setCurIndex", 0);
    EXPECT_EQ(send("findTag", 257), -1);
    EXPECT_EQ(items(256), Values{1}) << "the one deletion left the other tag";
    EXPECT_EQ(items(297), (Values{1, 2}));
    send("setCurIndex", 1);
    EXPECT_EQ(items(305).size(), 10u);

    TiffFile single;
    single.directory().entry(256, 3, {1}).entry(257, 3, {2});
    const std::string singlePath = writeFile(single.bytes());
    EXPECT_EQ(exitCode(kova("delete " + singlePath + " 257")), 0);
    ASSERT_EQ(open(singlePath), 1);
    send("setCurIndex", 0);
    EXPECT_EQ(items(256), Values{1}) << "one tag goes, not the whole directory";
    EXPECT_EQ(send("getIFDTagCount"), 1);

    TiffFile big(true);
    big.directory().entry(256, 3, {1});
    const std::string bigPath = writeFile(big.bytes());
    EXPECT_EQ(exitCode(kova("set " + bigPath + " ImageWidth short 5")), 1);
    EXPECT_EQ(readFile(bigPath), big.bytes());
}

} // namespace
} // namespace kova::test
