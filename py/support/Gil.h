// Scopes of the Python interpreter lock.
//
// GilEnsure holds the lock for its scope whatever the thread held before
// (PyGILState_Ensure/Release): for threads the interpreter may not know.
//
// ReleasedGil gives the lock up for its scope (as Py_BEGIN_ALLOW_THREADS
// does) and takes it back when it ends; a HeldGil inside it takes the lock
// for a shorter scope and gives it up again. The thread keeps its own
// thread state throughout, so taking the lock back costs no state lookup.
#pragma once

#include <Python.h>

#include <utility>

namespace Zel {

class GilEnsure {
public:
    GilEnsure() : state_(PyGILState_Ensure()) {}
    ~GilEnsure() { PyGILState_Release(state_); }
    GilEnsure(GilEnsure const&) = delete;
    GilEnsure& operator=(GilEnsure const&) = delete;

private:
    PyGILState_STATE state_;
};

class ReleasedGil {
public:
    ReleasedGil() : state_(PyEval_SaveThread()) {}
    ~ReleasedGil() { retake(); }
    // Takes the lock back before the scope ends (not inside a HeldGil).
    void retake() {
        if (state_) PyEval_RestoreThread(std::exchange(state_, nullptr));
    }
    ReleasedGil(ReleasedGil const&) = delete;
    ReleasedGil& operator=(ReleasedGil const&) = delete;

private:
    friend class HeldGil;
    PyThreadState* state_;
};

class HeldGil {
public:
    explicit HeldGil(ReleasedGil& released) : released_(released) { PyEval_RestoreThread(released_.state_); }
    ~HeldGil() { released_.state_ = PyEval_SaveThread(); }
    HeldGil(HeldGil const&) = delete;
    HeldGil& operator=(HeldGil const&) = delete;

private:
    ReleasedGil& released_;
};

} // namespace Zel
