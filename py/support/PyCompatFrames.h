// Frames and what a thread state holds, as CPython 2.7 and 3.8 to 3.13
// each expose them (see PyCompat.h for the other differences): 3.9 added
// accessors for frames and 3.11 hid the frame's fields behind them; 3.11
// keeps a handled exception as its instance alone, 3.12 a raised one too.
#pragma once

#include <Python.h>
#include <frameobject.h>

#include <cstddef>

#include "support/PyCompat.h"
#include "support/PyRef.h"

namespace Zel::compat {

// --- frames -------------------------------------------------------------------
// Through the accessors that 3.9 and 3.11 added where a version has them
// (3.11 hides the frame's fields); frames are passed as PyObject*, and the
// results are owned (2.7 and 3.8 lend theirs, which are taken here).

inline PyRef owned(PyObject* borrowed) {
    Py_XINCREF(borrowed);
    return PyRef(borrowed);
}

inline PyFrameObject* asFrame(PyObject* f) { return reinterpret_cast<PyFrameObject*>(f); }

// The thread's innermost frame, or null. From 3.11 a frame object may have
// to be made, which takes the thread holding the interpreter lock: the
// stack of a thread without it reads as empty.
inline PyRef threadFrame(PyThreadState* ts) {
#if PY_VERSION_HEX >= 0x030B0000
    if (currentThreadState() != ts) return PyRef();
    return PyRef(reinterpret_cast<PyObject*>(PyThreadState_GetFrame(ts)));
#elif PY_VERSION_HEX >= 0x03090000
    return PyRef(reinterpret_cast<PyObject*>(PyThreadState_GetFrame(ts)));
#else
    return owned(reinterpret_cast<PyObject*>(ts->frame));
#endif
}

// The frame's caller, or null.
inline PyRef frameBack(PyObject* f) {
#if PY_VERSION_HEX >= 0x03090000
    return PyRef(reinterpret_cast<PyObject*>(PyFrame_GetBack(asFrame(f))));
#else
    return owned(reinterpret_cast<PyObject*>(asFrame(f)->f_back));
#endif
}

// The frame's code object.
inline PyRef frameCode(PyObject* f) {
#if PY_VERSION_HEX >= 0x03090000
    return PyRef(reinterpret_cast<PyObject*>(PyFrame_GetCode(asFrame(f))));
#else
    return owned(reinterpret_cast<PyObject*>(asFrame(f)->f_code));
#endif
}

inline PyRef frameGlobals(PyObject* f) {
#if PY_VERSION_HEX >= 0x030B0000
    return PyRef(PyFrame_GetGlobals(asFrame(f)));
#else
    return owned(asFrame(f)->f_globals);
#endif
}

// The line the frame is at: 2.7 reads it from the last instruction, as its
// traceback printing does.
inline int frameLine(PyObject* f) {
#if PY_MAJOR_VERSION >= 3
    return PyFrame_GetLineNumber(asFrame(f));
#else
    return PyCode_Addr2Line(asFrame(f)->f_code, asFrame(f)->f_lasti);
#endif
}

// --- the crash path ---------------------------------------------------------
// What a thread state holds, read without calling into the interpreter, for
// a writer that may run in a signal handler, with or without the
// interpreter lock.

// Whether the crash path may call into the interpreter for the thread `ts`
// (str() of the exception): 2.7 always did; on 3 making an object goes
// through the running thread's state, so only a thread holding the lock may.
inline bool mayCallInto(PyThreadState* ts) { return !kPython3 || currentThreadState() == ts; }

// An exception as its three parts (borrowed; any may be null).
struct ThreadError {
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
};

#if PY_MAJOR_VERSION >= 3
// 3.11 and later keep an exception as its instance alone.
inline ThreadError errorOfInstance(PyObject* value) {
    if (!value || value == Py_None) return {};
    ThreadError e;
    e.type = reinterpret_cast<PyObject*>(Py_TYPE(value));
    e.value = value;
    if (PyExceptionInstance_Check(value)) e.traceback = reinterpret_cast<PyBaseExceptionObject*>(value)->traceback;
    return e;
}
#endif

// The exception being raised on the thread.
inline ThreadError raisedError(PyThreadState* ts) {
#if PY_VERSION_HEX >= 0x030C0000
    return errorOfInstance(ts->current_exception);
#else
    return {ts->curexc_type, ts->curexc_value, ts->curexc_traceback};
#endif
}

// The exception being handled (in an except block) on the thread.
inline ThreadError handledError(PyThreadState* ts) {
#if PY_VERSION_HEX >= 0x030B0000
    return ts->exc_info ? errorOfInstance(ts->exc_info->exc_value) : ThreadError{};
#elif PY_MAJOR_VERSION >= 3
    if (!ts->exc_info) return {};
    auto part = [](PyObject* o) { return o == Py_None ? nullptr : o; };
    return {part(ts->exc_info->exc_type), part(ts->exc_info->exc_value), part(ts->exc_info->exc_traceback)};
#else
    return {ts->exc_type, ts->exc_value, ts->exc_traceback};
#endif
}

// Hands the UTF-8 of a str (2.7: the bytes of a str) to
// write(char const*, size_t), in pieces, with no allocation and no Python
// error. Escaped bytes (U+DC80..U+DCFF) go out as the bytes they stand
// for, other surrogates as '?'. False, nothing written, for anything else.
template <class Write>
bool writeText(PyObject* o, Write&& write) {
#if PY_MAJOR_VERSION >= 3
    if (!o || !PyUnicode_Check(o) || !PyUnicode_IS_READY(o)) return false;
    int const kind = PyUnicode_KIND(o);
    void const* data = PyUnicode_DATA(o);
    char piece[256];
    size_t n = 0;
    for (Py_ssize_t i = 0, len = PyUnicode_GET_LENGTH(o); i < len; ++i) {
        Py_UCS4 const c = PyUnicode_READ(kind, data, i);
        if (n + 4 > sizeof piece) {
            write(piece, n);
            n = 0;
        }
        if (c < 0x80) {
            piece[n++] = static_cast<char>(c);
        } else if (c >= 0xDC80 && c <= 0xDCFF) {
            piece[n++] = static_cast<char>(c - 0xDC00);
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            piece[n++] = '?';
        } else if (c < 0x800) {
            piece[n++] = static_cast<char>(0xC0 | (c >> 6));
            piece[n++] = static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            piece[n++] = static_cast<char>(0xE0 | (c >> 12));
            piece[n++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            piece[n++] = static_cast<char>(0x80 | (c & 0x3F));
        } else {
            piece[n++] = static_cast<char>(0xF0 | (c >> 18));
            piece[n++] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            piece[n++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            piece[n++] = static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    if (n) write(piece, n);
    return true;
#else
    if (!o || !PyString_Check(o)) return false;
    write(PyString_AS_STRING(o), static_cast<size_t>(PyString_GET_SIZE(o)));
    return true;
#endif
}

} // namespace Zel::compat
