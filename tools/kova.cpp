// The kova command: looks into the running kernel and its file formats.
#include "kova/host.h"
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

struct Subcommand {
    const char* name;
    const char* summary;
    int (*run)(int argc, char** argv);
};

constexpr Subcommand subcommands[] = {
    {"classes", "the running class tree, with methods on request", kova::tools::runClasses},
    {"classloc", "list, find, edit, load and save class location tables", kova::tools::runClassLoc},
    {"demo", "scan, recognise and write pages with the demo components", kova::tools::runDemo},
    {"errors", "check error message files, look up kernel messages", kova::tools::runErrors},
    {"image", "show a BMP file as an image; promote, demote, crop, merge", kova::tools::runImage},
    {"links", "the link registry of a set-up of linked components", kova::tools::runLinks},
    {"match", "the protocol table: import, export, show; make a component", kova::tools::runMatch},
    {"registry", "list, get, set and delete registry keys", kova::tools::runRegistry},
    {"shell", "make objects, send them methods, watch and see errors", kova::tools::runShell},
    {"stream", "decode a saved property collection, write a sample", kova::tools::runStream},
    {"tiff", "show a TIFF file's directories and tags, edit them in place", kova::tools::runTiff},
    {"version", "version-control settings; check a library's versions", kova::tools::runVersion},
};

void printUsage(FILE* out) {
    std::fprintf(out, "usage: kova [--settings FOLDER] <command> [options]\n\ncommands:\n");
    for (const Subcommand& command : subcommands)
        std::fprintf(out, "  %-10s %s\n", command.name, command.summary);
    std::fprintf(out,
                 "\n--settings FOLDER keeps the registry store and KOVA.INI in FOLDER (POSIX)\n"
                 "instead of ~/.kova.\n"
                 "Run 'kova <command> --help' for a command's options.\n");
}

} // namespace

int main(int argc, char** argv) {
    if (argc >= 3 && !std::strcmp(argv[1], "--settings")) {
        const std::string folder = argv[2];
        kvSetRegistryStore((folder + "/registry").c_str());
        kvSetProfileFolder(folder.c_str());
        argc -= 2;
        argv += 2;
    }
    if (argc < 2) {
        printUsage(stderr);
        return kova::tools::BadUsage;
    }
    if (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") ||
        !std::strcmp(argv[1], "help")) {
        printUsage(stdout);
        return kova::tools::Success;
    }
    for (const Subcommand& command : subcommands)
        if (!std::strcmp(argv[1], command.name)) return command.run(argc - 1, argv + 1);
    std::fprintf(stderr, "kova: unknown command '%s'\n", argv[1]);
    printUsage(stderr);
    return kova::tools::BadUsage;
}
