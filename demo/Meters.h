// Demo::Meters: a length whose one stored attribute, value, is designated as
// the value attribute, so the whole value can stand for that number.
#pragma once

#include "Zel/Builtin.h"

namespace Demo {

struct ZEL_API Meters {
    double value = 0.0;

    bool operator==(Meters const&) const = default;

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];
};

} // namespace Demo
