// A page being drawn: 8-bit grey, 0 black, 255 white, one byte a pixel. Pages
// are drawn at this depth and then packed to the depth they are delivered in.
#ifndef KOVA_DEMO_CANVAS_HPP
#define KOVA_DEMO_CANVAS_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace demo {

struct Rect {
    int left, top, right, bottom; // right and bottom exclusive
    int width() const { return right - left; }
    int height() const { return bottom - top; }
};

class Canvas {
  public:
    Canvas(int width, int height, uint8_t paper);
    int width() const { return width_; }
    int height() const { return height_; }
    uint8_t* row(int y) { return pixels_.data() + static_cast<size_t>(y) * width_; }
    const uint8_t* row(int y) const { return pixels_.data() + static_cast<size_t>(y) * width_; }
    // Fills the part of `area` that lies on the page.
    void fill(Rect area, uint8_t value);
    // A rectangle's outline, `thickness` pixels wide, inside the rectangle.
    void frame(Rect area, int thickness, uint8_t value);

  private:
    int width_;
    int height_;
    std::vector<uint8_t> pixels_;
};

// Reads a delivered page, whatever its depth: dark(x, y) is true for ink.
struct PixelView {
    const uint8_t* bits = nullptr; // first row
    long stride = 0;               // bytes from one row to the next
    int width = 0;
    int height = 0;
    int bitsPerSample = 1; // 1 or 8
    int photometric = 0;   // 0: zero is white, 1: zero is black
    bool dark(int x, int y) const;
};

} // namespace demo

#endif
