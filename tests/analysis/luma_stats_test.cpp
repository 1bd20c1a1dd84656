// Luminance statistics: sparse sampling, the whole-cell divisor and the
// level thresholds.
#include <gtest/gtest.h>

#include <numeric>
#include <utility>
#include <vector>

#include "trv/stages.h"

namespace {

int levelOf(int value) {
    gINFormat = 4;
    std::vector<uint8_t> img(64 * 64, static_cast<uint8_t>(value));
    int mean = -1, histogram[256] = {};
    int level = CalEnhanceID(img.data(), 64, 64, &mean, histogram);
    EXPECT_EQ(mean, value);
    return level;
}

TEST(LumaStats, LevelThresholds) {
    for (auto [value, level] : {std::pair{118, 0}, {117, 1}, {87, 1}, {86, 2}, {19, 2}, {18, 3}, {0, 3}}) {
        EXPECT_EQ(levelOf(value), level) << value;
    }
}

TEST(LumaStats, SamplesEveryEighthPixelButDividesByWholeCells) {
    // 20 x 12: samples at columns 0, 8, 16 and rows 0, 8 (6 samples), while
    // the divisor is (20 / 8) * (12 / 8) = 2 cells.
    const int w = 20, h = 12;
    std::vector<uint8_t> img(w * h, 1);
    for (int r = 0; r < h; r += 8)
        for (int c = 0; c < w; c += 8) img[r * w + c] = 10;
    int mean = 0, histogram[256] = {};
    gINFormat = 1;
    CalEnhanceID(img.data(), w, h, &mean, histogram);
    EXPECT_EQ(mean, 60 / 2);
    EXPECT_EQ(histogram[10], 6);
    EXPECT_EQ(std::accumulate(histogram, histogram + 256, 0), 6);
}

TEST(LumaStats, PackedLayoutReadsEveryOtherByte) {
    const int w = 16, h = 16;
    std::vector<uint8_t> img(2 * w * h, 200);  // chroma bytes 200
    for (size_t i = 0; i < img.size(); i += 2) img[i] = 40;
    int mean = 0, histogram[256] = {};
    gINFormat = 2;
    EXPECT_EQ(CalEnhanceID(img.data(), w, h, &mean, histogram), 2);
    EXPECT_EQ(mean, 40);
    gINFormat = -1;  // any code without planar luma reads packed
    mean = 0;
    CalEnhanceID(img.data(), w, h, &mean, histogram);
    EXPECT_EQ(mean, 40);
}

TEST(LumaStats, TooSmallForOneCellGivesZeroMean) {
    // No whole 8 x 8 cell: the division by a zero count is defined as 0.
    std::vector<uint8_t> img(7 * 30, 250);
    int mean = -1, histogram[256] = {};
    gINFormat = 4;
    EXPECT_EQ(CalEnhanceID(img.data(), 7, 30, &mean, histogram), 3);
    EXPECT_EQ(mean, 0);
    EXPECT_EQ(histogram[250], 4);  // still sampled: rows 0, 8, 16, 24
    mean = -1;
    EXPECT_EQ(CalEnhanceID(img.data(), 7, 0, &mean, histogram), 3);
    EXPECT_EQ(mean, 0);
}

}  // namespace
