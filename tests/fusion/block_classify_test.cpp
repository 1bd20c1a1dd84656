// Tile geometry, the moving decision and block classification: hand-worked
// values, and the vector count of interior blocks against a plain model.
#include <gtest/gtest.h>

#include <array>

#include "fusion/block_classify.h"
#include "fusion/fusion_scene.h"
#include "fusion/merge_geometry.h"

namespace {

using fusiontest::Frames;
using trv::ClassifySamples;

TEST(TileGeometry, BlockSizeGridAndMarginFollowTheTileWidth) {
    struct Case {
        int tile, W, H;
        std::array<int, 10> want;  // tileW, tileH, cols, rows, block, margin, x0, x1, y0, y1; -1: any
    };
    const Case cases[] = {
        // TW 100, TH 60: block ceil(100 / 12) = 9 -> 10, margin 5 -> 4, rows 6 + 2.
        {9, 800, 480, {100, 60, 14, 8, 10, 4, 100, -1, 60, -1}},
        // TW 98: block ceil(98 / 6) = 17 -> 18, margin 9 -> 8; TH ceil(470 / 8)
        // = 59 -> 60: rows 60 / 18 = 3, + 2, + 1 for the remainder.
        {0, 784, 470, {-1, 60, 8, 6, 18, 8, -1, -1, -1, -1}},
        // The last column and row are cut at the frame edge, or left empty.
        {63, 1000, 100, {126, -1, -1, -1, -1, -1, 882, 1000, -1, 100}},
        {5, 10, 10, {-1, -1, -1, -1, -1, -1, 10, 10, -1, -1}},
    };
    for (const Case& c : cases) {
        const trv::TileGeometry g = trv::tileGeometry(c.tile, c.W, c.H);
        const int got[10] = {g.tileW, g.tileH, g.cols, g.rows, g.block, g.margin, g.x0, g.x1, g.y0, g.y1};
        for (int i = 0; i < 10; ++i)
            if (c.want[i] >= 0) {
                EXPECT_EQ(got[i], c.want[i]) << "tile " << c.tile << " field " << i;
            }
    }
}

// One step inside the mirror; too small a frame clamps into 0 .. n - 2.
TEST(TileGeometry, ReflectionLandsOneStepInsideTheMirror) {
    const int cases[][3] = {{-3, 20, 3}, {18, 20, 18}, {19, 20, 17}, {22, 20, 14}, {-19, 20, 17}, {40, 8, 0}, {5, 2, 0}};
    for (const auto& c : cases) EXPECT_EQ(trv::reflectInto(c[0], c[1]), c[2]) << c[0] << " in " << c[1];
}

// Block 12: 400 sample cells. One other frame compares only the mean with
// 0.2 (80 / 400 is not above it), whatever the level. Ratios 0 and 0.12:
// mean 0.06, variance 0.0036 against 0.0025 (bright), 0.01 (dark) or 0.0004
// (levels 0 and 2). Equal ratios 0.22: only the mean decides, 0.2 for levels
// 0 and 2, else 0.25.
TEST(MovingDecision, ThresholdsFollowFrameCountBrightnessAndLevel) {
    struct Case {
        std::vector<int32_t> counts;
        int meanY, level;
        bool moving;
    };
    const Case cases[] = {{{80}, 40, 1, false},         {{84}, 40, 1, true},          {{80}, 40, 0, false},
                          {{0, 48}, 40, 1, true},       {{0, 48}, 10, 1, false},      {{0, 48}, 10, 3, false},
                          {{0, 48}, 10, 0, true},       {{0, 48}, 10, 2, true},       {{88, 88, 88}, 40, 0, true},
                          {{88, 88, 88}, 40, 2, true},  {{88, 88, 88}, 40, 1, false}, {{88, 88, 88}, 40, 6, false}};
    for (const Case& c : cases)
        EXPECT_EQ(trv::isMovingBlock(c.counts.data(), static_cast<int>(c.counts.size()), 12,
                                     trv::motionThresholds(c.meanY, c.level)),
                  c.moving)
            << c.counts[0] << " of " << c.counts.size() << " at " << c.meanY << ", level " << c.level;
    int32_t none[2] = {0, 0};
    EXPECT_FALSE(trv::isMovingBlock(none, 0, 12, trv::motionThresholds(40, 0)));
}

// Per-frame counts of one tile from the rule, sample by sample: positions
// reflect at the frame edge; blocks far from every edge read each frame
// from one start column and row per sample row, moved to the frame's last
// columns or row when the vector points out of it.
std::vector<int> modelCounts(Frames& b, ClassifySamples samples, int tile) {
    const trv::TileGeometry g = trv::tileGeometry(tile, b.W, b.H);
    const int W = b.W, H = b.H, S = g.block, n = (S + 8) / 2;
    const bool colour = samples == ClassifySamples::LumaAndColour;
    auto diff = [&](int x, int y, int f, int xf, int yf) {
        int d = std::abs(b.luma(0, x, y) - b.luma(f, xf, yf));
        for (int ch = 0; colour && ch < 2; ++ch) d += std::abs(b.chroma(0, ch, x, y & ~1) - b.chroma(f, ch, xf, yf & ~1));
        return d;
    };
    std::vector<int> counts(g.rows * g.cols * trv::kMaxClassifyFrames, 0);
    for (int r = 0; r < g.rows; ++r)
        for (int c = 0; c < g.cols; ++c) {
            const int bx = g.x0 - S + c * S, by = g.y0 - S + r * S;
            const bool far = bx >= 82 && bx + S + 3 < W - 78 && by >= 82 && by + S + 3 < H - 78;
            for (int j = 0; j < n; ++j)
                for (int i = 0; i < n; ++i) {
                    const int x = trv::reflectInto(bx - 3 + 2 * i, W), y = trv::reflectInto(by - 3 + 2 * j, H);
                    int A = 0;
                    if (x > 1) A += diff(x, y, 0, x - 2, y);
                    if (x < W - 2) A += diff(x, y, 0, x + 2, y);
                    if (y > 1) A += diff(x, y, 0, x, y - 2);
                    if (y < H - 2) A += diff(x, y, 0, x, y + 2);
                    const int T = gMeanY < 19 ? 12 : colour ? std::clamp(A, 20, 35) : std::clamp(A, 16, 25);
                    for (int k = 0; k < b.others(); ++k) {
                        const int mx = b.mvs[k].x, my = b.mvs[k].y;
                        int xk = trv::reflectInto(x + mx, W), yk = trv::reflectInto(y + my, H);
                        if (far) {
                            xk = std::abs(bx + S + 3 + mx) < W - 1 ? x + mx : W - S - 8 + 2 * i;
                            xk = std::clamp(xk - 2 * i, 0, W - S - 8) + 2 * i;
                            yk = std::clamp(std::abs(y + my) < H - 1 ? y + my : H - 2, 0, H - 2);
                        }
                        if (diff(x, y, k + 1, xk, yk) > T) counts[(r * g.cols + c) * trv::kMaxClassifyFrames + k] += 4;
                    }
                }
        }
    return counts;
}

// Block sizes 6 to 42: 7, 8, 12, 15, 19 and 25 samples a row (below one
// vector, exactly one, and remainders across two and three runs); odd
// heights, vectors small, large and out of the frame (the third frame's,
// from interior blocks), noise near the thresholds, dark and bright scenes;
// and tiny frames with vectors far beyond them.
TEST(BlockClassify, DisagreementCountsMatchTheModelForEveryBlockSize) {
    struct Case {
        int W, H, code, others;
        ClassifySamples samples;
    };
    const Case cases[] = {{200, 181, 1, 3, ClassifySamples::PlanarLuma},    {300, 190, 4, 5, ClassifySamples::LumaAndColour},
                          {700, 191, 2, 1, ClassifySamples::PackedLuma},    {2000, 200, 4, 3, ClassifySamples::LumaAndColour},
                          {2720, 210, 0, 5, ClassifySamples::PlanarLuma},   {4000, 225, 2, 3, ClassifySamples::PackedLuma},
                          {4000, 224, 4, 1, ClassifySamples::LumaAndColour}, {6, 4, 4, 3, ClassifySamples::LumaAndColour},
                          {2, 2, 2, 3, ClassifySamples::PackedLuma}};
    int hits = 0, total = 0;
    for (const Case& cs : cases) {
        const uint32_t seed = 7u * cs.others + static_cast<uint32_t>(cs.W + cs.H);
        trvtest::Rng rng(seed);
        Frames b(cs.W, cs.H, cs.others);
        b.planes[0] = trvtest::texturedPlanes(cs.W, cs.H, seed);
        fusiontest::addNoise(b.planes[0].y, rng.uniform(0, 8), seed + 1);
        for (int k = 0; k < cs.others; ++k) {
            const int reach = cs.W < 10 ? 300 : k == 2 ? std::min(cs.W, cs.H) / 3 : k == 1 ? 30 : 7;
            b.mvs[k] = MV1{rng.uniform(-reach, reach), rng.uniform(-reach, reach), {0, 0, 0, 0}, 0.0};
            b.planes[k + 1] = trvtest::shifted(b.planes[0], b.mvs[k].x, b.mvs[k].y);
            fusiontest::addNoise(b.planes[k + 1].y, rng.uniform(4, 30), seed + 10 + k);
            fusiontest::addNoise(b.planes[k + 1].first, rng.uniform(0, 12), seed + 20 + k);
        }
        b.publish(cs.code, 0);
        for (int tile : {0, 27, 29, 36, 44, 63}) {
            gMeanY = tile % 2 ? 19 : 18;  // either side of the dark threshold
            const trv::TileGeometry g = trv::tileGeometry(tile, cs.W, cs.H);
            std::vector<int32_t> got(g.rows * g.cols * trv::kMaxClassifyFrames, 0);
            trv::countDisagreements(g, tile, cs.samples, got.data());
            const std::vector<int> want = modelCounts(b, cs.samples, tile);
            ASSERT_EQ(std::vector<int>(got.begin(), got.end()), want)
                << cs.W << "x" << cs.H << " code " << cs.code << " tile " << tile << " others " << cs.others;
            for (int v : want) hits += v > 0, total += 1;
        }
    }
    // Enough samples disagree for the comparison to mean something.
    EXPECT_GT(hits, total / 10);
}

// Tiles taller than 512 rows: the running column sums of the shared pass
// wrap past 255. Every sample disagrees, so each block counts all of its
// (S + 8)^2 / 4 samples, four pixels each.
TEST(BlockClassify, TallTilesCountEverySample) {
    Frames b(800, 4200, 2);
    for (int k = 1; k <= 2; ++k) std::fill(b.planes[k].y.begin(), b.planes[k].y.end(), 255);
    b.publish(4, 0);
    gMeanY = 40;
    const trv::TileGeometry g = trv::tileGeometry(27, b.W, b.H);
    std::vector<int32_t> got(g.rows * g.cols * trv::kMaxClassifyFrames, 0);
    trv::countDisagreements(g, 27, ClassifySamples::LumaAndColour, got.data());
    const int n = (g.block + 8) / 2;
    for (int block = 0; block < g.rows * g.cols; ++block)
        for (int k = 0; k < 2; ++k) ASSERT_EQ(got[block * trv::kMaxClassifyFrames + k], 4 * n * n) << "block " << block;
}

}  // namespace
