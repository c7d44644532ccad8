// The few expectations of the native tests that differ between Python 2.7
// and 3, in one place: 2.7 has a separate long type (written with an L,
// named "long" in messages); 3 has int alone.
#pragma once

#include <Python.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace zeltest::pyver {

inline constexpr bool kPython3 = PY_MAJOR_VERSION >= 3;

// The source text, and the repr(), of a number of 2.7's long type.
inline std::string longOf(std::string const& digits) { return kPython3 ? digits : digits + "L"; }

// The type name a refusal gives a number beyond a machine word.
inline std::string const kLongName = kPython3 ? "int" : "long";

// tp_name of a builtin exception type: 2.7 keeps them in module exceptions.
inline std::string builtinException(std::string const& name) { return kPython3 ? name : "exceptions." + name; }

// The exception an error number raises: on 3 OSError picks its subclass for
// the number.
inline std::string errnoException(std::string const& subclass) {
    return kPython3 ? subclass : builtinException("OSError");
}

// The cases that hold on both interpreters, with those of the running one.
inline std::vector<std::string> cases(std::initializer_list<char const*> both, std::initializer_list<char const*> only2,
                                      std::initializer_list<char const*> only3) {
    std::vector<std::string> all(both.begin(), both.end());
    all.insert(all.end(), kPython3 ? only3.begin() : only2.begin(), kPython3 ? only3.end() : only2.end());
    return all;
}

} // namespace zeltest::pyver
