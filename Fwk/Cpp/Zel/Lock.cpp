#include "Zel/Lock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "Zel/Exception.h"
#include "Zel/Format.h"
#include "Zel/Trace.h"

namespace Zel {

bool enableSmartPtrLockCheck = false;

namespace {
std::atomic<uint64_t> lockCheckFailures{0};
} // namespace

uint64_t smartPtrLockCheckFailures() { return lockCheckFailures.load(std::memory_order_relaxed); }

pid_t currentTid() {
    static thread_local pid_t tid = static_cast<pid_t>(syscall(SYS_gettid));
    return tid;
}

Lock::Lock() {
    pthread_mutexattr_t a;
    pthread_mutexattr_init(&a);
    pthread_mutexattr_settype(&a, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(&mutex_, &a);
    pthread_mutexattr_destroy(&a);
}

Lock::~Lock() { pthread_mutex_destroy(&mutex_); }

bool Lock::lock() {
    int rc = pthread_mutex_lock(&mutex_);
    if (rc == 0) return true;
    if (rc == EDEADLK) return false;
    throw ErrnoException(rc, "Failed to grab lock");
}

bool Lock::tryLock() {
    int rc = pthread_mutex_trylock(&mutex_);
    if (rc == 0) return true;
    if (rc == EBUSY) return false;
    throw ErrnoException(rc, "Failed to grab lock");
}

void Lock::unlock() {
    int rc = pthread_mutex_unlock(&mutex_);
    if (rc != 0) throw ErrnoException(rc, "Failed to release the lock");
}

bool Lock::heldByMe() const { return owner() == currentTid(); }

Lock* ActivityLockAnchor::lock() {
    static Lock* l = new Lock;   // lives for the process, also through static destructors
    return l;
}

void smartPtrLockCheckFailed(void const* object) {
    if (VFPtrInterface::enableThreadSafePointers) return;
    if (ActivityLockAnchor::lock()->heldByMe()) return;
    lockCheckFailures.fetch_add(1, std::memory_order_relaxed);
    // Reporting makes counted objects of its own: do not report those.
    static thread_local bool reporting = false;
    if (reporting) return;
    reporting = true;
    static TraceHandle* const handle = TraceHandle::traceHandle("SmartPtrLockCheck").release();
    traceLineWrite(handle, __FILE__, __LINE__, "smartPtrLockCheckFailed",
                   format("reference count of object %p changed without the activity lock", object), 0);
    reporting = false;
#ifndef NDEBUG
    std::abort();
#endif
}

} // namespace Zel
