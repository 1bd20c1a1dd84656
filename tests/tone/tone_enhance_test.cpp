// Tone enhancement entry: cell size, table choice, the brightness plane, the
// band geometry of the eight threads and the plain layout conversions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "support/synthetic.h"
#include "trv/stages.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A 4:2:0 frame with U first: W x H luma, then H / 2 rows of W chroma bytes.
Bytes randomFrame(int W, int H, uint32_t seed) { return trvtest::randomBytes(W * H + W * (H / 2), seed); }

size_t outputBytes(int W, int H, int format) {
    return format == 4 ? static_cast<size_t>(W) * H + W * (H / 2) : static_cast<size_t>(W) * H * 2;
}

class ToneEnhance : public ::testing::Test {
  protected:
    void SetUp() override {
        saved_ = {gW, gH, gOUTFormat, gDown_level};
        std::memcpy(savedTH_, gTHTable, sizeof savedTH_);
    }
    void TearDown() override {
        gW = saved_[0];
        gH = saved_[1];
        gOUTFormat = saved_[2];
        gDown_level = saved_[3];
        std::memcpy(gTHTable, savedTH_, sizeof savedTH_);
    }
    void useFrame(int W, int H, int format) {
        gW = W;
        gH = H;
        gOUTFormat = format;
    }
    Bytes enhance(Bytes& in, int W, int H, int format, int id, int level = 0) {
        useFrame(W, H, format);
        Bytes out(outputBytes(W, H, format), 0);
        xImgEnhance_YCrCb(in.data(), out.data(), W, H, id, level);
        return out;
    }

  private:
    std::vector<int32_t> saved_;
    uint8_t savedTH_[256];
};

// The frame in an output layout, written from its definition: NV21 swaps
// each pair, planar 4:2:2 splits them into two planes and packed interleaves
// Y0 U Y1 V; the 4:2:2 layouts give each chroma row to two rows (a lone last
// row takes the one above).
Bytes convertModel(const Bytes& frame, int W, int H, int format) {
    Bytes out(outputBytes(W, H, format));
    const uint8_t* chroma = frame.data() + W * H;
    auto uv = [&](int r, int j, int k) -> uint8_t {
        if (H < 2) return 128;  // no chroma row at all: neutral
        return chroma[std::min(r >> 1, H / 2 - 1) * W + 2 * j + k];
    };
    for (int r = 0; r < H; ++r) {
        for (int x = 0; x < W; ++x) {
            const uint8_t y = frame[r * W + x];
            if (format == 0 || format == 4) out[r * W + x] = y;
            else out[r * 2 * W + 2 * x] = y;
        }
        for (int j = 0; j < W / 2; ++j) {
            if (format == 4 && r % 2 == 0 && r + 1 < H) {
                out[W * H + (r / 2) * W + 2 * j] = uv(r, j, 1);
                out[W * H + (r / 2) * W + 2 * j + 1] = uv(r, j, 0);
            } else if (format == 0) {
                out[W * H + r * (W / 2) + j] = uv(r, j, 0);
                out[W * H + W * H / 2 + r * (W / 2) + j] = uv(r, j, 1);
            } else if (format != 4) {
                out[r * 2 * W + 4 * j + 1] = uv(r, j, 0);
                out[r * 2 * W + 4 * j + 3] = uv(r, j, 1);
            }
        }
    }
    return out;
}

TEST_F(ToneEnhance, CellSizeFollowsThePipelineFrameSize) {
    Bytes in(1);
    Bytes out(1);
    useFrame(0, 0, 4);
    gDown_level = 0;
    xImgEnhance_YCrCb(in.data(), out.data(), 5000, 5000, 0, 0);
    EXPECT_EQ(gDown_level, 4);  // w x h plays no part

    Bytes big = randomFrame(4000, 2000, 3);
    Bytes converted = enhance(big, 4000, 2000, 4, 0);  // exactly 8,000,000 pixels
    EXPECT_EQ(gDown_level, 4);
    EXPECT_EQ(converted[7999999], big[7999999]);
    Bytes line(8000001, 9);
    enhance(line, 8000001, 1, 4, 0);  // one more pixel
    EXPECT_EQ(gDown_level, 8);
}

TEST_F(ToneEnhance, IdAndLevelChooseTheTableSet) {
    Bytes in = randomFrame(8, 8, 1);
    struct Choice {
        int id, level;
        const int32_t* gain;
        const float* chroma;
        const int32_t* luma;
    };
    const Choice choices[] = {
        {1, 99, ScaleTable1, uvScaleTable1, transYTable1},
        {1, 100, ScaleTable2, uvScaleTable2, transYTable2},
        {2, 0, ScaleTable3, uvScaleTable3, transYTable3},
        {3, 500, ScaleTable4, uvScaleTable4, transYTable4},
        {0, 5, ScaleTable4, uvScaleTable4, transYTable4},  // ID 0 keeps the last choice
    };
    for (const Choice& c : choices) {
        enhance(in, 8, 8, 4, c.id, c.level);
        EXPECT_EQ(gScaleTb, c.gain) << "id " << c.id;
        EXPECT_EQ(gUVScaleTb, c.chroma) << "id " << c.id;
        EXPECT_EQ(gYTb, c.luma) << "id " << c.id;
        EXPECT_EQ(gColorEnhanceID, c.id);
    }
}

// Brightness of every cell from its definition: averaged luma plus the
// largest colour difference, grey where the chroma pair is outside the frame.
Bytes planeModel(const Bytes& frame, int W, int H, int L) {
    const int across = (W + L - 1) / L;
    Bytes plane(across * ((H + L - 1) / L));
    const int B = ((H / 4) / L) * L, s = L == 4 ? 2 : 4;
    auto y = [&](int r, int c) { return static_cast<int>(frame[r * W + c]); };
    for (int t = 0; t < 4; ++t) {
        const int first = t * B, rows = t == 3 ? H - 3 * B : B;
        uint8_t* out = plane.data() + t * across * (B / L);
        for (int br = 0; br < rows; br += L) {
            for (int c = 0; c < W; c += L) {
                const int r = first + br;
                const bool wholeCol = c + L <= W, wholeRow = br + L <= rows;
                int luma = y(r, c);
                if (wholeCol && wholeRow) luma = (y(r, c) + y(r, c + s) + y(r + 4, c) + y(r + 4, c + s) + 2) >> 2;
                else if (wholeCol) luma = (y(r, c) + y(r, c + s) + 1) >> 1;
                int du = 0, dv = 0;
                if (c + 1 < W && (r >> 1) < H / 2) {
                    du = frame[W * H + (r >> 1) * W + c] - 128;
                    dv = frame[W * H + (r >> 1) * W + c + 1] - 128;
                }
                const int red = static_cast<int>(std::lround(1.403 * dv));
                const int blue = static_cast<int>(std::lround(1.773 * du));
                const int green = (-11698 * dv - 5636 * du + 8192) >> 14;
                *out++ = static_cast<uint8_t>(std::clamp(luma + std::max({red, green, blue}), 0, 255));
            }
        }
    }
    return plane;
}

TEST_F(ToneEnhance, BrightnessPlaneIsTheLargestColourOfEachCell) {
    struct Size {
        int W, H, L;
    };
    for (const Size& size : {Size{37, 29, 4}, Size{64, 64, 4}, Size{70, 45, 8}, Size{3, 3, 4}, Size{16, 200, 8}}) {
        Bytes frame = randomFrame(size.W, size.H, size.W * size.H);
        useFrame(size.W, size.H, 4);
        gDown_level = size.L;
        gCImgIn = frame.data();
        const Bytes expected = planeModel(frame, size.W, size.H, size.L);
        Bytes plane(expected.size(), 0);
        gV = plane.data();
        RGBConvert();
        EXPECT_EQ(plane, expected) << size.W << " x " << size.H << " L " << size.L;
    }
    // Hand-computed on 8 x 6 (one whole 4-row step, then a 2-row one): grey
    // keeps the averaged luma; V = 200 adds round(1.403 * 72) = 101 (G - Y =
    // -51 loses).
    Bytes frame(8 * 6 + 8 * 3, 128);
    for (int i = 0; i < 48; ++i) frame[i] = static_cast<uint8_t>(i % 8 < 4 ? 50 : 90);
    frame[48 + 5] = 200;  // pair of column 4, row 0
    useFrame(8, 6, 4);
    gDown_level = 4;
    gCImgIn = frame.data();
    Bytes plane(4);
    gV = plane.data();
    RGBConvert();
    EXPECT_EQ(plane, (Bytes{50, 191, 50, 90}));
}

TEST_F(ToneEnhance, IdZeroOnlyConvertsTheLayout) {
    // 40 x 70 at L = 4: bands of 8 rows, band 7 takes 14; odd heights leave
    // a lone last row.
    for (int H : {70, 69, 8, 1}) {
        for (int format : {0, 4, 2}) {
            Bytes frame = randomFrame(40, H, H + format);
            const Bytes out = enhance(frame, 40, H, format, 0);
            EXPECT_EQ(out, convertModel(frame, 40, H, format)) << "H " << H << " format " << format;
        }
    }
}

TEST_F(ToneEnhance, UnknownIdConvertsInsteadOfReadingAStalePlane) {
    Bytes frame = randomFrame(24, 18, 5);
    const Bytes converted = enhance(frame, 24, 18, 2, 0);
    const int32_t* gains = gScaleTb;
    EXPECT_EQ(enhance(frame, 24, 18, 2, 7), converted);
    EXPECT_EQ(gScaleTb, gains);
}

TEST_F(ToneEnhance, CellSizesWithoutAKernelLeaveTheBandsUnwritten) {
    Bytes frame = randomFrame(32, 32, 8);
    useFrame(32, 32, 4);
    gCImgIn = frame.data();
    gColorEnhanceID = 1;
    for (int L : {0, 5, -4}) {
        Bytes out(outputBytes(32, 32, 4), 77);
        gCImgOut = out.data();
        gDown_level = L;
        RunImgEnhance();
        EXPECT_EQ(out, Bytes(out.size(), 77)) << "L " << L;
    }
}

// The entry against the same steps run by hand: plane, blur, then each band's
// kernel at the band geometry worked out here.
TEST_F(ToneEnhance, BandsTileTheFrameWithTheirCellRows) {
    createTHTable();
    const int W = 48, H = 76, L = 4;  // bands of 8 rows, band 7 takes 20
    for (int format : {4, 0, 2}) {
        Bytes frame = randomFrame(W, H, 11 + format);
        const Bytes got = enhance(frame, W, H, format, 1, 50);
        ASSERT_EQ(gDown_level, L);

        const int across = (W + L - 1) / L, down = (H + L - 1) / L;
        Bytes plane(across * down), blurred(across * down, 0), expected(outputBytes(W, H, format), 0);
        gCImgIn = frame.data();
        gV = plane.data();
        RGBConvert();
        MultiBlur(plane.data(), blurred.data(), across, down);
        const int B = 8;
        for (int i = 0; i < 8; ++i) {
            const int rows = i == 7 ? H - 7 * B : B;
            uint8_t* inY = frame.data() + i * W * B;
            uint8_t* inC = frame.data() + W * H + i * W * B / 2;
            uint8_t* cells = blurred.data() + i * across * (B / L);
            if (format == 4) {
                xImgEnhance_NV21_4(inY, inC, expected.data() + i * W * B, expected.data() + W * H + i * W * B / 2,
                                   cells, W, rows, i == 7);
            } else if (format == 0) {
                xImgEnhance_YV16_4(inY, inC, expected.data() + i * W * B, expected.data() + W * H + i * B * W / 2,
                                   cells, W, rows, i == 7);
            } else {
                xImgEnhance_YUYV_4(inY, inC, expected.data() + i * 2 * W * B, cells, W, rows, i == 7);
            }
        }
        EXPECT_EQ(got, expected) << "format " << format;
        EXPECT_NE(got, convertModel(frame, W, H, format));  // the tone did change
    }
}

TEST_F(ToneEnhance, TinyOddAndMismatchedSizesStayInsideTheBuffers) {
    // Exact-size buffers under the address sanitizer; the blur size (w, h)
    // may disagree with the frame size in either direction.
    struct Case {
        int W, H, w, h;
    };
    for (const Case& c : {Case{1, 1, 1, 1}, Case{2, 2, 2, 2}, Case{3, 5, 3, 5}, Case{9, 3, 9, 3}, Case{33, 17, 33, 17},
                          Case{40, 30, 8, 6}, Case{16, 12, 100, 90}, Case{20, 20, 0, -3}}) {
        for (int format : {0, 2, 4}) {
            for (int id : {1, 2, 3}) {
                Bytes frame = randomFrame(c.W, c.H, c.W + c.H + id);
                useFrame(c.W, c.H, format);
                Bytes out(outputBytes(c.W, c.H, format));
                xImgEnhance_YCrCb(frame.data(), out.data(), c.w, c.h, id, 0);
            }
        }
    }
}

}  // namespace
