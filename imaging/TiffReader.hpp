// The one reader through which TIFF structure is read from a file: every
// read is checked against the file's length before it is made, so a read
// either delivers all its bytes or fails without touching more, and a
// failure leaves the offset where it happened. A reader converts 16- and
// 32-bit words from a big-endian file to host order. Header only, so that
// the kova command reads files exactly as the tag store does.
#pragma once

#include "imaging/TiffFormat.hpp"

#include <climits>
#include <cstdint>
#include <cstdio>

namespace kova::tiff {

class Reader {
  public:
    // `file` is an open stream; the reader starts at offset 0.
    explicit Reader(std::FILE* file) : file_(file) {}

    // Learns the file's length; false when the stream cannot tell it.
    bool measure() {
        if (std::fseek(file_, 0, SEEK_END) != 0) return false;
        const long length = std::ftell(file_);
        if (length < 0 || std::fseek(file_, 0, SEEK_SET) != 0) return false;
        size_ = static_cast<uint64_t>(length);
        position_ = 0;
        return true;
    }

    // Words read from here on are converted from big-endian order.
    void setSwapBytes(bool swap) { swap_ = swap; }

    uint64_t size() const { return size_; }
    uint64_t position() const { return position_; }
    // Bytes from the position to the end of the file.
    uint64_t remaining() const { return position_ < size_ ? size_ - position_ : 0; }
    // Where the last failed seek or read was aimed.
    uint64_t failedAt() const { return failedAt_; }

    // Moves to `offset`; false when it lies past the end of the file or the
    // stream refuses. Reading on from the position needs no seek.
    bool seek(uint64_t offset) {
        if (offset > size_) return fail(offset);
        if (offset == position_ && positionKnown_) return true;
        if (offset > static_cast<uint64_t>(LONG_MAX) ||
            std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0) {
            positionKnown_ = false;
            return fail(offset);
        }
        position_ = offset;
        positionKnown_ = true;
        return true;
    }

    // Reads `length` bytes; false, reading nothing, when fewer remain.
    bool read(void* out, uint64_t length) {
        if (length > remaining()) return fail(position_);
        if (length == 0) return true;
        if (!positionKnown_ || std::fread(out, 1, length, file_) != length) {
            positionKnown_ = false;
            return fail(position_);
        }
        position_ += length;
        return true;
    }

    bool read16(uint16_t& value) {
        if (!read(&value, sizeof value)) return false;
        if (swap_) value = swap16(value);
        return true;
    }

    bool read32(uint32_t& value) {
        if (!read(&value, sizeof value)) return false;
        if (swap_) value = swap32(value);
        return true;
    }

    // Converts entries read as raw bytes: tag and type as 16-bit words, count
    // and value as 32-bit words (a short in the value field is thus turned as
    // part of a whole 32-bit word).
    void convert(Entry* entries, uint32_t count) const {
        if (!swap_) return;
        for (uint32_t i = 0; i < count; ++i) {
            entries[i].tag = swap16(entries[i].tag);
            entries[i].type = swap16(entries[i].type);
            entries[i].count = swap32(entries[i].count);
            entries[i].value = swap32(entries[i].value);
        }
    }

  private:
    bool fail(uint64_t offset) {
        failedAt_ = offset;
        return false;
    }

    std::FILE* file_;
    bool swap_ = false;
    bool positionKnown_ = true; // the stream stands at position_
    uint64_t size_ = 0;
    uint64_t position_ = 0;
    uint64_t failedAt_ = 0;
};

} // namespace kova::tiff
