// What reading a TIFF file's structure costs: TiffTag opening a file of
// 10,000 directories and selecting every directory, and then also walking
// every tag (each tag found and its items read), beside libtiff counting the
// directories of the same file when the benchmarks are built with it.
#include "bench/Baseline.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#ifdef KOVA_BENCH_LIBTIFF
#include <tiffio.h>
#endif

namespace {

using kova::bench::KernelSession;

constexpr uint32_t directoryCount = 10000;

// The tags of each page: a 1 by 1 bilevel image whose one strip all pages share.
struct PageTag {
    uint16_t tag, type;
    uint32_t value;
};
constexpr PageTag pageTags[] = {
    {256, 3, 1}, {257, 3, 1}, {258, 3, 1}, {259, 3, 1},
    {262, 3, 0}, {273, 4, 8}, {278, 3, 1}, {279, 4, 1},
};

// A little-endian file of `directoryCount` pages, each directory right after
// the one before, written once per run.
const std::string& manyPagesFile() {
    static const std::string path = [] {
        const std::string name =
            (std::filesystem::temp_directory_path() / "kova_bench_10000_pages.tif").string();
        std::vector<uint8_t> bytes = {'I', 'I', 42, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
        auto put = [&bytes](uint32_t value, int width) {
            for (int i = 0; i < width; ++i)
                bytes.push_back(uint8_t(value >> (8 * i)));
        };
        for (uint32_t d = 0; d < directoryCount; ++d) {
            put(uint32_t(std::size(pageTags)), 2);
            for (const PageTag& tag : pageTags) {
                put(tag.tag, 2);
                put(tag.type, 2);
                put(1, 4);
                put(tag.value, 4);
            }
            put(d + 1 < directoryCount ? uint32_t(bytes.size() + 4) : 0, 4);
        }
        std::FILE* file = std::fopen(name.c_str(), "wb");
        if (file) {
            std::fwrite(bytes.data(), 1, bytes.size(), file);
            std::fclose(file);
        }
        return name;
    }();
    return path;
}

// Opening the file and selecting each directory in turn, asking its entry count.
void TiffTagOpenAndSelect10000Directories(benchmark::State& state) {
    const std::string& path = manyPagesFile();
    KernelSession session;
    kvObject tiff = kvNewObject(nullptr, "TiffTag");
    for (auto _ : state) {
        if (kvSendMeth(nullptr, tiff, "openTIFF", path.c_str(), 0) != 1) {
            state.SkipWithError("TiffTag cannot open the file");
            break;
        }
        const kvResult directories = kvSendMeth(nullptr, tiff, "getIFDCount");
        kvResult entries = 0;
        for (kvResult d = 0; d < directories; ++d) {
            kvSendMeth(nullptr, tiff, "setCurIndex", d);
            entries += kvSendMeth(nullptr, tiff, "getIFDTagCount");
        }
        benchmark::DoNotOptimize(entries);
        kvSendMeth(nullptr, tiff, "closeTIFF");
        state.counters["directories"] = double(directories);
    }
    kvDelObject(nullptr, tiff);
}
BENCHMARK(TiffTagOpenAndSelect10000Directories)->Unit(benchmark::kMillisecond);

// The same, and every tag of every directory found and its items read.
void TiffTagOpenAndWalk10000Directories(benchmark::State& state) {
    const std::string& path = manyPagesFile();
    KernelSession session;
    kvObject tiff = kvNewObject(nullptr, "TiffTag");
    uint32_t items[4];
    for (auto _ : state) {
        if (kvSendMeth(nullptr, tiff, "openTIFF", path.c_str(), 0) != 1) {
            state.SkipWithError("TiffTag cannot open the file");
            break;
        }
        const kvResult directories = kvSendMeth(nullptr, tiff, "getIFDCount");
        kvResult read = 0;
        for (kvResult d = 0; d < directories; ++d) {
            kvSendMeth(nullptr, tiff, "setCurIndex", d);
            for (const PageTag& tag : pageTags) {
                kvSendMeth(nullptr, tiff, "findTag", tag.tag);
                read += kvSendMeth(nullptr, tiff, "getTagData", 4, items);
            }
        }
        benchmark::DoNotOptimize(read);
        kvSendMeth(nullptr, tiff, "closeTIFF");
        state.counters["directories"] = double(directories);
    }
    kvDelObject(nullptr, tiff);
}
BENCHMARK(TiffTagOpenAndWalk10000Directories)->Unit(benchmark::kMillisecond);

#ifdef KOVA_BENCH_LIBTIFF
void LibtiffCount10000Directories(benchmark::State& state) {
    const std::string& path = manyPagesFile();
    TIFFSetWarningHandler(nullptr);
    for (auto _ : state) {
        TIFF* tiff = TIFFOpen(path.c_str(), "r");
        if (!tiff) {
            state.SkipWithError("libtiff cannot open the file");
            break;
        }
        const tdir_t directories = TIFFNumberOfDirectories(tiff);
        benchmark::DoNotOptimize(directories);
        TIFFClose(tiff);
        state.counters["directories"] = double(directories);
    }
}
BENCHMARK(LibtiffCount10000Directories)->Unit(benchmark::kMillisecond);
#endif

} // namespace
