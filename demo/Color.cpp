#include "demo/Color.h"

namespace Demo {

namespace {
constexpr Zel::EnumConstAttr<Color> kEnumerator;
constexpr Zel::TypeOps kOps = Zel::enumOps<Color>();
constexpr uint32_t kFlags = Zel::ZelAttr::isEnumConst_ | Zel::ZelAttr::readable_ | Zel::ZelAttr::isStatic_;
} // namespace

constinit Zel::ZelType const ColorType::_zelType("Demo::Color", sizeof(Color), nullptr,
                                                 Zel::ZelType::isEnumType_ | Zel::ZelType::isValue_,
                                                 ColorType::_zelAttrs, 4, nullptr, &kOps);
constinit Zel::ZelAttr const ColorType::_zelAttrs[] = {
    {"red", 0, &ColorType::_zelType, &ColorType::_zelType, kFlags, &kEnumerator},
    {"green", 1, &ColorType::_zelType, &ColorType::_zelType, kFlags, &kEnumerator},
    {"blue", 2, &ColorType::_zelType, &ColorType::_zelType, kFlags, &kEnumerator},
    {"violet", 7, &ColorType::_zelType, &ColorType::_zelType, kFlags, &kEnumerator},
};

namespace {
Zel::TypeRegistration const rColor(&ColorType::_zelType);
} // namespace

} // namespace Demo
