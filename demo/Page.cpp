#include "Page.hpp"

#include "Marks.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace demo {

namespace {

// A small, fast generator whose sequence is the same on every platform.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}
    uint64_t next() {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    int between(int low, int high) { // inclusive
        return low + static_cast<int>(next() % static_cast<uint64_t>(high - low + 1));
    }

  private:
    uint64_t state_;
};

bool overlaps(Rect a, Rect b) {
    return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
}

// One glyph-like mark in an x-height band at (x, baseline): a few strokes, an
// ascender or a descender now and then. Returns the glyph's advance.
int drawGlyph(Canvas& canvas, Random& random, int x, int baseline, int xHeight, int stroke,
              uint8_t ink) {
    const int width = xHeight * random.between(5, 9) / 10;
    const int top = baseline - xHeight;
    const int shape = random.between(0, 7);
    int stemTop = top, stemBottom = baseline;
    if (shape == 1 || shape == 5) stemTop -= xHeight / 2;
    if (shape == 3) stemBottom += xHeight / 2;
    canvas.fill({x, stemTop, x + stroke, stemBottom}, ink);
    if (shape != 1) canvas.fill({x, top, x + width, top + stroke}, ink);
    if (shape % 2 == 0) canvas.fill({x, baseline - stroke, x + width, baseline}, ink);
    if (shape != 3 && shape != 6) canvas.fill({x + width - stroke, top, x + width, baseline}, ink);
    if (shape == 4) canvas.fill({x, top + xHeight / 2, x + width, top + xHeight / 2 + stroke}, ink);
    return width + stroke * 2;
}

void drawText(Canvas& canvas, Random& random, Rect area, int dpi, bool grey,
              const Rect (&keepClear)[2]) {
    const int xHeight = std::max(3, dpi * 8 / 100);
    const int pitch = dpi * 22 / 100;
    const int stroke = std::max(1, dpi / 100);
    for (int baseline = area.top + pitch; baseline + pitch / 2 < area.bottom; baseline += pitch) {
        if (random.between(0, 9) == 0) continue; // a paragraph break
        const int lineEnd = area.right - random.between(0, area.width() / 3);
        int x = area.left + (random.between(0, 5) == 0 ? dpi / 3 : 0);
        while (x < lineEnd) {
            const int letters = random.between(2, 9);
            const uint8_t ink = grey ? static_cast<uint8_t>(random.between(15, 70)) : 0;
            for (int i = 0; i < letters && x < lineEnd; ++i) {
                const Rect cell{x, baseline - 2 * xHeight, x + xHeight * 2, baseline + xHeight};
                if (overlaps(cell, keepClear[0]) || overlaps(cell, keepClear[1])) {
                    x += xHeight;
                    continue;
                }
                x += drawGlyph(canvas, random, x, baseline, xHeight, stroke, ink);
            }
            x += xHeight; // the space between words
        }
    }
}

void drawBoxes(Canvas& canvas, Random& random, Rect area, int dpi) {
    const int rule = std::max(1, dpi / 100);
    canvas.frame(area, rule, 0);
    const int columns = random.between(2, 4);
    for (int c = 1; c < columns; ++c) {
        const int x = area.left + area.width() * c / columns;
        canvas.fill({x, area.top, x + rule, area.bottom}, 0);
    }
    const int y = area.top + area.height() / 3;
    canvas.fill({area.left, y, area.right, y + rule}, 0);
}

// Paper that is not quite white: a soft gradient across the page and a
// little noise, as a scanner's lamp and sensor give. Each pixel darkens by the
// row's shade and moves by -3 to +4, a nibble of a random number (16 pixels
// to a number). This is most of a grey page's cost, so the darkened and
// clamped levels are looked up in a table made for each shade.
void ageGreyPaper(Canvas& canvas, Random& random) {
    uint8_t aged[8][256];
    int tableShade = -1;
    const int width = canvas.width();
    for (int y = 0; y < canvas.height(); ++y) {
        uint8_t* row = canvas.row(y);
        const int shade = 8 * y / std::max(1, canvas.height());
        if (shade != tableShade) {
            for (int noise = 0; noise < 8; ++noise)
                for (int level = 0; level < 256; ++level)
                    aged[noise][level] =
                        static_cast<uint8_t>(std::clamp(level - shade + noise - 3, 0, 255));
            tableShade = shade;
        }
        for (int x = 0; x < width; x += 16) {
            uint64_t bits = random.next();
            const int end = std::min(width, x + 16);
            for (int i = x; i < end; ++i, bits >>= 4)
                row[i] = aged[bits & 7][row[i]];
        }
    }
}

void speckle(Canvas& canvas, Random& random, const Rect (&keepClear)[2]) {
    const int specks = canvas.width() * canvas.height() / 40000;
    for (int i = 0; i < specks; ++i) {
        const int x = random.between(0, canvas.width() - 2);
        const int y = random.between(0, canvas.height() - 2);
        const Rect speck{x, y, x + random.between(1, 2), y + random.between(1, 2)};
        if (!overlaps(speck, keepClear[0]) && !overlaps(speck, keepClear[1])) canvas.fill(speck, 0);
    }
}

// Eight pixels as one byte, the first in the most significant bit; a pixel
// darker than half (its top bit clear) is ink. The eight top bits are
// gathered by one multiplication: the bit of byte i, at 8i + 7 of the word
// read little-endian, goes to bit 63 - i, and no two partial products meet.
uint8_t packEight(const uint8_t* pixels) {
    uint64_t word;
    std::memcpy(&word, pixels, sizeof word);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
    const uint64_t ink = (~word & 0x8080808080808080ull) >> 7;
    return static_cast<uint8_t>((ink * 0x8040201008040201ull) >> 56);
}

// The last pixels of a row, fewer than eight.
uint8_t packTail(const uint8_t* pixels, int count) {
    unsigned byte = 0;
    for (int i = 0; i < count; ++i)
        byte |= static_cast<unsigned>(pixels[i] < 128) << (7 - i);
    return static_cast<uint8_t>(byte);
}

Page pack(const Canvas& canvas, PageKind kind) {
    Page page;
    page.width = canvas.width();
    page.height = canvas.height();
    if (kind == PageKind::Greyscale) {
        page.bitsPerSample = 8;
        page.photometric = 1;
        page.stride = page.width;
        // The canvas's rows lie one after another, as the page's do.
        page.bits.assign(canvas.row(0), canvas.row(0) + page.stride * page.height);
        return page;
    }
    page.bitsPerSample = 1;
    page.photometric = 0;
    page.stride = (page.width + 7) / 8;
    page.bits.assign(static_cast<size_t>(page.stride) * page.height, 0);
    for (int y = 0; y < page.height; ++y) {
        const uint8_t* from = canvas.row(y);
        uint8_t* to = page.bits.data() + page.stride * y;
        // Eight pixels at a time, without a branch a pixel: packing is most
        // of the cost of drawing a bilevel page.
        int x = 0;
        for (; x + 8 <= page.width; x += 8)
            to[x >> 3] = packEight(from + x);
        if (x < page.width) to[x >> 3] = packTail(from + x, page.width - x);
    }
    return page;
}

} // namespace

int PageLayout::barcodeUnit() const {
    return std::max(1, dpi / 75);
}

Rect PageLayout::barcode() const {
    const int margin = dpi * 3 / 4;
    const int wide = barcodeUnitsWide * barcodeUnit();
    return {width - margin - wide, margin, width - margin, margin + dpi * 4 / 10};
}

Rect PageLayout::digits() const {
    const int margin = dpi * 3 / 4;
    return {margin, margin, margin + digitFieldDigits * dpi * 3 / 10, margin + dpi * 45 / 100};
}

Page makePage(uint64_t seed, unsigned number, PageKind kind, int width, int height, int dpi) {
    Random random(seed * 0x100000001B3ull + number);
    const bool grey = kind == PageKind::Greyscale;
    Canvas canvas(width, height, grey ? 246 : 255);
    const PageLayout layout{width, height, dpi};
    const Rect marks[2] = {layout.barcode(), layout.digits()};
    drawDigits(canvas, layout.digits(), number);
    drawBarcode(canvas, layout.barcode(), layout.barcodeUnit(), number);

    const int margin = dpi * 3 / 4;
    const Rect boxes{margin, margin + dpi, width - margin, margin + dpi + dpi * 12 / 10};
    drawBoxes(canvas, random, boxes, dpi);
    drawText(canvas, random, {margin, boxes.bottom + dpi / 4, width - margin, height - margin}, dpi,
             grey, marks);
    if (grey)
        ageGreyPaper(canvas, random);
    else
        speckle(canvas, random, marks);

    Page page = pack(canvas, kind);
    page.dpi = dpi;
    page.number = number;
    return page;
}

} // namespace demo
