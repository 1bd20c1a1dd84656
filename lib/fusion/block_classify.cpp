// Block classification: on a 2 x 2 subsampled grid around each block, count
// the samples where an aligned frame disagrees with the reference by more
// than a threshold that follows the local activity, then decide from the
// per-frame shares of disagreeing samples.
#include "fusion/block_classify.h"

#include <algorithm>
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
// 16-bit word dropped), and its chroma as its 8 pairs, which line up with
// the luma bytes: the sums of a sample end in its even byte. They saturate
// at 255; every threshold is below that, so clamps and comparisons come out
// as with exact sums.
constexpr int kRun = 8;
// Each lane counts at most two hits a group; flushed before it could wrap.
constexpr int kGroupsPerFlush = 127;

struct Runs {
    uint8x16_t lo, hi;
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

// Per sample, in its even byte: luma (the even byte) plus both bytes of its
// chroma pair, saturated (in any order: the sum of non-negative terms or
// 255). Odd bytes hold what they may: their thresholds are 255, which no
// byte passes.
inline uint8x16_t sampleSum(uint8x16_t luma, uint8x16_t pair) {
    return vqaddq_u8(luma, vqaddq_u8(pair, vreinterpretq_u8_u16(vshrq_n_u16(vreinterpretq_u16_u8(pair), 8))));
}

inline Runs sampleSums(const Runs& luma, const Runs& pairs) {
    return {sampleSum(luma.lo, pairs.lo), sampleSum(luma.hi, pairs.hi)};
}

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
    // Set field by field: zeroing the whole record first costs more than
    // the rest.
    RowPointers p;
    p.luma[0] = up ? job.ref.lumaAt<L>(x, y - 2) : nullptr;
    p.luma[1] = job.ref.lumaAt<L>(x, y);
    p.luma[2] = down ? job.ref.lumaAt<L>(x, y + 2) : nullptr;
    if (L == ClassifySamples::LumaAndColour) {
        p.chroma[0] = up ? job.ref.chromaAt(x, y - 2) : nullptr;
        p.chroma[1] = job.ref.chromaAt(x, y);
        p.chroma[2] = chromaDown ? job.ref.chromaAt(x, y + 2) : nullptr;
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
// further: in the even bytes; the odd ones hold 255, which no sum passes.
template <ClassifySamples L>
Runs localThresholds(const RowPointers& p, ptrdiff_t at, ptrdiff_t step, ptrdiff_t chromaAt, ptrdiff_t chromaStep) {
    const uint8x16_t oddFull = vreinterpretq_u8_u16(vdupq_n_u16(0xFF00));
    if (gMeanY < kDarkMeanY) {
        const uint8x16_t dark = vorrq_u8(vreinterpretq_u8_u16(vdupq_n_u16(kDarkThreshold)), oddFull);
        return {dark, dark};
    }
    constexpr ptrdiff_t kSide = L == ClassifySamples::PackedLuma ? 4 : 2;  // two pixels, in bytes
    const Runs centre = lumaRuns<L>(p.luma[1] + at, step);
    Runs activity = addSaturated(absDiff(centre, lumaRuns<L>(p.luma[1] + at - kSide, step)),
                                 absDiff(centre, lumaRuns<L>(p.luma[1] + at + kSide, step)));
    if (p.luma[0] != nullptr) activity = addSaturated(activity, absDiff(centre, lumaRuns<L>(p.luma[0] + at, step)));
    if (p.luma[2] != nullptr) activity = addSaturated(activity, absDiff(centre, lumaRuns<L>(p.luma[2] + at, step)));
    const uint8x16_t lo = vdupq_n_u8(L == ClassifySamples::LumaAndColour ? 20 : 16);
    const uint8x16_t hi = vdupq_n_u8(L == ClassifySamples::LumaAndColour ? 35 : 25);
    Runs sum = activity;
    if (L == ClassifySamples::LumaAndColour) {
        const Runs mid = chromaRuns(p.chroma[1] + chromaAt, chromaStep);
        Runs colour = addSaturated(absDiff(mid, chromaRuns(p.chroma[1] + chromaAt - 2, chromaStep)),
                                   absDiff(mid, chromaRuns(p.chroma[1] + chromaAt + 2, chromaStep)));
        if (p.chroma[0] != nullptr)
            colour = addSaturated(colour, absDiff(mid, chromaRuns(p.chroma[0] + chromaAt, chromaStep)));
        if (p.chroma[2] != nullptr)
            colour = addSaturated(colour, absDiff(mid, chromaRuns(p.chroma[2] + chromaAt, chromaStep)));
        sum = sampleSums(activity, colour);
    }
    auto clamp = [&](uint8x16_t v) { return vorrq_u8(vminq_u8(vmaxq_u8(v, lo), hi), oddFull); };
    return {clamp(sum.lo), clamp(sum.hi)};
}

// Per-frame hit lanes of one block, flushed into its counts.
struct Hits {
    uint8x16_t lanes[kMaxAlignedFrames];
    int groups = 0;

    explicit Hits(int others) {
        for (int k = 0; k < others; ++k) lanes[k] = vdupq_n_u8(0);
    }
    void add(int k, int, int, uint8x16_t lo, uint8x16_t hi) { lanes[k] = vaddq_u8(lanes[k], vaddq_u8(lo, hi)); }
    void endGroup(const BlockJob& job) {
        if (++groups == kGroupsPerFlush) flush(job);
    }
    void flush(const BlockJob& job) {
        for (int k = 0; k < job.others; ++k) {
            const uint64x2_t s = vpaddlq_u32(vpaddlq_u16(vpaddlq_u8(lanes[k])));
            job.counts[k] += kCountPerSample * static_cast<int32_t>(vgetq_lane_u64(s, 0) + vgetq_lane_u64(s, 1));
            lanes[k] = vdupq_n_u8(0);
        }
        groups = 0;
    }
};

// Per-frame hits of a whole row of samples, added per sample column into
// the even bytes of a running sum over the rows.
struct ColumnSums {
    uint8_t* sums[kMaxAlignedFrames];

    void add(int k, int lo, int hi, uint8x16_t passLo, uint8x16_t passHi) {
        uint8_t* a = sums[k] + 2 * lo;
        vst1q_u8(a, vaddq_u8(vld1q_u8(a), passLo));
        uint8_t* b = sums[k] + 2 * hi;  // may overlap a: its overlapping lanes add 0
        vst1q_u8(b, vaddq_u8(vld1q_u8(b), passHi));
    }
    void endGroup(const BlockJob&) {}
};

// 1 in the even byte of each sample whose sum passes its threshold.
inline uint8x16_t passes(uint8x16_t sum, uint8x16_t threshold) {
    return vminq_u8(vqsubq_u8(sum, threshold), vdupq_n_u8(1));
}

// Counts samples [from, to) of a sample row, at least one run of them,
// into `sink`; `p` points at sample `from`.
template <ClassifySamples L, class Sink>
void countStretch(const BlockJob& job, const RowPointers& p, int from, int to, Sink& sink) {
    constexpr ptrdiff_t kLumaBytes = L == ClassifySamples::PackedLuma ? 2 : 1;
    // Even byte of lane l: l; odd bytes: past every lane number.
    static const uint8_t kLane[2 * kRun] = {0, 255, 1, 255, 2, 255, 3, 255, 4, 255, 5, 255, 6, 255, 7, 255};
    const uint8x16_t lane = vld1q_u8(kLane);
    for (int i = from; i < to;) {
        // Runs from samples lo and hi. A run that would pass the last sample
        // ends on it instead, overlapping the samples before; lanes of
        // samples before i, or counted by the first run, get the threshold
        // 255 and never count. No run starts before sample `from`.
        const int lo = i + kRun <= to ? i : to - kRun;
        const int hi = lo + 2 * kRun <= to ? lo + kRun : to - kRun;
        const ptrdiff_t at = 2 * kLumaBytes * (lo - from), step = 2 * kLumaBytes * (hi - lo);
        const ptrdiff_t chromaAt = 2 * (lo - from), chromaStep = 2 * (hi - lo);
        Runs threshold = localThresholds<L>(p, at, step, chromaAt, chromaStep);
        threshold.lo = vorrq_u8(threshold.lo, vcltq_u8(lane, vdupq_n_u8(static_cast<uint8_t>(i - lo))));
        threshold.hi = vorrq_u8(threshold.hi, vcltq_u8(lane, vdupq_n_u8(static_cast<uint8_t>(kRun - (hi - lo)))));
        const Runs refLuma = lumaRuns<L>(p.luma[1] + at, step);
        Runs refChroma{};
        if (L == ClassifySamples::LumaAndColour) refChroma = chromaRuns(p.chroma[1] + chromaAt, chromaStep);
        for (int k = 0; k < job.others; ++k) {
            const Runs dLuma = absDiff(refLuma, lumaRuns<L>(p.frameLuma[k] + at, step));
            const Runs d = L == ClassifySamples::LumaAndColour
                               ? sampleSums(dLuma, absDiff(refChroma, chromaRuns(p.frameChroma[k] + chromaAt, chromaStep)))
                               : dLuma;
            sink.add(k, lo - from, hi - from, passes(d.lo, threshold.lo), passes(d.hi, threshold.hi));
        }
        sink.endGroup(job);
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

// The reflected columns of a block's samples, as forward runs: a block
// reaching past an edge reads its samples there mirrored, which is again a
// run of columns two apart, in reverse. The counts do not depend on the
// order the samples are taken in.
struct ColumnRun {
    int first, count;  // columns first, first + 2, ... (count of them)
};
constexpr int kMaxColumnRuns = 4;

// Splits the reflected columns of samples 0 .. samples - 1 into runs; false
// when they do not fall into a few (frames narrower than a block).
bool reflectedColumnRuns(int x0, int samples, int W, ColumnRun* runs, int* count) {
    *count = 0;
    int start = 0;
    while (start < samples) {
        const int a = reflectInto(x0 + 2 * start, W);
        int end = start + 1;
        int step = 0;
        if (end < samples) step = reflectInto(x0 + 2 * end, W) - a;
        if (step == 2 || step == -2) {
            while (end < samples && reflectInto(x0 + 2 * end, W) - reflectInto(x0 + 2 * (end - 1), W) == step) ++end;
        }
        if (*count == kMaxColumnRuns) return false;
        const int last = reflectInto(x0 + 2 * (end - 1), W);
        runs[(*count)++] = {a < last ? a : last, end - start};
        start = end;
    }
    return true;
}

// Near an edge: every coordinate is reflected and neighbours outside the
// frame leave the activity. Along each sample row the samples that need
// nothing of that after the reflection of their own column (every frame read
// unreflected, all four side neighbours inside, the loads inside the row)
// go through the vector path; the others take the scalar rule.
template <ClassifySamples L>
void countBorderBlock(const BlockJob& job, int W, int H) {
    const int samples = (job.size + 8) / 2;
    const int x0 = job.bx - 3;
    ColumnRun runs[kMaxColumnRuns];
    int runCount = 0;
    if (!reflectedColumnRuns(x0, samples, W, runs, &runCount)) runCount = 0;  // all scalar
    // Per run, its plain samples: the left neighbour inside, the right one's
    // load ending inside the row (which also keeps the chroma pair two
    // columns right whole), every frame's sample unreflected.
    SampleRange plain[kMaxColumnRuns];
    for (int r = 0; r < runCount; ++r) {
        plain[r] = {0, runs[r].count};
        plain[r].keep(runs[r].first, 2, W - 4);
        for (int k = 0; k < job.others; ++k)
            plain[r].keep(runs[r].first, -job.mv[k]->x, W - 2 - job.mv[k]->x);
        if (plain[r].to - plain[r].from < kRun) plain[r] = {0, 0};
    }
    auto scalarSample = [&](int x, int y, const int* frameY) {
        const int32_t threshold = localThreshold<L>(job.ref, x, y, neighboursInside(x, y, W, H, true, true));
        for (int k = 0; k < job.others; ++k) {
            const int xk = reflectInto(x + job.mv[k]->x, W);
            if (disagreement<L>(job.ref, x, y, job.frames[k], xk, frameY[k]) > threshold)
                job.counts[k] += kCountPerSample;
        }
    };
    Hits hits(job.others);
    for (int j = 0; j < samples; ++j) {
        const int y = reflectInto(job.by - 3 + 2 * j, H);
        const Neighbours rows = neighboursInside(2, y, W, H, true, true);
        int frameY[kMaxAlignedFrames];
        for (int k = 0; k < job.others; ++k) frameY[k] = reflectInto(y + job.mv[k]->y, H);
        if (runCount == 0) {
            for (int i = 0; i < samples; ++i) scalarSample(reflectInto(x0 + 2 * i, W), y, frameY);
            continue;
        }
        for (int r = 0; r < runCount; ++r) {
            const ColumnRun& run = runs[r];
            const SampleRange& vector = plain[r];
            if (vector.to > vector.from) {
                int frameX[kMaxAlignedFrames];
                for (int k = 0; k < job.others; ++k) frameX[k] = run.first + job.mv[k]->x;
                const RowPointers p = rowPointers<L>(job, run.first + 2 * vector.from, y, rows.up, rows.down,
                                                     rows.chromaDown, frameX, frameY, vector.from);
                countStretch<L>(job, p, vector.from, vector.to, hits);
            }
            for (int i = 0; i < run.count; ++i)
                if (i < vector.from || i >= vector.to) scalarSample(run.first + 2 * i, y, frameY);
        }
    }
    hits.flush(job);
}

bool interiorColumn(int bx, int size, int W) { return bx > kInteriorLeftTop && bx + size + 3 < W - kInteriorRightBottom; }
bool interiorRow(int by, int size, int H) { return by >= kInteriorLeftTop + 1 && by + size + 3 < H - kInteriorRightBottom; }

bool isInteriorBlock(int bx, int by, int size, int W, int H) {
    return interiorColumn(bx, size, W) && interiorRow(by, size, H);
}

// Blocks whose samples every path reads alike: each sample and its four
// neighbours inside the frame (so no reflection, and the activity takes all
// four), the vector loads inside their rows, and every frame's sample of
// (x, y) at (x + mvx, y + mvy) with none of the interior path's clamps. An
// interior block meets the frame conditions by itself; a block near an edge
// meets them all when its samples do not reach the edge, and then its
// border path would give the same counts sample by sample. They form a
// rectangle of the grid, [c0, c1) x [r0, r1), empty when c1 <= c0.
struct SharedRectangle {
    int c0 = 0, c1 = 0, r0 = 0, r1 = 0;
};

SharedRectangle sharedRectangle(const TileGeometry& g, const BlockJob& job, int W, int H) {
    const int S = g.block, samples = (S + 8) / 2;
    // A block's samples lie at bx - 3 + 2 i and by - 3 + 2 j, i, j < samples.
    auto columnOk = [&](int c) {
        const int first = g.x0 - S + c * S - 3, last = first + 2 * (samples - 1);
        // Left neighbour inside; the right one's load (and its chroma pair)
        // ends inside the row.
        if (first < 2 || last > W - 4) return false;
        for (int k = 0; k < job.others; ++k) {
            const int mvx = job.mv[k]->x;
            if (first + mvx < 0 || last + mvx > W - 2) return false;
        }
        return true;
    };
    auto rowOk = [&](int r) {
        const int first = g.y0 - S + r * S - 3, last = first + 2 * (samples - 1);
        const Neighbours top = neighboursInside(2, first, W, H, true, true);
        const Neighbours bottom = neighboursInside(2, last, W, H, true, true);
        if (!top.up || !bottom.down || !bottom.chromaDown) return false;
        for (int k = 0; k < job.others; ++k) {
            const int mvy = job.mv[k]->y;
            if (first + mvy < 0 || last + mvy > H - 2) return false;
        }
        return true;
    };
    SharedRectangle a;
    // Sample rows of two block rows at most overlap, and a column sum holds
    // a block's rows in a byte.
    if (S < 8 || samples > 255) return a;
    while (a.c0 < g.cols && !columnOk(a.c0)) ++a.c0;
    a.c1 = a.c0;
    while (a.c1 < g.cols && columnOk(a.c1)) ++a.c1;
    while (a.r0 < g.rows && !rowOk(a.r0)) ++a.r0;
    a.r1 = a.r0;
    while (a.r1 < g.rows && rowOk(a.r1)) ++a.r1;
    if (a.r1 <= a.r0) a.c1 = a.c0;
    return a;
}

// The blocks of the shared rectangle: blocks next to each other share 4
// sample columns, and block rows 4 sample rows, so each sample of the
// rectangle is counted once, into per-column sums running over all sample
// rows. A block row's column sums are the running sums after its last row
// less those before its first; bytes wrap, but a block's column holds at
// most `samples` < 256 hits, so the difference is exact. Each block then
// adds up its columns.
template <ClassifySamples L>
void countSharedRectangle(const TileGeometry& g, BlockJob& job, const SharedRectangle& a, int32_t* counts) {
    const int S = g.block, half = S / 2, samples = (S + 8) / 2, blockRows = a.r1 - a.r0;
    const int columns = (a.c1 - a.c0 - 1) * half + samples, rows = (blockRows - 1) * half + samples;
    const int x0 = g.x0 - S + a.c0 * S - 3, y0 = g.y0 - S + a.r0 * S - 3;
    // Even bytes per sample column, and a run's worth past the last.
    const size_t stride = 2 * static_cast<size_t>(columns) + 2 * kRun;
    // The running sums, then the sums at the start of the block rows in
    // progress (at most two: even and odd block rows).
    ZeroedArray<uint8_t, 12288> storage(3 * kMaxAlignedFrames * stride);
    auto running = [&](int k) { return &storage[k * stride]; };
    auto atStart = [&](int blockRow, int k) { return &storage[((1 + (blockRow & 1)) * kMaxAlignedFrames + k) * stride]; };
    ColumnSums sink{};
    for (int k = 0; k < job.others; ++k) sink.sums[k] = running(k);
    int frameX[kMaxAlignedFrames], frameY[kMaxAlignedFrames];
    for (int v = 0; v < rows; ++v) {
        if (v % half == 0 && v / half < blockRows) {
            for (int k = 0; k < job.others; ++k) std::copy(running(k), running(k) + stride, atStart(v / half, k));
        }
        const int y = y0 + 2 * v;
        for (int k = 0; k < job.others; ++k) {
            frameX[k] = x0 + job.mv[k]->x;
            frameY[k] = y + job.mv[k]->y;
        }
        countStretch<L>(job, rowPointers<L>(job, x0, y, true, true, true, frameX, frameY, 0), 0, columns, sink);
        // A block row whose last sample row this was: its blocks add up
        // their columns.
        const int done = v - samples + 1;
        if (done >= 0 && done % half == 0 && done / half < blockRows) {
            const int r = done / half;
            for (int c = a.c0; c < a.c1; ++c) {
                int32_t* block = counts + ((a.r0 + r) * g.cols + c) * kMaxAlignedFrames;
                const int first = (c - a.c0) * half;
                for (int k = 0; k < job.others; ++k) {
                    const uint8_t* now = running(k);
                    const uint8_t* before = atStart(r, k);
                    int32_t total = 0;
                    for (int i = 0; i < samples; ++i) {
                        const size_t at = 2 * static_cast<size_t>(first + i);
                        total += static_cast<uint8_t>(now[at] - before[at]);
                    }
                    block[k] += kCountPerSample * total;
                }
            }
        }
    }
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
    const SharedRectangle shared = sharedRectangle(g, job, W, H);
    if (shared.c1 > shared.c0) countSharedRectangle<L>(g, job, shared, counts);
    for (int r = 0; r < g.rows; ++r) {
        for (int c = 0; c < g.cols; ++c) {
            if (r >= shared.r0 && r < shared.r1 && c >= shared.c0 && c < shared.c1) continue;
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
