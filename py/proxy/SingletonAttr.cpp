// _ZelProxy.SingletonAttr: the descriptor behind the Zel package's
// attribute syntax for singleton attributes (proxy.mtu, proxy.mtu = 5,
// del proxy.mtu). It goes from the proxy's GifPtr straight to the
// attribute operations of _Zel.GifPtr, so the syntax costs one native
// call instead of a Python getter around a method call; results and
// errors are exactly those of attributeSingleton, attributeSingletonIs
// and attributeSingletonDel.
#include "proxy/Views.h"

using Zel::GilHeld;
using Zel::PyResult;

namespace {

struct SingletonAttr {
    PyObject_HEAD
    PyObject* attr;           // the _Zel.ZelAttr
    PyTypeObject* proxyBase;  // Zel.Object: every proxy derives from it
    Py_ssize_t ptrOffset;     // where proxyBase keeps its ptr_ slot
    PyObject* wrap;           // GifPtr result -> proxy
};

SingletonAttr* self_(PyObject* o) { return reinterpret_cast<SingletonAttr*>(o); }
Zel::ZelAttr const* zelAttr(SingletonAttr* d) { return reinterpret_cast<PyZelAttr*>(d->attr)->attr; }

// The GifPtr of a proxy, borrowed; null with a Python error set.
PyObject* gifPtrOf(SingletonAttr* d, PyObject* proxy) {
    if (!PyObject_TypeCheck(proxy, d->proxyBase)) {
        PyErr_Format(PyExc_TypeError, "attribute %s applies to Zel proxies, not to %.200s", zelAttr(d)->name(),
                     Py_TYPE(proxy)->tp_name);
        return nullptr;
    }
    PyObject* ptr = *reinterpret_cast<PyObject**>(reinterpret_cast<char*>(proxy) + d->ptrOffset);
    if (!ptr) {
        PyErr_SetString(PyExc_AttributeError, "ptr_");
        return nullptr;
    }
    if (!FwkPyGenericIf_Check(ptr)) {
        PyErr_Format(PyExc_TypeError, "ptr_ of a Zel proxy must be a _Zel.GifPtr, not %.200s", Py_TYPE(ptr)->tp_name);
        return nullptr;
    }
    return ptr;
}

PyResult descrGet(GilHeld gil, PyObject* self, PyObject* proxy, PyObject*) {
    SingletonAttr* d = self_(self);
    if (!proxy || proxy == Py_None) {   // looked up on the class
        Py_INCREF(self);
        return PyResult::of(gil, self);
    }
    PyObject* ptr = gifPtrOf(d, proxy);
    if (!ptr) return PyResult::failed();
    PyResult r = Zel::singletonGet(gil, ptr, zelAttr(d), true, Zel::ReadLock::tryFirst);
    if (!r || Py_TYPE(r.raw()) != &FwkPyGenericIf_Type) return r;
    // Called once the activity lock is let go: wrap is Python code.
    Zel::PyRef handle(r.raw());
    return PyResult::of(gil, PyObject_CallFunctionObjArgs(d->wrap, handle.get(), nullptr));
}

Zel::PyStatus descrSet(GilHeld gil, PyObject* self, PyObject* proxy, PyObject* value) {
    SingletonAttr* d = self_(self);
    PyObject* ptr = gifPtrOf(d, proxy);
    if (!ptr) return Zel::PyStatus::failed();
    Zel::PyRef r(value ? Zel::singletonSet(gil, ptr, zelAttr(d), value).raw()
                       : Zel::singletonDel(gil, ptr, zelAttr(d)).raw());
    return r ? Zel::PyStatus::ok() : Zel::PyStatus::failed();
}

// SingletonAttr(attr, proxyBase, wrap)
Zel::PyStatus init(GilHeld gil, PyObject* self, PyObject* args, PyObject* kwds) {
    static char const* keywords[] = {"attr", "proxyBase", "wrap", nullptr};
    PyObject *attr = nullptr, *wrap = nullptr;
    PyTypeObject* base = nullptr;
    if (!PyArg_ParseTupleAndKeywords(args, kwds, "O!O!O:SingletonAttr", const_cast<char**>(keywords), &PyZelAttr_Type,
                                     &attr, &PyType_Type, &base, &wrap)) {
        return Zel::PyStatus::failed();
    }
    Py_ssize_t offset = 0;
    if (!Zel::proxy::ptrSlotOffset(gil, base, offset)) return Zel::PyStatus::failed();
    SingletonAttr* d = self_(self);
    Py_INCREF(attr);
    Py_INCREF(base);
    Py_INCREF(wrap);
    Py_XDECREF(d->attr);
    Py_XDECREF(reinterpret_cast<PyObject*>(d->proxyBase));
    Py_XDECREF(d->wrap);
    d->attr = attr;
    d->proxyBase = base;
    d->wrap = wrap;
    d->ptrOffset = offset;
    return Zel::PyStatus::ok();
}

Zel::PyDone dealloc(GilHeld, PyObject* self) {
    SingletonAttr* d = self_(self);
    Py_XDECREF(d->attr);
    Py_XDECREF(reinterpret_cast<PyObject*>(d->proxyBase));
    Py_XDECREF(d->wrap);
    Py_TYPE(self)->tp_free(self);
    return Zel::PyDone::ok();
}

PyResult repr(GilHeld gil, PyObject* self) {
    SingletonAttr* d = self_(self);
    if (!d->attr) return PyResult::of(gil, Zel::compat::text("<Zel proxy attribute>"));
    return PyResult::of(gil, Zel::compat::textFormat("<Zel proxy attribute %s>", zelAttr(d)->name()));
}

} // namespace

PyTypeObject ZelProxy_SingletonAttr_Type = [] {
    PyTypeObject t = Zel::staticType("_ZelProxy.SingletonAttr", sizeof(SingletonAttr));
    t.tp_dealloc = Zel::entry<dealloc>;
    t.tp_repr = Zel::entry<repr>;
    t.tp_doc = "SingletonAttr(attr, proxyBase, wrap): a singleton attribute of Zel proxies";
    t.tp_descr_get = Zel::entry<descrGet>;
    t.tp_descr_set = Zel::entry<descrSet>;
    t.tp_init = Zel::entry<init>;
    t.tp_new = PyType_GenericNew;
    return t;
}();
