// The _Zel extension module's entry point.
#pragma once

#include <Python.h>

#include "Zel/Visibility.h"

extern "C" ZEL_API void init_Zel();
