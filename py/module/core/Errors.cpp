// Framework exceptions become pending Python exceptions here, and only here.
#include "module/convert/Convert.h"
#include "module/core/Module.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <typeinfo>

#include "Zel/Demangle.h"

using Zel::PyRef;
using Zel::String8;

namespace {

void raise(PyObject* type, Zel::Exception const& e) { PyErr_SetBacktrace(type, e, nullptr); }

void raiseErrno(Zel::ErrnoException const& e) {
    String8 const text = Zel::errnoString(e.errnum());
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
    PyRef message(Zel::compat::text(e.message().data(), e.message().size()));
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
    // Raised as the instance's own class: on 3, OSError made from an error
    // number is the subclass for that number (FileNotFoundError for 2).
    PyErr_SetObject(Zel::compat::kPython3 ? reinterpret_cast<PyObject*>(Py_TYPE(instance.get())) : type, instance.get());
}

String8 exceptionString(Zel::Exception const& e) {
    String8 s = Zel::demangledName(typeid(e));
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
