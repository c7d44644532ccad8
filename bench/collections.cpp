// A million-member collection built, looked up and iterated through the
// reflective interface, as Python drives it.
#include <benchmark/benchmark.h>

#include "Zel/Builtin.h"
#include "Zel/Values.h"
#include "demo/Switch.h"

namespace {

constexpr int kMembers = 1000000;

struct Filled {
    Zel::Ptr<Zel::GenericIf> sw;
    Zel::ZelAttr const* vlan;
    Filled() {
        Zel::ArgVector args{Zel::toGenericIf(Zel::String8("bench"))};
        sw = Demo::Switch::_zelType.genericIf(args, false);
        vlan = sw->type()->attr("vlan");
        auto v = Zel::toGenericIf(Zel::String8("v"));
        for (int k = 0; k < kMembers; ++k) vlan->genericIfSet(sw.ptr(), Zel::toGenericIf(k).ptr(), v.ptr());
    }
};

Filled& filled() {
    static Filled f;
    return f;
}

void BM_Build(benchmark::State& state) {
    for (auto _ : state) {
        Filled f;
        benchmark::DoNotOptimize(f.vlan->genericIfMembers(f.sw.ptr()));
    }
}
BENCHMARK(BM_Build)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_Lookup(benchmark::State& state) {
    Filled& f = filled();
    int k = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(f.vlan->genericIfGet(f.sw.ptr(), Zel::toGenericIf(k).ptr()));
        k = (k + 7919) % kMembers;
    }
}
BENCHMARK(BM_Lookup);

void BM_Iterate(benchmark::State& state) {
    Filled& f = filled();
    for (auto _ : state) {
        uint64_t n = 0;
        for (auto it = f.vlan->genericIfIterator(f.sw.ptr()); it.valid(); it.advance()) {
            benchmark::DoNotOptimize(it.value());
            ++n;
        }
        if (n != kMembers) state.SkipWithError("lost members");
    }
}
BENCHMARK(BM_Iterate)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
