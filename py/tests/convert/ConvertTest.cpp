// Conversions between Python and framework values and of argument tuples,
// driven with real interpreter objects.
#include <cmath>

#include "Support.h"
#include "module/convert/Convert.h"
#include "Zel/Values.h"

using namespace Zel;
using namespace zeltest;

namespace {

ZelType const* T(char const* name) { return typeNode(String8(name)); }

using Convert = PyTest;

// Accepted values by their strep; refusals ("!" and the Python type) by the
// exact text, with nothing left pending and no reference kept.
TEST_F(Convert, BuiltinsTakeExactTypesInRange) {
    struct Case { char const* type; char const* expr; char const* want; };
    Case const cases[] = {
        {"unsigned char", "255", "255"}, {"unsigned char", "0L", "0"}, {"signed char", "-128", "-128"},
        {"signed char", "127L", "127"}, {"unsigned short", "65535", "65535"}, {"short", "-32768", "-32768"},
        {"int", "2147483647", "2147483647"}, {"int", "-2147483648L", "-2147483648"},
        {"long", "-2147483648", "-2147483648"}, {"unsigned int", "4294967295", "4294967295"},
        {"unsigned int", "4294967295L", "4294967295"}, {"unsigned long long", "7", "7"},
        {"unsigned long long", "18446744073709551615L", "18446744073709551615"}, {"long long", "-5", "-5"},
        {"long long", "-9223372036854775808L", "-9223372036854775808"}, {"double", "3", "3"},
        {"double", "2.5", "2.5"}, {"float", "1L", "1"}, {"bool", "True", "True"}, {"bool", "False", "False"},
        {"char", "'x'", "'x'"}, {"Zel::String", "'a\\x00b'", "'a\\x00b'"},
        {"unsigned char", "256", "!int"}, {"unsigned char", "-1", "!int"}, {"unsigned char", "True", "!bool"},
        {"signed char", "128", "!int"}, {"unsigned short", "65536", "!int"}, {"short", "32768L", "!long"},
        {"int", "2147483648", "!int"}, {"int", "-2147483649L", "!long"}, {"int", "1.0", "!float"},
        {"int", "True", "!bool"}, {"long", "2147483648", "!int"}, {"long", "2**70", "!long"},
        {"unsigned int", "4294967296", "!int"}, {"unsigned int", "4294967296L", "!long"},
        {"unsigned int", "-1", "!int"}, {"unsigned long long", "-1", "!int"}, {"unsigned long long", "-1L", "!long"},
        {"long long", "2**64", "!long"}, {"long long", "1.5", "!float"}, {"signed char", "2**70", "!long"},
        {"int", "-2**70", "!long"}, {"unsigned int", "2**70", "!long"}, {"unsigned long long", "2**70", "!long"},
        {"double", "2**1100", "!long"}, {"float", "True", "!bool"}, {"double", "'1'", "!str"}, {"bool", "1", "!int"},
        {"char", "''", "!str"}, {"char", "'ab'", "!str"}, {"Zel::String", "u'a'", "!unicode"},
        {"Zel::String", "None", "!NoneType"}, {"Zel::Name", "3", "!int"},
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
        PyRef repr(PyObject_Repr(o.get()));
        Py_ssize_t before = Py_REFCNT(o.get());
        EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(o.get(), T(c.type)); }),
                  std::string("expected ") + T(c.type)->name() + ", got " + (c.want + 1) + ": " + PyString_AsString(repr.get()));
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
}

TEST_F(Convert, BuiltinsToPython) {
    struct Case { Ptr<GenericIf const> g; char const* repr; };
    Case const cases[] = {
        {toGenericIf<unsigned int>(2147483648u), "2147483648L"}, {toGenericIf<unsigned int>(2147483647u), "2147483647"},
        {toGenericIf<long long>(-1), "-1"}, {toGenericIf<long long>(1ll << 40), "1099511627776L"},
        {toGenericIf<unsigned long long>(~0ull), "18446744073709551615L"}, {toGenericIf<long>(-3), "-3"},
        {toGenericIf<char>('q'), "'q'"}, {toGenericIf<bool>(true), "True"}, {toGenericIf<signed char>(-7), "-7"},
        {toGenericIf<String8>(String8("a\0b", 3)), "'a\\x00b'"}, {toGenericIf<Name>(Name("eth1")), "'eth1'"},
        {toGenericIf<EntityUriPath>(EntityUriPath("/a/b")), "'/a/b'"}, {Ptr<GenericIf const>(), "None"},
    };
    for (Case const& c : cases) {
        PyRef o(GenericIfToPyObject(c.g));
        ASSERT_TRUE(o) << c.repr;
        PyRef r(PyObject_Repr(o.get()));
        EXPECT_EQ(std::string(PyString_AsString(r.get())), c.repr);
    }
    PyRef f(GenericIfToPyObject(toGenericIf<float>(0.1f)));
    EXPECT_EQ(PyFloat_AsDouble(f.get()), double(0.1f));
}

TEST_F(Convert, EnumerationsByNameAndNumber) {
    ZelType const* color = T("Demo::Color");
    PyRef name(py("'violet'")), number(py("7")), yes(py("True")), green(py("1"));
    Ptr<GenericIf const> byName = PyObjectToGenericIf(name.get(), color);
    Ptr<GenericIf const> byNumber = PyObjectToGenericIf(number.get(), color);
    EXPECT_TRUE(byName->equals(*byNumber));
    EXPECT_TRUE(PyObjectToGenericIf(yes.get(), color)->equals(*PyObjectToGenericIf(green.get(), color)));
    for (char const* bad : {"7L", "5", "'purple'", "1.0"}) {
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

TEST_F(Convert, DefaultAttributesBothWays) {
    PyRef meters(py("2.5")), mac(py("'00:11:22:aa:bb:cc'")), opaque(py("7")), literal(py("[1, 'two']"));
    Ptr<GenericIf const> m = PyObjectToGenericIf(meters.get(), T("Demo::Meters"));
    Ptr<GenericIf const> a = PyObjectToGenericIf(mac.get(), T("Demo::MacAddr"));
    Ptr<GenericIf const> o = PyObjectToGenericIf(opaque.get(), T("Demo::Opaque"));
    Ptr<GenericIf const> l = PyObjectToGenericIf(literal.get(), T("Demo::PyLiteral"));
    ASSERT_TRUE(m && a && o && l);
    PyRef mBack(GenericIfToPyObject(m)), aBack(GenericIfToPyObject(a)), lBack(GenericIfToPyObject(l));
    EXPECT_EQ(PyFloat_AsDouble(mBack.get()), 2.5);
    EXPECT_EQ(pyStr(aBack.get()), "00:11:22:aa:bb:cc");
    EXPECT_EQ(PyObject_RichCompareBool(lBack.get(), literal.get(), Py_EQ), 1);
    // Opaque shows its id but accessors hand out the object; raw reads too.
    PyRef oBack(GenericIfToPyObject(o)), mRaw(GenericIfToPyObjectInternal(m, false));
    EXPECT_TRUE(FwkPyGenericIf_Check(oBack.get()));
    EXPECT_TRUE(FwkPyGenericIf_Check(mRaw.get()));
    EXPECT_EQ(*static_cast<int const*>(o->valuePtr()), 7);
    for (std::string type : {"Demo::Meters", "Demo::Opaque"}) {
        EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(Py_None, T(type.c_str())); }),
                  "expected " + type + ", got NoneType: None");
    }
    PyRef word(py("'abc'"));
    Py_ssize_t before = Py_REFCNT(word.get());
    EXPECT_THROW(PyObjectToGenericIf(word.get(), T("Demo::MacAddr")), RangeException);
    EXPECT_THROW(PyObjectToGenericIf(word.get(), T("Demo::Meters")), TypeException);
    PyErr_Clear();
    EXPECT_EQ(Py_REFCNT(word.get()), before);
}

TEST_F(Convert, EntitiesNoneAndHandles) {
    ZelType const* all = T("Demo::AllTypes");
    ArgVector args;
    args.push_back(toGenericIf<String8>("a1"));
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
    ASSERT_TRUE(typedNull);
    EXPECT_EQ(typedNull->valuePtr(), nullptr);
    EXPECT_EQ(PyRef(GenericIfToPyObject(typedNull)).get(), Py_None);
    EXPECT_EQ(PyObjectToGenericIf(handle.get(), all).ptr(), entity.ptr());
    PyRef back(GenericIfToPyObject(entity));
    EXPECT_TRUE(FwkPyGenericIf_Check(back.get()));
    // Through ptr_, and each refusal, with no reference kept on the way.
    for (PyObject* o : {holder.get(), number.get()}) {
        Py_ssize_t before = Py_REFCNT(o);
        if (o == holder.get()) EXPECT_EQ(PyObjectToGenericIf(o, all).ptr(), entity.ptr());
        else EXPECT_EQ(message<TypeException>([&] { PyObjectToGenericIf(o, all); }), "expected Demo::AllTypes, got int: 5");
        EXPECT_EQ(Py_REFCNT(o), before);
    }
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
    struct Case { char const* expr; ZelAttr const* attr; bool skipOne; char const* message; };
    Case const cases[] = {
        {"[1, 'b', True]", &kThreeAttr, false, "expected tuple, got list"},
        {"T((1, 'b', True))", &kThreeAttr, false, "expected tuple, got T"},
        {"(1, 'b')", &kThreeAttr, false, "expected 3 parameters: 2 passed in: (int, str)"},
        {"(1, 'b', True)", &kThreeAttr, true, "expected 2 parameters: 3 passed in: (int, str, bool)"},
        {"(1, 5, True)", &kThreeAttr, false,
         "Error processing parameter 1 : Zel::TypeException(\"expected Zel::String, got int: 5\")"},
        {"(1, 1)", &kThreeAttr, true, "Error processing parameter 1 : Zel::TypeException(\"expected bool, got int: 1\")"},
    };
    for (Case const& c : cases) {
        PyRef args(py(c.expr));
        EXPECT_EQ(message<TypeException>([&] { PyTupleToGenericIfVector(args.get(), c.attr, c.skipOne); }), c.message);
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
