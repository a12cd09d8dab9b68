// kova match: the protocol table that Match reads (registry key
// "KOVA\Protocols"), filled from and written to INI files in the exchange
// format, shown as a tree, and used to make a component.
#include "kova/classloc.h"
#include "kova/host.h"
#include "kova/match.h"
#include "kova/plr.h"
#include "kova/registry.h"
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

namespace kova::tools {
namespace {

constexpr const char* usageText =
    "usage: kova match <action> [arguments]\n"
    "\n"
    "The protocol table: for each protocol (a kind of component) its default\n"
    "personality, and for each personality the technology class it makes.\n"
    "\n"
    "actions:\n"
    "  import FILE            copy the table of the INI file FILE into the registry\n"
    "  export FILE            write the registry's table into the INI file FILE\n"
    "  show [FILE]            the table of FILE, or of the registry, as a tree\n"
    "  make PROTOCOL [PERSONALITY] [--classloc FILE]\n"
    "                         start the kernel, make the component's personality\n"
    "                         module, name it PROTOCOL.1, activate it and report\n"
    "                         the personality and technology classes made and the\n"
    "                         services registered;\n"
    "                         --classloc names a class location file to use\n"
    "                         instead of the built-in table\n"
    "\n"
    "INI format: [Protocols] total=N, Protocol0=NAME...; one section per protocol\n"
    "([Protocol0]...) with default=, total=, Personality0=NAME... and NAME=TECHNOLOGY.\n"
    "Names hold at most 31 characters. Exit status: 0 done, 1 failed, 2 bad usage.\n";

constexpr Command command{"match", usageText};

using Name = char[KV_MATCH_NAME_SIZE];

void showRegistry() {
    std::printf("KOVA\\Protocols\n");
    Name protocol;
    for (unsigned i = 0; kvRegistryEnumKey("KOVA\\Protocols", i, protocol, sizeof protocol); ++i) {
        const std::string key = std::string("KOVA\\Protocols\\") + protocol;
        Name fallback;
        kvRegistryGetValue(key.c_str(), fallback, sizeof fallback);
        std::printf("  %s (default %s)\n", protocol, fallback[0] ? fallback : "<none>");
        Name personality;
        for (unsigned j = 0; kvRegistryEnumKey(key.c_str(), j, personality, sizeof personality);
             ++j) {
            Name technology;
            kvRegistryGetValue((key + "\\" + personality).c_str(), technology, sizeof technology);
            std::printf("    %s -> %s\n", personality, technology);
        }
    }
}

void showFile(const char* file) {
    std::printf("%s\n", file);
    const unsigned total = kvProfileGetInt("Protocols", "total", 0, file);
    for (unsigned i = 0; i < total; ++i) {
        const std::string section = "Protocol" + std::to_string(i);
        Name protocol, fallback;
        kvProfileGetString("Protocols", section.c_str(), "", protocol, sizeof protocol, file);
        kvProfileGetString(section.c_str(), "default", "", fallback, sizeof fallback, file);
        std::printf("  %s (default %s)\n", protocol[0] ? protocol : "<unnamed>",
                    fallback[0] ? fallback : "<none>");
        const unsigned count = kvProfileGetInt(section.c_str(), "total", 0, file);
        for (unsigned j = 0; j < count; ++j) {
            Name personality, technology;
            kvProfileGetString(section.c_str(), ("Personality" + std::to_string(j)).c_str(), "",
                               personality, sizeof personality, file);
            kvProfileGetString(section.c_str(), personality, "", technology, sizeof technology,
                               file);
            std::printf("    %s -> %s\n", personality, technology);
        }
    }
}

// Every provider in the link registry: in a kernel started for one component,
// the services it registered.
void printServices() {
    const int16_t services = PLRGetServiceCount();
    std::printf("services:%s\n", services > 0 ? "" : " none");
    for (int16_t i = 0; i < services; ++i) {
        const char* service = PLRGetServiceName(i);
        for (int16_t j = 0; j < PLRGetProviderCount(service); ++j) {
            PLRProviderInfo info{};
            if (PLRGetProviderInfo(service, j, &info) != 0) continue;
            std::printf("  %s: %s (%s)\n", service, info.fqn ? info.fqn : "",
                        info.provider ? info.provider->cls->name : "no object");
        }
    }
}

// MatchTerm warns that it rewrites the file; the person who asked for the
// export knows.
int quietWarning(const char*, const char*, unsigned) {
    return KV_IDOK;
}

int make(const char* protocol, const char* personality, const char* classLocations) {
    kvInitialize();
    if (classLocations && !kvTableLoad_CLASSLOCATION(classLocations)) {
        kvTerminate();
        return command.fail("cannot load the class location file " + tools::quoted(classLocations));
    }
    kvObject error = nullptr;
    kvObject made = MatchMake(&error, protocol, personality);
    int result = Success;
    if (!made) {
        result =
            command.fail("no component for protocol " + tools::quoted(protocol) +
                         (personality ? " and personality " + tools::quoted(personality) : ""));
    } else {
        std::printf("personality: %s\n", made->cls->name);
        if (kvSendMeth(nullptr, made, "respondsTo", "activate")) {
            // A host names each component it makes; without a name a
            // component offers nothing through the registry.
            const std::string fqn = std::string(protocol) + ".1";
            kvSendMeth(&error, made, "storeFQN", fqn.c_str());
            kvSendMeth(&error, made, "activate");
            const auto technology = reinterpret_cast<kvObject>(kvSendMeth(&error, made, "getTM"));
            std::printf("technology: %s\n", technology ? technology->cls->name : "<none made>");
            printServices();
        } else {
            std::printf("technology: not made (%s has no \"activate\")\n", made->cls->name);
        }
        kvDelObject(&error, made);
    }
    if (error) {
        std::fprintf(stderr, "kova match: %s\n",
                     reinterpret_cast<const char*>(kvSendMeth(nullptr, error, "getMessage")));
        result = Failed;
    }
    kvTerminate();
    return result;
}

} // namespace

int runMatch(int argc, char** argv) {
    if (const int answer = command.answerWithoutAction(argc, argv); answer >= 0) return answer;
    const std::string action = argv[1];
    if (action == "import" && argc == 3) {
        if (!std::filesystem::exists(argv[2]))
            return command.fail(tools::quoted(argv[2]) + " not found");
        if (!MatchInit(argv[2])) return command.fail("the registry table could not be made");
        showRegistry();
        return Success;
    }
    if (action == "export" && argc == 3) {
        if (!kvRegistryKeyExists("KOVA\\Protocols"))
            return command.fail("the registry has no protocol table");
        const kvMessageBoxHook old = kvSetMessageBoxHook(quietWarning);
        MatchTerm(argv[2]);
        kvSetMessageBoxHook(old);
        return Success;
    }
    if (action == "show" && (argc == 2 || argc == 3)) {
        if (argc == 3) {
            if (!std::filesystem::exists(argv[2]))
                return command.fail(tools::quoted(argv[2]) + " not found");
            showFile(argv[2]);
        } else {
            showRegistry();
        }
        return Success;
    }
    if (action == "make") {
        const char* classLocations = nullptr;
        if (argc >= 5 && !std::strcmp(argv[argc - 2], "--classloc")) {
            classLocations = argv[argc - 1];
            argc -= 2;
        }
        if (argc == 3 || argc == 4)
            return make(argv[2], argc == 4 ? argv[3] : nullptr, classLocations);
    }
    return command.badUsage("unknown action or wrong arguments: " + tools::quoted(action));
}

} // namespace kova::tools
