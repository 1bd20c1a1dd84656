// The validated entry point as an integrator uses it: refusals with their
// status and message, delivery for every input layout, and the report.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/burst.h"

namespace {

using trvtest::Burst;
using trvtest::noisyScene;

// A report the library has not touched.
_tag_TRV_FUSE_REPORT untouchedReport() {
    _tag_TRV_FUSE_REPORT report;
    memset(&report, 0xEE, sizeof report);
    return report;
}

// Every row spoils one thing of an accepted two-frame 64 x 64 burst (the
// smallest size accepted); the refusal writes neither output nor report.
TEST(FuseBurstRefusal, EveryBadArgumentHasItsStatusAndWritesNothing) {
    auto size = [](int w, int h) {
        return [=](Burst& b) {
            for (auto& p : b.pics) p.width = w, p.height = h;
        };
    };
    const struct {
        const char* name;
        std::function<void(Burst&)> spoil;
        int32_t expected;
    } cases[] = {
        {"frame record null", [](Burst& b) { b.in.pics[1] = nullptr; }, TRV_FUSE_NULL_ARGUMENT},
        {"frame data null", [](Burst& b) { b.pics[1].data = nullptr; }, TRV_FUSE_NULL_ARGUMENT},
        {"output data null", [](Burst& b) { b.out.data = nullptr; }, TRV_FUSE_NULL_ARGUMENT},
        {"no frame", [](Burst& b) { b.in.picNum = 0; }, TRV_FUSE_BAD_FRAME_COUNT},
        {"seven frames", [](Burst& b) { b.in.picNum = 7; }, TRV_FUSE_BAD_FRAME_COUNT},
        {"last frame narrower", [](Burst& b) { b.pics[1].width -= 2; }, TRV_FUSE_UNEQUAL_SIZES},
        {"last frame taller", [](Burst& b) { b.pics[1].height += 2; }, TRV_FUSE_UNEQUAL_SIZES},
        {"62 wide", size(62, 64), TRV_FUSE_BAD_SIZE},
        {"62 high", size(64, 62), TRV_FUSE_BAD_SIZE},
        {"odd width", size(65, 64), TRV_FUSE_BAD_SIZE},
        {"odd height", size(64, 65), TRV_FUSE_BAD_SIZE},
        {"2 W H past 31 bits", size(65536, 32768), TRV_FUSE_BAD_SIZE},
        {"input code 3", [](Burst& b) { b.param.inputFormat = 3; }, TRV_FUSE_BAD_INPUT_FORMAT},
        {"output code 0", [](Burst& b) { b.param.outputFormat = 0; }, TRV_FUSE_BAD_OUTPUT_FORMAT},
        {"output a byte short", [](Burst& b) { b.result.pop_back(); }, TRV_FUSE_OUTPUT_TOO_SMALL},
        {"nothing spoilt", [](Burst&) {}, TRV_FUSE_OK},
    };
    const auto scene = noisyScene(2, 64, 64, 7);
    for (const auto& c : cases) {
        Burst b(scene, 4);
        c.spoil(b);
        const std::vector<uint8_t> before = b.result;
        _tag_TRV_FUSE_REPORT report = untouchedReport();
        EXPECT_EQ(b.fuse(&report), c.expected) << c.name;
        if (c.expected == TRV_FUSE_OK) continue;
        EXPECT_EQ(b.result, before) << c.name << ": output written";
        EXPECT_EQ(report.reference, static_cast<int32_t>(0xEEEEEEEE)) << c.name << ": report written";
    }
    Burst b(scene, 4);
    EXPECT_EQ(TRV_FuseBurst(nullptr, &b.param, &b.out, b.result.size(), nullptr), TRV_FUSE_NULL_ARGUMENT);
    EXPECT_EQ(TRV_FuseBurst(&b.in, nullptr, &b.out, b.result.size(), nullptr), TRV_FUSE_NULL_ARGUMENT);
    EXPECT_EQ(TRV_FuseBurst(&b.in, &b.param, nullptr, b.result.size(), nullptr), TRV_FUSE_NULL_ARGUMENT);
    EXPECT_EQ(TRV_FuseOutputBytes(96, 64), 9216u);
    EXPECT_EQ(TRV_FuseOutputBytes(96, -2), 0u);
}

// The header's 23 statuses, each with its own one-line text; 1, the
// rejected format of TRV_Enhancement, is none of them.
TEST(StatusText, EveryStatusHasItsOwnOneLineMessage) {
    std::set<std::string> texts;
    for (int32_t status = -1; status < 1000; ++status) {
        const std::string text = TRV_StatusText(status);
        if (text == "unknown status") continue;
        EXPECT_TRUE(texts.insert(text).second && text.find('\n') == std::string::npos) << text;
    }
    EXPECT_EQ(texts.size(), 23u);
    EXPECT_STREQ(TRV_StatusText(1), "unknown status");
}

// Bursts of every size class stay inside the caller's buffers (the address
// sanitizer build fuses every even side from 64 to 132, the other side 96,
// in every layout) and write every output byte the same way whatever the
// buffer held before. The other builds take the sides 66, 68 and 82, where
// seven tiles of an eighth of a side, rounded up to even, already pass the
// edge, in every layout, and one side of every other class mod 16 in one.
TEST(FuseBurstDelivery, EveryEvenSizeStaysInsideAndIsDeterministic) {
    const std::vector<int> every = {0, 1, 2, 4};
    std::vector<std::pair<int, std::vector<int>>> sides;  // a side and the layouts it is fused in
#if defined(TRV_FULL_SIZE_SWEEP)
    for (int side = 64; side <= 132; side += 2) sides.push_back({side, every});
#else
    sides = {{66, every}, {68, every}, {82, every}, {72, {0}}, {86, {4}}, {90, {1}}, {94, {4}}, {96, {0}}, {124, {2}}};
#endif
    int burst = 0;
    for (const auto& [side, codes] : sides) {
        for (auto [w, h] : {std::pair{side, 96}, {96, side}}) {
            for (int reach : {0, 5}) {
                const auto planes = noisyScene(2 + burst % 5, w, h, 40u + static_cast<uint32_t>(burst), reach);
                ++burst;
                for (int code : codes) {
                    Burst zeros(planes, code, 0x00), ones(planes, code, 0xFF);
                    ASSERT_EQ(zeros.fuse(), TRV_FUSE_OK);
                    ASSERT_EQ(ones.fuse(), TRV_FUSE_OK);
                    ASSERT_EQ(zeros.result, ones.result) << w << "x" << h << " code " << code << " reach " << reach;
                }
            }
        }
    }
}

// A single frame, or one left alone when the sharpness check drops the
// flat others, is converted: the exact 4:2:0 frame in the input's chroma
// order, delivered for every layout (TRV_Enhancement itself delivers only for
// code 4). Frames that are all flat have no edges at all: the blur check's
// ratio is 0/0, reported as 0, and every frame is kept.
TEST(FuseBurstReport, SingleFrameForEveryLayoutAndFeaturelessBursts) {
    auto planes = noisyScene(3, 64, 64, 7);
    for (int i : {1, 2}) std::fill(planes[i].y.begin(), planes[i].y.end(), 100);
    for (int code : {0, 1, 2, 4}) {
        for (int frames : {1, 3}) {
            Burst b({planes.begin(), planes.begin() + frames}, code);
            _tag_TRV_FUSE_REPORT report = untouchedReport();
            ASSERT_EQ(b.fuse(&report), TRV_FUSE_OK) << code;
            EXPECT_EQ(b.result, trvtest::toSemiPlanar420(planes[0])) << code;
            EXPECT_EQ(std::vector<int32_t>({b.out.width, b.out.height, report.reference, report.framesFused,
                                            report.frameOrder[0], report.vectorX[0], report.vectorY[0]}),
                      std::vector<int32_t>({64, 64, 0, 1, 0, 0, 0}));
            const int32_t dropped = frames > 1 ? TRV_FRAME_BLURRED : 0;
            EXPECT_EQ(std::vector<int32_t>(report.frameFate, report.frameFate + 4),
                      (std::vector<int32_t>{TRV_FRAME_FUSED, dropped, dropped, 0}));
            EXPECT_EQ(report.sharpnessRatio, 0.0f);
        }
    }
    Burst flat({planes[1], planes[2], planes[1]}, 4);
    _tag_TRV_FUSE_REPORT report = untouchedReport();
    ASSERT_EQ(flat.fuse(&report), TRV_FUSE_OK);
    EXPECT_EQ(report.sharpnessRatio, 0.0f);  // also false for NaN
    EXPECT_EQ(report.meanLuma, 100);
    for (int i = 0; i < 3; ++i) EXPECT_NE(report.frameFate[i], TRV_FRAME_BLURRED) << i;
}

}  // namespace
