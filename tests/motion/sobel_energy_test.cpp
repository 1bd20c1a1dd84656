// Sobel gradient energy against a plain model and a hand-computed edge.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

float modelEnergy(const std::vector<uint8_t>& img, int W, int H, int bytes) {
    auto a = [&](int c, int r) { return static_cast<long long>(img[(static_cast<size_t>(r) * W + c) * bytes]); };
    long long sum = 0;
    for (int r = 2; r <= 2 * (H / 2 - 2); r += 2) {
        for (int c = 2; c <= 2 * (W / 2 - 2); c += 2) {
            long long gx = a(c + 1, r - 1) + 2 * a(c + 1, r) + a(c + 1, r + 1) - a(c - 1, r - 1) - 2 * a(c - 1, r) -
                           a(c - 1, r + 1);
            long long gy = a(c - 1, r + 1) + 2 * a(c, r + 1) + a(c + 1, r + 1) - a(c - 1, r - 1) - 2 * a(c, r - 1) -
                           a(c + 1, r - 1);
            sum += gx * gx + gy * gy;
        }
    }
    return static_cast<float>(static_cast<double>(sum) / (static_cast<double>(H / 2 - 2) * (W / 2 - 2)));
}

TEST(SobelEnergy, MatchesModelInBothLayoutsAndOddSizes) {
    for (int W : {6, 7, 9, 16, 33}) {
        for (int H : {6, 7, 10, 21}) {
            auto img = trvtest::randomBytes(static_cast<size_t>(W) * H * 2, static_cast<uint32_t>(W * 37 + H));
            EXPECT_EQ(xCalcSobelHV2(img.data(), W, H), modelEnergy(img, W, H, 2)) << W << "x" << H;
            img.resize(static_cast<size_t>(W) * H);  // exact size: no read past the plane
            EXPECT_EQ(xCalcSobelHV2_YV16(img.data(), W, H), modelEnergy(img, W, H, 1)) << W << "x" << H;
        }
    }
}

TEST(SobelEnergy, HandComputedEdgeAndEmptyInterior) {
    // 10 | 50 step between columns 7 and 8 of a 16 x 16 image. Sampled
    // columns 2..12 and rows 2..12 (6 x 6); only column 8 sees the step:
    // Gx = 4 * 40 = 160, Gy = 0, so 6 * 160^2 / 36.
    std::vector<uint8_t> img(16 * 16);
    for (int r = 0; r < 16; ++r)
        for (int c = 0; c < 16; ++c) img[r * 16 + c] = c < 8 ? 10 : 50;
    EXPECT_EQ(xCalcSobelHV2_YV16(img.data(), 16, 16), static_cast<float>(6.0 * 25600 / 36));
    // 4 x 4: no position at all, 0 / 0.
    EXPECT_TRUE(std::isnan(xCalcSobelHV2_YV16(img.data(), 4, 4)));
}

}  // namespace
