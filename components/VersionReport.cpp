// The report of a version check: the report dialog of "RPTDLG32.DLL" when the
// settings ask for it, then the log file.
#include "components/VersionCheck.hpp"
#include "platform/Platform.hpp"

#include <cstring>

namespace {

// A log file that has reached this size is emptied before the next report.
constexpr long logFileLimit = 1000000;

const char* modeSuffix(int16_t mode) {
    switch (mode) {
    case KV_VERSION_ON_STARTUP:
        return " - On StartUp";
    case KV_VERSION_ON_FIRST_USE:
        return " - On First Use";
    case KV_VERSION_ON_ERROR:
        return " - On Error";
    case KV_VERSION_ON_OCCASION:
        return " - On Occasion";
    default:
        return "";
    }
}

const char* levelSuffix(int32_t level) {
    switch (level) {
    case 0:
        return " - All Version Info";
    case 1:
        return " - Errors Only";
    case 2:
        return " - Errors and Warnings";
    default:
        return "";
    }
}

// "%d.%d.%d.%d", or "< not available >" for a version of four zeros.
void versionText(const uint16_t version[4], char (&text)[32]) {
    if (!version[0] && !version[1] && !version[2] && !version[3])
        std::snprintf(text, sizeof text, "< not available >");
    else
        std::snprintf(text, sizeof text, "%d.%d.%d.%d", version[0], version[1], version[2],
                      version[3]);
}

void showDialog(kvVersionCheck* first) {
    int32_t dialog = 0;
    if (!kvGetRegistrySetting("VersionReporting\\Dialog", &dialog, 1) || dialog != 1) return;
    long systemError = 0;
    kvModule library = kova::platform::loadLibrary("RPTDLG32.DLL", &systemError);
    if (!library) return;
    if (auto show = reinterpret_cast<kvShowVerControlDlgProc>(
            kova::platform::findProcedure(library, "ShowVerControlDlg")))
        show(first);
    kova::platform::freeLibrary(library);
}

void appendToLogFile(const char* location, int16_t mode, int32_t level,
                     const kvVersionCheck* first) {
    char path[KV_VERSION_SETTING_SIZE];
    if (!kvGetRegistrySetting("VersionReporting\\LogFile", path, 0) || !path[0]) return;
    std::FILE* log = std::fopen(path, "a+");
    if (!log) return;
    if (std::fseek(log, 0, SEEK_END) == 0 && std::ftell(log) >= logFileLimit) {
        std::fclose(log);
        log = std::fopen(path, "w");
        if (!log) return;
    }
    kova::components::writeVersionLog(log, location, mode, level, first);
    std::fclose(log);
}

} // namespace

namespace kova::components {

void writeVersionLog(std::FILE* log, const char* location, int16_t mode, int32_t level,
                     const kvVersionCheck* first) {
    static constexpr char dashes[] = "--------------------------------";
    std::fprintf(log, "Version Control - %s%s%s\n\n", location ? location : "", modeSuffix(mode),
                 levelSuffix(level));
    std::fprintf(log, "%-32s %-19s %-19s %-32s\n", "File Name", "Expected Version",
                 "Actual Version", "File Path");
    std::fprintf(log, "%.32s %.19s %.19s %.32s\n", dashes, dashes, dashes, dashes);
    if (!first) std::fprintf(log, "< No files to version check >\n");
    for (const kvVersionCheck* record = first; record; record = record->next) {
        char expected[32];
        char actual[32];
        versionText(record->expected, expected);
        versionText(record->actual, actual);
        std::fprintf(log, "%-32s %-19s %-19s %-32s\n", record->fileName, expected, actual,
                     record->filePath);
    }
    std::fprintf(log, "\n");
}

void reportVersionCheck(const char* location, int16_t mode, int32_t level, kvVersionCheck* first) {
    showDialog(first);
    appendToLogFile(location, mode, level, first);
}

} // namespace kova::components
