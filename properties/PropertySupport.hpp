// What the value-holding property classes share: reading their arguments, the
// text forms of numbers and truth values, heap copies that report a lack of
// memory, and the pieces of their saved records (the flags word, integers and
// counted byte runs), read defensively because a stream may hold anything.
// Internal to the library.
#pragma once

#include "kova/kernel.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace kova::props {

// ---- arguments ----

inline int32_t intArg(const kvArgs* args, size_t index) {
    return static_cast<int32_t>(kvArgAt(args, index));
}

inline const char* textArg(const kvArgs* args, size_t index) {
    return reinterpret_cast<const char*>(kvArgAt(args, index));
}

template <typename T> T* pointerArg(const kvArgs* args, size_t index) {
    return reinterpret_cast<T*>(kvArgAt(args, index));
}

// ---- text forms ----

// The decimal number at the start of `text`, read as "%ld" scanning and atol
// read it: leading white space, an optional sign, then digits up to the first
// non-digit. No digits gives 0. Values beyond 32 bits saturate instead of
// wrapping, so an overlong text yields the nearest representable value.
int32_t parseLong(std::string_view text);

// The same for a terminated text; null gives 0.
int32_t parseLong(const char* text);

// Formats `value` with "%ld" into a class's static text buffer and answers it.
template <size_t N> const char* formatLong(char (&buffer)[N], int32_t value) {
    static_assert(N >= 12, "a 32-bit value needs up to 11 characters and a terminator");
    std::snprintf(buffer, N, "%ld", static_cast<long>(value));
    return buffer;
}

// Truth read from text: 1 for "true" or "1", 0 for "false" or "0" (any case),
// -1 for anything else, null included.
int parseTruth(const char* text);

// Copies "True" or "False" into a class's static text buffer and answers it.
template <size_t N> const char* formatTruth(char (&buffer)[N], bool value) {
    static_assert(N >= 6, "\"False\" needs 6 bytes");
    std::snprintf(buffer, N, "%s", value ? "True" : "False");
    return buffer;
}

// ---- heap values ----

// Sets `*copy` to a heap copy of `text` (null for a null text). On a lack of
// memory raises 3429 for `cls`, leaves `*copy` untouched and answers false.
bool copyText(kvObject* errSlot, kvObject self, kvClass cls, const char* text, char** copy);

// ---- indirect properties ----
// Every indirect property's instance data begins with the pointer to its
// creator's memory. That memory often lies in another class's packed
// instance data, so it is read and written without assuming alignment.

inline void* indirectTarget(const void* instData) {
    void* target;
    std::memcpy(&target, instData, sizeof target);
    return target;
}

inline void setIndirectTarget(void* instData, void* target) {
    std::memcpy(instData, &target, sizeof target);
}

template <typename T> T loadFrom(const void* cell) {
    T value;
    std::memcpy(&value, cell, sizeof value);
    return value;
}

template <typename T> void storeTo(void* cell, T value) {
    std::memcpy(cell, &value, sizeof value);
}

// ---- property facts ----

// The property's name as its "getName" gives it (may be null).
const char* nameOf(kvObject property);

// Deletes every error stacked on the slot above `mark`, the slot's content
// before some step whose errors are to be forgotten.
void discardErrorsAbove(kvObject* errSlot, kvObject mark);

// ---- saved records ----
// Every writer sends the stream's own integer and byte methods, so errors of
// the stream land in the caller's slot. A null stream writes and reads
// nothing. Every reader answers false when the record could not be read in
// full; it has then raised 3432 for `cls`, unless the stream itself reported
// the failure.

void writeFlags(kvObject* errSlot, kvObject self, kvObject stream);
void writeInt16(kvObject* errSlot, kvObject stream, int16_t value);
void writeInt32(kvObject* errSlot, kvObject stream, int32_t value);
void writeBytes(kvObject* errSlot, kvObject stream, const void* bytes, size_t count);
// A 32-bit length followed by that many bytes.
void writeCounted(kvObject* errSlot, kvObject stream, const void* bytes, size_t count);

bool readBytes(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, void* buffer,
               size_t count);
// Reads a flags word; a reader adopts it only once its whole record is read.
bool readFlags(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, uint16_t* flags);
// Puts a flags word read from a stream into the header. The kernel's own bits
// (events, silence, cleaning, forwarding) describe this object's life in this
// process, so they keep their current state whatever the stream says.
void adoptFlags(kvObject self, uint16_t flags);
bool readInt16(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, int16_t* value);
bool readInt32(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, int32_t* value);

// A truth value as one character, "1" or "0".
void writeTruth(kvObject* errSlot, kvObject stream, bool value);
// 1 or 0 for the characters "1" and "0"; -1 for a missing character (3432)
// or any other one (3443).
int readTruth(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream);

// A counted run as writeCounted wrote it, into a new heap block of the run's
// length plus a terminating zero. The length field is not trusted: the block
// grows only as the stream actually delivers bytes, so a record claiming
// more than the stream holds costs at most a small multiple of what it does
// hold. On failure nothing is kept; a lack of memory raises 3429.
struct CountedRun {
    char* bytes = nullptr; // heap block, terminated; owned by the caller
    uint32_t length = 0;   // bytes before the terminator
};
bool readCounted(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, CountedRun* run);

} // namespace kova::props
