#include "demo/PyLiteral.h"

#include "Zel/Attr.h"
#include "Zel/TypeOps.h"

namespace Demo {

namespace {
constexpr Zel::FieldAttr<&PyLiteral::text> kText;
constexpr Zel::ConstStringAttr kDefaultRepr("text");
constexpr Zel::ArgDesc kCtor[] = {{"text", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kOps = Zel::valueOps<PyLiteral, Zel::String8>();
} // namespace

constinit Zel::ZelType const PyLiteral::_zelType("Demo::PyLiteral", sizeof(PyLiteral), nullptr,
                                                 Zel::ZelType::isValue_, PyLiteral::_zelAttrs, 2, kCtor, &kOps);
constinit Zel::ZelAttr const PyLiteral::_zelAttrs[] = {
    {"text", 1, &PyLiteral::_zelType, &Zel::Builtin<Zel::String8>::_zelType,
     Zel::ZelAttr::readable_ | Zel::ZelAttr::writable_ | Zel::ZelAttr::stored_, &kText},
    {"defaultReprAttribute", 2, &PyLiteral::_zelType, &Zel::Builtin<Zel::String8>::_zelType,
     Zel::ZelAttr::readable_ | Zel::ZelAttr::isStatic_, &kDefaultRepr},
};

namespace {
Zel::TypeRegistration const rPyLiteral(&PyLiteral::_zelType);
} // namespace

} // namespace Demo
