// The lock protocol's anchors and the module functions that expose the
// activity lock to Python.
#include <cerrno>

#include "module/core/Module.h"
#include "Zel/Activity.h"

namespace Zel {

GilUnlockAnchor::GilUnlockAnchor() { gilHeldIs(false); }

GilUnlockAnchor::~GilUnlockAnchor() { gilHeldIs(true); }

void GilUnlockAnchor::gilHeldIs(bool held) {
    if (held == gilHeld_) return;
    if (held) {
        PyEval_RestoreThread(saved_);
        saved_ = nullptr;
    } else {
        saved_ = PyEval_SaveThread();
    }
    gilHeld_ = held;
}

GilUnlockAnchorThreadSafePtr::GilUnlockAnchorThreadSafePtr() {
    // With atomic counts a reference change needs no lock at all.
    if (!VFPtrInterface::enableThreadSafePointers) lockTaken_ = ActivityLockAnchor::lock()->lock();
}

GilUnlockAnchorThreadSafePtr::~GilUnlockAnchorThreadSafePtr() {
    if (lockTaken_) ActivityLockAnchor::lock()->unlock();
}

PyLockAnchor::PyLockAnchor(Flags flags) : lock_(ActivityLockAnchor::lock()) {
    // gil_ has released the interpreter lock; if anything below throws,
    // its destructor takes it back.
    lockTaken_ = lock_->lock();
    savedReleasable_ = lock_->releasable();
    if ((flags & requireReleasable) && !savedReleasable_) {
        if (lockTaken_) lock_->unlock();
        lockTaken_ = false;
        throw InternalException("Lock Protocol violation xxx");
    }
    lock_->releasableIs(!(flags & notReleasable));
    if (flags & retakeGil) gil_.gilHeldIs(true);
}

PyLockAnchor::~PyLockAnchor() {
    // noexcept: an unlock failure here ends the process.
    lock_->releasableIs(savedReleasable_);
    if (lockTaken_) lock_->unlock();
}

UnlockAnchor::UnlockAnchor() : lock_(ActivityLockAnchor::lock()) {
    if (!lock_->releasable()) throw InternalException("Lock Protocol exception -- unlocking an unreleasable lock");
    lock_->unlock();
}

UnlockAnchor::~UnlockAnchor() noexcept(false) {
    if (!lock_->lock()) throw InternalException("Lock was already grabbed in UnlockAnchor destructor!");
}

} // namespace Zel

namespace {

// Each function resolves the lock through the activity manager once.
Zel::Lock* activityLock() { return Zel::ActivityImplFacility::activityManagerSm()->activityLock(); }

} // namespace

// A failure of the mutex itself (anything but EDEADLK) is not turned into a
// Python error: the activity lock is broken and the process cannot go on,
// so these bodies are noexcept and such a failure terminates.
Zel::PyResult PyZel_acquireActivityLock(Zel::GilHeld gil, PyObject*, PyObject*) noexcept {
    static Zel::Lock* const lock = activityLock();
    bool taken;
    {
        Zel::GilUnlockAnchor released;
        taken = lock->lock();
    }
    return Zel::PyResult::of(gil, PyBool_FromLong(taken));
}

Zel::PyResult PyZel_releaseActivityLock(Zel::GilHeld gil, PyObject*, PyObject*) noexcept {
    static Zel::Lock* const lock = activityLock();
    lock->unlock();
    return Zel::PyResult::none(gil);
}

Zel::PyResult PyZel_activityLockOwner(Zel::GilHeld gil, PyObject*, PyObject*) noexcept {
    static Zel::Lock* const lock = activityLock();
    return Zel::PyResult::of(gil, PyLong_FromLong(lock->owner()));
}

Zel::PyResult PyZel_enableThreadSafePointers(Zel::GilHeld gil, PyObject*, PyObject*) noexcept {
    Zel::VFPtrInterface::enableThreadSafePointers = true;
    return Zel::PyResult::none(gil);
}
