#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
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

// Builtins are registered values under their own names; an alias names the
// type it stands for; an unknown name is a NoTypeNode error naming it.
TEST(ReflectionRegistry, TypesByNameAndAttributesByNameOrId) {
    for (char const* n : {"Zel::String", "char", "signed char", "unsigned char", "short", "unsigned short", "int",
                          "unsigned int", "long", "unsigned long long", "long long", "float", "double", "bool"}) {
        Zel::ZelType const* t = Zel::typeNode(n);
        EXPECT_TRUE(t->isValue() && t->isBuiltinType() && t->name() == std::string(n)) << n;
    }
    EXPECT_EQ(Zel::typeNodeOrNull("ZelTest::Missing"), nullptr);
    EXPECT_EQ(Zel::typeNode("Zel::AttributeId"), &Zel::Builtin<int>::_zelType);
    EXPECT_EQ(Zel::typeNode("ZelTest::Gadget"), &Gadget::_zelType);
    EXPECT_THAT([] { Zel::typeNode("ZelTest::Missing"); },
                testing::ThrowsMessage<Zel::NoTypeNodeException>(testing::StrEq("no type named ZelTest::Missing")));
    EXPECT_EQ(Gadget::_zelType.attr("level"), &Gadget::_zelAttrs[1]);
    EXPECT_EQ(Gadget::_zelType.attr(ZelTest::kFlag), &Gadget::_zelAttrs[3]);
    EXPECT_EQ(Gadget::_zelType.attr("nope"), nullptr);
    EXPECT_TRUE(Gadget::_zelType.isDerived(&Zel::PtrInterface::_zelType));
    EXPECT_FALSE(Zel::PtrInterface::_zelType.isDerived(&Gadget::_zelType));
}

// A value's GenericIf holds a copy; an entity's refers to (and holds a
// reference on) the object, and is made by reflection from arguments.
TEST(ReflectionObjects, ValuesAreCopiedEntitiesReferredTo) {
    AllBuiltins native;
    native.i = 5;
    Ptr<GenericIf> v = AllBuiltins::_zelType.genericIf(&native, false);
    AllBuiltins::_zelType.attr("i")->genericIfSet(v.ptr(), nullptr, Zel::toGenericIf(6).ptr());
    EXPECT_EQ(native.i, 5);
    EXPECT_EQ(held(*v).i, 6);

    Ptr<Gadget> gadget = Zel::zelNew<Gadget>("g1");
    Ptr<GenericIf> g = Zel::genericIfOf(gadget.ptr());
    EXPECT_EQ(g->type(), &Gadget::_zelType);
    EXPECT_EQ(gadget->references(), 2u);
    Gadget::_zelType.attr("level")->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(9).ptr());
    EXPECT_EQ(gadget->level(), 9);
    gadget->levelIs(10);
    EXPECT_EQ(Zel::fromGenericIf<int>(Gadget::_zelType.attr("level")->genericIfGet(g.ptr(), nullptr).ptr()), 10);
    g.reset();
    EXPECT_EQ(gadget->references(), 1u);

    Ptr<GenericIf> made = Zel::typeNode("ZelTest::Gadget")->genericIf(Zel::ArgVector{Zel::toGenericIf(String8("made"))}, false);
    EXPECT_EQ(Zel::objectOf<Gadget>(made.ptr())->label(), "made");

    // A typed null has the type but no object.
    Ptr<GenericIf const> n = Zel::GenericIfTraits<Ptr<Gadget>>::to(Ptr<Gadget>());
    EXPECT_EQ(n->type(), &Gadget::_zelType);
    EXPECT_EQ(n->strep(), "None");
    EXPECT_EQ(Zel::fromGenericIf<Ptr<Gadget>>(n.ptr()), nullptr);
    EXPECT_TRUE(Gadget::_zelType.genericIf(static_cast<void const*>(nullptr), false)->equals(*n));

    // The direct (GenericIf-free) paths see the same state: accessors copy
    // into the scratch value, fields are read in place, and a writable
    // attribute without a setter has no direct path.
    g = Zel::genericIfOf(gadget.ptr());
    String8 scratch;
    EXPECT_EQ(Gadget::_zelType.attr("label")->genericIfGetNative(made.ptr(), &scratch), &scratch);
    EXPECT_EQ(scratch, "made");
    int ignored = 0;
    EXPECT_EQ(AllBuiltins::_zelType.attr("i")->genericIfGetNative(v.ptr(), &ignored), &held(*v).i);
    int const seven = 7;
    EXPECT_TRUE(Gadget::_zelType.attr("level")->genericIfSetNative(g.ptr(), &seven));
    EXPECT_EQ(gadget->level(), 7);
    double const ratio = 1.0;
    EXPECT_FALSE(Gadget::_zelType.attr("ratio")->genericIfSetNative(g.ptr(), &ratio));
    void const* member = nullptr;
    EXPECT_FALSE(Gadget::_zelType.attr("level")->genericIfLookupNative(g.ptr(), &seven, member));
}

// Every refusal, general or direct, comes with its own kind before any
// handler runs: nothing changes.
TEST(ReflectionRefusals, EachRefusalHasItsKindAndChangesNothing) {
    Ptr<Gadget> gadget = Zel::zelNew<Gadget>("r");
    Ptr<GenericIf> g = Zel::genericIfOf(gadget.ptr());
    Ptr<GenericIf> c = Zel::genericIfOf(gadget.ptr(), true);
    Ptr<GenericIf> cv = defaultValue(true);
    Ptr<GenericIf const> null = Zel::GenericIfTraits<Ptr<Gadget>>::to(Ptr<Gadget>());
    Ptr<GenericIf const> one = Zel::toGenericIf(1), three = Zel::toGenericIf(3), x = Zel::toGenericIf(String8("x"));
    auto attr = [](char const* n) { return Gadget::_zelType.attr(n); };
    Zel::ZelAttr const* i = AllBuiltins::_zelType.attr("i");
    int const seven = 7;
    int ignored = 0;
    String8 scratch;
    struct Case { char const* kind; std::function<void()> act; };
    Case const cases[] = {
        {"Zel::UnknownAttrException", [&] { i->genericIfGet(g.ptr(), nullptr); }},
        {"Zel::UnknownAttrException", [&] { i->genericIfSet(g.ptr(), nullptr, one.ptr()); }},
        {"Zel::UnknownAttrException", [&] { attr("level")->genericIfGet(defaultValue().ptr(), nullptr); }},
        {"Zel::UnknownAttrException", [&] { i->genericIfGetNative(g.ptr(), &ignored); }},
        {"Zel::ConstException", [&] { attr("level")->genericIfSet(c.ptr(), nullptr, one.ptr()); }},
        {"Zel::ConstException", [&] { attr("flag")->genericIfDel(c.ptr(), nullptr); }},
        {"Zel::ConstException", [&] { AllBuiltins::_zelType.attr("b")->genericIfSet(cv.ptr(), nullptr, one.ptr()); }},
        {"Zel::ConstException", [&] { attr("level")->genericIfSetNative(c.ptr(), &seven); }},
        {"Zel::NonwritableAttrException", [&] { attr("label")->genericIfSet(g.ptr(), nullptr, x.ptr()); }},
        {"Zel::NonwritableAttrException", [&] { attr("label")->genericIfSetNative(g.ptr(), &scratch); }},
        {"Zel::NondeletableAttrException", [&] { attr("level")->genericIfDel(g.ptr(), nullptr); }},
        // Flags allow these; the handlers lack them.
        {"Zel::OpNotSupportedException", [&] { attr("ratio")->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(1.0).ptr()); }},
        {"Zel::OpNotSupportedException", [&] { attr("flag")->genericIfDel(g.ptr(), nullptr); }},
        {"Zel::OpNotSupportedException", [&] { attr("level")->genericIfCall(g.ptr(), Zel::ArgVector{}); }},
        {"Zel::OpNotSupportedException", [&] { attr("level")->genericIfMembers(g.ptr()); }},
        {"Zel::OpNotSupportedException", [&] { attr("level")->genericIfCallNative(g.ptr(), nullptr, 0, nullptr); }},
        {"Zel::RangeException", [&] { attr("level")->genericIfGet(null.ptr(), nullptr); }},
        {"Zel::RangeException", [&] { attr("level")->genericIfGetNative(nullptr, &ignored); }},
        {"Zel::TypeException", [&] { Gadget::_zelType.genericIf(Zel::ArgVector{}, false); }},
        {"Zel::TypeException", [&] { Gadget::_zelType.genericIf(Zel::ArgVector{one}, false); }},
        {"Zel::TypeException", [&] { Zel::objectOf<Gadget>(three.ptr()); }},
        {"Zel::TypeException", [&] { Zel::fromGenericIf<Ptr<Gadget>>(three.ptr()); }},
        {"Zel::TypeException", [&] { three->ptrInterface(); }},
    };
    for (size_t n = 0; n < std::size(cases); ++n) {
        SCOPED_TRACE("case " + std::to_string(n) + ", expecting " + cases[n].kind);
        try {
            cases[n].act();
            ADD_FAILURE() << "nothing thrown";
        } catch (Zel::Exception const& e) {
            EXPECT_STREQ(e.name(), cases[n].kind) << e.message();
        }
    }
    EXPECT_EQ(gadget->level(), 0);
    EXPECT_EQ(gadget->ratio(), 0.5);
    EXPECT_EQ(gadget->label(), "r");
    EXPECT_FALSE(gadget->flag());
}

} // namespace
