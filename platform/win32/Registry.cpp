// The system registry on Windows: the real one, under HKEY_CLASSES_ROOT. Only
// default values are used. Values and names longer than the caller's buffer
// are cut, as on POSIX, rather than refused.
#include "platform/Platform.hpp"

#include <cstring>
#include <string>
#include <windows.h>

namespace {

// An open key, closed when it goes.
class Key {
  public:
    Key() = default;
    ~Key() {
        if (handle_) ::RegCloseKey(handle_);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    bool open(const char* path, REGSAM access) {
        return ::RegOpenKeyExA(HKEY_CLASSES_ROOT, path, 0, access, &handle_) == ERROR_SUCCESS;
    }
    bool create(const char* path) {
        return ::RegCreateKeyExA(HKEY_CLASSES_ROOT, path, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                 KEY_ALL_ACCESS, nullptr, &handle_, nullptr) == ERROR_SUCCESS;
    }
    HKEY get() const { return handle_; }

  private:
    HKEY handle_ = nullptr;
};

void copyCut(const std::string& text, char* buffer, size_t size) {
    const size_t length = std::strlen(text.c_str());
    const size_t kept = length < size - 1 ? length : size - 1;
    std::memcpy(buffer, text.data(), kept);
    buffer[kept] = '\0';
}

} // namespace

namespace kova::platform {

bool registryCreateKey(const char* path) {
    if (!path) return false;
    Key key;
    return key.create(path);
}

bool registrySetValue(const char* path, const char* value) {
    if (!path || !*path || !value) return false;
    Key key;
    if (!key.create(path)) return false;
    return ::RegSetValueExA(key.get(), nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                            static_cast<DWORD>(std::strlen(value) + 1)) == ERROR_SUCCESS;
}

bool registryGetValue(const char* path, char* buffer, size_t size) {
    if (!buffer || size == 0) return false;
    buffer[0] = '\0';
    if (!path) return false;
    Key key;
    if (!key.open(path, KEY_QUERY_VALUE)) return false;
    DWORD type = 0;
    DWORD bytes = 0;
    if (::RegQueryValueExA(key.get(), nullptr, nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ))
        return false;
    std::string value(bytes + 1, '\0');
    if (::RegQueryValueExA(key.get(), nullptr, nullptr, &type,
                           reinterpret_cast<BYTE*>(value.data()), &bytes) != ERROR_SUCCESS)
        return false;
    copyCut(value, buffer, size);
    return true;
}

bool registryEnumKey(const char* path, unsigned index, char* buffer, size_t size) {
    if (!buffer || size == 0) return false;
    buffer[0] = '\0';
    if (!path) return false;
    Key key;
    if (!key.open(path, KEY_ENUMERATE_SUB_KEYS)) return false;
    std::string name(256, '\0'); // a key name holds at most 255 characters
    DWORD length = static_cast<DWORD>(name.size());
    if (::RegEnumKeyExA(key.get(), index, name.data(), &length, nullptr, nullptr, nullptr,
                        nullptr) != ERROR_SUCCESS)
        return false;
    copyCut(name, buffer, size);
    return true;
}

bool registryKeyExists(const char* path) {
    if (!path) return false;
    Key key;
    return key.open(path, KEY_READ);
}

bool registryDeleteKey(const char* path) {
    if (!path || !*path) return false;
    // Given a subkey, RegDeleteTreeA deletes that key with everything below it.
    return ::RegDeleteTreeA(HKEY_CLASSES_ROOT, path) == ERROR_SUCCESS;
}

std::string registryLocation() {
    return "HKEY_CLASSES_ROOT";
}

} // namespace kova::platform

// The registry store and the profile folder are POSIX stand-ins: Windows has
// the real registry and the Windows directory.
extern "C" KV_API void kvSetRegistryStore(const char*) {}
extern "C" KV_API void kvSetProfileFolder(const char*) {}
