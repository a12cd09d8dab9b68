// Version control: the settings under "KOVA\VersionControl", the comparison
// of versions and the check of a library's expected-version list. The
// report's log file and dialog are in VersionReport.cpp.
#include "components/VersionCheck.hpp"
#include "kova/registry.h"
#include "platform/Platform.hpp"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr const char* settingsKey = "KOVA\\VersionControl";
constexpr const char* iniFile = "KOVA.INI";

// The seven settings in the order they are copied: INI section, INI key, and
// the setting's name (its key below the settings key).
struct Setting {
    const char* section;
    const char* key;
    const char* name;
};
constexpr Setting settings[] = {
    {"VersionChecking", "OnStartUp", "VersionChecking\\OnStartUp"},
    {"VersionChecking", "OnFirstUse", "VersionChecking\\OnFirstUse"},
    {"VersionChecking", "OnError", "VersionChecking\\OnError"},
    {"VersionChecking", "OnOccasion", "VersionChecking\\OnOccasion"},
    {"VersionReporting", "VerbosityLevel", "VersionReporting\\VerbosityLevel"},
    {"VersionReporting", "Dialog", "VersionReporting\\Dialog"},
    {"VersionReporting", "LogFile", "VersionReporting\\LogFile"},
};

std::string settingPath(const char* name) {
    return std::string(settingsKey) + "\\" + name;
}

constexpr const char* unparsedText = "<unable to parse expected version info>";
constexpr const char* unloadedText = "<unable to retrieve file version info>";

// String numbers are 16-bit: no entry exists past string 65535, so a count
// beyond that names records that could only keep their default texts.
constexpr int32_t maxEntries = 0xFFFF - KV_VERSION_LIST_ID;

void copyText(char* field, size_t size, std::string_view text) {
    const size_t length = text.size() < size - 1 ? text.size() : size - 1;
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

// Loads the file the record names and compares its version with the expected.
void checkEntry(kvVersionCheck& record) {
    long systemError = 0;
    record.module = kova::platform::loadLibrary(record.fileName, &systemError);
    if (!record.module) return;
    const std::string path = kova::platform::moduleFileName(record.module);
    if (!path.empty()) copyText(record.filePath, sizeof record.filePath, path);
    if (kova::platform::fileVersion(record.module, record.actual))
        record.result = kova::components::compareVersions(record.expected, record.actual);
}

// Checks the expected-version list of `module` and hands the worst result and
// the records to `report` before they are freed; answers the worst result.
template <typename Report> int32_t checkList(kvModule module, Report report) {
    char countText[8];
    if (!kova::platform::loadString(module, KV_VERSION_LIST_ID, countText, sizeof countText))
        return KV_VERSION_NOT_COMPARED;
    int32_t count = static_cast<int32_t>(std::strtol(countText, nullptr, 10));
    if (count < 1) return 0;
    if (count > maxEntries) count = maxEntries;

    auto* records = static_cast<kvVersionCheck*>(
        kova::platform::allocateZeroed(sizeof(kvVersionCheck) * static_cast<size_t>(count)));
    if (!records) return KV_VERSION_NOT_COMPARED;
    for (int32_t i = 0; i < count; ++i) {
        kvVersionCheck& record = records[i];
        record.next = i + 1 < count ? &records[i + 1] : nullptr;
        copyText(record.filePath, sizeof record.filePath, unloadedText);
        copyText(record.expectedText, sizeof record.expectedText, unparsedText);
        record.result = KV_VERSION_NOT_COMPARED;
    }

    int32_t worst = 0;
    char entry[1024];
    for (int32_t i = 0; i < count; ++i) {
        kvVersionCheck& record = records[i];
        const int length = kova::platform::loadString(
            module, static_cast<unsigned>(KV_VERSION_LIST_ID + 1 + i), entry, sizeof entry);
        if (length > 0 && kova::components::parseVersionEntry(
                              std::string_view(entry, static_cast<size_t>(length)), record))
            checkEntry(record);
        // Newer files (negative results) and entries not compared never count.
        if (record.result != KV_VERSION_NOT_COMPARED && record.result > worst)
            worst = record.result;
    }
    report(worst, records);

    for (int32_t i = 0; i < count; ++i)
        if (records[i].module) kova::platform::freeLibrary(records[i].module);
    kova::platform::release(records);
    return worst;
}

} // namespace

extern "C" {

KV_API int32_t kvVersionControlInit(void) {
    if (!kova::platform::registryCreateKey(settingsKey)) return 0;
    for (const Setting& setting : settings) {
        char value[KV_VERSION_SETTING_SIZE];
        kova::platform::profileGetString(setting.section, setting.key, "*", value, sizeof value,
                                         iniFile);
        if (value[0] != '*')
            kova::platform::registrySetValue(settingPath(setting.name).c_str(), value);
    }
    return 1;
}

KV_API int32_t kvVersionControlTerm(void) {
    return kova::platform::registrySetValue(settingPath("VersionChecking\\OnFirstUse").c_str(),
                                            "0");
}

KV_API int32_t kvGetRegistrySetting(const char* name, void* value, int32_t numeric) {
    if (!name || !value) return 0;
    char text[KV_VERSION_SETTING_SIZE];
    if (numeric)
        *static_cast<int32_t*>(value) = 0;
    else
        std::memset(value, 0, KV_VERSION_SETTING_SIZE);
    if (!kova::platform::registryGetValue(settingPath(name).c_str(), text, sizeof text)) return 0;
    if (numeric)
        *static_cast<int32_t*>(value) = static_cast<int32_t>(std::strtol(text, nullptr, 10));
    else
        std::memcpy(value, text, std::strlen(text) + 1);
    return 1;
}

KV_API int32_t kvGetInstanceVersion(kvModule module, uint16_t version[4]) {
    return kova::platform::fileVersion(module, version);
}

KV_API int32_t kvCheckVersionKOVA(const uint16_t expected[4], uint16_t actual[4]) {
    if (!expected || !actual) return KV_VERSION_NOT_COMPARED;
    if (!kova::platform::fileVersion(kova::platform::kernelModule(), actual))
        return KV_VERSION_NOT_COMPARED;
    return kova::components::compareVersions(expected, actual);
}

KV_API int32_t kvIsVersionBad(int32_t level, int32_t result) {
    if (level == 0 || result == KV_VERSION_NOT_COMPARED) return 1;
    if (result == 0) return 0;
    switch (level) {
    case 1:
        return result == -4 || result == -3 || (result >= 2 && result <= 4);
    case 2:
        return (result >= -4 && result <= -2) || (result >= 2 && result <= 4);
    default:
        return 0;
    }
}

KV_API int32_t kvCheckVersionAPI(kvModule module, const char* location, int16_t mode,
                                 int32_t level) {
    return checkList(module, [&](int32_t worst, kvVersionCheck* first) {
        if (kvIsVersionBad(level, worst))
            kova::components::reportVersionCheck(location, mode, level, first);
    });
}

KV_API int32_t kvReportVersionCheck(const char* library, const char* location, int32_t level,
                                    const char* reportPath) {
    if (!library || !reportPath) return KV_VERSION_NOT_COMPARED;
    long systemError = 0;
    kvModule module = kova::platform::loadLibrary(library, &systemError);
    if (!module) return KV_VERSION_NOT_COMPARED;
    const int32_t worst = checkList(module, [&](int32_t, kvVersionCheck* first) {
        if (std::FILE* report = std::fopen(reportPath, "w")) {
            kova::components::writeVersionLog(report, location, -1, level, first);
            std::fclose(report);
        }
    });
    kova::platform::freeLibrary(module);
    return worst;
}

} // extern "C"
