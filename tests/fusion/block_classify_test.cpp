// Tile geometry, the moving decision and block classification against a
// plain model that reflects every sample (interior blocks included).
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

std::vector<int> classify(int tile, ClassifySamples samples) {
    const trv::TileGeometry g = trv::tileGeometry(tile, gW, gH);
    std::vector<int> map(g.rows * g.cols, 0);
    trv::classifyBlocks(g, tile, samples, map.data());
    return map;
}

std::vector<int> modelMap(Frames& b, ClassifySamples samples, int tile) {
    using fusiontest::reflect;
    const trv::TileGeometry g = trv::tileGeometry(tile, b.W, b.H);
    const int W = b.W, H = b.H, N = b.others(), S = g.block;
    const bool colour = samples == ClassifySamples::LumaAndColour;
    auto Y = [&](int f, int x, int y) { return static_cast<int>(b.luma(f, x, y)); };
    auto C = [&](int f, int c, int x, int y) { return static_cast<int>(b.chroma(f, c, x, y & ~1)); };
    std::vector<int> map(g.rows * g.cols, 0);
    for (int r = 0; r < g.rows; ++r)
        for (int c = 0; c < g.cols; ++c) {
            const int bx = g.x0 - S + c * S, by = g.y0 - S + r * S;
            std::vector<int> count(N, 0);
            for (int j = 0; j < (S + 8) / 2; ++j)
                for (int i = 0; i < (S + 8) / 2; ++i) {
                    const int x = reflect(bx - 3 + 2 * i, W), y = reflect(by - 3 + 2 * j, H);
                    int T = 12;
                    if (gMeanY >= 19) {
                        int A = 0;
                        const int dxs[4] = {-2, 2, 0, 0}, dys[4] = {0, 0, -2, 2};
                        const bool ok[4] = {x > 1, x < W - 2, y > 1, y < H - 2};
                        for (int n = 0; n < 4; ++n) {
                            if (!ok[n]) continue;
                            A += std::abs(Y(0, x, y) - Y(0, x + dxs[n], y + dys[n]));
                            if (colour)
                                for (int ch = 0; ch < 2; ++ch)
                                    A += std::abs(C(0, ch, x, y) - C(0, ch, x + dxs[n], y + dys[n]));
                        }
                        T = colour ? std::min(35, std::max(20, A)) : (A <= 15 ? 16 : (A >= 25 ? 25 : A));
                    }
                    for (int k = 0; k < N; ++k) {
                        const int xk = reflect(x + b.mvs[k].x, W), yk = reflect(y + b.mvs[k].y, H);
                        int D = std::abs(Y(0, x, y) - Y(k + 1, xk, yk));
                        if (colour)
                            for (int ch = 0; ch < 2; ++ch) D += std::abs(C(0, ch, x, y) - C(k + 1, ch, xk, yk));
                        if (D > T) count[k] += 4;
                    }
                }
            float ratio[5], m = 0.0f, v = 0.0f;
            for (int k = 0; k < N; ++k) m += ratio[k] = static_cast<float>(count[k]) / static_cast<float>((S + 8) * (S + 8));
            m /= static_cast<float>(N);
            for (int k = 0; k < N; ++k) v += (ratio[k] - m) * (ratio[k] - m);
            v /= static_cast<float>(N);
            const bool tight = gMergeEnhanceID == 0 || gMergeEnhanceID == 2;
            const float Tm = tight ? 0.2f : 0.25f, Tv = tight ? 0.0004f : (gMeanY < 19 ? 0.01f : 0.0025f);
            map[r * g.cols + c] = N == 1 ? m > 0.2f : (v > Tv || m > Tm);
        }
    return map;
}

// Each other frame: the reference shifted by its vector with luma noise,
// plus a patch that changes in this frame only.
Frames movingBurst(int W, int H, int others, uint32_t seed) {
    trvtest::Rng rng(seed);
    Frames b(W, H, others);
    b.planes[0] = fusiontest::texturedPlanes(W, H, seed);
    for (int k = 0; k < others; ++k) {
        b.mvs[k] = MV1{rng.uniform(-6, 6), rng.uniform(-6, 6), {0, 0, 0, 0}, 0.0};
        b.planes[k + 1] = fusiontest::shifted(b.planes[0], b.mvs[k].x, b.mvs[k].y);
        const int px = rng.uniform(0, W - 40), py = rng.uniform(0, H - 40);
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                uint8_t& v = b.luma(k + 1, x, y);
                if (x >= px && x < px + 40 && y >= py && y < py + 40)
                    v = static_cast<uint8_t>(255 - v), b.chroma(k + 1, 0, x, y) = 40;
                else
                    v = static_cast<uint8_t>(std::clamp(v + rng.uniform(-12, 12), 0, 255));
            }
    }
    return b;
}

TEST(BlockClassify, EveryTileMatchesTheReflectingModel) {
    struct Case {
        int W, H, code;
        ClassifySamples samples;
    };
    // 800 wide: 14-column grid with interior blocks; 416 x 352: 8 columns.
    const Case cases[] = {{800, 200, 4, ClassifySamples::LumaAndColour},
                          {416, 352, 4, ClassifySamples::LumaAndColour},
                          {416, 352, 1, ClassifySamples::PlanarLuma},
                          {800, 200, 0, ClassifySamples::PlanarLuma},
                          {416, 352, 2, ClassifySamples::PackedLuma}};
    int moving = 0, cells = 0;
    for (const Case& cs : cases) {
        for (int others = 1; others <= 5; others += 2) {
            Frames b = movingBurst(cs.W, cs.H, others, 31u * others + cs.code);
            for (int tile : {0, 9, 27, 38, 63}) {
                gMeanY = tile % 2 ? 40 : 12;
                gMergeEnhanceID = tile % 4;
                b.publish(cs.code, 0);
                const std::vector<int> got = classify(tile, cs.samples);
                ASSERT_EQ(got, modelMap(b, cs.samples, tile)) << cs.W << "x" << cs.H << " code " << cs.code
                                                              << " tile " << tile << " others " << others;
                for (int v : got) moving += v;
                cells += static_cast<int>(got.size());
            }
        }
    }
    // Both outcomes occur, so the comparison means something.
    EXPECT_GT(moving, cells / 20);
    EXPECT_LT(moving, cells - cells / 20);
}

// Per-frame counts of one tile, block by block, from a plain model: the
// sample positions reflect at the frame edge; blocks far from every edge
// read each frame from one start column and row per sample row, moved to
// the frame's last columns or row when the vector points out of it.
std::vector<int> modelCounts(Frames& b, ClassifySamples samples, int tile) {
    using fusiontest::reflect;
    const trv::TileGeometry g = trv::tileGeometry(tile, b.W, b.H);
    const int W = b.W, H = b.H, N = b.others(), S = g.block, n = (S + 8) / 2;
    const bool colour = samples == ClassifySamples::LumaAndColour;
    auto Y = [&](int f, int x, int y) { return static_cast<int>(b.luma(f, x, y)); };
    auto C = [&](int f, int c, int x, int y) { return static_cast<int>(b.chroma(f, c, x, y & ~1)); };
    std::vector<int> counts(g.rows * g.cols * trv::kMaxClassifyFrames, 0);
    for (int r = 0; r < g.rows; ++r)
        for (int c = 0; c < g.cols; ++c) {
            const int bx = g.x0 - S + c * S, by = g.y0 - S + r * S;
            const bool far = bx >= 82 && bx + S + 3 < W - 78 && by >= 82 && by + S + 3 < H - 78;
            for (int j = 0; j < n; ++j)
                for (int i = 0; i < n; ++i) {
                    const int x = reflect(bx - 3 + 2 * i, W), y = reflect(by - 3 + 2 * j, H);
                    int A = 0;
                    const int dxs[4] = {-2, 2, 0, 0}, dys[4] = {0, 0, -2, 2};
                    const bool ok[4] = {x > 1, x < W - 2, y > 1, y < H - 2};
                    for (int e = 0; e < 4; ++e) {
                        if (!ok[e]) continue;
                        A += std::abs(Y(0, x, y) - Y(0, x + dxs[e], y + dys[e]));
                        if (colour)
                            for (int ch = 0; ch < 2; ++ch)
                                A += std::abs(C(0, ch, x, y) - C(0, ch, x + dxs[e], y + dys[e]));
                    }
                    const int T = gMeanY < 19 ? 12 : colour ? std::clamp(A, 20, 35) : std::clamp(A, 16, 25);
                    for (int k = 0; k < N; ++k) {
                        const int mx = b.mvs[k].x, my = b.mvs[k].y;
                        int xk = reflect(x + mx, W), yk = reflect(y + my, H);
                        if (far) {
                            xk = std::abs(bx + S + 3 + mx) < W - 1 ? x + mx : W - S - 8 + 2 * i;
                            xk = std::clamp(xk - 2 * i, 0, W - S - 8) + 2 * i;
                            yk = std::clamp(std::abs(y + my) < H - 1 ? y + my : H - 2, 0, H - 2);
                        }
                        int D = std::abs(Y(0, x, y) - Y(k + 1, xk, yk));
                        if (colour)
                            for (int ch = 0; ch < 2; ++ch) D += std::abs(C(0, ch, x, y) - C(k + 1, ch, xk, yk));
                        if (D > T) counts[(r * g.cols + c) * trv::kMaxClassifyFrames + k] += 4;
                    }
                }
        }
    return counts;
}

// Block sizes 6 to 42 (7 to 25 samples a row: below one vector, exactly
// one, and every remainder), odd heights, vectors small, large
// and out of the frame, noise near the thresholds, dark and bright scenes.
TEST(BlockClassify, DisagreementCountsMatchTheModelForEveryBlockSize) {
    struct Case {
        int W, H, code;
        ClassifySamples samples;
    };
    const Case cases[] = {{200, 301, 1, ClassifySamples::PlanarLuma},    {300, 300, 4, ClassifySamples::LumaAndColour},
                          {520, 290, 2, ClassifySamples::PackedLuma},    {600, 320, 4, ClassifySamples::LumaAndColour},
                          {700, 301, 0, ClassifySamples::PlanarLuma},    {1000, 290, 4, ClassifySamples::LumaAndColour},
                          {1600, 291, 2, ClassifySamples::PackedLuma},   {2000, 300, 1, ClassifySamples::PlanarLuma},
                          {2720, 290, 4, ClassifySamples::LumaAndColour}, {4000, 300, 2, ClassifySamples::PackedLuma},
                          {4000, 301, 4, ClassifySamples::LumaAndColour}};
    int interior = 0, hits = 0, total = 0;
    for (const Case& cs : cases) {
        for (int others = 1; others <= 5; others += 2) {
            const uint32_t seed = 7u * others + static_cast<uint32_t>(cs.W + cs.H);
            trvtest::Rng rng(seed);
            Frames b(cs.W, cs.H, others);
            b.planes[0] = fusiontest::texturedPlanes(cs.W, cs.H, seed);
            fusiontest::addNoise(b.planes[0].y, rng.uniform(0, 8), seed + 1);
            for (int k = 0; k < others; ++k) {
                // The third frame's vector may point out of the frame from an
                // interior block; mirrored once, border samples stay inside.
                const int reach = k == 2 ? std::min(cs.W, cs.H) / 3 : k == 1 ? 30 : 7;
                b.mvs[k] = MV1{rng.uniform(-reach, reach), rng.uniform(-reach, reach), {0, 0, 0, 0}, 0.0};
                b.planes[k + 1] = fusiontest::shifted(b.planes[0], b.mvs[k].x, b.mvs[k].y);
                fusiontest::addNoise(b.planes[k + 1].y, rng.uniform(4, 30), seed + 10 + k);
                fusiontest::addNoise(b.planes[k + 1].first, rng.uniform(0, 12), seed + 20 + k);
            }
            for (int tile : {0, 18, 27, 29, 36, 44, 63}) {
                gMeanY = tile % 3 ? 40 : 12;
                b.publish(cs.code, 0);
                const trv::TileGeometry g = trv::tileGeometry(tile, cs.W, cs.H);
                std::vector<int32_t> got(g.rows * g.cols * trv::kMaxClassifyFrames, 0);
                trv::countDisagreements(g, tile, cs.samples, got.data());
                const std::vector<int> want = modelCounts(b, cs.samples, tile);
                ASSERT_EQ(std::vector<int>(got.begin(), got.end()), want)
                    << cs.W << "x" << cs.H << " code " << cs.code << " tile " << tile << " others " << others;
                for (int r = 0; r < g.rows; ++r)
                    for (int c = 0; c < g.cols; ++c) {
                        const int bx = g.x0 - g.block + c * g.block, by = g.y0 - g.block + r * g.block;
                        interior += bx >= 82 && bx + g.block + 3 < cs.W - 78 && by >= 82 && by + g.block + 3 < cs.H - 78;
                    }
                for (int v : want) hits += v > 0, total += 1;
            }
        }
    }
    // Interior blocks are reached, and counts are neither all zero nor all full.
    EXPECT_GT(interior, 500);
    EXPECT_GT(hits, total / 10);
}

// Uniform scenes: every block of the tile gets the same verdict.
struct UniformScene {
    Frames b{416, 352, 1};
    UniformScene(int refLuma, int frameLuma, int frameChroma) {
        std::fill(b.planes[0].y.begin(), b.planes[0].y.end(), refLuma);
        std::fill(b.planes[1].y.begin(), b.planes[1].y.end(), frameLuma);
        std::fill(b.planes[1].first.begin(), b.planes[1].first.end(), frameChroma);
    }
    // Number of moving blocks of tile 27 for layout code.
    int moving(int code, ClassifySamples samples) {
        b.publish(code, 0);
        int n = 0;
        for (int v : classify(27, samples)) n += v;
        return n;
    }
};

TEST(BlockClassify, DarkThresholdIsTwelveBrightOneFollowsActivity) {
    gMergeEnhanceID = 1;
    UniformScene thirteen(100, 113, 128);
    gMeanY = 18;
    EXPECT_GT(thirteen.moving(4, ClassifySamples::LumaAndColour), 0);
    EXPECT_GT(thirteen.moving(1, ClassifySamples::PlanarLuma), 0);
    gMeanY = 19;  // flat: threshold 20 (colour) or 16 (luma only)
    EXPECT_EQ(thirteen.moving(4, ClassifySamples::LumaAndColour), 0);
    EXPECT_EQ(thirteen.moving(2, ClassifySamples::PackedLuma), 0);
    UniformScene seventeen(100, 117, 128);
    EXPECT_EQ(seventeen.moving(4, ClassifySamples::LumaAndColour), 0);
    EXPECT_GT(seventeen.moving(0, ClassifySamples::PlanarLuma), 0);

    // Stripes two columns wide, 30 apart: activity 60, capped at 35 / 25.
    UniformScene stripes(100, 130, 128);
    for (int y = 0; y < stripes.b.H; ++y)
        for (int x = 0; x < stripes.b.W; ++x) {
            const bool high = (x / 2) % 2;
            stripes.b.luma(0, x, y) = high ? 130 : 100;
            stripes.b.luma(1, x, y) = high ? 160 : 130;
        }
    EXPECT_EQ(stripes.moving(4, ClassifySamples::LumaAndColour), 0);
    EXPECT_GT(stripes.moving(1, ClassifySamples::PlanarLuma), 0);
}

TEST(BlockClassify, ColourChangeAloneMovesOnlyTheSemiPlanar420Layout) {
    gMeanY = 40;
    gMergeEnhanceID = 1;
    UniformScene colour(100, 100, 60);
    EXPECT_GT(colour.moving(4, ClassifySamples::LumaAndColour), 0);
    EXPECT_EQ(colour.moving(1, ClassifySamples::PlanarLuma), 0);
    EXPECT_EQ(colour.moving(0, ClassifySamples::PlanarLuma), 0);
    EXPECT_EQ(colour.moving(2, ClassifySamples::PackedLuma), 0);
}

TEST(BlockClassify, HugeVectorsAndTinyFramesStayInsideTheFrames) {
    gMeanY = 40;
    gMergeEnhanceID = 0;
    for (auto [W, H] : {std::pair{416, 352}, {6, 4}, {2, 2}, {10, 35}}) {
        Frames b(W, H, 2);
        for (int f = 0; f < 3; ++f) b.planes[f] = trvtest::randomPlanes(W, H, 3 + 10 * f);
        b.mvs[0] = MV1{-300, 250, {0, 0, 0, 0}, 0.0};
        b.mvs[1] = MV1{301, -299, {0, 0, 0, 0}, 0.0};
        for (int code : {4, 2}) {
            for (int tile : {0, 27, 63}) {
                b.publish(code, 0);
                classify(tile, code == 4 ? ClassifySamples::LumaAndColour : ClassifySamples::PackedLuma);
            }
        }
    }
}

}  // namespace
