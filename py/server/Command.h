// One command of a connection, run with the interpreter lock held: "?1"
// evaluates the expression in the connection's namespace and answers
// repr() of the value; "?2" hands the code to the server's Python runner,
// which captures what it prints. Whatever the command raises (SystemExit
// included) is answered "EX" with the traceback from the server's Python
// formatter. No Python exception is left set on return.
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
};

class Commands {
public:
    explicit Commands(Handlers const& h);

    // A long command (sent in parts) is compiled afresh, not cached.
    void run(FrameKind kind, std::string_view command, Reply& reply, bool isLong = false);

private:
    PyObject* evaluate(std::string_view command, bool isLong);
    PyObject* execute(std::string_view command, bool isLong);
    void answer(PyObject* result, Reply& reply);

    Handlers h_;
    PyRef builtinsKey_;
    CodeCache evalCodes_;
    CodeCache execCodes_;
};

} // namespace ZelServer
