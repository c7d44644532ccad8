// _Zel.GenericIfIterator: Python iteration over a collection attribute,
// yielding keys, values or (key, value) pairs.
#include <new>
#include <utility>

#include "module/convert/Convert.h"
#include "module/convert/NativeValue.h"
#include "Zel/AttributeIterator.h"

namespace {

enum Mode : unsigned { keys = 0, values = 1, items = 2 };

struct FwkPyGenericIfIterator {
    PyObject_HEAD
    Zel::AttributeIterator it;
    Zel::ZelAttr const* attr;   // the collection's: its key and member types
    int mode;
};

FwkPyGenericIfIterator* iter_(PyObject* o) { return reinterpret_cast<FwkPyGenericIfIterator*>(o); }

// A builtin key or member, converted in place; null (no Python error) when
// `p` is null or `type` not a builtin.
PyObject* builtinToPython(Zel::ZelType const* type, void const* p) {
    PyObject* out = nullptr;
    if (!p || !type) return nullptr;
    Zel::native::visitBuiltin(type, [&](auto tag) {
        out = Zel::native::toPython(*static_cast<typename decltype(tag)::type const*>(p));
        return true;
    });
    return out;
}

// One step over a collection of builtins: the element is converted where
// it lies (the activity lock keeps it there) after the iterator has moved
// past it. False with nothing done when the collection's iterator has no
// such step; at the end, StopIteration.
bool nextBuiltin(Zel::PyLockAnchor& anchor, FwkPyGenericIfIterator* self, PyObject*& result) {
    Zel::ZelType const* keyType = self->attr->indexType();
    Zel::ZelType const* memberType = self->attr->memberType();
    if (!keyType || !keyType->isBuiltinType() || !memberType || !memberType->isBuiltinType()) return false;
    void const* key = nullptr;
    void const* value = nullptr;
    int const stepped = self->it.impl()->nextNative(key, value);
    if (stepped < 0) return false;
    anchor.gilHeldIs(true);
    if (stepped == 0) {
        PyErr_SetNone(PyExc_StopIteration);
        result = nullptr;
        return true;
    }
    switch (self->mode) {
    case keys:
        result = builtinToPython(keyType, key);
        break;
    case values:
        result = builtinToPython(memberType, value);
        break;
    default: {
        Zel::PyRef k(builtinToPython(keyType, key));
        Zel::PyRef v(builtinToPython(memberType, value));
        result = k && v ? PyTuple_Pack(2, k.get(), v.get()) : nullptr;
    }
    }
    return true;
}

PyObject* FwkPyGenericIfIterator_iternext(PyObject* obj) {
    Zel::AttributeIterator& it = iter_(obj)->it;
    int const mode = iter_(obj)->mode;
    try {
        Zel::PyLockAnchor anchor(0);
        Zel::Expect expect(Zel::Exception::idExpectAll);
        PyObject* result = nullptr;
        if (it.impl() && nextBuiltin(anchor, iter_(obj), result)) return result;
        if (!it.impl() || !it.valid()) {
            anchor.gilHeldIs(true);
            PyErr_SetNone(PyExc_StopIteration);
            return nullptr;
        }
        Zel::Ptr<Zel::GenericIf const> key, value;
        if (mode != values) {
            it.checkValid();
            key = it.key();
        }
        if (mode != keys) {
            it.checkValid();
            value = it.value();
        }
        it.advance();
        anchor.gilHeldIs(true);
        switch (mode) {
        case keys:
            return GenericIfToPyObject(key);
        case values:
            return GenericIfToPyObject(value);
        case items: {
            Zel::PyRef k(GenericIfToPyObject(key));
            if (!k) return nullptr;
            Zel::PyRef v(GenericIfToPyObject(value));
            if (!v) return nullptr;
            return Py_BuildValue("(O,O)", k.get(), v.get());
        }
        default:
            zelPyCheckFailed("mode <= items", __FILE__, __LINE__, __PRETTY_FUNCTION__);
        }
    } catch (...) {
        Zel::translateCppExceptionToPython();
    }
    return nullptr;
}

void FwkPyGenericIfIterator_dealloc(PyObject* obj) {
    FwkPyGenericIfIterator* self = iter_(obj);
    try {
        // Dropping the object reference may destroy framework objects,
        // which expects the activity lock.
        Zel::PyLockAnchor anchor(0);
        self->it.reset();
    } catch (...) {
        // The activity lock could not be taken: leak the position rather
        // than drop references unprotected.
        new Zel::AttributeIterator(std::move(self->it));
        Zel::translateCppExceptionToPython();
        PyErr_WriteUnraisable(obj);
    }
    self->it.~AttributeIterator();
    Py_TYPE(obj)->tp_free(obj);
}

} // namespace

PyTypeObject FwkPyGenericIfIterator_Type = [] {
    PyTypeObject t{};
    Py_REFCNT(&t) = 1;
    t.tp_name = "_Zel.GenericIfIterator";
    t.tp_basicsize = sizeof(FwkPyGenericIfIterator);
    t.tp_dealloc = FwkPyGenericIfIterator_dealloc;
    t.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_ITER;
    t.tp_doc = "GenericIfIterator object";
    t.tp_iternext = FwkPyGenericIfIterator_iternext;
    return t;
}();

PyObject* FwkPyGenericIf_attributeIter(PyObject* self, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    int mode = 0;
    if (!PyArg_ParseTuple(args, "O&i:attributeIter", Convert_To_ZelAttr, &attr, &mode)) return nullptr;
    if (static_cast<unsigned>(mode) > items) {
        PyErr_SetString(PyExc_ValueError, "Invalid iterator mode");
        return nullptr;
    }
    return Zel::attributeOperation(attr, [&](Zel::PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        prefix = "error in iter : ";
        Zel::AttributeIterator it = attr->genericIfIterator(Zel::gifOf(self));
        anchor.gilHeldIs(true);
        auto* result = reinterpret_cast<FwkPyGenericIfIterator*>(_PyObject_New(&FwkPyGenericIfIterator_Type));
        if (!result) return nullptr;   // `it` goes while the activity lock is still held
        new (&result->it) Zel::AttributeIterator(std::move(it));
        result->attr = attr;
        result->mode = mode;
        return reinterpret_cast<PyObject*>(result);
    });
}
