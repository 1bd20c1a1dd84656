// Blur check: measures every frame's sharpness on its quarter image, picks
// the sharpest frame of normal brightness as reference and the next as
// second frame, drops clearly blurred frames and judges whether the burst's
// brightness is consistent.
#include <cmath>
#include <cstdlib>

#include "common/arith.h"
#include "common/threads.h"
#include "trv/stages.h"

namespace {

constexpr float kOutlierMargin = 3.0f;   // dispersion margin of a brightness outlier
constexpr float kKeepRatio = 0.88f;      // sharpness ratio below which a frame is dropped
constexpr int kBrightnessTolerance = 2;  // luma steps a frame may differ from the reference
constexpr int kOffBrightnessFrames = 2;  // frames off by more that make the burst abnormal

// Marks the frame whose mean brightness lies farthest from the others, when
// it is clearly farther than the next frame. Frame 0 is never marked.
void markBrightnessOutlier(int n) {
    float dispersion[6] = {};
    for (int i = 0; i < n; ++i) gIsNormalPicLux[i] = 1;
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) dispersion[i] += static_cast<float>(trv::absInt(gMeanLux[i] - gMeanLux[j]));
    }
    int m = -1;
    float best = 0.0f;
    for (int i = 0; i < n; ++i) {
        if (dispersion[i] > best) {
            best = dispersion[i];
            m = i;
        }
    }
    if (m > 0 && dispersion[m] - dispersion[(m + 1) % n] > kOutlierMargin) gIsNormalPicLux[m] = 0;
}

}  // namespace

extern "C" {

void* SobelThread(void* index) {
    const int i = *static_cast<int*>(index);
    if (trv::isPlanarLuma(gINFormat)) {
        fillImageS_YV16(i);
    } else {
        fillImageS_YUV422(i);
    }
    xCalcSobelHV(gImgInSArr[i], gW >> 2, gH >> 2, &gSobel[i], &gSobelInner[i]);
    int histogram[256] = {};
    CalEnhanceID(gImgInSArr[i], gW >> 2, gH >> 2, &gMeanLux[i], histogram);
    return nullptr;
}

// "with no attributes": the frame threads keep the default stacks.
void RunCalSobel(int n) { trv::runWorkersWithoutAttributes(SobelThread, n); }

float kickBlurPic(int* kept, int* ref, int* second, int n) {
    *ref = 0;
    *second = 1;
    // The per-frame state holds six frames; an empty burst has nothing to rank.
    if (n > 6) n = 6;
    if (n < 1) return 0.0f;

    float* S = static_cast<float*>(calloc(static_cast<size_t>(n), sizeof(float)));
    float* T = static_cast<float*>(calloc(static_cast<size_t>(n), sizeof(float)));
    gSobel = S;
    gSobelInner = T;
    RunCalSobel(n);

    markBrightnessOutlier(n);

    // When the frame with the sharpest centre is sharper in the centre than
    // overall, every frame gets its inner measure added.
    int k = 0;
    for (int i = 1; i < n; ++i) {
        if (T[i] > T[k]) k = i;
    }
    if (S[k] < T[k]) {
        for (int i = 0; i < n; ++i) S[i] += T[i];
    }

    float best = S[0];
    for (int i = 1; i < n; ++i) {
        if (S[i] > best && gIsNormalPicLux[i] != 0) {
            best = S[i];
            *ref = i;
        }
    }
    float best2 = 0.0f;
    for (int i = 0; i < n; ++i) {
        if (i != *ref && S[i] > best2 && gIsNormalPicLux[i] != 0) {
            best2 = S[i];
            *second = i;
        }
    }
    const float ratio = best2 / best;

    // A NaN ratio (0 against a best of 0) compares false and keeps the frame.
    for (int i = 0; i < n; ++i) {
        if (S[i] / best < kKeepRatio) {
            kept[i] = 0;
            gPicNum -= 1;
        } else {
            kept[i] = 1;
        }
    }

    int offBrightness = 0;
    for (int j = 0; j < n; ++j) {
        if (trv::absInt(gMeanLux[*ref] - gMeanLux[j]) > kBrightnessTolerance) ++offBrightness;
    }
    if (offBrightness >= kOffBrightnessFrames) gIsNormalLuminance = 0;

    // The measures live only for this call; the pointers are cleared rather
    // than left dangling.
    free(S);
    free(T);
    gSobel = nullptr;
    gSobelInner = nullptr;
    return ratio;
}

}  // extern "C"
