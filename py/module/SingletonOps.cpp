// Singleton (non-collection) attribute methods of _Zel.GifPtr: get, set,
// delete and version of one attribute named by a _Zel.ZelAttr.
#include "Convert.h"

using Zel::PyLockAnchor;
using Zel::attributeOperation;
using Zel::gifOf;

namespace {

PyObject* get(PyObject* self, PyObject* args, bool useDefault) {
    Zel::ZelAttr const* attr = nullptr;
    // Both getters report argument errors under one name.
    if (!PyArg_ParseTuple(args, "O&:attributeSingleton", Convert_To_ZelAttr, &attr)) return nullptr;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        prefix = "error in accessor : ";
        Zel::Ptr<Zel::GenericIf const> const value = attr->genericIfGet(gifOf(self), nullptr);
        anchor.gilHeldIs(true);
        return GenericIfToPyObjectInternal(value, useDefault);
    });
}

} // namespace

PyObject* FwkPyGenericIf_attributeSingleton(PyObject* self, PyObject* args) { return get(self, args, true); }

PyObject* FwkPyGenericIf_rawAttributeSingleton(PyObject* self, PyObject* args) { return get(self, args, false); }

PyObject* FwkPyGenericIf_attributeSingletonIs(PyObject* self, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    PyObject* value = nullptr;
    if (!PyArg_ParseTuple(args, "O&O:attributeSingletonIs", Convert_To_ZelAttr, &attr, &value)) return nullptr;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        if (attr->instantiating()) {
            Zel::ArgVector const arguments = PyTupleToGenericIfVector(value, attr, false);
            prefix = "error in mutator : ";
            attr->genericIfSet(gifOf(self), arguments);
        } else {
            Zel::Ptr<Zel::GenericIf const> const converted = PyObjectToGenericIf(value, attr->memberType());
            if (!conversionSucceeded(anchor, converted)) return nullptr;
            prefix = "error in mutator : ";
            attr->genericIfSet(gifOf(self), nullptr, converted.ptr());
        }
        anchor.gilHeldIs(true);
        Py_RETURN_NONE;
    });
}

PyObject* FwkPyGenericIf_attributeSingletonDel(PyObject* self, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    if (!PyArg_ParseTuple(args, "O&:attributeSingletonDel", Convert_To_ZelAttr, &attr)) return nullptr;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        prefix = "error in del : ";
        attr->genericIfDel(gifOf(self), nullptr);
        anchor.gilHeldIs(true);
        Py_RETURN_NONE;
    });
}

PyObject* FwkPyGenericIf_attributeVersion(PyObject* self, PyObject* arg) {
    Zel::ZelAttr const* attr = nullptr;
    if (!Convert_To_ZelAttr(arg, &attr)) return nullptr;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        prefix = "error in version : ";
        uint64_t const version = attr->genericIfVersion(gifOf(self));
        anchor.gilHeldIs(true);
        return PyLong_FromUnsignedLong(version);
    });
}
