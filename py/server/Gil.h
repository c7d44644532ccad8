// The interpreter lock around a connection's blocking calls: a
// ReleasedGil scope gives the lock up (as Py_BEGIN_ALLOW_THREADS does) and
// takes it back when it ends; a HeldGil scope inside it takes the lock for
// one command and gives it up again. The thread keeps its own thread state
// throughout, so taking the lock back costs no state lookup.
#pragma once

#include <Python.h>

namespace ZelServer {

class ReleasedGil {
public:
    ReleasedGil() : state_(PyEval_SaveThread()) {}
    ~ReleasedGil() { PyEval_RestoreThread(state_); }
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

} // namespace ZelServer
