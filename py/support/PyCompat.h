// The few places where the C API of CPython 2.7 and of 3.8 to 3.13 differ,
// each given one name here so that the rest of the library reads the same
// for either interpreter (frames and what a crash report reads of a thread
// state: PyCompatFrames.h).
//
// Text: 2.7's str is bytes and the framework's strings are bytes, so they
// pass unchanged. On 3 a framework string becomes a str decoded as UTF-8
// with surrogateescape (bytes that are not UTF-8 become lone surrogates
// U+DC80..U+DCFF), and a str passed in is encoded the same way, so any
// bytes survive the round trip; bytes objects are taken as they are.
// A char is the exception: it is one byte, shown on 3 as the str of the
// one character whose code point is that byte.
#pragma once

#include <Python.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

#include "support/PyRef.h"

#if PY_MAJOR_VERSION >= 3
// Exported by every 3.x, declared in the headers only from 3.10.
extern "C" void Py_GetArgcArgv(int* argc, wchar_t*** argv);
#else
extern "C" void Py_GetArgcArgv(int* argc, char*** argv);
#endif

namespace Zel::compat {

inline constexpr bool kPython3 = PY_MAJOR_VERSION >= 3;

// --- text -----------------------------------------------------------------

// A new str of the framework bytes [p, p + n), or null with the error set.
inline PyObject* text(char const* p, size_t n) {
#if PY_MAJOR_VERSION >= 3
    return PyUnicode_DecodeUTF8(p, static_cast<Py_ssize_t>(n), "surrogateescape");
#else
    return PyString_FromStringAndSize(p, static_cast<Py_ssize_t>(n));
#endif
}

inline PyObject* text(char const* s) {
#if PY_MAJOR_VERSION >= 3
    return PyUnicode_DecodeUTF8(s, static_cast<Py_ssize_t>(std::char_traits<char>::length(s)), "surrogateescape");
#else
    return PyString_FromString(s);
#endif
}

// A new str formatted as PyString_FromFormat / PyUnicode_FromFormat do.
template <class... A>
PyObject* textFormat(char const* format, A... args) {
#if PY_MAJOR_VERSION >= 3
    return PyUnicode_FromFormat(format, args...);
#else
    return PyString_FromFormat(format, args...);
#endif
}

// The interned str of a name (framework names are plain ASCII).
inline PyObject* interned(char const* s) {
#if PY_MAJOR_VERSION >= 3
    return PyUnicode_InternFromString(s);
#else
    return PyString_InternFromString(s);
#endif
}

// A str (or a subclass): the type that holds text and names.
inline bool isText(PyObject* o) {
#if PY_MAJOR_VERSION >= 3
    return PyUnicode_Check(o);
#else
    return PyString_Check(o);
#endif
}

inline bool isExactText(PyObject* o) {
#if PY_MAJOR_VERSION >= 3
    return PyUnicode_CheckExact(o);
#else
    return PyString_CheckExact(o);
#endif
}

// The bytes a Python string stands for: a str (or a subclass) and, on 3, a
// bytes (or a subclass). Empty (false) for anything else, and for a str
// that cannot be encoded (a surrogate outside the escaped range), then with
// the Python error set. The bytes end with a NUL (which may also occur
// inside them) and live as long as both this and the object.
class StringBytes {
public:
    explicit StringBytes(PyObject* o) {
#if PY_MAJOR_VERSION >= 3
        if (PyBytes_Check(o)) {
            data_ = PyBytes_AS_STRING(o);
            size_ = PyBytes_GET_SIZE(o);
        } else if (PyUnicode_Check(o)) {
            // The str's own UTF-8 (kept with it, no copy for ASCII), unless
            // it holds escaped bytes, which strict UTF-8 refuses.
            data_ = PyUnicode_AsUTF8AndSize(o, &size_);
            if (!data_) {
                PyErr_Clear();
                encoded_ = PyRef(PyUnicode_AsEncodedString(o, "utf-8", "surrogateescape"));
                if (encoded_) {
                    data_ = PyBytes_AS_STRING(encoded_.get());
                    size_ = PyBytes_GET_SIZE(encoded_.get());
                }
            }
        }
#else
        if (PyString_Check(o)) {
            data_ = PyString_AS_STRING(o);
            size_ = PyString_GET_SIZE(o);
        }
#endif
    }
    explicit operator bool() const { return data_ != nullptr; }
    char const* data() const { return data_; }
    size_t size() const { return static_cast<size_t>(size_); }

private:
    PyRef encoded_;
    char const* data_ = nullptr;
    Py_ssize_t size_ = 0;
};

// A char: on 2.7 a str of length 1; on 3 a str of one character below
// U+0100 (its code point is the byte) or a bytes of length 1.
inline bool charOf(PyObject* o, char& out) {
#if PY_MAJOR_VERSION >= 3
    if (PyBytes_Check(o)) {
        if (PyBytes_GET_SIZE(o) != 1) return false;
        out = PyBytes_AS_STRING(o)[0];
        return true;
    }
    if (!PyUnicode_Check(o) || PyUnicode_READY(o) < 0 || PyUnicode_GET_LENGTH(o) != 1) return false;
    Py_UCS4 const c = PyUnicode_READ_CHAR(o, 0);
    if (c >= 0x100) return false;
    out = static_cast<char>(static_cast<unsigned char>(c));
    return true;
#else
    if (!PyString_Check(o) || PyString_GET_SIZE(o) != 1) return false;
    out = PyString_AS_STRING(o)[0];
    return true;
#endif
}

inline PyObject* charText(char c) {
#if PY_MAJOR_VERSION >= 3
    return PyUnicode_FromOrdinal(static_cast<unsigned char>(c));
#else
    return PyString_FromStringAndSize(&c, 1);
#endif
}

// --- integers -----------------------------------------------------------------
// 2.7 has two integer types: int (a C long) and long (unbounded); 3 has
// only the unbounded one, named int. The conversions keep 2.7's fast path
// for its int and take everything else through the long functions.

// 2.7's exact int; never on 3.
inline bool isExactSmallInt([[maybe_unused]] PyObject* o) {
#if PY_MAJOR_VERSION >= 3
    return false;
#else
    return PyInt_CheckExact(o);
#endif
}

// The value of an object isExactSmallInt accepted.
inline long smallIntValue(PyObject* o) {
#if PY_MAJOR_VERSION >= 3
    return PyLong_AsLong(o);
#else
    return PyInt_AS_LONG(o);
#endif
}

// An int, a bool or another subclass of int (2.7's long excluded).
inline bool isIntOrSubclass(PyObject* o) {
#if PY_MAJOR_VERSION >= 3
    return PyLong_Check(o);
#else
    return PyInt_Check(o);
#endif
}

// The C long of any integer object; -1 with the error set when it does not fit.
inline long intValue(PyObject* o) {
#if PY_MAJOR_VERSION >= 3
    return PyLong_AsLong(o);
#else
    return PyInt_AsLong(o);
#endif
}

// An int (2.7's int, 3's int).
inline PyObject* intFromLong(long v) {
#if PY_MAJOR_VERSION >= 3
    return PyLong_FromLong(v);
#else
    return PyInt_FromLong(v);
#endif
}

// --- modules and types ------------------------------------------------------

// A module's definition: its name, documentation and function table, kept
// for the life of the process (3 keeps a pointer to it in the module).
class ModuleDef {
public:
    ModuleDef(char const* name, PyMethodDef* functions, char const* doc)
#if PY_MAJOR_VERSION >= 3
        : def_{PyModuleDef_HEAD_INIT, name, doc, -1, functions, nullptr, nullptr, nullptr, nullptr} {}
#else
        : name_(name), functions_(functions), doc_(doc) {}
#endif
    ModuleDef(ModuleDef const&) = delete;
    ModuleDef& operator=(ModuleDef const&) = delete;

    // The module, as the extension API version 1013 makes it; null with
    // the error set. A new reference on 3, borrowed on 2.7.
    PyObject* create() {
#if PY_MAJOR_VERSION >= 3
        return PyModule_Create2(&def_, 1013);
#else
        return Py_InitModule4(name_, functions_, doc_, nullptr, 1013);
#endif
    }

private:
#if PY_MAJOR_VERSION >= 3
    PyModuleDef def_;
#else
    char const* name_;
    PyMethodDef* functions_;
    char const* doc_;
#endif
};

// Defines the init function of module `name` (init<name> on 2.7,
// PyInit_<name> on 3), which calls `make`: PyObject* make(), the module
// as ModuleDef::create returns it, or null with the error set.
#if PY_MAJOR_VERSION >= 3
#define ZELPY_MODULE_INIT(name, make) \
    extern "C" __attribute__((visibility("default"))) PyObject* PyInit_##name() { return make(); }
#else
#define ZELPY_MODULE_INIT(name, make) \
    extern "C" __attribute__((visibility("default"))) void init##name() { make(); }
#endif

// Type flags of an iterator type (2.7 asks for tp_iternext to be enabled).
#if PY_MAJOR_VERSION >= 3
inline constexpr unsigned long kIteratorFlags = 0;
#else
inline constexpr unsigned long kIteratorFlags = Py_TPFLAGS_HAVE_ITER;
#endif

// Type flags of a base type that Python classes derive from. 2.7 keeps
// its method cache (looking names up along the class's bases once per
// change of a class, not once per use) only for classes whose every base
// carries the version tag, which it leaves off extension types by default;
// 3 sets it on all. Static types never change, so the tag is always
// valid.
#if PY_MAJOR_VERSION >= 3
inline constexpr unsigned long kCachedBaseFlags = 0;
#else
inline constexpr unsigned long kCachedBaseFlags = Py_TPFLAGS_HAVE_VERSION_TAG;
#endif

inline void setRefCount(PyObject* o, Py_ssize_t n) {
#if PY_VERSION_HEX >= 0x03090000
    Py_SET_REFCNT(o, n);
#else
    Py_REFCNT(o) = n;
#endif
}

// --- threads, calls, evaluation ---------------------------------------------

// The thread state holding the interpreter lock (this thread's, if it holds
// it), read without a check: what PyGILState_Check tells, without its
// lookups.
inline PyThreadState* currentThreadState() {
#if PY_VERSION_HEX >= 0x030D0000
    return PyThreadState_GetUnchecked();
#elif PY_MAJOR_VERSION >= 3
    return _PyThreadState_UncheckedGet();
#else
    return __atomic_load_n(&_PyThreadState_Current, __ATOMIC_RELAXED);
#endif
}

// Makes the running thread look for an asynchronous exception at its next
// instruction: 2.7 looks only every so many (its ticker), 3 at once.
inline void checkAsyncExceptionsSoon() {
#if PY_MAJOR_VERSION < 3
    _Py_Ticker = 0;
#endif
}

// Py_Initialize without importing site (3.12 deprecates the global flag;
// its configuration says the same).
// Starts the interpreter as the interpreter at `program` starts: its
// prefix, and so its standard library, found from that path instead of
// from whichever python3 comes first on PATH, which may be another build
// of the same version (a private 3.11 beside Debian's). `program` must
// outlive the interpreter (a literal).
inline void initializeAs(char const* program) {
#if PY_MAJOR_VERSION >= 3
    PyConfig config;
    PyConfig_InitPythonConfig(&config);
    ::PyStatus status = PyConfig_SetBytesString(&config, &config.program_name, program);
    if (!PyStatus_Exception(status)) status = Py_InitializeFromConfig(&config);
    PyConfig_Clear(&config);
    if (PyStatus_Exception(status)) Py_ExitStatusException(status);
#else
    Py_SetProgramName(const_cast<char*>(program));
    Py_Initialize();
#endif
}

inline void initializeWithoutSite() {
#if PY_MAJOR_VERSION >= 3
    PyConfig config;
    PyConfig_InitPythonConfig(&config);
    config.site_import = 0;
    ::PyStatus const status = Py_InitializeFromConfig(&config);
    PyConfig_Clear(&config);
    if (PyStatus_Exception(status)) Py_ExitStatusException(status);
#else
    Py_NoSiteFlag = 1;
    Py_Initialize();
#endif
}

// Readies the interpreter lock after Py_Initialize (3 always has it).
inline void initThreads() {
#if PY_MAJOR_VERSION < 3
    PyEval_InitThreads();
#endif
}

// sys.argv of an embedding program, the path left as it is.
inline void setArgv(int argc, char** argv) {
#if PY_MAJOR_VERSION >= 3
    PyRef list(PyList_New(0));
    for (int i = 0; list && i < argc; ++i) {
        PyRef arg(PyUnicode_DecodeFSDefault(argv[i]));
        if (!arg || PyList_Append(list.get(), arg.get()) < 0) list = PyRef();
    }
    if (list) PySys_SetObject("argv", list.get());
    PyErr_Clear();
#else
    PySys_SetArgvEx(argc, argv, 0);
#endif
}

// The argument count the interpreter was started with (0 when embedded
// without Py_Main), and the argument vector it holds when that is the
// process's own (2.7); null on 3, which keeps only a decoded copy.
inline int interpreterArgs(char**& argv) {
    int argc = 0;
#if PY_MAJOR_VERSION >= 3
    wchar_t** wide = nullptr;
    Py_GetArgcArgv(&argc, &wide);
    argv = nullptr;
#else
    Py_GetArgcArgv(&argc, &argv);
#endif
    return argc;
}

// The Python function `f` called with the `n` arguments at `args`, as the
// interpreter's own call of a function does (its defaults applied), with
// no tuple to make and free: a new reference, or null with the error set.
inline PyObject* callFunction(PyObject* f, PyObject** args, int n) {
#if PY_VERSION_HEX >= 0x03090000
    return PyObject_Vectorcall(f, args, static_cast<size_t>(n), nullptr);
#elif PY_MAJOR_VERSION >= 3
    return _PyObject_Vectorcall(f, args, static_cast<size_t>(n), nullptr);
#else
    PyObject* defaults = PyFunction_GET_DEFAULTS(f);
    return PyEval_EvalCodeEx(reinterpret_cast<PyCodeObject*>(PyFunction_GET_CODE(f)), PyFunction_GET_GLOBALS(f),
                             nullptr, args, n, nullptr, 0, defaults ? &PyTuple_GET_ITEM(defaults, 0) : nullptr,
                             defaults ? static_cast<int>(PyTuple_GET_SIZE(defaults)) : 0, PyFunction_GET_CLOSURE(f));
#endif
}

// Runs a compiled code object in `globals` / `locals`.
inline PyObject* evalCode(PyObject* code, PyObject* globals, PyObject* locals) {
#if PY_MAJOR_VERSION >= 3
    return PyEval_EvalCode(code, globals, locals);
#else
    return PyEval_EvalCode(reinterpret_cast<PyCodeObject*>(code), globals, locals);
#endif
}

// Compiler flags with nothing set (3 also wants the language version).
inline PyCompilerFlags compilerFlags() {
#if PY_MAJOR_VERSION >= 3
    return _PyCompilerFlags_INIT;
#else
    PyCompilerFlags flags{};
    flags.cf_flags = 0;
    return flags;
#endif
}

} // namespace Zel::compat
