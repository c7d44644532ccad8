// _ZelBench: a Python extension module used by bench/py_attr_bench.py.
// noop() is the cheapest METH_VARARGS call CPython can make into native
// code; the harness divides every other timing by it to get ratios that
// travel between machines.
#include <Python.h>

namespace {

PyObject* noop(PyObject* /*self*/, PyObject* /*args*/) {
    Py_RETURN_NONE;
}

PyMethodDef functions[] = {
    {"noop", noop, METH_VARARGS, "return None, parsing nothing (the cost floor of a native call)"},
    {nullptr, nullptr, 0, nullptr},
};

} // namespace

extern "C" __attribute__((visibility("default"))) void init_ZelBench() {
    Py_InitModule3("_ZelBench", functions, "Native call floor for the module benchmarks");
}
