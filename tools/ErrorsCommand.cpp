// kova errors: checks error message files with the rules the error registry
// applies when it reads them, and shows the kernel's own message table (its
// string resources 3426 to 3525, compiled from the one list the kernel's
// resources are built from).
#include "errors/ErrorLines.hpp"
#include "errors/KernelMessageList.hpp"
#include "tools/Command.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace kova::tools {
namespace {

using kova::errors::ErrorLine;
using kova::errors::LineVerdict;

constexpr const char* usageText =
    "usage: kova errors <action> [arguments]\n"
    "\n"
    "actions:\n"
    "  check FILE      read FILE as an error message file, as the error registry\n"
    "                  does, and report every line it would skip, by line number\n"
    "  lookup NUMBER   the kernel's message NUMBER: number, help context, text\n"
    "  list            the kernel's whole message table, one message a line\n"
    "\n"
    "An error message file holds lines such as\n"
    "  3427 \"An unimplemented method %s was sent to class %s\" 4002\n"
    "(error number, text between double quotes, help context); a line is at most\n"
    "510 characters, and texts longer than 255 characters are cut. Blank lines are\n"
    "skipped without complaint.\n"
    "\n"
    "Exit status: 0 done, 1 failed (malformed lines, unreadable file, no such\n"
    "message), 2 bad usage.\n";

constexpr Command command{"errors", usageText};

// ---- check ----

// What a check found, for its summary.
struct CheckTally {
    size_t lines = 0;
    size_t messages = 0;
    size_t blank = 0;
    size_t malformed = 0;
};

// Reports what the registry will do with one line that it does not take as it
// stands: skip it (counted as malformed) or keep a cut or shadowed message.
// `firstLineOf` gives, by error number + 32768, the line of its first message.
void reportLine(const char* path, const ErrorLine& line, std::vector<size_t>& firstLineOf,
                CheckTally& tally) {
    ++tally.lines;
    if (line.verdict == LineVerdict::Blank) {
        ++tally.blank;
        return;
    }
    if (line.verdict != LineVerdict::WellFormed) {
        ++tally.malformed;
        std::printf("%s:%zu: %s\n", path, line.lineNumber, describeVerdict(line.verdict));
        return;
    }
    if (++tally.messages == kova::errors::maxMessages + 1)
        std::printf("%s:%zu: warning: beyond the %zu messages a registration holds; this line and "
                    "those after it are ignored\n",
                    path, line.lineNumber, kova::errors::maxMessages);
    if (line.text.size() >= kova::errors::messageTextSize)
        std::printf("%s:%zu: warning: message text of %zu characters is cut to %zu\n", path,
                    line.lineNumber, line.text.size(), kova::errors::messageTextSize - 1);
    size_t& first = firstLineOf[static_cast<size_t>(line.number + 32768)];
    if (first)
        std::printf("%s:%zu: warning: error number %d repeats line %zu, whose text is used\n", path,
                    line.lineNumber, line.number, first);
    else
        first = line.lineNumber;
}

int checkFile(const char* path) {
    // Opened as the registry opens it, so line endings read the same.
    std::FILE* file = std::fopen(path, "r");
    if (!file) return command.fail("cannot open " + quoted(path) + ": " + std::strerror(errno));
    std::vector<size_t> firstLineOf(65536, 0);
    CheckTally tally;
    bool tooLong = false;
    kova::errors::forEachLine(kova::errors::FileBytes(file, &tooLong), [&](const ErrorLine& line) {
        reportLine(path, line, firstLineOf, tally);
        return true;
    });
    const bool unreadable = std::ferror(file);
    std::fclose(file);
    if (unreadable) return command.fail("cannot read " + quoted(path));
    if (tooLong)
        return command.fail(quoted(path) + " goes on past " +
                            std::to_string(kova::errors::maxFileSize) +
                            " bytes, more than an error message file holds (65535 lines of 512 "
                            "bytes); reading stopped there");
    std::printf("%s: %zu lines, %zu messages, %zu malformed, %zu blank\n", path, tally.lines,
                tally.messages, tally.malformed, tally.blank);
    return tally.malformed ? Failed : Success;
}

// ---- the kernel's message table ----

using kova::errors::KernelMessage;
using kova::errors::kernelMessages;

// A kernel message split as an error object splits it: the digits after the
// last blank are the help context, and when they make a non-zero number the
// text ends at that blank.
struct SplitMessage {
    std::string_view text;
    unsigned long helpContext;
};

SplitMessage splitHelpContext(std::string_view text) {
    const size_t blank = text.rfind(' ');
    if (blank == std::string_view::npos) return {text, 0};
    const std::string tail(text.substr(blank + 1));
    const unsigned long helpContext = std::strtoul(tail.c_str(), nullptr, 10);
    if (helpContext == 0) return {text, 0};
    return {text.substr(0, blank), helpContext};
}

void printMessage(const KernelMessage& message) {
    const SplitMessage split = splitHelpContext(message.text);
    std::printf("%d\t%lu\t%.*s\n", message.number, split.helpContext,
                static_cast<int>(split.text.size()), split.text.data());
}

// Reads a whole decimal number; false for anything else.
bool parseNumber(const char* word, long& value) {
    if (!*word) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtol(word, &end, 10);
    return *end == '\0' && errno == 0;
}

int lookupMessage(const char* word) {
    long number = 0;
    if (!parseNumber(word, number)) return command.badUsage(quoted(word) + " is not a number");
    for (const KernelMessage& message : kernelMessages) {
        if (message.number != number) continue;
        printMessage(message);
        return Success;
    }
    return command.fail("the kernel has no message " + std::to_string(number));
}

int listMessages() {
    std::printf("number\thelp\ttext\n");
    for (const KernelMessage& message : kernelMessages)
        printMessage(message);
    return Success;
}

} // namespace

int runErrors(int argc, char** argv) {
    if (const int answer = command.answerWithoutAction(argc, argv); answer >= 0) return answer;
    const std::string_view action = argv[1];
    const int operands = argc - 2;
    if (action == "check") {
        if (operands != 1) return command.badUsage("'check' takes one file name");
        return checkFile(argv[2]);
    }
    if (action == "lookup") {
        if (operands != 1) return command.badUsage("'lookup' takes one message number");
        return lookupMessage(argv[2]);
    }
    if (action == "list") {
        if (operands != 0) return command.badUsage("'list' takes no arguments");
        return listMessages();
    }
    return command.badUsage("unknown action " + quoted(action));
}

} // namespace kova::tools
