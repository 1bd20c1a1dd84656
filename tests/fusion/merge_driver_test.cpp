// The fusion driver as a whole on small bursts: agreeing frames, the count
// carried in NUM_16, and the last band of frames whose tiles pass the edge.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "support/layouts.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

// Large enough that every block refines on many samples, so agreeing frames
// keep their zero vectors (a one-sample block could tie at another shift).
constexpr int kW = 512, kH = 256;

struct SmallBurst {
    int w = kW, h = kH;
    std::vector<std::vector<uint8_t>> frames, quarters;
    std::vector<MV1> vectors = std::vector<MV1>(5);
    std::vector<uint8_t> out;

    explicit SmallBurst(int n) : out(static_cast<size_t>(kW) * kH * 3 / 2, 0) {
        auto frame = trvtest::texturedPlane(kW, kH * 3 / 2, 21);
        for (int i = 0; i < n; ++i) frames.push_back(frame);
        makeQuarters();
    }
    // NV21 frames of w x h.
    SmallBurst(std::vector<std::vector<uint8_t>> nv21, int width, int height)
        : w(width), h(height), frames(std::move(nv21)), out(static_cast<size_t>(w) * h * 3 / 2, 0) {
        makeQuarters();
    }
    void makeQuarters() {
        for (size_t i = 0; i < frames.size(); ++i) quarters.emplace_back(2 * (w / 4) * (h / 4));
    }

    void merge(int n, int meanY = 40) {
        gW = w, gH = h, gINFormat = 4, gMeanY = meanY, gIsNormalLuminance = 1;
        unsigned char* f[6];
        unsigned char* q[6];
        MV1* mvs[5];
        for (int i = 0; i < n; ++i) {
            gImgInArr[i] = frames[i].data();
            gImgInSArr[i] = quarters[i].data();
            fillImageS_YV16(i);
            f[i] = frames[i].data();
            q[i] = quarters[i].data();
        }
        for (int k = 0; k < 5; ++k) mvs[k] = &vectors[k];
        Merge(f, q, out.data(), mvs, n, w, h, 1, meanY);
    }
};

// Agreeing frames give the reference. NUM_16 carries 16 x the previous
// call's other frames (5, then 2), whatever this call fuses.
TEST(FusionDriver, IdenticalFramesGiveTheReferenceAndNum16ThePreviousCount) {
    uint16_t lanes[8];
    for (int n : {6, 3, 2}) {
        SmallBurst burst(n);
        burst.merge(n);
        EXPECT_EQ(burst.out, burst.frames[0]) << n << " frames";
        EXPECT_EQ(gNum, n - 1);
        vst1q_u16(lanes, NUM_16);
        if (n != 6) {
            EXPECT_EQ(lanes[7], n == 3 ? 80 : 32) << n << " frames";
        }
    }
}

// On 66 and 68 rows seven tile rows already pass the last row: the last band
// has no rows of its own, and with frames moved 12 to 14 rows down its bottom
// strips (10 rows) reach two bands up. It runs after the others, so the
// result does not depend on what the output held (nor does the thread
// sanitizer see a race).
TEST(FusionDriver, LastBandWithoutRowsRunsAfterTheOthers) {
    for (int h : {66, 68}) {
        const trvtest::Planes422 scene = trvtest::texturedPlanes(96, h, 3);
        SmallBurst burst({trvtest::toLayout(scene, 4), trvtest::toLayout(trvtest::shifted(scene, 0, 14), 4),
                          trvtest::toLayout(trvtest::shifted(scene, 2, 12), 4)},
                         96, h);
        burst.vectors[0] = MV1{0, 14, {}, 0.0};
        burst.vectors[1] = MV1{2, 12, {}, 0.0};
        burst.merge(3);
        const std::vector<uint8_t> first = burst.out;
        std::fill(burst.out.begin(), burst.out.end(), 0xFF);
        burst.merge(3);
        EXPECT_EQ(burst.out, first) << h << " rows";
    }
}

}  // namespace
