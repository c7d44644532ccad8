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

using Zel::EntryPoint;
using Zel::GilHeld;
using Zel::NativePhase;
using Zel::PyDone;
using Zel::PyResult;

// A builtin key or member, converted in place; null (no Python error) when
// `p` is null or `type` not a builtin.
PyObject* builtinToPython(GilHeld gil, Zel::ZelType const* type, void const* p) {
    PyObject* out = nullptr;
    if (!p || !type) return nullptr;
    Zel::native::visitBuiltin(type, [&](auto tag) {
        out = Zel::native::toPython(gil, *static_cast<typename decltype(tag)::type const*>(p));
        return true;
    });
    return out;
}

PyResult stopIteration(NativePhase& phase) {
    return phase.finish([](GilHeld) {
        PyErr_SetNone(PyExc_StopIteration);
        return PyResult::failed();
    });
}

// One step over a collection of builtins: the element is converted where
// it lies (the activity lock keeps it there) after the iterator has moved
// past it. False with nothing done when the collection's iterator has no
// such step; at the end, StopIteration.
bool nextBuiltin(NativePhase& phase, FwkPyGenericIfIterator* self, PyResult& result) {
    Zel::ZelType const* keyType = self->attr->indexType();
    Zel::ZelType const* memberType = self->attr->memberType();
    if (!keyType || !keyType->isBuiltinType() || !memberType || !memberType->isBuiltinType()) return false;
    void const* key = nullptr;
    void const* value = nullptr;
    int const stepped = self->it.impl()->nextNative(key, value);
    if (stepped < 0) return false;
    if (stepped == 0) {
        result = stopIteration(phase);
        return true;
    }
    result = phase.finish([&](GilHeld gil) {
        switch (self->mode) {
        case keys:
            return PyResult::of(gil, builtinToPython(gil, keyType, key));
        case values:
            return PyResult::of(gil, builtinToPython(gil, memberType, value));
        default: {
            Zel::PyRef k(builtinToPython(gil, keyType, key));
            Zel::PyRef v(builtinToPython(gil, memberType, value));
            return PyResult::of(gil, k && v ? PyTuple_Pack(2, k.get(), v.get()) : nullptr);
        }
        }
    });
    return true;
}

PyResult iternext(GilHeld gil, PyObject* obj) {
    Zel::AttributeIterator& it = iter_(obj)->it;
    int const mode = iter_(obj)->mode;
    return EntryPoint::run(gil, Zel::Activity{}, [&](NativePhase& phase) {
        PyResult result = PyResult::failed();
        if (it.impl() && nextBuiltin(phase, iter_(obj), result)) return result;
        if (!it.impl() || !it.valid()) return stopIteration(phase);
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
        return phase.finish([&](GilHeld held) {
            switch (mode) {
            case keys:
                return Zel::toPython(held, key);
            case values:
                return Zel::toPython(held, value);
            case items: {
                PyResult k = Zel::toPython(held, key);
                if (!k) return k;
                Zel::PyRef kRef(k.raw());
                PyResult v = Zel::toPython(held, value);
                if (!v) return v;
                Zel::PyRef vRef(v.raw());
                return PyResult::of(held, Py_BuildValue("(O,O)", kRef.get(), vRef.get()));
            }
            default:
                zelPyCheckFailed("mode <= items", __FILE__, __LINE__, __PRETTY_FUNCTION__);
            }
        });
    });
}

PyDone dealloc(GilHeld gil, PyObject* obj) {
    FwkPyGenericIfIterator* self = iter_(obj);
    // Dropping the object reference may destroy framework objects, which
    // expects the activity lock.
    if (!EntryPoint::run(gil, Zel::Activity{0, {}}, [&](NativePhase&) {
            self->it.reset();
            return Zel::PyStatus::ok();
        })) {
        // The activity lock could not be taken: leak the position rather
        // than drop references unprotected.
        new Zel::AttributeIterator(std::move(self->it));
        PyErr_WriteUnraisable(obj);
    }
    self->it.~AttributeIterator();
    Py_TYPE(obj)->tp_free(obj);
    return PyDone::ok();
}

} // namespace

PyTypeObject FwkPyGenericIfIterator_Type = [] {
    PyTypeObject t = Zel::staticType("_Zel.GenericIfIterator", sizeof(FwkPyGenericIfIterator));
    t.tp_dealloc = Zel::entry<dealloc>;
    t.tp_flags = Py_TPFLAGS_DEFAULT | Zel::compat::kIteratorFlags;
    t.tp_doc = "GenericIfIterator object";
    t.tp_iternext = Zel::entry<iternext>;
    return t;
}();

static PyResult attributeIter(GilHeld gil, PyObject* self, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    int mode = 0;
    if (!PyArg_ParseTuple(args, "O&i:attributeIter", Convert_To_ZelAttr, &attr, &mode)) return PyResult::failed();
    if (static_cast<unsigned>(mode) > items) {
        PyErr_SetString(PyExc_ValueError, "Invalid iterator mode");
        return PyResult::failed();
    }
    return EntryPoint::run(gil, Zel::Attribute{attr}, [&](Zel::AttributePhase& phase) {
        phase.stageIs("error in iter : ");
        Zel::AttributeIterator it = attr->genericIfIterator(Zel::gifOf(self));
        return phase.finish([&](GilHeld held) {
            auto* result = reinterpret_cast<FwkPyGenericIfIterator*>(_PyObject_New(&FwkPyGenericIfIterator_Type));
            if (!result) return PyResult::failed();   // `it` goes while the activity lock is still held
            new (&result->it) Zel::AttributeIterator(std::move(it));
            result->attr = attr;
            result->mode = mode;
            return PyResult::of(held, reinterpret_cast<PyObject*>(result));
        });
    });
}

// The methods of _Zel.GifPtr: defined beside their bodies, which the
// wrapper inlines.
PyObject* FwkPyGenericIf_attributeIter(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeIter>(self, args); }
