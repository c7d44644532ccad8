// The Python side of a crash report: the calling thread's Python error and
// stack, written with write() alone, since it runs inside a fatal-signal
// handler where nothing may allocate or take a lock.
#include "module/core/Module.h"

#include <frameobject.h>
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

char const* stringOr(PyObject* o, char const* fallback) {
    return o && PyString_Check(o) ? PyString_AS_STRING(o) : fallback;
}

} // namespace

extern "C" void printPythonBacktrace(int fd) {
    static char const kNone[] = "\nNo Python traceback available\n";
    PyThreadState* ts = PyGILState_GetThisThreadState();
    if (!ts) {
        writeStr(fd, kNone);
        return;
    }
    char line[2000];
    // The error being raised, else the one being handled.
    PyObject* tb = ts->curexc_traceback ? ts->curexc_traceback : ts->exc_traceback;
    PyObject* type = ts->curexc_traceback || ts->curexc_value ? ts->curexc_type : ts->exc_type;
    PyObject* value = ts->curexc_traceback || ts->curexc_value ? ts->curexc_value : ts->exc_value;
    if (tb) {
        writeStr(fd, "Current Python exception (most recent call LAST):\n");
        if (Py_TYPE(tb) == &PyTraceBack_Type) {
            for (auto* t = reinterpret_cast<PyTracebackObject*>(tb); t; t = t->tb_next) {
                PyCodeObject* code = t->tb_frame->f_code;
                std::snprintf(line, sizeof line, "  File \"%.500s\", line %d, in %.500s\n",
                              stringOr(code->co_filename, "<unknown>"), t->tb_lineno,
                              stringOr(code->co_name, "<unknown>"));
                writeStr(fd, line);
            }
        } else {
            writeStr(fd, "Internal error: PyThreadState contains an invalid traceback\n");
        }
    }
    if (value) {
        writeStr(fd, type && PyType_Check(type) ? reinterpret_cast<PyTypeObject*>(type)->tp_name
                                                 : Py_TYPE(value)->tp_name);
        writeStr(fd, ": ");
        PyObject* s = PyObject_Str(value);
        if (s && PyString_Check(s)) {
            writeAll(fd, PyString_AS_STRING(s), static_cast<size_t>(PyString_GET_SIZE(s)));
        } else {
            writeStr(fd, "(failed to get exception error message)");
        }
        Py_XDECREF(s);
        writeStr(fd, "\n");
    }
    if (ts->frame) {
        writeStr(fd, "\nPython traceback (most recent call FIRST):\n");
        for (PyFrameObject* f = ts->frame; f; f = f->f_back) {
            PyCodeObject* code = f->f_code;
            std::snprintf(line, sizeof line, "  File \"%s\", line %d, in %s\n",
                          stringOr(code->co_filename, "<unknown>"), PyCode_Addr2Line(code, f->f_lasti),
                          stringOr(code->co_name, "<unknown>"));
            writeStr(fd, line);
        }
        return;
    }
    writeStr(fd, kNone);
}
