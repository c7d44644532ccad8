// What the native tests share: Python snippets run in __main__, the
// interpreter-lock fixture and caught exceptions. PythonEnv.cpp makes the
// binary's one interpreter; the main thread keeps its lock and tests take it
// again with GilEnsure (recursive on that thread, valid on any other).
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

#include "module/core/Module.h"
#include "Zel/Exception.h"

namespace zeltest {

inline PyObject* mainDict() { return PyModule_GetDict(PyImport_AddModule("__main__")); }

// Evaluates an expression in __main__: a new reference, or null with the error printed.
inline PyObject* py(std::string const& expr) {
    PyObject* r = PyRun_String(expr.c_str(), Py_eval_input, mainDict(), mainDict());
    if (!r) PyErr_Print();
    return r;
}

// Runs statements in __main__; false, the error printed, if they raised.
inline bool run(std::string const& code) {
    Zel::PyRef r(PyRun_String(code.c_str(), Py_file_input, mainDict(), mainDict()));
    if (!r) PyErr_Print();
    return bool(r);
}

inline std::string pyStr(PyObject* o) {
    Zel::PyRef s(PyObject_Str(o));
    Zel::compat::StringBytes text(s.get());
    return std::string(text.data(), text.size());
}

// Runs `f`, which must throw an E (for a plain RpcException, not a
// connection failure), and returns a copy of it.
template <class E, class F>
E thrown(F f) {
    try {
        f();
    } catch (E const& e) {
        if constexpr (std::is_same_v<E, Zel::RpcException>) {
            EXPECT_EQ(dynamic_cast<Zel::RpcConnectionException const*>(&e), nullptr) << "a connection failure";
        }
        return e;
    }
    throw std::logic_error("the expected exception was not thrown");
}

template <class E, class F>
std::string message(F f) {
    return thrown<E>(f).message().str();
}

// A test holding the interpreter lock that leaves no Python error behind.
class PyTest : public ::testing::Test {
protected:
    Zel::GilEnsure gil;
    void TearDown() override { PyErr_Clear(); }
};

} // namespace zeltest
