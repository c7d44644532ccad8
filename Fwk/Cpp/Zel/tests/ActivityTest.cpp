#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include "ActivityTestTypes.h"
#include "Zel/ActivityLoop.h"

using namespace Zel;
using namespace ZelActivityTest;

TEST(ActivityLock, ErrorCheckingOwnerAndReleasableFlag) {
    Lock l;
    EXPECT_EQ(l.owner(), 0);
    EXPECT_TRUE(l.releasable()) << "nobody forbids releasing a lock at rest";
    EXPECT_TRUE(l.lock());
    EXPECT_EQ(l.owner(), currentTid());
    EXPECT_FALSE(l.lock()) << "re-locking from the owner reports EDEADLK, not a second lock";
    l.releasableIs(false);
    EXPECT_FALSE(l.releasable());
    l.releasableIs(true);
    l.unlock();
    EXPECT_EQ(l.owner(), 0);
#ifndef __SANITIZE_THREAD__
    // A deliberate misuse, which the thread sanitizer reports as an error
    // of its own before the C library refuses it.
    EXPECT_THROW(l.unlock(), ErrnoException) << "unlocking an unowned error-checking mutex fails";
#endif

    std::thread other([&] { EXPECT_TRUE(l.lock()); EXPECT_NE(l.owner(), 0); l.unlock(); });
    other.join();
    EXPECT_EQ(ActivityImplFacility::activityManagerSm()->activityLock(), ActivityLockAnchor::lock());
}

TEST(ActivityManager, IsAProcessSingletonReachableByTypeName) {
    Ptr<ActivityManagerConfig> m = manager();
    EXPECT_EQ(m, ActivityFacility::activityManagerConfig());
    EXPECT_EQ(Entity::singleton(Name("Zel::ActivityManagerConfig")).ptr(), m.ptr());
}

TEST(ActivityConfig, ConstructedByReflectionFromNameOrString) {
    ArgVector byString{toGenericIf(String8("worker"))};
    Ptr<GenericIf> a = ActivityConfig::_zelType.genericIf(byString, false);
    EXPECT_EQ(objectOf<ActivityConfig>(a.ptr())->name().value, "worker");
    ArgVector byName{toGenericIf(Name("other"))};
    EXPECT_EQ(objectOf<ActivityConfig>(ActivityConfig::_zelType.genericIf(byName, false).ptr())->name().value,
              "other");
    ArgVector wrong{toGenericIf(3)};
    EXPECT_THROW(ActivityConfig::_zelType.genericIf(wrong, false), TypeException);
}

// The loop waits without the lock: this thread can take it while the loop
// runs on another one, queue work, and the loop wakes up to deliver it.
TEST(ActivityLoop, ReleasesTheLockWhileWaitingAndWakesForQueuedWork) {
    Ptr<Gauge> g = zelNew<Gauge>(Name("g"));
    Ptr<Recorder> r = zelNew<Recorder>(g);
    r->zelFwkActivityIs(zelNew<ActivityConfig>(Name("a")));
    r->action = [] { manager()->stop(); };
    pid_t loopTid = 0;
    std::thread loop([&] { loopTid = currentTid(); manager()->run(); });
    {
        Held h;   // blocks until the loop waits, since it holds the lock while it dispatches
        g->levelIs(7);
        EXPECT_TRUE(r->seen.empty());
    }
    loop.join();
    EXPECT_EQ(r->seen, std::vector<int>{7});
    EXPECT_EQ(r->lockOwner, loopTid) << "delivered on the loop's thread, holding the activity lock";
    EXPECT_EQ(ActivityLockAnchor::lock()->owner(), 0);
}

TEST(ActivityLoop, CallerHoldingTheLockKeepsItAndItsReleasableFlag) {
    Lock* l = ActivityLockAnchor::lock();
    Held h;
    l->releasableIs(false);
    Ptr<Gauge> g = zelNew<Gauge>(Name("g"));
    Ptr<Recorder> r = zelNew<Recorder>(g);
    r->zelFwkActivityIs(zelNew<ActivityConfig>(Name("a")));
    bool releasableInside = false;
    r->action = [&] { releasableInside = l->releasable(); };
    g->levelIs(1);
    manager()->execTimeIs(0.0);
    EXPECT_EQ(r->seen, std::vector<int>{1});
    EXPECT_TRUE(releasableInside);
    EXPECT_FALSE(l->releasable());
    EXPECT_EQ(l->owner(), currentTid());
}

TEST(ActivityLoop, StopOnQuiesceReturnsOnceNothingIsDueAndIsConsumed) {
    Ptr<Gauge> g = zelNew<Gauge>(Name("g"));
    Ptr<Recorder> r = zelNew<Recorder>(g);
    r->zelFwkActivityIs(zelNew<ActivityConfig>(Name("a")));
    {
        Held h;
        g->levelIs(1);
        g->levelIs(2);
    }
    // A handler that queues more work: the loop must deliver that too first.
    Ptr<Gauge> g2 = zelNew<Gauge>(Name("g2"));
    Ptr<Recorder> r2 = zelNew<Recorder>(g2);
    r2->zelFwkActivityIs(r->zelFwkActivity());
    r->action = [&] { if (r->seen.size() == 2) g2->levelIs(3); };
    manager()->stopOnQuiesceIs(true);
    manager()->run();   // would never return without the quiesce rule
    EXPECT_EQ(r->seen, (std::vector<int>{1, 2}));
    EXPECT_EQ(r2->seen, std::vector<int>{3});
    EXPECT_FALSE(manager()->stopOnQuiesce());
    EXPECT_EQ(ActivityLoop::instance().queued(), 0u);
}

namespace {
void stopFromSignal(int) { ActivityFacility::activityManagerConfig()->stop(); }
} // namespace

TEST(ActivityLoop, StopFromASignalHandlerEndsRun) {
    Ptr<Gauge> g = zelNew<Gauge>(Name("g"));
    Ptr<Recorder> r = zelNew<Recorder>(g);
    r->zelFwkActivityIs(zelNew<ActivityConfig>(Name("a")));
    r->action = [] { std::raise(SIGUSR1); };
    auto old = std::signal(SIGUSR1, &stopFromSignal);
    { Held h; g->levelIs(4); }
    manager()->run();
    std::signal(SIGUSR1, old);
    EXPECT_EQ(r->seen, std::vector<int>{4});
}
