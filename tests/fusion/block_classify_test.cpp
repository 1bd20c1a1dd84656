// Tile geometry, the moving decision and block classification against a
// plain model that reflects every sample (interior blocks included).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "fusion/block_classify.h"
#include "fusion/merge_geometry.h"
#include "support/layouts.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

using trv::ClassifySamples;

TEST(TileGeometry, BlockSizeGridAndMarginFollowTheTileWidth) {
    trv::TileGeometry wide = trv::tileGeometry(9, 800, 480);  // TW 100
    EXPECT_EQ(wide.tileW, 100);
    EXPECT_EQ(wide.cols, 14);
    EXPECT_EQ(wide.block, 10);  // ceil(100 / 12) = 9 -> 10
    EXPECT_EQ(wide.margin, 4);  // 5 -> 4
    EXPECT_EQ(wide.rows, 8);    // TH 60: 6 + 2
    EXPECT_EQ(wide.x0, 100);
    EXPECT_EQ(wide.y0, 60);

    trv::TileGeometry narrow = trv::tileGeometry(0, 784, 470);  // TW 98
    EXPECT_EQ(narrow.cols, 8);
    EXPECT_EQ(narrow.block, 18);  // ceil(98 / 6) = 17 -> 18
    EXPECT_EQ(narrow.margin, 8);  // 9 -> 8
    EXPECT_EQ(narrow.tileH, 60);  // ceil(470 / 8) = 59 -> 60
    EXPECT_EQ(narrow.rows, 6);    // 60 / 18 = 3, + 2, + 1 for the remainder

    // The last column and row are cut at the frame edge, or left empty.
    trv::TileGeometry last = trv::tileGeometry(63, 1000, 100);
    EXPECT_EQ(last.tileW, 126);
    EXPECT_EQ(last.x0, 882);
    EXPECT_EQ(last.x1, 1000);
    EXPECT_EQ(last.y1, 100);
    trv::TileGeometry empty = trv::tileGeometry(5, 10, 10);
    EXPECT_EQ(empty.x0, 10);
    EXPECT_EQ(empty.x1, 10);
}

TEST(TileGeometry, ReflectionLandsOneStepInsideTheMirror) {
    EXPECT_EQ(trv::reflectInto(-3, 20), 3);
    EXPECT_EQ(trv::reflectInto(18, 20), 18);
    EXPECT_EQ(trv::reflectInto(19, 20), 17);
    EXPECT_EQ(trv::reflectInto(22, 20), 14);
    EXPECT_EQ(trv::reflectInto(-19, 20), 17);
    // Too small a frame for one mirror: clamped into 0 .. n - 2.
    EXPECT_EQ(trv::reflectInto(40, 8), 0);
    EXPECT_EQ(trv::reflectInto(5, 2), 0);
}

TEST(MovingDecision, OneOtherFrameComparesOnlyTheMeanWithPointTwo) {
    const trv::MotionThresholds loose = trv::motionThresholds(40, 1);
    // Block 12: 400 sample cells; 80 / 400 is exactly 0.2 and not above it.
    int32_t at[1] = {80}, above[1] = {84};
    EXPECT_FALSE(trv::isMovingBlock(at, 1, 12, loose));
    EXPECT_TRUE(trv::isMovingBlock(above, 1, 12, loose));
    // The tight thresholds of level 0 do not apply with one other frame.
    EXPECT_FALSE(trv::isMovingBlock(at, 1, 12, trv::motionThresholds(40, 0)));
}

TEST(MovingDecision, ThresholdsFollowBrightnessAndEnhancementLevel) {
    // Ratios 0 and 0.12: mean 0.06, variance 0.0036.
    int32_t spread[2] = {0, 48};
    EXPECT_TRUE(trv::isMovingBlock(spread, 2, 12, trv::motionThresholds(40, 1)));   // > 0.0025
    EXPECT_FALSE(trv::isMovingBlock(spread, 2, 12, trv::motionThresholds(10, 1)));  // < 0.01
    EXPECT_FALSE(trv::isMovingBlock(spread, 2, 12, trv::motionThresholds(10, 3)));
    EXPECT_TRUE(trv::isMovingBlock(spread, 2, 12, trv::motionThresholds(10, 0)));   // > 0.0004
    EXPECT_TRUE(trv::isMovingBlock(spread, 2, 12, trv::motionThresholds(10, 2)));
    // Equal ratios 0.22: only the mean can decide; 0.2 for levels 0 and 2.
    int32_t even[3] = {88, 88, 88};
    EXPECT_TRUE(trv::isMovingBlock(even, 3, 12, trv::motionThresholds(40, 0)));
    EXPECT_TRUE(trv::isMovingBlock(even, 3, 12, trv::motionThresholds(40, 2)));
    EXPECT_FALSE(trv::isMovingBlock(even, 3, 12, trv::motionThresholds(40, 1)));
    EXPECT_FALSE(trv::isMovingBlock(even, 3, 12, trv::motionThresholds(40, 6)));
    int32_t none[2] = {0, 0};
    EXPECT_FALSE(trv::isMovingBlock(none, 0, 12, trv::motionThresholds(40, 0)));
}

// A burst held as planes plus its layout bytes, published for one tile.
struct Burst {
    int W, H;
    std::vector<trvtest::Planes422> planes;
    std::vector<std::vector<uint8_t>> bytes;
    std::vector<MV1> mvs;

    Burst(int w, int h, int others, uint32_t seed) : W(w), H(h), mvs(others) {
        for (int f = 0; f <= others; ++f) planes.push_back(trvtest::randomPlanes(w, h, seed + 10 * f));
    }
    void publish(int code, int tile) {
        bytes.clear();
        for (auto& p : planes) bytes.push_back(trvtest::toLayout(p, code));
        gW = W;
        gH = H;
        Y_SIZE = W * H;
        gNum = static_cast<int>(mvs.size());
        for (size_t f = 0; f < bytes.size(); ++f) gMergeInput[f] = bytes[f].data();
        for (size_t k = 0; k < mvs.size(); ++k) gMergeMV[k][tile] = &mvs[k];
    }
    std::vector<int> classify(ClassifySamples samples, int tile) {
        const trv::TileGeometry g = trv::tileGeometry(tile, W, H);
        std::vector<int> map(g.rows * g.cols, 0);
        trv::classifyBlocks(g, tile, samples, map.data());
        return map;
    }
};

int reflect(int v, int n) {
    v = std::abs(v);
    return v >= n - 1 ? 2 * n - 4 - v : v;
}

std::vector<int> modelMap(Burst& b, ClassifySamples samples, int tile) {
    const trv::TileGeometry g = trv::tileGeometry(tile, b.W, b.H);
    const int W = b.W, H = b.H, N = static_cast<int>(b.mvs.size()), S = g.block;
    const bool colour = samples == ClassifySamples::LumaAndColour;
    auto Y = [&](int f, int x, int y) { return static_cast<int>(b.planes[f].y[y * W + x]); };
    auto C = [&](int f, int c, int x, int y) {
        const auto& plane = c ? b.planes[f].second : b.planes[f].first;
        return static_cast<int>(plane[(y & ~1) * (W / 2) + x / 2]);
    };
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
Burst movingBurst(int W, int H, int others, uint32_t seed) {
    trvtest::Rng rng(seed);
    Burst b(W, H, others, seed);
    b.planes[0].y = trvtest::texturedPlane(W, H, seed);
    b.planes[0].first = trvtest::texturedPlane(W / 2, H, seed + 1);
    b.planes[0].second = trvtest::texturedPlane(W / 2, H, seed + 2);
    for (int k = 0; k < others; ++k) {
        b.mvs[k] = MV1{rng.uniform(-6, 6), rng.uniform(-6, 6), {0, 0, 0, 0}, 0.0};
        const int px = rng.uniform(0, W - 40), py = rng.uniform(0, H - 40);
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const int sx = std::min(W - 1, std::max(0, x - b.mvs[k].x));
                const int sy = std::min(H - 1, std::max(0, y - b.mvs[k].y));
                const bool patch = x >= px && x < px + 40 && y >= py && y < py + 40;
                b.planes[k + 1].y[y * W + x] = static_cast<uint8_t>(
                    patch ? 255 - b.planes[0].y[sy * W + sx]
                          : std::clamp(b.planes[0].y[sy * W + sx] + rng.uniform(-12, 12), 0, 255));
                const int ci = y * (W / 2) + x / 2, si = sy * (W / 2) + sx / 2;
                b.planes[k + 1].first[ci] = static_cast<uint8_t>(patch ? 40 : b.planes[0].first[si]);
                b.planes[k + 1].second[ci] = b.planes[0].second[si];
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
            Burst b = movingBurst(cs.W, cs.H, others, 31u * others + cs.code);
            for (int tile : {0, 9, 27, 38, 63}) {
                gMeanY = tile % 2 ? 40 : 12;
                gMergeEnhanceID = tile % 4;
                b.publish(cs.code, tile);
                const std::vector<int> got = b.classify(cs.samples, tile);
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

// Uniform scenes: every block of the tile gets the same verdict.
struct UniformScene {
    Burst b{416, 352, 1, 5};
    UniformScene(int refLuma, int frameLuma, int frameChroma) {
        b.planes[0] = flat(refLuma, 128);
        b.planes[1] = flat(frameLuma, frameChroma);
    }
    trvtest::Planes422 flat(int luma, int chroma) const {
        trvtest::Planes422 p;
        p.w = b.W;
        p.h = b.H;
        p.y.assign(b.W * b.H, static_cast<uint8_t>(luma));
        p.first.assign(b.W / 2 * b.H, static_cast<uint8_t>(chroma));
        p.second.assign(b.W / 2 * b.H, 128);
        return p;
    }
    // Number of moving blocks of tile 27 for layout code.
    int moving(int code, ClassifySamples samples) {
        b.publish(code, 27);
        int n = 0;
        for (int v : b.classify(samples, 27)) n += v;
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
            stripes.b.planes[0].y[y * stripes.b.W + x] = high ? 130 : 100;
            stripes.b.planes[1].y[y * stripes.b.W + x] = high ? 160 : 130;
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
        Burst b(W, H, 2, 3);
        b.mvs[0] = MV1{-300, 250, {0, 0, 0, 0}, 0.0};
        b.mvs[1] = MV1{301, -299, {0, 0, 0, 0}, 0.0};
        for (int code : {4, 2}) {
            for (int tile : {0, 27, 63}) {
                b.publish(code, tile);
                b.classify(code == 4 ? ClassifySamples::LumaAndColour : ClassifySamples::PackedLuma, tile);
            }
        }
    }
}

}  // namespace
