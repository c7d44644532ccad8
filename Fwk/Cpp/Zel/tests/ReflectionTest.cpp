#include <gtest/gtest.h>

#include <limits>

#include "TestTypes.h"
#include "Zel/Values.h"

namespace {

using Zel::GenericIf;
using Zel::Ptr;
using Zel::String8;
using ZelTest::AllBuiltins;
using ZelTest::Gadget;

Ptr<GenericIf> defaultValue(bool isConst = false) {
    return AllBuiltins::_zelType.genericIf(static_cast<void const*>(nullptr), isConst);
}

AllBuiltins const& held(GenericIf const& g) { return *static_cast<AllBuiltins const*>(g.valuePtr()); }

// Sets field `name` to `v` through reflection and checks that the field,
// and only it, changed; a value of another builtin type is refused.
template <class T, class Other>
void checkField(char const* name, T AllBuiltins::*field, T v, Other wrong) {
    SCOPED_TRACE(name);
    Ptr<GenericIf> g = defaultValue();
    Zel::ZelAttr const* a = AllBuiltins::_zelType.attr(name);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->memberType(), &Zel::Builtin<T>::_zelType);
    a->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(v).ptr());
    EXPECT_EQ(Zel::fromGenericIf<T>(a->genericIfGet(g.ptr(), nullptr).ptr()), v);
    AllBuiltins expected;
    expected.*field = v;
    EXPECT_TRUE(held(*g) == expected);
    EXPECT_THROW(a->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(wrong).ptr()), Zel::TypeException);
    EXPECT_THROW(a->genericIfSet(g.ptr(), nullptr, nullptr), Zel::TypeException);
    EXPECT_EQ(held(*g).*field, v);
}

TEST(ReflectionBuiltins, EachBuiltinGetsAndSetsThroughGenericIf) {
    checkField("s", &AllBuiltins::s, String8(std::string("a\0b", 3)), 'x');
    checkField("c", &AllBuiltins::c, '\xff', static_cast<signed char>(1));
    checkField<signed char>("sc", &AllBuiltins::sc, -128, static_cast<unsigned char>(1));
    checkField<unsigned char>("uc", &AllBuiltins::uc, 255, 'x');
    checkField<short>("sh", &AllBuiltins::sh, -32768, 1);
    checkField<unsigned short>("us", &AllBuiltins::us, 65535, static_cast<short>(1));
    checkField("i", &AllBuiltins::i, std::numeric_limits<int>::min(), 1L);
    checkField("u", &AllBuiltins::u, 4294967295u, 1);
    checkField("l", &AllBuiltins::l, std::numeric_limits<long>::min(), 1LL);
    checkField("ull", &AllBuiltins::ull, 18446744073709551615ull, 1LL);
    checkField("ll", &AllBuiltins::ll, std::numeric_limits<long long>::min(), 1L);
    checkField("f", &AllBuiltins::f, 1.5f, 1.5);
    checkField("d", &AllBuiltins::d, -2.25, 2.25f);
    checkField("b", &AllBuiltins::b, true, 1);
}

TEST(ReflectionBuiltins, BuiltinTypesAreRegisteredValuesWithTheirNames) {
    EXPECT_EQ(Zel::typeNode("Zel::String"), &Zel::Builtin<String8>::_zelType);
    EXPECT_EQ(Zel::typeNode("unsigned long long"), &Zel::Builtin<unsigned long long>::_zelType);
    for (char const* n : {"char", "signed char", "unsigned char", "short", "unsigned short", "int",
                          "unsigned int", "long", "long long", "float", "double", "bool"}) {
        Zel::ZelType const* t = Zel::typeNode(n);
        EXPECT_STREQ(t->name(), n);
        EXPECT_TRUE(t->isValue() && t->isBuiltinType()) << n;
    }
}

TEST(ReflectionRegistry, UnknownNamesAndAliases) {
    EXPECT_THROW(Zel::typeNode("ZelTest::Missing"), Zel::NoTypeNodeException);
    EXPECT_EQ(Zel::typeNodeOrNull("ZelTest::Missing"), nullptr);
    EXPECT_EQ(Zel::typeNode("Zel::AttributeId"), &Zel::Builtin<int>::_zelType);
    EXPECT_EQ(Zel::typeNode("ZelTest::Gadget"), &Gadget::_zelType);
    try {
        Zel::typeNode("ZelTest::Missing");
    } catch (Zel::RangeException const& e) {   // NoTypeNode is a range error
        EXPECT_NE(e.message().str().find("ZelTest::Missing"), std::string::npos);
    }
}

TEST(ReflectionRegistry, AttributesByNameAndIdIncludeBaseTypes) {
    EXPECT_EQ(Gadget::_zelType.attr("level"), &Gadget::_zelAttrs[1]);
    EXPECT_EQ(Gadget::_zelType.attr(ZelTest::kFlag), &Gadget::_zelAttrs[3]);
    EXPECT_EQ(Gadget::_zelType.attr("nope"), nullptr);
    EXPECT_TRUE(Gadget::_zelType.isDerived(&Zel::PtrInterface::_zelType));
    EXPECT_FALSE(Zel::PtrInterface::_zelType.isDerived(&Gadget::_zelType));
}

TEST(ReflectionValues, AValueGenericIfHoldsACopy) {
    AllBuiltins native;
    native.i = 5;
    Ptr<GenericIf> g = AllBuiltins::_zelType.genericIf(&native, false);
    AllBuiltins::_zelType.attr("i")->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(6).ptr());
    EXPECT_EQ(native.i, 5);
    EXPECT_EQ(held(*g).i, 6);
}

TEST(ReflectionEntities, AnEntityGenericIfRefersToTheObject) {
    Ptr<Gadget> gadget = Zel::zelNew<Gadget>("g1");
    Ptr<GenericIf> g = Zel::genericIfOf(gadget.ptr());
    EXPECT_EQ(g->type(), &Gadget::_zelType);
    EXPECT_EQ(gadget->references(), 2u);   // the GenericIf holds a reference
    Gadget::_zelType.attr("level")->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(9).ptr());
    EXPECT_EQ(gadget->level(), 9);
    gadget->levelIs(10);
    EXPECT_EQ(Zel::fromGenericIf<int>(Gadget::_zelType.attr("level")->genericIfGet(g.ptr(), nullptr).ptr()), 10);
    g.reset();
    EXPECT_EQ(gadget->references(), 1u);
}

TEST(ReflectionEntities, ConstructedByReflectionFromArguments) {
    Zel::ArgVector args{Zel::toGenericIf(String8("made"))};
    Ptr<GenericIf> g = Zel::typeNode("ZelTest::Gadget")->genericIf(args, false);
    EXPECT_EQ(Zel::objectOf<Gadget>(g.ptr())->label(), "made");
    EXPECT_THROW(Gadget::_zelType.genericIf(Zel::ArgVector{}, false), Zel::TypeException);
    Zel::ArgVector wrong{Zel::toGenericIf(1)};
    EXPECT_THROW(Gadget::_zelType.genericIf(wrong, false), Zel::TypeException);
}

TEST(ReflectionEntities, TypedNullHasTheTypeButNoObject) {
    Ptr<GenericIf const> n = Zel::GenericIfTraits<Ptr<Gadget>>::to(Ptr<Gadget>());
    EXPECT_EQ(n->type(), &Gadget::_zelType);
    EXPECT_EQ(n->valuePtr(), nullptr);
    EXPECT_EQ(n->strep(), "None");
    EXPECT_EQ(Zel::objectOf<Gadget>(n.ptr()), nullptr);
    EXPECT_EQ(Zel::fromGenericIf<Ptr<Gadget>>(n.ptr()), nullptr);
    EXPECT_THROW(Gadget::_zelType.attr("level")->genericIfGet(n.ptr(), nullptr), Zel::RangeException);
    Ptr<GenericIf> viaType = Gadget::_zelType.genericIf(static_cast<void const*>(nullptr), false);
    EXPECT_EQ(viaType->valuePtr(), nullptr);
    EXPECT_TRUE(viaType->equals(*n));
}

TEST(ReflectionEntities, AnObjectOfAnotherTypeIsRefusedOnUnwrap) {
    Ptr<GenericIf const> value = Zel::toGenericIf(3);
    EXPECT_THROW(Zel::objectOf<Gadget>(value.ptr()), Zel::TypeException);
    EXPECT_THROW(Zel::fromGenericIf<Ptr<Gadget>>(value.ptr()), Zel::TypeException);
    EXPECT_THROW(value->ptrInterface(), Zel::TypeException);
}

class ReflectionRefusals : public ::testing::Test {
protected:
    Ptr<Gadget> gadget = Zel::zelNew<Gadget>("r");
    Ptr<GenericIf> g = Zel::genericIfOf(gadget.ptr());
    Zel::ZelAttr const* attr(char const* n) { return Gadget::_zelType.attr(n); }
};

TEST_F(ReflectionRefusals, AttributeOfAnotherType) {
    Zel::ZelAttr const* i = AllBuiltins::_zelType.attr("i");
    EXPECT_THROW(i->genericIfGet(g.ptr(), nullptr), Zel::UnknownAttrException);
    EXPECT_THROW(i->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(1).ptr()), Zel::UnknownAttrException);
    EXPECT_THROW(attr("level")->genericIfGet(defaultValue().ptr(), nullptr), Zel::UnknownAttrException);
}

TEST_F(ReflectionRefusals, ConstGenericIfRefusesChangesButReads) {
    Ptr<GenericIf> c = Zel::genericIfOf(gadget.ptr(), true);
    EXPECT_THROW(attr("level")->genericIfSet(c.ptr(), nullptr, Zel::toGenericIf(1).ptr()), Zel::ConstException);
    EXPECT_THROW(attr("flag")->genericIfDel(c.ptr(), nullptr), Zel::ConstException);
    EXPECT_EQ(Zel::fromGenericIf<String8>(attr("label")->genericIfGet(c.ptr(), nullptr).ptr()), "r");
    Ptr<GenericIf> cv = defaultValue(true);
    EXPECT_THROW(AllBuiltins::_zelType.attr("b")->genericIfSet(cv.ptr(), nullptr, Zel::toGenericIf(true).ptr()),
                 Zel::ConstException);
    EXPECT_EQ(gadget->level(), 0);
}

TEST_F(ReflectionRefusals, FlagsAndMissingOperations) {
    EXPECT_THROW(attr("label")->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(String8("x")).ptr()),
                 Zel::NonwritableAttrException);
    EXPECT_THROW(attr("level")->genericIfDel(g.ptr(), nullptr), Zel::NondeletableAttrException);
    // Flags allow these; the handlers lack them.
    EXPECT_THROW(attr("ratio")->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(1.0).ptr()),
                 Zel::OpNotSupportedException);
    EXPECT_THROW(attr("flag")->genericIfDel(g.ptr(), nullptr), Zel::OpNotSupportedException);
    EXPECT_THROW(attr("level")->genericIfCall(g.ptr(), Zel::ArgVector{}), Zel::OpNotSupportedException);
    EXPECT_THROW(attr("level")->genericIfMembers(g.ptr()), Zel::OpNotSupportedException);
    // Refusals of the attribute flags are permission errors.
    EXPECT_THROW(attr("label")->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(String8("x")).ptr()),
                 Zel::PermissionException);
    EXPECT_EQ(gadget->ratio(), 0.5);
    EXPECT_EQ(gadget->label(), "r");
}

// The direct (GenericIf-free) paths make the same checks as the general
// ones and see the same state.
TEST_F(ReflectionRefusals, DirectPathsCheckLikeTheGeneralOnes) {
    String8 scratch;
    // Accessors copy into the scratch value; fields are read in place.
    EXPECT_EQ(attr("label")->genericIfGetNative(g.ptr(), &scratch), &scratch);
    EXPECT_EQ(scratch, "r");
    Ptr<GenericIf> v = defaultValue();
    int ignored = 0;
    EXPECT_EQ(AllBuiltins::_zelType.attr("i")->genericIfGetNative(v.ptr(), &ignored),
              &static_cast<AllBuiltins*>(v->valuePtr())->i);
    int const seven = 7;
    EXPECT_TRUE(attr("level")->genericIfSetNative(g.ptr(), &seven));
    EXPECT_EQ(gadget->level(), 7);
    // Refusals come before any handler runs.
    EXPECT_THROW(attr("label")->genericIfSetNative(g.ptr(), &scratch), Zel::NonwritableAttrException);
    Ptr<GenericIf> c = Zel::genericIfOf(gadget.ptr(), true);
    EXPECT_THROW(attr("level")->genericIfSetNative(c.ptr(), &seven), Zel::ConstException);
    EXPECT_THROW(AllBuiltins::_zelType.attr("i")->genericIfGetNative(g.ptr(), &ignored), Zel::UnknownAttrException);
    EXPECT_THROW(attr("level")->genericIfGetNative(nullptr, &ignored), Zel::RangeException);
    // A writable attribute without a setter has no direct path either.
    double const ratio = 1.0;
    EXPECT_FALSE(attr("ratio")->genericIfSetNative(g.ptr(), &ratio));
    void const* member = nullptr;
    EXPECT_FALSE(attr("level")->genericIfLookupNative(g.ptr(), &seven, member));
    EXPECT_THROW(attr("level")->genericIfCallNative(g.ptr(), nullptr, 0, nullptr), Zel::OpNotSupportedException);
    EXPECT_EQ(gadget->level(), 7);
    EXPECT_EQ(gadget->ratio(), 0.5);
}

} // namespace
