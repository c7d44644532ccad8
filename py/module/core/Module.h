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
#include "support/Gil.h"
#include "support/PyRef.h"

// An assertion that stays in release builds: the conditions it guards are
// fatal misuse (second module initialisation, missing Python package).
#define ZELPY_CHECK(expr) ((expr) ? void(0) : zelPyCheckFailed(#expr, __FILE__, __LINE__, __PRETTY_FUNCTION__))

[[noreturn]] inline void zelPyCheckFailed(char const* expr, char const* file, int line, char const* function) {
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expr);
    std::abort();
}

namespace Zel {

// Attribute "Zel.<name>" of the already imported Python package Zel:
// new reference, or null with a Python error set. Interpreter lock held.
PyObject* getFromZel(char const* name);

} // namespace Zel

// --- error translation ------------------------------------------------------

// Writes the calling thread's Python error and stack to `fd` with write()
// only; the framework's crash path calls it through printBacktraceFn.
extern "C" void printPythonBacktrace(int fd);

// --- module functions (entries of the module's function table) ---------------

PyObject* PyZel_acquireActivityLock(PyObject* self, PyObject* unused) noexcept;
PyObject* PyZel_releaseActivityLock(PyObject* self, PyObject* unused) noexcept;
PyObject* PyZel_activityLockOwner(PyObject* self, PyObject* unused) noexcept;
PyObject* PyZel_enableThreadSafePointers(PyObject* self, PyObject* unused) noexcept;
PyObject* PyZel_typeNode(PyObject* self, PyObject* args);

// --- attribute operations (methods of _Zel.GifPtr) ---------------------------

PyObject* FwkPyGenericIf_attributeSingletonIs(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeCollectionIs(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeSingleton(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_rawAttributeSingleton(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeCollectionExist(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeCollection(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeCollectionVal(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_rawAttributeCollection(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeVersion(PyObject* self, PyObject* attr);
PyObject* FwkPyGenericIf_attributeSingletonDel(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeCollectionDel(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeRemove(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeAdd(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeFunction(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeMembers(PyObject* self, PyObject* args);
PyObject* FwkPyGenericIf_attributeIter(PyObject* self, PyObject* args);

extern PyTypeObject FwkPyGenericIfIterator_Type;

namespace Zel {

// The common frame of an attribute operation: release-anchor (flags 0),
// Expect for id 1, and a framework exception rewritten with the attribute
// and whatever prefix the body last stored in `prefix` (the stage it had
// reached). The body returns a new reference, or null with a Python error
// set, and re-takes the interpreter lock itself before touching Python.
template <class Body>
PyObject* attributeOperation(ZelAttr const* attr, Body&& body) {
    char const* prefix = "";
    try {
        PyLockAnchor anchor(0);
        Expect expect(Exception::idExpectAll);
        return body(anchor, prefix);
    } catch (Exception& e) {
        updateException(&e, attr, prefix);
    } catch (...) {
        translateCppExceptionToPython();
    }
    return nullptr;
}

// A null conversion result is either a legitimate null value or a refusal
// with a Python error set; telling them apart needs the interpreter lock.
// Returns false (interpreter lock held) for a refusal.
inline bool conversionSucceeded(PyLockAnchor& anchor, Ptr<GenericIf const> const& converted) {
    if (converted) return true;
    anchor.gilHeldIs(true);
    if (PyErr_Occurred()) return false;
    anchor.gilHeldIs(false);
    return true;
}

inline GenericIf const* gifOf(PyObject* self) { return reinterpret_cast<FwkPyGenericIf*>(self)->gif.ptr(); }

// attributeSingleton / rawAttributeSingleton (useDefault false),
// attributeSingletonIs and attributeSingletonDel of the GifPtr `self`,
// with their arguments already parsed.
ZEL_API PyObject* singletonGet(PyObject* self, ZelAttr const* attr, bool useDefault);
ZEL_API PyObject* singletonSet(PyObject* self, ZelAttr const* attr, PyObject* value);
ZEL_API PyObject* singletonDel(PyObject* self, ZelAttr const* attr);

// Argument parsing of the hot entry points: a tuple of exactly the
// expected size whose first item is a _Zel.ZelAttr is unpacked in place;
// anything else goes through PyArg_ParseTuple with the full `format`
// ("O&..." with Convert_To_ZelAttr first), which raises its exact error.
inline bool attrArgFits(PyObject* args, Py_ssize_t size) {
    return PyTuple_GET_SIZE(args) == size && PyObject_TypeCheck(PyTuple_GET_ITEM(args, 0), &PyZelAttr_Type);
}

inline bool parseAttrArgs(PyObject* args, char const* format, ZelAttr const*& attr) {
    if (!attrArgFits(args, 1)) return PyArg_ParseTuple(args, format, Convert_To_ZelAttr, &attr);
    attr = reinterpret_cast<PyZelAttr*>(PyTuple_GET_ITEM(args, 0))->attr;
    return true;
}

inline bool parseAttrArgs(PyObject* args, char const* format, ZelAttr const*& attr, PyObject*& second) {
    if (!attrArgFits(args, 2)) return PyArg_ParseTuple(args, format, Convert_To_ZelAttr, &attr, &second);
    attr = reinterpret_cast<PyZelAttr*>(PyTuple_GET_ITEM(args, 0))->attr;
    second = PyTuple_GET_ITEM(args, 1);
    return true;
}

} // namespace Zel

// --- remaining module functions --------------------------------------------

PyObject* PyZel_globalDir(PyObject* self, PyObject* unused);
PyObject* PyZel_globalNboAttrLogConnectionDir(PyObject* self, PyObject* unused);
PyObject* PyZel_globalNboAttrLogDemuxerManager(PyObject* self, PyObject* unused);
PyObject* PyZel_trace_h(PyObject* self, PyObject* args);
PyObject* PyZel_setproctitle(PyObject* self, PyObject* args);
PyObject* PyZel_setexternalinfo(PyObject* self, PyObject* args);
PyObject* PyZel_printexternalinfo(PyObject* self, PyObject* args);
PyObject* PyZel_traceLineSuppressed(PyObject* self, PyObject* args);
PyObject* PyZel_activityManagerExecTimeIs(PyObject* self, PyObject* args);
PyObject* PyZel_singleton(PyObject* self, PyObject* args);
PyObject* PyZel_handle(PyObject* self, PyObject* args);
PyObject* PyZel_nullGenericIf(PyObject* self, PyObject* unused);
PyObject* PyZel_newGenericIf(PyObject* self, PyObject* args);
