// TiffTag: reading directories in both byte orders, editing tags and
// directories, writing them back, and refusing hostile files.
#include "tests/TiffFixture.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace kova::test {
namespace {

using Values = std::vector<uint32_t>;

// A page of two directories: the first with a width (short), strip offsets
// (three longs, outside the entry), a description and a resolution.
TiffFile twoPages(bool bigEndian) {
    TiffFile file(bigEndian);
    file.directory()
        .entry(256, 3, {2550})
        .entry(258, 3, {8, 8})
        .ascii(270, "scan")
        .entry(273, 4, {100, 200, 300})
        .entry(282, 5, {300, 1});
    file.directory().entry(256, 3, {17}).entry(257, 4, {70000});
    return file;
}

class TiffTagTest : public TiffTest {};

TEST_F(TiffTagTest, ReadsEveryDirectoryOfALittleEndianFile) {
    ASSERT_EQ(open(writeFile(twoPages(false).bytes())), 1);
    EXPECT_EQ(send("getIFDCount"), 2);
    EXPECT_EQ(send("getCurIndex"), -1);
    EXPECT_EQ(send("getIFDTagCount"), 0);
    EXPECT_EQ(send("findTag", 256), -1);

    EXPECT_EQ(send("setCurIndex", 0), 0);
    EXPECT_EQ(send("getIFDTagCount"), 5);
    EXPECT_EQ(send("findTag", 273), 3);
    EXPECT_EQ(send("getTagType"), 4);
    EXPECT_EQ(send("getTagItemCount"), 3);
    EXPECT_EQ(items(256), Values{2550});
    EXPECT_EQ(items(258), (Values{8, 8}));
    EXPECT_EQ(items(270), (Values{'s', 'c', 'a', 'n', 0}));
    EXPECT_EQ(items(273), (Values{100, 200, 300}));
    EXPECT_EQ(items(282), (Values{300, 1}));
    EXPECT_EQ(send("findTag", 999), -1);
    EXPECT_EQ(send("getTagType"), 0);
    EXPECT_EQ(send("getTagItemCount"), 0);

    uint32_t two[3] = {0, 0, 0xdead};
    send("findTag", 273);
    EXPECT_EQ(send("getTagData", 2, two), 2) << "at most the asked number of items";
    EXPECT_EQ(two[2], 0xdeadu);

    EXPECT_EQ(send("setCurIndex", 1), 1);
    EXPECT_EQ(items(257), Values{70000});
}

TEST_F(TiffTagTest, BigEndianValuesComeOutWithTheClassesConversions) {
    ASSERT_EQ(open(writeFile(twoPages(true).bytes())), 1);
    send("setCurIndex", 0);
    EXPECT_EQ(items(273), (Values{100, 200, 300}));
    // Items in the value field are converted twice: once with the field as a
    // 32-bit word, once item by item. Two shorts 8, 8 come out as 0x0800 each.
    EXPECT_EQ(items(258), (Values{0x0800, 0x0800}));
    // One short in the value field is converted as a 32-bit word: its bytes
    // land in the upper half, and the caller reads the lower.
    EXPECT_EQ(items(256), Values{0});
    // Numerator and denominator change places.
    EXPECT_EQ(items(282), (Values{1, 300}));
    EXPECT_EQ(items(270), (Values{'s', 'c', 'a', 'n', 0}));
    send("setCurIndex", 1);
    EXPECT_EQ(items(257), Values{0x70110100}) << "70000 with its bytes reversed";
}

TEST_F(TiffTagTest, OpeningMissingAndForeignFiles) {
    const std::string missing = tempPath();
    EXPECT_ERROR(open(missing), 0, 3428);
    EXPECT_ERROR(open(missing, 1), 1, 0);
    EXPECT_EQ(send("getIFDCount"), 0);
    send("closeTIFF");
    EXPECT_EQ(readFile(missing), (TiffBytes{'I', 'I', 42, 0, 0, 0, 0, 0}));

    EXPECT_ERROR(open(writeFile({'I', 'M', 42, 0, 8, 0, 0, 0})), 0, 0);
    EXPECT_ERROR(open(writeFile({'I', 'I', 43, 0, 0, 0, 0, 0})), 0, 3443);
    EXPECT_ERROR(open(writeFile({'I', 'I', 42})), 0, 3434);
    EXPECT_ERROR(open(std::string()), 0, 3428);
}

TEST_F(TiffTagTest, AnIndexOutsideTheTableIsReported) {
    ASSERT_EQ(open(writeFile(twoPages(false).bytes())), 1);
    kvObject rangeCheck = listen(tiff, "OnRangeCheck");
    EXPECT_ERROR(send("setCurIndex", 2), -1, 3441);
    EXPECT_EQ(calls(rangeCheck), 1);
    EXPECT_EQ(argOf(rangeCheck, 2), 2);
    EXPECT_ERROR(send("setCurIndex", -1), -1, 3441);
    EXPECT_EQ(send("getCurIndex"), -1);
    EXPECT_ERROR(send("deleteIFD", 5), -1, 3441);
}

// Hostile files: each ends the open with 3434, keeps what was read before the
// fault, and never reads or allocates past what the file holds.
TEST_F(TiffTagTest, HostileChainsEndTheOpenAsAFailedRead) {
    // The second directory's next link goes back to the first directory.
    TiffBytes looping = twoPages(false).bytes();
    const uint32_t secondOffset = looping[8 + 2 + 5 * 12] | looping[8 + 2 + 5 * 12 + 1] << 8;
    const size_t link = secondOffset + 2 + 2 * 12;
    looping[link] = 8;
    EXPECT_ERROR(open(writeFile(looping)), 0, 3434);
    EXPECT_EQ(send("getIFDCount"), 2) << "the directories before the loop stay";

    TiffBytes pastEnd = twoPages(false).bytes();
    pastEnd[link] = 0xf0, pastEnd[link + 3] = 0x7f;
    EXPECT_ERROR(open(writeFile(pastEnd)), 0, 3434);
    EXPECT_EQ(send("getIFDCount"), 3) << "the record of the directory that failed stays";

    EXPECT_ERROR(open(writeFile({'I', 'I', 42, 0, 8, 0, 0, 0, 0xff, 0xff, 1, 2, 3})), 0, 3434);

    TiffBytes truncated = twoPages(false).bytes();
    truncated.resize(link + 2);
    EXPECT_ERROR(open(writeFile(truncated)), 0, 3434);
    EXPECT_ERROR(open(writeFile({'M', 'M', 0, 42, 0xff, 0xff, 0xff, 0xf0})), 0, 3434);
}

// Directories that overlap each other claim the same bytes again and again:
// together they may not hold more entries than the file has room for.
TEST_F(TiffTagTest, OverlappingDirectoriesCannotMultiplyTheFile) {
    // 200 directories at offsets 8, 12, 16...: each claims 100 entries that
    // run over the directories after it, and links to the next offset.
    TiffBytes file = {'I', 'I', 42, 0, 8, 0, 0, 0};
    file.resize(1210 + 4 * 200, 0);
    for (uint32_t d = 0; d < 200; ++d) {
        const uint32_t offset = 8 + 4 * d;
        const uint32_t next = d + 1 < 200 ? offset + 4 : 0;
        file[offset] = 100;
        const uint32_t link = offset + 2 + 1200;
        file[link] = uint8_t(next), file[link + 1] = uint8_t(next >> 8);
    }
    EXPECT_ERROR(open(writeFile(file)), 0, 3434);
    EXPECT_LE(send("getIFDCount"), 2);
}

TEST_F(TiffTagTest, UnknownTypesHaveNoBytes) {
    TiffFile file;
    file.directory().raw(300, 12, 1000000, 0xfffffff0).entry(301, 3, {5});
    ASSERT_EQ(open(writeFile(file.bytes())), 1);
    send("setCurIndex", 0);
    EXPECT_EQ(send("findTag", 300), 0);
    EXPECT_EQ(send("getTagItemCount"), 1000000);
    uint8_t buffer[8] = {};
    EXPECT_ERROR(send("getTagData", 1000000, buffer), 1000000, 0);
}

TEST_F(TiffTagTest, ItemsPastTheEndOfTheFileAreAFailedRead) {
    TiffFile file;
    file.directory().raw(273, 4, 3, 60).raw(279, 4, 4, 0xfffffff0);
    ASSERT_EQ(open(writeFile(file.bytes())), 1); // 38 bytes: the items at 60 are missing
    send("setCurIndex", 0);
    uint32_t buffer[4] = {};
    send("findTag", 273);
    EXPECT_ERROR(send("getTagData", 3, buffer), 0, 3434);
    send("findTag", 279);
    EXPECT_ERROR(send("getTagData", 4, buffer), 0, 3434);
}

TEST_F(TiffTagTest, AddedItemsGoToTheValueFieldOrToAnEvenOffsetAtTheEnd) {
    TiffFile page;
    page.directory().entry(256, 3, {10}).ascii(270, "ab");
    TiffBytes bytes = page.bytes();
    bytes.push_back(0x55); // an odd length
    const std::string path = writeFile(bytes);
    ASSERT_EQ(open(path, 1), 1);
    send("setCurIndex", 0);

    const uint16_t three[3] = {1, 2, 3};
    EXPECT_EQ(send("addTag", 258, 3, 3, three), 2);
    EXPECT_EQ(items(258), (Values{1, 2, 3}));
    TiffBytes file = readFile(path);
    ASSERT_EQ(file.size(), bytes.size() + 1 + 6);
    EXPECT_EQ(file[bytes.size()], 0) << "one byte of padding to the even offset";
    EXPECT_EQ(file[bytes.size() + 1], 1);

    const uint16_t two[2] = {7, 9};
    EXPECT_EQ(send("addTag", 258, 3, 2, two), 2);
    EXPECT_EQ(items(258), (Values{7, 9})) << "fewer items go where the old ones were";
    EXPECT_EQ(readFile(path).size(), file.size());

    // More items than before, but within the value field: the items are
    // stored and the count is left as it was.
    const uint16_t more[2] = {4, 5};
    EXPECT_EQ(send("addTag", 256, 3, 2, more), 0);
    EXPECT_EQ(send("getTagItemCount"), 1);
    EXPECT_EQ(items(256), Values{4});
    EXPECT_EQ(send("addTag", 300, 3, 1, more), 3);
    EXPECT_EQ(send("getTagType"), 0) << "a new tag does not become the current one";
    send("findTag", 300);
    EXPECT_EQ(send("getTagItemCount"), 0) << "a new tag of one short keeps the count 0";

    // An existing entry keeps its type.
    const uint32_t wide = 0x00050006;
    EXPECT_EQ(send("addTag", 256, 4, 1, &wide), 0);
    EXPECT_EQ(send("getTagType"), 3);
    EXPECT_EQ(send("getTagItemCount"), 1);
    EXPECT_EQ(items(256), Values{6});
}

TEST_F(TiffTagTest, AGrownDirectoryMovesToTheEndAtTheFlush) {
    const TiffBytes bytes = twoPages(false).bytes();
    const std::string path = writeFile(bytes);
    ASSERT_EQ(open(path, 1), 1);
    send("setCurIndex", 1);
    const uint32_t rows[2] = {64, 1};
    EXPECT_EQ(send("addTag", 278, 4, 2, rows), 2);
    send("flushIFDs");
    send("closeTIFF");

    const TiffBytes file = readFile(path);
    const uint32_t secondOffset = bytes[8 + 2 + 5 * 12] | bytes[8 + 2 + 5 * 12 + 1] << 8;
    uint32_t link;
    std::memcpy(&link, &file[8 + 2 + 5 * 12], 4);
    EXPECT_NE(link, secondOffset) << "the first directory's link follows the move";
    EXPECT_EQ(link % 2, 0u);
    EXPECT_EQ(file[link], 3) << "three entries at the new place";

    ASSERT_EQ(open(path), 1);
    EXPECT_EQ(send("getIFDCount"), 2);
    send("setCurIndex", 1);
    EXPECT_EQ(items(256), Values{17});
    EXPECT_EQ(items(257), Values{70000});
    EXPECT_EQ(items(278), (Values{64, 1}));
    send("setCurIndex", 0);
    EXPECT_EQ(items(273), (Values{100, 200, 300}));
}

TEST_F(TiffTagTest, AGrownFirstDirectoryRepointsTheHeader) {
    const std::string path = writeFile(twoPages(false).bytes());
    ASSERT_EQ(open(path, 1), 1);
    send("setCurIndex", 0);
    const uint32_t one = 1;
    send("addTag", 296, 3, 1, &one);
    send("flushIFDs");
    send("closeTIFF");
    const TiffBytes file = readFile(path);
    EXPECT_NE(file[4] | file[5] << 8, 8);
    ASSERT_EQ(open(path), 1);
    send("setCurIndex", 0);
    EXPECT_EQ(send("getIFDTagCount"), 6);
    EXPECT_EQ(items(270), (Values{'s', 'c', 'a', 'n', 0}));
}

TEST_F(TiffTagTest, DeletingATagOfTheOnlyDirectoryEmptiesIt) {
    TiffFile single;
    single.directory().entry(256, 3, {1}).entry(257, 3, {2});
    ASSERT_EQ(open(writeFile(single.bytes()), 1), 1);
    send("setCurIndex", 0);
    EXPECT_EQ(send("deleteTag", 999), -1);
    EXPECT_EQ(send("deleteTag", 257), 1);
    EXPECT_EQ(send("getIFDTagCount"), 0);
    EXPECT_EQ(send("findTag", 256), -1);

    const std::string path = writeFile(twoPages(false).bytes());
    ASSERT_EQ(open(path, 1), 1);
    send("setCurIndex", 0);
    EXPECT_EQ(send("deleteTag", 258), 1);
    EXPECT_EQ(send("getIFDTagCount"), 4);
    EXPECT_EQ(send("findTag", 270), 1);
    send("flushIFDs");
    send("closeTIFF");
    ASSERT_EQ(open(path), 1);
    send("setCurIndex", 0);
    EXPECT_EQ(send("getIFDTagCount"), 4);
    EXPECT_EQ(send("findTag", 258), -1);
    EXPECT_EQ(items(282), (Values{300, 1}));
}

TEST_F(TiffTagTest, DeletingADirectoryRelinksTheChainAtTheFlush) {
    TiffFile three;
    three.directory().entry(256, 3, {1});
    three.directory().entry(256, 3, {2});
    three.directory().entry(256, 3, {3});
    const std::string path = writeFile(three.bytes());
    ASSERT_EQ(open(path, 1), 1);
    kvObject changes = listen(tiff, "OnTableChange");
    send("setCurIndex", 2);
    EXPECT_EQ(send("deleteIFD", 1), -1);
    EXPECT_EQ(calls(changes), 1);
    EXPECT_EQ(send("getIFDCount"), 2);
    EXPECT_EQ(send("getCurIndex"), 1) << "the selection follows its directory";
    EXPECT_EQ(items(256), Values{3});
    send("flushIFDs");
    send("closeTIFF");
    ASSERT_EQ(open(path), 1);
    EXPECT_EQ(send("getIFDCount"), 2);
    send("setCurIndex", 1);
    EXPECT_EQ(items(256), Values{3});

    ASSERT_EQ(open(path, 1), 1);
    send("setCurIndex", 0);
    send("deleteIFD", 0);
    EXPECT_EQ(send("getCurIndex"), -1);
    send("deleteIFD", 0);
    EXPECT_EQ(send("getIFDCount"), 0);
    EXPECT_EQ(calls(changes), 3);
}

TEST_F(TiffTagTest, AnAddedDirectoryIsPlacedAtTheEndEvenWhileEmpty) {
    const TiffBytes bytes = twoPages(false).bytes();
    const std::string path = writeFile(bytes);
    ASSERT_EQ(open(path, 1), 1);
    EXPECT_EQ(send("addIFDs", 1), 0);
    EXPECT_EQ(send("getIFDCount"), 3);
    send("setCurIndex", 2);
    EXPECT_EQ(send("addTag", 256, 3, 1, "x"), -1) << "a directory without entries takes no tags";
    send("setCurIndex", 0);
    send("flushIFDs");
    send("closeTIFF");
    const TiffBytes file = readFile(path);
    EXPECT_EQ(TiffBytes(file.begin(), file.begin() + 8),
              TiffBytes(bytes.begin(), bytes.begin() + 8));
    ASSERT_EQ(open(path, 1), 1);
    EXPECT_EQ(send("getIFDCount"), 3);
    send("setCurIndex", 2);
    EXPECT_EQ(send("getIFDTagCount"), 0);
    const uint16_t width[3] = {9, 0, 0};
    EXPECT_EQ(send("addTag", 256, 3, 3, width), 0) << "read from the file, it takes tags";
}

// A big-endian file is written back with its header words and next links in
// host order, and its entries stay converted in memory after the flush.
TEST_F(TiffTagTest, FlushingABigEndianFileKeepsTheClassesByteOrder) {
    const TiffBytes bytes = twoPages(true).bytes();
    const std::string path = writeFile(bytes);
    ASSERT_EQ(open(path, 1), 1);
    send("setCurIndex", 0);
    const uint32_t resolution[2] = {600, 1};
    EXPECT_EQ(send("addTag", 282, 5, 1, resolution), 4);
    EXPECT_EQ(items(282), (Values{600, 1})) << "exchanged going in and coming out";
    send("flushIFDs");
    EXPECT_EQ(send("findTag", 256), -1) << "the entries are left in the file's order";
    EXPECT_EQ(send("findTag", 1), 0) << "256 with its bytes reversed";
    send("closeTIFF");

    const TiffBytes file = readFile(path);
    EXPECT_EQ(TiffBytes(file.begin(), file.begin() + 4), (TiffBytes{'M', 'M', 42, 0}));
    const uint32_t rational = bytes[8 + 2 + 4 * 12 + 11] | bytes[8 + 2 + 4 * 12 + 10] << 8;
    EXPECT_EQ(TiffBytes(file.begin() + rational, file.begin() + rational + 8),
              (TiffBytes{0, 0, 0, 1, 0, 0, 2, 0x58}))
        << "denominator first";
    EXPECT_ERROR(open(path), 0, 3443);
}

TEST_F(TiffTagTest, OutOfMemoryLeavesTheObjectUsable) {
    const std::string path = writeFile(twoPages(false).bytes());
    failEachAllocation(
        [&] {
            const kvResult opened = open(path, 1);
            if (!opened) {
                EXPECT_EQ(takeError(), 3429);
            }
            return opened == 1;
        },
        [] {});
    EXPECT_EQ(send("getIFDCount"), 2);
    send("setCurIndex", 0);
    const uint16_t three[3] = {1, 2, 3};
    failEachAllocation(
        [&] {
            const kvResult index = send("addTag", 300, 3, 3, three);
            if (index < 0) {
                EXPECT_EQ(takeError(), 3429);
            }
            return index >= 0;
        },
        [&] { EXPECT_EQ(send("getIFDTagCount"), 5); });
    failEachAllocation(
        [&] {
            const kvResult index = send("deleteTag", 300);
            if (index < 0) {
                EXPECT_EQ(takeError(), 3429);
            }
            return index >= 0;
        },
        [&] { EXPECT_EQ(send("getIFDTagCount"), 6); });
}

TEST_F(TiffTagTest, HugeTransfersGoInChunks) {
    const std::string path = tempPath();
    std::vector<uint8_t> data(100000);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = uint8_t(i * 7);
    std::FILE* file = std::fopen(path.c_str(), "w+b");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(send("_hugeWrite", data.data(), data.size(), file), 100000);
    std::rewind(file);
    std::vector<uint8_t> back(200000);
    EXPECT_EQ(send("_hugeRead", back.data(), back.size(), file), 100000);
    back.resize(data.size());
    EXPECT_EQ(back, data);
    std::fclose(file);
}

} // namespace
} // namespace kova::test
