// Sharpness measure against a plain model: every position's |Gx| + |Gy|,
// summed over the inner region and the rest, divided in double precision.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

void modelSobel(const std::vector<uint8_t>& img, int w, int h, float* whole, float* inner) {
    const int h8 = h >> 3, w8 = w >> 3;
    long long I = 0, O = 0;
    auto a = [&](int r, int c) { return static_cast<int>(img[static_cast<size_t>(r) * w + c]); };
    for (int r = 1; r <= h - 2; ++r) {
        for (int c = 1; c <= w - 2; ++c) {
            int gx = (a(r - 1, c + 1) + 2 * a(r, c + 1) + a(r + 1, c + 1)) -
                     (a(r - 1, c - 1) + 2 * a(r, c - 1) + a(r + 1, c - 1));
            int gy = (a(r + 1, c - 1) + 2 * a(r + 1, c) + a(r + 1, c + 1)) -
                     (a(r - 1, c - 1) + 2 * a(r - 1, c) + a(r - 1, c + 1));
            int m = std::abs(gx) + std::abs(gy);
            bool isInner = r >= h8 && r < 7 * h8 && c >= w8 && c < 7 * w8;
            (isInner ? I : O) += m;
        }
    }
    *whole = static_cast<float>(static_cast<double>(O + I) / ((h - 2) * (w - 2)));
    *inner = static_cast<float>(static_cast<double>(I) / ((6 * h8) * (6 * w8)));
}

TEST(Sobel, MatchesModelOnRandomImagesOfOddSizes) {
    // Widths around the 8- and 16-column groups and the inner-region cuts;
    // at 3 x 3 there is no inner region and its quotient is 0 / 0.
    for (int w : {3, 8, 9, 15, 16, 17, 23, 31, 33, 40, 47, 64, 71, 130}) {
        for (int h : {3, 8, 9, 17, 30}) {
            auto img = trvtest::randomBytes(static_cast<size_t>(w) * h, static_cast<uint32_t>(w * 131 + h));
            float whole = 0, inner = 0, mWhole = 0, mInner = 0;
            xCalcSobelHV(img.data(), w, h, &whole, &inner);
            modelSobel(img, w, h, &mWhole, &mInner);
            ASSERT_EQ(whole, mWhole) << w << "x" << h;
            ASSERT_TRUE(inner == mInner || (std::isnan(inner) && std::isnan(mInner))) << w << "x" << h;
        }
    }
}

TEST(Sobel, SixteenBitLaneSumsWrapOnlyPastTheirRange) {
    // A checkerboard of 2 x 2 cells of 0 and 255 scores |Gx| = |Gy| = 510 at
    // every position. Lanes hold one column in 8 of a row segment: 149 groups
    // of the 1198-column outer rows hold 75990 per lane and wrap, while the
    // 900-column inner segments (57120) do not.
    const int w = 1200, h = 10;
    std::vector<uint8_t> img(w * h);
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) img[r * w + c] = (((r / 2) + (c / 2)) & 1) ? 255 : 0;
    float whole = 0, inner = 0, mWhole = 0, mInner = 0;
    xCalcSobelHV(img.data(), w, h, &whole, &inner);
    modelSobel(img, w, h, &mWhole, &mInner);
    EXPECT_LT(whole, mWhole) << "lane sums should have wrapped";
    EXPECT_EQ(inner, mInner);
}

}  // namespace
