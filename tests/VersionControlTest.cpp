// Version control: comparison, the reporting rule, the settings and their
// copy from "KOVA.INI", and a check of TESTVER.DLL's expected-version list
// with its log file and report dialog.
#include "components/VersionCheck.hpp"
#include "kova/registry.h"
#include "kova/version.h"
#include "tests/KernelFixture.hpp"

#include <fstream>
#include <sstream>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <link.h>
#endif

namespace kova::test {
namespace {

constexpr const char* settings = "KOVA\\VersionControl";

std::string setting(const char* name) {
    char text[KV_VERSION_SETTING_SIZE];
    return kvGetRegistrySetting(name, text, 0) ? text : "<none>";
}

std::string iniPath() {
    char path[1024];
    kvProfilePath("KOVA.INI", path, sizeof path);
    return path;
}

void setSetting(const char* name, const char* value) {
    ASSERT_EQ(kvRegistrySetValue((std::string(settings) + "\\" + name).c_str(), value), 1);
}

#ifndef _WIN32
// The path of `file` in the kernel library's folder, where the kernel itself
// loads class and dialog libraries from. The test opens the library by that
// path too: a bare name would depend on the run path of whoever calls dlopen,
// and under the address sanitizer that is the sanitizer's run-time library
// (it intercepts dlopen), which has none, so the name would not be found.
std::string besideTheKernel(const char* file) {
    link_map* kernel = nullptr;
    if (::dlinfo(kvGetKOVAInstance(), RTLD_DI_LINKMAP, &kernel) != 0 || !kernel->l_name)
        return file;
    const std::string path = kernel->l_name;
    return path.substr(0, path.rfind('/') + 1) + file;
}
#endif

TEST(VersionCompare, ThePartThatDiffersGivesTheResult) {
    const uint16_t expected[4] = {2, 0, 0, 0};
    const uint16_t newer[4] = {2, 1, 0, 0};
    const uint16_t older[4] = {1, 9, 9, 9};
    const uint16_t lastOlder[4] = {2, 0, 0, 0};
    const uint16_t lastNewer[4] = {2, 0, 0, 7};
    EXPECT_EQ(components::compareVersions(expected, newer), -3);
    EXPECT_EQ(components::compareVersions(expected, older), 4);
    EXPECT_EQ(components::compareVersions(expected, lastOlder), 0);
    EXPECT_EQ(components::compareVersions(expected, lastNewer), -1);
    EXPECT_EQ(components::compareVersions(lastNewer, expected), 1);
}

TEST(VersionCompare, WhatIsReportedAtEachLevel) {
    std::string reported[3];
    for (int level = 0; level < 3; ++level)
        for (int result : {-99, -4, -3, -2, -1, 0, 1, 2, 3, 4})
            if (kvIsVersionBad(level, result)) reported[level] += std::to_string(result) + " ";
    EXPECT_EQ(reported[0], "-99 -4 -3 -2 -1 0 1 2 3 4 ");
    EXPECT_EQ(reported[1], "-99 -4 -3 2 3 4 ");
    EXPECT_EQ(reported[2], "-99 -4 -3 -2 2 3 4 ");
    EXPECT_EQ(kvIsVersionBad(7, 4), 0);
    EXPECT_EQ(kvIsVersionBad(7, -99), 1);
}

TEST(VersionCompare, EntriesParseOnlyWithNineNumbers) {
    kvVersionCheck record{};
    EXPECT_TRUE(components::parseVersionEntry("A.DLL,1.2,3.4,5,6,7,8,4294967295", record));
    EXPECT_STREQ(record.fileName, "A.DLL");
    EXPECT_STREQ(record.expectedText, "1.2.3.4");
    EXPECT_EQ(record.reserved[4], 4294967295u);
    for (const char* bad : {"A.DLL", ",1,2,3,4,5,6,7,8,9", "A.DLL,1,2,3,4,5,6,7,8",
                            "A.DLL,1,2,3,4,5,6,7,8,9,10", "A.DLL,65536,0,0,0,0,0,0,0,0",
                            "A.DLL,1;2,3,4,5,6,7,8,9", "A.DLL,1,2,3,4,5,6,7,8,4294967296"}) {
        kvVersionCheck untouched{};
        EXPECT_FALSE(components::parseVersionEntry(bad, untouched)) << bad;
        EXPECT_EQ(untouched.fileName[0], '\0');
    }
}

class VersionControlTest : public KernelTest {
  protected:
    void SetUp() override {
        KernelTest::SetUp();
        logPath = (settingsFolder() / "versions.log").string();
        std::filesystem::remove(logPath);
        kvRegistryDeleteKey(settings);
        ASSERT_EQ(kvVersionControlInit(), 1);
        ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("MatchPM", "TESTVER.DLL"), 1);
        ASSERT_NE(kvRegisterClass("MatchPM"), nullptr);
        module = kvFindClass("MatchPM")->library;
    }
    void TearDown() override {
        kvRegistryDeleteKey(settings);
        KernelTest::TearDown();
    }
    static std::string readAll(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        std::string text{std::istreambuf_iterator<char>(in), {}};
        std::string unix;
        for (char c : text)
            if (c != '\r') unix += c;
        return unix;
    }
    std::string logPath;
    kvModule module = nullptr;
};

TEST_F(VersionControlTest, SettingsReadAsTextOrNumbersAndMissingOnesAsNothing) {
    setSetting("VersionReporting\\VerbosityLevel", "2 levels");
    int32_t number = 77;
    EXPECT_EQ(kvGetRegistrySetting("VersionReporting\\VerbosityLevel", &number, 1), 1);
    EXPECT_EQ(number, 2);
    EXPECT_EQ(setting("VersionReporting\\VerbosityLevel"), "2 levels");
    number = 77;
    EXPECT_EQ(kvGetRegistrySetting("VersionChecking\\OnError", &number, 1), 0);
    EXPECT_EQ(number, 0);
    EXPECT_EQ(kvGetRegistrySetting(nullptr, &number, 1), 0);
    EXPECT_EQ(kvGetRegistrySetting("VersionChecking\\OnError", nullptr, 1), 0);

    EXPECT_EQ(kvVersionControlTerm(), 1);
    EXPECT_EQ(setting("VersionChecking\\OnFirstUse"), "0");
}

TEST_F(VersionControlTest, StartUpCopiesTheIniSettingsExceptThoseBeginningWithAStar) {
    setSetting("VersionChecking\\OnError", "1");
    setSetting("VersionReporting\\LogFile", "old.log");
    const std::string ini = iniPath();
    std::ofstream(ini) << "[VersionChecking]\nOnStartUp=1\nOnError=*keep\nOnOccasion=5\n"
                          "[VersionReporting]\nVerbosityLevel=0\nDialog=\n";
    ASSERT_EQ(kvVersionControlInit(), 1);
    std::filesystem::remove(ini);
    EXPECT_EQ(setting("VersionChecking\\OnStartUp"), "1");
    EXPECT_EQ(setting("VersionChecking\\OnFirstUse"), "<none>");
    EXPECT_EQ(setting("VersionChecking\\OnError"), "1");
    EXPECT_EQ(setting("VersionChecking\\OnOccasion"), "5");
    EXPECT_EQ(setting("VersionReporting\\VerbosityLevel"), "0");
    EXPECT_EQ(setting("VersionReporting\\Dialog"), "");
    EXPECT_EQ(setting("VersionReporting\\LogFile"), "old.log");
}

TEST_F(VersionControlTest, ALibrarysListIsCheckedAndLoggedEntryByEntry) {
    setSetting("VersionReporting\\LogFile", logPath.c_str());
    EXPECT_EQ(kvCheckVersionAPI(module, "MatchPM", KV_VERSION_ON_ERROR, 0), 1)
        << "the newer file (-3) never counts; the older fourth part does";
    const std::string log = readAll(logPath);
    std::istringstream lines(log);
    std::string line;
    std::vector<std::string> rows;
    while (std::getline(lines, line))
        rows.push_back(line);
    ASSERT_EQ(rows.size(), 10u) << log;
    EXPECT_EQ(rows[0], "Version Control - MatchPM - On Error - All Version Info");
    EXPECT_EQ(rows[1], "");
    EXPECT_EQ(rows[2], "File Name                        Expected Version    Actual Version      "
                       "File Path                       ");
    EXPECT_EQ(rows[3], std::string(32, '-') + " " + std::string(19, '-') + " " +
                           std::string(19, '-') + " " + std::string(32, '-'));
    EXPECT_EQ(rows[4].substr(0, 73), "TESTVER.DLL                      2.0.0.0             "
                                     "2.1.0.0             ");
    EXPECT_GT(rows[4].size(), 73u) << "the loaded file's path";
    EXPECT_EQ(rows[5].substr(0, 73), "KOVA32.DLL                       0.1.0.0             "
                                     "0.1.0.0             ");
    EXPECT_EQ(rows[6], "NOSUCHLB.DLL                     1.0.0.0             < not available >   "
                       "<unable to retrieve file version info>");
    EXPECT_EQ(rows[7], "                                 < not available >   < not available >   "
                       "<unable to retrieve file version info>");
    EXPECT_EQ(rows[8].substr(0, 73), "TESTVER.DLL                      2.1.0.1             "
                                     "2.1.0.0             ");
    EXPECT_EQ(rows[9], "");
}

TEST_F(VersionControlTest, TheLevelDecidesWhetherAReportIsWritten) {
    setSetting("VersionReporting\\LogFile", logPath.c_str());
    EXPECT_EQ(kvCheckVersionAPI(module, "x", 0, 2), 1);
    EXPECT_FALSE(std::filesystem::exists(logPath)) << "a fourth part is not worth a warning";
    EXPECT_EQ(kvCheckVersionAPI(module, "x", 77, 0), 1);
    EXPECT_EQ(readAll(logPath).substr(0, 44), "Version Control - x - All Version Info\n\nFile");
    EXPECT_EQ(kvCheckVersionAPI(kvGetKOVAInstance(), "kernel", 0, 0), KV_VERSION_NOT_COMPARED)
        << "the kernel has no list";
    EXPECT_EQ(kvCheckVersionAPI(nullptr, "none", 0, 0), KV_VERSION_NOT_COMPARED);
}

TEST_F(VersionControlTest, ALogFileOfAMillionBytesIsEmptiedFirst) {
    setSetting("VersionReporting\\LogFile", logPath.c_str());
    std::ofstream(logPath, std::ios::binary) << std::string(999999, 'x');
    kvCheckVersionAPI(module, "x", 0, 0);
    EXPECT_EQ(readAll(logPath).substr(0, 999999), std::string(999999, 'x'));
    kvCheckVersionAPI(module, "y", 0, 0);
    EXPECT_EQ(readAll(logPath).substr(0, 22), "Version Control - y - ");
}

TEST_F(VersionControlTest, TheReportDialogIsShownWhenTheSettingIsOne) {
#ifdef _WIN32
    HMODULE dialog = ::LoadLibraryA("RPTDLG32.DLL");
    auto shown = reinterpret_cast<int (*)(int*, const char**)>(
        reinterpret_cast<void*>(::GetProcAddress(dialog, "reportDialogShown")));
#else
    void* dialog = ::dlopen(besideTheKernel("librptdlg32.so").c_str(), RTLD_NOW);
    auto shown =
        reinterpret_cast<int (*)(int*, const char**)>(::dlsym(dialog, "reportDialogShown"));
#endif
    ASSERT_NE(shown, nullptr);
    int records = 0;
    const char* first = nullptr;
    const int before = shown(&records, &first);
    setSetting("VersionReporting\\Dialog", "2");
    kvCheckVersionAPI(module, "x", 0, 0);
    EXPECT_EQ(shown(&records, &first), before);
    setSetting("VersionReporting\\Dialog", "1");
    kvCheckVersionAPI(module, "x", 0, 0);
    EXPECT_EQ(shown(&records, &first), before + 1);
    EXPECT_EQ(records, 5);
    EXPECT_STREQ(first, "TESTVER.DLL");
#ifdef _WIN32
    ::FreeLibrary(dialog);
#else
    ::dlclose(dialog);
#endif
}

TEST_F(VersionControlTest, TheTriggersSendTheComponentItsCheck) {
    kvObject component = make("MatchPM");
    ASSERT_NE(component, nullptr);
    auto check = [&] { return kvSendMeth(&error, component, "getCheck"); };
    components::checkVersionsOnFirstInstance(&error, component);
    components::checkVersionsOnError(&error, component);
    EXPECT_EQ(check(), -1) << "no setting, no check";

    setSetting("VersionChecking\\OnStartUp", "3");
    components::checkVersionsOnFirstInstance(&error, component);
    EXPECT_EQ(check(), 0 * 1000 + 3) << "mode 0; the setting's value passes as the level";
    setSetting("VersionChecking\\OnFirstUse", "1");
    components::checkVersionsOnFirstInstance(&error, component);
    const kvResult firstUse = check();
    EXPECT_GE(firstUse, -32768 * 1000) << "the low 16 bits of the setting name's address";
    EXPECT_LE(firstUse, 32767 * 1000 + 999);
    EXPECT_EQ((firstUse % 1000 + 1000) % 1000, 1);
    setSetting("VersionChecking\\OnError", "2");
    components::checkVersionsOnError(&error, component);
    EXPECT_EQ(check(), 2 * 1000 + 2);
}

TEST(VersionControlStartUp, TheKernelCopiesKovaIniAndResetsFirstUseWhenItStops) {
    char ini[1024];
    kvProfilePath("KOVA.INI", ini, sizeof ini);
    std::ofstream(ini) << "[VersionChecking]\nOnFirstUse=1\n[Protocols]\ntotal=1\n"
                          "Protocol0=StartUp\n[Protocol0]\ndefault=P\ntotal=0\n";
    kvInitialize();
    EXPECT_EQ(setting("VersionChecking\\OnFirstUse"), "1");
    char fallback[32];
    EXPECT_EQ(kvRegistryGetValue("KOVA\\Protocols\\StartUp", fallback, sizeof fallback), 1);
    EXPECT_STREQ(fallback, "P");
    kvTerminate();
    std::filesystem::remove(ini);
    EXPECT_EQ(setting("VersionChecking\\OnFirstUse"), "0");
    kvRegistryDeleteKey("KOVA\\Protocols\\StartUp");
}

TEST_F(VersionControlTest, TheKernelsOwnVersionIsTheProjects) {
    uint16_t version[4] = {};
    ASSERT_EQ(kvGetInstanceVersion(kvGetKOVAInstance(), version), 1);
    const uint16_t expected[4] = {0, 1, 0, 0};
    EXPECT_EQ(kvCheckVersionKOVA(expected, version), 0);
    const uint16_t later[4] = {0, 2, 0, 0};
    EXPECT_EQ(kvCheckVersionKOVA(later, version), 3);
    EXPECT_EQ(kvCheckVersionKOVA(nullptr, version), KV_VERSION_NOT_COMPARED);
    EXPECT_EQ(kvGetInstanceVersion(nullptr, version), 0);
    ASSERT_EQ(kvGetInstanceVersion(module, version), 1);
    EXPECT_EQ(version[1], 1);
}

} // namespace
} // namespace kova::test
