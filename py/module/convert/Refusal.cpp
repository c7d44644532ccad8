// The message of a refused Python value: what was expected, what came, and
// the value's repr() while that stays small enough to build.
#include "module/convert/Convert.h"

#include <unordered_set>

using Zel::PyRef;
using Zel::String8;

namespace {

// A refusal shows the repr() of the value only when it is small. A few
// lists holding one another repeatedly have a repr() that grows
// exponentially with their nesting: building it would never end.
constexpr size_t kShownItems = 10000;
constexpr size_t kShownDepth = 200;

struct ReprWalk {
    size_t budget;
    size_t depth;
    std::unordered_set<PyObject*> open;   // the containers being walked

    bool visit(PyObject* o) {
        if (budget == 0) return false;
        --budget;
        bool sequence = PyList_Check(o) || PyTuple_Check(o);
        if (!sequence && !PyDict_Check(o) && !PyAnySet_Check(o)) return true;
        if (open.count(o)) return true;   // repr() shows a container inside itself as "[...]"
        if (open.size() >= depth) return false;
        open.insert(o);
        bool within = true;
        Py_ssize_t pos = 0;
        PyObject *key, *value;
        if (sequence) {
            for (Py_ssize_t i = 0; within && i < PySequence_Fast_GET_SIZE(o); ++i) {
                within = visit(PySequence_Fast_GET_ITEM(o, i));
            }
        } else if (PyDict_Check(o)) {
            while (within && PyDict_Next(o, &pos, &key, &value)) within = visit(key) && visit(value);
        } else {
            // Through an iterator: the sets' own walk is private API on 3.
            PyRef it(PyObject_GetIter(o));
            if (!it) PyErr_Clear();
            within = static_cast<bool>(it);
            while (within) {
                PyRef item(PyIter_Next(it.get()));
                if (!item) break;
                within = visit(item.get());
            }
        }
        open.erase(o);
        return within;
    }
};

} // namespace

bool reprWithin(PyObject* obj, size_t items, size_t depth) { return ReprWalk{items, depth, {}}.visit(obj); }

char const* typeNameFromPyObject(PyObject* obj) {
    if (FwkPyGenericIf_Check(obj)) {
        auto* g = reinterpret_cast<FwkPyGenericIf*>(obj);
        if (g->gif) return g->gif->type()->name();
    }
    return Py_TYPE(obj)->tp_name;
}

void GenericIf_TypeExceptionThrow(PyObject* passed, Zel::ZelType const* expected) {
    ZELPY_CHECK(passed);
    ZELPY_CHECK(expected);
    String8 m("expected ");
    m += expected->name();
    m += ", got ";
    m += typeNameFromPyObject(passed);
    m += ": ";
    if (!reprWithin(passed, kShownItems, kShownDepth)) {
        m += "[too large to show]";
        throw Zel::TypeException(std::move(m));
    }
    PyRef repr(PyObject_Repr(passed));
    Zel::compat::StringBytes text(repr ? repr.get() : Py_None);
    if (text) {
        m += String8(text.data(), text.size());
    } else {
        PyErr_Clear();
        m += "[error getting repr]";
    }
    throw Zel::TypeException(std::move(m));
}
