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

using Zel::Activity;
using Zel::EntryPoint;
using Zel::GilHeld;
using Zel::NativePhase;
using Zel::PyResult;

namespace {

// Parsing needs the interpreter lock, which may be taken while holding the
// activity lock (the permitted order); it is given back for the
// framework call.
template <class... Out>
bool parseUnderAnchor(NativePhase& phase, PyObject* args, char const* format, Out... out) {
    return phase.withGil([&](GilHeld) { return PyArg_ParseTuple(args, format, out...) != 0; });
}

PyResult none(NativePhase& phase) {
    return phase.finish([](GilHeld held) { return PyResult::none(held); });
}

template <class Root>
PyResult root(GilHeld gil, Root get) {
    return EntryPoint::run(gil, Activity{}, [&](NativePhase& phase) {
        Zel::Ptr<Zel::PtrInterface> const object = get();
        return phase.finish([&](GilHeld held) { return Zel::gifPtrOf(held, object); });
    });
}

} // namespace

PyResult PyZel_globalDir(GilHeld gil, PyObject*, PyObject*) {
    return root(gil, [] { return Zel::Ptr<Zel::PtrInterface>(Zel::globalDir()); });
}

PyResult PyZel_globalNboAttrLogConnectionDir(GilHeld gil, PyObject*, PyObject*) {
    // A raw pointer: the Ptr takes the counted reference.
    return root(gil, [] { return Zel::Ptr<Zel::PtrInterface>(Zel::NboAttrLog::connectionDir()); });
}

PyResult PyZel_globalNboAttrLogDemuxerManager(GilHeld gil, PyObject*, PyObject*) {
    return root(gil, [] { return Zel::Ptr<Zel::PtrInterface>(Zel::globalNboAttrLogDemuxerManager()); });
}

PyResult PyZel_singleton(GilHeld gil, PyObject*, PyObject* args) {
    return EntryPoint::run(gil, Activity{}, [&](NativePhase& phase) {
        char const* name = nullptr;
        if (!parseUnderAnchor(phase, args, "s:singleton", &name)) return PyResult::failed();
        Zel::Ptr<Zel::Entity> const entity = Zel::Entity::singleton(Zel::Name(name));
        if (!entity) throw Zel::TypeException(Zel::String8("Type ") + name + " not found");
        return phase.finish([&](GilHeld held) { return Zel::gifPtrOf(held, entity); });
    });
}

PyResult PyZel_handle(GilHeld gil, PyObject*, PyObject* args) {
    return EntryPoint::run(gil, Activity{Zel::PyLockAnchor::retakeGil}, [&](NativePhase& phase) {
        // Both locks from here on: the handle takes its reference to the
        // object as it is made.
        return phase.finish([&](GilHeld held) {
            PyObject* object = nullptr;
            if (!PyArg_ParseTuple(args, "O:handle", &object)) return PyResult::failed();
            Zel::Ptr<Zel::PyObjHandle> const handle = Zel::pyObjHandleFactory(object, false);
            return Zel::gifPtrOf(held, handle);
        });
    });
}

PyResult PyZel_trace_h(GilHeld gil, PyObject*, PyObject* args) {
    Zel::PtrInterface* object = nullptr;
    char const* file = nullptr;
    int line = 0;
    char const* function = nullptr;
    char const* message = nullptr;
    Py_ssize_t messageLength = 0;
    int level = 0;
    if (!PyArg_ParseTuple(args, "O&siss#i:trace_h", Convert_To_PtrInterface_Or_Null, &object, &file, &line,
                          &function, &message, &messageLength, &level)) {
        return PyResult::failed();
    }
    Zel::PyStatus const traced = EntryPoint::run(gil, Zel::RefCounts{}, [&] {
        // The exact length: embedded NUL bytes are part of the message.
        Zel::trace_h(object, file, line, function, Zel::String8(message, static_cast<size_t>(messageLength)), level);
        return Zel::PyStatus::ok();
    });
    if (!traced) return PyResult::failed();
    return PyResult::none(gil);
}

PyResult PyZel_traceLineSuppressed(GilHeld gil, PyObject*, PyObject* args) {
    Zel::PtrInterface* object = nullptr;
    int level = 0;
    if (!PyArg_ParseTuple(args, "O&i:traceLineSuppressed", Convert_To_PtrInterface_Or_Null, &object, &level)) {
        return PyResult::failed();
    }
    return EntryPoint::run(gil, Zel::Expecting{}, [&](GilHeld held) {
        return PyResult::of(held, PyBool_FromLong(Zel::traceLineSuppressed(object, level)));
    });
}

PyResult PyZel_setproctitle(GilHeld gil, PyObject*, PyObject* args) {
    return EntryPoint::run(gil, Activity{}, [&](NativePhase& phase) {
        int argc = 0;
        char** argv = nullptr;
        char const* a = nullptr;
        char const* b = nullptr;
        char const* c = nullptr;
        bool const parsed = phase.withGil([&](GilHeld) {
            argc = Zel::compat::interpreterArgs(argv);
            // 3 keeps only a decoded copy of the arguments: the title goes
            // over the process's own, which the interpreter was started with.
            if (argc > 0 && !argv) {
                argc = Zel::procArgc();
                argv = Zel::procArgv();
            }
            return PyArg_ParseTuple(args, "sss:setproctitle", &a, &b, &c) != 0;
        });
        if (!parsed) return PyResult::failed();
        Zel::procTitleIs(argc, argv, a, b, c);
        return none(phase);
    });
}

PyResult PyZel_setexternalinfo(GilHeld gil, PyObject*, PyObject* args) {
    return EntryPoint::run(gil, Activity{}, [&](NativePhase& phase) {
        char const* title = nullptr;
        int socket = 0;
        char const* socketName = nullptr;
        if (!parseUnderAnchor(phase, args, "sis:setexternalinfo", &title, &socket, &socketName)) {
            return PyResult::failed();
        }
        Zel::externalProcTitleIs(title);
        // No socket: the recorded socket and its name stay as they were.
        if (socket) {
            Zel::NboAttrLog::externallySetSocket = socket;
            Zel::NboAttrLog::externallySetSocketName = Zel::String8(socketName);
        }
        return none(phase);
    });
}

PyResult PyZel_printexternalinfo(GilHeld gil, PyObject*, PyObject*) {
    return EntryPoint::run(gil, Activity{}, [&](NativePhase& phase) {
        int const socket = Zel::NboAttrLog::externallySetSocket;
        Zel::String8 const title = Zel::externalProcTitle();
        std::printf("externalProcTitle=%s, externallySetSocket=%d, externallySetSocketName=%s\n", title.c_str(),
                    socket, Zel::NboAttrLog::externallySetSocketName.c_str());
        std::fflush(stdout);
        return none(phase);
    });
}

PyResult PyZel_activityManagerExecTimeIs(GilHeld gil, PyObject*, PyObject* args) {
    double seconds = 0;
    if (!PyArg_ParseTuple(args, "d:activityManagerExecTimeIs", &seconds)) return PyResult::failed();
    // The loop releases the activity lock for callbacks: it must be
    // releasable here. Expected from before the anchor, which refuses
    // otherwise.
    return EntryPoint::run(gil, Zel::Expecting{}, [&](GilHeld held) {
        return EntryPoint::run(held, Activity{Zel::PyLockAnchor::requireReleasable, {}}, [&](NativePhase& phase) {
            Zel::Ptr<Zel::ActivityManagerConfig> config = Zel::ActivityFacility::activityManagerConfig();
            config->execTimeIs(seconds);
            config.reset();
            return none(phase);
        });
    });
}
