// The entry points around the pipeline: version, defaults, format
// validation and delivery, the parameter dump's labels and the dump files.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "pipeline/driver.h"
#include "pipeline/labels.h"
#include "support/burst.h"
#include "trv/stages.h"

namespace {

using trvtest::Burst;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

int enhance(Burst& b) { return TRV_Enhancement(&b.in, &b.out, &b.param, nullptr); }

const std::vector<trvtest::Planes422> kFrame = {trvtest::randomPlanes(32, 16, 42)};

// The version's texts are pinned by the dump line below.
TEST(Interface, DefaultsLeaveIntensityAndReservedField) {
    _tag_TRV_PARAM p{};
    p.intensity = 5, p.reserved = 77, p.dump = 1;
    EXPECT_EQ(TRV_GetDefaultParam(&p), 0);
    EXPECT_EQ(std::vector<int64_t>({p.inputFormat, p.outputFormat, p.dump, p.intensity, p.reserved}),
              std::vector<int64_t>({1, 4, 0, 5, 77}));
}

// Codes above five are rejected after being recorded; every other code is
// accepted, and only code 4 puts a single frame into the caller's buffer.
TEST(Interface, FormatCodesAndSingleFrameDelivery) {
    const struct {
        int in, out, status;
    } cases[] = {{6, 4, 1}, {4, 6, 1}, {-1, -7, 0}, {3, 4, 0}, {5, 4, 0}, {0, 4, 0}, {1, 4, 0}, {2, 4, 0}, {4, 4, 0}};
    for (const auto& c : cases) {
        Burst b(kFrame, c.in >= 0 && c.in <= 2 ? c.in : 4);  // codes without layout read NV21 bytes
        b.param.inputFormat = c.in, b.param.outputFormat = c.out;
        EXPECT_EQ(enhance(b), c.status) << c.in << " " << c.out;
        EXPECT_EQ(std::vector<int>({gINFormat, gOUTFormat, b.out.width}), std::vector<int>({c.in, c.out, c.status ? 0 : 32}));
        const bool delivered = c.in == 4 && c.status == 0;
        EXPECT_EQ(b.result, delivered ? trvtest::toSemiPlanar420(kFrame[0]) : std::vector<uint8_t>(b.result.size(), 0x5A))
            << c.in << " " << c.out;
    }
}

// 1 and 4 share a label, as do 3 and 6; output code 1 has none of its own.
TEST(Interface, DumpLabels) {
    for (auto [code, in, out] : {std::tuple{0, "YV_16", "OUTPUT_FORMAT_YV_16"}, {1, "NV_16", "INPUT_FORMAT_UNKNOWN"},
                                 {2, "YUV_422", "OUTPUT_FORMAT_YUV_422"}, {3, "UNKNOWN", "INPUT_FORMAT_UNKNOWN"},
                                 {4, "NV_21", "OUTPUT_FORMAT_NV_21"}, {-1, "UNKNOWN", "INPUT_FORMAT_UNKNOWN"}}) {
        EXPECT_EQ(trv::inputFormatLabel(code), "INPUT_FORMAT_" + std::string(in)) << code;
        EXPECT_STREQ(trv::outputFormatLabel(code), out) << code;
    }
    std::string levels;
    for (int intensity = 0; intensity < 8; ++intensity) levels += trv::intensityLabel(intensity) + std::string(" ");
    EXPECT_EQ(levels, "INTENSITY_LEVEL_4 INTENSITY_LEVEL_3 INTENSITY_LEVEL_4 INTENSITY_LEVEL_5 "
                      "INTENSITY_LEVEL_3 INTENSITY_LEVEL_4 INTENSITY_LEVEL_5 INTENSITY_LEVEL_4 ");
}

TEST(Interface, DumpsParameterLineFramesAndResult) {
    if (access(TRV_DUMP_DIR, W_OK) != 0) GTEST_SKIP() << "dump folder " TRV_DUMP_DIR " not writable";
    const std::string dir = TRV_DUMP_DIR, untouched(32 * 16, '\x5A');
    Burst nv16(kFrame, 1), nv21(kFrame, 4);
    nv16.param.dump = nv21.param.dump = 1;
    nv16.param.intensity = 2, nv21.param.intensity = 4;
    ASSERT_EQ(enhance(nv16), 0);
    EXPECT_EQ(readFile(dir + "KP_Param.txt"),
              "version 1.9 date 2015-06-18 INFormat INPUT_FORMAT_NV_16 OUTFormat OUTPUT_FORMAT_NV_21 "
              "intensity INTENSITY_LEVEL_4");
    EXPECT_EQ(readFile(dir + "O1.yuv"), std::string(nv16.frames[0].begin(), nv16.frames[0].end()));
    // Input code 1 never reaches the caller: the result dump holds the
    // caller's untouched luma.
    EXPECT_EQ(readFile(dir + "TRV_RESULT.yuv"), untouched);
    // A 4:2:0 frame is dumped at the 4:2:2 size, zero-padded instead of
    // reading past the caller's frame; its result dump is the converted luma.
    ASSERT_EQ(enhance(nv21), 0);
    const std::string frame(nv21.frames[0].begin(), nv21.frames[0].end());
    EXPECT_EQ(readFile(dir + "O1.yuv"), frame + std::string(32 * 16 / 2, '\0'));
    EXPECT_EQ(readFile(dir + "TRV_RESULT.yuv"), frame.substr(0, 32 * 16));
    EXPECT_NE(readFile(dir + "KP_Param.txt").find("intensity INTENSITY_LEVEL_3"), std::string::npos);
}

// Missing pieces and degenerate sizes are logged and return 0; a burst of
// more than six frames is cut to its first six.
TEST(Interface, BadArgumentsNeverCrash) {
    EXPECT_EQ(TRV_Enhancement(nullptr, nullptr, nullptr, nullptr), 0);
    auto size = [](int w, int h) { return [=](Burst& b) { b.pics[0].width = w, b.pics[0].height = h; }; };
    const std::function<void(Burst&)> spoilers[] = {
        [](Burst& b) { b.in.pics[0] = nullptr; },  // "in memory empty"
        [](Burst& b) { b.pics[0].data = nullptr; },
        [](Burst& b) { b.out.data = nullptr; },  // "out memory empty"
        [](Burst& b) { b.in.picNum = 0; },
        [](Burst& b) { b.in.picNum = 9, std::fill(b.in.pics + 1, b.in.pics + 6, &b.pics[0]); },
        size(0, 0), size(2, 2), size(-4, 8), size(8, -4), size(5, 3),
    };
    for (const auto& spoil : spoilers) {
        Burst b(kFrame, 4);
        spoil(b);
        EXPECT_EQ(enhance(b), 0);
    }
    Burst b(kFrame, 4);
    EXPECT_EQ(TRV_Enhancement(nullptr, nullptr, &b.param, nullptr), 0);
}

// Until fusion writes the output frame, it holds the motion search's luma
// crop and lattice images (where they fit: from about 320 x 240 on); fusion
// then writes every byte of it, in every layout: the same bursts fused into
// 0xFF with the loan and into 0x00 without it give the same bytes.
TEST(OutputLoan, FusionOverwritesEveryLentByte) {
    for (auto [w, h, code] : {std::tuple{320, 240, 0}, {330, 246, 4}, {322, 240, 2}, {340, 252, 1}}) {
        const trvtest::Planes422 scene = trvtest::texturedPlanes(w, h, 5);
        const std::vector<trvtest::Planes422> planes = {scene, trvtest::shifted(scene, 3, -2),
                                                        trvtest::shifted(scene, -4, 1)};
        Burst lent(planes, code, 0xFF), own(planes, code, 0x00);
        ASSERT_EQ(lent.fuse(), TRV_FUSE_OK);
        trv::gLendOutputToSearch = false;
        ASSERT_EQ(own.fuse(), TRV_FUSE_OK);
        trv::gLendOutputToSearch = true;
        EXPECT_EQ(lent.result, own.result) << w << "x" << h << " code " << code;
    }
}

}  // namespace
