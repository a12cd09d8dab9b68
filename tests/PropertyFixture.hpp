// A started kernel with what property tests keep making: properties
// (deleted after the test), subscribers that record and answer, and memory
// streams holding given bytes or a property's saved record.
#pragma once

#include "tests/KernelFixture.hpp"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kova::test {

class PropertyTest : public KernelTest {
  protected:
    kvObject error = nullptr;

    void TearDown() override {
        clearErrors(error);
        // Properties go first: their "OnTerm" still reaches live subscribers.
        for (auto* list : {&properties, &listeners, &streams})
            for (kvObject obj : *list)
                kvDelObject(nullptr, obj);
        KernelTest::TearDown();
    }

    // A property of `className`, created with its own leading arguments
    // followed by owner (none), name, id 7 and `flags`.
    template <typename... A>
    kvObject make(const char* className, const char* name, uint16_t flags, A... own) {
        kvObject made = kvNewObject(&error, className, own..., nullptr, name, 7, flags);
        EXPECT_NE(made, nullptr) << className;
        if (made) properties.push_back(made);
        return made;
    }

    // A subscriber of `event` on `notifier` that answers `answer`.
    kvObject listen(kvObject notifier, const char* event, kvArg answer = 0) {
        kvObject listener = kvNewObject(&error, "Listener");
        listeners.push_back(listener);
        kvSendMeth(&error, listener, "configure", answer, 0, nullptr);
        kvAddNotification(&error, notifier, event, listener, "onEvent", 1);
        return listener;
    }
    static kvArg calls(kvObject listener) { return kvSendMeth(nullptr, listener, "getCalls"); }
    // The first slot the firing added after the notifier and the event name.
    static kvArg firstExtra(kvObject listener) {
        return kvSendMeth(nullptr, listener, "getArg", 2);
    }

    // A growable stream holding `bytes`, positioned at its start.
    kvObject streamWith(const std::vector<uint8_t>& bytes) {
        kvObject stream = kvNewObject(&error, "MemStream", 0, 0);
        streams.push_back(stream);
        if (!bytes.empty()) {
            kvSendMeth(&error, stream, "Write", bytes.data(), static_cast<int32_t>(bytes.size()));
            kvSendMeth(&error, stream, "Rewind");
        }
        return stream;
    }
    kvObject streamWith(const std::string& bytes) {
        return streamWith(std::vector<uint8_t>(bytes.begin(), bytes.end()));
    }

    static std::vector<uint8_t> bytesOf(kvObject stream) {
        const auto* data =
            reinterpret_cast<const uint8_t*>(kvSendMeth(nullptr, stream, "getDataPtr"));
        const auto length = static_cast<size_t>(kvSendMeth(nullptr, stream, "getLength"));
        return data ? std::vector<uint8_t>(data, data + length) : std::vector<uint8_t>{};
    }

    // The property's saved record.
    std::vector<uint8_t> recordOf(kvObject property) {
        kvObject stream = streamWith(std::vector<uint8_t>{});
        kvSendMeth(&error, property, "writeToStream", stream);
        return bytesOf(stream);
    }

    // Reads `record` into `property`; answers readFromStream's result.
    kvResult readInto(kvObject property, const std::vector<uint8_t>& record) {
        return kvSendMeth(&error, property, "readFromStream", streamWith(record));
    }

    static std::string text(kvResult answer) {
        const auto* chars = reinterpret_cast<const char*>(answer);
        return chars ? chars : "<null>";
    }

    // The error's code, then clears the slot for the next step.
    int32_t takeError() {
        const int32_t code = errorCode(error);
        clearErrors(error);
        return code;
    }

    std::vector<kvObject> properties, listeners, streams;
};

// A field's value as a plain copy: fields of packed structures must not be
// bound to references, which the test macros take.
template <typename T> T copyOf(T value) {
    return value;
}

// Little-endian bytes of a 16-bit flags word followed by more bytes.
inline std::vector<uint8_t> record(uint16_t flags, std::vector<uint8_t> rest = {}) {
    rest.insert(rest.begin(), {static_cast<uint8_t>(flags), static_cast<uint8_t>(flags >> 8)});
    return rest;
}

inline std::vector<uint8_t> le32(uint32_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
            static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 24)};
}

inline std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace kova::test
