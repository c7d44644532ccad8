// Conversions between Python and framework values and of argument tuples,
// driven with real interpreter objects.
#include "Support.h"
#include "module/convert/Convert.h"
#include "Zel/Values.h"

using namespace Zel;
using namespace zeltest;

namespace {

ZelType const* T(char const* name) { return typeNode(String8(name)); }

using Convert = PyTest;

// What the Python suite's attribute tables (test_attr_singleton hold the
// values, texts and refusals) cannot see: a refusal, whichever converter
// makes it, leaves no error pending and keeps no reference; a null expected
// type; an enumeration value no enumerator names.
TEST_F(Convert, RefusalsKeepNothingAndWhatPythonCannotPass) {
    ASSERT_TRUE(run("class Holder(object):\n    ptr_ = 5\n"));
    struct Case { char const* type; char const* expr; };
    Case const cases[] = {{"short", "32768"}, {"long long", "2**64"}, {"double", "'x'"}, {"Zel::String", "None"},
                          {"char", "''"}, {"Demo::Color", "'purple'"}, {"Demo::Meters", "None"},
                          {"Demo::MacAddr", "'abc'"}, {"Demo::AllTypes", "5"}, {"Demo::AllTypes", "Holder()"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.type) + " " + c.expr);
        PyRef o(py(c.expr));
        ASSERT_TRUE(o);
        Py_ssize_t before = Py_REFCNT(o.get());
        EXPECT_THROW(PyObjectToGenericIf(o.get(), T(c.type)), Exception);
        EXPECT_FALSE(PyErr_Occurred());
        EXPECT_EQ(Py_REFCNT(o.get()), before);
    }
    EXPECT_EQ(message<TypeException>([] { PyObjectToGenericIf(Py_None, nullptr); }),
              "introspection failed: expected type is NULL");
    int32_t five = 5;
    PyRef unnamed(GenericIfToPyObject(Ptr<GenericIf const>(T("Demo::Color")->genericIf(&five, true))));
    EXPECT_EQ(pyStr(unnamed.get()), "Demo::Color(5)");
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
    // parameter numbering with and without it (other texts, the constructor's
    // among them, and a key supplied by an add: the Python suite).
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
    PyRef nine(py("tuple(range(9))")), empty(py("()")), bad(py("(1, 2)"));
    ArgVector n = PyTupleToGenericIfVector(nine.get(), &kNineAttr, false);
    ASSERT_EQ(n.size(), 9u);
    EXPECT_EQ(*n[8]->attrValPtr<int>(), 8);
    EXPECT_TRUE(PyTupleToGenericIfVector(empty.get(), &kNoArgsAttr, false).empty());
    EXPECT_EQ(message<InternalException>([&] { PyTupleToGenericIfVector(bad.get(), &kBadAttr, false); })
                  .rfind("unknown type while processing parameter 1: ", 0), 0u);
}

} // namespace
