// Demo pages: where their marks lie, how they are drawn, and the packed pixels
// in which the scanner delivers them.
#ifndef KOVA_DEMO_PAGE_HPP
#define KOVA_DEMO_PAGE_HPP

#include "Canvas.hpp"

#include <cstdint>
#include <vector>

namespace demo {

enum class PageKind { Bilevel, Greyscale };

// Where the marks of a page of this size lie: the form the recognizer reads by.
struct PageLayout {
    int width, height, dpi;
    Rect barcode() const;
    Rect digits() const;
    int barcodeUnit() const;
};

// A delivered page: rows packed from the most significant bit, each row
// `stride` bytes. Bilevel pages are one bit a pixel with zero white
// (photometric 0); greyscale pages one byte a pixel with zero black
// (photometric 1).
struct Page {
    int width = 0, height = 0, dpi = 0;
    int bitsPerSample = 1;
    int photometric = 0;
    long stride = 0;
    unsigned number = 0;
    std::vector<uint8_t> bits;
    PixelView view() const {
        return {bits.data(), stride, width, height, bitsPerSample, photometric};
    }
};

// Draws page `number` of the batch `seed`: a digit field and a bar code of the
// page number, ruled boxes and lines of text-like marks. The same seed, number,
// kind and size always give the same pixels.
Page makePage(uint64_t seed, unsigned number, PageKind kind, int width, int height, int dpi);

} // namespace demo

#endif
