// _ZelProxy.CollectionAttr: the descriptor behind the Zel package's
// collection and queue attributes (proxy.vlan, proxy.log). Reading it on
// a proxy makes the view (an instance of the view class it was given, with
// the proxy's ptr_ and the attribute) without running Python code, so
// proxy.vlan[k] costs one native attribute fetch and one native subscript.
// Everything else (the class's own attribute, setting, deleting, a proxy
// whose ptr_ slot is empty, an object that is no proxy) is left to the
// Python property it was given, whose behaviour and messages it keeps.
#include "proxy/Views.h"

using Zel::GilHeld;
using Zel::PyResult;
using namespace Zel::proxy;

namespace {

struct CollectionAttr {
    PyObject_HEAD
    PyObject* attr;           // the _Zel.ZelAttr
    PyTypeObject* proxyBase;  // Zel.Object: every proxy derives from it
    Py_ssize_t ptrOffset;     // where proxyBase keeps its ptr_ slot
    PyTypeObject* view;       // Zel.Collection or Zel.Queue
    PyObject* fallback;       // the property doing the same in Python
};

CollectionAttr* self_(PyObject* o) { return reinterpret_cast<CollectionAttr*>(o); }

void uninitialised() { PyErr_SetString(PyExc_TypeError, "CollectionAttr used before its __init__"); }

PyResult descrGet(GilHeld gil, PyObject* self, PyObject* proxy, PyObject* type) {
    CollectionAttr* d = self_(self);
    if (!d->fallback) {
        uninitialised();
        return PyResult::failed();
    }
    PyObject* ptr = proxy && proxy != Py_None && PyObject_TypeCheck(proxy, d->proxyBase)
                        ? *reinterpret_cast<PyObject**>(reinterpret_cast<char*>(proxy) + d->ptrOffset)
                        : nullptr;
    if (!ptr) return PyResult::of(gil, Py_TYPE(d->fallback)->tp_descr_get(d->fallback, proxy, type));
    return newView(gil, d->view, ptr, d->attr);
}

Zel::PyStatus descrSet(GilHeld, PyObject* self, PyObject* proxy, PyObject* value) {
    PyObject* fallback = self_(self)->fallback;
    if (!fallback) {
        uninitialised();
        return Zel::PyStatus::failed();
    }
    bool const done = Py_TYPE(fallback)->tp_descr_set(fallback, proxy, value) == 0;
    return done ? Zel::PyStatus::ok() : Zel::PyStatus::failed();
}

// CollectionAttr(attr, proxyBase, view, fallback)
Zel::PyStatus init(GilHeld gil, PyObject* self, PyObject* args, PyObject* kwds) {
    static char const* keywords[] = {"attr", "proxyBase", "view", "fallback", nullptr};
    PyObject *attr = nullptr, *fallback = nullptr;
    PyTypeObject *base = nullptr, *view = nullptr;
    if (!PyArg_ParseTupleAndKeywords(args, kwds, "O!O!O!O:CollectionAttr", const_cast<char**>(keywords),
                                     &PyZelAttr_Type, &attr, &PyType_Type, &base, &PyType_Type, &view, &fallback)) {
        return Zel::PyStatus::failed();
    }
    if (!PyType_IsSubtype(view, &ZelProxy_CollectionView_Type) && !PyType_IsSubtype(view, &ZelProxy_QueueView_Type)) {
        PyErr_SetString(PyExc_TypeError, "view must derive from _ZelProxy.CollectionView or _ZelProxy.QueueView");
        return Zel::PyStatus::failed();
    }
    if (!Py_TYPE(fallback)->tp_descr_get || !Py_TYPE(fallback)->tp_descr_set) {
        PyErr_SetString(PyExc_TypeError, "fallback must be a data descriptor");
        return Zel::PyStatus::failed();
    }
    Py_ssize_t offset = 0;
    if (!ptrSlotOffset(gil, base, offset)) return Zel::PyStatus::failed();
    CollectionAttr* d = self_(self);
    PyObject* old[] = {d->attr, reinterpret_cast<PyObject*>(d->proxyBase), reinterpret_cast<PyObject*>(d->view),
                       d->fallback};
    Py_INCREF(attr);
    Py_INCREF(base);
    Py_INCREF(view);
    Py_INCREF(fallback);
    d->attr = attr;
    d->proxyBase = base;
    d->view = view;
    d->fallback = fallback;
    d->ptrOffset = offset;
    for (PyObject* o : old) Py_XDECREF(o);
    return Zel::PyStatus::ok();
}

Zel::PyDone dealloc(GilHeld, PyObject* self) {
    CollectionAttr* d = self_(self);
    Py_XDECREF(d->attr);
    Py_XDECREF(reinterpret_cast<PyObject*>(d->proxyBase));
    Py_XDECREF(reinterpret_cast<PyObject*>(d->view));
    Py_XDECREF(d->fallback);
    Py_TYPE(self)->tp_free(self);
    return Zel::PyDone::ok();
}

// The class statement names the attribute; the property's messages carry
// that name (on the interpreters that name descriptors at all).
PyResult setName(GilHeld gil, PyObject* self, PyObject* args) {
    PyObject* fallback = self_(self)->fallback;
    if (!fallback || !PyObject_HasAttrString(fallback, "__set_name__")) return PyResult::none(gil);
    Zel::PyRef method(PyObject_GetAttrString(fallback, "__set_name__"));
    return PyResult::of(gil, method ? PyObject_Call(method.get(), args, nullptr) : nullptr);
}

PyMethodDef methods[] = {
    {"__set_name__", Zel::entry<setName>, METH_VARARGS, "names the attribute, as for a property"},
    {nullptr, nullptr, 0, nullptr},
};

} // namespace

PyTypeObject ZelProxy_CollectionAttr_Type = [] {
    PyTypeObject t = Zel::staticType("_ZelProxy.CollectionAttr", sizeof(CollectionAttr));
    t.tp_dealloc = Zel::entry<dealloc>;
    t.tp_doc = "CollectionAttr(attr, proxyBase, view, fallback): a collection or queue attribute of Zel proxies";
    t.tp_descr_get = Zel::entry<descrGet>;
    t.tp_descr_set = Zel::entry<descrSet>;
    t.tp_init = Zel::entry<init>;
    t.tp_methods = methods;
    t.tp_new = PyType_GenericNew;
    return t;
}();
