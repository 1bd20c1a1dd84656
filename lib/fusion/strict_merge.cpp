// Strict merge of one 2 x 2 quad inside a moving area: the reference moves
// toward each aligned frame only by small clipped differences, so a frame
// showing a moving object cannot drag the result by more than a few levels.
// Where the frames have little to add, a light low-pass of the reference is
// subtracted instead. One shared core; the layouts differ only in where a
// pixel's bytes lie.
#include <cstddef>
#include <cstdint>

#include "common/arith.h"
#include "fusion/blend_rules.h"
#include "fusion/merge_geometry.h"
#include "trv/stages.h"

namespace {

using trv::absInt;
using trv::clampInt;

// Largest luma difference a frame may contribute at all, and the chroma one.
constexpr int kLumaOutlier = 32;
constexpr int kChromaAgreement = 8;
// Feather weights at or below this mean "no blending".
constexpr float kNoBlend = 0.001f;

// ---- Byte addressing of each layout ----
// Offsets are from the frame's first byte. The reference quad's x is even;
// an aligned frame's x may be odd.

struct Nv21Layout {
    static constexpr int kLumaBytes = 1;
    static constexpr bool kPairedChroma = true;   // both samples in one pair
    static constexpr bool kHalfHeightChroma = true;
    static size_t chroma(int x, int y) { return Y_SIZE + static_cast<size_t>(gW) * (y / 2) + x; }
    static size_t second() { return 1; }
    static size_t frameChroma(int x, int y, const int*, int) { return chroma(x & ~1, y); }
};

struct Nv16Layout {
    static constexpr int kLumaBytes = 1;
    static constexpr bool kPairedChroma = true;
    static constexpr bool kHalfHeightChroma = false;
    static size_t chroma(int x, int y) { return Y_SIZE + static_cast<size_t>(gW) * y + x; }
    static size_t second() { return 1; }
    static size_t frameChroma(int x, int y, const int*, int) { return chroma(x & ~1, y); }
};

struct Yv16Layout {
    static constexpr int kLumaBytes = 1;
    static constexpr bool kPairedChroma = false;
    static constexpr bool kHalfHeightChroma = false;
    static size_t chroma(int x, int y) { return Y_SIZE + (static_cast<size_t>(x) + static_cast<size_t>(gW) * y) / 2; }
    static size_t second() { return static_cast<size_t>(Y_SIZE_HALF); }
    static size_t frameChroma(int x, int y, const int*, int) { return chroma(x, y); }
};

// Packed Y0 U Y1 V. The reference's U and V follow its luma byte; a frame
// pixel on an odd column finds them one byte before (parity -1).
struct Yuv422Layout {
    static constexpr int kLumaBytes = 2;
    static constexpr bool kPairedChroma = true;
    static constexpr bool kHalfHeightChroma = false;
    static size_t chroma(int x, int y) { return 2 * (static_cast<size_t>(x) + static_cast<size_t>(gW) * y) + 1; }
    static size_t second() { return 2; }
    static size_t frameChroma(int x, int y, const int* parity, int k) {
        // A last-resort clamp on tiny frames can leave an even column with
        // parity -1; the pair is then taken from the column's own group.
        const int64_t luma = 2 * (static_cast<int64_t>(x) + static_cast<int64_t>(gW) * y);
        const int64_t first = luma + parity[k];
        return static_cast<size_t>(first < 0 ? luma + 1 : first);
    }
};

// Output: the fused 4:2:0 frame, or (for the unused packed variant) one
// packed 4:2:2 frame of 2 W H bytes with the chroma of the quad's top row.
struct SemiPlanarOut {
    static size_t luma(int x, int y) { return static_cast<size_t>(x) + static_cast<size_t>(gW) * y; }
    static size_t chroma(int x, int y) { return Y_SIZE + static_cast<size_t>(gW) * (y / 2) + x; }
    static size_t second() { return 1; }
};

struct PackedOut {
    static size_t luma(int x, int y) { return 2 * (static_cast<size_t>(x) + static_cast<size_t>(gW) * y); }
    static size_t chroma(int x, int y) { return luma(x, y) + 1; }
    static size_t second() { return 2; }
};

template <class In>
int lumaAt(const uint8_t* frame, int x, int y) {
    return frame[In::kLumaBytes * (static_cast<size_t>(x) + static_cast<size_t>(gW) * y)];
}

// The clip limit follows the local edge strength: 6 on flat areas, up to 16.
template <class In>
int lumaClipLimit(const uint8_t* ref, int x, int y, const trv::Neighbours& n, int centre) {
    int edges = 0;
    if (n.left) edges += absInt(centre - lumaAt<In>(ref, x - 2, y));
    if (n.right) edges += absInt(centre - lumaAt<In>(ref, x + 2, y));
    if (n.up) edges += absInt(centre - lumaAt<In>(ref, x, y - 2));
    if (n.down) edges += absInt(centre - lumaAt<In>(ref, x, y + 2));
    return clampInt((51 * edges) >> 7, 6, 16);
}

template <class In>
int lumaLowPass(const uint8_t* ref, int x, int y, const trv::Neighbours& n, int centre, int W, int H) {
    int sum = (n.left ? lumaAt<In>(ref, x - 2, y) : centre) + (n.right ? lumaAt<In>(ref, x + 2, y) : centre) +
              (n.up ? lumaAt<In>(ref, x, y - 2) : centre) + (n.down ? lumaAt<In>(ref, x, y + 2) : centre);
    // The diagonals drop out on the second even row and column as well.
    if (x <= 2 || y <= 2 || x >= W - 2 || y >= H - 2) {
        sum += 4 * centre;
    } else {
        sum += lumaAt<In>(ref, x - 2, y - 2) + lumaAt<In>(ref, x + 2, y - 2) + lumaAt<In>(ref, x - 2, y + 2) +
               lumaAt<In>(ref, x + 2, y + 2);
    }
    return clampInt((8 * centre - sum) >> 3, -3, 3);
}

// which = 0 for the first chroma sample, 1 for the second. "One chroma row
// up" and "one chroma row down" are one stored chroma row: two luma rows on
// half-height chroma, the next stored row on full-height chroma; the guards
// stay those of the luma rows two away (y >= 2, y < H - 2).
template <class In>
int chromaLowPass(const uint8_t* ref, int x, int y, const trv::Neighbours& n, size_t which) {
    const size_t off = which * In::second();
    const int rowStep = In::kHalfHeightChroma ? 2 : 1;
    const int centre = ref[In::chroma(x, y) + off];
    const int sum = (n.left ? ref[In::chroma(x - 2, y) + off] : centre) +
                    (n.chromaRight ? ref[In::chroma(x + 2, y) + off] : centre) +
                    (n.up ? ref[In::chroma(x, y - rowStep) + off] : centre) +
                    (n.chromaDown ? ref[In::chroma(x, y + rowStep) + off] : centre);
    return clampInt((4 * centre - sum) >> 2, -3, 3);
}

uint8_t clipToByte(double v) {
    if (v >= 255.0) return 255;
    if (v <= 0.0) return 0;
    return static_cast<uint8_t>(v);
}

uint8_t clipToByte(float v) {
    if (v >= 255.0f) return 255;
    if (v <= 0.0f) return 0;
    return static_cast<uint8_t>(v);
}

template <class In, class Out>
void strictMergeQuad(int x, int y, int tile, const int* parity, float w) {
    const int W = gW, H = gH;
    const int N = trv::alignedFrameCount();
    // The merging passes quads already inside the image; anything else (or a
    // frame too small for one quad) is left alone.
    if (W < 2 || H < 2 || x < 0 || y < 0 || x > W - 2 || y > H - 2) return;

    const uint8_t* ref = gMergeInput[0];
    const trv::Neighbours n = trv::neighboursInside(x, y, W, H, In::kPairedChroma, In::kHalfHeightChroma);
    const int refY[4] = {lumaAt<In>(ref, x, y), lumaAt<In>(ref, x + 1, y), lumaAt<In>(ref, x, y + 1),
                         lumaAt<In>(ref, x + 1, y + 1)};
    const int refC[2] = {ref[In::chroma(x, y)], ref[In::chroma(x, y) + In::second()]};
    const int limit = lumaClipLimit<In>(ref, x, y, n, refY[0]);

    int sumY[4] = {0, 0, 0, 0};
    int sumC[2] = {0, 0};
    for (int k = 0; k < N; ++k) {
        const MV1* mv = gMergeMV[k][tile];
        const uint8_t* frame = gMergeInput[k + 1];
        const int xk = trv::reflectInto(x + mv->x, W);
        const int yk = trv::reflectInto(y + mv->y, H);
        const int frameY[4] = {lumaAt<In>(frame, xk, yk), lumaAt<In>(frame, xk + 1, yk), lumaAt<In>(frame, xk, yk + 1),
                               lumaAt<In>(frame, xk + 1, yk + 1)};
        for (int i = 0; i < 4; ++i) {
            int d = refY[i] - frameY[i];
            if (absInt(d) > kLumaOutlier) d = 0;
            sumY[i] += clampInt(d, -limit, limit);
        }
        const size_t c = In::frameChroma(xk, yk, parity, k);
        const int frameC[2] = {frame[c], frame[c + In::second()]};
        for (int i = 0; i < 2; ++i) {
            const int d = refC[i] - frameC[i];
            if (absInt(d) < kChromaAgreement) sumC[i] += d;
        }
    }

    uint8_t* out = gMergrOut;
    const size_t outY[4] = {Out::luma(x, y), Out::luma(x + 1, y), Out::luma(x, y + 1), Out::luma(x + 1, y + 1)};
    const size_t outC[2] = {Out::chroma(x, y), Out::chroma(x, y) + Out::second()};
    if (w > kNoBlend) {
        const double keep = w, take = 1.0 - keep;
        for (int i = 0; i < 4; ++i) {
            const int avg = divNUM_1[sumY[i] + 120];
            out[outY[i]] = clipToByte(out[outY[i]] * keep + (refY[i] - avg) * take + 0.5);
        }
        for (int i = 0; i < 2; ++i) {
            const int avg = divNUM_1[sumC[i] + 120];
            out[outC[i]] = clipToByte(out[outC[i]] * w + static_cast<float>(refC[i] - avg) * (1.0f - w) + gColor_offset);
        }
    } else {
        const int lowPass = lumaLowPass<In>(ref, x, y, n, refY[0], W, H);
        for (int i = 0; i < 4; ++i) {
            const int avg = divNUM_1[sumY[i] + 120];
            out[outY[i]] = clipToByte(static_cast<double>(refY[i] - avg - lowPass) + 0.5);
        }
        for (int i = 0; i < 2; ++i) {
            const int avg = divNUM_1[sumC[i] + 120];
            const int chromaPass = chromaLowPass<In>(ref, x, y, n, static_cast<size_t>(i));
            out[outC[i]] = clipToByte(static_cast<float>(refC[i] - avg - chromaPass) + gColor_offset);
        }
    }
}

}  // namespace

extern "C" {

// tune1, tune2, tileX0, tileY0 and tileSpan are part of the merging's call
// signature and carry nothing the strict merge needs.

void strictMerge_NV21(int x, int y, float, float, int tile, int* parity, int, int, int, float w) {
    strictMergeQuad<Nv21Layout, SemiPlanarOut>(x, y, tile, parity, w);
}

void strictMerge_NV16_1(int x, int y, float, float, int tile, int* parity, int, int, int, float w) {
    strictMergeQuad<Nv16Layout, SemiPlanarOut>(x, y, tile, parity, w);
}

// Packed output of 2 W H bytes; the pipeline merges semi-planar 4:2:2 input
// with strictMerge_NV16_1.
void strictMerge_NV16(int x, int y, float, float, int tile, int* parity, int, int, int, float w) {
    strictMergeQuad<Nv16Layout, PackedOut>(x, y, tile, parity, w);
}

void strictMerge_YV16(int x, int y, float, float, int tile, int* parity, int, int, int, float w) {
    strictMergeQuad<Yv16Layout, SemiPlanarOut>(x, y, tile, parity, w);
}

void strictMerge_YUV422(int x, int y, float, float, int tile, int* parity, int, int, int, float w) {
    strictMergeQuad<Yuv422Layout, SemiPlanarOut>(x, y, tile, parity, w);
}

}  // extern "C"
