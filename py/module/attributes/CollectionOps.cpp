// Collection attribute methods of _Zel.GifPtr: keyed look-ups, existence,
// set, delete, add, remove and count.
#include "module/convert/Convert.h"
#include "module/convert/NativeValue.h"

using Zel::GenericIf;
using Zel::Ptr;
using Zel::PyLockAnchor;
using Zel::ZelAttr;
using Zel::attributeOperation;
using Zel::gifOf;

namespace {

// The key as the attribute's index type; a null result with `ok` false
// means a Python error is pending and the interpreter lock is held.
Ptr<GenericIf const> convertKey(PyLockAnchor& anchor, char const*& prefix, ZelAttr const* attr, PyObject* key,
                               bool& ok) {
    prefix = "index type : ";
    Ptr<GenericIf const> converted = PyObjectToGenericIf(key, attr->indexType());
    ok = conversionSucceeded(anchor, converted);
    return converted;
}

// A missing key is reported as Python's KeyError carrying the very key
// object, as a dict would.
PyObject* raiseKeyError(PyLockAnchor& anchor, PyObject* key) {
    anchor.gilHeldIs(true);
    Zel::PyRef args(PyTuple_Pack(1, key));
    if (args) PyErr_SetObject(PyExc_KeyError, args.get());
    return nullptr;
}

// A look-up of a builtin member by a builtin key, without a GenericIf for
// either: the key is read while the interpreter lock is still held (the
// accepted Python types are immutable), the member converted straight from
// the collection before the activity lock is let go. False, with nothing
// left behind, when the key does not convert or the attribute has no
// direct path; the general path then does (and refuses) it all.
bool lookupBuiltin(PyObject* self, ZelAttr const* attr, PyObject* key, bool valueLookup, PyObject*& result) {
    Zel::ZelType const* memberType = attr->memberType();
    if (!memberType || !memberType->isBuiltinType()) return false;
    // A direct value look-up refuses a missing key its own way: leave
    // that to the general path.
    bool const keyErrorWhenMissing = !(valueLookup && attr->directLookup());
    return Zel::native::visitBuiltin(attr->indexType(), [&](auto tag) {
        typename decltype(tag)::type k{};
        if (!Zel::native::fromPython(key, k)) {
            PyErr_Clear();
            return false;
        }
        bool direct = true;
        result = attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
            prefix = keyErrorWhenMissing ? "iterkey : " : "error in accessor : ";
            void const* member = nullptr;
            if (!attr->genericIfLookupNative(gifOf(self), &k, member) || (!member && !keyErrorWhenMissing)) {
                direct = false;
                return nullptr;
            }
            if (!member) return raiseKeyError(anchor, key);
            anchor.gilHeldIs(true);
            PyObject* out = nullptr;
            Zel::native::visitBuiltin(memberType, [&](auto vtag) {
                out = Zel::native::toPython(*static_cast<typename decltype(vtag)::type const*>(member));
                return true;
            });
            return out;
        });
        return direct;
    });
}

PyObject* lookup(PyObject* self, PyObject* args, bool useDefault, bool valueLookup) {
    ZelAttr const* attr = nullptr;
    PyObject* key = nullptr;
    // All four look-ups share this name in their argument errors.
    if (!Zel::parseAttrArgs(args, "O&O:attributeCollection", attr, key)) return nullptr;
    PyObject* result = nullptr;
    if (lookupBuiltin(self, attr, key, valueLookup, result)) return result;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        bool ok = false;
        Ptr<GenericIf const> const k = convertKey(anchor, prefix, attr, key, ok);
        if (!ok) return nullptr;
        Ptr<GenericIf const> value;
        if (valueLookup && attr->directLookup()) {
            prefix = "error in accessor : ";
            value = attr->genericIfGet(gifOf(self), k.ptr());
        } else {
            prefix = "iterkey : ";
            Zel::AttributeIterator it = attr->genericIfIteratorKey(gifOf(self), k.ptr());
            if (!it.valid()) return raiseKeyError(anchor, key);
            prefix = "error in accessor : ";
            if (valueLookup) {
                it.checkValid();
                value = it.value();
            } else {
                value = attr->genericIfGet(gifOf(self), k.ptr());
            }
        }
        anchor.gilHeldIs(true);
        return GenericIfToPyObjectInternal(value, useDefault);
    });
}

// Set, add and remove give back the element the framework made or took.
PyObject* elementOrNone(Ptr<GenericIf const> const& element) {
    if (!element) Py_RETURN_NONE;
    return GenericIfToPyObject(element);
}

} // namespace

PyObject* FwkPyGenericIf_attributeCollection(PyObject* self, PyObject* args) { return lookup(self, args, true, false); }

PyObject* FwkPyGenericIf_rawAttributeCollection(PyObject* self, PyObject* args) {
    return lookup(self, args, false, false);
}

PyObject* FwkPyGenericIf_attributeCollectionVal(PyObject* self, PyObject* args) {
    return lookup(self, args, true, true);
}

PyObject* FwkPyGenericIf_attributeCollectionExist(PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    PyObject* key = nullptr;
    if (!Zel::parseAttrArgs(args, "O&O:attributeCollection", attr, key)) return nullptr;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        bool ok = false;
        Ptr<GenericIf const> const k = convertKey(anchor, prefix, attr, key, ok);
        if (!ok) return nullptr;
        prefix = "error in accessor : ";
        bool const exists = attr->genericIfExist(gifOf(self), k.ptr());
        anchor.gilHeldIs(true);
        return PyBool_FromLong(exists);
    });
}

PyObject* FwkPyGenericIf_attributeCollectionIs(PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    if (!PyArg_ParseTuple(args, "O&OO:attributeCollectionIs", Convert_To_ZelAttr, &attr, &key, &value)) {
        return nullptr;
    }
    // A collection keyed by a field of its elements takes the key from the
    // element; a separate key could only contradict it. Descriptors are
    // immutable, so this needs no lock.
    char const* indexName = attr->internalIndexName();
    bool const internalKey = indexName && attr->memberType() && attr->memberType()->attr(indexName);
    if (internalKey && key != Py_None) {
        Zel::String8 text = GenericIf_TypeAttributeString(attr);
        text += ": index type : expected None for the index type, got: ";
        text += typeNameFromPyObject(key);
        PyErr_SetString(PyExc_AttributeError, text.c_str());
        return nullptr;
    }
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        if (attr->instantiating()) {
            Zel::ArgVector const arguments = PyTupleToGenericIfVector(value, attr, false);
            prefix = "error in mutator : ";
            Ptr<GenericIf const> const created = attr->genericIfSet(gifOf(self), arguments);
            anchor.gilHeldIs(true);
            return elementOrNone(created);
        }
        Ptr<GenericIf const> k;
        if (!internalKey) {
            bool ok = false;
            k = convertKey(anchor, prefix, attr, key, ok);
            if (!ok) return nullptr;
        }
        prefix = "";
        Ptr<GenericIf const> const converted = PyObjectToGenericIf(value, attr->memberType());
        if (!conversionSucceeded(anchor, converted)) return nullptr;
        prefix = "error in mutator : ";
        attr->genericIfSet(gifOf(self), k.ptr(), converted.ptr());
        anchor.gilHeldIs(true);
        Py_RETURN_NONE;
    });
}

PyObject* FwkPyGenericIf_attributeCollectionDel(PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    PyObject* key = nullptr;
    if (!PyArg_ParseTuple(args, "O&O:attributeCollectionDel", Convert_To_ZelAttr, &attr, &key)) return nullptr;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        bool ok = false;
        Ptr<GenericIf const> const k = convertKey(anchor, prefix, attr, key, ok);
        if (!ok) return nullptr;
        prefix = "error in del : ";
        attr->genericIfDel(gifOf(self), k.ptr());
        anchor.gilHeldIs(true);
        Py_RETURN_NONE;
    });
}

PyObject* FwkPyGenericIf_attributeAdd(PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    PyObject* value = nullptr;
    if (!PyArg_ParseTuple(args, "O&O:attributeAdd", Convert_To_ZelAttr, &attr, &value)) return nullptr;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        if (attr->instantiating()) {
            // The framework supplies the argument at the attribute's own
            // recorded position (the automatic key).
            Zel::ArgVector const arguments = PyTupleToGenericIfVector(value, attr, true);
            prefix = "error in mutator : ";
            Ptr<GenericIf const> const added = attr->genericIfAdd(gifOf(self), arguments);
            anchor.gilHeldIs(true);
            return elementOrNone(added);
        }
        Ptr<GenericIf const> const converted = PyObjectToGenericIf(value, attr->memberType());
        if (!conversionSucceeded(anchor, converted)) return nullptr;
        prefix = "error in mutator : ";
        attr->genericIfAdd(gifOf(self), converted.ptr());
        anchor.gilHeldIs(true);
        Py_RETURN_NONE;
    });
}

PyObject* FwkPyGenericIf_attributeRemove(PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    if (!PyArg_ParseTuple(args, "O&:attributeRemove", Convert_To_ZelAttr, &attr)) return nullptr;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        prefix = "error in del : ";
        Ptr<GenericIf const> const removed = attr->genericIfRemove(gifOf(self));
        anchor.gilHeldIs(true);
        return elementOrNone(removed);
    });
}

PyObject* FwkPyGenericIf_attributeMembers(PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    if (!PyArg_ParseTuple(args, "O&:attributeMembers", Convert_To_ZelAttr, &attr)) return nullptr;
    return attributeOperation(attr, [&](PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        prefix = "error in members : ";
        uint64_t const count = attr->genericIfMembers(gifOf(self));
        anchor.gilHeldIs(true);
        return PyLong_FromUnsignedLong(count);
    });
}
