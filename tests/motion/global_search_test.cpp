// Global motion search and alignment error: known translations between frames
// cut from one scene, the range, coarse-level and tie rules, and a plain model
// of the coarse and refinement passes.
#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

#include "motion/scene.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

using motiontest::cropSad;
using motiontest::LumaView;
using motiontest::Origin;
using motiontest::xy;

// The search as the rules state it: no early abandoning (it cannot change
// the winner), reference samples clamped into the frame.
MV1 modelSearch(const LumaView& ref, const LumaView& frame) {
    const int W = ref.W, H = ref.H, R = std::min(W / 10, H / 10) > 66 ? 67 : std::min(W / 10, H / 10);
    int k = 0;
    while ((W >> k) > 256 || (H >> k) > 256) ++k;
    MV1 mv{};
    double best = 1e30;
    for (int dy = -R; dy <= R; dy += 1 << k) {
        for (int dx = -R; dx <= R; dx += 1 << k) {
            const double c = cropSad(ref, frame, dx, dy, 1 << k);
            if (c < best) mv.x = dx, mv.y = dy, mv.err = best = c;
        }
    }
    if (k < 3) return mv;
    for (int s = 1 << (k - 1); s >= 4; s /= 2) {
        const int x0 = mv.x, y0 = mv.y;
        best = 1e30;
        for (int j = -1; j <= 1; ++j) {
            for (int i = -1; i <= 1; ++i) {
                const double c = cropSad(ref, frame, x0 + i * s, y0 + j * s, 4 * s);
                if (c < best) mv.x = x0 + i * s, mv.y = y0 + j * s, mv.err = best = c;
            }
        }
    }
    mv.err *= 16;
    return mv;
}

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

TEST(GlobalSearch, RecoversKnownShiftsAndMatchesModelAcrossSizes) {
    // Frames 1..exact of each burst lie on the searched lattice: exact vector,
    // cost 0. The rest must match the model and lie within tol of the shift.
    const struct {
        int W, H, pad;
        uint32_t seed;
        bool packedToo;
        std::vector<Origin> origins;
        int exact, tol;
    } cases[] = {
        // k = 0, R = 12: every integer offset is a candidate.
        {160, 120, 16, 11, true, {{0, 0}, {3, -7}, {-12, 12}, {0, 0}, {12, 5}}, 4, 0},
        // k = 2, R = 67: the grid -67 + 4j, no refinement; off the grid the
        // cost stays unscaled.
        {1024, 768, 24, 12, true, {{0, 0}, {3, -5}, {-13, 7}}, 2, 0},
        {1024, 768, 24, 12, false, {{0, 0}, {-2, 0}}, 0, 2},
        // k = 4: coarse step 16, passes at 8 and 4, cost x 16.
        {4000, 3000, 40, 13, false, {{0, 0}, {-21, 11}, {30, -6}}, 1, 2},
        // R = 66, so -66 + 4j holds -66; R = 69 is capped to 67 (-69 + 4j would miss it).
        {660, 660, 70, 14, false, {{0, 0}, {66, 66}}, 1, 0},
        {690, 690, 70, 15, false, {{0, 0}, {67, 67}}, 1, 0},
        // k = 3, top margin 68: y = -71 only by refinement, first row read at -3.
        {2000, 680, 80, 16, true, {{0, 0}, {-5, 71}}, 0, 0},
    };
    for (const auto& t : cases) {
        motiontest::Scene scene(t.W, t.H, t.pad, t.seed);
        for (bool planar : {true, false}) {
            if (!planar && !t.packedToo) continue;
            const int bytes = planar ? 1 : 2, n = static_cast<int>(t.origins.size());
            std::vector<std::vector<uint8_t>> frames;
            for (const Origin& o : t.origins) frames.push_back(scene.frame(o.x, o.y, planar));
            const std::vector<MV1> found = search(frames, t.W, t.H, planar);
            for (int i = 1; i < n; ++i) {
                const int wx = t.origins[0].x - t.origins[i].x, wy = t.origins[0].y - t.origins[i].y;
                const MV1& f = found[i - 1];
                SCOPED_TRACE(::testing::Message() << t.W << "x" << t.H << " planar " << planar << " frame " << i);
                if (i <= t.exact) {
                    EXPECT_EQ(xy(f), std::pair(wx, wy));
                    EXPECT_EQ(f.err, 0.0);
                    continue;
                }
                const MV1 model = modelSearch({frames[0].data(), t.W, t.H, bytes}, {frames[i].data(), t.W, t.H, bytes});
                EXPECT_EQ(xy(f), xy(model));
                EXPECT_EQ(f.err, model.err);
                EXPECT_LE(std::abs(f.x - wx), t.tol);
                EXPECT_LE(std::abs(f.y - wy), t.tol);
            }
        }
    }
}

TEST(GlobalSearch, TiesGoToTheFirstCandidateVisited) {
    // Flat frames: every candidate costs 0. The coarse pass keeps (-R, -R),
    // each refinement pass its first candidate (-s, -s). 2000 x 680: R = 67,
    // one pass at s = 4 reaches (-71, -71), its first row above the frame.
    for (auto [W, H, want] : {std::tuple{160, 120, -12}, std::tuple{2000, 680, -71}}) {
        std::vector<std::vector<uint8_t>> flat(2, std::vector<uint8_t>(W * H * 3 / 2, 90));
        const MV1 rec = search(flat, W, H, true)[0];
        EXPECT_EQ(xy(rec), std::pair(want, want));
        EXPECT_EQ(rec.err, 0.0);
    }
}

TEST(GlobalSearch, MatchesModelOnNoisyFramesOfOddSizes) {
    // Independent noise on every frame: costs never tie at zero, so early
    // abandoning and the strict minimum both matter.
    const std::pair<int, int> sizes[] = {{64, 48}, {97, 61}, {90, 30}, {300, 200}, {9, 9}};
    uint32_t seed = 100;
    for (auto [W, H] : sizes) {
        for (bool planar : {true, false}) {
            const int bytes = planar ? 1 : 2;
            std::vector<std::vector<uint8_t>> f(2, trvtest::randomBytes(static_cast<size_t>(W) * H * 2, ++seed));
            auto &base = f[0], &other = f[1];
            trvtest::Rng rng(++seed);
            // The same picture moved by (2, -1) plus noise of +-6.
            for (int r = 0; r < H; ++r) {
                for (int c = 0; c < W; ++c) {
                    const int v = base[(std::min(r + 1, H - 1) * W + std::max(c - 2, 0)) * bytes] + rng.uniform(-6, 6);
                    other[(static_cast<size_t>(r) * W + c) * bytes] = static_cast<uint8_t>(std::min(255, std::max(0, v)));
                }
            }
            const MV1 rec = search(f, W, H, planar)[0];
            const MV1 model = modelSearch({base.data(), W, H, bytes}, {other.data(), W, H, bytes});
            EXPECT_EQ(xy(rec), xy(model)) << W << "x" << H << " planar " << planar;
            EXPECT_EQ(rec.err, model.err) << W << "x" << H << " planar " << planar;
        }
    }
}

TEST(GlobalSearch, SingleFrameBurstTouchesNoRecord) {
    std::vector<uint8_t> frame(64 * 64 * 3 / 2, 7);
    MV1 rec{};
    rec.x = 5;
    rec.err = 3.0;
    MV1* mvs[1] = {&rec};
    gINFormat = 4;
    ME(frame.data(), nullptr, mvs, 64, 64, 1);
    EXPECT_EQ(rec.x, 5);
    EXPECT_EQ(rec.err, 3.0);
    EXPECT_EQ(gMEInput, nullptr);
}

TEST(AlignmentError, SixFramesRemeasureAllButTheFirstRecord) {
    // Co-located costs on the 4 x 4 grid of the crop (the vector is not
    // applied); slot 1 is the reference itself, slot 0 is left alone.
    const int W = 101, H = 77;
    motiontest::Scene scene(W, H, 8, 21);
    for (bool planar : {true, false}) {
        const int bytes = planar ? 1 : 2;
        auto base = scene.frame(0, 0, planar);
        std::vector<uint8_t> frames[5];
        unsigned char* ptrs[5];
        MV1 records[5] = {};
        MV1* mvs[5];
        for (int i = 0; i < 5; ++i) {
            frames[i] = i == 1 ? base : scene.frame(i - 2, 2 * i - 3, planar);
            ptrs[i] = frames[i].data();
            records[i].x = 4 * i, records[i].err = -1.0;
            mvs[i] = &records[i];
        }
        gINFormat = planar ? 0 : 2;
        CalcError(base.data(), ptrs, mvs, W, H, 6);
        for (int i = 0; i < 5; ++i) {
            const double want = i ? cropSad({base.data(), W, H, bytes}, {ptrs[i], W, H, bytes}, 0, 0, 4) : -1.0;
            EXPECT_EQ(records[i].err, want) << i;
            EXPECT_TRUE(i < 2 || records[i].err > 100.0) << i;  // moved frames: large error
            EXPECT_EQ(records[i].x, 4 * i);
        }
        EXPECT_EQ(records[1].err, 0.0);
        EXPECT_EQ(gCEInput, nullptr);
    }
}

TEST(AlignmentError, TwoFramesMeasureNothingAndTinyFramesMeasureZero) {
    std::vector<uint8_t> a(40 * 40 * 2, 10), b(40 * 40 * 2, 200);
    unsigned char* frames[2] = {b.data(), b.data()};
    MV1 records[2] = {};
    records[0].err = 7.0;
    records[1].err = 8.0;
    MV1* mvs[2] = {&records[0], &records[1]};
    gINFormat = 4;
    CalcError(a.data(), frames, mvs, 40, 40, 2);
    EXPECT_EQ(records[0].err, 7.0);
    EXPECT_EQ(records[1].err, 8.0);
    // 1 x 3: the crop is the whole frame, sampled at (0, 0) only; no crop rows: 0.
    CalcError(a.data(), frames, mvs, 1, 3, 3);
    EXPECT_EQ(records[1].err, 190.0);
    CalcError(a.data(), frames, mvs, 5, 0, 3);
    EXPECT_EQ(records[1].err, 0.0);
}

}  // namespace
