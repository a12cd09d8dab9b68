// kova tiff: shows the structure of a TIFF file for a person (the header,
// each directory's offset, each tag with its name, type, count and values as
// the file holds them, in either byte order) and edits tags and directories
// in place through TiffTag. Where TiffTag's long-standing conversions hand a
// caller something other than what the file holds, the value is shown as
// the file holds it and TiffTag's reading beside it. The file is read
// through the same checked reader as TiffTag's, and whatever goes wrong is
// reported with its byte offset.
#include "imaging/TiffFormat.hpp"
#include "imaging/TiffReader.hpp"
#include "kova/host.h"
#include "kova/kernel.h"
#include "tools/Command.hpp"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kova::tools {
namespace {

constexpr const char* usageText =
    "usage: kova tiff FILE [--all]\n"
    "       kova tiff set FILE [--ifd N] TAG TYPE VALUE...\n"
    "       kova tiff delete FILE [--ifd N] TAG\n"
    "       kova tiff add-ifd FILE\n"
    "\n"
    "Shows FILE's header, each directory with its offset, and each tag with its\n"
    "name, type, count and values as the file holds them (the first 8 values;\n"
    "--all shows every one). Where TiffTag hands a caller other values than the\n"
    "file holds (items in the value field of a big-endian file, rationals of a\n"
    "big-endian file, types it does not know), its reading is shown beside them.\n"
    "A damaged file is shown up to the byte offset where it goes wrong.\n"
    "\n"
    "The edits go through TiffTag and change FILE in place:\n"
    "  set      stores VALUEs as TAG (a name such as ImageWidth, or a number) of\n"
    "           directory N (default 0); TYPE is byte, ascii, short, long or\n"
    "           rational (or 1 to 5). An ascii VALUE is one text; a rational\n"
    "           VALUE is N/D. Values that do not fit where the old ones were are\n"
    "           written at the end of the file, and a grown directory moves there.\n"
    "  delete   removes TAG from directory N\n"
    "  add-ifd  appends an empty directory to the chain\n"
    "Big-endian files are not edited: TiffTag writes their header and\n"
    "directory links in host order, which would leave them unreadable.\n"
    "\n"
    "Exit status: 0 done, 1 failed (a damaged file, a refused edit), 2 bad usage.\n";

constexpr Command command{"tiff", usageText};
constexpr size_t shownValues = 8;
constexpr size_t shownCharacters = 64;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::string hex(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, value);
    return text;
}

std::string offsetText(uint64_t offset) {
    return std::to_string(offset) + " (" + hex(offset) + ")";
}

std::string tagText(uint16_t tag) {
    const char* name = kova::tiff::tagName(tag);
    return name ? std::string(name) + " (" + std::to_string(tag) + ")"
                : std::to_string(tag) + " (" + hex(tag) + ")";
}

std::string typeText(uint16_t type) {
    const kova::tiff::TypeInfo* info = kova::tiff::typeInfo(type);
    return std::string(info ? info->name : "unknown type") + " (" + std::to_string(type) + ")";
}

// ---- values as a person reads them ----

// Reads item `index` of `width` bytes from `bytes`, in the given order.
uint64_t word(const uint8_t* bytes, size_t width, bool bigEndian) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i)
        value |= uint64_t(bytes[bigEndian ? i : width - 1 - i]) << (8 * (width - 1 - i));
    return value;
}

std::string textOf(const uint8_t* bytes, size_t length, bool all) {
    std::string text = "\"";
    const size_t shown = all ? length : std::min(length, shownCharacters);
    for (size_t i = 0; i < shown; ++i) {
        const uint8_t c = bytes[i];
        if (c == 0 && i + 1 == length) break;
        if (c >= 0x20 && c < 0x7f && c != '"' && c != '\\') {
            text += char(c);
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02X", c);
            text += escape;
        }
    }
    text += '"';
    if (shown < length) text += " ... (" + std::to_string(length) + " characters)";
    return text;
}

// The items of `type` in `bytes` (`count` of them, of which `available` are
// in `bytes`), in the given byte order.
std::string valuesOf(uint16_t type, const uint8_t* bytes, uint64_t count, uint64_t available,
                     bool bigEndian, bool all) {
    const kova::tiff::TypeInfo* info = kova::tiff::typeInfo(type);
    if (!info) return "<items of an unknown size>";
    if (type == 2) return textOf(bytes, size_t(available), all);
    const size_t size = info->fileSize;
    const uint64_t shown = all ? available : std::min<uint64_t>(available, shownValues);
    std::string text = "<";
    for (uint64_t i = 0; i < shown; ++i) {
        const uint8_t* at = bytes + i * size;
        if (i) text += ' ';
        char item[64];
        switch (type) {
        case 6:
            std::snprintf(item, sizeof item, "%d", int8_t(at[0]));
            break;
        case 8:
            std::snprintf(item, sizeof item, "%d", int16_t(word(at, 2, bigEndian)));
            break;
        case 9:
            std::snprintf(item, sizeof item, "%d", int32_t(word(at, 4, bigEndian)));
            break;
        case 5:
            std::snprintf(item, sizeof item, "%" PRIu64 "/%" PRIu64, word(at, 4, bigEndian),
                          word(at + 4, 4, bigEndian));
            break;
        case 10:
            std::snprintf(item, sizeof item, "%d/%d", int32_t(word(at, 4, bigEndian)),
                          int32_t(word(at + 4, 4, bigEndian)));
            break;
        case 11: {
            const auto bits = uint32_t(word(at, 4, bigEndian));
            float value;
            std::memcpy(&value, &bits, 4);
            std::snprintf(item, sizeof item, "%g", double(value));
            break;
        }
        case 12: {
            const uint64_t bits = word(at, 8, bigEndian);
            double value;
            std::memcpy(&value, &bits, 8);
            std::snprintf(item, sizeof item, "%g", value);
            break;
        }
        case 7:
            std::snprintf(item, sizeof item, "0x%02x", at[0]);
            break;
        default:
            std::snprintf(item, sizeof item, "%" PRIu64, word(at, size, bigEndian));
            break;
        }
        text += item;
    }
    if (shown < count) text += " ... (" + std::to_string(count) + " values)";
    return text + ">";
}

// ---- the tag store's view, for the notes ----

// A TiffTag holding FILE, read-only; null when it cannot be had. Its first
// error (or 0) is kept.
struct Store {
    kvObject tiff = nullptr;
    int32_t failure = 0;
    std::string message;

    explicit Store(const char* path) {
        kvObject error = nullptr;
        tiff = kvNewObject(&error, "TiffTag");
        if (tiff && kvSendMeth(&error, tiff, "openTIFF", path, 0) == 1) return;
        if (error) {
            failure = static_cast<int32_t>(kvSendMeth(nullptr, error, "getCode"));
            const auto* text =
                reinterpret_cast<const char*>(kvSendMeth(nullptr, error, "getMessage"));
            message = text ? text : "";
            while (error)
                kvSendMeth(&error, error, "deleteTopError");
        }
        if (tiff) kvDelObject(nullptr, tiff);
        tiff = nullptr;
    }
    ~Store() {
        if (tiff) kvDelObject(nullptr, tiff);
    }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
};

// The note shown beside an entry when TiffTag hands a caller something
// other than the file holds, or an empty text. `fileItems` are the entry's
// first `items` items as the file holds them.
std::string storeNote(Store& store, uint32_t directory, uint32_t index,
                      const kova::tiff::Entry& entry, const uint8_t* fileItems, uint64_t items,
                      bool bigEndian, bool all) {
    if (!store.tiff) return {};
    kvObject error = nullptr;
    kvSendMeth(&error, store.tiff, "setCurIndex", directory);
    const kvResult found = kvSendMeth(&error, store.tiff, "findTag", entry.tag);
    std::string note;
    if (found != kvResult(index)) {
        note = "TiffTag finds entry " + std::to_string(found) + " for this tag";
    } else if (kova::tiff::itemSize(entry.type) == 0 && kova::tiff::typeInfo(entry.type)) {
        note = "TiffTag reads no bytes of this type";
    } else if (kova::tiff::itemSize(entry.type) != 0 && items) {
        const uint32_t size = kova::tiff::itemSize(entry.type);
        std::vector<uint8_t> got(size_t(items) * size + 8);
        const kvResult delivered =
            kvSendMeth(&error, store.tiff, "getTagData", kvResult(items), got.data());
        // What the file holds, in host order: the same items, converted.
        std::vector<uint8_t> expected(size_t(items) * size);
        for (uint64_t i = 0; i < items * (entry.type == 5 ? 2 : 1); ++i) {
            const size_t width = entry.type == 5 ? 4 : size;
            const uint64_t value = word(fileItems + i * width, width, bigEndian);
            for (size_t b = 0; b < width; ++b)
                expected[i * width + b] = uint8_t(value >> (8 * b));
        }
        if (delivered != kvResult(items) ||
            std::memcmp(got.data(), expected.data(), expected.size()) != 0) {
            note = "TiffTag hands a caller " + valuesOf(entry.type, got.data(), items,
                                                        uint64_t(std::max<kvResult>(delivered, 0)),
                                                        false, all);
            if (bigEndian && uint64_t(entry.count) * size <= kova::tiff::valueFieldSize)
                note += ": items in a big-endian value field are converted twice";
            else if (bigEndian && entry.type == 5)
                note += ": numerator and denominator exchanged";
        }
    }
    while (error)
        kvSendMeth(&error, error, "deleteTopError");
    return note;
}

// ---- showing a file ----

struct Showing {
    kova::tiff::Reader& reader;
    bool bigEndian;
    bool all;
    Store& store;
    bool damaged = false;

    // Reports where the file goes wrong; the showing goes on where it can.
    void wrong(const std::string& what, uint64_t offset) {
        std::printf("  !! %s: at byte %s\n", what.c_str(), offsetText(offset).c_str());
        damaged = true;
    }

    void showEntry(uint32_t directory, uint32_t index, const kova::tiff::Entry& entry) {
        std::printf("  %s %s %" PRIu32, tagText(entry.tag).c_str(), typeText(entry.type).c_str(),
                    entry.count);
        const kova::tiff::TypeInfo* info = kova::tiff::typeInfo(entry.type);
        if (!info) {
            std::printf(" <items of an unknown size, value field %s>\n", hex(entry.value).c_str());
            return;
        }
        const uint64_t bytes = uint64_t(entry.count) * info->fileSize;
        const uint64_t wanted = all ? entry.count : std::min<uint64_t>(entry.count, shownValues);
        const uint64_t wantedBytes =
            entry.type == 2 ? (all ? bytes : std::min<uint64_t>(bytes, shownCharacters))
                            : wanted * info->fileSize;
        std::vector<uint8_t> items(size_t(std::min<uint64_t>(wantedBytes, reader.size())) + 8);
        uint64_t available = entry.type == 2 ? wantedBytes : wanted;
        if (bytes <= kova::tiff::valueFieldSize) {
            // The value field as the file holds it.
            const uint32_t field = bigEndian ? kova::tiff::swap32(entry.value) : entry.value;
            std::memcpy(items.data(), &field, 4);
        } else {
            std::printf(" at %s", offsetText(entry.value).c_str());
            if (uint64_t(entry.value) + bytes > reader.size()) {
                std::printf("\n");
                wrong("its " + std::to_string(bytes) +
                          " bytes of items run past the end of the file",
                      entry.value);
                return;
            }
            if (!reader.seek(entry.value) || !reader.read(items.data(), wantedBytes)) {
                std::printf("\n");
                wrong("its items cannot be read", reader.failedAt());
                return;
            }
        }
        std::printf(" %s", valuesOf(entry.type, items.data(), entry.type == 2 ? bytes : entry.count,
                                    available, bigEndian, all)
                               .c_str());
        const std::string note = storeNote(store, directory, index, entry, items.data(),
                                           entry.type == 2 ? available : wanted, bigEndian, all);
        if (!note.empty()) std::printf("\n      [%s]", note.c_str());
        std::printf("\n");
    }

    // Shows the chain from `offset`; false when it breaks off.
    bool showChain(uint32_t offset, uint64_t linkAt) {
        std::set<uint32_t> visited;
        for (uint32_t directory = 0; offset != 0; ++directory) {
            if (!visited.insert(offset).second) {
                wrong("the link leads back to a directory already shown, at " + offsetText(offset),
                      linkAt);
                return false;
            }
            uint16_t count = 0;
            if (!reader.seek(offset) || !reader.read16(count)) {
                wrong("directory " + std::to_string(directory) + " at " + offsetText(offset) +
                          " lies past the end of the file (" + std::to_string(reader.size()) +
                          " bytes)",
                      linkAt);
                return false;
            }
            std::vector<kova::tiff::Entry> entries(count);
            const bool whole = reader.read(entries.data(), uint64_t(count) * kova::tiff::entrySize);
            std::printf("Directory %" PRIu32 " at offset %s: %u entries\n", directory,
                        offsetText(offset).c_str(), count);
            if (!whole) {
                wrong(std::to_string(count) + " entries need " + std::to_string(count * 12u) +
                          " bytes; the file has " + std::to_string(reader.remaining()),
                      offset + 2u);
                return false;
            }
            reader.convert(entries.data(), count);
            const uint64_t nextAt = reader.position();
            uint32_t next = 0;
            if (!reader.read32(next)) {
                wrong("the link to the next directory is cut off", nextAt);
                return false;
            }
            for (uint32_t i = 0; i < count; ++i)
                showEntry(directory, i, entries[i]);
            std::printf("  next directory at offset %s\n", offsetText(next).c_str());
            offset = next;
            linkAt = nextAt;
        }
        return true;
    }
};

int showFile(const char* path, bool all) {
    File file(std::fopen(path, "rb"));
    if (!file) return command.fail("cannot open " + quoted(path));
    kova::tiff::Reader reader(file.get());
    kova::tiff::Header header{};
    if (!reader.measure()) return command.fail("cannot tell the length of " + quoted(path));
    if (!reader.read(&header, sizeof header))
        return command.fail(quoted(path) + " is " + std::to_string(reader.size()) +
                            " bytes long, shorter than a TIFF header (8 bytes)");
    const bool bigEndian = std::memcmp(header.byteOrder, "MM", 2) == 0;
    if (!bigEndian && std::memcmp(header.byteOrder, "II", 2) != 0)
        return command.fail(quoted(path) + " does not start with II or MM (byte 0)");
    reader.setSwapBytes(bigEndian);
    const uint16_t magic = bigEndian ? kova::tiff::swap16(header.magic) : header.magic;
    const uint32_t first = bigEndian ? kova::tiff::swap32(header.firstOffset) : header.firstOffset;
    std::printf("%s: %" PRIu64 " bytes, %s (%.2s), magic %u, first directory at offset %s\n", path,
                reader.size(), bigEndian ? "big-endian" : "little-endian", header.byteOrder, magic,
                offsetText(first).c_str());
    if (magic != kova::tiff::magicNumber)
        return command.fail("the magic number is " + std::to_string(magic) + ", not 42 (byte 2)");

    kvInitialize();
    int result = Success;
    {
        Store store(path);
        Showing showing{reader, bigEndian, all, store};
        showing.showChain(first, 4);
        if (!store.tiff && store.failure)
            std::printf("TiffTag refuses the file: error %d, %s\n", store.failure,
                        store.message.c_str());
        if (showing.damaged) result = command.fail(quoted(path) + " is damaged (see the !! lines)");
    }
    kvTerminate();
    return result;
}

// ---- editing ----

struct EditArguments {
    const char* path = nullptr;
    int32_t directory = 0;
    std::vector<const char*> words; // what follows FILE and --ifd N
};

bool parseNumber(const char* text, int64_t low, int64_t high, int64_t& value) {
    if (!text || !*text) return false;
    char* end = nullptr;
    const long long parsed = std::strtoll(text, &end, 0);
    if (*end || parsed < low || parsed > high) return false;
    value = parsed;
    return true;
}

// A tag given by name or number, or -1.
int32_t parseTag(const char* text) {
    int64_t number = 0;
    if (parseNumber(text, 0, 65535, number)) return int32_t(number);
    return kova::tiff::tagNumber(text);
}

// A type TiffTag stores, given by name or code, or 0.
uint16_t parseType(const char* text) {
    int64_t number = 0;
    if (parseNumber(text, 1, 5, number)) return uint16_t(number);
    for (uint16_t code = 1; code <= 5; ++code) {
        const std::string_view name = kova::tiff::typeInfo(code)->name;
        if (name.size() != std::strlen(text)) continue;
        bool same = true;
        for (size_t i = 0; i < name.size() && same; ++i)
            same = kova::tiff::asciiLower(name[i]) == kova::tiff::asciiLower(text[i]);
        if (same) return code;
    }
    return 0;
}

// Turns VALUE words into the items of `type` in host order; false with a
// message for a value the type cannot hold.
bool encodeValues(uint16_t type, const std::vector<const char*>& values,
                  std::vector<uint8_t>& items, uint32_t& count, std::string& problem) {
    if (type == 2) {
        std::string text;
        for (size_t i = 0; i < values.size(); ++i)
            text += (i ? " " : "") + std::string(values[i]);
        items.assign(text.begin(), text.end());
        items.push_back(0);
        count = uint32_t(items.size());
        return true;
    }
    const uint32_t size = kova::tiff::itemSize(type);
    for (const char* value : values) {
        int64_t numbers[2] = {0, 1};
        const char* slash = type == 5 ? std::strchr(value, '/') : nullptr;
        const std::string first = slash ? std::string(value, slash) : std::string(value);
        const int64_t high = size == 1 ? 255 : size == 2 ? 65535 : 4294967295LL;
        if (!parseNumber(first.c_str(), 0, high, numbers[0]) ||
            (slash && !parseNumber(slash + 1, 0, high, numbers[1]))) {
            problem = quoted(value) + " is not a " + kova::tiff::typeInfo(type)->name + " value";
            return false;
        }
        for (int part = 0; part < (type == 5 ? 2 : 1); ++part) {
            const size_t width = type == 5 ? 4 : size;
            for (size_t b = 0; b < width; ++b)
                items.push_back(uint8_t(uint64_t(numbers[part]) >> (8 * b)));
        }
    }
    count = uint32_t(values.size());
    return true;
}

// A TiffTag with FILE open for update and directory N selected, for one edit.
class Editor {
  public:
    explicit Editor(const EditArguments& arguments) : path_(arguments.path) {
        kvInitialize();
        tiff_ = kvNewObject(&error_, "TiffTag");
    }
    ~Editor() {
        clearErrors();
        if (tiff_) kvDelObject(nullptr, tiff_);
        kvTerminate();
    }
    Editor(const Editor&) = delete;
    Editor& operator=(const Editor&) = delete;

    // Opens the file; an empty text when it is open, else what went wrong.
    std::string open() {
        File file(std::fopen(path_, "rb"));
        char order[2] = {};
        if (!file || std::fread(order, 1, 2, file.get()) != 2)
            return "cannot read " + quoted(path_);
        if (std::memcmp(order, "MM", 2) == 0)
            return quoted(path_) +
                   " is big-endian: TiffTag writes the header and directory links of such a "
                   "file in host order, which would leave it unreadable; not changed";
        if (!tiff_ || send("openTIFF", path_, 1) != 1)
            return "TiffTag cannot open " + quoted(path_) + failureText();
        return {};
    }

    std::string select(int32_t directory) {
        if (send("setCurIndex", directory) == directory) return {};
        clearErrors();
        return quoted(path_) + " has no directory " + std::to_string(directory) + " (it has " +
               std::to_string(send("getIFDCount")) + ")";
    }

    template <typename... A> kvResult send(const char* method, A... args) {
        return kvSendMeth(&error_, tiff_, method, args...);
    }

    // Writes the directories back and closes the file; an empty text on
    // success, else the first error.
    std::string finish() {
        send("flushIFDs");
        send("closeTIFF");
        return error_ ? "writing " + quoted(path_) + " failed" + failureText() : std::string();
    }

    // ": error N, TEXT" for the error in the slot (then cleared), or "".
    std::string failureText() {
        if (!error_) return {};
        const auto code = kvSendMeth(nullptr, error_, "getCode");
        const auto* text = reinterpret_cast<const char*>(kvSendMeth(nullptr, error_, "getMessage"));
        std::string result = ": error " + std::to_string(code) + ", " + (text ? text : "");
        clearErrors();
        return result;
    }

  private:
    void clearErrors() {
        while (error_)
            kvSendMeth(&error_, error_, "deleteTopError");
    }

    const char* path_;
    kvObject tiff_ = nullptr;
    kvObject error_ = nullptr;
};

int runSet(const EditArguments& arguments) {
    if (arguments.words.size() < 3)
        return command.badUsage("set needs TAG, TYPE and at least one VALUE");
    const int32_t tag = parseTag(arguments.words[0]);
    if (tag < 0)
        return command.badUsage(quoted(arguments.words[0]) + " is not a tag name or number");
    const uint16_t type = parseType(arguments.words[1]);
    if (!type)
        return command.badUsage(
            quoted(arguments.words[1]) +
            " is not a type TiffTag stores (byte, ascii, short, long, rational)");
    std::vector<uint8_t> items;
    uint32_t count = 0;
    std::string problem;
    if (!encodeValues(type, {arguments.words.begin() + 2, arguments.words.end()}, items, count,
                      problem))
        return command.badUsage(problem);

    Editor editor(arguments);
    if (std::string failure = editor.open(); !failure.empty()) return command.fail(failure);
    if (std::string failure = editor.select(arguments.directory); !failure.empty())
        return command.fail(failure);
    const bool present = editor.send("findTag", tag) >= 0;
    if (present && editor.send("getTagType") != type)
        return command.fail(tagText(uint16_t(tag)) + " is " +
                            typeText(uint16_t(editor.send("getTagType"))) +
                            " in the file, and TiffTag keeps an entry's type when it replaces "
                            "the values: delete the tag first");
    const uint32_t size = kova::tiff::itemSize(type);
    const uint32_t before = present ? uint32_t(editor.send("getTagItemCount")) : 0;
    if (count > before && uint64_t(count) * size <= kova::tiff::valueFieldSize) {
        // TiffTag leaves an entry's count as it was when more items than
        // before still fit in the value field; a first store of more than 4
        // bytes gives the entry room, so that the real store then fits
        // within the old items and sets the count.
        const std::vector<uint8_t> room(8, 0);
        editor.send("addTag", tag, type, (kova::tiff::valueFieldSize / size) + 1, room.data());
    }
    if (editor.send("addTag", tag, type, count, items.data()) < 0)
        return command.fail("TiffTag refused the tag" + editor.failureText() +
                            " (a directory without entries takes no tags)");
    if (std::string failure = editor.finish(); !failure.empty()) return command.fail(failure);
    std::printf("%s: directory %d: %s %s %" PRIu32 "\n", arguments.path, arguments.directory,
                tagText(uint16_t(tag)).c_str(), typeText(type).c_str(), count);
    return Success;
}

int runDelete(const EditArguments& arguments) {
    if (arguments.words.size() != 1) return command.badUsage("delete needs one TAG");
    const int32_t tag = parseTag(arguments.words[0]);
    if (tag < 0)
        return command.badUsage(quoted(arguments.words[0]) + " is not a tag name or number");
    Editor editor(arguments);
    if (std::string failure = editor.open(); !failure.empty()) return command.fail(failure);
    if (std::string failure = editor.select(arguments.directory); !failure.empty())
        return command.fail(failure);
    // With a single directory in its table, TiffTag's deleteTag empties the
    // whole directory; a second record for the length of the deletion makes
    // it remove just the one entry. The record has no place in the file and
    // goes again before the flush.
    const bool single = editor.send("getIFDCount") == 1;
    if (single) editor.send("addIFDs", 1);
    const kvResult index = editor.send("deleteTag", tag);
    if (single) editor.send("deleteIFD", 1);
    if (index < 0)
        return command.fail("directory " + std::to_string(arguments.directory) + " has no " +
                            tagText(uint16_t(tag)) + editor.failureText());
    if (std::string failure = editor.finish(); !failure.empty()) return command.fail(failure);
    std::printf("%s: directory %d: deleted %s\n", arguments.path, arguments.directory,
                tagText(uint16_t(tag)).c_str());
    return Success;
}

int runAddIfd(const EditArguments& arguments) {
    if (!arguments.words.empty() || arguments.directory != 0)
        return command.badUsage("add-ifd takes only FILE");
    Editor editor(arguments);
    if (std::string failure = editor.open(); !failure.empty()) return command.fail(failure);
    const kvResult count = editor.send("getIFDCount");
    // TiffTag writes only while a directory with entries is selected.
    if (count == 0)
        return command.fail(quoted(arguments.path) +
                            " has no directory: TiffTag writes a new directory only beside one "
                            "it has read");
    editor.send("addIFDs", 1);
    editor.select(0);
    if (std::string failure = editor.finish(); !failure.empty()) return command.fail(failure);
    std::printf("%s: added directory %d (empty); give it tags with kova tiff set %s --ifd %d\n",
                arguments.path, int(count), arguments.path, int(count));
    return Success;
}

} // namespace

int runTiff(int argc, char** argv) {
    if (wantsHelp(argc, argv)) {
        std::fputs(usageText, stdout);
        return Success;
    }
    if (argc < 2) {
        std::fputs(usageText, stderr);
        return BadUsage;
    }
    const std::string_view action = argv[1];
    if (action != "set" && action != "delete" && action != "add-ifd") {
        const bool all = argc == 3 && !std::strcmp(argv[2], "--all");
        if (argc > 3 || (argc == 3 && !all))
            return command.badUsage("unexpected " + quoted(argv[2]));
        return showFile(argv[1], all);
    }
    EditArguments arguments;
    for (int i = 2; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--ifd")) {
            int64_t directory = 0;
            if (i + 1 >= argc || !parseNumber(argv[i + 1], 0, INT32_MAX, directory))
                return command.badUsage("--ifd needs a directory number");
            arguments.directory = int32_t(directory);
            ++i;
        } else if (!arguments.path) {
            arguments.path = argv[i];
        } else {
            arguments.words.push_back(argv[i]);
        }
    }
    if (!arguments.path) return command.badUsage(std::string(action) + " needs FILE");
    if (action == "set") return runSet(arguments);
    if (action == "delete") return runDelete(arguments);
    return runAddIfd(arguments);
}

} // namespace kova::tools
