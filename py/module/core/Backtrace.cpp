// Backtrace objects: a framework native stack record, rendered as symbols.
#include "module/core/Module.h"

#include <execinfo.h>
#include <structmember.h>

#include <cstdio>
#include <cstdlib>
#include <new>


using Zel::GilHeld;
using Zel::PyResult;

namespace {

struct PyBacktrace {
    PyObject_HEAD
    Zel::Ptr<Zel::Backtrace> backtrace;
    PyObject* what;
};

PyResult PyBacktrace_new(GilHeld gil, PyTypeObject* type, PyObject*, PyObject*) {
    auto* self = reinterpret_cast<PyBacktrace*>(type->tp_alloc(type, 0));
    if (!self) return PyResult::failed();
    new (&self->backtrace) Zel::Ptr<Zel::Backtrace>();
    self->what = nullptr;
    return PyResult::of(gil, reinterpret_cast<PyObject*>(self));
}

Zel::PyDone PyBacktrace_dealloc(GilHeld, PyObject* obj) {
    auto* self = reinterpret_cast<PyBacktrace*>(obj);
    self->backtrace.~Ptr();
    Py_XDECREF(self->what);
    Py_TYPE(obj)->tp_free(obj);
    return Zel::PyDone::ok();
}

PyResult PyBacktrace_repr(GilHeld gil, PyObject* obj) {
    auto* self = reinterpret_cast<PyBacktrace*>(obj);
    char buf[300];
    Zel::compat::StringBytes what(self->what && Zel::compat::isText(self->what) ? self->what : Py_None);
    if (!what) PyErr_Clear();
    std::snprintf(buf, sizeof buf, "<backtrace for \"%.300s\" with %d frames>",
                  what ? what.data() : "<unknown exception>", self->backtrace ? self->backtrace->frames() : 0);
    return PyResult::of(gil, Zel::compat::text(buf));
}

PyResult PyBacktrace_grab(GilHeld gil, PyObject* obj, PyObject*) {
    auto* self = reinterpret_cast<PyBacktrace*>(obj);
    Zel::Ptr<Zel::Backtrace> b = Zel::Backtrace::BacktraceIs(0, 2);
    // A Backtrace is grabbed once in practice; a record replaced by a
    // second grab is left as it is rather than released.
    (void)self->backtrace.release();
    self->backtrace = std::move(b);
    return PyResult::none(gil);
}

PyResult noMemory() {
    PyErr_SetString(PyExc_MemoryError, "unable to allocate memory for backtrace");
    return PyResult::failed();
}

PyResult PyBacktrace_frames(GilHeld gil, PyObject* obj, PyObject*) {
    auto* self = reinterpret_cast<PyBacktrace*>(obj);
    Zel::PyRef list(PyList_New(0));
    if (!list) return noMemory();
    if (!self->backtrace) return PyResult::of(gil, list.release());
    int const count = self->backtrace->frames();
    char** symbols = backtrace_symbols(self->backtrace->addresses(), count);
    if (!symbols) return noMemory();
    struct Free {
        char** p;
        ~Free() { std::free(p); }
    } freeSymbols{symbols};
    for (int i = 0; i < count; ++i) {
        Zel::PyRef s(Zel::compat::text(symbols[i]));
        if (!s || PyList_Append(list.get(), s.get()) < 0) return noMemory();
    }
    return PyResult::of(gil, list.release());
}

PyMethodDef PyBacktrace_methods[] = {
    {"grab", Zel::entry<PyBacktrace_grab>, METH_NOARGS, "grab a backtrace"},
    {"frames", Zel::entry<PyBacktrace_frames>, METH_NOARGS, "return stack frames"},
    {nullptr, nullptr, 0, nullptr},
};

PyMemberDef PyBacktrace_members[] = {
    {const_cast<char*>("what"), T_OBJECT, offsetof(PyBacktrace, what), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

PyTypeObject PyBacktrace_Type = [] {
    PyTypeObject t = Zel::staticType("Backtrace", sizeof(PyBacktrace));
    t.tp_dealloc = Zel::entry<PyBacktrace_dealloc>;
    t.tp_repr = Zel::entry<PyBacktrace_repr>;
    t.tp_doc = "PyBacktrace objects";
    t.tp_methods = PyBacktrace_methods;
    t.tp_members = PyBacktrace_members;
    t.tp_new = Zel::entry<PyBacktrace_new>;
    return t;
}();

} // namespace

PyObject* PyBacktrace_FromBacktrace(Zel::Ptr<Zel::Backtrace> const& backtrace, PyObject* what) {
    auto* self = reinterpret_cast<PyBacktrace*>(PyType_GenericAlloc(&PyBacktrace_Type, 0));
    if (!self) return nullptr;
    new (&self->backtrace) Zel::Ptr<Zel::Backtrace>(backtrace);
    Py_XINCREF(what);
    self->what = what;
    return reinterpret_cast<PyObject*>(self);
}

void initBacktrace(PyObject* module) {
    static bool done = false;
    if (done) return;
    if (PyType_Ready(&PyBacktrace_Type) < 0) {
        PyErr_Clear();
        return;
    }
    Py_INCREF(&PyBacktrace_Type);
    PyModule_AddObject(module, "Backtrace", reinterpret_cast<PyObject*>(&PyBacktrace_Type));
    done = true;
}
