// Blur check: reference and second frame, the 0.88 drop rule, the brightness
// outlier and the burst brightness test, on frames whose quarter images are
// built to have a chosen sharpness and mean brightness.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "trv/stages.h"

namespace {

constexpr int kW = 256, kH = 256;  // quarter images of 64 x 64

// An NV21 frame whose 4 x 4 cells are flat, so its quarter image is exactly
// the cell pattern: columns cycle m, m + a, m, m - a. The sharpness grows
// linearly with a; every sampled pixel (column multiple of 8) is m.
std::vector<uint8_t> frameWith(int mean, int amplitude) {
    std::vector<uint8_t> frame(kW * kH * 3 / 2, 128);
    const int offsets[4] = {0, amplitude, 0, -amplitude};
    for (int r = 0; r < kH; ++r)
        for (int c = 0; c < kW; ++c) frame[r * kW + c] = static_cast<uint8_t>(mean + offsets[(c / 4) % 4]);
    return frame;
}

struct Burst {
    std::vector<std::vector<uint8_t>> frames;
    std::vector<std::vector<uint8_t>> quarters;
    int kept[6] = {}, ref = -1, second = -1;

    Burst(std::initializer_list<std::pair<int, int>> meanAndAmplitude) {
        for (auto [mean, amplitude] : meanAndAmplitude) {
            frames.push_back(frameWith(mean, amplitude));
            quarters.emplace_back(2 * (kW / 4) * (kH / 4));
        }
        gW = kW;
        gH = kH;
        gINFormat = 4;
        gIsNormalLuminance = 1;
        gPicNum = static_cast<int32_t>(frames.size());
        for (size_t i = 0; i < frames.size(); ++i) {
            gImgInArr[i] = frames[i].data();
            gImgInSArr[i] = quarters[i].data();
        }
    }
    float run() { return kickBlurPic(kept, &ref, &second, static_cast<int>(frames.size())); }
};

TEST(BlurCheck, PicksSharpestAsReferenceAndNextAsSecond) {
    Burst burst({{100, 40}, {100, 60}, {100, 57}});
    float ratio = burst.run();
    EXPECT_EQ(burst.ref, 1);
    EXPECT_EQ(burst.second, 2);
    EXPECT_NEAR(ratio, 57.0 / 60.0, 1e-6);
    // 40 / 60 = 0.67 is below 0.88: frame 0 is dropped.
    EXPECT_EQ(burst.kept[0], 0);
    EXPECT_EQ(burst.kept[1], 1);
    EXPECT_EQ(burst.kept[2], 1);
    EXPECT_EQ(gPicNum, 2);
    EXPECT_EQ(gMeanLux[0], 100);
    EXPECT_EQ(gIsNormalLuminance, 1);
    EXPECT_EQ(gSobel, nullptr) << "measures are freed and cleared";
}

TEST(BlurCheck, SecondFrameAtEightySevenPercentIsDroppedButStaysSecond) {
    Burst burst({{100, 100}, {100, 87}});
    burst.run();
    EXPECT_EQ(burst.ref, 0);
    EXPECT_EQ(burst.second, 1);
    EXPECT_EQ(burst.kept[1], 0);
    EXPECT_EQ(gPicNum, 1);
}

TEST(BlurCheck, BrightnessOutlierCannotBeReference) {
    // Means 100, 100, 130: dispersions 30, 30, 60; frame 2 is 30 above the
    // next and is marked, so the sharpest normal frame becomes reference.
    Burst burst({{100, 50}, {100, 48}, {130, 60}});
    burst.run();
    EXPECT_EQ(gIsNormalPicLux[2], 0);
    EXPECT_EQ(burst.ref, 0);
    EXPECT_EQ(burst.second, 1);
    // Two frames off the reference's brightness make the burst abnormal
    // only when there are two of them; here there is one.
    EXPECT_EQ(gIsNormalLuminance, 1);
}

TEST(BlurCheck, FrameZeroIsNeverMarkedAsOutlier) {
    Burst burst({{130, 60}, {100, 50}, {100, 48}});
    burst.run();
    EXPECT_EQ(gIsNormalPicLux[0], 1);
    EXPECT_EQ(burst.ref, 0);
}

TEST(BlurCheck, TwoFramesHaveEqualDispersionAndNoOutlier) {
    Burst burst({{100, 50}, {140, 50}});
    burst.run();
    EXPECT_EQ(gIsNormalPicLux[0], 1);
    EXPECT_EQ(gIsNormalPicLux[1], 1);
}

TEST(BlurCheck, BurstBrightnessInconsistentWhenTwoFramesDifferByMoreThanTwo) {
    Burst burst({{100, 50}, {103, 49}, {97, 48}});
    burst.run();
    EXPECT_EQ(burst.ref, 0);
    EXPECT_EQ(gIsNormalLuminance, 0);
    Burst close({{100, 50}, {102, 49}, {98, 48}});
    close.run();
    EXPECT_EQ(gIsNormalLuminance, 1);
}

TEST(BlurCheck, SingleFrameAndFlatFrames) {
    Burst one({{100, 50}});
    float ratio = one.run();
    EXPECT_EQ(one.ref, 0);
    EXPECT_EQ(one.second, 1);
    EXPECT_EQ(ratio, 0.0f);
    EXPECT_EQ(one.kept[0], 1);
    // Flat frames measure 0: every ratio is 0 / 0 and every frame is kept.
    Burst flat({{100, 0}, {100, 0}});
    EXPECT_TRUE(std::isnan(flat.run()));
    EXPECT_EQ(flat.kept[0], 1);
    EXPECT_EQ(flat.kept[1], 1);
    EXPECT_EQ(gPicNum, 2);
}

}  // namespace
