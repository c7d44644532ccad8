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

TEST(ValueStrep, ValuesPrintAsConstructorCallsInDeclarationOrder) {
    AllBuiltins v;
    v.s = "it's";
    v.c = 'A';
    v.sc = -1;
    v.uc = 200;
    v.i = -7;
    v.ull = 18446744073709551615ull;
    v.f = 0.1f;
    v.d = -2.5;
    v.b = true;
    EXPECT_EQ(valueOf(v)->strep(),
              "Value('ZelTest::AllBuiltins', ** {'s': 'it\\'s', 'c': 'A', 'sc': -1, 'uc': 200, 'sh': 0, "
              "'us': 0, 'i': -7, 'u': 0, 'l': 0, 'ull': 18446744073709551615, 'll': 0, 'f': 0.1, "
              "'d': -2.5, 'b': True})");
    EXPECT_EQ(Zel::toGenericIf(String8("a\nb"))->strep(), "'a\\nb'");
    EXPECT_EQ(Zel::toGenericIf('\x01')->strep(), "'\\x01'");
    EXPECT_EQ(Zel::toGenericIf(false)->strep(), "False");
}

TEST(ValueEquality, AttributeWiseAndTypeStrict) {
    AllBuiltins a, b;
    a.s = b.s = "x";
    EXPECT_TRUE(valueOf(a)->equals(*valueOf(b)));
    EXPECT_EQ(valueOf(a)->hash(), valueOf(b)->hash());
    b.ll = 1;
    EXPECT_FALSE(valueOf(a)->equals(*valueOf(b)));
    // Same bits, other type: never equal.
    EXPECT_FALSE(Zel::toGenericIf(1)->equals(*Zel::toGenericIf(1u)));
    EXPECT_FALSE(Zel::toGenericIf(1)->equals(*Zel::toGenericIf(1L)));
}

TEST(ValueEquality, EqualValuesHashEqualEvenForSignedZero) {
    AllBuiltins a, b;
    a.d = 0.0;
    b.d = -0.0;
    EXPECT_TRUE(valueOf(a)->equals(*valueOf(b)));
    EXPECT_EQ(valueOf(a)->hash(), valueOf(b)->hash());
    EXPECT_EQ(Zel::toGenericIf(0.0f)->hash(), Zel::toGenericIf(-0.0f)->hash());
}

TEST(ValueEquality, DistinctValuesSpreadOverHashes) {
    std::set<uint32_t> hashes;
    for (int i = 0; i < 100; ++i) {
        AllBuiltins v;
        v.i = i;
        hashes.insert(valueOf(v)->hash());
        hashes.insert(Zel::toGenericIf(String8(std::to_string(i)))->hash());
    }
    EXPECT_GT(hashes.size(), 195u);
}

TEST(ValueName, ReflectsItsValue) {
    Ptr<GenericIf> n = construct<Zel::Name>("eth0");
    EXPECT_EQ(held<Zel::Name>(n).value, "eth0");
    EXPECT_EQ(n->strep(), "Value('Zel::Name', ** {'value': 'eth0'})");
    EXPECT_TRUE(n->equals(*Zel::typeNode("Zel::Name")->genericIf(Zel::ArgVector{Zel::toGenericIf(String8("eth0"))}, false)));
    Zel::Name::_zelType.attr("value")->genericIfSet(n.ptr(), nullptr, Zel::toGenericIf(String8("eth1")).ptr());
    EXPECT_EQ(held<Zel::Name>(n).value, "eth1");
    EXPECT_TRUE(Zel::Name("a") < Zel::Name("b"));
    EXPECT_EQ(Zel::Name::_zelType.valAttr(), Zel::Name::_zelType.attr("value"));
}

TEST(ValueUri, SplitsSchemeAuthorityAndPath) {
    Zel::Uri u("http://host:80/a/b");
    EXPECT_EQ(u.scheme, "http");
    EXPECT_EQ(u.authority, "host:80");
    EXPECT_EQ(u.path, "/a/b");
    Zel::Uri bare("zel:/x/y");
    EXPECT_EQ(bare.authority, "");
    EXPECT_EQ(bare.path, "/x/y");
    Zel::Uri noPath("svn+ssh://host");
    EXPECT_EQ(noPath.scheme, "svn+ssh");
    EXPECT_EQ(noPath.path, "");
    for (char const* bad : {"no scheme", ":x", "1http://h", "ht tp://h", ""}) {
        EXPECT_THROW(Zel::Uri{String8(bad)}, Zel::RangeException) << bad;
    }
    EXPECT_THROW(construct<Zel::Uri>("nothing"), Zel::RangeException);
    Ptr<GenericIf> g = construct<Zel::Uri>("a:b");
    EXPECT_EQ(g->strep(), "Value('Zel::Uri', ** {'str': 'a:b'})");
    EXPECT_THROW(Zel::Uri::_zelType.attr("str")->genericIfSet(g.ptr(), nullptr, Zel::toGenericIf(String8("c:d")).ptr()),
                 Zel::NonwritableAttrException);
}

TEST(ValueEntityUri, CheckSchemeAcceptsZelOnly) {
    Zel::EntityUri("zel:/a/b").checkScheme();
    Zel::EntityUri(Zel::Uri("zel://agent/a")).checkScheme();
    EXPECT_THROW(Zel::EntityUri("http://h/a").checkScheme(), Zel::RangeException);
    EXPECT_THROW(Zel::EntityUri("ZEL:/a").checkScheme(), Zel::RangeException);
    EXPECT_THROW(Zel::EntityUri("zelx:/a").checkScheme(), Zel::RangeException);
    EXPECT_THROW(Zel::EntityUri().checkScheme(), Zel::RangeException);
    // A copy made through reflection keeps what checkScheme looks at.
    Ptr<GenericIf> g = construct<Zel::EntityUri>("zel:/a");
    Zel::EntityUri copy = held<Zel::EntityUri>(g);
    copy.checkScheme();
    EXPECT_EQ(copy.str, "zel:/a");
    EXPECT_TRUE(Zel::EntityUri("zel:/a") == copy);
}

TEST(ValueEntityUriPath, IsPlainWritableText) {
    Ptr<GenericIf> p = construct<Zel::EntityUriPath>("/a/b");
    EXPECT_EQ(held<Zel::EntityUriPath>(p).str, "/a/b");
    Zel::EntityUriPath::_zelType.attr("str")->genericIfSet(p.ptr(), nullptr, Zel::toGenericIf(String8("/c")).ptr());
    EXPECT_EQ(p->strep(), "Value('Zel::EntityUriPath', ** {'str': '/c'})");
    EXPECT_FALSE(p->equals(*construct<Zel::EntityUriPath>("/a/b")));
    EXPECT_TRUE(Zel::EntityUriPath::_zelType.genericIf(Zel::ArgVector{}, false)->equals(
        *construct<Zel::EntityUriPath>("")));
}

} // namespace
