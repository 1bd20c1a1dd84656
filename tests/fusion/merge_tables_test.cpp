// Tables, thresholds and small vector rules of the fusion driver, against
// values worked out by hand.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "fusion/merge_rules.h"
#include "trv/stages.h"

namespace {

// Quotients truncate toward zero; with one frame those by zero frames are 0.
// The colour offset follows the mean luma.
TEST(FusionTables, DivisionTablesAndColourOffset) {
    const int div[][4] = {{2, -3, -3, -1}, {2, 119, 119, 59}, {2, -120, -120, -60}, {6, -7, -1, -1},
                          {6, 120, 24, 20}, {6, -11, -2, -1}, {1, 100, 0, 100}};  // frames, v, v / n, v / (n + 1)
    for (const auto& c : div) {
        gNum = c[0] - 1;
        trv::buildFusionTables(c[0], 0, 40);
        EXPECT_EQ(divNUM[c[1] + 120], c[2]) << c[0] << " frames, " << c[1];
        EXPECT_EQ(divNUM_1[c[1] + 120], c[3]) << c[0] << " frames, " << c[1];
    }
    EXPECT_EQ(pfun24, Divfun5);  // one frame: outside 1 .. 5
    gNum = 2;
    const std::pair<int, float> offsets[] = {{18, 1.2f}, {21, 1.2f}, {22, 0.8f}, {34, 0.8f}, {35, 0.5f}};
    for (auto [meanY, offset] : offsets) {
        trv::buildFusionTables(3, 0, meanY);
        EXPECT_EQ(gColor_offset, offset) << meanY;
        EXPECT_EQ(pfun24, Divfun2);
        EXPECT_EQ(pfun16, Divfun3);
    }
}

// Exported tables and thresholds that no merging step reads: present, with
// their first and last entries.
TEST(FusionTables, UnreadTablesExist) {
    trv::buildFusionTables(3, 1, 18);
    const int first[] = {y_weight[0], blur_weight[0], CbCr_weight[0], motion_weight[0], DIFFY[0], DIFFU[0]};
    const int last[] = {y_weight[255], blur_weight[255], CbCr_weight[255], motion_weight[255], DIFFY[511], DIFFU[511]};
    EXPECT_EQ(std::vector<int>(first, first + 6), (std::vector<int>{0, 0, 0, 0, -24, -10}));
    EXPECT_EQ(std::vector<int>(last, last + 6), (std::vector<int>{122, 498, 249, 502, 24, 10}));
    EXPECT_EQ((std::vector<float>{gWeight_inverse[0], gWeight_inverse[80], gBlurTh, static_cast<float>(gBadPixelTh)}),
              (std::vector<float>{1.0f / 16.0f, 1.0f / 96.0f, 20000.0f, 12.0f}));
}

TEST(FusionVectors, QuarterScaleRoundingAndRightmostFallBack) {
    const int cases[][2] = {{-6, -2}, {6, 2}, {-5, -1}, {5, 1}, {-2, -1}, {2, 1}, {-1, 0}, {1, 0}, {0, 0}, {-10, -3}};
    for (const auto& c : cases) EXPECT_EQ(trv::quarterOf(c[0]), c[1]) << c[0];
    // The rightmost block takes block 6's vector when either axis differs by more than 4.
    const int fallBacks[][6] = {{10, 3, 5, 3, 5, 3}, {10, 3, 6, 3, 10, 3}, {0, -5, 1, 0, 1, 0}, {0, -4, 4, 0, 0, -4}};
    for (const auto& c : fallBacks) {
        MV1 right{c[0], c[1], {}, 0}, left{c[2], c[3], {}, 0};
        trv::fallBackToLeftNeighbour(&right, &left);
        EXPECT_EQ(std::make_pair(right.x, right.y), std::make_pair(c[4], c[5])) << c[0] << "," << c[1];
    }
}

}  // namespace
