// Module functions that reach the framework's process-wide objects: the
// directory roots, singletons, object handles, tracing, the process title,
// the external info and the activity loop.
#include <cstdio>

#include "module/core/Module.h"
#include "Zel/Activity.h"
#include "Zel/Dir.h"
#include "Zel/NboAttrLog.h"
#include "Zel/ProcTitle.h"
#include "Zel/Trace.h"
#include "ZelPy/PyObjHandle.h"

// Exported by the interpreter but declared in none of its headers.
extern "C" void Py_GetArgcArgv(int* argc, char*** argv);

namespace {

// Parsing needs the interpreter lock, which may be taken while holding the
// activity lock (the permitted order); it is given back for the
// framework call.
template <class... Out>
bool parseUnderAnchor(Zel::PyLockAnchor& anchor, PyObject* args, char const* format, Out... out) {
    anchor.gilHeldIs(true);
    bool const parsed = PyArg_ParseTuple(args, format, out...);
    if (parsed) anchor.gilHeldIs(false);
    return parsed;
}

template <class Root>
PyObject* root(Root get) {
    try {
        Zel::PyLockAnchor anchor(0);
        Zel::Ptr<Zel::PtrInterface> object;
        {
            Zel::Expect expect(Zel::Exception::idExpectAll);
            object = get();
        }
        anchor.gilHeldIs(true);
        return FwkPyObj_FromPtrInterface(object);
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

} // namespace

PyObject* PyZel_globalDir(PyObject*, PyObject*) {
    return root([] { return Zel::Ptr<Zel::PtrInterface>(Zel::globalDir()); });
}

PyObject* PyZel_globalNboAttrLogConnectionDir(PyObject*, PyObject*) {
    // A raw pointer: the Ptr takes the counted reference.
    return root([] { return Zel::Ptr<Zel::PtrInterface>(Zel::NboAttrLog::connectionDir()); });
}

PyObject* PyZel_globalNboAttrLogDemuxerManager(PyObject*, PyObject*) {
    return root([] { return Zel::Ptr<Zel::PtrInterface>(Zel::globalNboAttrLogDemuxerManager()); });
}

PyObject* PyZel_singleton(PyObject*, PyObject* args) {
    try {
        Zel::PyLockAnchor anchor(0);
        char const* name = nullptr;
        if (!parseUnderAnchor(anchor, args, "s:singleton", &name)) return nullptr;
        Zel::Ptr<Zel::Entity> entity;
        {
            Zel::Expect expect(Zel::Exception::idExpectAll);
            entity = Zel::Entity::singleton(Zel::Name(name));
            if (!entity) throw Zel::TypeException(Zel::String8("Type ") + name + " not found");
        }
        anchor.gilHeldIs(true);
        return FwkPyObj_FromPtrInterface(entity);
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* PyZel_handle(PyObject*, PyObject* args) {
    try {
        Zel::PyLockAnchor anchor(Zel::PyLockAnchor::retakeGil);
        PyObject* object = nullptr;
        if (!PyArg_ParseTuple(args, "O:handle", &object)) return nullptr;
        Zel::Ptr<Zel::PyObjHandle> handle;
        {
            Zel::Expect expect(Zel::Exception::idExpectAll);
            handle = Zel::pyObjHandleFactory(object, false);
        }
        return FwkPyObj_FromPtrInterface(handle);
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* PyZel_trace_h(PyObject*, PyObject* args) {
    Zel::PtrInterface* object = nullptr;
    char const* file = nullptr;
    int line = 0;
    char const* function = nullptr;
    char const* message = nullptr;
    int messageLength = 0;
    int level = 0;
    if (!PyArg_ParseTuple(args, "O&siss#i:trace_h", Convert_To_PtrInterface_Or_Null, &object, &file, &line,
                          &function, &message, &messageLength, &level)) {
        return nullptr;
    }
    try {
        Zel::GilUnlockAnchorThreadSafePtr anchor;
        Zel::Expect expect(Zel::Exception::idExpectAll);
        // The exact length: embedded NUL bytes are part of the message.
        Zel::trace_h(object, file, line, function, Zel::String8(message, static_cast<size_t>(messageLength)), level);
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
    Py_RETURN_NONE;
}

PyObject* PyZel_traceLineSuppressed(PyObject*, PyObject* args) {
    Zel::PtrInterface* object = nullptr;
    int level = 0;
    if (!PyArg_ParseTuple(args, "O&i:traceLineSuppressed", Convert_To_PtrInterface_Or_Null, &object, &level)) {
        return nullptr;
    }
    try {
        Zel::Expect expect(Zel::Exception::idExpectAll);
        return PyBool_FromLong(Zel::traceLineSuppressed(object, level));
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* PyZel_setproctitle(PyObject*, PyObject* args) {
    try {
        Zel::PyLockAnchor anchor(0);
        int argc = 0;
        char** argv = nullptr;
        char const* a = nullptr;
        char const* b = nullptr;
        char const* c = nullptr;
        anchor.gilHeldIs(true);
        Py_GetArgcArgv(&argc, &argv);
        if (!parseUnderAnchor(anchor, args, "sss:setproctitle", &a, &b, &c)) return nullptr;
        {
            Zel::Expect expect(Zel::Exception::idExpectAll);
            Zel::procTitleIs(argc, argv, a, b, c);
        }
        anchor.gilHeldIs(true);
        Py_RETURN_NONE;
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* PyZel_setexternalinfo(PyObject*, PyObject* args) {
    try {
        Zel::PyLockAnchor anchor(0);
        char const* title = nullptr;
        int socket = 0;
        char const* socketName = nullptr;
        if (!parseUnderAnchor(anchor, args, "sis:setexternalinfo", &title, &socket, &socketName)) return nullptr;
        {
            Zel::Expect expect(Zel::Exception::idExpectAll);
            Zel::externalProcTitleIs(title);
            // No socket: the recorded socket and its name stay as they were.
            if (socket) {
                Zel::NboAttrLog::externallySetSocket = socket;
                Zel::NboAttrLog::externallySetSocketName = Zel::String8(socketName);
            }
        }
        anchor.gilHeldIs(true);
        Py_RETURN_NONE;
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* PyZel_printexternalinfo(PyObject*, PyObject*) {
    try {
        Zel::PyLockAnchor anchor(0);
        {
            Zel::Expect expect(Zel::Exception::idExpectAll);
            int const socket = Zel::NboAttrLog::externallySetSocket;
            Zel::String8 const title = Zel::externalProcTitle();
            std::printf("externalProcTitle=%s, externallySetSocket=%d, externallySetSocketName=%s\n", title.c_str(),
                        socket, Zel::NboAttrLog::externallySetSocketName.c_str());
            std::fflush(stdout);
        }
        anchor.gilHeldIs(true);
        Py_RETURN_NONE;
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

PyObject* PyZel_activityManagerExecTimeIs(PyObject*, PyObject* args) {
    double seconds = 0;
    if (!PyArg_ParseTuple(args, "d:activityManagerExecTimeIs", &seconds)) return nullptr;
    try {
        Zel::Expect expect(Zel::Exception::idExpectAll);
        // The loop releases the activity lock for callbacks: it must be
        // releasable here.
        Zel::PyLockAnchor anchor(Zel::PyLockAnchor::requireReleasable);
        Zel::Ptr<Zel::ActivityManagerConfig> config = Zel::ActivityFacility::activityManagerConfig();
        config->execTimeIs(seconds);
        config.reset();
        anchor.gilHeldIs(true);
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
    Py_RETURN_NONE;
}
