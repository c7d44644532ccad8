// Test helpers: reach demo objects the way the Python module does, through
// type and attribute descriptors only.
#pragma once

#include <string>
#include <vector>

#include "Zel/Builtin.h"
#include "Zel/Notifiee.h"
#include "Zel/Values.h"

namespace demotest {

template <class... A>
Zel::Ptr<Zel::GenericIf> make(char const* typeName, A const&... args) {
    return Zel::typeNode(typeName)->genericIf(Zel::ArgVector{Zel::toGenericIf(args)...}, false);
}

inline Zel::ZelAttr const* attr(Zel::GenericIf const* g, char const* name) {
    Zel::ZelAttr const* a = g->type()->attr(name);
    if (!a) throw Zel::UnknownAttrException(Zel::String8("no attribute ") + name);
    return a;
}

template <class T>
T get(Zel::GenericIf const* g, char const* name) {
    return Zel::fromGenericIf<T>(attr(g, name)->genericIfGet(g, nullptr).ptr());
}

template <class T>
void set(Zel::GenericIf const* g, char const* name, T const& v) {
    attr(g, name)->genericIfSet(g, nullptr, Zel::toGenericIf(v).ptr());
}

// Records each notification as "attribute=strep of the value".
struct Recorder : Zel::GenericIf::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    std::vector<std::string> seen;
    void onAttribute(Zel::ZelAttr const* a, Zel::Ptr<Zel::GenericIf const> const& v) override {
        seen.push_back(std::string(a->name()) + "=" + (v ? v->strep().str() : "None"));
    }
};

} // namespace demotest
