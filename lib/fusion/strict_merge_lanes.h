// Vector form of the strict merge: eight quads of one row (16 luma columns,
// 8 chroma pairs) at once, for the semi-planar layouts, where neither the
// quads nor any frame's reads need a reflection and every neighbour of
// every quad is inside. Each lane follows the per-quad rule exactly:
// 16-bit integer lanes for luma, with the feather weights as sixteenths
// (the double sum of the per-quad rule is exact for them); the chroma blend
// in single precision with the per-quad rule's operations in its order.
// Included by strict_merge.cpp only.
#pragma once

#include "fusion/divide_lanes.h"
#include "fusion/strict_layouts.h"
#include "fusion/strict_merge.h"
#include "trv/stages.h"

namespace trv {
namespace strict {

constexpr int kGroupQuads = 8;

// k when w is exactly k / 16 with 0 <= k <= 16, else -1.
inline int sixteenths(float w) {
    const float scaled = w * 16.0f;  // exact: a power-of-two scale
    if (!(scaled >= 0.0f && scaled <= 16.0f)) return -1;
    const int k = static_cast<int>(scaled);
    return static_cast<float>(k) == scaled ? k : -1;
}

// The multiplier of StrictTile for `frames` other frames, or 0 when
// divNUM_1 does not hold the truncating division by frames + 1 that it
// stands for (10-bit multipliers, exact for |s| <= 120).
inline int divisionMultiplier(int frames) {
    static const int kMultiplier[7] = {0, 0, 512, 342, 256, 205, 171};
    if (frames < 1 || frames > kMaxAlignedFrames) return 0;
    const int d = frames + 1;
    for (int s = -120; s <= 120; ++s)
        if (divNUM_1[s + 120] != s / d) return 0;
    return kMultiplier[d];
}

// s / d truncating toward zero, as (|s| * multiplier) >> 10 with s's sign.
inline int16x8_t dividedLanes(int16x8_t s, int multiplier) {
    const int16x8_t sign = vshrq_n_s16(s, 15);
    const uint16x8_t magnitude = vreinterpretq_u16_s16(vabsq_s16(s));
    const int16x8_t q = vreinterpretq_s16_u16(vshrq_n_u16(vmulq_n_u16(magnitude, static_cast<uint16_t>(multiplier)), 10));
    return vsubq_s16(veorq_s16(q, sign), sign);
}

// The even and the odd bytes of 16 at p as 16-bit lanes: per quad, its
// left and right column (or the first and second byte of its chroma pair).
struct Columns {
    int16x8_t even, odd;
};

inline Columns columnsAt(const uint8_t* p) {
    const uint16x8_t words = vreinterpretq_u16_u8(vld1q_u8(p));
    return {vreinterpretq_s16_u16(vandq_u16(words, vdupq_n_u16(0xFF))), vreinterpretq_s16_u16(vshrq_n_u16(words, 8))};
}

inline uint8x16_t bytesOf(int16x8_t even, int16x8_t odd) {
    const uint16x8_t e = vandq_u16(vreinterpretq_u16_s16(even), vdupq_n_u16(0xFF));
    return vreinterpretq_u8_u16(vorrq_u16(e, vshlq_n_u16(vreinterpretq_u16_s16(odd), 8)));
}

inline int16x8_t absDiff(int16x8_t a, int16x8_t b) { return vabsq_s16(vsubq_s16(a, b)); }

inline int16x8_t clampLanes(int16x8_t v, int16x8_t lo, int16x8_t hi) { return vminq_s16(vmaxq_s16(v, lo), hi); }

// Adds ref - frame to sum where |ref - frame| <= 32, clamped to +-limit.
inline int16x8_t addLumaDifference(int16x8_t sum, int16x8_t ref, int16x8_t frame, int16x8_t limit) {
    const int16x8_t d = vsubq_s16(ref, frame);
    const int16x8_t kept = vandq_s16(d, vreinterpretq_s16_u16(vcleq_s16(vabsq_s16(d), vdupq_n_s16(32))));
    return vaddq_s16(sum, clampLanes(kept, vnegq_s16(limit), limit));
}

// Adds ref - frame to sum where |ref - frame| < 8.
inline int16x8_t addChromaDifference(int16x8_t sum, int16x8_t ref, int16x8_t frame) {
    const int16x8_t d = vsubq_s16(ref, frame);
    return vaddq_s16(sum, vandq_s16(d, vreinterpretq_s16_u16(vcltq_s16(vabsq_s16(d), vdupq_n_s16(8)))));
}

// Luma out: v - lowPass where k = 0, else (old k + v (16 - k) + 8) >> 4;
// both clipped to 0 .. 255.
inline int16x8_t lumaOut(int16x8_t v, int16x8_t lowPass, int16x8_t old, int16x8_t k, uint16x8_t still) {
    const int16x8_t zero = vdupq_n_s16(0), full = vdupq_n_s16(255);
    const int16x8_t plain = clampLanes(vsubq_s16(v, lowPass), zero, full);
    const int16x8_t t = vaddq_s16(vaddq_s16(vmulq_s16(old, k), vmulq_s16(v, vsubq_s16(vdupq_n_s16(16), k))), vdupq_n_s16(8));
    const int16x8_t blended = vminq_s16(vshrq_n_s16(vmaxq_s16(t, zero), 4), full);
    return vbslq_s16(still, plain, blended);
}

// Chroma out of 4 quads (every second one): with weight w, old w + v (1 - w)
// + offset; without, (v - lowPass) + offset; clipped, truncated.
inline uint32x4_t chromaOut(int32x4_t v, int32x4_t lowPass, int32x4_t old, float32x4_t w, uint32x4_t still,
                            float32x4_t offset) {
    const float32x4_t plain = vaddq_f32(vcvtq_f32_s32(vsubq_s32(v, lowPass)), offset);
    const float32x4_t keep = vmulq_f32(vcvtq_f32_s32(old), w);
    const float32x4_t take = vmulq_f32(vcvtq_f32_s32(v), vsubq_f32(vdupq_n_f32(1.0f), w));
    const float32x4_t blended = vaddq_f32(vaddq_f32(keep, take), offset);
    const float32x4_t value = vbslq_f32(still, plain, blended);
    return truncateSmall(vminq_f32(vmaxq_f32(value, vdupq_n_f32(0.0f)), vdupq_n_f32(255.0f)));
}

// The quads of every second lane (0, 2, 4, 6) and of the others as 32-bit
// lanes, sign-extended.
inline int32x4_t evenQuads(int16x8_t v) { return vshrq_n_s32(vshlq_n_s32(vreinterpretq_s32_s16(v), 16), 16); }
inline int32x4_t oddQuads(int16x8_t v) { return vshrq_n_s32(vreinterpretq_s32_s16(v), 16); }

// The chroma out bytes of one channel, back in quad order.
inline int16x8_t chromaChannel(int16x8_t v, int16x8_t lowPass, int16x8_t old, const float32x4_t* w,
                               const uint32x4_t* still, float32x4_t offset) {
    const uint32x4_t e = chromaOut(evenQuads(v), evenQuads(lowPass), evenQuads(old), w[0], still[0], offset);
    const uint32x4_t o = chromaOut(oddQuads(v), oddQuads(lowPass), oddQuads(old), w[1], still[1], offset);
    return vreinterpretq_s16_u32(vorrq_u32(e, vshlq_n_u32(o, 16)));
}

// Merges quads x[skip] .. x[7] of row y when all eight take the vector form
// (returns false, touching nothing, when they do not); the first `skip`
// are computed too but their bytes are left as they are.
template <class In>
bool mergeGroupOf8(const StrictTile& t, int y, const int* x, const float* w, int remaining, int skip = 0) {
    if (t.multiplier == 0 || remaining < kGroupQuads) return false;
    const int W = t.W, H = t.H, x0 = x[0];
    for (int j = 1; j < kGroupQuads; ++j)
        if (x[j] != x0 + 2 * j) return false;
    int16_t k[kGroupQuads];
    for (int j = 0; j < kGroupQuads; ++j) {
        const int s = sixteenths(w[j]);
        if (s < 0) return false;
        k[j] = static_cast<int16_t>(s);
    }
    // Every neighbour inside, diagonals included, and every 16-byte load
    // inside its row; the frames' reads unreflected.
    constexpr int kLast = 2 * (kGroupQuads - 1);
    constexpr int rowStep = In::kHalfHeightChroma ? 2 : 1;
    if (x0 < 4 || x0 + kLast > W - 4 || y < 4 || y >= H - 2) return false;
    if (In::kHalfHeightChroma && (y + 2) / 2 >= H / 2) return false;
    for (int f = 0; f < t.frames; ++f) {
        const int fx = x0 + t.mvx[f], fy = y + t.mvy[f];
        if (fx < 0 || fx + kLast > W - 2 || fy < 0 || fy > H - 2) return false;
    }

    const ptrdiff_t stride = W;
    const uint8_t* ref = gMergeInput[0];
    const uint8_t* row = ref + stride * y + x0;
    const Columns top = columnsAt(row), bottom = columnsAt(row + stride);
    const int16x8_t centre = top.even;
    const int16x8_t left = columnsAt(row - 2).even, right = columnsAt(row + 2).even;
    const int16x8_t up = columnsAt(row - 2 * stride).even, down = columnsAt(row + 2 * stride).even;
    const int16x8_t edges = vaddq_s16(vaddq_s16(absDiff(centre, left), absDiff(centre, right)),
                                      vaddq_s16(absDiff(centre, up), absDiff(centre, down)));
    const uint16x8_t scaled = vshrq_n_u16(vmulq_n_u16(vreinterpretq_u16_s16(edges), 51), 7);
    const int16x8_t limit = clampLanes(vreinterpretq_s16_u16(scaled), vdupq_n_s16(6), vdupq_n_s16(16));
    int16x8_t around = vaddq_s16(vaddq_s16(left, right), vaddq_s16(up, down));
    around = vaddq_s16(around, vaddq_s16(columnsAt(row - 2 * stride - 2).even, columnsAt(row - 2 * stride + 2).even));
    around = vaddq_s16(around, vaddq_s16(columnsAt(row + 2 * stride - 2).even, columnsAt(row + 2 * stride + 2).even));
    const int16x8_t lowPass =
        clampLanes(vshrq_n_s16(vsubq_s16(vshlq_n_s16(centre, 3), around), 3), vdupq_n_s16(-3), vdupq_n_s16(3));

    const uint8_t* pair = ref + In::chroma(x0, y);
    const Columns colour = columnsAt(pair);
    const Columns chromaLeft = columnsAt(pair - 2), chromaRight = columnsAt(pair + 2);
    const Columns chromaUp = columnsAt(ref + In::chroma(x0, y - rowStep));
    const Columns chromaDown = columnsAt(ref + In::chroma(x0, y + rowStep));
    auto chromaLowPass = [&](int16x8_t c, int16x8_t l, int16x8_t r, int16x8_t u, int16x8_t d) {
        const int16x8_t sum = vaddq_s16(vaddq_s16(l, r), vaddq_s16(u, d));
        return clampLanes(vshrq_n_s16(vsubq_s16(vshlq_n_s16(c, 2), sum), 2), vdupq_n_s16(-3), vdupq_n_s16(3));
    };
    const int16x8_t firstPass = chromaLowPass(colour.even, chromaLeft.even, chromaRight.even, chromaUp.even, chromaDown.even);
    const int16x8_t secondPass = chromaLowPass(colour.odd, chromaLeft.odd, chromaRight.odd, chromaUp.odd, chromaDown.odd);

    const int16x8_t zero = vdupq_n_s16(0);
    int16x8_t s00 = zero, s01 = zero, s10 = zero, s11 = zero, sFirst = zero, sSecond = zero;
    for (int f = 0; f < t.frames; ++f) {
        const uint8_t* frame = gMergeInput[f + 1];
        const int fx = x0 + t.mvx[f], fy = y + t.mvy[f];
        const Columns ft = columnsAt(frame + stride * fy + fx), fb = columnsAt(frame + stride * (fy + 1) + fx);
        s00 = addLumaDifference(s00, top.even, ft.even, limit);
        s01 = addLumaDifference(s01, top.odd, ft.odd, limit);
        s10 = addLumaDifference(s10, bottom.even, fb.even, limit);
        s11 = addLumaDifference(s11, bottom.odd, fb.odd, limit);
        const Columns fc = columnsAt(frame + In::frameChroma(fx, fy, nullptr, f));
        sFirst = addChromaDifference(sFirst, colour.even, fc.even);
        sSecond = addChromaDifference(sSecond, colour.odd, fc.odd);
    }

    uint8_t* out = gMergrOut;
    uint8_t* outRow = out + SemiPlanarOut::luma(x0, y);
    const int16x8_t weight16 = vld1q_s16(k);
    const uint16x8_t still = vceqq_s16(weight16, zero);
    const Columns oldTop = columnsAt(outRow), oldBottom = columnsAt(outRow + stride);
    auto luma = [&](int16x8_t refLane, int16x8_t sum, int16x8_t old) {
        return lumaOut(vsubq_s16(refLane, dividedLanes(sum, t.multiplier)), lowPass, old, weight16, still);
    };
    const int16x8_t o00 = luma(top.even, s00, oldTop.even), o01 = luma(top.odd, s01, oldTop.odd);
    const int16x8_t o10 = luma(bottom.even, s10, oldBottom.even), o11 = luma(bottom.odd, s11, oldBottom.odd);
    // Bytes of the quads from `skip` on (two per quad).
    static const uint8_t kQuadOfByte[16] = {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7};
    const uint8x16_t fresh = vcgeq_u8(vld1q_u8(kQuadOfByte), vdupq_n_u8(static_cast<uint8_t>(skip)));
    auto store = [&](uint8_t* p, uint8x16_t bytes) { vst1q_u8(p, vbslq_u8(fresh, bytes, vld1q_u8(p))); };
    store(outRow, bytesOf(o00, o01));
    store(outRow + stride, bytesOf(o10, o11));

    const float evenWeights[4] = {w[0], w[2], w[4], w[6]}, oddWeights[4] = {w[1], w[3], w[5], w[7]};
    const float32x4_t weights[2] = {vld1q_f32(evenWeights), vld1q_f32(oddWeights)};
    const uint32x4_t stillQuads[2] = {vceqq_f32(weights[0], vdupq_n_f32(0.0f)), vceqq_f32(weights[1], vdupq_n_f32(0.0f))};
    const float32x4_t offset = vdupq_n_f32(gColor_offset);
    uint8_t* outPair = out + SemiPlanarOut::chroma(x0, y);
    const Columns oldPair = columnsAt(outPair);
    const int16x8_t first = chromaChannel(vsubq_s16(colour.even, dividedLanes(sFirst, t.multiplier)), firstPass,
                                          oldPair.even, weights, stillQuads, offset);
    const int16x8_t second = chromaChannel(vsubq_s16(colour.odd, dividedLanes(sSecond, t.multiplier)), secondPass,
                                           oldPair.odd, weights, stillQuads, offset);
    store(outPair, bytesOf(first, second));
    return true;
}

}  // namespace strict
}  // namespace trv
