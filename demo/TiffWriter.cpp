#include "TiffWriter.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace demo {

namespace {

enum Type : uint16_t { Ascii = 2, Short = 3, Long = 4, Rational = 5 };

struct Entry {
    uint16_t tag;
    uint16_t type;
    uint32_t count;
    std::vector<uint32_t> values; // one per item; a rational is two
};

void put16(std::vector<uint8_t>& out, uint32_t v) {
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}
void put32(std::vector<uint8_t>& out, uint32_t v) {
    put16(out, v & 0xFFFF);
    put16(out, v >> 16);
}

size_t sizeOf(const Entry& e) {
    switch (e.type) {
    case Ascii:
        return e.count;
    case Short:
        return 2u * e.count;
    case Rational:
        return 8u * e.count;
    default:
        return 4u * e.count;
    }
}

void putValues(std::vector<uint8_t>& out, const Entry& e) {
    for (uint32_t v : e.values) {
        if (e.type == Ascii)
            out.push_back(static_cast<uint8_t>(v));
        else if (e.type == Short)
            put16(out, v);
        else
            put32(out, v);
    }
}

const char software[] = "KOVA demo scanner";

struct Placed {
    size_t directory; // where the page's directory starts
    size_t link;      // its field for the next directory's offset
};

// Appends one page's strips and directory.
// Appends one page's strips and directory to `file`, whose first byte will lie
// at offset `base` of the file; the positions returned are within `file`.
Placed appendPage(std::vector<uint8_t>& file, const Page& page, uint64_t base, unsigned index,
                  unsigned total, Compression compression) {
    const size_t rowBytes = static_cast<size_t>((page.width * page.bitsPerSample + 7) / 8);
    const uint32_t rowsPerStrip =
        static_cast<uint32_t>(std::max<size_t>(1, 65536 / std::max<size_t>(1, rowBytes)));
    std::vector<uint32_t> offsets, counts;
    // Room for the strips at their largest (PackBits adds a byte in 128 at
    // worst) and the directory, so a page's bytes are not moved as they grow.
    const size_t packedRow =
        rowBytes + (compression == Compression::PackBits ? rowBytes / 128 + 1 : 0);
    file.reserve(file.size() + packedRow * static_cast<size_t>(page.height) + 1024 +
                 8 * (static_cast<size_t>(page.height) / rowsPerStrip + 1));
    for (int top = 0; top < page.height; top += static_cast<int>(rowsPerStrip)) {
        const size_t start = file.size();
        const int bottom = std::min(page.height, top + static_cast<int>(rowsPerStrip));
        for (int y = top; y < bottom; ++y) {
            const uint8_t* row = page.bits.data() + page.stride * y;
            if (compression == Compression::PackBits)
                packBitsRow(row, rowBytes, file);
            else
                file.insert(file.end(), row, row + rowBytes);
        }
        offsets.push_back(static_cast<uint32_t>(base + start));
        counts.push_back(static_cast<uint32_t>(file.size() - start));
    }
    if ((base + file.size()) % 2) file.push_back(0);

    std::vector<uint32_t> text(software, software + sizeof software);
    // Each page is described, so that a tag editor can later replace the
    // description in place, where the directory keeps its tags in order.
    char about[64];
    std::snprintf(about, sizeof about, "KOVA demo page %u of %u", index + 1, total);
    std::vector<uint32_t> description(about, about + std::strlen(about) + 1);
    const uint32_t strips = static_cast<uint32_t>(offsets.size());
    const uint32_t dpi = static_cast<uint32_t>(page.dpi);
    const std::vector<Entry> entries = {
        {254, Long, 1, {2}},
        {256, Long, 1, {static_cast<uint32_t>(page.width)}},
        {257, Long, 1, {static_cast<uint32_t>(page.height)}},
        {258, Short, 1, {static_cast<uint32_t>(page.bitsPerSample)}},
        {259, Short, 1, {static_cast<uint32_t>(compression)}},
        {262, Short, 1, {static_cast<uint32_t>(page.photometric)}},
        {270, Ascii, static_cast<uint32_t>(description.size()), description},
        {273, Long, strips, offsets},
        {277, Short, 1, {1}},
        {278, Long, 1, {rowsPerStrip}},
        {279, Long, strips, counts},
        {282, Rational, 1, {dpi, 1}},
        {283, Rational, 1, {dpi, 1}},
        {296, Short, 1, {2}},
        {297, Short, 2, {index, total}},
        {305, Ascii, static_cast<uint32_t>(text.size()), text},
    };

    // Values too large for an entry's four bytes go after the directory.
    const size_t directory = file.size();
    size_t spill = directory + 2 + 12 * entries.size() + 4;
    std::vector<uint8_t> extra;
    put16(file, static_cast<uint32_t>(entries.size()));
    for (const Entry& e : entries) {
        put16(file, e.tag);
        put16(file, e.type);
        put32(file, e.count);
        if (sizeOf(e) <= 4) {
            const size_t at = file.size();
            putValues(file, e);
            file.resize(at + 4, 0);
        } else {
            put32(file, static_cast<uint32_t>(base + spill + extra.size()));
            putValues(extra, e);
            if (extra.size() % 2) extra.push_back(0);
        }
    }
    const size_t link = file.size();
    put32(file, 0);
    file.insert(file.end(), extra.begin(), extra.end());
    return {directory, link};
}

} // namespace

void packBitsRow(const uint8_t* row, size_t length, std::vector<uint8_t>& out) {
    size_t i = 0;
    while (i < length) {
        size_t run = 1;
        while (i + run < length && run < 128 && row[i + run] == row[i])
            ++run;
        if (run >= 2) {
            out.push_back(static_cast<uint8_t>(1 - static_cast<int>(run)));
            out.push_back(row[i]);
            i += run;
            continue;
        }
        // A literal run lasts until two equal bytes start a repeat.
        size_t literal = 1;
        while (i + literal < length && literal < 128 &&
               !(i + literal + 1 < length && row[i + literal] == row[i + literal + 1]))
            ++literal;
        out.push_back(static_cast<uint8_t>(literal - 1));
        out.insert(out.end(), row + i, row + i + literal);
        i += literal;
    }
}

TiffWriter::~TiffWriter() {
    abandon();
}

void TiffWriter::abandon() {
    if (!file_) return;
    std::fclose(file_);
    file_ = nullptr;
    std::remove(temporary_.c_str());
}

std::string TiffWriter::fail(const std::string& what) {
    const std::string why = what + " " + temporary_ + ": " + std::strerror(errno);
    if (file_) std::fclose(file_);
    file_ = nullptr;
    std::remove(temporary_.c_str());
    return why;
}

uint64_t TiffWriter::uncompressedBytes(int width, int height, int bitsPerSample) {
    return static_cast<uint64_t>((static_cast<int64_t>(width) * bitsPerSample + 7) / 8) *
           static_cast<uint64_t>(height);
}

std::string TiffWriter::open(const std::string& path, unsigned pageCount, uint64_t leastBytes) {
    abandon();
    // Offsets are 32 bits wide: a file cannot grow past 4 GB.
    if (leastBytes > UINT32_MAX - 8)
        return "the file would pass 4 GB: its " + std::to_string(pageCount) +
               " pages need at least " + std::to_string(leastBytes) + " bytes";
    path_ = path;
    size_ = 0;
    link_ = 4;
    pages_ = 0;
    temporary_ = path + ".part";
    pageCount_ = pageCount;
    file_ = std::fopen(temporary_.c_str(), "wb");
    if (!file_) return "cannot create " + temporary_ + ": " + std::strerror(errno);
    static const uint8_t header[8] = {'I', 'I', 42, 0, 0, 0, 0, 0};
    if (std::fwrite(header, 1, sizeof header, file_) != sizeof header) return fail("cannot write");
    size_ = sizeof header;
    return {};
}

std::string TiffWriter::addPage(const Page& page, Compression compression) {
    if (!file_) return "no file is open";
    std::vector<uint8_t> bytes;
    const Placed placed = appendPage(bytes, page, size_, pages_, pageCount_, compression);
    // Offsets are 32 bits wide: a file cannot grow past 4 GB.
    if (size_ + bytes.size() > UINT32_MAX) {
        errno = EFBIG;
        return fail("the file would pass 4 GB:");
    }
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size())
        return fail("cannot write");
    uint8_t offset[4];
    for (int i = 0; i < 4; ++i)
        offset[i] = static_cast<uint8_t>((size_ + placed.directory) >> (8 * i));
    if (std::fseek(file_, static_cast<long>(link_), SEEK_SET) != 0 ||
        std::fwrite(offset, 1, 4, file_) != 4 || std::fseek(file_, 0, SEEK_END) != 0)
        return fail("cannot write");
    link_ = size_ + placed.link;
    size_ += bytes.size();
    ++pages_;
    return {};
}

std::string TiffWriter::finish() {
    if (!file_) return "no file is open";
    const int closed = std::fclose(file_);
    file_ = nullptr;
    if (closed != 0) {
        std::remove(temporary_.c_str());
        return "cannot write " + temporary_ + ": " + std::strerror(errno);
    }
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        std::remove(temporary_.c_str());
        return "cannot rename " + temporary_ + " to " + path_ + ": " + why;
    }
    return {};
}

} // namespace demo
