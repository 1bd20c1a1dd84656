// Blending kernels against plain models of their two rules: the vector rule
// on whole groups of 8 (16 luma columns for planar chroma), the table rule on
// the tail, for every supported frame count and widths that leave tails.
#include <gtest/gtest.h>

#include <vector>

#include "fusion/divide_lanes.h"
#include "fusion/fusion_scene.h"
#include "support/restore.h"

namespace {

using fusiontest::setFrameCount;

// Plain scalar models of the two blending rules, written from their description.
// Vector division of a sum by d, keeping the low byte.
uint8_t vectorDivide(unsigned v, int d) {
    switch (d) {
        case 1: return static_cast<uint8_t>(v);
        case 2: return static_cast<uint8_t>((v + 1) >> 1);
        case 4: return static_cast<uint8_t>((v + 2) >> 2);
        default: break;
    }
    const float factor = d == 3 ? 0.3334f : d == 5 ? 0.2f : 0.1667f;
    const float product = static_cast<float>(v) * factor;
    const float rounded = 0.5f + product;
    return static_cast<uint8_t>(static_cast<uint32_t>(rounded));
}

// Vector luma rule for n >= 2, pair mean for n = 1.
uint8_t vectorLuma(int x, const int* f, int n) {
    if (n == 1) return static_cast<uint8_t>((x + std::clamp(f[0], std::max(x - 16, 0), std::min(x + 16, 255)) + 1) >> 1);
    unsigned s24 = 0, s16 = static_cast<unsigned>(x);
    for (int k = 0; k < n; ++k) {
        s24 += static_cast<unsigned>(std::clamp(f[k], std::max(x - 24, 0), std::min(x + 24, 255)));
        s16 += static_cast<unsigned>(std::clamp(f[k], std::max(x - 16, 0), std::min(x + 16, 255)));
    }
    if (std::abs(static_cast<int>(s24) - n * x) >= 16 * n) return vectorDivide(s24, n);
    return vectorDivide(s16, n + 1);
}

// Scalar luma rule: truncating division, ">" instead of ">="; one frame
// keeps its rounded pair mean.
uint8_t tailLuma(int x, const int* f, int n) {
    if (n == 1) return static_cast<uint8_t>((std::clamp(f[0] - x, -16, 16) + 2 * x + 1) >> 1);
    int d24 = 0, d16 = 0;
    for (int k = 0; k < n; ++k) {
        const int d = std::clamp(x - f[k], -24, 24);
        d24 += d;
        d16 += std::clamp(d, -16, 16);
    }
    if (std::abs(d24) <= 16 * n) return static_cast<uint8_t>(x - d16 / (n + 1));
    return static_cast<uint8_t>(x - d24 / n);
}

uint8_t vectorChroma(int c, const int* f, int n) {
    unsigned s = static_cast<unsigned>(c);
    for (int k = 0; k < n; ++k) s += static_cast<unsigned>(std::clamp(f[k], std::max(c - 10, 0), std::min(c + 10, 255)));
    return vectorDivide(s, n + 1);
}

// Scalar chroma rule, for every frame count (no pair-mean tail).
uint8_t tableChroma(int c, const int* f, int n) {
    int s = 0;
    for (int k = 0; k < n; ++k) s += std::clamp(c - f[k], -10, 10);
    return static_cast<uint8_t>(c - s / (n + 1));
}

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
                f[i] = pick == 0 ? rng.byte() : static_cast<uint8_t>(std::clamp(ref[i] + rng.uniform(-40, 40), 0, 255));
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
    if (luma) return c < vectorEnd ? vectorLuma(x, f, n) : tailLuma(x, f, n);
    return c < vectorEnd ? vectorChroma(x, f, n) : tableChroma(x, f, n);
}

// Runs `blend` for 1 .. 5 other frames and widths 1 .. 40 on random bursts,
// then `check` compares every output byte.
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
            if (::testing::Test::HasFatalFailure()) return;
        }
    }
}

TEST(BlendKernels, LumaVectorBodyAndTableTailMatchTheirRules) {
    gW = 48;  // 3 rows
    sweep(144, 144, [](Burst& b, uint8_t* out, int width) { mergeBlk_Y_neon(b.ref.data(), b.at(), out, width, 3); },
          [](const Burst& b, const auto& out, int width) {
              for (int i = 0; i < 144; ++i) ASSERT_EQ(out[i], want(b, i, i % 48, width, width & ~7, true)) << i;
          });
}

// Semi-planar chroma (codes 1 and 4) byte by byte in place, luma rows
// 0 .. 4 giving chroma rows 0, 2, 4; planar 4:2:2 (code 0) one sample of
// each plane per two luma columns, interleaved on output, 16 columns a
// vector. Every second chroma row is dropped.
TEST(BlendKernels, ChromaMatchesRulesInEveryLayout) {
    gW = 48, gH = 5;
    for (int format : {0, 1, 4}) {
        gINFormat = format;
        sweep(240, 144, [](Burst& b, uint8_t* out, int width) { mergeBlk_uv_neon(b.ref.data(), b.at(), out, width, 5); },
              [format](const Burst& b, const auto& out, int width) {
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
TEST(BlendKernels, PackedRowsGiveLumaAndEvenRowChroma) {
    gW = 40;
    sweep(240, 200,
          [](Burst& b, uint8_t* out, int width) { mergeBlk_YUV_neon_YUYV(b.ref.data(), b.at(), out, out + 120, width, 3); },
          [](const Burst& b, const auto& out, int width) {
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

// Chroma 100 with one frame at 103: the vector path rounds the pair mean to
// 102, every tail divides -3 by table: 100 - trunc(-3 / 2) = 101. Luma of the
// packed rows (100 with 103) keeps its pair mean, 102, on both paths.
TEST(BlendKernels, OneFrameChromaTailDividesByTable) {
    gW = 16, gH = 2;
    setFrameCount(1);
    std::vector<uint8_t> ref(64, 100), frame(64, 103), out(48);
    unsigned char* frames[] = {frame.data()};
    for (int width : {16, 8, 1}) {
        for (int format : {0, 1, 4}) {
            gINFormat = format;
            std::fill(out.begin(), out.end(), 0);
            mergeBlk_uv_neon(ref.data(), frames, out.data(), width, 2);
            EXPECT_EQ(out[0], width >= (format == 0 ? 16 : 8) ? 102 : 101) << format << " width " << width;
        }
        mergeBlk_YUV_neon_YUYV(ref.data(), frames, out.data(), out.data() + 32, width, 2);
        EXPECT_EQ(out[0], 102) << "packed luma width " << width;
        EXPECT_EQ(out[32], width == 1 ? 101 : 102) << "packed chroma width " << width;
    }
}

// "compared with 16 * N": 100 with two frames at 116 deviates by exactly
// 32 = 16 N, so the vector path takes the frames-only mean 116 even while
// NUM_16 holds 80 (left by a five-frame fusion); the tail's ">" keeps the
// mean with the reference, 100 + 32 / 3 truncated: 110.
TEST(BlendKernels, LumaThresholdIsSixteenTimesThisCallsCount) {
    gW = 8;
    setFrameCount(2);
    NUM_16 = vdupq_n_u16(80);
    std::vector<uint8_t> ref(8, 100), frame(8, 116), out(8);
    unsigned char* frames[] = {frame.data(), frame.data()};
    for (int width : {8, 1}) {
        mergeBlk_Y_neon(ref.data(), frames, out.data(), width, 1);
        EXPECT_EQ(out[0], width == 8 ? 116 : 110) << "width " << width;
    }
}

// The division routines on every input.
TEST(BlendConstants, DivisionRoutinesOnEveryInput) {
    using Divider = uint8x8_t (*)(uint16x8_t);
    const Divider routines[] = {Divfun1, Divfun2, Divfun3, Divfun4, Divfun5, Divfun6};
    for (int d = 1; d <= 6; ++d) {
        for (uint32_t base = 0; base < 65536; base += 8) {
            uint16_t in[8];
            for (int lane = 0; lane < 8; ++lane) in[lane] = static_cast<uint16_t>(base + lane);
            uint8_t out[8];
            vst1_u8(out, routines[d - 1](vld1q_u16(in)));
            for (int lane = 0; lane < 8; ++lane)
                ASSERT_EQ(out[lane], vectorDivide(in[lane], d)) << "divide by " << d << " of " << in[lane];
        }
    }
    // The kernels' inline dividers on every sum they divide, with the
    // load-time factors (integer form) and with a changed one (float form).
    auto inlineMatches = [&](auto divider, int d) {
        for (uint16_t v = 0; v <= 6 * 255; ++v)
            if ((vgetq_lane_u16(divider(vdupq_n_u16(v)), 0) & 0xFF) != vget_lane_u8(routines[d - 1](vdupq_n_u16(v)), 0))
                return false;
        return true;
    };
    EXPECT_TRUE(inlineMatches(trv::LaneDivider<3>(), 3));
    EXPECT_TRUE(inlineMatches(trv::LaneDivider<5>(), 5));
    EXPECT_TRUE(inlineMatches(trv::LaneDivider<6>(), 6));
    const trvtest::Restore<float32x4_t> keep(CONST0_1_6_7);
    CONST0_1_6_7 = vdupq_n_f32(0.17f);
    EXPECT_FALSE(trv::LaneDivider<6>().integer);
    EXPECT_TRUE(inlineMatches(trv::LaneDivider<6>(), 6));
}

}  // namespace
