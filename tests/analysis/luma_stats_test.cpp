// Luminance statistics: sparse sampling, the whole-cell divisor and the
// level thresholds.
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "trv/stages.h"

namespace {

TEST(LumaStats, SparseSamplesOverWholeCellsGiveTheLevel) {
    // Luma `fill`, and `sampled` at every eighth row and column. The mean
    // divides the samples' sum by the whole 8 x 8 cells, 0 without one.
    const struct {
        int format, w, h, fill, sampled, mean, level, samples;
    } cases[] = {
        {4, 64, 64, 118, 118, 118, 0, 64}, {4, 64, 64, 117, 117, 117, 1, 64}, {4, 64, 64, 87, 87, 87, 1, 64},
        {4, 64, 64, 86, 86, 86, 2, 64},    {4, 64, 64, 19, 19, 19, 2, 64},    {4, 64, 64, 18, 18, 18, 3, 64},
        {4, 64, 64, 0, 0, 0, 3, 64},
        // 20 x 12: samples at columns 0, 8, 16 of rows 0 and 8, but 2 whole cells.
        {1, 20, 12, 1, 10, 30, 2, 6},
        // Packed luma on every other byte, for any code without planar luma.
        {2, 16, 16, 200, 40, 40, 2, 4},
        {-1, 16, 16, 200, 40, 40, 2, 4},
        // No whole cell: the division by a zero count is defined as 0.
        {4, 7, 30, 250, 250, 0, 3, 4},
        {4, 7, 0, 250, 250, 0, 3, 0},
    };
    for (const auto& c : cases) {
        const int bytes = c.format == 2 || c.format == -1 ? 2 : 1;
        std::vector<uint8_t> img(static_cast<size_t>(c.w) * c.h * bytes, static_cast<uint8_t>(c.fill));
        for (int r = 0; r < c.h; r += 8)
            for (int col = 0; col < c.w; col += 8) img[(r * c.w + col) * bytes] = static_cast<uint8_t>(c.sampled);
        int mean = -1, histogram[256] = {};
        gINFormat = c.format;
        EXPECT_EQ(CalEnhanceID(img.data(), c.w, c.h, &mean, histogram), c.level) << c.w << "x" << c.h << " " << c.fill;
        EXPECT_EQ(mean, c.mean) << c.w << "x" << c.h << " " << c.fill;
        EXPECT_EQ(histogram[c.sampled], c.samples);
        EXPECT_EQ(std::accumulate(histogram, histogram + 256, 0), c.samples);
    }
}

}  // namespace
