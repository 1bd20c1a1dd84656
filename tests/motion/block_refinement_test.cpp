// Per-block refinement against plain models of the stated rules, on random
// blocks of awkward widths, with hand-built bias and tie cases, and with
// blocks that end exactly at the end of their buffer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <utility>
#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

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
    MV1 out{};
    out.x = start[0];
    out.y = start[1];
    for (int dy = -r; dy <= r; ++dy) {
        for (int dx = -r; dx <= r; ++dx) {
            const double c = (dx || dy) ? cost(dx, dy) : best;
            if (c < best) best = c, out.x = start[0] + dx, out.y = start[1] + dy;
        }
    }
    out.x *= 4;
    out.y *= 4;
    return out;
}

// Full resolution: rows every 8, columns every colStep, luma `bytes` apart,
// candidates dx in dxFirst .. dxFirst + dxCount - 1 for each dy in [-r, r].
MV1 modelFullRes(const uint8_t* cur, const uint8_t* ref, int W, int bytes, int colStep, MV1 mv, int bw, int bh,
                 int r, int dxFirst, int dxCount) {
    const int x0 = mv.x, y0 = mv.y;
    double best = 1e30;
    for (int dy = -r; dy <= r; ++dy) {
        for (int dx = dxFirst; dx < dxFirst + dxCount; ++dx) {
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

#define EXPECT_VECTOR(got, wx, wy) \
    do {                           \
        EXPECT_EQ((got).x, (wx));  \
        EXPECT_EQ((got).y, (wy));  \
    } while (0)

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
    for (int bw : {0, 1, 2, 15, 16, 17, 31, 32, 33, 47, 100, 129, 255}) {
        for (int bh : {0, 1, 2, 5, 8, 9, 30}) {
            for (int r : {-1, 0, 1, 2, 3}) {
                const int s = static_cast<int>(++seed);
                BlockPair p(bw, bh, s % 5 - 2, s % 3 - 1, s % 2 ? 4 : 6, seed);
                SCOPED_TRACE(::testing::Message() << bw << "x" << bh << " r " << r);
                int start[2] = {s % 7 - 3, -(s % 4)};
                const MV1 wantQ = modelQuarter(p.curBlock(1), p.refBlock(1), p.W, start, bw, bh, r);
                for (Quarter refine : {RefineMVS_neon, RefineMVS}) {
                    MV1 got{};
                    refine(p.curBlock(1), p.refBlock(1), start, &got, p.W, p.H, bw, bh, r);
                    ASSERT_TRUE(got.x == wantQ.x && got.y == wantQ.y);
                }
                MV1 from{};
                from.x = 40;
                from.y = -8;
                for (size_t k = 0; k < std::size(kernels); ++k) {
                    const auto& K = kernels[k];
                    MV1 got = from;
                    K.refine(p.curBlock(K.bytes), p.refBlock(K.bytes), &got, p.W, p.H, bw, bh, r);
                    const MV1 want = modelFullRes(p.curBlock(K.bytes), p.refBlock(K.bytes), p.W, K.bytes, K.colStep,
                                                  from, bw, bh, r, -r, K.five ? 5 : 2 * r + 1);
                    ASSERT_TRUE(got.x == want.x && got.y == want.y) << "kernel " << k;
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
    MV1 full{};
    RefineMV_YV16_neon(c, rf, &full, W, 0, bw, 1, 2);
    EXPECT_VECTOR(full, -2, -1);
    // The quarter stage needs a nonzero centre cost: column 8192 differs by
    // 28 (best = 26.6).
    rf[8192] = 100;
    int start[2] = {1, 1};
    MV1 quarter{};
    RefineMVS_neon(c, rf, start, &quarter, W, 0, bw, 1, 2);
    EXPECT_VECTOR(quarter, 4 * (1 - 2), 4 * (1 - 1));
}

TEST(BlockRefinement, QuarterScaleBiasFavoursTheUnchangedVector) {
    // One sample (bw = 2, bh = 1): centre |100 - 0| = 100, so best = 95. A
    // neighbour costing 95 does not beat it; one costing 94 does.
    const int W = 8;
    std::vector<uint8_t> cur(W * 8, 100), ref(W * 8, 0);
    uint8_t* rf = ref.data() + 3 * W + 3;
    int start[2] = {5, -2};
    for (auto [neighbour, wantX] : {std::pair{5, 20}, std::pair{6, 24}}) {
        rf[1] = static_cast<uint8_t>(neighbour);  // candidate (1, 0)
        MV1 out{};
        RefineMVS_neon(cur.data() + 3 * W + 3, rf, start, &out, W, 8, 2, 1, 2);
        EXPECT_VECTOR(out, wantX, -8);
    }
}

TEST(BlockRefinement, EmptyAndFlatBlocksFollowTheTieRules) {
    // Flat images: every candidate costs the same. The quarter stage keeps the
    // start (nothing beats 95 % of 0); the full-resolution stages take their
    // first candidate (x0 - r, y0 - r). bh <= 0 behaves the same way.
    const int W = 40;
    std::vector<uint8_t> flat(W * 40, 60);
    uint8_t* c = flat.data() + 10 * W + 10;
    for (int bh : {16, 0, -3}) {
        int start[2] = {3, 4};
        MV1 q{};
        RefineMVS_neon(c, c, start, &q, W, 40, 16, bh, 2);
        EXPECT_VECTOR(q, 12, 16);
        for (FullRes refine : {RefineMV_YV16_neon, RefineMV_YV16, RefineMV}) {
            MV1 mv{};
            mv.x = 7;
            mv.y = -1;
            refine(c, c, &mv, W / 2, 40, 16, bh, 2);
            EXPECT_VECTOR(mv, 5, -3);
        }
    }
    // A negative radius: the quarter stage only scales, the others do nothing.
    int start[2] = {-2, 1};
    MV1 q{}, mv{};
    mv.x = 9;
    RefineMVS_neon(c, c, start, &q, W, 40, 16, 16, -1);
    RefineMV_YV16_neon(c, c, &mv, W, 40, 16, 16, -1);
    EXPECT_VECTOR(q, -8, 4);
    EXPECT_EQ(mv.x, 9);
}

TEST(BlockRefinement, VectorLoadsStayWithinThePlainRulesReach) {
    // The furthest sample the plain rule reads with r = 2 (two rows below and
    // two columns right of the last sample) is the last byte of the buffer: an
    // address sanitizer catches any load past it. Also checked against the
    // models. Quarter: last sampled column is the last even one below bw;
    // planar full resolution: ((bw - 1) / 16) * 16. Both sample row 8 last.
    for (int bw : {16, 17, 32, 33, 48, 130}) {
        const int bh = 9, W = bw + 4, o = 2 * W + 2;
        const size_t qEnd = static_cast<size_t>(12) * W + 2 + ((bw - 1) & ~1) + 3;
        const size_t fEnd = static_cast<size_t>(12) * W + 2 + ((bw - 1) / 16) * 16 + 3;
        auto qCur = trvtest::randomBytes(qEnd, bw), qRef = trvtest::randomBytes(qEnd, bw + 1);
        auto fCur = trvtest::randomBytes(fEnd, bw + 2), fRef = trvtest::randomBytes(fEnd, bw + 3);
        int start[2] = {0, 0};
        MV1 q{}, f{};
        RefineMVS_neon(qCur.data() + o, qRef.data() + o, start, &q, W, 0, bw, bh, 2);
        const MV1 wantQ = modelQuarter(qCur.data() + o, qRef.data() + o, W, start, bw, bh, 2);
        EXPECT_VECTOR(q, wantQ.x, wantQ.y);
        RefineMV_YV16_neon(fCur.data() + o, fRef.data() + o, &f, W, 0, bw, bh, 2);
        const MV1 wantF = modelFullRes(fCur.data() + o, fRef.data() + o, W, 1, 16, MV1{}, bw, bh, 2, -2, 5);
        EXPECT_VECTOR(f, wantF.x, wantF.y);
    }
}

}  // namespace
