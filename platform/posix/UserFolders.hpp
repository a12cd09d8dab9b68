// Where the POSIX stand-ins for Windows places live: the registry store file
// and the folder of bare INI file names. The host sets them (kova/host.h);
// both default to the ".kova" folder in the user's home folder.
#pragma once

#include <string>

namespace kova::platform {

std::string registryStorePath();
std::string profileFolder();
// Creates the folders above `path` that are missing; false when one cannot be.
bool createParentFolders(const std::string& path);

} // namespace kova::platform
