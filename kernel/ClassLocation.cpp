// The class location table: the one process-wide array of (class name, library
// file name) entries that tells the kernel which class library holds a class,
// kept sorted by class name without regard to case, and its two outside forms:
// the kernel's built-in resource and a file of 34-byte entries. Nothing else
// in the library reads or writes the entries.
#include "kernel/BuiltInClassLocations.hpp"
#include "kova/classloc.h"
#include "kova/resources.h"
#include "platform/Platform.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>

namespace {

constexpr size_t entrySize = sizeof(kvClassLocation);
static_assert(entrySize == KV_CLASSLOC_ENTRY_SIZE, "an entry is 34 bytes, without padding");

constexpr size_t classNameLimit = KV_CLASSLOC_CLASS_SIZE - 1;     // characters that fit
constexpr size_t libraryNameLimit = KV_CLASSLOC_LIBRARY_SIZE - 1; // characters that fit
constexpr size_t firstGrowth = 250; // entries added to a table that has none
constexpr size_t laterGrowth = 50;  // entries added to a full table that has some

struct LocationTable {
    kvClassLocation* entries = nullptr; // sorted by class name without regard to case
    size_t count = 0;                   // entries in use
    size_t capacity = 0;                // entries allocated; those past `count` are spare
};

LocationTable table;

// ---- names ----

constexpr unsigned char foldCase(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

// Orders two class names as the table does: byte by byte with ASCII letters
// folded to lower case, on at most the characters a class name field holds, so
// a name longer than the field is known by the part that was stored. Reads no
// byte past the terminator of either name. Negative, zero or positive.
constexpr int compareClassNames(const char* a, const char* b) {
    for (size_t i = 0; i < classNameLimit; ++i) {
        const unsigned char left = foldCase(a[i]);
        const unsigned char right = foldCase(b[i]);
        if (left != right) return left < right ? -1 : 1;
        if (left == 0) return 0;
    }
    return 0;
}

// Length of `text`, looking at no more than `limit` characters.
constexpr size_t boundedLength(const char* text, size_t limit) {
    size_t length = 0;
    while (length < limit && text[length])
        ++length;
    return length;
}

// Stores `text` in a field of `fieldSize` bytes: at most fieldSize - 1
// characters, the rest of the field zero, so the field is always terminated.
void fillField(char* field, size_t fieldSize, const char* text) {
    const size_t length = boundedLength(text, fieldSize - 1);
    std::memcpy(field, text, length);
    std::memset(field + length, 0, fieldSize - length);
}

// Copies the terminated `field` into `buffer`, which holds `size` + 1 bytes:
// the whole text when it has no more than `size` characters, else its first
// `size`, followed in both cases by a terminator.
void copyField(const char* field, char* buffer, size_t size) {
    const size_t length = boundedLength(field, size);
    std::memcpy(buffer, field, length);
    buffer[length] = '\0';
}

// Cuts both names of entries that came from outside to their fields, so that
// every name handed out is terminated within its field whatever the input was.
void terminateFields(kvClassLocation* entries, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        entries[i].className[classNameLimit] = '\0';
        entries[i].libraryName[libraryNameLimit] = '\0';
    }
}

// ---- the built-in rows, checked when the library is built ----

using kova::kernel::BuiltInRow;
using kova::kernel::builtInRows;

constexpr bool fitsField(const char* name, size_t limit) {
    return name[0] && boundedLength(name, limit + 1) <= limit;
}

// True when every row's names are present and fit their fields, and each
// class sorts strictly after the one before it (sorted, no class twice).
constexpr bool builtInRowsAreWellFormed() {
    for (size_t i = 0; i < std::size(builtInRows); ++i) {
        const BuiltInRow& row = builtInRows[i];
        if (!fitsField(row.className, classNameLimit)) return false;
        if (!fitsField(row.libraryName, libraryNameLimit)) return false;
        if (i > 0 && compareClassNames(builtInRows[i - 1].className, row.className) >= 0)
            return false;
    }
    return true;
}

static_assert(std::size(builtInRows) == 181, "the built-in table has 181 rows");
static_assert(builtInRowsAreWellFormed(),
              "kernel/ClassLocations.def: rows must be sorted by class name without regard "
              "to case, name each class once, and fit their fields (20 and 12 characters)");

// ---- heap blocks of entries ----

struct ReleaseBlock {
    void operator()(void* block) const { kova::platform::release(block); }
};
using EntryBlock = std::unique_ptr<kvClassLocation, ReleaseBlock>;

// Room for `count` entries more than `capacity`, or 0 when the sum overflows.
size_t grownCapacity(size_t capacity, size_t count) {
    if (capacity > SIZE_MAX / entrySize - count) return 0;
    return capacity + count;
}

// Makes `block` hold `capacity` entries, keeping what it held. False, with the
// block unchanged, when memory is short.
bool resizeBlock(EntryBlock& block, size_t capacity) {
    void* resized = kova::platform::reallocate(block.get(), capacity * entrySize);
    if (!resized) return false;
    (void)block.release();
    block.reset(static_cast<kvClassLocation*>(resized));
    return true;
}

// Makes the table the `count` entries of `entries` (which has room for
// `capacity`), cutting their names to their fields, and frees the old entries.
void adoptEntries(EntryBlock entries, size_t count, size_t capacity) {
    terminateFields(entries.get(), count);
    kova::platform::release(table.entries);
    table.entries = entries.release();
    table.count = count;
    table.capacity = capacity;
}

// ---- search, insertion, removal ----

struct Position {
    size_t index; // the entry of the name, or where it would be inserted
    bool found;
};

// Binary search for `className` among the entries in use. When the name is
// absent, `index` is the first entry that sorts after it. An empty table or an
// empty name finds nothing.
Position locate(const char* className) {
    size_t low = 0;
    size_t high = table.count; // one past the last candidate, so it never goes below 0
    if (!className[0]) return {0, false};
    while (low < high) {
        const size_t mid = low + (high - 1 - low) / 2;
        const int order = compareClassNames(table.entries[mid].className, className);
        if (order == 0) return {mid, true};
        if (order < 0)
            low = mid + 1;
        else
            high = mid;
    }
    return {low, false};
}

const kvClassLocation* findEntry(const char* className) {
    const Position position = locate(className);
    return position.found ? &table.entries[position.index] : nullptr;
}

// Makes room for one more entry: a table with none grows by 250 entries, a
// full one by 50, the new room zero-filled. False, with the table unchanged,
// when memory is short.
bool ensureRoomForOne() {
    if (table.count < table.capacity) return true;
    const size_t growth = table.capacity == 0 ? firstGrowth : laterGrowth;
    const size_t capacity = grownCapacity(table.capacity, growth);
    if (capacity == 0) return false;
    void* grown = kova::platform::reallocate(table.entries, capacity * entrySize);
    if (!grown) return false;
    table.entries = static_cast<kvClassLocation*>(grown);
    std::memset(table.entries + table.capacity, 0, growth * entrySize);
    table.capacity = capacity;
    return true;
}

// Adds the pair at its sorted place, or gives a class already present the new
// library name (its own spelling stays). Both names are cut to their fields.
// False, with the table unchanged, when the table cannot grow.
bool insertEntry(const char* className, const char* libraryName) {
    const Position position = locate(className);
    if (position.found) {
        fillField(table.entries[position.index].libraryName, KV_CLASSLOC_LIBRARY_SIZE, libraryName);
        return true;
    }
    if (!ensureRoomForOne()) return false;
    kvClassLocation* slot = &table.entries[position.index];
    std::memmove(slot + 1, slot, (table.count - position.index) * entrySize);
    fillField(slot->className, KV_CLASSLOC_CLASS_SIZE, className);
    fillField(slot->libraryName, KV_CLASSLOC_LIBRARY_SIZE, libraryName);
    ++table.count;
    return true;
}

// Removes the entry of `className`, moving the later ones down. False when
// the class has no entry.
bool removeEntry(const char* className) {
    const Position position = locate(className);
    if (!position.found) return false;
    kvClassLocation* slot = &table.entries[position.index];
    std::memmove(slot, slot + 1, (table.count - position.index - 1) * entrySize);
    --table.count;
    return true;
}

void freeTable() {
    kova::platform::release(table.entries);
    table = LocationTable{};
}

// ---- the resource and the file ----

// Replaces the table by the whole entries of `bytes`; an incomplete last entry
// is dropped. False, with the table unchanged, when there is no whole entry or
// memory is short.
bool loadBytes(std::span<const std::byte> bytes) {
    const size_t count = bytes.size() / entrySize;
    if (count == 0) return false;
    EntryBlock block(static_cast<kvClassLocation*>(kova::platform::allocate(count * entrySize)));
    if (!block) return false;
    std::memcpy(block.get(), bytes.data(), count * entrySize);
    adoptEntries(std::move(block), count, count);
    return true;
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

// A file's bytes in a block of whole entries.
struct FileContents {
    EntryBlock block;
    size_t capacity = 0; // entries the block has room for
    size_t size = 0;     // bytes read
};

// Reads all of `file`, growing the block as the bytes arrive: the size the
// file reports is not trusted, since it may be a device or a directory. False
// on a read error, when memory is short, or when the file goes on past the
// most entries a table holds (a pipe or a device may never end).
bool readWholeFile(std::FILE* file, FileContents& contents) {
    for (;;) {
        if (contents.size == contents.capacity * entrySize) {
            if (contents.capacity == KV_CLASSLOC_MAX_ENTRIES) {
                unsigned char beyond;
                return std::fread(&beyond, 1, 1, file) == 0 && !std::ferror(file);
            }
            const size_t more = contents.capacity ? contents.capacity : firstGrowth;
            const size_t capacity =
                std::min<size_t>(contents.capacity + more, KV_CLASSLOC_MAX_ENTRIES);
            if (!resizeBlock(contents.block, capacity)) return false;
            contents.capacity = capacity;
        }
        auto* end = reinterpret_cast<unsigned char*>(contents.block.get()) + contents.size;
        const size_t wanted = contents.capacity * entrySize - contents.size;
        const size_t arrived = std::fread(end, 1, wanted, file);
        contents.size += arrived;
        if (arrived < wanted) return !std::ferror(file);
    }
}

// Replaces the table by the entries of the file. A file that is empty or
// whose size is not a whole number of entries is refused. False, with the
// table unchanged, when the file cannot be read or is refused or memory is
// short.
bool loadFile(const char* fileName) {
    const FileHandle file(std::fopen(fileName, "rb"));
    if (!file) return false;
    FileContents contents;
    if (!readWholeFile(file.get(), contents)) return false;
    if (contents.size == 0 || contents.size % entrySize != 0) return false;
    adoptEntries(std::move(contents.block), contents.size / entrySize, contents.capacity);
    return true;
}

// Writes the entries in use to the file, created or overwritten; an empty
// table gives an empty file. False when the file cannot be written whole.
bool saveFile(const char* fileName) {
    FileHandle file(std::fopen(fileName, "wb"));
    if (!file) return false;
    const bool written = table.count == 0 || std::fwrite(table.entries, entrySize, table.count,
                                                         file.get()) == table.count;
    const bool closed = std::fclose(file.release()) == 0;
    return written && closed;
}

// Fills the table from the kernel's own table resource.
bool loadBuiltInTable() {
    return loadBytes(kova::platform::findResource(
        kova::platform::kernelModule(), KV_RESOURCE_ID(KV_CLASSLOC_RESOURCE_ID), KV_RT_RCDATA));
}

bool isName(const char* name) {
    return name && name[0];
}

// Copies the library name of `className` into `buffer` (size + 1 bytes), or an
// empty string when the class has no entry.
int copyLibraryName(const char* className, char* buffer, size_t size) {
    const kvClassLocation* entry = isName(className) ? findEntry(className) : nullptr;
    copyField(entry ? entry->libraryName : "", buffer, size);
    return entry != nullptr;
}

} // namespace

// ---- exported functions ----

extern "C" {

KV_API int KovaClassLocationInit4(void) {
    return loadBuiltInTable();
}

KV_API void KovaClassLocationTerm4(void) {
    freeTable();
}

KV_API int KovaClassLocationGet4(const char* className, char* buffer, size_t size) {
    if (!buffer) return 0;
    return copyLibraryName(className, buffer, size);
}

// Kept for callers of the library's earlier interface; they do nothing.
KV_API int GetKovaClassLocation(void) {
    return 0;
}
KV_API int SetKovaClassLocation(void) {
    return 0;
}

KV_API int kvTableLoad_CLASSLOCATION(const char* fileName) {
    if (!isName(fileName)) return 0;
    return loadFile(fileName);
}

KV_API int kvTableSave_CLASSLOCATION(const char* fileName) {
    if (!isName(fileName)) return 0;
    return saveFile(fileName);
}

KV_API int kvTableInsertEntry_CLASSLOCATION(const char* className, const char* libraryName) {
    if (!isName(className) || !isName(libraryName)) return 0;
    return insertEntry(className, libraryName);
}

KV_API int kvTableRemoveEntry_CLASSLOCATION(const char* className) {
    if (!isName(className)) return 0;
    return removeEntry(className);
}

KV_API const char* kvTableFind_CLASSLOCATION(const char* className) {
    if (!isName(className)) return nullptr;
    const kvClassLocation* entry = findEntry(className);
    return entry ? entry->libraryName : nullptr;
}

KV_API int kvTableFind_CLASSLOCATION2(const char* className, char* buffer, size_t size) {
    if (!buffer) return 0;
    return copyLibraryName(className, buffer, size);
}

KV_API size_t kvTableGetCount_CLASSLOCATION(void) {
    return table.count;
}

KV_API const char* kvTableGetKey_CLASSLOCATION(size_t index) {
    if (index >= table.count) return nullptr;
    return table.entries[index].className;
}

KV_API int kvTableGetKey_CLASSLOCATION2(size_t index, char* buffer, size_t size) {
    if (!buffer) return 0;
    copyField(index < table.count ? table.entries[index].className : "", buffer, size);
    return index < table.count;
}

KV_API const char* kvTableGetLibrary_CLASSLOCATION(size_t index) {
    if (index >= table.count) return nullptr;
    return table.entries[index].libraryName;
}

KV_API void kvTableFree_CLASSLOCATION(void) {
    freeTable();
}

} // extern "C"
