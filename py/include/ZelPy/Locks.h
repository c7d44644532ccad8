// Scope objects of the lock protocol between the interpreter lock and the
// framework's activity lock.
//
// Order: a thread holding the activity lock may wait for the interpreter
// lock; a thread holding the interpreter lock never waits for the activity
// lock. Every anchor therefore releases the interpreter lock before it
// takes the activity lock.
#pragma once

#include <Python.h>

#include "Zel/Lock.h"
#include "Zel/Visibility.h"

namespace Zel {

// Releases the interpreter lock for its scope (construction) and re-takes
// it at the end if it is not held then.
class ZEL_API GilUnlockAnchor {
public:
    GilUnlockAnchor();
    ~GilUnlockAnchor();
    GilUnlockAnchor(GilUnlockAnchor const&) = delete;
    GilUnlockAnchor& operator=(GilUnlockAnchor const&) = delete;

    bool gilHeld() const { return gilHeld_; }
    // false: release (saving the thread state); true: re-take. No-op when
    // already in the wanted state.
    void gilHeldIs(bool held);

private:
    PyThreadState* saved_ = nullptr;
    bool gilHeld_ = true;
};

// For code that only touches reference counts: releases the interpreter
// lock, then takes the activity lock unless thread-safe pointers are on.
class ZEL_API GilUnlockAnchorThreadSafePtr {
public:
    GilUnlockAnchorThreadSafePtr();
    ~GilUnlockAnchorThreadSafePtr();
    GilUnlockAnchorThreadSafePtr(GilUnlockAnchorThreadSafePtr const&) = delete;
    GilUnlockAnchorThreadSafePtr& operator=(GilUnlockAnchorThreadSafePtr const&) = delete;

    bool lockTaken() const { return lockTaken_; }

private:
    GilUnlockAnchor gil_;
    bool lockTaken_ = false;
};

// Releases the interpreter lock, takes the activity lock (re-entrantly)
// and manages its releasable flag; see Flags.
class ZEL_API PyLockAnchor {
public:
    using Flags = unsigned;
    // Mark the activity lock not releasable while held here (without it:
    // releasable).
    static constexpr Flags notReleasable = 1;
    // Refuse ("Lock Protocol violation xxx") unless the lock was found
    // releasable.
    static constexpr Flags requireReleasable = 2;
    // Re-take the interpreter lock once the activity lock is held.
    static constexpr Flags retakeGil = 4;

    explicit PyLockAnchor(Flags flags);
    // Restores the releasable flag, unlocks if this anchor locked, re-takes
    // the interpreter lock. A failure here ends the process.
    ~PyLockAnchor();
    PyLockAnchor(PyLockAnchor const&) = delete;
    PyLockAnchor& operator=(PyLockAnchor const&) = delete;

    bool gilHeld() const { return gil_.gilHeld(); }
    void gilHeldIs(bool held) { gil_.gilHeldIs(held); }
    bool lockTaken() const { return lockTaken_; }
    Lock* lock() const { return lock_; }

private:
    GilUnlockAnchor gil_;   // first: destroyed last, after the unlock
    Lock* lock_ = nullptr;
    bool lockTaken_ = false;
    bool savedReleasable_ = false;
};

// Used by framework callbacks into Python, which hold the activity lock:
// unlocks it for the scope (only if marked releasable) and re-locks at the
// end, throwing if that fails.
class ZEL_API UnlockAnchor {
public:
    UnlockAnchor();
    ~UnlockAnchor() noexcept(false);
    UnlockAnchor(UnlockAnchor const&) = delete;
    UnlockAnchor& operator=(UnlockAnchor const&) = delete;

private:
    Lock* lock_;
};

} // namespace Zel
