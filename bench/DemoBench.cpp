// The demo's main job as `kova demo` runs it, through the same host code:
// pages per second for scan + recognise + write (each page drawn, delivered
// band by band into the scanner's image data, recognised through the link,
// appended to the TIFF file, and the recognised text stamped into the file
// afterwards) at 300 dpi US letter (2550 x 3300), bilevel and greyscale; and
// the time to the first page: the kernel started, the demo library loaded,
// the components made and linked, one page scanned, recognised and written.
#include "bench/Baseline.hpp"
#include "tools/demo/Batch.hpp"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace fs = std::filesystem;

namespace {

using kova::bench::KernelSession;
using kova::tools::demo::Batch;
using kova::tools::demo::BatchSettings;
using kova::tools::demo::Host;

constexpr int letterAt300 = 300;
constexpr unsigned pagesPerBatch = 4;

// The benchmark's own folder for the files it writes, removed afterwards.
struct ScratchFolder {
    fs::path folder = fs::temp_directory_path() / "kova-bench-demo";
    ScratchFolder() { fs::create_directories(folder); }
    ~ScratchFolder() {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
    std::string file(const char* name) const { return (folder / name).string(); }
};

// A batch with its host, for one run of the batch.
struct OneBatch {
    Host host;
    std::string failure;
    Batch batch;
    explicit OneBatch(const BatchSettings& settings)
        : host(settings.pages, true),
          batch(settings, host, [this](const std::string& what, kvObject) { failure = what; }) {}
    // Scans, recognises and writes the batch; false (with `failure` set) when
    // something failed or a page was read wrongly.
    bool scanAndWrite() {
        unsigned scanned = 0;
        if (!batch.scan(scanned) || !batch.stamp()) return false;
        for (const auto& page : host.pages())
            if (!page.matches) failure = "page " + std::to_string(page.number) + " read wrongly";
        if (scanned != host.pages().size()) failure = "pages went missing";
        return failure.empty();
    }
};

BatchSettings letterPages(int colorMode, unsigned pages, const std::string& output) {
    BatchSettings settings;
    settings.pages = pages;
    settings.resolution = letterAt300;
    settings.colorMode = colorMode;
    settings.output = output;
    return settings;
}

// Range 0 is the scanner's ColorMode: 0 bilevel, 1 greyscale. The components
// are made outside the timing; a batch of four pages inside it.
void scanRecogniseWrite(benchmark::State& state) {
    KernelSession session;
    ScratchFolder scratch;
    if (!kova::tools::demo::loadDemoLibrary(kova::tools::demo::defaultProtocolTable()))
        return state.SkipWithError("the demo's protocol table could not be loaded");
    const BatchSettings settings =
        letterPages(static_cast<int>(state.range(0)), pagesPerBatch, scratch.file("pages.tif"));
    std::string failure;
    for (auto _ : state) {
        state.PauseTiming();
        auto batch = std::make_unique<OneBatch>(settings);
        const bool made = batch->batch.makeComponents();
        state.ResumeTiming();
        if (!made || !batch->scanAndWrite()) {
            failure = batch->failure;
            break;
        }
        state.PauseTiming();
        batch.reset();
        state.ResumeTiming();
    }
    if (!failure.empty()) return state.SkipWithError(failure.c_str());
    state.counters["pages/s"] = benchmark::Counter(
        static_cast<double>(state.iterations() * pagesPerBatch), benchmark::Counter::kIsRate);
}

// From a stopped kernel to the first page in the file, as `kova demo` starts:
// the kernel, the demo library's classes and protocols, the scanner and the
// recognizer made through Match and linked, one page (bilevel, as a batch's
// first page is) scanned, recognised, written and stamped. Taking the kernel
// down again is left out of the timing.
void timeToFirstPage(benchmark::State& state) {
    ScratchFolder scratch;
    const std::string ini = kova::tools::demo::defaultProtocolTable();
    const BatchSettings settings = letterPages(2, 1, scratch.file("first.tif"));
    std::string failure;
    for (auto _ : state) {
        std::optional<KernelSession> session(std::in_place);
        if (!kova::tools::demo::loadDemoLibrary(ini)) {
            failure = "the demo's protocol table could not be loaded";
            break;
        }
        auto batch = std::make_unique<OneBatch>(settings);
        if (!batch->batch.makeComponents() || !batch->scanAndWrite()) {
            failure = batch->failure;
            break;
        }
        state.PauseTiming();
        batch.reset();
        session.reset();
        state.ResumeTiming();
    }
    if (!failure.empty()) state.SkipWithError(failure.c_str());
}

} // namespace

BENCHMARK(scanRecogniseWrite)
    ->ArgName("greyscale")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(timeToFirstPage)->Unit(benchmark::kMillisecond)->UseRealTime();
