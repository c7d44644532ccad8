// _ZelProxy.QueueView: the native base of the Zel package's view of a
// queue attribute (Zel.Queue). add, remove and len call the attribute
// operations of _Zel directly; iteration reads a batch of members per hold
// of the activity lock. Results and errors are those of attributeAdd,
// attributeRemove, attributeMembers and attributeIter.
#include "proxy/Views.h"

using Zel::GilHeld;
using Zel::PyCount;
using Zel::PyResult;
using Zel::ZelAttr;
using namespace Zel::proxy;

namespace {

constexpr int kValues = 1;   // _Zel.IteratorModeValues

PyResult add(GilHeld gil, PyObject* self, PyObject* value) {
    ZelAttr const* attr = directAttr(self);
    PyResult r = attr ? Zel::collectionAdd(gil, viewOf(self)->ptr, attr, value)
                      : callOnPtr(gil, self, "attributeAdd", value);
    if (!r) return r;
    Py_DECREF(r.raw());   // what the framework made is not handed back
    return PyResult::none(gil);
}

PyResult remove(GilHeld gil, PyObject* self, PyObject*) {
    ZelAttr const* attr = directAttr(self);
    return wrapped(gil, self, attr ? Zel::collectionRemove(gil, viewOf(self)->ptr, attr)
                                   : callOnPtr(gil, self, "attributeRemove"));
}

PyCount<Py_ssize_t> length(GilHeld gil, PyObject* self) {
    ZelAttr const* attr = directAttr(self);
    return lengthOf(gil, attr ? Zel::collectionMembers(gil, viewOf(self)->ptr, attr, kRead)
                              : callOnPtr(gil, self, "attributeMembers"));
}

PyResult iterValues(GilHeld gil, PyObject* self) { return newIterator(gil, self, kValues); }

PyMethodDef methods[] = {
    {"add", Zel::entry<add>, METH_O, "adds at the back"},
    {"remove", Zel::entry<remove>, METH_NOARGS, "the front member, taken out (None when empty)"},
    {nullptr, nullptr, 0, nullptr},
};

PyMappingMethods mapping = [] {
    PyMappingMethods m{};
    m.mp_length = Zel::entry<length>;
    return m;
}();

} // namespace

PyTypeObject ZelProxy_QueueView_Type = [] {
    PyTypeObject t = Zel::staticType("_ZelProxy.QueueView", sizeof(View));
    t.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Zel::compat::kCachedBaseFlags;
    t.tp_dealloc = Zel::entry<deallocView>;
    t.tp_doc = "The native base of Zel.Queue: ptr_ (a _Zel.GifPtr) and attr_ (a queue's _Zel.ZelAttr)";
    t.tp_as_mapping = &mapping;
    t.tp_iter = Zel::entry<iterValues>;
    t.tp_methods = methods;
    t.tp_members = viewMembers;
    t.tp_new = PyType_GenericNew;
    return t;
}();
