#include "demo/Opaque.h"

#include "Zel/Attr.h"
#include "Zel/TypeOps.h"

namespace Demo {

namespace {
constexpr Zel::FieldAttr<&Opaque::id> kId;
constexpr Zel::ConstStringAttr kDefaultAttribute("id");
constexpr Zel::ConstBoolAttr kUsedForAccessor(false);
constexpr Zel::ArgDesc kCtor[] = {{"id", "int"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kOps = Zel::valueOps<Opaque, int>();
constexpr uint32_t kConst = Zel::ZelAttr::readable_ | Zel::ZelAttr::isStatic_;
} // namespace

constinit Zel::ZelType const Opaque::_zelType("Demo::Opaque", sizeof(Opaque), nullptr, Zel::ZelType::isValue_,
                                              Opaque::_zelAttrs, 3, kCtor, &kOps);
constinit Zel::ZelAttr const Opaque::_zelAttrs[] = {
    {"id", 1, &Opaque::_zelType, &Zel::Builtin<int>::_zelType,
     Zel::ZelAttr::readable_ | Zel::ZelAttr::writable_ | Zel::ZelAttr::stored_, &kId},
    {"defaultAttribute", 2, &Opaque::_zelType, &Zel::Builtin<Zel::String8>::_zelType, kConst, &kDefaultAttribute},
    {"defaultAttributeUsedForAccessor", 3, &Opaque::_zelType, &Zel::Builtin<bool>::_zelType, kConst,
     &kUsedForAccessor},
};

namespace {
Zel::TypeRegistration const rOpaque(&Opaque::_zelType);
} // namespace

} // namespace Demo
