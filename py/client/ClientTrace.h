// Trace lines of the client: all on the "PyClient" handle and all naming
// the client's source as "PyClient.cpp", whichever file emits them.
#pragma once

#include <sstream>

#include "Zel/Trace.h"
#include "ZelPy/PyClient.h"

#define PYCLIENT_TRACE(level, function, expr)                                                 \
    do {                                                                                      \
        ::Zel::PtrInterface* pyClientTraceH_ = ::Zel::PyClient::traceHandle();                \
        if (!::Zel::traceLineSuppressed(pyClientTraceH_, (level))) {                          \
            std::ostringstream pyClientTraceS_;                                               \
            pyClientTraceS_ << expr;                                                          \
            ::Zel::trace_h(pyClientTraceH_, "PyClient.cpp", __LINE__, (function),             \
                           ::Zel::String8(pyClientTraceS_.str()), (level));                   \
        }                                                                                     \
    } while (0)
