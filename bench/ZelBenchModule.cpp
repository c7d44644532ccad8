// _ZelBench: the floors that bench/run.py divides the module's hot paths
// by, and a heap probe for the memory rows.
//
// F1 callFloor(attr): a METH_VARARGS function parsing one "O&" argument
//   whose converter checks for a _Zel.ZelAttr exactly as the real entry
//   points do, and returning None. No attribute read can cost less.
// F2 lockedReadFloor(attr): F1 plus the lock protocol of an entry point
//   (release the interpreter lock, take the activity lock, read one native
//   int of a framework object, re-take the interpreter lock, build the int,
//   unlock). No read that honours the protocol can cost less.
// F7 notifiedSetFloor(attr, value): F1 for a set (the value parsed as an
//   int), then the lock protocol of a set that notifies one Python handler:
//   release the interpreter lock, take the activity lock, write the native
//   int; the callback's swap (take the interpreter lock, let the activity
//   lock go, call handler(name, value) with a name made once and the value
//   built anew, give the interpreter lock up, take the activity lock back);
//   unlock, re-take the interpreter lock. No set that honours the protocol
//   and calls a Python handler can cost less. The handler is the one given
//   to notifiedSetHandlerIs(handler).
// F5 bulkFloor(count, mode): the Python objects a bulk read of a collection
//   of `count` int keys (0, 1, ...) and string values makes, built as new
//   objects from plain native data that bulkFloorDataIs(count) made
//   beforehand (the values "vlan%012d" of the keys, as the benchmark's
//   Demo::Switch holds them): a list of the keys (mode 0), of the values (1), of
//   (key, value) tuples (2), or a dict of them (3). No framework access, no
//   lock: no bulk read can build its result for less.
// heapInUse(): bytes in use for objects of the C heap and of the
//   interpreter's small-object allocator; only differences mean anything.
#include <Python.h>

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Zel/Lock.h"
#include "Zel/PtrInterface.h"
#include "ZelPy/Types.h"
#include "support/Gil.h"
#include "support/PyRef.h"
#include "support/PyCompat.h"

namespace {

// The smallest counted framework object with a native int to read.
class Probe : public Zel::PtrInterface {
public:
    int value = 42;
};

Zel::Ptr<Probe> probe;   // made once at import, released at exit

int convertAttr(PyObject* obj, Zel::ZelAttr const** out) {
    if (!PyObject_TypeCheck(obj, &PyZelAttr_Type)) {
        PyErr_SetString(PyExc_TypeError, "Expected a _Zel.ZelAttr");
        return 0;
    }
    *out = reinterpret_cast<PyZelAttr*>(obj)->attr;
    return 1;
}

PyObject* callFloor(PyObject*, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    if (!PyArg_ParseTuple(args, "O&:callFloor", convertAttr, &attr)) return nullptr;
    Py_RETURN_NONE;
}

PyObject* lockedReadFloor(PyObject*, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    if (!PyArg_ParseTuple(args, "O&:lockedReadFloor", convertAttr, &attr)) return nullptr;
    try {
        // The least an entry point can do: the interpreter lock released
        // first (so taken back last, should the activity lock fail), taken
        // back before the int is built, while the activity lock is still
        // held; inline scopes, no call out of this module.
        Zel::ReleasedGil gil;
        Zel::ActivityLockScope hold;
        // A volatile read: the value may change under the lock for all the
        // compiler knows, so it is loaded on every call.
        long const value = *static_cast<int volatile*>(&probe->value);
        gil.retake();
        return Zel::compat::intFromLong(value);
    } catch (std::exception const& e) {
        // The scopes have ended here: the interpreter lock is held again.
        PyErr_SetString(PyExc_RuntimeError, e.what());
        return nullptr;
    }
}

// Kept for the process (never released: the interpreter may be gone by
// the time static destructors run).
PyObject* notifiedHandler = nullptr;
PyObject* notifiedName = nullptr;

PyObject* notifiedSetHandlerIs(PyObject*, PyObject* args) {
    PyObject* handler = nullptr;
    if (!PyArg_ParseTuple(args, "O:notifiedSetHandlerIs", &handler)) return nullptr;
    if (!PyFunction_Check(handler)) {
        PyErr_SetString(PyExc_TypeError, "the handler must be a Python function");
        return nullptr;
    }
    if (!notifiedName && !(notifiedName = Zel::compat::interned("i32"))) return nullptr;
    Py_INCREF(handler);
    Py_XDECREF(std::exchange(notifiedHandler, handler));
    Py_RETURN_NONE;
}

PyObject* notifiedSetFloor(PyObject*, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    PyObject* value = nullptr;
    if (!PyArg_ParseTuple(args, "O&O:notifiedSetFloor", convertAttr, &attr, &value)) return nullptr;
    long const v = Zel::compat::intValue(value);
    if (v == -1 && PyErr_Occurred()) return nullptr;
    if (!notifiedHandler) {
        PyErr_SetString(PyExc_RuntimeError, "no handler: call notifiedSetHandlerIs first");
        return nullptr;
    }
    PyObject* result = nullptr;
    try {
        Zel::ReleasedGil gil;
        Zel::ActivityLockScope hold;
        *static_cast<int volatile*>(&probe->value) = static_cast<int>(v);
        Zel::Lock* lock = Zel::ActivityLockAnchor::lock();
        {
            Zel::HeldGil callback(gil);   // taken while the activity lock is held: the permitted order
            lock->unlock();
            Zel::PyRef pyValue(Zel::compat::intFromLong(probe->value));
            PyObject* call[] = {notifiedName, pyValue.get()};
            result = pyValue ? Zel::compat::callFunction(notifiedHandler, call, 2) : nullptr;
        }   // the interpreter lock given up before waiting for the activity lock
        lock->lock();
    } catch (std::exception const& e) {
        PyErr_SetString(PyExc_RuntimeError, e.what());
        return nullptr;
    }
    if (!result) return nullptr;
    Py_DECREF(result);
    Py_RETURN_NONE;
}

// The values of F5's collections by their size; kept for the process, as
// the handler above is.
std::map<Py_ssize_t, std::vector<std::string>>* bulkData = nullptr;

PyObject* bulkFloorDataIs(PyObject*, PyObject* args) {
    Py_ssize_t count = 0;
    if (!PyArg_ParseTuple(args, "n:bulkFloorDataIs", &count)) return nullptr;
    std::vector<std::string> data;
    data.reserve(static_cast<size_t>(count));
    char text[32];
    for (Py_ssize_t i = 0; i < count; ++i) {
        int const n = std::snprintf(text, sizeof text, "vlan%012ld", static_cast<long>(i));
        data.emplace_back(text, static_cast<size_t>(n));
    }
    if (!bulkData) bulkData = new std::map<Py_ssize_t, std::vector<std::string>>;
    (*bulkData)[count] = std::move(data);
    Py_RETURN_NONE;
}

PyObject* bulkFloor(PyObject*, PyObject* args) {
    Py_ssize_t count = 0;
    int mode = 0;
    if (!PyArg_ParseTuple(args, "ni:bulkFloor", &count, &mode)) return nullptr;
    auto const found = bulkData ? bulkData->find(count) : decltype(bulkData->end()){};
    if (!bulkData || found == bulkData->end() || mode < 0 || mode > 3) {
        PyErr_SetString(PyExc_ValueError, "no such size or mode: call bulkFloorDataIs first");
        return nullptr;
    }
    std::vector<std::string> const& data = found->second;
    Zel::PyRef out(mode == 3 ? PyDict_New() : PyList_New(count));
    if (!out) return nullptr;
    for (Py_ssize_t i = 0; i < count; ++i) {
        std::string const& text = data[static_cast<size_t>(i)];
        PyObject* key = mode == 1 ? nullptr : Zel::compat::intFromLong(static_cast<long>(i));
        PyObject* value = mode == 0 ? nullptr : Zel::compat::text(text.data(), text.size());
        if ((mode != 1 && !key) || (mode != 0 && !value)) {
            Py_XDECREF(key);
            Py_XDECREF(value);
            return nullptr;
        }
        PyObject* member = key ? key : value;
        if (mode >= 2) {
            Zel::PyRef k(key), v(value);
            if (mode == 3) {
                if (PyDict_SetItem(out.get(), key, value) < 0) return nullptr;
                continue;
            }
            member = PyTuple_New(2);
            if (!member) return nullptr;
            PyTuple_SET_ITEM(member, 0, k.release());
            PyTuple_SET_ITEM(member, 1, v.release());
        }
        PyList_SET_ITEM(out.get(), i, member);
    }
    return out.release();
}

// Private writable memory of the process (its data size in /proc/self/statm),
// in bytes; 0 when unreadable.
size_t privateWritableBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t size = 0, resident = 0, shared = 0, text = 0, lib = 0, data = 0;
    if (!(statm >> size >> resident >> shared >> text >> lib >> data)) return 0;
    return data * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

// malloc's blocks in use (uordblks, hblkhd) plus the interpreter's arenas.
// The interpreter maps its 256 KiB arenas itself, so malloc does not see
// them; they are the private writable memory that is neither malloc's heap
// (arena) nor its mapped blocks (hblkhd). The rest of that memory (library
// data, the stack) does not move while a measure runs.
PyObject* heapInUse(PyObject*, PyObject*) {
    size_t const data = privateWritableBytes();
    struct mallinfo2 const m = mallinfo2();
    if (data == 0) {
        PyErr_SetString(PyExc_OSError, "cannot read /proc/self/statm");
        return nullptr;
    }
    size_t const interpreterArenas = data > m.arena + m.hblkhd ? data - m.arena - m.hblkhd : 0;
    return PyLong_FromSize_t(m.uordblks + m.hblkhd + interpreterArenas);
}

PyMethodDef functions[] = {
    {"callFloor", callFloor, METH_VARARGS, "F1: parse one _Zel.ZelAttr and return None"},
    {"lockedReadFloor", lockedReadFloor, METH_VARARGS,
     "F2: F1, then read a native int under the activity lock with the interpreter lock released"},
    {"notifiedSetHandlerIs", notifiedSetHandlerIs, METH_VARARGS, "the handler notifiedSetFloor calls"},
    {"notifiedSetFloor", notifiedSetFloor, METH_VARARGS,
     "F7: F1 for a set, then the lock protocol of a set that calls one Python handler(name, value)"},
    {"bulkFloorDataIs", bulkFloorDataIs, METH_VARARGS, "bulkFloor's values for a collection of that many members"},
    {"bulkFloor", bulkFloor, METH_VARARGS,
     "F5: the keys, values, items (lists) or dict of a bulk read, built from native data"},
    {"heapInUse", heapInUse, METH_NOARGS, "bytes in use by malloc and the interpreter's arenas (compare two readings)"},
    {nullptr, nullptr, 0, nullptr},
};

Zel::compat::ModuleDef definition("_ZelBench", functions, "Call floors and a heap probe for the benchmarks");

PyObject* makeModule() {
    try {
        probe = Zel::zelNew<Probe>();
    } catch (std::exception const& e) {
        PyErr_SetString(PyExc_ImportError, e.what());
        return nullptr;
    }
    return definition.create();
}

} // namespace

ZELPY_MODULE_INIT(_ZelBench, makeModule)
