#include <gtest/gtest.h>

#include <thread>

#include "TestTypes.h"
#include "Zel/ActivityLoop.h"

using namespace Zel;
using namespace ZelTest;

// One gauge, a notifiee deferred to an activity (registered first) and one
// told at once, through each step of delivery.
TEST(Notifiee, DeliveryAtOnceQueuedRequeuedSkippedAndCancelled) {
    ActivityLockScope held;   // framework state changes under the activity lock
    Ptr<Gauge> g = zelNew<Gauge>(Name("g"));
    Ptr<Recorder> r = zelNew<Recorder>(g);
    r->zelFwkActivityIs(zelNew<ActivityConfig>(Name("a")));
    Ptr<Recorder> direct = zelNew<Recorder>(g);
    g->levelIs(1);
    g->levelIs(2);
    EXPECT_TRUE(r->seen.empty());
    EXPECT_EQ(direct->seen, (std::vector<int>{1, 2}));
    EXPECT_FALSE(direct->zelQueuedForActivity());
    EXPECT_TRUE(r->zelQueuedForActivity());
    EXPECT_EQ(ActivityLoop::instance().queued(), 1u) << "one queue entry per notifiee";
    manager()->execTimeIs(0.0);
    EXPECT_EQ(r->seen, (std::vector<int>{1, 2})) << "in the order of the changes";
    EXPECT_FALSE(r->zelQueuedForActivity());

    // Dispatched once, it is queued again by the next change; changes made
    // by its own handler reach it at once.
    r->action = [&] { if (g->level() < 5) g->levelIs(g->level() + 1); };
    g->levelIs(3);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(r->seen, (std::vector<int>{1, 2, 3, 4, 5}));
    EXPECT_EQ(ActivityLoop::instance().queued(), 0u);
    r->action = nullptr;
    direct->seen.clear();

    // A notifiee released by an earlier one during a delivery is skipped;
    // an inactive one too.
    Ptr<Recorder> last = zelNew<Recorder>(g);
    direct->action = [&] { last = nullptr; };
    last->action = [] { ADD_FAILURE() << "called after its release"; };
    g->levelIs(6);
    direct->action = nullptr;
    direct->hasNotificationActiveIs(false);
    g->levelIs(7);
    EXPECT_EQ(direct->seen, std::vector<int>{6});

    // Destroyed with changes queued: its entry goes, it is never called.
    r->action = [] { ADD_FAILURE() << "called after its destruction"; };
    EXPECT_EQ(ActivityLoop::instance().queued(), 1u);
    r = nullptr;
    EXPECT_EQ(ActivityLoop::instance().queued(), 0u);
    manager()->execTimeIs(0.0);
    g->levelIs(8);
}

// A handler that lets the activity lock go, as a Python handler does: a
// change another thread makes meanwhile waits behind the batch being
// delivered, so the notifiee still sees the changes in their order.
TEST(Notifiee, ChangeFromAnotherThreadDuringDispatchKeepsOrder) {
    ActivityLockScope held;
    Ptr<Gauge> g = zelNew<Gauge>(Name("o"));
    Ptr<Recorder> r = zelNew<Recorder>(g);
    r->zelFwkActivityIs(zelNew<ActivityConfig>(Name("a")));
    r->action = [&] {
        if (r->seen.size() != 1) return;
        Lock* l = ActivityLockAnchor::lock();
        l->unlock();
        std::thread([&] {
            ActivityLockScope other;
            g->levelIs(3);
        }).join();
        l->lock();
    };
    g->levelIs(1);
    g->levelIs(2);
    manager()->execTimeIs(0.0);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(r->seen, (std::vector<int>{1, 2, 3}));
}

// The raw deferral protocol: one attribute pending stays itself, two make -1.
TEST(Notifiee, PendingFieldCoalesces) {
    ActivityLockScope held;   // framework state changes under the activity lock
    Ptr<Recorder> q = zelNew<Recorder>(zelNew<Gauge>(Name("h")));
    int pending = 0;
    EXPECT_FALSE(q->zelOnAttribute(258, &pending)) << "no activity: handle at once";
    q->zelFwkActivityIs(zelNew<ActivityConfig>(Name("a")));
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
