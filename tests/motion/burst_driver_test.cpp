// The multi-frame path of the driver: bursts cut from one scene at known
// origins come back with the right frame order, vectors and drops.
#include <gtest/gtest.h>

#include <vector>

#include "motion/scene.h"
#include "pipeline/driver.h"
#include "pipeline/single_frame.h"
#include "trv/stages.h"

namespace {

using motiontest::Origin;
using motiontest::xy;

trv::BurstReport runBurst(int W, int H, int code, const std::vector<Origin>& origins, uint32_t seed) {
    motiontest::Scene scene(W, H, 80, seed);
    std::vector<std::vector<uint8_t>> frames;
    std::vector<__tag_TRV_OFFSCREEN> records(origins.size());
    _tag_TRV_INPUTINFO in = {};
    in.picNum = static_cast<int32_t>(origins.size());
    for (size_t i = 0; i < origins.size(); ++i) {
        frames.push_back(scene.frame(origins[i].x, origins[i].y, code == 4));
        records[i].width = W;
        records[i].height = H;
        records[i].data = frames.back().data();
        in.pics[i] = &records[i];
    }
    std::vector<uint8_t> result(trv::singleFrameOutputBytes(W, H));
    __tag_TRV_OFFSCREEN out = {};
    out.data = result.data();
    _tag_TRV_PARAM param = {};
    TRV_GetDefaultParam(&param);
    param.inputFormat = code;
    trv::BurstReport report;
    EXPECT_EQ(trv::enhanceBurst(&in, &out, &param, result.data(), &report), 0);
    return report;
}

TEST(BurstDriver, ThreeShiftedFramesReportTheirVectors) {
    // Pairwise distances below 25: whichever frame is the reference, no swap.
    // 320 x 240 searches even offsets up to 24, so every vector is exact.
    const std::vector<Origin> origins = {{0, 0}, {6, -4}, {-4, 8}};
    for (int code : {4, 2}) {
        const trv::BurstReport report = runBurst(320, 240, code, origins, 31);
        ASSERT_EQ(report.framesFused, 3) << code;
        EXPECT_EQ(report.swappedReference, 0);
        EXPECT_EQ(report.frameOrder[0], report.reference);
        EXPECT_EQ(report.frameOrder[1], report.second);
        EXPECT_EQ((1 << report.frameOrder[0]) | (1 << report.frameOrder[1]) | (1 << report.frameOrder[2]), 7);
        const Origin& ref = origins[report.frameOrder[0]];
        for (int k = 0; k < 2; ++k) {
            const Origin& o = origins[report.frameOrder[k + 1]];
            EXPECT_EQ(xy(report.globalVectors[k]), std::pair(ref.x - o.x, ref.y - o.y)) << code << " frame " << k + 1;
            EXPECT_EQ(report.globalVectors[k].err, 0.0);
        }
        for (int i = 0; i < 6; ++i) EXPECT_EQ(report.droppedByScreening[i], 0);
    }
}

TEST(BurstDriver, FramesMovedTooFarAreDroppedByScreening) {
    // Two pairs of frames, (6, -2) apart within a pair and about 62 apart
    // between pairs. 660 x 660 searches -66 + 4j, which holds every in-pair
    // vector. Whichever frame is the reference, its partner is kept with the
    // exact vector and the other pair is dropped for moving 56 or more.
    const std::vector<Origin> origins = {{0, 0}, {-62, 0}, {-68, 2}, {6, -2}};
    const int partner[4] = {3, 2, 1, 0};
    const trv::BurstReport report = runBurst(660, 660, 4, origins, 32);
    const int ref = report.frameOrder[0];
    EXPECT_EQ(report.swappedReference, 0);
    ASSERT_EQ(report.framesFused, 2);
    EXPECT_EQ(report.frameOrder[1], partner[ref]);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(report.droppedByScreening[i], i == ref || i == partner[ref] ? 0 : 1) << "frame " << i;
    const Origin &r = origins[ref], &p = origins[partner[ref]];
    EXPECT_EQ(xy(report.globalVectors[0]), std::pair(r.x - p.x, r.y - p.y));
}

}  // namespace
