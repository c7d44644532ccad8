// Tracing: named handles with levels 0 to 9, enabled from the environment
// (ZELTRACE="PyClient/0-9,Demo/1"; lines go to standard error, or to the
// file named by ZELTRACEFILE). A suppressed line costs one test of a bit
// cached in the handle.
#pragma once

#include <atomic>
#include <sstream>

#include "Zel/Entity.h"

namespace Zel {

class ZEL_API TraceHandle : public Entity {
public:
    // The handle of that name, created on first use.
    static Ptr<TraceHandle> traceHandle(String8 const& name);
    // The handle used when no object is given.
    static TraceHandle* defaultHandle();

    explicit TraceHandle(Name name);
    ZelType const* fwkType() const override { return &_zelType; }

    bool enabled(int level) const { return level >= 0 && level <= 9 && (levelMask() >> level & 1); }
    // Bit n set: level n is traced. Read by tracing threads with or
    // without the activity lock while a reload may rewrite it: an atomic
    // word, relaxed since only the bits themselves matter.
    uint16_t levelMask() const { return mask_.load(std::memory_order_relaxed); }
    void levelMaskIs(uint16_t mask) { mask_.store(mask, std::memory_order_relaxed); }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

private:
    std::atomic<uint16_t> mask_{0};
};

// The handle whose settings apply to `object`: the object itself when it
// is a TraceHandle, otherwise the default handle.
ZEL_API TraceHandle* traceHandleOf(PtrInterface const* object);

// Writes one trace line when `level` is enabled on the object's handle:
// time, pid, handle/level, file:line function: message.
ZEL_API void trace_h(PtrInterface* object, char const* file, int line, char const* function,
                     String8 const& message, int level);
ZEL_API bool traceLineSuppressed(PtrInterface* object, int level);
// Writes the line whatever the handle's levels (reports that must not be lost).
ZEL_API void traceLineWrite(TraceHandle const* handle, char const* file, int line,
                            char const* function, String8 const& message, int level);
// Reads ZELTRACE and ZELTRACEFILE again and re-applies them to every handle
// (they are otherwise read once, when the first handle is made).
ZEL_API void traceSettingsReload();

} // namespace Zel

// ZEL_TRACE(handlePtr, level, "function", "text " << value): the stream
// expression is built only when the level is enabled.
#define ZEL_TRACE(handle, level, function, expr)                                          \
    do {                                                                                  \
        ::Zel::PtrInterface* zelTraceH_ = (handle);                                       \
        if (!::Zel::traceLineSuppressed(zelTraceH_, (level))) {                           \
            std::ostringstream zelTraceS_;                                                \
            zelTraceS_ << expr;                                                           \
            ::Zel::trace_h(zelTraceH_, __FILE__, __LINE__, (function),                    \
                           ::Zel::String8(zelTraceS_.str()), (level));                    \
        }                                                                                 \
    } while (0)
