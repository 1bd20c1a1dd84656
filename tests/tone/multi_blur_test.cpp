// Multi-level blur: hand-computed table entries, coefficients and merge
// examples, and the vector line filter against a plain float
// model of the recursive Gaussian (same summation order).
#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>

#include "tone/blur_line.h"
#include "tone/tone_test.h"

namespace {

using tonetest::Bytes;

// The recurrence in float with separate forward and backward buffers, each
// step summed as (first two products) + (last two products).
std::vector<float> modelLine(const std::vector<float>& x, const TRVGauss3Coefs& c) {
    const float B = static_cast<float>(c.B), b1 = static_cast<float>(c.b1_b0), b2 = static_cast<float>(c.b2_b0),
                b3 = static_cast<float>(c.b3_b0);
    const int n = static_cast<int>(x.size());
    std::vector<float> w(n + 3), r(n + 3);
    w[0] = w[1] = w[2] = x[0];
    for (int i = 0; i < n; ++i) w[i + 3] = (b3 * w[i] + b2 * w[i + 1]) + (b1 * w[i + 2] + B * x[i]);
    r[n] = r[n + 1] = r[n + 2] = w[n + 2];
    for (int j = n - 1; j >= 0; --j) r[j] = (B * w[j] + b1 * r[j + 1]) + (b2 * r[j + 2] + b3 * r[j + 3]);
    r.resize(n);
    return r;
}

class MultiBlurTest : public tonetest::ToneTest {
protected:
    static Bytes blur(Bytes in, int w, int h) {
        Bytes out(in.size() + 1, 0xEE);
        MultiBlur(in.data(), out.data(), w, h);
        EXPECT_EQ(out.back(), 0xEE) << "wrote past the output";
        out.pop_back();
        return out;
    }
};

TEST_F(MultiBlurTest, TablesAndCoefficientsHoldHandComputedValues) {
    createDivTable();
    createTHTable();
    // 0.8 x: 2.4 rounds down, 1.6 up.
    const int thirds[][2] = {{0, 0}, {2, 0}, {3, 1}, {301, 100}, {767, 255}};
    const int tenths[][2] = {{22, 18}, {78, 62}, {3, 2}, {2, 2}, {255, 204}};
    const int floors[][2] = {{0, 0}, {100, 77}, {200, 171}, {255, 229}};
    for (auto [i, v] : thirds) EXPECT_EQ(gDivTable[i], v) << i;
    for (auto [i, v] : tenths) EXPECT_EQ(gDivTable_0_8[i], v) << i;
    for (auto [i, v] : floors) EXPECT_EQ(gTHTable[i], v) << i;
    EXPECT_TRUE(gSigma[0] == 5.0f && gSigma[1] == 25.0f && gSigma[2] == 50.0f);
    // s = 5: q = 0.98711 * 5 - 0.9633 = 3.97225, and b3 = 0.422205 q^3.
    const TRVGauss3Coefs c5 = trv::gauss3Coefs(5.0f);
    EXPECT_NEAR(std::cbrt(c5.b3_b0 * c5.b0 / 0.422205), 3.97225, 1e-5);
    EXPECT_NEAR(c5.B + c5.b1_b0 + c5.b2_b0 + c5.b3_b0, 1.0, 1e-12);
    // Below 0.5, and NaN, the fixed set.
    const std::vector<double> fixed = {0.8402931817149808, 0.17040202155449766, -0.01103503914132615,
                                       0.00033983587184773943, 1.87821364402771};
    for (float s : {0.49f, -3.0f, NAN}) {
        const TRVGauss3Coefs c = trv::gauss3Coefs(s);
        EXPECT_EQ((std::vector<double>{c.B, c.b1_b0, c.b2_b0, c.b3_b0, c.b0}), fixed) << s;
    }
}

TEST_F(MultiBlurTest, LineFilterMatchesScalarModelExactly) {
    trvtest::Rng rng(7);
    for (float s : {5.0f, 50.0f, 1.3f, 0.2f}) {
        const TRVGauss3Coefs c = trv::gauss3Coefs(s);
        for (int n : {1, 2, 3, 4, 5, 7, 8, 9, 31, 64, 333}) {
            std::vector<float> x(n), got(n + 3);
            for (float& v : x) v = rng.byte();
            std::copy(x.begin(), x.end(), got.begin() + 3);
            trv::blurLine(got.data(), n, trv::forwardCoefs(c), trv::backwardCoefs(c));
            const std::vector<float> want = modelLine(x, c);
            for (int j = 0; j < n; ++j) ASSERT_EQ(got[j], want[j]) << "s=" << s << " n=" << n << " j=" << j;
        }
    }
}

TEST_F(MultiBlurTest, ABrightPixelIsPulledUpAndEmptyImagesAreIgnored) {
    // A lone 200 on a ground of 100: the three levels average to 100 there.
    const int w = 64, h = 64, at = 32 * w + 32;
    Bytes in(w * h, 100), out(16, 0xEE);
    in[at] = 200;
    std::memset(gTHTable, 0, sizeof gTHTable);
    EXPECT_EQ(blur(in, w, h)[at], 162);  // 100 + 0.8-table[(100 * 200) >> 8 = 78] = 100 + 62
    for (uint8_t v : gTHTable) ASSERT_EQ(v, 0) << "the blur must not fill the floor curve";
    createTHTable();
    EXPECT_EQ(blur(in, w, h)[at], 189);  // floor 171, then 171 + 0.8-table[(29 * 200) >> 8 = 22] = 171 + 18
    EXPECT_EQ(gBlurResult, nullptr);  // the scratch levels are released
    for (uint8_t* level : gVerImg) EXPECT_EQ(level, nullptr);
    for (auto [input, output, width, height] : {std::tuple{in.data(), out.data(), 0, 4},
                                                {in.data(), out.data(), 4, -1},
                                                {nullptr, out.data(), 4, 4},
                                                {in.data(), nullptr, 4, 4}}) {
        MultiBlur(input, output, width, height);
    }
    EXPECT_EQ(out, Bytes(16, 0xEE));
}

}  // namespace
