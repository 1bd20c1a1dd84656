// Per-block refinement against plain models of the stated rules, on random
// blocks of awkward widths, with hand-built bias and tie cases, and with
// blocks that end exactly at the end of their buffer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

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
            if (dx == 0 && dy == 0) continue;
            double c = cost(dx, dy);
            if (c < best) {
                best = c;
                out.x = start[0] + dx;
                out.y = start[1] + dy;
            }
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
            if (s < best) {
                best = s;
                mv.x = x0 + dx;
                mv.y = y0 + dy;
            }
        }
    }
    return mv;
}

// A reference image and a frame holding a block at (margin, margin), the
// frame showing the reference moved by (mx, my) plus noise of +-noise.
struct BlockPair {
    int W, H, margin;
    std::vector<uint8_t> cur, ref;
    BlockPair(int bw, int bh, int mx, int my, int noise, uint32_t seed) : W(bw + 16), H(bh + 16), margin(8) {
        cur = trvtest::randomBytes(static_cast<size_t>(W) * H * 2, seed);
        ref.resize(cur.size());
        trvtest::Rng rng(seed * 7 + 1);
        for (size_t i = 0; i < ref.size(); ++i) {
            const long j = static_cast<long>(i) - (static_cast<long>(my) * W + mx);
            int v = (j >= 0 && j < static_cast<long>(cur.size()) ? cur[j] : 128) + rng.uniform(-noise, noise);
            ref[i] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
        }
    }
    uint8_t* curBlock(int bytes) { return cur.data() + (margin * W + margin) * bytes; }
    uint8_t* refBlock(int bytes) { return ref.data() + (margin * W + margin) * bytes; }
};

bool sameVector(const MV1& a, const MV1& b) { return a.x == b.x && a.y == b.y; }

TEST(BlockRefinement, QuarterScaleMatchesModelOnRandomBlocks) {
    uint32_t seed = 1;
    for (int bw : {0, 1, 2, 15, 16, 17, 31, 32, 33, 47, 100, 255}) {
        for (int bh : {0, 1, 2, 5, 9}) {
            for (int r : {-1, 0, 1, 2, 3}) {
                const int s = static_cast<int>(++seed);
                BlockPair p(bw, bh, s % 5 - 2, s % 3 - 1, 4, seed);
                int start[2] = {s % 7 - 3, -(s % 4)};
                const MV1 want = modelQuarter(p.curBlock(1), p.refBlock(1), p.W, start, bw, bh, r);
                MV1 vec{}, plain{};
                RefineMVS_neon(p.curBlock(1), p.refBlock(1), start, &vec, p.W, p.H, bw, bh, r);
                RefineMVS(p.curBlock(1), p.refBlock(1), start, &plain, p.W, p.H, bw, bh, r);
                ASSERT_TRUE(sameVector(vec, want)) << bw << "x" << bh << " r " << r;
                ASSERT_TRUE(sameVector(plain, want)) << bw << "x" << bh << " r " << r;
            }
        }
    }
}

TEST(BlockRefinement, FullResolutionMatchesModelOnRandomBlocks) {
    uint32_t seed = 500;
    for (int bw : {0, 1, 15, 16, 17, 33, 100, 129}) {
        for (int bh : {0, 1, 8, 9, 30}) {
            for (int r : {-1, 0, 1, 2, 3}) {
                const int s = static_cast<int>(++seed);
                BlockPair p(bw, bh, s % 5 - 2, s % 5 - 2, 6, seed);
                MV1 start{};
                start.x = 40;
                start.y = -8;
                MV1 five = start, plain = start, blk = start, blk1 = start, packed = start;
                RefineMV_YV16_neon(p.curBlock(1), p.refBlock(1), &five, p.W, p.H, bw, bh, r);
                RefineMV_YV16(p.curBlock(1), p.refBlock(1), &plain, p.W, p.H, bw, bh, r);
                RefineMV_YV16_BLK_neon(p.curBlock(1), p.refBlock(1), &blk, p.W, p.H, bw, bh, r);
                RefineMV_YV16_BLK_neon1(p.curBlock(1), p.refBlock(1), &blk1, p.W, p.H, bw, bh, r);
                RefineMV(p.curBlock(2), p.refBlock(2), &packed, p.W, p.H, bw, bh, r);
                const MV1 wantFive = modelFullRes(p.curBlock(1), p.refBlock(1), p.W, 1, 16, start, bw, bh, r, -r, 5);
                const MV1 wantPlain =
                    modelFullRes(p.curBlock(1), p.refBlock(1), p.W, 1, 16, start, bw, bh, r, -r, 2 * r + 1);
                const MV1 wantPacked =
                    modelFullRes(p.curBlock(2), p.refBlock(2), p.W, 2, 8, start, bw, bh, r, -r, 2 * r + 1);
                ASSERT_TRUE(sameVector(five, wantFive)) << bw << "x" << bh << " r " << r;
                ASSERT_TRUE(sameVector(blk, wantFive)) << bw << "x" << bh << " r " << r;
                ASSERT_TRUE(sameVector(blk1, wantFive)) << bw << "x" << bh << " r " << r;
                ASSERT_TRUE(sameVector(plain, wantPlain)) << bw << "x" << bh << " r " << r;
                ASSERT_TRUE(sameVector(packed, wantPacked)) << bw << "x" << bh << " r " << r;
            }
        }
    }
}

TEST(BlockRefinement, WideRowsDoNotWrapTheirLaneSums) {
    // One block row of 8193 columns: 512 vector steps, then column 8192 on
    // its own. cur is 128 throughout; the reference row two above is 0 up to
    // column 8187 and 128 after it, every other row 128. Candidates with
    // dy = -2 truly cost 512 x 128 per lane (4096 samples of 128 in all); a
    // 16-bit lane would wrap that to exactly 0 and let (-2, -2) win. The
    // right winner is the first candidate of dy = -1, which costs 0.
    const int bw = 8193, W = bw + 8;
    std::vector<uint8_t> cur(static_cast<size_t>(W) * 8, 128), ref(cur.size(), 128);
    uint8_t* c = cur.data() + 3 * W + 4;
    uint8_t* rf = ref.data() + 3 * W + 4;
    for (int x = -4; x < 8188; ++x) rf[-2 * W + x] = 0;

    MV1 full{};
    RefineMV_YV16_neon(c, rf, &full, W, 0, bw, 1, 2);
    EXPECT_EQ(full.x, -2);
    EXPECT_EQ(full.y, -1);

    // The quarter stage needs a nonzero centre cost to compare against:
    // column 8192 of the block's own row differs by 28 (best = 26.6).
    rf[8192] = 100;
    int start[2] = {1, 1};
    MV1 quarter{};
    RefineMVS_neon(c, rf, start, &quarter, W, 0, bw, 1, 2);
    EXPECT_EQ(quarter.x, 4 * (1 - 2));
    EXPECT_EQ(quarter.y, 4 * (1 - 1));
}

TEST(BlockRefinement, QuarterScaleBiasFavoursTheUnchangedVector) {
    // One sample (bw = 2, bh = 1): centre |100 - 0| = 100, so best = 95. A
    // neighbour costing 95 does not beat it; one costing 94 does.
    const int W = 8;
    std::vector<uint8_t> cur(W * 8, 100), ref(W * 8, 0);
    uint8_t* c = cur.data() + 3 * W + 3;
    uint8_t* rf = ref.data() + 3 * W + 3;
    int start[2] = {5, -2};
    MV1 out{};
    rf[1] = 5;  // candidate (1, 0): |100 - 5| = 95
    RefineMVS_neon(c, rf, start, &out, W, 8, 2, 1, 2);
    EXPECT_EQ(out.x, 20);
    EXPECT_EQ(out.y, -8);
    rf[1] = 6;  // 94
    RefineMVS_neon(c, rf, start, &out, W, 8, 2, 1, 2);
    EXPECT_EQ(out.x, 24);
    EXPECT_EQ(out.y, -8);
    // A block that does not move keeps its vector, scaled to full resolution.
    std::vector<uint8_t> same = cur;
    RefineMVS_neon(c, same.data() + 3 * W + 3, start, &out, W, 8, 2, 1, 2);
    EXPECT_EQ(out.x, 20);
    EXPECT_EQ(out.y, -8);
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
        EXPECT_EQ(q.x, 12);
        EXPECT_EQ(q.y, 16);
        for (auto refine : {RefineMV_YV16_neon, RefineMV_YV16, RefineMV}) {
            MV1 mv{};
            mv.x = 7;
            mv.y = -1;
            refine(c, c, &mv, W / 2, 40, 16, bh, 2);
            EXPECT_EQ(mv.x, 5) << bh;
            EXPECT_EQ(mv.y, -3) << bh;
        }
    }
    // A negative radius: the quarter stage only scales, the others do nothing.
    int start[2] = {-2, 1};
    MV1 q{}, mv{};
    mv.x = 9;
    RefineMVS_neon(c, c, start, &q, W, 40, 16, 16, -1);
    RefineMV_YV16_neon(c, c, &mv, W, 40, 16, 16, -1);
    EXPECT_EQ(q.x, -8);
    EXPECT_EQ(q.y, 4);
    EXPECT_EQ(mv.x, 9);
}

TEST(BlockRefinement, VectorLoadsStayWithinThePlainRulesReach) {
    // Blocks placed so that the furthest sample the plain rule reads (with
    // r = 2: two rows below and two columns right of the last sample) is
    // the last byte of the buffer; an address sanitizer catches any load
    // past it. Also checked against the models.
    for (int bw : {16, 17, 32, 33, 48, 130}) {
        const int bh = 9, W = bw + 4;
        // Quarter stage: last sampled row 8, last even column below bw.
        const int lastEven = (bw - 1) & ~1;
        const size_t qEnd = static_cast<size_t>(2 + 8 + 2) * W + 2 + lastEven + 2 + 1;
        auto qCur = trvtest::randomBytes(qEnd, bw);
        auto qRef = trvtest::randomBytes(qEnd, bw + 1);
        int start[2] = {0, 0};
        MV1 got{};
        RefineMVS_neon(qCur.data() + 2 * W + 2, qRef.data() + 2 * W + 2, start, &got, W, 0, bw, bh, 2);
        EXPECT_TRUE(sameVector(got, modelQuarter(qCur.data() + 2 * W + 2, qRef.data() + 2 * W + 2, W, start, bw, bh, 2)));
        // Planar full resolution: last sampled row 8, last sampled column
        // ((bw - 1) / 16) * 16, read up to two columns right of it.
        const int lastCol = ((bw - 1) / 16) * 16;
        const size_t fEnd = static_cast<size_t>(2 + 8 + 2) * W + 2 + lastCol + 2 + 1;
        auto fCur = trvtest::randomBytes(fEnd, bw + 2);
        auto fRef = trvtest::randomBytes(fEnd, bw + 3);
        MV1 mv{};
        RefineMV_YV16_neon(fCur.data() + 2 * W + 2, fRef.data() + 2 * W + 2, &mv, W, 0, bw, bh, 2);
        EXPECT_TRUE(sameVector(mv, modelFullRes(fCur.data() + 2 * W + 2, fRef.data() + 2 * W + 2, W, 1, 16, MV1{}, bw,
                                                bh, 2, -2, 5)));
    }
}

}  // namespace
