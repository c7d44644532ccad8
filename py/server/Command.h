// One command of a connection, run with the interpreter lock held: "?1"
// evaluates the expression in the connection's namespace and answers
// repr() of the value; "?2" hands the code to the server's Python runner,
// which captures what it prints. Whatever the command raises (SystemExit
// included) is answered "EX" with the traceback from the server's Python
// formatter. No Python exception is left set on return. The console's
// kinds go to the connection's console object (ConsoleCommand.cpp). An
// expression's code runs interruptibly (Running.h). "?7" answers the
// server's stacks text; "?6" goes to watch().
#pragma once

#include <Python.h>

#include <string_view>

#include "CodeCache.h"
#include "FrameBuffer.h"
#include "Reply.h"

namespace ZelServer {

struct Handlers {
    PyObject* namespaceDict;   // the connection's globals (borrowed)
    PyObject* runExec;         // runExec(namespace, code) -> printed text
    PyObject* formatError;     // formatError(type, value, traceback) -> text
    // The connection's console (borrowed), or null: push(source) -> (0
    // done, 1 raised, 2 more input; text), complete(line) -> text,
    // banner() -> text.
    PyObject* console = nullptr;
    int fd = -1;               // the connection's socket, which names it to interrupt requests
    PyObject* watch = nullptr;   // watch(command): streams a watch until the client goes; or null
    PyObject* stacks = nullptr;  // stacks() -> every thread's stack as text; or null
};

// The result as a byte string: bytes (2.7's str) as they are, text as
// UTF-8 (on 3 the bytes a framework string escaped come back as they were;
// characters UTF-8 cannot hold are replaced), anything else through str().
// Null with a Python exception set when that fails.
PyRef asBytes(PyRef value);

// As eval() and exec do: a namespace without builtins gets this
// interpreter's, or code run in it would see next to none. False with a
// Python exception set when that fails.
bool ensureBuiltins(PyObject* globals);

class Commands {
public:
    explicit Commands(Handlers const& h);

    // A long command (sent in parts) is compiled afresh, not cached.
    void run(FrameKind kind, std::string_view command, Reply& reply, bool isLong = false);
    // Hands a watch request to the server's watch, which answers it and
    // streams on the socket itself until the client goes; `reply` is left
    // empty, or set when the watch could not run at all.
    void watch(std::string_view command, Reply& reply);

private:
    // The command's result, or null with a Python exception set; `status`
    // is the reply's when it succeeds.
    PyObject* call(FrameKind kind, std::string_view command, std::string_view& status, bool isLong);
    PyObject* evaluate(std::string_view command, bool isLong);
    PyObject* execute(std::string_view command, bool isLong);
    PyObject* consoleInput(std::string_view source, std::string_view& status);
    PyObject* complete(std::string_view line);
    PyObject* control(std::string_view request);
    PyObject* stacks();
    // Sets `reply` from a command's result (with `status`), or from the
    // pending exception when it is null.
    void answer(PyRef result, std::string_view status, Reply& reply);

    Handlers h_;
    CodeCache evalCodes_;
    CodeCache execCodes_;
};

} // namespace ZelServer
