// Internal API of the _Zel module core: what its files share and what the
// later parts of the library (conversions, attribute operations,
// notification bridges) build on.
#pragma once

#include <Python.h>

#include <cstdio>
#include <cstdlib>

#include "Zel/Exception.h"
#include "Zel/ZelType.h"
#include "ZelPy/Backtrace.h"
#include "ZelPy/ErrorString.h"
#include "ZelPy/Errors.h"
#include "ZelPy/GifPtr.h"
#include "ZelPy/Locks.h"
#include "ZelPy/Module.h"
#include "ZelPy/Types.h"

// An assertion that stays in release builds: the conditions it guards are
// fatal misuse (second module initialisation, missing Python package).
#define ZELPY_CHECK(expr) ((expr) ? void(0) : zelPyCheckFailed(#expr, __FILE__, __LINE__, __PRETTY_FUNCTION__))

[[noreturn]] inline void zelPyCheckFailed(char const* expr, char const* file, int line, char const* function) {
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expr);
    std::abort();
}

namespace Zel {

// Owns one Python reference; the interpreter lock must be held when it dies.
class PyRef {
public:
    PyRef() = default;
    explicit PyRef(PyObject* o) : o_(o) {}   // steals
    ~PyRef() { Py_XDECREF(o_); }
    PyRef(PyRef const&) = delete;
    PyRef& operator=(PyRef const&) = delete;
    PyRef(PyRef&& o) noexcept : o_(o.release()) {}

    PyObject* get() const { return o_; }
    explicit operator bool() const { return o_ != nullptr; }
    PyObject* release() { PyObject* o = o_; o_ = nullptr; return o; }

private:
    PyObject* o_ = nullptr;
};

// PyGILState_Ensure / PyGILState_Release for a scope.
class GilEnsure {
public:
    GilEnsure() : state_(PyGILState_Ensure()) {}
    ~GilEnsure() { PyGILState_Release(state_); }
    GilEnsure(GilEnsure const&) = delete;
    GilEnsure& operator=(GilEnsure const&) = delete;

private:
    PyGILState_STATE state_;
};

// Attribute "Zel.<name>" of the already imported Python package Zel:
// new reference, or null with a Python error set. Interpreter lock held.
PyObject* getFromZel(char const* name);

} // namespace Zel

// --- error translation ------------------------------------------------------

// Writes the calling thread's Python error and stack to `fd` with write()
// only; the framework's crash path calls it through printBacktraceFn.
extern "C" void printPythonBacktrace(int fd);

// --- module functions (entries of the module's function table) ---------------

PyObject* PyZel_acquireActivityLock(PyObject* self, PyObject* unused) noexcept;
PyObject* PyZel_releaseActivityLock(PyObject* self, PyObject* unused) noexcept;
PyObject* PyZel_activityLockOwner(PyObject* self, PyObject* unused) noexcept;
PyObject* PyZel_enableThreadSafePointers(PyObject* self, PyObject* unused) noexcept;
PyObject* PyZel_typeNode(PyObject* self, PyObject* args);
