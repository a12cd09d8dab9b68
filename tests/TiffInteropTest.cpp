// Files that TiffTag has edited read back the same with libtiff's tiffdump
// and tiffinfo: every tag tiffdump shows has the type, count and values
// TiffTag reads, and tiffinfo reads every page without a complaint. Skipped
// where the tools are missing.
#include "tests/TiffFixture.hpp"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace kova::test {
namespace {

// tiffdump's lines for tags, by directory: "Name (number) TYPE (code) count<values>".
std::vector<std::vector<std::string>> dumpedTags(const std::string& dump) {
    std::vector<std::vector<std::string>> directories;
    std::istringstream lines(dump);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind("Directory ", 0) == 0)
            directories.emplace_back();
        else if (!directories.empty() && line.find(") ") != std::string::npos && line.back() == '>')
            directories.back().push_back(line);
    }
    return directories;
}

class TiffInteropTest : public TiffTest {
  protected:
    void SetUp() override {
        TiffTest::SetUp();
        if (!haveTool("tiffdump") || !haveTool("tiffinfo"))
            GTEST_SKIP() << "libtiff's tiffdump and tiffinfo are not installed (Debian package "
                            "libtiff-tools); the interoperability tests do not run";
    }

    // Two 16 by 16 bilevel pages whose strips follow the directories.
    static TiffBytes twoBilevelPages() {
        auto build = [](uint32_t strips) {
            TiffFile file;
            for (uint32_t page = 0; page < 2; ++page) {
                file.directory()
                    .entry(256, 3, {16})
                    .entry(257, 3, {16})
                    .entry(258, 3, {1})
                    .entry(259, 3, {1})
                    .entry(262, 3, {0})
                    .raw(273, 4, 1, strips + 32 * page)
                    .entry(277, 3, {1})
                    .entry(278, 3, {16})
                    .entry(279, 4, {32})
                    .entry(282, 5, {300, 1})
                    .entry(283, 5, {300, 1})
                    .entry(296, 3, {2});
            }
            return file.bytes();
        };
        TiffBytes bytes = build(build(0).size());
        for (int i = 0; i < 64; ++i)
            bytes.push_back(uint8_t(i % 3 ? 0x0f : 0xf0));
        return bytes;
    }

    // The line tiffdump prints for the current tag, from what TiffTag reads.
    std::string lineOf(uint16_t tag, const char* name) {
        const Values values = items(tag);
        const auto type = send("getTagType");
        const auto count = send("getTagItemCount");
        static const char* typeNames[] = {"", "BYTE", "ASCII", "SHORT", "LONG", "RATIONAL"};
        std::string line = std::string(name) + " (" + std::to_string(tag) + ") " + typeNames[type] +
                           " (" + std::to_string(type) + ") " + std::to_string(count) + "<";
        for (size_t i = 0; i < values.size(); i += (type == 5 ? 2 : 1)) {
            if (type == 2) {
                line += values[i] ? std::string(1, char(values[i])) : std::string("\\0");
                continue;
            }
            if (i) line += ' ';
            if (type == 5) {
                char text[32];
                std::snprintf(text, sizeof text, "%g", double(values[i]) / values[i + 1]);
                line += text;
            } else {
                line += std::to_string(values[i]);
            }
        }
        return line + ">";
    }
    using Values = std::vector<uint32_t>;
};

TEST_F(TiffInteropTest, EditedPagesReadBackTheSameWithLibtiff) {
    const std::string path = writeFile(twoBilevelPages());
    ASSERT_EQ(open(path, 1), 1);
    send("setCurIndex", 0);
    const uint32_t resolution[2] = {600, 1};
    EXPECT_GE(send("addTag", 282, 5, 1, resolution), 0);
    const uint16_t pages[3] = {0, 2, 0};
    // Room first: more items than before that fit in the value field leave
    // the count as it was.
    EXPECT_GE(send("addTag", 297, 3, 3, pages), 0);
    EXPECT_GE(send("addTag", 297, 3, 2, pages), 0);
    const char software[] = "KOVA TiffTag";
    EXPECT_GE(send("addTag", 305, 2, sizeof software, software), 0);
    send("setCurIndex", 1);
    EXPECT_EQ(send("deleteTag", 296), 11);
    const char artist[] = "A. Scanner, 2026";
    EXPECT_GE(send("addTag", 315, 2, sizeof artist, artist), 0);
    send("flushIFDs");
    send("closeTIFF");

    const Output dump = run("tiffdump '" + path + "'");
    ASSERT_EQ(dump.status, 0) << dump.text;
    const auto dumped = dumpedTags(dump.text);
    ASSERT_EQ(dumped.size(), 2u) << dump.text;
    ASSERT_EQ(open(path), 1);
    for (kvResult page = 0; page < 2; ++page) {
        send("setCurIndex", page);
        ASSERT_EQ(size_t(send("getIFDTagCount")), dumped[page].size()) << dump.text;
        for (const std::string& line : dumped[page]) {
            const size_t paren = line.find(" (");
            const auto tag = uint16_t(std::stoi(line.substr(paren + 2)));
            EXPECT_EQ(lineOf(tag, line.substr(0, paren).c_str()), line);
        }
    }
    EXPECT_NE(dump.text.find("Software (305) ASCII (2) 13<KOVA TiffTag\\0>"), std::string::npos);
    EXPECT_NE(dump.text.find("XResolution (282) RATIONAL (5) 1<600>"), std::string::npos);
    EXPECT_NE(dump.text.find("PageNumber (297) SHORT (3) 2<0 2>"), std::string::npos);

    const Output info = run("tiffinfo -D '" + path + "'");
    EXPECT_EQ(info.status, 0) << info.text;
    EXPECT_EQ(info.text.find("Error"), std::string::npos) << info.text;
    EXPECT_EQ(info.text.find("Warning"), std::string::npos) << info.text;
    EXPECT_NE(info.text.find("Software: KOVA TiffTag"), std::string::npos) << info.text;
    EXPECT_NE(info.text.find("Artist: A. Scanner, 2026"), std::string::npos) << info.text;
    EXPECT_NE(info.text.find("Resolution: 600, 300 pixels/inch"), std::string::npos) << info.text;
}

// An empty directory appended by TiffTag, then given tags, is a page for
// libtiff too.
TEST_F(TiffInteropTest, AnAddedDirectoryBecomesAPage) {
    const std::string path = writeFile(twoBilevelPages());
    ASSERT_EQ(open(path, 1), 1);
    send("addIFDs", 1);
    send("setCurIndex", 0);
    send("flushIFDs");
    ASSERT_EQ(open(path, 1), 1);
    ASSERT_EQ(send("getIFDCount"), 3);
    send("setCurIndex", 2);
    const uint32_t filler[2] = {0, 0};
    const struct {
        uint16_t tag, type;
        uint32_t value;
    } page[] = {{256, 3, 16}, {257, 3, 16}, {258, 3, 1},  {259, 3, 1}, {262, 3, 1},
                {273, 4, 0},  {277, 3, 1},  {278, 3, 16}, {279, 4, 32}};
    for (const auto& tag : page) {
        uint32_t value = tag.value;
        if (tag.tag == 273) {
            // The first page's strip.
            send("setCurIndex", 0);
            value = items(273)[0];
            send("setCurIndex", 2);
        }
        send("addTag", tag.tag, tag.type, tag.type == 3 ? 3 : 2, filler);
        send("addTag", tag.tag, tag.type, 1, &value);
    }
    send("flushIFDs");
    send("closeTIFF");

    const Output info = run("tiffinfo '" + path + "'");
    EXPECT_EQ(info.status, 0) << info.text;
    EXPECT_NE(info.text.find("=== TIFF directory 2 ==="), std::string::npos) << info.text;
    EXPECT_NE(info.text.find("min-is-black"), std::string::npos) << info.text;
    const Output dump = run("tiffdump '" + path + "'");
    ASSERT_EQ(dumpedTags(dump.text).size(), 3u) << dump.text;
    EXPECT_EQ(dumpedTags(dump.text)[2].size(), std::size(page)) << dump.text;
}

} // namespace
} // namespace kova::test
