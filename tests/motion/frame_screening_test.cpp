// Frame screening on hand-built bursts: the motion and ratio limits, the
// dark-scene clamp, the noise estimate, compaction of the lists, and the
// slot-by-slot order in which frames see each other's drops.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "motion/screening.h"
#include "trv/stages.h"

namespace {

// 40 x 40 frames: the crop is 32 x 32, so err is divided by 1024 / 16 = 64.
constexpr int kW = 40, kH = 40, kErrDivisor = 64;

// A burst of n frames around a 25 x 25 reference quarter image whose four
// 12 x 12 blocks are 100/104 checkerboards: each deviates by exactly 2.
struct Burst {
    int n;
    std::vector<uint8_t> quarter;
    uint8_t frameBytes[6] = {};  // stand-ins: only the pointers are moved
    unsigned char* frames[5] = {};
    unsigned char* smalls[6] = {};
    MV1 records[5] = {};
    MV1* mvs[5] = {};

    Burst(int n, int meanY) : n(n), quarter(25 * 25) {
        for (int r = 0; r < 25; ++r)
            for (int c = 0; c < 25; ++c) quarter[r * 25 + c] = static_cast<uint8_t>((r + c) % 2 ? 104 : 100);
        smalls[0] = quarter.data();
        for (int i = 1; i < 6; ++i) smalls[i] = &frameBytes[i];
        for (int i = 0; i < 5; ++i) {
            frames[i] = &frameBytes[i + 1];
            records[i].err = 1.0 * kErrDivisor;  // mean error 1: ratio 0.5
            mvs[i] = &records[i];
        }
        gPicNum = n;
        gMeanY = meanY;
    }
    void vector(int frame, int x, int y) {
        records[frame - 1].x = x;
        records[frame - 1].y = y;
    }
    std::vector<int32_t> screen() {
        std::vector<int32_t> kept(6, -1);
        trv::screenFrames(frames, smalls, 25, 25, kW, kH, mvs, n, kept.data());
        return kept;
    }
};

TEST(FrameScreening, MotionLimitIsFiftySixPixels) {
    Burst b(3, 100);
    b.vector(1, 56, 0);
    b.vector(2, 55, -55);
    EXPECT_EQ(b.screen(), (std::vector<int32_t>{1, 0, 1, 1, 1, 1}));
    EXPECT_EQ(gPicNum, 2);
    // Frame 2 moved to the front, with its record.
    EXPECT_EQ(b.frames[0], &b.frameBytes[2]);
    EXPECT_EQ(b.smalls[1], &b.frameBytes[2]);
    EXPECT_EQ(b.records[0].x, 55);
    EXPECT_EQ(b.records[0].y, -55);
}

TEST(FrameScreening, ErrorRatioLimitIsTwoAndAHalf) {
    // The noise estimate is 2.0, so a mean error of exactly 5 is ratio 2.5.
    Burst b(3, 100);
    b.records[0].err = 5.0 * kErrDivisor;
    b.records[1].err = 321.0;  // 5.015625: ratio 2.5078
    EXPECT_EQ(b.screen(), (std::vector<int32_t>{1, 1, 0, 1, 1, 1}));
    EXPECT_EQ(gEstSigma, 2.0f);
    EXPECT_EQ(b.records[0].err, 5.0);
    EXPECT_EQ(gPicNum, 2);
}

TEST(FrameScreening, DarkScenesWithFewFramesClampLargeVectors) {
    {
        Burst b(3, 19);
        b.vector(1, 80, -70);
        b.records[1].err = 50.0 * kErrDivisor;  // ratio 25, forgiven in the dark too
        EXPECT_EQ(b.screen(), (std::vector<int32_t>{1, 1, 1, 1, 1, 1}));
        EXPECT_EQ(b.records[0].x, 56);
        EXPECT_EQ(b.records[0].y, -56);
        EXPECT_EQ(gPicNum, 3);
    }
    {
        Burst b(3, 20);  // not dark: dropped
        b.vector(1, 80, -70);
        EXPECT_EQ(b.screen()[1], 0);
        EXPECT_EQ(gPicNum, 2);
    }
}

TEST(FrameScreening, EachFrameSeesTheDropsOfTheFramesBeforeIt) {
    // Dark, four frames, all three moved too far. Frame 1 is judged with
    // four frames and dropped; frames 2 and 3 then see three and are kept
    // with clamped vectors. The same on every run.
    for (int run = 0; run < 20; ++run) {
        Burst b(4, 10);
        b.vector(1, 60, 0);
        b.vector(2, -90, 3);
        b.vector(3, 0, 70);
        ASSERT_EQ(b.screen(), (std::vector<int32_t>{1, 0, 1, 1, 1, 1}));
        ASSERT_EQ(gPicNum, 3);
        EXPECT_EQ(b.records[0].x, -56);
        EXPECT_EQ(b.records[0].y, 3);
        EXPECT_EQ(b.records[1].y, 56);
    }
}

TEST(FrameScreening, CompactionKeepsTheSurvivorsInBurstOrder) {
    Burst b(6, 100);
    for (int f = 1; f <= 5; ++f) b.vector(f, f, -f);
    b.vector(2, 57, 0);
    b.vector(4, 0, -60);
    EXPECT_EQ(b.screen(), (std::vector<int32_t>{1, 1, 0, 1, 0, 1}));
    EXPECT_EQ(gPicNum, 4);
    const int survivors[3] = {1, 3, 5};
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(b.frames[k], &b.frameBytes[survivors[k]]);
        EXPECT_EQ(b.smalls[k + 1], &b.frameBytes[survivors[k]]);
        EXPECT_EQ(b.records[k].x, survivors[k]);
        EXPECT_EQ(b.records[k].err, 1.0);
    }
    // Entries past the survivors keep what they held.
    EXPECT_EQ(b.frames[3], &b.frameBytes[4]);
    EXPECT_EQ(b.records[3].y, -60);
    EXPECT_EQ(b.records[4].x, 5);
}

TEST(FrameScreening, NoiseEstimateLeavesOutStructuredBlocks) {
    // One block of the quarter image becomes a 0/200 checkerboard (deviation
    // 100). With a mean error of 1 it is left out (100 >= 3); with a mean
    // error of 40 it counts: (2 + 2 + 2 + 100) / 4.
    for (double meanErr : {1.0, 40.0}) {
        Burst b(2, 100);
        for (int r = 12; r < 24; ++r)
            for (int c = 0; c < 12; ++c) b.quarter[r * 25 + c] = static_cast<uint8_t>((r + c) % 2 ? 200 : 0);
        b.records[0].err = meanErr * kErrDivisor;
        b.screen();
        EXPECT_EQ(gEstSigma, meanErr == 1.0 ? 2.0f : 26.5f);
    }
}

TEST(FrameScreening, SmallQuarterImagesCannotDropForTheirRatio) {
    // 12 x 12: no block is visited, the estimate is NaN and huge errors stay.
    Burst b(3, 100);
    b.records[0].err = 1e6;
    std::vector<int32_t> kept(6, -1);
    trv::screenFrames(b.frames, b.smalls, 12, 12, kW, kH, b.mvs, 3, kept.data());
    EXPECT_TRUE(std::isnan(gEstSigma));
    EXPECT_EQ(kept, (std::vector<int32_t>{1, 1, 1, 1, 1, 1}));
    EXPECT_EQ(gPicNum, 3);
}

TEST(FrameScreening, TwoBrightFramesLeftReenableTheLowestErrorRatio) {
    // A lower error ratio than 1000 brings frame 2 back without raising the
    // count; with every ratio at 1000 (as the driver leaves them) nothing
    // changes.
    for (float ratio2 : {1000.0f, 5.0f}) {
        Burst b(3, 130);
        b.vector(2, 70, 0);
        gErrorRatio[1] = 1000.0f;
        gErrorRatio[2] = ratio2;
        const auto kept = b.screen();
        gErrorRatio[2] = 1000.0f;
        EXPECT_EQ(gPicNum, 2);
        EXPECT_EQ(kept[2], ratio2 < 1000.0f ? 1 : 0);
        EXPECT_EQ(b.records[1].x, 70);  // compacted in place either way
    }
}

}  // namespace
