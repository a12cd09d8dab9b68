// Writes demo pages as one multi-page TIFF file, little-endian, in strips that
// are either stored as they are or packed with PackBits.
#ifndef KOVA_DEMO_TIFFWRITER_HPP
#define KOVA_DEMO_TIFFWRITER_HPP

#include "Page.hpp"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace demo {

enum class Compression : uint16_t { None = 1, PackBits = 32773 };

// PackBits-encodes one row and appends it to `out`.
void packBitsRow(const uint8_t* row, size_t length, std::vector<uint8_t>& out);

// A multi-page file written page by page, so a batch of any length needs the
// memory of one page. The file is written beside its path and renamed into
// place by finish(), so a failed write leaves no partial file behind. Each
// page's directory follows its strips, starts on an even offset and numbers
// the page (tag 297); the page count there is the one given at open().
class TiffWriter {
  public:
    TiffWriter() = default;
    TiffWriter(const TiffWriter&) = delete;
    TiffWriter& operator=(const TiffWriter&) = delete;
    ~TiffWriter(); // abandons an unfinished file

    // The bytes of a page's strips stored uncompressed.
    static uint64_t uncompressedBytes(int width, int height, int bitsPerSample);

    // Each returns an empty string, or what went wrong. `leastBytes` is what
    // the batch's strips are known to need at least (its uncompressed pages):
    // a batch that cannot fit in one file is refused before the file is made,
    // not after gigabytes of it are written.
    std::string open(const std::string& path, unsigned pageCount, uint64_t leastBytes = 0);
    std::string addPage(const Page& page, Compression compression);
    std::string finish();
    // Closes and removes an unfinished file; the writer can then open another.
    void abandon();

  private:
    std::string fail(const std::string& what);
    std::FILE* file_ = nullptr;
    std::string path_, temporary_;
    uint64_t size_ = 0; // bytes written so far
    uint64_t link_ = 4; // where the next directory's offset goes
    unsigned pages_ = 0, pageCount_ = 0;
};

} // namespace demo

#endif
