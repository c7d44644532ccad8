// PtrInterface: the base of every counted framework object, and Ptr<T>, the
// intrusive counted pointer to one.
//
// The count lives in the bits 0x5fffffff of one 32-bit word; the two bits
// outside the mask are flags (kMarkedForDeletion, kFlagSpare). Counts change
// with plain arithmetic (callers hold the activity lock) until
// VFPtrInterface::enableThreadSafePointers is set, after which they change
// with atomic read-modify-write operations.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <typeinfo>
#include <utility>

#include "Zel/Visibility.h"

namespace Zel {

class ZelType;
class NotifieeList;

struct ZEL_API VFPtrInterface {
    // One-way switch: false -> true, before a second thread touches objects.
    static bool enableThreadSafePointers;
};

// When set (and thread-safe pointers are off), a count change by a thread
// that does not hold the activity lock is reported. Off by default.
ZEL_API extern bool enableSmartPtrLockCheck;
ZEL_API void smartPtrLockCheckFailed(void const* object);
// How many count changes the check has found without the activity lock.
ZEL_API uint64_t smartPtrLockCheckFailures();

// Per-type allocation tracking: one slot per C++ type, holding the type's
// demangled name and the number of live objects of it.
ZEL_API uint32_t zelAllocTrackTypeInfo_(std::type_info const& info, size_t size);
ZEL_API void trackAllocation(uint32_t slot);
ZEL_API void trackDeallocation(uint32_t slot);
ZEL_API uint64_t allocTrackLiveCount(char const* typeName);
ZEL_API size_t allocTrackSlotCount();
ZEL_API char const* allocTrackSlotName(uint32_t slot);
ZEL_API uint64_t allocTrackSlotLive(uint32_t slot);

class ZEL_API PtrInterface {
public:
    static constexpr uint32_t kCountMask = 0x5fffffffu;
    static constexpr uint32_t kMarkedForDeletion = 0x20000000u;
    static constexpr uint32_t kFlagSpare = 0x80000000u;

    class NotifieeConst;     // defined in Zel/Notifiee.h
    class Notifiee;

    PtrInterface() = default;
    PtrInterface(PtrInterface const&) : word_(0) {}
    PtrInterface& operator=(PtrInterface const&) { return *this; }
    virtual ~PtrInterface();

    // The framework type of the object (its registered descriptor).
    virtual ZelType const* fwkType() const;
    // Called when the count drops to zero; the default deletes the object.
    virtual void handleZeroRef() const;
    // The notifiees observing this object; with `create`, made on first use.
    // Null for objects that cannot be observed (the default).
    virtual NotifieeList* notifieeList(bool create) const;

    void newRef() const {
        if (__builtin_expect(enableSmartPtrLockCheck, 0)) smartPtrLockCheckFailed(this);
        if (VFPtrInterface::enableThreadSafePointers)
            std::atomic_ref<uint32_t>(word_).fetch_add(1, std::memory_order_relaxed);
        else
            ++word_;
    }
    void deleteRef() const {
        if (__builtin_expect(enableSmartPtrLockCheck, 0)) smartPtrLockCheckFailed(this);
        uint32_t now;
        if (VFPtrInterface::enableThreadSafePointers)
            now = std::atomic_ref<uint32_t>(word_).fetch_sub(1, std::memory_order_acq_rel) - 1;
        else
            now = --word_;
        if ((now & kCountMask) == 0) handleZeroRef();
    }
    uint32_t references() const { return word_ & kCountMask; }
    bool zelMarkedForDeletion() const { return word_ & kMarkedForDeletion; }
    // The flag shares the word with the count, so with thread-safe counts it
    // must change atomically too or a concurrent count change is lost.
    void zelMarkedForDeletionIs(bool b) const {
        if (VFPtrInterface::enableThreadSafePointers) {
            std::atomic_ref<uint32_t> w(word_);
            if (b) w.fetch_or(kMarkedForDeletion, std::memory_order_relaxed);
            else w.fetch_and(~kMarkedForDeletion, std::memory_order_relaxed);
        } else if (b) {
            word_ |= kMarkedForDeletion;
        } else {
            word_ &= ~kMarkedForDeletion;
        }
    }

    // Framework allocator: every counted object is allocated through it.
    static void* zelMemAlloc(size_t size);
    static void zelMemFree(void* p) noexcept;
    static void* operator new(size_t size) { return zelMemAlloc(size); }
    static void operator delete(void* p) noexcept { zelMemFree(p); }

    // The descriptor of "Zel::PtrInterface", the root of counted types.
    static ZelType const _zelType;

    // Slot of the allocation tracker this object is counted in (0: none).
    uint32_t allocTrackSlot() const { return trackSlot_; }
    void allocTrackSlotIs(uint32_t slot) { trackSlot_ = slot; }

private:
    mutable uint32_t word_ = 0;
    uint32_t trackSlot_ = 0;
};

template <class T>
class Ptr {
public:
    using element_type = T;

    Ptr() noexcept = default;
    Ptr(std::nullptr_t) noexcept {}
    Ptr(T* p) noexcept : p_(p) { if (p_) p_->newRef(); }
    Ptr(Ptr const& o) noexcept : p_(o.p_) { if (p_) p_->newRef(); }
    Ptr(Ptr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ptr(Ptr<U> const& o) noexcept : p_(o.ptr()) { if (p_) p_->newRef(); }
    template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
    ~Ptr() { if (p_) p_->deleteRef(); }

    Ptr& operator=(Ptr const& o) noexcept { Ptr(o).swap(*this); return *this; }
    Ptr& operator=(Ptr&& o) noexcept { Ptr(std::move(o)).swap(*this); return *this; }
    Ptr& operator=(T* p) noexcept { Ptr(p).swap(*this); return *this; }
    Ptr& operator=(std::nullptr_t) noexcept { reset(); return *this; }

    T* ptr() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    void reset() noexcept { Ptr().swap(*this); }
    void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }
    // Gives up ownership without changing the count.
    T* release() noexcept { T* p = p_; p_ = nullptr; return p; }
    // Takes over a reference the caller already owns.
    static Ptr adopt(T* p) noexcept { Ptr r; r.p_ = p; return r; }

    friend bool operator==(Ptr const& a, Ptr const& b) { return a.p_ == b.p_; }
    friend bool operator==(Ptr const& a, std::nullptr_t) { return a.p_ == nullptr; }

private:
    T* p_ = nullptr;
};

template <class T, class U>
Ptr<T> ptr_cast(Ptr<U> const& p) { return Ptr<T>(dynamic_cast<T*>(p.ptr())); }

// Creates a counted object, recording it with the allocation tracker; the
// record is undone if the constructor throws.
template <class T, class... A>
Ptr<T> zelNew(A&&... args) {
    static uint32_t const slot = zelAllocTrackTypeInfo_(typeid(T), sizeof(T));
    trackAllocation(slot);
    T* p;
    try {
        p = new T(std::forward<A>(args)...);
    } catch (...) {
        trackDeallocation(slot);
        throw;
    }
    p->allocTrackSlotIs(slot);
    return Ptr<T>(p);
}

} // namespace Zel
