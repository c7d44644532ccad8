#include "module/mapping/TypeAttributeIdKey.h"

#include "Zel/Attr.h"
#include "Zel/Format.h"
#include "Zel/TypeOps.h"

namespace Zel::PyGenericIf {

TypeAttributeIdKey::TypeAttributeIdKey(String8::IteratorConst& it, String8::IteratorConst const& end) {
    needString(it, end, "Value('Zel::PyGenericIf::TypeAttributeIdKey', ** {");
    needString(it, end, "'typeptr': ");
    typeptr = deserializeAttr<ZelType const*>(it, end, "typeptr");
    needString(it, end, ", 'id': ");
    id = deserializeAttr<AttributeId>(it, end, "id");
    needString(it, end, "})");
}

uint32_t TypeAttributeIdKey::hash() const {
    if (!typeptr) return static_cast<uint32_t>(id);
    return zelHashU32(typeptr) + static_cast<uint32_t>(id);
}

String8 valueToStrep(TypeAttributeIdKey const& k) {
    return format("Value('Zel::PyGenericIf::TypeAttributeIdKey', ** {'typeptr': %s, 'id': %s})",
                  rawPtrToStrep(k.typeptr).c_str(), rawPtrToStrep(k.id).c_str());
}

std::ostream& operator<<(std::ostream& os, TypeAttributeIdKey const& k) { return os << valueToStrep(k); }

namespace {

String8 strep(GenericIf const& g) { return valueToStrep(*static_cast<TypeAttributeIdKey const*>(g.valuePtr())); }
uint32_t hashOf(GenericIf const& g) { return static_cast<TypeAttributeIdKey const*>(g.valuePtr())->hash(); }

// The type argument has no reflected form, so only a null one can be passed
// by reflection.
Ptr<GenericIf> construct(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.empty()) return makeValue<TypeAttributeIdKey>(type, nullptr, isConst);
    if (args.size() != 2) throwConstructorCount(type, 2, args.size());
    if (args[0]) throw TypeException("the typeptr argument of Zel::PyGenericIf::TypeAttributeIdKey must be null");
    TypeAttributeIdKey k(nullptr, GenericIfTraits<AttributeId>::from(args[1].ptr()));
    return makeValue<TypeAttributeIdKey>(type, &k, isConst);
}

constexpr TypeOps kOps{&makeValue<TypeAttributeIdKey>, &construct, &hashOf, &strep,
                       &valueEqual<TypeAttributeIdKey>};
constexpr FieldAttr<&TypeAttributeIdKey::id> kId;
constexpr AccessorAttr<&TypeAttributeIdKey::hash> kHash;
constexpr ArgDesc kCtor[] = {{"typeptr", "Zel::ZelType"}, {"id", "Zel::AttributeId"}, {nullptr, nullptr}};

} // namespace

constinit ZelType const TypeAttributeIdKey::_zelType("Zel::PyGenericIf::TypeAttributeIdKey",
                                                     sizeof(TypeAttributeIdKey), nullptr, ZelType::isValue_,
                                                     TypeAttributeIdKey::_zelAttrs, 2, kCtor, &kOps);
constinit ZelAttr const TypeAttributeIdKey::_zelAttrs[] = {
    {"id", 3, &TypeAttributeIdKey::_zelType, &Builtin<int>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::stored_, &kId},
    {"hash", 4, &TypeAttributeIdKey::_zelType, &Builtin<unsigned int>::_zelType, ZelAttr::readable_, &kHash},
};

} // namespace Zel::PyGenericIf
