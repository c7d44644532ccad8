// Singleton (non-collection) attribute methods of _Zel.GifPtr: get, set,
// delete and version of one attribute named by a _Zel.ZelAttr.
#include "module/convert/Convert.h"
#include "module/convert/NativeValue.h"

using Zel::Attribute;
using Zel::AttributePhase;
using Zel::EntryPoint;
using Zel::GilHeld;
using Zel::PyResult;
using Zel::gifOf;

namespace {

// attributeSingletonIs of a builtin that the value converts to: the value
// is read while this thread still holds the interpreter lock (it cannot
// change: the accepted Python types are immutable) and handed over as a
// C++ value. False, with nothing done, for anything else; the general
// path then converts (and refuses) under the lock anchor.
bool setBuiltin(GilHeld gil, PyObject* self, Zel::ZelAttr const* attr, PyObject* value, PyResult& result) {
    return Zel::native::visitBuiltin(attr->memberType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        T v{};
        if (!Zel::native::fromPython(gil, value, v)) {
            PyErr_Clear();
            return false;
        }
        result = EntryPoint::run(gil, Attribute{attr}, [&](AttributePhase& phase) {
            phase.stageIs("error in mutator : ");
            Zel::GenericIf const* object = gifOf(self);
            if (!attr->genericIfSetNative(object, &v)) {
                attr->genericIfSet(object, nullptr, Zel::GenericIfTraits<T>::to(v).ptr());
            }
            return phase.finish([](GilHeld held) { return PyResult::none(held); });
        });
        return true;
    });
}

PyResult get(GilHeld gil, PyObject* self, PyObject* args, bool useDefault) {
    Zel::ZelAttr const* attr = nullptr;
    // Both getters report argument errors under one name.
    if (!Zel::parseAttrArgs(gil, args, "O&:attributeSingleton", attr)) return PyResult::failed();
    return Zel::singletonGet(gil, self, attr, useDefault);
}

} // namespace

PyResult Zel::singletonGet(GilHeld gil, PyObject* self, ZelAttr const* attr, bool useDefault, ReadLock lock) {
    return EntryPoint::run(gil, Attribute{attr, "", lock == ReadLock::tryFirst}, [&](AttributePhase& phase) {
        phase.stageIs("error in accessor : ");
        // A builtin is read straight into a C++ value: no GenericIf.
        PyResult result = PyResult::failed();
        if (native::visitBuiltin(attr->memberType(), [&](auto tag) {
                using T = typename decltype(tag)::type;
                T scratch{};
                void const* v = attr->genericIfGetNative(gifOf(self), &scratch);
                if (!v) return false;
                result = phase.finish([&](GilHeld held) {
                    return PyResult::of(held, native::toPython(held, *static_cast<T const*>(v)));
                });
                return true;
            })) {
            return result;
        }
        Ptr<GenericIf const> const value = attr->genericIfGet(gifOf(self), nullptr);
        return phase.finish([&](GilHeld held) { return toPython(held, value, useDefault); });
    });
}

static PyResult attributeSingleton(GilHeld gil, PyObject* self, PyObject* args) {
    return get(gil, self, args, true);
}

static PyResult rawAttributeSingleton(GilHeld gil, PyObject* self, PyObject* args) {
    return get(gil, self, args, false);
}

static PyResult attributeSingletonIs(GilHeld gil, PyObject* self, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    PyObject* value = nullptr;
    if (!Zel::parseAttrArgs(gil, args, "O&O:attributeSingletonIs", attr, value)) return PyResult::failed();
    return Zel::singletonSet(gil, self, attr, value);
}

PyResult Zel::singletonSet(GilHeld gil, PyObject* self, ZelAttr const* attr, PyObject* value) {
    PyResult result = PyResult::failed();
    if (!attr->instantiating() && setBuiltin(gil, self, attr, value, result)) return result;
    return EntryPoint::run(gil, Attribute{attr}, [&](AttributePhase& phase) {
        if (attr->instantiating()) {
            ArgVector const arguments =
                phase.withGil([&](GilHeld held) { return argumentsFromTuple(held, value, attr, false); });
            phase.stageIs("error in mutator : ");
            attr->genericIfSet(gifOf(self), arguments);
        } else {
            bool ok = true;
            Ptr<GenericIf const> const v = toFramework(phase, value, attr->memberType(), ok);
            if (!ok) return PyResult::failed();
            phase.stageIs("error in mutator : ");
            attr->genericIfSet(gifOf(self), nullptr, v.ptr());
        }
        return phase.finish([](GilHeld held) { return PyResult::none(held); });
    });
}

static PyResult attributeSingletonDel(GilHeld gil, PyObject* self, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    if (!PyArg_ParseTuple(args, "O&:attributeSingletonDel", Convert_To_ZelAttr, &attr)) return PyResult::failed();
    return Zel::singletonDel(gil, self, attr);
}

PyResult Zel::singletonDel(GilHeld gil, PyObject* self, ZelAttr const* attr) {
    return EntryPoint::run(gil, Attribute{attr}, [&](AttributePhase& phase) {
        phase.stageIs("error in del : ");
        attr->genericIfDel(gifOf(self), nullptr);
        return phase.finish([](GilHeld held) { return PyResult::none(held); });
    });
}

static PyResult attributeVersion(GilHeld gil, PyObject* self, PyObject* arg) {
    Zel::ZelAttr const* attr = nullptr;
    if (!Convert_To_ZelAttr(arg, &attr)) return PyResult::failed();
    return EntryPoint::run(gil, Attribute{attr}, [&](AttributePhase& phase) {
        phase.stageIs("error in version : ");
        uint64_t const version = attr->genericIfVersion(gifOf(self));
        return phase.finish([&](GilHeld held) { return PyResult::of(held, PyLong_FromUnsignedLong(version)); });
    });
}

// The methods of _Zel.GifPtr: defined beside their bodies, which the
// wrapper inlines.
PyObject* FwkPyGenericIf_attributeSingleton(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeSingleton>(self, args); }
PyObject* FwkPyGenericIf_rawAttributeSingleton(PyObject* self, PyObject* args) noexcept { return Zel::entry<rawAttributeSingleton>(self, args); }
PyObject* FwkPyGenericIf_attributeSingletonIs(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeSingletonIs>(self, args); }
PyObject* FwkPyGenericIf_attributeSingletonDel(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeSingletonDel>(self, args); }
PyObject* FwkPyGenericIf_attributeVersion(PyObject* self, PyObject* arg) noexcept { return Zel::entry<attributeVersion>(self, arg); }
