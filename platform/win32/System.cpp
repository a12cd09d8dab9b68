// System information and the user-interface defaults on Windows: without a
// host hook, message boxes and help go to the system's own windows.
#include "platform/Platform.hpp"

#include <windows.h>

namespace kova::platform {

// GlobalMemoryStatus reports at most what a 32-bit process can address.
uint64_t availablePhysicalMemory() {
    MEMORYSTATUS status{};
    status.dwLength = sizeof status;
    ::GlobalMemoryStatus(&status);
    return status.dwAvailPhys;
}

SystemTime systemTime() {
    SYSTEMTIME now{};
    ::GetSystemTime(&now);
    return {now.wYear,   now.wMonth,  now.wDay,         now.wHour,
            now.wMinute, now.wSecond, now.wMilliseconds};
}

// The process's pseudo-handle: the same value in every process, which is all
// that comparing markers within one process needs.
uint32_t processMarker() {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(::GetCurrentProcess()));
}

// The current directory, as on POSIX: a drive's root is not writable for an
// ordinary user on current Windows versions.
std::string hierarchyDumpPath() {
    return "classdump.txt";
}

int defaultMessageBox(const char* text, const char* caption, unsigned style) {
    return ::MessageBoxA(::GetActiveWindow(), text ? text : "", caption ? caption : "", style);
}

bool defaultShowHelp(const char* helpFile, unsigned command, uintptr_t data) {
    return ::WinHelpA(::GetActiveWindow(), helpFile, command, data) != FALSE;
}

} // namespace kova::platform
