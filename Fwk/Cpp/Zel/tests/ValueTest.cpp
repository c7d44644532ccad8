#include <gtest/gtest.h>

#include <set>

#include "TestTypes.h"
#include "Zel/Values.h"

namespace {

using Zel::GenericIf;
using Zel::Ptr;
using Zel::String8;
using ZelTest::AllBuiltins;

Ptr<GenericIf> valueOf(AllBuiltins const& v) { return AllBuiltins::_zelType.genericIf(&v, false); }

template <class T>
Ptr<GenericIf> construct(String8 const& text) {
    return T::_zelType.genericIf(Zel::ArgVector{Zel::toGenericIf(text)}, false);
}

template <class T>
T const& held(Ptr<GenericIf> const& g) { return *static_cast<T const*>(g->valuePtr()); }

template <class T>
void setStr(Ptr<GenericIf> const& g, char const* text) {
    T::_zelType.attr("str")->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(String8(text)).ptr());
}

TEST(ValueStrep, ValuesPrintAsConstructorCallsInDeclarationOrder) {
    AllBuiltins const v{.s = "it's", .c = 'A', .sc = -1, .uc = 200, .i = -7, .ull = 18446744073709551615ull,
                        .f = 0.1f, .d = -2.5, .b = true};
    EXPECT_EQ(valueOf(v)->strep(),
              "Value('ZelTest::AllBuiltins', ** {'s': 'it\\'s', 'c': 'A', 'sc': -1, 'uc': 200, 'sh': 0, "
              "'us': 0, 'i': -7, 'u': 0, 'l': 0, 'ull': 18446744073709551615, 'll': 0, 'f': 0.1, "
              "'d': -2.5, 'b': True})");
    EXPECT_EQ(Zel::toGenericIf(String8("a\nb"))->strep(), "'a\\nb'");
    EXPECT_EQ(Zel::toGenericIf('\x01')->strep(), "'\\x01'");
    EXPECT_EQ(Zel::toGenericIf(false)->strep(), "False");
}

// Equal is attribute-wise and type-strict, equal values hash equal (signed
// zeros too), and distinct values spread over the hashes.
TEST(ValueEquality, AttributeWiseTypeStrictAndHashedAlike) {
    AllBuiltins a{.s = "x", .d = 0.0}, b{.s = "x", .d = -0.0};
    EXPECT_TRUE(valueOf(a)->equals(*valueOf(b)));
    EXPECT_EQ(valueOf(a)->hash(), valueOf(b)->hash());
    EXPECT_EQ(Zel::toGenericIf(0.0f)->hash(), Zel::toGenericIf(-0.0f)->hash());
    b.ll = 1;
    EXPECT_FALSE(valueOf(a)->equals(*valueOf(b)));
    // Same bits, other type: never equal.
    EXPECT_FALSE(Zel::toGenericIf(1)->equals(*Zel::toGenericIf(1u)));
    EXPECT_FALSE(Zel::toGenericIf(1)->equals(*Zel::toGenericIf(1L)));
    std::set<uint32_t> hashes;
    for (int i = 0; i < 100; ++i) {
        a.i = i;
        hashes.insert(valueOf(a)->hash());
        hashes.insert(Zel::toGenericIf(String8(std::to_string(i)))->hash());
    }
    EXPECT_GT(hashes.size(), 195u);
}

TEST(ValueName, ReflectsItsValue) {
    Ptr<GenericIf> n = construct<Zel::Name>("eth0");
    EXPECT_EQ(n->strep(), "Value('Zel::Name', ** {'value': 'eth0'})");
    Zel::Name::_zelType.attr("value")->genericIfSet(n.ptr(), nullptr, Zel::toGenericIf(String8("eth1")).ptr());
    EXPECT_EQ(held<Zel::Name>(n).value, "eth1");
    EXPECT_TRUE(Zel::Name("a") < Zel::Name("b"));
    EXPECT_EQ(Zel::Name::_zelType.valAttr(), Zel::Name::_zelType.attr("value"));
}

// A Uri splits scheme, authority and path and cannot be changed; an
// EntityUri's scheme must be zel, and a copy made through reflection keeps
// it; an EntityUriPath is plain writable text.
TEST(ValueUris, SplitCheckedAndPlainPaths) {
    struct Case { char const* text; char const* scheme; char const* authority; char const* path; };
    for (Case c : {Case{"http://host:80/a/b", "http", "host:80", "/a/b"}, Case{"zel:/x/y", "zel", "", "/x/y"},
                   Case{"svn+ssh://host", "svn+ssh", "host", ""}}) {
        Zel::Uri u(c.text);
        EXPECT_EQ(u.scheme + " " + u.authority + " " + u.path, String8(c.scheme) + " " + c.authority + " " + c.path);
    }
    for (char const* bad : {"no scheme", ":x", "1http://h", "ht tp://h", ""}) {
        EXPECT_THROW(Zel::Uri{String8(bad)}, Zel::RangeException) << bad;
    }
    EXPECT_THROW(construct<Zel::Uri>("nothing"), Zel::RangeException);
    Ptr<GenericIf> g = construct<Zel::Uri>("a:b");
    EXPECT_EQ(g->strep(), "Value('Zel::Uri', ** {'str': 'a:b'})");
    EXPECT_THROW(setStr<Zel::Uri>(g, "c:d"), Zel::NonwritableAttrException);
    Zel::EntityUri("zel:/a/b").checkScheme();
    Zel::EntityUri(Zel::Uri("zel://agent/a")).checkScheme();
    for (Zel::EntityUri bad : {Zel::EntityUri("http://h/a"), Zel::EntityUri("ZEL:/a"), Zel::EntityUri("zelx:/a"),
                               Zel::EntityUri()}) {
        EXPECT_THROW(bad.checkScheme(), Zel::RangeException) << bad.str;
    }
    Zel::EntityUri copy = held<Zel::EntityUri>(construct<Zel::EntityUri>("zel:/a"));
    copy.checkScheme();
    EXPECT_EQ(copy.str, "zel:/a");
    EXPECT_TRUE(Zel::EntityUri("zel:/a") == copy);
    Ptr<GenericIf> p = construct<Zel::EntityUriPath>("/a/b");
    EXPECT_EQ(held<Zel::EntityUriPath>(p).str, "/a/b");
    setStr<Zel::EntityUriPath>(p, "/c");
    EXPECT_EQ(p->strep(), "Value('Zel::EntityUriPath', ** {'str': '/c'})");
    EXPECT_FALSE(p->equals(*construct<Zel::EntityUriPath>("/a/b")));
    EXPECT_TRUE(Zel::EntityUriPath::_zelType.genericIf(Zel::ArgVector{}, false)->equals(
        *construct<Zel::EntityUriPath>("")));
}

} // namespace
