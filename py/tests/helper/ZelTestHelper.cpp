// _ZelTestHelper: a test-only extension that reaches the module core's
// native side from Python: framework throws of every kind, probe entities,
// value handles, the converters and the lock anchors.
#include <Python.h>

#include <new>
#include <stdexcept>
#include <string>
#include <thread>

#include "Zel/Activity.h"
#include "Zel/Entity.h"
#include "Zel/Exception.h"
#include "Zel/Lock.h"
#include "ZelPy/Errors.h"
#include "ZelPy/GifPtr.h"
#include "ZelPy/Locks.h"
#include "support/PyCompat.h"

namespace {

// Runs `f`; a C++ exception becomes the matching pending Python error.
template <class F>
PyObject* guarded(F f) {
    try {
        return f();
    } catch (...) {
        Zel::translateCppExceptionToPython();
        return nullptr;
    }
}

// Throws the exception of the named kind ("Type": Zel::TypeException).
[[noreturn]] void throwKind(std::string const& kind, char const* m) {
#define ZEL_KIND(K) if (kind == #K) throw Zel::K##Exception(m);
    ZEL_KIND(NoTypeNode) ZEL_KIND(Type) ZEL_KIND(IllegalName) ZEL_KIND(NameInUse) ZEL_KIND(UnknownAttr)
    ZEL_KIND(Const) ZEL_KIND(NonwritableAttr) ZEL_KIND(NondeletableAttr) ZEL_KIND(NoImplementation) ZEL_KIND(Rpc)
    ZEL_KIND(RpcConnection) ZEL_KIND(Range) ZEL_KIND(Parse) ZEL_KIND(Memory) ZEL_KIND(Internal)
    ZEL_KIND(Permission) ZEL_KIND(OpNotSupported)
#undef ZEL_KIND
    if (kind == "Errno") throw Zel::ErrnoException(2, m);
    if (kind == "Exception") throw Zel::Exception(m);
    if (kind == "bad_alloc") throw std::bad_alloc();
    if (kind == "runtime_error") throw std::runtime_error(m);
    throw 42;
}

PyObject* fail(PyObject*, PyObject* args) {
    char const *kind, *message;
    if (!PyArg_ParseTuple(args, "ss:fail", &kind, &message)) return nullptr;
    return guarded([&]() -> PyObject* { throwKind(kind, message); });
}

// updateException on a TypeException for attribute Zel::Entity.name.
PyObject* updated(PyObject*, PyObject* args) {
    char const *text, *message;
    if (!PyArg_ParseTuple(args, "ss:updated", &text, &message)) return nullptr;
    try {
        throw Zel::TypeException(message);
    } catch (Zel::Exception& e) {
        updateException(&e, Zel::Entity::_zelType.attr("name"), text);
    }
    return nullptr;
}

// GenericIf_TypeExceptionThrow for `passed` against the named type.
PyObject* typeMismatch(PyObject*, PyObject* args) {
    PyObject* passed;
    char const* expected;
    if (!PyArg_ParseTuple(args, "Os:typeMismatch", &passed, &expected)) return nullptr;
    return guarded([&]() -> PyObject* { GenericIf_TypeExceptionThrow(passed, Zel::typeNode(expected)); });
}

// Raises `exc` and drains it with GetStringsFromPyErr.
PyObject* errStrings(PyObject*, PyObject* exc) {
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exc)), exc);
    Zel::String8 parts[3] = {"unset", "unset", "unset"};
    GetStringsFromPyErr(&parts[0], &parts[1], &parts[2]);
    if (PyErr_Occurred()) return nullptr;
    return Py_BuildValue("(sss)", parts[0].c_str(), parts[1].c_str(), parts[2].c_str());
}

// Records, when destroyed, whether the activity lock was held and the
// interpreter lock released.
struct ProbeState {
    int destroyed = 0;
    bool lockHeld = false;
    bool gilReleased = false;
} probe;

class ProbeEntity : public Zel::Entity {
public:
    using Entity::Entity;
    ~ProbeEntity() override {
        ++probe.destroyed;
        probe.lockHeld = Zel::ActivityLockAnchor::lock()->heldByMe();
        probe.gilReleased = Zel::compat::currentThreadState() == nullptr;
    }
};

PyObject* entity(PyObject*, PyObject* args) {
    char const* name;
    if (!PyArg_ParseTuple(args, "s:entity", &name)) return nullptr;
    return guarded([&] {
        Zel::PyLockAnchor anchor(Zel::PyLockAnchor::retakeGil);
        return FwkPyObj_FromPtrInterface(Zel::zelNew<ProbeEntity>(Zel::Name(name)));
    });
}

// (destroyed, lockHeld, gilReleased) of the probe entities so far.
PyObject* probeState(PyObject*, PyObject*) {
    return Py_BuildValue("(iOO)", probe.destroyed, probe.lockHeld ? Py_True : Py_False,
                         probe.gilReleased ? Py_True : Py_False);
}

// A GifPtr holding an int value (a null one: _Zel.nullGenericIf, the same
// constructor).
PyObject* intValue(PyObject*, PyObject* args) {
    int v;
    if (!PyArg_ParseTuple(args, "i:intValue", &v)) return nullptr;
    return guarded([&] { return MakeFwkPyGenericIf(Zel::GenericIfTraits<int32_t>::to(v)); });
}

// The object's address as a Python long, or None.
PyObject* address(Zel::PtrInterface* p) {
    if (!p) Py_RETURN_NONE;
    return PyLong_FromVoidPtr(dynamic_cast<void*>(p));
}

// The counted object the "O&" converter, FwkPyPtr_PtrInterface (with a preset
// flag) and pythonEntityToRawPtr each find.
PyObject* convert(PyObject*, PyObject* args) {
    Zel::PtrInterface* p = nullptr;
    if (!PyArg_ParseTuple(args, "O&:convert", Convert_To_PtrInterface_Or_Null, &p)) return nullptr;
    return address(p);
}

PyObject* rawPtr(PyObject*, PyObject* args) {
    PyObject *obj, *preset;
    if (!PyArg_ParseTuple(args, "OO:rawPtr", &obj, &preset)) return nullptr;
    bool ok = PyObject_IsTrue(preset);
    Zel::PtrInterface* p = FwkPyPtr_PtrInterface(obj, &ok);
    return Py_BuildValue("(NO)", address(p), ok ? Py_True : Py_False);
}

PyObject* entityRawPtr(PyObject*, PyObject* obj) { return address(Zel::pythonEntityToRawPtr(obj)); }

// Opens a PyLockAnchor with `flags` and, with the interpreter lock held,
// calls `callable` under it.
PyObject* withAnchor(PyObject*, PyObject* args) {
    unsigned flags;
    PyObject* callable;
    if (!PyArg_ParseTuple(args, "IO:withAnchor", &flags, &callable)) return nullptr;
    return guarded([&] {
        Zel::PyLockAnchor anchor(flags);
        anchor.gilHeldIs(true);
        return PyObject_CallObject(callable, nullptr);
    });
}

// Releases the activity lock held by an enclosing anchor around `callable`,
// as a framework notification does.
PyObject* withUnlock(PyObject*, PyObject* callable) {
    return guarded([&] {
        Zel::UnlockAnchor unlock;
        return PyObject_CallObject(callable, nullptr);
    });
}

// (owner, releasable) of the activity lock, and the calling thread's kernel id.
PyObject* lockState(PyObject*, PyObject*) {
    Zel::Lock* l = Zel::ActivityLockAnchor::lock();
    return Py_BuildValue("(lO)", static_cast<long>(l->owner()), l->releasable() ? Py_True : Py_False);
}

PyObject* tid(PyObject*, PyObject*) { return PyLong_FromLong(Zel::currentTid()); }

// The framework's crash hook, called with the interpreter lock held or from
// a native thread that never ran Python.
PyObject* printBacktrace(PyObject*, PyObject* args) {
    int fd, native;
    if (!PyArg_ParseTuple(args, "ii:printBacktrace", &fd, &native)) return nullptr;
    if (native) {
        Py_BEGIN_ALLOW_THREADS
        std::thread([fd] { printBacktraceFn(fd); }).join();
        Py_END_ALLOW_THREADS
    } else {
        printBacktraceFn(fd);
    }
    Py_RETURN_NONE;
}

// name, function, calling convention
#define ZEL_FN(NAME, FLAGS) {#NAME, NAME, FLAGS, nullptr}
PyMethodDef functions[] = {
    ZEL_FN(fail, METH_VARARGS), ZEL_FN(updated, METH_VARARGS), ZEL_FN(typeMismatch, METH_VARARGS),
    ZEL_FN(errStrings, METH_O), ZEL_FN(entity, METH_VARARGS),
    ZEL_FN(probeState, METH_NOARGS), ZEL_FN(intValue, METH_VARARGS),
    ZEL_FN(convert, METH_VARARGS), ZEL_FN(rawPtr, METH_VARARGS), ZEL_FN(entityRawPtr, METH_O),
    ZEL_FN(withAnchor, METH_VARARGS), ZEL_FN(withUnlock, METH_O), ZEL_FN(lockState, METH_NOARGS),
    ZEL_FN(tid, METH_NOARGS), ZEL_FN(printBacktrace, METH_VARARGS), {nullptr, nullptr, 0, nullptr},
};
#undef ZEL_FN

} // namespace

namespace {

Zel::compat::ModuleDef definition("_ZelTestHelper", functions, nullptr);

PyObject* makeModule() {
    // The handle type and the hooks come from _Zel's initialisation.
    PyObject* zel = PyImport_ImportModule("_Zel");
    if (!zel) return nullptr;
    Py_DECREF(zel);
    return definition.create();
}

} // namespace

ZELPY_MODULE_INIT(_ZelTestHelper, makeModule)
