// _Zel.ZelType and _Zel.ZelAttr: read-only wrappers of the framework's
// immutable type and attribute descriptors, one per descriptor.
#include <cstdint>
#include <map>

#include "module/core/Module.h"
#include "Zel/Exception.h"

using Zel::EntryPoint;
using Zel::GilHeld;
using Zel::PyResult;

namespace {

// Descriptor -> its wrapper; each entry owns one reference, so wrappers
// live for the process. Touched only under the interpreter lock.
std::map<Zel::ZelType const*, PyObject*> typeCache;
std::map<Zel::ZelAttr const*, PyObject*> attrCache;

template <class Wrapper, class Desc>
PyObject* cachedWrapper(GilHeld, std::map<Desc const*, PyObject*>& cache, PyTypeObject* type, Desc const* desc,
                        Desc const* Wrapper::*field) {
    if (!desc) Py_RETURN_NONE;
    auto it = cache.find(desc);
    if (it != cache.end()) {
        Py_INCREF(it->second);
        return it->second;
    }
    Wrapper* w = reinterpret_cast<Wrapper*>(_PyObject_New(type));
    if (!w) return nullptr;
    w->*field = desc;
    PyObject* obj = reinterpret_cast<PyObject*>(w);
    try {
        cache.emplace(desc, obj);
    } catch (...) {
        Py_DECREF(obj);
        return PyErr_NoMemory();
    }
    Py_INCREF(obj);
    return obj;
}

Zel::ZelType const* typeOf(PyObject* o) { return reinterpret_cast<PyZelType*>(o)->type; }
Zel::ZelAttr const* attrOf(PyObject* o) { return reinterpret_cast<PyZelAttr*>(o)->attr; }

PyResult internedOrNone(GilHeld gil, char const* s) {
    if (!s) return PyResult::none(gil);
    return PyResult::of(gil, Zel::compat::interned(s));
}

// A tuple of the names (or type names) of a null-ended argument list.
PyResult argTuple(GilHeld gil, Zel::ArgDesc const* args, unsigned count, bool typeNames) {
    Zel::PyRef tuple(PyTuple_New(count));
    if (!tuple) return PyResult::failed();
    for (unsigned i = 0; i < count; ++i) {
        char const* s = args && args[i].name ? (typeNames ? args[i].typeName : args[i].name) : "";
        PyObject* item = Zel::compat::interned(s);
        if (!item) return PyResult::failed();
        PyTuple_SET_ITEM(tuple.get(), i, item);
    }
    return PyResult::of(gil, tuple.release());
}

// The member type's attribute that keys the collection, if any.
Zel::ZelAttr const* internalIndexAttr(Zel::ZelAttr const* a) {
    if (!a->internalIndexName() || !a->memberType()) return nullptr;
    return a->memberType()->attr(a->internalIndexName());
}

// --- _Zel.ZelType -------------------------------------------------------------

PyResult typeRepr(GilHeld gil, PyObject* self) {
    return PyResult::of(gil, Zel::compat::textFormat("type('%s')", typeOf(self)->name()));
}

PyResult isDerived(GilHeld gil, PyObject* self, PyObject* args) {
    Zel::ZelType const* other = nullptr;
    if (!PyArg_ParseTuple(args, "O&:isDerived", Convert_To_ZelType, &other)) return PyResult::failed();
    return PyResult::of(gil, PyBool_FromLong(typeOf(self)->isDerived(other)));
}

PyResult attr(GilHeld gil, PyObject* self, PyObject* args) {
    PyObject* key = nullptr;
    if (!PyArg_ParseTuple(args, "O:attr", &key)) return PyResult::failed();
    Zel::ZelType const* t = typeOf(self);
    // Exact types only: a bool is not an attribute id, a unicode (on 2.7)
    // not a name.
    if (Zel::compat::isExactText(key)) {
        Zel::compat::StringBytes name(key);
        if (!name) return PyResult::failed();
        return Zel::attrObject(gil, t->attr(name.data()));
    }
    long id;
    if (Zel::compat::isExactSmallInt(key)) {
        id = Zel::compat::smallIntValue(key);
    } else if (PyLong_CheckExact(key)) {
        id = PyLong_AsLong(key);
        if (id == -1 && PyErr_Occurred()) return PyResult::failed();
    } else {
        PyErr_SetString(PyExc_TypeError, "Expected a str, int or long");
        return PyResult::failed();
    }
    return Zel::attrObject(gil, t->attr(static_cast<Zel::AttributeId>(id)));
}

PyResult fullTypeName(GilHeld gil, PyObject* self, void*) {
    return PyResult::of(gil, Zel::compat::interned(typeOf(self)->name()));
}
PyResult size(GilHeld gil, PyObject* self, void*) {
    return PyResult::of(gil, PyLong_FromUnsignedLong(typeOf(self)->size()));
}
PyResult baseType(GilHeld gil, PyObject* self, void*) { return Zel::typeObject(gil, typeOf(self)->baseType()); }

PyResult attrAtPosition(GilHeld gil, Zel::ZelType const* t, uint8_t pos) {
    if (pos == Zel::ZelType::kNoPosition) return PyResult::none(gil);
    return Zel::attrObject(gil, &t->attrs()[pos]);
}
PyResult valAttr(GilHeld gil, PyObject* self, void*) {
    return attrAtPosition(gil, typeOf(self), typeOf(self)->valAttrPosition());
}
PyResult defaultCollection(GilHeld gil, PyObject* self, void*) {
    return attrAtPosition(gil, typeOf(self), typeOf(self)->defaultCollectionPosition());
}

// The closure is the flag's bit.
PyResult typeFlag(GilHeld gil, PyObject* self, void* bit) {
    return PyResult::of(gil, PyBool_FromLong((typeOf(self)->flags() & reinterpret_cast<uintptr_t>(bit)) != 0));
}

PyResult attributeQ(GilHeld gil, PyObject* self, void*) {
    Zel::ZelType const* t = typeOf(self);
    Zel::PyRef tuple(PyTuple_New(t->attrCount()));
    if (!tuple) return PyResult::failed();
    for (uint16_t i = 0; i < t->attrCount(); ++i) {
        PyResult w = Zel::attrObject(gil, &t->attrs()[i]);
        if (!w) return w;
        PyTuple_SET_ITEM(tuple.get(), i, w.raw());
    }
    return PyResult::of(gil, tuple.release());
}

PyResult constructorArgNameQ(GilHeld gil, PyObject* self, void*) {
    return argTuple(gil, typeOf(self)->constructorArgs(), typeOf(self)->constructorArgNames(), false);
}
PyResult constructorArgTypeQ(GilHeld gil, PyObject* self, void*) {
    return argTuple(gil, typeOf(self)->constructorArgs(), typeOf(self)->constructorArgNames(), true);
}

void* bit(uint32_t b) { return reinterpret_cast<void*>(static_cast<uintptr_t>(b)); }

#define ZELPY_GETTER(name, fn, doc, closure) \
    {const_cast<char*>(name), Zel::entry<fn>, nullptr, const_cast<char*>(doc), closure}
#define ZELPY_TYPE_FLAG(name) ZELPY_GETTER(#name, typeFlag, #name, bit(Zel::ZelType::name##_))

PyGetSetDef PyZelType_getset[] = {
    ZELPY_GETTER("fullTypeName", fullTypeName, "full type name", nullptr),
    ZELPY_GETTER("size", size, "size (in bytes)", nullptr),
    ZELPY_GETTER("baseType", baseType, "base type", nullptr),
    ZELPY_GETTER("valAttr", valAttr, "valAttr", nullptr),
    ZELPY_GETTER("defaultCollection", defaultCollection, "default collection", nullptr),
    ZELPY_TYPE_FLAG(isValue),
    ZELPY_TYPE_FLAG(isEntity),
    ZELPY_TYPE_FLAG(isConstrainer),
    ZELPY_TYPE_FLAG(isBuiltinType),
    ZELPY_TYPE_FLAG(isEnumType),
    ZELPY_TYPE_FLAG(isBitSetType),
    ZELPY_TYPE_FLAG(hasOwnPtrInterface),
    ZELPY_TYPE_FLAG(hasAttrLogSupport),
    ZELPY_TYPE_FLAG(isStreamAdapter),
    ZELPY_GETTER("attributeQ", attributeQ, "attribute queue", nullptr),
    ZELPY_GETTER("constructorArgNameQ", constructorArgNameQ, "constructor arg name queue", nullptr),
    ZELPY_GETTER("constructorArgTypeQ", constructorArgTypeQ, "constructor arg type queue", nullptr),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef PyZelType_methods[] = {
    {"isDerived", Zel::entry<isDerived>, METH_VARARGS, "is type in my chain of base types?"},
    {"attr", Zel::entry<attr>, METH_VARARGS, "retrieve an attribute by name or ID"},
    {nullptr, nullptr, 0, nullptr},
};

// --- _Zel.ZelAttr -------------------------------------------------------------

PyResult attrRepr(GilHeld gil, PyObject* self) {
    Zel::ZelAttr const* a = attrOf(self);
    return PyResult::of(gil, Zel::compat::textFormat("type('%s').attr('%s')", a->scope()->name(), a->name()));
}

PyResult name(GilHeld gil, PyObject* self, void*) {
    return PyResult::of(gil, Zel::compat::interned(attrOf(self)->name()));
}
PyResult attributeId(GilHeld gil, PyObject* self, void*) {
    return PyResult::of(gil, Zel::compat::intFromLong(attrOf(self)->attributeId()));
}
PyResult scope(GilHeld gil, PyObject* self, void*) { return Zel::typeObject(gil, attrOf(self)->scope()); }
PyResult memberType(GilHeld gil, PyObject* self, void*) { return Zel::typeObject(gil, attrOf(self)->memberType()); }
PyResult indexType(GilHeld gil, PyObject* self, void*) { return Zel::typeObject(gil, attrOf(self)->indexType()); }
PyResult indexAttr(GilHeld gil, PyObject* self, void*) {
    return Zel::attrObject(gil, internalIndexAttr(attrOf(self)));
}

PyResult instantiatingIndexPosition(GilHeld gil, PyObject* self, void*) {
    int8_t const pos = attrOf(self)->instantiatingIndexPosition();
    if (pos == -1) return PyResult::none(gil);
    return PyResult::of(gil, Zel::compat::intFromLong(pos));
}

PyResult attrFlag(GilHeld gil, PyObject* self, void* bit) {
    return PyResult::of(gil, PyBool_FromLong((attrOf(self)->flags() & reinterpret_cast<uintptr_t>(bit)) != 0));
}

PyResult hasInternalIndex(GilHeld gil, PyObject* self, void*) {
    return PyResult::of(gil, PyBool_FromLong(internalIndexAttr(attrOf(self)) != nullptr));
}

PyResult internalIndexName(GilHeld gil, PyObject* self, void*) {
    Zel::ZelAttr const* index = internalIndexAttr(attrOf(self));
    return internedOrNone(gil, index ? index->name() : nullptr);
}

PyResult instantiatingArgNameQ(GilHeld gil, PyObject* self, void*) {
    return argTuple(gil, attrOf(self)->instantiatingArgs(), attrOf(self)->instantiatingArgNames(), false);
}
PyResult instantiatingArgTypeQ(GilHeld gil, PyObject* self, void*) {
    return argTuple(gil, attrOf(self)->instantiatingArgs(), attrOf(self)->instantiatingArgNames(), true);
}

#define ZELPY_ATTR_FLAG(name) ZELPY_GETTER(#name, attrFlag, #name, bit(Zel::ZelAttr::name##_))

PyGetSetDef PyZelAttr_getset[] = {
    ZELPY_GETTER("name", name, "attribute name", nullptr),
    ZELPY_GETTER("attributeId", attributeId, "attribute ID", nullptr),
    ZELPY_GETTER("scope", scope, "scope", nullptr),
    ZELPY_GETTER("memberType", memberType, "member type", nullptr),
    ZELPY_GETTER("indexType", indexType, "index type", nullptr),
    ZELPY_GETTER("indexAttr", indexAttr, "indexAttr", nullptr),
    ZELPY_GETTER("instantiatingIndexPosition", instantiatingIndexPosition,
                 "instantiatingIndexPosition", nullptr),
    ZELPY_ATTR_FLAG(isCollection),
    ZELPY_ATTR_FLAG(isQueueCollection),
    ZELPY_ATTR_FLAG(isStackCollection),
    ZELPY_ATTR_FLAG(isStatic),
    ZELPY_ATTR_FLAG(isFunction),
    ZELPY_ATTR_FLAG(isPtr),
    ZELPY_ATTR_FLAG(isDynArray),
    ZELPY_ATTR_FLAG(isEnumConst),
    ZELPY_ATTR_FLAG(instantiating),
    ZELPY_ATTR_FLAG(isDeferredInstantiating),
    ZELPY_ATTR_FLAG(anonymous),
    ZELPY_ATTR_FLAG(isIndependentDomainAttr),
    ZELPY_ATTR_FLAG(readable),
    ZELPY_ATTR_FLAG(writable),
    ZELPY_ATTR_FLAG(isImmutable),
    ZELPY_ATTR_FLAG(doesNotify),
    ZELPY_ATTR_FLAG(isLogging),
    ZELPY_ATTR_FLAG(hasDataMember),
    ZELPY_ATTR_FLAG(hasAutomanagedKey),
    ZELPY_ATTR_FLAG(rawPtrInterface),
    ZELPY_GETTER("hasInternalIndex", hasInternalIndex, "hasInternalIndex", nullptr),
    ZELPY_GETTER("internalIndexName", internalIndexName, "internalIndexName", nullptr),
    ZELPY_GETTER("instantiatingArgNameQ", instantiatingArgNameQ, "instantiating arg name queue", nullptr),
    ZELPY_GETTER("instantiatingArgTypeQ", instantiatingArgTypeQ, "instantiating arg type queue", nullptr),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef PyZelAttr_methods[] = {
    {nullptr, nullptr, 0, nullptr},
};

PyTypeObject makeType(char const* typeName, Py_ssize_t basicSize, char const* doc, reprfunc repr, PyMethodDef* methods,
                      PyGetSetDef* getset) {
    PyTypeObject t = Zel::staticType(typeName, basicSize);
    t.tp_repr = repr;
    t.tp_doc = doc;
    t.tp_methods = methods;
    t.tp_getset = getset;
    return t;
}

} // namespace

PyTypeObject PyZelType_Type = makeType("_Zel.ZelType", sizeof(PyZelType), "Wraps a Zel::ZelType", Zel::entry<typeRepr>,
                                       PyZelType_methods, PyZelType_getset);
PyTypeObject PyZelAttr_Type = makeType("_Zel.ZelAttr", sizeof(PyZelAttr), "Wraps a Zel::ZelAttr", Zel::entry<attrRepr>,
                                       PyZelAttr_methods, PyZelAttr_getset);

PyResult Zel::typeObject(GilHeld gil, ZelType const* type) {
    return PyResult::of(gil, cachedWrapper(gil, typeCache, &PyZelType_Type, type, &PyZelType::type));
}

PyResult Zel::attrObject(GilHeld gil, ZelAttr const* attr) {
    return PyResult::of(gil, cachedWrapper(gil, attrCache, &PyZelAttr_Type, attr, &PyZelAttr::attr));
}

PyObject* PyZelType_FromZelType(Zel::ZelType const* type) {
    return Zel::typeObject(Zel::NativeCallerGil::held(), type).raw();
}

PyObject* PyZelAttr_FromZelAttr(Zel::ZelAttr const* attr) {
    return Zel::attrObject(Zel::NativeCallerGil::held(), attr).raw();
}

int Convert_To_ZelType(PyObject* obj, Zel::ZelType const** out) {
    if (!PyObject_TypeCheck(obj, &PyZelType_Type)) {
        PyErr_SetString(PyExc_TypeError, "Expected a _Zel.ZelType");
        return 0;
    }
    *out = typeOf(obj);
    return 1;
}

int Convert_To_ZelAttr(PyObject* obj, Zel::ZelAttr const** out) {
    if (!PyObject_TypeCheck(obj, &PyZelAttr_Type)) {
        PyErr_SetString(PyExc_TypeError, "Expected a _Zel.ZelAttr");
        return 0;
    }
    *out = attrOf(obj);
    return 1;
}

bool compareZelAttrsById(Zel::ZelAttr const* a, Zel::ZelAttr const* b) { return a->attributeId() < b->attributeId(); }

PyResult PyZel_typeNode(GilHeld gil, PyObject*, PyObject* args) {
    return EntryPoint::run(gil, Zel::Activity{}, [&](Zel::NativePhase& phase) {
        char const* name = nullptr;
        // Parsing may raise, which needs the interpreter lock; taking it
        // while holding the activity lock is the permitted order.
        if (!phase.withGil([&](GilHeld) { return PyArg_ParseTuple(args, "s:typeNode", &name) != 0; })) {
            return PyResult::failed();
        }
        Zel::ZelType const* t = Zel::typeNode(Zel::String8(name));
        ZELPY_CHECK(t);
        return phase.finish([&](GilHeld held) { return Zel::typeObject(held, t); });
    });
}
