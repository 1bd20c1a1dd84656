// The trv tool: its colour conversion, burst synthesis and metrics against
// hand-computed values, and the binary end to end, errors included.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "burst_synth.h"
#include "image_io.h"
#include "metrics.h"
#include "support/layouts.h"
#include "support/synthetic.h"
#include "yuv.h"

namespace {

using namespace trvtool;

TEST(ToolColour, Bt601FullRangeKnownColours) {
    RgbImage image;
    image.width = 4;
    image.height = 1;
    image.rgb = {255, 255, 255, 0, 0, 0, 255, 0, 0, 0, 0, 255};
    const Yuv444 p = rgbToYuv444(image);
    EXPECT_EQ(p.y, (std::vector<uint8_t>{255, 0, 76, 29}));
    EXPECT_EQ(p.cb, (std::vector<uint8_t>{128, 128, 85, 255}));
    EXPECT_EQ(p.cr, (std::vector<uint8_t>{128, 128, 255, 107}));
}

TEST(ToolColour, Nv21RoundTripStaysClose) {
    RgbImage image;
    image.width = 64;
    image.height = 32;
    trvtest::Rng rng(5);
    // Smooth colours: one colour per 2 x 2 block, so chroma subsampling loses nothing.
    image.rgb.resize(64 * 32 * 3);
    std::vector<uint8_t> block(3);
    for (int by = 0; by < 16; ++by)
        for (int bx = 0; bx < 32; ++bx) {
            for (auto& c : block) c = static_cast<uint8_t>(rng.uniform(30, 220));
            for (int dy = 0; dy < 2; ++dy)
                for (int dx = 0; dx < 2; ++dx)
                    for (int c = 0; c < 3; ++c) image.rgb[((2 * by + dy) * 64 + 2 * bx + dx) * 3 + c] = block[c];
        }
    const std::vector<uint8_t> nv21 = yuv444ToNv21(rgbToYuv444(image));
    ASSERT_EQ(nv21.size(), 64u * 32u * 3u / 2u);
    const RgbImage back = nv21ToRgb(nv21.data(), 64, 32);
    for (size_t i = 0; i < image.rgb.size(); ++i) ASSERT_LE(std::abs(back.rgb[i] - image.rgb[i]), 3) << i;
}

TEST(ToolColour, UFirstResultBecomesNv21) {
    std::vector<uint8_t> frame = {1, 2, 3, 4, 5, 6, 7, 8, 10, 20, 30, 40};  // 4x2 luma, one chroma row
    toNv21ChromaOrder(frame, 4, 2, true);
    EXPECT_EQ(frame, (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 20, 10, 40, 30}));
    toNv21ChromaOrder(frame, 4, 2, false);
    EXPECT_EQ(frame[8], 20);
    ASSERT_NE(findRawFormat("yuyv"), nullptr);
    EXPECT_EQ(rawFrameBytes(*findRawFormat("yuyv"), 8, 4), 64u);
    EXPECT_EQ(rawFrameBytes(*findRawFormat("nv21"), 8, 4), 48u);
    EXPECT_EQ(findRawFormat("rgb"), nullptr);
}

TEST(ToolMetrics, HandComputedValues) {
    std::vector<uint8_t> a(32 * 32, 100), b(32 * 32, 101);
    EXPECT_TRUE(std::isinf(lumaPsnr(a.data(), a.data(), 32, 32)));
    EXPECT_NEAR(lumaPsnr(a.data(), b.data(), 32, 32), 20.0 * std::log10(255.0), 1e-9);  // MSE 1
    EXPECT_DOUBLE_EQ(lumaSsim(a.data(), a.data(), 32, 32), 1.0);
    // Flat planes: only the luminance term remains, (2 mu_a mu_b + C1) / (mu_a^2 + mu_b^2 + C1).
    const double c1 = 6.5025;
    EXPECT_NEAR(lumaSsim(a.data(), b.data(), 32, 32), (2.0 * 100 * 101 + c1) / (100.0 * 100 + 101.0 * 101 + c1), 1e-9);
    // Inverted texture: strongly dissimilar.
    std::vector<uint8_t> t = trvtest::texturedPlane(64, 64, 3), inv(t.size());
    for (size_t i = 0; i < t.size(); ++i) inv[i] = static_cast<uint8_t>(255 - t[i]);
    EXPECT_LT(lumaSsim(t.data(), inv.data(), 64, 64), 0.0);
}

TEST(ToolSynthesis, SeededShiftedNoisyAndReproducible) {
    RgbImage image;
    image.width = 96;
    image.height = 64;
    image.rgb = trvtest::randomBytes(96 * 64 * 3, 9);
    const Yuv444 scene = rgbToYuv444(image);
    BurstRecipe recipe;
    recipe.frames = 4;
    recipe.seed = 77;
    recipe.movingObject = false;
    const SyntheticBurst a = synthesiseBurst(scene, recipe), b = synthesiseBurst(scene, recipe);
    EXPECT_EQ(a.noisy, b.noisy);
    recipe.seed = 78;
    EXPECT_NE(synthesiseBurst(scene, recipe).noisy, a.noisy);
    ASSERT_EQ(a.noisy.size(), 4u);
    EXPECT_EQ(a.shiftX[0], 0);
    EXPECT_EQ(a.shiftY[0], 0);
    // Frame 0's ground truth is the darkened scene itself.
    for (int i = 0; i < 96 * 64; ++i)
        ASSERT_EQ(a.clean[0][i], static_cast<uint8_t>(std::floor(scene.y[i] * recipe.exposure + 0.5f))) << i;
    // Noise is there but moderate.
    const double psnr = lumaPsnr(a.noisy[0].data(), a.clean[0].data(), 96, 64);
    EXPECT_GT(psnr, 25.0);
    EXPECT_LT(psnr, 45.0);
}

// ---- the binary ----

struct ToolRun {
    int status;
    std::string output;
};

// shellPrefix runs in the shell first (limits, signal dispositions) and
// should end with "exec ".
ToolRun runTool(const std::string& arguments, const std::string& shellPrefix = "") {
    const std::string command = shellPrefix + std::string(TRV_TOOL_PATH) + " " + arguments + " 2>&1";
    ToolRun run{-1, ""};
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, n);
    const int raw = pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return run;
}

class ToolEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/trv-tool-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }
    std::string path(const std::string& name) const { return dir_ + "/" + name; }
    bool exists(const std::string& name) const { return access(path(name).c_str(), R_OK) == 0; }
    // Every file of the folder with its bytes.
    std::map<std::string, std::vector<uint8_t>> files() const {
        std::map<std::string, std::vector<uint8_t>> all;
        if (DIR* d = opendir(dir_.c_str())) {
            while (const dirent* e = readdir(d)) {
                const std::string name = e->d_name;
                if (name != "." && name != "..") all[name] = readRawFile(path(name));
            }
            closedir(d);
        }
        return all;
    }
    std::string dir_;
};

TEST_F(ToolEndToEnd, FusesRawFramesIntoRawNv21) {
    const trvtest::Planes422 planes = trvtest::randomPlanes(96, 64, 11);
    std::string inputs;
    for (int i = 0; i < 3; ++i) {
        writeRawFile(path("f" + std::to_string(i) + ".yuyv"), trvtest::toLayout(planes, 2));
        inputs += " " + path("f" + std::to_string(i) + ".yuyv");
    }
    const ToolRun run = runTool("fuse --format yuyv --size 96x64 -o " + path("out.nv21") + inputs);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("reference: frame"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("time:"), std::string::npos);
    const std::vector<uint8_t> result = readRawFile(path("out.nv21"));
    ASSERT_EQ(result.size(), 96u * 64u * 3u / 2u);
    // Identical frames: the luma is the frame's own; yuyv's U-first chroma is
    // written V first.
    std::vector<uint8_t> expected = trvtest::toSemiPlanar420(planes);
    EXPECT_TRUE(std::equal(expected.begin(), expected.begin() + 96 * 64, result.begin()));
    if (run.output.find("single-frame output") != std::string::npos) {
        toNv21ChromaOrder(expected, 96, 64, true);
        EXPECT_EQ(result, expected);
    }
}

TEST_F(ToolEndToEnd, FusesPicturesIntoAPicture) {
    RgbImage picture;
    picture.width = 97;  // odd: cropped to 96
    picture.height = 64;
    picture.rgb = trvtest::randomBytes(97 * 64 * 3, 4);
    writePicture(path("a.png"), picture);
    writePicture(path("b.png"), picture);
    const ToolRun run = runTool("fuse -o " + path("out.png") + " " + path("a.png") + " " + path("b.png"));
    ASSERT_EQ(run.status, 0) << run.output;
    const RgbImage out = readPicture(path("out.png"));
    EXPECT_EQ(out.width, 96);
    EXPECT_EQ(out.height, 64);
    EXPECT_NE(run.output.find("wrote " + path("out.png")), std::string::npos) << run.output;
    // The library's own log lines only with --verbose.
    EXPECT_EQ(run.output.find("E/BMQ"), std::string::npos) << run.output;
    const ToolRun verbose = runTool("fuse -o " + path("out.png") + " " + path("a.png") + " --verbose");
    EXPECT_NE(verbose.output.find("E/BMQ: BMQ-Version: 2018-2-24-Normal-BMQ\n"), std::string::npos) << verbose.output;
    for (const char* operation : {"retinex", "tone --id 2"}) {
        ASSERT_EQ(runTool(std::string(operation) + " -o " + path("op.png") + " " + path("a.png")).status, 0) << operation;
        EXPECT_EQ(readPicture(path("op.png")).width, 96) << operation;
    }
}

TEST_F(ToolEndToEnd, DemoWritesPicturesAndPrintsQuality) {
    const ToolRun run = runTool("demo --frames 3 --out " + path("demo"));
    ASSERT_EQ(run.status, 0) << run.output;
    for (const char* name : {"demo/reference.png", "demo/fused.png", "demo/side_by_side.png"})
        EXPECT_TRUE(exists(name)) << name;
    EXPECT_NE(run.output.find("noisy reference  PSNR"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("TRV result       PSNR"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find(path("demo/fused.png")), std::string::npos);
    const RgbImage both = readPicture(path("demo/side_by_side.png"));
    EXPECT_EQ(both.width, 3 * 1024 + 2 * 8);
}

TEST_F(ToolEndToEnd, ErrorsExitNonZeroWithOneLine) {
    writeRawFile(path("short.nv21"), std::vector<uint8_t>(100, 0));
    writeRawFile(path("ok.nv21"), std::vector<uint8_t>(96 * 64 * 3 / 2, 0));
    const struct {
        std::string arguments, message;
    } cases[] = {
        {"fuse -o " + path("o.nv21") + " " + path("missing.nv21"), "missing.nv21"},
        {"fuse --format nv21 --size 96x64 -o " + path("o.nv21") + " " + path("short.nv21"), "100 bytes, expected 9216"},
        {"fuse --format rgb24 --size 96x64 -o " + path("o.nv21") + " " + path("ok.nv21"), "unknown format 'rgb24'"},
        {"fuse --format nv21 --size 96by64 -o " + path("o.nv21") + " " + path("ok.nv21"), "--size"},
        {"fuse -o " + path("o.nv21") + " " + path("ok.nv21"), "need --format and --size"},
        {"fuse --format nv21 --size 32x32 -o " + path("o.nv21") + " " + path("short.nv21"), "expected 1536"},
        {"demo --noise extreme --out " + path("d"), "unknown noise level"},
        {"eval " + path("nothing-here"), "nothing-here"},
        {"frobnicate", "subcommand"},
    };
    for (const auto& c : cases) {
        const ToolRun run = runTool(c.arguments);
        EXPECT_NE(run.status, 0) << c.arguments;
        EXPECT_NE(run.output.find(c.message), std::string::npos) << c.arguments << "\n" << run.output;
    }
    // A burst the library refuses: too small for the pipeline.
    writeRawFile(path("tiny.nv21"), std::vector<uint8_t>(32 * 32 * 3 / 2, 0));
    const ToolRun refused = runTool("fuse --format nv21 --size 32x32 -o " + path("o.nv21") + " " + path("tiny.nv21"));
    EXPECT_NE(refused.status, 0);
    EXPECT_NE(refused.output.find("burst refused: width and height must be even, at least 64"), std::string::npos)
        << refused.output;
}

// A copy of a file's bytes with a PNG chunk's (or JPEG segment's) bytes at
// `at` replaced, the PNG chunk's CRC made right again.
std::vector<uint8_t> patched(std::vector<uint8_t> bytes, size_t at, const std::vector<uint8_t>& with, size_t crcFrom = 0,
                             size_t crcTo = 0) {
    std::copy(with.begin(), with.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    if (crcTo > crcFrom) {
        const uLong crc = crc32(0, bytes.data() + crcFrom, static_cast<uInt>(crcTo - crcFrom));
        for (int k = 0; k < 4; ++k) bytes[crcTo + k] = static_cast<uint8_t>(crc >> (24 - 8 * k));
    }
    return bytes;
}

// Every refusal and every failed write leaves the files that were there as
// they were, and leaves nothing else behind.
TEST_F(ToolEndToEnd, FailuresLeaveExistingFilesIntact) {
    RgbImage picture;
    picture.width = 192;
    picture.height = 128;
    picture.rgb = trvtest::randomBytes(192 * 128 * 3, 6);
    RgbImage wider = picture;
    wider.width = 194;
    wider.rgb.resize(194 * 128 * 3);
    writePicture(path("a.png"), picture);
    writePicture(path("b.png"), picture);
    writePicture(path("wide.png"), wider);
    writePicture(path("a.jpg"), picture);
    writeRawFile(path("f.nv21"), trvtest::toLayout(trvtest::randomPlanes(192, 128, 3), 4));
    // Headers that claim 30000 x 30000 pixels: PNG IHDR width and height
    // (bytes 16..23, CRC over 12..28), JPEG baseline frame height and width.
    const std::vector<uint8_t> png = readRawFile(path("a.png")), jpeg = readRawFile(path("a.jpg"));
    const std::vector<uint8_t> claim = {0, 0, 0x75, 0x30, 0, 0, 0x75, 0x30};
    writeRawFile(path("huge.png"), patched(png, 16, claim, 12, 29));
    const uint8_t frameMarker[] = {0xFF, 0xC0};
    const size_t frame = static_cast<size_t>(
        std::search(jpeg.begin(), jpeg.end(), std::begin(frameMarker), std::end(frameMarker)) - jpeg.begin());
    ASSERT_LT(frame, jpeg.size());
    writeRawFile(path("huge.jpg"), patched(jpeg, frame + 5, {0x75, 0x30, 0x75, 0x30}));
    writeRawFile(path("cut.jpg"), std::vector<uint8_t>(jpeg.begin(), jpeg.begin() + jpeg.size() / 2));
    const std::vector<uint8_t> keep = {'k', 'e', 'e', 'p'};
    for (const char* name : {"out.nv21", "out.png", "out.jpg"}) writeRawFile(path(name), keep);

    // Writes beyond 4 KiB fail (EFBIG rather than a signal): every result
    // here is larger.
    const std::string smallDisk = "ulimit -f 8; trap '' XFSZ; exec ";
    const struct {
        std::string arguments, prefix, message;
    } cases[] = {
        {"fuse -o " + path("a.png") + " " + path("b.png") + " " + path("a.png"), "", "the output is one of the inputs"},
        {"tone -o " + path("a.png") + " " + path("a.png"), "", "the output is one of the inputs"},
        {"fuse -o " + path("out.png") + " " + path("a.png") + " " + path("wide.png"), "", "194x128 differs from the first picture's 192x128"},
        {"fuse -o " + path("out.png") + " " + path("huge.png"), "", "declared size 30000x30000"},
        {"fuse -o " + path("out.png") + " " + path("huge.jpg"), "", "declared size 30000x30000"},
        {"fuse -o " + path("out.png") + " " + path("a.jpg") + " " + path("cut.jpg"), "", "cut.jpg: cannot decode JPEG"},
        {"fuse --format nv21 --size 192x128 -o " + path("out.nv21") + " " + path("f.nv21"), smallDisk, "out.nv21: cannot write"},
        {"fuse -o " + path("out.png") + " " + path("a.png"), smallDisk, "out.png: cannot write"},
        {"fuse -o " + path("out.jpg") + " " + path("a.png"), smallDisk, "out.jpg: cannot"},
    };
    const auto before = files();
    for (const auto& c : cases) {
        const ToolRun run = runTool(c.arguments, c.prefix);
        EXPECT_NE(run.status, 0) << c.arguments;
        EXPECT_NE(run.output.find(c.message), std::string::npos) << c.arguments << "\n" << run.output;
        EXPECT_TRUE(files() == before) << "files changed or left behind by " << c.arguments;
    }
    // Without the limit the same write replaces the old file.
    ASSERT_EQ(runTool("fuse -o " + path("out.jpg") + " " + path("a.png")).status, 0);
    EXPECT_EQ(readPicture(path("out.jpg")).width, 192);
}

TEST_F(ToolEndToEnd, EverySubcommandHasHelp) {
    for (const char* sub : {"fuse", "demo", "eval", "retinex", "tone"}) {
        const ToolRun run = runTool(std::string(sub) + " --help");
        EXPECT_EQ(run.status, 0) << sub;
        EXPECT_NE(run.output.find("Usage:"), std::string::npos) << sub;
    }
}

}  // namespace
