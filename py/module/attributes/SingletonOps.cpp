// Singleton (non-collection) attribute methods of _Zel.GifPtr: get, set,
// delete and version of one attribute named by a _Zel.ZelAttr.
#include "module/convert/Convert.h"
#include "module/convert/NativeValue.h"

using Zel::PyLockAnchor;
using Zel::attributeOperation;
using Zel::gifOf;

namespace {

// attributeSingletonIs of a builtin that the value converts to: the value
// is read while this thread still holds the interpreter lock (it cannot
// change: the accepted Python types are immutable) and handed over as a
// C++ value. False, with nothing done, for anything else; the general
// path then converts (and refuses) under the lock anchor.
bool setBuiltin(PyObject* self, Zel::ZelAttr const* attr, PyObject* value, PyObject*& result) {
    return Zel::native::visitBuiltin(attr->memberType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        T v{};
        if (!Zel::native::fromPython(value, v)) {
            PyErr_Clear();
            return false;
        }
        result = attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
            prefix = "error in mutator : ";
            Zel::GenericIf const* object = gifOf(self);
            if (!attr->genericIfSetNative(object, &v)) {
                attr->genericIfSet(object, nullptr, Zel::GenericIfTraits<T>::to(v).ptr());
            }
            anchor.gilHeldIs(true);
            Py_RETURN_NONE;
        });
        return true;
    });
}

PyObject* get(PyObject* self, PyObject* args, bool useDefault) {
    Zel::ZelAttr const* attr = nullptr;
    // Both getters report argument errors under one name.
    if (!Zel::parseAttrArgs(args, "O&:attributeSingleton", attr)) return nullptr;
    return Zel::singletonGet(self, attr, useDefault);
}

} // namespace

PyObject* Zel::singletonGet(PyObject* self, ZelAttr const* attr, bool useDefault) {
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        prefix = "error in accessor : ";
        // A builtin is read straight into a C++ value: no GenericIf.
        PyObject* result = nullptr;
        if (Zel::native::visitBuiltin(attr->memberType(), [&](auto tag) {
                using T = typename decltype(tag)::type;
                T scratch{};
                void const* v = attr->genericIfGetNative(gifOf(self), &scratch);
                if (!v) return false;
                anchor.gilHeldIs(true);
                result = Zel::native::toPython(*static_cast<T const*>(v));
                return true;
            })) {
            return result;
        }
        Zel::Ptr<Zel::GenericIf const> const value = attr->genericIfGet(gifOf(self), nullptr);
        anchor.gilHeldIs(true);
        return GenericIfToPyObjectInternal(value, useDefault);
    });
}

PyObject* FwkPyGenericIf_attributeSingleton(PyObject* self, PyObject* args) { return get(self, args, true); }

PyObject* FwkPyGenericIf_rawAttributeSingleton(PyObject* self, PyObject* args) { return get(self, args, false); }

PyObject* FwkPyGenericIf_attributeSingletonIs(PyObject* self, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    PyObject* value = nullptr;
    if (!Zel::parseAttrArgs(args, "O&O:attributeSingletonIs", attr, value)) return nullptr;
    return Zel::singletonSet(self, attr, value);
}

PyObject* Zel::singletonSet(PyObject* self, ZelAttr const* attr, PyObject* value) {
    PyObject* result = nullptr;
    if (!attr->instantiating() && setBuiltin(self, attr, value, result)) return result;
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
    return Zel::singletonDel(self, attr);
}

PyObject* Zel::singletonDel(PyObject* self, ZelAttr const* attr) {
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
