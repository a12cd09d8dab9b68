// kova classes: the running class tree after the kernel has started, with each
// class's methods and their argument counts on request.
#include "kova/classloc.h"
#include "kova/kernel.h"
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>

namespace {

void printUsage(FILE* out) {
    std::fprintf(out,
                 "usage: kova classes [--methods] [--load CLASS]...\n\n"
                 "Starts the kernel and prints its class tree, each class indented under its\n"
                 "parent with its instance size and data offset.\n\n"
                 "  --methods     also list each class's methods and class methods with the\n"
                 "                number of arguments they take\n"
                 "  --load CLASS  register CLASS (loading its class library) before printing\n");
}

void printMethods(const kvMethodTable* table, const char* kind, int depth) {
    if (!table) return;
    for (uint16_t i = 0; i < table->count; ++i)
        std::printf("%*s  %s %.32s(%u)\n", depth * 2, "", kind, table->records[i].name,
                    table->records[i].argCount);
}

void printTree(kvClass cls, int depth, bool withMethods) {
    std::printf("%*s%s  (instance size %u, data offset %u)\n", depth * 2, "", cls->name,
                cls->instanceSize, cls->dataOffset);
    if (withMethods) {
        printMethods(cls->methodTable, "method", depth);
        printMethods(cls->classMethodTable, "class method", depth);
    }
    for (size_t i = 0; i < kvGetClassCount(); ++i)
        if (kvGetClassAt(i)->parent == cls) printTree(kvGetClassAt(i), depth + 1, withMethods);
}

} // namespace

namespace kova::tools {

int runClasses(int argc, char** argv) {
    if (wantsHelp(argc, argv)) {
        printUsage(stdout);
        return Success;
    }
    bool withMethods = false;
    const char* toLoad[64];
    int loadCount = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--methods")) {
            withMethods = true;
        } else if (!std::strcmp(argv[i], "--load") && i + 1 < argc && loadCount < 64) {
            toLoad[loadCount++] = argv[++i];
        } else {
            std::fprintf(stderr, "kova classes: unexpected argument '%s'\n", argv[i]);
            printUsage(stderr);
            return BadUsage;
        }
    }
    kvInitialize();
    int result = Success;
    for (int i = 0; i < loadCount; ++i) {
        if (!kvRegisterClass(toLoad[i])) {
            std::fprintf(stderr, "kova classes: class %s could not be registered\n", toLoad[i]);
            result = Failed;
        }
    }
    for (size_t i = 0; i < kvGetClassCount(); ++i)
        if (!kvGetClassAt(i)->parent) printTree(kvGetClassAt(i), 0, withMethods);
    kvTerminate();
    return result;
}

} // namespace kova::tools
