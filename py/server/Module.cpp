// _ZelServer: the native side of PyServer's connections.
//
// serve(fd, namespace, runExec, formatError[, console[, watch[, stacks]]])
// serves one connected socket until the peer closes it or stop() shuts it
// down (returns None), or the peer sends a bad frame (returns what was
// wrong, for the server's notice). It runs on the connection's own thread
// and gives the interpreter lock up while it waits. The socket stays open:
// its owner closes it. The console object answers the console's kinds;
// watch(command) serves a watch request and stacks() answers a stacks
// request; without them those requests are answered with an error.
//
// runInterruptibly(code, globals) runs a code object as exec does, as the
// command's own code: where an interruption of its connection reaches it.
//
// interrupt(fd) raises KeyboardInterrupt in the thread running a command
// on the connection `fd` serves; False when none runs there.
//
// sleep(seconds) is time.sleep as PyServer installs it: in a command's own
// code an interruption ends it at once; anywhere else, and for anything
// but a plain non-negative number, it is the time.sleep this module found
// when it was loaded, called as it is.
#include <Python.h>

#include <cmath>
#include <exception>
#include <new>
#include <string>

#include "Command.h"
#include "Running.h"
#include "Serve.h"
#include "module/core/EntryPoint.h"
#include "support/PyCompat.h"

using Zel::GilHeld;
using Zel::PyResult;

namespace {

// This module links Python alone: its errors are the standard library's.
struct ServerFrame {
    template <class Body>
    auto enter(GilHeld gil, Body& body) {
        return body(gil);
    }
    void translate() {
        try {
            throw;
        } catch (std::bad_alloc const&) {
            PyErr_NoMemory();
        } catch (std::exception const& e) {
            PyErr_SetString(PyExc_RuntimeError, e.what());
        } catch (...) {
            PyErr_SetString(PyExc_RuntimeError, "unknown C++ exception");
        }
    }
};

PyResult serve(GilHeld gil, PyObject*, PyObject* args) {
    int fd;
    PyObject *ns, *runExec, *formatError, *console = Py_None, *watch = Py_None, *stacks = Py_None;
    if (!PyArg_ParseTuple(args, "iO!OO|OOO:serve", &fd, &PyDict_Type, &ns, &runExec, &formatError, &console, &watch,
                          &stacks)) {
        return PyResult::failed();
    }
    if (fd < 0 || !PyCallable_Check(runExec) || !PyCallable_Check(formatError)) {
        PyErr_SetString(PyExc_TypeError, "serve() takes a socket descriptor, a dict and two callables");
        return PyResult::failed();
    }
    if ((watch != Py_None && !PyCallable_Check(watch)) || (stacks != Py_None && !PyCallable_Check(stacks))) {
        PyErr_SetString(PyExc_TypeError, "serve()'s watch and stacks are callables or None");
        return PyResult::failed();
    }
    std::string bad;
    {
        // The cached code goes with the lock held: serveConnection
        // returns holding it, whichever way it ends.
        auto given = [](PyObject* o) { return o == Py_None ? nullptr : o; };
        ZelServer::Commands commands({ns, runExec, formatError, given(console), fd, given(watch), given(stacks)});
        ZelServer::serveConnection(fd, commands, bad);
    }
    if (bad.empty()) return PyResult::none(gil);
    return PyResult::of(gil, Zel::compat::text(bad.data(), bad.size()));
}

PyResult runInterruptibly(GilHeld gil, PyObject*, PyObject* args) {
    PyObject *code, *globals;
    if (!PyArg_ParseTuple(args, "O!O!:runInterruptibly", &PyCode_Type, &code, &PyDict_Type, &globals)) {
        return PyResult::failed();
    }
    if (!ZelServer::ensureBuiltins(globals)) return PyResult::failed();
    ZelServer::InterruptibleCode interruptible;
    if (!interruptible.mayStart()) return PyResult::failed();
    return PyResult::of(gil, interruptible.ended(Zel::compat::evalCode(code, globals, globals)));
}

// time.sleep as it was when the module was loaded (a new reference kept
// for the life of the process), or null with the error set.
PyObject* originalSleep() {
    static PyObject* const original = [] {
        Zel::PyRef time(PyImport_ImportModule("time"));
        return time ? PyObject_GetAttrString(time.get(), "sleep") : nullptr;
    }();
    if (!original && !PyErr_Occurred()) PyErr_SetString(PyExc_RuntimeError, "time.sleep could not be found");
    return original;
}

PyResult sleep(GilHeld gil, PyObject*, PyObject* args) {
    PyObject* seconds;
    if (!PyArg_ParseTuple(args, "O:sleep", &seconds)) return PyResult::failed();
    if (PyFloat_CheckExact(seconds) || PyLong_CheckExact(seconds) || Zel::compat::isExactSmallInt(seconds)) {
        double const s = PyFloat_AsDouble(seconds);
        if (s == -1.0 && PyErr_Occurred()) {
            PyErr_Clear();   // the original says what is wrong with it
        } else if (std::isfinite(s) && s >= 0) {
            switch (ZelServer::sleepInterruptibly(s)) {
            case ZelServer::Slept::Done: return PyResult::none(gil);
            case ZelServer::Slept::Interrupted: return PyResult::failed();
            case ZelServer::Slept::NotServing: break;
            }
        }
    }
    PyObject* original = originalSleep();
    if (!original) return PyResult::failed();
    return PyResult::of(gil, PyObject_CallObject(original, args));
}

PyResult interrupt(GilHeld gil, PyObject*, PyObject* args) {
    int fd;
    if (!PyArg_ParseTuple(args, "i:interrupt", &fd)) return PyResult::failed();
    return PyResult::of(gil, PyBool_FromLong(ZelServer::interruptCommand(fd, PyExc_KeyboardInterrupt)));
}

PyMethodDef functions[] = {
    {"serve", Zel::entryWith<ServerFrame, serve>, METH_VARARGS, "Serve one PyClient connection until it ends"},
    {"runInterruptibly", Zel::entryWith<ServerFrame, runInterruptibly>, METH_VARARGS,
     "Run a code object in globals where another connection's interrupt request can reach it"},
    {"interrupt", Zel::entryWith<ServerFrame, interrupt>, METH_VARARGS,
     "Raise KeyboardInterrupt in the command running on a served connection"},
    {"sleep", Zel::entryWith<ServerFrame, sleep>, METH_VARARGS,
     "sleep(seconds): time.sleep, which in a served command an interruption ends at once"},
    {nullptr, nullptr, 0, nullptr},
};

Zel::compat::ModuleDef definition("_ZelServer", functions, "Native serving loop of PyServer connections");

PyObject* makeModule() {
    // The time.sleep that sleep() stands in for, found before anyone
    // installs sleep() itself in its place.
    if (!originalSleep()) return nullptr;
    return definition.create();
}

} // namespace

ZELPY_MODULE_INIT(_ZelServer, makeModule)
