// Test-only types for the activity, notifiee and clock tests: an entity
// with one notifying attribute, and a notifiee recording what it is told.
#pragma once

#include <functional>
#include <vector>

#include "Zel/Activity.h"
#include "Zel/Attr.h"
#include "Zel/Lock.h"
#include "Zel/TypeOps.h"

namespace ZelActivityTest {

class Gauge : public Zel::Entity {
public:
    explicit Gauge(Zel::Name n) : Entity(std::move(n)) {}
    Zel::ZelType const* fwkType() const override { return &_zelType; }
    int level() const { return level_; }
    void levelIs(int v) {
        level_ = v;
        notifyValue(&_zelAttrs[0], v);
    }
    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];

private:
    int level_ = 0;
};

inline constexpr Zel::AccessorAttr<&Gauge::level, &Gauge::levelIs> kGaugeLevel;
inline constexpr Zel::ArgDesc kGaugeCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
inline constexpr Zel::TypeOps kGaugeOps = Zel::entityOps<Gauge, Zel::Name>();
inline constinit Zel::ZelType const Gauge::_zelType(
    "ZelActivityTest::Gauge", sizeof(Gauge), &Zel::Entity::_zelType,
    Zel::ZelType::isEntity_ | Zel::ZelType::hasOwnPtrInterface_, Gauge::_zelAttrs, 1, kGaugeCtor,
    &kGaugeOps);
inline constinit Zel::ZelAttr const Gauge::_zelAttrs[] = {
    {"level", 256, &Gauge::_zelType, &Zel::Builtin<int>::_zelType,
     Zel::ZelAttr::readable_ | Zel::ZelAttr::writable_ | Zel::ZelAttr::doesNotify_, &kGaugeLevel},
};

// Records the values it is given and runs an optional action after each.
class Recorder : public Zel::GenericIf::NotifieeConst {
public:
    explicit Recorder(Zel::Ptr<Gauge> g) : NotifieeConst(Zel::genericIfOf(g.ptr(), true)) {}
    void onAttribute(Zel::ZelAttr const*, Zel::Ptr<Zel::GenericIf const> const& v) override {
        seen.push_back(Zel::fromGenericIf<int>(v.ptr()));
        lockOwner = Zel::ActivityLockAnchor::lock()->owner();
        if (action) action();
    }
    std::vector<int> seen;
    pid_t lockOwner = 0;
    std::function<void()> action;
};

// Takes the activity lock for a test scope (tests mutate framework state
// under it, as framework code does).
class Held {
public:
    Held() { Zel::ActivityLockAnchor::lock()->lock(); }
    ~Held() { Zel::ActivityLockAnchor::lock()->unlock(); }
    Held(Held const&) = delete;
    Held& operator=(Held const&) = delete;
};

inline Zel::Ptr<Zel::ActivityManagerConfig> manager() { return Zel::ActivityFacility::activityManagerConfig(); }

} // namespace ZelActivityTest
