// Demo::Opaque: a value with a default attribute (id) that is used for
// display only, not by attribute accessors.
#pragma once

#include "Zel/Builtin.h"

namespace Demo {

struct ZEL_API Opaque {
    int id = 0;

    Opaque() = default;
    explicit Opaque(int i) : id(i) {}
    bool operator==(Opaque const&) const = default;

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];
};

} // namespace Demo
