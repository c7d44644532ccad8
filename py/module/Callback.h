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

// The interpreter lock for one callback, on any thread. A native thread
// that Python does not know yet gets a thread state that lives as long as
// the thread, instead of one made and destroyed for every callback.
class CallbackGil {
public:
    CallbackGil();
    ~CallbackGil() { PyGILState_Release(state_); }
    CallbackGil(CallbackGil const&) = delete;
    CallbackGil& operator=(CallbackGil const&) = delete;

private:
    PyGILState_STATE state_;
};

} // namespace Zel
