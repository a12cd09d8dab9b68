// The index by which a property collection finds a member by name without
// walking its members: a hash table of the members keyed by their names
// folded to lower case (ASCII), each entry holding the member's position in
// the collection. Internal to the library.
//
// The index is a cache of what the collection's Collection holds, kept up to
// date by the property collection as it adds and removes members and as it
// hears of renames ("OnWillChangeName" comes before the rename, so a member
// that announced one is indexed again, under the name it then has, at the
// next look-up). What it cannot hear of it checks for: a look-up compares the
// member count with the Collection's and a hit's position and name with what
// the Collection and the member answer, and on any difference the index is
// built again from the Collection. Where two members hold one name (only
// changes made behind the property collection's back can do that), the
// index holds the one at the lower position, so the first match wins as in a
// walk over the members.
#pragma once

#include "kova/kernel.h"

#include <cstdint>

namespace kova::props {

// True when the names are equal without regard to (ASCII) case.
bool namesMatch(const char* a, const char* b);

class NameIndex {
  public:
    enum class Outcome { Found, Missing, Unsure };
    struct Match {
        Outcome outcome;
        kvObject member;  // the member found, or null
        int32_t position; // its position in the collection, or -1
    };

    // The index of property collection `owner` for its Collection
    // `collection`, made or rebuilt when needed. Null when no memory could be
    // had: the caller then walks the members itself.
    static NameIndex* prepared(kvObject owner, kvObject collection);
    // The index of `owner` as it stands, or null when there is none.
    static NameIndex* existing(kvObject owner);
    // Forgets the index of `owner`, whose Collection is gone or going.
    static void drop(kvObject owner);

    // The first member whose name equals `name` without regard to case.
    // Unsure when the index found itself out of date; it is then rebuilt at
    // the next preparation, and the caller walks the members this time.
    Match find(const char* name);

    // `member` has been placed at `position` (-1: appended).
    void placed(kvObject member, int32_t position);
    // `member` has been taken out of the collection.
    void removed(kvObject member);
    // `member` is about to change its name.
    void renaming(kvObject member);

  private:
    struct Entry {
        kvObject member;  // null for a free slot
        uint32_t hash;    // of the folded name the member was indexed under
        int32_t position; // in the collection
    };
    struct Pending {
        kvObject member;  // a member that announced a rename
        int32_t position; // in the collection
    };

    bool rebuild();
    bool reindexPending();
    bool insert(kvObject member, const char* name, int32_t position);
    bool grow();
    Entry* slotOf(kvObject member, const char* name);
    void erase(Entry* slot);
    void shiftPositions(int32_t from, int32_t by);
    bool takePending(kvObject member, int32_t* position);
    void clear();
    void release();

    kvObject collection; // the Collection described
    int32_t count;       // members it holds as far as the index knows
    bool stale;          // to be rebuilt before use
    int32_t shadowed;    // members left out because an earlier one holds their name
    Entry* slots;        // open addressing, linear probing; capacity a power of 2
    uint32_t capacity;
    uint32_t used;
    Pending* pending; // members to index again under their new names
    uint32_t pendingCount;
    uint32_t pendingCapacity;
};

} // namespace kova::props
