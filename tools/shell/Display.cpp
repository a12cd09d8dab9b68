// Showing values and error stacks (see the header).
#include "tools/shell/Display.hpp"

#include <cinttypes>
#include <cstring>

namespace kova::shell {
namespace {

constexpr size_t longestShownText = 400;

std::string address(kvResult value) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%" PRIxPTR, static_cast<uintptr_t>(value));
    return text;
}

// Asks an error for one of its fields; a failing query is not the user's
// error, so whatever it raises is dropped.
kvResult askError(kvObject error, const char* method) {
    kvObject querySlot = nullptr;
    const kvResult answer = kvSendMeth(&querySlot, error, method);
    deleteErrorStack(&querySlot);
    return answer;
}

const char* textOrNothing(kvResult value) {
    const char* text = reinterpret_cast<const char*>(value);
    return text ? text : "";
}

} // namespace

std::string quotedText(const char* text) {
    std::string shown = "\"";
    size_t i = 0;
    for (; text[i] && i < longestShownText; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            shown += '\\';
            shown += static_cast<char>(c);
        } else if (c == '\n') {
            shown += "\\n";
        } else if (c == '\t') {
            shown += "\\t";
        } else if (c < 0x20 || c == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02X", c);
            shown += escape;
        } else {
            shown += static_cast<char>(c);
        }
    }
    shown += '"';
    if (text[i]) shown += "...";
    return shown;
}

std::string shownValue(kvResult value, ResultKind kind) {
    if (kind == ResultKind::Integer) return std::to_string(static_cast<long long>(value));
    if (!value) return kind == ResultKind::Text ? "0 (no text)" : "0 (no object)";
    if (kind == ResultKind::Text)
        return address(value) + " " + quotedText(reinterpret_cast<const char*>(value));
    const auto object = reinterpret_cast<kvObject>(value);
    const char* className = kvClassName(object->cls);
    return address(value) + " (" + (className ? className : "no class") + ")";
}

int printErrorStack(FILE* out, kvObject newest, kvObject stop) {
    int printed = 0;
    for (kvObject error = newest; error && error != stop;
         error = reinterpret_cast<kvObject>(askError(error, "getNextESObj"))) {
        const long code = static_cast<long>(askError(error, "getCode"));
        const char* source = textOrNothing(askError(error, "getSource"));
        const char* message = textOrNothing(askError(error, "getMessage"));
        const auto helpContext = static_cast<unsigned>(askError(error, "getHelpFileContextID"));
        std::fprintf(out, "error %ld (%s from %s): %s [help context %u]\n", code,
                     kvClassName(error->cls), source, message, helpContext);
        ++printed;
    }
    return printed;
}

void deleteErrorStack(kvObject* slot) {
    while (*slot) {
        const kvObject top = *slot;
        kvSendMeth(slot, top, "deleteTopError");
        // A stack that does not shrink would loop for ever: drop the rest.
        if (*slot == top) *slot = nullptr;
    }
}

} // namespace kova::shell
