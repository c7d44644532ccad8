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
    // short silently, where compile() refuses it.
    if (std::memchr(key.data(), 0, key.size())) {
        PyErr_SetString(PyExc_TypeError, "compile() expected string without null bytes");
        return nullptr;
    }
    PyCompilerFlags flags = Zel::compat::compilerFlags();
    PyRef compiled(Py_CompileStringFlags(key.c_str(), "<PyServer>", start_, &flags));
    if (!compiled) return nullptr;
    if (codes_.size() >= kMaxEntries) codes_.clear();
    return codes_.emplace(std::move(key), std::move(compiled)).first->second.get();
}

} // namespace ZelServer
