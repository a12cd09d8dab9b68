// kova shell: a workspace on the running kernel. Makes objects, sends them
// methods by name, watches their notifications and shows the error stacks of
// failed sends; reads statements from a terminal (with line editing), a pipe
// or a script file. The statements themselves are carried out by
// kova::shell::Session; this file owns the options, the input and the exit
// code.
#include "kova/classloc.h"
#include "kova/kernel.h"
#include "kova/match.h"
#include "tools/Command.hpp"
#include "tools/shell/LineReader.hpp"
#include "tools/shell/Session.hpp"

#include <cstdio>
#include <cstring>
#include <memory>

namespace kova::tools {
namespace {

constexpr const char* usageText =
    "usage: kova shell [--classloc FILE] [--ini FILE] [--keep-going] [--echo] [SCRIPT]\n"
    "\n"
    "Starts the kernel and reads statements: from SCRIPT, else from the standard\n"
    "input (with line editing, history and completion on a terminal). Type 'help'\n"
    "in the shell for the statements, for example:\n"
    "\n"
    "  p = new IntProp 5 0 \"Width\" 1 1\n"
    "  watch p OnStore\n"
    "  p storeData 7\n"
    "  p fetchData\n"
    "\n"
    "--classloc FILE  use this class location file instead of the built-in table\n"
    "--ini FILE       import the protocol table of this INI file (for 'match')\n"
    "--keep-going     in a script, go on after a statement that failed\n"
    "--echo           print each statement read from a script before its result\n"
    "\n"
    "A statement fails when it has a syntax error or an unknown name, when a send\n"
    "leaves errors in the error slot (they are printed, newest first), or when the\n"
    "kernel shows a message. A script stops at the first failure unless\n"
    "--keep-going is given; a terminal session always goes on.\n"
    "\n"
    "Exit status: 0 every statement succeeded, 1 one failed (or the script or the\n"
    "class location file could not be read), 2 bad usage.\n";

constexpr Command command{"shell", usageText};

struct Options {
    const char* classLocationFile = nullptr;
    const char* iniFile = nullptr;
    const char* script = nullptr;
    bool keepGoing = false;
    bool echo = false;
};

// Reads the options; answers -1 to go on, else the exit code.
int readOptions(int argc, char** argv, Options& options) {
    if (wantsHelp(argc, argv)) {
        std::fputs(usageText, stdout);
        return Success;
    }
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        if (!std::strcmp(argument, "--keep-going")) {
            options.keepGoing = true;
        } else if (!std::strcmp(argument, "--echo")) {
            options.echo = true;
        } else if (!std::strcmp(argument, "--classloc")) {
            if (i + 1 >= argc) return command.badUsage("--classloc needs a file name");
            options.classLocationFile = argv[++i];
        } else if (!std::strcmp(argument, "--ini")) {
            if (i + 1 >= argc) return command.badUsage("--ini needs a file name");
            options.iniFile = argv[++i];
        } else if (argument[0] == '-' && argument[1]) {
            return command.badUsage("unknown option " + quoted(argument));
        } else if (options.script) {
            return command.badUsage("only one script can be run");
        } else {
            options.script = argument;
        }
    }
    return -1;
}

// MatchInit reads a missing file as an empty one; the shell says so instead.
bool importIni(const char* fileName) {
    FILE* file = std::fopen(fileName, "r");
    if (!file) return false;
    std::fclose(file);
    return MatchInit(fileName) == 1;
}

// Runs every line; answers whether all of them succeeded.
bool runLines(shell::Session& session, shell::LineReader& reader, const Options& options) {
    bool allSucceeded = true;
    while (!session.quitRequested()) {
        const auto line = reader.readLine();
        if (!line) break;
        if (options.echo && !reader.interactive()) std::printf("> %s\n", line->c_str());
        const bool succeeded = session.runLine(*line);
        std::fflush(stdout);
        if (succeeded) continue;
        allSucceeded = false;
        if (!reader.interactive() && !options.keepGoing) break;
    }
    return allSucceeded;
}

} // namespace

int runShell(int argc, char** argv) {
    Options options;
    if (const int answer = readOptions(argc, argv, options); answer >= 0) return answer;

    FILE* script = stdin;
    if (options.script && std::strcmp(options.script, "-") != 0) {
        script = std::fopen(options.script, "r");
        if (!script) return command.fail("cannot read the script " + quoted(options.script));
    }
    kvInitialize();
    int result = Success;
    if (options.classLocationFile && !kvTableLoad_CLASSLOCATION(options.classLocationFile)) {
        result = command.fail("cannot load the class location file " +
                              quoted(options.classLocationFile));
    } else if (options.iniFile && !importIni(options.iniFile)) {
        result = command.fail("cannot import the INI file " + quoted(options.iniFile));
    } else {
        shell::Session session(stdout);
        std::unique_ptr<shell::LineReader> reader;
        if (script == stdin) reader = shell::terminalLineReader(session);
        if (!reader) reader = shell::plainLineReader(script);
        if (!runLines(session, *reader, options)) result = Failed;
    }
    kvTerminate();
    if (script != stdin) std::fclose(script);
    return result;
}

} // namespace kova::tools
