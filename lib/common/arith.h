// Small arithmetic helpers shared by the stages.
#pragma once

#include <cstdint>

namespace trv {

// Integer division that is defined for a zero divisor: x / 0 gives 0, as the
// ARM integer divide does. Every other quotient is C's, truncating toward 0.
inline int32_t divOrZero(int32_t x, int32_t d) {
    if (d == 0) return 0;
    if (d == -1) return static_cast<int32_t>(0u - static_cast<uint32_t>(x));  // INT32_MIN / -1 wraps
    return x / d;
}

inline int32_t clampInt(int32_t v, int32_t lo, int32_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

inline int32_t absInt(int32_t v) { return v < 0 ? -v : v; }

// Planar luma (codes 0, 1, 4) against packed luma (every other code).
inline bool isPlanarLuma(int32_t format) { return format == 0 || format == 1 || format == 4; }

}  // namespace trv
