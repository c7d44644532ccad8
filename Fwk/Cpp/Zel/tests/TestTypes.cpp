#include "TestTypes.h"

namespace ZelTest {

using Zel::Builtin;
using Zel::ZelAttr;
using Zel::ZelType;

namespace {

constexpr uint32_t kRW = ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::stored_;

constexpr Zel::FieldAttr<&AllBuiltins::s> kS;
constexpr Zel::FieldAttr<&AllBuiltins::c> kC;
constexpr Zel::FieldAttr<&AllBuiltins::sc> kSc;
constexpr Zel::FieldAttr<&AllBuiltins::uc> kUc;
constexpr Zel::FieldAttr<&AllBuiltins::sh> kSh;
constexpr Zel::FieldAttr<&AllBuiltins::us> kUs;
constexpr Zel::FieldAttr<&AllBuiltins::i> kI;
constexpr Zel::FieldAttr<&AllBuiltins::u> kU;
constexpr Zel::FieldAttr<&AllBuiltins::l> kL;
constexpr Zel::FieldAttr<&AllBuiltins::ull> kUll;
constexpr Zel::FieldAttr<&AllBuiltins::ll> kLl;
constexpr Zel::FieldAttr<&AllBuiltins::f> kF;
constexpr Zel::FieldAttr<&AllBuiltins::d> kD;
constexpr Zel::FieldAttr<&AllBuiltins::b> kB;
constexpr Zel::TypeOps kAllBuiltinsOps = Zel::valueOps<AllBuiltins>();

constexpr Zel::AccessorAttr<&Gadget::label> kLabelAttr;
constexpr Zel::AccessorAttr<&Gadget::level, &Gadget::levelIs> kLevelAttr;
constexpr Zel::AccessorAttr<&Gadget::ratio> kRatioAttr;
constexpr Zel::AccessorAttr<&Gadget::flag, &Gadget::flagIs> kFlagAttr;
constexpr Zel::ArgDesc kGadgetCtor[] = {{"label", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kGadgetOps = Zel::entityOps<Gadget, String8>();

} // namespace

constinit ZelType const AllBuiltins::_zelType("ZelTest::AllBuiltins", sizeof(AllBuiltins), nullptr,
                                              ZelType::isValue_, AllBuiltins::_zelAttrs, 14, nullptr,
                                              &kAllBuiltinsOps);

#define FIELD(NAME, ID, T, H) {NAME, ID, &AllBuiltins::_zelType, &Builtin<T>::_zelType, kRW, &H}
constinit ZelAttr const AllBuiltins::_zelAttrs[] = {
    FIELD("s", 1, String8, kS),
    FIELD("c", 2, char, kC),
    FIELD("sc", 3, signed char, kSc),
    FIELD("uc", 4, unsigned char, kUc),
    FIELD("sh", 5, short, kSh),
    FIELD("us", 6, unsigned short, kUs),
    FIELD("i", 7, int, kI),
    FIELD("u", 8, unsigned int, kU),
    FIELD("l", 9, long, kL),
    FIELD("ull", 10, unsigned long long, kUll),
    FIELD("ll", 11, long long, kLl),
    FIELD("f", 12, float, kF),
    FIELD("d", 13, double, kD),
    FIELD("b", 14, bool, kB),
};
#undef FIELD

constinit ZelType const Gadget::_zelType("ZelTest::Gadget", sizeof(Gadget), &Zel::PtrInterface::_zelType,
                                         ZelType::isEntity_ | ZelType::hasOwnPtrInterface_,
                                         Gadget::_zelAttrs, 4, kGadgetCtor, &kGadgetOps);

constinit ZelAttr const Gadget::_zelAttrs[] = {
    {"label", kLabel, &Gadget::_zelType, &Builtin<String8>::_zelType, ZelAttr::readable_, &kLabelAttr},
    {"level", kLevel, &Gadget::_zelType, &Builtin<int>::_zelType, ZelAttr::readable_ | ZelAttr::writable_,
     &kLevelAttr},
    {"ratio", kRatio, &Gadget::_zelType, &Builtin<double>::_zelType, ZelAttr::readable_ | ZelAttr::writable_,
     &kRatioAttr},
    {"flag", kFlag, &Gadget::_zelType, &Builtin<bool>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::deletable_, &kFlagAttr},
};

namespace {
Zel::TypeRegistration const rAllBuiltins(&AllBuiltins::_zelType);
Zel::TypeRegistration const rGadget(&Gadget::_zelType);
} // namespace

} // namespace ZelTest
