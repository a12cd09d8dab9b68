// A standard-library allocator over the library's heap, so that containers
// inside the platform layer allocate where tests can make allocations fail.
// A failed allocation throws std::bad_alloc, which the platform function that
// owns the container catches and turns into its failure answer.
#pragma once

#include "platform/Platform.hpp"

#include <new>
#include <string>
#include <vector>

namespace kova::platform {

template <typename T> struct HeapAllocator {
    using value_type = T;
    HeapAllocator() = default;
    template <typename U> HeapAllocator(const HeapAllocator<U>&) {}
    T* allocate(size_t count) {
        if (count > static_cast<size_t>(-1) / sizeof(T)) throw std::bad_alloc();
        void* block = platform::allocate(count * sizeof(T));
        if (!block) throw std::bad_alloc();
        return static_cast<T*>(block);
    }
    void deallocate(T* block, size_t) { platform::release(block); }
    template <typename U> bool operator==(const HeapAllocator<U>&) const { return true; }
};

using HeapString = std::basic_string<char, std::char_traits<char>, HeapAllocator<char>>;
template <typename T> using HeapVector = std::vector<T, HeapAllocator<T>>;

} // namespace kova::platform
