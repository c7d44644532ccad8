// _Zel.GenericIfIterator: Python iteration over a collection attribute,
// yielding keys, values or (key, value) pairs.
#include <new>
#include <utility>

#include "Convert.h"
#include "NativeValue.h"
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

// One step over a collection of builtins, converting the current element
// where it lies (the activity lock keeps it there) before moving on. False
// with nothing done when the element is not reachable that way.
bool nextBuiltin(Zel::PyLockAnchor& anchor, FwkPyGenericIfIterator* self, PyObject*& result) {
    Zel::AttrIteratorImpl const* impl = self->it.impl();
    Zel::ZelType const* keyType = self->attr->indexType();
    Zel::ZelType const* memberType = self->attr->memberType();
    bool const wantKey = self->mode != values, wantValue = self->mode != keys;
    if ((wantKey && !(keyType && keyType->isBuiltinType())) ||
        (wantValue && !(memberType && memberType->isBuiltinType()))) {
        return false;
    }
    void const* key = wantKey ? impl->keyNative() : nullptr;
    void const* value = wantValue ? impl->valueNative() : nullptr;
    if ((wantKey && !key) || (wantValue && !value)) return false;
    anchor.gilHeldIs(true);
    Zel::PyRef k(builtinToPython(keyType, key));
    Zel::PyRef v(builtinToPython(memberType, value));
    if ((wantKey && !k) || (wantValue && !v)) {
        result = nullptr;   // the conversion's Python error is pending
        return true;
    }
    // Moving on while holding the interpreter lock is safe: the activity
    // lock is already ours, so nothing here waits for it.
    self->it.advance();
    switch (self->mode) {
    case keys:
        result = k.release();
        break;
    case values:
        result = v.release();
        break;
    default:
        result = PyTuple_Pack(2, k.get(), v.get());
    }
    return true;
}

PyObject* FwkPyGenericIfIterator_iternext(PyObject* obj) {
    Zel::AttributeIterator& it = iter_(obj)->it;
    int const mode = iter_(obj)->mode;
    try {
        Zel::PyLockAnchor anchor(0);
        Zel::Expect expect(Zel::Exception::idExpectAll);
        if (!it.impl() || !it.valid()) {
            anchor.gilHeldIs(true);
            PyErr_SetNone(PyExc_StopIteration);
            return nullptr;
        }
        PyObject* result = nullptr;
        if (nextBuiltin(anchor, iter_(obj), result)) return result;
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
