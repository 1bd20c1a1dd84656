// Tone-mapping kernels against a plain model of the per-pixel rule: blurred
// rows interpolated between cell rows and across cells, gain by the larger of
// the luma floor and the blurred value, chroma by the top-left pixel's gain.
#include <algorithm>
#include <cstring>

#include "tone/tone_internal.h"
#include "tone/tone_test.h"

namespace {

using tonetest::Bytes;

int r2(int a, int b) { return (a + b + 1) >> 1; }       // halfway
int r31(int a, int b) { return (3 * a + b + 2) >> 2; }  // a quarter of the way to b

// Two-pixel step k of L / 2 from cell value a toward the next one, b.
int blend(int a, int b, int k, int L) {
    switch (L == 4 ? 2 * k : k) {
        case 0: return a;
        case 1: return r31(a, b);
        case 2: return r2(a, b);
        default: return r31(b, a);
    }
}

// Blurred value of pixel (r, x) of a band: cell rows interpolated for the
// row pair, cells interpolated for the column pair.
int modelBlurred(const Bytes& cells, int L, int W, int rows, bool last, int r, int x) {
    const int across = (W + L - 1) / L, down = (rows + L - 1) / L;
    const int interpolatedRows = last ? (down - 1) * L : rows;
    const int r0 = r & ~1, x0 = x & ~1, j = x0 / L;
    auto rowValue = [&](int j) {
        if (r0 >= interpolatedRows) return static_cast<int>(cells[(interpolatedRows / L) * across + j]);
        return blend(cells[(r0 / L) * across + j], cells[(r0 / L + 1) * across + j], (r0 % L) / 2, L);
    };
    return j >= across - 1 ? rowValue(j) : blend(rowValue(j), rowValue(j + 1), (x0 % L) / 2, L);
}

int modelT(int y, int g) { return std::max<int>(gTHTable[y], g); }

int modelChroma(int c, int t, int negativeOffset, int positiveOffset) {
    const int d = c - 128;
    if (d == 0) return 128;
    const int m = (d * gScaleTb[t] + (d < 1 ? negativeOffset : positiveOffset)) >> 10;
    const int whole = static_cast<int>(static_cast<double>(static_cast<float>(m) * gUVScaleTb[t]) + 128.5);
    return whole < 1 ? 0 : (whole > 255 ? 255 : whole);
}

// Runs one kernel on a random band of W x rows (cell rows plus one when not
// last) and compares every output byte with the model, decoding the layout.
// gW x gH is set to the band so the planar second plane lies W * rows / 2 on.
void expectBandMatchesModel(int format, int L, int W, int rows, bool last, uint32_t seed) {
    trvtest::Rng rng(seed);
    Bytes inY = trvtest::randomBytes(static_cast<size_t>(W) * rows, seed);
    Bytes inC = trvtest::randomBytes(static_cast<size_t>(W) * (rows / 2), seed + 1);
    for (auto& c : inC) {
        if (rng.uniform(0, 5) == 0) c = 128;  // zero differences take their own path
    }
    const int across = (W + L - 1) / L, down = (rows + L - 1) / L + (last ? 0 : 1);
    Bytes cells = trvtest::randomBytes(static_cast<size_t>(across) * down, seed + 2);
    gW = W;
    gH = rows;
    Bytes out(tonetest::outputBytes(W, rows, format), 0);
    tonetest::toneBand(format, L, inY.data(), inC.data(), out.data(), out.data() + W * rows, cells.data(), W, rows,
                       last);
    for (int r = 0; r < rows; ++r) {
        for (int x = 0; x < W; ++x) {
            const int y = inY[r * W + x], t = modelT(y, modelBlurred(cells, L, W, rows, last, r, x));
            const int want = std::min((y * gScaleTb[t] + 512) >> 10, 255);
            ASSERT_EQ(format == 2 ? out[r * 2 * W + 2 * x] : out[r * W + x], want) << "luma r " << r << " x " << x;
        }
        for (int q = 0; q < W / 2; ++q) {
            const int t = modelT(inY[(r & ~1) * W + 2 * q], modelBlurred(cells, L, W, rows, last, r, 2 * q));
            // NV21: V U per row pair; planar: U and V planes; packed: Y0 U Y1 V.
            const int u = format == 4 ? W * rows + (r / 2) * W + 2 * q + 1
                          : format == 0 ? W * rows + r * (W / 2) + q
                                        : r * 2 * W + 4 * q + 1;
            const int v = format == 4 ? u - 1 : format == 0 ? u + W * rows / 2 : u + 2;
            ASSERT_EQ(out[u], modelChroma(inC[(r / 2) * W + 2 * q], t, 922, 102)) << "U row " << r << " pair " << q;
            ASSERT_EQ(out[v], modelChroma(inC[(r / 2) * W + 2 * q + 1], t, 778, 246)) << "V row " << r << " pair " << q;
        }
    }
}

class ToneKernels : public tonetest::ToneTest {};

TEST_F(ToneKernels, BlendRowsMatchTheirRoundedAverages) {
    for (int n : {1, 15, 16, 17, 33, 40}) {
        // Random rows, then the extremes: 3 * 255 + 255 + 2 must not wrap.
        const Bytes rows[3][2] = {{trvtest::randomBytes(n, 10 + n), trvtest::randomBytes(n, 20 + n)},
                                  {Bytes(n, 255), Bytes(n, 255)},
                                  {Bytes(n, 255), Bytes(n, 0)}};
        for (const auto& ab : rows) {
            Bytes half(n), quarter(n);
            createGuassRow_8_1(ab[0].data(), ab[1].data(), half.data(), n);
            createGuassRow_8_2(ab[0].data(), ab[1].data(), quarter.data(), n);
            for (int i = 0; i < n; ++i) {
                ASSERT_EQ(half[i], r2(ab[0][i], ab[1][i])) << "n " << n << " i " << i;
                ASSERT_EQ(quarter[i], r31(ab[0][i], ab[1][i])) << "n " << n << " i " << i;
            }
        }
    }
}

TEST_F(ToneKernels, CellRowExpansionInterpolatesAllButTheLastCell) {
    // Hand-computed: cells 0, 100, 40 at L = 8, W = 20 (three cells).
    const Bytes cells = {0, 100, 40};
    Bytes quads(10);
    trv::expandCellRow(cells.data(), quads.data(), 20, 8);
    EXPECT_EQ(quads, (Bytes{0, 25, 50, 75, 100, 85, 70, 55, 40, 40}));
    trv::expandCellRow(cells.data(), quads.data(), 12, 4);
    EXPECT_EQ(Bytes(quads.begin(), quads.begin() + 6), (Bytes{0, 50, 100, 70, 40, 40}));

    for (int L : {4, 8}) {
        for (int W = 1; W <= 2 * 8 * L + 3 * L + 1; ++W) {
            const Bytes row = trvtest::randomBytes((W + L - 1) / L, 100 + W);
            Bytes got((W + 1) / 2);
            trv::expandCellRow(row.data(), got.data(), W, L);
            for (int q = 0; q < (W + 1) / 2; ++q) {
                ASSERT_EQ(got[q], modelBlurred(row, L, W, 1, true, 0, 2 * q)) << "L " << L << " W " << W;
            }
        }
    }
}

// Widths and heights reach every vector path and tail: partial and whole
// last cells, fewer than one cell, and more than sixteen cells across.
// Half the runs go without the luma floor table (gain from the blur alone).
TEST_F(ToneKernels, AllMembersMatchThePerPixelRule) {
    uint32_t seed = 1;
    for (int L : {4, 8}) {
        for (int format : {4, 0, 2}) {
            for (int W : {2, 6, L, 3 * L, 18 * L + 2, 20 * L, 150}) {
                for (int rows : {2, L, 2 * L + 2, 3 * L}) {
                    if (seed % 4 < 2) {
                        createTHTable();
                    } else {
                        std::memset(gTHTable, 0, sizeof gTHTable);
                    }
                    gScaleTb = seed % 2 ? ScaleTable1 : ScaleTable4;
                    gUVScaleTb = seed % 2 ? uvScaleTable1 : uvScaleTable4;
                    expectBandMatchesModel(format, L, W, rows, true, seed++);
                    // Inner bands always hold whole cells.
                    if (rows % L == 0) expectBandMatchesModel(format, L, W, rows, false, seed++);
                }
            }
        }
    }
}

TEST_F(ToneKernels, FullBrightnessKeepsLumaAndGreyKeepsChroma) {
    createTHTable();
    gScaleTb = ScaleTable1;
    gUVScaleTb = uvScaleTable1;
    const int W = 16, rows = 8;
    Bytes inY(W * rows), inC(W * rows / 2, 128), cells(2, 255), out(W * rows * 3 / 2);
    for (int i = 0; i < W * rows; ++i) inY[i] = static_cast<uint8_t>(i * 7 % 256);
    inC[2] = 200;  // pair 1: U = 200, V = 128
    inC[5] = 10;   // pair 2: U = 128, V = 10
    xImgEnhance_NV21_8(inY.data(), inC.data(), out.data(), out.data() + W * rows, cells.data(), W, rows, 1);
    EXPECT_TRUE(std::equal(inY.begin(), inY.end(), out.begin()));  // t = 255: gain 1024
    // U = 200: m = (72 * 1024 + 102) >> 10 = 72; 72 * 0.8603 + 128.5 = 190.44.
    // V = 10: m = (-118 * 1024 + 778) >> 10 = -118 (arithmetic shift);
    // -118 * 0.8603 + 128.5 = 26.98. Output pairs are V, U.
    EXPECT_EQ(Bytes(out.begin() + W * rows, out.begin() + W * rows + 6), (Bytes{128, 128, 128, 190, 26, 128}));
}

TEST_F(ToneKernels, OddBandsStayInsideTheirBuffers) {
    // Odd widths and heights: exact-size buffers (ASan catches a stray byte);
    // the lone column's chroma slot is neutral, a lone row repeats the chroma
    // of the row above.
    gScaleTb = ScaleTable2;
    gUVScaleTb = uvScaleTable2;
    for (int L : {4, 8}) {
        for (int W : {1, 3, 2 * L + 1}) {
            for (int rows : {1, 3, L + 1}) {
                gW = W;
                gH = rows;
                Bytes inY = trvtest::randomBytes(W * rows, W + rows);
                Bytes inC = trvtest::randomBytes(W * (rows / 2), W * rows);
                Bytes cells = trvtest::randomBytes(((W + L - 1) / L) * ((rows + L - 1) / L), rows);
                Bytes nv21(tonetest::outputBytes(W, rows, 4)), planar(W * rows * 2, 1), packed(W * rows * 2, 1);
                for (auto [format, out] : {std::pair{4, &nv21}, std::pair{0, &planar}, std::pair{2, &packed}}) {
                    tonetest::toneBand(format, L, inY.data(), inC.data(), out->data(), out->data() + W * rows,
                                       cells.data(), W, rows, true);
                }
                for (int r = 0; r < rows; ++r) {
                    const bool lone = r == rows - 1 && r % 2 == 0 && r > 0;
                    ASSERT_EQ(packed[r * 2 * W + 2 * W - 1], lone ? packed[(r - 1) * 2 * W + 2 * W - 1] : 128);
                    ASSERT_EQ(packed[r * 2 * W], nv21[r * W]);  // same luma in every layout
                }
                if (rows == 3 && W > 1) {  // the lone third row repeats row 1's chroma
                    ASSERT_EQ(planar[W * rows + 2 * (W / 2)], planar[W * rows + W / 2]);
                    ASSERT_EQ(packed[2 * 2 * W + 1], packed[2 * W + 1]);
                }
            }
        }
    }
}

}  // namespace
