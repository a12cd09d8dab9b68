// File versions on POSIX: a module states its own in its compiled-in
// resources, as the text "major.minor.build.revision" under the version
// resource type (see kova/resources.h).
#include "kova/resources.h"
#include "platform/Platform.hpp"

namespace kova::platform {

bool fileVersion(kvModule module, uint16_t version[4]) {
    if (!version) return false;
    const auto text = findResource(module, KV_RESOURCE_ID(KV_VERSION_RESOURCE_ID), KV_RT_VERSION);
    uint32_t parts[4] = {};
    size_t part = 0;
    bool digits = false;
    for (std::byte byte : text) {
        const char c = static_cast<char>(byte);
        if (c >= '0' && c <= '9' && parts[part] <= 0xFFFF) {
            parts[part] = parts[part] * 10 + static_cast<uint32_t>(c - '0');
            digits = true;
        } else if (c == '.' && digits && part < 3) {
            ++part;
            digits = false;
        } else {
            return false;
        }
    }
    if (part != 3 || !digits) return false;
    for (size_t i = 0; i < 4; ++i) {
        if (parts[i] > 0xFFFF) return false;
        version[i] = static_cast<uint16_t>(parts[i]);
    }
    return true;
}

} // namespace kova::platform
