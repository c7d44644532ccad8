// Zel::PyClockNotifiee: a notifiee of the framework clock that calls a
// Python callable (no arguments, result ignored) at its wake time. Python
// schedules every call itself by writing "timeMinProxy"; a handler that
// sets no new wake time is not called again. Setting a clock fires the
// handler once at once, so it can set its first wake time.
#pragma once

#include "Zel/Activity.h"
#include "Zel/Clock.h"
#include "ZelPy/PyObjHandle.h"

namespace Zel {

class ZEL_API PyClockNotifiee : public Clock::NotifieeConst {
public:
    PyClockNotifiee(Ptr<ActivityConfig> activity, Ptr<Clock const> clock, Ptr<PyObjHandle> handler);
    ~PyClockNotifiee() override;

    void hasNotificationActiveIs(bool active) override;
    ZelType const* fwkType() const override { return &_zelType; }
    void notifierIs(Ptr<Clock const> clock) override;
    void handleNotification(ActivityConfig* activity) override;
    Ptr<ActivityConfig> zelFwkActivity() const override { return zelFwkActivity_; }
    void onTime() override;
    void zelFwkActivityIs(Ptr<ActivityConfig> activity) override { zelFwkActivity_ = std::move(activity); }
    // A zombie (marked for deletion) is never called; reviving turns
    // notifications back on.
    virtual void zelDoZombieReactors(bool zombie);

    Ptr<Clock const> clock() const { return notifier(); }
    void clockIs(Ptr<Clock const> clock) { notifierIs(std::move(clock)); }
    Ptr<PyObjHandle> handler() const { return handler_; }
    // Calls the handler once, with the activity lock released around it.
    void handleTime();
    double timeMinProxy() const { return timeMin(); }
    void timeMinProxyIs(double t) { timeMinIs(t); }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

private:
    Ptr<ActivityConfig> zelFwkActivity_;
    // Attribute number deferred to the activity: 0 none, 258 the clock,
    // -1 a full redispatch.
    int32_t pending_ = 0;
    Ptr<PyObjHandle> handler_;
};

ZEL_API Ptr<PyClockNotifiee> pyClockNotifieeFactory(Ptr<ActivityConfig> activity, Ptr<Clock const> clock,
                                                    Ptr<PyObjHandle> handler);

} // namespace Zel
