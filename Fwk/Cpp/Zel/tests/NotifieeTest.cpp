#include <gtest/gtest.h>

#include "TestTypes.h"
#include "Zel/ActivityLoop.h"

using namespace Zel;
using namespace ZelTest;

namespace {

struct NotifieeTest : ::testing::Test {
    Held held;
    Ptr<Gauge> g = zelNew<Gauge>(Name("g"));
    Ptr<ActivityConfig> activity = zelNew<ActivityConfig>(Name("a"));
    Ptr<Recorder> deferred() {
        Ptr<Recorder> r = zelNew<Recorder>(g);
        r->zelFwkActivityIs(activity);
        return r;
    }
};

} // namespace

TEST_F(NotifieeTest, ImmediateWithoutAnActivityQueuedInOrderWithOne) {
    Ptr<Recorder> r = deferred();
    Ptr<Recorder> direct = zelNew<Recorder>(g);
    g->levelIs(1);
    g->levelIs(2);
    EXPECT_TRUE(r->seen.empty());
    EXPECT_EQ(direct->seen, (std::vector<int>{1, 2}));
    EXPECT_FALSE(direct->zelQueuedForActivity());
    EXPECT_TRUE(r->zelQueuedForActivity());
    EXPECT_EQ(ActivityLoop::instance().queued(), 1u) << "one queue entry per notifiee";
    manager()->execTimeIs(0.0);
    EXPECT_EQ(r->seen, (std::vector<int>{1, 2}));
    EXPECT_FALSE(r->zelQueuedForActivity());
}

TEST_F(NotifieeTest, ChangesMadeByTheNotifieesOwnHandlerReachItAtOnce) {
    Ptr<Recorder> r = deferred();
    r->action = [&] { if (g->level() < 3) g->levelIs(g->level() + 1); };
    g->levelIs(1);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(r->seen, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(ActivityLoop::instance().queued(), 0u);
}

TEST_F(NotifieeTest, DestroyedNotifieeWithQueuedNotificationsIsNeverCalled) {
    int calls = 0;
    {
        Ptr<Recorder> r = deferred();
        r->action = [&] { ++calls; };
        g->levelIs(5);
        EXPECT_EQ(ActivityLoop::instance().queued(), 1u);
    }
    EXPECT_EQ(ActivityLoop::instance().queued(), 0u);
    manager()->execTimeIs(0.0);
    g->levelIs(6);
    EXPECT_EQ(calls, 0);
}

TEST_F(NotifieeTest, NotifieeRemovedDuringDeliveryIsSkipped) {
    Ptr<Recorder> first = zelNew<Recorder>(g);
    Ptr<Recorder> second = zelNew<Recorder>(g);
    int secondCalls = 0;
    second->action = [&] { ++secondCalls; };
    first->action = [&] { second = nullptr; };
    g->levelIs(1);
    EXPECT_EQ(secondCalls, 0);
    g->levelIs(2);
    EXPECT_EQ(first->seen, (std::vector<int>{1, 2}));
}

TEST_F(NotifieeTest, InactiveNotifieeIsSkippedAndPendingFieldCoalesces) {
    Ptr<Recorder> r = zelNew<Recorder>(g);
    r->hasNotificationActiveIs(false);
    g->levelIs(1);
    EXPECT_TRUE(r->seen.empty());

    // The raw deferral protocol: one attribute stays itself, two make -1.
    Ptr<Recorder> q = zelNew<Recorder>(zelNew<Gauge>(Name("h")));
    int pending = 0;
    EXPECT_FALSE(q->zelOnAttribute(258, &pending)) << "no activity: handle at once";
    q->zelFwkActivityIs(activity);
    EXPECT_TRUE(q->zelOnAttribute(258, &pending));
    EXPECT_TRUE(q->zelOnAttribute(258, &pending));
    EXPECT_EQ(pending, 258);
    EXPECT_TRUE(q->zelOnAttribute(300, &pending));
    EXPECT_EQ(pending, -1);
    q->actsm();
    EXPECT_FALSE(q->zelOnAttribute(258, &pending)) << "being dispatched: handle at once";
    ActivityLoop::instance().dispatchingIs(nullptr);
    ActivityLoop::instance().cancel(q.ptr());
}
