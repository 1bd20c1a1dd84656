#include "tone/blur_line.h"

#include <cmath>

namespace trv {

TRVGauss3Coefs gauss3Coefs(float sigma) {
    TRVGauss3Coefs c;
    c.order = 3;
    c.sigma = sigma;
    if (!(sigma >= 0.5f)) {  // small scale or NaN
        c.B = 0.8402931817149808;
        c.b1_b0 = 0.17040202155449766;
        c.b2_b0 = -0.01103503914132615;
        c.b3_b0 = 0.00033983587184773943;
        c.b0 = 1.87821364402771;
        return c;
    }
    // Single precision throughout, except the square root of the mid range.
    float q;
    if (sigma >= 2.5f) {
        q = 0.98711f * sigma - 0.9633f;
    } else {
        q = static_cast<float>(3.97156f - 4.14554f * std::sqrt(static_cast<double>(1.0f - 0.26891f * sigma)));
    }
    const float q2 = q * q;
    const float q3 = q2 * q;
    const float b0 = 1.57825f + 2.44413f * q + 1.4281f * q2 + 0.422205f * q3;
    const float b1 = 2.44413f * q + 2.85619f * q2 + 1.26661f * q3;
    const float b2 = -(1.4281f * q2 + 1.26661f * q3);
    const float b3 = 0.422205f * q3;
    // Normalisation in double.
    const double d0 = b0;
    c.b0 = d0;
    c.b1_b0 = b1 / d0;
    c.b2_b0 = b2 / d0;
    c.b3_b0 = b3 / d0;
    c.B = 1.0 - (static_cast<double>(b1) + b2 + b3) / d0;
    return c;
}

float32x4_t forwardCoefs(const TRVGauss3Coefs& c) {
    const float lanes[4] = {static_cast<float>(c.b3_b0), static_cast<float>(c.b2_b0), static_cast<float>(c.b1_b0),
                            static_cast<float>(c.B)};
    return vld1q_f32(lanes);
}

float32x4_t backwardCoefs(const TRVGauss3Coefs& c) {
    const float lanes[4] = {static_cast<float>(c.B), static_cast<float>(c.b1_b0), static_cast<float>(c.b2_b0),
                            static_cast<float>(c.b3_b0)};
    return vld1q_f32(lanes);
}

float dotLanes(float32x4_t values, float32x4_t coefs) {
    const float32x4_t p = vmulq_f32(values, coefs);
    const float32x2_t pairs = vpadd_f32(vget_low_f32(p), vget_high_f32(p));  // (l0 + l1, l2 + l3)
    return vget_lane_f32(vpadd_f32(pairs, pairs), 0);
}

void blurLine(float* buf, int n, float32x4_t forward, float32x4_t backward) {
    // Forward: the raw sample x[i] waits in buf[i + 3], the slot its filtered
    // value w[i + 3] replaces, so one load gathers (w[i], w[i+1], w[i+2], x[i]).
    buf[0] = buf[1] = buf[2] = buf[3];
    for (int i = 0; i < n; ++i) buf[i + 3] = dotLanes(vld1q_f32(buf + i), forward);
    // Backward, in place: slots n .. n+2 start at w[n + 2]; r[j] overwrites
    // w[j], which no later step reads.
    const float tail = buf[n + 2];
    buf[n] = buf[n + 1] = buf[n + 2] = tail;
    for (int j = n - 1; j >= 0; --j) buf[j] = dotLanes(vld1q_f32(buf + j), backward);
}

}  // namespace trv
