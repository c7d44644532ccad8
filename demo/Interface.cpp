#include "demo/Interface.h"

#include "Zel/EntityFieldAttr.h"
#include "Zel/TypeOps.h"

namespace Demo {

namespace {
constexpr Zel::EntityFieldAttr<&Interface::mtu> kMtu;
constexpr Zel::EntityFieldAttr<&Interface::adminUp> kAdminUp;
constexpr Zel::EntityFieldAttr<&Interface::mac> kMac;
constexpr Zel::EntityFieldAttr<&Interface::description> kDescription;
constexpr Zel::EntityFieldAttr<&Interface::speed> kSpeed;
constexpr Zel::EntityFieldAttr<&Interface::inOctets> kInOctets;
constexpr Zel::ArgDesc kCtor[] = {{"name", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kOps = Zel::entityOps<Interface, Zel::String8>();
constexpr uint32_t kRW =
    Zel::ZelAttr::readable_ | Zel::ZelAttr::writable_ | Zel::ZelAttr::doesNotify_ | Zel::ZelAttr::stored_;
using Zel::Builtin;
} // namespace

constinit Zel::ZelType const Interface::_zelType("Demo::Interface", sizeof(Interface), &Zel::Entity::_zelType,
                                                 Zel::ZelType::isEntity_ | Zel::ZelType::hasOwnPtrInterface_,
                                                 Interface::_zelAttrs, 6, kCtor, &kOps);
constinit Zel::ZelAttr const Interface::_zelAttrs[] = {
    {"mtu", 1, &Interface::_zelType, &Builtin<int>::_zelType, kRW, &kMtu},
    {"adminUp", 2, &Interface::_zelType, &Builtin<bool>::_zelType, kRW, &kAdminUp},
    {"mac", 3, &Interface::_zelType, &MacAddr::_zelType, kRW, &kMac},
    {"description", 4, &Interface::_zelType, &Builtin<Zel::String8>::_zelType, kRW, &kDescription},
    {"speed", 5, &Interface::_zelType, &Builtin<unsigned long long>::_zelType, kRW, &kSpeed},
    {"inOctets", 6, &Interface::_zelType, &Builtin<unsigned long long>::_zelType, kRW, &kInOctets},
};

namespace {
Zel::TypeRegistration const rInterface(&Interface::_zelType);
} // namespace

} // namespace Demo
