// Global motion search and alignment error: known translations between frames
// cut from one scene, the range, coarse-level and tie rules, and hand-counted
// alignment costs.
#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

#include "motion/scene.h"
#include "support/layouts.h"
#include "trv/stages.h"

namespace {

using motiontest::xy;

// ME with frames[0] as the reference: the records of the others.
std::vector<MV1> search(std::vector<std::vector<uint8_t>>& frames, int W, int H, bool planar) {
    std::vector<unsigned char*> others;
    std::vector<MV1> found(frames.size() - 1);
    std::vector<MV1*> mvs;
    for (size_t i = 1; i < frames.size(); ++i) others.push_back(frames[i].data()), mvs.push_back(&found[i - 1]);
    gINFormat = planar ? 4 : 2;
    ME(frames[0].data(), others.data(), mvs.data(), W, H, static_cast<int>(frames.size()));
    return found;
}

TEST(GlobalSearch, RecoversKnownShiftsOnTheSearchedLattice) {
    // Every frame's shift lies on the candidates of its size: the exact
    // vector, at cost 0 where no read leaves the frame.
    const struct {
        int W, H, pad;
        bool packedToo, zeroCost;
        std::vector<std::pair<int, int>> origins;  // where each frame is cut, off the centre
    } cases[] = {
        // k = 0, R = 12: every integer offset is a candidate.
        {160, 120, 16, true, true, {{0, 0}, {3, -7}, {-12, 12}, {0, 0}, {12, 5}}},
        // k = 2, R = 67: the grid -67 + 4j, no refinement.
        {1024, 768, 24, true, true, {{0, 0}, {3, -5}, {-13, 7}}},
        // k = 4, R = 24: the grid -24 + 16j, passes at 8 and 4.
        {2064, 240, 24, false, true, {{0, 0}, {-20, 12}}},
        // R = 66, so -66 + 4j holds -66; R = 69 is capped to 67 (-69 + 4j would miss it).
        {660, 660, 70, false, true, {{0, 0}, {66, 66}}},
        {690, 690, 70, false, true, {{0, 0}, {67, 67}}},
        // k = 3, top margin 68: y = -71 only by refinement, first row read at -3.
        {2000, 680, 80, true, false, {{0, 0}, {-5, 71}}},
    };
    for (const auto& t : cases) {
        const trvtest::Planes422 scene = trvtest::texturedPlanes(t.W + 2 * t.pad, t.H + 2 * t.pad, t.W + t.H);
        for (bool planar : {true, false}) {
            if (!planar && !t.packedToo) continue;
            std::vector<std::vector<uint8_t>> frames;
            for (auto [x, y] : t.origins) {
                const auto frame = trvtest::cropPlanes(scene, t.pad + x, t.pad + y, t.W, t.H);
                frames.push_back(trvtest::toLayout(frame, planar ? 4 : 2));
            }
            const std::vector<MV1> found = search(frames, t.W, t.H, planar);
            for (size_t i = 1; i < t.origins.size(); ++i) {
                SCOPED_TRACE(::testing::Message() << t.W << "x" << t.H << " planar " << planar << " frame " << i);
                const std::pair want(t.origins[0].first - t.origins[i].first,
                                     t.origins[0].second - t.origins[i].second);
                EXPECT_EQ(xy(found[i - 1]), want);
                EXPECT_TRUE(!t.zeroCost || found[i - 1].err == 0.0) << found[i - 1].err;
            }
        }
    }
}

TEST(GlobalSearch, TiesGoToTheFirstCandidateAndSingleFramesTouchNothing) {
    // Flat frames: every candidate costs 0. The coarse pass keeps (-R, -R),
    // each refinement pass its first candidate (-s, -s). 2000 x 680: R = 67,
    // one pass at s = 4 reaches (-71, -71), its first row above the frame.
    for (auto [W, H, want] : {std::tuple{160, 120, -12}, std::tuple{2000, 680, -71}}) {
        std::vector<std::vector<uint8_t>> flat(2, std::vector<uint8_t>(W * H * 3 / 2, 90));
        const MV1 rec = search(flat, W, H, true)[0];
        EXPECT_EQ(xy(rec), std::pair(want, want));
        EXPECT_EQ(rec.err, 0.0);
    }
    std::vector<uint8_t> frame(64 * 64 * 3 / 2, 7);
    MV1 rec = motiontest::vec(5, 0);
    MV1* mvs[1] = {&rec};
    ME(frame.data(), nullptr, mvs, 64, 64, 1);
    EXPECT_EQ(rec.x, 5);
    EXPECT_EQ(gMEInput, nullptr);
}

TEST(AlignmentError, FramesPastTheSecondAreRemeasured) {
    // 101 x 77: the crop is 81 x 63 at (10, 7), sampled every fourth row and
    // column from its corner: 16 x 21 = 336 samples; the vector is not applied.
    const int W = 101, H = 77;
    for (int bytes : {1, 2}) {
        auto frameOf = [&](int luma) {
            std::vector<uint8_t> f(static_cast<size_t>(W) * H * 2, 99);  // chroma is never read
            for (size_t p = 0; p < static_cast<size_t>(W) * H; ++p) f[p * bytes] = static_cast<uint8_t>(luma);
            return f;
        };
        auto base = frameOf(10);
        std::vector<uint8_t> frames[5] = {frameOf(0), base, frameOf(30), base, base};
        frames[3][((7 + 8) * W + 10 + 4) * bytes] = 110;  // a sampled position: 100
        frames[4][((7 + 1) * W + 10 + 1) * bytes] = 110;  // between samples
        frames[4][(7 * W + 9) * bytes] = 110;             // left of the crop
        unsigned char* ptrs[5];
        MV1 records[5];
        MV1* mvs[5];
        for (int i = 0; i < 5; ++i)
            ptrs[i] = frames[i].data(), records[i] = motiontest::vec(4 * i, 0), mvs[i] = &records[i];
        for (MV1& r : records) r.err = -1.0;  // left so unless measured
        gINFormat = bytes == 1 ? 0 : 2;
        CalcError(base.data(), ptrs, mvs, W, H, 6);
        const double want[5] = {-1.0, 0.0, 20.0 * 336, 100.0, 0.0};
        for (int i = 0; i < 5; ++i)
            EXPECT_TRUE(records[i].err == want[i] && records[i].x == 4 * i) << i << " " << bytes;
        EXPECT_EQ(gCEInput, nullptr);
        records[1].err = 8.0;
        CalcError(base.data(), ptrs, mvs, W, H, 2);  // two frames measure nothing
        EXPECT_EQ(records[1].err, 8.0);
        CalcError(ptrs[0], ptrs, mvs, 1, 3, 3);  // a 1 x 3 crop is the whole frame, sampled at (0, 0) only
        EXPECT_EQ(records[1].err, 10.0);
        CalcError(ptrs[0], ptrs, mvs, 5, 0, 3);  // no crop rows
        EXPECT_EQ(records[1].err, 0.0);
    }
}

}  // namespace
