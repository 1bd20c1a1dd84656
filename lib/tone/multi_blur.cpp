// Multi-level blur: three recursive Gaussians (scales 5, 25, 50) run along
// rows, then columns, on four threads per pass; the last column pass averages
// the three levels and lifts the mean towards bright input detail.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "retinex/line_split.h"
#include "tone/blur_line.h"
#include "trv/stages.h"

extern "C" {

uint8_t* gBlurSrc = nullptr;
uint8_t* gBlurImg = nullptr;
int32_t gBlurSrcW = 0;
int32_t gBlurSrcH = 0;
uint8_t* gVerImg[3] = {nullptr, nullptr, nullptr};
float gSigma[3] = {5.0f, 25.0f, 50.0f};
TRVGauss3Coefs gGauss3_coefs[3];
float32x4_t vec_b0;
float32x4_t vec_b1;
int32_t* gBlurResult = nullptr;

}  // extern "C"

namespace {

constexpr int kLevels = 3;
constexpr int kPassThreads = trv::kLineParts;
constexpr int kMergeLevel = 2;

// Merge of one pixel: mean of the three levels, floored by the luma curve and
// pulled 80 % of the way up towards brighter input (weighted by the input).
uint8_t mergePixel(float g2, int g0, int g1, int x) {
    int index = static_cast<int>(g2 + static_cast<float>(g0 + g1) + 0.5f);
    index = std::min(std::max(index, 0), 767);  // filtered values stay in range; guard float overshoot
    const int mean = gDivTable[index];
    int o = std::max<int>(gTHTable[x], mean) & 0xFF;
    if (x > o) o = (o + gDivTable_0_8[((x - o) * x) >> 8]) & 0xFF;
    return static_cast<uint8_t>(o);
}

// Row pass of level t / 4, part t % 4: input rows into gVerImg[level].
void* blurRowsThread(void* arg) {
    const int t = *static_cast<int*>(arg);
    const int level = t / kPassThreads;
    const int w = gBlurSrcW;
    const trv::LineRange rows = trv::lineQuarter(t % kPassThreads, gBlurSrcH);
    std::vector<float> buf(static_cast<size_t>(w) + 3);
    for (int y = rows.begin; y < rows.end; ++y) {
        const uint8_t* src = gBlurSrc + static_cast<size_t>(y) * w;
        uint8_t* dst = gVerImg[level] + static_cast<size_t>(y) * w;
        for (int i = 0; i < w; ++i) buf[i + 3] = src[i];
        trv::blurLine(buf.data(), w, vec_b0, vec_b1);
        for (int i = 0; i < w; ++i) dst[i] = trv::blurByte(buf[i]);
    }
    return nullptr;
}

// Column pass of level t / 4, part t % 4, in place; the last level also
// writes the merged estimate to gBlurImg.
void* blurColumnsThread(void* arg) {
    const int t = *static_cast<int*>(arg);
    const int level = t / kPassThreads;
    const int w = gBlurSrcW, h = gBlurSrcH;
    const trv::LineRange cols = trv::lineQuarter(t % kPassThreads, w);
    uint8_t* img = gVerImg[level];
    std::vector<float> buf(static_cast<size_t>(h) + 3);
    for (int x = cols.begin; x < cols.end; ++x) {
        for (int y = 0; y < h; ++y) buf[y + 3] = img[static_cast<size_t>(y) * w + x];
        trv::blurLine(buf.data(), h, vec_b0, vec_b1);
        for (int y = h - 1; y >= 0; --y) {
            const size_t at = static_cast<size_t>(y) * w + x;
            img[at] = trv::blurByte(buf[y]);
            if (level == kMergeLevel) gBlurImg[at] = mergePixel(buf[y], gVerImg[0][at], gVerImg[1][at], gBlurSrc[at]);
        }
    }
    return nullptr;
}

}  // namespace

extern "C" {

void MultiBlur(unsigned char* input, unsigned char* output, int w, int h) {
    // An empty or missing image has no pixel to fill.
    if (input == nullptr || output == nullptr || w <= 0 || h <= 0) return;
    gBlurSrc = input;
    gBlurImg = output;
    gBlurSrcW = w;
    gBlurSrcH = h;
    createDivTable();
    const size_t pixels = static_cast<size_t>(w) * h;
    gBlurResult = static_cast<int32_t*>(std::calloc(pixels, sizeof(int32_t)));
    for (int level = 0; level < kLevels; ++level) {
        gVerImg[level] = static_cast<uint8_t*>(std::malloc(pixels));
        gGauss3_coefs[level] = trv::gauss3Coefs(gSigma[level]);
        vec_b0 = trv::forwardCoefs(gGauss3_coefs[level]);
        vec_b1 = trv::backwardCoefs(gGauss3_coefs[level]);
        trv::runLineQuarters(blurRowsThread, kPassThreads * level);
        trv::runLineQuarters(blurColumnsThread, kPassThreads * level);
    }
    for (uint8_t*& level : gVerImg) {
        std::free(level);
        level = nullptr;
    }
    std::free(gBlurResult);
    gBlurResult = nullptr;
}

}  // extern "C"
