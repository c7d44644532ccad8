// Conversions between Python values and framework values, and argument
// tuples. Implemented in ToFramework.cpp, ArgTuples.cpp and ToPython.cpp.
#pragma once

#include <vector>

#include "module/core/Module.h"

// Python value -> framework value of `type`. The unsafe form needs the
// interpreter lock; the safe form takes it itself (PyGILState_Ensure), so
// the attribute operations call it while their anchor holds the activity
// lock. Failures: a thrown framework exception, or a null result with a
// Python TypeError set (callers test PyErr_Occurred after a null result).
ZEL_API Zel::Ptr<Zel::GenericIf const> PyObjectToGenericIf_unsafe(PyObject* obj, Zel::ZelType const* type);
ZEL_API Zel::Ptr<Zel::GenericIf const> PyObjectToGenericIf(PyObject* obj, Zel::ZelType const* type);

// Whether repr() of `obj` stays within `items` items of builtin containers
// (lists, tuples, dicts, sets), counted as repr() meets them (an item held
// twice counts twice), nested at most `depth` containers deep. Interpreter
// lock held.
bool reprWithin(PyObject* obj, size_t items, size_t depth);

// Framework value -> new Python reference (null with a Python error set).
// Needs the interpreter lock.
ZEL_API PyObject* GenericIfToPyObjectInternal(Zel::Ptr<Zel::GenericIf const> const& g, bool useDefault);
ZEL_API PyObject* GenericIfToPyObject(Zel::Ptr<Zel::GenericIf const> const& g);
ZEL_API PyObject* FwkPy_String_FromString(Zel::String8 const& s);

// Python tuple -> argument vector for the attribute's instantiating or call
// parameters; takes the interpreter lock itself.
ZEL_API Zel::ArgVector PyTupleToGenericIfVector(PyObject* args, Zel::ZelAttr const* attr, bool skipOne);
// The attribute's parameter types (all of them, in order) once a call
// through PyTupleToGenericIfVector has resolved them; null before.
// Interpreter lock held.
std::vector<Zel::ZelType const*> const* cachedParameterTypes(Zel::ZelAttr const* attr);
// One parameter; needs the interpreter lock.
ZEL_API Zel::Ptr<Zel::GenericIf const> PyTupleToGenericIfVector_helper(Zel::ZelType const* type, PyObject* tuple,
                                                                       unsigned position, bool isConstructor);
