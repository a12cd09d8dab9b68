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
using kova::fuzz::savedRecordOf;
using kova::fuzz::startKernelOnce;
using kova::fuzz::streamWith;

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
        const std::vector<uint8_t> first = savedRecordOf(&error, property);
        kvObject again = streamWith(&error, first.data(), first.size());
        require(kvSendMeth(&error, property, "readFromStream", again) == 0);
        require(savedRecordOf(&error, property) == first);
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
