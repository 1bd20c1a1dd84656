// Quarter-scale luma images against a plain model of both sampling rules:
// the vector body (columns 4x+2, 4x+3, truncating halving) and the scalar
// tail (columns 4x+1, 4x+2, rounded mean), whole and in four bands.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

uint8_t modelPixel(const uint8_t* upper, const uint8_t* lower, int x, bool vectorBody) {
    if (vectorBody) {
        int top = (upper[4 * x + 2] + upper[4 * x + 3]) >> 1;
        int bottom = (lower[4 * x + 2] + lower[4 * x + 3]) >> 1;
        return static_cast<uint8_t>((top + bottom) >> 1);
    }
    return static_cast<uint8_t>((upper[4 * x + 1] + upper[4 * x + 2] + lower[4 * x + 1] + lower[4 * x + 2] + 2) >> 2);
}

std::vector<uint8_t> modelQuarterPlanar(const std::vector<uint8_t>& luma, int W, int H) {
    const int q = W >> 2, rows = H >> 2, body = q & ~7;
    std::vector<uint8_t> out(static_cast<size_t>(q) * rows);
    for (int y = 0; y < rows; ++y) {
        const uint8_t* upper = &luma[static_cast<size_t>(4 * y + 1) * W];
        for (int x = 0; x < q; ++x) out[static_cast<size_t>(y) * q + x] = modelPixel(upper, upper + W, x, x < body);
    }
    return out;
}

struct FrameState {
    std::vector<uint8_t> frame, quarter;
    FrameState(int W, int H, int bytesPerPixel, uint32_t seed)
        : frame(trvtest::randomBytes(static_cast<size_t>(W) * H * bytesPerPixel, seed)),
          quarter(static_cast<size_t>(W >> 2) * (H >> 2) + 1, 0xEE) {
        gW = W;
        gH = H;
        gImgInArr[0] = frame.data();
        gImgInSArr[0] = quarter.data();
    }
    std::vector<uint8_t> result() const { return {quarter.begin(), quarter.end() - 1}; }
};

TEST(QuarterImage, PlanarMatchesModelForEveryTailLength) {
    for (int q = 1; q <= 41; ++q) {
        for (int extra = 0; extra < 4; ++extra) {
            const int W = 4 * q + extra, H = 4 * 5 + extra;
            FrameState state(W, H, 1, 1000u + q * 4 + extra);
            fillImageS_YV16(0);
            const std::vector<uint8_t> want = modelQuarterPlanar(state.frame, W, H);
            ASSERT_EQ(state.result(), want) << "W=" << W << " H=" << H;
            std::fill(state.quarter.begin(), state.quarter.end() - 1, 0);
            RunFillImage(0);  // four bands of H >> 4 rows, the last taking the rest
            ASSERT_EQ(state.result(), want) << "banded, W=" << W << " H=" << H;
            EXPECT_EQ(state.quarter.back(), 0xEE) << "wrote past the image";
        }
    }
}

TEST(QuarterImage, PackedUsesRoundedMeanOfLumaBytes) {
    // Luma bytes of each column pair 4x+1, 4x+2 of rows 4y+1, 4y+2: (40 + 80 + 41 + 81 + 2) >> 2 = 61.
    FrameState state(37, 13, 2, 77);
    for (int r = 0; r < 13; ++r)
        for (int c = 0; c < 37; ++c) state.frame[(r * 37 + c) * 2] = static_cast<uint8_t>((c % 4) * 40 + (r % 4 == 2));
    fillImageS_YUV422(0);
    EXPECT_EQ(state.result(), std::vector<uint8_t>(9 * 3, 61));
    FrameState low(64, 3, 2, 5);  // under four rows there is no image: only the guard byte
    fillImageS_YV16(0);
    fillImageS_YUV422(0);
    EXPECT_EQ(low.quarter, std::vector<uint8_t>{0xEE});
}

}  // namespace
