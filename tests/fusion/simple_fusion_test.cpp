// Simple fusion of all 64 tiles: where each rule applies, from flat frames
// on which the rules give different values.
#include <gtest/gtest.h>

#include <tuple>

#include "fusion/fusion_scene.h"

namespace {

using fusiontest::Frames;

// All tiles into an output filled with `fill`; a guard after it stays.
std::vector<uint8_t> fuseAll(Frames& b, int code, uint8_t fill) {
    b.publish(code, static_cast<size_t>(b.W) * b.H * 3 / 2 + 16);
    std::fill(b.out.begin(), b.out.end(), fill);
    for (int t = 0; t < 64; ++t) simpleFusion(t);
    EXPECT_EQ(b.out.back(), fill) << "guard";
    return std::vector<uint8_t>(b.out.begin(), b.out.end() - 16);
}

// Reference luma 100 / chroma 128, two other frames at 116 / 138 (second
// chroma sample 118). The vector rules give 116 (|232 - 200| >= 32: the
// frames' mean), 135 (404 x 0.3334 + 0.5) and 121; the table rules of tails
// and border strips 110 (100 - 32 / 3), 134 (128 - 20 / 3) and 122. 64 x 32:
// tiles 8 x 4. Frame 1 moved by (3, -3): strips of 4 rows on top (3 raised
// to even) and 4 columns on the right, whose tiles keep 4 columns, all tail;
// by (-3, 3): bottom and left. 66 x 68: tiles 10 wide (tails of 2), the
// seventh passes the frame edge and is blended on mirrored copies.
TEST(SimpleFusion, FlatFramesShowWhereEachRuleApplies) {
    struct Case {
        int W, H, mx, my, rowsFrom, rowsTo, colsFrom, colsTo;  // the table rule's rows and columns
    };
    for (const Case& c : {Case{64, 32, 3, -3, 0, 4, 56, 64}, Case{64, 32, -3, 3, 28, 32, 0, 8},
                          Case{66, 68, 3, -3, 0, 4, 62, 66}}) {
        for (int code : {0, 1, 2, 4}) {
            Frames b(c.W, c.H, 2);
            for (int f = 1; f <= 2; ++f) {
                std::fill(b.planes[f].y.begin(), b.planes[f].y.end(), 116);
                std::fill(b.planes[f].first.begin(), b.planes[f].first.end(), 138);
                std::fill(b.planes[f].second.begin(), b.planes[f].second.end(), 118);
            }
            b.mvs[0] = MV1{c.mx, c.my, {}, 0.0};
            const std::vector<uint8_t> out = fuseAll(b, code, 0xEE);
            const int tileW = c.W == 64 ? 8 : 10;
            for (int y = 0; y < c.H; ++y)
                for (int x = 0; x < c.W; ++x) {
                    const bool table = (y >= c.rowsFrom && y < c.rowsTo) || (x >= c.colsFrom && x < c.colsTo) ||
                                       x % tileW >= 8;
                    const auto where = testing::Message() << code << " " << c.W << " " << c.mx << ": " << x << "," << y;
                    ASSERT_EQ(out[y * c.W + x], table ? 110 : 116) << where;
                    // Planar chroma vectors take 16 columns: all tail here.
                    const int chroma = table || code == 0 ? (x % 2 ? 122 : 134) : (x % 2 ? 121 : 135);
                    if (y % 2 == 0) {
                        ASSERT_EQ(out[c.W * c.H + y / 2 * c.W + x], chroma) << where;
                    }
                }
        }
    }
}

// Exact shifted copies give the reference away from the strips, also where
// the seventh tile already passes the frame edge and is blended on mirrored
// copies (66 x 68, 82 x 66, 68 x 82), in every layout.
TEST(SimpleFusion, ShiftedCopiesGiveTheReferenceAwayFromTheStrips) {
    const std::tuple<int, int, int, std::vector<std::pair<int, int>>> cases[] = {
        {82, 66, 2, {{-2, 2}, {0, -2}, {2, 4}}}, {66, 68, 4, {{2, 2}, {-4, 0}}}, {66, 68, 0, {{4, -2}}},
        {68, 82, 1, {{0, 6}, {-6, -2}, {2, 0}, {4, 4}, {-2, 2}}}};
    for (const auto& [W, H, code, vectors] : cases) {
        const int n = static_cast<int>(vectors.size());
        Frames b(W, H, n);
        b.planes[0] = trvtest::texturedPlanes(W, H, static_cast<uint32_t>(W + code));
        int top = 0, bottom = 0, left = 0, right = 0;
        for (int k = 0; k < n; ++k) {
            const auto [mx, my] = vectors[k];
            b.mvs[k] = MV1{mx, my, {}, 0.0};
            b.planes[k + 1] = trvtest::shifted(b.planes[0], mx, my);
            top = std::max(top, -my), bottom = std::max(bottom, my), left = std::max(left, -mx), right = std::max(right, mx);
        }
        const std::vector<uint8_t> out = fuseAll(b, code, 0xEE), want = trvtest::toSemiPlanar420(b.planes[0]);
        for (int y = top; y < H - bottom; ++y)
            for (int x = left; x < W - right; ++x)
                for (size_t at : {static_cast<size_t>(y * W + x), static_cast<size_t>(W * H + y / 2 * W + x)})
                    ASSERT_EQ(out[at], want[at]) << W << "x" << H << " code " << code << ": " << x << "," << y << " at " << at;
    }
}

TEST(SimpleFusion, UnknownLayoutPrintsAndLeavesInteriorUnwritten) {
    Frames b(64, 32, 2);
    b.publish(4, 64 * 32 * 3 / 2);
    std::fill(b.out.begin(), b.out.end(), 0x42);
    gINFormat = 3;
    testing::internal::CaptureStdout();
    simpleFusion(9);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "error input format\n");
    EXPECT_EQ(b.out, std::vector<uint8_t>(b.out.size(), 0x42));
}

// Packed strip of tile 0 shifted by -3, one other frame whose odd pixels
// have luma 120: group (0, 0) reads frame pixels 2 and 3 (the pair-aligned
// column, as the interior does), so the table rule gives 100 (d = 0) and
// 120 (|d| = 20 > 16: the frame alone); column 3 and 4 would swap them.
TEST(SimpleFusion, PackedStripReadsLumaFromThePairAlignedColumn) {
    Frames b(64, 32, 1);
    for (int y = 0; y < 32; ++y)
        for (int x = 1; x < 64; x += 2) b.luma(1, x, y) = 120;
    b.mvs[0] = MV1{-3, 0, {}, 0.0};
    b.publish(2, 64 * 32 * 3 / 2);
    simpleFusion(0);
    EXPECT_EQ(b.out[0], 100);
    EXPECT_EQ(b.out[1], 120);
}

}  // namespace
