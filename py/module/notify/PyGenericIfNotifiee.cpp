#include "module/notify/PyGenericIfNotifiee.h"

#include <cstdio>
#include <cstdlib>

#include "module/notify/Callback.h"
#include "module/convert/Convert.h"
#include "module/core/Module.h"
#include "module/notify/PyGenericIfNotifieeNames.h"
#include "Zel/Activity.h"
#include "ZelPy/Locks.h"

namespace Zel {

namespace {

[[noreturn]] void throwNoArguments() {
    // The Python error goes with this process-level failure.
    PyErr_Clear();
    throw MemoryException("No memory for argument list in PyGenericIfNotifiee::onAttribute");
}

// handler(name, value), as PyObject_Call would with the tuple (name,
// value); a Python function or bound method gets its arguments straight
// from an array, as a call written in Python does, with no tuple to make
// and free. A new reference, or null with the Python error set.
PyObject* callHandler(PyObject* handler, PyObject* name, PyObject* value) {
    PyObject* args[3];
    int n = 0;
    PyObject* f = handler;
    if (PyMethod_Check(f) && PyMethod_GET_SELF(f)) {
        args[n++] = PyMethod_GET_SELF(f);
        f = PyMethod_GET_FUNCTION(f);
    }
    if (!PyFunction_Check(f)) {
        PyRef tuple(PyTuple_Pack(2, name, value));
        if (!tuple) throwNoArguments();
        return PyObject_Call(handler, tuple.get(), nullptr);
    }
    args[n++] = name;
    args[n++] = value;
    return compat::callFunction(f, args, n);
}

} // namespace

PyObject* PyGenericIfNotifiee::name(ZelAttr const* attr) {
    unsigned const life = interpreterLife();
    if (attr != nameAttr_ || life != nameLife_) {
        name_ = notifieeAttrName(attr);
        nameAttr_ = name_ ? attr : nullptr;
        nameLife_ = life;
    }
    return name_;
}

void PyGenericIfNotifiee::onAttribute(ZelAttr const* attr, Ptr<GenericIf const> const& value) {
    if (!forwards(attr)) return;
    // Callers pass a real handle; only an empty one is tolerated.
    if (!handlerPtr()->pyObject()) return;
    Ptr<PyObjHandle> handler = this->handler();   // outlives the re-lock
    PyObject* name = nullptr;
    PyObject* converted = nullptr;
    CallbackLocks locks([&](GilHeld gil) {
        name = this->name(attr);
        if (name) converted = toPython(gil, value).raw();
    });
    PyRef pyValue(converted);
    if (!pyValue) throwNoArguments();
    PyRef result(callHandler(handler->pyObject(), name, pyValue.get()));
    if (!result) {
        // A raising handler is a programming error with no way back.
        std::fputs("PyGenericIfNotifiee::onAttribute handler raised an exception\n", stderr);
        PyErr_Print();
        std::abort();
    }
}

} // namespace Zel

Zel::PyResult FwkPyGenericIf_newNotifiee(Zel::GilHeld gil, PyObject* self, PyObject* args) {
    Zel::PtrInterface* handlerObj = nullptr;
    Zel::PtrInterface* activityObj = nullptr;
    if (!PyArg_ParseTuple(args, "O&O&:newNotifiee", Convert_To_PtrInterface_Or_Null, &handlerObj,
                          Convert_To_PtrInterface_Or_Null, &activityObj)) {
        return Zel::PyResult::failed();
    }
    auto rename = [](Zel::Exception& e) {
        e.messageIs(Zel::String8(e.name()) + ": " + "error in newNotifiee : " + exceptionString(e));
    };
    return Zel::EntryPoint::run(gil, Zel::Renamed{rename}, [&](Zel::NativePhase& phase) {
        Zel::Ptr<Zel::PyObjHandle> handler(dynamic_cast<Zel::PyObjHandle*>(handlerObj));
        Zel::Ptr<Zel::GenericIf const> observed(Zel::gifOf(self));
        Zel::Ptr<Zel::ActivityConfig> activity;
        if (activityObj) {
            activity = dynamic_cast<Zel::ActivityConfig*>(activityObj);
            if (!activity) throw Zel::TypeException("Expected a Zel::ActivityConfig");
        }
        // Made with both locks held: a notifiee owns Python references.
        return phase.finish([&](Zel::GilHeld held) {
            Zel::Ptr<Zel::PyGenericIfNotifiee> notifiee = Zel::zelNew<Zel::PyGenericIfNotifiee>(observed, handler);
            if (activity) notifiee->Zel::GenericIf::NotifieeConst::zelFwkActivityIs(activity);
            Zel::Ptr<Zel::GenericIf const> gif(
                notifiee->fwkType()->genericIf(static_cast<Zel::PtrInterface*>(notifiee.ptr()), false));
            return Zel::toPython(held, gif);
        });
    });
}
