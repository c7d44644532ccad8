// The activity loop behind ActivityManagerConfig: the queue of notifiees
// with deliveries for an activity, the clock's wake-ups, and the wait
// between dispatches. Every ActivityConfig is served by this one loop.
//
// The queue and the wake-up schedule have their own small mutex, so they
// stay consistent whoever touches them; delivery happens with the activity
// lock held. While nothing is due the loop waits in ppoll() on an eventfd
// without the activity lock (unless the caller already held it): queueing
// work, scheduling a wake-up and stop() all write to the eventfd. stop() is
// async-signal-safe (an atomic counter and one write()).
#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "Zel/Clock.h"
#include "Zel/Lock.h"
#include "Zel/Notifiee.h"

namespace Zel {

class ZEL_API ActivityLoop {
public:
    static ActivityLoop& instance();

    // Queues a delivery for `n` (at most one entry per notifiee).
    void enqueue(PtrInterface::NotifieeConst* n);
    // Drops the queued delivery of `n` and forgets it as being dispatched.
    void cancel(PtrInterface::NotifieeConst* n);
    // Whether this thread is dispatching `n` right now (its handler, or
    // what the handler calls). Another thread's change to `n` meanwhile is
    // queued behind the batch being delivered, so the order holds.
    bool dispatching(PtrInterface::NotifieeConst const* n) const {
        return current_ == n && dispatcher_ == std::this_thread::get_id();
    }
    void dispatchingIs(PtrInterface::NotifieeConst* n) {
        current_ = n;
        dispatcher_ = std::this_thread::get_id();
    }
    size_t queued() const;

    void timerIs(Clock::NotifieeConst* n, double t);
    void timerDel(Clock::NotifieeConst* n);
    size_t timers() const;

    // Runs for `seconds` (negative: until stop()).
    void runFor(double seconds);
    // One dispatch pass over what is due now; the caller holds the activity
    // lock. True when anything was dispatched.
    bool pass();
    void stop();
    void stopOnQuiesceIs(bool s) { stopOnQuiesce_.store(s); }
    bool stopOnQuiesce() const { return stopOnQuiesce_.load(); }

private:
    ActivityLoop();
    void wake();
    bool dueNow(double t) const;
    double nextTimer() const;   // infinity when none
    void waitUntil(double until, uint64_t seen);

    mutable std::mutex m_;
    std::deque<PtrInterface::NotifieeConst*> queue_;
    std::map<std::pair<double, uint64_t>, Clock::NotifieeConst*> timers_;
    uint64_t seq_ = 0;
    std::atomic<uint64_t> gen_{0};
    std::atomic<uint64_t> stops_{0};
    std::atomic<bool> waiting_{false};
    std::atomic<bool> stopOnQuiesce_{false};
    int efd_ = -1;
    PtrInterface::NotifieeConst* current_ = nullptr;   // under the activity lock
    std::thread::id dispatcher_;                       // the thread dispatching current_
};

} // namespace Zel
