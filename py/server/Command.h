// One command of a connection, run with the interpreter lock held: "?1"
// evaluates the expression in the connection's namespace and answers
// repr() of the value; "?2" hands the code to the server's Python runner,
// which captures what it prints. Whatever the command raises (SystemExit
// included) is answered "EX" with the traceback from the server's Python
// formatter. No Python exception is left set on return. "?7" answers the
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
    PyObject* watch;           // watch(command): streams a watch until the client goes; or null
    PyObject* stacks;          // stacks() -> every thread's stack as text; or null
};

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
    PyObject* evaluate(std::string_view command, bool isLong);
    PyObject* execute(std::string_view command, bool isLong);
    PyObject* stacks();
    // Sets `reply` from a command's result, or from the pending exception
    // when it is null.
    void answer(PyRef result, Reply& reply);

    Handlers h_;
    PyRef builtinsKey_;
    CodeCache evalCodes_;
    CodeCache execCodes_;
};

} // namespace ZelServer
