// Conversions between Python and framework values and of argument tuples,
// driven with real interpreter objects.
#include <cmath>

#include "PyVersion.h"
#include "Support.h"
#include "module/convert/Convert.h"
#include "Zel/Values.h"

using namespace Zel;
using namespace zeltest;
using pyver::longOf;

namespace {

ZelType const* T(char const* name) { return typeNode(String8(name)); }

using Convert = PyTest;

// What the attribute tables of the Python suite do not hold (test_attr_singleton
// has the other edges): accepted values by their strep; refusals ("!" and
// the Python type) by the exact text, nothing left pending, no reference kept.
TEST_F(Convert, BuiltinsBothWays) {
    struct Case { char const* type; std::string expr; std::string want; };
    std::string const refusedLong = "!" + pyver::kLongName;
    Case const cases[] = {
        {"unsigned char", longOf("0"), "0"}, {"signed char", longOf("127"), "127"},
        {"int", longOf("-2147483648"), "-2147483648"}, {"unsigned int", longOf("4294967295"), "4294967295"},
        {"unsigned long long", "7", "7"}, {"long long", "-5", "-5"}, {"float", longOf("1"), "1"}, {"char", "'x'", "'x'"},
        {"short", longOf("32768"), refusedLong}, {"long", "2147483648", "!int"}, {"long", "2**70", refusedLong},
        {"unsigned int", "4294967296", "!int"}, {"unsigned int", longOf("4294967296"), refusedLong},
        {"unsigned long long", "-1", "!int"}, {"unsigned long long", longOf("-1"), refusedLong},
        {"long long", "2**64", refusedLong}, {"long long", "1.5", "!float"}, {"double", "2**1100", refusedLong},
        {"float", "True", "!bool"}, {"char", "''", "!str"}, {"Zel::String", "None", "!NoneType"},
        {"Zel::Name", "3", "!int"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.type) + " " + c.expr);
        PyRef o(py(c.expr));
        if (c.want[0] != '!') {
            Ptr<GenericIf const> g = PyObjectToGenericIf(o.get(), T(c.type));
            ASSERT_TRUE(g);
            EXPECT_EQ(g->type(), T(c.type));
            EXPECT_EQ(g->strep().str(), c.want);
            continue;
        }
        Py_ssize_t before = Py_REFCNT(o.get());
        EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(o.get(), T(c.type)); }),
                  std::string("expected ") + T(c.type)->name() + ", got " + c.want.substr(1) + ": " +
                      pyStr(PyRef(PyObject_Repr(o.get())).get()));
        EXPECT_FALSE(PyErr_Occurred());
        EXPECT_EQ(Py_REFCNT(o.get()), before);
    }
    PyRef huge(py("1e300")), uri(py("'zel:/a/b'")), wrongScheme(py("'http://x/y'"));
    EXPECT_TRUE(std::isinf(*PyObjectToGenericIf(huge.get(), T("float"))->attrValPtr<float>()));
    EXPECT_EQ(message<TypeException>([] { PyObjectToGenericIf(Py_None, nullptr); }),
              "introspection failed: expected type is NULL");
    PyRef back(GenericIfToPyObject(PyObjectToGenericIf(uri.get(), &EntityUri::_zelType)));
    EXPECT_EQ(pyStr(back.get()), "zel:/a/b");
    EXPECT_THROW(PyObjectToGenericIf(wrongScheme.get(), &EntityUri::_zelType), RangeException);
    // Back to Python: ints within 32 bits, longs beyond.
    struct Out { Ptr<GenericIf const> g; std::string repr; };
    Out const outs[] = {
        {toGenericIf<unsigned int>(2147483648u), longOf("2147483648")}, {toGenericIf<unsigned int>(2147483647u), "2147483647"},
        {toGenericIf<long long>(-1), "-1"}, {toGenericIf<long long>(1ll << 40), longOf("1099511627776")},
        {toGenericIf<unsigned long long>(~0ull), longOf("18446744073709551615")}, {toGenericIf<char>('q'), "'q'"},
        {toGenericIf<Name>(Name("eth1")), "'eth1'"}, {toGenericIf<EntityUriPath>(EntityUriPath("/a/b")), "'/a/b'"},
        {toGenericIf<float>(0.1f), "0.10000000149011612"}, {Ptr<GenericIf const>(), "None"},
    };
    for (Out const& c : outs) {
        PyRef o(GenericIfToPyObject(c.g));
        ASSERT_TRUE(o) << c.repr;
        PyRef r(PyObject_Repr(o.get()));
        EXPECT_EQ(pyStr(r.get()), c.repr);
    }
}

// The bytes a string-built value or a char holds.
std::string heldBytes(GenericIf const& g) {
    if (g.type() == &Builtin<char>::_zelType) return std::string(1, *g.attrValPtr<char>());
    if (g.type() == &Name::_zelType) return static_cast<Name const*>(g.valuePtr())->value.str();
    if (g.type() == &EntityUriPath::_zelType) return static_cast<EntityUriPath const*>(g.valuePtr())->str.str();
    return g.attrValPtr<String8>()->str();
}

// Strings and chars byte for byte, there and back. 2.7's str is bytes; on 3
// a str goes as UTF-8 with the escaped bytes (U+DC80..U+DCFF) restored, a
// bytes as it is, and comes back decoded the same way, so that any bytes
// survive; a char is the one byte of a code point below 256.
TEST_F(Convert, StringsAndCharsByteForByte) {
    ASSERT_TRUE(run("class S(str): pass\n"));
    // `on`: 0 both interpreters, else 2 or 3 alone; a null `back` is a
    // refusal, `bytes` then the refused value's type name.
    struct Case { int on; char const* type; char const* expr; std::string bytes; char const* back; };
    Case const cases[] = {
        {0, "Zel::String", "'a\\x00b'", std::string("a\0b", 3), "'a\\x00b'"},
        {0, "Zel::Name", "S('eth1')", "eth1", "'eth1'"},
        {0, "char", "'x'", "x", "'x'"},
        {0, "char", "'xy'", "str", nullptr},
        {2, "Zel::String", "u'a'", "unicode", nullptr},
        {2, "char", "'\\xe9'", "\xe9", "'\\xe9'"},
        {2, "char", "u'x'", "unicode", nullptr},
        {3, "Zel::String", "'h\\xe9'", "h\xc3\xa9", "'h\xc3\xa9'"},
        {3, "Zel::Name", "b'h\\xe9\\x00'", std::string("h\xe9\0", 3), "'h\\udce9\\x00'"},
        {3, "Zel::EntityUriPath", "'/h\\udce9'", "/h\xe9", "'/h\\udce9'"},
        {3, "Zel::String", "'\\U0001f600\\udcff'", "\xf0\x9f\x98\x80\xff", "'\xf0\x9f\x98\x80\\udcff'"},
        {3, "Zel::String", "'\\ud800'", "str", nullptr},
        {3, "Zel::String", "bytearray(b'a')", "bytearray", nullptr},
        {3, "char", "'\\xe9'", "\xe9", "'\xc3\xa9'"},
        {3, "char", "b'\\xff'", "\xff", "'\xc3\xbf'"},
        {3, "char", "'\\u0100'", "str", nullptr},
        {3, "char", "b''", "bytes", nullptr},
    };
    for (Case const& c : cases) {
        if (c.on != 0 && c.on != PY_MAJOR_VERSION) continue;
        SCOPED_TRACE(std::string(c.type) + " " + c.expr);
        PyRef o(py(c.expr));
        ASSERT_TRUE(o);
        if (!c.back) {
            EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(o.get(), T(c.type)); }),
                      "expected " + std::string(c.type) + ", got " + c.bytes + ": " + pyStr(PyRef(PyObject_Repr(o.get())).get()));
            EXPECT_FALSE(PyErr_Occurred());
            continue;
        }
        Ptr<GenericIf const> g = PyObjectToGenericIf(o.get(), T(c.type));
        ASSERT_TRUE(g);
        EXPECT_EQ(heldBytes(*g), c.bytes);
        PyRef back(GenericIfToPyObject(g));
        EXPECT_EQ(pyStr(PyRef(PyObject_Repr(back.get())).get()), c.back);
    }
}

TEST_F(Convert, EnumerationsByNameAndNumber) {
    ZelType const* color = T("Demo::Color");
    PyRef name(py("'violet'")), number(py("7")), yes(py("True")), green(py("1"));
    Ptr<GenericIf const> byName = PyObjectToGenericIf(name.get(), color);
    Ptr<GenericIf const> byNumber = PyObjectToGenericIf(number.get(), color);
    EXPECT_TRUE(byName->equals(*byNumber));
    EXPECT_TRUE(PyObjectToGenericIf(yes.get(), color)->equals(*PyObjectToGenericIf(green.get(), color)));
    // 2.7 takes an enumerator's number as an int, never as a long.
    for (std::string const& bad : pyver::cases({"5", "'purple'", "1.0", "2**40"}, {"7L"}, {})) {
        PyRef o(py(bad));
        EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(o.get(), color); }),
                  "Demo::Color expected one of: \"red\"=0, \"green\"=1, \"blue\"=2, \"violet\"=7")
            << bad;
    }
    // And back: the interned enumerator name, or the type and the number.
    PyRef back(GenericIfToPyObject(byNumber)), again(GenericIfToPyObject(byName));
    EXPECT_EQ(pyStr(back.get()), "violet");
    EXPECT_EQ(back.get(), again.get());
    int32_t five = 5;
    PyRef unnamed(GenericIfToPyObject(Ptr<GenericIf const>(color->genericIf(&five, true))));
    EXPECT_EQ(pyStr(unnamed.get()), "Demo::Color(5)");
}

// The default attribute both ways (PyLiteral's round trip: the Python suite).
TEST_F(Convert, DefaultAttributesBothWays) {
    PyRef meters(py("2.5")), mac(py("'00:11:22:aa:bb:cc'")), opaque(py("7")), word(py("'abc'"));
    Ptr<GenericIf const> m = PyObjectToGenericIf(meters.get(), T("Demo::Meters"));
    Ptr<GenericIf const> a = PyObjectToGenericIf(mac.get(), T("Demo::MacAddr"));
    Ptr<GenericIf const> o = PyObjectToGenericIf(opaque.get(), T("Demo::Opaque"));
    ASSERT_TRUE(m && a && o);
    PyRef mBack(GenericIfToPyObject(m)), aBack(GenericIfToPyObject(a));
    EXPECT_EQ(PyFloat_AsDouble(mBack.get()), 2.5);
    EXPECT_EQ(pyStr(aBack.get()), "00:11:22:aa:bb:cc");
    // Opaque shows its id but accessors hand out the object; raw reads too.
    PyRef oBack(GenericIfToPyObject(o)), mRaw(GenericIfToPyObjectInternal(m, false));
    EXPECT_TRUE(FwkPyGenericIf_Check(oBack.get()));
    EXPECT_TRUE(FwkPyGenericIf_Check(mRaw.get()));
    EXPECT_EQ(*static_cast<int const*>(o->valuePtr()), 7);
    for (std::string type : {"Demo::Meters", "Demo::Opaque"}) {
        EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(Py_None, T(type.c_str())); }),
                  "expected " + type + ", got NoneType: None");
    }
    Py_ssize_t before = Py_REFCNT(word.get());
    EXPECT_THROW(PyObjectToGenericIf(word.get(), T("Demo::MacAddr")), RangeException);
    EXPECT_THROW(PyObjectToGenericIf(word.get(), T("Demo::Meters")), TypeException);
    PyErr_Clear();
    EXPECT_EQ(Py_REFCNT(word.get()), before);
}

// Handles through ptr_ and their refusals (a plain handle and None: the
// Python suite's pointer attributes).
TEST_F(Convert, EntitiesNoneAndHandles) {
    ZelType const* all = T("Demo::AllTypes");
    ArgVector args{toGenericIf<String8>("a1")};
    Ptr<GenericIf const> entity(all->genericIf(args, false));
    PyRef handle(MakeFwkPyGenericIf(entity)), number(py("5"));
    PyRef meters(GenericIfToPyObjectInternal(PyObjectToGenericIf(PyRef(py("1.0")).get(), T("Demo::Meters")), false));
    ASSERT_TRUE(run("class Holder(object):\n"
                    "    def __init__(self, p): self.p = p\n"
                    "    @property\n"
                    "    def ptr_(self):\n"
                    "        if self.p is None: raise ValueError('no pointer here')\n"
                    "        return self.p\n"));
    PyObject* holderType = PyDict_GetItemString(mainDict(), "Holder");
    PyRef holder(PyObject_CallFunctionObjArgs(holderType, handle.get(), nullptr));
    PyRef wrong(PyObject_CallFunctionObjArgs(holderType, meters.get(), nullptr));
    PyRef failing(PyObject_CallFunctionObjArgs(holderType, Py_None, nullptr));
    Ptr<GenericIf const> typedNull = PyObjectToGenericIf(Py_None, all);
    EXPECT_EQ(PyRef(GenericIfToPyObject(typedNull)).get(), Py_None);
    Py_ssize_t const holderRefs = Py_REFCNT(holder.get()), numberRefs = Py_REFCNT(number.get());
    EXPECT_EQ(PyObjectToGenericIf(holder.get(), all).ptr(), entity.ptr());
    EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(number.get(), all); }), "expected Demo::AllTypes, got int: 5");
    EXPECT_EQ(Py_REFCNT(holder.get()), holderRefs);
    EXPECT_EQ(Py_REFCNT(number.get()), numberRefs);
    EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(wrong.get(), all); })
                  .rfind("expected Demo::AllTypes, got Holder: <__main__.Holder object", 0), 0u);
    EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(meters.get(), all); })
                  .rfind("expected Demo::AllTypes, got Demo::Meters: ", 0), 0u);
    EXPECT_EQ(message<InternalException>([&] { PyObjectToGenericIf(failing.get(), all); }), "no pointer here");
    EXPECT_FALSE(PyErr_Occurred());
}

// A function attribute with three parameters; the second is the key an add
// supplies itself.
constexpr ArgDesc kThreeArgs[] = {{"a", "int"}, {"b", "Zel::String"}, {"c", "bool"}, {nullptr, nullptr}};
constexpr ArgDesc kBadArgs[] = {{"a", "int"}, {"b", "No::SuchType"}, {nullptr, nullptr}};
constexpr ArgDesc kNineArgs[] = {{"a", "int"}, {"b", "int"}, {"c", "int"}, {"d", "int"}, {"e", "int"},
                                 {"f", "int"}, {"g", "int"}, {"h", "int"}, {"i", "int"}, {nullptr, nullptr}};
constinit ZelAttr const kThreeAttr("three", 1, nullptr, nullptr, ZelAttr::isFunction_, nullptr, nullptr, kThreeArgs,
                                   nullptr, 1);
constinit ZelAttr const kBadAttr("bad", 2, nullptr, nullptr, ZelAttr::isFunction_, nullptr, nullptr, kBadArgs);
constinit ZelAttr const kNineAttr("nine", 3, nullptr, nullptr, ZelAttr::isFunction_, nullptr, nullptr, kNineArgs);
constinit ZelAttr const kNoArgsAttr("none", 4, nullptr, nullptr, ZelAttr::isFunction_, nullptr);

TEST_F(Convert, ArgumentTuples) {
    ASSERT_TRUE(run("class T(tuple): pass\n"));
    // The tuple check, the count with the key slot left out, and the
    // parameter numbering with and without it (other texts: the Python suite).
    struct Case { char const* expr; bool skipOne; char const* message; };
    Case const cases[] = {
        {"T((1, 'b', True))", false, "expected tuple, got T"},
        {"(1, 'b', True)", true, "expected 2 parameters: 3 passed in: (int, str, bool)"},
        {"(1, 5, True)", false, "Error processing parameter 1 : Zel::TypeException(\"expected Zel::String, got int: 5\")"},
        {"(1, 1)", true, "Error processing parameter 1 : Zel::TypeException(\"expected bool, got int: 1\")"},
    };
    for (Case const& c : cases) {
        PyRef args(py(c.expr));
        EXPECT_EQ(message<TypeException>([&] { PyTupleToGenericIfVector(args.get(), &kThreeAttr, c.skipOne); }), c.message);
    }
    PyRef two(py("(4, False)")), nine(py("tuple(range(9))")), empty(py("()")), bad(py("(1, 2)")), ctor(py("('x',)"));
    ArgVector v = PyTupleToGenericIfVector(two.get(), &kThreeAttr, true);
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[0]->type(), &Builtin<int>::_zelType);
    EXPECT_EQ(v[1]->type(), &Builtin<bool>::_zelType);
    ArgVector n = PyTupleToGenericIfVector(nine.get(), &kNineAttr, false);
    ASSERT_EQ(n.size(), 9u);
    EXPECT_EQ(*n[8]->attrValPtr<int>(), 8);
    EXPECT_TRUE(PyTupleToGenericIfVector(empty.get(), &kNoArgsAttr, false).empty());
    EXPECT_EQ(message<InternalException>([&] { PyTupleToGenericIfVector(bad.get(), &kBadAttr, false); })
                  .rfind("unknown type while processing parameter 1: ", 0), 0u);
    EXPECT_EQ(message<TypeException>([&] { PyTupleToGenericIfVector_helper(&Builtin<int>::_zelType, ctor.get(), 0, true); }),
              "Error processing constructor parameter 0 : Zel::TypeException(\"expected int, got str: 'x'\")");
}

} // namespace
