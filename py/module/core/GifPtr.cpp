// _Zel.GifPtr: the Python handle of one framework object, and the
// converters back to framework pointers.
#include <cstdio>
#include <new>

#include "module/core/Module.h"
#include "module/notify/PyGenericIfNotifiee.h"

static_assert(sizeof(FwkPyGenericIf) <= 32, "a GifPtr is a Python header and one counted pointer");

using Zel::Activity;
using Zel::EntryPoint;
using Zel::GilHeld;
using Zel::NativePhase;
using Zel::PyLockAnchor;
using Zel::PyResult;
using Zel::gifOf;

namespace {

FwkPyGenericIf* self_(PyObject* o) { return reinterpret_cast<FwkPyGenericIf*>(o); }

Zel::PyDone dealloc(GilHeld gil, PyObject* obj) {
    FwkPyGenericIf* self = self_(obj);
    // Dropping the last reference runs the object's destructor, which
    // expects the activity lock.
    if (self->gif && !EntryPoint::run(gil, Activity{0, {}}, [&](NativePhase&) {
            self->gif.reset();
            return Zel::PyStatus::ok();
        })) {
        // The activity lock could not be taken: keep the reference (a
        // leak) rather than change the count unprotected.
        (void)self->gif.release();
        PyErr_WriteUnraisable(obj);
    }
    self->gif.~Ptr();
    Py_TYPE(obj)->tp_free(obj);
    return Zel::PyDone::ok();
}

PyResult str(GilHeld gil, PyObject* obj) {
    Zel::GenericIf const* g = gifOf(obj);
    if (!g) return PyResult::of(gil, Zel::compat::text("<null>"));
    char buf[600];
    std::snprintf(buf, sizeof buf, "<_Zel.GifPtr to object of type '%s' at %p>", g->type()->name(),
                  static_cast<void const*>(g));
    return PyResult::of(gil, Zel::compat::text(buf));
}

PyResult repr(GilHeld gil, PyObject* obj) {
    Zel::GenericIf const* g = gifOf(obj);
    if (!g) return PyResult::of(gil, Zel::compat::text("<null>"));
    char buf[600];
    std::snprintf(buf, sizeof buf, "_Zel.GifPtr(%p,'%s')", static_cast<void const*>(g), g->type()->name());
    return PyResult::of(gil, Zel::compat::text(buf));
}

// The operations below need an object: a null handle is refused with an
// IndexError rather than dereferenced.
Zel::GenericIf const* liveGif(PyObject* obj) {
    if (Zel::GenericIf const* g = gifOf(obj)) return g;
    throw Zel::RangeException("null _Zel.GifPtr");
}

// Python objects are built while the framework object is read: both
// locks for the whole body. Only hash() anticipates the framework's errors.
template <class Read>
PyResult readBoth(GilHeld gil, Zel::Exception::IdBitArray expected, Read read) {
    return EntryPoint::run(gil, Activity{PyLockAnchor::retakeGil, expected},
                           [&](NativePhase& phase) { return phase.finish(read); });
}

PyResult typeName(GilHeld gil, PyObject* obj, PyObject*) {
    return readBoth(gil, {}, [&](GilHeld held) {
        return PyResult::of(held, Zel::compat::text(liveGif(obj)->type()->name()));
    });
}

PyResult isConst(GilHeld gil, PyObject* obj, PyObject*) {
    return readBoth(gil, {}, [&](GilHeld held) { return PyResult::of(held, PyBool_FromLong(liveGif(obj)->isConst())); });
}

PyResult hash(GilHeld gil, PyObject* obj, PyObject*) {
    return readBoth(gil, {Zel::Exception::idExpectAll}, [&](GilHeld held) {
        return PyResult::of(held, PyLong_FromUnsignedLong(liveGif(obj)->hash()));
    });
}

PyResult strRep(GilHeld gil, PyObject* obj, PyObject*) {
    return readBoth(gil, {}, [&](GilHeld held) {
        Zel::String8 const s = liveGif(obj)->strep();
        // Full length: embedded NUL bytes are part of the representation.
        return PyResult::of(held, Zel::compat::text(s.data(), s.size()));
    });
}

PyResult ptr(GilHeld gil, PyObject* obj, void*) {
    Zel::GenericIf const* g = gifOf(obj);
    if (!g) {
        PyErr_SetString(PyExc_IndexError, "null _Zel.GifPtr");
        return PyResult::failed();
    }
    // Only the address is read, without the activity lock: no reference
    // count changes. A value is refused before the framework would throw
    // for it, as building that exception makes counted objects.
    if (!g->type()->hasOwnPtrInterface()) {
        PyErr_SetString(PyExc_TypeError, "Cannot access the ptr for this type");
        return PyResult::failed();
    }
    Zel::PtrInterface* object = g->ptrInterface();
    return PyResult::of(gil, PyLong_FromVoidPtr(object ? dynamic_cast<void*>(object) : nullptr));
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
    {"isConst", Zel::entry<isConst>, METH_NOARGS, "return the constness of the _Zel.GifPtr"},
    {"typeName", Zel::entry<typeName>, METH_NOARGS, "return the typename of the _Zel.GifPtr"},
    {"hash", Zel::entry<hash>, METH_NOARGS, "return the hash of the _Zel.GifPtr"},
    {"strRep", Zel::entry<strRep>, METH_NOARGS, "return the string representation of the _Zel.GifPtr"},
    {"newNotifiee", Zel::entry<FwkPyGenericIf_newNotifiee>, METH_VARARGS, "make and returns a notifiee"},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef FwkPyGenericIf_getset[] = {
    {const_cast<char*>("ptr"), Zel::entry<ptr>, nullptr, const_cast<char*>("pointer value as an int"), nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

} // namespace

PyTypeObject FwkPyGenericIf_Type = [] {
    PyTypeObject t = Zel::staticType("_Zel.GifPtr", sizeof(FwkPyGenericIf));
    t.tp_dealloc = Zel::entry<dealloc>;
    t.tp_repr = Zel::entry<repr>;
    t.tp_str = Zel::entry<str>;
    t.tp_doc = "GifPtr objects";
    t.tp_methods = FwkPyGenericIf_methods;
    t.tp_getset = FwkPyGenericIf_getset;
    return t;
}();

PyResult Zel::gifPtr(GilHeld gil, Ptr<GenericIf const> const& gif) {
    FwkPyGenericIf* self = PyObject_New(FwkPyGenericIf, &FwkPyGenericIf_Type);
    if (!self) return PyResult::failed();
    new (&self->gif) Ptr<GenericIf const>(gif);
    return PyResult::of(gil, reinterpret_cast<PyObject*>(self));
}

PyResult Zel::gifPtrOf(GilHeld gil, Ptr<PtrInterface> const& object) {
    return gifPtr(gil, genericIfOf(object.ptr(), false));
}

PyObject* MakeFwkPyGenericIf(Zel::Ptr<Zel::GenericIf const> const& gif) {
    return Zel::gifPtr(Zel::NativeCallerGil::held(), gif).raw();
}

PyObject* FwkPyObj_FromPtrInterface(Zel::Ptr<Zel::PtrInterface> const& object) {
    return EntryPoint::run(Zel::NativeCallerGil::held(), Zel::PythonOnly{},
                           [&](GilHeld gil) { return Zel::gifPtrOf(gil, object); })
        .raw();
}

namespace {

int typeMismatch() {
    PyErr_SetString(PyExc_TypeError, "Expected a Zel::PtrInterface or None");
    return 0;
}

} // namespace

int Convert_To_PtrInterface_Or_Null(PyObject* obj, Zel::PtrInterface** out) {
    if (obj == Py_None) {
        *out = nullptr;
        return 1;
    }
    if (!FwkPyGenericIf_Check(obj)) return typeMismatch();
    Zel::GenericIf const* g = gifOf(obj);
    if (!g) {   // a null handle stands for no object
        *out = nullptr;
        return 1;
    }
    bool mismatch = false;
    Zel::PyStatus const read =
        EntryPoint::run(Zel::NativeCallerGil::held(), Zel::RefCounts{{Zel::Exception::idType}}, [&] {
            try {
                *out = g->ptrInterface();
            } catch (Zel::TypeException const&) {
                // Not an object: the probe's answer, a refusal below.
                mismatch = true;
            }
            return Zel::PyStatus::ok();
        });
    if (!read) return 0;
    if (mismatch) return typeMismatch();
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
