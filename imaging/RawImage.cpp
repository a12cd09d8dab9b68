// RawImage: one uncompressed raster in memory with its geometry, sample
// layout, photometric interpretation, display attributes and, for palette
// images, its colour table. It raises its own depth (promotion), lowers it
// through the colour reducer (demotion), converts itself to and from DIB
// handles, remaps its pixels onto another palette and pastes another RawImage
// into itself.
//
// Several conversions keep behaviour that callers depend on even where it
// looks odd: the four-bit reader takes the even pixel from the low nibble,
// 16-bit targets of the one- and four-bit promotions are left as allocated,
// an eight-bit promotion writes three bytes a pixel whatever its target,
// and a merge compares this image's bits per pixel with the source's bits
// per sample. Each is marked where it happens.
//
// Width and height can be set without reallocation, so every routine that
// walks the pixels first checks the geometry against the buffer it really
// holds (bufferSize) and raises 3522 instead of reading past it.
#include "imaging/RawImage.hpp"

#include "errors/Raise.hpp"
#include "imaging/ColourReducer.hpp"
#include "imaging/Dib.hpp"
#include "kova/image.h"
#include "platform/Platform.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace {

namespace platform = kova::platform;
using kova::imaging::dibStride;
using kova::imaging::packedRowBytes;

#pragma pack(push, 1)
struct RawImageData {
    int16_t bytesPerLine;      // bytes from one row's start to the next
    int16_t imageWidth;        // pixels a row; 0 until set
    int16_t imageHeight;       // rows
    int16_t bitsPerSample;     // 1, 4, 5 or 8
    int16_t samplesPerPixel;   // 1 or 3
    int16_t bitsPerPixel;      // 1, 4, 8, 16 or 24, from the depth table
    int16_t photoMetricInterp; // how samples are read (kova/image.h)
    int32_t inverted;          // display flag, stored only
    int16_t rotation;          // display attribute, stored only
    int16_t horizFlipped;      // display flag, stored only
    int16_t vertFlipped;       // display flag, stored only
    int16_t scaleToGrey;       // display flag, stored only
    int16_t xResolution;       // dots per inch
    int16_t yResolution;       // dots per inch
    int16_t paletteSize;       // palette entries, 0 without a palette
    kvPaletteEntry* palette;   // owned, paletteSize entries, or null
    uint8_t* imageData;        // owned pixel buffer, or null
    uint32_t bufferSize;       // bytes of imageData as allocated
};
#pragma pack(pop)

kvClass RawImageClass = nullptr;

KV_METHOD_TABLE(rawImageMethods,                         //
                kova::method("_mapImageToPalette", 2),   //
                kova::method("_promote16BPP", 2),        //
                kova::method("_promote1BPP", 2),         //
                kova::method("_promote4BPP", 2),         //
                kova::method("_promote8BPP", 2),         //
                kova::method("demoteImage", 2),          //
                kova::method("getBitsPerPixel", 0),      //
                kova::method("getBitsPerSample", 0),     //
                kova::method("getBytesPerLine", 0),      //
                kova::method("getDIB", 0),               //
                kova::method("getHorizFlipped", 0),      //
                kova::method("getImageByteSize", 0),     //
                kova::method("getImageDataPointer", 0),  //
                kova::method("getImageHeight", 0),       //
                kova::method("getImageWidth", 0),        //
                kova::method("getInverted", 0),          //
                kova::method("getPalettePointer", 0),    //
                kova::method("getPaletteSize", 0),       //
                kova::method("getPhotoMetricInterp", 0), //
                kova::method("getRotation", 0),          //
                kova::method("getSamplesPerPixel", 0),   //
                kova::method("getScaleToGrey", 0),       //
                kova::method("getVertFlipped", 0),       //
                kova::method("getXResolution", 0),       //
                kova::method("getYResolution", 0),       //
                kova::method("mergeBitmap", 4),          //
                kova::method("objInit", 4),              //
                kova::method("objTerm", 0),              //
                kova::method("promoteImage", 2),         //
                kova::method("setDIB", 1),               //
                kova::method("setHorizFlipped", 1),      //
                kova::method("setImageHeight", 1),       //
                kova::method("setImageWidth", 1),        //
                kova::method("setInverted", 1),          //
                kova::method("setPhotoMetricInterp", 1), //
                kova::method("setRotation", 1),          //
                kova::method("setScaleToGrey", 1),       //
                kova::method("setVertFlipped", 1),       //
                kova::method("setXResolution", 1),       //
                kova::method("setYResolution", 1));
KV_EMPTY_METHOD_TABLE(rawImageClassMethods);

static_assert(rawImageMethodsList.size() == 40);

RawImageData* dataOf(void* instData) {
    return static_cast<RawImageData*>(instData);
}

int32_t intArg(const kvArgs* args, size_t index) {
    return static_cast<int32_t>(kvArgAt(args, index));
}

int16_t lowHalf(const kvArgs* args, size_t index) {
    return static_cast<int16_t>(kvArgAt(args, index));
}

// The RawImage slice of `obj`'s data, or null when obj is not a RawImage.
RawImageData* rawImageOf(kvObject obj) {
    if (!obj || !obj->data || !RawImageClass) return nullptr;
    for (kvClass c = obj->cls; c; c = c->parent)
        if (c == RawImageClass)
            return reinterpret_cast<RawImageData*>(static_cast<char*>(obj->data) +
                                                   RawImageClass->dataOffset);
    return nullptr;
}

// ---- the depth table ----

struct Depth {
    int16_t bitsPerPixel;
    int16_t photoMetricInterp; // for a new buffer
    int16_t paletteSize;       // 2^bitsPerPixel for palette images, else 0
};

// The depth of (bitsPerSample, samplesPerPixel); bitsPerPixel 0 when the pair
// is not in the table. (4, 3) is a 4-4-4 form in a 16-bit word.
Depth depthOf(int32_t bitsPerSample, int32_t samplesPerPixel) {
    if (samplesPerPixel == 1) {
        if (bitsPerSample == 1) return {1, KV_PHOTOMETRIC_WHITE_IS_ZERO, 0};
        if (bitsPerSample == 4) return {4, KV_PHOTOMETRIC_PALETTE, 16};
        if (bitsPerSample == 8) return {8, KV_PHOTOMETRIC_PALETTE, 256};
    } else if (samplesPerPixel == 3) {
        if (bitsPerSample == 4 || bitsPerSample == 5) return {16, KV_PHOTOMETRIC_RGB, 0};
        if (bitsPerSample == 8) return {24, KV_PHOTOMETRIC_RGB, 0};
    }
    return {0, 0, 0};
}

void setLayout(RawImageData* d, int16_t bitsPerSample, int16_t samplesPerPixel,
               int16_t bitsPerPixel, int16_t photoMetricInterp) {
    d->bitsPerSample = bitsPerSample;
    d->samplesPerPixel = samplesPerPixel;
    d->bitsPerPixel = bitsPerPixel;
    d->photoMetricInterp = photoMetricInterp;
}

// ---- buffers ----

void freeBlocks(RawImageData* d) {
    platform::release(d->imageData);
    platform::release(d->palette);
    d->imageData = nullptr;
    d->palette = nullptr;
    d->bufferSize = 0;
    d->paletteSize = 0;
}

// Replaces both blocks by the given ones (either may be null).
void installBlocks(RawImageData* d, uint8_t* pixels, uint32_t size, int16_t bytesPerLine,
                   kvPaletteEntry* palette, int16_t paletteSize) {
    freeBlocks(d);
    d->imageData = pixels;
    d->bufferSize = size;
    d->bytesPerLine = bytesPerLine;
    d->palette = palette;
    d->paletteSize = paletteSize;
}

kvPaletteEntry* newPalette(size_t entries) {
    return static_cast<kvPaletteEntry*>(platform::allocateZeroed(entries * sizeof(kvPaletteEntry)));
}

// True when the pixels the geometry describes lie inside the buffer: a
// buffer, at least one row and column, rows long enough for the width, and
// every row inside the allocation. Otherwise raises 3522 with the attribute
// at fault.
bool checkRows(kvObject* errSlot, kvObject self, const RawImageData* d) {
    auto fault = [&](const char* name, int32_t value) {
        kova::raiseError(errSlot, self, RawImageClass, 3522, name, value);
        return false;
    };
    if (!d->imageData) return fault("pImageData", 0);
    if (d->imageWidth < 1) return fault("ImageWidth", d->imageWidth);
    if (d->imageHeight < 1) return fault("ImageHeight", d->imageHeight);
    if (d->bytesPerLine < 1) return fault("BytesPerLine", d->bytesPerLine);
    if (packedRowBytes(d->imageWidth, d->bitsPerPixel) > size_t(d->bytesPerLine))
        return fault("ImageWidth", d->imageWidth);
    if (size_t(d->bytesPerLine) * size_t(d->imageHeight) > d->bufferSize)
        return fault("ImageHeight", d->imageHeight);
    if (d->bitsPerPixel <= 8 && d->bitsPerPixel > 1 && d->paletteSize < (1 << d->bitsPerPixel))
        return fault("PaletteSize", d->paletteSize);
    return true;
}

// A pixel buffer for a promotion to `targetBits`: rows of the packed size of
// the target plus the slack the old rows had, and `tail` extra bytes at the
// end. Zero-filled when `zeroed`, so the bytes a conversion leaves alone hold
// zeros; a conversion that writes every byte itself (zeroRowEnds) takes it
// uncleared and saves a pass over the whole buffer. Raises 3522 when the new
// row length does not fit the 16-bit field and 3429 when memory runs out.
struct NewPixels {
    uint8_t* bytes = nullptr;
    uint32_t size = 0;
    int16_t bytesPerLine = 0;
};

bool allocatePixels(kvObject* errSlot, kvObject self, const RawImageData* d, size_t bytesPerLine,
                    size_t tail, bool zeroed, NewPixels* out) {
    if (bytesPerLine > INT16_MAX) {
        kova::raiseError(errSlot, self, RawImageClass, 3522, "BytesPerLine",
                         static_cast<int32_t>(bytesPerLine));
        return false;
    }
    const size_t size = bytesPerLine * size_t(d->imageHeight) + tail;
    out->bytes =
        static_cast<uint8_t*>(zeroed ? platform::allocateZeroed(size) : platform::allocate(size));
    if (!out->bytes) {
        kova::raiseError(errSlot, self, RawImageClass, 3429);
        return false;
    }
    out->size = static_cast<uint32_t>(size);
    out->bytesPerLine = static_cast<int16_t>(bytesPerLine);
    return true;
}

// The slack rule of the promotions from 1, 4 and 8 bits: the packed row of
// the target plus the old row's bytes past its last pixel.
size_t promotedBytesPerLine(const RawImageData* d, unsigned targetBits) {
    const size_t slack = size_t(d->bytesPerLine) - packedRowBytes(d->imageWidth, d->bitsPerPixel);
    return packedRowBytes(d->imageWidth, targetBits) + slack;
}

// Clears each row of an uncleared buffer from byte `written` to the row's
// end: the slack, which a zero-filled buffer would have held as zeros.
void zeroRowEnds(const NewPixels& pixels, size_t rows, size_t written) {
    const size_t pitch = size_t(pixels.bytesPerLine);
    if (written < pitch)
        for (size_t y = 0; y < rows; ++y)
            std::memset(pixels.bytes + y * pitch + written, 0, pitch - written);
}

uint8_t low8(uint32_t component) {
    return static_cast<uint8_t>(component & 0xFF);
}

// ---- promotion ----

// Writes the one-bit rows of `d` into `pixels` at Target bits a pixel: each
// source byte (eight pixels, most significant bit first) becomes Target
// bytes taken whole from a table, so a row costs one table copy a byte. The
// last byte's pixels past the width count as 0 bits and are not written;
// the slack of each row is cleared.
template <size_t Target>
void expandBits(const RawImageData* d, const NewPixels& pixels, bool blackIsZero) {
    const uint8_t ofBit[2] = {uint8_t(blackIsZero ? 0 : 255), uint8_t(blackIsZero ? 255 : 0)};
    std::array<std::array<uint8_t, Target>, 256> expansion{};
    for (unsigned byte = 0; byte < 256; ++byte)
        for (unsigned i = 0; i < 8; ++i) {
            const unsigned bit = (byte >> (7 - i)) & 1u;
            if constexpr (Target == 4)
                expansion[byte][i / 2] |= uint8_t(i % 2 ? bit : bit << 4);
            else if constexpr (Target == 8)
                expansion[byte][i] = uint8_t(bit);
            else
                std::memset(&expansion[byte][3 * i], ofBit[bit], 3);
        }
    const size_t width = size_t(d->imageWidth), whole = width / 8, rest = width % 8;
    const size_t fromPitch = size_t(d->bytesPerLine), toPitch = size_t(pixels.bytesPerLine);
    const size_t rows = size_t(d->imageHeight);
    for (size_t y = 0; y < rows; ++y) {
        const uint8_t* from = d->imageData + y * fromPitch;
        uint8_t* to = pixels.bytes + y * toPitch;
        for (size_t i = 0; i < whole; ++i, to += Target)
            std::memcpy(to, expansion[from[i]].data(), Target);
        if (rest)
            std::memcpy(to, expansion[from[whole] & (0xFF00u >> rest) & 0xFF].data(),
                        packedRowBytes(rest, Target));
    }
    zeroRowEnds(pixels, rows, packedRowBytes(width, Target));
}

// 1 bit to 4, 8 or 24 bits (16 allocates and writes nothing). Palette images
// get entries 0 and 1 black and white in the order the photometric value
// gives; 24-bit pixels are white or black by the same rule.
kvResult promoteFromOneBit(kvObject* errSlot, kvObject self, RawImageData* d, int32_t target) {
    if (target != 4 && target != 8 && target != 16 && target != 24) return 0;
    if (!checkRows(errSlot, self, d)) return 0;
    kvPaletteEntry* palette = nullptr;
    const int16_t paletteSize = target <= 8 ? static_cast<int16_t>(1 << target) : 0;
    const bool blackIsZero = d->photoMetricInterp == KV_PHOTOMETRIC_BLACK_IS_ZERO;
    if (paletteSize) {
        palette = newPalette(size_t(paletteSize));
        if (!palette) return kova::raiseError(errSlot, self, RawImageClass, 3429);
        palette[blackIsZero ? 1 : 0] = {255, 255, 255};
    }
    NewPixels pixels;
    if (!allocatePixels(errSlot, self, d, promotedBytesPerLine(d, target), 0, target == 16,
                        &pixels)) {
        platform::release(palette);
        return 0;
    }
    // A 16-bit pattern would follow the image's bits per sample (4 or 5),
    // which a one-bit image never has: 16-bit pixels stay as allocated.
    if (target == 4)
        expandBits<4>(d, pixels, blackIsZero);
    else if (target == 8)
        expandBits<8>(d, pixels, blackIsZero);
    else if (target == 24)
        expandBits<24>(d, pixels, blackIsZero);
    installBlocks(d, pixels.bytes, pixels.size, pixels.bytesPerLine, palette, paletteSize);
    switch (target) {
    case 4:
        setLayout(d, 4, 1, 4, KV_PHOTOMETRIC_PALETTE);
        break;
    case 8:
        setLayout(d, 8, 1, 8, KV_PHOTOMETRIC_PALETTE);
        break;
    case 16:
        setLayout(d, 4, 3, 16, KV_PHOTOMETRIC_RGB);
        break;
    default:
        setLayout(d, 8, 3, 24, KV_PHOTOMETRIC_RGB);
        break;
    }
    return 0;
}

// 4 bits to 8, 16 or 24. The reader takes the even pixel from the low
// nibble and the odd one from the high nibble of the same byte, the opposite
// of the writers; callers rely on it.
kvResult promoteFromFourBits(kvObject* errSlot, kvObject self, RawImageData* d, int32_t target,
                             int32_t targetPhotometric) {
    if (target != 8 && target != 16 && target != 24) return 0;
    if (!checkRows(errSlot, self, d)) return 0;
    kvPaletteEntry* palette = nullptr;
    if (target == 8) {
        palette = newPalette(256);
        if (!palette) return kova::raiseError(errSlot, self, RawImageClass, 3429);
        std::memcpy(palette, d->palette, 16 * sizeof(kvPaletteEntry));
    }
    NewPixels pixels;
    if (!allocatePixels(errSlot, self, d, promotedBytesPerLine(d, target), 0, true, &pixels)) {
        platform::release(palette);
        return 0;
    }
    if (target != 16) { // 16-bit targets are left as allocated
        for (int y = 0; y < d->imageHeight; ++y) {
            const uint8_t* from = d->imageData + size_t(y) * d->bytesPerLine;
            uint8_t* to = pixels.bytes + size_t(y) * pixels.bytesPerLine;
            for (int x = 0; x < d->imageWidth; ++x) {
                const uint8_t byte = from[x >> 1];
                const uint8_t index = x & 1 ? byte >> 4 : byte & 0x0F;
                if (target == 8) {
                    to[x] = index;
                } else {
                    const kvPaletteEntry& entry = d->palette[index];
                    to[3 * x] = low8(entry.red);
                    to[3 * x + 1] = low8(entry.green);
                    to[3 * x + 2] = low8(entry.blue);
                }
            }
        }
    }
    installBlocks(d, pixels.bytes, pixels.size, pixels.bytesPerLine, palette,
                  target == 8 ? 256 : 0);
    if (target == 8) {
        setLayout(d, 8, 1, 8, d->photoMetricInterp);
        kvSendMeth(errSlot, self, "setPhotoMetricInterp", targetPhotometric);
    } else if (target == 16) {
        setLayout(d, 4, 3, 16, KV_PHOTOMETRIC_RGB);
    } else {
        setLayout(d, 8, 3, 24, KV_PHOTOMETRIC_RGB);
    }
    return 0;
}

// 8 bits to 16 or 24: every index becomes the red, green and blue of its
// palette entry, three bytes a pixel whatever the target. For a 16-bit
// target each row of three-byte pixels runs on into the next row, which is
// written after it; the buffer gets a tail so that the last row's overrun
// stays inside it.
kvResult promoteFromEightBits(kvObject* errSlot, kvObject self, RawImageData* d, int32_t target) {
    if (target != 16 && target != 24) return 0;
    if (!checkRows(errSlot, self, d)) return 0;
    const size_t bytesPerLine = promotedBytesPerLine(d, target);
    const size_t written = 3 * size_t(d->imageWidth);
    NewPixels pixels;
    if (!allocatePixels(errSlot, self, d, bytesPerLine,
                        written > bytesPerLine ? written - bytesPerLine : 0, target == 16, &pixels))
        return 0;
    // Four bytes are stored a pixel (one store instead of three); the fourth
    // lands where the next pixel's first byte goes and is overwritten by it,
    // and the row's last pixel takes three.
    std::array<std::array<uint8_t, 4>, 256> rgb;
    for (size_t i = 0; i < 256; ++i) {
        const kvPaletteEntry& entry = d->palette[i];
        rgb[i] = {low8(entry.red), low8(entry.green), low8(entry.blue), 0};
    }
    const size_t width = size_t(d->imageWidth), rows = size_t(d->imageHeight);
    for (size_t y = 0; y < rows; ++y) {
        const uint8_t* from = d->imageData + y * size_t(d->bytesPerLine);
        uint8_t* to = pixels.bytes + y * size_t(pixels.bytesPerLine);
        for (size_t x = 0; x + 1 < width; ++x, to += 3)
            std::memcpy(to, rgb[from[x]].data(), 4);
        std::memcpy(to, rgb[from[width - 1]].data(), 3);
    }
    if (target == 24) zeroRowEnds(pixels, rows, written);
    installBlocks(d, pixels.bytes, pixels.size, pixels.bytesPerLine, nullptr, 0);
    if (target == 16)
        setLayout(d, 4, 3, 16, KV_PHOTOMETRIC_RGB);
    else
        setLayout(d, 8, 3, 24, KV_PHOTOMETRIC_RGB);
    return 0;
}

// 16 bits to 24 only. Each 4- or 5-bit channel is widened to 8 bits; rows of
// photometric 2 become red-green-blue for target 2 and blue-green-red for
// target 120. Any other combination copies the scratch row unchanged, which
// holds what the last converted row left in it (zeros before any).
kvResult promoteFromSixteenBits(kvObject* errSlot, kvObject self, RawImageData* d, int32_t target,
                                int32_t targetPhotometric) {
    if (target != 24) return 0;
    if (!checkRows(errSlot, self, d)) return 0;
    const size_t bytesPerLine = packedRowBytes(d->imageWidth, 24);
    const size_t words = size_t(d->bytesPerLine) / 2;
    auto* scratch =
        static_cast<uint8_t*>(platform::allocateZeroed(std::max(bytesPerLine, 3 * words)));
    if (!scratch) return kova::raiseError(errSlot, self, RawImageClass, 3429);
    NewPixels pixels;
    if (!allocatePixels(errSlot, self, d, bytesPerLine, 0, false, &pixels)) {
        platform::release(scratch);
        return 0;
    }
    const bool five = d->bitsPerSample == 5;
    const unsigned bits = five ? 5 : 4;
    const unsigned mask = (1u << bits) - 1;
    auto widen = [five](unsigned v) { return uint8_t(five ? v * 8 + v / 4 : v * 17); };
    const bool converts =
        d->photoMetricInterp == KV_PHOTOMETRIC_RGB &&
        (targetPhotometric == KV_PHOTOMETRIC_RGB || targetPhotometric == KV_PHOTOMETRIC_BGR);
    const bool reversed = targetPhotometric == KV_PHOTOMETRIC_BGR;
    for (int y = 0; y < d->imageHeight; ++y) {
        const uint8_t* from = d->imageData + size_t(y) * d->bytesPerLine;
        if (converts) {
            for (size_t i = 0; i < words; ++i) {
                const unsigned p = from[2 * i] | unsigned(from[2 * i + 1]) << 8;
                const uint8_t first = widen((p >> (2 * bits)) & mask);
                const uint8_t second = widen((p >> bits) & mask);
                const uint8_t third = widen(p & mask);
                scratch[3 * i] = reversed ? third : first;
                scratch[3 * i + 1] = second;
                scratch[3 * i + 2] = reversed ? first : third;
            }
        }
        std::memcpy(pixels.bytes + size_t(y) * bytesPerLine, scratch, bytesPerLine);
    }
    platform::release(scratch);
    installBlocks(d, pixels.bytes, pixels.size, pixels.bytesPerLine, nullptr, 0);
    setLayout(d, 8, 3, 24, KV_PHOTOMETRIC_RGB);
    return 0;
}

// ---- palette mapping ----

// For each old index, the new index of least L1 distance; the lowest index
// wins a tie.
void buildNearestMap(const kvPaletteEntry* from, const kvPaletteEntry* to, size_t count,
                     uint8_t* map) {
    for (size_t i = 0; i < count; ++i) {
        uint32_t best = UINT32_MAX;
        for (size_t j = 0; j < count; ++j) {
            const auto dr = std::abs(int(low8(from[i].red)) - int(low8(to[j].red)));
            const auto dg = std::abs(int(low8(from[i].green)) - int(low8(to[j].green)));
            const auto db = std::abs(int(low8(from[i].blue)) - int(low8(to[j].blue)));
            const auto distance = uint32_t(dr + dg + db);
            if (distance < best) {
                best = distance;
                map[i] = static_cast<uint8_t>(j);
            }
        }
    }
}

// Rewrites `count` bytes through `map`. A long run goes through a table of
// 65536 byte pairs built from the map, so that one look-up serves two
// bytes; the table costs about as much as mapping 64 KB byte by byte, and
// when it cannot be had the bytes are mapped one by one with the same
// result.
void remapBytes(uint8_t* bytes, size_t count, const uint8_t* map) {
    constexpr size_t pairTableThreshold = size_t{1} << 16;
    size_t done = 0;
    uint16_t* pairs = count >= pairTableThreshold
                          ? static_cast<uint16_t*>(platform::allocate(65536 * sizeof(uint16_t)))
                          : nullptr;
    if (pairs) {
        // Entry (low | high << 8) holds the two mapped bytes in the same
        // places, so a pair read as a 16-bit word maps whole, whatever the
        // byte order.
        for (unsigned high = 0; high < 256; ++high)
            for (unsigned low = 0; low < 256; ++low)
                pairs[low | high << 8] = uint16_t(map[low] | map[high] << 8);
        // Four pairs are read before any is written back, which lets the
        // look-ups overlap.
        for (; done + 8 <= count; done += 8) {
            uint8_t* at = bytes + done;
            uint16_t a, b, c, e;
            std::memcpy(&a, at, 2), std::memcpy(&b, at + 2, 2);
            std::memcpy(&c, at + 4, 2), std::memcpy(&e, at + 6, 2);
            a = pairs[a], b = pairs[b], c = pairs[c], e = pairs[e];
            std::memcpy(at, &a, 2), std::memcpy(at + 2, &b, 2);
            std::memcpy(at + 4, &c, 2), std::memcpy(at + 6, &e, 2);
        }
        platform::release(pairs);
    }
    for (; done < count; ++done)
        bytes[done] = map[bytes[done]];
}

// ---- merging ----

// Shifts bytes 0 … last of `row` left by `shift` bits as one big-endian bit
// string: each byte's high bits move into the byte before it.
void shiftLeft(uint8_t* row, size_t last, unsigned shift) {
    if (!shift) return;
    for (size_t i = 0; i < last; ++i)
        row[i] = static_cast<uint8_t>((row[i] << shift) | (row[i + 1] >> (8 - shift)));
    row[last] = static_cast<uint8_t>(row[last] << shift);
}

// The reverse: each byte's low bits move into the byte after it.
void shiftRight(uint8_t* row, size_t last, unsigned shift) {
    if (!shift) return;
    for (size_t i = last; i > 0; --i)
        row[i] = static_cast<uint8_t>((row[i] >> shift) | (row[i - 1] << (8 - shift)));
    row[0] = static_cast<uint8_t>(row[0] >> shift);
}

// Where pixel x starts in a row: a byte offset and a bit shift.
struct RowPosition {
    size_t byte;
    unsigned shift;
};

RowPosition positionOf(int32_t x, int16_t bitsPerPixel) {
    const auto column = size_t(x);
    switch (bitsPerPixel) {
    case 1:
        return {column / 8, unsigned(column % 8)};
    case 4:
        return {column / 2, unsigned(column % 2) * 4};
    case 8:
        return {column, 0};
    case 24:
        return {3 * column, 0};
    default:
        return {0, 0};
    }
}

// Brings `source` to this image's depth, photometric value and palette, in
// the order callers have always seen: the depth is compared with the
// source's bits per sample, not its bits per pixel.
void matchSource(kvObject* errSlot, kvObject source, const RawImageData* d) {
    const auto sourceBitsPerSample = kvSendMeth(errSlot, source, "getBitsPerSample");
    if (d->bitsPerPixel < sourceBitsPerSample)
        kvSendMeth(errSlot, source, "demoteImage", d->bitsPerPixel, d->photoMetricInterp);
    else if (d->bitsPerPixel > sourceBitsPerSample)
        kvSendMeth(errSlot, source, "promoteImage", d->bitsPerPixel, d->photoMetricInterp);
    if (kvSendMeth(errSlot, source, "getPhotoMetricInterp") != d->photoMetricInterp)
        kvSendMeth(errSlot, source, "demoteImage", d->bitsPerPixel, d->photoMetricInterp);
    if (d->bitsPerPixel == 4 || d->bitsPerPixel == 8)
        kvSendMeth(errSlot, source, "_mapImageToPalette", d->bitsPerPixel, d->palette);
}

// ---- DIB export ----

// The DIB bit count for bitsPerPixel: 16 is exported under 24.
uint16_t normalisedBitCount(int bitsPerPixel) {
    if (bitsPerPixel < 2) return 1;
    if (bitsPerPixel < 5) return 4;
    if (bitsPerPixel < 9) return 8;
    if (bitsPerPixel < 25) return 24;
    return 4;
}

size_t colourTableEntries(uint16_t bitCount) {
    return bitCount <= 8 ? size_t{1} << bitCount : 0;
}

void writeColourTable(uint8_t* table, const RawImageData* d, uint16_t bitCount) {
    if (bitCount == 1) {
        // White first whatever the photometric value: the pixels are
        // exported as they are stored.
        std::memset(table, 255, 3);
        return;
    }
    const size_t entries =
        std::min(colourTableEntries(bitCount), size_t(std::max<int16_t>(d->paletteSize, 0)));
    for (size_t i = 0; i < entries && d->palette; ++i) {
        table[4 * i] = low8(d->palette[i].blue);
        table[4 * i + 1] = low8(d->palette[i].green);
        table[4 * i + 2] = low8(d->palette[i].red);
    }
}

// ---- DIB import ----

// A DIB that setDIB can take, checked and measured.
struct DibImport {
    kova::imaging::DibLayout layout;
    size_t rowBytes = 0; // packed bytes a row in the image
    size_t dibPitch = 0; // bytes a row in the DIB
    Depth depth{};       // the image's depth
    int16_t bitsPerSample = 0;
    int16_t samplesPerPixel = 0;
};

// The header's own size field, or 0 when the block is too short to hold it.
int64_t headerSizeField(const uint8_t* block, size_t size) {
    uint32_t value = 0;
    if (block && size >= sizeof value) std::memcpy(&value, block, sizeof value);
    return value;
}

// Checks the locked DIB; raises the error the caller sees and answers false
// when it cannot be taken.
bool checkDib(kvObject* errSlot, kvObject self, const uint8_t* block, size_t size, DibImport* in) {
    auto fault = [&](const char* name, int64_t value) {
        kova::raiseError(errSlot, self, RawImageClass, 3523, name,
                         static_cast<int32_t>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX)));
        return false;
    };
    kova::imaging::DibLayout& layout = in->layout;
    if (!block) {
        kova::raiseError(errSlot, self, RawImageClass, 3493, "setDIB",
                         "Pointer to bits of input DIB", 0);
        return false;
    }
    switch (kova::imaging::readDibLayout(block, size, &layout)) {
    case kova::imaging::DibRead::HeaderSize:
        return fault("HeaderSize", headerSizeField(block, size));
    case kova::imaging::DibRead::NoBits:
        kova::raiseError(errSlot, self, RawImageClass, 3493, "setDIB",
                         "Pointer to bits of input DIB", 0);
        return false;
    case kova::imaging::DibRead::Ok:
        break;
    }
    if (layout.width <= 0) return fault("Width", layout.width);
    if (layout.height == 0) return fault("Height", layout.height);
    if (layout.bitCount < 1 || layout.bitCount > 24) return fault("BitCount", layout.bitCount);
    switch (layout.bitCount) {
    case 1:
        in->bitsPerSample = 1, in->samplesPerPixel = 1;
        break;
    case 4:
        in->bitsPerSample = 4, in->samplesPerPixel = 1;
        break;
    case 8:
        in->bitsPerSample = 8, in->samplesPerPixel = 1;
        break;
    case 16:
        in->bitsPerSample = 4, in->samplesPerPixel = 3;
        break;
    case 24:
        in->bitsPerSample = 8, in->samplesPerPixel = 3;
        break;
    default:
        return false; // a count inside 1-24 this class has no layout for
    }
    in->depth = depthOf(in->bitsPerSample, in->samplesPerPixel);
    // The image's 16-bit fields must hold the geometry, and the block must
    // hold every row it claims; a top-down DIB (negative height) has no row
    // order this class can take.
    in->rowBytes = packedRowBytes(size_t(layout.width), layout.bitCount);
    if (in->rowBytes > INT16_MAX || layout.width > INT16_MAX) return fault("Width", layout.width);
    if (layout.height < 0 || layout.height > INT16_MAX) return fault("Height", layout.height);
    in->dibPitch = dibStride(size_t(layout.width), layout.bitCount);
    const size_t needed = in->dibPitch * size_t(layout.height - 1) + in->rowBytes;
    if (layout.bitsSize < needed) return fault("ImageSize", int64_t(layout.bitsSize));
    return true;
}

int16_t resolutionOf(int32_t pixelsPerMetre) {
    return static_cast<int16_t>(static_cast<int32_t>(pixelsPerMetre / 39.24 + 0.5));
}

} // namespace

namespace kova::imaging {

size_t rawImageBufferSize(kvObject image) {
    const RawImageData* d = rawImageOf(image);
    return d && d->imageData ? d->bufferSize : 0;
}

} // namespace kova::imaging

// (bits, newPalette): remaps every pixel onto the new palette by least L1
// distance and copies the new palette over the old one. Answers 0.
KV_METHOD(RawImage, _mapImageToPalette) {
    (void)errSlot, (void)self;
    RawImageData* d = dataOf(instData);
    const int32_t bits = intArg(args, 0);
    const auto* replacement = reinterpret_cast<const kvPaletteEntry*>(kvArgAt(args, 1));
    if (!d->palette || !replacement) return 0;
    // The map reads 2^bits entries of the old palette, which must have them.
    if ((bits != 4 && bits != 8) || d->paletteSize < (1 << bits)) return 0;
    const size_t count = size_t{1} << bits;
    uint8_t map[256] = {};
    buildNearestMap(d->palette, replacement, count, map);
    const size_t rows = d->bytesPerLine > 0 ? std::min<size_t>(std::max<int16_t>(d->imageHeight, 0),
                                                               d->bufferSize / d->bytesPerLine)
                                            : 0;
    const size_t pitch = size_t(std::max<int16_t>(d->bytesPerLine, 0));
    if (d->imageData && bits == 8) {
        // Every byte of every row, slack included, is an index.
        remapBytes(d->imageData, rows * pitch, map);
    } else if (d->imageData) {
        // Two pixels a byte, the even one high: whole bytes go through a
        // table of both nibbles at once; an odd width leaves a last pixel
        // whose low nibble is kept.
        const size_t width = std::min<size_t>(std::max<int16_t>(d->imageWidth, 0), pitch * 2);
        uint8_t pairs[256];
        for (unsigned byte = 0; byte < 256; ++byte)
            pairs[byte] = uint8_t(map[byte >> 4] << 4 | map[byte & 0x0F]);
        for (size_t y = 0; y < rows; ++y) {
            uint8_t* row = d->imageData + y * pitch;
            remapBytes(row, width / 2, pairs);
            if (width % 2)
                row[width / 2] = uint8_t(map[row[width / 2] >> 4] << 4 | (row[width / 2] & 0x0F));
        }
    }
    std::memcpy(d->palette, replacement, count * sizeof(kvPaletteEntry));
    return 0;
}

KV_METHOD(RawImage, _promote16BPP) {
    return promoteFromSixteenBits(errSlot, self, dataOf(instData), intArg(args, 0),
                                  intArg(args, 1));
}

KV_METHOD(RawImage, _promote1BPP) {
    return promoteFromOneBit(errSlot, self, dataOf(instData), intArg(args, 0));
}

KV_METHOD(RawImage, _promote4BPP) {
    return promoteFromFourBits(errSlot, self, dataOf(instData), intArg(args, 0), intArg(args, 1));
}

// The photometric argument is not used: the result is always RGB.
KV_METHOD(RawImage, _promote8BPP) {
    return promoteFromEightBits(errSlot, self, dataOf(instData), intArg(args, 0));
}

// (target bits, target photometric): lowers the depth through the colour
// reducer by way of a DIB. Answers 1 on success, 0 otherwise.
KV_METHOD(RawImage, demoteImage) {
    RawImageData* d = dataOf(instData);
    const int32_t target = intArg(args, 0);
    const int32_t photometric = intArg(args, 1);
    const bool colourToColour =
        (target == 24 || target == 16) && d->bitsPerPixel == target &&
        (photometric == KV_PHOTOMETRIC_RGB || photometric == KV_PHOTOMETRIC_BGR);
    if ((target == 1 && d->bitsPerPixel == 1) || colourToColour) {
        kvSendMeth(errSlot, self, "setPhotoMetricInterp", photometric);
        return 1;
    }
    if (target > d->bitsPerPixel) return 0;
    const auto dib = reinterpret_cast<platform::MemoryHandle>(kvSendMeth(errSlot, self, "getDIB"));
    if (!dib) return 0;
    freeBlocks(d);
    d->imageWidth = 0;
    d->imageHeight = 0;
    const int mode = photometric == KV_PHOTOMETRIC_WHITE_IS_ZERO   ? 0
                     : photometric == KV_PHOTOMETRIC_BLACK_IS_ZERO ? 1
                                                                   : 2;
    const platform::MemoryHandle reduced =
        kova::imaging::reduceColours(dib, target, mode, kova::imaging::errorDiffusion);
    if (!reduced) {
        kvSendMeth(errSlot, self, "setDIB", dib);
        return 0;
    }
    platform::globalFree(dib);
    const kvResult result = kvSendMeth(errSlot, self, "setDIB", reduced);
    if (!result) platform::globalFree(reduced);
    return result;
}

KV_METHOD(RawImage, getBitsPerPixel) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->bitsPerPixel;
}

KV_METHOD(RawImage, getBitsPerSample) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->bitsPerSample;
}

KV_METHOD(RawImage, getBytesPerLine) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->bytesPerLine;
}

// A new bottom-up DIB of the image in a movable handle the caller owns, or 0.
KV_METHOD(RawImage, getDIB) {
    (void)args;
    const RawImageData* d = dataOf(instData);
    auto fault = [&](const char* name, int32_t value) {
        return kova::raiseError(errSlot, self, RawImageClass, 3522, name, value);
    };
    if (!checkRows(errSlot, self, d)) return 0;
    if (d->bitsPerSample < 1) return fault("BitsPerSample", d->bitsPerSample);
    if (d->samplesPerPixel < 1) return fault("SamplesPerPixel", d->samplesPerPixel);
    const uint16_t bitCount = normalisedBitCount(d->bitsPerPixel);
    const size_t stride = dibStride(size_t(d->imageWidth), bitCount);
    const size_t tableBytes = 4 * colourTableEntries(bitCount);
    const size_t height = size_t(d->imageHeight);
    // Every byte is written below (the colour table and the row padding as
    // zeros), so the block is taken uncleared rather than cleared and then
    // written over.
    const size_t bitsBytes = stride * height;
    const platform::MemoryHandle dib =
        platform::globalAllocUncleared(sizeof(kvBitmapInfoHeader) + tableBytes + bitsBytes);
    if (!dib) return kova::raiseError(errSlot, self, RawImageClass, 3429);
    auto* block = static_cast<uint8_t*>(platform::globalLock(dib));
    kova::imaging::writeInfoHeader(block, d->imageWidth, d->imageHeight, bitCount,
                                   d->xResolution * 39, d->yResolution * 39);
    uint8_t* bits = block + sizeof(kvBitmapInfoHeader) + tableBytes;
    // Rows lie at the pitch of the stored depth (16-bit rows stay 16-bit
    // under a 24-bit header, leaving the end of the block zero); a row longer
    // than that pitch is cut to it.
    const size_t pitch = dibStride(size_t(d->imageWidth), unsigned(d->bitsPerPixel));
    const size_t copied = std::min(size_t(d->bytesPerLine), pitch);
    for (size_t k = 0; k < height; ++k) {
        uint8_t* to = bits + k * pitch;
        std::memcpy(to, d->imageData + (height - 1 - k) * size_t(d->bytesPerLine), copied);
        std::memset(to + copied, 0, pitch - copied);
    }
    std::memset(bits + pitch * height, 0, bitsBytes - pitch * height);
    std::memset(block + sizeof(kvBitmapInfoHeader), 0, tableBytes);
    writeColourTable(block + sizeof(kvBitmapInfoHeader), d, bitCount);
    if (d->bitsPerPixel == 24 && d->photoMetricInterp == KV_PHOTOMETRIC_RGB) {
        const size_t pixels = stride / 3;
        for (size_t k = 0; k < height; ++k)
            for (uint8_t *p = bits + k * stride, *end = p + 3 * pixels; p != end; p += 3)
                std::swap(p[0], p[2]);
    }
    platform::globalUnlock(dib);
    return reinterpret_cast<kvResult>(dib);
}

KV_METHOD(RawImage, getHorizFlipped) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->horizFlipped;
}

// bytesPerLine × imageHeight, whatever the width.
KV_METHOD(RawImage, getImageByteSize) {
    (void)errSlot, (void)self, (void)args;
    const RawImageData* d = dataOf(instData);
    return kvResult{d->bytesPerLine} * d->imageHeight;
}

KV_METHOD(RawImage, getImageDataPointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->imageData);
}

KV_METHOD(RawImage, getImageHeight) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->imageHeight;
}

KV_METHOD(RawImage, getImageWidth) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->imageWidth;
}

KV_METHOD(RawImage, getInverted) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->inverted;
}

KV_METHOD(RawImage, getPalettePointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->palette);
}

KV_METHOD(RawImage, getPaletteSize) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->paletteSize;
}

KV_METHOD(RawImage, getPhotoMetricInterp) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->photoMetricInterp;
}

KV_METHOD(RawImage, getRotation) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->rotation;
}

KV_METHOD(RawImage, getSamplesPerPixel) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->samplesPerPixel;
}

KV_METHOD(RawImage, getScaleToGrey) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->scaleToGrey;
}

KV_METHOD(RawImage, getVertFlipped) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->vertFlipped;
}

KV_METHOD(RawImage, getXResolution) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->xResolution;
}

KV_METHOD(RawImage, getYResolution) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->yResolution;
}

// (source, x, y, unused): pastes source at column x, row y after bringing it
// to this image's depth and palette. Whole source bytes replace the
// destination's, so pixels sharing the last byte are overwritten too. The
// source is always deleted. Answers 1, or 0 when nothing could be merged.
KV_METHOD(RawImage, mergeBitmap) {
    RawImageData* d = dataOf(instData);
    const auto source = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const int32_t x = intArg(args, 1);
    const int32_t y = intArg(args, 2);
    auto consume = [&] {
        if (source) kvDelObject(errSlot, source);
    };
    // A missing source or a negative position would address memory before
    // the rows; both are refused as bad arguments.
    if (!rawImageOf(source)) {
        kova::raiseError(errSlot, self, RawImageClass, 3493, "mergeBitmap", "Source", 0);
        consume();
        return 0;
    }
    if (x < 0 || y < 0) {
        kova::raiseError(errSlot, self, RawImageClass, 3493, "mergeBitmap", x < 0 ? "X" : "Y",
                         x < 0 ? x : y);
        consume();
        return 0;
    }
    const size_t bytesPerLine = size_t(std::max<int16_t>(d->bytesPerLine, 0));
    auto* scratch = static_cast<uint8_t*>(platform::allocateZeroed(bytesPerLine + 2));
    if (!scratch) {
        kova::raiseError(errSlot, self, RawImageClass, 3429);
        consume();
        return 0;
    }
    matchSource(errSlot, source, d);
    const RawImageData* s = rawImageOf(source);
    const RowPosition at = positionOf(x, d->bitsPerPixel);
    const bool fits = checkRows(errSlot, self, d);
    if (fits && s->imageData && s->bytesPerLine > 0 && at.byte + 1 < bytesPerLine) {
        const size_t sourceRows =
            std::min<size_t>(std::max<int16_t>(s->imageHeight, 0), s->bufferSize / s->bytesPerLine);
        const size_t rows =
            y < d->imageHeight ? std::min(size_t(d->imageHeight - y), sourceRows) : 0;
        // The source rows must hold what is copied from them, whatever depth
        // the conversions left the source at.
        const size_t bytes = std::min(
            {bytesPerLine - (at.byte + 1),
             packedRowBytes(size_t(std::max<int16_t>(s->imageWidth, 0)), unsigned(d->bitsPerPixel)),
             size_t(s->bytesPerLine)});
        for (size_t r = 0; r < rows; ++r) {
            uint8_t* row = d->imageData + (size_t(y) + r) * bytesPerLine;
            std::memcpy(scratch + 1, row, bytesPerLine);
            shiftLeft(scratch, bytesPerLine, at.shift);
            std::memcpy(scratch + 1 + at.byte, s->imageData + r * size_t(s->bytesPerLine), bytes);
            shiftRight(scratch, bytesPerLine, at.shift);
            std::memcpy(row, scratch + 1, bytesPerLine);
        }
    }
    platform::release(scratch);
    consume();
    return fits ? 1 : 0;
}

// (bytesPerLine, imageHeight, bitsPerSample, samplesPerPixel, then the
// parent's arguments): allocates the pixel buffer, not cleared, and for
// palette depths a palette of 2^bits entries. The width stays 0 until the
// creator sets it.
KV_METHOD(RawImage, objInit) {
    const kvArgs rest = kvArgsAfter(args, 4);
    kvSendParentMethNA(errSlot, RawImageClass, self, "objInit", &rest);
    RawImageData* d = dataOf(instData);
    const int32_t bytesPerLine = intArg(args, 0);
    const int32_t height = intArg(args, 1);
    const int32_t bitsPerSample = intArg(args, 2);
    const int32_t samplesPerPixel = intArg(args, 3);
    // The fields are 16 bits wide: a larger value could not describe the
    // buffer, so it is refused like a value below 1.
    if (bytesPerLine < 1 || bytesPerLine > INT16_MAX)
        return kova::raiseError(errSlot, self, RawImageClass, 3479, "BytesPerLine", bytesPerLine);
    if (height < 1 || height > INT16_MAX)
        return kova::raiseError(errSlot, self, RawImageClass, 3479, "ImageHeight", height);
    const Depth depth = depthOf(bitsPerSample, samplesPerPixel);
    if (!depth.bitsPerPixel)
        return kova::raiseError(errSlot, self, RawImageClass, 3479, "BitsPerPixel",
                                bitsPerSample * samplesPerPixel);
    const size_t size = size_t(bytesPerLine) * size_t(height);
    d->imageData = static_cast<uint8_t*>(platform::allocate(size));
    if (!d->imageData) return kova::raiseError(errSlot, self, RawImageClass, 3429);
    d->bufferSize = static_cast<uint32_t>(size);
    d->bytesPerLine = static_cast<int16_t>(bytesPerLine);
    d->imageHeight = static_cast<int16_t>(height);
    setLayout(d, static_cast<int16_t>(bitsPerSample), static_cast<int16_t>(samplesPerPixel),
              depth.bitsPerPixel, depth.photoMetricInterp);
    if (depth.paletteSize) {
        d->palette = static_cast<kvPaletteEntry*>(
            platform::allocate(size_t(depth.paletteSize) * sizeof(kvPaletteEntry)));
        if (!d->palette) {
            freeBlocks(d);
            return kova::raiseError(errSlot, self, RawImageClass, 3429);
        }
        d->paletteSize = depth.paletteSize;
    }
    return 0;
}

KV_METHOD(RawImage, objTerm) {
    freeBlocks(dataOf(instData));
    kvSendParentMethNA(errSlot, RawImageClass, self, "objTerm", args);
    return 0;
}

// (target bits, target photometric): 1 when the depth is already the
// target, 0 when the target is lower, else the promotion routine's answer.
KV_METHOD(RawImage, promoteImage) {
    const RawImageData* d = dataOf(instData);
    const int32_t target = intArg(args, 0);
    if (target == d->bitsPerPixel) return 1;
    if (target < d->bitsPerPixel) return 0;
    const kvArgs both = kvArgsAfter(args, 0);
    switch (d->bitsPerPixel) {
    case 1:
        return kvSendMethNA(errSlot, self, "_promote1BPP", &both);
    case 4:
        return kvSendMethNA(errSlot, self, "_promote4BPP", &both);
    case 8:
        return kvSendMethNA(errSlot, self, "_promote8BPP", &both);
    case 16:
        return kvSendMethNA(errSlot, self, "_promote16BPP", &both);
    default:
        return 0;
    }
}

// (handle): takes the DIB's pixels, palette and resolution; the handle is
// freed on success. Answers 1, or 0 with the image unchanged.
KV_METHOD(RawImage, setDIB) {
    RawImageData* d = dataOf(instData);
    const auto dib = reinterpret_cast<platform::MemoryHandle>(kvArgAt(args, 0));
    const auto* block = static_cast<const uint8_t*>(platform::globalLock(dib));
    DibImport in;
    if (!checkDib(errSlot, self, block, platform::globalSize(dib), &in)) {
        platform::globalUnlock(dib);
        return 0;
    }
    const kova::imaging::DibLayout& layout = in.layout;
    const size_t height = size_t(layout.height);
    const size_t size = in.rowBytes * height;
    auto* pixels = static_cast<uint8_t*>(platform::allocate(size));
    kvPaletteEntry* palette =
        in.depth.paletteSize ? newPalette(size_t(in.depth.paletteSize)) : nullptr;
    if (!pixels || (in.depth.paletteSize && !palette)) {
        platform::release(pixels);
        platform::release(palette);
        platform::globalUnlock(dib);
        return kova::raiseError(errSlot, self, RawImageClass, 3429);
    }
    for (size_t r = 0; r < height; ++r)
        std::memcpy(pixels + (height - 1 - r) * in.rowBytes, layout.bits + r * in.dibPitch,
                    in.rowBytes);
    // Entries past the end of a short colour table stay black.
    for (int i = 0; i < in.depth.paletteSize; ++i) {
        const kova::imaging::Bgr entry = kova::imaging::tableEntry(layout, uint32_t(i));
        palette[i] = {entry.red, entry.green, entry.blue};
    }
    int16_t photometric = in.depth.photoMetricInterp;
    if (layout.bitCount == 1) {
        const kova::imaging::Bgr first = kova::imaging::tableEntry(layout, 0);
        const bool white = first.blue == 255 && first.green == 255 && first.red == 255;
        photometric = white ? KV_PHOTOMETRIC_WHITE_IS_ZERO : KV_PHOTOMETRIC_BLACK_IS_ZERO;
    } else if (layout.bitCount > 8) {
        photometric = KV_PHOTOMETRIC_BGR;
    }
    installBlocks(d, pixels, static_cast<uint32_t>(size), static_cast<int16_t>(in.rowBytes),
                  palette, in.depth.paletteSize);
    setLayout(d, in.bitsPerSample, in.samplesPerPixel, in.depth.bitsPerPixel, photometric);
    d->imageWidth = static_cast<int16_t>(layout.width);
    d->imageHeight = static_cast<int16_t>(layout.height);
    d->xResolution = resolutionOf(layout.xPelsPerMeter);
    d->yResolution = resolutionOf(layout.yPelsPerMeter);
    d->inverted = 0;
    d->rotation = 0;
    d->horizFlipped = 0;
    d->vertFlipped = 0;
    d->scaleToGrey = 0;
    platform::globalUnlock(dib);
    platform::globalFree(dib);
    return 1;
}

KV_METHOD(RawImage, setHorizFlipped) {
    (void)errSlot, (void)self;
    dataOf(instData)->horizFlipped = lowHalf(args, 0);
    return 0;
}

KV_METHOD(RawImage, setImageHeight) {
    (void)errSlot, (void)self;
    dataOf(instData)->imageHeight = lowHalf(args, 0);
    return 0;
}

KV_METHOD(RawImage, setImageWidth) {
    (void)errSlot, (void)self;
    dataOf(instData)->imageWidth = lowHalf(args, 0);
    return 0;
}

KV_METHOD(RawImage, setInverted) {
    (void)errSlot, (void)self;
    dataOf(instData)->inverted = intArg(args, 0);
    return 0;
}

// (new value): converts the pixels or palette where the new value asks for
// it, then stores the value. Answers 1.
KV_METHOD(RawImage, setPhotoMetricInterp) {
    (void)errSlot, (void)self;
    RawImageData* d = dataOf(instData);
    const int16_t value = lowHalf(args, 0);
    const size_t rows = d->imageData && d->bytesPerLine > 0
                            ? std::min<size_t>(std::max<int16_t>(d->imageHeight, 0),
                                               d->bufferSize / d->bytesPerLine)
                            : 0;
    if (d->samplesPerPixel == 1 && d->bitsPerSample == 1) {
        // Every byte flips, the slack at the end of each row included.
        if (value != d->photoMetricInterp)
            for (size_t i = 0, n = rows * size_t(d->bytesPerLine); i < n; ++i)
                d->imageData[i] ^= 0xFF;
    } else if (d->samplesPerPixel == 1 && (d->bitsPerSample == 4 || d->bitsPerSample == 8)) {
        // A grey image's palette becomes an ascending ramp, whichever way the
        // new value reads.
        const bool grey = d->photoMetricInterp == KV_PHOTOMETRIC_WHITE_IS_ZERO ||
                          d->photoMetricInterp == KV_PHOTOMETRIC_BLACK_IS_ZERO;
        const uint32_t step = d->bitsPerSample == 4 ? 17 : 1;
        if (grey && d->palette)
            for (int i = 0; i < d->paletteSize; ++i)
                d->palette[i] = {i * step, i * step, i * step};
    } else if (d->samplesPerPixel == 3 && d->bitsPerSample == 8 && value != d->photoMetricInterp &&
               (value == KV_PHOTOMETRIC_RGB || value == KV_PHOTOMETRIC_BGR)) {
        const size_t width =
            std::min<size_t>(std::max<int16_t>(d->imageWidth, 0), size_t(d->bytesPerLine) / 3);
        for (size_t y = 0; y < rows; ++y) {
            uint8_t* p = d->imageData + y * size_t(d->bytesPerLine);
            for (size_t x = 0; x < width; ++x, p += 3)
                std::swap(p[0], p[2]);
        }
    }
    d->photoMetricInterp = value;
    return 1;
}

KV_METHOD(RawImage, setRotation) {
    (void)errSlot, (void)self;
    dataOf(instData)->rotation = lowHalf(args, 0);
    return 0;
}

KV_METHOD(RawImage, setScaleToGrey) {
    (void)errSlot, (void)self;
    dataOf(instData)->scaleToGrey = lowHalf(args, 0);
    return 0;
}

KV_METHOD(RawImage, setVertFlipped) {
    (void)errSlot, (void)self;
    dataOf(instData)->vertFlipped = lowHalf(args, 0);
    return 0;
}

KV_METHOD(RawImage, setXResolution) {
    (void)errSlot, (void)self;
    dataOf(instData)->xResolution = lowHalf(args, 0);
    return 0;
}

KV_METHOD(RawImage, setYResolution) {
    (void)errSlot, (void)self;
    dataOf(instData)->yResolution = lowHalf(args, 0);
    return 0;
}

KV_REGISTER(RawImage) {
    if (!kvRegisterClass("Property")) return nullptr;
    RawImageClass = kvAddClass("RawImage", "Property", sizeof(RawImageData), 0,
                               rawImageMethods.get(), rawImageClassMethods.get());
    return RawImageClass;
}
