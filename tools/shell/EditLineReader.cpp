// Lines from a terminal through the editing library: a prompt, line editing,
// the session's history, and completion of the names the session knows.
#include "tools/shell/Completion.hpp"
#include "tools/shell/LineReader.hpp"

#include <cstdlib>
#include <cstring>
#include <editline/readline.h>
#include <unistd.h>

namespace kova::shell {
namespace {

// The editing library calls back through plain functions: the session and
// the candidates of the completion under way are kept here.
const Session* completingSession = nullptr;
std::vector<std::string> candidates;

char* nextCandidate(const char*, int state) {
    static size_t index;
    if (state == 0) index = 0;
    if (index >= candidates.size()) return nullptr;
    return strdup(candidates[index++].c_str());
}

char** complete(const char* word, int start, int) {
    rl_attempted_completion_over = 1; // never fall back to file names
    if (!completingSession) return nullptr;
    candidates = completionsFor(*completingSession,
                                std::string_view(rl_line_buffer, static_cast<size_t>(start)),
                                word ? word : "");
    return rl_completion_matches(word ? word : "", nextCandidate);
}

class EditLineReader final : public LineReader {
  public:
    explicit EditLineReader(const Session& session) {
        completingSession = &session;
        rl_readline_name = "kova";
        rl_attempted_completion_function = complete;
        rl_basic_word_break_characters = " \t\"=";
        using_history();
    }
    ~EditLineReader() override {
        completingSession = nullptr;
        rl_attempted_completion_function = nullptr;
        clear_history();
    }

    std::optional<std::string> readLine() override {
        char* raw = readline("kova> ");
        if (!raw) return std::nullopt;
        std::string line(raw, strnlen(raw, longestLine));
        std::free(raw);
        if (line.find_first_not_of(" \t") != std::string::npos) add_history(line.c_str());
        return line;
    }
    bool interactive() const override { return true; }
};

} // namespace

std::unique_ptr<LineReader> terminalLineReader(const Session& session) {
    if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO)) return nullptr;
    return std::make_unique<EditLineReader>(session);
}

} // namespace kova::shell
