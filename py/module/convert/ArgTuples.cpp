// Python argument tuple -> framework argument vector, converting each
// element to the type declared for its parameter position.
#include "module/convert/Convert.h"
#include "Zel/Format.h"

#include <unordered_map>
#include <vector>

using namespace Zel;

namespace {

// Parameter types by attribute, resolved by name on first use; descriptors
// and types live as long as the process. Guarded by the interpreter lock.
std::unordered_map<ZelAttr const*, std::vector<ZelType const*>>& parameterTypes() {
    static auto* types = new std::unordered_map<ZelAttr const*, std::vector<ZelType const*>>;
    return *types;
}

} // namespace

std::vector<ZelType const*> const* cachedParameterTypes(ZelAttr const* attr) {
    auto& types = parameterTypes();
    auto it = types.find(attr);
    return it == types.end() ? nullptr : &it->second;
}

Ptr<GenericIf const> Zel::argumentFromTuple(GilHeld gil, ZelType const* type, PyObject* tuple, unsigned position,
                                            bool isConstructor) {
    ZELPY_CHECK(type);
    try {
        return toFramework(gil, PyTuple_GET_ITEM(tuple, position), type);
    } catch (TypeException const& e) {
        String8 m("Error processing ");
        if (isConstructor) m += "constructor ";
        m += format("parameter %u : ", position);
        m += exceptionString(e);
        throw TypeException(m);
    }
}

Ptr<GenericIf const> PyTupleToGenericIfVector_helper(ZelType const* type, PyObject* tuple, unsigned position,
                                                     bool isConstructor) {
    return argumentFromTuple(NativeCallerGil::held(), type, tuple, position, isConstructor);
}

ArgVector PyTupleToGenericIfVector(PyObject* args, ZelAttr const* attr, bool skipOne) {
    GilEnsure gil;
    return argumentsFromTuple(NativeCallerGil::held(), args, attr, skipOne);
}

ArgVector Zel::argumentsFromTuple(GilHeld gil, PyObject* args, ZelAttr const* attr, bool skipOne) {
    if (Py_TYPE(args) != &PyTuple_Type) throw TypeException(String8("expected tuple, got ") + typeNameFromPyObject(args));
    unsigned expected = attr->instantiatingArgNames() - (skipOne ? 1 : 0);
    Py_ssize_t passed = PyTuple_GET_SIZE(args);
    if (passed != static_cast<Py_ssize_t>(expected)) {
        String8 m = format("expected %u parameters: %zd passed in: (", expected, passed);
        for (Py_ssize_t i = 0; i < passed; ++i) {
            if (i) m += ", ";
            m += typeNameFromPyObject(PyTuple_GET_ITEM(args, i));
        }
        m += ")";
        throw TypeException(m);
    }
    int skip = skipOne ? attr->instantiatingIndexPosition() : -1;
    ArgVector out;
    ArgDesc const* params = attr->instantiatingArgs();
    if (!params) return out;
    std::vector<ZelType const*> const* cached = cachedParameterTypes(attr);
    std::vector<ZelType const*> resolved;
    bool complete = true;   // every type resolved: worth keeping
    out.reserve(expected);
    unsigned k = 0;
    for (int i = 0; params[i].typeName; ++i) {
        ZelType const* type = nullptr;
        if (cached) {
            type = (*cached)[i];
        } else {
            try {
                type = typeNode(String8(params[i].typeName));
            } catch (NoTypeNodeException const& e) {
                // The skipped parameter's type is not needed here.
                if (i != skip) {
                    throw InternalException(
                        format("unknown type while processing parameter %u: %s", k, e.message().c_str()));
                }
                complete = false;
            }
            resolved.push_back(type);
        }
        if (i == skip) continue;
        out.push_back(argumentFromTuple(gil, type, args, k, false));
        ++k;
    }
    if (!cached && complete) parameterTypes().emplace(attr, std::move(resolved));
    return out;
}
