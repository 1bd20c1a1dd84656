// Tone-mapping kernels: hand-computed single quads under flat gain tables pin
// the luma and chroma rounding of every member and its output order; the
// vector row blends and cell-row expansion against their rules on random rows
// of awkward widths; hand-computed row pairs pin the walk down a band.
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

// Blurred value of column pair x / 2 of one expanded cell row.
int modelQuad(const Bytes& cells, int L, int W, int x) {
    const int j = (x & ~1) / L;
    return j >= (W + L - 1) / L - 1 ? cells[j] : blend(cells[j], cells[j + 1], (x & ~1) % L / 2, L);
}

// Offsets of pixel 1's luma, U and V in rows 0 and 1 of a 2 x 2 output:
// NV21 (one chroma row, V first), planar 4:2:2, packed Y0 U Y1 V.
const struct {
    int format, at[2][3];
} kQuadOffsets[] = {{4, {{1, 5, 4}, {3, 5, 4}}}, {0, {{1, 4, 6}, {3, 5, 7}}}, {2, {{2, 1, 3}, {6, 5, 7}}}};

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
            for (const auto& q : kQuadOffsets) {
                Bytes out(8, 0);
                tonetest::toneBand(q.format, L, inY.data(), inC.data(), out.data(), out.data() + 4, cell.data(), 2, 2,
                                   true);
                for (const auto& at : q.at) {
                    EXPECT_EQ((std::array{+out[at[0]], +out[at[1]], +out[at[2]]}), (std::array{wantY, wantU, wantV}))
                        << "s " << s << " L " << L << " format " << q.format;
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
    for (int L : {4, 8}) {
        for (int W = 1; W <= 19 * L + 1; ++W) {
            const Bytes row = trvtest::randomBytes((W + L - 1) / L, 100 + W);
            Bytes got((W + 1) / 2);
            trv::expandCellRow(row.data(), got.data(), W, L);
            for (int q = 0; q < (W + 1) / 2; ++q) ASSERT_EQ(got[q], modelQuad(row, L, W, 2 * q)) << W;
        }
    }
}

// Luma 1 under gain 1024 t comes out as t, the larger of the floor and the
// blurred value. One cell across, cell rows 0 then 200: at L = 8 the row pairs
// blend 0, a quarter, half and three quarters of the way (0, 50, 100, 150);
// at L = 4, 0 and 100. The last band's rows past its last whole step take the
// last cell row (200). A floor of 60 lifts the lower ones.
TEST_F(ToneKernels, RowPairsBlendTheirCellRowsOverTheFloor) {
    std::array<int32_t, 256> gains;
    for (int t = 0; t < 256; ++t) gains[t] = 1024 * t;
    gScaleTb = gains.data();
    gUVScaleTb = uvScaleTable1;
    const struct {
        int L, rows;
        bool last;
        uint8_t floor;
        std::vector<int> want;  // luma of each row pair
    } cases[] = {{8, 8, false, 0, {0, 50, 100, 150}},   {8, 10, true, 0, {0, 50, 100, 150, 200}},
                 {4, 4, false, 0, {0, 100}},            {4, 6, true, 0, {0, 100, 200}},
                 {8, 8, false, 60, {60, 60, 100, 150}}, {4, 8, true, 60, {60, 100, 200, 200}}};
    for (const auto& c : cases) {
        std::memset(gTHTable, 0, sizeof gTHTable);
        gTHTable[1] = c.floor;  // NV21 output: the frame size is not read
        Bytes inY(2 * c.rows, 1), inC(c.rows, 128), cells = {0, 200}, out(4 * c.rows, 0);
        tonetest::toneBand(4, c.L, inY.data(), inC.data(), out.data(), out.data() + 2 * c.rows, cells.data(), 2,
                           c.rows, c.last);
        for (int r = 0; r < c.rows; ++r) EXPECT_EQ(out[2 * r + 1], c.want[r / 2]) << c.L << " " << c.rows << " " << r;
    }
}

}  // namespace
