// _ZelProxy.CollectionView: the native base of the Zel package's dict-like
// view of a keyed collection attribute (Zel.Collection). view[k],
// view[k] = v, del view[k], k in view and len(view) call the collection
// operations of _Zel directly, so each costs what the GifPtr method costs
// less the method call; keys(), values(), items() and iteration read a
// batch of members per hold of the activity lock. Results and errors are
// those of attributeCollection, attributeCollectionIs,
// attributeCollectionDel, attributeCollectionExist, attributeMembers and
// attributeIter.
#include "proxy/Views.h"

using Zel::GilHeld;
using Zel::PyCount;
using Zel::PyResult;
using Zel::ZelAttr;
using namespace Zel::proxy;

namespace {

enum Mode : int { keys = 0, values = 1, items = 2 };

PyResult getItem(GilHeld gil, PyObject* self, PyObject* key) {
    ZelAttr const* attr = directAttr(self);
    PyResult r = attr ? Zel::collectionLookup(gil, viewOf(self)->ptr, attr, key, true, false, kRead)
                      : callOnPtr(gil, self, "attributeCollection", key);
    return wrapped(gil, self, r);
}

Zel::PyStatus setItem(GilHeld gil, PyObject* self, PyObject* key, PyObject* value) {
    ZelAttr const* attr = directAttr(self);
    PyResult r = PyResult::failed();
    if (!attr) {
        r = value ? callOnPtr(gil, self, "attributeCollectionIs", key, value)
                  : callOnPtr(gil, self, "attributeCollectionDel", key);
    } else {
        PyObject* ptr = viewOf(self)->ptr;
        r = value ? Zel::collectionSet(gil, ptr, attr, key, value) : Zel::collectionDel(gil, ptr, attr, key);
    }
    Zel::PyRef dropped(r.raw());
    return r ? Zel::PyStatus::ok() : Zel::PyStatus::failed();
}

PyCount<int> contains(GilHeld gil, PyObject* self, PyObject* key) {
    ZelAttr const* attr = directAttr(self);
    PyResult r = attr ? Zel::collectionExist(gil, viewOf(self)->ptr, attr, key, kRead)
                      : callOnPtr(gil, self, "attributeCollectionExist", key);
    if (!r) return PyCount<int>::failed();
    Zel::PyRef held(r.raw());
    int const truth = PyObject_IsTrue(held.get());
    return truth < 0 ? PyCount<int>::failed() : PyCount<int>::of(gil, truth);
}

PyCount<Py_ssize_t> length(GilHeld gil, PyObject* self) {
    ZelAttr const* attr = directAttr(self);
    return lengthOf(gil, attr ? Zel::collectionMembers(gil, viewOf(self)->ptr, attr, kRead)
                              : callOnPtr(gil, self, "attributeMembers"));
}

PyResult iterKeys(GilHeld gil, PyObject* self) { return newIterator(gil, self, keys); }
PyResult iterKeysMethod(GilHeld gil, PyObject* self, PyObject*) { return newIterator(gil, self, keys); }
PyResult iterValues(GilHeld gil, PyObject* self, PyObject*) { return newIterator(gil, self, values); }
PyResult iterItems(GilHeld gil, PyObject* self, PyObject*) { return newIterator(gil, self, items); }
PyResult keyList(GilHeld gil, PyObject* self, PyObject*) { return bulkList(gil, self, keys); }
PyResult valueList(GilHeld gil, PyObject* self, PyObject*) { return bulkList(gil, self, values); }
PyResult itemList(GilHeld gil, PyObject* self, PyObject*) { return bulkList(gil, self, items); }

PyMethodDef methods[] = {
    {"keys", Zel::entry<keyList>, METH_NOARGS, "the keys, as a list"},
    {"values", Zel::entry<valueList>, METH_NOARGS, "the members, as a list"},
    {"items", Zel::entry<itemList>, METH_NOARGS, "(key, member) pairs, as a list"},
    {"iterkeys", Zel::entry<iterKeysMethod>, METH_NOARGS, "an iterator over the keys"},
    {"itervalues", Zel::entry<iterValues>, METH_NOARGS, "an iterator over the members"},
    {"iteritems", Zel::entry<iterItems>, METH_NOARGS, "an iterator over (key, member) pairs"},
    {nullptr, nullptr, 0, nullptr},
};

PyMappingMethods mapping = {Zel::entry<length>, Zel::entry<getItem>, Zel::entry<setItem>};

PySequenceMethods sequence = [] {
    PySequenceMethods s{};
    s.sq_contains = Zel::entry<contains>;
    return s;
}();

} // namespace

PyTypeObject ZelProxy_CollectionView_Type = [] {
    PyTypeObject t = Zel::staticType("_ZelProxy.CollectionView", sizeof(View));
    t.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Zel::compat::kCachedBaseFlags;
    t.tp_dealloc = Zel::entry<deallocView>;
    t.tp_doc = "The native base of Zel.Collection: ptr_ (a _Zel.GifPtr) and attr_ (a keyed collection's _Zel.ZelAttr)";
    t.tp_as_mapping = &mapping;
    t.tp_as_sequence = &sequence;
    t.tp_iter = Zel::entry<iterKeys>;
    t.tp_methods = methods;
    t.tp_members = viewMembers;
    t.tp_new = PyType_GenericNew;
    return t;
}();
