// Costs of the activity machinery: the activity lock, one attribute
// notification to a native notifiee, and one clock firing by the loop.
#include <benchmark/benchmark.h>

#include "Zel/Activity.h"
#include "Zel/Attr.h"
#include "Zel/Clock.h"
#include "Zel/TypeOps.h"

namespace {

using namespace Zel;

class Meter : public Entity {
public:
    explicit Meter(Name n) : Entity(std::move(n)) {}
    ZelType const* fwkType() const override { return &_zelType; }
    int value() const { return value_; }
    void valueIs(int v) { value_ = v; notifyValue(&_zelAttrs[0], v); }
    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
private:
    int value_ = 0;
};

constexpr AccessorAttr<&Meter::value, &Meter::valueIs> kValue;
constexpr ArgDesc kCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
constexpr TypeOps kOps = entityOps<Meter, Name>();
constinit ZelType const Meter::_zelType("BenchActivity::Meter", sizeof(Meter), &Entity::_zelType,
                                        ZelType::isEntity_ | ZelType::hasOwnPtrInterface_,
                                        Meter::_zelAttrs, 1, kCtor, &kOps);
constinit ZelAttr const Meter::_zelAttrs[] = {
    {"value", 256, &Meter::_zelType, &Builtin<int>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::doesNotify_, &kValue},
};

class Counter : public GenericIf::NotifieeConst {
public:
    explicit Counter(Ptr<Meter> m) : NotifieeConst(genericIfOf(m.ptr(), true)) {}
    void onAttribute(ZelAttr const*, Ptr<GenericIf const> const&) override { ++calls; }
    long calls = 0;
};

class Alarm : public Clock::NotifieeConst {
public:
    Alarm() : NotifieeConst(Clock::clock()) {}
    void onTime() override { ++calls; }
    long calls = 0;
};

void BM_ActivityLockPair(benchmark::State& state) {
    Lock* l = ActivityLockAnchor::lock();
    for (auto _ : state) {
        benchmark::DoNotOptimize(l->lock());
        l->unlock();
    }
}
BENCHMARK(BM_ActivityLockPair);

void BM_NotificationToNativeNotifiee(benchmark::State& state) {
    Lock* l = ActivityLockAnchor::lock();
    l->lock();
    Ptr<Meter> m = zelNew<Meter>(Name("m"));
    Ptr<Counter> c = zelNew<Counter>(m);
    int v = 0;
    for (auto _ : state) m->valueIs(++v);
    state.counters["calls"] = double(c->calls);
    c = nullptr;
    m = nullptr;
    l->unlock();
}
BENCHMARK(BM_NotificationToNativeNotifiee);

void BM_ClockFiring(benchmark::State& state) {
    Lock* l = ActivityLockAnchor::lock();
    l->lock();
    Ptr<Alarm> a = zelNew<Alarm>();
    Ptr<ActivityManagerConfig> mgr = ActivityFacility::activityManagerConfig();
    for (auto _ : state) {
        a->timeMinIs(0.0);        // due at once
        mgr->execTimeIs(0.0);     // one dispatch pass fires it
    }
    state.counters["firings"] = double(a->calls);
    a = nullptr;
    l->unlock();
}
BENCHMARK(BM_ClockFiring);

} // namespace

BENCHMARK_MAIN();
