// What the TIFF format is to the tag store, sideband data and `kova tiff`:
// the 8-byte header, the 12-byte directory entry, byte order conversion, and
// the tables of item types (TiffTypes.def) and tag names (TiffTagNames.def).
// Header only, so that the kova command shares it with the library.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kova::tiff {

// The values a big-endian (MM) file holds are converted by reversing their
// bytes, which gives host order on the little-endian hosts this library is
// built for.
static_assert(std::endian::native == std::endian::little,
              "TIFF byte order conversion assumes a little-endian host");

#pragma pack(push, 1)
// The file header as the tag store holds it.
struct Header {
    char byteOrder[2];    // "II" little-endian, "MM" big-endian
    uint16_t magic;       // 42, in host order once read
    uint32_t firstOffset; // where the first directory lies, 0 for none; host order once read
};

// One directory entry, 12 bytes.
struct Entry {
    uint16_t tag;   // tag number
    uint16_t type;  // item type code (TiffTypes.def)
    uint32_t count; // number of items
    uint32_t value; // the items themselves when they fit in 4 bytes, else their offset
};
#pragma pack(pop)
static_assert(sizeof(Header) == 8 && sizeof(Entry) == 12);

constexpr uint32_t headerSize = 8;
constexpr uint32_t entrySize = 12;
constexpr uint16_t magicNumber = 42;
// Items of at most this many bytes lie in an entry's value field.
constexpr uint32_t valueFieldSize = 4;

constexpr uint16_t swap16(uint16_t value) {
    return static_cast<uint16_t>(value << 8 | value >> 8);
}

constexpr uint32_t swap32(uint32_t value) {
    return value << 24 | (value & 0xff00u) << 8 | (value >> 8 & 0xff00u) | value >> 24;
}

// A 16- or 32-bit word at `at` (unaligned) with its bytes reversed in place.
inline void swapWordAt(void* at, size_t width) {
    auto* bytes = static_cast<unsigned char*>(at);
    for (size_t i = 0; i < width / 2; ++i) {
        const unsigned char keep = bytes[i];
        bytes[i] = bytes[width - 1 - i];
        bytes[width - 1 - i] = keep;
    }
}

// One item type.
struct TypeInfo {
    uint16_t code;    // the type code of an entry
    const char* name; // as TIFF names it
    uint8_t fileSize; // bytes per item in a TIFF file
    bool stored;      // the tag stores know this type and size its items
};

constexpr TypeInfo types[] = {
#define KV_TIFF_TYPE(code, name, size, stored) {code, name, size, stored},
#include "imaging/TiffTypes.def"
#undef KV_TIFF_TYPE
};

// The type of `code`, or null when TIFF has none.
constexpr const TypeInfo* typeInfo(uint32_t code) {
    for (const TypeInfo& type : types)
        if (type.code == code) return &type;
    return nullptr;
}

// Bytes per item as the tag store and sideband data count them: 1 for BYTE
// and ASCII, 2 SHORT, 4 LONG, 8 RATIONAL, and 0 for any other type.
constexpr uint32_t itemSize(uint32_t code) {
    const TypeInfo* type = typeInfo(code);
    return type && type->stored ? type->fileSize : 0;
}

// One named tag.
struct TagName {
    uint16_t number;
    const char* name;
};

constexpr TagName tagNames[] = {
#define KV_TIFF_TAG(number, name) {number, name},
#include "imaging/TiffTagNames.def"
#undef KV_TIFF_TAG
};

constexpr bool tagNamesAscend() {
    for (size_t i = 1; i < std::size(tagNames); ++i)
        if (tagNames[i - 1].number >= tagNames[i].number) return false;
    return true;
}
static_assert(tagNamesAscend(), "imaging/TiffTagNames.def: rows must ascend by tag number");

// The name of tag `number`, or null for a tag without one.
constexpr const char* tagName(uint32_t number) {
    for (const TagName& tag : tagNames)
        if (tag.number == number) return tag.name;
    return nullptr;
}

constexpr char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The tag named `name` (compared without regard to case), or -1.
inline int32_t tagNumber(std::string_view name) {
    for (const TagName& tag : tagNames) {
        const std::string_view known = tag.name;
        if (known.size() != name.size()) continue;
        bool same = true;
        for (size_t i = 0; i < known.size() && same; ++i)
            same = asciiLower(known[i]) == asciiLower(name[i]);
        if (same) return tag.number;
    }
    return -1;
}

} // namespace kova::tiff
