// One owned Python reference, dropped when its owner goes. Movable, so it
// can live in containers and be returned; the interpreter lock must be held
// wherever one is created from a new reference, moved into a live one, or
// dies holding an object.
#pragma once

#include <Python.h>

#include <utility>

namespace Zel {

class PyRef {
public:
    PyRef() = default;
    explicit PyRef(PyObject* owned) : obj_(owned) {}   // steals the reference
    ~PyRef() { Py_XDECREF(obj_); }
    PyRef(PyRef&& o) noexcept : obj_(std::exchange(o.obj_, nullptr)) {}
    PyRef& operator=(PyRef&& o) noexcept {
        if (this != &o) {
            // Dropping the old object can run arbitrary code: detach first.
            PyObject* old = std::exchange(obj_, std::exchange(o.obj_, nullptr));
            Py_XDECREF(old);
        }
        return *this;
    }
    PyRef(PyRef const&) = delete;
    PyRef& operator=(PyRef const&) = delete;

    PyObject* get() const { return obj_; }
    explicit operator bool() const { return obj_ != nullptr; }
    PyObject* release() { return std::exchange(obj_, nullptr); }

private:
    PyObject* obj_ = nullptr;
};

} // namespace Zel
