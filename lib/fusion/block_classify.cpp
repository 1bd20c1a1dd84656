// Block classification: on a 2 x 2 subsampled grid around each block, count
// the samples where an aligned frame disagrees with the reference by more
// than a threshold that follows the local activity, then decide from the
// per-frame shares of disagreeing samples.
#include "fusion/block_classify.h"

#include <cstddef>

#include "common/arith.h"
#include "common/small_buffer.h"
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

// ---- Vector form: 16 samples a group ----
//
// A group holds two runs of 8 samples of one sample row, samples two pixels
// apart; normally the runs follow each other, at the end of a stretch the
// second run is moved back to end on its last sample and its lanes already
// counted are masked off. A run is loaded as 16 bytes whose even bytes are
// its luma samples (planar rows as they are, packed rows with every second
// 16-bit word dropped), and its chroma as its 8 pairs. Differences are
// taken on whole bytes; per sample, the even byte of luma and the sum of
// each chroma pair go to a 16-bit lane. Activity sums saturate at 255 before
// that; every threshold is below, so the clamp comes out as with exact sums.
constexpr int kRun = 8;
// Each lane counts at most two hits a group; flushed before it could wrap.
constexpr int kGroupsPerFlush = 32767;

struct Runs {
    uint8x16_t lo, hi;
};

// Samples lo and hi of a group as 16-bit lanes.
struct Lanes {
    uint16x8_t lo, hi;
};

template <ClassifySamples L>
inline uint8x16_t lumaRun(const uint8_t* p) {
    if (L != ClassifySamples::PackedLuma) return vld1q_u8(p);
    const uint16x8x2_t words = vuzpq_u16(vreinterpretq_u16_u8(vld1q_u8(p)), vreinterpretq_u16_u8(vld1q_u8(p + 16)));
    return vreinterpretq_u8_u16(words.val[0]);
}

// The runs of samples at p and p + step (bytes). The loads end one (planar,
// chroma) or three (packed) bytes after a run's last sample, on its row.
template <ClassifySamples L>
inline Runs lumaRuns(const uint8_t* p, ptrdiff_t step) {
    return {lumaRun<L>(p), lumaRun<L>(p + step)};
}

inline Runs chromaRuns(const uint8_t* p, ptrdiff_t step) { return {vld1q_u8(p), vld1q_u8(p + step)}; }

inline Runs absDiff(const Runs& a, const Runs& b) { return {vabdq_u8(a.lo, b.lo), vabdq_u8(a.hi, b.hi)}; }

inline Runs addSaturated(const Runs& a, const Runs& b) { return {vqaddq_u8(a.lo, b.lo), vqaddq_u8(a.hi, b.hi)}; }

inline Lanes evenBytes(const Runs& r) {
    const uint16x8_t mask = vdupq_n_u16(0xFF);
    return {vandq_u16(vreinterpretq_u16_u8(r.lo), mask), vandq_u16(vreinterpretq_u16_u8(r.hi), mask)};
}

inline Lanes pairSums(const Runs& r) { return {vpaddlq_u8(r.lo), vpaddlq_u8(r.hi)}; }

inline Lanes operator+(const Lanes& a, const Lanes& b) { return {vaddq_u16(a.lo, b.lo), vaddq_u16(a.hi, b.hi)}; }

// One sample row of a block as the vector path reads it: pointers at the
// stretch's first sample (and at the same columns two rows up and down
// when those neighbours take part in the activity; left and right always
// do for vector samples), and per frame its displaced sample.
struct RowPointers {
    const uint8_t* luma[3];    // reference rows y - 2, y, y + 2 (null when left out)
    const uint8_t* chroma[3];  // their chroma pairs (4:2:0 only)
    const uint8_t* frameLuma[kMaxAlignedFrames];
    const uint8_t* frameChroma[kMaxAlignedFrames];
};

// Reference row y with its neighbour rows, and the frames at (frameX +
// 2 i, frameY) for sample i; pointers at sample `from`, whose column is x.
template <ClassifySamples L>
RowPointers rowPointers(const BlockJob& job, int x, int y, bool up, bool down, bool chromaDown, const int* frameX,
                        const int* frameY, int from) {
    RowPointers p{};
    p.luma[1] = job.ref.lumaAt<L>(x, y);
    if (up) p.luma[0] = job.ref.lumaAt<L>(x, y - 2);
    if (down) p.luma[2] = job.ref.lumaAt<L>(x, y + 2);
    if (L == ClassifySamples::LumaAndColour) {
        p.chroma[1] = job.ref.chromaAt(x, y);
        if (up) p.chroma[0] = job.ref.chromaAt(x, y - 2);
        if (chromaDown) p.chroma[2] = job.ref.chromaAt(x, y + 2);
    }
    for (int k = 0; k < job.others; ++k) {
        const int xk = frameX[k] + 2 * from;
        p.frameLuma[k] = job.frames[k].lumaAt<L>(xk, frameY[k]);
        if (L == ClassifySamples::LumaAndColour) p.frameChroma[k] = job.frames[k].chromaAt(xk, frameY[k]);
    }
    return p;
}

// localThreshold() of a group whose runs start `at` bytes (luma) or
// `chromaAt` bytes into the rows, the second run `step` / `chromaStep`
// further.
template <ClassifySamples L>
Lanes localThresholds(const RowPointers& p, ptrdiff_t at, ptrdiff_t step, ptrdiff_t chromaAt, ptrdiff_t chromaStep) {
    if (gMeanY < kDarkMeanY) return {vdupq_n_u16(kDarkThreshold), vdupq_n_u16(kDarkThreshold)};
    constexpr ptrdiff_t kSide = L == ClassifySamples::PackedLuma ? 4 : 2;  // two pixels, in bytes
    const Runs centre = lumaRuns<L>(p.luma[1] + at, step);
    Runs activity = addSaturated(absDiff(centre, lumaRuns<L>(p.luma[1] + at - kSide, step)),
                                 absDiff(centre, lumaRuns<L>(p.luma[1] + at + kSide, step)));
    if (p.luma[0] != nullptr) activity = addSaturated(activity, absDiff(centre, lumaRuns<L>(p.luma[0] + at, step)));
    if (p.luma[2] != nullptr) activity = addSaturated(activity, absDiff(centre, lumaRuns<L>(p.luma[2] + at, step)));
    const int16x8_t lo = vdupq_n_s16(L == ClassifySamples::LumaAndColour ? 20 : 16);
    const int16x8_t hi = vdupq_n_s16(L == ClassifySamples::LumaAndColour ? 35 : 25);
    Lanes sum = evenBytes(activity);
    if (L == ClassifySamples::LumaAndColour) {
        const Runs mid = chromaRuns(p.chroma[1] + chromaAt, chromaStep);
        Runs colour = addSaturated(absDiff(mid, chromaRuns(p.chroma[1] + chromaAt - 2, chromaStep)),
                                   absDiff(mid, chromaRuns(p.chroma[1] + chromaAt + 2, chromaStep)));
        if (p.chroma[0] != nullptr)
            colour = addSaturated(colour, absDiff(mid, chromaRuns(p.chroma[0] + chromaAt, chromaStep)));
        if (p.chroma[2] != nullptr)
            colour = addSaturated(colour, absDiff(mid, chromaRuns(p.chroma[2] + chromaAt, chromaStep)));
        sum = sum + pairSums(colour);
    }
    auto clamp = [&](uint16x8_t v) {
        return vreinterpretq_u16_s16(vminq_s16(vmaxq_s16(vreinterpretq_s16_u16(v), lo), hi));
    };
    return {clamp(sum.lo), clamp(sum.hi)};
}

inline uint32_t laneSum(uint16x8_t v) {
    const uint64x2_t s = vpaddlq_u32(vpaddlq_u16(v));
    return static_cast<uint32_t>(vgetq_lane_u64(s, 0) + vgetq_lane_u64(s, 1));
}

// Per-frame hit lanes of one block, flushed into its counts.
struct Hits {
    uint16x8_t lanes[kMaxAlignedFrames];
    int groups = 0;

    explicit Hits(int others) {
        for (int k = 0; k < others; ++k) lanes[k] = vdupq_n_u16(0);
    }
    void flush(const BlockJob& job) {
        for (int k = 0; k < job.others; ++k) {
            job.counts[k] += kCountPerSample * static_cast<int32_t>(laneSum(lanes[k]));
            lanes[k] = vdupq_n_u16(0);
        }
        groups = 0;
    }
};

// Counts samples [from, to) of a sample row, at least one run of them;
// `p` points at sample `from`.
template <ClassifySamples L>
void countStretch(const BlockJob& job, const RowPointers& p, int from, int to, Hits& hits) {
    constexpr ptrdiff_t kLumaBytes = L == ClassifySamples::PackedLuma ? 2 : 1;
    static const int16_t kLane[kRun] = {0, 1, 2, 3, 4, 5, 6, 7};
    const int16x8_t lane = vld1q_s16(kLane);
    for (int i = from; i < to;) {
        // Runs from samples lo and hi. A run that would pass the last sample
        // ends on it instead, overlapping the samples before; lanes of
        // samples before i, or counted by the first run, are masked off. No
        // run starts before sample `from`.
        const int lo = i + kRun <= to ? i : to - kRun;
        const int hi = lo + 2 * kRun <= to ? lo + kRun : to - kRun;
        const Lanes fresh{vcgtq_s16(lane, vdupq_n_s16(static_cast<int16_t>(i - lo - 1))),
                          vcgtq_s16(lane, vdupq_n_s16(static_cast<int16_t>(kRun - (hi - lo) - 1)))};
        const ptrdiff_t at = 2 * kLumaBytes * (lo - from), step = 2 * kLumaBytes * (hi - lo);
        const ptrdiff_t chromaAt = 2 * (lo - from), chromaStep = 2 * (hi - lo);
        const Lanes threshold = localThresholds<L>(p, at, step, chromaAt, chromaStep);
        const Runs refLuma = lumaRuns<L>(p.luma[1] + at, step);
        Runs refChroma{};
        if (L == ClassifySamples::LumaAndColour) refChroma = chromaRuns(p.chroma[1] + chromaAt, chromaStep);
        for (int k = 0; k < job.others; ++k) {
            Lanes d = evenBytes(absDiff(refLuma, lumaRuns<L>(p.frameLuma[k] + at, step)));
            if (L == ClassifySamples::LumaAndColour)
                d = d + pairSums(absDiff(refChroma, chromaRuns(p.frameChroma[k] + chromaAt, chromaStep)));
            // Every term is below 2^15: signed comparisons.
            const uint16x8_t hitLo = vandq_u16(vcgtq_s16(vreinterpretq_s16_u16(d.lo), vreinterpretq_s16_u16(threshold.lo)), fresh.lo);
            const uint16x8_t hitHi = vandq_u16(vcgtq_s16(vreinterpretq_s16_u16(d.hi), vreinterpretq_s16_u16(threshold.hi)), fresh.hi);
            hits.lanes[k] = vsubq_u16(vsubq_u16(hits.lanes[k], hitLo), hitHi);  // + 1 a hit
        }
        if (++hits.groups == kGroupsPerFlush) hits.flush(job);
        i = hi + kRun;
    }
}

// Far from every edge: each sample row of a frame starts at a fixed column
// and nothing is reflected.
template <ClassifySamples L>
void countInteriorBlock(const BlockJob& job, int W, int H) {
    const int samples = (job.size + 8) / 2;
    Hits hits(job.others);
    for (int j = 0; j < samples; ++j) {
        const int y = job.by - 3 + 2 * j;
        int frameX[kMaxAlignedFrames], frameY[kMaxAlignedFrames];
        for (int k = 0; k < job.others; ++k) {
            const int mvx = job.mv[k]->x, mvy = job.mv[k]->y;
            const int xs = absInt(job.bx + job.size + 3 + mvx) < W - 1 ? job.bx - 3 + mvx : W - job.size - 8;
            const int ys = absInt(y + mvy) < H - 1 ? y + mvy : H - 2;
            // Vectors beyond the motion search's range could point above or
            // left of the frame: clamp, as a last resort.
            frameX[k] = clampInt(xs, 0, W - job.size - 8);
            frameY[k] = clampInt(ys, 0, H - 2);
        }
        if (samples >= kRun) {
            countStretch<L>(job, rowPointers<L>(job, job.bx - 3, y, true, true, true, frameX, frameY, 0), 0, samples,
                            hits);
            continue;
        }
        // Rows shorter than a run take the scalar rule.
        for (int i = 0; i < samples; ++i) {
            const int x = job.bx - 3 + 2 * i;
            const int32_t threshold = localThreshold<L>(job.ref, x, y, allAround());
            for (int k = 0; k < job.others; ++k)
                if (disagreement<L>(job.ref, x, y, job.frames[k], frameX[k] + 2 * i, frameY[k]) > threshold)
                    job.counts[k] += kCountPerSample;
        }
    }
    hits.flush(job);
}

// Samples i of a row whose column x = x0 + 2 i lies in [lo, hi]: the range
// [first, last + 1) of i, clipped to [from, to).
struct SampleRange {
    int from, to;
    void keep(int x0, int lo, int hi) {
        // Smallest i with x0 + 2 i >= lo, and one past the largest with <= hi.
        const int a = lo > x0 ? (lo - x0 + 1) / 2 : 0;
        const int b = hi >= x0 ? (hi - x0) / 2 + 1 : 0;
        from = from > a ? from : a;
        to = to < b ? to : b;
    }
};

// Near an edge: every coordinate is reflected and neighbours outside the
// frame leave the activity. Along each sample row the samples that need
// none of that (the reference and every frame read unreflected, all four
// side neighbours inside, the loads inside the row) go through the vector
// path; the others take the scalar rule.
template <ClassifySamples L>
void countBorderBlock(const BlockJob& job, int W, int H) {
    const int samples = (job.size + 8) / 2;
    const int x0 = job.bx - 3;
    // Columns of plain samples: the left neighbour inside, the right one's
    // load ending inside the row (which also keeps the chroma pair two
    // columns right whole), every frame's sample unreflected.
    SampleRange plain{0, samples};
    plain.keep(x0, 2, W - 4);
    for (int k = 0; k < job.others; ++k) plain.keep(x0, -job.mv[k]->x, W - 2 - job.mv[k]->x);
    const bool vector = plain.to - plain.from >= kRun;
    Hits hits(job.others);
    for (int j = 0; j < samples; ++j) {
        const int y = reflectInto(job.by - 3 + 2 * j, H);
        const Neighbours rows = neighboursInside(2, y, W, H, true, true);
        int frameX[kMaxAlignedFrames], frameY[kMaxAlignedFrames];
        for (int k = 0; k < job.others; ++k) {
            frameX[k] = x0 + job.mv[k]->x;
            frameY[k] = reflectInto(y + job.mv[k]->y, H);
        }
        if (vector) {
            const RowPointers p = rowPointers<L>(job, x0 + 2 * plain.from, y, rows.up, rows.down, rows.chromaDown,
                                                 frameX, frameY, plain.from);
            countStretch<L>(job, p, plain.from, plain.to, hits);
        }
        for (int i = 0; i < samples; ++i) {
            if (vector && i >= plain.from && i < plain.to) continue;
            const int x = reflectInto(x0 + 2 * i, W);
            const int32_t threshold = localThreshold<L>(job.ref, x, y, neighboursInside(x, y, W, H, true, true));
            for (int k = 0; k < job.others; ++k) {
                const int xk = reflectInto(x + job.mv[k]->x, W);
                if (disagreement<L>(job.ref, x, y, job.frames[k], xk, frameY[k]) > threshold)
                    job.counts[k] += kCountPerSample;
            }
        }
    }
    hits.flush(job);
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
    ZeroedInts<4 * 512> counts(static_cast<size_t>(g.rows) * g.cols * kMaxAlignedFrames);
    countDisagreements(g, tile, samples, counts.data());
    const MotionThresholds th = motionThresholds(gMeanY, gMergeEnhanceID);
    const int32_t others = alignedFrameCount();
    for (int32_t b = 0; b < g.rows * g.cols; ++b)
        if (isMovingBlock(&counts[static_cast<size_t>(b) * kMaxAlignedFrames], others, g.block, th)) map[b] = 1;
}

}  // namespace trv
