// _ZelProxy.SingletonAttr: the descriptor behind the Zel package's
// attribute syntax for singleton attributes (proxy.mtu, proxy.mtu = 5,
// del proxy.mtu). It goes from the proxy's GifPtr straight to the
// attribute operations of _Zel.GifPtr, so the syntax costs one native
// call instead of a Python getter around a method call; results and
// errors are exactly those of attributeSingleton, attributeSingletonIs
// and attributeSingletonDel.
#include "module/core/Module.h"

#include <structmember.h>   // after Python.h, which Module.h includes

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

PyObject* descrGet(PyObject* self, PyObject* proxy, PyObject*) {
    SingletonAttr* d = self_(self);
    if (!proxy || proxy == Py_None) {   // looked up on the class
        Py_INCREF(self);
        return self;
    }
    PyObject* ptr = gifPtrOf(d, proxy);
    if (!ptr) return nullptr;
    PyObject* r = Zel::singletonGet(ptr, zelAttr(d), true);
    if (!r || Py_TYPE(r) != &FwkPyGenericIf_Type) return r;
    Zel::PyRef handle(r);
    return PyObject_CallFunctionObjArgs(d->wrap, r, nullptr);
}

int descrSet(PyObject* self, PyObject* proxy, PyObject* value) {
    SingletonAttr* d = self_(self);
    PyObject* ptr = gifPtrOf(d, proxy);
    if (!ptr) return -1;
    Zel::PyRef r(value ? Zel::singletonSet(ptr, zelAttr(d), value) : Zel::singletonDel(ptr, zelAttr(d)));
    return r ? 0 : -1;
}

// SingletonAttr(attr, proxyBase, wrap)
int init(PyObject* self, PyObject* args, PyObject* kwds) {
    static char const* keywords[] = {"attr", "proxyBase", "wrap", nullptr};
    PyObject *attr = nullptr, *wrap = nullptr;
    PyTypeObject* base = nullptr;
    if (!PyArg_ParseTupleAndKeywords(args, kwds, "O!O!O:SingletonAttr", const_cast<char**>(keywords), &PyZelAttr_Type,
                                     &attr, &PyType_Type, &base, &wrap)) {
        return -1;
    }
    // The slot's offset, from the member descriptor __slots__ made for it.
    Zel::PyRef slot(PyObject_GetAttrString(reinterpret_cast<PyObject*>(base), "ptr_"));
    if (!slot) return -1;
    if (Py_TYPE(slot.get()) != &PyMemberDescr_Type ||
        reinterpret_cast<PyMemberDescrObject*>(slot.get())->d_member->type != T_OBJECT_EX) {
        PyErr_SetString(PyExc_TypeError, "proxyBase must keep ptr_ in a __slots__ slot");
        return -1;
    }
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
    d->ptrOffset = reinterpret_cast<PyMemberDescrObject*>(slot.get())->d_member->offset;
    return 0;
}

void dealloc(PyObject* self) {
    SingletonAttr* d = self_(self);
    Py_XDECREF(d->attr);
    Py_XDECREF(reinterpret_cast<PyObject*>(d->proxyBase));
    Py_XDECREF(d->wrap);
    Py_TYPE(self)->tp_free(self);
}

PyObject* repr(PyObject* self) {
    SingletonAttr* d = self_(self);
    if (!d->attr) return PyString_FromString("<Zel proxy attribute>");
    return PyString_FromFormat("<Zel proxy attribute %s>", zelAttr(d)->name());
}

} // namespace

PyTypeObject ZelProxy_SingletonAttr_Type = [] {
    PyTypeObject t{};
    Py_REFCNT(&t) = 1;
    t.tp_name = "_ZelProxy.SingletonAttr";
    t.tp_basicsize = sizeof(SingletonAttr);
    t.tp_dealloc = dealloc;
    t.tp_repr = repr;
    t.tp_flags = Py_TPFLAGS_DEFAULT;
    t.tp_doc = "SingletonAttr(attr, proxyBase, wrap): a singleton attribute of Zel proxies";
    t.tp_descr_get = descrGet;
    t.tp_descr_set = descrSet;
    t.tp_init = init;
    t.tp_new = PyType_GenericNew;
    return t;
}();
