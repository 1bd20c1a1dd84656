// The trv tool: its colour conversion, burst synthesis and metrics against
// hand-computed values, and the binary end to end, failures included.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "burst_synth.h"
#include "image_io.h"
#include "metrics.h"
#include "support/layouts.h"
#include "support/synthetic.h"
#include "yuv.h"

namespace {

using namespace trvtool;

RgbImage randomPicture(int w, int h, uint32_t seed) { return {w, h, trvtest::randomBytes(w * h * 3u, seed)}; }

// White, black, red and blue in BT.601 full range, rounded; 4:2:0 chroma is
// the rounded mean of each 2 x 2 block, V first; back to RGB, a red block
// loses a level.
TEST(ToolColour, Bt601FullRangeKnownColours) {
    const Yuv444 p = rgbToYuv444({4, 2, {255, 255, 255, 0, 0, 0, 255, 0, 0, 0, 0, 255,  // two rows alike
                                         255, 255, 255, 0, 0, 0, 255, 0, 0, 0, 0, 255}});
    EXPECT_EQ(std::vector<uint8_t>(p.cb.begin(), p.cb.begin() + 4), (std::vector<uint8_t>{128, 128, 85, 255}));
    EXPECT_EQ(std::vector<uint8_t>(p.cr.begin(), p.cr.begin() + 4), (std::vector<uint8_t>{128, 128, 255, 107}));
    EXPECT_EQ(yuv444ToNv21(p), (std::vector<uint8_t>{255, 0, 76, 29, 255, 0, 76, 29, 128, 128, 181, 170}));
    const std::vector<uint8_t> red = {76, 76, 76, 76, 255, 85};
    EXPECT_EQ(nv21ToRgb(red.data(), 2, 2).rgb, (std::vector<uint8_t>{254, 0, 0, 254, 0, 0, 254, 0, 0, 254, 0, 0}));
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

TEST(ToolSynthesis, SeededNoisyAndReproducible) {
    const Yuv444 scene = rgbToYuv444(randomPicture(96, 64, 9));
    BurstRecipe recipe;
    recipe.frames = 4, recipe.seed = 77, recipe.movingObject = false;
    const SyntheticBurst a = synthesiseBurst(scene, recipe);
    EXPECT_EQ(synthesiseBurst(scene, recipe).noisy, a.noisy);
    EXPECT_EQ(a.noisy.size(), 4u);
    // Frame 0's ground truth is the darkened scene itself; the noise is moderate.
    for (int i = 0; i < 96 * 64; ++i)
        ASSERT_EQ(a.clean[0][i], static_cast<uint8_t>(std::floor(scene.y[i] * recipe.exposure + 0.5f))) << i;
    const double psnr = lumaPsnr(a.noisy[0].data(), a.clean[0].data(), 96, 64);
    EXPECT_TRUE(psnr > 25.0 && psnr < 45.0) << psnr;
}

// The binary, run in a fresh folder of its own.
class ToolEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/trv-tool-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    std::string path(const std::string& name) const { return dir_ + "/" + name; }
    // Exit status and output; shellPrefix (limits, signal dispositions) ends with "exec ".
    std::pair<int, std::string> run(const std::string& arguments, const std::string& shellPrefix = "") const {
        const std::string command = "cd '" + dir_ + "' && " + shellPrefix + TRV_TOOL_PATH " " + arguments + " 2>&1";
        std::string output;
        FILE* pipe = popen(command.c_str(), "r");
        char buffer[4096];
        for (size_t n; pipe != nullptr && (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, n);
        const int raw = pipe != nullptr ? pclose(pipe) : -1;
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, output};
    }
    std::map<std::string, std::vector<uint8_t>> files() const {
        std::map<std::string, std::vector<uint8_t>> all;
        for (const auto& entry : std::filesystem::directory_iterator(dir_))
            all[entry.path().filename()] = readRawFile(entry.path());
        return all;
    }
    std::string dir_;
};

// The picture path and the operations give the Python module's bytes
// (tested there); here a raw U-first frame's chroma order, the run's report
// lines, the library's log lines only with --verbose, and the demo.
TEST_F(ToolEndToEnd, FusesARawFrameAndRunsTheDemo) {
    const trvtest::Planes422 frame = trvtest::randomPlanes(64, 64, 11);
    writeRawFile(path("f.yuyv"), trvtest::toLayout(frame, 2));
    const auto [status, output] = run("fuse --verbose --format yuyv --size 64x64 -o out.nv21 f.yuyv");
    ASSERT_EQ(status, 0) << output;
    for (const char* line : {"E/BMQ: BMQ-Version: 2018-2-24-Normal-BMQ\n", "reference: frame", "time: ", "wrote out.nv21 (64x64"})
        EXPECT_NE(output.find(line), std::string::npos) << output;
    // A single yuyv frame comes back as itself in NV21: V before U.
    EXPECT_EQ(readRawFile(path("out.nv21")), trvtest::toSemiPlanar420({64, 64, frame.y, frame.second, frame.first}));
    const auto [demoStatus, demoOutput] = run("demo --frames 3 --out demo");
    ASSERT_EQ(demoStatus, 0) << demoOutput;
    EXPECT_EQ(demoOutput.find("E/BMQ"), std::string::npos) << "the library's log lines only with --verbose";
    EXPECT_EQ(readPicture(path("demo/side_by_side.png")).width, 3 * 1024 + 2 * 8);
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

// Every refusal and every failed write exits non-zero with its message,
// leaves the files that were there as they were, and leaves nothing else
// behind.
TEST_F(ToolEndToEnd, FailuresLeaveExistingFilesIntact) {
    const RgbImage image = randomPicture(192, 128, 6);
    writePicture(path("a.png"), image);
    writePicture(path("b.png"), image);
    writePicture(path("wide.png"), randomPicture(194, 128, 6));
    writePicture(path("a.jpg"), image);
    writeRawFile(path("f.nv21"), trvtest::toLayout(trvtest::randomPlanes(192, 128, 3), 4));
    writeRawFile(path("short.nv21"), std::vector<uint8_t>(100, 0));
    writeRawFile(path("tiny.nv21"), std::vector<uint8_t>(32 * 32 * 3 / 2, 0));
    // Headers that claim 30000 x 30000 pixels: PNG IHDR width and height
    // (bytes 16..23, CRC over 12..28), JPEG baseline frame height and width.
    const std::vector<uint8_t> png = readRawFile(path("a.png")), jpeg = readRawFile(path("a.jpg"));
    writeRawFile(path("huge.png"), patched(png, 16, {0, 0, 0x75, 0x30, 0, 0, 0x75, 0x30}, 12, 29));
    const uint8_t frameMarker[] = {0xFF, 0xC0};
    const auto frame = std::search(jpeg.begin(), jpeg.end(), std::begin(frameMarker), std::end(frameMarker));
    ASSERT_NE(frame, jpeg.end());
    writeRawFile(path("huge.jpg"), patched(jpeg, static_cast<size_t>(frame - jpeg.begin()) + 5, {0x75, 0x30, 0x75, 0x30}));
    writeRawFile(path("cut.jpg"), std::vector<uint8_t>(jpeg.begin(), jpeg.begin() + jpeg.size() / 2));
    for (const char* name : {"out.nv21", "out.png", "out.jpg"}) writeRawFile(path(name), {'k', 'e', 'e', 'p'});

    // Writes beyond 4 KiB fail (EFBIG rather than a signal): every result
    // here is larger.
    const std::string smallDisk = "ulimit -f 8; trap '' XFSZ; exec ";
    const struct {
        std::string arguments, message, prefix;
    } cases[] = {
        {"fuse -o out.nv21 missing.nv21", "missing.nv21", ""},
        {"fuse --format nv21 --size 96x64 -o out.nv21 short.nv21", "100 bytes, expected 9216", ""},
        {"fuse --format rgb24 --size 96x64 -o out.nv21 f.nv21", "unknown format 'rgb24'", ""},
        {"fuse --format nv21 --size 96by64 -o out.nv21 f.nv21", "--size", ""},
        {"fuse -o out.nv21 f.nv21", "need --format and --size", ""},
        {"fuse --format nv21 --size 32x32 -o out.nv21 tiny.nv21", "burst refused: width and height must be even, at least 64", ""},
        {"demo --noise extreme --out d", "unknown noise level", ""},
        {"eval nothing-here", "nothing-here", ""},
        {"frobnicate", "subcommand", ""},
        {"fuse -o a.png b.png a.png", "the output is one of the inputs", ""},
        {"fuse -o out.png a.png wide.png", "194x128 differs from the first picture's 192x128", ""},
        {"fuse -o out.png huge.png", "declared size 30000x30000", ""},
        {"fuse -o out.png huge.jpg", "declared size 30000x30000", ""},
        {"fuse -o out.png a.jpg cut.jpg", "cut.jpg: cannot decode JPEG", ""},
        {"fuse -o out.png a.png", "out.png: cannot write", smallDisk},
        {"fuse -o out.jpg a.png", "out.jpg: cannot", smallDisk},
    };
    const auto before = files();
    for (const auto& c : cases) {
        const auto [status, output] = run(c.arguments, c.prefix);
        EXPECT_NE(status, 0) << c.arguments;
        EXPECT_NE(output.find(c.message), std::string::npos) << c.arguments << "\n" << output;
        EXPECT_TRUE(files() == before) << "files changed or left behind by " << c.arguments;
    }
    // Without the limit the same write replaces the old file.
    ASSERT_EQ(run("fuse -o out.jpg a.png").first, 0);
    EXPECT_EQ(readPicture(path("out.jpg")).width, 192);
}

}  // namespace
