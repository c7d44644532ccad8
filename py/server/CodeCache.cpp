// Compiled code cache of a connection (see CodeCache.h).
#include "CodeCache.h"

#include <cstring>

#include "support/PyCompat.h"

namespace ZelServer {

PyObject* CodeCache::code(std::string_view text) {
    auto found = codes_.find(text);
    if (found != codes_.end()) return found->second.get();
    std::string key(text);
    // The compiler reads a C string; a null byte would cut the command
    // short silently, where compile() refuses it: such a command goes to
    // compile() itself, which raises as its interpreter does.
    PyRef compiled;
    if (std::memchr(key.data(), 0, key.size())) {
        PyObject* compile = PyDict_GetItemString(PyEval_GetBuiltins(), const_cast<char*>("compile"));   // borrowed
        PyRef source(PyBytes_FromStringAndSize(key.data(), static_cast<Py_ssize_t>(key.size())));
        if (!compile || !source) return nullptr;
        compiled = PyRef(PyObject_CallFunction(compile, const_cast<char*>("Oss"), source.get(), "<PyServer>",
                                               start_ == Py_eval_input ? "eval" : "exec"));
    } else {
        PyCompilerFlags flags = Zel::compat::compilerFlags();
        compiled = PyRef(Py_CompileStringFlags(key.c_str(), "<PyServer>", start_, &flags));
    }
    if (!compiled) return nullptr;
    if (codes_.size() >= kMaxEntries) codes_.clear();
    return codes_.emplace(std::move(key), std::move(compiled)).first->second.get();
}

} // namespace ZelServer
