// Movable memory blocks: a handle is a small header in front of the bytes, so
// that a block can be resized and is locked around each use as on Windows.
#include "platform/Platform.hpp"

#include <cstring>

namespace {

struct alignas(std::max_align_t) Block {
    size_t size;    // bytes after the header
    unsigned locks; // current lock count
};

unsigned char* bytesOf(Block* block) {
    return reinterpret_cast<unsigned char*>(block + 1);
}

} // namespace

namespace kova::platform {

MemoryHandle globalAlloc(size_t size) {
    auto* block = static_cast<Block*>(allocateZeroed(sizeof(Block) + size));
    if (block) block->size = size;
    return block;
}

MemoryHandle globalAllocUncleared(size_t size) {
    auto* block = static_cast<Block*>(allocate(sizeof(Block) + size));
    if (block) *block = Block{size, 0};
    return block;
}

MemoryHandle globalReAlloc(MemoryHandle handle, size_t size) {
    if (!handle) return globalAlloc(size);
    auto* old = static_cast<Block*>(handle);
    const size_t oldSize = old->size;
    auto* block = static_cast<Block*>(reallocate(old, sizeof(Block) + size));
    if (!block) return nullptr;
    if (size > oldSize) std::memset(bytesOf(block) + oldSize, 0, size - oldSize);
    block->size = size;
    return block;
}

void* globalLock(MemoryHandle handle) {
    if (!handle) return nullptr;
    auto* block = static_cast<Block*>(handle);
    ++block->locks;
    return bytesOf(block);
}

void globalUnlock(MemoryHandle handle) {
    if (handle && static_cast<Block*>(handle)->locks) --static_cast<Block*>(handle)->locks;
}

void globalFree(MemoryHandle handle) {
    release(handle);
}

size_t globalSize(MemoryHandle handle) {
    return handle ? static_cast<Block*>(handle)->size : 0;
}

} // namespace kova::platform
