// Conversions between Python and framework values, argument tuples and the
// default-attribute mapping, driven with real interpreter objects.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "module/convert/Convert.h"
#include "module/mapping/Mapping.h"
#include "Zel/Attr.h"
#include "Zel/TypeOps.h"
#include "Zel/Values.h"

using namespace Zel;
using Zel::PyGenericIf::DefaultAttributeData;
using Zel::PyGenericIf::FwkPyGenericIfMapping;
using Zel::PyGenericIf::TypeAttributeIdKey;

namespace {

// Test-only value types whose default-attribute declarations are broken in
// one way each; they share one C++ struct.
struct Probe {
    int n = 0;
    String8 s;
    bool operator==(Probe const&) const = default;
};
constexpr FieldAttr<&Probe::n> kN;
constexpr FieldAttr<&Probe::s> kS;
constexpr ConstStringAttr kNameN("n"), kNameS("s"), kNameNope("nope");
constexpr ConstBoolAttr kFalse(false);
constexpr TypeOps kProbeOps = valueOps<Probe>();
Ptr<GenericIf> refuseDefault(ZelType const* t, void const* v, bool c) {
    if (!v) throw RangeException("no default value");
    return makeValue<Probe>(t, v, c);
}
constexpr TypeOps kNoDefaultOps{&refuseDefault, &constructValue<Probe>, &reflectiveHash, &reflectiveStrep,
                                &valueEqual<Probe>};
constexpr uint32_t kStored = ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::stored_;
constexpr uint32_t kConst = ZelAttr::readable_ | ZelAttr::isStatic_;

#define PROBE_TYPE(NAME, OPS, DECL1, H1, DECL2, H2)                                                        \
    extern ZelAttr const NAME##Attrs[];                                                                   \
    constinit ZelType const NAME("Test::" #NAME, sizeof(Probe), nullptr, ZelType::isValue_, NAME##Attrs, 4, \
                                 nullptr, &OPS);                                                         \
    constinit ZelAttr const NAME##Attrs[] = {                                                             \
        {"n", 1, &NAME, &Builtin<int>::_zelType, kStored, &kN},                                          \
        {"s", 2, &NAME, &Builtin<String8>::_zelType, kStored, &kS},                                      \
        {DECL1, 3, &NAME, &Builtin<String8>::_zelType, kConst, &H1},                                     \
        {DECL2, 4, &NAME, &Builtin<String8>::_zelType, kConst, &H2},                                     \
    };
PROBE_TYPE(BothDeclared, kProbeOps, "defaultAttribute", kNameN, "defaultReprAttribute", kNameS)
PROBE_TYPE(ReprNotString, kProbeOps, "defaultReprAttribute", kNameN, "unused", kNameN)
PROBE_TYPE(UnknownTarget, kProbeOps, "defaultAttribute", kNameNope, "unused", kNameN)
PROBE_TYPE(ReprUnknownTarget, kProbeOps, "defaultReprAttribute", kNameNope, "unused", kNameN)
PROBE_TYPE(NoDefaultCtor, kNoDefaultOps, "defaultAttribute", kNameN, "unused", kNameN)
PROBE_TYPE(ReprNoDefaultCtor, kNoDefaultOps, "defaultReprAttribute", kNameS, "unused", kNameN)
PROBE_TYPE(UsedNotBool, kProbeOps, "defaultAttribute", kNameN, "defaultAttributeUsedForAccessor", kNameS)
PROBE_TYPE(DeclNotString, kProbeOps, "defaultAttribute", kFalse, "unused", kNameN)
PROBE_TYPE(NonStringTarget, kProbeOps, "defaultAttribute", kNameN, "unused", kNameN)

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

// One interpreter for the binary. The main thread keeps the interpreter
// lock; every test takes it again with GilEnsure (recursive on this thread,
// and valid should another suite release it).
class PythonEnv : public ::testing::Environment {
public:
    void SetUp() override {
        if (!Py_IsInitialized()) {
            Py_Initialize();
            PyEval_InitThreads();
        }
        GilEnsure gil;
        for (char const* m : {"_Zel", "ZelDemo"}) {
            PyRef mod(PyImport_ImportModule(m));
            if (!mod) PyErr_Print();
            ASSERT_TRUE(mod) << m;
        }
    }
};
::testing::Environment* const kEnv = ::testing::AddGlobalTestEnvironment(new PythonEnv);

ZelType const* T(char const* name) { return typeNode(String8(name)); }

// Evaluates a Python expression in __main__ (new reference).
PyObject* py(std::string const& expr) {
    PyObject* d = PyModule_GetDict(PyImport_AddModule("__main__"));
    PyObject* r = PyRun_String(expr.c_str(), Py_eval_input, d, d);
    if (!r) PyErr_Print();
    return r;
}
void run(std::string const& code) {
    PyObject* d = PyModule_GetDict(PyImport_AddModule("__main__"));
    PyRef r(PyRun_String(code.c_str(), Py_file_input, d, d));
    if (!r) PyErr_Print();
    ASSERT_TRUE(r) << code;
}

// The message of a thrown Zel exception of kind E, or "<no exception>".
template <class E>
std::string thrown(std::function<void()> f) {
    try {
        f();
    } catch (E const& e) {
        return e.message().c_str();
    }
    return "<no exception>";
}

std::string pyStr(PyObject* o) {
    PyRef s(PyObject_Str(o));
    return PyString_AsString(s.get());
}

class ConvertTest : public ::testing::Test {
protected:
    GilEnsure gil;
    void TearDown() override { PyErr_Clear(); }
};

TEST_F(ConvertTest, BuiltinsAcceptExactTypesInRange) {
    struct Case { char const* type; char const* expr; char const* strep; };
    Case const cases[] = {
        {"unsigned char", "255", "255"},      {"unsigned char", "0L", "0"},
        {"signed char", "-128", "-128"},      {"signed char", "127L", "127"},
        {"unsigned short", "65535", "65535"}, {"short", "-32768", "-32768"},
        {"int", "2147483647", "2147483647"},  {"int", "-2147483648L", "-2147483648"},
        {"long", "-2147483648", "-2147483648"},
        {"unsigned int", "4294967295", "4294967295"}, {"unsigned int", "4294967295L", "4294967295"},
        {"unsigned long long", "18446744073709551615L", "18446744073709551615"},
        {"unsigned long long", "7", "7"},
        {"long long", "-9223372036854775808L", "-9223372036854775808"}, {"long long", "-5", "-5"},
        {"double", "3", "3"},                 {"double", "2.5", "2.5"}, {"float", "1L", "1"},
        {"bool", "True", "True"},             {"bool", "False", "False"},
        {"char", "'x'", "'x'"},               {"Zel::String", "'a\\x00b'", "'a\\x00b'"},
    };
    for (Case const& c : cases) {
        PyRef o(py(c.expr));
        Ptr<GenericIf const> g = PyObjectToGenericIf(o.get(), T(c.type));
        ASSERT_TRUE(g) << c.type << " " << c.expr;
        EXPECT_EQ(g->type(), T(c.type));
        EXPECT_EQ(std::string(g->strep().c_str(), g->strep().size()), c.strep) << c.type << " " << c.expr;
    }
    PyRef huge(py("1e300"));
    EXPECT_TRUE(std::isinf(*PyObjectToGenericIf(huge.get(), T("float"))->attrValPtr<float>()));
}

TEST_F(ConvertTest, BuiltinsRefuseOtherTypesAndRanges) {
    struct Case { char const* type; char const* expr; char const* pyType; };
    Case const cases[] = {
        {"unsigned char", "256", "int"},   {"unsigned char", "-1", "int"},  {"unsigned char", "True", "bool"},
        {"signed char", "128", "int"},     {"unsigned short", "65536", "int"}, {"short", "32768L", "long"},
        {"int", "2147483648", "int"},      {"int", "-2147483649L", "long"}, {"int", "1.0", "float"},
        {"int", "True", "bool"},           {"long", "2147483648", "int"},   {"long", "2**70", "long"},
        {"unsigned int", "4294967296", "int"}, {"unsigned int", "4294967296L", "long"},
        {"unsigned int", "-1", "int"},     {"unsigned long long", "-1", "int"},
        {"unsigned long long", "-1L", "long"}, {"long long", "2**64", "long"}, {"long long", "1.5", "float"},
        {"signed char", "2**70", "long"},  {"int", "-2**70", "long"},   {"unsigned int", "2**70", "long"},
        {"unsigned long long", "2**70", "long"}, {"double", "2**1100", "long"},
        {"float", "True", "bool"},         {"double", "'1'", "str"},       {"bool", "1", "int"},
        {"char", "''", "str"},             {"char", "'ab'", "str"},        {"Zel::String", "u'a'", "unicode"},
        {"Zel::String", "None", "NoneType"},
    };
    for (Case const& c : cases) {
        PyRef o(py(c.expr));
        PyRef repr(PyObject_Repr(o.get()));
        std::string want = std::string("expected ") + T(c.type)->name() + ", got " + c.pyType + ": " +
                           PyString_AsString(repr.get());
        Py_ssize_t before = Py_REFCNT(o.get());
        EXPECT_EQ(thrown<TypeException>([&] { PyObjectToGenericIf(o.get(), T(c.type)); }), want);
        // The refusal is the only error: nothing stays pending behind it.
        EXPECT_FALSE(PyErr_Occurred()) << c.type << " " << c.expr;
        PyErr_Clear();
        EXPECT_EQ(Py_REFCNT(o.get()), before) << c.type << " " << c.expr;
    }
    EXPECT_EQ(thrown<TypeException>([] { PyObjectToGenericIf(Py_None, nullptr); }),
              "introspection failed: expected type is NULL");
}

TEST_F(ConvertTest, EnumerationsByNameAndNumber) {
    ZelType const* color = T("Demo::Color");
    PyRef name(py("'violet'")), number(py("7")), yes(py("True")), green(py("1"));
    Ptr<GenericIf const> byName = PyObjectToGenericIf(name.get(), color);
    Ptr<GenericIf const> byNumber = PyObjectToGenericIf(number.get(), color);
    EXPECT_TRUE(byName->equals(*byNumber));
    EXPECT_TRUE(PyObjectToGenericIf(yes.get(), color)->equals(*PyObjectToGenericIf(green.get(), color)));
    std::string const list = "Demo::Color expected one of: \"red\"=0, \"green\"=1, \"blue\"=2, \"violet\"=7";
    for (char const* bad : {"7L", "5", "'purple'", "1.0"}) {
        PyRef o(py(bad));
        EXPECT_EQ(thrown<TypeException>([&] { PyObjectToGenericIf(o.get(), color); }), list) << bad;
    }
    // And back: the interned enumerator name, or the type and the number.
    PyRef back(GenericIfToPyObject(byNumber));
    EXPECT_EQ(pyStr(back.get()), "violet");
    PyRef again(GenericIfToPyObject(byName));
    EXPECT_EQ(back.get(), again.get());
    int32_t five = 5;
    PyRef unnamed(GenericIfToPyObject(Ptr<GenericIf const>(color->genericIf(&five, true))));
    EXPECT_EQ(pyStr(unnamed.get()), "Demo::Color(5)");
}

TEST_F(ConvertTest, BuiltinsToPython) {
    struct Case { Ptr<GenericIf const> g; char const* repr; };
    Case const cases[] = {
        {toGenericIf<unsigned int>(2147483648u), "2147483648L"}, {toGenericIf<unsigned int>(2147483647u), "2147483647"},
        {toGenericIf<long long>(-1), "-1"}, {toGenericIf<long long>(1ll << 40), "1099511627776L"},
        {toGenericIf<unsigned long long>(~0ull), "18446744073709551615L"}, {toGenericIf<long>(-3), "-3"},
        {toGenericIf<char>('q'), "'q'"}, {toGenericIf<bool>(true), "True"}, {toGenericIf<signed char>(-7), "-7"},
        {toGenericIf<String8>(String8("a\0b", 3)), "'a\\x00b'"}, {toGenericIf<Name>(Name("eth1")), "'eth1'"},
        {toGenericIf<EntityUriPath>(EntityUriPath("/a/b")), "'/a/b'"},
        {Ptr<GenericIf const>(), "None"},
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

TEST_F(ConvertTest, StringBuiltValues) {
    PyRef uri(py("'zel:/a/b'")), wrongScheme(py("'http://x/y'")), number(py("3"));
    Ptr<GenericIf const> g = PyObjectToGenericIf(uri.get(), &EntityUri::_zelType);
    PyRef back(GenericIfToPyObject(g));
    EXPECT_EQ(pyStr(back.get()), "zel:/a/b");
    EXPECT_THROW(PyObjectToGenericIf(wrongScheme.get(), &EntityUri::_zelType), RangeException);
    EXPECT_EQ(thrown<TypeException>([&] { PyObjectToGenericIf(number.get(), &Name::_zelType); }),
              "expected Zel::Name, got int: 3");
}

TEST_F(ConvertTest, DefaultAttributesBothWays) {
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

    for (char const* type : {"Demo::Meters", "Demo::Opaque"}) {
        EXPECT_EQ(thrown<TypeException>([&] { PyObjectToGenericIf(Py_None, T(type)); }),
                  std::string("expected ") + type + ", got NoneType: None");
    }
    PyRef word(py("'abc'"));
    Py_ssize_t before = Py_REFCNT(word.get());
    EXPECT_THROW(PyObjectToGenericIf(word.get(), T("Demo::MacAddr")), RangeException);
    EXPECT_THROW(PyObjectToGenericIf(word.get(), T("Demo::Meters")), TypeException);
    PyErr_Clear();
    EXPECT_EQ(Py_REFCNT(word.get()), before);
}

TEST_F(ConvertTest, InvalidDeclarationsAreReportedAndCached) {
    struct Case { ZelType const* type; char const* message; };
    Case const cases[] = {
        {&BothDeclared, "Both 'defaultAttribute' and 'defaultReprAttribute' are defined for type "},
        {&ReprNotString, "defaultReprAttribute does not refer to a Zel::String for type "},
        {&UnknownTarget, "defaultAttribute does not refer to a known attribute for type "},
        {&ReprUnknownTarget, "defaultReprAttribute does not refer to a known attribute for type "},
        {&NoDefaultCtor, "defaultAttribute only works if the default constructor can be used for type "},
        {&ReprNoDefaultCtor, "defaultReprAttribute only works if the default constructor can be used for type "},
        {&UsedNotBool, "defaultAttributeUsedForAccessor is not a bool for type "},
    };
    FwkPyGenericIfMapping* map = FwkPyGenericIfMapping::global();
    PyRef three(py("3"));
    for (Case const& c : cases) {
        DefaultAttributeData d = map->defaultAttributeData(c.type);
        EXPECT_FALSE(d.valid);
        EXPECT_EQ(std::string(d.errorMessage.c_str()), std::string(c.message) + c.type->name());
        EXPECT_EQ(d.defaultId, 0);
        EXPECT_EQ(d.defaultType, nullptr);
        EXPECT_TRUE(d.defaultAttributeUsedForAccessor);
        uint32_t size = map->defaultAttributeDataMap().size();
        EXPECT_EQ(map->defaultAttributeData(c.type), d);
        EXPECT_EQ(map->defaultAttributeDataMap().size(), size);
        // Both directions report the record's message as a TypeError.
        EXPECT_FALSE(PyObjectToGenericIf(three.get(), c.type));
        ASSERT_TRUE(PyErr_ExceptionMatches(PyExc_TypeError));
        PyErr_Clear();
    }
    EXPECT_EQ(map->defaultAttributeData(&DeclNotString), DefaultAttributeData());
    DefaultAttributeData nonString = map->defaultAttributeData(&NonStringTarget);
    EXPECT_TRUE(nonString.valid);
    EXPECT_EQ(nonString.defaultType, &Builtin<int>::_zelType);
    EXPECT_EQ(nonString.defaultId, 1);
    // No cache entry for non-value types; one for a value type without rules.
    uint32_t size = map->defaultAttributeDataMap().size();
    EXPECT_EQ(map->defaultAttributeData(&Entity::_zelType), DefaultAttributeData());
    EXPECT_EQ(map->defaultAttributeDataMap().size(), size);
    EXPECT_EQ(map->defaultAttributeData(T("Demo::Point")).defaultType, nullptr);
}

TEST_F(ConvertTest, EntitiesNoneAndHandles) {
    ZelType const* all = T("Demo::AllTypes");
    ArgVector args;
    args.push_back(toGenericIf<String8>("a1"));
    Ptr<GenericIf const> entity(all->genericIf(args, false));
    PyRef handle(MakeFwkPyGenericIf(entity));
    PyRef meters(GenericIfToPyObjectInternal(PyObjectToGenericIf(PyRef(py("1.0")).get(), T("Demo::Meters")), false));
    run("class Holder(object):\n"
        "    def __init__(self, p): self.p = p\n"
        "    @property\n"
        "    def ptr_(self):\n"
        "        if self.p is None: raise ValueError('no pointer here')\n"
        "        return self.p\n");
    PyObject* d = PyModule_GetDict(PyImport_AddModule("__main__"));
    PyObject* holderType = PyDict_GetItemString(d, "Holder");
    PyRef holder(PyObject_CallFunctionObjArgs(holderType, handle.get(), nullptr));
    PyRef wrong(PyObject_CallFunctionObjArgs(holderType, meters.get(), nullptr));
    PyRef failing(PyObject_CallFunctionObjArgs(holderType, Py_None, nullptr));

    Ptr<GenericIf const> typedNull = PyObjectToGenericIf(Py_None, all);
    ASSERT_TRUE(typedNull);
    EXPECT_EQ(typedNull->valuePtr(), nullptr);
    PyRef none(GenericIfToPyObject(typedNull));
    EXPECT_EQ(none.get(), Py_None);
    EXPECT_EQ(PyObjectToGenericIf(handle.get(), all).ptr(), entity.ptr());
    Py_ssize_t before = Py_REFCNT(holder.get());
    EXPECT_EQ(PyObjectToGenericIf(holder.get(), all).ptr(), entity.ptr());
    EXPECT_EQ(Py_REFCNT(holder.get()), before);
    EXPECT_EQ(thrown<TypeException>([&] { PyObjectToGenericIf(wrong.get(), all); })
                  .rfind("expected Demo::AllTypes, got Holder: <__main__.Holder object", 0), 0u);
    EXPECT_EQ(thrown<TypeException>([&] { PyObjectToGenericIf(meters.get(), all); })
                  .rfind("expected Demo::AllTypes, got Demo::Meters: ", 0), 0u);
    EXPECT_EQ(thrown<InternalException>([&] { PyObjectToGenericIf(failing.get(), all); }), "no pointer here");
    EXPECT_FALSE(PyErr_Occurred());
    PyRef number(py("5"));
    before = Py_REFCNT(number.get());
    EXPECT_EQ(thrown<TypeException>([&] { PyObjectToGenericIf(number.get(), all); }),
              "expected Demo::AllTypes, got int: 5");
    EXPECT_EQ(Py_REFCNT(number.get()), before);
    PyRef back(GenericIfToPyObject(entity));
    EXPECT_TRUE(FwkPyGenericIf_Check(back.get()));
}

TEST_F(ConvertTest, ArgumentTuples) {
    struct Case { char const* expr; ZelAttr const* attr; bool skipOne; char const* message; };
    Case const cases[] = {
        {"[1, 'b', True]", &kThreeAttr, false, "expected tuple, got list"},
        {"(1, 'b')", &kThreeAttr, false, "expected 3 parameters: 2 passed in: (int, str)"},
        {"(1, 'b', True)", &kThreeAttr, true, "expected 2 parameters: 3 passed in: (int, str, bool)"},
        {"(1, 5, True)", &kThreeAttr, false,
         "Error processing parameter 1 : Zel::TypeException(\"expected Zel::String, got int: 5\")"},
        {"(1, 1)", &kThreeAttr, true,
         "Error processing parameter 1 : Zel::TypeException(\"expected bool, got int: 1\")"},
    };
    for (Case const& c : cases) {
        PyRef args(py(c.expr));
        EXPECT_EQ(thrown<TypeException>([&] { PyTupleToGenericIfVector(args.get(), c.attr, c.skipOne); }), c.message);
    }
    run("class T(tuple): pass\n");
    PyRef sub(py("T((1, 'b', True))"));
    EXPECT_EQ(thrown<TypeException>([&] { PyTupleToGenericIfVector(sub.get(), &kThreeAttr, false); }),
              "expected tuple, got T");
    PyRef two(py("(4, False)"));
    ArgVector v = PyTupleToGenericIfVector(two.get(), &kThreeAttr, true);
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[0]->type(), &Builtin<int>::_zelType);
    EXPECT_EQ(v[1]->type(), &Builtin<bool>::_zelType);
    PyRef nine(py("tuple(range(9))"));
    ArgVector n = PyTupleToGenericIfVector(nine.get(), &kNineAttr, false);
    ASSERT_EQ(n.size(), 9u);
    EXPECT_EQ(*n[8]->attrValPtr<int>(), 8);
    PyRef empty(py("()"));
    EXPECT_TRUE(PyTupleToGenericIfVector(empty.get(), &kNoArgsAttr, false).empty());
    PyRef bad(py("(1, 2)"));
    EXPECT_EQ(thrown<InternalException>([&] { PyTupleToGenericIfVector(bad.get(), &kBadAttr, false); })
                  .rfind("unknown type while processing parameter 1: ", 0), 0u);
    PyRef ctor(py("('x',)"));
    EXPECT_EQ(thrown<TypeException>([&] { PyTupleToGenericIfVector_helper(&Builtin<int>::_zelType, ctor.get(), 0, true); }),
              "Error processing constructor parameter 0 : Zel::TypeException(\"expected int, got str: 'x'\")");
}

TEST_F(ConvertTest, MappingValueTypes) {
    EXPECT_EQ(TypeAttributeIdKey(nullptr, 7).hash(), 7u);
    ZelType const* lo = &Builtin<int>::_zelType < &Builtin<bool>::_zelType ? &Builtin<int>::_zelType
                                                                              : &Builtin<bool>::_zelType;
    ZelType const* hi = lo == &Builtin<int>::_zelType ? &Builtin<bool>::_zelType : &Builtin<int>::_zelType;
    EXPECT_LT(TypeAttributeIdKey(lo, 100), TypeAttributeIdKey(hi, 1));
    EXPECT_LT(TypeAttributeIdKey(lo, 1), TypeAttributeIdKey(lo, 2));
    EXPECT_EQ(TypeAttributeIdKey(hi, 3).hash(), zelHashU32(hi) + 3u);

    DefaultAttributeData a, b;
    b.errorMessage = "x";
    EXPECT_NE(a, b);
    DefaultAttributeData full(4, T("Demo::MacAddr"), T("Demo::MacAddr")->attr("stringValue"), true);
    full.valid = false;
    full.errorMessage = "it's \"odd\"";
    for (DefaultAttributeData const& d : {a, full}) {
        String8 text = valueToStrep(d);
        String8::IteratorConst it = text.begin();
        EXPECT_EQ(DefaultAttributeData(it, text.end()), d) << text;
        EXPECT_EQ(it, text.end());
    }
    EXPECT_EQ(std::string(valueToStrep(a).c_str()),
              "Value('Zel::PyGenericIf::DefaultAttributeData', ** {'defaultId': 0, 'defaultType': None, "
              "'defaultAttr': None, 'usePythonRepr': False, 'defaultAttributeUsedForAccessor': True, 'valid': True, "
              "'errorMessage': ''})");
    TypeAttributeIdKey k(T("Demo::Color"), 7);
    String8 text = valueToStrep(k);
    String8::IteratorConst it = text.begin();
    EXPECT_EQ(TypeAttributeIdKey(it, text.end()), k);
    String8 broken("Value('Zel::PyGenericIf::TypeAttributeIdKey', ** {'typeptr': None, 'id': x})");
    it = broken.begin();
    EXPECT_THROW(TypeAttributeIdKey(it, broken.end()), RangeException);

    // Enumerator names: one miss fills the whole enumeration.
    FwkPyGenericIfMapping* map = FwkPyGenericIfMapping::global();
    EXPECT_EQ(map, FwkPyGenericIfMapping::global());
    ZelType const* color = T("Demo::Color");
    EXPECT_FALSE(map->attributeData(TypeAttributeIdKey(color, 3)));
    Ptr<PyObjHandle> blue = map->attributeData(TypeAttributeIdKey(color, 2));
    ASSERT_TRUE(blue);
    EXPECT_EQ(pyStr(blue->pyObject()), "blue");
    EXPECT_FALSE(map->attributeData(TypeAttributeIdKey(T("Demo::Meters"), 1)));
    EXPECT_EQ(T("Zel::PyGenericIf::FwkPyGenericIfMapping")->attr("attributeData")->attributeId(), 258);
}

} // namespace
