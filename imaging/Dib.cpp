// Reading and writing the parts of a DIB in memory; see Dib.hpp.
#include "imaging/Dib.hpp"

#include <cstring>

namespace kova::imaging {

namespace {

template <typename T> T readField(const uint8_t* at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

uint32_t defaultColourCount(uint16_t bitCount) {
    switch (bitCount) {
    case 1:
        return 2;
    case 4:
        return 16;
    case 8:
        return 256;
    default:
        return 0;
    }
}

} // namespace

DibRead readDibLayout(const uint8_t* block, size_t size, DibLayout* layout) {
    *layout = DibLayout{};
    if (!block || size < sizeof(kvBitmapCoreHeader)) return DibRead::HeaderSize;
    const uint32_t headerSize = readField<uint32_t>(block);
    // The older 12-byte form has 16-bit sizes; every longer form begins with
    // the 40-byte header's fields, as far as its size reaches.
    if (headerSize < sizeof(kvBitmapCoreHeader) || headerSize > size) return DibRead::HeaderSize;
    layout->headerSize = headerSize;
    if (headerSize == sizeof(kvBitmapCoreHeader)) {
        layout->width = readField<uint16_t>(block + offsetof(kvBitmapCoreHeader, bcWidth));
        layout->height = readField<uint16_t>(block + offsetof(kvBitmapCoreHeader, bcHeight));
        layout->bitCount = readField<uint16_t>(block + offsetof(kvBitmapCoreHeader, bcBitCount));
    } else {
        if (headerSize < offsetof(kvBitmapInfoHeader, biCompression)) return DibRead::HeaderSize;
        layout->width = readField<int32_t>(block + offsetof(kvBitmapInfoHeader, biWidth));
        layout->height = readField<int32_t>(block + offsetof(kvBitmapInfoHeader, biHeight));
        layout->bitCount = readField<uint16_t>(block + offsetof(kvBitmapInfoHeader, biBitCount));
        if (headerSize >= offsetof(kvBitmapInfoHeader, biSizeImage))
            layout->compression =
                readField<uint32_t>(block + offsetof(kvBitmapInfoHeader, biCompression));
        if (headerSize >= offsetof(kvBitmapInfoHeader, biClrUsed)) {
            layout->xPelsPerMeter =
                readField<int32_t>(block + offsetof(kvBitmapInfoHeader, biXPelsPerMeter));
            layout->yPelsPerMeter =
                readField<int32_t>(block + offsetof(kvBitmapInfoHeader, biYPelsPerMeter));
        }
    }
    const bool infoHeader = headerSize == sizeof(kvBitmapInfoHeader);
    const uint32_t used =
        infoHeader ? readField<uint32_t>(block + offsetof(kvBitmapInfoHeader, biClrUsed)) : 0;
    layout->colourCount = used ? used : defaultColourCount(layout->bitCount);
    layout->entrySize = infoHeader ? 4 : 3;
    // A 64-bit sum: a colour count near 2^32 must not wrap round to a small
    // table.
    const uint64_t bitsOffset =
        uint64_t{headerSize} + uint64_t{layout->colourCount} * layout->entrySize;
    if (bitsOffset >= size) return DibRead::NoBits;
    layout->table = block + headerSize;
    layout->bits = block + bitsOffset;
    layout->bitsSize = size - static_cast<size_t>(bitsOffset);
    return DibRead::Ok;
}

Bgr tableEntry(const DibLayout& layout, uint32_t index) {
    if (index >= layout.colourCount) return Bgr{0, 0, 0};
    const uint8_t* entry = layout.table + size_t{index} * layout.entrySize;
    return Bgr{entry[0], entry[1], entry[2]};
}

void writeInfoHeader(uint8_t* block, int32_t width, int32_t height, uint16_t bitCount,
                     int32_t xPelsPerMeter, int32_t yPelsPerMeter) {
    kvBitmapInfoHeader header{};
    header.biSize = sizeof header;
    header.biWidth = width;
    header.biHeight = height;
    header.biPlanes = 1;
    header.biBitCount = bitCount;
    header.biXPelsPerMeter = xPelsPerMeter;
    header.biYPelsPerMeter = yPelsPerMeter;
    std::memcpy(block, &header, sizeof header);
}

} // namespace kova::imaging
