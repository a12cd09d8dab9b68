// INI files on Windows: the system's own profile functions, which look for a
// bare file name in the Windows directory.
#include "platform/Platform.hpp"

#include <climits>
#include <cstring>
#include <string>
#include <windows.h>

namespace kova::platform {

size_t profileGetString(const char* section, const char* key, const char* fallback, char* buffer,
                        size_t size, const char* file) {
    if (!buffer || size == 0) return 0;
    buffer[0] = '\0';
    // Both names are required: without them the system lists names instead.
    if (!section || !key || !file) {
        std::string text = fallback ? fallback : "";
        while (!text.empty() && text.back() == ' ')
            text.pop_back();
        const size_t length = text.size() < size - 1 ? text.size() : size - 1;
        std::memcpy(buffer, text.data(), length);
        buffer[length] = '\0';
        return length;
    }
    const DWORD capacity = size > UINT_MAX ? UINT_MAX : static_cast<DWORD>(size);
    return ::GetPrivateProfileStringA(section, key, fallback ? fallback : "", buffer, capacity,
                                      file);
}

unsigned profileGetInt(const char* section, const char* key, int fallback, const char* file) {
    if (!section || !key || !file) return static_cast<unsigned>(fallback);
    return ::GetPrivateProfileIntA(section, key, fallback, file);
}

bool profileWriteString(const char* section, const char* key, const char* value, const char* file) {
    if (!section || !file) return false;
    return ::WritePrivateProfileStringA(section, key, value, file) != FALSE;
}

std::string profilePath(const char* file) {
    if (!file) return {};
    if (std::strpbrk(file, "\\/:")) return file;
    char folder[MAX_PATH] = {};
    const UINT length = ::GetWindowsDirectoryA(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return file;
    return std::string(folder) + "\\" + file;
}

} // namespace kova::platform
