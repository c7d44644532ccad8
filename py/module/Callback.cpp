#include "Callback.h"

namespace Zel {

namespace {

// Holds one PyGILState reference of its thread, which keeps the thread
// state alive between callbacks; gives it back when the thread ends.
struct ThreadStateKeeper {
    bool held = false;
    ~ThreadStateKeeper() {
        if (!held || !Py_IsInitialized()) return;
        PyGILState_Ensure();
        PyGILState_Release(PyGILState_LOCKED);     // the reference just taken
        PyGILState_Release(PyGILState_UNLOCKED);   // the kept one: deletes the state, drops the lock
    }
};

thread_local ThreadStateKeeper keeper;

} // namespace

CallbackGil::CallbackGil() {
    if (!keeper.held && !PyGILState_GetThisThreadState()) {
        PyGILState_Ensure();
        keeper.held = true;
        PyEval_SaveThread();
    }
    state_ = PyGILState_Ensure();
}

} // namespace Zel
