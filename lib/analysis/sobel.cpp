// Sharpness measure: mean L1 magnitude of the 3 x 3 Sobel pair over the whole
// image and over its central 6/8 x 6/8 region.
#include "common/arith.h"
#include "trv/stages.h"

namespace {

// Sums of |Gx| + |Gy|, kept as unsigned 32-bit so that a huge image wraps
// the way a 32-bit sum does instead of overflowing.
struct SobelSums {
    uint32_t inner = 0;
    uint32_t outer = 0;
};

inline int sobelMagnitude(const uint8_t* above, const uint8_t* row, const uint8_t* below, int c) {
    int gx = (above[c + 1] + 2 * row[c + 1] + below[c + 1]) - (above[c - 1] + 2 * row[c - 1] + below[c - 1]);
    int gy = (below[c - 1] + 2 * below[c] + below[c + 1]) - (above[c - 1] + 2 * above[c] + above[c + 1]);
    return (gx < 0 ? -gx : gx) + (gy < 0 ? -gy : gy);
}

// |Gx| and |Gy| of 8 consecutive positions starting at column c.
inline void sobelGroup(const uint8_t* above, const uint8_t* row, const uint8_t* below, int c, uint16x8_t* accX,
                       uint16x8_t* accY) {
    uint8x8_t aL = vld1_u8(above + c - 1), aC = vld1_u8(above + c), aR = vld1_u8(above + c + 1);
    uint8x8_t mL = vld1_u8(row + c - 1), mR = vld1_u8(row + c + 1);
    uint8x8_t bL = vld1_u8(below + c - 1), bC = vld1_u8(below + c), bR = vld1_u8(below + c + 1);
    // Column sums left and right (weights 1 2 1), row sums above and below.
    uint16x8_t left = vaddq_u16(vaddl_u8(aL, bL), vshll_n_u8(mL, 1));
    uint16x8_t right = vaddq_u16(vaddl_u8(aR, bR), vshll_n_u8(mR, 1));
    uint16x8_t top = vaddq_u16(vaddl_u8(aL, aR), vshll_n_u8(aC, 1));
    uint16x8_t bottom = vaddq_u16(vaddl_u8(bL, bR), vshll_n_u8(bC, 1));
    *accX = vaddq_u16(*accX, vabdq_u16(right, left));
    *accY = vaddq_u16(*accY, vabdq_u16(bottom, top));
}

// Two groups at once, columns c .. c + 15: each 16-byte row load is
// widened into its low and high 8 columns, and both halves add into the
// same 8 lanes, as two sobelGroup calls would.
struct Widened {
    uint16x8_t lo, hi;
};

inline Widened widen(const uint8_t* p) {
    const uint8x16x2_t z = vzipq_u8(vld1q_u8(p), vdupq_n_u8(0));
    return {vreinterpretq_u16_u8(z.val[0]), vreinterpretq_u16_u8(z.val[1])};
}

// a + b + 2 m, per half.
inline Widened weighted(const Widened& a, const Widened& b, const Widened& m) {
    return {vaddq_u16(vaddq_u16(a.lo, b.lo), vshlq_n_u16(m.lo, 1)), vaddq_u16(vaddq_u16(a.hi, b.hi), vshlq_n_u16(m.hi, 1))};
}

// |p - q| of sums below 1021, as signed 16-bit differences.
inline uint16x8_t absDiff(uint16x8_t p, uint16x8_t q) {
    return vreinterpretq_u16_s16(vabsq_s16(vsubq_s16(vreinterpretq_s16_u16(p), vreinterpretq_s16_u16(q))));
}

inline void sobelTwoGroups(const uint8_t* above, const uint8_t* row, const uint8_t* below, int c, uint16x8_t* accX,
                           uint16x8_t* accY) {
    const Widened aL = widen(above + c - 1), aC = widen(above + c), aR = widen(above + c + 1);
    const Widened mL = widen(row + c - 1), mR = widen(row + c + 1);
    const Widened bL = widen(below + c - 1), bC = widen(below + c), bR = widen(below + c + 1);
    const Widened left = weighted(aL, bL, mL), right = weighted(aR, bR, mR);
    const Widened top = weighted(aL, aR, aC), bottom = weighted(bL, bR, bC);
    *accX = vaddq_u16(*accX, vaddq_u16(absDiff(right.lo, left.lo), absDiff(right.hi, left.hi)));
    *accY = vaddq_u16(*accY, vaddq_u16(absDiff(bottom.lo, top.lo), absDiff(bottom.hi, top.hi)));
}

inline uint32_t sumLanes(uint16x8_t v) {
    uint32x4_t s = vpaddlq_u16(v);
    uint64x2_t t = vpaddlq_u32(s);
    return static_cast<uint32_t>(vgetq_lane_u64(t, 0) + vgetq_lane_u64(t, 1));
}

// One row segment [begin, end): groups of 8 (two per step while two remain)
// in 16-bit lanes that wrap modulo 65536, added to the 32-bit sum at the
// segment's end; the leftover columns one by one.
uint32_t segmentSum(const uint8_t* above, const uint8_t* row, const uint8_t* below, int begin, int end) {
    uint16x8_t accX = vdupq_n_u16(0), accY = vdupq_n_u16(0);
    int c = begin;
    for (; c + 16 <= end; c += 16) sobelTwoGroups(above, row, below, c, &accX, &accY);
    for (; c + 8 <= end; c += 8) sobelGroup(above, row, below, c, &accX, &accY);
    uint32_t sum = sumLanes(accX) + sumLanes(accY);
    for (; c < end; ++c) sum += static_cast<uint32_t>(sobelMagnitude(above, row, below, c));
    return sum;
}

}  // namespace

extern "C" void xCalcSobelHV(unsigned char* img, int w, int h, float* whole, float* inner) {
    const int h8 = h >> 3, w8 = w >> 3;
    // Measured columns are 1 .. w - 2; the inner region's columns w8 .. 7 w8 - 1
    // split a row of the inner rows into three segments.
    const int first = 1, last = w - 1;
    const int innerBegin = trv::clampInt(w8, first, last > first ? last : first);
    const int innerEnd = trv::clampInt(7 * w8, innerBegin, last > innerBegin ? last : innerBegin);
    SobelSums sums;
    for (int r = 1; r <= h - 2; ++r) {
        const uint8_t* row = img + static_cast<size_t>(r) * w;
        const uint8_t* above = row - w;
        const uint8_t* below = row + w;
        if (r >= h8 && r < 7 * h8) {
            sums.outer += segmentSum(above, row, below, first, innerBegin);
            sums.inner += segmentSum(above, row, below, innerBegin, innerEnd);
            sums.outer += segmentSum(above, row, below, innerEnd, last);
        } else {
            sums.outer += segmentSum(above, row, below, first, last);
        }
    }
    const int32_t total = static_cast<int32_t>(sums.outer + sums.inner);
    const int32_t innerSum = static_cast<int32_t>(sums.inner);
    const int32_t positions = (h - 2) * (w - 2);
    const int32_t innerPositions = (6 * h8) * (6 * w8);
    // Double-precision divisions; an empty region gives the IEEE quotient
    // (NaN for 0 / 0), which the frame ranking treats as unusable.
    *whole = static_cast<float>(static_cast<double>(total) / static_cast<double>(positions));
    *inner = static_cast<float>(static_cast<double>(innerSum) / static_cast<double>(innerPositions));
}
