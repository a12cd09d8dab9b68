// Dynamic libraries on POSIX. Class libraries are named in tables by their
// 8.3 Windows names; "NAME.DLL" maps to "libname.so" (lower case), looked for
// first beside the kernel library and then on the loader's search path.
#include "platform/Platform.hpp"

#include <cctype>
#include <cerrno>
#include <dlfcn.h>
#include <link.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

long lastSystemError = 0;

bool endsWithDll(const std::string& name) {
    if (name.size() < 4) return false;
    const std::string tail = name.substr(name.size() - 4);
    return tail[0] == '.' && std::tolower(static_cast<unsigned char>(tail[1])) == 'd' &&
           std::tolower(static_cast<unsigned char>(tail[2])) == 'l' &&
           std::tolower(static_cast<unsigned char>(tail[3])) == 'l';
}

// "KOVA32.DLL" -> "libkova32.so"; any other name is used as it stands.
std::string posixLibraryName(const char* name) {
    std::string text(name);
    if (!endsWithDll(text) || text.find('/') != std::string::npos) return text;
    std::string base = text.substr(0, text.size() - 4);
    for (char& c : base)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return "lib" + base + ".so";
}

std::string directoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

bool fileExists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

} // namespace

namespace kova::platform {

kvModule kernelModule() {
    static kvModule self = [] {
        Dl_info info{};
        if (!::dladdr(reinterpret_cast<void*>(&kernelModule), &info) || !info.dli_fname)
            return kvModule{};
        // The kernel is loaded already; this only finds its handle.
        kvModule handle = ::dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
        if (handle) ::dlclose(handle);
        return handle;
    }();
    return self;
}

// The loader's record of a loaded module, or null.
const link_map* linkMapOf(kvModule module) {
    link_map* map = nullptr;
    if (!module || ::dlinfo(module, RTLD_DI_LINKMAP, &map) != 0) return nullptr;
    return map;
}

// The file of the handle itself: a look-up of a symbol through the handle
// would also search the libraries it depends on and could name one of them.
std::string moduleFileName(kvModule module) {
    const link_map* map = linkMapOf(module);
    if (!map || !map->l_name) return {};
    if (map->l_name[0]) return map->l_name;
    // The program itself has no name in its record; its address has one.
    Dl_info info{};
    if (::dladdr(map->l_ld, &info) && info.dli_fname) return info.dli_fname;
    return {};
}

std::string programFileName() {
    // The loader records the program under the name it was started by, which
    // may be relative; the system's link to the running file is absolute.
    std::string path(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
        if (length <= 0) return {};
        if (static_cast<size_t>(length) < path.size()) {
            path.resize(static_cast<size_t>(length));
            return path;
        }
        if (path.size() >= 65536) return {};
        path.resize(path.size() * 2);
    }
}

// The address of `name` defined in `module` itself, or null: the loader's
// look-up through a handle also searches the module's dependencies, which a
// module's own names must never resolve to (a library without a procedure of
// its own would otherwise answer with the kernel's).
void* ownSymbol(kvModule module, const char* name) {
    void* symbol = ::dlsym(module, name);
    if (!symbol) return nullptr;
    Dl_info info{};
    link_map* owner = nullptr;
    if (!::dladdr1(symbol, &info, reinterpret_cast<void**>(&owner), RTLD_DL_LINKMAP))
        return nullptr;
    return owner && owner == linkMapOf(module) ? symbol : nullptr;
}

kvModule loadLibrary(const char* name, long* systemError) {
    if (!name || !*name) {
        lastSystemError = EINVAL;
        if (systemError) *systemError = lastSystemError;
        return nullptr;
    }
    const std::string fileName = posixLibraryName(name);
    std::string candidates[2];
    size_t count = 0;
    if (fileName.find('/') == std::string::npos) {
        const std::string beside = directoryOf(moduleFileName(kernelModule())) + fileName;
        if (beside != fileName) candidates[count++] = beside;
    }
    candidates[count++] = fileName;
    for (size_t i = 0; i < count; ++i) {
        if (i + 1 < count && !fileExists(candidates[i])) continue;
        if (kvModule module = ::dlopen(candidates[i].c_str(), RTLD_NOW | RTLD_LOCAL)) {
            lastSystemError = 0;
            return module;
        }
    }
    lastSystemError = fileExists(candidates[0]) ? ENOEXEC : ENOENT;
    if (systemError) *systemError = lastSystemError;
    return nullptr;
}

kvProc findProcedure(kvModule module, const char* name) {
    if (!module || !name) return nullptr;
    void* symbol = ownSymbol(module, name);
    if (!symbol) {
        lastSystemError = ENOENT;
        return nullptr;
    }
    return reinterpret_cast<kvProc>(symbol);
}

void forgetResourceTable(kvModule module); // Resources.cpp

void freeLibrary(kvModule module) {
    if (!module) return;
    forgetResourceTable(module);
    ::dlclose(module);
}

long lastError() {
    return lastSystemError;
}

void rememberSystemError(long code) {
    lastSystemError = code;
}

} // namespace kova::platform
