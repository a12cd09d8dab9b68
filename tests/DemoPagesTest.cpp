// The demo scanner's pages: deterministic, and their marks read back from the
// delivered pixels at either depth.
#include "demo/Marks.hpp"
#include "demo/Page.hpp"
#include "demo/TiffWriter.hpp"

#include <gtest/gtest.h>

#include <cstdio>

namespace {

constexpr int dpi = 100;
constexpr int width = 850, height = 1100; // letter size at 100 dpi

TEST(DemoPages, TheSameSeedAndNumberGiveTheSamePixels) {
    const demo::Page a = demo::makePage(7, 3, demo::PageKind::Bilevel, width, height, dpi);
    const demo::Page b = demo::makePage(7, 3, demo::PageKind::Bilevel, width, height, dpi);
    const demo::Page c = demo::makePage(8, 3, demo::PageKind::Bilevel, width, height, dpi);
    EXPECT_EQ(a.bits, b.bits);
    EXPECT_NE(a.bits, c.bits);
    EXPECT_EQ(a.stride, (width + 7) / 8);
}

TEST(DemoPages, BothMarksReadBackTheirPageNumberAtEitherDepth) {
    for (auto kind : {demo::PageKind::Bilevel, demo::PageKind::Greyscale})
        for (unsigned number : {0u, 1u, 42u, 9999u, 65535u}) {
            const demo::Page page = demo::makePage(1, number, kind, width, height, dpi);
            const demo::PageLayout layout{width, height, dpi};
            EXPECT_EQ(demo::readBarcode(page.view(), layout.barcode()), number);
            char digits[8];
            std::snprintf(digits, sizeof digits, "%05u", number % 100000);
            EXPECT_EQ(demo::readDigits(page.view(), layout.digits()), std::string(digits));
        }
}

TEST(DemoPages, MarksAreReadAtScannerResolution) {
    const demo::Page page = demo::makePage(5, 1234, demo::PageKind::Greyscale, 2550, 3300, 300);
    const demo::PageLayout layout{2550, 3300, 300};
    EXPECT_EQ(demo::readBarcode(page.view(), layout.barcode()), 1234u);
    EXPECT_EQ(demo::readDigits(page.view(), layout.digits()), std::string("01234"));
}

TEST(DemoPages, AnEmptyAreaReadsAsNothing) {
    const demo::Page page = demo::makePage(1, 5, demo::PageKind::Bilevel, width, height, dpi);
    const demo::Rect blank{0, 0, width, 20};
    EXPECT_FALSE(demo::readBarcode(page.view(), blank).has_value());
    EXPECT_FALSE(demo::readDigits(page.view(), blank).has_value());
}

std::vector<uint8_t> unpackBits(const std::vector<uint8_t>& packed) {
    std::vector<uint8_t> out;
    for (size_t i = 0; i < packed.size();) {
        const auto n = static_cast<int8_t>(packed[i++]);
        if (n >= 0) {
            out.insert(out.end(), packed.begin() + i, packed.begin() + i + n + 1);
            i += n + 1;
        } else if (n != -128) {
            out.insert(out.end(), 1 - n, packed[i++]);
        }
    }
    return out;
}

TEST(DemoPages, PackBitsRowsUnpackToTheRow) {
    const std::vector<std::vector<uint8_t>> rows = {{},
                                                    {5},
                                                    {1, 1},
                                                    {1, 2, 3, 3, 3, 4},
                                                    std::vector<uint8_t>(300, 0),
                                                    {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 0, 1}};
    for (const auto& row : rows) {
        std::vector<uint8_t> packed;
        demo::packBitsRow(row.data(), row.size(), packed);
        EXPECT_EQ(unpackBits(packed), row);
    }
    std::vector<uint8_t> noise(1000);
    for (size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<uint8_t>(i * 7919 % 251);
    std::vector<uint8_t> packed;
    demo::packBitsRow(noise.data(), noise.size(), packed);
    EXPECT_EQ(unpackBits(packed), noise);
}

TEST(DemoPages, ABatchTooLargeForOneFileIsRefusedBeforeTheFileIsMade) {
    const std::string path = ::testing::TempDir() + "demo-too-large.tif";
    demo::TiffWriter writer;
    // 600 greyscale pages of letter size at 300 dpi stored as they are.
    const uint64_t greyPages = 600 * demo::TiffWriter::uncompressedBytes(2550, 3300, 8);
    const std::string refused = writer.open(path, 600, greyPages);
    EXPECT_NE(refused.find("would pass 4 GB: its 600 pages need at least 5049000000 bytes"),
              std::string::npos)
        << refused;
    EXPECT_EQ(std::fopen((path + ".part").c_str(), "rb"), nullptr);
    EXPECT_EQ(writer.addPage(demo::makePage(1, 1, demo::PageKind::Bilevel, width, height, dpi),
                             demo::Compression::PackBits),
              "no file is open");

    // Bilevel rows are stored a bit a pixel, padded to whole bytes.
    EXPECT_EQ(demo::TiffWriter::uncompressedBytes(850, 1100, 1), 107u * 1100);
    EXPECT_EQ(writer.open(path, 1, demo::TiffWriter::uncompressedBytes(850, 1100, 8)), "");
    EXPECT_EQ(writer.addPage(demo::makePage(1, 1, demo::PageKind::Greyscale, width, height, dpi),
                             demo::Compression::None),
              "");
    EXPECT_EQ(writer.finish(), "");
    EXPECT_EQ(std::remove(path.c_str()), 0);
}

} // namespace
