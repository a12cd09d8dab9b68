// Reading and writing device-independent bitmaps in memory: where a DIB's
// header, colour table and rows lie, checked against the size of the block
// that holds them, so that nothing read from a hostile bitmap can lead
// outside it. Internal to the library; the layout itself is public in
// kova/dib.h.
#pragma once

#include "kova/dib.h"

#include <cstddef>
#include <cstdint>

namespace kova::imaging {

// Bytes of one DIB row: if width × bits is a multiple of 32, width × bits / 8,
// else (width × bits − (width × bits mod 32)) / 8 + 4. The same as
// kvDIBRowBytes, written as the image classes have always computed it.
inline size_t dibStride(size_t width, unsigned bits) {
    const size_t rowBits = width * bits;
    return rowBits % 32 == 0 ? rowBits / 8 : (rowBits - rowBits % 32) / 8 + 4;
}

// Bytes that hold `width` pixels of `bits` bits without padding.
inline size_t packedRowBytes(size_t width, unsigned bits) {
    return (width * bits + 7) / 8;
}

// What a DIB block says about itself. Only `headerSize`, `table` and `bits`
// are checked against the block; the caller judges the geometry.
struct DibLayout {
    uint32_t headerSize = 0;        // 12 for the older header form, else the info header's size
    int32_t width = 0;              // pixels a row as the header gives it
    int32_t height = 0;             // rows; negative for a top-down DIB
    uint16_t bitCount = 0;          // bits a pixel as the header gives it
    uint32_t compression = 0;       // 0 for plain rows
    int32_t xPelsPerMeter = 0;      // 0 when the header has no such field
    int32_t yPelsPerMeter = 0;      // 0 when the header has no such field
    uint32_t colourCount = 0;       // colour table entries
    unsigned entrySize = 4;         // 4 after a 40-byte header, 3 after any other
    const uint8_t* table = nullptr; // colour table, `colourCount` entries of `entrySize` bytes
    const uint8_t* bits = nullptr;  // the rows
    size_t bitsSize = 0;            // bytes of the block from `bits` to its end
};

enum class DibRead {
    Ok,         // every field is filled in
    HeaderSize, // the header's size field is below 12 or the block cannot hold the header
    NoBits      // the colour table leaves no room for rows in the block
};

// Reads the layout of the DIB in `block` (`size` bytes). The colour count is
// biClrUsed when the header is 40 bytes and it is non-zero, else 2, 16 or 256
// for 1, 4 and 8 bits and 0 for others.
DibRead readDibLayout(const uint8_t* block, size_t size, DibLayout* layout);

// The colour table entry `index` as blue, green and red; black past the end
// of the table.
struct Bgr {
    uint8_t blue, green, red;
};
Bgr tableEntry(const DibLayout& layout, uint32_t index);

// Writes a 40-byte header at `block` for an uncompressed, bottom-up DIB.
void writeInfoHeader(uint8_t* block, int32_t width, int32_t height, uint16_t bitCount,
                     int32_t xPelsPerMeter, int32_t yPelsPerMeter);

} // namespace kova::imaging
