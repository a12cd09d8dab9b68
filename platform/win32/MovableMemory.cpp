// Movable memory on Windows: the system's global memory handles. Each
// allocation is counted and can be made to fail like the library's heap.
#include "platform/Platform.hpp"

#include <windows.h>

namespace kova::platform {
bool admitAllocation(); // Memory.cpp
} // namespace kova::platform

namespace {

// A moveable block of 0 bytes is born discarded and cannot be locked, where
// the POSIX block can: both always hold at least one byte.
SIZE_T atLeastOne(size_t size) {
    return size ? size : 1;
}

} // namespace

namespace kova::platform {

MemoryHandle globalAlloc(size_t size) {
    if (!admitAllocation()) return nullptr;
    return ::GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, atLeastOne(size));
}

MemoryHandle globalAllocUncleared(size_t size) {
    if (!admitAllocation()) return nullptr;
    return ::GlobalAlloc(GMEM_MOVEABLE, atLeastOne(size));
}

MemoryHandle globalReAlloc(MemoryHandle handle, size_t size) {
    if (!handle) return globalAlloc(size);
    if (!admitAllocation()) return nullptr;
    return ::GlobalReAlloc(static_cast<HGLOBAL>(handle), atLeastOne(size),
                           GMEM_MOVEABLE | GMEM_ZEROINIT);
}

void* globalLock(MemoryHandle handle) {
    return handle ? ::GlobalLock(static_cast<HGLOBAL>(handle)) : nullptr;
}

void globalUnlock(MemoryHandle handle) {
    if (handle) ::GlobalUnlock(static_cast<HGLOBAL>(handle));
}

void globalFree(MemoryHandle handle) {
    if (handle) ::GlobalFree(static_cast<HGLOBAL>(handle));
}

size_t globalSize(MemoryHandle handle) {
    return handle ? ::GlobalSize(static_cast<HGLOBAL>(handle)) : 0;
}

} // namespace kova::platform
