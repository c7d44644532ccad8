// What _ZelProxy's collection and queue views share: the object (a GifPtr
// and the attribute's _Zel.ZelAttr in ptr_ and attr_, as the Zel package's
// Python views kept them), the way to the attribute operations, and the
// wrapping of GifPtr results into proxies.
//
// A view whose ptr_ is a GifPtr and whose attr_ a _Zel.ZelAttr calls the
// operations of _Zel directly; any other view does what the Python class
// did, self.ptr_.<method>(self.attr_, ...), with that call's results and
// errors. A GifPtr result goes through the `_wrap_` of the view's class
// (the Zel package's _wrap), once the activity lock is let go.
#pragma once

#include <cstddef>

#include "module/attributes/BatchRead.h"
#include "module/core/Module.h"

namespace Zel::proxy {

struct View {
    PyObject_HEAD
    PyObject* ptr;    // ptr_
    PyObject* attr;   // attr_
};

inline View* viewOf(PyObject* o) { return reinterpret_cast<View*>(o); }

// The views' reads try the activity lock before giving the interpreter
// lock up: a free lock makes view[k], k in view and len(view) cost no
// interpreter-lock round trip (docs/zel-package.md, "Locks").
inline constexpr ReadLock kRead = ReadLock::tryFirst;

// The attribute when the view goes straight to _Zel, else null.
inline ZelAttr const* directAttr(PyObject* self) {
    View* v = viewOf(self);
    if (!v->ptr || !v->attr || !FwkPyGenericIf_Check(v->ptr) || !PyObject_TypeCheck(v->attr, &PyZelAttr_Type)) {
        return nullptr;
    }
    return reinterpret_cast<PyZelAttr*>(v->attr)->attr;
}

// self.ptr_.<method>(self.attr_[, arg[, arg2]]).
PyResult callOnPtr(GilHeld gil, PyObject* self, char const* method, PyObject* arg = nullptr,
                   PyObject* arg2 = nullptr);

// `r` through the view class's _wrap_ when it is a GifPtr; `r` otherwise.
PyResult wrapped(GilHeld gil, PyObject* self, PyResult r);

// A count as len() takes it (the Python views returned int(...)).
PyCount<Py_ssize_t> lengthOf(GilHeld gil, PyResult count);

// An iterator over the view's keys, values or (key, value) items (a
// _Zel.IteratorMode), a batch at a time; results wrapped as the package
// wraps them (keys and values whole, an item's value).
PyResult newIterator(GilHeld gil, PyObject* self, int mode);
// The same members as a list.
PyResult bulkList(GilHeld gil, PyObject* self, int mode);

// A new view of `type` (a view type or a subclass) on `ptr` and `attr`.
PyResult newView(GilHeld gil, PyTypeObject* type, PyObject* ptr, PyObject* attr);
// View.dealloc and the ptr_ and attr_ members of both view types.
PyDone deallocView(GilHeld gil, PyObject* self);
extern PyMemberDef viewMembers[];

// Where a Zel.Object subclass `base` keeps ptr_ in its __slots__ slot:
// false with a TypeError set when it does not.
bool ptrSlotOffset(GilHeld gil, PyTypeObject* base, Py_ssize_t& offset);

} // namespace Zel::proxy

extern PyTypeObject ZelProxy_CollectionView_Type;
extern PyTypeObject ZelProxy_QueueView_Type;
extern PyTypeObject ZelProxy_ViewIterator_Type;
extern PyTypeObject ZelProxy_CollectionAttr_Type;
