// One owned Python reference, dropped when the owner goes. Only touched
// with the interpreter lock held.
#pragma once

#include <Python.h>

#include <utility>

namespace ZelServer {

class PyRef {
public:
    PyRef() = default;
    explicit PyRef(PyObject* owned) : obj_(owned) {}
    ~PyRef() { Py_XDECREF(obj_); }
    PyRef(PyRef&& o) noexcept : obj_(std::exchange(o.obj_, nullptr)) {}
    PyRef& operator=(PyRef&& o) noexcept {
        if (this != &o) {
            Py_XDECREF(obj_);
            obj_ = std::exchange(o.obj_, nullptr);
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

} // namespace ZelServer
