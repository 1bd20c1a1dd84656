// Single-frame conversion to 4:2:0, checked byte for byte against the
// independent layout conversion of the test support, and through the driver.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "pipeline/driver.h"
#include "pipeline/single_frame.h"
#include "support/layouts.h"
#include "trv/stages.h"

namespace {

TEST(SingleFrame, EveryLayoutConvertsLikeTheReferenceConversion) {
    for (int code : {0, 1, 2, 4}) {
        for (auto [w, h] : {std::pair{64, 48}, {38, 22}, {2, 2}}) {
            auto planes = trvtest::randomPlanes(w, h, static_cast<uint32_t>(code * 100 + w));
            auto input = trvtest::toLayout(planes, code);
            std::vector<uint8_t> out(trv::singleFrameOutputBytes(w, h), 0xCD);
            trv::convertSingleFrame(code, input.data(), out.data(), w, h);
            EXPECT_EQ(out, trvtest::toSemiPlanar420(planes)) << "code " << code << " " << w << "x" << h;
        }
    }
}

TEST(SingleFrame, CodesWithoutLayoutLeaveOutputUnwritten) {
    std::vector<uint8_t> input(64 * 64 * 2, 9), out(trv::singleFrameOutputBytes(64, 64), 0xCD);
    for (int code : {3, 5, -1}) {
        trv::convertSingleFrame(code, input.data(), out.data(), 64, 64);
        for (uint8_t v : out) ASSERT_EQ(v, 0xCD);
    }
}

TEST(SingleFrame, OddHeightStaysInsideBuffers) {
    // An odd height adds a chroma row from the last (even) input row; the
    // packed converter converts that last row alone instead of pairing it
    // with a row past the frame. Exact-size vectors let ASan see overruns.
    for (int code : {0, 1, 2}) {
        const int w = 10, h = 7;
        std::vector<uint8_t> input(static_cast<size_t>(w) * h * 2);
        for (size_t i = 0; i < input.size(); ++i) input[i] = static_cast<uint8_t>(i);
        std::vector<uint8_t> out(trv::singleFrameOutputBytes(w, h), 0);
        ASSERT_EQ(out.size(), static_cast<size_t>(w * h + 4 * w));
        trv::convertSingleFrame(code, input.data(), out.data(), w, h);
        // Luma of the last row and chroma row 3 (from input row 6).
        if (code == 2) {
            EXPECT_EQ(out[6 * w + 1], input[6 * 2 * w + 2]);
            EXPECT_EQ(out[w * h + 3 * w], input[6 * 2 * w + 1]);
        } else {
            EXPECT_EQ(out[6 * w + 1], input[6 * w + 1]);
        }
    }
}

TEST(SingleFrame, OddWidthStaysInsideBuffers) {
    for (int code : {0, 1, 2}) {
        const int w = 9, h = 6;
        std::vector<uint8_t> input(static_cast<size_t>(w) * h * 2, 50);
        std::vector<uint8_t> out(trv::singleFrameOutputBytes(w, h), 0);
        trv::convertSingleFrame(code, input.data(), out.data(), w, h);
        EXPECT_EQ(out[0], 50);
    }
}

// The driver on a one-frame burst: code 4 reaches the caller's buffer, the
// other codes work in a temporary buffer and leave the caller's untouched,
// while the internal delivery hook sees the converted frame.
TEST(SingleFrame, DriverDeliversOnlyNV21ToTheCaller) {
    const int w = 96, h = 64;
    for (int code : {0, 1, 2, 4}) {
        auto planes = trvtest::randomPlanes(w, h, static_cast<uint32_t>(7 + code));
        auto input = trvtest::toLayout(planes, code);
        __tag_TRV_OFFSCREEN pic = {0, w, h, input.data()};
        std::vector<uint8_t> result(w * h * 3 / 2, 0xAA);
        __tag_TRV_OFFSCREEN out = {0, 0, 0, result.data()};
        _tag_TRV_INPUTINFO in = {};
        in.picNum = 1;
        in.pics[0] = &pic;
        _tag_TRV_PARAM param = {};
        TRV_GetDefaultParam(&param);
        param.inputFormat = code;
        ASSERT_EQ(TRV_Enhancement(&in, &out, &param, nullptr), 0);
        if (code == 4) {
            EXPECT_EQ(result, trvtest::toSemiPlanar420(planes));
        } else {
            EXPECT_EQ(result, std::vector<uint8_t>(w * h * 3 / 2, 0xAA)) << "code " << code;
        }
        std::vector<uint8_t> delivered(trv::singleFrameOutputBytes(w, h), 0);
        trv::BurstReport report;
        ASSERT_EQ(trv::enhanceBurst(&in, &out, &param, delivered.data(), &report), 0);
        EXPECT_EQ(delivered, trvtest::toSemiPlanar420(planes)) << "code " << code;
        EXPECT_EQ(report.reference, 0);
        EXPECT_EQ(report.framesFused, 1);
    }
}

}  // namespace
