// Completion candidates (see the header).
#include "tools/shell/Completion.hpp"

#include "tools/shell/Session.hpp"
#include "tools/shell/Statement.hpp"

#include <algorithm>

namespace kova::shell {
namespace {

// Events the kernel's classes fire, offered after "watch VAR".
constexpr std::string_view knownEvents[] = {"OnFetch",          "OnStore",     "OnTerm",
                                            "OnWillChangeName", "OnWillStore", "OnTableChange"};

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
            ++i;
        const size_t start = i;
        while (i < text.size() && text[i] != ' ' && text[i] != '\t')
            ++i;
        if (i > start) words.emplace_back(text.substr(start, i - start));
    }
    return words;
}

bool isOneOf(const std::string& word, std::initializer_list<std::string_view> list) {
    return std::find(list.begin(), list.end(), word) != list.end();
}

} // namespace

std::vector<std::string> completionsFor(const Session& session, std::string_view before,
                                        std::string_view word) {
    std::vector<std::string> words = wordsOf(before);
    // "x = ..." completes as what follows the '='.
    if (words.size() >= 2 && words[1] == "=") words.erase(words.begin(), words.begin() + 2);

    std::vector<std::string> pool;
    const auto add = [&pool](const std::vector<std::string>& names) {
        pool.insert(pool.end(), names.begin(), names.end());
    };
    if (words.empty()) {
        for (std::string_view statement : statementWords())
            pool.emplace_back(statement);
        add(session.variableNames());
        add(session.classNames());
    } else if (words.size() == 1 && isOneOf(words[0], {"new", "load", "methods"})) {
        add(session.classNames());
    } else if (words.size() == 1 && isOneOf(words[0], {"del", "watch", "save", "read"})) {
        add(session.variableNames());
    } else if (words.size() == 2 && words[0] == "watch") {
        for (std::string_view event : knownEvents)
            pool.emplace_back(event);
    } else if (words.size() == 1 && words[0].ends_with('!')) {
        add(session.methodNames(std::string_view(words[0]).substr(0, words[0].size() - 1), true));
    } else if (words.size() == 2 && words[1] == "!") {
        add(session.methodNames(words[0], true));
    } else if (words.size() == 1) {
        add(session.methodNames(words[0], false));
    } else {
        add(session.variableNames());
    }

    std::vector<std::string> candidates;
    for (std::string& name : pool)
        if (std::string_view(name).starts_with(word)) candidates.push_back(std::move(name));
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
    return candidates;
}

} // namespace kova::shell
