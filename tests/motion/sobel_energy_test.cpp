// Sobel gradient energy: hand-computed edges in both layouts and sizes whose
// sampled grid ends early.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "trv/stages.h"

namespace {

TEST(SobelEnergy, HandComputedEdgesInBothLayouts) {
    // A 10 | 50 step between columns 7 and 8 of a W x H image. Sampled rows
    // and columns are 2, 4, .. 2 (n / 2 - 2); only column 8 sees the step:
    // Gx = 4 * 40 = 160, Gy = 0, summed over the sampled rows and divided by
    // all sampled positions. 16 x 16: 6 x 6; 13 x 16: column 8 is the last
    // sampled one; 19 x 13: 7 columns, 4 rows; 9 x 12: columns 2 and 4 only.
    const struct {
        int W, H;
        float want;
    } cases[] = {{16, 16, static_cast<float>(6.0 * 25600 / 36)},
                 {13, 16, static_cast<float>(6.0 * 25600 / 24)},
                 {19, 13, static_cast<float>(4.0 * 25600 / 28)},
                 {9, 12, 0.0f}};
    for (const auto& c : cases) {
        std::vector<uint8_t> planar(c.W * c.H), packed(2 * c.W * c.H, 128);
        for (int p = 0; p < c.W * c.H; ++p) planar[p] = packed[2 * p] = p % c.W < 8 ? 10 : 50;
        EXPECT_EQ(xCalcSobelHV2_YV16(planar.data(), c.W, c.H), c.want) << c.W << "x" << c.H;
        EXPECT_EQ(xCalcSobelHV2(packed.data(), c.W, c.H), c.want) << c.W << "x" << c.H;
    }
    // 4 x 4: no position at all, 0 / 0.
    std::vector<uint8_t> tiny(16, 5);
    EXPECT_TRUE(std::isnan(xCalcSobelHV2_YV16(tiny.data(), 4, 4)));
}

}  // namespace
