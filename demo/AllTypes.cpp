#include "demo/AllTypes.h"

#include "Zel/EntityFieldAttr.h"
#include "Zel/TypeOps.h"

namespace Demo {

namespace {
constexpr Zel::EntityFieldAttr<&AllTypes::s8> k_s8;
constexpr Zel::EntityFieldAttr<&AllTypes::ch> k_ch;
constexpr Zel::EntityFieldAttr<&AllTypes::i8> k_i8;
constexpr Zel::EntityFieldAttr<&AllTypes::u8> k_u8;
constexpr Zel::EntityFieldAttr<&AllTypes::i16> k_i16;
constexpr Zel::EntityFieldAttr<&AllTypes::u16> k_u16;
constexpr Zel::EntityFieldAttr<&AllTypes::i32> k_i32;
constexpr Zel::EntityFieldAttr<&AllTypes::u32> k_u32;
constexpr Zel::EntityFieldAttr<&AllTypes::l> k_l;
constexpr Zel::EntityFieldAttr<&AllTypes::i64> k_i64;
constexpr Zel::EntityFieldAttr<&AllTypes::u64> k_u64;
constexpr Zel::EntityFieldAttr<&AllTypes::f32> k_f32;
constexpr Zel::EntityFieldAttr<&AllTypes::f64> k_f64;
constexpr Zel::EntityFieldAttr<&AllTypes::flag> k_flag;
constexpr Zel::EntityFieldAttr<&AllTypes::color> k_color;
constexpr Zel::EntityFieldAttr<&AllTypes::point> k_point;
constexpr Zel::EntityFieldAttr<&AllTypes::length> k_length;
constexpr Zel::EntityFieldAttr<&AllTypes::mac> k_mac;
constexpr Zel::EntityFieldAttr<&AllTypes::literal> k_literal;
constexpr Zel::EntityFieldAttr<&AllTypes::opaque> k_opaque;
constexpr Zel::EntityFieldAttr<&AllTypes::uri> k_uri;
constexpr Zel::EntityFieldAttr<&AllTypes::uriPath> k_uriPath;
constexpr Zel::EntityFieldAttr<&AllTypes::label> k_label;
constexpr Zel::EntityFieldAttr<&AllTypes::peer> k_peer;
constexpr Zel::EntityFieldAttr<&AllTypes::readOnly> k_readOnly;
constexpr Zel::ArgDesc kCtor[] = {{"name", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kOps = Zel::entityOps<AllTypes, Zel::String8>();
constexpr uint32_t kRW = Zel::ZelAttr::readable_ | Zel::ZelAttr::writable_ | Zel::ZelAttr::doesNotify_ |
                         Zel::ZelAttr::stored_;
} // namespace

constinit Zel::ZelType const AllTypes::_zelType("Demo::AllTypes", sizeof(AllTypes), &Zel::Entity::_zelType,
                                                Zel::ZelType::isEntity_ | Zel::ZelType::hasOwnPtrInterface_,
                                                AllTypes::_zelAttrs, 25, kCtor, &kOps);
constinit Zel::ZelAttr const AllTypes::_zelAttrs[] = {
    {"s8", 1, &AllTypes::_zelType, &Zel::Builtin<Zel::String8>::_zelType, kRW, &k_s8},
    {"ch", 2, &AllTypes::_zelType, &Zel::Builtin<char>::_zelType, kRW, &k_ch},
    {"i8", 3, &AllTypes::_zelType, &Zel::Builtin<signed char>::_zelType, kRW, &k_i8},
    {"u8", 4, &AllTypes::_zelType, &Zel::Builtin<unsigned char>::_zelType, kRW, &k_u8},
    {"i16", 5, &AllTypes::_zelType, &Zel::Builtin<short>::_zelType, kRW, &k_i16},
    {"u16", 6, &AllTypes::_zelType, &Zel::Builtin<unsigned short>::_zelType, kRW, &k_u16},
    {"i32", 7, &AllTypes::_zelType, &Zel::Builtin<int>::_zelType, kRW, &k_i32},
    {"u32", 8, &AllTypes::_zelType, &Zel::Builtin<unsigned int>::_zelType, kRW, &k_u32},
    {"l", 9, &AllTypes::_zelType, &Zel::Builtin<long>::_zelType, kRW, &k_l},
    {"i64", 10, &AllTypes::_zelType, &Zel::Builtin<long long>::_zelType, kRW, &k_i64},
    {"u64", 11, &AllTypes::_zelType, &Zel::Builtin<unsigned long long>::_zelType, kRW, &k_u64},
    {"f32", 12, &AllTypes::_zelType, &Zel::Builtin<float>::_zelType, kRW, &k_f32},
    {"f64", 13, &AllTypes::_zelType, &Zel::Builtin<double>::_zelType, kRW, &k_f64},
    {"flag", 14, &AllTypes::_zelType, &Zel::Builtin<bool>::_zelType, kRW, &k_flag},
    {"color", 15, &AllTypes::_zelType, &ColorType::_zelType, kRW, &k_color},
    {"point", 16, &AllTypes::_zelType, &Point::_zelType, kRW, &k_point},
    {"length", 17, &AllTypes::_zelType, &Meters::_zelType, kRW, &k_length},
    {"mac", 18, &AllTypes::_zelType, &MacAddr::_zelType, kRW, &k_mac},
    {"literal", 19, &AllTypes::_zelType, &PyLiteral::_zelType, kRW, &k_literal},
    {"opaque", 20, &AllTypes::_zelType, &Opaque::_zelType, kRW, &k_opaque},
    {"uri", 21, &AllTypes::_zelType, &Zel::EntityUri::_zelType, kRW, &k_uri},
    {"uriPath", 22, &AllTypes::_zelType, &Zel::EntityUriPath::_zelType, kRW, &k_uriPath},
    {"label", 23, &AllTypes::_zelType, &Zel::Name::_zelType, kRW, &k_label},
    {"peer", 24, &AllTypes::_zelType, &AllTypes::_zelType, kRW | Zel::ZelAttr::isPtr_ | Zel::ZelAttr::deletable_, &k_peer},
    {"readOnly", 25, &AllTypes::_zelType, &Zel::Builtin<int>::_zelType, Zel::ZelAttr::readable_ | Zel::ZelAttr::doesNotify_, &k_readOnly},
};

namespace {
Zel::TypeRegistration const rAllTypes(&AllTypes::_zelType);
} // namespace

} // namespace Demo
