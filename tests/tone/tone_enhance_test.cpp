// Tone enhancement: the colour-difference and tone tables, cell size, table
// choice, the brightness plane, the band geometry of the eight threads and
// the plain layout conversions.
#include <algorithm>
#include <cmath>

#include "support/layouts.h"
#include "tone/tone_test.h"

namespace {

using tonetest::Bytes;
using tonetest::outputBytes;
using tonetest::randomFrame;

TEST(ToneTables, ColourDifferencesRoundHalfAwayFromZero) {
    EXPECT_EQ(C0Table[0], -180);  // 1.403 * -128 = -179.58
    EXPECT_EQ(C0Table[255], 178);
    EXPECT_EQ(C3Table[0], -227);  // 1.773 * -128 = -226.94
    EXPECT_EQ(C3Table[255], 225);
    EXPECT_EQ(C0Table[130], 3);   // 2.806
    EXPECT_EQ(C0Table[126], -3);  // symmetric about 128
    EXPECT_EQ(C3Table[129], 2);   // 1.773
    EXPECT_EQ(C3Table[127], -2);
    EXPECT_EQ(C1Table[0], 11698 * 128);
    EXPECT_EQ(C2Table[255], -5636 * 127);
    for (const int32_t* table : {C0Table, C1Table, C2Table, C3Table}) {
        EXPECT_EQ(table[128], 0);
        const bool rises = table == C0Table || table == C3Table;  // R and B; the G shares shrink
        for (int c = 1; c < 256; ++c) ASSERT_EQ(table[c] > table[c - 1], rises) << c;
    }
}

// The four table sets: gain, chroma factor and luma transfer.
const int32_t* const kGains[4] = {ScaleTable1, ScaleTable2, ScaleTable3, ScaleTable4};
const float* const kChroma[4] = {uvScaleTable1, uvScaleTable2, uvScaleTable3, uvScaleTable4};
const int32_t* const kLuma[4] = {transYTable1, transYTable2, transYTable3, transYTable4};

TEST(ToneTables, GainsAndChromaFactorsPassThroughTheirAnchors) {
    const int points[6] = {1, 16, 64, 128, 192, 255}, chromaPoints[4] = {16, 64, 128, 255};
    const int gains[4][6] = {{4210, 2401, 1570, 1256, 1110, 1024},
                             {2820, 1779, 1313, 1139, 1064, 1024},
                             {5056, 2645, 1654, 1292, 1123, 1024},
                             {5056, 2645, 1654, 1292, 1123, 1024}};
    const float chroma[4][4] = {{0.782f, 0.8383f, 0.8517f, 0.8603f}, {}, {}, {0.6689f, 0.7988f, 0.8301f, 0.85f}};
    for (int s = 0; s < 4; ++s) {
        const int32_t* gain = kGains[s];
        const float* factor = kChroma[s];
        EXPECT_EQ(gain[0], 0);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(gain[points[i]], gains[s][i]) << "set " << s << " t " << points[i];
        for (int i = 0; i < 4; ++i) {
            // Set 2 follows set 1; set 3 lies between sets 1 and 4.
            const float f = factor[chromaPoints[i]];
            if (s == 2) {
                EXPECT_TRUE(f > chroma[3][i] && f < chroma[0][i]) << "t " << chromaPoints[i];
            } else {
                EXPECT_EQ(f, chroma[s == 1 ? 0 : s][i]) << "set " << s << " t " << chromaPoints[i];
            }
        }
        // Gains fall smoothly: the fall per step shrinks toward the bright end
        // (up to one unit of rounding), with no kinks at the anchors. Chroma
        // factors rise from two zeros and stay below one.
        for (int t = 2; t < 256; ++t) {
            ASSERT_LE(gain[t], gain[t - 1]) << "t " << t;
            if (t < 255) {
                ASSERT_LE(gain[t] - gain[t + 1], gain[t - 1] - gain[t] + 1) << "t " << t;
            }
            ASSERT_TRUE(factor[t] >= factor[t - 1] && factor[t] < 1.0f) << "t " << t;
        }
        EXPECT_TRUE(factor[0] == 0.0f && factor[1] == 0.0f);
    }
    EXPECT_TRUE(std::equal(ScaleTable3, ScaleTable3 + 256, ScaleTable4));
}

TEST(ToneTables, LumaTransferIsTheToneOfAnEvenlyLitPixel) {
    for (int s = 0; s < 4; ++s) {
        EXPECT_EQ(kLuma[s][0], 0);
        EXPECT_EQ(kLuma[s][255], 255);
        for (int t = 1; t < 256; ++t) {
            ASSERT_EQ(kLuma[s][t], std::min((t * kGains[s][t] + 512) >> 10, 255));
            ASSERT_GE(kLuma[s][t], std::max(kLuma[s][t - 1], t));  // rising, never darkens
        }
    }
}

class ToneEnhance : public tonetest::ToneTest {
protected:
    Bytes enhance(Bytes& in, int W, int H, int format, int id, int level = 0) {
        gW = W;
        gH = H;
        gOUTFormat = format;
        Bytes out(outputBytes(W, H, format), 0);
        xImgEnhance_YCrCb(in.data(), out.data(), W, H, id, level);
        return out;
    }
};

// The frame in an output layout: each chroma row serves two rows (a lone last
// row takes the one above, none at all gives grey), V first in NV21.
Bytes convertModel(const Bytes& frame, int W, int H, int format) {
    trvtest::Planes422 p{W, H, Bytes(frame.begin(), frame.begin() + W * H), {}, {}};
    for (int r = 0; r < H; ++r) {
        for (int j = 0; j < W / 2; ++j) {
            const uint8_t* pair = frame.data() + W * H + std::min(r >> 1, H / 2 - 1) * W + 2 * j;
            p.first.push_back(H < 2 ? 128 : pair[format == 4 ? 1 : 0]);
            p.second.push_back(H < 2 ? 128 : pair[format == 4 ? 0 : 1]);
        }
    }
    Bytes out = trvtest::toLayout(p, format);
    out.resize(outputBytes(W, H, format));  // NV21 drops a lone last row's chroma
    return out;
}

TEST_F(ToneEnhance, CellSizeFollowsThePipelineFrameSize) {
    Bytes tiny(1);
    gW = gH = 0;
    gDown_level = 0;
    xImgEnhance_YCrCb(tiny.data(), tiny.data(), 5000, 5000, 0, 0);
    EXPECT_EQ(gDown_level, 4);  // w x h plays no part

    Bytes big = randomFrame(4000, 2000, 3);
    EXPECT_EQ(enhance(big, 4000, 2000, 4, 0)[7999999], big[7999999]);  // exactly 8,000,000 pixels
    EXPECT_EQ(gDown_level, 4);
    Bytes line(8000001, 9);
    enhance(line, 8000001, 1, 4, 0);  // one more pixel
    EXPECT_EQ(gDown_level, 8);
}

TEST_F(ToneEnhance, IdAndLevelChooseTheTableSet) {
    Bytes in = randomFrame(8, 8, 1);
    // ID, level, set; IDs 0 and 7 keep the last choice.
    const int choices[][3] = {{1, 99, 0}, {1, 100, 1}, {2, 0, 2}, {3, 500, 3}, {0, 5, 3}, {7, 0, 3}};
    for (auto [id, level, set] : choices) {
        enhance(in, 8, 8, 4, id, level);
        EXPECT_EQ(gScaleTb, kGains[set]) << "id " << id;
        EXPECT_EQ(gUVScaleTb, kChroma[set]) << "id " << id;
        EXPECT_EQ(gYTb, kLuma[set]) << "id " << id;
        EXPECT_EQ(gColorEnhanceID, id);
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
    auto convert = [](Bytes& frame, int W, int H, int L) {
        gW = W;
        gH = H;
        gDown_level = L;
        gCImgIn = frame.data();
        Bytes plane(((W + L - 1) / L) * ((H + L - 1) / L), 0);
        gV = plane.data();
        RGBConvert();
        return plane;
    };
    const int sizes[][3] = {{37, 29, 4}, {64, 64, 4}, {70, 45, 8}, {3, 3, 4}, {16, 200, 8}};
    for (auto [W, H, L] : sizes) {
        Bytes frame = randomFrame(W, H, W * H);
        EXPECT_EQ(convert(frame, W, H, L), planeModel(frame, W, H, L)) << W << " x " << H << " L " << L;
    }
    // Hand-computed on 8 x 6 (one whole 4-row step, then a 2-row one): grey
    // keeps the averaged luma; V = 200 adds round(1.403 * 72) = 101 (G - Y =
    // -51 loses).
    Bytes frame(8 * 6 + 8 * 3, 128);
    for (int i = 0; i < 48; ++i) frame[i] = static_cast<uint8_t>(i % 8 < 4 ? 50 : 90);
    frame[48 + 5] = 200;  // pair of column 4, row 0
    EXPECT_EQ(convert(frame, 8, 6, 4), (Bytes{50, 191, 50, 90}));
}

TEST_F(ToneEnhance, IdZeroAndUnknownIdsOnlyConvertTheLayout) {
    // 40 x 70 at L = 4: bands of 8 rows, band 7 takes 14; odd heights leave
    // a lone last row. An unknown ID must not read a stale brightness plane.
    for (int H : {70, 69, 8, 1}) {
        for (int format : {0, 4, 2}) {
            Bytes frame = randomFrame(40, H, H + format);
            const Bytes want = convertModel(frame, 40, H, format);
            EXPECT_EQ(enhance(frame, 40, H, format, 0), want) << "H " << H << " format " << format;
            enhance(frame, 40, H, format, 1);
            EXPECT_EQ(enhance(frame, 40, H, format, 7), want) << "H " << H << " format " << format;
        }
    }
}

TEST_F(ToneEnhance, CellSizesWithoutAKernelLeaveTheBandsUnwritten) {
    Bytes frame = randomFrame(32, 32, 8);
    gW = gH = 32;
    gOUTFormat = 4;
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
    const int W = 48, H = 76, L = 4, B = 8;  // bands of 8 rows, band 7 takes 20
    const int across = (W + L - 1) / L, down = (H + L - 1) / L;
    for (int format : {4, 0, 2}) {
        Bytes frame = randomFrame(W, H, 11 + format);
        const Bytes got = enhance(frame, W, H, format, 1, 50);
        ASSERT_EQ(gDown_level, L);
        Bytes plane(across * down), blurred(across * down, 0), want(outputBytes(W, H, format), 0);
        gCImgIn = frame.data();
        gV = plane.data();
        RGBConvert();
        MultiBlur(plane.data(), blurred.data(), across, down);
        for (int i = 0; i < 8; ++i) {
            tonetest::toneBand(format, L, frame.data() + i * W * B, frame.data() + W * H + i * W * B / 2,
                               want.data() + (format == 2 ? 2 : 1) * i * W * B, want.data() + W * H + i * W * B / 2,
                               blurred.data() + i * across * (B / L), W, i == 7 ? H - 7 * B : B, i == 7);
        }
        EXPECT_EQ(got, want) << "format " << format;
        EXPECT_NE(got, convertModel(frame, W, H, format));  // the tone did change
    }
}

TEST_F(ToneEnhance, TinyOddAndMismatchedSizesStayInsideTheBuffers) {
    // Exact-size buffers under the address sanitizer; the blur size (w, h)
    // may disagree with the frame size in either direction.
    const int cases[][4] = {{1, 1, 1, 1},   {2, 2, 2, 2},    {3, 5, 3, 5},      {9, 3, 9, 3},
                            {33, 17, 33, 17}, {40, 30, 8, 6}, {16, 12, 100, 90}, {20, 20, 0, -3}};
    for (auto [W, H, w, h] : cases) {
        for (int format : {0, 2, 4}) {
            for (int id : {1, 2, 3}) {
                Bytes frame = randomFrame(W, H, W + H + id);
                gW = W;
                gH = H;
                gOUTFormat = format;
                Bytes out(outputBytes(W, H, format));
                xImgEnhance_YCrCb(frame.data(), out.data(), w, h, id, 0);
            }
        }
    }
}

}  // namespace
