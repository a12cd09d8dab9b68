// INI files on POSIX with the Windows profile functions' semantics (the text
// rules in IniText.hpp). A bare file name ("KOVA.INI") is looked for in the
// profile folder, which stands in for the Windows directory: by its exact
// name first, then by a name that differs only in case; a new file gets the
// name as given.
#include "platform/HeapAllocator.hpp"
#include "platform/posix/Files.hpp"
#include "platform/posix/IniText.hpp"
#include "platform/posix/UserFolders.hpp"

#include <cstring>
#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

namespace {

bool exists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

// The file named `name` in `folder`, matched without regard to case, or an
// empty string.
std::string findIgnoringCase(const std::string& folder, const char* name) {
    DIR* directory = ::opendir(folder.c_str());
    if (!directory) return {};
    std::string found;
    while (const dirent* entry = ::readdir(directory))
        if (::strcasecmp(entry->d_name, name) == 0) {
            found = folder + "/" + entry->d_name;
            break;
        }
    ::closedir(directory);
    return found;
}

size_t copyCut(std::string_view text, char* buffer, size_t size) {
    const size_t length = text.size() < size - 1 ? text.size() : size - 1;
    std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return length;
}

} // namespace

namespace kova::platform {

std::string profilePath(const char* file) {
    if (!file) return {};
    if (std::strchr(file, '/')) return file;
    const std::string folder = profileFolder();
    std::string path = folder + "/" + file;
    if (exists(path)) return path;
    std::string other = findIgnoringCase(folder, file);
    return other.empty() ? path : other;
}

size_t profileGetString(const char* section, const char* key, const char* fallback, char* buffer,
                        size_t size, const char* file) {
    if (!buffer || size == 0) return 0;
    buffer[0] = '\0';
    std::string_view text = fallback ? fallback : "";
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    HeapString bytes;
    try {
        std::string_view value;
        if (section && key && file &&
            readWholeFile(profilePath(file), maxProfileSize, bytes) == ReadResult::Read &&
            findIniValue(bytes, section, key, value))
            text = value;
        return copyCut(text, buffer, size);
    } catch (const std::bad_alloc&) {
        return copyCut(text, buffer, size); // still the fallback
    }
}

unsigned profileGetInt(const char* section, const char* key, int fallback, const char* file) {
    char text[30];
    if (profileGetString(section, key, "", text, sizeof text, file) == 0)
        return static_cast<unsigned>(fallback);
    // As the system's string-to-integer conversion reads it: blanks, a sign,
    // a base prefix, then digits up to the first that does not belong.
    const char* at = text;
    while (*at && static_cast<unsigned char>(*at) <= ' ')
        ++at;
    bool negative = false;
    if (*at == '+' || *at == '-') negative = *at++ == '-';
    unsigned base = 10;
    if (at[0] == '0' && (at[1] == 'x' || at[1] == 'X' || at[1] == 'o' || at[1] == 'O' ||
                         at[1] == 'b' || at[1] == 'B')) {
        base = (at[1] == 'x' || at[1] == 'X') ? 16 : (at[1] == 'o' || at[1] == 'O') ? 8 : 2;
        at += 2;
    }
    unsigned value = 0;
    for (;; ++at) {
        unsigned digit;
        if (*at >= '0' && *at <= '9')
            digit = static_cast<unsigned>(*at - '0');
        else if (*at >= 'a' && *at <= 'z')
            digit = static_cast<unsigned>(*at - 'a' + 10);
        else if (*at >= 'A' && *at <= 'Z')
            digit = static_cast<unsigned>(*at - 'A' + 10);
        else
            break;
        if (digit >= base) break;
        value = value * base + digit;
    }
    return negative ? 0u - value : value;
}

bool profileWriteString(const char* section, const char* key, const char* value, const char* file) {
    if (!section || !file) return false;
    const std::string path = profilePath(file);
    try {
        HeapString bytes;
        const ReadResult read = readWholeFile(path, maxProfileSize, bytes);
        if (read != ReadResult::Read && read != ReadResult::Missing) return false;
        const HeapString rewritten = rewriteIni(bytes, section, key, value);
        if (rewritten == bytes && read == ReadResult::Read) return true;
        return replaceFile(path, rewritten);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

} // namespace kova::platform
