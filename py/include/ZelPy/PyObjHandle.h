// Zel::PyObjHandle: a counted framework object that owns one reference to
// a Python object, so framework attributes can hold Python callables and
// values. Every change it makes to the Python reference count happens
// under PyGILState_Ensure, whichever thread drops the last framework
// reference.
#pragma once

#include <Python.h>

#include "Zel/Builtin.h"
#include "Zel/PtrInterface.h"

namespace Zel {

// Framework type of a raw PyObject* ("Zel::PyObjectPtr"): the type of the
// "pyObject" constructor argument.
struct ZEL_API PyObjectPtrType {
    static ZelType const _zelType;
};

template <>
struct ZelTypeOf<PyObject*> {
    static ZelType const* get() { return &PyObjectPtrType::_zelType; }
};

class ZEL_API PyObjHandle : public PtrInterface {
public:
    // Stores both fields, then takes ownership of `pyObject` (handleInit).
    PyObjHandle(PyObject* pyObject, bool passedRef);
    ~PyObjHandle() override;

    ZelType const* fwkType() const override { return &_zelType; }

    PyObject* pyObject() const { return pyObject_; }
    bool passedRef() const { return passedRef_; }

    // Drops the held reference, stores `o`, and takes a reference of its
    // own unless references are passed in.
    void pyObjectIs(PyObject* o);
    void handleInit();
    // Drops the handle's reference; the field keeps pointing at the object.
    void handleDelete();

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

private:
    PyObject* pyObject_;
    bool passedRef_;
};

// The way to create handles: tracked, never null.
ZEL_API Ptr<PyObjHandle> pyObjHandleFactory(PyObject* pyObject, bool passedRef);

} // namespace Zel
