// The validated stand-alone operations as an integrator uses them: every
// refusal with its own status and nothing written, and the raw operation's
// result whatever frame state an earlier call or another thread left behind.
#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "support/burst.h"
#include "trv/stages.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes textured420(int w, int h, uint32_t seed) { return trvtest::toSemiPlanar420(trvtest::texturedPlanes(w, h, seed)); }

TEST(StandaloneRefusal, EveryBadArgumentHasItsOwnStatusAndWritesNothing) {
    constexpr int W = 34, H = 18;
    const size_t frame = W * H * 3 / 2, plane = W * H;
    Bytes image = textured420(W, H, 3), out(2 * W * H, 0x5A), big(4 * W * H, 0x11);
    const Bytes imageBefore = image, outBefore = out, bigBefore = big;
    uint8_t *in = image.data(), *o = out.data();
    // A deferred call of an entry; every tone call at level 50.
    auto call = [](auto entry, auto... args) { return [=] { return entry(args...); }; };
    auto tone = [=](auto... args) { return call(TRV_ToneEnhance, args..., 50); };
    const struct {
        std::function<int32_t()> call;
        int32_t expected;
    } cases[] = {
        {call(TRV_Retinex, nullptr, frame, W, H), TRV_RETINEX_NULL_ARGUMENT},
        {call(TRV_Retinex, in, frame, W - 1, H), TRV_RETINEX_BAD_SIZE},
        {call(TRV_Retinex, in, frame, W, 0), TRV_RETINEX_BAD_SIZE},
        {call(TRV_Retinex, in, frame, -W, H), TRV_RETINEX_BAD_SIZE},
        {call(TRV_Retinex, in, SIZE_MAX, 65536, 16384), TRV_RETINEX_BAD_SIZE},
        {call(TRV_Retinex, in, frame - 1, W, H), TRV_RETINEX_FRAME_TOO_SMALL},
        {call(TRV_Blur, nullptr, plane, o, plane, W, H), TRV_BLUR_NULL_ARGUMENT},
        {call(TRV_Blur, in, plane, nullptr, plane, W, H), TRV_BLUR_NULL_ARGUMENT},
        {call(TRV_Blur, in, plane, o, plane, 0, H), TRV_BLUR_BAD_SIZE},
        {call(TRV_Blur, in, SIZE_MAX, o, SIZE_MAX, 46341, 23171), TRV_BLUR_BAD_SIZE},
        {call(TRV_Blur, in, plane - 1, o, plane, W, H), TRV_BLUR_INPUT_TOO_SMALL},
        {call(TRV_Blur, in, plane, o, plane - 1, W, H), TRV_BLUR_OUTPUT_TOO_SMALL},
        {call(TRV_Blur, big.data(), plane, big.data() + plane - 1, plane, W, H), TRV_BLUR_OVERLAP},
        {tone(nullptr, frame, o, frame, W, H, 4, 1), TRV_TONE_NULL_ARGUMENT},
        {tone(in, frame, nullptr, frame, W, H, 4, 1), TRV_TONE_NULL_ARGUMENT},
        {tone(in, frame, o, frame, W, H + 1, 4, 1), TRV_TONE_BAD_SIZE},
        {tone(in, frame, o, frame, W, H, 4, 4), TRV_TONE_BAD_ID},
        {tone(in, frame, o, frame, W, H, 4, -1), TRV_TONE_BAD_ID},
        {tone(in, frame, o, 2 * plane, W, H, 1, 1), TRV_TONE_BAD_OUTPUT_FORMAT},
        {tone(in, frame, o, 2 * plane, W, H, 5, 1), TRV_TONE_BAD_OUTPUT_FORMAT},
        {tone(in, frame - 1, o, frame, W, H, 4, 1), TRV_TONE_INPUT_TOO_SMALL},
        {tone(in, frame, o, frame, W, H, 0, 1), TRV_TONE_OUTPUT_TOO_SMALL},  // 4:2:2 needs 2 W H
        {tone(in, frame, o, 2 * plane - 1, W, H, 2, 0), TRV_TONE_OUTPUT_TOO_SMALL},
        {tone(big.data() + 2 * plane - 1, frame, big.data(), 2 * plane, W, H, 2, 1), TRV_TONE_OVERLAP},
    };
    for (size_t k = 0; k < std::size(cases); ++k) {
        EXPECT_EQ(cases[k].call(), cases[k].expected) << "case " << k;
        EXPECT_TRUE(image == imageBefore && out == outBefore && big == bigBefore) << "case " << k << " wrote";
    }
    // The smallest frames are accepted: one chroma pair, one pixel.
    EXPECT_EQ(TRV_Retinex(in, frame, 2, 2), TRV_FUSE_OK);
    EXPECT_EQ(TRV_Blur(in, plane, o, plane, 1, 1), TRV_FUSE_OK);
    EXPECT_EQ(TRV_ToneEnhance(in, frame, o, 2 * plane, 2, 2, 2, 1, 50), TRV_FUSE_OK);
}

// Each entry sets the frame state its operation reads from its own
// arguments: after stale state from another frame, and from threads mixing
// all four validated entries, every call gives the raw operation's bytes,
// and no operation writes its input.
TEST(ValidatedEntries, RawOperationResultAfterStaleStateAndFromMixedThreads) {
    constexpr int W = 50, H = 22;  // not a multiple of 4
    const Bytes image = textured420(W, H, 5);
    auto* input = const_cast<uint8_t*>(image.data());  // the raw operations only read it
    const auto scene = trvtest::noisyScene(3, 96, 64, 100);
    auto orEmpty = [](int32_t status, const Bytes& bytes) { return status == TRV_FUSE_OK ? bytes : Bytes(); };
    std::vector<std::function<Bytes()>> callers = {
        [&] {
            trvtest::Burst b(scene, 2);
            return orEmpty(b.fuse(), b.result);
        },
        [&] {
            Bytes frame = image;
            return orEmpty(TRV_Retinex(frame.data(), frame.size(), W, H), frame);
        },
        [&] {
            Bytes out(W * H);
            return orEmpty(TRV_Blur(image.data(), out.size(), out.data(), out.size(), W, H), out);
        },
    };
    std::vector<Bytes> expected = {callers[0](), image, Bytes(W * H)};
    gW = W, gH = H;
    MSR(expected[1].data(), W, H);
    MultiBlur(input, expected[2].data(), W, H);
    for (int format : {0, 2, 4}) {
        for (int id : {0, 1, 2, 3}) {
            callers.push_back([&, format, id] {
                Bytes out(2 * W * H);
                return orEmpty(TRV_ToneEnhance(input, image.size(), out.data(), out.size(), W, H, format, id, 120), out);
            });
            expected.emplace_back(2 * W * H);
            gOUTFormat = format;
            xImgEnhance_YCrCb(input, expected.back().data(), W, H, id, 120);
        }
    }
    ASSERT_FALSE(expected[0].empty());
    for (size_t c = 0; c < callers.size(); ++c) {
        gW = 640, gH = 8, gOUTFormat = 1;
        EXPECT_EQ(callers[c](), expected[c]) << "caller " << c << " alone";
    }
    std::vector<int> mismatches(callers.size(), 0);
    std::vector<std::thread> threads;
    for (size_t c = 0; c < callers.size(); ++c)
        threads.emplace_back([&, c] {
            for (int round = 0; round < 2; ++round) mismatches[c] += callers[c]() != expected[c];
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(callers.size(), 0));
    EXPECT_EQ(image, textured420(W, H, 5));
}

}  // namespace
