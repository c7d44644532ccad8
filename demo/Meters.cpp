#include "demo/Meters.h"

#include "Zel/Attr.h"
#include "Zel/TypeOps.h"

namespace Demo {

namespace {
constexpr Zel::FieldAttr<&Meters::value> kValue;
constexpr Zel::TypeOps kOps = Zel::valueOps<Meters>();
constexpr uint32_t kStored = Zel::ZelAttr::readable_ | Zel::ZelAttr::writable_ | Zel::ZelAttr::stored_;
} // namespace

constinit Zel::ZelType const Meters::_zelType("Demo::Meters", sizeof(Meters), nullptr, Zel::ZelType::isValue_,
                                              Meters::_zelAttrs, 1, nullptr, &kOps, 0);
constinit Zel::ZelAttr const Meters::_zelAttrs[] = {
    {"value", 1, &Meters::_zelType, &Zel::Builtin<double>::_zelType, kStored, &kValue},
};

namespace {
Zel::TypeRegistration const rMeters(&Meters::_zelType);
} // namespace

} // namespace Demo
