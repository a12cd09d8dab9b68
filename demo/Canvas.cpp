#include "Canvas.hpp"

#include <algorithm>
#include <cstring>

namespace demo {

Canvas::Canvas(int width, int height, uint8_t paper)
    : width_(width), height_(height),
      pixels_(static_cast<size_t>(width) * static_cast<size_t>(height), paper) {}

void Canvas::fill(Rect area, uint8_t value) {
    const int left = std::max(area.left, 0), right = std::min(area.right, width_);
    const int top = std::max(area.top, 0), bottom = std::min(area.bottom, height_);
    if (left >= right) return;
    for (int y = top; y < bottom; ++y)
        std::memset(row(y) + left, value, static_cast<size_t>(right - left));
}

void Canvas::frame(Rect area, int thickness, uint8_t value) {
    fill({area.left, area.top, area.right, area.top + thickness}, value);
    fill({area.left, area.bottom - thickness, area.right, area.bottom}, value);
    fill({area.left, area.top, area.left + thickness, area.bottom}, value);
    fill({area.right - thickness, area.top, area.right, area.bottom}, value);
}

bool PixelView::dark(int x, int y) const {
    if (x < 0 || y < 0 || x >= width || y >= height) return false;
    const uint8_t* line = bits + stride * y;
    if (bitsPerSample == 1) {
        const bool set = (line[x >> 3] >> (7 - (x & 7))) & 1;
        return photometric == 0 ? set : !set;
    }
    const uint8_t level = line[x];
    return photometric == 0 ? level >= 128 : level < 128;
}

} // namespace demo
