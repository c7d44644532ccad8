// The Python side of a crash report: the calling thread's Python error and
// stack, written with write() alone, since it runs inside a fatal-signal
// handler where nothing may allocate or take a lock. (From 3.11 the stack
// can be walked only through accessors that may make a frame object on the
// way; the exception's str() has always called into the interpreter.)
#include "module/core/Module.h"
#include "support/PyCompatFrames.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

void writeAll(int fd, char const* s, size_t n) {
    while (n > 0) {
        ssize_t w = ::write(fd, s, n);
        if (w <= 0) return;
        s += w;
        n -= static_cast<size_t>(w);
    }
}

void writeStr(int fd, char const* s) { writeAll(fd, s, std::strlen(s)); }

// A line formatted into `line` by snprintf, which returned `n`: as much of it
// as the buffer holds.
void writeLine(int fd, char const (&line)[2000], int n) {
    if (n > 0) writeAll(fd, line, static_cast<size_t>(n) < sizeof line ? static_cast<size_t>(n) : sizeof line - 1);
}

// The text of a code object's name or file name, cut to fit `out`, or
// `fallback` when it is not a string.
char const* textOr(PyObject* o, char const* fallback, char (&out)[2000]) {
    size_t n = 0;
    bool const isText = Zel::compat::writeText(o, [&](char const* p, size_t len) {
        size_t const room = sizeof out - 1 - n;
        std::memcpy(out + n, p, len < room ? len : room);
        n += len < room ? len : room;
    });
    out[n] = '\0';
    return isText ? out : fallback;
}

PyCodeObject* codeOf(Zel::PyRef const& code) { return reinterpret_cast<PyCodeObject*>(code.get()); }

} // namespace

extern "C" void printPythonBacktrace(int fd) {
    static char const kNone[] = "\nNo Python traceback available\n";
    PyThreadState* ts = PyGILState_GetThisThreadState();
    if (!ts) {
        writeStr(fd, kNone);
        return;
    }
    char line[2000];
    char file[2000];
    char name[2000];
    // The error being raised, else the one being handled.
    Zel::compat::ThreadError const raised = Zel::compat::raisedError(ts);
    Zel::compat::ThreadError const handled = Zel::compat::handledError(ts);
    PyObject* tb = raised.traceback ? raised.traceback : handled.traceback;
    PyObject* type = raised.traceback || raised.value ? raised.type : handled.type;
    PyObject* value = raised.traceback || raised.value ? raised.value : handled.value;
    if (tb) {
        writeStr(fd, "Current Python exception (most recent call LAST):\n");
        if (Py_TYPE(tb) == &PyTraceBack_Type) {
            for (auto* t = reinterpret_cast<PyTracebackObject*>(tb); t; t = t->tb_next) {
                Zel::PyRef const code = Zel::compat::frameCode(reinterpret_cast<PyObject*>(t->tb_frame));
                int const n = std::snprintf(line, sizeof line, "  File \"%.500s\", line %d, in %.500s\n",
                                            textOr(codeOf(code)->co_filename, "<unknown>", file), t->tb_lineno,
                                            textOr(codeOf(code)->co_name, "<unknown>", name));
                writeLine(fd, line, n);
            }
        } else {
            writeStr(fd, "Internal error: PyThreadState contains an invalid traceback\n");
        }
    }
    if (value) {
        writeStr(fd, type && PyType_Check(type) ? reinterpret_cast<PyTypeObject*>(type)->tp_name
                                                 : Py_TYPE(value)->tp_name);
        writeStr(fd, ": ");
        PyObject* s = Zel::compat::mayCallInto(ts) ? PyObject_Str(value) : nullptr;
        if (!Zel::compat::writeText(s, [&](char const* p, size_t n) { writeAll(fd, p, n); })) {
            writeStr(fd, "(failed to get exception error message)");
        }
        Py_XDECREF(s);
        writeStr(fd, "\n");
    }
    Zel::PyRef frame = Zel::compat::threadFrame(ts);
    if (frame) {
        writeStr(fd, "\nPython traceback (most recent call FIRST):\n");
        for (; frame; frame = Zel::compat::frameBack(frame.get())) {
            Zel::PyRef const code = Zel::compat::frameCode(frame.get());
            int const n = std::snprintf(line, sizeof line, "  File \"%s\", line %d, in %s\n",
                                        textOr(codeOf(code)->co_filename, "<unknown>", file),
                                        Zel::compat::frameLine(frame.get()), textOr(codeOf(code)->co_name, "<unknown>", name));
            writeLine(fd, line, n);
        }
        return;
    }
    writeStr(fd, kNone);
}
