// _Zel: the module's types, function table, constants and the
// process hooks it installs (SIGINT, crash backtrace).
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "module/core/Module.h"
#include "Zel/Activity.h"

namespace {

using SignalHandler = void (*)(int);

// Python's own SIGINT handler, chained after the activity loop is told to stop.
SignalHandler previousSigint = nullptr;

void sigintHandler(int sig) {
    try {
        Zel::ActivityFacility::activityManagerConfig()->stopOnQuiesceIs(true);
    } catch (...) {
        // Nothing can be reported from signal context; the chained handler
        // still raises KeyboardInterrupt.
    }
    if (previousSigint) previousSigint(sig);
}

// Entries join this table as the module's operations are built; the
// documentation strings are part of the module's interface.
PyMethodDef moduleFunctions[] = {
    {"globalDir", Zel::entry<PyZel_globalDir>, METH_NOARGS, "The global root Dir"},
    {"globalNboAttrLogConnectionDir", Zel::entry<PyZel_globalNboAttrLogConnectionDir>, METH_NOARGS,
     "The global Zel::ConnectionDir"},
    {"globalNboAttrLogDemuxerManager", Zel::entry<PyZel_globalNboAttrLogDemuxerManager>, METH_NOARGS,
     "The global Zel::NboAttrLog::DemuxerManager"},
    {"trace_h", Zel::entry<PyZel_trace_h>, METH_VARARGS, "trace a message"},
    {"setproctitle", Zel::entry<PyZel_setproctitle>, METH_VARARGS, "set the process title"},
    {"setexternalinfo", Zel::entry<PyZel_setexternalinfo>, METH_VARARGS, "set the external info for passive mount"},
    {"printexternalinfo", Zel::entry<PyZel_printexternalinfo>, METH_VARARGS, "print the external info for passive mount"},
    {"traceLineSuppressed", Zel::entry<PyZel_traceLineSuppressed>, METH_VARARGS,
     "determine if a tracing level is currently suppressed"},
    {"acquireActivityLock", Zel::entry<PyZel_acquireActivityLock>, METH_NOARGS, "Acquire the global activity lock"},
    {"releaseActivityLock", Zel::entry<PyZel_releaseActivityLock>, METH_NOARGS, "Release the global activity lock"},
    {"activityLockOwner", Zel::entry<PyZel_activityLockOwner>, METH_NOARGS, "owner of the activity lock"},
    {"enableThreadSafePointers", Zel::entry<PyZel_enableThreadSafePointers>, METH_NOARGS, "enable atomic smart pointers"},
    {"activityManagerExecTimeIs", Zel::entry<PyZel_activityManagerExecTimeIs>, METH_VARARGS,
     "Run activities for an interval of time"},
    {"singleton", Zel::entry<PyZel_singleton>, METH_VARARGS, "Look up a singleton by type name"},
    {"handle", Zel::entry<PyZel_handle>, METH_VARARGS, "Create a PyObject handle"},
    {"nullGenericIf", Zel::entry<PyZel_nullGenericIf>, METH_NOARGS,
     "Create a new genericIf instance for a NULL pointer. Return a GifPtr"},
    {"newGenericIf", Zel::entry<PyZel_newGenericIf>, METH_VARARGS,
     "Create a new genericIf instance from a typename and constructor args. Return a GifPtr"},
    {"typeNode", Zel::entry<PyZel_typeNode>, METH_VARARGS, "Return the Zel::ZelType object with the specified name"},
    {nullptr, nullptr, 0, nullptr},
};

Zel::compat::ModuleDef definition("_Zel", moduleFunctions, "Module providing access to Zel types");

// The running interpreter's major and minor version, read from its version
// string: single digits on 2 ("2.7.18"), the numbers up to the dots on 3
// ("3.11.2").
std::pair<int, int> runningVersion() {
    char const* version = Py_GetVersion();
    if (!Zel::compat::kPython3) return {version[0] - '0', version[1] ? version[2] - '0' : 0};
    char* end = nullptr;
    long const major = std::strtol(version, &end, 10);
    long const minor = *end == '.' ? std::strtol(end + 1, nullptr, 10) : 0;
    return {static_cast<int>(major), static_cast<int>(minor)};
}

PyObject* makeModule() {
    for (PyTypeObject* t : {&PyZelType_Type, &PyZelAttr_Type, &FwkPyGenericIfIterator_Type, &FwkPyGenericIf_Type}) {
        if (PyType_Ready(t) < 0) return nullptr;
    }
    PyObject* module = definition.create();
    if (!module) return nullptr;

    // Checked only now, with the module made: a mismatch ends the process.
    auto const [major, minor] = runningVersion();
    if (major != PY_MAJOR_VERSION || minor != PY_MINOR_VERSION) {
        std::fprintf(stderr, "This library requires Python %d.%d, not Python %d.%d\n", PY_MAJOR_VERSION,
                     PY_MINOR_VERSION, major, minor);
        std::exit(1);
    }

    Py_INCREF(&FwkPyGenericIf_Type);
    PyModule_AddObject(module, "GifPtr", reinterpret_cast<PyObject*>(&FwkPyGenericIf_Type));
    PyModule_AddIntConstant(module, "IteratorModeKeys", 0);
    PyModule_AddIntConstant(module, "IteratorModeValues", 1);
    PyModule_AddIntConstant(module, "IteratorModeItems", 2);
    initBacktrace(module);

    previousSigint = std::signal(SIGINT, sigintHandler);

    // A second initialisation in one process is a fatal misuse.
    ZELPY_CHECK(!printBacktraceFn);
    printBacktraceFn = printPythonBacktrace;
    return module;
}

} // namespace

ZELPY_MODULE_INIT(_Zel, makeModule)
