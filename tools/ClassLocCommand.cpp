// kova classloc: looks into and edits class location tables, the kernel's
// built-in one or a file of 34-byte entries, through the kernel's own table
// functions, so that what it reports is what the kernel would do.
#include "kova/classloc.h"
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kova::tools {
namespace {

constexpr const char* usageText =
    "usage: kova classloc <action> [arguments]\n"
    "\n"
    "Class location tables tell the kernel which class library holds a class.\n"
    "Without --file an action works on the kernel's built-in table.\n"
    "\n"
    "actions:\n"
    "  list [--file F]               every entry: index, class, library\n"
    "  find CLASS [--file F]         the library of CLASS (case does not matter)\n"
    "  insert CLASS LIBRARY --file F add CLASS, or give it a new LIBRARY; F is\n"
    "                                created when it does not exist\n"
    "  remove CLASS --file F         remove CLASS; the last entry of a file is kept,\n"
    "                                since an empty file is not a table\n"
    "  save OUT [--file F]           write the table to the file OUT\n"
    "  check F                       whether F is a valid table: its size, entries,\n"
    "                                and rows out of order, repeated or overlong\n"
    "\n"
    "Class names hold at most 20 characters and library names 12; longer names\n"
    "are cut. Exit status: 0 done, 1 failed (not found, unreadable), 2 bad usage.\n";

constexpr Command command{"classloc", usageText};

constexpr size_t classNameLimit = KV_CLASSLOC_CLASS_SIZE - 1;
constexpr size_t libraryNameLimit = KV_CLASSLOC_LIBRARY_SIZE - 1;

// An action's operands and its --file option, as given on the command line.
struct Arguments {
    std::vector<const char*> operands;
    const char* file = nullptr;
};

struct Action {
    const char* name;
    size_t operandCount;
    enum { FileOptional, FileRequired, FileRefused } fileRule;
    int (*run)(const Arguments& arguments);
};

bool readBytes(const char* path, std::vector<char>& bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    bytes.assign(std::istreambuf_iterator<char>(in), {});
    return !in.bad();
}

// Why the kernel refused to load `path`, in words.
std::string refusalReason(const char* path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) return "no such file";
    if (std::filesystem::is_directory(path, error)) return "a directory";
    std::vector<char> bytes;
    if (!readBytes(path, bytes)) return "cannot be read";
    if (bytes.empty()) return "empty";
    if (bytes.size() % KV_CLASSLOC_ENTRY_SIZE != 0)
        return "size " + std::to_string(bytes.size()) + " is not a multiple of " +
               std::to_string(KV_CLASSLOC_ENTRY_SIZE);
    return "out of memory";
}

// Fills the kernel's table from `path`, or from its built-in table when
// `path` is null; says why on the standard error stream when it cannot.
bool loadTable(const char* path) {
    if (!path) {
        if (KovaClassLocationInit4()) return true;
        command.fail("the built-in table could not be loaded");
        return false;
    }
    if (kvTableLoad_CLASSLOCATION(path)) return true;
    command.fail("cannot load " + quoted(path) + ": " + refusalReason(path));
    return false;
}

bool saveTable(const char* path) {
    if (kvTableSave_CLASSLOCATION(path)) return true;
    command.fail("cannot write " + quoted(path));
    return false;
}

void warnIfCut(const char* what, const char* name, size_t limit) {
    if (std::strlen(name) > limit)
        std::fprintf(stderr, "kova classloc: note: %s '%s' is cut to %zu characters\n", what, name,
                     limit);
}

// ---- actions: each runs with the table freed on return ----

int listTable(const Arguments& arguments) {
    if (!loadTable(arguments.file)) return Failed;
    std::printf("%5s  %-20s  %s\n", "index", "class", "library");
    char libraryName[KV_CLASSLOC_LIBRARY_SIZE];
    for (size_t i = 0; i < kvTableGetCount_CLASSLOCATION(); ++i) {
        const char* className = kvTableGetKey_CLASSLOCATION(i);
        kvTableFind_CLASSLOCATION2(className, libraryName, libraryNameLimit);
        std::printf("%5zu  %-20s  %s\n", i, className, libraryName);
    }
    return Success;
}

int findClass(const Arguments& arguments) {
    if (!loadTable(arguments.file)) return Failed;
    const char* libraryName = kvTableFind_CLASSLOCATION(arguments.operands[0]);
    if (!libraryName)
        return command.fail("class " + quoted(arguments.operands[0]) + " is not in the table");
    std::printf("%s\n", libraryName);
    return Success;
}

int insertClass(const Arguments& arguments) {
    const char* className = arguments.operands[0];
    const char* libraryName = arguments.operands[1];
    std::error_code error;
    const bool exists = std::filesystem::exists(arguments.file, error);
    if (exists && !loadTable(arguments.file)) return Failed;
    warnIfCut("class name", className, classNameLimit);
    warnIfCut("library name", libraryName, libraryNameLimit);
    if (!kvTableInsertEntry_CLASSLOCATION(className, libraryName))
        return command.fail("cannot insert " + quoted(className));
    if (!saveTable(arguments.file)) return Failed;
    if (!exists) std::fprintf(stderr, "kova classloc: created '%s'\n", arguments.file);
    return Success;
}

int removeClass(const Arguments& arguments) {
    const char* className = arguments.operands[0];
    if (!loadTable(arguments.file)) return Failed;
    if (!kvTableFind_CLASSLOCATION(className))
        return command.fail("class " + quoted(className) + " is not in the table");
    if (kvTableGetCount_CLASSLOCATION() == 1)
        return command.fail(quoted(className) +
                            " is the last entry; an empty file would not be a table");
    kvTableRemoveEntry_CLASSLOCATION(className);
    return saveTable(arguments.file) ? Success : Failed;
}

int saveCopy(const Arguments& arguments) {
    if (!loadTable(arguments.file)) return Failed;
    return saveTable(arguments.operands[0]) ? Success : Failed;
}

// ---- check: reads the raw entries, so it sees what loading would hide ----

// The text of a field, up to its first terminator or its end.
std::string fieldText(const char* field, size_t size) {
    const std::string_view text(field, size);
    return std::string(text.substr(0, text.find('\0')));
}

std::string foldedName(std::string name) {
    for (char& c : name)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return name.substr(0, classNameLimit);
}

// Prints one line per faulty entry; answers the number of faults.
size_t reportEntryFaults(const std::vector<char>& bytes) {
    size_t faults = 0;
    auto fault = [&faults](size_t index, const std::string& text) {
        std::printf("  entry %zu: %s\n", index, text.c_str());
        ++faults;
    };
    std::map<std::string, size_t> firstIndexOf;
    std::string previousKey;
    std::string previousName;
    for (size_t i = 0; i * KV_CLASSLOC_ENTRY_SIZE < bytes.size(); ++i) {
        kvClassLocation entry;
        std::memcpy(&entry, bytes.data() + i * KV_CLASSLOC_ENTRY_SIZE, sizeof entry);
        const std::string className = fieldText(entry.className, KV_CLASSLOC_CLASS_SIZE);
        const std::string libraryName = fieldText(entry.libraryName, KV_CLASSLOC_LIBRARY_SIZE);
        const std::string key = foldedName(className);
        if (className.size() > classNameLimit) fault(i, "class name has no terminator");
        if (libraryName.size() > libraryNameLimit) fault(i, "library name has no terminator");
        if (libraryName.empty()) fault(i, "empty library name");
        if (className.empty()) {
            fault(i, "empty class name");
            continue;
        }
        const auto [first, isNew] = firstIndexOf.emplace(key, i);
        if (!isNew)
            fault(i, "'" + className + "' repeats entry " + std::to_string(first->second));
        else if (key < previousKey)
            fault(i, "'" + className + "' is out of order: it sorts before '" + previousName + "'");
        previousKey = key;
        previousName = className;
    }
    return faults;
}

int checkFile(const Arguments& arguments) {
    const char* path = arguments.operands[0];
    std::vector<char> bytes;
    std::error_code error;
    if (std::filesystem::is_directory(path, error) || !readBytes(path, bytes))
        return command.fail("cannot read " + quoted(path));
    const size_t size = bytes.size();
    const size_t entries = size / KV_CLASSLOC_ENTRY_SIZE;
    std::printf("%s: %zu bytes, %zu %s\n", path, size, entries, entries == 1 ? "entry" : "entries");
    size_t faults = 0;
    if (size == 0 || size % KV_CLASSLOC_ENTRY_SIZE != 0) {
        std::printf("  %s\n", refusalReason(path).c_str());
        ++faults;
    } else {
        faults = reportEntryFaults(bytes);
        if (!kvTableLoad_CLASSLOCATION(path)) {
            std::printf("  the kernel refuses to load it\n");
            ++faults;
        }
    }
    std::printf("%s: %s\n", path, faults ? "not a valid table" : "valid table");
    return faults ? Failed : Success;
}

constexpr Action actions[] = {
    {"list", 0, Action::FileOptional, listTable},
    {"find", 1, Action::FileOptional, findClass},
    {"insert", 2, Action::FileRequired, insertClass},
    {"remove", 1, Action::FileRequired, removeClass},
    {"save", 1, Action::FileOptional, saveCopy},
    {"check", 1, Action::FileRefused, checkFile},
};

const Action* findAction(const char* name) {
    for (const Action& action : actions)
        if (!std::strcmp(action.name, name)) return &action;
    return nullptr;
}

// Splits the words after the action into operands and --file; false, with a
// message, when an option is unknown or --file lacks its value.
bool parseArguments(int argc, char** argv, Arguments& arguments) {
    for (int i = 2; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--file") {
            if (i + 1 == argc || arguments.file) {
                command.badUsage("--file needs one file name");
                return false;
            }
            arguments.file = argv[++i];
        } else if (word.size() > 1 && word[0] == '-') {
            command.badUsage("unknown option " + quoted(argv[i]));
            return false;
        } else {
            arguments.operands.push_back(argv[i]);
        }
    }
    return true;
}

// Checks the operands and --file against what the action takes.
bool fitsAction(const Action& action, const Arguments& arguments) {
    if (arguments.operands.size() != action.operandCount) {
        command.badUsage("wrong number of arguments for " + quoted(action.name));
        return false;
    }
    if (action.fileRule == Action::FileRequired && !arguments.file) {
        command.badUsage(quoted(action.name) + " needs --file");
        return false;
    }
    if (action.fileRule == Action::FileRefused && arguments.file) {
        command.badUsage(quoted(action.name) + " takes no --file");
        return false;
    }
    return true;
}

} // namespace

int runClassLoc(int argc, char** argv) {
    if (const int answer = command.answerWithoutAction(argc, argv); answer >= 0) return answer;
    const Action* action = findAction(argv[1]);
    if (!action) return command.badUsage("unknown action " + quoted(argv[1]));
    Arguments arguments;
    if (!parseArguments(argc, argv, arguments) || !fitsAction(*action, arguments)) return BadUsage;
    const int result = action->run(arguments);
    kvTableFree_CLASSLOCATION();
    return result;
}

} // namespace kova::tools
