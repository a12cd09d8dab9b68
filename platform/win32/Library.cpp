// Dynamic libraries on Windows. A table name is the library's file name, looked
// for first beside the kernel library and then on the system's search path, as
// on POSIX. The file system matches names without regard to case.
#include "platform/Platform.hpp"

#include <cstring>
#include <windows.h>

namespace {

// The code of the platform's last failing call, kept apart from GetLastError,
// which any later system call may overwrite before "errorSystem" reads it.
long lastSystemError = 0;

long recordFailure() {
    lastSystemError = static_cast<long>(::GetLastError());
    return lastSystemError;
}

bool hasDirectory(const char* name) {
    return std::strpbrk(name, "\\/:") != nullptr;
}

std::string directoryOf(const std::string& path) {
    const auto separator = path.find_last_of("\\/");
    return separator == std::string::npos ? std::string() : path.substr(0, separator + 1);
}

bool fileExists(const std::string& path) {
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// A library that cannot be loaded must not stop the process with a system
// message box (a missing dependency, a damaged file): the caller reports it.
HMODULE loadQuietly(const char* path, DWORD flags) {
    DWORD oldMode = 0;
    const bool quiet =
        ::SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &oldMode) != FALSE;
    HMODULE module = ::LoadLibraryExA(path, nullptr, flags);
    const DWORD error = ::GetLastError();
    if (quiet) ::SetThreadErrorMode(oldMode, nullptr);
    ::SetLastError(error);
    return module;
}

} // namespace

namespace kova::platform {

kvModule kernelModule() {
    static const kvModule self = [] {
        HMODULE module = nullptr;
        ::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                 GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                             reinterpret_cast<LPCSTR>(&kernelModule), &module);
        return static_cast<kvModule>(module);
    }();
    return self;
}

std::string moduleFileName(kvModule module) {
    if (!module) return {};
    std::string path(MAX_PATH, '\0');
    for (;;) {
        const DWORD length =
            ::GetModuleFileNameA(static_cast<HMODULE>(module), path.data(), path.size());
        if (length == 0) return {};
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        // Truncated: the name is longer than the buffer.
        path.resize(path.size() * 2);
    }
}

std::string programFileName() {
    return moduleFileName(static_cast<kvModule>(::GetModuleHandleA(nullptr)));
}

kvModule loadLibrary(const char* name, long* systemError) {
    if (!name || !*name) {
        ::SetLastError(ERROR_INVALID_PARAMETER);
        const long error = recordFailure();
        if (systemError) *systemError = error;
        return nullptr;
    }
    const std::string kernelDirectory = directoryOf(moduleFileName(kernelModule()));
    if (!hasDirectory(name) && !kernelDirectory.empty()) {
        const std::string beside = kernelDirectory + name;
        // The altered search path, which wants a full path, lets the library's
        // own dependencies be found beside it too.
        if (fileExists(beside))
            if (HMODULE module = loadQuietly(beside.c_str(), LOAD_WITH_ALTERED_SEARCH_PATH))
                return module;
    }
    if (HMODULE module = loadQuietly(name, 0)) return module;
    const long error = recordFailure();
    if (systemError) *systemError = error;
    return nullptr;
}

kvProc findProcedure(kvModule module, const char* name) {
    if (!module || !name) return nullptr;
    FARPROC procedure = ::GetProcAddress(static_cast<HMODULE>(module), name);
    if (!procedure) {
        recordFailure();
        return nullptr;
    }
    return reinterpret_cast<kvProc>(procedure);
}

void freeLibrary(kvModule module) {
    if (module) ::FreeLibrary(static_cast<HMODULE>(module));
}

long lastError() {
    return lastSystemError;
}

void rememberSystemError(long code) {
    lastSystemError = code;
}

} // namespace kova::platform
