// Tone-mapping kernels: hand-computed single quads under flat gain tables pin
// the luma and chroma rounding of every member and its output order; random
// bands of awkward sizes check the vector row blends and the band walk
// (interpolated blurred rows, tails, layouts) against the per-pixel rule.
#include <algorithm>
#include <array>
#include <cstring>

#include "tone/tone_internal.h"
#include "tone/tone_test.h"

namespace {

using tonetest::Bytes;

int r2(int a, int b) { return (a + b + 1) >> 1; }       // halfway
int r31(int a, int b) { return (3 * a + b + 2) >> 2; }  // a quarter of the way to b

// Two-pixel step k of L / 2 from cell value a toward the next one, b.
int blend(int a, int b, int k, int L) {
    const int step = L == 4 ? 2 * k : k;
    return step == 0 ? a : step == 1 ? r31(a, b) : step == 2 ? r2(a, b) : r31(b, a);
}

// Blurred value of pixel (r, x) of a band: cell rows interpolated for the
// row pair, cells interpolated for the column pair.
int modelBlurred(const Bytes& cells, int L, int W, int rows, bool last, int r, int x) {
    const int across = (W + L - 1) / L, interpolatedRows = last ? ((rows + L - 1) / L - 1) * L : rows;
    const int r0 = r & ~1, x0 = x & ~1, j = x0 / L;
    auto rowValue = [&](int j) {
        if (r0 >= interpolatedRows) return static_cast<int>(cells[(interpolatedRows / L) * across + j]);
        return blend(cells[(r0 / L) * across + j], cells[(r0 / L + 1) * across + j], (r0 % L) / 2, L);
    };
    return j >= across - 1 ? rowValue(j) : blend(rowValue(j), rowValue(j + 1), (x0 % L) / 2, L);
}

// Byte offsets of luma (r, x) and of the U and V of pixel pair (r, q).
struct Layout {
    int format, W, rows;
    int y(int r, int x) const { return format == 2 ? r * 2 * W + 2 * x : r * W + x; }
    int u(int r, int q) const {
        return format == 4   ? W * rows + (r / 2) * W + 2 * q + 1
               : format == 0 ? W * rows + r * (W / 2) + q
                             : r * 2 * W + 4 * q + 1;
    }
    int v(int r, int q) const { return format == 4 ? u(r, q) - 1 : format == 0 ? u(r, q) + W * rows / 2 : u(r, q) + 2; }
};

class ToneKernels : public tonetest::ToneTest {};

TEST_F(ToneKernels, SingleQuadsUnderFlatGainsRoundAsStated) {
    // Gain s and chroma factor f for every t: Y' = (Y s + 512) >> 10,
    // U' = int(f ((u s + (u < 1 ? 922 : 102)) >> 10) + 128.5) and V' the same
    // with 778 / 246, clamped. Rows sit on the rounding boundaries, e.g.
    // s 1023, U 26: -102 * 1023 + 922 = -101 * 1024, so U' = 27; s 901,
    // V 126: -2 * 901 + 778 = -1024, V' = 127; s 777, V 129: 777 + 246 = 1023,
    // V' = 128; s 1536, Y 1: 2048 >> 10 = 2; f 0.5, U 129: 0.5 + 128.5 = 129.
    const int cases[][7] = {
        {1023, 200, 26, 231, 200, 27, 231}, {1023, 100, 27, 230, 100, 27, 230},  {1023, 50, 230, 26, 50, 230, 26},
        {1023, 3, 231, 27, 3, 230, 27},     {901, 179, 128, 126, 157, 128, 127}, {901, 178, 200, 130, 157, 191, 130},
        {779, 9, 100, 127, 7, 107, 127},    {777, 10, 60, 129, 8, 77, 128},      {1536, 1, 129, 128, 2, 129, 128},
        {1024, 77, 129, 127, 77, 129, 128}, {4096, 255, 255, 0, 255, 255, 0}};
    gW = gH = 2;
    std::memset(gTHTable, 0, sizeof gTHTable);
    for (auto [s, y, u, v, wantY, wantU, wantV] : cases) {
        std::array<int32_t, 256> gains;
        std::array<float, 256> factors;
        gains.fill(s);
        factors.fill(s == 1024 ? 0.5f : 1.0f);
        gScaleTb = gains.data();
        gUVScaleTb = factors.data();
        Bytes inY(4, static_cast<uint8_t>(y)), inC = {static_cast<uint8_t>(u), static_cast<uint8_t>(v)}, cell(1, 9);
        for (int L : {4, 8}) {
            for (int format : {4, 0, 2}) {
                Bytes out(8, 0);
                tonetest::toneBand(format, L, inY.data(), inC.data(), out.data(), out.data() + 4, cell.data(), 2, 2,
                                   true);
                const Layout at{format, 2, 2};
                for (int r = 0; r < 2; ++r) {
                    EXPECT_EQ((std::array{+out[at.y(r, 1)], +out[at.u(r, 0)], +out[at.v(r, 0)]}),
                              (std::array{wantY, wantU, wantV}))
                        << "s " << s << " L " << L << " format " << format;
                }
            }
        }
    }
}

TEST_F(ToneKernels, RowBlendsAndCellRowExpansionMatchTheirRules) {
    for (int n : {1, 15, 16, 17, 33}) {  // random rows, then 3 * 255 + 255 + 2 must not wrap
        for (const Bytes& a : {trvtest::randomBytes(n, 10 + n), Bytes(n, 255)}) {
            const Bytes b = a[0] == 255 ? Bytes(n, 0) : trvtest::randomBytes(n, 20 + n);
            Bytes half(n), quarter(n);
            createGuassRow_8_1(a.data(), b.data(), half.data(), n);
            createGuassRow_8_2(a.data(), b.data(), quarter.data(), n);
            for (int i = 0; i < n; ++i) ASSERT_TRUE(half[i] == r2(a[i], b[i]) && quarter[i] == r31(a[i], b[i])) << n;
        }
    }
    // Hand-computed: cells 0, 100, 40 at L = 8, W = 20 (three cells).
    const Bytes cells = {0, 100, 40};
    Bytes quads(10);
    trv::expandCellRow(cells.data(), quads.data(), 20, 8);
    EXPECT_EQ(quads, (Bytes{0, 25, 50, 75, 100, 85, 70, 55, 40, 40}));
    for (int L : {4, 8}) {
        for (int W = 1; W <= 19 * L + 1; ++W) {
            const Bytes row = trvtest::randomBytes((W + L - 1) / L, 100 + W);
            Bytes got((W + 1) / 2);
            trv::expandCellRow(row.data(), got.data(), W, L);
            for (int q = 0; q < (W + 1) / 2; ++q) ASSERT_EQ(got[q], modelBlurred(row, L, W, 1, true, 0, 2 * q)) << W;
        }
    }
}

// Widths and heights reach every vector path and tail: partial and whole last
// cells, fewer than one cell, more than sixteen cells across. Luma follows
// the rule; each quad's chroma equals that of a quad on flat cells of its
// top-left pixel's brightness t (the rounding itself is pinned above).
TEST_F(ToneKernels, AllMembersFollowThePerPixelRule) {
    uint32_t seed = 1;
    for (bool set4 : {false, true}) {
        gScaleTb = set4 ? ScaleTable4 : ScaleTable1;
        gUVScaleTb = set4 ? uvScaleTable4 : uvScaleTable1;
        // chroma[t]: V', U' of c at 2c, 2c + 1 on flat cells t (luma 0 has floor 0).
        std::vector<Bytes> chroma(256, Bytes(1536));
        Bytes zeros(1024, 0), pairs(512);
        for (int c = 0; c < 512; ++c) pairs[c] = static_cast<uint8_t>(c / 2);
        for (int t = 0; t < 256; ++t) {
            Bytes flat(128, static_cast<uint8_t>(t));
            xImgEnhance_NV21_4(zeros.data(), pairs.data(), chroma[t].data(), chroma[t].data() + 1024, flat.data(), 512,
                               2, 1);
        }
        for (int L : {4, 8}) {
            for (int format : {4, 0, 2}) {
                for (int W : {2, 6, L, 3 * L, 18 * L + 2, 150}) {
                    for (int rows : {2, L, 2 * L + 2}) {
                        for (bool last : {true, rows % L != 0}) {
                            if (++seed % 2)
                                createTHTable();
                            else
                                std::memset(gTHTable, 0, sizeof gTHTable);
                            Bytes inY = trvtest::randomBytes(static_cast<size_t>(W) * rows, seed);
                            Bytes inC = trvtest::randomBytes(static_cast<size_t>(W) * (rows / 2), seed + 1);
                            for (size_t i = 0; i < inC.size(); i += 5) inC[i] = 128;  // zero differences
                            const int across = (W + L - 1) / L, down = (rows + L - 1) / L + (last ? 0 : 1);
                            Bytes cells = trvtest::randomBytes(static_cast<size_t>(across) * down, seed + 2);
                            gW = W;
                            gH = rows;
                            Bytes got(tonetest::outputBytes(W, rows, format), 0);
                            tonetest::toneBand(format, L, inY.data(), inC.data(), got.data(), got.data() + W * rows,
                                               cells.data(), W, rows, last);
                            const Layout at{format, W, rows};
                            auto tOf = [&](int r, int x) {
                                return std::max<int>(gTHTable[inY[r * W + x]],
                                                     modelBlurred(cells, L, W, rows, last, r, x));
                            };
                            for (int r = 0; r < rows; ++r) {
                                for (int x = 0; x < W; ++x) {
                                    const int y = inY[r * W + x],
                                              want = std::min((y * gScaleTb[tOf(r, x)] + 512) >> 10, 255);
                                    ASSERT_EQ(got[at.y(r, x)], want) << L << " " << format << " " << W << " " << rows;
                                }
                                for (int q = 0; q < W / 2; ++q) {
                                    const Bytes& c = chroma[tOf(r & ~1, 2 * q)];
                                    const uint8_t* uv = &inC[(r / 2) * W + 2 * q];
                                    ASSERT_EQ(got[at.u(r, q)], c[1024 + 2 * uv[0] + 1])
                                        << L << " " << format << " " << W;
                                    ASSERT_EQ(got[at.v(r, q)], c[1024 + 2 * uv[1]]) << L << " " << format << " " << W;
                                }
                            }
                        }
                    }
                }
            }
        }
    }
}

}  // namespace
