// Compiled code objects of one connection, by command text. A code object
// does not depend on the namespace it runs in, and every command is
// compiled alone with no inherited compiler flags, so running a cached
// one is the same as compiling the text again. Bounded: when full, the
// cache starts over. Used with the interpreter lock held.
#pragma once

#include <Python.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

#include "support/PyRef.h"

namespace ZelServer {

using Zel::PyRef;

class CodeCache {
public:
    static constexpr size_t kMaxEntries = 256;

    // start: Py_eval_input or Py_file_input.
    explicit CodeCache(int start) : start_(start) {}

    // The code object for `text` (borrowed, valid until the next call), or
    // null with a Python exception set (a syntax error, a null byte).
    PyObject* code(std::string_view text);
    // The code object for `text`, compiled and not kept: for long commands,
    // which would fill the cache with their text.
    PyRef compiled(std::string_view text) const;

private:
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view s) const { return std::hash<std::string_view>()(s); }
    };
    int start_;
    std::unordered_map<std::string, PyRef, Hash, std::equal_to<>> codes_;
};

} // namespace ZelServer
