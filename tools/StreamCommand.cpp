// kova stream: shows a saved property collection (the KVST frame) for a
// person: the magic, each member's class, name and id field, the member's own
// record for the classes whose saved form is known, and the byte offset of
// every field and of whatever goes wrong. The file is outside data: every
// length is checked against what is left before it is used. With
// --write-sample it has the kernel save a small collection, so that the
// format can be seen going round.
#include "kova/kernel.h"
#include "tools/Command.hpp"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kova::tools {
namespace {

constexpr const char* usageText =
    "usage: kova stream FILE\n"
    "       kova stream --write-sample FILE\n"
    "\n"
    "Shows FILE as a saved property collection: the KVST magic, each member's\n"
    "class name, name and id field, the member's record where its class's saved\n"
    "form is known (IntProp, IRngProp, BoolProp, StrProp, RealProp, and\n"
    "CollectProp, whose record is a frame of its own), and the end marker\n"
    "KvStreamEnd. Each line starts with the byte offset of what it shows.\n"
    "Decoding stops, with the offset, where the data ends early or goes wrong,\n"
    "or at a member whose class's record cannot be told apart from what follows.\n"
    "\n"
    "--write-sample FILE  has the kernel save a sample collection to FILE\n"
    "\n"
    "FILE may be a pipe or a device; more than 64 MB is refused.\n"
    "\n"
    "Exit status: 0 done, 1 failed (the file is not a whole frame, cannot be read\n"
    "or written, or holds more than 64 MB), 2 bad usage.\n";

// Larger files are refused: a collection reads at most this much saved data
// at once, and a pipe or device that never ends must not be read for ever.
constexpr size_t largestFile = 64u << 20;
constexpr int deepestNesting = 16; // collections saved inside collections
constexpr size_t longestShownText = 64;
constexpr uint8_t magicBytes[] = {0x54, 0x53, 0x56, 0x4B};
constexpr std::string_view endMarker = "KvStreamEnd";

constexpr Command command{"stream", usageText};

// Text from the file as a person can read it: printable characters as they
// are, others as \xNN, long texts cut.
std::string shown(std::span<const uint8_t> bytes) {
    std::string text = "\"";
    for (size_t i = 0; i < bytes.size() && i < longestShownText; ++i) {
        const uint8_t c = bytes[i];
        if (c >= 0x20 && c < 0x7f && c != '"' && c != '\\') {
            text += static_cast<char>(c);
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02X", c);
            text += escape;
        }
    }
    text += '"';
    if (bytes.size() > longestShownText)
        text += " ... (" + std::to_string(bytes.size()) + " characters)";
    return text;
}

std::string describeFlags(uint16_t flags) {
    struct Bit {
        uint16_t value;
        const char* meaning;
    };
    static constexpr Bit bits[] = {
        {0x0001, "persistent"}, {0x0008, "boolean true"},   {0x0010, "has notifications"},
        {0x0040, "silent"},     {0x0100, "needs cleaning"}, {0x2000, "forwarder"},
    };
    char word[8];
    std::snprintf(word, sizeof word, "0x%04X", flags);
    std::string text = word;
    std::string meanings;
    uint16_t rest = flags;
    for (const Bit& bit : bits) {
        if (!(flags & bit.value)) continue;
        meanings += (meanings.empty() ? "" : ", ") + std::string(bit.meaning);
        rest = static_cast<uint16_t>(rest & ~bit.value);
    }
    if (rest) {
        std::snprintf(word, sizeof word, "0x%04X", rest);
        meanings += (meanings.empty() ? "class bits " : ", class bits ") + std::string(word);
    }
    return meanings.empty() ? text : text + " (" + meanings + ")";
}

// A cursor over the file's bytes that never moves past their end.
class ByteReader {
  public:
    explicit ByteReader(std::span<const uint8_t> bytes) : bytes(bytes) {}

    size_t offset() const { return at; }
    size_t remaining() const { return bytes.size() - at; }

    // The next `count` bytes, or false (the cursor unmoved) when fewer are left.
    bool take(size_t count, std::span<const uint8_t>& out) {
        if (count > remaining()) return false;
        out = bytes.subspan(at, count);
        at += count;
        return true;
    }

    template <typename T> bool little(T& value) {
        std::span<const uint8_t> raw;
        if (!take(sizeof(T), raw)) return false;
        uint64_t bits = 0;
        for (size_t i = 0; i < sizeof(T); ++i)
            bits |= static_cast<uint64_t>(raw[i]) << (8 * i);
        std::memcpy(&value, &bits, sizeof(T)); // the low bytes on this little-endian host
        return true;
    }

  private:
    std::span<const uint8_t> bytes;
    size_t at = 0;
};

// Decodes one frame, printing a line per field; on the first problem prints
// it with its offset and answers false.
class FrameDecoder {
  public:
    explicit FrameDecoder(std::span<const uint8_t> bytes) : reader(bytes) {}

    size_t offset() const { return reader.offset(); }
    size_t remaining() const { return reader.remaining(); }
    size_t members() const { return memberCount; }
    // The class of the first entry of the outer frame ("" for none).
    const std::string& firstEntryClass() const { return firstClass; }

    bool frame(int depth) {
        const size_t start = offset();
        std::span<const uint8_t> magic;
        if (!reader.take(4, magic)) return problem(start, "the data ends inside the KVST magic");
        if (std::memcmp(magic.data(), magicBytes, 4) != 0) {
            char found[32];
            std::snprintf(found, sizeof found, "%02X %02X %02X %02X", magic[0], magic[1], magic[2],
                          magic[3]);
            return problem(start, std::string("no KVST magic (54 53 56 4B); found ") + found +
                                      ", where a collection stops reading");
        }
        line(start, depth, "magic", "54 53 56 4B \"KVST\"");
        for (size_t index = 1;; ++index) {
            const size_t entry = offset();
            std::string className;
            if (!label(className, "class-name", true)) return false;
            if (depth == 0 && index == 1) firstClass = className;
            if (className == endMarker) {
                line(entry, depth, "end marker", shown(asBytes(className)));
                return true;
            }
            line(entry, depth, "member " + std::to_string(index),
                 "class " + shown(asBytes(className)));
            if (depth == 0) ++memberCount;
            if (!member(className, depth + 1)) return false;
        }
    }

  private:
    static std::span<const uint8_t> asBytes(const std::string& text) {
        return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
    }

    void line(size_t at, int depth, const std::string& field, const std::string& value) {
        std::printf("%8zu  %*s%-12s %s\n", at, depth * 2, "", field.c_str(), value.c_str());
    }

    bool problem(size_t at, const std::string& text) {
        std::printf("%8zu  error: %s\n", at, text.c_str());
        return false;
    }

    bool truncated(size_t at, const std::string& what, size_t wanted) {
        return problem(at, "the data ends inside " + what + ": " + std::to_string(wanted) +
                               " bytes wanted, " + std::to_string(remaining()) + " left");
    }

    // A length byte and that many characters. A class name's length byte is
    // signed for the reader, which refuses 128 or more.
    bool label(std::string& text, const std::string& what, bool isClassName) {
        const size_t at = offset();
        uint8_t length = 0;
        if (!reader.little(length)) return truncated(at, "a " + what + " length", 1);
        if (isClassName && length >= 128)
            return problem(at, "class-name length " + std::to_string(length) +
                                   " is 128 or more, which a collection cannot read");
        std::span<const uint8_t> raw;
        if (!reader.take(length, raw)) return truncated(at + 1, "a " + what, length);
        text.assign(raw.begin(), raw.end());
        return true;
    }

    bool member(const std::string& className, int depth) {
        const size_t at = offset();
        std::string name;
        if (!label(name, "name", false)) return false;
        line(at, depth, "name", shown(asBytes(name)));
        const size_t idAt = offset();
        int16_t id = 0;
        if (!reader.little(id)) return truncated(idAt, "the id field", 2);
        line(idAt, depth, "id", std::to_string(id) + (id ? "" : " (saved collections write 0)"));
        return record(className, depth);
    }

    bool flagsWord(int depth) {
        const size_t at = offset();
        uint16_t flags = 0;
        if (!reader.little(flags)) return truncated(at, "the flags word", 2);
        line(at, depth, "flags", describeFlags(flags));
        return true;
    }

    bool int32Field(int depth, const char* field) {
        const size_t at = offset();
        int32_t value = 0;
        if (!reader.little(value)) return truncated(at, std::string("the ") + field, 4);
        line(at, depth, field, std::to_string(value));
        return true;
    }

    bool floatField(int depth, const char* field) {
        const size_t at = offset();
        float value = 0;
        if (!reader.little(value)) return truncated(at, std::string("the ") + field, 4);
        char text[32];
        std::snprintf(text, sizeof text, "%g", static_cast<double>(value));
        line(at, depth, field, text);
        return true;
    }

    bool stringValue(int depth) {
        const size_t at = offset();
        uint32_t length = 0;
        if (!reader.little(length)) return truncated(at, "the string length", 4);
        std::span<const uint8_t> raw;
        if (!reader.take(length, raw)) return truncated(at + 4, "the string", length);
        line(at, depth, "value", shown(raw) + " (" + std::to_string(length) + " characters)");
        return true;
    }

    bool truthValue(int depth) {
        const size_t at = offset();
        std::span<const uint8_t> raw;
        if (!reader.take(1, raw)) return truncated(at, "the truth character", 1);
        if (raw[0] != '0' && raw[0] != '1')
            return problem(at, "the truth character " + shown(raw) +
                                   " is neither \"1\" nor \"0\"; a BoolProp refuses it");
        line(at, depth, "value", raw[0] == '1' ? "\"1\" (true)" : "\"0\" (false)");
        return true;
    }

    // The record after a member's id field, by class.
    bool record(const std::string& className, int depth) {
        if (className == "IntProp") return flagsWord(depth) && int32Field(depth, "value");
        if (className == "IRngProp")
            return flagsWord(depth) && int32Field(depth, "minimum") &&
                   int32Field(depth, "maximum") && int32Field(depth, "step");
        if (className == "BoolProp") return flagsWord(depth) && truthValue(depth);
        if (className == "StrProp") return flagsWord(depth) && stringValue(depth);
        if (className == "RealProp")
            return flagsWord(depth) && floatField(depth, "value") &&
                   floatField(depth, "fetch copy");
        if (className == "CollectProp") {
            if (depth >= deepestNesting)
                return problem(offset(), "collections nested more than " +
                                             std::to_string(deepestNesting) + " deep");
            return frame(depth);
        }
        return problem(offset(), "the saved form of class " + shown(asBytes(className)) +
                                     " is not known here; a record carries no length of its "
                                     "own, so decoding stops");
    }

    ByteReader reader;
    size_t memberCount = 0;
    std::string firstClass;
};

// Reads the whole file, which may be a pipe or a device that never ends: at
// most largestFile bytes are taken, and a file that holds more is refused
// without reading further.
bool readFile(const char* path, std::vector<uint8_t>& bytes, std::string& why) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        why = std::string("cannot open '") + path + "'";
        return false;
    }
    constexpr size_t pieceSize = 1 << 16;
    bytes.clear();
    while (in) {
        const size_t have = bytes.size();
        if (have > largestFile) {
            why = std::string("'") + path + "' holds more than 64 MB, more than a saved " +
                  "collection may hold";
            bytes.clear();
            return false;
        }
        bytes.resize(have + pieceSize);
        in.read(reinterpret_cast<char*>(bytes.data() + have), pieceSize);
        bytes.resize(have + static_cast<size_t>(in.gcount()));
    }
    if (in.bad()) {
        why = std::string("cannot read '") + path + "'";
        return false;
    }
    return true;
}

// What the kernel's own reader makes of a whole frame.
void describeReading(const FrameDecoder& decoder) {
    if (decoder.members() == 0) {
        if (!decoder.remaining())
            std::printf("A collection reads this frame to its end and restores nothing.\n");
        return;
    }
    std::printf("A collection reading this frame stops at the first entry (class %s): entries "
                "are read only while their class name is the end marker, so it restores no "
                "members.\n",
                decoder.firstEntryClass().c_str());
}

int decodeFile(const char* path) {
    std::vector<uint8_t> bytes;
    std::string why;
    if (!readFile(path, bytes, why)) return command.fail(why);
    std::printf("%s: %zu bytes\n", path, bytes.size());
    if (bytes.empty()) {
        std::printf("The file is empty: what a collection that is not persistent saves.\n");
        return Success;
    }
    FrameDecoder decoder(bytes);
    if (!decoder.frame(0)) return command.fail(quoted(path) + " is not a whole saved collection");
    std::printf("%8zu  end of the frame: %zu members\n", decoder.offset(), decoder.members());
    if (decoder.remaining())
        std::printf("note: %zu bytes follow the end marker; a collection reading this frame "
                    "would take them for another entry\n",
                    decoder.remaining());
    describeReading(decoder);
    return Success;
}

// ---- the sample ----

// Adds a property made with (own arguments..., owner, name, id, flags).
template <typename... A>
void addMember(kvObject* error, kvObject props, const char* className, const char* name,
               uint16_t flags, A... own) {
    kvObject member = kvNewObject(error, className, own..., nullptr, name, 0, flags);
    kvSendMeth(error, props, "addProperty", member);
}

kvObject makeSample(kvObject* error) {
    const uint16_t persistent = KV_OBJ_PERSISTENT;
    kvObject props = kvNewObject(error, "CollectProp", 1, nullptr, "Sample", 0, persistent);
    addMember(error, props, "IntProp", "Width", persistent, 640);
    addMember(error, props, "StrProp", "Title", persistent, "Quarterly report");
    addMember(error, props, "BoolProp", "Duplex", persistent | 0x0008);
    addMember(error, props, "IRngProp", "Quality", persistent, 0, 100, 5, 75);
    addMember(error, props, "IntProp", "Scratch", 0, 1); // not persistent: not saved
    kvObject ratio = kvNewObject(error, "RealProp", nullptr, "Ratio", 0, persistent);
    const float oneAndAHalf = 1.5f;
    kvSendMeth(error, ratio, "storeData", &oneAndAHalf);
    kvSendMeth(error, props, "addProperty", ratio);
    kvObject margins = kvNewObject(error, "CollectProp", 1, nullptr, "Margins", 0, persistent);
    addMember(error, margins, "IntProp", "Top", persistent, 10);
    addMember(error, margins, "IntProp", "Bottom", persistent, 12);
    kvSendMeth(error, props, "addProperty", margins);
    return props;
}

// The errors in the slot other than 3427, which every saved member's id field
// leaves, deleted as they are counted.
int unexpectedErrors(kvObject& error) {
    int count = 0;
    while (error) {
        const kvResult code = kvSendMeth(nullptr, error, "getCode");
        if (code != 3427) {
            const auto* text =
                reinterpret_cast<const char*>(kvSendMeth(nullptr, error, "getMessage"));
            std::fprintf(stderr, "kova stream: error %ld: %s\n", static_cast<long>(code),
                         text ? text : "");
            ++count;
        }
        kvSendMeth(&error, error, "deleteTopError");
    }
    return count;
}

int writeSample(const char* path) {
    kvInitialize();
    kvObject error = nullptr;
    kvObject props = makeSample(&error);
    kvObject file = kvNewObject(&error, "FileStream", path, "wb");
    const bool opened = file && kvSendMeth(nullptr, file, "getFilePtr");
    if (opened) kvSendMeth(&error, props, "writeToStream", file);
    const kvResult length = opened ? kvSendMeth(&error, file, "getLength") : 0;
    kvDelObject(&error, file);
    kvDelObject(&error, props);
    if (!opened) {
        kvTerminate();
        return command.fail("cannot open " + quoted(path) + " for writing");
    }
    const int problems = unexpectedErrors(error);
    kvTerminate();
    if (problems) return command.fail("the sample could not be saved whole");
    std::printf("wrote %ld bytes to %s; 'kova stream %s' shows them\n", static_cast<long>(length),
                path, path);
    return Success;
}

} // namespace

int runStream(int argc, char** argv) {
    if (wantsHelp(argc, argv)) {
        std::fputs(usageText, stdout);
        return Success;
    }
    if (argc == 3 && !std::strcmp(argv[1], "--write-sample")) return writeSample(argv[2]);
    if (argc == 2 && argv[1][0] != '-') return decodeFile(argv[1]);
    if (argc < 2) return command.badUsage("a FILE is needed");
    return command.badUsage("unexpected arguments after " + quoted(argv[0]));
}

} // namespace kova::tools
