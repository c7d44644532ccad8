// Python-to-framework conversion with arbitrary Python values, in an
// embedded CPython 2.7 that imports _Zel and ZelDemo from this build tree.
//
// Input: byte 0 picks the target; the rest is a PyValueBuilder program
// whose top value is converted (and, for collections, the value below it
// is the key). Targets, in order:
//   - attributeSingletonIs on a fresh Demo::AllTypes, one per attribute
//     (every builtin, enumeration, value and entity-pointer kind);
//   - attributeCollectionIs on a fresh Demo::Switch, one per collection;
//   - PyObjectToGenericIf_unsafe straight to one of kDirectTypes.
//
// Oracle: an entry point returns a value with no Python error pending, or
// null with a Python exception whose text is not empty; the direct call
// returns a value, or null with a Python error, or throws a framework
// exception with a message. After each input no error is pending and the
// allocation tracker's live counts are back where they were (whatever the
// conversion made and kept is a leak). A C++ exception escaping, a
// sanitizer report, a hang or a native leak (LeakSanitizer) is a finding.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

#include "module/convert/Convert.h"
#include "PyValueBuilder.h"
#include "Zel/PtrInterface.h"

namespace {

using Zel::PyRef;

[[noreturn]] void finding(std::string const& what) {
    std::fprintf(stderr, "fuzz_py_conversion: %s\n", what.c_str());
    if (PyErr_Occurred()) PyErr_Print();
    std::abort();
}

char const* const kAllTypesAttrs[] = {"s8", "ch", "i8", "u8", "i16", "u16", "i32", "u32", "l",
                                      "i64", "u64", "f32", "f64", "flag", "color", "point", "length", "mac",
                                      "literal", "opaque", "uri", "uriPath", "label", "peer", "readOnly"};
char const* const kSwitchAttrs[] = {"intf", "event", "vlan", "color", "log", "reset", "add"};
char const* const kDirectTypes[] = {"bool", "char", "signed char", "unsigned char", "short", "unsigned short",
                                    "int", "unsigned int", "long", "long long", "unsigned long long", "float",
                                    "double", "Zel::String", "Demo::Color", "Demo::Point", "Demo::Meters",
                                    "Demo::MacAddr", "Demo::PyLiteral", "Demo::Opaque", "Zel::EntityUri",
                                    "Zel::EntityUriPath", "Zel::Name", "Demo::AllTypes", "Demo::Switch",
                                    "Zel::PyGenericIf::DefaultAttributeData",
                                    "Zel::PyGenericIf::TypeAttributeIdKey"};
constexpr size_t kAllTypesCount = std::size(kAllTypesAttrs);
constexpr size_t kSwitchCount = std::size(kSwitchAttrs);
constexpr size_t kTargetCount = kAllTypesCount + kSwitchCount + std::size(kDirectTypes);

// Objects of unusual Python types for the builder, beside GifPtr handles.
char const* const kPreparedPython = R"(
class I(int): pass
class L(long): pass
class F(float): pass
class S(str): pass
class U(unicode): pass
class T(tuple): pass
class Num(object):
    def __int__(self): return 3
    def __float__(self): return 2.5
    def __index__(self): return 3
class Bad(object):
    def __len__(self): raise ValueError('no len')
    def __iter__(self): raise ValueError('no iter')
    def __getitem__(self, i): raise ValueError('no item')
    def __str__(self): raise ValueError('no str')
    def __repr__(self): raise ValueError('no repr')
    def __hash__(self): raise ValueError('no hash')
    def __eq__(self, o): raise ValueError('no eq')
class Old: pass
fuzzPrepared = [I(7), L(7), F(1.5), S('red'), U(u'red'), T((1, 2)), Num(), Bad(), Old(), object(), int, 1j,
                bytearray('ab'), xrange(3), frozenset([1]), set([1]), Exception('x'), len, lambda: 0,
                (1 << 70), -(1 << 63) - 1, 1 << 64, 4294967296, -2147483649, 'red', 'violet', u'blue',
                '00:11:22:33:44:55', '1.5 m', 'a/b/c', '', '\0']
)";

struct Env {
    PyObject* newGenericIf = nullptr;
    PyObject* allTypes = nullptr;   // the ZelType wrappers
    PyObject* switchType = nullptr;
    std::vector<PyObject*> attrs;   // kAllTypesAttrs then kSwitchAttrs
    std::vector<Zel::ZelType const*> direct;
    std::vector<PyRef> prepared;
};
Env env;

// CPython 2.7 takes names and formats as char*; it does not write them.
template <class... A>
PyObject* callMethod(PyObject* o, char const* name, char const* format, A... args) {
    return PyObject_CallMethod(o, const_cast<char*>(name), const_cast<char*>(format), args...);
}
template <class... A>
PyObject* callFunction(PyObject* f, char const* format, A... args) {
    return PyObject_CallFunction(f, const_cast<char*>(format), args...);
}

PyObject* must(PyObject* o, std::string const& what) {
    if (!o) finding("setting up: " + what);
    return o;
}

void prepare() {
    PyRef zelPkg(must(PyImport_ImportModule("Zel"), "import Zel"));
    PyRef demo(must(PyImport_ImportModule("ZelDemo"), "import ZelDemo"));
    PyObject* zel = must(PyImport_ImportModule("_Zel"), "import _Zel");   // kept for the run
    env.newGenericIf = must(PyObject_GetAttrString(zel, "newGenericIf"), "_Zel.newGenericIf");
    env.allTypes = must(callMethod(zel, "typeNode", "s", "Demo::AllTypes"), "Demo::AllTypes");
    env.switchType = must(callMethod(zel, "typeNode", "s", "Demo::Switch"), "Demo::Switch");
    for (char const* a : kAllTypesAttrs) env.attrs.push_back(must(callMethod(env.allTypes, "attr", "s", a), a));
    for (char const* a : kSwitchAttrs) env.attrs.push_back(must(callMethod(env.switchType, "attr", "s", a), a));
    for (char const* t : kDirectTypes) env.direct.push_back(Zel::typeNode(Zel::String8(t)));

    PyObject* main = PyModule_GetDict(PyImport_AddModule("__main__"));
    PyRef ran(must(PyRun_String(kPreparedPython, Py_file_input, main, main), "the prepared objects"));
    PyObject* list = PyDict_GetItemString(main, "fuzzPrepared");
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
        PyObject* item = PyList_GET_ITEM(list, i);
        Py_INCREF(item);
        env.prepared.emplace_back(item);
    }
    // GifPtr handles: two entities and a value of each value type, made
    // from Python arguments.
    PyObject* made[] = {
        callFunction(env.newGenericIf, "O(s)", env.allTypes, "prepared"),
        callFunction(env.newGenericIf, "O(s)", env.switchType, "prepared"),
    };
    for (PyObject* o : made) env.prepared.emplace_back(must(o, "a prepared GifPtr"));
    struct { char const* type; char const* args; } const values[] = {
        {"Demo::Point", "(1, 2)"}, {"Demo::Meters", "()"}, {"Demo::MacAddr", "('00:11:22:33:44:55',)"},
        {"Demo::PyLiteral", "('[1]',)"}, {"Demo::Opaque", "(5,)"}};
    for (auto const& v : values) {
        PyRef type(must(callMethod(zel, "typeNode", "s", v.type), v.type));
        PyRef args(must(PyRun_String(v.args, Py_eval_input, main, main), v.args));
        env.prepared.emplace_back(must(callFunction(env.newGenericIf, "OO", type.get(), args.get()), v.type));
    }
    for (PyObject* kept : {env.allTypes, env.attrs[0]}) {
        Py_INCREF(kept);
        env.prepared.emplace_back(kept);
    }
}

// Live objects per allocation-tracker slot.
std::vector<uint64_t> liveCounts() {
    std::vector<uint64_t> out(Zel::allocTrackSlotCount());
    for (uint32_t s = 1; s < out.size(); ++s) out[s] = Zel::allocTrackSlotLive(s);
    return out;
}

void checkLiveCounts(std::vector<uint64_t> const& before) {
    std::vector<uint64_t> after = liveCounts();
    std::string diff;
    for (uint32_t s = 1; s < after.size(); ++s) {
        uint64_t was = s < before.size() ? before[s] : 0;
        if (after[s] != was) {
            diff += std::string(" ") + Zel::allocTrackSlotName(s) + ": " + std::to_string(was) + " -> " +
                    std::to_string(after[s]);
        }
    }
    if (!diff.empty()) finding("tracked objects outlived the input:" + diff);
}

// A null result must come with a Python exception that says something.
void checkError(PyObject* result, char const* what) {
    if (result) {
        if (PyErr_Occurred()) finding(std::string(what) + " returned a value with an error pending");
        return;
    }
    if (!PyErr_Occurred()) finding(std::string(what) + " returned null without an error");
    PyObject *type, *value, *tb;
    PyErr_Fetch(&type, &value, &tb);
    PyErr_NormalizeException(&type, &value, &tb);
    PyRef t(type), v(value), b(tb);
    PyRef text(value ? PyObject_Str(value) : nullptr);
    Zel::compat::StringBytes message(text ? text.get() : Py_None);
    if (!message || message.size() == 0) {
        PyErr_Clear();
        finding(std::string(what) + " raised " + reinterpret_cast<PyTypeObject*>(type)->tp_name +
                " without a message");
    }
}

void convertDirect(PyObject* value, Zel::ZelType const* type) {
    try {
        Zel::Ptr<Zel::GenericIf const> g = PyObjectToGenericIf_unsafe(value, type);
        // Null alone is a null entity pointer (None); null with an error
        // is a refusal.
        if (!g && PyErr_Occurred()) checkError(nullptr, "PyObjectToGenericIf_unsafe");
        if (g && PyErr_Occurred()) finding("PyObjectToGenericIf_unsafe returned a value with an error pending");
    } catch (Zel::Exception const& e) {
        if (e.message().empty()) finding(std::string("a ") + e.name() + " without a message");
        if (PyErr_Occurred()) {
            finding(std::string("a ") + e.name() + " (" + e.message().c_str() + ") converting to " + type->name() +
                    " thrown with a Python error pending");
        }
    }
}

// Converts `value` (with `key` for collections) through target `target`.
void exercise(size_t target, PyObject* key, PyObject* value) {
    if (target >= kAllTypesCount + kSwitchCount) {
        convertDirect(value, env.direct[target - kAllTypesCount - kSwitchCount]);
        return;
    }
    bool single = target < kAllTypesCount;
    PyRef obj(callFunction(env.newGenericIf, "O(s)", single ? env.allTypes : env.switchType, "fuzz"));
    if (!obj) finding("cannot make the object under test");
    PyObject* attr = env.attrs[target];
    PyRef set(single ? callMethod(obj.get(), "attributeSingletonIs", "OO", attr, value)
                     : callMethod(obj.get(), "attributeCollectionIs", "OOO", attr, key, value));
    checkError(set.get(), single ? "attributeSingletonIs" : "attributeCollectionIs");
    if (set && single) {
        // And back: the stored value converts to Python.
        PyRef got(callMethod(obj.get(), "attributeSingleton", "O", attr));
        checkError(got.get(), "attributeSingleton");
    }
}

// At exit, before the leak checker looks (it registered its own check
// earlier, and exit handlers run last-registered first): the handles the
// run kept go, and with them the framework objects they hold. Those live
// on only through Python objects, which sit in the interpreter's arenas
// the checker does not scan, so kept to the end they read as leaks.
void dropPrepared() {
    env.prepared.clear();
    PyObject* main = PyModule_GetDict(PyImport_AddModule("__main__"));
    if (PyDict_GetItemString(main, "fuzzPrepared") && PyDict_DelItemString(main, "fuzzPrepared") != 0) PyErr_Clear();
    PyGC_Collect();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ::setenv("PYTHONPATH", ZEL_FUZZ_PYTHONPATH, 1);
    ::setenv("ZEL_BUILD_DIR", ZEL_FUZZ_BUILD_DIR, 1);
    Py_Initialize();
    Zel::compat::initThreads();   // the main thread keeps the interpreter lock
    prepare();
    // Once through every target with every prepared value: the caches that
    // are filled on first use (the default-attribute mapping, per-type
    // rules, interned names) are full before the counts are compared.
    for (size_t t = 0; t < kTargetCount; ++t) {
        exercise(t, Py_None, Py_None);
        for (PyRef const& o : env.prepared) exercise(t, o.get(), o.get());
    }
    if (PyErr_Occurred()) finding("a Python error stayed pending after the warm-up");
    std::atexit(dropPrepared);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0) return 0;
    std::vector<uint64_t> before = liveCounts();
    {
        zelfuzz::PyValueBuilder values(data + 1, size - 1, env.prepared);
        values.run();
        exercise(data[0] % kTargetCount, values.top(1), values.top(0));
    }
    if (PyErr_Occurred()) finding("a Python error stayed pending");
    checkLiveCounts(before);
    return 0;
}
