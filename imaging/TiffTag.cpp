// TiffTag: the directory structure of a TIFF file (header, the chain of image
// file directories and their 12-byte entries) held in memory, edited there,
// and written back in place or, for a directory that has grown, at the end of
// the file. Pixel data is never touched. Both byte orders are read; what is
// written follows the class's long-standing rules, kept because callers rely
// on them:
// - with a big-endian file, rationals come out with numerator and denominator
//   exchanged, and go in the same way;
// - a short in an entry's value field is converted as part of a 32-bit word;
// - a big-endian file's header words and next-directory links are written in
//   host order, and its entries stay converted in memory after a flush;
// - with one directory in the file, deleting any tag empties that directory;
// - a grown directory keeps its size as read, so every flush moves it again.
// The file is outside data: directories are read through one checked reader,
// a chain that comes back to a directory already read ends the open as a
// failed read, and nothing is allocated that the file's length cannot hold.
#include "errors/Raise.hpp"
#include "imaging/OffsetSet.hpp"
#include "imaging/TiffFormat.hpp"
#include "imaging/TiffReader.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

using kova::tiff::Entry;
using kova::tiff::Header;

// One directory as the store holds it.
struct IfdRecord {
    Entry* entries;      // owned array of entries in host order, or null
    uint32_t diskCount;  // entries the directory had in the file when read
    uint32_t count;      // entries it has now
    int32_t curTag;      // entry found by the last findTag, -1 for none
    uint32_t fileOffset; // where the directory lies in the file; 0 when it has no place yet
    uint32_t nextOffset; // the next-directory link, as read or redirected
};

#pragma pack(push, 1)
struct TiffTagData {
    std::FILE* file;     // the open stream, or null
    int32_t swapBytes;   // 1 when the file is big-endian (MM)
    uint32_t ifdCount;   // number of directory records
    int32_t curIndex;    // selected directory, -1 for none
    uint32_t reserved;   // not used
    IfdRecord* ifdTable; // owned array of ifdCount records
    Header header;       // the header as read, magic and first offset in host order
};
#pragma pack(pop)

kvClass TiffTagClass = nullptr;

KV_METHOD_TABLE(tiffTagMethods,                     //
                kova::method("_hugeRead", 3),       //
                kova::method("_hugeWrite", 3),      //
                kova::method("_resetContents", 0),  //
                kova::method("_writeNewIFDs", 0),   //
                kova::method("addIFDs", 1),         //
                kova::method("addTag", 4),          //
                kova::method("closeTIFF", 0),       //
                kova::method("deleteIFD", 1),       //
                kova::method("deleteTag", 1),       //
                kova::method("findTag", 1),         //
                kova::method("flushIFDs", 0),       //
                kova::method("getCurIndex", 0),     //
                kova::method("getIFDCount", 0),     //
                kova::method("getIFDTagCount", 0),  //
                kova::method("getTagData", 2),      //
                kova::method("getTagItemCount", 0), //
                kova::method("getTagType", 0),      //
                kova::method("objInit", 0),         //
                kova::method("objTerm", 0),         //
                kova::method("openTIFF", 2),        //
                kova::method("setCurIndex", 1));
KV_EMPTY_METHOD_TABLE(tiffTagClassMethods);

// The most bytes one runtime read or write is asked for.
constexpr size_t largestChunk = 32767;

TiffTagData* dataOf(void* instData) {
    return static_cast<TiffTagData*>(instData);
}

kvResult raise(kvObject* errSlot, kvObject self, int32_t number) {
    return kova::raiseError(errSlot, self, TiffTagClass, number);
}

// The selected directory, or null.
IfdRecord* selected(TiffTagData* tiff) {
    if (!tiff->ifdTable || tiff->curIndex < 0 || uint32_t(tiff->curIndex) >= tiff->ifdCount)
        return nullptr;
    return &tiff->ifdTable[tiff->curIndex];
}

// The selected directory's current entry, or null.
Entry* currentEntry(TiffTagData* tiff) {
    IfdRecord* ifd = selected(tiff);
    if (!ifd || !ifd->entries || ifd->curTag < 0 || uint32_t(ifd->curTag) >= ifd->count)
        return nullptr;
    return &ifd->entries[ifd->curTag];
}

// The records a table of `count` is allocated for: the next power of two, so
// that appending one directory at a time costs amortised constant time.
uint64_t tableCapacity(uint64_t count) {
    return count ? std::bit_ceil(count) : 0;
}

// Converts items read from or bound for a big-endian file: shorts and longs
// have their bytes reversed; each half of a rational too, and then the halves
// change places.
void convertItems(unsigned char* items, uint64_t bytes, uint32_t type) {
    const uint32_t size = kova::tiff::itemSize(type);
    if (type == 3) {
        for (uint64_t at = 0; at + 2 <= bytes; at += 2)
            kova::tiff::swapWordAt(items + at, 2);
    } else if (type == 4) {
        for (uint64_t at = 0; at + 4 <= bytes; at += 4)
            kova::tiff::swapWordAt(items + at, 4);
    } else if (type == 5) {
        for (uint64_t at = 0; at + size <= bytes; at += size) {
            uint32_t numerator, denominator;
            std::memcpy(&numerator, items + at, 4);
            std::memcpy(&denominator, items + at + 4, 4);
            numerator = kova::tiff::swap32(numerator);
            denominator = kova::tiff::swap32(denominator);
            std::memcpy(items + at, &denominator, 4);
            std::memcpy(items + at + 4, &numerator, 4);
        }
    }
}

void convertEntryForFile(Entry& entry) {
    entry.tag = kova::tiff::swap16(entry.tag);
    entry.type = kova::tiff::swap16(entry.type);
    entry.count = kova::tiff::swap32(entry.count);
    entry.value = kova::tiff::swap32(entry.value);
}

size_t hugeTransfer(void* buffer, size_t bytes, std::FILE* stream, bool write) {
    if (!buffer || !stream) return 0;
    auto* at = static_cast<unsigned char*>(buffer);
    size_t moved = 0;
    while (moved < bytes) {
        const size_t chunk = std::min(bytes - moved, largestChunk);
        const size_t done = write ? std::fwrite(at + moved, 1, chunk, stream)
                                  : std::fread(at + moved, 1, chunk, stream);
        moved += done;
        if (done != chunk) break;
    }
    return moved;
}

// Writes `bytes` at the position through "_hugeWrite"; false, after raising
// 3433, when not all of them were written.
bool writeAll(kvObject* errSlot, kvObject self, std::FILE* file, const void* data, size_t bytes) {
    if (bytes == 0) return true;
    const kvResult written = kvSendMeth(errSlot, self, "_hugeWrite", data, bytes, file);
    if (written == static_cast<kvResult>(bytes)) return true;
    raise(errSlot, self, 3433);
    return false;
}

// Moves to the end of the file and on to an even offset, writing a zero byte
// when the end is odd. The offset reached, or -1 after raising 3434 (or 3433
// when the padding byte cannot be written).
int64_t seekEvenEnd(kvObject* errSlot, kvObject self, std::FILE* file) {
    if (std::fseek(file, 0, SEEK_END) != 0) {
        raise(errSlot, self, 3434);
        return -1;
    }
    const long end = std::ftell(file);
    if (end < 0 || uint64_t(end) >= UINT32_MAX) {
        raise(errSlot, self, 3434);
        return -1;
    }
    if (end % 2 == 0) return end;
    const unsigned char padding = 0;
    if (!writeAll(errSlot, self, file, &padding, 1)) return -1;
    return end + 1;
}

// The file's length, or -1 when the stream cannot tell it.
int64_t fileLength(std::FILE* file) {
    if (std::fseek(file, 0, SEEK_END) != 0) return -1;
    return std::ftell(file);
}

// True when `offset` can be handed to the runtime's seek, whose offsets are
// `long`: 32 bits wide on Windows.
constexpr bool seekable(uint32_t offset) {
    if constexpr (sizeof(long) > sizeof(uint32_t))
        return true;
    else
        return offset <= uint32_t(LONG_MAX);
}

bool seekTo(std::FILE* file, uint32_t offset) {
    return seekable(offset) && std::fseek(file, static_cast<long>(offset), SEEK_SET) == 0;
}

// Raises 3441 for `index`, naming the object when its class answers
// "getName" (a TiffTag itself has no name to give).
void raiseBadIndex(kvObject* errSlot, kvObject self, int32_t index) {
    const char* name = nullptr;
    if (kvFindMethod(nullptr, self->cls, "getName", 0))
        name = reinterpret_cast<const char*>(kvSendMeth(errSlot, self, "getName"));
    kova::raiseError(errSlot, self, TiffTagClass, 3441, index, name);
}

// Ends a failed open: the stream is closed, the records read so far stay.
kvResult failOpen(kvObject* errSlot, kvObject self, TiffTagData* tiff, int32_t number) {
    if (number) raise(errSlot, self, number);
    std::fclose(tiff->file);
    tiff->file = nullptr;
    return 0;
}

// Reads the directory at `offset` into the newest record. Answers 0, or the
// error number that ends the open. `entryBytesLeft` is what the directories
// may still take of the file: well-formed directories never share bytes, so
// together their entries cannot outgrow the file.
int32_t readDirectory(kova::tiff::Reader& reader, IfdRecord& ifd, uint32_t offset,
                      uint64_t& entryBytesLeft) {
    uint16_t count = 0;
    if (!reader.seek(offset) || !reader.read16(count)) return 3434;
    ifd.diskCount = ifd.count = count;
    const uint64_t bytes = uint64_t(count) * kova::tiff::entrySize;
    if (bytes > reader.remaining() || bytes > entryBytesLeft) return 3434;
    entryBytesLeft -= bytes;
    ifd.entries = static_cast<Entry*>(kova::platform::allocate(bytes));
    if (!ifd.entries) return 3429;
    if (!reader.read(ifd.entries, bytes)) return 3434;
    reader.convert(ifd.entries, count);
    ifd.fileOffset = offset;
    if (!reader.read32(ifd.nextOffset)) return 3434;
    return 0;
}

// Creates the file for an update of a file that is not there: an 8-byte
// little-endian header and no directories.
bool createFile(TiffTagData* tiff, const char* path) {
    tiff->file = std::fopen(path, "wb");
    if (!tiff->file) return false;
    tiff->header = Header{{'I', 'I'}, kova::tiff::magicNumber, 0};
    if (std::fwrite(&tiff->header, 1, sizeof tiff->header, tiff->file) == sizeof tiff->header)
        return true;
    std::fclose(tiff->file);
    tiff->file = nullptr;
    return false;
}

} // namespace

// (buffer, byte count, stream): reads in chunks of at most 32767 bytes,
// stopping at the first chunk that does not arrive whole; answers the bytes read.
KV_METHOD(TiffTag, _hugeRead) {
    (void)errSlot, (void)self, (void)instData;
    return static_cast<kvResult>(hugeTransfer(
        reinterpret_cast<void*>(kvArgAt(args, 0)), static_cast<size_t>(kvArgAt(args, 1)),
        reinterpret_cast<std::FILE*>(kvArgAt(args, 2)), false));
}

// (buffer, byte count, stream): the same for writing.
KV_METHOD(TiffTag, _hugeWrite) {
    (void)errSlot, (void)self, (void)instData;
    return static_cast<kvResult>(hugeTransfer(
        reinterpret_cast<void*>(kvArgAt(args, 0)), static_cast<size_t>(kvArgAt(args, 1)),
        reinterpret_cast<std::FILE*>(kvArgAt(args, 2)), true));
}

// Frees every record and the table; answers 1 when there was no table.
KV_METHOD(TiffTag, _resetContents) {
    (void)errSlot, (void)self, (void)args;
    TiffTagData* tiff = dataOf(instData);
    const bool hadTable = tiff->ifdTable != nullptr;
    for (uint32_t i = 0; hadTable && i < tiff->ifdCount; ++i)
        kova::platform::release(tiff->ifdTable[i].entries);
    kova::platform::release(tiff->ifdTable);
    tiff->ifdTable = nullptr;
    tiff->ifdCount = 0;
    tiff->curIndex = -1;
    return hadTable ? 0 : 1;
}

// Writes each directory that has grown since it was read at the end of the
// file, on an even offset, and points the link that led to it there: the
// previous record's next link, or the header's first offset. A directory
// added in memory has no place in the file yet (an added record is given no
// file offset); it is placed the same way, even while empty, because the
// flush writes every record at its offset and a record without one would go
// over the header at offset 0 and leave the file unreadable. Works only
// while a directory with entries is selected.
KV_METHOD(TiffTag, _writeNewIFDs) {
    (void)args;
    TiffTagData* tiff = dataOf(instData);
    const IfdRecord* current = selected(tiff);
    if (!tiff->file || !current || !current->entries) return 0;
    for (uint32_t i = 0; i < tiff->ifdCount; ++i) {
        IfdRecord& ifd = tiff->ifdTable[i];
        if (ifd.count <= ifd.diskCount && ifd.fileOffset != 0) continue;
        const int64_t offset = seekEvenEnd(errSlot, self, tiff->file);
        if (offset < 0) return 0;
        const uint16_t count = static_cast<uint16_t>(ifd.entries ? ifd.count : 0);
        if (!writeAll(errSlot, self, tiff->file, &count, sizeof count) ||
            !writeAll(errSlot, self, tiff->file, ifd.entries, size_t(count) * sizeof(Entry)) ||
            !writeAll(errSlot, self, tiff->file, &ifd.nextOffset, sizeof ifd.nextOffset))
            return 0;
        ifd.fileOffset = static_cast<uint32_t>(offset);
        if (i == 0)
            tiff->header.firstOffset = ifd.fileOffset;
        else
            tiff->ifdTable[i - 1].nextOffset = ifd.fileOffset;
    }
    return 0;
}

// (n): appends n empty records. Answers 0, or -1 with 3429; does nothing
// while no file is open.
KV_METHOD(TiffTag, addIFDs) {
    TiffTagData* tiff = dataOf(instData);
    const auto added = static_cast<int32_t>(kvArgAt(args, 0));
    if (!tiff->file || added <= 0) return 0;
    const uint64_t count = uint64_t(tiff->ifdCount) + uint64_t(added);
    const uint64_t capacity = tableCapacity(count);
    if (count > INT32_MAX || capacity > SIZE_MAX / sizeof(IfdRecord)) {
        raise(errSlot, self, 3429);
        return -1;
    }
    if (capacity > tableCapacity(tiff->ifdCount)) {
        void* table = kova::platform::reallocate(tiff->ifdTable, capacity * sizeof(IfdRecord));
        if (!table) {
            raise(errSlot, self, 3429);
            return -1;
        }
        tiff->ifdTable = static_cast<IfdRecord*>(table);
    }
    for (uint64_t i = tiff->ifdCount; i < count; ++i)
        tiff->ifdTable[i] = IfdRecord{nullptr, 0, 0, -1, 0, 0};
    tiff->ifdCount = static_cast<uint32_t>(count);
    return 0;
}

// (tag, type, item count, items in host order): stores the items as the
// tag's value in the selected directory, appending an entry for a new tag.
// Items that fit in the old ones' place are written over them (in the file,
// or in the value field); more items than before go to an even offset at the
// end of the file, but items of 4 bytes or fewer go into the value field and
// the item count is then left as it was. An existing entry keeps its type.
// Answers the entry's index, or -1 (also when the directory has no entries).
KV_METHOD(TiffTag, addTag) {
    TiffTagData* tiff = dataOf(instData);
    const auto tag = static_cast<uint16_t>(kvArgAt(args, 0));
    const auto type = static_cast<uint16_t>(kvArgAt(args, 1));
    const auto items = static_cast<uint32_t>(kvArgAt(args, 2));
    const auto* data = reinterpret_cast<const unsigned char*>(kvArgAt(args, 3));
    kvSendMeth(errSlot, self, "findTag", tag);
    IfdRecord* ifd = selected(tiff);
    if (!ifd || !ifd->entries || tiff->ifdCount == 0 || !tiff->file) return -1;

    const uint64_t bytes = uint64_t(items) * kova::tiff::itemSize(type);
    if (bytes > INT32_MAX || (bytes && !data)) return -1;
    unsigned char* scratch = nullptr;
    if (tiff->swapBytes && bytes) {
        scratch = static_cast<unsigned char*>(kova::platform::allocate(bytes));
        if (!scratch) {
            raise(errSlot, self, 3429);
            return -1;
        }
        std::memcpy(scratch, data, bytes);
        convertItems(scratch, bytes, type);
        data = scratch;
    }
    struct ScratchRelease {
        unsigned char* block;
        ~ScratchRelease() { kova::platform::release(block); }
    } scratchRelease{scratch};

    auto index = static_cast<int32_t>(kvSendMeth(errSlot, self, "findTag", tag));
    if (index < 0) {
        if (ifd->count >= UINT16_MAX) {
            raise(errSlot, self, 3429);
            return -1;
        }
        auto* entries = static_cast<Entry*>(
            kova::platform::reallocate(ifd->entries, (size_t(ifd->count) + 1) * sizeof(Entry)));
        if (!entries) {
            raise(errSlot, self, 3429);
            return -1;
        }
        ifd->entries = entries;
        ifd->entries[ifd->count] = Entry{tag, type, 0, 0};
        index = static_cast<int32_t>(ifd->count++);
    }
    Entry& entry = ifd->entries[index];
    if (items <= entry.count) {
        if (bytes > kova::tiff::valueFieldSize) {
            // Departure: the old items must lie in the file. An offset past
            // its end comes from a damaged or hostile file, and writing there
            // would grow the file to as much as 4 GB; it is a failed seek.
            if (entry.value > fileLength(tiff->file) || !seekTo(tiff->file, entry.value)) {
                raise(errSlot, self, 3434);
                return -1;
            }
            if (!writeAll(errSlot, self, tiff->file, data, bytes)) return -1;
            std::fflush(tiff->file);
        } else {
            std::memcpy(&entry.value, data ? data : reinterpret_cast<const unsigned char*>(""),
                        bytes);
        }
        entry.count = items;
    } else if (bytes > kova::tiff::valueFieldSize) {
        const int64_t offset = seekEvenEnd(errSlot, self, tiff->file);
        if (offset < 0) return -1;
        if (!writeAll(errSlot, self, tiff->file, data, bytes)) return -1;
        entry.value = static_cast<uint32_t>(offset);
        entry.count = items;
        std::fflush(tiff->file);
    } else if (bytes) {
        std::memcpy(&entry.value, data, bytes);
    }
    return index;
}

KV_METHOD(TiffTag, closeTIFF) {
    (void)args;
    TiffTagData* tiff = dataOf(instData);
    if (tiff->file) std::fclose(tiff->file);
    tiff->file = nullptr;
    kvSendMeth(errSlot, self, "_resetContents");
    return 0;
}

// (index): removes a directory record; the file changes at the next flush.
// The link that led to a directory placed in the file now leads past it, to
// the directory it linked to. A selection of a later directory follows it;
// a selection of the removed one ends. Fires "OnTableChange". Answers -1
// (also, with 3441, for an index outside the table).
KV_METHOD(TiffTag, deleteIFD) {
    TiffTagData* tiff = dataOf(instData);
    const auto index = static_cast<int32_t>(kvArgAt(args, 0));
    if (index < 0 || uint32_t(index) >= tiff->ifdCount || !tiff->ifdTable) {
        raiseBadIndex(errSlot, self, index);
        return -1;
    }
    IfdRecord removed = tiff->ifdTable[index];
    kova::platform::release(removed.entries);
    if (removed.fileOffset != 0) {
        if (index == 0)
            tiff->header.firstOffset = removed.nextOffset;
        else
            tiff->ifdTable[index - 1].nextOffset = removed.nextOffset;
    }
    std::memmove(&tiff->ifdTable[index], &tiff->ifdTable[index + 1],
                 (tiff->ifdCount - uint32_t(index) - 1) * sizeof(IfdRecord));
    if (--tiff->ifdCount == 0) {
        kova::platform::release(tiff->ifdTable);
        tiff->ifdTable = nullptr;
        tiff->curIndex = -1;
    } else if (tiff->curIndex == index) {
        tiff->curIndex = -1;
    } else if (tiff->curIndex > index) {
        --tiff->curIndex;
    }
    kvFireNotification(errSlot, self, "OnTableChange");
    return -1;
}

// (tag): removes the tag's entry from the selected directory and answers
// the index it had, or -1. With exactly one directory in the file, the whole
// entry array goes, whatever the tag.
KV_METHOD(TiffTag, deleteTag) {
    TiffTagData* tiff = dataOf(instData);
    IfdRecord* ifd = selected(tiff);
    if (!ifd || !ifd->entries || tiff->ifdCount == 0) return -1;
    const auto index = static_cast<int32_t>(kvSendMeth(errSlot, self, "findTag", kvArgAt(args, 0)));
    if (index < 0) return -1;
    if (tiff->ifdCount == 1) {
        kova::platform::release(ifd->entries);
        ifd->entries = nullptr;
        ifd->count = 0;
    } else {
        auto* entries =
            static_cast<Entry*>(kova::platform::allocate((ifd->count - 1) * sizeof(Entry)));
        if (!entries) {
            raise(errSlot, self, 3429);
            return -1;
        }
        std::memcpy(entries, ifd->entries, size_t(index) * sizeof(Entry));
        std::memcpy(entries + index, ifd->entries + index + 1,
                    (ifd->count - uint32_t(index) - 1) * sizeof(Entry));
        kova::platform::release(ifd->entries);
        ifd->entries = entries;
        --ifd->count;
    }
    ifd->curTag = -1;
    return index;
}

// (tag): the index of the first entry of the tag in the selected directory,
// or -1; it becomes the directory's current tag.
KV_METHOD(TiffTag, findTag) {
    (void)errSlot, (void)self;
    IfdRecord* ifd = selected(dataOf(instData));
    if (!ifd) return -1;
    const auto tag = static_cast<uint16_t>(kvArgAt(args, 0));
    ifd->curTag = -1;
    for (uint32_t i = 0; ifd->entries && i < ifd->count; ++i) {
        if (ifd->entries[i].tag == tag) {
            ifd->curTag = static_cast<int32_t>(i);
            break;
        }
    }
    return ifd->curTag;
}

// Writes the directories back: grown and new ones first at the end of the
// file, then the header at offset 0 and every directory at its place. A
// big-endian file's counts and entries are written in its order, its header
// words and next links in host order, and its entries stay in file order in
// memory afterwards. Works only while a directory with entries is selected;
// stops at the first failed write (3433) or seek (3434).
KV_METHOD(TiffTag, flushIFDs) {
    (void)args;
    TiffTagData* tiff = dataOf(instData);
    const IfdRecord* current = selected(tiff);
    if (!tiff->file || !current || !current->entries) return 0;
    kvSendMeth(errSlot, self, "_writeNewIFDs");
    if (!tiff->file) return 0;
    if (std::fseek(tiff->file, 0, SEEK_SET) != 0) return raise(errSlot, self, 3434);
    if (!writeAll(errSlot, self, tiff->file, &tiff->header, sizeof tiff->header)) return 0;
    std::fflush(tiff->file);
    for (uint32_t i = 0; i < tiff->ifdCount; ++i) {
        IfdRecord& ifd = tiff->ifdTable[i];
        if (ifd.fileOffset == 0) continue;
        if (!seekTo(tiff->file, ifd.fileOffset)) return raise(errSlot, self, 3434);
        const uint32_t count = ifd.entries ? ifd.count : 0;
        uint16_t diskCount = static_cast<uint16_t>(count);
        if (tiff->swapBytes) {
            diskCount = kova::tiff::swap16(diskCount);
            for (uint32_t k = 0; k < count; ++k)
                convertEntryForFile(ifd.entries[k]);
        }
        if (!writeAll(errSlot, self, tiff->file, &diskCount, sizeof diskCount) ||
            !writeAll(errSlot, self, tiff->file, ifd.entries, size_t(count) * sizeof(Entry)) ||
            !writeAll(errSlot, self, tiff->file, &ifd.nextOffset, sizeof ifd.nextOffset))
            return 0;
        std::fflush(tiff->file);
    }
    return 0;
}

KV_METHOD(TiffTag, getCurIndex) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->curIndex;
}

KV_METHOD(TiffTag, getIFDCount) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->ifdCount;
}

KV_METHOD(TiffTag, getIFDTagCount) {
    (void)errSlot, (void)self, (void)args;
    const IfdRecord* ifd = selected(dataOf(instData));
    return ifd ? ifd->count : 0;
}

// (maximum item count, buffer): delivers at most that many items of the
// current tag, in host order, and answers how many. Items of a big-endian
// file are converted by type (rationals with their halves exchanged). A read
// from the file that comes up short raises 3434 and answers the whole items
// that arrived.
KV_METHOD(TiffTag, getTagData) {
    TiffTagData* tiff = dataOf(instData);
    const Entry* entry = currentEntry(tiff);
    auto* buffer = reinterpret_cast<unsigned char*>(kvArgAt(args, 1));
    const auto most = static_cast<int32_t>(kvArgAt(args, 0));
    if (!entry || !buffer || most <= 0) return 0;
    const uint32_t items = std::min(uint32_t(most), entry->count);
    const uint32_t size = kova::tiff::itemSize(entry->type);
    const uint64_t bytes = uint64_t(items) * size;
    uint64_t delivered = bytes;
    if (bytes > kova::tiff::valueFieldSize) {
        if (!tiff->file || bytes > INT32_MAX || !seekTo(tiff->file, entry->value)) {
            raise(errSlot, self, 3434);
            return 0;
        }
        delivered = static_cast<uint64_t>(
            kvSendMeth(errSlot, self, "_hugeRead", buffer, size_t(bytes), tiff->file));
    } else {
        std::memcpy(buffer, &entry->value, bytes);
    }
    if (tiff->swapBytes)
        convertItems(buffer, delivered - delivered % std::max(size, 1u), entry->type);
    if (delivered < bytes) {
        raise(errSlot, self, 3434);
        return static_cast<kvResult>(delivered / size);
    }
    return items;
}

KV_METHOD(TiffTag, getTagItemCount) {
    (void)errSlot, (void)self, (void)args;
    const Entry* entry = currentEntry(dataOf(instData));
    return entry ? entry->count : 0;
}

KV_METHOD(TiffTag, getTagType) {
    (void)errSlot, (void)self, (void)args;
    const Entry* entry = currentEntry(dataOf(instData));
    return entry ? entry->type : 0;
}

KV_METHOD(TiffTag, objInit) {
    kvSendParentMethNA(errSlot, TiffTagClass, self, "objInit", args);
    TiffTagData* tiff = dataOf(instData);
    *tiff = TiffTagData{};
    tiff->curIndex = -1;
    return 0;
}

KV_METHOD(TiffTag, objTerm) {
    (void)instData;
    kvSendMeth(errSlot, self, "closeTIFF");
    return kvSendParentMethNA(errSlot, TiffTagClass, self, "objTerm", args);
}

// (path, update flag): opens the file, read-only or with update 1 for
// editing (an update of a missing file creates an empty little-endian one),
// and reads its header and every directory of the chain. Answers 1, the
// file left open; or 0 with the stream closed and the directories read so
// far left in the table: 3428 (cannot open), 3443 (magic is not 42), 3434
// (a seek or read that fails, a directory past the end of the file, or a
// chain that comes back to a directory already read), 3429 (out of memory).
// A file that does not start with II or MM fails without an error.
KV_METHOD(TiffTag, openTIFF) {
    TiffTagData* tiff = dataOf(instData);
    const auto* path = reinterpret_cast<const char*>(kvArgAt(args, 0));
    const bool update = kvArgAt(args, 1) == 1;
    if (tiff->file || tiff->ifdTable) kvSendMeth(errSlot, self, "closeTIFF");
    tiff->swapBytes = 0;
    if (!path) return raise(errSlot, self, 3428);
    tiff->file = std::fopen(path, update ? "r+b" : "rb");
    if (!tiff->file) {
        if (update && createFile(tiff, path)) return 1;
        return raise(errSlot, self, 3428);
    }

    kova::tiff::Reader reader(tiff->file);
    if (!reader.measure()) return failOpen(errSlot, self, tiff, 3434);
    if (!reader.read(&tiff->header, sizeof tiff->header))
        return failOpen(errSlot, self, tiff, 3434);
    if (std::memcmp(tiff->header.byteOrder, "II", 2) == 0)
        tiff->swapBytes = 0;
    else if (std::memcmp(tiff->header.byteOrder, "MM", 2) == 0)
        tiff->swapBytes = 1;
    else
        return failOpen(errSlot, self, tiff, 0);
    if (tiff->swapBytes) {
        tiff->header.magic = kova::tiff::swap16(tiff->header.magic);
        tiff->header.firstOffset = kova::tiff::swap32(tiff->header.firstOffset);
    }
    if (tiff->header.magic != kova::tiff::magicNumber) return failOpen(errSlot, self, tiff, 3443);

    reader.setSwapBytes(tiff->swapBytes != 0);
    kova::tiff::OffsetSet visited;
    uint64_t entryBytesLeft = reader.size();
    for (uint32_t offset = tiff->header.firstOffset; offset != 0;) {
        switch (visited.add(offset)) {
        case kova::tiff::OffsetSet::Added::Present:
            return failOpen(errSlot, self, tiff, 3434);
        case kova::tiff::OffsetSet::Added::OutOfMemory:
            return failOpen(errSlot, self, tiff, 3429);
        case kova::tiff::OffsetSet::Added::New:
            break;
        }
        const auto before = tiff->ifdCount;
        if (kvSendMeth(errSlot, self, "addIFDs", 1) != 0 || tiff->ifdCount == before)
            return failOpen(errSlot, self, tiff, 0);
        IfdRecord& ifd = tiff->ifdTable[tiff->ifdCount - 1];
        if (const int32_t failure = readDirectory(reader, ifd, offset, entryBytesLeft))
            return failOpen(errSlot, self, tiff, failure);
        offset = ifd.nextOffset;
    }
    return 1;
}

// (index): selects a directory and answers its index; an index outside the
// table fires "OnRangeCheck" with it, raises 3441 and answers -1.
KV_METHOD(TiffTag, setCurIndex) {
    TiffTagData* tiff = dataOf(instData);
    const auto index = static_cast<int32_t>(kvArgAt(args, 0));
    if (index >= 0 && uint32_t(index) < tiff->ifdCount) {
        tiff->curIndex = index;
        return index;
    }
    kvFireNotification(errSlot, self, "OnRangeCheck", index);
    raiseBadIndex(errSlot, self, index);
    return -1;
}

KV_REGISTER(TiffTag) {
    if (!kvRegisterClass("Object")) return nullptr;
    TiffTagClass = kvAddClass("TiffTag", "Object", sizeof(TiffTagData), 0, tiffTagMethods.get(),
                              tiffTagClassMethods.get());
    return TiffTagClass;
}
