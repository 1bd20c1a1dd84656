// The validated entry point as an integrator uses it: refusals with their
// status and message, delivery for every input layout, the report, and
// concurrent callers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/layouts.h"
#include "support/synthetic.h"
#include "trv/trv.h"

namespace {

constexpr int kW = 96, kH = 64;

// A burst of frames in one layout, with a caller-owned output buffer.
struct Burst {
    std::vector<std::vector<uint8_t>> frames;
    std::vector<__tag_TRV_OFFSCREEN> pics;
    std::vector<uint8_t> result;
    __tag_TRV_OFFSCREEN out{};
    _tag_TRV_INPUTINFO in{};
    _tag_TRV_PARAM param{};

    Burst(const std::vector<trvtest::Planes422>& planes, int code, uint8_t fill = 0x5A) {
        for (const auto& p : planes) frames.push_back(trvtest::toLayout(p, code));
        pics.resize(frames.size());
        in.picNum = static_cast<int32_t>(frames.size());
        for (size_t i = 0; i < frames.size(); ++i) {
            pics[i] = {0, planes[i].w, planes[i].h, frames[i].data()};
            in.pics[i] = &pics[i];
        }
        result.assign(TRV_FuseOutputBytes(planes[0].w, planes[0].h), fill);
        out.data = result.data();
        TRV_GetDefaultParam(&param);
        param.inputFormat = code;
    }
    int32_t run(_tag_TRV_FUSE_REPORT* report = nullptr) {
        return TRV_FuseBurst(&in, &param, &out, result.size(), report);
    }
};

// Frames of one textured scene, each with its own small noise; with a
// reach, every frame after the first moved by up to that many pixels.
std::vector<trvtest::Planes422> noisyScene(int frames, int w = kW, int h = kH, uint32_t seed = 7, int reach = 0) {
    trvtest::Planes422 clean = trvtest::randomPlanes(w, h, seed);
    clean.y = trvtest::texturedPlane(w, h, seed);
    std::vector<trvtest::Planes422> burst;
    trvtest::Rng rng(seed * 31 + 1);
    for (int i = 0; i < frames; ++i) {
        trvtest::Planes422 p = clean;
        if (reach > 0 && i > 0) p = trvtest::shifted(clean, rng.uniform(-reach, reach), rng.uniform(-reach, reach));
        for (auto& v : p.y) v = static_cast<uint8_t>(std::min(255, std::max(0, v + rng.uniform(-6, 6))));
        burst.push_back(p);
    }
    return burst;
}

void expectRefused(Burst& b, int32_t expected) {
    const std::vector<uint8_t> before = b.result;
    _tag_TRV_FUSE_REPORT report;
    memset(&report, 0xEE, sizeof report);
    EXPECT_EQ(b.run(&report), expected);
    EXPECT_EQ(b.result, before) << "a refused call wrote the output";
    EXPECT_EQ(report.reference, static_cast<int32_t>(0xEEEEEEEE)) << "a refused call wrote the report";
    const std::string text = TRV_StatusText(expected);
    EXPECT_NE(text, TRV_StatusText(TRV_FUSE_OK));
    EXPECT_NE(text, "unknown status");
    EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST(FuseBurstRefusal, NullPointers) {
    Burst b(noisyScene(2), 4);
    _tag_TRV_FUSE_REPORT report{};
    EXPECT_EQ(TRV_FuseBurst(nullptr, &b.param, &b.out, b.result.size(), &report), TRV_FUSE_NULL_ARGUMENT);
    EXPECT_EQ(TRV_FuseBurst(&b.in, nullptr, &b.out, b.result.size(), &report), TRV_FUSE_NULL_ARGUMENT);
    EXPECT_EQ(TRV_FuseBurst(&b.in, &b.param, nullptr, b.result.size(), &report), TRV_FUSE_NULL_ARGUMENT);
    b.in.pics[1] = nullptr;
    expectRefused(b, TRV_FUSE_NULL_ARGUMENT);
    b.in.pics[1] = &b.pics[1];
    b.pics[1].data = nullptr;
    expectRefused(b, TRV_FUSE_NULL_ARGUMENT);
    b.pics[1].data = b.frames[1].data();
    b.out.data = nullptr;
    EXPECT_EQ(b.run(), TRV_FUSE_NULL_ARGUMENT);
}

TEST(FuseBurstRefusal, FrameCountOutsideOneToSix) {
    Burst b(noisyScene(6), 4);
    for (int32_t count : {0, -1, 7, 1000}) {
        b.in.picNum = count;
        expectRefused(b, TRV_FUSE_BAD_FRAME_COUNT);
    }
}

TEST(FuseBurstRefusal, UnequalFrameSizes) {
    Burst b(noisyScene(3), 4);
    b.pics[2].width = kW - 2;  // the later frame differs, frame 0 is fine
    expectRefused(b, TRV_FUSE_UNEQUAL_SIZES);
    b.pics[2].width = kW;
    b.pics[1].height = kH + 2;
    expectRefused(b, TRV_FUSE_UNEQUAL_SIZES);
}

TEST(FuseBurstRefusal, OddTinyOrHugeSizes) {
    Burst b(noisyScene(2), 4);
    const std::pair<int32_t, int32_t> sizes[] = {
        {kW - 1, kH}, {kW, kH - 1}, {TRV_FUSE_MIN_WIDTH - 2, kH}, {kW, TRV_FUSE_MIN_HEIGHT - 2},
        {0, 0}, {-64, 64}, {65536, 32768}};
    for (auto [w, h] : sizes) {
        for (auto& p : b.pics) {
            p.width = w;
            p.height = h;
        }
        expectRefused(b, TRV_FUSE_BAD_SIZE);
    }
}

TEST(FuseBurstRefusal, FormatCodesWithoutLayout) {
    Burst b(noisyScene(2), 4);
    for (int32_t code : {3, 5, 6, -1}) {
        b.param.inputFormat = code;
        expectRefused(b, TRV_FUSE_BAD_INPUT_FORMAT);
    }
    b.param.inputFormat = 4;
    for (int32_t code : {0, 1, 6, -1}) {
        b.param.outputFormat = code;
        expectRefused(b, TRV_FUSE_BAD_OUTPUT_FORMAT);
    }
}

TEST(FuseBurstRefusal, OutputBufferTooSmall) {
    Burst b(noisyScene(2), 4);
    const std::vector<uint8_t> before = b.result;
    EXPECT_EQ(TRV_FuseBurst(&b.in, &b.param, &b.out, b.result.size() - 1, nullptr), TRV_FUSE_OUTPUT_TOO_SMALL);
    EXPECT_EQ(b.result, before);
    EXPECT_EQ(TRV_FuseOutputBytes(kW, kH), static_cast<size_t>(kW * kH * 3 / 2));
    EXPECT_EQ(TRV_FuseOutputBytes(0, kH), 0u);
    EXPECT_EQ(TRV_FuseOutputBytes(kW, -2), 0u);
}

TEST(FuseBurstRefusal, EveryStatusHasItsOwnMessage) {
    const int32_t codes[] = {TRV_FUSE_OK, TRV_FUSE_NULL_ARGUMENT, TRV_FUSE_BAD_FRAME_COUNT, TRV_FUSE_UNEQUAL_SIZES,
                             TRV_FUSE_BAD_SIZE, TRV_FUSE_BAD_INPUT_FORMAT, TRV_FUSE_BAD_OUTPUT_FORMAT,
                             TRV_FUSE_OUTPUT_TOO_SMALL, TRV_RETINEX_NULL_ARGUMENT, TRV_RETINEX_BAD_SIZE,
                             TRV_RETINEX_FRAME_TOO_SMALL, TRV_BLUR_NULL_ARGUMENT, TRV_BLUR_BAD_SIZE,
                             TRV_BLUR_INPUT_TOO_SMALL, TRV_BLUR_OUTPUT_TOO_SMALL, TRV_BLUR_OVERLAP,
                             TRV_TONE_NULL_ARGUMENT, TRV_TONE_BAD_SIZE, TRV_TONE_BAD_ID, TRV_TONE_BAD_OUTPUT_FORMAT,
                             TRV_TONE_INPUT_TOO_SMALL, TRV_TONE_OUTPUT_TOO_SMALL, TRV_TONE_OVERLAP};
    for (int32_t a : codes) {
        EXPECT_NE(a, 1) << "refusals must not look like TRV_Enhancement's rejected format";
        for (int32_t b : codes) {
            if (a != b) {
                EXPECT_STRNE(TRV_StatusText(a), TRV_StatusText(b));
            }
        }
    }
    EXPECT_STREQ(TRV_StatusText(12345), "unknown status");
}

// A single frame is converted: the exact 4:2:0 frame in the input's chroma
// order, delivered for every layout (TRV_Enhancement itself delivers only
// for code 4).
TEST(FuseBurstDelivery, SingleFrameForEveryLayout) {
    const auto planes = noisyScene(1);
    for (int code : {0, 1, 2, 4}) {
        Burst b(planes, code);
        _tag_TRV_FUSE_REPORT report{};
        ASSERT_EQ(b.run(&report), TRV_FUSE_OK) << code;
        EXPECT_EQ(b.result, trvtest::toSemiPlanar420(planes[0])) << code;
        EXPECT_EQ(b.out.width, kW);
        EXPECT_EQ(b.out.height, kH);
        EXPECT_EQ(report.reference, 0);
        EXPECT_EQ(report.framesFused, 1);
        EXPECT_EQ(report.frameOrder[0], 0);
        EXPECT_EQ(report.frameFate[0], TRV_FRAME_FUSED);
    }
}

// Whatever the fused bytes are, every byte of the result is written: the
// same burst into buffers pre-filled differently gives the same bytes.
TEST(FuseBurstDelivery, MultiFrameResultCoversTheWholeBufferForEveryLayout) {
    const auto planes = noisyScene(3);
    for (int code : {0, 1, 2, 4}) {
        Burst zeros(planes, code, 0x00), ones(planes, code, 0xFF);
        ASSERT_EQ(zeros.run(), TRV_FUSE_OK) << code;
        ASSERT_EQ(ones.run(), TRV_FUSE_OK) << code;
        EXPECT_EQ(zeros.result, ones.result) << code;
    }
}

// Bursts of every size class stay inside the caller's buffers (the address
// sanitizer build checks every even width and height from 64 to 132, the
// other side 96) and write every output byte the same way whatever the
// buffer held before (checked on every build, the thread sanitizer's too).
// The other builds take the sides 66, 68 and 82, where seven tiles of an
// eighth of a side, rounded up to even, already pass the edge, in full, and
// one seeded side of every other class mod 16 in one layout.
TEST(FuseBurstDelivery, EveryEvenSizeStaysInsideAndIsDeterministic) {
    struct Sweep {
        int side;
        std::vector<int> reaches, codes;
    };
    const std::vector<int> everyCode = {0, 1, 2, 4};
    std::vector<Sweep> sweeps;
#if defined(TRV_FULL_SIZE_SWEEP)
    for (int side = 64; side <= 132; side += 2) sweeps.push_back({side, {0, 5}, everyCode});
#else
    for (int side : {66, 68, 82}) sweeps.push_back({side, {0, 5}, everyCode});
    trvtest::Rng pick(2024);
    for (int mod = 0; mod < 16; mod += 2)
        if (mod != 2 && mod != 4) sweeps.push_back({64 + mod + 16 * pick.uniform(0, 3), {5}, {everyCode[mod / 2 % 4]}});
#endif
    int burst = 0;
    for (const Sweep& sweep : sweeps) {
        std::vector<std::pair<int, int>> sizes = {{sweep.side, 96}};
        if (sweep.side != 96) sizes.push_back({96, sweep.side});
        for (auto [w, h] : sizes) {
            for (int reach : sweep.reaches) {
                const int frames = 2 + burst % 5;
                const auto planes = noisyScene(frames, w, h, 40u + static_cast<uint32_t>(burst), reach);
                ++burst;
                for (int code : sweep.codes) {
                    Burst zeros(planes, code, 0x00), ones(planes, code, 0xFF);
                    ASSERT_EQ(zeros.run(), TRV_FUSE_OK);
                    ASSERT_EQ(ones.run(), TRV_FUSE_OK);
                    ASSERT_EQ(zeros.result, ones.result)
                        << w << "x" << h << " code " << code << " frames " << frames << " reach " << reach;
                }
            }
        }
    }
}

// Flat frames have no edges: the sharpness check drops them, and the report
// says so; the result is the reference's own conversion.
TEST(FuseBurstReport, BlurredFramesAreReportedAsSuch) {
    auto planes = noisyScene(3);
    for (int i : {1, 2}) std::fill(planes[i].y.begin(), planes[i].y.end(), 100);
    Burst b(planes, 4);
    _tag_TRV_FUSE_REPORT report;
    memset(&report, 0xEE, sizeof report);
    ASSERT_EQ(b.run(&report), TRV_FUSE_OK);
    EXPECT_EQ(report.reference, 0);
    EXPECT_EQ(report.framesFused, 1);
    EXPECT_EQ(report.frameOrder[0], 0);
    EXPECT_EQ(report.frameFate[0], TRV_FRAME_FUSED);
    EXPECT_EQ(report.frameFate[1], TRV_FRAME_BLURRED);
    EXPECT_EQ(report.frameFate[2], TRV_FRAME_BLURRED);
    EXPECT_EQ(report.frameFate[3], 0) << "entries beyond the burst are zero";
    EXPECT_EQ(report.vectorX[0], 0);
    EXPECT_EQ(report.vectorY[0], 0);
    EXPECT_EQ(report.sharpnessRatio, 0.0f);
    EXPECT_EQ(b.result, trvtest::toSemiPlanar420(planes[0]));
}

// Flat frames have no edges at all: the blur check's ratio is 0/0, reported
// as 0, and every frame is kept. A side that is not a multiple of 8 gives
// ceil(S/8) samples over a divisor of floor(S/8): hand-computed means.
TEST(FuseBurstReport, FeaturelessFramesAndSampledMeans) {
    const struct {
        int frames, w, h, luma, mean;
    } cases[] = {
        {3, 96, 64, 100, 100},  // 12 x 8 samples over 12 x 8
        {2, 64, 64, 0, 0},
        {1, 66, 64, 200, 225},  // 9 x 8 samples of 200 over 8 x 8: 14400 / 64
        {1, 70, 70, 255, 322},  // 9 x 9 over 8 x 8: 20655 / 64, the largest accepted
    };
    for (const auto& c : cases) {
        trvtest::Planes422 flat = trvtest::randomPlanes(c.w, c.h, 2);
        std::fill(flat.y.begin(), flat.y.end(), static_cast<uint8_t>(c.luma));
        Burst b(std::vector<trvtest::Planes422>(c.frames, flat), 4);
        _tag_TRV_FUSE_REPORT report;
        memset(&report, 0xEE, sizeof report);
        ASSERT_EQ(b.run(&report), TRV_FUSE_OK) << c.w << "x" << c.h;
        EXPECT_EQ(report.sharpnessRatio, 0.0f) << c.w << "x" << c.h;  // also false for NaN
        EXPECT_EQ(report.meanLuma, c.mean) << c.w << "x" << c.h;
        for (int i = 0; i < c.frames; ++i) EXPECT_NE(report.frameFate[i], TRV_FRAME_BLURRED) << i;
    }
}

// Threads mixing all four validated entries, each on its own frame size and
// layout, get exactly the bytes each call gives on its own.
TEST(ValidatedEntriesConcurrency, MixedCallersMatchSerialResults) {
    const auto scene = noisyScene(3, kW, kH, 100);
    const std::vector<uint8_t> nv12 = trvtest::toSemiPlanar420(trvtest::texturedPlanes(80, 48, 5));
    std::vector<std::function<std::vector<uint8_t>()>> callers = {
        [&] {
            Burst b(scene, 2);
            return b.run() == TRV_FUSE_OK ? b.result : std::vector<uint8_t>();
        },
        [&] {
            std::vector<uint8_t> frame = nv12;
            return TRV_Retinex(frame.data(), frame.size(), 80, 48) == TRV_FUSE_OK ? frame : std::vector<uint8_t>();
        },
        [&] {
            std::vector<uint8_t> out(2 * 40 * 48);
            return TRV_ToneEnhance(nv12.data(), 40 * 48 * 3 / 2, out.data(), out.size(), 40, 48, 0, 2, 0) == TRV_FUSE_OK
                       ? out
                       : std::vector<uint8_t>();
        },
        [&] {
            std::vector<uint8_t> out(30 * 20);
            return TRV_Blur(nv12.data(), out.size(), out.data(), out.size(), 30, 20) == TRV_FUSE_OK
                       ? out
                       : std::vector<uint8_t>();
        },
    };
    std::vector<std::vector<uint8_t>> expected;
    for (auto& call : callers) expected.push_back(call());
    std::vector<int> mismatches(callers.size(), 0);
    std::vector<std::thread> threads;
    for (size_t c = 0; c < callers.size(); ++c) {
        threads.emplace_back([&, c] {
            for (int round = 0; round < 3; ++round) mismatches[c] += callers[c]() != expected[c];
        });
    }
    for (auto& t : threads) t.join();
    for (size_t c = 0; c < callers.size(); ++c) {
        EXPECT_FALSE(expected[c].empty()) << "caller " << c << " refused";
        EXPECT_EQ(mismatches[c], 0) << "caller " << c;
    }
}

}  // namespace
