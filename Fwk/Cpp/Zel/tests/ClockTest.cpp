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

struct ClockTest : ::testing::Test {
    Held held;
    std::string log;
    Ptr<Sleeper> sleeper(char tag) { return zelNew<Sleeper>(&log, tag); }
};

} // namespace

TEST_F(ClockTest, IsTheProcessSingletonWithAReadableNow) {
    Ptr<Clock> c = Clock::clock();
    EXPECT_EQ(Entity::singleton(Name("Zel::Clock")).ptr(), c.ptr());
    ZelAttr const* now = Clock::_zelType.attr("now");
    ASSERT_NE(now, nullptr);
    double a = fromGenericIf<double>(now->genericIfGet(genericIfOf(c.ptr()).ptr(), nullptr).ptr());
    EXPECT_LE(a, Zel::now());
    EXPECT_GT(a, 0.0);
}

// Each wake time fires once; a handler scheduling again fires in a later pass.
TEST_F(ClockTest, FiresDueNotifieesInWakeTimeOrderOncePerWakeTime) {
    Ptr<Sleeper> a = sleeper('a'), b = sleeper('b'), c = sleeper('c'), idle = sleeper('x');
    EXPECT_EQ(a->timeMin(), 0.0);
    double t = Zel::now();
    a->timeMinIs(t - 3);
    b->timeMinIs(t - 1);
    c->timeMinIs(t - 2);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "acb");
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "acb") << "no new wake time, no new firing";
    b->timeMinIs(Zel::now() - 1);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "acbb");
}

TEST_F(ClockTest, FutureRescheduledAndDestroyedWakeUpsDoNotFire) {
    Ptr<Sleeper> later = sleeper('l'), moved = sleeper('m'), gone = sleeper('g'), off = sleeper('o');
    double t = Zel::now();
    size_t before = ActivityLoop::instance().timers();
    later->timeMinIs(t + 3600);
    moved->timeMinIs(t - 1);
    moved->timeMinIs(t + 3600);   // replaces the due wake-up
    gone->timeMinIs(t - 1);
    gone = nullptr;
    off->timeMinIs(t - 1);
    off->notifierIs(nullptr);     // unregistered
    EXPECT_EQ(ActivityLoop::instance().timers(), before + 3);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "");
    EXPECT_TRUE(later->timeMinScheduled());
}

TEST_F(ClockTest, FiringDeferredToAnActivityRunsInTheNextDispatch) {
    Ptr<Sleeper> d = sleeper('f');
    d->zelFwkActivityIs(zelNew<ActivityConfig>(Name("clockActivity")));
    d->timeMinIs(Zel::now() - 1);
    manager()->execTimeIs(0.0);   // fires, queues, and delivers within the same loop
    EXPECT_EQ(log, "qf");
}
