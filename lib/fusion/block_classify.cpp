// Block classification: on a 2 x 2 subsampled grid around each block, count
// the samples where an aligned frame disagrees with the reference by more
// than a threshold that follows the local activity, then decide from the
// per-frame shares of disagreeing samples.
#include "fusion/block_classify.h"

#include <cstddef>

#include "common/arith.h"
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
    int luma(int x, int y) const {
        const size_t at = static_cast<size_t>(x) + static_cast<size_t>(W) * y;
        return data[L == ClassifySamples::PackedLuma ? 2 * at : at];
    }
    // Chroma byte c of the 4:2:0 pair holding pixel (x, y).
    int chroma(int x, int y, int c) const {
        return data[static_cast<size_t>(Y_SIZE) + static_cast<size_t>(W) * (y / 2) + (x & ~1) + c];
    }
};

// Which neighbours two pixels (two rows) away a reference sample may use.
struct Around {
    bool left, right, up, down, chromaRight, chromaDown;
};

Around allAround() { return {true, true, true, true, true, true}; }

Around insideImage(int x, int y, int W, int H) {
    Around a{x > 1, x < W - 2, y > 1, y < H - 2, false, false};
    // On odd sizes the pair two columns right (or the chroma row two rows
    // down) may be missing although the luma exists.
    a.chromaRight = a.right && ((x + 2) & ~1) + 1 < W;
    a.chromaDown = a.down && (y + 2) / 2 < H / 2;
    return a;
}

template <ClassifySamples L>
int32_t localThreshold(const Frame& ref, int x, int y, const Around& a) {
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
    Frame frames[kMaxOtherFrames];
    const MV1* mv[kMaxOtherFrames];
    int32_t* counts;
};

// Far from every edge: each sample row of a frame starts at a fixed column
// and nothing is reflected.
template <ClassifySamples L>
void countInteriorBlock(const BlockJob& job, int W, int H) {
    const int samples = (job.size + 8) / 2;
    for (int j = 0; j < samples; ++j) {
        const int y = job.by - 3 + 2 * j;
        int xs[kMaxOtherFrames], ys[kMaxOtherFrames];
        for (int k = 0; k < job.others; ++k) {
            const int mvx = job.mv[k]->x, mvy = job.mv[k]->y;
            xs[k] = absInt(job.bx + job.size + 3 + mvx) < W - 1 ? job.bx - 3 + mvx : W - job.size - 8;
            ys[k] = absInt(y + mvy) < H - 1 ? y + mvy : H - 2;
            // Vectors beyond the motion search's range could point above or
            // left of the frame: clamp, as a last resort.
            xs[k] = clampInt(xs[k], 0, W - job.size - 8);
            ys[k] = clampInt(ys[k], 0, H - 2);
        }
        for (int i = 0; i < samples; ++i) {
            const int x = job.bx - 3 + 2 * i;
            const int32_t threshold = localThreshold<L>(job.ref, x, y, allAround());
            for (int k = 0; k < job.others; ++k)
                if (disagreement<L>(job.ref, x, y, job.frames[k], xs[k] + 2 * i, ys[k]) > threshold)
                    job.counts[k] += kCountPerSample;
        }
    }
}

template <ClassifySamples L>
void countBorderBlock(const BlockJob& job, int W, int H) {
    const int samples = (job.size + 8) / 2;
    for (int j = 0; j < samples; ++j) {
        const int y = reflectInto(job.by - 3 + 2 * j, H);
        for (int i = 0; i < samples; ++i) {
            const int x = reflectInto(job.bx - 3 + 2 * i, W);
            const int32_t threshold = localThreshold<L>(job.ref, x, y, insideImage(x, y, W, H));
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
void classifyWith(const TileGeometry& g, int32_t tile, int32_t* map) {
    const int W = gW, H = gH;
    BlockJob job{};
    job.size = g.block;
    job.tile = tile;
    job.others = clampInt(gNum, 0, kMaxOtherFrames);
    job.ref = Frame{gMergeInput[0], W};
    for (int k = 0; k < job.others; ++k) {
        job.frames[k] = Frame{gMergeInput[k + 1], W};
        job.mv[k] = gMergeMV[k][tile];
    }
    const MotionThresholds th = motionThresholds(gMeanY, gMergeEnhanceID);
    for (int r = 0; r < g.rows; ++r) {
        for (int c = 0; c < g.cols; ++c) {
            int32_t counts[kMaxOtherFrames] = {};
            job.bx = g.x0 - g.block + c * g.block;
            job.by = g.y0 - g.block + r * g.block;
            job.counts = counts;
            if (isInteriorBlock(job.bx, job.by, g.block, W, H))
                countInteriorBlock<L>(job, W, H);
            else
                countBorderBlock<L>(job, W, H);
            if (isMovingBlock(counts, job.others, g.block, th)) map[r * g.cols + c] = 1;
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
    // Without another frame nothing can disagree.
    if (others < 1) return false;
    const float samples = static_cast<float>((blockSize + 8) * (blockSize + 8));
    float ratio[kMaxOtherFrames];
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

void classifyBlocks(const TileGeometry& g, int32_t tile, ClassifySamples samples, int32_t* map) {
    switch (samples) {
        case ClassifySamples::LumaAndColour:
            classifyWith<ClassifySamples::LumaAndColour>(g, tile, map);
            break;
        case ClassifySamples::PlanarLuma:
            classifyWith<ClassifySamples::PlanarLuma>(g, tile, map);
            break;
        case ClassifySamples::PackedLuma:
            classifyWith<ClassifySamples::PackedLuma>(g, tile, map);
            break;
    }
}

}  // namespace trv
