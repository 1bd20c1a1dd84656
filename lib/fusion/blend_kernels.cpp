// Blending of one tile of the reference with the same tile of the aligned
// frames: 8 pixels per vector step (clamp, sum, divide through pfun24 /
// pfun16), the columns that do not fill a vector through the table rules.
// The vector path rounds and tests ">=", the tails truncate and test ">";
// both are intended and the two may differ by one.
#include <cstddef>

#include "fusion/blend_rules.h"
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

}  // namespace

extern "C" {

void mergeBlk_Y_neon(unsigned char* ref, unsigned char** frames, unsigned char* out, int width, int height) {
    const int n = alignedFrameCount();
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
    const int lastRow = (height - 1) & ~1;
    const uint8_t* rows[kMaxAlignedFrames];
    for (int r = 0; r >= 0 && r <= lastRow; r += 2) {
        uint8_t* outRow = out + static_cast<ptrdiff_t>(gW) * (r / 2);
        if (gINFormat == 0) {
            const ptrdiff_t planeStride = gW / 2;
            const ptrdiff_t offset = planeStride * r;
            frameRows(frames, offset, n, rows);
            blendPlanarChromaRow(ref + offset, rows, planeStride * gH, outRow, width, n);
        } else if (gINFormat == 1 || gINFormat == 4) {
            const ptrdiff_t offset = static_cast<ptrdiff_t>(gW) * (gINFormat == 1 ? r : r / 2);
            frameRows(frames, offset, n, rows);
            blendRow(ref + offset, rows, outRow, width, n, blendChroma8, chromaTail);
        }
    }
}

// Packed Y0 C0 Y1 C1 rows (stride 2 gW): planar luma out, and the chroma of
// the even rows as interleaved pairs in place order.
void mergeBlk_YUV_neon_YUYV(unsigned char* ref, unsigned char** frames, unsigned char* outY, unsigned char* outUV,
                            int width, int height) {
    const int n = alignedFrameCount();
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
