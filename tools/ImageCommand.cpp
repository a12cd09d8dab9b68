// kova image: shows a BMP file as the image classes see it (the file's
// header, its colour table, and the RawImage that setDIB makes of it), and
// converts one BMP file into another through RawImage and ImageData:
// promotion, demotion through the colour reducer, a region copy, or a merge
// of a second file. BMP files are outside data; what the file header and the
// bitmap header claim is checked before anything is read through them.
#include "kova/dib.h"
#include "kova/host.h"
#include "kova/image.h"
#include "kova/kernel.h"
#include "tools/Command.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace kova::tools {
namespace {

constexpr const char* usageText =
    "usage: kova image FILE.bmp\n"
    "       kova image convert IN.bmp OUT.bmp --promote BITS [--photometric N]\n"
    "       kova image convert IN.bmp OUT.bmp --demote BITS [--photometric N]\n"
    "       kova image convert IN.bmp OUT.bmp --crop L,T,R,B [--photometric N]\n"
    "       kova image convert IN.bmp OUT.bmp --merge OTHER.bmp@X,Y\n"
    "\n"
    "Shows a BMP file: its file and bitmap headers, its colour table, and the\n"
    "geometry of the RawImage made from it (bytes per line, samples, photometric\n"
    "value, resolution in dots per inch).\n"
    "\n"
    "convert loads IN.bmp into a RawImage held by an ImageData and writes OUT.bmp\n"
    "from the result:\n"
    "  --promote BITS   raise the depth to 4, 8, 16 or 24 bits\n"
    "  --demote BITS    lower the depth to 1, 4, 8 or 16 bits through the colour\n"
    "                   reducer (error diffusion; palettes made for the image)\n"
    "  --crop L,T,R,B   copy the region from column L, row T to before column R,\n"
    "                   row B (a bilevel copy starts at the byte holding L)\n"
    "  --merge F@X,Y    paste the image of F at column X, row Y\n"
    "  --photometric N  target photometric value: 0 white is zero, 1 black is\n"
    "                   zero, 2 RGB, 3 palette, 120 BGR (by default 0 for one bit,\n"
    "                   3 for 4 and 8 bits, 2 above)\n"
    "A bilevel result is written with white as 0, as a BMP viewer shows it.\n"
    "Only uncompressed BMP files are read.\n"
    "\n"
    "Exit status: 0 done, 1 failed (unreadable or refused file, failed\n"
    "conversion), 2 bad usage.\n";

constexpr Command command{"image", usageText};
constexpr size_t fileHeaderSize = 14;
constexpr size_t largestFile = 512u << 20; // larger files are refused unread

int quietMessageBox(const char*, const char*, unsigned) {
    return KV_IDOK;
}

// The kernel for the command's run, with its errors turned into text.
class Session {
  public:
    Session() {
        kvSetMessageBoxHook(quietMessageBox);
        kvInitialize();
    }
    ~Session() {
        while (error)
            kvSendMeth(&error, error, "deleteTopError");
        kvTerminate();
        kvSetMessageBoxHook(nullptr);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The newest error's message, and the slot emptied.
    std::string takeError() {
        std::string text;
        if (error) {
            const auto* message =
                reinterpret_cast<const char*>(kvSendMeth(nullptr, error, "getMessage"));
            text = message ? message : "";
        }
        while (error)
            kvSendMeth(&error, error, "deleteTopError");
        return text;
    }
    kvObject error = nullptr;
};

uint32_t le32(const std::vector<uint8_t>& bytes, size_t at) {
    uint32_t value;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

// A BMP file's bytes, checked as far as the command relies on them.
struct BmpFile {
    std::vector<uint8_t> bytes;
    std::string problem; // empty when the file can be used

    uint32_t bitsOffset() const { return le32(bytes, 10); }
    uint32_t headerSize() const { return le32(bytes, fileHeaderSize); }

    // The DIB a handle carries: the bitmap header, the colour table and
    // right after it the rows. The longer header forms are given as the
    // 40-byte header they begin with (a DIB handle's colour entries are 4
    // bytes only after that one), and rows that the file places further on
    // are moved up to the table.
    std::vector<uint8_t> dib() const {
        const uint32_t size = headerSize();
        const bool longer = size > sizeof(kvBitmapInfoHeader);
        const auto begin = bytes.begin();
        std::vector<uint8_t> block(begin + fileHeaderSize,
                                   begin + fileHeaderSize +
                                       (longer ? sizeof(kvBitmapInfoHeader) : size));
        if (longer) {
            const uint32_t infoSize = sizeof(kvBitmapInfoHeader);
            std::memcpy(block.data(), &infoSize, 4);
        }
        const size_t tableStart = fileHeaderSize + size;
        const size_t tableEnd =
            std::min(bytes.size(), tableStart + tableBytes(size, size >= 40 ? 4 : 3));
        const size_t rowsStart =
            bitsOffset() >= tableEnd && bitsOffset() < bytes.size() ? bitsOffset() : tableEnd;
        block.insert(block.end(), begin + tableStart, begin + tableEnd);
        block.insert(block.end(), begin + rowsStart, bytes.end());
        return block;
    }

  private:
    size_t tableBytes(uint32_t size, size_t entrySize) const {
        const uint16_t bitCount = size == 12 ? uint16_t(le32(bytes, fileHeaderSize + 10))
                                             : uint16_t(le32(bytes, fileHeaderSize + 14));
        const uint32_t used = size >= 40 ? le32(bytes, fileHeaderSize + 32) : 0;
        const size_t colours = used ? used : bitCount <= 8 ? size_t{1} << bitCount : 0;
        return std::min(colours, bytes.size()) * entrySize;
    }
};

BmpFile readBmp(const std::string& path) {
    BmpFile file;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        file.problem = "cannot open " + quoted(path);
        return file;
    }
    in.seekg(0, std::ios::end);
    const auto size = static_cast<size_t>(std::max<std::streamoff>(in.tellg(), 0));
    if (size > largestFile) {
        file.problem =
            quoted(path) + " is larger than " + std::to_string(largestFile >> 20) + " MB";
        return file;
    }
    in.seekg(0);
    file.bytes.assign(std::istreambuf_iterator<char>(in), {});
    const auto& b = file.bytes;
    if (b.size() < 2 || b[0] != 'B' || b[1] != 'M') {
        file.problem = quoted(path) + " is not a BMP file (no 'BM' header at offset 0)";
    } else if (b.size() < fileHeaderSize + 16) {
        file.problem = quoted(path) + " is cut short: " + std::to_string(b.size()) +
                       " bytes, less than the " + std::to_string(fileHeaderSize + 16) +
                       " of the headers' first fields";
    } else if (file.headerSize() < 12 || fileHeaderSize + file.headerSize() > b.size()) {
        file.problem = "bitmap header size " + std::to_string(file.headerSize()) +
                       " at offset 14 does not fit the file of " + std::to_string(b.size()) +
                       " bytes";
    } else if (file.headerSize() >= 20 && le32(b, fileHeaderSize + 16) != 0 &&
               !(le32(b, fileHeaderSize + 16) == 3 && b[fileHeaderSize + 14] == 16)) {
        file.problem = "compression " + std::to_string(le32(b, fileHeaderSize + 16)) +
                       " at offset 30: only uncompressed bitmaps are read";
    } else if (file.bitsOffset() < fileHeaderSize + file.headerSize()) {
        file.problem = "pixel offset " + std::to_string(file.bitsOffset()) +
                       " at offset 10 lies inside the bitmap header";
    }
    return file;
}

// A RawImage holding the file's bitmap, or null with the reason in `why`.
kvObject loadImage(Session& session, const BmpFile& file, std::string* why) {
    kvObject raw = kvNewObject(&session.error, "RawImage", 1, 1, 1, 1, nullptr, "Image", 0, 0);
    const std::vector<uint8_t> block = file.dib();
    kvMemHandle handle = kvGlobalAlloc(block.size());
    if (!raw || !handle) {
        *why = "out of memory";
        kvGlobalFree(handle);
        if (raw) kvDelObject(nullptr, raw);
        return nullptr;
    }
    std::memcpy(kvGlobalLock(handle), block.data(), block.size());
    kvGlobalUnlock(handle);
    if (!kvSendMeth(&session.error, raw, "setDIB", handle)) {
        const std::string message = session.takeError();
        *why = message.empty() ? "the bitmap's bit count has no image layout" : message;
        kvGlobalFree(handle);
        kvDelObject(nullptr, raw);
        return nullptr;
    }
    return raw;
}

kvResult get(kvObject obj, const char* method) {
    return kvSendMeth(nullptr, obj, method);
}

const char* photometricName(kvResult value) {
    switch (value) {
    case KV_PHOTOMETRIC_WHITE_IS_ZERO:
        return "white is zero";
    case KV_PHOTOMETRIC_BLACK_IS_ZERO:
        return "black is zero";
    case KV_PHOTOMETRIC_RGB:
        return "RGB";
    case KV_PHOTOMETRIC_PALETTE:
        return "palette";
    case KV_PHOTOMETRIC_BGR:
        return "BGR";
    default:
        return "unknown";
    }
}

int showFile(const std::string& path) {
    const BmpFile file = readBmp(path);
    if (!file.problem.empty()) return command.fail(file.problem);
    const auto& b = file.bytes;
    std::printf("file: %s, %zu bytes; pixels at offset %u\n", path.c_str(), b.size(),
                file.bitsOffset());
    const uint32_t headerSize = file.headerSize();
    kvBitmapInfoHeader h{};
    const bool core = headerSize == 12;
    if (core) {
        kvBitmapCoreHeader c;
        std::memcpy(&c, b.data() + fileHeaderSize, sizeof c);
        h = {c.bcSize, c.bcWidth, c.bcHeight, c.bcPlanes, c.bcBitCount, 0, 0, 0, 0, 0, 0};
    } else {
        std::memcpy(&h, b.data() + fileHeaderSize, std::min<size_t>(headerSize, sizeof h));
    }
    std::printf("header (%u bytes%s): width %d, height %d%s, planes %u, %u bits a pixel, "
                "compression %u, image size %u, %d x %d pixels a metre, %u colours used\n",
                headerSize, core ? ", older form" : "", h.biWidth, h.biHeight,
                h.biHeight < 0 ? " (top-down)" : "", h.biPlanes, h.biBitCount, h.biCompression,
                h.biSizeImage, h.biXPelsPerMeter, h.biYPelsPerMeter, h.biClrUsed);
    const size_t entrySize = headerSize >= 40 ? 4 : 3;
    const size_t colours = headerSize == 40 && h.biClrUsed ? h.biClrUsed
                           : h.biBitCount <= 8             ? size_t{1} << h.biBitCount
                                                           : 0;
    const size_t table = fileHeaderSize + headerSize;
    const size_t shown = std::min(colours, (b.size() - table) / entrySize);
    if (colours) std::printf("colour table: %zu entries of %zu bytes\n", colours, entrySize);
    for (size_t i = 0; i < shown; ++i) {
        const uint8_t* e = b.data() + table + i * entrySize;
        std::printf("  %3zu: red %3u green %3u blue %3u\n", i, e[2], e[1], e[0]);
    }
    Session session;
    std::string why;
    kvObject raw = loadImage(session, file, &why);
    if (!raw) return command.fail("the image classes refuse it: " + why);
    std::printf("image: %ld x %ld, %ld bytes a line, %ld bits a sample x %ld samples = %ld bits a "
                "pixel, photometric %ld (%s), %ld x %ld dots per inch, palette of %ld entries\n",
                long(get(raw, "getImageWidth")), long(get(raw, "getImageHeight")),
                long(get(raw, "getBytesPerLine")), long(get(raw, "getBitsPerSample")),
                long(get(raw, "getSamplesPerPixel")), long(get(raw, "getBitsPerPixel")),
                long(get(raw, "getPhotoMetricInterp")),
                photometricName(get(raw, "getPhotoMetricInterp")), long(get(raw, "getXResolution")),
                long(get(raw, "getYResolution")), long(get(raw, "getPaletteSize")));
    kvDelObject(nullptr, raw);
    return Success;
}

// "A,B,..." as exactly `count` integers.
std::optional<std::vector<int32_t>> numbers(const std::string& text, size_t count) {
    std::vector<int32_t> values;
    const char* at = text.c_str();
    while (true) {
        char* end = nullptr;
        const long value = std::strtol(at, &end, 10);
        if (end == at || value < INT16_MIN || value > INT16_MAX) return std::nullopt;
        values.push_back(int32_t(value));
        if (*end == '\0') break;
        if (*end != ',') return std::nullopt;
        at = end + 1;
    }
    if (values.size() != count) return std::nullopt;
    return values;
}

// Writes the image's DIB as a BMP file. A bilevel black-is-zero image is
// first turned to white-is-zero, since its DIB's colour table always puts
// white first.
int writeImage(Session& session, kvObject raw, const std::string& path) {
    if (get(raw, "getBitsPerPixel") == 1)
        kvSendMeth(&session.error, raw, "setPhotoMetricInterp", KV_PHOTOMETRIC_WHITE_IS_ZERO);
    const auto dib = reinterpret_cast<kvMemHandle>(kvSendMeth(&session.error, raw, "getDIB"));
    if (!dib) return command.fail("no bitmap of the result: " + session.takeError());
    const size_t size = kvGlobalSize(dib);
    const auto* block = static_cast<const uint8_t*>(kvGlobalLock(dib));
    kvBitmapInfoHeader header;
    std::memcpy(&header, block, sizeof header);
    const size_t colours = header.biBitCount <= 8 ? size_t{1} << header.biBitCount : 0;
    uint8_t fileHeader[fileHeaderSize] = {'B', 'M'};
    const auto fileSize = uint32_t(fileHeaderSize + size);
    const auto offset = uint32_t(fileHeaderSize + sizeof header + 4 * colours);
    std::memcpy(fileHeader + 2, &fileSize, 4);
    std::memcpy(fileHeader + 10, &offset, 4);
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(fileHeader), fileHeaderSize);
    out.write(reinterpret_cast<const char*>(block), std::streamsize(size));
    kvGlobalUnlock(dib);
    kvGlobalFree(dib);
    if (!out) return command.fail("cannot write " + quoted(path));
    return Success;
}

int convert(int argc, char** argv) {
    if (argc < 5) return command.badUsage("convert needs IN.bmp, OUT.bmp and an operation");
    const std::string in = argv[1], out = argv[2], operation = argv[3], value = argv[4];
    std::optional<int32_t> photometric;
    for (int i = 5; i < argc; i += 2) {
        if (std::strcmp(argv[i], "--photometric") || i + 1 >= argc)
            return command.badUsage("unexpected " + quoted(argv[i]));
        const auto n = numbers(argv[i + 1], 1);
        if (!n) return command.badUsage("--photometric takes a number");
        photometric = (*n)[0];
    }
    const BmpFile file = readBmp(in);
    if (!file.problem.empty()) return command.fail(file.problem);
    Session session;
    std::string why;
    kvObject data = kvNewObject(&session.error, "ImageData", nullptr, "Page", 1, 0);
    kvObject raw = loadImage(session, file, &why);
    if (!data || !raw) {
        if (data) kvDelObject(nullptr, data);
        return command.fail(quoted(in) + ": " + why);
    }
    kvSendMeth(&session.error, data, "setRawImageObject", raw);
    auto finish = [&](int status) {
        kvDelObject(nullptr, data);
        return status;
    };
    auto defaultPhotometric = [&](int32_t bits) {
        return photometric.value_or(bits == 1 ? 0 : bits <= 8 ? 3 : 2);
    };
    if (operation == "--promote" || operation == "--demote") {
        const auto bits = numbers(value, 1);
        if (!bits) return finish(command.badUsage(operation + " takes a number of bits"));
        const int32_t target = (*bits)[0];
        const bool promote = operation == "--promote";
        kvSendMeth(&session.error, raw, promote ? "promoteImage" : "demoteImage", target,
                   defaultPhotometric(target));
        if (get(raw, "getBitsPerPixel") != target) {
            const std::string message = session.takeError();
            return finish(command.fail("cannot " + std::string(promote ? "promote" : "demote") +
                                       " a " + std::to_string(get(raw, "getBitsPerPixel")) +
                                       "-bit image to " + std::to_string(target) + " bits" +
                                       (message.empty() ? "" : ": " + message)));
        }
        return finish(writeImage(session, raw, out));
    }
    if (operation == "--crop") {
        const auto edges = numbers(value, 4);
        if (!edges) return finish(command.badUsage("--crop takes L,T,R,B"));
        std::vector<int32_t> params = {
            KV_IMAGE_PARAM_LEFT,  (*edges)[0], KV_IMAGE_PARAM_TOP,    (*edges)[1],
            KV_IMAGE_PARAM_RIGHT, (*edges)[2], KV_IMAGE_PARAM_BOTTOM, (*edges)[3]};
        if (photometric) params.insert(params.end(), {KV_IMAGE_PARAM_PHOTOMETRIC, *photometric});
        params.insert(params.end(), {-1, 0});
        const auto copy = reinterpret_cast<kvObject>(
            kvSendMeth(&session.error, data, "getRawImageObject", params.data()));
        if (!copy) return finish(command.fail("cannot copy the region: " + session.takeError()));
        const int status = writeImage(session, copy, out);
        kvDelObject(nullptr, copy);
        return finish(status);
    }
    if (operation == "--merge") {
        const size_t at = value.rfind('@');
        const auto position =
            at == std::string::npos ? std::nullopt : numbers(value.substr(at + 1), 2);
        if (!position) return finish(command.badUsage("--merge takes OTHER.bmp@X,Y"));
        const BmpFile other = readBmp(value.substr(0, at));
        if (!other.problem.empty()) return finish(command.fail(other.problem));
        kvObject source = loadImage(session, other, &why);
        if (!source) return finish(command.fail(quoted(value.substr(0, at)) + ": " + why));
        if (!kvSendMeth(&session.error, raw, "mergeBitmap", source, (*position)[0], (*position)[1],
                        0))
            return finish(command.fail("cannot merge: " + session.takeError()));
        return finish(writeImage(session, raw, out));
    }
    return finish(command.badUsage("unknown operation " + quoted(operation)));
}

} // namespace

int runImage(int argc, char** argv) {
    const int early = command.answerWithoutAction(argc, argv);
    if (early >= 0) return early;
    if (!std::strcmp(argv[1], "convert")) return convert(argc - 1, argv + 1);
    if (argc == 2 && argv[1][0] != '-') return showFile(argv[1]);
    return command.badUsage("expected FILE.bmp or convert");
}

} // namespace kova::tools
