// The validated stand-alone operations as an integrator uses them: every
// refusal with its own status and nothing written, and the raw operation's
// result whatever frame state an earlier call left behind.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/layouts.h"
#include "trv/stages.h"
#include "trv/trv.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes textured420(int w, int h, uint32_t seed) { return trvtest::toSemiPlanar420(trvtest::texturedPlanes(w, h, seed)); }

TEST(StandaloneRefusal, EveryBadArgumentHasItsOwnStatusAndWritesNothing) {
    constexpr int W = 34, H = 18;
    const size_t frame = W * H * 3 / 2, plane = W * H;
    Bytes image = textured420(W, H, 3), out(2 * W * H, 0x5A), big(4 * W * H, 0x11);
    const Bytes imageBefore = image, outBefore = out, bigBefore = big;
    uint8_t* in = image.data();
    uint8_t* o = out.data();
    auto retinex = [&](uint8_t* f, size_t cap, int w, int h) { return [=] { return TRV_Retinex(f, cap, w, h); }; };
    auto blur = [&](const uint8_t* i, size_t ic, uint8_t* d, size_t oc, int w, int h) {
        return [=] { return TRV_Blur(i, ic, d, oc, w, h); };
    };
    auto tone = [&](const uint8_t* i, size_t ic, uint8_t* d, size_t oc, int w, int h, int fmt, int id) {
        return [=] { return TRV_ToneEnhance(i, ic, d, oc, w, h, fmt, id, 50); };
    };
    const struct {
        std::function<int32_t()> call;
        int32_t expected;
    } cases[] = {
        {retinex(nullptr, frame, W, H), TRV_RETINEX_NULL_ARGUMENT},
        {retinex(in, frame, W - 1, H), TRV_RETINEX_BAD_SIZE},
        {retinex(in, frame, W, 0), TRV_RETINEX_BAD_SIZE},
        {retinex(in, frame, -W, H), TRV_RETINEX_BAD_SIZE},
        {retinex(in, SIZE_MAX, 65536, 16384), TRV_RETINEX_BAD_SIZE},
        {retinex(in, frame - 1, W, H), TRV_RETINEX_FRAME_TOO_SMALL},
        {blur(nullptr, plane, o, plane, W, H), TRV_BLUR_NULL_ARGUMENT},
        {blur(in, plane, nullptr, plane, W, H), TRV_BLUR_NULL_ARGUMENT},
        {blur(in, plane, o, plane, 0, H), TRV_BLUR_BAD_SIZE},
        {blur(in, SIZE_MAX, o, SIZE_MAX, 46341, 23171), TRV_BLUR_BAD_SIZE},
        {blur(in, plane - 1, o, plane, W, H), TRV_BLUR_INPUT_TOO_SMALL},
        {blur(in, plane, o, plane - 1, W, H), TRV_BLUR_OUTPUT_TOO_SMALL},
        {blur(big.data(), plane, big.data() + plane - 1, plane, W, H), TRV_BLUR_OVERLAP},
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
        EXPECT_EQ(image, imageBefore) << "case " << k;
        EXPECT_EQ(out, outBefore) << "case " << k;
        EXPECT_EQ(big, bigBefore) << "case " << k;
    }
    // The smallest frames are accepted: one chroma pair, one pixel.
    EXPECT_EQ(TRV_Retinex(in, frame, 2, 2), TRV_FUSE_OK);
    EXPECT_EQ(TRV_Blur(in, plane, o, plane, 1, 1), TRV_FUSE_OK);
    EXPECT_EQ(TRV_ToneEnhance(in, frame, o, 2 * plane, 2, 2, 2, 1, 50), TRV_FUSE_OK);
}

// Each entry sets the frame state its operation reads from its own
// arguments: stale state from another frame changes nothing.
TEST(StandaloneResult, RawOperationResultOnTheEntrysOwnFrameState) {
    for (auto [w, h] : {std::pair{96, 64}, std::pair{50, 22}}) {
        const Bytes image = textured420(w, h, static_cast<uint32_t>(w));
        const size_t frame = image.size();
        auto staleState = [] { gW = 640, gH = 8, gOUTFormat = 1; };

        Bytes entry = image, raw = image;
        staleState();
        ASSERT_EQ(TRV_Retinex(entry.data(), frame, w, h), TRV_FUSE_OK);
        gW = w, gH = h;
        MSR(raw.data(), w, h);
        EXPECT_EQ(entry, raw) << w << "x" << h;

        Bytes blurred(static_cast<size_t>(w) * h), rawBlurred(blurred.size());
        Bytes input = image;
        ASSERT_EQ(TRV_Blur(input.data(), blurred.size(), blurred.data(), blurred.size(), w, h), TRV_FUSE_OK);
        MultiBlur(input.data(), rawBlurred.data(), w, h);
        EXPECT_EQ(blurred, rawBlurred) << w << "x" << h;
        EXPECT_EQ(input, image) << "the blur wrote its input";

        for (int format : {0, 2, 4}) {
            for (int id : {0, 1, 2, 3}) {
                Bytes toned(2 * static_cast<size_t>(w) * h, 0x5A), rawToned = toned;
                staleState();
                ASSERT_EQ(TRV_ToneEnhance(input.data(), frame, toned.data(), toned.size(), w, h, format, id, 120),
                          TRV_FUSE_OK);
                gW = w, gH = h, gOUTFormat = format;
                xImgEnhance_YCrCb(input.data(), rawToned.data(), w, h, id, 120);
                EXPECT_EQ(toned, rawToned) << w << "x" << h << " format " << format << " id " << id;
                EXPECT_EQ(input, image) << "the tone enhancement wrote its input";
            }
        }
    }
}

}  // namespace
