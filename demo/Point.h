// Demo::Point: a plain two-field value.
#pragma once

#include "Zel/Builtin.h"

namespace Demo {

struct ZEL_API Point {
    int x = 0;
    int y = 0;

    Point() = default;
    Point(int x_, int y_) : x(x_), y(y_) {}
    bool operator==(Point const&) const = default;

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];
};

} // namespace Demo
