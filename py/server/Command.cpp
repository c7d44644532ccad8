// Running one command of a connection (see Command.h).
#include "Command.h"

#include <cstring>

#include "support/PyCompat.h"

namespace ZelServer {

namespace {

// A new reference to `code`: the cache may drop its own while the command
// runs.
PyRef hold(PyObject* code) {
    Py_XINCREF(code);
    return PyRef(code);
}

// The result as a byte string: bytes (2.7's str) as they are, text as
// UTF-8 (on 3 the bytes a framework string escaped come back as they were;
// characters UTF-8 cannot hold are replaced), anything else through str().
// Null with a Python exception set when that fails.
PyRef asBytes(PyRef value) {
    if (!value || PyBytes_Check(value.get())) return value;
    if (PyUnicode_Check(value.get())) {
        if (Zel::compat::kPython3) {
            PyRef escaped(PyUnicode_AsEncodedString(value.get(), "utf-8", "surrogateescape"));
            if (escaped) return escaped;
            PyErr_Clear();
        }
        return PyRef(PyUnicode_AsEncodedString(value.get(), "utf-8", "replace"));
    }
    PyRef text(PyObject_Str(value.get()));
    if (!text || PyBytes_Check(text.get())) return text;
    return asBytes(std::move(text));
}

// The pending exception as bytes of text from the server's formatter; clears it.
// When the formatter itself fails, the exception's type name is all there
// is to tell.
PyRef describePending(PyObject* formatError) {
    PyObject *t, *v, *tb;
    PyErr_Fetch(&t, &v, &tb);
    PyErr_NormalizeException(&t, &v, &tb);
    PyRef type(t), value(v), trace(tb);
    if (!type) return asBytes(PyRef(Zel::compat::text("the command failed without an exception\n")));
    PyRef text = asBytes(PyRef(PyObject_CallFunctionObjArgs(formatError, type.get(), value ? value.get() : Py_None,
                                                            trace ? trace.get() : Py_None, nullptr)));
    if (text) return text;
    PyErr_Clear();
    char const* name = PyExceptionClass_Check(type.get()) ? PyExceptionClass_Name(type.get()) : "exception";
    if (char const* dot = std::strrchr(name, '.')) name = dot + 1;   // "exceptions.KeyError" reads as KeyError
    return asBytes(PyRef(Zel::compat::textFormat("%s (its traceback could not be formatted)\n", name)));
}

} // namespace

Commands::Commands(Handlers const& h)
    : h_(h), builtinsKey_(Zel::compat::interned("__builtins__")), evalCodes_(Py_eval_input),
      execCodes_(Py_file_input) {}

PyObject* Commands::evaluate(std::string_view command) {
    PyRef code = hold(evalCodes_.code(command));
    if (!code || !builtinsKey_) return nullptr;
    // As eval() does: a namespace without builtins gets this
    // interpreter's, or the command's frame would see next to none.
    if (!PyDict_GetItem(h_.namespaceDict, builtinsKey_.get()) &&
        PyDict_SetItem(h_.namespaceDict, builtinsKey_.get(), PyEval_GetBuiltins()) < 0) {
        return nullptr;
    }
    PyRef value(Zel::compat::evalCode(code.get(), h_.namespaceDict, h_.namespaceDict));
    if (!value) return nullptr;
    return PyObject_Repr(value.get());
}

PyObject* Commands::execute(std::string_view command) {
    PyRef code = hold(execCodes_.code(command));
    if (!code) return nullptr;
    return PyObject_CallFunctionObjArgs(h_.runExec, h_.namespaceDict, code.get(), nullptr);
}

void Commands::run(FrameKind kind, std::string_view command, Reply& reply) {
    PyRef text = asBytes(PyRef(kind == FrameKind::Eval ? evaluate(command) : execute(command)));
    bool ok = bool(text);
    if (!ok) text = describePending(h_.formatError);
    if (!text) {
        PyErr_Clear();
        reply.set(Zel::wire::kError, "the command failed and its traceback could not be built\n");
        return;
    }
    std::string_view payload(PyBytes_AS_STRING(text.get()), size_t(PyBytes_GET_SIZE(text.get())));
    if (!reply.set(ok ? Zel::wire::kOk : Zel::wire::kError, payload)) {
        reply.set(Zel::wire::kError, "the result is too large for a reply\n");
    }
}

} // namespace ZelServer
