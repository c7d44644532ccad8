// Framework exceptions become pending Python exceptions here, and only here.
#include "Convert.h"
#include "Module.h"

#include <cxxabi.h>
#include <frameobject.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <typeinfo>
#include <unordered_set>


using Zel::PyRef;
using Zel::String8;

namespace {

String8 demangledName(std::type_info const& info) {
    int status = 0;
    char* name = abi::__cxa_demangle(info.name(), nullptr, nullptr, &status);
    String8 result(status == 0 && name ? name : info.name());
    std::free(name);
    return result;
}

void raise(PyObject* type, Zel::Exception const& e) { PyErr_SetBacktrace(type, e, nullptr); }

void raiseErrno(Zel::ErrnoException const& e) {
    String8 const text = Zel::errorString(e.errnum());
    PyRef args(Py_BuildValue("(iss)", e.errnum(), text.c_str(), e.context().c_str()));
    if (!args) return;   // Py_BuildValue left its error pending
    PyErr_SetBacktrace(PyExc_OSError, e, args.get());
}

void raisePermission(Zel::PermissionException const& e) {
    PyRef exc(Zel::getFromZel("PermissionError"));
    ZELPY_CHECK(exc);
    PyErr_SetBacktrace(exc.get(), e, nullptr);
}

// The classification proper; the order of the handlers matters, since a
// kind listed after its base would never be reached.
void classify() {
    try {
        throw;
    } catch (Zel::NoTypeNodeException const& e) {
        raise(PyExc_TypeError, e);
    } catch (Zel::TypeException const& e) {
        raise(PyExc_TypeError, e);
    } catch (Zel::IllegalNameException const& e) {
        raise(PyExc_NameError, e);
    } catch (Zel::NameInUseException const& e) {
        raise(PyExc_NameError, e);
    } catch (Zel::UnknownAttrException const& e) {
        raise(PyExc_AttributeError, e);
    } catch (Zel::ConstException const& e) {
        raise(PyExc_AttributeError, e);
    } catch (Zel::NonwritableAttrException const& e) {
        raise(PyExc_AttributeError, e);
    } catch (Zel::NondeletableAttrException const& e) {
        raise(PyExc_AttributeError, e);
    } catch (Zel::NoImplementationException const& e) {
        raise(PyExc_NotImplementedError, e);
    } catch (Zel::RpcException const& e) {
        raise(PyExc_RuntimeError, e);
    } catch (Zel::RangeException const& e) {
        raise(PyExc_IndexError, e);
    } catch (Zel::ErrnoException const& e) {
        raiseErrno(e);
    } catch (Zel::MemoryException const& e) {
        raise(PyExc_MemoryError, e);
    } catch (Zel::InternalException const& e) {
        raise(PyExc_SystemError, e);
    } catch (Zel::PermissionException const& e) {
        raisePermission(e);
    } catch (Zel::OpNotSupportedException const& e) {
        raise(PyExc_NotImplementedError, e);
    } catch (Zel::Exception const& e) {
        raise(PyExc_Exception, e);
    } catch (std::exception const& e) {
        PyErr_SetString(PyExc_SystemError, e.what());
    } catch (...) {
        PyErr_SetString(PyExc_Exception, "unknown C++ exception");
    }
}

} // namespace

namespace Zel {

void translateCppExceptionToPython() {
    GilEnsure gil;
    try {
        classify();
    } catch (...) {
        // Building the Python exception itself failed (no memory for a
        // text): report that much rather than let anything escape.
        PyErr_SetString(PyExc_Exception, "unknown C++ exception");
    }
}

void GilPyErr_SetString(PyObject* type, char const* text) {
    GilEnsure gil;
    PyErr_SetString(type, text);
}

PyObject* getFromZel(char const* name) {
    // The package module, looked up once it is imported and then kept for
    // the process; the interpreter lock serialises the first look-ups.
    static PyObject* zel = nullptr;
    if (!zel) {
        zel = PyMapping_GetItemString(PyImport_GetModuleDict(), const_cast<char*>("Zel"));
        if (!zel) return nullptr;
    }
    return PyObject_GetAttrString(zel, name);
}

} // namespace Zel

void PyErr_SetBacktrace(PyObject* type, Zel::Exception const& e, PyObject* args) {
    PyRef message(PyString_FromStringAndSize(e.message().data(), static_cast<Py_ssize_t>(e.message().size())));
    if (!message) return;
    PyRef instance(args ? PyObject_CallObject(type, args)
                        : PyObject_CallFunctionObjArgs(type, message.get(), nullptr));
    if (!instance) {
        PyErr_Clear();   // raise the kind without a value rather than the failure
        PyErr_SetNone(type);
        return;
    }
    if (e.backtrace()) {
        PyRef bt(PyBacktrace_FromBacktrace(e.backtrace(), message.get()));
        if (bt && PyObject_SetAttrString(instance.get(), "backtrace", bt.get()) < 0) PyErr_Clear();
    }
    PyErr_SetObject(type, instance.get());
}

String8 exceptionString(Zel::Exception const& e) {
    String8 s = demangledName(typeid(e));
    s += "(\"";
    s += e.message();
    s += "\")";
    return s;
}

String8 GenericIf_TypeAttributeString(Zel::ZelAttr const* attr) {
    String8 s;
    char const* typeName = attr && attr->scope() ? attr->scope()->name() : nullptr;
    if (!typeName) return s;
    s += typeName;
    s += ".";
    if (attr->name()) s += attr->name();
    return s;
}

void updateException(Zel::Exception* e, Zel::ZelAttr const* attr, char const* text) {
    String8 m = GenericIf_TypeAttributeString(attr);
    m += ": ";
    m += text;
    m += exceptionString(*e);
    e->messageIs(std::move(m));
    Zel::translateCppExceptionToPython();
}

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
            while (within && _PySet_Next(o, &pos, &key)) within = visit(key);
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
    if (repr && PyString_Check(repr.get())) {
        m += String8(PyString_AS_STRING(repr.get()), static_cast<size_t>(PyString_GET_SIZE(repr.get())));
    } else {
        PyErr_Clear();
        m += "[error getting repr]";
    }
    throw Zel::TypeException(std::move(m));
}

void GetStringsFromPyErr(String8* type, String8* value, String8* traceback) {
    PyObject* parts[3] = {nullptr, nullptr, nullptr};
    PyErr_Fetch(&parts[0], &parts[1], &parts[2]);
    String8* outs[3] = {type, value, traceback};
    for (int i = 0; i < 3; ++i) {
        // The fetched references themselves are kept (never released).
        if (!parts[i] || !outs[i]) continue;
        PyRef s(PyObject_Str(parts[i]));
        if (!s) {
            PyErr_Clear();
            continue;
        }
        if (!PyString_Check(s.get())) continue;
        *outs[i] = String8(PyString_AS_STRING(s.get()), static_cast<size_t>(PyString_GET_SIZE(s.get())));
    }
}

namespace {

void writeAll(int fd, char const* s, size_t n) {
    while (n > 0) {
        ssize_t w = ::write(fd, s, n);
        if (w <= 0) return;
        s += w;
        n -= static_cast<size_t>(w);
    }
}

void writeStr(int fd, char const* s) { writeAll(fd, s, std::strlen(s)); }

char const* stringOr(PyObject* o, char const* fallback) {
    return o && PyString_Check(o) ? PyString_AS_STRING(o) : fallback;
}

} // namespace

extern "C" void printPythonBacktrace(int fd) {
    static char const kNone[] = "\nNo Python traceback available\n";
    PyThreadState* ts = PyGILState_GetThisThreadState();
    if (!ts) {
        writeStr(fd, kNone);
        return;
    }
    char line[2000];
    // The error being raised, else the one being handled.
    PyObject* tb = ts->curexc_traceback ? ts->curexc_traceback : ts->exc_traceback;
    PyObject* type = ts->curexc_traceback || ts->curexc_value ? ts->curexc_type : ts->exc_type;
    PyObject* value = ts->curexc_traceback || ts->curexc_value ? ts->curexc_value : ts->exc_value;
    if (tb) {
        writeStr(fd, "Current Python exception (most recent call LAST):\n");
        if (Py_TYPE(tb) == &PyTraceBack_Type) {
            for (auto* t = reinterpret_cast<PyTracebackObject*>(tb); t; t = t->tb_next) {
                PyCodeObject* code = t->tb_frame->f_code;
                std::snprintf(line, sizeof line, "  File \"%.500s\", line %d, in %.500s\n",
                              stringOr(code->co_filename, "<unknown>"), t->tb_lineno,
                              stringOr(code->co_name, "<unknown>"));
                writeStr(fd, line);
            }
        } else {
            writeStr(fd, "Internal error: PyThreadState contains an invalid traceback\n");
        }
    }
    if (value) {
        writeStr(fd, type && PyType_Check(type) ? reinterpret_cast<PyTypeObject*>(type)->tp_name
                                                 : Py_TYPE(value)->tp_name);
        writeStr(fd, ": ");
        PyObject* s = PyObject_Str(value);
        if (s && PyString_Check(s)) {
            writeAll(fd, PyString_AS_STRING(s), static_cast<size_t>(PyString_GET_SIZE(s)));
        } else {
            writeStr(fd, "(failed to get exception error message)");
        }
        Py_XDECREF(s);
        writeStr(fd, "\n");
    }
    if (ts->frame) {
        writeStr(fd, "\nPython traceback (most recent call FIRST):\n");
        for (PyFrameObject* f = ts->frame; f; f = f->f_back) {
            PyCodeObject* code = f->f_code;
            std::snprintf(line, sizeof line, "  File \"%s\", line %d, in %s\n",
                          stringOr(code->co_filename, "<unknown>"), PyCode_Addr2Line(code, f->f_lasti),
                          stringOr(code->co_name, "<unknown>"));
            writeStr(fd, line);
        }
        return;
    }
    writeStr(fd, kNone);
}
