// The functions libZelPy exports to native callers that neither another
// native test nor _ZelTestHelper reaches: one case each, named after it.
#include <functional>
#include <initializer_list>

#include "Support.h"
#include "Zel/Activity.h"
#include "Zel/Values.h"
#include "ZelPy/PyObjHandle.h"

using namespace Zel;
using namespace zeltest;

namespace {

// "Kind: text" of the pending error, which is cleared; "none" without one.
std::string pending() {
    if (!PyErr_Occurred()) return "none";
    PyObject *type, *value, *tb;
    PyErr_Fetch(&type, &value, &tb);
    PyErr_NormalizeException(&type, &value, &tb);
    PyRef t(type), v(value), b(tb);
    return std::string(reinterpret_cast<PyTypeObject*>(type)->tp_name) + ": " + pyStr(value);
}

std::string repr(PyObject* owned) {
    PyRef o(owned), r(PyObject_Repr(o.get()));
    return PyString_AsString(r.get());
}

std::string bits(std::initializer_list<bool> values) {
    std::string s;
    for (bool v : values) s += v ? '1' : '0';
    return s;
}

// Whether this thread holds the interpreter lock ("gil") and the activity lock ("+lock").
std::string locks() {
    bool const gil = _PyThreadState_Current == PyGILState_GetThisThreadState();
    return std::string(gil ? "gil" : "-") + (ActivityLockAnchor::lock()->heldByMe() ? "+lock" : "");
}

// The wrapper of `d` twice and of null, the converter on it and on an int.
template <class D>
std::string wrapped(D const* d, PyObject* (*wrap)(D const*), int (*convert)(PyObject*, D const**), PyTypeObject* type) {
    PyRef w(wrap(d)), again(wrap(d)), none(wrap(nullptr)), five(PyInt_FromLong(5));
    D const* out = nullptr;
    bool const ok = convert(w.get(), &out), refused = !convert(five.get(), &out);
    return bits({ok, out == d, w.get() == again.get(), none.get() == Py_None, Py_TYPE(w.get()) == type, refused}) +
           " " + pending();
}

using Exports = PyTest;

TEST_F(Exports, EachDoesItsOneThing) {
    ZelType const* all = typeNode("Demo::AllTypes");
    ZelAttr const *i32 = all->attr("i32"), *peer = all->attr("peer");
    ArgVector args{toGenericIf<String8>("x1")};
    PyRef self(MakeFwkPyGenericIf(Ptr<GenericIf const>(all->genericIf(args, false)))), five(py("5"));
    PyRef zel(PyImport_ImportModule("_Zel"));
    RangeException traced("bad");
    traced.backtraceIs(Backtrace::BacktraceIs(0, 1));
    struct Case { char const* function; std::function<std::string()> run; std::string want; };
    Case const cases[] = {
        {"exceptionString", [] { return exceptionString(RangeException("r")).str(); }, "Zel::RangeException(\"r\")"},
        {"GenericIf_TypeAttributeString", [] {
             return GenericIf_TypeAttributeString(Entity::_zelType.attr("name")).str() + "|" +
                    GenericIf_TypeAttributeString(nullptr).str(); }, "Zel::Entity.name|"},
        {"typeNameFromPyObject", [&] {
             return std::string(typeNameFromPyObject(five.get())) + " " + typeNameFromPyObject(self.get()); },
         "int Demo::AllTypes"},
        {"GilPyErr_SetString (interpreter lock released)", [] {
             { ReleasedGil released; GilPyErr_SetString(PyExc_ValueError, "set without the lock"); }
             return pending(); }, "exceptions.ValueError: set without the lock"},
        {"PyErr_SetBacktrace (from the message)", [] {
             PyErr_SetBacktrace(PyExc_KeyError, RangeException("m"), nullptr);
             return pending(); }, "exceptions.KeyError: 'm'"},
        {"PyErr_SetBacktrace (from args, with the backtrace)", [&] {
             PyRef a(py("('a', 2)"));
             PyErr_SetBacktrace(PyExc_ValueError, traced, a.get());
             PyObject *t, *v, *b;
             PyErr_Fetch(&t, &v, &b);
             PyRef tr(t), vr(v), br(b);
             return pyStr(v) + " " + repr(PyObject_GetAttrString(v, "backtrace")).substr(0, 25); },
         "('a', 2) <backtrace for \"bad\" with"},
        {"PyBacktrace_FromBacktrace", [] { return repr(PyBacktrace_FromBacktrace(nullptr, nullptr)); },
         "<backtrace for \"<unknown exception>\" with 0 frames>"},
        {"initBacktrace (once per process: _Zel had it)", [&] {
             PyRef m(PyModule_New("fresh")), type(PyObject_GetAttrString(zel.get(), "Backtrace"));
             PyRef bt(PyBacktrace_FromBacktrace(nullptr, nullptr));
             initBacktrace(m.get());
             return bits({bool(PyObject_HasAttrString(m.get(), "Backtrace")), reinterpret_cast<PyObject*>(Py_TYPE(bt.get())) == type.get()}); },
         "01"},
        {"init_Zel, FwkPyGenericIf_Type", [&] {
             PyRef gifPtr(PyObject_GetAttrString(zel.get(), "GifPtr"));
             return bits({Py_TYPE(self.get()) == &FwkPyGenericIf_Type,
                          gifPtr.get() == reinterpret_cast<PyObject*>(&FwkPyGenericIf_Type)}); }, "11"},
        {"PyZelType_FromZelType, Convert_To_ZelType, PyZelType_Type",
         [&] { return wrapped(all, PyZelType_FromZelType, Convert_To_ZelType, &PyZelType_Type); },
         "111111 exceptions.TypeError: Expected a _Zel.ZelType"},
        {"PyZelAttr_FromZelAttr, Convert_To_ZelAttr, PyZelAttr_Type",
         [&] { return wrapped(i32, PyZelAttr_FromZelAttr, Convert_To_ZelAttr, &PyZelAttr_Type); },
         "111111 exceptions.TypeError: Expected a _Zel.ZelAttr"},
        {"compareZelAttrsById", [&] {
             return bits({compareZelAttrsById(i32, peer) == (i32->attributeId() < peer->attributeId()),
                          compareZelAttrsById(i32, i32)}); }, "10"},
        {"GilUnlockAnchor", [] {
             std::string r = locks();
             GilUnlockAnchor anchor;
             r += " " + locks();
             anchor.gilHeldIs(true);
             return r + " " + locks(); }, "gil - gil"},
        {"GilUnlockAnchorThreadSafePtr", [] {
             std::string r;
             { GilUnlockAnchorThreadSafePtr anchor; r = locks() + bits({anchor.lockTaken()}); }
             return r + " " + locks(); }, "-+lock1 gil"},
        {"PyObjectPtrType", [] {
             return bits({typeNode("Zel::PyObjectPtr") == &PyObjectPtrType::_zelType,
                          ZelTypeOf<PyObject*>::get() == &PyObjectPtrType::_zelType}); }, "11"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.function);
        EXPECT_EQ(c.run(), c.want);
        EXPECT_FALSE(PyErr_Occurred());
        PyErr_Clear();
    }
}

} // namespace
