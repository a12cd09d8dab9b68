// File versions on Windows: the fixed part of the module file's version
// resource.
#include "platform/Platform.hpp"

#include <string>
#include <vector>
#include <windows.h>

namespace kova::platform {

bool fileVersion(kvModule module, uint16_t version[4]) {
    if (!version || !module) return false;
    const std::string path = moduleFileName(module);
    if (path.empty()) return false;
    DWORD ignored = 0;
    const DWORD size = ::GetFileVersionInfoSizeA(path.c_str(), &ignored);
    if (size == 0) return false;
    std::vector<char> info(size);
    if (!::GetFileVersionInfoA(path.c_str(), 0, size, info.data())) return false;
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (!::VerQueryValueA(info.data(), "\\", reinterpret_cast<void**>(&fixed), &length) || !fixed ||
        length < sizeof *fixed)
        return false;
    version[0] = HIWORD(fixed->dwFileVersionMS);
    version[1] = LOWORD(fixed->dwFileVersionMS);
    version[2] = HIWORD(fixed->dwFileVersionLS);
    version[3] = LOWORD(fixed->dwFileVersionLS);
    return true;
}

} // namespace kova::platform
