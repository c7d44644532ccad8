#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>
#include <type_traits>

#include "Zel/Builtin.h"
#include "Zel/Strep.h"
#include "Zel/Values.h"

namespace {

using Zel::String8;

// Parses the whole of `text` as a T; anything left over is a failure.
template <class T>
T parseAll(String8 const& text) {
    Zel::StrepIt it = text.begin();
    T v = Zel::sequenceToValue<T>(it, text.end());
    EXPECT_EQ(it, text.end()) << "unparsed rest of " << text;
    return v;
}

template <class T>
void expectRoundTrip(T v) {
    EXPECT_EQ(parseAll<T>(Zel::valueToStrep(v)), v) << Zel::valueToStrep(v);
}

// Runs `f`, which must throw an E (for a RangeException, not a parse
// error), and returns a copy of it.
template <class E, class F>
E thrown(F f) {
    try {
        f();
    } catch (E const& e) {
        if constexpr (std::is_same_v<E, Zel::RangeException>) {
            EXPECT_EQ(dynamic_cast<Zel::ParseException const*>(&e), nullptr) << "a parse error";
        }
        return e;
    }
    throw std::logic_error("the expected exception was not thrown");
}

TEST(Strep, EveryBuiltinRoundTrips) {
    [&]<class... T>(T...) {
        (..., (expectRoundTrip(std::numeric_limits<T>::min()), expectRoundTrip(std::numeric_limits<T>::max())));
    }(0, 0L, 0LL, 0u, 0ull, short(0), (unsigned short)0, (signed char)0, (unsigned char)0);
    EXPECT_EQ(parseAll<Zel::AttributeId>("-17"), -17);
    EXPECT_EQ(parseAll<unsigned int>("-0"), 0u);
    for (double d : {0.1, -2.5e-300, 1e300, 123456789.125, std::numeric_limits<double>::denorm_min(),
                     std::numeric_limits<double>::max(), -0.0, HUGE_VAL}) {
        expectRoundTrip(d);
    }
    for (float f : {0.1f, 3.4028235e38f, -1e-45f, 16777217.0f, -HUGE_VALF}) expectRoundTrip(f);
    EXPECT_TRUE(std::signbit(parseAll<double>(Zel::valueToStrep(-0.0))));
    EXPECT_TRUE(std::isnan(parseAll<double>(Zel::valueToStrep(std::nan("")))));
    EXPECT_TRUE(std::isnan(parseAll<float>(Zel::valueToStrep(-std::nanf("")))));
    expectRoundTrip(true);
    expectRoundTrip(false);
    std::string all;
    for (int c = 0; c < 256; ++c) all += static_cast<char>(c);
    expectRoundTrip(String8(all));
    expectRoundTrip(String8(""));
    expectRoundTrip(String8("it's a \\ back\tslash\r\n"));
    for (int c = 0; c < 256; ++c) expectRoundTrip(static_cast<char>(c));
    EXPECT_EQ(parseAll<String8>("'\\x4a\\x4A'"), "JJ");   // upper and lower case hex are one
}

template <class T>
void parse(String8 const& text) { parseAll<T>(text); }

// A well-formed number out of range is a range error, not a parse error;
// malformed text of any kind is a parse error; an unknown type name is a
// NoTypeNode error.
TEST(Strep, RefusedTextsFailWithTheirKind) {
    enum Kind { kRange, kParse, kNoType };
    struct Case { void (*parse)(String8 const&); char const* text; Kind kind; };
    using TypeP = Zel::ZelType const*;
    using AttrP = Zel::ZelAttr const*;
    Case const cases[] = {
        {parse<signed char>, "128", kRange},  {parse<signed char>, "-129", kRange}, {parse<unsigned char>, "256", kRange},
        {parse<unsigned char>, "300", kRange}, {parse<short>, "32768", kRange},     {parse<unsigned short>, "65536", kRange},
        {parse<int>, "2147483648", kRange},   {parse<unsigned int>, "4294967296", kRange},
        {parse<unsigned int>, "-1", kRange},  {parse<long long>, "9223372036854775808", kRange},
        {parse<unsigned long long>, "18446744073709551616", kRange}, {parse<float>, "1e39", kRange},
        {parse<int>, "x1", kParse},           {parse<int>, "", kParse},             {parse<unsigned int>, "-", kParse},
        {parse<double>, "True", kParse},      {parse<bool>, "true", kParse},        {parse<bool>, "1", kParse},
        {parse<String8>, "abc", kParse},      {parse<String8>, "'abc", kParse},     {parse<String8>, "'a\\q'", kParse},
        {parse<String8>, "'\\x4'", kParse},   {parse<String8>, "'\\xzz'", kParse},  {parse<String8>, "'\\", kParse},
        {parse<String8>, "", kParse},         {parse<char>, "''", kParse},          {parse<char>, "'ab'", kParse},
        {parse<AttrP>, "type('Zel::Name')", kParse}, {parse<TypeP>, "typ('Zel::Name')", kParse},
        {parse<TypeP>, "type('No::Such')", kNoType},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        auto run = [&] { c.parse(c.text); };
        if (c.kind == kRange) {
            EXPECT_NE(thrown<Zel::RangeException>(run).message().str().find(c.text), std::string::npos);
        } else if (c.kind == kParse) {
            EXPECT_THROW(run(), Zel::ParseException);
        } else {
            EXPECT_THROW(run(), Zel::NoTypeNodeException);
        }
    }
    thrown<Zel::RangeException>([] { parseAll<Zel::ZelAttr const*>("type('Zel::Name').attr('nope')"); });
}

TEST(Strep, TypesAndAttributesRoundTrip) {
    Zel::ZelType const* name = &Zel::Name::_zelType;
    Zel::ZelAttr const* value = name->attr("value");
    EXPECT_EQ(Zel::rawPtrToStrep(name), "type('Zel::Name')");
    EXPECT_EQ(Zel::rawPtrToStrep(value), "type('Zel::Name').attr('value')");
    EXPECT_EQ(parseAll<Zel::ZelType const*>(Zel::rawPtrToStrep(name)), name);
    EXPECT_EQ(parseAll<Zel::ZelAttr const*>(Zel::rawPtrToStrep(value)), value);
    EXPECT_EQ(parseAll<Zel::ZelType const*>("None"), nullptr);
    EXPECT_EQ(parseAll<Zel::ZelAttr const*>("None"), nullptr);
    EXPECT_EQ(Zel::rawPtrToStrep(static_cast<Zel::ZelType const*>(nullptr)), "None");
    EXPECT_EQ(Zel::rawPtrToStrep(Zel::AttributeId(264)), "264");
}

// A value parse stops at the first character not its own; needString
// consumes its literal exactly, or consumes nothing and names both texts.
TEST(Strep, SequencesStopAtTheirEndAndNeedStringConsumesExactlyOrNamesBothTexts) {
    String8 text("42'T', ** {");
    Zel::StrepIt it = text.begin();
    EXPECT_EQ(Zel::sequenceToValue<int>(it, text.end()), 42);
    EXPECT_EQ(thrown<Zel::ParseException>([&] { Zel::needString(it, text.end(), "'U'"); }).message(),
              "expected ''U'', found ''T', ** {'");
    EXPECT_EQ(it, text.begin() + 2);   // nothing consumed by a failure
    EXPECT_EQ(Zel::sequenceToValue<char>(it, text.end()), 'T');
    Zel::needString(it, text.end(), ", ** {");
    EXPECT_EQ(it, text.end());
    EXPECT_THROW(Zel::needString(it, text.end(), "x"), Zel::ParseException);
    Zel::needString(it, text.end(), "");   // the empty literal always matches
}

TEST(Strep, DeserializeAttrAddsTheFieldNameAndKeepsTheKindAndBacktrace) {
    String8 text("300");
    Zel::StrepIt it = text.begin();
    auto range = thrown<Zel::RangeException>([&] { Zel::deserializeAttr<unsigned char>(it, text.end(), "width"); });
    EXPECT_EQ(range.message().str().rfind("width: ", 0), 0u) << range.message();
    EXPECT_TRUE(range.ids().has(Zel::Exception::idRange));
    String8 bad("Fals");
    it = bad.begin();
    auto parse = thrown<Zel::ParseException>([&] { Zel::deserializeAttr<bool>(it, bad.end(), "valid"); });
    EXPECT_EQ(parse.message().str().rfind("valid: expected True or False", 0), 0u) << parse.message();
    EXPECT_TRUE(parse.ids().has(Zel::Exception::idParse));
    String8 type("type('No::Such')");
    it = type.begin();
    EXPECT_THROW(Zel::deserializeAttr<Zel::ZelType const*>(it, type.end(), "typeptr"),
                 Zel::NoTypeNodeException);
    Zel::RangeException original("boom");
    auto e = thrown<Zel::RangeException>([&] { Zel::rethrowFromDeserializeAttr(original, "f"); });
    EXPECT_EQ(e.message(), "f: boom");
    EXPECT_EQ(e.backtrace().ptr(), original.backtrace().ptr());
    EXPECT_EQ(e.ids(), original.ids());
}

} // namespace
