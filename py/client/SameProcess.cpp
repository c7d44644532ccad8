// Same-process mode: when the agent is this process, commands run in its
// own interpreter through one PyServer._LocalServer per client.
#include <cstdio>
#include <cstring>

#include "support/Gil.h"
#include "support/PyCompat.h"
#include "support/PyRef.h"
#include "support/WireProtocol.h"
#include "ClientTrace.h"
#include "Zel/Exception.h"
#include "ZelPy/Errors.h"
#include "ZelPy/PyObjHandle.h"

namespace Zel {

namespace {

// str() of an object, or a placeholder when even that fails.
String8 textOf(PyObject* o) {
    if (!o) return String8("None");
    PyRef s(PyObject_Str(o));
    compat::StringBytes c(s ? s.get() : Py_None);
    if (!c) {
        PyErr_Clear();
        return String8("<unprintable>");
    }
    return String8(c.data());
}

// The pending error's type and value texts, read by the module's error
// drain; the error is taken (cleared). It is normalized first, so that the
// value reads as the exception instance; a missing part reads "None", one
// whose str() fails "<unprintable>", as textOf() has them.
struct PyErrTexts {
    String8 type;
    String8 value;
};
PyErrTexts takePyErr() {
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* tb = nullptr;
    PyErr_Fetch(&type, &value, &tb);
    PyErr_NormalizeException(&type, &value, &tb);
    PyErrTexts texts{String8(type ? "<unprintable>" : "None"), String8(value ? "<unprintable>" : "None")};
    PyErr_Restore(type, value, tb);
    GetStringsFromPyErr(&texts.type, &texts.value, nullptr);
    PyErr_Clear();
    return texts;
}

// The error's texts serve only the trace line, and the drain keeps the
// references it fetches; so it reads them only when that line is written,
// and otherwise the error is just cleared.
[[noreturn]] void failLocal(char const* function, String8 const& message) {
    if (traceLineSuppressed(PyClient::traceHandle(), 0)) {
        PyErr_Clear();
    } else {
        PyErrTexts e = takePyErr();
        PYCLIENT_TRACE(0, function, message << ": " << e.type << ", " << e.value);
    }
    throw RpcException(message, Exception::IdBitArray(0x100000));
}

} // namespace

void PyClient::constructLocalServer() {
    PYCLIENT_TRACE(1, "constructLocalServer", "Instantiating a PyServer._LocalServer");
    static char const kInstantiateFailed[] = "Error occurred instantiating _LocalServer";
    Ptr<PyObjHandle> module = pyObjHandleFactory(PyImport_ImportModule("PyServer"), true);
    if (!module->pyObject()) failLocal("constructLocalServer", kInstantiateFailed);
    PyObject* cls = PyDict_GetItemString(PyModule_GetDict(module->pyObject()), "_LocalServer");
    if (!cls) {
        PyErr_SetString(PyExc_AttributeError, "module PyServer has no _LocalServer");
        failLocal("constructLocalServer", kInstantiateFailed);
    }
    if (!PyType_Check(cls)) {
        PYCLIENT_TRACE(0, "constructLocalServer", "PyServer._LocalServer is not a type");
        throw RpcException("PyServer._LocalServer is not a type", Exception::IdBitArray(0x100000));
    }
    Ptr<PyObjHandle> args = pyObjHandleFactory(Py_BuildValue("()"), true);
    Ptr<PyObjHandle> instance =
        pyObjHandleFactory(PyObject_CallObject(cls, args->pyObject()), true);
    if (PyErr_Occurred() || !instance->pyObject()) failLocal("constructLocalServer", kInstantiateFailed);
    localServer_ = instance;
}

String8 PyClient::localResult(char const* cmd, char const* kind) {
    PYCLIENT_TRACE(1, "localCmd", "Executing command locally (in same address space)");
    GilEnsure gil;
    if (!localServer_) constructLocalServer();
    char const* name = std::strcmp(kind, wire::kEvaluate) == 0 ? "doEval" : "doExec";

    Ptr<PyObjHandle> method =
        pyObjHandleFactory(PyObject_GetAttrString(localServer_->pyObject(), name), true);
    if (PyErr_Occurred() || !method->pyObject()) {
        failLocal("localCmd", String8(name) + " attribute not found on _LocalServer instance");
    }
    Ptr<PyObjHandle> args = pyObjHandleFactory(Py_BuildValue("(s)", cmd), true);
    if (!args->pyObject()) failLocal("localCmd", String8("Error calling ") + name + " on _LocalServer instance");
    Ptr<PyObjHandle> ret =
        pyObjHandleFactory(PyObject_CallObject(method->pyObject(), args->pyObject()), true);
    if (PyErr_Occurred() || !ret->pyObject()) {
        failLocal("localCmd", String8("Error calling ") + name + " on _LocalServer instance");
    }
    // A method that returns something other than a string yields its str().
    compat::StringBytes returned(compat::isText(ret->pyObject()) ? ret->pyObject() : Py_None);
    if (returned) return String8(returned.data(), returned.size());
    PyErr_Clear();
    return textOf(ret->pyObject());
}

int PyClient::localCmd(char const* cmd, char const* kind, char* result, int resultSize) {
    String8 text = localResult(cmd, kind);
    int n = std::snprintf(result, resultSize > 0 ? static_cast<size_t>(resultSize) : 0, "%s", text.c_str());
    return n;
}

} // namespace Zel
