// Per-block refinement against plain models of their rules on random
// blocks of awkward widths (empty blocks, where every candidate ties, among
// them), a hand-built lane-overflow case, and blocks that end exactly at the
// end of their buffer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <utility>
#include <vector>

#include "motion/scene.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

using motiontest::vec;
using motiontest::xy;
using Quarter = void (*)(unsigned char*, unsigned char*, int*, MV1*, int, int, int, int, int);
using FullRes = void (*)(unsigned char*, unsigned char*, MV1*, int, int, int, int, int);

// Quarter scale: every second row and column, centre cost biased by 0.95,
// strict minimum over the other candidates, result x 4.
MV1 modelQuarter(const uint8_t* cur, const uint8_t* ref, int W, const int* start, int bw, int bh, int r) {
    auto cost = [&](int dx, int dy) {
        double s = 0.0;
        for (int y = 0; y < bh; y += 2)
            for (int x = 0; x < bw; x += 2) s += std::abs(cur[y * W + x] - ref[(y + dy) * W + x + dx]);
        return s;
    };
    double best = 0.95 * cost(0, 0);
    int bx = 0, by = 0;
    for (int dy = -r; dy <= r; ++dy) {
        for (int dx = -r; dx <= r; ++dx) {
            const double c = (dx || dy) ? cost(dx, dy) : best;
            if (c < best) best = c, bx = dx, by = dy;
        }
    }
    return vec(4 * (start[0] + bx), 4 * (start[1] + by));
}

// Full resolution: rows every 8, columns every colStep, luma `bytes` apart,
// candidates dx in -r .. -r + dxCount - 1 for each dy in [-r, r].
MV1 modelFullRes(const uint8_t* cur, const uint8_t* ref, int W, int bytes, int colStep, MV1 mv, int bw, int bh,
                 int r, int dxCount) {
    const int x0 = mv.x, y0 = mv.y;
    double best = 1e30;
    for (int dy = -r; dy <= r; ++dy) {
        for (int dx = -r; dx < -r + dxCount; ++dx) {
            double s = 0.0;
            for (int y = 0; y < bh; y += 8)
                for (int x = 0; x < bw; x += colStep)
                    s += std::abs(cur[(y * W + x) * bytes] - ref[((y + dy) * W + x + dx) * bytes]);
            if (s < best) best = s, mv.x = x0 + dx, mv.y = y0 + dy;
        }
    }
    return mv;
}

// A frame and reference with a block at (8, 8); the reference is the frame
// moved by (mx, my) plus noise of +-noise.
struct BlockPair {
    int W, H;
    std::vector<uint8_t> cur, ref;
    BlockPair(int bw, int bh, int mx, int my, int noise, uint32_t seed) : W(bw + 16), H(bh + 16) {
        cur = trvtest::randomBytes(static_cast<size_t>(W) * H * 2, seed);
        ref.resize(cur.size());
        trvtest::Rng rng(seed * 7 + 1);
        for (size_t i = 0; i < ref.size(); ++i) {
            const long j = static_cast<long>(i) - (static_cast<long>(my) * W + mx);
            const int v = (j >= 0 && j < static_cast<long>(cur.size()) ? cur[j] : 128) + rng.uniform(-noise, noise);
            ref[i] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
        }
    }
    uint8_t* curBlock(int bytes) { return cur.data() + (8 * W + 8) * bytes; }
    uint8_t* refBlock(int bytes) { return ref.data() + (8 * W + 8) * bytes; }
};

TEST(BlockRefinement, MatchesModelsOnRandomBlocks) {
    // Full resolution: the planar vector kernels try five columns from -r,
    // the plain planar and packed rules 2r + 1.
    const struct {
        FullRes refine;
        int bytes, colStep;
        bool five;
    } kernels[] = {{RefineMV_YV16_neon, 1, 16, true}, {RefineMV_YV16_BLK_neon, 1, 16, true},
                   {RefineMV_YV16_BLK_neon1, 1, 16, true}, {RefineMV_YV16, 1, 16, false}, {RefineMV, 2, 8, false}};
    uint32_t seed = 1;
    for (int bw : {0, 1, 2, 15, 16, 17, 31, 33, 47, 129, 255}) {
        for (int bh : {0, 1, 5, 9, 30}) {
            for (int r : {-1, 0, 1, 2, 3}) {
                const int s = static_cast<int>(++seed);
                BlockPair p(bw, bh, s % 5 - 2, s % 3 - 1, s % 2 ? 4 : 6, seed);
                SCOPED_TRACE(::testing::Message() << bw << "x" << bh << " r " << r);
                int start[2] = {s % 7 - 3, -(s % 4)};
                const MV1 wantQ = modelQuarter(p.curBlock(1), p.refBlock(1), p.W, start, bw, bh, r);
                for (Quarter refine : {RefineMVS_neon, RefineMVS}) {
                    MV1 got{};
                    refine(p.curBlock(1), p.refBlock(1), start, &got, p.W, p.H, bw, bh, r);
                    ASSERT_EQ(xy(got), xy(wantQ));
                }
                for (size_t k = 0; k < std::size(kernels); ++k) {
                    const auto& K = kernels[k];
                    MV1 got = vec(40, -8);
                    K.refine(p.curBlock(K.bytes), p.refBlock(K.bytes), &got, p.W, p.H, bw, bh, r);
                    const MV1 want = modelFullRes(p.curBlock(K.bytes), p.refBlock(K.bytes), p.W, K.bytes, K.colStep,
                                                  vec(40, -8), bw, bh, r, K.five ? 5 : 2 * r + 1);
                    ASSERT_EQ(xy(got), xy(want)) << "kernel " << k;
                }
            }
        }
    }
}

TEST(BlockRefinement, WideRowsDoNotWrapTheirLaneSums) {
    // One block row of 8193 columns: 512 vector steps, then column 8192 alone.
    // cur is 128; the reference row two above is 0 up to column 8187, all else
    // 128. dy = -2 truly costs 512 x 128 per lane, which a 16-bit lane wraps
    // to 0, letting (-2, -2) win; the right winner is (-2, -1), cost 0.
    const int bw = 8193, W = bw + 8;
    std::vector<uint8_t> cur(static_cast<size_t>(W) * 8, 128), ref(cur.size(), 128);
    uint8_t* c = cur.data() + 3 * W + 4;
    uint8_t* rf = ref.data() + 3 * W + 4;
    for (int x = -4; x < 8188; ++x) rf[-2 * W + x] = 0;
    MV1 full{}, quarter{};
    RefineMV_YV16_neon(c, rf, &full, W, 0, bw, 1, 2);
    EXPECT_EQ(xy(full), std::pair(-2, -1));
    // The quarter stage needs a nonzero centre cost: column 8192 differs by
    // 28 (best = 26.6).
    rf[8192] = 100;
    int start[2] = {1, 1};
    RefineMVS_neon(c, rf, start, &quarter, W, 0, bw, 1, 2);
    EXPECT_EQ(xy(quarter), std::pair(4 * (1 - 2), 4 * (1 - 1)));
}

TEST(BlockRefinement, VectorLoadsStayWithinThePlainRulesReach) {
    // The furthest sample the plain rule reads with r = 2 (two rows below and
    // two columns right of the last sample) is the last byte of the buffer: an
    // address sanitizer catches any load past it. Both stages sample row 8
    // last; the last column is the last even one below bw for the quarter
    // stage and ((bw - 1) / 16) * 16 at planar full resolution.
    for (int bw : {16, 17, 32, 33, 48, 130}) {
        const int bh = 9, W = bw + 4, o = 2 * W + 2;
        const size_t qEnd = static_cast<size_t>(12) * W + 2 + ((bw - 1) & ~1) + 3;
        const size_t fEnd = static_cast<size_t>(12) * W + 2 + ((bw - 1) / 16) * 16 + 3;
        auto qCur = trvtest::randomBytes(qEnd, bw), qRef = trvtest::randomBytes(qEnd, bw + 1);
        auto fCur = trvtest::randomBytes(fEnd, bw + 2), fRef = trvtest::randomBytes(fEnd, bw + 3);
        int start[2] = {0, 0};
        MV1 q{}, f{};
        RefineMVS_neon(qCur.data() + o, qRef.data() + o, start, &q, W, 0, bw, bh, 2);
        EXPECT_EQ(xy(q), xy(modelQuarter(qCur.data() + o, qRef.data() + o, W, start, bw, bh, 2))) << bw;
        RefineMV_YV16_neon(fCur.data() + o, fRef.data() + o, &f, W, 0, bw, bh, 2);
        EXPECT_EQ(xy(f), xy(modelFullRes(fCur.data() + o, fRef.data() + o, W, 1, 16, MV1{}, bw, bh, 2, 5))) << bw;
    }
}

}  // namespace
