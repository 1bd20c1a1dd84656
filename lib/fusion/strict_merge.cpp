// Strict merge of one 2 x 2 quad inside a moving area: the reference moves
// toward each aligned frame only by small clipped differences, so a frame
// showing a moving object cannot drag the result by more than a few levels.
// Where the frames have little to add, a light low-pass of the reference is
// subtracted instead. One shared core; the layouts differ only in where a
// pixel's bytes lie.
#include <cstddef>
#include <cstdint>

#include "fusion/strict_merge.h"

#include "common/arith.h"
#include "fusion/blend_rules.h"
#include "fusion/merge_geometry.h"
#include "fusion/strict_layouts.h"
#include "fusion/strict_merge_lanes.h"
#include "trv/stages.h"

namespace {

using trv::absInt;
using trv::clampInt;
using namespace trv::strict;

// Largest luma difference a frame may contribute at all, and the chroma one.
constexpr int kLumaOutlier = 32;
constexpr int kChromaAgreement = 8;
// Feather weights at or below this mean "no blending".
constexpr float kNoBlend = 0.001f;

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

// old w + v (1 - w) + 0.5, clipped, for a weight w = k / 16: every term is
// then a multiple of 1/16 and the double sum is exact, so integers give the
// same byte.
uint8_t blendedLuma(int old, int v, int k) {
    const int t = old * k + v * (16 - k) + 8;
    if (t <= 0) return 0;
    return static_cast<uint8_t>(t >= 16 * 255 ? 255 : t >> 4);
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
        const int k = sixteenths(w);
        const double keep = w, take = 1.0 - keep;
        for (int i = 0; i < 4; ++i) {
            const int avg = divNUM_1[sumY[i] + 120];
            const int v = refY[i] - avg;
            out[outY[i]] = k >= 0 ? blendedLuma(out[outY[i]], v, k) : clipToByte(out[outY[i]] * keep + v * take + 0.5);
        }
        for (int i = 0; i < 2; ++i) {
            const int avg = divNUM_1[sumC[i] + 120];
            out[outC[i]] = clipToByte(out[outC[i]] * w + static_cast<float>(refC[i] - avg) * (1.0f - w) + gColor_offset);
        }
    } else {
        const int lowPass = lumaLowPass<In>(ref, x, y, n, refY[0], W, H);
        for (int i = 0; i < 4; ++i) {
            // An integer v gives v + 0.5, clipped: v itself within 0 .. 255.
            const int avg = divNUM_1[sumY[i] + 120];
            out[outY[i]] = static_cast<uint8_t>(clampInt(refY[i] - avg - lowPass, 0, 255));
        }
        for (int i = 0; i < 2; ++i) {
            const int avg = divNUM_1[sumC[i] + 120];
            const int chromaPass = chromaLowPass<In>(ref, x, y, n, static_cast<size_t>(i));
            out[outC[i]] = clipToByte(static_cast<float>(refC[i] - avg - chromaPass) + gColor_offset);
        }
    }
}

// Groups of eight where they take the vector form; the last few quads of a
// row as the tail of a group moved back over quads already merged (whose
// bytes it leaves alone); the rest one by one. The quads keep their order.
template <class In>
void mergeRow(const trv::StrictTile& t, int y, const int* x, const float* w, int count) {
    constexpr int kGroup = trv::strict::kGroupQuads;
    for (int i = 0; i < count;) {
        if (trv::strict::mergeGroupOf8<In>(t, y, x + i, w + i, count - i)) {
            i += kGroup;
            continue;
        }
        if (count - i < kGroup && count >= kGroup) {
            const int start = count - kGroup;
            if (trv::strict::mergeGroupOf8<In>(t, y, x + start, w + start, kGroup, i - start)) break;
        }
        strictMergeQuad<In, SemiPlanarOut>(x[i], y, t.tile, t.parity, w[i]);
        ++i;
    }
}

}  // namespace

trv::StrictTile trv::strictTile(StrictLayout layout, int tile, int* parity) {
    StrictTile t{};
    t.layout = layout;
    t.tile = tile;
    t.parity = parity;
    t.W = gW;
    t.H = gH;
    t.frames = alignedFrameCount();
    for (int k = 0; k < t.frames; ++k) {
        t.mvx[k] = gMergeMV[k][tile]->x;
        t.mvy[k] = gMergeMV[k][tile]->y;
    }
    if (layout == StrictLayout::Nv21 || layout == StrictLayout::Nv16) t.multiplier = strict::divisionMultiplier(t.frames);
    return t;
}

void trv::strictMergeRow(const StrictTile& t, int y, const int* x, const float* w, int count) {
    switch (t.layout) {
        case StrictLayout::Nv21: mergeRow<Nv21Layout>(t, y, x, w, count); break;
        case StrictLayout::Nv16: mergeRow<Nv16Layout>(t, y, x, w, count); break;
        case StrictLayout::Yv16:
            for (int i = 0; i < count; ++i) strictMergeQuad<Yv16Layout, SemiPlanarOut>(x[i], y, t.tile, t.parity, w[i]);
            break;
        case StrictLayout::Yuv422:
            for (int i = 0; i < count; ++i) strictMergeQuad<Yuv422Layout, SemiPlanarOut>(x[i], y, t.tile, t.parity, w[i]);
            break;
    }
}

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
