// Feeds arbitrary bytes, as saved data in a memory stream, to the readers of
// saved properties: a property collection (whose members, of several classes
// and among them a collection of its own, are what entries of the stream can
// reach), a string property and a boolean property. Besides the sanitizers'
// checks it traps when a reader breaks its promises: no kernel failure box is
// ever shown, no reader moves the stream past its end, a collection neither
// gains nor loses members, errors are the kernel's own numbers, a string read
// back is no longer than the input, a boolean is true or false, members that
// read their records can still be used, and a collection saved afterwards is
// still a whole KVST frame.
#include "kova/host.h"
#include "kova/kernel.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

void require(bool condition) {
    if (!condition) __builtin_trap();
}

int messageBoxes = 0;

int countMessageBox(const char*, const char*, unsigned) {
    ++messageBoxes;
    return KV_IDOK;
}

void startKernelOnce() {
    static const bool started = [] {
        kvSetMessageBoxHook(countMessageBox);
        kvSetRegistryStore("/tmp/kova-fuzz-settings/registry");
        kvSetProfileFolder("/tmp/kova-fuzz-settings");
        kvInitialize();
        return kvFindClass("Object") != nullptr;
    }();
    require(started);
}

constexpr uint16_t persistent = KV_OBJ_PERSISTENT;

// A persistent collection that owns its members, one of each class whose
// record a saved entry may reach.
kvObject makeCollection(kvObject* error) {
    kvObject props = kvNewObject(error, "CollectProp", 1, nullptr, "Props", 1, persistent);
    kvObject inner = kvNewObject(error, "CollectProp", 1, nullptr, "Inner", 2, persistent);
    kvSendMeth(error, inner, "addProperty",
               kvNewObject(error, "IntProp", 3, nullptr, "Depth", 3, persistent));
    const kvObject members[] = {
        kvNewObject(error, "IntProp", 5, nullptr, "Width", 4, persistent),
        kvNewObject(error, "StrProp", "abc", nullptr, "Title", 5, persistent),
        kvNewObject(error, "BoolProp", nullptr, "On", 6, persistent),
        kvNewObject(error, "IRngProp", 0, 10, 1, 5, nullptr, "Range", 7, persistent),
        kvNewObject(error, "RealProp", nullptr, "Ratio", 8, persistent),
        inner,
    };
    for (kvObject member : members)
        require(kvSendMeth(error, props, "addProperty", member) == 0);
    return props;
}

// A growable stream holding the input, at its start.
kvObject streamWith(kvObject* error, const uint8_t* data, size_t size) {
    kvObject stream = kvNewObject(error, "MemStream", 0, 0);
    require(stream != nullptr);
    if (size) {
        kvSendMeth(error, stream, "Write", data, static_cast<int32_t>(size));
        kvSendMeth(error, stream, "Rewind");
    }
    return stream;
}

void requireInsideStream(kvObject stream) {
    const kvResult position = kvSendMeth(nullptr, stream, "getPos");
    require(position >= 0 && position <= kvSendMeth(nullptr, stream, "getLength"));
}

// Every error in the slot is one of the kernel's numbers; the slot is emptied.
void requireKernelErrors(kvObject& error) {
    while (error) {
        const kvResult code = kvSendMeth(nullptr, error, "getCode");
        require(code >= 3426 && code <= 3525);
        kvSendMeth(&error, error, "deleteTopError");
    }
}

// The collection saved again is a whole frame: magic first, marker last.
void requireWholeFrame(kvObject* error, kvObject props) {
    kvObject saved = kvNewObject(error, "MemStream", 0, 0);
    kvSendMeth(error, props, "writeToStream", saved);
    const auto* bytes = reinterpret_cast<const uint8_t*>(kvSendMeth(nullptr, saved, "getDataPtr"));
    const auto length = static_cast<size_t>(kvSendMeth(nullptr, saved, "getLength"));
    static const uint8_t tail[] = "\x0bKvStreamEnd";
    require(length >= 16 && bytes);
    require(std::memcmp(bytes, "TSVK", 4) == 0);
    require(std::memcmp(bytes + length - 12, tail, 12) == 0);
    kvDelObject(error, saved);
}

// Uses every member after a read may have changed it: each answers its value
// and its text, and takes a store of the kind its class expects.
void useMembers(kvObject* error, kvObject props) {
    const float ratio = 0.25f;
    const kvResult count = kvSendMeth(nullptr, props, "getPropCount");
    for (kvResult i = 0; i < count; ++i) {
        const auto member =
            reinterpret_cast<kvObject>(kvSendMeth(nullptr, props, "getProperty", i));
        const std::string_view className = member->cls->name;
        kvSendMeth(error, member, "fetchData");
        if (className == "CollectProp") {
            useMembers(error, member);
            continue;
        }
        kvSendMeth(error, member, "fetchAsString");
        if (className == "StrProp")
            kvSendMeth(error, member, "storeData", "stored");
        else if (className == "RealProp")
            kvSendMeth(error, member, "storeData", &ratio);
        else
            kvSendMeth(error, member, "storeData", 7);
    }
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

void readString(kvObject& error, const uint8_t* data, size_t size) {
    kvObject text = kvNewObject(&error, "StrProp", "before", nullptr, "Text", 1, 0);
    kvObject stream = streamWith(&error, data, size);
    kvSendMeth(&error, text, "readFromStream", stream);
    requireInsideStream(stream);
    const auto* value = reinterpret_cast<const char*>(kvSendMeth(nullptr, text, "fetchData"));
    // Either the old value, or one that came whole from the input after the
    // flags word and the length.
    require(value && std::strlen(value) <= std::max<size_t>(size > 6 ? size - 6 : 0, 6));
    kvDelObject(&error, stream);
    kvDelObject(&error, text);
}

void readBoolean(kvObject& error, const uint8_t* data, size_t size) {
    kvObject truth = kvNewObject(&error, "BoolProp", nullptr, "Truth", 1, 0);
    kvObject stream = streamWith(&error, data, size);
    kvSendMeth(&error, truth, "readFromStream", stream);
    requireInsideStream(stream);
    const kvResult value = kvSendMeth(nullptr, truth, "fetchData");
    require(value == 0 || value == -1);
    kvDelObject(&error, stream);
    kvDelObject(&error, truth);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startKernelOnce();
    kvObject error = nullptr;
    readCollection(error, data, size);
    requireKernelErrors(error);
    readString(error, data, size);
    requireKernelErrors(error);
    readBoolean(error, data, size);
    requireKernelErrors(error);
    require(messageBoxes == 0);
    return 0;
}
