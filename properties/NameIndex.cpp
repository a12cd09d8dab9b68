// The name index of property collections (see the header), and the table that
// finds each collection's index: the property collection's instance data
// keeps its documented fields only, so its index lives beside it.
#include "properties/NameIndex.hpp"

#include "platform/Platform.hpp"
#include "properties/PrivateSlot.hpp"

#include <cstring>

namespace kova::props {

namespace {

constexpr uint32_t firstCapacity = 16;

char foldCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// FNV-1a of the name folded to lower case.
uint32_t hashOf(const char* name) {
    uint32_t hash = 2166136261u;
    for (; *name; ++name)
        hash = (hash ^ static_cast<uint8_t>(foldCase(*name))) * 16777619u;
    return hash;
}

uint32_t hashOf(kvObject owner) {
    const auto bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(owner));
    return static_cast<uint32_t>((bits >> 3) * 0x9E3779B97F4A7C15ull >> 32);
}

const char* nameOf(kvObject member) {
    PrivateSlot quiet;
    return reinterpret_cast<const char*>(kvSendMeth(quiet.get(), member, "getName"));
}

kvObject memberAt(kvObject collection, int32_t position) {
    PrivateSlot quiet;
    return reinterpret_cast<kvObject>(kvSendMeth(quiet.get(), collection, "getObject", position));
}

int32_t countOf(kvObject collection) {
    PrivateSlot quiet;
    return static_cast<int32_t>(kvSendMeth(quiet.get(), collection, "getCount"));
}

// Every property collection's index, by collection object: open addressing
// with linear probing, at most half full, freed when the last index goes.
struct Owner {
    kvObject owner; // null for a free slot
    NameIndex* index;
};
Owner* owners = nullptr;
uint32_t ownerCapacity = 0;
uint32_t ownerCount = 0;

Owner* ownerSlot(kvObject owner) {
    if (!owners) return nullptr;
    const uint32_t mask = ownerCapacity - 1;
    for (uint32_t at = hashOf(owner) & mask;; at = (at + 1) & mask) {
        if (owners[at].owner == owner) return &owners[at];
        if (!owners[at].owner) return nullptr;
    }
}

void placeOwner(Owner* table, uint32_t capacity, Owner entry) {
    const uint32_t mask = capacity - 1;
    uint32_t at = hashOf(entry.owner) & mask;
    while (table[at].owner)
        at = (at + 1) & mask;
    table[at] = entry;
}

bool addOwner(kvObject owner, NameIndex* index) {
    if ((ownerCount + 1) * 2 > ownerCapacity) {
        const uint32_t capacity = ownerCapacity ? ownerCapacity * 2 : firstCapacity;
        auto* table = static_cast<Owner*>(platform::allocateZeroed(capacity * sizeof(Owner)));
        if (!table) return false;
        for (uint32_t i = 0; i < ownerCapacity; ++i)
            if (owners[i].owner) placeOwner(table, capacity, owners[i]);
        platform::release(owners);
        owners = table;
        ownerCapacity = capacity;
    }
    placeOwner(owners, ownerCapacity, {owner, index});
    ++ownerCount;
    return true;
}

// Removes a slot of a linear-probing table by moving later entries of its
// run back, so that no look-up ever stops short of its entry.
template <typename Slot, typename Key, typename Home>
void eraseSlot(Slot* table, uint32_t capacity, Slot* slot, Key isUsed, Home homeOf) {
    const uint32_t mask = capacity - 1;
    auto hole = static_cast<uint32_t>(slot - table);
    for (uint32_t at = (hole + 1) & mask; isUsed(table[at]); at = (at + 1) & mask) {
        const uint32_t home = homeOf(table[at]) & mask;
        // The entry may fill the hole when its home does not lie in (hole, at].
        const bool homeBetween =
            hole <= at ? (home > hole && home <= at) : (home > hole || home <= at);
        if (homeBetween) continue;
        table[hole] = table[at];
        hole = at;
    }
    table[hole] = Slot{};
}

void removeOwner(Owner* slot) {
    eraseSlot(
        owners, ownerCapacity, slot, [](const Owner& o) { return o.owner != nullptr; },
        [](const Owner& o) { return hashOf(o.owner); });
    if (--ownerCount == 0) {
        platform::release(owners);
        owners = nullptr;
        ownerCapacity = 0;
    }
}

} // namespace

bool namesMatch(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b)
        if (foldCase(*a) != foldCase(*b)) return false;
    return *a == *b;
}

NameIndex* NameIndex::existing(kvObject owner) {
    const Owner* slot = ownerSlot(owner);
    return slot ? slot->index : nullptr;
}

NameIndex* NameIndex::prepared(kvObject owner, kvObject collection) {
    NameIndex* index = existing(owner);
    if (!index) {
        index = static_cast<NameIndex*>(platform::allocateZeroed(sizeof(NameIndex)));
        if (!index) return nullptr;
        index->stale = true;
        if (!addOwner(owner, index)) {
            platform::release(index);
            return nullptr;
        }
    }
    if (index->collection != collection || index->count != countOf(collection)) {
        index->collection = collection;
        index->stale = true;
    }
    if (!index->stale && index->reindexPending()) return index;
    return index->rebuild() ? index : nullptr;
}

void NameIndex::drop(kvObject owner) {
    Owner* slot = ownerSlot(owner);
    if (!slot) return;
    NameIndex* index = slot->index;
    removeOwner(slot);
    index->release();
    platform::release(index);
}

// A hit is checked against the Collection; a miss is trusted.
NameIndex::Match NameIndex::find(const char* name) {
    if (!capacity) return {Outcome::Missing, nullptr, -1};
    const uint32_t hash = hashOf(name);
    const uint32_t mask = capacity - 1;
    for (uint32_t at = hash & mask; slots[at].member; at = (at + 1) & mask) {
        const Entry& entry = slots[at];
        if (entry.hash != hash) continue;
        const char* held = nameOf(entry.member);
        if (!held || !namesMatch(held, name)) continue;
        if (memberAt(collection, entry.position) == entry.member)
            return {Outcome::Found, entry.member, entry.position};
        stale = true;
        return {Outcome::Unsure, nullptr, -1};
    }
    return {Outcome::Missing, nullptr, -1};
}

void NameIndex::placed(kvObject member, int32_t position) {
    if (stale) return;
    if (position < 0 || position > count) position = count;
    if (position < count) shiftPositions(position, 1);
    ++count;
    const char* name = nameOf(member);
    if (name && *name && !insert(member, name, position)) stale = true;
}

void NameIndex::removed(kvObject member) {
    if (stale) return;
    int32_t position = -1;
    if (!takePending(member, &position)) {
        const char* name = nameOf(member);
        Entry* slot = name && *name ? slotOf(member, name) : nullptr;
        if (!slot) {
            stale = true;
            return;
        }
        position = slot->position;
        erase(slot);
    }
    shiftPositions(position + 1, -1);
    --count;
    // A member left out for holding an earlier one's name may be first now.
    if (shadowed) stale = true;
}

void NameIndex::renaming(kvObject member) {
    if (stale) return;
    int32_t position = -1;
    // A member that announced a rename before and has not been indexed since
    // is indexed again once, under the name it holds at the next look-up.
    if (!takePending(member, &position)) {
        const char* name = nameOf(member);
        Entry* slot = name && *name ? slotOf(member, name) : nullptr;
        if (!slot) {
            stale = true;
            return;
        }
        position = slot->position;
        erase(slot);
    }
    if (pendingCount == pendingCapacity) {
        const uint32_t capacity = pendingCapacity ? pendingCapacity * 2 : 4;
        auto* grown =
            static_cast<Pending*>(platform::reallocate(pending, capacity * sizeof(Pending)));
        if (!grown) {
            stale = true;
            return;
        }
        pending = grown;
        pendingCapacity = capacity;
    }
    pending[pendingCount++] = {member, position};
}

// Indexes every member the Collection holds, in order, keeping the first of
// members that share a name.
bool NameIndex::rebuild() {
    clear();
    const int32_t total = countOf(collection);
    for (int32_t position = 0; position < total; ++position) {
        const kvObject member = memberAt(collection, position);
        const char* name = member ? nameOf(member) : nullptr;
        if (name && *name && !insert(member, name, position)) {
            clear();
            return false;
        }
    }
    count = total;
    stale = false;
    return true;
}

// Indexes the members that announced renames under the names they hold now
// (a rename that was vetoed or failed leaves the old one).
bool NameIndex::reindexPending() {
    while (pendingCount) {
        const Pending last = pending[--pendingCount];
        const char* name = nameOf(last.member);
        if (name && *name && !insert(last.member, name, last.position)) {
            stale = true;
            return false;
        }
    }
    return true;
}

// Adds an entry. When a member already holds the name, the one at the lower
// position stays indexed and the other is counted as shadowed.
bool NameIndex::insert(kvObject member, const char* name, int32_t position) {
    if ((used + 1) * 2 > capacity && !grow()) return false;
    const uint32_t hash = hashOf(name);
    const uint32_t mask = capacity - 1;
    uint32_t at = hash & mask;
    for (; slots[at].member; at = (at + 1) & mask) {
        Entry& entry = slots[at];
        if (entry.hash != hash) continue;
        const char* held = nameOf(entry.member);
        if (!held || !namesMatch(held, name)) continue;
        ++shadowed;
        if (position < entry.position) entry = {member, hash, position};
        return true;
    }
    slots[at] = {member, hash, position};
    ++used;
    return true;
}

bool NameIndex::grow() {
    const uint32_t larger = capacity ? capacity * 2 : firstCapacity;
    auto* table = static_cast<Entry*>(platform::allocateZeroed(larger * sizeof(Entry)));
    if (!table) return false;
    const uint32_t mask = larger - 1;
    for (uint32_t i = 0; i < capacity; ++i) {
        if (!slots[i].member) continue;
        uint32_t at = slots[i].hash & mask;
        while (table[at].member)
            at = (at + 1) & mask;
        table[at] = slots[i];
    }
    platform::release(slots);
    slots = table;
    capacity = larger;
    return true;
}

// The entry of `member`, indexed under `name`, or null.
NameIndex::Entry* NameIndex::slotOf(kvObject member, const char* name) {
    if (!capacity) return nullptr;
    const uint32_t mask = capacity - 1;
    for (uint32_t at = hashOf(name) & mask; slots[at].member; at = (at + 1) & mask)
        if (slots[at].member == member) return &slots[at];
    return nullptr;
}

void NameIndex::erase(Entry* slot) {
    eraseSlot(
        slots, capacity, slot, [](const Entry& e) { return e.member != nullptr; },
        [](const Entry& e) { return e.hash; });
    --used;
}

// Adds `by` to every position from `from` on, as the Collection moved them.
void NameIndex::shiftPositions(int32_t from, int32_t by) {
    for (uint32_t i = 0; i < capacity; ++i)
        if (slots[i].member && slots[i].position >= from) slots[i].position += by;
    for (uint32_t i = 0; i < pendingCount; ++i)
        if (pending[i].position >= from) pending[i].position += by;
}

bool NameIndex::takePending(kvObject member, int32_t* position) {
    for (uint32_t i = 0; i < pendingCount; ++i) {
        if (pending[i].member != member) continue;
        *position = pending[i].position;
        pending[i] = pending[--pendingCount];
        return true;
    }
    return false;
}

void NameIndex::clear() {
    if (slots) std::memset(slots, 0, capacity * sizeof(Entry));
    used = 0;
    shadowed = 0;
    pendingCount = 0;
    count = 0;
    stale = true;
}

void NameIndex::release() {
    platform::release(slots);
    platform::release(pending);
}

} // namespace kova::props
