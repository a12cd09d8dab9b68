// MemStream: a stream whose bytes live in one heap block. The block is always
// exactly as long as the stream (no spare capacity): a growable stream
// reallocates on every write past its end, a fixed one refuses such writes.
// Positions and lengths are signed 32-bit; every sum is formed in 64 bits so
// that no request, however large or negative, reaches outside the block.
#include "errors/Raise.hpp"
#include "kova/kernel.h"
#include "platform/Platform.hpp"

#include <cstdint>
#include <cstring>
#include <limits>

namespace {

#pragma pack(push, 1)
struct MemStreamData {
    unsigned char* data; // the heap block, owned; null when creation failed
    int32_t position;    // offset of the next byte read or written
    int32_t length;      // the stream's length, and the size of the block
    uint16_t fixed;      // 1: the block never grows; 0: writes past the end grow it
};
#pragma pack(pop)

kvClass MemStreamClass = nullptr;

enum : int16_t { growableMode = 0, fixedMode = 1 };
enum : int16_t { fromStart = 0, fromCurrent = 1, fromEnd = 2 };
constexpr int64_t largestPosition = std::numeric_limits<int32_t>::max();

KV_METHOD_TABLE(memStreamMethods,              //
                kova::method("Read", 2),       //
                kova::method("Seek", 2),       //
                kova::method("Write", 2),      //
                kova::method("getDataPtr", 0), //
                kova::method("getLength", 0),  //
                kova::method("getPos", 0),     //
                kova::method("objInit", 2),    //
                kova::method("objTerm", 0));
KV_EMPTY_METHOD_TABLE(memStreamClassMethods);

MemStreamData* dataOf(void* instData) {
    return static_cast<MemStreamData*>(instData);
}

int32_t int32Arg(const kvArgs* args, size_t index) {
    return static_cast<int32_t>(kvArgAt(args, index));
}

// Makes the block `newLength` bytes long (newLength > length). The new bytes
// start as zeros, so a write after a seek past the end never exposes stale
// heap contents. False, with the stream untouched, when the memory cannot be
// had.
bool grow(MemStreamData* stream, int64_t newLength) {
    auto* grown = static_cast<unsigned char*>(
        kova::platform::reallocate(stream->data, static_cast<size_t>(newLength)));
    if (!grown) return false;
    std::memset(grown + stream->length, 0, static_cast<size_t>(newLength - stream->length));
    stream->data = grown;
    stream->length = static_cast<int32_t>(newLength);
    return true;
}

// Where in the block `buffer` starts, or -1 when it lies outside. A caller may
// write bytes of the stream back into it; growth moves the block, and the
// source must move with it.
int64_t offsetInBlock(const MemStreamData* stream, const unsigned char* buffer) {
    const auto start = reinterpret_cast<uintptr_t>(stream->data);
    const auto at = reinterpret_cast<uintptr_t>(buffer);
    if (at < start || at - start >= static_cast<uintptr_t>(stream->length)) return -1;
    return static_cast<int64_t>(at - start);
}

// The position a seek asks for, or -1 when it is refused. From the end the
// rule is deliberately lopsided: offset 0 is the last byte, -1 the end
// itself, and more negative offsets lie past the end.
int64_t seekTarget(const MemStreamData* stream, int16_t origin, int32_t offset) {
    switch (origin) {
    case fromStart:
        return offset < stream->length ? offset : -1;
    case fromCurrent: {
        const int64_t target = int64_t{stream->position} + offset;
        return target < stream->length ? target : -1;
    }
    case fromEnd: {
        const int64_t target = int64_t{stream->length} - offset - 1;
        return offset <= 0 && target <= largestPosition ? target : -1;
    }
    default:
        return -1;
    }
}

} // namespace

// (mode, size, then the parent's arguments): mode 0 makes a growable stream,
// mode 1 a fixed one; both start `size` zero bytes long at position 0. Any
// other mode, a negative size or no memory raises 3429 and leaves no block.
KV_METHOD(MemStream, objInit) {
    const kvArgs rest = kvArgsAfter(args, 2);
    kvSendParentMethNA(errSlot, MemStreamClass, self, "objInit", &rest);
    MemStreamData* stream = dataOf(instData);
    const auto mode = static_cast<int16_t>(kvArgAt(args, 0));
    const int32_t size = int32Arg(args, 1);
    *stream = MemStreamData{nullptr, 0, 0, fixedMode};
    if ((mode != growableMode && mode != fixedMode) || size < 0)
        return kova::raiseError(errSlot, self, MemStreamClass, 3429);
    stream->data = static_cast<unsigned char*>(kova::platform::allocateZeroed(size_t(size)));
    if (!stream->data) return kova::raiseError(errSlot, self, MemStreamClass, 3429);
    stream->length = size;
    stream->fixed = static_cast<uint16_t>(mode);
    return 0;
}

KV_METHOD(MemStream, objTerm) {
    kova::platform::release(dataOf(instData)->data);
    dataOf(instData)->data = nullptr;
    return kvSendParentMethNA(errSlot, MemStreamClass, self, "objTerm", args);
}

// (buffer, count): copies up to `count` bytes from the position and answers
// how many; 0 at or past the end. Answers -1 without reading when there is no
// block, no buffer, or the count is 0 or negative. A read never raises.
KV_METHOD(MemStream, Read) {
    (void)errSlot, (void)self;
    MemStreamData* stream = dataOf(instData);
    auto* buffer = reinterpret_cast<unsigned char*>(kvArgAt(args, 0));
    const int32_t count = int32Arg(args, 1);
    if (!stream->data || !buffer || count <= 0) return -1;
    if (stream->position >= stream->length) return 0;
    const int32_t available = stream->length - stream->position;
    const int32_t n = count < available ? count : available;
    std::memcpy(buffer, stream->data + stream->position, size_t(n));
    stream->position += n;
    return n;
}

// (buffer, count): copies `count` bytes to the position, growing a growable
// block to exactly the new end. Answers the count; -1 with no block or a
// count of 0. A fixed stream that would overflow, a failed growth, a negative
// count or a null buffer raise 3437 and answer 0 with the stream unchanged.
KV_METHOD(MemStream, Write) {
    MemStreamData* stream = dataOf(instData);
    const auto* buffer = reinterpret_cast<const unsigned char*>(kvArgAt(args, 0));
    const int32_t count = int32Arg(args, 1);
    if (!stream->data || count == 0) return -1;
    if (!buffer || count < 0) return kova::raiseError(errSlot, self, MemStreamClass, 3437);
    const int64_t end = int64_t{stream->position} + count;
    if (end > stream->length) {
        const int64_t sourceOffset = offsetInBlock(stream, buffer);
        if (stream->fixed || end > largestPosition || !grow(stream, end))
            return kova::raiseError(errSlot, self, MemStreamClass, 3437);
        if (sourceOffset >= 0) buffer = stream->data + sourceOffset;
    }
    std::memmove(stream->data + stream->position, buffer, size_t(count));
    stream->position = static_cast<int32_t>(end);
    return count;
}

// (origin, offset): origin 0 from the start, 1 from the position, 2 from the
// end (see seekTarget). A refused seek, including any other origin, raises
// 3438 and keeps the position.
KV_METHOD(MemStream, Seek) {
    MemStreamData* stream = dataOf(instData);
    const auto origin = static_cast<int16_t>(kvArgAt(args, 0));
    const int64_t target = seekTarget(stream, origin, int32Arg(args, 1));
    if (target < 0) return kova::raiseError(errSlot, self, MemStreamClass, 3438);
    stream->position = static_cast<int32_t>(target);
    return 0;
}

// The block stays owned by the stream and moves when a write grows it.
KV_METHOD(MemStream, getDataPtr) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->data);
}

KV_METHOD(MemStream, getLength) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->length;
}

KV_METHOD(MemStream, getPos) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->position;
}

KV_REGISTER(MemStream) {
    if (!kvRegisterClass("Stream")) return nullptr;
    MemStreamClass = kvAddClass("MemStream", "Stream", sizeof(MemStreamData), 0,
                                memStreamMethods.get(), memStreamClassMethods.get());
    return MemStreamClass;
}
