// GifPtr handles (_Zel.GifPtr): the Python objects that own one counted
// reference to a framework GenericIf, and the converters back to
// framework pointers.
#pragma once

#include <Python.h>

#include "Zel/Entity.h"
#include "Zel/GenericIf.h"
#include "Zel/Visibility.h"

struct FwkPyGenericIf {
    PyObject_HEAD
    Zel::Ptr<Zel::GenericIf const> gif;   // null for a null GifPtr
};

ZEL_API extern PyTypeObject FwkPyGenericIf_Type;

inline bool FwkPyGenericIf_Check(PyObject* o) { return PyObject_TypeCheck(o, &FwkPyGenericIf_Type); }

// A new GifPtr holding `gif` (null stays null); MemoryError on failure.
// Caller holds the interpreter lock.
ZEL_API PyObject* MakeFwkPyGenericIf(Zel::Ptr<Zel::GenericIf const> const& gif);

// A new GifPtr for a counted framework object; null with a Python error
// set on failure.
ZEL_API PyObject* FwkPyObj_FromPtrInterface(Zel::Ptr<Zel::PtrInterface> const& object);

// "O&" converter: None -> null; a GifPtr -> its object (raw, no reference);
// else TypeError "Expected a Zel::PtrInterface or None".
ZEL_API int Convert_To_PtrInterface_Or_Null(PyObject* obj, Zel::PtrInterface** out);

// The object of a GifPtr, raw; no lock, no Python error. `ok` (optional) is
// set true for None, false for a refusal, and left alone on success.
ZEL_API Zel::PtrInterface* FwkPyPtr_PtrInterface(PyObject* obj, bool* ok);

namespace Zel {
// The entity held by a GifPtr, or null (None, not a GifPtr, not an entity).
ZEL_API Entity* pythonEntityToRawPtr(PyObject* obj);
} // namespace Zel
