// What making a component's personality module through Match costs: MatchMake
// (two registry reads, the object made, "setTMName" sent) beside the same
// object made and told its technology directly, so that the table look-up's
// share shows. BenchPM comes from "KVBENCH.DLL".
#include "bench/Baseline.hpp"
#include "kova/classloc.h"
#include "kova/match.h"
#include "kova/registry.h"

#include <benchmark/benchmark.h>

namespace {

using kova::bench::KernelSession;

class MatchSession : public KernelSession {
  public:
    MatchSession() {
        ready = kvTableInsertEntry_CLASSLOCATION("BenchPM", "KVBENCH.DLL") == 1 &&
                kvRegistrySetValue("KOVA\\Protocols\\Bench", "BenchPM") == 1 &&
                kvRegistrySetValue("KOVA\\Protocols\\Bench\\BenchPM", "BenchTM") == 1;
    }
    bool ready = false;
};

void matchMake(benchmark::State& state) {
    MatchSession session;
    if (!session.ready) return state.SkipWithError("the protocol table could not be made");
    const bool byDefault = state.range(0) == 0;
    for (auto _ : state) {
        kvObject error = nullptr;
        kvObject made = MatchMake(&error, "Bench", byDefault ? nullptr : "BenchPM");
        if (!made) return state.SkipWithError("MatchMake made nothing");
        kvDelObject(&error, made);
    }
}

void directMake(benchmark::State& state) {
    MatchSession session;
    if (!session.ready) return state.SkipWithError("the protocol table could not be made");
    for (auto _ : state) {
        kvObject error = nullptr;
        kvObject made = kvNewObject(&error, "BenchPM");
        kvSendMeth(&error, made, "setTMName", "BenchTM");
        kvDelObject(&error, made);
    }
}

} // namespace

BENCHMARK(matchMake)->Name("MatchMake")->ArgName("personality_given")->Arg(0)->Arg(1);
BENCHMARK(directMake)->Name("MatchMakeDirectBaseline");
