// Internal API of the _Zel module core: what its files share and what the
// later parts of the library (conversions, attribute operations,
// notification bridges) build on.
#pragma once

#include <Python.h>

#include <cstdio>
#include <cstdlib>

#include "Zel/Exception.h"
#include "Zel/ZelType.h"
#include "ZelPy/Backtrace.h"
#include "ZelPy/Errors.h"
#include "ZelPy/GifPtr.h"
#include "ZelPy/Locks.h"
#include "ZelPy/Module.h"
#include "ZelPy/Types.h"
#include "module/core/Frames.h"
#include "support/Gil.h"
#include "support/PyCompat.h"
#include "support/PyRef.h"

// An assertion that stays in release builds: the conditions it guards are
// fatal misuse (second module initialisation, missing Python package).
#define ZELPY_CHECK(expr) ((expr) ? void(0) : zelPyCheckFailed(#expr, __FILE__, __LINE__, __PRETTY_FUNCTION__))

[[noreturn]] inline void zelPyCheckFailed(char const* expr, char const* file, int line, char const* function) {
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expr);
    std::abort();
}

namespace Zel {

// A type object of the module, defined statically: never freed (its
// reference count starts at one), with the default flags; the caller fills
// in its slots.
inline PyTypeObject staticType(char const* name, Py_ssize_t instanceSize) {
    PyTypeObject t{};
    compat::setRefCount(reinterpret_cast<PyObject*>(&t), 1);
    t.tp_name = name;
    t.tp_basicsize = instanceSize;
    t.tp_flags = Py_TPFLAGS_DEFAULT;
    return t;
}

// Attribute "Zel.<name>" of the already imported Python package Zel:
// new reference, or null with a Python error set. Interpreter lock held.
PyObject* getFromZel(char const* name);

} // namespace Zel

// --- error translation ------------------------------------------------------

// Writes the calling thread's Python error and stack to `fd` with write()
// only; the framework's crash path calls it through printBacktraceFn.
extern "C" void printPythonBacktrace(int fd);

// --- module functions (entries of the module's function table) ---------------
// Each is the body of its entry point, entered through Zel::entry<...>.

Zel::PyResult PyZel_acquireActivityLock(Zel::GilHeld gil, PyObject* self, PyObject* unused) noexcept;
Zel::PyResult PyZel_releaseActivityLock(Zel::GilHeld gil, PyObject* self, PyObject* unused) noexcept;
Zel::PyResult PyZel_activityLockOwner(Zel::GilHeld gil, PyObject* self, PyObject* unused) noexcept;
Zel::PyResult PyZel_enableThreadSafePointers(Zel::GilHeld gil, PyObject* self, PyObject* unused) noexcept;
Zel::PyResult PyZel_typeNode(Zel::GilHeld gil, PyObject* self, PyObject* args);

// --- attribute operations (methods of _Zel.GifPtr) ---------------------------
// Entry points, each defined beside its body (the attribute hot paths).

PyObject* FwkPyGenericIf_attributeSingletonIs(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeCollectionIs(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeSingleton(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_rawAttributeSingleton(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeCollectionExist(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeCollection(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeCollectionVal(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_rawAttributeCollection(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeVersion(PyObject* self, PyObject* attr) noexcept;
PyObject* FwkPyGenericIf_attributeSingletonDel(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeCollectionDel(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeRemove(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeAdd(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeFunction(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeMembers(PyObject* self, PyObject* args) noexcept;
PyObject* FwkPyGenericIf_attributeIter(PyObject* self, PyObject* args) noexcept;

extern PyTypeObject FwkPyGenericIfIterator_Type;

namespace Zel {

inline GenericIf const* gifOf(PyObject* self) { return reinterpret_cast<FwkPyGenericIf*>(self)->gif.ptr(); }

// A new GifPtr holding `gif` (null stays null).
PyResult gifPtr(GilHeld gil, Ptr<GenericIf const> const& gif);
// A new GifPtr for a counted framework object; throws what making its
// GenericIf throws.
PyResult gifPtrOf(GilHeld gil, Ptr<PtrInterface> const& object);
// The one wrapper of a descriptor; None for null.
PyResult typeObject(GilHeld gil, ZelType const* type);
PyResult attrObject(GilHeld gil, ZelAttr const* attr);

// attributeSingleton / rawAttributeSingleton (useDefault false),
// attributeSingletonIs and attributeSingletonDel of the GifPtr `self`,
// with their arguments already parsed: the bodies of those methods and of
// _ZelProxy's descriptors, run inside their entry points.
//
// How a read takes the activity lock: `full`, the interpreter lock given up
// first (every _Zel method); `tryFirst`, a try with the interpreter lock
// kept, the full protocol only when that finds the lock held (the Zel
// package's descriptors and views: see Attribute in Frames.h).
enum class ReadLock : bool { full, tryFirst };
PyResult singletonGet(GilHeld gil, PyObject* self, ZelAttr const* attr, bool useDefault,
                      ReadLock lock = ReadLock::full);
PyResult singletonSet(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* value);
PyResult singletonDel(GilHeld gil, PyObject* self, ZelAttr const* attr);

// The collection methods of the GifPtr `self` with their arguments already
// parsed: attributeCollection (and its raw and value forms), ...Exist,
// ...Is, ...Del, attributeMembers, attributeAdd and attributeRemove, the
// bodies of those methods and of _ZelProxy's views.
PyResult collectionLookup(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* key, bool useDefault,
                          bool valueLookup, ReadLock lock = ReadLock::full);
PyResult collectionExist(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* key,
                         ReadLock lock = ReadLock::full);
PyResult collectionSet(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* key, PyObject* value);
PyResult collectionDel(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* key);
PyResult collectionMembers(GilHeld gil, PyObject* self, ZelAttr const* attr, ReadLock lock = ReadLock::full);
PyResult collectionAdd(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* value);
PyResult collectionRemove(GilHeld gil, PyObject* self, ZelAttr const* attr);

// Argument parsing of the hot entry points: a tuple of exactly the
// expected size whose first item is a _Zel.ZelAttr is unpacked in place;
// anything else goes through PyArg_ParseTuple with the full `format`
// ("O&..." with Convert_To_ZelAttr first), which raises its exact error.
inline bool attrArgFits(PyObject* args, Py_ssize_t size) {
    return PyTuple_GET_SIZE(args) == size && PyObject_TypeCheck(PyTuple_GET_ITEM(args, 0), &PyZelAttr_Type);
}

inline bool parseAttrArgs(GilHeld, PyObject* args, char const* format, ZelAttr const*& attr) {
    if (!attrArgFits(args, 1)) return PyArg_ParseTuple(args, format, Convert_To_ZelAttr, &attr);
    attr = reinterpret_cast<PyZelAttr*>(PyTuple_GET_ITEM(args, 0))->attr;
    return true;
}

inline bool parseAttrArgs(GilHeld, PyObject* args, char const* format, ZelAttr const*& attr, PyObject*& second) {
    if (!attrArgFits(args, 2)) return PyArg_ParseTuple(args, format, Convert_To_ZelAttr, &attr, &second);
    attr = reinterpret_cast<PyZelAttr*>(PyTuple_GET_ITEM(args, 0))->attr;
    second = PyTuple_GET_ITEM(args, 1);
    return true;
}

} // namespace Zel

// --- remaining module functions --------------------------------------------

Zel::PyResult PyZel_globalDir(Zel::GilHeld gil, PyObject* self, PyObject* unused);
Zel::PyResult PyZel_globalNboAttrLogConnectionDir(Zel::GilHeld gil, PyObject* self, PyObject* unused);
Zel::PyResult PyZel_globalNboAttrLogDemuxerManager(Zel::GilHeld gil, PyObject* self, PyObject* unused);
Zel::PyResult PyZel_trace_h(Zel::GilHeld gil, PyObject* self, PyObject* args);
Zel::PyResult PyZel_setproctitle(Zel::GilHeld gil, PyObject* self, PyObject* args);
Zel::PyResult PyZel_setexternalinfo(Zel::GilHeld gil, PyObject* self, PyObject* args);
Zel::PyResult PyZel_printexternalinfo(Zel::GilHeld gil, PyObject* self, PyObject* args);
Zel::PyResult PyZel_traceLineSuppressed(Zel::GilHeld gil, PyObject* self, PyObject* args);
Zel::PyResult PyZel_activityManagerExecTimeIs(Zel::GilHeld gil, PyObject* self, PyObject* args);
Zel::PyResult PyZel_singleton(Zel::GilHeld gil, PyObject* self, PyObject* args);
Zel::PyResult PyZel_handle(Zel::GilHeld gil, PyObject* self, PyObject* args);
Zel::PyResult PyZel_nullGenericIf(Zel::GilHeld gil, PyObject* self, PyObject* unused);
Zel::PyResult PyZel_newGenericIf(Zel::GilHeld gil, PyObject* self, PyObject* args);
