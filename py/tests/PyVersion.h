// The few expectations of the native tests that differ between Python 2.7
// and 3, in one place (the conversions' differences: tests/python/pyver.py).
#pragma once

#include <Python.h>

#include <string>

namespace zeltest::pyver {

inline constexpr bool kPython3 = PY_MAJOR_VERSION >= 3;

// tp_name of a builtin exception type: 2.7 keeps them in module exceptions.
inline std::string builtinException(std::string const& name) { return kPython3 ? name : "exceptions." + name; }

} // namespace zeltest::pyver
