// The growable blocks of the property link registry's tables.
#include "components/RegistryBlock.hpp"
#include "platform/Platform.hpp"

#include <cstring>

namespace kova::plr {
namespace {

size_t blockSize(size_t recordSize, int16_t count) {
    return sizeof(BlockHeader) + static_cast<size_t>(count) * recordSize;
}

unsigned char* recordAt(BlockHeader* block, size_t recordSize, int16_t index) {
    return recordsOf<unsigned char>(block) + static_cast<size_t>(index) * recordSize;
}

} // namespace

BlockHeader* newBlock(size_t recordSize, int16_t count) {
    return static_cast<BlockHeader*>(platform::allocateZeroed(blockSize(recordSize, count)));
}

bool appendRecord(BlockHeader** block, size_t recordSize, int16_t limit) {
    const int16_t count = (*block)->count;
    if (count >= limit) return false;
    auto* grown = static_cast<BlockHeader*>(
        platform::reallocate(*block, blockSize(recordSize, static_cast<int16_t>(count + 1))));
    if (!grown) return false;
    std::memset(recordAt(grown, recordSize, count), 0, recordSize);
    grown->count = static_cast<int16_t>(count + 1);
    *block = grown;
    return true;
}

void removeRecord(BlockHeader** block, size_t recordSize, int16_t index) {
    BlockHeader* table = *block;
    const int16_t last = static_cast<int16_t>(table->count - 1);
    std::memmove(recordAt(table, recordSize, index), recordAt(table, recordSize, index + 1),
                 static_cast<size_t>(last - index) * recordSize);
    std::memset(recordAt(table, recordSize, last), 0, recordSize);
    table->count = last;
    if (auto* smaller =
            static_cast<BlockHeader*>(platform::reallocate(table, blockSize(recordSize, last))))
        *block = smaller;
}

void freeBlock(BlockHeader** block) {
    platform::release(*block);
    *block = nullptr;
}

} // namespace kova::plr
