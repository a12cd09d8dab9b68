// A hash table keyed by a pair of addresses, for the kernel's side records
// that must be found in constant time without changing the layout of the
// records they describe (which subscriptions an object holds, which errors
// were retired). Open addressing with linear probing; a removal shifts the
// entries after it back, so no tombstones pile up. Memory comes from the
// platform allocator; a table that cannot grow refuses new keys.
#pragma once

#include "platform/Platform.hpp"

#include <cstddef>
#include <cstdint>

namespace kova::kernel {

template <typename Value> class PairTable {
  public:
    PairTable() = default;
    PairTable(const PairTable&) = delete;
    PairTable& operator=(const PairTable&) = delete;
    ~PairTable() { platform::release(slots_); }

    size_t size() const { return count_; }

    // The value of (first, second), or null when absent.
    Value* find(const void* first, const void* second) {
        if (count_ == 0) return nullptr;
        for (size_t i = home(first, second);; i = (i + 1) & mask()) {
            Slot& slot = slots_[i];
            if (!slot.used) return nullptr;
            if (slot.first == first && slot.second == second) return &slot.value;
        }
    }

    // The value of (first, second), made value-initialised when absent; null
    // when the table had to grow and no memory could be had.
    Value* insert(const void* first, const void* second) {
        if (Value* existing = find(first, second)) return existing;
        if ((count_ + 1) * 4 > capacity_ * 3 && !grow()) return nullptr;
        size_t i = home(first, second);
        while (slots_[i].used)
            i = (i + 1) & mask();
        slots_[i] = Slot{first, second, Value{}, true};
        ++count_;
        return &slots_[i].value;
    }

    // Removes (first, second) when present. Values found before may move.
    void erase(const void* first, const void* second) {
        if (count_ == 0) return;
        size_t hole = home(first, second);
        for (;; hole = (hole + 1) & mask()) {
            if (!slots_[hole].used) return;
            if (slots_[hole].first == first && slots_[hole].second == second) break;
        }
        // Moves back every later entry of the run that may sit in the hole:
        // one whose home is not between the hole and its own place.
        for (size_t i = (hole + 1) & mask(); slots_[i].used; i = (i + 1) & mask()) {
            const size_t want = home(slots_[i].first, slots_[i].second);
            const bool wantAfterHole = ((i - want) & mask()) < ((i - hole) & mask());
            if (wantAfterHole) continue;
            slots_[hole] = slots_[i];
            hole = i;
        }
        slots_[hole].used = false;
        --count_;
    }

    // Frees every entry and the table's memory.
    void clear() {
        platform::release(slots_);
        slots_ = nullptr;
        capacity_ = count_ = 0;
    }

  private:
    struct Slot {
        const void* first;
        const void* second;
        Value value;
        bool used;
    };

    size_t mask() const { return capacity_ - 1; }

    size_t home(const void* first, const void* second) const {
        uint64_t h = reinterpret_cast<uintptr_t>(first) * 0x9E3779B97F4A7C15ull;
        h ^= reinterpret_cast<uintptr_t>(second) * 0xC2B2AE3D27D4EB4Full;
        h ^= h >> 29;
        return static_cast<size_t>(h) & mask();
    }

    bool grow() {
        const size_t capacity = capacity_ ? capacity_ * 2 : 16;
        auto* slots = static_cast<Slot*>(platform::allocateZeroed(capacity * sizeof(Slot)));
        if (!slots) return false;
        Slot* old = slots_;
        const size_t oldCapacity = capacity_;
        slots_ = slots;
        capacity_ = capacity;
        for (size_t i = 0; i < oldCapacity; ++i) {
            if (!old[i].used) continue;
            size_t j = home(old[i].first, old[i].second);
            while (slots_[j].used)
                j = (j + 1) & mask();
            slots_[j] = old[i];
        }
        platform::release(old);
        return true;
    }

    Slot* slots_ = nullptr;
    size_t capacity_ = 0; // a power of two, or 0
    size_t count_ = 0;
};

} // namespace kova::kernel
