// Synthetic handheld low-light bursts from one clean picture, the same bytes
// for the same seed on every run:
//  - the scene is darkened by `exposure` (the clean ground truth of a frame
//    is the darkened, shifted scene without noise);
//  - every frame but the first is shifted by a random whole-pixel offset of
//    up to `maxShift` pixels (edges repeat the border pixel);
//  - one square object moves across the scene from frame to frame;
//  - frame `blurredFrame` (when in range) is smeared by a 7-pixel horizontal
//    box, like a frame taken while the hand moved;
//  - noise: shot noise with variance `shotGain` * signal plus read noise of
//    standard deviation `readNoise`, on luma; chroma gets half of it. The
//    Gaussian is the sum of 12 uniform variates minus 6 (exactly
//    reproducible).
#pragma once

#include <cstdint>
#include <vector>

#include "yuv.h"

namespace trvtool {

struct BurstRecipe {
    int frames = 6;
    uint32_t seed = 1;
    float exposure = 0.35f;
    float shotGain = 1.0f;
    float readNoise = 3.0f;
    int maxShift = 12;
    int blurredFrame = 3;  // -1: no blurred frame
    bool movingObject = true;
};

struct SyntheticBurst {
    int width = 0, height = 0;
    std::vector<std::vector<uint8_t>> noisy;  // NV21 frames
    std::vector<std::vector<uint8_t>> clean;  // NV21 ground truth of each frame
    std::vector<int> shiftX, shiftY;          // scene offset of each frame
};

// scene: width and height even.
SyntheticBurst synthesiseBurst(const Yuv444& scene, const BurstRecipe& recipe);

// Named noise levels used by the demo and the evaluation.
struct NoiseLevel {
    const char* name;
    float shotGain;
    float readNoise;
};
const std::vector<NoiseLevel>& noiseLevels();  // low, medium, high

}  // namespace trvtool
