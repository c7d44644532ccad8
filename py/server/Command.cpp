// Running one command of a connection (see Command.h).
#include "Command.h"

#include <cstring>

#include "Running.h"
#include "support/PyCompat.h"

namespace ZelServer {

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

namespace {

// A new reference to `code`: the cache may drop its own while the command
// runs.
PyRef hold(PyObject* code) {
    Py_XINCREF(code);
    return PyRef(code);
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

bool ensureBuiltins(PyObject* globals) {
    // Interned once, and kept for the life of the process.
    static PyObject* const key = Zel::compat::interned("__builtins__");
    if (!key) return false;
    return PyDict_GetItem(globals, key) || PyDict_SetItem(globals, key, PyEval_GetBuiltins()) == 0;
}

Commands::Commands(Handlers const& h) : h_(h), evalCodes_(Py_eval_input), execCodes_(Py_file_input) {}

PyObject* Commands::evaluate(std::string_view command, bool isLong) {
    PyRef code = isLong ? evalCodes_.compiled(command) : hold(evalCodes_.code(command));
    if (!code || !ensureBuiltins(h_.namespaceDict)) return nullptr;
    PyRef value;
    {
        InterruptibleCode interruptible;
        if (!interruptible.mayStart()) return nullptr;
        value = PyRef(interruptible.ended(
            Zel::compat::evalCode(code.get(), h_.namespaceDict, h_.namespaceDict)));
    }
    if (!value) return nullptr;
    return PyObject_Repr(value.get());
}

PyObject* Commands::execute(std::string_view command, bool isLong) {
    PyRef code = isLong ? execCodes_.compiled(command) : hold(execCodes_.code(command));
    if (!code) return nullptr;
    return PyObject_CallFunctionObjArgs(h_.runExec, h_.namespaceDict, code.get(), nullptr);
}

PyObject* Commands::stacks() {
    if (!h_.stacks) {
        PyErr_SetString(PyExc_NotImplementedError, "this server does not show stacks");
        return nullptr;
    }
    return PyObject_CallFunctionObjArgs(h_.stacks, nullptr);
}

void Commands::watch(std::string_view command, Reply& reply) {
    reply.clear();
    PyRef text(Zel::compat::text(command.data(), command.size()));
    if (!h_.watch) {
        PyErr_SetString(PyExc_NotImplementedError, "this server does not stream watches");
    } else if (text && PyRef(PyObject_CallFunctionObjArgs(h_.watch, text.get(), nullptr))) {
        return;
    }
    answer(PyRef(), Zel::wire::kOk, reply);
}

PyObject* Commands::call(FrameKind kind, std::string_view command, std::string_view& status, bool isLong) {
    switch (kind) {
    case FrameKind::Eval: return evaluate(command, isLong);
    case FrameKind::Exec: return execute(command, isLong);
    case FrameKind::Console: return consoleInput(command, status);
    case FrameKind::Complete: return complete(command);
    case FrameKind::Control: return control(command);
    case FrameKind::Stacks: return stacks();
    case FrameKind::Greeting:
    case FrameKind::Part:
    case FrameKind::Watch: break;   // the serving loop hands a watch to watch()
    }
    PyErr_SetString(PyExc_RuntimeError, "not a command");
    return nullptr;
}

void Commands::run(FrameKind kind, std::string_view command, Reply& reply, bool isLong) {
    std::string_view status = Zel::wire::kOk;
    PyRef result(call(kind, command, status, isLong));
    answer(std::move(result), status, reply);
}

void Commands::answer(PyRef result, std::string_view status, Reply& reply) {
    PyRef text = asBytes(std::move(result));
    bool ok = bool(text);
    if (!ok) text = describePending(h_.formatError);
    if (!text) {
        PyErr_Clear();
        reply.set(Zel::wire::kError, "the command failed and its traceback could not be built\n");
        return;
    }
    std::string_view payload(PyBytes_AS_STRING(text.get()), size_t(PyBytes_GET_SIZE(text.get())));
    if (!reply.set(ok ? status : Zel::wire::kError, payload)) {
        reply.set(Zel::wire::kError, "the result is too large for a reply\n");
    }
}

} // namespace ZelServer
