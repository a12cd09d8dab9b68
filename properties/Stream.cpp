// Stream: the abstract byte medium that properties are saved to. It defines
// the byte interface ("Read", "Write", "Seek", which subclasses provide) and
// builds the fixed-width integer methods on it. Integers travel little-endian
// whatever the host's own byte order, so saved data moves between hosts.
#include "errors/Raise.hpp"
#include "kova/kernel.h"

#include <cstdint>
#include <cstring>

namespace {

#pragma pack(push, 1)
struct StreamData {
    int32_t reserved; // part of the saved layout of every stream; never used
};
#pragma pack(pop)

kvClass StreamClass = nullptr;

KV_METHOD_TABLE(streamMethods,                 //
                kova::method("Read", 2),       //
                kova::method("ReadInt16", 1),  //
                kova::method("ReadInt32", 1),  //
                kova::method("Rewind", 0),     //
                kova::method("Seek", 2),       //
                kova::method("Write", 2),      //
                kova::method("WriteInt16", 1), //
                kova::method("WriteInt32", 1));
KV_EMPTY_METHOD_TABLE(streamClassMethods);

// The `width` low bytes of `value`, least significant first.
void toLittleEndian(uint32_t value, unsigned char* bytes, size_t width) {
    for (size_t i = 0; i < width; ++i)
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

uint32_t fromLittleEndian(const unsigned char* bytes, size_t width) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i)
        value |= static_cast<uint32_t>(bytes[i]) << (8 * i);
    return value;
}

// Reads a Cell-sized integer into the caller's cell, which may lie anywhere
// (often inside packed instance data). The cell's current value seeds the
// bytes, so a short read changes only the bytes that arrived, exactly as a
// read straight into the cell would on a little-endian host.
template <typename Cell> void readInteger(kvObject* errSlot, kvObject self, const kvArgs* args) {
    auto* cell = reinterpret_cast<unsigned char*>(kvArgAt(args, 0));
    if (!cell) return;
    Cell value;
    std::memcpy(&value, cell, sizeof value);
    unsigned char bytes[sizeof(Cell)];
    toLittleEndian(value, bytes, sizeof bytes);
    kvSendMeth(errSlot, self, "Read", bytes, static_cast<int32_t>(sizeof bytes));
    value = static_cast<Cell>(fromLittleEndian(bytes, sizeof bytes));
    std::memcpy(cell, &value, sizeof value);
}

// Writes the low `width` bytes of the value argument, least significant first.
void writeInteger(kvObject* errSlot, kvObject self, const kvArgs* args, size_t width) {
    unsigned char bytes[4];
    toLittleEndian(static_cast<uint32_t>(kvArgAt(args, 0)), bytes, width);
    kvSendMeth(errSlot, self, "Write", bytes, static_cast<int32_t>(width));
}

kvResult pureMethod(kvObject* errSlot, kvObject self, const char* method) {
    return kova::raiseError(errSlot, self, StreamClass, 3431, kvClassName(self->cls), method);
}

} // namespace

KV_METHOD(Stream, Read) {
    (void)instData, (void)args;
    return pureMethod(errSlot, self, "Read");
}

// (pointer to a 16-bit cell)
KV_METHOD(Stream, ReadInt16) {
    (void)instData;
    readInteger<uint16_t>(errSlot, self, args);
    return 0;
}

// (pointer to a 32-bit cell)
KV_METHOD(Stream, ReadInt32) {
    (void)instData;
    readInteger<uint32_t>(errSlot, self, args);
    return 0;
}

KV_METHOD(Stream, Rewind) {
    (void)instData, (void)args;
    kvSendMeth(errSlot, self, "Seek", 0, 0);
    return 0;
}

KV_METHOD(Stream, Seek) {
    (void)instData, (void)args;
    return pureMethod(errSlot, self, "Seek");
}

KV_METHOD(Stream, Write) {
    (void)instData, (void)args;
    return pureMethod(errSlot, self, "Write");
}

// (the value itself)
KV_METHOD(Stream, WriteInt16) {
    (void)instData;
    writeInteger(errSlot, self, args, 2);
    return 0;
}

// (the value itself)
KV_METHOD(Stream, WriteInt32) {
    (void)instData;
    writeInteger(errSlot, self, args, 4);
    return 0;
}

KV_REGISTER(Stream) {
    if (!kvRegisterClass("Object")) return nullptr;
    StreamClass = kvAddClass("Stream", "Object", sizeof(StreamData), 0, streamMethods.get(),
                             streamClassMethods.get());
    return StreamClass;
}
