// Painting without a technology: POSIX has no device contexts of its own, so
// only a host's painting hook paints.
#include "platform/Platform.hpp"

namespace kova::platform {

void defaultFillRect(kvArg, const kvRect*, uint32_t) {}

} // namespace kova::platform
