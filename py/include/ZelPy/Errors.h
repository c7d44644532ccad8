// Turning framework exceptions into pending Python exceptions.
#pragma once

#include <Python.h>

#include "Zel/Exception.h"
#include "Zel/ZelType.h"
#include "Zel/Visibility.h"

namespace Zel {

// Call only inside a catch block: rethrows the exception being handled,
// classifies it and leaves the matching Python exception pending. Takes the
// interpreter lock itself, so it is safe with or without it held.
ZEL_API void translateCppExceptionToPython();

// PyErr_SetString under PyGILState_Ensure, for code that may run without
// the interpreter lock.
ZEL_API void GilPyErr_SetString(PyObject* type, char const* text);

} // namespace Zel

// Raises `type` for `e`: the instance is made from `args` when given, else
// from the message; e's backtrace, if any, becomes its "backtrace"
// attribute. Caller holds the interpreter lock.
ZEL_API void PyErr_SetBacktrace(PyObject* type, Zel::Exception const& e, PyObject* args);

// Kind(\"message\"), the kind being e's demangled dynamic type name.
ZEL_API Zel::String8 exceptionString(Zel::Exception const& e);

// "Type.attr": the owning type's name, "." and the attribute's name; stops
// at the first missing name.
ZEL_API Zel::String8 GenericIf_TypeAttributeString(Zel::ZelAttr const* attr);

// Inside a catch block of an attribute operation: prefixes e's message
// with the attribute and `text`, then translates (rethrowing e itself).
ZEL_API void updateException(Zel::Exception* e, Zel::ZelAttr const* attr, char const* text);

// Throws TypeException "expected T, got P: repr" for a Python value that
// does not fit `expected`. Interpreter lock held.
[[noreturn]] ZEL_API void GenericIf_TypeExceptionThrow(PyObject* passed, Zel::ZelType const* expected);

// The name used for a Python value in refusal messages: a GifPtr's
// framework type name, else the Python type's name.
ZEL_API char const* typeNameFromPyObject(PyObject* obj);

// Fetches and clears the pending Python error, storing str() of its type,
// value and traceback; a part that is missing or does not give a byte
// string leaves its out-string alone (same-process command execution
// reports with it). Caller holds the interpreter lock.
ZEL_API void GetStringsFromPyErr(Zel::String8* type, Zel::String8* value, Zel::String8* traceback);
