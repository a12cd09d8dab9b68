// Feeds arbitrary bytes, as saved data in a memory stream, to the reader of
// every property class. The first byte chooses the reader: 0 a property
// collection whose members are one property of every class (and a collection
// of its own), so that entries of the frame reach each member's reader by
// name; any other value one class's record reader on its own, so that a
// class name the collection's reader would stop at does not keep the fuzzer
// away from that class. Besides the sanitizers' checks it traps when a reader
// breaks its promises: no kernel failure box is ever shown, no reader moves
// the stream past its end, a collection neither gains nor loses members,
// errors are the kernel's own numbers, members that read their records can
// still be used, a collection saved afterwards is still a whole KVST frame,
// and a record saved after a read reads back into a fresh property as the
// same record.
#include "fuzz/FuzzChecks.hpp"
#include "kova/host.h"
#include "kova/kernel.h"
#include "properties/BlobProp.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

using kova::fuzz::messageBoxes;
using kova::fuzz::require;
using kova::fuzz::requireKernelErrors;
using kova::fuzz::savedRecordOf;
using kova::fuzz::startKernelOnce;
using kova::fuzz::streamWith;

constexpr uint16_t persistent = KV_OBJ_PERSISTENT;

// The memory that indirect properties point into: one set per property, so
// that two properties never own one string cell.
struct Fields {
    int32_t int32 = 3;
    int16_t int16 = 4;
    uint32_t word = 0;
    char* cell = nullptr; // owned by the IndStrProp pointing at it
    char array[16] = "array";
};

kvObject forwardTarget = nullptr; // what PropForw members stand in for

// Every property class, in the order the selector byte names them (1, 2...).
constexpr const char* classes[] = {
    "IntProp",    "IRngProp",      "BoolProp",     "RealProp",     "StrProp",
    "BlobProp",   "UniProp",       "IndInt32Prop", "IndInt16Prop", "IndBoolProp",
    "IndStrProp", "IndCArrayProp", "PropForw",     "CollectProp",
};
constexpr size_t classCount = sizeof classes / sizeof classes[0];

// A persistent property of `className` named `name`, made with its own
// creation arguments, its indirect fields in `fields`.
kvObject makeProperty(kvObject* error, std::string_view className, const char* name,
                      Fields& fields) {
    const char* cls = className.data();
    if (className == "IntProp") return kvNewObject(error, cls, 5, nullptr, name, 1, persistent);
    if (className == "IRngProp")
        return kvNewObject(error, cls, 0, 10, 1, 5, nullptr, name, 1, persistent);
    if (className == "StrProp") return kvNewObject(error, cls, "abc", nullptr, name, 1, persistent);
    if (className == "IndInt32Prop")
        return kvNewObject(error, cls, &fields.int32, nullptr, name, 1, persistent);
    if (className == "IndInt16Prop")
        return kvNewObject(error, cls, &fields.int16, nullptr, name, 1, persistent);
    if (className == "IndBoolProp")
        return kvNewObject(error, cls, &fields.word, 0x10, nullptr, name, 1, persistent);
    if (className == "IndStrProp")
        return kvNewObject(error, cls, &fields.cell, nullptr, name, 1, persistent);
    if (className == "IndCArrayProp")
        return kvNewObject(error, cls, fields.array, sizeof fields.array, nullptr, name, 1,
                           persistent);
    if (className == "PropForw")
        return kvNewObject(error, cls, forwardTarget, nullptr, name, 1, persistent);
    if (className == "CollectProp") {
        kvObject inner = kvNewObject(error, cls, 1, nullptr, name, 1, persistent);
        kvSendMeth(error, inner, "addProperty",
                   kvNewObject(error, "IntProp", 3, nullptr, "Depth", 3, persistent));
        return inner;
    }
    return kvNewObject(error, cls, nullptr, name, 1, persistent); // no arguments of its own
}

// The member names a frame's entries use: short, so that the fuzzer finds them.
constexpr const char* memberNames[classCount] = {"I", "R", "B", "F", "S", "L", "U",
                                                 "J", "H", "K", "T", "A", "W", "C"};

Fields memberFields;

// A persistent collection that owns one member of every class.
kvObject makeCollection(kvObject* error) {
    memberFields = Fields{};
    kvObject props = kvNewObject(error, "CollectProp", 1, nullptr, "Props", 1, persistent);
    for (size_t i = 0; i < classCount; ++i) {
        kvObject member = makeProperty(error, classes[i], memberNames[i], memberFields);
        require(member && kvSendMeth(error, props, "addProperty", member) == 0);
    }
    return props;
}

void requireInsideStream(kvObject stream) {
    const kvResult position = kvSendMeth(nullptr, stream, "getPos");
    require(position >= 0 && position <= kvSendMeth(nullptr, stream, "getLength"));
}

// The collection saved again is a whole frame: magic first, marker last.
void requireWholeFrame(kvObject* error, kvObject props) {
    const std::vector<uint8_t> frame = savedRecordOf(error, props);
    static const uint8_t tail[] = "\x0bKvStreamEnd";
    require(frame.size() >= 16);
    require(std::memcmp(frame.data(), "TSVK", 4) == 0);
    require(std::memcmp(frame.data() + frame.size() - 12, tail, 12) == 0);
}

// Uses a property after a read may have changed it: it answers its value and
// its text, and takes a store of the kind its class expects.
void useProperty(kvObject* error, kvObject property);

void useMembers(kvObject* error, kvObject props) {
    const kvResult count = kvSendMeth(nullptr, props, "getPropCount");
    for (kvResult i = 0; i < count; ++i)
        useProperty(error,
                    reinterpret_cast<kvObject>(kvSendMeth(nullptr, props, "getProperty", i)));
}

void useProperty(kvObject* error, kvObject property) {
    const std::string_view className = property->cls->name;
    kvSendMeth(error, property, "fetchData");
    if (className == "CollectProp") {
        useMembers(error, property);
        return;
    }
    kvSendMeth(error, property, "fetchAsString");
    static const float ratio = 0.25f;
    static uint8_t bytes[3] = {1, 2, 3};
    static const kvBlob blob{bytes, sizeof bytes};
    if (className == "StrProp" || className == "IndStrProp" || className == "IndCArrayProp")
        kvSendMeth(error, property, "storeData", "stored");
    else if (className == "RealProp")
        kvSendMeth(error, property, "storeData", &ratio);
    else if (className == "BlobProp")
        kvSendMeth(error, property, "storeData", &blob);
    else
        kvSendMeth(error, property, "storeData", 7);
}

void readCollection(kvObject& error, const uint8_t* data, size_t size) {
    kvObject props = makeCollection(&error);
    const kvResult members = kvSendMeth(nullptr, props, "getPropCount");
    kvObject stream = streamWith(&error, data, size);
    kvSendMeth(&error, props, "readFromStream", stream);
    requireInsideStream(stream);
    require(kvSendMeth(nullptr, props, "getPropCount") == members);
    useMembers(&error, props);
    requireWholeFrame(&error, props);
    kvDelObject(&error, stream);
    kvDelObject(&error, props);
}

// One class's reader on its own; what it then saves reads back the same
// (a collection's frame excepted: a collection restores no members).
void readRecord(kvObject& error, std::string_view className, const uint8_t* data, size_t size) {
    Fields fields, copyFields;
    kvObject property = makeProperty(&error, className, "P", fields);
    require(property != nullptr);
    kvObject stream = streamWith(&error, data, size);
    kvSendMeth(&error, property, "readFromStream", stream);
    requireInsideStream(stream);
    if (className != "CollectProp") {
        const std::vector<uint8_t> saved = savedRecordOf(&error, property);
        kvObject copy = makeProperty(&error, className, "P", copyFields);
        kvObject again = streamWith(&error, saved.data(), saved.size());
        require(kvSendMeth(&error, copy, "readFromStream", again) == 0);
        require(savedRecordOf(&error, copy) == saved);
        kvDelObject(&error, again);
        kvDelObject(&error, copy);
    }
    useProperty(&error, property);
    kvDelObject(&error, stream);
    kvDelObject(&error, property);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startKernelOnce();
    if (size == 0) return 0;
    kvObject error = nullptr;
    forwardTarget = kvNewObject(&error, "IntProp", 9, nullptr, "Target", 1, 0);
    const size_t selector = data[0] % (classCount + 1);
    if (selector == 0)
        readCollection(error, data + 1, size - 1);
    else
        readRecord(error, classes[selector - 1], data + 1, size - 1);
    kvDelObject(&error, forwardTarget);
    requireKernelErrors(error);
    require(messageBoxes == 0);
    return 0;
}
