// Small helpers: printf-like formatting into String8, the monotonic clock,
// and the framework's 32-bit integer hash.
#pragma once

#include <cstdint>

#include "Zel/String8.h"

namespace Zel {

ZEL_API String8 format(char const* fmt, ...) __attribute__((format(printf, 1, 2)));

// Seconds since an arbitrary fixed point, from the monotonic clock.
ZEL_API double now();

// A 32-bit integer mix (the finaliser of a well-known 64-bit hash, folded).
inline uint32_t zelHashU32(uint64_t v) {
    v ^= v >> 33;
    v *= 0xff51afd7ed558ccdull;
    v ^= v >> 33;
    v *= 0xc4ceb9fe1a85ec53ull;
    v ^= v >> 33;
    return static_cast<uint32_t>(v);
}
inline uint32_t zelHashU32(void const* p) { return zelHashU32(reinterpret_cast<uintptr_t>(p)); }

// Reverses the order of the 32 bits (bit 0 becomes bit 31).
inline uint32_t reverseBits(uint32_t v) {
    v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
    v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
    v = ((v >> 4) & 0x0f0f0f0fu) | ((v & 0x0f0f0f0fu) << 4);
    v = ((v >> 8) & 0x00ff00ffu) | ((v & 0x00ff00ffu) << 8);
    return (v >> 16) | (v << 16);
}

} // namespace Zel
