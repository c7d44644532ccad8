#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <thread>

#include "TestTypes.h"
#include "Zel/ActivityLoop.h"

using namespace Zel;
using namespace ZelTest;

namespace {

// A gauge with a recorder that is told through an activity of its own.
struct Watched {
    Ptr<Gauge> g = zelNew<Gauge>(Name("g"));
    Ptr<Recorder> r = zelNew<Recorder>(g);
    Watched() { r->zelFwkActivityIs(zelNew<ActivityConfig>(Name("a"))); }
};

void stopFromSignal(int) { ActivityFacility::activityManagerConfig()->stop(); }

// A loop that never hears of the work it waits for would hang the whole
// run: after `seconds` the alarm stops it, and the test fails instead.
struct LoopDeadline {
    static inline volatile std::sig_atomic_t expired = 0;
    void (*old)(int);
    explicit LoopDeadline(unsigned seconds) : old(std::signal(SIGALRM, [](int) { expired = 1; stopFromSignal(0); })) {
        expired = 0;
        ::alarm(seconds);
    }
    ~LoopDeadline() {
        ::alarm(0);
        std::signal(SIGALRM, old);
        EXPECT_EQ(expired, 0) << "the loop did not stop by itself";
    }
};

} // namespace

TEST(ActivityLock, ErrorCheckingOwnerAndReleasableFlag) {
    Lock l;
    EXPECT_EQ(l.owner(), 0);
    EXPECT_TRUE(l.releasable()) << "nobody forbids releasing a lock at rest";
    EXPECT_TRUE(l.lock());
    EXPECT_EQ(l.owner(), currentTid());
    EXPECT_FALSE(l.lock()) << "re-locking from the owner reports EDEADLK, not a second lock";
    EXPECT_FALSE(l.tryLock()) << "a try on a held lock, even by its owner, takes nothing";
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
    EXPECT_TRUE(l.tryLock());
    EXPECT_EQ(l.owner(), currentTid());
    std::thread refused([&] { EXPECT_FALSE(l.tryLock()) << "held by another thread: no wait, no lock"; });
    refused.join();
    l.unlock();
    EXPECT_EQ(ActivityImplFacility::activityManagerSm()->activityLock(), ActivityLockAnchor::lock());
}

TEST(ActivityTypes, ManagerIsASingletonActivitiesAreMadeFromANameOrStringAndHeldByNotifiees) {
    EXPECT_EQ(Entity::singleton(Name("Zel::ActivityManagerConfig")).ptr(), manager().ptr());
    for (Ptr<GenericIf const> arg : {toGenericIf(String8("worker")), toGenericIf(Name("worker"))}) {
        Ptr<GenericIf> a = ActivityConfig::_zelType.genericIf(ArgVector{arg}, false);
        EXPECT_EQ(objectOf<ActivityConfig>(a.ptr())->name().value, "worker") << arg->strep();
    }
    EXPECT_THROW(ActivityConfig::_zelType.genericIf(ArgVector{toGenericIf(3)}, false), TypeException);
    // A notifiee holds its activity while it lives, and no longer.
    uint64_t const live = allocTrackLiveCount("Zel::ActivityConfig");
    {
        Watched w;
        w.r->zelFwkActivityIs(zelNew<ActivityConfig>(Name("b")));
        EXPECT_EQ(allocTrackLiveCount("Zel::ActivityConfig"), live + 1);
    }
    EXPECT_EQ(allocTrackLiveCount("Zel::ActivityConfig"), live);
}

// The loop waits without the lock: this thread can take it while the loop
// runs on another one, queue work, and the loop wakes up to deliver it.
TEST(ActivityLoop, ReleasesTheLockWhileWaitingAndWakesForQueuedWork) {
    Watched w;
    w.r->action = [] { manager()->stop(); };
    pid_t loopTid = 0;
    LoopDeadline deadline(30);
    std::thread loop([&] { loopTid = currentTid(); manager()->run(); });
    {
        ActivityLockScope h;   // blocks until the loop waits, since it holds the lock while it dispatches
        w.g->levelIs(7);
        EXPECT_TRUE(w.r->seen.empty());
    }
    loop.join();
    EXPECT_EQ(w.r->seen, std::vector<int>{7});
    EXPECT_EQ(w.r->lockOwner, loopTid) << "delivered on the loop's thread, holding the activity lock";
    EXPECT_EQ(ActivityLockAnchor::lock()->owner(), 0);
}

// Run by a caller holding the lock, the loop keeps it and its releasable
// flag (released inside handlers); told to stop once quiet, it first
// delivers what handlers queue and forgets the rule; a signal handler can
// stop it.
TEST(ActivityLoop, CallerKeepsTheLockQuiesceDrainsSignalStops) {
    Lock* l = ActivityLockAnchor::lock();
    Watched w, w2;
    w2.r->zelFwkActivityIs(w.r->zelFwkActivity());
    bool releasableInside = false;
    {
        ActivityLockScope h;
        l->releasableIs(false);
        w.r->action = [&] { releasableInside = l->releasable(); };
        w.g->levelIs(1);
        manager()->execTimeIs(0.0);
        EXPECT_TRUE(releasableInside);
        EXPECT_FALSE(l->releasable());
        EXPECT_EQ(l->owner(), currentTid());
        l->releasableIs(true);
        w.g->levelIs(2);
        w.g->levelIs(3);
    }
    w.r->action = [&] { if (w.r->seen.size() == 3) w2.g->levelIs(4); };
    manager()->stopOnQuiesceIs(true);
    LoopDeadline deadline(30);
    manager()->run();   // would never return without the quiesce rule
    EXPECT_EQ(w.r->seen, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(w2.r->seen, std::vector<int>{4});
    EXPECT_FALSE(manager()->stopOnQuiesce());
    EXPECT_EQ(ActivityLoop::instance().queued(), 0u);

    w.r->action = [] { std::raise(SIGUSR1); };
    auto old = std::signal(SIGUSR1, &stopFromSignal);
    { ActivityLockScope h; w.g->levelIs(5); }
    manager()->run();
    std::signal(SIGUSR1, old);
    EXPECT_EQ(w.r->seen, (std::vector<int>{1, 2, 3, 5}));
}
