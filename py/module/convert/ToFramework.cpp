// Python value -> framework value of an expected type. Strict: exact Python
// number types, explicit range checks (Python ints are 64-bit here, but the
// Python-visible ranges are those of 32-bit int and long), never a guess.
#include <algorithm>
#include <cstdint>
#include <sstream>
#include <vector>

#include "module/convert/Convert.h"
#include "module/mapping/Mapping.h"
#include "module/convert/NativeValue.h"
#include "Zel/Builtin.h"
#include "Zel/Values.h"

using namespace Zel;
using Zel::PyGenericIf::DefaultAttributeData;
using Zel::PyGenericIf::FwkPyGenericIfMapping;
using Zel::PyGenericIf::TypeAttributeIdKey;

namespace {

// The most a value kept as its repr() may hold: items of builtin containers
// as repr() meets them, and nesting (repr() itself stops near 1000).
constexpr size_t kLiteralItems = 1000000;
constexpr size_t kLiteralDepth = 1000;

[[noreturn]] void refuse(PyObject* obj, ZelType const* type) { GenericIf_TypeExceptionThrow(obj, type); }

Ptr<GenericIf const> toBuiltin(GilHeld gil, PyObject* obj, ZelType const* type) {
    Ptr<GenericIf const> result;
    bool const builtin = native::visitBuiltin(type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        T v{};
        if (!native::fromPython(gil, obj, v)) {
            // A long out of the C range leaves OverflowError set; the
            // refusal is the error, and none may stay pending under it.
            PyErr_Clear();
            refuse(obj, type);
        }
        result = Ptr<GenericIf const>(type->genericIf(&v, false));
        return true;
    });
    if (!builtin) refuse(obj, type);
    return result;
}

// The text of a string argument for a string-built value (a str, or bytes
// on 3), else the refusal. A Name keeps every byte (`whole`); a URI's text
// ends at its first NUL.
String8 stringOrRefuse(PyObject* obj, ZelType const* type, bool whole) {
    compat::StringBytes bytes(obj);
    if (!bytes) {
        PyErr_Clear();
        refuse(obj, type);
    }
    return whole ? String8(bytes.data(), bytes.size()) : String8(bytes.data());
}

Ptr<GenericIf const> enumeratorValue(ZelType const* type, int32_t id) {
    Ptr<GenericIf> g = type->genericIf(nullptr, true);
    *static_cast<int32_t*>(g->valuePtr()) = id;
    return Ptr<GenericIf const>(g);
}

Ptr<GenericIf const> toEnum(PyObject* obj, ZelType const* type) {
    if (compat::isText(obj)) {
        if (compat::StringBytes name{obj}) {
            if (ZelAttr const* a = type->attr(name.data())) return enumeratorValue(type, a->attributeId());
        } else {
            PyErr_Clear();
        }
    } else if (compat::isIntOrSubclass(obj)) {
        long v = compat::intValue(obj);
        if (!PyErr_Occurred() && v >= INT32_MIN && v <= INT32_MAX &&
            FwkPyGenericIfMapping::global()->attributeData(TypeAttributeIdKey(type, static_cast<AttributeId>(v)))) {
            return enumeratorValue(type, static_cast<int32_t>(v));
        }
        PyErr_Clear();
    }
    std::vector<ZelAttr const*> attrs;
    for (unsigned i = 0; i < type->attrCount(); ++i) attrs.push_back(&type->attrs()[i]);
    std::stable_sort(attrs.begin(), attrs.end(), compareZelAttrsById);
    std::ostringstream os;
    os << type->name() << " expected one of: ";
    bool first = true;
    for (ZelAttr const* a : attrs) {
        if (!first) os << ", ";
        first = false;
        // A nameless enumerator ends the list: the stream writes nothing more.
        if (!a->name()) os.setstate(std::ios::failbit);
        else os << '"' << a->name() << "\"=" << a->attributeId();
    }
    throw TypeException(String8(os.str()));
}

[[noreturn]] void throwFromPtrAttrError() {
    PyObject *t = nullptr, *v = nullptr, *tb = nullptr;
    PyErr_Fetch(&t, &v, &tb);
    PyRef type(t), value(v), trace(tb);
    String8 message("Unknown exception");
    if (value) {
        PyRef s(PyObject_Str(value.get()));
        compat::StringBytes text(s ? s.get() : Py_None);
        if (text) message = String8(text.data(), text.size());
        else PyErr_Clear();
    }
    throwInternalException(message);
}

// None, a GifPtr, or an object carrying one in `ptr_`.
Ptr<GenericIf const> toHandle(PyObject* obj, ZelType const* type) {
    if (obj == Py_None) {
        if (type->isValue() || type->isBuiltinType()) refuse(obj, type);
        if (type->hasOwnPtrInterface()) return Ptr<GenericIf const>(type->genericIf(nullptr, false));
        return Ptr<GenericIf const>();
    }
    Ptr<GenericIf const> g;
    if (FwkPyGenericIf_Check(obj)) {
        g = reinterpret_cast<FwkPyGenericIf*>(obj)->gif;
    } else {
        PyRef ptr(PyObject_GetAttrString(obj, "ptr_"));
        if (!ptr) {
            if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throwFromPtrAttrError();
            PyErr_Clear();
            refuse(obj, type);
        }
        if (!FwkPyGenericIf_Check(ptr.get())) refuse(obj, type);
        g = reinterpret_cast<FwkPyGenericIf*>(ptr.get())->gif;
    }
    if (g) {
        try {
            g->typeCheck(type);
        } catch (TypeException const&) {
            refuse(obj, type);
        }
    }
    return g;
}

} // namespace

Ptr<GenericIf const> Zel::toFramework(GilHeld gil, PyObject* obj, ZelType const* type) {
    if (!type) throw TypeException("introspection failed: expected type is NULL");
    if (type->isBuiltinType()) return toBuiltin(gil, obj, type);
    if (type == &EntityUri::_zelType) {
        EntityUri uri{Uri(stringOrRefuse(obj, type, false))};
        uri.checkScheme();
        return Ptr<GenericIf const>(type->genericIf(&uri, true));
    }
    if (type == &EntityUriPath::_zelType) {
        EntityUriPath path{stringOrRefuse(obj, type, false)};
        return Ptr<GenericIf const>(type->genericIf(&path, true));
    }
    if (type == &Name::_zelType) {
        Name name{stringOrRefuse(obj, type, true)};
        return Ptr<GenericIf const>(type->genericIf(&name, true));
    }
    if (type->isEnumType()) return toEnum(obj, type);

    DefaultAttributeData d = FwkPyGenericIfMapping::global()->defaultAttributeData(type);
    if (!d.valid) {
        PyErr_SetString(PyExc_TypeError, d.errorMessage.c_str());
        return Ptr<GenericIf const>();
    }
    if (!d.defaultType) return toHandle(obj, type);

    Ptr<GenericIf const> converted;
    bool refused = false;
    {
        Expect expect(Exception::idType);
        try {
            if (d.usePythonRepr) {
                // The value is kept as its repr(); one that would never be
                // finished (lists holding one another over and over) is
                // refused rather than attempted.
                if (!reprWithin(obj, kLiteralItems, kLiteralDepth)) {
                    PyErr_SetString(PyExc_TypeError, "too large for a Python literal: its repr() would pass 1000000 items or 1000 levels");
                    return Ptr<GenericIf const>();
                }
                PyRef repr(PyObject_Repr(obj));
                if (!repr) {
                    PyErr_SetString(PyExc_TypeError, "repr failed");
                    return Ptr<GenericIf const>();
                }
                converted = toFramework(gil, repr.get(), d.defaultType);
            } else {
                converted = toFramework(gil, obj, d.defaultType);
            }
        } catch (TypeException const&) {
            refused = true;
        }
    }
    if (refused) {
        // The refusal may leave the reading call's Python error behind.
        PyErr_Clear();
        return toHandle(obj, type);
    }
    if (!converted && PyErr_Occurred()) return Ptr<GenericIf const>();
    ArgDesc const* params = type->constructorArgs();
    if (type->constructorArgNames() == 1 && typeNode(String8(params[0].typeName)) == d.defaultType) {
        ArgVector args;
        args.push_back(converted);
        return Ptr<GenericIf const>(type->genericIf(args, false));
    }
    if (d.defaultId != 0) {
        Ptr<GenericIf> g = type->genericIf(nullptr, false);
        type->attr(d.defaultId)->genericIfSet(g.ptr(), nullptr, converted.ptr());
        return Ptr<GenericIf const>(g);
    }
    String8 m("cannot construct a ");
    m += type->name();
    m += " from a ";
    m += typeNameFromPyObject(obj);
    m += " because it has more than one constructor parameter and its default constructor cannot be called";
    PyErr_SetString(PyExc_TypeError, m.c_str());
    return Ptr<GenericIf const>();
}

Ptr<GenericIf const> PyObjectToGenericIf_unsafe(PyObject* obj, ZelType const* type) {
    return toFramework(NativeCallerGil::held(), obj, type);
}

Ptr<GenericIf const> PyObjectToGenericIf(PyObject* obj, ZelType const* type) {
    GilEnsure gil;
    return toFramework(NativeCallerGil::held(), obj, type);
}
