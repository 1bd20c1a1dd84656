// The entry points around the pipeline: version, defaults, format
// validation, the parameter dump's labels and the dump files.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "pipeline/labels.h"
#include "support/layouts.h"
#include "trv/stages.h"

namespace {

std::string readFile(const std::string& path) {
    std::string text;
    if (FILE* f = fopen(path.c_str(), "rb")) {
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
        fclose(f);
    }
    return text;
}

bool dumpDirWritable() { return access(TRV_DUMP_DIR, W_OK) == 0; }

// A one-frame burst in a given layout with a caller-owned output buffer.
struct OneFrame {
    static constexpr int W = 32, H = 16;
    trvtest::Planes422 planes = trvtest::randomPlanes(W, H, 42);
    std::vector<uint8_t> frame;
    std::vector<uint8_t> result = std::vector<uint8_t>(W * H * 3 / 2, 0x5A);
    __tag_TRV_OFFSCREEN pic{0, W, H, nullptr};
    __tag_TRV_OFFSCREEN out{0, 0, 0, nullptr};
    _tag_TRV_INPUTINFO in{};
    _tag_TRV_PARAM param{};
    explicit OneFrame(int code) : frame(trvtest::toLayout(planes, code)) {
        if (frame.empty()) frame.assign(W * H * 2, 100);
        pic.data = frame.data();
        out.data = result.data();
        in.picNum = 1;
        in.pics[0] = &pic;
        TRV_GetDefaultParam(&param);
        param.inputFormat = code;
    }
    int run() { return TRV_Enhancement(&in, &out, &param, nullptr); }
};

TEST(Interface, VersionDefaultsAndLifecycle) {
    _tag_TRV_Version v{};
    TRV_GetVersion(&v);
    EXPECT_EQ(v.iMajor + v.iMinor + v.iRevision + v.iBuild, 4);
    EXPECT_STREQ(v.version, "1.9");
    EXPECT_STREQ(v.date, "2015-06-18");
    ASSERT_NE(v.notice, nullptr);

    _tag_TRV_PARAM p{};
    p.intensity = 5;
    p.reserved = 77;
    p.dump = 1;
    EXPECT_EQ(TRV_GetDefaultParam(&p), 0);
    EXPECT_EQ(p.inputFormat, 1);
    EXPECT_EQ(p.outputFormat, 4);
    EXPECT_EQ(p.dump, 0);
    EXPECT_EQ(p.intensity, 5);
    EXPECT_EQ(p.reserved, 77u);
    EXPECT_EQ(TRV_Init(), 0);
    EXPECT_EQ(TRV_Uninit(), 0);
}

TEST(Interface, FormatCodesAboveFiveAreRejectedAfterBeingRecorded) {
    OneFrame burst(4);
    burst.param.inputFormat = 6;
    EXPECT_EQ(burst.run(), 1);
    EXPECT_EQ(gINFormat, 6);
    EXPECT_EQ(gIsNormalLuminance, 1);
    burst.param.inputFormat = 4;
    burst.param.outputFormat = 6;
    EXPECT_EQ(burst.run(), 1);
    EXPECT_EQ(gOUTFormat, 6);
    EXPECT_EQ(burst.result, std::vector<uint8_t>(burst.result.size(), 0x5A)) << "nothing written";
    // Negative codes pass validation; code -1 has no conversion of its own.
    burst.param.inputFormat = -1;
    burst.param.outputFormat = -7;
    EXPECT_EQ(burst.run(), 0);
    EXPECT_EQ(burst.out.width, OneFrame::W);
    EXPECT_EQ(burst.out.height, OneFrame::H);
    EXPECT_EQ(burst.result, std::vector<uint8_t>(burst.result.size(), 0x5A));
    for (int code : {3, 5}) {
        burst.param.inputFormat = code;
        burst.param.outputFormat = 4;
        EXPECT_EQ(burst.run(), 0) << code;
    }
}

TEST(Interface, DumpLabels) {
    EXPECT_STREQ(trv::inputFormatLabel(1), "INPUT_FORMAT_NV_16");
    EXPECT_STREQ(trv::outputFormatLabel(1), "INPUT_FORMAT_UNKNOWN");
    EXPECT_STREQ(trv::inputFormatLabel(0), "INPUT_FORMAT_YV_16");
    EXPECT_STREQ(trv::outputFormatLabel(0), "OUTPUT_FORMAT_YV_16");
    EXPECT_STREQ(trv::inputFormatLabel(2), "INPUT_FORMAT_YUV_422");
    EXPECT_STREQ(trv::outputFormatLabel(2), "OUTPUT_FORMAT_YUV_422");
    EXPECT_STREQ(trv::inputFormatLabel(4), "INPUT_FORMAT_NV_21");
    EXPECT_STREQ(trv::outputFormatLabel(4), "OUTPUT_FORMAT_NV_21");
    for (int code : {3, 5, -1}) {
        EXPECT_STREQ(trv::inputFormatLabel(code), "INPUT_FORMAT_UNKNOWN");
        EXPECT_STREQ(trv::outputFormatLabel(code), "INPUT_FORMAT_UNKNOWN");
    }
    const char* expected[8] = {"INTENSITY_LEVEL_4", "INTENSITY_LEVEL_3", "INTENSITY_LEVEL_4", "INTENSITY_LEVEL_5",
                               "INTENSITY_LEVEL_3", "INTENSITY_LEVEL_4", "INTENSITY_LEVEL_5", "INTENSITY_LEVEL_4"};
    for (int intensity = 0; intensity < 8; ++intensity)
        EXPECT_STREQ(trv::intensityLabel(intensity), expected[intensity]) << intensity;
}

TEST(Interface, DumpsParameterLineFramesAndResult) {
    if (!dumpDirWritable()) GTEST_SKIP() << "dump folder " TRV_DUMP_DIR " not writable";
    const std::string dir = TRV_DUMP_DIR;
    OneFrame burst(1);
    burst.param.dump = 1;
    burst.param.intensity = 2;
    ASSERT_EQ(burst.run(), 0);
    EXPECT_EQ(readFile(dir + "KP_Param.txt"),
              "version 1.9 date 2015-06-18 INFormat INPUT_FORMAT_NV_16 OUTFormat OUTPUT_FORMAT_NV_21 "
              "intensity INTENSITY_LEVEL_4");
    EXPECT_EQ(readFile(dir + "O1.yuv"), std::string(burst.frame.begin(), burst.frame.end()));
    // Input code 1 never reaches the caller: the result dump holds the
    // caller's untouched luma.
    EXPECT_EQ(readFile(dir + "TRV_RESULT.yuv"), std::string(OneFrame::W * OneFrame::H, '\x5A'));

    // A 4:2:0 frame is dumped at the 4:2:2 size, zero-padded instead of
    // reading past the caller's frame; its result dump is the converted luma.
    OneFrame nv21(4);
    nv21.param.dump = 1;
    nv21.param.intensity = 4;
    ASSERT_EQ(nv21.run(), 0);
    std::string dumped = readFile(dir + "O1.yuv");
    ASSERT_EQ(dumped.size(), static_cast<size_t>(OneFrame::W * OneFrame::H * 2));
    EXPECT_EQ(dumped.substr(0, nv21.frame.size()), std::string(nv21.frame.begin(), nv21.frame.end()));
    EXPECT_EQ(dumped.substr(nv21.frame.size()), std::string(OneFrame::W * OneFrame::H / 2, '\0'));
    EXPECT_EQ(readFile(dir + "TRV_RESULT.yuv"), std::string(nv21.planes.y.begin(), nv21.planes.y.end()));
    EXPECT_NE(readFile(dir + "KP_Param.txt").find("intensity INTENSITY_LEVEL_3"), std::string::npos);
}

TEST(Interface, BadArgumentsNeverCrash) {
    _tag_TRV_PARAM param{};
    TRV_GetDefaultParam(&param);
    param.inputFormat = 4;
    EXPECT_EQ(TRV_Enhancement(nullptr, nullptr, &param, nullptr), 0);
    EXPECT_EQ(TRV_Enhancement(nullptr, nullptr, nullptr, nullptr), 0);
    _tag_TRV_INPUTINFO empty{};
    EXPECT_EQ(TRV_Enhancement(&empty, nullptr, &param, nullptr), 0);

    OneFrame burst(4);
    burst.out.data = nullptr;  // "out memory empty"
    EXPECT_EQ(burst.run(), 0);
    burst.out.data = burst.result.data();
    burst.pic.data = nullptr;  // "in memory empty"
    EXPECT_EQ(burst.run(), 0);
    burst.pic.data = burst.frame.data();
    burst.in.picNum = 0;
    EXPECT_EQ(burst.run(), 0);
    // More than six frames: the first six are used.
    burst.in.picNum = 9;
    for (int i = 1; i < 6; ++i) burst.in.pics[i] = &burst.pic;
    EXPECT_EQ(burst.run(), 0);
    // Degenerate sizes.
    for (auto [w, h] : {std::pair{0, 0}, {2, 2}, {-4, 8}, {8, -4}, {5, 3}}) {
        burst.in.picNum = 1;
        burst.pic.width = w;
        burst.pic.height = h;
        EXPECT_EQ(burst.run(), 0) << w << "x" << h;
    }
}

}  // namespace
