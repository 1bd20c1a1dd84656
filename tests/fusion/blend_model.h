// Plain scalar models of the blending rules, written from their description
// and shared by the kernel, simple-fusion and burst tests.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "trv/stages.h"

namespace blendmodel {

inline int clampTo(int v, int lo, int hi) { return std::min(std::max(v, lo), hi); }

// Frame-count tables for n other frames, as the fusion driver builds them.
inline void setFrameCount(int n) {
    gNum = n;
    for (int v = -120; v <= 120; ++v) {
        divNUM[v + 120] = n > 0 ? v / n : 0;
        divNUM_1[v + 120] = v / (n + 1);
    }
    setfunc();
}

// Vector division of a sum by d, keeping the low byte.
inline uint8_t vectorDivide(unsigned v, int d) {
    switch (d) {
        case 1: return static_cast<uint8_t>(v);
        case 2: return static_cast<uint8_t>((v + 1) >> 1);
        case 4: return static_cast<uint8_t>((v + 2) >> 2);
        default: break;
    }
    const float factor = d == 3 ? 0.3334f : d == 5 ? 0.2f : 0.1667f;
    const float product = static_cast<float>(v) * factor;
    const float rounded = 0.5f + product;
    return static_cast<uint8_t>(static_cast<uint32_t>(rounded));
}

// Vector luma rule for n >= 2, pair mean for n = 1.
inline uint8_t vectorLuma(int x, const int* f, int n) {
    if (n == 1) return static_cast<uint8_t>((x + clampTo(f[0], std::max(x - 16, 0), std::min(x + 16, 255)) + 1) >> 1);
    unsigned s24 = 0, s16 = static_cast<unsigned>(x);
    for (int k = 0; k < n; ++k) {
        s24 += static_cast<unsigned>(clampTo(f[k], std::max(x - 24, 0), std::min(x + 24, 255)));
        s16 += static_cast<unsigned>(clampTo(f[k], std::max(x - 16, 0), std::min(x + 16, 255)));
    }
    if (std::abs(static_cast<int>(s24) - n * x) >= 16 * n) return vectorDivide(s24, n);
    return vectorDivide(s16, n + 1);
}

// Scalar luma rule: truncating division, ">" instead of ">="; one frame
// keeps its rounded pair mean.
inline uint8_t tailLuma(int x, const int* f, int n) {
    if (n == 1) return static_cast<uint8_t>((clampTo(f[0] - x, -16, 16) + 2 * x + 1) >> 1);
    int d24 = 0, d16 = 0;
    for (int k = 0; k < n; ++k) {
        const int d = clampTo(x - f[k], -24, 24);
        d24 += d;
        d16 += clampTo(d, -16, 16);
    }
    if (std::abs(d24) <= 16 * n) return static_cast<uint8_t>(x - d16 / (n + 1));
    return static_cast<uint8_t>(x - d24 / n);
}

inline uint8_t vectorChroma(int c, const int* f, int n) {
    unsigned s = static_cast<unsigned>(c);
    for (int k = 0; k < n; ++k) s += static_cast<unsigned>(clampTo(f[k], std::max(c - 10, 0), std::min(c + 10, 255)));
    return vectorDivide(s, n + 1);
}

// Scalar chroma rule, for every frame count (no pair-mean tail).
inline uint8_t tableChroma(int c, const int* f, int n) {
    int s = 0;
    for (int k = 0; k < n; ++k) s += clampTo(c - f[k], -10, 10);
    return static_cast<uint8_t>(c - s / (n + 1));
}

}  // namespace blendmodel
