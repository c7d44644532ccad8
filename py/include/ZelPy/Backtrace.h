// Backtrace objects: a framework native stack record seen from Python.
#pragma once

#include <Python.h>

#include "Zel/Exception.h"
#include "Zel/Visibility.h"

// A new Backtrace holding `backtrace`, with `what` (may be null) as the
// message of the exception that carried it. Caller holds the interpreter lock.
ZEL_API PyObject* PyBacktrace_FromBacktrace(Zel::Ptr<Zel::Backtrace> const& backtrace, PyObject* what);

// Readies the Backtrace type and adds it to `module`, once per process;
// never raises.
ZEL_API void initBacktrace(PyObject* module);
