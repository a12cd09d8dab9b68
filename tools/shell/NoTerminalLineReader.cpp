// Builds without a line editing library read every input plainly.
#include "tools/shell/LineReader.hpp"

namespace kova::shell {

std::unique_ptr<LineReader> terminalLineReader(const Session&) {
    return nullptr;
}

} // namespace kova::shell
