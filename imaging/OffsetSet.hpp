// A set of non-zero 32-bit file offsets, for noticing a directory chain that
// comes back to a directory already read. Open addressing with linear
// probing in a table of a power-of-two size kept at most half full; its
// memory comes from the library's heap.
#pragma once

#include "platform/Platform.hpp"

#include <cstdint>
#include <cstring>

namespace kova::tiff {

class OffsetSet {
  public:
    OffsetSet() = default;
    OffsetSet(const OffsetSet&) = delete;
    OffsetSet& operator=(const OffsetSet&) = delete;
    ~OffsetSet() { kova::platform::release(slots_); }

    enum class Added { New, Present, OutOfMemory };

    // Adds `offset` (never 0, which marks a free slot).
    Added add(uint32_t offset) {
        if ((count_ + 1) * 2 > capacity_ && !grow()) return Added::OutOfMemory;
        uint32_t* slot = find(slots_, capacity_, offset);
        if (*slot == offset) return Added::Present;
        *slot = offset;
        ++count_;
        return Added::New;
    }

  private:
    // The slot holding `offset`, or the free slot where it belongs.
    static uint32_t* find(uint32_t* slots, uint32_t capacity, uint32_t offset) {
        uint32_t i = (offset * 2654435761u) & (capacity - 1);
        while (slots[i] != 0 && slots[i] != offset)
            i = (i + 1) & (capacity - 1);
        return &slots[i];
    }

    bool grow() {
        const uint32_t capacity = capacity_ ? capacity_ * 2 : 64;
        if (capacity < capacity_) return false;
        auto* slots = static_cast<uint32_t*>(
            kova::platform::allocateZeroed(size_t(capacity) * sizeof(uint32_t)));
        if (!slots) return false;
        for (uint32_t i = 0; i < capacity_; ++i)
            if (slots_[i] != 0) *find(slots, capacity, slots_[i]) = slots_[i];
        kova::platform::release(slots_);
        slots_ = slots;
        capacity_ = capacity;
        return true;
    }

    uint32_t* slots_ = nullptr;
    uint32_t capacity_ = 0;
    uint32_t count_ = 0;
};

} // namespace kova::tiff
