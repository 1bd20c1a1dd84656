// Blur check: reference and second frame, the 0.88 drop rule, the brightness
// outlier and the burst brightness test, on frames whose quarter images are
// built to have a chosen sharpness and mean brightness.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "trv/stages.h"

namespace {

constexpr int kW = 256, kH = 256;  // quarter images of 64 x 64

// A burst of NV21 frames whose 4 x 4 cells are flat, so each quarter image is
// exactly the cell pattern: columns cycle m, m + a, m, m - a. The sharpness
// grows linearly with a; every sampled pixel (column multiple of 8) is m.
struct Burst {
    std::vector<std::vector<uint8_t>> frames, quarters;
    int kept[6] = {}, ref = -1, second = -1;

    Burst(const std::vector<std::pair<int, int>>& meanAndAmplitude) {
        for (auto [mean, amplitude] : meanAndAmplitude) {
            const int offsets[4] = {0, amplitude, 0, -amplitude};
            frames.emplace_back(kW * kH * 3 / 2, 128);
            for (int p = 0; p < kW * kH; ++p) frames.back()[p] = static_cast<uint8_t>(mean + offsets[(p % kW / 4) % 4]);
            quarters.emplace_back(2 * (kW / 4) * (kH / 4));
            gImgInArr[frames.size() - 1] = frames.back().data();
            gImgInSArr[frames.size() - 1] = quarters.back().data();
        }
        gW = kW;
        gH = kH;
        gINFormat = 4;
        gIsNormalLuminance = 1;
        gPicNum = static_cast<int32_t>(frames.size());
    }
    float run() { return kickBlurPic(kept, &ref, &second, static_cast<int>(frames.size())); }
};

TEST(BlurCheck, ReferenceSecondDropsBrightnessAndRatio) {
    const struct {
        const char* what;
        std::vector<std::pair<int, int>> frames;
        int ref, second;
        std::vector<int> kept, normalLux;
        int normalLuminance;
        float ratio;  // the second frame's sharpness over the reference's
    } cases[] = {
        // 40 / 60 = 0.67 is below 0.88: frame 0 is dropped.
        {"sharpest is reference", {{100, 40}, {100, 60}, {100, 57}}, 1, 2, {0, 1, 1}, {1, 1, 1}, 1, 57.0f / 60},
        {"second at 87 % is dropped", {{100, 100}, {100, 87}}, 0, 1, {1, 0}, {1, 1}, 1, 0.87f},
        {"second at 88.5 % is kept", {{128, 113}, {128, 100}}, 0, 1, {1, 1}, {1, 1}, 1, 100.0f / 113},
        // Means 100, 100, 130: dispersions 30, 30, 60; frame 2 is 30 above
        // the next and is marked, so the sharpest normal frame is reference.
        // One frame off the reference's brightness keeps the burst normal.
        {"outlier", {{100, 50}, {100, 48}, {130, 60}}, 0, 1, {1, 1, 1}, {1, 1, 0}, 1, 48.0f / 50},
        {"frame 0 is never an outlier", {{130, 60}, {100, 50}, {100, 48}}, 0, 1, {1, 0, 0}, {1, 1, 1}, 0, 50.0f / 60},
        {"two frames, equal dispersion", {{100, 50}, {140, 50}}, 0, 1, {1, 1}, {1, 1}, 1, 1.0f},
        {"two frames off by 3", {{100, 50}, {103, 49}, {97, 48}}, 0, 1, {1, 1, 1}, {1, 1, 1}, 0, 0.98f},
        {"two frames off by 2", {{100, 50}, {102, 49}, {98, 48}}, 0, 1, {1, 1, 1}, {1, 1, 1}, 1, 0.98f},
        // One frame: no second, ratio 0. Flat frames: every ratio is 0 / 0 and every frame is kept.
        {"single frame", {{100, 50}}, 0, 1, {1}, {1}, 1, 0.0f},
        {"flat frames", {{100, 0}, {100, 0}}, 0, 1, {1, 1}, {1, 1}, 1, NAN},
    };
    for (const auto& c : cases) {
        Burst burst(c.frames);
        const float ratio = burst.run();
        SCOPED_TRACE(c.what);
        EXPECT_TRUE(std::abs(ratio - c.ratio) < 1e-6f || (std::isnan(ratio) && std::isnan(c.ratio))) << ratio;
        EXPECT_EQ(gMeanLux[0], c.frames[0].first);
        EXPECT_EQ(burst.ref, c.ref);
        EXPECT_EQ(burst.second, c.second);
        EXPECT_EQ(std::vector<int>(burst.kept, burst.kept + c.kept.size()), c.kept);
        EXPECT_EQ(std::vector<int>(gIsNormalPicLux, gIsNormalPicLux + c.kept.size()), c.normalLux);
        EXPECT_EQ(gIsNormalLuminance, c.normalLuminance);
        EXPECT_EQ(gPicNum, std::count(c.kept.begin(), c.kept.end(), 1));
        EXPECT_EQ(gSobel, nullptr) << "measures are freed and cleared";
    }
}

}  // namespace
