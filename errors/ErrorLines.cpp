// The message table of one registration, built line by line in a movable
// block. The block grows by doubling while lines are read and is trimmed when
// handed over, so a long file costs no quadratic copying.
#include "errors/ErrorLines.hpp"

#include <algorithm>
#include <cstring>

namespace kova::errors {

namespace {

constexpr size_t firstCapacity = 16;

// Copies at most messageTextSize - 1 characters of `text` and a terminator.
void storeText(char (&field)[messageTextSize], std::string_view text) {
    const size_t length = std::min(text.size(), messageTextSize - 1);
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

} // namespace

// Makes room for at least one more entry; false (and nothing changed) when the
// memory could not be had.
bool MessageTable::grow() {
    const size_t capacity = capacity_ ? std::min(capacity_ * 2, maxMessages) : firstCapacity;
    platform::MemoryHandle block = platform::globalReAlloc(block_, capacity * sizeof(MessageEntry));
    if (!block) return false;
    block_ = block;
    capacity_ = capacity;
    return true;
}

bool MessageTable::add(const ErrorLine& line) {
    if (count_ == maxMessages) return true;
    if (count_ == capacity_ && !grow()) return false;
    auto* entries = static_cast<MessageEntry*>(platform::globalLock(block_));
    MessageEntry& entry = entries[count_];
    entry.number = line.number;
    storeText(entry.text, line.text);
    entry.helpContext = line.helpContext;
    platform::globalUnlock(block_);
    ++count_;
    return true;
}

platform::MemoryHandle MessageTable::release() {
    if (count_ == 0) {
        platform::globalFree(block_);
        block_ = nullptr;
    } else if (count_ < capacity_) {
        // A failed trim only leaves unused room at the end of the block.
        if (platform::MemoryHandle trimmed =
                platform::globalReAlloc(block_, count_ * sizeof(MessageEntry)))
            block_ = trimmed;
    }
    platform::MemoryHandle block = block_;
    block_ = nullptr;
    count_ = capacity_ = 0;
    return block;
}

} // namespace kova::errors
