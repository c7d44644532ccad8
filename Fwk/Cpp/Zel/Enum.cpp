#include "Zel/Enum.h"

#include <cstring>

#include "Zel/Attr.h"
#include "Zel/Format.h"
#include "Zel/Strep.h"

namespace Zel {

ZelAttr const* enumerator(ZelType const* type, int32_t value) {
    for (uint16_t i = 0; i < type->attrCount(); ++i) {
        ZelAttr const& a = type->attrs()[i];
        if (a.has(ZelAttr::isEnumConst_) && a.attributeId() == value) return &a;
    }
    return nullptr;
}

int32_t enumeratorValue(ZelType const* type, String8 const& name) {
    for (uint16_t i = 0; i < type->attrCount(); ++i) {
        ZelAttr const& a = type->attrs()[i];
        if (a.has(ZelAttr::isEnumConst_) && name == a.name()) return a.attributeId();
    }
    throw RangeException("no enumerator " + name + " in " + type->name());
}

int32_t enumValueOf(GenericIf const& g) {
    int32_t v;
    std::memcpy(&v, g.valuePtr(), sizeof v);
    return v;
}

String8 enumStrep(GenericIf const& g) {
    int32_t v = enumValueOf(g);
    if (ZelAttr const* e = enumerator(g.type(), v)) return String8("'") + e->name() + "'";
    return valueToStrep(static_cast<int>(v));
}

uint32_t enumHash(GenericIf const& g) { return zelHashU32(static_cast<uint64_t>(uint32_t(enumValueOf(g)))); }

bool enumEqual(GenericIf const& a, GenericIf const& b) { return enumValueOf(a) == enumValueOf(b); }

} // namespace Zel
