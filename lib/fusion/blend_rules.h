// Per-pixel blending rules of the scalar paths (kernel tails and the
// reflected border strips): differences to the reference clamped, summed and
// divided by table, truncating toward zero.
#pragma once

#include <cstdint>

#include "common/arith.h"
#include "trv/stages.h"

namespace trv {

// The tables and the per-frame arrays hold at most five frames besides the
// reference; larger counts are served with the first five.
constexpr int kMaxAlignedFrames = 5;

inline int alignedFrameCount() {
    if (gNum < 0) return 0;
    return gNum < kMaxAlignedFrames ? gNum : kMaxAlignedFrames;
}

// Luma of one pixel from the reference x and n aligned samples f: the
// frames-only mean when their clamped differences sum beyond 16 n, the mean
// with the reference otherwise.
inline uint8_t lumaByTable(int x, const int* f, int n) {
    if (n < 1) return static_cast<uint8_t>(x);
    int d24 = 0, d16 = 0;
    for (int k = 0; k < n; ++k) {
        const int d = clampInt(x - f[k], -24, 24);
        d24 += d;
        d16 += DIFFY_1[d + 24];
    }
    // 16 n compared as an unsigned 16-bit value, as the vector lanes hold it.
    const int limit = static_cast<uint16_t>(16 * n);
    if (absInt(d24) > limit) return static_cast<uint8_t>(x - divNUM[d24 + 120]);
    return static_cast<uint8_t>(x - divNUM_1[d16 + 120]);
}

// Chroma of one sample: mean of c and the n samples clamped to c +- 10.
inline uint8_t chromaByTable(int c, const int* f, int n) {
    if (n < 1) return static_cast<uint8_t>(c);
    int sum = 0;
    for (int k = 0; k < n; ++k) sum += clampInt(c - f[k], -10, 10);
    return static_cast<uint8_t>(c - divNUM_1[sum + 120]);
}

// Luma with one other frame: the rounded mean of x and f clamped to x +- 16.
// Chroma has no such rule; it keeps the table division.
inline uint8_t lumaPairMean(int x, int f) {
    return static_cast<uint8_t>((clampInt(f - x, -16, 16) + 2 * x + 1) >> 1);
}

}  // namespace trv
