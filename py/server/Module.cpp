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

namespace {

PyObject* serve(PyObject*, PyObject* args) {
    int fd;
    PyObject *ns, *runExec, *formatError;
    if (!PyArg_ParseTuple(args, "iO!OO:serve", &fd, &PyDict_Type, &ns, &runExec, &formatError)) return nullptr;
    if (fd < 0 || !PyCallable_Check(runExec) || !PyCallable_Check(formatError)) {
        PyErr_SetString(PyExc_TypeError, "serve() takes a socket descriptor, a dict and two callables");
        return nullptr;
    }
    try {
        std::string bad;
        {
            // The cached code goes with the lock held: serveConnection
            // returns holding it, whichever way it ends.
            ZelServer::Commands commands({ns, runExec, formatError});
            ZelServer::serveConnection(fd, commands, bad);
        }
        if (bad.empty()) Py_RETURN_NONE;
        return PyString_FromStringAndSize(bad.data(), Py_ssize_t(bad.size()));
    } catch (std::bad_alloc const&) {
        return PyErr_NoMemory();
    } catch (std::exception const& e) {
        PyErr_SetString(PyExc_RuntimeError, e.what());
        return nullptr;
    }
}

PyMethodDef functions[] = {
    {"serve", serve, METH_VARARGS, "Serve one PyClient connection until it ends"},
    {nullptr, nullptr, 0, nullptr},
};

} // namespace

extern "C" __attribute__((visibility("default"))) void init_ZelServer() {
    Py_InitModule3("_ZelServer", functions, "Native serving loop of PyServer connections");
}
