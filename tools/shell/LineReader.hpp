// Where the shell's lines come from: plainly from a file or a pipe, or with
// line editing, history and completion from a terminal.
#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace kova::shell {

class Session;

class LineReader {
  public:
    virtual ~LineReader() = default;
    // The next line without its line end, or nothing at the end of input.
    virtual std::optional<std::string> readLine() = 0;
    // True when lines come from a person at a terminal.
    virtual bool interactive() const = 0;
};

// Lines of `in` as they are. A line longer than `longestLine` is cut there
// (the rest is skipped), so that no input makes the shell hold it all.
std::unique_ptr<LineReader> plainLineReader(FILE* in);
constexpr size_t longestLine = 64 * 1024;

// Line editing on the standard input when it is a terminal and the build has
// an editing library; null otherwise. Completion asks `session` for names.
std::unique_ptr<LineReader> terminalLineReader(const Session& session);

} // namespace kova::shell
