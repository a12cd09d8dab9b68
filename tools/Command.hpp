// The faces of the kova command: each subcommand is one function in a file of
// its own, run with its own arguments (argv[0] is the subcommand's name).
#pragma once

namespace kova::tools {

// Exit codes of every subcommand.
enum ExitCode { Success = 0, Failed = 1, BadUsage = 2 };

int runClasses(int argc, char** argv);
int runClassLoc(int argc, char** argv);
int runErrors(int argc, char** argv);
int runStream(int argc, char** argv);

// True when argv holds "--help" or "-h".
bool wantsHelp(int argc, char** argv);

} // namespace kova::tools
