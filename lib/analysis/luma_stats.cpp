// Luminance statistics: a histogram and mean of luma sampled every 8th row
// and column, mapped to an enhancement level 0 (bright) .. 3 (very dark).
#include "common/arith.h"
#include "trv/stages.h"

namespace {

int levelForMean(int mean) {
    if (mean > 117) return 0;
    if (mean > 86) return 1;
    if (mean > 18) return 2;
    return 3;
}

// bytesPerPixel 1: planar luma, row stride w; 2: packed luma on the even
// bytes, row stride 2w.
int enhanceLevel(const unsigned char* img, int w, int h, int* mean, int* histogram, int bytesPerPixel) {
    // The divisor counts whole 8 x 8 cells while the samples also cover the
    // partial ones: the larger mean for sizes that are not multiples of 8 is
    // part of the measure. A zero count (w or h below 8) gives a mean of 0.
    const int32_t count = (w / 8) * (h / 8);
    if (h < 1) {
        *mean = trv::divOrZero(0, count);
        return 3;
    }
    uint32_t sum = 0;  // wraps like the 32-bit sum it stands for, without overflow
    const size_t stride = static_cast<size_t>(w) * bytesPerPixel;
    for (int r = 0; r < h; r += 8) {
        const unsigned char* row = img + r * stride;
        for (int c = 0; c < w; c += 8) {
            int v = row[c * bytesPerPixel];
            histogram[v] += 1;
            sum += static_cast<uint32_t>(v);
        }
    }
    *mean = trv::divOrZero(static_cast<int32_t>(sum), count);
    return levelForMean(*mean);
}

}  // namespace

extern "C" {

int CalEnhanceID_YV16(unsigned char* img, int w, int h, int* mean, int* histogram) {
    return enhanceLevel(img, w, h, mean, histogram, 1);
}

int CalEnhanceID_YUV422(unsigned char* img, int w, int h, int* mean, int* histogram) {
    return enhanceLevel(img, w, h, mean, histogram, 2);
}

int CalEnhanceID(unsigned char* img, int w, int h, int* mean, int* histogram) {
    if (trv::isPlanarLuma(gINFormat)) return CalEnhanceID_YV16(img, w, h, mean, histogram);
    return CalEnhanceID_YUV422(img, w, h, mean, histogram);
}

}  // extern "C"
