// Enumerations: a value type (isEnumType_ | isValue_) whose enumerators are
// constant attributes of the type. An enumerator's attribute id is its
// numeric value; its flags are isEnumConst_ | readable_ | isStatic_ and its
// handler is EnumConstAttr<E>. The GenericIf holds the C++ enum itself.
//
//   enum class Color : int32_t { red = 0, green = 1 };
//   struct ColorType { static ZelType const _zelType; static ZelAttr const _zelAttrs[]; };
//   ZEL_ENUM_TYPE(Color, ColorType::_zelType)   // at namespace scope
//   constexpr Zel::EnumConstAttr<Color> kColorConst;
//   constexpr Zel::TypeOps kColorOps = Zel::enumOps<Color>();
#pragma once

#include <type_traits>

#include "Zel/Attr.h"

namespace Zel {

// The enumerator of a type whose id is `value`, or null.
ZEL_API ZelAttr const* enumerator(ZelType const* type, int32_t value);
// The enumerator named `name`; throws RangeException when there is none.
ZEL_API int32_t enumeratorValue(ZelType const* type, String8 const& name);

// The held enum's value widened to 32 bits (every enum here has a 32-bit
// underlying type, so the held object can be read as one).
ZEL_API int32_t enumValueOf(GenericIf const& g);
// 'name' in single quotes, or the bare number when no enumerator has it.
ZEL_API String8 enumStrep(GenericIf const& g);
ZEL_API uint32_t enumHash(GenericIf const& g);
ZEL_API bool enumEqual(GenericIf const& a, GenericIf const& b);

// An enumerator attribute: reads as a const value of the scope's enum.
template <class E>
class EnumConstAttr final : public AttrHandler {
public:
    constexpr EnumConstAttr() = default;
    Ptr<GenericIf const> get(ZelAttr const& a, GenericIf const&, GenericIf const*) const override {
        return zelNew<ValueGenericIf<E>>(a.scope(), static_cast<E>(a.attributeId()), true);
    }
};

// Construction from no argument (the zero value), from one int, or from one
// enumerator name; any other value is refused with RangeException.
template <class E>
Ptr<GenericIf> constructEnum(ZelType const* type, ArgVector const& args, bool isConst) {
    static_assert(sizeof(std::underlying_type_t<E>) == 4, "enumerations are 32-bit");
    if (args.empty()) return zelNew<ValueGenericIf<E>>(type, isConst);
    if (args.size() != 1) throw TypeException(String8(type->name()) + " takes one constructor argument");
    GenericIf const* g = args[0].ptr();
    int32_t v;
    if (g && g->type() == &Builtin<String8>::_zelType) {
        v = enumeratorValue(type, *static_cast<String8 const*>(g->valuePtr()));
    } else if (g && g->type() == type) {
        v = enumValueOf(*g);
    } else {
        v = GenericIfTraits<int>::from(g);
    }
    return zelNew<ValueGenericIf<E>>(type, static_cast<E>(v), isConst);
}

template <class E>
Ptr<GenericIf> makeEnum(ZelType const* type, void const* value, bool isConst) {
    if (!value) return zelNew<ValueGenericIf<E>>(type, isConst);
    return zelNew<ValueGenericIf<E>>(type, *static_cast<E const*>(value), isConst);
}

template <class E>
constexpr TypeOps enumOps() {
    return TypeOps{&makeEnum<E>, &constructEnum<E>, &enumHash, &enumStrep, &enumEqual};
}

} // namespace Zel

// Maps the C++ enum E to its descriptor `desc` (used by GenericIfTraits).
#define ZEL_ENUM_TYPE(E, desc)                                         \
    template <> struct Zel::ZelTypeOf<E, void> {                       \
        static Zel::ZelType const* get() { return &(desc); }           \
    };
