// Framework value -> Python object: scalars and strings for builtins and the
// string-like values, enumerator names, the default attribute where a type
// uses it for accessors, else a GifPtr handle.
#include "module/convert/Convert.h"

#include <cstdint>

#include "module/mapping/Mapping.h"
#include "support/PyCompatFrames.h"
#include "module/convert/NativeValue.h"
#include "Zel/Builtin.h"
#include "Zel/Values.h"

using namespace Zel;
using Zel::PyGenericIf::DefaultAttributeData;
using Zel::PyGenericIf::FwkPyGenericIfMapping;
using Zel::PyGenericIf::TypeAttributeIdKey;

namespace {

PyObject* fromBuiltin(GilHeld gil, GenericIf const& g) {
    PyObject* result = nullptr;
    if (native::visitBuiltin(g.type(), [&](auto tag) {
            using T = typename decltype(tag)::type;
            result = native::toPython(gil, *static_cast<T const*>(g.valuePtr()));
            return true;
        })) {
        return result;
    }
    PyErr_SetString(PyExc_TypeError, "Returning an unimplemented builtin type");
    return nullptr;
}

PyObject* stringAttr(GilHeld gil, GenericIf const& g, char const* name) {
    Ptr<GenericIf const> v = g.type()->attr(name)->genericIfGet(&g, nullptr);
    return native::toPython(gil, *v->attrValPtr<String8>());
}

// The globals that a repr-style default attribute is evaluated in: those of
// the caller's caller, as the value is normally read two frames below the
// user's code; with a shallower stack the current frame's, then __main__'s.
PyRef reprGlobals(GilHeld) {
    if (PyObject* f = reinterpret_cast<PyObject*>(PyEval_GetFrame())) {   // borrowed
        PyRef back = compat::frameBack(f);
        PyRef backBack = back ? compat::frameBack(back.get()) : PyRef();
        return compat::frameGlobals(backBack ? backBack.get() : f);
    }
    PyObject* main = PyImport_AddModule("__main__");   // borrowed
    return compat::owned(main ? PyModule_GetDict(main) : nullptr);
}

PyObject* evalRepr(GilHeld gil, String8 const& text) {
    PyRef globals = reprGlobals(gil);
    if (!globals) return nullptr;
    PyObject* locals = PyEval_GetLocals();
    return PyRun_StringFlags(text.c_str(), Py_eval_input, globals.get(), locals ? locals : globals.get(), nullptr);
}

} // namespace

namespace {

PyObject* pyValue(GilHeld gil, Ptr<GenericIf const> const& g, bool useDefault) {
    if (!g) Py_RETURN_NONE;
    ZelType const* t = g->type();
    if (t->hasOwnPtrInterface() && !g->valuePtr()) Py_RETURN_NONE;
    if (t->isBuiltinType()) return fromBuiltin(gil, *g);
    if (t == &EntityUri::_zelType || t == &EntityUriPath::_zelType) return stringAttr(gil, *g, "str");
    if (t == &Name::_zelType) return stringAttr(gil, *g, "value");
    if (t->isEnumType()) {
        int32_t v = *static_cast<int32_t const*>(g->valuePtr());
        if (Ptr<PyObjHandle> h = FwkPyGenericIfMapping::global()->attributeData(TypeAttributeIdKey(t, v))) {
            PyObject* name = h->pyObject();
            Py_INCREF(name);
            return name;
        }
        return compat::textFormat("%s(%d)", t->name(), static_cast<int>(v));
    }
    FwkPyGenericIfMapping* mapping = FwkPyGenericIfMapping::global();
    DefaultAttributeData d = mapping->defaultAttributeData(t);
    if (!d.valid) {
        PyErr_SetString(PyExc_TypeError, d.errorMessage.c_str());
        return nullptr;
    }
    if (!useDefault || !d.defaultType || !d.defaultAttributeUsedForAccessor) return gifPtr(gil, g).raw();
    if (d.defaultId == 0) {
        // Resolved by name once per type.
        ZelAttr const* byName = d.defaultAttr ? t->attr(d.defaultAttr->name()) : nullptr;
        if (!byName) return gifPtr(gil, g).raw();
        d.defaultId = byName->attributeId();
        mapping->defaultAttributeDataIs(t, d);
    }
    ZelAttr const* attr = t->attr(d.defaultId);
    if (!attr) return gifPtr(gil, g).raw();
    Ptr<GenericIf const> value = attr->genericIfGet(g.ptr(), nullptr);
    if (d.usePythonRepr) return evalRepr(gil, *value->attrValPtr<String8>());
    return Zel::toPython(gil, value).raw();
}

} // namespace

PyResult Zel::toPython(GilHeld gil, Ptr<GenericIf const> const& value, bool useDefault) {
    return PyResult::of(gil, pyValue(gil, value, useDefault));
}

PyObject* GenericIfToPyObjectInternal(Ptr<GenericIf const> const& g, bool useDefault) {
    return pyValue(NativeCallerGil::held(), g, useDefault);
}

PyObject* GenericIfToPyObject(Ptr<GenericIf const> const& g) {
    // Its own reference: the conversion may run Python code (a repr-style
    // default), which may drop the caller's.
    Ptr<GenericIf const> held(g);
    return pyValue(NativeCallerGil::held(), held, true);
}
