// The parts _ZelProxy's collection and queue views share (Views.h).
#include "proxy/Views.h"

#include <structmember.h>   // after Python.h, which Module.h includes

#include <cstddef>

namespace Zel::proxy {

PyResult callOnPtr(GilHeld gil, PyObject* self, char const* method, PyObject* arg, PyObject* arg2) {
    PyRef ptr(PyObject_GetAttrString(self, "ptr_"));
    if (!ptr) return PyResult::failed();
    PyRef bound(PyObject_GetAttrString(ptr.get(), method));
    if (!bound) return PyResult::failed();
    PyRef attr(PyObject_GetAttrString(self, "attr_"));
    if (!attr) return PyResult::failed();
    return PyResult::of(gil, PyObject_CallFunctionObjArgs(bound.get(), attr.get(), arg, arg2, nullptr));
}

PyResult wrapped(GilHeld gil, PyObject* self, PyResult r) {
    if (!r || Py_TYPE(r.raw()) != &FwkPyGenericIf_Type) return r;
    PyRef handle(r.raw());
    PyRef wrap(PyObject_GetAttrString(reinterpret_cast<PyObject*>(Py_TYPE(self)), "_wrap_"));
    if (!wrap) return PyResult::failed();
    return PyResult::of(gil, PyObject_CallFunctionObjArgs(wrap.get(), handle.get(), nullptr));
}

PyCount<Py_ssize_t> lengthOf(GilHeld gil, PyResult count) {
    if (!count) return PyCount<Py_ssize_t>::failed();
    PyRef held(count.raw());
    PyRef asInt(PyNumber_Long(held.get()));
    if (!asInt) return PyCount<Py_ssize_t>::failed();
    Py_ssize_t const n = PyNumber_AsSsize_t(asInt.get(), PyExc_OverflowError);
    if (n == -1 && PyErr_Occurred()) return PyCount<Py_ssize_t>::failed();
    if (n < 0) {
        PyErr_SetString(PyExc_ValueError, "__len__() should return >= 0");
        return PyCount<Py_ssize_t>::failed();
    }
    return PyCount<Py_ssize_t>::of(gil, n);
}

PyResult newView(GilHeld gil, PyTypeObject* type, PyObject* ptr, PyObject* attr) {
    PyObject* o = type->tp_alloc(type, 0);
    if (!o) return PyResult::failed();
    Py_INCREF(ptr);
    Py_INCREF(attr);
    viewOf(o)->ptr = ptr;
    viewOf(o)->attr = attr;
    return PyResult::of(gil, o);
}

PyDone deallocView(GilHeld, PyObject* self) {
    View* v = viewOf(self);
    Py_CLEAR(v->ptr);
    Py_CLEAR(v->attr);
    Py_TYPE(self)->tp_free(self);
    return PyDone::ok();
}

PyMemberDef viewMembers[] = {
    {const_cast<char*>("ptr_"), T_OBJECT_EX, offsetof(View, ptr), 0, nullptr},
    {const_cast<char*>("attr_"), T_OBJECT_EX, offsetof(View, attr), 0, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

bool ptrSlotOffset(GilHeld, PyTypeObject* base, Py_ssize_t& offset) {
    // The slot's offset, from the member descriptor __slots__ made for it.
    PyRef slot(PyObject_GetAttrString(reinterpret_cast<PyObject*>(base), "ptr_"));
    if (!slot) return false;
    if (Py_TYPE(slot.get()) != &PyMemberDescr_Type ||
        reinterpret_cast<PyMemberDescrObject*>(slot.get())->d_member->type != T_OBJECT_EX) {
        PyErr_SetString(PyExc_TypeError, "proxyBase must keep ptr_ in a __slots__ slot");
        return false;
    }
    offset = reinterpret_cast<PyMemberDescrObject*>(slot.get())->d_member->offset;
    return true;
}

} // namespace Zel::proxy
