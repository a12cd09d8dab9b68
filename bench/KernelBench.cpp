// What the kernel's sends, object creation, notifications and errors cost,
// each figure also given as a number of C++ virtual calls, so that it reads the
// same on any machine. The classes sent to are in "KVBENCH.DLL"
// (BenchClasses.cpp), loaded through the class location table as any class
// library is.
#include "bench/Baseline.hpp"
#include "kova/classloc.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

// The baseline of a direct call. It lives outside an anonymous namespace, so
// the compiler keeps it as a function of its own.
namespace kova::bench {

__attribute__((noinline)) kvResult tripled(kvResult value) {
    return 3 * value;
}

} // namespace kova::bench

namespace {

using namespace kova::bench;

constexpr const char* benchLibrary = "KVBENCH.DLL";
constexpr size_t farClassCount = 32; // BenchD00 .. BenchD31
constexpr size_t farNameCount = 64;  // farValue00 .. farValue63

// A started kernel with the bench classes in the class location table.
class BenchSession : public KernelSession {
  public:
    BenchSession() {
        for (const char* name : {"BenchA", "BenchB", "BenchC", "BenchLeaf", "BenchSmall"})
            ready = kvTableInsertEntry_CLASSLOCATION(name, benchLibrary) == 1 && ready;
        for (size_t i = 0; i < farClassCount; ++i)
            ready = kvTableInsertEntry_CLASSLOCATION(farClassName(i).c_str(), benchLibrary) == 1 &&
                    ready;
    }
    bool ok() const { return ready; }

    static std::string farClassName(size_t index) {
        char name[KV_CLASS_NAME_SIZE];
        std::snprintf(name, sizeof name, "BenchD%02zu", index);
        return name;
    }

  private:
    bool ready = true;
};

// A BenchLeaf object, deleted when the benchmark ends.
class Leaf {
  public:
    Leaf() : obj(kvNewObject(nullptr, "BenchLeaf")) {}
    ~Leaf() { kvDelObject(nullptr, obj); }
    Leaf(const Leaf&) = delete;
    Leaf& operator=(const Leaf&) = delete;
    kvObject get() const { return obj; }

  private:
    kvObject obj;
};

// The unit of every figure. The object's address passes through DoNotOptimize
// on each turn, so the compiler cannot tell its type and must go through the
// virtual table.
void virtualCall(benchmark::State& state) {
    Square square;
    Figure* figure = &square;
    kvResult scale = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(figure);
        kvResult result = figure->area(scale);
        benchmark::DoNotOptimize(result);
    }
}

// A call through a function pointer the compiler cannot see through, the
// way the kernel calls a method procedure once it has found it.
void directCall(benchmark::State& state) {
    kvResult (*proc)(kvResult) = &tripled;
    kvResult value = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(proc);
        kvResult result = proc(value);
        benchmark::DoNotOptimize(result);
    }
}

void sendCacheHit(benchmark::State& state) {
    BenchSession session;
    Leaf leaf;
    if (!session.ok() || !leaf.get()) return state.SkipWithError("no BenchLeaf object");
    kvSendMeth(nullptr, leaf.get(), "getValue"); // the first send fills the cache
    for (auto _ : state) {
        kvResult result = kvSendMeth(nullptr, leaf.get(), "getValue");
        benchmark::DoNotOptimize(result);
    }
}

// A first send of a name can happen only once per class in a kernel's life,
// so it is measured in batches. With the clock stopped, a fresh kernel is
// started and one object of each of BenchD00..BenchD31 is made (their caches
// then hold only "objInit"). With the clock running, each of the 64 names of
// BenchA is sent once to each object: every send is a real first send, which
// misses the cache, binary-searches the tables of BenchDnn, BenchC and BenchB
// in vain, finds the method in BenchA three classes up, allocates the cache
// entry and calls the procedure. Consecutive sends go to different classes,
// as the first sends of a program starting up do.
class FirstSendBatch {
  public:
    static constexpr size_t size = farClassCount * farNameCount;

    FirstSendBatch() {
        for (size_t n = 0; n < farNameCount; ++n)
            std::snprintf(names[n].data(), names[n].size(), "farValue%02zu", n);
    }
    ~FirstSendBatch() { stop(); }
    FirstSendBatch(const FirstSendBatch&) = delete;
    FirstSendBatch& operator=(const FirstSendBatch&) = delete;

    // Answers false when the classes could not be had.
    bool restart() {
        stop();
        session.emplace();
        bool ok = session->ok();
        for (size_t k = 0; k < farClassCount; ++k) {
            objects[k] = kvNewObject(nullptr, BenchSession::farClassName(k).c_str());
            ok = ok && objects[k];
        }
        return ok;
    }

    kvObject receiver(size_t index) const { return objects[index % farClassCount]; }
    const char* name(size_t index) const { return names[index / farClassCount].data(); }

  private:
    void stop() {
        if (!session) return;
        for (kvObject& obj : objects) {
            kvDelObject(nullptr, obj);
            obj = nullptr;
        }
        session.reset();
    }

    std::array<std::array<char, 16>, farNameCount> names{};
    std::array<kvObject, farClassCount> objects{};
    std::optional<BenchSession> session;
};

void sendFirstThreeUp(benchmark::State& state) {
    FirstSendBatch batch;
    size_t next = FirstSendBatch::size;
    for (auto _ : state) {
        if (next == FirstSendBatch::size) {
            state.PauseTiming();
            const bool ok = batch.restart();
            next = 0;
            state.ResumeTiming();
            if (!ok) return state.SkipWithError("the BenchD classes could not be had");
        }
        kvResult result = kvSendMeth(nullptr, batch.receiver(next), batch.name(next));
        benchmark::DoNotOptimize(result);
        ++next;
    }
}

void sendParent(benchmark::State& state) {
    BenchSession session;
    Leaf leaf;
    const kvClass leafClass = kvFindClass("BenchLeaf");
    if (!session.ok() || !leaf.get()) return state.SkipWithError("no BenchLeaf object");
    for (auto _ : state) {
        kvResult result = kvSendParentMeth(nullptr, leafClass, leaf.get(), "getValue");
        benchmark::DoNotOptimize(result);
    }
}

void sendClassMethod(benchmark::State& state) {
    BenchSession session;
    const kvClass leafClass = kvRegisterClass("BenchLeaf");
    if (!session.ok() || !leafClass) return state.SkipWithError("no BenchLeaf class");
    for (auto _ : state) {
        kvResult result = kvSendClMeth(nullptr, leafClass, "classValue");
        benchmark::DoNotOptimize(result);
    }
}

void newAndDeleteObject(benchmark::State& state) {
    BenchSession session;
    if (!session.ok() || !kvRegisterClass("BenchSmall"))
        return state.SkipWithError("no BenchSmall class");
    for (auto _ : state) {
        kvObject obj = kvNewObject(nullptr, "BenchSmall", 7);
        benchmark::DoNotOptimize(obj);
        kvDelObject(nullptr, obj);
    }
}

void fire(benchmark::State& state) {
    BenchSession session;
    Leaf notifier;
    std::vector<Leaf> subscribers(static_cast<size_t>(state.range(0)));
    if (!session.ok() || !notifier.get()) return state.SkipWithError("no BenchLeaf object");
    for (const Leaf& subscriber : subscribers)
        kvAddNotification(nullptr, notifier.get(), "OnBench", subscriber.get(), "onBench", 0);
    for (auto _ : state)
        kvFireNotification(nullptr, notifier.get(), "OnBench");
    for (const Leaf& subscriber : subscribers)
        kvDeleteNotification(nullptr, notifier.get(), "OnBench", subscriber.get(), "onBench");
}

void raiseAndDeleteError(benchmark::State& state) {
    BenchSession session;
    Leaf leaf;
    if (!session.ok() || !leaf.get()) return state.SkipWithError("no BenchLeaf object");
    kvObject error = nullptr;
    for (auto _ : state) {
        kvSendMeth(&error, leaf.get(), "error", "BenchLeaf", 3443);
        kvSendMeth(&error, error, "deleteTopError");
    }
    if (error) state.SkipWithError("an error was left in the slot");
}

// "leftNeighbour" and "rightNeighbour" end in the same six characters, so they
// share a cache bucket; sent in turn, each is found second in its bucket and
// moved to the front.
void sendCollidingPair(benchmark::State& state) {
    BenchSession session;
    Leaf leaf;
    if (!session.ok() || !leaf.get()) return state.SkipWithError("no BenchLeaf object");
    const char* names[2] = {"leftNeighbour", "rightNeighbour"};
    size_t turn = 0;
    for (auto _ : state) {
        kvResult result = kvSendMeth(nullptr, leaf.get(), names[turn++ & 1]);
        benchmark::DoNotOptimize(result);
    }
}

// Shows the usual table and keeps each benchmark's CPU time per operation.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
            Mean& mean = nsPerOp[run.benchmark_name()];
            mean.sum += run.GetAdjustedCPUTime() * nanosecondsPer(run.time_unit);
            ++mean.count;
        }
    }

    std::optional<double> figure(const std::string& name) const {
        const auto found = nsPerOp.find(name);
        if (found == nsPerOp.end()) return std::nullopt;
        return found->second.sum / found->second.count;
    }

  private:
    struct Mean {
        double sum = 0;
        int count = 0;
    };

    static double nanosecondsPer(benchmark::TimeUnit unit) {
        switch (unit) {
        case benchmark::kSecond:
            return 1e9;
        case benchmark::kMillisecond:
            return 1e6;
        case benchmark::kMicrosecond:
            return 1e3;
        default:
            return 1;
        }
    }

    std::map<std::string, Mean> nsPerOp;
};

struct Row {
    const char* benchmark; // the benchmark's name
    const char* label;     // what it measures
    double target;         // most virtual calls allowed, 0 for none
};

constexpr Row rows[] = {
    {"VirtualCall", "virtual call (the unit)", 0},
    {"DirectCall", "direct call through a function pointer", 0},
    {"SendCacheHit", "send, found in the cache", 6},
    {"SendFirstThreeUp", "first send, found 3 classes up", 50},
    {"SendParent", "parent send", 0},
    {"SendClassMethod", "class-method send", 0},
    {"NewDeleteObject", "kvNewObject + kvDelObject", 0},
    {"Fire/1", "fire to 1 subscriber", 0},
    {"Fire/4", "fire to 4 subscribers", 20},
    {"Fire/16", "fire to 16 subscribers", 0},
    {"RaiseDeleteError", "error + deleteTopError", 0},
    {"SendCollidingPair", "send, bucket shared, moved to front", 0},
};

// Prints each figure as a number of virtual calls and whether the targets are
// met.
void printRatios(const RatioReporter& reporter) {
    const std::optional<double> unit = reporter.figure("VirtualCall");
    if (!unit || *unit <= 0) {
        std::printf("\nNo virtual call was measured, so no ratios can be given.\n");
        return;
    }
    bool allMet = true;
    std::printf("\n%-40s %12s %14s  %s\n", "figure", "ns/op", "virtual calls", "target");
    for (const Row& row : rows) {
        const std::optional<double> ns = reporter.figure(row.benchmark);
        if (!ns) continue;
        const double ratio = *ns / *unit;
        std::printf("%-40s %12.2f %14.1f", row.label, *ns, ratio);
        if (row.target > 0) {
            const bool met = ratio <= row.target;
            allMet = allMet && met;
            std::printf("  <= %g: %s", row.target, met ? "met" : "MISSED");
        }
        std::printf("\n");
    }
    std::printf("\nTargets %s.\n", allMet ? "met" : "missed");
}

} // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("VirtualCall", virtualCall);
    benchmark::RegisterBenchmark("DirectCall", directCall);
    benchmark::RegisterBenchmark("SendCacheHit", sendCacheHit);
    benchmark::RegisterBenchmark("SendFirstThreeUp", sendFirstThreeUp);
    benchmark::RegisterBenchmark("SendParent", sendParent);
    benchmark::RegisterBenchmark("SendClassMethod", sendClassMethod);
    benchmark::RegisterBenchmark("NewDeleteObject", newAndDeleteObject);
    benchmark::RegisterBenchmark("Fire", fire)->Arg(1)->Arg(4)->Arg(16);
    benchmark::RegisterBenchmark("RaiseDeleteError", raiseAndDeleteError);
    benchmark::RegisterBenchmark("SendCollidingPair", sendCollidingPair);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    printRatios(reporter);
    return 0;
}
