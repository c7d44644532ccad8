// The process clock and its notifiees. Time is in seconds on the base of
// Zel::now() (the monotonic clock). A Clock::NotifieeConst asks for one
// call of onTime() at a wake time with timeMinIs(t); the activity loop
// makes the call when the clock reaches t. A notifiee that sets no new
// wake time is not called again.
#pragma once

#include "Zel/Entity.h"
#include "Zel/Format.h"

namespace Zel {

class ActivityLoop;

class ZEL_API Clock : public Entity {
public:
    class NotifieeConst;

    explicit Clock(Name name);
    ZelType const* fwkType() const override { return &_zelType; }

    // The process clock (also Entity::singleton("Zel::Clock")).
    static Ptr<Clock> clock();

    double now() const { return Zel::now(); }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
};

class ZEL_API Clock::NotifieeConst : public Entity::NotifieeConst {
public:
    NotifieeConst() = default;
    explicit NotifieeConst(Ptr<Clock const> clock);
    // Cancels the pending wake-up.
    ~NotifieeConst() override;
    ZelType const* fwkType() const override { return &_zelType; }

    Ptr<Clock const> notifier() const { return notifier_; }
    // Observes `clock`; registers with it (a null clock unregisters).
    virtual void notifierIs(Ptr<Clock const> clock);

    double timeMin() const { return timeMin_; }
    // Schedules one call of onTime() once the clock reaches `t`, replacing
    // any wake-up not yet made.
    void timeMinIs(double t);
    // Whether a wake-up is scheduled.
    bool timeMinScheduled() const { return scheduled_; }

    // Called by the loop at the wake time, with the activity lock held, if
    // the notifiee is then registered, active and not marked for deletion.
    virtual void onTime();

    static ZelType const _zelType;

private:
    Ptr<Clock const> notifier_;
    double timeMin_ = 0.0;
    double timerTime_ = 0.0;     // key of the scheduled wake-up
    uint64_t timerSeq_ = 0;
    bool scheduled_ = false;
    bool everScheduled_ = false;
    friend class ActivityLoop;
};

} // namespace Zel
