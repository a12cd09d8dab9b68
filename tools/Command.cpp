// What every subcommand of the kova command shares (see the header).
#include "tools/Command.hpp"

#include <cstdio>
#include <cstring>

namespace kova::tools {

bool wantsHelp(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) return true;
    return false;
}

// Built by appending: GCC 12 at -O3 misreads a prepend into a temporary
// string as an overlapping copy (-Wrestrict).
std::string quoted(std::string_view text) {
    std::string result = "'";
    result.append(text);
    result += '\'';
    return result;
}

int Command::fail(const std::string& message) const {
    std::fprintf(stderr, "kova %s: %s\n", name, message.c_str());
    return Failed;
}

int Command::badUsage(const std::string& message) const {
    fail(message);
    std::fprintf(stderr, "Run 'kova %s --help' for usage.\n", name);
    return BadUsage;
}

int Command::answerWithoutAction(int argc, char** argv) const {
    if (wantsHelp(argc, argv)) {
        std::fputs(usage, stdout);
        return Success;
    }
    if (argc >= 2) return -1;
    std::fputs(usage, stderr);
    return BadUsage;
}

} // namespace kova::tools
