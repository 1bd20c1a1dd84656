// Frame screening on hand-built bursts: the motion and ratio limits, the
// dark-scene clamp, the noise estimate, compaction of the lists, and the
// slot-by-slot order in which frames see each other's drops.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "motion/scene.h"
#include "motion/screening.h"
#include "trv/stages.h"

namespace {

// 40 x 40 frames: the crop is 32 x 32, so err is divided by 1024 / 16 = 64.
constexpr int kW = 40, kH = 40, kErrDivisor = 64;

struct Rec {
    int x, y;
    double meanErr;
};

// A burst of n frames around a Ws x Hs reference quarter image of 100/104
// checkerboards: each 12 x 12 block deviates by exactly 2.
struct Burst {
    int n;
    std::vector<uint8_t> quarter;
    uint8_t frameBytes[6] = {};  // stand-ins: only the pointers are moved
    unsigned char* frames[5] = {};
    unsigned char* smalls[6] = {};
    MV1 records[5] = {};
    MV1* mvs[5] = {};

    int Ws, Hs;
    Burst(int n, int meanY, const std::vector<Rec>& in = {}, int Ws = 25, int Hs = 25)
        : n(n), quarter(Ws * Hs), Ws(Ws), Hs(Hs) {
        for (int r = 0; r < Hs; ++r)
            for (int c = 0; c < Ws; ++c) quarter[r * Ws + c] = static_cast<uint8_t>((r + c) % 2 ? 104 : 100);
        smalls[0] = quarter.data();
        for (int i = 0; i < 5; ++i) {
            smalls[i + 1] = &frameBytes[i + 1];
            frames[i] = &frameBytes[i + 1];
            const Rec r = i < static_cast<int>(in.size()) ? in[i] : Rec{0, 0, 1.0};  // ratio 0.5
            records[i].x = r.x;
            records[i].y = r.y;
            records[i].err = r.meanErr * kErrDivisor;
            mvs[i] = &records[i];
        }
        gPicNum = n;
        gMeanY = meanY;
    }
    std::vector<int32_t> screen() {
        std::vector<int32_t> kept(6, -1);
        trv::screenFrames(frames, smalls, Ws, Hs, kW, kH, mvs, n, kept.data());
        return kept;
    }
};

TEST(FrameScreening, LimitsClampAndCompaction) {
    // The noise estimate is 2.0 throughout, so a mean error of 5 is ratio 2.5.
    const struct {
        const char* what;
        int n, meanY;
        std::vector<Rec> in;          // records of frames 1 .. n - 1
        std::vector<int32_t> kept;
        std::vector<Rec> out;         // the survivors' records, in burst order
    } cases[] = {
        {"motion limit 56", 3, 100, {{56, 0, 1}, {55, -55, 1}}, {1, 0, 1, 1, 1, 1}, {{55, -55, 1}}},
        {"ratio limit 2.5", 3, 100, {{0, 0, 5}, {0, 0, 321.0 / 64}}, {1, 1, 0, 1, 1, 1}, {{0, 0, 5}}},
        // Dark with few frames: clamped, ratio 25 forgiven; at luma 20 not dark.
        {"dark", 3, 19, {{80, -70, 1}, {0, 0, 50}}, {1, 1, 1, 1, 1, 1}, {{56, -56, 1}, {0, 0, 50}}},
        {"not dark", 3, 20, {{80, -70, 1}}, {1, 0, 1, 1, 1, 1}, {{0, 0, 1}}},
        // Frame 1 is judged with four frames and dropped; frames 2 and 3 then
        // see three and are kept with clamped vectors.
        {"slot order", 4, 10, {{60, 0, 1}, {-90, 3, 1}, {0, 70, 1}}, {1, 0, 1, 1, 1, 1}, {{-56, 3, 1}, {0, 56, 1}}},
        {"compaction", 6, 100, {{1, -1, 1}, {57, 0, 1}, {3, -3, 1}, {0, -60, 1}, {5, -5, 1}}, {1, 1, 0, 1, 0, 1},
         {{1, -1, 1}, {3, -3, 1}, {5, -5, 1}}},
    };
    for (const auto& t : cases) {
        for (int run = 0; run < 20; ++run) {  // the same answer on every run
            SCOPED_TRACE(t.what);
            Burst b(t.n, t.meanY, t.in);
            ASSERT_EQ(b.screen(), t.kept);
            ASSERT_EQ(gPicNum, static_cast<int>(t.out.size()) + 1);
            EXPECT_EQ(gEstSigma, 2.0f);
            for (int i = 1, k = 0; i < t.n; ++i) {
                if (t.kept[i] != 1) continue;
                EXPECT_EQ(b.frames[k], &b.frameBytes[i]);
                EXPECT_EQ(b.smalls[k + 1], &b.frameBytes[i]);
                EXPECT_EQ(motiontest::xy(b.records[k]), std::pair(t.out[k].x, t.out[k].y));
                EXPECT_EQ(b.records[k].err, t.out[k].meanErr);
                ++k;
            }
        }
    }
}

TEST(FrameScreening, NoiseEstimateVisitsBlocksThatStartBelowTheLastFullOne) {
    // Blocks on rows 12..23 become 0/200 checkerboards (deviation 100). With a
    // mean error of 1 they are left out (100 >= 3); with 40 they count. A
    // block is visited when its top row is below Hs - 12 and its left column
    // below Ws - 12: with 25 rows the row of blocks at 12 is, with 24 rows
    // (where it would just fit) it is not; the same for columns. At 12 x 12 no
    // block is visited: the estimate is NaN and even a huge error stays.
    const struct {
        int Ws, Hs, left;
        double meanErr;
        float sigma;
        int kept;
    } cases[] = {{25, 25, 12, 1.0, 2.0f, 2},  {25, 25, 12, 40.0, 26.5f, 2}, {25, 25, 24, 40.0, 51.0f, 2},
                 {25, 24, 24, 40.0, 2.0f, 1}, {24, 25, 12, 40.0, 51.0f, 2}, {12, 12, 0, 1e6, NAN, 2}};
    for (const auto& c : cases) {
        Burst b(2, 100, {{0, 0, c.meanErr}}, c.Ws, c.Hs);
        for (int r = 12; r < 24; ++r)
            for (int col = 0; col < c.left; ++col) b.quarter[r * c.Ws + col] = (r + col) % 2 ? 200 : 0;
        b.screen();
        EXPECT_TRUE(gEstSigma == c.sigma || (std::isnan(gEstSigma) && std::isnan(c.sigma))) << c.Hs << " " << c.meanErr;
        EXPECT_EQ(gPicNum, c.kept) << c.Hs << " " << c.meanErr;
    }
}

TEST(FrameScreening, TwoBrightFramesLeftReenableTheLowestErrorRatio) {
    // A ratio below 1000 brings frame 2 back without raising the count; with
    // every ratio at 1000 (as the driver leaves them) nothing changes.
    for (float ratio2 : {1000.0f, 5.0f}) {
        Burst b(3, 130, {{0, 0, 1}, {70, 0, 1}});
        gErrorRatio[1] = 1000.0f;
        gErrorRatio[2] = ratio2;
        const auto kept = b.screen();
        gErrorRatio[2] = 1000.0f;
        EXPECT_EQ(gPicNum, 2);
        EXPECT_EQ(kept[2], ratio2 < 1000.0f ? 1 : 0);
        EXPECT_EQ(b.records[1].x, 70);  // compacted in place either way
    }
}

}  // namespace
