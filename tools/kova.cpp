// The kova command: looks into the running kernel and its file formats.
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>

namespace {

struct Subcommand {
    const char* name;
    const char* summary;
    int (*run)(int argc, char** argv);
};

constexpr Subcommand subcommands[] = {
    {"classes", "the running class tree, with methods on request", kova::tools::runClasses},
    {"classloc", "list, find, edit, load and save class location tables", kova::tools::runClassLoc},
    {"errors", "check error message files, look up kernel messages", kova::tools::runErrors},
    {"image", "show a BMP file as an image; promote, demote, crop, merge", kova::tools::runImage},
    {"shell", "make objects, send them methods, watch and see errors", kova::tools::runShell},
    {"stream", "decode a saved property collection, write a sample", kova::tools::runStream},
    {"tiff", "show a TIFF file's directories and tags, edit them in place", kova::tools::runTiff},
};

void printUsage(FILE* out) {
    std::fprintf(out, "usage: kova <command> [options]\n\ncommands:\n");
    for (const Subcommand& command : subcommands)
        std::fprintf(out, "  %-10s %s\n", command.name, command.summary);
    std::fprintf(out, "\nRun 'kova <command> --help' for a command's options.\n");
}

} // namespace

int main(int argc, char** argv) {
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
