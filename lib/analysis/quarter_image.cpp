// Quarter-scale luma images: each output pixel comes from a 2 x 2 block of
// input rows 4y + 1 and 4y + 2 of its 4 x 4 cell.
#include "common/threads.h"
#include "trv/stages.h"

namespace {

// Scalar rule: rounded mean of columns 4x + 1 and 4x + 2.
inline uint8_t quarterTail(const uint8_t* upper, const uint8_t* lower, int x) {
    return static_cast<uint8_t>((upper[4 * x + 1] + upper[4 * x + 2] + lower[4 * x + 1] + lower[4 * x + 2] + 2) >> 2);
}

// Bytes 2 and 3 of each 4-byte cell of the 32 bytes at p, as the low and
// high byte of 8 16-bit lanes.
inline uint16x8_t innerPairs(const uint8_t* p) {
    return vuzpq_u16(vreinterpretq_u16_u8(vld1q_u8(p)), vreinterpretq_u16_u8(vld1q_u8(p + 16))).val[1];
}

// h(a, b) = (a + b) >> 1 of the two bytes of each lane.
inline uint16x8_t halvedPairs(uint16x8_t pairs) {
    return vshrq_n_u16(vaddq_u16(vandq_u16(pairs, vdupq_n_u16(0xFF)), vshrq_n_u16(pairs, 8)), 1);
}

// The vector body's 8 outputs from 32 bytes of the upper and of the lower
// row: h(h(a2, a3), h(b2, b3)), one per 16-bit lane.
inline uint16x8_t cellAverages(const uint8_t* upper, const uint8_t* lower) {
    return vshrq_n_u16(vaddq_u16(halvedPairs(innerPairs(upper)), halvedPairs(innerPairs(lower))), 1);
}

}  // namespace

extern "C" {

void fillImageS_YV16_line(const unsigned char* row, unsigned char* out, int W) {
    const int q = W >> 2;
    if (q <= 0) return;  // no whole 4-pixel cell (a negative width included)
    const int body = q & ~7;
    const uint8_t* upper = row;
    const uint8_t* lower = row + W;
    // Vector body: columns 4x + 2 and 4x + 3, truncating halving averages,
    // 16 outputs a step and a last group of 8.
    int x = 0;
    for (; x + 16 <= body; x += 16) {
        const uint16x8_t lo = cellAverages(upper + 4 * x, lower + 4 * x);
        const uint16x8_t hi = cellAverages(upper + 4 * x + 32, lower + 4 * x + 32);
        vst1q_u8(out + x, vuzpq_u8(vreinterpretq_u8_u16(lo), vreinterpretq_u8_u16(hi)).val[0]);
    }
    if (x < body) {
        vst1_u8(out + x, vmovn_u16(cellAverages(upper + 4 * x, lower + 4 * x)));
        x += 8;
    }
    // Scalar tail: its own sampling and rounding, as the vector body's
    // results and the tail's must both be reproduced exactly.
    for (; x < q; ++x) out[x] = quarterTail(upper, lower, x);
}

void fillImageS_YV16(int i) {
    if (gH < 4 || gW < 4) return;
    const int W = gW;
    const int q = W >> 2;
    const int rows = gH >> 2;
    const uint8_t* src = gImgInArr[i];
    uint8_t* dst = gImgInSArr[i];
    for (int y = 0; y < rows; ++y) {
        fillImageS_YV16_line(src + static_cast<size_t>(4 * y + 1) * W, dst + static_cast<size_t>(y) * q, W);
    }
}

void fillImageS_YUV422(int i) {
    if (gH < 4 || gW < 4) return;
    const int W = gW;
    const int q = W >> 2;
    const int rows = gH >> 2;
    const size_t stride = 2 * static_cast<size_t>(W);
    const uint8_t* src = gImgInArr[i];
    uint8_t* dst = gImgInSArr[i];
    for (int y = 0; y < rows; ++y) {
        const uint8_t* upper = src + (4 * y + 1) * stride;
        const uint8_t* lower = upper + stride;
        for (int x = 0; x < q; ++x) {
            int sum = upper[8 * x + 2] + upper[8 * x + 4] + lower[8 * x + 2] + lower[8 * x + 4];
            dst[static_cast<size_t>(y) * q + x] = static_cast<uint8_t>((sum + 2) >> 2);
        }
    }
}

// Banded variant: frame arg / 10, band arg % 4. Bands 0..2 take H >> 4
// output rows each, band 3 the rest.
void* fillImageThread_YV16(void* arg) {
    const int value = *static_cast<int*>(arg);
    if (gH < 4 || gW < 4) return nullptr;
    const int frame = value / 10;
    const int band = value % 4;
    const int W = gW;
    const int q = W >> 2;
    const int s = gH >> 4;
    const int first = band * s;
    const int rows = band < 3 ? s : (gH - 12 * s) >> 2;
    const uint8_t* src = gImgInArr[frame];
    uint8_t* dst = gImgInSArr[frame];
    for (int k = 0; k < rows; ++k) {
        const int y = first + k;
        fillImageS_YV16_line(src + static_cast<size_t>(4 * y + 1) * W, dst + static_cast<size_t>(y) * q, W);
    }
    return nullptr;
}

void RunFillImage(int i) {
    const int args[4] = {10 * i, 10 * i + 1, 10 * i + 2, 10 * i + 3};
    trv::runWorkers(fillImageThread_YV16, args, 4);
}

}  // extern "C"
