// Feeds arbitrary bytes to the error registry's line reader as the text of an
// error table resource (or the lines a library hands over), building the
// message table a registration would hold. Besides the sanitizers' checks it
// traps when the table differs from the well-formed lines in order, or when a
// stored text is not a terminated string of at most 255 characters.
#include "errors/ErrorLines.hpp"
#include "fuzz/FuzzChecks.hpp"
#include "kova/errreg.h"
#include "platform/Platform.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace {

using kova::fuzz::require;

using kova::errors::ErrorLine;
using kova::errors::MessageEntry;
using kova::errors::TextBytes;

bool sameMessage(const MessageEntry& entry, const ErrorLine& line) {
    const size_t length = strnlen(entry.text, sizeof entry.text);
    require(length < sizeof entry.text);
    const std::string_view expected = line.text.substr(0, sizeof entry.text - 1);
    return entry.number == line.number && entry.helpContext == line.helpContext &&
           expected == std::string_view(entry.text, length);
}

// Walks the well-formed lines of the text beside the table's entries.
void compareWithLines(const uint8_t* data, size_t size, const MessageEntry* entries,
                      uint16_t count) {
    size_t index = 0;
    kova::errors::forEachLine(TextBytes(data, size), [&](const ErrorLine& line) {
        if (line.verdict != kova::errors::LineVerdict::WellFormed) return true;
        require(index < count);
        require(sameMessage(entries[index++], line));
        return true;
    });
    require(index == count);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kova::errors::MessageTable table;
    require(table.addLinesOf(TextBytes(data, size)) == ERR_REG_OK);
    const uint16_t count = table.count();
    kova::platform::MemoryHandle block = table.release();
    require((block == nullptr) == (count == 0));
    const auto* entries = static_cast<const MessageEntry*>(kova::platform::globalLock(block));
    compareWithLines(data, size, entries, count);
    kova::platform::globalUnlock(block);
    kova::platform::globalFree(block);
    return 0;
}
