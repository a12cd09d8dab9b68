// What the property and component classes share: reading their arguments,
// comparing names, the text forms of numbers and truth values, heap copies that report a lack of
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

inline kvObject objectArg(const kvArgs* args, size_t index) {
    return reinterpret_cast<kvObject>(kvArgAt(args, index));
}

template <typename T> T* pointerArg(const kvArgs* args, size_t index) {
    return reinterpret_cast<T*>(kvArgAt(args, index));
}

// ---- names ----

// Null or empty.
inline bool isBlank(const char* text) {
    return !text || !*text;
}

// Two names equal without regard to (ASCII) case.
inline bool sameIgnoringCase(const char* a, const char* b) {
    auto fold = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    for (; *a && *b; ++a, ++b)
        if (fold(*a) != fold(*b)) return false;
    return *a == *b;
}

// ---- text forms ----

// The decimal number at the start of `text`, read as "%ld" scanning and atol
// read it: leading white space, an optional sign, then digits up to the first
// non-digit. No digits gives 0. Values beyond 32 bits saturate instead of
// wrapping, so an overlong text yields the nearest representable value.
int32_t parseLong(std::string_view text);

// The same for a terminated text; null gives 0.
int32_t parseLong(const char* text);

// The value the property fetches, as "%ld" text in a class's static buffer:
// the answer of the integer classes' "asString" and "fetchAsString".
template <size_t N>
kvResult fetchedNumberText(kvObject* errSlot, kvObject self, char (&buffer)[N]) {
    static_assert(N >= 12, "a 32-bit value needs up to 11 characters and a terminator");
    const auto value = static_cast<int32_t>(kvSendMeth(errSlot, self, "fetchData"));
    std::snprintf(buffer, N, "%ld", static_cast<long>(value));
    return reinterpret_cast<kvResult>(buffer);
}

// The integer classes' "storeFromString": the text read as parseLong reads
// it, stored with "storeData". A null text stores nothing and answers 0.
kvResult storeNumberText(kvObject* errSlot, kvObject self, const kvArgs* args);

// The truth the property fetches, as "True" or "False" in a class's static
// buffer: the answer of the truth classes' "fetchAsString".
template <size_t N> kvResult fetchedTruthText(kvObject* errSlot, kvObject self, char (&buffer)[N]) {
    static_assert(N >= 6, "\"False\" needs 6 bytes");
    const bool value = kvSendMeth(errSlot, self, "fetchData") != 0;
    std::snprintf(buffer, N, "%s", value ? "True" : "False");
    return reinterpret_cast<kvResult>(buffer);
}

// The truth classes' "storeFromString": "true" or "1", "false" or "0" in any
// case, stored with "storeData" as -1 or 0. Anything else, null included,
// raises 3443 for `cls` and answers -1.
kvResult storeTruthText(kvObject* errSlot, kvObject self, kvClass cls, const kvArgs* args);

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

// ---- the bound on a read of saved data ----
// A stream may never end (a pipe, a device), so every read of saved data has
// an upper bound on the whole input it takes: one read (a property's record,
// or a collection's frame with everything nested in it) takes at most
// largestSavedRead bytes from its stream, the size of the largest saved
// collection the kova command accepts. A read that would pass the bound
// stops with 3443 before it asks the stream for the bytes, so a record that
// claims more than the bound allows costs nothing.
inline constexpr size_t largestSavedRead = size_t{64} << 20;

// One read of saved data, for as long as the scope lives. Scopes nest; the
// outermost one sets the bound and those inside share it.
class SavedReadScope {
  public:
    SavedReadScope();
    SavedReadScope(const SavedReadScope&) = delete;
    SavedReadScope& operator=(const SavedReadScope&) = delete;
    ~SavedReadScope();
};

// Takes `count` bytes from what the read under way may still take; false,
// taking nothing, when that is less. Only inside a SavedReadScope.
bool takeFromSavedRead(size_t count);
// What the read under way may still take.
size_t savedReadLeft();
// Runs `step` with the caller's slot, or with one of its own when the caller
// gave none (whose errors are then deleted); answers whether no error is
// pending in that slot afterwards: the "1 when no error is pending" answer of
// several methods.
template <typename Step> bool noErrorPendingAfter(kvObject* errSlot, Step step) {
    kvObject own = nullptr;
    kvObject* slot = errSlot ? errSlot : &own;
    step(slot);
    const bool clean = *slot == nullptr;
    discardErrorsAbove(&own, nullptr);
    return clean;
}

// The property of that name held by a component ("findPropertyByName"), or
// null. A component without it is an ordinary case, not an error: whatever
// the look-up raises is deleted.
kvObject findPropertyQuietly(kvObject component, const char* name);

// ---- saved records ----
// Every writer sends the stream's own integer and byte methods, so errors of
// the stream land in the caller's slot. A null stream writes and reads
// nothing. Every reader answers false when the record could not be read in
// full; it has then raised 3432 for `cls`, unless the stream itself reported
// the failure, or 3443 when the read would pass the bound above.

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
// A truth class's record: the flags word into `*flags`, then the character;
// answers 1 or 0, or -1 for a cut record (3432) or any other character (3443).
int readTruthRecord(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream,
                    uint16_t* flags);

// A counted run as writeCounted wrote it, into a new heap block of the run's
// length plus a terminating zero. The length field is not trusted: a length
// beyond what the read may still take is refused with 3443 at once, and the
// block grows only as the stream actually delivers bytes, so a record
// claiming more than the stream holds costs at most a small multiple of what
// it does hold. On failure nothing is kept; a lack of memory raises 3429.
struct CountedRun {
    char* bytes = nullptr; // heap block, terminated; owned by the caller
    uint32_t length = 0;   // bytes before the terminator
};
bool readCounted(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, CountedRun* run);

// ---- indirect integers ----
// IndInt16Prop and IndInt32Prop differ only in the width `T` of the creator's
// field, so their methods share these bodies. Each class passes itself as
// `cls`. Stores keep the bits of the value that fit `T`; fetches answer the
// field sign-extended; without an address, stores do nothing and fetches
// answer 0. The saved record after the flags word is the field's value,
// never its address.

template <typename T> struct IndirectInteger {
    static_assert(sizeof(T) == 2 || sizeof(T) == 4, "saved records hold 16 or 32 bits");

    static T current(const void* instData) {
        const void* cell = indirectTarget(instData);
        return cell ? loadFrom<T>(cell) : T{0};
    }

    // After "OnFetch".
    static kvResult fetchData(kvObject* errSlot, kvClass cls, kvObject self, void* instData,
                              const kvArgs* args) {
        kvSendParentMethNA(errSlot, cls, self, "fetchData", args);
        return current(instData);
    }

    // (pointer, owner, name, id, flags)
    static kvResult objInit(kvObject* errSlot, kvClass cls, kvObject self, void* instData,
                            const kvArgs* args) {
        const kvArgs rest = kvArgsAfter(args, 1);
        kvSendParentMethNA(errSlot, cls, self, "objInit", &rest);
        setIndirectTarget(instData, pointerArg<void>(args, 0));
        return 0;
    }

    // (stream): adopted only from a complete record, otherwise -1 (3432
    // raised); the field is written without notifications.
    static kvResult readFromStream(kvObject* errSlot, kvClass cls, kvObject self, void* instData,
                                   const kvArgs* args) {
        const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
        uint16_t flags = 0;
        T value = 0;
        if (!readFlags(errSlot, self, cls, stream, &flags) ||
            !readInteger(errSlot, self, cls, stream, &value))
            return -1;
        adoptFlags(self, flags);
        if (void* cell = indirectTarget(instData)) storeTo(cell, value);
        return 0;
    }

    // (value): written to the creator's field and announced with "OnStore".
    static kvResult storeData(kvObject* errSlot, kvClass cls, kvObject self, void* instData,
                              const kvArgs* args) {
        void* cell = indirectTarget(instData);
        if (!cell) return 0;
        const auto value = static_cast<T>(kvArgAt(args, 0));
        storeTo(cell, value);
        kvSendParentMeth(errSlot, cls, self, "storeData", value);
        return 0;
    }

    static kvResult writeToStream(kvObject* errSlot, kvObject self, void* instData,
                                  const kvArgs* args) {
        const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
        writeFlags(errSlot, self, stream);
        if constexpr (sizeof(T) == 2)
            writeInt16(errSlot, stream, current(instData));
        else
            writeInt32(errSlot, stream, current(instData));
        return 0;
    }

  private:
    static bool readInteger(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream,
                            T* value) {
        if constexpr (sizeof(T) == 2)
            return readInt16(errSlot, self, cls, stream, value);
        else
            return readInt32(errSlot, self, cls, stream, value);
    }
};

} // namespace kova::props
