// Blending kernels against plain models of their two rules: the vector rule
// on whole groups of 8 (16 luma columns for planar chroma), the table rule on
// the tail, for every supported frame count and widths that leave tails.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "fusion/blend_model.h"
#include "fusion/divide_lanes.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

using blendmodel::setFrameCount;

constexpr uint8_t kUntouched = 0xA5;

// n aligned frames that mostly stay near the reference (so both branches of
// the luma rule occur), with some unrelated samples and saturated values.
struct Burst {
    std::vector<uint8_t> ref;
    std::vector<std::vector<uint8_t>> frames;
    std::vector<unsigned char*> pointers;

    Burst(size_t bytes, int n, uint32_t seed) : ref(trvtest::randomBytes(bytes, seed)) {
        trvtest::Rng rng(seed * 7 + 1);
        for (size_t i = 0; i < bytes; i += 13) ref[i] = (i & 16) ? 255 : 0;
        for (int k = 0; k < n; ++k) {
            std::vector<uint8_t> f(bytes);
            for (size_t i = 0; i < bytes; ++i) {
                const int pick = rng.uniform(0, 7);
                f[i] = pick == 0 ? rng.byte() : static_cast<uint8_t>(blendmodel::clampTo(ref[i] + rng.uniform(-40, 40), 0, 255));
            }
            frames.push_back(std::move(f));
        }
        for (auto& f : frames) pointers.push_back(f.data());
    }
    unsigned char** at() { return pointers.data(); }
};

// Expected byte at column c of a row `width` wide: the vector rule before
// `vectorEnd`, the tail rule after it, untouched past the width.
int want(const Burst& b, size_t i, int c, int width, int vectorEnd, bool luma) {
    const int n = static_cast<int>(b.frames.size()), x = b.ref[i];
    int f[5];
    for (int k = 0; k < n; ++k) f[k] = b.frames[k][i];
    if (c >= width) return kUntouched;
    if (luma) return c < vectorEnd ? blendmodel::vectorLuma(x, f, n) : blendmodel::tailLuma(x, f, n);
    return c < vectorEnd ? blendmodel::vectorChroma(x, f, n) : blendmodel::tableChroma(x, f, n);
}

class BlendKernels : public ::testing::Test {
protected:
    void SetUp() override { saved = {gW, gH, gINFormat, gNum}; }
    void TearDown() override {
        gW = saved[0], gH = saved[1], gINFormat = saved[2];
        setFrameCount(saved[3]);
    }
    // Runs `blend` for 1 .. 5 other frames and widths 1 .. 40 on random
    // bursts, then `check` compares every output byte.
    template <class Blend, class Check>
    void sweep(size_t inBytes, size_t outBytes, Blend blend, Check check) {
        for (int n = 1; n <= 5; ++n) {
            setFrameCount(n);
            for (int width = 1; width <= 40; ++width) {
                SCOPED_TRACE(testing::Message() << "n " << n << " width " << width);
                Burst burst(inBytes, n, static_cast<uint32_t>(n * 100 + width + inBytes));
                std::vector<uint8_t> out(outBytes, kUntouched);
                blend(burst, out.data(), width);
                check(burst, out, width);
                if (HasFatalFailure()) return;
            }
        }
    }
    std::array<int, 4> saved{};
};

using Out = std::vector<uint8_t>;

TEST_F(BlendKernels, LumaVectorBodyAndTableTailMatchTheirRules) {
    gW = 48;  // 3 rows
    sweep(144, 144, [](Burst& b, uint8_t* out, int width) { mergeBlk_Y_neon(b.ref.data(), b.at(), out, width, 3); },
          [](const Burst& b, const Out& out, int width) {
              for (int i = 0; i < 144; ++i) ASSERT_EQ(out[i], want(b, i, i % 48, width, width & ~7, true)) << i;
          });
}

// Semi-planar chroma (codes 1 and 4) byte by byte in place, luma rows
// 0 .. 4 giving chroma rows 0, 2, 4; planar 4:2:2 (code 0) one sample of
// each plane per two luma columns, interleaved on output, 16 columns a
// vector. Every second chroma row is dropped.
TEST_F(BlendKernels, ChromaMatchesRulesInEveryLayout) {
    gW = 48, gH = 5;
    for (int format : {0, 1, 4}) {
        gINFormat = format;
        sweep(240, 144, [](Burst& b, uint8_t* out, int width) { mergeBlk_uv_neon(b.ref.data(), b.at(), out, width, 5); },
              [format](const Burst& b, const Out& out, int width) {
                  for (int r = 0; r < 5; r += 2)
                      for (int c = 0; c < 48; ++c) {
                          const int i = format == 0 ? (c & 1) * 120 + r * 24 + c / 2 : (format == 1 ? r : r / 2) * 48 + c;
                          ASSERT_EQ(out[r / 2 * 48 + c], want(b, i, c, width, width & (format == 0 ? ~15 : ~7), false))
                              << "format " << format << " row " << r << " col " << c;
                      }
              });
    }
}

// Packed rows 40 wide: luma of every row, chroma of even rows.
TEST_F(BlendKernels, PackedRowsGiveLumaAndEvenRowChroma) {
    gW = 40;
    sweep(240, 200,
          [](Burst& b, uint8_t* out, int width) { mergeBlk_YUV_neon_YUYV(b.ref.data(), b.at(), out, out + 120, width, 3); },
          [](const Burst& b, const Out& out, int width) {
              for (int r = 0; r < 3; ++r)
                  for (int c = 0; c < 40; ++c) {
                      const size_t i = r * 80 + 2 * c;
                      ASSERT_EQ(out[r * 40 + c], want(b, i, c, width, width & ~7, true)) << r << "," << c;
                      if (r % 2 == 0) {
                          ASSERT_EQ(out[120 + r / 2 * 40 + c], want(b, i + 1, c, width, width & ~7, false)) << r << "," << c;
                      }
                  }
          });
}

TEST_F(BlendKernels, WorkedLumaExamplesOnBothPaths) {
    struct Case {
        int x;
        std::vector<int> frames;
        int vectorWant, tailWant;
    };
    const Case cases[] = {
        // 250 with 255, 255: 760 x 0.3334 + 0.5 = 253.88; the tail: 250 + 10 / 3.
        {250, {255, 255}, 253, 253},
        // |232 - 200| = 32 = 16 N: ">=" takes the frames-only mean 116, the
        // tail's ">" the all-frames mean 100 + 32 / 3 truncated.
        {100, {116, 116}, 116, 110},
        // Three frames 40 above 100: clamped to 124 each, |372 - 300| >= 48.
        {100, {140, 140, 140}, 124, 124},
        // One frame: clamp to +-16, rounded pair mean, on both paths.
        {100, {140}, 108, 108},
        {5, {0}, 3, 3},
    };
    gW = 8;
    const uint16x8_t savedNum16 = NUM_16;
    NUM_16 = vdupq_n_u16(80);  // left by a five-frame fusion: not the threshold
    for (const Case& cs : cases) {
        setFrameCount(static_cast<int>(cs.frames.size()));
        std::vector<uint8_t> ref(8, static_cast<uint8_t>(cs.x));
        std::vector<std::vector<uint8_t>> f;
        std::vector<unsigned char*> p;
        for (int v : cs.frames) f.emplace_back(8, static_cast<uint8_t>(v));
        for (auto& row : f) p.push_back(row.data());
        for (int width : {8, 1}) {
            std::vector<uint8_t> out(8, 0);
            mergeBlk_Y_neon(ref.data(), p.data(), out.data(), width, 1);
            EXPECT_EQ(out[0], width == 8 ? cs.vectorWant : cs.tailWant) << cs.x << " width " << width;
        }
    }
    NUM_16 = savedNum16;
}

// Chroma 100 with one frame at 103: the vector path rounds the pair mean to
// 102, every tail divides -3 by table: 100 - trunc(-3 / 2) = 101. Luma of the
// packed rows (100 with 103) keeps its pair mean, 102, on both paths.
TEST_F(BlendKernels, OneFrameChromaTailDividesByTable) {
    gW = 16, gH = 2;
    setFrameCount(1);
    std::vector<uint8_t> ref(64, 100), frame(64, 103), out(48);
    unsigned char* frames[] = {frame.data()};
    for (int width : {16, 8, 1}) {
        for (int format : {0, 1, 4}) {
            gINFormat = format;
            std::fill(out.begin(), out.end(), 0);
            mergeBlk_uv_neon(ref.data(), frames, out.data(), width, 2);
            const int vectorStep = format == 0 ? 16 : 8;
            EXPECT_EQ(out[0], width >= vectorStep ? 102 : 101) << format << " width " << width;
        }
        mergeBlk_YUV_neon_YUYV(ref.data(), frames, out.data(), out.data() + 32, width, 2);
        EXPECT_EQ(out[0], 102) << "packed luma width " << width;
        EXPECT_EQ(out[32], width == 1 ? 101 : 102) << "packed chroma width " << width;
    }
}

template <int D>
uint16x8_t inlineDivide(uint16x8_t v) {
    return trv::LaneDivider<D>()(v);
}

// The routines, and the inline dividers the kernels use in their place, on
// every input.
TEST(BlendConstants, DivisionRoutinesOnEveryInput) {
    using Divider = uint8x8_t (*)(uint16x8_t);
    const Divider routines[] = {Divfun1, Divfun2, Divfun3, Divfun4, Divfun5, Divfun6};
    using Inline = uint16x8_t (*)(uint16x8_t);
    const Inline inlined[] = {inlineDivide<1>, inlineDivide<2>, inlineDivide<3>,
                              inlineDivide<4>, inlineDivide<5>, inlineDivide<6>};
    for (int d = 1; d <= 6; ++d) {
        for (uint32_t base = 0; base < 65536; base += 8) {
            uint16_t in[8], lanes[8];
            for (int lane = 0; lane < 8; ++lane) in[lane] = static_cast<uint16_t>(base + lane);
            uint8_t out[8];
            vst1_u8(out, routines[d - 1](vld1q_u16(in)));
            vst1q_u16(lanes, inlined[d - 1](vld1q_u16(in)));
            for (int lane = 0; lane < 8; ++lane) {
                ASSERT_EQ(out[lane], blendmodel::vectorDivide(in[lane], d)) << "divide by " << d << " of " << in[lane];
                ASSERT_EQ(lanes[lane] & 0xFF, out[lane]) << "inline divide by " << d << " of " << in[lane];
            }
        }
    }
}

}  // namespace
