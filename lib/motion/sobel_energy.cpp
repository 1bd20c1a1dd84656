// Sobel gradient energy: the mean of Gx^2 + Gy^2 of the 3 x 3 Sobel pair at
// every second row and column, leaving out a 2-sample border.
#include "motion/crop.h"
#include "trv/stages.h"

namespace {

// Positions are rows 2i (i = 1 .. H/2 - 2) and columns 2j (j = 1 .. W/2 - 2),
// so the sum has exactly (H/2 - 2) * (W/2 - 2) terms; the float quotient of
// an image too small for any position is the IEEE one (0 / 0 is NaN).
template <int kBytes>
float sobelEnergy(const uint8_t* img, int W, int H) {
    const int rows = H / 2 - 2, cols = W / 2 - 2;
    auto at = [&](int c, int r) { return static_cast<int64_t>(trv::lumaAt<kBytes>(img, W, c, r)); };
    int64_t sum = 0;
    for (int i = 1; i <= rows; ++i) {
        const int r = 2 * i;
        for (int j = 1; j <= cols; ++j) {
            const int c = 2 * j;
            const int64_t gx = (at(c + 1, r - 1) + 2 * at(c + 1, r) + at(c + 1, r + 1)) -
                               (at(c - 1, r - 1) + 2 * at(c - 1, r) + at(c - 1, r + 1));
            const int64_t gy = (at(c - 1, r + 1) + 2 * at(c, r + 1) + at(c + 1, r + 1)) -
                               (at(c - 1, r - 1) + 2 * at(c, r - 1) + at(c + 1, r - 1));
            sum += gx * gx + gy * gy;
        }
    }
    const double positions = static_cast<double>(rows) * static_cast<double>(cols);
    return static_cast<float>(static_cast<double>(sum) / positions);
}

}  // namespace

extern "C" {

float xCalcSobelHV2(unsigned char* img, int W, int H) { return sobelEnergy<2>(img, W, H); }

float xCalcSobelHV2_YV16(unsigned char* img, int W, int H) { return sobelEnergy<1>(img, W, H); }

}  // extern "C"
