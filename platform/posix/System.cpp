// System information and the user-interface defaults on POSIX: without a host
// hook, messages go to the standard error stream and never block.
#include "platform/Platform.hpp"

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace kova::platform {

uint64_t availablePhysicalMemory() {
    const long pages = ::sysconf(_SC_AVPHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages < 0 || pageSize < 0) return 0;
    return static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageSize);
}

SystemTime systemTime() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm utc{};
    ::gmtime_r(&now.tv_sec, &utc);
    return {static_cast<uint16_t>(utc.tm_year + 1900),   static_cast<uint16_t>(utc.tm_mon + 1),
            static_cast<uint16_t>(utc.tm_mday),          static_cast<uint16_t>(utc.tm_hour),
            static_cast<uint16_t>(utc.tm_min),           static_cast<uint16_t>(utc.tm_sec),
            static_cast<uint16_t>(now.tv_nsec / 1000000)};
}

uint32_t processMarker() {
    return static_cast<uint32_t>(::getpid());
}

// There is no drive root to write to: the dump goes to the current directory.
std::string hierarchyDumpPath() {
    return "classdump.txt";
}

int defaultMessageBox(const char* text, const char* caption, unsigned) {
    std::fprintf(stderr, "%s: %s\n", caption ? caption : "", text ? text : "");
    return KV_IDOK;
}

bool defaultShowHelp(const char* helpFile, unsigned command, uintptr_t data) {
    std::fprintf(stderr, "help: no help viewer for %s (command %u, context %lu)\n",
                 helpFile ? helpFile : "", command, static_cast<unsigned long>(data));
    return false;
}

} // namespace kova::platform
