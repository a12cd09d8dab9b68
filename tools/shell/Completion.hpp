// What a word being typed can become, from the words before it: statement
// words, class names, the methods of a variable's object or of a class,
// variable names and event names. Kept apart from the terminal code.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kova::shell {

class Session;

// The candidates that start with `word`, sorted, for a line whose text before
// the word is `before`.
std::vector<std::string> completionsFor(const Session& session, std::string_view before,
                                        std::string_view word);

} // namespace kova::shell
