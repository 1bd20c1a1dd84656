// Division of 8 uint16 lanes by a frame count 1 .. 6, inline, with exactly
// the results of Divfun1 .. Divfun6 before their narrowing to 8 bits: the
// blending kernels call these in their inner loops instead of going through
// the pfun24 / pfun16 pointers when the pointers hold the usual routines.
#pragma once

#include "trv/stages.h"

namespace trv {

// trunc(y) for 0 <= y < 2^22. Adding 1.5 * 2^23 rounds y to the nearest
// integer exactly; one compare turns that into the truncation. (A plain
// float-to-integer conversion gives the same, but costs far more where the
// NEON intrinsics are emulated.)
inline uint32x4_t truncateSmall(float32x4_t y) {
    const float32x4_t magic = vdupq_n_f32(12582912.0f);
    const float32x4_t shifted = vaddq_f32(y, magic);
    const uint32x4_t nearest = vsubq_u32(vreinterpretq_u32_f32(shifted), vreinterpretq_u32_f32(magic));
    // All ones (minus one) where rounding went up.
    return vaddq_u32(nearest, vcgtq_f32(vsubq_f32(shifted, magic), y));
}

// Divfun3 / 5 / 6 on the lanes of v: trunc(0.5 + v * factor) in single
// precision, multiply and add rounded separately. Even and odd lanes are
// widened apart and put back in place.
inline uint16x8_t divideByFactorLanes(uint16x8_t v, float32x4_t factor, float32x4_t half) {
    const uint32x4_t words = vreinterpretq_u32_u16(v);
    const uint32x4_t even = vandq_u32(words, vdupq_n_u32(0xFFFF));
    const uint32x4_t odd = vshrq_n_u32(words, 16);
    const uint32x4_t qEven = truncateSmall(vaddq_f32(half, vmulq_f32(vcvtq_f32_s32(vreinterpretq_s32_u32(even)), factor)));
    const uint32x4_t qOdd = truncateSmall(vaddq_f32(half, vmulq_f32(vcvtq_f32_s32(vreinterpretq_s32_u32(odd)), factor)));
    // Quotients stay below 2^15, so each fits its 16-bit lane.
    return vreinterpretq_u16_u32(vorrq_u32(qEven, vshlq_n_u32(qOdd, 16)));
}

// Divfun3 / 5 / 6 with their load-time factors (0x3EAAB368, 0x3E4CCCCD,
// 0x3E2AB368) and 0.5, in integers: (v * M + K) >> S equals trunc(0.5 + v *
// factor) in single precision for every v up to 6 * 255, the largest sum
// the blending kernels divide (the tests check each such v). Far cheaper
// than float lanes where those are emulated.
template <int D>
struct IntegerQuotient;
template <>
struct IntegerQuotient<3> {
    static constexpr uint32_t kFactorBits = 0x3EAAB368u, K = 682;
    static constexpr uint16_t M = 683;
    static constexpr int S = 11;
};
template <>
struct IntegerQuotient<5> {
    static constexpr uint32_t kFactorBits = 0x3E4CCCCDu, K = 1944;
    static constexpr uint16_t M = 819;
    static constexpr int S = 12;
};
template <>
struct IntegerQuotient<6> {
    static constexpr uint32_t kFactorBits = 0x3E2AB368u, K = 2047;
    static constexpr uint16_t M = 683;
    static constexpr int S = 12;
};

// (v * M + K) >> S in 16-bit lanes: with v = 32 hi + lo it is (hi * M +
// ((lo * M + K) >> 5)) >> (S - 5), and for v up to 6 * 255 no term passes
// 16 bits (hi <= 47).
template <int D>
inline uint16x8_t divideByMultiply(uint16x8_t v) {
    using Q = IntegerQuotient<D>;
    const uint16x8_t high = vmulq_n_u16(vshrq_n_u16(v, 5), Q::M);
    const uint16x8_t low = vmlaq_n_u16(vdupq_n_u16(static_cast<uint16_t>(Q::K)), vandq_u16(v, vdupq_n_u16(31)), Q::M);
    return vshrq_n_u16(vaddq_u16(high, vshrq_n_u16(low, 5)), Q::S - 5);
}

// True when every lane of `value` holds the float with these bits.
inline bool allLanesAre(float32x4_t value, uint32_t bits) {
    uint32_t lanes[4];
    vst1q_u32(lanes, vreinterpretq_u32_f32(value));
    return lanes[0] == bits && lanes[1] == bits && lanes[2] == bits && lanes[3] == bits;
}

// The divisor D and, for 3, 5 and 6, the load-time factor Divfun D uses
// (in integers while the factor and 0.5 hold their load-time values; the
// process-wide constants can be changed, and then the float rule runs).
template <int D>
struct LaneDivider {
    static_assert(D >= 1 && D <= 6, "frame counts 1 .. 6");
    float32x4_t factor, half;

    bool integer = false;

    LaneDivider()
        : factor(D == 3 ? CONST0_3_3 : (D == 5 ? CONST0_2 : CONST0_1_6_7)), half(CONST0_5) {
        if constexpr (D == 3 || D == 5 || D == 6)
            integer = allLanesAre(factor, IntegerQuotient<D>::kFactorBits) && allLanesAre(half, 0x3F000000u);
    }

    // v at most 6 * 255.
    uint16x8_t operator()(uint16x8_t v) const {
        if (D == 1) return v;
        // (v + 1) >> 1 and (v + 2) >> 2 without overflow at the top of the range.
        if (D == 2) return vhaddq_u16(v, vdupq_n_u16(1));
        if (D == 4) return vshrq_n_u16(vhaddq_u16(v, vdupq_n_u16(2)), 1);
        if constexpr (D == 3 || D == 5 || D == 6) {
            if (integer) return divideByMultiply<D>(v);
        }
        return divideByFactorLanes(v, factor, half);
    }
};

}  // namespace trv
