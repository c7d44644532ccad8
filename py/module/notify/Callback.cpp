#include "module/notify/Callback.h"

#include <atomic>
#include <unistd.h>

#include "Zel/Lock.h"

namespace Zel {

namespace {

// Which life of the interpreter a cached thread state belongs to: bumped
// at the end of every finalisation, which frees all thread states.
std::atomic<unsigned> lifeCounter{1};
bool finalisationHooked = false;   // read and written under the interpreter lock

void interpreterFinalised() {
    finalisationHooked = false;
    lifeCounter.fetch_add(1, std::memory_order_relaxed);
}

struct KeptThreadState {
    PyThreadState* ts = nullptr;
    unsigned life = 0;

    ~KeptThreadState() { giveBack(); }

    // Takes this thread's PyGILState reference (making the state on a
    // native thread) and leaves the interpreter lock as it found it.
    PyThreadState* attach() {
        ts = nullptr;   // a state of an earlier life is gone
        PyGILState_STATE const was = PyGILState_Ensure();
        PyThreadState* mine = PyThreadState_Get();
        // Thirty-two hooks are allowed; should they all be taken, a state
        // cached across a finalisation and a new initialisation would go
        // unnoticed, which only an embedder that restarts Python can meet.
        if (!finalisationHooked && Py_AtExit(&interpreterFinalised) == 0) finalisationHooked = true;
        ts = mine;
        life = lifeCounter.load(std::memory_order_relaxed);
        if (was == PyGILState_UNLOCKED) PyEval_SaveThread();
        return mine;
    }

    void giveBack() {
        PyThreadState* mine = ts;
        ts = nullptr;
        if (!mine || life != lifeCounter.load(std::memory_order_relaxed) || !Py_IsInitialized()) return;
        // A thread Python started has its state deleted by its own
        // bootstrap, before the thread's destructors run.
        if (PyGILState_GetThisThreadState() != mine) return;
        // The main thread gets here only while the process exits, when
        // another thread may hold the interpreter lock for good.
        if (currentTid() == getpid()) return;
        // Dropping the last reference deletes the state and the lock with it.
        if (compat::currentThreadState() == mine) {
            PyGILState_Release(PyGILState_LOCKED);
        } else {
            PyEval_RestoreThread(mine);
            PyGILState_Release(PyGILState_UNLOCKED);
        }
    }
};

thread_local KeptThreadState kept;

} // namespace

Lock* CallbackLocks::checkActivityLock() {
    Lock* lock = ActivityLockAnchor::lock();
    if (!lock->heldByMe() || !lock->releasable()) {
        throw InternalException("Lock Protocol exception -- unlocking an unreleasable lock");
    }
    return lock;
}

unsigned interpreterLife() { return lifeCounter.load(std::memory_order_relaxed); }

PyThreadState* callbackThreadState() {
    KeptThreadState& k = kept;
    if (k.ts && k.life == lifeCounter.load(std::memory_order_relaxed)) return k.ts;
    return k.attach();
}

} // namespace Zel
