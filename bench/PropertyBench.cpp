// What the property classes cost: an integer property's store and fetch with
// and without a subscriber, look-ups by name in property collections, saving
// a collection, a memory stream growing by small writes, and a string table.
// Each figure also carries a "virtual_calls" counter: its processor time as a
// number of C++ virtual calls measured in the same run, so that it reads the
// same on any machine.
#include "bench/Baseline.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace {

using kova::bench::Figure;
using kova::bench::KernelSession;

// Seconds of processor time of one virtual call, measured once per run the
// way the program's own "VirtualCall" figure is. The fastest of several
// rounds is taken, so that a processor still speeding up does not count.
double virtualCallSeconds() {
    static const double seconds = [] {
        kova::bench::Square square;
        Figure* figure = &square;
        const kvResult scale = 1;
        constexpr long calls = 20'000'000;
        double fastest = 0;
        for (int round = 0; round < 8; ++round) {
            const std::clock_t start = std::clock();
            for (long i = 0; i < calls; ++i) {
                benchmark::DoNotOptimize(figure);
                kvResult result = figure->area(scale);
                benchmark::DoNotOptimize(result);
            }
            const double spent = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
            if (round == 0 || spent < fastest) fastest = spent;
        }
        return fastest / calls;
    }();
    return seconds;
}

// Reports each iteration's processor time as a number of virtual calls. It
// is made just before the benchmark loop and reports as it goes out of scope
// after it.
class VirtualCallCount {
  public:
    explicit VirtualCallCount(benchmark::State& state)
        : state(state), unit(virtualCallSeconds()), start(std::clock()) {}
    VirtualCallCount(const VirtualCallCount&) = delete;
    VirtualCallCount& operator=(const VirtualCallCount&) = delete;
    ~VirtualCallCount() {
        const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
        if (state.iterations() > 0 && unit > 0)
            state.counters["virtual_calls"] =
                seconds / static_cast<double>(state.iterations()) / unit;
    }

  private:
    benchmark::State& state;
    double unit;
    std::clock_t start;
};

constexpr uint16_t persistent = KV_OBJ_PERSISTENT;

std::string memberName(size_t index) {
    return "Member" + std::to_string(index);
}

// A persistent collection owning `count` persistent integer properties.
kvObject makeCollection(size_t count) {
    kvObject props = kvNewObject(nullptr, "CollectProp", 1, nullptr, "Props", 1, persistent);
    for (size_t i = 0; i < count; ++i) {
        const std::string name = memberName(i);
        kvSendMeth(nullptr, props, "addProperty",
                   kvNewObject(nullptr, "IntProp", static_cast<int32_t>(i), nullptr, name.c_str(),
                               static_cast<int32_t>(i), persistent));
    }
    return props;
}

// storeData + fetchData on an IntProp; with a subscriber, its "OnStore"
// reaches one subscribed method ("OnWillStore" is fired too and finds none).
void intPropStoreFetch(benchmark::State& state) {
    KernelSession session;
    kvObject prop = kvNewObject(nullptr, "IntProp", 0, nullptr, "Width", 1, 0);
    kvObject watcher = kvNewObject(nullptr, "IntProp", 0, nullptr, "Watcher", 2, 0);
    if (state.range(0)) kvAddNotification(nullptr, prop, "OnStore", watcher, "getId", 1);
    kvResult value = 0;
    {
        const VirtualCallCount tally(state);
        for (auto _ : state) {
            kvSendMeth(nullptr, prop, "storeData", ++value);
            benchmark::DoNotOptimize(kvSendMeth(nullptr, prop, "fetchData"));
        }
    }
    kvDelObject(nullptr, prop);
    kvDelObject(nullptr, watcher);
}

// storeData alone on an IntProp with one "OnStore" subscriber.
void intPropStoreWithSubscriber(benchmark::State& state) {
    KernelSession session;
    kvObject prop = kvNewObject(nullptr, "IntProp", 0, nullptr, "Width", 1, 0);
    kvObject watcher = kvNewObject(nullptr, "IntProp", 0, nullptr, "Watcher", 2, 0);
    kvAddNotification(nullptr, prop, "OnStore", watcher, "getId", 1);
    kvResult value = 0;
    {
        const VirtualCallCount tally(state);
        for (auto _ : state)
            benchmark::DoNotOptimize(kvSendMeth(nullptr, prop, "storeData", ++value));
    }
    kvDelObject(nullptr, prop);
    kvDelObject(nullptr, watcher);
}

// getPropByName over every member name in turn: the average look-up.
void collectPropByName(benchmark::State& state) {
    KernelSession session;
    const auto count = static_cast<size_t>(state.range(0));
    kvObject props = makeCollection(count);
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i)
        names.push_back(memberName(i));
    size_t next = 0;
    {
        const VirtualCallCount tally(state);
        for (auto _ : state) {
            benchmark::DoNotOptimize(
                kvSendMeth(nullptr, props, "getPropByName", names[next].c_str()));
            next = next + 1 == count ? 0 : next + 1;
        }
    }
    kvDelObject(nullptr, props);
}

// Building a collection of `count` members by addProperty, members made
// beforehand: each member's cost is the figure per iteration divided by the
// count (the "per_member" counter).
void collectPropAdd(benchmark::State& state) {
    KernelSession session;
    const auto count = static_cast<size_t>(state.range(0));
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i)
        names.push_back(memberName(i));
    std::vector<kvObject> members(count);
    {
        const VirtualCallCount tally(state);
        for (auto _ : state) {
            state.PauseTiming();
            kvObject props = kvNewObject(nullptr, "CollectProp", 1, nullptr, "Props", 1, 0);
            for (size_t i = 0; i < count; ++i)
                members[i] = kvNewObject(nullptr, "IntProp", 0, nullptr, names[i].c_str(), 1, 0);
            state.ResumeTiming();
            for (kvObject member : members)
                kvSendMeth(nullptr, props, "addProperty", member);
            state.PauseTiming();
            kvDelObject(nullptr, props);
            state.ResumeTiming();
        }
    }
    state.counters["per_member"] = benchmark::Counter(
        static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate |
                                        benchmark::Counter::kInvert);
}

// Saving a collection of 100 persistent members to a fresh memory stream.
// No error slot is given, so each member's id field (whose "getID" the
// kernel answers with error 3427) makes and deletes its error at once.
void collectPropSave(benchmark::State& state) {
    KernelSession session;
    kvObject props = makeCollection(static_cast<size_t>(state.range(0)));
    {
        const VirtualCallCount tally(state);
        for (auto _ : state) {
            kvObject stream = kvNewObject(nullptr, "MemStream", 0, 0);
            kvSendMeth(nullptr, props, "writeToStream", stream);
            benchmark::DoNotOptimize(kvSendMeth(nullptr, stream, "getLength"));
            kvDelObject(nullptr, stream);
        }
    }
    kvDelObject(nullptr, props);
}

// A growable memory stream written to 1 MB in 16-byte writes; every write
// past the end reallocates the block to fit.
void memStreamGrowth(benchmark::State& state) {
    KernelSession session;
    const uint8_t chunk[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    constexpr int writes = (1 << 20) / 16;
    {
        const VirtualCallCount tally(state);
        for (auto _ : state) {
            kvObject stream = kvNewObject(nullptr, "MemStream", 0, 0);
            for (int i = 0; i < writes; ++i)
                kvSendMeth(nullptr, stream, "Write", chunk, 16);
            benchmark::DoNotOptimize(kvSendMeth(nullptr, stream, "getLength"));
            kvDelObject(nullptr, stream);
        }
    }
    state.SetBytesProcessed(state.iterations() * (1 << 20));
}

std::vector<std::string> rowTexts(size_t count) {
    std::vector<std::string> texts;
    for (size_t i = 0; i < count; ++i)
        texts.push_back("Provider.Component." + std::to_string(i));
    return texts;
}

// A table of unique strings (mode 102) filled with 100 rows by addKey.
void strTableAddKey(benchmark::State& state) {
    KernelSession session;
    const std::vector<std::string> texts = rowTexts(static_cast<size_t>(state.range(0)));
    {
        const VirtualCallCount tally(state);
        for (auto _ : state) {
            kvObject table = kvNewObject(nullptr, "StrTable", 102);
            for (size_t i = 0; i < texts.size(); ++i)
                kvSendMeth(nullptr, table, "addKey", texts[i].c_str(), static_cast<kvArg>(i));
            kvDelObject(nullptr, table);
        }
    }
}

// findString of every row in turn of a 100-row table: the average search.
void strTableFindString(benchmark::State& state) {
    KernelSession session;
    const std::vector<std::string> texts = rowTexts(static_cast<size_t>(state.range(0)));
    kvObject table = kvNewObject(nullptr, "StrTable", 102);
    for (size_t i = 0; i < texts.size(); ++i)
        kvSendMeth(nullptr, table, "addKey", texts[i].c_str(), static_cast<kvArg>(i));
    size_t next = 0;
    {
        const VirtualCallCount tally(state);
        for (auto _ : state) {
            benchmark::DoNotOptimize(kvSendMeth(nullptr, table, "findString", texts[next].c_str()));
            next = next + 1 == texts.size() ? 0 : next + 1;
        }
    }
    kvDelObject(nullptr, table);
}

} // namespace

BENCHMARK(intPropStoreFetch)->Name("IntPropStoreFetch")->Arg(0)->Arg(1);
BENCHMARK(intPropStoreWithSubscriber)->Name("IntPropStoreWithSubscriber");
BENCHMARK(collectPropByName)->Name("CollectPropByName")->Arg(10)->Arg(100)->Arg(10000)->Arg(32767);
BENCHMARK(collectPropAdd)
    ->Name("CollectPropAdd")
    ->Arg(100)
    ->Arg(10000)
    ->Arg(32767)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(collectPropSave)->Name("CollectPropSave")->Arg(100);
BENCHMARK(memStreamGrowth)->Name("MemStreamGrowth1MB")->Unit(benchmark::kMillisecond);
BENCHMARK(strTableAddKey)->Name("StrTableAddKey")->Arg(100)->Unit(benchmark::kMicrosecond);
BENCHMARK(strTableFindString)->Name("StrTableFindString")->Arg(100);
