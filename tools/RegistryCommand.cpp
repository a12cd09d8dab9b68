// kova registry: looks into and edits the system registry as the kernel sees
// it (the store file on POSIX, HKEY_CLASSES_ROOT on Windows), for people
// without a registry editor.
#include "kova/host.h"
#include "kova/registry.h"
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace kova::tools {
namespace {

constexpr const char* usageText =
    "usage: kova registry [--store FILE] <action> [arguments]\n"
    "\n"
    "The system registry as the kernel reads it: keys below HKEY_CLASSES_ROOT,\n"
    "named with \\ between names (KOVA\\Protocols), each with subkeys and a\n"
    "default value. On POSIX it is a store file (default ~/.kova/registry).\n"
    "\n"
    "actions:\n"
    "  list [KEY]        the tree below KEY (the whole registry without KEY),\n"
    "                    each key with its default value\n"
    "  get KEY           the default value of KEY\n"
    "  set KEY VALUE     sets the default value, creating KEY\n"
    "  delete KEY        deletes KEY with everything below it\n"
    "\n"
    "  --store FILE      use the store FILE instead (POSIX)\n"
    "\n"
    "Exit status: 0 done, 1 failed (no such key or value, not written), 2 bad usage.\n";

constexpr Command command{"registry", usageText};

void printTree(const std::string& path, int depth) {
    char name[256];
    for (unsigned i = 0; kvRegistryEnumKey(path.c_str(), i, name, sizeof name); ++i) {
        const std::string child = path.empty() ? name : path + "\\" + name;
        char value[4096];
        if (kvRegistryGetValue(child.c_str(), value, sizeof value))
            std::printf("%*s%s = \"%s\"\n", depth * 2, "", name, value);
        else
            std::printf("%*s%s\n", depth * 2, "", name);
        printTree(child, depth + 1);
    }
}

} // namespace

int runRegistry(int argc, char** argv) {
    std::vector<const char*> words;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--store")) {
            if (i + 1 >= argc) return command.badUsage("--store needs a file");
            kvSetRegistryStore(argv[++i]);
        } else if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(usageText, stdout);
            return Success;
        } else {
            words.push_back(argv[i]);
        }
    }
    if (words.empty()) {
        std::fputs(usageText, stderr);
        return BadUsage;
    }
    const std::string action = words[0];
    const size_t operands = words.size() - 1;
    if (action == "list" && operands <= 1) {
        const std::string key = operands ? words[1] : "";
        if (!key.empty()) {
            if (!kvRegistryKeyExists(key.c_str()))
                return command.fail(tools::quoted(key) + " does not exist");
            std::printf("%s\n", key.c_str());
            printTree(key, 1);
        } else {
            char location[1024];
            kvRegistryLocation(location, sizeof location);
            std::printf("%s\n", location);
            printTree("", 1);
        }
        return Success;
    }
    if (action == "get" && operands == 1) {
        char value[4096];
        if (!kvRegistryGetValue(words[1], value, sizeof value))
            return command.fail(tools::quoted(words[1]) + " has no value (or does not exist)");
        std::printf("%s\n", value);
        return Success;
    }
    if (action == "set" && operands == 2) {
        if (!kvRegistrySetValue(words[1], words[2]))
            return command.fail("could not set " + tools::quoted(words[1]));
        return Success;
    }
    if (action == "delete" && operands == 1) {
        if (!kvRegistryDeleteKey(words[1]))
            return command.fail(tools::quoted(words[1]) + " not deleted");
        return Success;
    }
    return command.badUsage("unknown action or wrong number of arguments: " +
                            tools::quoted(action));
}

} // namespace kova::tools
