// Compiled code cache of a connection (see CodeCache.h).
#include "CodeCache.h"

#include <cstring>

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
    // short silently, where compile() refuses it.
    if (std::memchr(text.data(), 0, text.size())) {
        PyErr_SetString(PyExc_TypeError, "compile() expected string without null bytes");
        return PyRef();
    }
    std::string terminated(text);
    PyCompilerFlags flags{0};
    return PyRef(Py_CompileStringFlags(terminated.c_str(), "<PyServer>", start_, &flags));
}

} // namespace ZelServer
