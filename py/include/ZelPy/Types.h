// _Zel.ZelType and _Zel.ZelAttr: one cached read-only wrapper per
// framework descriptor.
#pragma once

#include <Python.h>

#include "Zel/ZelType.h"
#include "Zel/Visibility.h"

struct PyZelType {
    PyObject_HEAD
    Zel::ZelType const* type;
};

struct PyZelAttr {
    PyObject_HEAD
    Zel::ZelAttr const* attr;
};

ZEL_API extern PyTypeObject PyZelType_Type;
ZEL_API extern PyTypeObject PyZelAttr_Type;

// New reference: None for null, else the descriptor's one wrapper.
ZEL_API PyObject* PyZelType_FromZelType(Zel::ZelType const* type);
ZEL_API PyObject* PyZelAttr_FromZelAttr(Zel::ZelAttr const* attr);

// "O&" converters; TypeError "Expected a _Zel.ZelType" / "Expected a _Zel.ZelAttr".
ZEL_API int Convert_To_ZelType(PyObject* obj, Zel::ZelType const** out);
ZEL_API int Convert_To_ZelAttr(PyObject* obj, Zel::ZelAttr const** out);

// Ordering of attribute descriptors by id.
ZEL_API bool compareZelAttrsById(Zel::ZelAttr const* a, Zel::ZelAttr const* b);
