// Feeds arbitrary bytes, as a saved record in a memory stream, to the readers
// of the list-like properties: an integer list, an enumeration and a bit
// field. Besides the sanitizers' checks it traps when a reader breaks its
// promises: no reader moves the stream past its end, errors are the kernel's
// own numbers, a list read back keeps its selection inside it (or none) and
// answers every index it claims, and a property read back saves a record
// that reads back the same.
#include "fuzz/FuzzChecks.hpp"
#include "kova/host.h"
#include "kova/kernel.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using kova::fuzz::require;
using kova::fuzz::requireKernelErrors;
using kova::fuzz::startKernelOnce;

kvObject streamWith(kvObject* error, const uint8_t* data, size_t size) {
    kvObject stream = kvNewObject(error, "MemStream", 0, 0);
    require(stream != nullptr);
    if (size) {
        kvSendMeth(error, stream, "Write", data, static_cast<int32_t>(size));
        kvSendMeth(error, stream, "Rewind");
    }
    return stream;
}

std::vector<uint8_t> saved(kvObject* error, kvObject property) {
    kvObject stream = kvNewObject(error, "MemStream", 0, 0);
    kvSendMeth(error, property, "writeToStream", stream);
    const auto* bytes = reinterpret_cast<const uint8_t*>(kvSendMeth(nullptr, stream, "getDataPtr"));
    const auto length = static_cast<size_t>(kvSendMeth(nullptr, stream, "getLength"));
    std::vector<uint8_t> record(bytes, bytes + length);
    kvDelObject(error, stream);
    return record;
}

// Every index the list claims answers; the selection is inside or none.
void useList(kvObject* error, kvObject list, const char* read, kvResult none) {
    const kvResult count = kvSendMeth(nullptr, list, "getCount");
    require(count >= 0 && count <= INT16_MAX);
    const kvResult current = kvSendMeth(nullptr, list, "getCurIndex");
    require(current == none || (current >= 0 && current < count));
    for (kvResult i = 0; i < count; ++i)
        kvSendMeth(error, list, read, i);
    kvSendMeth(error, list, "fetchData");
}

void readInto(kvObject& error, const char* className, const uint8_t* data, size_t size) {
    kvObject property = kvNewObject(&error, className, nullptr, "Fuzzed", 1, 0);
    require(property != nullptr);
    kvObject stream = streamWith(&error, data, size);
    const kvResult answer = kvSendMeth(&error, property, "readFromStream", stream);
    const kvResult position = kvSendMeth(nullptr, stream, "getPos");
    require(position >= 0 && position <= kvSendMeth(nullptr, stream, "getLength"));
    if (!std::strcmp(className, "IntListProp")) useList(&error, property, "getValue", -1);
    if (!std::strcmp(className, "StrEnumProp"))
        useList(&error, property, "getIndexedString", kvSendMeth(nullptr, property, "getCount"));
    requireKernelErrors(error);
    if (answer == 0) {
        // What was read saves a record that reads back to the same record.
        const std::vector<uint8_t> first = saved(&error, property);
        kvObject again = streamWith(&error, first.data(), first.size());
        require(kvSendMeth(&error, property, "readFromStream", again) == 0);
        require(saved(&error, property) == first);
        kvDelObject(&error, again);
    }
    kvDelObject(&error, stream);
    kvDelObject(&error, property);
    requireKernelErrors(error);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startKernelOnce();
    kvObject error = nullptr;
    for (const char* className : {"IntListProp", "StrEnumProp", "BitField"})
        readInto(error, className, data, size);
    return 0;
}
