// The value a BlobProp stores and fetches: a block of bytes and its size.
// "storeData" takes a pointer to one (the property copies the bytes);
// "fetchData" answers a pointer to the property's own, which stays valid
// until the next store. The pair is packed, as it lies inside packed
// instance data, so read it through this type rather than a padded copy,
// and take its fields by value (a reference or pointer to a field of a packed
// structure may be misaligned).
#pragma once

#include <cstdint>

#pragma pack(push, 1)
struct kvBlob {
    void* data;    // the bytes, or null for an empty block
    uint32_t size; // number of bytes at `data`
};
#pragma pack(pop)
