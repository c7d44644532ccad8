#include "Zel/Format.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace Zel {

String8 format(char const* fmt, ...) {
    char small[256];
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(small, sizeof small, fmt, ap);
    va_end(ap);
    if (n < 0) return String8();
    if (static_cast<size_t>(n) < sizeof small) return String8(small, static_cast<size_t>(n));
    std::string big(static_cast<size_t>(n) + 1, '\0');
    va_start(ap, fmt);
    vsnprintf(big.data(), big.size(), fmt, ap);
    va_end(ap);
    big.resize(static_cast<size_t>(n));
    return String8(std::move(big));
}

double now() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

} // namespace Zel
