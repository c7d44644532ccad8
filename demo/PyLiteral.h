// Demo::PyLiteral: a value shown to Python through its text (its
// defaultReprAttribute).
#pragma once

#include "Zel/Builtin.h"

namespace Demo {

struct ZEL_API PyLiteral {
    Zel::String8 text;

    PyLiteral() = default;
    explicit PyLiteral(Zel::String8 t) : text(std::move(t)) {}
    bool operator==(PyLiteral const&) const = default;

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];
};

} // namespace Demo
