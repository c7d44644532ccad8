// The functions libZelPy exports to native callers that neither another
// native test nor _ZelTestHelper reaches: one case each, named after it.
#include <functional>

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

std::string repr(PyObject* o) {
    PyRef owned(o), r(PyObject_Repr(o));
    return PyString_AsString(r.get());
}

std::string gilAndLock() {
    return std::string(_PyThreadState_Current == PyGILState_GetThisThreadState() ? "gil" : "-") + (ActivityLockAnchor::lock()->heldByMe() ? "+lock" : "");
}

using Exports = PyTest;

TEST_F(Exports, EachDoesItsOneThing) {
    ZelType const* all = typeNode("Demo::AllTypes");
    ZelAttr const* i32 = all->attr("i32");
    ZelAttr const* peer = all->attr("peer");
    ArgVector args{toGenericIf<String8>("x1")};
    PyRef self(MakeFwkPyGenericIf(Ptr<GenericIf const>(all->genericIf(args, false)))), five(py("5"));
    RangeException traced("bad");
    traced.backtraceIs(Backtrace::BacktraceIs(0, 1));
    struct Case { char const* function; std::function<std::string()> run; std::string want; };
    Case const cases[] = {
        {"exceptionString", [] { return exceptionString(RangeException("r")).str(); }, "Zel::RangeException(\"r\")"},
        {"GenericIf_TypeAttributeString",
         [] { return GenericIf_TypeAttributeString(Entity::_zelType.attr("name")).str() + "|" +
                     GenericIf_TypeAttributeString(nullptr).str(); }, "Zel::Entity.name|"},
        {"typeNameFromPyObject",
         [&] { return std::string(typeNameFromPyObject(five.get())) + " " + typeNameFromPyObject(self.get()); },
         "int Demo::AllTypes"},
        {"GilPyErr_SetString (interpreter lock released)",
         [] { { ReleasedGil released; GilPyErr_SetString(PyExc_ValueError, "set without the lock"); } return pending(); },
         "exceptions.ValueError: set without the lock"},
        {"PyErr_SetBacktrace (message)", [&] { PyErr_SetBacktrace(PyExc_KeyError, RangeException("m"), nullptr); return pending(); },
         "exceptions.KeyError: 'm'"},
        {"PyErr_SetBacktrace (args, backtrace)", [&] {
             PyRef a(py("('a', 2)"));
             PyErr_SetBacktrace(PyExc_ValueError, traced, a.get());
             PyObject *t, *v, *b;
             PyErr_Fetch(&t, &v, &b);
             PyRef tr(t), vr(v), br(b);
             return pyStr(v) + " " + repr(PyObject_GetAttrString(v, "backtrace")).substr(0, 25); },
         "('a', 2) <backtrace for \"bad\" with"},
        {"PyBacktrace_FromBacktrace", [] { return repr(PyBacktrace_FromBacktrace(nullptr, nullptr)); },
         "<backtrace for \"<unknown exception>\" with 0 frames>"},
        {"initBacktrace (once per process: _Zel had it)", [] {
             PyRef m(PyModule_New("fresh")), zel(PyImport_ImportModule("_Zel"));
             initBacktrace(m.get());
             PyRef type(PyObject_GetAttrString(zel.get(), "Backtrace")), bt(PyBacktrace_FromBacktrace(nullptr, nullptr));
             return std::to_string(PyObject_HasAttrString(m.get(), "Backtrace")) +
                    std::to_string(Py_TYPE(bt.get()) == reinterpret_cast<PyTypeObject*>(type.get())); }, "01"},
        {"init_Zel, FwkPyGenericIf_Type", [&] {
             PyRef zel(PyImport_ImportModule("_Zel")), gifPtr(PyObject_GetAttrString(zel.get(), "GifPtr"));
             return std::to_string(Py_TYPE(self.get()) == &FwkPyGenericIf_Type) +
                    std::to_string(gifPtr.get() == reinterpret_cast<PyObject*>(&FwkPyGenericIf_Type)); }, "11"},
        {"PyZelType_FromZelType, Convert_To_ZelType", [&] {
             PyRef w(PyZelType_FromZelType(all)), again(PyZelType_FromZelType(all)), none(PyZelType_FromZelType(nullptr));
             ZelType const* out = nullptr;
             int const ok = Convert_To_ZelType(w.get(), &out), refused = Convert_To_ZelType(five.get(), &out);
             return std::to_string(ok) + std::to_string(out == all) + std::to_string(w.get() == again.get()) +
                    std::to_string(none.get() == Py_None) + std::to_string(Py_TYPE(w.get()) == &PyZelType_Type) +
                    std::to_string(refused) + " " + pending(); },
         "111110 exceptions.TypeError: Expected a _Zel.ZelType"},
        {"PyZelAttr_FromZelAttr, Convert_To_ZelAttr", [&] {
             PyRef w(PyZelAttr_FromZelAttr(i32)), again(PyZelAttr_FromZelAttr(i32)), none(PyZelAttr_FromZelAttr(nullptr));
             ZelAttr const* out = nullptr;
             int const ok = Convert_To_ZelAttr(w.get(), &out), refused = Convert_To_ZelAttr(five.get(), &out);
             return std::to_string(ok) + std::to_string(out == i32) + std::to_string(w.get() == again.get()) +
                    std::to_string(none.get() == Py_None) + std::to_string(Py_TYPE(w.get()) == &PyZelAttr_Type) +
                    std::to_string(refused) + " " + pending(); },
         "111110 exceptions.TypeError: Expected a _Zel.ZelAttr"},
        {"compareZelAttrsById", [&] {
             return std::to_string(compareZelAttrsById(i32, peer) == (i32->attributeId() < peer->attributeId())) +
                    std::to_string(compareZelAttrsById(i32, i32)); }, "10"},
        {"GilUnlockAnchor", [] {
             std::string r = gilAndLock();
             GilUnlockAnchor anchor;
             r += " " + gilAndLock();
             anchor.gilHeldIs(true);
             return r + " " + gilAndLock(); }, "gil - gil"},
        {"GilUnlockAnchorThreadSafePtr", [] {
             std::string r;
             { GilUnlockAnchorThreadSafePtr anchor; r = gilAndLock() + std::to_string(anchor.lockTaken()); }
             return r + " " + gilAndLock(); }, "-+lock1 gil"},
        {"PyObjectPtrType", [] {
             return std::to_string(typeNode("Zel::PyObjectPtr") == &PyObjectPtrType::_zelType) +
                    std::to_string(ZelTypeOf<PyObject*>::get() == &PyObjectPtrType::_zelType); }, "11"},
        {"singletonSet, singletonGet, singletonDel", [&] {
             PyRef set(singletonSet(self.get(), i32, five.get())), got(singletonGet(self.get(), i32, true));
             PyRef linked(singletonSet(self.get(), peer, self.get())), del(singletonDel(self.get(), peer));
             PyRef gone(singletonGet(self.get(), peer, false)), refused(singletonDel(self.get(), i32));
             std::string const error = pending().substr(0, 62);
             return pyStr(set.get()) + " " + pyStr(got.get()) + " " + pyStr(linked.get()) + " " + pyStr(del.get()) +
                    " " + pyStr(gone.get()) + " " + std::to_string(bool(refused)) + " " + error; },
         "None 5 None None None 0 exceptions.AttributeError: Demo::AllTypes.i32: error in del : "},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.function);
        EXPECT_EQ(c.run(), c.want);
        EXPECT_FALSE(PyErr_Occurred());
        PyErr_Clear();
    }
}

} // namespace
