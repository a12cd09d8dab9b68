// The bit dialog without a host hook on POSIX: there is no window system to
// draw it in, so it is not shown and the field keeps its bits.
#include "kova/bitdialog.h"
#include "platform/Platform.hpp"

namespace kova::platform {

int defaultBitFieldDialog(kvBitFieldDialog*) {
    return 0;
}

} // namespace kova::platform
