// _Zel.GifPtr: the Python handle of one framework object, and the
// converters back to framework pointers.
#include <cstdio>
#include <new>

#include "module/core/Module.h"
#include "module/notify/PyGenericIfNotifiee.h"

static_assert(sizeof(FwkPyGenericIf) <= 32, "a GifPtr is a Python header and one counted pointer");

namespace {

using Zel::PyLockAnchor;

FwkPyGenericIf* self_(PyObject* o) { return reinterpret_cast<FwkPyGenericIf*>(o); }
Zel::GenericIf const* gifOf(PyObject* o) { return self_(o)->gif.ptr(); }

void FwkPyGenericIf_dealloc(PyObject* obj) {
    FwkPyGenericIf* self = self_(obj);
    if (self->gif) {
        try {
            // Dropping the last reference runs the object's destructor,
            // which expects the activity lock.
            PyLockAnchor anchor(0);
            self->gif.reset();
        } catch (...) {
            // The activity lock could not be taken: keep the reference
            // (a leak) rather than change the count unprotected.
            (void)self->gif.release();
            Zel::translateCppExceptionToPython();
            PyErr_WriteUnraisable(obj);
        }
    }
    self->gif.~Ptr();
    Py_TYPE(obj)->tp_free(obj);
}

PyObject* FwkPyGenericIf_str(PyObject* obj) {
    Zel::GenericIf const* g = gifOf(obj);
    if (!g) return PyString_FromString("<null>");
    char buf[600];
    std::snprintf(buf, sizeof buf, "<_Zel.GifPtr to object of type '%s' at %p>", g->type()->name(),
                  static_cast<void const*>(g));
    return PyString_FromString(buf);
}

PyObject* FwkPyGenericIf_repr(PyObject* obj) {
    Zel::GenericIf const* g = gifOf(obj);
    if (!g) return PyString_FromString("<null>");
    char buf[600];
    std::snprintf(buf, sizeof buf, "_Zel.GifPtr(%p,'%s')", static_cast<void const*>(g), g->type()->name());
    return PyString_FromString(buf);
}

// The operations below need an object: a null handle is refused with an
// IndexError rather than dereferenced.
Zel::GenericIf const* liveGif(PyObject* obj) {
    if (Zel::GenericIf const* g = gifOf(obj)) return g;
    throw Zel::RangeException("null _Zel.GifPtr");
}

// Python objects are built while the framework object is read: full anchor.
PyObject* FwkPyGenericIf_typeName(PyObject* obj, PyObject*) {
    try {
        PyLockAnchor anchor(PyLockAnchor::retakeGil);
        return PyString_FromString(liveGif(obj)->type()->name());
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* FwkPyGenericIf_isConst(PyObject* obj, PyObject*) {
    try {
        PyLockAnchor anchor(PyLockAnchor::retakeGil);
        return PyBool_FromLong(liveGif(obj)->isConst());
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* FwkPyGenericIf_hash(PyObject* obj, PyObject*) {
    try {
        PyLockAnchor anchor(PyLockAnchor::retakeGil);
        Zel::Expect expect(Zel::Exception::idExpectAll);
        return PyLong_FromUnsignedLong(liveGif(obj)->hash());
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* FwkPyGenericIf_strRep(PyObject* obj, PyObject*) {
    try {
        PyLockAnchor anchor(PyLockAnchor::retakeGil);
        Zel::String8 const s = liveGif(obj)->strep();
        // Full length: embedded NUL bytes are part of the representation.
        return PyString_FromStringAndSize(s.data(), static_cast<Py_ssize_t>(s.size()));
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* FwkPyGenericIf_ptr(PyObject* obj, void*) {
    Zel::GenericIf const* g = gifOf(obj);
    if (!g) {
        PyErr_SetString(PyExc_IndexError, "null _Zel.GifPtr");
        return nullptr;
    }
    // Only the address is read, without the activity lock: no reference
    // count changes. A value is refused before the framework would throw
    // for it, as building that exception makes counted objects.
    if (!g->type()->hasOwnPtrInterface()) {
        PyErr_SetString(PyExc_TypeError, "Cannot access the ptr for this type");
        return nullptr;
    }
    try {
        Zel::PtrInterface* object = g->ptrInterface();
        return PyLong_FromVoidPtr(object ? dynamic_cast<void*>(object) : nullptr);
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

// Attribute methods, notifiees and conversions join this table as they
// are built, keeping the table order of the handle's interface.
PyMethodDef FwkPyGenericIf_methods[] = {
    {"attributeSingletonIs", FwkPyGenericIf_attributeSingletonIs, METH_VARARGS, "set a singleton attribute"},
    {"attributeCollectionIs", FwkPyGenericIf_attributeCollectionIs, METH_VARARGS, "set a collection attribute"},
    {"attributeSingleton", FwkPyGenericIf_attributeSingleton, METH_VARARGS, "get a singleton attribute"},
    {"rawAttributeSingleton", FwkPyGenericIf_rawAttributeSingleton, METH_VARARGS,
     "get a singleton attribute without defaultAttribute conversion"},
    {"attributeCollectionExist", FwkPyGenericIf_attributeCollectionExist, METH_VARARGS,
     "check if collection key exists"},
    {"attributeCollection", FwkPyGenericIf_attributeCollection, METH_VARARGS, "get a collection attribute"},
    {"attributeCollectionVal", FwkPyGenericIf_attributeCollectionVal, METH_VARARGS,
     "get a collection attribute foo"},
    {"rawAttributeCollection", FwkPyGenericIf_rawAttributeCollection, METH_VARARGS,
     "get a collection attribute without defaultAttribute conversion"},
    {"attributeVersion", FwkPyGenericIf_attributeVersion, METH_O, "returns the version number of a collection"},
    {"attributeSingletonDel", FwkPyGenericIf_attributeSingletonDel, METH_VARARGS, "delete a singleton attribute"},
    {"attributeCollectionDel", FwkPyGenericIf_attributeCollectionDel, METH_VARARGS,
     "delete a collection attribute"},
    {"attributeRemove", FwkPyGenericIf_attributeRemove, METH_VARARGS, "remove an item from a collection"},
    {"attributeAdd", FwkPyGenericIf_attributeAdd, METH_VARARGS, "add an item to a collection"},
    {"attributeFunction", FwkPyGenericIf_attributeFunction, METH_VARARGS, "call a function attribute"},
    {"attributeMembers", FwkPyGenericIf_attributeMembers, METH_VARARGS, "return the number of items in a collection"},
    {"attributeIter", FwkPyGenericIf_attributeIter, METH_VARARGS, "get a collection iterator with an id"},
    {"isConst", FwkPyGenericIf_isConst, METH_NOARGS, "return the constness of the _Zel.GifPtr"},
    {"typeName", FwkPyGenericIf_typeName, METH_NOARGS, "return the typename of the _Zel.GifPtr"},
    {"hash", FwkPyGenericIf_hash, METH_NOARGS, "return the hash of the _Zel.GifPtr"},
    {"strRep", FwkPyGenericIf_strRep, METH_NOARGS, "return the string representation of the _Zel.GifPtr"},
    {"newNotifiee", FwkPyGenericIf_newNotifiee, METH_VARARGS, "make and returns a notifiee"},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef FwkPyGenericIf_getset[] = {
    {const_cast<char*>("ptr"), FwkPyGenericIf_ptr, nullptr, const_cast<char*>("pointer value as an int"), nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

} // namespace

PyTypeObject FwkPyGenericIf_Type = [] {
    PyTypeObject t{};
    Py_REFCNT(&t) = 1;
    t.tp_name = "_Zel.GifPtr";
    t.tp_basicsize = sizeof(FwkPyGenericIf);
    t.tp_dealloc = FwkPyGenericIf_dealloc;
    t.tp_repr = FwkPyGenericIf_repr;
    t.tp_str = FwkPyGenericIf_str;
    t.tp_flags = Py_TPFLAGS_DEFAULT;
    t.tp_doc = "GifPtr objects";
    t.tp_methods = FwkPyGenericIf_methods;
    t.tp_getset = FwkPyGenericIf_getset;
    return t;
}();

PyObject* MakeFwkPyGenericIf(Zel::Ptr<Zel::GenericIf const> const& gif) {
    FwkPyGenericIf* self = PyObject_New(FwkPyGenericIf, &FwkPyGenericIf_Type);
    if (!self) return nullptr;
    new (&self->gif) Zel::Ptr<Zel::GenericIf const>(gif);
    return reinterpret_cast<PyObject*>(self);
}

PyObject* FwkPyObj_FromPtrInterface(Zel::Ptr<Zel::PtrInterface> const& object) {
    try {
        return MakeFwkPyGenericIf(Zel::genericIfOf(object.ptr(), false));
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

int Convert_To_PtrInterface_Or_Null(PyObject* obj, Zel::PtrInterface** out) {
    if (obj == Py_None) {
        *out = nullptr;
        return 1;
    }
    if (!FwkPyGenericIf_Check(obj)) {
        PyErr_SetString(PyExc_TypeError, "Expected a Zel::PtrInterface or None");
        return 0;
    }
    Zel::GenericIf const* g = gifOf(obj);
    if (!g) {   // a null handle stands for no object
        *out = nullptr;
        return 1;
    }
    bool mismatch = false;
    try {
        Zel::GilUnlockAnchorThreadSafePtr anchor;
        Zel::Expect expect(Zel::Exception::idType);
        try {
            *out = g->ptrInterface();
        } catch (Zel::TypeException const&) {
            mismatch = true;
        }
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return 0;
    }
    if (mismatch) {
        PyErr_SetString(PyExc_TypeError, "Expected a Zel::PtrInterface or None");
        return 0;
    }
    return 1;
}

Zel::PtrInterface* FwkPyPtr_PtrInterface(PyObject* obj, bool* ok) {
    if (obj == Py_None) {
        if (ok) *ok = true;
        return nullptr;
    }
    if (!FwkPyGenericIf_Check(obj)) {
        if (ok) *ok = false;
        return nullptr;
    }
    Zel::GenericIf const* g = gifOf(obj);
    if (!g) return nullptr;
    try {
        Zel::Expect expect(Zel::Exception::idType);
        return g->ptrInterface();
    } catch (...) {
        if (ok) *ok = false;
        return nullptr;
    }
}

namespace Zel {

Entity* pythonEntityToRawPtr(PyObject* obj) {
    return dynamic_cast<Entity*>(FwkPyPtr_PtrInterface(obj, nullptr));
}

} // namespace Zel
