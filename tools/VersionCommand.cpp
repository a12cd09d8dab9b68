// kova version: the version-control settings and where they come from, and
// the check of one library's expected versions as the log file shows it.
#include "kova/registry.h"
#include "kova/version.h"
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

namespace kova::tools {
namespace {

constexpr const char* usageText =
    "usage: kova version <action> [arguments]\n"
    "\n"
    "actions:\n"
    "  settings          the version-control settings in the registry (under\n"
    "                    KOVA\\VersionControl) and what KOVA.INI says of each: a\n"
    "                    value there is copied at each kernel start, one that\n"
    "                    begins with * (or none) leaves the registry's\n"
    "  check LIBRARY [--level N]\n"
    "                    loads LIBRARY (NAME.DLL as a class location table names\n"
    "                    it, or a path), compares the files its expected-version\n"
    "                    list names with the files found and prints the report as\n"
    "                    the log file holds it; the level (0 all, 1 errors only,\n"
    "                    2 errors and warnings) defaults to the setting\n"
    "\n"
    "Exit status: 0 done, 1 failed (check: the result must be reported at the\n"
    "level, or the list cannot be read), 2 bad usage.\n";

constexpr Command command{"version", usageText};

struct Setting {
    const char* section;
    const char* key;
};
constexpr Setting settings[] = {
    {"VersionChecking", "OnStartUp"},       {"VersionChecking", "OnFirstUse"},
    {"VersionChecking", "OnError"},         {"VersionChecking", "OnOccasion"},
    {"VersionReporting", "VerbosityLevel"}, {"VersionReporting", "Dialog"},
    {"VersionReporting", "LogFile"},
};

int showSettings() {
    char location[1024];
    char ini[1024];
    kvRegistryLocation(location, sizeof location);
    kvProfilePath("KOVA.INI", ini, sizeof ini);
    std::printf("registry: %s, key KOVA\\VersionControl\n", location);
    std::printf("INI file: %s%s\n\n", ini,
                std::filesystem::exists(ini) ? "" : " (not there: nothing is copied)");
    std::printf("%-33s %-20s %s\n", "Setting", "Value", "KOVA.INI");
    for (const Setting& setting : settings) {
        const std::string name = std::string(setting.section) + "\\" + setting.key;
        char value[KV_VERSION_SETTING_SIZE];
        const bool set = kvGetRegistrySetting(name.c_str(), value, 0);
        char copied[KV_VERSION_SETTING_SIZE];
        kvProfileGetString(setting.section, setting.key, "*", copied, sizeof copied, "KOVA.INI");
        const std::string source =
            copied[0] == '*' ? "(leaves it)" : "copies \"" + std::string(copied) + "\"";
        std::printf("%-33s %-20s %s\n", name.c_str(),
                    set ? ("\"" + std::string(value) + "\"").c_str() : "<not set>", source.c_str());
    }
    return Success;
}

int check(const char* library, const char* levelText) {
    int32_t level = 0;
    if (levelText) {
        char* end = nullptr;
        level = static_cast<int32_t>(std::strtol(levelText, &end, 10));
        if (!*levelText || *end) return command.badUsage("--level wants a number");
    } else {
        kvGetRegistrySetting("VersionReporting\\VerbosityLevel", &level, 1);
    }
    const std::string report =
        (std::filesystem::temp_directory_path() / "kova-version-check.txt").string();
    std::filesystem::remove(report);
    const int32_t worst = kvReportVersionCheck(library, library, level, report.c_str());
    if (worst == KV_VERSION_NOT_COMPARED && !std::filesystem::exists(report))
        return command.fail(tools::quoted(library) +
                            " could not be loaded or has no expected-version list");
    std::ifstream in(report);
    std::cout << in.rdbuf();
    in.close();
    std::filesystem::remove(report);
    std::printf("worst result: %d\n", worst);
    return kvIsVersionBad(level, worst) ? Failed : Success;
}

} // namespace

int runVersion(int argc, char** argv) {
    if (const int answer = command.answerWithoutAction(argc, argv); answer >= 0) return answer;
    const std::string action = argv[1];
    if (action == "settings" && argc == 2) return showSettings();
    if (action == "check" && (argc == 3 || (argc == 5 && !std::strcmp(argv[3], "--level"))))
        return check(argv[2], argc == 5 ? argv[4] : nullptr);
    return command.badUsage("unknown action or wrong arguments: " + tools::quoted(action));
}

} // namespace kova::tools
