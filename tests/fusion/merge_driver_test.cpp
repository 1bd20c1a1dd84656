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
    const std::vector<uint8_t> frame = trvtest::texturedPlane(kW, kH * 3 / 2, 21);
    uint16_t lanes[8];
    for (int n : {6, 3, 2}) {
        std::vector<std::vector<uint8_t>> frames(n, frame), quarters(n, std::vector<uint8_t>(2 * (kW / 4) * (kH / 4)));
        std::vector<MV1> vectors(5);
        std::vector<uint8_t> out(frame.size(), 0);
        gW = kW, gH = kH, gINFormat = 4, gMeanY = 40, gIsNormalLuminance = 1;
        unsigned char *f[6], *q[6];
        MV1* mvs[5];
        for (int i = 0; i < n; ++i) {
            gImgInArr[i] = f[i] = frames[i].data();
            gImgInSArr[i] = q[i] = quarters[i].data();
            fillImageS_YV16(i);
        }
        for (int k = 0; k < 5; ++k) mvs[k] = &vectors[k];
        Merge(f, q, out.data(), mvs, n, kW, kH, 1, 40);
        EXPECT_EQ(out, frame) << n << " frames";
        EXPECT_EQ(gNum, n - 1);
        vst1q_u16(lanes, NUM_16);
        if (n != 6) {
            EXPECT_EQ(lanes[7], n == 3 ? 80 : 32) << n << " frames";
        }
    }
}

}  // namespace
