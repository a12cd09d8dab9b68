// The pieces of a version check shared by the check itself, its report and
// the kova command: reading one expected-version entry and comparing versions.
#pragma once

#include "kova/version.h"

#include <cstdio>
#include <string_view>

namespace kova::components {

// Reads "FILE,a.b.c.d,r1,r2,r3,r4,r5" (numbers separated by "," or ".") into
// the record's file name, expected version, its text and the reserved
// numbers; false, with the record untouched, when it does not parse.
bool parseVersionEntry(std::string_view entry, kvVersionCheck& record);

// Expected against actual: 0 when equal, else 4 to 1 (older than expected)
// or -4 to -1 (newer) by the first part that differs.
int32_t compareVersions(const uint16_t expected[4], const uint16_t actual[4]);

// Writes the report of a check to `log`, as the log file holds it.
void writeVersionLog(std::FILE* log, const char* location, int16_t mode, int32_t level,
                     const kvVersionCheck* first);

// Reports a check: the dialog when the setting asks for it and its library is
// present, then the log file when one is set.
void reportVersionCheck(const char* location, int16_t mode, int32_t level, kvVersionCheck* first);

} // namespace kova::components

namespace kova::components {

// The checks that component classes start, each by sending the component
// "checkVersionAPI" (mode, the setting's value); the level the check uses is
// always "VersionReporting\VerbosityLevel".
// On the first instance of a component class: "VersionChecking\OnFirstUse"
// non-zero checks with that setting's name where the mode belongs (so the mode
// is the low 16 bits of the name's address, kept as the system has always
// done it); else "VersionChecking\OnStartUp" non-zero checks in mode 0.
void checkVersionsOnFirstInstance(kvObject* errSlot, kvObject component);
// When a personality module processes an error: "VersionChecking\OnError"
// non-zero checks in mode 2.
void checkVersionsOnError(kvObject* errSlot, kvObject personality);

} // namespace kova::components
