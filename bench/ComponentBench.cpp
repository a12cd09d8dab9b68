// What the component model costs: registering 100 providers of one service
// and finding one by its FQN; a message through a Link to its provider's
// linked object beside the same send made directly (the forwarding overhead
// is their ratio); and a personality module's storeProperty before its
// technology exists (held in "TMProps") and after (the technology's property).
#include "bench/Baseline.hpp"
#include "kova/plr.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using kova::bench::KernelSession;

constexpr int providerCount = 100;

std::vector<std::string> providerFQNs() {
    std::vector<std::string> fqns;
    for (int i = 0; i < providerCount; ++i)
        fqns.push_back("Component" + std::to_string(i) + ".Provider");
    return fqns;
}

// The registry holds plain handles; these stand for provider objects.
kvObject standIn(int index) {
    return reinterpret_cast<kvObject>(static_cast<uintptr_t>(0x10000 + 64 * index));
}

void registerProviders(const std::vector<std::string>& fqns) {
    for (int i = 0; i < providerCount; ++i)
        PLRRegisterProperty("ImageData", standIn(i), fqns[i].c_str(), standIn(i));
}

// 100 providers registered in an empty registry, then the registry emptied.
void registerHundredProviders(benchmark::State& state) {
    KernelSession session;
    const std::vector<std::string> fqns = providerFQNs();
    for (auto _ : state) {
        registerProviders(fqns);
        state.PauseTiming();
        PLRTerm();
        PLRInit();
        state.ResumeTiming();
    }
}

// The provider of an FQN among 100, found in turn for each of them (letter
// case differing, as FQNs compare without it).
void lookUpProviderByFQN(benchmark::State& state) {
    KernelSession session;
    std::vector<std::string> fqns = providerFQNs();
    registerProviders(fqns);
    for (std::string& fqn : fqns)
        fqn[0] = 'c';
    int next = 0;
    for (auto _ : state) {
        kvObject found = nullptr;
        benchmark::DoNotOptimize(PLRGetObjectFromLINKID("ImageData", fqns[next].c_str(), &found));
        benchmark::DoNotOptimize(found);
        next = next + 1 == providerCount ? 0 : next + 1;
    }
}

// A StrTable as the linked object of a provider, and a Link linked to it.
struct LinkedTable {
    kvObject table = kvNewObject(nullptr, "StrTable", 100);
    kvObject link = nullptr;
    LinkedTable() {
        PLRRegisterProperty("Tables", table, "Table.1", table);
        link = kvNewObject(nullptr, "Link", "Tables", 0, nullptr, "TableLink", 0, 0);
        kvSendMeth(nullptr, link, "setSinkFQN", "User.1");
        PLRRegisterSink(link, "User.1", "Tables", "Table.1");
        kvSendMeth(nullptr, link, "setSourceFQN", "Table.1");
    }
    ~LinkedTable() {
        kvDelObject(nullptr, link);
        PLRUnregisterProperty("Tables", table, "Table.1");
        kvDelObject(nullptr, table);
    }
};

void sendDirect(benchmark::State& state) {
    KernelSession session;
    LinkedTable linked;
    for (auto _ : state)
        benchmark::DoNotOptimize(kvSendMeth(nullptr, linked.table, "getCount"));
}

void sendThroughLink(benchmark::State& state) {
    KernelSession session;
    LinkedTable linked;
    if (!kvSendMeth(nullptr, linked.link, "isLinked")) state.SkipWithError("the link is not up");
    for (auto _ : state)
        benchmark::DoNotOptimize(kvSendMeth(nullptr, linked.link, "getCount"));
}

// A personality of the base technology with an integer property "Width" on
// the technology once it is activated (range 1) or none (range 0).
void personalityStoreProperty(benchmark::State& state) {
    KernelSession session;
    kvObject pm = kvNewObject(nullptr, "PM");
    kvSendMeth(nullptr, pm, "setTMName", "TM");
    if (state.range(0)) {
        const auto tm = reinterpret_cast<kvObject>(kvSendMeth(nullptr, pm, "activate"));
        kvSendMeth(nullptr, tm, "addProperty",
                   kvNewObject(nullptr, "IntProp", 0, tm, "Width", 1, 0));
    }
    kvResult value = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(kvSendMeth(nullptr, pm, "storeProperty", "Width", 2, ++value));
    if (kvSendMeth(nullptr, pm, "fetchProperty", "Width") != value)
        state.SkipWithError("the value did not arrive");
    kvDelObject(nullptr, pm);
}

} // namespace

BENCHMARK(registerHundredProviders);
BENCHMARK(lookUpProviderByFQN);
BENCHMARK(sendDirect);
BENCHMARK(sendThroughLink);
BENCHMARK(personalityStoreProperty)->ArgName("activated")->Arg(0)->Arg(1);
