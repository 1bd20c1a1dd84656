// Image quality of a result against its clean ground truth, on luma only:
//  - PSNR in dB, 10 log10(255^2 / MSE); infinite for identical planes;
//  - SSIM with the usual Gaussian window (11 x 11 taps, sigma 1.5),
//    K1 = 0.01, K2 = 0.03, L = 255, averaged over every window position that
//    lies fully inside the plane (no padding).
#pragma once

#include <cstdint>

namespace trvtool {

double lumaPsnr(const uint8_t* a, const uint8_t* b, int width, int height);
double lumaSsim(const uint8_t* a, const uint8_t* b, int width, int height);

}  // namespace trvtool

namespace trvtool {

struct LumaQuality {
    double psnr = 0.0;
    double ssim = 0.0;
};
// Both measures of the luma planes that start two frames.
LumaQuality lumaQuality(const uint8_t* result, const uint8_t* clean, int width, int height);

}  // namespace trvtool
