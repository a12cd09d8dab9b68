// Painting without a technology: a GDI brush of the colour (the stock white
// brush for white) fills the rectangle of the host's device context.
#include "platform/Platform.hpp"

#include <windows.h>

namespace kova::platform {

void defaultFillRect(kvArg deviceContext, const kvRect* rect, uint32_t colour) {
    if (!rect || !deviceContext) return;
    const RECT area{rect->left, rect->top, rect->right, rect->bottom};
    const bool stock = colour == KV_COLOR_WHITE;
    const HBRUSH brush = stock ? static_cast<HBRUSH>(::GetStockObject(WHITE_BRUSH))
                               : ::CreateSolidBrush(static_cast<COLORREF>(colour));
    if (!brush) return;
    ::FillRect(reinterpret_cast<HDC>(deviceContext), &area, brush);
    if (!stock) ::DeleteObject(brush);
}

} // namespace kova::platform
