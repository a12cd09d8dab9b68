// The colour reducer; what it does is described in ColourReducer.hpp.
#include "imaging/ColourReducer.hpp"

#include "imaging/Dib.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace kova::imaging {

namespace {

namespace platform = kova::platform;

// A heap array from the library's allocator, freed with its owner.
template <typename T> class HeapArray {
  public:
    HeapArray() = default;
    HeapArray(const HeapArray&) = delete;
    HeapArray& operator=(const HeapArray&) = delete;
    ~HeapArray() { platform::release(items_); }
    // Zero-filled `count` items; false when memory runs out.
    bool allocate(size_t count) {
        platform::release(items_);
        items_ = static_cast<T*>(platform::allocateZeroed(count * sizeof(T)));
        return items_ != nullptr;
    }
    T* get() const { return items_; }
    T& operator[](size_t index) const { return items_[index]; }

  private:
    T* items_ = nullptr;
};

struct Rgb {
    uint8_t red, green, blue;
};

// Locks a DIB handle for as long as it lives.
class LockedDib {
  public:
    explicit LockedDib(kvMemHandle handle)
        : handle_(handle), bytes_(static_cast<uint8_t*>(platform::globalLock(handle))) {}
    LockedDib(const LockedDib&) = delete;
    LockedDib& operator=(const LockedDib&) = delete;
    ~LockedDib() { platform::globalUnlock(handle_); }
    uint8_t* bytes() const { return bytes_; }

  private:
    kvMemHandle handle_;
    uint8_t* bytes_;
};

// The source's rows, read as red-green-blue pixels, top row first.
class SourceRows {
  public:
    // False when the DIB cannot be read as plain rows that its block holds.
    bool open(const uint8_t* block, size_t size) {
        if (readDibLayout(block, size, &layout_) != DibRead::Ok) return false;
        const uint16_t bits = layout_.bitCount;
        if (layout_.width <= 0 || layout_.width > 0x7FFF || layout_.height == 0 ||
            layout_.height < -0x7FFF || layout_.height > 0x7FFF || layout_.compression != 0)
            return false;
        if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24) return false;
        width_ = size_t(layout_.width);
        height_ = size_t(layout_.height < 0 ? -layout_.height : layout_.height);
        pitch_ = dibStride(width_, bits);
        if (layout_.bitsSize < pitch_ * (height_ - 1) + packedRowBytes(width_, bits)) return false;
        for (uint32_t i = 0; i < 256; ++i) {
            const Bgr entry = tableEntry(layout_, i);
            table_[i] = {entry.red, entry.green, entry.blue};
        }
        return true;
    }

    size_t width() const { return width_; }
    size_t height() const { return height_; }
    const DibLayout& layout() const { return layout_; }

    // Row y from the top as `width` pixels.
    void read(size_t y, Rgb* out) const {
        const size_t stored = layout_.height > 0 ? height_ - 1 - y : y;
        const uint8_t* row = layout_.bits + stored * pitch_;
        switch (layout_.bitCount) {
        case 1:
            for (size_t x = 0; x < width_; ++x)
                out[x] = table_[(row[x / 8] >> (7 - x % 8)) & 1];
            break;
        case 4:
            for (size_t x = 0; x < width_; ++x)
                out[x] = table_[x % 2 ? row[x / 2] & 0x0F : row[x / 2] >> 4];
            break;
        case 8:
            for (size_t x = 0; x < width_; ++x)
                out[x] = table_[row[x]];
            break;
        case 16: // 5-5-5, red highest
            for (size_t x = 0; x < width_; ++x) {
                const unsigned p = row[2 * x] | unsigned(row[2 * x + 1]) << 8;
                auto widen = [](unsigned v) { return uint8_t(v * 8 + v / 4); };
                out[x] = {widen((p >> 10) & 31), widen((p >> 5) & 31), widen(p & 31)};
            }
            break;
        default:
            for (size_t x = 0; x < width_; ++x)
                out[x] = {row[3 * x + 2], row[3 * x + 1], row[3 * x]};
            break;
        }
    }

  private:
    DibLayout layout_;
    size_t width_ = 0, height_ = 0, pitch_ = 0;
    Rgb table_[256] = {};
};

// The reduced DIB being written: header, colour table and bottom-up rows.
class TargetDib {
  public:
    bool create(const SourceRows& source, uint16_t bits, size_t colours) {
        width_ = source.width();
        height_ = source.height();
        pitch_ = dibStride(width_, bits);
        tableBytes_ = 4 * colours;
        handle_ =
            platform::globalAlloc(sizeof(kvBitmapInfoHeader) + tableBytes_ + pitch_ * height_);
        if (!handle_) return false;
        block_ = static_cast<uint8_t*>(platform::globalLock(handle_));
        writeInfoHeader(block_, int32_t(width_), int32_t(height_), bits,
                        source.layout().xPelsPerMeter, source.layout().yPelsPerMeter);
        return true;
    }
    void setColour(size_t index, Rgb colour) {
        uint8_t* entry = block_ + sizeof(kvBitmapInfoHeader) + 4 * index;
        entry[0] = colour.blue, entry[1] = colour.green, entry[2] = colour.red;
    }
    // Row y from the top.
    uint8_t* row(size_t y) const {
        return block_ + sizeof(kvBitmapInfoHeader) + tableBytes_ + (height_ - 1 - y) * pitch_;
    }
    // Hands the finished DIB to the caller.
    kvMemHandle release() {
        platform::globalUnlock(handle_);
        const kvMemHandle done = handle_;
        handle_ = nullptr;
        return done;
    }
    ~TargetDib() {
        if (handle_) {
            platform::globalUnlock(handle_);
            platform::globalFree(handle_);
        }
    }

  private:
    kvMemHandle handle_ = nullptr;
    uint8_t* block_ = nullptr;
    size_t width_ = 0, height_ = 0, pitch_ = 0, tableBytes_ = 0;
};

// Floyd-Steinberg error rows for `channels` channels: the current row's
// pending errors and the next row's, swapped after each row. Errors are kept
// in sixteenths.
class ErrorRows {
  public:
    bool allocate(size_t width, size_t channels) {
        channels_ = channels;
        cells_ = (width + 2) * channels;
        if (!storage_.allocate(2 * cells_)) return false;
        current_ = storage_.get();
        next_ = current_ + cells_;
        return true;
    }
    // The error due at pixel x in channel c, in whole levels.
    int due(size_t x, size_t c) const { return current_[(x + 1) * channels_ + c] / 16; }
    // Spreads `error` of pixel x in channel c onward in direction `step`
    // (+1 or -1): 7/16 ahead, 3/16, 5/16 and 1/16 on the next row.
    void spread(size_t x, size_t c, int error, int step) {
        int* here = current_ + (x + 1) * channels_ + c;
        int* below = next_ + (x + 1) * channels_ + c;
        const ptrdiff_t ahead = step * ptrdiff_t(channels_);
        here[ahead] += error * 7;
        below[-ahead] += error * 3;
        below[0] += error * 5;
        below[ahead] += error;
    }
    void nextRow() {
        std::swap(current_, next_);
        std::memset(next_, 0, cells_ * sizeof(int));
    }

  private:
    HeapArray<int> storage_;
    int* current_ = nullptr;
    int* next_ = nullptr;
    size_t channels_ = 1, cells_ = 0;
};

uint8_t clampLevel(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

// ---- 1 bit ----

kvMemHandle toOneBit(const SourceRows& source, int mode, int dither) {
    TargetDib target;
    HeapArray<Rgb> row;
    ErrorRows errors;
    const size_t width = source.width();
    if (!target.create(source, 1, 2) || !row.allocate(width) || !errors.allocate(width, 1))
        return nullptr;
    const bool whiteIsZero = mode == 0;
    target.setColour(0, whiteIsZero ? Rgb{255, 255, 255} : Rgb{0, 0, 0});
    target.setColour(1, whiteIsZero ? Rgb{0, 0, 0} : Rgb{255, 255, 255});
    const unsigned whiteBit = whiteIsZero ? 0 : 1;
    for (size_t y = 0; y < source.height(); ++y) {
        source.read(y, row.get());
        uint8_t* out = target.row(y);
        const int step = y % 2 ? -1 : 1;
        for (size_t i = 0; i < width; ++i) {
            const size_t x = step > 0 ? i : width - 1 - i;
            const Rgb p = row[x];
            const int grey = (p.red * 77 + p.green * 150 + p.blue * 29 + 128) >> 8;
            const int wanted = grey + (dither == errorDiffusion ? errors.due(x, 0) : 0);
            const bool white = wanted >= 128;
            if (white == (whiteBit == 1)) out[x / 8] |= uint8_t(0x80 >> (x % 8));
            if (dither == errorDiffusion)
                errors.spread(x, 0, (wanted - (white ? 255 : 0)) * 3 / 4, step);
        }
        errors.nextRow();
    }
    return target.release();
}

// ---- palettes ----

constexpr size_t histogramBins = 1 << 15;

size_t binOf(Rgb p) {
    return size_t(p.red >> 3) << 10 | size_t(p.green >> 3) << 5 | size_t(p.blue >> 3);
}

// One occupied histogram bin: its pixel count and the sums of its pixels.
struct Bin {
    uint32_t count;
    double sum[3];  // per channel
    double squares; // sum of the squared components of every pixel
    double mean(int c) const { return sum[c] / count; }
};

// A box of the median cut: the bins from `begin` to `end` of the bin list.
struct Box {
    size_t begin, end;
    double error; // squared distance of its pixels from their mean
};

double boxError(const Bin* bins, size_t begin, size_t end) {
    double count = 0, squares = 0, sum[3] = {0, 0, 0};
    for (size_t i = begin; i < end; ++i) {
        count += bins[i].count;
        squares += bins[i].squares;
        for (int c = 0; c < 3; ++c)
            sum[c] += bins[i].sum[c];
    }
    return squares - (sum[0] * sum[0] + sum[1] * sum[1] + sum[2] * sum[2]) / count;
}

// Splits `box` along its widest channel where the squared error of the two
// halves is least; false when it holds a single bin.
bool splitBox(Bin* bins, const Box& box, Box* low, Box* high) {
    if (box.end - box.begin < 2) return false;
    double lo[3] = {255, 255, 255}, hi[3] = {0, 0, 0};
    for (size_t i = box.begin; i < box.end; ++i)
        for (int c = 0; c < 3; ++c) {
            lo[c] = std::min(lo[c], bins[i].mean(c));
            hi[c] = std::max(hi[c], bins[i].mean(c));
        }
    int axis = 0;
    for (int c = 1; c < 3; ++c)
        if (hi[c] - lo[c] > hi[axis] - lo[axis]) axis = c;
    std::sort(bins + box.begin, bins + box.end,
              [axis](const Bin& a, const Bin& b) { return a.mean(axis) < b.mean(axis); });
    // The one-channel error of a prefix is squares − sum² / count; the best
    // cut maximises sum² / count of both sides together.
    double totalCount = 0, totalSum = 0;
    for (size_t i = box.begin; i < box.end; ++i) {
        totalCount += bins[i].count;
        totalSum += bins[i].sum[axis];
    }
    double count = 0, sum = 0, best = -1;
    size_t cut = box.begin + 1;
    for (size_t i = box.begin; i + 1 < box.end; ++i) {
        count += bins[i].count;
        sum += bins[i].sum[axis];
        const double rest = totalCount - count;
        const double score = sum * sum / count + (totalSum - sum) * (totalSum - sum) / rest;
        if (score > best) best = score, cut = i + 1;
    }
    *low = {box.begin, cut, boxError(bins, box.begin, cut)};
    *high = {cut, box.end, boxError(bins, cut, box.end)};
    return true;
}

// Nearest palette entry by squared distance; the lowest index wins a tie.
size_t nearest(const Rgb* palette, size_t colours, int red, int green, int blue) {
    size_t best = 0;
    int bestDistance = INT32_MAX;
    for (size_t i = 0; i < colours; ++i) {
        const int dr = red - palette[i].red, dg = green - palette[i].green,
                  db = blue - palette[i].blue;
        const int distance = dr * dr + dg * dg + db * db;
        if (distance < bestDistance) bestDistance = distance, best = i;
    }
    return best;
}

// Builds at most `wanted` colours for the histogram's bins; answers how many.
size_t medianCut(Bin* bins, size_t binCount, size_t wanted, Rgb* palette) {
    HeapArray<Box> boxes;
    if (!boxes.allocate(wanted)) return 0;
    boxes[0] = {0, binCount, boxError(bins, 0, binCount)};
    size_t count = 1;
    while (count < wanted) {
        size_t worst = count;
        for (size_t i = 0; i < count; ++i)
            if (boxes[i].end - boxes[i].begin > 1 &&
                (worst == count || boxes[i].error > boxes[worst].error))
                worst = i;
        if (worst == count) break;
        Box low, high;
        splitBox(bins, boxes[worst], &low, &high);
        boxes[worst] = low;
        boxes[count++] = high;
    }
    // Each colour is its box's mean; then k-means rounds move each colour to
    // the mean of the bins nearest to it.
    HeapArray<double> sums;
    if (!sums.allocate(4 * wanted)) return 0;
    for (size_t b = 0; b < count; ++b)
        for (size_t i = boxes[b].begin; i < boxes[b].end; ++i) {
            sums[4 * b] += bins[i].count;
            for (int c = 0; c < 3; ++c)
                sums[4 * b + 1 + size_t(c)] += bins[i].sum[c];
        }
    for (int round = 0;; ++round) {
        for (size_t b = 0; b < count; ++b)
            if (sums[4 * b] > 0) {
                auto level = [&](int c) {
                    return clampLevel(int(sums[4 * b + 1 + size_t(c)] / sums[4 * b] + 0.5));
                };
                palette[b] = {level(0), level(1), level(2)};
            }
        if (round == 2) break;
        std::memset(sums.get(), 0, 4 * wanted * sizeof(double));
        for (size_t i = 0; i < binCount; ++i) {
            const size_t b = nearest(palette, count, int(bins[i].mean(0) + 0.5),
                                     int(bins[i].mean(1) + 0.5), int(bins[i].mean(2) + 0.5));
            sums[4 * b] += bins[i].count;
            for (int c = 0; c < 3; ++c)
                sums[4 * b + 1 + size_t(c)] += bins[i].sum[c];
        }
    }
    return count;
}

// The image's exact colours, found by hashing: a table of colour keys
// (colour + 1, 0 for a free cell) and their palette indexes.
class ExactColours {
  public:
    bool allocate() { return keys_.allocate(cells) && indexes_.allocate(cells); }

    // Collects the image's colours into `palette` when there are at most
    // `wanted`; answers their number, or 0 when there are more.
    size_t collect(const SourceRows& source, Rgb* row, size_t wanted, Rgb* palette) {
        size_t count = 0;
        for (size_t y = 0; y < source.height(); ++y) {
            source.read(y, row);
            for (size_t x = 0; x < source.width(); ++x) {
                const uint32_t key = keyOf(row[x]);
                size_t cell = find(key);
                if (keys_[cell]) continue;
                if (count == wanted) return 0;
                keys_[cell] = key;
                indexes_[cell] = uint16_t(count);
                palette[count++] = row[x];
            }
        }
        return count;
    }

    // The palette index of a colour collected before.
    size_t indexOf(Rgb p) const { return indexes_[find(keyOf(p))]; }

  private:
    static constexpr size_t cells = 4096; // far more than the 256 colours kept
    static uint32_t keyOf(Rgb p) {
        return (uint32_t(p.red) << 16 | uint32_t(p.green) << 8 | p.blue) + 1;
    }
    // The cell holding `key`, or the free cell where it would go.
    size_t find(uint32_t key) const {
        size_t cell = (key * 2654435761u) >> 20 & (cells - 1);
        while (keys_[cell] && keys_[cell] != key)
            cell = (cell + 1) & (cells - 1);
        return cell;
    }
    HeapArray<uint32_t> keys_;
    HeapArray<uint16_t> indexes_;
};

// The nearest palette entry of each colour at 6 bits a channel, found when
// first asked for.
class NearestCache {
  public:
    bool allocate(const Rgb* palette, size_t colours) {
        palette_ = palette;
        colours_ = colours;
        return entries_.allocate(size_t{1} << 18);
    }
    size_t lookup(int red, int green, int blue) {
        const size_t key = size_t(red >> 2) << 12 | size_t(green >> 2) << 6 | size_t(blue >> 2);
        uint16_t& entry = entries_[key];
        if (!entry)
            entry = uint16_t(
                1 + nearest(palette_, colours_, (red & ~3) + 2, (green & ~3) + 2, (blue & ~3) + 2));
        return entry - 1u;
    }

  private:
    HeapArray<uint16_t> entries_; // index + 1, 0 for not yet known
    const Rgb* palette_ = nullptr;
    size_t colours_ = 0;
};

void putIndex(uint8_t* row, size_t x, uint16_t bits, size_t index) {
    if (bits == 8)
        row[x] = uint8_t(index);
    else
        row[x / 2] |= uint8_t(x % 2 ? index : index << 4);
}

kvMemHandle toPalette(const SourceRows& source, uint16_t bits, int dither) {
    const size_t wanted = size_t{1} << bits;
    const size_t width = source.width();
    HeapArray<Rgb> row, palette;
    if (!row.allocate(width) || !palette.allocate(wanted)) return nullptr;
    ExactColours exactColours;
    if (!exactColours.allocate()) return nullptr;
    size_t colours = exactColours.collect(source, row.get(), wanted, palette.get());
    const bool exact = colours != 0;
    if (!exact) {
        HeapArray<Bin> bins;
        if (!bins.allocate(histogramBins)) return nullptr;
        for (size_t y = 0; y < source.height(); ++y) {
            source.read(y, row.get());
            for (size_t x = 0; x < width; ++x) {
                const Rgb p = row[x];
                Bin& bin = bins[binOf(p)];
                ++bin.count;
                bin.sum[0] += p.red, bin.sum[1] += p.green, bin.sum[2] += p.blue;
                bin.squares += double(p.red * p.red + p.green * p.green + p.blue * p.blue);
            }
        }
        size_t occupied = 0;
        for (size_t i = 0; i < histogramBins; ++i)
            if (bins[i].count) bins[occupied++] = bins[i];
        colours = medianCut(bins.get(), occupied, wanted, palette.get());
        if (!colours) return nullptr;
    }
    TargetDib target;
    NearestCache cache;
    ErrorRows errors;
    if (!target.create(source, bits, wanted) || !cache.allocate(palette.get(), colours) ||
        !errors.allocate(width, 3))
        return nullptr;
    for (size_t i = 0; i < colours; ++i)
        target.setColour(i, palette[i]);
    // An image that keeps all its colours needs no diffusion.
    const bool diffuse = dither == errorDiffusion && !exact;
    for (size_t y = 0; y < source.height(); ++y) {
        source.read(y, row.get());
        uint8_t* out = target.row(y);
        const int step = y % 2 ? -1 : 1;
        for (size_t i = 0; i < width; ++i) {
            const size_t x = step > 0 ? i : width - 1 - i;
            const Rgb p = row[x];
            int wanted3[3] = {p.red, p.green, p.blue};
            if (diffuse)
                for (size_t c = 0; c < 3; ++c)
                    wanted3[c] = clampLevel(wanted3[c] + errors.due(x, c));
            const size_t index =
                exact ? exactColours.indexOf(p) : cache.lookup(wanted3[0], wanted3[1], wanted3[2]);
            putIndex(out, x, bits, index);
            if (diffuse) {
                const Rgb got = palette[index];
                errors.spread(x, 0, wanted3[0] - got.red, step);
                errors.spread(x, 1, wanted3[1] - got.green, step);
                errors.spread(x, 2, wanted3[2] - got.blue, step);
            }
        }
        if (diffuse) errors.nextRow();
    }
    return target.release();
}

// ---- 16 and 24 bits ----

kvMemHandle toDirectColour(const SourceRows& source, uint16_t bits) {
    TargetDib target;
    HeapArray<Rgb> row;
    if (!target.create(source, bits, 0) || !row.allocate(source.width())) return nullptr;
    auto four = [](uint8_t v) { return unsigned(v * 15 + 127) / 255; };
    for (size_t y = 0; y < source.height(); ++y) {
        source.read(y, row.get());
        uint8_t* out = target.row(y);
        for (size_t x = 0; x < source.width(); ++x) {
            const Rgb p = row[x];
            if (bits == 24) {
                out[3 * x] = p.blue, out[3 * x + 1] = p.green, out[3 * x + 2] = p.red;
            } else {
                const unsigned word = four(p.red) << 8 | four(p.green) << 4 | four(p.blue);
                out[2 * x] = uint8_t(word), out[2 * x + 1] = uint8_t(word >> 8);
            }
        }
    }
    return target.release();
}

} // namespace

kvMemHandle reduceColours(kvMemHandle source, int targetBits, int mode, int dither) {
    if (targetBits != 1 && targetBits != 4 && targetBits != 8 && targetBits != 16 &&
        targetBits != 24)
        return nullptr;
    const LockedDib locked(source);
    SourceRows rows;
    if (!rows.open(locked.bytes(), platform::globalSize(source))) return nullptr;
    switch (targetBits) {
    case 1:
        return toOneBit(rows, mode, dither);
    case 4:
    case 8:
        return toPalette(rows, uint16_t(targetBits), dither);
    default:
        return toDirectColour(rows, uint16_t(targetBits));
    }
}

} // namespace kova::imaging
