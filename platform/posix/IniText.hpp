// The text of an INI file as the Windows profile functions read and write it:
// "[section]" lines, "key=value" lines, comment lines beginning with ";", and
// anything else kept as it stands. Names compare without regard to case and
// blanks around them do not count; the first of two sections or keys of the
// same name is the one read and written.
#pragma once

#include "platform/HeapAllocator.hpp"

#include <string_view>

namespace kova::platform {

// The largest INI file read at all; a larger one reads as empty and is not
// rewritten.
constexpr size_t maxProfileSize = 16u << 20;

// Finds the value of `key` in `section`, with the blanks around it removed
// (and one pair of enclosing quotes); false when there is no such entry.
bool findIniValue(std::string_view text, std::string_view section, std::string_view key,
                  std::string_view& value);

// `text` with `key` of `section` set to `value`; a null `value` removes the
// key, a null `key` the whole section. A missing section is added at the end,
// a missing key after the section's last entry. The rest of the text is kept
// byte for byte; new lines end as the text's first line does ("\r\n" in a new
// file). Throws std::bad_alloc.
HeapString rewriteIni(std::string_view text, std::string_view section, const char* key,
                      const char* value);

} // namespace kova::platform
