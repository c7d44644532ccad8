// The _Zel extension module's entry point.
#pragma once

#include <Python.h>

#include "Zel/Visibility.h"

// Named as each interpreter looks for it: init_Zel on 2.7, PyInit__Zel on 3.
#if PY_MAJOR_VERSION >= 3
extern "C" ZEL_API PyObject* PyInit__Zel();
#else
extern "C" ZEL_API void init_Zel();
#endif
