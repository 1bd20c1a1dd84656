// Floating-point recursive Gaussian (third-order Young - van Vliet) of one
// line: coefficients per scale and the in-place forward/backward filter.
#pragma once

#include <cstdint>

#include "trv/stages.h"

namespace trv {

// Coefficients of one blur scale. Scales below 0.5, and NaN, get a fixed set.
TRVGauss3Coefs gauss3Coefs(float sigma);

// Lane order (b3/b0, b2/b0, b1/b0, B): multiplies (w[i], w[i+1], w[i+2], x[i]).
float32x4_t forwardCoefs(const TRVGauss3Coefs& c);
// Lane order (B, b1/b0, b2/b0, b3/b0): multiplies (w[j], r[j+1], r[j+2], r[j+3]).
float32x4_t backwardCoefs(const TRVGauss3Coefs& c);

// Four-lane product summed as (lane0 + lane1) + (lane2 + lane3); this order is
// part of every filtered value.
float dotLanes(float32x4_t values, float32x4_t coefs);

// Filters n >= 1 samples in place. On entry buf[3 .. n + 2] holds the line;
// buf has n + 3 floats. On return buf[0 .. n - 1] holds the result r[0 .. n-1]:
// forward w[0..2] = x[0], w[i+3] = B x[i] + b1 w[i+2] + b2 w[i+1] + b3 w[i];
// backward r[n..n+2] = w[n+2], r[j] = B w[j] + b1 r[j+1] + b2 r[j+2] + b3 r[j+3].
// The backward pass reads w[j], not w[j + 3], so the result lags the input by
// three samples; that alignment is intended.
void blurLine(float* buf, int n, float32x4_t forward, float32x4_t backward);

// A filtered value as a byte: r + 0.5 truncated, saturated to 0 .. 255 (the
// filter stays in range up to float rounding; saturation keeps a stray
// overshoot from wrapping around).
inline uint8_t blurByte(float r) {
    const int v = static_cast<int>(r + 0.5f);
    return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

}  // namespace trv
