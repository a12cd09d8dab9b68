// The faces of the kova command: each subcommand is one function in a file of
// its own, run with its own arguments (argv[0] is the subcommand's name).
#pragma once

#include <string>
#include <string_view>

namespace kova::tools {

// Exit codes of every subcommand.
enum ExitCode { Success = 0, Failed = 1, BadUsage = 2 };

int runClassLoc(int argc, char** argv);
int runClasses(int argc, char** argv);
int runDemo(int argc, char** argv);
int runErrors(int argc, char** argv);
int runImage(int argc, char** argv);
int runLinks(int argc, char** argv);
int runMatch(int argc, char** argv);
int runRegistry(int argc, char** argv);
int runShell(int argc, char** argv);
int runStream(int argc, char** argv);
int runTiff(int argc, char** argv);
int runVersion(int argc, char** argv);

// True when argv holds "--help" or "-h".
bool wantsHelp(int argc, char** argv);

// `text` between single quotes, as names and words are shown in messages.
std::string quoted(std::string_view text);

// How a subcommand speaks to its user, so that every one reports alike: its
// complaints go to the standard error stream as "kova NAME: ...".
struct Command {
    const char* name;  // the subcommand, as typed after "kova"
    const char* usage; // what --help prints

    // Prints `message`; answers Failed.
    int fail(const std::string& message) const;
    // Prints `message` and where the usage is to be found; answers BadUsage.
    int badUsage(const std::string& message) const;
    // For a subcommand that takes an action word: with --help the usage goes
    // to the standard output (Success), without an action to the standard
    // error stream (BadUsage). Answers -1 when there is an action to run.
    int answerWithoutAction(int argc, char** argv) const;
};

} // namespace kova::tools
