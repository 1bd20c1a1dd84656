// Tone enhancement: the colour-difference and tone tables, cell size, table
// choice, the brightness plane, the band geometry of the eight threads and
// the plain layout conversions.
#include <algorithm>
#include <array>
#include <utility>

#include "support/layouts.h"
#include "tone/tone_test.h"

namespace {

using tonetest::Bytes;
using tonetest::outputBytes;
using tonetest::randomFrame;

const int32_t* const kGains[4] = {ScaleTable1, ScaleTable2, ScaleTable3, ScaleTable4};
const float* const kChromaFactors[4] = {uvScaleTable1, uvScaleTable2, uvScaleTable3, uvScaleTable4};

TEST(ToneTables, HandComputedEntries) {
    // Colour differences round half away from zero: 1.403 * -128 = -179.58,
    // 2 * 1.403 = 2.806, 1.773 * -128 = -226.94; symmetric about 128.
    const int colour[][4] = {
        {0, -180, 128, -227}, {255, 178, -127, 225}, {130, 3, -2, 4}, {126, -3, 2, -4}, {128, 0, 0, 0}};
    for (auto [c, red, d, blue] : colour) {
        EXPECT_EQ((std::array{C0Table[c], C1Table[c], C2Table[c], C3Table[c]}),
                  (std::array{red, 11698 * d, 5636 * d, blue}));
    }
    // Gains at their anchors (sets 3 and 4 share gains), chroma factors of sets 1 and 4.
    const int points[6] = {1, 16, 64, 128, 192, 255};
    const int gains[3][6] = {{4210, 2401, 1570, 1256, 1110, 1024},
                             {2820, 1779, 1313, 1139, 1064, 1024},
                             {5056, 2645, 1654, 1292, 1123, 1024}};
    for (int s = 0; s < 4; ++s) {
        for (int i = 0; i < 6; ++i) EXPECT_EQ(kGains[s][points[i]], gains[std::min(s, 2)][i]) << s << " " << i;
        EXPECT_EQ(kGains[s][0], 0);
    }
    const float chroma[2][4] = {{0.782f, 0.8383f, 0.8517f, 0.8603f}, {0.6689f, 0.7988f, 0.8301f, 0.85f}};
    const int at[4] = {16, 64, 128, 255};
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(uvScaleTable1[at[i]] == chroma[0][i] && uvScaleTable4[at[i]] == chroma[1][i]);
    for (const float* f : kChromaFactors)
        EXPECT_TRUE(f[0] == 0.0f && f[1] == 0.0f);
}

class ToneEnhance : public tonetest::ToneTest {
protected:
    // The entry on a buffer with a guard byte past the output.
    Bytes enhance(Bytes& in, int W, int H, int format, int id, int level = 0, int w = -1, int h = -1) {
        gW = W;
        gH = H;
        gOUTFormat = format;
        Bytes out(outputBytes(W, H, format) + 1, 0xEE);
        xImgEnhance_YCrCb(in.data(), out.data(), w < 0 ? W : w, h < 0 ? H : h, id, level);
        EXPECT_EQ(out.back(), 0xEE) << "wrote past the output";
        out.pop_back();
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

TEST_F(ToneEnhance, CellSizeAndTableSetFollowTheStatedInputs) {
    // Cells of 4 up to 8,000,000 pixels of the pipeline's size, not of w x h.
    for (auto [W, L] : {std::pair{8000000, 4}, {8000001, 8}}) {
        Bytes line(W, 9);
        enhance(line, W, 1, 4, 0, 0, 5000, 5000);
        EXPECT_EQ(gDown_level, L) << W;
    }
    Bytes in = randomFrame(8, 8, 1);
    // ID, level, set; IDs 0 and 7 keep the last choice.
    for (auto [id, level, set] : {std::array{1, 99, 0}, {1, 100, 1}, {2, 0, 2}, {3, 500, 3}, {0, 5, 3}, {7, 0, 3}}) {
        enhance(in, 8, 8, 4, id, level);
        EXPECT_TRUE(gScaleTb == kGains[set] && gUVScaleTb == kChromaFactors[set] && gColorEnhanceID == id) << id;
    }
}

TEST_F(ToneEnhance, BrightnessPlaneHoldsHandComputedCells) {
    // 8 x 12, luma 50 | 91, plus 1 in columns 2 and 6 and 4 for each 4-row
    // step down. At L = 4 every cell is a whole step, (50 + 51 + 54 + 55 + 2)
    // >> 2 = 53; the last ones' lower samples lie past the luma, in the grey
    // first chroma row: (58 + 59 + 128 + 128 + 2) >> 2 = 93. At L = 8 a whole
    // step, (50 + 91 + 54 + 95 + 2) >> 2 = 73, then a 2-row one, (58 + 99 + 1)
    // >> 1 = 79. V = 200 adds round(1.403 * 72) = 101 (G - Y = -51 loses);
    // U = 20, V = 60 add (11698 * 68 + 5636 * 108 + 8192) >> 14 = 86 (R - Y
    // and B - Y are negative).
    Bytes frame(8 * 12 + 8 * 6, 128);
    for (int i = 0; i < 96; ++i) frame[i] = static_cast<uint8_t>((i % 8 < 4 ? 50 : 91) + (i % 4 == 2) + (i / 32) * 4);
    frame[96 + 5] = 200;  // pair of column 4, row 0
    frame[112] = 20;      // pair of column 0, row 4
    frame[113] = 60;
    for (auto [L, want] : {std::pair{4, Bytes{53, 195, 143, 98, 93, 114}}, {8, Bytes{73, 79}}}) {
        Bytes plane(want.size(), 0);
        gW = 8;
        gH = 12;
        gDown_level = L;
        gCImgIn = frame.data();
        gV = plane.data();
        RGBConvert();
        EXPECT_EQ(plane, want) << L;
    }
}

TEST_F(ToneEnhance, IdZeroAndUnknownIdsOnlyConvertTheLayout) {
    // 40 x 70 at L = 4: bands of 8 rows, band 7 takes 14; odd heights leave
    // a lone last row. An unknown ID must not read a stale brightness plane.
    for (int H : {70, 69, 1}) {
        for (int format : {0, 4, 2}) {
            Bytes frame = randomFrame(40, H, H + format);
            const Bytes want = convertModel(frame, 40, H, format);
            EXPECT_EQ(enhance(frame, 40, H, format, 0), want) << "H " << H << " format " << format;
            enhance(frame, 40, H, format, 1);
            EXPECT_EQ(enhance(frame, 40, H, format, 7), want) << "H " << H << " format " << format;
        }
    }
    // Without a kernel for the cell size the bands write nothing. The entry
    // leaves the state of a tone-mapping call behind.
    Bytes frame = randomFrame(32, 32, 8), out(outputBytes(32, 32, 4), 77);
    enhance(frame, 32, 32, 4, 1);
    gCImgOut = out.data();
    for (int L : {0, 5, -4}) {
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
    // Tiny, odd and mismatched sizes: exact buffers (the address sanitizer
    // watches the input) and the guard byte after the output stay untouched.
    for (auto [W, H, w, h] :
         {std::array{1, 1, 1, 1}, {3, 5, 3, 5}, {9, 3, 9, 3}, {40, 30, 8, 6}, {16, 12, 100, 90}, {20, 20, 0, -3}}) {
        for (int format : {0, 2, 4}) {
            Bytes frame = randomFrame(W, H, W + H + format);
            enhance(frame, W, H, format, 1 + format % 3, 0, w, h);
        }
    }
}

}  // namespace
