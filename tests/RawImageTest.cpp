// RawImage: the depth table, photometric changes, the promotions with their
// kept quirks, demotion through the colour reducer, DIB export and import
// (and hostile DIBs), palette remapping and merging.
#include "tests/ImageFixture.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace kova::test {
namespace {

using RawImageTest = ImageTest;

TEST_F(RawImageTest, CreationFollowsTheDepthTableAndRefusesOthers) {
    kvObject grey = make("RawImage", 10, 3, 8, 1, nullptr, "g", 0, 0);
    EXPECT_EQ(get(grey, "getImageWidth"), 0);
    EXPECT_EQ(get(grey, "getImageByteSize"), 30);
    EXPECT_EQ(get(grey, "getPhotoMetricInterp"), KV_PHOTOMETRIC_PALETTE);
    EXPECT_EQ(get(grey, "getPaletteSize"), 256);

    kvObject rgb444 = make("RawImage", 8, 2, 4, 3, nullptr, "c", 0, 0);
    EXPECT_EQ(get(rgb444, "getBitsPerPixel"), 16);
    EXPECT_EQ(get(rgb444, "getPhotoMetricInterp"), KV_PHOTOMETRIC_RGB);
    EXPECT_EQ(get(rgb444, "getPalettePointer"), 0);

    make("RawImage", 4, 4, 2, 1, nullptr, "bad", 0, 0);
    EXPECT_EQ(errorMessage(error), "Invalid numerical input; Parameter BitsPerPixel = 2");
    EXPECT_EQ(takeError(), 3479);
    make("RawImage", 0, 4, 1, 1, nullptr, "bad", 0, 0);
    EXPECT_EQ(errorMessage(error), "Invalid numerical input; Parameter BytesPerLine = 0");
    EXPECT_EQ(takeError(), 3479);
    make("RawImage", 40000, 4, 1, 1, nullptr, "bad", 0, 0); // wider than the 16-bit field
    EXPECT_EQ(takeError(), 3479);
    make("RawImage", 4, -1, 1, 1, nullptr, "bad", 0, 0);
    EXPECT_EQ(takeError(), 3479);
}

TEST_F(RawImageTest, CreationWithoutMemoryReportsItAndKeepsNoBlock) {
    make("RawImage", 4, 4, 8, 1, nullptr, "registers the class", 0, 0);
    failEachAllocation(
        [&] {
            kvObject raw = kvNewObject(&error, "RawImage", 4, 4, 8, 1, nullptr, "x", 0, 0);
            const bool done = raw && !error;
            if (!done) {
                const int32_t code = takeError();
                EXPECT_TRUE(code == 0 || code == 3426 || code == 3429) << code;
            }
            kvDelObject(nullptr, raw);
            return done;
        },
        [] {});
    // The palette is the last block made: without it the pixels go too, and
    // the palette depth's photometric value stays.
    const unsigned long before = kvDebugAllocCount();
    kvDelObject(nullptr, kvNewObject(&error, "RawImage", 4, 4, 8, 1, nullptr, "x", 0, 0));
    kvDebugFailAllocOnce(long(kvDebugAllocCount() - before) - 1);
    kvObject raw = make("RawImage", 4, 4, 8, 1, nullptr, "x", 0, 0);
    EXPECT_EQ(takeError(), 3429);
    EXPECT_EQ(get(raw, "getImageDataPointer"), 0);
    EXPECT_EQ(get(raw, "getPhotoMetricInterp"), KV_PHOTOMETRIC_PALETTE);
}

TEST_F(RawImageTest, BilevelPhotometricChangeFlipsEveryByteIncludingSlack) {
    kvObject raw = image(3, 2, 1, 1, 9); // 2 bytes of pixels and 1 of slack a row
    row(raw, 0)[0] = 0x0F;
    EXPECT_EQ(kvSendMeth(&error, raw, "setPhotoMetricInterp", 0), 1);
    EXPECT_EQ(row(raw, 0)[0], 0x0F);
    kvSendMeth(&error, raw, "setPhotoMetricInterp", 1);
    EXPECT_EQ(row(raw, 0)[0], 0xF0);
    EXPECT_EQ(row(raw, 1)[2], 0xFF);
    EXPECT_EQ(get(raw, "getPhotoMetricInterp"), 1);
}

TEST_F(RawImageTest, PaletteImagesGetAGreyRampOnlyWhenTheyWereGrey) {
    kvObject four = image(2, 1, 4, 1, 4);
    palette(four)[3] = {9, 9, 9};
    kvSendMeth(&error, four, "setPhotoMetricInterp", 1); // from 3: palette kept
    EXPECT_EQ(palette(four)[3].red, 9u);
    kvSendMeth(&error, four, "setPhotoMetricInterp", 0); // from 1: ascending ramp
    EXPECT_EQ(palette(four)[3].red, 51u);
    EXPECT_EQ(palette(four)[15].blue, 255u);
}

TEST_F(RawImageTest, ColourPhotometricChangeSwapsRedAndBlueOfEachPixel) {
    kvObject raw = image(7, 1, 8, 3, 2);
    const uint8_t rgb[7] = {1, 2, 3, 4, 5, 6, 7};
    std::memcpy(row(raw, 0), rgb, 7);
    kvSendMeth(&error, raw, "setPhotoMetricInterp", KV_PHOTOMETRIC_BGR);
    EXPECT_EQ(std::vector<uint8_t>(row(raw, 0), row(raw, 0) + 7),
              (std::vector<uint8_t>{3, 2, 1, 6, 5, 4, 7}));
    kvSendMeth(&error, raw, "setPhotoMetricInterp", 3); // only the field changes
    EXPECT_EQ(row(raw, 0)[0], 3);
}

TEST_F(RawImageTest, PromotionAnswersOneForTheSameDepthAndZeroForALowerOne) {
    kvObject raw = image(4, 1, 8, 1, 4);
    EXPECT_EQ(kvSendMeth(&error, raw, "promoteImage", 8, 3), 1);
    EXPECT_EQ(kvSendMeth(&error, raw, "promoteImage", 4, 3), 0);
    EXPECT_EQ(get(raw, "getBitsPerPixel"), 8);
}

TEST_F(RawImageTest, OneBitPromotionCarriesTheSlackAndPutsEvenPixelsHigh) {
    kvObject raw = image(3, 1, 1, 1, 10); // 2 bytes of pixels and 1 of slack
    row(raw, 0)[0] = 0b1010'0000;
    kvSendMeth(&error, raw, "setPhotoMetricInterp", 1); // now 0b0101'1111 ...
    kvSendMeth(&error, raw, "promoteImage", 4, 3);
    EXPECT_EQ(get(raw, "getBytesPerLine"), 5 + 1);
    EXPECT_EQ(get(raw, "getPhotoMetricInterp"), KV_PHOTOMETRIC_PALETTE);
    EXPECT_EQ(row(raw, 0)[0], 0x01); // pixel 0 (bit 0) high, pixel 1 (bit 1) low
    EXPECT_EQ(row(raw, 0)[2], 0x11);
    EXPECT_EQ(palette(raw)[0].red, 0u); // black is zero: entry 0 black
    EXPECT_EQ(palette(raw)[1].red, 255u);
    EXPECT_EQ(palette(raw)[2].red, 0u);
}

TEST_F(RawImageTest, OneBitPromotionToColourFollowsThePhotometricValue) {
    kvObject raw = image(1, 1, 1, 1, 2);
    row(raw, 0)[0] = 0b1000'0000; // white is zero: pixel 0 black, pixel 1 white
    kvSendMeth(&error, raw, "promoteImage", 24, 2);
    EXPECT_EQ(std::vector<uint8_t>(row(raw, 0), row(raw, 0) + 6),
              (std::vector<uint8_t>{0, 0, 0, 255, 255, 255}));
    EXPECT_EQ(get(raw, "getBitsPerPixel"), 24);

    kvObject sixteen = image(1, 1, 1, 1, 2);
    row(sixteen, 0)[0] = 0xC0;
    kvSendMeth(&error, sixteen, "promoteImage", 16, 2);
    EXPECT_EQ(get(sixteen, "getBitsPerSample"), 4); // pixels left as allocated
    EXPECT_EQ(row(sixteen, 0)[0] | row(sixteen, 0)[1] | row(sixteen, 0)[3], 0);
}

TEST_F(RawImageTest, FourBitPromotionReadsThePixelZeroFromTheLowNibble) {
    kvObject raw = image(2, 1, 4, 1, 4);
    row(raw, 0)[0] = 0x21;
    row(raw, 0)[1] = 0x43;
    palette(raw)[1] = {10, 20, 30};
    palette(raw)[15] = {1, 1, 1};
    kvSendMeth(&error, raw, "promoteImage", 8, 3);
    EXPECT_EQ(std::vector<uint8_t>(row(raw, 0), row(raw, 0) + 4),
              (std::vector<uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(get(raw, "getPaletteSize"), 256);
    EXPECT_EQ(palette(raw)[15].red, 1u);
    EXPECT_EQ(palette(raw)[16].red, 0u);

    kvObject colour = image(1, 1, 4, 1, 2);
    row(colour, 0)[0] = 0x01;
    palette(colour)[1] = {10, 20, 30};
    kvSendMeth(&error, colour, "promoteImage", 24, 2);
    EXPECT_EQ(std::vector<uint8_t>(row(colour, 0), row(colour, 0) + 3),
              (std::vector<uint8_t>{10, 20, 30}));
}

TEST_F(RawImageTest, EightBitPromotionWritesThreeBytesAPixelEvenForSixteenBits) {
    kvObject raw = image(2, 2, 8, 1, 2);
    for (uint32_t i = 0; i < 4; ++i)
        palette(raw)[i] = {i * 10 + 1, i * 10 + 2, i * 10 + 3};
    row(raw, 0)[0] = 0, row(raw, 0)[1] = 1, row(raw, 1)[0] = 2, row(raw, 1)[1] = 3;
    kvSendMeth(&error, raw, "promoteImage", 16, 2);
    EXPECT_EQ(get(raw, "getBytesPerLine"), 4);
    EXPECT_EQ(get(raw, "getPalettePointer"), 0);
    // Row 0's six bytes ran into row 1, which was written over them.
    EXPECT_EQ(std::vector<uint8_t>(pixels(raw), pixels(raw) + 8),
              (std::vector<uint8_t>{1, 2, 3, 11, 21, 22, 23, 31}));
}

TEST_F(RawImageTest, SixteenBitPromotionWidensChannelsForRgbOnly) {
    kvObject raw = image(2, 1, 4, 3, 1);
    row(raw, 0)[0] = 0x5F, row(raw, 0)[1] = 0x0A; // channels A, 5, F
    kvSendMeth(&error, raw, "promoteImage", 24, KV_PHOTOMETRIC_BGR);
    EXPECT_EQ(std::vector<uint8_t>(row(raw, 0), row(raw, 0) + 3),
              (std::vector<uint8_t>{255, 85, 170}));

    kvObject five = image(2, 1, 5, 3, 1);
    row(five, 0)[0] = 0x1F, row(five, 0)[1] = 0x7C; // 31, 0, 31
    kvSendMeth(&error, five, "promoteImage", 24, 2);
    EXPECT_EQ(std::vector<uint8_t>(row(five, 0), row(five, 0) + 3),
              (std::vector<uint8_t>{255, 0, 255}));

    kvObject other = image(2, 1, 4, 3, 1);
    row(other, 0)[0] = 0xFF;
    kvSendMeth(&error, other, "setPhotoMetricInterp", KV_PHOTOMETRIC_BGR);
    kvSendMeth(&error, other, "promoteImage", 24, 2); // not converted: the scratch row
    EXPECT_EQ(row(other, 0)[0], 0);
    EXPECT_EQ(get(other, "getPhotoMetricInterp"), KV_PHOTOMETRIC_RGB);
    EXPECT_EQ(kvSendMeth(&error, other, "_promote16BPP", 8, 2), 0);
}

TEST_F(RawImageTest, ConversionsRefuseAGeometryTheBufferDoesNotHold) {
    kvObject raw = image(2, 2, 8, 1, 2);
    kvSendMeth(&error, raw, "setImageHeight", 100);
    EXPECT_EQ(kvSendMeth(&error, raw, "getDIB"), 0);
    EXPECT_EQ(takeError(), 3522);
    kvSendMeth(&error, raw, "setImageHeight", 2);
    kvSendMeth(&error, raw, "setImageWidth", 3);
    kvSendMeth(&error, raw, "promoteImage", 24, 2);
    EXPECT_EQ(errorMessage(error), "Invalid value found in an attribute of a RawImage object. "
                                   "Attribute name: ImageWidth; Value: 3.");
    EXPECT_EQ(takeError(), 3522);
    EXPECT_EQ(get(raw, "getBitsPerPixel"), 8);
}

TEST_F(RawImageTest, GetDIBWritesTheHeaderTableAndBottomUpRows) {
    kvObject raw = image(3, 2, 8, 1, 3);
    kvSendMeth(&error, raw, "setXResolution", 300);
    kvSendMeth(&error, raw, "setYResolution", 200);
    palette(raw)[1] = {10, 20, 30};
    row(raw, 0)[0] = 1, row(raw, 1)[2] = 7;
    Dib dib = Dib::read(reinterpret_cast<kvMemHandle>(get(raw, "getDIB")));
    EXPECT_EQ(dib.header.biSize, 40u);
    EXPECT_EQ(dib.header.biHeight, 2);
    EXPECT_EQ(dib.header.biBitCount, 8);
    EXPECT_EQ(dib.header.biClrUsed, 0u);
    EXPECT_EQ(dib.header.biXPelsPerMeter, 11700);
    EXPECT_EQ(dib.header.biYPelsPerMeter, 7800);
    EXPECT_EQ(dib.table[1].rgbBlue, 30);
    EXPECT_EQ(dib.table[1].rgbRed, 10);
    EXPECT_EQ(dib.row(0)[0], 1);
    EXPECT_EQ(dib.row(1)[2], 7);
    EXPECT_EQ(dib.bits.size(), 8u);

    kvObject colour = image(6, 1, 8, 3, 2);
    row(colour, 0)[0] = 1, row(colour, 0)[2] = 3;
    Dib bgr = Dib::read(reinterpret_cast<kvMemHandle>(get(colour, "getDIB")));
    EXPECT_EQ(bgr.bits[0], 3); // RGB rows swapped to the DIB's order
    EXPECT_EQ(bgr.bits[2], 1);

    kvObject bilevel = image(1, 1, 1, 1, 8);
    kvSendMeth(&error, bilevel, "setPhotoMetricInterp", 1);
    Dib oneBit = Dib::read(reinterpret_cast<kvMemHandle>(get(bilevel, "getDIB")));
    EXPECT_EQ(oneBit.table[0].rgbRed, 255); // white first whatever the photometric value
    EXPECT_EQ(oneBit.table[1].rgbRed, 0);
}

TEST_F(RawImageTest, SetDIBTakesRowsPaletteAndResolution) {
    Dib dib = Dib::make(3, 2, 24);
    dib.header.biXPelsPerMeter = 11811;
    dib.header.biYPelsPerMeter = 11700;
    dib.row(0)[0] = 9, dib.row(1)[8] = 4;
    kvObject raw = image(1, 1, 1, 1, 1);
    kvSendMeth(&error, raw, "setRotation", 90);
    EXPECT_EQ(kvSendMeth(&error, raw, "setDIB", dib.handle()), 1);
    EXPECT_EQ(get(raw, "getXResolution"), 301);
    EXPECT_EQ(get(raw, "getYResolution"), 298);
    EXPECT_EQ(get(raw, "getPhotoMetricInterp"), KV_PHOTOMETRIC_BGR);
    EXPECT_EQ(get(raw, "getBytesPerLine"), 9);
    EXPECT_EQ(get(raw, "getRotation"), 0);
    EXPECT_EQ(row(raw, 0)[0], 9);
    EXPECT_EQ(row(raw, 1)[8], 4);

    Dib grey = Dib::make(2, 1, 8, 256);
    grey.header.biClrUsed = 2; // a short table: the rest of the palette is black
    grey.table.resize(2);
    grey.table[1] = {1, 2, 3, 0};
    EXPECT_EQ(kvSendMeth(&error, raw, "setDIB", grey.handle()), 1);
    EXPECT_EQ(get(raw, "getPaletteSize"), 256);
    EXPECT_EQ(palette(raw)[1].red, 3u);
    EXPECT_EQ(palette(raw)[2].red, 0u);

    Dib bilevel = Dib::make(8, 1, 1, 2);
    bilevel.table[0] = {255, 255, 255, 0};
    kvSendMeth(&error, raw, "setDIB", bilevel.handle());
    EXPECT_EQ(get(raw, "getPhotoMetricInterp"), KV_PHOTOMETRIC_WHITE_IS_ZERO);
}

TEST_F(RawImageTest, HostileDIBsAreRefusedWithTheImageUnchanged) {
    kvObject raw = image(2, 2, 8, 1, 2);
    auto refuse = [&](const std::vector<uint8_t>& block, int32_t code, const char* name) {
        kvMemHandle handle = Dib::handleOf(block);
        EXPECT_EQ(kvSendMeth(&error, raw, "setDIB", handle), 0);
        if (name) {
            EXPECT_NE(errorMessage(error).find(name), std::string::npos) << name;
        }
        EXPECT_EQ(takeError(), code) << (name ? name : "no error");
        kvGlobalFree(handle);
        EXPECT_EQ(get(raw, "getImageWidth"), 2);
    };
    auto with = [](Dib dib, auto change) {
        change(dib);
        return dib.bytes();
    };
    const Dib good = Dib::make(4, 2, 8, 256);
    refuse(with(good, [](Dib& d) { d.header.biWidth = 0; }), 3523, "Width");
    refuse(with(good, [](Dib& d) { d.header.biHeight = 0; }), 3523, "Height");
    refuse(with(good, [](Dib& d) { d.header.biHeight = -2; }), 3523, "Height");
    refuse(with(good, [](Dib& d) { d.header.biBitCount = 32; }), 3523, "BitCount");
    refuse(with(good, [](Dib& d) { d.header.biBitCount = 2; }), 0, nullptr);
    refuse(with(good, [](Dib& d) { d.header.biWidth = 40000; }), 3523, "Width");
    refuse(with(good, [](Dib& d) { d.header.biHeight = INT_MAX; }), 3523, "Height");
    refuse(with(good, [](Dib& d) { d.header.biClrUsed = 0xFFFFFFFFu; }), 3493, "bits");
    refuse(with(good, [](Dib& d) { d.header.biSize = 8; }), 3523, "HeaderSize");
    refuse(with(good, [](Dib& d) { d.bits.resize(5); }), 3523, "ImageSize");
    refuse({1, 2, 3}, 3523, "HeaderSize");
    EXPECT_EQ(kvSendMeth(&error, raw, "setDIB", nullptr), 0);
    EXPECT_EQ(takeError(), 3493);
}

TEST_F(RawImageTest, OlderHeadersHaveThreeByteColourEntries) {
    std::vector<uint8_t> block(12 + 2 * 3 + 4);
    const kvBitmapCoreHeader header{12, 3, 1, 1, 1};
    std::memcpy(block.data(), &header, sizeof header);
    block[12] = block[13] = block[14] = 255; // entry 0 white
    block[18] = 0b0100'0000;
    kvObject raw = image(1, 1, 1, 1, 1);
    EXPECT_EQ(kvSendMeth(&error, raw, "setDIB", Dib::handleOf(block)), 1);
    EXPECT_EQ(get(raw, "getImageWidth"), 3);
    EXPECT_EQ(get(raw, "getPhotoMetricInterp"), KV_PHOTOMETRIC_WHITE_IS_ZERO);
    EXPECT_EQ(row(raw, 0)[0], 0b0100'0000);
}

TEST_F(RawImageTest, DIBRoundTripKeepsEveryDepth) {
    for (const auto& [bps, spp, width] : {std::tuple{1, 1, 13}, {4, 1, 5}, {8, 1, 7}, {8, 3, 5}}) {
        const int32_t bytesPerLine = (width * bps * spp + 7) / 8;
        kvObject raw = image(bytesPerLine, 3, bps, spp, width);
        for (int32_t i = 0; i < bytesPerLine * 3; ++i)
            pixels(raw)[i] = uint8_t(i * 37 + 11);
        const bool paletted = bps * spp == 4 || bps * spp == 8;
        if (paletted)
            for (uint32_t i = 0; i < (1u << bps); ++i)
                palette(raw)[i] = {i, 255 - i, i / 2};
        const std::vector<uint8_t> before(pixels(raw), pixels(raw) + bytesPerLine * 3);
        kvObject copy = image(1, 1, 1, 1, 1);
        ASSERT_EQ(kvSendMeth(&error, copy, "setDIB", get(raw, "getDIB")), 1);
        if (spp == 3) kvSendMeth(&error, copy, "setPhotoMetricInterp", KV_PHOTOMETRIC_RGB);
        EXPECT_EQ(std::vector<uint8_t>(pixels(copy), pixels(copy) + bytesPerLine * 3), before)
            << bps << "x" << spp;
        if (paletted) {
            EXPECT_EQ(palette(copy)[1].green, 254u);
        }
    }
}

TEST_F(RawImageTest, DemotionGoesThroughTheReducerAndRestoresOnFailure) {
    kvObject raw = image(4, 2, 8, 1, 4);
    for (uint32_t i = 0; i < 256; ++i)
        palette(raw)[i] = {i, i, i};
    row(raw, 0)[0] = 255, row(raw, 1)[3] = 200;
    EXPECT_EQ(kvSendMeth(&error, raw, "demoteImage", 1, KV_PHOTOMETRIC_BLACK_IS_ZERO), 1);
    EXPECT_EQ(get(raw, "getBitsPerPixel"), 1);
    EXPECT_EQ(get(raw, "getPhotoMetricInterp"), KV_PHOTOMETRIC_BLACK_IS_ZERO);
    EXPECT_EQ(row(raw, 0)[0] & 0xF0, 0x80); // the white pixel is a 1 when black is zero

    EXPECT_EQ(kvSendMeth(&error, raw, "demoteImage", 1, KV_PHOTOMETRIC_WHITE_IS_ZERO), 1);
    EXPECT_EQ(row(raw, 0)[0] & 0xF0, 0x70); // only the field changed: bytes complemented
    EXPECT_EQ(kvSendMeth(&error, raw, "demoteImage", 8, 3), 0);

    kvObject colour = image(6, 1, 8, 3, 2);
    row(colour, 0)[0] = 200;
    EXPECT_EQ(kvSendMeth(&error, colour, "demoteImage", 8, 3), 1);
    EXPECT_EQ(get(colour, "getBitsPerPixel"), 8);
    const kvPaletteEntry red = palette(colour)[row(colour, 0)[0]];
    EXPECT_EQ(red.red, 200u); // two colours are kept exactly
    EXPECT_EQ(red.green, 0u);

    kvObject kept = image(6, 1, 8, 3, 2);
    EXPECT_EQ(kvSendMeth(&error, kept, "demoteImage", 5, 3), 0); // no such depth
    EXPECT_EQ(get(kept, "getBitsPerPixel"), 24);
    EXPECT_EQ(get(kept, "getImageWidth"), 2);
}

TEST_F(RawImageTest, PaletteMappingTakesTheNearestAndTheLowestOnATie) {
    kvObject raw = image(2, 1, 8, 1, 2);
    palette(raw)[0] = {10, 10, 10};
    palette(raw)[1] = {100, 0, 0};
    for (int i = 2; i < 256; ++i)
        palette(raw)[i] = {200, 200, 200};
    row(raw, 0)[0] = 0, row(raw, 0)[1] = 1;
    std::vector<kvPaletteEntry> target(256, kvPaletteEntry{250, 250, 250});
    target[5] = {0, 10, 10};  // distance 10 from entry 0
    target[7] = {20, 10, 10}; // also 10: the lower index wins
    target[9] = {100, 0, 1};
    EXPECT_EQ(kvSendMeth(&error, raw, "_mapImageToPalette", 8, target.data()), 0);
    EXPECT_EQ(row(raw, 0)[0], 5);
    EXPECT_EQ(row(raw, 0)[1], 9);
    EXPECT_EQ(palette(raw)[7].red, 20u);
    EXPECT_EQ(kvSendMeth(&error, raw, "_mapImageToPalette", 8, nullptr), 0);

    kvObject four = image(1, 1, 4, 1, 2);
    row(four, 0)[0] = 0x12;
    for (uint32_t i = 0; i < 16; ++i)
        palette(four)[i] = {i, 0, 0};
    std::vector<kvPaletteEntry> reversed(16);
    for (uint32_t i = 0; i < 16; ++i)
        reversed[i] = {15 - i, 0, 0};
    kvSendMeth(&error, four, "_mapImageToPalette", 4, reversed.data());
    EXPECT_EQ(row(four, 0)[0], 0xED);
}

TEST_F(RawImageTest, MergeSplicesWholeBytesAtABitShiftAndConsumesTheSource) {
    kvObject page = image(3, 2, 1, 1, 24);
    std::memset(pixels(page), 0xFF, 6);
    kvObject stamp = image(1, 1, 1, 1, 4);
    row(stamp, 0)[0] = 0b0000'0000;
    forget(stamp);
    EXPECT_EQ(kvSendMeth(&error, page, "mergeBitmap", stamp, 3, 1, 0), 1);
    EXPECT_EQ(row(page, 0)[0], 0xFF);
    // Pixels 3 to 10 take the source's whole byte; the last byte is left.
    EXPECT_EQ(row(page, 1)[0], 0b1110'0000);
    EXPECT_EQ(row(page, 1)[1], 0b0001'1111);
    EXPECT_EQ(row(page, 1)[2], 0xFF);

    kvObject grey = image(4, 2, 8, 1, 4);
    for (uint32_t i = 0; i < 256; ++i)
        palette(grey)[i] = {i, i, i};
    kvObject patch = image(2, 3, 8, 1, 2);
    for (uint32_t i = 0; i < 256; ++i)
        palette(patch)[i] = {255 - i, 255 - i, 255 - i};
    row(patch, 0)[0] = 0, row(patch, 0)[1] = 255;
    forget(patch);
    EXPECT_EQ(kvSendMeth(&error, grey, "mergeBitmap", patch, 1, 1, 0), 1);
    EXPECT_EQ(std::vector<uint8_t>(row(grey, 1), row(grey, 1) + 4),
              (std::vector<uint8_t>{0, 255, 0, 0})); // remapped onto the page's palette

    kvObject far = image(1, 1, 1, 1, 8);
    forget(far);
    EXPECT_EQ(kvSendMeth(&error, page, "mergeBitmap", far, -1, 0, 0), 0);
    EXPECT_EQ(takeError(), 3493);
}

// ---- the fast paths against straightforward pixel-by-pixel computations ----

// Deterministic bytes for varied images.
struct Noise {
    uint32_t seed;
    uint8_t next() {
        seed = seed * 1103515245u + 12345u;
        return uint8_t(seed >> 24);
    }
};

std::vector<uint8_t> bytesOf(const uint8_t* from, size_t count) {
    return std::vector<uint8_t>(from, from + count);
}

TEST_F(RawImageTest, OneBitPromotionMatchesPixelByPixelExpansionAtEveryWidth) {
    Noise noise{11};
    for (int32_t target : {4, 8, 24})
        for (int32_t photometric : {0, 1})
            for (int32_t width = 1; width <= 19; ++width)
                for (int32_t slack = 0; slack <= 2; ++slack) {
                    const int32_t packed = (width + 7) / 8, height = 3;
                    kvObject raw = image(packed + slack, height, 1, 1, width);
                    kvSendMeth(&error, raw, "setPhotoMetricInterp", photometric);
                    // Pixels past the width and the slack hold noise too.
                    std::vector<uint8_t> from(size_t(packed + slack) * height);
                    for (uint8_t& byte : from)
                        byte = noise.next();
                    std::memcpy(pixels(raw), from.data(), from.size());
                    ASSERT_EQ(kvSendMeth(&error, raw, "promoteImage", target, 3), 0);
                    ASSERT_EQ(error, nullptr);

                    const size_t toRow = (size_t(width) * size_t(target) + 7) / 8 + size_t(slack);
                    std::vector<uint8_t> expected(toRow * height, 0);
                    for (size_t y = 0; y < size_t(height); ++y)
                        for (size_t x = 0; x < size_t(width); ++x) {
                            const uint8_t byte = from[y * size_t(packed + slack) + x / 8];
                            const unsigned bit = (byte >> (7 - x % 8)) & 1u;
                            uint8_t* to = expected.data() + y * toRow;
                            if (target == 4)
                                to[x / 2] |= uint8_t(x % 2 ? bit : bit << 4);
                            else if (target == 8)
                                to[x] = uint8_t(bit);
                            else
                                std::memset(to + 3 * x, (bit == 1) == (photometric == 1) ? 255 : 0,
                                            3);
                        }
                    EXPECT_EQ(get(raw, "getBytesPerLine"), kvArg(toRow));
                    EXPECT_EQ(bytesOf(pixels(raw), expected.size()), expected)
                        << "target " << target << " width " << width << " slack " << slack;
                    EXPECT_EQ(get(raw, "getImageByteSize"), kvArg(expected.size()));
                    kvDelObject(nullptr, raw);
                    forget(raw);
                }
}

TEST_F(RawImageTest, EightBitPromotionToColourMatchesThePaletteForEveryPixel) {
    Noise noise{9};
    for (int32_t width = 1; width <= 9; ++width)
        for (int32_t slack = 0; slack <= 2; ++slack) {
            const int32_t height = 3;
            kvObject raw = image(width + slack, height, 8, 1, width);
            std::vector<uint8_t> from(size_t(width + slack) * height);
            for (uint8_t& byte : from)
                byte = noise.next();
            std::memcpy(pixels(raw), from.data(), from.size());
            for (uint32_t i = 0; i < 256; ++i)
                palette(raw)[i] = {noise.next(), noise.next(), noise.next()};
            const std::vector<kvPaletteEntry> colours(palette(raw), palette(raw) + 256);
            ASSERT_EQ(kvSendMeth(&error, raw, "promoteImage", 24, 2), 0);

            const size_t toRow = 3 * size_t(width) + size_t(slack);
            std::vector<uint8_t> expected(toRow * height, 0);
            for (size_t y = 0; y < size_t(height); ++y)
                for (size_t x = 0; x < size_t(width); ++x) {
                    const kvPaletteEntry& c = colours[from[y * size_t(width + slack) + x]];
                    uint8_t* to = expected.data() + y * toRow + 3 * x;
                    to[0] = uint8_t(c.red), to[1] = uint8_t(c.green), to[2] = uint8_t(c.blue);
                }
            EXPECT_EQ(bytesOf(pixels(raw), expected.size()), expected)
                << "width " << width << " slack " << slack;
            kvDelObject(nullptr, raw);
            forget(raw);
        }
}

// The nearest entry of `to` by least L1 distance, the lowest index on a tie.
size_t nearest(const kvPaletteEntry& colour, const std::vector<kvPaletteEntry>& to) {
    size_t best = 0;
    uint32_t bestDistance = UINT32_MAX;
    for (size_t j = 0; j < to.size(); ++j) {
        const uint32_t distance = uint32_t(std::abs(int(colour.red) - int(to[j].red)) +
                                           std::abs(int(colour.green) - int(to[j].green)) +
                                           std::abs(int(colour.blue) - int(to[j].blue)));
        if (distance < bestDistance) bestDistance = distance, best = j;
    }
    return best;
}

TEST_F(RawImageTest, PaletteMappingOfAVariedImageMatchesAFullSearchForEveryPixel) {
    Noise noise{5};
    // Coarse colours, so that many entries repeat and many distances tie.
    auto randomPalette = [&](size_t entries) {
        std::vector<kvPaletteEntry> colours(entries);
        for (kvPaletteEntry& c : colours)
            c = {uint32_t(noise.next() % 5 * 60), uint32_t(noise.next() % 5 * 60),
                 uint32_t(noise.next() % 5 * 60)};
        return colours;
    };
    for (int32_t bits : {8, 4})
        for (int32_t width : {1, 2, 7, 33, 300, 4000}) {
            // The widest has more bytes than the pair table is built for.
            const size_t entries = size_t{1} << bits;
            const int32_t bytesPerLine = (width * bits + 7) / 8 + 1;
            const int32_t height = width > 300 ? 20 : 5;
            kvObject raw = image(bytesPerLine, height, bits, 1, width);
            const std::vector<kvPaletteEntry> old = randomPalette(entries);
            std::memcpy(palette(raw), old.data(), entries * sizeof(kvPaletteEntry));
            std::vector<uint8_t> before(size_t(bytesPerLine) * height);
            for (uint8_t& byte : before)
                byte = noise.next();
            std::memcpy(pixels(raw), before.data(), before.size());
            const std::vector<kvPaletteEntry> target = randomPalette(entries);
            ASSERT_EQ(kvSendMeth(&error, raw, "_mapImageToPalette", bits, target.data()), 0);

            std::vector<uint8_t> expected = before;
            std::vector<uint8_t> nearestOf(entries);
            for (size_t i = 0; i < entries; ++i)
                nearestOf[i] = uint8_t(nearest(old[i], target));
            auto map = [&](unsigned index) { return nearestOf[index]; };
            for (size_t y = 0; y < size_t(height); ++y) {
                uint8_t* to = expected.data() + y * size_t(bytesPerLine);
                if (bits == 8) { // every byte of the row, slack included
                    for (size_t x = 0; x < size_t(bytesPerLine); ++x)
                        to[x] = map(to[x]);
                    continue;
                }
                for (size_t x = 0; x < size_t(width); ++x)
                    to[x / 2] = x % 2 ? uint8_t((to[x / 2] & 0xF0) | map(to[x / 2] & 0x0F))
                                      : uint8_t((map(to[x / 2] >> 4) << 4) | (to[x / 2] & 0x0F));
            }
            EXPECT_EQ(bytesOf(pixels(raw), expected.size()), expected)
                << bits << " bits, width " << width;
            EXPECT_EQ(palette(raw)[entries - 1].green, target[entries - 1].green);
        }
}

TEST_F(RawImageTest, GetDIBMatchesARowByRowLayoutAtEveryDepth) {
    Noise noise{3};
    struct Layout {
        int32_t bitsPerSample, samplesPerPixel, photometric;
    };
    for (const Layout layout : {Layout{1, 1, 1}, Layout{4, 1, 3}, Layout{8, 1, 3}, Layout{8, 3, 2},
                                Layout{8, 3, 120}, Layout{4, 3, 2}})
        for (int32_t width : {1, 3, 5, 30}) {
            const int32_t bits = layout.bitsPerSample * layout.samplesPerPixel == 12
                                     ? 16
                                     : layout.bitsPerSample * layout.samplesPerPixel;
            const int32_t bytesPerLine = (width * bits + 7) / 8 + 2, height = 4;
            kvObject raw =
                image(bytesPerLine, height, layout.bitsPerSample, layout.samplesPerPixel, width);
            kvSendMeth(&error, raw, "setPhotoMetricInterp", layout.photometric);
            kvSendMeth(&error, raw, "setXResolution", 7);
            std::vector<uint8_t> from(size_t(bytesPerLine) * height);
            for (uint8_t& byte : from)
                byte = noise.next();
            std::memcpy(pixels(raw), from.data(), from.size());
            const size_t entries = bits <= 8 && bits > 1 ? size_t{1} << bits : 0;
            for (size_t i = 0; i < entries; ++i)
                palette(raw)[i] = {noise.next(), noise.next(), noise.next()};

            const unsigned bitCount = bits == 16 ? 24 : unsigned(bits);
            const size_t pitch = kvDIBRowBytes(size_t(width), unsigned(bits));
            const size_t stride = kvDIBRowBytes(size_t(width), bitCount);
            const size_t tableEntries = bitCount <= 8 ? size_t{1} << bitCount : 0;
            std::vector<uint8_t> expected(40 + 4 * tableEntries + stride * height, 0);
            Dib header = Dib::make(width, height, uint16_t(bitCount));
            header.header.biXPelsPerMeter = 7 * 39;
            std::memcpy(expected.data(), &header.header, 40);
            uint8_t* table = expected.data() + 40;
            if (bits == 1) std::memset(table, 255, 3);
            for (size_t i = 0; i < entries; ++i) {
                table[4 * i] = uint8_t(palette(raw)[i].blue);
                table[4 * i + 1] = uint8_t(palette(raw)[i].green);
                table[4 * i + 2] = uint8_t(palette(raw)[i].red);
            }
            uint8_t* rows = table + 4 * tableEntries;
            for (size_t k = 0; k < size_t(height); ++k) {
                const uint8_t* source = from.data() + (size_t(height) - 1 - k) * bytesPerLine;
                for (size_t x = 0; x < std::min(size_t(bytesPerLine), pitch); ++x)
                    rows[k * pitch + x] = source[x];
            }
            if (bits == 24 && layout.photometric == 2)
                for (size_t k = 0; k < size_t(height); ++k)
                    for (size_t x = 0; x < stride / 3; ++x)
                        std::swap(rows[k * stride + 3 * x], rows[k * stride + 3 * x + 2]);

            const auto dib = reinterpret_cast<kvMemHandle>(get(raw, "getDIB"));
            ASSERT_NE(dib, nullptr);
            EXPECT_EQ(bytesOf(static_cast<const uint8_t*>(kvGlobalLock(dib)), kvGlobalSize(dib)),
                      expected)
                << bits << " bits, width " << width;
            kvGlobalUnlock(dib);
            kvGlobalFree(dib);
        }
}

TEST_F(RawImageTest, ConversionsWithoutMemoryReportItAndLeaveTheImageAsItWas) {
    for (int32_t target : {8, 24}) {
        kvObject raw = image(2, 3, 1, 1, 9);
        pixels(raw)[0] = 0x5A;
        failEachAllocation(
            [&] {
                kvSendMeth(&error, raw, "promoteImage", target, 3);
                if (!error) return true;
                EXPECT_EQ(takeError(), 3429);
                return false;
            },
            [&] {
                EXPECT_EQ(get(raw, "getBitsPerPixel"), 1);
                EXPECT_EQ(get(raw, "getBytesPerLine"), 2);
                EXPECT_EQ(pixels(raw)[0], 0x5A);
            });
        EXPECT_EQ(get(raw, "getBitsPerPixel"), target);
    }
    kvObject raw = image(3, 2, 8, 1, 3);
    failEachAllocation(
        [&] {
            const auto dib = reinterpret_cast<kvMemHandle>(get(raw, "getDIB"));
            if (dib) {
                kvGlobalFree(dib);
                return true;
            }
            EXPECT_EQ(takeError(), 3429);
            return false;
        },
        [] {});
}

} // namespace
} // namespace kova::test
