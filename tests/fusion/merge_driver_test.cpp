// The fusion driver as a whole: agreeing frames, and the count carried in
// NUM_16.
#include <gtest/gtest.h>

#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

// Agreeing frames give the reference: 512 x 256, so every block refines on
// many samples and keeps its zero vector (a one-sample block could tie at
// another shift). NUM_16 carries 16 x the previous call's other frames (5,
// then 2), whatever this call fuses.
TEST(FusionDriver, IdenticalFramesGiveTheReferenceAndNum16ThePreviousCount) {
    constexpr int kW = 512, kH = 256;
    std::vector<uint8_t> frame = trvtest::texturedPlane(kW, kH * 3 / 2, 21), quarter(2 * (kW / 4) * (kH / 4));
    gW = kW, gH = kH, gINFormat = 4, gMeanY = 40, gIsNormalLuminance = 1;
    gImgInArr[0] = frame.data(), gImgInSArr[0] = quarter.data();
    fillImageS_YV16(0);
    // Every frame (and its quarter image) is the same buffer.
    std::vector<unsigned char*> f(6, frame.data()), q(6, quarter.data());
    MV1 vectors[5] = {};
    MV1* mvs[5] = {&vectors[0], &vectors[1], &vectors[2], &vectors[3], &vectors[4]};
    for (int n : {6, 3, 2}) {
        std::vector<uint8_t> out(frame.size(), 0);
        Merge(f.data(), q.data(), out.data(), mvs, n, kW, kH, 1, 40);
        EXPECT_EQ(out, frame) << n << " frames";
        EXPECT_EQ(gNum, n - 1);
        if (n != 6) {
            EXPECT_EQ(vgetq_lane_u16(NUM_16, 7), n == 3 ? 80 : 32) << n << " frames";
        }
    }
}

}  // namespace
