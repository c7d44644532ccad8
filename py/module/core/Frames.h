// The frames of the framework's entry points (EntryPoint.h): which locks
// a body runs under, the Expect scope, and how a thrown exception becomes
// the Python error (with the message rewriting an operation asks for).
//
//   PythonOnly          interpreter lock kept; no anchor
//   Expecting           interpreter lock kept; Expect(ids)
//   Activity            PyLockAnchor(flags) then Expect(ids); the body gets
//                       a NativePhase (the interpreter lock released)
//   Attribute           Activity(0) for one attribute; framework errors read
//                       "Type.attr: <stage><Kind>(\"message\")". With
//                       tryFirst (reads of the Zel package), a free
//                       activity lock is taken without giving up the
//                       interpreter lock (TriedActivityLock)
//   Renamed             Activity(0); framework errors rewritten by a function
//   RefCounts           interpreter lock released, the activity lock taken
//                       only while counts are not atomic; Expect(ids); the
//                       body gets nothing Python
#pragma once

#include "module/core/EntryPoint.h"
#include "Zel/Exception.h"
#include "Zel/ZelType.h"
#include "ZelPy/Errors.h"
#include "ZelPy/Locks.h"

namespace Zel {

// What the body of a frame that released the interpreter lock gets: the
// way back to it, in scopes that hand out the proof.
//
// A phase made without an anchor runs with the interpreter lock kept all
// along (a read that found the activity lock free): its scopes have
// nothing to take back.
class NativePhase {
public:
    explicit NativePhase(PyLockAnchor* anchor) : anchor_(anchor) {}
    NativePhase(NativePhase const&) = delete;
    NativePhase& operator=(NativePhase const&) = delete;

    // f(GilHeld) with the interpreter lock taken back (the activity lock
    // stays held: the permitted order), then given up again.
    template <class F>
    decltype(auto) withGil(F&& f) {
        if (anchor_) anchor_->gilHeldIs(true);
        decltype(auto) r = std::forward<F>(f)(GilHeld());
        if (anchor_) anchor_->gilHeldIs(false);
        return r;
    }
    // f(GilHeld) with the interpreter lock taken back for the rest of the
    // frame: where the body turns its native result into Python objects.
    template <class F>
    decltype(auto) finish(F&& f) {
        if (anchor_) anchor_->gilHeldIs(true);
        return std::forward<F>(f)(GilHeld());
    }

private:
    PyLockAnchor* anchor_;
};

// The activity lock taken by a try that never waits, by a thread that
// keeps the interpreter lock: the lock order holds, since such a thread
// still never waits for the activity lock. When taken it is marked
// releasable for the scope, as an anchor with flags 0 marks it, and the
// flag found is restored at the end. Not taken when any thread (this one
// included) holds it: the caller then runs the full protocol.
class TriedActivityLock {
public:
    TriedActivityLock() : lock_(ActivityLockAnchor::lock()), taken_(lock_->tryLock()) {
        if (!taken_) return;
        savedReleasable_ = lock_->releasable();
        lock_->releasableIs(true);
    }
    ~TriedActivityLock() {
        if (!taken_) return;
        lock_->releasableIs(savedReleasable_);
        lock_->unlock();   // noexcept: an unlock failure here ends the process
    }
    TriedActivityLock(TriedActivityLock const&) = delete;
    TriedActivityLock& operator=(TriedActivityLock const&) = delete;

    bool taken() const { return taken_; }

private:
    Lock* lock_;
    bool taken_;
    bool savedReleasable_ = true;
};

// The phase of an attribute operation, which also records the stage it
// has reached: a framework error's message names it.
class AttributePhase : public NativePhase {
public:
    AttributePhase(PyLockAnchor* anchor, char const*& stage) : NativePhase(anchor), stage_(stage) {}
    void stageIs(char const* stage) { stage_ = stage; }

private:
    char const*& stage_;
};

struct PythonOnly {
    template <class Body>
    auto enter(GilHeld gil, Body& body) {
        return body(gil);
    }
    void translate() { translateCppExceptionToPython(); }
};

struct Expecting {
    Exception::IdBitArray ids{Exception::idExpectAll};

    template <class Body>
    auto enter(GilHeld gil, Body& body) {
        Expect expect(ids);
        return body(gil);
    }
    void translate() { translateCppExceptionToPython(); }
};

struct Activity {
    PyLockAnchor::Flags flags = 0;
    Exception::IdBitArray ids{Exception::idExpectAll};

    template <class Body>
    auto enter(GilHeld, Body& body) {
        PyLockAnchor anchor(flags);
        Expect expect(ids);
        NativePhase phase(&anchor);
        return body(phase);
    }
    void translate() { translateCppExceptionToPython(); }
};

struct Attribute {
    ZelAttr const* attr;
    char const* stage = "";
    // Only for operations that cannot notify or otherwise run code that
    // might wait while the interpreter lock is kept: reads.
    bool tryFirst = false;

    template <class Body>
    auto enter(GilHeld, Body& body) {
        if (tryFirst) {
            TriedActivityLock tried;
            if (tried.taken()) {
                Expect expect(Exception::idExpectAll);
                AttributePhase phase(nullptr, stage);
                return body(phase);
            }
        }
        PyLockAnchor anchor(0);
        Expect expect(Exception::idExpectAll);
        AttributePhase phase(&anchor, stage);
        return body(phase);
    }
    void translate() {
        try {
            throw;
        } catch (Exception& e) {
            updateException(&e, attr, stage);
        } catch (...) {
            translateCppExceptionToPython();
        }
    }
};

// Rename(Exception&) rewrites a framework error's message before it is
// raised.
template <class Rename>
struct Renamed {
    Rename rename;

    template <class Body>
    auto enter(GilHeld, Body& body) {
        PyLockAnchor anchor(0);
        Expect expect(Exception::idExpectAll);
        NativePhase phase(&anchor);
        return body(phase);
    }
    void translate() {
        try {
            throw;
        } catch (Exception& e) {
            rename(e);
            translateCppExceptionToPython();
        } catch (...) {
            translateCppExceptionToPython();
        }
    }
};
template <class Rename>
Renamed(Rename) -> Renamed<Rename>;

struct RefCounts {
    Exception::IdBitArray ids{Exception::idExpectAll};

    template <class Body>
    auto enter(GilHeld, Body& body) {
        GilUnlockAnchorThreadSafePtr anchor;
        Expect expect(ids);
        return body();
    }
    void translate() { translateCppExceptionToPython(); }
};

// The interpreter's function for a body F(GilHeld, args...) run with the
// interpreter lock kept.
template <auto F>
inline constexpr auto entry = entryWith<PythonOnly, F>;

// The exported functions of the module (ZelPy/*.h, Convert.h) are called
// by native code that holds the interpreter lock by their contract; they
// state that proof here, once, to reach the functions that ask for it.
struct NativeCallerGil {
    static GilHeld held() { return GilHeld(); }
};

} // namespace Zel
