// The image tests' fixture: a started kernel (KernelTest) with helpers that
// make RawImages of a given layout, read their attributes and pixels, and
// build, read and save DIBs as a host would, through kova/dib.h.
#pragma once

#include "kova/dib.h"
#include "kova/image.h"
#include "tests/KernelFixture.hpp"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kova::test {

// A DIB as plain values: what a host builds or reads back.
struct Dib {
    kvBitmapInfoHeader header{};
    std::vector<kvRGBQuad> table;
    std::vector<uint8_t> bits; // rows as stored, bottom row first, padded

    // A bottom-up DIB of `width` × `height` pixels of `bitCount` bits with
    // zeroed rows and a colour table of `colours` entries.
    static Dib make(int32_t width, int32_t height, uint16_t bitCount, size_t colours = 0) {
        Dib dib;
        dib.header.biSize = sizeof(kvBitmapInfoHeader);
        dib.header.biWidth = width;
        dib.header.biHeight = height;
        dib.header.biPlanes = 1;
        dib.header.biBitCount = bitCount;
        dib.table.resize(colours);
        dib.bits.resize(kvDIBRowBytes(size_t(width), bitCount) *
                        size_t(height < 0 ? -height : height));
        return dib;
    }
    size_t stride() const { return kvDIBRowBytes(size_t(header.biWidth), header.biBitCount); }
    // Row y counted from the top of the picture.
    uint8_t* row(int32_t y) { return bits.data() + size_t(header.biHeight - 1 - y) * stride(); }

    // The block a handle holds: header, table, bits.
    std::vector<uint8_t> bytes() const {
        std::vector<uint8_t> out(sizeof header + table.size() * 4 + bits.size());
        std::memcpy(out.data(), &header, sizeof header);
        if (!table.empty()) std::memcpy(out.data() + sizeof header, table.data(), table.size() * 4);
        if (!bits.empty())
            std::memcpy(out.data() + sizeof header + table.size() * 4, bits.data(), bits.size());
        return out;
    }
    kvMemHandle handle() const { return handleOf(bytes()); }

    static kvMemHandle handleOf(const std::vector<uint8_t>& block) {
        kvMemHandle handle = kvGlobalAlloc(block.size());
        if (!block.empty()) std::memcpy(kvGlobalLock(handle), block.data(), block.size());
        kvGlobalUnlock(handle);
        return handle;
    }

    // Reads a handle with a 40-byte header back (and frees it when asked).
    static Dib read(kvMemHandle handle, bool free = true) {
        Dib dib;
        const auto* block = static_cast<const uint8_t*>(kvGlobalLock(handle));
        const size_t size = kvGlobalSize(handle);
        std::memcpy(&dib.header, block, sizeof dib.header);
        const size_t colours = dib.header.biClrUsed         ? dib.header.biClrUsed
                               : dib.header.biBitCount <= 8 ? size_t{1} << dib.header.biBitCount
                                                            : 0;
        dib.table.resize(colours);
        if (colours) std::memcpy(dib.table.data(), block + sizeof dib.header, colours * 4);
        const size_t start = sizeof dib.header + colours * 4;
        dib.bits.assign(block + start, block + size);
        kvGlobalUnlock(handle);
        if (free) kvGlobalFree(handle);
        return dib;
    }

    // The BMP file of this DIB: a 14-byte file header before the block.
    std::vector<uint8_t> bmpFile() const {
        const std::vector<uint8_t> block = bytes();
        std::vector<uint8_t> file(14 + block.size());
        const uint32_t size = uint32_t(file.size());
        const uint32_t offset = uint32_t(14 + sizeof header + table.size() * 4);
        file[0] = 'B', file[1] = 'M';
        std::memcpy(&file[2], &size, 4);
        std::memcpy(&file[10], &offset, 4);
        std::memcpy(file.data() + 14, block.data(), block.size());
        return file;
    }
};

class ImageTest : public KernelTest {
  protected:
    // A RawImage of the given layout with its width set and its pixel buffer
    // zeroed.
    kvObject image(int32_t bytesPerLine, int32_t height, int32_t bitsPerSample,
                   int32_t samplesPerPixel, int32_t width) {
        kvObject raw = make("RawImage", bytesPerLine, height, bitsPerSample, samplesPerPixel,
                            nullptr, "image", 0, 0);
        if (!raw) return nullptr;
        kvSendMeth(&error, raw, "setImageWidth", width);
        std::memset(pixels(raw), 0, size_t(bytesPerLine) * size_t(height));
        return raw;
    }
    kvArg get(kvObject obj, const char* method) { return kvSendMeth(&error, obj, method); }
    uint8_t* pixels(kvObject raw) {
        return reinterpret_cast<uint8_t*>(kvSendMeth(&error, raw, "getImageDataPointer"));
    }
    uint8_t* row(kvObject raw, int32_t y) {
        return pixels(raw) + size_t(y) * size_t(get(raw, "getBytesPerLine"));
    }
    kvPaletteEntry* palette(kvObject raw) {
        return reinterpret_cast<kvPaletteEntry*>(kvSendMeth(&error, raw, "getPalettePointer"));
    }
    // Takes the object out of the fixture's list, for objects a call consumes.
    void forget(kvObject obj) { std::erase(made, obj); }
};

} // namespace kova::test
