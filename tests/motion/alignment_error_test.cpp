// Alignment error: co-located differences on the 4 x 4 grid of the crop,
// the first slot left alone, in both luma layouts.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "motion/scene.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

double modelError(const motiontest::LumaView& ref, const motiontest::LumaView& frame) {
    const int mx = ref.W / 10, my = ref.H / 10;
    double sum = 0.0;
    for (int r = 0; r < ref.H - 2 * my; r += 4)
        for (int c = 0; c < ref.W - 2 * mx; c += 4) sum += std::abs(ref.at(mx + c, my + r) - frame.at(mx + c, my + r));
    return sum;
}

TEST(AlignmentError, SixFramesRemeasureAllButTheFirstRecord) {
    const int W = 101, H = 77;
    for (bool planar : {true, false}) {
        const int bytes = planar ? 1 : 2;
        motiontest::Scene scene(W, H, 8, 21);
        auto base = scene.frame(0, 0, planar);
        std::vector<std::vector<uint8_t>> frames;
        std::vector<unsigned char*> framePtrs;
        MV1 records[5] = {};
        MV1* mvs[5];
        for (int i = 0; i < 5; ++i) {
            // Frame 2 (slot 1) is the reference itself; the others are moved.
            frames.push_back(i == 1 ? base : scene.frame(i - 2, 2 * i - 3, planar));
            records[i].x = 4 * i;
            records[i].err = -1.0;
            mvs[i] = &records[i];
        }
        for (auto& f : frames) framePtrs.push_back(f.data());
        gINFormat = planar ? 0 : 2;
        CalcError(base.data(), framePtrs.data(), mvs, W, H, 6);
        EXPECT_EQ(records[0].err, -1.0);
        EXPECT_EQ(records[1].err, 0.0);
        for (int i = 2; i < 5; ++i) {
            // The vector is not applied: a moved frame has a large error.
            EXPECT_EQ(records[i].err, modelError({base.data(), W, H, bytes}, {frames[i].data(), W, H, bytes}));
            EXPECT_GT(records[i].err, 100.0);
            EXPECT_EQ(records[i].x, 4 * i);
        }
        EXPECT_EQ(gCEInput, nullptr);
    }
}

TEST(AlignmentError, TwoFramesMeasureNothingAndTinyFramesMeasureZero) {
    std::vector<uint8_t> a(40 * 40 * 2, 10), b(40 * 40 * 2, 200);
    unsigned char* frames[2] = {b.data(), b.data()};
    MV1 records[2] = {};
    records[0].err = 7.0;
    records[1].err = 8.0;
    MV1* mvs[2] = {&records[0], &records[1]};
    gINFormat = 4;
    CalcError(a.data(), frames, mvs, 40, 40, 2);
    EXPECT_EQ(records[0].err, 7.0);
    EXPECT_EQ(records[1].err, 8.0);
    // A 1 x 3 frame: its crop is the whole frame, sampled at (0, 0) only.
    CalcError(a.data(), frames, mvs, 1, 3, 3);
    EXPECT_EQ(records[1].err, 190.0);
    // No crop rows at all: 0.
    CalcError(a.data(), frames, mvs, 5, 0, 3);
    EXPECT_EQ(records[1].err, 0.0);
}

}  // namespace
