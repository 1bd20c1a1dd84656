// Per-block refinement of a motion vector: small exhaustive searches of
// +-r samples around the vector, on quarter-scale luma (result scaled to
// full resolution) and on full-resolution luma.
//
// No bounds checks: the caller clips blocks so that +-r around the
// displaced block stays inside the image. Every vector load reads only
// bytes that the plain rule reads for some candidate of the same row.
#include <algorithm>

#include "common/arith.h"
#include "trv/stages.h"

namespace {

constexpr double kNoCost = 1e30;
constexpr double kCentreBias = 0.95;  // a moved candidate must beat the centre by more than 5 %
constexpr int kQuarterScale = 4;
constexpr int kFullResRowStep = 8;
constexpr int kPlanarColumnStep = 16;
constexpr int kPackedColumnStep = 8;
constexpr int kVectorCandidates = 5;  // dx = -r .. -r + 4 from one comparison
// 16-bit lanes take at most 256 absolute differences of 255 (65280) before
// they are flushed: 4096 columns at the quarter scale (8 samples per 16
// columns), 256 samples of the planar full-resolution search.
constexpr int kQuarterChunkColumns = 4096;
constexpr int kLaneSamplesPerFlush = 256;

inline uint32_t sumLanes(uint16x8_t v) {
    const uint64x2_t pairs = vpaddlq_u32(vpaddlq_u16(v));
    return static_cast<uint32_t>(vgetq_lane_u64(pairs, 0) + vgetq_lane_u64(pairs, 1));
}

inline const uint8_t* rowAt(const uint8_t* image, int W, int row) {
    return image + static_cast<ptrdiff_t>(row) * W;
}

// ---- Quarter scale: every second row and column, early stop, 5 % bias ----

// Plain sum of |cur - ref| over the even columns below bw of one row.
double evenColumnSumScalar(const uint8_t* cur, const uint8_t* ref, int bw) {
    uint64_t sum = 0;
    for (int c = 0; c < bw; c += 2) sum += static_cast<uint64_t>(trv::absInt(cur[c] - ref[c]));
    return static_cast<double>(sum);
}

// The same sum, 16 columns per step: absolute differences of all 16 bytes,
// the even ones kept as 16-bit lanes and accumulated, flushed to double
// after each 4096-column chunk. The last group of 16 is left to the
// even-column tail when bw is a multiple of 16, so that no load touches the
// odd column bw - 1, which the plain rule never reads; the sum is the same.
double evenColumnSumNeon(const uint8_t* cur, const uint8_t* ref, int bw) {
    if (bw <= 0) return 0.0;
    const int vectorEnd = (bw - 1) & ~15;
    const uint16x8_t evenBytes = vdupq_n_u16(0xFF);
    double sum = 0.0;
    for (int chunk = 0; chunk < vectorEnd; chunk += kQuarterChunkColumns) {
        const int chunkEnd = std::min(chunk + kQuarterChunkColumns, vectorEnd);
        uint16x8_t acc = vdupq_n_u16(0);
        for (int c = chunk; c < chunkEnd; c += 16) {
            const uint8x16_t d = vabdq_u8(vld1q_u8(cur + c), vld1q_u8(ref + c));
            acc = vaddq_u16(acc, vandq_u16(vreinterpretq_u16_u8(d), evenBytes));  // columns c, c + 2, ..., c + 14
        }
        sum += static_cast<double>(sumLanes(acc));
    }
    uint32_t tail = 0;
    for (int c = vectorEnd; c < bw; c += 2) tail += static_cast<uint32_t>(trv::absInt(cur[c] - ref[c]));
    return sum + static_cast<double>(tail);
}

using RowSum = double (*)(const uint8_t*, const uint8_t*, int);

// The vector cost of one candidate: rows 0, 2, 4, ... < bh, even columns
// below bw, 16 columns a step as evenColumnSumNeon; the last even columns
// that do not fill a step as one more step on the 16 bytes that end on the
// last even column, its odd lanes and those already counted masked off (so
// no load reaches past what the plain rule reads). Lanes are summed every
// few rows, as late as they cannot overflow, and the early stop checked
// then: a candidate whose partial cost passes the limit can never win, so
// stopping a few rows later changes nothing. Sums are exact integers until
// the one conversion at the end. Rows over 4096 columns take the plain
// per-row loop.
double quarterCostNeon(const uint8_t* cur, const uint8_t* ref, int W, int bw, int bh, double limit) {
    if (bw <= 0 || bh <= 0) return 0.0;
    const int vectorEnd = (bw - 1) & ~15, lastEven = (bw - 1) & ~1;
    const bool tailStep = vectorEnd < bw && lastEven >= 15;
    const int steps = vectorEnd / 16 + (tailStep ? 1 : 0);
    if (steps > 256) {
        double cost = 0.0;
        for (int r = 0; r < bh; r += 2) {
            cost += evenColumnSumNeon(rowAt(cur, W, r), rowAt(ref, W, r), bw);
            if (cost > limit) break;
        }
        return cost;
    }
    // Each lane takes at most 255 a step.
    const int rowsPerSum = steps > 0 ? 257 / steps : 257;
    const int tailFrom = lastEven - 15;
    uint16_t keepLane[8];
    for (int j = 0; j < 8; ++j) keepLane[j] = tailFrom + 2 * j + 1 >= vectorEnd ? 0xFFFF : 0;
    const uint16x8_t tailKeep = vld1q_u16(keepLane), evenBytes = vdupq_n_u16(0xFF);
    uint64_t cost = 0;
    uint16x8_t acc = vdupq_n_u16(0);
    int rows = 0;
    for (int r = 0; r < bh; r += 2) {
        const uint8_t* c = rowAt(cur, W, r);
        const uint8_t* f = rowAt(ref, W, r);
        for (int x = 0; x < vectorEnd; x += 16) {
            const uint8x16_t d = vabdq_u8(vld1q_u8(c + x), vld1q_u8(f + x));
            acc = vaddq_u16(acc, vandq_u16(vreinterpretq_u16_u8(d), evenBytes));
        }
        if (tailStep) {
            const uint8x16_t d = vabdq_u8(vld1q_u8(c + tailFrom), vld1q_u8(f + tailFrom));
            acc = vaddq_u16(acc, vandq_u16(vshrq_n_u16(vreinterpretq_u16_u8(d), 8), tailKeep));
        } else {
            for (int x = vectorEnd; x < bw; x += 2) cost += static_cast<uint64_t>(trv::absInt(c[x] - f[x]));
        }
        if (++rows == rowsPerSum || r + 2 >= bh) {
            cost += sumLanes(acc);
            acc = vdupq_n_u16(0);
            rows = 0;
            if (static_cast<double>(cost) > limit) break;
        }
    }
    return static_cast<double>(cost);
}

using CostFn = double (*)(const uint8_t*, const uint8_t*, int, int, int, double);

// Cost over rows 0, 2, 4, ... < bh; stops as soon as a row ends above limit.
template <RowSum rowSum>
double quarterCost(const uint8_t* cur, const uint8_t* ref, int W, int bw, int bh, double limit) {
    double cost = 0.0;
    for (int r = 0; r < bh; r += 2) {
        cost += rowSum(rowAt(cur, W, r), rowAt(ref, W, r), bw);
        if (cost > limit) break;
    }
    return cost;
}

template <CostFn quarterCost>
void refineQuarter(const uint8_t* cur, const uint8_t* ref, const int* start, MV1* out, int W, int bw, int bh,
                   int r) {
    double best = kCentreBias * quarterCost(cur, ref, W, bw, bh, kNoCost);
    out->x = start[0];
    out->y = start[1];
    for (int dy = -r; dy <= r; ++dy) {
        for (int dx = -r; dx <= r; ++dx) {
            if (dx == 0 && dy == 0) continue;
            const double cost = quarterCost(cur, rowAt(ref, W, dy) + dx, W, bw, bh, best);
            if (cost < best) {
                best = cost;
                out->x = start[0] + dx;
                out->y = start[1] + dy;
            }
        }
    }
    out->x *= kQuarterScale;
    out->y *= kQuarterScale;
}

// ---- Full resolution: rows every 8, strict minimum from 1e30, no early stop ----

// Cost of one displacement; luma every columnStep columns, kBytes apart.
template <int kBytes>
double fullResCost(const uint8_t* cur, const uint8_t* ref, int W, int bw, int bh, int columnStep) {
    double cost = 0.0;
    for (int r = 0; r < bh; r += kFullResRowStep) {
        const uint8_t* curRow = rowAt(cur, W * kBytes, r);
        const uint8_t* refRow = rowAt(ref, W * kBytes, r);
        uint64_t rowSum = 0;
        for (int c = 0; c < bw; c += columnStep) {
            rowSum += static_cast<uint64_t>(trv::absInt(curRow[c * kBytes] - refRow[c * kBytes]));
        }
        cost += static_cast<double>(rowSum);
    }
    return cost;
}

// Every (dx, dy) in [-r, r]^2, dy outer, dx inner, ties to the first.
template <int kBytes>
void refineFullRes(const uint8_t* cur, const uint8_t* ref, MV1* mv, int W, int bw, int bh, int r, int columnStep) {
    const int32_t x0 = mv->x, y0 = mv->y;
    double best = kNoCost;
    for (int dy = -r; dy <= r; ++dy) {
        for (int dx = -r; dx <= r; ++dx) {
            const uint8_t* displaced = ref + (static_cast<ptrdiff_t>(dy) * W + dx) * kBytes;
            const double cost = fullResCost<kBytes>(cur, displaced, W, bw, bh, columnStep);
            if (cost < best) {
                best = cost;
                mv->x = x0 + dx;
                mv->y = y0 + dy;
            }
        }
    }
}

// Adds one sampled row's costs of the five candidates dx = -r .. -r + 4
// (refRow already points at column -r). Each sample is broadcast and
// compared with 8 reference bytes; lanes 0..4 are the candidates. The last
// sampled column is done one candidate at a time, so no load reaches past
// column last - r + 4, the furthest the plain rule reads.
//
// Two samples share one 16-lane comparison (the second in the high half);
// the even and odd byte lanes accumulate apart in 16-bit lanes, so lane l of
// either half is candidate l.
void addFiveCandidateRow(const uint8_t* curRow, const uint8_t* refRow, int bw, double costs[kVectorCandidates]) {
    const int last = ((bw - 1) / kPlanarColumnStep) * kPlanarColumnStep;
    uint32_t laneSums[kVectorCandidates] = {};
    const uint16x8_t lowByte = vdupq_n_u16(0xFF);
    for (int chunk = 0; chunk < last; chunk += kLaneSamplesPerFlush * kPlanarColumnStep) {
        const int chunkEnd = std::min(chunk + kLaneSamplesPerFlush * kPlanarColumnStep, last);
        uint16x8_t even = vdupq_n_u16(0), odd = vdupq_n_u16(0);
        auto add = [&](uint8x16_t d) {
            even = vaddq_u16(even, vandq_u16(vreinterpretq_u16_u8(d), lowByte));
            odd = vaddq_u16(odd, vshrq_n_u16(vreinterpretq_u16_u8(d), 8));
        };
        int c = chunk;
        for (; c + kPlanarColumnStep < chunkEnd; c += 2 * kPlanarColumnStep) {
            const int c2 = c + kPlanarColumnStep;
            add(vabdq_u8(vcombine_u8(vdup_n_u8(curRow[c]), vdup_n_u8(curRow[c2])),
                         vcombine_u8(vld1_u8(refRow + c), vld1_u8(refRow + c2))));
        }
        if (c < chunkEnd) {
            // A lone last sample: its high half compares the sample with itself.
            const uint8x8_t sample = vdup_n_u8(curRow[c]);
            add(vabdq_u8(vcombine_u8(sample, sample), vcombine_u8(vld1_u8(refRow + c), sample)));
        }
        uint16_t e[8], o[8];
        vst1q_u16(e, even);
        vst1q_u16(o, odd);
        // Byte lane l is the low (even l) or high (odd l) byte of 16-bit lane
        // l / 2; the high half starts at 16-bit lane 4.
        for (int l = 0; l < kVectorCandidates; ++l) {
            const uint16_t* half = (l & 1) ? o : e;
            laneSums[l] += static_cast<uint32_t>(half[l / 2]) + half[4 + l / 2];
        }
    }
    for (int l = 0; l < kVectorCandidates; ++l) {
        laneSums[l] += static_cast<uint32_t>(trv::absInt(curRow[last] - refRow[last + l]));
        costs[l] += static_cast<double>(laneSums[l]);
    }
}

void refinePlanarFiveWide(const uint8_t* cur, const uint8_t* ref, MV1* mv, int W, int bw, int bh, int r) {
    const int32_t x0 = mv->x, y0 = mv->y;
    double best = kNoCost;
    for (int dy = -r; dy <= r; ++dy) {
        double costs[kVectorCandidates] = {};
        if (bw > 0) {
            for (int row = 0; row < bh; row += kFullResRowStep) {
                addFiveCandidateRow(rowAt(cur, W, row), rowAt(ref, W, row + dy) - r, bw, costs);
            }
        }
        for (int l = 0; l < kVectorCandidates; ++l) {
            if (costs[l] < best) {
                best = costs[l];
                mv->x = x0 - r + l;
                mv->y = y0 + dy;
            }
        }
    }
}

}  // namespace

extern "C" {

void RefineMVS_neon(unsigned char* cur, unsigned char* ref, int* start, MV1* out, int W, int H, int bw, int bh,
                    int r) {
    (void)H;
    refineQuarter<quarterCostNeon>(cur, ref, start, out, W, bw, bh, r);
}

void RefineMVS(unsigned char* cur, unsigned char* ref, int* start, MV1* out, int W, int H, int bw, int bh, int r) {
    (void)H;
    refineQuarter<quarterCost<evenColumnSumScalar>>(cur, ref, start, out, W, bw, bh, r);
}

void RefineMV_YV16_neon(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh, int r) {
    (void)H;
    refinePlanarFiveWide(cur, ref, mv, W, bw, bh, r);
}

void RefineMV_YV16(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh, int r) {
    (void)H;
    refineFullRes<1>(cur, ref, mv, W, bw, bh, r, kPlanarColumnStep);
}

// Further vector forms of the planar refinement; they behave exactly like
// RefineMV_YV16_neon.
void RefineMV_YV16_BLK_neon(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh, int r) {
    RefineMV_YV16_neon(cur, ref, mv, W, H, bw, bh, r);
}

void RefineMV_YV16_BLK_neon1(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh,
                             int r) {
    RefineMV_YV16_neon(cur, ref, mv, W, H, bw, bh, r);
}

void RefineMV(unsigned char* cur, unsigned char* ref, MV1* mv, int W, int H, int bw, int bh, int r) {
    (void)H;
    refineFullRes<2>(cur, ref, mv, W, bw, bh, r, kPackedColumnStep);
}

}  // extern "C"
