// kova classes: the running class tree after the kernel has started, with each
// class's methods and their argument counts on request; or one class's own
// methods with their argument counts and break switches, read through the
// class and method browsers.
#include "kova/classloc.h"
#include "kova/kernel.h"
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>

namespace {

void printUsage(FILE* out) {
    std::fprintf(out,
                 "usage: kova classes [--methods] [--load CLASS]...\n"
                 "       kova classes --class CLASS\n\n"
                 "Starts the kernel and prints its class tree, each class indented under its\n"
                 "parent with its instance size and data offset.\n\n"
                 "  --methods      also list each class's methods and class methods with the\n"
                 "                 number of arguments they take\n"
                 "  --load CLASS   register CLASS (loading its class library) before printing\n"
                 "  --class CLASS  register CLASS and list its own instance methods (not its\n"
                 "                 ancestors') with their argument counts and breakpoint\n"
                 "                 switches, as the class and method browsers show them\n");
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

// A property of `className` made as a browser makes it (no owner, id 0).
kvObject makeProperty(kvObject* error, const char* className, const char* name) {
    return kvNewObject(error, className, nullptr, name, 0, 0);
}

// Lists the class's own instance methods as the browsers show them: the
// class browser picks the class, the method browser walks its methods and
// the break switch reads each one's breakpoint flag.
int printThroughBrowsers(const char* className) {
    const kvClass cls = kvRegisterClass(className);
    if (!cls) {
        std::fprintf(stderr, "kova classes: class %s could not be registered\n", className);
        return kova::tools::Failed;
    }
    kvObject error = nullptr;
    kvObject classes = makeProperty(&error, "ClassBrowser", "ClassBrowser");
    kvObject methods = makeProperty(&error, "MethodBrowser", "MethodBrowser");
    kvObject breakSwitch = makeProperty(&error, "MethBreak", "MethodBreak");
    int result = kova::tools::Failed;
    if (classes && methods && breakSwitch) {
        kvSendMeth(&error, classes, "storeData", cls);
        kvSendMeth(&error, methods, "setClass", kvSendMeth(&error, classes, "fetchData"));
        const kvResult count = kvSendMeth(&error, methods, "getCount");
        const kvClass parent = cls->parent;
        std::printf("%s (parent %s): %ld methods of its own\n",
                    reinterpret_cast<const char*>(kvSendMeth(&error, classes, "getCurrentString")),
                    parent ? kvClassName(parent) : "none", static_cast<long>(count));
        for (kvResult i = 0; i < count; ++i) {
            kvSendMeth(&error, methods, "setIndex", i);
            const auto* method =
                reinterpret_cast<const kvMethodRecord*>(kvSendMeth(&error, methods, "getMethod"));
            kvSendMeth(&error, breakSwitch, "setMethod", method);
            const bool onBreak = kvSendMeth(&error, breakSwitch, "fetchData") != 0;
            std::printf(
                "  %-32s %2u argument%s  break %s\n",
                reinterpret_cast<const char*>(kvSendMeth(&error, methods, "getCurrentString")),
                method->argCount, method->argCount == 1 ? " " : "s", onBreak ? "on" : "off");
        }
        result = kova::tools::Success;
    } else {
        std::fprintf(stderr, "kova classes: the browsers could not be made\n");
    }
    for (kvObject made : {breakSwitch, methods, classes})
        if (made) kvDelObject(&error, made);
    while (error)
        kvSendMeth(&error, error, "deleteTopError");
    return result;
}

} // namespace

namespace kova::tools {

int runClasses(int argc, char** argv) {
    if (wantsHelp(argc, argv)) {
        printUsage(stdout);
        return Success;
    }
    bool withMethods = false;
    const char* oneClass = nullptr;
    const char* toLoad[64];
    int loadCount = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--methods")) {
            withMethods = true;
        } else if (!std::strcmp(argv[i], "--load") && i + 1 < argc && loadCount < 64) {
            toLoad[loadCount++] = argv[++i];
        } else if (!std::strcmp(argv[i], "--class") && i + 1 < argc && !oneClass) {
            oneClass = argv[++i];
        } else {
            std::fprintf(stderr, "kova classes: unexpected argument '%s'\n", argv[i]);
            printUsage(stderr);
            return BadUsage;
        }
    }
    kvInitialize();
    if (oneClass) {
        const int browsed = printThroughBrowsers(oneClass);
        kvTerminate();
        return browsed;
    }
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
