// Blending kernels against plain models of their two rules: the vector rule
// on whole groups of 8 (16 luma columns for planar chroma), the table rule on
// the tail, for every supported frame count and widths that leave tails.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "fusion/blend_model.h"
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
    unsigned char** at(ptrdiff_t offset) {
        shifted.clear();
        for (auto* p : pointers) shifted.push_back(p + offset);
        return shifted.data();
    }
    void samples(size_t i, int* f) const {
        for (size_t k = 0; k < frames.size(); ++k) f[k] = frames[k][i];
    }
    std::vector<unsigned char*> shifted;
};

class BlendKernels : public ::testing::Test {
protected:
    void SetUp() override {
        savedW = gW;
        savedH = gH;
        savedFormat = gINFormat;
        savedNum = gNum;
    }
    void TearDown() override {
        gW = savedW;
        gH = savedH;
        gINFormat = savedFormat;
        setFrameCount(savedNum);
    }
    int savedW = 0, savedH = 0, savedFormat = 0, savedNum = 0;
};

TEST_F(BlendKernels, LumaVectorBodyAndTableTailMatchTheirRules) {
    const int stride = 48, height = 3;
    gW = stride;
    for (int n = 1; n <= 5; ++n) {
        setFrameCount(n);
        for (int width = 1; width <= 40; ++width) {
            Burst burst(static_cast<size_t>(stride) * height, n, static_cast<uint32_t>(n * 100 + width));
            std::vector<uint8_t> out(burst.ref.size(), kUntouched);
            mergeBlk_Y_neon(burst.ref.data(), burst.at(0), out.data(), width, height);
            for (int r = 0; r < height; ++r) {
                for (int c = 0; c < stride; ++c) {
                    const size_t i = static_cast<size_t>(r) * stride + c;
                    int f[5];
                    burst.samples(i, f);
                    const int x = burst.ref[i];
                    const int want = c >= width                ? kUntouched
                                     : c < (width & ~7)        ? blendmodel::vectorLuma(x, f, n)
                                                               : blendmodel::tailLuma(x, f, n);
                    ASSERT_EQ(out[i], want) << "n " << n << " width " << width << " at " << r << "," << c;
                }
            }
        }
    }
}

TEST_F(BlendKernels, WorkedLumaExamplesOnBothPaths) {
    gW = 8;
    auto blendOne = [](int x, std::vector<int> frames, int width) {
        std::vector<uint8_t> ref(8, static_cast<uint8_t>(x)), out(8, 0);
        std::vector<std::vector<uint8_t>> f;
        std::vector<unsigned char*> p;
        for (int v : frames) f.emplace_back(8, static_cast<uint8_t>(v));
        for (auto& row : f) p.push_back(row.data());
        mergeBlk_Y_neon(ref.data(), p.data(), out.data(), width, 1);
        return static_cast<int>(out[0]);
    };
    setFrameCount(2);
    // 250 with 255, 255: 760 x 0.3334 + 0.5 = 253.88; the tail: 250 + 10 / 3.
    EXPECT_EQ(blendOne(250, {255, 255}, 8), 253);
    EXPECT_EQ(blendOne(250, {255, 255}, 1), 253);
    // |232 - 200| = 32 = 16 N: ">=" takes the frames-only mean 116, the
    // tail's ">" the all-frames mean 100 + 32 / 3 truncated.
    EXPECT_EQ(blendOne(100, {116, 116}, 8), 116);
    EXPECT_EQ(blendOne(100, {116, 116}, 1), 110);
    setFrameCount(3);
    // Three frames 40 above 100: clamped to 124 each, |372 - 300| >= 48.
    EXPECT_EQ(blendOne(100, {140, 140, 140}, 8), 124);
    EXPECT_EQ(blendOne(100, {140, 140, 140}, 1), 124);
    setFrameCount(1);
    // One frame: clamp to +-16, rounded pair mean, on both paths.
    EXPECT_EQ(blendOne(100, {140}, 8), 108);
    EXPECT_EQ(blendOne(100, {140}, 1), 108);
    EXPECT_EQ(blendOne(5, {0}, 8), 3);
}

TEST_F(BlendKernels, OneFrameNeverReadsTheDivisionTables) {
    gW = 16;
    setFrameCount(1);
    std::vector<int32_t> saved(divNUM_1, divNUM_1 + 241);
    std::fill(divNUM, divNUM + 241, 1000);
    std::fill(divNUM_1, divNUM_1 + 241, 1000);
    Burst burst(16, 1, 9);
    std::vector<uint8_t> out(16);
    mergeBlk_Y_neon(burst.ref.data(), burst.at(0), out.data(), 13, 1);
    for (int c = 0; c < 13; ++c) {
        int f[1] = {burst.frames[0][c]};
        EXPECT_EQ(out[c], blendmodel::tailLuma(burst.ref[c], f, 1)) << c;
    }
    setFrameCount(1);
}

// Interleaved chroma (codes 1 and 4): byte by byte in place.
TEST_F(BlendKernels, SemiPlanarChromaMatchesRules) {
    const int stride = 48, height = 5;  // luma rows 0 .. 4: chroma rows 0, 2, 4
    gW = stride;
    gH = height;
    for (int format : {1, 4}) {
        gINFormat = format;
        for (int n = 1; n <= 5; ++n) {
            setFrameCount(n);
            for (int width = 1; width <= 40; width += (width < 18 ? 1 : 5)) {
                Burst burst(static_cast<size_t>(stride) * height, n, static_cast<uint32_t>(format * 1000 + n * 50 + width));
                std::vector<uint8_t> out(static_cast<size_t>(stride) * 3, kUntouched);
                mergeBlk_uv_neon(burst.ref.data(), burst.at(0), out.data(), width, height);
                for (int r = 0; r < height; r += 2) {
                    const int inRow = format == 1 ? r : r / 2;
                    for (int c = 0; c < stride; ++c) {
                        const size_t i = static_cast<size_t>(inRow) * stride + c;
                        int f[5];
                        burst.samples(i, f);
                        const int want = c >= width         ? kUntouched
                                         : c < (width & ~7) ? blendmodel::vectorChroma(burst.ref[i], f, n)
                                                            : blendmodel::tailChroma(burst.ref[i], f, n);
                        ASSERT_EQ(out[static_cast<size_t>(r / 2) * stride + c], want)
                            << "format " << format << " n " << n << " width " << width << " row " << r << " col " << c;
                    }
                }
            }
        }
    }
}

// Planar 4:2:2 chroma: one sample of each plane per two luma columns,
// interleaved on output; every second chroma row is dropped.
TEST_F(BlendKernels, PlanarChromaInterleavesBothPlanes) {
    const int stride = 48, height = 4;
    gW = stride;
    gH = height;
    gINFormat = 0;
    const int half = stride / 2;
    for (int n = 1; n <= 5; ++n) {
        setFrameCount(n);
        for (int width = 1; width <= 40; ++width) {
            Burst burst(static_cast<size_t>(half) * height * 2, n, static_cast<uint32_t>(n * 77 + width));
            std::vector<uint8_t> out(static_cast<size_t>(stride) * 2, kUntouched);
            mergeBlk_uv_neon(burst.ref.data(), burst.at(0), out.data(), width, height);
            for (int r = 0; r < height; r += 2) {
                for (int c = 0; c < stride; ++c) {
                    const size_t i = static_cast<size_t>(c & 1) * half * height + static_cast<size_t>(r) * half + c / 2;
                    int f[5];
                    burst.samples(i, f);
                    const int want = c >= width          ? kUntouched
                                     : c < (width & ~15) ? blendmodel::vectorChroma(burst.ref[i], f, n)
                                                         : blendmodel::tailChroma(burst.ref[i], f, n);
                    ASSERT_EQ(out[static_cast<size_t>(r / 2) * stride + c], want)
                        << "n " << n << " width " << width << " row " << r << " col " << c;
                }
            }
        }
    }
}

TEST_F(BlendKernels, PackedRowsGiveLumaAndEvenRowChroma) {
    const int w = 40, height = 3;
    gW = w;
    for (int n = 1; n <= 5; ++n) {
        setFrameCount(n);
        for (int width = 1; width <= w; ++width) {
            Burst burst(static_cast<size_t>(2 * w) * height, n, static_cast<uint32_t>(n * 31 + width));
            std::vector<uint8_t> outY(static_cast<size_t>(w) * height, kUntouched), outUV(static_cast<size_t>(w) * 2, kUntouched);
            mergeBlk_YUV_neon_YUYV(burst.ref.data(), burst.at(0), outY.data(), outUV.data(), width, height);
            for (int r = 0; r < height; ++r) {
                for (int c = 0; c < w; ++c) {
                    const bool vector = c < (width & ~7);
                    const size_t i = static_cast<size_t>(r) * 2 * w + 2 * c;
                    int f[5];
                    burst.samples(i, f);
                    const int wantY = c >= width ? kUntouched
                                      : vector   ? blendmodel::vectorLuma(burst.ref[i], f, n)
                                                 : blendmodel::tailLuma(burst.ref[i], f, n);
                    ASSERT_EQ(outY[static_cast<size_t>(r) * w + c], wantY) << "n " << n << " width " << width << " at " << r << "," << c;
                    if (r & 1) continue;
                    burst.samples(i + 1, f);
                    const int wantC = c >= width ? kUntouched
                                      : vector   ? blendmodel::vectorChroma(burst.ref[i + 1], f, n)
                                                 : blendmodel::tailChroma(burst.ref[i + 1], f, n);
                    ASSERT_EQ(outUV[static_cast<size_t>(r / 2) * w + c], wantC) << "n " << n << " width " << width << " at " << r << "," << c;
                }
            }
        }
    }
}

TEST(BlendConstants, ExactBitPatternsAndLanes) {
    auto bits = [](float32x4_t v, int lane) {
        uint32_t u[4];
        vst1q_u32(u, vreinterpretq_u32_f32(v));
        return u[lane];
    };
    for (int lane = 0; lane < 4; ++lane) {
        EXPECT_EQ(bits(CONST0_5, lane), 0x3F000000u);
        EXPECT_EQ(bits(CONST0_3_3, lane), 0x3EAAB368u);
        EXPECT_EQ(bits(CONST0_2, lane), 0x3E4CCCCDu);
        EXPECT_EQ(bits(CONST0_1_6_7, lane), 0x3E2AB368u);
    }
    uint8_t b[8];
    const std::pair<uint8x8_t, int> bytes[] = {{CONST_16, 16}, {CONST_24, 24}, {CONST_10, 10}, {CONST_255, 255}, {CONST_0, 0}};
    for (const auto& [v, want] : bytes) {
        vst1_u8(b, v);
        for (uint8_t lane : b) EXPECT_EQ(lane, want);
    }
    int16_t s[8];
    const std::pair<int16x8_t, int> shorts[] = {{CONST_1, 1},  {CONST_2, 2},  {MIN10, -10}, {MAX10, 10},
                                                {MIN16, -16}, {MAX16, 16}, {MIN24, -24}, {MAX24, 24}};
    for (const auto& [v, want] : shorts) {
        vst1q_s16(s, v);
        for (int16_t lane : s) EXPECT_EQ(lane, want);
    }
    uint16_t u[8];
    const std::pair<uint16x8_t, int> ushorts[] = {{U16MIN16, 16}, {U16MAX25, 25}, {U16MAX1, 1}};
    for (const auto& [v, want] : ushorts) {
        vst1q_u16(u, v);
        for (uint16_t lane : u) EXPECT_EQ(lane, want);
    }
    for (int d = -24; d <= 24; ++d) EXPECT_EQ(DIFFY_1[d + 24], blendmodel::clampTo(d, -16, 16)) << d;
}

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
                ASSERT_EQ(out[lane], blendmodel::vectorDivide(in[lane], d)) << "divide by " << d << " of " << in[lane];
        }
    }
    // Hand values: the truncated factors, not exact thirds and sixths.
    auto one = [](Divider f, uint16_t v) {
        uint8_t out[8];
        vst1_u8(out, f(vdupq_n_u16(v)));
        return static_cast<int>(out[0]);
    };
    EXPECT_EQ(one(Divfun3, 760), 253);
    EXPECT_EQ(one(Divfun3, 372), 124);
    EXPECT_EQ(one(Divfun3, 1), 0);    // 0.8334
    EXPECT_EQ(one(Divfun3, 2), 1);    // 1.1668
    EXPECT_EQ(one(Divfun6, 3), 1);    // 1.0001
    EXPECT_EQ(one(Divfun5, 1275), 255);
    EXPECT_EQ(one(Divfun2, 513), 1);  // 257 keeps its low byte
    EXPECT_EQ(one(Divfun4, 1530), 127);  // 383 & 255
    EXPECT_EQ(one(Divfun2, 65535), 0);   // 32768: the rounding does not overflow
}

TEST(BlendConstants, SetfuncPicksDividersByFrameCount) {
    using Divider = uint8x8_t (*)(uint16x8_t);
    const Divider routines[] = {Divfun1, Divfun2, Divfun3, Divfun4, Divfun5, Divfun6};
    const int saved = gNum;
    for (int n = 1; n <= 5; ++n) {
        gNum = n;
        setfunc();
        EXPECT_EQ(pfun24, routines[n - 1]) << n;
        EXPECT_EQ(pfun16, routines[n]) << n;
    }
    for (int outside : {0, 6, -1}) {
        gNum = outside;
        setfunc();
        EXPECT_EQ(pfun24, Divfun5) << outside;
        EXPECT_EQ(pfun16, Divfun6) << outside;
    }
    gNum = saved;
    setfunc();
}

}  // namespace
