// The lock swap of framework callbacks into Python. A callback arrives on
// an activity thread holding the activity lock; it releases that lock
// (UnlockAnchor), then takes the interpreter lock (CallbackGil), and undoes
// both in reverse order, so the interpreter lock is never held while
// waiting for the activity lock.
#pragma once

#include <Python.h>

#include "Zel/Activity.h"
#include "Zel/Exception.h"

namespace Zel {

// A callback may only let go of an activity lock this thread holds.
inline void requireActivityLockHeld() {
    Lock* lock = ActivityImplFacility::activityManagerSm()->activityLock();
    if (!lock->heldByMe()) throw InternalException("Lock Protocol exception -- unlocking an unreleasable lock");
}

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

// The interpreter lock for one callback, on any thread. One lock
// transition each way, with no PyGILState bookkeeping (its thread-local
// lookups take a mutex each in this interpreter); nothing at all when this
// thread already holds the lock.
class CallbackGil {
public:
    CallbackGil() {
        PyThreadState* ts = callbackThreadState();
        // Only this thread can make its own state current, so the relaxed
        // read answers "mine or not" exactly, as PyGILState_Ensure's does.
        if (__atomic_load_n(&_PyThreadState_Current, __ATOMIC_RELAXED) == ts) return;
        PyEval_RestoreThread(ts);
        taken_ = true;
    }
    ~CallbackGil() {
        if (taken_) PyEval_SaveThread();
    }
    CallbackGil(CallbackGil const&) = delete;
    CallbackGil& operator=(CallbackGil const&) = delete;

private:
    bool taken_ = false;
};

} // namespace Zel
