// Zel::PyGenericIf::DefaultAttributeData: for one framework value type,
// which attribute stands for the whole value when it is shown to Python,
// and whether the type's declaration of that rule is consistent.
#pragma once

#include <ostream>

#include "Zel/Strep.h"
#include "Zel/ZelType.h"

namespace Zel::PyGenericIf {

struct ZEL_API DefaultAttributeData {
    AttributeId defaultId = 0;
    ZelType const* defaultType = nullptr;
    ZelAttr const* defaultAttr = nullptr;
    bool usePythonRepr = false;
    bool defaultAttributeUsedForAccessor = true;
    bool valid = true;
    String8 errorMessage;

    DefaultAttributeData() = default;
    DefaultAttributeData(AttributeId id, ZelType const* type, ZelAttr const* attr, bool repr)
        : defaultId(id), defaultType(type), defaultAttr(attr), usePythonRepr(repr) {}
    // Reads the text that valueToStrep writes.
    DefaultAttributeData(String8::IteratorConst& it, String8::IteratorConst const& end);

    bool operator==(DefaultAttributeData const& o) const;
    bool operator!=(DefaultAttributeData const& o) const { return !(*this == o); }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];
};

ZEL_API String8 valueToStrep(DefaultAttributeData const& d);
ZEL_API std::ostream& operator<<(std::ostream& os, DefaultAttributeData const& d);

} // namespace Zel::PyGenericIf
