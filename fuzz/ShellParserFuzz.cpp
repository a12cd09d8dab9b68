// The kova shell's statement parser on arbitrary lines: every line parses to a
// statement or a syntax error whose column lies on the line or just after it.
#include "tools/shell/Statement.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    size_t start = 0;
    while (start <= input.size()) {
        size_t end = input.find('\n', start);
        if (end == std::string_view::npos) end = input.size();
        const std::string_view line = input.substr(start, end - start);
        const kova::shell::ParseResult result = kova::shell::parseStatement(line);
        if (const auto* error = std::get_if<kova::shell::SyntaxError>(&result))
            if (error->column < 1 || error->column > line.size() + 1) std::abort();
        start = end + 1;
    }
    return 0;
}
