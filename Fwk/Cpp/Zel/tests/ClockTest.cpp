#include <gtest/gtest.h>

#include <string>

#include "TestTypes.h"
#include "Zel/ActivityLoop.h"
#include "Zel/Clock.h"

using namespace Zel;
using namespace ZelTest;

namespace {

// Appends its tag to a shared log each time it fires. Given an activity, it
// defers its firings to it the way bridging notifiees do, logging 'q' when
// it queues one.
class Sleeper : public Clock::NotifieeConst {
public:
    Sleeper(std::string* log, char tag) : NotifieeConst(Clock::clock()), log_(log), tag_(tag) {}
    void onTime() override {
        if (zelOnAttribute(258, &pending_)) { *log_ += 'q'; return; }
        *log_ += tag_;
    }
    void handleNotification(ActivityConfig*) override {
        int p = pending_;
        pending_ = 0;
        actsm();
        if (p == 258) onTime();
    }
private:
    std::string* log_;
    char tag_;
    int pending_ = 0;
};

} // namespace

// One pass of the loop fires each due wake-up of an active, registered
// notifiee once, in wake-time order, and no other; one scheduled again fires
// in a later pass; a firing deferred to an activity is delivered in the same
// loop.
TEST(ClockTest, FiresDueWakeUpsOnceInOrder) {
    ActivityLockScope held;   // framework state changes under the activity lock
    Ptr<Clock> clock = Clock::clock();
    EXPECT_EQ(Entity::singleton(Name("Zel::Clock")).ptr(), clock.ptr());
    ZelAttr const* nowAttr = Clock::_zelType.attr("now");
    double now = fromGenericIf<double>(nowAttr->genericIfGet(genericIfOf(clock.ptr()).ptr(), nullptr).ptr());
    EXPECT_LE(now, Zel::now());
    EXPECT_GT(now, 0.0);

    std::string log;
    auto sleeper = [&log](char tag) { return zelNew<Sleeper>(&log, tag); };
    Ptr<Sleeper> a = sleeper('a'), b = sleeper('b'), c = sleeper('c'), later = sleeper('l'), moved = sleeper('m');
    Ptr<Sleeper> gone = sleeper('g'), off = sleeper('o'), idle = sleeper('i'), deferred = sleeper('d');
    EXPECT_EQ(a->timeMin(), 0.0);
    double t = Zel::now();
    size_t before = ActivityLoop::instance().timers();
    a->timeMinIs(t - 3);
    b->timeMinIs(t - 1);
    c->timeMinIs(t - 2);
    later->timeMinIs(t + 3600);
    moved->timeMinIs(t - 1);
    moved->timeMinIs(t + 3600);   // replaces the due wake-up
    gone->timeMinIs(t - 1);
    gone = nullptr;
    off->timeMinIs(t - 1);
    off->notifierIs(nullptr);     // unregistered
    idle->hasNotificationActiveIs(false);
    idle->timeMinIs(t - 1);
    EXPECT_EQ(ActivityLoop::instance().timers(), before + 7);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "acb");
    EXPECT_TRUE(later->timeMinScheduled());
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "acb") << "no new wake time, no new firing";
    b->timeMinIs(Zel::now() - 1);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "acbb");
    deferred->zelFwkActivityIs(zelNew<ActivityConfig>(Name("clockActivity")));
    deferred->timeMinIs(Zel::now() - 1);
    manager()->execTimeIs(0.0);   // fires, queues, and delivers within the same loop
    EXPECT_EQ(log, "acbbqd");
}
