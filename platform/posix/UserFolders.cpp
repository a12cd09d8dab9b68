// The registry store's file and the profile folder on POSIX (see the header).
// The home folder comes from the password database: the library reads no
// environment variables.
#include "platform/posix/UserFolders.hpp"

#include "kova/host.h"

#include <cerrno>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

std::string registryStoreSetting; // empty: the default
std::string profileFolderSetting; // empty: the default

std::string userKovaFolder() {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
        found->pw_dir && found->pw_dir[0])
        return std::string(found->pw_dir) + "/.kova";
    // A user without a home folder keeps the files in the current folder.
    return ".kova";
}

} // namespace

namespace kova::platform {

std::string registryStorePath() {
    return registryStoreSetting.empty() ? userKovaFolder() + "/registry" : registryStoreSetting;
}

std::string profileFolder() {
    return profileFolderSetting.empty() ? userKovaFolder() : profileFolderSetting;
}

bool createParentFolders(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return true;
    const std::string parent = path.substr(0, slash);
    struct stat info {};
    if (::stat(parent.c_str(), &info) == 0) return S_ISDIR(info.st_mode);
    if (!createParentFolders(parent)) return false;
    return ::mkdir(parent.c_str(), 0700) == 0 || errno == EEXIST;
}

} // namespace kova::platform

extern "C" KV_API void kvSetRegistryStore(const char* path) {
    registryStoreSetting = path ? path : "";
}

extern "C" KV_API void kvSetProfileFolder(const char* folder) {
    profileFolderSetting = folder ? folder : "";
}
