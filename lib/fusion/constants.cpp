// Vector constants shared by the library's NEON code, and the clamp table of
// the blending tails. The vectors are filled by a load-time initialiser,
// before any exported function can run.
#include <cstring>

#include "trv/stages.h"

extern "C" {
float32x4_t CONST0_5;
float32x4_t CONST0_3_3;
float32x4_t CONST0_2;
float32x4_t CONST0_1_6_7;
uint8x8_t CONST_16;
uint8x8_t CONST_24;
uint8x8_t CONST_10;
uint8x8_t CONST_255;
uint8x8_t CONST_0;
int16x8_t CONST_1;
int16x8_t CONST_2;
int16x8_t MIN10;
int16x8_t MAX10;
int16x8_t MIN16;
int16x8_t MAX16;
int16x8_t MIN24;
int16x8_t MAX24;
uint16x8_t U16MIN16;
uint16x8_t U16MAX25;
uint16x8_t U16MAX1;
uint16x8_t NUM_16;  // filled by each fusion with 16 x the previous frame count

// clamp(d, -16, 16) for d = -24 .. 24 at index d + 24.
const int32_t DIFFY_1[49] = {
    -16, -16, -16, -16, -16, -16, -16, -16, -16,                                  // -24 .. -16
    -15, -14, -13, -12, -11, -10, -9,  -8,  -7,  -6, -5, -4, -3, -2, -1, 0,       // -15 .. 0
    1,   2,   3,   4,   5,   6,   7,   8,   9,   10, 11, 12, 13, 14, 15,           // 1 .. 15
    16,  16,  16,  16,  16,  16,  16,  16,  16,                                   // 16 .. 24
};
}

namespace {

// The division factors are given by their exact single-precision bit
// patterns: 0.3334 and 0.1667 are deliberately not 1/3 and 1/6.
float32x4_t floatFromBits(uint32_t bits) { return vreinterpretq_f32_u32(vdupq_n_u32(bits)); }

struct VectorConstantsInit {
    VectorConstantsInit() {
        CONST0_5 = floatFromBits(0x3F000000u);
        CONST0_3_3 = floatFromBits(0x3EAAB368u);
        CONST0_2 = floatFromBits(0x3E4CCCCDu);
        CONST0_1_6_7 = floatFromBits(0x3E2AB368u);
        CONST_16 = vdup_n_u8(16);
        CONST_24 = vdup_n_u8(24);
        CONST_10 = vdup_n_u8(10);
        CONST_255 = vdup_n_u8(255);
        CONST_0 = vdup_n_u8(0);
        CONST_1 = vdupq_n_s16(1);
        CONST_2 = vdupq_n_s16(2);
        MIN10 = vdupq_n_s16(-10);
        MAX10 = vdupq_n_s16(10);
        MIN16 = vdupq_n_s16(-16);
        MAX16 = vdupq_n_s16(16);
        MIN24 = vdupq_n_s16(-24);
        MAX24 = vdupq_n_s16(24);
        U16MIN16 = vdupq_n_u16(16);
        U16MAX25 = vdupq_n_u16(25);
        U16MAX1 = vdupq_n_u16(1);
    }
};

const VectorConstantsInit vectorConstantsInit;

}  // namespace
