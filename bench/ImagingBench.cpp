// What RawImage's conversions cost on a letter page at 300 dots per inch
// (2550 x 3300 pixels): promotion 1 to 8 and 8 to 24 bits, demotion 24 to 8
// and 8 to 1 bits through the colour reducer, DIB export and import, and
// palette remapping. Times are processor time of the step alone (a fresh
// page is made for each). Each figure carries "memcpy_multiple": its time as
// a multiple of a memcpy of the conversion's output size, measured in the
// same run.
#include "bench/Baseline.hpp"
#include "kova/dib.h"
#include "kova/image.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <vector>

namespace {

using kova::bench::KernelSession;

// Processor time of the process in seconds: the figures must not depend on
// what else the machine runs.
double cpuSeconds() {
    return double(std::clock()) / CLOCKS_PER_SEC;
}

constexpr int32_t pageWidth = 2550;
constexpr int32_t pageHeight = 3300;

// The fastest of several copies of `bytes` bytes, in seconds.
double memcpySeconds(size_t bytes) {
    std::vector<uint8_t> from(bytes, 1), to(bytes);
    double fastest = 1e9;
    for (int round = 0; round < 5; ++round) {
        // Enough copies for the processor clock to resolve.
        const int copies = 20;
        const double start = cpuSeconds();
        for (int i = 0; i < copies; ++i) {
            std::memcpy(to.data(), from.data(), bytes);
            benchmark::DoNotOptimize(to.data());
            benchmark::ClobberMemory();
        }
        fastest = std::min(fastest, (cpuSeconds() - start) / copies);
    }
    return fastest;
}

// A deterministic page: bilevel lines of text-like runs, a grey scan, or a
// smooth colour picture with grain.
uint8_t grain(uint32_t& seed) {
    seed = seed * 1103515245u + 12345u;
    return uint8_t(seed >> 24);
}

kvObject makePage(int32_t bitsPerSample, int32_t samplesPerPixel) {
    const int32_t bits = bitsPerSample * samplesPerPixel;
    const int32_t bytesPerLine = (pageWidth * bits + 7) / 8;
    kvObject page = kvNewObject(nullptr, "RawImage", bytesPerLine, pageHeight, bitsPerSample,
                                samplesPerPixel, nullptr, "Page", 0, 0);
    kvSendMeth(nullptr, page, "setImageWidth", pageWidth);
    kvSendMeth(nullptr, page, "setXResolution", 300);
    kvSendMeth(nullptr, page, "setYResolution", 300);
    auto* pixels = reinterpret_cast<uint8_t*>(kvSendMeth(nullptr, page, "getImageDataPointer"));
    uint32_t seed = 7;
    for (int32_t y = 0; y < pageHeight; ++y) {
        uint8_t* row = pixels + size_t(y) * size_t(bytesPerLine);
        for (int32_t x = 0; x < bytesPerLine; ++x) {
            if (bits == 1)
                row[x] = (y / 12) % 3 == 0 ? grain(seed) : 0;
            else if (bits == 8)
                row[x] = uint8_t((x + y) / 24 + grain(seed) % 16);
            else
                row[x] = uint8_t((x % 3 == 0   ? x / 30
                                  : x % 3 == 1 ? y / 13
                                               : (x + y) / 40) +
                                 grain(seed) % 12);
        }
    }
    if (bits == 8) {
        auto* palette =
            reinterpret_cast<kvPaletteEntry*>(kvSendMeth(nullptr, page, "getPalettePointer"));
        for (uint32_t i = 0; i < 256; ++i)
            palette[i] = {i, i, i};
    }
    return page;
}

size_t byteSize(kvObject image) {
    return size_t(kvSendMeth(nullptr, image, "getImageByteSize"));
}

// Runs `step` on a fresh page each iteration, timing only the step (not
// `prepare`, run before it), and reports it beside a memcpy of
// `outputBytes(page after the step)`.
template <typename Prepare, typename Step, typename Output>
void timeOnFreshPages(benchmark::State& state, int32_t bitsPerSample, int32_t samplesPerPixel,
                      Prepare prepare, Step step, Output outputBytes) {
    double total = 0;
    size_t output = 0;
    for (auto _ : state) {
        kvObject page = makePage(bitsPerSample, samplesPerPixel);
        prepare();
        const double start = cpuSeconds();
        step(page);
        const double seconds = cpuSeconds() - start;
        state.SetIterationTime(seconds);
        total += seconds;
        output = outputBytes(page);
        kvDelObject(nullptr, page);
    }
    state.counters["memcpy_multiple"] = total / double(state.iterations()) / memcpySeconds(output);
    state.SetBytesProcessed(int64_t(output) * state.iterations());
}

void PromoteOneToEight(benchmark::State& state) {
    const KernelSession session;
    timeOnFreshPages(
        state, 1, 1, [] {}, [](kvObject page) { kvSendMeth(nullptr, page, "promoteImage", 8, 1); },
        byteSize);
}

void PromoteEightToTwentyFour(benchmark::State& state) {
    const KernelSession session;
    timeOnFreshPages(
        state, 8, 1, [] {}, [](kvObject page) { kvSendMeth(nullptr, page, "promoteImage", 24, 2); },
        byteSize);
}

void DemoteTwentyFourToEight(benchmark::State& state) {
    const KernelSession session;
    timeOnFreshPages(
        state, 8, 3, [] {}, [](kvObject page) { kvSendMeth(nullptr, page, "demoteImage", 8, 3); },
        byteSize);
}

void DemoteEightToOne(benchmark::State& state) {
    const KernelSession session;
    timeOnFreshPages(
        state, 8, 1, [] {}, [](kvObject page) { kvSendMeth(nullptr, page, "demoteImage", 1, 0); },
        byteSize);
}

void ExportDIB(benchmark::State& state) {
    const KernelSession session;
    size_t dibBytes = 0;
    timeOnFreshPages(
        state, 8, 1, [] {},
        [&](kvObject page) {
            const auto dib = reinterpret_cast<kvMemHandle>(kvSendMeth(nullptr, page, "getDIB"));
            dibBytes = kvGlobalSize(dib);
            kvGlobalFree(dib);
        },
        [&](kvObject) { return dibBytes; });
}

void ImportDIB(benchmark::State& state) {
    kvMemHandle dib = nullptr;
    const KernelSession session;
    {
        kvObject page = makePage(8, 1);
        dib = reinterpret_cast<kvMemHandle>(kvSendMeth(nullptr, page, "getDIB"));
        kvDelObject(nullptr, page);
    }
    const size_t dibBytes = kvGlobalSize(dib);
    kvMemHandle copy = nullptr;
    // setDIB consumes its handle: each iteration takes a copy made outside
    // the timed step.
    timeOnFreshPages(
        state, 1, 1,
        [&] {
            copy = kvGlobalAlloc(dibBytes);
            std::memcpy(kvGlobalLock(copy), kvGlobalLock(dib), dibBytes);
            kvGlobalUnlock(copy);
            kvGlobalUnlock(dib);
        },
        [&](kvObject page) { kvSendMeth(nullptr, page, "setDIB", copy); }, byteSize);
    kvGlobalFree(dib);
}

void MapToPalette(benchmark::State& state) {
    std::vector<kvPaletteEntry> reversed(256);
    for (uint32_t i = 0; i < 256; ++i)
        reversed[i] = {255 - i, 255 - i, 255 - i};
    const KernelSession session;
    timeOnFreshPages(
        state, 8, 1, [] {},
        [&](kvObject page) { kvSendMeth(nullptr, page, "_mapImageToPalette", 8, reversed.data()); },
        byteSize);
}

} // namespace

BENCHMARK(PromoteOneToEight)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(PromoteEightToTwentyFour)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(DemoteTwentyFourToEight)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(DemoteEightToOne)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ExportDIB)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ImportDIB)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(MapToPalette)->UseManualTime()->Unit(benchmark::kMillisecond);
