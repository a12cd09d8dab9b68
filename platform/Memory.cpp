// The library's heap. Every allocation passes through here so that tests can
// make the n-th one fail and check each out-of-memory path.
#include "platform/Platform.hpp"

#include <cstdlib>
#include <cstring>

namespace {

long allocationsBeforeFailure = -1; // -1: never fail
bool failOnlyOnce = false;          // the failure ends the failing
unsigned long allocationCount = 0;

} // namespace

namespace kova::platform {

// Counts one allocation; false when the test switch says this one fails. Also
// asked by movable memory where the system, not this heap, allocates it.
bool admitAllocation() {
    if (allocationsBeforeFailure == 0) {
        if (failOnlyOnce) allocationsBeforeFailure = -1;
        return false;
    }
    if (allocationsBeforeFailure > 0) --allocationsBeforeFailure;
    ++allocationCount;
    return true;
}

void* allocate(size_t size) {
    if (!admitAllocation()) return nullptr;
    return std::malloc(size ? size : 1);
}

void* allocateZeroed(size_t size) {
    if (!admitAllocation()) return nullptr;
    return std::calloc(1, size ? size : 1);
}

void* reallocate(void* block, size_t size) {
    if (!admitAllocation()) return nullptr;
    return std::realloc(block, size ? size : 1);
}

void release(void* block) {
    std::free(block);
}

char* duplicate(const char* text) {
    if (!text) return nullptr;
    const size_t size = std::strlen(text) + 1;
    auto* copy = static_cast<char*>(allocate(size));
    if (copy) std::memcpy(copy, text, size);
    return copy;
}

} // namespace kova::platform

extern "C" KV_API void kvDebugFailAllocAfter(long count) {
    allocationsBeforeFailure = count < 0 ? -1 : count;
    failOnlyOnce = false;
}

extern "C" KV_API void kvDebugFailAllocOnce(long count) {
    allocationsBeforeFailure = count < 0 ? -1 : count;
    failOnlyOnce = true;
}

extern "C" KV_API unsigned long kvDebugAllocCount(void) {
    return allocationCount;
}
