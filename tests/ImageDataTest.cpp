// ImageData: whole images, band-wise delivery, palette checks, region copies
// with masking and photometric changes, and "OnImageDataChange".
#include "tests/ImageFixture.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace kova::test {
namespace {

class ImageDataTest : public ImageTest {
  protected:
    void SetUp() override {
        ImageTest::SetUp();
        data = make("ImageData", nullptr, "Page", 1, 0);
        ASSERT_NE(data, nullptr);
        changes = listen(data, "OnImageDataChange");
    }
    // setImageData with the attributes that matter here.
    kvResult setImage(int32_t bytesPerLine, int32_t width, int32_t height, int32_t bitsPerSample,
                      int32_t samplesPerPixel, int32_t photometric, const void* pixels = nullptr,
                      int32_t paletteCount = 0, const kvPaletteEntry* entries = nullptr) {
        return kvSendMeth(&error, data, "setImageData", bytesPerLine, width, height, bitsPerSample,
                          samplesPerPixel, photometric, 0, 0, 0, 0, 0, 300, 200, paletteCount,
                          entries, pixels);
    }
    // A copy of the region through getRawImageObject's parameter list.
    kvObject region(std::vector<int32_t> params) {
        params.push_back(-1);
        params.push_back(0);
        kvObject copy = reinterpret_cast<kvObject>(
            kvSendMeth(&error, data, "getRawImageObject", params.data()));
        if (copy) made.push_back(copy);
        return copy;
    }
    kvObject data = nullptr;
    kvObject changes = nullptr;
};

TEST_F(ImageDataTest, ABlankPageStartsWhiteWhenBlackIsZeroAndBlackOtherwise) {
    EXPECT_EQ(setImage(2, 16, 3, 1, 1, KV_PHOTOMETRIC_BLACK_IS_ZERO), 1);
    EXPECT_EQ(calls(changes), 1);
    kvObject copy = region({});
    EXPECT_EQ(std::vector<uint8_t>(pixels(copy), pixels(copy) + 6), std::vector<uint8_t>(6, 255));
    EXPECT_EQ(kvSendMeth(&error, data, "getImageWidth"), 16);
    EXPECT_EQ(kvSendMeth(&error, data, "getImageXResolution"), 300);
    EXPECT_EQ(kvSendMeth(&error, data, "getImageSamplesPerPixel"), 1);

    EXPECT_EQ(setImage(2, 16, 3, 1, 1, KV_PHOTOMETRIC_WHITE_IS_ZERO), 1);
    copy = region({});
    EXPECT_EQ(std::vector<uint8_t>(pixels(copy), pixels(copy) + 6), std::vector<uint8_t>(6, 0));
    EXPECT_EQ(calls(changes), 2);
}

TEST_F(ImageDataTest, SetImageDataCopiesPixelsAndPalette) {
    const uint8_t grey[6] = {1, 2, 3, 4, 5, 6};
    std::vector<kvPaletteEntry> ramp(256);
    for (uint32_t i = 0; i < 256; ++i)
        ramp[i] = {i, i, 255 - i};
    EXPECT_EQ(setImage(3, 3, 2, 8, 1, 3, grey, 256, ramp.data()), 1);
    kvObject copy = region({});
    // A copy masks its last byte with 255 << ((3 × 8 / 8) mod 8), as copies
    // of colour images always have.
    EXPECT_EQ(std::vector<uint8_t>(pixels(copy), pixels(copy) + 6),
              (std::vector<uint8_t>{1, 2, 3 & 0xF8, 4, 5, 6 & 0xF8}));
    EXPECT_EQ(palette(copy)[7].blue, 248u);

    EXPECT_EQ(setImage(3, 3, 2, 2, 1, 3), 0); // no such depth
    EXPECT_EQ(takeError(), 3428);
    EXPECT_EQ(kvSendMeth(&error, data, "getImageWidth"), 0);
}

TEST_F(ImageDataTest, BandsAreStoredBetweenBeginAndEnd) {
    const uint8_t band[4] = {9, 8, 7, 6};
    EXPECT_EQ(kvSendMeth(&error, data, "storeImageData", band, 1, 0), 0); // not storing
    const auto raw = reinterpret_cast<kvObject>(kvSendMeth(
        &error, data, "beginStoreImageData", 2, 2, 3, 8, 1, 3, 0, 0, 0, 0, 0, 72, 72, 0, nullptr));
    ASSERT_NE(raw, nullptr);
    // The palette is sent to the raw image, which has no such method.
    EXPECT_EQ(takeError(), 3427);
    EXPECT_EQ(calls(changes), 0);
    std::memset(pixels(raw), 0, 6);
    EXPECT_EQ(kvSendMeth(&error, data, "storeImageData", band, 2, 1), 1);
    EXPECT_EQ(kvSendMeth(&error, data, "storeImageData", band, 5, 2), 1); // cut to one row
    EXPECT_EQ(std::vector<uint8_t>(pixels(raw), pixels(raw) + 6),
              (std::vector<uint8_t>{0, 0, 9, 8, 9, 8}));
    EXPECT_EQ(kvSendMeth(&error, data, "storeImageData", band, 1, -1), 0);
    EXPECT_EQ(takeError(), 3493);

    EXPECT_EQ(kvSendMeth(&error, data, "endStoreImageData"), 0);
    EXPECT_EQ(calls(changes), 1);
    EXPECT_EQ(kvSendMeth(&error, data, "endStoreImageData"), 0); // not storing: no notice
    EXPECT_EQ(calls(changes), 1);
    EXPECT_EQ(kvSendMeth(&error, data, "storeImageData", band, 1, 0), 0);
}

TEST_F(ImageDataTest, BlockStoresTakeTheRowOffsetWithTheSourcePitch) {
    const auto raw = reinterpret_cast<kvObject>(kvSendMeth(
        &error, data, "beginStoreImageData", 4, 4, 4, 8, 1, 3, 0, 0, 0, 0, 0, 72, 72, 0, nullptr));
    takeError();
    std::memset(pixels(raw), 0, 16);
    const uint8_t block[6] = {1, 2, 3, 4, 5, 6};
    // Pitch 3, y 1: the block lands at 1 × 3 + column 1, not at row 1.
    EXPECT_EQ(kvSendMeth(&error, data, "storeImageDataEx", block, 2, 2, 1, 1, 3), 1);
    EXPECT_EQ(std::vector<uint8_t>(pixels(raw), pixels(raw) + 16),
              (std::vector<uint8_t>{0, 0, 0, 0, 1, 2, 0, 0, 4, 5, 0, 0, 0, 0, 0, 0}));
    // The full width goes in one piece at row y.
    const std::vector<uint8_t> rows(8, 7);
    EXPECT_EQ(kvSendMeth(&error, data, "storeImageDataEx", rows.data(), 4, 2, 0, 2, 4), 1);
    EXPECT_EQ(pixels(raw)[8], 7);
    EXPECT_EQ(kvSendMeth(&error, data, "storeImageDataEx", block, 0, 2, 0, 0, 3), 0);
    // A source pitch that would place rows past the buffer writes none of them.
    EXPECT_EQ(kvSendMeth(&error, data, "storeImageDataEx", block, 2, 2, 1, 3, 1000), 1);
    EXPECT_EQ(pixels(raw)[12], 7);
}

TEST_F(ImageDataTest, PaletteEntriesAreCheckedAgainstTheRawImage) {
    const kvPaletteEntry entries[16] = {{1, 2, 3}};
    EXPECT_EQ(kvSendMeth(&error, data, "setImagePaletteEntries", 16, entries), 0);
    EXPECT_EQ(errorMessage(error),
              "Invalid bit resolution found in Raw Image object. Bits Per "
              "Sample was found to be: 0; Samples Per Pixel was found to be: 0.");
    EXPECT_EQ(takeError(), 3509);
    EXPECT_EQ(kvSendMeth(&error, data, "setImagePaletteEntries", 0, entries), 0);
    EXPECT_EQ(takeError(), 3508);
    setImage(6, 2, 1, 8, 3, 2);
    EXPECT_EQ(kvSendMeth(&error, data, "setImagePaletteEntries", 16, entries), 0);
    EXPECT_EQ(takeError(), 3510);
    setImage(1, 2, 1, 4, 1, 3);
    EXPECT_EQ(kvSendMeth(&error, data, "setImagePaletteEntries", 15, entries), 0);
    EXPECT_EQ(takeError(), 3512);
    EXPECT_EQ(kvSendMeth(&error, data, "setImagePaletteEntries", 16, entries), 1);
    EXPECT_EQ(palette(region({}))[0].blue, 3u);
}

TEST_F(ImageDataTest, DepthsAreSplitIntoSamples) {
    int16_t bitsPerSample = -1, samplesPerPixel = -1;
    EXPECT_EQ(kvSendMeth(&error, data, "getBPSAndSPPFromBPP", 16, &bitsPerSample, &samplesPerPixel),
              1);
    EXPECT_EQ(bitsPerSample, 4);
    EXPECT_EQ(samplesPerPixel, 3);
    EXPECT_EQ(kvSendMeth(&error, data, "getBPSAndSPPFromBPP", 12, &bitsPerSample, nullptr), 0);
    EXPECT_EQ(bitsPerSample, 4);
    EXPECT_EQ(kvSendMeth(&error, data, "getBPSAndSPPFromBPP", 1, nullptr, nullptr), 1);
}

TEST_F(ImageDataTest, RegionCopiesStartAtAByteAndMaskTheirEdges) {
    const uint8_t page[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    setImage(3, 24, 2, 1, 1, KV_PHOTOMETRIC_WHITE_IS_ZERO, page);
    kvObject copy =
        region({KV_IMAGE_PARAM_LEFT, 3, KV_IMAGE_PARAM_RIGHT, 13, KV_IMAGE_PARAM_TOP, 1});
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(get(copy, "getImageWidth"), 13);
    EXPECT_EQ(get(copy, "getImageHeight"), 1);
    EXPECT_EQ(get(copy, "getBytesPerLine"), 2);
    EXPECT_EQ(get(copy, "getPhotoMetricInterp"), KV_PHOTOMETRIC_WHITE_IS_ZERO);
    EXPECT_EQ(row(copy, 0)[0], 0x1F); // three leftmost bits cleared
    EXPECT_EQ(row(copy, 0)[1], 0xE0); // 255 << 5, kept to a byte

    kvObject inverted = region({KV_IMAGE_PARAM_PHOTOMETRIC, 1, KV_IMAGE_PARAM_RIGHT, 16});
    EXPECT_EQ(get(inverted, "getPhotoMetricInterp"), KV_PHOTOMETRIC_BLACK_IS_ZERO);
    EXPECT_EQ(row(inverted, 1)[0], 0x00);
    EXPECT_EQ(get(inverted, "getInverted"), 0);

    EXPECT_EQ(region({KV_IMAGE_PARAM_PHOTOMETRIC, 2}), nullptr);
    EXPECT_EQ(errorMessage(error), "Invalid photometric interpretation requested for converting "
                                   "Bitonal image. Original PMI: 0; Requested PMI: 2");
    EXPECT_EQ(takeError(), 3499);
    EXPECT_EQ(region({KV_IMAGE_PARAM_RIGHT, 25}), nullptr);
    EXPECT_EQ(takeError(), 3490);
}

TEST_F(ImageDataTest, ColourRegionCopiesKeepTheirPaletteAndMarkAChangeAsInverted) {
    std::vector<kvPaletteEntry> ramp(256, kvPaletteEntry{4, 5, 6});
    const uint8_t grey[8] = {10, 11, 12, 13, 20, 21, 22, 23};
    setImage(4, 4, 2, 8, 1, 3, grey, 256, ramp.data());
    kvObject copy =
        region({KV_IMAGE_PARAM_LEFT, 1, KV_IMAGE_PARAM_RIGHT, 3, KV_IMAGE_PARAM_PHOTOMETRIC, 2});
    EXPECT_EQ(get(copy, "getInverted"), 1);
    EXPECT_EQ(get(copy, "getPhotoMetricInterp"), 3);
    EXPECT_EQ(get(copy, "getImageWidth"), 2);
    EXPECT_EQ(palette(copy)[200].green, 5u);
    // The edge masks come from byte offsets: 255 >> 1 and 255 << 3.
    EXPECT_EQ(std::vector<uint8_t>(row(copy, 1), row(copy, 1) + 2),
              (std::vector<uint8_t>{21 & 0x7F, 22 & 0xF8}));
    EXPECT_EQ(region({KV_IMAGE_PARAM_PHOTOMETRIC, 1}), nullptr);
    EXPECT_EQ(takeError(), 3500);
}

TEST_F(ImageDataTest, ARawImageHandedInIsOwnedAndAnnounced) {
    kvObject raw = image(2, 2, 8, 1, 2);
    forget(raw);
    EXPECT_EQ(kvSendMeth(&error, data, "setRawImageObjectNoNotify", raw), 1);
    EXPECT_EQ(calls(changes), 0);
    EXPECT_EQ(kvSendMeth(&error, data, "getImageHeight"), 2);
    kvObject other = image(2, 5, 8, 1, 2);
    forget(other);
    EXPECT_EQ(kvSendMeth(&error, data, "setRawImageObject", other), 1);
    EXPECT_EQ(calls(changes), 1);
    EXPECT_EQ(kvSendMeth(&error, data, "getImageHeight"), 5);
    kvSendMeth(&error, data, "clearImage");
    EXPECT_EQ(calls(changes), 2);
    EXPECT_EQ(kvSendMeth(&error, data, "getImageHeight"), 0);
    EXPECT_EQ(region({}), nullptr);
    EXPECT_EQ(kvSendMeth(&error, data, "getSidebandDataObject"), 0); // no owner
}

} // namespace
} // namespace kova::test
