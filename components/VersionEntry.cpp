// Reading an expected-version entry and comparing versions (see
// VersionCheck.hpp): plain text and numbers, no system services.
#include "components/VersionCheck.hpp"

#include <cstring>

namespace {

void copyText(char* field, size_t size, std::string_view text) {
    const size_t length = text.size() < size - 1 ? text.size() : size - 1;
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

// Reads decimal digits at `at` into `value`, at most `limit`.
bool readNumber(std::string_view text, size_t& at, uint32_t limit, uint32_t& value) {
    while (at < text.size() && (text[at] == ' ' || text[at] == '\t'))
        ++at;
    const size_t start = at;
    uint64_t number = 0;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
        number = number * 10 + static_cast<uint64_t>(text[at] - '0');
        if (number > limit) return false;
        ++at;
    }
    value = static_cast<uint32_t>(number);
    return at > start;
}

} // namespace

namespace kova::components {

bool parseVersionEntry(std::string_view entry, kvVersionCheck& record) {
    const size_t comma = entry.find(',');
    if (comma == std::string_view::npos || comma == 0 || comma >= sizeof record.fileName)
        return false;
    uint32_t numbers[9] = {};
    size_t at = comma + 1;
    for (int i = 0; i < 9; ++i) {
        if (i > 0) {
            if (at >= entry.size() || (entry[at] != ',' && entry[at] != '.')) return false;
            ++at;
        }
        if (!readNumber(entry, at, i < 4 ? 0xFFFFu : 0xFFFFFFFFu, numbers[i])) return false;
    }
    while (at < entry.size() && (entry[at] == ' ' || entry[at] == '\t'))
        ++at;
    if (at != entry.size()) return false;
    copyText(record.fileName, sizeof record.fileName, entry.substr(0, comma));
    for (int i = 0; i < 4; ++i)
        record.expected[i] = static_cast<uint16_t>(numbers[i]);
    for (int i = 0; i < 5; ++i)
        record.reserved[i] = numbers[4 + i];
    std::snprintf(record.expectedText, sizeof record.expectedText, "%d.%d.%d.%d",
                  record.expected[0], record.expected[1], record.expected[2], record.expected[3]);
    return true;
}

int32_t compareVersions(const uint16_t expected[4], const uint16_t actual[4]) {
    for (int part = 0; part < 4; ++part) {
        if (expected[part] < actual[part]) return -(4 - part);
        if (expected[part] > actual[part]) return 4 - part;
    }
    return 0;
}

} // namespace kova::components
