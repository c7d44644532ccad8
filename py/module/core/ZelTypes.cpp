// _Zel.ZelType and _Zel.ZelAttr: read-only wrappers of the framework's
// immutable type and attribute descriptors, one per descriptor.
#include <cstdint>
#include <map>

#include "module/core/Module.h"
#include "Zel/Exception.h"

namespace {

// Descriptor -> its wrapper; each entry owns one reference, so wrappers
// live for the process. Touched only under the interpreter lock.
std::map<Zel::ZelType const*, PyObject*> typeCache;
std::map<Zel::ZelAttr const*, PyObject*> attrCache;

template <class Wrapper, class Desc>
PyObject* cachedWrapper(std::map<Desc const*, PyObject*>& cache, PyTypeObject* type, Desc const* desc,
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

PyObject* internedOrNone(char const* s) {
    if (!s) Py_RETURN_NONE;
    return PyString_InternFromString(s);
}

// A tuple of the names (or type names) of a null-ended argument list.
PyObject* argTuple(Zel::ArgDesc const* args, unsigned count, bool typeNames) {
    Zel::PyRef tuple(PyTuple_New(count));
    if (!tuple) return nullptr;
    for (unsigned i = 0; i < count; ++i) {
        char const* s = args && args[i].name ? (typeNames ? args[i].typeName : args[i].name) : "";
        PyObject* item = PyString_InternFromString(s);
        if (!item) return nullptr;
        PyTuple_SET_ITEM(tuple.get(), i, item);
    }
    return tuple.release();
}

// The member type's attribute that keys the collection, if any.
Zel::ZelAttr const* internalIndexAttr(Zel::ZelAttr const* a) {
    if (!a->internalIndexName() || !a->memberType()) return nullptr;
    return a->memberType()->attr(a->internalIndexName());
}

// --- _Zel.ZelType -------------------------------------------------------------

PyObject* PyZelType_repr(PyObject* self) { return PyString_FromFormat("type('%s')", typeOf(self)->name()); }

PyObject* PyZelType_isDerived(PyObject* self, PyObject* args) {
    Zel::ZelType const* other = nullptr;
    if (!PyArg_ParseTuple(args, "O&:isDerived", Convert_To_ZelType, &other)) return nullptr;
    return PyBool_FromLong(typeOf(self)->isDerived(other));
}

PyObject* PyZelType_attr(PyObject* self, PyObject* args) {
    PyObject* key = nullptr;
    if (!PyArg_ParseTuple(args, "O:attr", &key)) return nullptr;
    Zel::ZelType const* t = typeOf(self);
    // Exact types only: a bool is not an attribute id, a unicode not a name.
    if (PyString_CheckExact(key)) return PyZelAttr_FromZelAttr(t->attr(PyString_AS_STRING(key)));
    long id;
    if (PyInt_CheckExact(key)) {
        id = PyInt_AS_LONG(key);
    } else if (PyLong_CheckExact(key)) {
        id = PyLong_AsLong(key);
        if (id == -1 && PyErr_Occurred()) return nullptr;
    } else {
        PyErr_SetString(PyExc_TypeError, "Expected a str, int or long");
        return nullptr;
    }
    return PyZelAttr_FromZelAttr(t->attr(static_cast<Zel::AttributeId>(id)));
}

PyObject* PyZelType_fullTypeName(PyObject* self, void*) { return PyString_InternFromString(typeOf(self)->name()); }
PyObject* PyZelType_size(PyObject* self, void*) { return PyLong_FromUnsignedLong(typeOf(self)->size()); }
PyObject* PyZelType_baseType(PyObject* self, void*) { return PyZelType_FromZelType(typeOf(self)->baseType()); }

PyObject* attrAtPosition(Zel::ZelType const* t, uint8_t pos) {
    if (pos == Zel::ZelType::kNoPosition) Py_RETURN_NONE;
    return PyZelAttr_FromZelAttr(&t->attrs()[pos]);
}
PyObject* PyZelType_valAttr(PyObject* self, void*) {
    return attrAtPosition(typeOf(self), typeOf(self)->valAttrPosition());
}
PyObject* PyZelType_defaultCollection(PyObject* self, void*) {
    return attrAtPosition(typeOf(self), typeOf(self)->defaultCollectionPosition());
}

// The closure is the flag's bit.
PyObject* PyZelType_flag(PyObject* self, void* bit) {
    return PyBool_FromLong((typeOf(self)->flags() & reinterpret_cast<uintptr_t>(bit)) != 0);
}

PyObject* PyZelType_attributeQ(PyObject* self, void*) {
    Zel::ZelType const* t = typeOf(self);
    Zel::PyRef tuple(PyTuple_New(t->attrCount()));
    if (!tuple) return nullptr;
    for (uint16_t i = 0; i < t->attrCount(); ++i) {
        PyObject* w = PyZelAttr_FromZelAttr(&t->attrs()[i]);
        if (!w) return nullptr;
        PyTuple_SET_ITEM(tuple.get(), i, w);
    }
    return tuple.release();
}

PyObject* PyZelType_constructorArgNameQ(PyObject* self, void*) {
    return argTuple(typeOf(self)->constructorArgs(), typeOf(self)->constructorArgNames(), false);
}
PyObject* PyZelType_constructorArgTypeQ(PyObject* self, void*) {
    return argTuple(typeOf(self)->constructorArgs(), typeOf(self)->constructorArgNames(), true);
}

void* bit(uint32_t b) { return reinterpret_cast<void*>(static_cast<uintptr_t>(b)); }

#define ZELPY_GETTER(name, fn, doc, closure) \
    {const_cast<char*>(name), fn, nullptr, const_cast<char*>(doc), closure}
#define ZELPY_TYPE_FLAG(name) ZELPY_GETTER(#name, PyZelType_flag, #name, bit(Zel::ZelType::name##_))

PyGetSetDef PyZelType_getset[] = {
    ZELPY_GETTER("fullTypeName", PyZelType_fullTypeName, "full type name", nullptr),
    ZELPY_GETTER("size", PyZelType_size, "size (in bytes)", nullptr),
    ZELPY_GETTER("baseType", PyZelType_baseType, "base type", nullptr),
    ZELPY_GETTER("valAttr", PyZelType_valAttr, "valAttr", nullptr),
    ZELPY_GETTER("defaultCollection", PyZelType_defaultCollection, "default collection", nullptr),
    ZELPY_TYPE_FLAG(isValue),
    ZELPY_TYPE_FLAG(isEntity),
    ZELPY_TYPE_FLAG(isConstrainer),
    ZELPY_TYPE_FLAG(isBuiltinType),
    ZELPY_TYPE_FLAG(isEnumType),
    ZELPY_TYPE_FLAG(isBitSetType),
    ZELPY_TYPE_FLAG(hasOwnPtrInterface),
    ZELPY_TYPE_FLAG(hasAttrLogSupport),
    ZELPY_TYPE_FLAG(isStreamAdapter),
    ZELPY_GETTER("attributeQ", PyZelType_attributeQ, "attribute queue", nullptr),
    ZELPY_GETTER("constructorArgNameQ", PyZelType_constructorArgNameQ, "constructor arg name queue", nullptr),
    ZELPY_GETTER("constructorArgTypeQ", PyZelType_constructorArgTypeQ, "constructor arg type queue", nullptr),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef PyZelType_methods[] = {
    {"isDerived", PyZelType_isDerived, METH_VARARGS, "is type in my chain of base types?"},
    {"attr", PyZelType_attr, METH_VARARGS, "retrieve an attribute by name or ID"},
    {nullptr, nullptr, 0, nullptr},
};

// --- _Zel.ZelAttr -------------------------------------------------------------

PyObject* PyZelAttr_repr(PyObject* self) {
    Zel::ZelAttr const* a = attrOf(self);
    return PyString_FromFormat("type('%s').attr('%s')", a->scope()->name(), a->name());
}

PyObject* PyZelAttr_name(PyObject* self, void*) { return PyString_InternFromString(attrOf(self)->name()); }
PyObject* PyZelAttr_attributeId(PyObject* self, void*) { return PyInt_FromLong(attrOf(self)->attributeId()); }
PyObject* PyZelAttr_scope(PyObject* self, void*) { return PyZelType_FromZelType(attrOf(self)->scope()); }
PyObject* PyZelAttr_memberType(PyObject* self, void*) { return PyZelType_FromZelType(attrOf(self)->memberType()); }
PyObject* PyZelAttr_indexType(PyObject* self, void*) { return PyZelType_FromZelType(attrOf(self)->indexType()); }
PyObject* PyZelAttr_indexAttr(PyObject* self, void*) { return PyZelAttr_FromZelAttr(internalIndexAttr(attrOf(self))); }

PyObject* PyZelAttr_instantiatingIndexPosition(PyObject* self, void*) {
    int8_t const pos = attrOf(self)->instantiatingIndexPosition();
    if (pos == -1) Py_RETURN_NONE;
    return PyInt_FromLong(pos);
}

PyObject* PyZelAttr_flag(PyObject* self, void* bit) {
    return PyBool_FromLong((attrOf(self)->flags() & reinterpret_cast<uintptr_t>(bit)) != 0);
}

PyObject* PyZelAttr_hasInternalIndex(PyObject* self, void*) {
    return PyBool_FromLong(internalIndexAttr(attrOf(self)) != nullptr);
}

PyObject* PyZelAttr_internalIndexName(PyObject* self, void*) {
    Zel::ZelAttr const* index = internalIndexAttr(attrOf(self));
    return internedOrNone(index ? index->name() : nullptr);
}

PyObject* PyZelAttr_instantiatingArgNameQ(PyObject* self, void*) {
    return argTuple(attrOf(self)->instantiatingArgs(), attrOf(self)->instantiatingArgNames(), false);
}
PyObject* PyZelAttr_instantiatingArgTypeQ(PyObject* self, void*) {
    return argTuple(attrOf(self)->instantiatingArgs(), attrOf(self)->instantiatingArgNames(), true);
}

#define ZELPY_ATTR_FLAG(name) ZELPY_GETTER(#name, PyZelAttr_flag, #name, bit(Zel::ZelAttr::name##_))

PyGetSetDef PyZelAttr_getset[] = {
    ZELPY_GETTER("name", PyZelAttr_name, "attribute name", nullptr),
    ZELPY_GETTER("attributeId", PyZelAttr_attributeId, "attribute ID", nullptr),
    ZELPY_GETTER("scope", PyZelAttr_scope, "scope", nullptr),
    ZELPY_GETTER("memberType", PyZelAttr_memberType, "member type", nullptr),
    ZELPY_GETTER("indexType", PyZelAttr_indexType, "index type", nullptr),
    ZELPY_GETTER("indexAttr", PyZelAttr_indexAttr, "indexAttr", nullptr),
    ZELPY_GETTER("instantiatingIndexPosition", PyZelAttr_instantiatingIndexPosition,
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
    ZELPY_GETTER("hasInternalIndex", PyZelAttr_hasInternalIndex, "hasInternalIndex", nullptr),
    ZELPY_GETTER("internalIndexName", PyZelAttr_internalIndexName, "internalIndexName", nullptr),
    ZELPY_GETTER("instantiatingArgNameQ", PyZelAttr_instantiatingArgNameQ, "instantiating arg name queue", nullptr),
    ZELPY_GETTER("instantiatingArgTypeQ", PyZelAttr_instantiatingArgTypeQ, "instantiating arg type queue", nullptr),
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef PyZelAttr_methods[] = {
    {nullptr, nullptr, 0, nullptr},
};

PyTypeObject makeType(char const* name, Py_ssize_t size, char const* doc, reprfunc repr, PyMethodDef* methods,
                      PyGetSetDef* getset) {
    PyTypeObject t{};
    Py_REFCNT(&t) = 1;
    t.tp_name = name;
    t.tp_basicsize = size;
    t.tp_repr = repr;
    t.tp_flags = Py_TPFLAGS_DEFAULT;
    t.tp_doc = doc;
    t.tp_methods = methods;
    t.tp_getset = getset;
    return t;
}

} // namespace

PyTypeObject PyZelType_Type = makeType("_Zel.ZelType", sizeof(PyZelType), "Wraps a Zel::ZelType", PyZelType_repr,
                                       PyZelType_methods, PyZelType_getset);
PyTypeObject PyZelAttr_Type = makeType("_Zel.ZelAttr", sizeof(PyZelAttr), "Wraps a Zel::ZelAttr", PyZelAttr_repr,
                                       PyZelAttr_methods, PyZelAttr_getset);

PyObject* PyZelType_FromZelType(Zel::ZelType const* type) {
    return cachedWrapper(typeCache, &PyZelType_Type, type, &PyZelType::type);
}

PyObject* PyZelAttr_FromZelAttr(Zel::ZelAttr const* attr) {
    return cachedWrapper(attrCache, &PyZelAttr_Type, attr, &PyZelAttr::attr);
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

PyObject* PyZel_typeNode(PyObject*, PyObject* args) {
    try {
        Zel::PyLockAnchor anchor(0);
        char const* name = nullptr;
        {
            // Parsing may raise, which needs the interpreter lock; taking it
            // while holding the activity lock is the permitted order.
            anchor.gilHeldIs(true);
            int const parsed = PyArg_ParseTuple(args, "s:typeNode", &name);
            anchor.gilHeldIs(false);
            if (!parsed) return nullptr;
        }
        Zel::ZelType const* t;
        {
            Zel::Expect expect(Zel::Exception::idExpectAll);
            t = Zel::typeNode(Zel::String8(name));
        }
        ZELPY_CHECK(t);
        anchor.gilHeldIs(true);
        return PyZelType_FromZelType(t);
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}
