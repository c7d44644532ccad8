// The lock swap of framework callbacks into Python. A callback arrives on
// an activity thread holding the activity lock; it takes the interpreter
// lock, converts what it passes to Python, releases the activity lock for
// the call, and at the end gives the interpreter lock back before it waits
// for the activity lock, so the interpreter lock is never held while
// waiting for the activity lock (CallbackLocks).
#pragma once

#include <Python.h>

#include "module/core/EntryPoint.h"
#include "support/PyCompat.h"
#include "Zel/Exception.h"
#include "Zel/Lock.h"

namespace Zel {

// This thread's Python thread state, found (or made, on a native thread
// Python has never seen) at the thread's first callback and kept until the
// thread ends or the interpreter is finalised. The thread holds one
// PyGILState reference on it meanwhile, so nested PyGILState_Ensure /
// PyGILState_Release pairs on the thread neither make nor destroy one.
// Call without the interpreter lock or with it held by this thread.
ZEL_API PyThreadState* callbackThreadState();

// Changes at the end of every finalisation of the interpreter (once a
// callback has run): Python objects cached before it are gone.
ZEL_API unsigned interpreterLife();

// The lock swap of one callback: refuses unless this thread holds the
// activity lock and may release it, takes the interpreter lock, runs
// `withBoth` (if given) while it holds both, then releases the activity
// lock; at the end gives the interpreter lock back before it waits for the
// activity lock. `withBoth` gets the proof that the interpreter lock is
// held (GilHeld). That is one transition of each lock each way, with no
// PyGILState bookkeeping (its thread-local lookups take a mutex each in
// this interpreter). A thread that came in holding the interpreter lock
// (an anchor that re-took it) keeps it for the call and lets go of it only
// while it waits for the activity lock.
//
// Taking the interpreter lock before letting the activity lock go is the
// order every entry point uses once it holds the activity lock; what keeps
// the two from deadlocking is that no thread ever waits for the activity
// lock while it holds the interpreter lock. `withBoth` is where a callback
// turns framework values into Python objects: that copies framework
// references and reads framework state, which only the activity lock's
// holder may do, as the counts are not atomic.
class CallbackLocks {
public:
    CallbackLocks() : CallbackLocks([](GilHeld) {}) {}
    template <class WithBoth>
    explicit CallbackLocks(WithBoth&& withBoth) : lock_(checkActivityLock()), ts_(callbackThreadState()) {
        // Only this thread can make its own state current, so the relaxed
        // read answers "mine or not" exactly, as PyGILState_Ensure's does.
        gilHeldBefore_ = compat::currentThreadState() == ts_;
        if (!gilHeldBefore_) PyEval_RestoreThread(ts_);
        try {
            withBoth(GilHeld());
            lock_->unlock();
        } catch (...) {
            // The caller still holds the activity lock, as it came in, and
            // gets the interpreter lock back as it was.
            if (!gilHeldBefore_) PyEval_SaveThread();
            throw;
        }
    }
    ~CallbackLocks() noexcept(false) {
        PyEval_SaveThread();
        bool relocked;
        try {
            relocked = lock_->lock();
        } catch (...) {
            if (gilHeldBefore_) PyEval_RestoreThread(ts_);
            throw;
        }
        if (gilHeldBefore_) PyEval_RestoreThread(ts_);
        if (!relocked) throw InternalException("Lock was already grabbed in UnlockAnchor destructor!");
    }
    CallbackLocks(CallbackLocks const&) = delete;
    CallbackLocks& operator=(CallbackLocks const&) = delete;

private:
    // The activity lock, when this thread holds it and may release it.
    static Lock* checkActivityLock();

    Lock* lock_;
    PyThreadState* ts_;
    bool gilHeldBefore_;
};

} // namespace Zel
