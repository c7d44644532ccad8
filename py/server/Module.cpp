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
#include <Python.h>

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
    return PyResult::of(gil,
                        interruptible.ended(PyEval_EvalCode(reinterpret_cast<PyCodeObject*>(code), globals, globals)));
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
    {nullptr, nullptr, 0, nullptr},
};

Zel::compat::ModuleDef definition("_ZelServer", functions, "Native serving loop of PyServer connections");

PyObject* makeModule() { return definition.create(); }

} // namespace

ZELPY_MODULE_INIT(_ZelServer, makeModule)
