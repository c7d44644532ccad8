#include <gtest/gtest.h>

#include <string>

#include "ActivityTestTypes.h"
#include "Zel/ActivityLoop.h"
#include "Zel/Clock.h"

using namespace Zel;
using namespace ZelActivityTest;

namespace {

// Appends its tag to a shared log each time it fires.
class Sleeper : public Clock::NotifieeConst {
public:
    Sleeper(std::string* log, char tag) : NotifieeConst(Clock::clock()), log_(log), tag_(tag) {}
    void onTime() override { *log_ += tag_; }
private:
    std::string* log_;
    char tag_;
};

// Defers its firings to its activity the way bridging notifiees do.
class DeferringSleeper : public Clock::NotifieeConst {
public:
    explicit DeferringSleeper(std::string* log) : NotifieeConst(Clock::clock()), log_(log) {}
    void onTime() override {
        if (zelOnAttribute(258, &pending_)) { *log_ += 'q'; return; }
        *log_ += 'f';
    }
    void handleNotification(ActivityConfig*) override {
        int p = pending_;
        pending_ = 0;
        actsm();
        if (p == 258) onTime();
    }
private:
    std::string* log_;
    int pending_ = 0;
};

struct ClockTest : ::testing::Test {
    Held held;
    std::string log;
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

TEST_F(ClockTest, FiresDueNotifieesInWakeTimeOrderOnlyOnce) {
    Ptr<Sleeper> a = zelNew<Sleeper>(&log, 'a');
    Ptr<Sleeper> b = zelNew<Sleeper>(&log, 'b');
    Ptr<Sleeper> c = zelNew<Sleeper>(&log, 'c');
    Ptr<Sleeper> idle = zelNew<Sleeper>(&log, 'x');
    EXPECT_EQ(a->timeMin(), 0.0);
    double t = Zel::now();
    a->timeMinIs(t - 3);
    b->timeMinIs(t - 1);
    c->timeMinIs(t - 2);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "acb");
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "acb") << "no new wake time, no new firing";
}

TEST_F(ClockTest, FutureRescheduledAndDestroyedWakeUpsDoNotFire) {
    Ptr<Sleeper> later = zelNew<Sleeper>(&log, 'l');
    Ptr<Sleeper> moved = zelNew<Sleeper>(&log, 'm');
    Ptr<Sleeper> gone = zelNew<Sleeper>(&log, 'g');
    Ptr<Sleeper> off = zelNew<Sleeper>(&log, 'o');
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

TEST_F(ClockTest, HandlerSchedulingAgainFiresInALaterPass) {
    Ptr<Sleeper> s = zelNew<Sleeper>(&log, 's');
    s->timeMinIs(Zel::now() - 1);
    manager()->execTimeIs(0.0);
    s->timeMinIs(Zel::now() - 1);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(log, "ss");
}

TEST_F(ClockTest, FiringDeferredToAnActivityRunsInTheNextDispatch) {
    Ptr<DeferringSleeper> d = zelNew<DeferringSleeper>(&log);
    d->zelFwkActivityIs(zelNew<ActivityConfig>(Name("clockActivity")));
    d->timeMinIs(Zel::now() - 1);
    manager()->execTimeIs(0.0);   // fires, queues, and delivers within the same loop
    EXPECT_EQ(log, "qf");
}
