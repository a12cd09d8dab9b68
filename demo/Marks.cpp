#include "Marks.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <vector>

namespace demo {

namespace {

constexpr int dataBits = 16;
constexpr int checkBits = 4;

unsigned checkOf(unsigned value) {
    unsigned sum = 0;
    for (int nibble = 0; nibble < dataBits / 4; ++nibble)
        sum += (value >> (4 * nibble)) & 0xF;
    return sum & 0xF;
}

// Widths of the dark runs met along one row of `area`.
std::vector<int> darkRuns(const PixelView& page, Rect area, int y) {
    std::vector<int> runs;
    int run = 0;
    for (int x = area.left; x < area.right; ++x) {
        if (page.dark(x, y)) {
            ++run;
        } else if (run) {
            runs.push_back(run);
            run = 0;
        }
    }
    if (run) runs.push_back(run);
    return runs;
}

std::optional<unsigned> decodeRuns(const std::vector<int>& runs) {
    if (runs.size() != 2 + dataBits + checkBits + 1) return std::nullopt;
    // The start pair gives the unit; wide bars are three units, narrow one.
    const double unit = (runs[0] + runs[1]) / 2.0;
    if (unit <= 0 || runs.back() < 4 * unit) return std::nullopt;
    unsigned word = 0;
    for (int i = 0; i < dataBits + checkBits; ++i)
        word = (word << 1) | (runs[2 + i] > 2 * unit ? 1u : 0u);
    const unsigned value = word >> checkBits;
    if ((word & 0xF) != checkOf(value)) return std::nullopt;
    return value;
}

// Segments a to g of a digit cell, as rectangles inside it.
std::array<Rect, 7> segmentsOf(Rect cell) {
    const int t = std::max(1, cell.width() / 5);
    const int l = cell.left, r = cell.right, top = cell.top, b = cell.bottom;
    const int mid = (top + b) / 2;
    return {{{l + t, top, r - t, top + t},
             {r - t, top + t, r, mid},
             {r - t, mid, r, b - t},
             {l + t, b - t, r - t, b},
             {l, mid, l + t, b - t},
             {l, top + t, l + t, mid},
             {l + t, mid - t / 2, r - t, mid - t / 2 + t}}};
}

// Segment patterns of the digits 0 to 9, bit 0 for segment a.
constexpr std::array<uint8_t, 10> digitSegments = {0x3F, 0x06, 0x5B, 0x4F, 0x66,
                                                   0x6D, 0x7D, 0x07, 0x7F, 0x6F};

Rect digitCell(Rect area, int index) {
    const int pitch = area.width() / digitFieldDigits;
    const int gap = pitch / 4;
    return {area.left + index * pitch, area.top, area.left + index * pitch + pitch - gap,
            area.bottom};
}

// A segment is lit when most of the inner half of its rectangle is dark.
bool segmentLit(const PixelView& page, Rect segment) {
    const int insetX = segment.width() / 4, insetY = segment.height() / 4;
    int dark = 0, all = 0;
    for (int y = segment.top + insetY; y < segment.bottom - insetY; ++y)
        for (int x = segment.left + insetX; x < segment.right - insetX; ++x) {
            ++all;
            dark += page.dark(x, y);
        }
    return all && dark * 2 > all;
}

} // namespace

void drawBarcode(Canvas& canvas, Rect area, int unit, unsigned value) {
    value &= 0xFFFF;
    const unsigned word = (value << checkBits) | checkOf(value);
    const uint8_t ink = 0;
    int x = area.left + 4 * unit; // quiet zone
    auto bar = [&](int units) {
        canvas.fill({x, area.top, x + units * unit, area.bottom}, ink);
        x += (units + 1) * unit;
    };
    bar(1);
    bar(1);
    for (int bit = dataBits + checkBits - 1; bit >= 0; --bit)
        bar((word >> bit) & 1 ? 3 : 1);
    bar(5);
}

std::optional<unsigned> readBarcode(const PixelView& page, Rect area) {
    std::map<unsigned, int> votes;
    constexpr int rows = 9;
    for (int i = 0; i < rows; ++i) {
        const int y = area.top + area.height() * (i + 1) / (rows + 1);
        if (auto value = decodeRuns(darkRuns(page, area, y))) ++votes[*value];
    }
    if (votes.empty()) return std::nullopt;
    return std::max_element(votes.begin(), votes.end(),
                            [](auto& a, auto& b) { return a.second < b.second; })
        ->first;
}

void drawDigits(Canvas& canvas, Rect area, unsigned value) {
    for (int i = digitFieldDigits - 1; i >= 0; --i, value /= 10) {
        const auto segments = segmentsOf(digitCell(area, i));
        const uint8_t pattern = digitSegments[value % 10];
        for (int s = 0; s < 7; ++s)
            if (pattern & (1 << s)) canvas.fill(segments[s], 0);
    }
}

std::optional<std::string> readDigits(const PixelView& page, Rect area) {
    std::string text;
    for (int i = 0; i < digitFieldDigits; ++i) {
        const auto segments = segmentsOf(digitCell(area, i));
        uint8_t pattern = 0;
        for (int s = 0; s < 7; ++s)
            if (segmentLit(page, segments[s])) pattern |= static_cast<uint8_t>(1 << s);
        const auto* found = std::find(digitSegments.begin(), digitSegments.end(), pattern);
        if (found == digitSegments.end()) return std::nullopt;
        text += static_cast<char>('0' + (found - digitSegments.begin()));
    }
    return text;
}

} // namespace demo
