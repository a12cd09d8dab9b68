// What the fuzz targets share: the way a broken promise stops a run, and the
// started kernel that the targets reading through classes run in.
#pragma once

#include "kova/host.h"
#include "kova/kernel.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kova::fuzz {

// A broken promise stops the run as a crash, which the fuzzer records with
// the input that caused it.
inline void require(bool condition) {
    if (!condition) __builtin_trap();
}

// Message boxes the kernel showed: a failure it reports to a person rather
// than to the caller, which no input may cause.
inline int messageBoxes = 0;

inline int countMessageBox(const char*, const char*, unsigned) {
    ++messageBoxes;
    return KV_IDOK;
}

// Starts the kernel on the first input and keeps it for the rest of the run.
inline void startKernelOnce() {
    static const bool started = [] {
        kvSetMessageBoxHook(countMessageBox);
        kvInitialize();
        return kvFindClass("Object") != nullptr;
    }();
    require(started);
}

// Empties an error slot, requiring every error in it to be one of the
// kernel's own numbers.
inline void requireKernelErrors(kvObject& error) {
    while (error) {
        const kvResult code = kvSendMeth(nullptr, error, "getCode");
        require(code >= 3426 && code <= 3525);
        kvSendMeth(&error, error, "deleteTopError");
    }
}

// A growable memory stream holding the input, at its start.
inline kvObject streamWith(kvObject* error, const uint8_t* data, size_t size) {
    kvObject stream = kvNewObject(error, "MemStream", 0, 0);
    require(stream != nullptr);
    if (size) {
        kvSendMeth(error, stream, "Write", data, static_cast<int32_t>(size));
        kvSendMeth(error, stream, "Rewind");
    }
    return stream;
}

// The record a property writes of itself, through a memory stream.
inline std::vector<uint8_t> savedRecordOf(kvObject* error, kvObject property) {
    kvObject stream = kvNewObject(error, "MemStream", 0, 0);
    require(stream != nullptr);
    kvSendMeth(error, property, "writeToStream", stream);
    const auto* bytes = reinterpret_cast<const uint8_t*>(kvSendMeth(nullptr, stream, "getDataPtr"));
    const auto length = static_cast<size_t>(kvSendMeth(nullptr, stream, "getLength"));
    std::vector<uint8_t> record =
        bytes ? std::vector<uint8_t>(bytes, bytes + length) : std::vector<uint8_t>{};
    kvDelObject(error, stream);
    return record;
}

} // namespace kova::fuzz
