// _ZelProxy: the small native module of the Zel package's proxies. It
// lives in libZelPy beside _Zel (reachable as _ZelProxy.so, the same file)
// because its descriptors call _Zel's attribute operations directly.
#include "module/core/Module.h"

extern PyTypeObject ZelProxy_SingletonAttr_Type;

namespace {

Zel::compat::ModuleDef definition("_ZelProxy", nullptr, "Native descriptors of the Zel package's proxies");

PyObject* makeModule() {
    // The attribute operations need _Zel's set-up (error table, types).
    Zel::PyRef core(PyImport_ImportModule("_Zel"));
    if (!core) return nullptr;
    if (PyType_Ready(&ZelProxy_SingletonAttr_Type) < 0) return nullptr;
    PyObject* module = definition.create();
    if (!module) return nullptr;
    Py_INCREF(&ZelProxy_SingletonAttr_Type);
    PyModule_AddObject(module, "SingletonAttr", reinterpret_cast<PyObject*>(&ZelProxy_SingletonAttr_Type));
    return module;
}

} // namespace

ZELPY_MODULE_INIT(_ZelProxy, makeModule)
