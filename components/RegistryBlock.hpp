// The property link registry's tables: each is one contiguous heap block, a
// 6-byte header whose first field is the signed 16-bit record count, then the
// records, packed, in insertion order. A table grows by exactly one record
// per insertion (the new bytes zero-filled) and shrinks by exactly one per
// removal; nothing is reserved ahead. Block sizes are bounded by 16 bits:
// the bound is computed with a record's documented width (its width in the
// 32-bit build), so every build refuses the same insertion.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kova::plr {

#pragma pack(push, 1)
struct BlockHeader {
    int16_t count;       // records that follow
    uint8_t reserved[4]; // always zero
};
#pragma pack(pop)
static_assert(sizeof(BlockHeader) == 6);

// A block's size is a 16-bit number that stays below 0xFFFF.
inline constexpr size_t largestBlock = 0xFFFE;

// Most records a block of records `documentedSize` bytes wide can hold.
constexpr int16_t maxRecords(size_t documentedSize) {
    return static_cast<int16_t>((largestBlock - sizeof(BlockHeader)) / documentedSize);
}

// A new block holding `count` zeroed records of `recordSize` bytes (a bare
// header for 0), or null when no memory could be had.
BlockHeader* newBlock(size_t recordSize, int16_t count);

// Grows `*block` by one zeroed record and counts it. False, with the block
// and its contents as they were, when no memory could be had or when the
// block already holds `limit` records.
bool appendRecord(BlockHeader** block, size_t recordSize, int16_t limit);

// Removes record `index`: the records after it move down by one, the vacated
// last slot is zeroed, the count drops, and the block shrinks to fit (when
// the smaller block cannot be had the larger one is kept).
void removeRecord(BlockHeader** block, size_t recordSize, int16_t index);

// Frees a block (null does nothing) and clears the pointer.
void freeBlock(BlockHeader** block);

inline int16_t countOf(const BlockHeader* block) {
    return block ? block->count : 0;
}

// The records of a block, viewed as packed records of type R.
template <typename R> R* recordsOf(BlockHeader* block) {
    static_assert(alignof(R) == 1, "registry records are packed");
    return reinterpret_cast<R*>(reinterpret_cast<unsigned char*>(block) + sizeof(BlockHeader));
}

} // namespace kova::plr
