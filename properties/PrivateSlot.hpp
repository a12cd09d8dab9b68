// An error slot that a method keeps to itself, for sends whose failure is an
// expected answer rather than news for the caller: a look-up that finds
// nothing, a walk that runs off its end, a traversal of an empty collection.
// Whatever the slot holds when it goes out of scope is deleted.
#pragma once

#include "kernel/Kernel.hpp"

namespace kova {

class PrivateSlot {
  public:
    PrivateSlot() = default;
    PrivateSlot(const PrivateSlot&) = delete;
    PrivateSlot& operator=(const PrivateSlot&) = delete;
    ~PrivateSlot() { kernel::discardErrors(error); }

    kvObject* get() { return &error; }
    bool holdsError() const { return error != nullptr; }

    // Deletes what the slot holds, so that the next send starts clean.
    void clear() {
        kernel::discardErrors(error);
        error = nullptr;
    }

  private:
    kvObject error = nullptr;
};

} // namespace kova
