// Block classification: on a 2 x 2 subsampled grid around each block, count
// the samples where an aligned frame disagrees with the reference by more
// than a threshold that follows the local activity, then decide from the
// per-frame shares of disagreeing samples.
#include "fusion/block_classify.h"

#include <cstddef>
#include <vector>

#include "common/arith.h"
#include "fusion/blend_rules.h"
#include "trv/simd.h"
#include "trv/stages.h"

namespace trv {
namespace {

// Mean luma below which the scene counts as dark: fixed threshold, looser
// variance test.
constexpr int32_t kDarkMeanY = 19;
constexpr int32_t kDarkThreshold = 12;
// Each sample stands for a 2 x 2 group of pixels.
constexpr int32_t kCountPerSample = 4;
// Blocks this far from every edge read frames without reflection.
constexpr int32_t kInteriorLeftTop = 81;
constexpr int32_t kInteriorRightBottom = 78;

struct Frame {
    const uint8_t* data;
    int32_t W;

    template <ClassifySamples L>
    const uint8_t* lumaAt(int x, int y) const {
        const size_t at = static_cast<size_t>(x) + static_cast<size_t>(W) * y;
        return data + (L == ClassifySamples::PackedLuma ? 2 * at : at);
    }
    template <ClassifySamples L>
    int luma(int x, int y) const {
        return *lumaAt<L>(x, y);
    }
    // The 4:2:0 chroma pair holding pixel (x, y).
    const uint8_t* chromaAt(int x, int y) const {
        return data + static_cast<size_t>(Y_SIZE) + static_cast<size_t>(W) * (y / 2) + (x & ~1);
    }
    int chroma(int x, int y, int c) const { return chromaAt(x, y)[c]; }
};

Neighbours allAround() { return {true, true, true, true, true, true}; }

template <ClassifySamples L>
int32_t localThreshold(const Frame& ref, int x, int y, const Neighbours& a) {
    if (gMeanY < kDarkMeanY) return kDarkThreshold;
    const int centre = ref.luma<L>(x, y);
    int activity = 0;
    if (a.left) activity += absInt(centre - ref.luma<L>(x - 2, y));
    if (a.right) activity += absInt(centre - ref.luma<L>(x + 2, y));
    if (a.up) activity += absInt(centre - ref.luma<L>(x, y - 2));
    if (a.down) activity += absInt(centre - ref.luma<L>(x, y + 2));
    if (L != ClassifySamples::LumaAndColour) return clampInt(activity, 16, 25);
    for (int c = 0; c < 2; ++c) {
        const int mid = ref.chroma(x, y, c);
        if (a.left) activity += absInt(mid - ref.chroma(x - 2, y, c));
        if (a.chromaRight) activity += absInt(mid - ref.chroma(x + 2, y, c));
        if (a.up) activity += absInt(mid - ref.chroma(x, y - 2, c));
        if (a.chromaDown) activity += absInt(mid - ref.chroma(x, y + 2, c));
    }
    return clampInt(activity, 20, 35);
}

template <ClassifySamples L>
int32_t disagreement(const Frame& ref, int x, int y, const Frame& frame, int xk, int yk) {
    int32_t d = absInt(ref.luma<L>(x, y) - frame.luma<L>(xk, yk));
    if (L == ClassifySamples::LumaAndColour)
        d += absInt(ref.chroma(x, y, 0) - frame.chroma(xk, yk, 0)) + absInt(ref.chroma(x, y, 1) - frame.chroma(xk, yk, 1));
    return d;
}

struct BlockJob {
    int32_t bx, by, size, tile, others;
    Frame ref;
    Frame frames[kMaxAlignedFrames];
    const MV1* mv[kMaxAlignedFrames];
    int32_t* counts;
};

// Vector form of the interior samples: 16 lanes holding two runs of 8
// samples of one sample row, samples two pixels apart. Sums saturate at 255;
// every threshold is below that, so clamps and comparisons come out as with
// exact sums.
constexpr int kRun = 8;

// The 16 bytes at p as 8 little-endian words: narrowing gives the even
// bytes, shifting right by 8 and narrowing the odd ones.
uint16x8_t words(const uint8_t* p) { return vreinterpretq_u16_u8(vld1q_u8(p)); }

// Luma of the kRun samples from pixel (x, y): the even bytes of 16 bytes
// (planar), or every fourth byte of 32 (packed). The loads end one or
// three bytes after the last sample, on the same row. (Narrowing rather
// than vld2 / vld4 keeps the de-interleave cheap on SIMDe hosts too.)
template <ClassifySamples L>
uint8x8_t lumaRun(const Frame& f, int x, int y) {
    const uint8_t* p = f.lumaAt<L>(x, y);
    if (L != ClassifySamples::PackedLuma) return vmovn_u16(words(p));
    const uint16x4_t lo = vmovn_u32(vreinterpretq_u32_u8(vld1q_u8(p)));
    const uint16x4_t hi = vmovn_u32(vreinterpretq_u32_u8(vld1q_u8(p + 16)));
    return vmovn_u16(vcombine_u16(lo, hi));
}

// A group: the runs from columns x and x + dx of row y.
template <ClassifySamples L>
uint8x16_t lumaSamples(const Frame& f, int x, int dx, int y) {
    return vcombine_u8(lumaRun<L>(f, x, y), lumaRun<L>(f, x + dx, y));
}

// Both chroma bytes of a group: the 8 adjacent pairs of each run, exactly
// the bytes the samples use.
uint8x16x2_t chromaSamples(const Frame& f, int x, int dx, int y) {
    const uint16x8_t a = words(f.chromaAt(x, y)), b = words(f.chromaAt(x + dx, y));
    return {{vcombine_u8(vmovn_u16(a), vmovn_u16(b)), vcombine_u8(vshrn_n_u16(a, 8), vshrn_n_u16(b, 8))}};
}

uint8x16_t addAbsDiff(uint8x16_t sum, uint8x16_t a, uint8x16_t b) { return vqaddq_u8(sum, vabdq_u8(a, b)); }

uint8x16_t clampLanes(uint8x16_t v, uint8_t lo, uint8_t hi) {
    return vminq_u8(vmaxq_u8(v, vdupq_n_u8(lo)), vdupq_n_u8(hi));
}

// localThreshold() of a group, every neighbour inside.
template <ClassifySamples L>
uint8x16_t localThresholds(const Frame& ref, int x, int dx, int y) {
    if (gMeanY < kDarkMeanY) return vdupq_n_u8(kDarkThreshold);
    const uint8x16_t centre = lumaSamples<L>(ref, x, dx, y);
    uint8x16_t activity = vabdq_u8(centre, lumaSamples<L>(ref, x - 2, dx, y));
    activity = addAbsDiff(activity, centre, lumaSamples<L>(ref, x + 2, dx, y));
    activity = addAbsDiff(activity, centre, lumaSamples<L>(ref, x, dx, y - 2));
    activity = addAbsDiff(activity, centre, lumaSamples<L>(ref, x, dx, y + 2));
    if (L != ClassifySamples::LumaAndColour) return clampLanes(activity, 16, 25);
    const uint8x16x2_t mid = chromaSamples(ref, x, dx, y);
    const uint8x16x2_t around[4] = {chromaSamples(ref, x - 2, dx, y), chromaSamples(ref, x + 2, dx, y),
                                    chromaSamples(ref, x, dx, y - 2), chromaSamples(ref, x, dx, y + 2)};
    for (const uint8x16x2_t& n : around)
        for (int c = 0; c < 2; ++c) activity = addAbsDiff(activity, mid.val[c], n.val[c]);
    return clampLanes(activity, 20, 35);
}

// The reference's side of disagreement() for a group.
struct RefSamples {
    uint8x16_t luma;
    uint8x16x2_t chroma;
};

template <ClassifySamples L>
RefSamples refSamples(const Frame& ref, int x, int dx, int y) {
    RefSamples r{lumaSamples<L>(ref, x, dx, y), {}};
    if (L == ClassifySamples::LumaAndColour) r.chroma = chromaSamples(ref, x, dx, y);
    return r;
}

// disagreement() of a group from (xk, yk) of frame.
template <ClassifySamples L>
uint8x16_t disagreements(const RefSamples& ref, const Frame& frame, int xk, int dx, int yk) {
    uint8x16_t d = vabdq_u8(ref.luma, lumaSamples<L>(frame, xk, dx, yk));
    if (L == ClassifySamples::LumaAndColour) {
        const uint8x16x2_t b = chromaSamples(frame, xk, dx, yk);
        d = addAbsDiff(addAbsDiff(d, ref.chroma.val[0], b.val[0]), ref.chroma.val[1], b.val[1]);
    }
    return d;
}

int32_t laneSum(uint8x16_t v) {
    const uint64x2_t s = vpaddlq_u32(vpaddlq_u16(vpaddlq_u8(v)));
    return static_cast<int32_t>(vgetq_lane_u64(s, 0) + vgetq_lane_u64(s, 1));
}

// Far from every edge: each sample row of a frame starts at a fixed column
// and nothing is reflected.
template <ClassifySamples L>
void countInteriorBlock(const BlockJob& job, int W, int H) {
    const int samples = (job.size + 8) / 2;
    // Rows shorter than a run, or so long that a lane could count past 255
    // hits in one row, take the scalar path.
    const bool vector = samples >= kRun && samples <= 2 * kRun * 255;
    static const uint8_t kRunLane[2 * kRun] = {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7};
    const uint8x16_t runLane = vld1q_u8(kRunLane);
    for (int j = 0; j < samples; ++j) {
        const int y = job.by - 3 + 2 * j;
        int xs[kMaxAlignedFrames], ys[kMaxAlignedFrames];
        for (int k = 0; k < job.others; ++k) {
            const int mvx = job.mv[k]->x, mvy = job.mv[k]->y;
            xs[k] = absInt(job.bx + job.size + 3 + mvx) < W - 1 ? job.bx - 3 + mvx : W - job.size - 8;
            ys[k] = absInt(y + mvy) < H - 1 ? y + mvy : H - 2;
            // Vectors beyond the motion search's range could point above or
            // left of the frame: clamp, as a last resort.
            xs[k] = clampInt(xs[k], 0, W - job.size - 8);
            ys[k] = clampInt(ys[k], 0, H - 2);
        }
        if (!vector) {
            for (int i = 0; i < samples; ++i) {
                const int x = job.bx - 3 + 2 * i;
                const int32_t threshold = localThreshold<L>(job.ref, x, y, allAround());
                for (int k = 0; k < job.others; ++k)
                    if (disagreement<L>(job.ref, x, y, job.frames[k], xs[k] + 2 * i, ys[k]) > threshold)
                        job.counts[k] += kCountPerSample;
            }
            continue;
        }
        uint8x16_t hits[kMaxAlignedFrames];
        for (int k = 0; k < job.others; ++k) hits[k] = vdupq_n_u8(0);
        for (int i = 0; i < samples;) {
            // Runs from samples lo and hi. A run that would pass the last
            // sample ends on it instead, overlapping the samples before;
            // lanes of samples before i, or counted by the first run, are
            // masked off. No run starts before the first sample of the row.
            const int lo = i + kRun <= samples ? i : samples - kRun;
            const int hi = lo + 2 * kRun <= samples ? lo + kRun : samples - kRun;
            const uint8x16_t fresh = vcgeq_u8(runLane, vcombine_u8(vdup_n_u8(static_cast<uint8_t>(i - lo)),
                                                                    vdup_n_u8(static_cast<uint8_t>(kRun - (hi - lo)))));
            const int x = job.bx - 3 + 2 * lo, dx = 2 * (hi - lo);
            const uint8x16_t threshold = localThresholds<L>(job.ref, x, dx, y);
            const RefSamples ref = refSamples<L>(job.ref, x, dx, y);
            for (int k = 0; k < job.others; ++k) {
                const uint8x16_t d = disagreements<L>(ref, job.frames[k], xs[k] + 2 * lo, dx, ys[k]);
                hits[k] = vsubq_u8(hits[k], vandq_u8(vcgtq_u8(d, threshold), fresh));  // + 1 a hit
            }
            i = hi + kRun;
        }
        for (int k = 0; k < job.others; ++k) job.counts[k] += kCountPerSample * laneSum(hits[k]);
    }
}

template <ClassifySamples L>
void countBorderBlock(const BlockJob& job, int W, int H) {
    const int samples = (job.size + 8) / 2;
    for (int j = 0; j < samples; ++j) {
        const int y = reflectInto(job.by - 3 + 2 * j, H);
        for (int i = 0; i < samples; ++i) {
            const int x = reflectInto(job.bx - 3 + 2 * i, W);
            const int32_t threshold = localThreshold<L>(job.ref, x, y, neighboursInside(x, y, W, H, true, true));
            for (int k = 0; k < job.others; ++k) {
                const int xk = reflectInto(x + job.mv[k]->x, W), yk = reflectInto(y + job.mv[k]->y, H);
                if (disagreement<L>(job.ref, x, y, job.frames[k], xk, yk) > threshold)
                    job.counts[k] += kCountPerSample;
            }
        }
    }
}

bool isInteriorBlock(int bx, int by, int size, int W, int H) {
    return bx > kInteriorLeftTop && bx + size + 3 < W - kInteriorRightBottom && by >= kInteriorLeftTop + 1 &&
           by + size + 3 < H - kInteriorRightBottom;
}

template <ClassifySamples L>
void countWith(const TileGeometry& g, int32_t tile, int32_t* counts) {
    static_assert(kMaxClassifyFrames == kMaxAlignedFrames, "one count per aligned frame");
    const int W = gW, H = gH;
    BlockJob job{};
    job.size = g.block;
    job.tile = tile;
    job.others = alignedFrameCount();
    job.ref = Frame{gMergeInput[0], W};
    for (int k = 0; k < job.others; ++k) {
        job.frames[k] = Frame{gMergeInput[k + 1], W};
        job.mv[k] = gMergeMV[k][tile];
    }
    for (int r = 0; r < g.rows; ++r) {
        for (int c = 0; c < g.cols; ++c) {
            job.bx = g.x0 - g.block + c * g.block;
            job.by = g.y0 - g.block + r * g.block;
            job.counts = counts + (r * g.cols + c) * kMaxAlignedFrames;
            if (isInteriorBlock(job.bx, job.by, g.block, W, H))
                countInteriorBlock<L>(job, W, H);
            else
                countBorderBlock<L>(job, W, H);
        }
    }
}

}  // namespace

MotionThresholds motionThresholds(int32_t meanY, int32_t enhanceID) {
    // Levels 0 and 2 (the brighter scenes) use the tight thresholds.
    if ((enhanceID & ~2) == 0) return {0.2f, 0.0004f};
    return {0.25f, meanY < kDarkMeanY ? 0.01f : 0.0025f};
}

bool isMovingBlock(const int32_t* counts, int32_t others, int32_t blockSize, MotionThresholds th) {
    // Without another frame nothing can disagree; counts beyond the fifth
    // frame are not kept.
    if (others < 1) return false;
    if (others > kMaxAlignedFrames) others = kMaxAlignedFrames;
    const float samples = static_cast<float>((blockSize + 8) * (blockSize + 8));
    float ratio[kMaxAlignedFrames];
    float mean = 0.0f;
    for (int k = 0; k < others; ++k) {
        ratio[k] = static_cast<float>(counts[k]) / samples;
        mean += ratio[k];
    }
    mean /= static_cast<float>(others);
    // A single other frame: only its share of disagreeing samples counts.
    if (others == 1) return mean > 0.2f;
    float variance = 0.0f;
    for (int k = 0; k < others; ++k) variance += (ratio[k] - mean) * (ratio[k] - mean);
    variance /= static_cast<float>(others);
    return variance > th.variance || mean > th.mean;
}

void countDisagreements(const TileGeometry& g, int32_t tile, ClassifySamples samples, int32_t* counts) {
    switch (samples) {
        case ClassifySamples::LumaAndColour:
            countWith<ClassifySamples::LumaAndColour>(g, tile, counts);
            break;
        case ClassifySamples::PlanarLuma:
            countWith<ClassifySamples::PlanarLuma>(g, tile, counts);
            break;
        case ClassifySamples::PackedLuma:
            countWith<ClassifySamples::PackedLuma>(g, tile, counts);
            break;
    }
}

void classifyBlocks(const TileGeometry& g, int32_t tile, ClassifySamples samples, int32_t* map) {
    std::vector<int32_t> counts(static_cast<size_t>(g.rows) * g.cols * kMaxAlignedFrames, 0);
    countDisagreements(g, tile, samples, counts.data());
    const MotionThresholds th = motionThresholds(gMeanY, gMergeEnhanceID);
    const int32_t others = alignedFrameCount();
    for (int32_t b = 0; b < g.rows * g.cols; ++b)
        if (isMovingBlock(&counts[static_cast<size_t>(b) * kMaxAlignedFrames], others, g.block, th)) map[b] = 1;
}

}  // namespace trv
