// kova classloc: looks into and edits class location tables, the kernel's
// built-in one or a file of 34-byte entries, through the kernel's own table
// functions, so that what it reports is what the kernel would do.
#include "kova/classloc.h"
#include "tools/Command.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
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

constexpr size_t maxFileSize = size_t{KV_CLASSLOC_MAX_ENTRIES} * KV_CLASSLOC_ENTRY_SIZE;

// Reads the file's bytes, at most one past the most a table file holds, so
// that a device or a pipe that never ends is read only that far.
bool readBytes(const char* path, std::vector<char>& bytes) {
    std::FILE* file = std::fopen(path, "rb");
    if (!file) return false;
    bytes.resize(maxFileSize + 1);
    size_t size = 0;
    while (size < bytes.size()) {
        const size_t arrived = std::fread(bytes.data() + size, 1, bytes.size() - size, file);
        if (arrived == 0) break;
        size += arrived;
    }
    const bool failed = std::ferror(file);
    std::fclose(file);
    bytes.resize(size);
    return !failed;
}

// The size of a regular file, or -1 for anything else (a pipe, a device).
std::intmax_t regularFileSize(const char* path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) return -1;
    const auto size = std::filesystem::file_size(path, error);
    return error ? -1 : static_cast<std::intmax_t>(size);
}

// What is wrong with the size of a table file, or an empty string.
std::string sizeFault(size_t size) {
    if (size == 0) return "empty";
    if (size > maxFileSize)
        return "more than " + std::to_string(maxFileSize) + " bytes, the " +
               std::to_string(KV_CLASSLOC_MAX_ENTRIES) + " entries a table holds at most";
    if (size % KV_CLASSLOC_ENTRY_SIZE != 0)
        return "size " + std::to_string(size) + " is not a multiple of " +
               std::to_string(KV_CLASSLOC_ENTRY_SIZE);
    return {};
}

// Why the kernel refused to load `path`, which had `sizeBefore` bytes when
// the load began (-1 when it is not a regular file), in words.
std::string refusalReason(const char* path, std::intmax_t sizeBefore) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) return "no such file";
    if (std::filesystem::is_directory(path, error)) return "a directory";
    std::vector<char> bytes;
    if (!readBytes(path, bytes)) return "cannot be read";
    const auto sizeNow = static_cast<std::intmax_t>(bytes.size());
    if (sizeBefore >= 0 && sizeNow != sizeBefore)
        return "it changed while it was read (" + std::to_string(sizeBefore) + " bytes, then " +
               std::to_string(sizeNow) + ")";
    const std::string fault = sizeFault(bytes.size());
    return fault.empty() ? "out of memory" : fault;
}

// Fills the kernel's table from `path`, or from its built-in table when
// `path` is null; says why on the standard error stream when it cannot.
bool loadTable(const char* path) {
    if (!path) {
        if (KovaClassLocationInit4()) return true;
        command.fail("the built-in table could not be loaded");
        return false;
    }
    const std::intmax_t sizeBefore = regularFileSize(path);
    if (kvTableLoad_CLASSLOCATION(path)) return true;
    command.fail("cannot load " + quoted(path) + ": " + refusalReason(path, sizeBefore));
    return false;
}

// A class name as the table orders it: letters folded, cut to its field.
std::string foldedName(std::string name) {
    for (char& c : name)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return name.substr(0, classNameLimit);
}

// Where the loaded table is out of order: the first entry that does not sort
// after the one before it, or 0 when the table is sorted. The kernel finds
// classes by halving, so in such a table look-ups can miss classes.
size_t firstEntryOutOfOrder() {
    for (size_t i = 1; i < kvTableGetCount_CLASSLOCATION(); ++i)
        if (foldedName(kvTableGetKey_CLASSLOCATION(i)) <=
            foldedName(kvTableGetKey_CLASSLOCATION(i - 1)))
            return i;
    return 0;
}

std::string disorderText(size_t index) {
    return "the table is not sorted: entry " + std::to_string(index) + " " +
           quoted(kvTableGetKey_CLASSLOCATION(index)) + " does not sort after entry " +
           std::to_string(index - 1) + " " + quoted(kvTableGetKey_CLASSLOCATION(index - 1)) +
           ", so the kernel's look-ups can miss classes";
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

// The rows as they lie, with a note when they are out of order.
int listTable(const Arguments& arguments) {
    if (!loadTable(arguments.file)) return Failed;
    std::printf("%5s  %-20s  %s\n", "index", "class", "library");
    for (size_t i = 0; i < kvTableGetCount_CLASSLOCATION(); ++i)
        std::printf("%5zu  %-20s  %s\n", i, kvTableGetKey_CLASSLOCATION(i),
                    kvTableGetLibrary_CLASSLOCATION(i));
    if (const size_t index = firstEntryOutOfOrder()) {
        std::fflush(stdout); // the note follows the rows
        std::fprintf(stderr, "kova classloc: note: %s\n", disorderText(index).c_str());
    }
    return Success;
}

// The library the kernel's look-up finds. In a table out of order a class the
// look-up misses may still be there: both are said.
int findClass(const Arguments& arguments) {
    if (!loadTable(arguments.file)) return Failed;
    const char* className = arguments.operands[0];
    if (const char* libraryName = kvTableFind_CLASSLOCATION(className)) {
        std::printf("%s\n", libraryName);
        return Success;
    }
    const size_t disorder = firstEntryOutOfOrder();
    if (!disorder) return command.fail("class " + quoted(className) + " is not in the table");
    for (size_t i = 0; i < kvTableGetCount_CLASSLOCATION(); ++i)
        if (foldedName(kvTableGetKey_CLASSLOCATION(i)) == foldedName(className))
            return command.fail("class " + quoted(className) + " is entry " + std::to_string(i) +
                                ", but the kernel's look-up misses it: " + disorderText(disorder));
    return command.fail("class " + quoted(className) + " is not in the table; " +
                        disorderText(disorder));
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
    std::printf("%s: %s%zu bytes, %zu %s\n", path, size > maxFileSize ? "more than " : "",
                std::min(size, maxFileSize), entries, entries == 1 ? "entry" : "entries");
    size_t faults = 0;
    if (const std::string fault = sizeFault(size); !fault.empty()) {
        std::printf("  %s\n", fault.c_str());
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
