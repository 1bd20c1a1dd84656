// Multi-scale retinex against a plain model: point sampling, the fixed-point
// recursive Gaussian (arithmetic shifts written as floor divisions) and the
// power-law mapping, plus the worked values and odd geometries.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "retinex/msr_internal.h"
#include "support/restore.h"
#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

int64_t floorDiv(int64_t a, int64_t d) { return a >= 0 ? a / d : -((-a + d - 1) / d); }

// One line, written as separate forward and backward arrays.
std::vector<uint8_t> modelLine(const std::vector<uint8_t>& x) {
    const int n = static_cast<int>(x.size());
    std::vector<int64_t> w(n + 3), b(n + 3);
    std::vector<uint8_t> out(n);
    w[0] = w[1] = w[2] = 256 * x[0];
    for (int i = 0; i < n; ++i) w[i + 3] = floorDiv(1792 * x[i] + 570 * w[i + 2] - 433 * w[i + 1] + 112 * w[i], 256);
    b[n] = b[n + 1] = b[n + 2] = w[n + 2];
    for (int j = n - 1; j >= 0; --j) {
        const int64_t t = 7 * w[j] + 570 * b[j + 1] - 433 * b[j + 2] + 112 * b[j + 3];
        b[j] = floorDiv(t, 256);
        const int64_t s = floorDiv(t, 65536);
        out[j] = static_cast<uint8_t>(s <= 0 ? 0 : (s > 255 ? 255 : s));
    }
    return out;
}

int modelDarken(int v, int g) {
    if (g <= v) return v;
    const int64_t low = static_cast<int64_t>(std::floor(16.0 * std::pow(v + 1.0, 1.3) + 0.5));
    const int64_t high = static_cast<int64_t>(std::floor(65536.0 / std::pow(g + 1.0, 0.3) + 0.5));
    return static_cast<int>((low * high) >> 20);
}

// Rows, then columns, of rows x cols samples of stride `stride` from p.
void blurPlane(uint8_t* p, int stride, int rows, int cols) {
    for (int y = 0; y < rows; ++y) {
        const std::vector<uint8_t> row = modelLine({p + y * stride, p + y * stride + cols});
        std::copy(row.begin(), row.end(), p + y * stride);
    }
    for (int x = 0; x < cols; ++x) {
        std::vector<uint8_t> col;
        for (int y = 0; y < rows; ++y) col.push_back(p[y * stride + x]);
        col = modelLine(col);
        for (int y = 0; y < rows; ++y) p[y * stride + x] = col[y];
    }
}

// Where the blur works in the buffer of three quarter planes: plane p at
// p * planeStep, rows x cols samples of stride `stride`.
struct BlurView {
    int planeStep, stride, rows, cols;
};

// The whole operation.
std::vector<uint8_t> modelMSR(std::vector<uint8_t> img, int w, int h, BlurView blur) {
    const int qw = w / 4, qh = h / 4, planeSize = qw * qh;
    std::vector<uint8_t> planes(3 * static_cast<size_t>(planeSize));
    uint8_t* chroma = img.data() + static_cast<size_t>(w) * h;
    for (int y = 0; y < qh; ++y) {
        for (int x = 0; x < qw; ++x) {
            planes[y * qw + x] = img[4 * y * w + 4 * x];
            planes[planeSize + y * qw + x] = chroma[2 * y * w + 4 * x];
            planes[2 * planeSize + y * qw + x] = chroma[2 * y * w + 4 * x + 1];
        }
    }
    if (blur.rows > 0 && blur.cols > 0) {
        for (int p = 0; p < 3; ++p) blurPlane(planes.data() + p * blur.planeStep, blur.stride, blur.rows, blur.cols);
    }
    for (int y = 0; y < 4 * qh; ++y) {
        for (int x = 0; x < 4 * qw; ++x) {
            uint8_t& v = img[y * w + x];
            v = static_cast<uint8_t>(modelDarken(v, planes[(y / 4) * qw + x / 4]));
        }
    }
    for (int r = 0; r < 2 * qh; ++r) {
        for (int x = 0; x < 4 * qw; ++x) {
            uint8_t& c = chroma[r * w + x];
            c = static_cast<uint8_t>(modelDarken(c, planes[(1 + (x & 1)) * planeSize + (r / 2) * qw + x / 4]));
        }
    }
    return img;
}

class MsrTest : public ::testing::Test {
protected:
    trvtest::Restore<int32_t> w_{gW}, h_{gH}, threads_{gMSRThreadNUM};

    // Runs MSR on a copy that ends at the edge of its allocation, checks the
    // trailing guard byte and hands the result back.
    static std::vector<uint8_t> run(std::vector<uint8_t> img, int w, int h) {
        img.push_back(0xEE);
        MSR(img.data(), w, h);
        EXPECT_EQ(img.back(), 0xEE) << "wrote past the image";
        img.pop_back();
        EXPECT_EQ(gGaussOut, nullptr);
        return img;
    }
    static size_t imageSize(int w, int h) { return static_cast<size_t>(w) * h + static_cast<size_t>(w) * (h / 2); }
};

TEST_F(MsrTest, TablesAndIdentityHook) {
    create0_1_2Table();
    EXPECT_EQ(ITable0_2[0], 65536);
    EXPECT_EQ(ITable0_2[255], 12417);
    EXPECT_EQ(ITable1_2[0], 16);
    EXPECT_EQ(ITable1_2[255], 21619);
    EXPECT_EQ(ITable1_2[20], 838);     // 16 * 21^1.3
    EXPECT_EQ(ITable0_2[200], 13351);  // 65536 / 201^0.3
    for (int j = 1; j < 256; ++j) {
        ASSERT_LT(ITable0_2[j], ITable0_2[j - 1]);
        ASSERT_GT(ITable1_2[j], ITable1_2[j - 1]);
    }
    EXPECT_EQ(gMSRThreadNUM, 8);
    for (int v : {-5, 0, 77, 255}) EXPECT_EQ(colorBalance(v), v);
}

TEST_F(MsrTest, LineFilterMatchesModelInRowsAndColumns) {
    trvtest::Rng rng(11);
    for (int n : {1, 2, 3, 4, 5, 17, 64, 250}) {
        for (int step : {1, 3}) {
            std::vector<uint8_t> strided(static_cast<size_t>(n) * step, 0x5A), x(n);
            for (int i = 0; i < n; ++i) {
                // Hard edges as well as noise, to reach the clamps.
                x[i] = (i / 5) % 2 ? rng.byte() : static_cast<uint8_t>(rng.uniform(0, 1) * 255);
                strided[static_cast<size_t>(i) * step] = x[i];
            }
            std::vector<int32_t> fwd(n + 3), back(n + 3);
            trv::msrGaussLine(strided.data(), n, step, fwd.data(), back.data());
            const std::vector<uint8_t> want = modelLine(x);
            for (int i = 0; i < n * step; ++i) {
                ASSERT_EQ(strided[i], i % step ? 0x5A : want[i / step]) << "n=" << n << " step=" << step << " i=" << i;
            }
        }
    }
}

TEST_F(MsrTest, FlatImageUnchangedAndDarkSampleOnBrightGround) {
    const int w = 64, h = 48;
    gW = w;
    gH = h;
    for (int v : {0, 90, 255}) {
        const std::vector<uint8_t> flat(imageSize(w, h), static_cast<uint8_t>(v));
        EXPECT_EQ(run(flat, w, h), flat) << v;
    }
    // Off the sampling grid, so every blurred level stays 200.
    std::vector<uint8_t> img(imageSize(w, h), 200);
    img[5 * w + 6] = 20;
    img[static_cast<size_t>(w) * h + 3 * w + 9] = 20;  // chroma, odd byte
    std::vector<uint8_t> want = img;
    want[5 * w + 6] = 10;  // (838 * 13351) >> 20
    want[static_cast<size_t>(w) * h + 3 * w + 9] = 10;
    EXPECT_EQ(run(img, w, h), want);
}

TEST_F(MsrTest, WholeImageMatchesModelForAnyThreadCount) {
    // Multiples of 16, then sizes whose last rows / columns form no whole cell
    // (the model leaves rows past the last whole group of four alone).
    const int sizes[][2] = {{64, 48}, {96, 80}, {52, 36}, {48, 38}, {30, 17}, {4, 4}};
    for (auto [w, h] : sizes) {
        gW = w;
        gH = h;
        const auto img = trvtest::texturedPlane(w, static_cast<int>(imageSize(w, h) / w), w * 7u + h);
        const std::vector<uint8_t> want = modelMSR(img, w, h, {(h / 4) * (w / 4), w / 4, h / 4, w / 4});
        for (int threads : {8, 1, 3, 16, 40, 0}) {
            gMSRThreadNUM = threads;
            ASSERT_EQ(run(img, w, h), want) << w << "x" << h << " threads=" << threads;
        }
    }
}

// The blur's planes are gW / 4 x gH / 4 one after the other; where three
// of them would not fit in the image's, the common top-left part of the
// image's own planes is blurred instead.
TEST_F(MsrTest, PipelineSizeMismatchBlursThePipelinePlanesWhereTheyFit) {
    const int w = 64, h = 48, qw = w / 4, qh = h / 4;
    const std::vector<uint8_t> img = trvtest::randomBytes(imageSize(w, h), 99);
    const int pipelineSizes[][2] = {{w, h},       {32, 48},   {64, 16}, {20, 8}, {96, 32},
                                    {4000, 3000}, {128, 32},  {0, 0},   {-8, 40}};
    for (auto [gw, gh] : pipelineSizes) {
        gW = gw;
        gH = gh;
        const int rows = gh / 4, cols = gw / 4;
        const BlurView blur = rows * cols <= qh * qw ? BlurView{rows * cols, cols, rows, cols}
                                                     : BlurView{qh * qw, qw, std::min(rows, qh), std::min(cols, qw)};
        EXPECT_EQ(run(img, w, h), modelMSR(img, w, h, blur)) << "gW=" << gw << " gH=" << gh;
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
    std::vector<uint8_t> img(imageSize(w, h), 200);
    uint8_t* chroma = img.data() + w * h;
    for (int i = 0; i < w * h / 2; ++i) chroma[i] = i % 2 ? 20 : 100;
    chroma[1] = 200;  // sampled into cell (0, 0) of the second chroma plane
    std::vector<uint8_t> want = img;
    for (int i : {3, w + 1, w + 3}) want[w * h + i] = 10;
    EXPECT_EQ(run(img, w, h), want);
}

TEST_F(MsrTest, TinyOrMissingImageIsLeftAlone) {
    gW = gH = 0;
    for (int w : {0, 3, 4, 100}) {
        for (int h : {-4, 0, 2, 3}) {
            const std::vector<uint8_t> img = trvtest::randomBytes(imageSize(std::max(w, 0), std::max(h, 0)) + 4, 3);
            EXPECT_EQ(run(img, w, h), img) << w << "x" << h;
        }
    }
    MSR(nullptr, 64, 64);
    EXPECT_EQ(gGaussOut, nullptr);
}

}  // namespace
