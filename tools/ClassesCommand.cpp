// kova classes: the running class tree after the kernel has started, with each
// class's methods and their argument counts on request; or one class's own
// methods with their argument counts and break switches, read through the
// class and method browsers; with --all, the tree after every class the class
// location table names has been registered.
#include "kova/classloc.h"
#include "kova/host.h"
#include "kova/kernel.h"
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

void printUsage(FILE* out) {
    std::fprintf(out,
                 "usage: kova classes [--methods] [--all] [--load CLASS]...\n"
                 "       kova classes --class CLASS\n\n"
                 "Starts the kernel and prints its class tree, each class indented under its\n"
                 "parent with its instance size and data offset.\n\n"
                 "  --methods      also list each class's methods and class methods with the\n"
                 "                 number of arguments they take\n"
                 "  --load CLASS   register CLASS (loading its class library) before printing\n"
                 "  --all          register every class the class location table names, then\n"
                 "                 list the classes that could not be loaded, with the reason\n"
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

// What the kernel last showed in a message box: why a class was not loaded.
std::string lastKernelMessage;

int captureMessageBox(const char* text, const char*, unsigned) {
    lastKernelMessage = text ? text : "";
    while (!lastKernelMessage.empty() && lastKernelMessage.back() == '\n')
        lastKernelMessage.pop_back();
    return 1;
}

// Classes that could not be registered, grouped under their reason in the
// order the reasons first came up.
using Refusals = std::vector<std::pair<std::string, std::vector<std::string>>>;

void noteRefusal(Refusals& refusals, const std::string& reason, const char* className) {
    for (auto& [known, classes] : refusals) {
        if (known != reason) continue;
        classes.push_back(className);
        return;
    }
    refusals.push_back({reason, {className}});
}

// Registers every class of the class location table; the kernel's message
// boxes are taken as the reasons of those that fail instead of being shown.
Refusals registerEveryLocatedClass() {
    Refusals refusals;
    const kvMessageBoxHook previous = kvSetMessageBoxHook(captureMessageBox);
    for (size_t i = 0; i < kvTableGetCount_CLASSLOCATION(); ++i) {
        const std::string className = kvTableGetKey_CLASSLOCATION(i);
        lastKernelMessage.clear();
        if (kvRegisterClass(className.c_str())) continue;
        noteRefusal(refusals,
                    lastKernelMessage.empty() ? "its library did not register it"
                                              : lastKernelMessage,
                    className.c_str());
    }
    kvSetMessageBoxHook(previous);
    return refusals;
}

void printRefusals(const Refusals& refusals) {
    size_t count = 0;
    for (const auto& [reason, classes] : refusals)
        count += classes.size();
    std::printf("\nnot loaded: %zu %s\n", count, count == 1 ? "class" : "classes");
    for (const auto& [reason, classes] : refusals) {
        std::printf("  %s\n   ", reason.c_str());
        size_t column = 3;
        for (const std::string& name : classes) {
            if (column + name.size() + 1 > 78) {
                std::printf("\n   ");
                column = 3;
            }
            std::printf(" %s", name.c_str());
            column += name.size() + 1;
        }
        std::printf("\n");
    }
}

} // namespace

namespace kova::tools {

int runClasses(int argc, char** argv) {
    if (wantsHelp(argc, argv)) {
        printUsage(stdout);
        return Success;
    }
    bool withMethods = false;
    bool all = false;
    const char* oneClass = nullptr;
    const char* toLoad[64];
    int loadCount = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--methods")) {
            withMethods = true;
        } else if (!std::strcmp(argv[i], "--all")) {
            all = true;
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
    const Refusals refusals = all ? registerEveryLocatedClass() : Refusals{};
    for (size_t i = 0; i < kvGetClassCount(); ++i)
        if (!kvGetClassAt(i)->parent) printTree(kvGetClassAt(i), 0, withMethods);
    if (!refusals.empty()) printRefusals(refusals);
    kvTerminate();
    return result;
}

} // namespace kova::tools
