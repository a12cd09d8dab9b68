// Feeds arbitrary bytes to the INI reader and writer as the text of a profile
// file. Besides the sanitizers' checks it traps when the writer breaks its
// promises: a value written is the value read back, removing it shortens the
// text, and setting a key that already holds the value changes nothing.
#include "fuzz/FuzzChecks.hpp"
#include "platform/posix/IniText.hpp"

#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>

namespace {

using kova::fuzz::require;

using kova::platform::findIniValue;

void exercise(std::string_view text, std::string_view section, const char* key) {
    std::string_view value;
    findIniValue(text, section, key, value);
    const auto set = kova::platform::rewriteIni(text, section, key, "written value");
    require(findIniValue(set, section, key, value) && value == "written value");
    const auto again = kova::platform::rewriteIni(set, section, key, "written value");
    require(again == set);
    const auto removed = kova::platform::rewriteIni(set, section, key, nullptr);
    require(removed.size() < set.size());
    const auto withoutSection = kova::platform::rewriteIni(text, section, nullptr, nullptr);
    require(withoutSection.size() <= text.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (text.size() > kova::platform::maxProfileSize) return 0;
    try {
        exercise(text, "Protocols", "total");
        exercise(text, "Protocol0", "Personality0");
        // A section and key named by the input's own first line.
        const std::string_view first = text.substr(0, text.find('\n'));
        const std::string key(first.substr(0, 16));
        if (key.find_first_of("=;[]") == std::string::npos && !key.empty() &&
            key.find_first_not_of(" \t\r\v\f") != std::string::npos &&
            key.find('\0') == std::string::npos)
            exercise(text, key, key.c_str());
    } catch (const std::bad_alloc&) {
    }
    return 0;
}
