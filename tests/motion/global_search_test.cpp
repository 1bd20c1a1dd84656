// Global motion search: known translations between frames cut from one
// scene, the range and coarse-level rules, tie order, and a plain model of
// the coarse and refinement passes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "motion/scene.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

using motiontest::LumaView;
using motiontest::Scene;

// The search as the rules state it: no early abandoning (it cannot change
// the winner), reference samples clamped into the frame.
MV1 modelSearch(const LumaView& ref, const LumaView& frame) {
    const int W = ref.W, H = ref.H, mx = W / 10, my = H / 10, cw = W - 2 * mx, ch = H - 2 * my;
    int R = std::min(W / 10, H / 10);
    if (R > 66) R = 67;
    int k = 0;
    while ((W >> k) > 256 || (H >> k) > 256) ++k;
    auto cost = [&](int x, int y, int step) {
        double sum = 0.0;
        for (int r = 0; r < ch; r += step)
            for (int c = 0; c < cw; c += step) sum += std::abs(ref.at(mx + c, my + r) - frame.at(mx + x + c, my + y + r));
        return sum;
    };
    MV1 mv{};
    double best = 1e30;
    for (int dy = -R; dy <= R; dy += 1 << k) {
        for (int dx = -R; dx <= R; dx += 1 << k) {
            double c = cost(dx, dy, 1 << k);
            if (c < best) {
                best = c;
                mv.x = dx;
                mv.y = dy;
                mv.err = c;
            }
        }
    }
    if (k < 3) return mv;
    for (int s = 1 << (k - 1); s >= 4; s /= 2) {
        const int x0 = mv.x, y0 = mv.y;
        best = 1e30;
        for (int j = -1; j <= 1; ++j) {
            for (int i = -1; i <= 1; ++i) {
                double c = cost(x0 + i * s, y0 + j * s, 4 * s);
                if (c < best) {
                    best = c;
                    mv.x = x0 + i * s;
                    mv.y = y0 + j * s;
                    mv.err = c;
                }
            }
        }
    }
    mv.err *= 16;
    return mv;
}

struct Origin {
    int x, y;
};

// Runs ME with the frame cut at origins[0] as the reference and returns the
// vectors of the others.
std::vector<MV1> searchBurst(const Scene& scene, int W, int H, bool planar, const std::vector<Origin>& origins,
                             std::vector<std::vector<uint8_t>>* framesOut = nullptr) {
    std::vector<std::vector<uint8_t>> frames;
    for (const Origin& o : origins) frames.push_back(scene.frame(o.x, o.y, planar));
    std::vector<unsigned char*> others;
    std::vector<MV1> records(origins.size() - 1);
    std::vector<MV1*> mvs;
    for (size_t i = 1; i < frames.size(); ++i) {
        others.push_back(frames[i].data());
        mvs.push_back(&records[i - 1]);
    }
    gINFormat = planar ? 4 : 2;
    gW = W;
    gH = H;
    ME(frames[0].data(), others.data(), mvs.data(), W, H, static_cast<int>(frames.size()));
    if (framesOut) *framesOut = std::move(frames);
    return records;
}

void expectRecovered(const std::vector<MV1>& found, const std::vector<Origin>& origins, const char* what) {
    for (size_t i = 0; i < found.size(); ++i) {
        const MV1 want = motiontest::expectedVector(origins[0].x, origins[0].y, origins[i + 1].x, origins[i + 1].y);
        EXPECT_EQ(found[i].x, want.x) << what << " frame " << i + 1;
        EXPECT_EQ(found[i].y, want.y) << what << " frame " << i + 1;
        EXPECT_EQ(found[i].err, 0.0) << what << " frame " << i + 1;
    }
}

TEST(GlobalSearch, SmallFramesRecoverEveryIntegerShift) {
    // 160 x 120: k = 0, R = 12, every offset in [-12, 12] is a candidate.
    Scene scene(160, 120, 16, 11);
    const std::vector<Origin> origins = {{0, 0}, {3, -7}, {-12, 12}, {0, 0}, {12, 5}};
    for (bool planar : {true, false}) {
        expectRecovered(searchBurst(scene, 160, 120, planar, origins), origins, planar ? "planar" : "packed");
    }
}

TEST(GlobalSearch, MidSizeFramesSearchAGridOfFour) {
    // 1024 x 768: k = 2, R = 67, candidates -67 + 4j; no refinement.
    Scene scene(1024, 768, 24, 12);
    const std::vector<Origin> onGrid = {{0, 0}, {3, -5}, {-13, 7}};
    for (bool planar : {true, false}) {
        expectRecovered(searchBurst(scene, 1024, 768, planar, onGrid), onGrid, planar ? "planar" : "packed");
    }
    // A shift off the grid lands on a grid point with an unscaled cost.
    std::vector<std::vector<uint8_t>> frames;
    auto found = searchBurst(scene, 1024, 768, true, {{0, 0}, {-2, 0}}, &frames);
    const MV1 model = modelSearch({frames[0].data(), 1024, 768, 1}, {frames[1].data(), 1024, 768, 1});
    EXPECT_EQ((found[0].x + 67) % 4, 0);
    EXPECT_EQ(found[0].x, model.x);
    EXPECT_EQ(found[0].y, model.y);
    EXPECT_EQ(found[0].err, model.err);
    EXPECT_GT(found[0].err, 0.0);
}

TEST(GlobalSearch, TwelveMegapixelFramesRefineToFourPixelsAndScaleTheCost) {
    // 4000 x 3000: k = 4, coarse step 16, passes at 8 and 4, err x 16.
    const int W = 4000, H = 3000;
    Scene scene(W, H, 40, 13);
    std::vector<std::vector<uint8_t>> frames;
    // (21, -11) lies on the 4-pixel lattice from -67; (-30, 6) does not.
    auto found = searchBurst(scene, W, H, true, {{0, 0}, {-21, 11}, {30, -6}}, &frames);
    EXPECT_EQ(found[0].x, 21);
    EXPECT_EQ(found[0].y, -11);
    EXPECT_EQ(found[0].err, 0.0);
    const MV1 model = modelSearch({frames[0].data(), W, H, 1}, {frames[2].data(), W, H, 1});
    EXPECT_EQ(found[1].x, model.x);
    EXPECT_EQ(found[1].y, model.y);
    EXPECT_EQ(found[1].err, model.err);
    EXPECT_EQ((found[1].x + 67) % 4, 0);
    EXPECT_TRUE(std::abs(found[1].x - -30) <= 2 && std::abs(found[1].y - 6) <= 2);
    EXPECT_EQ(std::fmod(found[1].err, 16.0), 0.0);
}

TEST(GlobalSearch, RangeIsSixtySixThenCappedAtSixtySeven) {
    // 660 x 660: R = 66, so the grid -66 + 4j holds the true shift -66.
    Scene small(660, 660, 70, 14);
    const std::vector<Origin> at66 = {{0, 0}, {66, 66}};
    expectRecovered(searchBurst(small, 660, 660, true, at66), at66, "660");
    // 690 x 690: min(W / 10, H / 10) = 69 is capped to 67; a range of 69
    // would search -69 + 4j and miss -67.
    Scene large(690, 690, 70, 15);
    const std::vector<Origin> at67 = {{0, 0}, {67, 67}};
    expectRecovered(searchBurst(large, 690, 690, true, at67), at67, "690");
}

TEST(GlobalSearch, TiesGoToTheFirstCandidateVisited) {
    // Flat frames: every candidate costs 0. The coarse pass keeps (-R, -R);
    // each refinement pass keeps its first candidate (-s, -s).
    std::vector<uint8_t> flatA(160 * 120 * 3 / 2, 90), flatB(160 * 120 * 3 / 2, 90);
    unsigned char* others[1] = {flatB.data()};
    MV1 rec{};
    MV1* mvs[1] = {&rec};
    gINFormat = 4;
    ME(flatA.data(), others, mvs, 160, 120, 2);
    EXPECT_EQ(rec.x, -12);
    EXPECT_EQ(rec.y, -12);
    EXPECT_EQ(rec.err, 0.0);

    // 2000 x 680: k = 3, R = 67, one pass at s = 4 moves to (-71, -71), and
    // its first sampled row then lies above the frame (read clamped).
    std::vector<uint8_t> flatC(2000 * 680 * 3 / 2, 40), flatD(2000 * 680 * 3 / 2, 40);
    others[0] = flatD.data();
    ME(flatC.data(), others, mvs, 2000, 680, 2);
    EXPECT_EQ(rec.x, -71);
    EXPECT_EQ(rec.y, -71);
    EXPECT_EQ(rec.err, 0.0);
}

TEST(GlobalSearch, RefinementPastTheRangeReadsClampedSamples) {
    // 2000 x 680: the top margin is 68 rows; the true shift y = -71 is only
    // reached by refinement, whose first sampled row is then row -3.
    const int W = 2000, H = 680;
    Scene scene(W, H, 80, 16);
    for (bool planar : {true, false}) {
        std::vector<std::vector<uint8_t>> frames;
        auto found = searchBurst(scene, W, H, planar, {{0, 0}, {-5, 71}}, &frames);
        const int bytes = planar ? 1 : 2;
        const MV1 model = modelSearch({frames[0].data(), W, H, bytes}, {frames[1].data(), W, H, bytes});
        EXPECT_EQ(found[0].x, 5);
        EXPECT_EQ(found[0].y, -71);
        EXPECT_EQ(found[0].x, model.x);
        EXPECT_EQ(found[0].y, model.y);
        EXPECT_EQ(found[0].err, model.err);
    }
}

TEST(GlobalSearch, MatchesModelOnNoisyFramesOfOddSizes) {
    // Independent noise on every frame: costs never tie at zero, so early
    // abandoning and the strict minimum both matter.
    const struct {
        int W, H;
    } sizes[] = {{64, 48}, {97, 61}, {90, 30}, {300, 200}, {9, 9}};
    uint32_t seed = 100;
    for (auto size : sizes) {
        for (bool planar : {true, false}) {
            const int bytes = planar ? 1 : 2;
            const size_t frameBytes = static_cast<size_t>(size.W) * size.H * 2;
            auto base = trvtest::randomBytes(frameBytes, ++seed);
            auto other = base;
            trvtest::Rng rng(++seed);
            // The same picture moved by (2, -1) plus noise of +-6.
            for (int r = 0; r < size.H; ++r) {
                for (int c = 0; c < size.W; ++c) {
                    int v = base[((std::min(r + 1, size.H - 1)) * size.W + std::max(c - 2, 0)) * bytes];
                    v += rng.uniform(-6, 6);
                    other[(static_cast<size_t>(r) * size.W + c) * bytes] = static_cast<uint8_t>(std::min(255, std::max(0, v)));
                }
            }
            unsigned char* others[1] = {other.data()};
            MV1 rec{};
            MV1* mvs[1] = {&rec};
            gINFormat = planar ? 4 : 2;
            ME(base.data(), others, mvs, size.W, size.H, 2);
            const MV1 model = modelSearch({base.data(), size.W, size.H, bytes}, {other.data(), size.W, size.H, bytes});
            EXPECT_EQ(rec.x, model.x) << size.W << "x" << size.H << " planar " << planar;
            EXPECT_EQ(rec.y, model.y) << size.W << "x" << size.H << " planar " << planar;
            EXPECT_EQ(rec.err, model.err) << size.W << "x" << size.H << " planar " << planar;
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

}  // namespace
