// Test helpers: reach demo objects the way the Python module does, through
// type and attribute descriptors only.
#pragma once

#include "Zel/Builtin.h"
#include "Zel/Values.h"

namespace demotest {

inline Zel::ZelType const* type(char const* name) { return Zel::typeNode(name); }

template <class... A>
Zel::Ptr<Zel::GenericIf> make(char const* typeName, A const&... args) {
    Zel::ArgVector v{Zel::toGenericIf(args)...};
    return type(typeName)->genericIf(v, false);
}

inline Zel::ZelAttr const* attr(Zel::GenericIf const* g, char const* name) {
    Zel::ZelAttr const* a = g->type()->attr(name);
    if (!a) throw Zel::UnknownAttrException(Zel::String8("no attribute ") + name);
    return a;
}

template <class T>
T get(Zel::GenericIf const* g, char const* name, Zel::GenericIf const* index = nullptr) {
    return Zel::fromGenericIf<T>(attr(g, name)->genericIfGet(g, index).ptr());
}

template <class T>
void set(Zel::GenericIf const* g, char const* name, T const& v) {
    attr(g, name)->genericIfSet(g, nullptr, Zel::toGenericIf(v).ptr());
}

} // namespace demotest
