// Compiled code cache of a connection (see CodeCache.h).
#include "CodeCache.h"

#include <cstring>

#include "support/PyCompat.h"

namespace ZelServer {

PyObject* CodeCache::code(std::string_view text) {
    auto found = codes_.find(text);
    if (found != codes_.end()) return found->second.get();
    PyRef code = compiled(text);
    if (!code) return nullptr;
    if (codes_.size() >= kMaxEntries) codes_.clear();
    return codes_.emplace(std::string(text), std::move(code)).first->second.get();
}

PyRef CodeCache::compiled(std::string_view text) const {
    // The compiler reads a C string; a null byte would cut the command
    // short silently, where compile() refuses it: such a command goes to
    // compile() itself, which raises as its interpreter does.
    if (std::memchr(text.data(), 0, text.size())) {
        PyObject* compile = PyDict_GetItemString(PyEval_GetBuiltins(), const_cast<char*>("compile"));   // borrowed
        PyRef source(PyBytes_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
        if (!compile || !source) return PyRef();
        return PyRef(PyObject_CallFunction(compile, const_cast<char*>("Oss"), source.get(), "<PyServer>",
                                           start_ == Py_eval_input ? "eval" : "exec"));
    }
    std::string terminated(text);
    PyCompilerFlags flags = Zel::compat::compilerFlags();
    return PyRef(Py_CompileStringFlags(terminated.c_str(), "<PyServer>", start_, &flags));
}

} // namespace ZelServer
