// Demo::MacAddr: six bytes, shown and parsed as "aa:bb:cc:dd:ee:ff". Its
// default attribute is stringValue.
#pragma once

#include <array>
#include <cstdint>

#include "Zel/Builtin.h"

namespace Demo {

class ZEL_API MacAddr {
public:
    MacAddr() = default;
    // Hex digits of either case; anything else is refused with
    // RangeException "invalid MAC address: <text>".
    explicit MacAddr(Zel::String8 const& text);

    // Lower case, colon separated.
    Zel::String8 stringValue() const;
    void stringValueIs(Zel::String8 const& text) { *this = MacAddr(text); }
    bool operator==(MacAddr const&) const = default;

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];

private:
    std::array<uint8_t, 6> bytes_{};
};

} // namespace Demo
