// The shared pieces of the value-holding property classes (see the header).
#include "properties/PropertySupport.hpp"

#include "errors/Raise.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <limits>

namespace kova::props {

namespace {

constexpr uint16_t kernelFlags =
    KV_OBJ_HAS_EVENTS | KV_OBJ_SILENT | KV_OBJ_NEEDS_CLEANING | KV_OBJ_FORWARDER;

// Counted runs are read in pieces no larger than what has arrived so far (at
// least the first size, at most the last), which bounds memory by the data
// really present and keeps each "Read" count well inside 32 bits.
constexpr size_t firstPieceSize = 4096;
constexpr size_t largestPieceSize = size_t{1} << 24;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// 1 for "true" or "1", 0 for "false" or "0" (any case), -1 for anything
// else, null included.
int parseTruth(const char* text) {
    if (!text) return -1;
    if (sameIgnoringCase(text, "true") || std::strcmp(text, "1") == 0) return 1;
    if (sameIgnoringCase(text, "false") || std::strcmp(text, "0") == 0) return 0;
    return -1;
}

uint32_t fromLittleEndian(const unsigned char* bytes, size_t width) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i)
        value |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    return value;
}

size_t bytesLeftToRead = 0; // by the read of saved data under way
int savedReadScopes = 0;    // nested scopes of that read

} // namespace

SavedReadScope::SavedReadScope() {
    if (savedReadScopes++ == 0) bytesLeftToRead = largestSavedRead;
}

SavedReadScope::~SavedReadScope() {
    --savedReadScopes;
}

bool takeFromSavedRead(size_t count) {
    if (count > bytesLeftToRead) return false;
    bytesLeftToRead -= count;
    return true;
}

size_t savedReadLeft() {
    return bytesLeftToRead;
}

int32_t parseLong(std::string_view text) {
    size_t at = 0;
    while (at < text.size() && isBlank(text[at]))
        ++at;
    bool negative = false;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) negative = text[at++] == '-';
    // Accumulate toward the sign's side so that the most negative value fits.
    constexpr int64_t limit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
    int64_t magnitude = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        magnitude = std::min(limit, magnitude * 10 + (text[at] - '0'));
    if (negative) return static_cast<int32_t>(-magnitude);
    return static_cast<int32_t>(std::min(magnitude, limit - 1));
}

int32_t parseLong(const char* text) {
    return text ? parseLong(std::string_view(text)) : 0;
}

kvResult storeNumberText(kvObject* errSlot, kvObject self, const kvArgs* args) {
    const char* text = textArg(args, 0);
    if (!text) return 0;
    return kvSendMeth(errSlot, self, "storeData", parseLong(text));
}

kvResult storeTruthText(kvObject* errSlot, kvObject self, kvClass cls, const kvArgs* args) {
    const int value = parseTruth(textArg(args, 0));
    if (value < 0) {
        raiseError(errSlot, self, cls, 3443);
        return -1;
    }
    return kvSendMeth(errSlot, self, "storeData", value ? -1 : 0);
}

bool copyText(kvObject* errSlot, kvObject self, kvClass cls, const char* text, char** copy) {
    if (!text) {
        *copy = nullptr;
        return true;
    }
    char* made = platform::duplicate(text);
    if (!made) {
        raiseError(errSlot, self, cls, 3429);
        return false;
    }
    *copy = made;
    return true;
}

const char* nameOf(kvObject property) {
    return reinterpret_cast<const char*>(kvSendMeth(nullptr, property, "getName"));
}

void discardErrorsAbove(kvObject* errSlot, kvObject mark) {
    while (errSlot && *errSlot && *errSlot != mark)
        kvSendMeth(errSlot, *errSlot, "deleteTopError");
}

kvObject findPropertyQuietly(kvObject component, const char* name) {
    kvObject own = nullptr;
    const auto found =
        reinterpret_cast<kvObject>(kvSendMeth(&own, component, "findPropertyByName", name));
    discardErrorsAbove(&own, nullptr);
    return found;
}

void writeFlags(kvObject* errSlot, kvObject self, kvObject stream) {
    writeInt16(errSlot, stream, static_cast<int16_t>(self->flags));
}

void writeInt16(kvObject* errSlot, kvObject stream, int16_t value) {
    if (stream) kvSendMeth(errSlot, stream, "WriteInt16", value);
}

void writeInt32(kvObject* errSlot, kvObject stream, int32_t value) {
    if (stream) kvSendMeth(errSlot, stream, "WriteInt32", value);
}

// Streams answer -1 for a write of nothing, so nothing is sent for an empty run.
void writeBytes(kvObject* errSlot, kvObject stream, const void* bytes, size_t count) {
    if (!stream || !bytes || count == 0) return;
    kvSendMeth(errSlot, stream, "Write", bytes, static_cast<int32_t>(count));
}

void writeCounted(kvObject* errSlot, kvObject stream, const void* bytes, size_t count) {
    if (!bytes) count = 0;
    const auto length =
        static_cast<uint32_t>(std::min<size_t>(count, std::numeric_limits<int32_t>::max()));
    writeInt32(errSlot, stream, static_cast<int32_t>(length));
    writeBytes(errSlot, stream, bytes, length);
}

bool readBytes(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, void* buffer,
               size_t count) {
    if (!stream) return false;
    if (count == 0) return true;
    const SavedReadScope scope;
    if (!takeFromSavedRead(count)) {
        raiseError(errSlot, self, cls, 3443);
        return false;
    }
    const kvObject before = errSlot ? *errSlot : nullptr;
    const kvResult got = kvSendMeth(errSlot, stream, "Read", buffer, static_cast<int32_t>(count));
    if (got == static_cast<kvResult>(count)) return true;
    const bool streamReported = errSlot && *errSlot != before;
    if (!streamReported) raiseError(errSlot, self, cls, 3432);
    return false;
}

bool readFlags(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, uint16_t* flags) {
    int16_t word = 0;
    if (!readInt16(errSlot, self, cls, stream, &word)) return false;
    *flags = static_cast<uint16_t>(word);
    return true;
}

void adoptFlags(kvObject self, uint16_t flags) {
    self->flags = static_cast<uint16_t>((flags & ~kernelFlags) | (self->flags & kernelFlags));
}

bool readInt16(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, int16_t* value) {
    unsigned char bytes[2];
    if (!readBytes(errSlot, self, cls, stream, bytes, sizeof bytes)) return false;
    *value = static_cast<int16_t>(fromLittleEndian(bytes, sizeof bytes));
    return true;
}

bool readInt32(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, int32_t* value) {
    unsigned char bytes[4];
    if (!readBytes(errSlot, self, cls, stream, bytes, sizeof bytes)) return false;
    *value = static_cast<int32_t>(fromLittleEndian(bytes, sizeof bytes));
    return true;
}

void writeTruth(kvObject* errSlot, kvObject stream, bool value) {
    const char character = value ? '1' : '0';
    writeBytes(errSlot, stream, &character, 1);
}

int readTruthRecord(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream,
                    uint16_t* flags) {
    if (!readFlags(errSlot, self, cls, stream, flags)) return -1;
    char character = 0;
    if (!readBytes(errSlot, self, cls, stream, &character, 1)) return -1;
    if (character == '1' || character == '0') return character == '1';
    raiseError(errSlot, self, cls, 3443);
    return -1;
}

bool readCounted(kvObject* errSlot, kvObject self, kvClass cls, kvObject stream, CountedRun* run) {
    const SavedReadScope scope;
    int32_t field = 0;
    if (!readInt32(errSlot, self, cls, stream, &field)) return false;
    const size_t length = static_cast<uint32_t>(field);
    if (length > savedReadLeft()) {
        raiseError(errSlot, self, cls, 3443);
        return false;
    }
    char* block = nullptr;
    size_t have = 0;
    do {
        const size_t piece =
            std::min(length - have, std::clamp(have, firstPieceSize, largestPieceSize));
        auto* grown = static_cast<char*>(platform::reallocate(block, have + piece + 1));
        if (!grown) {
            platform::release(block);
            raiseError(errSlot, self, cls, 3429);
            return false;
        }
        block = grown;
        if (!readBytes(errSlot, self, cls, stream, block + have, piece)) {
            platform::release(block);
            return false;
        }
        have += piece;
    } while (have < length);
    block[length] = '\0';
    run->bytes = block;
    run->length = static_cast<uint32_t>(length);
    return true;
}

} // namespace kova::props
