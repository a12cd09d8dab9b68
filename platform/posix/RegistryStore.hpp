// The registry store of POSIX: the tree of keys kept in memory and its text
// form on disk. The file is
//
//     KOVA registry store 1
//     KOVA
//     KOVA\Protocols
//     KOVA\Protocols\Display=DispPM
//     end of store
//
// one line per key, parents before their subkeys, each key's path followed by
// "=" and its default value when it has one. In paths and values "%", "=" and
// control characters are written as "%XX" (two hexadecimal digits). The last
// line marks a complete file: a store cut short anywhere is refused as a
// whole rather than read in part.
#pragma once

#include "platform/HeapAllocator.hpp"

#include <string>
#include <string_view>

namespace kova::platform {

struct RegistryKey {
    HeapString name;                 // as created; compared without regard to case
    bool hasValue = false;           // whether the default value is set
    HeapString value;                // the default value
    HeapVector<RegistryKey> subkeys; // in order of their names, without regard to case
};

// Limits of the registry: a key name's length, the depth of a path, and the
// size of a store file that is read at all.
constexpr size_t maxKeyNameLength = 255;
constexpr size_t maxKeyDepth = 512;
constexpr size_t maxStoreSize = 64u << 20;

// The key at `path` below `root`, or null; the empty path is the root.
RegistryKey* findRegistryKey(RegistryKey& root, std::string_view path);
// The key at `path`, made with the keys above it when missing; null for a
// path with an empty, overlong or too deep name. Sets `created` when the tree
// changed. Throws std::bad_alloc.
RegistryKey* makeRegistryKey(RegistryKey& root, std::string_view path, bool& created);
// Removes the key at `path` (not the root) with its subkeys.
bool removeRegistryKey(RegistryKey& root, std::string_view path);

// Reads a store's text into `root` (which must be empty). On failure answers
// false and says why in `problem` ("line 3: ..."). Throws std::bad_alloc.
bool parseRegistryStore(std::string_view text, RegistryKey& root, std::string& problem);
// The text of the tree. Throws std::bad_alloc.
HeapString writeRegistryStore(const RegistryKey& root);

} // namespace kova::platform
