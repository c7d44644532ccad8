// Constructing framework objects from Python (newGenericIf,
// nullGenericIf) and calling function attributes (attributeFunction).
#include "module/convert/Convert.h"
#include "module/convert/NativeValue.h"
#include "Zel/Format.h"

using Zel::EntryPoint;
using Zel::GilHeld;
using Zel::NativePhase;
using Zel::PyResult;

PyResult PyZel_nullGenericIf(GilHeld gil, PyObject*, PyObject*) {
    return Zel::gifPtr(gil, Zel::Ptr<Zel::GenericIf const>());
}

namespace {

// The constructor's arguments, read from the Python tuple. An empty result
// with a Python error pending is a refusal reported by the element
// conversion.
Zel::ArgVector constructorArguments(GilHeld gil, Zel::ZelType const* type, PyObject* tuple) {
    if (!PyTuple_CheckExact(tuple)) {
        throw Zel::TypeException(Zel::String8("expected tuple, got ") + typeNameFromPyObject(tuple));
    }
    unsigned const expected = type->constructorArgNames();
    Py_ssize_t const passed = PyTuple_GET_SIZE(tuple);
    if (passed != static_cast<Py_ssize_t>(expected)) {
        Zel::String8 m = Zel::format("expected %u parameters: %zd passed in: (", expected, passed);
        for (Py_ssize_t i = 0; i < passed; ++i) {
            if (i) m += ", ";
            m += typeNameFromPyObject(PyTuple_GET_ITEM(tuple, i));
        }
        m += ")";
        throw Zel::TypeException(std::move(m));
    }
    Zel::ArgVector arguments;
    for (unsigned i = 0; i < expected; ++i) {
        Zel::ZelType const* parameterType;
        try {
            parameterType = Zel::typeNode(Zel::String8(type->constructorArgs()[i].typeName));
        } catch (Zel::NoTypeNodeException const& e) {
            throw Zel::InternalException(
                Zel::format("unknown type while processing constructor parameter %u: %s", i, e.message().c_str()));
        }
        Zel::Ptr<Zel::GenericIf const> a = Zel::argumentFromTuple(gil, parameterType, tuple, i, true);
        if (!a && PyErr_Occurred()) return {};
        arguments.push_back(std::move(a));
    }
    return arguments;
}

} // namespace

PyResult PyZel_newGenericIf(GilHeld gil, PyObject*, PyObject* args) {
    Zel::ZelType const* type = nullptr;
    PyObject* parameters = nullptr;
    if (!PyArg_ParseTuple(args, "O&O:newGenericIf", Convert_To_ZelType, &type, &parameters)) {
        return PyResult::failed();
    }
    auto rename = [type](Zel::Exception& e) {
        Zel::String8 m(type->name());
        m += ": newGenericIf : ";
        m += e.message();
        e.messageIs(std::move(m));
    };
    return EntryPoint::run(gil, Zel::Renamed{rename}, [&](NativePhase& phase) {
        Zel::Ptr<Zel::GenericIf const> made;
        if (parameters == Py_None) {
            made = type->genericIf(static_cast<void const*>(nullptr), false);
        } else {
            bool refused = false;
            Zel::ArgVector const arguments = phase.withGil([&](GilHeld held) {
                Zel::ArgVector a = constructorArguments(held, type, parameters);
                refused = PyErr_Occurred() != nullptr;
                return a;
            });
            if (refused) return PyResult::failed();
            made = type->genericIf(arguments, false);
        }
        return phase.finish([&](GilHeld held) { return Zel::gifPtr(held, made); });
    });
}

namespace {

// Most functions take a handful of parameters; longer lists go the
// general way.
constexpr Py_ssize_t kMaxNativeArguments = 6;

// A call of a function whose parameters and result are all builtins, with
// native arguments read while the interpreter lock is still held (the
// accepted Python types are immutable) and the result converted straight
// back. False, with nothing left behind, when anything does not fit (types
// not resolved yet, a value that does not convert, no direct path); the
// general path then does (and refuses) it all.
bool callBuiltin(GilHeld gil, PyObject* self, Zel::ZelAttr const* attr, PyObject* parameters, PyResult& result) {
    if (!PyTuple_CheckExact(parameters)) return false;
    std::vector<Zel::ZelType const*> const* types = cachedParameterTypes(attr);
    Py_ssize_t const n = PyTuple_GET_SIZE(parameters);
    if (!types || static_cast<Py_ssize_t>(types->size()) != n || n > kMaxNativeArguments) return false;
    Zel::ZelType const* resultType = attr->memberType();   // null: returns nothing
    Zel::native::Slot out;
    if (resultType && !out.emplace(resultType)) return false;
    Zel::native::Slot slots[kMaxNativeArguments];
    void const* arguments[kMaxNativeArguments];
    for (Py_ssize_t i = 0; i < n; ++i) {
        if (!slots[i].assign(gil, (*types)[i], PyTuple_GET_ITEM(parameters, i))) {
            PyErr_Clear();
            return false;
        }
        arguments[i] = slots[i].ptr();
    }
    bool direct = true;
    result = EntryPoint::run(gil, Zel::Attribute{attr}, [&](Zel::AttributePhase& phase) {
        phase.stageIs("error in function call : ");
        if (!attr->genericIfCallNative(Zel::gifOf(self), arguments, static_cast<size_t>(n), out.ptr())) {
            direct = false;
            return PyResult::failed();
        }
        return phase.finish([&](GilHeld held) {
            if (!resultType) return PyResult::none(held);
            return PyResult::of(held, out.toPython(held, resultType));
        });
    });
    return direct;
}

} // namespace

static PyResult attributeFunction(GilHeld gil, PyObject* self, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    PyObject* parameters = nullptr;
    if (!Zel::parseAttrArgs(gil, args, "O&O:attributeFunction", attr, parameters)) return PyResult::failed();
    PyResult result = PyResult::failed();
    if (callBuiltin(gil, self, attr, parameters, result)) return result;
    return EntryPoint::run(gil, Zel::Attribute{attr}, [&](Zel::AttributePhase& phase) {
        phase.stageIs("function args : ");
        Zel::ArgVector const arguments =
            phase.withGil([&](GilHeld held) { return Zel::argumentsFromTuple(held, parameters, attr, false); });
        phase.stageIs("error in function call : ");
        Zel::Ptr<Zel::GenericIf const> const called = attr->genericIfCall(Zel::gifOf(self), arguments);
        return phase.finish([&](GilHeld held) {
            if (!called) return PyResult::none(held);
            return Zel::toPython(held, called);
        });
    });
}

// The methods of _Zel.GifPtr: defined beside their bodies, which the
// wrapper inlines.
PyObject* FwkPyGenericIf_attributeFunction(PyObject* self, PyObject* args) noexcept { return Zel::entry<attributeFunction>(self, args); }
