// The demo value types and AllTypes' singleton attributes, through reflection.
#include <gtest/gtest.h>

#include "Zel/Notifiee.h"
#include "demo/AllTypes.h"
#include "demo/tests/Reflect.h"

using namespace demotest;
using Zel::String8;

TEST(DemoEnum, EnumeratorsStrepAndConstruction) {
    Zel::ZelType const* t = type("Demo::Color");
    EXPECT_TRUE(t->isEnumType());
    Zel::Ptr<Zel::GenericIf const> violet = t->attr("violet")->genericIfGet(t->genericIf(nullptr, true).ptr(), nullptr);
    EXPECT_EQ(violet->strep(), "'violet'");
    EXPECT_EQ(t->attr("violet")->attributeId(), 7);
    EXPECT_EQ(make("Demo::Color", String8("blue"))->strep(), "'blue'");
    EXPECT_EQ(make("Demo::Color", 5)->strep(), "5");   // no enumerator has 5
    EXPECT_TRUE(make("Demo::Color", 7)->equals(*violet));
    EXPECT_EQ(make("Demo::Color", 7)->hash(), violet->hash());
    EXPECT_FALSE(make("Demo::Color", 2)->equals(*violet));
    EXPECT_THROW(make("Demo::Color", String8("mauve")), Zel::RangeException);
}

TEST(DemoValues, PointMetersMacLiteralOpaque) {
    auto p = make("Demo::Point", 3, -4);
    EXPECT_EQ(get<int>(p.ptr(), "x"), 3);
    EXPECT_EQ(get<int>(p.ptr(), "y"), -4);
    EXPECT_EQ(p->strep(), "Value('Demo::Point', ** {'x': 3, 'y': -4})");
    EXPECT_THROW(make("Demo::Point", 1), Zel::TypeException);

    Zel::ZelType const* m = type("Demo::Meters");
    EXPECT_EQ(m->valAttr(), m->attr("value"));
    EXPECT_EQ(get<double>(m->genericIf(nullptr, false).ptr(), "value"), 0.0);

    auto mac = make("Demo::MacAddr", String8("AA:bb:0C:dd:EE:0f"));
    EXPECT_EQ(get<String8>(mac.ptr(), "stringValue"), "aa:bb:0c:dd:ee:0f");
    EXPECT_EQ(get<String8>(mac.ptr(), "defaultAttribute"), "stringValue");
    EXPECT_EQ(get<String8>(type("Demo::MacAddr")->genericIf(nullptr, false).ptr(), "stringValue"),
              "00:00:00:00:00:00");
    for (char const* bad : {"aa:bb:cc:dd:ee", "aa:bb:cc:dd:ee:fg", "aa-bb-cc-dd-ee-ff", "aa:bb:cc:dd:ee:ff:"}) {
        try {
            make("Demo::MacAddr", String8(bad));
            ADD_FAILURE() << bad;
        } catch (Zel::RangeException const& e) {
            EXPECT_EQ(e.message(), String8("invalid MAC address: ") + bad);
        }
    }

    EXPECT_EQ(get<String8>(make("Demo::PyLiteral", String8("x")).ptr(), "defaultReprAttribute"), "text");
    auto o = make("Demo::Opaque", 9);
    EXPECT_EQ(get<int>(o.ptr(), "id"), 9);
    EXPECT_EQ(get<String8>(o.ptr(), "defaultAttribute"), "id");
    EXPECT_FALSE(get<bool>(o.ptr(), "defaultAttributeUsedForAccessor"));
}

namespace {
struct Recorder : Zel::GenericIf::NotifieeConst {
    using NotifieeConst::NotifieeConst;
    std::vector<std::string> seen;
    void onAttribute(Zel::ZelAttr const* a, Zel::Ptr<Zel::GenericIf const> const& v) override {
        seen.push_back(std::string(a->name()) + "=" + (v ? v->strep().str() : "None"));
    }
};
} // namespace

TEST(DemoAllTypes, EveryAttributeRoundTripsAndNotifiesOnChange) {
    auto at = make("Demo::AllTypes", String8("a1"));
    Zel::Ptr<Recorder> rec = Zel::zelNew<Recorder>(at);
    set(at.ptr(), "s8", String8("hi"));
    set(at.ptr(), "ch", 'c');
    set(at.ptr(), "i8", static_cast<signed char>(-8));
    set(at.ptr(), "u8", static_cast<unsigned char>(200));
    set(at.ptr(), "i16", short(-16));
    set(at.ptr(), "u16", static_cast<unsigned short>(65535));
    set(at.ptr(), "i32", -32);
    set(at.ptr(), "u32", 4000000000u);
    set(at.ptr(), "l", -5L);
    set(at.ptr(), "i64", -(1LL << 40));
    set(at.ptr(), "u64", ~0ULL);
    set(at.ptr(), "f32", 1.5f);
    set(at.ptr(), "f64", 2.25);
    set(at.ptr(), "flag", true);
    EXPECT_EQ(get<String8>(at.ptr(), "s8"), "hi");
    EXPECT_EQ(get<unsigned char>(at.ptr(), "u8"), 200);
    EXPECT_EQ(get<unsigned long long>(at.ptr(), "u64"), ~0ULL);
    EXPECT_EQ(get<float>(at.ptr(), "f32"), 1.5f);
    EXPECT_TRUE(get<bool>(at.ptr(), "flag"));

    attr(at.ptr(), "color")->genericIfSet(at.ptr(), nullptr, make("Demo::Color", 7).ptr());
    attr(at.ptr(), "point")->genericIfSet(at.ptr(), nullptr, make("Demo::Point", 1, 2).ptr());
    attr(at.ptr(), "mac")->genericIfSet(at.ptr(), nullptr, make("Demo::MacAddr", String8("01:02:03:04:05:06")).ptr());
    EXPECT_EQ(attr(at.ptr(), "color")->genericIfGet(at.ptr(), nullptr)->strep(), "'violet'");
    EXPECT_EQ(attr(at.ptr(), "point")->genericIfGet(at.ptr(), nullptr)->strep(),
              "Value('Demo::Point', ** {'x': 1, 'y': 2})");
    set(at.ptr(), "label", Zel::Name("lbl"));
    set(at.ptr(), "uriPath", Zel::EntityUriPath("/a/b"));
    EXPECT_EQ(get<Zel::Name>(at.ptr(), "label").value, "lbl");

    // Wrong types and read-only attributes are refused.
    EXPECT_THROW(set(at.ptr(), "i32", String8("x")), Zel::TypeException);
    EXPECT_THROW(set(at.ptr(), "point", 3), Zel::TypeException);
    EXPECT_THROW(set(at.ptr(), "readOnly", 1), Zel::NonwritableAttrException);
    EXPECT_THROW(set(at.ptr(), "name", Zel::Name("x")), Zel::NonwritableAttrException);
    EXPECT_EQ(get<int>(at.ptr(), "readOnly"), 42);
    EXPECT_THROW(attr(at.ptr(), "i32")->genericIfDel(at.ptr(), nullptr), Zel::NondeletableAttrException);

    // Peer: another AllTypes or null; deleting sets it null.
    auto other = make("Demo::AllTypes", String8("a2"));
    attr(at.ptr(), "peer")->genericIfSet(at.ptr(), nullptr, other.ptr());
    EXPECT_EQ(attr(at.ptr(), "peer")->genericIfGet(at.ptr(), nullptr)->valuePtr(), other->valuePtr());
    EXPECT_THROW(attr(at.ptr(), "peer")->genericIfSet(at.ptr(), nullptr, make("Demo::Switch", String8("s")).ptr()),
                 Zel::TypeException);
    attr(at.ptr(), "peer")->genericIfDel(at.ptr(), nullptr);
    EXPECT_EQ(attr(at.ptr(), "peer")->genericIfGet(at.ptr(), nullptr)->valuePtr(), nullptr);

    // One notification per real change: setting the same value is silent.
    rec->seen.clear();
    set(at.ptr(), "i32", 7);
    set(at.ptr(), "i32", 7);
    set(at.ptr(), "s8", String8("hi"));
    ASSERT_EQ(rec->seen.size(), 1u);
    EXPECT_EQ(rec->seen[0], "i32=7");
}

TEST(DemoInterface, DefaultsAndConstEntityRefusal) {
    auto i = make("Demo::Interface", String8("eth0"));
    EXPECT_EQ(get<int>(i.ptr(), "mtu"), 1500);
    EXPECT_EQ(get<Zel::Name>(i.ptr(), "name").value, "eth0");
    set(i.ptr(), "speed", 10000000000ULL);
    EXPECT_EQ(get<unsigned long long>(i.ptr(), "speed"), 10000000000ULL);
    auto frozen = Zel::genericIfOf(i->ptrInterface(), true);
    EXPECT_THROW(set(frozen.ptr(), "mtu", 9000), Zel::ConstException);
    auto e = make("Demo::Event", 3u, String8("boot"));
    EXPECT_EQ(get<unsigned>(e.ptr(), "seq"), 3u);
    EXPECT_THROW(set(e.ptr(), "text", String8("x")), Zel::NonwritableAttrException);
}
