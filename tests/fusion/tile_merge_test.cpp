// Merging of whole tiles: simple fusion first, then the feathered strict
// merge of moving blocks, for every input layout.
#include <gtest/gtest.h>

#include "fusion/fusion_scene.h"

namespace {

struct Member {
    const char* name;
    int code;
    void (*merging)(int);
};

const Member kMembers[] = {
    {"NV21", 4, Merging_NV21}, {"NV16", 1, Merging_NV16}, {"YV16", 0, Merging_YV16}, {"YUV422", 2, Merging_YUV422}};

// 784 x 288: tile 9 spans x 98 .. 196, y 36 .. 72; block 18, margin 8, grid
// blocks at x = 80 + 18 c, y = 18 + 18 r. Flat reference 100; two other
// frames at 116 (16 apart: static) with a 200 square over blocks (2, 2) and
// (2, 3), x 116 .. 152, y 54 .. 72. Simple fusion: 116. Strict merge: 104
// (each frame -16 clipped to -6, -12 / 3), 100 on the square. A margin quad
// at 0, 2, 4, 6 from its outer edge keeps 7/16, 5/16, 3/16, 1/16 of what
// was there: from 116, 104 + 12 w + 0.5 = 109, 108, 106, 105.
struct FeatherScene : fusiontest::Frames {
    FeatherScene() : Frames(784, 288, 2) {
        for (int f = 1; f <= 2; ++f)
            for (int y = 0; y < H; ++y)
                for (int x = 0; x < W; ++x) luma(f, x, y) = x >= 116 && x < 152 && y >= 54 && y < 72 ? 200 : 116;
    }
    void publish(int code) {
        Frames::publish(code, static_cast<size_t>(W) * H * 3 / 2 + 64, 99);
        gColor_offset = 0.8f, gMeanY = 40, gMergeEnhanceID = 1;
    }
};

TEST(TileMerge, MovingBlocksFeatherIntoTheirStaticNeighbours) {
    // Row 60 across both blocks: left margin of (2, 2), right margin of (2, 3).
    std::vector<int> row(60, 100);
    const int side[12] = {116, 116, 116, 116, 109, 109, 108, 108, 106, 106, 105, 105};
    for (int i = 0; i < 12; ++i) row[i] = row[59 - i] = side[i];
    // Column 130 (top margin of (2, 2)) ramps like the row; column 136, the
    // top-right corner of (2, 2), is merged again under the top margin of
    // (2, 3) (109 then 106).
    const std::vector<int> top136 = {116, 116, 116, 116, 106, 106, 105, 105, 104, 104, 104, 104};
    FeatherScene s;
    for (const Member& m : kMembers) {
        s.publish(m.code);
        const std::vector<uint8_t> before = s.out;
        m.merging(9);
        auto at = [&](int x, int y) { return static_cast<int>(s.out[y * s.W + x]); };
        for (int x = 104; x < 164; ++x) EXPECT_EQ(at(x, 60), row[x - 104]) << m.name << " x " << x;
        for (int y = 42; y < 72; ++y) {
            EXPECT_EQ(at(130, y), y < 54 ? side[y - 42] : 100) << m.name << " y " << y;
            EXPECT_EQ(at(136, y), y < 54 ? top136[y - 42] : 100) << m.name << " y " << y;
        }
        // The apron ends 4 rows below the tile; nothing else is written.
        for (int y : {76, 77, 100}) EXPECT_EQ(at(130, y), before[y * s.W + 130]) << m.name << " y " << y;
        EXPECT_TRUE(std::equal(s.out.end() - 64, s.out.end(), before.end() - 64)) << m.name;
        // Without normal luminance the tile is the simple fusion alone.
        s.out = before;
        gIsNormalLuminance = 0;
        m.merging(9);
        const std::vector<uint8_t> merged = s.out;
        s.out = before;
        simpleFusion(9);
        EXPECT_EQ(merged, s.out) << m.name;
        gIsNormalLuminance = 1;
    }
}

// Odd sizes, tiny frames and vectors far out of the frame: every tile of
// every layout stays inside the buffers (the guard after the output too).
TEST(TileMerge, OddSizesTinyFramesAndWildVectorsStayInBounds) {
    for (auto [W, H] : {std::pair{34, 23}, {8, 8}, {4, 6}, {2, 2}, {40, 37}}) {
        fusiontest::Frames b(W, H, 2);
        for (auto& p : b.planes) p = trvtest::randomPlanes(W, H, static_cast<uint32_t>(W * H));
        b.mvs = {MV1{7, -9, {}, 0.0}, MV1{-40, 33, {}, 0.0}};
        for (const Member& m : kMembers) {
            const size_t bytes = static_cast<size_t>(W) * H * 3 / 2;
            b.publish(m.code, bytes + 32);
            const std::vector<uint8_t> guard(b.out.begin() + bytes, b.out.end());
            gMeanY = 10;  // threshold 12: the random frames count as moving
            for (int tile = 0; tile < 64; ++tile) m.merging(tile);
            EXPECT_TRUE(std::equal(guard.begin(), guard.end(), b.out.begin() + bytes)) << m.name << " " << W << "x" << H;
        }
    }
}

}  // namespace
