// Demo::Color: an enumeration with a gap (violet is 7).
#pragma once

#include <cstdint>

#include "Zel/Enum.h"

namespace Demo {

enum class Color : int32_t { red = 0, green = 1, blue = 2, violet = 7 };

struct ZEL_API ColorType {
    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];
};

} // namespace Demo

ZEL_ENUM_TYPE(Demo::Color, Demo::ColorType::_zelType)
