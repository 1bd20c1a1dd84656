// Merging of whole tiles: simple fusion first, then the feathered strict
// merge of moving blocks, for every input layout.
#include <gtest/gtest.h>

#include "fusion/block_classify.h"
#include "fusion/fusion_scene.h"
#include "fusion/merge_geometry.h"

namespace {

using StrictMergeFn = void (*)(int, int, float, float, int, int*, int, int, int, float);

struct Member {
    const char* name;
    int code;
    void (*merging)(int);
    StrictMergeFn strict;
    trv::ClassifySamples samples;
};

const Member kMembers[] = {
    {"NV21", 4, Merging_NV21, strictMerge_NV21, trv::ClassifySamples::LumaAndColour},
    {"NV16", 1, Merging_NV16, strictMerge_NV16_1, trv::ClassifySamples::PlanarLuma},
    {"YV16", 0, Merging_YV16, strictMerge_YV16, trv::ClassifySamples::PlanarLuma},
    {"YUV422", 2, Merging_YUV422, strictMerge_YUV422, trv::ClassifySamples::PackedLuma},
};

// A burst over a textured background: each other frame is the reference
// shifted by its vector with mild noise; frame 1 also carries a square
// object, 100 levels off the background, that the reference does not have.
// patchyNoise: 16 x 16 cells of strong noise here and there, so that a dark
// scene gets scattered moving blocks.
struct Burst : fusiontest::Frames {
    int objectX, objectY, objectSize;

    Burst(int w, int h, int others, const std::vector<std::pair<int, int>>& vectors, uint32_t seed,
          bool patchyNoise = false)
        : Frames(w, h, others), objectX(w / 2 - std::min(w, h) / 12), objectY(h / 2 - std::min(w, h) / 12),
          objectSize(std::min(w, h) / 6) {
        trvtest::Rng rng(seed);
        planes[0] = fusiontest::texturedPlanes(w, h, seed);
        for (int k = 0; k < others; ++k) {
            const auto [mx, my] = vectors[k];
            mvs[k] = MV1{mx, my, {0, 0, 0, 0}, 0.0};
            planes[k + 1] = fusiontest::shifted(planes[0], mx, my);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    const bool object = k == 0 && x >= objectX + mx && x < objectX + mx + objectSize &&
                                        y >= objectY + my && y < objectY + my + objectSize;
                    const int under = luma(k + 1, x, y);
                    const int noise = patchyNoise && ((x / 16) * 7 + (y / 16) * 13 + k * 5) % 3 == 0 ? 24 : 3;
                    luma(k + 1, x, y) = static_cast<uint8_t>(
                        object ? (under < 128 ? under + 100 : under - 100)
                               : std::clamp(under + rng.uniform(-noise, noise), 0, 255));
                }
        }
    }

    void publish(int code) {
        Frames::publish(code, static_cast<size_t>(W) * H * 3 / 2, 99);
        NUM_16 = vdupq_n_u16(static_cast<uint16_t>(16 * others()));
        gColor_offset = 0.8f;
        gMeanY = 40;
        gMergeEnhanceID = 2;
    }
};

class TileMerge : public ::testing::Test {
protected:
    void TearDown() override { gIsNormalLuminance = 1; }
};

float ramp(int e) { return e < 8 ? (7 - e) * 0.0625f : 0.0f; }

// Step 4 written region by region: which margins of a moving block are
// merged, with which weight, in which order, clipped to the tile's apron.
void modelStrictPass(const Member& m, int tile, const std::vector<int>& map, int others) {
    const trv::TileGeometry g = trv::tileGeometry(tile, gW, gH);
    const int S = g.block, M = g.margin, BC = g.cols;
    int parity[5];
    for (int k = 0; k < others; ++k) parity[k] = std::abs(gMergeMV[k][tile]->x) % 2 ? -1 : 1;
    auto still = [&](int r, int c) { return map[r * BC + c] == 0; };
    for (int r = 1; r < g.rows - 1; ++r)
        for (int c = 1; c < BC - 1; ++c) {
            if (still(r, c)) continue;
            const int bx = g.x0 - S + c * S, by = g.y0 - S + r * S;
            auto region = [&](int xa, int xb, int ya, int yb, auto weightOf) {
                for (int y = ya; y < yb; y += 2)
                    for (int x = xa; x < xb; x += 2) {
                        if (x < g.x0 - 4 || x > g.x1 + 3 || y < g.y0 - 4 || y > g.y1 + 3) continue;
                        m.strict(trv::reflectInto(x, gW), trv::reflectInto(y, gH), 0.0f, 0.0f, tile, parity, 0, 0,
                                 0, weightOf(x, y));
                    }
            };
            const auto fromTop = [&](int y) { return ramp(y - (by - M)); };
            const auto fromLeft = [&](int x) { return ramp(x - (bx - M)); };
            const auto fromRight = [&](int x) { return ramp(bx + S + M - 2 - x); };
            const auto fromBottom = [&](int y) { return ramp(by + S + M - 2 - y); };
            if (still(r - 1, c) && still(r, c - 1) && still(r - 1, c - 1))
                region(bx - M, bx, by - M, by, [&](int x, int y) { return std::max(fromTop(y), fromLeft(x)); });
            if (still(r - 1, c)) region(bx, bx + S, by - M, by, [&](int, int y) { return fromTop(y); });
            if (still(r - 1, c) && still(r - 1, c + 1))
                region(bx + S, bx + S + M, by - M, by, [&](int x, int y) { return std::max(fromTop(y), fromRight(x)); });
            if (still(r, c - 1)) region(bx - M, bx, by, by + S, [&](int x, int) { return fromLeft(x); });
            region(bx, bx + S, by, by + S, [&](int, int) { return 0.0f; });
            region(bx + S, bx + S + M, by, by + S, [&](int x, int) { return fromRight(x); });
            region(bx - M, bx, by + S, by + S + M, [&](int x, int y) { return std::max(fromBottom(y), fromLeft(x)); });
            region(bx, bx + S, by + S, by + S + M, [&](int, int y) { return fromBottom(y); });
            region(bx + S, bx + S + M, by + S, by + S + M,
                   [&](int x, int y) { return std::max(fromBottom(y), fromRight(x)); });
        }
}

std::vector<int> cleanedMap(const Member& m, int tile) {
    const trv::TileGeometry g = trv::tileGeometry(tile, gW, gH);
    std::vector<int> map(g.rows * g.cols, 0), second(map.size(), 0), scratch((g.rows + 2) * (g.cols + 2), 0);
    trv::classifyBlocks(g, tile, m.samples, map.data());
    if (g.cols == 14)
        findMovingBlock(map.data(), second.data(), scratch.data(), g.cols, g.rows);
    else
        findMovingBlock1(map.data(), second.data(), scratch.data(), g.cols, g.rows);
    return map;
}

TEST_F(TileMerge, WithoutNormalLuminanceTheTileIsTheSimpleFusion) {
    Burst b(208, 160, 2, {{1, -2}, {-3, 2}}, 11);
    for (const Member& m : kMembers) {
        for (int tile : {0, 27, 63}) {
            b.publish(m.code);
            const std::vector<uint8_t> start = b.out;
            simpleFusion(tile);
            const std::vector<uint8_t> simple = b.out;

            b.out = start;
            gIsNormalLuminance = 0;
            m.merging(tile);
            EXPECT_EQ(b.out, simple) << m.name << " tile " << tile;

            // With normal luminance the object's tile is merged again.
            b.out = start;
            gIsNormalLuminance = 1;
            m.merging(tile);
            if (tile == 27) {
                EXPECT_NE(b.out, simple) << m.name;
            }
        }
    }
}

TEST_F(TileMerge, MovingBlocksFollowTheRegionModelOnEveryLayout) {
    struct Case {
        int W, H;
        std::vector<std::pair<int, int>> vectors;
        bool dark;
    };
    // 208 x 160: 8-column grid, margin 2; 784 x 144: margin 8; 800 x 144: 14
    // columns (tile width 100). Dark cases: scattered moving blocks.
    const Case cases[] = {{208, 160, {{3, -1}}, false},
                          {208, 160, {{1, 2}, {-2, -3}, {5, 0}}, true},
                          {784, 144, {{-3, 1}, {2, 0}}, true},
                          {800, 144, {{-1, 1}, {2, 2}}, false}};
    int movingBlocks = 0;
    for (const Case& cs : cases) {
        Burst b(cs.W, cs.H, static_cast<int>(cs.vectors.size()), cs.vectors, 5, cs.dark);
        for (const Member& m : kMembers) {
            for (int tile : {0, 7, 27, 28, 36, 63}) {
                b.publish(m.code);
                if (cs.dark) gMeanY = 10;
                const std::vector<uint8_t> start = b.out;
                simpleFusion(tile);
                const std::vector<int> map = cleanedMap(m, tile);
                for (int v : map) movingBlocks += v;
                modelStrictPass(m, tile, map, b.others());
                const std::vector<uint8_t> expected = b.out;

                b.out = start;
                m.merging(tile);
                ASSERT_EQ(b.out, expected) << m.name << " " << cs.W << "x" << cs.H << " tile " << tile;
            }
        }
    }
    EXPECT_GT(movingBlocks, 100);
}

TEST_F(TileMerge, MovingObjectInOneFrameLeavesNoGhost) {
    // The object of frame 1 sits at the centre of the frame. The
    // simple fusion pulls it in by (16 + noise) / 3 levels; the strict merge
    // drops differences above 32, leaving the low-pass (3) and frame 2's
    // noise (3 / 3). Inner part of the object only: its edge blocks may be
    // feathered.
    Burst b(208, 160, 2, {{2, 1}, {-1, 0}}, 21);
    const int inset = 8;
    auto largestChange = [&]() {
        int most = 0;
        for (int y = b.objectY + inset; y < b.objectY + b.objectSize - inset; ++y)
            for (int x = b.objectX + inset; x < b.objectX + b.objectSize - inset; ++x)
                most = std::max(most, std::abs(b.out[y * b.W + x] - b.luma(0, x, y)));
        return most;
    };
    for (const Member& m : kMembers) {
        b.publish(m.code);
        const std::vector<uint8_t> start = b.out;
        for (int tile = 0; tile < 64; ++tile) simpleFusion(tile);
        EXPECT_GE(largestChange(), 5) << m.name;

        b.out = start;
        for (int tile = 0; tile < 64; ++tile) m.merging(tile);
        EXPECT_LE(largestChange(), 4) << m.name;
    }
}

TEST_F(TileMerge, OddSizesTinyFramesAndWildVectorsStayInBounds) {
    for (auto [W, H] : {std::pair{34, 23}, {8, 8}, {4, 6}, {2, 2}, {40, 37}}) {
        Burst b(W, H, 2, {{7, -9}, {-40, 33}}, 3);
        for (const Member& m : kMembers) {
            b.publish(m.code);
            gMeanY = 10;  // threshold 12: the noisy frames count as moving
            for (int tile = 0; tile < 64; ++tile) m.merging(tile);
        }
    }
}

}  // namespace
