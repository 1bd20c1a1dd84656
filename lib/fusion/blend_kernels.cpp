// Blending of one tile of the reference with the same tile of the aligned
// frames: 8 pixels per vector step (clamp, sum, divide through pfun24 /
// pfun16), the columns that do not fill a vector through the table rules.
// The vector path rounds and tests ">=", the tails truncate and test ">";
// both are intended and the two may differ by one.
#include <cstddef>

#include "fusion/blend_rules.h"
#include "fusion/divide_lanes.h"
#include "trv/stages.h"

namespace {

using trv::alignedFrameCount;
using trv::kMaxAlignedFrames;

inline uint8x8_t clampAround(uint8x8_t f, uint8x8_t centre, uint8x8_t reach) {
    return vmin_u8(vmax_u8(f, vqsub_u8(centre, reach)), vqadd_u8(centre, reach));
}

// Luma of 8 pixels: with two or more frames the frames-only mean when the
// 24-clamped sum is 16 n or more away from n x, else the mean of the
// reference and the 16-clamped frames; with one frame the rounded pair mean.
uint8x8_t blendLuma8(uint8x8_t x, const uint8x8_t* f, int n) {
    if (n < 1) return x;
    if (n == 1) return vrhadd_u8(x, clampAround(f[0], x, CONST_16));
    uint16x8_t sum24 = vdupq_n_u16(0);
    uint16x8_t sum16 = vmovl_u8(x);
    for (int k = 0; k < n; ++k) {
        sum24 = vaddw_u8(sum24, clampAround(f[k], x, CONST_24));
        sum16 = vaddw_u8(sum16, clampAround(f[k], x, CONST_16));
    }
    uint16x8_t deviation = vabdq_u16(sum24, vmull_u8(x, vdup_n_u8(static_cast<uint8_t>(n))));
    // "compared with 16 * N": this call's count; NUM_16 holds the previous fusion's.
    uint16x8_t framesOnly = vcgeq_u16(deviation, vdupq_n_u16(static_cast<uint16_t>(16 * n)));
    return vbsl_u8(vmovn_u16(framesOnly), pfun24(sum24), pfun16(sum16));
}

// Chroma of 8 samples: the mean of the reference and the 10-clamped frames.
uint8x8_t blendChroma8(uint8x8_t c, const uint8x8_t* f, int n) {
    if (n < 1) return c;
    if (n == 1) return vrhadd_u8(c, clampAround(f[0], c, CONST_10));
    uint16x8_t sum = vmovl_u8(c);
    for (int k = 0; k < n; ++k) sum = vaddw_u8(sum, clampAround(f[k], c, CONST_10));
    return pfun16(sum);
}

// Scalar tails: sample i of every frame row.
uint8_t lumaTail(int x, const uint8_t* const* rows, ptrdiff_t i, int n) {
    if (n == 1) return trv::lumaPairMean(x, rows[0][i]);
    int f[kMaxAlignedFrames];
    for (int k = 0; k < n; ++k) f[k] = rows[k][i];
    return trv::lumaByTable(x, f, n);
}

// Chroma has no pair-mean tail: with one other frame too the clamped
// difference is divided by table (100 with 103 gives 101, the vector 102).
uint8_t chromaTail(int c, const uint8_t* const* rows, ptrdiff_t i, int n) {
    int f[kMaxAlignedFrames];
    for (int k = 0; k < n; ++k) f[k] = rows[k][i];
    return trv::chromaByTable(c, f, n);
}

// Frame rows at byte offset `offset` from each frame pointer.
void frameRows(unsigned char** frames, ptrdiff_t offset, int n, const uint8_t** rows) {
    for (int k = 0; k < n; ++k) rows[k] = frames[k] + offset;
}

// The chroma rows of a tile whose luma is height rows high: every second
// luma row gives one output row of interleaved pairs (row stride gW). Planar
// 4:2:2 rows go to planar(ref, rows, secondPlaneOffset, outRow), paired
// (NV16, NV21) rows to paired(ref, rows, outRow).
template <class Planar, class Paired>
void forEachChromaRow(unsigned char* ref, unsigned char** frames, unsigned char* out, int n, int height,
                      Planar planar, Paired paired) {
    const int lastRow = (height - 1) & ~1;
    const uint8_t* rows[kMaxAlignedFrames];
    for (int r = 0; r >= 0 && r <= lastRow; r += 2) {
        uint8_t* outRow = out + static_cast<ptrdiff_t>(gW) * (r / 2);
        if (gINFormat == 0) {
            const ptrdiff_t planeStride = gW / 2;
            const ptrdiff_t offset = planeStride * r;
            frameRows(frames, offset, n, rows);
            planar(ref + offset, rows, planeStride * gH, outRow);
        } else if (gINFormat == 1 || gINFormat == 4) {
            const ptrdiff_t offset = static_cast<ptrdiff_t>(gW) * (gINFormat == 1 ? r : r / 2);
            frameRows(frames, offset, n, rows);
            paired(ref + offset, rows, outRow);
        }
    }
}

// One row of 8-bit samples blended in place order: vector steps of 8, then
// the tail.
template <typename Vector8, typename Tail>
void blendRow(const uint8_t* ref, const uint8_t* const* rows, uint8_t* out, int width, int n, Vector8 vector8,
              Tail tail) {
    const int vectorEnd = width & ~7;
    int c = 0;
    for (; c < vectorEnd; c += 8) {
        uint8x8_t f[kMaxAlignedFrames];
        for (int k = 0; k < n; ++k) f[k] = vld1_u8(rows[k] + c);
        vst1_u8(out + c, vector8(vld1_u8(ref + c), f, n));
    }
    for (; c < width; ++c) out[c] = tail(ref[c], rows, c, n);
}

// Planar 4:2:2 chroma row: luma columns [0, width) cover one sample of each
// plane per two columns; the output interleaves first and second plane.
void blendPlanarChromaRow(const uint8_t* first, const uint8_t* const* firstRows, ptrdiff_t secondOffset,
                          uint8_t* out, int width, int n) {
    const uint8_t* second = first + secondOffset;
    const uint8_t* secondRows[kMaxAlignedFrames];
    for (int k = 0; k < n; ++k) secondRows[k] = firstRows[k] + secondOffset;
    const int vectorEnd = width & ~15;
    int c = 0;
    for (; c < vectorEnd; c += 16) {
        const int s = c / 2;
        uint8x8_t f1[kMaxAlignedFrames], f2[kMaxAlignedFrames];
        for (int k = 0; k < n; ++k) {
            f1[k] = vld1_u8(firstRows[k] + s);
            f2[k] = vld1_u8(secondRows[k] + s);
        }
        uint8x8x2_t pair;
        pair.val[0] = blendChroma8(vld1_u8(first + s), f1, n);
        pair.val[1] = blendChroma8(vld1_u8(second + s), f2, n);
        vst2_u8(out + c, pair);
    }
    for (; c < width; c += 2) {
        const int s = c / 2;
        out[c] = chromaTail(first[s], firstRows, s, n);
        // An odd last column has only the first sample of its pair.
        if (c + 1 < width) out[c + 1] = chromaTail(second[s], secondRows, s, n);
    }
}

// ---- 16 lanes a step, with the usual division routines inlined ----
//
// The same rules as blendLuma8 / blendChroma8 when pfun24 and pfun16 hold the
// routines setfunc picks for the frame count. Sums are kept in two uint16x8:
// the even and the odd byte lanes.

struct Lanes16 {
    uint16x8_t even, odd;
};

inline Lanes16 widened(uint8x16_t v) {
    const uint16x8_t words = vreinterpretq_u16_u8(v);
    return {vandq_u16(words, vdupq_n_u16(0xFF)), vshrq_n_u16(words, 8)};
}

// Low byte of every lane, back in place order (the narrowing of the
// division routines).
inline uint8x16_t narrowed(uint16x8_t even, uint16x8_t odd) {
    return vreinterpretq_u8_u16(vorrq_u16(vandq_u16(even, vdupq_n_u16(0xFF)), vshlq_n_u16(odd, 8)));
}

inline uint8x16_t clampBetween(uint8x16_t f, uint8x16_t lo, uint8x16_t hi) { return vminq_u8(vmaxq_u8(f, lo), hi); }

// Signed byte lanes, widened in place order: even and odd 16-bit lanes.
inline void widenSigned(int8x16_t v, int16x8_t* even, int16x8_t* odd) {
    const int16x8_t words = vreinterpretq_s16_s8(v);
    *even = vshrq_n_s16(vshlq_n_s16(words, 8), 8);
    *odd = vshrq_n_s16(words, 8);
}

// Sum over the frames of clamp(f) - x, in signed byte lanes. Each term lies
// within [-limit, limit]; with at most five frames and a limit of 24 the
// sum stays within [-120, 120], so byte lanes hold it exactly.
template <int N>
inline int8x16_t clampedDeviations(uint8x16_t x, const uint8x16_t* f, uint8x16_t lo, uint8x16_t hi) {
    static_assert(N <= 5, "five other frames at most");
    int8x16_t sum = vdupq_n_s8(0);
    for (int k = 0; k < N; ++k) sum = vaddq_s8(sum, vreinterpretq_s8_u8(vsubq_u8(clampBetween(f[k], lo, hi), x)));
    return sum;
}

// Lanes where |s24 - n x| >= 16 n, from the deviation s24 - n x.
template <int N>
inline uint16x8_t takesFramesOnly(int16x8_t deviation) {
    return vorrq_u16(vcgtq_s16(deviation, vdupq_n_s16(16 * N - 1)), vcltq_s16(deviation, vdupq_n_s16(1 - 16 * N)));
}

// The sum m x + deviation, exact: the true sum is a sum of bytes.
inline uint16x8_t withDeviation(uint16x8_t x, int m, int16x8_t deviation) {
    return vaddq_u16(vmulq_n_u16(x, static_cast<uint16_t>(m)), vreinterpretq_u16_s16(deviation));
}

// The sums s24 (frames clamped to x +- 24) and s16 (reference and frames
// clamped to x +- 16) are kept as their deviations from the reference in
// byte lanes and widened once per 16 columns.
template <int N>
struct LumaBlend16 {
    trv::LaneDivider<N> byFrames;
    trv::LaneDivider<N + 1> byAll;

    uint8x16_t operator()(uint8x16_t x, const uint8x16_t* f) const {
        const uint8x16_t lo16 = vqsubq_u8(x, vdupq_n_u8(16)), hi16 = vqaddq_u8(x, vdupq_n_u8(16));
        if (N == 1) return vrhaddq_u8(x, clampBetween(f[0], lo16, hi16));
        const uint8x16_t lo24 = vqsubq_u8(x, vdupq_n_u8(24)), hi24 = vqaddq_u8(x, vdupq_n_u8(24));
        const Lanes16 centre = widened(x);
        int16x8_t d24Even, d24Odd, d16Even, d16Odd;
        widenSigned(clampedDeviations<N>(x, f, lo24, hi24), &d24Even, &d24Odd);
        widenSigned(clampedDeviations<N>(x, f, lo16, hi16), &d16Even, &d16Odd);
        const uint16x8_t evenFramesOnly = takesFramesOnly<N>(d24Even);
        const uint16x8_t oddFramesOnly = takesFramesOnly<N>(d24Odd);
        uint16x8_t even = byAll(withDeviation(centre.even, N + 1, d16Even));
        uint16x8_t odd = byAll(withDeviation(centre.odd, N + 1, d16Odd));
        // Where the frames agree with the reference, as in most of a still
        // scene, no lane takes the frames-only mean: skip its division.
        const uint64x2_t any = vreinterpretq_u64_u16(vorrq_u16(evenFramesOnly, oddFramesOnly));
        if ((vgetq_lane_u64(any, 0) | vgetq_lane_u64(any, 1)) != 0) {
            even = vbslq_u16(evenFramesOnly, byFrames(withDeviation(centre.even, N, d24Even)), even);
            odd = vbslq_u16(oddFramesOnly, byFrames(withDeviation(centre.odd, N, d24Odd)), odd);
        }
        return narrowed(even, odd);
    }
};

template <int N>
struct ChromaBlend16 {
    trv::LaneDivider<N + 1> byAll;

    uint8x16_t operator()(uint8x16_t c, const uint8x16_t* f) const {
        const uint8x16_t lo = vqsubq_u8(c, vdupq_n_u8(10)), hi = vqaddq_u8(c, vdupq_n_u8(10));
        if (N == 1) return vrhaddq_u8(c, clampBetween(f[0], lo, hi));
        const Lanes16 centre = widened(c);
        int16x8_t even, odd;
        widenSigned(clampedDeviations<N>(c, f, lo, hi), &even, &odd);
        return narrowed(byAll(withDeviation(centre.even, N + 1, even)), byAll(withDeviation(centre.odd, N + 1, odd)));
    }
};

// One row like blendRow: 16 columns a step, a last group of 8 in the low
// half of a step, then the tail. Loads and stores cover the same columns as
// the 8-wide loop.
template <int N, class Blend16, class Tail>
void blendRow16(const uint8_t* ref, const uint8_t* const* rows, uint8_t* out, int width, const Blend16& blend,
                Tail tail) {
    const int vectorEnd = width & ~7;
    uint8x16_t f[N];
    int c = 0;
    for (; c + 16 <= vectorEnd; c += 16) {
        for (int k = 0; k < N; ++k) f[k] = vld1q_u8(rows[k] + c);
        vst1q_u8(out + c, blend(vld1q_u8(ref + c), f));
    }
    if (c < vectorEnd) {
        const uint8x8_t none = vdup_n_u8(0);
        for (int k = 0; k < N; ++k) f[k] = vcombine_u8(vld1_u8(rows[k] + c), none);
        vst1_u8(out + c, vget_low_u8(blend(vcombine_u8(vld1_u8(ref + c), none), f)));
        c += 8;
    }
    for (; c < width; ++c) out[c] = tail(ref[c], rows, c, N);
}

// Planar 4:2:2 chroma row as blendPlanarChromaRow: 16 luma columns (8
// samples of each plane) a step, blended together as one 16-lane group.
template <int N>
void blendPlanarChromaRow16(const uint8_t* first, const uint8_t* const* firstRows, ptrdiff_t secondOffset,
                            uint8_t* out, int width, const ChromaBlend16<N>& blend) {
    const uint8_t* second = first + secondOffset;
    const uint8_t* secondRows[N];
    for (int k = 0; k < N; ++k) secondRows[k] = firstRows[k] + secondOffset;
    const int vectorEnd = width & ~15;
    int c = 0;
    for (; c < vectorEnd; c += 16) {
        const int s = c / 2;
        uint8x16_t f[N];
        for (int k = 0; k < N; ++k) f[k] = vcombine_u8(vld1_u8(firstRows[k] + s), vld1_u8(secondRows[k] + s));
        const uint8x16_t both = blend(vcombine_u8(vld1_u8(first + s), vld1_u8(second + s)), f);
        const uint8x8x2_t pairs = vzip_u8(vget_low_u8(both), vget_high_u8(both));
        vst1q_u8(out + c, vcombine_u8(pairs.val[0], pairs.val[1]));
    }
    for (; c < width; c += 2) {
        const int s = c / 2;
        out[c] = chromaTail(first[s], firstRows, s, N);
        // An odd last column has only the first sample of its pair.
        if (c + 1 < width) out[c + 1] = chromaTail(second[s], secondRows, s, N);
    }
}

// The frame count whose division routines pfun24 and pfun16 hold (as
// setfunc leaves them), or 0 when they hold anything else.
int inlinedFrameCount(int n) {
    using Divider = uint8x8_t (*)(uint16x8_t);
    static const Divider byCount[7] = {nullptr, Divfun1, Divfun2, Divfun3, Divfun4, Divfun5, Divfun6};
    if (n < 1 || n > kMaxAlignedFrames) return 0;
    // One other frame blends without dividing.
    if (n == 1) return 1;
    return pfun24 == byCount[n] && pfun16 == byCount[n + 1] ? n : 0;
}

template <int N>
void blendLumaTile16(unsigned char* ref, unsigned char** frames, unsigned char* out, int width, int height) {
    const LumaBlend16<N> blend;
    const ptrdiff_t stride = gW;
    const uint8_t* rows[N];
    for (int r = 0; r < height; ++r) {
        const ptrdiff_t offset = stride * r;
        frameRows(frames, offset, N, rows);
        blendRow16<N>(ref + offset, rows, out + offset, width, blend, lumaTail);
    }
}

template <int N>
void blendChromaTile16(unsigned char* ref, unsigned char** frames, unsigned char* out, int width, int height) {
    const ChromaBlend16<N> blend;
    forEachChromaRow(
        ref, frames, out, N, height,
        [&](const uint8_t* in, const uint8_t** rows, ptrdiff_t second, uint8_t* outRow) {
            blendPlanarChromaRow16<N>(in, rows, second, outRow, width, blend);
        },
        [&](const uint8_t* in, const uint8_t** rows, uint8_t* outRow) {
            blendRow16<N>(in, rows, outRow, width, blend, chromaTail);
        });
}

// Packed Y0 C0 Y1 C1 rows as mergeBlk_YUV_neon_YUYV: 16 pixels (32 bytes) a
// step, split into 16 luma and 16 chroma lanes; a last group of 8 pixels
// reads its 16 bytes alone.
template <int N>
void blendPackedTile16(unsigned char* ref, unsigned char** frames, unsigned char* outY, unsigned char* outUV,
                       int width, int height) {
    const LumaBlend16<N> luma;
    const ChromaBlend16<N> chroma;
    const int vectorEnd = width & ~7;
    const uint8_t* rows[N];
    for (int r = 0; r < height; ++r) {
        const ptrdiff_t offset = 2 * static_cast<ptrdiff_t>(gW) * r;
        const uint8_t* in = ref + offset;
        frameRows(frames, offset, N, rows);
        uint8_t* lumaOut = outY + static_cast<ptrdiff_t>(gW) * r;
        uint8_t* chromaOut = (r & 1) == 0 ? outUV + static_cast<ptrdiff_t>(gW) * (r / 2) : nullptr;
        uint8x16_t fy[N], fc[N];
        int c = 0;
        for (; c + 16 <= vectorEnd; c += 16) {
            const uint8x16x2_t x = vuzpq_u8(vld1q_u8(in + 2 * c), vld1q_u8(in + 2 * c + 16));
            for (int k = 0; k < N; ++k) {
                const uint8x16x2_t f = vuzpq_u8(vld1q_u8(rows[k] + 2 * c), vld1q_u8(rows[k] + 2 * c + 16));
                fy[k] = f.val[0];
                fc[k] = f.val[1];
            }
            vst1q_u8(lumaOut + c, luma(x.val[0], fy));
            if (chromaOut != nullptr) vst1q_u8(chromaOut + c, chroma(x.val[1], fc));
        }
        if (c < vectorEnd) {
            const uint8x16_t none = vdupq_n_u8(0);
            const uint8x16x2_t x = vuzpq_u8(vld1q_u8(in + 2 * c), none);
            for (int k = 0; k < N; ++k) {
                const uint8x16x2_t f = vuzpq_u8(vld1q_u8(rows[k] + 2 * c), none);
                fy[k] = f.val[0];
                fc[k] = f.val[1];
            }
            vst1_u8(lumaOut + c, vget_low_u8(luma(x.val[0], fy)));
            if (chromaOut != nullptr) vst1_u8(chromaOut + c, vget_low_u8(chroma(x.val[1], fc)));
            c += 8;
        }
        for (; c < width; ++c) {
            lumaOut[c] = lumaTail(in[2 * c], rows, 2 * c, N);
            if (chromaOut != nullptr) chromaOut[c] = chromaTail(in[2 * c + 1], rows, 2 * c + 1, N);
        }
    }
}

using TileKernel = void (*)(unsigned char*, unsigned char**, unsigned char*, int, int);
using PackedKernel = void (*)(unsigned char*, unsigned char**, unsigned char*, unsigned char*, int, int);

template <template <int> class Kernel, class Fn = TileKernel>
Fn byFrameCount(int n) {
    switch (n) {
        case 1: return Kernel<1>::run;
        case 2: return Kernel<2>::run;
        case 3: return Kernel<3>::run;
        case 4: return Kernel<4>::run;
        case 5: return Kernel<5>::run;
        default: return nullptr;
    }
}

template <int N>
struct LumaTile {
    static void run(unsigned char* r, unsigned char** f, unsigned char* o, int w, int h) { blendLumaTile16<N>(r, f, o, w, h); }
};

template <int N>
struct ChromaTile {
    static void run(unsigned char* r, unsigned char** f, unsigned char* o, int w, int h) { blendChromaTile16<N>(r, f, o, w, h); }
};

template <int N>
struct PackedTile {
    static void run(unsigned char* r, unsigned char** f, unsigned char* y, unsigned char* uv, int w, int h) {
        blendPackedTile16<N>(r, f, y, uv, w, h);
    }
};

}  // namespace

extern "C" {

void mergeBlk_Y_neon(unsigned char* ref, unsigned char** frames, unsigned char* out, int width, int height) {
    const int n = alignedFrameCount();
    if (const TileKernel fast = byFrameCount<LumaTile>(inlinedFrameCount(n))) {
        fast(ref, frames, out, width, height);
        return;
    }
    const ptrdiff_t stride = gW;
    const uint8_t* rows[kMaxAlignedFrames];
    for (int r = 0; r < height; ++r) {
        const ptrdiff_t offset = stride * r;
        frameRows(frames, offset, n, rows);
        blendRow(ref + offset, rows, out + offset, width, n, blendLuma8, lumaTail);
    }
}

// Chroma of the tile whose luma is width x height; every second luma row
// gives one output row of interleaved pairs (row stride gW).
void mergeBlk_uv_neon(unsigned char* ref, unsigned char** frames, unsigned char* out, int width, int height) {
    const int n = alignedFrameCount();
    if (const TileKernel fast = byFrameCount<ChromaTile>(inlinedFrameCount(n))) {
        fast(ref, frames, out, width, height);
        return;
    }
    forEachChromaRow(
        ref, frames, out, n, height,
        [&](const uint8_t* in, const uint8_t** rows, ptrdiff_t second, uint8_t* outRow) {
            blendPlanarChromaRow(in, rows, second, outRow, width, n);
        },
        [&](const uint8_t* in, const uint8_t** rows, uint8_t* outRow) {
            blendRow(in, rows, outRow, width, n, blendChroma8, chromaTail);
        });
}

// Packed Y0 C0 Y1 C1 rows (stride 2 gW): planar luma out, and the chroma of
// the even rows as interleaved pairs in place order.
void mergeBlk_YUV_neon_YUYV(unsigned char* ref, unsigned char** frames, unsigned char* outY, unsigned char* outUV,
                            int width, int height) {
    const int n = alignedFrameCount();
    if (const PackedKernel fast = byFrameCount<PackedTile, PackedKernel>(inlinedFrameCount(n))) {
        fast(ref, frames, outY, outUV, width, height);
        return;
    }
    const int vectorEnd = width & ~7;
    const uint8_t* rows[kMaxAlignedFrames];
    for (int r = 0; r < height; ++r) {
        const ptrdiff_t offset = 2 * static_cast<ptrdiff_t>(gW) * r;
        const uint8_t* in = ref + offset;
        frameRows(frames, offset, n, rows);
        uint8_t* lumaOut = outY + static_cast<ptrdiff_t>(gW) * r;
        uint8_t* chromaOut = (r & 1) == 0 ? outUV + static_cast<ptrdiff_t>(gW) * (r / 2) : nullptr;
        int c = 0;
        for (; c < vectorEnd; c += 8) {
            uint8x8x2_t x = vld2_u8(in + 2 * c);
            uint8x8_t fy[kMaxAlignedFrames], fc[kMaxAlignedFrames];
            for (int k = 0; k < n; ++k) {
                uint8x8x2_t f = vld2_u8(rows[k] + 2 * c);
                fy[k] = f.val[0];
                fc[k] = f.val[1];
            }
            vst1_u8(lumaOut + c, blendLuma8(x.val[0], fy, n));
            if (chromaOut != nullptr) vst1_u8(chromaOut + c, blendChroma8(x.val[1], fc, n));
        }
        for (; c < width; ++c) {
            lumaOut[c] = lumaTail(in[2 * c], rows, 2 * c, n);
            if (chromaOut != nullptr) chromaOut[c] = chromaTail(in[2 * c + 1], rows, 2 * c + 1, n);
        }
    }
}

}  // extern "C"
