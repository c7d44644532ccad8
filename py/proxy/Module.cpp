// _ZelProxy: the small native module of the Zel package's proxies. It
// lives in libZelPy beside _Zel (reachable as _ZelProxy.so, the same file)
// because its descriptors call _Zel's attribute operations directly.
#include "proxy/Views.h"

extern PyTypeObject ZelProxy_SingletonAttr_Type;

namespace {

Zel::compat::ModuleDef definition("_ZelProxy", nullptr, "Native descriptors of the Zel package's proxies");

PyObject* makeModule() {
    // The attribute operations need _Zel's set-up (error table, types).
    Zel::PyRef core(PyImport_ImportModule("_Zel"));
    if (!core) return nullptr;
    struct Named {
        char const* name;
        PyTypeObject* type;
    };
    Named const types[] = {{"SingletonAttr", &ZelProxy_SingletonAttr_Type},
                           {"CollectionAttr", &ZelProxy_CollectionAttr_Type},
                           {"CollectionView", &ZelProxy_CollectionView_Type},
                           {"QueueView", &ZelProxy_QueueView_Type},
                           {"ViewIterator", &ZelProxy_ViewIterator_Type}};
    for (Named const& t : types) {
        if (PyType_Ready(t.type) < 0) return nullptr;
    }
    Zel::PyRef module(definition.create());
    if (!module) return nullptr;
    for (Named const& t : types) {
        Py_INCREF(t.type);
        if (PyModule_AddObject(module.get(), t.name, reinterpret_cast<PyObject*>(t.type)) < 0) {
            Py_DECREF(t.type);
            return nullptr;
        }
    }
    return module.release();
}

} // namespace

ZELPY_MODULE_INIT(_ZelProxy, makeModule)
