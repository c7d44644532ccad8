// Builtin framework values as plain C++ values: the C++ type behind a
// builtin ZelType, and conversions of such a value to and from Python with
// no GenericIf in between. The attribute hot paths read and write builtins
// through these; the general conversions use the same rules, so a value
// is accepted, refused and rendered identically on both paths.
#pragma once

#include <climits>
#include <cstdint>
#include <new>
#include <type_traits>

#include "module/core/Module.h"
#include "Zel/Builtin.h"

namespace Zel::native {

template <class T>
struct Tag {
    using type = T;
};

// f(Tag<T>{}) for the C++ type T of the builtin type `t`, most frequent
// first; false (f not called) when `t` is not a builtin. f returns bool.
template <class F>
bool visitBuiltin(ZelType const* t, F&& f) {
#define ZEL_NATIVE_VISIT(T) \
    if (t == &Builtin<T>::_zelType) return f(Tag<T>{});
    ZEL_NATIVE_VISIT(int)
    ZEL_NATIVE_VISIT(String8)
    ZEL_NATIVE_VISIT(bool)
    ZEL_NATIVE_VISIT(double)
    ZEL_NATIVE_VISIT(unsigned int)
    ZEL_NATIVE_VISIT(long long)
    ZEL_NATIVE_VISIT(unsigned long long)
    ZEL_NATIVE_VISIT(long)
    ZEL_NATIVE_VISIT(short)
    ZEL_NATIVE_VISIT(unsigned short)
    ZEL_NATIVE_VISIT(signed char)
    ZEL_NATIVE_VISIT(unsigned char)
    ZEL_NATIVE_VISIT(char)
    ZEL_NATIVE_VISIT(float)
#undef ZEL_NATIVE_VISIT
    return false;
}

// --- native -> Python (new reference) ----------------------------------------

// Python ints keep to the 32-bit range the Python side expects; wider
// values become longs (on 3 all are int).
inline PyObject* intOrLong(GilHeld, long long v) {
    if (v >= INT32_MIN && v <= INT32_MAX) return compat::intFromLong(static_cast<long>(v));
    return PyLong_FromLongLong(v);
}
inline PyObject* fromUnsigned(GilHeld, unsigned long long v) {
    if (v < (1ull << 31)) return compat::intFromLong(static_cast<long>(v));
    return PyLong_FromUnsignedLongLong(v);
}

inline PyObject* toPython(GilHeld, String8 const& v) { return compat::text(v.data(), v.size()); }
inline PyObject* toPython(GilHeld, unsigned char v) { return compat::intFromLong(v); }
inline PyObject* toPython(GilHeld, signed char v) { return compat::intFromLong(v); }
inline PyObject* toPython(GilHeld, short v) { return compat::intFromLong(v); }
inline PyObject* toPython(GilHeld, unsigned short v) { return compat::intFromLong(v); }
inline PyObject* toPython(GilHeld, int v) { return compat::intFromLong(v); }
inline PyObject* toPython(GilHeld gil, long v) { return intOrLong(gil, v); }
inline PyObject* toPython(GilHeld gil, unsigned int v) { return fromUnsigned(gil, v); }
inline PyObject* toPython(GilHeld gil, unsigned long long v) { return fromUnsigned(gil, v); }
inline PyObject* toPython(GilHeld gil, long long v) { return intOrLong(gil, v); }
inline PyObject* toPython(GilHeld, char v) { return compat::charText(v); }
inline PyObject* toPython(GilHeld, bool v) { return PyBool_FromLong(v); }
inline PyObject* toPython(GilHeld, float v) { return PyFloat_FromDouble(v); }
inline PyObject* toPython(GilHeld, double v) { return PyFloat_FromDouble(v); }

// --- Python -> native ------------------------------------------------------
// Strict: exact Python number types and explicit range checks (Python ints
// are 64-bit here, but the accepted ranges are those of 32-bit int and
// long). False for a refusal, possibly with a Python error pending that
// the caller clears or reports.

namespace detail {
inline bool exactInt(PyObject* o) { return compat::isExactSmallInt(o); }
inline bool exactLong(PyObject* o) { return Py_TYPE(o) == &PyLong_Type; }
inline bool exactFloat(PyObject* o) { return Py_TYPE(o) == &PyFloat_Type; }

template <class T>
bool ranged(PyObject* o, T& out, long lo, long hi) {
    if (exactInt(o)) {
        long v = compat::smallIntValue(o);
        if (v < lo || v > hi) return false;
        out = static_cast<T>(v);
        return true;
    }
    if (!exactLong(o)) return false;
    long v = compat::intValue(o);
    if (PyErr_Occurred() || v < lo || v > hi) return false;
    out = static_cast<T>(v);
    return true;
}
} // namespace detail

inline bool fromPython(GilHeld, PyObject* o, String8& out) {
    compat::StringBytes bytes(o);
    if (!bytes) return false;
    out = String8(bytes.data(), bytes.size());
    return true;
}
inline bool fromPython(GilHeld, PyObject* o, unsigned char& out) { return detail::ranged(o, out, 0, UCHAR_MAX); }
inline bool fromPython(GilHeld, PyObject* o, signed char& out) { return detail::ranged(o, out, SCHAR_MIN, SCHAR_MAX); }
inline bool fromPython(GilHeld, PyObject* o, unsigned short& out) { return detail::ranged(o, out, 0, USHRT_MAX); }
inline bool fromPython(GilHeld, PyObject* o, short& out) { return detail::ranged(o, out, SHRT_MIN, SHRT_MAX); }
inline bool fromPython(GilHeld, PyObject* o, int& out) { return detail::ranged(o, out, INT32_MIN, INT32_MAX); }
inline bool fromPython(GilHeld, PyObject* o, long& out) { return detail::ranged(o, out, INT32_MIN, INT32_MAX); }

inline bool fromPython(GilHeld, PyObject* o, unsigned int& out) {
    if (detail::exactInt(o)) {
        long v = compat::smallIntValue(o);
        if (v < 0 || v > long(UINT32_MAX)) return false;
        out = static_cast<unsigned int>(v);
        return true;
    }
    if (!detail::exactLong(o)) return false;
    unsigned long long v = PyLong_AsUnsignedLongLong(o);
    if (PyErr_Occurred() || (v >> 32) != 0) return false;
    out = static_cast<unsigned int>(v);
    return true;
}

inline bool fromPython(GilHeld, PyObject* o, unsigned long long& out) {
    if (detail::exactInt(o)) {
        long v = compat::smallIntValue(o);
        if (v < 0) return false;
        out = static_cast<unsigned long long>(v);
        return true;
    }
    if (!detail::exactLong(o)) return false;
    out = PyLong_AsUnsignedLongLong(o);
    return !PyErr_Occurred();
}

inline bool fromPython(GilHeld, PyObject* o, long long& out) {
    // A Python int always fits.
    if (detail::exactInt(o)) {
        out = compat::smallIntValue(o);
        return true;
    }
    if (!detail::exactLong(o)) return false;
    out = PyLong_AsLongLong(o);
    return !PyErr_Occurred();
}

inline bool fromPython(GilHeld, PyObject* o, double& out) {
    if (detail::exactFloat(o)) {
        out = PyFloat_AS_DOUBLE(o);
        return true;
    }
    if (!detail::exactInt(o) && !detail::exactLong(o)) return false;
    out = PyFloat_AsDouble(o);
    return !PyErr_Occurred();
}

inline bool fromPython(GilHeld gil, PyObject* o, float& out) {
    double d;
    if (!fromPython(gil, o, d)) return false;
    out = static_cast<float>(d);
    return true;
}

inline bool fromPython(GilHeld, PyObject* o, bool& out) {
    if (Py_TYPE(o) != &PyBool_Type) return false;
    out = o == Py_True;
    return true;
}

inline bool fromPython(GilHeld, PyObject* o, char& out) { return compat::charOf(o, out); }

// Storage for one builtin value whose type is known only at run time.
class Slot {
public:
    Slot() = default;
    ~Slot() {
        if (destroy_) destroy_(buf_);
    }
    Slot(Slot const&) = delete;
    Slot& operator=(Slot const&) = delete;

    // A default value of the builtin `t`; false for any other type.
    bool emplace(ZelType const* t) {
        return visitBuiltin(t, [&](auto tag) {
            emplaceAs<typename decltype(tag)::type>();
            return true;
        });
    }
    // `o` converted to the builtin `t`; false for a refusal (a Python
    // error may be pending) or a type that is not a builtin.
    bool assign(GilHeld gil, ZelType const* t, PyObject* o) {
        return visitBuiltin(t, [&](auto tag) { return fromPython(gil, o, emplaceAs<typename decltype(tag)::type>()); });
    }
    // The value (of the builtin `t` it was made as) as a new reference.
    PyObject* toPython(GilHeld gil, ZelType const* t) const {
        PyObject* out = nullptr;
        visitBuiltin(t, [&](auto tag) {
            out = native::toPython(gil, *static_cast<typename decltype(tag)::type const*>(ptr()));
            return true;
        });
        return out;
    }
    void* ptr() { return buf_; }
    void const* ptr() const { return buf_; }

private:
    template <class T>
    T& emplaceAs() {
        static_assert(sizeof(T) <= sizeof(buf_) && alignof(T) <= alignof(String8));
        if (destroy_) destroy_(buf_);
        destroy_ = nullptr;
        T* p = new (buf_) T();
        if constexpr (!std::is_trivially_destructible_v<T>) destroy_ = [](void* q) { static_cast<T*>(q)->~T(); };
        return *p;
    }

    alignas(String8) unsigned char buf_[sizeof(String8)];
    void (*destroy_)(void*) = nullptr;
};

} // namespace Zel::native
