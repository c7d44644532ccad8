// Lock: an error-checking mutex (re-locking from the owner fails with
// EDEADLK instead of deadlocking) whose owner's kernel thread id is
// readable, followed by a one-byte releasable flag. The process's activity
// lock is one of these.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include "Zel/Visibility.h"

namespace Zel {

class ZEL_API Lock {
public:
    Lock();
    ~Lock();
    Lock(Lock const&) = delete;
    Lock& operator=(Lock const&) = delete;

    // True when locked now; false when this thread already held it.
    // Other errors throw ErrnoException "Failed to grab lock".
    bool lock();
    // True when locked now, without waiting; false when another thread
    // (or this one) holds it. Other errors throw as lock() does.
    bool tryLock();
    // Errors throw ErrnoException "Failed to release the lock".
    void unlock();
    // Kernel thread id of the owner, 0 when unowned. Any thread may ask
    // while the C library sets the field under its lock word, so it is
    // read as an atomic word (relaxed: the answer is "me" or "not me").
    pid_t owner() const { return __atomic_load_n(&mutex_.__data.__owner, __ATOMIC_RELAXED); }
    bool heldByMe() const;

    // Whether code running under the lock may release it for a callback.
    // True at rest: only a holder that must not be interrupted clears it,
    // and it restores the flag when it lets the lock go.
    bool releasable() const { return releasable_; }
    void releasableIs(bool r) { releasable_ = r; }

    pthread_mutex_t* mutex() { return &mutex_; }

private:
    pthread_mutex_t mutex_;
    bool releasable_ = true;
};

// The process-wide activity lock.
class ZEL_API ActivityLockAnchor {
public:
    static Lock* lock();
};

// Holds the activity lock for a scope, taking it unless this thread
// already holds it (then it is left held at the end, as found).
class ActivityLockScope {
public:
    ActivityLockScope() : took_(ActivityLockAnchor::lock()->lock()) {}
    ~ActivityLockScope() {
        if (took_) ActivityLockAnchor::lock()->unlock();
    }
    ActivityLockScope(ActivityLockScope const&) = delete;
    ActivityLockScope& operator=(ActivityLockScope const&) = delete;

private:
    bool took_;
};

// The calling thread's kernel thread id.
ZEL_API pid_t currentTid();

} // namespace Zel
