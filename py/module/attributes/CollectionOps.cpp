// Collection attribute methods of _Zel.GifPtr: keyed look-ups, existence,
// set, delete, add, remove and count.
#include "module/convert/Convert.h"
#include "module/convert/NativeValue.h"

using Zel::Attribute;
using Zel::AttributePhase;
using Zel::EntryPoint;
using Zel::GenericIf;
using Zel::GilHeld;
using Zel::Ptr;
using Zel::PyResult;
using Zel::ZelAttr;
using Zel::gifOf;

namespace {

// The key as the attribute's index type; `ok` false means the conversion
// was refused with a Python error pending.
Ptr<GenericIf const> convertKey(AttributePhase& phase, ZelAttr const* attr, PyObject* key, bool& ok) {
    phase.stageIs("index type : ");
    return Zel::toFramework(phase, key, attr->indexType(), ok);
}

// A missing key is reported as Python's KeyError carrying the very key
// object, as a dict would.
PyResult raiseKeyError(AttributePhase& phase, PyObject* key) {
    return phase.finish([&](GilHeld) {
        Zel::PyRef args(PyTuple_Pack(1, key));
        if (args) PyErr_SetObject(PyExc_KeyError, args.get());
        return PyResult::failed();
    });
}

// A look-up of a builtin member by a builtin key, without a GenericIf for
// either: the key is read while the interpreter lock is still held (the
// accepted Python types are immutable), the member converted straight from
// the collection before the activity lock is let go. False, with nothing
// left behind, when the key does not convert or the attribute has no
// direct path; the general path then does (and refuses) it all.
bool lookupBuiltin(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* key, bool valueLookup,
                   Zel::ReadLock lock, PyResult& result) {
    Zel::ZelType const* memberType = attr->memberType();
    if (!memberType || !memberType->isBuiltinType()) return false;
    // A direct value look-up refuses a missing key its own way: leave
    // that to the general path.
    bool const keyErrorWhenMissing = !(valueLookup && attr->directLookup());
    return Zel::native::visitBuiltin(attr->indexType(), [&](auto tag) {
        typename decltype(tag)::type k{};
        if (!Zel::native::fromPython(gil, key, k)) {
            PyErr_Clear();
            return false;
        }
        bool direct = true;
        result = EntryPoint::run(gil, Attribute{attr, "", lock == Zel::ReadLock::tryFirst}, [&](AttributePhase& phase) {
            phase.stageIs(keyErrorWhenMissing ? "iterkey : " : "error in accessor : ");
            void const* member = nullptr;
            if (!attr->genericIfLookupNative(gifOf(self), &k, member) || (!member && !keyErrorWhenMissing)) {
                direct = false;
                return PyResult::failed();
            }
            if (!member) return raiseKeyError(phase, key);
            return phase.finish([&](GilHeld held) {
                PyObject* out = nullptr;
                Zel::native::visitBuiltin(memberType, [&](auto vtag) {
                    out = Zel::native::toPython(held, *static_cast<typename decltype(vtag)::type const*>(member));
                    return true;
                });
                return PyResult::of(held, out);
            });
        });
        return direct;
    });
}

PyResult lookup(GilHeld gil, PyObject* self, PyObject* args, bool useDefault, bool valueLookup) {
    ZelAttr const* attr = nullptr;
    PyObject* key = nullptr;
    // All four look-ups share this name in their argument errors.
    if (!Zel::parseAttrArgs(gil, args, "O&O:attributeCollection", attr, key)) return PyResult::failed();
    return Zel::collectionLookup(gil, self, attr, key, useDefault, valueLookup);
}

} // namespace

PyResult Zel::collectionLookup(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* key, bool useDefault,
                               bool valueLookup, ReadLock lock) {
    PyResult result = PyResult::failed();
    if (lookupBuiltin(gil, self, attr, key, valueLookup, lock, result)) return result;
    return EntryPoint::run(gil, Attribute{attr, "", lock == ReadLock::tryFirst}, [&](AttributePhase& phase) {
        bool ok = false;
        Ptr<GenericIf const> const k = convertKey(phase, attr, key, ok);
        if (!ok) return PyResult::failed();
        Ptr<GenericIf const> value;
        if (valueLookup && attr->directLookup()) {
            phase.stageIs("error in accessor : ");
            value = attr->genericIfGet(gifOf(self), k.ptr());
        } else {
            phase.stageIs("iterkey : ");
            Zel::AttributeIterator it = attr->genericIfIteratorKey(gifOf(self), k.ptr());
            if (!it.valid()) return raiseKeyError(phase, key);
            phase.stageIs("error in accessor : ");
            if (valueLookup) {
                it.checkValid();
                value = it.value();
            } else {
                value = attr->genericIfGet(gifOf(self), k.ptr());
            }
        }
        return phase.finish([&](GilHeld held) { return Zel::toPython(held, value, useDefault); });
    });
}

namespace {

// Set, add and remove give back the element the framework made or took.
PyResult elementOrNone(AttributePhase& phase, Ptr<GenericIf const> const& element) {
    return phase.finish([&](GilHeld held) {
        if (!element) return PyResult::none(held);
        return Zel::toPython(held, element);
    });
}

PyResult none(AttributePhase& phase) {
    return phase.finish([](GilHeld held) { return PyResult::none(held); });
}

} // namespace

static PyResult attributeCollection(GilHeld gil, PyObject* self, PyObject* args) {
    return lookup(gil, self, args, true, false);
}

static PyResult rawAttributeCollection(GilHeld gil, PyObject* self, PyObject* args) {
    return lookup(gil, self, args, false, false);
}

static PyResult attributeCollectionVal(GilHeld gil, PyObject* self, PyObject* args) {
    return lookup(gil, self, args, true, true);
}

static PyResult attributeCollectionExist(GilHeld gil, PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    PyObject* key = nullptr;
    if (!Zel::parseAttrArgs(gil, args, "O&O:attributeCollection", attr, key)) return PyResult::failed();
    return Zel::collectionExist(gil, self, attr, key);
}

PyResult Zel::collectionExist(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* key, ReadLock lock) {
    return EntryPoint::run(gil, Attribute{attr, "", lock == ReadLock::tryFirst}, [&](AttributePhase& phase) {
        bool ok = false;
        Ptr<GenericIf const> const k = convertKey(phase, attr, key, ok);
        if (!ok) return PyResult::failed();
        phase.stageIs("error in accessor : ");
        bool const exists = attr->genericIfExist(gifOf(self), k.ptr());
        return phase.finish([&](GilHeld held) { return PyResult::of(held, PyBool_FromLong(exists)); });
    });
}

static PyResult attributeCollectionIs(GilHeld gil, PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    if (!PyArg_ParseTuple(args, "O&OO:attributeCollectionIs", Convert_To_ZelAttr, &attr, &key, &value)) {
        return PyResult::failed();
    }
    return Zel::collectionSet(gil, self, attr, key, value);
}

PyResult Zel::collectionSet(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* key, PyObject* value) {
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
        return PyResult::failed();
    }
    return EntryPoint::run(gil, Attribute{attr}, [&](AttributePhase& phase) {
        if (attr->instantiating()) {
            Zel::ArgVector const arguments =
                phase.withGil([&](GilHeld held) { return Zel::argumentsFromTuple(held, value, attr, false); });
            phase.stageIs("error in mutator : ");
            Ptr<GenericIf const> const created = attr->genericIfSet(gifOf(self), arguments);
            return elementOrNone(phase, created);
        }
        Ptr<GenericIf const> k;
        bool ok = true;
        if (!internalKey) {
            k = convertKey(phase, attr, key, ok);
            if (!ok) return PyResult::failed();
        }
        phase.stageIs("");
        Ptr<GenericIf const> const v = Zel::toFramework(phase, value, attr->memberType(), ok);
        if (!ok) return PyResult::failed();
        phase.stageIs("error in mutator : ");
        attr->genericIfSet(gifOf(self), k.ptr(), v.ptr());
        return none(phase);
    });
}

static PyResult attributeCollectionDel(GilHeld gil, PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    PyObject* key = nullptr;
    if (!PyArg_ParseTuple(args, "O&O:attributeCollectionDel", Convert_To_ZelAttr, &attr, &key)) {
        return PyResult::failed();
    }
    return Zel::collectionDel(gil, self, attr, key);
}

PyResult Zel::collectionDel(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* key) {
    return EntryPoint::run(gil, Attribute{attr}, [&](AttributePhase& phase) {
        bool ok = false;
        Ptr<GenericIf const> const k = convertKey(phase, attr, key, ok);
        if (!ok) return PyResult::failed();
        phase.stageIs("error in del : ");
        attr->genericIfDel(gifOf(self), k.ptr());
        return none(phase);
    });
}

static PyResult attributeAdd(GilHeld gil, PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    PyObject* value = nullptr;
    if (!PyArg_ParseTuple(args, "O&O:attributeAdd", Convert_To_ZelAttr, &attr, &value)) return PyResult::failed();
    return Zel::collectionAdd(gil, self, attr, value);
}

PyResult Zel::collectionAdd(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* value) {
    return EntryPoint::run(gil, Attribute{attr}, [&](AttributePhase& phase) {
        if (attr->instantiating()) {
            // The framework supplies the argument at the attribute's own
            // recorded position (the automatic key).
            Zel::ArgVector const arguments =
                phase.withGil([&](GilHeld held) { return Zel::argumentsFromTuple(held, value, attr, true); });
            phase.stageIs("error in mutator : ");
            Ptr<GenericIf const> const added = attr->genericIfAdd(gifOf(self), arguments);
            return elementOrNone(phase, added);
        }
        bool ok = true;
        Ptr<GenericIf const> const v = Zel::toFramework(phase, value, attr->memberType(), ok);
        if (!ok) return PyResult::failed();
        phase.stageIs("error in mutator : ");
        attr->genericIfAdd(gifOf(self), v.ptr());
        return none(phase);
    });
}

static PyResult attributeRemove(GilHeld gil, PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    if (!PyArg_ParseTuple(args, "O&:attributeRemove", Convert_To_ZelAttr, &attr)) return PyResult::failed();
    return Zel::collectionRemove(gil, self, attr);
}

PyResult Zel::collectionRemove(GilHeld gil, PyObject* self, ZelAttr const* attr) {
    return EntryPoint::run(gil, Attribute{attr}, [&](AttributePhase& phase) {
        phase.stageIs("error in del : ");
        Ptr<GenericIf const> const removed = attr->genericIfRemove(gifOf(self));
        return elementOrNone(phase, removed);
    });
}

static PyResult attributeMembers(GilHeld gil, PyObject* self, PyObject* args) {
    ZelAttr const* attr = nullptr;
    if (!PyArg_ParseTuple(args, "O&:attributeMembers", Convert_To_ZelAttr, &attr)) return PyResult::failed();
    return Zel::collectionMembers(gil, self, attr);
}

PyResult Zel::collectionMembers(GilHeld gil, PyObject* self, ZelAttr const* attr, ReadLock lock) {
    return EntryPoint::run(gil, Attribute{attr, "", lock == ReadLock::tryFirst}, [&](AttributePhase& phase) {
        phase.stageIs("error in members : ");
        uint64_t const count = attr->genericIfMembers(gifOf(self));
        return phase.finish([&](GilHeld held) { return PyResult::of(held, PyLong_FromUnsignedLong(count)); });
    });
}

// The methods of _Zel.GifPtr: defined beside their bodies, which the
// wrapper inlines.
PyObject* FwkPyGenericIf_attributeCollection(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeCollection>(self, args); }
PyObject* FwkPyGenericIf_rawAttributeCollection(PyObject* self, PyObject* args) noexcept { return Zel::entry<rawAttributeCollection>(self, args); }
PyObject* FwkPyGenericIf_attributeCollectionVal(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeCollectionVal>(self, args); }
PyObject* FwkPyGenericIf_attributeCollectionExist(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeCollectionExist>(self, args); }
PyObject* FwkPyGenericIf_attributeCollectionIs(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeCollectionIs>(self, args); }
PyObject* FwkPyGenericIf_attributeCollectionDel(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeCollectionDel>(self, args); }
PyObject* FwkPyGenericIf_attributeAdd(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeAdd>(self, args); }
PyObject* FwkPyGenericIf_attributeRemove(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeRemove>(self, args); }
PyObject* FwkPyGenericIf_attributeMembers(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeMembers>(self, args); }
