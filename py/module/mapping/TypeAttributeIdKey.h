// Zel::PyGenericIf::TypeAttributeIdKey: one attribute number of one type,
// the key of the enumerator-name cache.
#pragma once

#include <cstdint>
#include <ostream>

#include "Zel/Strep.h"
#include "Zel/ZelType.h"

namespace Zel::PyGenericIf {

struct ZEL_API TypeAttributeIdKey {
    ZelType const* typeptr = nullptr;
    AttributeId id = 0;

    TypeAttributeIdKey() = default;
    TypeAttributeIdKey(ZelType const* t, AttributeId i) : typeptr(t), id(i) {}
    // Reads the text that valueToStrep writes.
    TypeAttributeIdKey(String8::IteratorConst& it, String8::IteratorConst const& end);

    bool operator==(TypeAttributeIdKey const& o) const { return typeptr == o.typeptr && id == o.id; }
    bool operator!=(TypeAttributeIdKey const& o) const { return !(*this == o); }
    // By type address first, so the attributes of one type are adjacent.
    bool operator<(TypeAttributeIdKey const& o) const {
        auto a = reinterpret_cast<uintptr_t>(typeptr), b = reinterpret_cast<uintptr_t>(o.typeptr);
        return a != b ? a < b : id < o.id;
    }
    bool operator>(TypeAttributeIdKey const& o) const { return o < *this; }
    bool operator<=(TypeAttributeIdKey const& o) const { return !(o < *this); }
    bool operator>=(TypeAttributeIdKey const& o) const { return !(*this < o); }

    uint32_t hash() const;

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
};

ZEL_API String8 valueToStrep(TypeAttributeIdKey const& k);
ZEL_API std::ostream& operator<<(std::ostream& os, TypeAttributeIdKey const& k);

} // namespace Zel::PyGenericIf
