// _ZelProxy.ViewIterator and the views' bulk reads: keys(), values(),
// items() and iteration read the collection a batch at a time
// (module/attributes/BatchRead.h), so the activity lock is taken once per
// batch, and GifPtr members are wrapped into proxies once the batch is
// read and the lock let go.
#include <new>

#include "proxy/Views.h"

using Zel::BatchCursor;
using Zel::GilHeld;
using Zel::PyRef;
using Zel::PyResult;

namespace {

enum Mode : int { keys = 0, values = 1, items = 2 };

struct ViewIterator {
    PyObject_HEAD
    BatchCursor cursor;
    PyObject* viewType;   // its _wrap_ wraps GifPtr members
    PyObject* batch;      // the members read and not yet handed out
    Py_ssize_t next;
    PyObject* inner;      // a view that does not go straight to _Zel: what ptr_.attributeIter gave
};

ViewIterator* iter_(PyObject* o) { return reinterpret_cast<ViewIterator*>(o); }

// What the package did to each member: _wrap of a key or value, an item
// made (key, _wrap(value)). Replaces `member`; false with a Python error.
bool wrapMember(GilHeld, PyObject* viewType, int mode, PyObject*& member) {
    bool const pair = mode == items && PyTuple_CheckExact(member) && PyTuple_GET_SIZE(member) == 2;
    PyRef key, value;
    if (mode == items && !pair) {   // only from a view that does not go straight to _Zel
        key = PyRef(PySequence_GetItem(member, 0));
        value = PyRef(key ? PySequence_GetItem(member, 1) : nullptr);
        if (!value) return false;
    }
    PyObject* target = mode != items ? member : pair ? PyTuple_GET_ITEM(member, 1) : value.get();
    PyObject* first = pair ? PyTuple_GET_ITEM(member, 0) : key.get();
    if (Py_TYPE(target) != &FwkPyGenericIf_Type && (mode != items || pair)) return true;
    PyRef proxy;
    if (Py_TYPE(target) == &FwkPyGenericIf_Type) {
        PyRef wrap(PyObject_GetAttrString(viewType, "_wrap_"));
        proxy = PyRef(wrap ? PyObject_CallFunctionObjArgs(wrap.get(), target, nullptr) : nullptr);
        if (!proxy) return false;
    } else {
        Py_INCREF(target);
        proxy = PyRef(target);
    }
    PyObject* replaced = mode == items ? PyTuple_Pack(2, first, proxy.get()) : proxy.release();
    if (!replaced) return false;
    Py_DECREF(member);
    member = replaced;
    return true;
}

// The members of the next batch, wrapped; empty at the end.
PyResult readWrapped(GilHeld gil, BatchCursor& cursor, PyObject* viewType) {
    PyResult batch = Zel::batchRead(gil, cursor);
    if (!batch) return batch;
    PyRef list(batch.raw());
    Zel::ZelType const* keyType = cursor.attr->indexType();
    Zel::ZelType const* memberType = cursor.attr->memberType();
    bool const builtins = keyType && keyType->isBuiltinType() && memberType && memberType->isBuiltinType();
    for (Py_ssize_t i = 0, n = builtins ? 0 : PyList_GET_SIZE(list.get()); i < n; ++i) {
        PyObject* member = PyList_GET_ITEM(list.get(), i);
        Py_INCREF(member);
        if (!wrapMember(gil, viewType, cursor.mode, member)) {
            Py_DECREF(member);
            return PyResult::failed();
        }
        PyList_SetItem(list.get(), i, member);
    }
    return PyResult::of(gil, list.release());
}

PyResult iternext(GilHeld gil, PyObject* obj) {
    ViewIterator* self = iter_(obj);
    if (self->inner) {
        iternextfunc step = Py_TYPE(self->inner)->tp_iternext;
        if (!step) {
            PyErr_Format(PyExc_TypeError, "'%.200s' object is not an iterator", Py_TYPE(self->inner)->tp_name);
            return PyResult::failed();
        }
        PyResult r = PyResult::of(gil, step(self->inner));
        if (!r) return r;
        PyObject* member = r.raw();
        if (!wrapMember(gil, self->viewType, self->cursor.mode, member)) {
            Py_DECREF(member);
            return PyResult::failed();
        }
        return PyResult::of(gil, member);
    }
    while (!self->batch || self->next == PyList_GET_SIZE(self->batch)) {
        if (self->cursor.done) return PyResult::failed();   // the end: no error set
        PyResult batch = readWrapped(gil, self->cursor, self->viewType);
        if (!batch) return batch;
        PyRef fresh(batch.raw());
        if (self->batch && self->next < PyList_GET_SIZE(self->batch)) {
            // Another thread stepping this iterator refilled it while this
            // one read: both batches are handed out.
            if (PyList_SetSlice(self->batch, PY_SSIZE_T_MAX, PY_SSIZE_T_MAX, fresh.get()) < 0) {
                return PyResult::failed();
            }
            continue;
        }
        PyObject* old = self->batch;
        self->batch = fresh.release();
        self->next = 0;
        Py_XDECREF(old);
    }
    PyObject* member = PyList_GET_ITEM(self->batch, self->next++);
    Py_INCREF(member);
    return PyResult::of(gil, member);
}

Zel::PyDone dealloc(GilHeld gil, PyObject* obj) {
    ViewIterator* self = iter_(obj);
    Zel::batchEnd(gil, self->cursor, obj);
    self->cursor.~BatchCursor();
    Py_XDECREF(self->viewType);
    Py_XDECREF(self->batch);
    Py_XDECREF(self->inner);
    Py_TYPE(obj)->tp_free(obj);
    return Zel::PyDone::ok();
}

PyResult self(GilHeld gil, PyObject* obj) {
    Py_INCREF(obj);
    return PyResult::of(gil, obj);
}

} // namespace

PyTypeObject ZelProxy_ViewIterator_Type = [] {
    PyTypeObject t = Zel::staticType("_ZelProxy.ViewIterator", sizeof(ViewIterator));
    t.tp_dealloc = Zel::entry<dealloc>;
    t.tp_flags = Py_TPFLAGS_DEFAULT | Zel::compat::kIteratorFlags;
    t.tp_doc = "An iterator over a Zel collection or queue view, reading a batch of members at a time";
    t.tp_iter = Zel::entry<self>;
    t.tp_iternext = Zel::entry<iternext>;
    return t;
}();

namespace Zel::proxy {

PyResult newIterator(GilHeld gil, PyObject* view, int mode) {
    ZelAttr const* attr = directAttr(view);
    PyResult inner = PyResult::failed();
    if (!attr) {
        inner = callOnPtr(gil, view, "attributeIter", PyRef(compat::intFromLong(mode)).get());
        if (!inner) return inner;
    }
    PyRef innerRef(inner.raw());
    auto* it = reinterpret_cast<ViewIterator*>(_PyObject_New(&ZelProxy_ViewIterator_Type));
    if (!it) return PyResult::failed();
    new (&it->cursor) BatchCursor();
    it->cursor.attr = attr;
    it->cursor.mode = mode;
    it->viewType = reinterpret_cast<PyObject*>(Py_TYPE(view));
    Py_INCREF(it->viewType);
    it->batch = nullptr;
    it->next = 0;
    it->inner = innerRef.release();
    PyRef result(reinterpret_cast<PyObject*>(it));
    if (attr && !batchStart(gil, viewOf(view)->ptr, it->cursor)) return PyResult::failed();
    return PyResult::of(gil, result.release());
}

PyResult bulkList(GilHeld gil, PyObject* view, int mode) {
    PyResult made = newIterator(gil, view, mode);
    if (!made) return made;
    PyRef it(made.raw());
    ViewIterator* self = iter_(it.get());
    if (self->inner) return PyResult::of(gil, PySequence_List(it.get()));
    // A batch at a time, straight into the result.
    PyRef all;
    while (!self->cursor.done) {
        PyResult batch = readWrapped(gil, self->cursor, self->viewType);
        if (!batch) return batch;
        PyRef list(batch.raw());
        if (!all) {
            all = std::move(list);
        } else if (PyList_SetSlice(all.get(), PY_SSIZE_T_MAX, PY_SSIZE_T_MAX, list.get()) < 0) {
            return PyResult::failed();
        }
    }
    if (!all) return PyResult::of(gil, PyList_New(0));
    return PyResult::of(gil, all.release());
}

} // namespace Zel::proxy
