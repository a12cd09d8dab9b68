// Reading and rewriting INI text (see the header).
#include "platform/posix/IniText.hpp"

#include <cstring>

namespace kova::platform {
namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool sameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

// One line of the text: where it starts and ends (without its line end) and
// where the next begins.
struct Line {
    size_t begin = 0;
    size_t end = 0;
    size_t next = 0;
    enum Kind { Section, Entry, Other } kind = Other;
    std::string_view name;  // the section's or the entry's name, trimmed
    std::string_view value; // the entry's value, trimmed
};

Line lineAt(std::string_view text, size_t at) {
    Line line;
    line.begin = at;
    const size_t newline = text.find('\n', at);
    line.next = newline == std::string_view::npos ? text.size() : newline + 1;
    line.end = newline == std::string_view::npos ? text.size() : newline;
    if (line.end > at && text[line.end - 1] == '\r') --line.end;
    const std::string_view content = trim(text.substr(at, line.end - at));
    if (content.empty() || content.front() == ';') return line;
    if (content.front() == '[') {
        const size_t close = content.find(']');
        line.kind = Line::Section;
        line.name =
            trim(content.substr(1, close == std::string_view::npos ? content.npos : close - 1));
        return line;
    }
    const size_t equals = content.find('=');
    if (equals == std::string_view::npos) return line;
    line.kind = Line::Entry;
    line.name = trim(content.substr(0, equals));
    line.value = trim(content.substr(equals + 1));
    return line;
}

// Where a section and an entry in it were found.
struct Place {
    bool sectionFound = false;
    Line header;               // the section's header line
    size_t sectionEnd = 0;     // where the next section begins (or the text ends)
    size_t afterLastEntry = 0; // after the section's last non-blank line
    bool entryFound = false;
    Line entry;
};

Place locate(std::string_view text, std::string_view section, std::string_view key) {
    Place place;
    size_t at = 0;
    while (at < text.size()) {
        const Line line = lineAt(text, at);
        at = line.next;
        if (!place.sectionFound) {
            if (line.kind == Line::Section && sameName(line.name, section)) {
                place.sectionFound = true;
                place.header = line;
                place.afterLastEntry = line.next;
                place.sectionEnd = text.size();
            }
            continue;
        }
        if (line.kind == Line::Section) {
            place.sectionEnd = line.begin;
            break;
        }
        if (!trim(text.substr(line.begin, line.end - line.begin)).empty())
            place.afterLastEntry = line.next;
        if (!place.entryFound && line.kind == Line::Entry && sameName(line.name, key)) {
            place.entryFound = true;
            place.entry = line;
        }
    }
    return place;
}

std::string_view lineEndOf(std::string_view text) {
    const size_t newline = text.find('\n');
    if (newline != std::string_view::npos && (newline == 0 || text[newline - 1] != '\r'))
        return "\n";
    return "\r\n";
}

// Whether the last line of `text` (which ends with a line end) holds nothing
// but blanks: a new section is set apart from what goes before it.
bool lastLineIsBlank(std::string_view text) {
    text.remove_suffix(1);
    const size_t start = text.rfind('\n');
    return trim(text.substr(start == std::string_view::npos ? 0 : start + 1)).empty();
}

void append(HeapString& out, std::string_view piece) {
    out.append(piece.data(), piece.size());
}

} // namespace

bool findIniValue(std::string_view text, std::string_view section, std::string_view key,
                  std::string_view& value) {
    const Place place = locate(text, trim(section), trim(key));
    if (!place.entryFound) return false;
    value = place.entry.value;
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
        value.back() == value.front())
        value = value.substr(1, value.size() - 2);
    return true;
}

HeapString rewriteIni(std::string_view text, std::string_view section, const char* key,
                      const char* value) {
    section = trim(section);
    const std::string_view keyName = key ? trim(key) : std::string_view();
    const Place place = locate(text, section, keyName);
    const std::string_view eol = lineEndOf(text);
    HeapString out;
    if (!key) { // remove the section
        if (!place.sectionFound) return HeapString(text.data(), text.size());
        append(out, text.substr(0, place.header.begin));
        append(out, text.substr(place.sectionEnd));
        return out;
    }
    if (!value) { // remove the entry
        if (!place.entryFound) return HeapString(text.data(), text.size());
        append(out, text.substr(0, place.entry.begin));
        append(out, text.substr(place.entry.next));
        return out;
    }
    if (place.entryFound) { // a new value in the entry's own line
        append(out, text.substr(0, place.entry.begin));
        append(out, place.entry.name);
        out += '=';
        append(out, value);
        append(out, text.substr(place.entry.end));
        return out;
    }
    size_t insertAt = place.sectionFound ? place.afterLastEntry : text.size();
    append(out, text.substr(0, insertAt));
    // The line before the insertion may be the text's last, without its end.
    if (!out.empty() && out.back() != '\n') append(out, eol);
    if (!place.sectionFound) {
        if (!out.empty() && !lastLineIsBlank(out)) append(out, eol);
        out += '[';
        append(out, section);
        out += ']';
        append(out, eol);
    }
    append(out, keyName);
    out += '=';
    append(out, value);
    append(out, eol);
    append(out, text.substr(insertAt));
    return out;
}

} // namespace kova::platform
