// The one way into native code from Python: every function of a method
// table, type slot, getter and setter of _Zel, _ZelProxy and _ZelServer
// runs its body through EntryPoint::run, which opens the scope its frame
// asks for (the lock anchor, the Expect scope), gives the interpreter lock
// back before anything touches Python again, and turns whatever the body
// throws into the pending Python error. Nothing here needs the framework,
// so _ZelServer (which links only Python) uses it with a frame of its own;
// the frames of the framework's entry points are in Frames.h.
//
// That Python objects are touched only with the interpreter lock held is
// carried by the types:
//   - GilHeld is a proof that this thread holds the interpreter lock. Only
//     the wrapper (an entry point is called holding it), a native phase
//     taking the lock back (NativePhase::withGil / finish) and a
//     callback's lock swap (CallbackLocks) make one; functions that touch
//     Python objects on the module's behalf take one.
//   - A frame that gives the interpreter lock up hands its body a
//     NativePhase, which holds no GilHeld: the body reaches Python only
//     inside a scope that takes the lock back and hands it a GilHeld.
//   - A body's result (PyResult) is made from a Python object only with a
//     GilHeld, so a body cannot return one without having taken the lock.
// The proof is an empty value: passing it costs nothing once inlined.
#pragma once

#include <Python.h>

#include <utility>

namespace Zel {

class EntryPoint;
class NativePhase;
class CallbackLocks;
struct NativeCallerGil;

class GilHeld {
public:
    GilHeld(GilHeld const&) = default;
    GilHeld& operator=(GilHeld const&) = default;

private:
    constexpr GilHeld() = default;
    friend class EntryPoint;
    friend class NativePhase;
    friend class CallbackLocks;
    friend struct NativeCallerGil;
};

// The result of an entry point returning an object: a new reference, or
// null with the Python error set.
class [[nodiscard]] PyResult {
public:
    using Raw = PyObject*;
    static PyResult of(GilHeld, PyObject* newReference) { return PyResult(newReference); }
    static PyResult none(GilHeld) {
        Py_INCREF(Py_None);
        return PyResult(Py_None);
    }
    // The Python error is pending.
    static PyResult failed() { return PyResult(nullptr); }

    explicit operator bool() const { return obj_ != nullptr; }
    // Hands the reference on.
    PyObject* raw() const { return obj_; }

private:
    explicit PyResult(PyObject* o) : obj_(o) {}
    PyObject* obj_;
};

// The result of a setter or an initialiser: 0, or -1 with the Python
// error set.
class [[nodiscard]] PyStatus {
public:
    using Raw = int;
    static PyStatus ok() { return PyStatus(0); }
    static PyStatus failed() { return PyStatus(-1); }
    explicit operator bool() const { return code_ == 0; }
    int raw() const { return code_; }

private:
    explicit PyStatus(int code) : code_(code) {}
    int code_;
};

// The result of an "O&" converter: 1, or 0 with the Python error set.
class [[nodiscard]] PyConverted {
public:
    using Raw = int;
    static PyConverted ok() { return PyConverted(1); }
    static PyConverted failed() { return PyConverted(0); }
    explicit operator bool() const { return code_ != 0; }
    int raw() const { return code_; }

private:
    explicit PyConverted(int code) : code_(code) {}
    int code_;
};

// The result of a slot that returns a count or a truth value (mp_length,
// sq_contains): the value, or -1 with the Python error set.
template <class T>
class [[nodiscard]] PyCount {
public:
    using Raw = T;
    static PyCount of(GilHeld, T value) { return PyCount(value); }
    static PyCount failed() { return PyCount(-1); }
    explicit operator bool() const { return value_ >= 0; }
    T raw() const { return value_; }

private:
    explicit PyCount(T value) : value_(value) {}
    T value_;
};

// The result of a slot that returns nothing (tp_dealloc): a failure is
// the body's own to report.
struct PyDone {
    using Raw = void;
    static PyDone ok() { return {}; }
    static PyDone failed() { return {}; }
    void raw() const {}
};

// A frame is a type with
//   auto enter(GilHeld, Body&) — opens its scopes, runs the body with what
//       it hands bodies (a GilHeld, a NativePhase, ...), returns its result;
//   void translate() — called inside the catch block: leaves the Python
//       error of the exception being handled pending.
class EntryPoint {
public:
    // Runs `body` in `frame` for a caller holding the interpreter lock,
    // which holds it again on return.
    template <class Frame, class Body>
    static auto run(GilHeld gil, Frame&& frame, Body&& body) noexcept -> decltype(frame.enter(gil, body)) {
        using Result = decltype(frame.enter(gil, body));
        try {
            return frame.enter(gil, body);
        } catch (...) {
            frame.translate();
        }
        return Result::failed();
    }

    // The same, called by the interpreter, which holds its lock when it
    // calls into an extension.
    template <class Frame, class Body>
    static auto fromPython(Frame&& frame, Body&& body) noexcept {
        return run(GilHeld(), std::forward<Frame>(frame), std::forward<Body>(body)).raw();
    }
};

// The function the interpreter calls for a body `F(GilHeld, args...)`
// run in a default-constructed Frame: entryWith<Frame, F> converts to the
// slot's or table's function pointer type.
template <class Frame, auto F>
struct EntryFunction;

// A body declared noexcept keeps that promise: what it throws ends the
// process instead of becoming a Python error.
template <class Frame, class R, class... A, bool Noexcept, R (*F)(GilHeld, A...) noexcept(Noexcept)>
struct EntryFunction<Frame, F> {
    static typename R::Raw call(A... a) noexcept {
        return EntryPoint::fromPython(Frame(), [&](GilHeld gil) noexcept(Noexcept) { return F(gil, a...); });
    }
};

template <class Frame, auto F>
inline constexpr auto entryWith = &EntryFunction<Frame, F>::call;

} // namespace Zel
