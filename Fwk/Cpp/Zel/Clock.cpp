#include "Zel/Clock.h"

#include "Zel/ActivityLoop.h"
#include "Zel/Attr.h"
#include "Zel/NamedEntityOps.h"

namespace Zel {

namespace {

Ptr<Clock> theClock(Name const&) { return Clock::clock(); }

} // namespace

Clock::Clock(Name name) : Entity(std::move(name)) {}

Ptr<Clock> Clock::clock() {
    static Clock* const c = [] {
        Ptr<Clock> made = zelNew<Clock>(Name("Zel::Clock"));
        Entity::singletonIs(Ptr<Entity>(made));
        return made.release();   // kept for the process
    }();
    return Ptr<Clock>(c);
}

Clock::NotifieeConst::NotifieeConst(Ptr<Clock const> clock) { notifierIs(std::move(clock)); }

Clock::NotifieeConst::~NotifieeConst() {
    // The loop may be about to fire this notifiee: cancel under the
    // activity lock, which the loop holds while it fires.
    if (everScheduled_) {
        ActivityLockScope lock;
        ActivityLoop::instance().timerDel(this);
    }
}

void Clock::NotifieeConst::notifierIs(Ptr<Clock const> clock) {
    if (clock == notifier_) return;
    notifier_ = std::move(clock);
    isRegisteredNotifieeIs(bool(notifier_));
}

void Clock::NotifieeConst::timeMinIs(double t) {
    timeMin_ = t;
    ActivityLoop::instance().timerIs(this, t);
}

void Clock::NotifieeConst::onTime() {}

namespace {

// The clock is one per process: reflection hands out that one.
struct MakeClockEarly {
    MakeClockEarly() { Clock::clock(); }
} const makeClockEarly;

constexpr AccessorAttr<&Clock::now> kNow;
constexpr ArgDesc kCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
constexpr ArgDesc kNoCtor[] = {{nullptr, nullptr}};
constexpr TypeOps kClockOps = namedEntityOps<Clock, &theClock>();

} // namespace

constinit ZelType const Clock::_zelType("Zel::Clock", sizeof(Clock), &Entity::_zelType,
                                        ZelType::isEntity_ | ZelType::hasOwnPtrInterface_,
                                        Clock::_zelAttrs, 1, kCtor, &kClockOps);
constinit ZelAttr const Clock::_zelAttrs[] = {
    {"now", 256, &Clock::_zelType, &Builtin<double>::_zelType, ZelAttr::readable_, &kNow},
};

constinit ZelType const Clock::NotifieeConst::_zelType(
    "Zel::Clock::NotifieeConst", sizeof(Clock::NotifieeConst), &Entity::NotifieeConst::_zelType,
    ZelType::isEntity_ | ZelType::hasOwnPtrInterface_, nullptr, 0, kNoCtor, &kAbstractObjectOps);

namespace {
TypeRegistration const rClock(&Clock::_zelType);
TypeRegistration const rClockNotifiee(&Clock::NotifieeConst::_zelType);
} // namespace

} // namespace Zel
