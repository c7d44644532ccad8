// Conversions between Python values and framework values, and argument
// tuples. Implemented in ToFramework.cpp, ArgTuples.cpp and ToPython.cpp.
//
// The module's own code calls the forms in namespace Zel, which ask for
// the proof that the interpreter lock is held (GilHeld); the exported
// forms below them are for native callers (tests, fuzz targets, tools)
// and take the lock themselves or hold it by their contract.
#pragma once

#include <vector>

#include "module/core/Module.h"

namespace Zel {

// Python value -> framework value of `type`: a thrown framework exception,
// or a null result with a Python TypeError set, is a refusal.
Ptr<GenericIf const> toFramework(GilHeld gil, PyObject* obj, ZelType const* type);
// Its refusal as a Python error: false when `converted` is null with the
// Python error set (a null value is legitimate for handles).
inline bool converted(GilHeld, Ptr<GenericIf const> const& value) { return value || !PyErr_Occurred(); }

// toFramework from a native phase, which takes the interpreter lock back
// for it; `ok` false for a refusal with the Python error pending.
inline Ptr<GenericIf const> toFramework(NativePhase& phase, PyObject* obj, ZelType const* type, bool& ok) {
    return phase.withGil([&](GilHeld gil) {
        Ptr<GenericIf const> value = toFramework(gil, obj, type);
        ok = converted(gil, value);
        return value;
    });
}

// Framework value -> Python value: scalars and strings for builtins and
// string-like values, enumerator names, the default attribute (unless
// `useDefault` is false), else a GifPtr.
PyResult toPython(GilHeld gil, Ptr<GenericIf const> const& value, bool useDefault = true);

// Python tuple -> argument vector for the attribute's instantiating or
// call parameters, without the instantiating key when `skipOne`.
ArgVector argumentsFromTuple(GilHeld gil, PyObject* args, ZelAttr const* attr, bool skipOne);
// The tuple's element at `position` as a value of `type`; a refusal's
// message names the (constructor) parameter.
Ptr<GenericIf const> argumentFromTuple(GilHeld gil, ZelType const* type, PyObject* tuple, unsigned position,
                                       bool isConstructor);

} // namespace Zel

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
