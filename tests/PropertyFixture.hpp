// A started kernel with what property tests keep making: properties, and
// memory streams holding given bytes or a property's saved record.
#pragma once

#include "tests/KernelFixture.hpp"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kova::test {

using Bytes = std::vector<uint8_t>;

class PropertyTest : public KernelTest {
  protected:
    // A property of `className`, created with its own leading arguments
    // followed by owner (none), name, id 7 and `flags`.
    template <typename... A>
    kvObject property(const char* className, const char* name, uint16_t flags, A... own) {
        kvObject made = make(className, own..., nullptr, name, 7, flags);
        EXPECT_NE(made, nullptr) << className;
        return made;
    }

    // A growable stream holding `bytes`, positioned at its start.
    kvObject streamWith(const Bytes& bytes = {}) {
        kvObject stream = make("MemStream", 0, 0);
        if (!bytes.empty()) {
            kvSendMeth(&error, stream, "Write", bytes.data(), static_cast<int32_t>(bytes.size()));
            kvSendMeth(&error, stream, "Rewind");
        }
        return stream;
    }

    static Bytes bytesOf(kvObject stream) {
        const auto* data =
            reinterpret_cast<const uint8_t*>(kvSendMeth(nullptr, stream, "getDataPtr"));
        const auto length = static_cast<size_t>(kvSendMeth(nullptr, stream, "getLength"));
        return data ? Bytes(data, data + length) : Bytes{};
    }

    // The saved record of a property, or the saved frame of a collection.
    Bytes recordOf(kvObject property) {
        kvObject stream = streamWith();
        kvSendMeth(&error, property, "writeToStream", stream);
        return bytesOf(stream);
    }

    // Reads `record` into `property`; answers readFromStream's result.
    kvResult readInto(kvObject property, const Bytes& record) {
        return kvSendMeth(&error, property, "readFromStream", streamWith(record));
    }

    static std::string text(kvResult answer) {
        const auto* chars = reinterpret_cast<const char*>(answer);
        return chars ? chars : "<null>";
    }
    static std::string nameOf(kvObject property) {
        return text(kvSendMeth(nullptr, property, "getName"));
    }
};

// A field's value as a plain copy: fields of packed structures must not be
// bound to references, which the test macros take.
template <typename T> T copyOf(T value) {
    return value;
}

inline Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline Bytes bytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

inline Bytes le16(uint16_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)};
}

inline Bytes le32(uint32_t value) {
    return le16(static_cast<uint16_t>(value)) + le16(static_cast<uint16_t>(value >> 16));
}

// A 16-bit flags word followed by more bytes.
inline Bytes record(uint16_t flags, const Bytes& rest = {}) {
    return le16(flags) + rest;
}

} // namespace kova::test
