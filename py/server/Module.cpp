// _ZelServer: the native side of PyServer's connections.
//
// serve(fd, namespace, runExec, formatError) serves one connected socket
// until the peer closes it or stop() shuts it down (returns None), or the
// peer sends a bad frame (returns what was wrong, for the server's
// notice). It runs on the connection's own thread and gives the
// interpreter lock up while it waits. The socket stays open: its owner
// closes it.
#include <Python.h>

#include <exception>
#include <new>
#include <string>

#include "Command.h"
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
    PyObject *ns, *runExec, *formatError;
    if (!PyArg_ParseTuple(args, "iO!OO:serve", &fd, &PyDict_Type, &ns, &runExec, &formatError)) {
        return PyResult::failed();
    }
    if (fd < 0 || !PyCallable_Check(runExec) || !PyCallable_Check(formatError)) {
        PyErr_SetString(PyExc_TypeError, "serve() takes a socket descriptor, a dict and two callables");
        return PyResult::failed();
    }
    std::string bad;
    {
        // The cached code goes with the lock held: serveConnection
        // returns holding it, whichever way it ends.
        ZelServer::Commands commands({ns, runExec, formatError});
        ZelServer::serveConnection(fd, commands, bad);
    }
    if (bad.empty()) return PyResult::none(gil);
    return PyResult::of(gil, Zel::compat::text(bad.data(), bad.size()));
}

PyMethodDef functions[] = {
    {"serve", Zel::entryWith<ServerFrame, serve>, METH_VARARGS, "Serve one PyClient connection until it ends"},
    {nullptr, nullptr, 0, nullptr},
};

Zel::compat::ModuleDef definition("_ZelServer", functions, "Native serving loop of PyServer connections");

PyObject* makeModule() { return definition.create(); }

} // namespace

ZELPY_MODULE_INIT(_ZelServer, makeModule)
