// Tone-mapping kernels against a plain model of the per-pixel rule: blurred
// rows interpolated between cell rows and across cells, gain by the larger of
// the luma floor and the blurred value, chroma by the top-left pixel's gain.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "support/synthetic.h"
#include "tone/tone_internal.h"
#include "trv/stages.h"

namespace {

using Bytes = std::vector<uint8_t>;

int r2(int a, int b) { return (a + b + 1) >> 1; }   // halfway
int r31(int a, int b) { return (3 * a + b + 2) >> 2; }  // a quarter of the way to b

// Blurred value of pixel (r, x) of a band: cell rows interpolated for the
// row pair, cells interpolated for the column pair.
int modelBlurred(const Bytes& cells, int L, int W, int rows, bool last, int r, int x) {
    const int across = (W + L - 1) / L;
    const int down = (rows + L - 1) / L;
    const int interpolatedRows = last ? (down - 1) * L : rows;
    const int r0 = r & ~1, x0 = x & ~1;
    auto rowValue = [&](int j) {
        if (r0 >= interpolatedRows) return static_cast<int>(cells[(interpolatedRows / L) * across + j]);
        const int a = cells[(r0 / L) * across + j], b = cells[(r0 / L + 1) * across + j];
        switch (r0 % L) {
            case 0: return a;
            case 2: return L == 8 ? r31(a, b) : r2(a, b);
            case 4: return r2(a, b);
            default: return r31(b, a);
        }
    };
    const int j = x0 / L;
    if (j >= across - 1) return rowValue(j);
    const int c0 = rowValue(j), c1 = rowValue(j + 1);
    switch ((x0 % L) / 2) {
        case 0: return c0;
        case 1: return L == 8 ? r31(c0, c1) : r2(c0, c1);
        case 2: return r2(c0, c1);
        default: return r31(c1, c0);
    }
}

int modelT(int y, int g) { return std::max<int>(gTHTable[y], g); }
int modelLuma(int y, int t) { return std::min((y * gScaleTb[t] + 512) >> 10, 255); }

int modelChroma(int c, int t, int negativeOffset, int positiveOffset) {
    const int d = c - 128;
    if (d == 0) return 128;
    const int m = (d * gScaleTb[t] + (d < 1 ? negativeOffset : positiveOffset)) >> 10;
    const double value = static_cast<double>(static_cast<float>(m) * gUVScaleTb[t]) + 128.5;
    const int whole = static_cast<int>(value);
    return whole < 1 ? 0 : (whole > 255 ? 255 : whole);
}

// Expected planes: luma rows x W, and per row pair and column pair (U', V').
struct Expected {
    Bytes y, u, v;
};

Expected model(const Bytes& inY, const Bytes& inC, const Bytes& cells, int L, int W, int rows, bool last) {
    Expected e{Bytes(inY.size()), Bytes((rows / 2) * (W / 2)), Bytes((rows / 2) * (W / 2))};
    for (int r = 0; r < rows; ++r) {
        for (int x = 0; x < W; ++x) {
            const int y = inY[r * W + x];
            e.y[r * W + x] = static_cast<uint8_t>(modelLuma(y, modelT(y, modelBlurred(cells, L, W, rows, last, r, x))));
        }
    }
    for (int cr = 0; cr < rows / 2; ++cr) {
        for (int q = 0; q < W / 2; ++q) {
            const int r = 2 * cr, x = 2 * q;
            const int t = modelT(inY[r * W + x], modelBlurred(cells, L, W, rows, last, r, x));
            e.u[cr * (W / 2) + q] = static_cast<uint8_t>(modelChroma(inC[cr * W + x], t, 922, 102));
            e.v[cr * (W / 2) + q] = static_cast<uint8_t>(modelChroma(inC[cr * W + x + 1], t, 778, 246));
        }
    }
    return e;
}

enum class Layout { Nv21, Yv16, Yuyv };

// Runs one kernel on a band of W x rows; the band's cell rows (plus one when
// not last) are random. The frame size gW x gH is set to the band so the
// planar kernel's second plane lies W * rows / 2 after the first.
struct KernelRun {
    Bytes inY, inC, cells, out;
    Expected expected;
};

KernelRun runKernel(Layout layout, int L, int W, int rows, bool last, uint32_t seed) {
    trvtest::Rng rng(seed);
    KernelRun run;
    run.inY = trvtest::randomBytes(static_cast<size_t>(W) * rows, seed);
    run.inC = trvtest::randomBytes(static_cast<size_t>(W) * (rows / 2), seed + 1);
    for (auto& c : run.inC) {
        if (rng.uniform(0, 5) == 0) c = 128;  // zero differences take their own path
    }
    const int across = (W + L - 1) / L, down = (rows + L - 1) / L + (last ? 0 : 1);
    run.cells = trvtest::randomBytes(static_cast<size_t>(across) * down, seed + 2);
    gW = W;
    gH = rows;
    const bool eight = L == 8;
    switch (layout) {
        case Layout::Nv21:
            run.out.assign(static_cast<size_t>(W) * rows + W * (rows / 2), 0);
            (eight ? xImgEnhance_NV21_8 : xImgEnhance_NV21_4)(run.inY.data(), run.inC.data(), run.out.data(),
                                                               run.out.data() + W * rows, run.cells.data(), W,
                                                               rows, last);
            break;
        case Layout::Yv16:
            run.out.assign(static_cast<size_t>(W) * rows * 2, 0);
            (eight ? xImgEnhance_YV16_8 : xImgEnhance_YV16_4)(run.inY.data(), run.inC.data(), run.out.data(),
                                                               run.out.data() + W * rows, run.cells.data(), W,
                                                               rows, last);
            break;
        case Layout::Yuyv:
            run.out.assign(static_cast<size_t>(W) * rows * 2, 0);
            (eight ? xImgEnhance_YUYV_8 : xImgEnhance_YUYV_4)(run.inY.data(), run.inC.data(), run.out.data(),
                                                               run.cells.data(), W, rows, last);
            break;
    }
    run.expected = model(run.inY, run.inC, run.cells, L, W, rows, last);
    return run;
}

// Compares an even-sized band's output with the model, decoding the layout.
void expectMatchesModel(Layout layout, const KernelRun& run, int W, int rows) {
    const Expected& e = run.expected;
    const int half = W / 2;
    for (int r = 0; r < rows; ++r) {
        for (int x = 0; x < W; ++x) {
            const uint8_t got = layout == Layout::Yuyv ? run.out[r * 2 * W + 2 * x] : run.out[r * W + x];
            ASSERT_EQ(got, e.y[r * W + x]) << "luma r " << r << " x " << x;
        }
        for (int q = 0; q < half; ++q) {
            const int k = (r / 2) * half + q;
            uint8_t u = 0, v = 0;
            if (layout == Layout::Nv21) {
                v = run.out[W * rows + (r / 2) * W + 2 * q];
                u = run.out[W * rows + (r / 2) * W + 2 * q + 1];
            } else if (layout == Layout::Yv16) {
                u = run.out[W * rows + r * half + q];
                v = run.out[W * rows + W * rows / 2 + r * half + q];
            } else {
                u = run.out[r * 2 * W + 4 * q + 1];
                v = run.out[r * 2 * W + 4 * q + 3];
            }
            ASSERT_EQ(u, e.u[k]) << "U row " << r << " pair " << q;
            ASSERT_EQ(v, e.v[k]) << "V row " << r << " pair " << q;
        }
    }
}

class ToneKernels : public ::testing::Test {
  protected:
    void SetUp() override {
        std::memcpy(savedTH_, gTHTable, sizeof savedTH_);
        savedGain_ = gScaleTb;
        savedChroma_ = gUVScaleTb;
        savedW_ = gW;
        savedH_ = gH;
    }
    void TearDown() override {
        std::memcpy(gTHTable, savedTH_, sizeof savedTH_);
        gScaleTb = savedGain_;
        gUVScaleTb = savedChroma_;
        gW = savedW_;
        gH = savedH_;
    }

  private:
    uint8_t savedTH_[256];
    const int32_t* savedGain_;
    const float* savedChroma_;
    int32_t savedW_, savedH_;
};

TEST_F(ToneKernels, BlendRowsMatchTheirRoundedAverages) {
    for (int n : {1, 15, 16, 17, 33, 40}) {
        const Bytes a = trvtest::randomBytes(n, 10 + n), b = trvtest::randomBytes(n, 20 + n);
        Bytes half(n), quarter(n);
        createGuassRow_8_1(a.data(), b.data(), half.data(), n);
        createGuassRow_8_2(a.data(), b.data(), quarter.data(), n);
        for (int i = 0; i < n; ++i) {
            ASSERT_EQ(half[i], r2(a[i], b[i])) << "n " << n << " i " << i;
            ASSERT_EQ(quarter[i], r31(a[i], b[i])) << "n " << n << " i " << i;
        }
    }
    const Bytes lo(16, 0), hi(16, 255);  // extremes: 3 * 255 + 255 + 2 must not wrap
    Bytes out(16);
    createGuassRow_8_2(hi.data(), hi.data(), out.data(), 16);
    EXPECT_EQ(out[0], 255);
    createGuassRow_8_2(hi.data(), lo.data(), out.data(), 16);
    EXPECT_EQ(out[15], (765 + 2) >> 2);
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
            const int across = (W + L - 1) / L;
            const Bytes row = trvtest::randomBytes(across, 100 + W);
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
    int seed = 1;
    for (int L : {4, 8}) {
        for (Layout layout : {Layout::Nv21, Layout::Yv16, Layout::Yuyv}) {
            for (int W : {2, 6, L, 3 * L, 18 * L + 2, 20 * L, 150}) {
                for (int rows : {2, L, 2 * L + 2, 3 * L}) {
                    if (seed % 4 < 2) {
                        createTHTable();
                    } else {
                        std::memset(gTHTable, 0, sizeof gTHTable);
                    }
                    gScaleTb = seed % 2 ? ScaleTable1 : ScaleTable4;
                    gUVScaleTb = seed % 2 ? uvScaleTable1 : uvScaleTable4;
                    KernelRun last = runKernel(layout, L, W, rows, true, seed++);
                    expectMatchesModel(layout, last, W, rows);
                    if (rows % L == 0) {  // inner bands always hold whole cells
                        KernelRun inner = runKernel(layout, L, W, rows, false, seed++);
                        expectMatchesModel(layout, inner, W, rows);
                    }
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
    Bytes inY(W * rows), inC(W * rows / 2, 128), cells(2 * 1, 255), out(W * rows * 3 / 2);
    for (int i = 0; i < W * rows; ++i) inY[i] = static_cast<uint8_t>(i * 7 % 256);
    inC[2] = 200;  // pair 1: U = 200, V = 128
    inC[5] = 10;   // pair 2: U = 128, V = 10
    xImgEnhance_NV21_8(inY.data(), inC.data(), out.data(), out.data() + W * rows, cells.data(), W, rows, 1);
    EXPECT_TRUE(std::equal(inY.begin(), inY.end(), out.begin()));  // t = 255: gain 1024
    const uint8_t* outC = out.data() + W * rows;
    EXPECT_EQ(outC[0], 128);
    EXPECT_EQ(outC[1], 128);
    // U = 200: m = (72 * 1024 + 102) >> 10 = 72; 72 * 0.8603 + 128.5 = 190.44.
    EXPECT_EQ(outC[3], 190);
    EXPECT_EQ(outC[2], 128);
    // V = 10: m = (-118 * 1024 + 778) >> 10 = -118 (arithmetic shift);
    // -118 * 0.8603 + 128.5 = 26.98.
    EXPECT_EQ(outC[4], 26);
    EXPECT_EQ(outC[5], 128);
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
                const Bytes inY = trvtest::randomBytes(W * rows, W + rows);
                const Bytes inC = trvtest::randomBytes(W * (rows / 2), W * rows);
                const Bytes cells = trvtest::randomBytes(((W + L - 1) / L) * ((rows + L - 1) / L), rows);
                Bytes nv21(W * rows + W * (rows / 2)), planar(W * rows * 2, 1), packed(W * rows * 2, 1);
                uint8_t* cellsPtr = const_cast<uint8_t*>(cells.data());
                uint8_t* y = const_cast<uint8_t*>(inY.data());
                uint8_t* c = const_cast<uint8_t*>(inC.data());
                (L == 8 ? xImgEnhance_NV21_8 : xImgEnhance_NV21_4)(y, c, nv21.data(), nv21.data() + W * rows,
                                                                   cellsPtr, W, rows, 1);
                (L == 8 ? xImgEnhance_YV16_8 : xImgEnhance_YV16_4)(y, c, planar.data(), planar.data() + W * rows,
                                                                   cellsPtr, W, rows, 1);
                (L == 8 ? xImgEnhance_YUYV_8 : xImgEnhance_YUYV_4)(y, c, packed.data(), cellsPtr, W, rows, 1);
                for (int r = 0; r < rows; ++r) {
                    ASSERT_EQ(packed[r * 2 * W + 2 * W - 1], r == rows - 1 && r % 2 == 0 && r > 0
                                                                  ? packed[(r - 1) * 2 * W + 2 * W - 1]
                                                                  : 128);
                    ASSERT_EQ(packed[r * 2 * W], nv21[r * W]);  // same luma in every layout
                }
                if (rows == 3 && W > 1) {  // the lone third row repeats row 1's chroma
                    const int half = W / 2;
                    ASSERT_EQ(planar[W * rows + 2 * half], planar[W * rows + half]);
                    ASSERT_EQ(packed[2 * 2 * W + 1], packed[2 * W + 1]);
                }
            }
        }
    }
}

}  // namespace
