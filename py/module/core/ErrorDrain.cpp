// The pending Python error as text, for native callers that report it
// themselves (same-process commands, tools).
#include "module/core/Module.h"

using Zel::PyRef;
using Zel::String8;

void GetStringsFromPyErr(String8* type, String8* value, String8* traceback) {
    PyObject* parts[3] = {nullptr, nullptr, nullptr};
    PyErr_Fetch(&parts[0], &parts[1], &parts[2]);
    String8* outs[3] = {type, value, traceback};
    for (int i = 0; i < 3; ++i) {
        // The fetched references themselves are kept (never released).
        if (!parts[i] || !outs[i]) continue;
        PyRef s(PyObject_Str(parts[i]));
        if (!s) {
            PyErr_Clear();
            continue;
        }
        Zel::compat::StringBytes text(s.get());
        if (!text) {
            PyErr_Clear();
            continue;
        }
        *outs[i] = String8(text.data(), text.size());
    }
}
