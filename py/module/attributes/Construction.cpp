// Constructing framework objects from Python (newGenericIf,
// nullGenericIf) and calling function attributes (attributeFunction).
#include "module/convert/Convert.h"
#include "module/convert/NativeValue.h"
#include "Zel/Format.h"

PyObject* PyZel_nullGenericIf(PyObject*, PyObject*) { return MakeFwkPyGenericIf(Zel::Ptr<Zel::GenericIf const>()); }

namespace {

// The constructor's arguments, read from the Python tuple: needs the
// interpreter lock. An empty result with a Python error pending is a
// refusal reported by the element conversion.
Zel::ArgVector constructorArguments(Zel::ZelType const* type, PyObject* tuple) {
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
        Zel::Ptr<Zel::GenericIf const> a = PyTupleToGenericIfVector_helper(parameterType, tuple, i, true);
        if (!a && PyErr_Occurred()) return {};
        arguments.push_back(std::move(a));
    }
    return arguments;
}

} // namespace

PyObject* PyZel_newGenericIf(PyObject*, PyObject* args) {
    Zel::ZelType const* type = nullptr;
    PyObject* parameters = nullptr;
    if (!PyArg_ParseTuple(args, "O&O:newGenericIf", Convert_To_ZelType, &type, &parameters)) return nullptr;
    try {
        Zel::PyLockAnchor anchor(0);
        Zel::Expect expect(Zel::Exception::idExpectAll);
        Zel::Ptr<Zel::GenericIf const> made;
        if (parameters == Py_None) {
            made = type->genericIf(static_cast<void const*>(nullptr), false);
        } else {
            Zel::ArgVector arguments;
            {
                Zel::GilEnsure gil;
                arguments = constructorArguments(type, parameters);
                if (PyErr_Occurred()) return nullptr;
            }
            made = type->genericIf(arguments, false);
        }
        anchor.gilHeldIs(true);
        return MakeFwkPyGenericIf(made);
    } catch (Zel::Exception& e) {
        Zel::String8 m(type->name());
        m += ": newGenericIf : ";
        m += e.message();
        e.messageIs(std::move(m));
        Zel::translateCppExceptionToPython();
    } catch (...) {
        Zel::translateCppExceptionToPython();
    }
    return nullptr;
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
bool callBuiltin(PyObject* self, Zel::ZelAttr const* attr, PyObject* parameters, PyObject*& result) {
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
        if (!slots[i].assign((*types)[i], PyTuple_GET_ITEM(parameters, i))) {
            PyErr_Clear();
            return false;
        }
        arguments[i] = slots[i].ptr();
    }
    bool direct = true;
    result = Zel::attributeOperation(attr, [&](Zel::PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        prefix = "error in function call : ";
        if (!attr->genericIfCallNative(Zel::gifOf(self), arguments, static_cast<size_t>(n), out.ptr())) {
            direct = false;
            return nullptr;
        }
        anchor.gilHeldIs(true);
        if (!resultType) Py_RETURN_NONE;
        return out.toPython(resultType);
    });
    return direct;
}

} // namespace

PyObject* FwkPyGenericIf_attributeFunction(PyObject* self, PyObject* args) {
    Zel::ZelAttr const* attr = nullptr;
    PyObject* parameters = nullptr;
    if (!Zel::parseAttrArgs(args, "O&O:attributeFunction", attr, parameters)) return nullptr;
    PyObject* result = nullptr;
    if (callBuiltin(self, attr, parameters, result)) return result;
    return Zel::attributeOperation(attr, [&](Zel::PyLockAnchor& anchor, char const*& prefix) -> PyObject* {
        prefix = "function args : ";
        Zel::ArgVector const arguments = PyTupleToGenericIfVector(parameters, attr, false);
        prefix = "error in function call : ";
        Zel::Ptr<Zel::GenericIf const> const result = attr->genericIfCall(Zel::gifOf(self), arguments);
        anchor.gilHeldIs(true);
        if (!result) Py_RETURN_NONE;
        return GenericIfToPyObject(result);
    });
}
