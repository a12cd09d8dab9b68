// The two machine-readable marks of a demo page and their readers: a bar code
// of the page number and a field of seven-segment digits. Both are drawn on a
// canvas by the scanner and read back from delivered pixels by the recognizer,
// which knows only where they are, never what they say.
#ifndef KOVA_DEMO_MARKS_HPP
#define KOVA_DEMO_MARKS_HPP

#include "Canvas.hpp"

#include <optional>
#include <string>

namespace demo {

// The bar code: a start pair of narrow bars, 20 data bars (16 bits of the
// value then a 4-bit check, wide for 1, narrow for 0) and a broad stop bar.
constexpr int barcodeUnitsWide = 100;
void drawBarcode(Canvas& canvas, Rect area, int unit, unsigned value);
// The value read along several rows of `area`, the most frequent valid reading
// winning; nothing when no row reads with a valid check.
std::optional<unsigned> readBarcode(const PixelView& page, Rect area);

// The digit field: `digitFieldDigits` seven-segment digits, zero-padded.
constexpr int digitFieldDigits = 5;
void drawDigits(Canvas& canvas, Rect area, unsigned value);
// The digits as text, or nothing when a digit cannot be told.
std::optional<std::string> readDigits(const PixelView& page, Rect area);

} // namespace demo

#endif
