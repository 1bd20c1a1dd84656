// Tables, thresholds and small vector rules of the fusion driver, against
// values worked out by hand.
#include <gtest/gtest.h>

#include "fusion/merge_rules.h"
#include "trv/stages.h"

namespace {

class FusionTables : public ::testing::Test {
protected:
    void SetUp() override { savedNum = gNum; }
    void TearDown() override {
        gNum = savedNum;
        trv::buildFusionTables(savedNum + 1, 0, 40);
    }
    int savedNum = 0;
};

// Quotients truncate toward zero; with one frame those by zero frames are 0.
TEST_F(FusionTables, DivisionTablesByFrameCount) {
    struct Case {
        int frames, v, byN, byN1;
    };
    for (const Case& c : {Case{2, -3, -3, -1}, Case{2, 3, 3, 1}, Case{2, -120, -120, -60}, Case{2, 119, 119, 59},
                          Case{6, -7, -1, -1}, Case{6, 120, 24, 20}, Case{6, -11, -2, -1}, Case{1, 100, 0, 100}}) {
        gNum = c.frames - 1;
        trv::buildFusionTables(c.frames, 0, 40);
        EXPECT_EQ(divNUM[c.v + 120], c.byN) << c.frames << " frames, " << c.v;
        EXPECT_EQ(divNUM_1[c.v + 120], c.byN1) << c.frames << " frames, " << c.v;
    }
    EXPECT_EQ(pfun24, Divfun5);  // one frame: outside 1 .. 5
    gNum = 1;
    trv::buildFusionTables(2, 0, 40);
    EXPECT_EQ(pfun24, Divfun1);
    EXPECT_EQ(pfun16, Divfun2);
}

TEST_F(FusionTables, ColourOffsetAndBadPixelThresholdByMeanLuma) {
    struct Case {
        int meanY;
        float offset;
        int badPixel;
    };
    for (const Case& c : {Case{18, 1.2f, 12}, Case{19, 1.2f, 16}, Case{21, 1.2f, 16}, Case{22, 0.8f, 16},
                          Case{34, 0.8f, 16}, Case{35, 0.5f, 16}}) {
        trv::buildFusionTables(3, 0, c.meanY);
        EXPECT_EQ(gColor_offset, c.offset) << c.meanY;
        EXPECT_EQ(gBadPixelTh, c.badPixel) << c.meanY;
    }
}

TEST_F(FusionTables, BlurThresholdByLevel) {
    trv::buildFusionTables(3, 1, 40);
    EXPECT_EQ(gBlurTh, 20000.0f);
    trv::buildFusionTables(3, 2, 40);
    EXPECT_EQ(gBlurTh, 3900.0f);
}

TEST_F(FusionTables, RampsReciprocalsAndClampTables) {
    trv::buildFusionTables(3, 0, 40);
    EXPECT_EQ(y_weight[11], 0);
    EXPECT_EQ(y_weight[12], 1);
    EXPECT_EQ(y_weight[255], 122);
    EXPECT_EQ(blur_weight[6], 0);
    EXPECT_EQ(blur_weight[7], 2);
    EXPECT_EQ(CbCr_weight[7], 1);
    EXPECT_EQ(CbCr_weight[255], 249);
    EXPECT_EQ(motion_weight[4], 0);
    EXPECT_EQ(motion_weight[5], 2);
    EXPECT_EQ(gWeight_inverse[0], 0.0625f);
    EXPECT_EQ(gWeight_inverse[16], 1.0f / 32.0f);
    EXPECT_EQ(gWeight_inverse[80], 1.0f / 96.0f);
    EXPECT_EQ(DIFFY[0], -24);
    EXPECT_EQ(DIFFY[255 - 24], -24);
    EXPECT_EQ(DIFFY[255 - 23], -23);
    EXPECT_EQ(DIFFY[255 + 24], 24);
    EXPECT_EQ(DIFFY[511], 24);
    EXPECT_EQ(DIFFU[255 - 11], -10);
    EXPECT_EQ(DIFFU[255 + 9], 9);
    EXPECT_EQ(DIFFU[511], 10);
}

TEST(FusionVectors, QuarterScaleRoundsHalvesAwayFromZero) {
    const int cases[][2] = {{-6, -2}, {6, 2}, {-5, -1}, {5, 1}, {-2, -1}, {2, 1}, {-1, 0}, {1, 0}, {0, 0}, {-10, -3}};
    for (const auto& c : cases) EXPECT_EQ(trv::quarterOf(c[0]), c[1]) << c[0];
}

TEST(FusionVectors, RightmostBlockFallsBackOnlyBeyondFour) {
    auto rightmost = [](MV1 right, MV1 left) {
        trv::fallBackToLeftNeighbour(&right, &left);
        return std::pair{right.x, right.y};
    };
    EXPECT_EQ(rightmost({10, 3, {}, 0}, {5, 3, {}, 0}), std::pair(5, 3));
    EXPECT_EQ(rightmost({10, 3, {}, 0}, {6, 3, {}, 0}), std::pair(10, 3));
    EXPECT_EQ(rightmost({0, -5, {}, 0}, {1, 0, {}, 0}), std::pair(1, 0));  // either axis
    EXPECT_EQ(rightmost({0, -4, {}, 0}, {4, 0, {}, 0}), std::pair(0, -4));
}

}  // namespace
