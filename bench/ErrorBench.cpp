// What long error stacks cost: errors raised one after another into one slot
// (each past the 49th asks the collection list to trim itself), and saving a
// large property collection with an error slot, where every member's save
// leaves one error on the stack. Both are measured per whole run, stack
// deletion included, so a cost that grows with the stack shows as a figure
// that grows faster than the count.
#include "bench/Baseline.hpp"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using kova::bench::KernelSession;

constexpr uint16_t persistent = KV_OBJ_PERSISTENT;

// Deletes the stack; answers how many errors it held.
int64_t discard(kvObject& stack) {
    int64_t errors = 0;
    for (; stack; ++errors)
        kvSendMeth(&stack, stack, "deleteTopError");
    return errors;
}

// `count` errors raised into one slot, then the stack deleted.
void errorStack(benchmark::State& state) {
    KernelSession session;
    kvObject raiser = kvNewObject(nullptr, "IntProp", 0, nullptr, "Raiser", 1, 0);
    const auto count = state.range(0);
    for (auto _ : state) {
        kvObject stack = nullptr;
        for (int64_t i = 0; i < count; ++i)
            kvSendMeth(&stack, raiser, "error", "IntProp", 3443);
        discard(stack);
    }
    kvDelObject(nullptr, raiser);
}

// A persistent collection of `count` integer properties saved to a memory
// stream with an error slot: each member's id field answers "getID" with
// error 3427, so the save leaves `count` errors on one stack.
void collectPropSaveWithErrors(benchmark::State& state) {
    KernelSession session;
    const auto count = state.range(0);
    kvObject props = kvNewObject(nullptr, "CollectProp", 1, nullptr, "Props", 1, persistent);
    for (int64_t i = 0; i < count; ++i) {
        const std::string name = "Member" + std::to_string(i);
        kvSendMeth(nullptr, props, "addProperty",
                   kvNewObject(nullptr, "IntProp", static_cast<int32_t>(i), nullptr, name.c_str(),
                               static_cast<int32_t>(i), persistent));
    }
    for (auto _ : state) {
        kvObject stream = kvNewObject(nullptr, "MemStream", 0, 0);
        kvObject stack = nullptr;
        kvSendMeth(&stack, props, "writeToStream", stream);
        benchmark::DoNotOptimize(kvSendMeth(nullptr, stream, "getLength"));
        state.counters["errors"] = static_cast<double>(discard(stack));
        kvDelObject(nullptr, stream);
    }
    kvDelObject(nullptr, props);
}

} // namespace

BENCHMARK(errorStack)->Name("ErrorStack")->Arg(4000)->Arg(64000)->Unit(benchmark::kMillisecond);
BENCHMARK(collectPropSaveWithErrors)
    ->Name("CollectPropSaveWithErrors")
    ->Arg(64000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
