// Multi-scale retinex: hand-computed tables and filtered lines, the worked
// darkening example, the pipeline-sized blur planes, and the same bytes for
// any thread count.
#include <gtest/gtest.h>

#include <vector>

#include "retinex/msr_internal.h"
#include "support/restore.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

using Bytes = std::vector<uint8_t>;

class MsrTest : public ::testing::Test {
protected:
    trvtest::Restore<int32_t> w_{gW}, h_{gH}, threads_{gMSRThreadNUM};

    // MSR on a copy followed by a guard byte; the scratch planes are freed.
    static Bytes run(Bytes img, int w, int h) {
        img.push_back(0xEE);
        MSR(img.data(), w, h);
        EXPECT_EQ(img.back(), 0xEE) << "wrote past the image";
        img.pop_back();
        EXPECT_EQ(gGaussOut, nullptr);
        return img;
    }
    static size_t imageSize(int w, int h) { return static_cast<size_t>(w) * h + static_cast<size_t>(w) * (h / 2); }
};

TEST_F(MsrTest, LineFilterGivesHandComputedValuesInRowsAndColumns) {
    // Forward w = (1792 x + 570 w1 - 433 w2 + 112 w3) >> 8 from three copies of
    // 256 x[0]; backward t = 7 w[j] + 570 b1 - 433 b2 + 112 b3, output t >> 16.
    // The outputs lag three samples, so a step shows from the first sample.
    const Bytes lines[][2] = {
        {{0, 0, 0, 255, 255, 255, 255, 255}, {31, 41, 52, 64, 76, 86, 94, 100}},
        {{255, 255, 255, 0, 0, 0, 0, 0, 0}, {221, 210, 197, 182, 167, 153, 141, 131, 125}},
        {{0, 255, 0, 255, 0, 255, 0}, {33, 40, 48, 56, 63, 68, 70}},
        {{0, 0, 0}, {0, 0, 0}},  // the clamp at 0
        {{100}, {100}}};
    for (const auto& [in, want] : lines) {
        const int n = static_cast<int>(in.size());
        for (int step : {1, 3}) {
            Bytes strided(static_cast<size_t>(n) * step, 0x5A);
            for (int i = 0; i < n; ++i) strided[static_cast<size_t>(i) * step] = in[i];
            std::vector<int32_t> fwd(n + 3), back(n + 3);
            trv::msrGaussLine(strided.data(), n, step, fwd.data(), back.data());
            for (int i = 0; i < n * step; ++i)  // the bytes between samples stay as they were
                ASSERT_EQ(strided[i], i % step ? 0x5A : want[i / step]) << "n " << n << " step " << step << " at " << i;
        }
    }
}

TEST_F(MsrTest, FlatImageUnchangedAndDarkSampleOnBrightGroundByTheTables) {
    const int w = 64, h = 48;
    gW = w;
    gH = h;
    for (int v : {0, 90, 255}) {
        const Bytes flat(imageSize(w, h), static_cast<uint8_t>(v));
        EXPECT_EQ(run(flat, w, h), flat) << v;
    }
    // Off the sampling grid, so every blurred level stays 200.
    Bytes img(imageSize(w, h), 200);
    img[5 * w + 6] = 20;
    img[static_cast<size_t>(w) * h + 3 * w + 9] = 20;  // chroma, odd byte
    Bytes want = img;
    want[5 * w + 6] = 10;  // (838 * 13351) >> 20
    want[static_cast<size_t>(w) * h + 3 * w + 9] = 10;
    EXPECT_EQ(run(img, w, h), want);
    // Entry j serves j + 1: 65536 / (j + 1)^0.3 and 16 (j + 1)^1.3, rounded.
    create0_1_2Table();
    const int entries[][3] = {{0, 65536, 16}, {255, 12417, 21619}, {20, 26291, 838}, {200, 13351, 15786}};
    for (auto [j, falling, rising] : entries) EXPECT_TRUE(ITable0_2[j] == falling && ITable1_2[j] == rising) << j;
}

TEST_F(MsrTest, AnyThreadCountGivesTheSameBytesAndLeavesPartialRowsAlone) {
    // Sizes whose last rows or columns form no whole cell: those stay as they are.
    for (auto [w, h] : {std::pair{64, 48}, {52, 36}, {48, 38}, {30, 17}}) {
        gW = w;
        gH = h;
        const Bytes img = trvtest::texturedPlane(w, static_cast<int>(imageSize(w, h) / w), w * 7u + h);
        gMSRThreadNUM = 8;
        const Bytes want = run(img, w, h);
        EXPECT_NE(want, img);
        for (size_t i = static_cast<size_t>(h / 4 * 4) * w; i < static_cast<size_t>(w) * h; ++i)
            ASSERT_EQ(want[i], img[i]);
        for (int threads : {1, 3, 16, 40, 0}) {
            gMSRThreadNUM = threads;
            ASSERT_EQ(run(img, w, h), want) << w << "x" << h << " threads=" << threads;
        }
    }
}

// 32 x 16 image (planes 8 x 4 at bytes 0, 32, 64) under a 16 x 16 pipeline:
// the blur's planes are 4 x 4 at bytes 0, 16, 32, so the second chroma plane
// (bytes 64 on) is never blurred. Luma 200 and first chroma 100 are flat; the
// second chroma samples 20 under the 200 sampled at cell (0, 0) fall to
// (838 * 13351) >> 20 = 10, the rest stay (their cells sample 20).
TEST_F(MsrTest, PipelinePlanesLeaveTheThirdImagePlaneUnblurred) {
    const int w = 32, h = 16;
    gW = gH = 16;
    Bytes img(imageSize(w, h), 200);
    uint8_t* chroma = img.data() + w * h;
    for (int i = 0; i < w * h / 2; ++i) chroma[i] = i % 2 ? 20 : 100;
    chroma[1] = 200;  // sampled into cell (0, 0) of the second chroma plane
    Bytes want = img;
    for (int i : {3, w + 1, w + 3}) want[w * h + i] = 10;
    EXPECT_EQ(run(img, w, h), want);
}

TEST_F(MsrTest, TinyOrMissingImageIsLeftAlone) {
    gW = gH = 0;
    for (auto [w, h] : {std::pair{0, 0}, {3, 100}, {100, 3}, {4, -4}}) {
        const Bytes img = trvtest::randomBytes(imageSize(std::max(w, 0), std::max(h, 0)) + 4, 3);
        EXPECT_EQ(run(img, w, h), img) << w << "x" << h;
    }
    MSR(nullptr, 64, 64);
    EXPECT_EQ(gGaussOut, nullptr);
}

}  // namespace
