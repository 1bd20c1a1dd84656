// Division of 8 uint16 sums by a frame count (1 .. 6), narrowed to 8 bits by
// keeping the low byte. 1, 2 and 4 are shifts with rounding; 3, 5 and 6 are
// one float multiply and one add per lane with the truncated factors of the
// load-time constants.
#include "trv/stages.h"

namespace {

// trunc(0.5 + v * factor) in single precision. The multiply and the add are
// two separately rounded operations (never fused) so that every CPU gives the
// same bits.
uint8x8_t divideByFactor(uint16x8_t v, float32x4_t factor) {
    float32x4_t lo = vcvtq_f32_u32(vmovl_u16(vget_low_u16(v)));
    float32x4_t hi = vcvtq_f32_u32(vmovl_u16(vget_high_u16(v)));
    lo = vaddq_f32(CONST0_5, vmulq_f32(lo, factor));
    hi = vaddq_f32(CONST0_5, vmulq_f32(hi, factor));
    uint16x8_t q = vcombine_u16(vmovn_u32(vcvtq_u32_f32(lo)), vmovn_u32(vcvtq_u32_f32(hi)));
    return vmovn_u16(q);
}

}  // namespace

extern "C" {

// Until the first fusion chooses, the routines match the initial count of
// five other frames.
uint8x8_t (*pfun24)(uint16x8_t) = Divfun5;
uint8x8_t (*pfun16)(uint16x8_t) = Divfun6;

uint8x8_t Divfun1(uint16x8_t v) { return vmovn_u16(v); }
uint8x8_t Divfun2(uint16x8_t v) { return vrshrn_n_u16(v, 1); }
uint8x8_t Divfun3(uint16x8_t v) { return divideByFactor(v, CONST0_3_3); }
uint8x8_t Divfun4(uint16x8_t v) { return vrshrn_n_u16(v, 2); }
uint8x8_t Divfun5(uint16x8_t v) { return divideByFactor(v, CONST0_2); }
uint8x8_t Divfun6(uint16x8_t v) { return divideByFactor(v, CONST0_1_6_7); }

// pfun24 divides by the count of other frames, pfun16 by that count plus the
// reference. Counts outside 1 .. 5 keep the previous choice.
void setfunc(void) {
    using Divider = uint8x8_t (*)(uint16x8_t);
    static const Divider byCount[7] = {nullptr, Divfun1, Divfun2, Divfun3, Divfun4, Divfun5, Divfun6};
    if (gNum < 1 || gNum > 5) return;
    pfun24 = byCount[gNum];
    pfun16 = byCount[gNum + 1];
}

}  // extern "C"
