#include "Zel/ActivityLoop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>

#include "Zel/Activity.h"
#include "Zel/Exception.h"

namespace Zel {

namespace {

// Holds the activity lock for a loop, marked releasable. When the caller
// already held it (EDEADLK) it stays held throughout, also while waiting.
class LoopHold {
public:
    explicit LoopHold(Lock* l) : l_(l), took_(l->lock()), saved_(l->releasable()) {
        l_->releasableIs(true);
    }
    ~LoopHold() {
        if (!held_) return;
        l_->releasableIs(saved_);
        if (took_) l_->unlock();
    }
    LoopHold(LoopHold const&) = delete;
    LoopHold& operator=(LoopHold const&) = delete;

    bool mayRelease() const { return took_; }
    void release() {
        if (!took_) return;
        held_ = false;
        l_->unlock();
    }
    void retake() {
        if (!took_ || held_) return;
        l_->lock();
        held_ = true;
        l_->releasableIs(true);
    }

private:
    Lock* l_;
    bool took_;
    bool saved_;
    bool held_ = true;
};

template <class N>
Ptr<N> keepAlive(N* n) {
    // A counted notifiee survives being released by its own handler; an
    // uncounted one (count 0) is its owner's business.
    return Ptr<N>(n->references() ? n : nullptr);
}

} // namespace

ActivityLoop& ActivityLoop::instance() {
    static ActivityLoop* loop = new ActivityLoop;   // lives for the process
    return *loop;
}

// Made at load time, so that stop() from a signal handler never allocates.
namespace {
struct MakeLoopEarly {
    MakeLoopEarly() { ActivityLoop::instance(); }
} const makeLoopEarly;
} // namespace

ActivityLoop::ActivityLoop() {
    efd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (efd_ < 0) throw ErrnoException(errno, "Failed to create the activity loop's eventfd");
}

void ActivityLoop::wake() {
    gen_.fetch_add(1);
    if (waiting_.load()) {
        uint64_t one = 1;
        [[maybe_unused]] ssize_t w = ::write(efd_, &one, sizeof one);
    }
}

void ActivityLoop::enqueue(PtrInterface::NotifieeConst* n) {
    {
        std::lock_guard<std::mutex> g(m_);
        if (n->queued_) return;
        n->queued_ = true;
        n->everQueued_ = true;
        queue_.push_back(n);
    }
    wake();
}

void ActivityLoop::cancel(PtrInterface::NotifieeConst* n) {
    {
        std::lock_guard<std::mutex> g(m_);
        if (n->queued_) {
            queue_.erase(std::remove(queue_.begin(), queue_.end(), n), queue_.end());
            n->queued_ = false;
        }
    }
    if (current_ == n) current_ = nullptr;
}

size_t ActivityLoop::queued() const {
    std::lock_guard<std::mutex> g(m_);
    return queue_.size();
}

void ActivityLoop::timerIs(Clock::NotifieeConst* n, double t) {
    {
        std::lock_guard<std::mutex> g(m_);
        if (n->scheduled_) timers_.erase({n->timerTime_, n->timerSeq_});
        n->timerTime_ = t;
        n->timerSeq_ = ++seq_;
        n->scheduled_ = true;
        n->everScheduled_ = true;
        timers_.emplace(std::make_pair(t, n->timerSeq_), n);
    }
    wake();
}

void ActivityLoop::timerDel(Clock::NotifieeConst* n) {
    std::lock_guard<std::mutex> g(m_);
    if (!n->scheduled_) return;
    timers_.erase({n->timerTime_, n->timerSeq_});
    n->scheduled_ = false;
}

size_t ActivityLoop::timers() const {
    std::lock_guard<std::mutex> g(m_);
    return timers_.size();
}

bool ActivityLoop::dueNow(double t) const {
    std::lock_guard<std::mutex> g(m_);
    return !queue_.empty() || (!timers_.empty() && timers_.begin()->first.first <= t);
}

double ActivityLoop::nextTimer() const {
    std::lock_guard<std::mutex> g(m_);
    return timers_.empty() ? std::numeric_limits<double>::infinity() : timers_.begin()->first.first;
}

bool ActivityLoop::pass() {
    bool did = false;
    double const t = Zel::now();
    uint64_t limit;
    {
        std::lock_guard<std::mutex> g(m_);
        limit = seq_;   // wake-ups scheduled by this pass's handlers wait for the next
    }
    for (;;) {
        Clock::NotifieeConst* n;
        {
            std::lock_guard<std::mutex> g(m_);
            if (timers_.empty()) break;
            auto it = timers_.begin();
            if (it->first.first > t || it->first.second > limit) break;
            n = it->second;
            timers_.erase(it);
            n->scheduled_ = false;
        }
        did = true;
        Ptr<Clock::NotifieeConst> keep = keepAlive(n);
        if (n->isRegisteredNotifiee() && n->hasNotificationActive() && !n->zelMarkedForDeletion()) {
            n->onTime();
        }
    }
    size_t count;
    {
        std::lock_guard<std::mutex> g(m_);
        count = queue_.size();   // deliveries queued meanwhile wait for the next pass
    }
    for (; count > 0; --count) {
        PtrInterface::NotifieeConst* n;
        {
            std::lock_guard<std::mutex> g(m_);
            if (queue_.empty()) break;
            n = queue_.front();
            queue_.pop_front();
            n->queued_ = false;
        }
        did = true;
        Ptr<PtrInterface::NotifieeConst> keep = keepAlive(n);
        if (n->zelMarkedForDeletion()) continue;
        PtrInterface::NotifieeConst* saved = current_;
        dispatchingIs(n);
        struct Restore {
            ActivityLoop* loop;
            PtrInterface::NotifieeConst* saved;
            ~Restore() { loop->current_ = saved; }
        } restore{this, saved};
        Ptr<ActivityConfig> activity = n->zelFwkActivity();
        n->handleNotification(activity.ptr());
    }
    return did;
}

void ActivityLoop::waitUntil(double until, uint64_t seen) {
    waiting_.store(true);
    if (gen_.load() == seen) {
        pollfd p{efd_, POLLIN, 0};
        timespec ts{};
        timespec* tsp = nullptr;
        if (std::isfinite(until)) {
            double d = std::max(0.0, until - Zel::now());
            ts.tv_sec = static_cast<time_t>(d);
            ts.tv_nsec = static_cast<long>((d - static_cast<double>(ts.tv_sec)) * 1e9);
            tsp = &ts;
        }
        ::ppoll(&p, 1, tsp, nullptr);
    }
    waiting_.store(false);
    uint64_t drained;
    [[maybe_unused]] ssize_t r = ::read(efd_, &drained, sizeof drained);
}

void ActivityLoop::runFor(double seconds) {
    double const end = seconds < 0 ? std::numeric_limits<double>::infinity() : Zel::now() + seconds;
    uint64_t const stops = stops_.load();
    LoopHold hold(ActivityLockAnchor::lock());
    for (;;) {
        if (stops_.load() != stops) return;
        uint64_t const seen = gen_.load();
        bool const did = pass();
        if (stops_.load() != stops) return;
        double const t = Zel::now();
        if (t >= end) return;
        if (did || dueNow(t)) continue;
        if (stopOnQuiesce_.exchange(false)) return;
        double const until = std::min(end, nextTimer());
        hold.release();
        waitUntil(until, seen);
        hold.retake();
    }
}

void ActivityLoop::stop() {
    stops_.fetch_add(1);
    uint64_t one = 1;
    [[maybe_unused]] ssize_t w = ::write(efd_, &one, sizeof one);
}

} // namespace Zel
