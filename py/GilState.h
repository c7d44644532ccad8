// Scope that holds the Python interpreter lock: PyGILState_Ensure on entry,
// PyGILState_Release on every way out. Works whether or not the thread
// already holds the lock.
#pragma once

#include <Python.h>

namespace Zel {

class GilState {
public:
    GilState() : state_(PyGILState_Ensure()) {}
    ~GilState() { PyGILState_Release(state_); }
    GilState(GilState const&) = delete;
    GilState& operator=(GilState const&) = delete;

private:
    PyGILState_STATE state_;
};

} // namespace Zel
