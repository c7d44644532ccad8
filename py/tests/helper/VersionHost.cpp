// Embeds the interpreter while claiming to be Python 2.6: exported from the
// executable, this Py_GetVersion is the one libZelPy's call resolves to.
#include <Python.h>

#include "support/PyCompat.h"

extern "C" __attribute__((visibility("default"))) const char* Py_GetVersion(void) {
    return "2.6.9 (test host)";
}

int main() {
    Zel::compat::initializeWithoutSite();
    int rc = PyRun_SimpleString("import _Zel\n");
    Py_Finalize();
    // Reaching here means the version check let the import through.
    return rc == 0 ? 0 : 2;
}
